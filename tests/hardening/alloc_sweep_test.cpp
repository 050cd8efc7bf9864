// Allocation-failure sweep over whole host sessions: init, options, A and b from files and by
// entries, solves with every SOLVER value (also with the zero-diagonal repair, the diagonal
// scaling and the snapshot on), result checks, file output, term. For every allocation n of a
// session, the n-th allocation is made to fail: the call that made it must report the failure
// with the allocator's line and one line at the place of failure (two where the call names a
// second one), return 0 or null, leave the handle usable for a complete new session, keep the
// thread count, and leak nothing.
#include <gtest/gtest.h>
#include <omp.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "api/kwil.h"
#include "support/support.h"

using kwiltest::Capture;
using kwiltest::TempDir;

namespace {

// The marker line written before each call, so that one capture serves a whole session.
const char* const kMark = "@@call ";

// One call of a session on a live handle.
struct Step {
    std::string name;
    std::function<int(KwilHandle*)> call;
};

// Every line a failed allocation may produce after the allocator's own, up to the first
// conversion: each layer between the allocation and the public call adds at most its own.
bool chainLine(const std::string& line)
{
    static const char* const kLines[] = {
        // matrix and vector objects
        "Allocation error in matrix create",
        "Row or col allocation error in matrix create",
        "Real data allocation error in matrix create",
        "Comp data allocation error in matrix create",
        "Allocation error in matrix sort",
        "Allocation error in matrix change to CSR",
        "Allocation error in matrix restore CSR",
        // files and options
        "Matrix data create error in mat file read file='",
        "Vector data create error in vec file read file='",
        "Read error in read coef mat file '",
        "Read error in read fix vec file '",
        "Read error in read var vec file '",
        "Alloc error in init option",
        "Alloc error init kwil",
        // the interface
        "Create error in create coef mat",
        "Create error in create fix vec",
        "Create error in create var vec",
        "Restore mat type error in set coef mat",
        "Restore mat type error in solver",
        "Change type CSR error in solver",
        "Vector variable data create error in solver",
        "Vector comp revies data create error in solver",
        "Vector comp revies data create error in check result",
        "Change mat type error in check result",
        "Vector data create error in check result",
        // preprocessing and preconditioners
        "Alloc error in rev diag zero",
        "Matrix allocate error in rev diag zero",
        "Alloc error in diag scale begin",
        "Alloc coef and fix error in diag scale begin",
        "Alloc error in ILU 0 solver",
        "Alloc matrix error in ILU 0 solver",
        "Change mat type error in ILU 0 solver",
        "Alloc error in ILU fill-in solver",
        "Alloc matrix error in ILU fill-in solver",
        "Change mat type error in ILU fill-in solver",
        "Vec alloc error in ILU solv",
        // solvers
        "Vector data create error in iter stab solver",
        "Vector data create error in iter safe solver",
        "Vector data create error in iter stab-l solver",
        "ILU error in iter stab solver",
        "ILU error in iter safe solver",
        "ILU error in iter stab-l solver",
        "Double data create error in iter stab-l solver",
        "Vector matrix data create error in iter stab-l solver",
        "PARDISO error in ",
        "PARDISO error: not enough memory",
    };
    const std::string tag = "KWILERR: ";
    if (line.rfind(tag, 0) != 0)
        return false;
    for (const char* s : kLines) {
        if (line.compare(tag.size(), strlen(s), s) == 0)
            return true;
    }
    return false;
}

// The failures after which a solve still succeeds: the scaling falls back to the unscaled
// system, and the snapshot (here its residual) never changes the result.
bool fallback(const std::string& last)
{
    return last == "KWILERR: Alloc error in diag scale begin" ||
           last == "KWILERR: Alloc coef and fix error in diag scale begin" ||
           last == "KWILERR: Vector data create error in check result";
}

// A 4 x 4 test system in coordinate form, 0-based, with its right-hand side.
struct Sys {
    int n;
    bool comp;
    std::vector<int> row, col;
    std::vector<double> re, im;
    std::vector<double> bre, bim;

