// Clean-up of vanishing entries, the analysis trace and the residual check.
#include <gtest/gtest.h>

#include <cfloat>

#include "file/file.h"
#include "precond/precond.h"
#include "precond_util.h"
#include "support/support.h"
#include "sweep_lines.h"

using kwiltest::Capture;
using namespace prectest;

namespace {

std::vector<std::string> analyse(KwilHandle* h, const ComLinMat& a, const ComLinVec& b,
                                 const char* name, int zeroDiag)
{
    Capture cap;
    comToolAnaly(h, &a, &b, name, zeroDiag);
    cap.take();
    EXPECT_EQ(cap.err(), "");
    return cap.outLines();
}

} // namespace

TEST(ClearZero, DropsVanishingEntriesAndKeepsTheOrderOfTheRest)
{
    TestHandle th;
    Mat a = coo(2, {{1, 1, 0.0}, {1, 2, 3.0}, {2, 2, DBL_MIN / 2}, {2, 1, 4.0}}, false);
    int zeroDiag = -1;
    comToolMatClearZero(th.get(), a.get(), &zeroDiag);
    EXPECT_EQ(a->dataNum, 2);
    EXPECT_EQ(zeroDiag, 2);
    const auto e = entries(*a);
    ASSERT_EQ(e.size(), 2u);
    EXPECT_EQ(e[0].row, 1);
    EXPECT_EQ(e[0].col, 2);
    EXPECT_EQ(e[0].v, Cplx(3.0));
    EXPECT_EQ(e[1].row, 2);
    EXPECT_EQ(e[1].col, 1);
    EXPECT_EQ(e[1].v, Cplx(4.0));
}

TEST(ClearZero, BoundaryValuesAndDiagonalCount)
{
    TestHandle th;
    // DBL_MIN and -DBL_MIN themselves are kept; -0, the subnormals and 0 go.
    Mat a = coo(
        3,
        {{3, 3, -DBL_MIN}, {1, 1, -0.0}, {2, 2, DBL_MIN}, {1, 3, -DBL_MIN / 4}, {3, 1, 4.9e-324}},
        false);
    int zeroDiag = -1;
    comToolMatClearZero(th.get(), a.get(), &zeroDiag);
    const auto e = entries(*a);
    ASSERT_EQ(e.size(), 2u);
    EXPECT_EQ(e[0].row, 3);
    EXPECT_EQ(e[0].v.real(), -DBL_MIN);
    EXPECT_EQ(e[1].row, 2);
    EXPECT_EQ(zeroDiag, 1);
}

TEST(ClearZero, ComplexEntryVanishesOnlyWhenBothPartsDo)
{
    TestHandle th;
    Mat a = coo(2,
                {{1, 1, Cplx(DBL_MIN / 2, -DBL_MIN / 4)},
                 {1, 2, Cplx(0.0, 5.0)},
                 {2, 2, Cplx(0.0, -DBL_MIN)}},
                true);
    int zeroDiag = -1;
    comToolMatClearZero(th.get(), a.get(), &zeroDiag);
    const auto e = entries(*a);
    ASSERT_EQ(e.size(), 2u);
    EXPECT_EQ(e[0].v, Cplx(0.0, 5.0));
    EXPECT_EQ(e[1].v, Cplx(0.0, -DBL_MIN));
    EXPECT_EQ(zeroDiag, 1);
}

TEST(ClearZero, EmptyMatrixHasEveryDiagonalMissing)
{
    TestHandle th;
    Mat a = coo(4, {}, false);
    int zeroDiag = -1;
    comToolMatClearZero(th.get(), a.get(), &zeroDiag);
    EXPECT_EQ(a->dataNum, 0);
    EXPECT_EQ(zeroDiag, 4);
}

TEST(ClearZeroDeath, CompressedFormIsAnInvariantViolation)
{
    TestHandle th;
    Mat a = csr(1, {{1, 1, 1.0}}, false);
    int zeroDiag = 0;
    EXPECT_EXIT(comToolMatClearZero(th.get(), a.get(), &zeroDiag), testing::ExitedWithCode(255),
                "KWILASR: Invalid matrix type in matrix clear zero\n");
}

TEST(Analy, TracesThePortraitOfARealSystem)
{
    TestHandle th;
    th.intOpt[OPT_TRACE] = 1;
    Mat a = csr(3, {{1, 1, -4.0}, {1, 3, 7.5}, {2, 2, 2.0}, {3, 2, 1.0}, {3, 3, 0.5}}, false);
    Vec b = vec({3.0, 4.0, 0.0}, false);
    const auto out = analyse(th.get(), *a, *b, "solver", 1);
    const std::vector<std::string> want = {
        "KWILTRC: Analyse in solver data type real",
        "KWILTRC:  - abs / rel norm 5.0000e+00",
        "KWILTRC:  - mat size 3 data num 5",
        "KWILTRC:  - abs diag min 5.0000e-01 diag max 4.0000e+00 max 7.5000e+00",
        "KWILTRC:  - diag zero 1 -> 0 row data num min 1 max 2",
    };
    EXPECT_EQ(out, want);
}

