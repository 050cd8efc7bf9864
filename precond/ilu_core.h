// Scalar helpers of the two incomplete factorisations and their common last steps: the split of
// the finished rows into both factors and their conversion to compressed rows.
#pragma once

#include <cfloat>
#include <cmath>
#include <complex>

#include "common/own.h"
#include "lin/lin.h"
#include "precond/precond.h"

namespace kwil {
namespace prec {

using Cplx = std::complex<double>;

// Values of a matrix as an array of the scalar type (complex: two doubles, real part first).
template <class S> S* matValues(const ComLinMat& a);
template <> inline double* matValues<double>(const ComLinMat& a)
{
    return a.realData;
}
template <> inline Cplx* matValues<Cplx>(const ComLinMat& a)
{
    return reinterpret_cast<Cplx*>(a.compData);
}

// Plain textbook arithmetic: no scaling against overflow and no NaN recovery, so that real and
// complex paths and repeated runs give reproducible bits.
inline double mul(double a, double b)
{
    return a * b;
}
inline Cplx mul(const Cplx& a, const Cplx& b)
{
    const double ar = a.real(), ai = a.imag(), br = b.real(), bi = b.imag();
    return Cplx(ar * br - ai * bi, ar * bi + ai * br);
}
inline double quot(double a, double b)
{
    return a / b;
}
// ((ar br + ai bi) + i (ai br - ar bi)) / (br^2 + bi^2)
inline Cplx quot(const Cplx& a, const Cplx& b)
{
    const double ar = a.real(), ai = a.imag(), br = b.real(), bi = b.imag();
    const double d = br * br + bi * bi;
    return Cplx((ar * br + ai * bi) / d, (ai * br - ar * bi) / d);
}
inline double sub(double a, double b)
{
    return a - b;
}
inline Cplx sub(const Cplx& a, const Cplx& b)
{
    return Cplx(a.real() - b.real(), a.imag() - b.imag());
}
inline double neg(double a)
{
    return -a;
}
inline Cplx neg(const Cplx& a)
{
    return Cplx(-a.real(), -a.imag());
}
// Both parts multiplied by the real factor f.
inline double scale(double a, double f)
{
    return a * f;
}
inline Cplx scale(const Cplx& a, double f)
{
    return Cplx(a.real() * f, a.imag() * f);
}
// |a| for real data, sqrt(re^2 + im^2) for complex data.
inline double mag(double a)
{
    return std::fabs(a);
}
inline double mag(const Cplx& a)
{
    return std::sqrt(a.real() * a.real() + a.imag() * a.imag());
}
// The threshold t2 with (a.real()^2 + a.imag()^2 >= t2) == (mag(a) >= tau) for every complex a:
// the smallest double whose correctly rounded square root reaches tau, found from tau^2 by
// stepping one unit at a time (a few steps at most). Comparing the squared magnitude spares the
// square root where most values are compared and none kept. Real values compare |a| with tau.
inline double squaredThreshold(double tau)
{
    if (std::isnan(tau) || tau <= 0.0)
        return std::isnan(tau) ? tau : -HUGE_VAL;
    double t = tau * tau;
    while (t > 0.0 && std::sqrt(std::nextafter(t, 0.0)) >= tau)
        t = std::nextafter(t, 0.0);
    while (std::sqrt(t) < tau)
        t = std::nextafter(t, HUGE_VAL);
    return t;
}
template <class S> double reachThreshold(double tau);
template <> inline double reachThreshold<double>(double tau)
{
    return tau;
}
template <> inline double reachThreshold<Cplx>(double tau)
{
    return squaredThreshold(tau);
}
// Whether a has magnitude at least tau, given t = reachThreshold<S>(tau).
inline bool reaches(double a, double t)
{
    return std::fabs(a) >= t;
}
inline bool reaches(const Cplx& a, double t)
{
    return a.real() * a.real() + a.imag() * a.imag() >= t;
}
// True when every part lies strictly between -DBL_MIN and DBL_MIN (zero or subnormal). Tested
// on the magnitude, without branches: the signs of factor entries are random, and a branch on
// each comparison would be mispredicted half of the time.
inline bool vanishing(double a)
{
    return std::fabs(a) < DBL_MIN;
}
inline bool vanishing(const Cplx& a)
{
    // Both comparisons, then one test: the bitwise and of the two results keeps it branch-free.
    return (static_cast<int>(std::fabs(a.real()) < DBL_MIN) &
            static_cast<int>(std::fabs(a.imag()) < DBL_MIN)) != 0;
}
template <class S> S fromParts(double re, double im);
template <> inline double fromParts<double>(double re, double)
{
    return re;
}
template <> inline Cplx fromParts<Cplx>(double re, double im)
{
    return Cplx(re, im);
}

using MatOwn = ComOwn<ComLinMat, comLinMatDelete>;

// Fills a factor pair, created in sorted coordinate form with their final sizes, from the
// finished rows of an elimination, row by row: the entries of a row up to its diagonal go to L
// (the pivot last), the entries from its diagonal on go to U divided by the pivot (U's diagonal
// becoming pivot / pivot). Vanishing values are replaced by rev first and counted, the diagonal
// once.
template <class S> class FactorSplit {
  public:
    FactorSplit(ComLinMat& l, ComLinMat& u, S rev)
        : lr_(l.row), lc_(l.col), ur_(u.row), uc_(u.col), lv_(matValues<S>(l)),
          uv_(matValues<S>(u)), lEnd_(l.dataNum), uEnd_(u.dataNum), rev_(rev)
    {
    }

    // The next row: len values with ascending columns col[t] + shift (1-based after the shift),
    // its diagonal at offset d. Returns false when the row does not fit in the factors.
    bool addRow(const int* col, int shift, const S* val, int d, int len)
    {
        if (pl_ + d + 1 > lEnd_ || pu_ + len - d > uEnd_)
            return false;
        ++row_;
        int* lr = lr_ + pl_;
        int* lc = lc_ + pl_;
        S* lv = lv_ + pl_;
        long replaced = 0;
        for (int t = 0; t < d; ++t) {
            lr[t] = row_;
            lc[t] = col[t] + shift;
            lv[t] = replace(val[t], replaced);
        }
        const S pivot = replace(val[d], replaced);
        lr[d] = row_;
        lc[d] = col[d] + shift;
        lv[d] = pivot;
        int* ur = ur_ + pu_ - d;
        int* uc = uc_ + pu_ - d;
        S* uv = uv_ + pu_ - d;
        ur[d] = row_;
        uc[d] = col[d] + shift;
        uv[d] = quot(pivot, pivot);
        for (int t = d + 1; t < len; ++t) {
            ur[t] = row_;
            uc[t] = col[t] + shift;
            uv[t] = quot(replace(val[t], replaced), pivot);
        }
        pl_ += d + 1;
        pu_ += len - d;
        replaced_ += replaced;
        return true;
    }
    // Whether every entry of both factors has been written.
    bool full() const { return pl_ == lEnd_ && pu_ == uEnd_; }
    long replaced() const { return replaced_; }

  private:
    S replace(const S& v, long& count) const
    {
        const bool small = vanishing(v);
        count += small;
        return small ? rev_ : v;
    }

    int *lr_, *lc_, *ur_, *uc_;
    S *lv_, *uv_;
    long lEnd_, uEnd_;
    S rev_;
    int row_ = 0;
    long pl_ = 0, pu_ = 0, replaced_ = 0;
};

// Creates both factors in sorted coordinate form, n + nL and n + nU entries; on failure neither
// is kept.
inline bool createFactors(KwilHandle* handle, const ComLinMat& a, long nL, long nU, MatOwn& l,
                          MatOwn& u)
{
    const int n = a.size;
    l.reset(comLinMatCreate(handle, MAT_SORTED, a.dataType, n, static_cast<int>(n + nL)));
    if (l)
        u.reset(comLinMatCreate(handle, MAT_SORTED, a.dataType, n, static_cast<int>(n + nU)));
    if (!l || !u) {
        l.reset(nullptr);
        return false;
    }
    return true;
}

// Converts a factor written by FactorSplit to compressed rows; len(i) is the entry count of row i
// (0-based), which the factorisation knows, so the rows need not be found by a scan. False after
// the conversion's error line.
template <class RowLen> bool factorToCSR(KwilHandle* handle, ComLinMat& m, RowLen len)
{
    int* ptr = matAllocCSRPtr(handle, &m);
    if (ptr == nullptr)
        return false;
    int k = 1;
    for (int i = 0; i < m.size; ++i) {
        ptr[i] = k;
        k += len(i);
    }
    ptr[m.size] = k;
    matInstallCSRPtr(handle, &m, ptr);
    return true;
}

// Converts both factors, L and then U, to compressed rows and hands them to the caller. On
// failure the error line is written and the factors are left to their owners to delete.
template <class LLen, class ULen>
inline int factorsToCSR(KwilHandle* handle, MatOwn& l, MatOwn& u, LLen lLen, ULen uLen,
                        const char* tag, ComLinMat** lOut, ComLinMat** uOut)
{
    if (!factorToCSR(handle, *l, lLen) || !factorToCSR(handle, *u, uLen))
        return comErr(handle, "Change mat type error in %s solver", tag);
    *lOut = l.release();
    *uOut = u.release();
    return 1;
}

} // namespace prec
} // namespace kwil
