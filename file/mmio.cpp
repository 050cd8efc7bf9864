// Matrix Market routines: banner, type code text, size lines and coordinate data.
// They work on streams alone and hand out memory from malloc, which the caller frees.
#include "file/mmio.h"

#include <cstdlib>
#include <cstring>

namespace {

constexpr int lineLength = 1025; // a banner or size line: 1024 characters and the terminator
constexpr int wordLength = 64;   // a banner word: 63 characters and the terminator
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
        while (*p != '\0' && isBlank(*p))
            ++p;
        if (*p == '\0')
            break;
        start[n] = p;
        while (*p != '\0' && !isBlank(*p))
            ++p;
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

const char* objectWord(char c)
{
    return c == 'M' ? "matrix" : nullptr;
}

const char* formatWord(char c)
{
    switch (c) {
    case 'C':
        return "coordinate";
    case 'A':
        return "array";
    default:
        return nullptr;
    }
}

const char* fieldWord(char c)
{
    switch (c) {
    case 'R':
        return "real";
    case 'C':
        return "complex";
    case 'P':
        return "pattern";
    case 'I':
        return "integer";
    default:
        return nullptr;
    }
}

const char* symmetryWord(char c)
{
    switch (c) {
    case 'G':
        return "general";
    case 'S':
        return "symmetric";
    case 'H':
        return "hermitian";
    case 'K':
        return "skew-symmetric";
    default:
        return nullptr;
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
        if (fgets(line, lineLength, f) == nullptr)
            return MM_PREMATURE_EOF;
    } while (line[0] == '%');
    const int got = items == 3 ? sscanf(line, "%d %d %d", a, b, c) : sscanf(line, "%d %d", a, b);
    if (got == items)
        return 0;
    for (;;) {
        const int n = items == 3 ? fscanf(f, "%d %d %d", a, b, c) : fscanf(f, "%d %d", a, b);
        if (n == items)
            return 0;
        if (n == EOF || n == 0)
            return MM_PREMATURE_EOF;
    }
}

} // namespace

int mm_read_banner(FILE* f, MM_typecode* code)
{
    char* c = *code;
    c[0] = ' ';
    c[1] = ' ';
    c[2] = ' ';
    c[3] = 'G';

    char line[lineLength];
    if (fgets(line, lineLength, f) == nullptr)
        return MM_PREMATURE_EOF;
    const char* start[5];
    size_t length[5];
    if (splitWords(line, start, length) < 5)
        return MM_PREMATURE_EOF;
    if (length[0] < sizeof banner - 1 || strncmp(start[0], banner, sizeof banner - 1) != 0) {
        return MM_NO_HEADER;
    }
    if (length[0] >= wordLength)
        return MM_UNSUPPORTED_TYPE;

    // A word longer than its buffer cannot be a known word: it is refused at its position.
    char word[wordLength];
    auto take = [&](int k) {
        if (length[k] >= wordLength)
            return false;
        lowerWord(word, start[k], length[k]);
        return true;
    };

    if (!take(1) || strcmp(word, "matrix") != 0)
        return MM_UNSUPPORTED_TYPE;
    c[0] = 'M';

    if (!take(2))
        return MM_UNSUPPORTED_TYPE;
    if (strcmp(word, "coordinate") == 0) {
        c[1] = 'C';
    } else if (strcmp(word, "array") == 0) {
        c[1] = 'A';
    } else {
        return MM_UNSUPPORTED_TYPE;
    }

    if (!take(3))
        return MM_UNSUPPORTED_TYPE;
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

    if (!take(4))
        return MM_UNSUPPORTED_TYPE;
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
    if (copy == nullptr)
        return nullptr;
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
    if (code[0] != 'M')
        return 0;
    if (code[1] == 'A' && code[2] == 'P')
        return 0;
    if (code[2] == 'R' && code[3] == 'H')
        return 0;
    if (code[2] == 'P' && (code[3] == 'H' || code[3] == 'K'))
        return 0;
    return 1;
}

int mm_write_banner(FILE* f, const MM_typecode code)
{
    char* text = mm_typecode_to_str(code);
    if (text == nullptr)
        return MM_UNSUPPORTED_TYPE;
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
    case 'C':
        return fscanf(f, "%d %d %lg %lg", I, J, real, imag) == 4 ? 0 : MM_PREMATURE_EOF;
    case 'R':
        return fscanf(f, "%d %d %lg\n", I, J, real) == 3 ? 0 : MM_PREMATURE_EOF;
    case 'P':
        return fscanf(f, "%d %d", I, J) == 2 ? 0 : MM_PREMATURE_EOF;
    default:
        return MM_UNSUPPORTED_TYPE;
    }
}

int mm_read_mtx_crd_data(FILE* f, int, int, int nz, int I[], int J[], double val[],
                         const MM_typecode code)
{
    const char field = code[2];
    if (field != 'C' && field != 'R' && field != 'P')
        return MM_UNSUPPORTED_TYPE;
    for (long k = 0; k < nz; ++k) {
        int n = 0;
        switch (field) {
        case 'C':
            n = fscanf(f, "%d %d %lg %lg", &I[k], &J[k], &val[2 * k], &val[2 * k + 1]) - 4;
            break;
        case 'R':
            n = fscanf(f, "%d %d %lg\n", &I[k], &J[k], &val[k]) - 3;
            break;
        default:
            n = fscanf(f, "%d %d", &I[k], &J[k]) - 2;
            break;
        }
        if (n != 0)
            return MM_PREMATURE_EOF;
    }
    return 0;
}
