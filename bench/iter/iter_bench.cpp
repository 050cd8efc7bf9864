// End-to-end timing of the Krylov solvers on generated problems: steps, time per step, total
// time, true relative residual, and the step time against the bytes a step must move divided
// by the triad bandwidth measured in the same run.
//
// Usage: kwil_iter_bench [-t threads,...] [-m maxstep] [-s solver] [problem...]
// Problems: cd500 cd1000 cd3d60 helm500 (default: all); cdN and cd3dN for other grid sizes.
#include <omp.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bench/common/triad.h"
#include "common/own.h"
#include "iter/control.h"
#include "precond/precond.h"

namespace {

struct Problem {
    std::string name;
    ComLinMat* a;
    ComLinVec* b;
    std::vector<double> bv; // b, interleaved for complex
};

// CSR from a stencil callback: for row i, fn(i, cols, vals) appends its entries (0-based).
template <class Fn> ComLinMat* build(KwilHandle* h, int n, bool cplx, int perRow, Fn fn)
{
    std::vector<int> row(n + 1), col;
    std::vector<double> val;
    col.reserve(static_cast<size_t>(n) * perRow);
    val.reserve(static_cast<size_t>(n) * perRow * (cplx ? 2 : 1));
    for (int i = 0; i < n; ++i) {
        row[i] = static_cast<int>(col.size()) + 1;
        fn(i, col, val);
    }
    row[n] = static_cast<int>(col.size()) + 1;
    const int nnz = static_cast<int>(col.size());
    ComLinMat* a = comLinMatCreate(h, MAT_CSR, cplx ? LIN_COMP : LIN_REAL, n, nnz);
    if (a == nullptr)
        exit(1);
    memcpy(a->row, row.data(), sizeof(int) * (n + 1));
    for (int p = 0; p < nnz; ++p)
        a->col[p] = col[p] + 1;
    memcpy(cplx ? a->compData : a->realData, val.data(), sizeof(double) * val.size());
    return a;
}

// 2-D convection-diffusion on an m x m grid, first-order upwind, unit-square, h = 1/(m+1):
// -lap u + c (u_x + u_y). Rows in natural order, columns sorted.
ComLinMat* convDiff2d(KwilHandle* h, int m, double c)
{
    const double hh = 1.0 / (m + 1), d = 1.0 / (hh * hh), up = c / hh;
    return build(h, m * m, false, 5, [&](int i, std::vector<int>& col, std::vector<double>& v) {
        const int x = i % m, y = i / m;
        auto add = [&](int j, double a) {
            col.push_back(j);
            v.push_back(a);
        };
        if (y > 0)
            add(i - m, -d - up);
        if (x > 0)
            add(i - 1, -d - up);
        add(i, 4.0 * d + 2.0 * up);
        if (x + 1 < m)
            add(i + 1, -d);
        if (y + 1 < m)
            add(i + m, -d);
    });
}

// 3-D convection-diffusion on an m^3 grid, 7-point upwind.
ComLinMat* convDiff3d(KwilHandle* h, int m, double c)
{
    const double hh = 1.0 / (m + 1), d = 1.0 / (hh * hh), up = c / hh;
    const int mm = m * m;
    return build(h, mm * m, false, 7, [&](int i, std::vector<int>& col, std::vector<double>& v) {
        const int x = i % m, y = (i / m) % m, z = i / mm;
        auto add = [&](int j, double a) {
            col.push_back(j);
            v.push_back(a);
        };
        if (z > 0)
            add(i - mm, -d - up);
        if (y > 0)
            add(i - m, -d - up);
        if (x > 0)
            add(i - 1, -d - up);
        add(i, 6.0 * d + 3.0 * up);
        if (x + 1 < m)
            add(i + 1, -d);
        if (y + 1 < m)
            add(i + m, -d);
        if (z + 1 < m)
            add(i + mm, -d);
    });
}

// 2-D Helmholtz with a complex shift: -lap u - k^2 (1 + 0.5 i) u (complex symmetric).
ComLinMat* helmholtz2d(KwilHandle* h, int m, double k)
{
    const double hh = 1.0 / (m + 1), d = 1.0 / (hh * hh);
    const double sre = -k * k, sim = -0.5 * k * k;
    return build(h, m * m, true, 5, [&](int i, std::vector<int>& col, std::vector<double>& v) {
        const int x = i % m, y = i / m;
        auto add = [&](int j, double re, double im) {
            col.push_back(j);
            v.push_back(re);
            v.push_back(im);
        };
        if (y > 0)
            add(i - m, -d, 0.0);
        if (x > 0)
            add(i - 1, -d, 0.0);
        add(i, 4.0 * d + sre, sim);
        if (x + 1 < m)
            add(i + 1, -d, 0.0);
        if (y + 1 < m)
            add(i + m, -d, 0.0);
    });
}

double now()
{
    return omp_get_wtime();
}

// ||b - A x|| / ||b||, computed here in plain loops.
double trueRelResidual(const ComLinMat* a, const ComLinVec* b, const ComLinVec* x)
{
    double rr = 0.0, bb = 0.0;
    const bool c = a->dataType == LIN_COMP;
    for (int i = 0; i < a->size; ++i) {
        double re = c ? b->compData[2 * i] : b->realData[i];
        double im = c ? b->compData[2 * i + 1] : 0.0;
        bb += re * re + im * im;
        for (int p = a->row[i] - 1; p < a->row[i + 1] - 1; ++p) {
            const int j = a->col[p] - 1;
            if (c) {
                const double ar = a->compData[2 * p], ai = a->compData[2 * p + 1];
                const double xr = x->compData[2 * j], xi = x->compData[2 * j + 1];
                re -= ar * xr - ai * xi;
                im -= ar * xi + ai * xr;
            } else {
                re -= a->realData[p] * x->realData[j];
            }
        }
        rr += re * re + im * im;
    }
    return std::sqrt(rr / bb);
}

// Triad bandwidth over three arrays of n doubles in GB/s: the best of five sweeps.
double triadGBs(long n)
{
    bench::Triad triad(n);
    double best = 1e30;
    for (int rep = 0; rep < 5; ++rep)
        best = std::min(best, triad.sweep(1.0 + rep * 1e-3));
    return triad.bytes() / best / 1e9;
}

// Bytes one step must move (products, triangular solves, vector updates, dots and norms),
// with sv bytes per value and 4 per index; x and y vectors of a product counted once each.
struct Traffic {
    double matvec; // y = A x
    double prec;   // L w = z, then U out = w
    double vecs;   // one n-vector
};

Traffic traffic(long n, long nnz, long nnzLU, int sv)
{
    Traffic t;
    t.matvec = nnz * (sv + 4.0) + 4.0 * (n + 1) + 2.0 * n * sv;
    t.prec = nnzLU * (sv + 4.0) + 8.0 * (n + 1) + 4.0 * n * sv;
    t.vecs = static_cast<double>(n) * sv;
    return t;
}

// Vector passes per step (a read or a write of one n-vector each) and products per step.
double stepBytes(const std::string& solver, int ell, bool pre, const Traffic& t)
{
    if (solver == "stab") { // 2 products, 2 preconditioner applications, 33 vector passes
        return 2 * t.matvec + (pre ? 2 * t.prec : 0.0) + 33 * t.vecs;
    }
    if (solver == "safe") { // Au, Az, Ar (+ A rh), u and r preconditioned, 63 vector passes
        return (pre ? 4 : 3) * t.matvec + (pre ? 2 * t.prec : 0.0) + 63 * t.vecs;
    }
    // stab-l per cycle, divided by l: 2l products and preconditioner applications.
    double v = 1; // monitor norm
    for (int j = 0; j < ell; ++j)
        v += 2 + 5 * (j + 1) + 2 + 3 * (j + 1) + 3;
    for (int j = 1; j <= ell; ++j)
        v += 5 * (j - 1) + 1 + 2;
    v += 3 * 3 + 9 * (ell - 1);
    return (2 * ell * t.matvec + (pre ? 2 * ell * t.prec : 0.0) + v * t.vecs) / ell;
}

// Times one product, one preconditioner application and one axpy (best of several), and
// prints each against its byte count over the triad bandwidth.
void kernels(KwilHandle* h, const Problem& pb, int threads, double triad)
{
    h->intOpt[OPT_THREADS] = threads;
    const int prev = comSetThreads(h);
    const ComLinMat* a = pb.a;
    ComLinMat *l = nullptr, *u = nullptr;
    if (!comToolILU(h, a, &l, &u))
        exit(1);
    const long nnzLU = static_cast<long>(l->dataNum) + u->dataNum;
    ComLinVec* x = comLinVecCreateInit(h, a->dataType, a->size, ComComplex{1.0, 0.0});
    ComLinVec* y = comLinVecCreateInit(h, a->dataType, a->size, ComComplex{0.0, 0.0});
    ComLinVec* w = comLinVecCreateInit(h, a->dataType, a->size, ComComplex{0.0, 0.0});
    auto best = [](auto fn) {
        double b = 1e30;
        for (int rep = 0; rep < 7; ++rep) {
            const double t0 = now();
            fn();
            b = std::min(b, now() - t0);
        }
        return b;
    };
    const double tMv = best([&] {
        comLinMatCalcVec(h, ComComplex{1.0, 0.0}, a, 0, x, ComComplex{0.0, 0.0}, y);
    });
    // As the solvers apply it: with the factors' solve plans (none with one thread).
    const double tPlan0 = now();
    PlatformTrsvPlan* lPlan = comLinMatTriSolvPlan(h, 0, l);
    PlatformTrsvPlan* uPlan = comLinMatTriSolvPlan(h, 1, u);
    const double tPlans = now() - tPlan0;
    const double tPre = best([&] {
        comLinMatTriSolvPlanned(h, 0, l, lPlan, x, w);
        comLinMatTriSolvPlanned(h, 1, u, uPlan, w, y);
    });
    comLinMatTriSolvPlanDelete(h, lPlan);
    comLinMatTriSolvPlanDelete(h, uPlan);
    const double tAxpy = best([&] { comLinVecCalcVec(h, ComComplex{1e-3, 0.0}, x, y); });
    double sink = 0.0;
    const double tDot = best([&] {
        if (a->dataType == LIN_REAL) {
            sink += comLinVecCalcDotReal(h, x, y);
        } else {
            ComComplex d;
            comLinVecCalcDotCompConj(h, x, y, &d);
            sink += d.re;
        }
    });
    const double tNrm = best([&] { sink += comLinVecCalcNorm2(h, y); });
    const double tCopy = best([&] { comLinVecCopy(h, x, w); });
    const int sv = a->dataType == LIN_COMP ? 16 : 8;
    const Traffic tr = traffic(a->size, a->dataNum, nnzLU, sv);
    const double bw = triad * 1e9;
    printf(
        "# %s %d thread(s): product %.3f ms (ratio %.2f), L+U plans %.3f ms, L+U solves %.3f "
        "ms (ratio %.2f), axpy %.3f ms (ratio %.2f), dot %.3f ms, norm %.3f ms, copy %.3f ms%s\n",
        pb.name.c_str(), threads, tMv * 1e3, tMv / (tr.matvec / bw), tPlans * 1e3, tPre * 1e3,
        tPre / (tr.prec / bw), tAxpy * 1e3, tAxpy / (3 * tr.vecs / bw), tDot * 1e3, tNrm * 1e3,
        tCopy * 1e3, sink == 0.123 ? " " : "");
    comLinVecsDelete(h, x, y, w, nullptr);
    comLinMatDelete(h, l);
    comLinMatDelete(h, u);
    comResetThreads(h, prev);
}

std::string only; // run only this solver ("stab", "safe", "stab-l") when set
int lastStep = 0;
double lastNorm = 0.0;
double countSteps(int step, double norm)
{
    lastStep = step;
    lastNorm = norm;
    return norm;
}

void run(KwilHandle* h, const Problem& pb, const std::string& solver, int ell, int threads,
         int maxStep, double triad)
{
    if (!only.empty() && only != solver)
        return;
    h->intOpt[OPT_THREADS] = threads;
    h->intOpt[OPT_STABL_L] = ell;
    h->intOpt[OPT_ITER_MAXSTEP] = maxStep;
    const int prev = comSetThreads(h);
    const ComLinMat* a = pb.a;
    // ILU factorisation alone, to separate it from the iteration and count the factors.
    ComLinMat *l = nullptr, *u = nullptr;
    double t0 = now();
    if (!comToolILU(h, a, &l, &u))
        exit(1);
    const double tIlu = now() - t0;
    const long nnzLU = static_cast<long>(l->dataNum) + u->dataNum;
    comLinMatDelete(h, l);
    comLinMatDelete(h, u);

    ComLinVec* x = comLinVecCreateInit(h, a->dataType, a->size, ComComplex{0.0, 0.0});
    lastStep = 0;
    kwil::iterTestSetNormHook(countSteps);
    t0 = now();
    int result = 0;
    if (solver == "stab")
        result = solvIterStab(h, a, pb.b, x);
    if (solver == "safe")
        result = solvIterSafe(h, a, pb.b, x);
    if (solver == "stab-l")
        result = solvIterStabL(h, a, pb.b, x);
    const double tAll = now() - t0;
    kwil::iterTestSetNormHook(nullptr);
    const double rel = trueRelResidual(a, pb.b, x);
    // How the solve ended: converged, gave up (result 1 above the tolerance), or failed.
    const double tol = h->dblOpt[OPT_ITER_RESOLVE] * comLinVecCalcNorm2(h, pb.b);
    const char* ending = result == 0 ? "fail" : lastNorm <= tol ? "conv" : "gaveup";
    comLinVecDelete(h, x);
    comResetThreads(h, prev);

    const int steps = lastStep;
    const double perStep = (tAll - tIlu) / std::max(steps, 1);
    const int sv = a->dataType == LIN_COMP ? 16 : 8;
    const Traffic tr = traffic(a->size, a->dataNum, nnzLU, sv);
    const double bytes = stepBytes(solver, ell, true, tr);
    const double ideal = bytes / (triad * 1e9);
    const std::string label = solver == "stab-l" ? "stab-l(" + std::to_string(ell) + ")" : solver;
    printf("%-8s %-10s %2d %8d %9d %6s %6d %9.3f %8.3f %10.3f %10.2e %9.1f %8.3f %6.2f\n",
           pb.name.c_str(), label.c_str(), threads, a->size, a->dataNum, ending, steps, tIlu, tAll,
           perStep * 1e3, rel, bytes / 1e6, ideal * 1e3, perStep / ideal);
    fflush(stdout);
}

} // namespace

