// Scalar arithmetic, prefetching and the row substitutions shared by the sparse BLAS stand-ins:
// the one-thread solves and the pipelined solves run the same row arithmetic, so both give the
// same bits.
#pragma once

#include <cstdint>

#include "platform/sparse_blas.h"

namespace platform {

using Z = PlatformComplex16;

#define ALWAYS_INLINE __attribute__((always_inline))
// Hot loops get an AVX2 version beside the baseline one, chosen once when the library loads.
#if defined(__x86_64__)
#define TARGET_CLONES __attribute__((target_clones("avx2", "default")))
#else
#define TARGET_CLONES
#endif

// Scalar arithmetic written out: the complex forms are the plain textbook formulas, without the
// NaN/infinity checks of std::complex; the reciprocal below is unscaled.
inline bool isZero(double a)
{
    return a == 0.0;
}
inline bool isZero(Z a)
{
    return a.real == 0.0 && a.imag == 0.0;
}
inline double mul(double a, double b)
{
    return a * b;
}
inline Z mul(Z a, Z b)
{
    return Z{a.real * b.real - a.imag * b.imag, a.real * b.imag + a.imag * b.real};
}
inline void addMul(double& s, double a, double b)
{
    s += a * b;
}
// a b as the plain formula (ar br - ai bi, ar bi + ai br), computed on pairs of doubles.
typedef double Pair __attribute__((vector_size(16)));
inline Pair mulPair(Z a, Z b)
{
    const Pair bp = {b.real, b.imag};
    const Pair bs = {b.imag, b.real};
    const Pair p1 = a.real * bp;
    const Pair p2 = a.imag * bs;
    return Pair{p1[0] - p2[0], p1[1] + p2[1]};
}
inline void addMul(Z& s, Z a, Z b)
{
    const Pair t = Pair{s.real, s.imag} + mulPair(a, b);
    s = Z{t[0], t[1]};
}
inline void subMul(double& s, double a, double b)
{
    s -= a * b;
}
inline void subMul(Z& s, Z a, Z b)
{
    const Pair t = Pair{s.real, s.imag} - mulPair(a, b);
    s = Z{t[0], t[1]};
}
inline double add(double a, double b)
{
    return a + b;
}
inline Z add(Z a, Z b)
{
    return Z{a.real + b.real, a.imag + b.imag};
}
inline double sub(double a, double b)
{
    return a - b;
}
inline Z sub(Z a, Z b)
{
    return Z{a.real - b.real, a.imag - b.imag};
}

// Software prefetch distance, in bytes of values: the hardware prefetchers alone leave the
// streams of values and columns well below the bandwidth a triad reaches on one core.
constexpr int PREFETCH_BYTES = 4096;
// The distance for values V: complex values go half as far (every one-thread complex kernel ran
// 1 to 5 % faster at 2 KiB than at 4 KiB, and slower again at 1 KiB).
template <class V> constexpr int prefetchBytes()
{
    return sizeof(V) > sizeof(double) ? PREFETCH_BYTES / 2 : PREFETCH_BYTES;
}
// Cache lines of values prefetched per row: a row of a 2-D stencil holds about 40 bytes of real
// values but 80 of complex ones.
template <class V> constexpr int prefetchLines()
{
    return sizeof(V) > sizeof(double) ? 2 : 1;
}

// Bytes of values and columns that a core's own cache holds (a quarter of this machine's 1 MiB
// second level). Loops over fewer do not prefetch: on such matrices every row paid for it.
constexpr long CACHED_BYTES = 256L << 10;
// Whether a loop over that many stored entries of values V prefetches them.
template <class V> inline bool worthPrefetching(long entries)
{
    return entries * static_cast<long>(sizeof(V) + sizeof(int)) >= CACHED_BYTES;
}

// Bytes of values, columns and vectors from which a vector a loop writes in a pass of its own no
// longer stays in the last-level cache until the rows reach it: half this machine's 32 MiB, which
// other processes share (the transposed product's pass and its zeroing ahead of the rows broke
// even at 15 to 17 MB).
constexpr long LAST_LEVEL_BYTES = 16L << 20;
// Bytes a loop over m rows moves: the given stored entries of values V with their columns, and
// two vectors of m values.
template <class V> inline long bytesMoved(long entries, int m)
{
    return entries * static_cast<long>(sizeof(V) + sizeof(int)) +
           2L * m * static_cast<long>(sizeof(V));
}
// Whether such a loop outgrows the last-level cache.
template <class V> inline bool outgrowsCaches(long entries, int m)
{
    return bytesMoved<V>(entries, m) >= LAST_LEVEL_BYTES;
}

// Where a prefetch leaves its lines: in the first-level cache, or in the second only.
enum class PrefetchTo { FIRST_LEVEL = 3, SECOND_LEVEL = 2 };

// Prefetches the line that lies the given bytes from a (before it when negative). The address
// may lie beyond the array: a prefetch never faults, and bounding it cost the scatter of the
// transposed product 4 % of its speed. It is formed as an integer, not as a pointer outside the
// array. Always inlined: GCC takes a function that only prefetches for one without effects and
// drops the calls it does not inline (the one-thread lower solves of the sparse BLAS had lost
// every prefetch that way).
template <PrefetchTo To = PrefetchTo::FIRST_LEVEL>
ALWAYS_INLINE inline void prefetchFrom(const void* a, std::intptr_t bytes)
{
    const auto at = reinterpret_cast<std::intptr_t>(a) + bytes;
    __builtin_prefetch(reinterpret_cast<const void*>(at), 0, static_cast<int>(To));
}

// Prefetches the values and the column of the entry that lies the given bytes of values from
// entry p.
template <PrefetchTo To = PrefetchTo::FIRST_LEVEL, class V>
ALWAYS_INLINE inline void prefetchAt(const V* val, const int* col, int p, std::intptr_t bytes)
{
    constexpr std::intptr_t line = 64;
    constexpr std::intptr_t valueBytesPerColumnByte = sizeof(V) / sizeof(int);
    for (int k = 0; k < prefetchLines<V>(); ++k)
        prefetchFrom<To>(val + p, bytes + k * line);
    prefetchFrom<To>(col + p, bytes / valueBytesPerColumnByte);
}
// Prefetches the values and column prefetchBytes<V>() of values after entry p.
template <class V> ALWAYS_INLINE inline void prefetchAhead(const V* val, const int* col, int p)
{
    prefetchAt(val, col, p, prefetchBytes<V>());
}
// Prefetches the values and column prefetchBytes<V>() of values before entry p.
template <class V> ALWAYS_INLINE inline void prefetchBehind(const V* val, const int* col, int p)
{
    prefetchAt(val, col, p, -prefetchBytes<V>());
}

// 1 / d, computed apart from the chain of dependent rows: the substitutions multiply by it.
inline double recip(double d)
{
    return 1.0 / d;
}
inline Z recip(Z d)
{
    const double dd = d.real * d.real + d.imag * d.imag;
    return Z{d.real / dd, -d.imag / dd};
}

// Where a row's terms lie, found once for the one-thread solves with an array of the pivots'
// reciprocals, so that a solve does not compare columns: q ends the far terms of a lower row
// (starts them in an upper one) and is where the near term t_{i,i-1} (t_{i,i+1}) sits when the
// row has it; the split is ~q then, q otherwise. The terms are those the row forms below take.
inline int lowerSplit(int i, const int* ptr, const int* col)
{
    const int end = ptr[i + 1] - 1;
    int q = ptr[i] - 1;
    while (q < end && col[q] < i)
        ++q;
    return q < end && col[q] == i ? ~q : q;
}
inline int upperSplit(int i, const int* ptr, const int* col)
{
    const int end = ptr[i + 1] - 1;
    int q = ptr[i] - 1;
    while (q < end && col[q] <= i + 1)
        ++q;
    return q < end && col[q] == i + 2 ? ~q : q;
}

// Position of row i's pivot as the substitutions find it, from the row's split: in a lower row
// the entry of column i right after the far terms and t_{i,i-1}, in an upper row the last entry
// of column i + 1 before the far terms (columns ascend); -1 when there is none.
inline int lowerPivotAt(int i, const int* ptr, const int* col, int split)
{
    const int q = split < 0 ? ~split + 1 : split;
    return q < ptr[i + 1] - 1 && col[q] == i + 1 ? q : -1;
}
inline int upperPivotAt(int i, const int* ptr, const int* col, int split)
{
    const int q = split < 0 ? ~split : split;
    return q > ptr[i] - 1 && col[q - 1] == i + 1 ? q - 1 : -1;
}

// The reciprocal the substitutions use for the pivot at position at (-1: none, which divides by
// zero).
template <class V> inline V pivotRecip(const V* val, int at)
{
    return recip(at >= 0 ? val[at] : V{});
}

// Row i of the lower solve T y = x: y_i = (x_i - sum_{j<i} t_ij y_j) / t_ii, stored and
// returned. prev is y_{i-1} when the caller has it in a register; fresh says it has not, and the
// row then reads y_{i-1} from y if it needs it. Values and columns are prefetched
// prefetchBytes<V>() ahead.
// Each row depends on the one before through t_{i,i-1}; that term is applied last,
// y_i = s r - (t_{i,i-1} r) y_{i-1} with r = 1 / t_ii, so that only one product and one
// subtraction lie on the chain from row to row.
template <class V>
ALWAYS_INLINE inline V lowerRow(int i, const V* val, const int* ptr, const int* col, const V* x,
                                V* y, V prev, bool fresh)
{
    const int end = ptr[i + 1] - 1;
    int p = ptr[i] - 1;
    prefetchAhead(val, col, p);
    V s = x[i];
    for (; p < end && col[p] < i; ++p)
        subMul(s, val[p], y[col[p] - 1]);
    int q = p;
    const bool near = q < end && col[q] == i; // t_{i,i-1}
    if (near)
        ++q;
    const bool has = q < end && col[q] == i + 1;
    const V r = recip(has ? val[q] : V{});
    V t = mul(s, r);
    if (near)
        subMul(t, mul(val[p], r), fresh ? y[i - 1] : prev);
    y[i] = t;
    return t;
}

// Row i of the upper solve T y = x: y_i = (x_i - sum_{j>i} t_ij y_j) / t_ii, stored and
// returned; next is y_{i+1} unless fresh, as in lowerRow. The term of t_{i,i+1} is
// kept out of the row-to-row chain as there. Values and columns are prefetched prefetchBytes<V>()
// behind.
template <class V>
ALWAYS_INLINE inline V upperRow(int i, const V* val, const int* ptr, const int* col, const V* x,
                                V* y, V next, bool fresh)
{
    const int begin = ptr[i] - 1;
    const int end = ptr[i + 1] - 1;
    prefetchBehind(val, col, begin);
    int q = begin; // entries left of the diagonal are not referenced
    while (q < end && col[q] <= i)
        ++q;
    int at = -1;
    for (; q < end && col[q] == i + 1; ++q)
        at = q;
    const V r = pivotRecip(val, at);
    const bool near = q < end && col[q] == i + 2; // t_{i,i+1}
    V s = x[i];
    for (int p = near ? q + 1 : q; p < end; ++p)
        subMul(s, val[p], y[col[p] - 1]);
    V t = mul(s, r);
    if (near)
        subMul(t, mul(val[q], r), fresh ? y[i + 1] : next);
    y[i] = t;
    return t;
}

// Lower solve T y = x, forward, over rows [r0, r1); rows before r0 are read from y. x may be y.
template <class V>
ALWAYS_INLINE inline void solveLower(int r0, int r1, const V* val, const int* ptr, const int* col,
                                     const V* x, V* y)
{
    V prev{};
    for (int i = r0; i < r1; ++i)
        prev = lowerRow(i, val, ptr, col, x, y, prev, i == r0);
}

// Upper solve T y = x, backward, over rows [r0, r1) from r1 - 1 down; rows from r1 on are read
// from y. x may be y.
template <class V>
ALWAYS_INLINE inline void solveUpper(int r0, int r1, const V* val, const int* ptr, const int* col,
                                     const V* x, V* y)
{
    V next{};
    for (int i = r1 - 1; i >= r0; --i)
        next = upperRow(i, val, ptr, col, x, y, next, i == r1 - 1);
}

// Shortest run of rows without terms that a one-thread solve takes as a run.
constexpr int MIN_BARE_RUN = 4;

// Rows [i0, i1) of a triangle, none of which has a term off the diagonal: y_i = x_i r_i, the
// arithmetic of such a row in the substitutions; no row reads another.
template <class V>
ALWAYS_INLINE inline void solveBareRows(int i0, int i1, const V* x, V* y, const V* rp)
{
    for (int i = i0; i < i1; ++i)
        y[i] = mul(x[i], rp[i]);
}

// Lower solve T y = x over all m rows with the reciprocals rp and the splits of lowerSplit: the
// arithmetic of lowerRow, term for term. Prefetch says whether to prefetch the values and
// columns (not for a triangle that stays in the cache). With Runs, runs[i] counts the rows from
// i on without terms (bareRuns), and runs of MIN_BARE_RUN or more are solved as such.
template <bool Prefetch, bool Runs, class V>
ALWAYS_INLINE inline void solveLowerSplit(int m, const V* val, const int* ptr, const int* col,
                                          const V* x, V* y, const V* rp, const int* split,
                                          const int* runs)
{
    V prev{};
    for (int i = 0; i < m; ++i) {
        if (Runs && runs[i] >= MIN_BARE_RUN) {
            const int end = i + runs[i];
            solveBareRows(i, end, x, y, rp);
            i = end - 1;
            prev = y[i];
            continue;
        }
        const int p0 = ptr[i] - 1;
        if (Prefetch)
            prefetchAhead(val, col, p0);
        const int sp = split[i];
        const int q = sp < 0 ? ~sp : sp;
        V s = x[i];
        for (int p = p0; p < q; ++p)
            subMul(s, val[p], y[col[p] - 1]);
        const V r = rp[i];
        V t = mul(s, r);
        if (sp < 0)
            subMul(t, mul(val[q], r), i == 0 ? y[i - 1] : prev);
        y[i] = prev = t;
    }
}

// Upper solve T y = x over all m rows, from the last up, with the reciprocals rp and the splits
// of upperSplit: the arithmetic of upperRow, term for term; Prefetch and Runs as in
// solveLowerSplit, runs[i] counting rows from i up.
template <bool Prefetch, bool Runs, class V>
ALWAYS_INLINE inline void solveUpperSplit(int m, const V* val, const int* ptr, const int* col,
                                          const V* x, V* y, const V* rp, const int* split,
                                          const int* runs)
{
    V next{};
    for (int i = m - 1; i >= 0; --i) {
        if (Runs && runs[i] >= MIN_BARE_RUN) {
            const int first = i - runs[i] + 1;
            solveBareRows(first, i + 1, x, y, rp);
            i = first;
            next = y[i];
            continue;
        }
        const int end = ptr[i + 1] - 1;
        if (Prefetch)
            prefetchBehind(val, col, ptr[i] - 1);
        const int sp = split[i];
        const int q = sp < 0 ? ~sp : sp;
        V s = x[i];
        for (int p = sp < 0 ? q + 1 : q; p < end; ++p)
            subMul(s, val[p], y[col[p] - 1]);
        const V r = rp[i];
        V t = mul(s, r);
        if (sp < 0)
            subMul(t, mul(val[q], r), i == m - 1 ? y[i + 1] : next);
        y[i] = next = t;
    }
}

} // namespace platform
