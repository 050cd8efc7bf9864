// Vector arithmetic: axpy, the two-term update, scaling, dot products and the 2-norm over BLAS.
//
// On long vectors each call is split over the kernels' threads: every thread makes the BLAS call
// on its own stretch of the vectors (inside the parallel region OpenBLAS runs on one thread), and
// the dots and norms fold the stretches' results in thread order. OpenBLAS splits the calls
// itself too, but computes a norm on one thread and, here, scales a vector on two threads more
// slowly than on one. The updates give the same bits either way, as they work entry by entry.
#include "lin/lin.h"

#include <cblas.h>
#include <omp.h>

#include <cmath>

namespace {

// Most threads a call is split over; the dots and norms keep one result a thread on the stack.
constexpr int MAX_STRETCHES = 256;

long doublesOf(const ComLinVec* x)
{
    return static_cast<long>(x->size) * (x->dataType == LIN_REAL ? 1 : 2);
}

// Holds the OpenMP thread count at one during a BLAS call on a short vector. OpenBLAS splits its
// level-1 calls from 10 000 entries on, well below LIN_MIN_THREADED_DOUBLES.
class ShortVectorOneThread {
  public:
    explicit ShortVectorOneThread(const ComLinVec* x)
        : previous_(doublesOf(x) < LIN_MIN_THREADED_DOUBLES ? omp_get_max_threads() : 0)
    {
        if (previous_ > 1)
            omp_set_num_threads(1);
    }
    ~ShortVectorOneThread()
    {
        if (previous_ > 1)
            omp_set_num_threads(previous_);
    }
    ShortVectorOneThread(const ShortVectorOneThread&) = delete;
    ShortVectorOneThread& operator=(const ShortVectorOneThread&) = delete;

