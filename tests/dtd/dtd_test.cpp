// The definition model: content parts and their group rules, the indexes
// against a walk from the front, predefined and first-defined entities,
// stable pointers, and copies that own what they hold at any depth.
#include <climits>

#include "test_util.h"

namespace {

typedef std::vector<UCString> Names;

Names Children(const XmlContentPart& g) {
    Names out;
    for (int i = 0; i < g.Count(); ++i)
        out.push_back(g[i].Name());
    return out;
}

TEST(DtdContentPartTest, GroupRulesAndIndices) {
    XmlContentPart seq = Group({Named(u"a")}, false);
    seq.AddCP(Named(u"b"), false);
    EXPECT_EQ(seq.Type(), cpSequence);
    EXPECT_FALSE(seq.AddCP(Named(u"c"), true)) << "a sequence takes no choice member";
    XmlContentPart choice = Group({Named(u"a"), Named(u"a", countPlus), Named(u"A")}, true);
    EXPECT_TRUE(choice.AddCP(Group({Named(u"a")}, true), true));
    EXPECT_EQ(Children(choice), (Names{u"a", u"A", u""})) << "one member per name; groups always go in";
    for (int index : {-1, 3, INT_MIN}) {
        XmlContentPart g = seq;
        EXPECT_FALSE(g.InsertCP(Named(u"x"), index)) << index;
        EXPECT_FALSE(g.ReplaceCP(Named(u"x"), index == 3 ? 2 : index)) << index;
        EXPECT_EQ(&g[index], &g[0]) << "out of range gives the first child";
    }
    XmlContentPart g = seq;
    ASSERT_TRUE(g.InsertCP(Named(u"x"), 2));
    ASSERT_TRUE(g.InsertCP(Named(u"y"), 0));
    EXPECT_EQ(Children(g), (Names{u"y", u"a", u"b", u"x"}));
    EXPECT_FALSE(choice.InsertCP(Named(u"x"), 0));
    // From its own children: copies are taken first; grandchildren stay put.
    XmlContentPart own = Group({Group({Named(u"a"), Named(u"b")}, true), Named(u"c")}, false);
    const XmlContentPart* grandchild = &own[0][1];
    ASSERT_TRUE(own.InsertCP(own[1], 0));
    EXPECT_EQ(&own[1][1], grandchild);
    ASSERT_TRUE(own.ReplaceCP(own, 2));
    EXPECT_EQ(Children(own[2]), (Names{u"c", u"", u"c"}));
    // Without children: a detached empty part, emptied again on every call.
    XmlContentPart none;
    none[0].Name(u"junk");
    EXPECT_EQ(none[1].Type(), cpNone);
}

TEST(DtdContentPartTest, SearchesNameListsAndDeepCopies) {
    // (a, (b | (c)*), a): the element searches its top level only.
    XmlContentPart top = Group({Named(u"a"), Group({Named(u"b"), Group({Named(u"c")}, true, countStar)}, true),
                                Named(u"a")}, false);
    XmlElementDef def;
    def.Contents(top);
    EXPECT_TRUE(top.Contains(u"c"));
    EXPECT_FALSE(def.Contains(u"c"));
    EXPECT_TRUE(def.Contains(u"a"));
    EXPECT_FALSE(top.Contains(u"C"));
    Names list{u"z"};
    top.ListOfNames(list);
    EXPECT_EQ(list, (Names{u"z", u"a", u"b", u"c", u"a"}));
    XmlContentPart copy(top);
    copy[1][0].Name(u"changed");
    EXPECT_EQ(UCString(top[1][0].Name()), u"b");
    copy = copy[1];
    EXPECT_EQ(Children(copy), (Names{u"changed", u""}));
    // Nested far deeper than a recursion could go: copied, searched, listed.
    XmlContentPart deep;
    XmlContentPart* level = &deep;
    for (int i = 0; i < 200000; ++i) {
        level->AddCP(XmlContentPart(), false);
        level = &(*level)[0];
    }
    level->Name(u"deep");
    copy = deep;
    EXPECT_TRUE(copy.Contains(u"deep"));
    list.clear();
    copy.ListOfNames(list);
    EXPECT_EQ(list, Names{u"deep"});
}

TEST(DtdModelTest, EntitiesAndContainer) {
    XmlDtd dtd;
    auto lookup = [&dtd](const UCChar* name) {
        UCString value = u"<unset>";
        dtd.LookupEntity(name, value);
        return value;
    };
    const std::pair<const UCChar*, const UCChar*> predefined[] = {
        {u"lt", u"&#60;"}, {u"gt", u">"}, {u"amp", u"&#38;"}, {u"apos", u"'"}, {u"quot", u"\""}};
    for (const auto& c : predefined) {
        EXPECT_TRUE(dtd.AddEntity(c.first, u"other"));
        EXPECT_EQ(lookup(c.first), c.second);
    }
    EXPECT_FALSE(dtd.HaveContents());
    dtd.AddEntity(u"x", u"general");
    dtd.AddEntity(u"%x", u"parameter");
    for (int i = 0; i < 500; ++i)
        dtd.AddEntity(Num(u"n", i % 250).c_str(), Num(u"v", i).c_str());
    dtd.AddEntity(u"x", u"second");
    EXPECT_EQ(lookup(u"x"), u"general");
    EXPECT_EQ(lookup(u"%x"), u"parameter");
    EXPECT_EQ(lookup(u"n7"), u"v7");
    EXPECT_EQ(lookup(u"LT"), u"<unset>");

    dtd.ExternalDTD(nullptr, u"a.dtd");
    dtd.DocType(u"root");
    XmlElementDef* inner = dtd.AddElement(u"a");
    EXPECT_TRUE(dtd.HaveContents());
    dtd.DoingExterns(true);
    EXPECT_TRUE(dtd.AddAttrList(u"b")->IsExternal());
    EXPECT_TRUE(dtd.AddElement(u"b")->IsExternal());
    EXPECT_FALSE(inner->IsExternal());
    // Pointers stay put while the lists grow.
    for (int i = 0; i < 1000; ++i)
        dtd.AddAttrList(dtd.AddElement(Num(u"e", i).c_str())->Name())->AddAttDef(u"d");
    EXPECT_EQ(dtd.ElementAt(0), inner);
    EXPECT_EQ(dtd.ElementAt(1002), nullptr);
    dtd.Clear();
    EXPECT_FALSE(dtd.HaveContents());
    EXPECT_FALSE(dtd.AddElement(u"c")->IsExternal());
    EXPECT_EQ(dtd.FindAttrList(u"b"), nullptr);
    EXPECT_EQ(lookup(u"n7"), u"<unset>");
    EXPECT_EQ(lookup(u"lt"), u"&#60;");
}

// The indexes give what a walk from the front gives, for short and long
// lists, with a duplicate appended after the first lookup, after renames and
// assignments through pointers, in a copy, and after Clear.
TEST(DtdIndexTest, LookupsMatchTheWalk) {
    for (int size : {4, 12, 400}) {
        XmlDtd dtd;
        XmlAttrList list;
        for (int i = 0; i < size; ++i) {
            dtd.AddElement(Num(u"e", i % (size / 2 + 1)).c_str());
            list.AddAttDef(Num(u"e", i % (size / 2 + 1)).c_str());
        }
        auto check = [&](const XmlDtd& d, const XmlAttrList& l, int step) {
            for (int i = 0; i <= size + 1; ++i) {
                UCString name = Num(u"e", i);
                const XmlElementDef* walked = nullptr;
                for (int k = 0; k < d.ElementCount() && !walked; ++k)
                    walked = name == d.ElementAt(k)->Name() ? d.ElementAt(k) : nullptr;
                ASSERT_EQ(d.FindElement(name.c_str()), walked) << size << " step " << step << ' ' << i;
                const XmlAttDef* def = nullptr;
                for (int k = 0; k < l.DefCount() && !def; ++k)
                    def = name == l.GetAttDef(k)->Name() ? l.GetAttDef(k) : nullptr;
                ASSERT_EQ(l.FindAttDef(name.c_str()), def) << size << " step " << step << ' ' << i;
            }
        };
        check(dtd, list, 0);
        dtd.AddElement(u"e1");
        list.AddAttDef(u"e1");
        dtd.ElementAt(0)->Name(Num(u"e", size / 2).c_str());
        list.FindModifiableAttDef(u"e0")->Name(Num(u"e", size / 2).c_str());
        check(dtd, list, 1);
        XmlElementDef other;
        other.Name(u"e0");
        *dtd.ElementAt(1) = other;
        XmlAttDef otherDef;
        otherDef.Name(u"e0");
        *list.FindModifiableAttDef(Num(u"e", 1).c_str()) = otherDef;
        check(dtd, list, 2);
        const XmlDtd copy(dtd);
        const XmlAttrList listCopy(list);
        dtd.Clear();
        list = XmlAttrList();
        check(copy, listCopy, 3);
        for (int i = 0; i < size; ++i)
            dtd.AddElement(Num(u"e", i % 3).c_str());
        check(dtd, list, 4);
    }
}

TEST(DtdCopyTest, CopiesAreDeepAndIndexTheirOwnDefinitions) {
    XmlDtd src;
    src.DocType(u"r");
    src.AddEntity(u"ent", u"value");
    for (int i = 0; i < 100; ++i) {
        XmlElementDef* def = src.AddElement(Num(u"e", i % 60).c_str());
        def->Contents(Group({Named(Num(u"c", i).c_str())}, false));
        def->Verified(true);
        def->InfoPointer(def);
        src.AddAttrList(def->Name())->AddAttDef(Num(u"a", i).c_str());
    }
    src.DoingExterns(true);
    XmlDtd copy(src), assigned;
    assigned.AddElement(u"gone");
    assigned = src;
    for (XmlDtd* d : {&copy, &assigned}) {
        EXPECT_EQ(d->DocType(), u"r");
        EXPECT_TRUE(d->DoingExterns());
        UCString value;
        EXPECT_TRUE(d->LookupEntity(u"ent", value));
        EXPECT_EQ(d->FindElement(u"gone"), nullptr);
        XmlElementDef* e7 = d->FindElement(u"e7");
        EXPECT_EQ(e7, d->ElementAt(7));
        EXPECT_FALSE(e7->Verified()) << "the walk fields stay behind";
        EXPECT_EQ(e7->InfoPointer(), nullptr);
        EXPECT_NE(d->FindAttrList(u"e7"), src.FindAttrList(u"e7"));
    }
    copy.FindElement(u"e7")->Name(u"renamed");
    copy.FindAttrList(u"e7")->Name(u"renamed");
    copy.ElementAt(8)->Contents()[0].Name(u"changed");
    EXPECT_EQ(copy.FindElement(u"e7"), copy.ElementAt(67));
    EXPECT_EQ(UCString(copy.FindAttrList(u"e7")->GetAttDef(0)->Name()), u"a67");
    EXPECT_EQ(src.FindElement(u"e7"), src.ElementAt(7));
    EXPECT_EQ(UCString(src.ElementAt(8)->Contents()[0].Name()), u"c8");
    XmlDtd second(copy);  // taken after a rename
    EXPECT_EQ(second.FindElement(u"renamed"), second.ElementAt(7));
}

}  // namespace
