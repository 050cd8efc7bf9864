// Sparse kernels: CSR product and triangular solves against plain reference loops.
#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "lin_util.h"
#include "platform/sparse_blas.h"
#include "support/support.h"

using lintest::Cplx;
using lintest::MatPtr;
using lintest::VecPtr;

namespace {

// Sets the OpenMP thread count for one scope.
struct Threads {
    int old;
    explicit Threads(int n) : old(omp_get_max_threads()) { omp_set_num_threads(n); }
    ~Threads() { omp_set_num_threads(old); }
};

void setValues(ComLinVec* v, const std::vector<Cplx>& x)
{
    for (int i = 0; i < v->size; ++i) {
        if (v->dataType == LIN_REAL) {
            v->realData[i] = x[i].real();
        } else {
            v->compData[2 * i] = x[i].real();
            v->compData[2 * i + 1] = x[i].imag();
        }
    }
}

// alpha op(A) x + beta y by a plain loop over the entries, and the magnitude sum
// |alpha| sum |a||x| + |beta||y| of each result entry for the error bound.
std::vector<Cplx> refProduct(const ComLinMat* a, bool trans, Cplx alpha, const std::vector<Cplx>& x,
                             Cplx beta, const std::vector<Cplx>& y, std::vector<double>* mag)
{
    const int n = a->size;
    std::vector<Cplx> ax(n);
    mag->assign(n, 0.0);
    for (int i = 0; i < n; ++i) {
        for (int p = a->row[i] - 1; p < a->row[i + 1] - 1; ++p) {
            const int j = a->col[p] - 1;
            const Cplx v = lintest::valueAt(a, p);
            const int to = trans ? j : i;
            const int from = trans ? i : j;
            ax[to] += v * x[from];
            (*mag)[to] += std::abs(v) * std::abs(x[from]) * std::abs(alpha);
        }
    }
    std::vector<Cplx> out(n);
    for (int i = 0; i < n; ++i) {
        out[i] = alpha * ax[i] + (beta == Cplx(0.0) ? Cplx(0.0) : beta * y[i]);
        (*mag)[i] += std::abs(beta) * std::abs(y[i]);
    }
    return out;
}

// Dense solve of op(T) y = x, T a triangle of A with its stored diagonal.
std::vector<Cplx> refSolve(const ComLinMat* a, bool upper, bool trans, const std::vector<Cplx>& x)
{
    const int n = a->size;
    std::vector<std::vector<Cplx>> t(n, std::vector<Cplx>(n));
    for (int i = 0; i < n; ++i) {
        for (int p = a->row[i] - 1; p < a->row[i + 1] - 1; ++p) {
            const int j = a->col[p] - 1;
            if (upper ? j >= i : j <= i) {
                if (trans) {
                    t[j][i] = lintest::valueAt(a, p);
                } else {
                    t[i][j] = lintest::valueAt(a, p);
                }
            }
        }
    }
    const bool up = upper != trans; // op(T) is upper triangular
    std::vector<Cplx> y(n);
    for (int s = 0; s < n; ++s) {
        const int i = up ? n - 1 - s : s;
        Cplx r = x[i];
        for (int j = 0; j < n; ++j) {
            if (j != i)
                r -= t[i][j] * y[j];
        }
        y[i] = r / t[i][i];
    }
    return y;
}

void expectClose(const std::vector<Cplx>& got, const std::vector<Cplx>& want,
                 const std::vector<double>& mag, const char* what)
{
    ASSERT_EQ(got.size(), want.size());
    for (size_t i = 0; i < got.size(); ++i) {
        const double tol = 1e-14 * (mag[i] + 1.0) * 8;
        EXPECT_LE(std::abs(got[i] - want[i]), tol) << what << " entry " << i;
    }
}

// Row lengths 0, 1, 2, ... 40, again and again: empty rows included.
int cyclicLength(int i)
{
    return (i * 7) % 41;
}

struct Case {
    int dataType;
    int threads;
};

class Kernels : public testing::TestWithParam<Case> {};

} // namespace

INSTANTIATE_TEST_SUITE_P(TypesAndThreads, Kernels,
                         testing::Values(Case{LIN_REAL, 1}, Case{LIN_REAL, 2}, Case{LIN_COMP, 1},
                                         Case{LIN_COMP, 2}),
                         [](const testing::TestParamInfo<Case>& p) {
                             return std::string(p.param.dataType == LIN_REAL ? "Real" : "Comp") +
                                    std::to_string(p.param.threads);
                         });

