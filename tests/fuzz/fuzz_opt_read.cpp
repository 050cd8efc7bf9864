// Fuzzes the option file reader; the options read are saved and must read back equal.
#include <cstdint>

#include "common/com.h"
#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const std::string in = kwilfuzz::scratch("opt_in.ini");
    static const std::string out = kwilfuzz::scratch("opt_out.ini");
    kwilfuzz::writeFile(in, data, size);
    KwilHandle h{nullptr, nullptr, nullptr, nullptr, nullptr};
    const int ok = comOptInit(&h, in.c_str());
    if (h.intOpt == nullptr || h.dblOpt == nullptr)
        abort();
    h.intOpt[OPT_TRACE] = 0;
    if (comOptSave(&h, out.c_str()) != 1)
        abort();
    KwilHandle back{nullptr, nullptr, nullptr, nullptr, nullptr};
    if (comOptInit(&back, out.c_str()) != ok)
        abort();
    for (int k = 0; k < COM_OPT_INT_NUM; ++k) {
        if (h.intOpt[k] != back.intOpt[k])
            abort();
    }
    for (int k = 0; k < COM_OPT_DBL_NUM; ++k) {
        const double a = h.dblOpt[k], b = back.dblOpt[k];
        if (a != b && !(a != a && b != b))
            abort();
    }
    comFree(nullptr, h.intOpt);
    comFree(nullptr, h.dblOpt);
    comFree(nullptr, back.intOpt);
    comFree(nullptr, back.dblOpt);
    return 0;
}
