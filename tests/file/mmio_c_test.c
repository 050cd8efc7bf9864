/* The Matrix Market header compiles as C and a C host calls the exported routines. */
#define _POSIX_C_SOURCE 200809L
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "kwil.h"
#include "mmio.h"

int main(void)
{
    char text[] = "%%MatrixMarket matrix coordinate complex hermitian\n% c\n2 2 1\n2 1 1.5 -2\n";
    FILE* f = fmemopen(text, strlen(text), "r");
    MM_typecode code;
    int m = 0, n = 0, nz = 0, i = 0, j = 0;
    double re = 0.0, im = 0.0;
    char* words;
    int ok;
    if (f == NULL)
        return 1;
    ok = mm_read_banner(f, &code) == 0 && memcmp(code, "MCCH", 4) == 0 && mm_is_valid(code) &&
         mm_read_mtx_crd_size(f, &m, &n, &nz) == 0 && m == 2 && nz == 1 &&
         mm_read_mtx_crd_entry(f, &i, &j, &re, &im, code) == 0 && i == 2 && im == -2.0;
    fclose(f);
    words = mm_typecode_to_str(code);
    ok = ok && words != NULL && strcmp(words, "matrix coordinate complex hermitian") == 0;
    free(words);
    if (!ok) {
        printf("mmio from C: wrong result\n");
        return 1;
    }
    return 0;
}
