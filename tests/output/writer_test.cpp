// The writers: XmlElement::Write, XmlDocument::Write, WriteEscaped,
// XmlElement::GetData, a tree deeper than any stack, documents read and written.
#include "test_util.h"

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

const Node kEmpty{u"r", {}, u"", {}}, kAttrOnly{u"r", {{u"a", u"1"}, {u"b", u"x&amp;y"}}, u"", {}};
const Node kMixed{u"r", {}, u"text", {{u"b", {}, u"x", {{u"c", {{u"k", u"v"}}, u"y", {}}}}, {u"d", {}, u"z", {}}}};
const Node kQuoted{u"d", {{u"q", u"<&amp;'"}}, u"a<b&c\"d'e>f", {}};
const Node kSkipped{u"p", {}, u"", {{u"x", {}, u"1", {}}, kEmpty, {u"y", {}, u"2", {}}}};

TEST(WriterTest, ElementText) {
    const struct {
        Node tree;
        int indent;
        bool escape, lineBreaks;
        int step;
        bool writeEmpty;
        const UCChar* expected;
    } cases[] = {
        {kEmpty, 0, true, true, 4, false, u""},
        {kEmpty, 2, true, true, 4, true, u"  <r/>\n"},
        {kAttrOnly, 0, true, false, 4, true, u"<r a=\"1\" b=\"x&amp;y\"/>"},
        {{u"p", {}, u"", {kAttrOnly}}, 0, true, true, 4, false, u"<p>\n</p>\n"},
        {kSkipped, 0, true, true, 4, false, u"<p>\n    <x>1</x>\n    <y>2</y>\n</p>\n"},
        {kSkipped, 0, true, false, 4, false, u"<p><x>1</x><y>2</y></p>"},
        {kMixed, 0, true, true, 4, false, u"<r>text\n    <b>x\n        <c k=\"v\">y</c>\n    </b>\n    <d>z</d>\n</r>\n"},
        {kMixed, 3, true, true, 2, false, u"   <r>text\n     <b>x\n       <c k=\"v\">y</c>\n     </b>\n     <d>z</d>\n   </r>\n"},
        {kMixed, 8, true, false, 4, false, u"<r>text<b>x<c k=\"v\">y</c></b><d>z</d></r>"},
        {kQuoted, 0, true, false, 4, false, u"<d q=\"<&amp;'\">a&lt;b&amp;c&quot;d&apos;e&gt;f</d>"},
        {kQuoted, 0, false, false, 4, false, u"<d q=\"<&amp;'\">a<b&c\"d'e>f</d>"},
        {{u"p", {}, u"", {kEmpty, kAttrOnly}}, 0, false, true, 4, true, u"<p>\n    <r/>\n    <r a=\"1\" b=\"x&amp;y\"/>\n</p>\n"},
    };
    for (const auto& c : cases) {
        XmlDocument doc;
        XmlElement* e = Build(doc, c.tree);
        auto write = [&](XmlOutputStream& s) { e->Write(s, c.indent, c.escape, c.lineBreaks, c.step, c.writeEmpty); };
        EXPECT_EQ(Written(write), c.expected);
    }
}

// References at every place of a run and in one longer than any buffer.
TEST(WriterTest, WriteEscaped) {
    auto escaped = [](const UCString& in) { return Written([&](XmlOutputStream& s) { WriteEscaped(s, in.c_str()); }); };
    EXPECT_EQ(escaped(u"\"&'<>&amp;\u00E9\t\x01=?;"), u"&quot;&amp;&apos;&lt;&gt;&amp;amp;\u00E9\t\x01=?;");
    for (const UCChar special : {u'>', u'\0'}) {
        for (size_t at = 0; at < 24; ++at) {
            UCString in(24, u'=');
            in[at] = special;
            EXPECT_EQ(escaped(in), UCString(at, u'=') + (special ? u"&gt;" + UCString(23 - at, u'=') : u"")) << at;
        }
    }
    const UCString body(20000, u'x');
    EXPECT_EQ(escaped(u">" + body + u"&"), u"&gt;" + body + u"&amp;");
}

