// Test systems held on the test side and driven into a handle through the public interface.
#pragma once

#include <unistd.h>

#include <cmath>
#include <complex>
#include <string>
#include <vector>

#include "api/kwil.h"
#include "support/support.h"

namespace apitest {

using Cplx = std::complex<double>;

// A square system A x = b in coordinate form, 0-based, as a host would hold it.
struct System {
    int n = 0;
    bool comp = false;
    std::vector<int> row, col;
    std::vector<Cplx> val;
    std::vector<Cplx> b;

    void add(int i, int j, Cplx v)
    {
        row.push_back(i);
        col.push_back(j);
        val.push_back(v);
    }
    int nnz() const { return static_cast<int>(val.size()); }
    // y = A x.
    std::vector<Cplx> apply(const std::vector<Cplx>& x) const
    {
        std::vector<Cplx> y(n);
        for (int p = 0; p < nnz(); ++p)
            y[row[p]] += val[p] * x[col[p]];
        return y;
    }
    // b := A (1, ..., 1).
    void rhsOnes() { b = apply(std::vector<Cplx>(n, Cplx(1.0))); }
};

// -lap u + beta . grad u on an m x m grid (central differences, scaled by h^2); complex adds the
// shift 0.5 i on the diagonal and a complex convection, so that A is neither Hermitian nor
// complex symmetric. b = A (1, ..., 1).
inline System convDiff(int m, bool comp)
{
    System s;
    s.n = m * m;
    s.comp = comp;
    const double h = 1.0 / (m + 1);
    const Cplx cx = comp ? Cplx(20.0 * h, 5.0 * h) : Cplx(20.0 * h);
    const Cplx cy = comp ? Cplx(10.0 * h, -5.0 * h) : Cplx(10.0 * h);
    for (int j = 0; j < m; ++j) {
        for (int i = 0; i < m; ++i) {
            const int k = j * m + i;
            if (j > 0)
                s.add(k, k - m, -1.0 - cy);
            if (i > 0)
                s.add(k, k - 1, -1.0 - cx);
            s.add(k, k, comp ? Cplx(4.0, 0.5) : Cplx(4.0));
            if (i < m - 1)
                s.add(k, k + 1, -1.0 + cx);
            if (j < m - 1)
                s.add(k, k + m, -1.0 + cy);
        }
    }
    s.rhsOnes();
    return s;
}

// Tridiagonal (lo, d, up) of order n; ILU(0) of it is its exact LU. b = A (1, ..., 1).
inline System tridiag(int n, Cplx lo, Cplx d, Cplx up, bool comp)
{
    System s;
    s.n = n;
    s.comp = comp;
    for (int i = 0; i < n; ++i) {
        if (i > 0)
            s.add(i, i - 1, lo);
        s.add(i, i, d);
        if (i < n - 1)
            s.add(i, i + 1, up);
    }
    s.rhsOnes();
    return s;
}

// Creates A and b in the handle and fills every slot. b real when bComp is false.
inline void load(KwilHandle* h, const System& s, bool bComp)
{
    ASSERT_EQ(kwilMatCoefCreate(h, s.comp ? 1 : 0, s.n, s.nnz()), 1);
    for (int p = 0; p < s.nnz(); ++p) {
        ASSERT_EQ(kwilMatCoefSet(h, s.row[p], s.col[p], p, s.val[p].real(), s.val[p].imag(), 0), 1);
    }
    ASSERT_EQ(kwilVecFixCreate(h, bComp ? 1 : 0, s.n, 0.0, 0.0), 1);
    for (int i = 0; i < s.n; ++i) {
        ASSERT_EQ(kwilVecFixSet(h, i, s.b[i].real(), s.b[i].imag()), 1);
    }
}
inline void load(KwilHandle* h, const System& s)
{
    load(h, s, s.comp);
}

// The variable vector x of the handle.
inline std::vector<Cplx> getX(KwilHandle* h)
{
    int comp = 0, n = 0;
    EXPECT_EQ(kwilVecVarInfo(h, &comp, &n), 1);
    std::vector<Cplx> x(n);
    for (int i = 0; i < n; ++i) {
        double re = 0.0, im = 0.0;
        EXPECT_EQ(kwilVecVarGet(h, i, &re, &im), 1);
        x[i] = Cplx(re, im);
    }
    return x;
}

// The fixed vector b of the handle.
inline std::vector<Cplx> getB(KwilHandle* h)
{
    int comp = 0, n = 0;
    EXPECT_EQ(kwilVecFixInfo(h, &comp, &n), 1);
    std::vector<Cplx> b(n);
    for (int i = 0; i < n; ++i) {
        double re = 0.0, im = 0.0;
        EXPECT_EQ(kwilVecFixGet(h, i, &re, &im), 1);
        b[i] = Cplx(re, im);
    }
    return b;
}

inline double norm2(const std::vector<Cplx>& v)
{
    double s = 0.0;
    for (const Cplx& c : v)
        s += std::norm(c);
    return std::sqrt(s);
}

// ||b - A x||_2 / ||b||_2, recomputed here.
inline double relResidual(const System& s, const std::vector<Cplx>& x)
{
    std::vector<Cplx> r = s.apply(x);
    for (int i = 0; i < s.n; ++i)
        r[i] -= s.b[i];
    return norm2(r) / norm2(s.b);
}

// Normwise backward error ||b - A x|| / (||A||_F ||x|| + ||b||), recomputed here.
inline double backwardError(const System& s, const std::vector<Cplx>& x)
{
    std::vector<Cplx> r = s.apply(x);
    for (int i = 0; i < s.n; ++i)
        r[i] -= s.b[i];
    double fro = 0.0;
    for (const Cplx& v : s.val)
        fro += std::norm(v);
    return norm2(r) / (std::sqrt(fro) * norm2(x) + norm2(s.b));
}

// The handle's matrix as the host sees it: (row, col, value) in the library's order.
struct Entry {
    int row;
    int col;
    Cplx val;
    bool operator==(const Entry& o) const { return row == o.row && col == o.col && val == o.val; }
};
inline std::vector<Entry> getEntries(KwilHandle* h)
{
    std::vector<Entry> out;
    int row = 0, col = 0, pos = 0, end = 0;
    double re = 0.0, im = 0.0;
    for (int first = 1;; first = 0) {
        EXPECT_EQ(kwilMatCoefGetNext(h, &row, &col, &pos, &re, &im, &end, first), 1);
        if (end)
            break;
        out.push_back(Entry{row, col, Cplx(re, im)});
    }
    return out;
}

inline int dataNum(KwilHandle* h)
{
    int comp = 0, n = 0, num = -1;
    EXPECT_EQ(kwilMatCoefInfo(h, &comp, &n, &num), 1);
    return num;
}

inline bool contains(const std::vector<std::string>& lines, const std::string& line)
{
    for (const std::string& l : lines) {
        if (l == line)
            return true;
    }
    return false;
}

// Runs the scope in another working directory.
class InDir {
  public:
    explicit InDir(const std::string& dir)
    {
        char buf[4096];
        EXPECT_NE(getcwd(buf, sizeof buf), nullptr);
        old_ = buf;
        EXPECT_EQ(chdir(dir.c_str()), 0);
    }
    ~InDir() { EXPECT_EQ(chdir(old_.c_str()), 0); }
    InDir(const InDir&) = delete;
    InDir& operator=(const InDir&) = delete;

  private:
    std::string old_;
};

} // namespace apitest
