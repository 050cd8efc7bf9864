// Planned triangular solves on one and several threads: the same bits as the sparse BLAS solve on
// every pattern, threads only where they pay, and the fallbacks.
#include <gtest/gtest.h>
#include <omp.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "lin_util.h"
#include "platform/sparse_blas.h"

using lintest::Entry;
using lintest::MatPtr;
using lintest::VecPtr;

namespace {

// One triangle (diagonal included) of the upwind stencil on an nx x ny x nz grid numbered line
// by line, with random off-diagonal values and a dominant diagonal, as CSR.
ComLinMat* gridTriangle(int dataType, int nx, int ny, int nz, bool upper, unsigned seed)
{
    std::mt19937 gen(seed);
    std::uniform_real_distribution<double> u(-1.0, -0.1);
    const int n = nx * ny * nz;
    const int strides[3] = {1, nx, nx * ny};
    std::vector<Entry> e;
    for (int z = 0; z < nz; ++z) {
        for (int y = 0; y < ny; ++y) {
            for (int x = 0; x < nx; ++x) {
                const int i = x + nx * (y + ny * z);
                const int at[3] = {x, y, z};
                const int len[3] = {nx, ny, nz};
                for (int d = 0; d < 3; ++d) {
                    const bool has = upper ? at[d] + 1 < len[d] : at[d] > 0;
                    if (has) {
                        const int j = upper ? i + strides[d] : i - strides[d];
                        e.push_back({i + 1, j + 1, {u(gen), dataType == LIN_REAL ? 0.0 : u(gen)}});
                    }
                }
                e.push_back({i + 1, i + 1, {4.0 + u(gen), dataType == LIN_REAL ? 0.0 : 0.5}});
            }
        }
    }
    ComLinMat* m = lintest::makeCoo(dataType, n, e);
    EXPECT_EQ(comLinMatChangeType(nullptr, m, MAT_CSR), 1);
    return m;
}

// A random matrix of order n with a band of half-width band and a few far entries per row.
ComLinMat* bandedRandom(int dataType, int n, int band, unsigned seed)
{
    std::mt19937 gen(seed);
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    std::uniform_int_distribution<int> any(1, n);
    std::vector<Entry> e;
    for (int i = 1; i <= n; ++i) {
        std::vector<int> cols = {i};
        for (int k = 0; k < 3; ++k) {
            const int c = i + std::uniform_int_distribution<int>(-band, band)(gen);
            if (c >= 1 && c <= n)
                cols.push_back(c);
        }
        if (i % 7 == 0)
            cols.push_back(any(gen));
        std::sort(cols.begin(), cols.end());
        cols.erase(std::unique(cols.begin(), cols.end()), cols.end());
        for (int c : cols) {
            const double d = c == i ? 8.0 : 0.0;
            e.push_back({i, c, {d + u(gen), dataType == LIN_REAL ? 0.0 : u(gen)}});
        }
    }
    ComLinMat* m = lintest::makeCoo(dataType, n, e);
    EXPECT_EQ(comLinMatChangeType(nullptr, m, MAT_CSR), 1);
    return m;
}

// The same bits in every double, NaNs aside: which operand's NaN an operation passes on, and
// with it the sign and payload, follows the compiler's order of the operands.
bool sameBits(const ComLinVec* a, const ComLinVec* b)
{
    const long n = static_cast<long>(a->size) * (a->dataType == LIN_REAL ? 1 : 2);
    const double* da = a->dataType == LIN_REAL ? a->realData : a->compData;
    const double* db = b->dataType == LIN_REAL ? b->realData : b->compData;
    for (long k = 0; k < n; ++k) {
        if (std::memcmp(da + k, db + k, sizeof(double)) != 0 &&
            !(std::isnan(da[k]) && std::isnan(db[k])))
            return false;
    }
    return true;
}

// Solves with the plan many times (the plan switches between its threaded and one-thread ways
// on its own) and in place, and checks every result against the one-thread solve bit for bit.
void expectSameAsOneThread(const ComLinMat* a, int upper, PlatformTrsvPlan* plan)
{
    ASSERT_NE(plan, nullptr);
    VecPtr x(lintest::randomVec(a->dataType, a->size, 7));
    VecPtr want(comLinVecCreate(nullptr, a->dataType, a->size));
    VecPtr got(comLinVecCreate(nullptr, a->dataType, a->size));
    comLinMatTriSolv(nullptr, upper, a, 0, x.get(), want.get());
    for (int call = 0; call < 40; ++call) {
        comLinVecInit(nullptr, got.get(), ComComplex{0.0, 0.0});
        comLinMatTriSolvPlanned(nullptr, upper, a, plan, x.get(), got.get());
        ASSERT_TRUE(sameBits(got.get(), want.get())) << "call " << call;
    }
    comLinVecCopy(nullptr, x.get(), got.get());
    comLinMatTriSolvPlanned(nullptr, upper, a, plan, got.get(), got.get());
    EXPECT_TRUE(sameBits(got.get(), want.get())) << "in place";
}

// Gives the plan its per-thread copies of A's values.
void pack(PlatformTrsvPlan* plan, const ComLinMat* a)
{
    const int ok =
        a->dataType == LIN_REAL
            ? platform_dcsrtrsv_plan_pack(plan, a->realData, a->row, a->col)
            : platform_zcsrtrsv_plan_pack(
                  plan, reinterpret_cast<const PlatformComplex16*>(a->compData), a->row, a->col);
    EXPECT_EQ(ok, 1);
}

struct ForcePlans {
    ForcePlans() { platformTestForcePlans(1); }
    ~ForcePlans() { platformTestForcePlans(0); }
};

} // namespace

