// Option tables, option file grammar, save and trace.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstring>

#include "common/com.h"
#include "support/support.h"

using kwiltest::Capture;
using kwiltest::TempDir;

namespace {

// A handle whose options come from the given file text; the read's result in ok.
struct OptFixture {
    TempDir dir;
    KwilHandle h{nullptr, nullptr, nullptr, nullptr, nullptr};
    std::string path;
    int ok = -1;
    std::string err;

    explicit OptFixture(const std::string& text)
    {
        path = dir.write("opt.ini", text);
        Capture cap;
        ok = comOptInit(&h, path.c_str());
        cap.take();
        err = cap.err();
    }
    ~OptFixture()
    {
        comFree(nullptr, h.intOpt);
        comFree(nullptr, h.dblOpt);
    }
};

} // namespace

TEST(OptTable, KeysNamesAndDefaults)
{
    int nInt = 0, nDbl = 0;
    for (const ComOptIntInfo* e = optIntInfo; e->key != -1; ++e)
        ++nInt;
    for (const ComOptDoubleInfo* e = optDoubleInfo; e->key != -1; ++e)
        ++nDbl;
    EXPECT_EQ(nInt, 27);
    EXPECT_EQ(nDbl, 13);
    EXPECT_STREQ(optIntInfo[nInt].name, "");
    EXPECT_STREQ(optDoubleInfo[nDbl].name, "");
    EXPECT_EQ(comOptFindKey(nullptr, "SOLVER", 1), 12);
    EXPECT_EQ(comOptFindKey(nullptr, "PARDISO_PIVOT", 1), 64);
    EXPECT_EQ(comOptFindKey(nullptr, "ITER_GIVEUP_REDUCT", 0), 33);
    EXPECT_EQ(comOptFindKey(nullptr, "SOLVER", 0), -1); // only the chosen table
    EXPECT_EQ(comOptFindKey(nullptr, "ITER_RESOLVE", 1), -1);
    EXPECT_EQ(comOptFindKey(nullptr, "solver", 1), -1); // case-sensitive
    EXPECT_EQ(comOptFindKey(nullptr, "", 1), -1);       // the terminator is no option
    for (const ComOptIntInfo* e = optIntInfo; e->key != -1; ++e) {
        EXPECT_EQ(comOptFindKey(nullptr, e->name, 0), -1) << e->name << " in both tables";
    }
}

TEST(OptFile, OnlyTheVersionLineGivesAllDefaults)
{
    OptFixture f("FILE_VER 1\n");
    EXPECT_EQ(f.ok, 1);
    EXPECT_EQ(f.err, "");
    for (const ComOptIntInfo* e = optIntInfo; e->key != -1; ++e) {
        if (e->key != OPT_FILE_VER) {
            EXPECT_EQ(f.h.intOpt[e->key], e->def) << e->name;
        }
    }
    for (const ComOptDoubleInfo* e = optDoubleInfo; e->key != -1; ++e) {
        EXPECT_EQ(f.h.dblOpt[e->key], e->def) << e->name;
    }
    EXPECT_EQ(f.h.intOpt[5], 0); // slots without a table entry are zero
    EXPECT_EQ(f.h.dblOpt[39], 0.0);
}

TEST(OptFile, MissingVersionFailsShowingMinusOneAndKeepsWhatWasRead)
{
    OptFixture f("SOLVER 10\n");
    EXPECT_EQ(f.ok, 0);
    EXPECT_EQ(f.err, "KWILERR: Invalid or no version -1 in init opt '" + f.path + "'\n");
    EXPECT_EQ(f.h.intOpt[OPT_SOLVER], 10);
}

TEST(OptFile, WrongVersionAnywhereInTheFile)
{
    OptFixture f("SOLVER 2\nFILE_VER 2\n");
    EXPECT_EQ(f.ok, 0);
    EXPECT_EQ(f.err, "KWILERR: Invalid or no version 2 in init opt '" + f.path + "'\n");
    OptFixture g("SOLVER 2\nFILE_VER 1\n"); // the version line may come last
    EXPECT_EQ(g.ok, 1);
}

TEST(OptFile, MissingFileKeepsTheDefaults)
{
    KwilHandle h{nullptr, nullptr, nullptr, nullptr, nullptr};
    Capture cap;
    EXPECT_EQ(comOptInit(&h, "/nonexistent/dir/kwil.ini"), 0);
    cap.take();
    EXPECT_EQ(cap.err(), "KWILERR: No option file in init opt '/nonexistent/dir/kwil.ini'\n");
    ASSERT_NE(h.intOpt, nullptr);
    EXPECT_EQ(h.intOpt[OPT_ITER_MAXSTEP], 5000);
    EXPECT_EQ(h.intOpt[OPT_FILE_VER], -1);
    comFree(nullptr, h.intOpt);
    comFree(nullptr, h.dblOpt);
}

