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

// Line handling shared by the two readers.

// Reads lines into buf (len bytes) until one holds a non-blank character; 1, or 0 at the end.
int getLine(FILE* stream, char* buf, int len);
// Skips blank and "%" lines and scans the size line: "%d %d %d" (third non-null) or "%d %d",
// nothing else on the line. 1, or 0 at the end of input or on a mismatch.
int readSize(FILE* stream, int* first, int* second, int* third);
// Reports "Invalid <type> data format in <place> file='<fileName>'" and "Invalid data='<line>'"
// (line without its final newline, which is removed in place). Returns null.
void* dataFormatErr(KwilHandle* handle, const char* type, const char* place, const char* fileName,
                    char* line);

namespace kwil {

// Closes a stream on scope exit.
class ComFileCloser {
  public:
    explicit ComFileCloser(FILE* f) : f_(f) {}
    ~ComFileCloser()
    {
        if (f_ != nullptr)
            fclose(f_);
    }
    ComFileCloser(const ComFileCloser&) = delete;
    ComFileCloser& operator=(const ComFileCloser&) = delete;

  private:
    FILE* f_;
};

// The banner words of a type code as mm_typecode_to_str gives them, in a freed-on-exit text
// ("" when memory for the text is exhausted).
class ComTypeText {
  public:
    explicit ComTypeText(const char code[4]);
    ~ComTypeText();
    ComTypeText(const ComTypeText&) = delete;
    ComTypeText& operator=(const ComTypeText&) = delete;
    const char* get() const { return text_ != nullptr ? text_ : ""; }

  private:
    char* text_;
};

} // namespace kwil