TEST(TriSolvPlan, GridTrianglesGiveTheOneThreadBitsOnOneToThreeThreads)
{
    struct Grid {
        int nx, ny, nz;
    };
    for (const Grid g : {Grid{300, 300, 1}, Grid{40, 40, 40}, Grid{257, 3, 1}}) {
        for (int dataType : {LIN_REAL, LIN_COMP}) {
            for (int upper : {0, 1}) {
                MatPtr a(gridTriangle(dataType, g.nx, g.ny, g.nz, upper != 0, 11));
                for (int threads : {1, 2, 3}) {
                    SCOPED_TRACE(testing::Message()
                                 << g.nx << "x" << g.ny << "x" << g.nz << " type " << dataType
                                 << " upper " << upper << " threads " << threads);
                    ForcePlans force; // the small grid would not pay on its own
                    PlatformTrsvPlan* plan =
                        platform_csrtrsv_plan(upper ? "u" : "l", a->size, a->row, a->col, threads);
                    EXPECT_EQ(platform_csrtrsv_plan_threads(plan), threads);
                    expectSameAsOneThread(a.get(), upper, plan);
                    pack(plan, a.get()); // each thread's rows in storage of its own
                    expectSameAsOneThread(a.get(), upper, plan);
                    pack(plan, a.get()); // packing again replaces the copies
                    expectSameAsOneThread(a.get(), upper, plan);
                    platform_csrtrsv_plan_free(plan);
                }
            }
        }
    }
}

TEST(TriSolvPlan, WaitsInEveryDirectionGiveTheOneThreadBits)
{
    // Random far entries make rows wait for other threads anywhere, in both directions.
    ForcePlans force;
    for (unsigned seed = 1; seed <= 6; ++seed) {
        const int dataType = seed % 2 == 0 ? LIN_COMP : LIN_REAL;
        MatPtr a(bandedRandom(dataType, 3000 + 37 * static_cast<int>(seed), 40, seed));
        for (int upper : {0, 1}) {
            for (int threads : {1, 2, 3, 4}) {
                SCOPED_TRACE(testing::Message()
                             << "seed " << seed << " upper " << upper << " threads " << threads);
                PlatformTrsvPlan* plan =
                    platform_csrtrsv_plan(upper ? "u" : "l", a->size, a->row, a->col, threads);
                expectSameAsOneThread(a.get(), upper, plan);
                pack(plan, a.get());
                expectSameAsOneThread(a.get(), upper, plan);
                platform_csrtrsv_plan_free(plan);
            }
        }
    }
}

