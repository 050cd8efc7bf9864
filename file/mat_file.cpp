// Matrix files: reading a coordinate Matrix Market file into a matrix, and writing one.
#include "file/file.h"

#include "common/own.h"
#include "file/line_scan.h"
#include "file/mmio.h"

namespace {

using MatOwner = kwil::ComOwn<ComLinMat, comLinMatDelete>;

const char* const place = "mat file read";

// Reads the data lines into mat: k-th line into entry k. Null after the error lines.
ComLinMat* readEntries(KwilHandle* handle, FILE* f, const char* fileName, MatOwner& mat, char field)
{
    const bool fastOk = kwil::lineScanFastOk();
    const int n = mat->dataNum;
    int* const rows = mat->row;
    int* const cols = mat->col;
    char line[1024];
    int k = 0;
    int ij[2];
    double v[2];
    for (; getLine(f, line, sizeof line) != 0; ++k) {
        if (k >= n)
            return static_cast<ComLinMat*>(
                comErrNull(handle, "Too much data in mat file read file='%s'", fileName));
        if (field == 'C') {
            if (!kwil::scanLine(line, 2, ij, 2, v, fastOk)) {
                return static_cast<ComLinMat*>(
                    dataFormatErr(handle, "comp", place, fileName, line));
            }
            rows[k] = ij[0];
            cols[k] = ij[1];
            if (!comLinMatParamCheck(handle, mat.get(), k, ij[0], ij[1], place)) {
                return static_cast<ComLinMat*>(
                    comErrNull(handle, "Invalid comp data in mat file read='%s'", fileName));
            }
            mat->compData[2L * k] = v[0];
            mat->compData[2L * k + 1] = v[1];
        } else if (field == 'P') {
            if (!kwil::scanLine(line, 2, ij, 0, v, fastOk)) {
                return static_cast<ComLinMat*>(
                    dataFormatErr(handle, "pattern", place, fileName, line));
            }
            rows[k] = ij[0];
            cols[k] = ij[1];
            if (!comLinMatParamCheck(handle, mat.get(), k, ij[0], ij[1], place)) {
                return static_cast<ComLinMat*>(
                    comErrNull(handle, "Invalid pattern data in mat file read='%s'", fileName));
            }
            mat->realData[k] = 1.0;
        } else {
            if (!kwil::scanLine(line, 2, ij, 1, v, fastOk)) {
                return static_cast<ComLinMat*>(
                    dataFormatErr(handle, "real", place, fileName, line));
            }
            rows[k] = ij[0];
            cols[k] = ij[1];
            mat->realData[k] = v[0];
            if (!comLinMatParamCheck(handle, mat.get(), k, ij[0], ij[1], place)) {
                return static_cast<ComLinMat*>(
                    comErrNull(handle, "Invalid real data in mat file read='%s'", fileName));
            }
        }
    }
    if (k != n) {
        return static_cast<ComLinMat*>(
            comErrNull(handle, "Too few data in mat file read file='%s'", fileName));
    }
    return mat.release();
}

} // namespace

ComLinMat* comFileMatRead(KwilHandle* handle, const char* fileName)
{
    FILE* f = fileName != nullptr ? fopen(fileName, "r") : nullptr;
    if (f == nullptr) {
        return static_cast<ComLinMat*>(
            comErrNull(handle, "Open error in mat file read file='%s'", fileName));
    }
    kwil::ComFileCloser closer(f);

    MM_typecode code;
    if (mm_read_banner(f, &code) != 0) {
        return static_cast<ComLinMat*>(
            comErrNull(handle, "Invalid banner in mat file read file='%s'", fileName));
    }
    const kwil::ComTypeText text(code);
    comTrace(handle, "Open matCode='%s'", text.get());
    if (code[0] != 'M' || code[1] != 'C') {
        return static_cast<ComLinMat*>(comErrNull(
            handle, "No support type in mat file read file='%s' type='%s'", fileName, text.get()));
    }
    const char field = code[2]; // 'C' complex, 'P' pattern, 'R' or 'I' real
    const int dataType = field == 'C' ? LIN_COMP : LIN_REAL;

    int rows = 0, cols = 0, entries = 0;
    // Negative counts scan like any others; a matrix that cannot be made is reported by its
    // creation below.
    if (!readSize(f, &rows, &cols, &entries)) {
        return static_cast<ComLinMat*>(
            comErrNull(handle, "Size read error in mat file read file='%s'", fileName));
    }
    if (rows != cols) {
        return static_cast<ComLinMat*>(
            comErrNull(handle, "Size unmatch in mat file read file='%s'", fileName));
    }
    comTrace(handle, "Get matrix size %d - %d", rows, entries);

    MatOwner mat(handle, comLinMatCreate(handle, MAT_COO, dataType, rows, entries));
    if (!mat) {
        return static_cast<ComLinMat*>(
            comErrNull(handle, "Matrix data create error in mat file read file='%s'", fileName));
    }
    return readEntries(handle, f, fileName, mat, field);
}

int comFileMatWrite(KwilHandle* handle, const ComLinMat* mat, const char* fileName)
{
    FILE* f = fileName != nullptr ? fopen(fileName, "w") : nullptr;
    if (f == nullptr)
        return comErr(handle, "Open error in mat file read, write='%s'", fileName);
    const bool complex = mat->dataType == LIN_COMP;
    const MM_typecode code = {'M', 'C', complex ? 'C' : 'R', 'G'};
    mm_write_banner(f, code);
    mm_write_mtx_crd_size(f, mat->size, mat->size, mat->dataNum);
    int row = 0, col = 0, pos = 0;
    double re = 0.0, im = 0.0;
    for (int more = comLinMatGetNext(handle, mat, &row, &col, &pos, &re, &im, 1); more != 0;
         more = comLinMatGetNext(handle, mat, &row, &col, &pos, &re, &im, 0)) {
        if (complex) {
            fprintf(f, "%d %d %.20e %.20e\n", row, col, re, im);
        } else {
            fprintf(f, "%d %d %.20e\n", row, col, re);
        }
    }
    fclose(f);
    return 1;
}
