// Vector files: array and coordinate pattern files, every message, and the writer's output.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <string>

#include "file/file.h"
#include "file_read_test.h"
#include "support/support.h"

using kwiltest::Capture;

namespace {

const std::string arrayReal = "%%MatrixMarket matrix array real general\n";
const std::string arrayComp = "%%MatrixMarket matrix array complex general\n";
const std::string crdPattern = "%%MatrixMarket matrix coordinate pattern general\n";

using VecFile = FileReadTest<ComLinVec, comFileVecRead, comLinVecDelete>;

std::string values(const ComLinVec* v)
{
    std::string s;
    for (int i = 0; i < v->size; ++i) {
        char buf[64];
        if (v->dataType == LIN_REAL) {
            snprintf(buf, sizeof buf, "(%g)", v->realData[i]);
        } else {
            snprintf(buf, sizeof buf, "(%g %g)", v->compData[2 * i], v->compData[2 * i + 1]);
        }
        s += buf;
    }
    return s;
}

} // namespace

TEST_F(VecFile, ArrayFilesRealIntegerComplex)
{
    std::string err;
    ComLinVec* v = read(arrayReal + "% c\n\n3 1\n1.5\n\n-2\n3e-1\n", &err);
    ASSERT_NE(v, nullptr) << err;
    EXPECT_EQ(err, "");
    EXPECT_EQ(v->dataType, LIN_REAL);
    EXPECT_EQ(values(v), "(1.5)(-2)(0.3)");
    comLinVecDelete(h, v);

    v = read("%%MatrixMarket matrix array integer symmetric\n2 1\n7\n-8\n");
    ASSERT_NE(v, nullptr);
    EXPECT_EQ(values(v), "(7)(-8)");
    comLinVecDelete(h, v);

    v = read(arrayComp + "2 1\n1 -2\n0.5 4\n");
    ASSERT_NE(v, nullptr);
    EXPECT_EQ(v->dataType, LIN_COMP);
    EXPECT_EQ(values(v), "(1 -2)(0.5 4)"); // the imaginary parts are kept
    comLinVecDelete(h, v);
}

TEST_F(VecFile, SeveralColumnsKeepTheFirstWithAWarning)
{
    std::string err;
    ComLinVec* v = read(arrayReal + "3 2\n1\n2\n3\nnot parsed\n5\n6\n", &err);
    ASSERT_NE(v, nullptr);
    EXPECT_EQ(values(v), "(1)(2)(3)");
    EXPECT_EQ(err, "KWILWRN: Col 2 != 1 (use 1st only) in vec file read file='" + path + "'\n");
    comLinVecDelete(h, v);
    expectFail(arrayReal + "3 2\n1\n2\n3\n4\n5\n",
               "KWILWRN: Col 2 != 1 (use 1st only) in vec file read file='%s'\n"
               "KWILERR: Too few data in vec file read file='%s'\n");
    // Zero columns: no data line is expected, and the first one is too much.
    expectFail(arrayReal + "2 0\n1\n",
               "KWILWRN: Col 0 != 1 (use 1st only) in vec file read file='%s'\n"
               "KWILERR: Too much data in vec file read file='%s'\n");
}

TEST_F(VecFile, PatternVectors)
{
    ComLinVec* v = read(crdPattern + "4 1 2\n2 1\n4 1\n");
    ASSERT_NE(v, nullptr);
    EXPECT_EQ(v->dataType, LIN_REAL);
    EXPECT_EQ(values(v), "(0)(1)(0)(1)");
    comLinVecDelete(h, v);

    // Lines of further columns are counted and skipped.
    std::string err;
    v = read(crdPattern + "3 3 3\n1 2\n3 1\n2 3\n", &err);
    ASSERT_NE(v, nullptr);
    EXPECT_EQ(values(v), "(0)(0)(1)");
    EXPECT_EQ(err, "KWILWRN: Col 3 != 1 (use 1st only) in vec file read file='" + path + "'\n");
    comLinVecDelete(h, v);

    expectFail(crdPattern + "4 1 1\n2 3\n",
               "KWILERR: Too large col 3 in vec file read file='%s'\n");
    expectFail(crdPattern + "4 1 1\n5 1\n",
               "KWILERR: Invalid pos 5 in vec file read file\n"
               "KWILERR: Invalid pattern data in vec file read file='%s'\n");
    expectFail(crdPattern + "4 1 1\n-2147483648 1\n",
               "KWILERR: Invalid pos -2147483648 in vec file read file\n"
               "KWILERR: Invalid pattern data in vec file read file='%s'\n");
    expectFail(crdPattern + "4 1 1\n1 1 1\n",
               "KWILERR: Invalid pattern data format in vec file read file='%s'\n"
               "KWILERR: Invalid data='1 1 1'\n");
}

