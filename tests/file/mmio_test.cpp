// Matrix Market routines: banner, type code text, size lines, entries and whole files.
#include "file/mmio.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "support/support.h"

using kwiltest::Capture;
using kwiltest::TempDir;

namespace {

// A read stream over a text (kept alive by the fixture member).
class Stream {
  public:
    explicit Stream(const std::string& text) : text_(text)
    {
        f_ = fmemopen(text_.empty() ? nullptr : &text_[0], text_.size(), "r");
        if (f_ == nullptr)
            f_ = fopen("/dev/null", "r");
    }
    ~Stream() { fclose(f_); }
    FILE* get() const { return f_; }
    std::string rest() const
    {
        std::string s;
        for (int c = fgetc(f_); c != EOF; c = fgetc(f_))
            s += static_cast<char>(c);
        return s;
    }

  private:
    std::string text_;
    FILE* f_;
};

int readBanner(const std::string& text, std::string* code)
{
    Stream s(text);
    MM_typecode c;
    const int ret = mm_read_banner(s.get(), &c);
    code->assign(c, 4);
    return ret;
}

std::string codeText(const char* code)
{
    char* t = mm_typecode_to_str(code);
    const std::string s = t != nullptr ? t : "<null>";
    free(t);
    return s;
}

} // namespace

TEST(MmReadBanner, EveryWordGivesItsLetter)
{
    const struct {
        const char* line;
        const char* code;
    } cases[] = {
        {"%%MatrixMarket matrix coordinate real general\n", "MCRG"},
        {"%%MatrixMarket matrix coordinate complex symmetric\n", "MCCS"},
        {"%%MatrixMarket matrix array pattern hermitian\n", "MAPH"},
        {"%%MatrixMarket matrix array integer skew-symmetric\n", "MAIK"},
        {"%%MatrixMarket  MATRIX\tCoordinate REAL GeNeRaL\n", "MCRG"}, // any case, any blanks
        {"%%MatrixMarketXYZ matrix coordinate real general", "MCRG"},  // prefix, no newline
    };
    for (const auto& c : cases) {
        std::string code;
        EXPECT_EQ(readBanner(c.line, &code), 0) << c.line;
        EXPECT_EQ(code, c.code) << c.line;
    }
}

TEST(MmReadBanner, FailuresKeepTheLettersSetSoFar)
{
    const struct {
        const char* line;
        int ret;
        const char* code;
    } cases[] = {
        {"", 12, "   G"},
        {"%%MatrixMarket matrix coordinate real\n", 12, "   G"}, // four words
        {"%%matrixmarket matrix coordinate real general\n", 14, "   G"},
        {"%%Matrix matrix coordinate real general\n", 14, "   G"},
        {"%%MatrixMarket vector coordinate real general\n", 15, "   G"},
        {"%%MatrixMarket matrix sparse real general\n", 15, "M  G"},
        {"%%MatrixMarket matrix array double general\n", 15, "MA G"},
        {"%%MatrixMarket matrix array real lower\n", 15, "MARG"},
        {"%%MatrixMarket matrix coordinate complex upper\n", 15, "MCCG"},
    };
    for (const auto& c : cases) {
        std::string code;
        EXPECT_EQ(readBanner(c.line, &code), c.ret) << c.line;
        EXPECT_EQ(code, c.code) << c.line;
    }
}

TEST(MmReadBanner, OverlongWordsAreRefusedWithoutOverrun)
{
    const std::string w63(63, 'x'), w64(64, 'x'), w500(500, 'y');
    std::string code;
    // A word of 63 characters fits; it is simply unknown.
    EXPECT_EQ(readBanner("%%MatrixMarket " + w63 + " coordinate real general\n", &code), 15);
    EXPECT_EQ(readBanner("%%MatrixMarket matrix " + w64 + " real general\n", &code), 15);
    EXPECT_EQ(code, "M  G");
    EXPECT_EQ(readBanner("%%MatrixMarket matrix coordinate real " + w500 + "\n", &code), 15);
    EXPECT_EQ(code, "MCRG");
    // The first word is compared as a prefix; one too long for its buffer is refused.
    EXPECT_EQ(readBanner("%%MatrixMarket" + w63 + " matrix coordinate real general\n", &code), 15);
    EXPECT_EQ(
        readBanner("%%MatrixMarket" + std::string(49, 'z') + " matrix coordinate real general\n",
                   &code),
        0); // 63 characters in all
}

