// ozmdecode.cpp - bytes into UCChar units: the UTF-8 decoder that the file
// layer and OzmGlob::DecodeUTF8 share, and OzmTextDecoder, which finds the
// encoding of a text from its first bytes and decodes it block by block:
// UTF-8, UTF-16, US-ASCII and ISO-8859-1 itself, every other set through the
// C library's iconv (a set of one byte a character through a table that
// iconv fills once).
#include "platform/ozmdecode.h"
#include "platform/ozmutf8.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <new>

#include <iconv.h>

namespace {

// ---------------------------------------------------------------------------
// UTF-8 and UTF-16

// Decodes the UTF-8 bytes [src, src + n) into dst, which must have room for n
// units (no sequence yields more units than it has bytes). A byte that does
// not begin a complete, valid sequence (overlong forms, encoded surrogates,
// values above U+10FFFF, stray continuation bytes) becomes the unit of its
// Latin-1 value and decoding goes on with the next byte. A sequence that is
// valid so far but cut off by the end of the data is left unconsumed unless
// final is set, in which case its bytes are taken one by one as Latin-1.
// Returns the number of units written; *consumed receives the bytes used.
//
// At the AVX2 and AVX-512 levels the vector code takes windows of up to 64 bytes as long
// as they begin with a valid sequence of up to three bytes; what stops it (a
// four-byte sequence, an invalid byte, the last 63 bytes) goes through the
// code below, one sequence at a time, before the vector code takes over again.
// more (never with final) says that the data goes on after n and that the
// caller passes what is not consumed again with it: the last 63 bytes are
// then left unconsumed, whole sequences or not, for the vector code of the
// next call.
size_t DecodeUtf8Run(const unsigned char* src, size_t n, UCChar* dst, bool final, size_t* consumed,
                     bool more = false) {
    const unsigned char* p = src;
    const unsigned char* const end = src + n;
    UCChar* out = dst;
#if defined(__x86_64__)
    const int level = g_ozmUtf8Level.load(std::memory_order_relaxed);
    const bool wide = level >= kOzmUtf8Avx2;
    const auto windows = level >= kOzmUtf8Avx512 ? OzmDecodeUtf8Avx512 : OzmDecodeUtf8Avx2;
#else
    const bool wide = false;
    static_cast<void>(more);  // only the vector code leaves bytes for the next call
#endif
    constexpr ptrdiff_t kWindow = 64;
    for (;;) {
#if defined(__x86_64__)
        if (wide) {
            if (end - p >= kWindow) {
                size_t units;
                p += windows(p, static_cast<size_t>(end - p), out, &units);
                out += units;
                if (end - p >= kWindow)
                    goto sequence;
            }
            if (more && p != src)
                break;
        }
#endif
        {
            // ASCII runs go through a block at a time.
            const size_t ascii = OzmUnits::WidenAscii(p, static_cast<size_t>(end - p), out);
            p += ascii;
            out += ascii;
        }
        if (p == end)
            break;
    // Non-ASCII text comes in runs: after a multi-byte sequence another one
    // is decoded straight away, without probing for an ASCII block first.
    sequence:
        const unsigned b0 = *p;
        if (b0 < 0x80) {
            *out++ = static_cast<UCChar>(b0);
            ++p;
            continue;
        }
        const size_t avail = static_cast<size_t>(end - p);
        if (b0 >= 0xC2 && b0 <= 0xDF) {
            if (avail >= 2) {
                if ((p[1] & 0xC0) == 0x80) {
                    *out++ = static_cast<UCChar>(((b0 & 0x1F) << 6) | (p[1] & 0x3F));
                    p += 2;
                    if (p != end && *p >= 0x80 && !(wide && end - p >= kWindow))
                        goto sequence;
                    continue;
                }
            } else if (!final) {
                break;
            }
        } else if (b0 >= 0xE0 && b0 <= 0xEF) {
            // E0 needs A0..BF next (no overlongs), ED needs 80..9F (no surrogates).
            const unsigned lo = b0 == 0xE0 ? 0xA0 : 0x80;
            const unsigned hi = b0 == 0xED ? 0x9F : 0xBF;
            if (avail >= 2 && (p[1] < lo || p[1] > hi)) {
                // invalid
            } else if (avail >= 3) {
                if ((p[2] & 0xC0) == 0x80) {
                    *out++ = static_cast<UCChar>(((b0 & 0x0F) << 12) | ((p[1] & 0x3F) << 6) | (p[2] & 0x3F));
                    p += 3;
                    if (p != end && *p >= 0x80 && !(wide && end - p >= kWindow))
                        goto sequence;
                    continue;
                }
            } else if (!final) {
                break;
            }
        } else if (b0 >= 0xF0 && b0 <= 0xF4) {
            // F0 needs 90..BF next (no overlongs), F4 needs 80..8F (nothing past U+10FFFF).
            const unsigned lo = b0 == 0xF0 ? 0x90 : 0x80;
            const unsigned hi = b0 == 0xF4 ? 0x8F : 0xBF;
            if (avail >= 2 && (p[1] < lo || p[1] > hi)) {
                // invalid
            } else if (avail >= 3 && (p[2] & 0xC0) != 0x80) {
                // invalid
            } else if (avail >= 4) {
                if ((p[3] & 0xC0) == 0x80) {
                    const uint32_t cp = ((b0 & 0x07u) << 18) | ((p[1] & 0x3Fu) << 12) | ((p[2] & 0x3Fu) << 6) |
                                        (p[3] & 0x3Fu);
                    out[0] = static_cast<UCChar>(0xD800 + ((cp - 0x10000) >> 10));
                    out[1] = static_cast<UCChar>(0xDC00 + (cp & 0x3FF));
                    out += 2;
                    p += 4;
                    continue;
                }
            } else if (!final) {
                break;
            }
        }
        // Not the start of a valid sequence: the byte stands for itself.
        *out++ = static_cast<UCChar>(b0);
        ++p;
    }
    *consumed = static_cast<size_t>(p - src);
    return static_cast<size_t>(out - dst);
}

bool IsUtf8Bom(const unsigned char* p) { return p[0] == 0xEF && p[1] == 0xBB && p[2] == 0xBF; }

// The first n (< 3) bytes of a UTF-8 byte-order mark.
bool IsUtf8BomPrefix(const unsigned char* p, size_t n) {
    static const unsigned char bom[3] = {0xEF, 0xBB, 0xBF};
    return std::memcmp(p, bom, n) == 0;
}

// Units of n / 2 UTF-16 byte pairs.
size_t DecodeUtf16Run(const unsigned char* src, size_t n, UCChar* dst, bool bigEndian) {
    const size_t units = n / 2;
    const bool native = bigEndian == (__BYTE_ORDER__ == __ORDER_BIG_ENDIAN__);
    if (native) {
        std::memcpy(dst, src, units * 2);
    } else if (bigEndian) {
        for (size_t i = 0; i < units; ++i)
            dst[i] = static_cast<UCChar>((src[2 * i] << 8) | src[2 * i + 1]);
    } else {
        for (size_t i = 0; i < units; ++i)
            dst[i] = static_cast<UCChar>(src[2 * i] | (src[2 * i + 1] << 8));
    }
    return units;
}


// Widens n bytes to units. With ascii set, stops at the first byte above
// 0x7F; returns the bytes taken.
size_t WidenRun(const unsigned char* src, size_t n, UCChar* dst, bool ascii) {
    if (ascii)
        return OzmUnits::WidenAscii(src, n, dst);
    OzmUnits::Widen(src, n, dst);
    return n;
}

// ---------------------------------------------------------------------------
// The declaration at the start of an 8-bit text

enum class Sniff { needMore, none, found };

bool IsBlankByte(unsigned char c) { return c == 0x20 || c == 0x09 || c == 0x0A || c == 0x0D; }

// Bytes that can belong to a name: ASCII name characters, and any byte
// beyond ASCII, which may be part of one.
bool IsNameByte(unsigned char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '.' ||
           c == '_' || c == ':' || c >= 0x80;
}

OZM_CSET SetOfName(const unsigned char* p, size_t n) {
    UCChar name[64];
    if (n >= sizeof name / sizeof name[0])
        return csetUnknown;
    for (size_t i = 0; i < n; ++i) {
        if (p[i] >= 0x80 || p[i] == 0)
            return csetUnknown;
        name[i] = p[i];
    }
    name[n] = 0;
    return OzmGlob::EncodingByName(name);
}

// Reads an XML or text declaration at the start of [p, p + n) as the
// declaration parser reads it: blanks, "<?", blanks, "xml" in any case, then
// pseudo-attributes (name, '=', quoted value, blanks anywhere between) up to
// "?>". found: a whole declaration, set being the set of its last encoding
// value (csetUnknown when none or unknown); none: the text begins with
// something else; needMore: the bytes end before that is known. opened: the
// bytes begin a declaration.
Sniff SniffDeclaration(const unsigned char* p, size_t n, OZM_CSET& set, bool& opened) {
    set = csetUnknown;
    opened = false;
    size_t i = 0;
    auto blanks = [&] {
        while (i < n && IsBlankByte(p[i]))
            ++i;
    };
    auto expect = [&](const char* text) {
        for (; *text; ++text, ++i) {
            if (i == n)
                return Sniff::needMore;
            if ((*text >= 'a' ? p[i] | 0x20 : p[i]) != static_cast<unsigned char>(*text))
                return Sniff::none;
        }
        return Sniff::found;
    };
    blanks();
    Sniff s = expect("<?");
    if (s != Sniff::found)
        return s;
    blanks();
    if ((s = expect("xml")) != Sniff::found)
        return s;
    if (i == n)
        return Sniff::needMore;
    if (IsNameByte(p[i]))
        return Sniff::none;  // a processing instruction such as xml-stylesheet
    opened = true;
    for (;;) {
        blanks();
        if (i == n)
            return Sniff::needMore;
        if (p[i] == '?') {
            if (++i == n)
                return Sniff::needMore;
            return p[i] == '>' ? Sniff::found : Sniff::none;
        }
        const size_t name = i;
        while (i < n && IsNameByte(p[i]))
            ++i;
        if (i == n)
            return Sniff::needMore;
        if (i == name)
            return Sniff::none;
        const size_t nameLength = i - name;
        blanks();
        if ((s = expect("=")) != Sniff::found)
            return s;
        blanks();
        if (i == n)
            return Sniff::needMore;
        const unsigned char quote = p[i++];
        if (quote != '"' && quote != '\'')
            return Sniff::none;
        const size_t value = i;
        while (i < n && p[i] != quote)
            ++i;
        if (i == n)
            return Sniff::needMore;
        if (nameLength == 8) {
            size_t k = 0;
            while (k < 8 && (p[name + k] | 0x20) == static_cast<unsigned char>("encoding"[k]))
                ++k;
            if (k == 8)
                set = SetOfName(p + value, i - value);
        }
        ++i;
    }
}

// How the decoder turns bytes into units.
enum Kind { kNone, kUtf8, kUtf16LE, kUtf16BE, kLatin1, kAscii, kTable, kIconv };

inline iconv_t Handle(void* h) { return static_cast<iconv_t>(h); }

// The unit of a byte that is no text in a set of one byte a character.
constexpr UCChar kNoUnit = 0xFFFF;

// Tables of the sets of one byte a character, by set value: each byte's unit
// as iconv decodes it, or kNoUnit. Made once, at the first text in a set,
// and kept; kNotByByte marks a set that is not of that kind.
constexpr int kTableSlots = 128;
std::atomic<const UCChar*> g_byteTables[kTableSlots];
const UCChar kNotByByte[1] = {0};

// The table of set (iconv's name), or null when its characters are not all
// of one byte or the table cannot be had now.
const UCChar* ByteTable(OZM_CSET set, const char* name) {
    if (set < 0 || set >= kTableSlots)
        return nullptr;
    const UCChar* known = g_byteTables[set].load(std::memory_order_acquire);
    if (known)
        return known == kNotByByte ? nullptr : known;
    iconv_t cd = iconv_open(OzmIconvUnits(), name);
    if (cd == reinterpret_cast<iconv_t>(-1))
        return nullptr;
    UCChar* table = new (std::nothrow) UCChar[256];
    const UCChar* made = table;
    for (int b = 0; table && b < 256; ++b) {
        char byte = static_cast<char>(b);
        char* in = &byte;
        size_t inLeft = 1;
        UCChar units[2];
        char* to = reinterpret_cast<char*>(units);
        size_t toLeft = sizeof units;
        const size_t r = iconv(cd, &in, &inLeft, &to, &toLeft);
        const int error = errno;
        iconv(cd, nullptr, nullptr, nullptr, nullptr);
        if (r != size_t(-1) && toLeft == sizeof units - sizeof(UCChar) && units[0] != kNoUnit) {
            table[b] = units[0];
        } else if (r == size_t(-1) && error == EILSEQ) {
            table[b] = kNoUnit;
        } else {
            made = kNotByByte;  // a byte that begins a longer character
            break;
        }
    }
    iconv_close(cd);
    if (!table)
        return nullptr;
    if (made == kNotByByte)
        delete[] table;
    const UCChar* expected = nullptr;
    if (!g_byteTables[set].compare_exchange_strong(expected, made, std::memory_order_acq_rel)) {
        if (made != kNotByByte)
            delete[] table;  // another thread made it first
        made = expected;
    }
    return made == kNotByByte ? nullptr : made;
}

}  // namespace


