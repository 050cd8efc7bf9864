// Builders, comparisons and generators for the preprocessing and ILU tests.
#include "precond_util.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>
#include <random>
#include <sstream>

namespace prectest {

TestHandle::TestHandle() : intOpt(), dblOpt(), h{intOpt, dblOpt, nullptr, nullptr, nullptr}
{
    for (const ComOptIntInfo* o = optIntInfo; o->key >= 0; ++o)
        intOpt[o->key] = o->def;
    for (const ComOptDoubleInfo* o = optDoubleInfo; o->key >= 0; ++o)
        dblOpt[o->key] = o->def;
}

namespace {

void put(ComLinMat& m, long p, Cplx v)
{
    if (m.dataType == LIN_REAL) {
        m.realData[p] = v.real();
    } else {
        m.compData[2 * p] = v.real();
        m.compData[2 * p + 1] = v.imag();
    }
}

Cplx get(const ComLinMat& m, long p)
{
    return m.dataType == LIN_REAL ? Cplx(m.realData[p], 0.0)
                                  : Cplx(m.compData[2 * p], m.compData[2 * p + 1]);
}

} // namespace

Mat coo(int n, const std::vector<Entry>& e, bool complex)
{
    Mat m(comLinMatCreate(nullptr, MAT_COO, complex ? LIN_COMP : LIN_REAL, n,
                          static_cast<int>(e.size())));
    for (size_t p = 0; p < e.size(); ++p) {
        m->row[p] = e[p].row;
        m->col[p] = e[p].col;
        put(*m, static_cast<long>(p), e[p].v);
    }
    return m;
}

Mat csr(int n, std::vector<Entry> e, bool complex)
{
    std::stable_sort(e.begin(), e.end(), [](const Entry& a, const Entry& b) {
        return a.row != b.row ? a.row < b.row : a.col < b.col;
    });
    Mat m(comLinMatCreate(nullptr, MAT_CSR, complex ? LIN_COMP : LIN_REAL, n,
                          static_cast<int>(e.size())));
    std::vector<int> count(n + 1, 0);
    for (const Entry& x : e)
        ++count[x.row];
    m->row[0] = 1;
    for (int i = 1; i <= n; ++i)
        m->row[i] = m->row[i - 1] + count[i];
    for (size_t p = 0; p < e.size(); ++p) {
        m->col[p] = e[p].col;
        put(*m, static_cast<long>(p), e[p].v);
    }
    return m;
}

Mat csrDense(int n, const std::vector<Cplx>& a, bool complex)
{
    std::vector<Entry> e;
    for (int i = 0; i < n; ++i) {
        for (int j = 0; j < n; ++j) {
            const Cplx v = a[static_cast<size_t>(i) * n + j];
            if (i == j || v != Cplx(0.0, 0.0))
                e.push_back({i + 1, j + 1, v});
        }
    }
    return csr(n, e, complex);
}

std::vector<Entry> entries(const ComLinMat& m)
{
    std::vector<Entry> e;
    for (int p = 0; p < m.dataNum; ++p) {
        int row = 0;
        if (m.type == MAT_CSR) {
            while (p + 1 >= m.row[row + 1])
                ++row;
            ++row;
        } else {
            row = m.row[p];
        }
        e.push_back({row, m.col[p], get(m, p)});
    }
    return e;
}

std::vector<Cplx> dense(const ComLinMat& m)
{
    std::vector<Cplx> d(static_cast<size_t>(m.size) * m.size);
    for (const Entry& x : entries(m))
        d[static_cast<size_t>(x.row - 1) * m.size + x.col - 1] += x.v;
    return d;
}

Mat toComplex(const ComLinMat& m)
{
    Mat c(comLinMatCreate(nullptr, m.type, LIN_COMP, m.size, m.dataNum));
    const int rows = matRowDataNum(nullptr, &m, m.type);
    std::copy(m.row, m.row + rows, c->row);
    std::copy(m.col, m.col + m.dataNum, c->col);
    for (long p = 0; p < m.dataNum; ++p)
        put(*c, p, get(m, p));
    return c;
}

Vec vec(const std::vector<Cplx>& v, bool complex)
{
    Vec x(comLinVecCreate(nullptr, complex ? LIN_COMP : LIN_REAL, static_cast<int>(v.size())));
    for (size_t i = 0; i < v.size(); ++i) {
        if (complex) {
            x->compData[2 * i] = v[i].real();
            x->compData[2 * i + 1] = v[i].imag();
        } else {
            x->realData[i] = v[i].real();
        }
    }
    return x;
}

std::vector<Cplx> values(const ComLinVec& v)
{
    std::vector<Cplx> r(v.size);
    for (int i = 0; i < v.size; ++i) {
        r[i] = v.dataType == LIN_REAL ? Cplx(v.realData[i], 0.0)
                                      : Cplx(v.compData[2 * i], v.compData[2 * i + 1]);
    }
    return r;
}

std::vector<Cplx> product(const ComLinMat& l, const ComLinMat& u)
{
    const int n = l.size;
    std::vector<Cplx> r(static_cast<size_t>(n) * n);
    const auto le = entries(l);
    std::vector<std::vector<std::pair<int, Cplx>>> urows(n);
    for (const Entry& x : entries(u))
        urows[x.row - 1].push_back({x.col - 1, x.v});
    for (const Entry& x : le) {
        for (const auto& y : urows[x.col - 1])
            r[static_cast<size_t>(x.row - 1) * n + y.first] += x.v * y.second;
    }
    return r;
}

double maxDiff(const std::vector<Cplx>& a, const std::vector<Cplx>& b)
{
    double d = 0.0;
    for (size_t i = 0; i < a.size() && i < b.size(); ++i)
        d = std::max(d, std::abs(a[i] - b[i]));
    return a.size() == b.size() ? d : INFINITY;
}

bool sameBits(const ComLinMat& a, const ComLinMat& b)
{
    if (a.type != b.type || a.size != b.size || a.dataNum != b.dataNum ||
        a.dataType != b.dataType) {
        return false;
    }
    const int rows = matRowDataNum(nullptr, &a, a.type);
    const long vals = a.dataType == LIN_REAL ? a.dataNum : 2L * a.dataNum;
    const double* av = a.dataType == LIN_REAL ? a.realData : a.compData;
    const double* bv = b.dataType == LIN_REAL ? b.realData : b.compData;
    return std::memcmp(a.row, b.row, sizeof(int) * rows) == 0 &&
           std::memcmp(a.col, b.col, sizeof(int) * a.dataNum) == 0 &&
           std::memcmp(av, bv, sizeof(double) * vals) == 0;
}

Mat randomCsr(unsigned seed, int n, double density, double dominance, bool complex)
{
    std::mt19937 gen(seed);
    std::uniform_real_distribution<double> val(-1.0, 1.0);
    std::uniform_real_distribution<double> coin(0.0, 1.0);
    std::vector<Entry> e;
    for (int i = 1; i <= n; ++i) {
        double sum = 0.0;
        for (int j = 1; j <= n; ++j) {
            if (j == i || coin(gen) >= density)
                continue;
            const Cplx v(val(gen), complex ? val(gen) : 0.0);
            sum += std::abs(v);
            e.push_back({i, j, v});
        }
        const Cplx d(dominance * sum + 0.5 + coin(gen), complex ? val(gen) : 0.0);
        e.push_back({i, i, d});
    }
    return csr(n, e, complex);
}

Mat convDiff2d(int m, double peclet)
{
    // -Laplace(u) + peclet (u_x + u_y) on the unit square, h = 1 / (m + 1), first-order upwind
    // differences (the flow points in +x and +y, so the backward neighbours take the convection).
    const long n = static_cast<long>(m) * m;
    const double h = 1.0 / (m + 1);
    const double c = peclet * h; // scaled by h^2
    const long nnz = 5 * n - 4L * m;
    Mat a(comLinMatCreate(nullptr, MAT_CSR, LIN_REAL, static_cast<int>(n), static_cast<int>(nnz)));
    long p = 0;
    a->row[0] = 1;
    for (long r = 0; r < n; ++r) {
        const long gx = r % m, gy = r / m;
        auto add = [&](long col, double v) {
            a->col[p] = static_cast<int>(col + 1);
            a->realData[p] = v;
            ++p;
        };
        if (gy > 0)
            add(r - m, -1.0 - c);
        if (gx > 0)
            add(r - 1, -1.0 - c);
        add(r, 4.0 + 2.0 * c);
        if (gx < m - 1)
            add(r + 1, -1.0);
        if (gy < m - 1)
            add(r + m, -1.0);
        a->row[r + 1] = static_cast<int>(p + 1);
    }
    return a;
}

Mat readMatrixMarket(const std::string& path, bool addDiag)
{
    std::ifstream in(path);
    if (!in)
        return nullptr;
    std::string line;
    std::getline(in, line);
    std::string lower = line;
    std::transform(lower.begin(), lower.end(), lower.begin(), ::tolower);
    if (lower.find("coordinate") == std::string::npos)
        return nullptr;
    const bool complex = lower.find("complex") != std::string::npos;
    const bool pattern = lower.find("pattern") != std::string::npos;
    const bool skew = lower.find("skew") != std::string::npos;
    const bool herm = lower.find("hermitian") != std::string::npos;
    const bool sym = skew || herm || lower.find("symmetric") != std::string::npos;
    while (std::getline(in, line) && (line.empty() || line[0] == '%')) {
    }
    long rows = 0, cols = 0, nnz = 0;
    std::istringstream(line) >> rows >> cols >> nnz;
    if (rows != cols || rows <= 0)
        return nullptr;
    std::vector<Entry> e;
    e.reserve(static_cast<size_t>(sym ? 2 * nnz : nnz) + (addDiag ? rows : 0));
    std::vector<char> hasDiag(rows + 1, 0);
    for (long k = 0; k < nnz; ++k) {
        long i = 0, j = 0;
        double re = 1.0, im = 0.0;
        in >> i >> j;
        if (!pattern)
            in >> re;
        if (complex)
            in >> im;
        if (!in)
            return nullptr;
        e.push_back({static_cast<int>(i), static_cast<int>(j), Cplx(re, im)});
        if (i == j)
            hasDiag[i] = 1;
        if (sym && i != j) {
            Cplx t(re, im);
            if (skew)
                t = -t;
            if (herm)
                t = std::conj(t);
            e.push_back({static_cast<int>(j), static_cast<int>(i), t});
        }
    }
    if (addDiag) {
        for (long i = 1; i <= rows; ++i) {
            if (!hasDiag[i])
                e.push_back({static_cast<int>(i), static_cast<int>(i), Cplx(0.0, 0.0)});
        }
    }
    return csr(static_cast<int>(rows), std::move(e), complex);
}

} // namespace prectest
