// xmlcharstream.h - the inline hot path of the character stream: one unit at a
// time from the push-back stack or the source, line ends folded, lines and
// columns counted, and the XML name tests.
#pragma once

#include <cstdint>
#include <cstring>

#include <emmintrin.h>

#include "xmldocument.h"

// The stream's per-unit operations must not cost a call.
#define OZM_HOT inline __attribute__((always_inline))

// Name classes of the ASCII range: bit 1 name start, bit 2 name character.
// They agree with the general rule below (letters are Lu/Ll, digits Nd, the
// rest of ASCII is punctuation, symbols and controls).
struct XmlAsciiNames {
    unsigned char cls[128];
    constexpr XmlAsciiNames() : cls() {
        for (int c = 'a'; c <= 'z'; ++c)
            cls[c] = 3;
        for (int c = 'A'; c <= 'Z'; ++c)
            cls[c] = 3;
        for (int c = '0'; c <= '9'; ++c)
            cls[c] = 2;
        cls[int(':')] = cls[int('_')] = 3;
        cls[int('-')] = cls[int('.')] = 2;
    }
};
inline constexpr XmlAsciiNames kXmlAsciiNames{};

// The ASCII name characters at the start of [p, end): returns the first
// unit that is none (a unit beyond ASCII is none). Names are mostly
// letters: the run of letters is found sixteen units at a time (a letter is
// one unit in a range once its case bit is set), and the table goes on from
// the first unit that is no letter.
OZM_HOT const UCChar* XmlSkipAsciiNameChars(const UCChar* p, const UCChar* end) {
    if (end - p >= 16) {
        // Packed with signed saturation, only an ASCII unit gives a byte
        // below 0x7F. After the shift, 'a' to 'z' are -128 to -103.
        const __m128i v = _mm_packs_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)),
                                          _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 8)));
        const __m128i shifted = _mm_add_epi8(_mm_or_si128(v, _mm_set1_epi8(0x20)), _mm_set1_epi8(char(0x80 - 'a')));
        const unsigned letters = unsigned(_mm_movemask_epi8(_mm_cmplt_epi8(shifted, _mm_set1_epi8(char(0x80 + 26)))));
        p += __builtin_ctz(~letters);
    }
    while (p != end && *p < 0x80 && (kXmlAsciiNames.cls[*p] & 2))
        ++p;
    return p;
}

// The general rules, for every unit.
inline bool XmlIsNameStartRule(UCChar c) {
    if (c >= 0xF900 && c <= 0xFFFD)
        return false;
    if ((c >= 0x02BB && c <= 0x02C1) || c == 0x0559 || c == 0x06E5 || c == 0x06E6)
        return true;
    if (c >= 0x20DD && c <= 0x20E0)
        return false;
    if (c == 0x00B7)
        return false;
    if (c == ':' || c == '_')
        return true;
    return (OzmGlob::GetUCAttrs(c) & OzmGlob::ucNameStartMask) != 0;
}

inline bool XmlIsNameCharRule(UCChar c) {
    if (XmlIsNameStartRule(c))
        return true;
    if (c >= 0xF900 && c <= 0xFFFD)
        return false;
    if (c >= 0x20DD && c <= 0x20E0)
        return false;
    if (c == '-' || c == '.')
        return true;
    return (OzmGlob::GetUCAttrs(c) & OzmGlob::ucNameCharMask) != 0;
}

OZM_HOT bool XmlDocument::IsNameStart(UCChar c) {
    return c < 0x80 ? (kXmlAsciiNames.cls[c] & 1) != 0 : XmlIsNameStartRule(c);
}

OZM_HOT bool XmlDocument::IsNameChar(UCChar c) {
    return c < 0x80 ? (kXmlAsciiNames.cls[c] & 2) != 0 : XmlIsNameCharRule(c);
}

