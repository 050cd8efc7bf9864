// ILU with threshold fill-in, held against the direct linked-list transcription.
#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdlib>
#include <random>

#include "ilu_test_util.h"
#include "precond/ilu_core.h"
#include "sweep_lines.h"

using kwiltest::Capture;
using namespace prectest;

namespace {

// The fast factorisation against its direct transcription.
void expectSameAsReference(KwilHandle* h, const ComLinMat& a, const std::string& what)
{
    prectest::expectSameAsReference(ILUFillIn, refILUFillIn, h, a, what);
}

Mat arrow(int n, bool complex)
{
    // First row and column full: elimination fills the whole matrix.
    std::vector<Entry> e;
    for (int i = 1; i <= n; ++i) {
        e.push_back({i, i, Cplx(n + 1.0, complex ? 0.5 : 0.0)});
        if (i > 1) {
            e.push_back({1, i, Cplx(1.0, complex ? -0.25 : 0.0)});
            e.push_back({i, 1, Cplx(0.5 + i * 0.01, 0.0)});
        }
    }
    return csr(n, e, complex);
}

} // namespace

TEST(IluFillIn, ThreeByThreeCreatesTwoFillIns)
{
    TestHandle th;
    th.intOpt[OPT_TRACE] = 1;
    Mat a = csr(
        3,
        {{1, 1, 4.0}, {1, 2, 1.0}, {1, 3, 1.0}, {2, 1, 1.0}, {2, 2, 4.0}, {3, 1, 1.0}, {3, 3, 4.0}},
        false);
    Factors f = factorise(ILUFillIn, th.get(), *a);
    ASSERT_EQ(f.ok, 1);
    EXPECT_EQ(f.out, (std::vector<std::string>{
                         "KWILTRC: ILU fill-in min abs 4.0000e-03 rel 1.0000e-03 accel 1.0000e+00",
                         "KWILTRC: ILU fill-in L 3 U 3 all 9 increase 2"}));
    const auto l = dense(*f.l), u = dense(*f.u);
    EXPECT_EQ(l[7], Cplx(-0.25));        // (3, 2)
    EXPECT_EQ(u[5], Cplx(-0.25 / 3.75)); // (2, 3), divided by the pivot 4 - 1/4
    EXPECT_EQ(l[4], Cplx(3.75));
    EXPECT_EQ(f.l->dataNum, 6);
    EXPECT_EQ(f.u->dataNum, 6);
    // With the complete pattern the factorisation is exact.
    EXPECT_LT(maxDiff(product(*f.l, *f.u), dense(*a)), 1e-14);
}

TEST(IluFillIn, ZeroThresholdIsTheCompleteLu)
{
    TestHandle th;
    th.dblOpt[OPT_ILU_FILLINMIN] = 0.0;
    th.intOpt[OPT_ILU_FILLIN] = 1;
    for (bool complex : {false, true}) {
        for (unsigned seed = 1; seed <= 6; ++seed) {
            Mat a = randomCsr(seed, 40, 0.08, 0.6, complex);
            Factors f = factorise(ILUFillIn, th.get(), *a);
            ASSERT_EQ(f.ok, 1);
            EXPECT_LT(maxDiff(product(*f.l, *f.u), dense(*a)), 1e-12) << seed;
            std::vector<Cplx> x(40), b(40);
            for (int i = 0; i < 40; ++i)
                x[i] = Cplx(std::sin(i + 1.0), complex ? std::cos(i) : 0.0);
            const auto d = dense(*a);
            for (int i = 0; i < 40; ++i) {
                for (int j = 0; j < 40; ++j)
                    b[i] += d[i * 40 + j] * x[j];
            }
            Vec bv = vec(b, complex), z = vec(std::vector<Cplx>(40), complex);
            ASSERT_EQ(comToolILUSolv(th.get(), a.get(), bv.get(), z.get()), 1);
            EXPECT_LT(maxDiff(values(*z), x), 1e-12) << seed;
        }
    }
}

TEST(IluFillIn, HugeThresholdReproducesIlu0BitForBit)
{
    TestHandle th;
    th.intOpt[OPT_TRACE] = 1;
    th.dblOpt[OPT_ILU_FILLINMIN] = 1e300;
    for (bool complex : {false, true}) {
        for (unsigned seed = 1; seed <= 5; ++seed) {
            th.dblOpt[OPT_ILU_ACCEL] = seed % 2 == 1 ? 1.0 : 1.25;
            Mat a = randomCsr(seed, 50, 0.1, 0.5, complex);
            Factors f = factorise(ILUFillIn, th.get(), *a);
            Factors g = factorise(ILU0, th.get(), *a);
            ASSERT_EQ(f.ok, 1);
            ASSERT_EQ(g.ok, 1);
            EXPECT_TRUE(sameBits(*f.l, *g.l)) << seed;
            EXPECT_TRUE(sameBits(*f.u, *g.u)) << seed;
            const std::string inc = " increase 0";
            const std::string& count = f.out.back();
            EXPECT_EQ(count.substr(count.size() - inc.size()), inc);
        }
    }
}

