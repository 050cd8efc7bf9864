// Storage forms of the sparse matrix: sorting, compression, expansion and their failures.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "lin_util.h"
#include "support/support.h"

using kwiltest::Capture;
using lintest::Cplx;
using lintest::Entry;
using lintest::makeCoo;
using lintest::MatPtr;

namespace {

std::vector<int> cols(const ComLinMat* m)
{
    return std::vector<int>(m->col, m->col + m->dataNum);
}

std::vector<Cplx> vals(const ComLinMat* m)
{
    std::vector<Cplx> v;
    for (int p = 0; p < m->dataNum; ++p)
        v.push_back(lintest::valueAt(m, p));
    return v;
}

bool sameEntries(const std::vector<Entry>& a, const std::vector<Entry>& b)
{
    if (a.size() != b.size())
        return false;
    for (size_t k = 0; k < a.size(); ++k) {
        if (a[k].row != b[k].row || a[k].col != b[k].col || a[k].val != b[k].val)
            return false;
    }
    return true;
}

class Forms : public testing::TestWithParam<int> {}; // the data type

} // namespace

INSTANTIATE_TEST_SUITE_P(RealAndComplex, Forms, testing::Values(LIN_REAL, LIN_COMP));

TEST_P(Forms, ReverseOrderedEntriesSortThenCompress)
{
    const int dt = GetParam();
    MatPtr m(makeCoo(dt, 3, {{3, 3, {4, -4}}, {1, 2, {2, -2}}, {2, 1, {3, -3}}, {1, 1, {1, -1}}}));
    ComLinMat* const identity = m.get();
    ASSERT_EQ(comLinMatChangeType(nullptr, m.get(), MAT_SORTED), 1);
    EXPECT_EQ(m.get(), identity);
    EXPECT_EQ(m->type, MAT_SORTED);
    EXPECT_EQ(lintest::rowArray(m.get()), (std::vector<int>{1, 1, 2, 3}));
    EXPECT_EQ(cols(m.get()), (std::vector<int>{1, 2, 1, 3}));
    const double im = dt == LIN_REAL ? 0.0 : 1.0;
    EXPECT_EQ(vals(m.get()),
              (std::vector<Cplx>{{1, -im}, {2, -2 * im}, {3, -3 * im}, {4, -4 * im}}));
    ASSERT_EQ(comLinMatChangeType(nullptr, m.get(), MAT_CSR), 1);
    EXPECT_EQ(m->type, MAT_CSR);
    EXPECT_EQ(lintest::rowArray(m.get()), (std::vector<int>{1, 3, 4, 5}));
    EXPECT_EQ(cols(m.get()), (std::vector<int>{1, 2, 1, 3}));
}

TEST_P(Forms, EmptyMatrixCompressesToUnitPointersAndIteratesNothing)
{
    const int dt = GetParam();
    MatPtr m(makeCoo(dt, 4, {}));
    ASSERT_EQ(comLinMatChangeType(nullptr, m.get(), MAT_CSR), 1);
    EXPECT_EQ(lintest::rowArray(m.get()), (std::vector<int>{1, 1, 1, 1, 1}));
    int row = 7, col = 7, pos = 7;
    double re = 7, im = 7;
    EXPECT_EQ(comLinMatGetNext(nullptr, m.get(), &row, &col, &pos, &re, &im, 1), 0);
    EXPECT_EQ(pos, 0);
    Capture cap;
    comLinMatTrace(nullptr, m.get(), "Empty %d", 4);
    cap.take();
    EXPECT_EQ(cap.out(), "KWILTRC: Empty 4\n\n");
    ASSERT_EQ(comLinMatChangeType(nullptr, m.get(), MAT_COO), 1);
    EXPECT_EQ(m->dataNum, 0);

    MatPtr none(makeCoo(dt, 0, {}));
    ASSERT_EQ(comLinMatChangeType(nullptr, none.get(), MAT_CSR), 1);
    EXPECT_EQ(lintest::rowArray(none.get()), (std::vector<int>{1}));
}