    std::string matFile() const
    {
        std::string s = std::string("%%MatrixMarket matrix coordinate ") +
                        (comp ? "complex" : "real") + " general\n" + std::to_string(n) + " " +
                        std::to_string(n) + " " + std::to_string(row.size()) + "\n";
        char buf[128];
        for (size_t k = 0; k < row.size(); ++k) {
            if (comp) {
                snprintf(buf, sizeof buf, "%d %d %.17g %.17g\n", row[k] + 1, col[k] + 1, re[k],
                         im[k]);
            } else {
                snprintf(buf, sizeof buf, "%d %d %.17g\n", row[k] + 1, col[k] + 1, re[k]);
            }
            s += buf;
        }
        return s;
    }
    // b is written real: a complex A promotes it.
    std::string vecFile() const
    {
        std::string s = "%%MatrixMarket matrix array real general\n" + std::to_string(n) + " 1\n";
        char buf[64];
        for (int i = 0; i < n; ++i) {
            snprintf(buf, sizeof buf, "%.17g\n", bre[i]);
            s += buf;
        }
        return s;
    }
};

// Convection-diffusion on a 2 x 2 grid; missingDiag leaves the diagonal of row 2 unstored
// (the repair then inserts it; the system stays nonsingular).
Sys makeSys(bool comp, bool missingDiag)
{
    Sys s{4, comp, {}, {}, {}, {}, {}, {}};
    const int r[] = {0, 0, 0, 1, 1, 1, 2, 2, 2, 3, 3, 3};
    const int c[] = {0, 1, 2, 0, 1, 3, 0, 2, 3, 1, 2, 3};
    const double v[] = {4, -0.6, -1.4, -1.2, 4, -1.1, -0.8, 4, -0.5, -1.3, -0.7, 4};
    for (int k = 0; k < 12; ++k) {
        if (missingDiag && r[k] == 2 && c[k] == 2)
            continue;
        s.row.push_back(r[k]);
        s.col.push_back(c[k]);
        s.re.push_back(v[k]);
        s.im.push_back(comp ? 0.25 * (r[k] - c[k]) + (r[k] == c[k] ? 0.5 : 0.0) : 0.0);
    }
    for (int i = 0; i < 4; ++i) {
        s.bre.push_back(1.0 + i);
        s.bim.push_back(comp ? 0.5 - i : 0.0);
    }
    return s;
}

struct Scenario {
    const char* name;
    std::string options; // option file lines besides FILE_VER, TRACE and THREADS
    bool comp;
    bool missingDiag;
};

void PrintTo(const Scenario& sc, std::ostream* os)
{
    *os << sc.name;
}

const Scenario kScenarios[] = {
    {"SolverTest", "SOLVER -1\nCHECK_RESULT_LIM 0\n", false, false},
    {"BiCGStab", "SOLVER 0\n", false, false},
    {"BiCGStabComplex", "SOLVER 0\nILU_FILLIN 1\n", true, false},
    {"Safe", "SOLVER 1\n", false, false},
    {"BiCGStabL", "SOLVER 2\nSTABL_L 2\n", true, false},
    {"Direct", "SOLVER 10\n", true, false},
    {"IluSolve", "SOLVER 20\nCHECK_RESULT_LIM 0\n", false, false},
    {"RepairDirect", "SOLVER 10\nREV_DIAGZERO 2\n", false, true},
    {"RepairIterative", "SOLVER 0\n", true, true},
    {"ScaledSafe", "SOLVER 1\nDIAG_SCALE 1\n", false, false},
    {"ScalingRefusedDirectComplex", "SOLVER 10\nDIAG_SCALE 1\n", true, false},
    {"SaveAll", "SOLVER 0\nSAVE_ALL 1\n", false, false},
    {"SaveAllRepairScaled", "SOLVER 2\nSAVE_ALL 1\nDIAG_SCALE 1\nREV_DIAGZERO 2\n", true, true},
};

class AllocSweep : public ::testing::TestWithParam<Scenario> {
  protected:
    void SetUp() override
    {
        const Scenario& sc = GetParam();
        sys = makeSys(sc.comp, sc.missingDiag);
        optPath = dir.write("kwil.ini", "FILE_VER 1\nTRACE 0\nTHREADS 2\n" + sc.options);
        matPath = dir.write("a.mtx", sys.matFile());
        vecPath = dir.write("b.mtx", sys.vecFile());
        outMat = dir.path("out_a.mtx");
        outFix = dir.path("out_b.mtx");
        outVar = dir.path("out_x.mtx");
        work = dir.path("work");
        steps = makeSteps();
    }

