// The iteration frame shared by the Krylov solvers: options and control values, work vectors,
// the ILU right preconditioner, start and end lines, the residual monitor and the step limit.
#pragma once

#include "iter/iter.h"

namespace kwil {

// Plain complex product and quotient (no scaling, no NaN recovery), so that every build
// rounds the same way.
inline ComComplex cmul(ComComplex a, ComComplex b)
{
    return ComComplex{a.re * b.re - a.im * b.im, a.re * b.im + a.im * b.re};
}
inline ComComplex cdiv(ComComplex a, ComComplex b)
{
    const double d = b.re * b.re + b.im * b.im;
    return ComComplex{(b.re * a.re + b.im * a.im) / d, (b.re * a.im - b.im * a.re) / d};
}
inline ComComplex cneg(ComComplex a)
{
    return ComComplex{-a.re, -a.im};
}
// Both parts compare equal to 0.0 (a NaN part is not zero).
inline bool cisZero(ComComplex a)
{
    return a.re == 0.0 && a.im == 0.0;
}

// Scalar arithmetic for the solvers written once for double and ComComplex.
inline double sMul(double a, double b)
{
    return a * b;
}
inline ComComplex sMul(ComComplex a, ComComplex b)
{
    return cmul(a, b);
}
inline double sDiv(double a, double b)
{
    return a / b;
}
inline ComComplex sDiv(ComComplex a, ComComplex b)
{
    return cdiv(a, b);
}
inline double sNeg(double a)
{
    return -a;
}
inline ComComplex sNeg(ComComplex a)
{
    return cneg(a);
}
inline ComComplex toCom(double a)
{
    return ComComplex{a, 0.0};
}
inline ComComplex toCom(ComComplex a)
{
    return a;
}
// <x, y>: the real dot product, or sum conj(x_i) y_i for complex vectors.
inline void iterDot(KwilHandle* handle, const ComLinVec* x, const ComLinVec* y, double* out)
{
    *out = comLinVecCalcDotReal(handle, x, y);
}
inline void iterDot(KwilHandle* handle, const ComLinVec* x, const ComLinVec* y, ComComplex* out)
{
    comLinVecCalcDotCompConj(handle, x, y, out);
}

// True for a NaN or an infinity (all exponent bits set).
bool iterNormBad(double norm);

// Test hook: when set, the monitor takes hook(step, norm) as the residual norm of each test.
using IterNormHook = double (*)(int step, double norm);
void iterTestSetNormHook(IterNormHook hook);

// What the residual monitor decides: go on, or end the solve with result 0 or 1.
constexpr int ITER_GO = -1;

// One solve's frame. The solver creates its work vectors through addVec, which the frame owns
// and deletes (with the ILU factors) when it goes out of scope, on every ending.
class IterFrame {
  public:
    IterFrame(KwilHandle* handle, const ComLinMat* a, const ComLinVec* b, ComLinVec* x,
              const char* name);
    ~IterFrame();
    IterFrame(const IterFrame&) = delete;
    IterFrame& operator=(const IterFrame&) = delete;

    // Reads the options and the step limit. 0 after the invalid-r-type line.
    int readOptions();
    // Counts in cycles of ell steps: the limit and the two intervals divided by ell.
    void useCycles(int ell);
    // Creates a vector of A's type and size (filled with value when fill is set) into *v.
    // False on failure; the caller then returns vecError().
    bool addVec(ComLinVec** v, bool fill, double value);
    // Writes the vector-creation line; returns 0.
    int vecError() const;
    // Builds L and U when ITER_PREILU is set. 0 after the ILU line.
    int buildIlu();
    bool preconditioned() const { return preIlu_ != 0; }
    // out := U^-1 L^-1 z, with w as the intermediate of the two triangular solves.
    void applyM(const ComLinVec* z, ComLinVec* w, ComLinVec* out) const;
    // Reseeds rand() from the clock.
    void seed() const;
    // r := b - A x.
    void residual(ComLinVec* r) const;
    // The shadow residual by ITER_R_TYPE: a copy of r0, or rand() / 2147483647 per entry.
    void shadow(const ComLinVec* r0, ComLinVec* rt) const;
    // Fixes ||r0||, the absolute tolerance and the give-up level; writes the three start lines.
    void start(double norm0);
    // True when the residual correction is due after k steps.
    bool correctionDue(int k) const { return correctR_ > 0 && k % correctR_ == 0; }

    // Residual monitor after count steps (cycles): trace, NaN stop, convergence and give-up.
    // nanLines writes the solver's diagnostic lines before the norm-NaN message.
    template <class NanLines> int monitor(int count, double nrm, NanLines nanLines)
    {
        nrm = hooked(count, nrm);
        norm_ = nrm;
        const int step = count * unit_;
        if (traceEvery_ > 0 && count % traceEvery_ == 0)
            loopLine(step);
        if (iterNormBad(nrm)) {
            nanLines();
            return nanError(step);
        }
        if (nrm <= tol_)
            return 1;
        if (giveupEvery_ > 0 && count % giveupEvery_ == 0 &&
            giveupCheck(handle_, giveupLevel_, nrm, &armed_, &prevNorm_, giveupReduct_, name_,
                        step)) {
            return 1;
        }
        return ITER_GO;
    }
    // Records the most recently computed norm outside the monitor.
    void setNorm(double nrm) { norm_ = nrm; }
    // The step-over line after count steps (cycles); returns 0.
    int stepOver(int count) const;
    // The end line after count steps (cycles); returns result.
    int end(int result, int count) const;

    int limit() const { return limit_; }
    int intOpt(ComOptIntKey key) const { return comOptInt(handle_, key); }

  private:
    double hooked(int count, double nrm) const;
    void loopLine(int step) const;
    int nanError(int step) const;

    static constexpr int kMaxVecs = 16;

    KwilHandle* handle_;
    const ComLinMat* a_;
    const ComLinVec* b_;
    ComLinVec* x_;
    const char* name_;
    ComLinVec* vecs_[kMaxVecs];
    int nvecs_;
    ComLinMat* l_;
    PlatformTrsvPlan* lPlan_; // schedules of the two factors' solves, null for one thread
    ComLinMat* u_;
    PlatformTrsvPlan* uPlan_;

    int preIlu_;
    int correctR_;
    int stepTrace_;
    int rType_;
    int giveup_;
    double resolve_;
    double giveupFactor_;
    double giveupReduct_;
    int limit_;       // in steps, or in cycles after useCycles
    int unit_;        // steps per count: 1, or ell
    bool cycles_;     // counting in cycles (the stab-l forms of the start lines)
    int traceEvery_;  // loop-line interval in counts
    int giveupEvery_; // give-up interval in counts

    double norm0_;
    double tol_;
    double giveupLevel_;
    double norm_; // most recently computed residual norm
    int armed_;
    double prevNorm_;
};

} // namespace kwil
