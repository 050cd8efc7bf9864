// Euclidean norms: see vector_norm.h.
//
// OpenBLAS's x86-64 norm sums in the x87 unit, about two cycles an entry: on a vector in the
// caches it took seven times as long as a sum of squares in SIMD registers, on one in memory
// half as long again, and a BiCGStab step takes two norms. Here the squares are summed in double
// precision, in four accumulators of four lanes. When that sum is infinite or so small that
// squares may have been lost below the normal range, the vector is summed again multiplied by
// the power of two that brings its largest entry near one (exact for every entry that matters),
// and the root is scaled back.
#include "platform/vector_norm.h"

#include <cfloat>
#include <cmath>

#include "platform/sparse_arith.h"

namespace {

// Below this a sum of squares may have lost more than rounding to squares beneath the normal
// range: each lost square is under 2^-1074, and 2^32 of them come to less than 2^-180 of this.
constexpr double SMALLEST_TRUSTED_SUM = 0x1p-860;
// Largest power of two a scaling multiplies by: 2^1074, which would bring the smallest subnormal
// to one, is beyond the doubles.
constexpr int MAX_SCALE_EXPONENT = 1000;

typedef double Quad __attribute__((vector_size(32)));

// Sum of (scale x_i)^2 over the n entries; Scaled false takes scale as one. The order is fixed
// by n alone: four accumulators over blocks of sixteen entries, folded pairwise, then the tail.
// No fused multiply-add in either build, so both give the same bits.
template <bool Scaled> ALWAYS_INLINE inline double sumSquares(const double* x, long n, double scale)
{
    Quad a = {0.0, 0.0, 0.0, 0.0};
    Quad b = a;
    Quad c = a;
    Quad d = a;
    long i = 0;
    for (; i + 16 <= n; i += 16) {
        Quad u, v, w, z;
        __builtin_memcpy(&u, x + i, sizeof u);
        __builtin_memcpy(&v, x + i + 4, sizeof v);
        __builtin_memcpy(&w, x + i + 8, sizeof w);
        __builtin_memcpy(&z, x + i + 12, sizeof z);
        if (Scaled) {
            u *= scale;
            v *= scale;
            w *= scale;
            z *= scale;
        }
        a += u * u;
        b += v * v;
        c += w * w;
        d += z * z;
    }
    a = (a + b) + (c + d);
    double s = (a[0] + a[1]) + (a[2] + a[3]);
    for (; i < n; ++i) {
        const double t = Scaled ? x[i] * scale : x[i];
        s += t * t;
    }
    return s;
}

TARGET_CLONES double sumSquaresOf(const double* x, long n)
{
    return sumSquares<false>(x, n, 1.0);
}
TARGET_CLONES double sumScaledSquaresOf(const double* x, long n, double scale)
{
    return sumSquares<true>(x, n, scale);
}

// Largest |x_i|; NaN entries are skipped (the caller has ruled them out).
double largestMagnitude(const double* x, long n)
{
    double m = 0.0;
    for (long i = 0; i < n; ++i)
        m = std::fabs(x[i]) > m ? std::fabs(x[i]) : m;
    return m;
}

// The norm when the plain sum of squares cannot be trusted: no NaN among the entries, some
// square overflowed or the squares are small. An infinite entry is tested for, as frexp leaves
// the exponent of an infinity unspecified.
double scaledNorm(const double* x, long n)
{
    const double largest = largestMagnitude(x, n);
    if (largest == 0.0 || std::isinf(largest))
        return largest;
    int exponent;
    std::frexp(largest, &exponent); // largest = f 2^exponent, 0.5 <= f < 1
    if (exponent < -MAX_SCALE_EXPONENT)
        exponent = -MAX_SCALE_EXPONENT;
    const double s = sumScaledSquaresOf(x, n, std::ldexp(1.0, -exponent));
    return std::ldexp(std::sqrt(s), exponent);
}

double norm(const double* x, long n)
{
    if (n <= 0)
        return 0.0;
    const double s = sumSquaresOf(x, n);
    if (s >= SMALLEST_TRUSTED_SUM && s <= DBL_MAX)
        return std::sqrt(s);
    if (std::isnan(s)) // squares are never negative, so only a NaN entry gives a NaN sum
        return s;
    return scaledNorm(x, n);
}

} // namespace

double platform_dnrm2(int n, const double* x)
{
    return norm(x, n);
}

double platform_dznrm2(int n, const PlatformComplex16* x)
{
    return norm(reinterpret_cast<const double*>(x), 2L * n); // null when n is 0
}
