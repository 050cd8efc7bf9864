// The kwil-solve command: runs the installed-style binary on files and checks its exit status,
// its summary and the exact error lines.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "api/kwil.h"
#include "api_util.h"
#include "support/support.h"

using apitest::contains;
using kwiltest::TempDir;

namespace {

const std::string kExe = KWIL_SOLVE_EXE;
const std::string kExamples = KWIL_EXAMPLE_DIR;
const std::string kData = KWIL_TEST_DATA_DIR;

struct Result {
    int status = -1;
    std::string out, err;
    std::vector<std::string> outLines;
};

// Runs kwil-solve with args in the directory cwd; env is put before the command (NAME=VALUE).
Result runTool(const TempDir& cwd, const std::string& args, const std::string& env = "")
{
    const std::string cmd = "cd '" + cwd.dir() + "' && " + env + " '" + kExe + "' " + args + " >'" +
                            cwd.path("stdout") + "' 2>'" + cwd.path("stderr") + "'";
    const int rc = std::system(cmd.c_str());
    Result r;
    r.status = WIFEXITED(rc) ? WEXITSTATUS(rc) : -1;
    r.out = kwiltest::readFile(cwd.path("stdout"));
    r.err = kwiltest::readFile(cwd.path("stderr"));
    r.outLines = kwiltest::lines(r.out);
    return r;
}

// The number after a word in the summary line starting with prefix; NaN when absent.
double summaryValue(const Result& r, const std::string& prefix, const std::string& word)
{
    for (const std::string& l : r.outLines) {
        if (l.rfind(prefix, 0) != 0)
            continue;
        const size_t at = l.find(word);
        if (at == std::string::npos)
            break;
        return std::strtod(l.c_str() + at + word.size(), nullptr);
    }
    return std::nan("");
}

// Values of a Matrix Market array file written by the library (real or complex).
std::vector<apitest::Cplx> readArray(const std::string& path)
{
    std::vector<apitest::Cplx> v;
    const std::vector<std::string> lines = kwiltest::lines(kwiltest::readFile(path));
    if (lines.size() < 2)
        return v;
    const bool comp = lines[0].find(" complex ") != std::string::npos;
    for (size_t i = 2; i < lines.size(); ++i) {
        double re = 0.0, im = 0.0;
        if (comp) {
            std::sscanf(lines[i].c_str(), "%lf %lf", &re, &im);
        } else {
            std::sscanf(lines[i].c_str(), "%lf", &re);
        }
        v.emplace_back(re, im);
    }
    return v;
}

TEST(KwilSolve, SolvesTheBundledExample)
{
    TempDir cwd;
    const std::string a = kExamples + "/convdiff.mtx";
    const Result r = runTool(cwd, "-q " + a);
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_EQ(r.err, "");
    ASSERT_FALSE(r.outLines.empty());
    EXPECT_EQ(r.outLines[0], "kwil-solve summary");
    EXPECT_TRUE(contains(r.outLines, "  matrix    " + a + ": real, size 2500, entries 12300"));
    EXPECT_TRUE(contains(r.outLines, "  options   (built-in defaults)"));
    EXPECT_TRUE(contains(r.outLines, "  solver    BiCGStab, ILU(0) (SOLVER 0)"));
    EXPECT_TRUE(contains(r.outLines, "  result    solved"));
    EXPECT_LE(summaryValue(r, "  residual", "rel "), 1e-9);
    EXPECT_LE(summaryValue(r, "  error", "max |x_i - 1| "), 1e-6);
    EXPECT_GE(summaryValue(r, "  time", " "), 0.0);
}

TEST(KwilSolve, TheExampleOptionFileTraces)
{
    TempDir cwd;
    const Result r = runTool(cwd, "-c '" + std::string(KWIL_SOURCE_DIR) + "/examples/kwil.ini' " +
                                      kExamples + "/convdiff.mtx");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(contains(r.outLines, "KWILTRC: Option: Solver"));
    EXPECT_TRUE(contains(r.outLines, "KWILTRC: Analyse in solver data type real"));
    EXPECT_TRUE(contains(r.outLines, "  result    solved"));
    EXPECT_LE(summaryValue(r, "  residual", "rel "), 1e-9);
}

TEST(KwilSolve, SolvesAComplexExampleWithOverrides)
{
    TempDir cwd;
    const Result r = runTool(cwd, "-q -s SOLVER=2 -s STABL_L=2 -s ITER_RESOLVE=1e-12 " + kExamples +
                                      "/convdiff_complex.mtx");
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_TRUE(contains(r.outLines, "  solver    BiCGStab(L), L = 2, ILU(0) (SOLVER 2)"));
    EXPECT_NE(r.out.find(": complex, size 900, entries 4380\n"), std::string::npos) << r.out;
    EXPECT_LE(summaryValue(r, "  residual", "rel "), 1e-11);
    EXPECT_LE(summaryValue(r, "  error", "max |x_i - 1| "), 1e-8);
}

TEST(KwilSolve, OverridesSelectTheDirectSolveAndTheTrace)
{
    TempDir cwd;
    const Result r =
        runTool(cwd, "-s SOLVER=10 -s TRACE=1 -x x.mtx " + kExamples + "/convdiff.mtx");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(contains(r.outLines, "  solver    direct (sparse LU) (SOLVER 10)"));
    EXPECT_TRUE(contains(r.outLines, "KWILTRC: Option: Solver"));
    EXPECT_TRUE(contains(r.outLines, "  solution  x.mtx"));
    EXPECT_LE(summaryValue(r, "  residual", "rel "), 1e-13);
    const std::vector<apitest::Cplx> x = readArray(cwd.path("x.mtx"));
    ASSERT_EQ(x.size(), 2500u);
    for (const apitest::Cplx& v : x)
        ASSERT_NEAR(v.real(), 1.0, 1e-10);
}

TEST(KwilSolve, BadOverridesAreRefused)
{
    TempDir cwd;
    const std::string a = kExamples + "/convdiff.mtx";
    Result r = runTool(cwd, "-s FOO=1 " + a);
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "KWILERR: Unknown key in set opt int flag 1 key 'FOO'\n"
                     "kwil-solve: error: unknown option 'FOO'\n");
    EXPECT_EQ(r.out, "");
    r = runTool(cwd, "-s SOLVER=ten " + a);
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "kwil-solve: error: option SOLVER needs an int, got 'ten'\n");
    r = runTool(cwd, "-s ITER_RESOLVE=1e-3x " + a);
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "kwil-solve: error: option ITER_RESOLVE needs a number, got '1e-3x'\n");
    r = runTool(cwd, "-s SOLVER " + a);
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "kwil-solve: error: -s needs NAME=VALUE, got 'SOLVER'\n");
}

