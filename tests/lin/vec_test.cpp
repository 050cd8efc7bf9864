// The dense vector record and the vector arithmetic.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstring>
#include <limits>

#include <omp.h>

#include "lin_util.h"
#include "support/support.h"

using kwiltest::Capture;
using lintest::Cplx;
using lintest::FakeHandle;
using lintest::VecPtr;

namespace {

ComLinVec* realVec(std::vector<double> v)
{
    ComLinVec* x = comLinVecCreate(nullptr, LIN_REAL, static_cast<int>(v.size()));
    std::copy(v.begin(), v.end(), x->realData);
    return x;
}

ComLinVec* compVec(std::vector<Cplx> v)
{
    ComLinVec* x = comLinVecCreate(nullptr, LIN_COMP, static_cast<int>(v.size()));
    for (size_t i = 0; i < v.size(); ++i) {
        x->compData[2 * i] = v[i].real();
        x->compData[2 * i + 1] = v[i].imag();
    }
    return x;
}

double bitsToDouble(uint64_t bits)
{
    double d;
    memcpy(&d, &bits, sizeof d);
    return d;
}

} // namespace

TEST(VecCreate, FailuresUseTheMatrixCreateTexts)
{
    const char* const data[2] = {"Real data allocation error in matrix create",
                                 "Comp data allocation error in matrix create"};
    for (int dt : {LIN_REAL, LIN_COMP}) {
        for (int k = 1; k <= 2; ++k) {
            const long live = comTestLiveAllocs();
            Capture cap;
            comTestFailAlloc(k);
            ComLinVec* v = comLinVecCreateInit(nullptr, dt, 4, {1, 2});
            comTestFailAlloc(0);
            cap.take();
            EXPECT_EQ(v, nullptr);
            EXPECT_EQ(cap.err(), std::string("KWILERR: Allocation error\nKWILERR: ") +
                                     (k == 1 ? "Allocation error in matrix create" : data[dt]) +
                                     "\n");
            EXPECT_EQ(comTestLiveAllocs(), live);
        }
    }
}

TEST(VecCreate, InitUsesTheRealPartForRealVectors)
{
    VecPtr r(comLinVecCreateInit(nullptr, LIN_REAL, 3, {2.5, -7}));
    VecPtr c(comLinVecCreateInit(nullptr, LIN_COMP, 2, {2.5, -7}));
    EXPECT_EQ(r->compData, nullptr);
    EXPECT_EQ(c->realData, nullptr);
    EXPECT_EQ(lintest::values(r.get()), (std::vector<Cplx>{2.5, 2.5, 2.5}));
    EXPECT_EQ(lintest::values(c.get()), (std::vector<Cplx>{{2.5, -7}, {2.5, -7}}));
    comLinVecInit(nullptr, c.get(), {0, 1});
    EXPECT_EQ(lintest::values(c.get()), (std::vector<Cplx>{{0, 1}, {0, 1}}));
}

TEST(VecCreate, CompFromRealPromotesOrCopies)
{
    VecPtr r(realVec({1.5, -2}));
    VecPtr c(comLinVecCreateCompFromReal(nullptr, r.get()));
    EXPECT_EQ(c->dataType, LIN_COMP);
    EXPECT_EQ(lintest::values(c.get()), (std::vector<Cplx>{{1.5, 0}, {-2, 0}}));
    EXPECT_EQ(lintest::values(r.get()), (std::vector<Cplx>{1.5, -2}));
    VecPtr c2(comLinVecCreateCompFromReal(nullptr, c.get()));
    EXPECT_NE(c2->compData, c->compData);
    EXPECT_EQ(lintest::values(c2.get()), lintest::values(c.get()));
    // A failed creation is reported by the creator alone; the given vector is untouched.
    const char* const lines[2] = {"Allocation error in matrix create",
                                  "Comp data allocation error in matrix create"};
    for (int k = 1; k <= 2; ++k) {
        const long live = comTestLiveAllocs();
        Capture cap;
        comTestFailAlloc(k);
        EXPECT_EQ(comLinVecCreateCompFromReal(nullptr, r.get()), nullptr);
        comTestFailAlloc(0);
        cap.take();
        EXPECT_EQ(cap.err(),
                  std::string("KWILERR: Allocation error\nKWILERR: ") + lines[k - 1] + "\n");
        EXPECT_EQ(comTestLiveAllocs(), live);
        EXPECT_EQ(lintest::values(r.get()), (std::vector<Cplx>{1.5, -2}));
    }
}

