// The coefficient matrix API: creation, shape, setting, the iteration protocol and files.
#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <string>
#include <vector>

#include "api/kwil.h"
#include "common/com.h"
#include "lin/lin.h"
#include "support/support.h"

using kwiltest::Capture;
using kwiltest::TempDir;

namespace {

struct Entry {
    int row, col, pos;
    double re, im;
};

class CoefApi : public testing::Test {
  protected:
    void SetUp() override { h = kwiltest::makeHandle(dir); }
    void TearDown() override { kwilTerm(h); }

    // Every entry by the iteration protocol; checks the end protocol on the way.
    std::vector<Entry> all()
    {
        std::vector<Entry> out;
        int row = 0, col = 0, pos = 0, end = 0;
        double re = 0, im = 0;
        for (int first = 1;; first = 0) {
            EXPECT_EQ(kwilMatCoefGetNext(h, &row, &col, &pos, &re, &im, &end, first), 1);
            if (end != 0)
                break;
            out.push_back({row, col, pos, re, im});
            if (out.size() > 1000)
                break;
        }
        int flag = 0, size = 0, n = 0;
        kwilMatCoefInfo(h, &flag, &size, &n);
        EXPECT_EQ(pos, n);
        return out;
    }

    // A 4x4 matrix with an empty row 2, set in reverse order.
    void fillSample(int flag)
    {
        ASSERT_EQ(kwilMatCoefCreate(h, flag, 4, 4), 1);
        ASSERT_EQ(kwilMatCoefSet(h, 3, 3, 0, 4.0, -4.0, 0), 1);
        ASSERT_EQ(kwilMatCoefSet(h, 2, 0, 1, 3.0, -3.0, 0), 1);
        ASSERT_EQ(kwilMatCoefSet(h, 0, 3, 2, 2.0, -2.0, 0), 1);
        ASSERT_EQ(kwilMatCoefSet(h, 0, 0, 3, 1.0, -1.0, 0), 1);
    }

    // Releases A without allocating anything.
    void dropMatrix()
    {
        comLinMatDelete(h, h->matCoef);
        h->matCoef = nullptr;
    }

    std::string err(const std::function<void()>& fn)
    {
        Capture cap;
        fn();
        cap.take();
        return cap.err();
    }

    TempDir dir;
    KwilHandle* h = nullptr;
};

} // namespace

TEST_F(CoefApi, CreateGivesEmptySlotsAndTheShape)
{
    ASSERT_EQ(kwilMatCoefCreate(h, 0, 3, 2), 1);
    int flag = -1, size = -1, n = -1;
    ASSERT_EQ(kwilMatCoefInfo(h, &flag, &size, &n), 1);
    EXPECT_EQ(flag, 0);
    EXPECT_EQ(size, 3);
    EXPECT_EQ(n, 2);
    const std::vector<Entry> e = all();
    ASSERT_EQ(e.size(), 2u);
    for (int k = 0; k < 2; ++k) { // the stored -1 is delivered as -2
        EXPECT_EQ(e[k].row, -2);
        EXPECT_EQ(e[k].col, -2);
        EXPECT_EQ(e[k].pos, k);
        EXPECT_EQ(e[k].re, 0.0);
        EXPECT_EQ(e[k].im, 0.0);
    }
    ASSERT_EQ(kwilMatCoefCreate(h, 5, 2, 1), 1); // any non-zero flag is complex
    ASSERT_EQ(kwilMatCoefInfo(h, &flag, &size, &n), 1);
    EXPECT_EQ(flag, 1);
    EXPECT_EQ(h->matCoef->compData[0], 0.0);
    EXPECT_EQ(h->matCoef->compData[1], 0.0);
}

