// Large inputs: a million elements, megabytes of text, long names and
// values, and long runs of markup openings. They must parse, or fail with a
// clear message, without exhausting the stack.
#include <gtest/gtest.h>

#include "test_util.h"

namespace {


UCString Repeat(const UCString& s, size_t n) {
    UCString out;
    out.reserve(s.size() * n);
    for (size_t i = 0; i < n; ++i)
        out += s;
    return out;
}

int BlockCount(const XmlDocument& doc) {
    int n = 0;
    for (XmlElementBlock* b = doc.ElementBlocks(); b; b = b->Next())
        ++n;
    return n;
}

TEST(LargeDocumentTest, AMillionSiblings) {
    const int count = 1000000;
    XmlDocument doc;
    ASSERT_EQ(doc.ParseString(u"<r>" + Repeat(u"<x/>", count) + u"</r>"), errNone)
        << testing::PrintToString(Str(doc.ErrorMessage()));
    XmlElement* r = doc.RootElement();
    ASSERT_NE(r, nullptr);
    int n = 0;
    for (XmlElement* x = r->Child(); x; x = x->Next())
        n += x->Parent() == r;
    EXPECT_EQ(n, count);
    // 1,000,001 nodes take 1001 blocks; the newest has 999 left.
    EXPECT_EQ(BlockCount(doc), 1001);
    EXPECT_EQ(doc.ElementBlocks()->FreeCount(), 999);
    // The end tag of the root stands behind the last "/>".
    EXPECT_EQ(doc.ErrorCol(), 3 + 4 * count);
    doc.Clear();
    EXPECT_EQ(BlockCount(doc), 1);
    EXPECT_EQ(doc.ElementBlocks()->FreeCount(), 1000);
}

TEST(LargeDocumentTest, MegabytesOfText) {
    const size_t lines = 800000;  // 4,000,000 units of data
    UCString text = u"<a>" + Repeat(u"line\n", lines);
    XmlDocument doc;
    ASSERT_EQ(doc.ParseString(text + u"</a>"), errNone);
    const XmlElement* a = doc.RootElement();
    ASSERT_NE(a, nullptr);
    ASSERT_EQ(a->DataLength(), long(lines * 5));
    EXPECT_EQ(UCString(a->Data()).substr(lines * 5 - 10), u"line\nline\n");
    // The end tag stands on the line after the last line end.
    EXPECT_EQ(doc.ErrorLine(), int(lines) + 1);
    EXPECT_EQ(doc.ErrorCol(), 1);

    EXPECT_EQ(doc.ParseString(text + u"</b>"), errSyntax);
    EXPECT_EQ(Str(doc.ErrorMessage()), u"Improper element nesting");
    EXPECT_EQ(doc.ErrorLine(), int(lines) + 1);
    EXPECT_EQ(doc.ErrorCol(), 1);

    // CR LF line ends fold to one unit each and count once.
    UCString crlf = u"<a>" + Repeat(u"ab\r\n", 500000) + u"</a>";
    ASSERT_EQ(doc.ParseString(crlf), errNone);
    EXPECT_EQ(doc.RootElement()->DataLength(), 1500000);
    EXPECT_EQ(doc.ErrorLine(), 500001);
}

TEST(LargeDocumentTest, LongNamesValuesAndComments) {
    UCString name(100000, u'n');
    UCString value = Repeat(u"v\r\n", 300000);
    UCString comment = Repeat(u"- -> <a/>", 100000);
    UCString text = u"<!--" + comment + u"-->\n<" + name + u" k='" + value + u"'>" + Repeat(u"<!--c-->", 50000) +
                    u"</" + name + u">";
    XmlDocument doc;
    ASSERT_EQ(doc.ParseString(text), errNone) << testing::PrintToString(Str(doc.ErrorMessage()).substr(0, 100));
    XmlElement* root = doc.RootElement();
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(Str(root->Name()), name);
    EXPECT_EQ(Str(root->GetAttributeValue(u"k")), Repeat(u"v\n", 300000));
    EXPECT_EQ(Str(root->Data()), u"");
    // The comment spans no line; the value spans 300000.
    EXPECT_EQ(doc.ErrorLine(), 300002);

    UCString attrs;
    for (int i = 0; i < 5000; ++i)
        attrs += u" a='" + Repeat(u"x", size_t(i % 7)) + u"'";
    ASSERT_EQ(doc.ParseString(u"<e" + attrs + u"/>"), errNone);
    ASSERT_EQ(doc.RootElement()->AttributeCount(), 5000);
    EXPECT_EQ(Str(doc.RootElement()->GetAttributeValue(4999)), Repeat(u"x", 4999 % 7));
    EXPECT_EQ(Str(doc.RootElement()->GetAttributeValue(u"a")), u"");
}

TEST(LargeDocumentTest, LongRunsOfMarkupOpenings) {
    struct Case {
        const char* label;
        UCString input;
        UCString message;
    };
    const Case cases[] = {
        {"'<!' repeated", Repeat(u"<!", 100000) + u"DOCTYPE a><a/>", Ux(u"<!")},
        {"'<?' repeated", Repeat(u"<?", 100000) + u"pi?><a/>", Ux(u"<?")},
        {"'<!' repeated to the end", Repeat(u"<!", 100000), Ux(u"<!")},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.label);
        XmlDocument doc;
        EXPECT_EQ(doc.ParseString(c.input), errSyntax);
        EXPECT_EQ(Str(doc.ErrorMessage()), c.message);
    }
    // A deep run of start tags stops at the nesting limit.
    XmlDocument doc;
    EXPECT_EQ(doc.ParseString(Repeat(u"<a>", 100000)), errSyntax);
    EXPECT_EQ(Str(doc.ErrorMessage()), u"Element nesting too deep");
}

}  // namespace
