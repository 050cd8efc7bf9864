// kwilSolv end to end through the public interface: every solver, and the driver's own cases.
#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <ostream>
#include <string>
#include <vector>

#include "api/kwil.h"
#include "api_util.h"
#include "support/support.h"

using apitest::contains;
using apitest::Cplx;
using apitest::System;
using kwiltest::Capture;
using kwiltest::TempDir;

namespace {

// One solve of s on a fresh handle with the given option lines; x, result and log kept.
struct SolveRun {
    int result = -1;
    std::vector<Cplx> x;
    std::string out, err;
    std::vector<std::string> outLines, errLines;
};

SolveRun solveWith(const System& s, const std::string& options, bool bComp)
{
    TempDir dir;
    KwilHandle* h = kwiltest::makeHandle(dir, options);
    SolveRun run;
    if (h == nullptr)
        return run;
    apitest::load(h, s, bComp);
    Capture cap;
    run.result = kwilSolv(h);
    cap.take();
    run.out = cap.out();
    run.err = cap.err();
    run.outLines = cap.outLines();
    run.errLines = cap.errLines();
    run.x = apitest::getX(h);
    kwilTerm(h);
    return run;
}
SolveRun solveWith(const System& s, const std::string& options)
{
    return solveWith(s, options, s.comp);
}

bool allZero(const std::vector<Cplx>& x)
{
    for (const Cplx& v : x) {
        if (v != Cplx(0.0))
            return false;
    }
    return true;
}

// A 4 x 4 system whose row 2 stores no diagonal entry; nonsingular, b = A (1, 1, 1, 1).
System missingDiagonal()
{
    System s;
    s.n = 4;
    s.add(0, 0, 4.0);
    s.add(0, 1, -1.0);
    s.add(1, 0, -1.0);
    s.add(1, 1, 4.0);
    s.add(1, 2, -1.0);
    s.add(2, 1, 2.0);
    s.add(2, 3, -1.0);
    s.add(3, 2, -1.0);
    s.add(3, 3, 4.0);
    s.rhsOnes();
    return s;
}

} // namespace

// ---- Every SOLVER value ---------------------------------------------------------------------

TEST(SolveSolvers, TestRunLeavesXZeroAfterTheWarning)
{
    for (bool comp : {false, true}) {
        const SolveRun run = solveWith(apitest::convDiff(4, comp), "SOLVER -1\n");
        EXPECT_EQ(run.result, 1);
        EXPECT_EQ(run.err, "KWILWRN: Solver test\n");
        ASSERT_EQ(run.x.size(), 16u);
        EXPECT_TRUE(allZero(run.x));
    }
}

TEST(SolveSolvers, BiCGStabSolvesRealAndComplexSystems)
{
    for (bool comp : {false, true}) {
        const System s = apitest::convDiff(12, comp);
        const SolveRun run = solveWith(s, "SOLVER 0\n");
        EXPECT_EQ(run.result, 1) << run.err;
        EXPECT_EQ(run.err, "");
        EXPECT_LE(apitest::relResidual(s, run.x), 1e-9) << "complex " << comp;
    }
}

TEST(SolveSolvers, BiCGStabWithoutPreconditionerAndWithFillIn)
{
    const System s = apitest::convDiff(10, false);
    for (const char* opt : {"ITER_PREILU 0\n", "ILU_FILLIN 1\n"}) {
        const SolveRun run = solveWith(s, std::string("SOLVER 0\n") + opt);
        EXPECT_EQ(run.result, 1) << opt << run.err;
        EXPECT_LE(apitest::relResidual(s, run.x), 1e-9) << opt;
    }
}

TEST(SolveSolvers, SafeSolverSolvesRealSystemsAndRefusesComplexOnes)
{
    const System real = apitest::convDiff(12, false);
    for (const char* variant : {"", "SAFE_CR 0\nSAFE_CORRECT_Y 0\n"}) {
        const SolveRun run = solveWith(real, std::string("SOLVER 1\n") + variant);
        EXPECT_EQ(run.result, 1) << variant << run.err;
        EXPECT_LE(apitest::relResidual(real, run.x), 1e-9) << variant;
    }
    const SolveRun run = solveWith(apitest::convDiff(4, true), "SOLVER 1\n");
    EXPECT_EQ(run.result, 0);
    EXPECT_EQ(run.err, "KWILERR: Invalid data type in iter safe solver\n");
    EXPECT_TRUE(allZero(run.x));
}

