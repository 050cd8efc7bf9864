// solvIMKL_PARDISO and PARDISO_Err: solutions, memory limit, phase traces, error texts.
#include "direct/direct.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <string>
#include <type_traits>

#include "direct/direct_support.h"
#include "support/support.h"

namespace {

using directtest::Cplx;
using directtest::Csr;
using directtest::Layer;

std::string format(const char* fmt, long a, long b = 0)
{
    char buf[256];
    snprintf(buf, sizeof buf, fmt, a, b);
    return buf;
}

// Figures of the phases as the layer reports them for m with the library's parameters.
struct Figures {
    int memory = 0, nonzero = 0, mflops = 0, pivots = -1, iterNum = -1;
};

template <class S> Figures figuresOf(Csr<S>& m, const std::vector<S>& b, int iter)
{
    Layer<S> l(m);
    l.iparm[7] = iter;
    std::vector<S> bc = b, x(m.n);
    Figures f;
    EXPECT_EQ(l.call(11), 0);
    f.memory = std::max(l.iparm[14], l.iparm[15] + l.iparm[16]);
    f.nonzero = l.iparm[17];
    f.mflops = l.iparm[18];
    EXPECT_EQ(l.call(22), 0);
    f.pivots = l.iparm[13];
    EXPECT_EQ(l.call(33, bc.data(), x.data()), 0);
    f.iterNum = l.iparm[6];
    return f;
}

template <class S> class DirectSolve : public testing::Test {
  protected:
    void SetUp() override
    {
        h = kwiltest::makeHandle(dir);
        ASSERT_NE(h, nullptr);
    }
    void TearDown() override { kwilTerm(h); }
    void opt(ComOptIntKey key, int value) { h->intOpt[key] = value; }

    // Solves m x = b through the handle's options; the output lines go to out and err.
    int solve(Csr<S>& m, std::vector<S>& b, std::vector<S>& x)
    {
        kwiltest::Capture c;
        const int r = solveUncaptured(m, b, x);
        c.take();
        out = c.outLines();
        err = c.errLines();
        return r;
    }
    int solveUncaptured(Csr<S>& m, std::vector<S>& b, std::vector<S>& x)
    {
        ComLinMat mat = m.mat();
        const int type = directtest::dataTypeOf<S>();
        const bool real = type == LIN_REAL;
        ComLinVec fix{m.n, type, real ? reinterpret_cast<double*>(b.data()) : nullptr,
                      real ? nullptr : reinterpret_cast<double*>(b.data())};
        ComLinVec var{m.n, type, real ? reinterpret_cast<double*>(x.data()) : nullptr,
                      real ? nullptr : reinterpret_cast<double*>(x.data())};
        return solvIMKL_PARDISO(h, &mat, &fix, &var);
    }

    kwiltest::TempDir dir;
    KwilHandle* h = nullptr;
    std::vector<std::string> out, err;
};

using Scalars = testing::Types<double, Cplx>;
TYPED_TEST_SUITE(DirectSolve, Scalars, directtest::ScalarNames);

TYPED_TEST(DirectSolve, SolvesSystemWithZeroDiagonalSilently)
{
    using S = TypeParam;
    Csr<S> m = directtest::saddlePoint<S>(14);
    const Csr<S> m0 = m;
    std::vector<S> b = directtest::rhs<S>(m.n), x(m.n, S{});
    const std::vector<S> b0 = b;
    const long live = comTestLiveAllocs();
    ASSERT_EQ(this->solve(m, b, x), 1);
    EXPECT_LT(directtest::relResidual(m, x, b), 1e-12);
    EXPECT_TRUE(this->out.empty());
    EXPECT_TRUE(this->err.empty());
    EXPECT_EQ(comTestLiveAllocs(), live);
    EXPECT_EQ(b, b0);
    EXPECT_EQ(m.ia, m0.ia);
    EXPECT_EQ(m.ja, m0.ja);
    EXPECT_EQ(m.a, m0.a);
}

TYPED_TEST(DirectSolve, MatrixTypeFollowsDataType)
{
    using S = TypeParam;
    Csr<S> m = directtest::saddlePoint<S>(10);
    std::vector<S> b = directtest::rhs<S>(m.n), x(m.n);
    this->opt(OPT_PARDISO_STAT, 1); // the solver's own statistics name the entry type
    ASSERT_EQ(this->solve(m, b, x), 1);
    const std::string want = directtest::dataTypeOf<S>() == LIN_REAL
                                 ? "    matrix entry defined as:          double"
                                 : "    matrix entry defined as:          double complex";
    EXPECT_NE(std::find(this->out.begin(), this->out.end(), want), this->out.end());
    EXPECT_LT(directtest::relResidual(m, x, b), 1e-12);
}

TYPED_TEST(DirectSolve, TracesFourLinesAfterTheStartLine)
{
    using S = TypeParam;
    Csr<S> m = directtest::saddlePoint<S>(12);
    std::vector<S> b = directtest::rhs<S>(m.n), x(m.n);
    for (const auto& [iter, pivot] : {std::pair<int, int>{2, 13}, {0, 8}}) {
        this->opt(OPT_PARDISO_ITER, iter);
        this->opt(OPT_PARDISO_PIVOT, pivot);
        this->opt(OPT_PARDISO_TRACE, 1);
        this->opt(OPT_TRACE, 1);
        const Figures f = figuresOf(m, b, iter);
        ASSERT_EQ(this->solve(m, b, x), 1);
        EXPECT_GT(f.memory, 0);
        EXPECT_GE(f.nonzero, m.nnz() - m.n / 4);
        EXPECT_LE(f.iterNum, iter);
        const std::vector<std::string> want = {
            format("KWILTRC: PARDISO iter %ld pivot %ld", iter, pivot),
            format("KWILTRC: PARDISO symbolic factorization end memory %ld KB", f.memory),
            format("KWILTRC:  - nonzero %ld MFLOPS %ld", f.nonzero, f.mflops),
            "KWILTRC: PARDISO numerical factorization end pivot 0",
            format("KWILTRC: PARDISO solution end iter num %ld", f.iterNum)};
        EXPECT_EQ(this->out, want);
        EXPECT_TRUE(this->err.empty());

        this->opt(OPT_TRACE, 0); // the phase traces are trace lines too
        ASSERT_EQ(this->solve(m, b, x), 1);
        EXPECT_TRUE(this->out.empty());

        this->opt(OPT_TRACE, 1);
        this->opt(OPT_PARDISO_TRACE, 0);
        ASSERT_EQ(this->solve(m, b, x), 1);
        EXPECT_EQ(this->out, std::vector<std::string>{want[0]});
        EXPECT_LT(directtest::relResidual(m, x, b), iter == 0 ? 1e-10 : 1e-12);
    }
}

TYPED_TEST(DirectSolve, MemoryLimitStopsBeforeTheFactorisation)
{
    using S = TypeParam;
    Csr<S> m = directtest::saddlePoint<S>(12);
    std::vector<S> b = directtest::rhs<S>(m.n);
    const S sentinel = directtest::scalar<S>(-3.5, 2.0);
    const int memory = figuresOf(m, b, 2).memory;
    const long live = comTestLiveAllocs();
    this->opt(OPT_PARDISO_TRACE, 1);
    this->opt(OPT_TRACE, 1);
    for (int lim : {1, memory - 1}) {
        this->opt(OPT_PARDISO_MEM_LIM, lim);
        std::vector<S> x(m.n, sentinel);
        EXPECT_EQ(this->solve(m, b, x), 0);
        EXPECT_EQ(this->err, std::vector<std::string>{format(
                                 "KWILERR: PARDISO too large memory error max %ld > lim %ld kb",
                                 memory, lim)});
        EXPECT_EQ(this->out, std::vector<std::string>{"KWILTRC: PARDISO iter 2 pivot 13"});
        EXPECT_EQ(x, std::vector<S>(m.n, sentinel));
        EXPECT_EQ(comTestLiveAllocs(), live);
    }
    for (int lim : {memory, 0, -1}) { // at the limit, and no limit
        this->opt(OPT_PARDISO_MEM_LIM, lim);
        std::vector<S> x(m.n);
        EXPECT_EQ(this->solve(m, b, x), 1) << lim;
        EXPECT_TRUE(this->err.empty());
        EXPECT_EQ(this->out.size(), 5u);
        EXPECT_LT(directtest::relResidual(m, x, b), 1e-12);
    }
}

TYPED_TEST(DirectSolve, SingularMatrixFailsInNumericalFactorization)
{
    using S = TypeParam;
    // Rows 0 and 1 are equal, row 2 apart: numerically singular. Entries of modulus 2 keep the
    // scaled rows, the pivots' reciprocals and the multipliers exact, so the second equal row is
    // reduced to exact zeros whatever the pivot order and the rounding of the BLAS kernels.
    const S v = std::is_same_v<S, double> ? S(2.0) : directtest::scalar<S>(0.0, 2.0);
    Csr<S> m = directtest::fromTriplets<S>(
        3, {{0, 0, v}, {0, 1, S(2)}, {1, 0, v}, {1, 1, S(2)}, {2, 2, S(4)}});
    std::vector<S> b(3, S(1)), x(3);
    const long live = comTestLiveAllocs();
    this->opt(OPT_PARDISO_TRACE, 1);
    this->opt(OPT_TRACE, 1);
    EXPECT_EQ(this->solve(m, b, x), 0);
    EXPECT_EQ(this->err,
              (std::vector<std::string>{
                  "KWILERR: PARDISO error in numerical factorization code -4",
                  "KWILERR: PARDISO error: zero pivot, numerical factorization or iterative "
                  "refinement problem"}));
    ASSERT_EQ(this->out.size(), 3u); // start, memory, non-zeros: no factorisation line
    EXPECT_EQ(this->out[2].rfind("KWILTRC:  - nonzero ", 0), 0u);
    EXPECT_EQ(comTestLiveAllocs(), live);
}

TYPED_TEST(DirectSolve, InconsistentMatrixFailsInSymbolicFactorization)
{
    using S = TypeParam;
    Csr<S> m = directtest::saddlePoint<S>(3);
    std::swap(m.ja[0], m.ja[1]); // columns of the first row out of order
    std::vector<S> b(m.n, S(1)), x(m.n);
    this->opt(OPT_PARDISO_TRACE, 1);
    this->opt(OPT_TRACE, 1);
    EXPECT_EQ(this->solve(m, b, x), 0);
    EXPECT_EQ(this->err,
              (std::vector<std::string>{"KWILERR: PARDISO error in symbolic factorization code -1",
                                        "KWILERR: PARDISO error: input inconsistent"}));
    EXPECT_EQ(this->out, std::vector<std::string>{"KWILTRC: PARDISO iter 2 pivot 13"});
}

TYPED_TEST(DirectSolve, OutOfMemoryIsReportedByPhase)
{
    using S = TypeParam;
    Csr<S> m = directtest::saddlePoint<S>(4);
    std::vector<S> b = directtest::rhs<S>(m.n), x(m.n);
    const long live = comTestLiveAllocs();
    // The first allocation is the analysis state, the fourth the solve workspace.
    for (const auto& [k, phase] :
         {std::pair<long, const char*>{1, "symbolic factorization"}, {4, "solution"}}) {
        comTestFailAlloc(k);
        EXPECT_EQ(this->solve(m, b, x), 0);
        comTestFailAlloc(0);
        EXPECT_EQ(this->err, (std::vector<std::string>{
                                 "KWILERR: Allocation error",
                                 std::string("KWILERR: PARDISO error in ") + phase + " code -2",
                                 "KWILERR: PARDISO error: not enough memory"}));
        EXPECT_EQ(comTestLiveAllocs(), live);
    }
    const long points = kwiltest::sweepAllocFailures([&] {
        return this->solveUncaptured(m, b, x) == 1 && directtest::relResidual(m, x, b) < 1e-12;
    });
    EXPECT_EQ(points, 5);
}

TEST(PardisoErr, WritesPhaseCodeAndTextOfEveryCode)
{
    const char* const texts[] = {
        "no error",
        "input inconsistent",
        "not enough memory",
        "reordering problem",
        "zero pivot, numerical factorization or iterative refinement problem",
        "unclassified (internal) error",
        "preordering failed (matrix types 11, 13 only)",
        "diagonal matrix problem",
        "32-bit integer overflow problem",
        "not enough memory for OOC",
        "problems with opening OOC temporary files",
        "read/write problems with the OOC data file",
    };
    std::vector<std::pair<int, std::string>> cases;
    for (int code = 0; code >= -11; --code)
        cases.emplace_back(code, texts[-code]);
    for (int code : {1, 2, -12, -100, INT_MAX, INT_MIN})
        cases.emplace_back(code, "unknown");
    for (const auto& [code, text] : cases) {
        kwiltest::Capture cap;
        EXPECT_EQ(PARDISO_Err(nullptr, "solution", code), 0);
        cap.take();
        EXPECT_EQ(cap.err(), "KWILERR: PARDISO error in solution code " + std::to_string(code) +
                                 "\nKWILERR: PARDISO error: " + text + "\n");
        EXPECT_EQ(cap.out(), "");
    }
}

} // namespace
