// Test problems and a solve harness for the Krylov solver suites.
#include "iter_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <sstream>

namespace itertest {

ComLinMat* csr(KwilHandle* handle, int n, bool cplx, std::vector<Entry> entries)
{
    std::sort(entries.begin(), entries.end(),
              [](const Entry& l, const Entry& r) { return l.i != r.i ? l.i < r.i : l.j < r.j; });
    const int nnz = static_cast<int>(entries.size());
    ComLinMat* a = comLinMatCreate(handle, MAT_CSR, cplx ? LIN_COMP : LIN_REAL, n, nnz);
    if (a == nullptr)
        return nullptr;
    int p = 0;
    for (int i = 0; i < n; ++i) {
        a->row[i] = p + 1;
        for (; p < nnz && entries[p].i == i; ++p) {
            a->col[p] = entries[p].j + 1;
            if (cplx) {
                a->compData[2 * p] = entries[p].v.real();
                a->compData[2 * p + 1] = entries[p].v.imag();
            } else {
                a->realData[p] = entries[p].v.real();
            }
        }
    }
    a->row[n] = nnz + 1;
    return a;
}

std::vector<Entry> laplace1d(int n)
{
    std::vector<Entry> e;
    for (int i = 0; i < n; ++i) {
        if (i > 0)
            e.push_back({i, i - 1, -1.0});
        e.push_back({i, i, 2.0});
        if (i + 1 < n)
            e.push_back({i, i + 1, -1.0});
    }
    return e;
}

namespace {

// 5-point stencil on an m x m grid: centre value and the four neighbour values.
std::vector<Entry> stencil(int m, Cplx centre, Cplx west, Cplx east, Cplx south, Cplx north)
{
    std::vector<Entry> e;
    for (int y = 0; y < m; ++y) {
        for (int x = 0; x < m; ++x) {
            const int i = y * m + x;
            if (y > 0)
                e.push_back({i, i - m, south});
            if (x > 0)
                e.push_back({i, i - 1, west});
            e.push_back({i, i, centre});
            if (x + 1 < m)
                e.push_back({i, i + 1, east});
            if (y + 1 < m)
                e.push_back({i, i + m, north});
        }
    }
    return e;
}

} // namespace

std::vector<Entry> convDiff2d(int m, double c)
{
    const double h = 1.0 / (m + 1);
    const double d = 1.0 / (h * h);
    const double up = c / h; // first-order upwind for c > 0
    return stencil(m, 4.0 * d + 2.0 * up, -d - up, -d, -d - up, -d);
}

std::vector<Entry> helmholtz2d(int m, Cplx shift)
{
    const double h = 1.0 / (m + 1);
    const double d = 1.0 / (h * h);
    return stencil(m, 4.0 * d - shift, -d, -d, -d, -d);
}

std::vector<Entry> complexConvDiff2d(int m)
{
    const double h = 1.0 / (m + 1);
    const double d = 1.0 / (h * h);
    const Cplx c(20.0 / h, 10.0 / h);
    return stencil(m, 4.0 * d + c + Cplx(0.0, 50.0), -d - c, -d, Cplx(-d, 5.0 * d), -d);
}

ComLinVec* vec(KwilHandle* handle, bool cplx, const std::vector<Cplx>& v)
{
    const int n = static_cast<int>(v.size());
    ComLinVec* r = comLinVecCreate(handle, cplx ? LIN_COMP : LIN_REAL, n);
    if (r == nullptr)
        return nullptr;
    for (int i = 0; i < n; ++i) {
        if (cplx) {
            r->compData[2 * i] = v[i].real();
            r->compData[2 * i + 1] = v[i].imag();
        } else {
            r->realData[i] = v[i].real();
        }
    }
    return r;
}

std::vector<Cplx> values(const ComLinVec* x)
{
    std::vector<Cplx> v(x->size);
    for (int i = 0; i < x->size; ++i) {
        v[i] = x->dataType == LIN_REAL ? Cplx(x->realData[i], 0.0)
                                       : Cplx(x->compData[2 * i], x->compData[2 * i + 1]);
    }
    return v;
}

std::vector<Cplx> product(const ComLinMat* a, const std::vector<Cplx>& x)
{
    std::vector<Cplx> y(a->size, 0.0);
    for (int i = 0; i < a->size; ++i) {
        for (int p = a->row[i] - 1; p < a->row[i + 1] - 1; ++p) {
            const Cplx v = a->dataType == LIN_REAL
                               ? Cplx(a->realData[p], 0.0)
                               : Cplx(a->compData[2 * p], a->compData[2 * p + 1]);
            y[i] += v * x[a->col[p] - 1];
        }
    }
    return y;
}

double norm(const std::vector<Cplx>& v)
{
    double s = 0.0;
    for (const Cplx& z : v)
        s += std::norm(z);
    return std::sqrt(s);
}

double relResidual(const ComLinMat* a, const std::vector<Cplx>& b, const std::vector<Cplx>& x)
{
    std::vector<Cplx> r = product(a, x);
    for (size_t i = 0; i < r.size(); ++i)
        r[i] = b[i] - r[i];
    return norm(r) / norm(b);
}

std::string fmt(const char* format, ...)
{
    char buf[512];
    va_list args;
    va_start(args, format);
    vsnprintf(buf, sizeof buf, format, args);
    va_end(args);
    return buf;
}

Problem::Problem(const std::vector<Entry>& entries, int size, bool isCplx, const std::string& opts)
    : handle(nullptr), a(nullptr), b(nullptr), x(nullptr), n(size), cplx(isCplx)
{
    {
        kwiltest::Capture quiet; // the handle's own start lines
        handle = kwiltest::makeHandle(dir, "TRACE 1\n" + opts);
    }
    if (handle == nullptr)
        return;
    a = csr(handle, n, cplx, entries);
    xs.resize(n);
    for (int i = 0; i < n; ++i) {
        xs[i] = Cplx(1.0 + 0.3 * std::sin(0.7 * i), cplx ? 0.2 * std::cos(0.3 * i) : 0.0);
    }
    bv = product(a, xs);
    b = vec(handle, cplx, bv);
    x = comLinVecCreateInit(handle, cplx ? LIN_COMP : LIN_REAL, n, ComComplex{0.0, 0.0});
}

Problem::~Problem()
{
    if (handle == nullptr)
        return;
    comLinMatDelete(handle, a);
    comLinVecDelete(handle, b);
    comLinVecDelete(handle, x);
    kwilTerm(handle);
}

void Problem::setB(const std::vector<Cplx>& v)
{
    comLinVecDelete(handle, b);
    bv = v;
    b = vec(handle, cplx, v);
    xs.clear();
}

void Problem::setX(const std::vector<Cplx>& v)
{
    comLinVecDelete(handle, x);
    x = vec(handle, cplx, v);
}

int Problem::run(Solver solver)
{
    comLinVecInit(handle, x, ComComplex{0.0, 0.0});
    return runFrom(solver);
}

int Problem::runFrom(Solver solver)
{
    kwiltest::Capture cap;
    const int result = solver(handle, a, b, x);
    cap.take();
    out = cap.outLines();
    err = cap.errLines();
    return result;
}

double Problem::error() const
{
    const std::vector<Cplx> v = values(x);
    std::vector<Cplx> d(n);
    for (int i = 0; i < n; ++i)
        d[i] = v[i] - xs[i];
    return norm(d) / norm(xs);
}

std::string findLine(const std::vector<std::string>& lines, const std::string& prefix)
{
    for (const std::string& l : lines) {
        if (l.compare(0, prefix.size(), prefix) == 0)
            return l;
    }
    return "";
}

EndLine endLine(const std::vector<std::string>& out, const std::string& name)
{
    EndLine e;
    const std::string head = "KWILTRC: Iter " + name + " end ";
    const std::string l = findLine(out, head);
    if (l.empty())
        return e;
    e.found = sscanf(l.c_str() + head.size(), "%d step %d abs norm %lf resolve %lf", &e.result,
                     &e.step, &e.norm, &e.tol) == 4;
    return e;
}

} // namespace itertest
