// Fuzzes the banner reader with the size and entry readers on the rest of the input, and
// checks that a banner written from any accepted code reads back to the same code.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "file/mmio.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    FILE* f = fmemopen(const_cast<uint8_t*>(data), size, "r");
    if (f == nullptr)
        return 0;
    MM_typecode code;
    const int ret = mm_read_banner(f, &code);
    if (ret != 0 && ret != 12 && ret != 14 && ret != 15)
        abort();
    char* text = mm_typecode_to_str(code);
    if (ret == 0) {
        if (text == nullptr)
            abort(); // every accepted code has words
        (void)mm_is_valid(code);
        // Round trip through the writer.
        char buf[256];
        FILE* w = fmemopen(buf, sizeof buf, "w+");
        if (w == nullptr || mm_write_banner(w, code) != 0)
            abort();
        rewind(w);
        MM_typecode back;
        if (mm_read_banner(w, &back) != 0 || memcmp(back, code, 4) != 0)
            abort();
        fclose(w);
        int m = 0, n = 0, nz = 0;
        if (code[1] == 'A') {
            if (mm_read_mtx_array_size(f, &m, &n) == 0) {
                double v[2];
                int i = 0, j = 0;
                (void)mm_read_mtx_crd_entry(f, &i, &j, &v[0], &v[1], code);
            }
        } else if (mm_read_mtx_crd_size(f, &m, &n, &nz) == 0) {
            int I[4], J[4];
            double v[8];
            const int k = nz < 0 ? 0 : (nz > 4 ? 4 : nz);
            (void)mm_read_mtx_crd_data(f, m, n, k, I, J, v, code);
        }
    } else {
        int m = 0, n = 0, nz = 0;
        (void)mm_read_mtx_crd_size(f, &m, &n, &nz);
    }
    free(text);
    fclose(f);
    return 0;
}
