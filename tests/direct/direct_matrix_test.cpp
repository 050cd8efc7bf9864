// The direct solve on real-world matrices from the folder named by KWIL_MATRIX_DIR (optional).
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "direct/direct.h"
#include "direct/direct_support.h"
#include "support/support.h"

namespace {

using directtest::Cplx;
using directtest::Csr;

struct Case {
    const char* file; // path below the matrix folder
    double tolerance; // bound on ||b - A x|| / ||b||
};

std::string matrixDir()
{
    const char* dir = getenv("KWIL_MATRIX_DIR");
    return dir != nullptr ? dir : "";
}

template <class S> void solveFile(const Case& c)
{
    SCOPED_TRACE(c.file);
    Csr<S> m;
    ASSERT_TRUE(directtest::readMatrixMarket(matrixDir() + "/" + c.file, m));
    // b = A (1, 2, ..., n)/n, so that the exact solution is known and not constant.
    std::vector<S> xs(m.n);
    for (int i = 0; i < m.n; ++i)
        xs[i] = directtest::scalar<S>((i + 1.0) / m.n, 0.5);
    std::vector<S> b = directtest::multiply(m, xs), x(m.n);
    kwiltest::TempDir dir;
    KwilHandle* h = kwiltest::makeHandle(dir);
    ASSERT_NE(h, nullptr);
    ComLinMat mat = m.mat();
    const int type = directtest::dataTypeOf<S>();
    const bool real = type == LIN_REAL;
    ComLinVec fix{m.n, type, real ? reinterpret_cast<double*>(b.data()) : nullptr,
                  real ? nullptr : reinterpret_cast<double*>(b.data())};
    ComLinVec var{m.n, type, real ? reinterpret_cast<double*>(x.data()) : nullptr,
                  real ? nullptr : reinterpret_cast<double*>(x.data())};
    EXPECT_EQ(solvIMKL_PARDISO(h, &mat, &fix, &var), 1);
    kwilTerm(h);
    EXPECT_LT(directtest::relResidual(m, x, b), c.tolerance);
}

class MatrixFiles : public testing::Test {
  protected:
    void SetUp() override
    {
        if (matrixDir().empty())
            GTEST_SKIP() << "KWIL_MATRIX_DIR not set";
    }
};

TEST_F(MatrixFiles, RealMatricesWithZeroDiagonalsAndPoorScaling)
{
    const Case cases[] = {
        {"real/west0479.mtx", 1e-12}, {"real/west0067.mtx", 1e-12}, {"real/impcol_a.mtx", 1e-12},
        {"real/lfat5b.mtx", 1e-12},   {"real/orsirr_1.mtx", 1e-12}, {"real/sherman4.mtx", 1e-12},
        {"real/sherman5.mtx", 1e-12}, {"real/fs_183_1.mtx", 1e-12}, {"real/mahindas.mtx", 1e-12},
        {"real/nnc1374.mtx", 1e-12},  {"real/hor_131.mtx", 1e-12},  {"real/bp_1200.mtx", 1e-12},
        {"real/rdb2048.mtx", 1e-12},  {"real/dw2048.mtx", 1e-12},   {"real/cryg2500.mtx", 1e-12},
        {"real/olm1000.mtx", 1e-12},
    };
    for (const Case& c : cases)
        solveFile<double>(c);
}

TEST_F(MatrixFiles, ComplexMatrices)
{
    const Case cases[] = {
        {"complex/w156.mtx", 1e-12},
        {"complex/ctina.mtx", 1e-12},
        {"complex/qc324.mtx", 1e-12},
        {"complex/mhd1280b.mtx", 1e-12},
    };
    for (const Case& c : cases)
        solveFile<Cplx>(c);
}

TEST_F(MatrixFiles, StructurallySingularMatricesFailWithZeroPivot)
{
    // dwg961a has structural rank below its order; GD99_cc likewise.
    for (const char* file : {"complex/dwg961a.mtx", "complex/GD99_cc.mtx"}) {
        SCOPED_TRACE(file);
        Csr<Cplx> m;
        ASSERT_TRUE(directtest::readMatrixMarket(matrixDir() + "/" + file, m));
        std::vector<Cplx> b = directtest::rhs<Cplx>(m.n), x(m.n);
        kwiltest::TempDir dir;
        KwilHandle* h = kwiltest::makeHandle(dir);
        ASSERT_NE(h, nullptr);
        ComLinMat mat = m.mat();
        ComLinVec fix{m.n, LIN_COMP, nullptr, reinterpret_cast<double*>(b.data())};
        ComLinVec var{m.n, LIN_COMP, nullptr, reinterpret_cast<double*>(x.data())};
        kwiltest::Capture cap;
        EXPECT_EQ(solvIMKL_PARDISO(h, &mat, &fix, &var), 0);
        cap.take();
        kwilTerm(h);
        EXPECT_EQ(cap.err(), "KWILERR: PARDISO error in numerical factorization code -4\n"
                             "KWILERR: PARDISO error: zero pivot, numerical factorization or "
                             "iterative refinement problem\n");
    }
}

} // namespace