TEST(KwilSolve, ABadMatrixFileGivesTheLibrarysLinesAndOneOfItsOwn)
{
    TempDir cwd;
    Result r = runTool(cwd, "nope.mtx");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "KWILERR: Open error in mat file read file='nope.mtx'\n"
                     "KWILERR: Read error in read coef mat file 'nope.mtx'\n"
                     "kwil-solve: error: cannot read the matrix file 'nope.mtx'\n");
    const std::string bad = kData + "/bad_data.mtx";
    r = runTool(cwd, bad);
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "KWILERR: Invalid real data format in mat file read file='" + bad +
                         "'\n"
                         "KWILERR: Invalid data='2 2 x'\n"
                         "KWILERR: Read error in read coef mat file '" +
                         bad +
                         "'\n"
                         "kwil-solve: error: cannot read the matrix file '" +
                         bad + "'\n");
    r = runTool(cwd, "-b nope_b.mtx " + kExamples + "/convdiff.mtx");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "KWILERR: Open error in vec file read file='nope_b.mtx'\n"
                     "KWILERR: Read error in read fix vec file 'nope_b.mtx'\n"
                     "kwil-solve: error: cannot read the right-hand side file 'nope_b.mtx'\n");
}

TEST(KwilSolve, AFailedSolveOrCheckExitsNonZero)
{
    TempDir cwd;
    Result r = runTool(cwd, "-q -s SOLVER=1 " + kExamples + "/convdiff_complex.mtx");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "KWILERR: Invalid data type in iter safe solver\n"
                     "kwil-solve: error: the solve failed\n");
    EXPECT_TRUE(contains(r.outLines, "  result    FAILED"));

    r = runTool(cwd, "-q -s ITER_RESOLVE=1e-2 -s CHECK_RESULT_LIM=1e-300 " + kExamples +
                         "/convdiff.mtx");
    EXPECT_EQ(r.status, 1);
    const std::vector<std::string> err = kwiltest::lines(r.err);
    ASSERT_EQ(err.size(), 2u) << r.err;
    EXPECT_EQ(err[0].rfind("KWILERR: Limit 1.0000e-300 over error in check result norm rel ", 0),
              0u);
    EXPECT_EQ(err[1], "kwil-solve: error: the result check failed");
    EXPECT_TRUE(contains(r.outLines, "  result    solved, check FAILED"));
}