OZM_HOT UCChar XmlDocument::PopPushed() {
    UCChar c;
    if (m_hasPushTop) {
        m_hasPushTop = false;
        c = m_pushTop;
        m_pushPending = !m_pushBack.empty();
        return c;
    }
    c = m_pushBack.take();
    m_pushPending = !m_pushBack.empty();
    return c;
}

OZM_HOT UCChar XmlDocument::OneChar() {
    if (m_pushPending)
        return PopPushed();
    if (m_sourceString) {
        if (m_stringCursor == m_stringEnd)
            return UCEof;
        ++m_col;
        return *m_stringCursor++;
    }
    if (m_sourceFile) {
        UCChar c = m_sourceFile->Getc();
        if (c != UCEof)
            ++m_col;
        return c;
    }
    if (m_lwio)
        return ModuleChar();
    return UCEof;
}

OZM_HOT UCChar XmlDocument::NextChar() {
    UCChar c = OneChar();
    if (__builtin_expect(c > 13 && c != 0x2028, 1))
        return c;
    if (c == 13) {
        c = OneChar();
        if (c != 10 && c != UCEof)
            PushBack(c);
        if (c != UCEof)
            c = 10;
    }
    if (c == 10 || c == 0x2028) {
        ++m_line;
        m_col = 0;
    }
    return c;
}

OZM_HOT UCChar XmlDocument::SkipSpace() {
    UCChar c = NextChar();
    while (c != UCEof && OzmGlob::IsUCSpace(c))
        c = NextChar();
    return c;
}

OZM_HOT void XmlDocument::PushBack(UCChar c) {
    if (m_hasPushTop)
        m_pushBack.push(m_pushTop);
    m_pushTop = c;
    m_hasPushTop = true;
    m_pushPending = true;
}

// Appends name characters to token and returns the first other unit, which
// is consumed; callers that must not consume it push it back. Runs of plain
// units straight from the source are taken in bulk.
inline UCChar XmlDocument::ReadName(UCString& token) {
    for (;;) {
        const UCChar* run;
        size_t n = PendingRun(run);
        const size_t i = n ? size_t(XmlSkipAsciiNameChars(run, run + n) - run) : 0;
        if (i) {
            token.append(run, i);
            ConsumeRun(i);
        }
        UCChar c = NextChar();
        if (!IsNameChar(c))
            return c;
        token.push_back(c);
    }
}

// Units that can be read in bulk, bypassing OneChar: the rest of the pushed
// text on top of the push-back stack, or, while nothing is pushed back, what
// the source holds in memory. Whoever takes units from the run must account
// for them as NextChar would (ConsumeRun does so for units that are no line
// end; pushed units move no column).
OZM_HOT size_t XmlDocument::PendingRun(const UCChar*& run) {
    if (m_pushPending)
        return m_hasPushTop ? 0 : m_pushBack.run(run);
    if (m_sourceString) {
        run = m_stringCursor;
        return size_t(m_stringEnd - m_stringCursor);
    }
    if (m_sourceFile) {
        run = m_sourceFile->Pending();
        return size_t(m_sourceFile->PendingEnd() - run);
    }
    return 0;
}

OZM_HOT void XmlDocument::ConsumeRun(size_t count) { ConsumeLines(count, 0, 0); }

// Takes count units of the pending run that hold lines line ends, the last
// of them tail units before the end of what is taken: the position ends up
// where NextChar would leave it unit by unit. Behind a line end the column
// counts the units after it; pushed units move no column, so behind a line
// end in pushed text it is 0.
OZM_HOT void XmlDocument::ConsumeLines(size_t count, int64_t lines, size_t tail) {
    if (m_pushPending) {
        m_pushBack.skip(count);
        m_pushPending = !m_pushBack.empty();
        tail = 0;
    } else {
        if (m_sourceString)
            m_stringCursor += count;
        else
            m_sourceFile->Skip(count);
        m_col += int64_t(count);
    }
    if (lines) {
        m_line += lines;
        m_col = int64_t(tail);
    }
}

