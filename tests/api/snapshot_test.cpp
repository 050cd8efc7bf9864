// The save-all snapshot of kwilSolv: directory numbering, the six files and their contents.
#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "api/kwil.h"
#include "api_util.h"
#include "support/support.h"

using apitest::Cplx;
using apitest::InDir;
using apitest::System;
using kwiltest::Capture;
using kwiltest::TempDir;

namespace {

// Names in a directory, sorted, without "." and "..".
std::vector<std::string> listDir(const std::string& path)
{
    std::vector<std::string> names;
    DIR* d = opendir(path.c_str());
    if (d == nullptr)
        return names;
    while (dirent* e = readdir(d)) {
        const std::string n = e->d_name;
        if (n != "." && n != "..")
            names.push_back(n);
    }
    closedir(d);
    std::sort(names.begin(), names.end());
    return names;
}

bool isDir(const std::string& path)
{
    struct stat st;
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// diag(1, 2) x = (3, 4): ||b|| = 5.
System smallSystem()
{
    System s;
    s.n = 2;
    s.add(1, 1, 2.0);
    s.add(0, 0, 1.0);
    s.b = {3.0, 4.0};
    return s;
}

class Snapshot : public ::testing::Test {
  protected:
    // A handle working in the temporary directory, with SAVE_ALL set.
    void SetUp() override
    {
        in = new InDir(dir.dir());
        h = kwiltest::makeHandle(dir, "SAVE_ALL 1\nSOLVER 10\n");
    }
    void TearDown() override
    {
        kwilTerm(h);
        delete in;
    }
    int solve()
    {
        Capture c;
        const int r = kwilSolv(h);
        c.take();
        err = c.err();
        return r;
    }
    std::vector<std::string> saveDirs() const
    {
        std::vector<std::string> out;
        for (const std::string& n : listDir(".")) {
            if (n.rfind("kwilSave", 0) == 0)
                out.push_back(n);
        }
        return out;
    }
    TempDir dir;
    InDir* in = nullptr;
    KwilHandle* h = nullptr;
    std::string err;
};

TEST_F(Snapshot, HoldsExactlyTheSixFilesWithTheirContents)
{
    apitest::load(h, smallSystem());
    ASSERT_EQ(kwilSetOpt(h, "SOLVER", 1, -1, 0.0), 1); // x = 0: residual -b, rel 1, abs 5
    ASSERT_EQ(solve(), 1);
    EXPECT_EQ(err, "KWILWRN: Solver test\n");
    ASSERT_EQ(saveDirs(), std::vector<std::string>{"kwilSave0001"});
    EXPECT_EQ(listDir("kwilSave0001"),
              (std::vector<std::string>{"kwil.ini", "matCoef.mtx", "result.txt", "vecDiff.mtx",
                                        "vecFix.mtx", "vecVar.mtx"}));
    EXPECT_EQ(kwiltest::readFile("kwilSave0001/result.txt"),
              "Solver result norm \nRel 1.0000e+00\nAbs 5.0000e+00\n");
    // A as the solve left it: compressed, so in row order.
    EXPECT_EQ(kwiltest::readFile("kwilSave0001/matCoef.mtx"),
              "%%MatrixMarket matrix coordinate real general\n"
              "2 2 2\n"
              "1 1 1.00000000000000000000e+00\n"
              "2 2 2.00000000000000000000e+00\n");
    EXPECT_EQ(kwiltest::readFile("kwilSave0001/vecFix.mtx"),
              "%%MatrixMarket matrix array real general\n"
              "2 1\n"
              "3.00000000000000000000e+00\n"
              "4.00000000000000000000e+00\n");
    EXPECT_EQ(kwiltest::readFile("kwilSave0001/vecVar.mtx"),
              "%%MatrixMarket matrix array real general\n"
              "2 1\n"
              "0.00000000000000000000e+00\n"
              "0.00000000000000000000e+00\n");
    EXPECT_EQ(kwiltest::readFile("kwilSave0001/vecDiff.mtx"),
              "%%MatrixMarket matrix array real general\n"
              "2 1\n"
              "-3.00000000000000000000e+00\n"
              "-4.00000000000000000000e+00\n");
    const std::string ini = kwiltest::readFile("kwilSave0001/kwil.ini");
    EXPECT_NE(ini.find("\nSAVE_ALL 1\n"), std::string::npos);
    EXPECT_NE(ini.find("\nSOLVER -1\n"), std::string::npos);
    EXPECT_NE(ini.find("FILE_VER 1\n"), std::string::npos);
}

TEST_F(Snapshot, ComplexSystemsAreWrittenComplex)
{
    System s = apitest::tridiag(3, Cplx(0.0, 1.0), Cplx(2.0, 0.0), Cplx(0.0, -1.0), true);
    apitest::load(h, s, false); // the real b is promoted and saved complex
    ASSERT_EQ(solve(), 1) << err;
    const std::string fix = kwiltest::readFile("kwilSave0001/vecFix.mtx");
    EXPECT_EQ(fix.rfind("%%MatrixMarket matrix array complex general\n3 1\n", 0), 0u) << fix;
    const std::string mat = kwiltest::readFile("kwilSave0001/matCoef.mtx");
    EXPECT_EQ(mat.rfind("%%MatrixMarket matrix coordinate complex general\n3 3 7\n", 0), 0u);
    double rel = -1.0, abs = -1.0;
    ASSERT_EQ(std::sscanf(kwiltest::readFile("kwilSave0001/result.txt").c_str(),
                          "Solver result norm \nRel %lf\nAbs %lf", &rel, &abs),
              2);
    EXPECT_LT(rel, 1e-14);
    EXPECT_LT(abs, 1e-13);
}

TEST_F(Snapshot, TakesTheLowestFreeNumber)
{
    for (const char* d : {"kwilSave0001", "kwilSave0002", "kwilSave0003"}) {
        ASSERT_EQ(mkdir(d, 0755), 0);
    }
    apitest::load(h, smallSystem());
    ASSERT_EQ(solve(), 1);
    EXPECT_TRUE(isDir("kwilSave0004"));
    EXPECT_EQ(listDir("kwilSave0004").size(), 6u);
    EXPECT_TRUE(listDir("kwilSave0002").empty());

    ASSERT_EQ(rmdir("kwilSave0002"), 0);
    ASSERT_EQ(solve(), 1);
    EXPECT_EQ(listDir("kwilSave0002").size(), 6u);
    ASSERT_EQ(solve(), 1);
    EXPECT_TRUE(isDir("kwilSave0005"));
    EXPECT_EQ(saveDirs().size(), 5u);
}

TEST_F(Snapshot, TheDirectoryIsMadeWithPermissions0755)
{
    const mode_t old = umask(0);
    apitest::load(h, smallSystem());
    const int result = solve();
    umask(old);
    ASSERT_EQ(result, 1);
    struct stat st;
    ASSERT_EQ(stat("kwilSave0001", &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0755u);
}

TEST_F(Snapshot, AFileOfTheSameNameIsSkippedLikeADirectory)
{
    FILE* f = fopen("kwilSave0001", "w");
    ASSERT_NE(f, nullptr);
    fclose(f);
    apitest::load(h, smallSystem());
    ASSERT_EQ(solve(), 1);
    EXPECT_TRUE(isDir("kwilSave0002"));
}

// A scratch directory in memory when the machine has one: 9999 names are slow to make on disk.
TempDir* fastTempDir()
{
    const char* old = getenv("TMPDIR");
    const std::string saved = old != nullptr ? old : "";
    if (access("/dev/shm", W_OK) == 0)
        setenv("TMPDIR", "/dev/shm", 1);
    auto* dir = new TempDir;
    if (old != nullptr) {
        setenv("TMPDIR", saved.c_str(), 1);
    } else {
        unsetenv("TMPDIR");
    }
    return dir;
}

TEST_F(Snapshot, AllNamesTakenIsReportedAndTheSolveStillSucceeds)
{
    std::unique_ptr<TempDir> fast(fastTempDir());
    InDir there(fast->dir());
    char name[32];
    for (int n = 1; n <= 9999; ++n) {
        snprintf(name, sizeof name, "kwilSave%04d", n);
        FILE* f = fopen(name, "w");
        ASSERT_NE(f, nullptr);
        fclose(f);
    }
    apitest::load(h, smallSystem());
    EXPECT_EQ(solve(), 1);
    EXPECT_EQ(err, "KWILERR: Too mutch save all dir in solver\n");
}

TEST_F(Snapshot, AnUnwritableWorkingDirectoryIsReported)
{
    if (geteuid() == 0)
        GTEST_SKIP() << "root ignores directory permissions";
    ASSERT_EQ(chmod(".", 0555), 0);
    apitest::load(h, smallSystem());
    EXPECT_EQ(solve(), 1);
    ASSERT_EQ(chmod(".", 0755), 0);
    EXPECT_EQ(err, "KWILERR: Make save all dir error in solver\n");
}

TEST_F(Snapshot, IsWrittenAfterAFailedSolverButNotAfterAFailedCheck)
{
    apitest::load(h, smallSystem());
    ASSERT_EQ(kwilSetOpt(h, "SOLVER", 1, 5, 0.0), 1);
    EXPECT_EQ(solve(), 0);
    EXPECT_EQ(err, "KWILERR: Unknown solver type 5 in solver\n");
    EXPECT_EQ(kwiltest::readFile("kwilSave0001/result.txt"),
              "Solver result norm \nRel 1.0000e+00\nAbs 5.0000e+00\n");

    // A failure before the solver writes nothing.
    ASSERT_EQ(kwilVecFixCreate(h, 0, 3, 1.0, 0.0), 1);
    EXPECT_EQ(solve(), 0);
    EXPECT_EQ(err, "KWILERR: Size unmatch in solver\n");
    EXPECT_EQ(saveDirs().size(), 1u);
}

TEST_F(Snapshot, TheMatrixIsSavedWithTheRepairUndone)
{
    // Rows 2 and 3 store no diagonal; SOLVER 5 lies in the iterative range, so the repair runs.
    System s;
    s.n = 3;
    s.add(0, 0, 2.0);
    s.add(1, 2, 5.0);
    s.add(2, 1, 7.0);
    s.b = {2.0, 5.0, 7.0};
    apitest::load(h, s);
    ASSERT_EQ(kwilSetOpt(h, "SOLVER", 1, 5, 0.0), 1);
    EXPECT_EQ(solve(), 0);
    EXPECT_EQ(kwiltest::readFile("kwilSave0001/matCoef.mtx"),
              "%%MatrixMarket matrix coordinate real general\n"
              "3 3 5\n"
              "1 1 2.00000000000000000000e+00\n"
              "2 2 0.00000000000000000000e+00\n"
              "2 3 5.00000000000000000000e+00\n"
              "3 2 7.00000000000000000000e+00\n"
              "3 3 0.00000000000000000000e+00\n");
}

TEST_F(Snapshot, NanResultIsSavedWithTheFailure)
{
    ASSERT_EQ(kwilSetOpt(h, "SOLVER", 1, 20, 0.0), 1);
    apitest::load(h, smallSystem());
    ASSERT_EQ(kwilVecFixSet(h, 0, std::nan(""), 0.0), 1);
    EXPECT_EQ(solve(), 0);
    EXPECT_EQ(err, "KWILERR: Result var vector nan error in solver\n");
    EXPECT_EQ(kwiltest::readFile("kwilSave0001/result.txt"),
              "Solver result norm \nRel nan\nAbs nan\n");
}

TEST_F(Snapshot, TheSavedOptionFileReRunsTheSolveAndSnapsAgain)
{
    const System s = apitest::convDiff(4, false);
    apitest::load(h, s);
    ASSERT_EQ(kwilSetOpt(h, "ITER_RESOLVE", 0, 0, 1.25e-11), 1);
    ASSERT_EQ(solve(), 1);

    KwilHandle* g = kwilInit(KWIL_VERSION, "kwilSave0001/kwil.ini");
    ASSERT_NE(g, nullptr);
    double resolve = 0.0;
    ASSERT_EQ(kwilGetOpt(g, "ITER_RESOLVE", 0, nullptr, &resolve), 1);
    EXPECT_EQ(resolve, 1.25e-11);
    ASSERT_EQ(kwilMatCoefFileRead(g, "kwilSave0001/matCoef.mtx"), 1);
    ASSERT_EQ(kwilVecFixFileRead(g, "kwilSave0001/vecFix.mtx"), 1);
    Capture cap;
    ASSERT_EQ(kwilSolv(g), 1);
    cap.take();
    EXPECT_EQ(kwiltest::readFile("kwilSave0002/vecVar.mtx"),
              kwiltest::readFile("kwilSave0001/vecVar.mtx"));
    EXPECT_EQ(kwiltest::readFile("kwilSave0002/result.txt"),
              kwiltest::readFile("kwilSave0001/result.txt"));
    EXPECT_EQ(apitest::getX(g), apitest::getX(h));
    kwilTerm(g);
}

TEST(SnapshotOff, NoDirectoryWithoutSaveAll)
{
    TempDir dir;
    InDir in(dir.dir());
    KwilHandle* h = kwiltest::makeHandle(dir, "SOLVER 10\n");
    apitest::load(h, smallSystem());
    EXPECT_EQ(kwilSolv(h), 1);
    EXPECT_EQ(listDir("."), std::vector<std::string>{"kwil_test.ini"});
    kwilTerm(h);
}

} // namespace
