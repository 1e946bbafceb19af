// OzmGlob: character attributes, comparison, encoding names, UTF-8 against a
// reference decoder, and path splitting.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "test_util.h"

namespace {

using G = OzmGlob;

TEST(OzmGlobTest, CharacterAttributes) {
    // One range per category, from blocks whose category is stable.
    const struct {
        unsigned first, last;
        unsigned short bit;
    } ranges[] = {
        {0x00, 0x1F, G::ucControl}, {0x20, 0x20, G::ucSpace},         {0x30, 0x39, G::ucDigit},
        {0x41, 0x5A, G::ucUpper},   {0x61, 0x7A, G::ucLower},         {0x7F, 0x9F, G::ucControl},
        {0xAA, 0xAA, G::ucOtherLetter}, {0xAD, 0xAD, G::ucFormat},    {0xB7, 0xB7, G::ucPunct},
        {0xBC, 0xBE, G::ucOtherNumber}, {0xD7, 0xD7, G::ucSymbol},    {0xF8, 0xFF, G::ucLower},
        {0x1F88, 0x1F8F, G::ucTitle}, {0x02B0, 0x02C1, G::ucModifier}, {0x0300, 0x036F, G::ucMark},
        {0x0660, 0x0669, G::ucDigit}, {0x2160, 0x2182, G::ucLetterNumber}, {0x4E00, 0x9FFF, G::ucOtherLetter},
        {0x2028, 0x2029, G::ucSpace}, {0xD800, 0xDFFF, G::ucSurrogate}, {0xE000, 0xF8FF, G::ucPrivate},
        {0xFDD0, 0xFDEF, 0},          {0xFFFE, 0xFFFF, 0},
    };
    for (const auto& r : ranges)
        for (unsigned c = r.first; c <= r.last; ++c)
            ASSERT_EQ(G::GetUCAttrs(UCChar(c)), r.bit) << std::hex << "U+" << c;
    int nameStart = 0, nameCharOnly = 0;
    for (unsigned c = 0; c <= 0xFFFF; ++c) {
        unsigned short v = G::GetUCAttrs(UCChar(c));
        ASSERT_EQ(v & (v - 1), 0) << std::hex << "more than one category at U+" << c;
        bool start = v & G::ucNameStartMask, more = v & G::ucNameCharMask;
        ASSERT_FALSE(start && (v & (G::ucMark | G::ucDigit | G::ucModifier))) << std::hex << c;
        ASSERT_FALSE(more && (v & (G::ucUpper | G::ucLower | G::ucTitle | G::ucOtherLetter))) << std::hex << c;
        nameStart += start;
        nameCharOnly += more && !start;
    }
    EXPECT_GT(nameStart, 45000);
    EXPECT_GT(nameCharOnly, 1500);
}

TEST(OzmGlobTest, WcscmpiFoldsAsciiAndLatin1Only) {
    const struct {
        const UCChar *a, *b;
        int sign;
    } cases[] = {{u"Hello", u"hELLO", 0}, {u"\u00C0\u00DE", u"\u00E0\u00FE", 0}, {u"\u00D7", u"\u00F7", -1},
                 {u"\u0100", u"\u0101", -1}, {u"abc", u"ABD", -1}, {u"abd", u"ABC", 1}, {u"ab", u"abc", -1}};
    for (const auto& c : cases) {
        int r = G::wcscmpi(c.a, c.b);
        EXPECT_EQ((r > 0) - (r < 0), c.sign) << Narrow(c.a);
    }
}

TEST(OzmGlobTest, EncodingNames) {
    const struct {
        const UCChar* name;
        int set;
    } cases[] = {
        {u"utf-8", 1}, {u"Utf8", 1}, {u"utf-16le", 3}, {u"ascii", 5}, {u"ISO-8859-11", 21}, {u"latin1", 11},
        {u"WINDOWS-1252", 32}, {u"cp1252", 32}, {u"ISO-8859-12", -1}, {u"ISO-8859-16", -1}, {u"ISO-8859-01", -1},
        {u"windows-1259", -1}, {u"UTF-8 ", -1}, {u"", -1}, {u"\u00DCTF-8", -1},
    };
    for (const auto& c : cases)
        EXPECT_EQ(G::EncodingByName(c.name), c.set) << Narrow(c.name);
    EXPECT_EQ(G::EncodingByName(nullptr), -1);
    EXPECT_EQ(G::ISOEncoding(csetDefault), csetUTF8);
    int named = 0;
    for (int set = 1; set <= 40; ++set) {
        std::u16string name = G::EncodingToName(OZM_CSET(set));
        named += !name.empty();
        EXPECT_TRUE(name.empty() || G::EncodingByName(name.c_str()) == set) << set;
    }
    EXPECT_EQ(named, 5 + 14 + 9);
    EXPECT_EQ(UCString(G::EncodingToName(csetASCII)), u"US-ASCII");
}

TEST(OzmGlobTest, EncodeUtf8) {
    const std::pair<UCChar, std::string> units[] = {{0x7F, "\x7F"}, {0x80, "\xC2\x80"}, {0x7FF, "\xDF\xBF"},
                                                    {0x800, "\xE0\xA0\x80"}, {0xD800, "\xED\xA0\x80"}, {0xFFFF, "\xEF\xBF\xBF"}};
    for (const auto& c : units) {
        unsigned char out[5] = {0xAA, 0xAA, 0xAA, 0xAA, 0xAA};
        int n = G::UnicodeToUTF8(c.first, out);
        EXPECT_EQ(std::string(reinterpret_cast<char*>(out), size_t(n) + 1), c.second + '\0');
        EXPECT_EQ(out[4], 0xAA);
    }
    std::string out;
    EXPECT_TRUE(G::WStringToString(u"a\u00E9\U0001F600", out, csetUTF8));
    EXPECT_EQ(out, "a\xC3\xA9\xF0\x9F\x98\x80");
    // Lone and misordered surrogates are encoded one by one.
    EXPECT_TRUE(G::WStringToString(UCString{0xDC00, 0xD800}, out, csetDefault));
    EXPECT_EQ(out, "\xED\xB0\x80\xED\xA0\x80");
    EXPECT_FALSE(G::WStringToString(u"a\u00FF\u0100", out, csetISO8859_1));
    EXPECT_EQ(out, "a\xFF?");
    EXPECT_FALSE(G::WStringToString(u"\u007F\u0080", out, csetASCII));
    EXPECT_EQ(out, "\x7F?");
}

// Straightforward reference decoder, one byte at a time: a mark at the start
// dropped, any byte outside a valid sequence taken as Latin-1.
UCString ReferenceDecode(const std::string& s) {
    UCString out;
    const auto* b = reinterpret_cast<const unsigned char*>(s.data());
    const size_t n = s.size();
    size_t i = n >= 3 && b[0] == 0xEF && b[1] == 0xBB && b[2] == 0xBF ? 3 : 0;
    auto cont = [&](size_t k) { return k < n && (b[k] & 0xC0) == 0x80; };
    while (i < n) {
        unsigned c = b[i], cp = 0;
        size_t len = 0;
        if (c >= 0xC2 && c <= 0xDF && cont(i + 1)) {
            cp = ((c & 0x1F) << 6) | (b[i + 1] & 0x3F);
            len = 2;
        } else if (c >= 0xE0 && c <= 0xEF && cont(i + 1) && cont(i + 2)) {
            cp = ((c & 0x0F) << 12) | ((b[i + 1] & 0x3F) << 6) | (b[i + 2] & 0x3F);
            len = (cp >= 0x800 && (cp < 0xD800 || cp > 0xDFFF)) ? 3 : 0;
        } else if (c >= 0xF0 && c <= 0xF4 && cont(i + 1) && cont(i + 2) && cont(i + 3)) {
            cp = ((c & 0x07) << 18) | ((b[i + 1] & 0x3F) << 12) | ((b[i + 2] & 0x3F) << 6) | (b[i + 3] & 0x3F);
            len = (cp >= 0x10000 && cp <= 0x10FFFF) ? 4 : 0;
        }
        if (len == 0) {
            out.push_back(UCChar(c));
            ++i;
            continue;
        }
        if (cp >= 0x10000)
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
    // Random input: mostly ASCII with lead and continuation bytes sprinkled in.
    std::mt19937 rng(12345);
    const unsigned char pool[] = {0x80, 0xBF, 0x9F, 0xA0, 0x8F, 0x90, 0xC2, 0xC3, 0xDF, 0xE0, 0xE2,
                                  0xED, 0xEF, 0xF0, 0xF4, 0xF5, 0xC0, 0xFF, 0xBB};
    for (int round = 0; round < 3000; ++round) {
        std::string s;
        for (size_t i = 0, len = rng() % 80, density = 1 + rng() % 8; i < len; ++i)
            s.push_back(rng() % 8 < density ? char(pool[rng() % sizeof pool]) : char('a' + rng() % 26));
        ASSERT_EQ(U(s), ReferenceDecode(s)) << testing::PrintToString(s);
    }
    // Long input is decoded a block at a time: a sequence, whole or cut short,
    // at every place around a block boundary and at the very end.
    for (const std::string seq : {"\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80", "\xF0\x9F\x98", "\xC3", "\xED\xA0\x80"}) {
        for (size_t lead = 4000; lead < 4200; ++lead) {
            for (const std::string& s : {std::string(lead, 'x') + seq + "tail", std::string(lead, 'x') + seq})
                ASSERT_EQ(U(s), ReferenceDecode(s)) << testing::PrintToString(seq) << " after " << lead;
        }
    }
}

struct PathParts {
    UCString dir, name, ext;
};

PathParts Split(const UCString& path) {
    std::vector<UCChar> p(OZM_MAX_PATH, 0), n(OZM_MAX_PATH, 0xAAAA), e(OZM_MAX_PATH, 0xAAAA);
    std::copy(path.begin(), path.end(), p.begin());
    EXPECT_EQ(G::sepfile(p.data(), n.data(), e.data()), 0);
    return {p.data(), n.data(), e.data()};
}

UCString Join(const PathParts& parts) {
    std::vector<UCChar> p(OZM_MAX_PATH, 0);
    std::copy(parts.dir.begin(), parts.dir.end(), p.begin());
    G::appndnam(p.data(), parts.name.c_str());
    G::appndext(p.data(), parts.ext.c_str());
    return p.data();
}

TEST(OzmGlobTest, PathsSplitAndJoin) {
    const struct {
        UCString path, dir, name, ext;
    } cases[] = {
        {u"a/b.dtd", u"a/", u"b", u".dtd"}, {u"./x.y.z", u"./", u"x.y", u".z"}, {u"a/.hidden", u"a/", u".hidden", u""},
        {u"b.", u"", u"b", u"."},           {u"dir/", u"dir/", u"", u""},        {u"..", u"", u"..", u""},
        {u".a.b", u"", u".a", u".b"},       {u"a.b/c", u"a.b/", u"c", u""},
    };
    for (const auto& c : cases) {
        PathParts parts = Split(c.path);
        EXPECT_EQ(parts.dir + u"|" + parts.name + u"|" + parts.ext, c.dir + u"|" + c.name + u"|" + c.ext) << Narrow(c.path);
    }
    std::mt19937 rng(7);
    for (int round = 0; round < 5000; ++round) {
        UCString path;
        for (size_t i = 0, len = rng() % 12; i < len; ++i)
            path.push_back(u"ab./\u00E9"[rng() % 5]);
        PathParts parts = Split(path);
        ASSERT_EQ(Join(parts), path) << Narrow(path);
        ASSERT_EQ(parts.name.find(u'/'), UCString::npos);
        ASSERT_TRUE(parts.ext.empty() || parts.ext[0] == u'.');
    }
    // Buffers of exactly OZM_MAX_PATH units followed by a guard.
    std::vector<UCChar> p(OZM_MAX_PATH + 8, 0x5A5A), n(OZM_MAX_PATH + 8, 0x5A5A), e(OZM_MAX_PATH + 8, 0x5A5A);
    std::fill(p.begin(), p.begin() + 10, u'/');
    std::fill(p.begin() + 10, p.begin() + OZM_MAX_PATH - 1, u'q');
    p[OZM_MAX_PATH - 1] = 0;
    G::sepfile(p.data(), n.data(), e.data());
    G::appndnam(p.data(), UCString(OZM_MAX_PATH * 2, u'n').c_str());
    G::appndext(p.data(), u".ext");
    EXPECT_EQ(UCString(p.data()).size(), size_t(OZM_MAX_PATH - 1));
    for (int i = OZM_MAX_PATH; i < OZM_MAX_PATH + 8; ++i)
        ASSERT_TRUE(p[i] == 0x5A5A && n[i] == 0x5A5A && e[i] == 0x5A5A) << i;
}

}  // namespace
