// ILU(0) in Crout form: the factors keep the pattern of A, the pivots sit on L's diagonal.
#include "precond/precond.h"

#include "common/own.h"
#include "precond/ilu_core.h"

namespace {

using kwil::ComBuf;
using kwil::prec::MatOwn;

// The work copy W of A is held directly in the two factors: its strictly lower entries and its
// diagonal in L, its diagonal (again) and strictly upper entries in U, each row in ascending
// column order. So every entry is written once, into the arrays that are returned.
// Row i: W[i, j] -= (W[i, k] / W[k, k]) W[k, j] for every stored k < i in ascending order and
// every stored j > k that row i also stores. W[i, k] keeps its unscaled value l_ik u_kk.
// Afterwards vanishing entries are replaced and U is divided by the pivots.
template <class S> int ilu0Factor(KwilHandle* handle, const ComLinMat& a, MatOwn& l, MatOwn& u)
{
    using namespace kwil::prec;
    const int n = a.size;
    ComBuf<S> work(handle, n);        // row i by column; other columns hold scratch values
    ComBuf<int> lPtr(handle, n + 1L); // rows of L: lPtr[i] .. lPtr[i + 1] - 1, diagonal last
    ComBuf<int> uPtr(handle, n + 1L); // rows of U: uPtr[i] .. uPtr[i + 1] - 1, diagonal first
    if (!work || !lPtr || !uPtr)
        return comErr(handle, "Alloc error in ILU 0 solver");
    S* w = work.get();
    for (int j = 0; j < n; ++j)
        w[j] = S{};

    const double accel = comOptDbl(handle, OPT_ILU_ACCEL);
    comTrace(handle, "ILU 0 accel %.4e", accel);

    const int* ar = a.row; // one-based row pointers
    const int* ac = a.col; // one-based columns
    const S* av = matValues<S>(a);
    int* lp = lPtr.get();
    int* up = uPtr.get();
    long nL = 0, nU = 0;
    lp[0] = 0;
    up[0] = 0;
    for (int i = 0; i < n; ++i) {
        const int p0 = ar[i] - 1, p1 = ar[i + 1] - 1;
        if (p0 >= p1)
            return comErr(handle, "No diag error in ILU 0 solver");
        bool diag = false;
        for (int p = p0; p < p1; ++p) {
            const int j = ac[p] - 1;
            if (j == i) {
                diag = true;
            } else if (j < i) {
                ++nL;
            } else {
                ++nU;
            }
        }
        if (!diag)
            return comErr(handle, "No diag error in ILU 0 solver");
        lp[i + 1] = static_cast<int>(nL + i + 1);
        up[i + 1] = static_cast<int>(nU + i + 1);
    }

    l.reset(comLinMatCreate(handle, MAT_SORTED, a.dataType, n, static_cast<int>(n + nL)));
    if (l)
        u.reset(comLinMatCreate(handle, MAT_SORTED, a.dataType, n, static_cast<int>(n + nU)));
    if (!l || !u) {
        l.reset(nullptr);
        return comErr(handle, "Alloc matrix error in ILU 0 solver");
    }
    int* lr = l->row;
    int* lc = l->col;
    S* lv = matValues<S>(*l);
    int* ur = u->row;
    int* uc = u->col;
    S* uv = matValues<S>(*u);
    for (int i = 0; i < n; ++i) {
        int ql = lp[i], qu = up[i];
        for (int p = ar[i] - 1; p < ar[i + 1] - 1; ++p) {
            const int j = ac[p] - 1;
            if (j <= i) {
                lr[ql] = i + 1;
                lc[ql] = j + 1;
                lv[ql] = j == i ? scale(av[p], accel) : av[p];
                ++ql;
            }
            if (j >= i) {
                ur[qu] = i + 1;
                uc[qu] = j + 1;
                uv[qu] = av[p]; // the diagonal copy is set at the end
                ++qu;
            }
        }
    }

    // Row i is scattered into w, eliminated there and gathered back. The updates of row k are
    // applied to every column of its upper part without a test: columns outside the pattern
    // of row i only collect scratch values that are never gathered, so each entry of the
    // pattern sees exactly the updates, in exactly the order, of the elimination on W.
    const int traceStep = comOptInt(handle, OPT_ILU_TRACE);
    for (int i = 0; i < n; ++i) {
        if (traceStep > 0 && i % traceStep == 0)
            comTrace(handle, "ILU 0 row %d", i);
        const int l0 = lp[i], l1 = lp[i + 1], u0 = up[i], u1 = up[i + 1];
        for (int p = l0; p < l1; ++p)
            w[lc[p] - 1] = lv[p];
        for (int q = u0 + 1; q < u1; ++q)
            w[uc[q] - 1] = uv[q];
        for (int p = l0; p < l1 - 1; ++p) {
            const int k = lc[p] - 1;
            // The multiplier depends on W[i, k] and W[k, k] only, which the walk over the
            // upper part of row k (columns above k) never changes.
            const S mult = quot(w[k], lv[lp[k + 1] - 1]);
            const int q1 = up[k + 1];
            for (int q = up[k] + 1; q < q1; ++q) {
                const int j = uc[q] - 1;
                w[j] = sub(w[j], mul(mult, uv[q]));
            }
        }
        for (int p = l0; p < l1; ++p)
            lv[p] = w[lc[p] - 1];
        for (int q = u0 + 1; q < u1; ++q)
            uv[q] = w[uc[q] - 1];
    }
    comTrace(handle, "ILU 0 L %d U %d All %d", static_cast<int>(nL), static_cast<int>(nU),
             static_cast<int>(n + nL + nU));

    // Vanishing entries of W become ILU_REV_DIAGZERO_VAL (the diagonal counted once); U is
    // divided by the pivots, its diagonal becoming pivot / pivot.
    const double revVal = comOptDbl(handle, OPT_ILU_REV_DIAGZERO_VAL);
    const S rev = fromParts<S>(revVal, 0.0);
    long revCount = 0;
    for (int i = 0; i < n; ++i) {
        for (int p = lp[i]; p < lp[i + 1]; ++p) {
            if (vanishing(lv[p])) {
                lv[p] = rev;
                ++revCount;
            }
        }
        const S pivot = lv[lp[i + 1] - 1];
        uv[up[i]] = quot(pivot, pivot);
        for (int q = up[i] + 1; q < up[i + 1]; ++q) {
            if (vanishing(uv[q])) {
                uv[q] = rev;
                ++revCount;
            }
            uv[q] = quot(uv[q], pivot);
        }
    }
    if (revCount > 0) {
        comTrace(handle, "ILU 0 rev diag zero %d %.4e", static_cast<int>(revCount), revVal);
    }
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
