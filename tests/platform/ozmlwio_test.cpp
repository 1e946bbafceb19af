// Tests of OzmLightweightIO: module lookup, the built-in "file" and "fd"
// modules, shared-object modules and the shared, buffered connection.
#include "ozmutil.h"
#include "test_files.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

const short kRead = static_cast<short>(0x8000);
const short kWrite = 0;
const short kAppend = 0x2000;

std::string Narrow(const UCChar* s) {
    std::string out;
    OzmGlob::WStringToString(s ? UCString(s) : UCString(), out, csetUTF8);
    return out;
}

UCString U(const std::string& utf8) {
    UCString out;
    OzmGlob::DecodeUTF8(reinterpret_cast<const unsigned char*>(utf8.data()), utf8.size(), out);
    return out;
}

// Reads until GetC stops delivering; returns the text and the final code.
UCString Drain(OzmLightweightIO& io, BATCHERR& last, int* notReady = nullptr) {
    UCString out;
    for (int guard = 0; guard < 1000000; ++guard) {
        UCChar c;
        BATCHERR rc = io.GetC(c);
        if (rc == errNone) {
            out.push_back(c);
        } else if (rc == errNotReady) {
            if (notReady)
                ++*notReady;
        } else {
            last = rc;
            return out;
        }
    }
    ADD_FAILURE() << "GetC never ended";
    return out;
}

// --- An in-process module whose behaviour the tests steer --------------------

struct Script {
    int notReadyBeforeUnit = 0;
    bool failOpen = false;
    int opens = 0, closes = 0, destroyed = 0, designModeCalls = 0;
    std::vector<size_t> writes;
    UCString written;
};
Script g_script;

class ScriptModule : public OzmIOModule {
public:
    ~ScriptModule() override { ++g_script.destroyed; }
    BATCHERR Open(const UCChar* resource, const UCChar*, short) override {
        ++g_script.opens;
        if (g_script.failOpen) {
            m_error = u"script refuses " + UCString(resource);
            return errOpenUri;
        }
        m_text = resource;
        m_pos = 0;
        m_waits = 0;
        return errNone;
    }
    BATCHERR Close() override {
        ++g_script.closes;
        return errNone;
    }
    BATCHERR Read(UCChar* buffer, size_t, size_t& count) override {
        count = 0;
        if (m_pos == m_text.size())
            return errSyntax;
        if (m_waits++ < g_script.notReadyBeforeUnit)
            return errNotReady;
        m_waits = 0;
        buffer[count++] = m_text[m_pos++];
        return errNone;
    }
    BATCHERR Write(const UCChar* text, size_t count) override {
        g_script.writes.push_back(count);
        g_script.written.append(text, count);
        return errNone;
    }
    void SetDesignMode(bool) override { ++g_script.designModeCalls; }
    const UCChar* LastErrorMessage() const override { return m_error.c_str(); }

private:
    UCString m_text, m_error;
    size_t m_pos = 0;
    int m_waits = 0;
};

OzmIOModule* MakeScript() { return new ScriptModule; }
OzmIOModule* MakeNothing() { return nullptr; }

class OzmLwioTest : public testing::Test {
protected:
    void SetUp() override {
        g_script = Script();
        ASSERT_TRUE(OzmLightweightIO::RegisterModule(u"script", MakeScript));
        ASSERT_TRUE(m_tmp.Ok());
    }
    void TearDown() override { OzmLightweightIO::UnregisterModule(u"script"); }
    std::string Path(const std::string& name) const { return m_tmp.Path(name); }
    void Write(const std::string& name, const std::string& bytes) { m_tmp.Write(name, bytes); }
    std::string Read(const std::string& name) { return m_tmp.Read(name); }
    TempDir m_tmp;
};

// --- Names and lookup ----------------------------------------------------------

