// ILU(0), the ILU entry point and one application of the factors.
#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdlib>
#include <random>

#include "ilu_test_util.h"
#include "sweep_lines.h"

using kwiltest::Capture;
using namespace prectest;

namespace {

Mat tridiagonal(int n, bool complex)
{
    std::vector<Entry> e;
    for (int i = 1; i <= n; ++i) {
        const double t = 0.1 * i;
        e.push_back({i, i, Cplx(4.0 + t, complex ? 1.0 - t : 0.0)});
        if (i > 1)
            e.push_back({i, i - 1, Cplx(-1.0 - 0.02 * i, complex ? 0.5 : 0.0)});
        if (i < n)
            e.push_back({i, i + 1, Cplx(-1.5 - 0.01 * i, complex ? -t : 0.0)});
    }
    return csr(n, e, complex);
}

// x_i = 1 + i / n (+ i/2 imaginary), b = A x computed densely.
void exactPair(const ComLinMat& a, std::vector<Cplx>& x, std::vector<Cplx>& b)
{
    const int n = a.size;
    const bool complex = a.dataType == LIN_COMP;
    x.assign(n, 0.0);
    b.assign(n, 0.0);
    for (int i = 0; i < n; ++i)
        x[i] = Cplx(1.0 + double(i) / n, complex ? 0.5 * i / n : 0.0);
    const auto d = dense(a);
    for (int i = 0; i < n; ++i) {
        for (int j = 0; j < n; ++j)
            b[i] += d[static_cast<size_t>(i) * n + j] * x[j];
    }
}

// The fast factorisation against its direct transcription.
void expectSameAsReference(KwilHandle* h, const ComLinMat& a, const std::string& what)
{
    prectest::expectSameAsReference(ILU0, refILU0, h, a, what);
}

} // namespace

TEST(Ilu0, DiagonalMatrixGivesTheDiagonalAndTheIdentity)
{
    TestHandle th;
    th.intOpt[OPT_TRACE] = 1;
    for (double accel : {1.0, 2.0}) {
        th.dblOpt[OPT_ILU_ACCEL] = accel;
        Mat a = csr(3, {{1, 1, 2.0}, {2, 2, -3.0}, {3, 3, 0.5}}, false);
        Factors f = factorise(ILU0, th.get(), *a);
        ASSERT_EQ(f.ok, 1);
        EXPECT_EQ(f.err.size(), 0u);
        const std::vector<std::string> want = {accel == 1.0 ? "KWILTRC: ILU 0 accel 1.0000e+00"
                                                            : "KWILTRC: ILU 0 accel 2.0000e+00",
                                               "KWILTRC: ILU 0 L 0 U 0 All 3"};
        EXPECT_EQ(f.out, want);
        EXPECT_EQ(f.l->type, MAT_CSR);
        EXPECT_EQ(f.u->type, MAT_CSR);
        EXPECT_EQ(f.l->dataNum, 3);
        EXPECT_EQ(f.u->dataNum, 3);
        EXPECT_EQ(dense(*f.l),
                  (std::vector<Cplx>{2.0 * accel, 0, 0, 0, -3.0 * accel, 0, 0, 0, 0.5 * accel}));
        EXPECT_EQ(dense(*f.u), (std::vector<Cplx>{1, 0, 0, 0, 1, 0, 0, 0, 1}));
    }
}

TEST(Ilu0, SizeOne)
{
    TestHandle th;
    th.dblOpt[OPT_ILU_ACCEL] = 1.5;
    Mat a = csr(1, {{1, 1, Cplx(2.0, -4.0)}}, true);
    Factors f = factorise(ILU0, th.get(), *a);
    ASSERT_EQ(f.ok, 1);
    EXPECT_EQ(dense(*f.l), std::vector<Cplx>{Cplx(3.0, -6.0)});
    EXPECT_EQ(dense(*f.u), std::vector<Cplx>{Cplx(1.0, 0.0)});
}

TEST(Ilu0, TridiagonalReproducesAAndTheSolveInvertsIt)
{
    TestHandle th;
    for (bool complex : {false, true}) {
        Mat a = tridiagonal(30, complex);
        Mat a0 = tridiagonal(30, complex);
        Factors f = factorise(comToolILU, th.get(), *a);
        ASSERT_EQ(f.ok, 1);
        EXPECT_TRUE(sameBits(*a, *a0)); // the input is not touched
        EXPECT_EQ(f.l->dataNum, 30 + 29);
        EXPECT_EQ(f.u->dataNum, 30 + 29);
        for (const Entry& e : entries(*f.u)) {
            if (e.row == e.col) {
                EXPECT_EQ(e.v, Cplx(1.0));
            }
        }
        EXPECT_LT(maxDiff(product(*f.l, *f.u), dense(*a)), 1e-14);

        std::vector<Cplx> x, b;
        exactPair(*a, x, b);
        Vec bv = vec(b, complex), z = vec(std::vector<Cplx>(30), complex);
        ASSERT_EQ(comToolILUSolv(th.get(), a.get(), bv.get(), z.get()), 1);
        EXPECT_LT(maxDiff(values(*z), x), 1e-13);
    }
}

