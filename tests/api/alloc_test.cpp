// Every allocation failure inside kwilSolv and kwilCheckResult: reported, nothing leaked, the
// thread count restored, and the handle still solves.
#include <gtest/gtest.h>
#include <omp.h>

#include <functional>
#include <ostream>
#include <string>
#include <tuple>

#include "api/kwil.h"
#include "api_util.h"
#include "support/support.h"

using apitest::Cplx;
using apitest::InDir;
using apitest::System;
using kwiltest::Capture;
using kwiltest::TempDir;

namespace {

struct Scenario {
    const char* name;
    std::string options;
    std::function<System()> make;
    bool bComp;      // b complex (else real, promoted for a complex A)
    bool solveFirst; // a solve before the measured one leaves A compressed
    bool scaling;    // DIAG_SCALE: a failure inside the scaling falls back to no scaling
};

void PrintTo(const Scenario& sc, std::ostream* os)
{
    *os << sc.name;
}

// 4 x 4 with no stored diagonal in row 2 (see the repair cases); nonsingular.
System missingDiagonal()
{
    System s;
    s.n = 4;
    for (const auto& e :
         {std::make_tuple(0, 0, 4.0), std::make_tuple(0, 1, -1.0), std::make_tuple(1, 0, -1.0),
          std::make_tuple(1, 1, 4.0), std::make_tuple(1, 2, -1.0), std::make_tuple(2, 1, 2.0),
          std::make_tuple(2, 3, -1.0), std::make_tuple(3, 2, -1.0), std::make_tuple(3, 3, 4.0)}) {
        s.add(std::get<0>(e), std::get<1>(e), std::get<2>(e));
    }
    s.rhsOnes();
    return s;
}

const Scenario kSolveScenarios[] = {
    {"BiCGStabReal", "SOLVER 0\n", [] { return apitest::convDiff(4, false); }, false, false, false},
    {"BiCGStabComplexRealBSecondSolve", "SOLVER 0\nILU_FILLIN 1\n",
     [] { return apitest::tridiag(9, Cplx(-1, 1), Cplx(4, 0), Cplx(-1, -1), true); }, false, true,
     false},
    {"SafeSolver", "SOLVER 1\n", [] { return apitest::convDiff(4, false); }, false, false, false},
    {"BiCGStabL", "SOLVER 2\nSTABL_L 2\n", [] { return apitest::convDiff(4, true); }, true, false,
     false},
    {"DirectComplexRealB", "SOLVER 10\n", [] { return apitest::convDiff(3, true); }, false, false,
     false},
    {"DirectWithRepair", "SOLVER 10\nREV_DIAGZERO 2\n", missingDiagonal, false, false, false},
    {"IluSolve", "SOLVER 20\n", [] { return apitest::tridiag(8, -1.0, 3.0, -1.0, false); }, false,
     true, false},
    {"SaveAll", "SOLVER 10\nSAVE_ALL 1\n", [] { return apitest::convDiff(3, true); }, true, false,
     false},
    {"Scaling", "SOLVER 0\nDIAG_SCALE 1\n", [] { return apitest::convDiff(4, false); }, false,
     false, true},
};

class SolveAllocation : public ::testing::TestWithParam<Scenario> {
  protected:
    KwilHandle* prepare(const std::string& extra)
    {
        const Scenario& sc = GetParam();
        KwilHandle* h = kwiltest::makeHandle(dir, sc.options + "THREADS 2\n" + extra);
        apitest::load(h, system, sc.bComp);
        if (sc.solveFirst) {
            Capture quiet;
            EXPECT_EQ(kwilSolv(h), 1);
        }
        return h;
    }
    // Allocations made by the measured solve.
    long count(const std::string& extra)
    {
        KwilHandle* h = prepare(extra);
        const long before = comTestAllocCount();
        {
            Capture quiet;
            EXPECT_EQ(kwilSolv(h), 1);
        }
        const long n = comTestAllocCount() - before;
        kwilTerm(h);
        return n;
    }
    bool solved(KwilHandle* h) const
    {
        const double rel = apitest::relResidual(system, apitest::getX(h));
        return GetParam().options.find("SOLVER 20") != std::string::npos
                   ? rel <= 1e-14 // ILU(0) of a tridiagonal matrix is exact
                   : rel <= 1e-8;
    }
    // The scenario's system; a real b holds the real parts of A (1, ..., 1).
    static System makeSystem()
    {
        System s = GetParam().make();
        if (!GetParam().bComp) {
            for (Cplx& v : s.b)
                v = v.real();
        }
        return s;
    }
    TempDir dir;
    System system = makeSystem();
};

TEST_P(SolveAllocation, EveryFailureIsReportedAndRecovered)
{
    const Scenario& sc = GetParam();
    InDir in(dir.dir()); // snapshots land here
    const long live0 = comTestLiveAllocs();
    const long total = count("");
    // Failures past the allocations of a solve without snapshot happen in the snapshot, which
    // never changes the result.
    const long beforeSnapshot = count("SAVE_ALL 0\n");
    ASSERT_GT(total, 0);
    const int threads = omp_get_max_threads();
    for (long k = 1; k <= total; ++k) {
        KwilHandle* h = prepare("");
        omp_set_num_threads(1);
        Capture cap;
        comTestFailAlloc(k);
        const int r = kwilSolv(h);
        comTestFailAlloc(0);
        cap.take();
        EXPECT_NE(cap.err().find("KWILERR: Allocation error\n"), std::string::npos)
            << sc.name << " allocation " << k << " of " << total;
        EXPECT_EQ(omp_get_max_threads(), 1) << sc.name << " allocation " << k;
        if (k > beforeSnapshot) {
            EXPECT_EQ(r, 1) << sc.name << " allocation " << k << cap.err();
        } else if (sc.scaling && r == 1) {
            EXPECT_NE(cap.err().find(" in diag scale begin\n"), std::string::npos)
                << sc.name << " allocation " << k << cap.err();
        } else {
            EXPECT_EQ(r, 0) << sc.name << " allocation " << k << cap.err();
        }
        if (r == 1) {
            EXPECT_TRUE(solved(h)) << sc.name << " allocation " << k;
        }
        {
            Capture quiet;
            EXPECT_EQ(kwilSolv(h), 1) << sc.name << " after allocation " << k;
        }
        EXPECT_TRUE(solved(h)) << sc.name << " after allocation " << k;
        kwilTerm(h);
        EXPECT_EQ(comTestLiveAllocs(), live0) << sc.name << " leak at allocation " << k;
    }
    omp_set_num_threads(threads);
}

INSTANTIATE_TEST_SUITE_P(Scenarios, SolveAllocation, ::testing::ValuesIn(kSolveScenarios),
                         [](const ::testing::TestParamInfo<Scenario>& p) {
                             return std::string(p.param.name);
                         });

// kwilCheckResult on a solved handle (A compressed) and on a fresh one (conversion, clean-up
// and promotion of both vectors).
TEST(CheckAllocation, EveryFailureIsReportedAndRecovered)
{
    TempDir dir;
    const long live0 = comTestLiveAllocs();
    for (bool solveFirst : {true, false}) {
        const System s = apitest::convDiff(3, true);
        auto prepare = [&] {
            KwilHandle* h = kwiltest::makeHandle(dir, "SOLVER 10\nTHREADS 2\n");
            apitest::load(h, s, false);
            if (solveFirst) {
                Capture quiet;
                EXPECT_EQ(kwilSolv(h), 1);
            } else {
                EXPECT_EQ(kwilVecVarCreate(h, 0, s.n, 1.0, 0.0), 1);
                EXPECT_EQ(kwilSetOpt(h, "CHECK_RESULT_LIM", 0, 0, 0.0), 1);
            }
            return h;
        };
        KwilHandle* h = prepare();
        double rel = 0.0, abs = 0.0;
        const long before = comTestAllocCount();
        ASSERT_EQ(kwilCheckResult(h, &rel, &abs), 1);
        const long total = comTestAllocCount() - before;
        const double rel0 = rel;
        kwilTerm(h);
        ASSERT_GT(total, 0);
        const int threads = omp_get_max_threads();
        for (long k = 1; k <= total; ++k) {
            h = prepare();
            omp_set_num_threads(1);
            rel = abs = -1.0;
            Capture cap;
            comTestFailAlloc(k);
            const int r = kwilCheckResult(h, &rel, &abs);
            comTestFailAlloc(0);
            cap.take();
            EXPECT_EQ(r, 0) << "allocation " << k;
            EXPECT_NE(cap.err().find("KWILERR: Allocation error\n"), std::string::npos);
            EXPECT_EQ(omp_get_max_threads(), 1);
            EXPECT_EQ(rel, -1.0);
            EXPECT_EQ(kwilCheckResult(h, &rel, &abs), 1) << "after allocation " << k;
            EXPECT_EQ(rel, rel0);
            kwilTerm(h);
            EXPECT_EQ(comTestLiveAllocs(), live0) << "leak at allocation " << k;
        }
        omp_set_num_threads(threads);
    }
}

} // namespace
