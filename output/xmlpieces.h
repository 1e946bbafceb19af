// xmlpieces.h - the bounded gathering buffer that the writers put their small
// pieces of text into, sent to the stream as runs of units
// (XmlOutputStream::Write): each target receives exactly what piece by piece
// delivery would give it, with one call per run.
#pragma once

#include <cstddef>

#include "dtd/xmlpredefined.h"
#include "platform/units/ozmunits.h"
#include "xmloutput.h"

// Index of the first unit among the count units at p that ends a run of
// plain text: the five XML characters and zero; count when there is none.
inline size_t XmlFindSpecial(const UCChar* p, size_t count) {
    const OzmUnits::Stops<6, false> specials(0, '"', '&', '\'', '<', '>');
    return size_t(OzmUnits::Find(p, p + count, specials) - p);
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
        OzmUnits::Copy(m_buffer + m_used, units, count);
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
