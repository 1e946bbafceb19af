// ozmunits.h - the primitives on runs of 16-bit units that the scanners, the
// text store, the writers, the generator and the codecs share: finding the
// next unit of a stop set (with the line feeds before it counted), copying,
// comparing, scanning ASCII names and blanks, scanning white space,
// folding units to bytes and widening bytes to units.
//
// Each primitive stands at two levels that give the same results:
// OzmUnitsPortable, plain C++ and the reference, and OzmUnitsVector<Ops>,
// which takes 16 bytes a step through the operations of Ops: OzmSse2 where
// the compiler targets SSE2 (every x86-64), OzmNeon on AArch64. OzmUnits is
// the level of this build: the vector one where there is one, else the
// portable one. The AVX2 level of the UTF-8 decoder, chosen at run time
// from the CPU, lives beside this file (ozmunits_avx2.cpp); nothing outside
// this folder includes an intrinsics header.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "ozmutil.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#define OZM_UNITS_SSE2 1
#elif defined(__aarch64__) && defined(__ARM_NEON) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
#include <arm_neon.h>
#define OZM_UNITS_NEON 1
#endif

// The primitives run inside the per-unit loops of their callers: no call.
#define OZM_UNITS_INLINE inline __attribute__((always_inline))

// Name classes of the ASCII range: bit 1 name start, bit 2 name character.
// Letters are Lu/Ll, digits Nd, the rest of ASCII is punctuation, symbols
// and controls, of which ':' and '_' start names and '-' and '.' go on them.
struct OzmAsciiNames {
    unsigned char cls[128];
    constexpr OzmAsciiNames() : cls() {
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
inline constexpr OzmAsciiNames kOzmAsciiNames{};

// FNV-1a over n units: the hash of names and values in the tables that
// key them by their text.
inline uint32_t OzmHashUnits(const UCChar* p, size_t n) {
    uint32_t h = 2166136261u;
    for (size_t i = 0; i < n; ++i)
        h = (h ^ p[i]) * 16777619u;
    return h;
}

// The two units a stop set with Ends stops at besides its own: the line
// separator and the end-of-input unit, which the reader treats apart alike.
OZM_UNITS_INLINE bool OzmIsEndUnit(UCChar u) { return u == 0x2028 || u == UCEof; }

// Whether the terminated text at text is the n units at known. It is read
// unit by unit, up to the first that differs, since its length is unknown.
OZM_UNITS_INLINE bool OzmSameText(const UCChar* known, size_t n, const UCChar* text) {
    for (size_t i = 0; i < n; ++i)
        if (text[i] != known[i])
            return false;
    return text[n] == 0;
}

// The pause of a spin-wait loop.
OZM_UNITS_INLINE void OzmSpinPause() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    __asm__ __volatile__("yield");
#endif
}

// ---------------------------------------------------------------------------
// The portable level: the reference for the others.

struct OzmUnitsPortable {
    static constexpr const char* kName = "portable";

    // A set of N units to stop at, each ASCII below 0x7F (so that the vector
    // levels can test units as bytes); with Ends, U+2028 and 0xFFFF too.
    template <int N, bool Ends>
    struct Stops {
        UCChar units[N];
        template <class... U>
        explicit Stops(U... u) : units{UCChar(u)...} {
            static_assert(sizeof...(U) == N, "a unit for each place of the set");
        }
        OZM_UNITS_INLINE bool Has(UCChar u) const {
            for (int i = 0; i < N; ++i)
                if (u == units[i])
                    return true;
            return Ends && OzmIsEndUnit(u);
        }
    };

    // The first unit of [p, end) in stops, or end.
    template <int N, bool Ends>
    static OZM_UNITS_INLINE const UCChar* Find(const UCChar* p, const UCChar* end, const Stops<N, Ends>& stops) {
        while (p != end && !stops.Has(*p))
            ++p;
        return p;
    }

