// kwilCheckResult: the residual of whatever x the handle holds, against CHECK_RESULT_LIM.
#include <gtest/gtest.h>
#include <omp.h>

#include <string>
#include <vector>

#include "api/kwil.h"
#include "api_util.h"
#include "support/support.h"

using apitest::Cplx;
using apitest::System;
using kwiltest::Capture;
using kwiltest::TempDir;

namespace {

class CheckResult : public ::testing::Test {
  protected:
    void SetUp() override { h = kwiltest::makeHandle(dir, "SOLVER 10\n"); }
    void TearDown() override { kwilTerm(h); }
    // The 1 x 1 system 1 x = 1000 with the given x: relative norm |x - 1000| / 1000.
    void scalar(double x)
    {
        ASSERT_EQ(kwilMatCoefCreate(h, 0, 1, 1), 1);
        ASSERT_EQ(kwilMatCoefSet(h, 0, 0, 0, 1.0, 0.0, 0), 1);
        ASSERT_EQ(kwilVecFixCreate(h, 0, 1, 1000.0, 0.0), 1);
        ASSERT_EQ(kwilVecVarCreate(h, 0, 1, x, 0.0), 1);
    }
    int check()
    {
        Capture c;
        const int r = kwilCheckResult(h, &rel, &abs);
        c.take();
        out = c.out();
        err = c.err();
        return r;
    }
    TempDir dir;
    KwilHandle* h = nullptr;
    double rel = -1.0, abs = -1.0;
    std::string out, err;
};

TEST_F(CheckResult, AnExactSolutionHasZeroNorms)
{
    // Integer data: A (1, 2, 3) is exact.
    ASSERT_EQ(kwilMatCoefCreate(h, 0, 3, 5), 1);
    ASSERT_EQ(kwilMatCoefSet(h, 0, 0, 0, 2.0, 0.0, 0), 1);
    ASSERT_EQ(kwilMatCoefSet(h, 0, 2, 1, 1.0, 0.0, 0), 1);
    ASSERT_EQ(kwilMatCoefSet(h, 1, 1, 2, 3.0, 0.0, 0), 1);
    ASSERT_EQ(kwilMatCoefSet(h, 2, 0, 3, -1.0, 0.0, 0), 1);
    ASSERT_EQ(kwilMatCoefSet(h, 2, 2, 4, 4.0, 0.0, 0), 1);
    ASSERT_EQ(kwilVecFixCreate(h, 0, 3, 0.0, 0.0), 1);
    const double b[3] = {5.0, 6.0, 11.0};
    ASSERT_EQ(kwilVecVarCreate(h, 0, 3, 0.0, 0.0), 1);
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(kwilVecFixSet(h, i, b[i], 0.0), 1);
        ASSERT_EQ(kwilVecVarSet(h, i, i + 1.0, 0.0), 1);
    }
    ASSERT_EQ(kwilSetOpt(h, "TRACE", 1, 1, 0.0), 1);
    EXPECT_EQ(check(), 1);
    EXPECT_EQ(rel, 0.0);
    EXPECT_EQ(abs, 0.0);
    EXPECT_EQ(out, "KWILTRC: Check solver result norm rel 0.0000e+00 abs 0.0000e+00\n");
    EXPECT_EQ(err, "");
}

TEST_F(CheckResult, ANormEqualToTheLimitPassesAndALargerOneFails)
{
    scalar(999.0); // rel = 1 / 1000, the default limit exactly
    EXPECT_EQ(check(), 1) << err;
    EXPECT_EQ(rel, 0.001);
    EXPECT_EQ(abs, 1.0);

    scalar(998.0);
    EXPECT_EQ(check(), 0);
    EXPECT_EQ(err, "KWILERR: Limit 1.0000e-03 over error in check result norm rel 2.0000e-03 abs "
                   "2.0000e+00\n");
    EXPECT_EQ(rel, 0.002); // delivered all the same
    EXPECT_EQ(abs, 2.0);
}

