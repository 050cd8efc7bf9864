/* kwil: Matrix Market banner, size and coordinate-data routines. Plain C, exported. */
#ifndef KWIL_MMIO_H
#define KWIL_MMIO_H

#include <stdio.h>

#ifndef KWIL_API
#if defined(_WIN32)
#if defined(KWIL_BUILDING)
#define KWIL_API __declspec(dllexport)
#else
#define KWIL_API __declspec(dllimport)
#endif
#else
#define KWIL_API __attribute__((visibility("default")))
#endif
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Type code: one letter per banner word (object, format, field, symmetry), no terminator.
   Object "M"; format "C" coordinate, "A" array; field "R" real, "C" complex, "P" pattern,
   "I" integer; symmetry "G" general, "S" symmetric, "H" hermitian, "K" skew-symmetric. */
typedef char MM_typecode[4];

/* Return codes of the mm_ routines (0 is success). */
enum {
    MM_COULD_NOT_READ_FILE = 11, /* the named file cannot be opened for reading */
    MM_PREMATURE_EOF = 12,       /* input ended or could not be read before what was expected */
    MM_NO_HEADER = 14,           /* the first banner word does not begin with "%%MatrixMarket" */
    MM_UNSUPPORTED_TYPE = 15,    /* unknown word or letter, or a combination not handled */
    MM_COULD_NOT_WRITE_FILE =
        17 /* the named file cannot be opened for writing, or a write failed */
};

/* Reads the banner line into *code (cleared to "   G" first). 0, 12, 14 or 15; on an error
 *code holds the letters set so far. A word longer than 63 characters gives 15. */
KWIL_API int mm_read_banner(FILE* f, MM_typecode* code);
/* The four banner words of code joined by single blanks, from malloc (free it); null when a
   letter is unknown or memory is exhausted. */
KWIL_API char* mm_typecode_to_str(const MM_typecode code);
/* A malloc'ed copy of text, or null when memory is exhausted. */
KWIL_API char* mm_strdup(const char* text);
/* 1 when code is a meaningful matrix type, else 0. */
KWIL_API int mm_is_valid(const MM_typecode code);

/* Writes "%%MatrixMarket" and the words of code. 0, 15 (unknown letter: nothing written) or 17. */
KWIL_API int mm_write_banner(FILE* f, const MM_typecode code);
/* Writes the coordinate size line "M N nz". 0 or 17. */
KWIL_API int mm_write_mtx_crd_size(FILE* f, int M, int N, int nz);
/* Writes the array size line "M N". 0 or 17. */
KWIL_API int mm_write_mtx_array_size(FILE* f, int M, int N);

/* Skips "%" lines and reads "M N nz". 0, or 12 when input ends or holds no such integers. */
KWIL_API int mm_read_mtx_crd_size(FILE* f, int* M, int* N, int* nz);
/* Skips "%" lines and reads "M N". 0, or 12 when input ends or holds no such integers. */
KWIL_API int mm_read_mtx_array_size(FILE* f, int* M, int* N);

/* Reads one coordinate entry by the field of code: complex, real or pattern. 0, 12 or 15. */
KWIL_API int mm_read_mtx_crd_entry(FILE* f, int* I, int* J, double* real, double* imag,
                                   const MM_typecode code);
/* Reads nz coordinate entries into I, J and val (complex: 2 nz values; pattern: none).
   0, 12 at the first short read, or 15 for another field. M and N are not checked. */
KWIL_API int mm_read_mtx_crd_data(FILE* f, int M, int N, int nz, int I[], int J[], double val[],
                                  const MM_typecode code);
/* Reads a whole coordinate matrix file ("stdin": standard input). *I, *J and *val come from
   malloc (free them); on failure nothing is handed out. 0, 11, 12 (also when memory is
   exhausted), 14 or 15. */
KWIL_API int mm_read_mtx_crd(const char* fname, int* M, int* N, int* nz, int** I, int** J,
                             double** val, MM_typecode* code);
/* Writes a whole coordinate matrix file ("stdout": standard output), values with "%20.16g".
   0, 15 (unknown letter: no file is made; integer field: banner and size line only) or 17. */
KWIL_API int mm_write_mtx_crd(const char* fname, int M, int N, int nz, const int I[], const int J[],
                              const double val[], const MM_typecode code);
/* Reads a real coordinate matrix file into 0-based triplets from malloc (free them). 0, or -1
   after a message (banner, type or size line) or silently (open, memory, short data). */
KWIL_API int mm_read_unsymmetric_sparse(const char* fname, int* M, int* N, int* nz, double** val,
                                        int** I, int** J);

#ifdef __cplusplus
}
#endif
#endif
