// The tokenisers of the prolog, of content and of start tags, through whole
// documents: what each construct yields, the token text that a failure
// reports, and the place it is reported at.
#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "test_util.h"
#include "xmlapi.h"

namespace {


struct Case {
    const char* label;
    UCString input;
    BATCHERR code;
    UCString message;
    int line;  // -1: the place is not checked
    int col;
    const UCChar* root;  // on success: the root's name, or null for no root
};

void RunCase(const Case& c) {
    SCOPED_TRACE(c.label);
    XmlDocument doc;
    EXPECT_EQ(doc.ParseString(c.input), c.code);
    EXPECT_EQ(Str(doc.ErrorMessage()), c.message);
    if (c.line >= 0) {
        EXPECT_EQ(doc.ErrorLine(), c.line);
        EXPECT_EQ(doc.ErrorCol(), c.col);
    }
    if (c.code == errNone) {
        if (c.root) {
            ASSERT_NE(doc.RootElement(), nullptr);
            EXPECT_EQ(Str(doc.RootElement()->Name()), c.root);
        } else {
            EXPECT_EQ(doc.RootElement(), nullptr);
        }
    }
}

TEST(PrologTokenTest, WhatEndsThePrologWithoutARoot) {
    // A prolog that ends in "nothing recognised" is a success with no root.
    const Case cases[] = {
        {"empty input", u"", errNone, u"", 1, 0, nullptr},
        {"comment only", u"<!-- c -->", errNone, u"", 1, 10, nullptr},
        {"unknown declaration", u"<!FOO><a/>", errNone, u"", 1, 4, nullptr},
        {"parameter reference without ';'", u"%pe <a/>", errNone, u"", 1, 1, nullptr},
        {"'?' without '>'", u"?x<a/>", errNone, u"", 1, 1, nullptr},
        {"comment not closed: '<!--->' is no end", u"<!---><a/>", errNone, u"", 1, 1, nullptr},
        {"processing instruction not closed", u"<?pi data", errNone, u"", 1, 9, nullptr},
    };
    for (const Case& c : cases)
        RunCase(c);
}

TEST(PrologTokenTest, TokensThatHaveNoPlaceInTheProlog) {
    const Case cases[] = {
        {"name", u"hello<a/>", errSyntax, Ux(u"hello"), 1, 1, nullptr},
        {"parameter reference", u"%pe;<a/>", errSyntax, Ux(u"%pe"), 1, 1, nullptr},
        {"instruction end", u"?><a/>", errSyntax, Ux(u"?>"), 1, 1, nullptr},
        {"quoted string with folded line end", u"'a\r\nb'<a/>", errSyntax, Ux(u"a\nb"), 1, 1, nullptr},
        {"end tag first", u"</a>", errSyntax, Ux(u"a"), 1, 2, nullptr},
        {"blank between '<' and '!'", u"< !DOCTYPE a><a/>", errSyntax, Ux(u"<"), 1, 2, nullptr},
        {"conditional section", u"<![INCLUDE[<a/>", errSyntax, Ux(u"<!["), 1, 4, nullptr},
        {"attribute-list declaration", u"<!ATTLIST a b CDATA \"c\"><a/>", errSyntax, Ux(u"<!ATTLIST"), 1, 4,
         nullptr},
        // Element and entity declarations outside a DOCTYPE have a code of
        // their own; the keyword is reported as written.
        {"entity declaration", u"<!ENTITY x \"y\"><a/>", errDeclInProlog, Ux(u"<!ENTITY"), 1, 4, nullptr},
        {"element declaration in lower case", u"<!element a ANY><a/>", errDeclInProlog, Ux(u"<!element"), 1, 4,
         nullptr},
    };
    for (const Case& c : cases)
        RunCase(c);
}

TEST(PrologTokenTest, MarkupOpeningWithoutAName) {
    // "<?" or "<!" with no name behind: reported as such, never taken for a
    // declaration. The place is that of the character read behind them.
    const Case cases[] = {
        {"'<?' and a digit", u"<?1?><a/>", errSyntax, Ux(u"<?"), 1, 3, nullptr},
        {"'<?' at the end", u"<?", errSyntax, Ux(u"<?"), 1, 2, nullptr},
        {"'<!' and a digit", u"<!1><a/>", errSyntax, Ux(u"<!"), 1, 4, nullptr},
        {"'<!' and one '-'", u"<!-x><a/>", errSyntax, Ux(u"<!"), 1, 4, nullptr},
        {"'<!' at the end", u"<!", errSyntax, Ux(u"<!"), 1, 2, nullptr},
    };
    for (const Case& c : cases)
        RunCase(c);
}

TEST(PrologTokenTest, CommentsAndProcessingInstructionsAreDropped) {
    const Case cases[] = {
        {"instruction", u"<?pi data?><a/>", errNone, u"", 1, 14, u"a"},
        {"'?>' inside a quoted string", u"<?pi 'x?>y' ?><a/>", errNone, u"", 1, 17, u"a"},
        {"target that only begins with xml", u"<?xml-stylesheet href='s'?><a/>", errNone, u"", 1, 30, u"a"},
        {"'--' inside a comment", u"<!-- a -- b --><a/>", errNone, u"", 1, 18, u"a"},
        {"comment, instruction, comment", u"<!--1--><?p?>\n<!--2-->\n<r/>", errNone, u"", 3, 3, u"r"},
    };
    for (const Case& c : cases)
        RunCase(c);
}

// "<?xml" (in any case) is an XML declaration only while nothing but
// comments and processing instructions stands before it; later it is an
// ordinary instruction and dropped. A version the parser refuses shows
// which of the two it was taken for.
TEST(PrologTokenTest, XmlDeclarationOnlyAtTheStartOfTheProlog) {
    const UCString bad = u"Unsupported XML version 2.0";
    const Case cases[] = {
        {"declaration", u"<?xml version=\"1.0\"?><a/>", errNone, u"", -1, 0, u"a"},
        {"second declaration is not read", u"<?xml version='1.0'?><?xml version='2.0'?><a/>", errNone, u"", -1,
         0, u"a"},
        {"first declaration is read", u"<?xml version='2.0'?><a/>", errSyntax, bad, -1, 0, nullptr},
        {"target in mixed case", u"<?XmL version='2.0'?><a/>", errSyntax, bad, -1, 0, nullptr},
        {"blank before the target", u"<? xml version='2.0'?><a/>", errSyntax, bad, -1, 0, nullptr},
        {"behind a comment", u"<!-- c --><?xml version='2.0'?><a/>", errSyntax, bad, -1, 0, nullptr},
    };
    for (const Case& c : cases)
        RunCase(c);
}

TEST(ContentTokenTest, TokensThatHaveNoPlaceInContent) {
    const Case cases[] = {
        {"end tag in another case", u"<a></A>", errSyntax, u"Improper element nesting", 1, 3, nullptr},
        {"blank before '>' of an end tag", u"<a></a >", errSyntax, Ux(u"a"), 1, 3, nullptr},
        {"end tag without a name", u"<a></>", errSyntax, Ux(u"<"), 1, 3, nullptr},
        {"CDATA section", u"<a><![CDATA[x]]></a>", errSyntax, Ux(u"<"), 1, 3, nullptr},
        {"'<' behind text", u"<a>x<1/></a>", errSyntax, Ux(u"<"), 1, 5, nullptr},
        {"comment not closed", u"<a><!-- open", errSyntax, Ux(u" open"), 1, 3, nullptr},
        {"end of input in content", u"<a>", errSyntax, Ux(kEof), 1, 3, nullptr},
        {"end of input behind text", u"<a>text", errSyntax, Ux(kEof), 1, 7, nullptr},
    };
    for (const Case& c : cases)
        RunCase(c);
}

TEST(ContentTokenTest, BadReferencesFail) {
    // A reference that does not resolve ends the parse; the position is that
    // of the last unit read before the reference.
    const Case cases[] = {
        {"unknown entity", u"<a>&nosuch;</a>", errSyntax, Ux(u"&nosuch;"), 1, 3, nullptr},
        {"entity cut by the end of input", u"<a>&abc", errSyntax, Ux(u"&abc" + kEof), 1, 3, nullptr},
        {"predefined names are case-sensitive", u"<a>&LT;</a>", errSyntax, Ux(u"&LT;"), 1, 3, nullptr},
        {"character reference without ';'", u"<a>&#65", errSyntax, Ux(u"&"), 1, 3, nullptr},
        {"character reference with a bad digit", u"<a>x&#6x;</a>", errSyntax, Ux(u"&"), 1, 5, nullptr},
        {"'&' before a tag", u"<a>&</a>", errSyntax, Ux(u"&"), 1, 3, nullptr},
    };
    for (const Case& c : cases)
        RunCase(c);
}

TEST(ContentTokenTest, ReferencesResolveIntoTheText) {
    const std::pair<UCString, UCString> cases[] = {
        {u"<a>&lt;&gt;&amp;&apos;&quot;</a>", u"<>&'\""},
        {u"<a>&lt;b/&gt;</a>", u"<b/>"},        // the text of an entity is no markup here
        {u"<a>&amp;lt;</a>", u"&lt;"},          // a resolved unit is not read again
        {u"<a>&#65;&#x42;&#X43;&#x6a;</a>", u"ABCj"},
        {u"<a>&#x1F600;</a>", u"\uF600"},      // no surrogate pair is made
        {u"<a>&#x;</a>", u""},                  // no digits: the value 0, which ends the text
        {u"<a>ab&#0;cd</a>", u"ab"},
        {u"<a>1&amp;<b/>2</a>", u"1&2"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.first));
        XmlDocument doc;
        ASSERT_EQ(doc.ParseString(c.first), errNone) << testing::PrintToString(Str(doc.ErrorMessage()));
        EXPECT_EQ(Str(doc.RootElement()->Data()), c.second);
    }
}

