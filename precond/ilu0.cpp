// ILU(0) in Crout form: the factors keep the pattern of A, the pivots sit on L's diagonal.
#include "precond/precond.h"

#include <algorithm>

#include "common/own.h"
#include "precond/ilu_core.h"

namespace {

using kwil::ComBuf;
using kwil::prec::MatOwn;

// w[c] -= mult v[t] for the len columns c = col[t] (distinct, so the updates are independent).
template <class S>
inline void subtractRow(S* w, const int* col, const S* v, int len, const S& mult)
{
    using namespace kwil::prec;
#pragma GCC unroll 4
    for (int t = 0; t < len; ++t)
        w[col[t]] = sub(w[col[t]], mul(mult, v[t]));
}

// W, the work copy of A's values, is eliminated in A's own layout: row i holds its entries in
// ascending column order with the diagonal at diagPos[i].
// Row i: W[i, j] -= (W[i, k] / W[k, k]) W[k, j] for every stored k < i in ascending order and
// every stored j > k that row i also stores. W[i, k] keeps its unscaled value l_ik u_kk.
// Afterwards W is split into L and U, vanishing entries are replaced and U is divided by the
// pivots.
template <class S> int ilu0Factor(KwilHandle* handle, const ComLinMat& a, MatOwn& l, MatOwn& u)
{
    using namespace kwil::prec;
    const int n = a.size;
    ComBuf<S> work(handle, n + 1L);    // row i by one-based column; others hold scratch values
    ComBuf<int> diagPos(handle, n);    // position of the diagonal entry of each row in W
    ComBuf<S> copy(handle, a.dataNum); // W
    if (!work || !diagPos || !copy)
        return comErr(handle, "Alloc error in ILU 0 solver");
    S* w = work.get();
    std::fill(w, w + n + 1, S{});
    int* dp = diagPos.get();
    S* wv = copy.get();
    const S* av = matValues<S>(a);
    std::copy(av, av + a.dataNum, wv);

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
        wv[p] = scale(wv[p], accel);
        nL += p - p0;
        nU += p1 - p - 1;
    }

    // Row i is scattered into w, eliminated there and gathered back. The updates of row k are
    // applied to every column of its upper part without a test: columns outside the pattern
    // of row i only collect scratch values that are never gathered, so each entry of the
    // pattern sees exactly the updates, in exactly the order, of the elimination on W.
    const int traceStep = comOptInt(handle, OPT_ILU_TRACE);
    for (int i = 0; i < n; ++i) {
        if (traceStep > 0 && i % traceStep == 0)
            comTrace(handle, "ILU 0 row %d", i);
        const int p0 = ar[i] - 1, p1 = ar[i + 1] - 1;
        for (int p = p0; p < p1; ++p)
            w[ac[p]] = wv[p];
        for (int p = p0; p < dp[i]; ++p) {
            const int k = ac[p] - 1, dk = dp[k];
            // The multiplier depends on W[i, k] and W[k, k] only, which the walk over the
            // upper part of row k (columns above k) never changes.
            const S mult = quot(w[k + 1], wv[dk]);
            subtractRow(w, ac + dk + 1, wv + dk + 1, ar[k + 1] - 2 - dk, mult);
        }
        for (int p = p0; p < p1; ++p)
            wv[p] = w[ac[p]];
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
    comAssert(handle, split.finish(), "LU number unmatch in ILU 0 solver");
    if (split.replaced() > 0)
        comTrace(handle, "ILU 0 rev diag zero %d %.4e", static_cast<int>(split.replaced()),
                 revVal);
    return 1;
}

} // namespace

int ILU0(KwilHandle* handle, const ComLinMat* a, ComLinMat** l, ComLinMat** u)
{
    MatOwn lo(handle, nullptr), up(handle, nullptr);
    const int ok = a->dataType == LIN_REAL ? ilu0Factor<double>(handle, *a, lo, up)
                                           : ilu0Factor<kwil::prec::Cplx>(handle, *a, lo, up);
    if (ok == 0)
        return 0;
    *l = lo.release();
    *u = up.release();
    return 1;
}