TEST(SolveSolvers, BiCGStabLSolvesComplexSystemsAndRefusesRealOnes)
{
    const System comp = apitest::convDiff(12, true);
    for (int l : {1, 2, 4}) {
        const SolveRun run = solveWith(comp, "SOLVER 2\nSTABL_L " + std::to_string(l) + "\n");
        EXPECT_EQ(run.result, 1) << "L " << l << run.err;
        EXPECT_LE(apitest::relResidual(comp, run.x), 1e-9) << "L " << l;
    }
    const SolveRun run = solveWith(apitest::convDiff(4, false), "SOLVER 2\n");
    EXPECT_EQ(run.result, 0);
    EXPECT_EQ(run.err, "KWILERR: Invalid data type in iter stab-l solver\n");
    EXPECT_TRUE(allZero(run.x));
}

TEST(SolveSolvers, DirectSolveReachesRoundOffOnRealAndComplexSystems)
{
    for (bool comp : {false, true}) {
        const System s = apitest::convDiff(15, comp);
        const SolveRun run = solveWith(s, "SOLVER 10\n");
        EXPECT_EQ(run.result, 1) << run.err;
        EXPECT_EQ(run.err, "");
        EXPECT_LE(apitest::backwardError(s, run.x), 1e-15) << "complex " << comp;
    }
}

TEST(SolveSolvers, DirectSolveFailuresAreTheSolversLines)
{
    System singular;
    singular.n = 2;
    singular.add(0, 0, 1.0);
    singular.add(0, 1, 2.0);
    singular.add(1, 0, 2.0);
    singular.add(1, 1, 4.0);
    singular.rhsOnes();
    SolveRun run = solveWith(singular, "SOLVER 10\n");
    EXPECT_EQ(run.result, 0);
    ASSERT_EQ(run.errLines.size(), 2u) << run.err;
    EXPECT_EQ(run.errLines[0].rfind("KWILERR: PARDISO error in ", 0), 0u) << run.err;
    EXPECT_EQ(run.errLines[1].rfind("KWILERR: PARDISO error: ", 0), 0u) << run.err;

    run = solveWith(apitest::convDiff(6, false), "SOLVER 10\nPARDISO_MEM_LIM 1\n");
    EXPECT_EQ(run.result, 0);
    ASSERT_EQ(run.errLines.size(), 1u) << run.err;
    EXPECT_EQ(run.errLines[0].rfind("KWILERR: PARDISO too large memory error max ", 0), 0u);
    EXPECT_NE(run.errLines[0].find(" > lim 1 kb"), std::string::npos) << run.err;
}

TEST(SolveSolvers, IluSolveIsExactOnTridiagonalSystems)
{
    // ILU(0) of a tridiagonal matrix is its LU factorisation, so one application solves.
    for (bool comp : {false, true}) {
        const System s =
            comp ? apitest::tridiag(50, Cplx(-1.0, 0.5), Cplx(3.0, 1.0), Cplx(-0.5, -0.25), true)
                 : apitest::tridiag(50, -1.2, 3.0, -0.7, false);
        const SolveRun run = solveWith(s, "SOLVER 20\n");
        EXPECT_EQ(run.result, 1) << run.err;
        EXPECT_LE(apitest::backwardError(s, run.x), 1e-15) << "complex " << comp;
    }
}

TEST(SolveSolvers, IluSolveIsOneApplicationOnlyOnAGeneralSystem)
{
    const System s = apitest::convDiff(8, false);
    const SolveRun run = solveWith(s, "SOLVER 20\n");
    EXPECT_EQ(run.result, 1);
    const double rel = apitest::relResidual(s, run.x);
    EXPECT_GT(rel, 1e-6); // ILU(0) with fill dropped is no exact solve here
    EXPECT_LT(rel, 1.0);
}

