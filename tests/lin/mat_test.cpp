// The sparse matrix record: creation, iteration, bounds checks, copy, exchange and trace.
#include <gtest/gtest.h>

#include "lin_util.h"
#include "support/support.h"

using kwiltest::Capture;
using lintest::FakeHandle;
using lintest::makeCoo;
using lintest::MatPtr;

TEST(MatCreate, ArraysFollowTheForm)
{
    MatPtr coo(comLinMatCreate(nullptr, MAT_COO, LIN_REAL, 4, 9));
    ASSERT_NE(coo.get(), nullptr);
    EXPECT_EQ(coo->type, MAT_COO);
    EXPECT_EQ(coo->size, 4);
    EXPECT_EQ(coo->dataNum, 9);
    EXPECT_EQ(matRowDataNum(nullptr, coo.get(), MAT_COO), 9);
    EXPECT_EQ(matRowDataNum(nullptr, coo.get(), MAT_SORTED), 9);
    EXPECT_EQ(matRowDataNum(nullptr, coo.get(), MAT_CSR), 5);
    EXPECT_NE(coo->realData, nullptr);
    EXPECT_EQ(coo->compData, nullptr);
    MatPtr csr(comLinMatCreate(nullptr, MAT_CSR, LIN_COMP, 4, 2));
    ASSERT_NE(csr.get(), nullptr);
    EXPECT_EQ(csr->dataType, LIN_COMP);
    EXPECT_EQ(csr->realData, nullptr);
    EXPECT_NE(csr->compData, nullptr);
    csr->row[4] = 3; // size+1 pointers are writable (checked by the sanitizer build)
}

TEST(MatCreate, EachFailedAllocationHasItsLineAndLeaksNothing)
{
    const char* const extra[2][4] = {
        {"Allocation error in matrix create", "Row or col allocation error in matrix create",
         "Row or col allocation error in matrix create",
         "Real data allocation error in matrix create"},
        {"Allocation error in matrix create", "Row or col allocation error in matrix create",
         "Row or col allocation error in matrix create",
         "Comp data allocation error in matrix create"}};
    for (int dt : {LIN_REAL, LIN_COMP}) {
        for (int k = 1; k <= 4; ++k) {
            const long live = comTestLiveAllocs();
            Capture cap;
            comTestFailAlloc(k);
            ComLinMat* m = comLinMatCreate(nullptr, MAT_CSR, dt, 3, 5);
            comTestFailAlloc(0);
            cap.take();
            EXPECT_EQ(m, nullptr);
            EXPECT_EQ(cap.err(), std::string("KWILERR: Allocation error\nKWILERR: ") +
                                     extra[dt][k - 1] + "\n");
            EXPECT_EQ(comTestLiveAllocs(), live);
        }
    }
}

TEST(MatGetNext, CsrIterationFindsRowsFromAnyLowerStart)
{
    MatPtr m(
        makeCoo(LIN_REAL, 5, {{4, 2, {8, 0}}, {1, 1, {1, 0}}, {4, 5, {9, 0}}, {2, 3, {2, 0}}}));
    ASSERT_EQ(comLinMatChangeType(nullptr, m.get(), MAT_CSR), 1);
    int row = 0, col = 0, pos = 0;
    double re = 0.0, im = -1.0;
    ASSERT_EQ(comLinMatGetNext(nullptr, m.get(), &row, &col, &pos, &re, &im, 1), 1);
    EXPECT_EQ(row, 1);
    EXPECT_EQ(col, 1);
    EXPECT_EQ(pos, 0);
    EXPECT_EQ(re, 1.0);
    EXPECT_EQ(im, 0.0);
    EXPECT_FALSE(std::signbit(im));
    // The host hands back 0-based rows (one less than delivered); the scan moves them forward.
    row -= 1;
    ASSERT_EQ(comLinMatGetNext(nullptr, m.get(), &row, &col, &pos, &re, &im, 0), 1);
    EXPECT_EQ(row, 2);
    EXPECT_EQ(col, 3);
    row = 0; // the lowest start of all
    ASSERT_EQ(comLinMatGetNext(nullptr, m.get(), &row, &col, &pos, &re, &im, 0), 1);
    EXPECT_EQ(row, 4);
    EXPECT_EQ(col, 2);
    EXPECT_EQ(pos, 2);
    ASSERT_EQ(comLinMatGetNext(nullptr, m.get(), &row, &col, &pos, &re, &im, 0), 1);
    EXPECT_EQ(row, 4);
    EXPECT_EQ(col, 5);
    EXPECT_EQ(re, 9.0);
    EXPECT_EQ(comLinMatGetNext(nullptr, m.get(), &row, &col, &pos, &re, &im, 0), 0);
    EXPECT_EQ(pos, 4);
    EXPECT_EQ(comLinMatGetNext(nullptr, m.get(), &row, &col, &pos, &re, &im, 0), 0);
    EXPECT_EQ(pos, 4);
}

