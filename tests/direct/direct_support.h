// Test systems for the direct solve: one-based CSR matrices built in the test, generators
// that need pivoting, a plain residual and a small Matrix Market reader.
#pragma once

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

#include "lin/lin.h"
#include "platform/pardiso.h"

namespace directtest {

using Cplx = std::complex<double>;

template <class S> constexpr int dataTypeOf()
{
    return std::is_same<S, double>::value ? LIN_REAL : LIN_COMP;
}

// Names of typed tests over double and Cplx.
struct ScalarNames {
    template <class T> static std::string GetName(int)
    {
        return std::is_same<T, double>::value ? "Real" : "Complex";
    }
};

// One-based CSR matrix with ascending columns, built from (row, col, value) triplets.
template <class S> struct Csr {
    int n = 0;
    std::vector<int> ia, ja;
    std::vector<S> a;

    int nnz() const { return static_cast<int>(ja.size()); }
    // A ComLinMat record that points into this matrix (no ownership).
    ComLinMat mat()
    {
        return ComLinMat{
            MAT_CSR,
            n,
            nnz(),
            ia.data(),
            ja.data(),
            dataTypeOf<S>(),
            dataTypeOf<S>() == LIN_REAL ? reinterpret_cast<double*>(a.data()) : nullptr,
            dataTypeOf<S>() == LIN_COMP ? reinterpret_cast<double*>(a.data()) : nullptr};
    }
};

// Entries at the same place are summed; entries given as explicit zeros are stored.
template <class S> Csr<S> fromTriplets(int n, std::vector<std::tuple<int, int, S>> t)
{
    std::sort(t.begin(), t.end(), [](const auto& x, const auto& y) {
        return std::tie(std::get<0>(x), std::get<1>(x)) < std::tie(std::get<0>(y), std::get<1>(y));
    });
    Csr<S> m;
    m.n = n;
    m.ia.assign(n + 1, 0);
    for (size_t k = 0; k < t.size(); ++k) {
        const auto [i, j, v] = t[k];
        if (!m.ja.empty() && k > 0 && std::get<0>(t[k - 1]) == i && std::get<1>(t[k - 1]) == j) {
            m.a.back() += v;
            continue;
        }
        m.ja.push_back(j + 1);
        m.a.push_back(v);
        ++m.ia[i + 1];
    }
    m.ia[0] = 1;
    for (int i = 0; i < n; ++i)
        m.ia[i + 1] += m.ia[i];
    return m;
}

// y = A x with a plain loop.
template <class S> std::vector<S> multiply(const Csr<S>& m, const std::vector<S>& x)
{
    std::vector<S> y(m.n, S{});
    for (int i = 0; i < m.n; ++i) {
        for (int p = m.ia[i] - 1; p < m.ia[i + 1] - 1; ++p)
            y[i] += m.a[p] * x[m.ja[p] - 1];
    }
    return y;
}

template <class S> double norm2(const std::vector<S>& v)
{
    double s = 0.0;
    for (const S& x : v)
        s += std::norm(x);
    return std::sqrt(s);
}

// ||b - A x||_2 / ||b||_2.
template <class S>
double relResidual(const Csr<S>& m, const std::vector<S>& x, const std::vector<S>& b)
{
    std::vector<S> r = multiply(m, x);
    for (int i = 0; i < m.n; ++i)
        r[i] = b[i] - r[i];
    return norm2(r) / norm2(b);
}

// A scalar of type S from a real and an imaginary part (the latter dropped for double).
template <class S> S scalar(double re, double im);
template <> inline double scalar<double>(double re, double)
{
    return re;
}
template <> inline Cplx scalar<Cplx>(double re, double im)
{
    return Cplx(re, im);
}

inline double conjOf(double v)
{
    return v;
}
inline Cplx conjOf(Cplx v)
{
    return std::conj(v);
}

// Upwind convection-diffusion on an m x m grid, five points, nonsymmetric; for complex data a
// shifted Helmholtz-type term with a genuinely complex, non-Hermitian diagonal.
template <class S> std::vector<std::tuple<int, int, S>> convDiff2d(int m, int offset = 0)
{
    std::vector<std::tuple<int, int, S>> t;
    const double h = 1.0 / (m + 1), cx = 40.0, cy = -25.0;
    for (int gy = 0; gy < m; ++gy) {
        for (int gx = 0; gx < m; ++gx) {
            const int i = offset + gy * m + gx;
            const double d = 4.0 / (h * h) + (std::abs(cx) + std::abs(cy)) / h;
            t.emplace_back(i, i, scalar<S>(d, -0.3 * d));
            if (gx > 0)
                t.emplace_back(i, i - 1, scalar<S>(-1.0 / (h * h) - std::max(cx, 0.0) / h, 0.1));
            if (gx + 1 < m)
                t.emplace_back(i, i + 1, scalar<S>(-1.0 / (h * h) + std::min(cx, 0.0) / h, -0.2));
            if (gy > 0)
                t.emplace_back(i, i - m, scalar<S>(-1.0 / (h * h) - std::max(cy, 0.0) / h, 0.05));
            if (gy + 1 < m)
                t.emplace_back(i, i + m, scalar<S>(-1.0 / (h * h) + std::min(cy, 0.0) / h, 0.3));
        }
    }
    return t;
}

// Saddle-point system [K B; B^T 0], K convection-diffusion on an m x m grid, B with full column
// rank and c = m*m/3 columns. The last c diagonal entries are zero: every second one stored as
// an explicit zero, the others missing. No LU without row exchanges exists in this order.
template <class S> Csr<S> saddlePoint(int m)
{
    const int nk = m * m, nc = nk / 3, n = nk + nc;
    auto t = convDiff2d<S>(m);
    for (int j = 0; j < nc; ++j) {
        const int c = nk + j;
        const S b1 = scalar<S>(1.0 + 0.01 * j, 0.5), b2 = scalar<S>(-0.5, 0.25 * (j % 3));
        t.emplace_back(3 * j, c, b1);
        t.emplace_back(c, 3 * j, b1);
        t.emplace_back(3 * j + 1, c, b2);
        t.emplace_back(c, 3 * j + 1, b2);
        if (j % 2 == 0)
            t.emplace_back(c, c, S{});
    }
    return fromTriplets<S>(n, t);
}

// A right-hand side with no special structure.
template <class S> std::vector<S> rhs(int n)
{
    std::vector<S> b(n);
    for (int i = 0; i < n; ++i)
        b[i] = scalar<S>(std::sin(0.7 * i + 1.0), std::cos(0.3 * i));
    return b;
}

// Reads a real or complex coordinate Matrix Market file (general, symmetric, skew-symmetric,
// hermitian) into CSR; false when the file cannot be read or has another kind.
template <class S> bool readMatrixMarket(const std::string& path, Csr<S>& out)
{
    std::ifstream in(path);
    std::string line;
    if (!std::getline(in, line))
        return false;
    std::istringstream banner(line);
    std::string head, object, format, field, symmetry;
    banner >> head >> object >> format >> field >> symmetry;
    const bool complexField = field == "complex";
    if (format != "coordinate" || complexField != (dataTypeOf<S>() == LIN_COMP))
        return false;
    while (std::getline(in, line) && (line.empty() || line[0] == '%')) {
    }
    int rows = 0, cols = 0;
    long nnz = 0;
    std::istringstream(line) >> rows >> cols >> nnz;
    if (rows != cols || rows <= 0)
        return false;
    std::vector<std::tuple<int, int, S>> t;
    for (long k = 0; k < nnz; ++k) {
        int i = 0, j = 0;
        double re = 1.0, im = 0.0;
        in >> i >> j;
        if (field != "pattern")
            in >> re;
        if (complexField)
            in >> im;
        if (!in)
            return false;
        const S v = scalar<S>(re, im);
        t.emplace_back(i - 1, j - 1, v);
        if (i != j && symmetry == "symmetric")
            t.emplace_back(j - 1, i - 1, v);
        if (i != j && symmetry == "skew-symmetric")
            t.emplace_back(j - 1, i - 1, -v);
        if (i != j && symmetry == "hermitian")
            t.emplace_back(j - 1, i - 1, conjOf(v));
    }
    out = fromTriplets<S>(rows, t);
    return true;
}

// The parameter block of one factorisation, set up as the library's direct solve does.
template <class S> struct Layer {
    explicit Layer(Csr<S>& matrix) : m(matrix)
    {
        mtype = directtest::dataTypeOf<S>() == LIN_REAL ? 11 : 13;
        n = m.n;
        iparm[0] = 1;
        iparm[1] = 2;
        iparm[7] = 2;
        iparm[9] = 13;
        iparm[10] = 1;
        iparm[12] = 1;
        iparm[17] = -1;
        iparm[18] = -1;
    }
    ~Layer() { call(-1); }
    int call(int phase, S* b = nullptr, S* x = nullptr)
    {
        int error = 12345;
        pardiso_(pt, &maxfct, &mnum, &mtype, &phase, &n, m.a.data(), ia(), ja(), &perm, &nrhs,
                 iparm, &msglvl, b, x, &error);
        return error;
    }
    // Phases 11, 22 and 33 on b; the first non-zero error code, else 0.
    int solve(const std::vector<S>& b, std::vector<S>& x)
    {
        std::vector<S> bc = b;
        x.assign(static_cast<size_t>(m.n) * nrhs, S{});
        for (int phase : {11, 22, 33}) {
            const int e = call(phase, bc.data(), x.data());
            if (e != 0)
                return e;
        }
        return 0;
    }
    const int* ia() const { return iaOwn.empty() ? m.ia.data() : iaOwn.data(); }
    const int* ja() const { return jaOwn.empty() ? m.ja.data() : jaOwn.data(); }

    Csr<S>& m;
    void* pt[64] = {};
    int iparm[64] = {};
    int maxfct = 1, mnum = 1, mtype = 0, n = 0, perm = 0, nrhs = 1, msglvl = 0;
    std::vector<int> iaOwn, jaOwn; // replacement index arrays, when set
};

} // namespace directtest
