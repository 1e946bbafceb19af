// xmlcharstream.h - the inline hot path of the character stream: one unit at a
// time from the push-back stack or the source, line ends folded, lines and
// columns counted, and the XML name tests.
#pragma once

#include <cstdint>
#include <cstring>

#include "xmldocument.h"
#include "input/xmlpushstack.h"
#include "platform/units/ozmunits.h"

// The stream's per-unit operations must not cost a call.
#define OZM_HOT inline __attribute__((always_inline))

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
    return c < 0x80 ? (kOzmAsciiNames.cls[c] & 1) != 0 : XmlIsNameStartRule(c);
}

OZM_HOT bool XmlDocument::IsNameChar(UCChar c) {
    return c < 0x80 ? (kOzmAsciiNames.cls[c] & 2) != 0 : XmlIsNameCharRule(c);
}

OZM_HOT UCChar XmlDocument::PopPushed() {
    UCChar c;
    if (m_hasPushTop) {
        m_hasPushTop = false;
        c = m_pushTop;
        m_pushPending = !PushStack().empty();
        return c;
    }
    c = PushStack().take();
    m_pushPending = !PushStack().empty();
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
        PushStack().push(m_pushTop);
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
        const size_t i = n ? size_t(OzmUnits::NameRun(run, run + n) - run) : 0;
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
        return m_hasPushTop ? 0 : PushStack().run(run);
    return SourceRun(run);
}

// What the source holds in memory after what has been read of it, whatever
// is pushed back; none for an I/O module.
OZM_HOT size_t XmlDocument::SourceRun(const UCChar*& run) {
    if (m_sourceString) {
        run = m_stringCursor;
        return size_t(m_stringEnd - m_stringCursor);
    }
    if (m_sourceFile) {
        run = m_sourceFile->Pending();
        return size_t(m_sourceFile->PendingEnd() - run);
    }
    run = nullptr;
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
        PushStack().skip(count);
        m_pushPending = !PushStack().empty();
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
        if (known.size() == length && OzmUnits::Same(known.data(), name, length))
            return slot - 1;
    }
    return InternName(name, length);
}

// Plain character data in [p, end): returns the first unit that ends it, a
// '<', '&', carriage return, U+2028, 0 or 0xFFFF, or end when there is none.
// Line feeds before that unit are added to lines; lastLf is set to the last
// of them.
OZM_HOT const UCChar* XmlScanText(const UCChar* p, const UCChar* end, int64_t& lines, const UCChar*& lastLf) {
    // The commonest text of an indented document: a line feed, then up to
    // fifteen blanks (spaces and tabs), then markup, taken with one test.
    if (end - p > 16 && *p == 10) {
        const unsigned count = OzmUnits::Blanks16(p + 1);
        if (count < 16 && p[1 + count] == '<') {
            ++lines;
            lastLf = p;
            return p + 1 + count;
        }
    }
    const OzmUnits::Stops<4, true> stops('<', '&', 13, 0);
    return OzmUnits::FindCountingLines(p, end, stops, lines, lastLf);
}

// An ASCII name at the start of [p, end): returns where it ends, which is p
// when p holds no ASCII name start.
OZM_HOT const UCChar* XmlScanAsciiName(const UCChar* p, const UCChar* end) {
    if (p == end || *p >= 0x80 || !(kOzmAsciiNames.cls[*p] & 1))
        return p;
    return OzmUnits::NameRun(p + 1, end);
}

// A quoted value in [p, end) up to its closing quote: returns the quote, or
// the first unit the general reader treats apart (a carriage return, line
// feed, U+2028, 0 or 0xFFFF), or end.
OZM_HOT const UCChar* XmlScanQuoted(const UCChar* p, const UCChar* end, UCChar quote) {
    const OzmUnits::Stops<4, true> stops(quote, 10, 13, 0);
    return OzmUnits::Find(p, end, stops);
}
