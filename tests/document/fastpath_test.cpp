// Content read straight from a string or file buffer must come out exactly as
// content read a unit at a time by the general tokenisers: the same tree,
// result, message and error position. Each case is parsed both ways and the
// outcomes compared.
#include <gtest/gtest.h>

#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "dtdparser/dtd_dump.h"
#include "ozmmem.h"
#include "test_files.h"
#include "xmlapi.h"

class XmlFastPathProbe {
public:
    static void GeneralOnly(XmlDocument& d) { d.m_generalOnly = true; }
};

namespace {

using namespace std::string_literals;

// Units outside printable ASCII are written as \xHHHH.
std::string Show(const UCChar* p) {
    std::string out;
    for (; *p; ++p) {
        if (*p >= 0x20 && *p < 0x7F && *p != '\\') {
            out.push_back(char(*p));
        } else {
            char hex[8];
            std::snprintf(hex, sizeof hex, "\\x%04X", unsigned(*p));
            out += hex;
        }
    }
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
std::string Outcome(const XmlDocument& d, BATCHERR result, bool withFile = true) {
    std::string out = "result " + std::to_string(int(result)) + " at " + (withFile ? Show(d.ErrorFile()) : "") +
                      ":" + std::to_string(d.ErrorLine()) + ":" +
                      std::to_string(d.ErrorCol()) + " [" + Show(d.ErrorMessage()) + "]\n";
    DumpTree(d.RootElement(), 0, out);
    return out + DumpDtd(d.GetDTD(), true);  // with the lengths recorded
}

class FastPathTest : public ::testing::Test {
protected:
    static std::string FromString(const UCString& text) {
        XmlDocument d;
        BATCHERR r = d.ParseString(text);
        return Outcome(d, r);
    }
    static std::string UnitByUnit(const UCString& text) {
        XmlDocument d;
        XmlFastPathProbe::GeneralOnly(d);
        BATCHERR r = d.ParseString(text);
        return Outcome(d, r);
    }
    // Parses text both ways; a failure shows the text and both outcomes.
    static void Same(const UCString& text) {
        std::string fast = FromString(text);
        std::string slow = UnitByUnit(text);
        ASSERT_EQ(fast, slow) << "input: " << Show(text.c_str());
    }
};

TEST_F(FastPathTest, HandPickedContentMatches) {
    const UCString nameStartBeyondAscii = u"<r><\u00E9t>x</\u00E9t></r>";
    const UCString nameCharBeyondAscii = u"<r><a\u00E9>x</a\u00E9><b>y</b\u00E9></r>";
    const std::vector<UCString> cases = {
        u"<r>plain</r>",
        u"<r></r>",
        u"<r><a>x</a><b/><c></c><d>\n</d></r>",
        u"<r>\n  <a>one\ntwo\n</a>\n  <b>3</b>\n</r>",
        u"<r>\r\n  <a>x\r\ny</a>\ry\r</r>",
        u"<r>a\u2028b<c>d\u2028e</c>\u2028</r>",
        u"<r>a&amp;b<c>x&lt;y</c><d>&#65;&#x42;</d><e>&unknown;</e></r>",
        u"<r><a>x&</a></r>",
        u"<r><a>x</b></r>",
        u"<r><a>x</a ></r>",
        u"<r><a>x</ab></r>",
        u"<r><ab>x</a></r>",
        u"<r><a>x</a></s>",
        u"<r><a/><a />\t<a\t/><a / ></r>",
        u"<r><a b='1' c=\"2\">t</a><a\nb='1'/><a b = '1'\n c='x\ny'>z</a></r>",
        u"<r><a b='1' b2></a></r>",
        u"<r><a b='1'c=\"2\">x</a><a\tb\t=\t'1'\t/><a b='x\"y' c=\"x'y\" d='<&>'>t</a></r>",
        u"<r><a b='1'><c d=''/>x</a><a b='v' b='w'/><a b='1' / ></r>",
        u"<r><a b=></a></r>",
        u"<r><a b='1></a></r>",
        u"<r><a b='1'x></a></r>",
        u"<r><a =''></a></r>",
        u"<r><a b c='1'></a></r>",
        u"<r><a b='x\ry'/><a b='x\u2028y'/><a b='\xFFFF'/><a b='\U0001F600'/></r>",
        u"<r><a \u00E9='1'/><a b\u00E9='1'/><a b='\u00E9'>\u00E9</a></r>",
        u"<r><a b='1'\n/><a\r\nb='1'/><a b='1'\n>x</a></r>",
        u"<r><a a1='1' a2='2' a3='3' a4='4' a5='5' a6='6' a7='7' a8='8' a9='9' a10='10' a11='11' a12='12' "
        u"a13='13' a14='14' a15='15' a16='16'>x</a><a a1='1' a2='2' a3='3' a4='4' a5='5' a6='6' a7='7' a8='8' "
        u"a9='9' a10='10' a11='11' a12='12' a13='13' a14='14' a15='15' a16='16' a17='17'>x</a></r>",
        u"<r><a b='1'>x</a><a b=1></a></r>",
        u"<r><!-- c --><a><!--x-->y</a>z<!-- <b> --></r>",
        u"<r><?pi x?><a/></r>",
        u"<r><a>x<b>y</b>z</a></r>",
        u"<r>\xFFFF</r>",
        u"<r><a>x\xFFFFy</a></r>",
        u"<r><a>x\0y</a>z\0w</r>"s,
        u"<r>\0<a>\0</a></r>"s,
        u"<r><a b='x\0y'>z</a></r>"s,
        u"<r><1a>x</1a></r>",
        u"<r><-a>x</-a></r>",
        u"<r><:a>x</:a><_b.c-d>y</_b.c-d></r>",
        u"<r></>",
        u"<r></ r>",
        u"<r>< a/></r>",
        u"<r><a>x</a><",
        u"<r><a>x</a></",
        u"<r><a>x</a",
        u"<r><a>x</",
        u"<r><a>x<",
        u"<r><a>x",
        u"<r><a",
        u"<r><a>",
        u"<r>text",
        nameStartBeyondAscii,
        nameCharBeyondAscii,
        u"<r>\U0001F680 <a>\U0001F680</a></r>",
        u"<r><a>x</a>trailing</r>tail",
        u"<r/>",
        u"<r><a>x</a></r>\n<!-- after -->",
    };
    for (const UCString& text : cases)
        Same(text);
}

// Every prefix of a document that uses each kind of content ends the same
// way, wherever the input is cut.
TEST_F(FastPathTest, EveryCutOfADocumentMatches) {
    const UCString doc =
        u"<?xml version='1.0'?>\n<!-- head -->\n<r a='1'>\n  <g id=\"x\">\n    <leaf>text</leaf>\n"
        u"    <e/><f />\n    <m>mixed<i>in</i>tail&amp;more</m>\r\n    <n>a\nb</n><q>&#x41;</q>\n"
        u"  </g>\n  <!-- c --><z>\u00E9\u20AC\U0001F600</z>\n</r>\n";
    for (size_t n = 0; n <= doc.size(); ++n)
        Same(doc.substr(0, n));
}

// The element that gets no slab fails at the same place both ways.
TEST_F(FastPathTest, FailedSlabAllocationMatches) {
    UCString text = u"<r>";
    for (int i = 0; i < 1500; ++i)
        text += i % 3 == 0 ? u"\n <a>x</a>" : i % 3 == 1 ? u"<b/>" : u"<c k='v'>y</c>";
    text += u"</r>";
    for (long allowed : {0L, 1L}) {
        OzmMemFailAfter(allowed);
        std::string fast = FromString(text);
        OzmMemFailAfter(allowed);
        std::string slow = UnitByUnit(text);
        OzmMemFailAfter(-1);
        EXPECT_EQ(fast, slow);
        EXPECT_NE(fast.find("Out of memory for element"), std::string::npos) << fast.substr(0, 200);
    }
}

// Leaves at the deepest level that may have content, and one level deeper.
TEST_F(FastPathTest, NestingLimitMatches) {
    for (int levels : {XmlDocument::MaxDepth - 1, XmlDocument::MaxDepth, XmlDocument::MaxDepth + 1}) {
        UCString open, close;
        for (int i = 0; i < levels; ++i) {
            open += u"<l>";
            close += u"</l>";
        }
        Same(open + u"<leaf>x</leaf><e/>" + close);
        Same(open + u"<leaf></leaf>" + close);
    }
}

// Random documents built from fragments that each path treats differently,
// with units at random places changed.
TEST_F(FastPathTest, RandomDocumentsMatch) {
    const std::vector<UCString> pieces = {
        u"<a>",  u"</a>", u"<b>",   u"</b>",  u"<a/>",   u"<b />", u"<a x='1'>", u"<b y=\"2\" z='3'/>",
        u"text", u" ",    u"\n  ",  u"\r\n",  u"\r",     u"&amp;", u"&#65;",     u"&bad;",
        u"&",    u"<",    u"</",    u">",     u"<!--c-->", u"\u00E9", u"\u2028",  u"\U0001F600",
        u"<\u00E9>", u"</\u00E9>", u"\t", u"<a>leaf</a>", u"<b>x\ny</b>", u"<a></a>", u"=", u"'",
    };
    // Half of them with a definition, whose lengths both paths record.
    const UCString dtd = u"<!DOCTYPE r [<!ELEMENT r ANY><!ELEMENT a ANY><!ELEMENT b (#PCDATA)>"
                         u"<!ATTLIST a x CDATA #IMPLIED><!ATTLIST b z CDATA #IMPLIED y CDATA #IMPLIED>]>";
    std::mt19937 rng(20261122);
    for (int round = 0; round < 3000; ++round) {
        UCString text = round % 2 ? dtd + u"<r>" : u"<r>";
        const int count = int(rng() % 24);
        for (int i = 0; i < count; ++i)
            text += pieces[rng() % pieces.size()];
        if (rng() % 4 != 0)
            text += u"</r>";
        if (rng() % 3 == 0 && !text.empty()) {
            static const UCChar odd[] = {u'<', u'>', u'/', u'&', 0, 0xFFFF, 13, 10, u' ', u'a', 0xE9};
            text[rng() % text.size()] = odd[rng() % (sizeof odd / sizeof odd[0])];
        }
        Same(text);
        if (HasFatalFailure())
            return;
    }
}

// A file is read in blocks; tokens cut by the end of a block are read the
// general way. The tree and an error far into the file match the string.
TEST_F(FastPathTest, FileBlocksMatchString) {
    TempDir dir;
    ASSERT_TRUE(dir.Ok());
    std::mt19937 rng(7);
    std::string body;
    for (int i = 0; i < 12000; ++i) {
        std::string pad(rng() % 13, 'p');
        switch (rng() % 4) {
        case 0: body += "\n  <leaf>" + pad + "</leaf>"; break;
        case 1: body += "<e/>"; break;
        case 2: body += "<g k='" + pad + "'>" + pad + "<i>\xC3\xA9</i></g>"; break;
        default: body += pad; break;
        }
    }
    for (const std::string& tail : {std::string("</r>"), std::string("<x>oops</y></r>")}) {
        std::string utf8 = "<r>" + body + tail;
        std::string path = dir.Write("blocks.xml", utf8);
        UCString text;
        OzmGlob::DecodeUTF8(reinterpret_cast<const unsigned char*>(utf8.data()), utf8.size(), text);
        UCString upath(path.begin(), path.end());
        XmlDocument fast, slow;
        XmlFastPathProbe::GeneralOnly(slow);
        BATCHERR fastResult = fast.ParseFile(upath.c_str());
        BATCHERR slowResult = slow.ParseFile(upath.c_str());
        EXPECT_EQ(Outcome(fast, fastResult), Outcome(slow, slowResult));
        // The string gives the same tree and position.
        XmlDocument fromString;
        BATCHERR stringResult = fromString.ParseString(text);
        EXPECT_EQ(Outcome(fast, fastResult, false), Outcome(fromString, stringResult, false));
    }
}

}  // namespace
