/* PETSc peer: ILU(0) factorisation time (natural ordering, no shift), symbolic plus numeric.
 *   petsc_ilu REPS A.mtx
 * One untimed factorisation, then REPS timed ones in thread CPU seconds. Freed memory stays in
 * the process (glibc mallopt), as in kwil's table_ilu. Prints the factor entries and the times. */
#include <limits.h>
#include <malloc.h>
#include <petscmat.h>
#include <time.h>

#include "mm_read.h"

static double cpuSeconds(void)
{
    struct timespec ts;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return ts.tv_sec + 1e-9 * ts.tv_nsec;
}

/* One ILU(0) of A: its time; *nz gets the stored entries of the factor. */
static PetscErrorCode factorOnce(Mat A, double* seconds, double* nz)
{
    Mat F;
    IS rperm, cperm;
    MatFactorInfo info;
    MatInfo minfo;
    double t0;

    PetscFunctionBeginUser;
    PetscCall(MatFactorInfoInitialize(&info));
    info.levels = 0;
    info.fill = 1.0;
    t0 = cpuSeconds();
    PetscCall(MatGetOrdering(A, MATORDERINGNATURAL, &rperm, &cperm));
    PetscCall(MatGetFactor(A, MATSOLVERPETSC, MAT_FACTOR_ILU, &F));
    PetscCall(MatILUFactorSymbolic(F, A, rperm, cperm, &info));
    PetscCall(MatLUFactorNumeric(F, A, &info));
    *seconds = cpuSeconds() - t0;
    PetscCall(MatGetInfo(F, MAT_LOCAL, &minfo));
    *nz = minfo.nz_used;
    PetscCall(MatDestroy(&F));
    PetscCall(ISDestroy(&rperm));
    PetscCall(ISDestroy(&cperm));
    PetscFunctionReturn(0);
}

int main(int argc, char** argv)
{
    BenchCsr a;
    Mat A;
    double t, nz;
    int reps, k;

    if (argc < 3) {
        fprintf(stderr, "usage: petsc_ilu REPS A.mtx\n");
        return 2;
    }
    reps = atoi(argv[1]) > 0 ? atoi(argv[1]) : 1;
    mallopt(M_MMAP_MAX, 0);
    mallopt(M_TRIM_THRESHOLD, INT_MAX);
    PetscCall(PetscInitialize(&argc, &argv, NULL, NULL));
    if (!benchReadMatrix(argv[2], &a) || a.isComplex != (sizeof(PetscScalar) == 16)) {
        fprintf(stderr, "petsc_ilu: cannot read a matrix of PETSc's scalar type from %s\n",
                argv[2]);
        return 1;
    }
    PetscCall(MatCreateSeqAIJWithArrays(PETSC_COMM_SELF, a.n, a.n, a.rowPtr, a.colInd,
                                        (PetscScalar*)a.val, &A));
    PetscCall(factorOnce(A, &t, &nz));
    printf("peer=petsc method=ilu0 n=%d nnz=%d fill=%.0f times=", a.n, a.nnz, nz);
    for (k = 0; k < reps; ++k) {
        PetscCall(factorOnce(A, &t, &nz));
        printf("%s%.6f", k ? "," : "", t);
    }
    printf("\n");
    PetscCall(MatDestroy(&A));
    PetscCall(PetscFinalize());
    return 0;
}
