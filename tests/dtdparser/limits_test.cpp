// Hostile definitions end in an orderly failure, and large legitimate ones
// still read: entity bombs and loops, deep nesting, long chains, prefixes.
#include <gtest/gtest.h>

#include <string>

#include "test_util.h"
#include "test_util.h"

namespace {

UCString Repeat(const UCString& s, int n) {
    UCString out;
    for (int i = 0; i < n; ++i)
        out += s;
    return out;
}

UCString Num(int i) {
    std::string s = std::to_string(i);
    return UCString(s.begin(), s.end());
}

TEST(DtdLimitsTest, BombsAndLoopsEndWithAMessageThatNamesTheEntity) {
    UCString laughs = u"<!ENTITY % l0 'lol'>";
    for (int i = 1; i < 12; ++i)
        laughs += u"<!ENTITY % l" + Num(i) + u" '" + Repeat(u"%l" + Num(i - 1) + u";", 10) + u"'>";
    UCString general = u"<!ENTITY g0 'lol'>";
    for (int i = 1; i < 12; ++i)
        general += u"<!ENTITY g" + Num(i) + u" '" + Repeat(u"&g" + Num(i - 1) + u";", 10) + u"'>";
    const UCString big = u"<!ENTITY % big '" + UCString(100000, u' ') + u"'>";
    const struct {
        UCString doc;
        const char16_t* message;
    } cases[] = {
        {u"<!DOCTYPE a [" + laughs + u"]><a/>", u"Entity expansion exceeds 8388608 units at '%l6;'"},
        {u"<!DOCTYPE a [" + general + u"<!ELEMENT a ANY>]><a>&g11;</a>",
         u"Entity expansion exceeds 8388608 units at '&g1;'"},
        {u"<!DOCTYPE a [" + big + Repeat(u"%big;", 200) + u"]><a/>",
         u"Entity expansion exceeds 8388608 units at '%big;'"},
        {u"<!DOCTYPE a [<!ENTITY e '&e;'><!ELEMENT a ANY>]><a>&e;</a>",
         u"Entity references nested too deeply at '&e;'"},
        {u"<!DOCTYPE a [<!ELEMENT a " + Repeat(u"(", 100000) + u"b" + Repeat(u")", 100000) + u">]><a/>",
         u"Content model nested deeper than 256 groups"},
        {u"<!DOCTYPE a [" + Repeat(u"<![INCLUDE[", 100000) + Repeat(u"]]>", 100000) + u"]><a/>",
         u"Included sections exceed 8388608 units at '<![INCLUDE['"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(Narrow(c.doc.substr(0, 80)));
        XmlDocument doc;
        EXPECT_EQ(doc.ParseString(c.doc), errSyntax);
        EXPECT_EQ(Str(doc.ErrorMessage()), c.message);
    }
}

TEST(DtdLimitsTest, LargeLegitimateDefinitionsRead) {
    // A chain of 100,000 distinct elements verifies without recursion;
    // ignored sections nest 100,000 deep; 10,000 references in content.
    UCString chain = u"<!DOCTYPE e0 [<!ENTITY r 'ref'>";
    for (int i = 0; i < 100000; ++i)
        chain += u"<!ELEMENT e" + Num(i) + u" (e" + Num(i + 1) + u")?>";
    chain += u"<!ELEMENT e100000 (#PCDATA)>" + Repeat(u"<![IGNORE[", 100000) + Repeat(u"]]>", 100000) +
             u"]><e0>" + Repeat(u"&r;", 10000) + u"</e0>";
    XmlDocument doc;
    ASSERT_EQ(doc.ParseString(chain), errNone) << Narrow(doc.ErrorMessage());
    EXPECT_TRUE(doc.GetDTD().FindElement(u"e99999")->Verified());
    EXPECT_EQ(doc.RootElement()->DataLength(), 30000);
}

TEST(DtdLimitsTest, EveryPrefixOfADoctypeFailsInOrder) {
    const UCString full =
        u"<!DOCTYPE a SYSTEM 'x' [<!ENTITY % p 'b'><!ELEMENT a (%p;|c)*><!ELEMENT b EMPTY><!ELEMENT c (#PCDATA)>"
        u"<!ATTLIST a k (x|y) #IMPLIED><![INCLUDE[<!ENTITY e 'v'>]]><!NOTATION n SYSTEM 'n'><!-- c -->]>";
    for (size_t n = 10; n < full.size(); ++n) {
        SCOPED_TRACE(n);
        XmlDocument doc;
        EXPECT_EQ(doc.ParseString(full.substr(0, n), false, true), errSyntax);
        EXPECT_NE(Str(doc.ErrorMessage()), u"");
        EXPECT_GE(doc.ErrorLine(), 1);
    }
}

}  // namespace
