// Allocation-failure sweep: drives every comAlloc of a scenario to fail in turn.
#pragma once

#include <gtest/gtest.h>

namespace kwiltest {

// fn() runs the scenario, releases everything it made and returns true on success.
template <class Fn>
long sweepAllocFailures(Fn fn)
{
    const long live0 = comTestLiveAllocs();
    const long before = comTestAllocCount();
    {
        Capture quiet;
        EXPECT_TRUE(fn()) << "scenario fails without an injected failure";
    }
    const long total = comTestAllocCount() - before;
    EXPECT_EQ(comTestLiveAllocs(), live0);
    for (long k = 1; k <= total; ++k) {
        Capture cap;
        comTestFailAlloc(k);
        const bool ok = fn();
        comTestFailAlloc(0);
        cap.take();
        EXPECT_FALSE(ok) << "allocation " << k << " of " << total << " failed but fn succeeded";
        EXPECT_NE(cap.err().find("KWILERR: Allocation error\n"), std::string::npos)
            << "allocation " << k;
        EXPECT_EQ(comTestLiveAllocs(), live0) << "leak after failing allocation " << k;
    }
    return total;
}

}  // namespace kwiltest
