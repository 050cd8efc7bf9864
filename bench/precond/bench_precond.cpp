// Times ILU0 and ILUFillIn (two thresholds) on generated convection-diffusion matrices and on
// Matrix Market files, with fill counts and the cost of one application of the factors.
//
//   bench_precond [--ref] [--warm] [--reps N] [--grid M]... [file.mtx ...]
//
// --warm keeps freed memory in the process (glibc mallopt), so that repeated factorisations
// reuse mapped pages, as a long-running allocator-friendly host would; without it every
// repetition pays the first-touch page faults of its new arrays.
//
// Without files and grids it runs the 500^2 and 1000^2 convection-diffusion matrices.
//
// --ref also times the linked-list reference of the fill-in factorisation (slow on wide rows).
#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <ctime>

#include <malloc.h>
#include <string>
#include <vector>

#include "precond/precond.h"
#include "precond_util.h"

using namespace prectest;

namespace {

using IluFn = int (*)(KwilHandle*, const ComLinMat*, ComLinMat**, ComLinMat**);

// CPU time of the calling thread: the machine may be shared, so wall time is not used.
double cpuSeconds()
{
    timespec ts;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return ts.tv_sec + 1e-9 * ts.tv_nsec;
}

struct Run {
    double seconds = 0.0; // best of the repetitions
    long entries = 0;     // stored entries of L and U together (the diagonal counted once)
    long updates = 0;     // inner-loop steps of the elimination
    bool ok = false;
};

Run timeFactor(IluFn fn, KwilHandle* h, const ComLinMat& a, int reps)
{
    Run r;
    r.seconds = 1e300;
    for (int k = 0; k < reps; ++k) {
        ComLinMat* l = nullptr;
        ComLinMat* u = nullptr;
        const double t0 = cpuSeconds();
        const int ok = fn(h, &a, &l, &u);
        const double t = cpuSeconds() - t0;
        r.ok = ok == 1;
        if (!r.ok)
            return r;
        r.seconds = std::min(r.seconds, t);
        r.entries = static_cast<long>(l->dataNum) + u->dataNum - a.size;
        // Row i meets, for each strictly lower (i, k) of the final pattern, every strictly
        // upper entry of row k: both factorisations walk exactly these pairs.
        r.updates = 0;
        for (int i = 0; i < a.size; ++i) {
            for (int p = l->row[i] - 1; p < l->row[i + 1] - 1; ++p) {
                const int c = l->col[p] - 1;
                if (c < i)
                    r.updates += u->row[c + 1] - u->row[c] - 1;
            }
        }
        comLinMatDelete(h, l);
        comLinMatDelete(h, u);
    }
    return r;
}

// Best time of the two triangular solves L t = r, U z = t with factors built once.
double timeApply(KwilHandle* h, const ComLinMat& a, int reps)
{
    ComLinMat* l = nullptr;
    ComLinMat* u = nullptr;
    if (comToolILU(h, &a, &l, &u) == 0)
        return -1.0;
    ComLinVec* r = comLinVecCreateInit(h, a.dataType, a.size, ComComplex{1.0, 0.0});
    ComLinVec* t = comLinVecCreate(h, a.dataType, a.size);
    ComLinVec* z = comLinVecCreate(h, a.dataType, a.size);
    // Planned as the solvers plan them; the first solves of a plan time its ways of solving, and
    // stay out of the timing.
    constexpr int untimed = 20;
    PlatformTrsvPlan* lPlan = comLinMatTriSolvPlan(h, 0, l);
    PlatformTrsvPlan* uPlan = comLinMatTriSolvPlan(h, 1, u);
    double best = 1e300;
    for (int k = 0; k < untimed + std::max(reps, 5); ++k) {
        const double t0 = cpuSeconds();
        comLinMatTriSolvPlanned(h, 0, l, lPlan, r, t);
        comLinMatTriSolvPlanned(h, 1, u, uPlan, t, z);
        if (k >= untimed)
            best = std::min(best, cpuSeconds() - t0);
    }
    comLinMatTriSolvPlanDelete(h, lPlan);
    comLinMatTriSolvPlanDelete(h, uPlan);
    comLinVecsDelete(h, r, t, z, nullptr);
    comLinMatDelete(h, l);
    comLinMatDelete(h, u);
    return best;
}

// Best time of comToolILUSolv: factorisation plus one application.
double timeIluSolv(KwilHandle* h, const ComLinMat& a, int reps)
{
    ComLinVec* r = comLinVecCreateInit(h, a.dataType, a.size, ComComplex{1.0, 0.0});
    ComLinVec* z = comLinVecCreate(h, a.dataType, a.size);
    double best = 1e300;
    for (int k = 0; k < reps; ++k) {
        const double t0 = cpuSeconds();
        if (comToolILUSolv(h, &a, r, z) == 0)
            best = -1.0;
        best = std::min(best, cpuSeconds() - t0);
    }
    comLinVecsDelete(h, r, z, nullptr, nullptr);
    return best;
}

void bench(const std::string& name, const ComLinMat& a, int reps, bool withRef)
{
    TestHandle th;
    th.intOpt[OPT_TRACE] = 0;
    KwilHandle* h = th.get();
    const Run r0 = timeFactor(ILU0, h, a, reps);
    if (!r0.ok) {
        printf("| %s | %d | %d | ILU0 failed |\n", name.c_str(), a.size, a.dataNum);
        return;
    }
    const double nsPer0 = 1e9 * r0.seconds / r0.entries;
    th.intOpt[OPT_ILU_FILLIN] = 0;
    const double apply0 = timeApply(h, a, reps);
    const double solv0 = timeIluSolv(h, a, reps);
    printf("| %s | %d | %d | ILU0 | %ld | %.3f | %.2f | 1.00 | %ld | %.2f | %.3f | %.2f |\n",
           name.c_str(), a.size, a.dataNum, r0.entries, 1e3 * r0.seconds, nsPer0, r0.updates,
           1e9 * r0.seconds / std::max(1L, r0.updates), 1e3 * apply0, 1e3 * solv0);
    for (double t : {1e-3, 1e-4}) {
        th.intOpt[OPT_ILU_FILLIN] = 1;
        th.dblOpt[OPT_ILU_FILLINMIN] = t;
        const Run rf = timeFactor(ILUFillIn, h, a, reps);
        if (!rf.ok) {
            printf("| %s | | | fill %.0e failed |\n", name.c_str(), t);
            continue;
        }
        const double nsPer = 1e9 * rf.seconds / rf.entries;
        const double apply = timeApply(h, a, reps);
        const double solv = timeIluSolv(h, a, reps);
        printf("| | | | fill %.0e | %ld | %.2f | %.2f | %.2f | %ld | %.2f | %.3f | %.2f |\n", t,
               rf.entries, 1e3 * rf.seconds, nsPer, nsPer / nsPer0, rf.updates,
               1e9 * rf.seconds / std::max(1L, rf.updates), 1e3 * apply, 1e3 * solv);
        if (withRef) {
            const Run rr = timeFactor(refILUFillIn, h, a, 1);
            printf("| | | | reference %.0e | %ld | %.2f | %.2f | %.2f | %ld | %.2f | | |\n", t,
                   rr.entries, 1e3 * rr.seconds, 1e9 * rr.seconds / rr.entries,
                   (1e9 * rr.seconds / rr.entries) / nsPer0, rr.updates,
                   1e9 * rr.seconds / std::max(1L, rr.updates));
        }
    }
    fflush(stdout);
}

} // namespace

