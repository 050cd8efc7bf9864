// The dense vector record: create, delete, copy, initialise, bounds checks, NaN test and trace.
#include "lin/lin.h"

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "common/own.h"
#include "lin/vec_stretches.h"

ComLinVec* comLinVecCreate(KwilHandle* handle, int dataType, int size)
{
    auto* vec = static_cast<ComLinVec*>(comAlloc(handle, sizeof(ComLinVec)));
    if (vec == nullptr) {
        return static_cast<ComLinVec*>(comErrNull(handle, "Allocation error in matrix create"));
    }
    *vec = ComLinVec{size, dataType, nullptr, nullptr};
    kwil::ComOwn<ComLinVec, comLinVecDelete> own(handle, vec);
    if (!linAllocValues(handle, dataType, size, &vec->realData, &vec->compData))
        return nullptr;
    return own.release();
}

void comLinVecDelete(KwilHandle* handle, ComLinVec* vec)
{
    if (vec == nullptr)
        return;
    comFree(handle, vec->realData);
    comFree(handle, vec->compData);
    comFree(handle, vec);
}

void comLinVecInit(KwilHandle*, ComLinVec* vec, ComComplex value)
{
    if (vec->dataType == LIN_REAL) {
        std::fill(vec->realData, vec->realData + vec->size, value.re);
    } else {
        for (long i = 0; i < vec->size; ++i) {
            vec->compData[2 * i] = value.re;
            vec->compData[2 * i + 1] = value.im;
        }
    }
}

ComLinVec* comLinVecCreateInit(KwilHandle* handle, int dataType, int size, ComComplex value)
{
    ComLinVec* vec = comLinVecCreate(handle, dataType, size);
    if (vec != nullptr)
        comLinVecInit(handle, vec, value);
    return vec;
}

ComLinVec* comLinVecCreateCompFromReal(KwilHandle* handle, const ComLinVec* vec)
{
    ComLinVec* comp = comLinVecCreate(handle, LIN_COMP, vec->size);
    if (comp == nullptr)
        return nullptr;
    if (vec->dataType == LIN_REAL) {
        for (long i = 0; i < vec->size; ++i) {
            comp->compData[2 * i] = vec->realData[i];
            comp->compData[2 * i + 1] = 0.0;
        }
    } else {
        std::copy(vec->compData, vec->compData + 2L * vec->size, comp->compData);
    }
    return comp;
}

void comLinVecsDelete(KwilHandle* handle, ComLinVec* v1, ComLinVec* v2, ComLinVec* v3,
                      ComLinVec* v4)
{
    comLinVecDelete(handle, v1);
    comLinVecDelete(handle, v2);
    comLinVecDelete(handle, v3);
    comLinVecDelete(handle, v4);
}

void comLinVecCopy(KwilHandle* handle, const ComLinVec* src, ComLinVec* dst)
{
    comAssert(handle, src->size == dst->size, "Size unmatch in copy vector");
    comAssert(handle, src->dataType == dst->dataType, "Data type unmatch in copy vector");
    // Long copies are split among the kernels' threads: a copy of a solver's work vector runs
    // at the speed of memory, which one core does not reach alone.
    const long width = src->dataType == LIN_REAL ? 1 : 2;
    linVecStretches(src, linVecThreads(src), [&](int, long begin, int count) {
        const double* from = linVecAt(src, begin);
        std::copy(from, from + width * count, linVecAt(dst, begin));
    });
}

int comLinVecParamCheckDispShift(KwilHandle* handle, const ComLinVec* vec, int pos, int showPos,
                                 const char* place)
{
    if (pos >= 0 && pos < vec->size)
        return 1;
    return comErr(handle, "Invalid pos %d in %s", showPos, place);
}

int comLinVecParamCheck(KwilHandle* handle, const ComLinVec* vec, int pos, const char* place)
{
    return comLinVecParamCheckDispShift(handle, vec, pos, pos, place);
}

namespace {

// NaN by its bit pattern: all exponent bits set and a non-zero mantissa (infinities are not NaN).
bool isNanBits(double v)
{
    uint64_t bits;
    memcpy(&bits, &v, sizeof bits);
    return (bits & 0x7ff0000000000000ULL) == 0x7ff0000000000000ULL &&
           (bits & 0x000fffffffffffffULL) != 0;
}

} // namespace

int comLinVecIsNan(KwilHandle*, const ComLinVec* vec)
{
    const double* v = vec->dataType == LIN_REAL ? vec->realData : vec->compData;
    const long n = vec->dataType == LIN_REAL ? vec->size : 2L * vec->size;
    for (long i = 0; i < n; ++i) {
        if (isNanBits(v[i]))
            return 1;
    }
    return 0;
}

void comLinVecTrace(KwilHandle* handle, const ComLinVec* vec, const char* format, ...)
{
    if (!comTraceOn(handle))
        return;
    va_list args;
    va_start(args, format);
    comTraceBegin(format, args);
    va_end(args);
    fputc('\n', stdout);
    for (long i = 0; i < vec->size; ++i) {
        if (vec->dataType == LIN_REAL) {
            printf(" %.4e", vec->realData[i]);
        } else {
            printf(" (%.4e %.4e)", vec->compData[2 * i], vec->compData[2 * i + 1]);
        }
    }
    fputc('\n', stdout);
}
