// Differential fuzzing of the data-line scanner: for every line format the direct path must
// make sscanf's accept/reject decision and give its values bit for bit.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "file/line_scan.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size > 1023)
        return 0; // the readers hand over at most 1023 characters
    char line[1024];
    memcpy(line, data, size);
    line[size] = '\0';
    static const int shapes[5][2] = {{2, 0}, {2, 1}, {2, 2}, {0, 1}, {0, 2}};
    const bool fastOk = kwil::lineScanFastOk();
    if (!fastOk)
        abort(); // the fuzzer runs in the C locale, rounding to nearest
    for (const auto& s : shapes) {
        int ia[2] = {0, 0}, ib[2] = {0, 0};
        double da[2] = {0, 0}, db[2] = {0, 0};
        const bool a = kwil::scanLine(line, s[0], ia, s[1], da, true);
        const bool b = kwil::scanLineReference(line, s[0], ib, s[1], db);
        if (a != b)
            abort();
        if (a && (memcmp(ia, ib, sizeof ia) != 0 || memcmp(da, db, sizeof da) != 0))
            abort();
    }
    char probe[2];
    if (kwil::lineHasToken(line) != (sscanf(line, "%1s", probe) == 1))
        abort();
    return 0;
}
