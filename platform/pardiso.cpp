// The sparse direct solver phases on UMFPACK: see pardiso.h.
//
// A one-based CSR matrix A, shifted to zero-based indices, is the compressed-column form of its
// plain transpose A^T. UMFPACK factors that matrix and solves with A^T's transpose (UMFPACK_At
// for real, UMFPACK_Aat for complex, which does not conjugate), so the values array of the
// caller is used as it is and only the two index arrays are copied. The state behind pt[0]
// holds those copies, UMFPACK's symbolic and numeric objects and the solve workspace.
//
// Phases: 11 analysis, 22 numerical factorisation, 33 solve with iterative refinement, and the
// combinations 12, 13, 23; 0 drops the factors, -1 releases everything and zeroes pt[0].
// A phase that finds no state it needs (22 before 11, 33 before 22, a zeroed pt) returns -1.
//
// iparm inputs: [0] 0 selects the defaults below for every other input; [1] 2 orders by METIS
// nested dissection, anything else by UMFPACK's default (AMD or COLAMD by its strategy);
// [7] the maximum number of refinement steps (|value|; defaults to 2); [10] 0 no scaling,
// otherwise row scaling by the sums of absolute values; [34] non-zero: zero-based ia/ja.
// Weighted matching ([12]) and pivot perturbation ([9]) are accepted and not needed: UMFPACK's
// threshold partial pivoting selects off-diagonal pivots where the diagonal is small or
// missing, so no pivot is perturbed. A solution in b ([5] non-zero), the transposed solve
// ([11] non-zero) and single precision ([27] non-zero) are not provided and return -1.
//
// iparm outputs: after analysis [14] peak memory of the analysis, [15] memory kept from the
// analysis on (symbolic object and index copies), [16] UMFPACK's estimate of the further peak
// memory of the factorisation plus the solve workspace, all in KB; [17] estimated non-zeros of
// L and U as stored (U's diagonal included); [18] estimated factorisation MFLOP count. After the
// factorisation [16], [17] and [18] hold the actual figures and [13] is 0. After the solve [6]
// holds the refinement steps taken (the largest over the right-hand sides).
//
// Error codes: -1 invalid arguments or an inconsistent call, -2 out of memory, -3 a failed
// fill-reducing ordering, -4 a singular matrix, -5 any other failure of UMFPACK.
#include "platform/pardiso.h"

#include <umfpack.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstddef>

#include "common/own.h"

