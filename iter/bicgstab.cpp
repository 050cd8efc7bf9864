// BiCGStab (van der Vorst 1992) with ILU right preconditioning, real and complex.
#include "iter/iter.h"

#include <cfloat>

#include "iter/control.h"

namespace {

using kwil::IterFrame;

void nanLines(KwilHandle* handle, double alpha, double beta, double omega, double rho)
{
    comTrace(handle, "Iter stab nan error alpha %.4e beta %.4e", alpha, beta);
    comTrace(handle, " - omega %.4e rho %.4e", omega, rho);
}

void nanLines(KwilHandle* handle, ComComplex alpha, ComComplex beta, ComComplex omega,
              ComComplex rho)
{
    comTrace(handle, "Iter stab nan error alpha (%.4e %.4e)", alpha.re, alpha.im);
    comTrace(handle, " -  beta (%.4e %.4e) omega (%.4e %.4e)", beta.re, beta.im, omega.re,
             omega.im);
    comTrace(handle, " -  rho (%.4e %.4e)", rho.re, rho.im);
}

// S: double for real systems, ComComplex for complex ones. With preconditioning the products
// are A M^-1 p and A M^-1 s, and x is updated with ph = M^-1 p and sh = M^-1 s, so x always
// approximates the solution of A x = b itself.
template <class S>
int stab(KwilHandle* handle, const ComLinMat* a, const ComLinVec* b, ComLinVec* x)
{
    IterFrame f(handle, a, b, x, "stab");
    if (!f.readOptions())
        return 0;
    ComLinVec *r, *rt, *p, *v, *s, *t;
    if (!f.addVec(&r, false, 0.0) || !f.addVec(&rt, true, 1.0) || !f.addVec(&p, false, 0.0) ||
        !f.addVec(&v, true, 0.0) || !f.addVec(&s, true, 0.0) || !f.addVec(&t, true, 0.0)) {
        return f.vecError();
    }
    if (!f.buildIlu())
        return 0;
    ComLinVec* ph = p; // the vectors x is updated with
    ComLinVec* sh = s;
    ComLinVec* w = nullptr;
    if (f.preconditioned() &&
        (!f.addVec(&ph, false, 0.0) || !f.addVec(&sh, false, 0.0) || !f.addVec(&w, false, 0.0))) {
        return f.vecError();
    }
    f.seed();
    f.residual(r);
    f.shadow(r, rt);
    f.start(comLinVecCalcNorm2(handle, r));

    const ComComplex one{1.0, 0.0};
    const ComComplex zero{0.0, 0.0};
    S rho{}, rhoPrev{}, alpha{}, beta{}, omega{};
    int k = 0;
    for (; k < f.limit(); ++k) {
        if (k >= 1 && f.correctionDue(k))
            f.residual(r);
        kwil::iterDot(handle, rt, r, &rho); // rho = <rt, r>
        if (k == 0) {
            comLinVecCopy(handle, r, p);
        } else {
            const int res = f.monitor(k, comLinVecCalcNorm2(handle, r),
                                      [&] { nanLines(handle, alpha, beta, omega, rho); });
            if (res != kwil::ITER_GO)
                return f.end(res, k);
            // beta = (rho / rhoPrev) (alpha / omega); p = r + beta (p - omega v)
            beta = kwil::sMul(kwil::sDiv(rho, rhoPrev), kwil::sDiv(alpha, omega));
            comLinVecCalcScal(handle, kwil::toCom(beta), p);
            comLinVecCalcVec2(handle, one, r, kwil::toCom(kwil::sNeg(kwil::sMul(omega, beta))), v,
                              p);
        }
        if (f.preconditioned())
            f.applyM(p, w, ph);
        comLinMatCalcVec(handle, one, a, 0, ph, zero, v); // v = A ph
        S rtv;
        kwil::iterDot(handle, rt, v, &rtv);
        alpha = kwil::sDiv(rho, rtv);
        comLinVecCopy(handle, r, s); // s = r - alpha v
        comLinVecCalcVec(handle, kwil::toCom(kwil::sNeg(alpha)), v, s);
        const double nrmS = comLinVecCalcNorm2(handle, s);
        f.setNorm(nrmS);
        if (nrmS <= DBL_MIN) { // s vanished: x + alpha ph solves the system
            comTrace(handle, "Iter stab quit for s abs norm %e step %d", nrmS, k);
            comLinVecCalcVec(handle, kwil::toCom(alpha), ph, x);
            return f.end(1, k);
        }
        if (f.preconditioned())
            f.applyM(s, w, sh);
        comLinMatCalcVec(handle, one, a, 0, sh, zero, t); // t = A sh
        S ts, tt;
        kwil::iterDot(handle, t, s, &ts);
        kwil::iterDot(handle, t, t, &tt);
        omega = kwil::sDiv(ts, tt);
        // x = x + omega sh + alpha ph
        comLinVecCalcVec2(handle, kwil::toCom(alpha), ph, kwil::toCom(omega), sh, x);
        comLinVecCopy(handle, s, r); // r = s - omega t
        comLinVecCalcVec(handle, kwil::toCom(kwil::sNeg(omega)), t, r);
        rhoPrev = rho;
    }
    return f.end(f.stepOver(k), k);
}

} // namespace

int solvIterStab(KwilHandle* handle, const ComLinMat* a, const ComLinVec* b, ComLinVec* x)
{
    if (a->dataType == LIN_REAL)
        return stab<double>(handle, a, b, x);
    return stab<ComComplex>(handle, a, b, x);
}
