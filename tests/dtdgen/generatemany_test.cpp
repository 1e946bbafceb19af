// Generation over several documents: for one document it gives exactly what
// GenerateDTD gives, whichever document holds the result; over several it
// merges what each shows.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "xmlapi.h"

namespace {

std::string Text(const XmlDocument& doc) {
    std::string out;
    XmlOutputStream stream;
    stream.SetUTFString(&out);
    doc.GetDTD().Write(stream, false, true, true);
    return "[" + std::string(doc.GetDTD().DocType().begin(), doc.GetDTD().DocType().end()) + "]" + out;
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
        EXPECT_EQ(Text(other), Text(single)) << std::string(src, src + 3);
        EXPECT_EQ(Text(self), Text(single)) << std::string(src, src + 3);
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
              "[r]<!DOCTYPE r [\n<!ELEMENT r ((x | y)*)>\n<!ATTLIST r\n          k          (1 | 2)  >\n"
              "<!ELEMENT x (#PCDATA)>\n<!ATTLIST x\n          length     CDATA  #FIXED \"11\">\n"
              "<!ELEMENT y EMPTY>\n<!ELEMENT other (x)>\n]>\n");
    EXPECT_TRUE(out.GenerateDTD({}));
    EXPECT_EQ(Text(out), "[]");
}

}  // namespace
