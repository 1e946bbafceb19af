// OzmUCFile and OzmBFile against real files and pipes.
#include <chrono>
#include <thread>

#include <fcntl.h>

#include "ozmutil.h"
#include "test_util.h"

namespace {

UCString ReadAll(OzmUCFile& f) {
    UCString out;
    for (UCChar c; (c = f.Getc()) != UCEof;)
        out.push_back(c);
    return out;
}

class OzmFileTest : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(tmp.Ok()); }
    int Open(OzmUCFile& f, const std::string& name, const UCChar* mode, int format, OZM_CSET set = csetUTF8) {
        return f.Open(tmp.UPath(name).c_str(), mode, format, set);
    }
    TempDir tmp;
};

// Against the string decoder: sequences, valid and broken, on every alignment
// around the byte blocks and unit chunks, and cut off by the end of the file.
TEST_F(OzmFileTest, Utf8AcrossBufferBoundaries) {
    const std::string pieces[] = {"abcdefg", "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80", "\xE2\x82",
                                  "\xFF",    "\xED\xA0\x80", "\xF0\x9F", "x"};
    for (int shift = 0; shift < 4; ++shift) {
        std::string bytes = "\xEF\xBB\xBF" + std::string(size_t(shift), 'p');
        for (size_t i = 0; bytes.size() < 200000; ++i)
            bytes += pieces[(i * 7 + i / 9) % 9];
        tmp.Write("big.txt", bytes += "\xF0\x9F\x98");
        OzmUCFile f;
        ASSERT_EQ(Open(f, "big.txt", u"rb", shift % 2 ? 1 : 8), 0);
        ASSERT_TRUE(ReadAll(f) == U(bytes)) << "shift " << shift;
        EXPECT_EQ(f.Getc(), UCEof);
    }
    // A pipe delivering one byte at a time.
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    std::thread writer([&] {
        for (char c : std::string("\xEF\xBB\xBF" "a\xE2\x82\xAC\xF0\x9F\x98\x80\xE2\x82" "b")) {
            EXPECT_EQ(write(fds[1], &c, 1), 1);
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        close(fds[1]);
    });
    OzmUCFile f;
    ASSERT_EQ(f.AttachDescriptor(fds[0], false, true), 0);
    f.Format(1);
    UCString got = ReadAll(f);
    writer.join();
    EXPECT_EQ(got, u"a\u20AC\U0001F600\u00E2\u0082b");
}

TEST_F(OzmFileTest, OpenFailures) {
    OzmUCFile f;
    tmp.Write("ok.txt", "ok");
    EXPECT_LT(Open(f, "missing.txt", u"r", 1), 0);
    EXPECT_LT(f.Open(U(tmp.Dir()).c_str(), u"r", 1, csetUTF8), 0);
    EXPECT_EQ(errno, EISDIR);
    for (int format : {0, 2, 5, 0x6005, -1})
        EXPECT_EQ(Open(f, "ok.txt", u"r", format), -1) << format;
    EXPECT_LT(Open(f, "ok.txt", u"rw", 1), 0);
    EXPECT_EQ(f.Getc(), UCEof);
    tmp.Write("caf\xC3\xA9.txt", "ok");  // the name is encoded in the set asked for
    EXPECT_LT(Open(f, "caf\xC3\xA9.txt", u"r", 1, csetISO8859_1), 0);
    EXPECT_EQ(Open(f, "caf\xC3\xA9.txt", u"r", 1, csetDefault), 0);
    OzmBFile b;
    EXPECT_EQ(b.OpenBytes(tmp.Path("m.bin").c_str(), "wr"), -1);
    EXPECT_EQ(b.OpenBytes(tmp.Path("m.bin").c_str(), "wb"), 0);
    EXPECT_EQ(b.GetByte(), -1);  // write-only
    ASSERT_EQ(b.OpenBytes(tmp.Path("m.bin").c_str(), "rb"), 0);
    EXPECT_EQ(b.PutBytes("x", 1), -1);  // read-only
}

TEST_F(OzmFileTest, ReadSeekAndWriteInBulk) {
    std::string data;
    for (int i = 0; i < 200000; ++i)
        data.push_back(char(i * 31 % 251));
    OzmBFile f;
    ASSERT_EQ(f.OpenBytes(tmp.Path("b.bin").c_str(), "w+b"), 0);
    ASSERT_EQ(f.PutBytes(data.data(), 1000), 0);
    ASSERT_EQ(f.PutBytes(data.data() + 1000, data.size() - 1000), 0);  // larger than the buffer
    ASSERT_EQ(f.SeekBytes(0, 0), 0);
    std::string back(data.size() + 100000, '\0');
    auto* p = reinterpret_cast<unsigned char*>(&back[0]);
    ASSERT_EQ(f.ReadBytes(p, 10) + f.ReadBytes(p + 10, 150000), 150010u);
    ASSERT_EQ(f.ReadBytes(p + 150010, 100000), data.size() - 150010);
    EXPECT_TRUE(back.substr(0, data.size()) == data);
    EXPECT_EQ(f.GetByte(), -1);
    ASSERT_EQ(f.SeekBytes(-1, 2), 0);
    EXPECT_EQ(f.GetByte(), (unsigned char)data.back());
    ASSERT_EQ(f.SeekBytes(5, 0), 0);
    EXPECT_EQ(f.GetByte(), (unsigned char)data[5]);
    ASSERT_EQ(f.SeekBytes(3, 1), 0);  // relative to what was read, not read ahead
    EXPECT_EQ(f.GetByte(), (unsigned char)data[9]);
    EXPECT_EQ(f.SeekBytes(0, 7), -1);
    ASSERT_EQ(f.PutBytes("Z", 1), 0);  // lands right after the byte just read
    ASSERT_EQ(f.Close(), 0);
    data[10] = 'Z';
    EXPECT_TRUE(tmp.Read("b.bin") == data);
}

}  // namespace

