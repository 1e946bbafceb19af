// The character stream as seen through ParseString: line-end folding, line
// and column counting (visible through the error position), characters read
// twice after a push-back, a 0xFFFF unit taken for end of input, and the
// classes of name characters.
#include <gtest/gtest.h>

#include "test_util.h"
#include "xmlapi.h"

namespace {


struct Outcome {
    const char* label;
    UCString input;
    BATCHERR code;
    UCString message;
    int line;
    int col;
};

void ExpectOutcome(const Outcome& c) {
    SCOPED_TRACE(c.label);
    XmlDocument doc;
    EXPECT_EQ(doc.ParseString(c.input), c.code);
    EXPECT_EQ(Str(doc.ErrorMessage()), c.message);
    EXPECT_EQ(doc.ErrorLine(), c.line);
    EXPECT_EQ(doc.ErrorCol(), c.col);
    EXPECT_EQ(Str(doc.ErrorFile()), u"string");
}

// Documents that parse; the data of the root shows the folded line ends, and
// the place of the last token (the end tag, read from just behind the text)
// shows how lines and columns were counted.
TEST(CharStreamTest, LineEndsAreFoldedAndCounted) {
    struct Case {
        const char* label;
        UCString input;
        UCString data;
        int line;
        int col;
    };
    const Case cases[] = {
        {"CR LF is one line end", u"<a>x\r\ny</a>", u"x\ny", 2, 2},
        // y is read while looking behind the CR, counted on line 1 and
        // then pushed back: on line 2 it does not count again.
        {"lone CR", u"<a>x\ry</a>", u"x\ny", 2, 1},
        {"CR CR is two line ends", u"<a>x\r\ry</a>", u"x\n\ny", 3, 1},
        {"CR in front of a tag", u"<a>x\r</a>", u"x\n", 2, 0},
        {"LF then lone CR", u"<a>\n\r</a>", u"\n\n", 3, 0},
        {"line separator counts and is kept", u"<a>x\u2028y</a>", u"x\u2028y", 2, 2},
        {"next line is an ordinary character", u"<a>x\x85" u"y</a>", u"x\x85" u"y", 1, 7},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.label);
        XmlDocument doc;
        ASSERT_EQ(doc.ParseString(c.input), errNone) << testing::PrintToString(Str(doc.ErrorMessage()));
        ASSERT_NE(doc.RootElement(), nullptr);
        EXPECT_EQ(Str(doc.RootElement()->Data()), c.data);
        EXPECT_EQ(Str(doc.ErrorMessage()), u"");
        EXPECT_EQ(doc.ErrorLine(), c.line);
        EXPECT_EQ(doc.ErrorCol(), c.col);
    }
}

TEST(CharStreamTest, EndOfInputAfterLineEnds) {
    const Outcome cases[] = {
        // A CR that is the last unit reads as the end of input: no line.
        {"CR at the very end", u"<a>x\r", errSyntax, Ux(kEof), 1, 5},
        {"CR CR at the end counts one line", u"<a>x\r\r", errSyntax, Ux(kEof), 2, 0},
        {"CR LF at the end", u"<a>x\r\n", errSyntax, Ux(kEof), 2, 0},
        {"next line at the end", u"<a>x\x85", errSyntax, Ux(kEof), 1, 5},
    };
    for (const Outcome& c : cases)
        ExpectOutcome(c);
}

// Start-tag tokens skip blanks and are placed at their first character. A
// line end read behind a name is pushed back and counted again.
TEST(CharStreamTest, StartTagPositions) {
    const Outcome cases[] = {
        {"LF behind the element name counts twice", u"<a\n  b>", errSyntax, Ux(u">"), 3, 4},
        {"CR LF behind the element name counts twice", u"<a\r\n b>", errSyntax, Ux(u">"), 3, 3},
        {"CR LF behind a quoted value counts once", u"<a\tb='1'\r\n  c>", errSyntax, Ux(u">"), 2, 4},
        {"line separator behind a name", u"<a\u2028/>", errSyntax, Ux(u"\u2028"), 3, 0},
    };
    for (const Outcome& c : cases)
        ExpectOutcome(c);
}

TEST(CharStreamTest, StartTagLinesOnSuccess) {
    struct Case {
        const char* label;
        UCString input;
        int line;
        int col;
    };
    const Case cases[] = {
        // The last token is "/>", placed at its '/'.
        {"line ends around '=' and behind the name", u"<a b\n=\n'1'\n/>", 5, 1},
        {"LF behind the element name", u"<a\n/>", 3, 1},
        // The lone CR looks ahead at b, which comes back at column 0.
        {"lone CR behind the element name", u"<a\rb='1'/>", 3, 5},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.label);
        XmlDocument doc;
        ASSERT_EQ(doc.ParseString(c.input), errNone) << testing::PrintToString(Str(doc.ErrorMessage()));
        ASSERT_NE(doc.RootElement(), nullptr);
        EXPECT_EQ(doc.ErrorLine(), c.line);
        EXPECT_EQ(doc.ErrorCol(), c.col);
        if (doc.RootElement()->AttributeCount() > 0) {
            EXPECT_EQ(Str(doc.RootElement()->GetAttributeValue(u"b")), u"1");
        }
    }
}