// Memory short while a plan, its schedule or its copies are made: no plan, a plan of one thread,
// or a plan that reads the matrix itself; either way nothing leaks (sanitizer build) and the
// solves give the one-thread bits.
TEST(TriSolvPlan, EveryFailedAllocationLeavesAWorkingSolve)
{
    MatPtr a(gridTriangle(LIN_COMP, 300, 300, 1, true, 4)); // pays without forcing
    int noPlan = 0, noSchedule = 0, noCopy = 0, n = 1;
    for (;; ++n) {
        SCOPED_TRACE(testing::Message() << "allocation " << n);
        platformTestFailPlanAlloc(n);
        PlatformTrsvPlan* plan = platform_csrtrsv_plan("u", a->size, a->row, a->col, 2);
        if (plan == nullptr) {
            ++noPlan;
            continue;
        }
        const int packed = platform_zcsrtrsv_plan_pack(
            plan, reinterpret_cast<const PlatformComplex16*>(a->compData), a->row, a->col);
        platformTestFailPlanAlloc(0);
        const bool threaded = platform_csrtrsv_plan_threads(plan) == 2;
        noSchedule += !threaded;
        noCopy += packed == 0;
        expectSameAsOneThread(a.get(), 1, plan);
        platform_csrtrsv_plan_free(plan);
        if (threaded && packed == 1)
            break; // the failure point lies beyond every allocation
    }
    platformTestFailPlanAlloc(0);
    // Plan: the record, then for the schedule the pieces, the steps' owners, the waits and the
    // play-through; copies: the pivots' reciprocals, the rows' splits, the owners, the per-thread
    // records and four arrays for each of two threads.
    EXPECT_EQ(noPlan, 1);
    EXPECT_EQ(noSchedule, 4);
    EXPECT_EQ(noCopy, 12);
}

TEST(TriSolvPlan, PlansOnlyWhereThreadsPay)
{
    // A large grid pays; a chain of dependent rows, a small matrix and one thread do not: their
    // plans are of one thread.
    const auto threadsOf = [](const ComLinMat* a, int threads) {
        PlatformTrsvPlan* plan = platform_csrtrsv_plan("l", a->size, a->row, a->col, threads);
        const int got = plan != nullptr ? platform_csrtrsv_plan_threads(plan) : 0;
        platform_csrtrsv_plan_free(plan);
        return got;
    };
    MatPtr grid(gridTriangle(LIN_REAL, 400, 400, 1, false, 3));
    EXPECT_EQ(threadsOf(grid.get(), 2), 2);
    EXPECT_EQ(threadsOf(grid.get(), 1), 1);
    MatPtr chain(gridTriangle(LIN_REAL, 200000, 1, 1, false, 3)); // bidiagonal
    EXPECT_EQ(threadsOf(chain.get(), 2), 1);
    MatPtr small(gridTriangle(LIN_REAL, 60, 60, 1, false, 3));
    EXPECT_EQ(threadsOf(small.get(), 2), 1);

    // The library's own entry follows the kernel thread count.
    omp_set_num_threads(1);
    PlatformTrsvPlan* plan = comLinMatTriSolvPlan(nullptr, 0, grid.get());
    ASSERT_NE(plan, nullptr);
    EXPECT_EQ(platform_csrtrsv_plan_threads(plan), 1);
    comLinMatTriSolvPlanDelete(nullptr, plan);
    omp_set_num_threads(2);
    plan = comLinMatTriSolvPlan(nullptr, 0, grid.get());
    ASSERT_NE(plan, nullptr);
    EXPECT_EQ(platform_csrtrsv_plan_threads(plan), omp_get_num_procs() >= 2 ? 2 : 1);
    comLinMatTriSolvPlanDelete(nullptr, plan);
    comLinMatTriSolvPlanDelete(nullptr, nullptr);
}

