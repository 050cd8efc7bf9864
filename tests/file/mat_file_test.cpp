// Matrix files: what the reader accepts and builds, every message, and the writer's output.
#include <dirent.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "file/file.h"
#include "file_read_test.h"
#include "support/support.h"

using kwiltest::Capture;

namespace {

const std::string realBanner = "%%MatrixMarket matrix coordinate real general\n";

using MatFile = FileReadTest<ComLinMat, comFileMatRead, comLinMatDelete>;

std::string entries(const ComLinMat* m)
{
    std::string s;
    for (int k = 0; k < m->dataNum; ++k) {
        char buf[128];
        if (m->dataType == LIN_REAL) {
            snprintf(buf, sizeof buf, "(%d %d %g)", m->row[k], m->col[k], m->realData[k]);
        } else {
            snprintf(buf, sizeof buf, "(%d %d %g %g)", m->row[k], m->col[k], m->compData[2 * k],
                     m->compData[2 * k + 1]);
        }
        s += buf;
    }
    return s;
}

} // namespace

TEST_F(MatFile, CommentsAndBlankLinesAreSkipped)
{
    std::string err;
    ComLinMat* m = read(
        realBanner + "% one\n%two\n\n   \n%\n3 3 3\n1 1 2.5\n\n \t\n3 2 -1e-3\n\n2 3 4\n\n", &err);
    ASSERT_NE(m, nullptr) << err;
    EXPECT_EQ(err, "");
    EXPECT_EQ(m->type, MAT_COO);
    EXPECT_EQ(m->size, 3);
    EXPECT_EQ(m->dataType, LIN_REAL);
    EXPECT_EQ(entries(m), "(1 1 2.5)(3 2 -0.001)(2 3 4)"); // file order, 1-based
    comLinMatDelete(h, m);
}

TEST_F(MatFile, FieldsGiveTheirDataTypes)
{
    ComLinMat* m =
        read("%%MatrixMarket matrix coordinate complex general\n2 2 2\n1 1 1.5 -2\n2 1 0 3e2\n");
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(m->dataType, LIN_COMP);
    EXPECT_EQ(entries(m), "(1 1 1.5 -2)(2 1 0 300)");
    comLinMatDelete(h, m);

    m = read("%%MatrixMarket matrix coordinate integer general\n2 2 1\n2 2 -7\n");
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(m->dataType, LIN_REAL);
    EXPECT_EQ(entries(m), "(2 2 -7)");
    comLinMatDelete(h, m);

    m = read("%%MatrixMarket matrix coordinate pattern general\n3 3 2\n1 3\n3 1\n");
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(m->dataType, LIN_REAL);
    EXPECT_EQ(entries(m), "(1 3 1)(3 1 1)"); // every listed entry is 1.0
    comLinMatDelete(h, m);
}

TEST_F(MatFile, SymmetricFilesReadAsStored)
{
    for (const char* sym : {"symmetric", "skew-symmetric", "hermitian"}) {
        const std::string field = std::string(sym) == "hermitian" ? "complex" : "real";
        const std::string vals = field == "complex" ? " 1 0" : " 1";
        ComLinMat* m = read("%%MatrixMarket matrix coordinate " + field + " " + sym +
                            "\n3 3 3\n1 1" + vals + "\n2 1" + vals + "\n3 2" + vals + "\n");
        ASSERT_NE(m, nullptr) << sym;
        EXPECT_EQ(m->dataNum, 3) << sym; // no mirror images added
        EXPECT_EQ(m->row[2], 3);
        EXPECT_EQ(m->col[2], 2);
        comLinMatDelete(h, m);
    }
}

TEST_F(MatFile, TracesTheCodeAndTheSize)
{
    kwilSetOpt(h, "TRACE", 1, 1, 0.0);
    path = dir.write("t.mtx", realBanner + "2 2 1\n1 1 1\n");
    Capture cap;
    ComLinMat* m = comFileMatRead(h, path.c_str());
    cap.take();
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(cap.out(), "KWILTRC: Open matCode='matrix coordinate real general'\n"
                         "KWILTRC: Get matrix size 2 - 1\n");
    comLinMatDelete(h, m);
}