    // The session between kwilInit and kwilTerm.
    std::vector<Step> makeSteps()
    {
        std::vector<Step> s;
        const Sys& y = sys;
        const std::string opt = optPath, mat = matPath, vec = vecPath;
        const std::string oa = outMat, ob = outFix, ox = outVar;
        s.push_back(
            {"ReadOptFile", [opt](KwilHandle* h) { return kwilReadOptFile(h, opt.c_str()); }});
        s.push_back({"MatCoefFileRead",
                     [mat](KwilHandle* h) { return kwilMatCoefFileRead(h, mat.c_str()); }});
        s.push_back({"VecFixFileRead",
                     [vec](KwilHandle* h) { return kwilVecFixFileRead(h, vec.c_str()); }});
        s.push_back({"Solv", [](KwilHandle* h) { return kwilSolv(h); }});
        s.push_back({"CheckResult", check});
        s.push_back({"MatCoefFileWrite",
                     [oa](KwilHandle* h) { return kwilMatCoefFileWrite(h, oa.c_str()); }});
        s.push_back({"VecVarFileWrite",
                     [ox](KwilHandle* h) { return kwilVecVarFileWrite(h, ox.c_str()); }});
        s.push_back({"VecFixFileWrite",
                     [ob](KwilHandle* h) { return kwilVecFixFileWrite(h, ob.c_str()); }});
        // By entries: A, b and a host-made x.
        s.push_back({"MatCoefCreate", [y](KwilHandle* h) {
                         return kwilMatCoefCreate(h, y.comp ? 1 : 0, y.n,
                                                  static_cast<int>(y.row.size()));
                     }});
        for (size_t k = 0; k < sys.row.size(); ++k) {
            s.push_back({"MatCoefSet", [y, k](KwilHandle* h) {
                             return kwilMatCoefSet(h, y.row[k], y.col[k], static_cast<int>(k),
                                                   y.re[k], y.im[k], 0);
                         }});
        }
        s.push_back({"VecFixCreate", [y](KwilHandle* h) {
                         return kwilVecFixCreate(h, y.comp ? 1 : 0, y.n, 0.0, 0.0);
                     }});
        for (int i = 0; i < sys.n; ++i) {
            s.push_back({"VecFixSet", [y, i](KwilHandle* h) {
                             return kwilVecFixSet(h, i, y.bre[i], y.bim[i]);
                         }});
        }
        s.push_back(
            {"VecVarCreate", [](KwilHandle* h) { return kwilVecVarCreate(h, 0, 4, 1.0, 0.0); }});
        s.push_back({"Solv", [](KwilHandle* h) { return kwilSolv(h); }});
        s.push_back({"CheckResult", check});
        // A change after the solve turns the compressed matrix back; then solve again.
        s.push_back({"MatCoefSetRestore", [y](KwilHandle* h) {
                         return kwilMatCoefSet(h, y.row[0], y.col[0], 0, y.re[0], y.im[0], 1);
                     }});
        s.push_back({"CheckResultAfterRestore", check});
        s.push_back({"Solv", [](KwilHandle* h) { return kwilSolv(h); }});
        // The x written above read back and checked against the file's A and b.
        s.push_back({"MatCoefFileRead",
                     [mat](KwilHandle* h) { return kwilMatCoefFileRead(h, mat.c_str()); }});
        s.push_back({"VecFixFileRead",
                     [vec](KwilHandle* h) { return kwilVecFixFileRead(h, vec.c_str()); }});
        s.push_back(
            {"VecVarFileRead", [ox](KwilHandle* h) { return kwilVecVarFileRead(h, ox.c_str()); }});
        s.push_back({"CheckResult", check});
        return s;
    }

