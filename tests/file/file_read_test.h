// A fixture for the file readers: writes a text to a file, reads it with Read and checks the
// error lines of a failed read.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "support/support.h"

template <class T, T* (*Read)(KwilHandle*, const char*), void (*Delete)(KwilHandle*, T*)>
class FileReadTest : public testing::Test {
  protected:
    void SetUp() override { h = kwiltest::makeHandle(dir); }
    void TearDown() override { kwilTerm(h); }

    // Reads text as a file; err holds the error lines.
    T* read(const std::string& text, std::string* err = nullptr)
    {
        path = dir.write("read.mtx", text);
        kwiltest::Capture cap;
        T* object = Read(h, path.c_str());
        cap.take();
        if (err != nullptr)
            *err = cap.err();
        return object;
    }
    // Expects the read to fail with exactly these error lines ("%s" stands for the path).
    void expectFail(const std::string& text, std::string lines)
    {
        std::string err;
        T* object = read(text, &err);
        EXPECT_EQ(object, nullptr) << text;
        Delete(h, object);
        for (size_t at; (at = lines.find("%s")) != std::string::npos;)
            lines.replace(at, 2, path);
        EXPECT_EQ(err, lines) << text;
    }

    kwiltest::TempDir dir;
    KwilHandle* h = nullptr;
    std::string path;
};