TEST(KernelsSmall, TwoByTwoPlainTransposedAndResidual)
{
    for (int dt : {LIN_REAL, LIN_COMP}) {
        MatPtr a(lintest::makeCoo(dt, 2, {{1, 1, {2, 0}}, {1, 2, {1, 0}}, {2, 2, {3, 0}}}));
        ASSERT_EQ(comLinMatChangeType(nullptr, a.get(), MAT_CSR), 1);
        VecPtr x(comLinVecCreateInit(nullptr, dt, 2, {1, 0}));
        VecPtr y(comLinVecCreateInit(nullptr, dt, 2, {std::nan(""), 0}));
        comLinMatCalcVec(nullptr, {1, 0}, a.get(), 0, x.get(), {0, 0}, y.get());
        EXPECT_EQ(lintest::values(y.get()), (std::vector<Cplx>{3, 3}));
        comLinMatCalcVec(nullptr, {1, 0}, a.get(), 1, x.get(), {0, 0}, y.get());
        EXPECT_EQ(lintest::values(y.get()), (std::vector<Cplx>{2, 4}));
        // b - A x with b = (5, 1).
        setValues(y.get(), {5, 1});
        comLinMatCalcVec(nullptr, {-1, 0}, a.get(), 0, x.get(), {1, 0}, y.get());
        EXPECT_EQ(lintest::values(y.get()), (std::vector<Cplx>{2, -2}));
    }
}

TEST(KernelsSmall, ComplexTransposeIsNotConjugated)
{
    MatPtr a(lintest::makeCoo(LIN_COMP, 2, {{1, 2, {0, 1}}, {2, 1, {2, -1}}}));
    ASSERT_EQ(comLinMatChangeType(nullptr, a.get(), MAT_CSR), 1);
    VecPtr x(comLinVecCreateInit(nullptr, LIN_COMP, 2, {1, 0}));
    VecPtr y(comLinVecCreate(nullptr, LIN_COMP, 2));
    comLinMatCalcVec(nullptr, {1, 0}, a.get(), 1, x.get(), {0, 0}, y.get());
    EXPECT_EQ(lintest::values(y.get()), (std::vector<Cplx>{{2, -1}, {0, 1}}));
    comLinMatCalcVec(nullptr, {0, 1}, a.get(), 0, x.get(), {0, 0}, y.get());
    EXPECT_EQ(lintest::values(y.get()), (std::vector<Cplx>{{-1, 0}, {1, 2}}));
}

TEST(KernelsSmall, RealPathIgnoresImaginaryPartsOfScalars)
{
    MatPtr a(lintest::makeCoo(LIN_REAL, 1, {{1, 1, {2, 0}}}));
    ASSERT_EQ(comLinMatChangeType(nullptr, a.get(), MAT_CSR), 1);
    VecPtr x(comLinVecCreateInit(nullptr, LIN_REAL, 1, {3, 0}));
    VecPtr y(comLinVecCreateInit(nullptr, LIN_REAL, 1, {1, 0}));
    comLinMatCalcVec(nullptr, {1, 5}, a.get(), 0, x.get(), {2, 7}, y.get());
    EXPECT_EQ(y->realData[0], 8.0);
}

TEST(KernelsSmall, EmptyMatrixAndOrderZero)
{
    MatPtr a(lintest::makeCoo(LIN_REAL, 3, {}));
    ASSERT_EQ(comLinMatChangeType(nullptr, a.get(), MAT_CSR), 1);
    VecPtr x(comLinVecCreateInit(nullptr, LIN_REAL, 3, {1, 0}));
    VecPtr y(comLinVecCreateInit(nullptr, LIN_REAL, 3, {std::nan(""), 0}));
    for (int trans : {0, 1}) {
        comLinMatCalcVec(nullptr, {1, 0}, a.get(), trans, x.get(), {0, 0}, y.get());
        EXPECT_EQ(lintest::values(y.get()), (std::vector<Cplx>{0, 0, 0}));
    }
    MatPtr z(lintest::makeCoo(LIN_COMP, 0, {}));
    ASSERT_EQ(comLinMatChangeType(nullptr, z.get(), MAT_CSR), 1);
    VecPtr zx(comLinVecCreate(nullptr, LIN_COMP, 0));
    VecPtr zy(comLinVecCreate(nullptr, LIN_COMP, 0));
    comLinMatCalcVec(nullptr, {1, 0}, z.get(), 1, zx.get(), {1, 0}, zy.get());
    comLinMatTriSolv(nullptr, 1, z.get(), 1, zx.get(), zy.get());
    EXPECT_EQ(zy->size, 0);
}