// Whether the n units at a and b are the same. Names are short: they are
// compared four units at a time, the last four of them as a word that may
// overlap the one before, rather than through a call to memcmp.
OZM_HOT bool XmlSameUnits(const UCChar* a, const UCChar* b, size_t n) {
    uint64_t x, y;
    if (n < 4) {
        for (; n; --n)
            if (*a++ != *b++)
                return false;
        return true;
    }
    for (; n > 4; a += 4, b += 4, n -= 4) {
        std::memcpy(&x, a, 8);
        std::memcpy(&y, b, 8);
        if (x != y)
            return false;
    }
    std::memcpy(&x, a + n - 4, 8);
    std::memcpy(&y, b + n - 4, 8);
    return x == y;
}

OZM_HOT XmlElement* XmlDocument::NewNode() {
    if (m_elementBlocks && m_elementBlocks->FreeCount() != 0)
        return m_elementBlocks->NewElement();
    return NewElement();
}

// Most names of a document are few and repeat: a hashed cache in front of
// the name table answers them without walking the ordered map.
inline int XmlDocument::NameSlot(const UCChar* name, size_t length) const {
    unsigned h = unsigned(length) * 31u;
    if (length)
        h += name[0] * 7u + name[length - 1] * 3u + name[length / 2];
    return int((h ^ (h >> 8)) & 255);
}

OZM_HOT int XmlDocument::CachedName(const UCChar* name, size_t length) {
    const int slot = m_nameCache[NameSlot(name, length)];
    if (slot > 0 && size_t(slot) <= m_names.size()) {
        const UCString& known = m_names[size_t(slot - 1)];
        if (known.size() == length && XmlSameUnits(known.data(), name, length))
            return slot - 1;
    }
    return InternName(name, length);
}

// A set of N units looked for eight units at a time.
template <int N>
struct XmlUnitSet {
    __m128i wide[N];
    UCChar units[N];
    template <class... U>
    explicit XmlUnitSet(U... u) : wide{_mm_set1_epi16(short(u))...}, units{UCChar(u)...} {}
    // Two mask bits for each of the eight units at p that is in the set.
    OZM_HOT unsigned Match(const UCChar* p) const {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        __m128i hit = _mm_cmpeq_epi16(v, wide[0]);
        for (int i = 1; i < N; ++i)
            hit = _mm_or_si128(hit, _mm_cmpeq_epi16(v, wide[i]));
        return unsigned(_mm_movemask_epi8(hit));
    }
    OZM_HOT bool Has(UCChar u) const {
        for (int i = 0; i < N; ++i)
            if (u == units[i])
                return true;
        return false;
    }
};

// The sixteen units at p as bytes, for tests against sets of ASCII units:
// an ASCII unit keeps its value, 0xFFFF and U+2028 both become 0xFF, and
// every other unit becomes a byte from 0x7F to 0xFE (signed saturation),
// which no ASCII unit below 0x7F shares. Sixteen units are tested with the
// compares that eight would need unpacked.
OZM_HOT __m128i XmlPackUnits(const UCChar* p) {
    const __m128i ls = _mm_set1_epi16(0x2028);
    __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 8));
    a = _mm_or_si128(a, _mm_cmpeq_epi16(a, ls));
    b = _mm_or_si128(b, _mm_cmpeq_epi16(b, ls));
    return _mm_packs_epi16(a, b);
}

// A set of N bytes of packed units: ASCII units below 0x7F, and 0xFF for
// 0xFFFF and U+2028.
template <int N>
struct XmlByteSet {
    __m128i wide[N];
    template <class... U>
    explicit XmlByteSet(U... u) : wide{_mm_set1_epi8(char(u))...} {}
    // One mask bit for each of the sixteen packed units in v that is in the
    // set.
    OZM_HOT unsigned Match(__m128i v) const {
        __m128i hit = _mm_cmpeq_epi8(v, wide[0]);
        for (int i = 1; i < N; ++i)
            hit = _mm_or_si128(hit, _mm_cmpeq_epi8(v, wide[i]));
        return unsigned(_mm_movemask_epi8(hit));
    }
};