TEST(VecDelete, DeletesEveryNonNullArgument)
{
    const long live = comTestLiveAllocs();
    comLinVecsDelete(nullptr, comLinVecCreate(nullptr, LIN_REAL, 2), nullptr,
                     comLinVecCreate(nullptr, LIN_COMP, 3), nullptr);
    comLinVecsDelete(nullptr, nullptr, nullptr, nullptr, comLinVecCreate(nullptr, LIN_REAL, 0));
    comLinVecDelete(nullptr, nullptr);
    EXPECT_EQ(comTestLiveAllocs(), live);
}

TEST(VecCopy, CopiesIntoTheExistingArray)
{
    VecPtr a(compVec({{1, 2}, {3, 4}}));
    VecPtr b(comLinVecCreate(nullptr, LIN_COMP, 2));
    double* data = b->compData;
    comLinVecCopy(nullptr, a.get(), b.get());
    EXPECT_EQ(b->compData, data);
    EXPECT_EQ(lintest::values(b.get()), lintest::values(a.get()));
}

// Large copies are split among threads: every value arrives, at every split, and nothing is
// written past the end (the guard after the destination's last value stays).
TEST(VecCopy, LargeCopiesOnSeveralThreadsMoveEveryValue)
{
    const int previous = omp_get_max_threads();
    for (int threads : {1, 2, 3}) {
        omp_set_num_threads(threads);
        for (int n : {65535, 65536, 100003}) {
            for (int type : {LIN_REAL, LIN_COMP}) {
                const long len = type == LIN_REAL ? n : 2L * n;
                VecPtr a(comLinVecCreate(nullptr, type, n));
                VecPtr b(comLinVecCreate(nullptr, type, n + 1)); // one slot as a guard
                double* src = type == LIN_REAL ? a->realData : a->compData;
                double* dst = type == LIN_REAL ? b->realData : b->compData;
                for (long k = 0; k < len; ++k)
                    src[k] = 0.5 + static_cast<double>(k);
                std::fill(dst, dst + len + (type == LIN_REAL ? 1 : 2), -1.0);
                b->size = n;
                comLinVecCopy(nullptr, a.get(), b.get());
                b->size = n + 1;
                long wrong = 0;
                for (long k = 0; k < len; ++k)
                    wrong += dst[k] != src[k];
                EXPECT_EQ(wrong, 0) << threads << " threads, n " << n << ", type " << type;
                EXPECT_EQ(dst[len], -1.0);
            }
        }
    }
    omp_set_num_threads(previous);
}

// The BLAS calls on short vectors run on one thread and hand the caller's thread count back;
// at every length and thread count the results are right (the dots exactly: their sums are exact).
TEST(VecCalc, ShortVectorsLeaveTheCallersThreadCountAsItWas)
{
    const int previous = omp_get_max_threads();
    for (int threads : {1, 2, 3}) {
        omp_set_num_threads(threads);
        for (int n : {100, 40000, 70000}) { // complex 40000: 80000 doubles, no longer short
            for (int type : {LIN_REAL, LIN_COMP}) {
                SCOPED_TRACE(testing::Message()
                             << threads << " threads, n " << n << ", type " << type);
                VecPtr x(comLinVecCreateInit(nullptr, type, n, ComComplex{0.5, 0.25}));
                VecPtr y(comLinVecCreateInit(nullptr, type, n, ComComplex{1.0, -1.0}));
                comLinVecCalcVec(nullptr, ComComplex{2.0, 0.0}, x.get(), y.get());
                EXPECT_EQ(omp_get_max_threads(), threads);
                comLinVecCalcVec2(nullptr, ComComplex{1.0, 0.0}, x.get(), ComComplex{-1.0, 0.0},
                                  x.get(), y.get());
                EXPECT_EQ(omp_get_max_threads(), threads);
                comLinVecCalcScal(nullptr, ComComplex{0.5, 0.0}, y.get());
                EXPECT_EQ(omp_get_max_threads(), threads);
                // |y|^2 = n (real) or 1.0625 n (complex): compared with a tolerance, since the
                // square root and OpenBLAS's scaled sum round.
                const double norm = comLinVecCalcNorm2(nullptr, y.get());
                EXPECT_NEAR(norm, std::sqrt((type == LIN_REAL ? 1.0 : 1.0625) * n),
                            1e-12 * std::sqrt(n));
                EXPECT_EQ(omp_get_max_threads(), threads);
                // y = (y0 + 2 x) / 2: 1 when real, 1 - 0.25 i when complex, in every entry.
                if (type == LIN_REAL) {
                    EXPECT_EQ(comLinVecCalcDotReal(nullptr, x.get(), y.get()), 0.5 * n);
                } else {
                    ComComplex c{}, u{};
                    comLinVecCalcDotCompConj(nullptr, x.get(), y.get(), &c);
                    comLinVecCalcDotCompUnconj(nullptr, x.get(), y.get(), &u);
                    // (0.5 -+ 0.25 i)(1 - 0.25 i): 0.4375 - 0.375 i and 0.5625 + 0.125 i.
                    EXPECT_EQ(c.re, 0.4375 * n);
                    EXPECT_EQ(c.im, -0.375 * n);
                    EXPECT_EQ(u.re, 0.5625 * n);
                    EXPECT_EQ(u.im, 0.125 * n);
                }
                EXPECT_EQ(omp_get_max_threads(), threads);
            }
        }
    }
    omp_set_num_threads(previous);
}