TEST_F(CoefApi, NegativeShapes)
{
    // A negative entry count cannot be allocated: the creation's lines, then the API's.
    for (const auto& shape : {std::pair<int, int>{2, -1}, {INT_MIN, INT_MIN}}) {
        kwilMatCoefCreate(h, 0, 2, 2);
        EXPECT_EQ(err([&] { EXPECT_EQ(kwilMatCoefCreate(h, 0, shape.first, shape.second), 0); }),
                  "KWILERR: Allocation error\n"
                  "KWILERR: Allocation error\n"
                  "KWILERR: Row or col allocation error in matrix create\n"
                  "KWILERR: Create error in create coef mat\n");
        EXPECT_EQ(h->matCoef, nullptr); // the old matrix is gone either way
    }
    // A negative size is kept; no entry fits in it, and a solve finds the slots empty.
    ASSERT_EQ(kwilMatCoefCreate(h, 1, -1, 2), 1);
    int flag = 0, size = 0, n = 0;
    ASSERT_EQ(kwilMatCoefInfo(h, &flag, &size, &n), 1);
    EXPECT_EQ(size, -1);
    EXPECT_EQ(n, 2);
    EXPECT_EQ(err([&] { EXPECT_EQ(kwilMatCoefSet(h, 0, 0, 0, 1, 0, 0), 0); }),
              "KWILERR: Invalid row 0 in set coef mat\n");
    ASSERT_EQ(kwilVecFixCreate(h, 1, 1, 1.0, 0.0), 1);
    EXPECT_EQ(err([&] { EXPECT_EQ(kwilSolv(h), 0); }),
              "KWILERR: Lack of coef mat data in solver\n");
}

TEST_F(CoefApi, MissingMatrixMessages)
{
    int a = 0, b = 0, c = 0, end = 0;
    double re = 0, im = 0;
    EXPECT_EQ(err([&] { EXPECT_EQ(kwilMatCoefInfo(h, &a, &b, &c), 0); }),
              "KWILERR: No data in get coef mat info\n");
    EXPECT_EQ(err([&] { EXPECT_EQ(kwilMatCoefSet(h, 0, 0, 0, 1, 0, 1), 0); }),
              "KWILERR: No data in set coef mat\n");
    EXPECT_EQ(err([&] { EXPECT_EQ(kwilMatCoefGetNext(h, &a, &b, &c, &re, &im, &end, 1), 0); }),
              "KWILERR: No data in get next coef mat\n");
    EXPECT_EQ(err([&] { EXPECT_EQ(kwilMatCoefFileWrite(h, "x.mtx"), 0); }),
              "KWILERR: No data in write coef mat file 'x.mtx'\n");
}