TEST(IluFillIn, ComplexWithZeroImaginaryPartsEqualsReal)
{
    TestHandle th;
    th.dblOpt[OPT_ILU_FILLINMIN] = 0.02;
    Mat a = randomCsr(3, 60, 0.08, 0.5, false);
    Mat c = toComplex(*a);
    Factors fr = factorise(ILUFillIn, th.get(), *a);
    Factors fc = factorise(ILUFillIn, th.get(), *c);
    ASSERT_EQ(fr.ok, 1);
    ASSERT_EQ(fc.ok, 1);
    EXPECT_GT(fr.l->dataNum + fr.u->dataNum, a->dataNum + 60); // some fill-in happened
    expectComplexMatchesReal(fr, fc);
}

TEST(IluFillIn, MissingDiagonalOrEmptyRowFails)
{
    TestHandle th;
    th.intOpt[OPT_TRACE] = 1;
    for (const auto& e : std::vector<std::vector<Entry>>{{{1, 1, 2.0}, {3, 3, 1.0}},
                                                         {{1, 1, 2.0}, {2, 1, 1.0}, {3, 3, 1.0}}}) {
        Mat a = csr(3, e, false);
        const long live = comTestLiveAllocs();
        Factors f = factorise(ILUFillIn, th.get(), *a);
        EXPECT_EQ(f.ok, 0);
        EXPECT_EQ(f.l, nullptr);
        EXPECT_EQ(f.out,
                  std::vector<std::string>{
                      "KWILTRC: ILU fill-in min abs 2.0000e-03 rel 1.0000e-03 accel 1.0000e+00"});
        EXPECT_EQ(f.err, std::vector<std::string>{"KWILERR: No diag error in ILU fill-in solver"});
        EXPECT_EQ(comTestLiveAllocs(), live);
    }
}

TEST(IluFillIn, RowTraceAndReplacementTrace)
{
    TestHandle th;
    th.intOpt[OPT_TRACE] = 1;
    th.intOpt[OPT_ILU_TRACE] = 2;
    Mat a = csr(3, {{1, 1, 1.0}, {1, 2, 1.0}, {2, 1, 1.0}, {2, 2, 1.0}, {3, 3, 1.0}}, false);
    Factors f = factorise(ILUFillIn, th.get(), *a);
    ASSERT_EQ(f.ok, 1);
    EXPECT_EQ(f.out, (std::vector<std::string>{
                         "KWILTRC: ILU fill-in min abs 1.0000e-03 rel 1.0000e-03 accel 1.0000e+00",
                         "KWILTRC: ILU fill-in row 0", "KWILTRC: ILU fill-in row 2",
                         "KWILTRC: ILU fill-in L 1 U 1 all 5 increase 0",
                         "KWILTRC: ILU fill-in rev diag zero 1 1.0000e-12"}));
}

TEST(IluFillIn, SmallUpdatesAreDroppedButAlwaysApplyToExistingEntries)
{
    TestHandle th;
    // Row 3 gets an update of 0.01 at column 2 (dropped at 0.05, kept at 0.001) while its stored
    // (3, 3) takes every update.
    Mat a =
        csr(3, {{1, 1, 10.0}, {1, 2, 1.0}, {1, 3, 1.0}, {2, 2, 10.0}, {3, 1, 0.1}, {3, 3, 10.0}},
            false);
    th.dblOpt[OPT_ILU_FILLINMIN] = 0.05; // tau = 0.5
    Factors f = factorise(ILUFillIn, th.get(), *a);
    ASSERT_EQ(f.ok, 1);
    EXPECT_EQ(f.l->dataNum, 4);
    EXPECT_EQ(dense(*f.l)[8], Cplx(10.0 - 1.0 * (0.1 / 10.0)));
    th.dblOpt[OPT_ILU_FILLINMIN] = 0.0005; // tau = 0.005: the update 1 * (0.1 / 10) stays
    Factors g = factorise(ILUFillIn, th.get(), *a);
    ASSERT_EQ(g.ok, 1);
    EXPECT_EQ(g.l->dataNum, 5);
    EXPECT_EQ(dense(*g.l)[7], Cplx(-(1.0 * (0.1 / 10.0))));
}

