// XmlOutputStream: what each of the five targets receives, the order of
// delivery, Format, Close, SetFilePointer, copies and failing targets.
#include <cstdio>

#include "test_util.h"

namespace {

// What an unbuffered stdio FILE without descriptor, or the I/O module below, receives.
struct Log {
    std::string bytes;
    UCString units;
    int writes = 0, closes = 0;
    bool fail = false;
} g_module;
FILE* CookieFile(Log& log) {
    cookie_io_functions_t io{};
    io.write = [](void* c, const char* buf, size_t n) -> ssize_t {
        return static_cast<Log*>(c)->bytes.append(buf, n), ssize_t(n);
    };
    io.close = [](void* c) -> int { return ++static_cast<Log*>(c)->closes, 0; };
    FILE* f = fopencookie(&log, "w", io);
    return setvbuf(f, nullptr, _IONBF, 0), f;
}
class RecordingModule : public OzmIOModule {
public:
    BATCHERR Open(const UCChar*, const UCChar*, short) override { return errNone; }
    BATCHERR Close() override { return ++g_module.closes, errNone; }
    BATCHERR Read(UCChar*, size_t, size_t& count) override { return count = 0, errOpenSource; }
    BATCHERR Write(const UCChar* text, size_t n) override {
        ++g_module.writes;
        return g_module.fail ? errOpenSource : (g_module.units.append(text, n), errNone);
    }
    const UCChar* LastErrorMessage() const override { return u"recording module failed"; }
};
auto OpenDescriptors() { return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}); }

// Connects s to the recording module, which starts afresh.
void OpenModule(XmlOutputStream& s) {
    g_module = Log();
    OzmLightweightIO::RegisterModule(u"outrec", []() -> OzmIOModule* { return new RecordingModule; });
    ASSERT_EQ(s.SetLWIOModule(u"outrec"), errNone);
    ASSERT_EQ(s.OpenLWIO(u"r", u"", 0), errNone);
}

// Each unit by itself, then in a run at every place of any block the stream
// converts, to the UTF-8 string and the stdio file. A zero unit is one byte
// in the UTF-8 string and none in the file.
TEST(OutputStreamTest, Utf8RuleUnitByUnit) {
    const std::pair<UCChar, std::string> probes[] = {{0x7F, "\x7F"}, {0x80, "\xC2\x80"}, {0x7FF, "\xDF\xBF"},
                                                     {0x800, "\xE0\xA0\x80"}, {0xD83D, "\xED\xA0\xBD"},
                                                     {0xFFFF, "\xEF\xBF\xBF"}, {0, ""}};
    for (const auto& [unit, bytes] : probes) {
        const std::string utf8Bytes = unit ? bytes : std::string(1, '\0');
        for (size_t at = 0; at < 40; ++at) {
            UCString run(40, u'a'), units;
            run[at] = unit;
            std::string utf8;
            Log file;
            XmlOutputStream s;
            s.SetUTFString(&utf8), s.SetString(&units), s.SetFilePointer(CookieFile(file), true);
            s << unit;
            s.Write(run.data(), run.size());
            s.Close();
            EXPECT_EQ(utf8, utf8Bytes + std::string(at, 'a') + utf8Bytes + std::string(39 - at, 'a')) << at;
            EXPECT_EQ(file.bytes, bytes + std::string(at, 'a') + bytes + std::string(39 - at, 'a')) << at;
            EXPECT_EQ(units, unit + run);
        }
    }
}

TEST(OutputStreamTest, FormatIsCutAt255Units) {
    UCString out;
    XmlOutputStream s;
    s.SetString(&out);
    s.Format(u"<%s>", UCString(400, u'q').c_str());
    s.Format(u"|%1.1f", 1.06);
    EXPECT_EQ(out, u"<" + UCString(254, u'q') + u"|1.1");
}

// An owned file is closed once, by SetFilePointer or Close, and not when
// handed in again.
TEST(OutputStreamTest, CloseAndSetFilePointer) {
    Log a, b, c;
    XmlOutputStream s;
    FILE* fa = CookieFile(a);
    s.SetFilePointer(fa, true), s.SetFilePointer(fa, true);
    s.SetFilePointer(CookieFile(b), true);
    s << u"b";
    s.SetFilePointer(nullptr, false);
    s << u"-";
    s.SetFilePointer(CookieFile(c), true);
    s << u"c";
    s.Close(), s.Close();
    EXPECT_EQ(std::to_string(a.closes) + b.bytes + std::to_string(b.closes) + c.bytes + std::to_string(c.closes),
              "1b1c1");
}

// Copies of owned stdio files and OzmUCFiles get their own descriptors, a
// FILE without descriptor is shared and closed by its owner, the module
// connection is shared and closed once; assignment closes nothing until Close.
TEST(OutputStreamTest, Copies) {
    TempDir tmp;
    const auto before = OpenDescriptors();
    Log log, replaced;
    {
        XmlOutputStream original, assigned, shared;
        original.SetFilePointer(std::fopen(tmp.Path("stdio").c_str(), "wb"), true);
        ASSERT_EQ(original.OpenUCFile(tmp.UPath("uc").c_str(), u"w", 1), 0);
        original << u"1";
        XmlOutputStream copy(original);
        original << u"2";
        original.Close();
        copy << u"3";
        ASSERT_EQ(assigned.OpenUCFile(tmp.UPath("kept").c_str(), u"w", 1), 0);
        assigned.SetFilePointer(std::fopen(tmp.Path("kept").c_str(), "rb"), true);
        assigned << u"kept";
        const auto open = OpenDescriptors();
        assigned = copy;
        XmlOutputStream& self = assigned;  // a reference, which the compilers do not flag
        assigned = self;
        EXPECT_EQ(OpenDescriptors(), open + 2);  // copies of both files, nothing closed
        copy.Close();
        assigned << u"4";
        assigned.Close();
        EXPECT_EQ(OpenDescriptors(), before);

        original.SetFilePointer(CookieFile(log), true);
        OpenModule(original);
        XmlOutputStream copy2(original);
        shared.SetFilePointer(CookieFile(replaced), true);
        shared = original;
        EXPECT_EQ(replaced.closes, 0);
        copy2 << u"c", shared << u"a", original << u"o";
        copy2.Close();
        EXPECT_EQ(log.closes + g_module.closes, 1);
        shared << u"x";
        EXPECT_EQ(g_module.units, u"cao");
    }
    EXPECT_EQ(tmp.Read("stdio") + tmp.Read("uc") + tmp.Read("kept") + log.bytes, "12341234keptcaox");
    EXPECT_EQ(log.closes + replaced.closes + g_module.closes, 3);
}

// A full disk for the stdio file and the OzmUCFile and a failing module
// don't stop the other targets.
TEST(OutputStreamTest, FailingTargetsDoNotStopTheOthers) {
    UCString units;
    std::string utf8;
    XmlOutputStream s;
    ASSERT_EQ(s.OpenUCFile(u"/dev/full", u"w", 1), 0);
    OpenModule(s);
    g_module.fail = true;
    s.SetFilePointer(std::fopen("/dev/full", "wb"), true), s.SetString(&units), s.SetUTFString(&utf8);
    for (int i = 0; i < 4; ++i)
        s << UCString(50000, u'\u00E9') << UCChar('.');
    s.Write(u"end", 3);
    s.Close();
    EXPECT_EQ(units.size(), 4 * 50001u + 3);
    EXPECT_EQ(utf8.size(), 4 * 100001u + 3);
    EXPECT_GT(g_module.writes, 0);
}

}  // namespace