TEST(MatGetNext, CoordinateFormsDeliverStorageOrderAndComplexParts)
{
    MatPtr m(makeCoo(LIN_COMP, 3, {{3, 1, {1.5, -2.5}}, {1, 2, {0, 4}}}));
    const auto e = lintest::iterate(m.get());
    ASSERT_EQ(e.size(), 2u);
    EXPECT_EQ(e[0].row, 3);
    EXPECT_EQ(e[0].col, 1);
    EXPECT_EQ(e[0].val, lintest::Cplx(1.5, -2.5));
    EXPECT_EQ(e[1].row, 1);
    EXPECT_EQ(e[1].val, lintest::Cplx(0, 4));
}

TEST(MatGetNextDeathTest, UnknownFormIsAContractViolation)
{
    MatPtr m(makeCoo(LIN_REAL, 2, {{1, 1, {1, 0}}}));
    m->type = 3;
    int row = 0, col = 0, pos = 0;
    double re = 0, im = 0;
    EXPECT_EXIT(comLinMatGetNext(nullptr, m.get(), &row, &col, &pos, &re, &im, 1),
                testing::ExitedWithCode(255),
                "^KWILASR: Invalid matrix type in matrix get next\n$");
    m->type = MAT_COO;
}

TEST(MatParamCheck, EachBoundHasItsLineWithTheShownValue)
{
    MatPtr m(makeCoo(LIN_REAL, 3, {{1, 1, {1, 0}}, {2, 2, {1, 0}}}));
    struct Case {
        int pos, row, col;
        const char* line;
    };
    const Case cases[] = {
        {2, 1, 1, "KWILERR: Invalid pos 12 in set coef mat\n"},
        {-1, 1, 1, "KWILERR: Invalid pos 9 in set coef mat\n"},
        {1, 0, 1, "KWILERR: Invalid row 10 in set coef mat\n"},
        {1, 4, 1, "KWILERR: Invalid row 14 in set coef mat\n"},
        {1, 1, 0, "KWILERR: Invalid col 20 in set coef mat\n"},
        {1, 1, 4, "KWILERR: Invalid col 24 in set coef mat\n"},
        {2, 0, 0, "KWILERR: Invalid pos 12 in set coef mat\n"}, // pos is checked first
        {1, 0, 9, "KWILERR: Invalid row 10 in set coef mat\n"}, // then row
    };
    for (const Case& c : cases) {
        Capture cap;
        const int r =
            comLinMatParamCheckDispShift(nullptr, m.get(), c.pos, c.row, c.col, c.pos + 10,
                                         c.row + 10, c.col + 20, "set coef mat");
        cap.take();
        EXPECT_EQ(r, 0);
        EXPECT_EQ(cap.err(), c.line);
    }
    Capture cap;
    EXPECT_EQ(comLinMatParamCheckDispShift(nullptr, m.get(), 1, 3, 3, 0, 0, 0, "x"), 1);
    EXPECT_EQ(comLinMatParamCheck(nullptr, m.get(), 0, 1, 3, "x"), 1);
    EXPECT_EQ(comLinMatParamCheck(nullptr, m.get(), 0, 1, 4, "mat file read"), 0);
    cap.take();
    EXPECT_EQ(cap.err(), "KWILERR: Invalid col 4 in mat file read\n");
}

