// Pipelined triangular solves: see sparse_blas.h.
//
// The solve runs in steps: step s is row s of a lower triangle, row m - 1 - s of an upper one, so
// that every row depends only on rows of earlier steps. The inspector measures the reach D of
// the triangle, the largest distance in steps from a row back to the earliest row it reads (the
// line length of a 2-D grid, the plane size of a 3-D one), cuts the rows from row 0 on into
// segments of D rows and each segment into one piece per thread, and gives piece t of every
// segment to thread t, in a lower and an upper triangle alike. A row then reads rows of its own
// piece, of the same thread's piece one segment back, or the end of the piece before it in step
// order: on a grid numbered line by line the threads follow each other by one piece, like a
// wavefront, and stream their own rows.
//
// Each thread solves its pieces in step order and publishes how far it has come (every step of
// its own up to the published one is done). Before a step reads rows of other threads, it waits
// until each of those threads has published the latest such row; the waits are listed in step
// order, one per other thread and step. A thread publishes before it waits, so no two threads
// wait for each other. Progress is a release store read with acquire, so the rows it covers are
// visible. That holds for any pattern; the reach only decides how much the threads overlap.
//
// The inspector also plays the schedule through with a simple cost per row and per wait that has
// to stall; when that schedule would not beat one thread clearly, the plan is one of one thread.
// Either way the plan keeps the reciprocals of the pivots once it is packed, so that no solve
// divides: on rows of a few entries the divider, not the memory, set the pace. For the same
// reason it keeps where each row's terms lie, and lays out the threads' copies of their rows in
// the order a row takes its terms, so that no solve compares columns: with the comparisons, the
// two-thread solve of a 60^3 grid triangle took 0.45 ms against 0.59 for one thread; without
// them, in compact copies, 0.23.
#include <omp.h>
#include <sched.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "platform/sparse_arith.h"

namespace {

using namespace platform;

// At step at, wait until thread owner has published step need. When that stalls, wait on to
// ahead (a little further, but before the waiting step's own piece), so that the threads settle
// apart and do not stall row by row.
struct Wait {
    int at;
    int owner;
    int need;
    int ahead;
};

// Shortest piece: a piece costs a publication and, usually, a wait.
constexpr int MIN_PIECE = 32;
// How far beyond the step it needs a stalled thread waits.
constexpr int STALL_AHEAD = 256;
// Pause instructions a waiting thread spins before it yields its processor at every turn.
constexpr int SPINS_BEFORE_YIELD = 64;
// Most threads a plan serves.
constexpr int MAX_PLAN_THREADS = 64;
// Solves in one trial of the tuner (even), and solves between two trials: the first interval
// and the longest.
constexpr int TRIAL_SOLVES = 4;
constexpr int FIRST_INTERVAL = 16;
constexpr int LONGEST_INTERVAL = 1024;
// Below this many stored entries plus rows the threads cost more than they save.
constexpr long MIN_WORK = 65536;
// Estimated costs for the play-through, in units of one stored entry: a row, and a wait that
// stalls (a cache line handed from one core to another).
constexpr std::int64_t ROW_COST = 4;
constexpr std::int64_t STALL_COST = 40;
// A plan is made when its play-through takes at most this share of the one-thread time.
constexpr double MAX_SHARE = 0.8;

// Set by platformTestFailPlanAlloc: allocations left before the one that fails, or -1.
int allocsBeforeFailure = -1;

// Every allocation of the planning code.
template <class T> T* allocN(long n)
{
    if (allocsBeforeFailure >= 0 && allocsBeforeFailure-- == 0)
        return nullptr;
    return static_cast<T*>(std::malloc(static_cast<size_t>(n > 0 ? n : 1) * sizeof(T)));
}

// The rows of one step: the stored entries of the triangle's row that lie off the diagonal on
// the solved side, read as steps. Columns ascend within each row.
class StepDeps {
  public:
    StepDeps(bool upper, int m, const int* ia, const int* ja)
        : upper_(upper), m_(m), ia_(ia), ja_(ja)
    {
    }
    int row(int s) const { return upper_ ? m_ - 1 - s : s; }
    // Calls f(dependency step) for every row that step s reads.
    template <class F> void each(int s, F f) const
    {
        const int r = row(s);
        for (int p = ia_[r] - 1; p < ia_[r + 1] - 1; ++p) {
            const int c = ja_[p] - 1;
            if (upper_ ? c > r : c < r)
                f(upper_ ? m_ - 1 - c : c);
        }
    }
    // The earliest step that step s reads, or s when it reads none.
    int earliest(int s) const
    {
        const int r = row(s);
        if (ia_[r] == ia_[r + 1])
            return s;
        const int c = ja_[upper_ ? ia_[r + 1] - 2 : ia_[r] - 1] - 1;
        if (upper_ ? c <= r : c >= r)
            return s;
        return upper_ ? m_ - 1 - c : c;
    }
    int entries(int s) const { return ia_[row(s) + 1] - ia_[row(s)]; }
    long stored() const { return static_cast<long>(ia_[m_]) - ia_[0]; }