TEST(Ilu0, RandomMatrixMatchesAOnItsPattern)
{
    TestHandle th;
    for (bool complex : {false, true}) {
        Mat a = randomCsr(11, 60, 0.1, 1.0, complex);
        Factors f = factorise(ILU0, th.get(), *a);
        ASSERT_EQ(f.ok, 1);
        // (L U)_ij = a_ij wherever A stores (i, j); the difference lives outside the pattern.
        const auto lu = product(*f.l, *f.u);
        for (const Entry& e : entries(*a)) {
            const Cplx d = lu[static_cast<size_t>(e.row - 1) * 60 + e.col - 1] - e.v;
            EXPECT_LT(std::abs(d), 1e-13) << e.row << " " << e.col;
        }
        // L and U keep A's lower and upper patterns.
        size_t lower = 0, upper = 0;
        for (const Entry& e : entries(*a))
            (e.col < e.row ? lower : e.col > e.row ? upper : lower) += 1;
        EXPECT_EQ(static_cast<size_t>(f.l->dataNum), lower);
        EXPECT_EQ(static_cast<size_t>(f.u->dataNum), upper + 60);
    }
}

TEST(Ilu0, ComplexWithZeroImaginaryPartsEqualsReal)
{
    TestHandle th;
    Mat a = randomCsr(5, 50, 0.15, 1.0, false);
    Mat c = toComplex(*a);
    Factors fr = factorise(ILU0, th.get(), *a);
    Factors fc = factorise(ILU0, th.get(), *c);
    ASSERT_EQ(fr.ok, 1);
    ASSERT_EQ(fc.ok, 1);
    EXPECT_EQ(fr.out, fc.out);
    expectComplexMatchesReal(fr, fc);
}

TEST(Ilu0, MissingDiagonalOrEmptyRowFails)
{
    TestHandle th;
    const std::vector<std::vector<Entry>> cases = {
        {{1, 1, 1.0}, {2, 1, 1.0}, {3, 3, 1.0}}, // row 2 without its diagonal
        {{1, 1, 1.0}, {3, 3, 1.0}},              // row 2 empty
        {{1, 1, 1.0}, {2, 2, 1.0}},              // last row empty
    };
    for (bool complex : {false, true}) {
        for (const auto& e : cases) {
            Mat a = csr(3, e, complex);
            const long live = comTestLiveAllocs();
            Factors f = factorise(ILU0, th.get(), *a);
            EXPECT_EQ(f.ok, 0);
            EXPECT_EQ(f.l, nullptr);
            EXPECT_EQ(f.u, nullptr);
            EXPECT_EQ(f.err, std::vector<std::string>{"KWILERR: No diag error in ILU 0 solver"});
            EXPECT_EQ(comTestLiveAllocs(), live);
        }
    }
}

TEST(Ilu0, VanishingFactorEntriesAreReplacedAndCounted)
{
    TestHandle th;
    th.intOpt[OPT_TRACE] = 1;
    // A pivot that cancels: [[1, 1], [1, 1]].
    Mat a = csr(2, {{1, 1, 1.0}, {1, 2, 1.0}, {2, 1, 1.0}, {2, 2, 1.0}}, false);
    Factors f = factorise(ILU0, th.get(), *a);
    ASSERT_EQ(f.ok, 1);
    EXPECT_EQ(f.out.back(), "KWILTRC: ILU 0 rev diag zero 1 1.0000e-12");
    EXPECT_EQ(dense(*f.l), (std::vector<Cplx>{1.0, 0.0, 1.0, 1e-12}));
    EXPECT_EQ(dense(*f.u), (std::vector<Cplx>{1.0, 1.0, 0.0, 1.0}));

    // An off-diagonal entry that cancels, with another replacement value.
    th.dblOpt[OPT_ILU_REV_DIAGZERO_VAL] = 0.5;
    Mat b = csr(3, {{1, 1, 2.0}, {1, 3, 1.0}, {2, 1, 2.0}, {2, 2, 3.0}, {2, 3, 1.0}, {3, 3, 1.0}},
                false);
    Factors g = factorise(ILU0, th.get(), *b);
    ASSERT_EQ(g.ok, 1);
    EXPECT_EQ(g.out.back(), "KWILTRC: ILU 0 rev diag zero 1 5.0000e-01");
    EXPECT_EQ(dense(*g.u)[5], Cplx(0.5 / 3.0));

    // Nothing replaced, no line.
    Mat c = csr(2, {{1, 1, 2.0}, {1, 2, 1.0}, {2, 1, 1.0}, {2, 2, 1.0}}, false);
    Factors h = factorise(ILU0, th.get(), *c);
    ASSERT_EQ(h.ok, 1);
    EXPECT_EQ(h.out, (std::vector<std::string>{"KWILTRC: ILU 0 accel 1.0000e+00",
                                               "KWILTRC: ILU 0 L 1 U 1 All 4"}));
}

