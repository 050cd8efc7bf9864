// Two handles on two host threads at the same time, each with its own system: every solve gives
// what the same solve gives alone, and the caller's thread count is unchanged afterwards.
#include <gtest/gtest.h>
#include <omp.h>

#include <atomic>
#include <cmath>
#include <complex>
#include <string>
#include <thread>
#include <vector>

#include "api/kwil.h"
#include "support/support.h"

using kwiltest::Capture;
using kwiltest::TempDir;

namespace {

using Cplx = std::complex<double>;

// -lap u + convection on an m x m grid; complex adds a shift and a complex convection.
struct Problem {
    std::string options;
    bool comp;
    int m;
};

struct Result {
    int solve = -1;
    int check = -1;
    double rel = -1.0;
    std::vector<Cplx> x;
};

// One whole host session: init, fill by entries, solve, check, read x, term.
Result session(const std::string& optPath, const Problem& p)
{
    Result r;
    KwilHandle* h = kwilInit(KWIL_VERSION, optPath.c_str());
    if (h == nullptr)
        return r;
    const int m = p.m, n = m * m;
    const double hh = 1.0 / (m + 1);
    const Cplx cx = p.comp ? Cplx(20.0 * hh, 5.0 * hh) : Cplx(20.0 * hh);
    const Cplx cy = p.comp ? Cplx(10.0 * hh, -5.0 * hh) : Cplx(10.0 * hh);
    const Cplx d = p.comp ? Cplx(4.0, 0.5) : Cplx(4.0);
    int nnz = 5 * n - 4 * m;
    bool ok = kwilMatCoefCreate(h, p.comp ? 1 : 0, n, nnz) == 1;
    int pos = 0;
    auto add = [&](int i, int j, Cplx v) {
        ok = ok && kwilMatCoefSet(h, i, j, pos++, v.real(), v.imag(), 0) == 1;
    };
    for (int j = 0; j < m; ++j) {
        for (int i = 0; i < m; ++i) {
            const int k = j * m + i;
            if (j > 0)
                add(k, k - m, -1.0 - cy);
            if (i > 0)
                add(k, k - 1, -1.0 - cx);
            add(k, k, d);
            if (i < m - 1)
                add(k, k + 1, -1.0 + cx);
            if (j < m - 1)
                add(k, k + m, -1.0 + cy);
        }
    }
    ok = ok && pos == nnz && kwilVecFixCreate(h, p.comp ? 1 : 0, n, 0.0, 0.0) == 1;
    for (int i = 0; i < n && ok; ++i) {
        ok = kwilVecFixSet(h, i, std::sin(0.1 * i), p.comp ? std::cos(0.3 * i) : 0.0) == 1;
    }
    if (ok) {
        r.solve = kwilSolv(h);
        double abs = -1.0;
        r.check = kwilCheckResult(h, &r.rel, &abs);
        for (int i = 0; i < n; ++i) {
            double re = 0.0, im = 0.0;
            if (kwilVecVarGet(h, i, &re, &im) != 1)
                break;
            r.x.push_back(Cplx(re, im));
        }
    }
    kwilTerm(h);
    return r;
}

class Concurrency : public ::testing::Test {
  protected:
    std::string options(const std::string& extra)
    {
        return dir.write("kwil" + std::to_string(++files) + ".ini",
                         kwiltest::optionText("TRACE 0\n" + extra));
    }
    // Runs the two sessions alone, then `rounds` times each on two threads at once; every
    // concurrent result must equal the lone one to rounding (Match::rounding: relative difference
    // of x at most 1e-7, as a rounding difference may shift the last step of an iteration) or only
    // in convergence.
    enum class Match { rounding, converged };
    void runPair(const Problem& a, const Problem& b, Match match)
    {
        const std::string optA = options(a.options), optB = options(b.options);
        const int threads = omp_get_max_threads();
        Capture cap;
        const Result aloneA = session(optA, a);
        const Result aloneB = session(optB, b);
        ASSERT_EQ(aloneA.solve, 1);
        ASSERT_EQ(aloneB.solve, 1);
        ASSERT_EQ(aloneA.check, 1);
        ASSERT_EQ(aloneB.check, 1);
        constexpr int rounds = 12;
        std::vector<Result> ra(rounds), rb(rounds);
        std::atomic<int> ready{0};
        std::atomic<int> threadCountChanged{0};
        auto worker = [&ready, &threadCountChanged](const std::string& opt, const Problem& p,
                                                    std::vector<Result>* out) {
            // Start together so that the solves overlap.
            ++ready;
            while (ready.load() < 2)
                std::this_thread::yield();
            const int own = omp_get_max_threads();
            for (Result& r : *out) {
                r = session(opt, p);
                if (omp_get_max_threads() != own)
                    ++threadCountChanged;
            }
        };
        std::thread ta(worker, optA, a, &ra);
        std::thread tb(worker, optB, b, &rb);
        ta.join();
        tb.join();
        cap.take();
        EXPECT_EQ(cap.err(), "");
        EXPECT_EQ(omp_get_max_threads(), threads);
        EXPECT_EQ(threadCountChanged.load(), 0);
        for (int k = 0; k < rounds; ++k) {
            compare(aloneA, ra[k], match, "A", k);
            compare(aloneB, rb[k], match, "B", k);
        }
    }
    static void compare(const Result& alone, const Result& r, Match match, const char* name, int k)
    {
        EXPECT_EQ(r.solve, 1) << name << " round " << k;
        EXPECT_EQ(r.check, 1) << name << " round " << k;
        EXPECT_LE(r.rel, 1e-8) << name << " round " << k;
        ASSERT_EQ(r.x.size(), alone.x.size()) << name << " round " << k;
        double diff = 0.0, norm = 0.0;
        for (size_t i = 0; i < r.x.size(); ++i) {
            diff += std::norm(r.x[i] - alone.x[i]);
            norm += std::norm(alone.x[i]);
        }
        if (match != Match::converged) {
            EXPECT_LE(std::sqrt(diff), 1e-7 * std::sqrt(norm)) << name << " round " << k;
        }
    }
    TempDir dir;
    int files = 0;
};

// Bitwise equality is not to be had: the BLAS kernels peel loops by the alignment of the
// vectors (which differs between the heaps of two threads), and OpenBLAS (OpenMP build) keeps one
// process-wide thread count, which each call adjusts to its caller's. Both change only how a
// reduction is grouped.
TEST_F(Concurrency, SolvesOnTwoThreadsEqualTheLoneOnesToRounding)
{
    runPair({"SOLVER 0\nTHREADS 1\n", false, 30}, {"SOLVER 10\nTHREADS 1\n", true, 24},
            Match::rounding);
    runPair({"SOLVER 0\nTHREADS 2\n", false, 30}, {"SOLVER 10\nTHREADS 1\n", true, 24},
            Match::rounding);
    runPair({"SOLVER 1\nDIAG_SCALE 1\nTHREADS 1\n", false, 28},
            {"SOLVER 2\nSTABL_L 2\nILU_FILLIN 1\nTHREADS 2\n", true, 24}, Match::rounding);
}

TEST_F(Concurrency, RandomShadowResidualsStillConverge)
{
    // ITER_R_TYPE 1 draws from the process-wide generator, which both solves reseed and share:
    // the draws interleave, so only convergence is the same as alone.
    runPair({"SOLVER 0\nITER_R_TYPE 1\n", false, 24},
            {"SOLVER 2\nITER_R_TYPE 1\nSTABL_L 3\n", true, 20}, Match::converged);
}

} // namespace
