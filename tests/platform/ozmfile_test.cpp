// Tests of OzmBFile and OzmUCFile against real files and pipes.
#include "ozmutil.h"
#include "test_files.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

#include <fcntl.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

// Byte strings that may hold zero bytes.
#define BYTES(lit) std::string(lit, sizeof(lit) - 1)

class TempDirTest : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(m_tmp.Ok()); }
    std::string Path(const std::string& name) const { return m_tmp.Path(name); }
    static UCString U(const std::string& ascii) { return UCString(ascii.begin(), ascii.end()); }
    void Write(const std::string& name, const std::string& bytes) { m_tmp.Write(name, bytes); }
    std::string Read(const std::string& name) { return m_tmp.Read(name); }
    TempDir m_tmp;
};

UCString ReadAll(OzmUCFile& f) {
    UCString out;
    for (UCChar c; (c = f.Getc()) != UCEof;)
        out.push_back(c);
    return out;
}

UCString DecodeRef(const std::string& bytes) {
    UCString out;
    OzmGlob::DecodeUTF8(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), out);
    return out;
}

// --- OzmUCFile reading ----------------------------------------------------

using OzmUCFileTest = TempDirTest;

TEST_F(OzmUCFileTest, Utf8FormatsDropMarkAndKeepInvalidBytes) {
    Write("a.txt", "\xEF\xBB\xBF" "a\xC3\xA9\xFF\xF0\x9F\x98\x80\xC0\x80z");
    for (int format : {1, 8}) {
        OzmUCFile f;
        ASSERT_EQ(f.Open(U(Path("a.txt")).c_str(), u"r", format, csetUTF8), 0);
        EXPECT_EQ(ReadAll(f), u"a\u00E9\u00FF\U0001F600\u00C0\u0080z") << format;
        EXPECT_EQ(f.Getc(), UCEof);
        EXPECT_EQ(f.Getc(), UCEof);
    }
}

TEST_F(OzmUCFileTest, Utf8AcrossBufferBoundaries) {
    // Sequences, valid and broken, land on every alignment around the 64 KiB
    // byte blocks and the 16 Ki unit chunks.
    const std::string pieces[] = {"abcdefg", "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80", "\xE2\x82",
                                  "\xFF",    "\xED\xA0\x80", "\xF0\x9F", "x"};
    for (int shift = 0; shift < 4; ++shift) {
        std::string bytes(static_cast<size_t>(shift), 'p');
        for (size_t i = 0; bytes.size() < 200000; ++i)
            bytes += pieces[(i * 7 + i / 9) % 9];
        bytes += "\xF0\x9F\x98";  // cut off by the end of the file
        Write("big.txt", bytes);
        OzmUCFile f;
        ASSERT_EQ(f.Open(U(Path("big.txt")).c_str(), u"rb", 1, csetDefault), 0);
        UCString got = ReadAll(f);
        UCString want = DecodeRef(bytes);
        ASSERT_EQ(got.size(), want.size()) << shift;
        ASSERT_TRUE(got == want) << "shift " << shift << " differs at " << std::mismatch(got.begin(), got.end(), want.begin()).first - got.begin();
    }
}

TEST_F(OzmUCFileTest, FourByteSequenceOnTheBlockBoundary) {
    for (size_t before = 65532; before <= 65536; ++before) {
        std::string bytes(before, 'a');
        bytes += "\xF0\x9F\x98\x80" "b";
        Write("edge.txt", bytes);
        OzmUCFile f;
        ASSERT_EQ(f.Open(U(Path("edge.txt")).c_str(), u"r", 1, csetUTF8), 0);
        UCString got = ReadAll(f);
        ASSERT_EQ(got.size(), before + 3);
        EXPECT_EQ(got.substr(before), u"\U0001F600b") << before;
    }
}