TEST_P(Forms, EmptyRowsGiveEqualPointersAndTheSameIterationInEveryForm)
{
    const int dt = GetParam();
    // Rows 1, 3 and 6 of 6 are empty.
    MatPtr m(makeCoo(dt, 6,
                     {{5, 6, {6, 1}},
                      {2, 2, {1, 2}},
                      {4, 1, {3, 3}},
                      {5, 1, {5, 4}},
                      {2, 5, {2, 5}},
                      {4, 4, {4, 6}}}));
    ASSERT_EQ(comLinMatChangeType(nullptr, m.get(), MAT_SORTED), 1);
    const auto sorted = lintest::iterate(m.get());
    ASSERT_EQ(sorted.size(), 6u);
    const int expectRow[] = {2, 2, 4, 4, 5, 5};
    const int expectCol[] = {2, 5, 1, 4, 1, 6};
    for (int k = 0; k < 6; ++k) {
        EXPECT_EQ(sorted[k].row, expectRow[k]);
        EXPECT_EQ(sorted[k].col, expectCol[k]);
        EXPECT_EQ(sorted[k].val.real(), k + 1);
    }
    ASSERT_EQ(comLinMatChangeType(nullptr, m.get(), MAT_CSR), 1);
    EXPECT_EQ(lintest::rowArray(m.get()), (std::vector<int>{1, 1, 3, 3, 5, 7, 7}));
    EXPECT_TRUE(sameEntries(lintest::iterate(m.get()), sorted));
    ASSERT_EQ(comLinMatChangeType(nullptr, m.get(), MAT_COO), 1);
    EXPECT_TRUE(sameEntries(lintest::iterate(m.get()), sorted));
}

TEST_P(Forms, RowsOfEveryLengthInAnyOrderSortByColumn)
{
    // Lengths 0..40 cover the gap 11 (lengths above 11) and the short runs; each row is given in
    // descending, then random column order.
    const int dt = GetParam();
    std::mt19937 gen(17);
    for (int shuffle = 0; shuffle < 2; ++shuffle) {
        const int n = 41;
        std::vector<Entry> e;
        for (int r = 1; r <= n; ++r) {
            const int len = r - 1;
            std::vector<int> c;
            for (int k = 0; k < len; ++k)
                c.push_back(n - 3 * k % n);
            std::sort(c.begin(), c.end());
            c.erase(std::unique(c.begin(), c.end()), c.end());
            std::reverse(c.begin(), c.end());
            if (shuffle == 1)
                std::shuffle(c.begin(), c.end(), gen);
            for (int col : c)
                e.push_back({r, col, {1.0 * r * 100 + col, -1.0 * col}});
        }
        std::shuffle(e.begin(), e.end(), gen);
        MatPtr m(makeCoo(dt, n, e));
        ASSERT_EQ(comLinMatChangeType(nullptr, m.get(), MAT_SORTED), 1);
        std::sort(e.begin(), e.end(), [](const Entry& a, const Entry& b) {
            return a.row != b.row ? a.row < b.row : a.col < b.col;
        });
        const auto got = lintest::iterate(m.get());
        ASSERT_EQ(got.size(), e.size());
        for (size_t k = 0; k < e.size(); ++k) {
            EXPECT_EQ(got[k].row, e[k].row) << k;
            EXPECT_EQ(got[k].col, e[k].col) << k;
            EXPECT_EQ(got[k].val.real(), e[k].val.real()) << k;
            EXPECT_EQ(got[k].val.imag(), dt == LIN_REAL ? 0.0 : e[k].val.imag()) << k;
        }
    }
}

TEST_P(Forms, TwelveDescendingColumnsUseGapEleven)
{
    const int dt = GetParam();
    std::vector<Entry> e;
    for (int c = 12; c >= 1; --c)
        e.push_back({1, c, {double(c), 0}});
    MatPtr m(makeCoo(dt, 12, e));
    ASSERT_EQ(comLinMatChangeType(nullptr, m.get(), MAT_CSR), 1);
    EXPECT_EQ(cols(m.get()), (std::vector<int>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}));
    EXPECT_EQ(m->realData != nullptr ? m->realData[11] : m->compData[22], 12.0);
}

