// Reading speed of a coordinate matrix file: generates a file of N entries (default ten
// million) as the library writes them, reads it with comFileMatRead and reports MB/s and
// entries/s; for comparison it also scans the same lines with sscanf alone.
//   kwil_bench_file_read [entries] [file]   (the file is made when missing and kept)
#include <sys/stat.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <random>
#include <string>

#include "file/file.h"
#include "file/line_scan.h"

namespace {

double seconds()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

long fileBytes(const std::string& path)
{
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? static_cast<long>(st.st_size) : -1;
}

// A matrix of order n = entries / 10 with ten entries per row and values of every magnitude.
bool generate(const std::string& path, long entries)
{
    FILE* f = fopen(path.c_str(), "w");
    if (f == nullptr)
        return false;
    const long n = entries / 10 > 0 ? entries / 10 : 1;
    std::mt19937_64 rng(1);
    std::uniform_real_distribution<double> mant(-1.0, 1.0);
    std::uniform_int_distribution<int> expo(-30, 30);
    fprintf(f, "%%%%MatrixMarket matrix coordinate real general\n%% generated\n%ld %ld %ld\n", n, n,
            entries);
    for (long k = 0; k < entries; ++k) {
        const long i = k / 10 % n + 1;
        const long j = (i * 7919 + k % 10 * 104729) % n + 1;
        fprintf(f, "%ld %ld %.20e\n", i, j, mant(rng) * std::pow(10.0, expo(rng)));
    }
    return fclose(f) == 0;
}

// fgets and sscanf alone over the data lines: the speed of the plain formats.
double sscanfSeconds(const std::string& path, long* lines, double* cpu)
{
    FILE* f = fopen(path.c_str(), "r");
    char line[1024];
    int ij[2];
    double v[1];
    const double t0 = seconds();
    const clock_t c0 = clock();
    *lines = 0;
    for (int skip = 3; skip > 0 && fgets(line, sizeof line, f) != nullptr; --skip) {
    }
    while (fgets(line, sizeof line, f) != nullptr)
        *lines += kwil::scanLineReference(line, 2, ij, 1, v);
    const double t = seconds() - t0;
    *cpu = static_cast<double>(clock() - c0) / CLOCKS_PER_SEC;
    fclose(f);
    return t;
}

} // namespace

int main(int argc, char** argv)
{
    const long entries = argc > 1 ? atol(argv[1]) : 10000000L;
    const std::string path =
        argc > 2 ? argv[2] : "/tmp/kwil_bench_" + std::to_string(entries) + ".mtx";
    if (fileBytes(path) < 0) {
        printf("generating %s (%ld entries)\n", path.c_str(), entries);
        if (!generate(path, entries)) {
            printf("cannot write %s\n", path.c_str());
            return 1;
        }
    }
    const double mb = fileBytes(path) / 1e6;
    int intOpt[COM_OPT_INT_NUM] = {};
    double dblOpt[COM_OPT_DBL_NUM] = {};
    KwilHandle handle{intOpt, dblOpt, nullptr, nullptr, nullptr};

    double best = 1e300, bestCpu = 1e300;
    for (int rep = 0; rep < 3; ++rep) {
        const double t0 = seconds();
        const clock_t c0 = clock();
        ComLinMat* m = comFileMatRead(&handle, path.c_str());
        const double t = seconds() - t0;
        const double cpu = static_cast<double>(clock() - c0) / CLOCKS_PER_SEC;
        if (cpu < bestCpu)
            bestCpu = cpu;
        if (m == nullptr || m->dataNum != entries) {
            printf("read failed\n");
            return 1;
        }
        comLinMatDelete(&handle, m);
        if (t < best)
            best = t;
    }
    long lines = 0;
    double cs = 0.0;
    const double ts = sscanfSeconds(path, &lines, &cs);
    printf("file %s: %.1f MB, %ld entries\n", path.c_str(), mb, entries);
    printf("comFileMatRead (best of 3): %.3f s  %.1f MB/s  %.2f M entries/s\n", best, mb / best,
           entries / best / 1e6);
    printf("  processor time (best):    %.3f s  %.1f MB/s  %.2f M entries/s\n", bestCpu,
           mb / bestCpu, entries / bestCpu / 1e6);
    printf("fgets + sscanf alone:       %.3f s  %.1f MB/s  %.2f M entries/s (%ld lines)\n", ts,
           mb / ts, lines / ts / 1e6, lines);
    printf("  processor time:           %.3f s  %.1f MB/s  %.2f M entries/s\n", cs, mb / cs,
           lines / cs / 1e6);
    return 0;
}
