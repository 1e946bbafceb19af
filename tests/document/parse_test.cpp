// Documents parsed into the tree: the joining of character data, white
// space, nothing read behind the root, the nesting limit, what is left after
// a failure, and the reuse of one document object for several parses.
#include <gtest/gtest.h>

#include "test_util.h"

namespace {

// The tree as text: name{data}[attributes](children), siblings by blanks.
UCString Tree(const XmlElement* e) {
    UCString out;
    for (; e; e = e->Next()) {
        out += (out.empty() ? u"" : u" ") + Str(e->Name()) + u"{" + Str(e->Data()) + u"}";
        for (int i = 0; i < e->AttributeCount(); ++i)
            out += u"[" + Str(e->GetAttributeName(i)) + u"=" + Str(e->GetAttributeValue(i)) + u"]";
        if (e->Child())
            out += u"(" + Tree(e->Child()) + u")";
        for (const XmlElement* c = e->Child(); c; c = c->Next())
            EXPECT_TRUE(c->Parent() == e && c->ParentPos() == 0) << Narrow(Str(c->Name()));
    }
    return out;
}

// Nested elements l0 ... l(levels-1), with `inner` inside the innermost.
UCString Nested(int levels, const UCString& inner) {
    UCString open, close;
    for (int i = 0; i < levels; ++i) {
        open += u"<" + Num(u"l", i) + u">";
        close = u"</" + Num(u"l", i) + u">" + close;
    }
    return open + inner + close;
}

TEST(ParseDocumentTest, TreesAndFailures) {
    const struct {
        UCString input;
        BATCHERR code;
        UCString message, tree;
    } cases[] = {
        {u"", errNone, u"", u""},
        {u"<a/>", errNone, u"", u"a{}"},
        {u"<a></a>", errNone, u"", u"a{}"},
        // Text is stored when the element ends, joined around its children.
        {u"<r>1<a>2<b>3</b>4</a>5<c/>6<a>7</a></r>", errNone, u"", u"r{156}(a{24}(b{3}) c{} a{7})"},
        {u"<r>\r\n  <a/>\n\t<b> </b>\r\n</r>", errNone, u"", u"r{\n  \n\t\n}(a{} b{ })"},
        // Nothing behind the root is read.
        {u"<a></a>&junk;<<<!--", errNone, u"", u"a{}"},
        {u"<a/><b/><?xml?><!DOCTYPE x>\xFFFF", errNone, u"", u"a{}"},
        {u"<a><b></a>", errSyntax, u"Improper element nesting", u"a{}(b{})"},
        {u"<a></A>", errSyntax, u"Improper element nesting", u"a{}"},
        {u"<ab></a>", errSyntax, u"Improper element nesting", u"ab{}"},
        {u"<a></ab>", errSyntax, u"Improper element nesting", u"a{}"},
        // What was built before a failure stays; an element without its end
        // tag has no data, a start tag that fails is never attached.
        {u"<a>x<b>y</b><c>z<d/>", errSyntax, Ux(kEof), u"a{}(b{y} c{}(d{}))"},
        {u"<a><b c='1' d></b></a>", errSyntax, Ux(u">"), u"a{}"},
        {u"<a b>", errSyntax, Ux(u">"), u""},
        // Twenty levels with content parse; an empty-element tag below them
        // needs no content parsing.
        {Nested(20, u"deep<x/>"), errNone, u"",
         u"l0{}(l1{}(l2{}(l3{}(l4{}(l5{}(l6{}(l7{}(l8{}(l9{}(l10{}(l11{}(l12{}(l13{}(l14{}(l15{}(l16{}(l17{}(l18{}"
         u"(l19{deep}(x{}))))))))))))))))))))"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(Narrow(c.input.substr(0, 60)));
        XmlDocument doc;
        EXPECT_EQ(doc.ParseString(c.input), c.code);
        EXPECT_EQ(Str(doc.ErrorMessage()), c.message);
        EXPECT_EQ(Tree(doc.RootElement()), c.tree);
        if (doc.RootElement()) {
            EXPECT_EQ(doc.RootElement()->Parent(), nullptr);
            EXPECT_EQ(doc.RootElement()->Next(), nullptr);
        }
    }
}

TEST(ParseDocumentTest, ContentAtTheTwentyFirstLevelIsTooDeep) {
    for (const UCString& inner : {UCString(u"<x></x>"), UCString(u"<x a='1'>")}) {
        SCOPED_TRACE(Narrow(inner));
        XmlDocument doc;
        UCString input = Nested(20, inner);
        EXPECT_EQ(doc.ParseString(input), errSyntax);
        EXPECT_EQ(Str(doc.ErrorMessage()), u"Element nesting too deep");
        // Raised between tokens: the place is that of the '>' that closes
        // the start tag of x, which is attached to l19.
        EXPECT_EQ(doc.ErrorCol(), int(input.find(u'>', input.find(u"<x"))) + 1);
        const XmlElement* e = doc.RootElement();
        for (int i = 0; i < 20 && e; ++i)
            e = e->Child();
        ASSERT_NE(e, nullptr);
        EXPECT_EQ(Str(e->Name()) + Str(e->Parent()->Name()), u"xl19");
    }
    // The limit is per level, not per element; the object parses normally
    // after a failure.
    UCString inner;
    for (int i = 0; i < 50; ++i)
        inner += u"<s>t</s>";
    XmlDocument doc;
    ASSERT_EQ(doc.ParseString(Nested(19, inner)), errNone);
    EXPECT_EQ(doc.ParseString(Nested(21, u"")), errSyntax);
    ASSERT_EQ(doc.ParseString(Nested(20, u"ok")), errNone);
    EXPECT_EQ(Str(doc.ErrorMessage()), u"");
}

TEST(ParseDocumentTest, EachParseReplacesTheDocument) {
    XmlDocument doc;
    ASSERT_EQ(doc.ParseString(u"<first><x>1</x></first>"), errNone);
    doc.Version(2.5);
    doc.Encoding(OZM_CSET(4));
    ASSERT_EQ(doc.ParseString(u"<second y='2'/>"), errNone);
    EXPECT_EQ(Tree(doc.RootElement()), u"second{}[y=2]");
    EXPECT_EQ(doc.Version(), 1.0);
    EXPECT_EQ(doc.Encoding(), OZM_CSET(1));
    ASSERT_EQ(doc.ParseString(u"<!-- nothing -->"), errNone);
    EXPECT_EQ(doc.RootElement(), nullptr);
    // Clear discards a partial tree and leaves the declaration values alone.
    EXPECT_EQ(doc.ParseString(u"<a><b>"), errSyntax);
    doc.Version(3.0);
    doc.Clear();
    EXPECT_EQ(doc.RootElement(), nullptr);
    EXPECT_EQ(doc.ElementBlocks()->FreeCount(), 1000);
    EXPECT_EQ(doc.Version(), 3.0);
}

}  // namespace
