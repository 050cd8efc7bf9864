// Sparse matrix and dense vector objects, their storage forms, arithmetic and kernels.
#pragma once

#include "common/com.h"

// A complex scalar passed by value: real part first. Real code paths use re only.
struct ComComplex {
    double re;
    double im;
};

// Storage forms of ComLinMat::type.
enum ComLinMatForm { MAT_COO = 0, MAT_SORTED = 1, MAT_CSR = 2 };
// Data types of ComLinMat::dataType and ComLinVec::dataType.
enum ComLinDataType { LIN_REAL = 0, LIN_COMP = 1 };

// Square sparse matrix, 1-based rows and columns.
// Form 0/1: row[] holds dataNum row indices; form 2: size+1 one-based row pointers.
// Complex values are two doubles, real part first. Only one of realData/compData is set.
struct ComLinMat {
    int type;
    int size;
    int dataNum;
    int* row;
    int* col;
    int dataType;
    double* realData;
    double* compData;
};

// Dense vector, 0-based positions. Only one of realData/compData (2*size doubles) is set.
struct ComLinVec {
    int size;
    int dataType;
    double* realData;
    double* compData;
};

// ---- Matrix object ---------------------------------------------------------------------------

// New matrix in the given form with uninitialised arrays; null after an error line.
ComLinMat* comLinMatCreate(KwilHandle* handle, int type, int dataType, int size, int dataNum);
// Allocates the n values of a matrix or vector of the data type, real into *real or complex
// (2n doubles) into *comp; false after the create functions' error line.
bool linAllocValues(KwilHandle* handle, int dataType, long n, double** real, double** comp);
// Frees the arrays and the record; null is allowed.
void comLinMatDelete(KwilHandle* handle, ComLinMat* mat);
// Length of the row array in the given form: size+1 for CSR, dataNum otherwise.
int matRowDataNum(const KwilHandle* handle, const ComLinMat* mat, int type);
// Converts mat in place to form type (0, 1, 2). Returns 1, or 0 with the last form reached.
int comLinMatChangeType(KwilHandle* handle, ComLinMat* mat, int type);
// Form 0 -> form 1: sorts by row then column; fails on duplicate entries (left in form 1).
int matSort(KwilHandle* handle, ComLinMat* mat);
// Form 1 -> form 2.
int matChangeCSR(KwilHandle* handle, ComLinMat* mat);
// The two halves of form 1 -> form 2 for a caller that knows where each row starts: the row
// pointer array (size + 1 entries), or null after the conversion's error line; then the switch
// to it, which frees the row indices.
int* matAllocCSRPtr(KwilHandle* handle, const ComLinMat* mat);
void matInstallCSRPtr(KwilHandle* handle, ComLinMat* mat, int* ptr);
// Form 2 -> form type (0 or 1).
int matRestoreCSR(KwilHandle* handle, ComLinMat* mat, int type);
// Exchanges the whole contents of the two records.
void comLinMatSwapInter(KwilHandle* handle, ComLinMat* a, ComLinMat* b);
// Copies src into dst's existing arrays (equal dataNum and dataType, dst's row array long enough).
void comLinMatCopy(KwilHandle* handle, const ComLinMat* src, ComLinMat* dst);
// Delivers the entry after pos (or entry 0 when first is non-zero): 1-based row and col, value.
// Returns 0 at the end, with pos = dataNum. In CSR form row is iteration state.
int comLinMatGetNext(KwilHandle* handle, const ComLinMat* mat, int* row, int* col, int* pos,
                     double* re, double* im, int first);
// Checks 0 <= pos < dataNum, 1 <= row, col <= size; 1 if valid, else 0 after a message.
int comLinMatParamCheck(KwilHandle* handle, const ComLinMat* mat, int pos, int row, int col,
                        const char* place);
// As comLinMatParamCheck, but the message shows the shown values.
int comLinMatParamCheckDispShift(KwilHandle* handle, const ComLinMat* mat, int pos, int row,
                                 int col, int showPos, int showRow, int showCol, const char* place);
// Traces the title line and every entry on one line.
void comLinMatTrace(KwilHandle* handle, const ComLinMat* mat, const char* format, ...)
    KWIL_PRINTF(3, 4);

// ---- Sparse kernels (CSR) --------------------------------------------------------------------

// y := alpha op(A) x + beta y, op(A) = A or the plain transpose (trans non-zero).
void comLinMatCalcVec(KwilHandle* handle, ComComplex alpha, const ComLinMat* a, int trans,
                      const ComLinVec* x, ComComplex beta, ComLinVec* y);
