// Documents read from files and from I/O modules.
#include <gtest/gtest.h>

#include <thread>

#include "test_util.h"

namespace {

std::string Utf16(const std::u16string& s, bool bigEndian, bool mark) {
    std::string out;
    auto put = [&](char16_t u) {
        char hi = char(u >> 8), lo = char(u & 0xFF);
        out += bigEndian ? std::string{hi, lo} : std::string{lo, hi};
    };
    if (mark)
        put(0xFEFF);
    for (char16_t u : s)
        put(u);
    return out;
}

TEST(ParseFileTest, ReadsEachEncodingOfTheSameDocument) {
    TempDir dir;
    const std::u16string doc = u"<r a=\"\u00e9\">\u03b1\u4e2d\U0001F600</r>";
    const std::string utf8 = "<r a=\"\xc3\xa9\">\xce\xb1\xe4\xb8\xad\xf0\x9f\x98\x80</r>";
    struct Case {
        const char* name;
        std::string bytes;
    } cases[] = {
        {"utf8", utf8},
        {"utf8bom", "\xef\xbb\xbf" + utf8},
        {"utf16le", Utf16(doc, false, true)},
        {"utf16be", Utf16(doc, true, true)},
        {"latin1", "<r a=\"\xe9\">\xff</r>"},  // bytes that are no UTF-8
        {"empty", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        XmlDocument d;
        std::string path = dir.Write(c.name, c.bytes);
        ASSERT_EQ(d.ParseFile(U(path).c_str()), errNone) << Utf8(d.ErrorMessage());
        if (c.bytes.empty()) {
            EXPECT_EQ(d.RootElement(), nullptr);
            continue;
        }
        EXPECT_EQ(UCString(d.RootElement()->Data()), std::string(c.name) == "latin1" ? u"\u00ff" : u"\u03b1\u4e2d\U0001F600");
        EXPECT_EQ(UCString(d.RootElement()->GetAttributeValue(u"a")), u"\u00e9");
        EXPECT_EQ(UCString(d.ErrorFile()), U(path));
    }
}

TEST(ParseFileTest, ColumnsAndLinesCountInTheFile) {
    TempDir dir;
    XmlDocument d;
    std::string path = dir.Write("bad.xml", "<r>\r\n  <a></b>\n</r>");
    EXPECT_EQ(d.ParseFile(U(path).c_str()), errSyntax);
    EXPECT_EQ(UCString(d.ErrorMessage()), u"Improper element nesting");
    EXPECT_EQ(d.ErrorLine(), 2);
    EXPECT_EQ(d.ErrorCol(), 5);  // the last unit read before "</b>"
}

TEST(ParseFileTest, MissingFileOrDirectoryKeepsThePreviousPosition) {
    TempDir dir;
    XmlDocument d;
    ASSERT_EQ(d.ParseString(u"<a>\n <b x></a>"), errSyntax);
    const UCString file = d.ErrorFile();
    const int line = d.ErrorLine(), col = d.ErrorCol();
    for (const std::string& path : {dir.Dir() + "/missing.xml", dir.Dir()}) {
        SCOPED_TRACE(path);
        EXPECT_EQ(d.ParseFile(U(path).c_str()), errOpenSource);
        EXPECT_EQ(UCString(d.ErrorMessage()), u"Unable to open source file " + U(path));
        EXPECT_EQ(UCString(d.ErrorFile()), file);
        EXPECT_EQ(d.ErrorLine(), line);
        EXPECT_EQ(d.ErrorCol(), col);
        // The former document is still there.
        ASSERT_NE(d.RootElement(), nullptr);
        EXPECT_EQ(UCString(d.RootElement()->Name()), u"a");
    }
}

// A module that serves a fixed text, answering errNotReady a number of
// times before each unit, and recording what it was told.
struct ScriptState {
    std::u16string text, lastResource, lastOptions;
    int notReadyBeforeEach = 0, stallAfter = -1;  // -1: never stalls for good
    BATCHERR openResult = errNone;
    int opens = 0, closes = 0, designOn = 0, designOff = 0;
    short lastMode = 0;
};

struct ScriptedModule : OzmIOModule {
    static inline ScriptState s;
    size_t pos = 0;
    int waits = 0;

    BATCHERR Open(const UCChar* resource, const UCChar* options, short mode) override {
        ++s.opens;
        s.lastResource = resource;
        s.lastOptions = options;
        s.lastMode = mode;
        return s.openResult;
    }
    BATCHERR Close() override { return ++s.closes, errNone; }
    BATCHERR Read(UCChar* buffer, size_t, size_t& count) override {
        count = 0;
        if (pos >= s.text.size())
            return BATCHERR(1);
        if ((s.stallAfter >= 0 && pos >= size_t(s.stallAfter)) || waits++ < s.notReadyBeforeEach)
            return errNotReady;
        waits = 0;
        buffer[count++] = s.text[pos++];
        return errNone;
    }
    BATCHERR Write(const UCChar*, size_t) override { return errNone; }
    void SetDesignMode(bool on) override { ++(on ? s.designOn : s.designOff); }
    const UCChar* LastErrorMessage() const override { return u"scripted failure"; }
    static void Reset(const std::u16string& t, int notReady = 0, BATCHERR open = errNone) {
        s = ScriptState();
        s.text = t;
        s.notReadyBeforeEach = notReady;
        s.openResult = open;
    }
};

OzmIOModule* NewScripted() { return new ScriptedModule; }

class ParseDllTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(OzmLightweightIO::RegisterModule(u"scripted", NewScripted)); }
    void TearDown() override { OzmLightweightIO::UnregisterModule(u"scripted"); }
};

