// The safe solver: a BiCGSafe-type product method (Fujino 2005) with BiCG or BiCR coefficients
// and ILU right preconditioning, real systems only.
#include "iter/iter.h"

#include "iter/control.h"

namespace {

using kwil::IterFrame;

const ComComplex kOne{1.0, 0.0};
const ComComplex kZero{0.0, 0.0};

ComComplex c(double v)
{
    return ComComplex{v, 0.0};
}

double dot(KwilHandle* handle, const ComLinVec* x, const ComLinVec* y)
{
    return comLinVecCalcDotReal(handle, x, y);
}

// y := A x.
void mul(KwilHandle* handle, const ComLinMat* a, const ComLinVec* x, ComLinVec* y)
{
    comLinMatCalcVec(handle, kOne, a, 0, x, kZero, y);
}

} // namespace

int solvIterSafe(KwilHandle* handle, const ComLinMat* a, const ComLinVec* b, ComLinVec* x)
{
    if (a->dataType != LIN_REAL)
        return comErr(handle, "Invalid data type in iter safe solver");
    IterFrame f(handle, a, b, x, "safe");
    if (!f.readOptions())
        return 0;
    const int cr = f.intOpt(OPT_SAFE_CR);
    const int correctY = f.intOpt(OPT_SAFE_CORRECT_Y);
    ComLinVec *r, *rt, *p, *u, *z, *y, *ar, *ap, *au, *s;
    if (!f.addVec(&r, false, 0.0) || !f.addVec(&rt, false, 0.0) || !f.addVec(&p, false, 0.0) ||
        !f.addVec(&u, true, 0.0) || !f.addVec(&z, true, 0.0) || !f.addVec(&y, true, 0.0) ||
        !f.addVec(&ar, false, 0.0) || !f.addVec(&ap, false, 0.0) || !f.addVec(&au, false, 0.0) ||
        !f.addVec(&s, false, 0.0)) {
        return f.vecError();
    }
    if (!f.buildIlu())
        return 0;
    ComLinVec* rh = r;   // M^-1 r, or r itself without preconditioning
    ComLinVec* arh = ar; // A M^-1 r, or A r
    ComLinVec *t1 = nullptr, *t2 = nullptr, *t3 = nullptr;
    if (f.preconditioned() &&
        (!f.addVec(&rh, false, 0.0) || !f.addVec(&arh, false, 0.0) || !f.addVec(&t1, false, 0.0) ||
         !f.addVec(&t2, false, 0.0) || !f.addVec(&t3, false, 0.0))) {
        return f.vecError();
    }
    f.seed();
    f.residual(r);
    f.shadow(r, rt);
    // Ar, and with preconditioning rh = M^-1 r, Arh = A rh.
    auto refresh = [&] {
        mul(handle, a, r, ar);
        if (f.preconditioned()) {
            f.applyM(r, t1, rh);
            mul(handle, a, rh, arh);
        }
    };
    refresh();
    double rho;
    if (cr == 0) {
        rho = dot(handle, r, rt);
    } else {
        rho = dot(handle, ar, rt);
        comLinMatCalcVec(handle, kOne, a, 1, rt, kZero, s); // s = A^T rt
    }
    f.start(comLinVecCalcNorm2(handle, r));
    comTrace(handle, " - safe cr %d correct y %d", cr, correctY);

    comLinVecCopy(handle, rh, p);
    comLinVecCopy(handle, arh, ap);
    double zeta = dot(handle, ar, r) / dot(handle, ar, ar);
    double eta = 0.0;
    double beta = 0.0;
    double alpha = 0.0;
    int k = 0;
    for (; k < f.limit(); ++k) {
        if (k >= 1) {
            if (f.correctionDue(k)) {
                f.residual(r);
                refresh();
            }
            const int res = f.monitor(k, comLinVecCalcNorm2(handle, r), [&] {
                comTrace(handle, "Iter safe nan error alpha %e beta %e zeta %e eta %e", alpha, beta,
                         zeta, eta);
            });
            if (res != kwil::ITER_GO)
                return f.end(res, k);
            // p = beta (p - u) + rh; Ap = beta (Ap - Au) + Arh
            comLinVecCalcScal(handle, c(beta), p);
            comLinVecCalcVec(handle, c(-beta), u, p);
            comLinVecCalcVec(handle, kOne, rh, p);
            comLinVecCalcScal(handle, c(beta), ap);
            comLinVecCalcVec(handle, c(-beta), au, ap);
            comLinVecCalcVec(handle, kOne, arh, ap);
            // zeta, eta minimise ||r - zeta Arh - eta y|| (Arh and y paired with r, not rh)
            const double q1 = dot(handle, y, y);
            const double q2 = dot(handle, arh, r);
            const double q3 = dot(handle, y, r);
            const double q4 = dot(handle, arh, y);
            const double q5 = dot(handle, arh, arh);
            const double q6 = dot(handle, y, arh);
            const double det = q5 * q1 - q6 * q4;
            zeta = (q1 * q2 - q4 * q3) / det;
            eta = (q5 * q3 - q6 * q2) / det;
        }
        alpha = rho / dot(handle, cr == 0 ? rt : s, ap);
        // u = beta eta u + M^-1 (eta y + zeta Ap)
        if (k == 0) {
            if (f.preconditioned()) {
                f.applyM(ap, t1, u);
            } else {
                comLinVecCopy(handle, ap, u);
            }
            comLinVecCalcScal(handle, c(zeta), u);
        } else {
            comLinVecCalcScal(handle, c(beta * eta), u);
            if (f.preconditioned()) {
                comLinVecInit(handle, t1, kZero);
                comLinVecCalcVec2(handle, c(zeta), ap, c(eta), y, t1);
                f.applyM(t1, t2, t3);
                comLinVecCalcVec(handle, kOne, t3, u);
            } else {
                comLinVecCalcVec2(handle, c(zeta), ap, c(eta), y, u);
            }
        }
        mul(handle, a, u, au);
        if (correctY == 0) { // y = eta y - alpha Au + zeta Arh
            if (k >= 1)
                comLinVecCalcScal(handle, c(eta), y);
            comLinVecCalcVec(handle, c(-alpha), au, y);
            comLinVecCalcVec(handle, c(zeta), arh, y);
        }
        // z = eta z - alpha u + zeta rh
        if (k >= 1)
            comLinVecCalcScal(handle, c(eta), z);
        comLinVecCalcVec(handle, c(-alpha), u, z);
        comLinVecCalcVec(handle, c(zeta), rh, z);
        if (correctY != 0)
            mul(handle, a, z, y);
        comLinVecCalcVec2(handle, c(alpha), p, kOne, z, x); // x = x + z + alpha p
        comLinVecCalcVec(handle, c(-1.0), y, r);            // r = r - y - alpha Ap
        comLinVecCalcVec(handle, c(-alpha), ap, r);
        refresh();
        const double rhoNew = dot(handle, cr == 0 ? r : ar, rt);
        beta = ((alpha * rhoNew) / zeta) / rho;
        rho = rhoNew;
    }
    return f.end(f.stepOver(k), k);
}
