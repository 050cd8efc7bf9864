// The pardiso_ layer on UMFPACK alone: phases, state in pt, iparm outputs, error codes.
#include "platform/pardiso.h"

#include <gtest/gtest.h>

#include <cstring>

#include <umfpack.h>

#include "direct/direct_support.h"
#include "support/support.h"

namespace {

using directtest::Cplx;
using directtest::Csr;
using directtest::Layer;

template <class S> class PardisoLayer : public testing::Test {
};
using Scalars = testing::Types<double, Cplx>;
TYPED_TEST_SUITE(PardisoLayer, Scalars, directtest::ScalarNames);

TYPED_TEST(PardisoLayer, SolvesSystemThatNeedsRowExchanges)
{
    using S = TypeParam;
    Csr<S> m = directtest::saddlePoint<S>(12);
    const Csr<S> m0 = m;
    const std::vector<S> b = directtest::rhs<S>(m.n);
    const long live = comTestLiveAllocs();
    {
        Layer<S> l(m);
        std::vector<S> x;
        ASSERT_EQ(l.solve(b, x), 0);
        EXPECT_LT(directtest::relResidual(m, x, b), 1e-12);
        EXPECT_EQ(l.call(-1), 0);
        EXPECT_EQ(l.pt[0], nullptr);
    }
    EXPECT_EQ(comTestLiveAllocs(), live);
    EXPECT_EQ(m.ia, m0.ia);
    EXPECT_EQ(m.ja, m0.ja);
    EXPECT_EQ(m.a, m0.a);
}

TEST(PardisoLayerSmall, RealSystemIsSolvedNotItsTranspose)
{
    // Zero diagonal throughout the first two rows; A^T x = b has another solution.
    Csr<double> m = directtest::fromTriplets<double>(
        3, {{0, 1, 2.0}, {1, 0, 1.0}, {1, 2, 3.0}, {2, 1, 4.0}, {2, 2, 5.0}, {1, 1, 0.0}});
    Layer<double> l(m);
    std::vector<double> x;
    ASSERT_EQ(l.solve({4.0, 10.0, 23.0}, x), 0); // A (1, 2, 3)
    EXPECT_NEAR(x[0], 1.0, 1e-14);
    EXPECT_NEAR(x[1], 2.0, 1e-14);
    EXPECT_NEAR(x[2], 3.0, 1e-14);
}

TEST(PardisoLayerSmall, ComplexSystemIsSolvedWithoutConjugation)
{
    Csr<Cplx> m = directtest::fromTriplets<Cplx>(3, {{0, 1, Cplx(1, 2)},
                                                     {1, 0, Cplx(3, -1)},
                                                     {1, 2, Cplx(0, 2)},
                                                     {2, 1, Cplx(1, 0)},
                                                     {2, 2, Cplx(4, 1)}});
    const std::vector<Cplx> want = {Cplx(1, 1), Cplx(2, 0), Cplx(0, -1)};
    const std::vector<Cplx> b = directtest::multiply(m, want);
    Layer<Cplx> l(m);
    std::vector<Cplx> x;
    ASSERT_EQ(l.solve(b, x), 0);
    for (int i = 0; i < 3; ++i)
        EXPECT_LT(std::abs(x[i] - want[i]), 1e-14) << i;
}

TYPED_TEST(PardisoLayer, CombinedPhasesGiveTheSameSolution)
{
    using S = TypeParam;
    Csr<S> m = directtest::saddlePoint<S>(8);
    std::vector<S> b = directtest::rhs<S>(m.n), x1, x2(m.n), x3(m.n);
    Layer<S> l1(m), l2(m), l3(m);
    ASSERT_EQ(l1.solve(b, x1), 0);
    EXPECT_EQ(l2.call(13, b.data(), x2.data()), 0);
    EXPECT_EQ(l3.call(12), 0);
    EXPECT_EQ(l3.call(33, b.data(), x3.data()), 0);
    EXPECT_EQ(x1, x2);
    EXPECT_EQ(x1, x3);
    // Phase 23 refactorises and solves on the same analysis.
    EXPECT_EQ(l3.call(23, b.data(), x3.data()), 0);
    EXPECT_EQ(x1, x3);
}

TYPED_TEST(PardisoLayer, SeveralRightHandSidesAndZeroBasedIndices)
{
    using S = TypeParam;
    Csr<S> m = directtest::saddlePoint<S>(6);
    std::vector<S> b = directtest::rhs<S>(2 * m.n), x;
    Layer<S> l(m);
    l.nrhs = 2;
    ASSERT_EQ(l.solve(b, x), 0);
    for (int k = 0; k < 2; ++k) {
        const std::vector<S> bk(b.begin() + k * m.n, b.begin() + (k + 1) * m.n);
        const std::vector<S> xk(x.begin() + k * m.n, x.begin() + (k + 1) * m.n);
        EXPECT_LT(directtest::relResidual(m, xk, bk), 1e-12) << k;
    }

    Layer<S> z(m);
    z.iparm[34] = 1;
    for (int v : m.ia)
        z.iaOwn.push_back(v - 1);
    for (int v : m.ja)
        z.jaOwn.push_back(v - 1);
    std::vector<S> b0(b.begin(), b.begin() + m.n), x0;
    ASSERT_EQ(z.solve(b0, x0), 0);
    EXPECT_EQ(x0, std::vector<S>(x.begin(), x.begin() + m.n));
}

TYPED_TEST(PardisoLayer, ReportsMemoryFactorSizesAndRefinementSteps)
{
    using S = TypeParam;
    Csr<S> m = directtest::saddlePoint<S>(15);
    std::vector<S> b = directtest::rhs<S>(m.n), x(m.n);
    Layer<S> l(m);
    l.iparm[13] = l.iparm[6] = -7;
    ASSERT_EQ(l.call(11), 0);
    const long indexKb = (sizeof(int) * (m.n + 1L + m.nnz())) / 1024;
    EXPECT_GT(l.iparm[14], indexKb);
    EXPECT_GT(l.iparm[15], indexKb);
    EXPECT_GT(l.iparm[16], 0);
    EXPECT_GE(l.iparm[17], m.n);
    EXPECT_GE(l.iparm[18], 0);
    EXPECT_EQ(l.iparm[13], -7);
    const int nzEstimate = l.iparm[17], memEstimate = l.iparm[16];
    ASSERT_EQ(l.call(22), 0);
    EXPECT_EQ(l.iparm[13], 0);
    EXPECT_GE(l.iparm[17], m.n);
    EXPECT_LE(l.iparm[17], nzEstimate); // the estimate is an upper bound
    EXPECT_LE(l.iparm[16], memEstimate);
    EXPECT_GT(l.iparm[16], 0);
    EXPECT_EQ(l.iparm[6], -7);
    ASSERT_EQ(l.call(33, b.data(), x.data()), 0);
    EXPECT_GE(l.iparm[6], 0);
    EXPECT_LE(l.iparm[6], 2);

    l.iparm[7] = 0; // no refinement
    ASSERT_EQ(l.call(33, b.data(), x.data()), 0);
    EXPECT_EQ(l.iparm[6], 0);
    EXPECT_LT(directtest::relResidual(m, x, b), 1e-10);
}

TYPED_TEST(PardisoLayer, PhasesOutOfOrderAreInconsistent)
{
    using S = TypeParam;
    Csr<S> m = directtest::saddlePoint<S>(5);
    std::vector<S> b = directtest::rhs<S>(m.n), x(m.n);
    Layer<S> l(m);
    EXPECT_EQ(l.call(22), -1); // zeroed pt
    EXPECT_EQ(l.call(33, b.data(), x.data()), -1);
    EXPECT_EQ(l.call(23, b.data(), x.data()), -1);
    EXPECT_EQ(l.call(0), -1);
    EXPECT_EQ(l.pt[0], nullptr);
    ASSERT_EQ(l.call(11), 0);
    EXPECT_EQ(l.call(33, b.data(), x.data()), -1); // no factors yet
    for (int phase : {1, 2, 21, 32, 44, 331, -2, 10, 34})
        EXPECT_EQ(l.call(phase), -1) << phase;
    ASSERT_EQ(l.call(22), 0);
    EXPECT_EQ(l.call(0), 0); // drops the factors, keeps the analysis
    EXPECT_EQ(l.call(33, b.data(), x.data()), -1);
    ASSERT_EQ(l.call(22), 0);
    ASSERT_EQ(l.call(33, b.data(), x.data()), 0);
    EXPECT_LT(directtest::relResidual(m, x, b), 1e-12);
}

TYPED_TEST(PardisoLayer, ReleaseTwiceAndReanalysisLeakNothing)
{
    using S = TypeParam;
    Csr<S> m = directtest::saddlePoint<S>(5);
    Csr<S> m2 = directtest::saddlePoint<S>(5);
    for (S& v : m2.a)
        v *= S(3);
    std::vector<S> b = directtest::rhs<S>(m.n), x(m.n);
    const long live = comTestLiveAllocs();
    {
        Layer<S> l(m);
        EXPECT_EQ(l.call(-1), 0); // nothing to release yet
        ASSERT_EQ(l.call(12), 0);
        // A new analysis on the same pt replaces the old state.
        Layer<S> l2(m2);
        std::memcpy(l2.pt, l.pt, sizeof l.pt);
        l.pt[0] = nullptr;
        ASSERT_EQ(l2.call(11), 0);
        ASSERT_EQ(l2.call(22), 0);
        ASSERT_EQ(l2.call(33, b.data(), x.data()), 0);
        EXPECT_LT(directtest::relResidual(m2, x, b), 1e-12);
        EXPECT_EQ(l2.call(-1), 0);
        EXPECT_EQ(l2.pt[0], nullptr);
        EXPECT_EQ(l2.call(-1), 0);
        EXPECT_EQ(l2.pt[0], nullptr);
        EXPECT_EQ(l2.call(22), -1);
    }
    EXPECT_EQ(comTestLiveAllocs(), live);
}

TYPED_TEST(PardisoLayer, RepeatedSolvesAllocateNothing)
{
    using S = TypeParam;
    Csr<S> m = directtest::saddlePoint<S>(5);
    std::vector<S> b = directtest::rhs<S>(m.n), x(m.n);
    Layer<S> l(m);
    ASSERT_EQ(l.call(12), 0);
    ASSERT_EQ(l.call(33, b.data(), x.data()), 0);
    const long count = comTestAllocCount();
    ASSERT_EQ(l.call(33, b.data(), x.data()), 0);
    ASSERT_EQ(l.call(22), 0);
    ASSERT_EQ(l.call(33, b.data(), x.data()), 0);
    EXPECT_EQ(comTestAllocCount(), count);
}

TYPED_TEST(PardisoLayer, SingularMatrixFailsInFactorisation)
{
    using S = TypeParam;
    const S one = directtest::scalar<S>(1.0, 0.5);
    // Structurally singular: row 2 is empty. Numerically: row 2 is twice row 0.
    std::vector<Csr<S>> cases = {
        directtest::fromTriplets<S>(3, {{0, 0, one}, {0, 1, one}, {1, 1, one}}),
        directtest::fromTriplets<S>(3, {{0, 0, one},
                                        {0, 2, S(2) * one},
                                        {1, 1, one},
                                        {2, 0, S(2) * one},
                                        {2, 2, S(4) * one}})};
    const long live = comTestLiveAllocs();
    for (Csr<S>& m : cases) {
        Layer<S> l(m);
        std::vector<S> b(3, one), x(3);
        ASSERT_EQ(l.call(11), 0);
        EXPECT_EQ(l.call(22), -4);
        EXPECT_EQ(l.call(33, b.data(), x.data()), -1);
        EXPECT_EQ(l.call(-1), 0);
    }
    EXPECT_EQ(comTestLiveAllocs(), live);
}

TYPED_TEST(PardisoLayer, InvalidInputIsInconsistentAndKeepsNoState)
{
    using S = TypeParam;
    const long live = comTestLiveAllocs();
    Csr<S> m = directtest::saddlePoint<S>(3);
    const int n = m.n;
    struct Case {
        const char* what;
        void (*change)(Layer<S>&);
    };
    const Case cases[] = {
        {"n = 0", [](Layer<S>& l) { l.n = 0; }},
        {"n < 0", [](Layer<S>& l) { l.n = -4; }},
        {"mtype 2", [](Layer<S>& l) { l.mtype = 2; }},
        {"mtype -2", [](Layer<S>& l) { l.mtype = -2; }},
        {"mtype 6", [](Layer<S>& l) { l.mtype = 6; }},
        {"maxfct 0", [](Layer<S>& l) { l.maxfct = 0; }},
        {"mnum 2", [](Layer<S>& l) { l.mnum = 2; }},
        {"solution in b", [](Layer<S>& l) { l.iparm[5] = 1; }},
        {"transposed solve", [](Layer<S>& l) { l.iparm[11] = 2; }},
        {"single precision", [](Layer<S>& l) { l.iparm[27] = 1; }},
        {"ia[0] = 0", [](Layer<S>& l) { l.iaOwn[0] = 0; }},
        {"ia decreasing", [](Layer<S>& l) { std::swap(l.iaOwn[1], l.iaOwn[2]); }},
        {"column 0", [](Layer<S>& l) { l.jaOwn[0] = 0; }},
        {"column n+1", [](Layer<S>& l) { l.jaOwn.back() = l.n + 1; }},
        {"columns unsorted", [](Layer<S>& l) { std::swap(l.jaOwn[0], l.jaOwn[1]); }},
        {"duplicate column", [](Layer<S>& l) { l.jaOwn[1] = l.jaOwn[0]; }},
    };
    for (const Case& c : cases) {
        Layer<S> l(m);
        l.iaOwn = m.ia;
        l.jaOwn = m.ja;
        c.change(l);
        EXPECT_EQ(l.call(11), -1) << c.what;
        EXPECT_EQ(l.pt[0], nullptr) << c.what;
    }
    // Missing arrays and counts in later phases.
    Layer<S> l(m);
    std::vector<S> b(n), x(n);
    ASSERT_EQ(l.call(11), 0);
    int phase = 22, error = 0;
    pardiso_(l.pt, &l.maxfct, &l.mnum, &l.mtype, &phase, &l.n, nullptr, l.ia(), l.ja(), &l.perm,
             &l.nrhs, l.iparm, &l.msglvl, nullptr, nullptr, &error);
    EXPECT_EQ(error, -1);
    ASSERT_EQ(l.call(22), 0);
    EXPECT_EQ(l.call(33, nullptr, x.data()), -1);
    EXPECT_EQ(l.call(33, b.data(), nullptr), -1);
    l.nrhs = 0;
    EXPECT_EQ(l.call(33, b.data(), x.data()), -1);
    l.nrhs = 1;
    l.n = n + 1; // another size than analysed
    EXPECT_EQ(l.call(33, b.data(), x.data()), -1);
    l.n = n;
    l.mtype = l.mtype == 11 ? 13 : 11; // another data type than analysed
    EXPECT_EQ(l.call(22), -1);
    l.mtype = l.mtype == 11 ? 13 : 11;
    EXPECT_EQ(l.call(33, b.data(), x.data()), 0);
    pardiso_(nullptr, &l.maxfct, &l.mnum, &l.mtype, &phase, &l.n, m.a.data(), l.ia(), l.ja(),
             &l.perm, &l.nrhs, l.iparm, &l.msglvl, b.data(), x.data(), &error);
    EXPECT_EQ(error, -1);
    pardiso_(l.pt, &l.maxfct, &l.mnum, &l.mtype, &phase, &l.n, m.a.data(), l.ia(), l.ja(), &l.perm,
             &l.nrhs, l.iparm, &l.msglvl, b.data(), x.data(), nullptr);
    EXPECT_EQ(l.call(-1), 0);
    EXPECT_EQ(comTestLiveAllocs(), live);
}

TYPED_TEST(PardisoLayer, DefaultsAndOtherOrderingSolveToo)
{
    using S = TypeParam;
    Csr<S> m = directtest::saddlePoint<S>(10);
    const std::vector<S> b = directtest::rhs<S>(m.n);
    for (int variant = 0; variant < 3; ++variant) {
        Layer<S> l(m);
        if (variant == 0)
            std::fill(l.iparm, l.iparm + 64, 0); // all defaults
        if (variant == 1)
            l.iparm[1] = 0; // UMFPACK's own ordering
        if (variant == 2)
            l.iparm[10] = 0; // no scaling
        std::vector<S> x;
        ASSERT_EQ(l.solve(b, x), 0) << variant;
        EXPECT_LT(directtest::relResidual(m, x, b), 1e-12) << variant;
    }
}

TYPED_TEST(PardisoLayer, MessageLevelOnePrintsStatistics)
{
    using S = TypeParam;
    Csr<S> m = directtest::saddlePoint<S>(12);
    const std::vector<S> b = directtest::rhs<S>(m.n);
    const char* entry = directtest::dataTypeOf<S>() == LIN_REAL
                            ? "matrix entry defined as:          double\n"
                            : "matrix entry defined as:          double complex\n";
    for (int msglvl : {0, 1}) {
        Layer<S> l(m);
        l.msglvl = msglvl;
        std::vector<S> x;
        kwiltest::Capture cap;
        ASSERT_EQ(l.solve(b, x), 0);
        cap.take();
        if (msglvl == 0) {
            EXPECT_EQ(cap.out(), "");
        } else {
            EXPECT_NE(cap.out().find(entry), std::string::npos) << cap.out();
            EXPECT_NE(cap.out().find("ordering used:                    metis"), std::string::npos);
            EXPECT_NE(cap.out().find("iterative refinement steps taken:"), std::string::npos);
        }
        EXPECT_EQ(cap.err(), "");
    }
}

TYPED_TEST(PardisoLayer, EveryAllocationFailureReturnsNotEnoughMemory)
{
    using S = TypeParam;
    Csr<S> m = directtest::saddlePoint<S>(4);
    const std::vector<S> b = directtest::rhs<S>(m.n);
    std::vector<int> codes;
    std::vector<bool> stateGone;
    const long points = kwiltest::sweepAllocFailures([&] {
        Layer<S> l(m);
        std::vector<S> x;
        const int e = l.solve(b, x);
        if (e != 0) {
            codes.push_back(e);
            stateGone.push_back(l.pt[0] == nullptr);
        }
        return e == 0 && directtest::relResidual(m, x, b) < 1e-12;
    });
    // The state record, the two index copies and the two solve workspaces.
    EXPECT_EQ(points, 5);
    ASSERT_EQ(codes.size(), 5u);
    for (size_t k = 0; k < codes.size(); ++k) {
        EXPECT_EQ(codes[k], -2) << k;
        EXPECT_EQ(stateGone[k], k < 3) << k; // a failed analysis keeps no state
    }
}

// Each UMFPACK outcome reaches the caller as the code of the same meaning.
TEST(PardisoLayerSmall, UmfpackStatusesMapToTheDocumentedCodes)
{
    const struct {
        int status;
        int code;
    } cases[] = {
        {UMFPACK_OK, 0},
        {UMFPACK_ERROR_out_of_memory, -2},
        {UMFPACK_ERROR_ordering_failed, -3}, // "reordering problem"
        {UMFPACK_WARNING_singular_matrix, -4},
        {UMFPACK_ERROR_n_nonpositive, -1},
        {UMFPACK_ERROR_invalid_matrix, -1},
        {UMFPACK_ERROR_argument_missing, -1},
        {UMFPACK_ERROR_invalid_system, -1},
        {UMFPACK_ERROR_invalid_Symbolic_object, -1},
        {UMFPACK_ERROR_invalid_Numeric_object, -1},
        {UMFPACK_ERROR_different_pattern, -1},
        {UMFPACK_ERROR_internal_error, -5},
        {UMFPACK_ERROR_file_IO, -5},
        {UMFPACK_ERROR_invalid_permutation, -5},
    };
    for (const auto& c : cases)
        EXPECT_EQ(pardisoErrorOfUmfpack(c.status), c.code) << c.status;
}

} // namespace
