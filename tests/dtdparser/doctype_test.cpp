// Reading the document type declaration through whole documents: the model
// each construct leaves, and the code, message and place of each failure.
#include <gtest/gtest.h>

#include "test_util.h"

namespace {

struct Case {
    const char* doc;      // the internal subset of "<!DOCTYPE a [...]>" followed by "<a/>"
    BATCHERR code;
    const char16_t* message;
    const char* model;    // DumpDtd on success, or null
    const char* attrs;    // DumpAttrList of the list of a, or null
};

UCString Wide(const char* s) { return UCString(s, s + strlen(s)); }

void RunCase(const Case& c, bool wrap = true) {
    SCOPED_TRACE(c.doc);
    XmlDocument doc;
    UCString text = wrap ? u"<!DOCTYPE a [" + Wide(c.doc) + u"]><a/>" : Wide(c.doc);
    EXPECT_EQ(doc.ParseString(text), c.code);
    EXPECT_EQ(Str(doc.ErrorMessage()), c.message);
    if (c.model) {
        EXPECT_EQ(DumpDtd(doc.GetDTD()), c.model);
    }
    if (c.attrs) {
        const XmlAttrList* l = doc.GetDTD().FindAttrList(u"a");
        ASSERT_NE(l, nullptr);
        EXPECT_EQ(DumpAttrList(*l), c.attrs);
    }
}

const char16_t* const kOk = u"";
const UCString kAtEofText = Ux(kEof);
const char16_t* const kAtEof = kAtEofText.c_str();

TEST(ElementDeclTest, ContentModels) {
    const Case cases[] = {
        {"<!ELEMENT a EMPTY>", errNone, kOk, "a=E", nullptr},
        {"<!element a any>", errNone, kOk, "a=A", nullptr},
        {"<!ELEMENT a (#PCDATA)>", errNone, kOk, "a=M", nullptr},
        {"<!ELEMENT a (#PCDATA|b|c)*><!ELEMENT b ANY><!ELEMENT c ANY>", errNone, kOk, "a=M(b|c)* b=A c=A", nullptr},
        {"<!ELEMENT a (#PCDATA|b,)*><!ELEMENT b ANY>", errNone, kOk, "a=M(b)* b=A", nullptr},
        {"<!ELEMENT a (#PCDATA|b*|(c|d))*>", errNone, kOk, "a=M(b*|(c|d))*", nullptr},
        {"<!ELEMENT a (b,c)+><!ELEMENT b EMPTY><!ELEMENT c EMPTY>", errNone, kOk, "a=C(b,c)+ b=E c=E", nullptr},
        {"<!ELEMENT a (b c b?)><!ELEMENT b ANY><!ELEMENT c ANY>", errNone, kOk, "a=C(b|c) b=A c=A", nullptr},
        {"<!ELEMENT a ((b,c)|b)?><!ELEMENT b ANY><!ELEMENT c ANY>", errNone, kOk, "a=C((b,c)|b)? b=A c=A", nullptr},
        {"<!ELEMENT a (((b)*+))><!ELEMENT b ANY>", errNone, kOk, "a=C(((b)*)) b=A", nullptr},
        {"<!ELEMENT a (#x)><!ELEMENT #x EMPTY>", errNone, kOk, "a=C(#x) #x=E", nullptr},
        {"<!ELEMENT a EMPTY><!ELEMENT a (b)>", errNone, kOk, "a=E a=C(b)", nullptr},
        // Parameter entities in their four places.
        {"<!ENTITY % m '(b|c)*'><!ELEMENT a %m;><!ELEMENT b ANY><!ELEMENT c ANY>", errNone, kOk,
         "a=C(b|c)* b=A c=A", nullptr},
        {"<!ENTITY % m 'b, c'><!ELEMENT a (%m;, d)><!ELEMENT b ANY><!ELEMENT c ANY><!ELEMENT d ANY>", errNone, kOk,
         "a=C(b,c,d) b=A c=A d=A", nullptr},
        {"<!ENTITY % m 'b'><!ELEMENT a (c %m;)><!ELEMENT b ANY><!ELEMENT c ANY>", errNone, kOk, "a=C(c|b) b=A c=A",
         nullptr},
        // Failures.
        {"<!ELEMENT a>", errSyntax, u"Unexpected token '>'", "a=N", nullptr},
        {"<!ELEMENT a (>", errSyntax, u"No type determined for element a", "a=N", nullptr},
        {"<!ELEMENT a ()>", errSyntax, u"Unexpected token ')'", "a=N", nullptr},
        {"<!ELEMENT %n; EMPTY>", errSyntax, u"Unexpected token '%n'", "", nullptr},
        {"<!ELEMENT a (b|c,d)>", errSyntax, u"Syntax error near ','", "a=C", nullptr},
        {"<!ELEMENT a (b,c|d)>", errSyntax, u"Syntax error near '|'", "a=C", nullptr},
        {"<!ELEMENT a (b)*+>", errSyntax, u"Unexpected token '+'", "a=C(b)*", nullptr},
        {"<!ELEMENT a (#PCDATA|b)>", errSyntax, u"Trailing '*' expected", "a=M", nullptr},
        {"<!ELEMENT a (#PCDATA)+>", errSyntax, u"Unexpected token '+'", "a=M", nullptr},
        {"<!ELEMENT a (#PCDATA|b,c)*>", errSyntax, u"List must be a 'choice'", "a=M", nullptr},
        {"<!ELEMENT a (b|#PCDATA)>", errSyntax, u"Unexpected token '#PCDATA'", "a=C", nullptr},
        {"<!ELEMENT a (b, c)%x;>", errSyntax, u"Unexpected token '%x'", "a=C(b,c)", nullptr},
        {"<!ELEMENT a %u;>", errSyntax, u"Unable to resolve entity '%u'", "a=N", nullptr},
        {"<!ENTITY % x ''><!ELEMENT a (b|%x;)>", errSyntax, u"Unexpected token ')'", "a=C", nullptr},
        {"<!ELEMENT empty EMPTY>", errSyntax, u"Unexpected token 'empty'", "", nullptr},
    };
    for (const Case& c : cases)
        RunCase(c);
}

TEST(AttrListDeclTest, TypesDefaultsAndTheirFailures) {
    const Case cases[] = {
        {"<!ELEMENT a EMPTY><!ATTLIST a b (x|y) 'x' c CDATA #IMPLIED>", errNone, kOk, nullptr,
         "@a{b:(x|y)'x',c:CDATA#IMPLIED}"},
        {"<!ELEMENT a EMPTY><!ATTLIST a ID ID #REQUIRED i IDREF #IMPLIED j IDREFS 'p q' e ENTITY #IMPLIED "
         "f ENTITIES #IMPLIED n NMTOKEN #IMPLIED m NMTOKENS #FIXED \"1 2\">",
         errNone, kOk, nullptr,
         "@a{ID:ID#REQUIRED,i:IDREF#IMPLIED,j:IDREFS'p q',e:ENTITY#IMPLIED,f:ENTITIES#IMPLIED,n:NMTOKEN#IMPLIED,"
         "m:NMTOKENS#FIXED'1 2'}"},
        {"<!ELEMENT a EMPTY><!ATTLIST a n NOTATION (x|y) #IMPLIED e () #IMPLIED f (CDATA|) 'CDATA' g CDATA>", errNone,
         kOk, nullptr, "@a{n:NOTATION#IMPLIED,e:()#IMPLIED,f:(CDATA)'CDATA',g:CDATA}"},
        {"<!ELEMENT a EMPTY><!ATTLIST a b CDATA '&lt;%x;' <!-- note --> c (d|d) #IMPLIED>", errNone, kOk, nullptr,
         "@a{b:CDATA'&lt;%x;',c:(d|d)#IMPLIED}"},
        {"<!ELEMENT a EMPTY><!ATTLIST a %u; b CDATA #IMPLIED>", errNone, kOk, nullptr, "@a{b:CDATA#IMPLIED}"},
        {"<!ELEMENT a EMPTY><!ENTITY % t '(x|y) #IMPLIED'><!ATTLIST a b %t;>", errNone, kOk, nullptr,
         "@a{b:(x|y)#IMPLIED}"},
        {"<!ELEMENT a EMPTY><!ATTLIST a><!ATTLIST a b CDATA #IMPLIED>", errNone, kOk, nullptr, "@a{}"},
        {"<!ATTLIST a b CDATA #FIXED>", errSyntax, u"Unexpected token '>'", nullptr, "@a{b:CDATA#FIXED''}"},
        {"<!ATTLIST a b>", errSyntax, u"Unexpected token '>'", nullptr, "@a{b:NONE}"},
        {"<!ATTLIST a b cdata #IMPLIED>", errSyntax, u"Unexpected token 'cdata'", nullptr, "@a{b:NONE}"},
        {"<!ATTLIST a b (1|2) #IMPLIED>", errSyntax, u"Unexpected token '1'", nullptr, "@a{b:()}"},
        {"<!ATTLIST a b NOTATION x>", errSyntax, u"Unexpected token 'x'", nullptr, "@a{b:NOTATION}"},
        {"<!ATTLIST a b CDATA #IMPLIED c>", errSyntax, u"Unexpected token '>'", nullptr, nullptr},
        {"<!ATTLIST a % b>", errSyntax, u"Unexpected token '%'", nullptr, "@a{}"},
        {"<!ATTLIST %n; b CDATA #IMPLIED>", errSyntax, u"Unexpected token '%n'", nullptr, nullptr},
    };
    for (const Case& c : cases)
        RunCase(c);
}

TEST(EntityDeclTest, ValuesAndFailures) {
    struct EntityCase {
        const char* subset;
        BATCHERR code;
        const char16_t* message;
        const char16_t* name;   // looked up on success
        const char16_t* value;
    };
    const EntityCase cases[] = {
        {"<!ENTITY % p 'x'><!ENTITY e 'a%p;b'>", errNone, kOk, u"e", u"axb"},
        {"<!ENTITY e '100% sure'>", errNone, kOk, u"e", u"100% sure"},
        {"<!ENTITY e '&#65;&amp;&#x41;&#X41;'>", errNone, kOk, u"e", u"A&amp;AA"},
        {"<!ENTITY lt 'x'>", errNone, kOk, u"lt", u"&#60;"},
        {"<!ENTITY e 'g'><!ENTITY % e 'p'>", errNone, kOk, u"%e", u"p"},
        {"<!ENTITY e '%p;'>", errSyntax, u"Parameter reference '%p' not defined", nullptr, nullptr},
        {"<!ENTITY e '100%sure'>", errSyntax, u"Invalid parameter ref '%sure'", nullptr, nullptr},
        {"<!ENTITY e '&#12'>", errSyntax, u"Invalid char ref '&#12", nullptr, nullptr},
        {"<!ENTITY %n 'v'>", errSyntax, u"Unexpected token '%n'", nullptr, nullptr},
        {"<!ENTITY e 'v' x>", errSyntax, u"Unexpected token 'x'", u"e", u"v"},
        {"<!ENTITY e foo 'x'>", errOpenUri, u"Unable to open URI ''", nullptr, nullptr},
        {"<!ENTITY e SYSTEM '/nonexistent/e.ent'>", errOpenUri, u"Unable to open URI '/nonexistent/e.ent'", nullptr,
         nullptr},
    };
    for (const EntityCase& c : cases) {
        SCOPED_TRACE(c.subset);
        XmlDocument doc;
        EXPECT_EQ(doc.ParseString(u"<!DOCTYPE a [" + Wide(c.subset) + u"<!ELEMENT a ANY>]><a/>"), c.code);
        EXPECT_EQ(Str(doc.ErrorMessage()), c.message);
        UCString value;
        if (c.name) {
            EXPECT_TRUE(doc.GetDTD().LookupEntity(c.name, value));
            EXPECT_EQ(value, c.value);
        }
    }
    // Values are read again as content, markup and references included.
    XmlDocument doc;
    ASSERT_EQ(doc.ParseString(u"<!DOCTYPE a [<!ELEMENT a ANY><!ENTITY e '&#60;b>x&amp;</b>'>]><a>&e;&e;</a>"),
              errNone);
    EXPECT_EQ(Str(doc.RootElement()->Data()), u"");
    ASSERT_NE(doc.RootElement()->Child(), nullptr);
    EXPECT_EQ(Str(doc.RootElement()->Child()->Data()), u"x&");
    EXPECT_NE(doc.RootElement()->Child()->Next(), nullptr);
}

TEST(DoctypeDeclTest, DeclarationSubsetsAndSections) {
    const Case cases[] = {
        {"<!DOCTYPE a [<!ELEMENT a EMPTY>]><a/>", errNone, kOk, "a=E", nullptr},
        {"<!DOCTYPE a>", errSyntax, u"Unable to locate root element a in DTD", "", nullptr},
        {"<!DOCTYPE A [<!ELEMENT a EMPTY>]>", errSyntax, u"Unable to locate root element A in DTD", "a=E", nullptr},
        {"<!DOCTYPE a [<!ELEMENT a EMPTY>]><!DOCTYPE a>", errSyntax, u"Only one DoctypeDecl allowed!", nullptr,
         nullptr},
        {"<!DOCTYPE a [<!ELEMENT a EMPTY>]><?xml version='9'?><a/>", errNone, kOk, nullptr, nullptr},
        {"<!DOCTYPE a [<!ELEMENT a EMPTY>] x>", errSyntax, u"Unexpected token 'x'", nullptr, nullptr},
        {"<!DOCTYPE a [<!ELEMENT a EMPTY> <?pi?>]>", errSyntax, u"Unexpected token 'pi'", nullptr, nullptr},
        {"<!DOCTYPE a [<!ELEMENT a EMPTY>", errSyntax, kAtEof, nullptr, nullptr},
        {"<!DOCTYPE>", errSyntax, u"Unexpected token '>'", nullptr, nullptr},
        {"<!DOCTYPE a PUBLIC 'p'>", errSyntax, u"Unexpected token '>'", nullptr, nullptr},
        {"<!DOCTYPE a PRIVATE 'x'>", errSyntax, u"Unexpected token 'PRIVATE'", nullptr, nullptr},
        {"<!DOCTYPE a [%u;]>", errSyntax, u"Unable to resolve entity '%u'", nullptr, nullptr},
        {"<!DOCTYPE a [<!NOTATION n SYSTEM 'a>b'><!ELEMENT a EMPTY>]><a/>", errNone, kOk, "a=E", nullptr},
        {"<!DOCTYPE a [<!ELEMENT a (b)><!ELEMENT b (a?)>]><a/>", errNone, kOk, "a=C(b) b=C(a?)", nullptr},
        {"<!DOCTYPE a [<!ELEMENT a (#PCDATA|b)*><!ELEMENT c (d)>]><a/>", errNone, kOk, "a=M(b)* c=C(d)", nullptr},
        {"<!DOCTYPE a [<!ELEMENT a ((b,c)|d)><!ELEMENT b EMPTY>]>", errSyntax,
         u"Element c is referenced but never defined", nullptr, nullptr},
        // Conditional sections.
        {"<!DOCTYPE a [<![ include [ <!ELEMENT a EMPTY> ]]>]><a/>", errNone, kOk, "a=E", nullptr},
        {"<!DOCTYPE a [<! [FOO[ <!ELEMENT b EMPTY> ]]><!ELEMENT a EMPTY>]><a/>", errNone, kOk, "a=E", nullptr},
        {"<!DOCTYPE a [<!ENTITY % s 'INCLUDE'><![ %s; [<!ELEMENT a EMPTY>]]>]><a/>", errNone, kOk, "a=E", nullptr},
        {"<!DOCTYPE a [<![IGNORE[ <![INCLUDE[ x ]]> y ]]><!ELEMENT a EMPTY>]><a/>", errNone, kOk, "a=E", nullptr},
        {"<!DOCTYPE a [<![IGNORE[ <!-- ]]> --> <!ELEMENT b EMPTY>]]>]>", errSyntax, u"Unexpected token '-'",
         nullptr, nullptr},
        {"<!DOCTYPE a [<![IGNORE[ ]]]> <!ELEMENT b EMPTY>]]><!ELEMENT a EMPTY>]><a/>", errNone, kOk, "a=E",
         nullptr},
        {"<!DOCTYPE a [<![INCLUDE[ <!ELEMENT a EMPTY>", errSyntax, kAtEof, "a=E", nullptr},
        {"<!DOCTYPE a [<![ %u; [ ]]>]>", errSyntax, u"Unable to resolve entity '%u'", nullptr, nullptr},
        {"<!DOCTYPE a [<![ INCLUDE x ]]>]>", errSyntax, u"Unexpected token 'x'", nullptr, nullptr},
        // Declarations outside a DOCTYPE.
        {"<!ELEMENT a EMPTY><a/>", errDeclInProlog, u"Unexpected token '<!ELEMENT'", nullptr, nullptr},
        {"<!ATTLIST a b CDATA 'c'><a/>", errSyntax, u"Unexpected token '<!ATTLIST'", nullptr, nullptr},
    };
    for (const Case& c : cases)
        RunCase(c, false);
}

TEST(DoctypeDeclTest, IgnoreDtdReadsForSyntaxAndEmptiesTheModel) {
    XmlDocument doc;
    EXPECT_EQ(doc.ParseString(u"<!DOCTYPE a SYSTEM '/nonexistent.dtd' [<!ENTITY e 'x'>]><a/>", false, true), errNone);
    EXPECT_FALSE(doc.GetDTD().HaveContents());
    EXPECT_EQ(doc.ParseString(u"<!DOCTYPE a [<!ENTITY e 'x'>]><a>&e;</a>", false, true), errSyntax);
    EXPECT_EQ(Str(doc.ErrorMessage()), Ux(u"&e;"));
    EXPECT_EQ(doc.ParseString(u"<!DOCTYPE a><!DOCTYPE a><a/>", false, true), errSyntax);
    EXPECT_EQ(Str(doc.ErrorMessage()), u"Only one DoctypeDecl allowed!");
    EXPECT_EQ(doc.ParseString(u"<!DOCTYPE a [<!ELEMENT a (>]><a/>", false, true), errSyntax);
    EXPECT_EQ(DumpDtd(doc.GetDTD()), "");
}

TEST(DoctypeDeclTest, ErrorPositions) {
    struct Pos {
        const char16_t* doc;
        int line, col;
    };
    const Pos cases[] = {
        {u"<!DOCTYPE a [\n  <!ELEMENT a (b|c,d)>]>", 2, 20},  // the token behind the refused ','
        {u"<!DOCTYPE a [\n<!ELEMENT a EMPTY>\n<!ATTLIST a b>]>", 3, 14},
        {u"<!DOCTYPE a [<!ELEMENT a (b)>]>", 1, 31},  // verification: the last token read
        {u"<!DOCTYPE a [<!ENTITY % p '\n\n'>%p;<!ELEMENT a (>]>", 5, 14},  // value lines count again
        {u"<!DOCTYPE a [<![INCLUDE[\n<!ELEMENT a (>]]>]>", 3, 0},  // section lines count twice
    };
    for (const Pos& c : cases) {
        SCOPED_TRACE(Narrow(c.doc));
        XmlDocument doc;
        EXPECT_EQ(doc.ParseString(c.doc), errSyntax);
        EXPECT_EQ(doc.ErrorLine(), c.line);
        EXPECT_EQ(doc.ErrorCol(), c.col);
        EXPECT_EQ(Str(doc.ErrorFile()), u"string");
    }
}

}  // namespace