TEST(Ilu0, ZeroPivotIsNotGuarded)
{
    TestHandle th;
    // The first pivot is zero: row 2 divides by it and gets infinities or NaNs, the pivot
    // itself is replaced in the finished factor.
    Mat a = csr(2, {{1, 1, 0.0}, {1, 2, 1.0}, {2, 1, 1.0}, {2, 2, 1.0}}, false);
    Factors f = factorise(ILU0, th.get(), *a);
    ASSERT_EQ(f.ok, 1);
    const auto l = dense(*f.l);
    EXPECT_EQ(l[0], Cplx(1e-12));
    EXPECT_FALSE(std::isfinite(l[3].real()));
}

TEST(Ilu0, RowTraceEveryIluTraceRows)
{
    TestHandle th;
    th.intOpt[OPT_TRACE] = 1;
    th.intOpt[OPT_ILU_TRACE] = 100;
    Mat a = tridiagonal(250, false);
    Factors f = factorise(ILU0, th.get(), *a);
    ASSERT_EQ(f.ok, 1);
    EXPECT_EQ(f.out,
              (std::vector<std::string>{"KWILTRC: ILU 0 accel 1.0000e+00", "KWILTRC: ILU 0 row 0",
                                        "KWILTRC: ILU 0 row 100", "KWILTRC: ILU 0 row 200",
                                        "KWILTRC: ILU 0 L 249 U 249 All 748"}));
    th.intOpt[OPT_ILU_TRACE] = -5;
    Factors g = factorise(ILU0, th.get(), *a);
    EXPECT_EQ(g.out.size(), 2u);
    th.intOpt[OPT_TRACE] = 0;
    th.intOpt[OPT_ILU_TRACE] = 1;
    Factors s = factorise(ILU0, th.get(), *a);
    EXPECT_TRUE(s.out.empty());
}

TEST(Ilu, FillInOptionChoosesTheFactorisation)
{
    TestHandle th;
    th.intOpt[OPT_TRACE] = 1;
    Mat a = csr(1, {{1, 1, 2.0}}, false);
    Factors f = factorise(comToolILU, th.get(), *a);
    ASSERT_EQ(f.ok, 1);
    EXPECT_EQ(f.out.front(), "KWILTRC: ILU 0 accel 1.0000e+00");
    th.intOpt[OPT_ILU_FILLIN] = -1;
    Factors g = factorise(comToolILU, th.get(), *a);
    ASSERT_EQ(g.ok, 1);
    EXPECT_EQ(g.out.front(),
              "KWILTRC: ILU fill-in min abs 2.0000e-03 rel 1.0000e-03 accel 1.0000e+00");
}

TEST(IluDeath, NonCompressedInputIsAnInvariantViolation)
{
    TestHandle th;
    Mat a = coo(1, {{1, 1, 1.0}}, false);
    a->type = MAT_SORTED;
    ComLinMat* l = nullptr;
    ComLinMat* u = nullptr;
    EXPECT_EXIT(comToolILU(th.get(), a.get(), &l, &u), testing::ExitedWithCode(255),
                "KWILASR: Invalid mat type 1 in ILU\n");
}

TEST(IluSolv, FailingFactorisationFailsTheSolveAndLeaksNothing)
{
    TestHandle th;
    Mat a = csr(2, {{1, 1, 1.0}, {2, 1, 1.0}}, false);
    Vec r = vec({1.0, 1.0}, false), z = vec({7.0, 7.0}, false);
    const long live = comTestLiveAllocs();
    Capture cap;
    EXPECT_EQ(comToolILUSolv(th.get(), a.get(), r.get(), z.get()), 0);
    cap.take();
    EXPECT_EQ(cap.errLines(), std::vector<std::string>{"KWILERR: No diag error in ILU 0 solver"});
    EXPECT_EQ(comTestLiveAllocs(), live);
}