    // Find, and the line feeds in front of the unit found (stops holds none):
    // their number is added to lines and lastLf is set to the last of them.
    template <int N, bool Ends>
    static OZM_UNITS_INLINE const UCChar* FindCountingLines(const UCChar* p, const UCChar* end,
                                                           const Stops<N, Ends>& stops, int64_t& lines,
                                                           const UCChar*& lastLf) {
        for (; p != end && !stops.Has(*p); ++p) {
            if (*p == 10) {
                ++lines;
                lastLf = p;
            }
        }
        return p;
    }

    // The number of blanks (spaces and tabs) that begin the 16 units at p;
    // 16 when all are.
    static OZM_UNITS_INLINE unsigned Blanks16(const UCChar* p) {
        unsigned i = 0;
        while (i < 16 && (p[i] == ' ' || p[i] == '\t'))
            ++i;
        return i;
    }

    // The end of the run of ASCII name characters at the start of [p, end).
    static OZM_UNITS_INLINE const UCChar* NameRun(const UCChar* p, const UCChar* end) {
        while (p != end && *p < 0x80 && (kOzmAsciiNames.cls[*p] & 2))
            ++p;
        return p;
    }

    // Whether the n units at p are all white space (space, tab, line feed,
    // carriage return).
    static OZM_UNITS_INLINE bool AllSpace(const UCChar* p, size_t n) {
        for (size_t i = 0; i < n; ++i)
            if (p[i] != 0x20 && p[i] != 0x09 && p[i] != 0x0A && p[i] != 0x0D)
                return false;
        return true;
    }

    // The number of white space units that begin the n units at p.
    static OZM_UNITS_INLINE size_t SpaceRun(const UCChar* p, size_t n) {
        size_t i = 0;
        while (i < n && (p[i] == 0x20 || p[i] == 0x09 || p[i] == 0x0A || p[i] == 0x0D))
            ++i;
        return i;
    }

    // Copies n units to a place that does not overlap them.
    static OZM_UNITS_INLINE void Copy(UCChar* to, const UCChar* from, size_t n) {
        for (size_t i = 0; i < n; ++i)
            to[i] = from[i];
    }

    // Whether the n units at a and b are the same.
    static OZM_UNITS_INLINE bool Same(const UCChar* a, const UCChar* b, size_t n) {
        for (size_t i = 0; i < n; ++i)
            if (a[i] != b[i])
                return false;
        return true;
    }

    // Stores the units from 1 to 0x7F that begin the n units at p as bytes at
    // out; returns their number. out has room for n bytes, and the vector
    // levels may write bytes behind those returned.
    static OZM_UNITS_INLINE size_t FoldAscii(const UCChar* p, size_t n, unsigned char* out) {
        size_t i = 0;
        for (; i < n && p[i] < 0x80 && p[i] != 0; ++i)
            out[i] = static_cast<unsigned char>(p[i]);
        return i;
    }

    // Stores the ASCII bytes that begin the n bytes at p as units at out;
    // returns their number. out has room for n units, and the vector levels
    // may write units behind those returned.
    static OZM_UNITS_INLINE size_t WidenAscii(const unsigned char* p, size_t n, UCChar* out) {
        size_t i = 0;
        for (; i < n && p[i] < 0x80; ++i)
            out[i] = p[i];
        return i;
    }

