// ILU(0) as a direct transcription of its step-by-step description: a work copy W of A, the
// diagonal positions, a column map for the lookup of (i, j), separate real and imaginary pivot
// arrays and scalar arithmetic written out. The tests hold the library's version against it bit
// for bit.
#include <cfloat>

#include "precond/precond.h"
#include "precond_util.h"

namespace prectest {

namespace {

bool tiny(double x)
{
    return x > -DBL_MIN && x < DBL_MIN;
}

} // namespace

int refILU0(KwilHandle* handle, const ComLinMat* a, ComLinMat** l, ComLinMat** u)
{
    const int n = a->size;
    const bool comp = a->dataType == LIN_COMP;
    auto* diagPos = static_cast<int*>(comAlloc(handle, sizeof(int) * n));
    auto* colMap = static_cast<int*>(comAlloc(handle, sizeof(int) * n));
    ComLinMat* w = comLinMatCreate(handle, a->type, a->dataType, n, a->dataNum);
    auto* pivotRe = static_cast<double*>(comAlloc(handle, sizeof(double) * n));
    auto* pivotIm = static_cast<double*>(comAlloc(handle, sizeof(double) * n));
    ComLinMat* lm = nullptr;
    ComLinMat* um = nullptr;
    auto release = [&] {
        comFree(handle, diagPos);
        comFree(handle, colMap);
        comLinMatDelete(handle, w);
        comFree(handle, pivotRe);
        comFree(handle, pivotIm);
    };
    auto fail = [&](const char* msg) {
        release();
        comLinMatDelete(handle, lm);
        comLinMatDelete(handle, um);
        return comErr(handle, "%s", msg);
    };
    if (diagPos == nullptr || colMap == nullptr || w == nullptr || pivotRe == nullptr ||
        pivotIm == nullptr) {
        return fail("Alloc error in ILU 0 solver");
    }
    comLinMatCopy(handle, a, w);
    double* re = comp ? w->compData : w->realData; // value of entry p: re[p * step] (+ 1: imag)
    const int step = comp ? 2 : 1;
    auto im = [&](int p) -> double& { return re[p * step + 1]; };

    for (int j = 0; j < n; ++j)
        colMap[j] = -1;
    const double accel = comOptDbl(handle, OPT_ILU_ACCEL);
    comTrace(handle, "ILU 0 accel %.4e", accel);

    int nL = 0, nU = 0;
    for (int i = 0; i < n; ++i) {
        if (w->row[i] == w->row[i + 1])
            return fail("No diag error in ILU 0 solver");
        diagPos[i] = -1;
        for (int p = w->row[i] - 1; p < w->row[i + 1] - 1; ++p) {
            if (w->col[p] == i + 1) {
                diagPos[i] = p;
                re[p * step] *= accel;
                if (comp)
                    im(p) *= accel;
            } else if (w->col[p] < i + 1) {
                ++nL;
            } else {
                ++nU;
            }
        }
        if (diagPos[i] < 0)
            return fail("No diag error in ILU 0 solver");
    }

    const int traceStep = comOptInt(handle, OPT_ILU_TRACE);
    for (int i = 0; i < n; ++i) {
        if (traceStep > 0 && i % traceStep == 0)
            comTrace(handle, "ILU 0 row %d", i);
        for (int p = w->row[i] - 1; p < w->row[i + 1] - 1; ++p)
            colMap[w->col[p] - 1] = p;
        for (int pik = w->row[i] - 1; pik < w->row[i + 1] - 1 && w->col[pik] < i + 1; ++pik) {
            const int k = w->col[pik] - 1;
            const int pkk = diagPos[k];
            for (int pkj = pkk + 1; pkj < w->row[k + 1] - 1; ++pkj) {
                const int pij = colMap[w->col[pkj] - 1];
                if (pij < 0)
                    continue;
                if (comp) {
                    // q = W[i, k] / W[k, k], then W[i, j] -= q W[k, j]
                    const double ar = re[pik * step], ai = im(pik);
                    const double br = re[pkk * step], bi = im(pkk);
                    const double d = br * br + bi * bi;
                    const double qr = (ar * br + ai * bi) / d;
                    const double qi = (ai * br - ar * bi) / d;
                    const double cr = re[pkj * step], ci = im(pkj);
                    re[pij * step] -= qr * cr - qi * ci;
                    im(pij) -= qr * ci + qi * cr;
                } else {
                    re[pij] -= (re[pik] / re[pkk]) * re[pkj];
                }
            }
        }
        for (int p = w->row[i] - 1; p < w->row[i + 1] - 1; ++p)
            colMap[w->col[p] - 1] = -1;
    }
    comTrace(handle, "ILU 0 L %d U %d All %d", nL, nU, n + nL + nU);

    lm = comLinMatCreate(handle, MAT_SORTED, a->dataType, n, n + nL);
    um = lm != nullptr ? comLinMatCreate(handle, MAT_SORTED, a->dataType, n, n + nU) : nullptr;
    if (um == nullptr)
        return fail("Alloc matrix error in ILU 0 solver");
    for (int i = 0; i < n; ++i)
        pivotRe[i] = pivotIm[i] = 0.0;
    const double rev = comOptDbl(handle, OPT_ILU_REV_DIAGZERO_VAL);
    int pl = 0, pu = 0, revCount = 0;
    auto append = [&](ComLinMat* m, int& q, int row, int col, double vr, double vi) {
        m->row[q] = row;
        m->col[q] = col;
        if (comp) {
            m->compData[2 * q] = vr;
            m->compData[2 * q + 1] = vi;
        } else {
            m->realData[q] = vr;
        }
        ++q;
    };
    for (int i = 0; i < n; ++i) {
        for (int p = w->row[i] - 1; p < w->row[i + 1] - 1; ++p) {
            double vr = re[p * step];
            double vi = comp ? im(p) : 0.0;
            if (tiny(vr) && tiny(vi)) {
                vr = rev;
                vi = 0.0;
                ++revCount;
            }
            const int j = w->col[p] - 1;
            if (j < i) {
                append(lm, pl, i + 1, j + 1, vr, vi);
            } else if (j == i) {
                append(lm, pl, i + 1, i + 1, vr, vi);
                append(um, pu, i + 1, i + 1, vr, vi);
                pivotRe[i] = vr;
                pivotIm[i] = vi;
            } else {
                append(um, pu, i + 1, j + 1, vr, vi);
            }
        }
    }
    comAssert(handle, pl == n + nL && pu == n + nU, "LU number unmatch in ILU 0 solver");
    for (int q = 0; q < um->dataNum; ++q) {
        const int i = um->row[q] - 1;
        if (comp) {
            const double br = pivotRe[i], bi = pivotIm[i];
            const double ar = um->compData[2 * q], ai = um->compData[2 * q + 1];
            const double d = br * br + bi * bi;
            um->compData[2 * q] = (ar * br + ai * bi) / d;
            um->compData[2 * q + 1] = (ai * br - ar * bi) / d;
        } else {
            um->realData[q] /= pivotRe[i];
        }
    }
    if (revCount > 0)
        comTrace(handle, "ILU 0 rev diag zero %d %.4e", revCount, rev);
    release();
    if (comLinMatChangeType(handle, lm, MAT_CSR) == 0 ||
        comLinMatChangeType(handle, um, MAT_CSR) == 0) {
        comLinMatDelete(handle, lm);
        comLinMatDelete(handle, um);
        return comErr(handle, "Change mat type error in ILU 0 solver");
    }
    *l = lm;
    *u = um;
    return 1;
}

} // namespace prectest
