// Krylov solvers with ILU right preconditioning under one iteration control.
#pragma once

#include "lin/lin.h"

// Each solves A x = b. a: CSR form; b, x: A's size and data type; x holds the start vector
// (zero from the solve driver) and receives the solution in place. A and b are not changed.
// The options ITER_* (and SAFE_*, STABL_L) are read once at entry; ITER_PREILU builds the ILU
// factors once and applies M = L U from the right. Returns 1 on convergence
// (||r|| <= ITER_RESOLVE ||r0||) or give-up, 0 on failure with its line written: an invalid
// option or data type, a failed allocation or ILU (x unchanged), the step limit or a NaN or
// infinite residual norm (x holds the last iterate), a BiCGStab(l) breakdown.

// BiCGStab, real or complex (conjugated inner products). Name in messages: "stab".
int solvIterStab(KwilHandle* handle, const ComLinMat* a, const ComLinVec* b, ComLinVec* x);
// The safe solver (BiCGSafe type; BiCR coefficients by SAFE_CR, y = A z every step by
// SAFE_CORRECT_Y), real systems only. Name in messages: "safe".
int solvIterSafe(KwilHandle* handle, const ComLinMat* a, const ComLinVec* b, ComLinVec* x);
// BiCGStab(l), l = STABL_L >= 1, complex systems only, unconjugated bilinear form; counts in
// cycles of l steps. With preconditioning x holds y of A M^-1 y = b during the cycles and is
// mapped back to M^-1 y only on success. Name in messages: "stab-l".
int solvIterStabL(KwilHandle* handle, const ComLinMat* a, const ComLinVec* b, ComLinVec* x);

// Give-up monitor: above level it disarms (returns 0). At or below level, when armed and
// norm > prevNorm * reduct it writes the two give-up lines and returns 1, state unchanged;
// otherwise it arms and remembers norm in *prevNorm (returns 0).
int giveupCheck(KwilHandle* handle, double level, double norm, int* armed, double* prevNorm,
                double reduct, const char* name, int step);