  private:
    bool upper_;
    int m_;
    const int* ia_;
    const int* ja_;
};

} // namespace

// Chooses between the threaded and the one-thread solve, which give the same bits, by timing
// them now and then: the threads gain only while they have the processors to themselves. A trial
// takes TRIAL_SOLVES solves, alternately threaded and alone, and compares the fastest of each
// way (the first solve after a pause pays for waking the threads). Trials grow rarer while their
// verdict holds. A new plan starts threaded, as its play-through found it pays, and holds its
// first trial back for an interval: its first solves run on cold caches and on threads just
// woken, and a trial among them picked the one thread for the whole interval after it.
struct Tuner {
    bool threaded = true;          // the current choice
    int trial = 0;                 // solves left in the running trial, 0 when none runs
    int calls = 0;                 // solves since the last trial
    int interval = FIRST_INTERVAL; // solves between trials
    double bestThreaded = 0.0;
    double bestAlone = 0.0;
};

// A thread's own copy of its rows of the triangle: its pieces lie apart in the matrix, and two
// threads streaming interleaved stretches of the same arrays run at about the rate of one. The
// copy holds the thread's rows in ascending order (the lower solve reads it forward, the upper
// one backward, as it reads the vectors), each row as the solve takes it, so that no solve
// compares columns. The thread's row number j (counted from 0) has its far terms at [stops[j],
// stops[j + 1]) of val and col, in the order the row takes them; stops[j + 1] is stored as ~stop
// when the row has a near term t_{i,i-1} (t_{i,i+1}). pivots[2 j] is the reciprocal of its pivot
// and pivots[2 j + 1] its near term's value (zero without one).
struct PackedRows {
    int steps;  // the thread's rows
    int* stops; // steps + 1, zero-based
    int* col;   // one-based
    void* val;
    void* pivots;
};

struct PlatformTrsvPlan {
    bool upper;
    int m;
    int threads;
    int chunks;      // pieces; piece c belongs to thread c % threads
    int* chunkStart; // chunks + 1 steps
    int nwaits;
    Wait* waits; // in step order
    Tuner tuner;
    PackedRows* packed; // one per thread, or null: then each solve reads the values it is given
    void* pivots;       // the reciprocal of each row's pivot, or null: then each row divides
    int* splits;        // with the pivots, where each row's terms lie (lowerSplit, upperSplit)
    int* runs;          // with the pivots, the rows without terms in runs (bareRuns), or null
};

