// XmlAttDef and XmlAttrList: initial state, enumerations, ranges, lookups
// that find the first definition also through renames, complete copies.
#include <gtest/gtest.h>

#include <climits>

#include "dtd_test_util.h"

namespace {

TEST(DtdAttrListTest, DefinitionsEnumerationsAndRanges) {
    XmlAttrList list;
    EXPECT_EQ(list.GetAttDef(0), nullptr);
    XmlAttDef* first = list.AddAttDef(u"a");
    list.AddAttDef(u"a");
    EXPECT_EQ(list.DefCount(), 2);
    EXPECT_EQ(list.FindAttDef(u"a"), first);
    EXPECT_EQ(list.FindAttDef(u"A"), nullptr);
    for (int index : {-1, 2, INT_MIN})
        EXPECT_EQ(list.GetAttDef(index), nullptr);
    EXPECT_EQ(first->Type(), attNone);
    EXPECT_EQ(first->DefType(), defNone);
    EXPECT_EQ(UCString(first->DefVal()), u"");
    first->MaxLen(7);
    first->MaxLen(3);
    EXPECT_EQ(first->MaxLen(), 7);
    for (const UCChar* v : {u"x", u"y", u"x"})
        first->AddEnum(v);
    EXPECT_EQ(first->EnumCount(), 3);
    EXPECT_EQ(first->FindEnum(u"y"), 1);
    EXPECT_EQ(first->FindEnum(u"X"), -1);
    EXPECT_EQ(first->GetEnum(3), nullptr);
    EXPECT_EQ(first->GetEnum(-1), nullptr);
}

// Lookups give what a walk from the front gives, for short and long lists,
// with a duplicate appended after the first lookup, and after a rename and
// an assignment through stored pointers.
TEST(DtdAttrListTest, LookupsMatchTheWalk) {
    for (int size : {3, 12, 300}) {
        XmlAttrList list;
        std::vector<XmlAttDef*> defs;
        for (int i = 0; i < size; ++i)
            defs.push_back(list.AddAttDef(Num(u"a", i % (size / 2 + 1)).c_str()));
        auto check = [&](int step) {
            for (int i = 0; i <= size + 1; ++i) {
                UCString name = Num(u"a", i);
                const XmlAttDef* walked = nullptr;
                for (int k = 0; k < list.DefCount() && !walked; ++k)
                    if (name == list.GetAttDef(k)->Name())
                        walked = list.GetAttDef(k);
                ASSERT_EQ(list.FindModifiableAttDef(name.c_str()), walked) << size << " step " << step << ' ' << i;
            }
        };
        check(0);
        list.AddAttDef(u"a1");
        defs[0]->Name(Num(u"a", size / 2).c_str());
        check(1);
        XmlAttDef other;
        other.Name(u"a0");
        *defs[1] = other;
        check(2);
    }
}

TEST(DtdAttrListTest, CopiesCarryTheirOwnDefinitions) {
    XmlAttrList src(true);
    for (int i = 0; i < 40; ++i)
        src.AddAttDef(Num(u"d", i % 20).c_str())->MaxLen(i);
    XmlAttrList copy(src), assigned;
    assigned.AddAttDef(u"old");
    assigned = src;
    for (XmlAttrList* list : {&copy, &assigned}) {
        EXPECT_TRUE(list->IsExternal());
        ASSERT_EQ(list->DefCount(), 40);
        EXPECT_EQ(list->FindAttDef(u"old"), nullptr);
        EXPECT_EQ(list->FindAttDef(u"d5"), list->GetAttDef(5));
        EXPECT_EQ(list->GetAttDef(25)->MaxLen(), 25);
    }
    copy.FindModifiableAttDef(u"d5")->Name(u"x");
    EXPECT_EQ(copy.FindAttDef(u"d5"), copy.GetAttDef(25));
    EXPECT_EQ(src.FindAttDef(u"d5"), src.GetAttDef(5));
}

}  // namespace