// Prolog tokens skip blanks and are placed at their first character; after
// "<!" the two characters read ahead are pushed back and read again without
// counting columns, but a line end among them counts again.
TEST(CharStreamTest, PrologPositions) {
    const Outcome cases[] = {
        {"name behind blank lines", u"\n\n  hello<a/>", errSyntax, Ux(u"hello"), 3, 3},
        {"name behind a comment", u"<!--\n\n-->\n  hello<a/>", errSyntax, Ux(u"hello"), 4, 3},
        {"blank behind '<!'", u"<! ENTITY x 'y'><a/>", errDeclInProlog, Ux(u"<!ENTITY"), 1, 4},
        {"line end behind '<!' counts twice", u"<!\nENTITY x 'y'><a/>", errDeclInProlog, Ux(u"<!ENTITY"), 3,
         0},
    };
    for (const Outcome& c : cases)
        ExpectOutcome(c);
}

// Content tokens are placed at the last character read before them, which
// may have been read and pushed back.
TEST(CharStreamTest, ContentPositions) {
    const Outcome cases[] = {
        {"end tag behind a start tag", u"<a><b></a>", errSyntax, u"Improper element nesting", 1, 6},
        {"end tag behind a line end", u"<a>x\n</b>", errSyntax, u"Improper element nesting", 2, 1},
        {"end of input at a line start", u"<a><b/>\n", errSyntax, Ux(kEof), 2, 0},
    };
    for (const Outcome& c : cases)
        ExpectOutcome(c);
}

// A unit 0xFFFF inside the string ends whatever token reads it, as the end
// of input would, but it is counted as a column.
TEST(CharStreamTest, UnitFFFFIsTakenForEndOfInput) {
    const Outcome cases[] = {
        {"ends character data, the text goes on", u"<a>x\xFFFFy</b>", errSyntax, u"Improper element nesting", 1,
         7},
        {"inside a start tag", u"<a \xFFFF/>", errSyntax, Ux(kEof), 1, 4},
        {"ends a quoted value", u"<a b=\"x\xFFFFy\"/>", errSyntax, Ux(u"x"), 1, 6},
        {"ends a comment in content", u"<a><!--x\xFFFFy--></a>", errSyntax, Ux(u"x"), 1, 3},
        {"ends the prolog", u"\xFFFF<a/>", errNone, u"", 1, 1},
    };
    for (const Outcome& c : cases)
        ExpectOutcome(c);

    XmlDocument doc;
    EXPECT_EQ(doc.ParseString(u"\xFFFF<a/>"), errNone);
    EXPECT_EQ(doc.RootElement(), nullptr);
    // The text on both sides of the unit is data of the element.
    ASSERT_EQ(doc.ParseString(u"<a>x\xFFFFy</a>"), errNone) << testing::PrintToString(Str(doc.ErrorMessage()));
    ASSERT_NE(doc.RootElement(), nullptr);
    EXPECT_EQ(Str(doc.RootElement()->Data()), u"xy");
    EXPECT_EQ(doc.ErrorCol(), 7);
}

TEST(CharStreamTest, NameCharacters) {
    const UCString names[] = {u"a-b.c", u":x", u"\u02BB", u"\u06E6x", u"\u4E00", u"\u2160", u"\u01C5",
                              u"a\u0301", u"a\u0661", u"a\u02B0", u"A\u0903", u"_-.9"};
    for (const UCString& name : names) {
        SCOPED_TRACE(testing::PrintToString(name));
        XmlDocument doc;
        ASSERT_EQ(doc.ParseString(u"<" + name + u" " + name + u"='v'/>"), errNone) << testing::PrintToString(Str(doc.ErrorMessage()));
        ASSERT_NE(doc.RootElement(), nullptr);
        EXPECT_EQ(Str(doc.RootElement()->Name()), name);
        EXPECT_EQ(Str(doc.RootElement()->GetAttributeName(0)), name);
    }
}

TEST(CharStreamTest, NonNameCharacters) {
    // No name start behind '<': content reports the '<' alone.
    const UCString badStarts[] = {u"1a", u"-a", u"\u0301a", u"\u0661", u"\u02B0", u"\u20DD", u"\u00B7", u"\xD800"};
    for (const UCString& start : badStarts) {
        SCOPED_TRACE(testing::PrintToString(start));
        Outcome c{"bad name start", u"<" + start + u"/>", errSyntax, Ux(u"<"), 1, 2};
        ExpectOutcome(c);
    }
    // A unit that is no name character ends the name and is the next token.
    const UCString badChars[] = {u"\u20DD", u"\uF900", u"\xFFFE", u"\xD800", u"!", u"\u2029"};
    for (const UCString& bad : badChars) {
        SCOPED_TRACE(testing::PrintToString(bad));
        Outcome c{"bad name character", u"<a" + bad + u"/>", errSyntax, Ux(bad), 1, 3};
        ExpectOutcome(c);
    }
    Outcome attr{"bad attribute name start", u"<a 1b='1'/>", errSyntax, Ux(u"1"), 1, 4};
    ExpectOutcome(attr);
}

}  // namespace
