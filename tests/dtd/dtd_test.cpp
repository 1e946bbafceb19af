// XmlDtd: new and cleared state, predefined entities, where definitions come
// from, stable pointers, first-definition lookups through renames, copies
// and Clear, and deep copies.
#include <gtest/gtest.h>

#include <climits>

#include "dtd_test_util.h"

namespace {

UCString Lookup(const XmlDtd& dtd, const UCChar* name) {
    UCString value = u"<unset>";
    dtd.LookupEntity(name, value);
    return value;
}

TEST(DtdEntityTest, PredefinedFirstAndFirstDefinitionCounts) {
    XmlDtd dtd;
    struct Case {
        const UCChar* name;
        const UCChar* value;
    } predefined[] = {{u"lt", u"&#60;"}, {u"gt", u">"}, {u"amp", u"&#38;"}, {u"apos", u"'"}, {u"quot", u"\""}};
    for (const Case& c : predefined) {
        EXPECT_TRUE(dtd.AddEntity(c.name, u"other"));
        EXPECT_EQ(Lookup(dtd, c.name), c.value);
    }
    EXPECT_FALSE(dtd.HaveContents());
    EXPECT_EQ(Lookup(dtd, u"LT"), u"<unset>");

    dtd.AddEntity(u"x", u"general");
    dtd.AddEntity(u"%x", u"parameter");
    dtd.AddEntity(u"e", u"");
    for (int i = 0; i < 500; ++i)
        dtd.AddEntity(Num(u"n", i % 250).c_str(), Num(u"v", i).c_str());
    dtd.AddEntity(u"x", u"second");
    EXPECT_EQ(Lookup(dtd, u"x"), u"general");
    EXPECT_EQ(Lookup(dtd, u"%x"), u"parameter");
    EXPECT_EQ(Lookup(dtd, u"e"), u"");
    EXPECT_EQ(Lookup(dtd, u"n7"), u"v7");
    UCString value = u"kept";
    EXPECT_FALSE(dtd.LookupEntity(u"nope", value));
    EXPECT_EQ(value, u"kept");
    dtd.Clear();
    EXPECT_EQ(Lookup(dtd, u"n7"), u"<unset>");
    EXPECT_EQ(Lookup(dtd, u"lt"), u"&#60;");
}

TEST(DtdContainerTest, HaveContentsClearAndDoingExterns) {
    XmlDtd dtd;
    EXPECT_EQ(dtd.ElementCount(), 0);
    dtd.ExternalDTD(nullptr, u"a.dtd");
    dtd.DocType(u"root");
    EXPECT_FALSE(dtd.HaveContents()) << "identifiers and a name are no contents";
    XmlElementDef* inner = dtd.AddElement(u"a");
    EXPECT_TRUE(dtd.HaveContents());
    dtd.DoingExterns(true);
    EXPECT_TRUE(dtd.AddAttrList(u"b")->IsExternal());
    EXPECT_TRUE(dtd.AddElement(u"b")->IsExternal());
    EXPECT_FALSE(inner->IsExternal());
    dtd.Clear();
    EXPECT_FALSE(dtd.HaveContents());
    EXPECT_FALSE(dtd.DoingExterns());
    EXPECT_FALSE(dtd.AddElement(u"c")->IsExternal());
    EXPECT_EQ(dtd.DocType(), u"");
    EXPECT_EQ(dtd.FindAttrList(u"b"), nullptr);
    EXPECT_TRUE(dtd.ValidateAttribute(nullptr, u"a", u"b"));
}

TEST(DtdContainerTest, DuplicatesRangesAndStablePointers) {
    XmlDtd dtd;
    std::vector<XmlElementDef*> elements;
    std::vector<XmlAttDef*> defs;
    for (int i = 0; i < 50; ++i) {
        elements.push_back(dtd.AddElement(Num(u"e", i % 25).c_str()));
        elements.back()->MaxLen(i);
        defs.push_back(dtd.AddAttrList(Num(u"e", i).c_str())->AddAttDef(u"d"));
        defs.back()->DefVal(Num(u"v", i).c_str());
    }
    EXPECT_EQ(dtd.FindElement(u"E3"), nullptr);
    for (int i = 0; i < 1000; ++i)
        dtd.AddAttrList(dtd.AddElement(Num(u"e", i).c_str())->Name())->AddAttDef(u"d");
    for (int i = 0; i < 50; ++i) {
        ASSERT_EQ(dtd.ElementAt(i), elements[size_t(i)]);
        ASSERT_EQ(Num(u"e", i % 25), elements[size_t(i)]->Name());
        ASSERT_EQ(elements[size_t(i)]->MaxLen(), i);
        ASSERT_EQ(Num(u"v", i), defs[size_t(i)]->DefVal());
    }
    EXPECT_EQ(dtd.FindElement(u"e24"), elements[24]);
    EXPECT_EQ(dtd.FindElement(u"e25"), dtd.ElementAt(75));
    for (int index : {-1, 1050, INT_MIN})
        EXPECT_EQ(dtd.ElementAt(index), nullptr);
}

// FindElement gives what a walk from the front gives, for short and long
// lists, with a duplicate appended after the first lookup, after renames and
// assignments through pointers, in a copy, and after Clear.
TEST(DtdIndexTest, FindElementMatchesTheWalk) {
    for (int size : {4, 12, 400}) {
        XmlDtd dtd;
        for (int i = 0; i < size; ++i)
            dtd.AddElement(Num(u"e", i % (size / 2 + 1)).c_str());
        auto check = [&](const XmlDtd& d, int step) {
            for (int i = 0; i <= size + 1; ++i) {
                UCString name = Num(u"e", i);
                const XmlElementDef* walked = nullptr;
                for (int k = 0; k < d.ElementCount() && !walked; ++k)
                    if (name == d.ElementAt(k)->Name())
                        walked = d.ElementAt(k);
                ASSERT_EQ(d.FindElement(name.c_str()), walked) << size << " step " << step << ' ' << i;
            }
        };
        check(dtd, 0);
        dtd.AddElement(u"e1");
        dtd.ElementAt(0)->Name(Num(u"e", size / 2).c_str());
        check(dtd, 1);
        XmlElementDef other;
        other.Name(u"e0");
        *dtd.ElementAt(1) = other;
        check(dtd, 2);
        const XmlDtd copy(dtd);
        dtd.Clear();
        check(copy, 3);
        for (int i = 0; i < size; ++i)
            dtd.AddElement(Num(u"e", i % 3).c_str());
        check(dtd, 4);
    }
}

TEST(DtdCopyTest, CopiesAreDeepAndIndexTheirOwnDefinitions) {
    XmlDtd src;
    src.DocType(u"r");
    src.AddEntity(u"ent", u"value");
    for (int i = 0; i < 100; ++i) {
        XmlElementDef* def = src.AddElement(Num(u"e", i % 60).c_str());
        def->Contents(Group({Num(u"c", i).c_str()}, false));
        def->Verified(true);
        src.AddAttrList(def->Name())->AddAttDef(Num(u"a", i).c_str());
    }
    src.DoingExterns(true);
    XmlDtd copy(src), assigned;
    assigned.AddElement(u"gone");
    assigned = src;
    for (XmlDtd* d : {&copy, &assigned}) {
        EXPECT_EQ(d->DocType(), u"r");
        EXPECT_TRUE(d->DoingExterns());
        EXPECT_EQ(Lookup(*d, u"ent"), u"value");
        EXPECT_EQ(d->FindElement(u"gone"), nullptr);
        XmlElementDef* e7 = d->FindElement(u"e7");
        EXPECT_EQ(e7, d->ElementAt(7));
        EXPECT_FALSE(e7->Verified());
        EXPECT_EQ(UCString(e7->Contents()[0].Name()), u"c7");
        EXPECT_NE(d->FindAttrList(u"e7"), src.FindAttrList(u"e7"));
    }
    copy.FindElement(u"e7")->Name(u"renamed");
    copy.FindAttrList(u"e7")->Name(u"renamed");
    copy.ElementAt(8)->Contents()[0].Name(u"changed");
    copy.AddEntity(u"new", u"n");
    EXPECT_EQ(copy.FindElement(u"e7"), copy.ElementAt(67));
    EXPECT_EQ(UCString(copy.FindAttrList(u"e7")->GetAttDef(0)->Name()), u"a67");
    EXPECT_EQ(src.FindElement(u"e7"), src.ElementAt(7));
    EXPECT_EQ(UCString(src.FindAttrList(u"e7")->GetAttDef(0)->Name()), u"a7");
    EXPECT_EQ(UCString(src.ElementAt(8)->Contents()[0].Name()), u"c8");
    EXPECT_EQ(Lookup(src, u"new"), u"<unset>");
    XmlDtd second(copy);  // taken after a rename
    EXPECT_EQ(second.FindElement(u"renamed"), second.ElementAt(7));
}

}  // namespace