TEST(KwilSolve, ASolutionThatCannotBeWrittenExitsNonZero)
{
    TempDir cwd;
    const Result r = runTool(cwd, "-q -s SOLVER=10 -x nodir/x.mtx " + kExamples + "/convdiff.mtx");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "KWILERR: Open error in vec file read, write='nodir/x.mtx'\n"
                     "kwil-solve: error: cannot write the solution to 'nodir/x.mtx'\n");
    EXPECT_TRUE(contains(r.outLines, "  result    solved"));
    EXPECT_EQ(r.out.find("  solution"), std::string::npos);
}

TEST(KwilSolve, OptionFileDiscovery)
{
    TempDir cwd;
    const std::string a = kExamples + "/convdiff.mtx";
    Result r = runTool(cwd, "-c nope.ini " + a);
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "KWILERR: No option file in init opt 'nope.ini'\n"
                     "kwil-solve: error: cannot load the option file nope.ini\n");
    cwd.write("kwil.ini", "FILE_VER 1\nSOLVER 10\n");
    r = runTool(cwd, a);
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(contains(r.outLines, "  options   kwil.ini"));
    EXPECT_TRUE(contains(r.outLines, "  solver    direct (sparse LU) (SOLVER 10)"));
}

TEST(KwilSolve, WithoutATemporaryDirectoryTheBuiltInOptionsFailWithOneLine)
{
    TempDir cwd;
    const std::string none = cwd.path("none");
    const Result r = runTool(cwd, kExamples + "/convdiff.mtx", "TMPDIR='" + none + "'");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "kwil-solve: error: cannot write the built-in option file to a temporary "
                     "file in '" +
                         none + "': No such file or directory\n");
    EXPECT_EQ(r.out, "");
}

TEST(KwilSolve, ExpandSymmetricReadsTheBannerWordsInAnyCase)
{
    TempDir cwd;
    // A = [2, -1; -1, 2] stored as its lower triangle; b = A (1, 1) = (1, 1).
    cwd.write("sym.mtx", "%%MatrixMarket MATRIX Coordinate Real SYMMETRIC\n2 2 3\n"
                         "1 1 2\n2 1 -1\n2 2 2\n");
    Result r = runTool(cwd, "-q --expand-symmetric -s SOLVER=10 sym.mtx");
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_TRUE(contains(r.outLines,
                         "  matrix    sym.mtx: real, size 2, entries 4 (symmetric part mirrored)"));
    EXPECT_LE(summaryValue(r, "  error", "max |x_i - 1| "), 1e-15);

    // A general file is taken as it is.
    cwd.write("gen.mtx", "%%MatrixMarket matrix coordinate real General\n2 2 2\n"
                         "1 1 2\n2 2 4\n");
    r = runTool(cwd, "-q --expand-symmetric -s SOLVER=10 gen.mtx");
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_TRUE(contains(r.outLines, "  matrix    gen.mtx: real, size 2, entries 2"));
}

TEST(KwilSolve, ExpandSymmetricMirrorsTheStoredTriangle)
{
    TempDir cwd;
    const std::string a = kExamples + "/laplace_sym.mtx";
    Result r = runTool(cwd, "-q " + a);
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(contains(r.outLines, "  matrix    " + a + ": real, size 400, entries 1160"));
    r = runTool(cwd, "-q --expand-symmetric -s SOLVER=10 " + a);
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(contains(r.outLines, "  matrix    " + a +
                                         ": real, size 400, entries 1920 (symmetric part "
                                         "mirrored)"));

    // Hermitian: the mirror is conjugated; skew-symmetric: negated. x is known exactly.
    r = runTool(cwd, "-q --expand-symmetric -s SOLVER=10 -b " + kData + "/herm2_b.mtx -x h.mtx " +
                         kData + "/herm2.mtx");
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    std::vector<apitest::Cplx> x = readArray(cwd.path("h.mtx"));
    ASSERT_EQ(x.size(), 2u);
    EXPECT_NEAR(std::abs(x[0] - apitest::Cplx(1.0, 0.0)), 0.0, 1e-14);
    EXPECT_NEAR(std::abs(x[1] - apitest::Cplx(0.0, 1.0)), 0.0, 1e-14);

    r = runTool(cwd, "-q --expand-symmetric -s SOLVER=10 -b " + kData + "/skew2_b.mtx -x s.mtx " +
                         kData + "/skew2.mtx");
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    x = readArray(cwd.path("s.mtx"));
    ASSERT_EQ(x.size(), 2u);
    EXPECT_NEAR(x[0].real(), 1.0, 1e-14);
    EXPECT_NEAR(x[1].real(), 2.0, 1e-14);
    EXPECT_FALSE(contains(r.outLines, "  error")); // no ones-vector error with -b
}