TEST_F(OzmLwioTest, ParseDLLName) {
    const struct {
        const UCChar* name;
        bool ok;
        const UCChar *module, *resource, *options;
    } cases[] = {
        {u"file:/tmp/a.xml", true, u"file", u"/tmp/a.xml", u""},
        {u"fd:0", true, u"fd", u"0", u""},
        {u"m:r?x=1?y", true, u"m", u"r", u"x=1?y"},
        {u"m:a:b", true, u"m", u"a:b", u""},
        {u"m:", true, u"m", u"", u""},
        {u"m:?o", true, u"m", u"", u"o"},
        {u"m?:r", true, u"m?", u"r", u""},
        {u":r", false, u"", u"", u""},
        {u"noColon", false, u"", u"", u""},
        {u"", false, u"", u"", u""},
    };
    for (const auto& c : cases) {
        OzmWString m(u"old"), r(u"old"), o(u"old");
        EXPECT_EQ(OzmLightweightIO::ParseDLLName(c.name, m, r, o), c.ok) << Narrow(c.name);
        if (c.ok) {
            EXPECT_EQ(m.Str(), c.module);
            EXPECT_EQ(r.Str(), c.resource);
            EXPECT_EQ(o.Str(), c.options);
        }
    }
    OzmWString m, r, o;
    EXPECT_FALSE(OzmLightweightIO::ParseDLLName(nullptr, m, r, o));
}

TEST_F(OzmLwioTest, UnknownOrUnselectedModule) {
    OzmLightweightIO io;
    ASSERT_NE(io.LastErrorMessage(), nullptr);
    EXPECT_EQ(UCString(io.LastErrorMessage()), u"");
    EXPECT_FALSE(io.IsConnected());
    EXPECT_EQ(io.Open(u"x", u"", kRead, false), errOpenSource);
    EXPECT_EQ(UCString(io.LastErrorMessage()), u"No I/O module selected");
    UCChar c;
    EXPECT_NE(io.GetC(c), errNone);
    EXPECT_NE(io.PutC('x'), errNone);
    EXPECT_EQ(io.SetModule(u"nope"), errOpenSource);
    EXPECT_EQ(UCString(io.LastErrorMessage()), u"Unknown I/O module 'nope'");
    EXPECT_EQ(io.Open(u"x", u"", kRead, false), errOpenSource);
    EXPECT_EQ(io.SetModule(u"Script"), errOpenSource);  // names are exact
    EXPECT_EQ(io.SetModule(u""), errOpenSource);
    EXPECT_EQ(io.SetModule(nullptr), errOpenSource);
}

TEST_F(OzmLwioTest, RegistryReplacesAndRemoves) {
    EXPECT_FALSE(OzmLightweightIO::RegisterModule(u"", MakeScript));
    EXPECT_FALSE(OzmLightweightIO::RegisterModule(u"a/b", MakeScript));
    EXPECT_FALSE(OzmLightweightIO::RegisterModule(u"x", nullptr));
    ASSERT_TRUE(OzmLightweightIO::RegisterModule(u"script", MakeNothing));
    OzmLightweightIO io;
    EXPECT_EQ(io.SetModule(u"script"), errOpenSource);
    EXPECT_EQ(UCString(io.LastErrorMessage()), u"I/O module 'script' did not create a module");
    ASSERT_TRUE(OzmLightweightIO::RegisterModule(u"script", MakeScript));
    EXPECT_EQ(io.SetModule(u"script"), errNone);
    EXPECT_TRUE(OzmLightweightIO::UnregisterModule(u"script"));
    EXPECT_FALSE(OzmLightweightIO::UnregisterModule(u"script"));
    EXPECT_EQ(io.SetModule(u"script"), errOpenSource);
    // A registration shadows a built-in of the same name until removed.
    ASSERT_TRUE(OzmLightweightIO::RegisterModule(u"fd", MakeScript));
    ASSERT_EQ(io.SetModule(u"fd"), errNone);
    ASSERT_EQ(io.Open(u"not a number", u"", kRead, false), errNone);
    io.Close();
    ASSERT_TRUE(OzmLightweightIO::UnregisterModule(u"fd"));
    ASSERT_EQ(io.SetModule(u"fd"), errNone);
    EXPECT_EQ(io.Open(u"not a number", u"", kRead, false), errOpenSource);
}

// --- Connection behaviour --------------------------------------------------------