TEST(OptFile, GrammarWarningsCountEveryLine)
{
    OptFixture f("# comment line\n"         // 1
                 "\n"                       // 2
                 "SOLVER 10 # trailing\n"   // 3: three tokens
                 "   # indented comment\n"  // 4
                 "THREADS four\n"           // 5
                 "ITER_RESOLVE 5\n"         // 6
                 "ITER_MAXSTEP 12abc\n"     // 7
                 "NO_SUCH_KEY 1\n"          // 8
                 "ILU_ACCEL x1\n"           // 9
                 "TRACE\n"                  // 10: key only
                 "#SOLVER 2\n"              // 11
                 "FILE_VER 1\n"             // 12
                 "USER_I1 3\nUSER_I1 4\n"); // 13, 14: the later line wins
    EXPECT_EQ(f.ok, 1);
    EXPECT_EQ(f.err, "KWILWRN: Invalid format in init opt line 3 key 'SOLVER'\n"
                     "KWILWRN: Invalid int value in init opt line 5 key 'THREADS'\n"
                     "KWILWRN: Unknown key in init opt line 8 key 'NO_SUCH_KEY'\n"
                     "KWILWRN: Invalid double value in init opt line 9 key 'ILU_ACCEL'\n"
                     "KWILWRN: Invalid format in init opt line 10 key 'TRACE'\n");
    EXPECT_EQ(f.h.intOpt[OPT_SOLVER], 0);
    EXPECT_EQ(f.h.intOpt[OPT_THREADS], 1);
    EXPECT_EQ(f.h.dblOpt[OPT_ITER_RESOLVE], 5.0);
    EXPECT_EQ(f.h.intOpt[OPT_ITER_MAXSTEP], 12);
    EXPECT_EQ(f.h.dblOpt[OPT_ILU_ACCEL], 1.0);
    EXPECT_EQ(f.h.intOpt[OPT_USER_I1], 4);
}

TEST(OptFile, LineLongerThan1023CharactersCountsAsSeveralLines)
{
    // 1023 characters fill the first piece; the rest is a second line of its own.
    const std::string longLine = "USER_I2 7" + std::string(1014, ' ') + "BOGUS 1\n";
    OptFixture f(longLine + "NOPE 1\nFILE_VER 1\n");
    EXPECT_EQ(f.ok, 1);
    EXPECT_EQ(f.err, "KWILWRN: Unknown key in init opt line 2 key 'BOGUS'\n"
                     "KWILWRN: Unknown key in init opt line 3 key 'NOPE'\n");
    EXPECT_EQ(f.h.intOpt[OPT_USER_I2], 7);
}

TEST(OptFile, LongTokensAreCutAt63Characters)
{
    const std::string key(80, 'K');
    OptFixture f(key + " 1\nFILE_VER 1\n");
    EXPECT_EQ(f.ok, 1);
    // The first 63 characters form the key, the remaining 17 the value, and "1" a third token.
    EXPECT_EQ(f.err,
              "KWILWRN: Invalid format in init opt line 1 key '" + key.substr(0, 63) + "'\n");
}

TEST(OptFile, SaveThenReadReproducesEveryBit)
{
    TempDir dir;
    KwilHandle* h = kwiltest::makeHandle(dir);
    ASSERT_NE(h, nullptr);
    const double values[] = {0.1,
                             1e-300,
                             4.9406564584124654e-324,
                             -0.0,
                             DBL_MAX,
                             -DBL_MIN,
                             1.0 / 3.0,
                             2.2250738585072009e-308,
                             123456789.123456789};
    int i = 0;
    for (const ComOptDoubleInfo* e = optDoubleInfo; e->key != -1; ++e, ++i) {
        h->dblOpt[e->key] = values[i % 9];
    }
    h->intOpt[OPT_SOLVER] = -1;
    h->intOpt[OPT_USER_I4] = -2147483647 - 1;
    const std::string saved = dir.path("saved.ini");
    ASSERT_EQ(comOptSave(h, saved.c_str()), 1);
    KwilHandle* g = kwilInit(1, saved.c_str());
    ASSERT_NE(g, nullptr);
    EXPECT_EQ(memcmp(g->intOpt, h->intOpt, sizeof(int) * COM_OPT_INT_NUM), 0);
    EXPECT_EQ(memcmp(g->dblOpt, h->dblOpt, sizeof(double) * COM_OPT_DBL_NUM), 0);
    const std::string text = kwiltest::readFile(saved);
    EXPECT_EQ(text.substr(0, 24), "USER_I1 0\nUSER_I2 0\nUSER");
    EXPECT_NE(text.find("\nUSER_D1 1.00000000000000005551e-01\n"), std::string::npos);
    kwilTerm(g);
    kwilTerm(h);
}

