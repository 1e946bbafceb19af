// Tests of OzmGlob: character attributes, comparison, encoding names, UTF-8
// conversion and path splitting.
#include "ozmutil.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <random>
#include <string>
#include <vector>

namespace {

using G = OzmGlob;
const OZM_CSET kWindows1252 = static_cast<OZM_CSET>(csetWindows1250 + 2);

// --- Character attributes -------------------------------------------------

struct AttrRange {
    unsigned first, last;
    unsigned short bit;
};

// Categories known independently of the table: ASCII and Latin-1 by hand,
// plus blocks whose category is uniform and stable across Unicode versions.
const AttrRange kKnownRanges[] = {
    {0x00, 0x1F, G::ucControl},   {0x20, 0x20, G::ucSpace},      {0x30, 0x39, G::ucDigit},
    {0x41, 0x5A, G::ucUpper},     {0x61, 0x7A, G::ucLower},      {0x7F, 0x9F, G::ucControl},
    {0xA0, 0xA0, G::ucSpace},     {0xAA, 0xAA, G::ucOtherLetter}, {0xAD, 0xAD, G::ucFormat},
    {0xB2, 0xB3, G::ucOtherNumber}, {0xB5, 0xB5, G::ucLower},    {0xB7, 0xB7, G::ucPunct},
    {0xBC, 0xBE, G::ucOtherNumber}, {0xC0, 0xD6, G::ucUpper},    {0xD7, 0xD7, G::ucSymbol},
    {0xD8, 0xDE, G::ucUpper},     {0xDF, 0xF6, G::ucLower},      {0xF7, 0xF7, G::ucSymbol},
    {0xF8, 0xFF, G::ucLower},     {0x01C5, 0x01C5, G::ucTitle},  {0x01C8, 0x01C8, G::ucTitle},
    {0x1F88, 0x1F8F, G::ucTitle}, {0x02B0, 0x02C1, G::ucModifier}, {0x3005, 0x3005, G::ucModifier},
    {0x0300, 0x036F, G::ucMark},  {0x0903, 0x0903, G::ucMark},   {0x20DD, 0x20E0, G::ucMark},
    {0x0660, 0x0669, G::ucDigit}, {0x0966, 0x096F, G::ucDigit},  {0xFF10, 0xFF19, G::ucDigit},
    {0x2160, 0x2182, G::ucLetterNumber}, {0x3007, 0x3007, G::ucLetterNumber},
    {0x0391, 0x03A1, G::ucUpper}, {0x03B1, 0x03C9, G::ucLower},  {0x0410, 0x042F, G::ucUpper},
    {0x0430, 0x044F, G::ucLower}, {0xFF21, 0xFF3A, G::ucUpper},  {0xFF41, 0xFF5A, G::ucLower},
    {0x3041, 0x3096, G::ucOtherLetter}, {0x4E00, 0x9FFF, G::ucOtherLetter},
    {0xAC00, 0xD7A3, G::ucOtherLetter}, {0x2028, 0x2029, G::ucSpace}, {0x3000, 0x3000, G::ucSpace},
    {0x200B, 0x200F, G::ucFormat}, {0xFEFF, 0xFEFF, G::ucFormat}, {0x2500, 0x257F, G::ucSymbol},
    {0x2800, 0x28FF, G::ucSymbol}, {0x20AC, 0x20AC, G::ucSymbol}, {0x3001, 0x3003, G::ucPunct},
    {0xD800, 0xDFFF, G::ucSurrogate}, {0xE000, 0xF8FF, G::ucPrivate},
    {0x2FE0, 0x2FEF, 0}, {0xD7FC, 0xD7FF, 0}, {0xFDD0, 0xFDEF, 0}, {0xFFF0, 0xFFF8, 0}, {0xFFFE, 0xFFFF, 0},
};

TEST(OzmGlobTest, AttrsOfKnownRanges) {
    for (const AttrRange& r : kKnownRanges) {
        for (unsigned c = r.first; c <= r.last; ++c)
            ASSERT_EQ(G::GetUCAttrs(static_cast<UCChar>(c)), r.bit) << std::hex << "U+" << c;
    }
    // ASCII punctuation and symbols, classified by hand.
    const std::string symbols = "$+<=>^`|~";
    for (unsigned c = 0x21; c < 0x7F; ++c) {
        if (std::isalnum(static_cast<int>(c)))
            continue;
        unsigned short want = symbols.find(static_cast<char>(c)) != std::string::npos ? G::ucSymbol : G::ucPunct;
        EXPECT_EQ(G::GetUCAttrs(static_cast<UCChar>(c)), want) << "char " << static_cast<char>(c);
    }
}

TEST(OzmGlobTest, AttrsInvariantsOverAllUnits) {
    const unsigned short allBits = 0xFFFF;
    int nameStart = 0, nameCharOnly = 0;
    for (unsigned c = 0; c <= 0xFFFF; ++c) {
        unsigned short v = G::GetUCAttrs(static_cast<UCChar>(c));
        ASSERT_EQ(v & (v - 1), 0) << std::hex << "more than one category bit at U+" << c;
        ASSERT_EQ(v & ~allBits, 0);
        bool start = (v & G::ucNameStartMask) != 0;
        bool more = (v & G::ucNameCharMask) != 0;
        // Every start bit except Nl lies outside the name-character mask;
        // marks, digits and modifiers lie outside the start mask.
        if (v & (G::ucMark | G::ucDigit | G::ucModifier)) {
            ASSERT_FALSE(start) << std::hex << c;
        }
        if (v & (G::ucUpper | G::ucLower | G::ucTitle | G::ucOtherLetter)) {
            ASSERT_FALSE(more) << std::hex << c;
        }
        nameStart += start;
        nameCharOnly += more && !start;
    }
    // Large, plausible populations (not exact counts, which change with
    // Unicode versions).
    EXPECT_GT(nameStart, 45000);
    EXPECT_GT(nameCharOnly, 1500);
    EXPECT_EQ(G::GetUCAttrs(0xFFFE) & (G::ucNameStartMask | G::ucNameCharMask), 0);
    EXPECT_EQ(G::GetUCAttrs(0xFFFF) & (G::ucNameStartMask | G::ucNameCharMask), 0);
}

// --- Comparison and encoding names ----------------------------------------

TEST(OzmGlobTest, WcscmpiFoldsAsciiAndLatin1) {
    EXPECT_EQ(G::wcscmpi(u"Hello", u"hELLO"), 0);
    EXPECT_EQ(G::wcscmpi(u"\u00C0\u00C9\u00DE", u"\u00E0\u00E9\u00FE"), 0);
    EXPECT_EQ(G::wcscmpi(u"", u""), 0);
    EXPECT_NE(G::wcscmpi(u"\u00D7", u"\u00F7"), 0);  // no case
    EXPECT_NE(G::wcscmpi(u"\u00DF", u"\u00FF"), 0);
    EXPECT_NE(G::wcscmpi(u"\u0100", u"\u0101"), 0);  // beyond Latin-1: exact
    EXPECT_LT(G::wcscmpi(u"abc", u"ABD"), 0);
    EXPECT_GT(G::wcscmpi(u"abd", u"ABC"), 0);
    EXPECT_LT(G::wcscmpi(u"ab", u"abc"), 0);
    EXPECT_GT(G::wcscmpi(u"abc", u"AB"), 0);
}

TEST(OzmGlobTest, EncodingByNameKnownNames) {
    const struct {
        const UCChar* name;
        int set;
    } cases[] = {
        {u"UTF-8", 1},        {u"utf-8", 1},          {u"Utf8", 1},          {u"UTF-16", 2},
        {u"utf-16le", 3},     {u"UTF-16BE", 4},       {u"US-ASCII", 5},      {u"ascii", 5},
        {u"ISO-8859-1", 11},  {u"iso-8859-2", 12},    {u"ISO-8859-11", 21},  {u"ISO-8859-13", 23},
        {u"ISO-8859-15", 25}, {u"latin1", 11},        {u"windows-1250", 30}, {u"WINDOWS-1252", 32},
        {u"windows-1258", 38}, {u"cp1252", 32},
        {u"ISO-8859-12", -1}, {u"ISO-8859-16", -1},   {u"ISO-8859-0", -1},   {u"ISO-8859-01", -1},
        {u"windows-1259", -1}, {u"windows-125", -1},  {u"UTF-", -1},         {u"UTF-8 ", -1},
        {u"UTF-8x", -1},      {u"", -1},              {u"U", -1},            {u"EBCDIC", -1},
        {u"\u00DCTF-8", -1},
    };
    for (const auto& c : cases)
        EXPECT_EQ(G::EncodingByName(c.name), c.set) << std::u16string(c.name).size();
    EXPECT_EQ(G::EncodingByName(nullptr), -1);
}

TEST(OzmGlobTest, EncodingNamesRoundTrip) {
    EXPECT_EQ(std::u16string(G::EncodingToName(G::ISOEncoding(csetUTF8))), u"UTF-8");
    EXPECT_EQ(G::ISOEncoding(csetDefault), csetUTF8);
    EXPECT_EQ(G::ISOEncoding(kWindows1252), kWindows1252);
    EXPECT_EQ(std::u16string(G::EncodingToName(csetASCII)), u"US-ASCII");
    EXPECT_EQ(std::u16string(G::EncodingToName(static_cast<OZM_CSET>(22))), u"");  // no ISO-8859-12
    EXPECT_EQ(std::u16string(G::EncodingToName(static_cast<OZM_CSET>(99))), u"");
    EXPECT_EQ(std::u16string(G::EncodingToName(csetUnknown)), u"");
    int named = 0;
    for (int set = 1; set <= 40; ++set) {
        std::u16string name = G::EncodingToName(static_cast<OZM_CSET>(set));
        if (name.empty())
            continue;
        ++named;
        EXPECT_EQ(G::EncodingByName(name.c_str()), set) << set;
    }
    EXPECT_EQ(named, 5 + 14 + 9);
}

// --- UTF-8 ----------------------------------------------------------------

TEST(OzmGlobTest, UnicodeToUTF8Units) {
    const struct {
        UCChar c;
        std::string bytes;
    } cases[] = {
        {0x41, "A"}, {0x7F, "\x7F"}, {0x80, "\xC2\x80"}, {0x7FF, "\xDF\xBF"}, {0x800, "\xE0\xA0\x80"},
        {0x20AC, "\xE2\x82\xAC"}, {0xD800, "\xED\xA0\x80"}, {0xDFFF, "\xED\xBF\xBF"}, {0xFFFF, "\xEF\xBF\xBF"},
    };
    for (const auto& c : cases) {
        unsigned char out[5] = {0xAA, 0xAA, 0xAA, 0xAA, 0xAA};
        int n = G::UnicodeToUTF8(c.c, out);
        ASSERT_EQ(n, static_cast<int>(c.bytes.size()));
        EXPECT_EQ(std::string(reinterpret_cast<char*>(out), n), c.bytes);
        EXPECT_EQ(out[n], 0);
        EXPECT_EQ(out[4], 0xAA);
    }
}

TEST(OzmGlobTest, WStringToStringPerSet) {
    std::string out = "junk";
    EXPECT_TRUE(G::WStringToString(u"a\u00E9\u20AC\U0001F600", out, csetUTF8));
    EXPECT_EQ(out, "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80");
    EXPECT_TRUE(G::WStringToString(u"\U0010FFFF", out, csetDefault));
    EXPECT_EQ(out, "\xF4\x8F\xBF\xBF");
    // Lone and misordered surrogates are encoded one by one.
    EXPECT_TRUE(G::WStringToString(UCString{0xD800, u'x', 0xDC00, 0xDC00, 0xD800}, out, csetUTF8));
    EXPECT_EQ(out, "\xED\xA0\x80x\xED\xB0\x80\xED\xB0\x80\xED\xA0\x80");
    EXPECT_TRUE(G::WStringToString(u"\u00FF\u20AC", out, kWindows1252));
    EXPECT_EQ(out, "\xC3\xBF\xE2\x82\xAC");

    EXPECT_FALSE(G::WStringToString(u"a\u00FF\u0100", out, csetISO8859_1));
    EXPECT_EQ(out, "a\xFF?");
    EXPECT_TRUE(G::WStringToString(u"\u00E9", out, csetISO8859_1));
    EXPECT_EQ(out, "\xE9");
    EXPECT_FALSE(G::WStringToString(u"a\u007F\u0080", out, csetASCII));
    EXPECT_EQ(out, "a\x7F?");
    EXPECT_TRUE(G::WStringToString(u"", out, csetUTF8));
    EXPECT_EQ(out, "");
}

UCString Decode(const std::string& s) {
    UCString out = u"stale";
    G::DecodeUTF8(reinterpret_cast<const unsigned char*>(s.data()), s.size(), out);
    return out;
}

TEST(OzmGlobTest, DecodeUTF8ValidAndInvalidForms) {
    const struct {
        std::string in;
        UCString out;
    } cases[] = {
        {"", u""},
        {"abc", u"abc"},
        {"\xC3\xA9", u"\u00E9"},
        {"\xE2\x82\xAC", u"\u20AC"},
        {"\xF0\x9F\x98\x80", u"\U0001F600"},
        {"\xF4\x8F\xBF\xBF", u"\U0010FFFF"},
        {"\xED\x9F\xBF", u"\uD7FF"},
        {"\xEE\x80\x80", u"\uE000"},
        {"\xEF\xBF\xBF", UCString(1, 0xFFFF)},
        {"\xFF\xFE", u"\u00FF\u00FE"},                          // UTF-16 mark read as UTF-8
        {"\xC0\x80", u"\u00C0\u0080"},                          // overlong
        {"\xC1\xBF", u"\u00C1\u00BF"},
        {"\xE0\x80\x80", u"\u00E0\u0080\u0080"},
        {"\xE0\x9F\xBF", u"\u00E0\u009F\u00BF"},
        {"\xF0\x8F\xBF\xBF", u"\u00F0\u008F\u00BF\u00BF"},
        {"\xED\xA0\x80", u"\u00ED\u00A0\u0080"},                // encoded surrogate
        {"\xED\xBF\xBF", u"\u00ED\u00BF\u00BF"},
        {"\xF4\x90\x80\x80", u"\u00F4\u0090\u0080\u0080"},      // above U+10FFFF
        {"\xF5\x80\x80\x80", u"\u00F5\u0080\u0080\u0080"},
        {"\xF8\xFC\xFE", u"\u00F8\u00FC\u00FE"},
        {"\x80", u"\u0080"},                                    // stray continuation
        {"a\xBFz", u"a\u00BFz"},
        {"\xC3", u"\u00C3"},                                    // cut off at the end
        {"\xE2\x82", u"\u00E2\u0082"},
        {"\xF0\x9F\x98", u"\u00F0\u009F\u0098"},
        {"\xE2\x82" "A", u"\u00E2\u0082A"},                     // cut off by another character
        {"\xF0\x9F\x98\xC3\xA9", u"\u00F0\u009F\u0098\u00E9"},
        {"\xEF\xBB\xBF" "A", u"A"},                             // mark at the start dropped
        {"\xEF\xBB\xBF", u""},
        {"\xEF\xBB\xBF\xEF\xBB\xBF", u"\uFEFF"},
        {"A\xEF\xBB\xBF", u"A\uFEFF"},
        {"\xEF\xBB", u"\u00EF\u00BB"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(Decode(c.in), c.out) << "input of " << c.in.size() << " bytes: " << testing::PrintToString(c.in);
    UCString out = u"x";
    G::DecodeUTF8(nullptr, 0, out);
    EXPECT_EQ(out, u"");
}

// Straightforward reference decoder, one byte at a time.
UCString ReferenceDecode(const std::string& s) {
    UCString out;
    size_t i = 0;
    const auto* b = reinterpret_cast<const unsigned char*>(s.data());
    const size_t n = s.size();
    if (n >= 3 && b[0] == 0xEF && b[1] == 0xBB && b[2] == 0xBF)
        i = 3;
    auto cont = [&](size_t k) { return k < n && (b[k] & 0xC0) == 0x80; };
    while (i < n) {
        unsigned c = b[i];
        unsigned cp = 0;
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
            out.push_back(static_cast<UCChar>(c));
            ++i;
        } else if (cp >= 0x10000) {
            out.push_back(static_cast<UCChar>(0xD800 + ((cp - 0x10000) >> 10)));
            out.push_back(static_cast<UCChar>(0xDC00 + (cp & 0x3FF)));
            i += len;
        } else {
            out.push_back(static_cast<UCChar>(cp));
            i += len;
        }
    }
    return out;
}

TEST(OzmGlobTest, DecodeUTF8MatchesReferenceOnRandomInput) {
    std::mt19937 rng(12345);
    // Mostly ASCII, with lead and continuation bytes sprinkled at random
    // offsets, so that every block boundary of the fast path gets hit.
    const unsigned char pool[] = {'a', 'b', ' ', '<', 0x80, 0xBF, 0x9F, 0xA0, 0x8F, 0x90, 0xC2, 0xC3, 0xDF,
                                  0xE0, 0xE2, 0xED, 0xEF, 0xF0, 0xF4, 0xF5, 0xC0, 0xFF, 0xBB};
    for (int round = 0; round < 3000; ++round) {
        size_t len = rng() % 80;
        int density = 1 + static_cast<int>(rng() % 8);
        std::string s;
        for (size_t i = 0; i < len; ++i) {
            if (static_cast<int>(rng() % 8) < density)
                s.push_back(static_cast<char>(pool[rng() % sizeof pool]));
            else
                s.push_back(static_cast<char>('a' + rng() % 26));
        }
        ASSERT_EQ(Decode(s), ReferenceDecode(s)) << testing::PrintToString(s);
    }
}

// Long input is decoded a block at a time: a sequence, valid or cut short,
// may straddle any block boundary, and at the very end it stays incomplete.
TEST(OzmGlobTest, DecodeUTF8LongInputAcrossBlocks) {
    const std::string sequences[] = {"\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80", "\xE2\x82", "\xF0\x9F\x98",
                                     "\xC3",     "\x80\x80",     "\xED\xA0\x80"};
    for (const std::string& seq : sequences) {
        for (size_t lead = 4000; lead < 4200; ++lead) {
            std::string s(lead, 'x');
            s += seq + "tail" + std::string(lead % 7, 'y');
            ASSERT_EQ(Decode(s), ReferenceDecode(s)) << "sequence " << testing::PrintToString(seq) << " after " << lead;
            std::string cut = std::string(lead, 'x') + seq;
            ASSERT_EQ(Decode(cut), ReferenceDecode(cut)) << "cut " << testing::PrintToString(seq) << " after " << lead;
        }
    }
}

// --- Paths -----------------------------------------------------------------

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

TEST(OzmGlobTest, SepfileShapes) {
    const struct {
        UCString path, dir, name, ext;
    } cases[] = {
        {u"a/b.dtd", u"a/", u"b", u".dtd"},   {u"/b", u"/", u"b", u""},          {u"b", u"", u"b", u""},
        {u"a//b", u"a//", u"b", u""},         {u"./x.y.z", u"./", u"x.y", u".z"}, {u"a/.hidden", u"a/", u".hidden", u""},
        {u"b.", u"", u"b", u"."},             {u"", u"", u"", u""},              {u"/", u"/", u"", u""},
        {u"dir/", u"dir/", u"", u""},         {u"..", u"", u"..", u""},          {u".a.b", u"", u".a", u".b"},
        {u"a.b/c", u"a.b/", u"c", u""},       {u"/x/y/z.tar.gz", u"/x/y/", u"z.tar", u".gz"},
    };
    for (const auto& c : cases) {
        PathParts parts = Split(c.path);
        EXPECT_EQ(parts.dir, c.dir) << testing::PrintToString(c.path);
        EXPECT_EQ(parts.name, c.name) << testing::PrintToString(c.path);
        EXPECT_EQ(parts.ext, c.ext) << testing::PrintToString(c.path);
        EXPECT_EQ(Join(parts), c.path);
    }
}

TEST(OzmGlobTest, SepfileRoundTripProperty) {
    std::mt19937 rng(7);
    const UCChar alphabet[] = {u'a', u'b', u'.', u'/', u'.', u'/', u'\u00E9'};
    for (int round = 0; round < 5000; ++round) {
        UCString path;
        size_t len = rng() % 12;
        for (size_t i = 0; i < len; ++i)
            path.push_back(alphabet[rng() % 7]);
        PathParts parts = Split(path);
        ASSERT_EQ(Join(parts), path) << testing::PrintToString(path);
        ASSERT_TRUE(parts.dir.empty() || parts.dir.back() == u'/');
        ASSERT_EQ(parts.name.find(u'/'), UCString::npos);
        ASSERT_TRUE(parts.ext.empty() || parts.ext[0] == u'.');
    }
}

TEST(OzmGlobTest, PathBuffersAreNeverOverrun) {
    // Buffers of exactly OZM_MAX_PATH units followed by a guard.
    const UCChar guard = 0x5A5A;
    std::vector<UCChar> p(OZM_MAX_PATH + 8, guard);
    std::fill(p.begin(), p.begin() + OZM_MAX_PATH - 1, u'd');
    p[OZM_MAX_PATH - 1] = 0;
    UCString longName(OZM_MAX_PATH * 2, u'n');
    G::appndnam(p.data(), longName.c_str());
    G::appndext(p.data(), u".ext");
    EXPECT_EQ(UCString(p.data()).size(), static_cast<size_t>(OZM_MAX_PATH - 1));
    for (int i = OZM_MAX_PATH; i < OZM_MAX_PATH + 8; ++i)
        ASSERT_EQ(p[i], guard);

    std::vector<UCChar> q(OZM_MAX_PATH + 8, guard);
    std::fill(q.begin(), q.begin() + 10, u'/');
    std::fill(q.begin() + 10, q.begin() + OZM_MAX_PATH - 1, u'q');
    q[OZM_MAX_PATH - 1] = 0;
    std::vector<UCChar> n(OZM_MAX_PATH + 8, guard), e(OZM_MAX_PATH + 8, guard);
    G::sepfile(q.data(), n.data(), e.data());
    G::appndnam(q.data(), n.data());
    EXPECT_EQ(UCString(q.data()).size(), static_cast<size_t>(OZM_MAX_PATH - 1));
    for (int i = OZM_MAX_PATH; i < OZM_MAX_PATH + 8; ++i) {
        ASSERT_EQ(q[i], guard);
        ASSERT_EQ(n[i], guard);
        ASSERT_EQ(e[i], guard);
    }
}

}  // namespace