TEST(Analy, MissingDiagonalReportsDiagMinZero)
{
    TestHandle th;
    th.intOpt[OPT_TRACE] = 1;
    Mat a = coo(2, {{1, 1, Cplx(3.0, 4.0)}, {2, 1, Cplx(1.0, 0.0)}}, true);
    ASSERT_EQ(comLinMatChangeType(th.get(), a.get(), MAT_SORTED), 1);
    Vec b = vec({Cplx(0.0, 2.0), 0.0}, true);
    const auto out = analyse(th.get(), *a, *b, "diag scale", 1);
    ASSERT_EQ(out.size(), 5u);
    EXPECT_EQ(out[0], "KWILTRC: Analyse in diag scale data type comp");
    EXPECT_EQ(out[1], "KWILTRC:  - abs / rel norm 2.0000e+00");
    EXPECT_EQ(out[3], "KWILTRC:  - abs diag min 0.0000e+00 diag max 5.0000e+00 max 5.0000e+00");
    EXPECT_EQ(out[4], "KWILTRC:  - diag zero 1 -> 1 row data num min 1 max 1");
}

TEST(Analy, EmptyRowsInTheMiddleAndAtTheEndCountZero)
{
    TestHandle th;
    th.intOpt[OPT_TRACE] = 1;
    Vec b = vec({1.0, 1.0, 1.0, 1.0}, false);
    // Rows holding 2, 0, 0 and 3 entries.
    Mat a = csr(4, {{1, 1, 1.0}, {1, 2, 1.0}, {4, 1, 1.0}, {4, 3, 1.0}, {4, 4, 1.0}}, false);
    EXPECT_EQ(analyse(th.get(), *a, *b, "solver", 2).back(),
              "KWILTRC:  - diag zero 2 -> 2 row data num min 0 max 3");
    // Only the first row holds entries: the trailing empty rows count 0.
    Mat c = csr(4, {{1, 1, 1.0}, {1, 4, 1.0}}, false);
    EXPECT_EQ(analyse(th.get(), *c, *b, "solver", 3).back(),
              "KWILTRC:  - diag zero 3 -> 3 row data num min 0 max 2");
    // Every row holds entries and the first ones are empty: min stays above 0 only without gaps.
    Mat d = csr(4, {{1, 1, 1.0}, {2, 2, 1.0}, {3, 3, 1.0}, {4, 4, 1.0}, {4, 1, 1.0}}, false);
    EXPECT_EQ(analyse(th.get(), *d, *b, "solver", 0).back(),
              "KWILTRC:  - diag zero 0 -> 0 row data num min 1 max 2");
    Mat e = csr(4, {{3, 3, 1.0}, {4, 4, 1.0}}, false);
    EXPECT_EQ(analyse(th.get(), *e, *b, "solver", 2).back(),
              "KWILTRC:  - diag zero 2 -> 2 row data num min 0 max 1");
}

TEST(Analy, MatrixWithoutEntries)
{
    TestHandle th;
    th.intOpt[OPT_TRACE] = 1;
    Mat a = csr(3, {}, false);
    Vec b = vec({0.0, 0.0, 0.0}, false);
    const auto out = analyse(th.get(), *a, *b, "solver", 3);
    ASSERT_EQ(out.size(), 5u);
    EXPECT_EQ(out[3], "KWILTRC:  - abs diag min 0.0000e+00 diag max 0.0000e+00 max 0.0000e+00");
    EXPECT_EQ(out[4], "KWILTRC:  - diag zero 3 -> 3 row data num min 0 max 0");
}

TEST(Analy, SilentWithoutTrace)
{
    TestHandle th;
    th.intOpt[OPT_TRACE] = 0;
    Mat a = csr(1, {{1, 1, 1.0}}, false);
    Vec b = vec({1.0}, false);
    EXPECT_TRUE(analyse(th.get(), *a, *b, "solver", 0).empty());
}

TEST(Analy, RowDataNumWidensTheRange)
{
    int lo = 5, hi = 5;
    analyRowDataNum(nullptr, 7, &lo, &hi);
    EXPECT_EQ(lo, 5);
    EXPECT_EQ(hi, 7);
    analyRowDataNum(nullptr, 2, &lo, &hi);
    EXPECT_EQ(lo, 2);
    EXPECT_EQ(hi, 7);
    analyRowDataNum(nullptr, 4, &lo, &hi);
    EXPECT_EQ(lo, 2);
    EXPECT_EQ(hi, 7);
}