TEST(MatTrace, PrintsEveryEntryOnOneLineAndObeysTheGate)
{
    MatPtr real(makeCoo(LIN_REAL, 3, {{2, 1, {1.5, 0}}, {1, 3, {-2e-7, 0}}}));
    MatPtr comp(makeCoo(LIN_COMP, 3, {{2, 1, {1.5, -1}}}));
    ASSERT_EQ(comLinMatChangeType(nullptr, comp.get(), MAT_CSR), 1);
    FakeHandle off(0), on(2);
    Capture cap;
    comLinMatTrace(&off.h, real.get(), "hidden");
    comLinMatTrace(&on.h, real.get(), "Matrix %s", "A");
    comLinMatTrace(nullptr, comp.get(), "C");
    cap.take();
    EXPECT_EQ(cap.out(), "KWILTRC: Matrix A\n (2 1 1.5000e+00) (1 3 -2.0000e-07)\n"
                         "KWILTRC: C\n (2 1 1.5000e+00 -1.0000e+00)\n");
    EXPECT_EQ(cap.err(), "");
}

TEST(MatCopy, CopiesFormSizeAndContentsIntoTheDestinationsArrays)
{
    MatPtr src(
        makeCoo(LIN_COMP, 3, {{3, 3, {3, 1}}, {1, 1, {1, 2}}, {2, 3, {2, 3}}, {3, 1, {4, 4}}}));
    ASSERT_EQ(comLinMatChangeType(nullptr, src.get(), MAT_CSR), 1);
    MatPtr dst(comLinMatCreate(nullptr, MAT_COO, LIN_COMP, 7, 4)); // row area 4 = size+1 of src
    int* row = dst->row;
    double* data = dst->compData;
    comLinMatCopy(nullptr, src.get(), dst.get());
    EXPECT_EQ(dst->row, row);
    EXPECT_EQ(dst->compData, data);
    EXPECT_EQ(dst->type, MAT_CSR);
    EXPECT_EQ(dst->size, 3);
    EXPECT_EQ(lintest::rowArray(dst.get()), lintest::rowArray(src.get()));
    for (int p = 0; p < 4; ++p) {
        EXPECT_EQ(dst->col[p], src->col[p]);
        EXPECT_EQ(lintest::valueAt(dst.get(), p), lintest::valueAt(src.get(), p));
    }
}

TEST(MatCopyDeathTest, MismatchesAreContractViolations)
{
    MatPtr a(makeCoo(LIN_REAL, 3, {{1, 1, {1, 0}}, {2, 2, {1, 0}}}));
    MatPtr fewer(comLinMatCreate(nullptr, MAT_COO, LIN_REAL, 3, 1));
    MatPtr comp(comLinMatCreate(nullptr, MAT_COO, LIN_COMP, 3, 2));
    MatPtr csr(comLinMatCreate(nullptr, MAT_CSR, LIN_REAL, 3, 2));
    EXPECT_EXIT(comLinMatCopy(nullptr, a.get(), fewer.get()), testing::ExitedWithCode(255),
                "^KWILASR: Data number unmatch in copy matrix\n$");
    EXPECT_EXIT(comLinMatCopy(nullptr, a.get(), comp.get()), testing::ExitedWithCode(255),
                "^KWILASR: Data type unmatch in copy matrix\n$");
    // A CSR source of order 3 needs 4 row entries; a coordinate destination with 2 has too few.
    csr->row[0] = 1;
    csr->row[1] = 2;
    csr->row[2] = 3;
    csr->row[3] = 3;
    EXPECT_EXIT(comLinMatCopy(nullptr, csr.get(), a.get()), testing::ExitedWithCode(255),
                "^KWILASR: Lack of row data area in copy matrix\n$");
}

TEST(MatSwapInter, ExchangesWholeRecords)
{
    MatPtr a(makeCoo(LIN_REAL, 3, {{1, 1, {1, 0}}}));
    MatPtr b(comLinMatCreate(nullptr, MAT_CSR, LIN_COMP, 5, 2));
    const ComLinMat ca = *a.get();
    const ComLinMat cb = *b.get();
    comLinMatSwapInter(nullptr, a.get(), b.get());
    for (const auto& [x, y] : {std::pair{a.get(), &cb}, std::pair{b.get(), &ca}}) {
        EXPECT_EQ(x->type, y->type);
        EXPECT_EQ(x->size, y->size);
        EXPECT_EQ(x->dataNum, y->dataNum);
        EXPECT_EQ(x->row, y->row);
        EXPECT_EQ(x->col, y->col);
        EXPECT_EQ(x->dataType, y->dataType);
        EXPECT_EQ(x->realData, y->realData);
        EXPECT_EQ(x->compData, y->compData);
    }
}
