// ILU with threshold fill-in: an update that lands outside the current pattern of a row creates
// a new entry when its magnitude reaches ILU_FILLINMIN times the largest entry of A.
//
// Row i is eliminated in a dense workspace: its values by column, a fill-in limit per column,
// the columns below the diagonal in a bit set (visited in ascending order while fill-ins join)
// and the columns above it in a list sorted once at the end of the row. Finished rows go to a
// store of large chunks. The cost is that of the updates plus a short scan per lower entry, and
// the result equals, bit for bit, that of walking sorted linked rows.
#include "precond/precond.h"

#include <algorithm>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <limits>
#include <type_traits>

#include "common/own.h"
#include "precond/ilu_core.h"

namespace {

using kwil::comAllocN;
using kwil::ComBuf;
using kwil::prec::MatOwn;

// The finished rows of the factorisation, in chunks that never move: each row is contiguous
// inside one chunk, and a new chunk as large as everything stored so far is taken when a row
// does not fit, so nothing is ever copied and the chunks stay few.
template <class S> class RowStore {
  public:
    RowStore(KwilHandle* handle, long first) : handle_(handle), next_(first) {}
    ~RowStore()
    {
        for (int c = 0; c < count_; ++c) {
            comFree(handle_, cols_[c]);
            comFree(handle_, vals_[c]);
        }
    }
    RowStore(const RowStore&) = delete;
    RowStore& operator=(const RowStore&) = delete;
    // Takes the first chunk, large enough for every entry of A; false after an error line.
    bool open() { return grow(0); }
    // Room for m contiguous entries at *col and *val; false after an error line.
    bool take(long m, int** col, S** val)
    {
        if (used_ + m > cap_ && !grow(m))
            return false;
        *col = cols_[count_ - 1] + used_;
        *val = vals_[count_ - 1] + used_;
        used_ += m;
        total_ += m;
        return true;
    }

  private:
    // A new chunk for at least m entries.
    bool grow(long m)
    {
        if (count_ == maxChunks)
            return false;
        const long cap = std::max(m, next_);
        int* c = comAllocN<int>(handle_, cap);
        S* v = c != nullptr ? comAllocN<S>(handle_, cap) : nullptr;
        if (v == nullptr) {
            comFree(handle_, c);
            return false;
        }
        cols_[count_] = c;
        vals_[count_] = v;
        ++count_;
        cap_ = cap;
        used_ = 0;
        next_ = total_ + cap;
        return true;
    }

    static constexpr int maxChunks = 48;
    KwilHandle* handle_;
    int* cols_[maxChunks] = {};
    S* vals_[maxChunks] = {};
    int count_ = 0;
    long cap_ = 0;
    long used_ = 0;
    long total_ = 0;
    long next_;
};

// The columns below the diagonal still to eliminate in row i, taken smallest first while
// fill-ins join (always above the column just taken). A bit per column and a summary bit per
// word of 64 columns: the next column is found by scanning forward from the word of the last
// one, a word or two for the banded rows of most matrices, where a heap would sift through
// logarithmically many mispredicted comparisons.
class ColumnQueue {
  public:
    ColumnQueue(KwilHandle* handle, int n)
        : bits_(handle, n / 64 + 1), summary_(handle, n / 4096 + 1), words_(n / 64 + 1),
          summaries_(n / 4096 + 1)
    {
    }
    bool ok() const { return bits_ && summary_; }
    void clear()
    {
        std::fill(bits_.get(), bits_.get() + words_, 0ULL);
        std::fill(summary_.get(), summary_.get() + summaries_, 0ULL);
    }
    bool empty() const { return count_ == 0; }
    // Adds column j, which must not lie below the last column taken since the queue was empty.
    void push(int j)
    {
        if (count_++ == 0)
            cursor_ = j >> 6;
        bits_[j >> 6] |= 1ULL << (j & 63);
        summary_[j >> 12] |= 1ULL << ((j >> 6) & 63);
    }
    // Removes and returns the smallest column.
    int pop()
    {
        int w = cursor_;
        unsigned long long b = bits_[w];
        if (b == 0) {
            int s = w >> 6;
            unsigned long long m = summary_[s] & (~0ULL << (w & 63));
            while (m == 0)
                m = summary_[++s];
            w = (s << 6) + __builtin_ctzll(m);
            b = bits_[w];
        }
        const int j = (w << 6) + __builtin_ctzll(b);
        b &= b - 1;
        bits_[w] = b;
        if (b == 0)
            summary_[w >> 6] &= ~(1ULL << (w & 63));
        cursor_ = w;
        --count_;
        return j;
    }

