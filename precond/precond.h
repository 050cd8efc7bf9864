// Preprocessing of the system and the ILU preconditioners.
#pragma once

#include "lin/lin.h"

// Removes vanishing entries from a coordinate-form matrix (form 0 or 1) in place, keeping the
// order of the rest; *zeroDiag := number of rows left without a diagonal entry.
void comToolMatClearZero(KwilHandle* handle, ComLinMat* a, int* zeroDiag);
// Traces a statistical portrait of the system (A in form 1 or 2). Changes nothing.
void comToolAnaly(KwilHandle* handle, const ComLinMat* a, const ComLinVec* b, const char* name,
                  int zeroDiagBefore);
// Lowers *min and raises *max to count where count goes beyond them.
void analyRowDataNum(KwilHandle* handle, int count, int* min, int* max);
// r = A x - b (A in CSR form): *relNorm = |r| / |b|, *absNorm = |r|; writes r to fileName when
// it is not null. Returns 1, or 0 after an error line.
int comToolCheckResult(KwilHandle* handle, const ComLinMat* a, const ComLinVec* b,
                       const ComLinVec* x, double* relNorm, double* absNorm, const char* fileName);

// Inserts (i, i) = REV_DIAGZERO_VAL into every row of A (form 0) that lacks a diagonal entry.
// Returns the diagonal as it was (zero where missing), owned by the caller; null on failure.
ComLinVec* comToolRevDiagZero(KwilHandle* handle, ComLinMat* a);
// Writes the saved diagonal d back into A's diagonal entries (any form) and deletes d.
void comToolResetRevDiagZero(KwilHandle* handle, ComLinMat* a, ComLinVec* d);

// Builds the scaled system As = S A S, bs = S b with S = diag(1 / sqrt(a_ii)) for a real CSR A.
// Returns 1 with *as, *bs, *s owned by the caller, or 0 (refused or failed, logged).
int comToolSetDiagScale(KwilHandle* handle, const ComLinMat* a, ComLinMat** as, const ComLinVec* b,
                        ComLinVec** bs, ComLinVec** s);
// x := S x, then deletes as, bs and s.
void comToolResetDiagScale(KwilHandle* handle, ComLinMat* as, ComLinVec* bs, ComLinVec* s,
                           ComLinVec* x);

// Incomplete LU of a CSR matrix, ILU(0) or with fill-in by ILU_FILLIN: *l lower factor with the
// pivots on its diagonal, *u unit upper factor with its ones stored, both CSR, owned by the
// caller. Returns 1, or 0 after an error line.
int comToolILU(KwilHandle* handle, const ComLinMat* a, ComLinMat** l, ComLinMat** u);
// ILU with the pattern of A.
int ILU0(KwilHandle* handle, const ComLinMat* a, ComLinMat** l, ComLinMat** u);
// ILU with fill-in above ILU_FILLINMIN times the largest entry magnitude of A.
int ILUFillIn(KwilHandle* handle, const ComLinMat* a, ComLinMat** l, ComLinMat** u);

// Column node of a row list of the fill-in factorisation: rows hold their nodes in strictly
// ascending column order.
struct ILUFillInColData {
    int col;                // one-based column
    double re;              // real part
    double im;              // imaginary part, 0 for real data
    ILUFillInColData* next; // node of the next larger column of the row, or null
};
// Frees every node of the n row lists (each node a comAlloc block) and then rowHead itself.
void ILUFillInFreeColData(KwilHandle* handle, ILUFillInColData** rowHead, int n);
// Diagnostic: when tracing is on writes "KWILTRC: " + the formatted text + " row %d col", a line
// break, " %d" for the column of every node from node on, and a final line break.
void ILUFillInTraceColData(KwilHandle* handle, const ILUFillInColData* node, int row,
                           const char* format, ...) KWIL_PRINTF(4, 5);

// z := U^-1 L^-1 r with the ILU factors of A built for this call. Returns 1, or 0 on failure.
int comToolILUSolv(KwilHandle* handle, const ComLinMat* a, const ComLinVec* r, ComLinVec* z);