TEST_P(Kernels, ProductMatchesTheReferenceLoop)
{
    const Case c = GetParam();
    Threads threads(c.threads);
    // A small matrix, one large enough to be split among threads, and one whose values and
    // columns (19 MB real) outgrow the last-level cache, which the product prefetches from
    // further ahead.
    for (int n : {45, 4001, 80000}) {
        MatPtr a(lintest::randomCsr(c.dataType, n, 100 + n, cyclicLength, false));
        VecPtr x(lintest::randomVec(c.dataType, n, 7));
        VecPtr y0(lintest::randomVec(c.dataType, n, 8));
        const auto xv = lintest::values(x.get());
        const auto yv = lintest::values(y0.get());
        const Cplx scalars[][2] = {{{1, 0}, {0, 0}}, {{-1, 0}, {1, 0}}, {{0.5, -2}, {-1.5, 0.25}}};
        for (int trans : {0, 1}) {
            for (const auto& s : scalars) {
                VecPtr y(lintest::randomVec(c.dataType, n, 8));
                if (s[1] == Cplx(0.0))
                    comLinVecInit(nullptr, y.get(), {std::nan(""), 0});
                comLinMatCalcVec(nullptr, {s[0].real(), s[0].imag()}, a.get(), trans, x.get(),
                                 {s[1].real(), s[1].imag()}, y.get());
                const Cplx al = c.dataType == LIN_REAL ? Cplx(s[0].real()) : s[0];
                const Cplx be = c.dataType == LIN_REAL ? Cplx(s[1].real()) : s[1];
                std::vector<double> mag;
                const auto want = refProduct(a.get(), trans != 0, al, xv, be, yv, &mag);
                expectClose(lintest::values(y.get()), want, mag, trans ? "transposed" : "plain");
                EXPECT_EQ(lintest::values(x.get()), xv);
            }
        }
    }
}

TEST_P(Kernels, TransposedProductOfABandedMatrixWithStrayEntries)
{
    // A band of half-width 3 puts only the rows near each block boundary outside the block; a
    // few far entries in the middle of the rows reach across blocks as well.
    const Case c = GetParam();
    Threads threads(c.threads);
    const int n = 10000; // enough entries for the product to use its threads
    std::vector<lintest::Entry> e;
    for (int i = 1; i <= n; ++i) {
        for (int j = std::max(1, i - 3); j <= std::min(n, i + 3); ++j) {
            e.push_back(
                {i,
                 j,
                 {1.0 + (i * 31 + j * 17) % 11, c.dataType == LIN_REAL ? 0.0 : 0.5 * (j % 5)}});
        }
        if (i % 1499 == 0)
            e.push_back({i, n + 1 - i, {-2.0, 1.0}});
    }
    MatPtr a(lintest::makeCoo(c.dataType, n, e));
    ASSERT_EQ(comLinMatChangeType(nullptr, a.get(), MAT_CSR), 1);
    VecPtr x(lintest::randomVec(c.dataType, n, 31));
    VecPtr y(lintest::randomVec(c.dataType, n, 32));
    const auto yv = lintest::values(y.get());
    comLinMatCalcVec(nullptr, {2, -1}, a.get(), 1, x.get(), {0.5, 0.5}, y.get());
    const Cplx al = c.dataType == LIN_REAL ? Cplx(2) : Cplx(2, -1);
    const Cplx be = c.dataType == LIN_REAL ? Cplx(0.5) : Cplx(0.5, 0.5);
    std::vector<double> mag;
    const auto want = refProduct(a.get(), true, al, lintest::values(x.get()), be, yv, &mag);
    expectClose(lintest::values(y.get()), want, mag, "banded transposed");
}

