// The data-line scanner against sscanf: the same decision and the same values, bit for bit,
// on hand-picked lines and on a large set of generated ones.
#include "file/line_scan.h"

#include <gtest/gtest.h>

#include <cfenv>
#include <clocale>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>

#include "file/file.h"
#include "support/support.h"

namespace {

const int shapes[5][2] = {{2, 0}, {2, 1}, {2, 2}, {0, 1}, {0, 2}};

// Compares the scanner with sscanf on one line for every format; returns the number of
// formats that accepted it.
int compare(const std::string& line)
{
    int accepted = 0;
    for (const auto& s : shapes) {
        int ia[2] = {0, 0}, ib[2] = {0, 0};
        double da[2] = {0, 0}, db[2] = {0, 0};
        const bool a = kwil::scanLine(line.c_str(), s[0], ia, s[1], da, true);
        const bool b = kwil::scanLineReference(line.c_str(), s[0], ib, s[1], db);
        EXPECT_EQ(a, b) << "[" << line << "] ints " << s[0] << " doubles " << s[1];
        if (a && b) {
            ++accepted;
            EXPECT_EQ(memcmp(ia, ib, sizeof ia), 0) << "[" << line << "]";
            EXPECT_EQ(memcmp(da, db, sizeof da), 0) << "[" << line << "]";
        }
    }
    char probe[2];
    EXPECT_EQ(kwil::lineHasToken(line.c_str()), sscanf(line.c_str(), "%1s", probe) == 1)
        << "[" << line << "]";
    return accepted;
}

// A token from a grammar that mixes plain numbers with everything sscanf treats specially.
std::string token(std::mt19937_64& rng)
{
    auto pick = [&](int n) { return static_cast<int>(rng() % static_cast<uint64_t>(n)); };
    auto digits = [&](int maxLen) {
        std::string d;
        for (int n = pick(maxLen + 1); n > 0; --n)
            d += static_cast<char>('0' + pick(10));
        return d;
    };
    static const char* specials[] = {
        "inf",        "-inf",       "nan",         "NAN(12)",
        "infinity",   "0x1p3",      "0x",          "-0x1.8P-2",
        "e5",         ".",          "-",           "+",
        "1e",         "1e+",        ".e1",         "1.5.3",
        "2147483647", "2147483648", "-2147483649", "99999999999999999999",
        "1e309",      "-1e-400",    "4.9e-324",    "2.4703282292062327e-324",
        "1e-310",     "00000000012"};
    switch (pick(8)) {
    case 0:
        return specials[pick(sizeof specials / sizeof *specials)];
    case 1: { // int of any length
        const char* sign = pick(3) == 0 ? (pick(2) ? "-" : "+") : "";
        std::string d = digits(12);
        return sign + (d.empty() ? "7" : d);
    }
    case 2: { // printf output of a random double
        uint64_t bits = rng();
        double v;
        memcpy(&v, &bits, sizeof v);
        char buf[64];
        const char* fmt[] = {"%.20e", "%.17g", "%g", "%.3f", "%a", "%.25e"};
        snprintf(buf, sizeof buf, fmt[pick(6)], v);
        return buf;
    }
    default: { // a decimal number of random shape, sometimes with a letter stuck to it
        std::string t;
        if (pick(3) == 0)
            t += pick(2) ? '-' : '+';
        t += digits(25);
        if (pick(2))
            t += '.' + digits(25);
        if (pick(2)) {
            t += pick(2) ? 'e' : 'E';
            if (pick(2))
                t += pick(2) ? '-' : '+';
            t += digits(4);
        }
        if (pick(12) == 0)
            t += "xe.,"[pick(4)];
        return t.empty() ? "0" : t;
    }
    }
}

std::string blanks(std::mt19937_64& rng, bool atLeastOne)
{
    static const char set[] = {' ', ' ', ' ', '\t', '\v', '\f', '\r'};
    std::string b;
    int n = static_cast<int>(rng() % 3) + (atLeastOne ? 1 : 0);
    for (; n > 0; --n)
        b += set[rng() % sizeof set];
    return b;
}

} // namespace

TEST(LineScan, FastPathIsUsableInTheCLocale)
{
    EXPECT_TRUE(kwil::lineScanFastOk());
}

TEST(LineScan, HandPickedLines)
{
    const char* lines[] = {
        "1 2\n",
        "1 2 3.5\n",
        "1 2 3.5 -4\n",
        "3.5\n",
        "3.5 4\n",
        " \t1\v2\f3.25\r\n",
        "1 2 3.5 x\n",
        "1 2 1e\n",
        "1 2 1e+\n",
        "1 2 1e5x\n",
        "1 2 .5\n",
        "1 2 5.\n",
        "1 2 .\n",
        "1 2 -.e3\n",
        "1 2 0x1p3\n",
        "1 2 inf\n",
        "1 2 -nan\n",
        "1 2 infinity\n",
        "1 2 1e309\n",
        "1 2 -1e-400\n",
        "1 2 4.9e-324\n",
        "1 2 2.2250738585072011e-308\n",
        "+1 -2 +3\n",
        "-0 -0 -0\n",
        "2147483647 -2147483648 1\n",
        "2147483648 1 1\n",
        "99999999999999999999 1 1\n",
        "000000001 1 1\n",
        "0000000001 1 1\n",
        "1 2 3 % c\n",
        "12abc 1 1\n",
        "1,5\n",
        "1 2 3",
        "",
        "\n",
        "%\n",
        "1 2 \xa0\n",
        "1 2 3\xc3\xa9\n",
        "1\x00 2 3\n",
        "1 2 0.1000000000000000055511151231257827021181583404541015625\n",
        "1 2 1.00000000000000005551e-01\n",
        "1 2 9007199254740993\n",
    };
    int accepted = 0;
    for (const char* l : lines)
        accepted += compare(l);
    EXPECT_GT(accepted, 10); // the set exercises the direct path too
}

