// The document type declaration read through whole documents: the model each
// construct leaves, and the code, message and place of each failure.
#include "test_util.h"

namespace {

UCString Wide(const char* s) { return UCString(s, s + strlen(s)); }

// doc: a whole document when it starts with "<!DOCTYPE" or holds "<a/>",
// otherwise the internal subset of "<!DOCTYPE a [...]><a/>".
// dump: "@..." the attribute list of a, "&name=value" an entity, otherwise
// the element model; null checks nothing.
struct Case {
    const char* doc;
    BATCHERR code;
    const char16_t* message;
    const char* dump;
};

const UCString kAtEof = Ux(kEof);

template <size_t N>
void RunCases(const Case (&cases)[N]) {
    for (const Case& c : cases) {
        SCOPED_TRACE(c.doc);
        const std::string s = c.doc;
        const bool whole = s.rfind("<!DOCTYPE", 0) == 0 || s.find("<a/>") != std::string::npos;
        XmlDocument doc;
        EXPECT_EQ(doc.ParseString(whole ? Wide(c.doc) : u"<!DOCTYPE a [" + Wide(c.doc) + u"]><a/>"), c.code);
        EXPECT_EQ(Str(doc.ErrorMessage()), c.message ? c.message : kAtEof);
        const std::string dump = c.dump ? c.dump : "-";
        if (dump[0] == '@') {
            const XmlAttrList* l = doc.GetDTD().FindAttrList(u"a");
            EXPECT_EQ(l ? DumpAttrList(*l) : "none", dump);
        } else if (dump[0] == '&') {
            UCString value;
            const size_t eq = dump.find('=');
            EXPECT_TRUE(doc.GetDTD().LookupEntity(U(dump.substr(1, eq - 1)).c_str(), value));
            EXPECT_EQ(Narrow(value), dump.substr(eq + 1));  // the whole value, any unit 0 included
        } else if (dump != "-") {
            EXPECT_EQ(DumpDtd(doc.GetDTD()), dump);
        }
    }
}

TEST(ElementDeclTest, ContentModels) {
    const Case cases[] = {
        {"<!ELEMENT a EMPTY>", errNone, u"", "a=E"},
        {"<!element a any>", errNone, u"", "a=A"},
        {"<!ELEMENT a (#PCDATA)>", errNone, u"", "a=M"},
        {"<!ELEMENT a (#PCDATA|b|c)*><!ELEMENT b ANY><!ELEMENT c ANY>", errNone, u"", "a=M(b|c)* b=A c=A"},
        {"<!ELEMENT a (#PCDATA|b,)*><!ELEMENT b ANY>", errNone, u"", "a=M(b)* b=A"},
        {"<!ELEMENT a (#PCDATA|b*|(c|d))*>", errNone, u"", "a=M(b*|(c|d))*"},
        {"<!ELEMENT a (b,c)+><!ELEMENT b EMPTY><!ELEMENT c EMPTY>", errNone, u"", "a=C(b,c)+ b=E c=E"},
        {"<!ELEMENT a (b c b?)><!ELEMENT b ANY><!ELEMENT c ANY>", errNone, u"", "a=C(b|c) b=A c=A"},
        {"<!ELEMENT a ((b,c)|b)?><!ELEMENT b ANY><!ELEMENT c ANY>", errNone, u"", "a=C((b,c)|b)? b=A c=A"},
        {"<!ELEMENT a (((b)*+))><!ELEMENT b ANY>", errNone, u"", "a=C(((b)*)) b=A"},
        {"<!ELEMENT a (#x)><!ELEMENT #x EMPTY>", errNone, u"", "a=C(#x) #x=E"},
        // Names met again in a long choice, early and late members alike.
        {"<!ELEMENT a (b|c|d|e|f|g|h|i|(j)|k|c|k|l|j*)><!ELEMENT b EMPTY><!ELEMENT c EMPTY><!ELEMENT d EMPTY><!ELEMENT e EMPTY><!ELEMENT f EMPTY><!ELEMENT g EMPTY><!ELEMENT h EMPTY><!ELEMENT i EMPTY><!ELEMENT j EMPTY><!ELEMENT k EMPTY><!ELEMENT l EMPTY>", errNone, u"",
         "a=C(b|c|d|e|f|g|h|i|(j)|k|l|j*) b=E c=E d=E e=E f=E g=E h=E i=E j=E k=E l=E"},
        {"<!ELEMENT a EMPTY><!ELEMENT a (b)>", errNone, u"", "a=E a=C(b)"},
        {"<!ENTITY % m '(b|c)*'><!ELEMENT a %m;><!ELEMENT b ANY><!ELEMENT c ANY>", errNone, u"", "a=C(b|c)* b=A c=A"},
        {"<!ENTITY % m 'b, c'><!ELEMENT a (%m;, d)><!ELEMENT b ANY><!ELEMENT c ANY><!ELEMENT d ANY>", errNone, u"",
         "a=C(b,c,d) b=A c=A d=A"},
        {"<!ENTITY % m 'b'><!ELEMENT a (c %m;)><!ELEMENT b ANY><!ELEMENT c ANY>", errNone, u"", "a=C(c|b) b=A c=A"},
        {"<!ELEMENT a>", errSyntax, u"Unexpected token '>'", "a=N"},
        {"<!ELEMENT a (>", errSyntax, u"No type determined for element a", "a=N"},
        {"<!ELEMENT a ()>", errSyntax, u"Unexpected token ')'", "a=N"},
        {"<!ELEMENT %n; EMPTY>", errSyntax, u"Unexpected token '%n'", ""},
        {"<!ELEMENT a (b|c,d)>", errSyntax, u"Syntax error near ','", "a=C"},
        {"<!ELEMENT a (b,c|d)>", errSyntax, u"Syntax error near '|'", "a=C"},
        {"<!ELEMENT a (b)*+>", errSyntax, u"Unexpected token '+'", "a=C(b)*"},
        {"<!ELEMENT a (#PCDATA|b)>", errSyntax, u"Trailing '*' expected", "a=M"},
        {"<!ELEMENT a (#PCDATA)+>", errSyntax, u"Unexpected token '+'", "a=M"},
        {"<!ELEMENT a (#PCDATA|b,c)*>", errSyntax, u"List must be a 'choice'", "a=M"},
        {"<!ELEMENT a (b|#PCDATA)>", errSyntax, u"Unexpected token '#PCDATA'", "a=C"},
        {"<!ELEMENT a (b, c)%x;>", errSyntax, u"Unexpected token '%x'", "a=C(b,c)"},
        {"<!ELEMENT a %u;>", errSyntax, u"Unable to resolve entity '%u'", "a=N"},
        {"<!ENTITY % x ''><!ELEMENT a (b|%x;)>", errSyntax, u"Unexpected token ')'", "a=C"},
        {"<!ELEMENT empty EMPTY>", errSyntax, u"Unexpected token 'empty'", ""},
        // Attribute lists.
        {"<!ELEMENT a EMPTY><!ATTLIST a b (x|y) 'x' c CDATA #IMPLIED>", errNone, u"", "@a{b:(x|y)'x',c:CDATA#IMPLIED}"},
        {"<!ELEMENT a EMPTY><!ATTLIST a ID ID #REQUIRED i IDREF #IMPLIED j IDREFS 'p q' e ENTITY #IMPLIED "
         "f ENTITIES #IMPLIED n NMTOKEN #IMPLIED m NMTOKENS #FIXED \"1 2\">", errNone, u"",
         "@a{ID:ID#REQUIRED,i:IDREF#IMPLIED,j:IDREFS'p q',e:ENTITY#IMPLIED,f:ENTITIES#IMPLIED,n:NMTOKEN#IMPLIED,"
         "m:NMTOKENS#FIXED'1 2'}"},
        {"<!ELEMENT a EMPTY><!ATTLIST a n NOTATION (x|y) #IMPLIED e () #IMPLIED f (CDATA|) 'CDATA' g CDATA>", errNone,
         u"", "@a{n:NOTATION#IMPLIED,e:()#IMPLIED,f:(CDATA)'CDATA',g:CDATA}"},
        {"<!ELEMENT a EMPTY><!ATTLIST a b CDATA '&lt;%x;' <!-- note --> c (d|d) #IMPLIED>", errNone, u"",
         "@a{b:CDATA'&lt;%x;',c:(d|d)#IMPLIED}"},
        {"<!ELEMENT a EMPTY><!ATTLIST a %u; b CDATA #IMPLIED>", errNone, u"", "@a{b:CDATA#IMPLIED}"},
        {"<!ELEMENT a EMPTY><!ENTITY % t '(x|y) #IMPLIED'><!ATTLIST a b %t;>", errNone, u"", "@a{b:(x|y)#IMPLIED}"},
        {"<!ELEMENT a EMPTY><!ATTLIST a><!ATTLIST a b CDATA #IMPLIED>", errNone, u"", "@a{}"},
        {"<!ATTLIST a b CDATA #FIXED>", errSyntax, u"Unexpected token '>'", "@a{b:CDATA#FIXED''}"},
        {"<!ATTLIST a b>", errSyntax, u"Unexpected token '>'", "@a{b:NONE}"},
        {"<!ATTLIST a b cdata #IMPLIED>", errSyntax, u"Unexpected token 'cdata'", "@a{b:NONE}"},
        {"<!ATTLIST a b (1|2) #IMPLIED>", errSyntax, u"Unexpected token '1'", "@a{b:()}"},
        {"<!ATTLIST a b NOTATION x>", errSyntax, u"Unexpected token 'x'", "@a{b:NOTATION}"},
        {"<!ATTLIST a b CDATA #IMPLIED c>", errSyntax, u"Unexpected token '>'", nullptr},
        {"<!ATTLIST a % b>", errSyntax, u"Unexpected token '%'", "@a{}"},
        {"<!ATTLIST %n; b CDATA #IMPLIED>", errSyntax, u"Unexpected token '%n'", nullptr},
        // Entities.
        {"<!ELEMENT a ANY><!ENTITY % p 'x'><!ENTITY e 'a%p;b'>", errNone, u"", "&e=axb"},
        {"<!ELEMENT a ANY><!ENTITY e '100% sure'>", errNone, u"", "&e=100% sure"},
        {"<!ELEMENT a ANY><!ENTITY e '&#65;&amp;&#x41;&#X41;'>", errNone, u"", "&e=A&amp;AA"},
        {"<!ELEMENT a ANY><!ENTITY lt 'x'>", errNone, u"", "&lt=&#60;"},
        {"<!ELEMENT a ANY><!ENTITY e 'ab&#65536;cd'>", errNone, u"", "&e=ab"},
        {"<!ELEMENT a ANY><!ENTITY e 'g'><!ENTITY % e 'p'>", errNone, u"", "&%e=p"},
        {"<!ENTITY e '%p;'>", errSyntax, u"Parameter reference '%p' not defined", nullptr},
        {"<!ENTITY e '100%sure'>", errSyntax, u"Invalid parameter ref '%sure'", nullptr},
        {"<!ENTITY e '&#12'>", errSyntax, u"Invalid char ref '&#12", nullptr},
        {"<!ENTITY %n 'v'>", errSyntax, u"Unexpected token '%n'", nullptr},
        {"<!ENTITY e 'v' x>", errSyntax, u"Unexpected token 'x'", "&e=v"},
        {"<!ENTITY e foo 'x'>", errOpenUri, u"Unable to open URI ''", nullptr},
        {"<!ENTITY e SYSTEM '/nonexistent/e.ent'>", errOpenUri, u"Unable to open URI '/nonexistent/e.ent'", nullptr},
        // Values are read again as content, markup and references included.
    };
    RunCases(cases);
}

TEST(DoctypeDeclTest, DeclarationSubsetsAndSections) {
    const Case cases[] = {
        {"<!DOCTYPE a>", errSyntax, u"Unable to locate root element a in DTD", ""},
        {"<!DOCTYPE A [<!ELEMENT a EMPTY>]>", errSyntax, u"Unable to locate root element A in DTD", "a=E"},
        {"<!DOCTYPE a [<!ELEMENT a EMPTY>]><!DOCTYPE a>", errSyntax, u"Only one DoctypeDecl allowed!", nullptr},
        {"<!DOCTYPE a [<!ELEMENT a EMPTY>]><?xml version='9'?><a/>", errNone, u"", "a=E"},
        {"<!DOCTYPE a [<!ELEMENT a EMPTY>] x>", errSyntax, u"Unexpected token 'x'", nullptr},
        {"<!DOCTYPE a [<!ELEMENT a EMPTY> <?pi?>]>", errSyntax, u"Unexpected token 'pi'", nullptr},
        {"<!DOCTYPE a [<!ELEMENT a EMPTY>", errSyntax, nullptr, nullptr},
        {"<!DOCTYPE>", errSyntax, u"Unexpected token '>'", nullptr},
        {"<!DOCTYPE a PUBLIC 'p'>", errSyntax, u"Unexpected token '>'", nullptr},
        {"<!DOCTYPE a PRIVATE 'x'>", errSyntax, u"Unexpected token 'PRIVATE'", nullptr},
        {"<!DOCTYPE a [%u;]>", errSyntax, u"Unable to resolve entity '%u'", nullptr},
        {"<!DOCTYPE a [<!NOTATION n SYSTEM 'a>b'><!ELEMENT a EMPTY>]><a/>", errNone, u"", "a=E"},
        {"<!DOCTYPE a [<!ELEMENT a (b)><!ELEMENT b (a?)>]><a/>", errNone, u"", "a=C(b) b=C(a?)"},
        {"<!DOCTYPE a [<!ELEMENT a (#PCDATA|b)*><!ELEMENT c (d)>]><a/>", errNone, u"", "a=M(b)* c=C(d)"},
        {"<!DOCTYPE a [<!ELEMENT a ((b,c)|d)><!ELEMENT b EMPTY>]>", errSyntax, u"Element c is referenced but never defined",
         nullptr},
        {"<!DOCTYPE a [<![ include [ <!ELEMENT a EMPTY> ]]>]><a/>", errNone, u"", "a=E"},
        {"<!DOCTYPE a [<! [FOO[ <!ELEMENT b EMPTY> ]]><!ELEMENT a EMPTY>]><a/>", errNone, u"", "a=E"},
        {"<!DOCTYPE a [<!ENTITY % s 'INCLUDE'><![ %s; [<!ELEMENT a EMPTY>]]>]><a/>", errNone, u"", "a=E"},
        {"<!DOCTYPE a [<![IGNORE[ <![INCLUDE[ x ]]> y ]]><!ELEMENT a EMPTY>]><a/>", errNone, u"", "a=E"},
        {"<!DOCTYPE a [<![IGNORE[ <!-- ]]> --> <!ELEMENT b EMPTY>]]>]>", errSyntax, u"Unexpected token '-'", nullptr},
        {"<!DOCTYPE a [<![IGNORE[ ]]]> <!ELEMENT b EMPTY>]]><!ELEMENT a EMPTY>]><a/>", errNone, u"", "a=E"},
        {"<!DOCTYPE a [<![INCLUDE[ <!ELEMENT a EMPTY>", errSyntax, nullptr, "a=E"},
        {"<!DOCTYPE a [<![ %u; [ ]]>]>", errSyntax, u"Unable to resolve entity '%u'", nullptr},
        {"<!DOCTYPE a [<![ INCLUDE x ]]>]>", errSyntax, u"Unexpected token 'x'", nullptr},
        {"<!ELEMENT a EMPTY><a/>", errDeclInProlog, u"Unexpected token '<!ELEMENT'", nullptr},
        {"<!ATTLIST a b CDATA 'c'><a/>", errSyntax, u"Unexpected token '<!ATTLIST'", nullptr},
    };
    RunCases(cases);
}

TEST(DoctypeDeclTest, ErrorPositionsIgnoreDtdAndLengths) {
    const struct {
        const char16_t* doc;
        int line, col;
    } cases[] = {
        {u"<!DOCTYPE a [\n  <!ELEMENT a (b|c,d)>]>", 2, 20},  // the token behind the refused ','
        {u"<!DOCTYPE a [\n<!ELEMENT a EMPTY>\n<!ATTLIST a b>]>", 3, 14},
        {u"<!DOCTYPE a [<!ELEMENT a (b)>]>", 1, 31},  // verification: the last token read
        {u"<!DOCTYPE a [<!ENTITY % p '\n\n'>%p;<!ELEMENT a (>]>", 5, 14},  // value lines count again
        {u"<!DOCTYPE a [<![INCLUDE[\n<!ELEMENT a (>]]>]>", 3, 0},  // section lines count twice
    };
    XmlDocument doc;
    for (const auto& c : cases) {
        EXPECT_EQ(doc.ParseString(c.doc), errSyntax);
        EXPECT_EQ(Str(c.doc) + Num(u":", doc.ErrorLine()) + Num(u":", doc.ErrorCol()),
                  Str(c.doc) + Num(u":", c.line) + Num(u":", c.col));
    }
    // ignoreDtd reads for syntax only and leaves the model empty.
    EXPECT_EQ(doc.ParseString(u"<!DOCTYPE a SYSTEM '/nonexistent.dtd' [<!ENTITY e 'x'>]><a/>", false, true), errNone);
    EXPECT_FALSE(doc.GetDTD().HaveContents());
    EXPECT_EQ(doc.ParseString(u"<!DOCTYPE a [<!ENTITY e 'x'>]><a>&e;</a>", false, true), errSyntax);
    EXPECT_EQ(Str(doc.ErrorMessage()), Ux(u"&e;"));
    EXPECT_EQ(doc.ParseString(u"<!DOCTYPE a [<!ELEMENT a (>]><a/>", false, true), errSyntax);
    EXPECT_EQ(DumpDtd(doc.GetDTD()), "");
    // Values are read again as content, markup and references included.
    ASSERT_EQ(doc.ParseString(u"<!DOCTYPE a [<!ELEMENT a ANY><!ENTITY e '&#60;b>x&amp;</b>'>]><a>&e;&e;</a>"), errNone);
    EXPECT_EQ(Str(doc.RootElement()->Data()) + u"|" + Str(doc.RootElement()->Child()->Data()), u"|x&");
    EXPECT_NE(doc.RootElement()->Child()->Next(), nullptr);
    // Lengths: declared names only, each attribute's to its own definition in
    // any order, by the general reader too (a line end in a start tag), the
    // first list of a name, never lowered, anew for each parse.
    const UCString dtd = u"<!DOCTYPE r [<!ELEMENT r ANY><!ELEMENT a (#PCDATA)><!ATTLIST r k CDATA #IMPLIED>"
                         u"<!ATTLIST a k CDATA #IMPLIED c CDATA #IMPLIED><!ATTLIST a j CDATA #IMPLIED>]>";
    for (const UCString gap : {u" ", u"\n"}) {
        ASSERT_EQ(doc.ParseString(dtd + u"<r c='123456' k='1234'><a k='1234567' c='1'>abc</a><a" + gap + u"c='12345' k='12'>"
                                  u"abcde</a>\n<a>ab</a><b>zzzzzzzzz</b><a x='123456789' j='xyz' c='123456'/></r>"), errNone);
        EXPECT_EQ(DumpDtd(doc.GetDTD(), true), "r=A#1 @k#4 a=M#5 @k#7 @c#6") << Narrow(gap);
    }
    ASSERT_EQ(doc.ParseString(dtd + u"<r><a>x</a></r>"), errNone);
    EXPECT_EQ(DumpDtd(doc.GetDTD(), true), "r=A#0 @k#0 a=M#1 @k#0 @c#0");
}

}  // namespace