TEST_F(VecFile, UnsupportedTypes)
{
    expectFail("%%MatrixMarket matrix array pattern general\n2 1\n",
               "KWILERR: No support data type in vec file read file='%s' type='matrix array "
               "pattern general'\n");
    expectFail("%%MatrixMarket matrix coordinate real general\n2 1 1\n1 1 1\n",
               "KWILERR: No support type in vec file read file='%s' type='matrix coordinate real "
               "general'\n");
    expectFail("%%MatrixMarket matrix coordinate complex general\n2 1 1\n",
               "KWILERR: No support type in vec file read file='%s' type='matrix coordinate "
               "complex general'\n");
    expectFail("%%MatrixMarket vector array real general\n",
               "KWILERR: Invalid banner in vec file read file='%s'\n");
    Capture cap;
    EXPECT_EQ(comFileVecRead(h, dir.path("none").c_str()), nullptr);
    cap.take();
    EXPECT_EQ(cap.err(), "KWILERR: Open error in vec file read file='" + dir.path("none") + "'\n");
}

TEST_F(VecFile, SizeAndCountFailures)
{
    expectFail(arrayReal + "3\n", "KWILERR: Size error in vec file read file='%s'\n");
    expectFail(arrayReal + "3 1 1\n", "KWILERR: Size error in vec file read file='%s'\n");
    expectFail(crdPattern + "3 1\n", "KWILERR: Size error in vec file read file='%s'\n");
    expectFail(arrayReal + "2 1\n1\n2\n3\n", "KWILERR: Too much data in vec file read file='%s'\n");
    expectFail(arrayReal + "2 1\n1\n", "KWILERR: Too few data in vec file read file='%s'\n");
    expectFail(crdPattern + "4 1 2\n1 1\n", "KWILERR: Too few data in vec file read file='%s'\n");
    expectFail(arrayReal + "2 1\n1\n2 3\n",
               "KWILERR: Invalid real data format in vec file read file='%s'\n"
               "KWILERR: Invalid data='2 3'\n");
    expectFail(arrayComp + "1 1\n1\n",
               "KWILERR: Invalid comp data format in vec file read file='%s'\n"
               "KWILERR: Invalid data='1'\n");
}

TEST_F(VecFile, NegativeCountsReachCreationAndTheLineCount)
{
    // A negative count is read like any other: the vector cannot be made, or no number of
    // data lines matches.
    expectFail(arrayReal + "-3 1\n",
               "KWILERR: Allocation error\n"
               "KWILERR: Real data allocation error in matrix create\n"
               "KWILERR: Vector data create error in vec file read file='%s'\n");
    expectFail(crdPattern + "-3 1 0\n",
               "KWILERR: Allocation error\n"
               "KWILERR: Real data allocation error in matrix create\n"
               "KWILERR: Vector data create error in vec file read file='%s'\n");
    expectFail(crdPattern + "3 1 -1\n", "KWILERR: Too few data in vec file read file='%s'\n");
    expectFail(crdPattern + "3 1 -1\n1 1\n", "KWILERR: Too much data in vec file read file='%s'\n");
    expectFail(arrayComp + "3 -1\n",
               "KWILWRN: Col -1 != 1 (use 1st only) in vec file read file='%s'\n"
               "KWILERR: Too few data in vec file read file='%s'\n");
}

