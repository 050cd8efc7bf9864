// Eigen peer: IncompleteLUT factorisation time (Eigen's defaults besides the drop tolerance:
// fill factor 10, AMD ordering of A + A^T), real or complex.
//   eigen_ilut REPS A.mtx droptol...
// Per drop tolerance: one untimed factorisation, then REPS timed ones in thread CPU seconds.
// Freed memory stays in the process (glibc mallopt), as in kwil's table_ilu.
#include <Eigen/IterativeLinearSolvers>
#include <Eigen/Sparse>
#include <climits>
#include <complex>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <malloc.h>

#include "eigen_csr.h"

namespace {

double cpuSeconds()
{
    timespec ts;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return ts.tv_sec + 1e-9 * ts.tv_nsec;
}

// IncompleteLUT with its factor's entry count in reach.
template <class S> struct CountedILUT : Eigen::IncompleteLUT<S> {
    long entries() const { return static_cast<long>(this->m_lu.nonZeros()); }
};

template <class S> int run(const BenchCsr& a, int reps, int ntol, char** tols)
{
    using Mat = Eigen::SparseMatrix<S, Eigen::RowMajor>;
    const Mat A = eigenMatrix<S>(a);
    for (int k = 0; k < ntol; ++k) {
        const double droptol = atof(tols[k]);
        long entries = 0;
        auto once = [&]() {
            CountedILUT<S> ilu;
            ilu.setDroptol(droptol);
            const double t0 = cpuSeconds();
            ilu.compute(A);
            const double dt = cpuSeconds() - t0;
            entries = ilu.info() == Eigen::Success ? ilu.entries() : -1;
            return dt;
        };
        once();
        printf("peer=eigen method=ilut%s n=%d nnz=%d fill=%ld times=", tols[k], a.n, a.nnz,
               entries);
        for (int r = 0; r < reps; ++r)
            printf("%s%.6f", r ? "," : "", once());
        printf("\n");
        fflush(stdout);
    }
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 4) {
        fprintf(stderr, "usage: eigen_ilut REPS A.mtx droptol...\n");
        return 2;
    }
    mallopt(M_MMAP_MAX, 0);
    mallopt(M_TRIM_THRESHOLD, INT_MAX);
    const int reps = atoi(argv[1]) > 0 ? atoi(argv[1]) : 1;
    BenchCsr a;
    if (!benchReadMatrix(argv[2], &a))
        return 1;
    return a.isComplex ? run<std::complex<double>>(a, reps, argc - 3, argv + 3)
                       : run<double>(a, reps, argc - 3, argv + 3);
}
