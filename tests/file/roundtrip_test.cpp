// Write then read: the same entries and the same doubles, bit for bit, in every storage form;
// allocation failures of the readers; and every file of the matrix folder, when one is given.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "file/file.h"
#include "support/support.h"

using kwiltest::Capture;
using kwiltest::TempDir;

namespace {

struct Entry {
    int row, col;
    uint64_t re, im; // the bits of the value
    bool operator==(const Entry& o) const
    {
        return row == o.row && col == o.col && re == o.re && im == o.im;
    }
};

uint64_t bitsOf(double v)
{
    uint64_t b;
    memcpy(&b, &v, sizeof b);
    return b;
}

std::vector<Entry> entries(KwilHandle* h, const ComLinMat* m)
{
    std::vector<Entry> out;
    int row = 0, col = 0, pos = 0;
    double re = 0, im = 0;
    for (int more = comLinMatGetNext(h, m, &row, &col, &pos, &re, &im, 1); more != 0;
         more = comLinMatGetNext(h, m, &row, &col, &pos, &re, &im, 0)) {
        out.push_back({row, col, bitsOf(re), bitsOf(im)});
    }
    return out;
}

// A finite double of random bits (every exponent, subnormals and signed zeros included).
double randomFinite(std::mt19937_64& rng)
{
    for (;;) {
        const uint64_t b = rng();
        double v;
        memcpy(&v, &b, sizeof v);
        if (v - v == 0)
            return v;
    }
}

// A matrix of order n with distinct random positions (some rows empty) and random values.
ComLinMat* randomMatrix(KwilHandle* h, int dataType, int n, int nnz, std::mt19937_64& rng)
{
    ComLinMat* m = comLinMatCreate(h, MAT_COO, dataType, n, nnz);
    std::vector<char> used(static_cast<size_t>(n) * n, 0);
    for (int k = 0; k < nnz; ++k) {
        int i, j;
        do {
            i = static_cast<int>(rng() % static_cast<uint64_t>(n)) | 1; // even rows stay empty
            j = static_cast<int>(rng() % static_cast<uint64_t>(n));
        } while (i >= n || used[static_cast<size_t>(i) * n + j]);
        used[static_cast<size_t>(i) * n + j] = 1;
        m->row[k] = i + 1;
        m->col[k] = j + 1;
        if (dataType == LIN_REAL) {
            m->realData[k] = randomFinite(rng);
        } else {
            m->compData[2 * k] = randomFinite(rng);
            m->compData[2 * k + 1] = randomFinite(rng);
        }
    }
    return m;
}

class RoundTrip : public testing::TestWithParam<int> {
  protected:
    void SetUp() override { h = kwiltest::makeHandle(dir); }
    void TearDown() override { kwilTerm(h); }
    TempDir dir;
    KwilHandle* h = nullptr;
};

} // namespace

TEST_P(RoundTrip, MatrixInEveryStorageForm)
{
    std::mt19937_64 rng(11 + GetParam());
    ComLinMat* m = randomMatrix(h, GetParam(), 40, 300, rng);
    std::string written[3];
    for (int form : {MAT_COO, MAT_SORTED, MAT_CSR}) {
        ASSERT_EQ(comLinMatChangeType(h, m, form), 1);
        const std::string p = dir.path("m" + std::to_string(form) + ".mtx");
        ASSERT_EQ(comFileMatWrite(h, m, p.c_str()), 1);
        written[form] = kwiltest::readFile(p);
        ComLinMat* back = comFileMatRead(h, p.c_str());
        ASSERT_NE(back, nullptr);
        EXPECT_EQ(back->type, MAT_COO);
        EXPECT_EQ(back->size, 40);
        EXPECT_EQ(back->dataType, GetParam());
        EXPECT_TRUE(entries(h, back) == entries(h, m)) << "form " << form;
        comLinMatDelete(h, back);
    }
    EXPECT_EQ(written[MAT_CSR], written[MAT_SORTED]); // the same lines in either sorted form
    EXPECT_NE(written[MAT_COO], written[MAT_SORTED]); // storage order is kept
    comLinMatDelete(h, m);
}

TEST_P(RoundTrip, Vector)
{
    std::mt19937_64 rng(23 + GetParam());
    ComLinVec* v = comLinVecCreate(h, GetParam(), 500);
    const long nv = GetParam() == LIN_REAL ? 500 : 1000;
    double* d = GetParam() == LIN_REAL ? v->realData : v->compData;
    for (long i = 0; i < nv; ++i)
        d[i] = randomFinite(rng);
    const std::string p = dir.path("v.mtx");
    ASSERT_EQ(comFileVecWrite(h, v, p.c_str()), 1);
    ComLinVec* back = comFileVecRead(h, p.c_str());
    ASSERT_NE(back, nullptr);
    ASSERT_EQ(back->size, 500);
    ASSERT_EQ(back->dataType, GetParam());
    const double* b = GetParam() == LIN_REAL ? back->realData : back->compData;
    EXPECT_EQ(memcmp(b, d, static_cast<size_t>(nv) * sizeof(double)), 0);
    comLinVecDelete(h, back);
    comLinVecDelete(h, v);
}

