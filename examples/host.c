/* A short tour of the kwil API, in the order a host calls it: create a handle from an option
 * file, fill A and b entry by entry, solve, read x back, check the residual, solve again with
 * another solver, release the handle.
 *
 * The system: 1-D convection-diffusion, tridiagonal (-1.2, 2, -0.8), with b = A (1, ..., 1),
 * so that the exact solution is the ones vector.
 *
 *   kwil_host [OPTIONFILE]     (default: kwil.ini in the working directory)
 */
#include <math.h>
#include <stdio.h>

#include "kwil.h"

enum { N = 100 };

/* Largest |x_i - 1| of the solution held by the handle. */
static double errorToOnes(KwilHandle* h)
{
    double worst = 0.0;
    int i;
    for (i = 0; i < N; ++i) {
        double re = 0.0, im = 0.0;
        kwilVecVarGet(h, i, &re, &im);
        if (!(fabs(re - 1.0) <= worst))
            worst = fabs(re - 1.0);
    }
    return worst;
}

int main(int argc, char** argv)
{
    const char* optionFile = argc > 1 ? argv[1] : NULL;
    const double lower = -1.2, diag = 2.0, upper = -0.8;
    double rel = 0.0, abs = 0.0;
    int i, pos = 0;

    /* 1. The handle, from an option file (NULL: kwil.ini). */
    KwilHandle* h = kwilInit(KWIL_VERSION, optionFile);
    if (h == NULL)
        return 1;

    /* 2. A: real (flag 0), order N, 3N - 2 entry slots, filled 0-based slot by slot. */
    if (!kwilMatCoefCreate(h, 0, N, 3 * N - 2))
        return 2;
    for (i = 0; i < N; ++i) {
        if (i > 0)
            kwilMatCoefSet(h, i, i - 1, pos++, lower, 0.0, 0);
        kwilMatCoefSet(h, i, i, pos++, diag, 0.0, 0);
        if (i < N - 1)
            kwilMatCoefSet(h, i, i + 1, pos++, upper, 0.0, 0);
    }

    /* 3. b = A (1, ..., 1): every entry set to the row sum. */
    if (!kwilVecFixCreate(h, 0, N, 0.0, 0.0))
        return 3;
    for (i = 0; i < N; ++i) {
        kwilVecFixSet(h, i, (i > 0 ? lower : 0.0) + diag + (i < N - 1 ? upper : 0.0), 0.0);
    }

    /* 4. Options can be changed by name at any time: BiCGStab with ILU(0). */
    kwilSetOpt(h, "SOLVER", 1, 0, 0.0);
    kwilSetOpt(h, "ITER_RESOLVE", 0, 0, 1e-12);

    /* 5. Solve; x is replaced, starting from zero. */
    if (!kwilSolv(h))
        return 4;

    /* 6. Read x back and check the residual against CHECK_RESULT_LIM. */
    if (!kwilCheckResult(h, &rel, &abs))
        return 5;
    printf("BiCGStab: rel residual %.3e abs %.3e, max |x_i - 1| %.3e\n", rel, abs, errorToOnes(h));
    if (errorToOnes(h) > 1e-8)
        return 6;

    /* 7. Solve again on the same handle with the direct solver. */
    kwilSetOpt(h, "SOLVER", 1, 10, 0.0);
    if (!kwilSolv(h) || !kwilCheckResult(h, &rel, &abs))
        return 7;
    printf("direct:   rel residual %.3e abs %.3e, max |x_i - 1| %.3e\n", rel, abs, errorToOnes(h));
    if (errorToOnes(h) > 1e-12)
        return 8;

    /* 8. Release the handle and everything it holds. */
    kwilTerm(h);
    return 0;
}
