// The error state of a document: its defaults, its reset at each parse, the
// place left by a successful parse, overwriting, and the length limit of a
// message.
#include <gtest/gtest.h>

#include "test_util.h"

namespace {


TEST(ErrorStateTest, SuccessLeavesThePlaceOfTheLastToken) {
    struct Case {
        UCString input;
        int line;
        int col;
    };
    const Case cases[] = {
        {u"<a/>", 1, 3},                  // "/>" at its '/'
        {u"<a>x</a>", 1, 5},              // the end tag, behind the '<' read after x
        {u"<a>\n<b/>\n</a>", 3, 1},       // same, on the third line
        {u"<a></a>", 1, 3},               // the end tag, behind the '>' of the start tag
        {u"<r><a/></r>", 1, 7},           // the end tag, behind the '>' of "/>"
        {u"  <!-- c -->  ", 1, 14},        // the end of input that ended the prolog
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.input));
        XmlDocument doc;
        ASSERT_EQ(doc.ParseString(c.input), errNone);
        ASSERT_NE(doc.ErrorMessage(), nullptr);
        EXPECT_EQ(Str(doc.ErrorMessage()), u"");
        EXPECT_EQ(Str(doc.ErrorFile()), u"string");
        EXPECT_EQ(doc.ErrorLine(), c.line);
        EXPECT_EQ(doc.ErrorCol(), c.col);
    }
}

TEST(ErrorStateTest, EachParseStartsAfresh) {
    XmlDocument doc;
    EXPECT_EQ(Str(doc.ErrorMessage()) + Str(doc.ErrorFile()), u"");
    EXPECT_EQ(doc.ErrorLine() + doc.ErrorCol(), 0);
    EXPECT_EQ(doc.ParseString(u"<a>\n\n<b></a>"), errSyntax);
    EXPECT_EQ(Str(doc.ErrorMessage()), u"Improper element nesting");
    EXPECT_EQ(doc.ErrorLine(), 3);
    EXPECT_EQ(doc.ErrorCol(), 3);
    // Clear leaves the error state alone.
    doc.Clear();
    EXPECT_EQ(Str(doc.ErrorMessage()), u"Improper element nesting");
    EXPECT_EQ(doc.ErrorLine(), 3);
    EXPECT_EQ(doc.ErrorCol(), 3);
    EXPECT_EQ(Str(doc.ErrorFile()), u"string");
    // A successful parse empties the message and counts from line 1 again.
    ASSERT_EQ(doc.ParseString(u"<a/>"), errNone);
    EXPECT_EQ(Str(doc.ErrorMessage()), u"");
    EXPECT_EQ(doc.ErrorLine(), 1);
    EXPECT_EQ(doc.ErrorCol(), 3);
    // The empty input saves one place: line 1, before any character.
    ASSERT_EQ(doc.ParseString(u""), errNone);
    EXPECT_EQ(doc.ErrorLine(), 1);
    EXPECT_EQ(doc.ErrorCol(), 0);
}

TEST(ErrorStateTest, MessagesAreHeldTo511Units) {
    const UCString prefix = u"Unexpected token '";
    // "Unexpected token '" is 18 units and the closing quote one more, so a
    // name of 492 units just fits into 511.
    for (size_t len : {size_t(492), size_t(493), size_t(5000)}) {
        SCOPED_TRACE(len);
        UCString name(len, u'n');
        XmlDocument doc;
        EXPECT_EQ(doc.ParseString(name + u"<a/>"), errSyntax);
        UCString msg = Str(doc.ErrorMessage());
        UCString full = Ux(name);
        if (full.size() <= 511) {
            EXPECT_EQ(msg, full);
        } else {
            EXPECT_EQ(msg.size(), 511u);
            EXPECT_EQ(msg, full.substr(0, 511));
        }
        EXPECT_EQ(msg.compare(0, prefix.size(), prefix), 0);
        EXPECT_EQ(doc.ErrorLine(), 1);
        EXPECT_EQ(doc.ErrorCol(), 1);
    }
}

TEST(ErrorStateTest, MessagesKeepAnyUnit) {
    // The token text goes into the message unit by unit, whatever it holds.
    XmlDocument doc;
    EXPECT_EQ(doc.ParseString(u"\u00E9t\u00E9\u4E00<a/>"), errSyntax);
    EXPECT_EQ(Str(doc.ErrorMessage()), Ux(u"\u00E9t\u00E9\u4E00"));
    EXPECT_EQ(doc.ParseString(u"'%s %d %%'<a/>"), errSyntax);
    EXPECT_EQ(Str(doc.ErrorMessage()), Ux(u"%s %d %%"));
}

}  // namespace
