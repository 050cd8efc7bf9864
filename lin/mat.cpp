// The sparse matrix record: create, delete, exchange, copy, bounds checks and trace.
#include "lin/lin.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

#include "common/own.h"

int matRowDataNum(const KwilHandle*, const ComLinMat* mat, int type)
{
    return type == MAT_CSR ? mat->size + 1 : mat->dataNum;
}

ComLinMat* comLinMatCreate(KwilHandle* handle, int type, int dataType, int size, int dataNum)
{
    auto* mat = static_cast<ComLinMat*>(comAlloc(handle, sizeof(ComLinMat)));
    if (mat == nullptr) {
        return static_cast<ComLinMat*>(comErrNull(handle, "Allocation error in matrix create"));
    }
    *mat = ComLinMat{type, size, dataNum, nullptr, nullptr, dataType, nullptr, nullptr};
    kwil::ComOwn<ComLinMat, comLinMatDelete> own(handle, mat);
    mat->row = kwil::comAllocN<int>(handle, matRowDataNum(handle, mat, type));
    mat->col = kwil::comAllocN<int>(handle, dataNum);
    if (mat->row == nullptr || mat->col == nullptr) {
        return static_cast<ComLinMat*>(
            comErrNull(handle, "Row or col allocation error in matrix create"));
    }
    if (!linAllocValues(handle, dataType, dataNum, &mat->realData, &mat->compData))
        return nullptr;
    return own.release();
}

bool linAllocValues(KwilHandle* handle, int dataType, long n, double** real, double** comp)
{
    const bool isReal = dataType == LIN_REAL;
    double* values = kwil::comAllocN<double>(handle, isReal ? n : 2 * n);
    if (values == nullptr) {
        comErrNull(handle, "%s data allocation error in matrix create", isReal ? "Real" : "Comp");
        return false;
    }
    *(isReal ? real : comp) = values;
    return true;
}

void comLinMatDelete(KwilHandle* handle, ComLinMat* mat)
{
    if (mat == nullptr)
        return;
    comFree(handle, mat->row);
    comFree(handle, mat->col);
    comFree(handle, mat->realData);
    comFree(handle, mat->compData);
    comFree(handle, mat);
}

void comLinMatSwapInter(KwilHandle*, ComLinMat* a, ComLinMat* b)
{
    const ComLinMat t = *a;
    *a = *b;
    *b = t;
}

void comLinMatCopy(KwilHandle* handle, const ComLinMat* src, ComLinMat* dst)
{
    comAssert(handle, src->dataNum == dst->dataNum, "Data number unmatch in copy matrix");
    comAssert(handle, src->dataType == dst->dataType, "Data type unmatch in copy matrix");
    const int rowNum = matRowDataNum(handle, src, src->type);
    comAssert(handle, matRowDataNum(handle, dst, dst->type) >= rowNum,
              "Lack of row data area in copy matrix");
    dst->type = src->type;
    dst->size = src->size;
    std::copy(src->row, src->row + rowNum, dst->row);
    std::copy(src->col, src->col + src->dataNum, dst->col);
    if (src->dataType == LIN_REAL) {
        std::copy(src->realData, src->realData + src->dataNum, dst->realData);
    } else {
        std::copy(src->compData, src->compData + 2L * src->dataNum, dst->compData);
    }
}

int comLinMatGetNext(KwilHandle* handle, const ComLinMat* mat, int* row, int* col, int* pos,
                     double* re, double* im, int first)
{
    *pos = first != 0 ? 0 : *pos + 1;
    if (*pos >= mat->dataNum) {
        *pos = mat->dataNum;
        return 0;
    }
    const int p = *pos;
    if (mat->type == MAT_COO || mat->type == MAT_SORTED) {
        *row = mat->row[p];
    } else if (mat->type == MAT_CSR) {
        // Moves forward from the caller's row to the row holding entry p, past empty rows.
        // A row outside 1..size or beyond the entry's own restarts the scan from row 1.
        int r = first != 0 ? 1 : *row;
        if (r < 1 || r > mat->size || p + 1 < mat->row[r - 1])
            r = 1;
        while (r <= mat->size && p + 1 >= mat->row[r])
            ++r;
        *row = r;
    } else {
        comAssert(handle, false, "Invalid matrix type in matrix get next");
        return 0;
    }
    *col = mat->col[p];
    if (mat->dataType == LIN_REAL) {
        *re = mat->realData[p];
        *im = 0.0;
    } else {
        *re = mat->compData[2L * p];
        *im = mat->compData[2L * p + 1];
    }
    return 1;
}

int comLinMatParamCheckDispShift(KwilHandle* handle, const ComLinMat* mat, int pos, int row,
                                 int col, int showPos, int showRow, int showCol, const char* place)
{
    if (pos < 0 || pos >= mat->dataNum)
        return comErr(handle, "Invalid pos %d in %s", showPos, place);
    if (row < 1 || row > mat->size)
        return comErr(handle, "Invalid row %d in %s", showRow, place);
    if (col < 1 || col > mat->size)
        return comErr(handle, "Invalid col %d in %s", showCol, place);
    return 1;
}

int comLinMatParamCheck(KwilHandle* handle, const ComLinMat* mat, int pos, int row, int col,
                        const char* place)
{
    return comLinMatParamCheckDispShift(handle, mat, pos, row, col, pos, row, col, place);
}

void comLinMatTrace(KwilHandle* handle, const ComLinMat* mat, const char* format, ...)
{
    if (!comTraceOn(handle))
        return;
    va_list args;
    va_start(args, format);
    comTraceBegin(format, args);
    va_end(args);
    fputc('\n', stdout);
    int row = 0, col = 0, pos = 0;
    double re = 0.0, im = 0.0;
    for (int more = comLinMatGetNext(handle, mat, &row, &col, &pos, &re, &im, 1); more != 0;
         more = comLinMatGetNext(handle, mat, &row, &col, &pos, &re, &im, 0)) {
        if (mat->dataType == LIN_REAL) {
            printf(" (%d %d %.4e)", row, col, re);
        } else {
            printf(" (%d %d %.4e %.4e)", row, col, re, im);
        }
    }
    fputc('\n', stdout);
}