namespace {

// Set by platformTestForcePlans.
bool forcePlans = false;

// The thread that solves piece c. Pieces are cut in rows, the same for both triangles, and a
// thread owns the same rows in both: the upper solve then reads, from the intermediate vector of
// an ILU application, the rows its thread has just written in the lower solve, in its own cache.
// Piece c of an upper triangle is cut c from the end, so its owner counts down. Over the first
// segment's pieces the mapping is its own inverse: thread t's first piece is ownerOf(t).
int ownerOf(const PlatformTrsvPlan* plan, int c)
{
    return plan->upper ? plan->threads - 1 - c % plan->threads : c % plan->threads;
}

// Segments of the triangle's reach from row 0 on, each cut into one piece per thread, into
// plan->chunkStart in step order. false when the pieces would be too short or memory is short.
bool cutPieces(PlatformTrsvPlan* plan, const StepDeps& deps)
{
    const int m = plan->m;
    const int nt = plan->threads;
    int reach = 1;
    for (int s = 0; s < m; ++s) {
        const int d = s - deps.earliest(s);
        reach = d > reach ? d : reach;
    }
    if (reach / nt < (forcePlans ? 1 : MIN_PIECE))
        return false;
    const long segments = (m + static_cast<long>(reach) - 1) / reach;
    plan->chunks = static_cast<int>(segments * nt);
    plan->chunkStart = allocN<int>(plan->chunks + 1L);
    if (plan->chunkStart == nullptr)
        return false;
    // Row cut b of chunks + 1, ascending; an upper triangle takes them mirrored, as steps.
    const auto rowCut = [&](long b) {
        const long k = b / nt, t = b % nt;
        const long r = k * reach + static_cast<long>(reach) * t / nt;
        return static_cast<int>(r < m ? r : m);
    };
    for (long b = 0; b <= plan->chunks; ++b) {
        plan->chunkStart[b] = plan->upper ? m - rowCut(plan->chunks - b) : rowCut(b);
    }
    return true;
}

// The thread that solves each step, one byte each. Null when memory is short.
unsigned char* stepOwners(const PlatformTrsvPlan* plan)
{
    auto* owner = allocN<unsigned char>(plan->m);
    if (owner == nullptr)
        return nullptr;
    for (int c = 0; c < plan->chunks; ++c) {
        const int s0 = plan->chunkStart[c];
        std::memset(owner + s0, ownerOf(plan, c),
                    static_cast<size_t>(plan->chunkStart[c + 1] - s0));
    }
    return owner;
}

// Lists the waits of every step, one per other thread whose rows it reads, and plays the
// schedule through on the way with a cost per row and per wait that stalls. true when the plan
// has its waits and beats one thread by the required share.
bool schedule(PlatformTrsvPlan* plan, const StepDeps& deps, const unsigned char* owner)
{
    const int m = plan->m;
    const int nt = plan->threads;
    // A wait stands for at least one stored entry, and a step waits at most once per other thread.
    const long most = std::min(static_cast<long>(m) * (nt - 1), deps.stored());
    if (most > INT_MAX)
        return false;
    plan->waits = allocN<Wait>(most);
    std::int64_t* finish = allocN<std::int64_t>(m);
    if (plan->waits == nullptr || finish == nullptr) {
        std::free(finish);
        return false;
    }
    int latest[MAX_PLAN_THREADS];
    std::int64_t clock[MAX_PLAN_THREADS];
    for (int t = 0; t < nt; ++t) {
        latest[t] = -1;
        clock[t] = 0;
    }
    std::int64_t serial = 0;
    int n = 0;
    int c = 0; // the piece of step s
    for (int s = 0; s < m; ++s) {
        while (plan->chunkStart[c + 1] <= s)
            ++c;
        const int own = owner[s];
        bool any = false;
        deps.each(s, [&](int d) {
            const int o = owner[d];
            if (o != own && d > latest[o]) {
                latest[o] = d;
                any = true;
            }
        });
        std::int64_t start = clock[own];
        const int before = plan->chunkStart[c] - 1; // the last step it may wait for
        for (int t = 0; any && t < nt; ++t) {
            if (latest[t] < 0)
                continue;
            const int ahead = latest[t] + STALL_AHEAD;
            plan->waits[n++] = Wait{s, t, latest[t], ahead < before ? ahead : before};
            start = std::max(start, finish[latest[t]] + STALL_COST);
            latest[t] = -1;
        }
        const std::int64_t cost = ROW_COST + deps.entries(s);
        serial += cost;
        finish[s] = clock[own] = start + cost;
    }
    std::free(finish);
    plan->nwaits = n;
    // Give back the room the waits did not take (the block stays as it is should that fail).
    if (Wait* fit = static_cast<Wait*>(std::realloc(plan->waits, sizeof(Wait) * (n > 0 ? n : 1))))
        plan->waits = fit;
    const std::int64_t span = *std::max_element(clock, clock + nt);
    return forcePlans || static_cast<double>(span) <= MAX_SHARE * static_cast<double>(serial);
}

// Fills the pieces and waits of a new plan; false when there is no plan to be had.
bool inspect(PlatformTrsvPlan* plan, const StepDeps& deps)
{
    if (!cutPieces(plan, deps))
        return false;
    unsigned char* owner = stepOwners(plan);
    const bool ok = owner != nullptr && schedule(plan, deps, owner);
    std::free(owner);
    return ok;
}

// A thread solves its pieces in blocks of at most BLOCK_STEPS steps, publishing its progress
// after each; a block ends early at a step that waits. (Prefetching the vector entries of the
// steps ahead, on into the next piece, was tried in two sessions and made no difference that
// showed through the noise.)
constexpr int BLOCK_STEPS = 256;

// One thread's published progress, on a cache line of its own.
struct alignas(64) Progress {
    std::atomic<int> step;
};

inline void pause(int spins)
{
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#endif
    if (spins > SPINS_BEFORE_YIELD)
        sched_yield(); // the thread waited for may not be running at all
}

// First wait at or after step s (binary search).
int firstWait(const PlatformTrsvPlan* plan, int s)
{
    int lo = 0, hi = plan->nwaits;
    while (lo < hi) {
        const int mid = lo + (hi - lo) / 2;
        if (plan->waits[mid].at < s) {
            lo = mid + 1;
        } else {
            hi = mid;
        }
    }
    return lo;
}

// Steps [s, e) of the lower or the upper solve from the triangle as given, each row dividing by
// its pivot.
template <class V>
ALWAYS_INLINE inline void solveRows(bool upper, int m, int s, int e, const V* a, const int* ia,
                                    const int* ja, const V* x, V* y)
{
    if (upper) {
        solveUpper(m - e, m - s, a, ia, ja, x, y);
    } else {
        solveLower(s, e, a, ia, ja, x, y);
    }
}

// Where a step's far terms stop in a thread's copy, from its entry in stops.
inline int farStop(int stop)
{
    return stop < 0 ? ~stop : stop;
}

// How far ahead in the solve's direction a copy's pivots and stops are prefetched, in bytes of
// each. The pivots (two values a row) are the copy's densest stream when rows have few far terms,
// and the hardware prefetchers alone left them behind: in a scratch build of a one-thread solve
// from such a copy (1100^2 grid, real) the lower solve drew 22.4 GB/s with these prefetches
// against 18.1 without.
constexpr int PIVOT_PREFETCH_BYTES = 4096;
constexpr int STOP_PREFETCH_BYTES = 1024;

// Prefetches the pivots and stops of the copy's step j ahead in the direction of the solve.
template <bool Upper, class V>
ALWAYS_INLINE inline void prefetchSteps(const PackedRows& r, const V* pivots, int j)
{
    constexpr int ahead = Upper ? -1 : 1;
    prefetchFrom(pivots + 2 * j, ahead * PIVOT_PREFETCH_BYTES);
    prefetchFrom(r.stops + j, ahead * STOP_PREFETCH_BYTES);
}

// Steps [s, e) from a thread's copy r (PackedRows), s being the thread's j-th step: the arithmetic
// of lowerRow and upperRow, term for term.
template <bool Upper, class V>
ALWAYS_INLINE inline void solvePacked(int m, int s, int e, int j, const PackedRows& r, const V* x,
                                      V* y)
{
    const V* val = static_cast<const V*>(r.val);
    const V* pivots = static_cast<const V*>(r.pivots);
    const int* col = r.col;
    constexpr int side = Upper ? 1 : -1; // the neighbour of the near term
    V prev{};
    if (Upper)
        j = r.steps - 1 - j; // the upper copy holds its rows ascending: read it backward
    for (int k = s; k < e; ++k) {
        const int i = Upper ? m - 1 - k : k;
        const int b = farStop(r.stops[j]);
        const int stop = r.stops[j + 1];
        const int end = farStop(stop);
        if (Upper) {
            prefetchBehind(val, col, b);
        } else {
            prefetchAhead(val, col, b);
        }
        prefetchSteps<Upper>(r, pivots, j);
        V t = x[i];
        for (int p = b; p < end; ++p)
            subMul(t, val[p], y[col[p] - 1]);
        const V rp = pivots[2 * j];
        t = mul(t, rp);
        if (stop < 0)
            subMul(t, mul(pivots[2 * j + 1], rp), k == s ? y[i + side] : prev);
        y[i] = prev = t;
        j += Upper ? -1 : 1;
    }
}

// The share of thread t: its pieces in order, each row after its waits, from the thread's own copy
// of its rows; without copies (memory short) from the triangle as given, each row dividing.
template <class V>
ALWAYS_INLINE inline void runThread(const PlatformTrsvPlan* plan, int t, Progress* progress,
                                    const V* a, const int* ia, const int* ja, const V* x, V* y)
{
    const int m = plan->m;
    const bool packed = plan->packed != nullptr;
    int own = 0; // this thread's steps before the current piece
    int seen[MAX_PLAN_THREADS];
    for (int u = 0; u < plan->threads; ++u)
        seen[u] = -1;
    auto publish = [&](int s) { progress[t].step.store(s, std::memory_order_release); };
    const int first = ownerOf(plan, t); // thread t's first piece
    int w = firstWait(plan, plan->chunkStart[first]);
    for (int c = first; c < plan->chunks; c += plan->threads) {
        const int s0 = plan->chunkStart[c];
        const int s1 = plan->chunkStart[c + 1];
        while (w < plan->nwaits && plan->waits[w].at < s0)
            ++w;
        if (s0 == s1)
            publish(s1 - 1); // the others may wait for this thread to pass an empty piece
        for (int s = s0; s < s1;) {
            for (; w < plan->nwaits && plan->waits[w].at == s; ++w) {
                const Wait need = plan->waits[w];
                if (seen[need.owner] >= need.need)
                    continue;
                publish(s - 1);
                for (int spins = 0;; ++spins) {
                    seen[need.owner] = progress[need.owner].step.load(std::memory_order_acquire);
                    if (seen[need.owner] >= need.ahead)
                        break;
                    pause(spins);
                }
            }
            int e = s + BLOCK_STEPS < s1 ? s + BLOCK_STEPS : s1;
            // Waits that the progress already seen satisfies do not end the block: a piece whose
            // first grid line reads the line before it, in another thread's piece, would
            // otherwise run that line row by row.
            for (; w < plan->nwaits && plan->waits[w].at < e; ++w) {
                if (seen[plan->waits[w].owner] < plan->waits[w].need) {
                    e = plan->waits[w].at;
                    break;
                }
            }
            if (packed && plan->upper) {
                solvePacked<true>(m, s, e, own + s - s0, plan->packed[t], x, y);
            } else if (packed) {
                solvePacked<false>(m, s, e, own + s - s0, plan->packed[t], x, y);
            } else {
                solveRows(plan->upper, m, s, e, a, ia, ja, x, y);
            }
            publish(e - 1);
            s = e;
        }
        own += s1 - s0;
    }
    // Done with every step of its own. A stalled thread may wait for a step past this thread's
    // last piece (its wait runs on ahead to just before its own piece, and with three threads or
    // more another thread's piece can lie between): the last step releases every such wait.
    publish(m - 1);
}

TARGET_CLONES void runThreadOf(const PlatformTrsvPlan* plan, int t, Progress* progress,
                               const double* a, const int* ia, const int* ja, const double* x,
                               double* y)
{
    runThread(plan, t, progress, a, ia, ja, x, y);
}
TARGET_CLONES void runThreadOf(const PlatformTrsvPlan* plan, int t, Progress* progress, const Z* a,
                               const int* ia, const int* ja, const Z* x, Z* y)
{
    runThread(plan, t, progress, a, ia, ja, x, y);
}

// The one-thread solves with the pivots' reciprocals and the rows' splits, and the runs of rows
// without terms when the plan has them. prefetch: see solveAlone.
template <bool Prefetch, bool Runs, class V>
ALWAYS_INLINE inline void aloneSplitAs(bool upper, int m, const V* a, const int* ia, const int* ja,
                                       const V* x, V* y, const V* rp, const int* split,
                                       const int* runs)
{
    if (upper) {
        solveUpperSplit<Prefetch, Runs>(m, a, ia, ja, x, y, rp, split, runs);
    } else {
        solveLowerSplit<Prefetch, Runs>(m, a, ia, ja, x, y, rp, split, runs);
    }
}
template <class V>
ALWAYS_INLINE inline void aloneSplit(bool upper, bool prefetch, int m, const V* a, const int* ia,
                                     const int* ja, const V* x, V* y, const V* rp, const int* split,
                                     const int* runs)
{
    if (prefetch && runs != nullptr) {
        aloneSplitAs<true, true>(upper, m, a, ia, ja, x, y, rp, split, runs);
    } else if (prefetch) {
        aloneSplitAs<true, false>(upper, m, a, ia, ja, x, y, rp, split, runs);
    } else if (runs != nullptr) {
        aloneSplitAs<false, true>(upper, m, a, ia, ja, x, y, rp, split, runs);
    } else {
        aloneSplitAs<false, false>(upper, m, a, ia, ja, x, y, rp, split, runs);
    }
}
TARGET_CLONES void aloneSplitOf(bool upper, bool prefetch, int m, const double* a, const int* ia,
                                const int* ja, const double* x, double* y, const double* rp,
                                const int* split, const int* runs)
{
    aloneSplit(upper, prefetch, m, a, ia, ja, x, y, rp, split, runs);
}
TARGET_CLONES void aloneSplitOf(bool upper, bool prefetch, int m, const Z* a, const int* ia,
                                const int* ja, const Z* x, Z* y, const Z* rp, const int* split,
                                const int* runs)
{
    aloneSplit(upper, prefetch, m, a, ia, ja, x, y, rp, split, runs);
}

// The sparse BLAS's one-thread solve.
void sparseBlasSolve(const PlatformTrsvPlan* plan, const double* a, const int* ia, const int* ja,
                     const double* x, double* y)
{
    mkl_dcsrtrsv(plan->upper ? "u" : "l", "n", "n", &plan->m, a, ia, ja, x, y);
}
void sparseBlasSolve(const PlatformTrsvPlan* plan, const Z* a, const int* ia, const int* ja,
                     const Z* x, Z* y)
{
    mkl_zcsrtrsv(plan->upper ? "u" : "l", "n", "n", &plan->m, a, ia, ja, x, y);
}

// The one-thread solve: the same rows with the pivots' reciprocals, or the sparse BLAS's.
template <class V>
void solveAlone(const PlatformTrsvPlan* plan, const V* a, const int* ia, const int* ja, const V* x,
                V* y)
{
    const auto* rp = static_cast<const V*>(plan->pivots);
    if (rp == nullptr) {
        sparseBlasSolve(plan, a, ia, ja, x, y);
        return;
    }
    // A triangle that fits in a core's own cache is not prefetched (Pd, 12 000 entries: 14.4
    // against 9.9 µs a solve).
    aloneSplitOf(plan->upper, worthPrefetching<V>(static_cast<long>(ia[plan->m]) - ia[0]), plan->m,
                 a, ia, ja, x, y, rp, plan->splits, plan->runs);
}

template <class V>
void solveThreaded(const PlatformTrsvPlan* plan, const V* a, const int* ia, const int* ja,
                   const V* x, V* y)
{
    Progress progress[MAX_PLAN_THREADS];
    for (int t = 0; t < plan->threads; ++t)
        progress[t].step.store(-1, std::memory_order_relaxed);
#pragma omp parallel num_threads(plan->threads)
    {
        const int t = omp_get_thread_num();
        if (omp_get_num_threads() == plan->threads) {
            runThreadOf(plan, t, progress, a, ia, ja, x, y);
        } else if (t == 0) {
            // Fewer threads than planned (a nested or limited runtime): the pieces of a missing
            // thread would never be solved, so one thread solves them all in row order.
            solveAlone(plan, a, ia, ja, x, y);
        }
    }
}

// Solves T y = x threaded or alone and returns the time it took.
template <class V>
double timedSolve(const PlatformTrsvPlan* plan, bool threaded, const V* a, const int* ia,
                  const int* ja, const V* x, V* y)
{
    const double start = omp_get_wtime();
    if (threaded) {
        solveThreaded(plan, a, ia, ja, x, y);
    } else {
        solveAlone(plan, a, ia, ja, x, y);
    }
    return omp_get_wtime() - start;
}

template <class V>
void solvePlanned(PlatformTrsvPlan* plan, const V* a, const int* ia, const int* ja, const V* x,
                  V* y)
{
    if (plan->threads == 1) {
        solveAlone(plan, a, ia, ja, x, y);
        return;
    }
    Tuner& k = plan->tuner;
    if (k.trial == 0 && k.calls++ >= k.interval) {
        k.trial = TRIAL_SOLVES;
        k.calls = 0;
        k.bestThreaded = k.bestAlone = 1e300;
    }
    if (k.trial == 0) {
        timedSolve(plan, k.threaded, a, ia, ja, x, y);
        return;
    }
    const bool threaded = k.trial % 2 == 0;
    const double t = timedSolve(plan, threaded, a, ia, ja, x, y);
    double& best = threaded ? k.bestThreaded : k.bestAlone;
    best = t < best ? t : best;
    if (--k.trial > 0)
        return;
    const bool faster = k.bestThreaded < k.bestAlone;
    const bool held = faster == k.threaded;
    k.interval =
        held ? (k.interval < LONGEST_INTERVAL ? 2 * k.interval : k.interval) : FIRST_INTERVAL;
    k.threaded = faster;
}

} // namespace

