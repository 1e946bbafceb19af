// The unit primitives at every vector level this build has, against the portable level: runs of every length up
// to 80 at every alignment (of units, and of bytes for the byte runs), each the last thing in an allocation of its
// own (AddressSanitizer sees a read past it), random ones and quiet ones (names, blanks, line feeds) with each
// telling unit (every stop unit, 0xFFFF, U+2028, the surrogates, units that pack to an ASCII byte's neighbours)
// at every offset; the searches with every stop set the scanners, writers and rescanning use.
#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

#include "platform/units/ozmunits.h"

namespace {

const UCChar kTelling[] = {'<', '&', 13, 10, 0, '"', '\'', '>', '%', ']', ' ', '\t', 'a', 'z', 'A', 'Z', '0', '_',
                           ':', '-', ';', '@', '`', '{', 0x7F, 0x80, 0xFF, 0x10A, 0x13C, 0x226, 0x2028, 0x2029,
                           0xD800, 0xDBFF, 0xDC00, 0xDFFF, 0x7FFF, 0x8000, 0xFF0A, 0xFF3C, 0xFFFE, 0xFFFF};

// Units (or their low bytes) last in an allocation of their own, align units past its start.
template <class T>
struct Last {
    std::unique_ptr<T[]> mem;
    T* p;
    Last(const std::vector<UCChar>& units, size_t align) : mem(new T[align + units.size()]), p(mem.get() + align) {
        for (size_t i = 0; i < units.size(); ++i)
            p[i] = static_cast<T>(units[i]);
    }
};

template <class L>
void Check(const std::vector<UCChar>& units, const std::vector<UCChar>& other, size_t align, size_t byteAlign) {
    using P = OzmUnitsPortable;
    const size_t n = units.size();
    SCOPED_TRACE(testing::Message() << L::kName << ", " << n << " units at " << align << ", bytes at " << byteAlign);
    const Last<UCChar> run(units, align), copy(other, 7 - align);
    const UCChar* const p = run.p;
    const UCChar* const end = p + n;
#define OZM_EXPECT_FIND(N, E, ...) \
    EXPECT_EQ(L::Find(p, end, typename L::template Stops<N, E>(__VA_ARGS__)), P::Find(p, end, P::Stops<N, E>(__VA_ARGS__)))
    const UCChar kPairs[][2] = {{'"', '"'}, {'\'', '\''}, {'-', '>'}, {'<', '&'}, {';', ';'}, {'<', ']'}};
    for (const UCChar* s : kPairs)
        OZM_EXPECT_FIND(5, true, s[0], s[1], 13, 10, 0);
    OZM_EXPECT_FIND(4, true, '<', '&', 13, 0);
    for (UCChar quote : {'"', '\''})
        OZM_EXPECT_FIND(4, true, quote, 10, 13, 0);
    OZM_EXPECT_FIND(6, false, 0, '"', '&', '\'', '<', '>');
    for (UCChar amp : {UCChar(0), UCChar('&')})
        for (UCChar percent : {UCChar(0), UCChar('%')})
            OZM_EXPECT_FIND(3, false, 0, amp, percent);
    OZM_EXPECT_FIND(1, true, '\'');
#undef OZM_EXPECT_FIND
    int64_t lines[2] = {5, 5};
    const UCChar* lastLf[2] = {nullptr, nullptr};
    EXPECT_EQ(L::FindCountingLines(p, end, typename L::template Stops<4, true>('<', '&', 13, 0), lines[0], lastLf[0]),
              P::FindCountingLines(p, end, P::Stops<4, true>('<', '&', 13, 0), lines[1], lastLf[1]));
    EXPECT_EQ(lines[0], lines[1]);
    EXPECT_EQ(lastLf[0], lastLf[1]);
    if (n >= 16) {
        EXPECT_EQ(L::Blanks16(p), P::Blanks16(p));
    }
    EXPECT_EQ(L::NameRun(p, end), P::NameRun(p, end));
    EXPECT_EQ(L::AllSpace(p, n), P::AllSpace(p, n));
    EXPECT_EQ(L::SpaceRun(p, n), P::SpaceRun(p, n));
    EXPECT_EQ(L::Same(p, copy.p, n), P::Same(p, copy.p, n));
    EXPECT_TRUE(L::Same(p, p, n));

    const Last<UCChar> copied(std::vector<UCChar>(n, 0x5A5A), 0);
    L::Copy(copied.p, p, n);
    EXPECT_EQ(UCString(copied.p, n), UCString(p, n));
    const Last<unsigned char> bytes(units, byteAlign), folded[2] = {{units, 0}, {units, 0}};
    const Last<UCChar> widened[2] = {{units, 0}, {units, 0}};
    const size_t fold = P::FoldAscii(p, n, folded[1].p);
    ASSERT_EQ(L::FoldAscii(p, n, folded[0].p), fold);
    EXPECT_EQ(std::string(folded[0].mem.get(), folded[0].mem.get() + fold),
              std::string(folded[1].mem.get(), folded[1].mem.get() + fold));
    const size_t ascii = P::WidenAscii(bytes.p, n, widened[1].p);
    ASSERT_EQ(L::WidenAscii(bytes.p, n, widened[0].p), ascii);
    EXPECT_EQ(UCString(widened[0].p, ascii), UCString(widened[1].p, ascii));
    L::Widen(bytes.p, n, widened[0].p);
    P::Widen(bytes.p, n, widened[1].p);
    EXPECT_EQ(UCString(widened[0].p, n), UCString(widened[1].p, n));
}

template <class L>
void CheckLevel() {
    std::mt19937 rng(2028);
    const size_t telling = sizeof kTelling / sizeof kTelling[0];
    auto unit = [&] { return rng() % 4 ? kTelling[rng() % telling] : rng() % 3 ? UCChar('a' + rng() % 26) : UCChar(rng()); };
    for (size_t n = 0; n <= 80 && !testing::Test::HasFailure(); ++n) {
        for (size_t align = 0; align < 8; ++align) {
            for (int round = 0; round < 6; ++round) {
                std::vector<UCChar> units(n), other;
                for (UCChar& u : units)
                    u = unit();
                other = units;
                if (n && round % 2)
                    other[rng() % n] ^= UCChar(1 + rng() % 0xFFFF);
                Check<L>(units, other, align, align + 8 * (round % 2));
            }
        }
        // Quiet runs of a name character, of blanks and of line feeds, with each telling unit at each offset.
        for (size_t at = 0; at < n; ++at) {
            for (UCChar u : kTelling) {
                std::vector<UCChar> units(n, u'x'), quiet(n, u'x');
                units[at] = u;
                Check<L>(units, quiet, (n + at) % 8, (n + at) % 16);
                std::vector<UCChar> blank(n, u' '), lines(n, u'\n');
                blank[at] = lines[at] = u;
                Check<L>(blank, units, at % 8, (at + 3) % 16);
                Check<L>(lines, blank, (at + 5) % 8, (n + 2 * at) % 16);
            }
        }
    }
}

}  // namespace

// The vector level is the one in use wherever there is one: a build that fell back to the portable level would
// leave the vector code untested and unused.
TEST(UnitsTest, BuildUsesItsMachinesLevel) {
#if defined(__x86_64__) || (defined(__i386__) && defined(__SSE2__))
    EXPECT_STREQ(OzmUnits::kName, "SSE2");
#elif defined(__aarch64__)
    EXPECT_STREQ(OzmUnits::kName, "NEON");
#else
    EXPECT_STREQ(OzmUnits::kName, OzmUnitsPortable::kName);
#endif
}

TEST(UnitsTest, EveryLevelMatchesThePortableOne) {
#if defined(OZM_UNITS_SSE2)
    CheckLevel<OzmUnitsVector<OzmSse2>>();
#elif defined(OZM_UNITS_NEON)
    CheckLevel<OzmUnitsVector<OzmNeon>>();
#else
    GTEST_SKIP() << "no vector level in this build";
#endif
}
