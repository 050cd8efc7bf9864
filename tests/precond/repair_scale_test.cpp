// Zero-diagonal repair and symmetric diagonal scaling.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>

#include "precond/precond.h"
#include "precond_util.h"
#include "support/support.h"
#include "sweep_lines.h"

using kwiltest::Capture;
using namespace prectest;

namespace {

void expectEntries(const ComLinMat& a, const std::vector<Entry>& want)
{
    const auto e = entries(a);
    ASSERT_EQ(e.size(), want.size());
    for (size_t p = 0; p < e.size(); ++p) {
        EXPECT_EQ(e[p].row, want[p].row) << p;
        EXPECT_EQ(e[p].col, want[p].col) << p;
        EXPECT_EQ(e[p].v, want[p].v) << p;
    }
}

} // namespace

TEST(RevDiagZero, FullDiagonalLeavesTheMatrixAndTracesNothing)
{
    TestHandle th;
    th.intOpt[OPT_TRACE] = 1;
    const std::vector<Entry> e = {{2, 2, 5.0}, {1, 2, 1.0}, {1, 1, -3.0}};
    Mat a = coo(2, e, false);
    Capture cap;
    Vec d(comToolRevDiagZero(th.get(), a.get()));
    cap.take();
    ASSERT_NE(d, nullptr);
    EXPECT_EQ(cap.out(), "");
    EXPECT_EQ(cap.err(), "");
    expectEntries(*a, e);
    EXPECT_EQ(values(*d), (std::vector<Cplx>{-3.0, 5.0}));
}

TEST(RevDiagZero, InsertsTheMissingDiagonalAndTheResetRestoresZeros)
{
    TestHandle th;
    th.intOpt[OPT_TRACE] = 1;
    Mat a = coo(3, {{1, 1, 2.0}, {2, 3, 5.0}, {3, 2, 7.0}}, false);
    Capture cap;
    ComLinVec* d = comToolRevDiagZero(th.get(), a.get());
    cap.take();
    ASSERT_NE(d, nullptr);
    EXPECT_EQ(cap.outLines(), std::vector<std::string>{"KWILTRC: Rev diag zero 2 1.0000e-12"});
    expectEntries(*a, {{1, 1, 2.0}, {2, 3, 5.0}, {3, 2, 7.0}, {2, 2, 1e-12}, {3, 3, 1e-12}});
    EXPECT_EQ(values(*d), (std::vector<Cplx>{2.0, 0.0, 0.0}));
    // The driver sorts and compresses A before the reset.
    ASSERT_EQ(comLinMatChangeType(th.get(), a.get(), MAT_CSR), 1);
    comToolResetRevDiagZero(th.get(), a.get(), d);
    EXPECT_EQ(a->dataNum, 5);
    expectEntries(*a, {{1, 1, 2.0}, {2, 2, 0.0}, {2, 3, 5.0}, {3, 2, 7.0}, {3, 3, 0.0}});
}

TEST(RevDiagZero, ComplexKeepsBothPartsAndUsesTheOptionValue)
{
    TestHandle th;
    th.intOpt[OPT_TRACE] = 1;
    th.dblOpt[OPT_REV_DIAGZERO_VAL] = 0.25;
    Mat a = coo(2, {{2, 2, Cplx(1.5, -2.5)}, {1, 2, Cplx(0.0, 1.0)}}, true);
    Capture cap;
    ComLinVec* d = comToolRevDiagZero(th.get(), a.get());
    cap.take();
    ASSERT_NE(d, nullptr);
    EXPECT_EQ(cap.outLines(), std::vector<std::string>{"KWILTRC: Rev diag zero 1 2.5000e-01"});
    expectEntries(*a, {{2, 2, Cplx(1.5, -2.5)}, {1, 2, Cplx(0.0, 1.0)}, {1, 1, Cplx(0.25, 0.0)}});
    EXPECT_EQ(values(*d), (std::vector<Cplx>{0.0, Cplx(1.5, -2.5)}));
    // The reset works on any form: here the coordinate form it was left in.
    a->compData[1] = 9.0; // the solve may have changed values
    comToolResetRevDiagZero(th.get(), a.get(), d);
    expectEntries(*a, {{2, 2, Cplx(1.5, -2.5)}, {1, 2, Cplx(0.0, 1.0)}, {1, 1, Cplx(0.0, 0.0)}});
}