TEST(VecCopyDeathTest, MismatchesAreContractViolations)
{
    VecPtr a(realVec({1, 2}));
    VecPtr b(realVec({1, 2, 3}));
    VecPtr c(compVec({1, 2}));
    EXPECT_EXIT(comLinVecCopy(nullptr, a.get(), b.get()), testing::ExitedWithCode(255),
                "^KWILASR: Size unmatch in copy vector\n$");
    EXPECT_EXIT(comLinVecCopy(nullptr, a.get(), c.get()), testing::ExitedWithCode(255),
                "^KWILASR: Data type unmatch in copy vector\n$");
}

TEST(VecParamCheck, BoundsAndShownPosition)
{
    VecPtr v(realVec({1, 2, 3}));
    Capture cap;
    EXPECT_EQ(comLinVecParamCheck(nullptr, v.get(), 0, "set fix vec"), 1);
    EXPECT_EQ(comLinVecParamCheck(nullptr, v.get(), 2, "set fix vec"), 1);
    EXPECT_EQ(comLinVecParamCheck(nullptr, v.get(), 3, "set fix vec"), 0);
    EXPECT_EQ(comLinVecParamCheck(nullptr, v.get(), -1, "get var vec"), 0);
    EXPECT_EQ(comLinVecParamCheckDispShift(nullptr, v.get(), 3, 4, "vec file read"), 0);
    EXPECT_EQ(comLinVecParamCheckDispShift(nullptr, v.get(), 2, 3, "vec file read"), 1);
    cap.take();
    EXPECT_EQ(cap.err(),
              "KWILERR: Invalid pos 3 in set fix vec\nKWILERR: Invalid pos -1 in get var vec\n"
              "KWILERR: Invalid pos 4 in vec file read\n");
}

TEST(VecIsNan, ByBitPatternNotInfinity)
{
    const double inf = std::numeric_limits<double>::infinity();
    VecPtr empty(realVec({}));
    VecPtr infs(realVec({inf, -inf, DBL_MAX, -0.0}));
    VecPtr cinf(compVec({{inf, -inf}, {1, 2}}));
    VecPtr lastImag(compVec({{1, 2}, {3, std::nan("")}}));
    EXPECT_EQ(comLinVecIsNan(nullptr, empty.get()), 0);
    EXPECT_EQ(comLinVecIsNan(nullptr, infs.get()), 0);
    EXPECT_EQ(comLinVecIsNan(nullptr, cinf.get()), 0);
    EXPECT_EQ(comLinVecIsNan(nullptr, lastImag.get()), 1);
    // Quiet, signalling, negative and minimal-mantissa NaNs.
    for (uint64_t bits : {0x7ff8000000000000ULL, 0x7ff0000000000001ULL, 0xfff8000000000000ULL,
                          0xfff0000000000001ULL, 0x7fffffffffffffffULL}) {
        VecPtr v(realVec({1, bitsToDouble(bits), 2}));
        EXPECT_EQ(comLinVecIsNan(nullptr, v.get()), 1) << std::hex << bits;
    }
}

