// The DTD writer: exact text of definitions built through the model, the head
// forms with identifiers, withExternals, escaping, ordering, a content model
// deeper than any stack, and documents written whole.
#include <string>

#include <gtest/gtest.h>

#include "xmlapi.h"

namespace {

UCString Written(const XmlDtd& d, bool withExternals, bool lineBreaks, bool escape) {
    UCString out;
    XmlOutputStream s;
    s.SetString(&out);
    EXPECT_EQ(d.Write(s, withExternals, lineBreaks, escape), errNone);
    return out;
}

XmlContentPart Name(const UCChar* n, int mod = countOne) {
    XmlContentPart p;
    p.Name(n);
    p.CountMod(mod);
    return p;
}
XmlContentPart Group(std::initializer_list<XmlContentPart> parts, bool choice, int mod = countOne) {
    XmlContentPart g;
    for (const XmlContentPart& p : parts)
        g.AddCP(p, choice);
    g.CountMod(mod);
    return g;
}
void Element(XmlDtd& d, const UCChar* name, int type, const XmlContentPart& contents = XmlContentPart()) {
    XmlElementDef* e = d.AddElement(name);
    e->Type(type);
    e->Contents(contents);
}
XmlAttDef* Att(XmlAttrList* l, const UCChar* name, int type, int defType, const UCChar* value = u"") {
    XmlAttDef* a = l->AddAttDef(name);
    a->Type(type);
    a->DefType(defType);
    a->DefVal(value);
    return a;
}
void ExternalOnly(XmlDtd& d) {
    d.DocType(u"r");
    d.DoingExterns(true);
    Element(d, u"e", elemEmpty);
}
void InternalAndExternal(XmlDtd& d) {
    d.DocType(u"r");
    Element(d, u"i", elemAny);
    ExternalOnly(d);
}
void Sys(XmlDtd& d) { d.ExternalDTD(nullptr, u"s"), ExternalOnly(d); }
void Pub(XmlDtd& d) { d.ExternalDTD(u"p", u"s"), ExternalOnly(d); }
void SysInt(XmlDtd& d) { d.ExternalDTD(u"", u"s"), InternalAndExternal(d); }
void PubInt(XmlDtd& d) { d.ExternalDTD(u"p", u"s"), InternalAndExternal(d); }
void Entities(XmlDtd& d) {
    d.DocType(u"r");
    d.AddEntity(u"%x", u"v");
    d.AddEntity(u"g", u"a<b&\"'>");
}
void Models(XmlDtd& d) {
    d.DocType(u"r");
    Element(d, u"m1", elemMixed, Group({Name(u"a"), Name(u"b")}, true, countStar));
    Element(d, u"m2", elemMixed);
    Element(d, u"c1", elemChildren, Group({Name(u"a"), Name(u"b", countOptional)}, false, countPlus));
    Element(d, u"c2", elemChildren, Group({Name(u"x"), Group({Name(u"a"), Name(u"b")}, true)}, false));
    Element(d, u"c3", elemChildren, Group({Group({Name(u"a")}, true, countStar), Name(u"b")}, false));
    Element(d, u"c4", elemChildren, Group({Group({Name(u"a", countOptional)}, true, countStar), Name(u"b")}, false));
    Element(d, u"c5", elemChildren,
            Group({Group({Name(u"a"), Name(u"b")}, false, countOptional), Name(u"c")}, true));
    Element(d, u"n", elemNone);
}
void Attributes(XmlDtd& d) {
    d.DocType(u"r");
    XmlAttrList* l = d.AddAttrList(u"e");
    Att(l, u"id", attId, defImplied);
    Att(l, u"abcdefghij", attCdata, defValue, u"v&amp;<");
    Att(l, u"abcdefghi", attNmtokens, defRequired);
    XmlAttDef* en = Att(l, u"en", attEnumerated, defFixed, u"x");
    en->AddEnum(u"x");
    en->AddEnum(u"y");
    Att(l, u"nt", attNotation, defImplied);
    Att(l, u"no", attIdref, defNone);
    d.AddAttrList(u"z");
}
void Ordering(XmlDtd& d) {
    d.DocType(u"r");
    d.AddAttrList(u"orphan");
    Element(d, u"a", elemEmpty);
    Att(d.AddAttrList(u"a"), u"k", attCdata, defImplied);
    Att(d.AddAttrList(u"a"), u"second", attCdata, defImplied);
    d.AddEntity(u"last", u"1");
}
void Mixed(XmlDtd& d) {
    d.DocType(u"r");
    d.AddEntity(u"i", u"1");
    Element(d, u"i", elemAny);
    d.DoingExterns(true);
    d.AddEntity(u"x", u"2");
    Att(d.AddAttrList(u"i"), u"a", attCdata, defImplied);
    Element(d, u"x", elemEmpty);
}

struct Case {
    const char* what;
    void (*build)(XmlDtd&);
    bool withExternals, lineBreaks, escape;
    const UCChar* expected;
};

const Case kCases[] = {
    {"fresh", [](XmlDtd&) {}, false, true, true, u""},
    {"identifiers alone", [](XmlDtd& d) { d.ExternalDTD(u"p", u"s"); }, true, true, true, u""},
    {"predefined added again", [](XmlDtd& d) { d.AddEntity(u"lt", u"x"); }, false, true, true, u""},
    {"external only, system", Sys, true, false, true, u"<!DOCTYPE r SYSTEM \"s\">"},
    {"external only, all written", Sys, false, false, true, u"<!DOCTYPE r [<!ELEMENT e EMPTY>]>"},
    {"external only, no identifiers", ExternalOnly, true, false, true, u"<!DOCTYPE r []>"},
    {"two identifiers", [](XmlDtd& d) { Pub(d), d.ExternalDTD(u"", u"t"); }, true, false, true,
     u"<!DOCTYPE r PUBLIC \"p\" \"s\"\n            SYSTEM \"t\">"},
    {"public, no declarations, lines", Pub, true, true, true, u"<!DOCTYPE r PUBLIC \"p\" \"s\"\n>\n"},
    {"public, declarations, lines", PubInt, true, true, true,
     u"<!DOCTYPE r PUBLIC \"p\" \"s\"\n\n[\n<!ELEMENT i ANY>\n]>\n"},
    {"system, declarations, lines", SysInt, true, true, true,
     u"<!DOCTYPE r SYSTEM \"s\"\n[\n<!ELEMENT i ANY>\n]>\n"},
    {"entities escaped", Entities, false, true, true,
     u"<!DOCTYPE r [\n<!ENTITY % x \"v\">\n<!ENTITY g \"a&lt;b&amp;&quot;&apos;&gt;\">\n]>\n"},
    {"content models", Models, false, true, true,
     u"<!DOCTYPE r [\n<!ELEMENT m1 (#PCDATA | a | b)*>\n<!ELEMENT m2 (#PCDATA)>\n<!ELEMENT c1 (a, b?)+>\n"
     u"<!ELEMENT c2 (x, (a | b))>\n<!ELEMENT c3 (a*, b)>\n<!ELEMENT c4 (a?*, b)>\n"
     u"<!ELEMENT c5 ((a, b)? | c)>\n<!ELEMENT n (Whoops)>\n]>\n"},
    {"attribute lists, values unescaped", Attributes, false, false, true,
     u"<!DOCTYPE r [<!ATTLIST e\n          id         ID  #IMPLIED\n          abcdefghij  CDATA  \"v&amp;<\"\n"
     u"          abcdefghi  NMTOKENS  #REQUIRED\n          en         (x | y)  #FIXED \"x\"\n"
     u"          nt         Whoops  #IMPLIED\n          no         IDREF  >\n<!ATTLIST z>\n]>"},
    {"order of the text", Ordering, false, false, true,
     u"<!DOCTYPE r [<!ENTITY last \"1\"><!ELEMENT a EMPTY><!ATTLIST a\n          k          CDATA  #IMPLIED>\n"
     u"<!ATTLIST orphan>\n]>"},
    {"internal part only", Mixed, true, false, true, u"<!DOCTYPE r [<!ENTITY i \"1\"><!ELEMENT i ANY>]>"},
    {"internal and external", Mixed, false, false, true,
     u"<!DOCTYPE r [<!ENTITY i \"1\"><!ENTITY x \"2\"><!ELEMENT i ANY><!ATTLIST i\n          a          CDATA  "
     u"#IMPLIED>\n<!ELEMENT x EMPTY>]>"},
};

TEST(DtdWriterTest, WrittenText) {
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.what);
        XmlDtd d;
        c.build(d);
        EXPECT_EQ(Written(d, c.withExternals, c.lineBreaks, c.escape), c.expected);
    }
}

