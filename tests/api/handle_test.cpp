// Handle lifecycle and the options API.
#include <gtest/gtest.h>
#include <unistd.h>

#include "api/kwil.h"
#include "common/com.h"
#include "support/support.h"

using kwiltest::Capture;
using kwiltest::TempDir;

TEST(KwilInit, WrongVersionIsRefused)
{
    Capture cap;
    EXPECT_EQ(kwilInit(2, "whatever.ini"), nullptr);
    cap.take();
    EXPECT_EQ(cap.err(), "KWILERR: Invalid library version 2 != 1 in init kwil\n");
}

TEST(KwilInit, TracesTheFileAndVersion)
{
    TempDir dir;
    const std::string p = dir.write("a.ini", "FILE_VER 1\nTRACE 1\n");
    Capture cap;
    KwilHandle* h = kwilInit(1, p.c_str());
    cap.take();
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(cap.out(), "KWILTRC: Init ver 1 option file '" + p + "' ver 1\n");
    EXPECT_EQ(h->matCoef, nullptr);
    EXPECT_EQ(h->vecFix, nullptr);
    EXPECT_EQ(h->vecVar, nullptr);
    kwilTerm(h);
}

TEST(KwilInit, NullPathReadsKwilIniInTheWorkingDirectory)
{
    TempDir dir;
    char old[4096];
    ASSERT_NE(getcwd(old, sizeof old), nullptr);
    ASSERT_EQ(chdir(dir.dir().c_str()), 0);
    {
        Capture cap;
        EXPECT_EQ(kwilInit(1, nullptr), nullptr); // no fallback to pure defaults
        cap.take();
        EXPECT_EQ(cap.err(), "KWILERR: No option file in init opt 'kwil.ini'\n");
    }
    dir.write("kwil.ini", "FILE_VER 1\nSOLVER 2\nTRACE 1\n");
    Capture cap;
    KwilHandle* h = kwilInit(1, nullptr);
    cap.take();
    ASSERT_EQ(chdir(old), 0);
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(cap.out(), "KWILTRC: Init ver 1 option file 'kwil.ini' ver 1\n");
    int solver = 0;
    EXPECT_EQ(kwilGetOpt(h, "SOLVER", 1, &solver, nullptr), 1);
    EXPECT_EQ(solver, 2);
    kwilTerm(h);
}

TEST(KwilInit, BadVersionFileReleasesEverything)
{
    TempDir dir;
    const std::string p = dir.write("a.ini", "SOLVER 1\n");
    const long live = comTestLiveAllocs();
    Capture cap;
    EXPECT_EQ(kwilInit(1, p.c_str()), nullptr);
    cap.take();
    EXPECT_EQ(cap.err(), "KWILERR: Invalid or no version -1 in init opt '" + p + "'\n");
    EXPECT_EQ(comTestLiveAllocs(), live);
}

TEST(KwilInit, EveryAllocationFailureIsReportedAndLeaksNothing)
{
    TempDir dir;
    const std::string p = dir.write("a.ini", "FILE_VER 1\n");
    const char* second[] = {"KWILERR: Alloc error init kwil", "KWILERR: Alloc error in init option",
                            "KWILERR: Alloc error in init option"};
    const long live = comTestLiveAllocs();
    for (long k = 1; k <= 3; ++k) {
        Capture cap;
        comTestFailAlloc(k);
        EXPECT_EQ(kwilInit(1, p.c_str()), nullptr);
        comTestFailAlloc(0);
        cap.take();
        const auto err = cap.errLines();
        ASSERT_EQ(err.size(), 2u) << cap.err();
        EXPECT_EQ(err[0], "KWILERR: Allocation error");
        EXPECT_EQ(err[1], second[k - 1]);
        EXPECT_EQ(comTestLiveAllocs(), live);
    }
    const long before = comTestAllocCount();
    KwilHandle* h = kwilInit(1, p.c_str());
    EXPECT_NE(h, nullptr);
    EXPECT_EQ(comTestAllocCount() - before, 3); // the handle and the two option arrays
    kwilTerm(h);
    EXPECT_EQ(comTestLiveAllocs(), live);
}

