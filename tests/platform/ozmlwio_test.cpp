// OzmLightweightIO: module lookup, the built-in "file" and "fd" modules,
// shared-object modules and the shared, buffered connection.
#include <dlfcn.h>
#include <fcntl.h>

#include "ozmutil.h"
#include "test_util.h"

namespace {

const short kRead = short(0x8000), kWrite = 0, kAppend = 0x2000;

// Reads until GetC stops delivering; returns the text and the final code.
UCString Drain(OzmLightweightIO& io, BATCHERR* last = nullptr) {
    UCString out;
    BATCHERR rc;
    for (UCChar c; (rc = io.GetC(c)) == errNone || rc == errNotReady;)
        if (rc == errNone)
            out.push_back(c);
    return last ? *last = rc, out : out;
}
BATCHERR Put(OzmLightweightIO& io, const UCString& text) {
    for (UCChar c : text)
        if (BATCHERR rc = io.PutC(c))
            return rc;
    return errNone;
}
// The message of a failure with the code expected.
UCString Fail(OzmLightweightIO& io, BATCHERR rc, BATCHERR expected = errOpenSource) {
    return rc == expected ? UCString(io.LastErrorMessage()) : Num(u"code ", rc);
}

// An in-process module that opens anything and reads nothing.
class ScriptModule : public OzmIOModule {
public:
    BATCHERR Open(const UCChar*, const UCChar*, short) override { return errNone; }
    BATCHERR Close() override { return errNone; }
    BATCHERR Read(UCChar*, size_t, size_t& count) override { return count = 0, errSyntax; }
    BATCHERR Write(const UCChar*, size_t) override { return errNone; }
    const UCChar* LastErrorMessage() const override { return u""; }
};

OzmIOModule* MakeScript() { return new ScriptModule; }
OzmIOModule* MakeNothing() { return nullptr; }

class OzmLwioTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(OzmLightweightIO::RegisterModule(u"script", MakeScript) && m_tmp.Ok());
    }
    void TearDown() override { OzmLightweightIO::UnregisterModule(u"script"); }
    TempDir m_tmp;
    OzmLightweightIO io;
};

TEST_F(OzmLwioTest, NamesAndModuleLookup) {
    const std::pair<const UCChar*, const UCChar*> names[] = {  // null: refused
        {u"file:/tmp/a.xml", u"file|/tmp/a.xml|"}, {u"m:r?x=1?y", u"m|r|x=1?y"}, {u"m:a:b", u"m|a:b|"},
        {u"m:?o", u"m||o"}, {u"m?:r", u"m?|r|"}, {u":r", nullptr}, {u"noColon", nullptr}};
    for (const auto& [name, parts] : names) {
        OzmWString m(u"old"), r(u"old"), o(u"old");
        EXPECT_EQ(OzmLightweightIO::ParseDLLName(name, m, r, o), parts != nullptr) << Utf8(name);
        EXPECT_TRUE(!parts || UCString(m.Str()) + u"|" + r.Str() + u"|" + o.Str() == parts) << Utf8(name);
    }
    EXPECT_EQ(Fail(io, io.Open(u"x", u"", kRead, false)), u"No I/O module selected");
    EXPECT_EQ(Fail(io, io.SetModule(u"Script")), u"Unknown I/O module 'Script'");
    EXPECT_FALSE(OzmLightweightIO::RegisterModule(u"a/b", MakeScript) || OzmLightweightIO::RegisterModule(u"", MakeScript));
    ASSERT_TRUE(OzmLightweightIO::RegisterModule(u"script", MakeNothing));
    EXPECT_EQ(Fail(io, io.SetModule(u"script")), u"I/O module 'script' did not create a module");
    EXPECT_TRUE(OzmLightweightIO::UnregisterModule(u"script"));
    EXPECT_FALSE(OzmLightweightIO::UnregisterModule(u"script"));
    ASSERT_TRUE(OzmLightweightIO::RegisterModule(u"fd", MakeScript));  // shadows the built-in until removed
    ASSERT_EQ(io.SetModule(u"fd"), errNone);
    EXPECT_EQ(io.Open(u"not a number", u"", kRead, false), errNone);
    ASSERT_TRUE(OzmLightweightIO::UnregisterModule(u"fd"));
    ASSERT_EQ(io.SetModule(u"fd"), errNone);
    EXPECT_EQ(io.Open(u"not a number", u"", kRead, false), errOpenSource);
}