TEST_F(CoefApi, SetChecksPositionRowAndColumnInThatOrder)
{
    ASSERT_EQ(kwilMatCoefCreate(h, 0, 3, 3), 1);
    const struct {
        int row, col, pos;
        const char* line;
    } cases[] = {
        {0, 0, 3, "KWILERR: Invalid pos 3 in set coef mat\n"},
        {9, 9, -1, "KWILERR: Invalid pos -1 in set coef mat\n"},
        {3, 9, 0, "KWILERR: Invalid row 3 in set coef mat\n"}, // 0-based values shown
        {-1, 0, 0, "KWILERR: Invalid row -1 in set coef mat\n"},
        {INT_MAX, 0, 0, "KWILERR: Invalid row 2147483647 in set coef mat\n"},
        {0, 3, 0, "KWILERR: Invalid col 3 in set coef mat\n"},
        {0, INT_MAX, 0, "KWILERR: Invalid col 2147483647 in set coef mat\n"},
        {0, INT_MIN, 0, "KWILERR: Invalid col -2147483648 in set coef mat\n"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(err([&] { EXPECT_EQ(kwilMatCoefSet(h, c.row, c.col, c.pos, 1, 0, 1), 0); }),
                  c.line);
    }
    for (const Entry& e : all())
        EXPECT_EQ(e.row, -2); // nothing stored
}

TEST_F(CoefApi, SetStoresOneBasedAndKeepsImaginaryPartsOfComplexOnly)
{
    fillSample(0);
    EXPECT_EQ(h->matCoef->row[1], 3); // stored 1-based
    EXPECT_EQ(h->matCoef->col[1], 1);
    std::vector<Entry> e = all();
    ASSERT_EQ(e.size(), 4u);
    EXPECT_EQ(e[1].row, 2);
    EXPECT_EQ(e[1].col, 0);
    EXPECT_EQ(e[1].re, 3.0);
    EXPECT_EQ(e[1].im, 0.0); // a real matrix ignores the imaginary part
    ASSERT_EQ(kwilMatCoefSet(h, 1, 1, 1, 7.0, 0.0, 0), 1); // the last write wins
    EXPECT_EQ(all()[1].re, 7.0);

    fillSample(1);
    e = all();
    EXPECT_EQ(e[2].re, 2.0);
    EXPECT_EQ(e[2].im, -2.0);
}

TEST_F(CoefApi, SetAfterConversionNeedsTheRestoreFlag)
{
    fillSample(1);
    ASSERT_EQ(comLinMatChangeType(h, h->matCoef, MAT_CSR), 1); // as a solve leaves it
    EXPECT_EQ(err([&] { EXPECT_EQ(kwilMatCoefSet(h, 1, 1, 0, 9, 9, 0), 0); }),
              "KWILERR: Invalid mat type (after solver) in set coef mat\n");
    EXPECT_EQ(h->matCoef->type, MAT_CSR); // nothing changed
    const std::vector<Entry> sorted = all();
    ASSERT_EQ(sorted.size(), 4u);
    EXPECT_EQ(sorted[0].col, 0);
    EXPECT_EQ(sorted[1].col, 3);

    // A bounds failure is reported before the form is looked at.
    EXPECT_EQ(err([&] { EXPECT_EQ(kwilMatCoefSet(h, 4, 1, 0, 9, 9, 1), 0); }),
              "KWILERR: Invalid row 4 in set coef mat\n");
    EXPECT_EQ(h->matCoef->type, MAT_CSR);

    ASSERT_EQ(kwilMatCoefSet(h, 1, 1, 0, 9, 8, 1), 1);
    EXPECT_EQ(h->matCoef->type, MAT_COO);
    const std::vector<Entry> e = all(); // sorted order, entry 0 replaced
    EXPECT_EQ(e[0].row, 1);
    EXPECT_EQ(e[0].col, 1);
    EXPECT_EQ(e[0].re, 9.0);
    EXPECT_EQ(e[0].im, 8.0);
    EXPECT_EQ(e[1].row, 0);
    EXPECT_EQ(e[1].col, 3);
    EXPECT_EQ(e[3].row, 3);

    // From sorted coordinate form the restore is a relabelling.
    ASSERT_EQ(comLinMatChangeType(h, h->matCoef, MAT_SORTED), 1);
    ASSERT_EQ(kwilMatCoefSet(h, 0, 0, 0, 1, 1, 1), 1);
    EXPECT_EQ(h->matCoef->type, MAT_COO);
}

TEST_F(CoefApi, FailedRestoreIsReported)
{
    fillSample(0);
    ASSERT_EQ(comLinMatChangeType(h, h->matCoef, MAT_CSR), 1);
    Capture cap;
    comTestFailAlloc(1);
    EXPECT_EQ(kwilMatCoefSet(h, 1, 1, 0, 9, 9, 1), 0);
    comTestFailAlloc(0);
    cap.take();
    EXPECT_EQ(cap.err(), "KWILERR: Allocation error\n"
                         "KWILERR: Allocation error in matrix restore CSR\n"
                         "KWILERR: Restore mat type error in set coef mat\n");
    EXPECT_EQ(h->matCoef->type, MAT_CSR);
    EXPECT_EQ(all().size(), 4u);
}

TEST_F(CoefApi, GetNextEndProtocol)
{
    ASSERT_EQ(kwilMatCoefCreate(h, 0, 3, 3), 1);
    for (int k = 0; k < 3; ++k)
        ASSERT_EQ(kwilMatCoefSet(h, k, 2 - k, k, k + 0.5, 0, 0), 1);
    int row = 0, col = 0, pos = 77, end = -1;
    double re = 0, im = 0;
    ASSERT_EQ(kwilMatCoefGetNext(h, &row, &col, &pos, &re, &im, &end, 1), 1); // pos ignored
    EXPECT_EQ(pos, 0);
    EXPECT_EQ(end, 0);
    for (int k = 1; k < 3; ++k) {
        ASSERT_EQ(kwilMatCoefGetNext(h, &row, &col, &pos, &re, &im, &end, 0), 1);
        EXPECT_EQ(pos, k);
        EXPECT_EQ(row, k);
        EXPECT_EQ(col, 2 - k);
        EXPECT_EQ(re, k + 0.5);
    }
    ASSERT_EQ(kwilMatCoefGetNext(h, &row, &col, &pos, &re, &im, &end, 0), 1);
    EXPECT_EQ(end, 1);
    EXPECT_EQ(pos, 3);
    EXPECT_EQ(row, 2); // left as they were
    EXPECT_EQ(col, 0);
    end = 0;
    ASSERT_EQ(kwilMatCoefGetNext(h, &row, &col, &pos, &re, &im, &end, 0), 1); // again
    EXPECT_EQ(end, 1);
    EXPECT_EQ(pos, 3);
    for (int bad : {4, -1, INT_MAX}) {
        pos = bad;
        EXPECT_EQ(
            err([&] { EXPECT_EQ(kwilMatCoefGetNext(h, &row, &col, &pos, &re, &im, &end, 0), 0); }),
            "KWILERR: Invalid pos in get next coef mat pos=" + std::to_string(bad) + "\n");
    }
}

TEST_F(CoefApi, GetNextGivesTheSameEntriesInEveryForm)
{
    fillSample(1);
    std::vector<Entry> byForm[3];
    byForm[0] = all();
    ASSERT_EQ(comLinMatChangeType(h, h->matCoef, MAT_SORTED), 1);
    byForm[1] = all();
    ASSERT_EQ(comLinMatChangeType(h, h->matCoef, MAT_CSR), 1);
    byForm[2] = all();
    EXPECT_EQ(h->matCoef->type, MAT_CSR); // the iteration never converts
    ASSERT_EQ(byForm[0].size(), 4u);
    EXPECT_EQ(byForm[0][0].row, 3); // creation order
    const int rows[] = {0, 0, 2, 3}, cols[] = {0, 3, 0, 3};
    for (int f = 1; f < 3; ++f) {
        ASSERT_EQ(byForm[f].size(), 4u);
        for (int k = 0; k < 4; ++k) { // row-major order, past the empty row 1
            EXPECT_EQ(byForm[f][k].row, rows[k]) << "form " << f << " entry " << k;
            EXPECT_EQ(byForm[f][k].col, cols[k]);
            EXPECT_EQ(byForm[f][k].re, -byForm[f][k].im);
        }
    }
    // In CSR form a row below the true one (here 0 for an entry of row 3) is moved forward.
    int row = 0, col = 0, pos = 2, end = 0;
    double re = 0, im = 0;
    ASSERT_EQ(kwilMatCoefGetNext(h, &row, &col, &pos, &re, &im, &end, 0), 1);
    EXPECT_EQ(row, 3);
    EXPECT_EQ(col, 3);
}

TEST_F(CoefApi, FileReadAndWrite)
{
    const std::string in = dir.write(
        "a.mtx", "%%MatrixMarket matrix coordinate complex general\n2 2 2\n2 1 1.5 -1\n1 2 3 4\n");
    ASSERT_EQ(kwilMatCoefFileRead(h, in.c_str()), 1);
    int flag = 0, size = 0, n = 0;
    ASSERT_EQ(kwilMatCoefInfo(h, &flag, &size, &n), 1);
    EXPECT_EQ(flag, 1);
    EXPECT_EQ(size, 2);
    EXPECT_EQ(n, 2);
    const std::vector<Entry> e = all();
    EXPECT_EQ(e[0].row, 1);
    EXPECT_EQ(e[0].col, 0);
    EXPECT_EQ(e[0].im, -1.0);

    const std::string out = dir.path("b.mtx");
    ASSERT_EQ(kwilMatCoefFileWrite(h, out.c_str()), 1);
    EXPECT_EQ(kwiltest::readFile(out),
              "%%MatrixMarket matrix coordinate complex general\n2 2 2\n"
              "2 1 1.50000000000000000000e+00 -1.00000000000000000000e+00\n"
              "1 2 3.00000000000000000000e+00 4.00000000000000000000e+00\n");
    EXPECT_EQ(err([&] { EXPECT_EQ(kwilMatCoefFileWrite(h, dir.path("no/b.mtx").c_str()), 0); }),
              "KWILERR: Open error in mat file read, write='" + dir.path("no/b.mtx") + "'\n");

    const std::string bad =
        dir.write("c.mtx", "%%MatrixMarket matrix coordinate real general\n2 3 1\n");
    EXPECT_EQ(err([&] { EXPECT_EQ(kwilMatCoefFileRead(h, bad.c_str()), 0); }),
              "KWILERR: Size unmatch in mat file read file='" + bad +
                  "'\n"
                  "KWILERR: Read error in read coef mat file '" +
                  bad + "'\n");
    EXPECT_EQ(h->matCoef, nullptr);
}

TEST_F(CoefApi, EveryAllocationFailureLeavesTheFieldEmpty)
{
    const std::string in = dir.write(
        "a.mtx", "%%MatrixMarket matrix coordinate real general\n2 2 2\n2 1 1.5\n1 2 3\n");
    for (int flag : {0, 1}) {
        EXPECT_GT(kwiltest::sweepAllocFailures([&] {
                      const int ok = kwilMatCoefCreate(h, flag, 3, 4);
                      EXPECT_EQ(ok == 1, h->matCoef != nullptr);
                      dropMatrix();
                      return ok == 1;
                  }),
                  0);
    }
    EXPECT_GT(kwiltest::sweepAllocFailures([&] {
                  const int ok = kwilMatCoefFileRead(h, in.c_str());
                  EXPECT_EQ(ok == 1, h->matCoef != nullptr);
                  dropMatrix();
                  return ok == 1;
              }),
              0);
    // Setting after a solve: creation, conversion and the restore.
    EXPECT_GT(kwiltest::sweepAllocFailures([&] {
                  bool ok = kwilMatCoefCreate(h, 1, 3, 2) == 1 &&
                            kwilMatCoefSet(h, 2, 0, 0, 1, 1, 0) == 1 &&
                            kwilMatCoefSet(h, 0, 2, 1, 2, 2, 0) == 1 &&
                            comLinMatChangeType(h, h->matCoef, MAT_CSR) == 1 &&
                            kwilMatCoefSet(h, 1, 1, 1, 3, 3, 1) == 1;
                  dropMatrix();
                  return ok;
              }),
              2);
    Capture cap;
    comTestFailAlloc(1);
    EXPECT_EQ(kwilMatCoefFileRead(h, in.c_str()), 0);
    comTestFailAlloc(0);
    cap.take();
    EXPECT_EQ(cap.err(), "KWILERR: Allocation error\n"
                         "KWILERR: Allocation error in matrix create\n"
                         "KWILERR: Matrix data create error in mat file read file='" +
                             in +
                             "'\n"
                             "KWILERR: Read error in read coef mat file '" +
                             in + "'\n");
}
