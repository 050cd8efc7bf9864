// Eigen peer: BiCGSTAB with IncompleteLUT, real or complex.
//   eigen_solve A.mtx b.mtx rtol droptol
// Prints one line: steps, factorisation time, solve time, time per step, true relative residual.
#include <Eigen/IterativeLinearSolvers>
#include <Eigen/Sparse>
#include <chrono>
#include <complex>
#include <cstdio>
#include <cstdlib>

#include "eigen_csr.h"

namespace {

double now()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

template <class S> int run(const BenchCsr& a, const double* bv, double rtol, double droptol)
{
    using Mat = Eigen::SparseMatrix<S, Eigen::RowMajor>;
    using Vec = Eigen::Matrix<S, Eigen::Dynamic, 1>;
    const Mat A = eigenMatrix<S>(a);
    Vec b(a.n);
    for (int i = 0; i < a.n; ++i) {
        if constexpr (std::is_same_v<S, double>) {
            b[i] = bv[i];
        } else {
            b[i] = S(bv[2 * i], bv[2 * i + 1]);
        }
    }
    Eigen::BiCGSTAB<Mat, Eigen::IncompleteLUT<S>> solver;
    solver.preconditioner().setDroptol(droptol);
    solver.setTolerance(rtol);
    solver.setMaxIterations(100000);
    const double t0 = now();
    solver.compute(A);
    const double t1 = now();
    Vec x = solver.solve(b);
    const double t2 = now();
    const double rel = (b - A * x).norm() / b.norm();
    const long steps = solver.iterations();
    printf("peer=eigen method=bicgstab+ilut steps=%ld factor=%.6f solve=%.6f per_step=%.6e "
           "relres=%.3e\n",
           steps, t1 - t0, t2 - t1, steps > 0 ? (t2 - t1) / steps : 0.0, rel);
    return solver.info() == Eigen::Success ? 0 : 3;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 5) {
        fprintf(stderr, "usage: eigen_solve A.mtx b.mtx rtol droptol\n");
        return 2;
    }
    BenchCsr a;
    if (!benchReadMatrix(argv[1], &a))
        return 1;
    double* b = benchReadVector(argv[2], a.n, a.isComplex);
    if (b == nullptr)
        return 1;
    const double rtol = atof(argv[3]), droptol = atof(argv[4]);
    return a.isComplex ? run<std::complex<double>>(a, b, rtol, droptol)
                       : run<double>(a, b, rtol, droptol);
}