TEST(KwilSolve, HelpListsEveryOptionWithItsDefault)
{
    TempDir cwd;
    const Result r = runTool(cwd, "--help");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "");
    ASSERT_FALSE(r.outLines.empty());
    EXPECT_EQ(r.outLines[0].rfind("Usage: kwil-solve [-c OPTIONFILE] [-s NAME=VALUE]...", 0), 0u);
    const char* names[] = {"USER_I1",
                           "USER_I4",
                           "FILE_VER",
                           "TRACE",
                           "SOLVER",
                           "THREADS",
                           "REV_DIAGZERO",
                           "SAVE_ALL",
                           "DIAG_SCALE",
                           "ILU_TRACE",
                           "ILU_FILLIN",
                           "ITER_PREILU",
                           "ITER_CORRECT_R",
                           "ITER_STEPTRACE",
                           "ITER_MAXSTEP",
                           "ITER_R_TYPE",
                           "ITER_GIVEUP",
                           "SAFE_CR",
                           "SAFE_CORRECT_Y",
                           "STABL_L",
                           "PARDISO_TRACE",
                           "PARDISO_MEM_LIM",
                           "PARDISO_STAT",
                           "PARDISO_ITER",
                           "PARDISO_PIVOT",
                           "USER_D1",
                           "USER_D4",
                           "REV_DIAGZERO_VAL",
                           "CHECK_RESULT_LIM",
                           "ILU_REV_DIAGZERO_VAL",
                           "ILU_ACCEL",
                           "ILU_FILLINMIN",
                           "ITER_MAXSTEP_SIZE",
                           "ITER_RESOLVE",
                           "ITER_GIVEUP_CHECK",
                           "ITER_GIVEUP_REDUCT"};
    for (const char* n : names) {
        EXPECT_NE(r.out.find("\n  " + std::string(n) + " "), std::string::npos) << n;
    }
    EXPECT_NE(r.out.find("  ITER_MAXSTEP         int    5000      "), std::string::npos);
    EXPECT_NE(r.out.find("  ITER_RESOLVE         double 1e-10     "), std::string::npos);
}

// Every option line of --help against the library: the name, int or double, and the default
// that a handle loaded from a file holding only FILE_VER 1 reports.
TEST(KwilSolve, HelpDefaultsAreTheLibrarysDefaults)
{
    TempDir cwd;
    const Result r = runTool(cwd, "--help");
    ASSERT_EQ(r.status, 0);
    KwilHandle* h = kwiltest::makeHandle(cwd);
    ASSERT_NE(h, nullptr);
    size_t at = 0;
    while (at < r.outLines.size() && r.outLines[at].rfind("Options (", 0) != 0)
        ++at;
    ASSERT_LT(at, r.outLines.size());
    int ints = 0, doubles = 0;
    for (++at; at < r.outLines.size(); ++at) {
        std::istringstream line(r.outLines[at]);
        std::string name, type, def;
        ASSERT_TRUE(static_cast<bool>(line >> name >> type >> def)) << r.outLines[at];
        if (type == "int") {
            ++ints;
            int v = 0;
            ASSERT_EQ(kwilGetOpt(h, name.c_str(), 1, &v, nullptr), 1) << name;
            // The file sets FILE_VER to 1; the table's default is -1.
            EXPECT_EQ(name == "FILE_VER" ? -1 : v, std::stoi(def)) << name;
        } else {
            ASSERT_EQ(type, "double") << name;
            ++doubles;
            double v = 0.0;
            ASSERT_EQ(kwilGetOpt(h, name.c_str(), 0, nullptr, &v), 1) << name;
            EXPECT_EQ(v, std::strtod(def.c_str(), nullptr)) << name;
        }
    }
    EXPECT_EQ(ints, 27);
    EXPECT_EQ(doubles, 13);
    kwilTerm(h);
}

TEST(KwilSolve, CommandLineErrorsExitWithTwo)
{
    TempDir cwd;
    Result r = runTool(cwd, "");
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err.rfind("kwil-solve: no matrix file given\nUsage: kwil-solve", 0), 0u) << r.err;
    r = runTool(cwd, "--frobnicate a.mtx");
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err.rfind("kwil-solve: unknown option --frobnicate\n", 0), 0u) << r.err;
    r = runTool(cwd, "a.mtx b.mtx");
    EXPECT_EQ(r.status, 2);
    r = runTool(cwd, "a.mtx -c");
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err.rfind("kwil-solve: option -c needs a value\n", 0), 0u) << r.err;
}

} // namespace
