// ILU(0) in Crout form: the factors keep the pattern of A, the pivots sit on L's diagonal.
#include "precond/precond.h"

#include "common/own.h"
#include "precond/ilu_core.h"

namespace {

using kwil::ComBuf;
using kwil::prec::MatOwn;

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
    ComBuf<S> work(handle, n);         // row i by column; other columns hold scratch values
    ComBuf<int> diagPos(handle, n);    // position of the diagonal entry of each row in W
    ComBuf<S> copy(handle, a.dataNum); // W
    if (!work || !diagPos || !copy)
        return comErr(handle, "Alloc error in ILU 0 solver");
    S* w = work.get();
    for (int j = 0; j < n; ++j)
        w[j] = S{};
    int* dp = diagPos.get();
    S* wv = copy.get();
    const S* av = matValues<S>(a);

    const double accel = comOptDbl(handle, OPT_ILU_ACCEL);
    comTrace(handle, "ILU 0 accel %.4e", accel);

    const int* ar = a.row; // one-based row pointers
    const int* ac = a.col; // one-based columns
    long nL = 0, nU = 0;
    for (int i = 0; i < n; ++i) {
        const int p0 = ar[i] - 1, p1 = ar[i + 1] - 1;
        if (p0 >= p1)
            return comErr(handle, "No diag error in ILU 0 solver");
        dp[i] = -1;
        for (int p = p0; p < p1; ++p) {
            const int j = ac[p] - 1;
            wv[p] = av[p];
            if (j == i) {
                dp[i] = p;
                wv[p] = scale(wv[p], accel);
            } else if (j < i) {
                ++nL;
            } else {
                ++nU;
            }
        }
        if (dp[i] < 0)
            return comErr(handle, "No diag error in ILU 0 solver");
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
            w[ac[p] - 1] = wv[p];
        for (int p = p0; p < dp[i]; ++p) {
            const int k = ac[p] - 1;
            // The multiplier depends on W[i, k] and W[k, k] only, which the walk over the
            // upper part of row k (columns above k) never changes.
            const S mult = quot(w[k], wv[dp[k]]);
            const int q1 = ar[k + 1] - 1;
            for (int q = dp[k] + 1; q < q1; ++q) {
                const int j = ac[q] - 1;
                w[j] = sub(w[j], mul(mult, wv[q]));
            }
        }
        for (int p = p0; p < p1; ++p)
            wv[p] = w[ac[p] - 1];
    }
    comTrace(handle, "ILU 0 L %d U %d All %d", static_cast<int>(nL), static_cast<int>(nU),
             static_cast<int>(n + nL + nU));

    l.reset(comLinMatCreate(handle, MAT_SORTED, a.dataType, n, static_cast<int>(n + nL)));
    if (l)
        u.reset(comLinMatCreate(handle, MAT_SORTED, a.dataType, n, static_cast<int>(n + nU)));
    if (!l || !u) {
        l.reset(nullptr);
        return comErr(handle, "Alloc matrix error in ILU 0 solver");
    }

    // Split; vanishing entries of W become ILU_REV_DIAGZERO_VAL.
    const double revVal = comOptDbl(handle, OPT_ILU_REV_DIAGZERO_VAL);
    FactorSplit<S> split(*l, *u, fromParts<S>(revVal, 0.0));
    for (int i = 0; i < n; ++i) {
        const int p0 = ar[i] - 1;
        if (!split.addRow(i, ac + p0, 1, wv + p0, ar[i + 1] - 1 - p0))
            break; // checked below
    }
    comAssert(handle, split.full(), "LU number unmatch in ILU 0 solver");
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
    // The work arrays are gone; the factors become compressed rows.
    return kwil::prec::iluFinish(handle, lo, up, "ILU 0", l, u);
}
