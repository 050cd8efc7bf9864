// Data-line scanning with a direct path for plain decimal numbers and sscanf for the rest.
//
// Why the direct path gives what sscanf gives: it accepts a line only when it consists of
// the six C-locale blanks and tokens of the forms [+-]?d{1,9} (an int) and
// [+-]?(d+(.d*)?|.d+)([eE][+-]?d+)? (a double), each followed by a blank or the end, in the
// order the format asks, with nothing after the last one. On such a line sscanf's "%d" reads
// exactly the int token (nine digits cannot overflow), its "%lg" collects exactly the double
// token and converts it with strtod, the blanks between are skipped, and the "%1s" probe meets
// the end, so sscanf returns the full count. The direct path converts a double token with a
// correctly rounded conversion (std::from_chars, or strtod itself when that reports a range
// error), which under round-to-nearest equals strtod's result bit for bit; callers use it only
// when the rounding mode is to nearest and the decimal point is ".". Every other line, and so
// every line that sscanf would reject, is handed to sscanf itself.
#include "file/line_scan.h"

#include <cfenv>
#include <charconv>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace kwil {

namespace {

bool isBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

const char* skipBlanks(const char* p)
{
    while (isBlank(*p))
        ++p;
    return p;
}

// An int token of at most nine digits; null when the text is anything else.
const char* plainInt(const char* p, int* value)
{
    bool negative = false;
    if (*p == '+' || *p == '-')
        negative = *p++ == '-';
    const char* digits = p;
    int v = 0;
    while (isDigit(*p) && p - digits < 9)
        v = v * 10 + (*p++ - '0');
    if (p == digits || !(isBlank(*p) || *p == '\0'))
        return nullptr; // a tenth digit too
    *value = negative ? -v : v;
    return p;
}

// A plain decimal double token; null when the text is anything else.
const char* plainDouble(const char* p, double* value)
{
    const char* token = p;
    if (*p == '+' || *p == '-')
        ++p;
    const char* body = p;
    long mantissaDigits = 0;
    while (isDigit(*p))
        ++p, ++mantissaDigits;
    if (*p == '.') {
        ++p;
        while (isDigit(*p))
            ++p, ++mantissaDigits;
    }
    if (mantissaDigits == 0)
        return nullptr;
    if (*p == 'e' || *p == 'E') {
        ++p;
        if (*p == '+' || *p == '-')
            ++p;
        if (!isDigit(*p))
            return nullptr;
        while (isDigit(*p))
            ++p;
    }
    if (!(isBlank(*p) || *p == '\0'))
        return nullptr;
    double v = 0.0;
    const std::from_chars_result r = std::from_chars(body, p, v);
    if (r.ec == std::errc() && r.ptr == p) {
        *value = *token == '-' ? -v : v;
        return p;
    }
    // Overflow and underflow: strtod gives the value sscanf stores.
    char* end = nullptr;
    v = strtod(token, &end);
    if (end != p)
        return nullptr;
    *value = v;
    return p;
}

bool scanFast(const char* line, int nInt, int* ints, int nDbl, double* dbls)
{
    const char* p = line;
    for (int i = 0; i < nInt; ++i) {
        p = plainInt(skipBlanks(p), &ints[i]);
        if (p == nullptr)
            return false;
    }
    for (int i = 0; i < nDbl; ++i) {
        p = plainDouble(skipBlanks(p), &dbls[i]);
        if (p == nullptr)
            return false;
    }
    return *skipBlanks(p) == '\0';
}

} // namespace

bool lineScanFastOk()
{
    const lconv* lc = localeconv();
    return lc != nullptr && strcmp(lc->decimal_point, ".") == 0 && fegetround() == FE_TONEAREST;
}

bool scanLineReference(const char* line, int nInt, int* ints, int nDbl, double* dbls)
{
    char probe[2];
    if (nInt == 2 && nDbl == 0)
        return sscanf(line, "%d %d %1s", &ints[0], &ints[1], probe) == 2;
    if (nInt == 2 && nDbl == 1) {
        return sscanf(line, "%d %d %lg %1s", &ints[0], &ints[1], &dbls[0], probe) == 3;
    }
    if (nInt == 2 && nDbl == 2) {
        return sscanf(line, "%d %d %lg %lg %1s", &ints[0], &ints[1], &dbls[0], &dbls[1], probe) ==
               4;
    }
    if (nInt == 0 && nDbl == 1)
        return sscanf(line, "%lg %1s", &dbls[0], probe) == 1;
    if (nInt == 0 && nDbl == 2)
        return sscanf(line, "%lg %lg %1s", &dbls[0], &dbls[1], probe) == 2;
    return false;
}

bool scanLine(const char* line, int nInt, int* ints, int nDbl, double* dbls, bool fastOk)
{
    if (fastOk && scanFast(line, nInt, ints, nDbl, dbls))
        return true;
    return scanLineReference(line, nInt, ints, nDbl, dbls);
}

bool lineHasToken(const char* line)
{
    const char* p = skipBlanks(line);
    if (*p == '\0')
        return false;
    // A byte outside ASCII may be a blank in the current locale: let sscanf decide.
    if (static_cast<unsigned char>(*p) < 0x80)
        return true;
    char probe[2];
    return sscanf(line, "%1s", probe) == 1;
}

} // namespace kwil