    // Stores the n bytes at p as units at out.
    static OZM_UNITS_INLINE void Widen(const unsigned char* p, size_t n, UCChar* out) {
        for (size_t i = 0; i < n; ++i)
            out[i] = p[i];
    }
};

// ---------------------------------------------------------------------------
// The vector level, over 16 bytes a step. Ops gives:
//   Bytes                a vector of 16 bytes
//   Mask, kAll           a mask of the 16 bytes of a vector, and the mask of all
//   Splat(b)             b in every byte
//   Load(p), Store(p, v) 16 bytes from and to any address
//   Pack<Ends>(a, b)     the 8 units at a and the 8 at b as 16 bytes, by signed
//                        saturation: ASCII below 0x7F keeps its value, every other
//                        unit becomes a byte from 0x7F up (0xFFFF 0xFF); with
//                        Ends, U+2028 becomes 0xFF too
//   PackUnsigned(p)      the 16 units at p as bytes, by unsigned saturation
//                        (0 to 0xFF keep their value, units above become 0xFF,
//                        units from 0x8000 up 0)
//   Widen(v, out)        the 16 bytes of v as 16 units at out
//   Eq, Or, And, Add     bytewise; Less: bytewise signed compare
//   Hits(v)              the mask of the bytes of a compare result that are set
//   Tops(v)              the mask of the bytes that have their top bit set
//   First(m), Last(m)    the index of the first and last byte in m (m not 0)
//   FirstClear(m)        the index of the first byte not in m; 16 if none
//   AddCount(m, n)       adds the number of bytes in m (m not 0) to n
//   Skip(m, k)           m without its first k bytes (0 < k < 16)
template <class V>
struct OzmUnitsVector {
    typedef typename V::Bytes Bytes;
    typedef typename V::Mask Mask;
    static constexpr const char* kName = V::kName;

    template <int N, bool Ends>
    struct Stops {
        OzmUnitsPortable::Stops<N, Ends> scalar;
        Bytes wide[N + Ends];
        template <class... U>
        explicit Stops(U... u) : scalar(u...) {
            for (int i = 0; i < N; ++i)
                wide[i] = V::Splat(static_cast<unsigned char>(scalar.units[i]));
            if (Ends)
                wide[N + Ends - 1] = V::Splat(0xFF);
        }
        // The bytes of v (units packed with Pack<Ends>) that are in the set.
        OZM_UNITS_INLINE Mask Match(Bytes v) const {
            Bytes hit = V::Eq(v, wide[0]);
            for (int i = 1; i < N + Ends; ++i)
                hit = V::Or(hit, V::Eq(v, wide[i]));
            return V::Hits(hit);
        }
    };

    template <int N, bool Ends>
    static OZM_UNITS_INLINE const UCChar* Find(const UCChar* p, const UCChar* end, const Stops<N, Ends>& stops) {
        if (end - p >= 16) {
            const UCChar* const last = end - 16;  // where the last whole step starts
            do {
                if (const Mask m = stops.Match(V::template Pack<Ends>(p, p + 8)))
                    return p + V::First(m);
                p += 16;
            } while (p <= last);
            if (p == end)
                return end;
            // The rest as the 16 units that end at end: those seen again
            // hold no stop.
            const Mask m = stops.Match(V::template Pack<Ends>(last, last + 8));
            return m ? last + V::First(m) : end;
        }
        if (end - p >= 8) {
            // The first 8 units and the last 8, which may overlap them.
            const Mask m = stops.Match(V::template Pack<Ends>(p, end - 8));
            if (!m)
                return end;
            const unsigned i = V::First(m);
            return i < 8 ? p + i : end - 16 + i;
        }
        return OzmUnitsPortable::Find(p, end, stops.scalar);
    }

    template <int N, bool Ends>
    static OZM_UNITS_INLINE const UCChar* FindCountingLines(const UCChar* p, const UCChar* end,
                                                           const Stops<N, Ends>& stops, int64_t& lines,
                                                           const UCChar*& lastLf) {
        if (end - p < 16)
            return OzmUnitsPortable::FindCountingLines(p, end, stops.scalar, lines, lastLf);
        const Bytes lf = V::Splat(10);
        const UCChar* const last = end - 16;
        do {
            const Bytes v = V::template Pack<Ends>(p, p + 8);
            const Mask stop = stops.Match(v);
            Mask lfs = V::Hits(V::Eq(v, lf));
            if (stop) {
                // The line feeds in front of the stop: no line feed is a
                // stop, so stop less its first bit masks them.
                lfs &= stop - 1;
                if (lfs)
                    CountLines(p, lfs, lines, lastLf);
                return p + V::First(stop);
            }
            if (lfs)
                CountLines(p, lfs, lines, lastLf);
            p += 16;
        } while (p <= last);
        if (p == end)
            return end;
        const unsigned seen = unsigned(p - last);
        const Bytes v = V::template Pack<Ends>(last, last + 8);
        const Mask stop = stops.Match(v);  // none among those seen
        Mask lfs = V::Skip(V::Hits(V::Eq(v, lf)), seen);
        if (stop)
            lfs &= stop - 1;
        if (lfs)
            CountLines(last, lfs, lines, lastLf);
        return stop ? last + V::First(stop) : end;
    }