TEST(SolveSolvers, UnknownSolverValuesFailButStillReplaceX)
{
    for (bool comp : {false, true}) {
        for (int solver : {3, 5, 9, 11, 19, 21, -2, 100}) {
            const SolveRun run =
                solveWith(apitest::convDiff(3, comp), "SOLVER " + std::to_string(solver));
            EXPECT_EQ(run.result, 0);
            EXPECT_EQ(run.err,
                      "KWILERR: Unknown solver type " + std::to_string(solver) + " in solver\n");
            ASSERT_EQ(run.x.size(), 9u);
            EXPECT_TRUE(allZero(run.x));
        }
    }
}

TEST(SolveSolvers, IterativeFailureIsTheSolversLine)
{
    System s; // diag(1, 1), b = (3, 4): ||r0|| = 5
    s.n = 2;
    s.add(0, 0, 1.0);
    s.add(1, 1, 1.0);
    s.b = {3.0, 4.0};
    const SolveRun run = solveWith(s, "SOLVER 0\nITER_MAXSTEP 0\n");
    EXPECT_EQ(run.result, 0);
    EXPECT_EQ(run.err,
              "KWILERR: Step over in iter stab step 0 abs norm 5.0000e+00 resolve 5.0000e-10\n");
}

// ---- Failure paths of the driver -------------------------------------------------------------

class SolveDriver : public ::testing::Test {
  protected:
    void SetUp() override { h = kwiltest::makeHandle(dir, "SOLVER 10\n"); }
    void TearDown() override { kwilTerm(h); }
    // Solves and returns the result; the log lands in out and err.
    int solve()
    {
        Capture c;
        const int r = kwilSolv(h);
        c.take();
        out = c.out();
        err = c.err();
        return r;
    }
    TempDir dir;
    KwilHandle* h = nullptr;
    std::string out, err;
};

TEST_F(SolveDriver, MissingDataIsReportedAndChangesNothing)
{
    ASSERT_EQ(solve(), 0);
    EXPECT_EQ(err, "KWILERR: No data in solver\n");

    ASSERT_EQ(kwilVecVarCreate(h, 0, 2, 7.0, 0.0), 1);
    ASSERT_EQ(kwilVecFixCreate(h, 0, 2, 1.0, 0.0), 1);
    EXPECT_EQ(solve(), 0); // b but no A
    EXPECT_EQ(err, "KWILERR: No data in solver\n");

    ASSERT_EQ(kwilMatCoefCreate(h, 0, 2, 0), 1);
    EXPECT_EQ(solve(), 0); // A without entries
    EXPECT_EQ(err, "KWILERR: No data in solver\n");

    ASSERT_EQ(kwilMatCoefCreate(h, 0, 2, 2), 1);
    ASSERT_EQ(kwilMatCoefSet(h, 0, 0, 0, 1.0, 0.0, 0), 1);
    ASSERT_EQ(kwilMatCoefSet(h, 1, 1, 1, 1.0, 0.0, 0), 1);
    ASSERT_EQ(kwilVecFixCreate(h, 0, 0, 1.0, 0.0), 1);
    EXPECT_EQ(solve(), 0); // b of size 0
    EXPECT_EQ(err, "KWILERR: No data in solver\n");
    // x was not touched by any of these.
    EXPECT_EQ(apitest::getX(h), std::vector<Cplx>(2, Cplx(7.0)));
}