TEST_P(Kernels, TransposedProductZeroesTheColumnsNoRowReaches)
{
    // With beta 0, y must come out as the sums where rows reach and zero elsewhere, however y
    // started. Rows hold three columns in the first tenth (every third row none), the rows around
    // the middle also their diagonal, and every seventh row of the second half one column in
    // [0.6 n, 0.7 n). The middle rows reach across the boundary of two threads' blocks; rows of
    // the second half hold columns on both sides of it. The complex matrix and vectors (23 MB, and
    // 136 MB for two threads) are too large for the caches, so y is zeroed ahead of the rows there;
    // the real ones on two threads (76 MB) are large enough for streamed zeros.
    const Case c = GetParam();
    Threads threads(c.threads);
    const int n = c.threads > 1 ? 1800000 : 300000;
    std::vector<lintest::Entry> e;
    const Cplx v(1.0, c.dataType == LIN_REAL ? 0 : -0.5);
    for (int i = 1; i <= n; ++i) {
        for (int k = 0; k < 3 && i % 3 != 0; ++k)
            e.push_back({i, 1 + (i / 10 + 97 * k) % (n / 10), v + Cplx(k)});
        if (std::abs(i - n / 2) < n / 20)
            e.push_back({i, i, v});
        if (i > n / 2 && i % 7 == 0)
            e.push_back({i, 1 + 6 * (n / 10) + i % (n / 10), v});
    }
    MatPtr a(lintest::makeCoo(c.dataType, n, e));
    ASSERT_EQ(comLinMatChangeType(nullptr, a.get(), MAT_CSR), 1);
    VecPtr x(lintest::randomVec(c.dataType, n, 41));
    VecPtr y(comLinVecCreateInit(nullptr, c.dataType, n, {std::nan(""), std::nan("")}));
    comLinMatCalcVec(nullptr, {1, 0}, a.get(), 1, x.get(), {0, 0}, y.get());
    std::vector<double> mag;
    const auto want = refProduct(a.get(), true, Cplx(1), lintest::values(x.get()), Cplx(0),
                                 std::vector<Cplx>(n), &mag);
    const auto got = lintest::values(y.get());
    expectClose(got, want, mag, "transposed, beta 0");
    const auto zeros = [&](int from, int to) {
        return std::count(got.begin() + from, got.begin() + to, Cplx(0));
    };
    EXPECT_EQ(zeros(n / 10, n / 2 - n / 20), n / 2 - n / 20 - n / 10);
    EXPECT_EQ(zeros(7 * (n / 10), n), n - 7 * (n / 10));
}

TEST_P(Kernels, TriangularSolvesMatchTheDenseReference)
{
    const Case c = GetParam();
    Threads threads(c.threads);
    const int n = 300;
    // Both triangles are stored; the diagonal always is. A random pattern, and a band of
    // half-width 2 with gaps, whose neighbours of the diagonal take the register path.
    MatPtr random(lintest::randomCsr(c.dataType, n, 11, [](int i) { return 1 + i % 13; }));
    std::vector<lintest::Entry> band;
    for (int i = 1; i <= n; ++i) {
        for (int j = std::max(1, i - 2); j <= std::min(n, i + 2); ++j) {
            if (j != i && (i + 2 * j) % 7 == 0)
                continue;
            band.push_back({i,
                            j,
                            {j == i ? 4.0 : -1.0 + 0.1 * (i % 5),
                             c.dataType == LIN_REAL ? 0.0 : 0.3 * (j - i)}});
        }
    }
    MatPtr banded(lintest::makeCoo(c.dataType, n, band));
    ASSERT_EQ(comLinMatChangeType(nullptr, banded.get(), MAT_CSR), 1);
    VecPtr x(lintest::randomVec(c.dataType, n, 12));
    const auto xv = lintest::values(x.get());
    for (const ComLinMat* a : {random.get(), banded.get()})
        for (int upper : {0, 1}) {
            for (int trans : {0, 1}) {
                VecPtr y(comLinVecCreate(nullptr, c.dataType, n));
                comLinMatTriSolv(nullptr, upper, a, trans, x.get(), y.get());
                const auto want = refSolve(a, upper != 0, trans != 0, xv);
                const std::vector<double> mag(n, 1.0);
                expectClose(lintest::values(y.get()), want, mag, upper ? "upper" : "lower");
                EXPECT_EQ(lintest::values(x.get()), xv);
                // In place, the right-hand side overwritten by the solution, gives the same values.
                VecPtr z(comLinVecCreate(nullptr, c.dataType, n));
                comLinVecCopy(nullptr, x.get(), z.get());
                comLinMatTriSolv(nullptr, upper, a, trans, z.get(), z.get());
                EXPECT_EQ(lintest::values(z.get()), lintest::values(y.get()));
            }
        }
}

