// Vector arithmetic: axpy, the two-term update, scaling, dot products and the 2-norm over BLAS.
#include "lin/lin.h"

#include <cblas.h>
#include <omp.h>

#include <cmath>

namespace {

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

// Most threads a norm is split over; their parts live in an array of this length on the stack.
constexpr int MAX_NORM_THREADS = 256;

// The BLAS 2-norm of n entries, each of `width` doubles (1 real, 2 complex), split over the
// kernels' threads on long vectors: OpenBLAS computes a norm on one thread, at about a third of
// the speed of a dot product here. Each thread takes the BLAS norm of its own stretch, and the
// parts are folded with hypot in thread order, which overflows or underflows only where the norm
// does. A NaN in any part makes the norm NaN, as the BLAS norm of the whole vector would be.
template <class BlasNorm> double splitNorm(int n, int width, BlasNorm blasNorm)
{
    const long doubles = static_cast<long>(n) * width;
    int nt = doubles < LIN_MIN_THREADED_DOUBLES || omp_in_parallel() ? 1 : omp_get_max_threads();
    nt = nt > MAX_NORM_THREADS ? MAX_NORM_THREADS : nt;
    if (nt <= 1)
        return blasNorm(0, n);
    double part[MAX_NORM_THREADS];
    int parts = 1;
#pragma omp parallel num_threads(nt)
    {
        const long t = omp_get_thread_num(), count = omp_get_num_threads();
        // Stretches start on 64-byte lines where the vector does.
        const long align = width == 1 ? 8 : 4;
        const long begin = t == 0 ? 0 : (n * t / count) / align * align;
        const long end = t + 1 == count ? n : (n * (t + 1) / count) / align * align;
        part[t] = blasNorm(static_cast<int>(begin), static_cast<int>(end - begin));
        if (t == 0)
            parts = static_cast<int>(count);
    }
    double norm = part[0];
    bool nan = std::isnan(norm);
    for (int t = 1; t < parts; ++t) {
        nan = nan || std::isnan(part[t]);
        norm = std::hypot(norm, part[t]);
    }
    return nan ? std::nan("") : norm;
}

} // namespace

void comLinVecCalcVec(KwilHandle* handle, ComComplex a, const ComLinVec* x, ComLinVec* y)
{
    comAssert(handle, x->size == y->size, "Size unmatch in calculate vector vector");
    const int n = x->size;
    const ShortVectorOneThread threads(x);
    if (x->dataType == LIN_REAL) {
        cblas_daxpy(n, a.re, x->realData, 1, y->realData, 1);
    } else {
        cblas_zaxpy(n, &a, x->compData, 1, y->compData, 1);
    }
}

void comLinVecCalcVec2(KwilHandle* handle, ComComplex a, const ComLinVec* x, ComComplex b,
                       const ComLinVec* w, ComLinVec* y)
{
    comAssert(handle, y->size == x->size && y->size == w->size,
              "Size unmatch in calculate vector vector 2");
    const int n = x->size;
    const ShortVectorOneThread threads(x);
    // y += b w first, then y += a x: two passes in this order.
    if (x->dataType == LIN_REAL) {
        cblas_daxpy(n, b.re, w->realData, 1, y->realData, 1);
        cblas_daxpy(n, a.re, x->realData, 1, y->realData, 1);
    } else {
        cblas_zaxpy(n, &b, w->compData, 1, y->compData, 1);
        cblas_zaxpy(n, &a, x->compData, 1, y->compData, 1);
    }
}

void comLinVecCalcScal(KwilHandle*, ComComplex a, ComLinVec* x)
{
    const ShortVectorOneThread threads(x);
    if (x->dataType == LIN_REAL) {
        cblas_dscal(x->size, a.re, x->realData, 1);
    } else {
        cblas_zscal(x->size, &a, x->compData, 1);
    }
}

double comLinVecCalcDotReal(KwilHandle* handle, const ComLinVec* x, const ComLinVec* y)
{
    comAssert(handle, x->size == y->size, "Size unmatch in calculate vector dot real");
    comAssert(handle, x->dataType == LIN_REAL && y->dataType == LIN_REAL,
              "Invalid data type in calculate vector dot real");
    const ShortVectorOneThread threads(x);
    return cblas_ddot(x->size, x->realData, 1, y->realData, 1);
}

void comLinVecCalcDotCompConj(KwilHandle* handle, const ComLinVec* x, const ComLinVec* y,
                              ComComplex* result)
{
    comAssert(handle, x->size == y->size, "Size unmatch in calculate vector dot comp conj");
    comAssert(handle, x->dataType == LIN_COMP && y->dataType == LIN_COMP,
              "Invalid data type in calculate vector dot comp conj");
    const ShortVectorOneThread threads(x);
    cblas_zdotc_sub(x->size, x->compData, 1, y->compData, 1, result); // sum conj(x_i) y_i
}

void comLinVecCalcDotCompUnconj(KwilHandle* handle, const ComLinVec* x, const ComLinVec* y,
                                ComComplex* result)
{
    comAssert(handle, x->size == y->size, "Size unmatch in calculate vector dot comp unconj");
    comAssert(handle, x->dataType == LIN_COMP && y->dataType == LIN_COMP,
              "Invalid data type in calculate vector dot comp unconj");
    const ShortVectorOneThread threads(x);
    cblas_zdotu_sub(x->size, x->compData, 1, y->compData, 1, result); // sum x_i y_i
}

double comLinVecCalcNorm2(KwilHandle*, const ComLinVec* x)
{
    const ShortVectorOneThread threads(x);
    if (x->dataType == LIN_REAL) {
        const double* v = x->realData;
        return splitNorm(x->size, 1, [v](int begin, int count) {
            return cblas_dnrm2(count, v + begin, 1);
        });
    }
    const double* v = x->compData;
    return splitNorm(x->size, 2, [v](int begin, int count) {
        return cblas_dznrm2(count, v + 2L * begin, 1);
    });
}
