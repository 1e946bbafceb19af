// The UTF-8 decoder at every level the CPU has (plain, AVX2, AVX-512) against a plain decoder, on random
// mixes of sequences, faults and ASCII at every offset to the windows, across blocks, and on a file of them all.
#include <gtest/gtest.h>
#include <random>

#include "platform/ozmutf8.h"
#include "test_util.h"

// A code point at a time: a whole valid sequence, or else one byte as Latin-1.
static UCString Reference(const std::string& s) {
    static const uint32_t kLow[5] = {0, 0, 0x80, 0x800, 0x10000}, kBits[5] = {0, 0x7F, 0x1F, 0x0F, 0x07};
    auto b = [&](size_t k) { return k < s.size() ? unsigned(static_cast<unsigned char>(s[k])) : 0u; };
    UCString out;
    for (size_t i = s.compare(0, 3, "\xEF\xBB\xBF") == 0 ? 3 : 0, len; i < s.size(); i += len) {
        len = b(i) < 0x80 ? 1 : b(i) < 0xC0 ? 0 : b(i) < 0xE0 ? 2 : b(i) < 0xF0 ? 3 : b(i) < 0xF8 ? 4 : 0;
        uint32_t cp = b(i) & kBits[len];
        for (size_t k = 1; k < len; ++k)
            cp = (b(i + k) & 0xC0) == 0x80 ? cp << 6 | (b(i + k) & 0x3F) : 0;
        if (len == 0 || cp < kLow[len] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF))
            cp = b(i), len = 1;
        else if (cp >= 0x10000)
            out += UCChar(0xD7C0 + (cp >> 10)), cp = 0xDC00 | (cp & 0x3FF);
        out += UCChar(cp);
    }
    return out;
}

TEST(Utf8DecodeTest, EveryLevelMatchesTheReference) {
    // Sequences of 2, 3 and (7, 8) 4 bytes; from 9 on stray, overlong, surrogate, above U+10FFFF, F5..FF, cut; a mark.
    const char* const pieces[] = {"\xC2\x80", "\xC3\xA9", "\xDF\xBF", "\xE0\xA0\x80", "\xE4\xB8\xAD", "\xED\x9F\xBF",
        "\xEF\xBF\xBD", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF", "\x80", "\xC0\xAF", "\xC1\xBF", "\xE0\x9F\xBF",
        "\xED\xA0\x80", "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80", "\xF5\x80", "\xFF", "\xC3", "\xE4\xB8", "\xF0\x9F\x98",
        "\xEF\xBB\xBF"};
    const int cpu = OzmUtf8DecodeLevel();
#if defined(__x86_64__)
    EXPECT_EQ(cpu, !__builtin_cpu_supports("avx2")        ? kOzmUtf8Plain
                   : !__builtin_cpu_supports("avx512vbmi2") ? kOzmUtf8Avx2
                                                            : kOzmUtf8Avx512);
#else
    EXPECT_EQ(cpu, kOzmUtf8Plain);
#endif
    std::vector<int> levels;
    for (int level = kOzmUtf8Plain; level <= cpu; ++level)
        levels.push_back(level);
    std::mt19937 rng(1602);
    std::string all;
    for (int round = 0; round < 512 && !HasFailure(); ++round) {
        std::string s(size_t(round % 64), 'x');
        const unsigned faultsPerMille = round % 3 ? 0 : 1 + rng() % 60, asciiRun = round % 4 ? 24 : 90;
        while (s.size() < 900 + size_t(round) * 16)  // four-byte sequences one time in 40 of the valid
            s += rng() % 1000 < faultsPerMille ? pieces[9 + rng() % 13]
                 : rng() % 3                  ? pieces[rng() % 40 == 0 ? 7 + rng() % 2 : rng() % 7]
                                              : std::string(1 + rng() % asciiRun, char(' ' + rng() % 95));
        for (int level : levels)
            EXPECT_EQ((OzmUtf8DecodeLevel(level), U(s)), Reference(s)) << level << ", round " << round;
        all += s;
    }
    TempDir tmp;
    const UCString path = U(tmp.Write("mix.txt", all));
    for (int level : levels) {  // files decode in blocks of their own
        OzmUCFile f;
        ASSERT_EQ((OzmUtf8DecodeLevel(level), f.Open(path.c_str(), u"r", 1, csetUTF8)), 0);
        UCString read;
        for (UCChar c; (c = f.Getc()) != UCEof;)
            read += c;
        EXPECT_EQ(read, Reference(all)) << level;
    }
    OzmUtf8DecodeLevel(cpu);
}