TEST_F(CheckResult, ALimitNotAboveTheSmallestNormalDoubleIsOff)
{
    scalar(-5000.0); // rel = 6
    for (double limit : {0.0, -1.0, 1e-310}) {
        ASSERT_EQ(kwilSetOpt(h, "CHECK_RESULT_LIM", 0, 0, limit), 1);
        EXPECT_EQ(check(), 1) << limit;
        EXPECT_EQ(rel, 6.0);
        EXPECT_EQ(err, "");
    }
    ASSERT_EQ(kwilSetOpt(h, "CHECK_RESULT_LIM", 0, 0, 1e-300), 1);
    EXPECT_EQ(check(), 0);
    EXPECT_EQ(err, "KWILERR: Limit 1.0000e-300 over error in check result norm rel 6.0000e+00 abs "
                   "6.0000e+03\n");
}

TEST_F(CheckResult, MissingDataAndSizesAreReported)
{
    EXPECT_EQ(check(), 0);
    EXPECT_EQ(err, "KWILERR: No data in check result\n");
    scalar(1.0);
    ASSERT_EQ(kwilVecVarCreate(h, 0, 2, 0.0, 0.0), 1);
    EXPECT_EQ(check(), 0);
    EXPECT_EQ(err, "KWILERR: Size unmatch in check result\n");
    ASSERT_EQ(kwilVecFixCreate(h, 0, 3, 0.0, 0.0), 1);
    ASSERT_EQ(kwilVecVarCreate(h, 0, 1, 0.0, 0.0), 1);
    EXPECT_EQ(check(), 0);
    EXPECT_EQ(err, "KWILERR: Size unmatch in check result\n");
    EXPECT_EQ(rel, -1.0); // never written on failure
    EXPECT_EQ(abs, -1.0);
}

TEST_F(CheckResult, AnUnsetSlotIsReportedInCoordinateForm)
{
    ASSERT_EQ(kwilMatCoefCreate(h, 0, 2, 2), 1);
    ASSERT_EQ(kwilMatCoefSet(h, 0, 0, 0, 1.0, 0.0, 0), 1);
    ASSERT_EQ(kwilVecFixCreate(h, 0, 2, 1.0, 0.0), 1);
    ASSERT_EQ(kwilVecVarCreate(h, 0, 2, 1.0, 0.0), 1);
    EXPECT_EQ(check(), 0);
    EXPECT_EQ(err, "KWILERR: Lack of coef mat data in check result\n");
    // Nothing was converted: a plain set still works.
    ASSERT_EQ(kwilMatCoefSet(h, 1, 1, 1, 1.0, 0.0, 0), 1);
    EXPECT_EQ(check(), 1);
    EXPECT_EQ(rel, 0.0);
}

TEST_F(CheckResult, DuplicateEntriesFailTheConversionAfterTheCleanUp)
{
    ASSERT_EQ(kwilMatCoefCreate(h, 0, 2, 4), 1);
    ASSERT_EQ(kwilMatCoefSet(h, 0, 0, 0, 1.0, 0.0, 0), 1);
    ASSERT_EQ(kwilMatCoefSet(h, 1, 0, 1, 0.0, 0.0, 0), 1); // vanishing: removed
    ASSERT_EQ(kwilMatCoefSet(h, 1, 1, 2, 1.0, 0.0, 0), 1);
    ASSERT_EQ(kwilMatCoefSet(h, 0, 0, 3, 2.0, 0.0, 0), 1); // (0, 0) a second time
    ASSERT_EQ(kwilVecFixCreate(h, 0, 2, 1.0, 0.0), 1);
    ASSERT_EQ(kwilVecVarCreate(h, 0, 2, 1.0, 0.0), 1);
    EXPECT_EQ(check(), 0);
    EXPECT_EQ(err, "KWILERR: Dupulicate data error in matrix sort\n"
                   "KWILERR: Change mat type error in check result\n");
    EXPECT_EQ(rel, -1.0); // no norms without a residual
    EXPECT_EQ(apitest::dataNum(h), 3);
}

