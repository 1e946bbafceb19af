// OzmGlob: character attributes, comparison, encoding names, UTF-8 against a
// reference decoder, path splitting; and the wsfmt formatter.
#include <climits>
#include <cmath>
#include <tuple>

#include "ozmutil.h"
#include "test_util.h"

namespace {

using G = OzmGlob;

TEST(OzmGlobTest, CharacterAttributes) {
    const struct {
        unsigned first, last, bit;
    } ranges[] = {
        {0x00, 0x1F, G::ucControl},     {0x20, 0x20, G::ucSpace},          {0x30, 0x39, G::ucDigit},
        {0x41, 0x5A, G::ucUpper},       {0x61, 0x7A, G::ucLower},          {0x7F, 0x9F, G::ucControl},
        {0xAA, 0xAA, G::ucOtherLetter}, {0xAD, 0xAD, G::ucFormat},         {0xB7, 0xB7, G::ucPunct},
        {0xBC, 0xBE, G::ucOtherNumber}, {0xD7, 0xD7, G::ucSymbol},         {0xF8, 0xFF, G::ucLower},
        {0x1F88, 0x1F8F, G::ucTitle},   {0x02B0, 0x02C1, G::ucModifier},   {0x0300, 0x036F, G::ucMark},
        {0x0660, 0x0669, G::ucDigit},   {0x2160, 0x2182, G::ucLetterNumber}, {0x4E00, 0x9FFF, G::ucOtherLetter},
        {0x2028, 0x2029, G::ucSpace},   {0xD800, 0xDFFF, G::ucSurrogate},  {0xE000, 0xF8FF, G::ucPrivate},
        {0xFDD0, 0xFDEF, 0},            {0xFFFE, 0xFFFF, 0},
    };
    for (const auto& r : ranges)
        for (unsigned c = r.first; c <= r.last; ++c)
            ASSERT_EQ(G::GetUCAttrs(UCChar(c)), r.bit) << std::hex << c;
    int nameStart = 0, nameCharOnly = 0;
    for (unsigned c = 0; c <= 0xFFFF; ++c) {
        unsigned v = G::GetUCAttrs(UCChar(c));
        bool start = v & G::ucNameStartMask, more = v & G::ucNameCharMask;
        ASSERT_TRUE((v & (v - 1)) == 0 && !(start && (v & (G::ucMark | G::ucDigit | G::ucModifier))) &&
                    !(more && (v & (G::ucUpper | G::ucLower | G::ucTitle | G::ucOtherLetter)))) << std::hex << c;
        nameStart += start;
        nameCharOnly += more && !start;
    }
    EXPECT_GT(nameStart, 45000);
    EXPECT_GT(nameCharOnly, 1500);
}

TEST(OzmGlobTest, CompareAndEncodingNames) {
    // Each pair compares below (0: equal): case folds in ASCII and Latin-1 only.
    const std::tuple<const UCChar*, const UCChar*, bool> cmp[] = {{u"Hello", u"hELLO", 1}, {u"\u00C0\u00DE", u"\u00E0\u00FE", 1},
        {u"\u00D7", u"\u00F7", 0}, {u"\u0100", u"\u0101", 0}, {u"abc", u"ABD", 0}, {u"ab", u"abc", 0}};
    for (auto [a, b, eq] : cmp)
        EXPECT_TRUE(eq ? G::wcscmpi(a, b) == 0 : G::wcscmpi(a, b) < 0 && G::wcscmpi(b, a) > 0) << Narrow(a);
    const std::pair<const UCChar*, int> names[] = {
        {u"utf-8", 1}, {u"Utf8", 1}, {u"utf-16le", 3}, {u"ascii", 5}, {u"ISO-8859-11", 21}, {u"latin1", 11},
        {u"WINDOWS-1252", 32}, {u"cp1252", 32}, {u"ISO-8859-12", -1}, {u"ISO-8859-16", 26}, {u"ISO-8859-01", -1},
        {u"windows-1259", -1}, {u"UTF-8 ", -1}, {u"", -1}, {u"\u00DCTF-8", -1}, {nullptr, -1},
        // The registry's aliases; sets that are not ASCII at the start, and names outside the registry, are unknown.
        {u"ms_kanji", csetShiftJIS}, {u"CSSHIFTJIS", csetShiftJIS}, {u"cp866", csetIBM866}, {u"866", csetIBM866},
        {u"ISO_8859-5:1988", 15}, {u"cyrillic", 15}, {u"csISO88598I", 18}, {u"L10", 26}, {u"csGBK", csetGBK},
        {u"windows-936", csetGBK}, {u"big5-hkscs", csetBig5HKSCS}, {u"csISO2022JP", csetISO2022JP},
        {u"Extended_UNIX_Code_Packed_Format_for_Japanese", csetEUCJP}, {u"x-sjis", -1}, {u"UTF-32", -1},
        {u"UTF-7", -1}, {u"EBCDIC-US", -1}, {u"x-mac-cyrillic", -1}, {u"KOI8-RU", -1}};
    for (const auto& c : names)
        EXPECT_EQ(G::EncodingByName(c.first), c.second) << Narrow(Str(c.first));
    int named = 0;
    for (int set = 1; set <= 100; ++set) {
        std::u16string name = G::EncodingToName(OZM_CSET(set));
        named += !name.empty();
        EXPECT_TRUE(name.empty() || G::EncodingByName(name.c_str()) == set) << set;
    }
    EXPECT_EQ(named, 5 + 15 + 9 + 24);
    EXPECT_EQ(UCString(G::EncodingToName(csetASCII)) + G::EncodingToName(csetShiftJIS) + G::EncodingToName(csetBig5),
              u"US-ASCIIShift_JISBig5");
    EXPECT_EQ(G::ISOEncoding(csetDefault), csetUTF8);
}

// One byte at a time: a mark at the start dropped, a byte outside a valid
// sequence taken as Latin-1.
UCString ReferenceDecode(const std::string& s) {
    UCString out;
    const auto* b = reinterpret_cast<const unsigned char*>(s.data());
    const size_t n = s.size();
    auto cont = [&](size_t k) { return k < n && (b[k] & 0xC0) == 0x80; };
    for (size_t i = n >= 3 && b[0] == 0xEF && b[1] == 0xBB && b[2] == 0xBF ? 3 : 0; i < n;) {
        unsigned c = b[i], cp = 0, len = 0;
        if (c >= 0xC2 && c <= 0xDF && cont(i + 1)) {
            cp = ((c & 0x1F) << 6) | (b[i + 1] & 0x3F), len = 2;
        } else if (c >= 0xE0 && c <= 0xEF && cont(i + 1) && cont(i + 2)) {
            cp = ((c & 0x0F) << 12) | ((b[i + 1] & 0x3F) << 6) | (b[i + 2] & 0x3F);
            len = (cp >= 0x800 && (cp < 0xD800 || cp > 0xDFFF)) ? 3 : 0;
        } else if (c >= 0xF0 && c <= 0xF4 && cont(i + 1) && cont(i + 2) && cont(i + 3)) {
            cp = ((c & 0x07) << 18) | ((b[i + 1] & 0x3F) << 12) | ((b[i + 2] & 0x3F) << 6) | (b[i + 3] & 0x3F);
            len = (cp >= 0x10000 && cp <= 0x10FFFF) ? 4 : 0;
        }
        if (len == 0)
            out.push_back(UCChar(c)), len = 1;
        else if (cp >= 0x10000)
            out += {UCChar(0xD800 + ((cp - 0x10000) >> 10)), UCChar(0xDC00 + (cp & 0x3FF))};
        else
            out.push_back(UCChar(cp));
        i += len;
    }
    return out;
}

TEST(OzmGlobTest, DecodeUtf8MatchesTheReference) {
    for (const std::string s : {"\xEF\xBB\xBF", "\xEF\xBB\xBF\xEF\xBB\xBF", "A\xEF\xBB\xBF", "\xEF\xBB", "\xF4\x90\x80\x80"})
        EXPECT_EQ(U(s), ReferenceDecode(s)) << testing::PrintToString(s);
    UCString out = u"stale";
    G::DecodeUTF8(nullptr, 0, out);
    EXPECT_EQ(out, u"");
    std::mt19937 rng(12345);
    const unsigned char pool[] = {0x80, 0xBF, 0x9F, 0xA0, 0x8F, 0x90, 0xC2, 0xC3, 0xDF, 0xE0,
                                  0xE2, 0xED, 0xEF, 0xF0, 0xF4, 0xF5, 0xC0, 0xFF, 0xBB};
    for (int round = 0; round < 3000; ++round) {
        std::string s;
        for (size_t i = 0, len = rng() % 80, density = 1 + rng() % 8; i < len; ++i)
            s.push_back(rng() % 8 < density ? char(pool[rng() % sizeof pool]) : char('a' + rng() % 26));
        ASSERT_EQ(U(s), ReferenceDecode(s)) << testing::PrintToString(s);
    }
    // A sequence, whole or cut short, at every place around a block boundary and at the end.
    for (const std::string seq : {"\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80", "\xF0\x9F\x98", "\xC3", "\xED\xA0\x80"})
        for (size_t lead = 4000; lead < 4200; ++lead)
            for (const std::string& s : {std::string(lead, 'x') + seq + "tail", std::string(lead, 'x') + seq})
                ASSERT_EQ(U(s), ReferenceDecode(s)) << testing::PrintToString(seq) << " after " << lead;
}

UCString Fmt(const UCChar* format, ...) {
    UCChar buffer[1024];
    va_list args;
    va_start(args, format);
    int n = vwsfmt(buffer, format, args);
    va_end(args);
    EXPECT_EQ(size_t(n), UCString(buffer).size());
    return buffer;
}

TEST(WsfmtTest, Directives) {
    EXPECT_EQ(Fmt(u"<%.4s|%.9s|%6s|%-6s>", u"abcdefg", u"abc", u"ab", u"cd"), u"<abcd|abc|    ab|cd    >");
    EXPECT_EQ(Fmt(u"<%*.*s|%*s|%s>", 5, 2, u"abcdef", -4, u"a", static_cast<const UCChar*>(nullptr)), u"<   ab|a   |(null)>");
    EXPECT_EQ(Fmt(u"<%S%c%c%3c>%%", u"\u20ACx", 'a', 0x20AC, 'z'), u"<\u20ACxa\u20AC  z>%");
    EXPECT_EQ(Fmt(u"%d|%i|%u|%d", INT_MIN, INT_MAX, 3000000000u, 0), u"-2147483648|2147483647|3000000000|0");
    EXPECT_EQ(Fmt(u"%ld|%ld|%lld|%llu", LONG_MIN, LONG_MAX, LLONG_MIN, 18446744073709551615ULL),
              U(std::to_string(LONG_MIN) + "|" + std::to_string(LONG_MAX)) +
                  u"|-9223372036854775808|18446744073709551615");  // long has the width of a word
    EXPECT_EQ(Fmt(u"%x|%X|%lx|%llX", 255u, 0xABCDEFu, 0xdeadbeefUL, 0x123456789ABCDEFULL), u"ff|ABCDEF|deadbeef|123456789ABCDEF");
    EXPECT_EQ(Fmt(u"<%5d|%-5d|%05d|%-05d|%08X>", 42, 42, -42, 42, 0xBEEFu), u"<   42|42   |-0042|42   |0000BEEF>");
    EXPECT_EQ(Fmt(u"<%*d|%0*d|%.3d|%6.3d|%.0d>", 4, 7, 3, 7, 5, -5, 0), u"<   7|007|005|  -005|>");
    EXPECT_EQ(Fmt(u"%f|%.1f|%.1f|%.0f|%.2f", 1.5, 2.25, 0.35, 2.5, -0.005), u"1.500000|2.2|0.3|2|-0.01");
    EXPECT_EQ(Fmt(u"<%8.2f|%-8.2f|%08.2f|%.*f>", 3.14159, 3.14159, -3.14159, 2, 1.0), u"<    3.14|3.14    |-0003.14|1.00>");
    EXPECT_EQ(Fmt(u"%.3f|<%5f|%05f>", 1e20, HUGE_VAL, -HUGE_VAL), u"100000000000000000000.000|<  inf| -inf>");
    EXPECT_EQ(Fmt(u"a%qb|%-5y|%d|%lllx|end%05", 3), u"a%qb|%-5y|3|%lllx|end%05");  // copied as they stand
    EXPECT_EQ(Fmt(u"end%"), u"end%");
    UCChar direct[16];
    EXPECT_EQ(wsfmt(direct, u"%d|%s", 37, u"x"), 4);
    EXPECT_EQ(UCString(direct), u"37|x");
}

}  // namespace
