// kwil-solve: solves A x = b from Matrix Market files with the kwil library, as a host would.
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "kwil.h"

namespace {

// The options of the library, for --help and for telling int from double in -s.
struct OptionInfo {
    const char* name;
    bool isInt;
    const char* def;
    const char* meaning;
};

const OptionInfo kOptions[] = {
    {"USER_I1", true, "0", "free value for the host, carried and saved"},
    {"USER_I2", true, "0", "as USER_I1"},
    {"USER_I3", true, "0", "as USER_I1"},
    {"USER_I4", true, "0", "as USER_I1"},
    {"FILE_VER", true, "-1", "option file version; an option file must set 1"},
    {"TRACE", true, "0", "non-zero writes the KWILTRC: trace lines"},
    {"SOLVER", true, "0",
     "-1 none (test), 0 BiCGStab, 1 safe solver (real), 2 BiCGStab(L) (complex), "
     "10 direct, 20 ILU solve only"},
    {"THREADS", true, "1", "threads of the numerical kernels; 0 = number of processors"},
    {"REV_DIAGZERO", true, "1",
     "insert missing diagonals: 0 never, 1 for iterative solvers when needed, 2 always"},
    {"SAVE_ALL", true, "0", "non-zero writes a snapshot directory kwilSaveNNNN per solve"},
    {"DIAG_SCALE", true, "0", "non-zero scales the system symmetrically by its diagonal"},
    {"ILU_TRACE", true, "0", "row interval of the ILU progress trace; 0 none"},
    {"ILU_FILLIN", true, "0", "non-zero: ILU with fill-in instead of ILU(0)"},
    {"ITER_PREILU", true, "1", "non-zero: precondition the iterative solvers with ILU"},
    {"ITER_CORRECT_R", true, "100", "step interval of the true-residual correction; 0 never"},
    {"ITER_STEPTRACE", true, "0", "step interval of the iteration trace; 0 none"},
    {"ITER_MAXSTEP", true, "5000", "fixed part of the step limit"},
    {"ITER_R_TYPE", true, "0", "shadow residual: 0 initial residual, 1 pseudo-random"},
    {"ITER_GIVEUP", true, "200", "step interval of the give-up test; 0 never"},
    {"SAFE_CR", true, "1", "safe solver: non-zero BiCR-type, 0 BiCG-type coefficients"},
    {"SAFE_CORRECT_Y", true, "1", "safe solver: non-zero recomputes y = A z every step"},
    {"STABL_L", true, "1", "the L of BiCGStab(L)"},
    {"PARDISO_TRACE", true, "0", "non-zero traces the phases of the direct solve"},
    {"PARDISO_MEM_LIM", true, "0", "memory limit of the direct solve in KB; 0 none"},
    {"PARDISO_STAT", true, "0", "message level of the direct solver itself"},
    {"PARDISO_ITER", true, "2", "maximum iterative refinement steps of the direct solve"},
    {"PARDISO_PIVOT", true, "13", "pivot perturbation 10^-value of the direct solve"},
    {"USER_D1", false, "0.0", "free value for the host, carried and saved"},
    {"USER_D2", false, "0.0", "as USER_D1"},
    {"USER_D3", false, "0.0", "as USER_D1"},
    {"USER_D4", false, "0.0", "as USER_D1"},
    {"REV_DIAGZERO_VAL", false, "1e-12", "value of an inserted diagonal entry"},
    {"CHECK_RESULT_LIM", false, "0.001",
     "limit of the relative residual in the result check; 0 disables it"},
    {"ILU_REV_DIAGZERO_VAL", false, "1e-12", "replacement of a vanishing ILU pivot"},
    {"ILU_ACCEL", false, "1.0", "factor on the diagonal before the ILU factorisation"},
    {"ILU_FILLINMIN", false, "0.001", "drop threshold of ILU with fill-in (relative)"},
    {"ITER_MAXSTEP_SIZE", false, "0.0", "step limit part per unknown: limit += size * this"},
    {"ITER_RESOLVE", false, "1e-10", "relative residual tolerance of the iterative solvers"},
    {"ITER_GIVEUP_CHECK", false, "100000.0", "give-up watch level, in units of ITER_RESOLVE"},
    {"ITER_GIVEUP_REDUCT", false, "0.5", "reduction needed between two give-up tests"},
};

const char* const kBuiltinOptions =
    "# kwil-solve built-in option file: every option at its default\n"
    "FILE_VER 1\n";

const char* const kUsage =
    "Usage: kwil-solve [-c OPTIONFILE] [-s NAME=VALUE]... [-b RHS.mtx] [-x OUT.mtx] [-q]\n"
    "                  [--expand-symmetric] A.mtx\n";

struct Args {
    const char* optionFile = nullptr;
    std::vector<const char*> overrides;
    const char* rhs = nullptr;
    const char* out = nullptr;
    bool quiet = false;
    bool expand = false;
    const char* matrix = nullptr;
};

// Exit statuses.
constexpr int kExitFailure = 1; // input, solve, result check or output failed
constexpr int kExitUsage = 2;   // bad command line

void printHelp()
{
    printf("%s", kUsage);
    printf("\nSolves A x = b with the kwil sparse solver library and prints a summary.\n\n"
           "  -c OPTIONFILE        option file (default: kwil.ini in the working directory,\n"
           "                       or else every option at its default)\n"
           "  -s NAME=VALUE        sets one option after the file; may be repeated\n"
           "  -b RHS.mtx           right-hand side b (Matrix Market array file);\n"
           "                       default b = A (1, ..., 1), and the error against the ones\n"
           "                       vector is reported too\n"
           "  -x OUT.mtx           writes the solution x as a Matrix Market array file\n"
           "  -q                   quiet: TRACE 0 once the option file is loaded\n"
           "  --expand-symmetric   mirrors the stored triangle of a symmetric, hermitian or\n"
           "                       skew-symmetric file (the library reads entries as stored)\n"
           "  --help               this text\n\n"
           "Exit status: 0 when the solve and the result check succeed, 1 when reading the\n"
           "input, the solve, the check or writing x fails, 2 for a bad command line.\n\n"
           "Options (option file lines 'NAME VALUE', or -s NAME=VALUE):\n");
    for (const OptionInfo& o : kOptions) {
        printf("  %-20s %-6s %-9s %s\n", o.name, o.isInt ? "int" : "double", o.def, o.meaning);
    }
}

int usageError(const char* format, const char* what)
{
    fprintf(stderr, "kwil-solve: ");
    fprintf(stderr, format, what);
    fprintf(stderr, "\n%sTry 'kwil-solve --help'.\n", kUsage);
    return kExitUsage;
}

// Parses the command line into args. Returns -1 to go on, else the exit status.
int parseArgs(int argc, char** argv, Args* args)
{
    for (int i = 1; i < argc; ++i) {
        const char* a = argv[i];
        if (strcmp(a, "--help") == 0 || strcmp(a, "-h") == 0) {
            printHelp();
            return 0;
        }
        if (strcmp(a, "-q") == 0) {
            args->quiet = true;
        } else if (strcmp(a, "--expand-symmetric") == 0) {
            args->expand = true;
        } else if (strcmp(a, "-c") == 0 || strcmp(a, "-s") == 0 || strcmp(a, "-b") == 0 ||
                   strcmp(a, "-x") == 0) {
            if (i + 1 >= argc)
                return usageError("option %s needs a value", a);
            const char* v = argv[++i];
            switch (a[1]) {
            case 'c':
                args->optionFile = v;
                break;
            case 's':
                args->overrides.push_back(v);
                break;
            case 'b':
                args->rhs = v;
                break;
            default:
                args->out = v;
                break;
            }
        } else if (a[0] == '-' && a[1] != '\0') {
            return usageError("unknown option %s", a);
        } else if (args->matrix != nullptr) {
            return usageError("more than one matrix file: %s", a);
        } else {
            args->matrix = a;
        }
    }
    if (args->matrix == nullptr)
        return usageError("%s", "no matrix file given");
    return -1;
}

// Loads the options: -c, else ./kwil.ini, else the built-in file through a temporary file.
// *used names the file for the summary; it stays empty when the temporary file could not be
// made, which is reported here.
KwilHandle* openHandle(const Args& args, std::string* used)
{
    if (args.optionFile != nullptr || access("kwil.ini", F_OK) == 0) {
        *used = args.optionFile != nullptr ? args.optionFile : "kwil.ini";
        return kwilInit(KWIL_VERSION, used->c_str());
    }
    const char* tmp = getenv("TMPDIR");
    const std::string dir = tmp != nullptr && tmp[0] != '\0' ? tmp : "/tmp";
    std::string path = dir + "/kwil-solve.XXXXXX";
    const int fd = mkstemp(&path[0]);
    const size_t len = strlen(kBuiltinOptions);
    const bool written = fd >= 0 && write(fd, kBuiltinOptions, len) == static_cast<ssize_t>(len);
    if (!written) {
        fprintf(stderr,
                "kwil-solve: error: cannot write the built-in option file to a temporary file "
                "in '%s': %s\n",
                dir.c_str(), strerror(errno));
    }
    if (fd >= 0) {
        close(fd);
        if (!written)
            unlink(path.c_str());
    }
    if (!written)
        return nullptr;
    KwilHandle* h = kwilInit(KWIL_VERSION, path.c_str());
    unlink(path.c_str());
    *used = "(built-in defaults)";
    return h;
}

const OptionInfo* findOption(const std::string& name)
{
    for (const OptionInfo& o : kOptions) {
        if (name == o.name)
            return &o;
    }
    return nullptr;
}

// Applies one NAME=VALUE override. 1 on success, else 0 after the error lines.
int applyOverride(KwilHandle* h, const char* text)
{
    const char* eq = strchr(text, '=');
    if (eq == nullptr || eq == text) {
        fprintf(stderr, "kwil-solve: error: -s needs NAME=VALUE, got '%s'\n", text);
        return 0;
    }
    const std::string name(text, eq - text);
    const char* value = eq + 1;
    const OptionInfo* info = findOption(name);
    if (info == nullptr) {
        // Unknown to us; the library has the last word and writes its own line.
        if (kwilSetOpt(h, name.c_str(), 1, 0, 0.0))
            return 1;
        fprintf(stderr, "kwil-solve: error: unknown option '%s'\n", name.c_str());
        return 0;
    }
    char* end = nullptr;
    errno = 0;
    if (info->isInt) {
        const long v = strtol(value, &end, 10);
        if (end == value || *end != '\0' || errno != 0 || v < INT_MIN || v > INT_MAX) {
            fprintf(stderr, "kwil-solve: error: option %s needs an int, got '%s'\n", name.c_str(),
                    value);
            return 0;
        }
        if (kwilSetOpt(h, name.c_str(), 1, static_cast<int>(v), 0.0))
            return 1;
    } else {
        const double v = strtod(value, &end);
        if (end == value || *end != '\0') {
            fprintf(stderr, "kwil-solve: error: option %s needs a number, got '%s'\n", name.c_str(),
                    value);
            return 0;
        }
        if (kwilSetOpt(h, name.c_str(), 0, 0, v))
            return 1;
    }
    fprintf(stderr, "kwil-solve: error: cannot set option %s\n", name.c_str());
    return 0;
}

struct Entry {
    int row;
    int col;
    double re;
    double im;
};

// All entries of A, 0-based, in the library's order. Empty on failure (lines written).
bool readEntries(KwilHandle* h, std::vector<Entry>* entries)
{
    int row = 0, col = 0, pos = 0, end = 0;
    double re = 0.0, im = 0.0;
    for (int first = 1;; first = 0) {
        if (!kwilMatCoefGetNext(h, &row, &col, &pos, &re, &im, &end, first))
            return false;
        if (end)
            return true;
        entries->push_back(Entry{row, col, re, im});
    }
}

// The symmetry word of a Matrix Market banner, "%%MatrixMarket matrix FORMAT FIELD SYMMETRY",
// in lower case; the words are case-insensitive. Empty when the first line is no such banner.
std::string bannerSymmetry(FILE* fp)
{
    char line[1025];
    if (fgets(line, sizeof line, fp) == nullptr)
        return "";
    for (char* c = line; *c != '\0'; ++c) {
        *c = static_cast<char>(tolower(static_cast<unsigned char>(*c)));
    }
    char head[64], object[64], format[64], field[64], symmetry[64];
    if (sscanf(line, "%63s %63s %63s %63s %63s", head, object, format, field, symmetry) != 5 ||
        strcmp(head, "%%matrixmarket") != 0) {
        return "";
    }
    return symmetry;
}

// Adds the mirror image of every off-diagonal entry of a symmetric (a_ji = a_ij), hermitian
// (a_ji = conj a_ij) or skew-symmetric (a_ji = -a_ij) file. Returns 1, or 0 after the lines.
int expandSymmetric(KwilHandle* h, const char* path, bool* expanded)
{
    *expanded = false;
    FILE* fp = fopen(path, "r");
    if (fp == nullptr) {
        fprintf(stderr, "kwil-solve: error: cannot open '%s': %s\n", path, strerror(errno));
        return 0;
    }
    const std::string word = bannerSymmetry(fp);
    fclose(fp);
    char sym = 0;
    if (word == "symmetric") {
        sym = 'S';
    } else if (word == "hermitian") {
        sym = 'H';
    } else if (word == "skew-symmetric") {
        sym = 'K';
    } else if (word != "general") {
        fprintf(stderr, "kwil-solve: error: cannot read the banner of '%s'\n", path);
        return 0;
    }
    if (sym == 0)
        return 1; // general: nothing to mirror

    int comp = 0, n = 0, num = 0;
    std::vector<Entry> entries;
    if (!kwilMatCoefInfo(h, &comp, &n, &num) || !readEntries(h, &entries))
        return 0;
    long total = 0;
    for (const Entry& e : entries)
        total += e.row == e.col ? 1 : 2;
    if (total > INT_MAX) {
        fprintf(stderr, "kwil-solve: error: too many entries to expand '%s'\n", path);
        return 0;
    }
    if (!kwilMatCoefCreate(h, comp, n, static_cast<int>(total)))
        return 0;
    int pos = 0;
    for (const Entry& e : entries) {
        if (!kwilMatCoefSet(h, e.row, e.col, pos++, e.re, e.im, 0))
            return 0;
        if (e.row == e.col)
            continue;
        double re = e.re, im = e.im;
        if (sym == 'H')
            im = -im;
        if (sym == 'K') {
            re = -re;
            im = -im;
        }
        if (!kwilMatCoefSet(h, e.col, e.row, pos++, re, im, 0))
            return 0;
    }
    *expanded = true;
    return 1;
}

// b := A (1, ..., 1), with A's data type.
int makeRhsOnes(KwilHandle* h, int comp, int n)
{
    std::vector<Entry> entries;
    if (!readEntries(h, &entries))
        return 0;
    std::vector<double> re(n, 0.0), im(n, 0.0);
    for (const Entry& e : entries) {
        re[e.row] += e.re;
        im[e.row] += e.im;
    }
    if (!kwilVecFixCreate(h, comp, n, 0.0, 0.0))
        return 0;
    for (int i = 0; i < n; ++i) {
        if (!kwilVecFixSet(h, i, re[i], im[i]))
            return 0;
    }
    return 1;
}

const char* solverName(int solver)
{
    switch (solver) {
    case -1:
        return "none (test run, x = 0)";
    case 0:
        return "BiCGStab";
    case 1:
        return "safe solver (BiCGSafe type)";
    case 2:
        return "BiCGStab(L)";
    case 10:
        return "direct (sparse LU)";
    case 20:
        return "ILU solve only (x = M^-1 b)";
    default:
        return "unknown";
    }
}

int getInt(KwilHandle* h, const char* name)
{
    int v = 0;
    kwilGetOpt(h, name, 1, &v, nullptr);
    return v;
}

void describeSolver(KwilHandle* h, char* text, size_t len)
{
    const int solver = getInt(h, "SOLVER");
    const char* ilu = getInt(h, "ILU_FILLIN") != 0 ? "ILU with fill-in" : "ILU(0)";
    if (solver == 2) {
        snprintf(text, len, "BiCGStab(L), L = %d, %s (SOLVER 2)", getInt(h, "STABL_L"),
                 getInt(h, "ITER_PREILU") != 0 ? ilu : "no preconditioner");
    } else if (solver >= 0 && solver <= 1) {
        snprintf(text, len, "%s, %s (SOLVER %d)", solverName(solver),
                 getInt(h, "ITER_PREILU") != 0 ? ilu : "no preconditioner", solver);
    } else if (solver == 20) {
        snprintf(text, len, "%s, %s (SOLVER 20)", solverName(solver), ilu);
    } else {
        snprintf(text, len, "%s (SOLVER %d)", solverName(solver), solver);
    }
}

// Error of x against the ones vector: max |x_i - 1| and ||x - 1||_2 / sqrt(n).
void onesError(KwilHandle* h, int n, double* maxErr, double* relErr)
{
    double m = 0.0, s = 0.0;
    for (int i = 0; i < n; ++i) {
        double re = 0.0, im = 0.0;
        kwilVecVarGet(h, i, &re, &im);
        const double d = std::hypot(re - 1.0, im);
        if (!(d <= m))
            m = d; // a NaN entry makes the maximum NaN
        s += d * d;
    }
    *maxErr = m;
    *relErr = n > 0 ? std::sqrt(s / n) : 0.0;
}

int run(const Args& args)
{
    std::string optionFile;
    KwilHandle* h = openHandle(args, &optionFile);
    if (h == nullptr) {
        if (!optionFile.empty()) {
            fprintf(stderr, "kwil-solve: error: cannot load the option file %s\n",
                    optionFile.c_str());
        }
        return kExitFailure;
    }
    struct Closer {
        KwilHandle* h;
        ~Closer() { kwilTerm(h); }
    } closer{h};

    if (args.quiet && !kwilSetOpt(h, "TRACE", 1, 0, 0.0))
        return kExitFailure;
    for (const char* o : args.overrides) {
        if (!applyOverride(h, o))
            return kExitFailure;
    }
    if (!kwilMatCoefFileRead(h, args.matrix)) {
        fprintf(stderr, "kwil-solve: error: cannot read the matrix file '%s'\n", args.matrix);
        return kExitFailure;
    }
    bool expanded = false;
    if (args.expand && !expandSymmetric(h, args.matrix, &expanded)) {
        fprintf(stderr, "kwil-solve: error: cannot expand the matrix of '%s'\n", args.matrix);
        return kExitFailure;
    }
    int comp = 0, n = 0, entries = 0;
    if (!kwilMatCoefInfo(h, &comp, &n, &entries))
        return kExitFailure;
    if (args.rhs != nullptr) {
        if (!kwilVecFixFileRead(h, args.rhs)) {
            fprintf(stderr, "kwil-solve: error: cannot read the right-hand side file '%s'\n",
                    args.rhs);
            return kExitFailure;
        }
    } else if (!makeRhsOnes(h, comp, n)) {
        fprintf(stderr, "kwil-solve: error: cannot form b = A (1, ..., 1)\n");
        return kExitFailure;
    }

    const auto t0 = std::chrono::steady_clock::now();
    const int solved = kwilSolv(h);
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();

    double rel = NAN, abs = NAN;
    const int checked = solved ? kwilCheckResult(h, &rel, &abs) : 0;
    int written = 1;
    if (solved && args.out != nullptr)
        written = kwilVecVarFileWrite(h, args.out);

    char solver[128];
    describeSolver(h, solver, sizeof solver);
    double limit = 0.0;
    kwilGetOpt(h, "CHECK_RESULT_LIM", 0, nullptr, &limit);
    printf("kwil-solve summary\n");
    printf("  matrix    %s: %s, size %d, entries %d%s\n", args.matrix, comp ? "complex" : "real", n,
           entries, expanded ? " (symmetric part mirrored)" : "");
    printf("  rhs       %s\n", args.rhs != nullptr ? args.rhs : "b = A (1, ..., 1)");
    printf("  options   %s\n", optionFile.c_str());
    printf("  solver    %s\n", solver);
    printf("  result    %s\n", !solved ? "FAILED" : checked ? "solved" : "solved, check FAILED");
    if (solved) {
        printf("  residual  rel %.4e  abs %.4e  (limit %.4e)\n", rel, abs, limit);
        if (args.rhs == nullptr) {
            double maxErr = 0.0, rmsErr = 0.0;
            onesError(h, n, &maxErr, &rmsErr);
            printf("  error     max |x_i - 1| %.4e  rms %.4e\n", maxErr, rmsErr);
        }
    }
    printf("  time      %.6f s\n", seconds);
    if (solved && args.out != nullptr && written)
        printf("  solution  %s\n", args.out);
    fflush(stdout);

    if (!solved) {
        fprintf(stderr, "kwil-solve: error: the solve failed\n");
        return kExitFailure;
    }
    if (!checked) {
        fprintf(stderr, "kwil-solve: error: the result check failed\n");
        return kExitFailure;
    }
    if (!written) {
        fprintf(stderr, "kwil-solve: error: cannot write the solution to '%s'\n", args.out);
        return kExitFailure;
    }
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    Args args;
    const int status = parseArgs(argc, argv, &args);
    if (status >= 0)
        return status;
    return run(args);
}
