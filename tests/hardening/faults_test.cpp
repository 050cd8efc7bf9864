// Numerical faults through the public interface: singular and structurally singular matrices,
// zero and non-finite entries in A or b, a zero right-hand side, huge and tiny scales, missing
// diagonals, complex matrices with zero imaginary parts. Each ends with a defined result and
// exactly the error and warning lines listed in tests/README.md.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <string>
#include <vector>

#include "api/kwil.h"
#include "support/support.h"

using kwiltest::Capture;
using kwiltest::TempDir;

namespace {

using Cplx = std::complex<double>;
using Lines = std::vector<std::string>;

struct Entry {
    int row, col;
    Cplx val;
};

// The outcome of one solve: result, error and warning lines, x.
struct Outcome {
    int result = -1;
    Lines err;
    std::vector<Cplx> x;
};

class Faults : public ::testing::Test {
  protected:
    // A handle with TRACE 0 and the given option lines.
    KwilHandle* handle(const std::string& options)
    {
        KwilHandle* h = kwiltest::makeHandle(dir, "TRACE 0\n" + options);
        handles.push_back(h);
        return h;
    }
    void TearDown() override
    {
        for (KwilHandle* h : handles)
            kwilTerm(h);
    }

    // Fills A by entries and b, then solves.
    Outcome solve(const std::string& options, int n, const std::vector<Entry>& a,
                  const std::vector<Cplx>& b, bool comp)
    {
        KwilHandle* h = handle(options);
        EXPECT_EQ(kwilMatCoefCreate(h, comp ? 1 : 0, n, static_cast<int>(a.size())), 1);
        for (size_t k = 0; k < a.size(); ++k) {
            EXPECT_EQ(kwilMatCoefSet(h, a[k].row, a[k].col, static_cast<int>(k), a[k].val.real(),
                                     a[k].val.imag(), 0),
                      1);
        }
        EXPECT_EQ(kwilVecFixCreate(h, comp ? 1 : 0, n, 0.0, 0.0), 1);
        for (int i = 0; i < n; ++i) {
            EXPECT_EQ(kwilVecFixSet(h, i, b[i].real(), b[i].imag()), 1);
        }
        return run(h);
    }

    // Reads A and b from Matrix Market texts, then solves.
    Outcome solveFiles(const std::string& options, const std::string& mat, const std::string& vec)
    {
        KwilHandle* h = handle(options);
        EXPECT_EQ(kwilMatCoefFileRead(h, dir.write("a.mtx", mat).c_str()), 1);
        EXPECT_EQ(kwilVecFixFileRead(h, dir.write("b.mtx", vec).c_str()), 1);
        return run(h);
    }

    Outcome run(KwilHandle* h)
    {
        Outcome o;
        Capture cap;
        o.result = kwilSolv(h);
        cap.take();
        o.err = cap.errLines();
        int comp = 0, n = 0;
        if (kwilVecVarInfo(h, &comp, &n) == 1) {
            for (int i = 0; i < n; ++i) {
                double re = 0.0, im = 0.0;
                EXPECT_EQ(kwilVecVarGet(h, i, &re, &im), 1);
                o.x.push_back(Cplx(re, im));
            }
        }
        last = h;
        return o;
    }

    // kwilCheckResult on the handle of the last solve.
    int check(double* rel, double* abs, Lines* err)
    {
        Capture cap;
        const int r = kwilCheckResult(last, rel, abs);
        cap.take();
        *err = cap.errLines();
        return r;
    }