TEST(MmReadBanner, LeavesTheStreamAtTheSecondLine)
{
    Stream s("%%MatrixMarket matrix array real general\n% next\n2 1\n");
    MM_typecode c;
    ASSERT_EQ(mm_read_banner(s.get(), &c), 0);
    EXPECT_EQ(s.rest(), "% next\n2 1\n");
}

TEST(MmTypecode, TextOfEveryLetterAndUnknownLetters)
{
    EXPECT_EQ(codeText("MACG"), "matrix array complex general");
    EXPECT_EQ(codeText("MCPK"), "matrix coordinate pattern skew-symmetric");
    EXPECT_EQ(codeText("MCIH"), "matrix coordinate integer hermitian");
    EXPECT_EQ(codeText("MCRS"), "matrix coordinate real symmetric");
    for (const char* bad : {"XCRG", "MXRG", "MCXG", "MCRX", "   G"}) {
        EXPECT_EQ(codeText(bad), "<null>") << bad;
    }
}

TEST(MmTypecode, ValidCombinations)
{
    EXPECT_EQ(mm_is_valid("MCCH"), 1);
    EXPECT_EQ(mm_is_valid("MCRG"), 1);
    EXPECT_EQ(mm_is_valid("MARS"), 1);
    EXPECT_EQ(mm_is_valid("MAPG"), 0); // array pattern
    EXPECT_EQ(mm_is_valid("MCRH"), 0); // real hermitian
    EXPECT_EQ(mm_is_valid("MCPH"), 0);
    EXPECT_EQ(mm_is_valid("MCPK"), 0);
    EXPECT_EQ(mm_is_valid(" CRG"), 0);
}

TEST(MmStrdup, CopiesWithTerminator)
{
    char* s = mm_strdup("abc");
    ASSERT_NE(s, nullptr);
    EXPECT_STREQ(s, "abc");
    free(s);
    s = mm_strdup("");
    ASSERT_NE(s, nullptr);
    EXPECT_STREQ(s, "");
    free(s);
}

TEST(MmWrite, BannerAndSizeLines)
{
    char buf[256] = {};
    FILE* f = fmemopen(buf, sizeof buf, "w");
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(mm_write_banner(f, "MCRG"), 0);
    EXPECT_EQ(mm_write_mtx_crd_size(f, 3, 4, 5), 0);
    EXPECT_EQ(mm_write_banner(f, "MACG"), 0);
    EXPECT_EQ(mm_write_mtx_array_size(f, 7, 1), 0);
    EXPECT_EQ(mm_write_banner(f, "MCQG"), 15); // unknown letter: nothing written
    fclose(f);
    EXPECT_STREQ(buf, "%%MatrixMarket matrix coordinate real general\n3 4 5\n"
                      "%%MatrixMarket matrix array complex general\n7 1\n");
}

TEST(MmWrite, FailedWritesGive17)
{
    FILE* f = fopen("/dev/full", "w");
    if (f == nullptr)
        GTEST_SKIP() << "no /dev/full";
    setvbuf(f, nullptr, _IONBF, 0);
    EXPECT_EQ(mm_write_banner(f, "MCRG"), 17);
    EXPECT_EQ(mm_write_mtx_crd_size(f, 1, 1, 1), 17);
    EXPECT_EQ(mm_write_mtx_array_size(f, 1, 1), 17);
    fclose(f);
}

TEST(MmReadSize, SkipsCommentsAndReadsThreeOrTwo)
{
    int m = -1, n = -1, nz = -1;
    {
        Stream s("% a\n%\n%% b\n3 4 5\nrest\n");
        EXPECT_EQ(mm_read_mtx_crd_size(s.get(), &m, &n, &nz), 0);
        EXPECT_EQ(m, 3);
        EXPECT_EQ(n, 4);
        EXPECT_EQ(nz, 5);
        EXPECT_EQ(s.rest(), "rest\n");
    }
    {
        Stream s("%\n7 1\n");
        EXPECT_EQ(mm_read_mtx_array_size(s.get(), &m, &n), 0);
        EXPECT_EQ(m, 7);
        EXPECT_EQ(n, 1);
    }
    {
        // Fewer than three on the line: the scan goes on, from the next line, for three.
        Stream s("3 4\n5\n6 7\n");
        EXPECT_EQ(mm_read_mtx_crd_size(s.get(), &m, &n, &nz), 0);
        EXPECT_EQ(m, 5);
        EXPECT_EQ(n, 6);
        EXPECT_EQ(nz, 7);
    }
}

