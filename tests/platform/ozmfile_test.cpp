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
