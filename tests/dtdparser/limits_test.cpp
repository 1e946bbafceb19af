// Hostile definitions end in an orderly failure naming the entity; large
// legitimate ones still read; every prefix of a DOCTYPE fails cleanly.
#include "test_util.h"

namespace {

TEST(DtdLimitsTest, BombsLoopsAndDepth) {
    UCString laughs = u"<!ENTITY % l0 'lol'>", general = u"<!ENTITY g0 'lol'>";
    for (int i = 1; i < 12; ++i) {
        laughs += Num(u"<!ENTITY % l", i) + u" '" + Repeat(Num(u"%l", i - 1) + u";", 10) + u"'>";
        general += Num(u"<!ENTITY g", i) + u" '" + Repeat(Num(u"&g", i - 1) + u";", 10) + u"'>";
    }
    const struct {
        UCString doc;
        const char16_t* message;
    } cases[] = {
        {u"<!DOCTYPE a [" + laughs + u"]><a/>", u"Entity expansion exceeds 8388608 units at '%l6;'"},
        {u"<!DOCTYPE a [" + general + u"<!ELEMENT a ANY>]><a>&g11;</a>", u"Entity expansion exceeds 8388608 units at '&g1;'"},
        {u"<!DOCTYPE a [<!ENTITY % big '" + UCString(100000, u' ') + u"'>" + Repeat(u"%big;", 200) + u"]><a/>",
         u"Entity expansion exceeds 10053600 units at '%big;'"},  // 100 times the input read
        // A name that begins like a predefined one still counts.
        {u"<!DOCTYPE a [<!ENTITY ltx '" + UCString(100000, u' ') + u"'><!ELEMENT a ANY>]><a>" + Repeat(u"&ltx;", 200) +
             u"</a>",
         u"Entity expansion exceeds 10055500 units at '&ltx;'"},
        {u"<!DOCTYPE a [<!ENTITY e '&e;'><!ELEMENT a ANY>]><a>&e;</a>", u"Entity references nested too deeply at '&e;'"},
        {u"<!DOCTYPE a [<!ELEMENT a " + Repeat(u"(", 100000) + u"b" + Repeat(u")", 100000) + u">]><a/>",
         u"Content model nested deeper than 256 groups"},
        {u"<!DOCTYPE a [" + Repeat(u"<![INCLUDE[", 100000) + Repeat(u"]]>", 100000) + u"]><a/>",
         u"Included sections exceed 140001300 units at '<![INCLUDE['"},
    };
    for (const auto& c : cases) {
        XmlDocument doc;
        EXPECT_EQ(doc.ParseString(c.doc), errSyntax);
        EXPECT_EQ(Str(doc.ErrorMessage()), c.message) << Narrow(c.doc.substr(0, 80));
    }
    // A chain of 100,000 elements verifies without recursion; ignored
    // sections nest 100,000 deep; 10,000 references in content.
    UCString chain = u"<!DOCTYPE e0 [<!ENTITY r 'ref'>";
    for (int i = 0; i < 100000; ++i)
        chain += Num(u"<!ELEMENT e", i) + Num(u" (e", i + 1) + u")?>";
    chain += u"<!ELEMENT e100000 (#PCDATA)>" + Repeat(u"<![IGNORE[", 100000) + Repeat(u"]]>", 100000) + u"]><e0>" +
             Repeat(u"&r;", 10000) + u"</e0>";
    XmlDocument doc;
    ASSERT_EQ(doc.ParseString(chain), errNone) << Narrow(doc.ErrorMessage());
    EXPECT_TRUE(doc.GetDTD().FindElement(u"e99999")->Verified());
    EXPECT_EQ(doc.RootElement()->DataLength(), 30000);
    // Many references to a short entity, beyond the fixed allowance of a
    // small document: the allowance grows with the input.
    const UCString nbsp = u"<!DOCTYPE a [<!ENTITY n ' '><!ELEMENT a ANY>]><a>" + Repeat(u"&n;", 300000) + u"</a>";
    ASSERT_EQ(doc.ParseString(nbsp), errNone) << Narrow(doc.ErrorMessage());
    EXPECT_EQ(doc.RootElement()->DataLength(), 300000);
    const UCString full =
        u"<!DOCTYPE a SYSTEM 'x' [<!ENTITY % p 'b'><!ELEMENT a (%p;|c)*><!ELEMENT b EMPTY><!ELEMENT c (#PCDATA)>"
        u"<!ATTLIST a k (x|y) #IMPLIED><![INCLUDE[<!ENTITY e 'v'>]]><!NOTATION n SYSTEM 'n'><!-- c -->]>";
    for (size_t n = 10; n < full.size(); ++n) {
        EXPECT_EQ(doc.ParseString(full.substr(0, n), false, true), errSyntax) << n;
        EXPECT_TRUE(Str(doc.ErrorMessage()) != u"" && doc.ErrorLine() >= 1) << n;
    }
}

}  // namespace
