// The result check: the residual of the x held by the handle against CHECK_RESULT_LIM.
#include "api/check.h"

#include <cfloat>

#include "precond/precond.h"

int checkMatCoefLack(KwilHandle* handle, const char* place)
{
    const ComLinMat* a = handle->matCoef;
    comAssert(handle, a->type == MAT_COO || a->type == MAT_SORTED,
              "Invalid mat type for check lack in %s", place);
    for (int p = 0; p < a->dataNum; ++p) {
        // Only the marker -1 of a never-set slot counts as empty.
        if (a->row[p] == -1 || a->col[p] == -1) {
            return comErr(handle, "Lack of coef mat data in %s", place);
        }
    }
    return 1;
}

int reviseDataTypeUnmatch(KwilHandle* handle, const ComLinMat* mat, ComLinVec** vec,
                          const char* place)
{
    if ((*vec)->dataType == mat->dataType)
        return 1;
    if (mat->dataType == LIN_REAL)
        return comErr(handle, "Data type unmatch in %s", place);
    ComLinVec* comp = comLinVecCreateCompFromReal(handle, *vec);
    if (comp == nullptr) {
        return comErr(handle, "Vector comp revies data create error in %s", place);
    }
    comLinVecDelete(handle, *vec);
    *vec = comp;
    return 1;
}

int kwilCheckResult(KwilHandle* handle, double* relRes, double* absRes)
{
    const double limit = comOptDbl(handle, OPT_CHECK_RESULT_LIM);
    ComLinMat* a = handle->matCoef;
    if (a == nullptr || handle->vecFix == nullptr || handle->vecVar == nullptr) {
        return comErr(handle, "No data in check result");
    }
    if (a->size != handle->vecFix->size || a->size != handle->vecVar->size) {
        return comErr(handle, "Size unmatch in check result");
    }
    if (!reviseDataTypeUnmatch(handle, a, &handle->vecFix, "check result"))
        return 0;
    if (!reviseDataTypeUnmatch(handle, a, &handle->vecVar, "check result"))
        return 0;

    // A matrix that a solve left in CSR form is used as it is; no repair, no scaling here.
    if (a->type != MAT_CSR) {
        if (!checkMatCoefLack(handle, "check result"))
            return 0;
        int zeroDiag = 0;
        comToolMatClearZero(handle, a, &zeroDiag);
        if (!comLinMatChangeType(handle, a, MAT_CSR)) {
            return comErr(handle, "Change mat type error in check result");
        }
    }

    // On a failed computation the host's out-parameters are left as they were.
    double rel = 0.0;
    double abs = 0.0;
    const int threads = comSetThreads(handle);
    const int ok =
        comToolCheckResult(handle, a, handle->vecFix, handle->vecVar, &rel, &abs, nullptr);
    comResetThreads(handle, threads);
    if (ok) {
        if (relRes != nullptr)
            *relRes = rel;
        if (absRes != nullptr)
            *absRes = abs;
    }
    comTrace(handle, "Check solver result norm rel %.4e abs %.4e", rel, abs);
    if (!ok)
        return 0;

    // The limit is active only above the smallest normal double; the test is strict.
    if (limit > DBL_MIN && rel > limit) {
        return comErr(handle, "Limit %.4e over error in check result norm rel %.4e abs %.4e", limit,
                      rel, abs);
    }
    return 1;
}
