// CSR product and triangular solves: see sparse_blas.h.
#include "platform/sparse_blas.h"

#include "common/com.h"

namespace {

using Z = PlatformComplex16;

// Scalar arithmetic written out, so that the complex paths do no NaN/infinity checks.
inline double zero(double) { return 0.0; }
inline Z zero(Z) { return Z{0.0, 0.0}; }
inline bool isZero(double a) { return a == 0.0; }
inline bool isZero(Z a) { return a.real == 0.0 && a.imag == 0.0; }
inline double mul(double a, double b) { return a * b; }
inline Z mul(Z a, Z b) { return Z{a.real * b.real - a.imag * b.imag, a.real * b.imag + a.imag * b.real}; }
inline double add(double a, double b) { return a + b; }
inline Z add(Z a, Z b) { return Z{a.real + b.real, a.imag + b.imag}; }
inline double sub(double a, double b) { return a - b; }
inline Z sub(Z a, Z b) { return Z{a.real - b.real, a.imag - b.imag}; }
// Textbook quotient, without scaling.
inline double div(double a, double b) { return a / b; }
inline Z div(Z a, Z b)
{
    const double d = b.real * b.real + b.imag * b.imag;
    return Z{(a.real * b.real + a.imag * b.imag) / d, (a.imag * b.real - a.real * b.imag) / d};
}

bool isChar(const char* s, char lower) { return s != nullptr && (*s == lower || *s == lower - 32); }

// Checks the arguments of a product; anything the library never passes is a contract failure.
bool transposedProduct(const char* transa, int m, int k, const char* matdescra, const int* pntrb,
                       const int* pntre)
{
    comAssert(nullptr, isChar(transa, 'n') || isChar(transa, 't'),
              "Unsupported operation '%c' in sparse matrix vector product",
              transa != nullptr ? *transa : '?');
    comAssert(nullptr, matdescra != nullptr && isChar(matdescra, 'g') && isChar(matdescra + 3, 'f'),
              "Unsupported descriptor \"%.6s\" in sparse matrix vector product",
              matdescra != nullptr ? matdescra : "");
    comAssert(nullptr, m >= 0 && m == k, "Unsupported shape %d x %d in sparse matrix vector product",
              m, k);
    comAssert(nullptr, pntre == pntrb + 1, "Unsupported row end array in sparse matrix vector product");
    return isChar(transa, 't');
}

// y := alpha A x + beta y; beta 0 does not read y.
template <class V>
void csrmv(int m, V alpha, const V* val, const int* col, const int* ptr, const V* x, V beta,
           V* y)
{
    const bool beta0 = isZero(beta);
    for (int i = 0; i < m; ++i) {
        V s = zero(alpha);
        for (int p = ptr[i] - 1; p < ptr[i + 1] - 1; ++p) s = add(s, mul(val[p], x[col[p] - 1]));
        y[i] = beta0 ? mul(alpha, s) : add(mul(alpha, s), mul(beta, y[i]));
    }
}

// y := alpha A^T x + beta y; beta 0 does not read y.
template <class V>
void csrmvT(int m, V alpha, const V* val, const int* col, const int* ptr, const V* x, V beta,
            V* y)
{
    const bool beta0 = isZero(beta);
    for (int i = 0; i < m; ++i) y[i] = beta0 ? zero(beta) : mul(beta, y[i]);
    for (int i = 0; i < m; ++i) {
        const V ax = mul(alpha, x[i]);
        for (int p = ptr[i] - 1; p < ptr[i + 1] - 1; ++p) {
            V& t = y[col[p] - 1];
            t = add(t, mul(val[p], ax));
        }
    }
}

// Solves op(T) y = x for T the lower (upper false) or upper triangle of A, stored diagonal.
template <class V>
void csrtrsv(bool upper, bool trans, int m, const V* val, const int* ptr, const int* col,
             const V* x, V* y)
{
    if (!trans) {
        // Row-oriented substitution, forward for lower, backward for upper.
        for (int step = 0; step < m; ++step) {
            const int i = upper ? m - 1 - step : step;
            V s = zero(x[0]);
            V d = zero(x[0]);
            for (int p = ptr[i] - 1; p < ptr[i + 1] - 1; ++p) {
                const int j = col[p] - 1;
                if (j == i) {
                    d = val[p];
                } else if (upper ? j > i : j < i) {
                    s = add(s, mul(val[p], y[j]));
                }
            }
            y[i] = div(sub(x[i], s), d);
        }
        return;
    }
    // T^T y = x, column-oriented: backward for lower, forward for upper.
    for (int i = 0; i < m; ++i) y[i] = x[i];
    for (int step = 0; step < m; ++step) {
        const int i = upper ? step : m - 1 - step;
        V d = zero(x[0]);
        for (int p = ptr[i] - 1; p < ptr[i + 1] - 1; ++p) {
            if (col[p] - 1 == i) d = val[p];
        }
        const V yi = div(y[i], d);
        y[i] = yi;
        for (int p = ptr[i] - 1; p < ptr[i + 1] - 1; ++p) {
            const int j = col[p] - 1;
            if (upper ? j > i : j < i) y[j] = sub(y[j], mul(val[p], yi));
        }
    }
}

// Checks the arguments of a solve and returns (upper, trans).
void checkSolve(const char* uplo, const char* transa, const char* diag, int m, bool* upper,
                bool* trans)
{
    comAssert(nullptr, isChar(uplo, 'l') || isChar(uplo, 'u'),
              "Unsupported triangle '%c' in sparse triangle solver", uplo != nullptr ? *uplo : '?');
    comAssert(nullptr, isChar(transa, 'n') || isChar(transa, 't'),
              "Unsupported operation '%c' in sparse triangle solver",
              transa != nullptr ? *transa : '?');
    comAssert(nullptr, isChar(diag, 'n'), "Unsupported diagonal '%c' in sparse triangle solver",
              diag != nullptr ? *diag : '?');
    comAssert(nullptr, m >= 0, "Unsupported size %d in sparse triangle solver", m);
    *upper = isChar(uplo, 'u');
    *trans = isChar(transa, 't');
}

}  // namespace

