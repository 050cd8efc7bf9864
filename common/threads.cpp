// The OpenMP thread count of the numerical kernels, set around a solve and restored after it.
#include "common/com.h"

#include <omp.h>

int comSetThreads(const KwilHandle* handle)
{
    const int previous = omp_get_max_threads();
    const int n = comOptInt(handle, OPT_THREADS);
    if (n > 0) {
        omp_set_num_threads(n);
    } else if (n == 0) {
        omp_set_num_threads(omp_get_num_procs());
    } else {
        comWarn(handle, "Invalid threads %d", n);
    }
    return previous;
}

void comResetThreads(const KwilHandle*, int previous)
{
    omp_set_num_threads(previous);
}