TEST(MmReadSize, EndsOnAnyInput)
{
    int m = -1, n = -1, nz = -1;
    for (const char* text :
         {"", "% only comments\n", "3 4\n", "x y z\n", "3 x\n", "3 4\nabc\n", "\n\n\n"}) {
        Stream s(text);
        EXPECT_EQ(mm_read_mtx_crd_size(s.get(), &m, &n, &nz), 12) << text;
        Stream t(text);
        if (std::string(text).compare(0, 4, "3 4\n") != 0) { // two integers suffice here
            EXPECT_EQ(mm_read_mtx_array_size(t.get(), &m, &n), 12) << text;
        }
    }
    Stream s("");
    m = n = nz = 9;
    mm_read_mtx_crd_size(s.get(), &m, &n, &nz);
    EXPECT_EQ(m + n + nz, 0); // cleared first
}

TEST(MmReadEntry, ByField)
{
    int i = 0, j = 0;
    double re = 0, im = 0;
    {
        Stream s("1 2 3.5 -4\n");
        EXPECT_EQ(mm_read_mtx_crd_entry(s.get(), &i, &j, &re, &im, "MCCG"), 0);
        EXPECT_EQ(i, 1);
        EXPECT_EQ(j, 2);
        EXPECT_EQ(re, 3.5);
        EXPECT_EQ(im, -4.0);
    }
    {
        Stream s("5 6 7e1\n");
        EXPECT_EQ(mm_read_mtx_crd_entry(s.get(), &i, &j, &re, &im, "MCRG"), 0);
        EXPECT_EQ(re, 70.0);
    }
    {
        Stream s("8 9\n");
        EXPECT_EQ(mm_read_mtx_crd_entry(s.get(), &i, &j, &re, &im, "MCPG"), 0);
        EXPECT_EQ(j, 9);
    }
    Stream s("1 2\n");
    EXPECT_EQ(mm_read_mtx_crd_entry(s.get(), &i, &j, &re, &im, "MCRG"), 12);
    Stream t("1 2 3\n");
    EXPECT_EQ(mm_read_mtx_crd_entry(t.get(), &i, &j, &re, &im, "MCIG"), 15);
}

TEST(MmReadData, ReadsNzEntriesOrStopsShort)
{
    int I[3], J[3];
    double v[6];
    Stream s("1 1 1 2\n2 2 3 4\n3 1 5 6\n");
    ASSERT_EQ(mm_read_mtx_crd_data(s.get(), 3, 3, 3, I, J, v, "MCCG"), 0);
    EXPECT_EQ(I[2], 3);
    EXPECT_EQ(J[2], 1);
    EXPECT_EQ(v[4], 5.0);
    EXPECT_EQ(v[5], 6.0);
    Stream t("1 1 1\n2 2\n");
    EXPECT_EQ(mm_read_mtx_crd_data(t.get(), 3, 3, 3, I, J, v, "MCRG"), 12);
    Stream u("1 1\n");
    EXPECT_EQ(mm_read_mtx_crd_data(u.get(), 3, 3, 1, I, J, nullptr, "MCPG"), 0);
    EXPECT_EQ(mm_read_mtx_crd_data(u.get(), 3, 3, 1, I, J, v, "MCIG"), 15);
}

TEST(MmWholeFile, WriteThenReadEveryField)
{
    TempDir dir;
    const std::string p = dir.path("a.mtx");
    const int I[] = {1, 3, 2};
    const int J[] = {2, 1, 2};
    const double real[] = {0.1, -2.5e-300, 1e300};
    ASSERT_EQ(mm_write_mtx_crd(p.c_str(), 3, 3, 3, I, J, real, "MCRG"), 0);
    EXPECT_EQ(kwiltest::readFile(p),
              "%%MatrixMarket matrix coordinate real general\n3 3 3\n"
              "1 2                  0.1\n3 1            -2.5e-300\n2 2               1e+300\n");
    int m = 0, n = 0, nz = 0, *rI = nullptr, *rJ = nullptr;
    double* val = nullptr;
    MM_typecode code;
    ASSERT_EQ(mm_read_mtx_crd(p.c_str(), &m, &n, &nz, &rI, &rJ, &val, &code), 0);
    EXPECT_EQ(std::string(code, 4), "MCRG");
    EXPECT_EQ(nz, 3);
    EXPECT_EQ(rI[1], 3);
    EXPECT_EQ(rJ[0], 2);
    EXPECT_EQ(val[2], 1e300);
    free(rI);
    free(rJ);
    free(val);

    const double comp[] = {1.5, -2, 3, 4, 5, 6};
    ASSERT_EQ(mm_write_mtx_crd(p.c_str(), 3, 3, 3, I, J, comp, "MCCS"), 0);
    ASSERT_EQ(mm_read_mtx_crd(p.c_str(), &m, &n, &nz, &rI, &rJ, &val, &code), 0);
    EXPECT_EQ(std::string(code, 4), "MCCS");
    EXPECT_EQ(val[1], -2.0);
    EXPECT_EQ(val[5], 6.0);
    free(rI);
    free(rJ);
    free(val);

    ASSERT_EQ(mm_write_mtx_crd(p.c_str(), 3, 3, 3, I, J, nullptr, "MCPG"), 0);
    EXPECT_EQ(kwiltest::readFile(p),
              "%%MatrixMarket matrix coordinate pattern general\n3 3 3\n1 2\n3 1\n2 2\n");
    ASSERT_EQ(mm_read_mtx_crd(p.c_str(), &m, &n, &nz, &rI, &rJ, &val, &code), 0);
    EXPECT_EQ(val, nullptr);
    EXPECT_EQ(rI[2], 2);
    free(rI);
    free(rJ);
}

