// UMFPACK called directly, phase by phase, on a one-based CSR matrix of the direct tests: the
// baseline the direct-solve benchmarks hold kwil's direct solver against.
#pragma once

#include <umfpack.h>

#include <chrono>
#include <type_traits>
#include <vector>

#include "direct/direct_support.h"

namespace benchumf {

// Seconds of each phase, the peak memory UMFPACK reported and its estimate (MB), and x.
template <class S> struct Timed {
    bool ok = false;
    double analyse = 0.0, factor = 0.0, solve = 0.0, total = 0.0;
    double memoryMb = 0.0, estimateMb = 0.0;
    std::vector<S> x;
};

inline double now()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

// Solves A x = b with the controls the library's direct layer sets: METIS ordering (AMD when
// metis is false), sum scaling, two refinement steps. The CSR arrays are read as the CSC arrays
// of A^T, so the solve is the transposed one.
template <class S>
Timed<S> solve(const directtest::Csr<S>& m, const std::vector<S>& b, bool metis = true)
{
    const bool cplx = std::is_same<S, directtest::Cplx>::value;
    std::vector<int> ap(m.ia), ai(m.ja);
    for (int& v : ap)
        --v;
    for (int& v : ai)
        --v;
    const double* ax = reinterpret_cast<const double*>(m.a.data());
    Timed<S> r;
    r.x.resize(m.n);
    double control[UMFPACK_CONTROL], info[UMFPACK_INFO];
    umfpack_di_defaults(control);
    if (metis)
        control[UMFPACK_ORDERING] = UMFPACK_ORDERING_METIS;
    control[UMFPACK_SCALE] = UMFPACK_SCALE_SUM;
    control[UMFPACK_IRSTEP] = 2;
    void *sym = nullptr, *num = nullptr;
    const double t0 = now();
    int st =
        cplx ? umfpack_zi_symbolic(m.n, m.n, ap.data(), ai.data(), ax, nullptr, &sym, control, info)
             : umfpack_di_symbolic(m.n, m.n, ap.data(), ai.data(), ax, &sym, control, info);
    const double t1 = now();
    if (st == UMFPACK_OK) {
        st = cplx ? umfpack_zi_numeric(ap.data(), ai.data(), ax, nullptr, sym, &num, control, info)
                  : umfpack_di_numeric(ap.data(), ai.data(), ax, sym, &num, control, info);
    }
    const double t2 = now();
    double* xp = reinterpret_cast<double*>(r.x.data());
    const double* bp = reinterpret_cast<const double*>(b.data());
    if (st == UMFPACK_OK) {
        st = cplx ? umfpack_zi_solve(UMFPACK_Aat, ap.data(), ai.data(), ax, nullptr, xp, nullptr,
                                     bp, nullptr, num, control, info)
                  : umfpack_di_solve(UMFPACK_At, ap.data(), ai.data(), ax, xp, bp, num, control,
                                     info);
    }
    const double t3 = now();
    const double mb = info[UMFPACK_SIZE_OF_UNIT] / (1024.0 * 1024.0);
    r.memoryMb = info[UMFPACK_PEAK_MEMORY] * mb;
    r.estimateMb = info[UMFPACK_PEAK_MEMORY_ESTIMATE] * mb;
    if (cplx) {
        umfpack_zi_free_numeric(&num);
        umfpack_zi_free_symbolic(&sym);
    } else {
        umfpack_di_free_numeric(&num);
        umfpack_di_free_symbolic(&sym);
    }
    const double t4 = now();
    r.ok = st == UMFPACK_OK;
    r.analyse = t1 - t0;
    r.factor = t2 - t1;
    r.solve = t3 - t2;
    r.total = t4 - t0;
    return r;
}

} // namespace benchumf
