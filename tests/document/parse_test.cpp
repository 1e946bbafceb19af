// Documents parsed into the tree: joined character data, nothing read behind
// the root, the nesting limit, what a failure leaves, the error state, and
// large inputs that must not exhaust the stack.
#include "test_util.h"

namespace {

// Nested elements l0 ... l(levels-1), with inner inside the innermost.
UCString Nested(int levels, const UCString& inner) {
    UCString open, close;
    for (int i = 0; i < levels; ++i)
        open += u"<" + Num(u"l", i) + u">", close = u"</" + Num(u"l", i) + u">" + close;
    return open + inner + close;
}

TEST(ParseDocumentTest, TreesFailuresAndPlaces) {
    const UCString deep = u"<l0><l1><l2><l3><l4><l5><l6><l7><l8><l9><l10><l11><l12><l13><l14><l15><l16><l17><l18><l19>";
    CheckParses({
        {u"", errNone, u"", 1, 0, u""},
        {u"<a/>", errNone, u"", 1, 3, u"a{}"},
        {u"<a></a>", errNone, u"", 1, 3, u"a{}"},
        {u"<a>\n<b/>\n</a>", errNone, u"", 3, 1, u"a{\n\n}(b{})"},
        {u"  <!-- c -->  ", errNone, u"", 1, 14, u""},
        {u"<r>1<a>2<b>3</b>4</a>5<c/>6<a>7</a></r>", errNone, u"", 1, 35, u"r{156}(a{24}(b{3}) c{} a{7})"},
        {u"<r>\r\n  <a/>\n\t<b> </b>\r\n</r>", errNone, u"", 4, 1, u"r{\n  \n\t\n}(a{} b{ })"},
        {u"<a></a>&junk;<<<!--", errNone, u"", 1, 3, u"a{}"},
        {u"<a/><b/><?xml?><!DOCTYPE x>\xFFFF", errNone, u"", 1, 3, u"a{}"},
        {u"<a>\n\n<b></a>", errSyntax, u"Improper element nesting", 3, 3, u""},
        {u"<a><b></a>", errSyntax, u"Improper element nesting", 1, 6, u"a{}(b{})"},
        {u"<a></A>", errSyntax, u"Improper element nesting", 1, 3, u"a{}"},
        {u"<ab></a>", errSyntax, u"Improper element nesting", 1, 4, u"ab{}"},
        {u"<a></ab>", errSyntax, u"Improper element nesting", 1, 3, u"a{}"},
        {u"<a>x<b>y</b><c>z<d/>", errSyntax, Ux(kEof), 1, 20, u"a{}(b{y} c{}(d{}))"},
        {u"<a><b c='1' d></b></a>", errSyntax, Ux(u">"), 1, 14, u"a{}"},
        {u"\u00E9t\u00E9\u4E00<a/>", errSyntax, Ux(u"\u00E9t\u00E9\u4E00"), 1, 1, u""},
        {u"'%s %d %%'<a/>", errSyntax, Ux(u"%s %d %%"), 1, 1, u""},
        {Nested(20, u"<x></x>"), errSyntax, u"Element nesting too deep", 1, int(deep.size()) + 3, u""},
        {Nested(20, u"<x a='1'>"), errSyntax, u"Element nesting too deep", 1, int(deep.size()) + 9, u""},
        {Repeat(u"<!", 100000) + u"DOCTYPE a><a/>", errSyntax, Ux(u"<!"), -1, 0, u""},
        {Repeat(u"<?", 100000) + u"pi?><a/>", errSyntax, Ux(u"<?"), -1, 0, u""},
        {Repeat(u"<!", 100000), errSyntax, Ux(u"<!"), -1, 0, u""},
        {Repeat(u"<a>", 100000), errSyntax, u"Element nesting too deep", 1, 63, u""},
    });
    XmlDocument doc;
    // Below twenty levels content parses; an element at the twenty-first is
    // attached to l19 before the failure.
    ASSERT_EQ(doc.ParseString(Nested(20, u"<x></x>")), errSyntax);
    const XmlElement* e = doc.RootElement();
    for (int i = 0; i < 20 && e; ++i)
        e = e->Child();
    ASSERT_NE(e, nullptr);
    EXPECT_EQ(Str(e->Name()) + Str(e->Parent()->Name()), u"xl19");
    ASSERT_EQ(doc.ParseString(Nested(19, Repeat(u"<s>t</s>", 50))), errNone);
    ASSERT_EQ(doc.ParseString(Nested(20, u"deep<x/>")), errNone);
    EXPECT_EQ(Str(doc.RootElement()->Child()->Child()->Child()->Name()), u"l3");
}

TEST(ParseDocumentTest, LargeInputs) {
    XmlDocument doc;
    ASSERT_EQ(doc.ParseString(u"<r>" + Repeat(u"<x/>", 1000000) + u"</r>"), errNone);
    int n = 0, blocks = 0;
    for (XmlElement* x = doc.RootElement()->Child(); x; x = x->Next())
        n += x->Parent() == doc.RootElement();
    for (XmlElementBlock* b = doc.ElementBlocks(); b; b = b->Next())
        ++blocks;
    EXPECT_EQ(n, 1000000);
    EXPECT_EQ(blocks * 10000 + doc.ElementBlocks()->FreeCount(), 1001 * 10000 + 999);
    EXPECT_EQ(doc.ErrorCol(), 3 + 4 * 1000000);

    const UCString text = u"<a>" + Repeat(u"line\n", 800000);
    for (const UCString end : {u"</a>", u"</b>"}) {
        EXPECT_EQ(doc.ParseString(text + end), end == u"</a>" ? errNone : errSyntax);
        EXPECT_EQ(doc.ErrorLine() * 10 + doc.ErrorCol(), 8000011);
    }
    EXPECT_EQ(Str(doc.ErrorMessage()), u"Improper element nesting");
    ASSERT_EQ(doc.ParseString(u"<a>" + Repeat(u"ab\r\n", 500000) + u"</a>"), errNone);
    EXPECT_EQ(doc.RootElement()->DataLength() * 10 + doc.ErrorLine(), 15000000 + 500001);

    const UCString name(100000, u'n');
    const UCString big = u"<!--" + Repeat(u"- -> <a/>", 100000) + u"-->\n<" + name + u" k='" + Repeat(u"v\r\n", 300000) +
                         u"'>" + Repeat(u"<!--c-->", 50000) + u"</" + name + u">";
    ASSERT_EQ(doc.ParseString(big), errNone);
    EXPECT_EQ(Str(doc.RootElement()->Name()), name);
    EXPECT_EQ(Str(doc.RootElement()->GetAttributeValue(u"k")), Repeat(u"v\n", 300000));
    EXPECT_EQ(doc.ErrorLine(), 300002);
    UCString attrs;
    for (int i = 0; i < 5000; ++i)
        attrs += u" a='" + Repeat(u"x", size_t(i % 7)) + u"'";
    ASSERT_EQ(doc.ParseString(u"<e" + attrs + u"/>"), errNone);
    EXPECT_EQ(doc.RootElement()->AttributeCount(), 5000);
    EXPECT_EQ(Str(doc.RootElement()->GetAttributeValue(4999)), u"x");
}

}  // namespace
