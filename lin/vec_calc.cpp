// Vector arithmetic: axpy, the two-term update, scaling and dot products over BLAS, the 2-norm by
// our own routine (platform/vector_norm.h: OpenBLAS's took seven times as long on a vector in the
// caches).
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

#include "lin/vec_stretches.h"
#include "platform/vector_norm.h"

namespace {

// Most threads a call is split over; the dots and norms keep one result a thread on the stack.
constexpr int MAX_STRETCHES = 256;

// Holds the OpenMP thread count at one while it lives, so that a BLAS call made on one stretch
// stays on this thread: OpenBLAS splits its level-1 calls from 10 000 entries on, well below
// LIN_MIN_THREADED_DOUBLES.
class OneThread {
  public:
    OneThread() : previous_(omp_get_max_threads())
    {
        if (previous_ > 1)
            omp_set_num_threads(1);
    }
    ~OneThread()
    {
        if (previous_ > 1)
            omp_set_num_threads(previous_);
    }
    OneThread(const OneThread&) = delete;
    OneThread& operator=(const OneThread&) = delete;

  private:
    int previous_; // the count to restore
};

// Calls call(t, begin, count) on the stretches of x (see linVecStretches) and returns their
// number; a vector worked on in one stretch is worked on by this thread alone, with the OpenMP
// thread count held at one around the call when it is a BLAS call.
template <bool CallsBlas = true, class Call> int onStretches(const ComLinVec* x, Call call)
{
    const int nt = linVecThreads(x);
    if (nt > 1)
        return linVecStretches(x, nt > MAX_STRETCHES ? MAX_STRETCHES : nt, call);
    if (!CallsBlas)
        return linVecStretches(x, 1, call);
    const OneThread alone;
    return linVecStretches(x, 1, call);
}

// x^T y or x^H y by the BLAS routine dot (zdotu_sub or zdotc_sub), the stretches' sums added in
// thread order.
void complexDot(const ComLinVec* x, const ComLinVec* y, decltype(&cblas_zdotu_sub) dot,
                ComComplex* result)
{
    ComComplex part[MAX_STRETCHES];
    const int parts = onStretches(x, [&](int t, long begin, int count) {
        dot(count, linVecAt(x, begin), 1, linVecAt(y, begin), 1, &part[t]);
    });
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
            cblas_daxpy(count, a.re, linVecAt(x, begin), 1, linVecAt(y, begin), 1);
        } else {
            cblas_zaxpy(count, &a, linVecAt(x, begin), 1, linVecAt(y, begin), 1);
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
            cblas_daxpy(count, b.re, linVecAt(w, begin), 1, linVecAt(y, begin), 1);
            cblas_daxpy(count, a.re, linVecAt(x, begin), 1, linVecAt(y, begin), 1);
        } else {
            cblas_zaxpy(count, &b, linVecAt(w, begin), 1, linVecAt(y, begin), 1);
            cblas_zaxpy(count, &a, linVecAt(x, begin), 1, linVecAt(y, begin), 1);
        }
    });
}

void comLinVecCalcScal(KwilHandle*, ComComplex a, ComLinVec* x)
{
    const bool real = x->dataType == LIN_REAL;
    onStretches(x, [&](int, long begin, int count) {
        if (real) {
            cblas_dscal(count, a.re, linVecAt(x, begin), 1);
        } else {
            cblas_zscal(count, &a, linVecAt(x, begin), 1);
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
        part[t] = cblas_ddot(count, linVecAt(x, begin), 1, linVecAt(y, begin), 1);
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
    complexDot(x, y, cblas_zdotc_sub, result); // sum conj(x_i) y_i
}

void comLinVecCalcDotCompUnconj(KwilHandle* handle, const ComLinVec* x, const ComLinVec* y,
                                ComComplex* result)
{
    comAssert(handle, x->size == y->size, "Size unmatch in calculate vector dot comp unconj");
    comAssert(handle, x->dataType == LIN_COMP && y->dataType == LIN_COMP,
              "Invalid data type in calculate vector dot comp unconj");
    complexDot(x, y, cblas_zdotu_sub, result); // sum x_i y_i
}

// The stretches' norms are folded with hypot, which overflows or underflows only where the norm
// itself does; a NaN in any stretch makes the norm NaN, as the norm of the whole vector is.
double comLinVecCalcNorm2(KwilHandle*, const ComLinVec* x)
{
    const bool real = x->dataType == LIN_REAL;
    double part[MAX_STRETCHES];
    const int parts = onStretches<false>(x, [&](int t, long begin, int count) { // no BLAS
        part[t] = real ? platform_dnrm2(count, linVecAt(x, begin))
                       : platform_dznrm2(
                             count, reinterpret_cast<const PlatformComplex16*>(linVecAt(x, begin)));
    });
    double norm = part[0];
    bool nan = std::isnan(norm);
    for (int t = 1; t < parts; ++t) {
        nan = nan || std::isnan(part[t]);
        norm = std::hypot(norm, part[t]);
    }
    return nan ? std::nan("") : norm;
}