TEST(RevDiagZero, DuplicateDiagonalEntriesCountTheirRowOnce)
{
    TestHandle th;
    // Row 1 twice, rows 2 and 3 missing: both missing rows are repaired (the sort rejects the
    // duplicate later).
    Mat a = coo(3, {{1, 1, 1.0}, {1, 1, 2.0}}, false);
    Capture cap;
    Vec d(comToolRevDiagZero(th.get(), a.get()));
    cap.take();
    ASSERT_NE(d, nullptr);
    expectEntries(*a, {{1, 1, 1.0}, {1, 1, 2.0}, {2, 2, 1e-12}, {3, 3, 1e-12}});
    EXPECT_EQ(values(*d), (std::vector<Cplx>{2.0, 0.0, 0.0}));
}

TEST(RevDiagZero, EmptyMatrixGainsTheWholeDiagonal)
{
    TestHandle th;
    Mat a = coo(2, {}, false);
    Vec d(comToolRevDiagZero(th.get(), a.get()));
    ASSERT_NE(d, nullptr);
    expectEntries(*a, {{1, 1, 1e-12}, {2, 2, 1e-12}});
}

TEST(RevDiagZero, AllocationFailuresLeaveTheMatrixAndLeakNothing)
{
    TestHandle th;
    const std::vector<Entry> e = {{1, 1, 2.0}, {2, 3, 5.0}, {3, 2, 7.0}};
    for (bool complex : {false, true}) {
        // Fresh inputs made beforehand, so that only the routine's own allocations are counted.
        std::vector<Mat> inputs;
        for (int k = 0; k < 64; ++k)
            inputs.push_back(coo(3, e, complex));
        size_t next = 0;
        const long points = sweepWithLines(
            [&] {
                ComLinMat* a = inputs.at(next++).get();
                Vec d(comToolRevDiagZero(th.get(), a));
                if (d == nullptr) {
                    const auto got = entries(*a);
                    EXPECT_EQ(got.size(), e.size());
                    EXPECT_EQ(a->dataNum, 3);
                }
                return d != nullptr;
            },
            {"KWILERR: Alloc error in rev diag zero",
             "KWILERR: Matrix allocate error in rev diag zero"});
        EXPECT_GE(points, 6);
    }
}

TEST(RevDiagZeroDeath, CompressedFormIsAnInvariantViolation)
{
    TestHandle th;
    Mat a = csr(1, {{1, 1, 1.0}}, false);
    EXPECT_EXIT(comToolRevDiagZero(th.get(), a.get()), testing::ExitedWithCode(255),
                "KWILASR: Invalid type 2 in rev diag zero\n");
}

TEST(DiagScale, TwoByTwoScalesToUnitDiagonal)
{
    TestHandle th;
    Mat a = csr(2, {{1, 1, 4.0}, {1, 2, 2.0}, {2, 1, 2.0}, {2, 2, 9.0}}, false);
    Vec b = vec({2.0, 3.0}, false);
    ComLinMat* as = nullptr;
    ComLinVec* bs = nullptr;
    ComLinVec* s = nullptr;
    Capture cap;
    ASSERT_EQ(comToolSetDiagScale(th.get(), a.get(), &as, b.get(), &bs, &s), 1);
    cap.take();
    EXPECT_EQ(cap.err(), "");
    EXPECT_EQ(as->type, MAT_CSR);
    EXPECT_EQ(values(*s), (std::vector<Cplx>{0.5, 1.0 / 3.0}));
    EXPECT_EQ(values(*bs), (std::vector<Cplx>{1.0, 1.0}));
    const auto d = dense(*as);
    EXPECT_EQ(d[0], 1.0);
    EXPECT_EQ(d[3], 1.0);
    EXPECT_DOUBLE_EQ(d[1].real(), 1.0 / 3.0);
    EXPECT_EQ(d[1], d[2]);
    // The scaled system's solution y = (1/2, 1/2) maps back to x = (1/4, 1/6).
    Vec x = vec({0.5, 0.5}, false);
    comToolResetDiagScale(th.get(), as, bs, s, x.get());
    EXPECT_EQ(values(*x), (std::vector<Cplx>{0.25, 0.5 / 3.0}));
}