TEST(OptFile, SaveToAnUnwritablePathFails)
{
    TempDir dir;
    KwilHandle* h = kwiltest::makeHandle(dir);
    Capture cap;
    EXPECT_EQ(comOptSave(h, "/nonexistent/dir/x.ini"), 0);
    cap.take();
    EXPECT_EQ(cap.err(), "KWILERR: File open error in save opt '/nonexistent/dir/x.ini'\n");
    kwilTerm(h);
}

TEST(OptTrace, TitleNineIntLinesSevenDoubleLines)
{
    TempDir dir;
    KwilHandle* h = kwiltest::makeHandle(dir, "TRACE 1\nUSER_I3 -7\nPARDISO_PIVOT 8\n"
                                              "USER_D4 -1.5e300\nITER_GIVEUP_REDUCT 0.25\n");
    Capture cap;
    comOptTrace(h, "Solver");
    cap.take();
    EXPECT_EQ(cap.out(), "KWILTRC: Option: Solver\n"
                         "KWILTRC: -  USER_I1 0, USER_I2 0, USER_I3 -7,\n"
                         "KWILTRC: -  USER_I4 0, FILE_VER 1, TRACE 1,\n"
                         "KWILTRC: -  SOLVER 0, THREADS 1, REV_DIAGZERO 1,\n"
                         "KWILTRC: -  SAVE_ALL 0, DIAG_SCALE 0, ILU_TRACE 0,\n"
                         "KWILTRC: -  ILU_FILLIN 0, ITER_PREILU 1, ITER_CORRECT_R 100,\n"
                         "KWILTRC: -  ITER_STEPTRACE 0, ITER_MAXSTEP 5000, ITER_R_TYPE 0,\n"
                         "KWILTRC: -  ITER_GIVEUP 200, SAFE_CR 1, SAFE_CORRECT_Y 1,\n"
                         "KWILTRC: -  STABL_L 1, PARDISO_TRACE 0, PARDISO_MEM_LIM 0,\n"
                         "KWILTRC: -  PARDISO_STAT 0, PARDISO_ITER 2, PARDISO_PIVOT 8,\n"
                         "KWILTRC: -  USER_D1 0.0000e+00, USER_D2 0.0000e+00,\n"
                         "KWILTRC: -  USER_D3 0.0000e+00, USER_D4 -1.5000e+300,\n"
                         "KWILTRC: -  REV_DIAGZERO_VAL 1.0000e-12, CHECK_RESULT_LIM 1.0000e-03,\n"
                         "KWILTRC: -  ILU_REV_DIAGZERO_VAL 1.0000e-12, ILU_ACCEL 1.0000e+00,\n"
                         "KWILTRC: -  ILU_FILLINMIN 1.0000e-03, ITER_MAXSTEP_SIZE 0.0000e+00,\n"
                         "KWILTRC: -  ITER_RESOLVE 1.0000e-10, ITER_GIVEUP_CHECK 1.0000e+05,\n"
                         "KWILTRC: -  ITER_GIVEUP_REDUCT 2.5000e-01,\n");
    EXPECT_EQ(cap.err(), "");

    h->intOpt[OPT_TRACE] = 0;
    Capture quiet;
    comOptTrace(h, "Solver");
    quiet.take();
    EXPECT_EQ(quiet.out(), "");
    EXPECT_EQ(quiet.err(), "");
    kwilTerm(h);
}

TEST(OptFile, FailedAllocationKeepsTheOldOptions)
{
    TempDir dir;
    KwilHandle* h = kwiltest::makeHandle(dir, "SOLVER 10\n");
    const std::string other = dir.write("other.ini", "FILE_VER 1\nSOLVER 2\n");
    for (long k = 1; k <= 2; ++k) {
        Capture cap;
        comTestFailAlloc(k);
        EXPECT_EQ(comOptInit(h, other.c_str()), 0);
        comTestFailAlloc(0);
        cap.take();
        EXPECT_EQ(cap.err(), "KWILERR: Allocation error\nKWILERR: Alloc error in init option\n");
        EXPECT_EQ(h->intOpt[OPT_SOLVER], 10) << "failing allocation " << k;
    }
    const long live = comTestLiveAllocs();
    EXPECT_EQ(comOptInit(h, other.c_str()), 1);
    EXPECT_EQ(h->intOpt[OPT_SOLVER], 2);
    EXPECT_EQ(comTestLiveAllocs(), live);
    kwilTerm(h);
}
