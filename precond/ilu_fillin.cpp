// ILU with threshold fill-in: an update that lands outside the current pattern of a row creates
// a new entry when its magnitude reaches ILU_FILLINMIN times the largest entry of A.
//
// Row i is eliminated in a dense workspace: its values by column, a presence flag per column,
// the columns below the diagonal in a min-heap (so they are visited in ascending order while
// fill-ins join) and the columns above it in a list sorted once at the end of the row. Finished
// rows go to one growing pool. The cost is that of the updates plus a logarithmic heap step per
// lower entry, and the result equals, bit for bit, that of walking sorted linked rows.
#include "precond/precond.h"

#include <algorithm>
#include <climits>
#include <cstdarg>
#include <cstdio>

#include "common/own.h"
#include "precond/ilu_core.h"

namespace {

using kwil::ComBuf;
using kwil::comAllocN;
using kwil::prec::MatOwn;

// The finished rows of the factorisation: 0-based columns and values, grown by doubling.
template <class S>
class FactorRows {
public:
    FactorRows(KwilHandle* handle, long cap) : handle_(handle), cap_(cap)
    {
        col = comAllocN<int>(handle, cap);
        val = col != nullptr ? comAllocN<S>(handle, cap) : nullptr;
    }
    ~FactorRows()
    {
        comFree(handle_, col);
        comFree(handle_, val);
    }
    FactorRows(const FactorRows&) = delete;
    FactorRows& operator=(const FactorRows&) = delete;
    bool ok() const { return col != nullptr && val != nullptr; }
    // Room for need entries in all; false after an "Allocation error" line.
    bool reserve(long need)
    {
        if (need <= cap_) return true;
        const long cap = std::min(std::max(need, 2 * cap_), static_cast<long>(INT_MAX));
        int* c = comAllocN<int>(handle_, cap);
        if (c == nullptr) return false;
        S* v = comAllocN<S>(handle_, cap);
        if (v == nullptr) {
            comFree(handle_, c);
            return false;
        }
        std::copy(col, col + size, c);
        std::copy(val, val + size, v);
        comFree(handle_, col);
        comFree(handle_, val);
        col = c;
        val = v;
        cap_ = cap;
        return true;
    }

    int* col;
    S* val;
    long size = 0;

private:
    KwilHandle* handle_;
    long cap_;
};

void heapPush(int* heap, int& count, int x)
{
    int c = count++;
    while (c > 0) {
        const int parent = (c - 1) / 2;
        if (heap[parent] <= x) break;
        heap[c] = heap[parent];
        c = parent;
    }
    heap[c] = x;
}

int heapPop(int* heap, int& count)
{
    const int top = heap[0];
    const int x = heap[--count];
    int c = 0;
    for (;;) {
        int child = 2 * c + 1;
        if (child >= count) break;
        if (child + 1 < count && heap[child + 1] < heap[child]) ++child;
        if (x <= heap[child]) break;
        heap[c] = heap[child];
        c = child;
    }
    heap[c] = x;
    return top;
}

constexpr const char* allocError = "Alloc error in ILU fill-in solver";

// Factorises A with fill-in and splits the result into L and U (sorted coordinate form).
template <class S>
int fillInFactor(KwilHandle* handle, const ComLinMat& a, MatOwn& l, MatOwn& u)
{
    using namespace kwil::prec;
    const int n = a.size;
    const int* ar = a.row;  // one-based row pointers
    const int* ac = a.col;  // one-based columns
    const S* av = matValues<S>(a);

    ComBuf<S> w(handle, n);                  // values of row i by column
    ComBuf<unsigned char> present(handle, n);  // column stored in row i
    ComBuf<int> heap(handle, n);             // columns below i still to eliminate
    ComBuf<int> lower(handle, n);            // columns below i in elimination order
    ComBuf<int> upper(handle, n);            // columns above i
    ComBuf<int> fRow(handle, n + 1L);        // row starts in the pool
    ComBuf<int> fDiag(handle, n);            // diagonal positions in the pool
    const long cap0 = std::min(static_cast<long>(a.dataNum) + a.dataNum / 2 + 16L,
                               static_cast<long>(INT_MAX));
    FactorRows<S> f(handle, cap0);
    if (!w || !present || !heap || !lower || !upper || !fRow || !fDiag || !f.ok()) {
        return comErr(handle, allocError);
    }

    double absMax = 0.0;
    for (int p = 0; p < a.dataNum; ++p) absMax = std::max(absMax, mag(av[p]));
    const double fillMin = comOptDbl(handle, OPT_ILU_FILLINMIN);
    const double accel = comOptDbl(handle, OPT_ILU_ACCEL);
    const double tau = absMax * fillMin;
    comTrace(handle, "ILU fill-in min abs %.4e rel %.4e accel %.4e", tau, fillMin, accel);

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
        if (!diag) return comErr(handle, "No diag error in ILU fill-in solver");
    }

