// Our stand-in for the vendor's sparse direct solver entry point, with its sixteen parameters.
#pragma once

extern "C" {

// Phases 11 (analysis), 22 (numerical factorisation), 33 (solve and refinement), -1 (release).
// pt: 64 opaque slots carrying the solver state between phases. a/b/x: double values, or
// complex values as two doubles each (mtype 13). ia/ja: one-based CSR. error: 0 on success.
void pardiso_(void* pt, const int* maxfct, const int* mnum, const int* mtype, const int* phase,
              const int* n, const void* a, const int* ia, const int* ja, int* perm, const int* nrhs,
              int* iparm, const int* msglvl, void* b, void* x, int* error);
}

// The error code that pardiso_ reports for a UMFPACK status (UMFPACK_OK gives 0).
int pardisoErrorOfUmfpack(int status);