// The complex fill-in test compares squared magnitudes with a threshold made from tau: it must
// keep exactly the updates whose rounded magnitude reaches tau, also at the rounding boundary,
// for tiny, huge and degenerate tau.
TEST(IluFillIn, SquaredThresholdDecidesLikeTheMagnitude)
{
    using kwil::prec::mag;
    using kwil::prec::reaches;
    using kwil::prec::squaredThreshold;
    std::mt19937_64 gen(7);
    std::vector<double> taus = {0.0,   -1.0,    1.0,   DBL_MIN, 4.9e-324, 1e-300,      1e-160,
                                1e154, 1.4e154, 1e200, DBL_MAX, HUGE_VAL, std::nan("")};
    for (int t = 0; t < 2000; ++t)
        taus.push_back(
            std::ldexp(1.0 + (gen() % 1000000) / 1e6, static_cast<int>(gen() % 2000) - 1000));
    int checked = 0;
    for (const double tau : taus) {
        const double t2 = squaredThreshold(tau);
        // Squared magnitudes around tau^2 and t2, a few units apart, and the extremes.
        std::vector<double> xs = {0.0, HUGE_VAL, std::nan(""), DBL_MAX, 4.9e-324};
        for (double x0 : {t2, tau * tau}) {
            double lo = x0, hi = x0;
            for (int k = 0; k < 4; ++k) {
                lo = std::nextafter(lo, 0.0);
                hi = std::nextafter(hi, HUGE_VAL);
                xs.push_back(lo);
                xs.push_back(hi);
            }
            xs.push_back(x0);
        }
        for (const double x : xs) {
            if (!(x >= 0.0) && !std::isnan(x))
                continue;
            const bool byRoot = std::sqrt(x) >= tau;
            ASSERT_EQ(x >= t2, byRoot) << "tau " << tau << " x " << x << " t2 " << t2;
            // The same decision on a complex value with that squared magnitude, a + 0i.
            const Cplx a(std::sqrt(x), 0.0);
            ASSERT_EQ(reaches(a, t2), mag(a) >= tau) << "tau " << tau;
            ++checked;
        }
        // Values with both parts set, near the boundary.
        for (int k = 0; k < 8 && std::isfinite(tau) && tau > 0.0; ++k) {
            const double angle = (gen() % 1000) * 1.5707963 / 1000.0;
            const double r = tau * (1.0 + ((gen() % 9) - 4.0) * DBL_EPSILON);
            const Cplx a(r * std::cos(angle), r * std::sin(angle));
            ASSERT_EQ(reaches(a, t2), mag(a) >= tau) << "tau " << tau << " a " << a;
        }
    }
    EXPECT_GT(checked, 40000);
}

TEST(IluFillIn, MatchesTheReferenceOnRandomMatrices)
{
    TestHandle th;
    th.intOpt[OPT_TRACE] = 1;
    th.intOpt[OPT_ILU_TRACE] = 7;
    std::mt19937 gen(2024);
    const double thresholds[] = {0.0, 1e-4, 1e-3, 1e-2, 0.1, 0.5, 1e300};
    int cases = 0;
    for (int round = 0; round < 120; ++round) {
        const bool complex = round % 3 == 2;
        const int n = 1 + static_cast<int>(gen() % 70);
        const double density = 0.01 + (gen() % 100) / 400.0;
        const double dominance = (gen() % 4) * 0.3;
        Mat a = randomCsr(static_cast<unsigned>(gen()), n, density, dominance, complex);
        // Some integer-valued matrices, where cancellation to exact zeros happens.
        if (round % 5 == 0) {
            double* v = complex ? a->compData : a->realData;
            for (long p = 0; p < (complex ? 2L : 1L) * a->dataNum; ++p)
                v[p] = std::round(v[p] * 2.0);
        }
        th.dblOpt[OPT_ILU_FILLINMIN] = thresholds[gen() % 7];
        th.dblOpt[OPT_ILU_ACCEL] = round % 4 == 0 ? 1.1 : 1.0;
        expectSameAsReference(th.get(), *a, "round " + std::to_string(round));
        ++cases;
    }
    // Sparse rows over several words of the column set of lower columns, fill-ins kept far
    // above and close to the pivot in turn.
    for (int round = 0; round < 30; ++round) {
        const int n = 130 + static_cast<int>(gen() % 300);
        const double density = 0.004 + (gen() % 20) / 1000.0;
        Mat a = randomCsr(static_cast<unsigned>(gen()), n, density, 0.6, round % 3 == 2);
        th.dblOpt[OPT_ILU_FILLINMIN] = thresholds[gen() % 4];
        expectSameAsReference(th.get(), *a, "wide round " + std::to_string(round));
        ++cases;
    }
    // Wide rows with heavy fill and growth of the pool.
    for (int n : {30, 90}) {
        th.dblOpt[OPT_ILU_FILLINMIN] = 0.0;
        Mat a = arrow(n, n == 90);
        expectSameAsReference(th.get(), *a, "arrow");
        Mat c = convDiff2d(12, 30.0);
        th.dblOpt[OPT_ILU_FILLINMIN] = 1e-4;
        expectSameAsReference(th.get(), *c, "convection-diffusion");
        cases += 2;
    }
    EXPECT_EQ(cases, 154);
}

