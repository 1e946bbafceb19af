// xmlcharstream.h - the inline hot path of the character stream: one unit at a
// time from the push-back stack or the source, line ends folded, lines and
// columns counted, and the XML name tests.
#pragma once

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
    } else {
        c = m_pushBack.take_back();
    }
    m_pushPending = m_hasPushTop || !m_pushBack.empty();
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
        m_pushBack.push_back(m_pushTop);
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
        size_t i = 0;
        while (i < n && run[i] < 0x80 && (kXmlAsciiNames.cls[run[i]] & 2))
            ++i;
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

// Units that can be read straight from the source, bypassing OneChar: only
// while nothing is pushed back. Whoever takes units from the run must account
// for them as NextChar would (ConsumeRun does so for units that are no line
// end).
OZM_HOT size_t XmlDocument::PendingRun(const UCChar*& run) {
    if (m_pushPending)
        return 0;
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

OZM_HOT void XmlDocument::ConsumeRun(size_t count) {
    if (m_sourceString)
        m_stringCursor += count;
    else
        m_sourceFile->Skip(count);
    m_col += int(count);
}