    static OZM_UNITS_INLINE unsigned Blanks16(const UCChar* p) {
        const Bytes v = V::template Pack<false>(p, p + 8);
        return V::FirstClear(V::Hits(V::Or(V::Eq(v, V::Splat(' ')), V::Eq(v, V::Splat('\t')))));
    }

    // Names are mostly letters: the run of letters among the first 16 units
    // is found at once (a letter is one unit of a range once its case bit is
    // set), and the table goes on from the first unit that is no letter.
    static OZM_UNITS_INLINE const UCChar* NameRun(const UCChar* p, const UCChar* end) {
        if (end - p >= 16) {
            // After the shift, 'a' to 'z' are -128 to -103; a unit beyond
            // ASCII packs to 0x7F or 0x80, which stays above.
            const Bytes v = V::template Pack<false>(p, p + 8);
            const Bytes shifted = V::Add(V::Or(v, V::Splat(0x20)), V::Splat(0x80 - 'a'));
            p += V::FirstClear(V::Hits(V::Less(shifted, V::Splat(0x80 + 26))));
        }
        return OzmUnitsPortable::NameRun(p, end);
    }

    // Runs of white space are tested 32 units at a time, the last 32
    // overlapping those before.
    static OZM_UNITS_INLINE bool AllSpace(const UCChar* p, size_t n) {
        if (n < 32)
            return OzmUnitsPortable::AllSpace(p, n);
        for (size_t i = 0; i + 32 <= n; i += 32)
            if (!Spaces32(p + i))
                return false;
        return Spaces32(p + n - 32);
    }

    // 16 units a step; the last units are taken as the 16 that end at n,
    // of which those seen again are white space.
    static OZM_UNITS_INLINE size_t SpaceRun(const UCChar* p, size_t n) {
        if (n < 16)
            return OzmUnitsPortable::SpaceRun(p, n);
        size_t i = 0;
        for (; n - i >= 16; i += 16)
            if (const unsigned k = V::FirstClear(Spaces16(p + i)); k < 16)
                return i + k;
        return i == n ? n : n - 16 + V::FirstClear(Spaces16(p + n - 16));
    }

    // Most runs are a few units long: they go as two moves of a fixed size
    // that may overlap, without a call.
    static OZM_UNITS_INLINE void Copy(UCChar* to, const UCChar* from, size_t n) {
        if (n > 16) {
            std::memcpy(to, from, n * sizeof(UCChar));
        } else if (n >= 8) {
            const Bytes head = V::Load(from), tail = V::Load(from + n - 8);
            V::Store(to, head);
            V::Store(to + n - 8, tail);
        } else if (n >= 4) {
            uint64_t head, tail;
            std::memcpy(&head, from, 8);
            std::memcpy(&tail, from + n - 4, 8);
            std::memcpy(to, &head, 8);
            std::memcpy(to + n - 4, &tail, 8);
        } else if (n >= 2) {
            uint32_t head, tail;
            std::memcpy(&head, from, 4);
            std::memcpy(&tail, from + n - 2, 4);
            std::memcpy(to, &head, 4);
            std::memcpy(to + n - 2, &tail, 4);
        } else if (n) {
            *to = *from;
        }
    }

