// Helpers of the fuzz targets: a quiet handle and a scratch file per process.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "common/com.h"

namespace kwilfuzz {

// A handle whose options hold TRACE 0 (no trace lines) and nothing else.
inline KwilHandle* quietHandle()
{
    static int intOpt[COM_OPT_INT_NUM] = {};
    static double dblOpt[COM_OPT_DBL_NUM] = {};
    static KwilHandle handle{intOpt, dblOpt, nullptr, nullptr, nullptr};
    return &handle;
}

// Path of a scratch file of this process, in memory when /dev/shm exists.
inline std::string scratch(const char* name)
{
    const char* dir = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
    return std::string(dir) + "/kwilfuzz." + std::to_string(getpid()) + "." + name;
}

// Writes the bytes to path; aborts when that is impossible (the run would test nothing).
inline void writeFile(const std::string& path, const uint8_t* data, size_t size)
{
    FILE* f = fopen(path.c_str(), "wb");
    if (f == nullptr || fwrite(data, 1, size, f) != size || fclose(f) != 0)
        abort();
}

} // namespace kwilfuzz