TEST_F(MatFile, HeaderFailures)
{
    {
        Capture cap;
        EXPECT_EQ(comFileMatRead(h, dir.path("none.mtx").c_str()), nullptr);
        cap.take();
        EXPECT_EQ(cap.err(),
                  "KWILERR: Open error in mat file read file='" + dir.path("none.mtx") + "'\n");
    }
    expectFail("", "KWILERR: Invalid banner in mat file read file='%s'\n");
    expectFail("%%MatrixMarket matrix coordinate real\n",
               "KWILERR: Invalid banner in mat file read file='%s'\n");
    expectFail("%%MatrixMarket matrix coordinate double general\n",
               "KWILERR: Invalid banner in mat file read file='%s'\n");
    expectFail(
        "%%MatrixMarket matrix array real general\n2 2\n",
        "KWILERR: No support type in mat file read file='%s' type='matrix array real general'\n");
    expectFail(realBanner, "KWILERR: Size read error in mat file read file='%s'\n");
    expectFail(realBanner + "% only comments\n",
               "KWILERR: Size read error in mat file read file='%s'\n");
    expectFail(realBanner + "3 3\n", "KWILERR: Size read error in mat file read file='%s'\n");
    expectFail(realBanner + "3 3 2 x\n", "KWILERR: Size read error in mat file read file='%s'\n");
    expectFail(realBanner + " % indented\n3 3 0\n",
               "KWILERR: Size read error in mat file read file='%s'\n");
    expectFail(realBanner + "3 4 5\n", "KWILERR: Size unmatch in mat file read file='%s'\n");
}

TEST_F(MatFile, NegativeCountsReachCreation)
{
    // A negative entry count cannot be allocated: the creation's lines, then the reader's.
    expectFail(realBanner + "3 3 -1\n",
               "KWILERR: Allocation error\n"
               "KWILERR: Allocation error\n"
               "KWILERR: Row or col allocation error in matrix create\n"
               "KWILERR: Matrix data create error in mat file read file='%s'\n");
    // A negative size is stored as it stands; no entry can lie within it.
    expectFail(realBanner + "-3 -3 1\n1 1 1\n",
               "KWILERR: Invalid row 1 in mat file read\n"
               "KWILERR: Invalid real data in mat file read='%s'\n");
    ComLinMat* m = read(realBanner + "-3 -3 0\n");
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(m->size, -3);
    EXPECT_EQ(m->dataNum, 0);
    comLinMatDelete(h, m);
}

TEST_F(MatFile, TooMuchAndTooFewData)
{
    expectFail(realBanner + "3 3 2\n1 1 1\n2 2 2\n3 3 3\n",
               "KWILERR: Too much data in mat file read file='%s'\n");
    expectFail(realBanner + "3 3 2\n1 1 1\n", "KWILERR: Too few data in mat file read file='%s'\n");
    expectFail(realBanner + "3 3 0\n1 1 1\n",
               "KWILERR: Too much data in mat file read file='%s'\n");
    ComLinMat* m = read(realBanner + "3 3 0\n\n");
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(m->dataNum, 0);
    comLinMatDelete(h, m);
}

TEST_F(MatFile, FormatErrorsAreTwoLines)
{
    expectFail(realBanner + "3 3 1\n1 1 2.5 x\n",
               "KWILERR: Invalid real data format in mat file read file='%s'\n"
               "KWILERR: Invalid data='1 1 2.5 x'\n");
    expectFail(realBanner + "3 3 1\n1 1\n",
               "KWILERR: Invalid real data format in mat file read file='%s'\n"
               "KWILERR: Invalid data='1 1'\n");
    // Only one newline is removed; a carriage return stays in the shown line.
    expectFail(realBanner + "3 3 1\n1 1 a\r\n",
               "KWILERR: Invalid real data format in mat file read file='%s'\n"
               "KWILERR: Invalid data='1 1 a\r'\n");
    expectFail("%%MatrixMarket matrix coordinate complex general\n3 3 1\n1 1 2.5\n",
               "KWILERR: Invalid comp data format in mat file read file='%s'\n"
               "KWILERR: Invalid data='1 1 2.5'\n");
    expectFail("%%MatrixMarket matrix coordinate pattern general\n3 3 1\n1 1 1\n",
               "KWILERR: Invalid pattern data format in mat file read file='%s'\n"
               "KWILERR: Invalid data='1 1 1'\n");
    // Comments are recognised only before the size line; the last line has no newline.
    expectFail(realBanner + "3 3 2\n1 1 1\n% late comment",
               "KWILERR: Invalid real data format in mat file read file='%s'\n"
               "KWILERR: Invalid data='% late comment'\n");
}