TEST(TriSolvPlan, NullPlanAndNestedCallsSolveOnOneThread)
{
    MatPtr a(gridTriangle(LIN_COMP, 300, 300, 1, true, 5));
    VecPtr x(lintest::randomVec(LIN_COMP, a->size, 9));
    VecPtr want(comLinVecCreate(nullptr, LIN_COMP, a->size));
    VecPtr got(comLinVecCreate(nullptr, LIN_COMP, a->size));
    comLinMatTriSolv(nullptr, 1, a.get(), 0, x.get(), want.get());
    comLinMatTriSolvPlanned(nullptr, 1, a.get(), nullptr, x.get(), got.get());
    EXPECT_TRUE(sameBits(got.get(), want.get()));

    // Inside a parallel region the inner region gets one thread: the plan's pieces are then all
    // solved, and the threads' copies all made, by that one thread instead of waiting for threads
    // that never come.
    PlatformTrsvPlan* plan = platform_csrtrsv_plan("u", a->size, a->row, a->col, 2);
    ASSERT_NE(plan, nullptr);
    const int nested = omp_get_max_active_levels();
    omp_set_max_active_levels(1);
    // Packed there too: the one thread copies the rows of both.
#pragma omp parallel num_threads(2)
    {
#pragma omp single
        pack(plan, a.get());
    }
    for (int call = 0; call < 4; ++call) {
        comLinVecInit(nullptr, got.get(), ComComplex{0.0, 0.0});
#pragma omp parallel num_threads(2)
        {
#pragma omp single
            comLinMatTriSolvPlanned(nullptr, 1, a.get(), plan, x.get(), got.get());
        }
        EXPECT_TRUE(sameBits(got.get(), want.get())) << "call " << call;
    }
    omp_set_max_active_levels(nested);
    expectSameAsOneThread(a.get(), 1, plan); // outside, the threads read those copies
    platform_csrtrsv_plan_free(plan);
}

TEST(TriSolvPlan, PivotsOfEveryKindGiveTheSparseBlasBits)
{
    // Rows without a stored pivot (the sparse BLAS divides by zero), a zero pivot, rows that also
    // store entries of the other triangle, a row of the pivot alone, and a last row that stores
    // nothing: the reciprocals the plan takes once, apart or in the threads' copies, are those
    // each row would take.
    for (int dataType : {LIN_REAL, LIN_COMP}) {
        for (int upper : {0, 1}) {
            SCOPED_TRACE(testing::Message() << "type " << dataType << " upper " << upper);
            // The solve's last rows lack the pivot or hold a zero one, so that the infinities
            // they make reach few rows.
            const int n = 40;
            const int missing = upper ? 3 : n - 3, zero = upper ? 5 : n - 5;
            std::vector<Entry> e;
            for (int i = 1; i < n; ++i) {
                const double im = dataType == LIN_REAL ? 0.0 : 0.25;
                if (i != missing)
                    e.push_back({i, i, {i == zero ? 0.0 : 2.0 + 0.1 * i, im}});
                if (i % 3 != 0) {
                    e.push_back({i, i > 1 ? i - 1 : n, {-0.3, im}});
                    e.push_back({i, i < n - 1 ? i + 1 : 1, {-0.4, -im}});
                }
                if (i % 5 == 0 && i > 3 && i + 3 <= n) {
                    e.push_back({i, i - 3, {0.2, im}});
                    e.push_back({i, i + 3, {0.1, im}});
                }
            }
            MatPtr a(lintest::makeCoo(dataType, n, e));
            ASSERT_EQ(comLinMatChangeType(nullptr, a.get(), MAT_CSR), 1);
            ForcePlans force; // so small a triangle would not get threads on its own
            for (int threads : {1, 2, 3}) {
                SCOPED_TRACE(testing::Message() << "threads " << threads);
                PlatformTrsvPlan* plan =
                    platform_csrtrsv_plan(upper ? "u" : "l", a->size, a->row, a->col, threads);
                EXPECT_EQ(platform_csrtrsv_plan_threads(plan), threads);
                pack(plan, a.get());
                expectSameAsOneThread(a.get(), upper, plan);
                platform_csrtrsv_plan_free(plan);
            }
        }
    }
}

