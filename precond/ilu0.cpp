// ILU(0) in Crout form: the factors keep the pattern of A, the pivots sit on L's diagonal.
#include "precond/precond.h"

#include "common/own.h"
#include "precond/ilu_core.h"

namespace {

using kwil::ComBuf;
using kwil::prec::MatOwn;

// Eliminates a copy W of A in place and splits it into L and U (sorted coordinate form).
// Row i of W: W[i, j] -= (W[i, k] / W[k, k]) W[k, j] for every stored k < i in ascending order
// and every stored j > k that row i also stores. W[i, k] keeps its unscaled value l_ik u_kk.
template <class S>
int ilu0Factor(KwilHandle* handle, const ComLinMat& a, MatOwn& l, MatOwn& u)
{
    using namespace kwil::prec;
    const int n = a.size;
    ComBuf<int> diagPos(handle, n);
    ComBuf<int> colMap(handle, n);
    MatOwn w(handle, nullptr);
    if (diagPos && colMap) w.reset(comLinMatCreate(handle, a.type, a.dataType, n, a.dataNum));
    if (!diagPos || !colMap || !w) return comErr(handle, "Alloc error in ILU 0 solver");
    comLinMatCopy(handle, &a, w.get());
    for (int j = 0; j < n; ++j) colMap[j] = -1;

    const double accel = comOptDbl(handle, OPT_ILU_ACCEL);
    comTrace(handle, "ILU 0 accel %.4e", accel);

    const int* row = w->row;  // one-based row pointers
    const int* col = w->col;  // one-based columns
    S* v = matValues<S>(*w);
    long nL = 0, nU = 0;
    for (int i = 0; i < n; ++i) {
        const int p0 = row[i] - 1, p1 = row[i + 1] - 1;
        if (p0 >= p1) return comErr(handle, "No diag error in ILU 0 solver");
        diagPos[i] = -1;
        for (int p = p0; p < p1; ++p) {
            const int j = col[p] - 1;
            if (j == i) {
                diagPos[i] = p;
                v[p] = scale(v[p], accel);
            } else if (j < i) {
                ++nL;
            } else {
                ++nU;
            }
        }
        if (diagPos[i] < 0) return comErr(handle, "No diag error in ILU 0 solver");
    }

    const int traceStep = comOptInt(handle, OPT_ILU_TRACE);
    int* map = colMap.get();
    const int* dpos = diagPos.get();
    for (int i = 0; i < n; ++i) {
        if (traceStep > 0 && i % traceStep == 0) comTrace(handle, "ILU 0 row %d", i);
        const int p0 = row[i] - 1, p1 = row[i + 1] - 1;
        for (int p = p0; p < p1; ++p) map[col[p] - 1] = p;
        for (int p = p0; p < p1 && col[p] - 1 < i; ++p) {
            const int k = col[p] - 1;
            // The multiplier depends on W[i, k] and W[k, k] only, which the walk over the
            // upper part of row k (columns above k) never changes.
            const S mult = quot(v[p], v[dpos[k]]);
            const int q1 = row[k + 1] - 1;
            for (int q = dpos[k] + 1; q < q1; ++q) {
                const int t = map[col[q] - 1];
                if (t >= 0) v[t] = sub(v[t], mul(mult, v[q]));
            }
        }
        for (int p = p0; p < p1; ++p) map[col[p] - 1] = -1;
    }
    comTrace(handle, "ILU 0 L %d U %d All %d", static_cast<int>(nL), static_cast<int>(nU),
             static_cast<int>(n + nL + nU));
    return iluSplit<S>(handle, a.dataType, n, row, col, v, 1, static_cast<int>(nL),
                       static_cast<int>(nU), "ILU 0", l, u);
}

}  // namespace

int ILU0(KwilHandle* handle, const ComLinMat* a, ComLinMat** l, ComLinMat** u)
{
    MatOwn lo(handle, nullptr), up(handle, nullptr);
    const int ok = a->dataType == LIN_REAL ? ilu0Factor<double>(handle, *a, lo, up)
                                           : ilu0Factor<kwil::prec::Cplx>(handle, *a, lo, up);
    if (ok == 0) return 0;
    // The work copy is gone; the factors become compressed rows.
    return kwil::prec::iluFinish(handle, lo, up, "ILU 0", l, u);
}