struct CountingNotifier : OzmNotifier {
    int begins = 0, polls = 0, ends = 0;
    int giveUpAfterPolls = -1;  // -1: never
    XmlDocument* doc = nullptr; // when set, switches design mode on at the first poll
    void BeginRead(int phase) override {
        EXPECT_EQ(phase, 1);
        ++begins;
    }
    int PollRead(int phase, int step) override {
        EXPECT_EQ(phase, 0);
        EXPECT_EQ(step, 2);
        ++polls;
        if (doc && polls == 1)
            doc->DesignMode(true);
        return giveUpAfterPolls >= 0 && polls > giveUpAfterPolls ? 1 : 0;
    }
    void EndRead(int phase) override {
        EXPECT_EQ(phase, 0);
        ++ends;
    }
};

TEST_F(ParseDllTest, ReadsThroughTheModuleAndPassesItsArguments) {
    ScriptedModule::Reset(u"<a x='1'>hi</a>", 2);  // waits without a notifier too
    XmlDocument d;
    ASSERT_EQ(d.ParseDLL(u"scripted:res/x?opt=1", false, true, nullptr, false), errNone);
    EXPECT_EQ(UCString(d.RootElement()->Data()), u"hi");
    EXPECT_EQ(ScriptedModule::s.lastResource, u"res/x");
    EXPECT_EQ(ScriptedModule::s.lastOptions, u"opt=1");
    EXPECT_EQ(ScriptedModule::s.lastMode, short(-32768));
    EXPECT_EQ(ScriptedModule::s.opens, 1);
    EXPECT_EQ(ScriptedModule::s.closes, 1);
    EXPECT_EQ(ScriptedModule::s.designOn, 1);
    EXPECT_EQ(UCString(d.ErrorFile()), u"scripted:res/x?opt=1");
}

TEST_F(ParseDllTest, WaitsOnNotReadyAndCallsTheNotifierAroundEachUnit) {
    const std::u16string text = u"<a>xy</a>";
    ScriptedModule::Reset(text, 3);
    XmlDocument d;
    CountingNotifier n;
    ASSERT_EQ(d.ParseDLL(u"scripted:r", false, false, &n, false), errNone);
    EXPECT_EQ(UCString(d.RootElement()->Data()), u"xy");
    // The parse stops at the end of the root: every unit of the text is read
    // once, each after three refusals.
    EXPECT_EQ(n.begins, int(text.size()));
    EXPECT_EQ(n.ends, int(text.size()));
    EXPECT_EQ(n.polls, 3 * int(text.size()));
}

TEST_F(ParseDllTest, NotifierThatGivesUpEndsTheInput) {
    // Five units arrive ("<a>te"), then the module stalls; the notifier lets
    // it wait twice and then gives up. The module is asked again at every
    // later read, and every refused wait gives the end of input.
    ScriptedModule::Reset(u"<a>text</a>", 0);
    ScriptedModule::s.stallAfter = 5;
    XmlDocument d;
    CountingNotifier n;
    n.giveUpAfterPolls = 2;
    EXPECT_EQ(d.ParseDLL(u"scripted:r", false, false, &n, false), errSyntax);
    // The text token ends at the first refusal, the next token meets the
    // second one.
    EXPECT_EQ(n.polls, 4);
    EXPECT_EQ(UCString(d.ErrorMessage()), u"Unexpected token '\uFFFF'");
    EXPECT_EQ(d.ErrorCol(), 0);  // columns are not counted for modules
    EXPECT_EQ(d.ErrorLine(), 1);
    EXPECT_EQ(ScriptedModule::s.closes, 1);
}

TEST_F(ParseDllTest, DesignModeReachesTheModuleOnlyDuringTheParse) {
    ScriptedModule::Reset(u"<a/>", 1);
    XmlDocument d;
    d.DesignMode(true);  // no module: nothing happens
    EXPECT_EQ(ScriptedModule::s.designOn, 0);
    CountingNotifier n;
    n.doc = &d;
    ASSERT_EQ(d.ParseDLL(u"scripted:r", false, false, &n, false), errNone);
    EXPECT_EQ(ScriptedModule::s.designOff, 1);  // from ParseDLL, right after Open
    EXPECT_EQ(ScriptedModule::s.designOn, 1);   // from the notifier, during the parse
    d.DesignMode(false);
    EXPECT_EQ(ScriptedModule::s.designOff, 1);
}

TEST_F(ParseDllTest, FailuresBeforeTheParseKeepTheFormerDocument) {
    XmlDocument d;
    ASSERT_EQ(d.ParseString(u"<keep/>"), errNone);
    const int line = d.ErrorLine(), col = d.ErrorCol();

    EXPECT_EQ(d.ParseDLL(u"no-colon-here"), errOpenSource);
    EXPECT_EQ(UCString(d.ErrorMessage()), u"Unable to parse DLL specification 'no-colon-here'");

    ScriptedModule::Reset(u"<a/>", 0, BATCHERR(77));
    EXPECT_EQ(d.ParseDLL(u"scripted:r"), BATCHERR(77));
    EXPECT_EQ(UCString(d.ErrorMessage()), u"XML API: scripted failure");
    EXPECT_EQ(ScriptedModule::s.closes, 0);  // never opened, so never closed

    BATCHERR unknown = d.ParseDLL(u"no-such-module:r");
    EXPECT_NE(unknown, errNone);
    EXPECT_EQ(Utf8(d.ErrorMessage()).rfind("XML API: ", 0), 0u);

    ASSERT_NE(d.RootElement(), nullptr);
    EXPECT_EQ(UCString(d.RootElement()->Name()), u"keep");
    EXPECT_EQ(d.ErrorLine(), line);
    EXPECT_EQ(d.ErrorCol(), col);
}

}  // namespace