TEST(AnalyDeath, UnsortedCoordinateFormIsAnInvariantViolation)
{
    TestHandle th;
    Mat a = coo(1, {{1, 1, 1.0}}, false);
    Vec b = vec({1.0}, false);
    EXPECT_EXIT(comToolAnaly(th.get(), a.get(), b.get(), "solver", 0), testing::ExitedWithCode(255),
                "KWILASR: Invalid type 0 in matrix analyse\n");
}

TEST(CheckResult, ExactSolutionHasZeroNormsAndWritesTheZeroResidual)
{
    TestHandle th;
    kwiltest::TempDir dir;
    for (bool complex : {false, true}) {
        const Cplx i1 = complex ? Cplx(0.0, 1.0) : Cplx(0.0);
        Mat a = csr(2, {{1, 1, 2.0 + i1}, {1, 2, 1.0}, {2, 2, 3.0}}, complex);
        Vec x = vec({1.0, 2.0 - i1}, complex);
        Vec b = vec({Cplx(4.0), 6.0 - 3.0 * i1}, complex);
        double rel = -1.0, abs = -1.0;
        const std::string file = dir.path(complex ? "rc.mtx" : "rr.mtx");
        Capture cap;
        EXPECT_EQ(comToolCheckResult(th.get(), a.get(), b.get(), x.get(), &rel, &abs, file.c_str()),
                  1);
        cap.take();
        EXPECT_EQ(rel, 0.0);
        EXPECT_EQ(abs, 0.0);
        Vec r(comFileVecRead(th.get(), file.c_str()));
        ASSERT_NE(r, nullptr);
        EXPECT_EQ(r->dataType, complex ? LIN_COMP : LIN_REAL);
        for (const Cplx& v : values(*r))
            EXPECT_EQ(v, Cplx(0.0));
    }
}

TEST(CheckResult, NormsOfAWrongSolution)
{
    TestHandle th;
    Mat a = csr(2, {{1, 1, 1.0}, {2, 2, 1.0}}, false);
    Vec x = vec({4.0, 0.0}, false);
    Vec b = vec({1.0, -4.0}, false); // r = (3, 4)
    double rel = 0.0, abs = 0.0;
    EXPECT_EQ(comToolCheckResult(th.get(), a.get(), b.get(), x.get(), &rel, &abs, nullptr), 1);
    EXPECT_DOUBLE_EQ(abs, 5.0);
    EXPECT_DOUBLE_EQ(rel, 5.0 / std::sqrt(17.0));
    // A zero right-hand side gives an infinite relative norm, with no message.
    Vec z = vec({0.0, 0.0}, false);
    Capture cap;
    EXPECT_EQ(comToolCheckResult(th.get(), a.get(), z.get(), x.get(), &rel, &abs, nullptr), 1);
    cap.take();
    EXPECT_EQ(cap.err(), "");
    EXPECT_EQ(abs, 4.0);
    EXPECT_TRUE(std::isinf(rel));
}

TEST(CheckResult, FailingFileWriteKeepsTheNorms)
{
    TestHandle th;
    Mat a = csr(1, {{1, 1, 2.0}}, false);
    Vec x = vec({1.0}, false);
    Vec b = vec({1.0}, false);
    double rel = 0.0, abs = 0.0;
    Capture cap;
    EXPECT_EQ(comToolCheckResult(th.get(), a.get(), b.get(), x.get(), &rel, &abs,
                                 "/nonexistent-dir/r.mtx"),
              0);
    cap.take();
    EXPECT_EQ(abs, 1.0);
    EXPECT_EQ(rel, 1.0);
    EXPECT_EQ(cap.errLines(),
              std::vector<std::string>{
                  "KWILERR: Open error in vec file read, write='/nonexistent-dir/r.mtx'"});
}

TEST(CheckResult, AllocationFailureReportsItsLineAndLeaksNothing)
{
    TestHandle th;
    Mat a = csr(2, {{1, 1, 1.0}, {2, 2, 1.0}}, false);
    Vec x = vec({1.0, 1.0}, false);
    Vec b = vec({1.0, 1.0}, false);
    const long points = sweepWithLines(
        [&] {
            double rel = 0.0, abs = 0.0;
            return comToolCheckResult(th.get(), a.get(), b.get(), x.get(), &rel, &abs, nullptr) ==
                   1;
        },
        {"KWILERR: Vector data create error in check result"});
    EXPECT_GE(points, 2);
}