namespace {

constexpr int kMagic = 0x4b775064; // marks a live state behind pt[0]

struct PardisoState {
    int magic;
    int complex; // 0: mtype 11 (real), 1: mtype 13 (complex)
    int n;
    int nnz;
    int* ap;        // n+1 zero-based row pointers of A: column pointers of A^T
    int* ai;        // nnz zero-based column indices of A: row indices of A^T
    void* symbolic; // UMFPACK symbolic object, null before analysis
    void* numeric;  // UMFPACK numeric object, null before factorisation
    int* wi;        // solve workspace, n ints, made at the first solve
    double* w;      // solve workspace, 5n (real) or 10n (complex) doubles
    long keptBytes; // bytes of this record and the index copies
    // Size of the symbolic object in UMFPACK units, from the analysis: the numeric phase does
    // not report it.
    double symbolicUnits;
};

enum PardisoErr {
    kOk = 0,
    kInconsistent = -1,
    kNoMemory = -2,
    kReordering = -3,
    kZeroPivot = -4,
    kInternal = -5,
};

// KB from bytes, rounded up and clipped to the int range.
int toKb(double bytes)
{
    const double kb = std::ceil(std::max(bytes, 0.0) / 1024.0);
    return kb >= INT_MAX ? INT_MAX : static_cast<int>(kb);
}

int clipInt(double v)
{
    const double r = std::nearbyint(std::max(v, 0.0));
    return r >= INT_MAX ? INT_MAX : static_cast<int>(r);
}

// Doubles of solve workspace per unknown (refinement on).
long workDoubles(const PardisoState& s)
{
    return s.complex != 0 ? 10 : 5;
}

double workBytes(const PardisoState& s)
{
    return static_cast<double>(s.n) * (sizeof(int) + workDoubles(s) * sizeof(double));
}

void setControl(const int* iparm, int msglvl, double* control)
{
    umfpack_di_defaults(control); // the same defaults serve umfpack_zi_*
    const bool given = iparm[0] != 0;
    if (!given || iparm[1] == 2)
        control[UMFPACK_ORDERING] = UMFPACK_ORDERING_METIS;
    control[UMFPACK_IRSTEP] = given ? std::abs(static_cast<double>(iparm[7])) : 2.0;
    control[UMFPACK_SCALE] = given && iparm[10] == 0 ? UMFPACK_SCALE_NONE : UMFPACK_SCALE_SUM;
    control[UMFPACK_PRL] = msglvl > 0 ? 2 : 0;
}

void reportInfo(const PardisoState& s, const double* control, const double* info, int msglvl)
{
    if (msglvl <= 0)
        return;
    if (s.complex != 0) {
        umfpack_zi_report_info(control, info);
    } else {
        umfpack_di_report_info(control, info);
    }
}

void freeNumeric(PardisoState& s)
{
    if (s.numeric == nullptr)
        return;
    if (s.complex != 0) {
        umfpack_zi_free_numeric(&s.numeric);
    } else {
        umfpack_di_free_numeric(&s.numeric);
    }
    s.numeric = nullptr;
}

void freeState(PardisoState* s)
{
    if (s == nullptr)
        return;
    freeNumeric(*s);
    if (s->symbolic != nullptr) {
        if (s->complex != 0) {
            umfpack_zi_free_symbolic(&s->symbolic);
        } else {
            umfpack_di_free_symbolic(&s->symbolic);
        }
    }
    comFree(nullptr, s->ap);
    comFree(nullptr, s->ai);
    comFree(nullptr, s->wi);
    comFree(nullptr, s->w);
    s->magic = 0;
    comFree(nullptr, s);
}

void freeOwned(KwilHandle*, PardisoState* s)
{
    freeState(s);
}

// Releases the state behind pt[0], if it is one of ours, and zeroes the slot.
void releaseAll(void** pt)
{
    auto* s = static_cast<PardisoState*>(pt[0]);
    if (s != nullptr && s->magic == kMagic)
        freeState(s);
    pt[0] = nullptr;
}

PardisoState* liveState(void** pt, int complex, int n)
{
    auto* s = static_cast<PardisoState*>(pt[0]);
    if (s == nullptr || s->magic != kMagic || s->complex != complex || s->n != n)
        return nullptr;
    return s;
}

// Phase 11: copies the index arrays zero-based and runs UMFPACK's symbolic analysis.
int analyse(void** pt, int complex, int n, const double* a, const int* ia, const int* ja,
            int* iparm, int msglvl)
{
    releaseAll(pt);
    if (n <= 0 || ia == nullptr || ja == nullptr)
        return kInconsistent;
    const int base = iparm[34] != 0 ? 0 : 1;
    if (ia[0] != base)
        return kInconsistent;
    for (int i = 0; i < n; ++i) {
        if (ia[i + 1] < ia[i])
            return kInconsistent;
    }
    const long nnz = static_cast<long>(ia[n]) - base;

    auto* raw = kwil::comAllocN<PardisoState>(nullptr, 1);
    if (raw == nullptr)
        return kNoMemory;
    *raw = PardisoState{kMagic,  complex, n,       static_cast<int>(nnz),
                        nullptr, nullptr, nullptr, nullptr,
                        nullptr, nullptr, 0,       0.0};
    kwil::ComOwn<PardisoState, freeOwned> s(nullptr, raw);
    s->ap = kwil::comAllocN<int>(nullptr, n + 1L);
    if (s->ap == nullptr)
        return kNoMemory;
    s->ai = kwil::comAllocN<int>(nullptr, nnz);
    if (s->ai == nullptr)
        return kNoMemory;
    for (int i = 0; i <= n; ++i)
        s->ap[i] = ia[i] - base;
    for (long p = 0; p < nnz; ++p)
        s->ai[p] = ja[p] - base;
    s->keptBytes =
        static_cast<long>(sizeof(PardisoState)) + static_cast<long>(sizeof(int)) * (n + 1L + nnz);

    double control[UMFPACK_CONTROL];
    double info[UMFPACK_INFO];
    setControl(iparm, msglvl, control);
    const int status =
        complex != 0
            ? umfpack_zi_symbolic(n, n, s->ap, s->ai, a, nullptr, &s->symbolic, control, info)
            : umfpack_di_symbolic(n, n, s->ap, s->ai, a, &s->symbolic, control, info);
    reportInfo(*s, control, info, msglvl);
    if (status != UMFPACK_OK)
        return pardisoErrorOfUmfpack(status);

    const double unit = info[UMFPACK_SIZE_OF_UNIT];
    s->symbolicUnits = info[UMFPACK_SYMBOLIC_SIZE];
    const double symbolicBytes = info[UMFPACK_SYMBOLIC_SIZE] * unit;
    // The peak estimate covers the symbolic object, which [15] already counts.
    const double numericBytes =
        (info[UMFPACK_PEAK_MEMORY_ESTIMATE] - info[UMFPACK_SYMBOLIC_SIZE]) * unit;
    iparm[14] = toKb(info[UMFPACK_SYMBOLIC_PEAK_MEMORY] * unit + s->keptBytes);
    iparm[15] = toKb(symbolicBytes + s->keptBytes);
    iparm[16] = toKb(numericBytes + workBytes(*s));
    iparm[17] = clipInt(info[UMFPACK_LNZ_ESTIMATE] + info[UMFPACK_UNZ_ESTIMATE] - n);
    iparm[18] = clipInt(info[UMFPACK_FLOPS_ESTIMATE] / 1e6);
    pt[0] = s.release();
    return kOk;
}

// Phase 22: numerical LU factorisation with the values a.
int factorise(PardisoState& s, const double* a, int* iparm, int msglvl)
{
    if (s.symbolic == nullptr || a == nullptr)
        return kInconsistent;
    freeNumeric(s);
    double control[UMFPACK_CONTROL];
    double info[UMFPACK_INFO];
    setControl(iparm, msglvl, control);
    const int status =
        s.complex != 0
            ? umfpack_zi_numeric(s.ap, s.ai, a, nullptr, s.symbolic, &s.numeric, control, info)
            : umfpack_di_numeric(s.ap, s.ai, a, s.symbolic, &s.numeric, control, info);
    reportInfo(s, control, info, msglvl);
    if (status != UMFPACK_OK) {
        freeNumeric(s); // also the factors of a singular matrix
        return pardisoErrorOfUmfpack(status);
    }
    const double unit = info[UMFPACK_SIZE_OF_UNIT];
    iparm[16] = toKb((info[UMFPACK_PEAK_MEMORY] - s.symbolicUnits) * unit + workBytes(s));
    iparm[17] = clipInt(info[UMFPACK_LNZ] + info[UMFPACK_UNZ] - s.n);
    iparm[18] = clipInt(info[UMFPACK_FLOPS] / 1e6);
    iparm[13] = 0;
    return kOk;
}

// Phase 33: x(:, k) = A^-1 b(:, k) for each right-hand side, with iterative refinement.
int solve(PardisoState& s, const double* a, int nrhs, const double* b, double* x, int* iparm,
          int msglvl)
{
    if (s.numeric == nullptr || a == nullptr || b == nullptr || x == nullptr || nrhs < 1) {
        return kInconsistent;
    }
    if (s.wi == nullptr) {
        kwil::ComBuf<int> wi(nullptr, s.n);
        kwil::ComBuf<double> w(nullptr, workDoubles(s) * s.n);
        if (!wi || !w)
            return kNoMemory;
        s.wi = wi.release();
        s.w = w.release();
    }
    double control[UMFPACK_CONTROL];
    double info[UMFPACK_INFO];
    setControl(iparm, msglvl, control);
    const long stride = (s.complex != 0 ? 2L : 1L) * s.n;
    int taken = 0;
    for (int k = 0; k < nrhs; ++k) {
        const double* bk = b + k * stride;
        double* xk = x + k * stride;
        const int status = s.complex != 0
                               ? umfpack_zi_wsolve(UMFPACK_Aat, s.ap, s.ai, a, nullptr, xk, nullptr,
                                                   bk, nullptr, s.numeric, control, info, s.wi, s.w)
                               : umfpack_di_wsolve(UMFPACK_At, s.ap, s.ai, a, xk, bk, s.numeric,
                                                   control, info, s.wi, s.w);
        reportInfo(s, control, info, msglvl);
        if (status != UMFPACK_OK)
            return pardisoErrorOfUmfpack(status);
        taken = std::max(taken, clipInt(info[UMFPACK_IR_TAKEN]));
    }
    iparm[6] = taken;
    return kOk;
}

bool supportedRequest(const int* iparm)
{
    return iparm[0] == 0 || (iparm[5] == 0 && iparm[11] == 0 && iparm[27] == 0);
}

int runPhase(void** pt, int mtype, int phase, int n, const double* a, const int* ia, const int* ja,
             int nrhs, int* iparm, int msglvl, double* b, double* x)
{
    if (phase == -1) {
        releaseAll(pt);
        return kOk;
    }
    const int complex = mtype == 13 || mtype == 3 ? 1 : 0;
    if (complex == 0 && mtype != 11 && mtype != 1)
        return kInconsistent;
    if (iparm == nullptr || !supportedRequest(iparm))
        return kInconsistent;
    if (phase == 0) {
        PardisoState* s = liveState(pt, complex, n);
        if (s == nullptr)
            return kInconsistent;
        freeNumeric(*s);
        return kOk;
    }
    if (phase != 11 && phase != 12 && phase != 13 && phase != 22 && phase != 23 && phase != 33) {
        return kInconsistent;
    }
    const int first = phase / 10; // 1 analysis, 2 factorisation, 3 solve
    const int last = phase % 10;
    if (first == 1) {
        const int err = analyse(pt, complex, n, a, ia, ja, iparm, msglvl);
        if (err != kOk)
            return err;
    }
    PardisoState* s = liveState(pt, complex, n);
    if (s == nullptr)
        return kInconsistent;
    if (first <= 2 && last >= 2) {
        const int err = factorise(*s, a, iparm, msglvl);
        if (err != kOk)
            return err;
    }
    if (last == 3)
        return solve(*s, a, nrhs, b, x, iparm, msglvl);
    return kOk;
}

} // namespace

