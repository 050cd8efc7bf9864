// Writes a generated test problem as Matrix Market files: A (coordinate) and b = A·1 (array).
//
//   gen_problem cd2d N A.mtx b.mtx    2-D convection-diffusion, 5-point upwind, N×N unknowns
//   gen_problem cd3d N A.mtx b.mtx    3-D convection-diffusion, 7-point upwind, N³ unknowns
//   gen_problem helm N A.mtx b.mtx    complex shifted Helmholtz, 5-point, N×N unknowns
//
// Convection-diffusion: -Δu + β·∇u on the unit square or cube with β = (10, 10[, 10]),
// first-order upwind, scaled by h²: cell Péclet number p = 10 h, diagonal 2d + d p, the upwind
// neighbour -(1 + p), the other -1 (d the dimension). Helmholtz:
// -Δu - k²(1 - 0.5i)u with k h = 0.5, a damped, non-Hermitian complex symmetric matrix.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

struct Entry {
    long row, col;
    double re, im;
};

void stencil(int dim, long n, bool helm, std::vector<Entry>& a)
{
    const long total = dim == 2 ? n * n : n * n * n;
    const double shiftRe = -0.25, shiftIm = 0.125; // -(kh)²(1 - 0.5i), kh = 0.5
    a.reserve(static_cast<size_t>(total) * (2 * dim + 1));
    for (long p = 0; p < total; ++p) {
        long c[3] = {p % n, (p / n) % n, dim == 3 ? p / (n * n) : 0};
        long stride = 1;
        const double pe = 10.0 / static_cast<double>(n + 1);
        const double diag = helm ? 2.0 * dim + shiftRe : 2.0 * dim + dim * pe;
        for (int d = 0; d < dim; ++d, stride *= n) {
            if (c[d] > 0)
                a.push_back({p, p - stride, helm ? -1.0 : -1.0 - pe, 0.0});
        }
        a.push_back({p, p, diag, helm ? shiftIm : 0.0});
        stride = 1;
        for (int d = 0; d < dim; ++d, stride *= n) {
            if (c[d] < n - 1)
                a.push_back({p, p + stride, -1.0, 0.0});
        }
    }
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 5) {
        fprintf(stderr, "usage: gen_problem cd2d|cd3d|helm N A.mtx b.mtx\n");
        return 2;
    }
    const bool helm = strcmp(argv[1], "helm") == 0;
    const int dim = strcmp(argv[1], "cd3d") == 0 ? 3 : 2;
    const long n = atol(argv[2]);
    if (n < 1 || (!helm && strcmp(argv[1], "cd2d") != 0 && dim != 3)) {
        fprintf(stderr, "gen_problem: unknown kind '%s' or size\n", argv[1]);
        return 2;
    }
    std::vector<Entry> a;
    stencil(dim, n, helm, a);
    const long total = dim == 2 ? n * n : n * n * n;
    std::vector<double> b(2 * static_cast<size_t>(total), 0.0);
    for (const Entry& e : a) {
        b[2 * e.row] += e.re;
        b[2 * e.row + 1] += e.im;
    }
    FILE* fa = fopen(argv[3], "w");
    FILE* fb = fopen(argv[4], "w");
    if (fa == nullptr || fb == nullptr) {
        fprintf(stderr, "gen_problem: cannot write the output files\n");
        return 1;
    }
    const char* field = helm ? "complex" : "real";
    fprintf(fa, "%%%%MatrixMarket matrix coordinate %s general\n%ld %ld %zu\n", field, total, total,
            a.size());
    for (const Entry& e : a) {
        if (helm) {
            fprintf(fa, "%ld %ld %.17g %.17g\n", e.row + 1, e.col + 1, e.re, e.im);
        } else {
            fprintf(fa, "%ld %ld %.17g\n", e.row + 1, e.col + 1, e.re);
        }
    }
    fprintf(fb, "%%%%MatrixMarket matrix array %s general\n%ld 1\n", field, total);
    for (long i = 0; i < total; ++i) {
        if (helm) {
            fprintf(fb, "%.17g %.17g\n", b[2 * i], b[2 * i + 1]);
        } else {
            fprintf(fb, "%.17g\n", b[2 * i]);
        }
    }
    fclose(fa);
    fclose(fb);
    return 0;
}
