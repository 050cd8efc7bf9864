/* PETSc's BiCGStab with ILU(0) from the right and the unpreconditioned residual norm
 * (-ksp_type bcgs -pc_type ilu -ksp_pc_side right -ksp_norm_type unpreconditioned
 * -ksp_rtol 1e-10) on the generated problems of kwil_iter_bench, for comparison.
 * Built and run by run_petsc.sh only; nothing in the library's build needs PETSc.
 *
 *   petsc_bcgs [cd500 cd1000 cd3d60 ...]   (cdN: 2-D on an N x N grid, cd3dN: 3-D, N^3)
 */
#include <math.h>
#include <petscksp.h>
#include <stdio.h>
#include <string.h>

/* Rows of the same matrices as kwil_iter_bench builds, 0-based, columns ascending. */
static Mat convDiff(int m, int dim, double c)
{
    const double h = 1.0 / (m + 1), d = 1.0 / (h * h), up = c / h;
    const PetscInt mm = (PetscInt)m * m, n = dim == 2 ? mm : mm * m;
    Mat a;
    MatCreateSeqAIJ(PETSC_COMM_SELF, n, n, 2 * dim + 1, NULL, &a);
    for (PetscInt i = 0; i < n; ++i) {
        PetscInt col[7], k = 0;
        PetscScalar v[7];
        const PetscInt x = i % m, y = (i / m) % m, z = i / mm;
        if (dim == 3 && z > 0)
            col[k] = i - mm, v[k++] = -d - up;
        if (y > 0)
            col[k] = i - m, v[k++] = -d - up;
        if (x > 0)
            col[k] = i - 1, v[k++] = -d - up;
        col[k] = i, v[k++] = 2.0 * dim * d + dim * up;
        if (x + 1 < m)
            col[k] = i + 1, v[k++] = -d;
        if (y + 1 < m)
            col[k] = i + m, v[k++] = -d;
        if (dim == 3 && z + 1 < m)
            col[k] = i + mm, v[k++] = -d;
        MatSetValues(a, 1, &i, k, col, v, INSERT_VALUES);
    }
    MatAssemblyBegin(a, MAT_FINAL_ASSEMBLY);
    MatAssemblyEnd(a, MAT_FINAL_ASSEMBLY);
    return a;
}

int main(int argc, char** argv)
{
    PetscInitialize(&argc, &argv, NULL, NULL);
    printf("%-8s %8s %6s %9s %9s %10s %10s\n", "problem", "n", "steps", "setup[s]", "solve[s]",
           "step[ms]", "true rel");
    for (int i = 1; i < argc; ++i) {
        Mat a;
        int m = 0;
        if (sscanf(argv[i], "cd3d%d", &m) == 1 && m > 1)
            a = convDiff(m, 3, 50.0);
        else if (sscanf(argv[i], "cd%d", &m) == 1 && m > 1)
            a = convDiff(m, 2, 50.0);
        else
            continue;
        Vec x, b, r, ones;
        MatCreateVecs(a, &x, &b);
        VecDuplicate(b, &r);
        VecDuplicate(b, &ones);
        VecSet(ones, 1.0);
        MatMult(a, ones, b);
        KSP ksp;
        PC pc;
        KSPCreate(PETSC_COMM_SELF, &ksp);
        KSPSetOperators(ksp, a, a);
        KSPSetType(ksp, KSPBCGS);
        KSPGetPC(ksp, &pc);
        PCSetType(pc, PCILU);
        KSPSetPCSide(ksp, PC_RIGHT);
        KSPSetNormType(ksp, KSP_NORM_UNPRECONDITIONED);
        KSPSetTolerances(ksp, 1e-10, 1e-50, 1e10, 5000);
        KSPSetFromOptions(ksp);
        VecSet(x, 0.0);
        double t0 = MPI_Wtime();
        KSPSetUp(ksp);
        PCSetUp(pc);
        const double tSetup = MPI_Wtime() - t0;
        t0 = MPI_Wtime();
        KSPSolve(ksp, b, x);
        const double tSolve = MPI_Wtime() - t0;
        PetscInt its;
        KSPGetIterationNumber(ksp, &its);
        MatMult(a, x, r);
        VecAYPX(r, -1.0, b);
        PetscReal nr, nb;
        VecNorm(r, NORM_2, &nr);
        VecNorm(b, NORM_2, &nb);
        PetscInt n;
        MatGetSize(a, &n, NULL);
        printf("%-8s %8d %6d %9.3f %9.3f %10.3f %10.2e\n", argv[i], (int)n, (int)its, tSetup,
               tSolve, 1e3 * tSolve / (its > 0 ? its : 1), (double)(nr / nb));
        fflush(stdout);
        KSPDestroy(&ksp);
        VecDestroy(&x);
        VecDestroy(&b);
        VecDestroy(&r);
        VecDestroy(&ones);
        MatDestroy(&a);
    }
    PetscFinalize();
    return 0;
}