TEST(DtdWriterTest, AttributeTypes) {
    const std::pair<int, const UCChar*> kTypes[] = {
        {attNone, u"Whoops"}, {attCdata, u"CDATA"}, {attId, u"ID"}, {attIdref, u"IDREF"},
        {attIdrefs, u"IDREFS"}, {attEntity, u"ENTITY"}, {attEntities, u"ENTITIES"}, {attNmtoken, u"NMTOKEN"},
        {attNmtokens, u"NMTOKENS"}, {attNotation, u"Whoops"}, {attEnumerated, u"()"}, {42, u"Whoops"}};
    for (const auto& t : kTypes) {
        XmlDtd d;
        Att(d.AddAttrList(u"e"), u"a", t.first, 42);
        EXPECT_EQ(Written(d, false, false, false),
                  u"<!DOCTYPE  [<!ATTLIST e\n          a          " + UCString(t.second) + u"  >\n]>");
    }
}

// A sequence nested 100,000 deep, each level with a second member: it is
// written with all its parentheses, and the model goes without recursion.
TEST(DtdWriterTest, DeepContentModel) {
    constexpr int kDepth = 100000;
    XmlDtd d;
    XmlElementDef* e = d.AddElement(u"e");
    e->Type(elemChildren);
    XmlContentPart* level = &e->Contents();
    for (int i = 0; i < kDepth; ++i) {
        level->AddCP(XmlContentPart(), false);
        level->AddCP(Name(u"x"), false);
        level = &(*level)[0];
    }
    level->Name(u"a");
    UCString text = Written(d, false, false, false);
    const UCString head = u"<!DOCTYPE  [<!ELEMENT e " + UCString(kDepth, u'(') + u"a";
    ASSERT_EQ(text.size(), head.size() + 4 * size_t(kDepth) + 3);
    EXPECT_EQ(text.compare(0, head.size(), head), 0);
    EXPECT_EQ(text.substr(text.size() - 11), u", x), x)>]>");
}

TEST(DtdWriterTest, DocumentWrittenWhole) {
    XmlDocument doc;
    ASSERT_EQ(doc.ParseString(u"<r><e>t</e></r>"), errNone);
    doc.GetDTD().DocType(u"r");
    Element(doc.GetDTD(), u"e", elemMixed);
    doc.GetDTD().AddEntity(u"\u00e9", u"\u00e9");
    UCString out;
    std::string utf;
    XmlOutputStream s;
    s.SetString(&out);
    s.SetUTFString(&utf);
    EXPECT_EQ(doc.Write(s, false, true, true, 7, false), errNone);
    EXPECT_EQ(out, u"<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n\n<!DOCTYPE r [\n<!ENTITY \u00e9 \"\u00e9\">\n"
                   u"<!ELEMENT e (#PCDATA)>\n]>\n<r>\n    <e>t</e>\n</r>\n");
    EXPECT_NE(utf.find("<!ENTITY \xc3\xa9 \"\xc3\xa9\">"), std::string::npos);
}

}  // namespace
