// Content read straight from a string or file buffer must come out exactly as
// content read a unit at a time by the general tokenisers: same tree, result,
// message, error position and recorded lengths.
#include <cstdio>

#include "platform/ozmmem.h"
#include "test_util.h"

class XmlFastPathProbe {
public:
    static void GeneralOnly(XmlDocument& d) { d.m_generalOnly = true; }
};

namespace {

using namespace std::string_literals;

// Units outside printable ASCII are written as \xHHHH.
std::string Show(const UCChar* p) {
    std::string out;
    for (char hex[8]; *p; ++p)
        out += *p >= 0x20 && *p < 0x7F && *p != '\\' ? std::string(1, char(*p))
                                                      : (std::snprintf(hex, sizeof hex, "\\x%04X", unsigned(*p)), hex);
    return out;
}

void DumpTree(const XmlElement* e, int depth, std::string& out) {
    for (; e; e = e->Next()) {
        out += std::string(size_t(depth) * 2, ' ') + Show(e->Name()) + " @" + std::to_string(e->ParentPos());
        for (int i = 0; i < e->AttributeCount(); ++i)
            out += " " + Show(e->GetAttributeName(i)) + "=[" + Show(e->GetAttributeValue(i)) + "]";
        out += " {" + Show(e->Data()) + "} len " + std::to_string(e->DataLength()) + "\n";
        DumpTree(e->Child(), depth + 1, out);
    }
}

// Everything a parse leaves to be seen; the name of the source if asked.
std::string Outcome(const XmlDocument& d, BATCHERR r, bool withFile = true) {
    std::string out = "result " + std::to_string(int(r)) + " at " + (withFile ? Show(d.ErrorFile()) : "") + ":" +
                      std::to_string(d.ErrorLine()) + ":" + std::to_string(d.ErrorCol()) + " [" +
                      Show(d.ErrorMessage()) + "]\n";
    DumpTree(d.RootElement(), 0, out);
    return out + DumpDtd(d.GetDTD(), true);
}

std::string Parse(const UCString& text, bool general) {
    XmlDocument d;
    if (general)
        XmlFastPathProbe::GeneralOnly(d);
    BATCHERR r = d.ParseString(text);
    return Outcome(d, r);
}

void Same(const UCString& text) { ASSERT_EQ(Parse(text, false), Parse(text, true)) << Show(text.c_str()); }

TEST(FastPathTest, HandPickedContentMatches) {
    const UCString cases[] = {
        u"<r>plain</r>", u"<r></r>", u"<r/>", u"<r><a>x</a><b/><c></c><d>\n</d></r>", u"<r>\r\n <a>x\r\ny</a>\ry\r</r>",
        u"<r>a\u2028b<c>d\u2028e</c>\u2028</r>", u"<r>a&amp;b<c>x&lt;y</c><d>&#65;&#x42;</d><e>&unknown;</e></r>",
        u"<r><a>x&</a></r>", u"<r><a>x</b></r>", u"<r><a>x</a ></r>", u"<r><a>x</ab></r>", u"<r><ab>x</a></r>",
        u"<r><a>x</a></s>", u"<r><a/><a />\t<a\t/><a / ></r>", u"<r><a b='1' b2></a></r>",
        u"<r><a b='1' c=\"2\">t</a><a\nb='1'/><a b = '1'\n c='x\ny'>z</a></r>",
        u"<r><a b='1'c=\"2\">x</a><a\tb\t=\t'1'\t/><a b='x\"y' c=\"x'y\" d='<&>'>t</a></r>",
        u"<r><a b='1'><c d=''/>x</a><a b='v' b='w'/><a b='1' / ></r>", u"<r><a b=></a></r>", u"<r><a b='1></a></r>",
        u"<r><a b='1'x></a></r>", u"<r><a =''></a></r>", u"<r><a b c='1'></a></r>", u"<r><a b='1'>x</a><a b=1></a></r>",
        u"<r><a b='x\ry'/><a b='x\u2028y'/><a b='\xFFFF'/><a b='\U0001F600'/></r>",
        u"<r><a \u00E9='1'/><a b\u00E9='1'/><a b='\u00E9'>\u00E9</a></r>", u"<r><a b='1'\n/><a\r\nb='1'/><a b='1'\n>x</a></r>",
        u"<r><!-- c --><a><!--x-->y</a>z<!-- <b> --></r>", u"<r><?pi x?><a/></r>", u"<r><a>x<b>y</b>z</a></r>",
        u"<r>\xFFFF</r>", u"<r><a>x\xFFFFy</a></r>", u"<r><a>x\0y</a>z\0w</r>"s, u"<r>\0<a>\0</a></r>"s,
        u"<r><a b='x\0y'>z</a></r>"s, u"<r><1a>x</1a></r>", u"<r><-a>x</-a></r>", u"<r><:a>x</:a><_b.c-d>y</_b.c-d></r>",
        u"<r></>", u"<r></ r>", u"<r>< a/></r>", u"<r><a>x</a><", u"<r><a>x</a></", u"<r><a>x</a", u"<r><a>x</",
        u"<r><a>x<", u"<r><a>x", u"<r><a", u"<r><a>", u"<r>text", u"<r><\u00E9t>x</\u00E9t></r>",
        u"<r><a\u00E9>x</a\u00E9><b>y</b\u00E9></r>", u"<r>\U0001F680 <a>\U0001F680</a></r>",
        u"<r><a>x</a>trailing</r>tail", u"<r><a>x</a></r>\n<!-- after -->",
    };
    for (const UCString& text : cases)
        Same(text);
    // Seventeen attributes overflow the inline slots of an element.
    UCString many = u"<r><a";
    for (int i = 1; i <= 17; ++i)
        many += Num(u" a", i) + u"='" + Num(u"", i) + u"'";
    Same(many + u">x</a></r>");
    // Leaves at the deepest level that may have content, and one level deeper.
    for (int levels : {XmlDocument::MaxDepth - 1, XmlDocument::MaxDepth, XmlDocument::MaxDepth + 1}) {
        UCString open, close;
        for (int i = 0; i < levels; ++i)
            open += u"<l>", close += u"</l>";
        Same(open + u"<leaf>x</leaf><e/>" + close);
        Same(open + u"<leaf></leaf>" + close);
    }
    // End tags differing only in their last unit, names across the vector
    // width, and more blank-separated leaves than one level keeps as spans.
    for (const UCString name : {u"abcd", u"abcdefghi", u"abcdefghijklmno", u"abcdefghijklmnop", u"abcdefghijklmnopq"}) {
        const UCString wrong = name.substr(0, name.size() - 1) + u"z";
        Same(u"<r><" + name + u">x</" + wrong + u"></r>");
        Same(u"<r><" + name + u"><e/></" + wrong + u"></r>");
        Same(u"<r><" + name + u"1 " + name + u".-='v'>x</" + name + u"1></r>");
    }
    for (const UCString end : {u"</r>", u"&amp;</r>", u"<!--c--></r>"}) {
        UCString leaves = u"<r>";
        for (int i = 0; i < 40; ++i)
            leaves += u"\n \t <a>x</a>";
        Same(leaves + u"\n  " + end);
    }
    // A stop unit at each offset of text and values, beside units that pack
    // to the bytes nearest the stop set's.
    for (const UCChar stop : {UCChar(0), UCChar(0xFFFF), UCChar(0x2028), UCChar(13), UCChar(0xFFFE), UCChar(0x8000)})
        for (size_t at = 0; at < 40; ++at) {
            UCString text(40, u'\x7F');
            text[at] = stop;
            Same(u"<r><a b='" + text + u"'>" + text + u"</a>\n" + UCString(at % 20, u' ') + u"<c/></r>");
        }
    // Every prefix of a document that uses each kind of content.
    const UCString doc = u"<?xml version='1.0'?>\n<!-- head -->\n<r a='1'>\n  <g id=\"x\">\n    <leaf>text</leaf>\n"
                         u"    <e/><f />\n    <m>mixed<i>in</i>tail&amp;more</m>\r\n    <n>a\nb</n><q>&#x41;</q>\n"
                         u"  </g>\n  <!-- c --><z>\u00E9\u20AC\U0001F600</z>\n</r>\n";
    for (size_t n = 0; n <= doc.size(); ++n)
        Same(doc.substr(0, n));
}

// References to entities of plain text are taken by the fast path, others
// left to the general reader, at every place a reference may stand.
TEST(FastPathTest, ReferencesMatch) {
    const UCString dtd = u"<!DOCTYPE r [<!ELEMENT r ANY><!ELEMENT a (#PCDATA)><!ENTITY s 'Smith'><!ENTITY e '\u00E9'><!ENTITY nl 'a&#10;b'><!ENTITY z ''>"
                         u"<!ENTITY m '<a/>'><!ENTITY t 'x&#9;y'><!ENTITY gt 'G'><!ENTITY ls 'a&#x2028;b'>"
                         u"<!ENTITY a 'A'><!ENTITY i 'I'>]>";
    const UCString cases[] = {
        u"<r>&s;</r>", u"<r>x&s;</r>", u"<r>&s;x</r>", u"<r>&s;&s;</r>", u"<r>&s;&bad;</r>", u"<r>x&s;&bad;y</r>",
        u"<r>&s;&bad</r>", u"<r><a>&s;</a>&s;<b/>&s;\n <c k='&s;'>&s;y</c></r>", u"<r>&s;<", u"<r>&s;", u"<r>&s",
        u"<r>&s;&", u"<r>&s;</x></r>", u"<r>&s;<1/></r>", u"<r>&s;</r >", u"<r>&gt;&apos;&quot;&lt;&amp;&e;</r>",
        u"<r>&nl;x&z;y&m;&t;&s;</r>", u"<r>&s;\n<a>x&s;</a>\r\n&s;<!--c-->&s;</r>", u"<r>&S;&s ;&s:x;&\u00E9;</r>",
        u"<r>&s;\xFFFF</r>", u"<r>&s;<a>&s;&s;&s;</a></r>", u"<r>&ls;x</y></r>", u"<r>&a;&i;&a;x&i;&i;</r>",
    };
    for (const UCString& text : cases) {
        Same(text);
        Same(dtd + text);
    }
    // A document parsed again finds the entities of its new definition.
    XmlDocument reused;
    for (const UCChar* value : {u"one", u"two"}) {
        ASSERT_EQ(reused.ParseString(u"<!DOCTYPE r [<!ELEMENT r ANY><!ENTITY s '" + UCString(value) + u"'>]><r>&s;.</r>"),
                  errNone);
        EXPECT_EQ(Show(reused.RootElement()->Data()), Show((UCString(value) + u".").c_str()));
    }
    // The expansion allowance runs out among references the fast path takes.
    UCString many = u"<!DOCTYPE r [<!ELEMENT r ANY><!ENTITY k '" + UCString(1000, u'k') + u"'>]><r>";
    for (int i = 0; i < 9000; ++i)
        many += i % 2 ? u"&k;" : u"<a>&k;</a>";
    Same(many + u"</r>");
}

// Start tags whose name the general reader has read (the root's, one behind
// a reference it reads) have the rest taken as the fast path takes tags.
TEST(FastPathTest, StartTagsBehindTheGeneralReaderMatch) {
    const UCString dtd = u"<!DOCTYPE r [<!ELEMENT r ANY><!ATTLIST r a CDATA #IMPLIED b CDATA #IMPLIED>"
                         u"<!ATTLIST a x CDATA #IMPLIED>]>";
    UCString many = u"<r";
    for (int i = 1; i <= 17; ++i)
        many += Num(u" a", i) + u"='" + Num(u"", i) + u"'";
    const UCString cases[] = {
        u"<r a='1' b=\"2\">x</r>", u"<r a='1'/>", u"<r a='1' />", u"<r\ta='1'\t>x</r>", u"<r a='1'\n b='2'>x</r>",
        u"<r a=1>x</r>", u"<r a='1'b='2'>x</r>", u"<r a='1' a='2'/>", u"<r a='1' b='2'", u"<r a='1' ", u"<r ",
        u"<r \u00E9='1'>x</r>", u"<r a='\u00E9'>x</r>", u"<r/>", u"<r />", u"<r >x</r>", u"<r a='1' / >x</r>",
        u"<r a='<&>'>&bad;<a x='1'>y</a>&bad; <a x='2' x='3'/></r>", u"<r>&bad;<a x='1' y='2'\n/></r>",
        many + u">x</r>", many + u"/>",
    };
    for (const UCString& text : cases) {
        Same(text);
        Same(dtd + text);
    }
}

// The element that gets no slab fails at the same place both ways.
TEST(FastPathTest, FailedSlabAllocationMatches) {
    UCString text = u"<r>";
    for (int i = 0; i < 1500; ++i)
        text += i % 3 == 0 ? u"\n <a>x</a>" : i % 3 == 1 ? u"<b/>" : u"<c k='v'>y</c>";
    for (long allowed : {0L, 1L}) {
        OzmMemFailAfter(allowed);
        std::string fast = Parse(text + u"</r>", false);
        OzmMemFailAfter(allowed);
        std::string slow = Parse(text + u"</r>", true);
        OzmMemFailAfter(-1);
        EXPECT_EQ(fast, slow);
        EXPECT_NE(fast.find("Out of memory for element"), std::string::npos) << fast.substr(0, 200);
    }
}

// Random documents from fragments each path treats differently, half with a
// definition whose lengths both record, with units at random places changed.
TEST(FastPathTest, RandomDocumentsMatch) {
    const UCString pieces[] = {
        u"<a>", u"</a>", u"<b>", u"</b>", u"<a/>", u"<b />", u"<a x='1'>", u"<b y=\"2\" z='3'/>", u"text", u" ",
        u"\n  ", u"\r\n", u"\r", u"&amp;", u"&#65;", u"&bad;", u"&", u"<", u"</", u">", u"<!--c-->", u"\u00E9",
        u"\u2028", u"\U0001F600", u"<\u00E9>", u"</\u00E9>", u"\t", u"<a>leaf</a>", u"<b>x\ny</b>", u"<a></a>", u"=", u"'",
        u"&s;", u"&s;", u"&nl;", u"&z;", u"&gt;", u"&s"};
    const UCString dtd = u"<!DOCTYPE r [<!ELEMENT r ANY><!ELEMENT a ANY><!ELEMENT b (#PCDATA)>"
                         u"<!ATTLIST a x CDATA #IMPLIED><!ATTLIST b z CDATA #IMPLIED y CDATA #IMPLIED>"
                         u"<!ENTITY s 'Smith'><!ENTITY nl 'a&#10;b'><!ENTITY z ''>]>";
    const UCChar odd[] = {u'<', u'>', u'/', u'&', 0, 0xFFFF, 13, 10, u' ', u'a', 0xE9};
    std::mt19937 rng(20261122);
    for (int round = 0; round < 3000 && !testing::Test::HasFatalFailure(); ++round) {
        UCString text = round % 2 ? dtd + u"<r>" : u"<r>";
        for (int i = int(rng() % 24); i > 0; --i)
            text += pieces[rng() % std::size(pieces)];
        if (rng() % 4 != 0)
            text += u"</r>";
        if (rng() % 3 == 0)
            text[rng() % text.size()] = odd[rng() % std::size(odd)];
        Same(text);
    }
}

// A file is read in blocks; tokens cut by a block end are read the general
// way. The tree and an error far into the file match the string.
TEST(FastPathTest, FileBlocksMatchString) {
    TempDir dir;
    std::mt19937 rng(7);
    std::string body;
    for (int i = 0; i < 12000; ++i) {
        std::string pad(rng() % 13, 'p');
        const std::string forms[] = {"\n  <leaf>" + pad + "</leaf>", "<e/>", "<g k='" + pad + "'>" + pad + "<i>\xC3\xA9</i></g>", pad,
                                     "&s;" + pad.substr(0, 2) + "&s;"};
        body += forms[rng() % 5];
    }
    for (const char* tail : {"</r>", "<x>oops</y></r>"}) {
        const std::string head = "<!DOCTYPE r [<!ELEMENT r ANY><!ENTITY s 'Smith'>]><r>";
        const UCString path = U(dir.Write("blocks.xml", head + body + tail));
        XmlDocument fast, slow, str;
        XmlFastPathProbe::GeneralOnly(slow);
        BATCHERR fr = fast.ParseFile(path.c_str()), sr = slow.ParseFile(path.c_str());
        EXPECT_EQ(Outcome(fast, fr), Outcome(slow, sr));
        BATCHERR strResult = str.ParseString(U(head + body + tail));
        EXPECT_EQ(Outcome(fast, fr, false), Outcome(str, strResult, false));
    }
}

}  // namespace