TEST_P(Forms, DuplicateEntriesFailAndLeaveBothInSortedForm)
{
    const int dt = GetParam();
    for (int target : {MAT_SORTED, MAT_CSR}) {
        MatPtr m(makeCoo(dt, 3, {{2, 2, {5, 0}}, {1, 1, {1, 0}}, {2, 2, {7, 0}}, {3, 1, {2, 0}}}));
        Capture cap;
        const int r = comLinMatChangeType(nullptr, m.get(), target);
        cap.take();
        EXPECT_EQ(r, 0);
        EXPECT_EQ(cap.err(), "KWILERR: Dupulicate data error in matrix sort\n");
        EXPECT_EQ(cap.out(), "");
        EXPECT_EQ(m->type, MAT_SORTED);
        EXPECT_EQ(lintest::rowArray(m.get()), (std::vector<int>{1, 2, 2, 3}));
        EXPECT_EQ(cols(m.get()), (std::vector<int>{1, 2, 2, 1}));
        // The two duplicates keep their original order.
        EXPECT_EQ(vals(m.get()), (std::vector<Cplx>{1, 5, 7, 2}));
    }
}

TEST_P(Forms, DuplicatesEndInTheOrderTheCombSortLeavesThem)
{
    // The comb sort is not stable, and after a duplicate failure the order of the two equal
    // entries shows which exchanges it made. Values are the initial positions.
    const int dt = GetParam();
    struct Case {
        std::vector<int> cols; // of row 1, in position order
        int col;               // the duplicated column
        std::vector<double> order;
    };
    const Case cases[] = {
        // Length 3: the gap 2 moves position 0 behind position 1; the gap 1 leaves equals alone.
        {{2, 2, 1}, 2, {1, 0}},
        // Length 12: the shrunk gap 9 becomes 11, which carries position 0 to the end; the
        // gap 8 then puts position 2 just before it. A gap of 9 would keep positions 0, 2.
        {{12, 11, 12, 9, 8, 7, 6, 5, 4, 3, 2, 1}, 12, {2, 0}},
    };
    for (const Case& c : cases) {
        std::vector<Entry> e;
        for (size_t p = 0; p < c.cols.size(); ++p)
            e.push_back({1, c.cols[p], {double(p), 0}});
        MatPtr m(makeCoo(dt, 12, e));
        Capture cap;
        const int r = comLinMatChangeType(nullptr, m.get(), MAT_SORTED);
        cap.take();
        EXPECT_EQ(r, 0);
        EXPECT_EQ(cap.err(), "KWILERR: Dupulicate data error in matrix sort\n");
        std::vector<double> order;
        for (int p = 0; p < m->dataNum; ++p) {
            if (m->col[p] == c.col)
                order.push_back(lintest::valueAt(m.get(), p).real());
        }
        EXPECT_EQ(order, c.order) << c.cols.size();
    }
}

TEST_P(Forms, RoundTripsReproduceTheArrays)
{
    const int dt = GetParam();
    MatPtr m(lintest::randomCsr(
        dt, 60, 5, [](int i) { return i % 7; }, false));
    const auto ptr = lintest::rowArray(m.get());
    const auto c = cols(m.get());
    const auto v = vals(m.get());
    const auto seq = lintest::iterate(m.get());
    for (int via : {MAT_SORTED, MAT_COO}) {
        ASSERT_EQ(comLinMatChangeType(nullptr, m.get(), via), 1);
        EXPECT_EQ(m->type, via);
        EXPECT_TRUE(sameEntries(lintest::iterate(m.get()), seq));
        ASSERT_EQ(comLinMatChangeType(nullptr, m.get(), MAT_CSR), 1);
        EXPECT_EQ(lintest::rowArray(m.get()), ptr);
        EXPECT_EQ(cols(m.get()), c);
        EXPECT_EQ(vals(m.get()), v);
    }
}

