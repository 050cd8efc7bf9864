// Builders, comparisons and references shared by the preprocessing and ILU tests (and benches).
#pragma once

#include <complex>
#include <memory>
#include <string>
#include <vector>

#include "lin/lin.h"

namespace prectest {

using Cplx = std::complex<double>;

// A handle record with every option at its default, no file behind it.
struct TestHandle {
    TestHandle();
    TestHandle(const TestHandle&) = delete;
    TestHandle& operator=(const TestHandle&) = delete;
    KwilHandle* get() { return &h; }
    int intOpt[COM_OPT_INT_NUM];
    double dblOpt[COM_OPT_DBL_NUM];
    KwilHandle h;
};

struct MatDel {
    void operator()(ComLinMat* m) const { comLinMatDelete(nullptr, m); }
};
struct VecDel {
    void operator()(ComLinVec* v) const { comLinVecDelete(nullptr, v); }
};
using Mat = std::unique_ptr<ComLinMat, MatDel>;
using Vec = std::unique_ptr<ComLinVec, VecDel>;

// One entry, 1-based row and column.
struct Entry {
    int row;
    int col;
    Cplx v;
};

// Coordinate matrix (form 0) with the entries in the given order.
Mat coo(int n, const std::vector<Entry>& e, bool complex);
// CSR matrix (form 2), entries sorted by row and column; duplicates are not allowed.
Mat csr(int n, std::vector<Entry> e, bool complex);
// CSR matrix from a dense row-major n x n array, storing the non-zeros and every diagonal entry.
Mat csrDense(int n, const std::vector<Cplx>& a, bool complex);
// Entries of a matrix in stored order (any form).
std::vector<Entry> entries(const ComLinMat& m);
// Row-major dense copy.
std::vector<Cplx> dense(const ComLinMat& m);
// The complex copy of a real matrix (imaginary parts 0).
Mat toComplex(const ComLinMat& m);

Vec vec(const std::vector<Cplx>& v, bool complex);
std::vector<Cplx> values(const ComLinVec& v);

// Dense product L U of two CSR factors.
std::vector<Cplx> product(const ComLinMat& l, const ComLinMat& u);
// Max |a - b| over the entries.
double maxDiff(const std::vector<Cplx>& a, const std::vector<Cplx>& b);
// True when both matrices have the same form, sizes, arrays and value bits.
bool sameBits(const ComLinMat& a, const ComLinMat& b);

// Random sparse n x n matrix (CSR) with every diagonal stored; density is the chance of an
// off-diagonal entry; a diagonal of weight dominance times the row sum keeps it factorisable.
Mat randomCsr(unsigned seed, int n, double density, double dominance, bool complex);
// 5-point upwinded convection-diffusion on an m x m grid (CSR, n = m^2).
Mat convDiff2d(int m, double peclet);
// Reads a Matrix Market coordinate file (general, symmetric, skew-symmetric, Hermitian; real,
// integer, pattern or complex) into CSR, adding a zero diagonal where missing when addDiag.
// Null when the file cannot be read.
Mat readMatrixMarket(const std::string& path, bool addDiag);

// ILU(0) written out directly: a work copy of A, a column map, pivot arrays and scalar
// arithmetic spelled out. Same contract as ILU0.
int refILU0(KwilHandle* handle, const ComLinMat* a, ComLinMat** l, ComLinMat** u);
// The fill-in factorisation written out directly: sorted linked rows of separately allocated
// nodes, each insertion point searched from the head of the row. Same contract as ILUFillIn.
int refILUFillIn(KwilHandle* handle, const ComLinMat* a, ComLinMat** l, ComLinMat** u);

} // namespace prectest
