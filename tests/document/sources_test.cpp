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

// Documents in the sets beyond UTF-8 and UTF-16, read as their declaration
// says: the exact units, and invalid bytes reported where they stand.
TEST(ParseFileTest, DeclaredEncodings) {
    TempDir dir;
    const UCString bg = u"\u041F\u0440\u043E\u043C\u044F\u043D\u0430";  // Промяна
    const struct {
        const char* set;
        std::string text;  // in the set
        UCString units;
        OZM_CSET encoding;
    } sets[] = {
        {"windows-1251", "\xCF\xF0\xEE\xEC\xFF\xED\xE0", bg, OZM_CSET(csetWindows1250 + 1)},
        {"koi8-r", "\xF0\xD2\xCF\xCD\xD1\xCE\xC1", bg, csetKOI8R},
        {"ISO-8859-5", "\xBF\xE0\xDE\xDC\xEF\xDD\xD0", bg, OZM_CSET(csetISO8859_1 + 4)},
        {"IBM866", "\x8F\xE0\xAE\xAC\xEF\xAD\xA0", bg, csetIBM866},
        {"Shift_JIS", "\x93\xFA\x96\x7B\x8C\xEA", u"\u65E5\u672C\u8A9E", csetShiftJIS},
        {"EUC-JP", "\xC6\xFC\xCB\xDC\xB8\xEC\x8F\xB0\xA1", u"\u65E5\u672C\u8A9E\u4E02", csetEUCJP},
        {"ISO-2022-JP", "\x1B$BF|K\\8l\x1B(B", u"\u65E5\u672C\u8A9E", csetISO2022JP},
        {"GB2312", "\xD6\xD0\xCE\xC4", u"\u4E2D\u6587", csetGB2312},
        {"GBK", "\xD6\xD0\xCE\xC4\x81\x40", u"\u4E2D\u6587\u4E02", csetGBK},
        {"Big5", "\xA4\xA4\xA4\xE5", u"\u4E2D\u6587", csetBig5},
        {"EUC-KR", "\xC7\xD1\xB1\xB9\xBE\xEE", u"\uD55C\uAD6D\uC5B4", csetEUCKR},
        {"ISO-8859-7", "\xC5\xEB\xEB\xDC\xE4\xE1", u"\u0395\u03BB\u03BB\u03AC\u03B4\u03B1", OZM_CSET(csetISO8859_1 + 6)},
        {"windows-1255", "\xF9\xEC\xE5\xED", u"\u05E9\u05DC\u05D5\u05DD", OZM_CSET(csetWindows1250 + 5)},
        {"ISO-8859-1", "\xC3\xA9", u"\u00C3\u00A9", csetISO8859_1},  // bytes of UTF-8, read as Latin-1
    };
    XmlDocument d;
    for (const auto& c : sets) {
        const UCString path = U(dir.Write("d.xml", std::string("<?xml version='1.0' encoding='") + c.set +
                                                       "'?>\n<r a='" + c.text + "'>" + c.text + "</r>"));
        EXPECT_EQ(d.ParseFile(path.c_str()), errNone) << c.set << " " << Narrow(Str(d.ErrorMessage()));
        EXPECT_EQ(Tree(d), u"r{" + c.units + u"}[a=" + c.units + u"]") << c.set;
        EXPECT_EQ(d.Encoding(), c.encoding) << c.set;
        // Written, it declares the set it is written in, and reads back the same.
        XmlOutputStream s;
        ASSERT_EQ(s.OpenUCFile(path.c_str(), u"w", 1), 0);
        d.Write(s, true, true, true, 7, true);
        s.Close();
        EXPECT_EQ(dir.Read("d.xml").substr(0, 38), "<?xml version=\"1.0\" encoding=\"UTF-8\"?>");
        // Through the file module as well.
        EXPECT_EQ(d.ParseDLL((u"file:" + path).c_str()), errNone);
        EXPECT_EQ(Tree(d), u"r{" + c.units + u"}[a=" + c.units + u"]") << c.set;
    }

    const std::string head = "<?xml encoding='Shift_JIS'?>";  // 28 units
    const struct {
        std::string bytes;
        BATCHERR result;
        const char16_t* message;
        int line, col;
    } errors[] = {
        {head + "\n<r>\n  a\x93\xFA\x82</r>", errSyntax, u"Invalid byte sequence for encoding 'Shift_JIS'", 3, 5},
        {head + "<r a='\x93\xFA\xFF'/>", errSyntax, u"Invalid byte sequence for encoding 'Shift_JIS'", 1, 36},
        {"<?xml encoding='EUC-KR'?><r>\xC7", errSyntax, u"Invalid byte sequence for encoding 'EUC-KR'", 1, 29},
        {"<?xml encoding='US-ASCII'?>\n\n\x80<r/>", errSyntax, u"Invalid byte sequence for encoding 'US-ASCII'", 3, 1},
        {"<?xml encoding='windows-1251'?>\r\n\x98", errSyntax, u"Invalid byte sequence for encoding 'windows-1251'", 2, 1},
        {"<?xml encoding='Big5'?><r/>\xFF", errNone, u"", 1, 26},  // after the root: never read
        {"<?xml encoding='x-mac-cyrillic'?><r/>", errSyntax, u"Unsupported encoding 'x-mac-cyrillic'", 1, 16},
        {"<?xml" + std::string(70000, ' ') + "encoding='KOI8-R'?><r/>", errSyntax,
         u"Encoding 'KOI8-R' is declared too far into the file to be used", 1, 70015},
    };
    for (const auto& e : errors) {
        const UCString path = U(dir.Write("e.xml", e.bytes));
        EXPECT_EQ(d.ParseFile(path.c_str()), e.result) << e.bytes.substr(0, 40);
        EXPECT_EQ(Str(d.ErrorMessage()), e.message);
        if (e.result != errNone) {
            EXPECT_EQ(Str(d.ErrorFile()) + Num(u":", d.ErrorLine()) + Num(u":", d.ErrorCol()),
                      path + Num(u":", e.line) + Num(u":", e.col));
        }
        // A module reports the line of invalid bytes (it counts no columns)
        // and takes the encoding as it finds it.
        const bool invalid = UCString(e.message).rfind(u"Invalid", 0) == 0;
        EXPECT_EQ(d.ParseDLL((u"file:" + path).c_str()), invalid ? errSyntax : errNone);
        EXPECT_EQ(Str(d.ErrorMessage()) + Num(u":", d.ErrorLine()), invalid ? e.message + Num(u":", e.line) : u":1");
    }

    // Text declarations of an external subset and entity; invalid bytes in
    // either are reported in the resource.
    dir.Write("r.dtd", "<?xml version='1.0' encoding='KOI8-R'?>\n<!ENTITY w '\xF0\xD2\xCF\xCD\xD1\xCE\xC1'>\n"
                       "<!ENTITY j SYSTEM 'j.ent'><!ELEMENT r (#PCDATA)>");
    dir.Write("j.ent", "<?xml encoding='Shift_JIS'?>\x93\xFA\x96\x7B\x8C\xEA");
    const UCString path = U(dir.Write("d.xml", "<!DOCTYPE r SYSTEM 'r.dtd'><r>&w;&j;</r>"));
    ASSERT_EQ(d.ParseFile(path.c_str()), errNone) << Narrow(Str(d.ErrorMessage()));
    EXPECT_EQ(Tree(d), u"r{" + bg + u"\u65E5\u672C\u8A9E}");
    for (const auto& [file, bytes, where] : {
             std::tuple{"j.ent", std::string("<?xml encoding='Shift_JIS'?>\x93\xFA\n\x96"), u"Shift_JIS'|j.ent:2:1"},
             std::tuple{"j.ent", std::string("<?xml encoding='EUC-JP' version='1.\x8F'?>"), u"EUC-JP'|j.ent:1:36"},
             std::tuple{"r.dtd", std::string("<?xml encoding='EUC-JP'\n?>\n<!ENTITY w 'ab\xFF'>"), u"EUC-JP'|r.dtd:3:15"},
         }) {
        dir.Write(file, bytes);
        EXPECT_EQ(d.ParseFile(path.c_str()), errSyntax);
        EXPECT_EQ(Str(d.ErrorMessage()) + u"|" + Str(d.ErrorFile()) + Num(u":", d.ErrorLine()) + Num(u":", d.ErrorCol()),
                  u"Invalid byte sequence for encoding '" + UCString(where));
    }
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