TEST(MmWholeFile, WriterRefusals)
{
    TempDir dir;
    const std::string p = dir.path("b.mtx");
    const int I[] = {1};
    const double v[] = {1.0};
    // Unknown letter: 15 and no file at all.
    EXPECT_EQ(mm_write_mtx_crd(p.c_str(), 1, 1, 1, I, I, v, "MCRQ"), 15);
    EXPECT_EQ(fopen(p.c_str(), "r"), nullptr);
    // Integer field: banner and size line, then 15.
    EXPECT_EQ(mm_write_mtx_crd(p.c_str(), 1, 1, 1, I, I, v, "MCIG"), 15);
    EXPECT_EQ(kwiltest::readFile(p), "%%MatrixMarket matrix coordinate integer general\n1 1 1\n");
    EXPECT_EQ(mm_write_mtx_crd(dir.path("no/such/dir.mtx").c_str(), 1, 1, 1, I, I, v, "MCRG"), 17);
}

TEST(MmWholeFile, ReaderRefusals)
{
    TempDir dir;
    int m = 0, n = 0, nz = 0, *I = nullptr, *J = nullptr;
    double* val = nullptr;
    MM_typecode code;
    EXPECT_EQ(mm_read_mtx_crd(dir.path("none").c_str(), &m, &n, &nz, &I, &J, &val, &code), 11);
    const struct {
        const char* text;
        int ret;
    } cases[] = {
        {"%%MatrixMarket matrix coordinate real\n", 12},
        {"%MatrixMarket matrix coordinate real general\n", 14},
        {"%%MatrixMarket matrix array real general\n1 1\n1\n", 15},
        {"%%MatrixMarket matrix coordinate real hermitian\n1 1 1\n1 1 1\n", 15},
        {"%%MatrixMarket matrix coordinate real general\n% no size\n", 12},
        {"%%MatrixMarket matrix coordinate real general\n2 2 2\n1 1 1\n", 12},
    };
    for (const auto& c : cases) {
        const std::string p = dir.write("c.mtx", c.text);
        I = J = nullptr;
        val = nullptr;
        EXPECT_EQ(mm_read_mtx_crd(p.c_str(), &m, &n, &nz, &I, &J, &val, &code), c.ret) << c.text;
        EXPECT_EQ(I, nullptr); // nothing handed out
        EXPECT_EQ(val, nullptr);
    }
    // An integer field reads the size and hands out index arrays without reading data.
    const std::string p =
        dir.write("i.mtx", "%%MatrixMarket matrix coordinate integer general\n2 2 1\n");
    ASSERT_EQ(mm_read_mtx_crd(p.c_str(), &m, &n, &nz, &I, &J, &val, &code), 0);
    EXPECT_EQ(nz, 1);
    EXPECT_EQ(val, nullptr);
    free(I);
    free(J);
}

