// Log lines: tags, streams, the trace gate and assertions.
#include <gtest/gtest.h>

#include "common/com.h"
#include "support/support.h"

using kwiltest::Capture;

namespace {

// A handle with option arrays but no file: TRACE as given.
struct FakeHandle {
    int intOpt[COM_OPT_INT_NUM] = {};
    double dblOpt[COM_OPT_DBL_NUM] = {};
    KwilHandle h{intOpt, dblOpt, nullptr, nullptr, nullptr};
    explicit FakeHandle(int trace) { intOpt[OPT_TRACE] = trace; }
};

} // namespace

TEST(Log, EachTagGoesToItsStreamAsOneLine)
{
    FakeHandle fake(1);
    Capture cap;
    comTrace(&fake.h, "Trace %d", 1);
    comWarn(&fake.h, "Warn %s", "w");
    const int r = comErr(&fake.h, "Err %.1f", 2.5);
    void* p = comErrNull(&fake.h, "ErrNull");
    cap.take();
    EXPECT_EQ(r, 0);
    EXPECT_EQ(p, nullptr);
    EXPECT_EQ(cap.out(), "KWILTRC: Trace 1\n");
    EXPECT_EQ(cap.err(), "KWILWRN: Warn w\nKWILERR: Err 2.5\nKWILERR: ErrNull\n");
}

TEST(Log, TraceGateClosesOnlyForAHandleWithTraceZero)
{
    FakeHandle off(0), on(7);
    Capture cap;
    comTrace(&off.h, "hidden");
    comTrace(&on.h, "shown");
    comTrace(nullptr, "null handle");
    comWarn(&off.h, "warnings are never gated");
    comErr(&off.h, "errors are never gated");
    cap.take();
    EXPECT_EQ(cap.out(), "KWILTRC: shown\nKWILTRC: null handle\n");
    EXPECT_EQ(cap.errLines().size(), 2u);
}

TEST(LogDeathTest, FailedAssertionWritesItsLineAndExitsWith255)
{
    EXPECT_EXIT(comAssert(nullptr, false, "Invalid %s", "thing"), testing::ExitedWithCode(255),
                "^KWILASR: Invalid thing\n$");
}

TEST(Log, TrueAssertionWritesNothing)
{
    Capture cap;
    comAssert(nullptr, true, "never");
    cap.take();
    EXPECT_EQ(cap.err(), "");
}
