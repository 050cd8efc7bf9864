/* PETSc's ILU(0) (natural ordering, no shift) on the matrices of bench_precond, for comparison.
 * Built and run by run_petsc.sh only; nothing in the library's build needs PETSc.
 *
 *   petsc_ilu [--warm] [reps] [file.mtx ...]
 *
 * --warm: freed memory stays in the process, as with bench_precond --warm.
 */
#include <ctype.h>
#include <limits.h>
#include <malloc.h>
#include <petscmat.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

/* CPU time of the calling thread: the machine may be shared, so wall time is not used. */
static double cpuSeconds(void)
{
    struct timespec ts;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return ts.tv_sec + 1e-9 * ts.tv_nsec;
}

typedef struct {
    PetscInt n, nnz;
    PetscInt *ia, *ja; /* 0-based CSR, columns ascending */
    PetscScalar* va;
} Csr;

static void convDiff2d(int m, double peclet, Csr* a)
{
    const PetscInt n = (PetscInt)m * m;
    const double h = 1.0 / (m + 1), c = peclet * h;
    PetscInt p = 0;
    a->n = n;
    a->nnz = 5 * n - 4 * (PetscInt)m;
    a->ia = malloc(sizeof(PetscInt) * (n + 1));
    a->ja = malloc(sizeof(PetscInt) * a->nnz);
    a->va = malloc(sizeof(PetscScalar) * a->nnz);
    a->ia[0] = 0;
    for (PetscInt r = 0; r < n; ++r) {
        const PetscInt gx = r % m, gy = r / m;
#define ADD(col, v) (a->ja[p] = (col), a->va[p] = (v), ++p)
        if (gy > 0)
            ADD(r - m, -1.0 - c);
        if (gx > 0)
            ADD(r - 1, -1.0 - c);
        ADD(r, 4.0 + 2.0 * c);
        if (gx < m - 1)
            ADD(r + 1, -1.0);
        if (gy < m - 1)
            ADD(r + m, -1.0);
#undef ADD
        a->ia[r + 1] = p;
    }
}

typedef struct {
    long i, j;
    double v;
} Trip;

static int cmpTrip(const void* x, const void* y)
{
    const Trip *a = x, *b = y;
    if (a->i != b->i)
        return a->i < b->i ? -1 : 1;
    return a->j < b->j ? -1 : a->j > b->j;
}

/* Real coordinate Matrix Market file (general or symmetric), zero diagonal added where missing. */
static int readMM(const char* path, Csr* a)
{
    FILE* f = fopen(path, "r");
    char line[1024];
    long rows, cols, nnz;
    if (!f || !fgets(line, sizeof line, f))
        return 0;
    for (char* s = line; *s; ++s)
        *s = (char)tolower(*s);
    if (!strstr(line, "coordinate") || strstr(line, "complex"))
        return fclose(f), 0;
    const int pattern = strstr(line, "pattern") != NULL;
    const int skew = strstr(line, "skew") != NULL;
    const int sym = skew || strstr(line, "symmetric") != NULL;
    do {
        if (!fgets(line, sizeof line, f))
            return fclose(f), 0;
    } while (line[0] == '%');
    sscanf(line, "%ld %ld %ld", &rows, &cols, &nnz);
    Trip* t = malloc(sizeof(Trip) * (2 * nnz + rows));
    char* hasDiag = calloc(rows + 1, 1);
    long k = 0;
    for (long e = 0; e < nnz; ++e) {
        long i, j;
        double v = 1.0;
        if (fscanf(f, "%ld %ld", &i, &j) != 2)
            return fclose(f), 0;
        if (!pattern && fscanf(f, "%lf", &v) != 1)
            return fclose(f), 0;
        t[k++] = (Trip){i - 1, j - 1, v};
        if (i == j)
            hasDiag[i] = 1;
        if (sym && i != j)
            t[k++] = (Trip){j - 1, i - 1, skew ? -v : v};
    }
    fclose(f);
    for (long i = 1; i <= rows; ++i)
        if (!hasDiag[i])
            t[k++] = (Trip){i - 1, i - 1, 0.0};
    qsort(t, k, sizeof(Trip), cmpTrip);
    a->n = rows;
    a->nnz = k;
    a->ia = calloc(rows + 1, sizeof(PetscInt));
    a->ja = malloc(sizeof(PetscInt) * k);
    a->va = malloc(sizeof(PetscScalar) * k);
    for (long p = 0; p < k; ++p) {
        a->ia[t[p].i + 1]++;
        a->ja[p] = t[p].j;
        a->va[p] = t[p].v;
    }
    for (long i = 0; i < rows; ++i)
        a->ia[i + 1] += a->ia[i];
    free(t);
    free(hasDiag);
    return 1;
}

