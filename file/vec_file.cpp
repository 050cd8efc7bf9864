// Vector files: reading an array (first column) or coordinate pattern Matrix Market file into
// a vector, and writing a vector as an array file.
#include "file/file.h"

#include "common/own.h"
#include "file/line_scan.h"
#include "file/mmio.h"

namespace {

using VecOwner = kwil::ComOwn<ComLinVec, comLinVecDelete>;

const char* const place = "vec file read";

ComLinVec* fail(void* p) { return static_cast<ComLinVec*>(p); }

// What the header says about the data lines.
struct VecLayout {
    bool pattern;    // coordinate pattern: "row col" lines, 1.0 at the rows of column 1
    int dataType;    // LIN_REAL or LIN_COMP
    int rows;        // vector size
    int cols;        // declared columns; only the first is kept
    long expected;   // number of data lines
};

// Reads the data lines into vec. Null after the error lines.
ComLinVec* readValues(KwilHandle* handle, FILE* f, const char* fileName, VecOwner& vec,
                      const VecLayout& lay)
{
    const bool fastOk = kwil::lineScanFastOk();
    char line[1024];
    long k = 0;
    int ij[2];
    double v[2];
    for (; getLine(f, line, sizeof line) != 0; ++k) {
        if (k >= lay.expected) {
            return fail(comErrNull(handle, "Too much data in vec file read file='%s'", fileName));
        }
        if (lay.pattern) {
            if (!kwil::scanLine(line, 2, ij, 0, v, fastOk)) {
                return fail(dataFormatErr(handle, "pattern", place, fileName, line));
            }
            const int i = ij[0], j = ij[1];
            if (j == 1) {
                // Row i is entry i-1; a row below 1 is refused without forming i-1.
                if (!comLinVecParamCheckDispShift(handle, vec.get(), i > 0 ? i - 1 : -1, i,
                                                  "vec file read file")) {
                    return fail(comErrNull(
                        handle, "Invalid pattern data in vec file read file='%s'", fileName));
                }
                vec->realData[i - 1] = 1.0;
            } else if (j > lay.cols) {
                return fail(comErrNull(handle, "Too large col %d in vec file read file='%s'", j,
                                       fileName));
            }
        } else if (k < lay.rows) {
            if (lay.dataType == LIN_COMP) {
                if (!kwil::scanLine(line, 0, ij, 2, v, fastOk)) {
                    return fail(dataFormatErr(handle, "comp", place, fileName, line));
                }
                vec->compData[2 * k] = v[0];
                vec->compData[2 * k + 1] = v[1];
            } else {
                if (!kwil::scanLine(line, 0, ij, 1, v, fastOk)) {
                    return fail(dataFormatErr(handle, "real", place, fileName, line));
                }
                vec->realData[k] = v[0];
            }
        }
        // Lines of further array columns are counted and not parsed.
    }
    if (k != lay.expected) {
        return fail(comErrNull(handle, "Too few data in vec file read file='%s'", fileName));
    }
    return vec.release();
}

}  // namespace

ComLinVec* comFileVecRead(KwilHandle* handle, const char* fileName)
{
    FILE* f = fileName != nullptr ? fopen(fileName, "r") : nullptr;
    if (f == nullptr) return fail(comErrNull(handle, "Open error in vec file read file='%s'", fileName));
    kwil::ComFileCloser closer(f);

    MM_typecode code;
    if (mm_read_banner(f, &code) != 0) {
        return fail(comErrNull(handle, "Invalid banner in vec file read file='%s'", fileName));
    }
    const kwil::ComTypeText text(code);
    comTrace(handle, "Open matCode='%s'", text.get());

    VecLayout lay{false, LIN_REAL, 0, 0, 0};
    if (code[1] == 'C') {
        if (code[2] != 'P') {
            return fail(comErrNull(handle, "No support type in vec file read file='%s' type='%s'",
                                   fileName, text.get()));
        }
        int entries = 0;
        // Negative counts cannot describe a vector: the size line is refused.
        if (!readSize(f, &lay.rows, &lay.cols, &entries) || lay.rows < 0 || lay.cols < 0 ||
            entries < 0) {
            return fail(comErrNull(handle, "Size error in vec file read file='%s'", fileName));
        }
        if (lay.cols != 1) {
            comWarn(handle, "Col %d != 1 (use 1st only) in vec file read file='%s'", lay.cols,
                    fileName);
        }
        comTrace(handle, "Get vector pattern size %d - %d", lay.rows, entries);
        lay.pattern = true;
        lay.expected = entries;
    } else if (code[1] == 'A') {
        if (code[2] == 'C') {
            lay.dataType = LIN_COMP;
        } else if (code[2] != 'R' && code[2] != 'I') {
            return fail(comErrNull(handle,
                                   "No support data type in vec file read file='%s' type='%s'",
                                   fileName, text.get()));
        }
        if (!readSize(f, &lay.rows, &lay.cols, nullptr) || lay.rows < 0 || lay.cols < 0) {
            return fail(comErrNull(handle, "Size error in vec file read file='%s'", fileName));
        }
        if (lay.cols != 1) {
            comWarn(handle, "Col %d != 1 (use 1st only) in vec file read file='%s'", lay.cols,
                    fileName);
        }
        comTrace(handle, "Get vector size %d", lay.rows);
        lay.expected = static_cast<long>(lay.rows) * lay.cols;
    } else {
        return fail(comErrNull(handle, "No support type in vec file read file='%s' type='%s'",
                               fileName, text.get()));
    }

    VecOwner vec(handle, comLinVecCreateInit(handle, lay.dataType, lay.rows, ComComplex{0.0, 0.0}));
    if (!vec) {
        return fail(
            comErrNull(handle, "Vector data create error in vec file read file='%s'", fileName));
    }
    return readValues(handle, f, fileName, vec, lay);
}

int comFileVecWrite(KwilHandle* handle, const ComLinVec* vec, const char* fileName)
{
    FILE* f = fileName != nullptr ? fopen(fileName, "w") : nullptr;
    if (f == nullptr) return comErr(handle, "Open error in vec file read, write='%s'", fileName);
    const bool complex = vec->dataType == LIN_COMP;
    const MM_typecode code = {'M', 'A', complex ? 'C' : 'R', 'G'};
    mm_write_banner(f, code);
    mm_write_mtx_array_size(f, vec->size, 1);
    for (long i = 0; i < vec->size; ++i) {
        if (complex) {
            fprintf(f, "%.20e %.20e\n", vec->compData[2 * i], vec->compData[2 * i + 1]);
        } else {
            fprintf(f, "%.20e\n", vec->realData[i]);
        }
    }
    fclose(f);
    return 1;
}