TEST_F(SolveDriver, AnUnsetSlotIsReportedBeforeTheSizeCheck)
{
    ASSERT_EQ(kwilMatCoefCreate(h, 0, 3, 3), 1);
    ASSERT_EQ(kwilMatCoefSet(h, 0, 0, 0, 1.0, 0.0, 0), 1);
    ASSERT_EQ(kwilMatCoefSet(h, 2, 2, 2, 1.0, 0.0, 0), 1); // slot 1 never set
    ASSERT_EQ(kwilVecFixCreate(h, 0, 5, 1.0, 0.0), 1);     // and b of the wrong size
    EXPECT_EQ(solve(), 0);
    EXPECT_EQ(err, "KWILERR: Lack of coef mat data in solver\n");

    ASSERT_EQ(kwilMatCoefSet(h, 1, 1, 1, 1.0, 0.0, 0), 1);
    EXPECT_EQ(solve(), 0);
    EXPECT_EQ(err, "KWILERR: Size unmatch in solver\n");

    ASSERT_EQ(kwilVecFixCreate(h, 0, 3, 2.0, 0.0), 1);
    EXPECT_EQ(solve(), 1) << err;
    EXPECT_EQ(apitest::getX(h), std::vector<Cplx>(3, Cplx(2.0)));
}

TEST_F(SolveDriver, ComplexBWithRealAIsRefused)
{
    apitest::load(h, apitest::convDiff(3, false), true);
    EXPECT_EQ(solve(), 0);
    EXPECT_EQ(err, "KWILERR: Data type unmatch in solver\n");
    int comp = -1, n = 0;
    EXPECT_EQ(kwilVecFixInfo(h, &comp, &n), 1);
    EXPECT_EQ(comp, 1);
}

TEST_F(SolveDriver, RealBWithComplexAIsPromoted)
{
    System s = apitest::tridiag(20, Cplx(-1.0, 1.0), Cplx(4.0, 0.0), Cplx(-1.0, -1.0), true);
    for (int i = 0; i < s.n; ++i)
        s.b[i] = Cplx(i + 1.0);
    apitest::load(h, s, false);
    int comp = -1, n = 0;
    ASSERT_EQ(kwilVecFixInfo(h, &comp, &n), 1);
    ASSERT_EQ(comp, 0);
    EXPECT_EQ(solve(), 1) << err;
    EXPECT_EQ(kwilVecFixInfo(h, &comp, &n), 1);
    EXPECT_EQ(comp, 1);
    EXPECT_EQ(kwilVecVarInfo(h, &comp, &n), 1);
    EXPECT_EQ(comp, 1);
    EXPECT_EQ(apitest::getB(h), s.b);
    EXPECT_LE(apitest::backwardError(s, apitest::getX(h)), 1e-15);
}

TEST_F(SolveDriver, DuplicateEntriesFailTheConversionAndTheRepairIsUndone)
{
    ASSERT_EQ(kwilSetOpt(h, "SOLVER", 1, 0, 0.0), 1);
    System s = missingDiagonal();
    s.add(0, 1, 5.0); // (0, 1) a second time
    apitest::load(h, s);
    EXPECT_EQ(solve(), 0);
    EXPECT_EQ(err, "KWILERR: Dupulicate data error in matrix sort\n"
                   "KWILERR: Change type CSR error in solver\n");
    // The inserted diagonal (2, 2) is back to zero; it stays as an explicit entry.
    const std::vector<apitest::Entry> e = apitest::getEntries(h);
    EXPECT_EQ(static_cast<int>(e.size()), s.nnz() + 1);
    EXPECT_TRUE(std::find(e.begin(), e.end(), apitest::Entry{2, 2, 0.0}) != e.end());
}

TEST_F(SolveDriver, NanResultFailsAndInfinityPasses)
{
    ASSERT_EQ(kwilSetOpt(h, "SOLVER", 1, 20, 0.0), 1);
    const System s = apitest::tridiag(5, -1.0, 3.0, -1.0, false);
    apitest::load(h, s);
    ASSERT_EQ(kwilVecFixSet(h, 2, std::nan(""), 0.0), 1);
    EXPECT_EQ(solve(), 0);
    EXPECT_EQ(err, "KWILERR: Result var vector nan error in solver\n");

    // Diagonal A: an infinite b_0 gives an infinite x_0 and no NaN.
    ASSERT_EQ(kwilMatCoefCreate(h, 0, 3, 3), 1);
    for (int i = 0; i < 3; ++i)
        ASSERT_EQ(kwilMatCoefSet(h, i, i, i, 2.0, 0.0, 0), 1);
    ASSERT_EQ(kwilVecFixCreate(h, 0, 3, 1.0, 0.0), 1);
    ASSERT_EQ(kwilVecFixSet(h, 0, std::numeric_limits<double>::infinity(), 0.0), 1);
    EXPECT_EQ(solve(), 1) << err;
    const std::vector<Cplx> x = apitest::getX(h);
    EXPECT_TRUE(std::isinf(x[0].real()));
    EXPECT_EQ(x[1], Cplx(0.5));
}