TEST_F(OzmLwioTest, NotReadyIsPassedOnAndEndIsSticky) {
    g_script.notReadyBeforeUnit = 3;
    OzmLightweightIO io;
    ASSERT_EQ(io.SetModule(u"script"), errNone);
    ASSERT_EQ(io.Open(u"abcd", u"", kRead, false), errNone);
    EXPECT_TRUE(io.IsConnected());
    BATCHERR last = errNone;
    int notReady = 0;
    EXPECT_EQ(Drain(io, last, &notReady), u"abcd");
    EXPECT_EQ(notReady, 12);
    EXPECT_EQ(last, errSyntax);
    UCChar c;
    EXPECT_EQ(io.GetC(c), errSyntax);
    EXPECT_EQ(io.PutC('x'), errOpenSource);  // a reading connection
    EXPECT_EQ(io.Close(), errNone);
    EXPECT_FALSE(io.IsConnected());
    EXPECT_EQ(g_script.closes, 1);
}

TEST_F(OzmLwioTest, OpenFailureKeepsModuleMessage) {
    g_script.failOpen = true;
    OzmLightweightIO io;
    ASSERT_EQ(io.SetModule(u"script"), errNone);
    EXPECT_EQ(io.Open(u"res", u"", kRead, false), errOpenUri);
    EXPECT_EQ(UCString(io.LastErrorMessage()), u"script refuses res");
    EXPECT_FALSE(io.IsConnected());
}

TEST_F(OzmLwioTest, OutputIsWrittenInBlocks) {
    OzmLightweightIO io;
    ASSERT_EQ(io.SetModule(u"script"), errNone);
    ASSERT_EQ(io.Open(u"out", u"", kWrite, false), errNone);
    for (int i = 0; i < 10; ++i)
        ASSERT_EQ(io.PutC(static_cast<UCChar>('a' + i)), errNone);
    EXPECT_TRUE(g_script.writes.empty());
    ASSERT_EQ(io.Flush(), errNone);
    ASSERT_EQ(g_script.writes, std::vector<size_t>{10});
    for (int i = 0; i < 5000; ++i)
        ASSERT_EQ(io.PutC('x'), errNone);
    EXPECT_EQ(g_script.writes.size(), 2u);
    EXPECT_EQ(g_script.writes[1], 4096u);
    UCChar c;
    EXPECT_NE(io.GetC(c), errNone);  // a writing connection
    ASSERT_EQ(io.Close(), errNone);
    EXPECT_EQ(g_script.writes, (std::vector<size_t>{10, 4096, 904}));
    EXPECT_EQ(g_script.written, u"abcdefghij" + UCString(5000, u'x'));
    EXPECT_EQ(io.PutC('y'), errOpenSource);
}

TEST_F(OzmLwioTest, CopiesShareOneConnection) {
    {
        OzmLightweightIO a;
        ASSERT_EQ(a.SetModule(u"script"), errNone);
        ASSERT_EQ(a.Open(u"xyz", u"", kRead, false), errNone);
        OzmLightweightIO b(a);
        OzmLightweightIO c;
        c = b;
        c = c;
        UCChar u;
        ASSERT_EQ(a.GetC(u), errNone);
        EXPECT_EQ(u, u'x');
        ASSERT_EQ(b.GetC(u), errNone);
        EXPECT_EQ(u, u'y');
        a.SetDesignMode(true);
        EXPECT_EQ(g_script.designModeCalls, 1);
        EXPECT_EQ(b.Close(), errNone);
        EXPECT_FALSE(a.IsConnected());
        EXPECT_FALSE(c.IsConnected());
        EXPECT_EQ(a.Close(), errNone);
        a.SetDesignMode(true);
        EXPECT_EQ(g_script.designModeCalls, 1);  // not connected: not passed on
        EXPECT_EQ(g_script.closes, 1);
        EXPECT_EQ(g_script.destroyed, 0);
        // A new module for one copy leaves the others' connection alone.
        ASSERT_EQ(c.SetModule(u"script"), errNone);
        EXPECT_EQ(g_script.destroyed, 0);
    }
    EXPECT_EQ(g_script.destroyed, 2);

    // The last owner closes a connection still open.
    {
        OzmLightweightIO a;
        ASSERT_EQ(a.SetModule(u"script"), errNone);
        ASSERT_EQ(a.Open(u"out", u"", kWrite, false), errNone);
        ASSERT_EQ(a.PutC('q'), errNone);
        OzmLightweightIO b(a);
    }
    EXPECT_EQ(g_script.closes, 2);
    EXPECT_EQ(g_script.written, u"q");
    EXPECT_EQ(g_script.destroyed, 3);
}