TEST_F(VecFile, TracesOfBothLayouts)
{
    kwilSetOpt(h, "TRACE", 1, 1, 0.0);
    path = dir.write("a.mtx", arrayReal + "2 1\n1\n2\n");
    Capture cap;
    ComLinVec* v = comFileVecRead(h, path.c_str());
    comLinVecDelete(h, v);
    path = dir.write("b.mtx", crdPattern + "4 1 1\n1 1\n");
    v = comFileVecRead(h, path.c_str());
    comLinVecDelete(h, v);
    cap.take();
    EXPECT_EQ(cap.out(), "KWILTRC: Open matCode='matrix array real general'\n"
                         "KWILTRC: Get vector size 2\n"
                         "KWILTRC: Open matCode='matrix coordinate pattern general'\n"
                         "KWILTRC: Get vector pattern size 4 - 1\n");
}

TEST_F(VecFile, WriterOutputIsExact)
{
    ComLinVec* v = read(arrayComp + "2 1\n0.1 -1\n1e-310 2\n");
    ASSERT_NE(v, nullptr);
    const std::string out = dir.path("w.mtx");
    ASSERT_EQ(comFileVecWrite(h, v, out.c_str()), 1);
    EXPECT_EQ(kwiltest::readFile(out), "%%MatrixMarket matrix array complex general\n2 1\n"
                                       "1.00000000000000005551e-01 -1.00000000000000000000e+00\n"
                                       "9.99999999999996944933e-311 2.00000000000000000000e+00\n");
    comLinVecDelete(h, v);

    v = comLinVecCreate(h, LIN_REAL, 0);
    ASSERT_EQ(comFileVecWrite(h, v, out.c_str()), 1);
    EXPECT_EQ(kwiltest::readFile(out), "%%MatrixMarket matrix array real general\n0 1\n");
    Capture cap;
    EXPECT_EQ(comFileVecWrite(h, v, dir.path("x/y.mtx").c_str()), 0);
    cap.take();
    EXPECT_EQ(cap.err(),
              "KWILERR: Open error in vec file read, write='" + dir.path("x/y.mtx") + "'\n");
    comLinVecDelete(h, v);
}

namespace {

long maxRssKb()
{
    rusage u{};
    getrusage(RUSAGE_SELF, &u);
    return u.ru_maxrss;
}

} // namespace

TEST_F(VecFile, ShortFilesDeclaringLargeVectorsDoNotFillThem)
{
    // The declared lines cannot fit in what is left of the file: the same checks and
    // messages, with a vector of the declared size made but never zeroed. Zeroing would raise
    // the peak resident size by the vector's size (400 or 800 MB here; the first read is the
    // telling one, as the peak only grows); a sanitizer's shadow memory adds an eighth of it.
    const long live = comTestLiveAllocs();
    auto check = [&](const std::string& text, const std::string& lines, long megabytes) {
        const long rss = maxRssKb();
        expectFail(text, lines);
        EXPECT_LT(maxRssKb() - rss, megabytes * 1024 / 2) << text;
    };
    check(arrayReal + "50000000 1\n1\n2\n", "KWILERR: Too few data in vec file read file='%s'\n",
          400);
    check(arrayComp + "50000000 1\n1 2\nx\n",
          "KWILERR: Invalid comp data format in vec file read file='%s'\n"
          "KWILERR: Invalid data='x'\n",
          800);
    check(crdPattern + "50000000 1 50000000\n49999999 1\n0 1\n",
          "KWILERR: Invalid pos 0 in vec file read file\n"
          "KWILERR: Invalid pattern data in vec file read file='%s'\n",
          400);
    check(crdPattern + "50000000 2 50000000\n1 3\n",
          "KWILWRN: Col 2 != 1 (use 1st only) in vec file read file='%s'\n"
          "KWILERR: Too large col 3 in vec file read file='%s'\n",
          400);
    EXPECT_EQ(comTestLiveAllocs(), live);
}

TEST_F(VecFile, ShortFilesStillReportAVectorThatCannotBeMade)
{
    // Creation comes before the data lines, whatever the length of the file.
    for (const std::string& text : {arrayReal + "2 1\n1\n2\n", arrayReal + "2000000000 1\n1\n"}) {
        comTestFailAlloc(2); // the values of the vector
        expectFail(text, "KWILERR: Allocation error\n"
                         "KWILERR: Real data allocation error in matrix create\n"
                         "KWILERR: Vector data create error in vec file read file='%s'\n");
        comTestFailAlloc(0);
    }
}