// Solves op(T) y = x, T the upper (upper non-zero) or lower triangle of A with its stored diagonal.
void comLinMatTriSolv(KwilHandle* handle, int upper, const ComLinMat* a, int trans,
                      const ComLinVec* x, ComLinVec* y);

// A schedule of one triangle of a CSR matrix for repeated solves on the kernel threads; its
// memory belongs to the math library.
struct PlatformTrsvPlan;
// Plans repeated solves T y = x with the upper (upper non-zero) or lower triangle of A on the
// current kernel thread count, or on one thread when the kernels run on one or the triangle gains
// nothing from more. Null when memory is short: a null plan stands for the one-thread solve.
// Writes no line. The plan keeps the reciprocals of the pivots and a copy of the triangle for its
// threads: it serves A as long as A is unchanged.
PlatformTrsvPlan* comLinMatTriSolvPlan(KwilHandle* handle, int upper, const ComLinMat* a);
// Frees a plan; null is allowed.
void comLinMatTriSolvPlanDelete(KwilHandle* handle, PlatformTrsvPlan* plan);
// comLinMatTriSolv(handle, upper, a, 0, x, y) with the plan made for that triangle of A: the
// same result, bit for bit, on the plan's threads.
void comLinMatTriSolvPlanned(KwilHandle* handle, int upper, const ComLinMat* a,
                             PlatformTrsvPlan* plan, const ComLinVec* x, ComLinVec* y);

// ---- Vector object and arithmetic ------------------------------------------------------------

// Vector work on fewer doubles than this (a copy, a BLAS call) runs on one thread: below it a
// second thread costs more than it saves (waking it, and the vector's halves in two caches).
constexpr long LIN_MIN_THREADED_DOUBLES = 1L << 16;

// New vector with uninitialised values; null after an error line.
ComLinVec* comLinVecCreate(KwilHandle* handle, int dataType, int size);
// New vector with every entry set to value; null after an error line.
ComLinVec* comLinVecCreateInit(KwilHandle* handle, int dataType, int size, ComComplex value);
// Sets every entry to value.
void comLinVecInit(KwilHandle* handle, ComLinVec* vec, ComComplex value);
// New complex copy of vec (imaginary parts 0 when vec is real); null after an error line.
ComLinVec* comLinVecCreateCompFromReal(KwilHandle* handle, const ComLinVec* vec);
// Frees the values and the record; null is allowed.
void comLinVecDelete(KwilHandle* handle, ComLinVec* vec);
// Deletes each non-null argument in order.
void comLinVecsDelete(KwilHandle* handle, ComLinVec* v1, ComLinVec* v2, ComLinVec* v3,
                      ComLinVec* v4);
// Copies the values of src into dst (equal size and data type).
void comLinVecCopy(KwilHandle* handle, const ComLinVec* src, ComLinVec* dst);
// 1 when 0 <= pos < size, else 0 after "Invalid pos %d in %s".
int comLinVecParamCheck(KwilHandle* handle, const ComLinVec* vec, int pos, const char* place);
// As comLinVecParamCheck, but the message shows showPos.
int comLinVecParamCheckDispShift(KwilHandle* handle, const ComLinVec* vec, int pos, int showPos,
                                 const char* place);
// 1 when any value (real or imaginary part) is a NaN by its bit pattern, else 0.
int comLinVecIsNan(KwilHandle* handle, const ComLinVec* vec);
// Traces the title line and every value on one line.
void comLinVecTrace(KwilHandle* handle, const ComLinVec* vec, const char* format, ...)
    KWIL_PRINTF(3, 4);
// y := y + a x.
void comLinVecCalcVec(KwilHandle* handle, ComComplex a, const ComLinVec* x, ComLinVec* y);
// y := y + b w, then y := y + a x.
void comLinVecCalcVec2(KwilHandle* handle, ComComplex a, const ComLinVec* x, ComComplex b,
                       const ComLinVec* w, ComLinVec* y);
// x := a x.
void comLinVecCalcScal(KwilHandle* handle, ComComplex a, ComLinVec* x);
// sum x_i y_i of two real vectors.
double comLinVecCalcDotReal(KwilHandle* handle, const ComLinVec* x, const ComLinVec* y);
// *result := sum conj(x_i) y_i of two complex vectors.
void comLinVecCalcDotCompConj(KwilHandle* handle, const ComLinVec* x, const ComLinVec* y,
                              ComComplex* result);
// *result := sum x_i y_i of two complex vectors.
void comLinVecCalcDotCompUnconj(KwilHandle* handle, const ComLinVec* x, const ComLinVec* y,
                                ComComplex* result);
// Euclidean norm by an overflow- and underflow-safe norm routine (platform_dnrm2), not the root
// of a dot product.
double comLinVecCalcNorm2(KwilHandle* handle, const ComLinVec* x);
