// XmlOutputStream: the five targets, what each receives, the order of
// delivery, Format, Close, SetFilePointer, copies and failing targets.
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "test_util.h"
#include "xmlapi.h"

namespace {

// A stdio FILE whose writes and closes are recorded; unbuffered, so each
// delivery reaches it at once. It has no descriptor.
struct CookieLog {
    std::string bytes;
    int closes = 0;
    std::function<void()> onWrite;
};

FILE* CookieFile(CookieLog& log) {
    cookie_io_functions_t io{};
    io.write = [](void* c, const char* buf, size_t n) -> ssize_t {
        CookieLog* l = static_cast<CookieLog*>(c);
        if (l->onWrite)
            l->onWrite();
        l->bytes.append(buf, n);
        return ssize_t(n);
    };
    io.close = [](void* c) -> int { return ++static_cast<CookieLog*>(c)->closes, 0; };
    FILE* f = fopencookie(&log, "w", io);
    setvbuf(f, nullptr, _IONBF, 0);
    return f;
}

// An I/O module that records what it is sent.
struct ModuleLog {
    UCString units;
    int writes = 0;
    int closes = 0;
    bool fail = false;
    std::function<void()> onWrite;
} g_module;

class RecordingModule : public OzmIOModule {
public:
    BATCHERR Open(const UCChar*, const UCChar*, short) override { return errNone; }
    BATCHERR Close() override { return ++g_module.closes, errNone; }
    BATCHERR Read(UCChar*, size_t, size_t& count) override { return count = 0, errOpenSource; }
    BATCHERR Write(const UCChar* text, size_t n) override {
        if (g_module.onWrite)
            g_module.onWrite();
        ++g_module.writes;
        if (g_module.fail)
            return errOpenSource;
        g_module.units.append(text, n);
        return errNone;
    }
    const UCChar* LastErrorMessage() const override { return u"recording module failed"; }
};

long FileSize(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 ? long(st.st_size) : -1;
}

int OpenDescriptors() {
    int n = 0;
    if (DIR* d = ::opendir("/proc/self/fd")) {
        while (::readdir(d))
            ++n;
        ::closedir(d);
    }
    return n;
}

class OutputStreamTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(m_tmp.Ok());
        g_module = ModuleLog();
        OzmLightweightIO::RegisterModule(u"outrec", []() -> OzmIOModule* { return new RecordingModule; });
    }
    void TearDown() override { g_module = ModuleLog(); }
    std::string Path(const char* name) const { return m_tmp.Path(name); }
    std::string ReadBytes(const std::string& path) const { return m_tmp.Read(path.substr(m_tmp.Dir().size() + 1)); }
    static void OpenModule(XmlOutputStream& s) {
        ASSERT_EQ(s.SetLWIOModule(u"outrec"), errNone);
        ASSERT_EQ(s.OpenLWIO(u"r", u"", 0), errNone);
    }
    TempDir m_tmp;
};

// The UTF-8 rule unit by unit: through the text and the single-unit path to
// the UTF-8 string and the stdio file (the same bytes on both paths), and as
// a run with the unit at every place, so that it falls at each position of
// any block the stream converts at a time. The UCString gets the unit itself.
// A zero unit is one byte in the UTF-8 string and nothing in the file.
TEST_F(OutputStreamTest, Utf8RuleUnitByUnit) {
    const struct {
        UCChar unit;
        std::string bytes;
    } probes[] = {{0x7F, "\x7F"}, {0x80, "\xC2\x80"}, {0x7FF, "\xDF\xBF"}, {0x800, "\xE0\xA0\x80"},
                  {0xD83D, "\xED\xA0\xBD"}, {0xFFFF, "\xEF\xBF\xBF"}, {0, ""}};
    for (const auto& p : probes) {
        SCOPED_TRACE(int(p.unit));
        const std::string utf8Bytes = p.unit ? p.bytes : std::string(1, '\0');
        const UCChar text[2] = {p.unit, 0};
        std::string viaText, viaChar;
        CookieLog textFile, charFile;
        XmlOutputStream s;
        s.SetUTFString(&viaText);
        s.SetFilePointer(CookieFile(textFile), true);
        s << text;
        s.SetUTFString(&viaChar);
        s.SetFilePointer(CookieFile(charFile), true);
        s << p.unit;
        s.SetFilePointer(nullptr, false);
        EXPECT_EQ(viaText, p.bytes);  // a zero unit ends the text
        EXPECT_EQ(viaChar, utf8Bytes);
        EXPECT_EQ(textFile.bytes, p.bytes);
        EXPECT_EQ(charFile.bytes, p.bytes);
        for (size_t at = 0; at < 40; ++at) {
            SCOPED_TRACE(at);
            UCString run(40, u'a');
            run[at] = p.unit;
            std::string utf8;
            UCString units;
            CookieLog file;
            s.SetUTFString(&utf8);
            s.SetString(&units);
            s.SetFilePointer(CookieFile(file), true);
            s.Write(run.data(), run.size());
            s.SetFilePointer(nullptr, false);
            EXPECT_EQ(utf8, std::string(at, 'a') + utf8Bytes + std::string(39 - at, 'a'));
            EXPECT_EQ(file.bytes, std::string(at, 'a') + p.bytes + std::string(39 - at, 'a'));
            EXPECT_EQ(units, run);
        }
    }
}

