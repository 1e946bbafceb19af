// Tests of wsfmt, vwsfmt and vwsnfmt.
#include "ozmutil.h"

#include <gtest/gtest.h>

#include <clocale>
#include <algorithm>
#include <climits>
#include <limits>
#include <string>
#include <vector>

namespace {

UCString Fmt(const UCChar* format, ...) {
    UCChar buffer[1024];
    va_list args;
    va_start(args, format);
    int n = vwsfmt(buffer, format, args);
    va_end(args);
    UCString out(buffer);
    EXPECT_EQ(static_cast<size_t>(n), out.size());
    return out;
}

int FmtN(UCChar* buffer, int limit, const UCChar* format, ...) {
    va_list args;
    va_start(args, format);
    int n = vwsnfmt(buffer, limit, format, args);
    va_end(args);
    return n;
}

TEST(WsfmtTest, Text) {
    EXPECT_EQ(Fmt(u"<%s>", u"abc"), u"<abc>");
    EXPECT_EQ(Fmt(u"<%S>", u"\u20ACx"), u"<\u20ACx>");
    EXPECT_EQ(Fmt(u"<%.4s>", u"abcdefg"), u"<abcd>");
    EXPECT_EQ(Fmt(u"<%.9s>", u"abc"), u"<abc>");
    EXPECT_EQ(Fmt(u"<%6s|%-6s>", u"ab", u"cd"), u"<    ab|cd    >");
    EXPECT_EQ(Fmt(u"<%*.*s>", 5, 2, u"abcdef"), u"<   ab>");
    EXPECT_EQ(Fmt(u"<%*s>", -4, u"a"), u"<a   >");
    EXPECT_EQ(Fmt(u"<%s>", static_cast<const UCChar*>(nullptr)), u"<(null)>");
    EXPECT_EQ(Fmt(u"<%c%c%3c>", 'a', 0x20AC, 'z'), u"<a\u20AC  z>");
    EXPECT_EQ(Fmt(u"100%%"), u"100%");
    EXPECT_EQ(Fmt(u""), u"");
}

TEST(WsfmtTest, Integers) {
    EXPECT_EQ(Fmt(u"%d|%i|%u", -42, 17, 3000000000u), u"-42|17|3000000000");
    EXPECT_EQ(Fmt(u"%d|%d", INT_MIN, INT_MAX), u"-2147483648|2147483647");
    EXPECT_EQ(Fmt(u"%ld|%lld", -1234567890123L, LLONG_MIN), u"-1234567890123|-9223372036854775808");
    EXPECT_EQ(Fmt(u"%lu|%llu", 18446744073709551615UL, 18446744073709551615ULL),
              u"18446744073709551615|18446744073709551615");
    EXPECT_EQ(Fmt(u"%x|%X|%lx|%llX", 255u, 0xABCDEFu, 0xdeadbeefUL, 0x123456789ABCDEFULL),
              u"ff|ABCDEF|deadbeef|123456789ABCDEF");
    EXPECT_EQ(Fmt(u"<%5d|%-5d|%05d|%-05d>", 42, 42, -42, 42), u"<   42|42   |-0042|42   >");
    EXPECT_EQ(Fmt(u"<%08X>", 0xBEEFu), u"<0000BEEF>");
    EXPECT_EQ(Fmt(u"<%*d|%0*d>", 4, 7, 3, 7), u"<   7|007>");
    EXPECT_EQ(Fmt(u"<%.3d|%6.3d|%.0d>", 5, -5, 0), u"<005|  -005|>");
    EXPECT_EQ(Fmt(u"<%d|%u|%x>", 0, 0u, 0u), u"<0|0|0>");
}

TEST(WsfmtTest, FixedPoint) {
    EXPECT_EQ(Fmt(u"%f", 1.5), u"1.500000");
    EXPECT_EQ(Fmt(u"%.1f", 2.25), u"2.2");  // binary 2.25 is exact: ties to even
    EXPECT_EQ(Fmt(u"%.1f", 0.35), u"0.3");  // 0.35 is slightly below in binary
    EXPECT_EQ(Fmt(u"%1.1f", 12.345), u"12.3");
    EXPECT_EQ(Fmt(u"%.0f|%.2f", 2.5, -0.005), u"2|-0.01");
    EXPECT_EQ(Fmt(u"<%8.2f|%-8.2f|%08.2f>", 3.14159, 3.14159, -3.14159), u"<    3.14|3.14    |-0003.14>");
    EXPECT_EQ(Fmt(u"%.3f", 1e20), u"100000000000000000000.000");
    EXPECT_EQ(Fmt(u"%.*f", 2, 1.0), u"1.00");
    EXPECT_EQ(Fmt(u"<%5f|%05f>", std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity()), u"<  inf| -inf>");
}

TEST(WsfmtTest, FixedPointIgnoresLocale) {
    std::string saved = std::setlocale(LC_NUMERIC, nullptr);
    const char* names[] = {"de_DE.UTF-8", "de_DE.utf8", "de_DE", "fr_FR.UTF-8", "fr_FR.utf8"};
    const char* found = nullptr;
    for (const char* name : names) {
        if (std::setlocale(LC_NUMERIC, name)) {
            found = name;
            break;
        }
    }
    if (!found)
        GTEST_SKIP() << "no locale with a decimal comma is installed";
    UCString out = Fmt(u"%.2f", 1.25);
    std::setlocale(LC_NUMERIC, saved.c_str());
    EXPECT_EQ(out, u"1.25") << "under " << found;
}

TEST(WsfmtTest, UnknownAndUnfinishedDirectives) {
    EXPECT_EQ(Fmt(u"a%qb"), u"a%qb");
    EXPECT_EQ(Fmt(u"%-5y|%d", 3), u"%-5y|3");
    EXPECT_EQ(Fmt(u"end%"), u"end%");
    EXPECT_EQ(Fmt(u"end%05"), u"end%05");
    EXPECT_EQ(Fmt(u"%lllx"), u"%lllx");
}

TEST(WsfmtTest, WsfmtReturnsCount) {
    UCChar buffer[64];
    EXPECT_EQ(wsfmt(buffer, u"%s=%d", u"n", 12), 4);
    EXPECT_EQ(UCString(buffer), u"n=12");
}

TEST(WsfmtTest, LimitedNeverWritesPastLimit) {
    const UCChar* format = u"%s-%08d-%.3f-%-6s|%x";
    UCChar full[256];
    wsfmt(full, format, u"abcdefghij", 1234, 2.5, u"xy", 0xBEEFu);
    const UCString expect = full;
    ASSERT_EQ(expect, u"abcdefghij-00001234-2.500-xy    |beef");
    const UCChar guard = 0x5A5A;
    for (int limit = -1; limit <= static_cast<int>(expect.size()) + 3; ++limit) {
        std::vector<UCChar> buf(expect.size() + 16, guard);
        int n = FmtN(buf.data(), limit, format, u"abcdefghij", 1234, 2.5, u"xy", 0xBEEFu);
        if (limit < 1) {
            EXPECT_EQ(n, 0);
            EXPECT_EQ(buf[0], guard);
            continue;
        }
        size_t kept = std::min(expect.size(), static_cast<size_t>(limit - 1));
        EXPECT_EQ(n, static_cast<int>(kept)) << limit;
        EXPECT_EQ(UCString(buf.data()), expect.substr(0, kept)) << limit;
        for (size_t i = static_cast<size_t>(limit); i < buf.size(); ++i)
            ASSERT_EQ(buf[i], guard) << "limit " << limit << " wrote at " << i;
    }
}

}  // namespace