    TempDir dir;
    std::vector<KwilHandle*> handles;
    KwilHandle* last = nullptr;
};

// 3 x 3 tridiagonal (-1, 4, -1) scaled by s; b = A (1, 1, 1).
std::vector<Entry> tridiag3(Cplx s)
{
    return {{0, 0, 4.0 * s},  {0, 1, -1.0 * s}, {1, 0, -1.0 * s}, {1, 1, 4.0 * s},
            {1, 2, -1.0 * s}, {2, 1, -1.0 * s}, {2, 2, 4.0 * s}};
}
std::vector<Cplx> rhs3(Cplx s)
{
    return {3.0 * s, 2.0 * s, 3.0 * s};
}

bool allFinite(const std::vector<Cplx>& x)
{
    for (const Cplx& v : x) {
        if (!std::isfinite(v.real()) || !std::isfinite(v.imag()))
            return false;
    }
    return true;
}
bool anyNan(const std::vector<Cplx>& x)
{
    for (const Cplx& v : x) {
        if (std::isnan(v.real()) || std::isnan(v.imag()))
            return true;
    }
    return false;
}
void expectOnes(const std::vector<Cplx>& x, double tol)
{
    ASSERT_EQ(x.size(), 3u);
    for (const Cplx& v : x)
        EXPECT_LE(std::abs(v - Cplx(1.0)), tol) << v;
}

// Rows 0 and 2 equal: numerically singular, every diagonal entry stored; with b = (1, 1, 2)
// inconsistent.
const std::vector<Entry> kSingular = {{0, 0, 1.0}, {0, 1, 2.0}, {0, 2, 3.0}, {1, 1, 3.0},
                                      {1, 0, 1.0}, {2, 0, 1.0}, {2, 1, 2.0}, {2, 2, 3.0}};
const std::vector<Cplx> kSingularB = {1.0, 1.0, 2.0};
// Rows 0 and 1 equal, row 2 apart: whatever the pivot order and the BLAS kernels, the second of
// the equal rows is reduced to exact zeros (kSingular's third row reaches its zero through
// updates that the BLAS of some processors round differently for the two equal rows).
const std::vector<Entry> kEqualRows = {{0, 0, 2.0}, {0, 1, 1.0}, {1, 0, 2.0}, {1, 1, 1.0},
                                       {2, 2, 4.0}};
// Row 1 holds no entry at all: structurally singular.
const std::vector<Entry> kEmptyRow = {{0, 0, 2.0}, {0, 2, 1.0}, {2, 0, 1.0}, {2, 2, 2.0}};

TEST_F(Faults, SingularMatrixDirectReportsTheNumericalFactorisation)
{
    const Outcome o = solve("SOLVER 10\n", 3, kEqualRows, kSingularB, false);
    EXPECT_EQ(o.result, 0);
    EXPECT_EQ(o.err, (Lines{"KWILERR: PARDISO error in numerical factorization code -4",
                            "KWILERR: PARDISO error: zero pivot, numerical factorization or "
                            "iterative refinement problem"}));
}

TEST_F(Faults, StructurallySingularMatrixDirectReportsTheNumericalFactorisation)
{
    const Outcome o = solve("SOLVER 10\n", 3, kEmptyRow, {1.0, 1.0, 1.0}, false);
    EXPECT_EQ(o.result, 0);
    EXPECT_EQ(o.err, (Lines{"KWILERR: PARDISO error in numerical factorization code -4",
                            "KWILERR: PARDISO error: zero pivot, numerical factorization or "
                            "iterative refinement problem"}));
}

TEST_F(Faults, SingularMatrixIterativeEndsWithTheNanStop)
{
    // The inconsistent system drives the Krylov scalars to 0 / 0 within a few steps. The step
    // depends on the rounding of OpenBLAS's kernels for the processor (stab: 8 with its Haswell
    // and Zen kernels, 13 with its AVX-512 ones, 15 with its SSE3 ones).
    const struct {
        const char* options;
        const char* name;
    } solvers[] = {{"SOLVER 0\n", "stab"}, {"SOLVER 1\n", "safe"}};
    for (const auto& solver : solvers) {
        const Outcome o = solve(solver.options, 3, kSingular, kSingularB, false);
        EXPECT_EQ(o.result, 0);
        ASSERT_EQ(o.err.size(), 1u) << solver.name;
        const std::string head =
            std::string("KWILERR: Norm nan error in iter ") + solver.name + " step ";
        ASSERT_EQ(o.err[0].rfind(head, 0), 0u) << o.err[0];
        const int step = std::stoi(o.err[0].substr(head.size()));
        EXPECT_TRUE(step >= 1 && step <= 30) << o.err[0];
    }
    // Without the NaN, the step limit ends it.
    const Outcome lim = solve("SOLVER 0\nITER_MAXSTEP 4\n", 3, kSingular, kSingularB, false);
    EXPECT_EQ(lim.result, 0);
    ASSERT_EQ(lim.err.size(), 1u);
    EXPECT_EQ(lim.err[0].rfind("KWILERR: Step over in iter stab step 4 abs norm ", 0), 0u)
        << lim.err[0];
}

TEST_F(Faults, EmptyRowIsRepairedForTheIterativeSolvers)
{
    // The repair puts 1e-12 on the empty row's diagonal: the system is then solvable, x_1 huge.
    const Outcome o = solve("SOLVER 0\n", 3, kEmptyRow, {3.0, 1.0, 3.0}, false);
    EXPECT_EQ(o.result, 1);
    EXPECT_EQ(o.err, Lines{});
    ASSERT_EQ(o.x.size(), 3u);
    EXPECT_NEAR(o.x[0].real(), 1.0, 1e-8);
    EXPECT_NEAR(o.x[1].real() * 1e-12, 1.0, 1e-6);
    EXPECT_NEAR(o.x[2].real(), 1.0, 1e-8);
}

TEST_F(Faults, EmptyRowWithoutRepairStopsTheIlu)
{
    const Outcome o = solve("SOLVER 0\nREV_DIAGZERO 0\n", 3, kEmptyRow, {3.0, 1.0, 3.0}, false);
    EXPECT_EQ(o.result, 0);
    EXPECT_EQ(o.err, (Lines{"KWILERR: No diag error in ILU 0 solver",
                            "KWILERR: ILU error in iter stab solver"}));
    const Outcome s = solve("SOLVER 20\n", 3, kEmptyRow, {3.0, 1.0, 3.0}, false);
    EXPECT_EQ(s.result, 0);
    EXPECT_EQ(s.err, (Lines{"KWILERR: No diag error in ILU 0 solver"}));
}

TEST_F(Faults, ExplicitZerosAndSubnormalsAreRemovedBeforeTheSolve)
{
    std::vector<Entry> a = tridiag3(1.0);
    a.push_back({0, 2, 0.0});
    a.push_back({2, 0, 1e-310});
    for (const char* opt : {"SOLVER 0\n", "SOLVER 10\n"}) {
        const Outcome o = solve(opt, 3, a, rhs3(1.0), false);
        SCOPED_TRACE(opt);
        EXPECT_EQ(o.result, 1);
        EXPECT_EQ(o.err, Lines{});
        expectOnes(o.x, 1e-9);
    }
}

TEST_F(Faults, InfinityInTheMatrixFileEndsWithNanReports)
{
    const std::string mat =
        "%%MatrixMarket matrix coordinate real general\n3 3 7\n1 1 4\n1 2 -1\n2 1 -1\n2 2 inf\n"
        "2 3 -1\n3 2 -1\n3 3 4\n";
    const std::string vec = "%%MatrixMarket matrix array real general\n3 1\n3\n2\n3\n";
    const Outcome it = solveFiles("SOLVER 0\n", mat, vec);
    EXPECT_EQ(it.result, 0);
    EXPECT_EQ(it.err, (Lines{"KWILERR: Norm nan error in iter stab step 1"}));
    EXPECT_TRUE(anyNan(it.x));
    const Outcome d = solveFiles("SOLVER 10\n", mat, vec);
    EXPECT_EQ(d.result, 0);
    for (const std::string& l : d.err)
        printf("%s\n", l.c_str());
    ASSERT_FALSE(d.err.empty());
}

TEST_F(Faults, NanInTheRightHandSideFileEndsWithNanReports)
{
    const std::string mat =
        "%%MatrixMarket matrix coordinate real general\n3 3 7\n1 1 4\n1 2 -1\n2 1 -1\n2 2 4\n"
        "2 3 -1\n3 2 -1\n3 3 4\n";
    const std::string vec = "%%MatrixMarket matrix array real general\n3 1\n3\nnan\n3\n";
    const Outcome it = solveFiles("SOLVER 0\n", mat, vec);
    EXPECT_EQ(it.result, 0);
    EXPECT_EQ(it.err, (Lines{"KWILERR: Norm nan error in iter stab step 1"}));
    const Outcome d = solveFiles("SOLVER 10\n", mat, vec);
    EXPECT_EQ(d.result, 0);
    EXPECT_EQ(d.err, (Lines{"KWILERR: Result var vector nan error in solver"}));
    EXPECT_TRUE(anyNan(d.x));
    const Outcome i = solveFiles("SOLVER 20\n", mat, vec);
    EXPECT_EQ(i.result, 0);
    EXPECT_EQ(i.err, (Lines{"KWILERR: Result var vector nan error in solver"}));
}

TEST_F(Faults, ZeroRightHandSide)
{
    const std::vector<Cplx> zero(3, 0.0);
    const Outcome d = solve("SOLVER 10\n", 3, tridiag3(1.0), zero, false);
    EXPECT_EQ(d.result, 1);
    EXPECT_EQ(d.err, Lines{});
    for (const Cplx& v : d.x)
        EXPECT_EQ(v, Cplx(0.0));
    // The relative residual 0 / 0 is a NaN, which no limit rejects.
    double rel = -1.0, abs = -1.0;
    Lines err;
    EXPECT_EQ(check(&rel, &abs, &err), 1);
    EXPECT_TRUE(std::isnan(rel));
    EXPECT_EQ(abs, 0.0);
    EXPECT_EQ(err, Lines{});

    const Outcome s = solve("SOLVER 0\n", 3, tridiag3(1.0), zero, false);
    EXPECT_EQ(s.result, 0);
    EXPECT_EQ(s.err, (Lines{"KWILERR: Norm nan error in iter stab step 1"}));
    const Outcome f = solve("SOLVER 1\n", 3, tridiag3(1.0), zero, false);
    EXPECT_EQ(f.result, 0);
    EXPECT_EQ(f.err, (Lines{"KWILERR: Norm nan error in iter safe step 1"}));
    const Outcome l = solve("SOLVER 2\n", 3, tridiag3(1.0), zero, true);
    EXPECT_EQ(l.result, 1);
    EXPECT_EQ(l.err, (Lines{"KWILWRN: BiCG gamma breakdown in iter stab-l step 0"}));
    for (const Cplx& v : l.x)
        EXPECT_EQ(v, Cplx(0.0));
}

TEST_F(Faults, HugeAndTinyScales)
{
    for (const double s : {1e300, 1e-300}) {
        SCOPED_TRACE(s);
        // The direct solve and the scaled Krylov solves handle any representable scale.
        for (const char* opt : {"SOLVER 10\n", "SOLVER 0\nDIAG_SCALE 1\n",
                                "SOLVER 1\nDIAG_SCALE 1\n", "SOLVER 20\n"}) {
            SCOPED_TRACE(opt);
            const Outcome o = solve(opt, 3, tridiag3(s), rhs3(s), false);
            EXPECT_EQ(o.result, 1);
            EXPECT_EQ(o.err, Lines{});
            EXPECT_TRUE(allFinite(o.x));
            if (std::string(opt) != "SOLVER 20\n")
                expectOnes(o.x, 1e-8);
        }
        // Unscaled, the first inner product overflows (1e600) or underflows (1e-600) and the
        // step divides by it: the NaN stop ends the solve after step 1.
        const Outcome st = solve("SOLVER 0\n", 3, tridiag3(s), rhs3(s), false);
        EXPECT_EQ(st.result, 0);
        EXPECT_EQ(st.err, (Lines{"KWILERR: Norm nan error in iter stab step 1"}));
        EXPECT_TRUE(anyNan(st.x));
        const Outcome sf = solve("SOLVER 1\n", 3, tridiag3(s), rhs3(s), false);
        EXPECT_EQ(sf.result, 0);
        EXPECT_EQ(sf.err, (Lines{"KWILERR: Norm nan error in iter safe step 1"}));
    }
    // Scales at which the inner products of the iteration stay representable solve unscaled.
    for (const double s : {1e150, 1e-100}) {
        SCOPED_TRACE(s);
        const Outcome o = solve("SOLVER 0\n", 3, tridiag3(s), rhs3(s), false);
        EXPECT_EQ(o.result, 1);
        EXPECT_EQ(o.err, Lines{});
        expectOnes(o.x, 1e-8);
    }
}

TEST_F(Faults, NegativeDiagonalRefusesTheScalingAndSolvesUnscaled)
{
    const Outcome o = solve("SOLVER 0\nDIAG_SCALE 1\n", 3, tridiag3(-1.0), rhs3(-1.0), false);
    EXPECT_EQ(o.result, 1);
    EXPECT_EQ(o.err, (Lines{"KWILWRN: Too small diag in diag scale begin"}));
    expectOnes(o.x, 1e-9);
}

TEST_F(Faults, MissingDiagonalNeedsTheRepair)
{
    // Row 1 stores (1,0) and (1,2) but no diagonal; nonsingular.
    const std::vector<Entry> a = {{0, 0, 4.0},  {0, 1, -1.0}, {1, 0, 2.0},
                                  {1, 2, -1.0}, {2, 1, -1.0}, {2, 2, 4.0}};
    const std::vector<Cplx> b = {3.0, 1.0, 3.0};
    for (const char* opt :
         {"SOLVER 0\n", "SOLVER 1\n", "SOLVER 10\n", "SOLVER 10\nREV_DIAGZERO 2\n"}) {
        SCOPED_TRACE(opt);
        const Outcome o = solve(opt, 3, a, b, false);
        EXPECT_EQ(o.result, 1);
        EXPECT_EQ(o.err, Lines{});
        expectOnes(o.x, 1e-8);
    }
    const Outcome n = solve("SOLVER 1\nREV_DIAGZERO 0\n", 3, a, b, false);
    EXPECT_EQ(n.result, 0);
    EXPECT_EQ(n.err, (Lines{"KWILERR: No diag error in ILU 0 solver",
                            "KWILERR: ILU error in iter safe solver"}));
}

TEST_F(Faults, ComplexMatrixWithZeroImaginaryPartsSolvesAsTheRealOne)
{
    for (const char* opt :
         {"SOLVER 0\n", "SOLVER 2\n", "SOLVER 10\n", "SOLVER 20\nILU_FILLIN 1\n"}) {
        SCOPED_TRACE(opt);
        const Outcome o = solve(opt, 3, tridiag3(1.0), rhs3(1.0), true);
        EXPECT_EQ(o.result, 1);
        // ILU(0) of a tridiagonal matrix is exact: BiCGStab(L)'s first cycle leaves a zero
        // residual, whose minimisation step finds sigma = 0 and warns before converging.
        EXPECT_EQ(o.err, std::string(opt) == "SOLVER 2\n"
                             ? Lines{"KWILWRN: MR sigma j breakdown in iter stab-l step 1"}
                             : Lines{});
        expectOnes(o.x, 1e-9);
        for (const Cplx& v : o.x)
            EXPECT_EQ(v.imag(), 0.0);
    }
    // The safe solver takes real systems only, whatever the imaginary parts hold.
    const Outcome s = solve("SOLVER 1\n", 3, tridiag3(1.0), rhs3(1.0), true);
    EXPECT_EQ(s.result, 0);
    EXPECT_EQ(s.err, (Lines{"KWILERR: Invalid data type in iter safe solver"}));
    // Scaling refuses complex data even when it is real in value.
    const Outcome d = solve("SOLVER 0\nDIAG_SCALE 1\n", 3, tridiag3(1.0), rhs3(1.0), true);
    EXPECT_EQ(d.result, 1);
    EXPECT_EQ(d.err, (Lines{"KWILWRN: Not real data in diag scale begin"}));
}

} // namespace
