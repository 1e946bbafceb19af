// ozmunits_avx2.cpp - the AVX2 level of the UTF-8 decoder: windows of 64
// bytes holding one-, two- and three-byte sequences decoded at once, and the
// choice of level made once from the CPU (the AVX-512 level is beside it).
#include "platform/ozmutf8.h"
#include "platform/units/ozmutf8_windows.h"

#include <atomic>

#if defined(__x86_64__)
#include <immintrin.h>
#define OZM_AVX2 __attribute__((target("avx2,bmi,bmi2,lzcnt,popcnt")))
#define OZM_AVX2_INLINE __attribute__((target("avx2,bmi,bmi2,lzcnt,popcnt"), always_inline)) inline
#endif

namespace {

// Every processor with AVX2 and BMI2 also has LZCNT, which not every
// compiler can ask about. The AVX-512 level needs the byte and word
// instructions (BW), byte permutes (VBMI) and compression (VBMI2); the
// processor's own answer includes whether the system saves those registers.
int CpuLevel() {
#if defined(__x86_64__)
    __builtin_cpu_init();
    if (!__builtin_cpu_supports("avx2") || !__builtin_cpu_supports("bmi") || !__builtin_cpu_supports("bmi2") ||
        !__builtin_cpu_supports("popcnt"))
        return kOzmUtf8Plain;
    if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
        __builtin_cpu_supports("avx512vbmi") && __builtin_cpu_supports("avx512vbmi2"))
        return kOzmUtf8Avx512;
    return kOzmUtf8Avx2;
#endif
    return kOzmUtf8Plain;
}

const int g_cpuLevel = CpuLevel();

}  // namespace

// Zero (the plain level) until static initialisation has run.
std::atomic<int> g_ozmUtf8Level{g_cpuLevel};

int OzmUtf8DecodeLevel(int level) {
    if (level >= 0)
        g_ozmUtf8Level.store(level < g_cpuLevel ? level : g_cpuLevel, std::memory_order_relaxed);
    return g_ozmUtf8Level.load(std::memory_order_relaxed);
}

#if defined(__x86_64__)

namespace {

// Row m gives the byte shuffle that packs, of 8 units, those whose bit is
// set in m to the front, in order.
struct PackTable {
    alignas(16) unsigned char row[256][16];
};

constexpr PackTable MakePackTable() {
    PackTable t{};
    for (int m = 0; m < 256; ++m) {
        int k = 0;
        for (int i = 0; i < 8; ++i) {
            if (m >> i & 1) {
                t.row[m][k++] = static_cast<unsigned char>(2 * i);
                t.row[m][k++] = static_cast<unsigned char>(2 * i + 1);
            }
        }
        while (k < 16)
            t.row[m][k++] = 0x80;
    }
    return t;
}

constexpr PackTable kPack = MakePackTable();

typedef ozmutf8::WindowConstants<32> WindowConstants;
constexpr WindowConstants kWindow = ozmutf8::MakeWindowConstants<32>();

OZM_AVX2_INLINE __m256i Const(const char (&c)[32]) { return _mm256_load_si256(reinterpret_cast<const __m256i*>(c)); }

// Bit i set where byte i of v, with p1 and p2 the bytes one and two places
// earlier, shows no fault: a continuation byte exactly where a lead byte of
// two or three bytes calls for one, and no lead byte outside C2..EF. Bit i of
// *conts is set where byte i is a continuation byte (the lookup of its high
// half has kTwoConts, the sign bit, exactly then).
OZM_AVX2_INLINE uint32_t Sound(const WindowConstants& k, __m256i v, __m256i p1, __m256i p2, uint32_t* conts) {
    const __m256i nibble = Const(k.nibble);
    const __m256i a = _mm256_shuffle_epi8(Const(k.firstHigh), _mm256_and_si256(_mm256_srli_epi16(p1, 4), nibble));
    const __m256i b = _mm256_shuffle_epi8(Const(k.firstLow), _mm256_and_si256(p1, nibble));
    const __m256i c = _mm256_shuffle_epi8(Const(k.secondHigh), _mm256_and_si256(_mm256_srli_epi16(v, 4), nibble));
    *conts = static_cast<uint32_t>(_mm256_movemask_epi8(c));
    const __m256i faults = _mm256_and_si256(_mm256_and_si256(a, b), c);
    // 0x80 where p2 is E0..FF, where the byte must be a second continuation
    // byte: only kTwoConts may be left there, and nothing elsewhere.
    const __m256i third = _mm256_and_si256(_mm256_subs_epu8(p2, Const(k.third)), Const(k.bit7));
    return static_cast<uint32_t>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(faults, third)));
}

