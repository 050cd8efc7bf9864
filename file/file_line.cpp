// Line handling shared by the matrix and vector file readers.
#include "file/file.h"

#include <cstdlib>
#include <cstring>

#include "file/line_scan.h"
#include "file/mmio.h"

int getLine(FILE* stream, char* buf, int len)
{
    while (fgets(buf, len, stream) != nullptr) {
        if (kwil::lineHasToken(buf))
            return 1;
    }
    return 0;
}

int readSize(FILE* stream, int* first, int* second, int* third)
{
    char line[1024];
    do {
        if (getLine(stream, line, sizeof line) == 0)
            return 0;
    } while (line[0] == '%');
    char probe[2];
    if (third != nullptr)
        return sscanf(line, "%d %d %d %1s", first, second, third, probe) == 3;
    return sscanf(line, "%d %d %1s", first, second, probe) == 2;
}

void* dataFormatErr(KwilHandle* handle, const char* type, const char* place, const char* fileName,
                    char* line)
{
    const size_t n = strlen(line);
    if (n > 0 && line[n - 1] == '\n')
        line[n - 1] = '\0';
    comErr(handle, "Invalid %s data format in %s file='%s'", type, place, fileName);
    return comErrNull(handle, "Invalid data='%s'", line);
}

namespace kwil {

ComTypeText::ComTypeText(const char code[4]) : text_(mm_typecode_to_str(code)) {}

ComTypeText::~ComTypeText()
{
    free(text_);
}

} // namespace kwil
