// The three Krylov solvers: convergence on real and complex problems, their own endings and
// messages, the BiCGStab(l) control values and breakdowns, and every allocation failure.
#include <gtest/gtest.h>

#include <cmath>

#include "iter/control.h"
#include "iter_support.h"
#include "precond/precond.h"

using namespace itertest;

namespace {

struct Case {
    const char* label;
    const char* name; // solver name in its lines
    Solver fn;
    int problem; // 0 Laplacian 1-D, 1 convection-diffusion, 2 complex symmetric,
                 // 3 complex non-Hermitian, 4 complex Laplacian 1-D
    const char* opts;
    double maxError;
};

Problem* makeProblem(int kind, const std::string& opts)
{
    switch (kind) {
    case 0:
        return new Problem(laplace1d(100), 100, false, opts);
    case 1:
        return new Problem(convDiff2d(20, 30.0), 400, false, opts);
    case 2:
        return new Problem(helmholtz2d(20, Cplx(100.0, 50.0)), 400, true, opts);
    case 3:
        return new Problem(complexConvDiff2d(20), 400, true, opts);
    default:
        return new Problem(laplace1d(100), 100, true, opts);
    }
}

const Case cases[] = {
    {"StabLaplace", "stab", solvIterStab, 0, "ITER_PREILU 0\n", 1e-6},
    {"StabLaplaceIlu", "stab", solvIterStab, 0, "ITER_PREILU 1\n", 1e-6},
    {"StabLaplaceComplexType", "stab", solvIterStab, 4, "ITER_PREILU 0\n", 1e-6},
    {"SafeLaplace", "safe", solvIterSafe, 0, "ITER_PREILU 0\n", 1e-6},
    {"SafeLaplaceIlu", "safe", solvIterSafe, 0, "ITER_PREILU 1\n", 1e-6},
    {"SafeLaplaceBicg", "safe", solvIterSafe, 0, "ITER_PREILU 0\nSAFE_CR 0\n", 1e-6},
    {"SafeLaplaceBicgIlu", "safe", solvIterSafe, 0, "SAFE_CR 0\n", 1e-6},
    {"SafeLaplaceRecurY", "safe", solvIterSafe, 0, "ITER_PREILU 0\nSAFE_CORRECT_Y 0\n", 1e-6},
    {"SafeLaplaceRecurYIlu", "safe", solvIterSafe, 0, "SAFE_CORRECT_Y 0\n", 1e-6},
    {"SafeLaplaceBothOff", "safe", solvIterSafe, 0, "ITER_PREILU 0\nSAFE_CR 0\nSAFE_CORRECT_Y 0\n",
     1e-6},
    {"StabLLaplaceComplexType", "stab-l", solvIterStabL, 4, "ITER_PREILU 0\n", 1e-6},
    {"StabLLaplaceComplexTypeIlu", "stab-l", solvIterStabL, 4, "", 1e-6},
    {"StabConvDiff", "stab", solvIterStab, 1, "ITER_PREILU 0\n", 1e-7},
    {"StabConvDiffIlu", "stab", solvIterStab, 1, "", 1e-7},
    {"SafeConvDiff", "safe", solvIterSafe, 1, "ITER_PREILU 0\n", 1e-7},
    {"SafeConvDiffIlu", "safe", solvIterSafe, 1, "", 1e-7},
    {"SafeConvDiffBicgRecurY", "safe", solvIterSafe, 1, "SAFE_CR 0\nSAFE_CORRECT_Y 0\n", 1e-7},
    {"StabComplexSymmetric", "stab", solvIterStab, 2, "ITER_PREILU 0\n", 1e-7},
    {"StabComplexSymmetricIlu", "stab", solvIterStab, 2, "", 1e-7},
    {"StabLComplexSymmetric", "stab-l", solvIterStabL, 2, "ITER_PREILU 0\n", 1e-7},
    {"StabL2ComplexSymmetricIlu", "stab-l", solvIterStabL, 2, "STABL_L 2\n", 1e-7},
    {"StabL4ComplexSymmetric", "stab-l", solvIterStabL, 2, "ITER_PREILU 0\nSTABL_L 4\n", 1e-7},
    {"StabComplexNonHermitian", "stab", solvIterStab, 3, "ITER_PREILU 0\n", 1e-7},
    {"StabComplexNonHermitianIlu", "stab", solvIterStab, 3, "", 1e-7},
    {"StabLComplexNonHermitian", "stab-l", solvIterStabL, 3, "ITER_PREILU 0\n", 1e-7},
    {"StabL3ComplexNonHermitianIlu", "stab-l", solvIterStabL, 3, "STABL_L 3\n", 1e-7},
};

class Converges : public ::testing::TestWithParam<Case> {};

TEST_P(Converges, ToTheKnownSolutionLeavingAAndBAlone)
{
    const Case& c = GetParam();
    std::unique_ptr<Problem> p(makeProblem(c.problem, c.opts));
    const std::vector<Cplx> a0 = values(p->b);
    const std::vector<int> rows(p->a->row, p->a->row + p->n + 1);
    const long nnz = p->a->dataNum * (p->cplx ? 2L : 1L);
    const double* av = p->cplx ? p->a->compData : p->a->realData;
    const std::vector<double> vals(av, av + nnz);
    const long live = comTestLiveAllocs();

    ASSERT_EQ(p->run(c.fn), 1) << (p->err.empty() ? "" : p->err[0]);
    const EndLine e = endLine(p->out, c.name);
    ASSERT_TRUE(e.found);
    EXPECT_EQ(e.result, 1);
    EXPECT_LE(e.norm, e.tol);
    EXPECT_TRUE(p->err.empty());
    EXPECT_LT(relResidual(p->a, p->bv, values(p->x)), 2e-10);
    EXPECT_LT(p->error(), c.maxError);
    EXPECT_EQ(comTestLiveAllocs(), live);
    EXPECT_EQ(values(p->b), a0);
    EXPECT_EQ(std::vector<int>(p->a->row, p->a->row + p->n + 1), rows);
    EXPECT_EQ(std::vector<double>(av, av + nnz), vals);
}

INSTANTIATE_TEST_SUITE_P(Problems, Converges, ::testing::ValuesIn(cases),
                         [](const ::testing::TestParamInfo<Case>& i) { return i.param.label; });

TEST(SafeSolver, IluOfTheLaplacianIsExactSoOneStepSolves)
{
    Problem p(laplace1d(100), 100, false);
    ASSERT_EQ(p.run(solvIterSafe), 1);
    const EndLine e = endLine(p.out, "safe");
    EXPECT_EQ(e.step, 1);
    EXPECT_LT(p.error(), 1e-10);
}

// Records ||r|| handed to the monitor against ||b - A x|| of the iterate.
Problem* tracked = nullptr;
double worstGap = 0.0;
double trackGap(int, double norm)
{
    const double trueNorm =
        relResidual(tracked->a, tracked->bv, values(tracked->x)) * itertest::norm(tracked->bv);
    worstGap = std::max(worstGap, std::fabs(norm - trueNorm) / itertest::norm(tracked->bv));
    return norm;
}

TEST(SafeSolver, RecurrenceResidualTracksTheTrueOneWithoutAnyCorrection)
{
    for (int pre : {0, 1}) {
        Problem p(convDiff2d(20, 30.0), 400, false, "SAFE_CORRECT_Y 0\nITER_CORRECT_R 0\n");
        p.setInt(OPT_ITER_PREILU, pre);
        tracked = &p;
        worstGap = 0.0;
        kwil::iterTestSetNormHook(trackGap);
        EXPECT_EQ(p.run(solvIterSafe), 1);
        kwil::iterTestSetNormHook(nullptr);
        EXPECT_GT(endLine(p.out, "safe").step, 5);
        EXPECT_LT(worstGap, 1e-12) << "pre " << pre;
    }
}

// The 1x1 system 2 x = 4: s vanishes in step 0.
TEST(StabSolver, OneByOneQuitsInStepZeroWithTheExactSolution)
{
    for (bool cplx : {false, true}) {
        for (int pre : {0, 1}) {
            Problem p({{0, 0, 2.0}}, 1, cplx);
            p.setB({4.0});
            p.setInt(OPT_ITER_PREILU, pre);
            ASSERT_EQ(p.run(solvIterStab), 1);
            const std::vector<std::string> want = {
                fmt("KWILTRC: Iter stab pre %d step trace 0 norm-0 4.0000e+00", pre),
                "KWILTRC:  - resolve 1.0000e-10 max k 5000 correct r 100 rtype 0",
                "KWILTRC:  - giveup 200 check 1.0000e-05 reduct 5.0000e-01",
                "KWILTRC: Iter stab quit for s abs norm 0.000000e+00 step 0",
                "KWILTRC: Iter stab end 1 step 0 abs norm 0.0000e+00 resolve 4.0000e-10"};
            std::vector<std::string> out;
            for (const std::string& l : p.out)
                if (l.rfind("KWILTRC: Iter stab", 0) == 0 || l.rfind("KWILTRC:  - ", 0) == 0)
                    out.push_back(l); // the ILU writes lines of its own
            EXPECT_EQ(out, want) << cplx << pre;
            EXPECT_TRUE(p.err.empty());
            EXPECT_EQ(values(p.x), std::vector<Cplx>{2.0});
        }
    }
}

// True when line equals pattern, where each "{nan}" in the pattern stands for "nan" or "-nan"
// (the sign of a NaN made by 0/0 depends on the arithmetic that made it).
bool matchNan(const std::string& line, const std::string& pattern)
{
    const std::string tok = "{nan}";
    size_t li = 0, pi = 0;
    for (;;) {
        const size_t next = pattern.find(tok, pi);
        const std::string lit = pattern.substr(pi, next == std::string::npos ? next : next - pi);
        if (line.compare(li, lit.size(), lit) != 0)
            return false;
        li += lit.size();
        if (next == std::string::npos)
            return li == line.size();
        if (line.compare(li, 1, "-") == 0)
            ++li;
        if (line.compare(li, 3, "nan") != 0)
            return false;
        li += 3;
        pi = next + tok.size();
    }
}

void expectLines(const std::vector<std::string>& lines, const std::vector<std::string>& patterns)
{
    ASSERT_EQ(lines.size(), patterns.size());
    for (size_t i = 0; i < lines.size(); ++i) {
        EXPECT_TRUE(matchNan(lines[i], patterns[i])) << lines[i] << "\n  != " << patterns[i];
    }
}

TEST(NanMatch, AcceptsEitherSignOnlyWhereMarked)
{
    EXPECT_TRUE(matchNan("a nan b -nan", "a {nan} b {nan}"));
    EXPECT_FALSE(matchNan("a 1.0 b nan", "a {nan} b {nan}"));
    EXPECT_FALSE(matchNan("a nan b nanx", "a {nan} b {nan}"));
    EXPECT_FALSE(matchNan("-nan", "nan"));
}

const std::vector<std::string> zeroStart(const char* name)
{
    return {fmt("KWILTRC: Iter %s pre 0 step trace 0 norm-0 0.0000e+00", name),
            "KWILTRC:  - resolve 1.0000e-10 max k 5000 correct r 100 rtype 0",
            "KWILTRC:  - giveup 200 check 1.0000e-05 reduct 5.0000e-01"};
}

TEST(StabSolver, ZeroRightHandSideStopsOnANaNNormAtStepOne)
{
    for (bool cplx : {false, true}) {
        Problem p(laplace1d(10), 10, cplx, "ITER_PREILU 0\n");
        p.setB(std::vector<Cplx>(10, 0.0));
        EXPECT_EQ(p.run(solvIterStab), 0);
        std::vector<std::string> want = zeroStart("stab");
        if (cplx) {
            want.push_back("KWILTRC: Iter stab nan error alpha ({nan} {nan})");
            want.push_back("KWILTRC:  -  beta (0.0000e+00 0.0000e+00) omega ({nan} {nan})");
            want.push_back("KWILTRC:  -  rho ({nan} {nan})");
        } else {
            want.push_back("KWILTRC: Iter stab nan error alpha {nan} beta 0.0000e+00");
            want.push_back("KWILTRC:  - omega {nan} rho {nan}");
        }
        want.push_back("KWILTRC: Iter stab end 0 step 1 abs norm {nan} resolve 0.0000e+00");
        expectLines(p.out, want);
        EXPECT_EQ(p.err, std::vector<std::string>{"KWILERR: Norm nan error in iter stab step 1"});
        EXPECT_TRUE(std::isnan(values(p.x)[0].real()));
    }
}

TEST(SafeSolver, ZeroRightHandSideStopsOnANaNNormAtStepOne)
{
    Problem p(laplace1d(10), 10, false, "ITER_PREILU 0\n");
    p.setB(std::vector<Cplx>(10, 0.0));
    EXPECT_EQ(p.run(solvIterSafe), 0);
    std::vector<std::string> want = zeroStart("safe");
    want.push_back("KWILTRC:  - safe cr 1 correct y 1");
    want.push_back(
        "KWILTRC: Iter safe nan error alpha {nan} beta {nan} zeta {nan} eta 0.000000e+00");
    want.push_back("KWILTRC: Iter safe end 0 step 1 abs norm {nan} resolve 0.0000e+00");
    expectLines(p.out, want);
    EXPECT_EQ(p.err, std::vector<std::string>{"KWILERR: Norm nan error in iter safe step 1"});
}

TEST(StabLSolver, ZeroRightHandSideBreaksDownThenSucceeds)
{
    for (int ell : {1, 3}) {
        for (int pre : {0, 1}) {
            Problem p(laplace1d(10), 10, true);
            p.setB(std::vector<Cplx>(10, 0.0));
            p.setInt(OPT_STABL_L, ell);
            p.setInt(OPT_ITER_PREILU, pre);
            EXPECT_EQ(p.run(solvIterStabL), 1);
            EXPECT_EQ(p.err, std::vector<std::string>{
                                 "KWILWRN: BiCG gamma breakdown in iter stab-l step 0"});
            EXPECT_EQ(p.out.back(), fmt("KWILTRC: Iter stab-l end 1 step %d abs norm "
                                        "0.0000e+00 resolve 0.0000e+00",
                                        ell));
            EXPECT_EQ(values(p.x), std::vector<Cplx>(10, 0.0));
        }
    }
    // With one cycle allowed the step limit comes first.
    Problem p(laplace1d(10), 10, true, "ITER_MAXSTEP 2\nSTABL_L 2\n");
    p.setB(std::vector<Cplx>(10, 0.0));
    EXPECT_EQ(p.run(solvIterStabL), 0);
    const std::vector<std::string> err = {
        "KWILWRN: BiCG gamma breakdown in iter stab-l step 0",
        "KWILERR: Step over in iter stab-l step 2 abs norm 0.0000e+00 resolve 0.0000e+00"};
    EXPECT_EQ(p.err, err);
}

TEST(Solvers, RefuseTheWrongDataTypeBeforeAnythingElse)
{
    struct Wrong {
        Solver fn;
        bool cplx;
        const char* line;
    };
    const Wrong wrong[] = {
        {solvIterSafe, true, "KWILERR: Invalid data type in iter safe solver"},
        {solvIterStabL, false, "KWILERR: Invalid data type in iter stab-l solver"}};
    for (const Wrong& w : wrong) {
        Problem p(laplace1d(5), 5, w.cplx, "ITER_R_TYPE 7\nSTABL_L 0\n");
        const std::vector<Cplx> x0(5, 1.5);
        p.setX(x0);
        const long allocs = comTestAllocCount();
        EXPECT_EQ(p.runFrom(w.fn), 0);
        EXPECT_EQ(comTestAllocCount(), allocs);
        EXPECT_TRUE(p.out.empty());
        EXPECT_EQ(p.err, std::vector<std::string>{w.line});
        EXPECT_EQ(values(p.x), x0);
    }
}

TEST(StabLSolver, InvalidLCreatesNothing)
{
    for (int ell : {0, -3}) {
        Problem p(laplace1d(5), 5, true);
        p.setInt(OPT_STABL_L, ell);
        const long allocs = comTestAllocCount();
        EXPECT_EQ(p.run(solvIterStabL), 0);
        EXPECT_EQ(comTestAllocCount(), allocs);
        EXPECT_TRUE(p.out.empty());
        EXPECT_EQ(p.err, std::vector<std::string>{
                             fmt("KWILERR: Invalid l %d in iter stab-l solver", ell)});
    }
}

TEST(Solvers, IluFailureIsReportedAndLeavesXAlone)
{
    // Row 1 has no diagonal entry.
    const std::vector<Entry> e = {{0, 0, 4.0}, {0, 1, 1.0}, {1, 0, 1.0}, {2, 2, 3.0}};
    const struct {
        const char* name;
        Solver fn;
        bool cplx;
    } kinds[] = {{"stab", solvIterStab, false},
                 {"stab", solvIterStab, true},
                 {"safe", solvIterSafe, false},
                 {"stab-l", solvIterStabL, true}};
    for (const auto& k : kinds) {
        Problem p(e, 3, k.cplx);
        const std::vector<Cplx> x0 = {1.0, 2.0, 3.0};
        p.setX(x0);
        const long live = comTestLiveAllocs();
        EXPECT_EQ(p.runFrom(k.fn), 0);
        ASSERT_FALSE(p.err.empty());
        EXPECT_EQ(p.err.back(), fmt("KWILERR: ILU error in iter %s solver", k.name));
        EXPECT_EQ(findLine(p.out, "KWILTRC: Iter "), "");
        EXPECT_EQ(values(p.x), x0);
        EXPECT_EQ(comTestLiveAllocs(), live);
    }
}

// The control values of BiCGStab(l) in cycles and their printed forms.
TEST(StabLSolver, ControlValuesAreCountedInCycles)
{
    struct Row {
        int ell;
        int maxStep;
        int stepTrace;
        int giveup;
        const char* line1;
        const char* line2;
        const char* line3;
    };
    const Row rows[] = {
        {3, 5000, 0, 200, "l 3 pre 0 step trace 0", "max k 4998", "giveup 198"},
        {300, 5000, 0, 200, "l 300 pre 0 step trace 0", "max k 4800", "giveup 0"},
        {4, 5000, 1, 200, "l 4 pre 0 step trace 1", "max k 5000", "giveup 200"},
        {4, 5000, 10, 0, "l 4 pre 0 step trace 2", "max k 5000", "giveup 0"},
        {4, 5000, -3, -5, "l 4 pre 0 step trace -3", "max k 5000", "giveup -20"},
    };
    for (const Row& r : rows) {
        Problem p(laplace1d(20), 20, true, "ITER_PREILU 0\n");
        p.setInt(OPT_STABL_L, r.ell);
        p.setInt(OPT_ITER_MAXSTEP, r.maxStep);
        p.setInt(OPT_ITER_STEPTRACE, r.stepTrace);
        p.setInt(OPT_ITER_GIVEUP, r.giveup);
        p.run(solvIterStabL);
        ASSERT_GE(p.out.size(), 3u);
        const double n0 = norm(p.bv);
        EXPECT_EQ(p.out[0], fmt("KWILTRC: Iter stab-l %s norm-0 %.4e", r.line1, n0));
        EXPECT_EQ(p.out[1],
                  fmt("KWILTRC:  - resolve 1.0000e-10 %s correct r 0-fix rtype 0", r.line2));
        EXPECT_EQ(p.out[2], fmt("KWILTRC:  - %s check 1.0000e-05 reduct 5.0000e-01", r.line3));
    }
}

TEST(StabLSolver, LoopLinesCountSteps)
{
    for (int trace : {1, 10}) {
        Problem p(helmholtz2d(10, Cplx(10.0, 5.0)), 100, true, "ITER_PREILU 0\nSTABL_L 4\n");
        p.setInt(OPT_ITER_STEPTRACE, trace);
        ASSERT_EQ(p.run(solvIterStabL), 1);
        const int last = endLine(p.out, "stab-l").step;
        std::vector<int> steps;
        for (const std::string& l : p.out) {
            int k;
            if (sscanf(l.c_str(), "KWILTRC: Iter stab-l loop step %d", &k) == 1)
                steps.push_back(k);
        }
        std::vector<int> want;
        const int every = trace == 1 ? 4 : 8; // one cycle, or 10 / 4 = 2 cycles
        for (int k = every; k <= last; k += every)
            want.push_back(k);
        EXPECT_EQ(steps, want);
        EXPECT_GE(want.size(), 2u);
    }
}

double hookNorm0 = 0.0;
double stalled(int, double)
{
    return 1e-6 * hookNorm0;
}

TEST(StabLSolver, GiveupTestsRunEveryIntervalOfCycles)
{
    Problem p(laplace1d(20), 20, true, "ITER_PREILU 0\nSTABL_L 3\n");
    hookNorm0 = norm(p.bv);
    kwil::iterTestSetNormHook(stalled);
    EXPECT_EQ(p.run(solvIterStabL), 1);
    kwil::iterTestSetNormHook(nullptr);
    // 200 / 3 = 66 cycles: armed at step 198, gives up at step 396.
    EXPECT_EQ(findLine(p.out, "KWILTRC:  - prev "),
              fmt("KWILTRC:  - prev %e reduct 5.000000e-01 step 396", 1e-6 * hookNorm0));
    EXPECT_EQ(endLine(p.out, "stab-l").step, 396);
}

TEST(StabLSolver, OneCycleAllowedEndsWithTheStartNorm)
{
    Problem p(laplace1d(20), 20, true, "ITER_MAXSTEP 5\nSTABL_L 3\n");
    EXPECT_EQ(p.run(solvIterStabL), 0);
    const double n0 = norm(p.bv);
    EXPECT_EQ(p.err, std::vector<std::string>{
                         fmt("KWILERR: Step over in iter stab-l step 3 abs norm %.4e resolve %.4e",
                             n0, 1e-10 * n0)});
    EXPECT_EQ(p.out.back(),
              fmt("KWILTRC: Iter stab-l end 0 step 3 abs norm %.4e resolve %.4e", n0, 1e-10 * n0));
}

// y = x where the monitor at the given step is told the solve converged.
int convergeAt = 0;
double convergeHook(int step, double norm)
{
    return step == convergeAt ? 0.0 : norm;
}

TEST(StabLSolver, FailedPreconditionedSolveLeavesTheIterateOfTheRightPreconditionedSystem)
{
    Problem p(complexConvDiff2d(10), 100, true, "STABL_L 2\n");
    p.setInt(OPT_ITER_MAXSTEP, 6); // three cycles, then the step-over
    ASSERT_EQ(p.run(solvIterStabL), 0);
    const std::vector<Cplx> y = values(p.x);
    p.setInt(OPT_ITER_MAXSTEP, 5000);
    convergeAt = 6;
    kwil::iterTestSetNormHook(convergeHook);
    ASSERT_EQ(p.run(solvIterStabL), 1);
    kwil::iterTestSetNormHook(nullptr);
    EXPECT_EQ(endLine(p.out, "stab-l").step, 6);
    const std::vector<Cplx> x = values(p.x); // M^-1 y
    ComLinMat* l = nullptr;
    ComLinMat* u = nullptr;
    ASSERT_EQ(comToolILU(p.handle, p.a, &l, &u), 1);
    const std::vector<Cplx> my = product(l, product(u, x));
    comLinMatDelete(p.handle, l);
    comLinMatDelete(p.handle, u);
    std::vector<Cplx> d(y.size());
    for (size_t i = 0; i < y.size(); ++i)
        d[i] = my[i] - y[i];
    EXPECT_LT(norm(d), 1e-12 * norm(y));
    for (size_t i = 0; i < y.size(); ++i)
        d[i] = x[i] - y[i];
    EXPECT_GT(norm(d), 1e-3 * norm(y)); // x and y do differ
}

// [A b, b] = b^T A b vanishes for a skew-symmetric A: a gamma breakdown in every cycle 0.
TEST(StabLSolver, GammaBreakdownFailsAtTheNextCycle)
{
    for (int ell : {1, 2}) {
        Problem p({{0, 1, 1.0}, {1, 0, -1.0}, {2, 2, 1.0}}, 3, true, "ITER_PREILU 0\n");
        p.setB({1.0, 2.0, 0.0});
        p.setInt(OPT_STABL_L, ell);
        EXPECT_EQ(p.run(solvIterStabL), 0);
        const double n0 = std::sqrt(5.0);
        const std::vector<std::string> err = {
            "KWILWRN: BiCG gamma breakdown in iter stab-l step 0",
            fmt("KWILERR: Breakdown error in iter stab-l step %d", ell)};
        EXPECT_EQ(p.err, err);
        EXPECT_EQ(p.out.back(), fmt("KWILTRC: Iter stab-l end 0 step %d abs norm %.4e resolve %.4e",
                                    ell, n0, 1e-10 * n0));
    }
}

// b = (1, i) has [b, b] = 0: rho0 becomes 0 in step 0 and is caught in step 1.
TEST(StabLSolver, Rho0BreakdownFailsAtTheNextCycle)
{
    Problem p({{0, 0, 2.0}, {1, 1, 3.0}}, 2, true, "ITER_PREILU 0\nSTABL_L 2\n");
    p.setB({1.0, Cplx(0.0, 1.0)});
    EXPECT_EQ(p.run(solvIterStabL), 0);
    const std::vector<std::string> err = {"KWILWRN: BiCG rho0 breakdown in iter stab-l step 1",
                                          "KWILERR: Breakdown error in iter stab-l step 2"};
    EXPECT_EQ(p.err, err);
}

// A = 2 I: the BiCG step solves the system, so sigma_1 = 0 and the residual test succeeds.
TEST(StabLSolver, SigmaBreakdownWithAResidualAtTheToleranceSucceeds)
{
    for (int pre : {0, 1}) {
        Problem p({{0, 0, 2.0}, {1, 1, 2.0}}, 2, true);
        p.setB({1.0, Cplx(3.0, -1.0)});
        p.setInt(OPT_ITER_PREILU, pre);
        EXPECT_EQ(p.run(solvIterStabL), 1);
        EXPECT_EQ(p.err,
                  std::vector<std::string>{"KWILWRN: MR sigma j breakdown in iter stab-l step 1"});
        EXPECT_EQ(values(p.x), (std::vector<Cplx>{0.5, Cplx(1.5, -0.5)}));
    }
}

double nanAtStep1(int step, double norm)
{
    return step == 1 ? std::nan("") : norm;
}

// 2 x = 1 with l = 1: cycle 0 gives alpha = 1/2 and rho0 = [b, b] = 1 and leaves omega at 1
// (sigma_1 = 0 ends the cycle before the update); beta = 0 (1 / -1) = (-0, 0).
TEST(StabLSolver, NanStopTracesAlphaBetaOmegaAndRho)
{
    Problem p({{0, 0, 2.0}}, 1, true, "ITER_PREILU 0\n");
    p.setB({1.0});
    kwil::iterTestSetNormHook(nanAtStep1);
    EXPECT_EQ(p.run(solvIterStabL), 0);
    kwil::iterTestSetNormHook(nullptr);
    const std::vector<std::string> tail = {
        "KWILTRC: Iter stab-l nan error alpha (5.0000e-01 0.0000e+00)",
        "KWILTRC:  -  beta (-0.0000e+00 0.0000e+00) omega (1.0000e+00 0.0000e+00)",
        "KWILTRC:  -  rho (1.0000e+00 0.0000e+00)",
        "KWILTRC: Iter stab-l end 0 step 1 abs norm nan resolve 1.0000e-10"};
    ASSERT_EQ(p.out.size(), 3 + tail.size());
    EXPECT_EQ(std::vector<std::string>(p.out.begin() + 3, p.out.end()), tail);
    const std::vector<std::string> err = {"KWILWRN: MR sigma j breakdown in iter stab-l step 1",
                                          "KWILERR: Norm nan error in iter stab-l step 1"};
    EXPECT_EQ(p.err, err);
}

// Every allocation of a solve made to fail in turn: result 0, the solver's line last, x as it
// was, nothing leaked; the count is the solve's whole allocation count.
void sweep(Solver fn, bool cplx, const std::string& opts, const std::string& name)
{
    Problem p(laplace1d(30), 30, cplx, opts);
    const std::vector<Cplx> x0(30, 0.25);
    p.setX(x0);
    const long live = comTestLiveAllocs();
    const long before = comTestAllocCount();
    ASSERT_EQ(p.runFrom(fn), 1) << opts;
    const long total = comTestAllocCount() - before;
    ASSERT_GT(total, 6);
    EXPECT_EQ(comTestLiveAllocs(), live);
    const std::vector<std::string> mine = {
        "KWILERR: Vector data create error in iter " + name + " solver",
        "KWILERR: ILU error in iter " + name + " solver",
        "KWILERR: Double data create error in iter stab-l solver",
        "KWILERR: Vector matrix data create error in iter stab-l solver"};
    for (long k = 1; k <= total; ++k) {
        p.setX(x0);
        comTestFailAlloc(k);
        const int result = p.runFrom(fn);
        comTestFailAlloc(0);
        EXPECT_EQ(result, 0) << opts << " allocation " << k;
        ASSERT_FALSE(p.err.empty()) << k;
        EXPECT_NE(std::find(p.err.begin(), p.err.end(), "KWILERR: Allocation error"), p.err.end());
        EXPECT_NE(std::find(mine.begin(), mine.end(), p.err.back()), mine.end()) << p.err.back();
        EXPECT_EQ(findLine(p.out, "KWILTRC: Iter "), "");
        EXPECT_EQ(values(p.x), x0);
        EXPECT_EQ(comTestLiveAllocs(), live) << "leak after failing allocation " << k;
    }
}

TEST(Solvers, EveryAllocationFailureIsReportedWithoutLeaks)
{
    sweep(solvIterStab, false, "ITER_PREILU 0\n", "stab");
    sweep(solvIterStab, false, "", "stab");
    sweep(solvIterStab, true, "", "stab");
    sweep(solvIterSafe, false, "ITER_PREILU 0\n", "safe");
    sweep(solvIterSafe, false, "", "safe");
    sweep(solvIterStabL, true, "ITER_PREILU 0\n", "stab-l");
    sweep(solvIterStabL, true, "STABL_L 3\n", "stab-l");
}

} // namespace
