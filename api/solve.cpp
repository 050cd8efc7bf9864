// The solve driver: validation, clean-up, repair, scaling, the chosen solver, and the snapshot.
#include <sys/stat.h>
#include <sys/types.h>

#include <cerrno>
#include <cmath>
#include <cstdio>

#include "api/check.h"
#include "common/own.h"
#include "direct/direct.h"
#include "file/file.h"
#include "iter/iter.h"
#include "precond/precond.h"

namespace {

// The saved diagonal of a zero-diagonal repair; written back into A by reset() or on scope exit.
class DiagRepair {
  public:
    explicit DiagRepair(KwilHandle* handle) : handle_(handle), saved_(nullptr) {}
    ~DiagRepair() { reset(); }
    DiagRepair(const DiagRepair&) = delete;
    DiagRepair& operator=(const DiagRepair&) = delete;
    // Inserts the missing diagonal entries of the handle's matrix; 0 when the repair failed.
    int run()
    {
        saved_ = comToolRevDiagZero(handle_, handle_->matCoef);
        return saved_ != nullptr;
    }
    // Inserted entries become explicit zeros; the saved diagonal is released.
    void reset()
    {
        if (saved_ == nullptr)
            return;
        comToolResetRevDiagZero(handle_, handle_->matCoef, saved_);
        saved_ = nullptr;
    }

  private:
    KwilHandle* handle_;
    ComLinVec* saved_;
};

// The symmetrically scaled copies of A and b and the scale vector, while scaling is active.
class DiagScale {
  public:
    explicit DiagScale(KwilHandle* handle)
        : handle_(handle), as_(nullptr), bs_(nullptr), s_(nullptr)
    {
    }
    ~DiagScale()
    {
        if (!active())
            return;
        comLinMatDelete(handle_, as_);
        comLinVecsDelete(handle_, bs_, s_, nullptr, nullptr);
    }
    DiagScale(const DiagScale&) = delete;
    DiagScale& operator=(const DiagScale&) = delete;
    // Builds the scaled system of a and b; 0 when scaling was refused or failed (logged).
    int run(const ComLinMat* a, const ComLinVec* b)
    {
        return comToolSetDiagScale(handle_, a, &as_, b, &bs_, &s_);
    }
    bool active() const { return as_ != nullptr; }
    ComLinMat* mat() const { return as_; }
    ComLinVec* vec() const { return bs_; }
    // x := S x, and the copies and the scale vector are released.
    void reset(ComLinVec* x)
    {
        if (!active())
            return;
        comToolResetDiagScale(handle_, as_, bs_, s_, x);
        as_ = nullptr;
        bs_ = nullptr;
        s_ = nullptr;
    }