TEST_P(Kernels, SolveReadsOnlyTheSelectedTriangle)
{
    const Case c = GetParam();
    Threads threads(c.threads);
    const int n = 2000;
    MatPtr full(lintest::randomCsr(c.dataType, n, 21, [](int i) { return 1 + i % 9; }));
    VecPtr x(lintest::randomVec(c.dataType, n, 22));
    for (int upper : {0, 1}) {
        // The same matrix with the other triangle removed.
        std::vector<lintest::Entry> e;
        for (const auto& en : lintest::iterate(full.get())) {
            if (upper ? en.col >= en.row : en.col <= en.row)
                e.push_back(en);
        }
        MatPtr tri(lintest::makeCoo(c.dataType, n, e));
        ASSERT_EQ(comLinMatChangeType(nullptr, tri.get(), MAT_CSR), 1);
        // And the full matrix with NaN in every value of the other triangle: a value read from
        // there would spread into the solution.
        MatPtr poisoned(comLinMatCreate(nullptr, MAT_CSR, c.dataType, n, full->dataNum));
        comLinMatCopy(nullptr, full.get(), poisoned.get());
        double* data = c.dataType == LIN_REAL ? poisoned->realData : poisoned->compData;
        const int width = c.dataType == LIN_REAL ? 1 : 2;
        int poisonedNum = 0;
        for (int i = 1; i <= n; ++i) {
            for (int p = poisoned->row[i - 1] - 1; p < poisoned->row[i] - 1; ++p) {
                if (upper ? poisoned->col[p] < i : poisoned->col[p] > i) {
                    std::fill(data + width * p, data + width * (p + 1), std::nan(""));
                    ++poisonedNum;
                }
            }
        }
        ASSERT_GT(poisonedNum, n / 2);
        for (int trans : {0, 1}) {
            VecPtr y1(comLinVecCreate(nullptr, c.dataType, n));
            VecPtr y2(comLinVecCreate(nullptr, c.dataType, n));
            VecPtr y3(comLinVecCreate(nullptr, c.dataType, n));
            comLinMatTriSolv(nullptr, upper, poisoned.get(), trans, x.get(), y3.get());
            EXPECT_EQ(comLinVecIsNan(nullptr, y3.get()), 0);
            comLinMatTriSolv(nullptr, upper, full.get(), trans, x.get(), y1.get());
            comLinMatTriSolv(nullptr, upper, tri.get(), trans, x.get(), y2.get());
            EXPECT_EQ(lintest::values(y1.get()), lintest::values(y2.get()))
                << "upper " << upper << " trans " << trans;
            EXPECT_EQ(lintest::values(y3.get()), lintest::values(y2.get()))
                << "upper " << upper << " trans " << trans;
            // And T y reproduces x.
            VecPtr r(comLinVecCreate(nullptr, c.dataType, n));
            comLinVecCopy(nullptr, x.get(), r.get());
            comLinMatCalcVec(nullptr, {-1, 0}, tri.get(), trans, y2.get(), {1, 0}, r.get());
            EXPECT_LT(comLinVecCalcNorm2(nullptr, r.get()), 1e-12);
        }
    }
}