int main(int argc, char** argv)
{
    std::vector<int> threads = {1, 2};
    std::vector<std::string> names;
    int maxStep = 5000;
    for (int i = 1; i < argc; ++i) {
        if (!strcmp(argv[i], "-t") && i + 1 < argc) {
            threads.clear();
            for (char* s = strtok(argv[++i], ","); s; s = strtok(nullptr, ","))
                threads.push_back(atoi(s));
        } else if (!strcmp(argv[i], "-s") && i + 1 < argc) {
            only = argv[++i];
        } else if (!strcmp(argv[i], "-m") && i + 1 < argc) {
            maxStep = atoi(argv[++i]);
        } else {
            names.push_back(argv[i]);
        }
    }
    if (names.empty())
        names = {"cd500", "cd1000", "cd3d60", "helm500"};

    char ini[] = "/tmp/kwil_iter_bench_XXXXXX";
    const int fd = mkstemp(ini);
    if (fd < 0)
        return 1;
    const char text[] = "FILE_VER 1\nTRACE 0\n";
    if (write(fd, text, sizeof text - 1) < 0)
        return 1;
    close(fd);
    KwilHandle* h = kwilInit(1, ini);
    unlink(ini);
    if (h == nullptr)
        return 1;

    printf("# triad bandwidth (24 bytes per element, 3 x 2^24 doubles):");
    std::vector<double> triad;
    for (int t : threads) {
        omp_set_num_threads(t);
        triad.push_back(triadGBs(1L << 24));
        printf(" %d thread(s) %.2f GB/s", t, triad.back());
    }
    printf("\n# ILU(0) right preconditioning, tolerance 1e-10, x0 = 0, b = A 1\n");
    printf("%-8s %-10s %2s %8s %9s %6s %6s %9s %8s %10s %10s %9s %8s %6s\n", "problem", "solver",
           "th", "n", "nnz", "end", "steps", "ilu[s]", "total[s]", "step[ms]", "true rel",
           "MB/step", "bw[ms]", "ratio");

    for (const std::string& name : names) {
        Problem pb{name, nullptr, nullptr, {}};
        int m = 0;
        if (sscanf(name.c_str(), "cd3d%d", &m) == 1 && m > 1)
            pb.a = convDiff3d(h, m, 50.0);
        else if (sscanf(name.c_str(), "cd%d", &m) == 1 && m > 1)
            pb.a = convDiff2d(h, m, 50.0);
        else if (name == "helm500")
            pb.a = helmholtz2d(h, 500, 20.0);
        else {
            fprintf(stderr, "unknown problem %s\n", name.c_str());
            return 1;
        }
        ComLinVec* ones = comLinVecCreateInit(h, pb.a->dataType, pb.a->size, ComComplex{1.0, 0.0});
        pb.b = comLinVecCreateInit(h, pb.a->dataType, pb.a->size, ComComplex{0.0, 0.0});
        comLinMatCalcVec(h, ComComplex{1.0, 0.0}, pb.a, 0, ones, ComComplex{0.0, 0.0}, pb.b);
        comLinVecDelete(h, ones);
        const bool cplx = pb.a->dataType == LIN_COMP;
        for (size_t ti = 0; ti < threads.size(); ++ti)
            kernels(h, pb, threads[ti], triad[ti]);
        for (size_t ti = 0; ti < threads.size(); ++ti) {
            run(h, pb, "stab", 1, threads[ti], maxStep, triad[ti]);
            if (cplx) {
                run(h, pb, "stab-l", 1, threads[ti], maxStep, triad[ti]);
                run(h, pb, "stab-l", 2, threads[ti], maxStep, triad[ti]);
            } else {
                run(h, pb, "safe", 1, threads[ti], maxStep, triad[ti]);
            }
        }
        comLinMatDelete(h, pb.a);
        comLinVecDelete(h, pb.b);
    }
    kwilTerm(h);
    return 0;
}
