// Euclidean norms of dense vectors: accuracy against a sum in extended precision on every tail
// length, the scaled sum where squares overflow or underflow, and infinities and NaNs.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "platform/vector_norm.h"

namespace {

// The norm in long double; its squares neither overflow nor underflow for any double.
double exactNorm(const std::vector<double>& x)
{
    long double s = 0;
    for (double v : x)
        s += static_cast<long double>(v) * v;
    return static_cast<double>(std::sqrt(s));
}

double norm(const std::vector<double>& x)
{
    return platform_dnrm2(static_cast<int>(x.size()), x.data());
}

// The same values as complex entries: the norm of all their parts.
double complexNorm(const std::vector<double>& x)
{
    std::vector<PlatformComplex16> z(x.size() / 2);
    for (size_t i = 0; i < z.size(); ++i)
        z[i] = PlatformComplex16{x[2 * i], x[2 * i + 1]};
    return platform_dznrm2(static_cast<int>(z.size()), z.data());
}

constexpr double INF = std::numeric_limits<double>::infinity();

TEST(VectorNorm, AgreesWithAnExactSumOnEveryLength)
{
    std::mt19937 gen(7);
    std::uniform_real_distribution<double> mantissa(-1.0, 1.0);
    std::uniform_int_distribution<int> exponent(-8, 8);
    std::vector<int> lengths;
    for (int n = 0; n <= 40; ++n) // every tail after the blocks of sixteen, and no block at all
        lengths.push_back(n);
    for (int n : {255, 256, 257, 8081, 100003})
        lengths.push_back(n);
    for (int n : lengths) {
        SCOPED_TRACE(n);
        std::vector<double> x(n);
        for (double& v : x)
            v = std::ldexp(mantissa(gen), exponent(gen));
        const double exact = exactNorm(x);
        EXPECT_NEAR(norm(x), exact, 1e-15 * exact);
        if (n % 2 == 0) {
            EXPECT_EQ(complexNorm(x), norm(x));
        }
    }
    EXPECT_EQ(platform_dnrm2(0, nullptr), 0.0);
    EXPECT_EQ(platform_dnrm2(-3, nullptr), 0.0);
    EXPECT_EQ(norm(std::vector<double>(37, 0.0)), 0.0);
    EXPECT_EQ(norm({3.0, -4.0}), 5.0);
}

TEST(VectorNorm, ScalesWhereSquaresOverflowOrUnderflow)
{
    const double tiny = std::numeric_limits<double>::denorm_min();
    struct Case {
        const char* what;
        std::vector<double> x;
        double expected;
    };
    const Case cases[] = {
        {"squares overflow", std::vector<double>(37, 1e200), std::sqrt(37.0) * 1e200},
        {"the largest double", {DBL_MAX, 0.0, -1.0}, DBL_MAX},
        {"a representable norm of huge entries",
         {DBL_MAX / 2, -DBL_MAX / 2},
         std::sqrt(2.0) * (DBL_MAX / 2)},
        {"squares underflow to nothing", std::vector<double>(37, -1e-200),
         std::sqrt(37.0) * 1e-200},
        {"squares below the normal range", std::vector<double>(37, 1e-160),
         std::sqrt(37.0) * 1e-160},
        {"squares a little below the normal range", std::vector<double>(1000, 1.2345e-155),
         std::sqrt(1000.0) * 1.2345e-155},
        {"subnormal entries", {tiny, -tiny, tiny, tiny}, 2 * tiny},
        {"the smallest normal", std::vector<double>(16, DBL_MIN), 4 * DBL_MIN},
        {"huge and tiny together", {1e300, 1e-300, 1.0}, 1e300},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_NEAR(norm(c.x), c.expected, 4e-16 * c.expected);
        EXPECT_NEAR(exactNorm(c.x), c.expected, 4e-16 * c.expected); // the expectation itself
    }
    EXPECT_EQ(norm({DBL_MAX, DBL_MAX}), INF); // the norm itself is beyond the doubles
}

TEST(VectorNorm, InfinityAndNaN)
{
    const double nan = std::nan("");
    for (int n : {3, 16, 21, 40}) {
        for (int at : {0, n / 2, n - 1}) { // in a block of sixteen or in the tail
            SCOPED_TRACE(testing::Message() << "n " << n << " at " << at);
            std::vector<double> x(n, 1.5);
            x[at] = -INF;
            EXPECT_EQ(norm(x), INF);
            x[at] = nan;
            EXPECT_TRUE(std::isnan(norm(x)));
            x[(at + 1) % n] = INF; // an infinity does not hide the NaN
            EXPECT_TRUE(std::isnan(norm(x)));
            std::vector<double> y(n, 1e-200); // nor do squares that need the scaled sum
            y[at] = nan;
            EXPECT_TRUE(std::isnan(norm(y)));
            y.assign(n, 1e200);
            y[at] = nan;
            EXPECT_TRUE(std::isnan(norm(y)));
        }
    }
}

} // namespace
