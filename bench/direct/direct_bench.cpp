// Direct solve benchmark: solvIMKL_PARDISO (through our pardiso_) against UMFPACK called
// directly with the same controls on the same arrays.
//
// Usage: direct_bench [--threads N] [--reps N] [--large] [--cpu] [--only NAME] [--matrix-dir DIR]
// Generated problems: 2-D convection-diffusion (cd2d-300, cd2d-700; --large adds cd2d-1000),
// 3-D convection-diffusion (cd3d-40; --large adds cd3d-60), complex shifted Helmholtz
// (helm-300; --large adds helm-700), and every real matrix file of DIR/real (default: the
// folder named by KWIL_MATRIX_DIR) with more than 2000 rows.
// Times are wall-clock seconds (--cpu: CPU seconds of the process, steadier on a loaded machine
// with one thread), the best of --reps runs (default 3, 1 above 200k unknowns).
#include <dirent.h>
#include <omp.h>
#include <umfpack.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "direct/direct.h"
#include "direct/direct_support.h"
#include "platform/pardiso.h"
#include "umfpack_timed.h"

namespace {

using directtest::Cplx;
using directtest::Csr;

bool cpuClock = false; // --cpu: process CPU time instead of wall-clock time

double now()
{
    if (cpuClock) {
        timespec t;
        clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
        return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
    }
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

// Appends row i of a stencil matrix; columns must come in ascending order.
template <class S> void push(Csr<S>& m, int col, S v)
{
    m.ja.push_back(col + 1);
    m.a.push_back(v);
}

// Upwind convection-diffusion, 5 points on m x m (d = 2) or 7 points on m^3 (d = 3), h = 1/(m+1),
// velocity (40, -25, 10). For complex S: -Laplace - k^2 (1 - 0.5i) with k h = 0.6 instead.
template <class S> Csr<S> stencil(int m, int d)
{
    const bool helm = std::is_same<S, Cplx>::value;
    const double h = 1.0 / (m + 1), h2 = 1.0 / (h * h);
    const double c[3] = {helm ? 0.0 : 40.0, helm ? 0.0 : -25.0, helm ? 0.0 : 10.0};
    const long stride[3] = {1, m, static_cast<long>(m) * m};
    Csr<S> a;
    a.n = d == 2 ? m * m : m * m * m;
    a.ia.reserve(a.n + 1L);
    a.ja.reserve((2L * d + 1) * a.n);
    a.a.reserve((2L * d + 1) * a.n);
    a.ia.push_back(1);
    double diag = 2.0 * d * h2;
    for (int k = 0; k < d; ++k)
        diag += std::abs(c[k]) / h;
    const double k2 = (0.6 / h) * (0.6 / h);
    const S dv = helm ? directtest::scalar<S>(diag - k2, 0.5 * k2) : S(diag);
    for (long i = 0; i < a.n; ++i) {
        int g[3] = {static_cast<int>(i % m), static_cast<int>((i / m) % m),
                    static_cast<int>(i / (static_cast<long>(m) * m))};
        for (int k = d - 1; k >= 0; --k) { // lower neighbours, far to near
            if (g[k] > 0)
                push(a, static_cast<int>(i - stride[k]), S(-h2 - std::max(c[k], 0.0) / h));
        }
        push(a, static_cast<int>(i), dv);
        for (int k = 0; k < d; ++k) { // upper neighbours, near to far
            if (g[k] + 1 < m)
                push(a, static_cast<int>(i + stride[k]), S(-h2 + std::min(c[k], 0.0) / h));
        }
        a.ia.push_back(static_cast<int>(a.ja.size()) + 1);
    }
    return a;
}

struct Result {
    double analyse = 1e300, factor = 1e300, solve = 1e300, total = 1e300;
    double residual = 0.0;
    double memoryMb = 0.0;   // estimate (layer) or actual peak (UMFPACK)
    double estimateMb = 0.0; // UMFPACK's peak estimate of the analysis
};

// Our layer: the phases timed one by one through pardiso_ with the parameters of the
// library's direct solve, and the library routine end to end.
template <class S>
int runLayer(KwilHandle* h, Csr<S>& m, const std::vector<S>& b, Result& r, Result& e2e)
{
    std::vector<S> x(m.n), bc = b;
    directtest::Layer<S> l(m);
    double t0 = now();
    if (const int e = l.call(11))
        return e;
    double t1 = now();
    if (const int e = l.call(22))
        return e;
    double t2 = now();
    if (const int e = l.call(33, bc.data(), x.data()))
        return e;
    double t3 = now();
    l.call(-1);
    double t4 = now();
    r.analyse = std::min(r.analyse, t1 - t0);
    r.factor = std::min(r.factor, t2 - t1);
    r.solve = std::min(r.solve, t3 - t2);
    r.total = std::min(r.total, t4 - t0);
    r.memoryMb = std::max(l.iparm[14], l.iparm[15] + l.iparm[16]) / 1024.0;
    r.residual = directtest::relResidual(m, x, b);

    ComLinMat mat = m.mat();
    const int type = directtest::dataTypeOf<S>();
    double* bp = reinterpret_cast<double*>(bc.data());
    double* xp = reinterpret_cast<double*>(x.data());
    ComLinVec fix{m.n, type, type == LIN_REAL ? bp : nullptr, type == LIN_REAL ? nullptr : bp};
    ComLinVec var{m.n, type, type == LIN_REAL ? xp : nullptr, type == LIN_REAL ? nullptr : xp};
    std::fill(x.begin(), x.end(), S{});
    t0 = now();
    if (solvIMKL_PARDISO(h, &mat, &fix, &var) != 1)
        return -100;
    e2e.total = std::min(e2e.total, now() - t0);
    e2e.residual = directtest::relResidual(m, x, b);
    return 0;
}

// UMFPACK called directly on zero-based copies of the arrays, with the controls of the layer
// (METIS ordering), or with UMFPACK's default ordering (AMD/COLAMD by strategy).
template <class S> void runUmfpack(Csr<S>& m, const std::vector<S>& b, Result& r, bool metis = true)
{
    const benchumf::Timed<S> t = benchumf::solve(m, b, metis);
    if (!t.ok)
        exit(3);
    r.analyse = std::min(r.analyse, t.analyse);
    r.factor = std::min(r.factor, t.factor);
    r.solve = std::min(r.solve, t.solve);
    r.total = std::min(r.total, t.total);
    r.memoryMb = t.memoryMb;
    r.estimateMb = t.estimateMb;
    r.residual = directtest::relResidual(m, t.x, b);
}

template <class S> void bench(KwilHandle* h, const std::string& name, Csr<S>& m, int reps)
{
    const std::vector<S> b = directtest::multiply(m, directtest::rhs<S>(m.n));
    Result layer, e2e, direct, amd;
    if (m.n > 200000)
        reps = std::min(reps, 1);
    for (int k = 0; k < reps; ++k) { // alternate, so that drift hits both alike
        if (const int e = runLayer(h, m, b, layer, e2e)) {
            printf("| %-14s | %8d | %9d | failed with error %d |\n", name.c_str(), m.n, m.nnz(), e);
            return;
        }
        runUmfpack(m, b, direct);
        runUmfpack(m, b, amd, false);
    }
    printf("| %-14s | %8d | %9d | %7.3f / %7.3f | %7.3f / %7.3f | %6.3f / %6.3f | %7.3f | %7.3f / "
           "%7.3f | %5.3f | %8.1f / %8.1f | %.1e / %.1e | %7.3f %7.3f %6.1f %7.1f |\n",
           name.c_str(), m.n, m.nnz(), layer.analyse, direct.analyse, layer.factor, direct.factor,
           layer.solve, direct.solve, e2e.total, layer.total, direct.total,
           e2e.total / direct.total, layer.memoryMb, direct.memoryMb, e2e.residual, direct.residual,
           amd.analyse, amd.factor, amd.memoryMb, amd.estimateMb);
    fflush(stdout);
}

} // namespace

int main(int argc, char** argv)
{
    int threads = 1, reps = 3;
    bool large = false;
    std::string only;
    const char* env = getenv("KWIL_MATRIX_DIR");
    std::string dir = env != nullptr ? env : "";
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "--threads" && i + 1 < argc)
            threads = atoi(argv[++i]);
        else if (a == "--reps" && i + 1 < argc)
            reps = atoi(argv[++i]);
        else if (a == "--large")
            large = true;
        else if (a == "--cpu")
            cpuClock = true;
        else if (a == "--only" && i + 1 < argc)
            only = argv[++i];
        else if (a == "--matrix-dir" && i + 1 < argc)
            dir = argv[++i];
        else {
            fprintf(stderr,
                    "usage: %s [--threads N] [--reps N] [--large] [--cpu] [--only NAME] "
                    "[--matrix-dir DIR]\n",
                    argv[0]);
            return 1;
        }
    }
    omp_set_num_threads(threads);
    FILE* opt = tmpfile();
    char path[64];
    snprintf(path, sizeof path, "/proc/self/fd/%d", fileno(opt));
    fputs("FILE_VER 1\n", opt);
    fflush(opt);
    KwilHandle* h = kwilInit(1, path);
    if (h == nullptr)
        return 1;

    printf("threads %d, best of %d; %s times in s as layer / UMFPACK direct; memory: layer "
           "estimate / UMFPACK actual peak (MB)\n\n",
           threads, reps, cpuClock ? "CPU" : "wall-clock");
    printf("| problem        |        n |       nnz | analysis          | factorisation     |"
           " solve           | solvIMKL| end to end        | ratio | memory MB           |"
           " residual          | UMFPACK AMD: ana fac MB est.MB |\n");
    printf("|---|---|---|---|---|---|---|---|---|---|---|---|\n");
    auto want = [&](const std::string& name) { return only.empty() || name == only; };
    struct Gen {
        const char* name;
        int m, d;
        bool cplx, big;
    };
    const Gen gens[] = {{"cd2d-300", 300, 2, false, false},  {"cd2d-700", 700, 2, false, false},
                        {"cd2d-1000", 1000, 2, false, true}, {"cd3d-40", 40, 3, false, false},
                        {"cd3d-60", 60, 3, false, true},     {"helm-300", 300, 2, true, false},
                        {"helm-700", 700, 2, true, true}};
    for (const Gen& g : gens) {
        if ((g.big && !large) || !want(g.name))
            continue;
        if (g.cplx) {
            Csr<Cplx> m = stencil<Cplx>(g.m, g.d);
            bench(h, g.name, m, reps);
        } else {
            Csr<double> m = stencil<double>(g.m, g.d);
            bench(h, g.name, m, reps);
        }
    }
    std::vector<std::string> files;
    if (DIR* d = dir.empty() ? nullptr : opendir((dir + "/real").c_str())) {
        while (dirent* e = readdir(d)) {
            const std::string f = e->d_name;
            if (f.size() > 4 && f.compare(f.size() - 4, 4, ".mtx") == 0)
                files.push_back(f);
        }
        closedir(d);
    }
    std::sort(files.begin(), files.end());
    for (const std::string& f : files) {
        const std::string name = f.substr(0, f.size() - 4);
        if (!want(name))
            continue;
        Csr<double> m;
        if (!directtest::readMatrixMarket(dir + "/real/" + f, m) || m.n <= 2000)
            continue;
        bench(h, name, m, reps);
    }
    kwilTerm(h);
    fclose(opt);
    return 0;
}