    // Names and values are short, and the code is inlined into long loops:
    // a word of four units a step, the last step overlapping the one before,
    // does better there than vectors.
    static OZM_UNITS_INLINE bool Same(const UCChar* a, const UCChar* b, size_t n) {
        if (n < 4)
            return OzmUnitsPortable::Same(a, b, n);
        uint64_t x, y;
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

    // The last units are taken as the 16 that end at n, which may overlap
    // those before: units already taken are taken again to the same effect.
    static OZM_UNITS_INLINE size_t FoldAscii(const UCChar* p, size_t n, unsigned char* out) {
        if (n < 16)
            return OzmUnitsPortable::FoldAscii(p, n, out);
        size_t i = 0;
        for (; n - i >= 16; i += 16)
            if (const size_t k = Fold16(p + i, out + i); k < 16)
                return i + k;
        return i == n ? n : n - 16 + Fold16(p + n - 16, out + n - 16);
    }

    // A block that holds a byte beyond ASCII is stored whole; only its ASCII
    // start counts. The last bytes are taken as the 16 that end at n.
    static OZM_UNITS_INLINE size_t WidenAscii(const unsigned char* p, size_t n, UCChar* out) {
        if (n < 16)
            return OzmUnitsPortable::WidenAscii(p, n, out);
        size_t i = 0;
        for (; n - i >= 16; i += 16)
            if (const size_t k = WidenAscii16(p + i, out + i); k < 16)
                return i + k;
        return i == n ? n : n - 16 + WidenAscii16(p + n - 16, out + n - 16);
    }

    static OZM_UNITS_INLINE void Widen(const unsigned char* p, size_t n, UCChar* out) {
        if (n < 16) {
            OzmUnitsPortable::Widen(p, n, out);
            return;
        }
        size_t i = 0;
        for (; n - i >= 16; i += 16)
            V::Widen(V::Load(p + i), out + i);
        if (i != n)
            V::Widen(V::Load(p + n - 16), out + n - 16);
    }

private:
    // The 16 units at p as bytes at out; the number of them, from the
    // first, that are from 1 to 0x7F. A unit beyond 0x7F packs to a byte
    // with its top bit set, and zero to zero.
    static OZM_UNITS_INLINE size_t Fold16(const UCChar* p, unsigned char* out) {
        const Bytes v = V::PackUnsigned(p);
        V::Store(out, v);
        const Mask m = V::Tops(V::Or(v, V::Eq(v, V::Splat(0))));
        return m ? V::First(m) : 16;
    }

    // The 16 bytes at p as units at out; the number of them, from the first,
    // that are ASCII.
    static OZM_UNITS_INLINE size_t WidenAscii16(const unsigned char* p, UCChar* out) {
        const Bytes v = V::Load(p);
        V::Widen(v, out);
        const Mask m = V::Tops(v);
        return m ? V::First(m) : 16;
    }

    static OZM_UNITS_INLINE void CountLines(const UCChar* p, Mask lfs, int64_t& lines, const UCChar*& lastLf) {
        lastLf = p + V::Last(lfs);
        V::AddCount(lfs, lines);
    }

    // The mask of the white space among the 16 units at p. Packed to
    // bytes, a unit above 0xFF becomes 0 or 0xFF, which are no white space.
    static OZM_UNITS_INLINE Mask Spaces16(const UCChar* p) {
        const Bytes v = V::PackUnsigned(p);
        return V::Hits(V::Or(V::Or(V::Eq(v, V::Splat(0x20)), V::Eq(v, V::Splat(0x0A))),
                             V::Or(V::Eq(v, V::Splat(0x09)), V::Eq(v, V::Splat(0x0D)))));
    }

    // Whether the 32 units at p are white space. Packed to bytes, a unit
    // above 0xFF becomes 0 or 0xFF, which are no white space either.
    static OZM_UNITS_INLINE bool Spaces32(const UCChar* p) {
        const Bytes a = V::PackUnsigned(p), b = V::PackUnsigned(p + 16);
        const Bytes sp = V::Splat(0x20), lf = V::Splat(0x0A);
        // Indentation is mostly spaces and line feeds alone.
        Bytes sa = V::Or(V::Eq(a, sp), V::Eq(a, lf));
        Bytes sb = V::Or(V::Eq(b, sp), V::Eq(b, lf));
        if (V::Hits(V::And(sa, sb)) == V::kAll)
            return true;
        const Bytes tab = V::Splat(0x09), cr = V::Splat(0x0D);
        sa = V::Or(sa, V::Or(V::Eq(a, tab), V::Eq(a, cr)));
        sb = V::Or(sb, V::Or(V::Eq(b, tab), V::Eq(b, cr)));
        return V::Hits(V::And(sa, sb)) == V::kAll;
    }
};

// ---------------------------------------------------------------------------
// SSE2: a mask has a bit a byte.

#if defined(OZM_UNITS_SSE2)
struct OzmSse2 {
    static constexpr const char* kName = "SSE2";
    typedef __m128i Bytes;
    typedef unsigned Mask;
    static constexpr Mask kAll = 0xFFFF;