// The unit a character ending at byte i would have, for every i, as low and
// high bytes: an ASCII byte stands for itself; a continuation byte ends a
// two-byte sequence after a lead byte and a three-byte one after another
// continuation byte. Lanes of bytes that end no character hold rubbish.
OZM_AVX2_INLINE void Units(const WindowConstants& k, __m256i v, __m256i p1, __m256i p2, __m256i* first,
                           __m256i* second) {
    // v ^ 0x80 is v & 0x3F for a continuation byte.
    const __m256i low = _mm256_or_si256(_mm256_xor_si256(v, Const(k.bit7)),
                                        _mm256_and_si256(_mm256_slli_epi16(p1, 6), Const(k.top2)));
    // p2 - E0 is the lead's four bits after E0..EF and 0 below E0; the shift
    // brings bits over from the next lower byte only after F0..FF.
    const __m256i high = _mm256_or_si256(_mm256_and_si256(_mm256_srli_epi16(p1, 2), Const(k.nibble)),
                                         _mm256_slli_epi16(_mm256_subs_epu8(p2, Const(k.lead3)), 4));
    const __m256i lo = _mm256_blendv_epi8(v, low, v);
    const __m256i hi = _mm256_blendv_epi8(_mm256_setzero_si256(), high, v);
    *first = _mm256_unpacklo_epi8(lo, hi);   // bytes 0..7 and 16..23
    *second = _mm256_unpackhi_epi8(lo, hi);  // bytes 8..15 and 24..31
}

// Packs the units of u whose bits are set in the masks, given as offsets of
// their rows in the table (16 times the mask), of the low and high lane.
OZM_AVX2_INLINE __m256i Pack(__m256i u, uint64_t lowRow, uint64_t highRow) {
    const unsigned char* const rows = &kPack.row[0][0];
    const __m128i a = _mm_load_si128(reinterpret_cast<const __m128i*>(rows + lowRow));
    const __m128i b = _mm_load_si128(reinterpret_cast<const __m128i*>(rows + highRow));
    return _mm256_shuffle_epi8(u, _mm256_inserti128_si256(_mm256_castsi128_si256(a), b, 1));
}

// x rotated right by n bits (one instruction that keeps x).
OZM_AVX2_INLINE uint64_t Rotate(uint64_t x, int n) { return x >> n | x << (64 - n); }

OZM_AVX2_INLINE void Put(UCChar* out, __m128i units) { _mm_storeu_si128(reinterpret_cast<__m128i*>(out), units); }

// Stores at out the units of 32 bytes (a and b from Units) that end
// characters, as bits 0..31 of ends shifted right by shift tell; returns the
// end of them.
OZM_AVX2_INLINE UCChar* PutHalf(__m256i a, __m256i b, uint64_t ends, int shift, UCChar* out) {
    // Group g of 8 bytes has its bits at 8g..8g + 7; its row of the table is
    // at 16 times them, which has as many bits set.
    const uint64_t r0 = Rotate(ends, (shift + 60) & 63) & 0xFF0, r1 = Rotate(ends, shift + 4) & 0xFF0,
                   r2 = Rotate(ends, shift + 12) & 0xFF0, r3 = Rotate(ends, shift + 20) & 0xFF0;
    a = Pack(a, r0, r2);
    b = Pack(b, r1, r3);
    Put(out, _mm256_castsi256_si128(a));
    out += _mm_popcnt_u64(r0);
    Put(out, _mm256_castsi256_si128(b));
    out += _mm_popcnt_u64(r1);
    Put(out, _mm256_extracti128_si256(a, 1));
    out += _mm_popcnt_u64(r2);
    Put(out, _mm256_extracti128_si256(b, 1));
    return out + _mm_popcnt_u64(r3);
}

