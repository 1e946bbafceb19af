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

TEST(WsfmtTest, Directives) {
    EXPECT_EQ(Fmt(u"<%.4s|%.9s|%6s|%-6s>", u"abcdefg", u"abc", u"ab", u"cd"), u"<abcd|abc|    ab|cd    >");
    EXPECT_EQ(Fmt(u"<%*.*s|%*s|%s>", 5, 2, u"abcdef", -4, u"a", static_cast<const UCChar*>(nullptr)),
              u"<   ab|a   |(null)>");
    EXPECT_EQ(Fmt(u"<%S%c%c%3c>%%", u"\u20ACx", 'a', 0x20AC, 'z'), u"<\u20ACxa\u20AC  z>%");
    EXPECT_EQ(Fmt(u"%d|%i|%u|%d", INT_MIN, INT_MAX, 3000000000u, 0), u"-2147483648|2147483647|3000000000|0");
    EXPECT_EQ(Fmt(u"%ld|%lld|%llu", -1234567890123L, LLONG_MIN, 18446744073709551615ULL),
              u"-1234567890123|-9223372036854775808|18446744073709551615");
    EXPECT_EQ(Fmt(u"%x|%X|%lx|%llX", 255u, 0xABCDEFu, 0xdeadbeefUL, 0x123456789ABCDEFULL),
              u"ff|ABCDEF|deadbeef|123456789ABCDEF");
    EXPECT_EQ(Fmt(u"<%5d|%-5d|%05d|%-05d|%08X>", 42, 42, -42, 42, 0xBEEFu), u"<   42|42   |-0042|42   |0000BEEF>");
    EXPECT_EQ(Fmt(u"<%*d|%0*d|%.3d|%6.3d|%.0d>", 4, 7, 3, 7, 5, -5, 0), u"<   7|007|005|  -005|>");
    EXPECT_EQ(Fmt(u"%f|%.1f|%.1f|%.0f|%.2f", 1.5, 2.25, 0.35, 2.5, -0.005), u"1.500000|2.2|0.3|2|-0.01");
    EXPECT_EQ(Fmt(u"<%8.2f|%-8.2f|%08.2f|%.*f>", 3.14159, 3.14159, -3.14159, 2, 1.0), u"<    3.14|3.14    |-0003.14|1.00>");
    EXPECT_EQ(Fmt(u"%.3f", 1e20), u"100000000000000000000.000");
    EXPECT_EQ(Fmt(u"<%5f|%05f>", std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity()),
              u"<  inf| -inf>");
    // Unknown and unfinished directives are copied as they stand.
    EXPECT_EQ(Fmt(u"a%qb|%-5y|%d|%lllx|end%05", 3), u"a%qb|%-5y|3|%lllx|end%05");
    EXPECT_EQ(Fmt(u"end%"), u"end%");
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

TEST(WsfmtTest, LimitedNeverWritesPastLimit) {
    const UCChar* format = u"%s-%08d-%.3f-%-6s|%x";
    UCChar full[256];
    EXPECT_EQ(wsfmt(full, format, u"abcdefghij", 1234, 2.5, u"xy", 0xBEEFu), 37);
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