TEST_F(SolveDriver, TwoSolvesInARowConvertTheMatrixBackAndCleanItAgain)
{
    System s = apitest::convDiff(5, false);
    s.add(3, 17, 0.0); // an explicit zero: removed by the first clean-up
    apitest::load(h, s);
    ASSERT_EQ(solve(), 1) << err;
    const std::vector<Cplx> x1 = apitest::getX(h);
    EXPECT_EQ(apitest::dataNum(h), s.nnz() - 1);
    // The solve left A compressed: a plain set is refused.
    Capture cap;
    EXPECT_EQ(kwilMatCoefSet(h, 0, 0, 0, 4.0, 0.0, 0), 0);
    cap.take();
    EXPECT_EQ(cap.err(), "KWILERR: Invalid mat type (after solver) in set coef mat\n");

    ASSERT_EQ(solve(), 1) << err;
    EXPECT_EQ(apitest::getX(h), x1);
    EXPECT_EQ(apitest::dataNum(h), s.nnz() - 1);
    EXPECT_LE(apitest::backwardError(s, x1), 1e-15);

    // A changed entry (restore flag) is taken by the next solve.
    std::vector<apitest::Entry> e = apitest::getEntries(h);
    ASSERT_EQ(e[0].row, 0);
    ASSERT_EQ(e[0].col, 0);
    ASSERT_EQ(kwilMatCoefSet(h, 0, 0, 0, 8.0, 0.0, 1), 1);
    ASSERT_EQ(solve(), 1) << err;
    System changed = s;
    ASSERT_EQ(changed.row[0], 0);
    ASSERT_EQ(changed.col[0], 0);
    changed.val[0] = 8.0;
    const std::vector<Cplx> x3 = apitest::getX(h);
    EXPECT_LE(apitest::backwardError(changed, x3), 1e-15);
    EXPECT_GT(apitest::relResidual(s, x3), 1e-3);
}

TEST_F(SolveDriver, AValueSetInTheVariableVectorHasNoInfluence)
{
    ASSERT_EQ(kwilSetOpt(h, "SOLVER", 1, 0, 0.0), 1);
    const System s = apitest::convDiff(6, false);
    apitest::load(h, s);
    ASSERT_EQ(solve(), 1) << err;
    const std::vector<Cplx> clean = apitest::getX(h);

    TempDir other;
    KwilHandle* g = kwiltest::makeHandle(other, "SOLVER 0\n");
    apitest::load(g, s);
    ASSERT_EQ(kwilVecVarCreate(g, 1, 11, 3.0, -2.0), 1); // wrong size and type
    ASSERT_EQ(kwilVecVarSet(g, 4, 1e30, 1e30), 1);
    Capture cap;
    ASSERT_EQ(kwilSolv(g), 1);
    cap.take();
    EXPECT_EQ(apitest::getX(g), clean); // bit for bit
    int comp = -1, n = 0;
    EXPECT_EQ(kwilVecVarInfo(g, &comp, &n), 1);
    EXPECT_EQ(comp, 0);
    EXPECT_EQ(n, 36);
    kwilTerm(g);
}