TEST(KernelsDeathTest, FormAndSizeAreContractChecks)
{
    MatPtr a(lintest::makeCoo(LIN_REAL, 2, {{1, 1, {1, 0}}}));
    VecPtr x2(comLinVecCreate(nullptr, LIN_REAL, 2));
    VecPtr x3(comLinVecCreate(nullptr, LIN_REAL, 3));
    const auto die = testing::ExitedWithCode(255);
    EXPECT_EXIT(comLinMatCalcVec(nullptr, {1, 0}, a.get(), 0, x2.get(), {0, 0}, x2.get()), die,
                "^KWILASR: Invalid type 0 in calculate matrix vector\n$");
    EXPECT_EXIT(comLinMatTriSolv(nullptr, 0, a.get(), 0, x2.get(), x2.get()), die,
                "^KWILASR: Invalid type 0 in triangle matrix solver\n$");
    ASSERT_EQ(comLinMatChangeType(nullptr, a.get(), MAT_SORTED), 1);
    EXPECT_EXIT(comLinMatCalcVec(nullptr, {1, 0}, a.get(), 1, x2.get(), {0, 0}, x2.get()), die,
                "^KWILASR: Invalid type 1 in calculate matrix vector\n$");
    EXPECT_EXIT(comLinMatTriSolv(nullptr, 1, a.get(), 1, x2.get(), x2.get()), die,
                "^KWILASR: Invalid type 1 in triangle matrix solver\n$");
    ASSERT_EQ(comLinMatChangeType(nullptr, a.get(), MAT_CSR), 1);
    EXPECT_EXIT(comLinMatCalcVec(nullptr, {1, 0}, a.get(), 0, x3.get(), {0, 0}, x2.get()), die,
                "^KWILASR: Size unmatch in calculate matrix vector\n$");
    EXPECT_EXIT(comLinMatCalcVec(nullptr, {1, 0}, a.get(), 0, x2.get(), {0, 0}, x3.get()), die,
                "^KWILASR: Size unmatch in calculate matrix vector\n$");
    EXPECT_EXIT(comLinMatTriSolv(nullptr, 0, a.get(), 0, x3.get(), x2.get()), die,
                "^KWILASR: Size unmatch in triangle matrix solver\n$");
    EXPECT_EXIT(comLinMatTriSolv(nullptr, 0, a.get(), 0, x2.get(), x3.get()), die,
                "^KWILASR: Size unmatch in triangle matrix solver\n$");
}

TEST(SparseBlasDeathTest, ArgumentsTheLibraryNeverPassesAreRejected)
{
    const int row[3] = {1, 2, 3};
    const int col[2] = {1, 2};
    const double val[2] = {1, 1};
    const double x[2] = {1, 1};
    double y[2] = {0, 0};
    const double one = 1.0;
    const int m = 2, k3 = 3;
    const auto die = testing::ExitedWithCode(255);
    EXPECT_EXIT(mkl_dcsrmv("c", &m, &m, &one, "g  f  ", val, col, row, row + 1, x, &one, y), die,
                "^KWILASR: Unsupported operation 'c' in sparse matrix vector product\n$");
    EXPECT_EXIT(mkl_dcsrmv("n", &m, &m, &one, "s  f  ", val, col, row, row + 1, x, &one, y), die,
                "^KWILASR: Unsupported descriptor \"s  f  \" in sparse matrix vector product\n$");
    EXPECT_EXIT(mkl_dcsrmv("n", &m, &m, &one, "g  c  ", val, col, row, row + 1, x, &one, y), die,
                "^KWILASR: Unsupported descriptor \"g  c  \" in sparse matrix vector product\n$");
    EXPECT_EXIT(mkl_dcsrmv("t", &m, &k3, &one, "g  f  ", val, col, row, row + 1, x, &one, y), die,
                "^KWILASR: Unsupported shape 2 x 3 in sparse matrix vector product\n$");
    EXPECT_EXIT(mkl_dcsrmv("n", &m, &m, &one, "g  f  ", val, col, row, row + 2, x, &one, y), die,
                "^KWILASR: Unsupported row end array in sparse matrix vector product\n$");
    const PlatformComplex16 zv[2] = {{1, 0}, {1, 0}};
    PlatformComplex16 zy[2] = {};
    EXPECT_EXIT(mkl_zcsrmv("C", &m, &m, zv, "G  F  ", zv, col, row, row + 1, zv, zv, zy), die,
                "^KWILASR: Unsupported operation 'C' in sparse matrix vector product\n$");
    EXPECT_EXIT(mkl_dcsrtrsv("l", "n", "u", &m, val, row, col, x, y), die,
                "^KWILASR: Unsupported diagonal 'u' in sparse triangle solver\n$");
    EXPECT_EXIT(mkl_dcsrtrsv("x", "n", "n", &m, val, row, col, x, y), die,
                "^KWILASR: Unsupported triangle 'x' in sparse triangle solver\n$");
    EXPECT_EXIT(mkl_zcsrtrsv("U", "c", "n", &m, zv, row, col, zv, zy), die,
                "^KWILASR: Unsupported operation 'c' in sparse triangle solver\n$");
    // Upper-case characters are the same requests as lower-case ones.
    mkl_dcsrmv("T", &m, &m, &one, "G  F  ", val, col, row, row + 1, x, &one, y);
    EXPECT_EQ(y[0], 1.0);
    EXPECT_EQ(y[1], 1.0);
    mkl_dcsrtrsv("U", "N", "N", &m, val, row, col, x, y);
    EXPECT_EQ(y[0], 1.0);
}
