// The sparse direct solve.
#pragma once

#include "lin/lin.h"

// Solves A x = b directly (A in CSR form, b and x of A's size and type). 1, or 0 after an
// error line; b is not changed.
int solvIMKL_PARDISO(KwilHandle* handle, const ComLinMat* a, const ComLinVec* b, ComLinVec* x);
// Writes the error text of a solver error code for the given phase.
void PARDISO_Err(KwilHandle* handle, int error, const char* phase);