TEST_F(SolveDriver, TheThreadCountIsRestoredOnEveryPath)
{
    const int before = omp_get_max_threads();
    omp_set_num_threads(1);
    ASSERT_EQ(kwilSetOpt(h, "THREADS", 1, 2, 0.0), 1);
    EXPECT_EQ(solve(), 0); // no data
    EXPECT_EQ(omp_get_max_threads(), 1);
    apitest::load(h, apitest::convDiff(4, false));
    EXPECT_EQ(solve(), 1);
    EXPECT_EQ(omp_get_max_threads(), 1);
    ASSERT_EQ(kwilSetOpt(h, "SOLVER", 1, 7, 0.0), 1);
    EXPECT_EQ(solve(), 0);
    EXPECT_EQ(omp_get_max_threads(), 1);

    omp_set_num_threads(3);
    ASSERT_EQ(kwilSetOpt(h, "THREADS", 1, -1, 0.0), 1);
    ASSERT_EQ(kwilSetOpt(h, "SOLVER", 1, 10, 0.0), 1);
    EXPECT_EQ(solve(), 1);
    EXPECT_EQ(err, "KWILWRN: Invalid threads -1\n");
    EXPECT_EQ(omp_get_max_threads(), 3);
    omp_set_num_threads(before);
}

TEST_F(SolveDriver, TheTraceShowsOptionsAnalysisAndTimeOnlyAfterSuccess)
{
    ASSERT_EQ(kwilSetOpt(h, "TRACE", 1, 1, 0.0), 1);
    apitest::load(h, apitest::convDiff(4, false));
    ASSERT_EQ(solve(), 1) << err;
    const std::vector<std::string> lines = kwiltest::lines(out);
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines[0], "KWILTRC: Option: Solver");
    EXPECT_TRUE(contains(lines, "KWILTRC: Analyse in solver data type real"));
    EXPECT_TRUE(contains(lines, "KWILTRC:  - mat size 16 data num 64"));
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines[lines.size() - 2], "KWILTRC: Time Solver: ");
    EXPECT_EQ(lines.back().rfind("KWILTRC:  - times ", 0), 0u) << lines.back();

    ASSERT_EQ(kwilSetOpt(h, "SOLVER", 1, 4, 0.0), 1);
    EXPECT_EQ(solve(), 0);
    EXPECT_EQ(out.find("KWILTRC: Time Solver"), std::string::npos);

    ASSERT_EQ(kwilSetOpt(h, "TRACE", 1, 0, 0.0), 1);
    ASSERT_EQ(kwilSetOpt(h, "SOLVER", 1, 10, 0.0), 1);
    EXPECT_EQ(solve(), 1);
    EXPECT_EQ(out, "");
}

// ---- Zero-diagonal repair policy -------------------------------------------------------------

struct RepairCase {
    int solver;
    int revDiagZero;
    bool repaired;
};

void PrintTo(const RepairCase& c, std::ostream* os)
{
    *os << "SOLVER " << c.solver << " REV_DIAGZERO " << c.revDiagZero;
}

class SolveRepairPolicy : public ::testing::TestWithParam<RepairCase> {};

TEST_P(SolveRepairPolicy, RepairsExactlyWhenThePolicySays)
{
    const RepairCase c = GetParam();
    TempDir dir;
    KwilHandle* h =
        kwiltest::makeHandle(dir, "TRACE 1\nSOLVER " + std::to_string(c.solver) +
                                      "\nREV_DIAGZERO " + std::to_string(c.revDiagZero) + "\n");
    const System s = missingDiagonal();
    apitest::load(h, s);
    Capture cap;
    const int result = kwilSolv(h);
    cap.take();
    const bool traced = contains(cap.outLines(), "KWILTRC: Rev diag zero 1 1.0000e-12");
    EXPECT_EQ(traced, c.repaired);
    // An undone repair leaves the inserted diagonal as an explicit zero.
    const std::vector<apitest::Entry> e = apitest::getEntries(h);
    EXPECT_EQ(static_cast<int>(e.size()), s.nnz() + (c.repaired ? 1 : 0));
    EXPECT_EQ(std::find(e.begin(), e.end(), apitest::Entry{2, 2, 0.0}) != e.end(), c.repaired);
    if (c.solver == 10 || (c.solver == 0 && c.repaired) || (c.solver == 20 && c.repaired)) {
        EXPECT_EQ(result, 1) << cap.err();
    }
    if (result == 1 && c.solver >= 0 && c.solver != 20) {
        EXPECT_LE(apitest::relResidual(s, apitest::getX(h)), 1e-8);
    }
    kwilTerm(h);
}