PlatformTrsvPlan* platform_csrtrsv_plan(const char* uplo, int m, const int* ia, const int* ja,
                                        int nthreads)
{
    if (nthreads <= 0) {
        const int procs = omp_get_num_procs();
        nthreads = omp_in_parallel() ? 1 : omp_get_max_threads();
        nthreads = nthreads > procs ? procs : nthreads;
    }
    if (uplo == nullptr)
        return nullptr;
    auto* plan = allocN<PlatformTrsvPlan>(1);
    if (plan == nullptr)
        return nullptr;
    *plan = PlatformTrsvPlan{};
    plan->upper = *uplo == 'u' || *uplo == 'U';
    plan->m = m;
    plan->threads = nthreads > MAX_PLAN_THREADS ? MAX_PLAN_THREADS : nthreads;
    const bool tooSmall = !forcePlans && static_cast<long>(ia[m]) - ia[0] + m < MIN_WORK;
    if (plan->threads < 2 || tooSmall || !inspect(plan, StepDeps(plan->upper, m, ia, ja))) {
        // The plan of one thread: no pieces, no waits.
        std::free(plan->chunkStart);
        std::free(plan->waits);
        plan->threads = 1;
        plan->chunks = plan->nwaits = 0;
        plan->chunkStart = nullptr;
        plan->waits = nullptr;
    }
    return plan;
}