TEST(VecTrace, OneTitleLineAndOneValueLine)
{
    VecPtr r(realVec({1.5, -2e-10}));
    VecPtr c(compVec({{1, -1}}));
    VecPtr e(realVec({}));
    FakeHandle off(0), on(1);
    Capture cap;
    comLinVecTrace(&off.h, r.get(), "hidden");
    comLinVecTrace(&on.h, r.get(), "Vector %d", 7);
    comLinVecTrace(nullptr, c.get(), "C");
    comLinVecTrace(nullptr, e.get(), "E");
    cap.take();
    EXPECT_EQ(cap.out(), "KWILTRC: Vector 7\n 1.5000e+00 -2.0000e-10\n"
                         "KWILTRC: C\n (1.0000e+00 -1.0000e+00)\n"
                         "KWILTRC: E\n\n");
}

TEST(VecCalc, AxpyAndScaleRealUseRealPartsOnly)
{
    VecPtr x(realVec({1, 2, 3}));
    VecPtr y(realVec({10, 20, 30}));
    comLinVecCalcVec(nullptr, {2, 100}, x.get(), y.get());
    EXPECT_EQ(lintest::values(y.get()), (std::vector<Cplx>{12, 24, 36}));
    comLinVecCalcScal(nullptr, {-0.5, 100}, y.get());
    EXPECT_EQ(lintest::values(y.get()), (std::vector<Cplx>{-6, -12, -18}));
}

TEST(VecCalc, AxpyAndScaleComplex)
{
    VecPtr x(compVec({{1, 2}, {0, -1}}));
    VecPtr y(compVec({{1, 1}, {2, 0}}));
    comLinVecCalcVec(nullptr, {0, 1}, x.get(), y.get()); // y += i x
    EXPECT_EQ(lintest::values(y.get()), (std::vector<Cplx>{{-1, 2}, {3, 0}}));
    comLinVecCalcScal(nullptr, {1, -1}, y.get()); // y := (1 - i) y
    EXPECT_EQ(lintest::values(y.get()), (std::vector<Cplx>{{1, 3}, {3, -3}}));
}

TEST(VecCalc, TwoTermUpdateAddsTheSecondTermFirst)
{
    // With 2^53 the sum depends on the order: (1 + 2^53) - 2^53 = 0, (1 - 2^53) + 2^53 = 1.
    const double big = 9007199254740992.0;
    VecPtr x(realVec({-big}));
    VecPtr w(realVec({big}));
    VecPtr y(realVec({1}));
    comLinVecCalcVec2(nullptr, {1, 0}, x.get(), {1, 0}, w.get(), y.get());
    EXPECT_EQ(y->realData[0], 0.0);
    VecPtr cx(compVec({{-big, -big}}));
    VecPtr cw(compVec({{big, big}}));
    VecPtr cy(compVec({{1, 1}}));
    comLinVecCalcVec2(nullptr, {1, 0}, cx.get(), {1, 0}, cw.get(), cy.get());
    EXPECT_EQ(lintest::values(cy.get()), (std::vector<Cplx>{{0, 0}}));
    // a = 1, b = -1 and x = w leave y unchanged up to rounding.
    VecPtr v(lintest::randomVec(LIN_COMP, 50, 3));
    VecPtr z(lintest::randomVec(LIN_COMP, 50, 4));
    const auto z0 = lintest::values(z.get());
    comLinVecCalcVec2(nullptr, {1, 0}, v.get(), {-1, 0}, v.get(), z.get());
    const auto z1 = lintest::values(z.get());
    for (int i = 0; i < 50; ++i)
        EXPECT_NEAR(std::abs(z1[i] - z0[i]), 0.0, 4e-16) << i;
}

TEST(VecCalc, DotProductsAndConjugation)
{
    VecPtr i1(compVec({{0, 1}}));
    ComComplex r{7, 7};
    comLinVecCalcDotCompConj(nullptr, i1.get(), i1.get(), &r);
    EXPECT_EQ(r.re, 1.0);
    EXPECT_EQ(r.im, 0.0);
    comLinVecCalcDotCompUnconj(nullptr, i1.get(), i1.get(), &r);
    EXPECT_EQ(r.re, -1.0);
    EXPECT_EQ(r.im, 0.0);
    // The conjugated product conjugates its first argument.
    VecPtr x(compVec({{1, 2}, {3, -1}}));
    VecPtr y(compVec({{2, 1}, {0, 1}}));
    comLinVecCalcDotCompConj(nullptr, x.get(), y.get(), &r); // (1-2i)(2+i) + (3+i)(i)
    EXPECT_EQ(r.re, 4.0 - 1.0);
    EXPECT_EQ(r.im, -3.0 + 3.0);
    comLinVecCalcDotCompConj(nullptr, y.get(), x.get(), &r);
    EXPECT_EQ(r.re, 3.0);
    EXPECT_EQ(r.im, 0.0);
    comLinVecCalcDotCompUnconj(nullptr, x.get(), y.get(), &r); // (1+2i)(2+i) + (3-i)(i)
    EXPECT_EQ(r.re, 0.0 + 1.0);
    EXPECT_EQ(r.im, 5.0 + 3.0);
    VecPtr a(realVec({1, -2, 3}));
    VecPtr b(realVec({4, 5, 0.5}));
    EXPECT_EQ(comLinVecCalcDotReal(nullptr, a.get(), b.get()), -4.5);
    VecPtr e(realVec({}));
    EXPECT_EQ(comLinVecCalcDotReal(nullptr, e.get(), e.get()), 0.0);
}