TEST_P(Forms, RelabelAndSameFormKeepTheArrays)
{
    const int dt = GetParam();
    MatPtr m(makeCoo(dt, 2, {{1, 1, {1, 0}}, {2, 2, {2, 0}}}));
    int* row = m->row;
    ASSERT_EQ(comLinMatChangeType(nullptr, m.get(), MAT_COO), 1);
    EXPECT_EQ(m->row, row);
    ASSERT_EQ(comLinMatChangeType(nullptr, m.get(), MAT_SORTED), 1);
    row = m->row;
    int* col = m->col;
    ASSERT_EQ(comLinMatChangeType(nullptr, m.get(), MAT_SORTED), 1);
    ASSERT_EQ(comLinMatChangeType(nullptr, m.get(), MAT_COO), 1);
    EXPECT_EQ(m->type, MAT_COO);
    EXPECT_EQ(m->row, row);
    EXPECT_EQ(m->col, col);
    ASSERT_EQ(comLinMatChangeType(nullptr, m.get(), MAT_CSR), 1);
    // CSR to sorted form and back: only the row array is replaced.
    col = m->col;
    ASSERT_EQ(comLinMatChangeType(nullptr, m.get(), MAT_SORTED), 1);
    ASSERT_EQ(comLinMatChangeType(nullptr, m.get(), MAT_CSR), 1);
    EXPECT_EQ(m->col, col);
}

TEST(FormsAlloc, SortFailureLeavesTheUnsortedMatrix)
{
    // The sort makes a triple array, two row arrays and a scratch matrix (record, row, col,
    // values); any of them failing leaves form 0 unchanged with one extra line per failure.
    for (int dt : {LIN_REAL, LIN_COMP}) {
        for (long k = 1; k <= 7; ++k) {
            MatPtr m(makeCoo(dt, 3, {{3, 3, {4, 0}}, {1, 2, {2, 0}}, {2, 1, {3, 0}}}));
            const long live = comTestLiveAllocs();
            Capture cap;
            comTestFailAlloc(k);
            const int r = comLinMatChangeType(nullptr, m.get(), MAT_CSR);
            comTestFailAlloc(0);
            cap.take();
            EXPECT_EQ(r, 0);
            std::string create;
            if (k == 4)
                create = "KWILERR: Allocation error in matrix create\n";
            if (k == 5 || k == 6)
                create = "KWILERR: Row or col allocation error in matrix create\n";
            if (k == 7) {
                create = dt == LIN_REAL ? "KWILERR: Real data allocation error in matrix create\n"
                                        : "KWILERR: Comp data allocation error in matrix create\n";
            }
            EXPECT_EQ(cap.err(), "KWILERR: Allocation error\n" + create +
                                     "KWILERR: Allocation error in matrix sort\n")
                << k;
            EXPECT_EQ(comTestLiveAllocs(), live) << k;
            EXPECT_EQ(m->type, MAT_COO);
            EXPECT_EQ(lintest::rowArray(m.get()), (std::vector<int>{3, 1, 2}));
            EXPECT_EQ(cols(m.get()), (std::vector<int>{3, 2, 1}));
        }
    }
}