namespace {

// Lengths are recorded for declared names only, by the first attribute list
// of a name, never lowered, and anew for each parse.
TEST(DoctypeDeclTest, LongestValuesAreRecorded) {
    XmlDocument doc;
    const UCString dtd = u"<!DOCTYPE r [<!ELEMENT r ANY><!ELEMENT a (#PCDATA)><!ATTLIST r k CDATA #IMPLIED>"
                         u"<!ATTLIST a k CDATA #IMPLIED><!ATTLIST a j CDATA #IMPLIED>]>";
    ASSERT_EQ(doc.ParseString(dtd + u"<r k='1234'><a k='1234567'>abc</a><a k='12'>abcde</a>\n<a>ab</a>"
                                    u"<b>zzzzzzzzz</b><a j='xyz'/></r>"),
              errNone);
    EXPECT_EQ(DumpDtd(doc.GetDTD(), true), "r=A#1 @k#4 a=M#5 @k#7");
    EXPECT_EQ(doc.GetDTD().ElementCount(), 2);
    ASSERT_EQ(doc.ParseString(dtd + u"<r><a>x</a></r>"), errNone);
    EXPECT_EQ(DumpDtd(doc.GetDTD(), true), "r=A#0 @k#0 a=M#1 @k#0");
}

}  // namespace
