// Times whole solves of two or more builds of libkwil.so in one process, alternating solve by
// solve, so that every build sees the same spells of a host whose speed moves from minute to
// minute. Each build is loaded apart (its own copy of every internal symbol) through the public
// interface only; each gets its own handle with A and b read once.
//
// A build given as LIB@OPTIONS uses that option file instead of the common one, so that one
// build can also be timed against itself with other options (THREADS 1 and 2, say): copy the
// library to a second name, since a path loaded twice is one library.
//
// Build: g++ -O2 -fopenmp -Iapi bench/tools/ab_libs.cpp -ldl -o ab_libs
// Usage: ab_libs OPTION_FILE A.mtx b.mtx ROUNDS libkwil.so[@OPTION_FILE]...
#include <dlfcn.h>
#include <omp.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "kwil.h"

namespace {

struct Build {
    std::string name;
    decltype(&kwilSolv) solve;
    KwilHandle* handle;
    std::vector<double> seconds;
};

template <class F> F symbol(void* lib, const char* name)
{
    auto f = reinterpret_cast<F>(dlsym(lib, name));
    if (f == nullptr) {
        std::fprintf(stderr, "missing %s\n", name);
        std::exit(1);
    }
    return f;
}

// Loads one build (LIB or LIB@OPTIONS) and gives it a handle with A and b read; exits on any
// failure.
Build load(const std::string& name, const char* commonOptions, const char* a, const char* b)
{
    const size_t at = name.find('@');
    const std::string path = name.substr(0, at);
    const std::string options = at == std::string::npos ? commonOptions : name.substr(at + 1);
    void* lib = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_DEEPBIND);
    if (lib == nullptr) {
        std::fprintf(stderr, "%s\n", dlerror());
        std::exit(1);
    }
    auto init = symbol<decltype(&kwilInit)>(lib, "kwilInit");
    auto readA = symbol<decltype(&kwilMatCoefFileRead)>(lib, "kwilMatCoefFileRead");
    auto readB = symbol<decltype(&kwilVecFixFileRead)>(lib, "kwilVecFixFileRead");
    Build build{name,
                symbol<decltype(&kwilSolv)>(lib, "kwilSolv"),
                init(KWIL_VERSION, options.c_str()),
                {}};
    if (build.handle == nullptr || readA(build.handle, a) == 0 || readB(build.handle, b) == 0) {
        std::fprintf(stderr, "%s: could not set up the system\n", name.c_str());
        std::exit(1);
    }
    return build;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 6) {
        std::fprintf(stderr,
                     "usage: ab_libs OPTION_FILE A.mtx b.mtx ROUNDS libkwil.so[@OPTION_FILE]...\n");
        return 2;
    }
    const int rounds = std::atoi(argv[4]);
    std::vector<Build> builds;
    for (int k = 5; k < argc; ++k)
        builds.push_back(load(argv[k], argv[1], argv[2], argv[3]));
    for (int r = 0; r < rounds; ++r) {
        for (Build& b : builds) {
            const double start = omp_get_wtime();
            if (b.solve(b.handle) == 0)
                std::fprintf(stderr, "%s: the solve failed\n", b.name.c_str());
            b.seconds.push_back(omp_get_wtime() - start);
        }
    }
    for (const Build& b : builds) {
        std::vector<double> sorted = b.seconds;
        std::sort(sorted.begin(), sorted.end());
        std::printf("%s: least %.3f ms, median %.3f ms, in order:", b.name.c_str(),
                    1e3 * sorted.front(), 1e3 * sorted[sorted.size() / 2]);
        for (double s : b.seconds)
            std::printf(" %.3f", 1e3 * s);
        std::printf("\n");
    }
    return 0;
}