    static int check(KwilHandle* h)
    {
        double rel = -1.0, abs = -1.0;
        return kwilCheckResult(h, &rel, &abs);
    }

    // Runs init, the steps and term with the n-th allocation failing (0: none); returns the
    // captured error stream with a marker line before every call.
    struct Run {
        bool initFailed = false;
        long failedStep = -2; // -1: kwilInit, steps.size(): after the last step; -2: none
        int failedResult = -1;
        std::vector<std::string> failedLines; // error lines of the failing call
        std::vector<std::string> otherLines;  // error lines of every other call
        long allocs = 0;
    };

    Run run(long n)
    {
        Run out;
        const long live0 = comTestLiveAllocs();
        const int threads = omp_get_max_threads();
        std::error_code ec;
        std::filesystem::remove_all(work, ec);
        std::filesystem::create_directory(work);
        enterDir(work);

        std::vector<long> before, after;
        std::vector<int> results;
        Capture cap;
        const long start = comTestAllocCount();
        comTestFailAlloc(n);
        fprintf(stderr, "%s-1\n", kMark);
        before.push_back(comTestAllocCount());
        KwilHandle* h = kwilInit(KWIL_VERSION, optPath.c_str());
        after.push_back(comTestAllocCount());
        results.push_back(h != nullptr ? 1 : 0);
        EXPECT_EQ(omp_get_max_threads(), threads) << "kwilInit, allocation " << n;
        long failed = -2;
        if (n > 0 && start + n > before.back() && start + n <= after.back())
            failed = -1;
        if (h != nullptr) {
            for (size_t k = 0; k < steps.size() && failed == -2; ++k) {
                fprintf(stderr, "%s%zu\n", kMark, k);
                before.push_back(comTestAllocCount());
                results.push_back(steps[k].call(h));
                after.push_back(comTestAllocCount());
                EXPECT_EQ(omp_get_max_threads(), threads)
                    << steps[k].name << " (" << k << "), allocation " << n;
                if (n > 0 && start + n > before.back() && start + n <= after.back()) {
                    failed = static_cast<long>(k);
                }
            }
        }
        comTestFailAlloc(0);
        if (h == nullptr && failed == -1) {
            // A failed init leaves nothing behind; the next one works.
            h = kwilInit(KWIL_VERSION, optPath.c_str());
            EXPECT_NE(h, nullptr) << "kwilInit after the failure of allocation " << n;
        }
        if (h != nullptr && failed != -2) {
            // The same handle runs a complete session again.
            fprintf(stderr, "%srecover\n", kMark);
            for (size_t k = 0; k < steps.size(); ++k) {
                const int r = steps[k].call(h);
                EXPECT_EQ(r, 1) << "after the failure of allocation " << n << ", " << steps[k].name
                                << " (" << k << ") fails again";
                EXPECT_EQ(omp_get_max_threads(), threads);
            }
        }
        out.allocs = comTestAllocCount() - start;
        if (h != nullptr)
            kwilTerm(h);
        cap.take();
        enterDir("");

        EXPECT_EQ(comTestLiveAllocs(), live0) << "leak after failing allocation " << n;
        out.failedStep = failed;
        // Split the error stream at the markers.
        std::string cur = "none";
        for (const std::string& l : cap.errLines()) {
            if (l.rfind(kMark, 0) == 0) {
                cur = l.substr(strlen(kMark));
                continue;
            }
            // Warnings (the solver test, a refused scaling) are no failure.
            if (l.rfind("KWILWRN: ", 0) == 0)
                continue;
            const bool inFailed = failed != -2 && cur == std::to_string(failed);
            if (inFailed) {
                out.failedLines.push_back(l);
            } else {
                out.otherLines.push_back("[call " + cur + "] " + l);
            }
        }
        if (failed == -1)
            out.failedResult = results[0];
        if (failed >= 0)
            out.failedResult = results[static_cast<size_t>(failed) + 1];
        return out;
    }