// --- Built-in modules --------------------------------------------------------------

TEST_F(OzmLwioTest, FileModuleReadsUtf8AndUtf16) {
    const struct {
        std::string bytes;
        UCString text;
    } cases[] = {
        {"\xEF\xBB\xBF<a>\xC3\xA9\xF0\x9F\x98\x80", u"<a>\u00E9\U0001F600"},
        {"plain", u"plain"},
        {std::string("\xFF\xFE<\0a\0>\0", 8), u"<a>"},
        {std::string("\xFE\xFF\0<\0a\0>", 8), u"<a>"},
        {"\xFF", u"\u00FF"},
        {"\xFF" "A", u"\u00FF" "A"},
        {"", u""},
    };
    for (const auto& c : cases) {
        Write("in.xml", c.bytes);
        OzmLightweightIO io;
        ASSERT_EQ(io.SetModule(u"file"), errNone);
        ASSERT_EQ(io.Open(U(Path("in.xml")).c_str(), u"", kRead, false), errNone) << Narrow(io.LastErrorMessage());
        BATCHERR last = errNone;
        EXPECT_EQ(Drain(io, last), c.text);
        EXPECT_NE(last, errNone);
        EXPECT_NE(last, errNotReady);
        EXPECT_EQ(io.Close(), errNone);
    }
}

TEST_F(OzmLwioTest, FileModuleWritesAndAppends) {
    OzmLightweightIO io;
    ASSERT_EQ(io.SetModule(u"file"), errNone);
    UCString path = U(Path("out.xml"));
    ASSERT_EQ(io.Open(path.c_str(), u"", kWrite, false), errNone);
    for (UCChar c : UCString(u"<\u00E9\U0001F600>"))
        ASSERT_EQ(io.PutC(c), errNone);
    ASSERT_EQ(io.Close(), errNone);
    ASSERT_EQ(io.Open(path.c_str(), u"", kAppend, false), errNone);
    ASSERT_EQ(io.PutC('!'), errNone);
    ASSERT_EQ(io.Flush(), errNone);
    EXPECT_EQ(Read("out.xml"), "<\xC3\xA9\xF0\x9F\x98\x80>!");
    ASSERT_EQ(io.Close(), errNone);

    EXPECT_EQ(io.Open(U(Path("missing/x.xml")).c_str(), u"", kRead, false), errOpenSource);
    EXPECT_NE(Narrow(io.LastErrorMessage()).find("missing/x.xml"), std::string::npos) << Narrow(io.LastErrorMessage());
    EXPECT_EQ(io.Open(U(m_tmp.Dir()).c_str(), u"", kRead, false), errOpenSource);
    EXPECT_EQ(io.Open(u"", u"", kRead, false), errOpenSource);
}

