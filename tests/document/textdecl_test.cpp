// The XML declaration at the head of a document.
#include <gtest/gtest.h>

#include "test_util.h"

namespace {

struct DeclCase {
    const char16_t* text;
    BATCHERR result;
    const char16_t* message;  // null: no message expected
    double version;
    bool standalone;
};

TEST(TextDeclTest, ParsesFromAString) {
    const DeclCase cases[] = {
        DeclCase{u"<?xml?><a/>", errNone, nullptr, 1.0, true},
        DeclCase{u"<?xml standalone=\"no\" version=\"1.0\"?><a/>", errNone, nullptr, 1.0, false},
        DeclCase{u"<?XML VERSION='1'?><a/>", errNone, nullptr, 1.0, true},
        DeclCase{u"<?xml version=\"1.0x\"?><a/>", errNone, nullptr, 1.0, true},
        DeclCase{u"<?xml standalone=\"YES\"?><a/>", errNone, nullptr, 1.0, true},
        DeclCase{u"<?xml encoding=\"no-such-set\"?><a/>", errNone, nullptr, 1.0, true},
        DeclCase{u"<!-- c --><?xml version=\"1.0\"?><a/>", errNone, nullptr, 1.0, true},
        DeclCase{u"<?xml version=\"1.0\"?><?xml version=\"2.0\"?><a/>", errNone, nullptr, 1.0, true},
        DeclCase{u"<?xml version=\"1.1\"?><a/>", errSyntax, u"Unsupported XML version 1.1", 1.1, true},
        DeclCase{u"<?xml version=\"abc\"?><a/>", errSyntax, u"Unsupported XML version 0.0", 0.0, true},
        DeclCase{u"<?xml standalone=\"never\"?><a/>", errSyntax, u"Standalone attribute must be 'yes' or 'no'", 1.0,
                 true},
        DeclCase{u"<?xml version \"1.0\"?><a/>", errSyntax, u"Unexpected token '1.0'", 1.0, true},
        DeclCase{u"<?xml foo=\"1\"?><a/>", errSyntax, u"Invalid attribute 'foo' in XMLDecl", 1.0, true},
        DeclCase{u"<?xml version=\"1.0\"><a/>", errSyntax, u"Unexpected token '>'", 1.0, true},
        DeclCase{u"<?xml version=\"1.0\"", errSyntax, u"Unexpected token '\uFFFF'", 1.0, true},
        DeclCase{u"<?xml version=1.0?><a/>", errSyntax, u"Unexpected token '1'", 1.0, true}};
    for (const DeclCase& c : cases) {
        SCOPED_TRACE(testing::Message() << "case " << (&c - cases));
        XmlDocument d;
        EXPECT_EQ(d.ParseString(c.text), c.result);
        EXPECT_EQ(UCString(d.ErrorMessage()), c.message ? c.message : u"");
        EXPECT_EQ(d.Version(), c.version);
        // From a string the encoding is never taken.
        EXPECT_EQ(d.Encoding(), csetUTF8);
        EXPECT_EQ(d.RootElement() != nullptr, c.result == errNone);
    }
}

TEST(TextDeclFileTest, EncodingIsTestedAndKeptOnlyForFiles) {
    TempDir tmp;
    const UCString path = tmp.UPath("d.xml");
    struct {
        const char* bytes;
        BATCHERR result;
        OZM_CSET encoding;
        const char16_t* message;
    } cases[] = {
        {"<?xml version='1.0' encoding='ISO-8859-1'?><a/>", errNone, csetISO8859_1, u""},
        {"<?xml encoding='utf-16'?><a/>", errNone, csetUTF16, u""},
        {"<?xml encoding='no-such-set'?><a/>", errSyntax, csetUnknown, u"Unsupported encoding 'no-such-set'"},
    };
    XmlDocument d;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.bytes);
        tmp.Write("d.xml", c.bytes);
        EXPECT_EQ(d.ParseFile(path.c_str()), c.result);
        EXPECT_EQ(d.Encoding(), c.encoding);
        EXPECT_EQ(UCString(d.ErrorMessage()), c.message);
    }
}

TEST(TextDeclFileTest, TheWrittenDeclarationShowsWhatWasRead) {
    TempDir tmp;
    const UCString path = U(tmp.Write("d.xml", "<?xml version='1.0' encoding='windows-1252' standalone='no'?><a/>"));
    XmlDocument d;
    ASSERT_EQ(d.ParseFile(path.c_str()), errNone);
    EXPECT_EQ(d.Encoding(), csetWindows1250 + 2);
    std::string out;
    XmlOutputStream s;
    s.SetUTFString(&out);
    d.Write(s, false, true, true, 1, true);
    EXPECT_EQ(out, "<?xml version=\"1.0\" encoding=\"windows-1252\"?>\n");
    // A later parse starts from the defaults again.
    ASSERT_EQ(d.ParseString(u"<a/>"), errNone);
    out.clear();
    d.Write(s, false, false, true, 1, true);
    EXPECT_EQ(out, "<?xml version=\"1.0\" encoding=\"UTF-8\"?>");
}

}  // namespace
