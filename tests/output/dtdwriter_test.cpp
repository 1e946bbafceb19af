// The DTD writer: exact text of definitions built through the model, head
// forms with identifiers, withExternals, escaping, ordering, a content model
// deeper than any stack, a document written whole.
#include "test_util.h"

namespace {

void Element(XmlDtd& d, const UCChar* name, int type, const XmlContentPart& contents = XmlContentPart()) {
    XmlElementDef* e = d.AddElement(name);
    e->Type(type);
    e->Contents(contents);
}
XmlAttDef* Att(XmlAttrList* l, const UCChar* name, int type, int defType, const UCChar* value = u"") {
    XmlAttDef* a = l->AddAttDef(name);
    return a->Type(type), a->DefType(defType), a->DefVal(value), a;
}
// Element i internal (unless only), e external.
template <bool only> void Ext(XmlDtd& d) {
    d.DocType(u"r");
    if (!only)
        Element(d, u"i", elemAny);
    d.DoingExterns(true);
    Element(d, u"e", elemEmpty);
}
void Models(XmlDtd& d) {
    const XmlContentPart a = Named(u"a"), b = Named(u"b"), a1 = Named(u"a", countOptional);
    d.DocType(u"r");
    Element(d, u"m1", elemMixed, Group({a, b}, true, countStar));
    Element(d, u"m2", elemMixed);
    Element(d, u"c1", elemChildren, Group({a, Named(u"b", countOptional)}, false, countPlus));
    Element(d, u"c2", elemChildren, Group({Named(u"x"), Group({a, b}, true)}, false));
    Element(d, u"c3", elemChildren, Group({Group({a}, true, countStar), b}, false));
    Element(d, u"c4", elemChildren, Group({Group({a1}, true, countStar), b}, false));
    Element(d, u"c5", elemChildren, Group({Group({a, b}, false, countOptional), Named(u"c")}, true));
    Element(d, u"n", elemNone);
}
void Attributes(XmlDtd& d) {
    d.DocType(u"r");
    XmlAttrList* l = d.AddAttrList(u"e");
    Att(l, u"id", attId, defImplied);
    Att(l, u"abcdefghij", attCdata, defValue, u"v&amp;<");
    Att(l, u"abcdefghi", attNmtokens, defRequired);
    Att(l, u"q", attNmtokens, defFixed, u"\"x  y ");  // read between apostrophes
    XmlAttDef* en = Att(l, u"en", attEnumerated, defFixed, u"x");
    en->AddEnum(u"x"), en->AddEnum(u"y");
    Att(l, u"no", attIdref, defNone);
    Att(l, u"nt", attNotation, 42);
    Att(l, u"un", 42, defImplied);
    d.AddAttrList(u"z");
}
void Ordering(XmlDtd& d) {
    d.DocType(u"r");
    d.AddAttrList(u"orphan");
    d.AddEntity(u"i", u"1");
    Element(d, u"a", elemAny);
    d.DoingExterns(true);
    Att(d.AddAttrList(u"a"), u"k", attCdata, defImplied);
    Att(d.AddAttrList(u"a"), u"second", attCdata, defImplied);
    d.AddEntity(u"x", u"2");
    Element(d, u"x", elemEmpty);
}

TEST(DtdWriterTest, WrittenText) {
    const struct {
        void (*build)(XmlDtd&);
        bool withExternals, lineBreaks;
        const UCChar* expected;
    } cases[] = {
        {[](XmlDtd&) {}, false, true, u""},
        {[](XmlDtd& d) { d.ExternalDTD(u"p", u"s"); }, true, true, u""},
        {[](XmlDtd& d) { d.AddEntity(u"lt", u"x"); }, false, true, u""},
        {[](XmlDtd& d) { d.ExternalDTD(nullptr, u"s"), Ext<true>(d); }, true, false, u"<!DOCTYPE r SYSTEM \"s\">"},
        {[](XmlDtd& d) { d.ExternalDTD(nullptr, u"s"), Ext<true>(d); }, false, false, u"<!DOCTYPE r [<!ELEMENT e EMPTY>]>"},
        {Ext<true>, true, false, u"<!DOCTYPE r []>"},
        {[](XmlDtd& d) { d.ExternalDTD(u"p", u"s"), d.ExternalDTD(u"", u"t"), Ext<true>(d); }, true, false,
         u"<!DOCTYPE r PUBLIC \"p\" \"s\"\n            SYSTEM \"t\">"},
        {[](XmlDtd& d) { d.ExternalDTD(u"p", u"s"), Ext<true>(d); }, true, true, u"<!DOCTYPE r PUBLIC \"p\" \"s\"\n>\n"},
        {[](XmlDtd& d) { d.ExternalDTD(u"p", u"s"), Ext<false>(d); }, true, true, u"<!DOCTYPE r PUBLIC \"p\" \"s\"\n\n[\n<!ELEMENT i ANY>\n]>\n"},
        {[](XmlDtd& d) { d.ExternalDTD(u"", u"s"), Ext<false>(d); }, true, true, u"<!DOCTYPE r SYSTEM \"s\"\n[\n<!ELEMENT i ANY>\n]>\n"},
        {[](XmlDtd& d) { d.DocType(u"r"), d.AddEntity(u"%x", u"v"), d.AddEntity(u"g", u"a<b&\"'>"); }, false, true,
         u"<!DOCTYPE r [\n<!ENTITY % x \"v\">\n<!ENTITY g \"a&lt;b&amp;&quot;&apos;&gt;\">\n]>\n"},
        {Models, false, true,
         u"<!DOCTYPE r [\n<!ELEMENT m1 (#PCDATA | a | b)*>\n<!ELEMENT m2 (#PCDATA)>\n<!ELEMENT c1 (a, b?)+>\n"
         u"<!ELEMENT c2 (x, (a | b))>\n<!ELEMENT c3 (a*, b)>\n<!ELEMENT c4 (a?*, b)>\n"
         u"<!ELEMENT c5 ((a, b)? | c)>\n<!ELEMENT n (Whoops)>\n]>\n"},
        {Attributes, false, false,
         u"<!DOCTYPE r [<!ATTLIST e\n          id         ID  #IMPLIED\n          abcdefghij  CDATA  \"v&amp;<\"\n"
         u"          abcdefghi  NMTOKENS  #REQUIRED\n          q          NMTOKENS  #FIXED '\"x  y '\n          en         (x | y)  #FIXED \"x\"\n"
         u"          no         IDREF  \n          nt         Whoops  \n          un         Whoops  #IMPLIED>\n"
         u"<!ATTLIST z>\n]>"},
        {Ordering, true, false, u"<!DOCTYPE r [<!ENTITY i \"1\"><!ELEMENT a ANY><!ATTLIST orphan>\n]>"},
        {Ordering, false, false,
         u"<!DOCTYPE r [<!ENTITY i \"1\"><!ENTITY x \"2\"><!ELEMENT a ANY><!ATTLIST a\n          k          CDATA  "
         u"#IMPLIED>\n<!ELEMENT x EMPTY><!ATTLIST orphan>\n]>"},
    };
    for (const auto& c : cases) {
        XmlDtd d;
        c.build(d);
        EXPECT_EQ(Written([&](XmlOutputStream& s) { d.Write(s, c.withExternals, c.lineBreaks, true); }), c.expected);
    }
}

// A sequence nested 100,000 deep, each level with a second member, is
// written with all its parentheses and without recursion.
TEST(DtdWriterTest, DeepContentModel) {
    constexpr int kDepth = 100000;
    XmlDtd d;
    Element(d, u"e", elemChildren);
    XmlContentPart* level = &d.FindElement(u"e")->Contents();
    for (int i = 0; i < kDepth; ++i, level = &(*level)[0])
        level->AddCP(XmlContentPart(), false), level->AddCP(Named(u"x"), false);
    level->Name(u"a");
    UCString expected = u"<!DOCTYPE  [<!ELEMENT e " + UCString(kDepth, u'(') + u"a";
    for (int i = 0; i < kDepth; ++i)
        expected += u", x)";
    EXPECT_TRUE(Written([&](XmlOutputStream& s) { d.Write(s, false, false, true); }) == expected + u">]>");
}

}  // namespace