// Adds the line feeds of a mask of the sixteen units at p (one bit per
// unit). Bits are cleared one at a time: there are few line feeds, and a
// population count instruction cannot be assumed.
OZM_HOT void CountLines(const UCChar* p, unsigned lfMask, int64_t& lines, const UCChar*& lastLf) {
    lastLf = p + (31 - __builtin_clz(lfMask));
    do {
        ++lines;
        lfMask &= lfMask - 1;
    } while (lfMask);
}

// Plain character data in [p, end): returns the first unit that ends it, a
// '<', '&', carriage return, U+2028, 0 or 0xFFFF, or end when there is none.
// Line feeds before that unit are added to lines; lastLf is set to the last
// of them.
OZM_HOT const UCChar* XmlScanText(const UCChar* p, const UCChar* end, int64_t& lines, const UCChar*& lastLf) {
    // The commonest text of an indented document: a line feed, then up to
    // fifteen blanks (spaces and tabs), then markup, taken with one test.
    if (end - p > 16 && *p == 10) {
        const __m128i v = _mm_packs_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 1)),
                                          _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 9)));
        const unsigned blanks = unsigned(
            _mm_movemask_epi8(_mm_or_si128(_mm_cmpeq_epi8(v, _mm_set1_epi8(' ')), _mm_cmpeq_epi8(v, _mm_set1_epi8('\t')))));
        const unsigned count = unsigned(__builtin_ctz(~blanks));
        if (count < 16 && p[1 + count] == '<') {
            ++lines;
            lastLf = p;
            return p + 1 + count;
        }
    }
    const XmlByteSet<5> stops('<', '&', 13, 0, 0xFF);
    const __m128i lf = _mm_set1_epi8(10);
    for (; end - p >= 16; p += 16) {
        const __m128i v = XmlPackUnits(p);
        const unsigned stopMask = stops.Match(v);
        unsigned lfMask = unsigned(_mm_movemask_epi8(_mm_cmpeq_epi8(v, lf)));
        if (stopMask) {
            // The line feeds in front of the first stop.
            lfMask &= (stopMask & (0u - stopMask)) - 1;
            if (lfMask)
                CountLines(p, lfMask, lines, lastLf);
            return p + __builtin_ctz(stopMask);
        }
        if (lfMask)
            CountLines(p, lfMask, lines, lastLf);
    }
    for (; p != end; ++p) {
        const UCChar u = *p;
        if (u == '<' || u == '&' || u == 13 || u == 0 || u == 0x2028 || u == UCEof)
            break;
        if (u == 10) {
            ++lines;
            lastLf = p;
        }
    }
    return p;
}

// An ASCII name at the start of [p, end): returns where it ends, which is p
// when p holds no ASCII name start.
OZM_HOT const UCChar* XmlScanAsciiName(const UCChar* p, const UCChar* end) {
    if (p == end || *p >= 0x80 || !(kXmlAsciiNames.cls[*p] & 1))
        return p;
    return XmlSkipAsciiNameChars(p + 1, end);
}

// A quoted value in [p, end) up to its closing quote: returns the quote, or
// the first unit the general reader treats apart (a carriage return, line
// feed, U+2028, 0 or 0xFFFF), or end.
OZM_HOT const UCChar* XmlScanQuoted(const UCChar* p, const UCChar* end, UCChar quote) {
    const XmlByteSet<5> stops(quote, 10, 13, 0, 0xFF);
    for (; end - p >= 16; p += 16)
        if (const unsigned mask = stops.Match(XmlPackUnits(p)))
            return p + __builtin_ctz(mask);
    for (; p != end; ++p) {
        const UCChar u = *p;
        if (u == quote || u == 10 || u == 13 || u == 0 || u == 0x2028 || u == UCEof)
            break;
    }
    return p;
}
