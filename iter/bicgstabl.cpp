// BiCGStab(l) (Sleijpen and Fokkema 1993) for complex systems with the unconjugated bilinear
// form [x, y] = sum x_i y_i throughout, and ILU right preconditioning.
#include "iter/iter.h"

#include "common/own.h"
#include "iter/control.h"

namespace {

using kwil::cdiv;
using kwil::cisZero;
using kwil::cmul;
using kwil::cneg;
using kwil::IterFrame;

const ComComplex kOne{1.0, 0.0};
const ComComplex kZero{0.0, 0.0};

// The vector tables rh_0..rh_l and uh_0..uh_l; every vector made is deleted with the tables.
class VecTables {
  public:
    VecTables(KwilHandle* handle, long n) : handle_(handle), n_(n), rh_(handle, n), uh_(handle, n)
    {
        for (long j = 0; rh_ && j < n; ++j)
            rh_[j] = nullptr;
        for (long j = 0; uh_ && j < n; ++j)
            uh_[j] = nullptr;
    }
    ~VecTables()
    {
        if (!rh_ || !uh_)
            return;
        for (long j = 0; j < n_; ++j)
            comLinVecsDelete(handle_, rh_[j], uh_[j], nullptr, nullptr);
    }
    VecTables(const VecTables&) = delete;
    VecTables& operator=(const VecTables&) = delete;
    bool allocated() const { return rh_ && uh_; }
    // Creates rh_j, uh_j for every j, filled with 0.
    bool create(int size)
    {
        for (long j = 0; j < n_; ++j) {
            rh_[j] = comLinVecCreateInit(handle_, LIN_COMP, size, kZero);
            if (rh_[j] == nullptr)
                return false;
            uh_[j] = comLinVecCreateInit(handle_, LIN_COMP, size, kZero);
            if (uh_[j] == nullptr)
                return false;
        }
        return true;
    }
    ComLinVec* r(long j) const { return rh_[j]; }
    ComLinVec* u(long j) const { return uh_[j]; }

  private:
    KwilHandle* handle_;
    long n_;
    kwil::ComBuf<ComLinVec*> rh_;
    kwil::ComBuf<ComLinVec*> uh_;
};

ComComplex bilinear(KwilHandle* handle, const ComLinVec* x, const ComLinVec* y)
{
    ComComplex result;
    comLinVecCalcDotCompUnconj(handle, x, y, &result);
    return result;
}

} // namespace