TEST(IluAlloc, EveryFailureOfIlu0AndTheSolveReleasesEverything)
{
    TestHandle th;
    const std::vector<std::string> ilu0Lines = {"KWILERR: Alloc error in ILU 0 solver",
                                                "KWILERR: Alloc matrix error in ILU 0 solver",
                                                "KWILERR: Change mat type error in ILU 0 solver"};
    for (bool complex : {false, true}) {
        Mat a = tridiagonal(6, complex);
        const long points = sweepWithLines(
            [&] {
                ComLinMat* l = nullptr;
                ComLinMat* u = nullptr;
                const int ok = ILU0(th.get(), a.get(), &l, &u);
                EXPECT_EQ(ok == 0, l == nullptr && u == nullptr);
                comLinMatDelete(th.get(), l);
                comLinMatDelete(th.get(), u);
                return ok == 1;
            },
            ilu0Lines);
        EXPECT_GE(points, 8);
        Vec r = vec(std::vector<Cplx>(6, 1.0), complex), z = vec(std::vector<Cplx>(6), complex);
        std::vector<std::string> solvLines = ilu0Lines;
        solvLines.push_back("KWILERR: Vec alloc error in ILU solv");
        sweepWithLines([&] { return comToolILUSolv(th.get(), a.get(), r.get(), z.get()) == 1; },
                       solvLines);
    }
}

TEST(Ilu0, MatchesTheReferenceOnRandomMatrices)
{
    TestHandle th;
    th.intOpt[OPT_TRACE] = 1;
    std::mt19937 gen(4711);
    for (int round = 0; round < 150; ++round) {
        const bool complex = round % 3 == 2;
        const int n = 1 + static_cast<int>(gen() % 80);
        const double density = 0.01 + (gen() % 100) / 300.0;
        const double dominance = (gen() % 4) * 0.3;
        Mat a = randomCsr(static_cast<unsigned>(gen()), n, density, dominance, complex);
        // Integer values make entries cancel to exact zeros, and zero pivots.
        if (round % 4 == 0) {
            double* v = complex ? a->compData : a->realData;
            for (long p = 0; p < (complex ? 2L : 1L) * a->dataNum; ++p)
                v[p] = std::round(v[p] * 2.0);
        }
        th.dblOpt[OPT_ILU_ACCEL] = round % 5 == 0 ? 1.1 : 1.0;
        th.dblOpt[OPT_ILU_REV_DIAGZERO_VAL] = round % 7 == 0 ? 0.5 : 1e-12;
        th.intOpt[OPT_ILU_TRACE] = static_cast<int>(gen() % 12);
        expectSameAsReference(th.get(), *a, "round " + std::to_string(round));
    }
    Mat c = convDiff2d(15, 40.0);
    expectSameAsReference(th.get(), *c, "convection-diffusion");
    Mat cc = toComplex(*c);
    expectSameAsReference(th.get(), *cc, "complex convection-diffusion");
}

TEST(Ilu0, MatchesTheReferenceOnRealMatrices)
{
    const std::string dir = kwiltest::matrixDir();
    if (dir.empty())
        GTEST_SKIP() << "KWIL_MATRIX_DIR is not set";
    TestHandle th;
    th.intOpt[OPT_TRACE] = 1;
    int tried = 0;
    for (const std::string& name : kwiltest::matrixFiles(dir)) {
        Mat a = readMatrixMarket(name, true);
        if (a == nullptr || a->dataNum > 400000)
            continue;
        for (double accel : {1.0, 1.05}) {
            th.dblOpt[OPT_ILU_ACCEL] = accel;
            expectSameAsReference(th.get(), *a, name);
        }
        ++tried;
    }
    if (tried == 0)
        GTEST_SKIP() << "no matrix read from " << dir;
    EXPECT_GT(tried, 10);
}

TEST(IluAlloc, Ilu0TracesTheEliminationBeforeTheFactorsAreCreated)
{
    // The factors are created after the elimination and its count line; every other
    // allocation comes before the first line.
    TestHandle th;
    th.intOpt[OPT_TRACE] = 1;
    th.intOpt[OPT_ILU_TRACE] = 4;
    Mat a = tridiagonal(6, false);
    const std::vector<std::string> full = {"KWILTRC: ILU 0 accel 1.0000e+00",
                                           "KWILTRC: ILU 0 row 0", "KWILTRC: ILU 0 row 4",
                                           "KWILTRC: ILU 0 L 5 U 5 All 16"};
    Factors f = factorise(ILU0, th.get(), *a);
    ASSERT_EQ(f.ok, 1);
    ASSERT_EQ(f.out, full);
    int matrixFailures = 0;
    for (long k = 1; k < 40; ++k) {
        comTestFailAlloc(k);
        Factors g = factorise(ILU0, th.get(), *a);
        comTestFailAlloc(0);
        if (g.ok == 1)
            break;
        ASSERT_FALSE(g.err.empty());
        if (g.err.back() == "KWILERR: Alloc error in ILU 0 solver") {
            EXPECT_TRUE(g.out.empty()) << k;
        } else if (g.err.back() == "KWILERR: Alloc matrix error in ILU 0 solver") {
            EXPECT_EQ(g.out, full) << k;
            ++matrixFailures;
        }
    }
    EXPECT_GE(matrixFailures, 2);
}