TEST(VecCalc, NormIsTheBlasNormNotTheRootOfADot)
{
    VecPtr a(realVec({3, -4}));
    EXPECT_EQ(comLinVecCalcNorm2(nullptr, a.get()), 5.0);
    VecPtr c(compVec({{3, 4}, {0, 12}}));
    EXPECT_DOUBLE_EQ(comLinVecCalcNorm2(nullptr, c.get()), 13.0);
    // The square of 1e200 overflows: only a scaled norm is finite.
    VecPtr big(realVec({1e200, 1e200}));
    EXPECT_DOUBLE_EQ(comLinVecCalcNorm2(nullptr, big.get()), std::sqrt(2.0) * 1e200);
    VecPtr cbig(compVec({{1e200, -1e200}}));
    EXPECT_DOUBLE_EQ(comLinVecCalcNorm2(nullptr, cbig.get()), std::sqrt(2.0) * 1e200);
}

// Long vectors are worked on in stretches, one a thread: the stretches must cover every entry
// once, the two-term update must keep its order in each, and folding the stretches' norms must
// neither overflow, underflow nor lose a NaN.
TEST(VecCalc, LongVectorCallsAreRightOnEveryThreadCount)
{
    const int previous = omp_get_max_threads();
    const int n = 100003; // odd, so that no stretch boundary falls on a round index
    for (int threads : {1, 2, 3}) {
        omp_set_num_threads(threads);
        for (int type : {LIN_REAL, LIN_COMP}) {
            SCOPED_TRACE(testing::Message() << threads << " threads, type " << type);
            const int width = type == LIN_REAL ? 1 : 2;
            const long doubles = static_cast<long>(n) * width;
            VecPtr x(comLinVecCreateInit(nullptr, type, n, ComComplex{0.0, 0.0}));
            VecPtr y(comLinVecCreateInit(nullptr, type, n, ComComplex{1.0, 1.0}));
            VecPtr w(comLinVecCreateInit(nullptr, type, n, ComComplex{0x1p53, 0x1p53}));
            double* v = type == LIN_REAL ? x->realData : x->compData;
            double* u = type == LIN_REAL ? y->realData : y->compData;

            // With w = -2^53: y = (1 + 2^53) - 2^53 = 0 only when the second term goes first.
            comLinVecCalcScal(nullptr, ComComplex{-1.0, 0.0}, w.get());
            comLinVecCalcVec2(nullptr, ComComplex{1.0, 0.0}, w.get(), ComComplex{-1.0, 0.0},
                              w.get(), y.get());
            long wrong = 0;
            for (long i = 0; i < doubles; ++i)
                wrong += u[i] != 0.0;
            EXPECT_EQ(wrong, 0);
            for (long i = 0; i < doubles; ++i)
                v[i] = static_cast<double>(i);
            comLinVecCalcVec(nullptr, ComComplex{0.5, 0.0}, x.get(), y.get());
            comLinVecCalcScal(nullptr, ComComplex{4.0, 0.0}, y.get());
            for (long i = 0; i < doubles; ++i)
                wrong += u[i] != 2.0 * static_cast<double>(i);
            EXPECT_EQ(wrong, 0);
            if (type == LIN_REAL) { // sum 2 i^2 over the entries, exact in doubles
                const double m = doubles - 1.0;
                EXPECT_EQ(comLinVecCalcDotReal(nullptr, x.get(), y.get()),
                          m * (m + 1) * (2 * m + 1) / 3);
            }

            long double squares = 0;
            for (long i = 0; i < doubles; ++i) {
                v[i] = 1.0 + static_cast<double>(i % 7); // a miscount of any stretch shows
                squares += static_cast<long double>(v[i]) * v[i];
            }
            const double exact = static_cast<double>(std::sqrt(squares));
            EXPECT_NEAR(comLinVecCalcNorm2(nullptr, x.get()), exact, 1e-14 * exact);

            for (double scale : {1e200, 1e-200}) { // squares overflow, or underflow to nothing
                comLinVecCalcScal(nullptr, ComComplex{scale, 0.0}, x.get());
                EXPECT_NEAR(comLinVecCalcNorm2(nullptr, x.get()) / scale, exact, 1e-13 * exact);
                comLinVecCalcScal(nullptr, ComComplex{1.0 / scale, 0.0}, x.get());
            }

            // An infinity early and a NaN late: the norm is NaN, as the whole vector's would be.
            v[0] = std::numeric_limits<double>::infinity();
            EXPECT_TRUE(std::isinf(comLinVecCalcNorm2(nullptr, x.get())));
            v[doubles - 1] = std::nan("");
            EXPECT_TRUE(std::isnan(comLinVecCalcNorm2(nullptr, x.get())));
        }
    }
    omp_set_num_threads(previous);
}

