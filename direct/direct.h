// The direct solve: the sparse LU phases of pardiso_ driven from the handle's options.
#pragma once

#include "common/com.h"
#include "lin/lin.h"

// Solves mat x = vecFix directly: analysis, numerical LU factorisation, solve with iterative
// refinement and release, through pardiso_ (mtype 11 for real, 13 for complex data).
// mat: square, CSR form; vecFix, vecVar: mat's size and data type. The solution is written
// into vecVar's values; mat and vecFix are not changed.
// Options: PARDISO_ITER (refinement steps), PARDISO_PIVOT (perturbation exponent),
// PARDISO_STAT (the solver's own message level), PARDISO_MEM_LIM (limit in KB on the memory
// figure of the analysis, 0 or below: none), PARDISO_TRACE (end-of-phase trace lines).
// Returns 1; or 0 after the error lines of PARDISO_Err, or after the memory-limit line, with
// vecVar holding whatever the failed phase left in it. Every started run ends with the release
// phase.
int solvIMKL_PARDISO(KwilHandle* handle, ComLinMat* mat, ComLinVec* vecFix, ComLinVec* vecVar);

// Writes "PARDISO error in <phase> code <error>" and "PARDISO error: <text of the code>"
// ("unknown" for codes outside -11..0). Returns 0.
int PARDISO_Err(KwilHandle* handle, const char* phase, int error);
