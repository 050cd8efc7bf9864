/* Writes the bundled example problems as Matrix Market files.
 *
 *   make_example real M FILE       -lap u + beta . grad u on an M x M grid: real, nonsymmetric
 *   make_example complex M FILE    the same operator plus the shift i sigma: complex, non-Hermitian
 *   make_example symmetric M FILE  -lap u on an M x M grid, lower triangle, symmetric banner
 *
 * Unit square, Dirichlet boundary, h = 1 / (M + 1), five-point central differences scaled by
 * h^2, unknowns numbered row by row. beta = (40, 20), sigma h^2 = 0.5.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static const double betaX = 40.0;
static const double betaY = 20.0;
static const double shift = 0.5;

int main(int argc, char** argv)
{
    if (argc != 4) {
        fprintf(stderr, "usage: make_example real|complex|symmetric M FILE\n");
        return 2;
    }
    const char* kind = argv[1];
    const int m = atoi(argv[2]);
    const int complexField = strcmp(kind, "complex") == 0;
    const int symmetric = strcmp(kind, "symmetric") == 0;
    if (m < 1 || m > 2000 || (!complexField && !symmetric && strcmp(kind, "real") != 0)) {
        fprintf(stderr, "make_example: bad kind or size\n");
        return 2;
    }
    FILE* fp = fopen(argv[3], "w");
    if (fp == NULL) {
        perror(argv[3]);
        return 1;
    }
    const int n = m * m;
    const double h = 1.0 / (m + 1);
    const double cx = symmetric ? 0.0 : betaX * h / 2.0;
    const double cy = symmetric ? 0.0 : betaY * h / 2.0;
    /* Interior couplings: 2 m (m - 1) in each direction pair, plus the diagonal. */
    const long offDiag = 2L * m * (m - 1);
    const long nnz = symmetric ? n + offDiag : n + 2 * offDiag;

    fprintf(fp, "%%%%MatrixMarket matrix coordinate %s %s\n", complexField ? "complex" : "real",
            symmetric ? "symmetric" : "general");
    if (symmetric) {
        fprintf(fp, "%% 2-D Laplacian on a %d x %d grid, lower triangle, by make_example\n", m, m);
    } else {
        fprintf(fp,
                "%% 2-D convection-diffusion on a %d x %d grid, beta (%g, %g)%s, "
                "by make_example\n",
                m, m, betaX, betaY, complexField ? ", shift i 0.5" : "");
    }
    fprintf(fp, "%d %d %ld\n", n, n, nnz);
    for (int j = 0; j < m; ++j) {
        for (int i = 0; i < m; ++i) {
            const int k = j * m + i + 1;
            /* Columns in ascending order: south, west, centre, east, north. */
            const int col[5] = {k - m, k - 1, k, k + 1, k + m};
            const int present[5] = {j > 0, i > 0, 1, i < m - 1, j < m - 1};
            const double val[5] = {-1.0 - cy, -1.0 - cx, 4.0, -1.0 + cx, -1.0 + cy};
            for (int e = 0; e < 5; ++e) {
                if (!present[e] || (symmetric && col[e] > k))
                    continue;
                if (complexField) {
                    fprintf(fp, "%d %d %.17g %.17g\n", k, col[e], val[e], e == 2 ? shift : 0.0);
                } else {
                    fprintf(fp, "%d %d %.17g\n", k, col[e], val[e]);
                }
            }
        }
    }
    return fclose(fp) == 0 ? 0 : 1;
}
