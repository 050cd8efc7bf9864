// A STREAM-like triad a = b + s c, the benchmarks' measure of the machine's memory bandwidth.
// Its arrays come from the library's own allocator, so that they lie on the same pages as the
// matrices and vectors the kernels read: large blocks on 2 MiB pages. On 4 KiB pages the
// one-thread triad of 3 x 64 MiB ran at 25 to 27 GB/s on this machine's virtual cores, against 34
// to 35 on 2 MiB pages in the same minutes, and the kernels' ratios to it were that much too kind.
#pragma once

#include <omp.h>

#include <cstdio>
#include <cstdlib>

#include "common/own.h"

namespace bench {

class Triad {
  public:
    // Three arrays of n doubles, written once in parallel.
    explicit Triad(long n)
        : n_(n), a_(kwil::comAllocN<double>(nullptr, n)), b_(kwil::comAllocN<double>(nullptr, n)),
          c_(kwil::comAllocN<double>(nullptr, n))
    {
        if (a_ == nullptr || b_ == nullptr || c_ == nullptr) {
            fprintf(stderr, "triad: cannot allocate 3 x %ld doubles\n", n);
            exit(1);
        }
#pragma omp parallel for schedule(static)
        for (long i = 0; i < n; ++i) {
            a_[i] = 0.0;
            b_[i] = 1.0;
            c_[i] = 2.0;
        }
    }
    ~Triad()
    {
        comFree(nullptr, a_);
        comFree(nullptr, b_);
        comFree(nullptr, c_);
    }
    Triad(const Triad&) = delete;
    Triad& operator=(const Triad&) = delete;

    // One sweep a = b + s c on the current thread count; returns its time in seconds.
    double sweep(double s = 3.0)
    {
        double* a = a_;
        const double* b = b_;
        const double* c = c_;
        const long n = n_;
        const double t0 = omp_get_wtime();
#pragma omp parallel for schedule(static)
        for (long i = 0; i < n; ++i)
            a[i] = b[i] + s * c[i];
        const double t = omp_get_wtime() - t0;
        sink_ += a[n / 2];
        return t;
    }
    // Bytes a sweep is counted to move: 24 per element, as STREAM counts them.
    double bytes() const
    {
        return 24.0 * static_cast<double>(n_);
    }

  private:
    long n_;
    double* a_;
    double* b_;
    double* c_;
    volatile double sink_ = 0.0; // keeps the sweeps' results alive
};

} // namespace bench
