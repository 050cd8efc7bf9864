// Matrix Market whole-file routines: reading and writing a coordinate matrix file.
// Arrays handed out come from malloc and are released by the caller with free.
#include "file/mmio.h"

#include <cstdlib>
#include <cstring>

namespace {

const char banner[] = "%%MatrixMarket";

// Frees the arrays of a failed whole-file read and closes a named file.
int failRead(FILE* f, int code, int* I, int* J, double* val)
{
    free(I);
    free(J);
    free(val);
    if (f != stdin)
        fclose(f);
    return code;
}

} // namespace

int mm_read_mtx_crd(const char* fname, int* M, int* N, int* nz, int** I, int** J, double** val,
                    MM_typecode* code)
{
    FILE* f = strcmp(fname, "stdin") == 0 ? stdin : fopen(fname, "r");
    if (f == nullptr)
        return MM_COULD_NOT_READ_FILE;

    int ret = mm_read_banner(f, code);
    if (ret != 0)
        return failRead(f, ret, nullptr, nullptr, nullptr);
    const char* c = *code;
    if (!(mm_is_valid(c) && c[1] == 'C' && c[0] == 'M')) {
        return failRead(f, MM_UNSUPPORTED_TYPE, nullptr, nullptr, nullptr);
    }
    ret = mm_read_mtx_crd_size(f, M, N, nz);
    if (ret != 0)
        return failRead(f, ret, nullptr, nullptr, nullptr);

    // Room for at least one element, so that an empty matrix still hands out arrays.
    const size_t n = *nz > 0 ? static_cast<size_t>(*nz) : 1;
    int* rows = static_cast<int*>(calloc(n, sizeof(int)));
    int* cols = static_cast<int*>(calloc(n, sizeof(int)));
    double* values = nullptr;
    if (rows == nullptr || cols == nullptr)
        return failRead(f, MM_PREMATURE_EOF, rows, cols, values);
    if (c[2] == 'C' || c[2] == 'R') {
        values = static_cast<double*>(malloc(n * (c[2] == 'C' ? 2 : 1) * sizeof(double)));
        if (values == nullptr)
            return failRead(f, MM_PREMATURE_EOF, rows, cols, values);
    }
    if (c[2] != 'I') {
        ret = mm_read_mtx_crd_data(f, *M, *N, *nz, rows, cols, values, c);
        if (ret != 0)
            return failRead(f, ret, rows, cols, values);
    }
    if (f != stdin)
        fclose(f);
    *I = rows;
    *J = cols;
    *val = values;
    return 0;
}

int mm_write_mtx_crd(const char* fname, int M, int N, int nz, const int I[], const int J[],
                     const double val[], const MM_typecode code)
{
    char* text = mm_typecode_to_str(code);
    if (text == nullptr)
        return MM_UNSUPPORTED_TYPE;
    FILE* f = strcmp(fname, "stdout") == 0 ? stdout : fopen(fname, "w");
    if (f == nullptr) {
        free(text);
        return MM_COULD_NOT_WRITE_FILE;
    }
    bool ok = fprintf(f, "%s ", banner) >= 0;
    ok = fprintf(f, "%s\n", text) >= 0 && ok;
    free(text);
    ok = fprintf(f, "%d %d %d\n", M, N, nz) >= 0 && ok;
    int ret = 0;
    switch (code[2]) {
    case 'P':
        for (long k = 0; k < nz && ok; ++k)
            ok = fprintf(f, "%d %d\n", I[k], J[k]) >= 0;
        break;
    case 'R':
        for (long k = 0; k < nz && ok; ++k) {
            ok = fprintf(f, "%d %d %20.16g\n", I[k], J[k], val[k]) >= 0;
        }
        break;
    case 'C':
        for (long k = 0; k < nz && ok; ++k) {
            ok = fprintf(f, "%d %d %20.16g %20.16g\n", I[k], J[k], val[2 * k], val[2 * k + 1]) >= 0;
        }
        break;
    default:
        ret = MM_UNSUPPORTED_TYPE;
        break;
    }
    if (f != stdout) {
        ok = fclose(f) == 0 && ok;
    } else {
        ok = fflush(f) == 0 && ok;
    }
    if (ret != 0)
        return ret;
    return ok ? 0 : MM_COULD_NOT_WRITE_FILE;
}

int mm_read_unsymmetric_sparse(const char* fname, int* M_, int* N_, int* nz_, double** val_,
                               int** I_, int** J_)
{
    FILE* f = fopen(fname, "r");
    if (f == nullptr)
        return -1;
    MM_typecode code;
    if (mm_read_banner(f, &code) != 0) {
        printf("mm_read_unsymetric: Could not process Matrix Market banner ");
        printf(" in file [%s]\n", fname);
        fclose(f);
        return -1;
    }
    if (!(code[2] == 'R' && code[0] == 'M' && code[1] == 'C')) {
        char* text = mm_typecode_to_str(code);
        fprintf(stderr, "Sorry, this application does not support ");
        fprintf(stderr, "Market Market type: [%s]\n", text != nullptr ? text : "");
        free(text);
        fclose(f);
        return -1;
    }
    int M = 0, N = 0, nz = 0;
    if (mm_read_mtx_crd_size(f, &M, &N, &nz) != 0) {
        fprintf(stderr, "read_unsymmetric_sparse(): could not parse matrix size.\n");
        fclose(f);
        return -1;
    }
    *M_ = M;
    *N_ = N;
    *nz_ = nz;
    const size_t n = nz > 0 ? static_cast<size_t>(nz) : 1;
    int* I = static_cast<int*>(malloc(n * sizeof(int)));
    int* J = static_cast<int*>(malloc(n * sizeof(int)));
    double* val = static_cast<double*>(malloc(n * sizeof(double)));
    if (I == nullptr || J == nullptr || val == nullptr)
        return failRead(f, -1, I, J, val);
    for (long k = 0; k < nz; ++k) {
        if (fscanf(f, "%d %d %lg\n", &I[k], &J[k], &val[k]) != 3)
            return failRead(f, -1, I, J, val);
        // 0-based; wraps instead of overflowing for the smallest int.
        I[k] = static_cast<int>(static_cast<unsigned>(I[k]) - 1u);
        J[k] = static_cast<int>(static_cast<unsigned>(J[k]) - 1u);
    }
    fclose(f);
    *val_ = val;
    *I_ = I;
    *J_ = J;
    return 0;
}