int pardisoErrorOfUmfpack(int status)
{
    switch (status) {
    case UMFPACK_OK:
        return kOk;
    case UMFPACK_ERROR_out_of_memory:
        return kNoMemory;
    case UMFPACK_ERROR_ordering_failed:
        return kReordering;
    case UMFPACK_WARNING_singular_matrix:
        return kZeroPivot;
    case UMFPACK_ERROR_n_nonpositive:
    case UMFPACK_ERROR_invalid_matrix:
    case UMFPACK_ERROR_argument_missing:
    case UMFPACK_ERROR_invalid_system:
    case UMFPACK_ERROR_invalid_Symbolic_object:
    case UMFPACK_ERROR_invalid_Numeric_object:
    case UMFPACK_ERROR_different_pattern:
        return kInconsistent;
    default:
        return kInternal;
    }
}

extern "C" void pardiso_(void* pt, const int* maxfct, const int* mnum, const int* mtype,
                         const int* phase, const int* n, const void* a, const int* ia,
                         const int* ja, int* /*perm*/, const int* nrhs, int* iparm,
                         const int* msglvl, void* b, void* x, int* error)
{
    if (error == nullptr)
        return;
    if (pt == nullptr || maxfct == nullptr || mnum == nullptr || mtype == nullptr ||
        phase == nullptr || n == nullptr || nrhs == nullptr || msglvl == nullptr || *maxfct < 1 ||
        *mnum != 1) {
        *error = kInconsistent;
        return;
    }
    *error =
        runPhase(static_cast<void**>(pt), *mtype, *phase, *n, static_cast<const double*>(a), ia, ja,
                 *nrhs, iparm, *msglvl, static_cast<double*>(b), static_cast<double*>(x));
}
