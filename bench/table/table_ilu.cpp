// Times kwil's ILU factorisations of one Matrix Market file for the benchmark table.
//
//   table_ilu REPS A.mtx [METHOD ...]
//
// For ILU0 and for ILUFillIn with ILU_FILLINMIN 1e-3 and 1e-4 (METHODs ilu0, fill1e-3 and
// fill1e-4; all three when none is named): one untimed factorisation, then
// REPS timed ones. Prints one line per method with the stored factor entries (L and U, the
// diagonal counted once) and every time in thread CPU seconds, so that a process sharing the
// machine with other work is not charged for waiting. Freed memory stays in the process
// (glibc mallopt), as in the PETSc and Eigen drivers, so that the timed runs reuse mapped pages.
#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <malloc.h>

#include "precond/precond.h"
#include "precond_util.h"

using namespace prectest;

namespace {

using IluFn = int (*)(KwilHandle*, const ComLinMat*, ComLinMat**, ComLinMat**);

double cpuSeconds()
{
    timespec ts;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) + 1e-9 * static_cast<double>(ts.tv_nsec);
}

// One factorisation; its time, or a negative value when it fails. entries gets the fill.
double factorOnce(IluFn fn, KwilHandle* h, const ComLinMat& a, long* entries)
{
    ComLinMat* l = nullptr;
    ComLinMat* u = nullptr;
    const double t0 = cpuSeconds();
    const int ok = fn(h, &a, &l, &u);
    const double t = cpuSeconds() - t0;
    if (ok != 1)
        return -1.0;
    *entries = static_cast<long>(l->dataNum) + u->dataNum - a.size;
    comLinMatDelete(h, l);
    comLinMatDelete(h, u);
    return t;
}

void timeMethod(const char* name, IluFn fn, KwilHandle* h, const ComLinMat& a, int reps)
{
    long entries = 0;
    if (factorOnce(fn, h, a, &entries) < 0.0) {
        printf("kwil method=%s failed\n", name);
        return;
    }
    printf("kwil method=%s n=%d nnz=%d fill=%ld times=", name, a.size, a.dataNum, entries);
    for (int k = 0; k < reps; ++k)
        printf("%s%.6f", k ? "," : "", factorOnce(fn, h, a, &entries));
    printf("\n");
    fflush(stdout);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 3) {
        fprintf(stderr, "usage: table_ilu REPS A.mtx [ilu0|fill1e-3|fill1e-4 ...]\n");
        return 2;
    }
    const auto wanted = [&](const char* method) {
        if (argc == 3)
            return true;
        for (int k = 3; k < argc; ++k) {
            if (strcmp(argv[k], method) == 0)
                return true;
        }
        return false;
    };
    const int reps = std::max(1, atoi(argv[1]));
    mallopt(M_MMAP_MAX, 0); // every block from the heap, which is never trimmed
    mallopt(M_TRIM_THRESHOLD, INT_MAX);
    Mat a = readMatrixMarket(argv[2], true);
    if (a == nullptr) {
        fprintf(stderr, "table_ilu: cannot read %s\n", argv[2]);
        return 1;
    }
    TestHandle th;
    th.intOpt[OPT_TRACE] = 0;
    KwilHandle* h = th.get();
    th.intOpt[OPT_ILU_FILLIN] = 0;
    if (wanted("ilu0"))
        timeMethod("ilu0", ILU0, h, *a, reps);
    th.intOpt[OPT_ILU_FILLIN] = 1;
    th.dblOpt[OPT_ILU_FILLINMIN] = 1e-3;
    if (wanted("fill1e-3"))
        timeMethod("fill1e-3", ILUFillIn, h, *a, reps);
    th.dblOpt[OPT_ILU_FILLINMIN] = 1e-4;
    if (wanted("fill1e-4"))
        timeMethod("fill1e-4", ILUFillIn, h, *a, reps);
    return 0;
}
