// ozmutf8_windows.h - what the vector levels of the UTF-8 decoder share: the
// lookups that find faulty sequences in a window of bytes, laid out for
// registers of W bytes. Included by the files of those levels alone.
#pragma once

namespace ozmutf8 {

// Faults of a byte and the one before it, found by looking up the high and low
// half of the earlier byte and the high half of the later one: a bit survives
// the AND of the three lookups only when all of them name it.
constexpr char kTooShort = 0x01;    // a lead byte not followed by a continuation byte
constexpr char kTooLong = 0x02;     // a continuation byte after an ASCII byte
constexpr char kOverlong3 = 0x04;   // E0 followed by 80..9F
constexpr char kSurrogate = 0x08;   // ED followed by A0..BF
constexpr char kOverlong2 = 0x10;   // C0 or C1 followed by a continuation byte
constexpr char kFourByte = 0x20;    // F0..FF followed by a continuation byte: left to the scalar code
constexpr char kTwoConts = char(0x80);  // two continuation bytes: right only after E0..EF

// The constants of the window code, a register of W bytes each (the 16-byte
// lookups repeated in every 16-byte lane), read from memory where they are
// used.
template <int W>
struct alignas(W) WindowConstants {
    char firstHigh[W], firstLow[W], secondHigh[W];
    char nibble[W], top2[W], third[W], bit7[W], lead3[W];
};

template <int W>
constexpr WindowConstants<W> MakeWindowConstants() {
    constexpr char kAny = kTooShort | kTooLong | kTwoConts | kFourByte;
    constexpr char kCont89 = kTooLong | kTwoConts | kOverlong2 | kOverlong3 | kFourByte;
    constexpr char kContAB = kTooLong | kTwoConts | kOverlong2 | kSurrogate | kFourByte;
    const char firstHigh[16] = {kTooLong, kTooLong, kTooLong, kTooLong, kTooLong, kTooLong,
                                kTooLong, kTooLong, kTwoConts, kTwoConts, kTwoConts, kTwoConts,
                                kTooShort | kOverlong2, kTooShort, kTooShort | kOverlong3 | kSurrogate,
                                kTooShort | kFourByte};
    const char firstLow[16] = {kAny | kOverlong3 | kOverlong2, kAny | kOverlong2, kAny, kAny, kAny, kAny, kAny, kAny,
                               kAny, kAny, kAny, kAny, kAny, kAny | kSurrogate, kAny, kAny};
    const char secondHigh[16] = {kTooShort, kTooShort, kTooShort, kTooShort, kTooShort, kTooShort,
                                 kTooShort, kTooShort, kCont89,   kCont89,   kContAB,   kContAB,
                                 kTooShort, kTooShort, kTooShort, kTooShort};
    WindowConstants<W> c{};
    for (int i = 0; i < W; ++i) {
        c.firstHigh[i] = firstHigh[i & 15];
        c.firstLow[i] = firstLow[i & 15];
        c.secondHigh[i] = secondHigh[i & 15];
        c.nibble[i] = 0x0F;
        c.top2[i] = char(0xC0);
        c.third[i] = 0x60;     // E0..FF minus this is 0x80 or more
        c.bit7[i] = char(0x80);
        c.lead3[i] = char(0xE0);
    }
    return c;
}

}  // namespace ozmutf8
