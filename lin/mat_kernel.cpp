// Sparse kernels on a CSR matrix: the product y := alpha op(A) x + beta y and the triangular solve,
// plain or with a plan for several threads. All hand the stored arrays unchanged to the sparse
// BLAS routines.
#include "lin/lin.h"

#include "platform/sparse_blas.h"

void comLinMatCalcVec(KwilHandle* handle, ComComplex alpha, const ComLinMat* a, int trans,
                      const ComLinVec* x, ComComplex beta, ComLinVec* y)
{
    comAssert(handle, a->type == MAT_CSR, "Invalid type %d in calculate matrix vector", a->type);
    comAssert(handle, a->size == x->size && a->size == y->size,
              "Size unmatch in calculate matrix vector");
    const char operation[2] = {trans != 0 ? 't' : 'n', '\0'};
    const char descriptor[7] = "g  f  "; // general, one-based
    const int m = a->size;
    if (a->dataType == LIN_REAL) {
        mkl_dcsrmv(operation, &m, &m, &alpha.re, descriptor, a->realData, a->col, a->row,
                   a->row + 1, x->realData, &beta.re, y->realData);
    } else {
        const PlatformComplex16 al{alpha.re, alpha.im};
        const PlatformComplex16 be{beta.re, beta.im};
        mkl_zcsrmv(operation, &m, &m, &al, descriptor,
                   reinterpret_cast<const PlatformComplex16*>(a->compData), a->col, a->row,
                   a->row + 1, reinterpret_cast<const PlatformComplex16*>(x->compData), &be,
                   reinterpret_cast<PlatformComplex16*>(y->compData));
    }
}

void comLinMatTriSolv(KwilHandle* handle, int upper, const ComLinMat* a, int trans,
                      const ComLinVec* x, ComLinVec* y)
{
    comAssert(handle, a->type == MAT_CSR, "Invalid type %d in triangle matrix solver", a->type);
    comAssert(handle, a->size == x->size && a->size == y->size,
              "Size unmatch in triangle matrix solver");
    const char triangle[2] = {upper != 0 ? 'u' : 'l', '\0'};
    const char operation[2] = {trans != 0 ? 't' : 'n', '\0'};
    const char diagonal[2] = "n"; // the stored diagonal is used
    const int m = a->size;
    if (a->dataType == LIN_REAL) {
        mkl_dcsrtrsv(triangle, operation, diagonal, &m, a->realData, a->row, a->col, x->realData,
                     y->realData);
    } else {
        mkl_zcsrtrsv(triangle, operation, diagonal, &m,
                     reinterpret_cast<const PlatformComplex16*>(a->compData), a->row, a->col,
                     reinterpret_cast<const PlatformComplex16*>(x->compData),
                     reinterpret_cast<PlatformComplex16*>(y->compData));
    }
}

PlatformTrsvPlan* comLinMatTriSolvPlan(KwilHandle* handle, int upper, const ComLinMat* a)
{
    comAssert(handle, a->type == MAT_CSR, "Invalid type %d in triangle matrix solver", a->type);
    PlatformTrsvPlan* plan =
        platform_csrtrsv_plan(upper != 0 ? "u" : "l", a->size, a->row, a->col, 0);
    if (plan == nullptr)
        return nullptr;
    // The pivots' reciprocals, and each thread's rows as a copy of its own; without them (memory
    // short) the solves read the matrix itself.
    if (a->dataType == LIN_REAL) {
        platform_dcsrtrsv_plan_pack(plan, a->realData, a->row, a->col);
    } else {
        platform_zcsrtrsv_plan_pack(plan, reinterpret_cast<const PlatformComplex16*>(a->compData),
                                    a->row, a->col);
    }
    return plan;
}

void comLinMatTriSolvPlanDelete(KwilHandle*, PlatformTrsvPlan* plan)
{
    platform_csrtrsv_plan_free(plan);
}

void comLinMatTriSolvPlanned(KwilHandle* handle, int upper, const ComLinMat* a,
                             PlatformTrsvPlan* plan, const ComLinVec* x, ComLinVec* y)
{
    if (plan == nullptr) {
        comLinMatTriSolv(handle, upper, a, 0, x, y);
        return;
    }
    comAssert(handle, a->type == MAT_CSR, "Invalid type %d in triangle matrix solver", a->type);
    comAssert(handle, a->size == x->size && a->size == y->size,
              "Size unmatch in triangle matrix solver");
    if (a->dataType == LIN_REAL) {
        platform_dcsrtrsv_planned(plan, a->realData, a->row, a->col, x->realData, y->realData);
    } else {
        platform_zcsrtrsv_planned(plan, reinterpret_cast<const PlatformComplex16*>(a->compData),
                                  a->row, a->col,
                                  reinterpret_cast<const PlatformComplex16*>(x->compData),
                                  reinterpret_cast<PlatformComplex16*>(y->compData));
    }
}