TEST(DiagScale, RoundTripLeavesAAndBBitForBitAndMapsXBack)
{
    TestHandle th;
    Mat a = randomCsr(7, 40, 0.2, 2.0, false);
    Mat a0 = randomCsr(7, 40, 0.2, 2.0, false);
    Vec b = vec(std::vector<Cplx>(40, 0.3), false);
    Vec b0 = vec(std::vector<Cplx>(40, 0.3), false);
    ComLinMat* as = nullptr;
    ComLinVec* bs = nullptr;
    ComLinVec* s = nullptr;
    ASSERT_EQ(comToolSetDiagScale(th.get(), a.get(), &as, b.get(), &bs, &s), 1);
    EXPECT_TRUE(sameBits(*a, *a0));
    EXPECT_EQ(values(*b), values(*b0));
    // Check S A S entry by entry and bs = S b; keep s to map y back.
    const auto sv = values(*s);
    const auto ad = dense(*a), asd = dense(*as);
    for (int i = 0; i < 40; ++i) {
        EXPECT_EQ(sv[i].real(), 1.0 / std::sqrt(ad[i * 41].real()));
        EXPECT_NEAR(asd[i * 41].real(), 1.0, 1e-15);
        for (int j = 0; j < 40; ++j) {
            EXPECT_EQ(asd[i * 40 + j], (sv[j] * sv[i]) * ad[i * 40 + j]);
        }
        EXPECT_EQ(values(*bs)[i], sv[i] * 0.3);
    }
    std::vector<Cplx> y(40);
    for (int i = 0; i < 40; ++i)
        y[i] = 0.1 * (i + 1);
    Vec x = vec(y, false);
    comToolResetDiagScale(th.get(), as, bs, s, x.get());
    const auto xv = values(*x);
    for (int i = 0; i < 40; ++i)
        EXPECT_EQ(xv[i], sv[i] * y[i]);
    EXPECT_TRUE(sameBits(*a, *a0));
    EXPECT_EQ(values(*b), values(*b0));
}

TEST(DiagScale, DiagonalMatrixSolvesThroughTheScaledSystem)
{
    TestHandle th;
    const std::vector<double> dv = {4.0, 0.25, 2.0, 1e-300};
    const std::vector<double> bv = {1.0, -2.0, 3.0, 1e-300};
    std::vector<Entry> e;
    for (int i = 0; i < 4; ++i)
        e.push_back({i + 1, i + 1, dv[i]});
    Mat a = csr(4, e, false);
    Vec b = vec({bv[0], bv[1], bv[2], bv[3]}, false);
    ComLinMat* as = nullptr;
    ComLinVec* bs = nullptr;
    ComLinVec* s = nullptr;
    ASSERT_EQ(comToolSetDiagScale(th.get(), a.get(), &as, b.get(), &bs, &s), 1);
    for (const Entry& x : entries(*as))
        EXPECT_NEAR(x.v.real(), 1.0, 1e-15);
    const auto bsv = values(*bs);
    for (int i = 0; i < 4; ++i)
        EXPECT_NEAR(bsv[i].real(), bv[i] / std::sqrt(dv[i]), 1e-15 * std::fabs(bsv[i].real()));
    Vec x = vec({bsv[0], bsv[1], bsv[2], bsv[3]}, false); // y = bs solves the identity
    comToolResetDiagScale(th.get(), as, bs, s, x.get());
    const auto xv = values(*x);
    for (int i = 0; i < 4; ++i)
        EXPECT_NEAR(xv[i].real(), bv[i] / dv[i], 1e-15 * std::fabs(bv[i] / dv[i]));
}