// ---------------------------------------------------------------------------
// OzmGlob::DecodeUTF8

void OzmGlob::DecodeUTF8(const unsigned char* data, size_t length, UCString& out) {
    if (!data || length == 0) {
        out.clear();
        return;
    }
    if (length >= 3 && IsUtf8Bom(data)) {
        data += 3;
        length -= 3;
    }
    // Decoded a block at a time into a local buffer and appended: resizing
    // the string first would fill it with zeros only to overwrite them (which
    // costs more than the copy). The block's 8,000 bytes stay below the size
    // from which the C library copies with string instructions, which
    // instruction counts show a byte at a time. A sequence cut by the end of
    // a block is decoded at the start of the next; so are the last bytes of a
    // block that the vector code leaves.
    out.clear();
    out.reserve(length);
    constexpr size_t kBlock = 4000;
    UCChar units[kBlock];
    while (length > 0) {
        const bool final = length <= kBlock;
        size_t consumed;
        const size_t n = DecodeUtf8Run(data, final ? length : kBlock, units, final, &consumed, !final);
        out.append(units, n);
        data += consumed;
        length -= consumed;
    }
}


// ---------------------------------------------------------------------------
// OzmTextDecoder

OzmTextDecoder::OzmTextDecoder(const OzmTextDecoder& other) { *this = other; }