int main(int argc, char** argv)
{
    int reps = 3;
    bool withRef = false;
    std::vector<std::string> files;
    std::vector<int> grids;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--ref") == 0) {
            withRef = true;
        } else if (std::strcmp(argv[i], "--warm") == 0) {
            mallopt(M_MMAP_MAX, 0); // every block from the heap, which is never trimmed
            mallopt(M_TRIM_THRESHOLD, INT_MAX);
        } else if (std::strcmp(argv[i], "--grid") == 0 && i + 1 < argc) {
            grids.push_back(std::atoi(argv[++i]));
        } else if (std::strcmp(argv[i], "--reps") == 0 && i + 1 < argc) {
            reps = std::max(1, std::atoi(argv[++i]));
        } else {
            files.push_back(argv[i]);
        }
    }
    printf("| matrix | n | nnz | method | L+U entries | factor ms | ns/entry | ratio to ILU0 | "
           "updates | ns/update | apply ms | ILUSolv ms |\n");
    printf("|---|---|---|---|---|---|---|---|---|---|---|---|\n");
    if (files.empty() && grids.empty())
        grids = {500, 1000};
    {
        for (int m : grids) {
            Mat a = convDiff2d(m, 100.0);
            bench("convdiff " + std::to_string(m) + "^2", *a, reps, withRef && m <= 500);
        }
    }
    for (const std::string& f : files) {
        Mat a = readMatrixMarket(f, true);
        if (a == nullptr) {
            fprintf(stderr, "cannot read %s\n", f.c_str());
            continue;
        }
        std::string name = f.substr(f.find_last_of('/') + 1);
        bench(name, *a, reps, withRef);
    }
    return 0;
}
