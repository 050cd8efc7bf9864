// Vector files: reading an array (first column) or coordinate pattern Matrix Market file into
// a vector, and writing a vector as an array file.
#include "file/file.h"

#include <sys/stat.h>

#include "common/own.h"
#include "file/line_scan.h"
#include "file/mmio.h"

namespace {

using VecOwner = kwil::ComOwn<ComLinVec, comLinVecDelete>;

const char* const place = "vec file read";

ComLinVec* fail(void* p)
{
    return static_cast<ComLinVec*>(p);
}

// What the header says about the data lines.
struct VecLayout {
    bool pattern;  // coordinate pattern: "row col" lines, 1.0 at the rows of column 1
    int dataType;  // LIN_REAL or LIN_COMP
    int rows;      // vector size
    int cols;      // declared columns; only the first is kept
    long expected; // number of data lines
};

// Reads the data lines into vec. 1, or 0 after the error lines. With store false nothing is
// stored, for a file too short to hold the lines it declares (its vector is not zeroed): the
// checks and the messages are the same, and the end is "Too few data" at the latest.
int readValues(KwilHandle* handle, FILE* f, const char* fileName, ComLinVec* vec,
               const VecLayout& lay, bool store)
{
    const bool fastOk = kwil::lineScanFastOk();
    char line[1024];
    long k = 0;
    int ij[2];
    double v[2];
    for (; getLine(f, line, sizeof line) != 0; ++k) {
        if (k >= lay.expected) {
            return comErr(handle, "Too much data in vec file read file='%s'", fileName);
        }
        if (lay.pattern) {
            if (!kwil::scanLine(line, 2, ij, 0, v, fastOk)) {
                dataFormatErr(handle, "pattern", place, fileName, line);
                return 0;
            }
            const int i = ij[0], j = ij[1];
            if (j == 1) {
                // Row i is entry i-1; a row below 1 is refused without forming i-1.
                if (!comLinVecParamCheckDispShift(handle, vec, i > 0 ? i - 1 : -1, i,
                                                  "vec file read file")) {
                    return comErr(handle, "Invalid pattern data in vec file read file='%s'",
                                  fileName);
                }
                if (store)
                    vec->realData[i - 1] = 1.0;
            } else if (j > lay.cols) {
                return comErr(handle, "Too large col %d in vec file read file='%s'", j, fileName);
            }
        } else if (k < lay.rows) {
            const bool comp = lay.dataType == LIN_COMP;
            if (!kwil::scanLine(line, 0, ij, comp ? 2 : 1, v, fastOk)) {
                dataFormatErr(handle, comp ? "comp" : "real", place, fileName, line);
                return 0;
            }
            if (store && comp) {
                vec->compData[2 * k] = v[0];
                vec->compData[2 * k + 1] = v[1];
            } else if (store) {
                vec->realData[k] = v[0];
            }
        }
        // Lines of further array columns are counted and not parsed.
    }
    if (k != lay.expected) {
        return comErr(handle, "Too few data in vec file read file='%s'", fileName);
    }
    return 1;
}

} // namespace

ComLinVec* comFileVecRead(KwilHandle* handle, const char* fileName)
{
    FILE* f = fileName != nullptr ? fopen(fileName, "r") : nullptr;
    if (f == nullptr)
        return fail(comErrNull(handle, "Open error in vec file read file='%s'", fileName));
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
        // Negative counts scan like any others: a negative size fails the vector's creation, a
        // negative number of lines the count of the data lines.
        if (!readSize(f, &lay.rows, &lay.cols, &entries)) {
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
        if (!readSize(f, &lay.rows, &lay.cols, nullptr)) {
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

    // Every data line holds a non-blank byte: a regular file with fewer bytes left than lines
    // declared cannot be read successfully. Its vector is still made, so that a size that
    // cannot be allocated is reported as such, but it is not filled: zeroing a huge vector
    // would touch all its memory only to check a file that must fail anyway.
    struct stat st;
    const long here = ftell(f);
    const bool shortFile = fstat(fileno(f), &st) == 0 && S_ISREG(st.st_mode) && here >= 0 &&
                           lay.expected > static_cast<long>(st.st_size) - here;
    VecOwner vec(handle, shortFile ? comLinVecCreate(handle, lay.dataType, lay.rows)
                                   : comLinVecCreateInit(handle, lay.dataType, lay.rows,
                                                         ComComplex{0.0, 0.0}));
    if (!vec) {
        return fail(
            comErrNull(handle, "Vector data create error in vec file read file='%s'", fileName));
    }
    if (shortFile) {
        if (!readValues(handle, f, fileName, vec.get(), lay, false))
            return nullptr;
        // The file has grown while it was read: read it again into a zeroed vector.
        comLinVecInit(handle, vec.get(), ComComplex{0.0, 0.0});
        if (fseek(f, here, SEEK_SET) != 0) {
            return fail(comErrNull(handle, "Too few data in vec file read file='%s'", fileName));
        }
    }
    if (!readValues(handle, f, fileName, vec.get(), lay, true))
        return nullptr;
    return vec.release();
}

int comFileVecWrite(KwilHandle* handle, const ComLinVec* vec, const char* fileName)
{
    FILE* f = fileName != nullptr ? fopen(fileName, "w") : nullptr;
    if (f == nullptr)
        return comErr(handle, "Open error in vec file read, write='%s'", fileName);
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