// Runs of rows that hold only their pivot, as in the factors of a sparse circuit matrix, solved a
// run at a time: runs of every length from one on, at both ends of the solve and between rows
// whose near and far terms read the runs' last rows. Also when memory is short for the runs.
TEST(TriSolvPlan, RunsOfBareRowsGiveTheSparseBlasBits)
{
    const int n = 400;
    // Bare rows in runs of 1, 2, ..., 16 rows, each run followed by one or two rows with terms:
    // four rows in five lie in runs of four or more, as in the factors the runs are made for.
    std::vector<bool> bare(n + 1, false);
    for (int i = 1, len = 1; i <= n; len = len % 16 + 1) {
        for (int k = 0; k < len && i <= n; ++k)
            bare[i++] = true;
        i += 1 + len % 2;
    }
    for (int i = 1; i <= 6; ++i) // both ends of either solve lie in runs
        bare[i] = bare[n + 1 - i] = true;
    for (int dataType : {LIN_REAL, LIN_COMP}) {
        const double im = dataType == LIN_REAL ? 0.0 : 0.5;
        std::vector<Entry> e;
        for (int i = 1; i <= n; ++i) {
            e.push_back({i, i, {3.0 + 0.01 * i, im}});
            if (bare[i])
                continue;
            // Near and far terms, the near ones alone or the far ones alone.
            const std::vector<int> near = {i - 1, i + 1}, far = {i - 5, i + 5, i - 17, i + 17};
            std::vector<int> cols;
            if (i % 3 != 2)
                cols.insert(cols.end(), near.begin(), near.end());
            if (i % 3 != 1)
                cols.insert(cols.end(), far.begin(), far.end());
            for (int c : cols) {
                if (c >= 1 && c <= n)
                    e.push_back({i, c, {0.3 - 0.002 * c, -im}});
            }
        }
        MatPtr a(lintest::makeCoo(dataType, n, e));
        ASSERT_EQ(comLinMatChangeType(nullptr, a.get(), MAT_CSR), 1);
        for (int upper : {0, 1}) {
            for (int threads : {1, 2}) {
                SCOPED_TRACE(testing::Message() << "type " << dataType << " upper " << upper
                                                << " threads " << threads);
                ForcePlans force;
                PlatformTrsvPlan* plan =
                    platform_csrtrsv_plan(upper ? "u" : "l", a->size, a->row, a->col, threads);
                pack(plan, a.get());
                expectSameAsOneThread(a.get(), upper, plan);
                platform_csrtrsv_plan_free(plan);
            }
            // The runs are the last allocation of a one-thread plan; without them it solves row
            // by row.
            for (int fail = 1; fail <= 4; ++fail) {
                SCOPED_TRACE(testing::Message() << "allocation " << fail << " fails");
                platformTestFailPlanAlloc(fail);
                PlatformTrsvPlan* plan =
                    platform_csrtrsv_plan(upper ? "u" : "l", a->size, a->row, a->col, 1);
                platformTestFailPlanAlloc(0);
                if (plan == nullptr)
                    continue;
                platformTestFailPlanAlloc(fail - 1);
                const int packed =
                    dataType == LIN_REAL
                        ? platform_dcsrtrsv_plan_pack(plan, a->realData, a->row, a->col)
                        : platform_zcsrtrsv_plan_pack(
                              plan, reinterpret_cast<const PlatformComplex16*>(a->compData), a->row,
                              a->col);
                platformTestFailPlanAlloc(0);
                EXPECT_EQ(packed, fail == 2 || fail == 3 ? 0 : 1);
                expectSameAsOneThread(a.get(), upper, plan);
                platform_csrtrsv_plan_free(plan);
            }
        }
    }
}
