// Timing, thread bracket and memory.
#include <gtest/gtest.h>
#include <omp.h>

#include <cstdint>
#include <regex>
#include <string>

#include "common/com.h"
#include "support/support.h"

using kwiltest::Capture;

namespace {

struct FakeHandle {
    int intOpt[COM_OPT_INT_NUM] = {};
    double dblOpt[COM_OPT_DBL_NUM] = {};
    KwilHandle h{intOpt, dblOpt, nullptr, nullptr, nullptr};
};

} // namespace

TEST(Time, OneColumnCheckWithEmptyLabel)
{
    FakeHandle fake;
    fake.intOpt[OPT_TRACE] = 1;
    ComTime t;
    comTimeBegin(&fake.h, "Solver", &t);
    EXPECT_STREQ(t.title, "Solver");
    Capture cap;
    comTimeCheck(&fake.h, "", &t, 0);
    cap.take();
    const auto out = cap.outLines();
    ASSERT_EQ(out.size(), 2u);
    EXPECT_EQ(out[0], "KWILTRC: Time Solver: ");
    EXPECT_TRUE(std::regex_match(
        out[1],
        std::regex(R"(KWILTRC:  - times -?\d+\.\d{3}s clock -?\d+\.\d{3}s omtime \d+\.\d{3}s)")))
        << out[1];
}

TEST(Time, TwoColumnCheckUpdatesTheLastSamples)
{
    FakeHandle fake;
    fake.intOpt[OPT_TRACE] = 1;
    ComTime t;
    comTimeBegin(&fake.h, "T", &t);
    const double last = t.wtimeLast;
    Capture cap;
    comTimeCheck(&fake.h, "step", &t, 1);
    cap.take();
    const auto out = cap.outLines();
    ASSERT_EQ(out.size(), 2u);
    EXPECT_EQ(out[0], "KWILTRC: Time T: step");
    EXPECT_TRUE(std::regex_match(
        out[1],
        std::regex(
            R"(KWILTRC:  - times (-?\d+\.\d{3}s)/(-?\d+\.\d{3}s) clock (-?\d+\.\d{3}s)/(-?\d+\.\d{3}s) omtime \d+\.\d{3}s/\d+\.\d{3}s)")))
        << out[1];
    EXPECT_GE(t.wtimeLast, last);
}

TEST(Time, ClosedGateLeavesTheRecordAndWritesNothing)
{
    FakeHandle fake; // TRACE 0
    ComTime t;
    memset(&t, 0x5a, sizeof t);
    ComTime copy = t;
    Capture cap;
    comTimeBegin(&fake.h, "Solver", &t);
    comTimeCheck(&fake.h, "", &t, 0);
    cap.take();
    EXPECT_EQ(cap.out(), "");
    EXPECT_EQ(memcmp(&t, &copy, sizeof t), 0);
}

TEST(Time, TitleOf63CharactersIsKept)
{
    ComTime t;
    const std::string title(63, 'x');
    comTimeBegin(nullptr, title.c_str(), &t);
    EXPECT_EQ(std::string(t.title), title);
}

TEST(TimeDeathTest, TitleOf64CharactersIsAnInvariantViolation)
{
    ComTime t;
    const std::string title(64, 'x');
    EXPECT_EXIT(comTimeBegin(nullptr, title.c_str(), &t), testing::ExitedWithCode(255),
                "^KWILASR: Invalid title size in time begin\n$");
}

TEST(Threads, BracketSetsAndRestoresTheCount)
{
    FakeHandle fake;
    const int start = omp_get_max_threads();
    fake.intOpt[OPT_THREADS] = 3;
    int prev = comSetThreads(&fake.h);
    EXPECT_EQ(prev, start);
    EXPECT_EQ(omp_get_max_threads(), 3);
    comResetThreads(&fake.h, prev);
    EXPECT_EQ(omp_get_max_threads(), start);

    fake.intOpt[OPT_THREADS] = 0;
    prev = comSetThreads(&fake.h);
    EXPECT_EQ(omp_get_max_threads(), omp_get_num_procs());
    comResetThreads(&fake.h, prev);
    EXPECT_EQ(omp_get_max_threads(), start);
}

TEST(Threads, NegativeCountWarnsAndKeepsTheCount)
{
    FakeHandle fake;
    fake.intOpt[OPT_THREADS] = -1;
    const int start = omp_get_max_threads();
    Capture cap;
    const int prev = comSetThreads(&fake.h);
    cap.take();
    EXPECT_EQ(cap.err(), "KWILWRN: Invalid threads -1\n");
    EXPECT_EQ(omp_get_max_threads(), start);
    comResetThreads(&fake.h, prev);
    EXPECT_EQ(omp_get_max_threads(), start);
}

TEST(Alloc, InjectedFailureReportsAndCountsOnlyLiveBlocks)
{
    const long live = comTestLiveAllocs();
    void* p = comAlloc(nullptr, 16);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(comTestLiveAllocs(), live + 1);
    comTestFailAlloc(2);
    void* q = comAlloc(nullptr, 8); // first from now: succeeds
    Capture cap;
    void* r = comAlloc(nullptr, 8); // second: fails
    cap.take();
    void* s = comAlloc(nullptr, 8); // disarmed again
    EXPECT_NE(q, nullptr);
    EXPECT_EQ(r, nullptr);
    EXPECT_NE(s, nullptr);
    EXPECT_EQ(cap.err(), "KWILERR: Allocation error\n");
    comFree(nullptr, p);
    comFree(nullptr, q);
    comFree(nullptr, s);
    comFree(nullptr, nullptr);
    EXPECT_EQ(comTestLiveAllocs(), live);
}

// Blocks of a huge page or more start on a huge-page boundary, are usable to their last byte and
// are freed like the small ones; a request no machine can meet fails with the error line.
TEST(Alloc, LargeBlocksStartOnHugePagesAndImpossibleOnesFail)
{
    const long live = comTestLiveAllocs();
    for (long size : {2L << 20, (3L << 20) + 5, 9L << 20}) {
        auto* p = static_cast<unsigned char*>(comAlloc(nullptr, size));
        ASSERT_NE(p, nullptr) << size;
        EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % (2u << 20), 0u) << size;
        p[0] = 1;
        p[size - 1] = 2;
        EXPECT_EQ(p[0] + p[size - 1], 3);
        comFree(nullptr, p);
    }
    auto* small = static_cast<unsigned char*>(comAlloc(nullptr, (2L << 20) - 1));
    ASSERT_NE(small, nullptr);
    small[(2L << 20) - 2] = 7;
    comFree(nullptr, small);
    Capture cap;
    void* none = comAlloc(nullptr, 1L << 62);
    cap.take();
    EXPECT_EQ(none, nullptr);
    // The address sanitizer, when built in, writes a warning of its own before the line.
    const std::string line = "KWILERR: Allocation error\n";
    const std::string err = cap.err();
    ASSERT_GE(err.size(), line.size());
    EXPECT_EQ(err.substr(err.size() - line.size()), line);
    EXPECT_EQ(comTestLiveAllocs(), live);
}
