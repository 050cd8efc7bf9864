// The direct solve through pardiso_: parameters from the options, memory limit, phase traces,
// error texts.
#include "direct/direct.h"

#include <algorithm>
#include <climits>

#include "platform/pardiso.h"

namespace {

// Error texts by code + 11, for the codes -11..0.
const char* const kPardisoErrText[12] = {
    "read/write problems with the OOC data file",
    "problems with opening OOC temporary files",
    "not enough memory for OOC",
    "32-bit integer overflow problem",
    "diagonal matrix problem",
    "preordering failed (matrix types 11, 13 only)",
    "unclassified (internal) error",
    "zero pivot, numerical factorization or iterative refinement problem",
    "reordering problem",
    "not enough memory",
    "input inconsistent",
    "no error",
};

// One run of the solver phases on one matrix: the parameter block of pardiso_ and the release
// that every started run ends with (at the latest when the run goes out of scope).
class PardisoRun {
  public:
    PardisoRun(KwilHandle* handle, ComLinMat* mat) : n_(mat->size)
    {
        const bool real = mat->dataType == LIN_REAL;
        mtype_ = real ? 11 : 13;
        a_ = real ? mat->realData : mat->compData;
        ia_ = mat->row;
        ja_ = mat->col;
        msglvl_ = comOptInt(handle, OPT_PARDISO_STAT);
        iparm_[0] = 1; // the values below are supplied
        iparm_[1] = 2; // nested dissection ordering (METIS)
        iparm_[7] = comOptInt(handle, OPT_PARDISO_ITER);
        iparm_[9] = comOptInt(handle, OPT_PARDISO_PIVOT);
        iparm_[10] = 1;  // scaling
        iparm_[12] = 1;  // weighted matching
        iparm_[17] = -1; // report the non-zeros of the factors
        iparm_[18] = -1; // report the MFLOPS of the factorisation
    }
    ~PardisoRun() { release(); }
    PardisoRun(const PardisoRun&) = delete;
    PardisoRun& operator=(const PardisoRun&) = delete;

    // Runs phase 11, 22 or 33; b and x are the vector data for 33. Returns the error code.
    int phase(int phase, double* b, double* x)
    {
        started_ = true;
        call(phase, b, x);
        return error_;
    }
    // Phase -1 with dummy vectors, once; its error code is not examined.
    void release()
    {
        if (!started_)
            return;
        started_ = false;
        call(-1, &dummy_, &dummy_);
    }
    int iparm(int i) const { return iparm_[i]; }

  private:
    void call(int phase, double* b, double* x)
    {
        const int maxfct = 1, mnum = 1, nrhs = 1;
        pardiso_(pt_, &maxfct, &mnum, &mtype_, &phase, &n_, a_, ia_, ja_, &perm_, &nrhs, iparm_,
                 &msglvl_, b, x, &error_);
    }

    void* pt_[64] = {};
    int iparm_[64] = {};
    int mtype_ = 0;
    int n_;
    const double* a_ = nullptr;
    const int* ia_ = nullptr;
    const int* ja_ = nullptr;
    int perm_ = 0;
    int msglvl_ = 0;
    int error_ = 0;
    double dummy_ = 0.0;
    bool started_ = false;
};

} // namespace

int PARDISO_Err(KwilHandle* handle, const char* phase, int error)
{
    const long index = static_cast<long>(error) + 11;
    const char* text = index >= 0 && index <= 11 ? kPardisoErrText[index] : "unknown";
    comErr(handle, "PARDISO error in %s code %d", phase, error);
    return comErr(handle, "PARDISO error: %s", text);
}

int solvIMKL_PARDISO(KwilHandle* handle, ComLinMat* mat, ComLinVec* vecFix, ComLinVec* vecVar)
{
    comAssert(handle, mat->type == MAT_CSR, "Matrix not in CSR form in PARDISO solver");
    comAssert(handle, vecFix->size == mat->size && vecVar->size == mat->size,
              "Size unmatch in PARDISO solver");
    comAssert(handle, vecFix->dataType == mat->dataType && vecVar->dataType == mat->dataType,
              "Data type unmatch in PARDISO solver");
    const bool real = mat->dataType == LIN_REAL;
    double* b = real ? vecFix->realData : vecFix->compData;
    double* x = real ? vecVar->realData : vecVar->compData;
    const bool phaseTrace = comOptInt(handle, OPT_PARDISO_TRACE) != 0;
    const int memLim = comOptInt(handle, OPT_PARDISO_MEM_LIM);

    PardisoRun run(handle, mat);
    comTrace(handle, "PARDISO iter %d pivot %d", comOptInt(handle, OPT_PARDISO_ITER),
             comOptInt(handle, OPT_PARDISO_PIVOT));

    double dummy = 0.0;
    int error = run.phase(11, &dummy, &dummy);
    if (error != 0) {
        PARDISO_Err(handle, "symbolic factorization", error);
        run.release();
        return 0;
    }
    // Memory figure, KB: the larger of the analysis peak and what the later phases keep.
    const long mem = std::max(static_cast<long>(run.iparm(14)),
                              static_cast<long>(run.iparm(15)) + run.iparm(16));
    const int memKb = static_cast<int>(std::min(mem, static_cast<long>(INT_MAX)));
    if (memLim > 0 && mem > memLim) {
        run.release();
        return comErr(handle, "PARDISO too large memory error max %d > lim %d kb", memKb, memLim);
    }
    if (phaseTrace) {
        comTrace(handle, "PARDISO symbolic factorization end memory %d KB", memKb);
        comTrace(handle, " - nonzero %d MFLOPS %d", run.iparm(17), run.iparm(18));
    }

    error = run.phase(22, &dummy, &dummy);
    if (error != 0) {
        PARDISO_Err(handle, "numerical factorization", error);
        run.release();
        return 0;
    }
    if (phaseTrace)
        comTrace(handle, "PARDISO numerical factorization end pivot %d", run.iparm(13));

    error = run.phase(33, b, x);
    if (error != 0) {
        PARDISO_Err(handle, "solution", error);
        run.release();
        return 0;
    }
    if (phaseTrace)
        comTrace(handle, "PARDISO solution end iter num %d", run.iparm(6));

    run.release();
    return 1;
}
