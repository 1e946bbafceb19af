// ozmutf8.h - the library's one UTF-8 encoder of 16-bit units, used by the
// narrow-string conversion, the file writer and the output stream; and the
// levels of the UTF-8 decoder (ozmdecode.cpp, units/ozmunits_avx2.cpp).
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "ozmutil.h"
#include "units/ozmunits.h"

// The UTF-8 bytes of a code point up to 0x10FFFF; returns their number.
inline size_t OzmPutUtf8(uint32_t cp, unsigned char* out) {
    if (cp < 0x80) {
        out[0] = static_cast<unsigned char>(cp);
        return 1;
    }
    if (cp < 0x800) {
        out[0] = static_cast<unsigned char>(0xC0 | (cp >> 6));
        out[1] = static_cast<unsigned char>(0x80 | (cp & 0x3F));
        return 2;
    }
    if (cp < 0x10000) {
        out[0] = static_cast<unsigned char>(0xE0 | (cp >> 12));
        out[1] = static_cast<unsigned char>(0x80 | ((cp >> 6) & 0x3F));
        out[2] = static_cast<unsigned char>(0x80 | (cp & 0x3F));
        return 3;
    }
    out[0] = static_cast<unsigned char>(0xF0 | (cp >> 18));
    out[1] = static_cast<unsigned char>(0x80 | ((cp >> 12) & 0x3F));
    out[2] = static_cast<unsigned char>(0x80 | ((cp >> 6) & 0x3F));
    out[3] = static_cast<unsigned char>(0x80 | (cp & 0x3F));
    return 4;
}

// Encodes count units into out, which has room for three bytes a unit and
// three more, and returns the number of bytes written.
//
// pendingHigh null: each unit is encoded by itself, a surrogate as its own
// three bytes (the output stream's rule: a unit is a character).
// pendingHigh given: a high surrogate followed by a low one becomes one
// four-byte sequence (files and narrow strings). A high surrogate that ends
// the units waits in *pendingHigh for the next call; one that is already
// waiting is written before the first unit that is not its partner.
// OzmFlushUtf8 writes what still waits.
// dropZero leaves zero units out, as fputs of a converted zero unit would.
inline size_t OzmEncodeUtf8(const UCChar* in, size_t count, unsigned char* out, UCChar* pendingHigh,
                            bool dropZero = false) {
    unsigned char* o = out;
    size_t i = 0;
    if (pendingHigh && *pendingHigh && count) {
        const UCChar high = *pendingHigh;
        *pendingHigh = 0;
        if (in[0] >= 0xDC00 && in[0] <= 0xDFFF) {
            o += OzmPutUtf8(0x10000 + ((uint32_t(high) - 0xD800) << 10) + (in[0] - 0xDC00u), o);
            i = 1;
        } else {
            o += OzmPutUtf8(high, o);
        }
    }
    while (i < count) {
        const size_t ascii = OzmUnits::FoldAscii(in + i, count - i, o);
        i += ascii;
        o += ascii;
        if (i == count)
            break;
        const UCChar c = in[i++];
        if (c == 0) {
            if (!dropZero)
                *o++ = 0;
        } else if (pendingHigh && c >= 0xD800 && c <= 0xDBFF) {
            if (i == count) {
                *pendingHigh = c;  // written once its partner (or something else) follows
            } else if (in[i] >= 0xDC00 && in[i] <= 0xDFFF) {
                o += OzmPutUtf8(0x10000 + ((uint32_t(c) - 0xD800) << 10) + (in[i] - 0xDC00u), o);
                ++i;
            } else {
                o += OzmPutUtf8(c, o);
            }
        } else {
            o += OzmPutUtf8(c, o);
        }
    }
    return size_t(o - out);
}

// Writes a high surrogate that still waits for its partner, by itself;
// returns the number of bytes (0 or 3).
inline size_t OzmFlushUtf8(UCChar* pendingHigh, unsigned char* out) {
    const UCChar high = *pendingHigh;
    *pendingHigh = 0;
    return high ? OzmPutUtf8(high, out) : 0;
}

// Levels of the UTF-8 decoder: plain is the ASCII blocks of OzmUnits and the
// scalar code; AVX2 adds whole windows of one-, two- and three-byte
// sequences; AVX-512 takes each window in one register and compresses its
// units instead of packing them through a table.
constexpr int kOzmUtf8Plain = 0;
constexpr int kOzmUtf8Avx2 = 1;
constexpr int kOzmUtf8Avx512 = 2;

// The level in use: the highest the CPU has, chosen at static initialisation
// (the plain level before it).
extern std::atomic<int> g_ozmUtf8Level;

// Sets the level in use to level, or to the highest the CPU has if that is
// lower, when level >= 0; returns the level in use. For tests, which decode
// the same input at each level.
OZM_API int OzmUtf8DecodeLevel(int level = -1);

// Decodes from the start of [src, src + n) as long as 64 bytes are left and
// they begin with ASCII or a valid sequence of two or three bytes: an ASCII
// run goes by itself, else a window of 64 bytes (32 when the next 32 are
// ASCII) gives the whole valid sequences of up to three bytes it holds,
// decoded exactly as the scalar code does, and the next step starts after
// them. dst must have room for n units. Returns the bytes consumed; *written
// receives the units. Only with the AVX2 level.
size_t OzmDecodeUtf8Avx2(const unsigned char* src, size_t n, UCChar* dst, size_t* written);
// The same, a window of 64 bytes at a time, with the same results. Only with
// the AVX-512 level.
size_t OzmDecodeUtf8Avx512(const unsigned char* src, size_t n, UCChar* dst, size_t* written);
