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
}