    static OZM_UNITS_INLINE Bytes Splat(unsigned char b) { return _mm_set1_epi8(static_cast<char>(b)); }
    static OZM_UNITS_INLINE Bytes Load(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }
    static OZM_UNITS_INLINE void Store(void* p, Bytes v) { _mm_storeu_si128(static_cast<__m128i*>(p), v); }
    template <bool Ends>
    static OZM_UNITS_INLINE Bytes Pack(const UCChar* a, const UCChar* b) {
        Bytes x = Load(a), y = Load(b);
        if (Ends) {
            const Bytes ls = _mm_set1_epi16(0x2028);
            x = _mm_or_si128(x, _mm_cmpeq_epi16(x, ls));
            y = _mm_or_si128(y, _mm_cmpeq_epi16(y, ls));
        }
        return _mm_packs_epi16(x, y);
    }
    static OZM_UNITS_INLINE Bytes PackUnsigned(const UCChar* p) { return _mm_packus_epi16(Load(p), Load(p + 8)); }
    static OZM_UNITS_INLINE void Widen(Bytes v, UCChar* out) {
        const Bytes zero = _mm_setzero_si128();
        Store(out, _mm_unpacklo_epi8(v, zero));
        Store(out + 8, _mm_unpackhi_epi8(v, zero));
    }
    static OZM_UNITS_INLINE Bytes Eq(Bytes a, Bytes b) { return _mm_cmpeq_epi8(a, b); }
    static OZM_UNITS_INLINE Bytes Or(Bytes a, Bytes b) { return _mm_or_si128(a, b); }
    static OZM_UNITS_INLINE Bytes And(Bytes a, Bytes b) { return _mm_and_si128(a, b); }
    static OZM_UNITS_INLINE Bytes Add(Bytes a, Bytes b) { return _mm_add_epi8(a, b); }
    static OZM_UNITS_INLINE Bytes Less(Bytes a, Bytes b) { return _mm_cmplt_epi8(a, b); }
    static OZM_UNITS_INLINE Mask Hits(Bytes v) { return static_cast<Mask>(_mm_movemask_epi8(v)); }
    static OZM_UNITS_INLINE Mask Tops(Bytes v) { return static_cast<Mask>(_mm_movemask_epi8(v)); }
    static OZM_UNITS_INLINE unsigned First(Mask m) { return static_cast<unsigned>(__builtin_ctz(m)); }
    static OZM_UNITS_INLINE unsigned Last(Mask m) { return 31u - static_cast<unsigned>(__builtin_clz(m)); }
    static OZM_UNITS_INLINE unsigned FirstClear(Mask m) { return static_cast<unsigned>(__builtin_ctz(~m)); }
    // Bits are cleared one at a time: there are few of them, and a
    // population count instruction cannot be assumed.
    static OZM_UNITS_INLINE void AddCount(Mask m, int64_t& n) {
        do {
            ++n;
            m &= m - 1;
        } while (m);
    }
    static OZM_UNITS_INLINE Mask Skip(Mask m, unsigned k) { return m & (~0u << k); }
};
#endif

// ---------------------------------------------------------------------------
// NEON: a mask has four bits a byte (the narrowing shift of a compare
// result, moved to a general register), which costs less than gathering a
// bit a byte.

#if defined(OZM_UNITS_NEON)
struct OzmNeon {
    static constexpr const char* kName = "NEON";
    typedef uint8x16_t Bytes;
    typedef uint64_t Mask;
    static constexpr Mask kAll = ~uint64_t(0);

