// Matrix Market routines: banner, type code text, size lines and coordinate data.
// They work on streams alone and hand out memory from malloc, which the caller frees.
#include "file/mmio.h"

#include <cstdlib>
#include <cstring>

namespace {

constexpr int lineLength = 1025;  // a banner or size line: 1024 characters and the terminator
constexpr int wordLength = 64;    // a banner word: 63 characters and the terminator
const char banner[] = "%%MatrixMarket";

// White space as the "%s" conversion of the C locale sees it.
bool isBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

// Splits line into at most five blank-separated words, as "%s %s %s %s %s" would, but keeps
// only where each word starts and how long it is, so that no word can overrun a buffer.
int splitWords(const char* line, const char* start[5], size_t length[5])
{
    int n = 0;
    const char* p = line;
    while (n < 5) {
        while (*p != '\0' && isBlank(*p)) ++p;
        if (*p == '\0') break;
        start[n] = p;
        while (*p != '\0' && !isBlank(*p)) ++p;
        length[n] = static_cast<size_t>(p - start[n]);
        ++n;
    }
    return n;
}

// Copies a word into a word buffer, lower-cased (ASCII letters only, as in the C locale).
void lowerWord(char* dst, const char* src, size_t n)
{
    for (size_t i = 0; i < n; ++i) {
        const char c = src[i];
        dst[i] = (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
    }
    dst[n] = '\0';
}

const char* objectWord(char c) { return c == 'M' ? "matrix" : nullptr; }

const char* formatWord(char c)
{
    switch (c) {
    case 'C': return "coordinate";
    case 'A': return "array";
    default: return nullptr;
    }
}

const char* fieldWord(char c)
{
    switch (c) {
    case 'R': return "real";
    case 'C': return "complex";
    case 'P': return "pattern";
    case 'I': return "integer";
    default: return nullptr;
    }
}

const char* symmetryWord(char c)
{
    switch (c) {
    case 'G': return "general";
    case 'S': return "symmetric";
    case 'H': return "hermitian";
    case 'K': return "skew-symmetric";
    default: return nullptr;
    }
}

// Reads a size line of items integers: the first line that does not begin with "%" is scanned;
// when it holds fewer than items integers the stream is scanned on with the same format. Ends
// with 12 at end of input or at text that is not an integer (the scan then makes no progress
// and would otherwise repeat forever).
int readSizeLine(FILE* f, int items, int* a, int* b, int* c)
{
    char line[lineLength];
    do {
        if (fgets(line, lineLength, f) == nullptr) return MM_PREMATURE_EOF;
    } while (line[0] == '%');
    const int got = items == 3 ? sscanf(line, "%d %d %d", a, b, c) : sscanf(line, "%d %d", a, b);
    if (got == items) return 0;
    for (;;) {
        const int n = items == 3 ? fscanf(f, "%d %d %d", a, b, c) : fscanf(f, "%d %d", a, b);
        if (n == items) return 0;
        if (n == EOF || n == 0) return MM_PREMATURE_EOF;
    }
}

// Frees the arrays of a failed whole-file read and closes a named file.
int failRead(FILE* f, int code, int* I, int* J, double* val)
{
    free(I);
    free(J);
    free(val);
    if (f != stdin) fclose(f);
    return code;
}

}  // namespace

int mm_read_banner(FILE* f, MM_typecode* code)
{
    char* c = *code;
    c[0] = ' ';
    c[1] = ' ';
    c[2] = ' ';
    c[3] = 'G';

    char line[lineLength];
    if (fgets(line, lineLength, f) == nullptr) return MM_PREMATURE_EOF;
    const char* start[5];
    size_t length[5];
    if (splitWords(line, start, length) < 5) return MM_PREMATURE_EOF;
    if (length[0] < sizeof banner - 1 || strncmp(start[0], banner, sizeof banner - 1) != 0) {
        return MM_NO_HEADER;
    }
    if (length[0] >= wordLength) return MM_UNSUPPORTED_TYPE;

    // A word longer than its buffer cannot be a known word: it is refused at its position.
    char word[wordLength];
    auto take = [&](int k) {
        if (length[k] >= wordLength) return false;
        lowerWord(word, start[k], length[k]);
        return true;
    };

    if (!take(1) || strcmp(word, "matrix") != 0) return MM_UNSUPPORTED_TYPE;
    c[0] = 'M';

    if (!take(2)) return MM_UNSUPPORTED_TYPE;
    if (strcmp(word, "coordinate") == 0) {
        c[1] = 'C';
    } else if (strcmp(word, "array") == 0) {
        c[1] = 'A';
    } else {
        return MM_UNSUPPORTED_TYPE;
    }

    if (!take(3)) return MM_UNSUPPORTED_TYPE;
    if (strcmp(word, "real") == 0) {
        c[2] = 'R';
    } else if (strcmp(word, "complex") == 0) {
        c[2] = 'C';
    } else if (strcmp(word, "pattern") == 0) {
        c[2] = 'P';
    } else if (strcmp(word, "integer") == 0) {
        c[2] = 'I';
    } else {
        return MM_UNSUPPORTED_TYPE;
    }

    if (!take(4)) return MM_UNSUPPORTED_TYPE;
    if (strcmp(word, "general") == 0) {
        c[3] = 'G';
    } else if (strcmp(word, "symmetric") == 0) {
        c[3] = 'S';
    } else if (strcmp(word, "hermitian") == 0) {
        c[3] = 'H';
    } else if (strcmp(word, "skew-symmetric") == 0) {
        c[3] = 'K';
    } else {
        return MM_UNSUPPORTED_TYPE;
    }
    return 0;
}

char* mm_strdup(const char* text)
{
    const size_t n = strlen(text) + 1;
    char* copy = static_cast<char*>(malloc(n));
    if (copy == nullptr) return nullptr;
    memcpy(copy, text, n);
    return copy;
}

char* mm_typecode_to_str(const MM_typecode code)
{
    const char* object = objectWord(code[0]);
    const char* format = formatWord(code[1]);
    const char* field = fieldWord(code[2]);
    const char* symmetry = symmetryWord(code[3]);
    if (object == nullptr || format == nullptr || field == nullptr || symmetry == nullptr) {
        return nullptr;
    }
    char line[lineLength];
    snprintf(line, sizeof line, "%s %s %s %s", object, format, field, symmetry);
    return mm_strdup(line);
}

int mm_is_valid(const MM_typecode code)
{
    if (code[0] != 'M') return 0;
    if (code[1] == 'A' && code[2] == 'P') return 0;
    if (code[2] == 'R' && code[3] == 'H') return 0;
    if (code[2] == 'P' && (code[3] == 'H' || code[3] == 'K')) return 0;
    return 1;
}

int mm_write_banner(FILE* f, const MM_typecode code)
{
    char* text = mm_typecode_to_str(code);
    if (text == nullptr) return MM_UNSUPPORTED_TYPE;
    const int n = fprintf(f, "%s %s\n", banner, text);
    free(text);
    return n < 0 ? MM_COULD_NOT_WRITE_FILE : 0;
}

int mm_write_mtx_crd_size(FILE* f, int M, int N, int nz)
{
    return fprintf(f, "%d %d %d\n", M, N, nz) < 0 ? MM_COULD_NOT_WRITE_FILE : 0;
}

int mm_write_mtx_array_size(FILE* f, int M, int N)
{
    return fprintf(f, "%d %d\n", M, N) < 0 ? MM_COULD_NOT_WRITE_FILE : 0;
}

int mm_read_mtx_crd_size(FILE* f, int* M, int* N, int* nz)
{
    *M = *N = *nz = 0;
    return readSizeLine(f, 3, M, N, nz);
}

int mm_read_mtx_array_size(FILE* f, int* M, int* N)
{
    *M = *N = 0;
    return readSizeLine(f, 2, M, N, nullptr);
}

int mm_read_mtx_crd_entry(FILE* f, int* I, int* J, double* real, double* imag,
                          const MM_typecode code)
{
    switch (code[2]) {
    case 'C': return fscanf(f, "%d %d %lg %lg", I, J, real, imag) == 4 ? 0 : MM_PREMATURE_EOF;
    case 'R': return fscanf(f, "%d %d %lg\n", I, J, real) == 3 ? 0 : MM_PREMATURE_EOF;
    case 'P': return fscanf(f, "%d %d", I, J) == 2 ? 0 : MM_PREMATURE_EOF;
    default: return MM_UNSUPPORTED_TYPE;
    }
}

int mm_read_mtx_crd_data(FILE* f, int, int, int nz, int I[], int J[], double val[],
                         const MM_typecode code)
{
    const char field = code[2];
    if (field != 'C' && field != 'R' && field != 'P') return MM_UNSUPPORTED_TYPE;
    for (long k = 0; k < nz; ++k) {
        int n = 0;
        switch (field) {
        case 'C':
            n = fscanf(f, "%d %d %lg %lg", &I[k], &J[k], &val[2 * k], &val[2 * k + 1]) - 4;
            break;
        case 'R': n = fscanf(f, "%d %d %lg\n", &I[k], &J[k], &val[k]) - 3; break;
        default: n = fscanf(f, "%d %d", &I[k], &J[k]) - 2; break;
        }
        if (n != 0) return MM_PREMATURE_EOF;
    }
    return 0;
}

int mm_read_mtx_crd(const char* fname, int* M, int* N, int* nz, int** I, int** J, double** val,
                    MM_typecode* code)
{
    FILE* f = strcmp(fname, "stdin") == 0 ? stdin : fopen(fname, "r");
    if (f == nullptr) return MM_COULD_NOT_READ_FILE;

    int ret = mm_read_banner(f, code);
    if (ret != 0) return failRead(f, ret, nullptr, nullptr, nullptr);
    const char* c = *code;
    if (!(mm_is_valid(c) && c[1] == 'C' && c[0] == 'M')) {
        return failRead(f, MM_UNSUPPORTED_TYPE, nullptr, nullptr, nullptr);
    }
    ret = mm_read_mtx_crd_size(f, M, N, nz);
    if (ret != 0) return failRead(f, ret, nullptr, nullptr, nullptr);

    // Room for at least one element, so that an empty matrix still hands out arrays.
    const size_t n = *nz > 0 ? static_cast<size_t>(*nz) : 1;
    int* rows = static_cast<int*>(calloc(n, sizeof(int)));
    int* cols = static_cast<int*>(calloc(n, sizeof(int)));
    double* values = nullptr;
    if (rows == nullptr || cols == nullptr) return failRead(f, MM_PREMATURE_EOF, rows, cols, values);
    if (c[2] == 'C' || c[2] == 'R') {
        values = static_cast<double*>(malloc(n * (c[2] == 'C' ? 2 : 1) * sizeof(double)));
        if (values == nullptr) return failRead(f, MM_PREMATURE_EOF, rows, cols, values);
    }
    if (c[2] != 'I') {
        ret = mm_read_mtx_crd_data(f, *M, *N, *nz, rows, cols, values, c);
        if (ret != 0) return failRead(f, ret, rows, cols, values);
    }
    if (f != stdin) fclose(f);
    *I = rows;
    *J = cols;
    *val = values;
    return 0;
}

int mm_write_mtx_crd(const char* fname, int M, int N, int nz, const int I[], const int J[],
                     const double val[], const MM_typecode code)
{
    char* text = mm_typecode_to_str(code);
    if (text == nullptr) return MM_UNSUPPORTED_TYPE;
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
        for (long k = 0; k < nz && ok; ++k) ok = fprintf(f, "%d %d\n", I[k], J[k]) >= 0;
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
    default: ret = MM_UNSUPPORTED_TYPE; break;
    }
    if (f != stdout) {
        ok = fclose(f) == 0 && ok;
    } else {
        ok = fflush(f) == 0 && ok;
    }
    if (ret != 0) return ret;
    return ok ? 0 : MM_COULD_NOT_WRITE_FILE;
}

int mm_read_unsymmetric_sparse(const char* fname, int* M_, int* N_, int* nz_, double** val_,
                               int** I_, int** J_)
{
    FILE* f = fopen(fname, "r");
    if (f == nullptr) return -1;
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
    if (I == nullptr || J == nullptr || val == nullptr) return failRead(f, -1, I, J, val);
    for (long k = 0; k < nz; ++k) {
        if (fscanf(f, "%d %d %lg\n", &I[k], &J[k], &val[k]) != 3) return failRead(f, -1, I, J, val);
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