  private:
    ComBuf<unsigned long long> bits_;
    ComBuf<unsigned long long> summary_;
    long words_, summaries_;
    int cursor_ = 0;
    int count_ = 0;
};

constexpr const char* allocError = "Alloc error in ILU fill-in solver";

// Factorises A with fill-in and splits the result into L and U, in compressed rows.
template <class S>
int fillInFactor(KwilHandle* handle, const ComLinMat& a, ComLinMat** lOut, ComLinMat** uOut)
{
    MatOwn l(handle, nullptr), u(handle, nullptr);
    using namespace kwil::prec;
    const int n = a.size;
    const int* ar = a.row; // one-based row pointers
    const int* ac = a.col; // one-based columns
    const S* av = matValues<S>(a);

    ComBuf<S> w(handle, n);          // values of row i by column
    ComBuf<double> limit(handle, n); // least update creating an entry at column j
    ColumnQueue queue(handle, n);    // columns below i still to eliminate
    ComBuf<int> lower(handle, n);    // columns below i in elimination order
    ComBuf<int> upper(handle, n);    // columns above i
    ComBuf<int*> rowCol(handle, n);  // finished row i: columns (0-based)
    ComBuf<S*> rowVal(handle, n);    // finished row i: values
    ComBuf<int> rowLen(handle, n);   // finished row i: entry count
    ComBuf<int> rowDiag(handle, n);  // finished row i: offset of the diagonal
    RowStore<S> store(handle, a.dataNum + n + 16L);
    // Everything that A's own entries need is taken before the first trace line; later
    // allocations are made for fill-in only.
    if (!w || !limit || !queue.ok() || !lower || !upper || !rowCol || !rowVal || !rowLen ||
        !rowDiag || !store.open()) {
        return comErr(handle, allocError);
    }

    double absMax = 0.0;
    for (int p = 0; p < a.dataNum; ++p)
        absMax = std::max(absMax, mag(av[p]));
    const double fillMin = comOptDbl(handle, OPT_ILU_FILLINMIN);
    const double accel = comOptDbl(handle, OPT_ILU_ACCEL);
    const double tau = absMax * fillMin;
    comTrace(handle, "ILU fill-in min abs %.4e rel %.4e accel %.4e", tau, fillMin, accel);
    const double keepMin = reachThreshold<S>(tau);

    long nL = 0, nU = 0;
    for (int i = 0; i < n; ++i) {
        bool diag = false;
        for (int p = ar[i] - 1; p < ar[i + 1] - 1; ++p) {
            const int j = ac[p] - 1;
            if (j == i) {
                diag = true;
            } else if (j < i) {
                ++nL;
            } else {
                ++nU;
            }
        }
        if (!diag)
            return comErr(handle, "No diag error in ILU fill-in solver");
    }

    // An update m of column j creates an entry when reaches(m, limit[j]); a stored column's
    // limit is NaN, which nothing reaches.
    const double stored = std::numeric_limits<double>::quiet_NaN();
    for (int j = 0; j < n; ++j) {
        limit[j] = keepMin;
        w[j] = S{};
    }
    const int traceStep = comOptInt(handle, OPT_ILU_TRACE);
    constexpr bool pairUpdates = std::is_same<S, double>::value;
    S* wv = w.get();
    double* lim = limit.get();
    queue.clear();
    int* lo = lower.get();
    int* up = upper.get();
    int** rc = rowCol.get();
    S** rv = rowVal.get();
    int* rl = rowLen.get();
    int* rd = rowDiag.get();
    for (int i = 0; i < n; ++i) {
        if (traceStep > 0 && i % traceStep == 0)
            comTrace(handle, "ILU fill-in row %d", i);
        int nl = 0, nu = 0;
        for (int p = ar[i] - 1; p < ar[i + 1] - 1; ++p) {
            const int j = ac[p] - 1;
            lim[j] = stored;
            if (j < i) {
                wv[j] = av[p];
                queue.push(j);
            } else if (j == i) {
                wv[j] = scale(av[p], accel);
            } else {
                wv[j] = av[p];
                up[nu++] = j;
            }
        }
        while (!queue.empty()) {
            const int k = queue.pop();
            lo[nl++] = k;
            // m = a_kj (a_ik / a_kk); a_ik is final here: later pivot rows only reach columns
            // above their own.
            const int* kc = rc[k];
            const S* kv = rv[k];
            const int dk = rd[k], q1 = rl[k];
            const S mult = quot(wv[k], kv[dk]);
            const auto keep = [&](int j, const S& m) {
                wv[j] = neg(m);
                lim[j] = stored;
                if (j < i) {
                    queue.push(j);
                    ++nL;
                } else {
                    up[nu++] = j;
                    ++nU;
                }
            };
            // Whether an update lands on a stored entry or outside the pattern follows no
            // rule a branch predictor could learn on unstructured matrices, so every update is
            // subtracted: outside the pattern it lands on a stale workspace value that is never
            // read, as a kept fill-in overwrites it. Only a kept fill-in branches.
            // Real rows take two updates per turn: the one-update loop ran up to a third
            // slower or not depending on where the linker placed it, the two-update loop at
            // about the speed of its best placement when its head does not start a 64-byte
            // line (a fifth slower when it does, on the machine measured); this file's
            // functions are aligned to 64 bytes, so its place follows from this function alone.
            // The columns differ, so the two keeps come in the one-update order. Complex rows
            // ran slower that way.
            int q = dk + 1;
            for (; pairUpdates && q + 1 < q1; q += 2) {
                const int j0 = kc[q], j1 = kc[q + 1];
                const S m0 = mul(kv[q], mult), m1 = mul(kv[q + 1], mult);
                wv[j0] = sub(wv[j0], m0);
                wv[j1] = sub(wv[j1], m1);
                const bool r0 = reaches(m0, lim[j0]), r1 = reaches(m1, lim[j1]);
                if (__builtin_expect(r0, 0))
                    keep(j0, m0);
                if (__builtin_expect(r1, 0))
                    keep(j1, m1);
            }
            for (; q < q1; ++q) {
                const int j = kc[q];
                const S m = mul(kv[q], mult);
                wv[j] = sub(wv[j], m);
                if (__builtin_expect(reaches(m, lim[j]), 0))
                    keep(j, m);
            }
        }
        std::sort(up, up + nu);
        int* col = nullptr;
        S* val = nullptr;
        if (nL + nU + n > INT_MAX || !store.take(nl + 1L + nu, &col, &val)) {
            return comErr(handle, allocError);
        }
        int p = 0;
        for (int t = 0; t < nl; ++t, ++p) {
            col[p] = lo[t];
            val[p] = wv[lo[t]];
            lim[lo[t]] = keepMin;
        }
        rd[i] = p;
        col[p] = i;
        val[p] = wv[i];
        lim[i] = keepMin;
        ++p;
        for (int t = 0; t < nu; ++t, ++p) {
            col[p] = up[t];
            val[p] = wv[up[t]];
            lim[up[t]] = keepMin;
        }
        rc[i] = col;
        rv[i] = val;
        rl[i] = p;
    }
    const long all = nL + n + nU;
    comTrace(handle, "ILU fill-in L %d U %d all %d increase %d", static_cast<int>(nL),
             static_cast<int>(nU), static_cast<int>(all), static_cast<int>(all - a.dataNum));

    // Split into L (lower entries and pivots) and U (diagonal and upper entries divided by the
    // pivot); vanishing entries become ILU_REV_DIAGZERO_VAL first, the diagonal counted once.
    if (!createFactors(handle, a, nL, nU, l, u))
        return comErr(handle, "Alloc matrix error in ILU fill-in solver");
    const double revVal = comOptDbl(handle, OPT_ILU_REV_DIAGZERO_VAL);
    FactorSplit<S> split(*l, *u, fromParts<S>(revVal, 0.0));
    for (int i = 0; i < n; ++i) {
        if (!split.addRow(rc[i], 1, rv[i], rd[i], rl[i]))
            break; // checked below
    }
    comAssert(handle, split.full(), "LU number unmatch in ILU fill-in solver");
    if (split.replaced() > 0)
        comTrace(handle, "ILU fill-in rev diag zero %d %.4e", static_cast<int>(split.replaced()),
                 revVal);
    return factorsToCSR(
        handle, l, u, [&](int i) { return rd[i] + 1; }, [&](int i) { return rl[i] - rd[i]; },
        "ILU fill-in", lOut, uOut);
}

} // namespace

int ILUFillIn(KwilHandle* handle, const ComLinMat* a, ComLinMat** l, ComLinMat** u)
{
    return a->dataType == LIN_REAL ? fillInFactor<double>(handle, *a, l, u)
                                   : fillInFactor<kwil::prec::Cplx>(handle, *a, l, u);
}

void ILUFillInFreeColData(KwilHandle* handle, ILUFillInColData** rowHead, int n)
{
    if (rowHead == nullptr)
        return;
    for (int i = 0; i < n; ++i) {
        ILUFillInColData* node = rowHead[i];
        while (node != nullptr) {
            ILUFillInColData* next = node->next;
            comFree(handle, node);
            node = next;
        }
    }
    comFree(handle, rowHead);
}

void ILUFillInTraceColData(KwilHandle* handle, const ILUFillInColData* node, int row,
                           const char* format, ...)
{
    if (!comTraceOn(handle))
        return;
    va_list args;
    va_start(args, format);
    comTraceBegin(format, args);
    va_end(args);
    printf(" row %d col\n", row);
    for (; node != nullptr; node = node->next)
        printf(" %d", node->col);
    fputc('\n', stdout);
    fflush(stdout);
}
