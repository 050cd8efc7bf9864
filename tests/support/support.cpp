// Helpers shared by the test suites.
#include "support/support.h"

#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace kwiltest {

Capture::Capture() : active_(true)
{
    fflush(stdout);
    fflush(stderr);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
}

Capture::~Capture()
{
    take();
}

void Capture::take()
{
    if (!active_)
        return;
    active_ = false;
    fflush(stdout);
    fflush(stderr);
    out_ = testing::internal::GetCapturedStdout();
    err_ = testing::internal::GetCapturedStderr();
}

std::vector<std::string> Capture::outLines() const
{
    return lines(out_);
}
std::vector<std::string> Capture::errLines() const
{
    return lines(err_);
}

std::vector<std::string> lines(const std::string& text)
{
    std::vector<std::string> result;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line))
        result.push_back(line);
    return result;
}

TempDir::TempDir()
{
    const char* base = getenv("TMPDIR");
    std::string templ = std::string(base != nullptr ? base : "/tmp") + "/kwiltest.XXXXXX";
    std::vector<char> buf(templ.begin(), templ.end());
    buf.push_back('\0');
    if (mkdtemp(buf.data()) == nullptr)
        ADD_FAILURE() << "mkdtemp failed";
    dir_ = buf.data();
}

TempDir::~TempDir()
{
    const std::string cmd = "rm -rf '" + dir_ + "'";
    if (system(cmd.c_str()) != 0)
        ADD_FAILURE() << "cannot remove " << dir_;
}

std::string TempDir::path(const std::string& name) const
{
    return dir_ + "/" + name;
}

std::string TempDir::write(const std::string& name, const std::string& text) const
{
    const std::string p = path(name);
    std::ofstream(p, std::ios::binary) << text;
    return p;
}

std::string readFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

std::string optionText(const std::string& extra)
{
    return "FILE_VER 1\n" + extra;
}

KwilHandle* makeHandle(const TempDir& dir, const std::string& extra)
{
    const std::string p = dir.write("kwil_test.ini", optionText(extra));
    KwilHandle* h = kwilInit(1, p.c_str());
    EXPECT_NE(h, nullptr);
    return h;
}

std::vector<std::string> matrixFiles(const std::string& dir)
{
    std::vector<std::string> out;
    std::vector<std::string> dirs{dir};
    for (size_t d = 0; d < dirs.size(); ++d) {
        DIR* h = opendir(dirs[d].c_str());
        if (h == nullptr)
            continue;
        while (dirent* e = readdir(h)) {
            const std::string name = e->d_name;
            if (name == "." || name == "..")
                continue;
            const std::string path = dirs[d] + "/" + name;
            struct stat st;
            if (stat(path.c_str(), &st) != 0)
                continue;
            if (S_ISDIR(st.st_mode) && d == 0) {
                dirs.push_back(path);
            } else if (S_ISREG(st.st_mode) && name.size() > 4 &&
                       name.compare(name.size() - 4, 4, ".mtx") == 0) {
                out.push_back(path);
            }
        }
        closedir(h);
    }
    std::sort(out.begin(), out.end());
    return out;
}

std::string matrixDir()
{
    const char* dir = std::getenv("KWIL_MATRIX_DIR");
    return dir != nullptr ? dir : "";
}

} // namespace kwiltest