namespace {

// Frees what pack made: the pivots' reciprocals and the per-thread copies.
void freePacked(PlatformTrsvPlan* plan)
{
    std::free(plan->pivots);
    std::free(plan->splits);
    std::free(plan->runs);
    plan->pivots = nullptr;
    plan->splits = nullptr;
    plan->runs = nullptr;
    if (plan->packed == nullptr)
        return;
    for (int t = 0; t < plan->threads; ++t) {
        std::free(plan->packed[t].stops);
        std::free(plan->packed[t].col);
        std::free(plan->packed[t].val);
        std::free(plan->packed[t].pivots);
    }
    std::free(plan->packed);
    plan->packed = nullptr;
}

// Where row i's terms lie, and the position of its pivot as the row substitutions find it (-1
// when there is none).
int splitAt(const PlatformTrsvPlan* plan, int i, const int* ia, const int* ja)
{
    return plan->upper ? upperSplit(i, ia, ja) : lowerSplit(i, ia, ja);
}
int pivotAt(const PlatformTrsvPlan* plan, int i, const int* ia, const int* ja)
{
    const int split = plan->splits[i];
    return plan->upper ? upperPivotAt(i, ia, ja, split) : lowerPivotAt(i, ia, ja, split);
}

// Rows that a pass over all rows hands to the threads: the pack's passes use the threads the plan
// was made for on larger triangles.
constexpr int MIN_PARALLEL_ROWS = 16384;

// The reciprocal of every row's pivot, and where the row's terms lie.
template <class V>
bool invertPivots(PlatformTrsvPlan* plan, const V* a, const int* ia, const int* ja)
{
    const int m = plan->m;
    V* rp = allocN<V>(m);
    plan->pivots = rp;
    plan->splits = allocN<int>(m);
    if (rp == nullptr || plan->splits == nullptr)
        return false;
#pragma omp parallel for num_threads(plan->threads) if (m >= MIN_PARALLEL_ROWS) schedule(static)
    for (int i = 0; i < m; ++i) {
        plan->splits[i] = splitAt(plan, i, ia, ja);
        rp[i] = pivotRecip(a, pivotAt(plan, i, ia, ja));
    }
    return true;
}

// Row i's terms in the triangle's arrays: the far terms [first, stop) in the order the row takes
// them, and the position of the near term (-1 when there is none).
struct RowTerms {
    int first;
    int stop;
    int near;
};
RowTerms termsOf(const PlatformTrsvPlan* plan, int i, const int* ia)
{
    const int split = plan->splits[i];
    const int q = split < 0 ? ~split : split;
    const int near = split < 0 ? q : -1;
    return plan->upper ? RowTerms{split < 0 ? q + 1 : q, ia[i + 1] - 1, near}
                       : RowTerms{ia[i] - 1, q, near};
}

// Share of the rows that must lie in runs of MIN_BARE_RUN or more rows without terms for the
// one-thread solves to take runs: the test per row costs what the runs save at about 0.65 (Pd's
// lower triangle, 0.43 of its rows in such runs, solved 10 % slower with runs; synthetic
// triangles with runs of one to twelve rows: 8 % slower at 0.58 and 0.62, 6 % faster at 0.70,
// 15 % at 0.81, 33 % at 0.87, 45 % at 0.93).
constexpr double MIN_BARE_SHARE = 0.75;

// For each row, how many rows without terms follow from it on in the order of the solve, itself
// included (0 when it has terms), into plan->runs; left null when too few rows lie in long runs
// or memory is short, as the solves need no runs. On a sparse circuit matrix most rows of the
// factors hold only their pivot, and a run of them is solved as one vector product instead of
// row by row (Pd's upper triangle, nine rows in ten of them bare: 4.2 µs a solve against 8.7).
void bareRuns(PlatformTrsvPlan* plan, const int* ia)
{
    const int m = plan->m;
    auto bare = [&](int i) {
        const RowTerms t = termsOf(plan, i, ia);
        return t.first == t.stop && t.near < 0;
    };
    long inRuns = 0;
    int run = 0;
    for (int s = 0; s < m; ++s) { // the runs in step order, counted as they end
        run = bare(plan->upper ? m - 1 - s : s) ? run + 1 : 0;
        inRuns += run == MIN_BARE_RUN ? MIN_BARE_RUN : run > MIN_BARE_RUN ? 1 : 0;
    }
    if (inRuns < MIN_BARE_SHARE * m)
        return;
    plan->runs = allocN<int>(m);
    if (plan->runs == nullptr)
        return;
    run = 0;
    for (int s = m - 1; s >= 0; --s) { // from the last step back, each row counts what follows
        const int i = plan->upper ? m - 1 - s : s;
        run = bare(i) ? run + 1 : 0;
        plan->runs[i] = run;
    }
}

// Copies the rows of thread t (owner by step) into its record as PackedRows lays them out.
template <class V>
void fillRows(const PlatformTrsvPlan* plan, int t, const unsigned char* owner, const V* a,
              const int* ia, const int* ja)
{
    const int m = plan->m;
    const auto* rp = static_cast<const V*>(plan->pivots);
    PackedRows& r = plan->packed[t];
    V* val = static_cast<V*>(r.val);
    V* pivots = static_cast<V*>(r.pivots);
    int q = 0, j = 0;
    r.stops[0] = 0;
    for (int i = 0; i < m; ++i) {
        if (owner[plan->upper ? m - 1 - i : i] != t)
            continue;
        const RowTerms terms = termsOf(plan, i, ia);
        for (int p = terms.first; p < terms.stop; ++p, ++q) {
            r.col[q] = ja[p];
            val[q] = a[p];
        }
        pivots[2 * j] = rp[i];
        pivots[2 * j + 1] = terms.near >= 0 ? a[terms.near] : V{};
        r.stops[++j] = terms.near >= 0 ? ~q : q;
    }
}

// Each thread's rows as a copy of its own (PackedRows). The copies are allocated in thread
// order, then each thread fills its own.
template <class V> bool copyRows(PlatformTrsvPlan* plan, const V* a, const int* ia, const int* ja)
{
    const int m = plan->m;
    const int nt = plan->threads;
    unsigned char* owner = stepOwners(plan);
    plan->packed = allocN<PackedRows>(nt);
    bool ok = owner != nullptr && plan->packed != nullptr;
    long terms[MAX_PLAN_THREADS] = {};
    int steps[MAX_PLAN_THREADS] = {};
    for (int s = 0; ok && s < m; ++s) {
        const RowTerms r = termsOf(plan, plan->upper ? m - 1 - s : s, ia);
        terms[owner[s]] += r.stop - r.first;
        ++steps[owner[s]];
    }
    for (int t = 0; plan->packed != nullptr && t < nt; ++t)
        plan->packed[t] = PackedRows{};
    for (int t = 0; ok && t < nt; ++t) {
        PackedRows& r = plan->packed[t];
        r.steps = steps[t];
        r.stops = allocN<int>(steps[t] + 1L);
        r.col = allocN<int>(terms[t]);
        r.val = allocN<V>(terms[t]);
        r.pivots = allocN<V>(2L * steps[t]);
        ok = r.stops != nullptr && r.col != nullptr && r.val != nullptr && r.pivots != nullptr;
    }
    if (ok) {
#pragma omp parallel for num_threads(nt) if (m >= MIN_PARALLEL_ROWS) schedule(static, 1)
        for (int t = 0; t < nt; ++t)
            fillRows(plan, t, owner, a, ia, ja);
    }
    std::free(owner);
    return ok;
}

template <class V> int pack(PlatformTrsvPlan* plan, const V* a, const int* ia, const int* ja)
{
    freePacked(plan);
    const bool ok =
        invertPivots(plan, a, ia, ja) && (plan->threads == 1 || copyRows(plan, a, ia, ja));
    if (!ok) {
        freePacked(plan);
    } else {
        bareRuns(plan, ia);
    }
    return ok ? 1 : 0;
}

} // namespace

