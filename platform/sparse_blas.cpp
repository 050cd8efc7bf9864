// CSR product and triangular solves: see sparse_blas.h.
//
// The product runs in parallel over rows, each thread taking a contiguous block of rows with an
// equal share of stored entries (plus one unit per row); the blocks are found by a binary search
// on the row pointers at every call, so nothing is allocated or cached. The transposed product
// scatters into y: each thread adds the entries whose column lies in its own block (the columns
// of a square matrix split like its rows) and notes which of its rows reach outside; after a
// barrier one thread adds those outside entries, thread by thread. For banded matrices that is a
// few rows per block boundary; for any matrix it is correct.
//
// The triangular solves are row-oriented substitutions (op = "n") or column-oriented ones
// (op = "t") on one thread, dividing through multiplication by the reciprocal of the diagonal
// (so results may differ from a division in the last bit). Columns are taken sorted within each
// row, as in the library's CSR form, so a solve reads only the entries of its own triangle and the
// diagonal.
#include "platform/sparse_blas.h"

#include <omp.h>

#include <cstdint>
#if defined(__x86_64__)
#include <emmintrin.h>
#endif

#include "common/com.h"
#include "platform/sparse_arith.h"

namespace {

using namespace platform;

// Below this many entries plus rows a product runs on the calling thread alone: a parallel
// region costs 3 to 9 µs here, and the vector halves it leaves in two caches slow the one-thread
// work after it (a solve of 21 000 entries plus rows ran faster with its products on one thread).
constexpr long PARALLEL_MIN_WORK = 1L << 16;
// Most threads a product uses; their boundary rows live in arrays of this length on the stack.
constexpr int MAX_THREADS = 256;

bool isChar(const char* s, char lower)
{
    return s != nullptr && (*s == lower || *s == lower - ('a' - 'A'));
}

// Checks the arguments of a product and returns whether it is transposed. Anything the library
// never passes is a contract failure.
bool checkProduct(const char* transa, int m, int k, const char* matdescra, const int* pntrb,
                  const int* pntre)
{
    comAssert(nullptr, isChar(transa, 'n') || isChar(transa, 't'),
              "Unsupported operation '%c' in sparse matrix vector product",
              transa != nullptr ? *transa : '?');
    comAssert(nullptr, matdescra != nullptr && isChar(matdescra, 'g') && isChar(matdescra + 3, 'f'),
              "Unsupported descriptor \"%.6s\" in sparse matrix vector product",
              matdescra != nullptr ? matdescra : "");
    comAssert(nullptr, m >= 0 && m == k,
              "Unsupported shape %d x %d in sparse matrix vector product", m, k);
    comAssert(nullptr, pntre == pntrb + 1,
              "Unsupported row end array in sparse matrix vector product");
    return isChar(transa, 't');
}

// Number of threads for a product of m rows and nnz entries.
int productThreads(int m, long nnz)
{
    if (nnz + m < PARALLEL_MIN_WORK || omp_in_parallel())
        return 1;
    const int t = omp_get_max_threads();
    return t < 1 ? 1 : (t > MAX_THREADS ? MAX_THREADS : t);
}

// First row of block t of nt: the smallest i with (ptr[i] - ptr[0]) + i >= t (nnz + m) / nt.
int blockStart(const int* ptr, int m, int t, int nt)
{
    const long work = static_cast<long>(ptr[m]) - ptr[0] + m;
    const long target = work * t / nt;
    int lo = 0, hi = m;
    while (lo < hi) {
        const int mid = lo + (hi - lo) / 2;
        if (static_cast<long>(ptr[mid]) - ptr[0] + mid >= target) {
            hi = mid;
        } else {
            lo = mid + 1;
        }
    }
    return lo;
}

// sum_p val[p] x[col[p] - 1] over the entries [begin, end) of one row.
inline double rowDot(const double* val, const int* col, const double* x, int begin, int end)
{
    double s = 0.0;
    for (int p = begin; p < end; ++p)
        s += val[p] * x[col[p] - 1];
    return s;
}
// The complex sum on pairs: one accumulator gathers (ar xr, ai xr), the other (ar xi, ai xi), so
// that an entry costs two packed products and two packed sums with no shuffle of the value; the
// real and imaginary parts are formed once at the end of the row.
inline Z rowDot(const Z* val, const int* col, const Z* x, int begin, int end)
{
    Pair byRe = {0.0, 0.0};
    Pair byIm = {0.0, 0.0};
    for (int p = begin; p < end; ++p) {
        Pair a, b;
        __builtin_memcpy(&a, val + p, sizeof a);
        __builtin_memcpy(&b, x + col[p] - 1, sizeof b);
        byRe += a * Pair{b[0], b[0]};
        byIm += a * Pair{b[1], b[1]};
    }
    return Z{byRe[0] - byIm[1], byRe[1] + byIm[0]};
}

// How the product prefetches its values and columns: not at all when a thread's rows fit in its
// core's own cache (Pd's whole one-thread solve took 4 % less without); from the last-level cache
// into the first, as the solves do; from memory into the second level only, further ahead.
enum class RowPrefetch { NONE, NEAR, FAR };
// How far ahead FAR runs, in bytes of values. On one thread and 6 M entries the real product drew
// 24 GB/s with NEAR (4 KiB ahead) and 28.5 with FAR, the complex one 23.5 and 25.5; a scratch
// loop ran alike from 6 to 24 KiB ahead. On matrices that stay in the last-level cache FAR gained
// nothing (the complex product lost 3 %), and neither did the solves or the transposed product
// (their complex forms lost up to 15 %).
constexpr int FAR_PREFETCH_BYTES = 8192;

// y[r0..r1) := alpha A x + beta y over those rows; beta 0 does not read y. Each row's start is
// the last row's end, carried in a register, and the row loop is built once for beta 0 and once
// for the rest, so that no row tests beta: the one-thread real product of a 5-point operator in
// the last-level cache ran at 27.9 GB/s with a load of the row pointer and a test of beta per
// row, at 31.0 with the test alone, and runs at 33.3 now.
template <RowPrefetch Prefetch, class V>
ALWAYS_INLINE inline void productRows(int r0, int r1, V alpha, const V* val, const int* col,
                                      const int* ptr, const V* x, V beta, V* y)
{
    auto rows = [&](auto put) {
        int begin = ptr[r0] - 1;
        for (int i = r0; i < r1; ++i) {
            const int end = ptr[i + 1] - 1;
            if (Prefetch == RowPrefetch::NEAR)
                prefetchAhead(val, col, begin);
            if (Prefetch == RowPrefetch::FAR)
                prefetchAt<PrefetchTo::SECOND_LEVEL>(val, col, begin, FAR_PREFETCH_BYTES);
            put(i, rowDot(val, col, x, begin, end));
            begin = end;
        }
    };
    if (isZero(beta)) {
        rows([&](int i, V s) { y[i] = mul(alpha, s); });
    } else {
        rows([&](int i, V s) { y[i] = add(mul(alpha, s), mul(beta, y[i])); });
    }
}

// The row loops built for the processor at hand: the AVX2 versions use the same operations in
// the same order (no fused multiply-add), so every processor gets the same bits. fromMemory says
// whether the whole matrix outgrows the last-level cache.
template <class V>
ALWAYS_INLINE inline void productRowsEither(bool fromMemory, int r0, int r1, V alpha, const V* val,
                                            const int* col, const int* ptr, const V* x, V beta,
                                            V* y)
{
    if (fromMemory) {
        productRows<RowPrefetch::FAR>(r0, r1, alpha, val, col, ptr, x, beta, y);
    } else if (worthPrefetching<V>(static_cast<long>(ptr[r1]) - ptr[r0])) {
        productRows<RowPrefetch::NEAR>(r0, r1, alpha, val, col, ptr, x, beta, y);
    } else {
        productRows<RowPrefetch::NONE>(r0, r1, alpha, val, col, ptr, x, beta, y);
    }
}
TARGET_CLONES void productRowsOf(bool fromMemory, int r0, int r1, double alpha, const double* val,
                                 const int* col, const int* ptr, const double* x, double beta,
                                 double* y)
{
    productRowsEither(fromMemory, r0, r1, alpha, val, col, ptr, x, beta, y);
}
TARGET_CLONES void productRowsOf(bool fromMemory, int r0, int r1, Z alpha, const Z* val,
                                 const int* col, const int* ptr, const Z* x, Z beta, Z* y)
{
    productRowsEither(fromMemory, r0, r1, alpha, val, col, ptr, x, beta, y);
}

template <class V>
void product(int m, V alpha, const V* val, const int* col, const int* ptr, const V* x, V beta, V* y)
{
    const long nnz = static_cast<long>(ptr[m]) - ptr[0];
    const int nt = productThreads(m, nnz);
    const bool fromMemory = outgrowsCaches<V>(nnz, m);
    if (nt == 1) {
        productRowsOf(fromMemory, 0, m, alpha, val, col, ptr, x, beta, y);
        return;
    }
#pragma omp parallel num_threads(nt)
    {
        const int t = omp_get_thread_num();
        const int n = omp_get_num_threads();
        productRowsOf(fromMemory, blockStart(ptr, m, t, n), blockStart(ptr, m, t + 1, n), alpha,
                      val, col, ptr, x, beta, y);
    }
}

// y := beta y over [r0, r1); beta 0 writes zeros without reading y.
template <class V> void scale(int r0, int r1, V beta, V* y)
{
    if (isZero(beta)) {
        for (int i = r0; i < r1; ++i)
            y[i] = V{};
    } else {
        for (int i = r0; i < r1; ++i)
            y[i] = mul(beta, y[i]);
    }
}

// y[r0, r1) := 0 with stores that bypass the caches where the machine has them, so that y is not
// read from memory before it is written. Only for vectors beyond the caches: the rows read y back.
void zeroStreamed(int r0, int r1, double* y)
{
#if defined(__x86_64__)
    double* p = y + r0;
    double* const end = y + r1;
    while (p < end && reinterpret_cast<std::uintptr_t>(p) % 64 != 0)
        *p++ = 0.0;
    const __m128d zero = _mm_setzero_pd();
    for (; end - p >= 8; p += 8) { // a line at a time
        _mm_stream_pd(p, zero);
        _mm_stream_pd(p + 2, zero);
        _mm_stream_pd(p + 4, zero);
        _mm_stream_pd(p + 6, zero);
    }
    while (p < end)
        *p++ = 0.0;
    _mm_sfence(); // orders the streamed stores before the rows' updates of y
#else
    scale(r0, r1, 0.0, y);
#endif
}

// y += ax times the entries [begin, end) of one row, each into y at its column.
template <class V>
ALWAYS_INLINE inline void scatterRow(const V* val, const int* col, int begin, int end, V ax, V* y)
{
    for (int p = begin; p < end; ++p)
        addMul(y[col[p] - 1], val[p], ax);
}

// Entries of y zeroed at once beyond the last column a row reaches: a kilobyte, so that the
// zeroing is not a call per row.
template <class V> constexpr int ZERO_AHEAD = 1024 / sizeof(V);

// Zeroes y from entry zeroed to a kilobyte past column last (counted from 1), stopping at entry
// end; returns how far y is zeroed now.
template <class V> ALWAYS_INLINE inline int zeroAhead(int zeroed, int last, int end, V* y)
{
    const int to = last < end - ZERO_AHEAD<V> ? last + ZERO_AHEAD<V> : end; // no overflow
    for (; zeroed < to; ++zeroed)
        y[zeroed] = V{};
    return zeroed;
}

// y += alpha A^T x on the calling thread: row i of A scatters alpha x_i times its entries. With
// ZeroAhead, y := alpha A^T x instead, y zeroed just ahead of the rows, so that a line of y is
// still in cache when the rows reach it: a pass of its own would take y from memory twice.
template <bool ZeroAhead, class V>
ALWAYS_INLINE inline void scatter(int m, V alpha, const V* val, const int* col, const int* ptr,
                                  const V* x, V* y)
{
    int zeroed = 0; // y[0, zeroed) is zero or holds sums
    int begin = ptr[0] - 1;
    for (int i = 0; i < m; ++i) {
        const int end = ptr[i + 1] - 1;
        prefetchAhead(val, col, begin);
        // Columns ascend within a row: y is zero or holds sums up to the row's last column.
        if (ZeroAhead && begin < end && col[end - 1] > zeroed)
            zeroed = zeroAhead(zeroed, col[end - 1], m, y);
        scatterRow(val, col, begin, end, mul(alpha, x[i]), y);
        begin = end;
    }
    if (ZeroAhead)
        zeroAhead(zeroed, m, m, y);
}

// y := alpha A^T x + beta y on the calling thread. With beta 0 on a product beyond the caches,
// complex y is zeroed ahead of the rows: 9 % faster on 160 MB, 16 % on 22 MB. Real y is not: that
// ran 2 to 5 % slower. Within the caches a pass of its own is the faster (zeroing ahead ran 3 to
// 5 % slower there).
TARGET_CLONES void scatterOf(int m, double alpha, const double* val, const int* col, const int* ptr,
                             const double* x, double beta, double* y)
{
    scale(0, m, beta, y);
    scatter<false>(m, alpha, val, col, ptr, x, y);
}
TARGET_CLONES void scatterOf(int m, Z alpha, const Z* val, const int* col, const int* ptr,
                             const Z* x, Z beta, Z* y)
{
    if (isZero(beta) && outgrowsCaches<Z>(static_cast<long>(ptr[m]) - ptr[0], m)) {
        scatter<true>(m, alpha, val, col, ptr, x, y);
    } else {
        scale(0, m, beta, y);
        scatter<false>(m, alpha, val, col, ptr, x, y);
    }
}

// Prefetch distance in the blocks of the threaded transposed product, in bytes of values of
// either type: with two threads, real values ran 2 % faster at 2 KiB than at the one-thread
// 4 KiB, and 8 % slower at 8 KiB.
constexpr int BLOCK_PREFETCH_BYTES = 2048;

// How a block of the threaded transposed product sets y[r0, r1) before its rows add to it: y :=
// beta y in a pass of its own, zeros streamed past the caches in a pass (beta 0), or zeros just
// ahead of the rows (beta 0).
enum class BlockY { Scaled, Streamed, ZeroedAhead };

// Block [r0, r1) of the threaded transposed product: y[r0, r1) += the entries of rows r0 to r1 - 1
// whose column lies in the block; rows before headEnd may reach columns before r0, rows from
// tailStart columns from r1 on. With ZeroAhead, y := those entries instead, y zeroed just ahead
// of the rows.
template <bool ZeroAhead, class V>
ALWAYS_INLINE inline void scatterBlock(int r0, int r1, V alpha, const V* val, const int* col,
                                       const int* ptr, const V* x, V* y, int& headEnd,
                                       int& tailStart)
{
    int zeroed = r0; // with ZeroAhead, y[r0, zeroed) is zero or holds sums
    int head = r0, tail = r1;
    int next = ptr[r0] - 1;
    for (int i = r0; i < r1; ++i) {
        const V ax = mul(alpha, x[i]);
        const int begin = next, end = ptr[i + 1] - 1;
        next = end;
        prefetchAt(val, col, begin, BLOCK_PREFETCH_BYTES);
        // y is zero or holds sums up to the row's last column or the block's end.
        if (ZeroAhead && begin < end && col[end - 1] > zeroed)
            zeroed = zeroAhead(zeroed, col[end - 1], r1, y);
        // Columns ascend within a row: when the first and the last lie in the block, so do
        // all, and the row scatters without a test per entry.
        if (begin < end && col[begin] > r0 && col[end - 1] <= r1) {
            scatterRow(val, col, begin, end, ax, y);
            continue;
        }
        for (int p = begin; p < end; ++p) {
            const int c = col[p] - 1;
            if (c >= r0 && c < r1) {
                addMul(y[c], val[p], ax);
            } else if (c < r0) {
                head = i + 1;
            } else if (tail == r1) {
                tail = i;
            }
        }
    }
    if (ZeroAhead)
        zeroAhead(zeroed, r1, r1, y);
    headEnd = head;
    tailStart = tail;
}
// How the blocks start on m rows and the given stored entries. With beta 0 on a product of at
// least 64 MiB, two threads' caches no longer hold y from a pass of its own until the rows reach
// it (the crossovers lie higher than on one thread, whose caches hold less):
// - complex y is zeroed ahead of the rows: 7 % faster on 95 MB, 8 to 15 % on 160 MB, level on
//   65 MB, 1 to 3 % slower on 14 to 40 MB;
// - real y is streamed: 1 to 5 % faster on 92 MB, level on 55 MB, 2 to 5 % slower on 12 to 37 MB.
//   Zeroing real y ahead of the rows ran level or slower.
constexpr long THREADED_BEYOND_CACHE_BYTES = 4 * LAST_LEVEL_BYTES;
BlockY blockYOf(double beta, long entries, int m)
{
    return isZero(beta) && bytesMoved<double>(entries, m) >= THREADED_BEYOND_CACHE_BYTES
               ? BlockY::Streamed
               : BlockY::Scaled;
}
BlockY blockYOf(Z beta, long entries, int m)
{
    return isZero(beta) && bytesMoved<Z>(entries, m) >= THREADED_BEYOND_CACHE_BYTES
               ? BlockY::ZeroedAhead
               : BlockY::Scaled;
}

TARGET_CLONES void scatterBlockOf(BlockY how, int r0, int r1, double alpha, const double* val,
                                  const int* col, const int* ptr, const double* x, double beta,
                                  double* y, int& headEnd, int& tailStart)
{
    if (how == BlockY::Streamed)
        zeroStreamed(r0, r1, y);
    else
        scale(r0, r1, beta, y);
    scatterBlock<false>(r0, r1, alpha, val, col, ptr, x, y, headEnd, tailStart);
}
TARGET_CLONES void scatterBlockOf(BlockY how, int r0, int r1, Z alpha, const Z* val, const int* col,
                                  const int* ptr, const Z* x, Z beta, Z* y, int& headEnd,
                                  int& tailStart)
{
    if (how == BlockY::ZeroedAhead) {
        scatterBlock<true>(r0, r1, alpha, val, col, ptr, x, y, headEnd, tailStart);
    } else {
        scale(r0, r1, beta, y);
        scatterBlock<false>(r0, r1, alpha, val, col, ptr, x, y, headEnd, tailStart);
    }
}

template <class V>
void productTransposed(int m, V alpha, const V* val, const int* col, const int* ptr, const V* x,
                       V beta, V* y)
{
    const long entries = static_cast<long>(ptr[m]) - ptr[0];
    const int nt = productThreads(m, entries);
    if (nt == 1) {
        scatterOf(m, alpha, val, col, ptr, x, beta, y);
        return;
    }
    const BlockY how = blockYOf(beta, entries, m);
    // Per block: rows [r0, headEnd) may hold columns before the block, rows [tailStart, r1)
    // columns after it.
    int start[MAX_THREADS + 1];
    int headEnd[MAX_THREADS];
    int tailStart[MAX_THREADS];
    int used = 1;
#pragma omp parallel num_threads(nt)
    {
        const int t = omp_get_thread_num();
        const int n = omp_get_num_threads();
        const int r0 = blockStart(ptr, m, t, n);
        const int r1 = blockStart(ptr, m, t + 1, n);
        start[t] = r0;
        if (t == n - 1) {
            start[n] = m;
            used = n;
        }
        scatterBlockOf(how, r0, r1, alpha, val, col, ptr, x, beta, y, headEnd[t], tailStart[t]);
    }
    // The entries outside each block, added by this thread alone.
    for (int t = 0; t < used; ++t) {
        const int r0 = start[t], r1 = start[t + 1];
        for (int i = r0; i < headEnd[t]; ++i) {
            const V ax = mul(alpha, x[i]);
            for (int p = ptr[i] - 1; p < ptr[i + 1] - 1; ++p) {
                const int c = col[p] - 1;
                if (c < r0)
                    addMul(y[c], val[p], ax);
            }
        }
        for (int i = tailStart[t]; i < r1; ++i) {
            const V ax = mul(alpha, x[i]);
            for (int p = ptr[i] - 1; p < ptr[i + 1] - 1; ++p) {
                const int c = col[p] - 1;
                if (c >= r1)
                    addMul(y[c], val[p], ax);
            }
        }
    }
}

// Lower transposed solve T^T y = x, backward by rows of T: y_i := y_i / t_ii, then
// y_j -= t_ij y_i for j < i. The update of y_{i-1} is carried in a register to the next step.
template <class V>
ALWAYS_INLINE inline void solveLowerTransposed(int m, const V* val, const int* ptr, const int* col,
                                               const V* x, V* y)
{
    if (y != x) {
        for (int i = 0; i < m; ++i)
            y[i] = x[i];
    }
    V carry{}; // t_{i+1,i} y_{i+1}, not yet subtracted from y_i
    for (int i = m - 1; i >= 0; --i) {
        const int begin = ptr[i] - 1;
        prefetchBehind(val, col, begin);
        int q = ptr[i + 1] - 1; // the strict lower part is [begin, q) once the scan stops
        while (q > begin && col[q - 1] > i + 1)
            --q;
        V d{};
        if (q > begin && col[q - 1] == i + 1)
            d = val[--q];
        const V yi = mul(sub(y[i], carry), recip(d));
        y[i] = yi;
        carry = V{};
        if (q > begin && col[q - 1] == i)
            carry = mul(val[--q], yi);
        for (int p = begin; p < q; ++p)
            subMul(y[col[p] - 1], val[p], yi);
    }
}

// Upper transposed solve T^T y = x, forward: y_i := y_i / t_ii, then y_j -= t_ij y_i for j > i,
// carrying the update of y_{i+1} in a register.
template <class V>
ALWAYS_INLINE inline void solveUpperTransposed(int m, const V* val, const int* ptr, const int* col,
                                               const V* x, V* y)
{
    if (y != x) {
        for (int i = 0; i < m; ++i)
            y[i] = x[i];
    }
    V carry{}; // t_{i-1,i} y_{i-1}, not yet subtracted from y_i
    for (int i = 0; i < m; ++i) {
        const int end = ptr[i + 1] - 1;
        int p = ptr[i] - 1;
        prefetchAhead(val, col, p);
        while (p < end && col[p] < i + 1)
            ++p;
        V d{};
        if (p < end && col[p] == i + 1)
            d = val[p++];
        const V yi = mul(sub(y[i], carry), recip(d));
        y[i] = yi;
        carry = V{};
        if (p < end && col[p] == i + 2)
            carry = mul(val[p++], yi);
        for (; p < end; ++p)
            subMul(y[col[p] - 1], val[p], yi);
    }
}

// Checks the arguments of a solve; anything the library never passes is a contract failure.
void checkSolve(const char* uplo, const char* transa, const char* diag, int m)
{
    comAssert(nullptr, isChar(uplo, 'l') || isChar(uplo, 'u'),
              "Unsupported triangle '%c' in sparse triangle solver", uplo != nullptr ? *uplo : '?');
    comAssert(nullptr, isChar(transa, 'n') || isChar(transa, 't'),
              "Unsupported operation '%c' in sparse triangle solver",
              transa != nullptr ? *transa : '?');
    comAssert(nullptr, isChar(diag, 'n'), "Unsupported diagonal '%c' in sparse triangle solver",
              diag != nullptr ? *diag : '?');
    comAssert(nullptr, m >= 0, "Unsupported size %d in sparse triangle solver", m);
}

// The substitutions built for the processor at hand, as the product rows above. The lower and
// the upper solve have functions of their own: sharing one with the other substitutions changed
// their register use and cost them a tenth of their speed or more.
TARGET_CLONES void lowerOf(int m, const double* a, const int* ia, const int* ja, const double* x,
                           double* y)
{
    solveLower(0, m, a, ia, ja, x, y);
}
TARGET_CLONES void lowerOf(int m, const Z* a, const int* ia, const int* ja, const Z* x, Z* y)
{
    solveLower(0, m, a, ia, ja, x, y);
}
TARGET_CLONES void upperOf(int m, const double* a, const int* ia, const int* ja, const double* x,
                           double* y)
{
    solveUpper(0, m, a, ia, ja, x, y);
}
TARGET_CLONES void upperOf(int m, const Z* a, const int* ia, const int* ja, const Z* x, Z* y)
{
    solveUpper(0, m, a, ia, ja, x, y);
}
template <class V>
ALWAYS_INLINE inline void transposed(bool upper, int m, const V* a, const int* ia, const int* ja,
                                     const V* x, V* y)
{
    if (upper) {
        solveUpperTransposed(m, a, ia, ja, x, y);
    } else {
        solveLowerTransposed(m, a, ia, ja, x, y);
    }
}
TARGET_CLONES void transposedOf(bool upper, int m, const double* a, const int* ia, const int* ja,
                                const double* x, double* y)
{
    transposed(upper, m, a, ia, ja, x, y);
}
TARGET_CLONES void transposedOf(bool upper, int m, const Z* a, const int* ia, const int* ja,
                                const Z* x, Z* y)
{
    transposed(upper, m, a, ia, ja, x, y);
}

template <class V>
void solve(const char* uplo, const char* transa, const char* diag, int m, const V* a, const int* ia,
           const int* ja, const V* x, V* y)
{
    checkSolve(uplo, transa, diag, m);
    if (isChar(transa, 't')) {
        transposedOf(isChar(uplo, 'u'), m, a, ia, ja, x, y);
    } else if (isChar(uplo, 'u')) {
        upperOf(m, a, ia, ja, x, y);
    } else {
        lowerOf(m, a, ia, ja, x, y);
    }
}

} // namespace