TEST_F(OzmLwioTest, FdModuleReadsFromPipe) {
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    std::string text = "\xEF\xBB\xBF<r>";
    for (int i = 0; i < 20000; ++i)
        text += "\xE2\x82\xAC";
    text += "</r>";
    std::thread writer([&] {
        ASSERT_EQ(write(fds[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
        close(fds[1]);
    });
    OzmLightweightIO io;
    ASSERT_EQ(io.SetModule(u"fd"), errNone);
    UCString num = U(std::to_string(fds[0]));
    ASSERT_EQ(io.Open(num.c_str(), u"", kRead, false), errNone);
    BATCHERR last = errNone;
    UCString got = Drain(io, last);
    writer.join();
    EXPECT_EQ(got, u"<r>" + UCString(20000, u'\u20AC') + u"</r>");
    EXPECT_EQ(io.Close(), errNone);
    EXPECT_NE(fcntl(fds[0], F_GETFD), -1);  // never closed by the module
    close(fds[0]);
}

TEST_F(OzmLwioTest, FdModuleWritesAndRejectsBadDescriptors) {
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    OzmLightweightIO io;
    ASSERT_EQ(io.SetModule(u"fd"), errNone);
    ASSERT_EQ(io.Open(U(std::to_string(fds[1])).c_str(), u"", kWrite, false), errNone);
    for (UCChar c : UCString(u"a\u00E9"))
        io.PutC(c);
    ASSERT_EQ(io.Close(), errNone);
    char buf[8] = {};
    ASSERT_EQ(read(fds[0], buf, sizeof buf), 3);
    EXPECT_EQ(std::string(buf, 3), "a\xC3\xA9");

    EXPECT_EQ(io.Open(U(std::to_string(fds[1])).c_str(), u"", kRead, false), errOpenSource);
    EXPECT_EQ(Narrow(io.LastErrorMessage()), "Descriptor " + std::to_string(fds[1]) + " is not open for reading");
    close(fds[0]);
    close(fds[1]);
    EXPECT_EQ(io.Open(U(std::to_string(fds[1])).c_str(), u"", kRead, false), errOpenSource);
    EXPECT_EQ(Narrow(io.LastErrorMessage()), "Descriptor " + std::to_string(fds[1]) + " is not open");
    for (const UCChar* bad : {u"", u"abc", u"-1", u"1x", u"99999999999", u" 1"}) {
        EXPECT_EQ(io.Open(bad, u"", kRead, false), errOpenSource);
        EXPECT_EQ(UCString(io.LastErrorMessage()), u"Not a descriptor number: '" + UCString(bad) + u"'");
        EXPECT_FALSE(io.IsConnected());
    }
}

// --- Shared-object modules ------------------------------------------------------------

TEST_F(OzmLwioTest, SharedObjectModule) {
    const std::string path = OZM_MODULE_ozm_test_iomodule;
    void* self = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(self, nullptr) << dlerror();
    auto output = reinterpret_cast<const UCChar* (*)()>(dlsym(self, "OzmTestModuleOutput"));
    auto live = reinterpret_cast<int (*)()>(dlsym(self, "OzmTestModuleLive"));
    ASSERT_TRUE(output && live);
    {
        OzmLightweightIO io;
        ASSERT_EQ(io.SetModule(U(path).c_str()), errNone) << Narrow(io.LastErrorMessage());
        EXPECT_EQ(live(), 1);
        ASSERT_EQ(io.Open(u"h\u00E9llo world", u"", kRead, false), errNone);
        BATCHERR last = errNone;
        EXPECT_EQ(Drain(io, last), u"h\u00E9llo world");
        EXPECT_EQ(last, errSyntax);
        ASSERT_EQ(io.Open(u"", u"", kWrite, false), errNone);
        for (UCChar c : UCString(u"written"))
            io.PutC(c);
        EXPECT_EQ(UCString(output()), u"");
        ASSERT_EQ(io.Close(), errNone);
        EXPECT_EQ(UCString(output()), u"written");
        EXPECT_EQ(io.Open(u"refuse", u"opt", kRead, false), errOpenUri);
        EXPECT_EQ(UCString(io.LastErrorMessage()), u"echo module refuses 'opt'");
    }
    EXPECT_EQ(live(), 0);
    dlclose(self);
}

TEST_F(OzmLwioTest, SharedObjectFailures) {
    OzmLightweightIO io;
    EXPECT_EQ(io.SetModule(U(OZM_MODULE_ozm_test_nofactory).c_str()), errOpenSource);
    std::string message = Narrow(io.LastErrorMessage());
    EXPECT_NE(message.find("does not export OzmCreateIOModule"), std::string::npos) << message;
    EXPECT_FALSE(io.IsConnected());

    EXPECT_EQ(io.SetModule(U(Path("no/such.so")).c_str()), errOpenSource);
    message = Narrow(io.LastErrorMessage());
    EXPECT_EQ(message.rfind("Cannot load I/O module '" + Path("no/such.so") + "': ", 0), 0u) << message;
    EXPECT_NE(message.find("such.so"), message.rfind("such.so")) << "dlerror text expected: " << message;
    EXPECT_EQ(io.Open(u"x", u"", kRead, false), errOpenSource);
}

}  // namespace
