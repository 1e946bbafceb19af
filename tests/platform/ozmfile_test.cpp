// OzmUCFile and OzmBFile against real files and pipes.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include <fcntl.h>
#include <unistd.h>

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

TEST_F(OzmFileTest, Utf16AndSeek) {
    const std::tuple<int, std::string, UCString> cases[] = {
        {4, std::string("\xFF\xFE" "A\0=\xD8\0\xDE", 8), u"A\U0001F600"}, {4, std::string("\xFE\xFF\0A\xD8=\xDE\0", 8), u"A\U0001F600"},
        {4, std::string("A\0B\0", 4), u"AB"}, {4, std::string("\xFF\xFE" "A\0B", 5), u"A"},  // odd byte dropped
        {0x6004, std::string("A\0\xFF\xFE", 4), u"A\uFEFF"}, {0x6004, std::string("\xFE\xFF\0A", 4), u"\uFFFE\u4100"},
        {0xA004, std::string("\xFE\xFF\0A", 4), u"A"}, {0xA004, std::string("\xFF\xFE\0A", 4), UCString{0xFFFE, u'A'}}};
    for (const auto& [format, bytes, text] : cases) {
        tmp.Write("u16.txt", bytes);
        OzmUCFile f;
        ASSERT_EQ(Open(f, "u16.txt", u"r", format), 0);
        EXPECT_EQ(ReadAll(f), text) << testing::PrintToString(bytes);
    }
    // Seeking drops what was decoded ahead and sniffs the mark again.
    tmp.Write("le.txt", std::string("\xFF\xFE<\0a\0>\0", 8));
    OzmUCFile f;
    ASSERT_EQ(Open(f, "le.txt", u"r", 1), 0);
    EXPECT_EQ(f.Getc(), 0xFF);
    f.Format(4);
    ASSERT_EQ(f.Seek(0, 0), 0);
    EXPECT_EQ(f.Getc(), u'<');
    EXPECT_EQ(UCString(f.Pending(), f.PendingEnd()), u"a>");
    f.Skip(1);
    EXPECT_EQ(ReadAll(f), u">");
    EXPECT_EQ(f.Seek(1, 1), -1);
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

TEST_F(OzmFileTest, WrittenBytes) {
    UCString big;  // large enough to split pairs across buffer flushes
    for (int i = 0; big.size() < 150000; ++i)
        big += UCString(1, UCChar(0x400 + i % 200)) + ((i % 3) ? u"\U0001F600\n" : u"\u4E2D\n");
    const std::pair<int, std::string> cases[] = {
        {8, "A\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"},
        {4, std::string("\xFF\xFE" "A\0\xE9\0\xAC\x20\x3D\xD8\x00\xDE", 12)},
        {0x6004, std::string("A\0\xE9\0\xAC\x20\x3D\xD8\x00\xDE", 10)},
        {0xA004, std::string("\0A\0\xE9\x20\xAC\xD8\x3D\xDE\x00", 10)}};
    for (const auto& [format, bytes] : cases) {
        OzmUCFile f;
        ASSERT_EQ(Open(f, "w.txt", u"wb", format), 0);
        EXPECT_EQ(f.Putc(u'A'), 0);
        EXPECT_EQ(f.PutString(u"\u00E9\u20AC\U0001F600"), 0);
        ASSERT_EQ(f.Close(), 0);
        EXPECT_EQ(tmp.Read("w.txt"), bytes) << format;
        ASSERT_EQ(Open(f, "big.txt", u"w", format), 0);
        for (size_t i = 0; i < big.size() / 2; ++i)
            ASSERT_EQ(f.Putc(big[i]), 0);
        ASSERT_EQ(f.PutString(big.c_str() + big.size() / 2, long(big.size() - big.size() / 2)), 0);
        ASSERT_EQ(f.Close(), 0);
        ASSERT_EQ(Open(f, "big.txt", u"r", format), 0);
        ASSERT_TRUE(ReadAll(f) == big) << "format " << format;
    }
    // A pair is joined, also across calls; a lone surrogate is written as it stands, a high one on Close.
    const std::pair<void (*)(OzmUCFile&), std::string> surrogates[] = {
        {[](OzmUCFile& f) { f.PutString(u"\xD83D", 1); f.PutString(u"\xDE00x", -1); }, "\xF0\x9F\x98\x80x"},
        {[](OzmUCFile& f) { f.Putc(0xD83D); f.Putc('A'); }, "\xED\xA0\xBD" "A"},
        {[](OzmUCFile& f) { f.Putc(0xD83D); f.Putc(0xD83D); f.Putc(0xDE00); }, "\xED\xA0\xBD\xF0\x9F\x98\x80"},
        {[](OzmUCFile& f) { f.Putc(0xDE00); }, "\xED\xB8\x80"},
        {[](OzmUCFile& f) { f.Putc('x'); f.Putc(0xDBFF); }, "x\xED\xAF\xBF"}};
    for (const auto& [write, bytes] : surrogates) {
        OzmUCFile f;
        ASSERT_EQ(Open(f, "s.txt", u"w", 1), 0);
        write(f);
        ASSERT_EQ(f.Close(), 0);
        EXPECT_EQ(tmp.Read("s.txt"), bytes);
    }
    for (const UCChar* mode : {u"a", u"a", u"ab"}) {  // appending keeps one mark
        OzmUCFile f;
        ASSERT_EQ(Open(f, "ap.txt", mode, 4), 0);
        f.PutString(u"x");
    }
    EXPECT_EQ(tmp.Read("ap.txt"), std::string("\xFF\xFEx\0x\0x\0", 8));
}

TEST_F(OzmFileTest, CopiesAndDescriptors) {
    OzmBFile a, c;
    ASSERT_EQ(a.OpenBytes(tmp.Path("c.bin").c_str(), "w"), 0);
    ASSERT_EQ(a.PutBytes("abc", 3), 0);  // still buffered
    OzmBFile b(a);
    ASSERT_EQ(b.PutBytes("def", 3), 0);
    EXPECT_EQ(b.Close(), 0);
    ASSERT_EQ(a.PutBytes("ghi", 3), 0);
    c = a;
    EXPECT_EQ(a.Close(), 0);
    EXPECT_EQ(a.Close(), 0);
    ASSERT_EQ(c.PutBytes("jk", 2), 0);
    EXPECT_EQ(c.Close(), 0);
    EXPECT_EQ(tmp.Read("c.bin"), "abcdefghijk");
    ASSERT_EQ(a.OpenBytes(tmp.Path("c.bin").c_str(), "r"), 0);  // a copied reader goes on where the original stands
    EXPECT_EQ(a.GetByte(), 'a');
    EXPECT_EQ(OzmBFile(a).GetByte(), 'b');
    OzmUCFile r;
    ASSERT_EQ(Open(r, "c.bin", u"r", 1), 0);
    EXPECT_EQ(r.Getc(), u'a');
    OzmUCFile copy(r);
    EXPECT_EQ(ReadAll(copy), u"bcdefghijk");
    EXPECT_EQ(ReadAll(r), u"bcdefghijk");
    int fd = open(tmp.Path("d.bin").c_str(), O_RDWR | O_CREAT, 0600);
    {
        OzmBFile f;
        ASSERT_EQ(f.AttachDescriptor(fd, true, false), 0);
        ASSERT_EQ(f.PutBytes("xy", 2), 0);
    }  // flushed, fd left open
    EXPECT_EQ(tmp.Read("d.bin"), "xy");
    ASSERT_EQ(a.AttachDescriptor(fd, true, true), 0);
    EXPECT_EQ(a.Close(), 0);
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
    EXPECT_EQ(a.AttachDescriptor(fd, false, false), -1);
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