    // Runs the session in the working directory (snapshots land there); "" goes back.
    void enterDir(const std::string& dirPath)
    {
        if (dirPath.empty()) {
            ASSERT_EQ(chdir(home.c_str()), 0);
            return;
        }
        char buf[4096];
        ASSERT_NE(getcwd(buf, sizeof buf), nullptr);
        home = buf;
        ASSERT_EQ(chdir(dirPath.c_str()), 0);
    }

    TempDir dir;
    Sys sys;
    std::string optPath, matPath, vecPath, outMat, outFix, outVar, work, home;
    std::vector<Step> steps;
};

// Failure points exercised over all scenarios, printed at the end.
long gFailurePoints = 0;

class Report : public ::testing::Environment {
  public:
    void TearDown() override
    {
        printf("Allocation-failure sweep: %ld failure points exercised\n", gFailurePoints);
    }
};
const auto* const kReport = ::testing::AddGlobalTestEnvironment(new Report);

TEST_P(AllocSweep, EveryFailureIsReportedOnceAndTheHandleRecovers)
{
    const Scenario& sc = GetParam();
    const Run clean = run(0);
    ASSERT_EQ(clean.failedStep, -2);
    ASSERT_TRUE(clean.otherLines.empty()) << sc.name << ": " << clean.otherLines[0];
    ASSERT_GT(clean.allocs, 0);
    const long total = clean.allocs;
    std::map<std::string, int> places; // distinct failing (call, line) pairs, for the report
    for (long n = 1; n <= total; ++n) {
        const Run r = run(n);
        ASSERT_NE(r.failedStep, -2)
            << sc.name << ": allocation " << n << " of " << total << " was never made";
        const std::string call =
            r.failedStep < 0 ? "kwilInit" : steps[static_cast<size_t>(r.failedStep)].name;
        const std::string where = std::string(sc.name) + ": allocation " + std::to_string(n) +
                                  " of " + std::to_string(total) + " in " + call;
        // No other call of the session wrote an error line.
        EXPECT_TRUE(r.otherLines.empty()) << where << ": " << r.otherLines[0];
        const std::vector<std::string>& l = r.failedLines;
        std::string all;
        for (const std::string& s : l)
            all += s + "\n";
        // The allocator's line, then one line per layer up to the call, none repeated.
        ASSERT_GE(l.size(), 2u) << where << ":\n" << all;
        EXPECT_EQ(l[0], "KWILERR: Allocation error") << where << ":\n" << all;
        for (size_t i = 1; i < l.size(); ++i) {
            EXPECT_TRUE(chainLine(l[i])) << where << ": line " << i << ":\n" << all;
            for (size_t j = 1; j < i; ++j)
                EXPECT_NE(l[i], l[j]) << where << ":\n" << all;
        }
        EXPECT_LE(l.size(), 5u) << where << ":\n" << all;
        if (r.failedResult == 1) {
            EXPECT_EQ(call, "Solv") << where << ":\n" << all;
            EXPECT_TRUE(fallback(l.back())) << where << ":\n" << all;
        } else {
            EXPECT_EQ(r.failedResult, 0) << where;
        }
        places[call + " | " + l.back()]++;
    }
    gFailurePoints += total;
    printf("%s: %ld failure points\n", sc.name, total);
    // KWIL_SWEEP_PLACES=1 lists where the failures were reported.
    if (getenv("KWIL_SWEEP_PLACES") != nullptr) {
        for (const auto& p : places)
            printf("  %4d  %s\n", p.second, p.first.c_str());
    }
}

INSTANTIATE_TEST_SUITE_P(Sessions, AllocSweep, ::testing::ValuesIn(kScenarios),
                         [](const ::testing::TestParamInfo<Scenario>& p) {
                             return std::string(p.param.name);
                         });

} // namespace