INSTANTIATE_TEST_SUITE_P(BySolverAndOption, SolveRepairPolicy,
                         ::testing::Values(RepairCase{0, 1, true}, RepairCase{1, 1, true},
                                           RepairCase{5, 1, true}, RepairCase{9, 1, true},
                                           RepairCase{10, 1, false}, RepairCase{20, 1, false},
                                           RepairCase{-1, 1, false}, RepairCase{0, 0, false},
                                           RepairCase{0, 3, false}, RepairCase{10, 2, true},
                                           RepairCase{20, 2, true}, RepairCase{-1, 2, true},
                                           RepairCase{12, 2, true}));

TEST(SolveRepair, WithoutRepairTheIluSolversFindTheMissingDiagonal)
{
    SolveRun run = solveWith(missingDiagonal(), "SOLVER 20\n");
    EXPECT_EQ(run.result, 0);
    EXPECT_EQ(run.err, "KWILERR: No diag error in ILU 0 solver\n");
    run = solveWith(missingDiagonal(), "SOLVER 0\nREV_DIAGZERO 0\n");
    EXPECT_EQ(run.result, 0);
    EXPECT_EQ(run.err,
              "KWILERR: No diag error in ILU 0 solver\nKWILERR: ILU error in iter stab solver\n");
}

TEST(SolveRepair, AFullDiagonalIsNeverChanged)
{
    const System s = apitest::convDiff(4, false);
    const SolveRun run = solveWith(s, "TRACE 1\nSOLVER 0\nREV_DIAGZERO 2\n");
    EXPECT_EQ(run.result, 1);
    EXPECT_EQ(run.out.find("Rev diag zero"), std::string::npos);
}

// ---- Diagonal scaling ------------------------------------------------------------------------

TEST(SolveScaling, ScaledSolveMapsBackAndLeavesAAndBAsTheyWere)
{
    const System s = apitest::convDiff(8, false);
    for (int solver : {0, 10}) {
        TempDir dir;
        KwilHandle* h = kwiltest::makeHandle(dir, "TRACE 1\nDIAG_SCALE 1\nSOLVER " +
                                                      std::to_string(solver) + "\n");
        apitest::load(h, s);
        Capture cap;
        EXPECT_EQ(kwilSolv(h), 1);
        cap.take();
        EXPECT_EQ(cap.err(), "");
        EXPECT_TRUE(contains(cap.outLines(), "KWILTRC: Analyse in diag scale data type real"));
        EXPECT_LE(apitest::relResidual(s, apitest::getX(h)), 1e-9);
        EXPECT_EQ(apitest::getB(h), s.b);
        // A holds the same values as loaded (now in row order).
        std::vector<apitest::Entry> loaded;
        for (int p = 0; p < s.nnz(); ++p)
            loaded.push_back({s.row[p], s.col[p], s.val[p]});
        std::sort(loaded.begin(), loaded.end(), [](const auto& a, const auto& b) {
            return a.row != b.row ? a.row < b.row : a.col < b.col;
        });
        EXPECT_EQ(apitest::getEntries(h), loaded);
        kwilTerm(h);
    }
}

TEST(SolveScaling, RefusedScalingSolvesUnscaled)
{
    SolveRun run = solveWith(apitest::convDiff(4, true), "TRACE 1\nDIAG_SCALE 1\nSOLVER 10\n");
    EXPECT_EQ(run.result, 1);
    EXPECT_EQ(run.err, "KWILWRN: Not real data in diag scale begin\n");
    EXPECT_EQ(run.out.find("Analyse in diag scale"), std::string::npos);

    const System neg = apitest::tridiag(6, 1.0, -3.0, 1.0, false);
    run = solveWith(neg, "DIAG_SCALE 1\nSOLVER 10\n");
    EXPECT_EQ(run.result, 1);
    EXPECT_EQ(run.err, "KWILWRN: Too small diag in diag scale begin\n");
    EXPECT_LE(apitest::backwardError(neg, run.x), 1e-15);
}