TEST_F(OzmLwioTest, FileModule) {
    const std::pair<std::string, UCString> cases[] = {{"\xEF\xBB\xBF<a>\xC3\xA9\xF0\x9F\x98\x80", u"<a>\u00E9\U0001F600"},
                                                      {std::string("\xFE\xFF\0<\0a\0>", 8), u"<a>"}, {"\xFF" "A", u"\u00FF" "A"}};
    ASSERT_EQ(io.SetModule(u"file"), errNone);
    for (const auto& [bytes, text] : cases) {
        ASSERT_EQ(io.Open(U(m_tmp.Write("in.xml", bytes)).c_str(), u"", kRead, false), errNone);
        BATCHERR last = errNone;
        EXPECT_EQ(Drain(io, &last), text);
        EXPECT_NE(last, errNotReady);
    }
    const UCString path = m_tmp.UPath("out.xml");
    ASSERT_EQ(io.Open(path.c_str(), u"", kWrite, false), errNone);
    ASSERT_EQ(Put(io, u"<\u00E9\U0001F600>"), errNone);
    ASSERT_EQ(io.Open(path.c_str(), u"", kAppend, false), errNone);
    ASSERT_EQ(io.PutC('!') + io.Flush(), errNone);
    EXPECT_EQ(m_tmp.Read("out.xml"), "<\xC3\xA9\xF0\x9F\x98\x80>!");
    EXPECT_NE(Utf8(Fail(io, io.Open(m_tmp.UPath("missing/x.xml").c_str(), u"", kRead, false)).c_str()).find("missing/x.xml"),
              std::string::npos);
    EXPECT_EQ(io.Open(U(m_tmp.Dir()).c_str(), u"", kRead, false), errOpenSource);
}

TEST_F(OzmLwioTest, FdModule) {
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    const UCString in = U(std::to_string(fds[0])), out = U(std::to_string(fds[1]));
    ASSERT_EQ(io.SetModule(u"fd"), errNone);
    ASSERT_EQ(io.Open(out.c_str(), u"", kWrite, false), errNone);
    ASSERT_EQ(Put(io, u"\uFEFFa\u00E9"), errNone);
    ASSERT_EQ(io.Close(), errNone);
    EXPECT_EQ(close(fds[1]), 0);  // never closed by the module
    ASSERT_EQ(io.Open(in.c_str(), u"", kRead, false), errNone);
    EXPECT_EQ(Drain(io), u"a\u00E9");  // the mark written as given, and dropped on reading
    EXPECT_EQ(io.Close(), errNone);
    EXPECT_EQ(Fail(io, io.Open(in.c_str(), u"", kWrite, false)), u"Descriptor " + in + u" is not open for writing");
    EXPECT_EQ(close(fds[0]), 0);
    EXPECT_EQ(Fail(io, io.Open(out.c_str(), u"", kRead, false)), u"Descriptor " + out + u" is not open");
    for (const UCChar* bad : {u"", u"-1", u"1x", u"99999999999", u" 1"})
        EXPECT_EQ(Fail(io, io.Open(bad, u"", kRead, false)), u"Not a descriptor number: '" + UCString(bad) + u"'");
}

TEST_F(OzmLwioTest, SharedObjectModule) {
    const std::string path = OZM_MODULE_ozm_test_iomodule;
    void* self = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(self, nullptr) << dlerror();
    auto output = reinterpret_cast<const UCChar* (*)()>(dlsym(self, "OzmTestModuleOutput"));
    auto live = reinterpret_cast<int (*)()>(dlsym(self, "OzmTestModuleLive"));
    ASSERT_TRUE(output && live);
    ASSERT_EQ(io.SetModule(U(path).c_str()), errNone) << Utf8(io.LastErrorMessage());
    EXPECT_EQ(live(), 1);
    ASSERT_EQ(io.Open(u"h\u00E9llo world", u"", kRead, false), errNone);
    EXPECT_EQ(Drain(io), u"h\u00E9llo world");
    ASSERT_EQ(io.Open(u"", u"", kWrite, false), errNone);
    ASSERT_EQ(Put(io, u"written"), errNone);
    EXPECT_EQ(UCString(output()), u"");
    ASSERT_EQ(io.Close(), errNone);
    EXPECT_EQ(UCString(output()), u"written");
    EXPECT_EQ(Fail(io, io.Open(u"refuse", u"opt", kRead, false), errOpenUri), u"echo module refuses 'opt'");
    EXPECT_NE(Utf8(Fail(io, io.SetModule(U(OZM_MODULE_ozm_test_nofactory).c_str())).c_str()).find("does not export OzmCreateIOModule"),
              std::string::npos);
    EXPECT_EQ(live(), 0);  // the module went with the failed change
    dlclose(self);
    const std::string message = Utf8(Fail(io, io.SetModule(m_tmp.UPath("no/such.so").c_str())).c_str());
    EXPECT_EQ(message.rfind("Cannot load I/O module '" + m_tmp.Path("no/such.so") + "': ", 0), 0u) << message;
    EXPECT_NE(message.find("such.so"), message.rfind("such.so")) << "dlerror text expected: " << message;
}

}  // namespace
