// xmlpieces.h - the bounded gathering buffer that the writers put their small
// pieces of text into, sent to the stream as runs of units
// (XmlOutputStream::Write): each target receives exactly what piece by piece
// delivery would give it, with one call per run.
#pragma once

#include <cstdint>
#include <cstring>

#include "xmloutput.h"

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