  private:
    KwilHandle* handle_;
    ComLinMat* as_;
    ComLinVec* bs_;
    ComLinVec* s_;
};

// The repair runs by REV_DIAGZERO: 1 when a diagonal is missing and SOLVER is iterative (0 to
// 9, whether or not a solver stands behind the value), 2 always, otherwise never.
bool repairWanted(int revDiagZero, int solver, int zeroDiag)
{
    if (revDiagZero == 1)
        return zeroDiag > 0 && solver >= 0 && solver <= 9;
    return revDiagZero == 2;
}

// Runs the solver chosen by SOLVER on (a, b) into x. 1 on success.
int dispatch(KwilHandle* handle, int solver, ComLinMat* a, ComLinVec* b, ComLinVec* x)
{
    switch (solver) {
    case -1:
        comWarn(handle, "Solver test");
        return 1;
    case 0:
        return solvIterStab(handle, a, b, x);
    case 1:
        return solvIterSafe(handle, a, b, x);
    case 2:
        return solvIterStabL(handle, a, b, x);
    case 10:
        return solvIMKL_PARDISO(handle, a, b, x);
    case 20:
        return comToolILUSolv(handle, a, b, x);
    default:
        return comErr(handle, "Unknown solver type %d in solver", solver);
    }
}

// Creates the lowest free directory kwilSave0001 .. kwilSave9999 into dir; 0 after an error.
int makeSaveDir(KwilHandle* handle, char* dir, size_t len)
{
    for (int n = 1; n <= 9999; ++n) {
        snprintf(dir, len, "kwilSave%04d", n);
        if (mkdir(dir, 0755) == 0)
            return 1;
        if (errno != EEXIST)
            return comErr(handle, "Make save all dir error in solver");
    }
    return comErr(handle, "Too mutch save all dir in solver");
}

// Writes the snapshot of the solve: options, A, b, x, the residual and its norms. The writers
// report their own failures; nothing here changes the result of the solve.
void saveAll(KwilHandle* handle)
{
    char dir[32];
    if (!makeSaveDir(handle, dir, sizeof dir))
        return;
    char path[64];
    snprintf(path, sizeof path, "%s/%s", dir, "kwil.ini");
    comOptSave(handle, path);
    snprintf(path, sizeof path, "%s/matCoef.mtx", dir);
    comFileMatWrite(handle, handle->matCoef, path);
    snprintf(path, sizeof path, "%s/vecFix.mtx", dir);
    comFileVecWrite(handle, handle->vecFix, path);
    snprintf(path, sizeof path, "%s/vecVar.mtx", dir);
    comFileVecWrite(handle, handle->vecVar, path);

    // A residual that could not be computed is written as nan rather than as a false zero.
    double rel = NAN;
    double abs = NAN;
    snprintf(path, sizeof path, "%s/vecDiff.mtx", dir);
    comToolCheckResult(handle, handle->matCoef, handle->vecFix, handle->vecVar, &rel, &abs, path);

    snprintf(path, sizeof path, "%s/result.txt", dir);
    FILE* fp = fopen(path, "w");
    if (fp == nullptr) {
        comErr(handle, "Save all result file open error in solver '%s'", path);
        return;
    }
    fprintf(fp, "Solver result norm \nRel %.4e\nAbs %.4e\n", rel, abs);
    fclose(fp);
}

// The pipeline of one solve, inside the thread bracket of kwilSolv.
int solve(KwilHandle* handle)
{
    const int solver = comOptInt(handle, OPT_SOLVER);
    const int diagScale = comOptInt(handle, OPT_DIAG_SCALE);
    const int revDiagZero = comOptInt(handle, OPT_REV_DIAGZERO);
    const int save = comOptInt(handle, OPT_SAVE_ALL);

    ComTime timer{};
    comTimeBegin(handle, "Solver", &timer);
    comOptTrace(handle, "Solver");

    ComLinMat* a = handle->matCoef;
    if (a == nullptr || a->size == 0 || a->dataNum == 0 || handle->vecFix == nullptr ||
        handle->vecFix->size == 0) {
        return comErr(handle, "No data in solver");
    }
    // A previous solve or check may have left A compressed.
    if (a->type != MAT_COO && !comLinMatChangeType(handle, a, MAT_COO)) {
        return comErr(handle, "Restore mat type error in solver");
    }
    if (!checkMatCoefLack(handle, "solver"))
        return 0;
    if (handle->vecFix->size != a->size)
        return comErr(handle, "Size unmatch in solver");
    if (!reviseDataTypeUnmatch(handle, a, &handle->vecFix, "solver"))
        return 0;

    // Every solver starts from x = 0, whatever the host put into the variable vector.
    comLinVecDelete(handle, handle->vecVar);
    handle->vecVar = comLinVecCreateInit(handle, a->dataType, a->size, ComComplex{0.0, 0.0});
    if (handle->vecVar == nullptr) {
        return comErr(handle, "Vector variable data create error in solver");
    }
    ComLinVec* x = handle->vecVar;

    int zeroDiag = 0;
    comToolMatClearZero(handle, a, &zeroDiag);
    DiagRepair repair(handle);
    if (repairWanted(revDiagZero, solver, zeroDiag) && !repair.run())
        return 0;

    // The sort inside rejects duplicate entries; the repair is undone on the way out.
    if (!comLinMatChangeType(handle, a, MAT_CSR)) {
        return comErr(handle, "Change type CSR error in solver");
    }
    comToolAnaly(handle, a, handle->vecFix, "solver", zeroDiag);

    // Scaling that is refused or fails leaves the unscaled system current (logged there).
    DiagScale scale(handle);
    ComLinMat* curMat = a;
    ComLinVec* curVec = handle->vecFix;
    if (diagScale != 0 && scale.run(a, handle->vecFix)) {
        curMat = scale.mat();
        curVec = scale.vec();
        comToolAnaly(handle, curMat, curVec, "diag scale", zeroDiag);
    }

    int result = dispatch(handle, solver, curMat, curVec, x);

    // The NaN test sees the still-scaled solution; an infinite entry is no NaN.
    if (result == 1 && comLinVecIsNan(handle, x)) {
        result = comErr(handle, "Result var vector nan error in solver");
    }
    scale.reset(x);
    repair.reset();
    if (result == 1)
        comTimeCheck(handle, "", &timer, 0);
    if (save != 0)
        saveAll(handle);
    return result;
}

} // namespace

int kwilSolv(KwilHandle* handle)
{
    const int threads = comSetThreads(handle);
    const int result = solve(handle);
    comResetThreads(handle, threads);
    return result;
}