TEST(MmWholeFile, StandardStreamsByName)
{
    // "stdout" writes to standard output and leaves it open.
    const int I[] = {2};
    const int J[] = {1};
    const double v[] = {-0.5, 2.0};
    Capture cap;
    EXPECT_EQ(mm_write_mtx_crd("stdout", 2, 2, 1, I, J, v, "MCCG"), 0);
    EXPECT_EQ(mm_write_mtx_crd("stdout", 2, 2, 0, I, J, v, "MCRG"), 0);
    cap.take();
    EXPECT_EQ(cap.out(), "%%MatrixMarket matrix coordinate complex general\n2 2 1\n"
                         "2 1                 -0.5                    2\n"
                         "%%MatrixMarket matrix coordinate real general\n2 2 0\n");

    // "stdin" reads standard input and leaves it open: the text after the data is still there.
    TempDir dir;
    const std::string p = dir.write(
        "in.mtx", "%%MatrixMarket matrix coordinate real general\n3 3 2\n1 2 4\n3 3 -1\ntail\n");
    fflush(stdin);
    const int saved = dup(0);
    ASSERT_GE(saved, 0);
    FILE* in = fopen(p.c_str(), "r");
    ASSERT_NE(in, nullptr);
    ASSERT_EQ(dup2(fileno(in), 0), 0);
    fclose(in);
    clearerr(stdin);
    int m = 0, n = 0, nz = 0, *rI = nullptr, *rJ = nullptr;
    double* val = nullptr;
    MM_typecode code;
    const int ret = mm_read_mtx_crd("stdin", &m, &n, &nz, &rI, &rJ, &val, &code);
    char rest[16] = {};
    const bool more = fgets(rest, sizeof rest, stdin) != nullptr;
    dup2(saved, 0);
    close(saved);
    clearerr(stdin);
    ASSERT_EQ(ret, 0);
    EXPECT_EQ(nz, 2);
    EXPECT_EQ(rI[1], 3);
    EXPECT_EQ(val[1], -1.0);
    EXPECT_TRUE(more);
    EXPECT_STREQ(rest, "tail\n");
    free(rI);
    free(rJ);
    free(val);
}

TEST(MmReadUnsymmetricSparse, ReadsZeroBasedTriplets)
{
    TempDir dir;
    const std::string p = dir.write(
        "a.mtx", "%%MatrixMarket matrix coordinate real general\n% c\n3 3 2\n1 3 2.5\n3 2 -1\n");
    int m = 0, n = 0, nz = 0, *I = nullptr, *J = nullptr;
    double* val = nullptr;
    ASSERT_EQ(mm_read_unsymmetric_sparse(p.c_str(), &m, &n, &nz, &val, &I, &J), 0);
    EXPECT_EQ(m, 3);
    EXPECT_EQ(nz, 2);
    EXPECT_EQ(I[0], 0);
    EXPECT_EQ(J[0], 2);
    EXPECT_EQ(I[1], 2);
    EXPECT_EQ(val[1], -1.0);
    free(I);
    free(J);
    free(val);
}

TEST(MmReadUnsymmetricSparse, MessagesOfEachFailure)
{
    TempDir dir;
    int m = 0, n = 0, nz = 0, *I = nullptr, *J = nullptr;
    double* val = nullptr;
    EXPECT_EQ(mm_read_unsymmetric_sparse(dir.path("none").c_str(), &m, &n, &nz, &val, &I, &J), -1);
    {
        const std::string p = dir.write("b.mtx", "MatrixMarket\n");
        Capture cap;
        EXPECT_EQ(mm_read_unsymmetric_sparse(p.c_str(), &m, &n, &nz, &val, &I, &J), -1);
        cap.take();
        EXPECT_EQ(cap.out(),
                  "mm_read_unsymetric: Could not process Matrix Market banner  in file [" + p +
                      "]\n");
        EXPECT_EQ(cap.err(), "");
    }
    {
        const std::string p =
            dir.write("c.mtx", "%%MatrixMarket matrix coordinate complex general\n");
        Capture cap;
        EXPECT_EQ(mm_read_unsymmetric_sparse(p.c_str(), &m, &n, &nz, &val, &I, &J), -1);
        cap.take();
        EXPECT_EQ(cap.err(), "Sorry, this application does not support Market Market type: "
                             "[matrix coordinate complex general]\n");
    }
    {
        const std::string p = dir.write("d.mtx", "%%MatrixMarket matrix coordinate real general\n");
        Capture cap;
        EXPECT_EQ(mm_read_unsymmetric_sparse(p.c_str(), &m, &n, &nz, &val, &I, &J), -1);
        cap.take();
        EXPECT_EQ(cap.err(), "read_unsymmetric_sparse(): could not parse matrix size.\n");
    }
    // Data that ends early is refused silently and hands nothing out.
    const std::string p =
        dir.write("e.mtx", "%%MatrixMarket matrix coordinate real general\n2 2 2\n1 1 1\n");
    Capture cap;
    EXPECT_EQ(mm_read_unsymmetric_sparse(p.c_str(), &m, &n, &nz, &val, &I, &J), -1);
    cap.take();
    EXPECT_EQ(cap.out() + cap.err(), "");
    EXPECT_EQ(I, nullptr);
}
