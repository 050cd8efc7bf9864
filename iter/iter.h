// Krylov solvers with ILU right preconditioning under one iteration control.
#pragma once

#include "lin/lin.h"

// Each solves A x = b (A in CSR form; b, x of A's size and type; x holds the start vector and
// receives the solution). Returns 1 on convergence or give-up, 0 on failure (logged).
int solvIterStab(KwilHandle* handle, const ComLinMat* a, const ComLinVec* b, ComLinVec* x);
// Real systems only.
int solvIterSafe(KwilHandle* handle, const ComLinMat* a, const ComLinVec* b, ComLinVec* x);
// Complex systems only.
int solvIterStabL(KwilHandle* handle, const ComLinMat* a, const ComLinVec* b, ComLinVec* x);

// Give-up monitor: 1 when the residual, at or below level, fell by less than reduct since the
// previous armed test; arms, disarms and remembers the norm otherwise.
int giveupCheck(KwilHandle* handle, double level, double norm, int* armed, double* prevNorm,
                double reduct, const char* name, int step);
