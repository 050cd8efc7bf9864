// The shared iteration frame: give-up monitor, start and end lines, step limit, shadow residual,
// residual monitor and residual correction, for every solver.
#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <limits>

#include "iter/control.h"
#include "iter_support.h"

using namespace itertest;

namespace {

// giveupCheck with a given state; returns the result, the state and the captured lines.
struct GiveupRun {
    int result;
    int armed;
    double prev;
    std::vector<std::string> out;
};

GiveupRun giveup(KwilHandle* h, double level, double norm, int armed, double prev)
{
    GiveupRun g{0, armed, prev, {}};
    kwiltest::Capture cap;
    g.result = giveupCheck(h, level, norm, &g.armed, &g.prev, 0.5, "safe", 400);
    cap.take();
    g.out = cap.outLines();
    return g;
}

class GiveupCheck : public ::testing::Test {
  protected:
    void SetUp() override { h = kwiltest::makeHandle(dir, "TRACE 1\n"); }
    void TearDown() override { kwilTerm(h); }
    kwiltest::TempDir dir;
    KwilHandle* h = nullptr;
};

TEST_F(GiveupCheck, AboveTheLevelDisarmsAndKeepsThePreviousNorm)
{
    const GiveupRun g = giveup(h, 10.0, 10.5, 1, 4.0);
    EXPECT_EQ(g.result, 0);
    EXPECT_EQ(g.armed, 0);
    EXPECT_EQ(g.prev, 4.0);
    EXPECT_TRUE(g.out.empty());
}

TEST_F(GiveupCheck, FirstTestAtTheLevelOnlyArms)
{
    const GiveupRun g = giveup(h, 10.0, 10.0, 0, 0.0); // equal to the level: watched
    EXPECT_EQ(g.result, 0);
    EXPECT_EQ(g.armed, 1);
    EXPECT_EQ(g.prev, 10.0);
    EXPECT_TRUE(g.out.empty());
}

TEST_F(GiveupCheck, HalvingExactlyGoesOnAndRemembersTheNorm)
{
    const GiveupRun g = giveup(h, 10.0, 2.0, 1, 4.0); // 2 == 4 * 0.5: not above
    EXPECT_EQ(g.result, 0);
    EXPECT_EQ(g.armed, 1);
    EXPECT_EQ(g.prev, 2.0);
}

TEST_F(GiveupCheck, ArmedWithoutHalvingGivesUpWithTwoLines)
{
    const GiveupRun g = giveup(h, 10.0, 3.0, 1, 4.0);
    EXPECT_EQ(g.result, 1);
    EXPECT_EQ(g.armed, 1); // state left as it was
    EXPECT_EQ(g.prev, 4.0);
    const std::vector<std::string> want = {
        "KWILTRC: Iter safe give up abs norm 3.000000e+00 check 1.000000e+01",
        "KWILTRC:  - prev 4.000000e+00 reduct 5.000000e-01 step 400"};
    EXPECT_EQ(g.out, want);
}

TEST_F(GiveupCheck, GivingUpWithTheTraceOffWritesNothing)
{
    h->intOpt[OPT_TRACE] = 0;
    const GiveupRun g = giveup(h, 10.0, 3.0, 1, 4.0);
    EXPECT_EQ(g.result, 1);
    EXPECT_TRUE(g.out.empty());
}

// The four ways to run the frame: BiCGStab real and complex, the safe solver, BiCGStab(l).
struct Kind {
    const char* name;
    Solver fn;
    bool cplx;
};
const Kind kinds[] = {{"stab", solvIterStab, false},
                      {"stab", solvIterStab, true},
                      {"safe", solvIterSafe, false},
                      {"stab-l", solvIterStabL, true}};

std::string kindName(const ::testing::TestParamInfo<Kind>& info)
{
    std::string s = std::string(info.param.name) + (info.param.cplx ? "Complex" : "Real");
    s.erase(std::remove(s.begin(), s.end(), '-'), s.end());
    return s;
}

// The 1-D Laplacian of order 100, shifted by 0.1i on the diagonal for complex runs.
std::vector<Entry> frameMatrix(bool cplx)
{
    std::vector<Entry> e = laplace1d(100);
    if (cplx) {
        for (Entry& x : e)
            if (x.i == x.j)
                x.v += Cplx(0.0, 0.1);
    }
    return e;
}

// State the norm hooks read.
double hookNorm0 = 0.0;
Problem* hookProblem = nullptr;
std::vector<std::pair<int, double>> hookSeen; // (step, norm handed to the monitor)
std::vector<double> hookTrue;                 // ||b - A x|| at the same moments

struct HookGuard {
    explicit HookGuard(kwil::IterNormHook h) { kwil::iterTestSetNormHook(h); }
    ~HookGuard() { kwil::iterTestSetNormHook(nullptr); }
};

class Frame : public ::testing::TestWithParam<Kind> {
  protected:
    Frame() : p(frameMatrix(GetParam().cplx), 100, GetParam().cplx, "ITER_PREILU 0\n") {}
    std::string name() const { return GetParam().name; }
    bool isL() const { return name() == "stab-l"; }
    int run() { return p.run(GetParam().fn); }
    // The start lines as the frame writes them with the current options.
    std::vector<std::string> startLines(int maxK) const
    {
        const double n0 = norm(p.bv);
        std::vector<std::string> l;
        if (isL()) {
            l.push_back(fmt("KWILTRC: Iter stab-l l 1 pre 0 step trace 0 norm-0 %.4e", n0));
            l.push_back(
                fmt("KWILTRC:  - resolve 1.0000e-10 max k %d correct r 0-fix rtype 0", maxK));
        } else {
            l.push_back(fmt("KWILTRC: Iter %s pre 0 step trace 0 norm-0 %.4e", name().c_str(), n0));
            l.push_back(fmt("KWILTRC:  - resolve 1.0000e-10 max k %d correct r 100 rtype 0", maxK));
        }
        l.push_back("KWILTRC:  - giveup 200 check 1.0000e-05 reduct 5.0000e-01");
        if (name() == "safe")
            l.push_back("KWILTRC:  - safe cr 1 correct y 1");
        return l;
    }
    Problem p;
};

TEST_P(Frame, ConvergesWithTheStartLinesFirstAndTheEndLineLast)
{
    ASSERT_EQ(run(), 1);
    EXPECT_LT(p.error(), 1e-6);
    const std::vector<std::string> want = startLines(5000);
    ASSERT_GE(p.out.size(), want.size() + 1);
    EXPECT_EQ(std::vector<std::string>(p.out.begin(), p.out.begin() + want.size()), want);
    const EndLine e = endLine(p.out, name());
    ASSERT_TRUE(e.found);
    EXPECT_EQ(p.out.back(), fmt("KWILTRC: Iter %s end 1 step %d abs norm %.4e resolve %.4e",
                                name().c_str(), e.step, e.norm, 1e-10 * norm(p.bv)));
    EXPECT_LE(e.norm, e.tol);
    EXPECT_TRUE(p.err.empty());
    EXPECT_LT(relResidual(p.a, p.bv, values(p.x)), 1e-9);
}

TEST_P(Frame, StepLimitZeroRunsNoStep)
{
    p.setInt(OPT_ITER_MAXSTEP, 0);
    EXPECT_EQ(run(), 0);
    const double n0 = norm(p.bv);
    std::vector<std::string> want = startLines(0);
    want.push_back(fmt("KWILTRC: Iter %s end 0 step 0 abs norm %.4e resolve %.4e", name().c_str(),
                       n0, 1e-10 * n0));
    EXPECT_EQ(p.out, want);
    EXPECT_EQ(p.err, std::vector<std::string>{
                         fmt("KWILERR: Step over in iter %s step 0 abs norm %.4e resolve %.4e",
                             name().c_str(), n0, 1e-10 * n0)});
    EXPECT_EQ(norm(values(p.x)), 0.0);
}

TEST_P(Frame, StepLimitOutOfTheIntRangeRunsNoStep)
{
    for (double size : {1e10, -1e10, std::numeric_limits<double>::quiet_NaN()}) {
        p.setDbl(OPT_ITER_MAXSTEP_SIZE, size);
        EXPECT_EQ(run(), 0);
        ASSERT_GE(p.out.size(), 2u);
        EXPECT_EQ(p.out[1], startLines(INT_MIN)[1]) << size;
        ASSERT_EQ(p.err.size(), 1u);
        EXPECT_EQ(p.err[0].rfind("KWILERR: Step over in iter " + name() + " step 0 abs norm ", 0),
                  0u);
    }
}

TEST_P(Frame, StepLimitTruncatesTowardZero)
{
    p.setInt(OPT_ITER_MAXSTEP, 3);
    p.setDbl(OPT_ITER_MAXSTEP_SIZE, 0.0199); // 3 + 1.99
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(p.out[1], startLines(4)[1]);
    p.setInt(OPT_ITER_MAXSTEP, 0);
    p.setDbl(OPT_ITER_MAXSTEP_SIZE, -0.0099); // -0.99 truncates to 0
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(p.out[1], startLines(0)[1]);
}

// Allocations of a solve with step limits 2 and 20: the same count when no step allocates.
void expectNoStepAllocates(Problem& p, Solver fn)
{
    long counts[2];
    int i = 0;
    for (int limit : {2, 20}) {
        p.setInt(OPT_ITER_MAXSTEP, limit);
        const long before = comTestAllocCount();
        EXPECT_EQ(p.run(fn), 0);
        counts[i++] = comTestAllocCount() - before;
    }
    EXPECT_EQ(counts[0], counts[1]);
    EXPECT_GT(counts[0], 0);
}

TEST_P(Frame, NoStepAllocates)
{
    expectNoStepAllocates(p, GetParam().fn);
}

TEST_P(Frame, NoStepAllocatesWithThePreconditioner)
{
    const bool cplx = GetParam().cplx;
    Problem q(cplx ? complexConvDiff2d(12) : convDiff2d(12, 30.0), 144, cplx,
              "ITER_PREILU 1\nITER_RESOLVE 1e-300\n"); // out of reach in 20 steps
    expectNoStepAllocates(q, GetParam().fn);
}

TEST_P(Frame, TwoKernelThreadsAreDeterministicWithThePreconditioner)
{
    // Large enough for the factors' solves to run on two threads: the answers and traces of two
    // solves are still the same bits.
    const bool cplx = GetParam().cplx;
    const int prev = omp_get_max_threads();
    omp_set_num_threads(2);
    Problem q(cplx ? complexConvDiff2d(200) : convDiff2d(200, 30.0), 40000, cplx,
              "ITER_PREILU 1\nITER_MAXSTEP 30\nITER_STEPTRACE 1\nITER_RESOLVE 1e-300\n");
    q.run(GetParam().fn);
    const std::vector<std::string> out1 = q.out;
    const std::vector<Cplx> x1 = values(q.x);
    q.run(GetParam().fn);
    omp_set_num_threads(prev);
    EXPECT_EQ(q.out, out1);
    EXPECT_EQ(memcmp(values(q.x).data(), x1.data(), x1.size() * sizeof(Cplx)), 0);
    EXPECT_GT(out1.size(), 10u);
}

// Hands the monitor the norm hookSteps[step] where one is given, the true norm elsewhere.
std::vector<std::pair<int, double>> hookSteps;
double normAtSteps(int step, double norm)
{
    for (const auto& [s, v] : hookSteps)
        if (s == step)
            return v;
    return norm;
}

TEST_P(Frame, NormEqualToTheToleranceConverges)
{
    // With ITER_RESOLVE 1 the tolerance is ||r0|| = ||b|| itself (x starts at 0).
    p.setDbl(OPT_ITER_RESOLVE, 1.0);
    const double tol = comLinVecCalcNorm2(p.handle, p.b);
    const double above = std::nextafter(tol, HUGE_VAL);
    hookSteps = {{1, above}, {2, tol}}; // STABL_L 1: a cycle is one step
    {
        HookGuard hook(normAtSteps);
        EXPECT_EQ(run(), 1);
    }
    const EndLine e = endLine(p.out, name());
    EXPECT_EQ(e.result, 1);
    EXPECT_EQ(e.step, 2);
    EXPECT_TRUE(p.err.empty());
    hookSteps = {{1, above}, {2, above}};
    p.setInt(OPT_ITER_MAXSTEP, 3);
    {
        HookGuard hook(normAtSteps);
        EXPECT_EQ(run(), 0); // just above at every test: the step limit
    }
    EXPECT_EQ(endLine(p.out, name()).step, 3);
}

TEST_P(Frame, ReachingTheLimitFailsEvenWhenTheLastStepWouldConverge)
{
    ASSERT_EQ(run(), 1);
    const int k = endLine(p.out, name()).step;
    ASSERT_GE(k, 2);
    p.setInt(OPT_ITER_MAXSTEP, k);
    EXPECT_EQ(run(), 0);
    const EndLine e = endLine(p.out, name());
    EXPECT_EQ(e.result, 0);
    EXPECT_EQ(e.step, k);
    ASSERT_EQ(p.err.size(), 1u);
    EXPECT_EQ(p.err[0], fmt("KWILERR: Step over in iter %s step %d abs norm %.4e resolve %.4e",
                            name().c_str(), k, e.norm, e.tol));
    p.setInt(OPT_ITER_MAXSTEP, k + 1);
    EXPECT_EQ(run(), 1);
    EXPECT_EQ(endLine(p.out, name()).step, k);
}

TEST_P(Frame, InvalidRTypeCreatesNothingAndLeavesXAlone)
{
    std::vector<Cplx> x0(100, Cplx(3.0, GetParam().cplx ? -1.0 : 0.0));
    for (int rtype : {2, -1}) {
        p.setX(x0);
        p.setInt(OPT_ITER_R_TYPE, rtype);
        const long allocs = comTestAllocCount();
        EXPECT_EQ(p.runFrom(GetParam().fn), 0);
        EXPECT_EQ(comTestAllocCount(), allocs);
        EXPECT_TRUE(p.out.empty());
        EXPECT_EQ(p.err,
                  std::vector<std::string>{
                      fmt("KWILERR: Invalid r type %d in iter %s solver", rtype, name().c_str())});
        EXPECT_EQ(values(p.x), x0);
    }
}

TEST_P(Frame, RTypeZeroIsDeterministic)
{
    p.setInt(OPT_ITER_STEPTRACE, 1);
    ASSERT_EQ(run(), 1);
    const std::vector<std::string> out1 = p.out;
    const std::vector<Cplx> x1 = values(p.x);
    ASSERT_EQ(run(), 1);
    EXPECT_EQ(p.out, out1);
    EXPECT_EQ(memcmp(values(p.x).data(), x1.data(), x1.size() * sizeof(Cplx)), 0);
    EXPECT_GT(out1.size(), 10u); // a loop line per step
}

TEST_P(Frame, RandomShadowResidualConverges)
{
    p.setInt(OPT_ITER_R_TYPE, 1);
    ASSERT_EQ(run(), 1);
    EXPECT_EQ(p.out[1].substr(p.out[1].size() - 7), "rtype 1");
    EXPECT_LT(p.error(), 1e-6);
}

TEST_P(Frame, LoopLinesFollowTheTraceInterval)
{
    p.setInt(OPT_ITER_STEPTRACE, 3);
    ASSERT_EQ(run(), 1);
    const EndLine e = endLine(p.out, name());
    const std::string head = "KWILTRC: Iter " + name() + " loop step ";
    std::vector<int> steps;
    for (const std::string& l : p.out) {
        if (l.rfind(head, 0) != 0)
            continue;
        int k;
        double nrm;
        ASSERT_EQ(sscanf(l.c_str() + head.size(), "%d abs norm %lf", &k, &nrm), 2) << l;
        EXPECT_EQ(l, fmt("%s%d abs norm %.4e resolve %.4e", head.c_str(), k, nrm, e.tol));
        steps.push_back(k);
    }
    std::vector<int> want;
    for (int k = 3; k <= e.step; k += 3)
        want.push_back(k);
    EXPECT_EQ(steps, want);
    for (int off : {0, -2}) {
        p.setInt(OPT_ITER_STEPTRACE, off);
        ASSERT_EQ(run(), 1);
        EXPECT_EQ(findLine(p.out, head), "");
    }
}

// Stalls at 2e-7 ||r0|| from step 150 on; before that half of ||r0||.
double stallAt150(int step, double)
{
    return (step < 150 ? 0.5 : 2e-7) * hookNorm0;
}

TEST_P(Frame, StallingResidualGivesUpAtTheSecondTest)
{
    HookGuard hook(stallAt150);
    hookNorm0 = norm(p.bv);
    EXPECT_EQ(run(), 1);
    const double level = hookNorm0 * (100000.0 * 1e-10);
    const std::string n = name();
    ASSERT_GE(p.out.size(), 3u);
    const std::vector<std::string> tail(p.out.end() - 3, p.out.end());
    const std::vector<std::string> want = {
        fmt("KWILTRC: Iter %s give up abs norm %e check %e", n.c_str(), 2e-7 * hookNorm0, level),
        fmt("KWILTRC:  - prev %e reduct 5.000000e-01 step 400", 2e-7 * hookNorm0),
        fmt("KWILTRC: Iter %s end 1 step 400 abs norm %.4e resolve %.4e", n.c_str(),
            2e-7 * hookNorm0, 1e-10 * hookNorm0)};
    EXPECT_EQ(tail, want);
    EXPECT_TRUE(p.err.empty());
}

TEST_P(Frame, WithTheTraceOffOnlyErrorsAreWritten)
{
    p.setInt(OPT_TRACE, 0);
    {
        HookGuard hook(stallAt150);
        hookNorm0 = norm(p.bv);
        EXPECT_EQ(run(), 1); // gave up: as silent as convergence
        EXPECT_TRUE(p.out.empty());
        EXPECT_TRUE(p.err.empty());
    }
    p.setInt(OPT_ITER_MAXSTEP, 0);
    EXPECT_EQ(run(), 0);
    EXPECT_TRUE(p.out.empty());
    ASSERT_EQ(p.err.size(), 1u);
    EXPECT_EQ(p.err[0].rfind("KWILERR: Step over in iter " + name() + " step 0 ", 0), 0u);
}

// At or below the level at 200, above it at 400, below again at 600 and 800.
double disarmAt400(int step, double)
{
    if (step == 400)
        return 1e-4 * hookNorm0;
    return (step < 800 ? 1e-6 : 0.9e-6) * hookNorm0;
}

TEST_P(Frame, ATestAboveTheLevelDisarmsTheMonitor)
{
    HookGuard hook(disarmAt400);
    hookNorm0 = norm(p.bv);
    EXPECT_EQ(run(), 1);
    EXPECT_EQ(findLine(p.out, "KWILTRC:  - prev "),
              fmt("KWILTRC:  - prev %e reduct 5.000000e-01 step 800", 1e-6 * hookNorm0));
    EXPECT_EQ(endLine(p.out, name()).step, 800);
}

TEST_P(Frame, GiveupZeroNeverGivesUp)
{
    HookGuard hook(stallAt150);
    hookNorm0 = norm(p.bv);
    p.setInt(OPT_ITER_GIVEUP, 0);
    p.setInt(OPT_ITER_MAXSTEP, 700);
    EXPECT_EQ(run(), 0);
    // BiCGStab's last computed norm is that of s in the final step.
    const EndLine e = endLine(p.out, name());
    EXPECT_EQ(e.step, 700);
    if (name() != "stab") {
        EXPECT_EQ(e.norm, std::stod(fmt("%.4e", 2e-7 * hookNorm0)));
    }
    EXPECT_EQ(p.err, std::vector<std::string>{
                         fmt("KWILERR: Step over in iter %s step 700 abs norm %.4e resolve %.4e",
                             name().c_str(), e.norm, 1e-10 * hookNorm0)});
    EXPECT_EQ(findLine(p.out, "KWILTRC: Iter " + name() + " give up"), "");
}

double infiniteAt3(int step, double norm)
{
    return step == 3 ? HUGE_VAL : norm;
}

TEST_P(Frame, InfiniteNormStopsLikeANaN)
{
    HookGuard hook(infiniteAt3);
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(p.err, std::vector<std::string>{
                         fmt("KWILERR: Norm nan error in iter %s step 3", name().c_str())});
    EXPECT_NE(findLine(p.out, "KWILTRC: Iter " + name() + " nan error alpha "), "");
    EXPECT_EQ(p.out.back(), fmt("KWILTRC: Iter %s end 0 step 3 abs norm inf resolve %.4e",
                                name().c_str(), 1e-10 * norm(p.bv)));
}

// Records the monitor's norm and the true residual of the current iterate.
double recordNorms(int step, double norm)
{
    hookSeen.push_back({step, norm});
    hookTrue.push_back(relResidual(hookProblem->a, hookProblem->bv, values(hookProblem->x)) *
                       itertest::norm(hookProblem->bv));
    return norm;
}

// Runs with the norms recorded; the tolerance is out of reach.
void recordRun(Problem& p, Solver fn, int correct, int steps)
{
    HookGuard hook(recordNorms);
    hookProblem = &p;
    hookSeen.clear();
    hookTrue.clear();
    p.setInt(OPT_ITER_CORRECT_R, correct);
    p.setInt(OPT_ITER_MAXSTEP, steps);
    p.setInt(OPT_ITER_GIVEUP, 0);
    p.setDbl(OPT_ITER_RESOLVE, 1e-300);
    EXPECT_EQ(p.run(fn), 0);
    EXPECT_EQ(hookSeen.size(), static_cast<size_t>(steps - 1));
}

INSTANTIATE_TEST_SUITE_P(Solvers, Frame, ::testing::ValuesIn(kinds), kindName);

// BiCGStab's recurrence residual drifts from b - A x once it is small; the correction puts the
// true residual back every ITER_CORRECT_R steps. The library's product and the plain loop here
// may round differently, by a few units of the last place of |A| |x| ~ |b|.
class Correction : public Frame {};

TEST_P(Correction, ReplacesTheRecurrenceResidualAtItsInterval)
{
    recordRun(p, GetParam().fn, 7, 150);
    const double rounding = 64 * std::numeric_limits<double>::epsilon() * norm(p.bv);
    for (size_t i = 0; i < hookSeen.size(); ++i) {
        if (hookSeen[i].first % 7 != 0)
            continue;
        EXPECT_NEAR(hookSeen[i].second, hookTrue[i], 1e-6 * hookTrue[i] + rounding)
            << hookSeen[i].first;
    }
    // Without it the recurrence residual ends far below the true one: 3e-4 of it with
    // OpenBLAS's Haswell kernels, 7e-4 with its SSE3 ones.
    recordRun(p, GetParam().fn, 0, 150);
    EXPECT_LT(hookSeen.back().second, 1e-2 * hookTrue.back());
}

INSTANTIATE_TEST_SUITE_P(Stab, Correction, ::testing::ValuesIn(kinds, kinds + 2), kindName);

TEST(StepLimit, AddsTheSizeProportionalPartAndTruncates)
{
    Problem p(laplace1d(1001), 1001, false, "ITER_MAXSTEP 100\nITER_MAXSTEP_SIZE 0.5\n");
    ASSERT_EQ(p.run(solvIterStab), 1); // 100 + 500.5
    EXPECT_EQ(findLine(p.out, "KWILTRC:  - resolve "),
              "KWILTRC:  - resolve 1.0000e-10 max k 600 correct r 100 rtype 0");
}

TEST(StabL, IgnoresTheCorrectionInterval)
{
    Problem p(frameMatrix(true), 100, true, "ITER_PREILU 0\nITER_STEPTRACE 1\n");
    p.setInt(OPT_ITER_CORRECT_R, 1);
    ASSERT_EQ(p.run(solvIterStabL), 1);
    const std::vector<std::string> out1 = p.out;
    const std::vector<Cplx> x1 = values(p.x);
    p.setInt(OPT_ITER_CORRECT_R, 0);
    ASSERT_EQ(p.run(solvIterStabL), 1);
    EXPECT_EQ(p.out, out1);
    EXPECT_EQ(values(p.x), x1);
}

// The solvers' complex scalars use the plain formulas, without the scaling or the NaN recovery
// of std::complex: what overflows or underflows in c^2 + d^2 shows it.
TEST(ComplexScalars, QuotientAndProductArePlain)
{
    const ComComplex q = kwil::cdiv(ComComplex{1.0, 1.0}, ComComplex{1e200, 1e200});
    EXPECT_EQ(q.re, 0.0); // 2e200 / inf; a scaled quotient gives 1e-200
    EXPECT_EQ(q.im, 0.0);
    const ComComplex big = kwil::cdiv(ComComplex{1.0, 0.0}, ComComplex{1e-200, 1e-200});
    EXPECT_EQ(big.re, HUGE_VAL); // 1e-200 / 0
    EXPECT_EQ(big.im, -HUGE_VAL);
    const ComComplex z = kwil::cdiv(ComComplex{0.0, 0.0}, ComComplex{0.0, 0.0});
    EXPECT_TRUE(std::isnan(z.re) && std::isnan(z.im));
    // ((c a + d b) + i (c b - d a)) / (c^2 + d^2): (3 + 4i) / (1 + 2i) = 2.2 - 0.4i
    const ComComplex e = kwil::cdiv(ComComplex{3.0, 4.0}, ComComplex{1.0, 2.0});
    EXPECT_EQ(e.re, 11.0 / 5.0);
    EXPECT_EQ(e.im, -2.0 / 5.0);
    // (inf + inf i)(1 + 0i): inf * 0 in both parts; C's recovery would return an infinity.
    const ComComplex p = kwil::cmul(ComComplex{HUGE_VAL, HUGE_VAL}, ComComplex{1.0, 0.0});
    EXPECT_TRUE(std::isnan(p.re) && std::isnan(p.im));
    const ComComplex m = kwil::cmul(ComComplex{1.5, -2.0}, ComComplex{-3.0, 0.5});
    EXPECT_EQ(m.re, -3.5);
    EXPECT_EQ(m.im, 6.75);
}

} // namespace