int solvIterStabL(KwilHandle* handle, const ComLinMat* a, const ComLinVec* b, ComLinVec* x)
{
    if (a->dataType != LIN_COMP)
        return comErr(handle, "Invalid data type in iter stab-l solver");
    IterFrame f(handle, a, b, x, "stab-l");
    if (!f.readOptions())
        return 0;
    const int ell = f.intOpt(OPT_STABL_L);
    if (ell < 1)
        return comErr(handle, "Invalid l %d in iter stab-l solver", ell);
    f.useCycles(ell);

    const long n1 = static_cast<long>(ell) + 1;
    kwil::ComBuf<ComComplex> sigma(handle, n1), gamma(handle, n1), gamma1(handle, n1),
        gamma2(handle, n1), tau(handle, n1 * n1);
    if (!sigma || !gamma || !gamma1 || !gamma2 || !tau) {
        return comErr(handle, "Double data create error in iter stab-l solver");
    }
    for (long i = 0; i < n1; ++i)
        sigma[i] = gamma[i] = gamma1[i] = gamma2[i] = kZero;
    for (long i = 0; i < n1 * n1; ++i)
        tau[i] = kZero;
    auto t = [&](long i, long j) -> ComComplex& { return tau[i * n1 + j]; };

    VecTables tab(handle, n1);
    if (!tab.allocated()) {
        return comErr(handle, "Vector matrix data create error in iter stab-l solver");
    }
    ComLinVec* rt;
    if (!tab.create(a->size) || !f.addVec(&rt, true, 1.0))
        return f.vecError();
    if (!f.buildIlu())
        return 0;
    ComLinVec *w = nullptr, *ph = nullptr;
    if (f.preconditioned() && (!f.addVec(&w, false, 0.0) || !f.addVec(&ph, false, 0.0))) {
        return f.vecError();
    }
    f.seed();
    f.residual(tab.r(0));
    f.shadow(tab.r(0), rt);
    f.start(comLinVecCalcNorm2(handle, tab.r(0)));

    // v := A M^-1 z
    auto amul = [&](const ComLinVec* z, ComLinVec* v) {
        if (f.preconditioned()) {
            f.applyM(z, w, ph);
            z = ph;
        }
        comLinMatCalcVec(handle, kOne, a, 0, z, kZero, v);
    };
    ComComplex rho0 = kOne, alpha = kZero, omega = kOne, beta = kZero;
    int broken = 0;
    // One cycle: l BiCG steps, then the minimal-residual part. Returns 0 only for the
    // breakdown error raised by the previous cycle.
    auto cycle = [&](int m) -> int {
        const int step0 = ell * m;
        rho0 = cneg(cmul(rho0, omega));
        if (broken)
            return comErr(handle, "Breakdown error in iter stab-l step %d", step0);
        for (int j = 0; j < ell; ++j) {
            const ComComplex rho1 = bilinear(handle, tab.r(j), rt);
            if (cisZero(rho0)) {
                comWarn(handle, "BiCG rho0 breakdown in iter stab-l step %d", step0 + j);
                broken = 1;
                return 1;
            }
            beta = cmul(alpha, cdiv(rho1, rho0));
            rho0 = rho1;
            for (int i = 0; i <= j; ++i) { // uh_i = rh_i - beta uh_i
                comLinVecCalcScal(handle, cneg(beta), tab.u(i));
                comLinVecCalcVec(handle, kOne, tab.r(i), tab.u(i));
            }
            amul(tab.u(j), tab.u(j + 1));
            const ComComplex eta = bilinear(handle, tab.u(j + 1), rt);
            if (cisZero(eta)) {
                comWarn(handle, "BiCG gamma breakdown in iter stab-l step %d", step0 + j);
                broken = 1;
                return 1;
            }
            alpha = cdiv(rho0, eta);
            for (int i = 0; i <= j; ++i)
                comLinVecCalcVec(handle, cneg(alpha), tab.u(i + 1), tab.r(i));
            amul(tab.r(j), tab.r(j + 1));
            comLinVecCalcVec(handle, alpha, tab.u(0), x);
        }
        for (int j = 1; j <= ell; ++j) { // modified Gram-Schmidt on rh_1..rh_l
            for (int i = 1; i < j; ++i) {
                t(i, j) = cdiv(bilinear(handle, tab.r(j), tab.r(i)), sigma[i]);
                comLinVecCalcVec(handle, cneg(t(i, j)), tab.r(i), tab.r(j));
            }
            sigma[j] = bilinear(handle, tab.r(j), tab.r(j));
            if (cisZero(sigma[j])) {
                comWarn(handle, "MR sigma j breakdown in iter stab-l step %d", step0 + j);
                broken = 1;
                return 1;
            }
            gamma1[j] = cdiv(bilinear(handle, tab.r(0), tab.r(j)), sigma[j]);
        }
        gamma[ell] = gamma1[ell];
        omega = gamma[ell];
        for (int j = ell - 1; j >= 1; --j) { // gamma_j = gamma'_j - sum tau_ji gamma_i
            double sre = 0.0, sim = 0.0;
            for (int i = j + 1; i <= ell; ++i) {
                const ComComplex q = cmul(t(j, i), gamma[i]);
                sre += q.re;
                sim += q.im;
            }
            gamma[j] = ComComplex{gamma1[j].re - sre, gamma1[j].im - sim};
        }
        for (int j = 1; j < ell; ++j) { // gamma''_j = sum tau_ji gamma_i+1 + gamma_j+1
            double sre = 0.0, sim = 0.0;
            for (int i = j + 1; i < ell; ++i) {
                const ComComplex q = cmul(t(j, i), gamma[i + 1]);
                sre += q.re;
                sim += q.im;
            }
            gamma2[j] = ComComplex{sre + gamma[j + 1].re, sim + gamma[j + 1].im};
        }
        comLinVecCalcVec(handle, gamma[1], tab.r(0), x);
        comLinVecCalcVec(handle, cneg(gamma1[ell]), tab.r(ell), tab.r(0));
        comLinVecCalcVec(handle, cneg(gamma[ell]), tab.u(ell), tab.u(0));
        for (int j = 1; j < ell; ++j) {
            comLinVecCalcVec(handle, cneg(gamma[j]), tab.u(j), tab.u(0));
            comLinVecCalcVec(handle, gamma2[j], tab.r(j), x);
            comLinVecCalcVec(handle, cneg(gamma1[j]), tab.r(j), tab.r(0));
        }
        return 1;
    };
    // x holds y of A M^-1 y = b; a successful solve maps it back to x = M^-1 y.
    auto finish = [&](int result, int m) {
        if (result == 1 && f.preconditioned())
            f.applyM(x, w, x);
        return f.end(result, m);
    };

    int m = 0;
    for (; m < f.limit(); ++m) {
        if (m >= 1) {
            const int res = f.monitor(m, comLinVecCalcNorm2(handle, tab.r(0)), [&] {
                comTrace(handle, "Iter stab-l nan error alpha (%.4e %.4e)", alpha.re, alpha.im);
                comTrace(handle, " -  beta (%.4e %.4e) omega (%.4e %.4e)", beta.re, beta.im,
                         omega.re, omega.im);
                comTrace(handle, " -  rho (%.4e %.4e)", rho0.re, rho0.im);
            });
            if (res != kwil::ITER_GO)
                return finish(res, m);
        }
        if (!cycle(m))
            return finish(0, m);
    }
    return finish(f.stepOver(m), m);
}