TEST_F(OutputStreamTest, PairsAreNotJoinedAndUCStringEndsAtZero) {
    std::string utf8;
    UCString units;
    CookieLog file;
    XmlOutputStream s;
    s.SetString(&units);
    s.SetUTFString(&utf8);
    s.SetFilePointer(CookieFile(file), true);
    s << u"\U0001F600" << UCString(u"ab\0cd", 5) << u"";
    EXPECT_EQ(utf8, "\xED\xA0\xBD\xED\xB8\x80" "ab");
    EXPECT_EQ(file.bytes, utf8);
    EXPECT_EQ(units, u"\U0001F600ab");
}

TEST_F(OutputStreamTest, AllFiveTargetsGetTheSameText) {
    const std::string stdioPath = Path("stdio.txt"), ucPath = Path("uc.txt"), lePath = Path("le.txt");
    std::string utf8;
    UCString units;
    {
        XmlOutputStream s;
        s.SetFilePointer(std::fopen(stdioPath.c_str(), "wb"), true);
        ASSERT_EQ(s.OpenUCFile(U(ucPath).c_str(), u"w", 1), 0);
        OpenModule(s);
        s.SetString(&units);
        s.SetUTFString(&utf8);
        s << u"<a x=\"\u00E9\">" << UCChar(0x20AC) << UCString(u"z\u4E2D");
        s.Write(u"!?", 2);
        s.Close();
        // The UTF-16 format of the file object shows the plain units.
        XmlOutputStream le;
        ASSERT_EQ(le.OpenUCFile(U(lePath).c_str(), u"w", 0x6004), 0);
        le << u"\u00E9" << UCChar(0x20AC);
    }
    const UCString expected = u"<a x=\"\u00E9\">\u20ACz\u4E2D!?";
    const std::string bytes = "<a x=\"\xC3\xA9\">\xE2\x82\xACz\xE4\xB8\xAD!?";
    EXPECT_EQ(units, expected);
    EXPECT_EQ(utf8, bytes);
    EXPECT_EQ(ReadBytes(stdioPath), bytes);
    EXPECT_EQ(ReadBytes(ucPath), bytes);
    EXPECT_EQ(ReadBytes(lePath), std::string("\xE9\x00\xAC\x20", 4));
    EXPECT_EQ(g_module.units, expected);
    EXPECT_EQ(g_module.closes, 1);
}