TEST_P(RoundTrip, ReaderAllocationFailures)
{
    const std::string mat =
        GetParam() == LIN_REAL
            ? dir.write("m.mtx", "%%MatrixMarket matrix coordinate real general\n2 2 1\n1 2 3\n")
            : dir.write("m.mtx",
                        "%%MatrixMarket matrix coordinate complex general\n2 2 1\n1 2 3 4\n");
    const std::string vec =
        GetParam() == LIN_REAL
            ? dir.write("v.mtx", "%%MatrixMarket matrix array real general\n2 1\n1\n2\n")
            : dir.write("v.mtx", "%%MatrixMarket matrix array complex general\n2 1\n1 0\n2 0\n");
    EXPECT_GT(kwiltest::sweepAllocFailures([&] {
                  ComLinMat* m = comFileMatRead(h, mat.c_str());
                  comLinMatDelete(h, m);
                  return m != nullptr;
              }),
              2);
    EXPECT_GT(kwiltest::sweepAllocFailures([&] {
                  ComLinVec* v = comFileVecRead(h, vec.c_str());
                  comLinVecDelete(h, v);
                  return v != nullptr;
              }),
              1);
    Capture cap;
    comTestFailAlloc(2);
    EXPECT_EQ(comFileVecRead(h, vec.c_str()), nullptr);
    comTestFailAlloc(0);
    cap.take();
    EXPECT_EQ(cap.err(), std::string("KWILERR: Allocation error\n") +
                             (GetParam() == LIN_REAL ? "KWILERR: Real" : "KWILERR: Comp") +
                             " data allocation error in matrix create\n"
                             "KWILERR: Vector data create error in vec file read file='" +
                             vec + "'\n");
}

INSTANTIATE_TEST_SUITE_P(RealAndComplex, RoundTrip, testing::Values(LIN_REAL, LIN_COMP),
                         [](const testing::TestParamInfo<int>& p) {
                             return std::string(p.param == LIN_REAL ? "Real" : "Complex");
                         });

// Every .mtx file under $KWIL_MATRIX_DIR/real and /complex: read, write, read back, equal.
TEST(MatrixFolder, EveryFileReadsWritesAndReadsBackEqual)
{
    const std::string root = kwiltest::matrixDir();
    if (root.empty())
        GTEST_SKIP() << "KWIL_MATRIX_DIR is not set";
    TempDir dir;
    KwilHandle* h = kwiltest::makeHandle(dir);
    int files = 0;
    for (const std::string& in : kwiltest::matrixFiles(root)) {
        const std::string out = dir.path("copy.mtx");
        const bool array = kwiltest::readFile(in).find("array") < 60;
        ++files;
        if (array) {
            ComLinVec* v = comFileVecRead(h, in.c_str());
            ASSERT_NE(v, nullptr) << in;
            ASSERT_EQ(comFileVecWrite(h, v, out.c_str()), 1);
            ComLinVec* back = comFileVecRead(h, out.c_str());
            ASSERT_NE(back, nullptr) << in;
            ASSERT_EQ(back->size, v->size);
            const long n = (v->dataType == LIN_REAL ? 1L : 2L) * v->size;
            EXPECT_EQ(memcmp(v->dataType == LIN_REAL ? v->realData : v->compData,
                             back->dataType == LIN_REAL ? back->realData : back->compData,
                             static_cast<size_t>(n) * sizeof(double)),
                      0)
                << in;
            comLinVecDelete(h, back);
            comLinVecDelete(h, v);
            continue;
        }
        ComLinMat* m = comFileMatRead(h, in.c_str());
        ASSERT_NE(m, nullptr) << in;
        const bool complexFolder = in.find("/complex/") != std::string::npos;
        EXPECT_EQ(m->dataType, complexFolder ? LIN_COMP : LIN_REAL) << in;
        ASSERT_EQ(comFileMatWrite(h, m, out.c_str()), 1);
        ComLinMat* back = comFileMatRead(h, out.c_str());
        ASSERT_NE(back, nullptr) << in;
        EXPECT_TRUE(entries(h, back) == entries(h, m)) << in;
        comLinMatDelete(h, back);
        comLinMatDelete(h, m);
    }
    EXPECT_GT(files, 0) << "no .mtx files under " << root;
    kwilTerm(h);
}
