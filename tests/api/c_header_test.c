/* Compiled as C: the public header is plain C and a C host can drive the handle. */
#include <stdio.h>

#include "kwil.h"

int main(void)
{
    KwilHandle* h;
    int solver = -7;
    double resolve = 0.0;
    FILE* fp = fopen("c_header_test.ini", "w");
    if (fp == NULL)
        return 1;
    fputs("FILE_VER 1\nSOLVER 10\n", fp);
    fclose(fp);

    h = kwilInit(KWIL_VERSION, "c_header_test.ini");
    remove("c_header_test.ini");
    if (h == NULL)
        return 2;
    if (!kwilGetOpt(h, "SOLVER", 1, &solver, NULL) || solver != 10)
        return 3;
    if (!kwilSetOpt(h, "ITER_RESOLVE", 0, 0, 1e-8))
        return 4;
    if (!kwilGetOpt(h, "ITER_RESOLVE", 0, NULL, &resolve) || resolve != 1e-8)
        return 5;
    kwilTerm(h);
    printf("C host: init, set, get, term\n");
    return 0;
}
