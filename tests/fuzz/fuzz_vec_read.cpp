// Fuzzes the vector file reader; a vector that reads is written and must read back equal.
#include <cstdint>

#include "file/file.h"
#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const std::string in = kwilfuzz::scratch("vec_in.mtx");
    static const std::string out = kwilfuzz::scratch("vec_out.mtx");
    KwilHandle* h = kwilfuzz::quietHandle();
    kwilfuzz::writeFile(in, data, size);
    ComLinVec* vec = comFileVecRead(h, in.c_str());
    if (vec == nullptr)
        return 0;
    if (comFileVecWrite(h, vec, out.c_str()) != 1)
        abort();
    ComLinVec* back = comFileVecRead(h, out.c_str());
    if (back == nullptr || back->size != vec->size || back->dataType != vec->dataType)
        abort();
    const long n = vec->dataType == LIN_REAL ? vec->size : 2L * vec->size;
    const double* a = vec->dataType == LIN_REAL ? vec->realData : vec->compData;
    const double* b = back->dataType == LIN_REAL ? back->realData : back->compData;
    for (long k = 0; k < n; ++k) {
        if (a[k] != b[k] && !(a[k] != a[k] && b[k] != b[k]))
            abort();
    }
    comLinVecDelete(h, back);
    comLinVecDelete(h, vec);
    return 0;
}
