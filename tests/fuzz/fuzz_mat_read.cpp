// Fuzzes the matrix file reader; a matrix that reads is written and must read back equal.
#include <cstdint>
#include <cstring>

#include "file/file.h"
#include "fuzz_support.h"

namespace {

bool same(const ComLinMat* a, const ComLinMat* b)
{
    if (a->type != b->type || a->size != b->size || a->dataNum != b->dataNum ||
        a->dataType != b->dataType) {
        return false;
    }
    const size_t n = static_cast<size_t>(a->dataNum);
    const size_t nv = a->dataType == LIN_REAL ? n : 2 * n;
    const double* va = a->dataType == LIN_REAL ? a->realData : a->compData;
    const double* vb = b->dataType == LIN_REAL ? b->realData : b->compData;
    for (size_t k = 0; k < nv; ++k) {
        // "%.20e" keeps every finite value and infinity; a NaN reads back as some NaN.
        if (va[k] != vb[k] && !(va[k] != va[k] && vb[k] != vb[k]))
            return false;
    }
    return memcmp(a->row, b->row, n * sizeof(int)) == 0 &&
           memcmp(a->col, b->col, n * sizeof(int)) == 0;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const std::string in = kwilfuzz::scratch("mat_in.mtx");
    static const std::string out = kwilfuzz::scratch("mat_out.mtx");
    KwilHandle* h = kwilfuzz::quietHandle();
    kwilfuzz::writeFile(in, data, size);
    ComLinMat* mat = comFileMatRead(h, in.c_str());
    if (mat == nullptr)
        return 0;
    if (comFileMatWrite(h, mat, out.c_str()) != 1)
        abort();
    ComLinMat* back = comFileMatRead(h, out.c_str());
    if (back == nullptr || !same(mat, back))
        abort();
    comLinMatDelete(h, back);
    comLinMatDelete(h, mat);
    return 0;
}
