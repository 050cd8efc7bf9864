// Allocation-failure sweep that also checks the error line the routine under test reports.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "support/support.h"

namespace prectest {

// fn() runs the scenario, releases everything it made and returns true on success. For every
// allocation k that fn() makes, making the k-th fail must give false, leak nothing, and end the
// error output with one of the lines in last (tag included); each of those lines must end some
// failure. Returns the number of points.
template <class Fn> long sweepWithLines(Fn fn, const std::vector<std::string>& last)
{
    const long live0 = comTestLiveAllocs();
    const long before = comTestAllocCount();
    {
        kwiltest::Capture quiet;
        EXPECT_TRUE(fn()) << "scenario fails without an injected failure";
    }
    const long total = comTestAllocCount() - before;
    EXPECT_EQ(comTestLiveAllocs(), live0);
    std::vector<std::string> seen;
    for (long k = 1; k <= total; ++k) {
        kwiltest::Capture cap;
        comTestFailAlloc(k);
        const bool ok = fn();
        comTestFailAlloc(0);
        cap.take();
        EXPECT_FALSE(ok) << "allocation " << k << " of " << total << " failed but fn succeeded";
        const auto err = cap.errLines();
        EXPECT_FALSE(err.empty()) << "allocation " << k;
        if (!err.empty()) {
            EXPECT_NE(std::find(err.begin(), err.end(), "KWILERR: Allocation error"), err.end())
                << "allocation " << k;
            EXPECT_NE(std::find(last.begin(), last.end(), err.back()), last.end())
                << "allocation " << k << " ends with " << err.back();
            seen.push_back(err.back());
        }
        EXPECT_EQ(comTestLiveAllocs(), live0) << "leak after failing allocation " << k;
    }
    for (const std::string& line : last)
        EXPECT_NE(std::find(seen.begin(), seen.end(), line), seen.end()) << "never: " << line;
    return total;
}

} // namespace prectest