OzmTextDecoder& OzmTextDecoder::operator=(const OzmTextDecoder& other) {
    if (this == &other)
        return *this;
    CloseIconv();
    m_format = other.m_format;
    m_kind = other.m_kind;
    m_set = other.m_set;
    m_stateful = other.m_stateful;
    m_used = other.m_used;
    m_lost = other.m_lost;
    m_cut = other.m_cut;
    m_table = other.m_table;
    if (m_kind == kIconv && !m_lost) {
        // A new decoder starts in the initial state, which is the original's
        // only while it keeps none or has read nothing yet.
        m_iconv = iconv_open(OzmIconvUnits(), OzmIconvName(m_set));
        if (m_iconv == reinterpret_cast<void*>(-1)) {
            m_iconv = nullptr;
            if (errno == ENOMEM)
                throw std::bad_alloc();
            m_lost = true;
        }
        m_lost = m_lost || (m_stateful && m_used);
    }
    return *this;
}

OzmTextDecoder::~OzmTextDecoder() { CloseIconv(); }

void OzmTextDecoder::CloseIconv() {
    if (m_iconv)
        iconv_close(Handle(m_iconv));
    m_iconv = nullptr;
}

void OzmTextDecoder::Reset(int format) {
    CloseIconv();
    m_format = format;
    m_kind = kNone;
    m_set = csetUTF8;
    m_table = nullptr;
    m_stateful = m_used = m_lost = m_cut = false;
}

