// Log lines: trace, warning, error and assertion, each a tag, the text and a newline.
#include "common/com.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace {

void writeLine(FILE* stream, const char* tag, const char* format, va_list args)
{
    fputs(tag, stream);
    vfprintf(stream, format, args);
    fputc('\n', stream);
}

} // namespace

bool comTraceOn(const KwilHandle* handle)
{
    return handle == nullptr || handle->intOpt == nullptr || handle->intOpt[OPT_TRACE] != 0;
}

void comTraceBegin(const char* format, va_list args)
{
    fputs("KWILTRC: ", stdout);
    vprintf(format, args);
}

void comTrace(const KwilHandle* handle, const char* format, ...)
{
    if (!comTraceOn(handle))
        return;
    va_list args;
    va_start(args, format);
    writeLine(stdout, "KWILTRC: ", format, args);
    va_end(args);
    fflush(stdout);
}

void comWarn(const KwilHandle*, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    writeLine(stderr, "KWILWRN: ", format, args);
    va_end(args);
}

int comErr(const KwilHandle*, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    writeLine(stderr, "KWILERR: ", format, args);
    va_end(args);
    return 0;
}

void* comErrNull(const KwilHandle*, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    writeLine(stderr, "KWILERR: ", format, args);
    va_end(args);
    return nullptr;
}

void comAssert(const KwilHandle*, bool cond, const char* format, ...)
{
    if (cond)
        return;
    va_list args;
    va_start(args, format);
    writeLine(stderr, "KWILASR: ", format, args);
    va_end(args);
    exit(-1);
}