TEST(KwilOpt, SetAndGetByTable)
{
    TempDir dir;
    KwilHandle* h = kwiltest::makeHandle(dir);
    int iv = 0;
    double dv = 0.0;
    EXPECT_EQ(kwilSetOpt(h, "SOLVER", 1, 77, 9.5), 1); // unknown solver values are accepted
    EXPECT_EQ(kwilSetOpt(h, "ITER_RESOLVE", 0, 77, 1e-6), 1);
    EXPECT_EQ(kwilGetOpt(h, "SOLVER", 1, &iv, nullptr), 1);
    EXPECT_EQ(kwilGetOpt(h, "ITER_RESOLVE", 0, nullptr, &dv), 1);
    EXPECT_EQ(iv, 77);
    EXPECT_EQ(dv, 1e-6);
    EXPECT_EQ(h->dblOpt[OPT_ITER_RESOLVE], 1e-6);
    kwilTerm(h);
}

TEST(KwilOpt, UnknownNamesAreReportedWithTheFlag)
{
    TempDir dir;
    KwilHandle* h = kwiltest::makeHandle(dir);
    int iv = -5;
    double dv = -5.0;
    Capture cap;
    EXPECT_EQ(kwilSetOpt(h, "NOPE", 3, 1, 1.0), 0);
    EXPECT_EQ(kwilGetOpt(h, "SOLVER", 0, &iv, &dv), 0); // SOLVER is no double option
    EXPECT_EQ(kwilGetOpt(h, "ITER_RESOLVE", 1, &iv, &dv), 0);
    cap.take();
    EXPECT_EQ(cap.err(), "KWILERR: Unknown key in set opt int flag 3 key 'NOPE'\n"
                         "KWILERR: Unknown key in get opt int flag 0 key 'SOLVER'\n"
                         "KWILERR: Unknown key in get opt int flag 1 key 'ITER_RESOLVE'\n");
    EXPECT_EQ(iv, -5);
    EXPECT_EQ(dv, -5.0);
    kwilTerm(h);
}

TEST(KwilReadOptFile, ResetsSetValuesAndTraces)
{
    TempDir dir;
    KwilHandle* h = kwiltest::makeHandle(dir, "TRACE 1\n");
    ASSERT_EQ(kwilSetOpt(h, "ITER_MAXSTEP", 1, 9, 0.0), 1);
    const std::string p = dir.write("b.ini", "FILE_VER 1\nTRACE 1\n");
    Capture cap;
    EXPECT_EQ(kwilReadOptFile(h, p.c_str()), 1);
    cap.take();
    EXPECT_EQ(cap.out(), "KWILTRC: Read option file '" + p + "' ver 1\n");
    int iv = 0;
    kwilGetOpt(h, "ITER_MAXSTEP", 1, &iv, nullptr);
    EXPECT_EQ(iv, 5000);
    kwilTerm(h);
}

TEST(KwilReadOptFile, FailureLeavesAUsableHandle)
{
    TempDir dir;
    KwilHandle* h = kwiltest::makeHandle(dir);
    kwilSetOpt(h, "SOLVER", 1, 2, 0.0);
    {
        Capture cap;
        EXPECT_EQ(kwilReadOptFile(h, dir.path("missing.ini").c_str()), 0);
        cap.take();
        EXPECT_EQ(cap.err(),
                  "KWILERR: No option file in init opt '" + dir.path("missing.ini") + "'\n");
    }
    int iv = -1;
    EXPECT_EQ(kwilGetOpt(h, "SOLVER", 1, &iv, nullptr), 1);
    EXPECT_EQ(iv, 0); // the defaults are in place
    const std::string good = dir.write("c.ini", "FILE_VER 1\nSOLVER 1\n");
    for (long k = 1; k <= 2; ++k) {
        kwilSetOpt(h, "SOLVER", 1, 20, 0.0);
        Capture cap;
        comTestFailAlloc(k);
        EXPECT_EQ(kwilReadOptFile(h, good.c_str()), 0);
        comTestFailAlloc(0);
        cap.take();
        EXPECT_EQ(kwilGetOpt(h, "SOLVER", 1, &iv, nullptr), 1);
        EXPECT_EQ(iv, 20); // the old options survive a failed allocation
    }
    EXPECT_EQ(kwilReadOptFile(h, good.c_str()), 1);
    kwilTerm(h);
}
