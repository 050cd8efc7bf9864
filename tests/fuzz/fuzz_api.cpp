// Fuzzes the public interface: the input is a program of calls on one handle, with arguments the
// interface accepts (indices out of range, any flag, sizes 0 and negative, NaN and infinity,
// calls in any order, every SOLVER value). No call may crash or stop the process; every call
// returns 0 or 1, the thread count is what it was after every call and nothing stays allocated
// after kwilTerm.
#include <fcntl.h>
#include <omp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "api/kwil.h"
#include "common/com.h"
#include "fuzz_support.h"

namespace {

// Reads the program bytes; past the end every read yields 0.
class Bytes {
  public:
    Bytes(const uint8_t* data, size_t size) : data_(data), size_(size) {}
    bool more() const { return pos_ < size_; }
    uint8_t u8() { return pos_ < size_ ? data_[pos_++] : 0; }
    // A small int in [lo, hi], with the extremes of int now and then.
    int smallInt(int lo, int hi)
    {
        const uint8_t b = u8();
        if (b == 0xff)
            return INT_MAX;
        if (b == 0xfe)
            return INT_MIN;
        return lo + b % (hi - lo + 1);
    }
    double dbl()
    {
        static const double kTable[] = {0.0,    1.0,      -1.0,      2.5,     -0.75, 4.0,
                                        1e-310, -1e-320,  DBL_MIN,   DBL_MAX, 1e300, -1e300,
                                        1e-300, HUGE_VAL, -HUGE_VAL, NAN,     1e-12, 1e12,
                                        0.001,  100000.0, 0.5,       -0.0,    3.0,   1e-8};
        constexpr int kNum = sizeof kTable / sizeof kTable[0];
        const uint8_t b = u8();
        if (b < 4 * kNum)
            return kTable[b % kNum];
        if (b < 0xf0)
            return (b - 4 * kNum) / 8.0 - 3.0;
        double v = 0.0;
        uint8_t raw[sizeof v];
        for (uint8_t& r : raw)
            r = u8();
        memcpy(&v, raw, sizeof v);
        return v;
    }