static void bench(const char* name, Csr* c, int reps)
{
    Mat A, F;
    IS row, col;
    Vec b, x;
    MatFactorInfo info;
    double bestSym = 1e300, bestNum = 1e300, bestSolve = 1e300;
    MatInfo fi;
    PetscCallAbort(PETSC_COMM_SELF,
                   MatCreateSeqAIJWithArrays(PETSC_COMM_SELF, c->n, c->n, c->ia, c->ja, c->va, &A));
    PetscCallAbort(PETSC_COMM_SELF, MatGetOrdering(A, MATORDERINGNATURAL, &row, &col));
    PetscCallAbort(PETSC_COMM_SELF, MatCreateVecs(A, &x, &b));
    PetscCallAbort(PETSC_COMM_SELF, VecSet(b, 1.0));
    for (int k = 0; k < reps; ++k) {
        PetscErrorCode err;
        PetscCallAbort(PETSC_COMM_SELF, MatGetFactor(A, MATSOLVERPETSC, MAT_FACTOR_ILU, &F));
        PetscCallAbort(PETSC_COMM_SELF, MatFactorInfoInitialize(&info));
        info.levels = 0;
        info.fill = 1.0;
        double t0 = cpuSeconds();
        PetscCallAbort(PETSC_COMM_SELF, MatILUFactorSymbolic(F, A, row, col, &info));
        double t1 = cpuSeconds();
        err = MatLUFactorNumeric(F, A, &info);
        double t2 = cpuSeconds();
        if (err) {
            printf("| %s | %ld | %ld | PETSc ILU(0) failed |\n", name, (long)c->n, (long)c->nnz);
            MatDestroy(&F);
            break;
        }
        bestSym = t1 - t0 < bestSym ? t1 - t0 : bestSym;
        bestNum = t2 - t1 < bestNum ? t2 - t1 : bestNum;
        for (int s = 0; s < 5; ++s) {
            double t3 = cpuSeconds();
            PetscCallAbort(PETSC_COMM_SELF, MatSolve(F, b, x));
            double t4 = cpuSeconds();
            bestSolve = t4 - t3 < bestSolve ? t4 - t3 : bestSolve;
        }
        PetscCallAbort(PETSC_COMM_SELF, MatGetInfo(F, MAT_LOCAL, &fi));
        PetscCallAbort(PETSC_COMM_SELF, MatDestroy(&F));
    }
    if (bestNum < 1e300) {
        printf("| %s | %ld | %ld | %.0f | %.3f | %.3f | %.3f | %.3f |\n", name, (long)c->n,
               (long)c->nnz, fi.nz_used, 1e3 * bestSym, 1e3 * bestNum, 1e3 * (bestSym + bestNum),
               1e3 * bestSolve);
    }
    fflush(stdout);
    ISDestroy(&row);
    ISDestroy(&col);
    VecDestroy(&x);
    VecDestroy(&b);
    MatDestroy(&A);
}

int main(int argc, char** argv)
{
    int reps = 3, first = 1;
    if (argc > 1 && strcmp(argv[1], "--warm") == 0) {
        mallopt(M_MMAP_MAX, 0);
        mallopt(M_TRIM_THRESHOLD, INT_MAX);
        ++argv;
        --argc;
    }
    PetscCall(PetscInitializeNoArguments());
    if (argc > 1 && strspn(argv[1], "0123456789") == strlen(argv[1])) {
        reps = atoi(argv[1]);
        first = 2;
    }
    printf("| matrix | n | nnz | factor nz | symbolic ms | numeric ms | total ms | solve ms |\n");
    printf("|---|---|---|---|---|---|---|---|\n");
    if (first >= argc) {
        for (int m = 500; m <= 1000; m += 500) {
            Csr c;
            char name[64];
            convDiff2d(m, 100.0, &c);
            snprintf(name, sizeof name, "convdiff %d^2", m);
            bench(name, &c, reps);
            free(c.ia), free(c.ja), free(c.va);
        }
    }
    for (int i = first; i < argc; ++i) {
        Csr c;
        const char* base = strrchr(argv[i], '/');
        if (!readMM(argv[i], &c)) {
            fprintf(stderr, "cannot read %s\n", argv[i]);
            continue;
        }
        bench(base ? base + 1 : argv[i], &c, reps);
        free(c.ia), free(c.ja), free(c.va);
    }
    PetscCall(PetscFinalize());
    return 0;
}
