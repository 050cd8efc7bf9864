// Our stand-ins for the vendor's sparse BLAS: CSR product and triangular solve, one-based CSR.
// Same argument lists and meaning as the vendor routines; only what the library passes is
// supported, anything else ends the process with a "KWILASR: " line: operation "n" or "t",
// descriptor "g??f??", a square matrix, row end array = row start array + 1, diag "n".
// Columns are ascending within each row, as in the library's CSR form; the solves rely on it.
// The product uses the OpenMP thread count; nothing here allocates.
#pragma once

extern "C" {

// A complex value as the vendor routines take it: real part first.
struct PlatformComplex16 {
    double real;
    double imag;
};

// y := alpha op(A) x + beta y. transa "n" or "t" (plain transpose); matdescra "g??f??" (general,
// one-based); A in three-array CSR: val, indx (columns), pntrb/pntre (row start/end), one-based.
// With beta zero, y is written without being read.
void mkl_dcsrmv(const char* transa, const int* m, const int* k, const double* alpha,
                const char* matdescra, const double* val, const int* indx, const int* pntrb,
                const int* pntre, const double* x, const double* beta, double* y);
void mkl_zcsrmv(const char* transa, const int* m, const int* k, const PlatformComplex16* alpha,
                const char* matdescra, const PlatformComplex16* val, const int* indx,
                const int* pntrb, const int* pntre, const PlatformComplex16* x,
                const PlatformComplex16* beta, PlatformComplex16* y);

// Solves op(T) y = x, T the "l" or "u" triangle of A (one-based CSR a, ia (m+1 pointers), ja),
// diag "n": the stored diagonal is used. transa "n" or "t" (plain transpose). Only the entries
// of the triangle are read. x may be the same array as y. One thread.
void mkl_dcsrtrsv(const char* uplo, const char* transa, const char* diag, const int* m,
                  const double* a, const int* ia, const int* ja, const double* x, double* y);
void mkl_zcsrtrsv(const char* uplo, const char* transa, const char* diag, const int* m,
                  const PlatformComplex16* a, const int* ia, const int* ja,
                  const PlatformComplex16* x, PlatformComplex16* y);

// Inspector-executor triangular solve (op "n", diag "n") for repeated solves with one triangle,
// on one or several threads. The inspector cuts the triangle into chunks of consecutive rows that
// the threads take in turn; each thread solves its chunks in row order and waits, row by row,
// only for the rows of other threads that the row reads. Every row is computed exactly as by
// mkl_dcsrtrsv / mkl_zcsrtrsv, so the results are the same bits. The plan holds no values unless
// it is packed: the executor takes them at each call. The plan uses the OpenMP runtime's threads
// and allocates with malloc.
struct PlatformTrsvPlan;
// Analyses the "l" or "u" triangle of the one-based CSR pattern (m, ia, ja) for nthreads threads
// (0: the OpenMP thread count, at most the number of processors). The plan is one of one thread
// when one thread is asked for, when the triangle offers too little parallelism to gain from
// more, or when memory is short for the threads' schedule. Null only when memory is short for
// the plan itself: the caller then solves with the sparse BLAS.
PlatformTrsvPlan* platform_csrtrsv_plan(const char* uplo, int m, const int* ia, const int* ja,
                                        int nthreads);
void platform_csrtrsv_plan_free(PlatformTrsvPlan* plan);
// Threads the plan was made for.
int platform_csrtrsv_plan_threads(const PlatformTrsvPlan* plan);
// Solves T y = x with the values a of the pattern the plan was made for. x may be y. The plan
// times a threaded and a one-thread solve now and then and takes the faster (same bits either
// way), so it is changed by the call: one solve at a time per plan.
void platform_dcsrtrsv_planned(PlatformTrsvPlan* plan, const double* a, const int* ia,
                               const int* ja, const double* x, double* y);
void platform_zcsrtrsv_planned(PlatformTrsvPlan* plan, const PlatformComplex16* a, const int* ia,
                               const int* ja, const PlatformComplex16* x, PlatformComplex16* y);

// Gives the plan the values a of the triangle (pattern ia, ja, the one the plan was made for):
// the reciprocal of every row's pivot, which the planned solves multiply by instead of dividing
// each row (the same bits, since the substitutions multiply by that reciprocal anyway), where
// each row's terms lie (found once instead of by comparing columns in every solve), and with
// several threads each thread's rows as a contiguous copy of its own, laid out in the order a
// row takes its terms, so that each thread streams its own storage instead of interleaved
// stretches of the matrix and compares no columns. Where three rows in four lie in runs of rows
// that hold only their pivot, it also notes the runs, which a one-thread solve then takes as one
// vector product each. The planned solves then read these and not the values they are given,
// so the triangle must not change while the plan lives. Returns 0 when memory is short; the
// plan then reads the values of each call as before (memory short for the runs alone only
// leaves them out).
int platform_dcsrtrsv_plan_pack(PlatformTrsvPlan* plan, const double* a, const int* ia,
                                const int* ja);
int platform_zcsrtrsv_plan_pack(PlatformTrsvPlan* plan, const PlatformComplex16* a, const int* ia,
                                const int* ja);

// Test hook: with a non-zero argument, plans are made for any triangle with enough rows, however
// little the threads would gain, so that every pattern can drive the waits; 0 restores the rule.
void platformTestForcePlans(int on);
// Test hook: the n-th allocation of the planning code from now on (plans and their copies) fails;
// 0 lets every allocation succeed.
void platformTestFailPlanAlloc(int n);
}