int platform_dcsrtrsv_plan_pack(PlatformTrsvPlan* plan, const double* a, const int* ia,
                                const int* ja)
{
    return pack(plan, a, ia, ja);
}

int platform_zcsrtrsv_plan_pack(PlatformTrsvPlan* plan, const PlatformComplex16* a, const int* ia,
                                const int* ja)
{
    return pack(plan, a, ia, ja);
}

void platform_csrtrsv_plan_free(PlatformTrsvPlan* plan)
{
    if (plan == nullptr)
        return;
    freePacked(plan);
    std::free(plan->chunkStart);
    std::free(plan->waits);
    std::free(plan);
}

int platform_csrtrsv_plan_threads(const PlatformTrsvPlan* plan)
{
    return plan->threads;
}

void platform_dcsrtrsv_planned(PlatformTrsvPlan* plan, const double* a, const int* ia,
                               const int* ja, const double* x, double* y)
{
    solvePlanned(plan, a, ia, ja, x, y);
}

void platform_zcsrtrsv_planned(PlatformTrsvPlan* plan, const PlatformComplex16* a, const int* ia,
                               const int* ja, const PlatformComplex16* x, PlatformComplex16* y)
{
    solvePlanned(plan, a, ia, ja, x, y);
}

void platformTestForcePlans(int on)
{
    forcePlans = on != 0;
}

void platformTestFailPlanAlloc(int n)
{
    allocsBeforeFailure = n > 0 ? n - 1 : -1;
}