TEST_F(CheckResult, RealVectorsArePromotedForAComplexMatrix)
{
    ASSERT_EQ(kwilMatCoefCreate(h, 1, 2, 2), 1);
    ASSERT_EQ(kwilMatCoefSet(h, 0, 0, 0, 0.0, 2.0, 0), 1);
    ASSERT_EQ(kwilMatCoefSet(h, 1, 1, 1, 3.0, 0.0, 0), 1);
    ASSERT_EQ(kwilVecFixCreate(h, 0, 2, 0.0, 0.0), 1);
    ASSERT_EQ(kwilVecFixSet(h, 1, 3.0, 0.0), 1); // b = (0, 3), real
    ASSERT_EQ(kwilVecVarCreate(h, 0, 2, 0.0, 0.0), 1);
    ASSERT_EQ(kwilVecVarSet(h, 1, 1.0, 0.0), 1); // x = (0, 1), real
    EXPECT_EQ(check(), 1) << err;
    EXPECT_EQ(rel, 0.0);
    int comp = -1, n = 0;
    ASSERT_EQ(kwilVecFixInfo(h, &comp, &n), 1);
    EXPECT_EQ(comp, 1);
    ASSERT_EQ(kwilVecVarInfo(h, &comp, &n), 1);
    EXPECT_EQ(comp, 1);
    EXPECT_EQ(apitest::getX(h), (std::vector<Cplx>{0.0, 1.0}));
}

TEST_F(CheckResult, AComplexVectorWithARealMatrixIsRefused)
{
    scalar(1000.0);
    ASSERT_EQ(kwilVecFixCreate(h, 1, 1, 1000.0, 0.0), 1);
    EXPECT_EQ(check(), 0);
    EXPECT_EQ(err, "KWILERR: Data type unmatch in check result\n");
    // A complex x is refused after a real b passed.
    ASSERT_EQ(kwilVecFixCreate(h, 0, 1, 1000.0, 0.0), 1);
    ASSERT_EQ(kwilVecVarCreate(h, 1, 1, 1000.0, 0.0), 1);
    EXPECT_EQ(check(), 0);
    EXPECT_EQ(err, "KWILERR: Data type unmatch in check result\n");
}

TEST_F(CheckResult, AfterASolveTheCompressedMatrixIsUsedAsItIs)
{
    const System s = apitest::convDiff(5, true);
    apitest::load(h, s);
    ASSERT_EQ(kwilSolv(h), 1);
    EXPECT_EQ(check(), 1) << err;
    EXPECT_LE(rel, 1e-14);
    EXPECT_NEAR(abs, rel * apitest::norm2(s.b), 1e-15 * apitest::norm2(s.b));
    // Still compressed: a set without the restore flag is refused.
    Capture cap;
    EXPECT_EQ(kwilMatCoefSet(h, 0, 0, 0, 1.0, 0.0, 0), 0);
}

TEST_F(CheckResult, AfterARestoreFlagSetTheMatrixIsConvertedAndCleanedAgain)
{
    const System s = apitest::tridiag(4, -1.0, 4.0, -1.0, false);
    apitest::load(h, s);
    ASSERT_EQ(kwilSolv(h), 1);
    ASSERT_EQ(apitest::dataNum(h), 10);
    // Entry 1 in row order is (0, 1): set it to zero. The check removes it and measures the
    // residual of the changed matrix: row 0 of A x - b changes by +1.
    const std::vector<apitest::Entry> e = apitest::getEntries(h);
    ASSERT_EQ(e[1].row, 0);
    ASSERT_EQ(e[1].col, 1);
    ASSERT_EQ(kwilMatCoefSet(h, 0, 1, 1, 0.0, 0.0, 1), 1);
    EXPECT_EQ(check(), 0); // |r| = 1 against |b| = sqrt(4 + 4 + 9 + 9)
    EXPECT_NEAR(abs, 1.0, 1e-14);
    EXPECT_NEAR(rel, 1.0 / std::sqrt(26.0), 1e-14);
    EXPECT_EQ(apitest::dataNum(h), 9);
}

TEST_F(CheckResult, TheThreadCountIsRestored)
{
    const int before = omp_get_max_threads();
    omp_set_num_threads(1);
    ASSERT_EQ(kwilSetOpt(h, "THREADS", 1, 2, 0.0), 1);
    scalar(998.0);
    EXPECT_EQ(check(), 0);
    EXPECT_EQ(omp_get_max_threads(), 1);
    scalar(1000.0);
    EXPECT_EQ(check(), 1);
    EXPECT_EQ(omp_get_max_threads(), 1);
    omp_set_num_threads(before);
}

TEST_F(CheckResult, NullOutParametersAreAllowed)
{
    scalar(999.0);
    Capture cap;
    EXPECT_EQ(kwilCheckResult(h, nullptr, nullptr), 1);
}

} // namespace
