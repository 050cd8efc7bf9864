// How long vectors are split over the kernels' threads: the copy and the BLAS vector calls work
// on one stretch of the entries a thread.
#pragma once

#include <omp.h>

#include "lin/lin.h"

// Threads for work on x: one below LIN_MIN_THREADED_DOUBLES or inside a parallel region, else
// the kernels' thread count.
inline int linVecThreads(const ComLinVec* x)
{
    const long doubles = static_cast<long>(x->size) * (x->dataType == LIN_REAL ? 1 : 2);
    return doubles < LIN_MIN_THREADED_DOUBLES || omp_in_parallel() ? 1 : omp_get_max_threads();
}

// Entry `begin` of x's values (a complex entry is two doubles).
inline double* linVecAt(const ComLinVec* x, long begin)
{
    return x->dataType == LIN_REAL ? x->realData + begin : x->compData + 2 * begin;
}

// Calls call(t, begin, count) for x's entries split into stretches on nt threads, or for the
// whole vector as stretch 0 when nt is 1; returns the number of stretches. Stretches start on
// 64-byte lines where the vector does, and cover every entry once.
template <class Call> int linVecStretches(const ComLinVec* x, int nt, Call call)
{
    const long n = x->size;
    if (nt <= 1) {
        call(0, 0L, static_cast<int>(n));
        return 1;
    }
    int stretches = 1;
#pragma omp parallel num_threads(nt)
    {
        const long t = omp_get_thread_num(), count = omp_get_num_threads();
        const long align = x->dataType == LIN_REAL ? 8 : 4;
        const long begin = t == 0 ? 0 : (n * t / count) / align * align;
        const long end = t + 1 == count ? n : (n * (t + 1) / count) / align * align;
        call(static_cast<int>(t), begin, static_cast<int>(end - begin));
        if (t == 0)
            stretches = static_cast<int>(count);
    }
    return stretches;
}