// Selects how set is decoded; UTF-8 stands for every form that is no 8-bit
// set of its own (the UTF-16 forms, unknown names).
void OzmTextDecoder::Select(OZM_CSET set) {
    CloseIconv();
    m_table = nullptr;
    m_stateful = m_used = m_lost = false;
    if (set == csetISO8859_1 || set == csetASCII) {
        m_kind = set == csetASCII ? kAscii : kLatin1;
        m_set = set;
        return;
    }
    bool stateful = false;
    const char* name = OzmIconvName(set, &stateful);
    if (!name) {
        m_kind = kUtf8;
        m_set = csetUTF8;
        return;
    }
    m_set = set;
    // A set of one byte a character goes through its table, made by iconv.
    if (!stateful && (m_table = ByteTable(set, name)) != nullptr) {
        m_kind = kTable;
        return;
    }
    m_kind = kIconv;
    m_stateful = stateful;
    m_iconv = iconv_open(OzmIconvUnits(), name);
    if (m_iconv == reinterpret_cast<void*>(-1)) {
        m_iconv = nullptr;
        if (errno == ENOMEM)
            throw std::bad_alloc();
        // The text is not read in a set it is not in: it fails at once.
        m_lost = true;
    }
}

OzmTextDecoder::Status OzmTextDecoder::Begin(const unsigned char* data, size_t n, bool final, size_t& skip) {
    skip = 0;
    if (m_format != 4 && m_format != 0x6004 && m_format != 0xA004) {
        if (n < 3 && !final && IsUtf8BomPrefix(data, n))
            return decNeedMore;
        if (n >= 3 && IsUtf8Bom(data)) {
            skip = 3;
            Select(csetUTF8);
            return decDone;
        }
        OZM_CSET set;
        bool opened;
        const Sniff s = SniffDeclaration(data, n, set, opened);
        if (s == Sniff::needMore && !final)
            return decNeedMore;
        Select(s == Sniff::found ? set : csetUTF8);
        m_cut = s == Sniff::needMore && opened;
        return decDone;
    }
    if (n < 2 && !final)
        return decNeedMore;
    const bool le = n >= 2 && data[0] == 0xFF && data[1] == 0xFE;
    const bool be = n >= 2 && data[0] == 0xFE && data[1] == 0xFF;
    const bool big = m_format == 0xA004 || (m_format == 4 && be);
    m_kind = big ? kUtf16BE : kUtf16LE;
    m_set = big ? csetUTF16BE : csetUTF16LE;
    if (big ? be : le)
        skip = 2;
    return decDone;
}

