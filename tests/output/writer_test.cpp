// The writers: XmlElement::Write, XmlDocument::Write, WriteEscaped,
// XmlElement::GetData, trees deeper than any stack, and reading written
// documents back.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "xmlapi.h"

namespace {

// A tree described in place: name, attributes, data, children.
struct Node {
    const UCChar* name;
    std::vector<std::pair<const UCChar*, const UCChar*>> attributes;
    const UCChar* data;
    std::vector<Node> children;
};

XmlElement* Build(XmlDocument& doc, const Node& n) {
    XmlElement* e = doc.NewElement();
    e->Name(n.name);
    for (const auto& a : n.attributes)
        e->AddAttribute(a.first, a.second);
    e->Data(n.data);
    for (const Node& c : n.children)
        e->Child(Build(doc, c));
    return e;
}

struct ElementCase {
    const char* what;
    Node tree;
    int indent;
    bool escape, lineBreaks;
    int step;
    bool writeEmpty;
    const UCChar* expected;
};

const Node kEmpty{u"r", {}, u"", {}};
const Node kAttrOnly{u"r", {{u"a", u"1"}, {u"b", u"x&amp;y"}}, u"", {}};
const Node kMixed{u"r", {}, u"text", {{u"b", {}, u"x", {{u"c", {{u"k", u"v"}}, u"y", {}}}}, {u"d", {}, u"z", {}}}};

const ElementCase kElementCases[] = {
    {"empty skipped", kEmpty, 0, true, true, 4, false, u""},
    {"empty indented", kEmpty, 2, true, true, 4, true, u"  <r/>\n"},
    {"attributes as held", kAttrOnly, 0, true, false, 4, true, u"<r a=\"1\" b=\"x&amp;y\"/>"},
    {"parent of a skipped child", {u"p", {}, u"", {kAttrOnly}}, 0, true, true, 4, false, u"<p>\n</p>\n"},
    {"skipped child leaves no line",
     {u"p", {}, u"", {{u"x", {}, u"1", {}}, kEmpty, {u"y", {}, u"2", {}}}}, 0, true, true, 4, false,
     u"<p>\n    <x>1</x>\n    <y>2</y>\n</p>\n"},
    {"data and children", kMixed, 0, true, true, 4, false,
     u"<r>text\n    <b>x\n        <c k=\"v\">y</c>\n    </b>\n    <d>z</d>\n</r>\n"},
    {"indent and step", kMixed, 3, true, true, 2, false,
     u"   <r>text\n     <b>x\n       <c k=\"v\">y</c>\n     </b>\n     <d>z</d>\n   </r>\n"},
    {"one line without line breaks", kMixed, 8, true, false, 4, false,
     u"<r>text<b>x<c k=\"v\">y</c></b><d>z</d></r>"},
    {"escaped data", {u"d", {{u"q", u"<&amp;'"}}, u"a<b&c\"d'e>f", {}}, 0, true, false, 4, false,
     u"<d q=\"<&amp;'\">a&lt;b&amp;c&quot;d&apos;e&gt;f</d>"},
    {"unescaped data", {u"d", {{u"q", u"<&amp;'"}}, u"a<b&c\"d'e>f", {}}, 0, false, false, 4, false,
     u"<d q=\"<&amp;'\">a<b&c\"d'e>f</d>"},
    {"without its siblings", {u"p", {}, u"", {{u"x", {}, u"1", {}}, {u"y", {}, u"2", {}}}}, 0, true, false, 4, false,
     u"<p><x>1</x><y>2</y></p>"},
    {"empty children written", {u"p", {}, u"", {kEmpty, kAttrOnly}}, 0, false, true, 4, true,
     u"<p>\n    <r/>\n    <r a=\"1\" b=\"x&amp;y\"/>\n</p>\n"},
};

class WriterTest : public ::testing::Test {};

TEST_F(WriterTest, ElementText) {
    for (const ElementCase& c : kElementCases) {
        SCOPED_TRACE(c.what);
        XmlDocument doc;
        XmlElement* e = Build(doc, c.tree);
        UCString out;
        XmlOutputStream s;
        s.SetString(&out);
        e->Write(s, c.indent, c.escape, c.lineBreaks, c.step, c.writeEmpty);
        EXPECT_EQ(out, c.expected);
        // Writing changes nothing: a second pass gives the same text.
        UCString again;
        s.SetString(&again);
        e->Write(s, c.indent, c.escape, c.lineBreaks, c.step, c.writeEmpty);
        EXPECT_EQ(again, out);
    }
}

TEST_F(WriterTest, WriteEscaped) {
    const struct {
        const UCChar* in;
        const UCChar* out;
    } cases[] = {
        {u"", u""},
        {u"plain", u"plain"},
        {u"a<b", u"a&lt;b"},
        {u"\"&'<>", u"&quot;&amp;&apos;&lt;&gt;"},
        {u"&amp;", u"&amp;amp;"},
        {u"\u00E9\t\x01=?;", u"\u00E9\t\x01=?;"},  // no numeric references
    };
    for (const auto& c : cases) {
        UCString out = u"[";
        XmlOutputStream s;
        s.SetString(&out);
        WriteEscaped(s, c.in);
        EXPECT_EQ(out, u"[" + UCString(c.out));
    }
    // A reference, and the end, at every place of a run.
    for (const UCChar special : {u'>', u'\0'}) {
        for (size_t at = 0; at < 24; ++at) {
            UCString in(24, u'=');
            in[at] = special;
            UCString out;
            XmlOutputStream s;
            s.SetString(&out);
            WriteEscaped(s, in.c_str());
            EXPECT_EQ(out, UCString(at, u'=') + (special ? u"&gt;" + UCString(23 - at, u'=') : u"")) << at;
        }
    }
    // A long run with references at both ends, larger than any gathering buffer.
    const UCString body(20000, u'x');
    UCString out;
    XmlOutputStream s;
    s.SetString(&out);
    WriteEscaped(s, (u">" + body + u"&").c_str());
    EXPECT_EQ(out, u"&gt;" + body + u"&amp;");
}

struct DocumentCase {
    const char* what;
    bool withRoot;
    const UCChar* data;  // of the root element r
    double version;
    OZM_CSET encoding;
    int parts;
    bool lineBreaks, writeEmpty;
    const UCChar* expected;
};

#define DECL u"<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
const DocumentCase kDocumentCases[] = {
    {"whole, empty root skipped", true, u"", 1.0, csetUTF8, 7, true, false, DECL u"\n\n"},
    {"whole, empty root written", true, u"", 1.0, csetUTF8, 7, true, true, DECL u"\n\n<r/>\n"},
    {"whole without line breaks", true, u"x", 1.0, csetUTF8, 7, false, false, DECL u"<r>x</r>"},
    {"nothing", true, u"x", 1.0, csetUTF8, 0, true, true, u""},
    {"all bits", true, u"x", 1.0, csetUTF8, -1, true, true, DECL u"\n\n<r>x</r>\n"},
    {"tree alone", true, u"x", 1.0, csetUTF8, 4, true, false, u"<r>x</r>\n"},
    {"definition part alone", true, u"x", 1.0, csetUTF8, 2, true, false, u"\n"},
    {"declaration alone", true, u"x", 1.0, csetUTF8, 1, false, false, DECL},
    {"no root", false, u"", 1.0, csetUTF8, 7, true, true, DECL u"\n\n"},
    {"version rounded", true, u"", 1.06, csetUTF8, 1, false, false, u"<?xml version=\"1.1\" encoding=\"UTF-8\"?>"},
    {"default set", true, u"", 1.0, csetDefault, 1, false, false, DECL},
    {"Latin-1", true, u"", 2.0, csetISO8859_1, 1, true, false,
     u"<?xml version=\"2.0\" encoding=\"ISO-8859-1\"?>\n"},
};
#undef DECL

TEST_F(WriterTest, DocumentText) {
    for (const DocumentCase& c : kDocumentCases) {
        SCOPED_TRACE(c.what);
        XmlDocument doc;
        if (c.withRoot)
            doc.RootElement(Build(doc, {u"r", {}, c.data, {}}));
        doc.Version(c.version);
        doc.Encoding(c.encoding);
        UCString out;
        XmlOutputStream s;
        s.SetString(&out);
        EXPECT_EQ(doc.Write(s, true, c.lineBreaks, true, c.parts, c.writeEmpty), errNone);
        EXPECT_EQ(out, c.expected);
    }
}

TEST(GetDataTest, Modes) {
    XmlDocument doc;
    XmlElement* r = Build(doc, {u"r",
                                {{u"at", u"v"}},
                                u"x",
                                {{u"b", {{u"k", u"v"}}, u"y&", {{u"c", {}, u"<z>", {}}}}, {u"e", {}, u"", {}}, {u"f", {}, u"w", {}}}});
    const struct {
        XMLD mode;
        const UCChar* expected;
    } cases[] = {
        {XMLD_Own, u"prex"},
        {XMLD_Text, u"prexy&<z>w"},
        {XMLD_Markup, u"prex<b>y&<c><z></c></b><e></e><f>w</f>"},
        {XMLD(7), u"prexy&<z>w"},
        {XMLD(-1), u"prexy&<z>w"},
    };
    for (const auto& c : cases) {
        UCString out = u"pre";
        r->GetData(out, c.mode);
        EXPECT_EQ(out, c.expected) << int(c.mode);
    }
    UCString below;
    r->Child()->GetData(below, XMLD_Markup);
    EXPECT_EQ(below, u"y&<c><z></c>");
}

// A caller-built chain of a million nested elements is written and collected
// without recursion.
TEST(WriteDeepTreeTest, MillionLevels) {
    constexpr size_t kDepth = 1000000;
    XmlDocument doc;
    XmlElement* root = doc.NewElement();
    root->Name(u"e");
    XmlElement* leaf = root;
    for (size_t i = 1; i < kDepth; ++i) {
        XmlElement* c = doc.NewElement();
        c->Name(u"e");
        leaf->Child(c);
        leaf = c;
    }
    leaf->AddAttribute(u"n", u"1");
    leaf->Data(u"leaf");
    doc.RootElement(root);
    auto repeat = [](const UCChar* piece, size_t n) {
        UCString s;
        for (size_t i = 0; i < n; ++i)
            s += piece;
        return s;
    };
    const UCString open = repeat(u"<e>", kDepth - 1), close = repeat(u"</e>", kDepth - 1);

    UCString out;
    XmlOutputStream s;
    s.SetString(&out);
    EXPECT_EQ(doc.Write(s, false, false, true, 4, false), errNone);
    EXPECT_TRUE(out == open + u"<e n=\"1\">leaf</e>" + close);

    UCString data;
    root->GetData(data, XMLD_Markup);
    EXPECT_TRUE(data == open + u"leaf" + close);
    data.clear();
    root->GetData(data, XMLD_Text);
    EXPECT_EQ(data, u"leaf");

    // Without its data the leaf is skipped; its parent still has a child.
    leaf->Data(u"");
    std::string utf8;
    XmlOutputStream u;
    u.SetUTFString(&utf8);
    root->Write(u, 0, true, false, 4, false);
    EXPECT_EQ(utf8.size(), 7 * (kDepth - 1));
    EXPECT_EQ(utf8.compare(utf8.size() - 8, 8, "</e></e>"), 0);
    EXPECT_EQ(utf8.compare(0, 6, "<e><e>"), 0);
}

// Documents written and read back give the same tree, and the same text
// when written again; with the declaration in front too.
struct RoundTrip {
    const char* name;
    UCString source;
};

UCString Nested(int depth) {
    UCString s;
    for (int i = 0; i < depth; ++i)
        s += u"<n" + UCString(1, UCChar(u'a' + i)) + u" d=\"" + UCString(1, UCChar(u'0' + i % 10)) + u"\">t";
    for (int i = depth - 1; i >= 0; --i)
        s += u"</n" + UCString(1, UCChar(u'a' + i)) + u">";
    return s;
}

UCString Siblings(int count) {
    UCString s = u"<list>";
    for (int i = 0; i < count; ++i)
        s += i % 3 ? u"<item v=\"" + UCString(size_t(i % 7), u'v') + u"\">" + UCString(size_t(i % 5), u'x') + u"</item>"
                   : u"<empty/>";
    return s + u"</list>";
}

const RoundTrip kRoundTrips[] = {
    {"Empty", u"<r/>"},
    {"Attributes", u"<r a=\"1\" b=\"\" a=\"2\"><c>text</c><c/><d x='y'>more</d></r>"},
    {"MixedContent", u"<r>one<a>two</a>three<b/>four</r>"},
    {"WhiteSpaceBetweenChildren", u"<r>\n  <a>1</a>\n\t<b> 2 </b>\n</r>"},
    {"NonAscii", u"<r\u00E9 \u4E2D=\"\u00FC\u20AC\">\u0416\u4E2D\U0001F600</r\u00E9>"},
    {"ReferencesInAttributes", u"<r a=\"x&amp;y&lt;&#65;\" b='q&quot;'/>"},
    {"CommentsAndInstructions", u"<?pi data?><!-- c --><r><!-- in -->t<s/><!-- after --></r>"},
    {"DeepNesting", Nested(19)},
    {"ManySiblings", Siblings(300)},
    {"EscapedData", u"<r>a&lt;b&amp;c&gt;d</r>"},
    {"QuotesInData", u"<r>it&apos;s &quot;q&quot;<c>&amp;</c></r>"},
    {"GreaterThanInData", u"<r>a>b</r>"},
};

void ExpectSameTree(const XmlElement* a, const XmlElement* b) {
    ASSERT_TRUE(a && b);
    EXPECT_EQ(UCString(a->Name()), UCString(b->Name()));
    EXPECT_EQ(UCString(a->Data()), UCString(b->Data()));
    ASSERT_EQ(a->AttributeCount(), b->AttributeCount());
    for (int i = 0; i < a->AttributeCount(); ++i) {
        EXPECT_EQ(UCString(a->GetAttributeName(i)), UCString(b->GetAttributeName(i)));
        EXPECT_EQ(UCString(a->GetAttributeValue(i)), UCString(b->GetAttributeValue(i)));
    }
    const XmlElement* x = a->Child();
    const XmlElement* y = b->Child();
    for (; x && y; x = x->Next(), y = y->Next())
        ExpectSameTree(x, y);
    EXPECT_EQ(x, nullptr);
    EXPECT_EQ(y, nullptr);
}

TEST(WriteRoundTripTest, ReadsBackToTheSameTree) {
    for (const RoundTrip& c : kRoundTrips) {
        SCOPED_TRACE(c.name);
        XmlDocument source;
        ASSERT_EQ(source.ParseString(c.source), errNone) << source.ErrorLine() << ":" << source.ErrorCol();
        for (int parts : {4, 5}) {
            UCString written;
            XmlOutputStream s;
            s.SetString(&written);
            ASSERT_EQ(source.Write(s, false, false, true, parts, true), errNone);
            EXPECT_EQ(written.rfind(u"<?xml version=\"1.0\" encoding=\"UTF-8\"?><", 0) == 0, parts == 5);
            XmlDocument back;
            ASSERT_EQ(back.ParseString(written), errNone) << back.ErrorLine() << ":" << back.ErrorCol();
            ExpectSameTree(source.RootElement(), back.RootElement());
            UCString again;
            s.SetString(&again);
            back.Write(s, false, false, true, parts, true);
            EXPECT_EQ(again, written);
        }
    }
}

}  // namespace
