// Helpers of the lin tests: matrices from entry lists, random CSR matrices, dense references.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <complex>
#include <random>
#include <vector>

#include "common/com.h"
#include "lin/lin.h"

namespace lintest {

using Cplx = std::complex<double>;

// An entry given by the test: 1-based row and column, value.
struct Entry {
    int row;
    int col;
    Cplx val;
};

// A handle with option arrays and nothing else; TRACE as given.
struct FakeHandle {
    int intOpt[COM_OPT_INT_NUM] = {};
    double dblOpt[COM_OPT_DBL_NUM] = {};
    KwilHandle h{intOpt, dblOpt, nullptr, nullptr, nullptr};
    explicit FakeHandle(int trace = 0) { intOpt[OPT_TRACE] = trace; }
};

// Owns a matrix for the length of a test.
struct MatPtr {
    ComLinMat* m = nullptr;
    explicit MatPtr(ComLinMat* p) : m(p) {}
    ~MatPtr() { comLinMatDelete(nullptr, m); }
    MatPtr(const MatPtr&) = delete;
    MatPtr& operator=(const MatPtr&) = delete;
    ComLinMat* operator->() const { return m; }
    ComLinMat* get() const { return m; }
};

// Owns a vector for the length of a test.
struct VecPtr {
    ComLinVec* v = nullptr;
    explicit VecPtr(ComLinVec* p) : v(p) {}
    ~VecPtr() { comLinVecDelete(nullptr, v); }
    VecPtr(const VecPtr&) = delete;
    VecPtr& operator=(const VecPtr&) = delete;
    ComLinVec* operator->() const { return v; }
    ComLinVec* get() const { return v; }
};

// Form-0 matrix holding the entries in the given order.
inline ComLinMat* makeCoo(int dataType, int size, const std::vector<Entry>& e)
{
    ComLinMat* m = comLinMatCreate(nullptr, MAT_COO, dataType, size, static_cast<int>(e.size()));
    if (m == nullptr)
        return nullptr;
    for (size_t p = 0; p < e.size(); ++p) {
        m->row[p] = e[p].row;
        m->col[p] = e[p].col;
        if (dataType == LIN_REAL) {
            m->realData[p] = e[p].val.real();
        } else {
            m->compData[2 * p] = e[p].val.real();
            m->compData[2 * p + 1] = e[p].val.imag();
        }
    }
    return m;
}

// Value at entry position p.
inline Cplx valueAt(const ComLinMat* m, int p)
{
    if (m->dataType == LIN_REAL)
        return m->realData[p];
    return {m->compData[2 * p], m->compData[2 * p + 1]};
}

// The row array of a matrix, by its current form.
inline std::vector<int> rowArray(const ComLinMat* m)
{
    return std::vector<int>(m->row, m->row + matRowDataNum(nullptr, m, m->type));
}

// Every entry in comLinMatGetNext order.
inline std::vector<Entry> iterate(const ComLinMat* m)
{
    std::vector<Entry> out;
    int row = 0, col = 0, pos = 0;
    double re = 0.0, im = 0.0;
    for (int more = comLinMatGetNext(nullptr, m, &row, &col, &pos, &re, &im, 1); more != 0;
         more = comLinMatGetNext(nullptr, m, &row, &col, &pos, &re, &im, 0)) {
        out.push_back({row, col, {re, im}});
    }
    return out;
}

// A random CSR matrix of order n: row i gets rowLen(i) distinct random columns (the diagonal
// always among them when withDiag), values uniform in [-1, 1] (complex: both parts), the
// diagonal made dominant.
template <class RowLen>
ComLinMat* randomCsr(int dataType, int n, unsigned seed, RowLen rowLen, bool withDiag = true)
{
    std::mt19937 gen(seed);
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    std::vector<Entry> e;
    std::vector<char> used(n, 0);
    for (int i = 1; i <= n; ++i) {
        const int len = std::min(rowLen(i), n);
        std::vector<int> cols;
        if (withDiag && len > 0)
            cols.push_back(i);
        while (static_cast<int>(cols.size()) < len) {
            const int c = std::uniform_int_distribution<int>(1, n)(gen);
            if (!used[c - 1] && c != (withDiag ? i : 0)) {
                used[c - 1] = 1;
                cols.push_back(c);
            }
        }
        for (int c : cols)
            used[c - 1] = 0;
        for (int c : cols) {
            Cplx v(u(gen), dataType == LIN_REAL ? 0.0 : u(gen));
            if (c == i)
                v += Cplx(len + 1.0, dataType == LIN_REAL ? 0.0 : 0.5);
            e.push_back({i, c, v});
        }
    }
    std::shuffle(e.begin(), e.end(), gen);
    ComLinMat* m = makeCoo(dataType, n, e);
    EXPECT_EQ(comLinMatChangeType(nullptr, m, MAT_CSR), 1);
    return m;
}

// A vector of the data type with random values uniform in [-1, 1].
inline ComLinVec* randomVec(int dataType, int n, unsigned seed)
{
    std::mt19937 gen(seed);
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    ComLinVec* v = comLinVecCreate(nullptr, dataType, n);
    const int k = dataType == LIN_REAL ? n : 2 * n;
    double* d = dataType == LIN_REAL ? v->realData : v->compData;
    for (int i = 0; i < k; ++i)
        d[i] = u(gen);
    return v;
}

// Values of a vector as complex numbers.
inline std::vector<Cplx> values(const ComLinVec* v)
{
    std::vector<Cplx> out(v->size);
    for (int i = 0; i < v->size; ++i) {
        out[i] = v->dataType == LIN_REAL ? Cplx(v->realData[i])
                                         : Cplx(v->compData[2 * i], v->compData[2 * i + 1]);
    }
    return out;
}

} // namespace lintest
