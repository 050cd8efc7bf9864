// Effective bandwidth of the CSR kernels against a STREAM-like triad, on generated 2-D
// convection-diffusion matrices: one of about 6 million entries (DRAM bound) and one that fits
// in the last-level cache. Like STREAM, every figure is the best single call of a run, which
// filters out the interruptions of a shared machine. Each kernel's figure is divided by the triad
// measured with the same thread count on arrays of the same size class, one triad sweep after every
// kernel call, so that both see the same load from other processes.
//
// Bytes counted per call: 12 per stored entry (value and column; 20 when complex), 4 per row
// pointer, the vector x read and y written (8 or 16 bytes per row each). The triad
// a = b + s c counts 24 bytes per element.
//
// The 2-norm of a vector as long as the triad's arrays (64 MiB, or 1.8 MiB in the cache) is
// measured too, the library's against OpenBLAS's dnrm2 (8 bytes per double read).
#include <benchmark/benchmark.h>
#include <cblas.h>
#include <omp.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "bench/common/triad.h"
#include "lin/lin.h"

namespace {

// Grid sizes: 1100^2 rows and about 6.05 million entries (about 100 MB with the vectors, 160 MB
// complex); 250^2 rows and about 311 thousand entries (about 5 MB, 8 MB complex, within the
// last-level cache). Grids that are not powers of two keep the neighbour rows from lying a
// multiple of 4 KiB apart, which would add false store-to-load dependencies to the transposed
// product.
constexpr int LARGE_GRID = 1100;
constexpr int SMALL_GRID = 250;
// Triad lengths for the two size classes: 3 x 64 MiB, and 3 x 1.8 MiB.
constexpr long LARGE_TRIAD = 8L << 20;
constexpr long SMALL_TRIAD = 232L << 10;

// The 5-point upwind convection-diffusion operator on an n x n grid; which: 0 all, 1 the lower
// triangle with the diagonal, 2 the upper triangle with the diagonal.
ComLinMat* convectionDiffusion(int grid, int dataType, int which)
{
    const int n = grid * grid;
    const double h = 1.0 / (grid + 1), bx = 20.0, by = -10.0;
    std::vector<int> ptr(n + 1), col;
    std::vector<double> re, im;
    col.reserve(5L * n);
    for (int i = 0; i < n; ++i) {
        const int gx = i % grid, gy = i / grid;
        ptr[i] = static_cast<int>(col.size()) + 1;
        const int nb[5] = {gy > 0 ? i - grid : -1, gx > 0 ? i - 1 : -1, i,
                           gx < grid - 1 ? i + 1 : -1, gy < grid - 1 ? i + grid : -1};
        const double v[5] = {-1.0 - by * h, -1.0 - bx * h, 4.0 + (bx - by) * h, -1.0, -1.0};
        for (int k = 0; k < 5; ++k) {
            if (nb[k] < 0)
                continue;
            if ((which == 1 && nb[k] > i) || (which == 2 && nb[k] < i))
                continue;
            col.push_back(nb[k] + 1);
            re.push_back(v[k]);
            im.push_back(k == 2 ? 0.3 : 0.05 * (k + 1));
        }
    }
    ptr[n] = static_cast<int>(col.size()) + 1;
    const int nnz = static_cast<int>(col.size());
    ComLinMat* a = comLinMatCreate(nullptr, MAT_CSR, dataType, n, nnz);
    if (a == nullptr)
        return nullptr;
    for (int i = 0; i <= n; ++i)
        a->row[i] = ptr[i];
    for (int p = 0; p < nnz; ++p) {
        a->col[p] = col[p];
        if (dataType == LIN_REAL) {
            a->realData[p] = re[p];
        } else {
            a->compData[2 * p] = re[p];
            a->compData[2 * p + 1] = im[p];
        }
    }
    return a;
}

// Matrices made once per (grid, data type, part) and kept for the whole run.
ComLinMat* matrix(int grid, int dataType, int which)
{
    static std::map<int, ComLinMat*> cache;
    const int key = (grid * 2 + dataType) * 3 + which;
    auto it = cache.find(key);
    if (it != cache.end())
        return it->second;
    return cache[key] = convectionDiffusion(grid, dataType, which);
}

double kernelBytes(const ComLinMat* a)
{
    const double value = a->dataType == LIN_REAL ? 8.0 : 16.0;
    return (value + 4.0) * a->dataNum + 4.0 * (a->size + 1) + 2.0 * value * a->size;
}

// Triad arrays of one size class, made once.
bench::Triad& triad(long n)
{
    static std::map<long, bench::Triad*> cache;
    auto it = cache.find(n);
    if (it != cache.end())
        return *it->second;
    return *(cache[n] = new bench::Triad(n));
}

struct Result {
    double bandwidth;
    double triad;
    long triadKey; // size class and thread count, for the best triad of the whole run
};

// Best triad of the whole run per size class and thread count.
std::map<long, double>& bestTriads()
{
    static std::map<long, double> r;
    return r;
}
std::map<std::string, Result>& results()
{
    static std::map<std::string, Result> r;
    return r;
}

// SOLVE_PAIR: two one-thread lower solves at once, each thread on its own copy of the triangle
// and its own vectors. No dependency joins them, so their combined rate against the one-thread
// solve is the most that two threads can gain on a solve on this machine.
// NORM, BLAS_NORM: the library's 2-norm and OpenBLAS's dnrm2 (dznrm2) on one vector.
enum Kernel { PRODUCT, TRANSPOSED, LOWER_SOLVE, UPPER_SOLVE, SOLVE_PAIR, NORM, BLAS_NORM };

const char* const KERNEL_NAMES[] = {"product",        "transposed", "lowerSolve", "upperSolve",
                                    "twoLowerSolves", "norm",       "blasNorm"};

// Notes a kernel's best call of a run against the best triad interleaved with its calls.
void report(benchmark::State& state, Kernel kernel, int grid, int dataType, int threads,
            double bytes, double best, double bestTriad, const bench::Triad& tr)
{
    const double triadBw = tr.bytes() / bestTriad;
    const double bw = bytes / best;
    state.counters["GB/s"] = bw / 1e9;
    state.counters["triadGB/s"] = triadBw / 1e9;
    state.counters["ratio"] = bw / triadBw;
    const std::string label =
        std::string(KERNEL_NAMES[kernel]) + (dataType == LIN_REAL ? " real" : " complex") +
        (grid == LARGE_GRID ? " large" : " cached") + " t" + std::to_string(threads);
    const long key = (grid == LARGE_GRID ? 10 : 20) + threads;
    results()[label] = {bw, triadBw, key};
    bestTriads()[key] = std::max(bestTriads()[key], triadBw);
}

// args: kernel (NORM or BLAS_NORM), size class (a grid size), data type, threads.
void runNorm(benchmark::State& state)
{
    const auto kernel = static_cast<Kernel>(state.range(0));
    const int grid = static_cast<int>(state.range(1));
    const int dataType = static_cast<int>(state.range(2));
    const int threads = static_cast<int>(state.range(3));
    const long doubles = grid == LARGE_GRID ? LARGE_TRIAD : SMALL_TRIAD;
    bench::Triad& tr = triad(doubles);
    const int n = static_cast<int>(dataType == LIN_REAL ? doubles : doubles / 2);
    ComLinVec* x = comLinVecCreateInit(nullptr, dataType, n, {1.0, 0.5});
    const double* v = dataType == LIN_REAL ? x->realData : x->compData;
    omp_set_num_threads(threads);
    double best = 1e30, bestTriad = 1e30;
    for (auto _ : state) {
        const double t0 = omp_get_wtime();
        double norm;
        if (kernel == NORM) {
            norm = comLinVecCalcNorm2(nullptr, x);
        } else {
            norm = dataType == LIN_REAL ? cblas_dnrm2(n, v, 1) : cblas_dznrm2(n, v, 1);
        }
        const double dt = omp_get_wtime() - t0;
        benchmark::DoNotOptimize(norm);
        state.SetIterationTime(dt);
        best = std::min(best, dt);
        bestTriad = std::min(bestTriad, tr.sweep());
    }
    report(state, kernel, grid, dataType, threads, 8.0 * doubles, best, bestTriad, tr);
    comLinVecDelete(nullptr, x);
}

// args: kernel, grid, data type, threads.
void runKernel(benchmark::State& state)
{
    const auto kernel = static_cast<Kernel>(state.range(0));
    const int grid = static_cast<int>(state.range(1));
    const int dataType = static_cast<int>(state.range(2));
    const int threads = static_cast<int>(state.range(3));
    const int which = kernel == LOWER_SOLVE || kernel == SOLVE_PAIR ? 1
                      : kernel == UPPER_SOLVE                       ? 2
                                                                    : 0;
    const ComLinMat* a = matrix(grid, dataType, which);
    // The second solve of a pair: its own triangle and vectors.
    const bool pair = kernel == SOLVE_PAIR;
    ComLinMat* twin = pair ? convectionDiffusion(grid, dataType, 1) : nullptr;
    bench::Triad& tr = triad(grid == LARGE_GRID ? LARGE_TRIAD : SMALL_TRIAD);
    ComLinVec* x = comLinVecCreateInit(nullptr, dataType, a->size, {1.0, 0.5});
    ComLinVec* y = comLinVecCreateInit(nullptr, dataType, a->size, {0.0, 0.0});
    ComLinVec* x2 = pair ? comLinVecCreateInit(nullptr, dataType, a->size, {1.0, 0.5}) : nullptr;
    ComLinVec* y2 = pair ? comLinVecCreateInit(nullptr, dataType, a->size, {0.0, 0.0}) : nullptr;
    omp_set_num_threads(threads);
    // The solves run as the solvers run them: with a plan for the thread count (none for one).
    const bool solve = kernel == LOWER_SOLVE || kernel == UPPER_SOLVE;
    PlatformTrsvPlan* plan =
        solve ? comLinMatTriSolvPlan(nullptr, kernel == UPPER_SOLVE, a) : nullptr;
    double best = 1e30, bestTriad = 1e30;
    for (auto _ : state) {
        const double t0 = omp_get_wtime();
        switch (kernel) {
        case PRODUCT:
        case TRANSPOSED:
            comLinMatCalcVec(nullptr, {1.0, 0.0}, a, kernel == TRANSPOSED, x, {0.0, 0.0}, y);
            break;
        case LOWER_SOLVE:
        case UPPER_SOLVE:
            comLinMatTriSolvPlanned(nullptr, kernel == UPPER_SOLVE, a, plan, x, y);
            break;
        case SOLVE_PAIR:
#pragma omp parallel num_threads(2)
        {
            const bool first = omp_get_thread_num() == 0;
            comLinMatTriSolv(nullptr, 0, first ? a : twin, 0, first ? x : x2, first ? y : y2);
        } break;
        case NORM:
        case BLAS_NORM: // runNorm's
            break;
        }
        const double dt = omp_get_wtime() - t0;
        state.SetIterationTime(dt);
        best = std::min(best, dt);
        benchmark::DoNotOptimize(y->realData);
        benchmark::DoNotOptimize(y->compData);
        // The triad runs between the kernel calls, so that both see the same load.
        bestTriad = std::min(bestTriad, tr.sweep());
    }
    report(state, kernel, grid, dataType, threads, (pair ? 2.0 : 1.0) * kernelBytes(a), best,
           bestTriad, tr);
    comLinMatTriSolvPlanDelete(nullptr, plan);
    comLinVecDelete(nullptr, x);
    comLinVecDelete(nullptr, y);
    comLinVecDelete(nullptr, x2);
    comLinVecDelete(nullptr, y2);
    comLinMatDelete(nullptr, twin);
}

void registerAll()
{
    for (int grid : {LARGE_GRID, SMALL_GRID}) {
        for (int dt : {LIN_REAL, LIN_COMP}) {
            for (int k = PRODUCT; k <= UPPER_SOLVE; ++k) {
                for (int t : {1, 2}) {
                    benchmark::RegisterBenchmark(KERNEL_NAMES[k], runKernel)
                        ->Args({k, grid, dt, t})
                        ->UseManualTime()
                        ->MinTime(grid == LARGE_GRID ? 1.0 : 0.3);
                }
            }
            benchmark::RegisterBenchmark("twoLowerSolves", runKernel)
                ->Args({SOLVE_PAIR, grid, dt, 2})
                ->UseManualTime()
                ->MinTime(grid == LARGE_GRID ? 1.0 : 0.3);
            for (int k : {NORM, BLAS_NORM}) {
                for (int t : {1, 2}) {
                    benchmark::RegisterBenchmark(KERNEL_NAMES[k], runNorm)
                        ->Args({k, grid, dt, t})
                        ->UseManualTime()
                        ->MinTime(grid == LARGE_GRID ? 1.0 : 0.3);
                }
            }
        }
    }
}

} // namespace

int main(int argc, char** argv)
{
    registerAll();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    // ratio: against the triad interleaved with the kernel; best: against the best triad of the
    // whole run with the same thread count and size class.
    printf("\n%-32s %8s %8s %6s %8s %6s\n", "kernel", "GB/s", "triad", "ratio", "best", "ratio");
    for (const auto& [name, r] : results()) {
        const double best = bestTriads()[r.triadKey];
        printf("%-32s %8.2f %8.2f %6.2f %8.2f %6.2f\n", name.c_str(), r.bandwidth / 1e9,
               r.triad / 1e9, r.bandwidth / r.triad, best / 1e9, r.bandwidth / best);
    }
    return 0;
}