// Each target receives a delivery whole before the next target gets any of it.
TEST_F(OutputStreamTest, DeliveryOrder) {
    const std::string ucPath = Path("order.txt");
    // Long enough to pass the buffers of the OzmUCFile and of the connection.
    const UCString text(1000000, u'a');
    CookieLog file;
    std::string utf8;
    UCString units;
    XmlOutputStream s;
    s.SetFilePointer(CookieFile(file), true);
    ASSERT_EQ(s.OpenUCFile(U(ucPath).c_str(), u"w", 1), 0);
    OpenModule(s);
    s.SetString(&units);
    s.SetUTFString(&utf8);
    int fileChecks = 0, moduleChecks = 0;
    file.onWrite = [&] {
        if (fileChecks++ == 0) {
            EXPECT_EQ(FileSize(ucPath), 0);
            EXPECT_EQ(g_module.writes, 0);
            EXPECT_TRUE(units.empty() && utf8.empty());
        }
    };
    g_module.onWrite = [&] {
        if (moduleChecks++ == 0) {
            EXPECT_EQ(file.bytes.size(), text.size());
            EXPECT_GT(FileSize(ucPath), 0);
            EXPECT_TRUE(units.empty() && utf8.empty());
        }
    };
    s << text;
    EXPECT_GT(fileChecks, 0);
    EXPECT_GT(moduleChecks, 0);
    s.Close();
    EXPECT_EQ(units, text);
    EXPECT_EQ(utf8.size(), text.size());
    EXPECT_EQ(g_module.units, text);
    EXPECT_EQ(FileSize(ucPath), long(text.size()));
}

TEST_F(OutputStreamTest, EmptyTextMakesNoPutC) {
    XmlOutputStream s;
    OpenModule(s);
    s << u"" << UCString() << u"";
    s.Write(u"x", 0);
    s.Close();
    EXPECT_EQ(g_module.writes, 0);
    EXPECT_EQ(g_module.closes, 1);
}

TEST_F(OutputStreamTest, Format) {
    // An expansion longer than the buffer is cut to 255 units.
    const UCString big(400, u'q');
    UCString out;
    XmlOutputStream s;
    s.SetString(&out);
    s.Format(u"<%s>", big.c_str());
    s.Format(u"|%1.1f", 1.06);
    EXPECT_EQ(out, u"<" + UCString(254, u'q') + u"|1.1");
}

TEST_F(OutputStreamTest, CloseAndSetFilePointer) {
    // A file that isn't owned stays open and usable by the caller.
    const std::string path = Path("unowned.txt");
    FILE* f = std::fopen(path.c_str(), "wb");
    UCString units;
    std::string utf8;
    XmlOutputStream s;
    s.SetFilePointer(f, false);
    s.SetString(&units);
    s.SetUTFString(&utf8);
    s << u"one";
    s.Close();
    s.Close();
    s << u"two";  // only the string targets are left
    EXPECT_EQ(std::fputs("+", f), 1);
    std::fclose(f);
    EXPECT_EQ(ReadBytes(path), "one+");
    EXPECT_EQ(units, u"onetwo");
    EXPECT_EQ(utf8, "onetwo");

    // An owned file is closed once, by Close, by SetFilePointer or by the
    // destructor; the same pointer handed in again is not closed.
    CookieLog a, b, c;
    {
        XmlOutputStream t;
        FILE* fa = CookieFile(a);
        t.SetFilePointer(fa, true);
        t.SetFilePointer(fa, true);
        EXPECT_EQ(a.closes, 0);
        t.SetFilePointer(CookieFile(b), true);
        EXPECT_EQ(a.closes, 1);
        t << u"b";
        t.SetFilePointer(nullptr, false);
        EXPECT_EQ(b.closes, 1);
        t << u"lost";
        t.SetFilePointer(CookieFile(c), true);
        t << u"c";
        t.Close();
        EXPECT_EQ(c.closes, 1);
        t.Close();
        // The stream works again after Close.
        ASSERT_EQ(t.OpenUCFile(U(Path("again.txt")).c_str(), u"w", 1), 0);
        t << u"again";
    }
    EXPECT_EQ(a.closes + b.closes + c.closes, 3);
    EXPECT_EQ(b.bytes + c.bytes, "bc");
    EXPECT_EQ(ReadBytes(Path("again.txt")), "again");
}

// Copies: each copy of an owned stdio file or OzmUCFile has its own
// descriptor; closing both closes each once, and no descriptor is left open.
TEST_F(OutputStreamTest, CopiesOwnTheirFiles) {
    const int before = OpenDescriptors();
    const std::string stdioPath = Path("copy-stdio.txt"), ucPath = Path("copy-uc.txt");
    {
        XmlOutputStream original;
        original.SetFilePointer(std::fopen(stdioPath.c_str(), "wb"), true);
        ASSERT_EQ(original.OpenUCFile(U(ucPath).c_str(), u"w", 1), 0);
        original << u"1";
        XmlOutputStream copy(original);
        original << u"2";
        original.Close();
        copy << u"3";  // the copy's files outlive the original's
        XmlOutputStream assigned;
        assigned = copy;
        assigned = assigned;
        copy.Close();
        assigned << u"4";
        assigned.Close();
        EXPECT_EQ(OpenDescriptors(), before);
    }
    EXPECT_EQ(OpenDescriptors(), before);
    EXPECT_EQ(ReadBytes(stdioPath), "1234");
    EXPECT_EQ(ReadBytes(ucPath), "1234");
}

