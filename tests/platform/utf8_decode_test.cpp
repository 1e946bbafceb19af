// The UTF-8 decoder at each of its levels against a plain decoder, on random
// mixes of valid sequences, faults and ASCII at every offset to its windows.
#include <gtest/gtest.h>

#include <random>

#include "platform/ozmutf8.h"
#include "test_util.h"

namespace {

// A code point at a time: a whole valid sequence, or else one byte as Latin-1.
UCString Reference(const std::string& s) {
    UCString out;
    auto b = [&](size_t k) { return k < s.size() ? unsigned(static_cast<unsigned char>(s[k])) : 0u; };
    for (size_t i = s.compare(0, 3, "\xEF\xBB\xBF") == 0 ? 3 : 0, len; i < s.size(); i += len) {
        static const uint32_t kLow[5] = {0, 0, 0x80, 0x800, 0x10000}, kBits[5] = {0, 0x7F, 0x1F, 0x0F, 0x07};
        len = b(i) < 0x80 ? 1 : b(i) < 0xC0 ? 0 : b(i) < 0xE0 ? 2 : b(i) < 0xF0 ? 3 : b(i) < 0xF8 ? 4 : 0;
        uint32_t cp = b(i) & kBits[len];
        for (size_t k = 1; k < len; ++k)
            cp = (b(i + k) & 0xC0) == 0x80 ? cp << 6 | (b(i + k) & 0x3F) : 0;
        if (len == 0 || cp < kLow[len] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF))
            out += UCChar(b(i)), len = 1;
        else if (cp >= 0x10000)
            out += {UCChar(0xD7C0 + (cp >> 10)), UCChar(0xDC00 | (cp & 0x3FF))};
        else
            out += UCChar(cp);
    }
    return out;
}

TEST(Utf8DecodeTest, EveryLevelMatchesTheReference) {
    const char* const valid[] = {"\xC2\x80", "\xC3\xA9", "\xD0\x96", "\xDF\xBF", "\xE0\xA0\x80", "\xE4\xB8\xAD",
                                 "\xED\x9F\xBF", "\xEE\x80\x80", "\xEF\xBF\xBD", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"};
    const char* const faults[] = {"\x80", "\xBF", "\xC0\xAF", "\xC1\xBF", "\xE0\x9F\xBF", "\xED\xA0\x80", "\xF0\x8F\xBF",
                                  "\xF4\x90\x80\x80", "\xF5\x80", "\xFF", "\xC3", "\xE4\xB8", "\xF0\x9F\x98", "\xEF\xBB\xBF"};
    const int cpu = OzmUtf8DecodeLevel();
    EXPECT_EQ(cpu, __builtin_cpu_supports("avx2") ? kOzmUtf8Avx2 : kOzmUtf8Plain);
    std::vector<int> levels;  // those the CPU has
    for (int level : {kOzmUtf8Plain, kOzmUtf8Avx2})
        if (OzmUtf8DecodeLevel(level) == level)
            levels.push_back(level);
    std::mt19937 rng(1602);
    std::string all;
    for (int round = 0; round < 512; ++round) {
        std::string s(size_t(round % 64), 'x');
        const unsigned faultsPerMille = round % 3 ? 0 : 1 + rng() % 60;
        for (size_t size = 900 + rng() % 2500; s.size() < size;) {
            if (rng() % 1000 < faultsPerMille)
                s += faults[rng() % std::size(faults)];
            else if (rng() % 3 == 0)
                s.append(1 + rng() % 24, char(' ' + rng() % 95));
            else  // four-byte sequences one time in 40
                s += valid[rng() % 40 == 0 ? 9 + rng() % 2 : rng() % 9];
        }
        all += s;
        const UCString expected = Reference(s);
        for (int level : levels) {
            OzmUtf8DecodeLevel(level);
            ASSERT_EQ(U(s), expected) << "level " << level << ", round " << round;
        }
    }
    // Files decode in blocks of their own, with a sequence cut at each end.
    TempDir tmp;
    tmp.Write("mix.txt", all);
    for (int level : levels) {
        OzmUtf8DecodeLevel(level);
        OzmUCFile f;
        ASSERT_EQ(f.Open(tmp.UPath("mix.txt").c_str(), u"r", 1, csetUTF8), 0);
        UCString read;
        for (UCChar c; (c = f.Getc()) != UCEof;)
            read += c;
        EXPECT_EQ(read, Reference(all)) << "level " << level;
    }
    OzmUtf8DecodeLevel(cpu);
}

}  // namespace
