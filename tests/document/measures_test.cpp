// Lengths measured while a document is read against its definition: each
// attribute's longest value goes to its own definition whatever the order
// of the attributes, in the fast path and in the general one alike.
#include "test_util.h"

namespace {

TEST(MeasuresTest, AttributesInAnyOrder) {
    const UCString dtd = u"<!DOCTYPE r [<!ELEMENT r ANY><!ELEMENT e EMPTY><!ELEMENT f EMPTY><!ATTLIST e a CDATA #IMPLIED b CDATA #IMPLIED"
                         u" c CDATA #IMPLIED><!ATTLIST f a CDATA #IMPLIED>]>";
    // A line end inside a start tag leaves it to the general reader.
    for (const UCChar* gap : {u" ", u"\n"}) {
        XmlDocument doc;
        ASSERT_EQ(doc.ParseString(dtd + u"<r><e a='1' b='12345'/><e" + gap + u"b='12' a='123'/><e x='1234567' c=''/>"
                                        u"<f b='123456' a='12'/><e c='1234' a='12'/></r>"),
                  errNone);
        EXPECT_EQ(DumpDtd(doc.GetDTD(), true), "r=A#0 e=E#0 @a#3 @b#5 @c#4 f=E#0 @a#2") << Narrow(gap);
    }
}

}  // namespace