TEST(ContentTokenTest, CharacterDataAndComments) {
    const std::pair<UCString, UCString> cases[] = {
        {u"<a>x<!--c-->y<!---->z</a>", u"xyz"},
        {u"<a>x<!--->-->y</a>", u"xy"},  // "<!--->" does not end the comment
        {u"<a>]]>></a>", u"]]>>"},
        {u"<a>'\"=?%[]/</a>", u"'\"=?%[]/"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.first));
        XmlDocument doc;
        ASSERT_EQ(doc.ParseString(c.first), errNone) << testing::PrintToString(Str(doc.ErrorMessage()));
        ASSERT_NE(doc.RootElement(), nullptr);
        EXPECT_EQ(Str(doc.RootElement()->Data()), c.second);
        EXPECT_EQ(doc.RootElement()->Child(), nullptr);
    }
}

TEST(ElementBeginTokenTest, MalformedStartTags) {
    const Case cases[] = {
        {"attribute without '='", u"<a b>", errSyntax, Ux(u">"), 1, 5, nullptr},
        {"value without quotes", u"<a b=1/>", errSyntax, Ux(u"1"), 1, 6, nullptr},
        {"two names", u"<a b c='1'/>", errSyntax, Ux(u"c"), 1, 6, nullptr},
        {"'=' without a name", u"<a ='1'/>", errSyntax, Ux(u"="), 1, 4, nullptr},
        {"blank inside '/>'", u"<a / >", errSyntax, Ux(u"/"), 1, 4, nullptr},
        {"'?' in a tag", u"<a b='1'?>", errSyntax, Ux(u"?"), 1, 9, nullptr},
        {"end of input behind an attribute", u"<a b='1'", errSyntax, Ux(kEof), 1, 8, nullptr},
        {"end of input in a value", u"<a b='1", errSyntax, Ux(u"1"), 1, 6, nullptr},
    };
    for (const Case& c : cases)
        RunCase(c);
}

