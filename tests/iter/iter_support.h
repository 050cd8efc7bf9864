// Test problems and a solve harness for the Krylov solver suites.
#pragma once

#include <complex>
#include <string>
#include <vector>

#include "iter/iter.h"
#include "support/support.h"

namespace itertest {

using Cplx = std::complex<double>;
using Solver = int (*)(KwilHandle*, const ComLinMat*, const ComLinVec*, ComLinVec*);

// One matrix entry, 0-based.
struct Entry {
    int i;
    int j;
    Cplx v;
};

// A CSR matrix built from entries (no duplicates, any order); complex when cplx is set.
ComLinMat* csr(KwilHandle* handle, int n, bool cplx, std::vector<Entry> entries);
// tridiag(-1, 2, -1) of order n.
std::vector<Entry> laplace1d(int n);
// 5-point upwind convection-diffusion on an m x m grid: -lap u + c (u_x + u_y), h = 1/(m+1).
std::vector<Entry> convDiff2d(int m, double c);
// The 5-point Laplacian of an m x m grid shifted by -shift on the diagonal (complex symmetric
// for a complex shift).
std::vector<Entry> helmholtz2d(int m, Cplx shift);
// Convection-diffusion with complex coefficients: neither symmetric nor Hermitian.
std::vector<Entry> complexConvDiff2d(int m);

// A vector of A's type holding v (imaginary parts dropped for a real vector).
ComLinVec* vec(KwilHandle* handle, bool cplx, const std::vector<Cplx>& v);
std::vector<Cplx> values(const ComLinVec* x);
// A x computed here, independently of the library kernels.
std::vector<Cplx> product(const ComLinMat* a, const std::vector<Cplx>& x);
double norm(const std::vector<Cplx>& v);
// ||b - A x|| / ||b||.
double relResidual(const ComLinMat* a, const std::vector<Cplx>& b, const std::vector<Cplx>& x);
// printf into a string.
std::string fmt(const char* format, ...) __attribute__((format(printf, 1, 2)));

// A handle with TRACE 1 and the given extra option lines, A, b = A xs and x = 0 owned here.
class Problem {
  public:
    Problem(const std::vector<Entry>& entries, int n, bool cplx, const std::string& opts = "");
    ~Problem();
    Problem(const Problem&) = delete;
    Problem& operator=(const Problem&) = delete;

    void setInt(ComOptIntKey key, int value) { handle->intOpt[key] = value; }
    void setDbl(ComOptDblKey key, double value) { handle->dblOpt[key] = value; }
    // Replaces b (and the known solution, which is no longer known: xs is cleared).
    void setB(const std::vector<Cplx>& b);
    // Sets x to the given values (the start vector).
    void setX(const std::vector<Cplx>& x);
    // Runs the solver with x reset to zero, capturing its lines.
    int run(Solver solver);
    // Runs the solver on the current x.
    int runFrom(Solver solver);
    // Relative error of x against xs.
    double error() const;

    kwiltest::TempDir dir;
    KwilHandle* handle;
    ComLinMat* a;
    ComLinVec* b;
    ComLinVec* x;
    int n;
    bool cplx;
    std::vector<Cplx> xs; // the known solution
    std::vector<Cplx> bv;
    std::vector<std::string> out;
    std::vector<std::string> err;
};

// The line that starts with prefix, or "" when there is none.
std::string findLine(const std::vector<std::string>& lines, const std::string& prefix);
// Parses "KWILTRC: Iter <name> end <result> step <k> abs norm <n> resolve <t>".
struct EndLine {
    bool found = false;
    int result = -1;
    int step = -1;
    double norm = 0.0;
    double tol = 0.0;
};
EndLine endLine(const std::vector<std::string>& out, const std::string& name);

} // namespace itertest
