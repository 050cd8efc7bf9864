// Times kwil's direct solve on one Matrix Market system for the benchmark table, phase by phase,
// against UMFPACK (the backend it wraps) called directly with the same controls.
//
//   table_direct REPS A.mtx b.mtx
//
// Each repetition runs, in this order: the library's pardiso_ layer phase by phase (analysis
// 11, factorisation 22, solve 33, release -1) with the parameters solvIMKL_PARDISO sets;
// solvIMKL_PARDISO end to end; UMFPACK symbolic, numeric and solve with the layer's controls
// (METIS ordering, row scaling, 2 refinement steps, A^T factorised). Prints, per method, the
// median wall-clock seconds of each phase and the true relative residual ||b - A x|| / ||b||.
#include <umfpack.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "direct/direct.h"
#include "direct/direct_support.h"
#include "umfpack_timed.h"

namespace {

using directtest::Cplx;
using directtest::Csr;

double now()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    const size_t m = v.size() / 2;
    return v.size() % 2 ? v[m] : 0.5 * (v[m - 1] + v[m]);
}

// Phase times of one method over the repetitions, and the residual of its last answer.
struct Phases {
    std::vector<double> analyse, factor, solve, total;
    double residual = 0.0;
    void print(const char* name) const
    {
        printf("method=%s analysis=%.6f factor=%.6f solve=%.6f total=%.6f relres=%.3e\n", name,
               median(analyse), median(factor), median(solve), median(total), residual);
    }
};

// The first column of an array Matrix Market file, n values (real, or re im pairs).
template <class S> bool readVector(const char* path, int n, std::vector<S>& b)
{
    FILE* f = fopen(path, "r");
    if (f == nullptr)
        return false;
    char line[1024];
    int rows = 0, cols = 0;
    bool ok = fgets(line, sizeof line, f) != nullptr && strstr(line, "array") != nullptr;
    while (ok && fgets(line, sizeof line, f) != nullptr && line[0] == '%') {
    }
    ok = ok && sscanf(line, "%d %d", &rows, &cols) == 2 && rows == n;
    b.assign(n, S{});
    for (int i = 0; ok && i < n; ++i) {
        double re = 0.0, im = 0.0;
        ok = fscanf(f, "%lg", &re) == 1 &&
             (std::is_same<S, double>::value || fscanf(f, "%lg", &im) == 1);
        b[i] = directtest::scalar<S>(re, im);
    }
    fclose(f);
    return ok;
}

// The pardiso_ layer phase by phase, then solvIMKL_PARDISO end to end.
template <class S>
int runLayer(KwilHandle* h, Csr<S>& m, const std::vector<S>& b, Phases& layer, Phases& e2e)
{
    std::vector<S> x(m.n), bc = b;
    {
        directtest::Layer<S> l(m);
        const double t0 = now();
        if (const int e = l.call(11))
            return e;
        const double t1 = now();
        if (const int e = l.call(22))
            return e;
        const double t2 = now();
        if (const int e = l.call(33, bc.data(), x.data()))
            return e;
        const double t3 = now();
        l.call(-1);
        const double t4 = now();
        layer.analyse.push_back(t1 - t0);
        layer.factor.push_back(t2 - t1);
        layer.solve.push_back(t3 - t2);
        layer.total.push_back(t4 - t0);
        layer.residual = directtest::relResidual(m, x, b);
    }
    ComLinMat mat = m.mat();
    const int type = directtest::dataTypeOf<S>();
    bc = b;
    std::fill(x.begin(), x.end(), S{});
    double* bp = reinterpret_cast<double*>(bc.data());
    double* xp = reinterpret_cast<double*>(x.data());
    ComLinVec fix{m.n, type, type == LIN_REAL ? bp : nullptr, type == LIN_REAL ? nullptr : bp};
    ComLinVec var{m.n, type, type == LIN_REAL ? xp : nullptr, type == LIN_REAL ? nullptr : xp};
    const double t0 = now();
    if (solvIMKL_PARDISO(h, &mat, &fix, &var) != 1)
        return -100;
    const double t = now() - t0;
    e2e.analyse.push_back(0.0);
    e2e.factor.push_back(0.0);
    e2e.solve.push_back(0.0);
    e2e.total.push_back(t);
    e2e.residual = directtest::relResidual(m, x, b);
    return 0;
}

// UMFPACK called directly with the layer's controls.
template <class S> bool runUmfpack(const Csr<S>& m, const std::vector<S>& b, Phases& r)
{
    const benchumf::Timed<S> t = benchumf::solve(m, b);
    if (!t.ok)
        return false;
    r.analyse.push_back(t.analyse);
    r.factor.push_back(t.factor);
    r.solve.push_back(t.solve);
    r.total.push_back(t.total);
    r.residual = directtest::relResidual(m, t.x, b);
    return true;
}

template <class S> int run(KwilHandle* h, int reps, const char* aPath, const char* bPath)
{
    Csr<S> m;
    std::vector<S> b;
    if (!directtest::readMatrixMarket(aPath, m) || !readVector(bPath, m.n, b)) {
        fprintf(stderr, "table_direct: cannot read %s or %s\n", aPath, bPath);
        return 1;
    }
    Phases layer, e2e, umf;
    for (int k = 0; k < reps; ++k) { // alternate, so that drift hits both alike
        if (const int e = runLayer(h, m, b, layer, e2e)) {
            printf("method=kwil failed error=%d\n", e);
            return 3;
        }
        if (!runUmfpack(m, b, umf)) {
            printf("method=umfpack failed\n");
            return 3;
        }
    }
    layer.print("kwil-phases");
    e2e.print("kwil-solvIMKL");
    umf.print("umfpack");
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 4) {
        fprintf(stderr, "usage: table_direct REPS A.mtx b.mtx\n");
        return 2;
    }
    const int reps = std::max(1, atoi(argv[1]));
    FILE* opt = tmpfile(); // an options file with the defaults, for the handle
    char path[64];
    snprintf(path, sizeof path, "/proc/self/fd/%d", fileno(opt));
    fputs("FILE_VER 1\n", opt);
    fflush(opt);
    KwilHandle* h = kwilInit(1, path);
    if (h == nullptr)
        return 1;
    FILE* f = fopen(argv[2], "r");
    char banner[256] = "";
    if (f == nullptr || fgets(banner, sizeof banner, f) == nullptr)
        return 1;
    fclose(f);
    const int rc = strstr(banner, "complex") != nullptr ? run<Cplx>(h, reps, argv[2], argv[3])
                                                        : run<double>(h, reps, argv[2], argv[3]);
    kwilTerm(h);
    fclose(opt);
    return rc;
}
