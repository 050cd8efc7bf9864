// Checks shared by the solve driver and the result check.
#pragma once

#include "lin/lin.h"

// 1 when every entry slot of the handle's coefficient matrix has been set, else 0 after
// "Lack of coef mat data in %s" with place. The matrix must exist and be in a coordinate form.
int checkMatCoefLack(KwilHandle* handle, const char* place);
// Reconciles the data type of *vec with mat: equal types pass; a real vector with a complex
// matrix is replaced by its complex copy (the old vector is deleted and *vec takes the copy);
// a complex vector with a real matrix fails with "Data type unmatch in %s". A copy that cannot
// be made fails with "Vector comp revies data create error in %s". *vec is unchanged on failure.
int reviseDataTypeUnmatch(KwilHandle* handle, const ComLinMat* mat, ComLinVec** vec,
                          const char* place);