    static OZM_UNITS_INLINE Bytes Splat(unsigned char b) { return vdupq_n_u8(b); }
    // Through bytes, which may alias anything.
    static OZM_UNITS_INLINE Bytes Load(const void* p) { return vld1q_u8(static_cast<const uint8_t*>(p)); }
    static OZM_UNITS_INLINE void Store(void* p, Bytes v) { vst1q_u8(static_cast<uint8_t*>(p), v); }
    template <bool Ends>
    static OZM_UNITS_INLINE Bytes Pack(const UCChar* a, const UCChar* b) {
        uint16x8_t x = vreinterpretq_u16_u8(Load(a)), y = vreinterpretq_u16_u8(Load(b));
        if (Ends) {
            const uint16x8_t ls = vdupq_n_u16(0x2028);
            x = vorrq_u16(x, vceqq_u16(x, ls));
            y = vorrq_u16(y, vceqq_u16(y, ls));
        }
        return vreinterpretq_u8_s8(
            vcombine_s8(vqmovn_s16(vreinterpretq_s16_u16(x)), vqmovn_s16(vreinterpretq_s16_u16(y))));
    }
    static OZM_UNITS_INLINE Bytes PackUnsigned(const UCChar* p) {
        return vcombine_u8(vqmovun_s16(vreinterpretq_s16_u8(Load(p))), vqmovun_s16(vreinterpretq_s16_u8(Load(p + 8))));
    }
    static OZM_UNITS_INLINE void Widen(Bytes v, UCChar* out) {
        Store(out, vreinterpretq_u8_u16(vmovl_u8(vget_low_u8(v))));
        Store(out + 8, vreinterpretq_u8_u16(vmovl_high_u8(v)));
    }
    static OZM_UNITS_INLINE Bytes Eq(Bytes a, Bytes b) { return vceqq_u8(a, b); }
    static OZM_UNITS_INLINE Bytes Or(Bytes a, Bytes b) { return vorrq_u8(a, b); }
    static OZM_UNITS_INLINE Bytes And(Bytes a, Bytes b) { return vandq_u8(a, b); }
    static OZM_UNITS_INLINE Bytes Add(Bytes a, Bytes b) { return vaddq_u8(a, b); }
    static OZM_UNITS_INLINE Bytes Less(Bytes a, Bytes b) { return vcltq_s8(vreinterpretq_s8_u8(a), vreinterpretq_s8_u8(b)); }
    static OZM_UNITS_INLINE Mask Hits(Bytes v) {
        return vget_lane_u64(vreinterpret_u64_u8(vshrn_n_u16(vreinterpretq_u16_u8(v), 4)), 0);
    }
    static OZM_UNITS_INLINE Mask Tops(Bytes v) { return Hits(vcltzq_s8(vreinterpretq_s8_u8(v))); }
    static OZM_UNITS_INLINE unsigned First(Mask m) { return static_cast<unsigned>(__builtin_ctzll(m)) >> 2; }
    static OZM_UNITS_INLINE unsigned Last(Mask m) { return (63u - static_cast<unsigned>(__builtin_clzll(m))) >> 2; }
    static OZM_UNITS_INLINE unsigned FirstClear(Mask m) { return ~m ? First(~m) : 16u; }
    static OZM_UNITS_INLINE void AddCount(Mask m, int64_t& n) { n += __builtin_popcountll(m) >> 2; }
    static OZM_UNITS_INLINE Mask Skip(Mask m, unsigned k) { return m & (~uint64_t(0) << (4 * k)); }
};
#endif

// The level of this build.
#if defined(OZM_UNITS_SSE2)
typedef OzmUnitsVector<OzmSse2> OzmUnits;
#elif defined(OZM_UNITS_NEON)
typedef OzmUnitsVector<OzmNeon> OzmUnits;
#else
typedef OzmUnitsPortable OzmUnits;
#endif