// Rows whose lower columns lie thousands of columns apart, in a matrix wider than 4096 columns:
// the next column to eliminate is found across empty stretches of the column set.
TEST(IluFillIn, MatchesTheReferenceWithFarApartColumns)
{
    TestHandle th;
    th.intOpt[OPT_TRACE] = 1;
    const int n = 13000;
    for (bool complex : {false, true}) {
        std::vector<Entry> e;
        for (int i = 0; i < n; ++i) {
            e.push_back({i + 1, i + 1, Cplx(8.0, complex ? 1.0 : 0.0)});
            for (int j : {i - 1, i / 3, i / 7, 2, i + 1, (2 * i) % n, (5 * i + 11) % n}) {
                if (j >= 0 && j < n && j != i)
                    e.push_back({i + 1, j + 1, Cplx(-0.5 - (i % 5) * 0.1, complex ? 0.2 : 0.0)});
            }
        }
        std::sort(e.begin(), e.end(), [](const Entry& x, const Entry& y) {
            return x.row != y.row ? x.row < y.row : x.col < y.col;
        });
        e.erase(std::unique(e.begin(), e.end(),
                            [](const Entry& x, const Entry& y) {
                                return x.row == y.row && x.col == y.col;
                            }),
                e.end());
        Mat a = csr(n, e, complex);
        for (double t : {0.3, 0.05}) {
            th.dblOpt[OPT_ILU_FILLINMIN] = t;
            expectSameAsReference(th.get(), *a, complex ? "complex" : "real");
        }
    }
}

TEST(IluFillIn, MatchesTheReferenceOnRealMatrices)
{
    const std::string dir = kwiltest::matrixDir();
    if (dir.empty())
        GTEST_SKIP() << "KWIL_MATRIX_DIR is not set";
    TestHandle th;
    th.intOpt[OPT_TRACE] = 1;
    int tried = 0, finiteCount = 0;
    for (const std::string& name : kwiltest::matrixFiles(dir)) {
        Mat a = readMatrixMarket(name, true);
        // The reference walks rows from their heads: keep it to moderate sizes.
        if (a == nullptr || a->size > 3000 || a->dataNum > 40000)
            continue;
        for (double t : {1e-2, 1e-3}) {
            th.dblOpt[OPT_ILU_FILLINMIN] = t;
            expectSameAsReference(th.get(), *a, name);
        }
        // Without fill-in the factors are those of ILU0, bit for bit, as long as every pivot
        // is usable (a zero one, as on a diagonal added above, makes infinite updates, which
        // reach any threshold) and the factors are finite (NaN bits depend on operand order).
        th.dblOpt[OPT_ILU_FILLINMIN] = 1e300;
        Factors f = factorise(ILUFillIn, th.get(), *a);
        Factors g = factorise(ILU0, th.get(), *a);
        ASSERT_EQ(f.ok, g.ok) << name;
        bool finite = g.ok == 1;
        for (const ComLinMat* m : {g.l.get(), g.u.get()}) {
            for (const Entry& x : finite ? entries(*m) : std::vector<Entry>()) {
                finite = finite && std::isfinite(x.v.real()) && std::isfinite(x.v.imag());
                if (m == g.l.get() && x.row == x.col)
                    finite = finite && x.v != Cplx(1e-12);
            }
        }
        if (finite) {
            ++finiteCount;
            EXPECT_TRUE(sameBits(*f.l, *g.l)) << name;
            EXPECT_TRUE(sameBits(*f.u, *g.u)) << name;
        }
        ++tried;
    }
    if (tried == 0)
        GTEST_SKIP() << "no matrix read from " << dir;
    EXPECT_GT(finiteCount, 10);
}