TEST_F(OutputStreamTest, AssignmentClosesNothingUntilClose) {
    const int before = OpenDescriptors();
    const std::string overwritten = Path("overwritten.txt"), other = Path("other.txt");
    XmlOutputStream source;
    ASSERT_EQ(source.OpenUCFile(U(other).c_str(), u"w", 1), 0);
    XmlOutputStream s;
    ASSERT_EQ(s.OpenUCFile(U(overwritten).c_str(), u"w", 1), 0);
    s.SetFilePointer(std::fopen(overwritten.c_str(), "rb"), true);
    s << u"kept";
    const int open = OpenDescriptors();
    s = source;
    // The overwritten files are still open: the copy of the source's file
    // adds a descriptor, nothing was closed.
    EXPECT_EQ(OpenDescriptors(), open + 1);
    s.Close();
    source.Close();
    EXPECT_EQ(OpenDescriptors(), before);
    EXPECT_EQ(ReadBytes(overwritten), "kept");
}

TEST_F(OutputStreamTest, CopiesShareFilesWithoutDescriptorAndModules) {
    CookieLog log, replaced;
    {
        XmlOutputStream original;
        original.SetFilePointer(CookieFile(log), true);
        OpenModule(original);
        XmlOutputStream copy(original);
        XmlOutputStream assigned;
        assigned.SetFilePointer(CookieFile(replaced), true);
        assigned = original;
        EXPECT_EQ(replaced.closes, 0);  // assignment closes nothing; the file waits for Close
        copy << u"c";
        assigned << u"a";
        original << u"o";
        copy.Close();  // not the owner of the FILE; the module connection closes for all
        EXPECT_EQ(log.closes, 0);
        EXPECT_EQ(g_module.closes, 1);
        assigned << u"x";
        EXPECT_EQ(g_module.units, u"cao");
    }
    EXPECT_EQ(log.closes, 1);
    EXPECT_EQ(replaced.closes, 1);
    EXPECT_EQ(log.bytes, "caox");
    EXPECT_EQ(g_module.closes, 1);
}

// Failing targets don't stop the others: a full disk for the stdio file and
// the OzmUCFile, a FILE open for reading only, a descriptor closed under its
// FILE, a module whose writes fail.
TEST_F(OutputStreamTest, FailingTargetsDoNotStopTheOthers) {
    const std::string path = Path("bad.txt");
    std::fclose(std::fopen(path.c_str(), "wb"));
    const std::function<FILE*()> badFiles[] = {
        [] { return std::fopen("/dev/full", "wb"); },
        [&] { return std::fopen(path.c_str(), "rb"); },
        [&] {
            // Nothing is opened between here and the stream's fclose, so the
            // number stays free.
            FILE* f = std::fopen(path.c_str(), "wb");
            ::close(::fileno(f));
            return f;
        },
    };
    for (const auto& makeBad : badFiles) {
        UCString units;
        std::string utf8;
        XmlOutputStream s;
        ASSERT_EQ(s.OpenUCFile(u"/dev/full", u"w", 1), 0);
        OpenModule(s);
        g_module = ModuleLog();
        g_module.fail = true;
        FILE* bad = makeBad();
        ASSERT_NE(bad, nullptr);
        s.SetFilePointer(bad, true);
        s.SetString(&units);
        s.SetUTFString(&utf8);
        const UCString chunk(50000, u'\u00E9');
        for (int i = 0; i < 4; ++i)
            s << chunk << UCChar('.');
        s.Write(u"end", 3);
        s.Close();
        EXPECT_EQ(units.size(), 4 * 50001u + 3);
        EXPECT_EQ(utf8.size(), 4 * 100001u + 3);
        EXPECT_GT(g_module.writes, 0);
    }
}

}  // namespace
