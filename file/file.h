// Matrix and vector files in the Matrix Market format.
#pragma once

#include <cstdio>

#include "lin/lin.h"

// Reads a coordinate matrix file (real, integer, complex or pattern) into a new matrix in
// unsorted coordinate form, entries in file order. Null after an error line; the file is closed.
ComLinMat* comFileMatRead(KwilHandle* handle, const char* fileName);
// Writes mat as a general coordinate file with "%.20e" values. 1, or 0 if it cannot be opened.
int comFileMatWrite(KwilHandle* handle, const ComLinMat* mat, const char* fileName);
// Reads an array vector file (first column) or a coordinate pattern vector into a new vector.
ComLinVec* comFileVecRead(KwilHandle* handle, const char* fileName);
// Writes vec as a general array file with "%.20e" values. 1, or 0 if it cannot be opened.
int comFileVecWrite(KwilHandle* handle, const ComLinVec* vec, const char* fileName);
