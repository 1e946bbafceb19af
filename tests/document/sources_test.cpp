// Documents read from files and from I/O modules.
#include "test_util.h"

namespace {

TEST(ParseFileTest, EncodingsDeclarationsAndFailures) {
    TempDir dir;
    const std::string utf8 = "<r a=\"\xc3\xa9\">\xce\xb1\xe4\xb8\xad\xf0\x9f\x98\x80</r>";
    std::string le = "\xff\xfe", be = "\xfe\xff";
    for (char16_t u : std::u16string(u"<r a=\"\u00e9\">\u03b1\u4e2d\U0001F600</r>"))
        le += {char(u & 0xFF), char(u >> 8)}, be += {char(u >> 8), char(u & 0xFF)};
    const UCString tree = u"r{\u03b1\u4e2d\U0001F600}[a=\u00e9]";
    const struct {
        std::string bytes;
        BATCHERR result;
        OZM_CSET encoding;
        const char16_t *message, *tree;
    } cases[] = {
        {utf8, errNone, csetUTF8, u"", tree.c_str()},
        {"\xef\xbb\xbf" + utf8, errNone, csetUTF8, u"", tree.c_str()},
        {le, errNone, csetUTF8, u"", tree.c_str()},
        {be, errNone, csetUTF8, u"", tree.c_str()},
        {"<r a=\"\xe9\">\xff</r>", errNone, csetUTF8, u"", u"r{\u00ff}[a=\u00e9]"},  // bytes that are no UTF-8
        {"", errNone, csetUTF8, u"", u""},
        {"<?xml version='1.0' encoding='ISO-8859-1'?><r a='\xe9'/>", errNone, csetISO8859_1, u"", u"r{}[a=\u00e9]"},
        {"<?xml encoding='utf-16'?><r a='\xc3\xa9'/>", errNone, csetUTF16, u"", u"r{}[a=\u00e9]"},
        {"<?xml encoding='no-such-set'?><a/>", errSyntax, csetUnknown, u"Unsupported encoding 'no-such-set'", u""},
        {"<r>\r\n  <a></b>\n</r>", errSyntax, csetUTF8, u"Improper element nesting", u"r{}(a{})"},
    };
    XmlDocument d;
    for (const auto& c : cases) {
        const UCString path = U(dir.Write("d.xml", c.bytes));
        EXPECT_EQ(d.ParseFile(path.c_str()), c.result) << c.bytes;
        EXPECT_EQ(d.Encoding(), c.encoding);
        EXPECT_EQ(Str(d.ErrorMessage()), c.message);
        EXPECT_EQ(Str(d.ErrorFile()), path);
        EXPECT_EQ(Tree(d), c.tree);
    }
    EXPECT_EQ(d.ErrorLine() * 10 + d.ErrorCol(), 25);  // the last unit read before "</b>"
    // A missing file or a directory leaves the former document and place.
    for (const std::string& path : {dir.Path("missing.xml"), dir.Dir()}) {
        EXPECT_EQ(d.ParseFile(U(path).c_str()), errOpenSource);
        EXPECT_EQ(Str(d.ErrorMessage()), u"Unable to open source file " + U(path));
        EXPECT_EQ(Str(d.ErrorFile()) + Num(u":", d.ErrorLine()) + Num(u":", d.ErrorCol()), U(dir.Path("d.xml:2:5")));
        EXPECT_EQ(Str(d.RootElement()->Child()->Name()), u"a");
    }
    // The written declaration names UTF-8, the set the text is written in; a
    // later parse resets the encoding.
    const UCString path = U(dir.Write("d.xml", "<?xml version='1.0' encoding='windows-1252' standalone='no'?><a/>"));
    ASSERT_EQ(d.ParseFile(path.c_str()), errNone);
    EXPECT_EQ(d.Encoding(), csetWindows1250 + 2);
    const UCString read = Written([&](XmlOutputStream& s) { d.Write(s, false, true, true, 1, true); });
    ASSERT_EQ(d.ParseString(u"<a/>"), errNone);
    EXPECT_EQ(read + Written([&](XmlOutputStream& s) { d.Write(s, false, false, true, 1, true); }),
              u"<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<?xml version=\"1.0\" encoding=\"UTF-8\"?>");
}

// A module that serves a fixed text, answering errNotReady a number of times
// before each unit or for good from a place on, and recording its calls.
struct Script {
    std::u16string text, resource, options;
    int notReady = 0, stallAfter = 1 << 30, opens = 0, closes = 0, designOn = 0, designOff = 0, mode = 0;
    BATCHERR openResult = errNone;
} g;
void Reset(const char16_t* text, int notReady = 0, BATCHERR open = errNone) {
    g = Script();
    g.text = text, g.notReady = notReady, g.openResult = open;
}

struct ScriptedModule : OzmIOModule {
    size_t pos = 0;
    int waits = 0;
    BATCHERR Open(const UCChar* r, const UCChar* o, short m) override {
        return ++g.opens, g.resource = r, g.options = o, g.mode = m, g.openResult;
    }
    BATCHERR Close() override { return ++g.closes, errNone; }
    BATCHERR Read(UCChar* buffer, size_t, size_t& count) override {
        count = 0;
        if (pos >= g.text.size())
            return BATCHERR(1);
        if (int(pos) >= g.stallAfter || waits++ < g.notReady)
            return errNotReady;
        waits = 0;
        buffer[count++] = g.text[pos++];
        return errNone;
    }
    BATCHERR Write(const UCChar*, size_t) override { return errNone; }
    void SetDesignMode(bool on) override { ++(on ? g.designOn : g.designOff); }
    const UCChar* LastErrorMessage() const override { return u"scripted failure"; }
};

struct Notifier : OzmNotifier {
    int begins = 0, polls = 0, ends = 0, giveUpAfter = 1 << 30;
    XmlDocument* doc = nullptr;  // switched to design mode at the first poll
    void BeginRead(int phase) override { begins += phase == 1; }
    int PollRead(int phase, int step) override {
        if (++polls == 1 && doc)
            doc->DesignMode(true);
        return phase == 0 && step == 2 ? polls > giveUpAfter : 7;
    }
    void EndRead(int phase) override { ends += phase == 0; }
};

TEST(ParseDllTest, ModulesNotifiersAndFailures) {
    ASSERT_TRUE(OzmLightweightIO::RegisterModule(u"scripted", [] { return (OzmIOModule*)new ScriptedModule; }));
    XmlDocument d;
    Reset(u"<a x='1'>hi</a>", 2);  // waits without a notifier too
    d.DesignMode(true);                 // no module: nothing happens
    ASSERT_EQ(d.ParseDLL(u"scripted:res/x?opt=1", false, true, nullptr, false), errNone);
    EXPECT_EQ(Str(d.RootElement()->Data()) + u"|" + g.resource + u"|" + g.options + u"|" + Str(d.ErrorFile()),
              u"hi|res/x|opt=1|scripted:res/x?opt=1");
    EXPECT_EQ(std::vector<int>({g.mode, g.opens, g.closes, g.designOn, g.designOff}), std::vector<int>({-32768, 1, 1, 1, 0}));

    // Each unit after three refusals, each refusal polled; the notifier turns
    // design mode on during the parse, after ParseDLL turned it off.
    Reset(u"<a>xy</a>", 3);
    Notifier n;
    n.doc = &d;
    ASSERT_EQ(d.ParseDLL(u"scripted:r", false, false, &n, false), errNone);
    EXPECT_EQ(std::vector<int>({n.begins, n.ends, n.polls, g.designOff, g.designOn}), std::vector<int>({9, 9, 27, 1, 1}));
    d.DesignMode(false);
    EXPECT_EQ(g.designOff, 1);

    // Five units arrive, then the module stalls; a notifier that gives up
    // after two polls ends the input at each later read.
    Reset(u"<a>text</a>");
    g.stallAfter = 5;
    Notifier quitter;
    quitter.giveUpAfter = 2;
    EXPECT_EQ(d.ParseDLL(u"scripted:r", false, false, &quitter, false), errSyntax);
    EXPECT_EQ(Str(d.ErrorMessage()), Ux(kEof));
    EXPECT_EQ(std::vector<int>({quitter.polls, d.ErrorLine(), d.ErrorCol(), g.closes}), std::vector<int>({4, 1, 0, 1}));

    // Failures before the parse keep the former document and place.
    ASSERT_EQ(d.ParseString(u"<keep/>"), errNone);
    EXPECT_EQ(d.ParseDLL(u"no-colon-here"), errOpenSource);
    EXPECT_EQ(Str(d.ErrorMessage()), u"Unable to parse DLL specification 'no-colon-here'");
    Reset(u"<a/>", 0, BATCHERR(77));
    EXPECT_EQ(d.ParseDLL(u"scripted:r"), BATCHERR(77));
    EXPECT_EQ(Str(d.ErrorMessage()) + Num(u"|", g.closes), u"XML API: scripted failure|0");
    EXPECT_NE(d.ParseDLL(u"no-such-module:r"), errNone);
    EXPECT_EQ(Utf8(d.ErrorMessage()).rfind("XML API: ", 0), 0u);
    EXPECT_EQ(Str(d.RootElement()->Name()) + Num(u":", d.ErrorLine()) + Num(u":", d.ErrorCol()), u"keep:1:6");
    OzmLightweightIO::UnregisterModule(u"scripted");
}

}  // namespace
