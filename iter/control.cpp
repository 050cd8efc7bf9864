// The iteration frame shared by the Krylov solvers, and the give-up monitor.
#include "iter/control.h"

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "precond/precond.h"

namespace kwil {

namespace {

IterNormHook normHook = nullptr;

// a * b with the two's-complement wrap of a 32-bit int product (only printed values use it).
int wrapMul(int a, int b)
{
    return static_cast<int>(static_cast<unsigned>(a) * static_cast<unsigned>(b));
}

// ITER_MAXSTEP + n ITER_MAXSTEP_SIZE truncated toward zero; out of the int range (or NaN):
// the most negative int, which runs no step.
int stepLimit(int maxStep, double maxStepSize, int n)
{
    const double v = static_cast<double>(maxStep) + static_cast<double>(n) * maxStepSize;
    if (v > -2147483649.0 && v < 2147483648.0)
        return static_cast<int>(v);
    return INT_MIN;
}

} // namespace

bool iterNormBad(double norm)
{
    uint64_t bits;
    memcpy(&bits, &norm, sizeof bits);
    const uint64_t exponent = 0x7ff0000000000000ULL;
    return (bits & exponent) == exponent;
}

void iterTestSetNormHook(IterNormHook hook)
{
    normHook = hook;
}

IterFrame::IterFrame(KwilHandle* handle, const ComLinMat* a, const ComLinVec* b, ComLinVec* x,
                     const char* name)
    : handle_(handle), a_(a), b_(b), x_(x), name_(name), vecs_{}, nvecs_(0), l_(nullptr),
      lPlan_(nullptr), u_(nullptr), uPlan_(nullptr), preIlu_(0), correctR_(0), stepTrace_(0),
      rType_(0), giveup_(0), resolve_(0.0), giveupFactor_(0.0), giveupReduct_(0.0), limit_(0),
      unit_(1), cycles_(false), traceEvery_(0), giveupEvery_(0), norm0_(0.0), tol_(0.0),
      giveupLevel_(0.0), norm_(0.0), armed_(0), prevNorm_(0.0)
{
}

IterFrame::~IterFrame()
{
    for (int i = 0; i < nvecs_; ++i)
        comLinVecDelete(handle_, vecs_[i]);
    comLinMatTriSolvPlanDelete(handle_, lPlan_);
    comLinMatTriSolvPlanDelete(handle_, uPlan_);
    comLinMatDelete(handle_, l_);
    comLinMatDelete(handle_, u_);
}

int IterFrame::readOptions()
{
    preIlu_ = comOptInt(handle_, OPT_ITER_PREILU);
    correctR_ = comOptInt(handle_, OPT_ITER_CORRECT_R);
    stepTrace_ = comOptInt(handle_, OPT_ITER_STEPTRACE);
    rType_ = comOptInt(handle_, OPT_ITER_R_TYPE);
    giveup_ = comOptInt(handle_, OPT_ITER_GIVEUP);
    resolve_ = comOptDbl(handle_, OPT_ITER_RESOLVE);
    giveupFactor_ = comOptDbl(handle_, OPT_ITER_GIVEUP_CHECK);
    giveupReduct_ = comOptDbl(handle_, OPT_ITER_GIVEUP_REDUCT);
    limit_ = stepLimit(comOptInt(handle_, OPT_ITER_MAXSTEP),
                       comOptDbl(handle_, OPT_ITER_MAXSTEP_SIZE), a_->size);
    traceEvery_ = stepTrace_;
    giveupEvery_ = giveup_;
    if (rType_ != 0 && rType_ != 1) {
        return comErr(handle_, "Invalid r type %d in iter %s solver", rType_, name_);
    }
    return 1;
}

void IterFrame::useCycles(int ell)
{
    unit_ = ell;
    cycles_ = true;
    limit_ /= ell;
    if (stepTrace_ > 0) {
        traceEvery_ = stepTrace_ / ell;
        if (traceEvery_ == 0)
            traceEvery_ = 1;
    }
    if (giveup_ > 0)
        giveupEvery_ = giveup_ / ell; // 0 when ell exceeds it: never
}

bool IterFrame::addVec(ComLinVec** v, bool fill, double value)
{
    comAssert(handle_, nvecs_ < kMaxVecs, "Too many work vectors in iter %s solver", name_);
    *v = fill ? comLinVecCreateInit(handle_, a_->dataType, a_->size, ComComplex{value, 0.0})
              : comLinVecCreate(handle_, a_->dataType, a_->size);
    if (*v == nullptr)
        return false;
    vecs_[nvecs_++] = *v;
    return true;
}

int IterFrame::vecError() const
{
    return comErr(handle_, "Vector data create error in iter %s solver", name_);
}

int IterFrame::buildIlu()
{
    if (preIlu_ == 0)
        return 1;
    ComLinMat* l = nullptr;
    ComLinMat* u = nullptr;
    if (!comToolILU(handle_, a_, &l, &u)) {
        return comErr(handle_, "ILU error in iter %s solver", name_);
    }
    l_ = l;
    u_ = u;
    lPlan_ = comLinMatTriSolvPlan(handle_, 0, l_);
    uPlan_ = comLinMatTriSolvPlan(handle_, 1, u_);
    return 1;
}

void IterFrame::applyM(const ComLinVec* z, ComLinVec* w, ComLinVec* out) const
{
    comLinMatTriSolvPlanned(handle_, 0, l_, lPlan_, z, w);   // L w = z
    comLinMatTriSolvPlanned(handle_, 1, u_, uPlan_, w, out); // U out = w
}

void IterFrame::seed() const
{
    srand(static_cast<unsigned>(time(nullptr)));
}

void IterFrame::residual(ComLinVec* r) const
{
    comLinVecCopy(handle_, b_, r);
    comLinMatCalcVec(handle_, ComComplex{-1.0, 0.0}, a_, 0, x_, ComComplex{1.0, 0.0}, r);
}

void IterFrame::shadow(const ComLinVec* r0, ComLinVec* rt) const
{
    if (rType_ == 0) {
        comLinVecCopy(handle_, r0, rt);
        return;
    }
    for (long i = 0; i < rt->size; ++i) {
        const double value = rand() / 2147483647.0;
        if (rt->dataType == LIN_REAL) {
            rt->realData[i] = value;
        } else {
            rt->compData[2 * i] = value;
            rt->compData[2 * i + 1] = 0.0;
        }
    }
}

void IterFrame::start(double norm0)
{
    norm0_ = norm0;
    norm_ = norm0;
    tol_ = resolve_ * norm0;
    giveupLevel_ = norm0 * (giveupFactor_ * resolve_);
    if (cycles_) {
        comTrace(handle_, "Iter %s l %d pre %d step trace %d norm-0 %.4e", name_, unit_, preIlu_,
                 traceEvery_, norm0);
        comTrace(handle_, " - resolve %.4e max k %d correct r 0-fix rtype %d", resolve_,
                 unit_ * limit_, rType_);
        comTrace(handle_, " - giveup %d check %.4e reduct %.4e", wrapMul(unit_, giveupEvery_),
                 giveupFactor_ * resolve_, giveupReduct_);
    } else {
        comTrace(handle_, "Iter %s pre %d step trace %d norm-0 %.4e", name_, preIlu_, stepTrace_,
                 norm0);
        comTrace(handle_, " - resolve %.4e max k %d correct r %d rtype %d", resolve_, limit_,
                 correctR_, rType_);
        comTrace(handle_, " - giveup %d check %.4e reduct %.4e", giveup_, giveupFactor_ * resolve_,
                 giveupReduct_);
    }
}

double IterFrame::hooked(int count, double nrm) const
{
    return normHook != nullptr ? normHook(count * unit_, nrm) : nrm;
}

void IterFrame::loopLine(int step) const
{
    comTrace(handle_, "Iter %s loop step %d abs norm %.4e resolve %.4e", name_, step, norm_, tol_);
}

int IterFrame::nanError(int step) const
{
    return comErr(handle_, "Norm nan error in iter %s step %d", name_, step);
}

int IterFrame::stepOver(int count) const
{
    return comErr(handle_, "Step over in iter %s step %d abs norm %.4e resolve %.4e", name_,
                  count * unit_, norm_, tol_);
}

int IterFrame::end(int result, int count) const
{
    comTrace(handle_, "Iter %s end %d step %d abs norm %.4e resolve %.4e", name_, result,
             count * unit_, norm_, tol_);
    return result;
}

} // namespace kwil

int giveupCheck(KwilHandle* handle, double level, double norm, int* armed, double* prevNorm,
                double reduct, const char* name, int step)
{
    if (norm > level) { // above the watched level: disarm
        *armed = 0;
        return 0;
    }
    if (*armed != 0 && norm > *prevNorm * reduct) {
        comTrace(handle, "Iter %s give up abs norm %e check %e", name, norm, level);
        comTrace(handle, " - prev %e reduct %e step %d", *prevNorm, reduct, step);
        return 1;
    }
    *armed = 1;
    *prevNorm = norm;
    return 0;
}
