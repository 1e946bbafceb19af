// Document parsing into the tree: the root, the joining of character data,
// white space, the nesting limit, what is left after a failure, and the reuse
// of one document object for several parses.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "xmlapi.h"

namespace {

UCString Str(const UCChar* p) { return p ? UCString(p) : UCString(u"<null>"); }
UCString Ux(const UCString& token) { return u"Unexpected token '" + token + u"'"; }
const UCString kEof(1, UCEof);

std::vector<XmlElement*> Children(const XmlElement* e) {
    std::vector<XmlElement*> out;
    for (XmlElement* c = e->Child(); c; c = c->Next())
        out.push_back(c);
    return out;
}

// Nested elements l0 ... l(levels-1), with `inner` inside the innermost.
UCString Nested(int levels, const UCString& inner) {
    UCString open, close;
    for (int i = 0; i < levels; ++i) {
        std::string n = "l" + std::to_string(i);
        UCString name(n.begin(), n.end());
        open += u"<" + name + u">";
        close = u"</" + name + u">" + close;
    }
    return open + inner + close;
}

TEST(ParseDocumentTest, EmptyInputGivesNoRoot) {
    XmlDocument doc;
    EXPECT_EQ(doc.ParseString(u""), errNone);
    EXPECT_EQ(doc.RootElement(), nullptr);
    EXPECT_EQ(Str(doc.ErrorMessage()), u"");
    EXPECT_EQ(Str(doc.ErrorFile()), u"string");
    UCString empty;
    EXPECT_EQ(doc.ParseString(empty), errNone);
    EXPECT_EQ(doc.RootElement(), nullptr);
}

TEST(ParseDocumentTest, EmptyElementTag) {
    XmlDocument doc;
    ASSERT_EQ(doc.ParseString(u"<a/>"), errNone);
    XmlElement* root = doc.RootElement();
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(Str(root->Name()), u"a");
    ASSERT_NE(root->Data(), nullptr);
    EXPECT_EQ(Str(root->Data()), u"");
    EXPECT_EQ(root->Child(), nullptr);
    EXPECT_EQ(root->Next(), nullptr);
    EXPECT_EQ(root->Parent(), nullptr);
    EXPECT_EQ(root->AttributeCount(), 0);
    EXPECT_EQ(root->Mark(), 0);
}

TEST(ParseDocumentTest, EmptyContent) {
    XmlDocument doc;
    ASSERT_EQ(doc.ParseString(u"<a></a>"), errNone);
    ASSERT_NE(doc.RootElement(), nullptr);
    EXPECT_EQ(Str(doc.RootElement()->Data()), u"");
    EXPECT_EQ(doc.RootElement()->Child(), nullptr);
}

TEST(ParseDocumentTest, TextAroundChildrenIsJoined) {
    XmlDocument doc;
    ASSERT_EQ(doc.ParseString(u"<a>x<b/>y</a>"), errNone);
    XmlElement* a = doc.RootElement();
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(Str(a->Data()), u"xy");
    std::vector<XmlElement*> kids = Children(a);
    ASSERT_EQ(kids.size(), 1u);
    EXPECT_EQ(Str(kids[0]->Name()), u"b");
    EXPECT_EQ(kids[0]->Parent(), a);
    EXPECT_EQ(kids[0]->ParentPos(), 0);

    // Text is stored when the element ends, so every child has ParentPos 0.
    ASSERT_EQ(doc.ParseString(u"<r>text<a/>more<b/></r>"), errNone);
    XmlElement* r = doc.RootElement();
    EXPECT_EQ(Str(r->Data()), u"textmore");
    kids = Children(r);
    ASSERT_EQ(kids.size(), 2u);
    EXPECT_EQ(Str(kids[0]->Name()), u"a");
    EXPECT_EQ(Str(kids[1]->Name()), u"b");
    EXPECT_EQ(kids[0]->ParentPos(), 0);
    EXPECT_EQ(kids[1]->ParentPos(), 0);
}

TEST(ParseDocumentTest, EachLevelCollectsItsOwnText) {
    XmlDocument doc;
    ASSERT_EQ(doc.ParseString(u"<r>1<a>2<b>3</b>4</a>5<c/>6<a>7</a></r>"), errNone);
    XmlElement* r = doc.RootElement();
    ASSERT_NE(r, nullptr);
    EXPECT_EQ(Str(r->Data()), u"156");
    std::vector<XmlElement*> kids = Children(r);
    ASSERT_EQ(kids.size(), 3u);
    EXPECT_EQ(Str(kids[0]->Name()), u"a");
    EXPECT_EQ(Str(kids[0]->Data()), u"24");
    EXPECT_EQ(Str(kids[1]->Name()), u"c");
    EXPECT_EQ(Str(kids[1]->Data()), u"");
    EXPECT_EQ(Str(kids[2]->Name()), u"a");
    EXPECT_EQ(Str(kids[2]->Data()), u"7");
    EXPECT_EQ(r->FindNext(u"a"), nullptr);
    EXPECT_EQ(kids[0]->FindNext(u"a"), kids[2]);
    std::vector<XmlElement*> grand = Children(kids[0]);
    ASSERT_EQ(grand.size(), 1u);
    EXPECT_EQ(Str(grand[0]->Name()), u"b");
    EXPECT_EQ(Str(grand[0]->Data()), u"3");
    EXPECT_EQ(grand[0]->Parent(), kids[0]);
    EXPECT_EQ(kids[0]->Parent(), r);
}

TEST(ParseDocumentTest, WhiteSpaceIsKeptAsData) {
    XmlDocument doc;
    ASSERT_EQ(doc.ParseString(u"<r>\r\n  <a/>\n\t<b> </b>\r\n</r>"), errNone);
    XmlElement* r = doc.RootElement();
    ASSERT_NE(r, nullptr);
    EXPECT_EQ(Str(r->Data()), u"\n  \n\t\n");
    std::vector<XmlElement*> kids = Children(r);
    ASSERT_EQ(kids.size(), 2u);
    EXPECT_EQ(Str(kids[1]->Data()), u" ");
}

TEST(ParseDocumentTest, NothingBehindTheRootIsRead) {
    const UCString inputs[] = {
        u"<a/>trailing junk", u"<a></a><b></b>", u"<a/><b/>", u"<a></a>&junk;<<<!--", u"<a/><?xml?><!DOCTYPE x>",
        u"<a/>\xFFFF",
    };
    for (const UCString& in : inputs) {
        SCOPED_TRACE(testing::PrintToString(in));
        XmlDocument doc;
        ASSERT_EQ(doc.ParseString(in), errNone) << testing::PrintToString(Str(doc.ErrorMessage()));
        ASSERT_NE(doc.RootElement(), nullptr);
        EXPECT_EQ(Str(doc.RootElement()->Name()), u"a");
        EXPECT_EQ(doc.RootElement()->Next(), nullptr);
        EXPECT_EQ(doc.ElementBlocks()->FreeCount(), 999);
    }
}

TEST(ParseDocumentTest, TwentyLevelsOfContentParse) {
    XmlDocument doc;
    ASSERT_EQ(doc.ParseString(Nested(20, u"deep<x/>")), errNone) << testing::PrintToString(Str(doc.ErrorMessage()));
    XmlElement* e = doc.RootElement();
    for (int i = 0; i < 19; ++i) {
        ASSERT_NE(e, nullptr);
        e = e->Child();
    }
    ASSERT_NE(e, nullptr);
    EXPECT_EQ(Str(e->Name()), u"l19");
    EXPECT_EQ(Str(e->Data()), u"deep");
    // An empty-element tag at the 21st level needs no content parsing.
    ASSERT_NE(e->Child(), nullptr);
    EXPECT_EQ(Str(e->Child()->Name()), u"x");
}

TEST(ParseDocumentTest, ContentAtTheTwentyFirstLevelIsTooDeep) {
    for (const UCString& inner : {UCString(u"<x></x>"), UCString(u"<x>text</x>"), UCString(u"<x a='1'>")}) {
        SCOPED_TRACE(testing::PrintToString(inner));
        XmlDocument doc;
        UCString input = Nested(20, inner);
        EXPECT_EQ(doc.ParseString(input), errSyntax);
        EXPECT_EQ(Str(doc.ErrorMessage()), u"Element nesting too deep");
        // Raised between tokens: the place is that of the last token, the
        // '>' that closes the start tag of x.
        size_t close = input.find(u'>', input.find(u"<x"));
        EXPECT_EQ(doc.ErrorLine(), 1);
        EXPECT_EQ(doc.ErrorCol(), int(close) + 1);
        // The tree stands as far as it was built: x is attached to l19, and
        // no element has data, since no end tag was read.
        XmlElement* e = doc.RootElement();
        for (int i = 0; i < 20; ++i) {
            ASSERT_NE(e, nullptr) << i;
            EXPECT_EQ(Str(e->Data()), u"");
            e = e->Child();
        }
        ASSERT_NE(e, nullptr);
        EXPECT_EQ(Str(e->Name()), u"x");
        EXPECT_EQ(Str(e->Parent()->Name()), u"l19");
    }
}

TEST(ParseDocumentTest, NestingLimitIsPerLevelNotPerElement) {
    // Many siblings at the deepest level with content are fine.
    UCString inner;
    for (int i = 0; i < 50; ++i)
        inner += u"<s>t</s>";
    XmlDocument doc;
    ASSERT_EQ(doc.ParseString(Nested(19, inner)), errNone) << testing::PrintToString(Str(doc.ErrorMessage()));
    // And the object parses normally after a nesting failure.
    EXPECT_EQ(doc.ParseString(Nested(21, u"")), errSyntax);
    ASSERT_EQ(doc.ParseString(Nested(20, u"ok")), errNone);
    EXPECT_EQ(Str(doc.ErrorMessage()), u"");
}

TEST(ParseDocumentTest, ImproperNesting) {
    XmlDocument doc;
    EXPECT_EQ(doc.ParseString(u"<a><b></a>"), errSyntax);
    EXPECT_EQ(Str(doc.ErrorMessage()), u"Improper element nesting");
    XmlElement* a = doc.RootElement();
    ASSERT_NE(a, nullptr);
    ASSERT_NE(a->Child(), nullptr);
    EXPECT_EQ(Str(a->Child()->Name()), u"b");

    EXPECT_EQ(doc.ParseString(u"<a></A>"), errSyntax);
    EXPECT_EQ(Str(doc.ErrorMessage()), u"Improper element nesting");
    EXPECT_EQ(doc.ParseString(u"<a><b></b></b>"), errSyntax);
    EXPECT_EQ(Str(doc.ErrorMessage()), u"Improper element nesting");
    EXPECT_EQ(doc.ParseString(u"<ab></a>"), errSyntax);
    EXPECT_EQ(Str(doc.ErrorMessage()), u"Improper element nesting");
    EXPECT_EQ(doc.ParseString(u"<a></ab>"), errSyntax);
    EXPECT_EQ(Str(doc.ErrorMessage()), u"Improper element nesting");
}

TEST(ParseDocumentTest, TreeBuiltBeforeAFailureStaysReachable) {
    XmlDocument doc;
    EXPECT_EQ(doc.ParseString(u"<a>x<b>y</b><c>z<d/>"), errSyntax);
    EXPECT_EQ(Str(doc.ErrorMessage()), Ux(kEof));
    XmlElement* a = doc.RootElement();
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(Str(a->Data()), u"");  // no end tag: no data
    std::vector<XmlElement*> kids = Children(a);
    ASSERT_EQ(kids.size(), 2u);
    EXPECT_EQ(Str(kids[0]->Data()), u"y");
    EXPECT_EQ(Str(kids[1]->Name()), u"c");
    EXPECT_EQ(Str(kids[1]->Data()), u"");
    ASSERT_NE(kids[1]->Child(), nullptr);
    EXPECT_EQ(Str(kids[1]->Child()->Name()), u"d");

    // A failing root start tag leaves no root.
    EXPECT_EQ(doc.ParseString(u"<a b>"), errSyntax);
    EXPECT_EQ(doc.RootElement(), nullptr);
    // Clear discards a partial tree.
    EXPECT_EQ(doc.ParseString(u"<a><b>"), errSyntax);
    ASSERT_NE(doc.RootElement(), nullptr);
    doc.Clear();
    EXPECT_EQ(doc.RootElement(), nullptr);
    EXPECT_EQ(doc.ElementBlocks()->FreeCount(), 1000);
}

TEST(ParseDocumentTest, ChildStartTagFailureIsReportedWithItsToken) {
    XmlDocument doc;
    EXPECT_EQ(doc.ParseString(u"<a><b c='1' d></b></a>"), errSyntax);
    EXPECT_EQ(Str(doc.ErrorMessage()), Ux(u">"));
    ASSERT_NE(doc.RootElement(), nullptr);
    EXPECT_EQ(doc.RootElement()->Child(), nullptr);  // b was never attached
}

TEST(ParseDocumentTest, EachParseReplacesTheDocument) {
    XmlDocument doc;
    ASSERT_EQ(doc.ParseString(u"<first><x>1</x></first>"), errNone);
    ASSERT_EQ(Str(doc.RootElement()->Name()), u"first");
    ASSERT_EQ(doc.ParseString(u"<second y='2'/>"), errNone);
    XmlElement* root = doc.RootElement();
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(Str(root->Name()), u"second");
    EXPECT_EQ(root->Child(), nullptr);
    EXPECT_EQ(root->AttributeCount(), 1);
    EXPECT_EQ(Str(root->Data()), u"");
    // A prolog without root after a document leaves no root either.
    ASSERT_EQ(doc.ParseString(u"<!-- nothing -->"), errNone);
    EXPECT_EQ(doc.RootElement(), nullptr);

    // The text is read, never changed, and can be parsed again.
    const UCString text = u"<p>q</p>";
    ASSERT_EQ(doc.ParseString(text), errNone);
    ASSERT_EQ(doc.ParseString(text), errNone);
    EXPECT_EQ(text, u"<p>q</p>");
    EXPECT_EQ(Str(doc.RootElement()->Data()), u"q");
}

TEST(ParseDocumentTest, DeclarationValuesAreResetByEachParse) {
    XmlDocument doc;
    EXPECT_EQ(doc.Version(), 1.0);
    EXPECT_EQ(doc.Encoding(), OZM_CSET(1));
    doc.Version(2.5);
    doc.Encoding(OZM_CSET(4));
    EXPECT_EQ(doc.Version(), 2.5);
    EXPECT_EQ(doc.Encoding(), OZM_CSET(4));
    ASSERT_EQ(doc.ParseString(u"<a/>"), errNone);
    EXPECT_EQ(doc.Version(), 1.0);
    EXPECT_EQ(doc.Encoding(), OZM_CSET(1));
    // Clear leaves them alone.
    doc.Version(3.0);
    doc.Clear();
    EXPECT_EQ(doc.Version(), 3.0);
}

TEST(ParseDocumentTest, RootElementSetterOnlyReplacesThePointer) {
    XmlDocument doc;
    ASSERT_EQ(doc.ParseString(u"<a><b/></a>"), errNone);
    XmlElement* a = doc.RootElement();
    XmlElement* b = a->Child();
    doc.RootElement(b);
    EXPECT_EQ(doc.RootElement(), b);
    EXPECT_EQ(Str(a->Name()), u"a");  // still alive
    EXPECT_EQ(doc.ElementBlocks()->FreeCount(), 998);
    doc.RootElement(nullptr);
    EXPECT_EQ(doc.RootElement(), nullptr);
}

}  // namespace