TEST(DiagScale, ComplexMatrixIsRefusedWithAWarning)
{
    TestHandle th;
    Mat a = csr(1, {{1, 1, Cplx(4.0, 0.0)}}, true);
    Vec b = vec({1.0}, true);
    ComLinMat* as = nullptr;
    ComLinVec* bs = nullptr;
    ComLinVec* s = nullptr;
    const long live = comTestLiveAllocs();
    Capture cap;
    EXPECT_EQ(comToolSetDiagScale(th.get(), a.get(), &as, b.get(), &bs, &s), 0);
    cap.take();
    EXPECT_EQ(cap.errLines(),
              std::vector<std::string>{"KWILWRN: Not real data in diag scale begin"});
    EXPECT_EQ(as, nullptr);
    EXPECT_EQ(comTestLiveAllocs(), live);
}

TEST(DiagScale, NonPositiveTinyOrMissingDiagonalIsRefused)
{
    TestHandle th;
    const std::vector<std::vector<Entry>> cases = {
        {{1, 1, 1.0}, {2, 2, -1.0}},
        {{1, 1, 1.0}, {2, 2, 0.0}},
        {{1, 1, 1.0}, {2, 2, DBL_MIN}},
        {{1, 1, 1.0}, {2, 1, 3.0}}, // row 2 stores no diagonal entry
        {{1, 1, 1.0}},              // row 2 stores nothing
        // Every diagonal entry of a row is checked, not only the first one.
        {{1, 1, 1.0}, {2, 2, 4.0}, {2, 2, -1.0}},
    };
    for (const auto& e : cases) {
        Mat a = csr(2, e, false);
        Vec b = vec({1.0, 1.0}, false);
        ComLinMat* as = nullptr;
        ComLinVec* bs = nullptr;
        ComLinVec* s = nullptr;
        const long live = comTestLiveAllocs();
        Capture cap;
        EXPECT_EQ(comToolSetDiagScale(th.get(), a.get(), &as, b.get(), &bs, &s), 0);
        cap.take();
        EXPECT_EQ(cap.errLines(),
                  std::vector<std::string>{"KWILWRN: Too small diag in diag scale begin"});
        EXPECT_EQ(comTestLiveAllocs(), live);
        EXPECT_EQ(as, nullptr);
        EXPECT_EQ(bs, nullptr);
        EXPECT_EQ(s, nullptr);
    }
    // The smallest accepted diagonal lies just above DBL_MIN.
    Mat a = csr(1, {{1, 1, std::nextafter(DBL_MIN, 1.0)}}, false);
    Vec b = vec({1.0}, false);
    ComLinMat* as = nullptr;
    ComLinVec* bs = nullptr;
    ComLinVec* s = nullptr;
    ASSERT_EQ(comToolSetDiagScale(th.get(), a.get(), &as, b.get(), &bs, &s), 1);
    Vec x = vec({1.0}, false);
    comToolResetDiagScale(th.get(), as, bs, s, x.get());
}

TEST(DiagScale, AllocationFailuresReleaseEverything)
{
    TestHandle th;
    Mat a = csr(2, {{1, 1, 4.0}, {1, 2, 2.0}, {2, 1, 2.0}, {2, 2, 9.0}}, false);
    Vec b = vec({2.0, 3.0}, false);
    Vec x = vec({1.0, 1.0}, false);
    const long points = sweepWithLines(
        [&] {
            ComLinMat* as = nullptr;
            ComLinVec* bs = nullptr;
            ComLinVec* s = nullptr;
            if (comToolSetDiagScale(th.get(), a.get(), &as, b.get(), &bs, &s) == 0) {
                EXPECT_EQ(as, nullptr);
                return false;
            }
            comToolResetDiagScale(th.get(), as, bs, s, x.get());
            return true;
        },
        {"KWILERR: Alloc error in diag scale begin",
         "KWILERR: Alloc coef and fix error in diag scale begin"});
    EXPECT_GE(points, 6);
}

TEST(DiagScaleDeath, SizeMismatchIsAnInvariantViolation)
{
    TestHandle th;
    Mat a = csr(2, {{1, 1, 1.0}, {2, 2, 1.0}}, false);
    Vec b = vec({1.0}, false);
    ComLinMat* as = nullptr;
    ComLinVec* bs = nullptr;
    ComLinVec* s = nullptr;
    EXPECT_EXIT(comToolSetDiagScale(th.get(), a.get(), &as, b.get(), &bs, &s),
                testing::ExitedWithCode(255), "KWILASR: Data size unmatch in diag scale begin\n");
}