namespace {

// What a file of format 8 reads as: its units, then whether it ended at
// invalid bytes, the set it was read in and whether its declaration was cut.
struct Read8 {
    UCString units;
    bool failed;
    OZM_CSET set;
    bool cut;
};
Read8 ReadFile8(const std::string& path) {
    OzmUCFile f;
    if (f.Open(U(path).c_str(), u"rb", 8, csetDefault) != 0)
        return {u"<no file>", false, csetUnknown, false};
    UCString units = ReadAll(f);
    return {units, f.DecodeFailed(), f.Encoding(), f.DeclarationCut()};
}

// Characters of every length cut at every place by the byte buffer (64 KB)
// and by the block of decoded units (32768), and characters that a stateful
// decoder holds back across them: each text is shifted by 0 to 11 bytes.
TEST_F(OzmFileTest, DeclaredEncodingsAcrossBlockBoundaries) {
    const struct {
        const char* name;
        std::string chunk;  // bytes of a few characters
        UCString units;     // what they read as
    } sets[] = {
        {"Shift_JIS", "\x93\xFA" "a\x96\x7B", u"\u65E5a\u672C"},
        {"EUC-JP", "\x8F\xB0\xA1\xC6\xFC", u"\u4E02\u65E5"},
        {"GB18030", "\x95\x32\x82\x36" "b", u"\U00020000b"},
        {"ISO-2022-JP", "a\x1B$BF|\x1B(B", u"a\u65E5"},
        {"windows-1258", "e\xEC" "a", u"\u00E9a"},  // e and a combining acute composed; a held to the end
        {"KOI8-R", "\xF0\xD2", u"\u041F\u0440"},
        {"ISO-8859-1", "\xE9\xC3\xA9", u"\u00E9\u00C3\u00A9"},
    };
    for (const auto& s : sets) {
        const std::string decl = std::string("<?xml version='1.0' encoding='") + s.name + "'?>";
        for (size_t shift = 0; shift < 12; ++shift) {
            std::string bytes = decl + std::string(shift, 'a');
            UCString units = U(bytes);
            while (bytes.size() < 300000)
                bytes += s.chunk, units += s.units;
            const Read8 r = ReadFile8(tmp.Write("s.xml", bytes));
            EXPECT_TRUE(r.units == units && !r.failed) << s.name << " shifted by " << shift;
            EXPECT_EQ(OzmGlob::EncodingToName(r.set), U(s.name));
        }
    }
    // US-ASCII: a byte beyond ASCII at every place around the blocks of
    // sixteen that are widened at once ends the text right in front of it.
    for (size_t n = 0; n < 40; ++n) {
        const std::string decl = "<?xml encoding='us-ascii'?>";
        const Read8 r = ReadFile8(tmp.Write("a.xml", decl + std::string(n, 'x') + "\x80yz"));
        EXPECT_TRUE(r.units == U(decl) + UCString(n, u'x') && r.failed) << n;
    }
    // The declaration is looked for in the first 64 KB: ending at byte 65536
    // it is used, beyond that the text reads as UTF-8 and says so.
    for (size_t end = 65534; end <= 65538; ++end) {
        const std::string tail = " encoding='KOI8-R'?>";
        const std::string decl = "<?xml" + std::string(end - 5 - tail.size(), ' ') + tail;
        const Read8 r = ReadFile8(tmp.Write("w.xml", decl + "\xF0\xD2"));
        const bool used = end <= 65536;
        EXPECT_EQ(r.units, U(decl) + (used ? u"\u041F\u0440" : u"\u00F0\u00D2")) << end;
        EXPECT_EQ(std::make_pair(r.set, r.cut), std::make_pair(used ? csetKOI8R : csetUTF8, !used)) << end;
    }
}

// The declaration read from a pipe that delivers a byte at a time; a copy of a
// text in a set whose decoder holds a state cannot go on decoding it.
TEST_F(OzmFileTest, DeclarationFromAPipeAndCopies) {
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    const std::string text = "<?xml encoding='ISO-8859-5'?>\xBF\xE0\xDE\xDC\xEF\xDD\xD0";
    std::thread writer([&] {
        for (char c : text) {
            EXPECT_EQ(write(fds[1], &c, 1), 1);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        close(fds[1]);
    });
    OzmUCFile f;
    ASSERT_EQ(f.OpenDescriptor(fds[0], 1, true), 0);
    UCString got = ReadAll(f);
    writer.join();
    EXPECT_EQ(got, u"<?xml encoding='ISO-8859-5'?>\u041F\u0440\u043E\u043C\u044F\u043D\u0430");

    // A copy reads on where the original stands (sharing its descriptor):
    // to the end in KOI8-R, up to the units it took over in ISO-2022-JP.
    for (const bool stateful : {false, true}) {
        std::string bytes = stateful ? "<?xml encoding='ISO-2022-JP'?>" : "<?xml encoding='KOI8-R'?>";
        for (int i = 0; i < 20000; ++i)
            bytes += stateful ? "\x1B$BF|\x1B(B" : "\xF0";
        tmp.Write("c.xml", bytes);
        ASSERT_EQ(Open(f, "c.xml", u"r", 1), 0);
        EXPECT_EQ(f.Getc(), u'<');
        OzmUCFile copy(f);
        const UCString rest = ReadAll(copy);
        EXPECT_EQ(rest.size(), stateful ? size_t(f.PendingEnd() - f.Pending()) : 24u + 20000) << stateful;
        EXPECT_EQ(rest.back(), stateful ? u'\u65E5' : u'\u041F');
        EXPECT_EQ(copy.DecodeFailed(), stateful);
    }
}

}  // namespace