// Decodes the whole valid sequences of one to three bytes at the start of
// the window of the 32 bytes of v0, or of the 64 of v0 and v1 when Two;
// returns the bytes they take (0 when the first is none) and moves out past
// their units.
template <bool Two>
OZM_AVX2_INLINE size_t Window(const WindowConstants& k, __m256i v0, __m256i v1, UCChar*& out) {
    // The bytes one and two places back; the window starts a character, so
    // zeros stand in for what lies before it.
    __m256i back = _mm256_permute2x128_si256(v0, v0, 0x08);
    __m256i p1 = _mm256_alignr_epi8(v0, back, 15), p2 = _mm256_alignr_epi8(v0, back, 14);
    uint32_t conts0, conts1 = ~0u;
    uint64_t sound = Sound(k, v0, p1, p2, &conts0);
    __m256i a0, b0, a1, b1;
    Units(k, v0, p1, p2, &a0, &b0);
    if (Two) {
        back = _mm256_permute2x128_si256(v0, v1, 0x21);
        p1 = _mm256_alignr_epi8(v1, back, 15);
        p2 = _mm256_alignr_epi8(v1, back, 14);
        sound |= uint64_t(Sound(k, v1, p1, p2, &conts1)) << 32;
        Units(k, v1, p1, p2, &a1, &b1);
    } else {
        sound |= ~uint64_t(0) << 32;
    }
    const uint64_t starts = ~(conts0 | uint64_t(conts1) << 32);
    // A character ending at byte i is whole and valid when no fault shows at
    // bytes 0..i + 1; it ends at i when one starts at i + 1.
    const uint64_t ends = _bzhi_u64(starts, static_cast<unsigned>(_tzcnt_u64(~sound))) >> 1;
    if (ends == 0)
        return 0;
    out = PutHalf(a0, b0, ends, 0, out);
    if (Two)
        out = PutHalf(a1, b1, ends, 32, out);
    return 64 - _lzcnt_u64(ends);
}

// Whether the 64 bytes at p are ASCII.
OZM_AVX2_INLINE bool AllAscii(const unsigned char* p) {
    const __m256i v0 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
    const __m256i v1 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + 32));
    return _mm256_movemask_epi8(_mm256_or_si256(v0, v1)) == 0;
}

// The 64 bytes at p as units at out.
OZM_AVX2_INLINE void PutAscii(const unsigned char* p, UCChar* out) {
    for (size_t i = 0; i < 64; i += 16) {
        const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + i));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + i), _mm256_cvtepu8_epi16(b));
    }
}

}  // namespace

OZM_AVX2 size_t OzmDecodeUtf8Avx2(const unsigned char* src, size_t n, UCChar* dst, size_t* written) {
    const unsigned char* p = src;
    UCChar* out = dst;
    // The compiler is not to see the constants' values, or it builds them
    // in registers over and over instead of reading them where they are used.
    const WindowConstants* constants = &kWindow;
    asm("" : "+r"(constants));
    const WindowConstants& c = *constants;
    if (n >= 64) {
        const unsigned char* const last = src + (n - 64);  // the last place a window may start
        while (p <= last) {
            const __m256i v0 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
            const __m256i v1 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + 32));
            const uint64_t high =
                uint32_t(_mm256_movemask_epi8(v0)) | uint64_t(uint32_t(_mm256_movemask_epi8(v1))) << 32;
            if (high == 0) {
                // ASCII: 64 bytes at a time as long as it lasts.
                do {
                    PutAscii(p, out);
                    p += 64;
                    out += 64;
                } while (p <= last && AllAscii(p));
                continue;
            }
            if ((high & 0xFF) == 0) {
                // An ASCII run of 8 bytes or more at the start is taken on its
                // own, so that the window that follows starts where it ends.
                const size_t ascii = _tzcnt_u64(high);
                PutAscii(p, out);
                p += ascii;
                out += ascii;
                continue;
            }
            // A window of 32 bytes when the next 32 are ASCII.
            const size_t k = high >> 32 ? Window<true>(c, v0, v1, out) : Window<false>(c, v0, v1, out);
            if (k == 0)
                break;
            p += k;
        }
    }
    *written = static_cast<size_t>(out - dst);
    return static_cast<size_t>(p - src);
}

#endif
