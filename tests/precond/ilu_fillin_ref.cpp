// The fill-in factorisation as a direct transcription of its step-by-step description: one
// sorted linked list per row, one allocation per node, the insertion point searched from the
// head of row i for every update. The tests hold the library's version against it bit for bit.
#include <cfloat>
#include <cmath>

#include "precond/precond.h"
#include "precond_util.h"

namespace prectest {

namespace {

bool tiny(double x)
{
    return x > -DBL_MIN && x < DBL_MIN;
}

double magnitude(bool comp, double re, double im)
{
    return comp ? std::sqrt(re * re + im * im) : std::fabs(re);
}

// Appends (row, col, re, im) at position p of a coordinate matrix.
void append(ComLinMat* m, int p, int row, int col, double re, double im)
{
    m->row[p] = row;
    m->col[p] = col;
    if (m->dataType == LIN_REAL) {
        m->realData[p] = re;
    } else {
        m->compData[2 * p] = re;
        m->compData[2 * p + 1] = im;
    }
}

} // namespace

int refILUFillIn(KwilHandle* handle, const ComLinMat* a, ComLinMat** l, ComLinMat** u)
{
    const int n = a->size;
    const bool comp = a->dataType == LIN_COMP;
    auto** rowHead = static_cast<ILUFillInColData**>(comAlloc(handle, sizeof(void*) * n));
    auto** diagNode = static_cast<ILUFillInColData**>(comAlloc(handle, sizeof(void*) * n));
    auto* pivotRe = static_cast<double*>(comAlloc(handle, sizeof(double) * n));
    auto* pivotIm = static_cast<double*>(comAlloc(handle, sizeof(double) * n));
    auto freeWork = [&] {
        comFree(handle, diagNode);
        comFree(handle, pivotRe);
        comFree(handle, pivotIm);
    };
    if (rowHead == nullptr || diagNode == nullptr || pivotRe == nullptr || pivotIm == nullptr) {
        comFree(handle, rowHead);
        freeWork();
        return comErr(handle, "Alloc error in ILU fill-in solver");
    }
    for (int i = 0; i < n; ++i)
        rowHead[i] = diagNode[i] = nullptr;
    auto fail = [&](const char* msg) {
        ILUFillInFreeColData(handle, rowHead, n);
        freeWork();
        return comErr(handle, "%s", msg);
    };

    double absMax = 0.0;
    for (int i = 0; i < n; ++i) {
        ILUFillInColData** tail = &rowHead[i];
        for (int p = a->row[i] - 1; p < a->row[i + 1] - 1; ++p) {
            auto* node = static_cast<ILUFillInColData*>(comAlloc(handle, sizeof(ILUFillInColData)));
            if (node == nullptr)
                return fail("Alloc error in ILU fill-in solver");
            node->col = a->col[p];
            node->re = comp ? a->compData[2 * p] : a->realData[p];
            node->im = comp ? a->compData[2 * p + 1] : 0.0;
            node->next = nullptr;
            *tail = node;
            tail = &node->next;
            absMax = std::fmax(absMax, magnitude(comp, node->re, node->im));
        }
    }
    const double fillMin = comOptDbl(handle, OPT_ILU_FILLINMIN);
    const double accel = comOptDbl(handle, OPT_ILU_ACCEL);
    const double tau = absMax * fillMin;
    comTrace(handle, "ILU fill-in min abs %.4e rel %.4e accel %.4e", tau, fillMin, accel);

    int nL = 0, nU = 0;
    for (int i = 0; i < n; ++i) {
        for (ILUFillInColData* node = rowHead[i]; node != nullptr; node = node->next) {
            if (node->col == i + 1) {
                diagNode[i] = node;
                node->re *= accel;
                node->im *= accel;
            } else if (node->col < i + 1) {
                ++nL;
            } else {
                ++nU;
            }
        }
        if (diagNode[i] == nullptr)
            return fail("No diag error in ILU fill-in solver");
    }

    const int traceStep = comOptInt(handle, OPT_ILU_TRACE);
    for (int i = 0; i < n; ++i) {
        if (traceStep > 0 && i % traceStep == 0)
            comTrace(handle, "ILU fill-in row %d", i);
        for (ILUFillInColData* ik = rowHead[i]; ik != nullptr && ik->col < i + 1; ik = ik->next) {
            const ILUFillInColData* kk = diagNode[ik->col - 1];
            for (const ILUFillInColData* kj = kk->next; kj != nullptr; kj = kj->next) {
                ILUFillInColData** link = &rowHead[i];
                while (*link != nullptr && (*link)->col < kj->col)
                    link = &(*link)->next;
                double mr, mi;
                if (comp) {
                    const double d = kk->re * kk->re + kk->im * kk->im;
                    const double qr = (ik->re * kk->re + ik->im * kk->im) / d;
                    const double qi = (ik->im * kk->re - ik->re * kk->im) / d;
                    mr = kj->re * qr - kj->im * qi;
                    mi = kj->re * qi + kj->im * qr;
                } else {
                    mr = kj->re * (ik->re / kk->re);
                    mi = 0.0;
                }
                if (*link != nullptr && (*link)->col == kj->col) {
                    (*link)->re -= mr;
                    (*link)->im -= mi;
                } else if (magnitude(comp, mr, mi) >= tau) {
                    auto* node =
                        static_cast<ILUFillInColData*>(comAlloc(handle, sizeof(ILUFillInColData)));
                    if (node == nullptr)
                        return fail("Alloc error in ILU fill-in solver");
                    node->col = kj->col;
                    node->re = -mr;
                    node->im = -mi;
                    node->next = *link;
                    *link = node;
                    if (kj->col < i + 1) {
                        ++nL;
                    } else {
                        ++nU;
                    }
                }
            }
        }
    }
    comTrace(handle, "ILU fill-in L %d U %d all %d increase %d", nL, nU, nL + n + nU,
             nL + n + nU - a->dataNum);

    ComLinMat* lm = comLinMatCreate(handle, MAT_SORTED, a->dataType, n, nL + n);
    ComLinMat* um =
        lm != nullptr ? comLinMatCreate(handle, MAT_SORTED, a->dataType, n, n + nU) : nullptr;
    if (um == nullptr) {
        comLinMatDelete(handle, lm);
        return fail("Alloc matrix error in ILU fill-in solver");
    }
    for (int i = 0; i < n; ++i)
        pivotRe[i] = pivotIm[i] = 0.0;
    const double rev = comOptDbl(handle, OPT_ILU_REV_DIAGZERO_VAL);
    int pl = 0, pu = 0, revCount = 0;
    for (int i = 0; i < n; ++i) {
        for (ILUFillInColData* node = rowHead[i]; node != nullptr; node = node->next) {
            if (tiny(node->re) && tiny(node->im)) {
                node->re = rev;
                node->im = 0.0;
                ++revCount;
            }
            if (node->col <= i + 1)
                append(lm, pl++, i + 1, node->col, node->re, node->im);
            if (node->col == i + 1) {
                pivotRe[i] = node->re;
                pivotIm[i] = node->im;
            }
            if (node->col >= i + 1)
                append(um, pu++, i + 1, node->col, node->re, node->im);
        }
    }
    comAssert(handle, pl == nL + n && pu == n + nU, "LU number unmatch in ILU fill-in solver");
    for (int p = 0; p < um->dataNum; ++p) {
        const int i = um->row[p] - 1;
        if (comp) {
            const double br = pivotRe[i], bi = pivotIm[i];
            const double ar = um->compData[2 * p], ai = um->compData[2 * p + 1];
            const double d = br * br + bi * bi;
            um->compData[2 * p] = (ar * br + ai * bi) / d;
            um->compData[2 * p + 1] = (ai * br - ar * bi) / d;
        } else {
            um->realData[p] /= pivotRe[i];
        }
    }
    if (revCount > 0)
        comTrace(handle, "ILU fill-in rev diag zero %d %.4e", revCount, rev);
    ILUFillInFreeColData(handle, rowHead, n);
    freeWork();
    if (comLinMatChangeType(handle, lm, MAT_CSR) == 0 ||
        comLinMatChangeType(handle, um, MAT_CSR) == 0) {
        comLinMatDelete(handle, lm);
        comLinMatDelete(handle, um);
        return comErr(handle, "Change mat type error in ILU fill-in solver");
    }
    *l = lm;
    *u = um;
    return 1;
}

} // namespace prectest