TEST_F(OzmUCFileTest, PipeDeliveringOneByteAtATime) {
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    const std::string bytes = "\xEF\xBB\xBF" "a\xE2\x82\xAC\xF0\x9F\x98\x80\xE2\x82" "b";
    std::thread writer([&] {
        for (char c : bytes) {
            ASSERT_EQ(write(fds[1], &c, 1), 1);
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
    EXPECT_EQ(f.Close(), 0);
}

TEST_F(OzmUCFileTest, Utf16Variants) {
    const struct {
        int format;
        std::string bytes;
        UCString text;
    } cases[] = {
        {4, BYTES("\xFF\xFE" "A\0=\xD8\0\xDE"), u"A\U0001F600"},
        {4, BYTES("\xFE\xFF\0A\xD8=\xDE\0"), u"A\U0001F600"},
        {4, std::string("A\0B\0", 4), u"AB"},
        {4, BYTES("\xFF\xFE" "A\0B"), u"A"},  // odd trailing byte dropped
        {4, "\xFF\xFE", u""},
        {4, "A", u""},
        {4, "", u""},
        {0x6004, BYTES("\xFF\xFE" "A\0"), u"A"},
        {0x6004, std::string("A\0\xFF\xFE", 4), u"A\uFEFF"},
        {0x6004, std::string("\xFE\xFF\0A", 4), u"\uFFFE\u4100"},
        {0xA004, std::string("\xFE\xFF\0A", 4), u"A"},
        {0xA004, std::string("\0A\0B", 4), u"AB"},
        {0xA004, std::string("\xFF\xFE\0A", 4), UCString{0xFFFE, u'A'}},
        {0xA004, std::string("\xD8\x3D", 2), UCString{0xD83D}},
    };
    int i = 0;
    for (const auto& c : cases) {
        Write("u16.txt", c.bytes);
        OzmUCFile f;
        ASSERT_EQ(f.Open(U(Path("u16.txt")).c_str(), u"r", c.format, csetUTF8), 0);
        EXPECT_EQ(ReadAll(f), c.text) << "case " << i;
        ++i;
    }
}

TEST_F(OzmUCFileTest, OpenFailures) {
    OzmUCFile f;
    EXPECT_LT(f.Open(U(Path("missing.txt")).c_str(), u"r", 1, csetUTF8), 0);
    EXPECT_FALSE(f.IsOpen());
    EXPECT_LT(f.Open(U(m_tmp.Dir()).c_str(), u"r", 1, csetUTF8), 0);
    EXPECT_EQ(errno, EISDIR);
    EXPECT_FALSE(f.IsOpen());
    EXPECT_LT(f.Open(U(m_tmp.Dir()).c_str(), u"w", 1, csetUTF8), 0);
    Write("ok.txt", "x");
    for (int format : {0, 2, 3, 5, 0x6005, -1}) {
        EXPECT_EQ(f.Open(U(Path("ok.txt")).c_str(), u"r", format, csetUTF8), -1) << format;
        EXPECT_FALSE(f.IsOpen());
    }
    EXPECT_LT(f.Open(U(Path("ok.txt")).c_str(), u"q", 1, csetUTF8), 0);
    EXPECT_LT(f.Open(U(Path("ok.txt")).c_str(), u"rw", 1, csetUTF8), 0);
    EXPECT_LT(f.Open(nullptr, u"r", 1, csetUTF8), 0);
    EXPECT_EQ(f.Getc(), UCEof);
}

TEST_F(OzmUCFileTest, EmptyFileAndPathCharacterSets) {
    Write("empty.txt", "");
    OzmUCFile f;
    ASSERT_EQ(f.Open(U(Path("empty.txt")).c_str(), u"r", 1, csetUTF8), 0);
    EXPECT_EQ(f.Getc(), UCEof);
    Write("empty.txt", "late");  // the reader has seen the end and stays there
    EXPECT_EQ(f.Getc(), UCEof);
    EXPECT_EQ(f.Close(), 0);
    EXPECT_EQ(f.Getc(), UCEof);

    Write("caf\xC3\xA9.txt", "ok");
    const UCString name = U(Path("caf")) + u"\u00E9.txt";
    ASSERT_EQ(f.Open(name.c_str(), u"r", 1, csetDefault), 0);
    EXPECT_EQ(ReadAll(f), u"ok");
    EXPECT_LT(f.Open(name.c_str(), u"r", 1, csetISO8859_1), 0);  // another byte string
    EXPECT_LT(f.Open(name.c_str(), u"r", 1, csetASCII), 0);      // cannot be expressed
}

TEST_F(OzmUCFileTest, SniffedMarkThenSwitchToUtf16) {
    Write("le.txt", std::string("\xFF\xFE<\0a\0>\0", 8));
    OzmUCFile f;
    ASSERT_EQ(f.Open(U(Path("le.txt")).c_str(), u"r", 1, csetUTF8), 0);
    EXPECT_EQ(f.Getc(), 0xFF);
    EXPECT_EQ(f.Getc(), 0xFE);
    f.Format(4);
    ASSERT_EQ(f.Seek(0, 0), 0);
    EXPECT_EQ(ReadAll(f), u"<a>");
    // And back: the file read again from the start as UTF-8.
    f.Format(1);
    ASSERT_EQ(f.Seek(0, 0), 0);
    EXPECT_EQ(ReadAll(f), UCString({0xFF, 0xFE, u'<', 0, u'a', 0, u'>', 0}));
    EXPECT_EQ(f.Seek(1, 1), -1);
}

TEST_F(OzmUCFileTest, PendingExposesDecodedUnits) {
    Write("p.txt", "hello world");
    OzmUCFile f;
    ASSERT_EQ(f.Open(U(Path("p.txt")).c_str(), u"r", 1, csetUTF8), 0);
    EXPECT_EQ(f.Getc(), u'h');
    ASSERT_EQ(UCString(f.Pending(), f.PendingEnd()), u"ello world");
    f.Skip(5);
    EXPECT_EQ(ReadAll(f), u"world");
}

// --- OzmUCFile writing ----------------------------------------------------

TEST_F(OzmUCFileTest, WriteEncodingsExactBytes) {
    const UCString text = u"A\u00E9\u20AC\U0001F600";
    const struct {
        int format;
        std::string bytes;
    } cases[] = {
        {1, "A\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"},
        {8, "A\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"},
        {4, std::string("\xFF\xFE" "A\0\xE9\0\xAC\x20\x3D\xD8\x00\xDE", 12)},
        {0x6004, std::string("A\0\xE9\0\xAC\x20\x3D\xD8\x00\xDE", 10)},
        {0xA004, std::string("\0A\0\xE9\x20\xAC\xD8\x3D\xDE\x00", 10)},
    };
    for (const auto& c : cases) {
        OzmUCFile f;
        ASSERT_EQ(f.Open(U(Path("w.txt")).c_str(), u"wb", c.format, csetUTF8), 0);
        EXPECT_EQ(f.Putc(text[0]), 0);
        EXPECT_EQ(f.Putc(text[1]), 0);
        EXPECT_EQ(f.PutString(text.c_str() + 2), 0);
        ASSERT_EQ(f.Close(), 0);
        EXPECT_EQ(Read("w.txt"), c.bytes) << c.format;
        ASSERT_EQ(f.Open(U(Path("w.txt")).c_str(), u"r", c.format, csetUTF8), 0);
        EXPECT_EQ(ReadAll(f), text) << c.format;
    }
}

TEST_F(OzmUCFileTest, Utf8SurrogateHandling) {
    const struct {
        void (*write)(OzmUCFile&);
        std::string bytes;
    } cases[] = {
        {[](OzmUCFile& f) { f.Putc(0xD83D); f.Putc(0xDE00); }, "\xF0\x9F\x98\x80"},
        {[](OzmUCFile& f) { f.PutString(u"\xD83D", 1); f.PutString(u"\xDE00x", -1); }, "\xF0\x9F\x98\x80x"},
        {[](OzmUCFile& f) { f.Putc(0xD83D); f.Putc('A'); }, "\xED\xA0\xBD" "A"},
        {[](OzmUCFile& f) { f.Putc(0xD83D); f.Putc(0xD83D); f.Putc(0xDE00); }, "\xED\xA0\xBD\xF0\x9F\x98\x80"},
        {[](OzmUCFile& f) { f.Putc(0xDE00); }, "\xED\xB8\x80"},
        {[](OzmUCFile& f) { f.Putc('x'); f.Putc(0xDBFF); }, "x\xED\xAF\xBF"},  // written on Close
    };
    for (const auto& c : cases) {
        OzmUCFile f;
        ASSERT_EQ(f.Open(U(Path("s.txt")).c_str(), u"w", 1, csetUTF8), 0);
        c.write(f);
        ASSERT_EQ(f.Close(), 0);
        EXPECT_EQ(Read("s.txt"), c.bytes);
    }
}

TEST_F(OzmUCFileTest, LargeRoundTripPerFormat) {
    UCString text;
    for (int i = 0; text.size() < 150000; ++i) {
        text += u"line ";
        text += static_cast<UCChar>(0x400 + i % 200);
        text += (i % 3) ? u"\U0001F600" : u"\u4E2D";
        text += u'\n';
    }
    for (int format : {1, 4, 0x6004, 0xA004}) {
        OzmUCFile f;
        ASSERT_EQ(f.Open(U(Path("big.txt")).c_str(), u"w", format, csetUTF8), 0);
        for (size_t i = 0; i < text.size() / 2; ++i)
            ASSERT_EQ(f.Putc(text[i]), 0);
        ASSERT_EQ(f.PutString(text.c_str() + text.size() / 2, static_cast<long>(text.size() - text.size() / 2)), 0);
        ASSERT_EQ(f.Close(), 0);
        ASSERT_EQ(f.Open(U(Path("big.txt")).c_str(), u"r", format, csetUTF8), 0);
        UCString back = ReadAll(f);
        ASSERT_TRUE(back == text) << "format " << format << " sizes " << back.size() << " " << text.size();
    }
}

TEST_F(OzmUCFileTest, AppendKeepsOneMark) {
    for (const UCChar* mode : {u"a", u"a", u"ab"}) {
        OzmUCFile f;
        ASSERT_EQ(f.Open(U(Path("ap.txt")).c_str(), mode, 4, csetUTF8), 0);
        f.PutString(u"x");
        ASSERT_EQ(f.Close(), 0);
    }
    EXPECT_EQ(Read("ap.txt"), std::string("\xFF\xFEx\0x\0x\0", 8));
    OzmUCFile r;
    ASSERT_EQ(r.Open(U(Path("ap.txt")).c_str(), u"r", 4, csetUTF8), 0);
    EXPECT_EQ(ReadAll(r), u"xxx");
    EXPECT_EQ(r.Putc('y'), -1);  // not open for writing
}

// --- OzmBFile ---------------------------------------------------------------

using OzmBFileTest = TempDirTest;

TEST_F(OzmBFileTest, CopiesOwnTheirDescriptor) {
    OzmBFile a;
    ASSERT_EQ(a.OpenBytes(Path("c.bin").c_str(), "w"), 0);
    ASSERT_EQ(a.PutBytes("abc", 3), 0);  // still buffered
    OzmBFile b(a);
    ASSERT_TRUE(b.IsOpen());
    EXPECT_NE(a.Handle(), b.Handle());
    ASSERT_EQ(b.PutBytes("def", 3), 0);
    EXPECT_EQ(b.Close(), 0);
    ASSERT_EQ(a.PutBytes("ghi", 3), 0);
    OzmBFile c;
    c = a;
    EXPECT_EQ(a.Close(), 0);
    EXPECT_EQ(a.Close(), 0);  // closing twice is harmless
    ASSERT_EQ(c.PutBytes("jk", 2), 0);
    EXPECT_EQ(c.Close(), 0);
    EXPECT_EQ(Read("c.bin"), "abcdefghijk");
    OzmBFile closed;
    OzmBFile copyOfClosed(closed);
    EXPECT_FALSE(copyOfClosed.IsOpen());
}

TEST_F(OzmBFileTest, CopiedReaderContinuesWhereTheOriginalStands) {
    Write("r.bin", "0123456789");
    OzmUCFile a;
    ASSERT_EQ(a.Open(U(Path("r.bin")).c_str(), u"r", 1, csetUTF8), 0);
    EXPECT_EQ(a.Getc(), u'0');
    EXPECT_EQ(a.Getc(), u'1');
    OzmUCFile b(a);
    EXPECT_EQ(ReadAll(b), u"23456789");
    EXPECT_EQ(ReadAll(a), u"23456789");
}

TEST_F(OzmBFileTest, AttachedDescriptorStaysOpenUnlessOwned) {
    int fd = open(Path("d.bin").c_str(), O_RDWR | O_CREAT, 0600);
    ASSERT_GE(fd, 0);
    {
        OzmBFile f;
        ASSERT_EQ(f.AttachDescriptor(fd, true, false), 0);
        ASSERT_EQ(f.PutBytes("xy", 2), 0);
    }  // the destructor flushes and leaves fd open
    EXPECT_NE(fcntl(fd, F_GETFD), -1);
    EXPECT_EQ(Read("d.bin"), "xy");
    OzmBFile owner;
    ASSERT_EQ(owner.AttachDescriptor(fd, true, true), 0);
    EXPECT_EQ(owner.Close(), 0);
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
    EXPECT_EQ(owner.AttachDescriptor(-1, false, false), -1);
    EXPECT_EQ(owner.AttachDescriptor(fd, false, false), -1);  // closed by now
}

TEST_F(OzmBFileTest, ReadSeekAndWriteInBulk) {
    std::string data;
    for (int i = 0; i < 200000; ++i)
        data.push_back(static_cast<char>(i * 31 % 251));
    OzmBFile f;
    ASSERT_EQ(f.OpenBytes(Path("b.bin").c_str(), "w+b"), 0);
    ASSERT_EQ(f.PutBytes(data.data(), 1000), 0);
    ASSERT_EQ(f.PutBytes(data.data() + 1000, data.size() - 1000), 0);  // larger than the buffer
    ASSERT_EQ(f.SeekBytes(0, 0), 0);
    std::string back(data.size() + 100000, '\0');  // room for the last request
    ASSERT_EQ(f.ReadBytes(reinterpret_cast<unsigned char*>(&back[0]), 10), 10u);
    ASSERT_EQ(f.ReadBytes(reinterpret_cast<unsigned char*>(&back[10]), 150000), 150000u);
    ASSERT_EQ(f.ReadBytes(reinterpret_cast<unsigned char*>(&back[150010]), 100000), data.size() - 150010);
    back.resize(data.size());
    EXPECT_TRUE(back == data);
    EXPECT_EQ(f.GetByte(), -1);
    ASSERT_EQ(f.SeekBytes(-1, 2), 0);
    EXPECT_EQ(f.GetByte(), static_cast<unsigned char>(data.back()));
    ASSERT_EQ(f.SeekBytes(5, 0), 0);
    EXPECT_EQ(f.GetByte(), static_cast<unsigned char>(data[5]));
    ASSERT_EQ(f.SeekBytes(3, 1), 0);  // relative to what has been read, not read ahead
    EXPECT_EQ(f.GetByte(), static_cast<unsigned char>(data[9]));
    EXPECT_EQ(f.SeekBytes(0, 7), -1);
    ASSERT_EQ(f.PutBytes("Z", 1), 0);  // lands right after the byte just read
    ASSERT_EQ(f.Close(), 0);
    data[10] = 'Z';
    EXPECT_TRUE(Read("b.bin") == data);
}

TEST_F(OzmBFileTest, ModesAndFailures) {
    OzmBFile f;
    EXPECT_EQ(f.OpenBytes(Path("none").c_str(), "r"), -1);
    EXPECT_EQ(f.OpenBytes(Path("m.bin").c_str(), "z"), -1);
    EXPECT_EQ(f.OpenBytes(Path("m.bin").c_str(), "wr"), -1);
    EXPECT_EQ(f.OpenBytes(m_tmp.Dir().c_str(), "r"), -1);
    EXPECT_EQ(errno, EISDIR);
    EXPECT_EQ(f.OpenBytes(Path("m.bin").c_str(), "wb"), 0);
    EXPECT_EQ(f.GetByte(), -1);  // write-only
    ASSERT_EQ(f.OpenBytes(Path("m.bin").c_str(), "rb"), 0);
    EXPECT_EQ(f.PutBytes("x", 1), -1);  // read-only
    EXPECT_EQ(f.Close(), 0);
    EXPECT_EQ(f.PutBytes("x", 1), -1);
    EXPECT_EQ(f.GetByte(), -1);
    EXPECT_EQ(f.SeekBytes(0, 0), -1);
}

}  // namespace