TEST(LineScan, GeneratedLinesAgreeWithSscanf)
{
    std::mt19937_64 rng(20240611);
    int accepted = 0;
    for (int n = 0; n < 60000; ++n) {
        std::string line = blanks(rng, false);
        const int tokens = static_cast<int>(rng() % 5);
        for (int t = 0; t < tokens; ++t)
            line += token(rng) + blanks(rng, t + 1 < tokens);
        if (rng() % 2)
            line += '\n';
        accepted += compare(line);
        if (HasFailure())
            break;
    }
    EXPECT_GT(accepted, 12000);
}

TEST(LineScan, WrittenValuesReadBackBitForBit)
{
    // The writers' "%.20e" output of any double converts back to the same bits.
    std::mt19937_64 rng(7);
    for (int n = 0; n < 30000; ++n) {
        uint64_t bits = rng();
        if (n % 4 == 0)
            bits &= 0x800fffffffffffffULL; // subnormals and zeros
        double v;
        memcpy(&v, &bits, sizeof v);
        if (v != v || v - v != 0)
            continue; // NaN and infinity are not plain numbers
        char line[128];
        snprintf(line, sizeof line, "%d %d %.20e\n", n, n + 1, v);
        int ij[2];
        double d[1];
        ASSERT_TRUE(kwil::scanLine(line, 2, ij, 1, d, true)) << line;
        ASSERT_EQ(memcmp(&d[0], &v, sizeof v), 0) << line;
        compare(line);
    }
}

TEST(LineScan, OtherRoundingModesAreLeftToSscanf)
{
    ASSERT_EQ(fesetround(FE_UPWARD), 0);
    const bool ok = kwil::lineScanFastOk();
    fesetround(FE_TONEAREST);
    EXPECT_FALSE(ok);
}

TEST(LineScan, CommaDecimalPointIsLeftToSscanf)
{
    // A locale whose decimal point is ",", built for the test; skipped where that cannot be done.
    kwiltest::TempDir dir;
    const std::string cmd =
        "localedef -i de_DE -f ISO-8859-1 '" + dir.path("de_DE.ISO-8859-1") + "' >/dev/null 2>&1";
    if (system(cmd.c_str()) == -1)
        GTEST_SKIP() << "cannot run localedef";
    const char* old = getenv("LOCPATH");
    const std::string oldPath = old != nullptr ? old : "";
    setenv("LOCPATH", dir.dir().c_str(), 1);
    const locale_t comma = newlocale(LC_NUMERIC_MASK, "de_DE.ISO-8859-1", nullptr);
    if (old != nullptr) {
        setenv("LOCPATH", oldPath.c_str(), 1);
    } else {
        unsetenv("LOCPATH");
    }
    if (comma == nullptr)
        GTEST_SKIP() << "no locale with a decimal comma";
    KwilHandle* h = kwiltest::makeHandle(dir); // the option file is read in the C locale
    const locale_t previous = uselocale(comma);

    EXPECT_FALSE(kwil::lineScanFastOk());
    int ints[2];
    double dbls[2];
    // sscanf reads the comma and stops at the point; the direct path would read the point.
    EXPECT_FALSE(kwil::scanLineReference("1 2 1.5\n", 2, ints, 1, dbls));
    for (const char* line : {"1 2 1.5\n", "1 2 1,5\n", "1 2 3\n", "0,25 -1e2\n", "2.5\n"}) {
        for (const auto& sh : shapes) {
            int ia[2] = {0, 0}, ib[2] = {0, 0};
            double da[2] = {0, 0}, db[2] = {0, 0};
            const bool a = kwil::scanLine(line, sh[0], ia, sh[1], da, kwil::lineScanFastOk());
            const bool b = kwil::scanLineReference(line, sh[0], ib, sh[1], db);
            EXPECT_EQ(a, b) << line;
            if (a && b) {
                EXPECT_EQ(memcmp(da, db, sizeof da), 0) << line;
            }
        }
    }
    // The matrix reader takes a value with a comma there, as sscanf does.
    const std::string p =
        dir.write("m.mtx", "%%MatrixMarket matrix coordinate real general\n1 1 1\n1 1 2,5\n");
    ComLinMat* m = comFileMatRead(h, p.c_str());
    uselocale(previous);
    freelocale(comma);
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(m->realData[0], 2.5);
    comLinMatDelete(h, m);
    kwilTerm(h);
}