void mkl_dcsrmv(const char* transa, const int* m, const int* k, const double* alpha,
                const char* matdescra, const double* val, const int* indx, const int* pntrb,
                const int* pntre, const double* x, const double* beta, double* y)
{
    if (transposedProduct(transa, *m, *k, matdescra, pntrb, pntre)) {
        csrmvT(*m, *alpha, val, indx, pntrb, x, *beta, y);
    } else {
        csrmv(*m, *alpha, val, indx, pntrb, x, *beta, y);
    }
}

void mkl_zcsrmv(const char* transa, const int* m, const int* k, const PlatformComplex16* alpha,
                const char* matdescra, const PlatformComplex16* val, const int* indx,
                const int* pntrb, const int* pntre, const PlatformComplex16* x,
                const PlatformComplex16* beta, PlatformComplex16* y)
{
    if (transposedProduct(transa, *m, *k, matdescra, pntrb, pntre)) {
        csrmvT(*m, *alpha, val, indx, pntrb, x, *beta, y);
    } else {
        csrmv(*m, *alpha, val, indx, pntrb, x, *beta, y);
    }
}

void mkl_dcsrtrsv(const char* uplo, const char* transa, const char* diag, const int* m,
                  const double* a, const int* ia, const int* ja, const double* x, double* y)
{
    bool upper = false, trans = false;
    checkSolve(uplo, transa, diag, *m, &upper, &trans);
    csrtrsv(upper, trans, *m, a, ia, ja, x, y);
}

void mkl_zcsrtrsv(const char* uplo, const char* transa, const char* diag, const int* m,
                  const PlatformComplex16* a, const int* ia, const int* ja,
                  const PlatformComplex16* x, PlatformComplex16* y)
{
    bool upper = false, trans = false;
    checkSolve(uplo, transa, diag, *m, &upper, &trans);
    csrtrsv(upper, trans, *m, a, ia, ja, x, y);
}
