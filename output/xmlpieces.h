// xmlpieces.h - the bounded gathering buffer that the writers put their small
// pieces of text into, sent to the stream as runs of units
// (XmlOutputStream::Write): each target receives exactly what piece by piece
// delivery would give it, with one call per run.
#pragma once

#include <cstdint>
#include <cstring>

#include "dtd/xmlpredefined.h"
#include "xmloutput.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

// Copies count units. Most pieces are a few units long: they go as two
// overlapping moves of a fixed size instead of a call.
inline void CopyUnits(UCChar* to, const UCChar* from, size_t count) {
    char* d = reinterpret_cast<char*>(to);
    const char* s = reinterpret_cast<const char*>(from);
    const size_t bytes = count * sizeof(UCChar);
    if (bytes >= 32) {
        std::memcpy(d, s, bytes);
    } else if (bytes >= 16) {
        char head[16], tail[16];
        std::memcpy(head, s, 16);
        std::memcpy(tail, s + bytes - 16, 16);
        std::memcpy(d, head, 16);
        std::memcpy(d + bytes - 16, tail, 16);
    } else if (bytes >= 8) {
        uint64_t head, tail;
        std::memcpy(&head, s, 8);
        std::memcpy(&tail, s + bytes - 8, 8);
        std::memcpy(d, &head, 8);
        std::memcpy(d + bytes - 8, &tail, 8);
    } else if (bytes >= 4) {
        uint32_t head, tail;
        std::memcpy(&head, s, 4);
        std::memcpy(&tail, s + bytes - 4, 4);
        std::memcpy(d, &head, 4);
        std::memcpy(d + bytes - 4, &tail, 4);
    } else if (bytes) {
        std::memcpy(d, s, 2);
    }
}

// The units that end a run of plain text: the five XML characters and zero.
inline bool XmlIsSpecialUnit(UCChar c) {
    return c == 0 || c == u'"' || c == u'&' || c == u'\'' || c == u'<' || c == u'>';
}

#if defined(__SSE2__)
// Two bits for each of the 8 units at p that is special.
inline unsigned XmlSpecialMask8(const UCChar* p) {
    // '&' 0x26 and '\'' 0x27 differ in bit 0 only, '<' 0x3C and '>' 0x3E in bit 1.
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    const __m128i hit = _mm_or_si128(
        _mm_or_si128(_mm_cmpeq_epi16(v, _mm_setzero_si128()), _mm_cmpeq_epi16(v, _mm_set1_epi16(0x22))),
        _mm_or_si128(_mm_cmpeq_epi16(_mm_or_si128(v, _mm_set1_epi16(1)), _mm_set1_epi16(0x27)),
                     _mm_cmpeq_epi16(_mm_or_si128(v, _mm_set1_epi16(2)), _mm_set1_epi16(0x3E))));
    return static_cast<unsigned>(_mm_movemask_epi8(hit));
}
#endif

// Index of the first special unit among the count units at p; count when
// there is none. Eight units a step where SSE2 is at hand.
inline size_t XmlFindSpecial(const UCChar* p, size_t count) {
    size_t i = 0;
#if defined(__SSE2__)
    for (; count - i >= 8; i += 8) {
        if (unsigned mask = XmlSpecialMask8(p + i))
            return i + (static_cast<unsigned>(__builtin_ctz(mask)) >> 1);
    }
    // The last few units: one more step ending at the end, when the text is
    // long enough; the units it looks at again hold nothing special.
    if (i < count && count >= 8) {
        unsigned mask = XmlSpecialMask8(p + count - 8);
        return mask ? count - 8 + (static_cast<unsigned>(__builtin_ctz(mask)) >> 1) : count;
    }
#endif
    for (; i < count; ++i)
        if (XmlIsSpecialUnit(p[i]))
            return i;
    return count;
}

// Bounded gathering buffer in front of a stream, over storage the caller
// provides. Runs longer than the buffer go to the stream directly.
class XmlPieces {
public:
    XmlPieces(XmlOutputStream& out, UCChar* buffer, size_t size) : m_out(out), m_buffer(buffer), m_size(size) {}
    ~XmlPieces() { Flush(); }
    XmlPieces(const XmlPieces&) = delete;
    XmlPieces& operator=(const XmlPieces&) = delete;

    void Put(UCChar c) {
        if (m_used == m_size)
            Flush();
        m_buffer[m_used++] = c;
    }
    void Put(const UCChar* units, size_t count) {
        if (count > m_size - m_used) {
            Flush();
            if (count >= m_size) {
                m_out.Write(units, count);
                return;
            }
        }
        CopyUnits(m_buffer + m_used, units, count);
        m_used += count;
    }
    // A terminated text, up to its terminator, copied in one pass.
    void Put(const UCChar* text) {
        for (;;) {
            UCChar* to = m_buffer + m_used;
            UCChar* const end = m_buffer + m_size;
            while (to != end && *text)
                *to++ = *text++;
            m_used = size_t(to - m_buffer);
            if (!*text)
                return;
            Flush();
        }
    }
    void Spaces(long long count) {
        static const UCChar kSpaces[] = u"                                                                ";
        constexpr long long kRun = sizeof kSpaces / sizeof kSpaces[0] - 1;
        while (count > 0) {
            long long n = count < kRun ? count : kRun;
            Put(kSpaces, static_cast<size_t>(n));
            count -= n;
        }
    }
    // The count units at text, up to a zero unit, with the five XML
    // characters replaced by their entity references; runs of other units
    // pass unchanged.
    void Escaped(const UCChar* text, size_t count) {
        size_t i = 0;
        for (;;) {
            const size_t run = XmlFindSpecial(text + i, count - i);
            Put(text + i, run);
            i += run;
            if (i == count)
                return;
            const XmlPredefinedEntity* e = XmlPredefinedFor(text[i++]);
            if (!e)  // zero: the end of the text
                return;
            Put(e->reference, e->referenceLength);
        }
    }
    // A string literal, without its terminator.
    template <size_t N>
    void Literal(const UCChar (&text)[N]) {
        Put(text, N - 1);
    }
    void Flush() {
        if (m_used) {
            m_out.Write(m_buffer, m_used);
            m_used = 0;
        }
    }

private:
    XmlOutputStream& m_out;
    UCChar* m_buffer;
    size_t m_size;
    size_t m_used = 0;
};