TEST_F(MatFile, BoundsFailuresShowTheCheckAndTheReaderLine)
{
    expectFail(realBanner + "3 3 1\n0 1 1\n", "KWILERR: Invalid row 0 in mat file read\n"
                                              "KWILERR: Invalid real data in mat file read='%s'\n");
    expectFail(realBanner + "3 3 1\n1 4 1\n", "KWILERR: Invalid col 4 in mat file read\n"
                                              "KWILERR: Invalid real data in mat file read='%s'\n");
    expectFail("%%MatrixMarket matrix coordinate complex general\n3 3 1\n-2147483648 1 1 1\n",
               "KWILERR: Invalid row -2147483648 in mat file read\n"
               "KWILERR: Invalid comp data in mat file read='%s'\n");
    expectFail("%%MatrixMarket matrix coordinate pattern general\n3 3 1\n1 2147483647\n",
               "KWILERR: Invalid col 2147483647 in mat file read\n"
               "KWILERR: Invalid pattern data in mat file read='%s'\n");
}

TEST_F(MatFile, LongLinesArriveInPieces)
{
    // A data line longer than the buffer is split; each piece is a line of its own: here a
    // complete entry, then a piece holding one more token.
    const std::string pad(1100, ' ');
    ComLinMat* m = read(realBanner + "3 3 1\n1 1 2" + pad + "\n");
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(m->realData[0], 2.0);
    comLinMatDelete(h, m);
    expectFail(realBanner + "3 3 1\n1 1 2" + pad + "3\n",
               "KWILERR: Too much data in mat file read file='%s'\n");
}

TEST_F(MatFile, WriterOutputIsExact)
{
    ComLinMat* m = read(realBanner + "3 3 3\n3 1 0.1\n1 2 -2.5e-300\n2 2 1e300\n");
    ASSERT_NE(m, nullptr);
    const std::string out = dir.path("w.mtx");
    ASSERT_EQ(comFileMatWrite(h, m, out.c_str()), 1);
    EXPECT_EQ(kwiltest::readFile(out), "%%MatrixMarket matrix coordinate real general\n3 3 3\n"
                                       "3 1 1.00000000000000005551e-01\n"
                                       "1 2 -2.49999999999999997976e-300\n"
                                       "2 2 1.00000000000000005250e+300\n");
    comLinMatDelete(h, m);

    m = read("%%MatrixMarket matrix coordinate complex general\n2 2 1\n2 1 1 -0.5\n");
    ASSERT_NE(m, nullptr);
    ASSERT_EQ(comFileMatWrite(h, m, out.c_str()), 1);
    EXPECT_EQ(kwiltest::readFile(out),
              "%%MatrixMarket matrix coordinate complex general\n2 2 1\n"
              "2 1 1.00000000000000000000e+00 -5.00000000000000000000e-01\n");
    comLinMatDelete(h, m);

    Capture cap;
    EXPECT_EQ(comFileMatWrite(h, m = comLinMatCreate(h, 0, 0, 1, 0), dir.path("x/y.mtx").c_str()),
              0);
    cap.take();
    EXPECT_EQ(cap.err(),
              "KWILERR: Open error in mat file read, write='" + dir.path("x/y.mtx") + "'\n");
    comLinMatDelete(h, m);
}

namespace {

int openFiles()
{
    int n = 0;
    if (DIR* d = opendir("/proc/self/fd")) {
        while (readdir(d) != nullptr)
            ++n;
        closedir(d);
    }
    return n;
}

} // namespace

TEST_F(MatFile, FailedReadsCloseTheirFiles)
{
    const std::string texts[] = {"",
                                 "%%MatrixMarket matrix array real general\n",
                                 realBanner,
                                 realBanner + "3 4 1\n",
                                 realBanner + "2 2 1\n1 1 x\n",
                                 realBanner + "2 2 1\n3 1 1\n",
                                 realBanner + "2 2 1\n",
                                 realBanner + "2 2 0\n1 1 1\n"};
    const int before = openFiles();
    for (int rep = 0; rep < 3; ++rep) {
        for (const std::string& t : texts) {
            EXPECT_EQ(read(t), nullptr) << t;
            Capture cap;
            EXPECT_EQ(comFileVecRead(h, path.c_str()), nullptr);
        }
    }
    EXPECT_EQ(openFiles(), before);
}
