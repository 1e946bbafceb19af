// ozmunits_avx512.cpp - the AVX-512 level of the UTF-8 decoder: a window of
// 64 bytes in one register, its faults found by the lookups of the AVX2 level
// and the units of its whole characters compressed to the front with one
// instruction for every 32 bytes.
#include "platform/ozmutf8.h"
#include "platform/units/ozmutf8_windows.h"

#if defined(__x86_64__)
#include <immintrin.h>

#define OZM_AVX512_TARGET "avx512f,avx512bw,avx512vbmi,avx512vbmi2,avx2,bmi,bmi2,lzcnt,popcnt"
#define OZM_AVX512 __attribute__((target(OZM_AVX512_TARGET)))
#define OZM_AVX512_INLINE __attribute__((target(OZM_AVX512_TARGET), always_inline)) inline

namespace {

typedef ozmutf8::WindowConstants<64> WindowConstants;
constexpr WindowConstants kWindow = ozmutf8::MakeWindowConstants<64>();

// Byte i of the permutes below takes byte i - 1 (i - 2) of the window; the
// masks zero the first byte (two bytes), where the window starts a character.
struct alignas(64) BackIndexes {
    unsigned char one[64], two[64];
};

constexpr BackIndexes MakeBackIndexes() {
    BackIndexes b{};
    for (int i = 0; i < 64; ++i) {
        b.one[i] = static_cast<unsigned char>((i + 63) & 63);
        b.two[i] = static_cast<unsigned char>((i + 62) & 63);
    }
    return b;
}

constexpr BackIndexes kBack = MakeBackIndexes();

OZM_AVX512_INLINE __m512i Load(const void* p) { return _mm512_load_si512(p); }

// The units of characters ending at bytes 0..31 and 32..63 of the window
// that are set in ends, stored at out one behind the other; returns the end
// of them. lo and hi are the low and high bytes of the unit of each byte.
OZM_AVX512_INLINE UCChar* PutUnits(__m512i lo, __m512i hi, uint64_t ends, UCChar* out) {
    // Interleaved per 16-byte lane: a holds the units of bytes 0..7 of each
    // lane, b those of bytes 8..15; the permutes put them in order.
    const __m512i a = _mm512_unpacklo_epi8(lo, hi), b = _mm512_unpackhi_epi8(lo, hi);
    const __m512i first = _mm512_permutex2var_epi64(a, _mm512_setr_epi64(0, 1, 8, 9, 2, 3, 10, 11), b);
    const __m512i second = _mm512_permutex2var_epi64(a, _mm512_setr_epi64(4, 5, 12, 13, 6, 7, 14, 15), b);
    const uint32_t low = static_cast<uint32_t>(ends), high = static_cast<uint32_t>(ends >> 32);
    _mm512_storeu_si512(out, _mm512_maskz_compress_epi16(low, first));
    out += _mm_popcnt_u32(low);
    _mm512_storeu_si512(out, _mm512_maskz_compress_epi16(high, second));
    return out + _mm_popcnt_u32(high);
}

// Decodes the whole valid sequences of one to three bytes at the start of the
// 64 bytes of v, of which the bytes beyond ASCII are set in high; returns the
// bytes they take (0 when the first is none) and moves out past their units.
OZM_AVX512_INLINE size_t Window(const WindowConstants& k, __m512i v, uint64_t high, UCChar*& out) {
    const __m512i p1 = _mm512_maskz_permutexvar_epi8(~uint64_t(1), Load(kBack.one), v);
    const __m512i p2 = _mm512_maskz_permutexvar_epi8(~uint64_t(3), Load(kBack.two), v);
    const __m512i nibble = Load(k.nibble);
    // Faults, as at the AVX2 level: the three lookups ANDed must leave
    // kTwoConts exactly where p2 is E0..FF, and nothing elsewhere.
    const __m512i a = _mm512_shuffle_epi8(Load(k.firstHigh), _mm512_and_si512(_mm512_srli_epi16(p1, 4), nibble));
    const __m512i b = _mm512_shuffle_epi8(Load(k.firstLow), _mm512_and_si512(p1, nibble));
    const __m512i c = _mm512_shuffle_epi8(Load(k.secondHigh), _mm512_and_si512(_mm512_srli_epi16(v, 4), nibble));
    const __m512i faults = _mm512_ternarylogic_epi64(a, b, c, 0x80);  // a & b & c
    const __m512i third = _mm512_and_si512(_mm512_subs_epu8(p2, Load(k.third)), Load(k.bit7));
    const uint64_t sound = _mm512_cmpeq_epi8_mask(faults, third);
    // The lookup of a continuation byte's high half has the sign bit.
    const uint64_t starts = ~_mm512_movepi8_mask(c);
    // A character ending at byte i is whole and valid when no fault shows at
    // bytes 0..i + 1; it ends at i when one starts at i + 1.
    const uint64_t ends = _bzhi_u64(starts, static_cast<unsigned>(_tzcnt_u64(~sound))) >> 1;
    if (ends == 0)
        return 0;
    // The unit of a character ending at each byte: an ASCII byte stands for
    // itself; a continuation byte ends a two-byte sequence after a lead byte
    // and a three-byte one after another continuation byte.
    const __m512i low = _mm512_or_si512(_mm512_xor_si512(v, Load(k.bit7)),
                                        _mm512_and_si512(_mm512_slli_epi16(p1, 6), Load(k.top2)));
    const __m512i upper = _mm512_or_si512(_mm512_and_si512(_mm512_srli_epi16(p1, 2), nibble),
                                          _mm512_slli_epi16(_mm512_subs_epu8(p2, Load(k.lead3)), 4));
    const __m512i lo = _mm512_mask_blend_epi8(high, v, low);
    const __m512i hi = _mm512_maskz_mov_epi8(high, upper);
    out = PutUnits(lo, hi, ends, out);
    return 64 - _lzcnt_u64(ends);
}

// The 64 bytes at p as units at out.
OZM_AVX512_INLINE void PutAscii(const unsigned char* p, UCChar* out) {
    for (int i = 0; i < 64; i += 32)
        _mm512_storeu_si512(out + i, _mm512_cvtepu8_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + i))));
}

}  // namespace

OZM_AVX512 size_t OzmDecodeUtf8Avx512(const unsigned char* src, size_t n, UCChar* dst, size_t* written) {
    const unsigned char* p = src;
    UCChar* out = dst;
    const WindowConstants& c = kWindow;
    if (n >= 64) {
        const unsigned char* const last = src + (n - 64);  // the last place a window may start
        while (p <= last) {
            const __m512i v = _mm512_loadu_si512(p);
            const uint64_t high = _mm512_movepi8_mask(v);
            if (high == 0) {
                PutAscii(p, out);
                p += 64;
                out += 64;
                continue;
            }
            const size_t k = Window(c, v, high, out);
            if (k == 0)
                break;
            p += k;
        }
    }
    *written = static_cast<size_t>(out - dst);
    return static_cast<size_t>(p - src);
}

#endif
