// Definitions written and read back: random ones built through the model and
// parsed ones come back as the same model; a table shows what writing loses.
#include <numeric>

#include "test_util.h"

namespace {

// Elements in order, each with its first attribute list; then, for each of
// extra, the list of that name or, for "&name", the entity's value.
std::string Model(const XmlDtd& d, const std::vector<UCString>& extra = {}) {
    std::string out = Narrow(d.DocType());
    for (int i = 0; i < d.ElementCount(); ++i) {
        const XmlElementDef* e = d.ElementAt(i);
        out += " " + Narrow(e->Name()) + "=" + "NEACM"[e->Type() % 5] + DumpPart(e->Contents(), true);
        if (const XmlAttrList* l = d.FindAttrList(e->Name()))
            out += " " + DumpAttrList(*l);
    }
    UCString value = u"<none>";
    for (const UCString& x : extra) {
        if (x[0] == u'&')
            out += " " + Narrow(x) + "='" + Narrow(d.LookupEntity(x.c_str() + 1, value) ? value : u"<none>") + "'";
        else if (const XmlAttrList* l = d.FindAttrList(x.c_str()))
            out += " " + DumpAttrList(*l);
    }
    return out;
}

// doc written whole and read again into back; the written text in text.
BATCHERR ReadBack(const XmlDocument& doc, XmlDocument& back, UCString& text, bool lineBreaks, bool escape) {
    text = Written([&](XmlOutputStream& s) { doc.Write(s, false, lineBreaks, escape, 7, true); });
    return back.ParseString(text);
}

UCString Letter(const char16_t* stem, int i) { return stem + UCString(1, u'a' + i % 26) + (i >= 26 ? u"x" : u""); }

// A random valid definition: referenced names defined, choices of distinct
// names, nested groups of two or more, mixed models ending in "*", a missing
// default only last, values without double quotes or what reading expands.
struct Generator {
    std::mt19937 random;
    int names = 1;
    int Pick(int n) { return int(random() % unsigned(n)); }

    // A group of n members: names, with some nested groups below the top.
    XmlContentPart Group(bool choice, int n, int depth) {
        XmlContentPart g;
        n = depth == 0 ? std::min(n, names) : n;
        choice |= n == 1 && depth == 0;  // a top group of one is read as a choice
        std::vector<int> order(names);
        std::iota(order.begin(), order.end(), 0);
        std::shuffle(order.begin(), order.end(), random);
        for (int i = 0; i < n; ++i) {
            XmlContentPart p;
            if (depth < 3 && names >= 3 && Pick(4) == 0)
                p = Group(Pick(2), 2 + Pick(2), depth + 1);
            else if (i < names)
                p.Name(Letter(u"e", order[i]).c_str());
            else
                break;  // no distinct name left
            p.CountMod(Pick(4));
            g.AddCP(p, choice);
        }
        g.CountMod(Pick(4));
        return g;
    }

    void Fill(XmlDocument& doc, std::vector<UCString>& extra, bool plainValues) {
        XmlDtd& d = doc.GetDTD();
        const int elements = names = 1 + Pick(12);
        d.DocType(Letter(u"e", 0));
        static const char16_t* const kValues[] = {u"plain", u"", u"two words", u"a<b>c", u"it's", u"x&amp;y", u"%p;"};
        for (int i = Pick(4); i > 0; --i) {
            extra.push_back(u"&" + Letter(Pick(2) ? u"%p" : u"g", Pick(40)));
            d.AddEntity(extra.back().c_str() + 1, kValues[plainValues ? Pick(3) : Pick(6)]);
        }
        for (int i = 0; i < elements; ++i) {
            XmlElementDef* e = d.AddElement(Letter(u"e", i).c_str());
            e->Type(1 + Pick(4));
            if (e->Type() == elemMixed && Pick(2))
                e->Contents(Group(true, 1 + Pick(3), 1)), e->Contents().CountMod(countStar);
            else if (e->Type() == elemChildren)
                e->Contents(Group(Pick(2), 1 + Pick(4), 0));
        }
        for (int i = 0; i < elements + 2; ++i) {
            if (Pick(3) == 0)
                continue;
            extra.push_back(i < elements ? Letter(u"e", i) : Letter(u"o", i));
            XmlAttrList* l = d.AddAttrList(extra.back().c_str());
            for (int k = Pick(5); k > 0; --k) {
                XmlAttDef* a = l->AddAttDef(Letter(u"a", Pick(40)).c_str());
                const int type = attCdata + Pick(9);  // NOTATION has no text: an enumeration instead
                a->Type(type == attNotation ? attEnumerated : type);
                for (int v = a->Type() == attEnumerated ? Pick(4) : 0; v > 0; --v)
                    a->AddEnum(Letter(u"v", Pick(30)).c_str());
                a->DefType(k == 1 ? Pick(5) : defRequired + Pick(4));  // defNone only last
                if (a->DefType() == defFixed || a->DefType() == defValue)
                    a->DefVal(kValues[Pick(7)]);
            }
        }
        doc.RootElement(doc.NewElement());
        doc.RootElement()->Name(Letter(u"e", 0).c_str());
    }
};

// Read back, the same model (or only as many elements) comes back, and
// written again the same text.
void ExpectStable(const XmlDocument& doc, const std::vector<UCString>& extra, bool lineBreaks, bool escape,
                  bool sameModel = true) {
    XmlDocument back, third;
    UCString text, again;
    ASSERT_EQ(ReadBack(doc, back, text, lineBreaks, escape), errNone) << Narrow(text);
    EXPECT_EQ(sameModel ? Model(back.GetDTD(), extra) : std::to_string(back.GetDTD().ElementCount()),
              sameModel ? Model(doc.GetDTD(), extra) : std::to_string(doc.GetDTD().ElementCount()))
        << Narrow(text);
    ASSERT_EQ(ReadBack(back, third, again, lineBreaks, escape), errNone);
    EXPECT_EQ(again, text);
}

TEST(DtdRoundTripTest, RandomDefinitions) {
    for (unsigned seed = 1; seed <= 300; ++seed) {
        SCOPED_TRACE(seed);
        Generator g{std::mt19937(seed)};
        const bool escape = g.Pick(2), lineBreaks = g.Pick(2);
        XmlDocument doc;
        std::vector<UCString> extra;
        g.Fill(doc, extra, escape);
        ExpectStable(doc, extra, lineBreaks, escape);
    }
}

// Documents written with a generated definition read back with it, which
// verifies, and give the same text again (groups of one may come back as
// choices): an element with text and an
// attribute, which gets a generated "length" behind it, and enumerations.
TEST(DtdRoundTripTest, GeneratedDefinitions) {
    const char16_t* const docs[] = {
        u"<r><a k='x'/><b>t</b><a k='y'/><c/><c/></r>",
        u"<book><title>T</title><ch><p>x<em>y</em>z</p><p/></ch><ch><title>U</title><p>w</p></ch></book>",
        u"<r length='long'><s>abc</s>   </r>",
        u"<list><item n='one'/><item n='two'/><item n='#x'/></list>",
    };
    for (const char16_t* text : docs) {
        SCOPED_TRACE(Narrow(text));
        XmlDocument doc;
        ASSERT_EQ(doc.ParseString(text), errNone);
        doc.GenerateDTD();
        ExpectStable(doc, {}, false, true, false);
    }
}

}  // namespace
