// Scalar helpers of the two incomplete factorisations and their common last step, the
// conversion of both factors to compressed rows.
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
// True when every part lies strictly between -DBL_MIN and DBL_MIN (zero or subnormal).
inline bool vanishing(double a)
{
    return a > -DBL_MIN && a < DBL_MIN;
}
inline bool vanishing(const Cplx& a)
{
    return vanishing(a.real()) && vanishing(a.imag());
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

// Fills a factor pair, created in sorted coordinate form, from the finished rows of an
// elimination, row by row (a row's diagonal precedes its upper part): the entries of a row up to
// its diagonal go to L (the pivot last), the entries from its diagonal on go to U divided by the
// pivot (U's diagonal becoming pivot / pivot). Vanishing values are replaced by rev first and
// counted, the diagonal once.
template <class S> class FactorSplit {
public:
    FactorSplit(ComLinMat& l, ComLinMat& u, S rev)
        : lr_(l.row), lc_(l.col), ur_(u.row), uc_(u.col), lv_(matValues<S>(l)),
          uv_(matValues<S>(u)), lEnd_(l.dataNum), uEnd_(u.dataNum), rev_(rev)
    {
    }

    // Row i: len values with ascending columns col[p] - base (0-based), its diagonal among
    // them. Returns false when the row does not fit in the factors.
    bool addRow(int i, const int* col, int base, const S* val, int len)
    {
        long pl = pl_, pu = pu_;
        const int diag = i + base; // the diagonal's column as stored in col
        S pivot{};
        for (int p = 0; p < len; ++p) {
            S v = val[p];
            if (vanishing(v)) {
                v = rev_;
                ++replaced_;
            }
            const int c = col[p];
            if (c <= diag) {
                if (pl == lEnd_)
                    return false;
                lr_[pl] = i + 1;
                lc_[pl] = c - base + 1;
                lv_[pl++] = v;
            }
            if (c == diag)
                pivot = v;
            if (c >= diag) {
                if (pu == uEnd_)
                    return false;
                ur_[pu] = i + 1;
                uc_[pu] = c - base + 1;
                uv_[pu++] = quot(v, pivot);
            }
        }
        pl_ = pl;
        pu_ = pu;
        return true;
    }
    // Whether every entry of both factors has been written.
    bool full() const { return pl_ == lEnd_ && pu_ == uEnd_; }
    long replaced() const { return replaced_; }

private:
    int *lr_, *lc_, *ur_, *uc_;
    S *lv_, *uv_;
    long lEnd_, uEnd_;
    S rev_;
    long pl_ = 0, pu_ = 0, replaced_ = 0;
};

// Converts both factors to compressed rows and hands them to the caller. On failure the factors
// are deleted and the error line written.
inline int iluFinish(KwilHandle* handle, MatOwn& l, MatOwn& u, const char* tag, ComLinMat** lOut,
                     ComLinMat** uOut)
{
    if (comLinMatChangeType(handle, l.get(), MAT_CSR) == 0 ||
        comLinMatChangeType(handle, u.get(), MAT_CSR) == 0) {
        return comErr(handle, "Change mat type error in %s solver", tag);
    }
    *lOut = l.release();
    *uOut = u.release();
    return 1;
}

} // namespace prec
} // namespace kwil