TEST(ElementBeginTokenTest, AttributesAreStoredRawInDocumentOrder) {
    typedef std::vector<std::pair<UCString, UCString>> Attrs;
    const std::pair<UCString, Attrs> cases[] = {
        {u"<a b='1'c=\"2\"/>", {{u"b", u"1"}, {u"c", u"2"}}},
        {u"<a  b  =  '1'  />", {{u"b", u"1"}}},
        {u"<a b='x\"y' c=\"p'q\"/>", {{u"b", u"x\"y"}, {u"c", u"p'q"}}},
        {u"<a b='<&amp;&#65;>'/>", {{u"b", u"<&amp;&#65;>"}}},
        {u"<a b='x\r\ny\rz\n\tw'/>", {{u"b", u"x\ny\nz\n\tw"}}},
        {u"<a b='1' b='2'/>", {{u"b", u"1"}, {u"b", u"2"}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.first));
        XmlDocument doc;
        ASSERT_EQ(doc.ParseString(c.first), errNone) << testing::PrintToString(Str(doc.ErrorMessage()));
        XmlElement* root = doc.RootElement();
        ASSERT_NE(root, nullptr);
        ASSERT_EQ(root->AttributeCount(), int(c.second.size()));
        for (size_t i = 0; i < c.second.size(); ++i) {
            EXPECT_EQ(Str(root->GetAttributeName(int(i))), c.second[i].first);
            EXPECT_EQ(Str(root->GetAttributeValue(int(i))), c.second[i].second);
        }
    }
}

}  // namespace