TEST(VecCalcDeathTest, SizeAndTypeChecks)
{
    VecPtr r2(realVec({1, 2}));
    VecPtr r3(realVec({1, 2, 3}));
    VecPtr c2(compVec({1, 2}));
    VecPtr c3(compVec({1, 2, 3}));
    ComComplex res{};
    const auto die = testing::ExitedWithCode(255);
    EXPECT_EXIT(comLinVecCalcVec(nullptr, {1, 0}, r2.get(), r3.get()), die,
                "^KWILASR: Size unmatch in calculate vector vector\n$");
    EXPECT_EXIT(comLinVecCalcVec2(nullptr, {1, 0}, r2.get(), {1, 0}, r3.get(), r2.get()), die,
                "^KWILASR: Size unmatch in calculate vector vector 2\n$");
    EXPECT_EXIT(comLinVecCalcVec2(nullptr, {1, 0}, r3.get(), {1, 0}, r2.get(), r2.get()), die,
                "^KWILASR: Size unmatch in calculate vector vector 2\n$");
    EXPECT_EXIT(comLinVecCalcDotReal(nullptr, r2.get(), r3.get()), die,
                "^KWILASR: Size unmatch in calculate vector dot real\n$");
    EXPECT_EXIT(comLinVecCalcDotReal(nullptr, r2.get(), c2.get()), die,
                "^KWILASR: Invalid data type in calculate vector dot real\n$");
    EXPECT_EXIT(comLinVecCalcDotReal(nullptr, c2.get(), c2.get()), die,
                "^KWILASR: Invalid data type in calculate vector dot real\n$");
    EXPECT_EXIT(comLinVecCalcDotCompConj(nullptr, c2.get(), c3.get(), &res), die,
                "^KWILASR: Size unmatch in calculate vector dot comp conj\n$");
    EXPECT_EXIT(comLinVecCalcDotCompConj(nullptr, c2.get(), r2.get(), &res), die,
                "^KWILASR: Invalid data type in calculate vector dot comp conj\n$");
    EXPECT_EXIT(comLinVecCalcDotCompUnconj(nullptr, c3.get(), c2.get(), &res), die,
                "^KWILASR: Size unmatch in calculate vector dot comp unconj\n$");
    EXPECT_EXIT(comLinVecCalcDotCompUnconj(nullptr, r2.get(), r2.get(), &res), die,
                "^KWILASR: Invalid data type in calculate vector dot comp unconj\n$");
}

TEST(MacroTest, RunsSilentlyAndReleasesEverything)
{
    const long live = comTestLiveAllocs();
    const long before = comTestAllocCount();
    Capture cap;
    comLinMacroTest(nullptr);
    cap.take();
    EXPECT_EQ(cap.out(), "");
    EXPECT_EQ(cap.err(), "");
    EXPECT_EQ(comTestLiveAllocs(), live);
    const long total = comTestAllocCount() - before;
    EXPECT_EQ(total, 2 * 4 + 2 * 2);
    for (long k = 1; k <= total; ++k) {
        Capture quiet;
        comTestFailAlloc(k);
        comLinMacroTest(nullptr);
        comTestFailAlloc(0);
        quiet.take();
        EXPECT_EQ(quiet.err().rfind("KWILERR: Allocation error\n", 0), 0u) << k;
        EXPECT_EQ(comTestLiveAllocs(), live) << k;
    }
}