TEST(IluFillIn, TraceColDataListsTheColumns)
{
    TestHandle th;
    th.intOpt[OPT_TRACE] = 1;
    ILUFillInColData c3{7, 0.0, 0.0, nullptr}, c2{4, 0.0, 0.0, &c3}, c1{1, 0.0, 0.0, &c2};
    Capture cap;
    ILUFillInTraceColData(th.get(), &c1, 3, "List %s %d", "of", 5);
    ILUFillInTraceColData(th.get(), nullptr, 0, "Empty");
    th.intOpt[OPT_TRACE] = 0;
    ILUFillInTraceColData(th.get(), &c1, 3, "Hidden");
    cap.take();
    EXPECT_EQ(cap.out(), "KWILTRC: List of 5 row 3 col\n 1 4 7\nKWILTRC: Empty row 0 col\n\n");
}

TEST(IluFillIn, FreeColDataReleasesEveryNode)
{
    TestHandle th;
    const long live = comTestLiveAllocs();
    auto** rows = static_cast<ILUFillInColData**>(comAlloc(th.get(), 3 * sizeof(void*)));
    ASSERT_NE(rows, nullptr);
    rows[1] = nullptr;
    for (int i : {0, 2}) {
        rows[i] = nullptr;
        for (int c = 3; c >= 1; --c) {
            auto* node =
                static_cast<ILUFillInColData*>(comAlloc(th.get(), sizeof(ILUFillInColData)));
            *node = ILUFillInColData{c, 1.0, 0.0, rows[i]};
            rows[i] = node;
        }
    }
    EXPECT_EQ(comTestLiveAllocs(), live + 7);
    ILUFillInFreeColData(th.get(), rows, 3);
    EXPECT_EQ(comTestLiveAllocs(), live);
}

TEST(IluFillInAlloc, EveryFailureReleasesEverything)
{
    TestHandle th;
    th.dblOpt[OPT_ILU_FILLINMIN] = 0.0;
    const std::vector<std::string> lines = {"KWILERR: Alloc error in ILU fill-in solver",
                                            "KWILERR: Alloc matrix error in ILU fill-in solver",
                                            "KWILERR: Change mat type error in ILU fill-in solver"};
    for (bool complex : {false, true}) {
        Mat a = arrow(8, complex); // full fill: the pool grows
        const long points = sweepWithLines(
            [&] {
                ComLinMat* l = nullptr;
                ComLinMat* u = nullptr;
                const int ok = ILUFillIn(th.get(), a.get(), &l, &u);
                EXPECT_EQ(ok == 0, l == nullptr && u == nullptr);
                comLinMatDelete(th.get(), l);
                comLinMatDelete(th.get(), u);
                return ok == 1;
            },
            lines);
        EXPECT_GE(points, 12);
        // The reference's own failure paths (one allocation per node) are held to the same rule.
        sweepWithLines(
            [&] {
                ComLinMat* l = nullptr;
                ComLinMat* u = nullptr;
                const int ok = refILUFillIn(th.get(), a.get(), &l, &u);
                comLinMatDelete(th.get(), l);
                comLinMatDelete(th.get(), u);
                return ok == 1;
            },
            lines);
    }
}

TEST(IluFillInAlloc, OnlyFillInAllocatesAfterTheFirstTraceLine)
{
    // Without fill-in, everything the factorisation needs before the factors themselves is
    // allocated before the threshold line; the factors come after the count line.
    TestHandle th;
    th.intOpt[OPT_TRACE] = 1;
    th.intOpt[OPT_ILU_TRACE] = 5;
    th.dblOpt[OPT_ILU_FILLINMIN] = 1e300;
    for (bool complex : {false, true}) {
        Mat a = randomCsr(9, 12, 0.3, 1.0, complex);
        Factors f = factorise(ILUFillIn, th.get(), *a);
        ASSERT_EQ(f.ok, 1);
        ASSERT_EQ(f.out.size(), 5u);
        int workFailures = 0, matrixFailures = 0;
        for (long k = 1; k < 60; ++k) {
            comTestFailAlloc(k);
            Factors g = factorise(ILUFillIn, th.get(), *a);
            comTestFailAlloc(0);
            if (g.ok == 1)
                break;
            ASSERT_FALSE(g.err.empty());
            if (g.err.back() == "KWILERR: Alloc error in ILU fill-in solver") {
                EXPECT_TRUE(g.out.empty()) << k;
                ++workFailures;
            } else if (g.err.back() == "KWILERR: Alloc matrix error in ILU fill-in solver") {
                EXPECT_EQ(g.out, f.out) << k;
                ++matrixFailures;
            }
        }
        EXPECT_GE(workFailures, 9);
        EXPECT_GE(matrixFailures, 2);
    }
}