#define DECL u"<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
TEST(WriterTest, DocumentText) {
    const struct {
        bool withRoot;
        const UCChar* data;  // of the root element r
        double version;
        OZM_CSET encoding;
        int parts;
        bool lineBreaks, writeEmpty;
        const UCChar* expected;
    } cases[] = {
        {true, u"", 1.0, csetUTF8, 7, true, false, DECL u"\n\n"},
        {true, u"", 1.0, csetUTF8, 7, true, true, DECL u"\n\n<r/>\n"},
        {true, u"x", 1.0, csetUTF8, 7, false, false, DECL u"<r>x</r>"},
        {true, u"x", 1.0, csetUTF8, 0, true, true, u""},
        {true, u"x", 1.0, csetUTF8, -1, true, true, DECL u"\n\n<r>x</r>\n"},
        {true, u"x", 1.0, csetUTF8, 4, true, false, u"<r>x</r>\n"},
        {true, u"x", 1.0, csetUTF8, 2, true, false, u"\n"},
        {true, u"x", 1.0, csetUTF8, 1, false, false, DECL},
        {false, u"", 1.0, csetUTF8, 7, true, true, DECL u"\n\n"},
        {true, u"", 1.06, csetUTF8, 1, false, false, u"<?xml version=\"1.1\" encoding=\"UTF-8\"?>"},
        {true, u"", 1.0, csetDefault, 1, false, false, DECL},
        {true, u"", 2.0, csetISO8859_1, 1, true, false, u"<?xml version=\"2.0\" encoding=\"UTF-8\"?>\n"},
        {true, u"", 1.0, csetUTF16BE, 1, false, false, u"<?xml version=\"1.0\" encoding=\"UTF-16BE\"?>"},
    };
    for (const auto& c : cases) {
        XmlDocument doc;
        if (c.withRoot)
            doc.RootElement(Build(doc, {u"r", {}, c.data, {}}));
        doc.Version(c.version);
        doc.Encoding(c.encoding);
        EXPECT_EQ(Written([&](XmlOutputStream& s) { doc.Write(s, true, c.lineBreaks, true, c.parts, c.writeEmpty); }),
                  c.expected);
    }
}

#undef DECL

TEST(WriterTest, GetData) {
    XmlDocument doc;
    XmlElement* r = Build(doc, {u"r", {{u"at", u"v"}}, u"x",
                                {{u"b", {{u"k", u"v"}}, u"y&", {{u"c", {}, u"<z>", {}}}}, kEmpty, {u"f", {}, u"w", {}}}});
    const std::pair<XMLD, const UCChar*> cases[] = {{XMLD_Own, u"prex"}, {XMLD_Text, u"prexy&<z>w"},
                                                    {XMLD_Markup, u"prex<b>y&<c><z></c></b><r></r><f>w</f>"},
                                                    {XMLD(7), u"prexy&<z>w"}, {XMLD(-1), u"prexy&<z>w"}};
    for (const auto& [mode, expected] : cases) {
        UCString out = u"pre";
        r->GetData(out, mode);
        EXPECT_EQ(out, expected) << int(mode);
    }
    UCString below;  // without the siblings
    EXPECT_EQ((r->Child()->GetData(below, XMLD_Markup), below), u"y&<c><z></c>");
}

// A million nested elements are written and collected without recursion.
TEST(WriterTest, MillionLevels) {
    constexpr size_t kDepth = 1000000;
    XmlDocument doc;
    XmlElement* root = Build(doc, {u"e", {}, u"", {}});
    XmlElement* leaf = root;
    for (size_t i = 1; i < kDepth; ++i)
        leaf->Child(Build(doc, {u"e", {}, u"", {}})), leaf = leaf->Child();
    leaf->AddAttribute(u"n", u"1");
    leaf->Data(u"leaf");
    doc.RootElement(root);
    UCString open, close, data;
    for (size_t i = 1; i < kDepth; ++i)
        open += u"<e>", close += u"</e>";
    EXPECT_TRUE(Written([&](XmlOutputStream& s) { doc.Write(s, false, false, true, 4, false); }) ==
                open + u"<e n=\"1\">leaf</e>" + close);
    root->GetData(data, XMLD_Markup);
    EXPECT_TRUE(data == open + u"leaf" + close);
    leaf->Data(u"");  // skipped now; its parent still has a child
    EXPECT_TRUE(Written([&](XmlOutputStream& s) { root->Write(s, 0, true, false, 4, false); }) == open + close);
}

}  // namespace
