// The host's access to the coefficient matrix A: create, shape, set, iterate, files.
#include "api/kwil.h"

#include <climits>

#include "common/com.h"
#include "file/file.h"
#include "lin/lin.h"

namespace {

// The interface's data type flag: 0 real, anything else complex.
int getDataType(int flag)
{
    return flag == 0 ? LIN_REAL : LIN_COMP;
}

// The stored 1-based index of a 0-based host index; INT_MAX, which has no successor, maps to
// 0, which is out of range just as INT_MAX + 1 would be.
int toStored(int index)
{
    return index < INT_MAX ? index + 1 : 0;
}

void dropMatrix(KwilHandle* handle)
{
    comLinMatDelete(handle, handle->matCoef);
    handle->matCoef = nullptr;
}

} // namespace

int kwilMatCoefCreate(KwilHandle* handle, int flag, int size, int dataNum)
{
    dropMatrix(handle);
    // A negative entry count fails the allocation; a negative size is kept as it stands, and
    // no entry can then be set within it.
    ComLinMat* mat = comLinMatCreate(handle, MAT_COO, getDataType(flag), size, dataNum);
    if (mat == nullptr)
        return comErr(handle, "Create error in create coef mat");
    for (long p = 0; p < dataNum; ++p) {
        mat->row[p] = -1;
        mat->col[p] = -1;
    }
    if (mat->dataType == LIN_REAL) {
        for (long p = 0; p < dataNum; ++p)
            mat->realData[p] = 0.0;
    } else {
        for (long p = 0; p < 2L * dataNum; ++p)
            mat->compData[p] = 0.0;
    }
    handle->matCoef = mat;
    return 1;
}

int kwilMatCoefInfo(KwilHandle* handle, int* flag, int* size, int* dataNum)
{
    const ComLinMat* mat = handle->matCoef;
    if (mat == nullptr)
        return comErr(handle, "No data in get coef mat info");
    *flag = mat->dataType == LIN_COMP ? 1 : 0;
    *size = mat->size;
    *dataNum = mat->dataNum;
    return 1;
}

int kwilMatCoefSet(KwilHandle* handle, int row, int col, int pos, double re, double im, int restore)
{
    ComLinMat* mat = handle->matCoef;
    if (mat == nullptr)
        return comErr(handle, "No data in set coef mat");
    if (!comLinMatParamCheckDispShift(handle, mat, pos, toStored(row), toStored(col), pos, row, col,
                                      "set coef mat")) {
        return 0;
    }
    if (mat->type != MAT_COO) {
        // A solve or a result check has converted the matrix.
        if (restore == 0)
            return comErr(handle, "Invalid mat type (after solver) in set coef mat");
        if (!comLinMatChangeType(handle, mat, MAT_COO)) {
            return comErr(handle, "Restore mat type error in set coef mat");
        }
    }
    mat->row[pos] = row + 1;
    mat->col[pos] = col + 1;
    if (mat->dataType == LIN_REAL) {
        mat->realData[pos] = re;
    } else {
        mat->compData[2L * pos] = re;
        mat->compData[2L * pos + 1] = im;
    }
    return 1;
}

int kwilMatCoefGetNext(KwilHandle* handle, int* row, int* col, int* pos, double* re, double* im,
                       int* end, int first)
{
    const ComLinMat* mat = handle->matCoef;
    if (mat == nullptr)
        return comErr(handle, "No data in get next coef mat");
    if (first == 0 && (*pos < 0 || *pos > mat->dataNum)) {
        return comErr(handle, "Invalid pos in get next coef mat pos=%d", *pos);
    }
    // The host's 0-based row, one less than the row delivered last, is a valid place for the
    // forward scan of CSR form to start from.
    int r = *row, c = *col;
    if (comLinMatGetNext(handle, mat, &r, &c, pos, re, im, first) == 0) {
        *end = 1;
        return 1;
    }
    *row = r - 1; // an empty slot (-1) is delivered as -2
    *col = c - 1;
    *end = 0;
    return 1;
}

int kwilMatCoefFileRead(KwilHandle* handle, const char* path)
{
    dropMatrix(handle);
    handle->matCoef = comFileMatRead(handle, path);
    if (handle->matCoef == nullptr) {
        return comErr(handle, "Read error in read coef mat file '%s'", path);
    }
    return 1;
}

int kwilMatCoefFileWrite(KwilHandle* handle, const char* path)
{
    if (handle->matCoef == nullptr) {
        return comErr(handle, "No data in write coef mat file '%s'", path);
    }
    return comFileMatWrite(handle, handle->matCoef, path);
}
