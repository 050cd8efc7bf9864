// ILU(0) in Crout form: the factors keep the pattern of A, the pivots sit on L's diagonal.
#include "precond/precond.h"

#include <algorithm>

#include "common/own.h"
#include "precond/ilu_core.h"

namespace {

using kwil::ComBuf;
using kwil::prec::MatOwn;

// w[c] -= mult v[t] for the len columns c = col[t] (distinct, so the updates are independent).
template <class S> inline void subtractRow(S* w, const int* col, const S* v, int len, const S& mult)
{
    using namespace kwil::prec;
#pragma GCC unroll 4
    for (int t = 0; t < len; ++t)
        w[col[t]] = sub(w[col[t]], mul(mult, v[t]));
}

// The same for two work rows at once, which share the loads of the columns and of v.
template <class S>
inline void subtractRow2(S* __restrict wa, S* __restrict wb, const int* col, const S* v, int len,
                         const S& multA, const S& multB)
{
    using namespace kwil::prec;
#pragma GCC unroll 2
    for (int t = 0; t < len; ++t) {
        const int c = col[t];
        wa[c] = sub(wa[c], mul(multA, v[t]));
        wb[c] = sub(wb[c], mul(multB, v[t]));
    }
}

// The elimination of rows of W in work rows indexed by the one-based column. A row i of A, its
// diagonal multiplied by ILU_ACCEL, is scattered into a work row, eliminated there and gathered
// into W, where the rows below read it. The updates of row k are applied to every column of its
// upper part without a test: columns outside the pattern of row i only collect scratch values
// that are never gathered, so each entry of the pattern sees exactly the updates, in exactly the
// order, of the elimination on W.
template <class S> struct Elimination {
    const int* ar; // A's one-based row pointers
    const int* ac; // A's one-based columns, ascending in each row
    const S* av;   // A's values
    const int* dp; // position of the diagonal entry of each row
    S* wv;         // W, in A's layout
    double accel;

    void scatter(int i, S* w) const
    {
        using namespace kwil::prec;
        for (int p = ar[i] - 1; p < ar[i + 1] - 1; ++p)
            w[ac[p]] = av[p];
        w[i + 1] = scale(av[dp[i]], accel);
    }
    void gather(int i, const S* w) const
    {
        for (int p = ar[i] - 1; p < ar[i + 1] - 1; ++p)
            wv[p] = w[ac[p]];
    }
    // The multiplier of row k in work row w: W[i, k] / W[k, k]. It depends on W[i, k] and
    // W[k, k] only, which the walk over the upper part of row k (columns above k) never changes.
    S multiplier(const S* w, int k) const { return kwil::prec::quot(w[k + 1], wv[dp[k]]); }
    // The updates of work row w by the finished row k.
    void step(S* w, int k) const
    {
        const int dk = dp[k];
        subtractRow(w, ac + dk + 1, wv + dk + 1, ar[k + 1] - 2 - dk, multiplier(w, k));
    }
    void step2(S* wa, S* wb, int k) const
    {
        const int dk = dp[k];
        subtractRow2(wa, wb, ac + dk + 1, wv + dk + 1, ar[k + 1] - 2 - dk, multiplier(wa, k),
                     multiplier(wb, k));
    }
    // Row i alone.
    void row(int i, S* w) const
    {
        scatter(i, w);
        for (int p = ar[i] - 1; p < dp[i]; ++p)
            step(w, ac[p] - 1);
        gather(i, w);
    }
    // Rows i and i + 1 together: the rows k < i that both have in their lower parts are applied
    // to both work rows in one walk, the others to one of them, each row's own in ascending
    // order; row i + 1 takes row i last, once it is gathered.
    void rowPair(int i, S* wa, S* wb) const
    {
        scatter(i, wa);
        scatter(i + 1, wb);
        int pa = ar[i] - 1, pb = ar[i + 1] - 1;
        const int ea = dp[i];
        int eb = dp[i + 1];
        const bool afterA = eb > pb && ac[eb - 1] == i + 1; // row i + 1 stores (i + 1, i)
        eb -= afterA;
        while (pa < ea && pb < eb) {
            const int ka = ac[pa], kb = ac[pb];
            if (ka == kb) {
                step2(wa, wb, ka - 1);
                ++pa;
                ++pb;
            } else if (ka < kb) {
                step(wa, ka - 1);
                ++pa;
            } else {
                step(wb, kb - 1);
                ++pb;
            }
        }
        for (; pa < ea; ++pa)
            step(wa, ac[pa] - 1);
        for (; pb < eb; ++pb)
            step(wb, ac[pb] - 1);
        gather(i, wa);
        if (afterA)
            step(wb, i);
        gather(i + 1, wb);
    }
};

// W, the work copy of A's values, is eliminated in A's own layout: row i holds its entries in
// ascending column order with the diagonal at diagPos[i].
// Row i: W[i, j] -= (W[i, k] / W[k, k]) W[k, j] for every stored k < i in ascending order and
// every stored j > k that row i also stores. W[i, k] keeps its unscaled value l_ik u_kk.
// Afterwards W is split into L and U, vanishing entries are replaced and U is divided by the
// pivots; both factors end in compressed rows.
template <class S>
int ilu0Factor(KwilHandle* handle, const ComLinMat& a, ComLinMat** lOut, ComLinMat** uOut)
{
    MatOwn l(handle, nullptr), u(handle, nullptr);
    using namespace kwil::prec;
    const int n = a.size;
    ComBuf<S> work(handle, 2 * (n + 1L)); // two work rows by one-based column
    ComBuf<int> diagPos(handle, n);       // position of the diagonal entry of each row in W
    ComBuf<S> copy(handle, a.dataNum);    // W, filled row by row as the rows are eliminated
    if (!work || !diagPos || !copy)
        return comErr(handle, "Alloc error in ILU 0 solver");
    S* wa = work.get();
    S* wb = wa + n + 1;
    std::fill(wa, wa + 2 * (n + 1L), S{});
    int* dp = diagPos.get();
    S* wv = copy.get();
    const S* av = matValues<S>(a);

    const double accel = comOptDbl(handle, OPT_ILU_ACCEL);
    comTrace(handle, "ILU 0 accel %.4e", accel);

    // Rows hold their columns in ascending order: the lower part precedes the diagonal.
    const int* ar = a.row; // one-based row pointers
    const int* ac = a.col; // one-based columns
    long nL = 0, nU = 0;
    for (int i = 0; i < n; ++i) {
        const int p0 = ar[i] - 1, p1 = ar[i + 1] - 1;
        int p = p0;
        while (p < p1 && ac[p] <= i)
            ++p;
        if (p == p1 || ac[p] != i + 1)
            return comErr(handle, "No diag error in ILU 0 solver");
        dp[i] = p;
        nL += p - p0;
        nU += p1 - p - 1;
    }

    // Rows are eliminated in pairs, which gives the processor two independent chains of
    // dependent updates and lets rows of similar pattern share the loads of their pivot rows.
    const Elimination<S> elim{ar, ac, av, dp, wv, accel};
    const int traceStep = comOptInt(handle, OPT_ILU_TRACE);
    for (int i = 0; i < n; i += 2) {
        for (int r = i; r < n && r < i + 2; ++r) {
            if (traceStep > 0 && r % traceStep == 0)
                comTrace(handle, "ILU 0 row %d", r);
        }
        if (i + 1 < n)
            elim.rowPair(i, wa, wb);
        else
            elim.row(i, wa);
    }
    comTrace(handle, "ILU 0 L %d U %d All %d", static_cast<int>(nL), static_cast<int>(nU),
             static_cast<int>(n + nL + nU));

    if (!createFactors(handle, a, nL, nU, l, u))
        return comErr(handle, "Alloc matrix error in ILU 0 solver");

    // Split; vanishing entries of W become ILU_REV_DIAGZERO_VAL.
    const double revVal = comOptDbl(handle, OPT_ILU_REV_DIAGZERO_VAL);
    FactorSplit<S> split(*l, *u, fromParts<S>(revVal, 0.0));
    for (int i = 0; i < n; ++i) {
        const int p0 = ar[i] - 1;
        if (!split.addRow(ac + p0, 0, wv + p0, dp[i] - p0, ar[i + 1] - 1 - p0))
            break; // checked below
    }
    comAssert(handle, split.full(), "LU number unmatch in ILU 0 solver");
    if (split.replaced() > 0)
        comTrace(handle, "ILU 0 rev diag zero %d %.4e", static_cast<int>(split.replaced()), revVal);
    return factorsToCSR(
        handle, l, u, [&](int i) { return dp[i] - ar[i] + 2; },
        [&](int i) { return ar[i + 1] - 1 - dp[i]; }, "ILU 0", lOut, uOut);
}

} // namespace

int ILU0(KwilHandle* handle, const ComLinMat* a, ComLinMat** l, ComLinMat** u)
{
    return a->dataType == LIN_REAL ? ilu0Factor<double>(handle, *a, l, u)
                                   : ilu0Factor<kwil::prec::Cplx>(handle, *a, l, u);
}
