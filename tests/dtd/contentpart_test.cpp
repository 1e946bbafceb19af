// XmlContentPart and XmlElementDef: group kinds and refusals, the choice's
// one-name rule, index rules, deep versus shallow searches, name lists,
// copies, and models nested far deeper than the call stack could recurse.
#include <gtest/gtest.h>

#include <climits>

#include "dtd_test_util.h"

namespace {

typedef std::vector<UCString> Names;

TEST(DtdContentPartTest, GroupKindsAndTheChoiceRule) {
    for (bool choiceFirst : {false, true}) {
        XmlContentPart g;
        EXPECT_EQ(g.Type(), cpNone);
        EXPECT_TRUE(g.AddCP(Group({u"x"}, true), choiceFirst));
        EXPECT_FALSE(g.AddCP(Named(u"b"), !choiceFirst));
        EXPECT_EQ(g.Type(), choiceFirst ? cpChoice : cpSequence);
        EXPECT_EQ(g.Count(), 1);
    }
    XmlContentPart choice = Group({u"a"}, true);
    EXPECT_EQ(choice.Type(), cpChoice) << "a group of one member is a choice";
    EXPECT_TRUE(choice.AddCP(Named(u"a", countPlus), true));
    EXPECT_TRUE(choice.AddCP(Named(u"A"), true));
    EXPECT_TRUE(choice.AddCP(Group({u"a"}, true), true));
    EXPECT_TRUE(choice.AddCP(Group({u"a"}, true), true));
    EXPECT_EQ(Children(choice), (Names{u"a", u"A", u"", u""})) << "groups have no name and always go in";
    EXPECT_EQ(choice[0].CountMod(), countOne);
    EXPECT_EQ(Children(Group({u"a", u"a"}, false)), (Names{u"a", u"a"}));

    choice.Name(u"");
    EXPECT_EQ(choice.Type(), cpName);
    EXPECT_EQ(choice.Count(), 0) << "an empty name counts nothing";
    EXPECT_TRUE(choice.Contains(u"A")) << "naming keeps the children";
}

TEST(DtdContentPartTest, InsertAndReplaceByIndex) {
    struct Case {
        int index;
        bool ok;
        Names result;
    } cases[] = {{0, true, {u"x", u"a", u"b"}}, {1, true, {u"a", u"x", u"b"}}, {2, true, {u"a", u"b", u"x"}},
                 {3, false, {u"a", u"b"}},      {-1, false, {u"a", u"b"}},     {INT_MIN, false, {u"a", u"b"}}};
    for (const Case& c : cases) {
        XmlContentPart seq = Group({u"a", u"b"}, false);
        EXPECT_EQ(seq.InsertCP(Named(u"x"), c.index), c.ok) << c.index;
        EXPECT_EQ(Children(seq), c.result) << c.index;
        XmlContentPart two = Group({u"a", u"b"}, false);
        EXPECT_EQ(two.ReplaceCP(Named(u"y"), c.index), c.index == 0 || c.index == 1) << c.index;
    }
    XmlContentPart empty, choice = Group({u"a"}, true), name = Named(u"a");
    for (XmlContentPart* p : {&empty, &choice, &name})
        EXPECT_FALSE(p->InsertCP(Named(u"x"), 0));
    EXPECT_EQ(empty.Type(), cpNone);

    // From its own children: copies are taken first; grandchildren stay put.
    XmlContentPart seq;
    seq.AddCP(Group({u"a", u"b"}, true), false);
    seq.AddCP(Named(u"c"), false);
    const XmlContentPart* grandchild = &seq[0][1];
    ASSERT_TRUE(seq.InsertCP(seq[1], 0));
    EXPECT_EQ(Children(seq), (Names{u"c", u"", u"c"}));
    EXPECT_EQ(&seq[1][1], grandchild);
    ASSERT_TRUE(seq.ReplaceCP(seq, 2));
    EXPECT_EQ(Children(seq[2]), (Names{u"c", u"", u"c"}));
    EXPECT_EQ(UCString(seq[2][1][1].Name()), u"b");
}

TEST(DtdContentPartTest, IndexOutOfRangeGivesTheFirstChild) {
    XmlContentPart g = Group({u"a", u"b"}, false);
    for (int index : {5, 2, -1, INT_MIN})
        EXPECT_EQ(&g[index], &g[0]) << index;
    // Without children: a detached empty part, emptied again on every call.
    XmlContentPart none;
    none[0].Name(u"junk");
    EXPECT_EQ(none.Count(), 0);
    EXPECT_EQ(none[1].Type(), cpNone);
    EXPECT_EQ(static_cast<const XmlContentPart&>(none)[0].Count(), 0);
}

TEST(DtdContentPartTest, DeepAndShallowSearchesAndNameLists) {
    // (a, (b | (c)*), a)
    XmlContentPart inner = Group({u"b"}, true), top = Group({u"a"}, false);
    inner.AddCP(Group({u"c"}, true), true);
    top.AddCP(inner, false);
    top.AddCP(Named(u"a"), false);
    XmlElementDef def;
    def.Contents(top);
    struct Case {
        const UCChar* name;
        bool deep, shallow;
    } cases[] = {{u"a", true, true}, {u"c", true, false}, {u"C", false, false}, {u"", true, true}};
    for (const Case& c : cases) {
        EXPECT_EQ(top.Contains(c.name), c.deep);
        EXPECT_EQ(def.Contains(c.name), c.shallow);
    }
    Names list{u"z"};
    top.ListOfNames(list);
    EXPECT_EQ(list, (Names{u"z", u"a", u"b", u"c", u"a"}));
}

TEST(DtdContentPartTest, CopiesAreDeepAtAnyDepth) {
    XmlContentPart src = Group({u"a"}, false);
    src.AddCP(Group({u"b", u"c"}, true), false);
    src.ActualCount(7);
    XmlContentPart copy(src);
    copy[1][0].Name(u"changed");
    EXPECT_EQ(UCString(src[1][0].Name()), u"b");
    EXPECT_EQ(copy.ActualCount(), 7);
    copy = copy[1];
    EXPECT_EQ(Children(copy), (Names{u"changed", u"c"}));

    XmlContentPart deep;
    XmlContentPart* level = &deep;
    for (int i = 0; i < 200000; ++i) {
        level->AddCP(XmlContentPart(), false);
        level = &(*level)[0];
    }
    level->Name(u"deep");
    copy = deep;
    EXPECT_TRUE(copy.Contains(u"deep"));
    EXPECT_FALSE(copy.Contains(u"x"));
    Names list;
    copy.ListOfNames(list);
    EXPECT_EQ(list, Names{u"deep"});
}

TEST(DtdElementDefTest, CopiesLeaveTheWalkFieldsBehind) {
    XmlElementDef def(true);
    for (int len : {10, 5, 12, -3})
        def.MaxLen(len);
    EXPECT_EQ(def.MaxLen(), 12);
    int a = 0, b = 0;
    EXPECT_EQ(def.InfoPointer(&a), nullptr);
    EXPECT_EQ(def.InfoPointer(&b), &a);
    def.Name(u"e");
    def.Contents(Group({u"x"}, false));
    def.Verified(true);

    XmlElementDef copy(def), target;
    EXPECT_EQ(copy.InfoPointer(), nullptr);
    EXPECT_FALSE(copy.Verified());
    EXPECT_EQ(copy.MaxLen(), 12);
    copy.Contents()[0].Name(u"changed");
    EXPECT_EQ(UCString(def.Contents()[0].Name()), u"x");
    target.InfoPointer(&a);
    target = def;
    EXPECT_EQ(target.InfoPointer(), &a);
    EXPECT_FALSE(target.Verified());
    EXPECT_TRUE(target.IsExternal());
    EXPECT_EQ(target.MaxLen(), 12);
}

}  // namespace
