// Helpers shared by the test suites.
#pragma once

#include <string>
#include <vector>

#include "common/com.h"

namespace kwiltest {

// Captures what the library writes to stdout and stderr between construction and take().
class Capture {
  public:
    Capture();
    ~Capture();
    // Ends the capture; out() and err() then hold the texts.
    void take();
    const std::string& out() const { return out_; }
    const std::string& err() const { return err_; }
    std::vector<std::string> outLines() const;
    std::vector<std::string> errLines() const;

  private:
    bool active_;
    std::string out_;
    std::string err_;
};

// Splits a text into its lines (without the newlines).
std::vector<std::string> lines(const std::string& text);

// A fresh directory under the system temporary directory, removed with its files at the end.
class TempDir {
  public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    // Path of a file name inside the directory.
    std::string path(const std::string& name) const;
    // Writes text to the file name inside the directory; returns its path.
    std::string write(const std::string& name, const std::string& text) const;
    const std::string& dir() const { return dir_; }

  private:
    std::string dir_;
};

// The .mtx files in the folder and in its direct subfolders (real/, complex/), sorted by path.
std::vector<std::string> matrixFiles(const std::string& dir);

// The folder of the optional real-matrix tests, from KWIL_MATRIX_DIR; empty when unset.
std::string matrixDir();

// Reads a whole file; empty when it cannot be read.
std::string readFile(const std::string& path);

// Option file text: "FILE_VER 1" and the given extra lines.
std::string optionText(const std::string& extra = "");

// A handle from an option file holding "FILE_VER 1" and extra; fails the test when null.
KwilHandle* makeHandle(const TempDir& dir, const std::string& extra = "");

// Counts comAlloc calls made by fn() and checks, for each k, that making the k-th one fail
// gives fn() == false with no block leaked. fn is called once per k plus once to count.
// Returns the number of failure points exercised.
template <class Fn> long sweepAllocFailures(Fn fn);

} // namespace kwiltest

#include "support/sweep.inl"