  private:
    int previous_; // the count to restore; 0 or 1 when nothing was changed
};

// Calls call(t, begin, count) for the stretches of x's entries, one a thread on a long vector
// (they start on 64-byte lines where the vector does), the whole vector as stretch 0 on a short
// one. Returns the number of stretches.
template <class Call> int onStretches(const ComLinVec* x, Call call)
{
    const long n = x->size;
    int nt =
        doublesOf(x) < LIN_MIN_THREADED_DOUBLES || omp_in_parallel() ? 1 : omp_get_max_threads();
    nt = nt > MAX_STRETCHES ? MAX_STRETCHES : nt;
    if (nt <= 1) {
        const ShortVectorOneThread threads(x);
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

// Entry `begin` of a vector's values (complex entries are two doubles).
inline double* at(const ComLinVec* x, long begin)
{
    return x->dataType == LIN_REAL ? x->realData + begin : x->compData + 2 * begin;
}

// The sum of the stretches' complex dots, in thread order.
void sumParts(const ComComplex* part, int parts, ComComplex* result)
{
    ComComplex s = part[0];
    for (int t = 1; t < parts; ++t) {
        s.re += part[t].re;
        s.im += part[t].im;
    }
    *result = s;
}

} // namespace

void comLinVecCalcVec(KwilHandle* handle, ComComplex a, const ComLinVec* x, ComLinVec* y)
{
    comAssert(handle, x->size == y->size, "Size unmatch in calculate vector vector");
    const bool real = x->dataType == LIN_REAL;
    onStretches(x, [&](int, long begin, int count) {
        if (real) {
            cblas_daxpy(count, a.re, at(x, begin), 1, at(y, begin), 1);
        } else {
            cblas_zaxpy(count, &a, at(x, begin), 1, at(y, begin), 1);
        }
    });
}

void comLinVecCalcVec2(KwilHandle* handle, ComComplex a, const ComLinVec* x, ComComplex b,
                       const ComLinVec* w, ComLinVec* y)
{
    comAssert(handle, y->size == x->size && y->size == w->size,
              "Size unmatch in calculate vector vector 2");
    const bool real = x->dataType == LIN_REAL;
    // y += b w first, then y += a x: two passes in this order over each stretch.
    onStretches(x, [&](int, long begin, int count) {
        if (real) {
            cblas_daxpy(count, b.re, at(w, begin), 1, at(y, begin), 1);
            cblas_daxpy(count, a.re, at(x, begin), 1, at(y, begin), 1);
        } else {
            cblas_zaxpy(count, &b, at(w, begin), 1, at(y, begin), 1);
            cblas_zaxpy(count, &a, at(x, begin), 1, at(y, begin), 1);
        }
    });
}

void comLinVecCalcScal(KwilHandle*, ComComplex a, ComLinVec* x)
{
    const bool real = x->dataType == LIN_REAL;
    onStretches(x, [&](int, long begin, int count) {
        if (real) {
            cblas_dscal(count, a.re, at(x, begin), 1);
        } else {
            cblas_zscal(count, &a, at(x, begin), 1);
        }
    });
}

double comLinVecCalcDotReal(KwilHandle* handle, const ComLinVec* x, const ComLinVec* y)
{
    comAssert(handle, x->size == y->size, "Size unmatch in calculate vector dot real");
    comAssert(handle, x->dataType == LIN_REAL && y->dataType == LIN_REAL,
              "Invalid data type in calculate vector dot real");
    double part[MAX_STRETCHES];
    const int parts = onStretches(x, [&](int t, long begin, int count) {
        part[t] = cblas_ddot(count, at(x, begin), 1, at(y, begin), 1);
    });
    double s = part[0];
    for (int t = 1; t < parts; ++t)
        s += part[t];
    return s;
}

void comLinVecCalcDotCompConj(KwilHandle* handle, const ComLinVec* x, const ComLinVec* y,
                              ComComplex* result)
{
    comAssert(handle, x->size == y->size, "Size unmatch in calculate vector dot comp conj");
    comAssert(handle, x->dataType == LIN_COMP && y->dataType == LIN_COMP,
              "Invalid data type in calculate vector dot comp conj");
    ComComplex part[MAX_STRETCHES];
    const int parts = onStretches(x, [&](int t, long begin, int count) {
        cblas_zdotc_sub(count, at(x, begin), 1, at(y, begin), 1, &part[t]); // sum conj(x_i) y_i
    });
    sumParts(part, parts, result);
}

void comLinVecCalcDotCompUnconj(KwilHandle* handle, const ComLinVec* x, const ComLinVec* y,
                                ComComplex* result)
{
    comAssert(handle, x->size == y->size, "Size unmatch in calculate vector dot comp unconj");
    comAssert(handle, x->dataType == LIN_COMP && y->dataType == LIN_COMP,
              "Invalid data type in calculate vector dot comp unconj");
    ComComplex part[MAX_STRETCHES];
    const int parts = onStretches(x, [&](int t, long begin, int count) {
        cblas_zdotu_sub(count, at(x, begin), 1, at(y, begin), 1, &part[t]); // sum x_i y_i
    });
    sumParts(part, parts, result);
}

// The stretches' norms are folded with hypot, which overflows or underflows only where the norm
// itself does; a NaN in any stretch makes the norm NaN, as the BLAS norm of the whole vector is.
double comLinVecCalcNorm2(KwilHandle*, const ComLinVec* x)
{
    const bool real = x->dataType == LIN_REAL;
    double part[MAX_STRETCHES];
    const int parts = onStretches(x, [&](int t, long begin, int count) {
        part[t] = real ? cblas_dnrm2(count, at(x, begin), 1) : cblas_dznrm2(count, at(x, begin), 1);
    });
    double norm = part[0];
    bool nan = std::isnan(norm);
    for (int t = 1; t < parts; ++t) {
        nan = nan || std::isnan(part[t]);
        norm = std::hypot(norm, part[t]);
    }
    return nan ? std::nan("") : norm;
}
