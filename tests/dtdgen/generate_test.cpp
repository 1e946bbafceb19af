// DTD generation from the tree: inferred content models, the order of the
// definitions, content kinds, enumerations, length attributes, odd and huge
// caller-built trees, running out of memory, working memory in proportion to
// the tree, and generation over several documents, which for one gives
// exactly what GenerateDTD gives.
#include <set>

#include "dtdgen/xmlgenmemory.h"
#include "dtdgen/xmlidset.h"
#include "test_util.h"

class XmlGenerateProbe {
public:
    // Generates with the working memory counted in memory.
    static bool Generate(XmlDocument& doc, GenMemory& memory, const std::vector<const XmlDocument*>& docs) {
        doc.m_genMemory = &memory;
        bool result = docs.empty() ? doc.GenerateDTD() : doc.GenerateDTD(docs);
        doc.m_genMemory = nullptr;
        return result;
    }
};

namespace {

std::string Model(const XmlDtd& dtd, const UCChar* name) {
    const XmlElementDef* d = dtd.FindElement(name);
    if (!d)
        return "<none>";
    if (d->Type() != elemMixed)
        return d->Type() == elemEmpty ? "EMPTY" : d->Type() == elemAny ? "ANY" : DumpPart(d->Contents());
    std::string s = "(#PCDATA";
    for (int i = 0; i < d->Contents().Count() && d->Contents().Type() == cpChoice; ++i)
        s += "|" + Narrow(d->Contents()[i].Name());
    return s + ")" + (d->Contents().CountMod() == countStar ? "*" : "");
}
std::string Order(const XmlDtd& dtd) {
    std::string s;
    for (int i = 0; i < dtd.ElementCount(); ++i)
        s += (i ? " " : "") + Narrow(dtd.ElementAt(i)->Name());
    return s;
}
// "name type default-kind value[enums]" of each attribute definition of el.
std::string Atts(const XmlDtd& dtd, const UCChar* el) {
    const XmlAttrList* l = dtd.FindAttrList(el);
    std::string s;
    for (int i = 0; l && i < l->DefCount(); ++i) {
        const XmlAttDef* d = l->GetAttDef(i);
        s += (i ? "; " : "") + Narrow(d->Name()) + " " + std::to_string(d->Type()) + " " + std::to_string(d->DefType()) +
             " " + Narrow(d->DefVal()) + "[";
        for (int k = 0; k < d->EnumCount(); ++k)
            s += (k ? "," : "") + Narrow(d->GetEnum(k));
        s += "]";
    }
    return l ? s : "<none>";
}
void Generate(XmlDocument& doc, const std::string& xml) {
    ASSERT_EQ(doc.ParseString(U(xml)), errNone) << xml;
    ASSERT_TRUE(doc.GenerateDTD());
    for (int i = 0; i < doc.GetDTD().ElementCount(); ++i)
        ASSERT_EQ(doc.GetDTD().ElementAt(i)->InfoPointer(), nullptr);
}
// The doctype and the definition as written.
UCString Text(const XmlDocument& doc) {
    const XmlDtd& dtd = doc.GetDTD();
    return u"[" + dtd.DocType() + u"]" + Written([&](XmlOutputStream& s) { dtd.Write(s, false, true, true); });
}
// Instances of e under a root, given as "a,a,b;;c": ';' between instances,
// ',' between children, an empty entry for an instance without children.
std::string Instances(const std::string& lists) {
    std::string xml = "<r><e>", name;
    for (char c : lists + ";") {
        if ((c == ',' || c == ';') && !name.empty())
            xml += "<" + name + "/>";
        name = c == ',' || c == ';' ? "" : name + c;
        if (c == ';')
            xml += "</e><e>";
    }
    return xml.substr(0, xml.size() - 3) + "</r>";
}

TEST(GenerateDtdTest, InferredContentModels) {
    struct { const char* instances; const char* model; } cases[] = {
        {"a,a", "(a+)"}, {"a;a,a,a", "(a+)"}, {"a,b,a", "(a,b,a)"}, {"a,b;b,a", "((a|b)*)"},
        {"a,b,c;a,c", "(a,(b)*,c)"}, {"a,b;a,b,a,b", "(a,b,(a|b)*)"}, {"a,a,b;a,c", "(a+,(b|c)*)"},
        {";a", "((a)*)"}, {"a;", "((a)*)"}, {"a;;b", "((a|b)*)"}, {"a,b;a,b;a,b", "(a,b)"},
        {"x,a,a,y;x,a,b,y", "(x,a+,(b)*,y)"}, {";", "EMPTY"}, {"a,x,y,y;b,x,y", "((a|b)*,x,y+)"},
        {"id,item,item,note,total;id,item,gift,note,total;id,item,total;id,item,item,item,note,total",
         "(id,item+,(note|gift)*,total)"},
        {"a;b;c;d;e;f;g;h;i;j;k", "((a|b|c|d|e|f|g|h|i|j|k)*)"},  // the shape table grows
        // Shapes met after head and tail can no longer take anything.
        {"a,b;b,a;c", "((a|b|c)*)"}, {"a,b;b,a;a,a,b;c,a", "((a|b|c)*)"}, {"a;b,a;b,a,a,b", "((a|b)*)"}};
    for (const auto& c : cases) {
        XmlDocument doc;
        Generate(doc, Instances(c.instances));
        EXPECT_EQ(Model(doc.GetDTD(), u"e"), c.model) << c.instances;
        EXPECT_EQ(Model(doc.GetDTD(), u"r"), std::string(c.instances).find(';') != std::string::npos ? "(e+)" : "(e)") << c.instances;
    }
}

// Shapes with a common head in a sweep across the growth of the shape table,
// each met again with its head repeated; and as many instances without a
// head, which settle the list.
TEST(GenerateDtdTest, ShapeTableSweep) {
    for (int k = 1; k <= 40; ++k) {
        std::string lists, names, settled;
        for (int i = 0; i < k; ++i) {
            std::string c = "c" + std::to_string(i);
            lists += (i ? ";x," : "x,") + c;
            settled += (i ? ";" : "") + c;
            names += (i ? "|" : "") + c;
        }
        for (int i = 0; i < k; ++i)
            lists += ";x,x,c" + std::to_string(i);
        XmlDocument doc;
        Generate(doc, Instances(lists));
        EXPECT_EQ(Model(doc.GetDTD(), u"e"), k == 1 ? "(x+,c0)" : "(x+,(" + names + ")*)") << k;
        Generate(doc, Instances(settled + ";" + lists));
        EXPECT_EQ(Model(doc.GetDTD(), u"e"), k == 1 ? "((x)*,c0)" : "((" + names + "|x)*)") << k;
    }
}

TEST(GenerateDtdTest, KindsOrderAndAttributes) {
    struct { const char* xml; const char* order; const char* model; const char* atts; } cases[] = {
        {"<r/>", "r", "EMPTY", "<none>"},
        {"<r> \t\n </r>", "r", "EMPTY", "<none>"},
        {"<r>abcd</r>", "r", "(#PCDATA)", "length 1 3 4[]"},
        {"<r k='v'>abcd</r>", "r", "(#PCDATA)", "k 10 0 [v]; length 1 3 4[]"},
        {"<r length='7'>abcd</r>", "r", "(#PCDATA)", "length 10 0 [7]"},
        {"<r><a><x/></a><b><y/></b></r>", "r a b x y", "(a,b)", "<none>"},
        {"<r>t<a><x/></a><b><y/></b></r>", "r a x b y", "(#PCDATA|a|b)*", "length 1 3 1[]"},
        {"<r><e><c/></e><e>text<d/></e><e><f/></e></r>", "r e c d f", "(e+)", "<none>"},
        {"<r>\n<q/>\n</r>", "r q", "(q)", "<none>"},
        {"<r a='1 &lt;&amp;>' b=''/>", "r", "EMPTY", "a 10 0 [1 &lt;&amp;>]; b 10 0 []"},
    };
    for (const auto& c : cases) {
        XmlDocument doc;
        Generate(doc, c.xml);
        EXPECT_EQ(Order(doc.GetDTD()), c.order) << c.xml;
        EXPECT_EQ(Model(doc.GetDTD(), u"r"), c.model) << c.xml;
        EXPECT_EQ(Atts(doc.GetDTD(), u"r"), c.atts) << c.xml;
        EXPECT_EQ(doc.GetDTD().DocType(), u"r");
    }
    XmlDocument doc;
    Generate(doc, "<r><e><c/></e><e>text<d/></e><e><f/></e><e>more</e></r>");
    EXPECT_EQ(Model(doc.GetDTD(), u"e"), "(#PCDATA|d|f)*") << "turning mixed is not retroactive";
    EXPECT_EQ(Atts(doc.GetDTD(), u"e"), "length 1 3 4[]");
}

TEST(GenerateDtdTest, EnumerationsAndMeasures) {
    std::string xml = "<r>";
    for (int i = 1; i <= 12; ++i)  // k: 1 .. 9 twice, then 10, 11, 12
        xml += "<e k='" + std::to_string(i <= 9 ? i : i - 9) + "'>" + std::string(size_t(i % 5), ' ') + "</e>";
    for (int i = 10; i <= 12; ++i)
        xml += "<e k='" + std::to_string(i) + "' m='" + std::string(size_t(i), 'v') + "'/>";
    XmlDocument doc;
    Generate(doc, xml + "<e k='1234567890123'/><f>xy</f><f>\tabc </f><f/></r>");
    const XmlAttDef* k = doc.GetDTD().FindAttrList(u"e")->FindAttDef(u"k");
    EXPECT_EQ(k->Type(), attCdata) << "the 11th distinct value";
    EXPECT_EQ(k->EnumCount(), 11) << "values stay; later ones are not added";
    EXPECT_EQ(k->MaxLen(), 13) << "measured after turning CDATA";
    const XmlAttDef* m = doc.GetDTD().FindAttrList(u"e")->FindAttDef(u"m");
    EXPECT_EQ(m->DefType(), defNone) << "carried by some only";
    EXPECT_EQ(m->MaxLen() * 10 + m->EnumCount(), 123);
    EXPECT_EQ(doc.GetDTD().FindElement(u"e")->MaxLen(), 4) << "white space counts";
    EXPECT_EQ(Model(doc.GetDTD(), u"e"), "EMPTY");
    EXPECT_EQ(Atts(doc.GetDTD(), u"f"), "length 1 3 5[]");
    EXPECT_EQ(doc.GetDTD().FindAttrList(u"f")->FindAttDef(u"length")->MaxLen(), 0);

    // Ten distinct values stay an enumeration; a repeat changes nothing.
    Generate(doc, "<r a='0'><r a='1'/><r a='2'/><r a='3'/><r a='4'/><r a='5'/><r a='6'/><r a='7'/>"
                  "<r a='8'/><r a='9'/><r a='9'/></r>");
    EXPECT_EQ(Atts(doc.GetDTD(), u"r"), "a 10 0 [0,1,2,3,4,5,6,7,8,9]");
}

// Forty attribute names, in the opposite order every other instance: names
// and values are told apart alike whatever their place in the list and
// however many names an element has.
TEST(GenerateDtdTest, ManyAttributeNames) {
    std::string xml = "<r>";
    for (int i = 0; i < 14; ++i) {
        xml += "<e";
        for (int k = 0; k < 40; ++k) {
            int name = i % 2 ? 39 - k : k;  // every third name gets 12 values, the others 3
            xml += " a" + std::to_string(name) + "='" + std::to_string(i % (name % 3 ? 3 : 12)) + "'";
        }
        xml += "/>";
    }
    XmlDocument doc;
    Generate(doc, xml + "</r>");
    const XmlAttrList* l = doc.GetDTD().FindAttrList(u"e");
    ASSERT_EQ(l->DefCount(), 40);
    for (int k : {0, 1, 2, 31, 32, 33, 34, 39}) {
        const XmlAttDef* d = l->GetAttDef(k);
        std::string values;
        for (int j = 0; j < d->EnumCount(); ++j)
            values += Narrow(d->GetEnum(j));
        EXPECT_EQ(Narrow(d->Name()), "a" + std::to_string(k));
        EXPECT_EQ(std::to_string(d->Type()) + " " + values + " " + std::to_string(d->MaxLen()),
                  k % 3 ? "10 012 1" : "1 012345678910 2") << k;
    }
}

TEST(GenerateDtdTest, RegenerationAndOddTrees) {
    XmlDocument doc;
    EXPECT_TRUE(doc.GenerateDTD()) << "no root";
    EXPECT_EQ(doc.GetDTD().ElementCount(), 0);
    Generate(doc, "<r><a>x</a><b/></r>");
    std::string first = Order(doc.GetDTD()) + Model(doc.GetDTD(), u"r") + Atts(doc.GetDTD(), u"a");
    ASSERT_TRUE(doc.GenerateDTD());
    EXPECT_EQ(Order(doc.GetDTD()) + Model(doc.GetDTD(), u"r") + Atts(doc.GetDTD(), u"a"), first);
    EXPECT_EQ(first, "r a b(a,b)length 1 3 1[]");

    // Changed between two generations: renamed, new text, no trace of before.
    XmlElement* r = doc.RootElement();
    r->Child()->Name(u"1 <&> ");
    r->Child()->Next()->Data(u"\t \r\n");
    XmlElement* unnamed = doc.NewElement();
    XmlElement* empty = doc.NewElement();
    empty->Name(u"");
    empty->AddAttribute(u"", u" \" ' ");
    r->Child(unnamed);
    r->Child(empty);
    unnamed->Child(doc.NewElement());
    ASSERT_TRUE(doc.GenerateDTD());
    EXPECT_EQ(Order(doc.GetDTD()), "r 1 <&>  b ");
    EXPECT_EQ(Model(doc.GetDTD(), u"r"), "(1 <&> ,b,+)");
    EXPECT_EQ(Model(doc.GetDTD(), u""), "(()*)") << "the unnamed with a child and the one without";
    EXPECT_EQ(Model(doc.GetDTD(), u"b"), "EMPTY");
    EXPECT_EQ(Atts(doc.GetDTD(), u""), " 10 0 [ \" ' ]");
    EXPECT_EQ(doc.GetDTD().FindAttrList(u"a"), nullptr);

    // An unnamed child of mixed content never becomes a member.
    r->Data(u"t");
    ASSERT_TRUE(doc.GenerateDTD());
    EXPECT_EQ(Model(doc.GetDTD(), u"r"), "(#PCDATA|1 <&> |b)*");
}

TEST(GenerateDtdTest, MillionDeepAndMillionWide) {
    const int n = 1000000;
    auto deep = std::make_unique<XmlDocument>();
    XmlElement* e = deep->NewElement();
    e->Name(u"e");
    deep->RootElement(e);
    for (int i = 0; i < n; ++i, e = e->Child()) {
        e->Child(deep->NewElement());
        e->Child()->Name(i % 2 ? u"e" : u"f");
    }
    e->Data(u"leaf");
    ASSERT_TRUE(deep->GenerateDTD());
    EXPECT_EQ(Order(deep->GetDTD()), "e f");
    EXPECT_EQ(Model(deep->GetDTD(), u"f"), "(e)");
    EXPECT_EQ(Model(deep->GetDTD(), u"e"), "(#PCDATA)") << "the leaf e turns e mixed, and its shapes go";

    deep.reset();
    XmlDocument wide;
    XmlElement* root = wide.NewElement();
    root->Name(u"r");
    wide.RootElement(root);
    const UCChar* names[] = {u"a", u"a", u"b", u"c"};
    for (int i = 0; i < n; ++i) {
        XmlElement* c = wide.NewElement();
        c->Name(names[i % 4]);
        i ? e->InsertNext(c) : root->Child(c);
        e = c;
    }
    ASSERT_TRUE(wide.GenerateDTD());
    const XmlContentPart& m = wide.GetDTD().FindElement(u"r")->Contents();
    ASSERT_EQ(m.Count(), 3 * n / 4);
    EXPECT_EQ(DumpPart(m[0]) + DumpPart(m[1]) + DumpPart(m[2]) + DumpPart(m[3]), "a+bca+");
    root->Data(u"t");
    ASSERT_TRUE(wide.GenerateDTD());
    EXPECT_EQ(Model(wide.GetDTD(), u"r"), "(#PCDATA|a|b|c)*");
}

// Any allocation of the working memory fails in turn: the result is false,
// the definition that was there is gone and nothing of the work is left;
// once none fails, the definition is the one made without the probe.
TEST(GenerateDtdTest, OutOfMemory) {
    const UCString old = u"<!DOCTYPE r [<!ELEMENT r ANY><!ATTLIST r k CDATA #IMPLIED>]>";
    const UCString first = u"<r k='1'>t<a><b/><b/></a><c>x<b/></c><a/><m k='2'><a><b/></a></m></r>";
    XmlDocument second;
    ASSERT_EQ(second.ParseString(u"<r><d><e/></d><a><e/><b/></a></r>"), errNone);
    for (bool many : {false, true}) {
        XmlDocument doc;
        ASSERT_EQ(doc.ParseString(old + first), errNone);
        const std::vector<const XmlDocument*> docs = many ? std::vector<const XmlDocument*>{&doc, &second}
                                                          : std::vector<const XmlDocument*>{};
        GenMemory unlimited;
        ASSERT_TRUE(XmlGenerateProbe::Generate(doc, unlimited, docs));
        const UCString expected = Text(doc);
        long limit = 0;
        for (bool done = false; !done; ++limit) {
            ASSERT_EQ(doc.ParseString(old + first), errNone);
            GenMemory memory;
            memory.allocationsLeft = limit;
            done = XmlGenerateProbe::Generate(doc, memory, docs);
            EXPECT_EQ(memory.bytes, 0u) << limit;
            EXPECT_EQ(Text(doc), done ? expected : u"[]") << limit;
        }
        EXPECT_GT(limit, 20) << "allocations made to fail";
        EXPECT_GT(unlimited.peak, 0u);
    }
}

// The most working memory generation needs grows with the tree, whatever
// the number of names, shapes and values: a tree four times the size must
// need less than five times the memory (one that grows with the square needs
// sixteen). Each tree repeats its item n times with '#' replaced by i.
TEST(GenerateDtdTest, WorkingMemoryInProportion) {
    struct { const char* head; const char* item; const char* tail; } cases[] = {
        {"<r>", "<e#/>", "</r>"},                  // names
        {"<r>", "<e#><z/></e#>", "</r>"},          // names with a child in common
        {"<r>", "<e#><c#/></e#>", "</r>"},         // names with a child of their own
        {"<r>t", "<e#/>", "</r>"},                 // members of mixed content
        {"<r>", "<e><c#/></e>", "</r>"},           // names of a middle group
        {"<r>", "<e><x/><c#/><x/></e>", "</r>"},   // shapes, never settled
        {"<r>", "<e#>t</e#>", "</r>"},             // names with text
        {"<r>", "<e# k='#'/>", "</r>"},            // names with attributes
        {"<r", " k#='v'", "/>"},                   // attribute names
        {"<r>", "<e k='#' m='#'/>", "</r>"},       // attribute values
        {"", "<e#/>", ""},                         // documents
    };
    for (const auto& c : cases) {
        size_t peak[2];
        for (int s = 0; s < 2; ++s) {
            const int n = s ? 4000 : 1000;
            std::vector<std::unique_ptr<XmlDocument>> docs;
            std::vector<const XmlDocument*> trees;
            std::string xml = c.head, item = c.item;
            for (int i = 0; i < n; ++i) {
                std::string one = item;
                for (size_t at; (at = one.find('#')) != std::string::npos;)
                    one.replace(at, 1, std::to_string(i));
                xml += one;
                if (!*c.head) {
                    docs.push_back(std::make_unique<XmlDocument>());
                    ASSERT_EQ(docs.back()->ParseString(U(one)), errNone);
                    trees.push_back(docs.back().get());
                }
            }
            XmlDocument doc;
            ASSERT_EQ(doc.ParseString(U(xml + c.tail)), errNone);
            GenMemory memory;
            ASSERT_TRUE(XmlGenerateProbe::Generate(doc, memory, trees));
            peak[s] = memory.peak;
        }
        EXPECT_LT(peak[1], 5 * peak[0]) << c.item << ": " << peak[0] << " then " << peak[1] << " bytes";
    }
}

// Sets of places against std::set, in a sweep of sizes across the growth of
// the byte map and of the table, with ids near, far and repeated.
TEST(GenerateDtdTest, IdSets) {
    struct { uint32_t start, step, mod; } patterns[] = {
        {0, 1, 0}, {1000, 1, 0}, {0, 64, 0}, {5, 1000, 0}, {70000, 4294967295u, 0}, {0, 7919, 5000}, {3, 1, 40}};
    for (const auto& p : patterns) {
        for (uint32_t n = 0; n <= 150; ++n) {
            IdSet ids;
            WordSet words;
            std::set<uint32_t> expected;
            for (uint32_t i = 0, id = p.start; i < n; ++i, id = p.mod ? (id + p.step) % p.mod : id + p.step) {
                bool added = expected.insert(id).second;
                ASSERT_EQ(ids.Insert(id), added) << n << " " << id;
                ASSERT_EQ(words.Insert(uint64_t(id) << 20 | 5), added) << n << " " << id;
            }
            ASSERT_EQ(ids.Size(), expected.size());
            ASSERT_EQ(words.Size(), expected.size());
            for (uint32_t id : expected)
                for (uint32_t near : {id - 1, id, id + 1})
                    ASSERT_EQ(ids.Contains(near) + 2 * words.Contains(uint64_t(near) << 20 | 5),
                              3 * int(expected.count(near))) << n << " " << near;
        }
    }
}

TEST(GenerateManyTest, OneDocumentAsGenerateDTD) {
    const char16_t* const docs[] = {
        u"<a/>",
        u"<a x='1'><b>t</b><b>u<c/></b><c/><c/><d><e y='2'/></d></a>",
        u"<r><p><q/><q/><s/></p><p><s/><q/></p><p/><t>  </t><p><q/></p></r>",
        u"<m>x<n/>y<o><n>deep<o/></n></o></m>",
    };
    for (const char16_t* src : docs) {
        XmlDocument single, other, self;
        ASSERT_EQ(single.ParseString(src), errNone);
        ASSERT_EQ(self.ParseString(src), errNone);
        // Leftovers of an earlier generation must go.
        other.ParseString(u"<z><y/></z>");
        other.GenerateDTD();
        EXPECT_TRUE(single.GenerateDTD());
        EXPECT_TRUE(other.GenerateDTD({&single}));
        EXPECT_TRUE(self.GenerateDTD({nullptr, &self}));
        EXPECT_EQ(Text(other), Text(single)) << Narrow(src);
        EXPECT_EQ(Text(self), Text(single)) << Narrow(src);
    }
}

TEST(GenerateManyTest, SeveralDocumentsMerge) {
    XmlDocument a, b, c, empty, out;
    ASSERT_EQ(a.ParseString(u"<r k='1'><x>hi</x></r>"), errNone);
    ASSERT_EQ(b.ParseString(u"<r k='2'><y/><y/></r>"), errNone);
    ASSERT_EQ(c.ParseString(u"<other><x>longer text</x></other>"), errNone);
    // out's own names have ids that the other documents use for other names.
    ASSERT_EQ(out.ParseString(u"<q><r/><x/><y/><other/></q>"), errNone);
    EXPECT_TRUE(out.GenerateDTD({&empty, &a, &b, &c}));
    EXPECT_EQ(Text(out),
              u"[r]<!DOCTYPE r [\n<!ELEMENT r ((x | y)*)>\n<!ATTLIST r\n          k          (1 | 2)  >\n"
              u"<!ELEMENT x (#PCDATA)>\n<!ATTLIST x\n          length     CDATA  #FIXED \"11\">\n"
              u"<!ELEMENT y EMPTY>\n<!ELEMENT other (x)>\n]>\n");
    EXPECT_TRUE(out.GenerateDTD({}));
    EXPECT_EQ(Text(out), u"[]");

    // A node of another document in the tree: names are told by their text.
    XmlDocument guest, host;
    ASSERT_EQ(host.ParseString(u"<r><x/><y/></r>"), errNone);
    XmlElement* visitor = guest.NewElement();
    visitor->Name(u"y");
    host.RootElement()->Child(visitor);
    visitor->Child(guest.NewElement());
    visitor->Child()->Name(u"x");
    EXPECT_TRUE(host.GenerateDTD());
    EXPECT_EQ(Order(host.GetDTD()) + " " + Model(host.GetDTD(), u"r") + Model(host.GetDTD(), u"y"), "r x y (x,y+)((x)*)");
}

}  // namespace
