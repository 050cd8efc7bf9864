// Scalar helpers and the common last steps of the two incomplete factorisations: the split of
// the factorised rows into the lower factor (pivots on its diagonal) and the unit upper factor.
#pragma once

#include <cfloat>
#include <cmath>
#include <complex>

#include "common/own.h"
#include "precond/precond.h"

namespace kwil {
namespace prec {

using Cplx = std::complex<double>;

// Values of a matrix as an array of the scalar type (complex: two doubles, real part first).
template <class S>
S* matValues(const ComLinMat& a);
template <>
inline double* matValues<double>(const ComLinMat& a)
{
    return a.realData;
}
template <>
inline Cplx* matValues<Cplx>(const ComLinMat& a)
{
    return reinterpret_cast<Cplx*>(a.compData);
}

// Plain textbook arithmetic: no scaling against overflow and no NaN recovery, so that real and
// complex paths and repeated runs give reproducible bits.
inline double mul(double a, double b) { return a * b; }
inline Cplx mul(const Cplx& a, const Cplx& b)
{
    const double ar = a.real(), ai = a.imag(), br = b.real(), bi = b.imag();
    return Cplx(ar * br - ai * bi, ar * bi + ai * br);
}
inline double quot(double a, double b) { return a / b; }
// ((ar br + ai bi) + i (ai br - ar bi)) / (br^2 + bi^2)
inline Cplx quot(const Cplx& a, const Cplx& b)
{
    const double ar = a.real(), ai = a.imag(), br = b.real(), bi = b.imag();
    const double d = br * br + bi * bi;
    return Cplx((ar * br + ai * bi) / d, (ai * br - ar * bi) / d);
}
inline double sub(double a, double b) { return a - b; }
inline Cplx sub(const Cplx& a, const Cplx& b)
{
    return Cplx(a.real() - b.real(), a.imag() - b.imag());
}
inline double neg(double a) { return -a; }
inline Cplx neg(const Cplx& a) { return Cplx(-a.real(), -a.imag()); }
// Both parts multiplied by the real factor f.
inline double scale(double a, double f) { return a * f; }
inline Cplx scale(const Cplx& a, double f) { return Cplx(a.real() * f, a.imag() * f); }
// |a| for real data, sqrt(re^2 + im^2) for complex data.
inline double mag(double a) { return std::fabs(a); }
inline double mag(const Cplx& a) { return std::sqrt(a.real() * a.real() + a.imag() * a.imag()); }
// True when every part lies strictly between -DBL_MIN and DBL_MIN (zero or subnormal).
inline bool vanishing(double a) { return a > -DBL_MIN && a < DBL_MIN; }
inline bool vanishing(const Cplx& a) { return vanishing(a.real()) && vanishing(a.imag()); }
template <class S>
S fromParts(double re, double im);
template <>
inline double fromParts<double>(double re, double)
{
    return re;
}
template <>
inline Cplx fromParts<Cplx>(double re, double im)
{
    return Cplx(re, im);
}

using MatOwn = ComOwn<ComLinMat, comLinMatDelete>;


// Splits the factorised rows into L (sorted coordinate form, n + nL entries: the strictly lower
// entries and the pivots) and U (n + nU entries: the diagonal and the strictly upper entries,
// each divided by the pivot of its row). Row i holds the entries rowPtr[i] - base to
// rowPtr[i + 1] - base - 1 in ascending column order; columns are col[p] - base + 1 one-based.
// A vanishing entry is replaced by (ILU_REV_DIAGZERO_VAL, 0) first and counted in the trace.
// tag names the factorisation in the messages ("ILU 0", "ILU fill-in").
// Returns 1 with l and u owning the factors, or 0 after an error line.
template <class S>
int iluSplit(KwilHandle* handle, int dataType, int n, const int* rowPtr, const int* col,
             const S* val, int base, int nL, int nU, const char* tag, MatOwn& l, MatOwn& u)
{
    l.reset(comLinMatCreate(handle, MAT_SORTED, dataType, n, n + nL));
    if (l) u.reset(comLinMatCreate(handle, MAT_SORTED, dataType, n, n + nU));
    if (!l || !u) {
        l.reset(nullptr);
        return comErr(handle, "Alloc matrix error in %s solver", tag);
    }
    const S rev = fromParts<S>(comOptDbl(handle, OPT_ILU_REV_DIAGZERO_VAL), 0.0);
    S* lv = matValues<S>(*l);
    S* uv = matValues<S>(*u);
    int* lr = l->row;
    int* lc = l->col;
    int* ur = u->row;
    int* uc = u->col;
    long pl = 0, pu = 0, revCount = 0;
    for (int i = 0; i < n; ++i) {
        S pivot{};
        const int p1 = rowPtr[i + 1] - base;
        for (int p = rowPtr[i] - base; p < p1; ++p) {
            const int j = col[p] - base;  // 0-based column
            S v = val[p];
            if (vanishing(v)) {
                v = rev;
                ++revCount;
            }
            if (j < i) {
                if (pl < n + nL) {
                    lr[pl] = i + 1;
                    lc[pl] = j + 1;
                    lv[pl] = v;
                }
                ++pl;
                continue;
            }
            if (j == i) {
                if (pl < n + nL) {
                    lr[pl] = i + 1;
                    lc[pl] = i + 1;
                    lv[pl] = v;
                }
                ++pl;
                pivot = v;
            }
            // The diagonal precedes the upper entries of its row, so the pivot is known here.
            if (pu < n + nU) {
                ur[pu] = i + 1;
                uc[pu] = j + 1;
                uv[pu] = quot(v, pivot);
            }
            ++pu;
        }
    }
    comAssert(handle, pl == n + nL && pu == n + nU, "LU number unmatch in %s solver", tag);
    if (revCount > 0) {
        comTrace(handle, "%s rev diag zero %d %.4e", tag, static_cast<int>(revCount),
                 comOptDbl(handle, OPT_ILU_REV_DIAGZERO_VAL));
    }
    return 1;
}

// Converts both factors to compressed rows and hands them to the caller. On failure the factors
// are deleted and the error line written.
inline int iluFinish(KwilHandle* handle, MatOwn& l, MatOwn& u, const char* tag,
                     ComLinMat** lOut, ComLinMat** uOut)
{
    if (comLinMatChangeType(handle, l.get(), MAT_CSR) == 0 ||
        comLinMatChangeType(handle, u.get(), MAT_CSR) == 0) {
        return comErr(handle, "Change mat type error in %s solver", tag);
    }
    *lOut = l.release();
    *uOut = u.release();
    return 1;
}

}  // namespace prec
}  // namespace kwil
