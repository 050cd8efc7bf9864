// Conversions between the storage forms: coordinate (0), sorted coordinate (1) and CSR (2).
#include "lin/lin.h"

#include "common/own.h"

int comLinMatChangeType(KwilHandle* handle, ComLinMat* mat, int type)
{
    const int from = mat->type;
    if (from != type) {
        if (from == MAT_COO && type == MAT_SORTED) {
            if (matSort(handle, mat) == 0)
                return 0;
        } else if (from == MAT_COO && type == MAT_CSR) {
            if (matSort(handle, mat) == 0)
                return 0;
            if (matChangeCSR(handle, mat) == 0)
                return 0;
        } else if (from == MAT_SORTED && type == MAT_COO) {
            mat->type = MAT_COO; // sorted entries are valid unsorted ones
        } else if (from == MAT_SORTED && type == MAT_CSR) {
            if (matChangeCSR(handle, mat) == 0)
                return 0;
        } else if (from == MAT_CSR && (type == MAT_COO || type == MAT_SORTED)) {
            if (matRestoreCSR(handle, mat, type) == 0)
                return 0;
        }
    }
    comAssert(handle, mat->type == type, "Invalid matrix type in matrix change type");
    return 1;
}

int matChangeCSR(KwilHandle* handle, ComLinMat* mat)
{
    int* ptr = matAllocCSRPtr(handle, mat);
    if (ptr == nullptr)
        return 0;
    const int n = mat->size;
    const int nnz = mat->dataNum;
    int k = 0;
    for (int r = 1; r <= n; ++r) {
        ptr[r - 1] = k + 1;
        while (k < nnz && mat->row[k] == r)
            ++k;
    }
    ptr[n] = nnz + 1;
    matInstallCSRPtr(handle, mat, ptr);
    return 1;
}

int* matAllocCSRPtr(KwilHandle* handle, const ComLinMat* mat)
{
    comAssert(handle, mat->type == MAT_SORTED, "Invalid type %d in matrix change to CSR",
              mat->type);
    int* ptr = kwil::comAllocN<int>(handle, matRowDataNum(handle, mat, MAT_CSR));
    if (ptr == nullptr)
        comErr(handle, "Allocation error in matrix change to CSR");
    return ptr;
}

void matInstallCSRPtr(KwilHandle* handle, ComLinMat* mat, int* ptr)
{
    comFree(handle, mat->row);
    mat->row = ptr;
    mat->type = MAT_CSR;
}

int matRestoreCSR(KwilHandle* handle, ComLinMat* mat, int type)
{
    comAssert(handle, mat->type == MAT_CSR && type != MAT_CSR,
              "Invalid type %d in matrix restore CSR", mat->type);
    int* row = kwil::comAllocN<int>(handle, matRowDataNum(handle, mat, type));
    if (row == nullptr)
        return comErr(handle, "Allocation error in matrix restore CSR");
    const int* ptr = mat->row;
    for (int r = 1; r <= mat->size; ++r) {
        for (int p = ptr[r - 1] - 1; p <= ptr[r] - 2; ++p)
            row[p] = r;
    }
    comFree(handle, mat->row);
    mat->row = row;
    mat->type = type;
    return 1;
}