    for (int j = 0; j < n; ++j) present[j] = 0;
    const int traceStep = comOptInt(handle, OPT_ILU_TRACE);
    S* wv = w.get();
    unsigned char* mark = present.get();
    int* hp = heap.get();
    int* lo = lower.get();
    int* up = upper.get();
    int* fr = fRow.get();
    int* fd = fDiag.get();
    fr[0] = 0;
    for (int i = 0; i < n; ++i) {
        if (traceStep > 0 && i % traceStep == 0) comTrace(handle, "ILU fill-in row %d", i);
        int nh = 0, nl = 0, nu = 0;
        for (int p = ar[i] - 1; p < ar[i + 1] - 1; ++p) {
            const int j = ac[p] - 1;
            mark[j] = 1;
            if (j < i) {
                wv[j] = av[p];
                hp[nh++] = j;  // ascending columns already form a heap
            } else if (j == i) {
                wv[j] = scale(av[p], accel);
            } else {
                wv[j] = av[p];
                up[nu++] = j;
            }
        }
        const int* fc = f.col;
        const S* fv = f.val;
        while (nh > 0) {
            const int k = heapPop(hp, nh);
            lo[nl++] = k;
            // m = a_kj (a_ik / a_kk); a_ik is final here: later pivot rows only reach columns
            // above their own.
            const S mult = quot(wv[k], fv[fd[k]]);
            const int q1 = fr[k + 1];
            for (int q = fd[k] + 1; q < q1; ++q) {
                const int j = fc[q];
                const S m = mul(fv[q], mult);
                if (mark[j] != 0) {
                    wv[j] = sub(wv[j], m);
                } else if (mag(m) >= tau) {
                    wv[j] = neg(m);
                    mark[j] = 1;
                    if (j < i) {
                        heapPush(hp, nh, j);
                        ++nL;
                    } else {
                        up[nu++] = j;
                        ++nU;
                    }
                }
            }
        }
        std::sort(up, up + nu);
        const long need = f.size + nl + 1L + nu;
        if (need > INT_MAX || !f.reserve(need)) return comErr(handle, allocError);
        long p = f.size;
        for (int t = 0; t < nl; ++t, ++p) {
            f.col[p] = lo[t];
            f.val[p] = wv[lo[t]];
            mark[lo[t]] = 0;
        }
        fd[i] = static_cast<int>(p);
        f.col[p] = i;
        f.val[p] = wv[i];
        mark[i] = 0;
        ++p;
        for (int t = 0; t < nu; ++t, ++p) {
            f.col[p] = up[t];
            f.val[p] = wv[up[t]];
            mark[up[t]] = 0;
        }
        f.size = p;
        fr[i + 1] = static_cast<int>(p);
    }
    const long all = nL + n + nU;
    comTrace(handle, "ILU fill-in L %d U %d all %d increase %d", static_cast<int>(nL),
             static_cast<int>(nU), static_cast<int>(all), static_cast<int>(all - a.dataNum));
    return iluSplit<S>(handle, a.dataType, n, fr, f.col, f.val, 0, static_cast<int>(nL),
                       static_cast<int>(nU), "ILU fill-in", l, u);
}

}  // namespace

int ILUFillIn(KwilHandle* handle, const ComLinMat* a, ComLinMat** l, ComLinMat** u)
{
    MatOwn lo(handle, nullptr), up(handle, nullptr);
    const int ok = a->dataType == LIN_REAL ? fillInFactor<double>(handle, *a, lo, up)
                                           : fillInFactor<kwil::prec::Cplx>(handle, *a, lo, up);
    if (ok == 0) return 0;
    // The work storage is gone; the factors become compressed rows.
    return kwil::prec::iluFinish(handle, lo, up, "ILU fill-in", l, u);
}

void ILUFillInFreeColData(KwilHandle* handle, ILUFillInColData** rowHead, int n)
{
    if (rowHead == nullptr) return;
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
    if (!comTraceOn(handle)) return;
    fputs("KWILTRC: ", stdout);
    va_list args;
    va_start(args, format);
    vprintf(format, args);
    va_end(args);
    printf(" row %d col\n", row);
    for (; node != nullptr; node = node->next) printf(" %d", node->col);
    fputc('\n', stdout);
    fflush(stdout);
}