TEST(FormsAlloc, CompressionFailureLeavesTheSortedMatrix)
{
    MatPtr m(makeCoo(LIN_REAL, 3, {{3, 3, {4, 0}}, {1, 2, {2, 0}}, {2, 1, {3, 0}}}));
    Capture cap;
    comTestFailAlloc(8); // the seven allocations of the sort succeed
    const int r = comLinMatChangeType(nullptr, m.get(), MAT_CSR);
    comTestFailAlloc(0);
    cap.take();
    EXPECT_EQ(r, 0);
    EXPECT_EQ(cap.err(),
              "KWILERR: Allocation error\nKWILERR: Allocation error in matrix change to CSR\n");
    EXPECT_EQ(m->type, MAT_SORTED);
    EXPECT_EQ(lintest::rowArray(m.get()), (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(cols(m.get()), (std::vector<int>{2, 1, 3}));
}

TEST(FormsAlloc, ExpansionFailureLeavesTheCsrMatrix)
{
    for (int to : {MAT_COO, MAT_SORTED}) {
        MatPtr m(makeCoo(LIN_COMP, 3, {{3, 3, {4, 1}}, {1, 2, {2, 1}}}));
        ASSERT_EQ(comLinMatChangeType(nullptr, m.get(), MAT_CSR), 1);
        const long live = comTestLiveAllocs();
        Capture cap;
        comTestFailAlloc(1);
        const int r = comLinMatChangeType(nullptr, m.get(), to);
        comTestFailAlloc(0);
        cap.take();
        EXPECT_EQ(r, 0);
        EXPECT_EQ(cap.err(),
                  "KWILERR: Allocation error\nKWILERR: Allocation error in matrix restore CSR\n");
        EXPECT_EQ(comTestLiveAllocs(), live);
        EXPECT_EQ(m->type, MAT_CSR);
        EXPECT_EQ(lintest::rowArray(m.get()), (std::vector<int>{1, 2, 2, 3}));
    }
}

TEST(FormsAlloc, EveryAllocationOfAFullRoundTripIsChecked)
{
    const long points = kwiltest::sweepAllocFailures([] {
        ComLinMat* m = makeCoo(LIN_COMP, 4, {{4, 1, {1, 1}}, {1, 4, {2, 2}}, {2, 2, {3, 3}}});
        if (m == nullptr)
            return false;
        const bool ok = comLinMatChangeType(nullptr, m, MAT_CSR) == 1 &&
                        comLinMatChangeType(nullptr, m, MAT_SORTED) == 1 &&
                        comLinMatChangeType(nullptr, m, MAT_COO) == 1 &&
                        comLinMatChangeType(nullptr, m, MAT_CSR) == 1 &&
                        comLinMatChangeType(nullptr, m, MAT_COO) == 1;
        comLinMatDelete(nullptr, m);
        return ok;
    });
    EXPECT_GE(points, 4 + 2 * 8 + 2);
}

TEST(FormsDeathTest, ContractViolationsEndTheProcess)
{
    MatPtr coo(makeCoo(LIN_REAL, 2, {{1, 1, {1, 0}}}));
    EXPECT_EXIT(comLinMatChangeType(nullptr, coo.get(), 3), testing::ExitedWithCode(255),
                "^KWILASR: Invalid matrix type in matrix change type\n$");
    EXPECT_EXIT(matChangeCSR(nullptr, coo.get()), testing::ExitedWithCode(255),
                "^KWILASR: Invalid type 0 in matrix change to CSR\n$");
    EXPECT_EXIT(matRestoreCSR(nullptr, coo.get(), MAT_SORTED), testing::ExitedWithCode(255),
                "^KWILASR: Invalid type 0 in matrix restore CSR\n$");
    ASSERT_EQ(comLinMatChangeType(nullptr, coo.get(), MAT_CSR), 1);
    EXPECT_EXIT(matSort(nullptr, coo.get()), testing::ExitedWithCode(255),
                "^KWILASR: Invalid type in matrix sort\n$");
    EXPECT_EXIT(matRestoreCSR(nullptr, coo.get(), MAT_CSR), testing::ExitedWithCode(255),
                "^KWILASR: Invalid type 2 in matrix restore CSR\n$");
    EXPECT_EXIT(comLinMatChangeType(nullptr, coo.get(), -1), testing::ExitedWithCode(255),
                "^KWILASR: Invalid matrix type in matrix change type\n$");
    coo->type = 5; // a form outside the table, requested as itself, is left alone
    EXPECT_EQ(comLinMatChangeType(nullptr, coo.get(), 5), 1);
    EXPECT_EXIT(comLinMatChangeType(nullptr, coo.get(), MAT_COO), testing::ExitedWithCode(255),
                "^KWILASR: Invalid matrix type in matrix change type\n$");
    coo->type = MAT_CSR;
}
