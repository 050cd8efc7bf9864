// Common runtime: the handle record, log lines, assertions, timing, threads, memory, options.
#pragma once

#include <cstdarg>
#include <ctime>

#include "api/kwil.h"

struct ComLinMat;
struct ComLinVec;

// The solver handle. Owns the option arrays and the three data objects.
struct KwilHandle {
    int* intOpt;        // 70 int options indexed by key
    double* dblOpt;     // 40 double options indexed by key
    ComLinMat* matCoef; // A, may be null
    ComLinVec* vecFix;  // b, may be null
    ComLinVec* vecVar;  // x, may be null
};

#define KWIL_PRINTF(fmt, args) __attribute__((format(printf, fmt, args)))

// Trace line "KWILTRC: ..." on stdout, flushed; suppressed when a handle is given and TRACE is 0.
void comTrace(const KwilHandle* handle, const char* format, ...) KWIL_PRINTF(2, 3);
// Warning line "KWILWRN: ..." on stderr, never suppressed.
void comWarn(const KwilHandle* handle, const char* format, ...) KWIL_PRINTF(2, 3);
// Error line "KWILERR: ..." on stderr; returns 0 so that a caller can return its result.
int comErr(const KwilHandle* handle, const char* format, ...) KWIL_PRINTF(2, 3);
// As comErr, returning null.
void* comErrNull(const KwilHandle* handle, const char* format, ...) KWIL_PRINTF(2, 3);
// Internal invariant: when cond is false writes "KWILASR: ..." on stderr and exits with -1.
void comAssert(const KwilHandle* handle, bool cond, const char* format, ...) KWIL_PRINTF(3, 4);
// True when trace output is enabled: no handle, or TRACE non-zero.
bool comTraceOn(const KwilHandle* handle);
// Starts a trace line of several parts: writes "KWILTRC: " and the formatted text, without the
// newline and without checking TRACE (the caller has).
void comTraceBegin(const char* format, va_list args);

// Timing record of the trace.
struct ComTime {
    char title[64];
    int clockTick;
    clock_t timesBegin;
    clock_t timesLast;
    clock_t clockBegin;
    clock_t clockLast;
    double wtimeBegin;
    double wtimeLast;
};

// Starts the timer (only when the trace is on; otherwise the record is left untouched).
void comTimeBegin(const KwilHandle* handle, const char* title, ComTime* time);
// Traces the elapsed times since begin (twoColumn 0) or since the last check and since begin.
void comTimeCheck(const KwilHandle* handle, const char* label, ComTime* time, int twoColumn);

// Sets the OpenMP thread count from THREADS; returns the previous count for comResetThreads.
int comSetThreads(const KwilHandle* handle);
// Restores the thread count saved by comSetThreads.
void comResetThreads(const KwilHandle* handle, int previous);

// malloc; on failure writes "Allocation error" and returns null. Memory is not cleared.
void* comAlloc(const KwilHandle* handle, long size);
// free; null is allowed.
void comFree(const KwilHandle* handle, void* ptr);

// Test hooks (hidden from the shared library's interface).
// Makes the n-th comAlloc from now fail (1: the next one); 0 disarms.
void comTestFailAlloc(long n);
// Number of comAlloc calls made since the process started.
long comTestAllocCount();
// Blocks obtained from comAlloc and not yet given to comFree.
long comTestLiveAllocs();

// Option keys (index into intOpt / dblOpt).
enum ComOptIntKey {
    OPT_USER_I1 = 0,
    OPT_USER_I2 = 1,
    OPT_USER_I3 = 2,
    OPT_USER_I4 = 3,
    OPT_FILE_VER = 10,
    OPT_TRACE = 11,
    OPT_SOLVER = 12,
    OPT_THREADS = 13,
    OPT_REV_DIAGZERO = 14,
    OPT_SAVE_ALL = 15,
    OPT_DIAG_SCALE = 17,
    OPT_ILU_TRACE = 20,
    OPT_ILU_FILLIN = 21,
    OPT_ITER_PREILU = 30,
    OPT_ITER_CORRECT_R = 31,
    OPT_ITER_STEPTRACE = 32,
    OPT_ITER_MAXSTEP = 33,
    OPT_ITER_R_TYPE = 34,
    OPT_ITER_GIVEUP = 35,
    OPT_SAFE_CR = 40,
    OPT_SAFE_CORRECT_Y = 41,
    OPT_STABL_L = 50,
    OPT_PARDISO_TRACE = 60,
    OPT_PARDISO_MEM_LIM = 61,
    OPT_PARDISO_STAT = 62,
    OPT_PARDISO_ITER = 63,
    OPT_PARDISO_PIVOT = 64,
};
enum ComOptDblKey {
    OPT_USER_D1 = 0,
    OPT_USER_D2 = 1,
    OPT_USER_D3 = 2,
    OPT_USER_D4 = 3,
    OPT_REV_DIAGZERO_VAL = 10,
    OPT_CHECK_RESULT_LIM = 11,
    OPT_ILU_REV_DIAGZERO_VAL = 20,
    OPT_ILU_ACCEL = 21,
    OPT_ILU_FILLINMIN = 22,
    OPT_ITER_MAXSTEP_SIZE = 30,
    OPT_ITER_RESOLVE = 31,
    OPT_ITER_GIVEUP_CHECK = 32,
    OPT_ITER_GIVEUP_REDUCT = 33,
};
constexpr int COM_OPT_INT_NUM = 70;
constexpr int COM_OPT_DBL_NUM = 40;

struct ComOptIntInfo {
    int key;
    const char* name;
    int def;
};
struct ComOptDoubleInfo {
    int key;
    const char* name;
    double def;
};
// The key tables, in saving and tracing order, each closed by an entry with key -1 and name "".
extern const ComOptIntInfo optIntInfo[];
extern const ComOptDoubleInfo optDoubleInfo[];

// Key of the option called name in the int table (flag non-zero) or the double table; -1 if none.
int comOptFindKey(const KwilHandle* handle, const char* name, int flag);
// (Re)creates both option arrays with the defaults and reads the option file at path.
// On a failed allocation the old arrays are kept. Returns 1, or 0 after an error line.
int comOptInit(KwilHandle* handle, const char* path);
// Writes the current options to path as an option file. Returns 1, or 0 after an error line.
int comOptSave(const KwilHandle* handle, const char* path);
// Traces every option under the title (nothing when the trace is off).
void comOptTrace(const KwilHandle* handle, const char* title);

// Option values of a handle.
inline int comOptInt(const KwilHandle* handle, ComOptIntKey key)
{
    return handle->intOpt[key];
}
inline double comOptDbl(const KwilHandle* handle, ComOptDblKey key)
{
    return handle->dblOpt[key];
}