void mkl_dcsrmv(const char* transa, const int* m, const int* k, const double* alpha,
                const char* matdescra, const double* val, const int* indx, const int* pntrb,
                const int* pntre, const double* x, const double* beta, double* y)
{
    if (checkProduct(transa, *m, *k, matdescra, pntrb, pntre)) {
        productTransposed(*m, *alpha, val, indx, pntrb, x, *beta, y);
    } else {
        product(*m, *alpha, val, indx, pntrb, x, *beta, y);
    }
}

void mkl_zcsrmv(const char* transa, const int* m, const int* k, const PlatformComplex16* alpha,
                const char* matdescra, const PlatformComplex16* val, const int* indx,
                const int* pntrb, const int* pntre, const PlatformComplex16* x,
                const PlatformComplex16* beta, PlatformComplex16* y)
{
    if (checkProduct(transa, *m, *k, matdescra, pntrb, pntre)) {
        productTransposed(*m, *alpha, val, indx, pntrb, x, *beta, y);
    } else {
        product(*m, *alpha, val, indx, pntrb, x, *beta, y);
    }
}

void mkl_dcsrtrsv(const char* uplo, const char* transa, const char* diag, const int* m,
                  const double* a, const int* ia, const int* ja, const double* x, double* y)
{
    solve(uplo, transa, diag, *m, a, ia, ja, x, y);
}

void mkl_zcsrtrsv(const char* uplo, const char* transa, const char* diag, const int* m,
                  const PlatformComplex16* a, const int* ia, const int* ja,
                  const PlatformComplex16* x, PlatformComplex16* y)
{
    solve(uplo, transa, diag, *m, a, ia, ja, x, y);
}