OzmTextDecoder::Status OzmTextDecoder::Decode(const unsigned char* data, size_t n, UCChar* out, size_t capacity,
                                              bool final, size_t& consumed, size_t& units) {
    consumed = units = 0;
    switch (m_kind) {
    case kUtf8: {
        // At most one unit a byte: the run needs room for all it is given.
        const size_t take = n < capacity ? n : capacity;
        units = DecodeUtf8Run(data, take, out, final && take == n, &consumed);
        if (consumed == n)
            return decDone;
        return take == n ? decNeedMore : decFull;
    }
    case kUtf16LE:
    case kUtf16BE: {
        const size_t pairs = n / 2 < capacity ? n / 2 : capacity;
        units = DecodeUtf16Run(data, pairs * 2, out, m_kind == kUtf16BE);
        consumed = pairs * 2;
        if (pairs < n / 2)
            return decFull;
        if (consumed == n)
            return decDone;
        if (!final)
            return decNeedMore;
        consumed = n;  // an odd byte at the end is dropped
        return decDone;
    }
    case kLatin1:
    case kAscii: {
        const size_t take = n < capacity ? n : capacity;
        units = consumed = WidenRun(data, take, out, m_kind == kAscii);
        if (consumed < take)
            return decInvalid;
        return take == n ? decDone : decFull;
    }
    case kTable: {
        const size_t take = n < capacity ? n : capacity;
        const UCChar* const table = static_cast<const UCChar*>(m_table);
        size_t i = 0;
        for (; i < take; ++i) {
            const UCChar u = table[data[i]];
            if (u == kNoUnit)
                break;
            out[i] = u;
        }
        units = consumed = i;
        if (i < take)
            return decInvalid;
        return take == n ? decDone : decFull;
    }
    case kIconv: {
        if (m_lost)
            return decInvalid;
        m_used = true;
        char* in = reinterpret_cast<char*>(const_cast<unsigned char*>(data));
        size_t inLeft = n;
        char* to = reinterpret_cast<char*>(out);
        size_t toLeft = capacity * sizeof(UCChar);
        size_t r = iconv(Handle(m_iconv), &in, &inLeft, &to, &toLeft);
        int error = errno;
        // A decoder that holds a character back gives it up at the end.
        if (r != size_t(-1) && final) {
            r = iconv(Handle(m_iconv), nullptr, nullptr, &to, &toLeft);
            error = errno;
        }
        consumed = n - inLeft;
        units = (capacity * sizeof(UCChar) - toLeft) / sizeof(UCChar);
        if (r != size_t(-1))
            return decDone;
        if (error == E2BIG)
            return decFull;
        if (error == EINVAL && !final && n - consumed <= kMaxPartial)
            return decNeedMore;
        return decInvalid;
    }
    default:
        return decInvalid;  // Begin has not decided yet
    }
}
