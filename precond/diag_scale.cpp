// Symmetric diagonal scaling of a real system: (S A S) y = S b, x = S y, S = diag(1 / sqrt(a_ii)).
#include "precond/precond.h"

#include <cfloat>
#include <cmath>

#include "common/own.h"

int comToolSetDiagScale(KwilHandle* handle, const ComLinMat* a, ComLinMat** as, const ComLinVec* b,
                        ComLinVec** bs, ComLinVec** s)
{
    using VecOwn = kwil::ComOwn<ComLinVec, comLinVecDelete>;
    using MatOwn = kwil::ComOwn<ComLinMat, comLinMatDelete>;
    comAssert(handle, a->size == b->size, "Data size unmatch in diag scale begin");
    if (a->dataType == LIN_COMP) {
        comWarn(handle, "Not real data in diag scale begin");
        return 0;
    }
    const int n = a->size;
    VecOwn sc(handle, comLinVecCreate(handle, b->dataType, n));
    if (!sc)
        return comErr(handle, "Alloc error in diag scale begin");
    const bool comp = b->dataType == LIN_COMP;
    // sr[i * step] is the real part of s_i.
    double* sr = comp ? sc->compData : sc->realData;
    const long step = comp ? 2 : 1;
    const int* row = a->row;
    const int* col = a->col;
    const double* av = a->realData;
    for (int i = 0; i < n; ++i) {
        // A row without a stored diagonal entry has no scale factor: refuse like a small one.
        bool set = false;
        for (int p = row[i] - 1; p < row[i + 1] - 1; ++p) {
            if (col[p] != i + 1)
                continue;
            if (av[p] <= DBL_MIN) {
                comWarn(handle, "Too small diag in diag scale begin");
                return 0;
            }
            sr[i * step] = 1.0 / std::sqrt(av[p]);
            if (comp)
                sr[i * step + 1] = 0.0;
            set = true;
        }
        if (!set) {
            comWarn(handle, "Too small diag in diag scale begin");
            return 0;
        }
    }

    MatOwn am(handle, comLinMatCreate(handle, MAT_CSR, a->dataType, n, a->dataNum));
    VecOwn bv(handle, am ? comLinVecCreate(handle, b->dataType, n) : nullptr);
    if (!am || !bv)
        return comErr(handle, "Alloc coef and fix error in diag scale begin");
    comLinMatCopy(handle, a, am.get());
    comLinVecCopy(handle, b, bv.get());
    double* v = am->realData;
    for (int i = 0; i < n; ++i) {
        for (int p = row[i] - 1; p < row[i + 1] - 1; ++p) {
            v[p] = (sr[(col[p] - 1) * step] * sr[i * step]) * v[p]; // (s_j s_i) a_ij
        }
    }
    if (comp) {
        for (long i = 0; i < b->size; ++i) {
            bv->compData[2 * i] = sr[2 * i] * b->compData[2 * i];
            bv->compData[2 * i + 1] = sr[2 * i] * b->compData[2 * i + 1];
        }
    } else {
        for (long i = 0; i < b->size; ++i)
            bv->realData[i] = sr[i] * b->realData[i];
    }
    *as = am.release();
    *bs = bv.release();
    *s = sc.release();
    return 1;
}

void comToolResetDiagScale(KwilHandle* handle, ComLinMat* as, ComLinVec* bs, ComLinVec* s,
                           ComLinVec* x)
{
    const double* sr = s->dataType == LIN_COMP ? s->compData : s->realData;
    const long step = s->dataType == LIN_COMP ? 2 : 1;
    if (x->dataType == LIN_COMP) {
        for (long i = 0; i < x->size; ++i) {
            x->compData[2 * i] *= sr[i * step];
            x->compData[2 * i + 1] *= sr[i * step];
        }
    } else {
        for (long i = 0; i < x->size; ++i)
            x->realData[i] = sr[i * step] * x->realData[i];
    }
    comLinMatDelete(handle, as);
    comLinVecDelete(handle, bs);
    comLinVecDelete(handle, s);
}