  private:
    const uint8_t* data_;
    size_t size_;
    size_t pos_ = 0;
};

// Option names with the range their int values are drawn from (a thread count or a step limit
// in the millions would test the machine, not the library).
struct IntOpt {
    const char* name;
    int lo, hi;
};
const IntOpt kIntOpts[] = {
    {"USER_I1", -3, 3},
    {"FILE_VER", -1, 2},
    {"TRACE", 0, 1},
    {"SOLVER", -2, 21},
    {"THREADS", 0, 3},
    {"REV_DIAGZERO", -1, 3},
    {"SAVE_ALL", 0, 1},
    {"DIAG_SCALE", -1, 2},
    {"ILU_TRACE", -1, 2},
    {"ILU_FILLIN", -1, 2},
    {"ITER_PREILU", -1, 2},
    {"ITER_CORRECT_R", -1, 5},
    {"ITER_STEPTRACE", -1, 3},
    {"ITER_MAXSTEP", -2, 60},
    {"ITER_R_TYPE", -1, 2},
    {"ITER_GIVEUP", -1, 12},
    {"SAFE_CR", -1, 2},
    {"SAFE_CORRECT_Y", -1, 2},
    {"STABL_L", -2, 9},
    {"PARDISO_TRACE", 0, 1},
    {"PARDISO_MEM_LIM", -1, 3},
    {"PARDISO_STAT", -1, 1},
    {"PARDISO_ITER", -1, 4},
    {"PARDISO_PIVOT", -1, 20},
    {"NO_SUCH", 0, 1},
    {"", 0, 1},
};
const char* const kDblOpts[] = {"USER_D1",
                                "REV_DIAGZERO_VAL",
                                "CHECK_RESULT_LIM",
                                "ILU_REV_DIAGZERO_VAL",
                                "ILU_ACCEL",
                                "ILU_FILLINMIN",
                                "ITER_MAXSTEP_SIZE",
                                "ITER_RESOLVE",
                                "ITER_GIVEUP_CHECK",
                                "ITER_GIVEUP_REDUCT",
                                "SOLVER",
                                "solver"};
constexpr int kIntOptNum = sizeof kIntOpts / sizeof kIntOpts[0];
constexpr int kDblOptNum = sizeof kDblOpts / sizeof kDblOpts[0];

// Scratch files: an option file, a few matrix and vector files, and one the program writes.
struct Files {
    std::string dir, opt, optBad, mat[4], vec[4], out;
};

void put(const std::string& path, const char* text)
{
    kwilfuzz::writeFile(path, reinterpret_cast<const uint8_t*>(text), strlen(text));
}

const Files& files()
{
    static Files f = [] {
        Files n;
        n.dir = kwilfuzz::scratch("api.d");
        mkdir(n.dir.c_str(), 0755);
        n.opt = n.dir + "/kwil.ini";
        put(n.opt, "FILE_VER 1\nTRACE 0\nITER_MAXSTEP 50\n");
        n.optBad = n.dir + "/bad.ini";
        put(n.optBad, "FILE_VER 2\n");
        n.mat[0] = n.dir + "/a0.mtx";
        put(n.mat[0],
            "%%MatrixMarket matrix coordinate real general\n3 3 7\n1 1 4\n1 2 -1\n2 1 -1\n"
            "2 2 4\n2 3 -1\n3 2 -1\n3 3 4\n");
        n.mat[1] = n.dir + "/a1.mtx";
        put(n.mat[1], "%%MatrixMarket matrix coordinate complex general\n2 2 3\n1 1 2 1\n1 2 0 -1\n"
                      "2 2 3 0\n");
        n.mat[2] = n.dir + "/a2.mtx";
        put(n.mat[2], "%%MatrixMarket matrix coordinate real symmetric\n3 3 4\n1 1 nan\n2 1 1\n"
                      "3 3 inf\n2 2 0\n");
        n.mat[3] = n.dir + "/a3.mtx"; // the program's own output when it wrote one
        n.vec[0] = n.dir + "/b0.mtx";
        put(n.vec[0], "%%MatrixMarket matrix array real general\n3 1\n1\n2\n3\n");
        n.vec[1] = n.dir + "/b1.mtx";
        put(n.vec[1], "%%MatrixMarket matrix array complex general\n2 1\n1 0\n0 1\n");
        n.vec[2] = n.dir + "/b2.mtx";
        put(n.vec[2], "%%MatrixMarket matrix coordinate real general\n4 1 2\n1 1 1\n4 1 -inf\n");
        n.vec[3] = n.dir + "/b3.mtx";
        n.out = n.dir + "/out.mtx";
        return n;
    }();
    return f;
}

// Removes the snapshot directories a program may have written.
void removeSnapshots()
{
    for (int k = 1; k <= 9999; ++k) {
        char name[32];
        snprintf(name, sizeof name, "kwilSave%04d", k);
        struct stat st;
        if (stat(name, &st) != 0)
            break;
        for (const char* f :
             {"kwil.ini", "matCoef.mtx", "vecFix.mtx", "vecVar.mtx", "vecDiff.mtx", "result.txt"}) {
            unlink((std::string(name) + "/" + f).c_str());
        }
        rmdir(name);
    }
}

void expectResult(int r)
{
    if (r != 0 && r != 1)
        abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const Files& f = files();
    const int threads = omp_get_max_threads();
    const long live = comTestLiveAllocs();
    Bytes in(data, size);
    // Snapshots of SAVE_ALL land in the working directory: the scratch one during the program
    // (the fuzzer's own paths are relative to the original one).
    const int home = open(".", O_RDONLY | O_DIRECTORY);
    if (home < 0 || chdir(f.dir.c_str()) != 0)
        abort();

    KwilHandle* h = kwilInit(KWIL_VERSION, f.opt.c_str());
    if (h == nullptr)
        abort();
    if (omp_get_max_threads() != threads)
        abort();
    bool saved = false;
    // GetNext state: what the previous call returned, as a host passes it back.
    int gRow = 0, gCol = 0, gPos = 0, gEnd = 0;
    for (int step = 0; step < 64 && in.more(); ++step) {
        const uint8_t op = in.u8() % 26;
        int r = 1;
        switch (op) {
        case 0: {
            const IntOpt& o = kIntOpts[in.u8() % kIntOptNum];
            const int v = in.smallInt(o.lo, o.hi);
            const int safe = (v == INT_MAX || v == INT_MIN) && o.hi > 30 ? o.hi : v;
            if (strcmp(o.name, "SAVE_ALL") == 0 && safe != 0)
                saved = true;
            if (strcmp(o.name, "THREADS") == 0 && (safe < 0 || safe > 3))
                break;
            r = kwilSetOpt(h, o.name, 1 + in.u8() % 2, safe, 0.0);
            break;
        }
        case 1:
            r = kwilSetOpt(h, kDblOpts[in.u8() % kDblOptNum], 0, 0, in.dbl());
            break;
        case 2: {
            int iv = -7;
            double dv = -7.0;
            const bool flag = in.u8() & 1;
            r = flag ? kwilGetOpt(h, kIntOpts[in.u8() % kIntOptNum].name, 1, &iv, nullptr)
                     : kwilGetOpt(h, kDblOpts[in.u8() % kDblOptNum], 0, nullptr, &dv);
            break;
        }
        case 3: {
            const uint8_t which = in.u8() % 3;
            r = kwilReadOptFile(h, which == 0   ? f.opt.c_str()
                                   : which == 1 ? f.optBad.c_str()
                                                : "/nonexistent/kwil.ini");
            saved = true; // an option file read over a changed SAVE_ALL: stay careful
            break;
        }
        case 4: {
            const int flag = in.smallInt(-1, 2);
            const int n = in.smallInt(-2, 8);
            const int num = in.smallInt(-2, 30);
            r = kwilMatCoefCreate(h, flag, n, num);
            break;
        }
        case 5: {
            int flag = -1, n = -1, num = -1;
            r = kwilMatCoefInfo(h, &flag, &n, &num);
            break;
        }
        case 6:
        case 7:
        case 8: {
            const int row = in.smallInt(-2, 9);
            const int col = in.smallInt(-2, 9);
            const int pos = in.smallInt(-2, 31);
            const double re = in.dbl();
            const double im = in.dbl();
            r = kwilMatCoefSet(h, row, col, pos, re, im, in.u8() & 1);
            break;
        }
        case 9: {
            const uint8_t how = in.u8();
            int row = gRow, col = gCol, pos = gPos;
            if (how & 1) {
                row = in.smallInt(-3, 10);
                col = in.smallInt(-3, 10);
                pos = in.smallInt(-3, 32);
            }
            double re = 0.0, im = 0.0;
            int end = -1;
            r = kwilMatCoefGetNext(h, &row, &col, &pos, &re, &im, &end, (how >> 1) & 1);
            if (r == 1) {
                gRow = row;
                gCol = col;
                gPos = pos;
                gEnd = end;
                if (end != 0 && end != 1)
                    abort();
            }
            break;
        }
        case 10:
            r = kwilMatCoefFileRead(h, f.mat[in.u8() % 4].c_str());
            break;
        case 11:
            r = kwilMatCoefFileWrite(h, (in.u8() & 1) ? f.mat[3].c_str() : "/nonexistent/a.mtx");
            break;
        case 12:
        case 13: {
            const int flag = in.smallInt(-1, 2);
            const int n = in.smallInt(-2, 9);
            const double re = in.dbl();
            const double im = in.dbl();
            r = op == 12 ? kwilVecFixCreate(h, flag, n, re, im)
                         : kwilVecVarCreate(h, flag, n, re, im);
            break;
        }
        case 14: {
            int flag = -1, n = -1;
            r = (in.u8() & 1) ? kwilVecFixInfo(h, &flag, &n) : kwilVecVarInfo(h, &flag, &n);
            break;
        }
        case 15:
        case 16: {
            const int idx = in.smallInt(-2, 10);
            const double re = in.dbl();
            const double im = in.dbl();
            r = op == 15 ? kwilVecFixSet(h, idx, re, im) : kwilVecVarSet(h, idx, re, im);
            break;
        }
        case 17: {
            const int idx = in.smallInt(-2, 10);
            double re = 0.0, im = 0.0;
            r = (in.u8() & 1) ? kwilVecFixGet(h, idx, &re, &im) : kwilVecVarGet(h, idx, &re, &im);
            break;
        }
        case 18: {
            const uint8_t b = in.u8();
            const char* path = f.vec[b % 4].c_str();
            r = (b & 4) ? kwilVecFixFileRead(h, path) : kwilVecVarFileRead(h, path);
            break;
        }
        case 19: {
            const uint8_t b = in.u8();
            const char* path = (b & 1) ? f.vec[3].c_str() : "/nonexistent/b.mtx";
            r = (b & 2) ? kwilVecFixFileWrite(h, path) : kwilVecVarFileWrite(h, path);
            break;
        }
        case 20:
        case 21:
        case 22:
            r = kwilSolv(h);
            break;
        case 23:
        case 24: {
            double rel = -1.0, abs = -1.0;
            r = kwilCheckResult(h, &rel, &abs);
            break;
        }
        case 25:
            comLinMacroTest(h);
            break;
        }
        expectResult(r);
        if (omp_get_max_threads() != threads)
            abort();
    }
    (void)gEnd;
    kwilTerm(h);
    if (comTestLiveAllocs() != live)
        abort();
    if (saved)
        removeSnapshots();
    if (fchdir(home) != 0)
        abort();
    close(home);
    return 0;
}
