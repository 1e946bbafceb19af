// General entities in content: the replacement text is read as content.
#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "xmlapi.h"

using Tokens = std::vector<std::pair<int, UCString>>;

// Runs ContentToken over text with the entities put into the definition;
// keeps the first 15 tokens and the last one.
class XmlContentProbe {
public:
    static Tokens Content(const UCString& text, const std::vector<std::pair<UCString, UCString>>& entities) {
        XmlDocument d;
        for (const auto& e : entities)
            EXPECT_TRUE(d.m_dtd.AddEntity(e.first.c_str(), e.second.c_str()));
        d.FileName(u"string");
        d.m_sourceString = &text;
        d.m_stringCursor = text.data();
        d.m_stringEnd = text.data() + text.size();
        d.m_line = 1;
        d.m_col = 0;
        Tokens r;
        UCString token;
        for (int kind = tokCharData; kind != tokNone && kind != tokError;) {
            kind = d.ContentToken(token);
            if (r.size() == 16)
                r.pop_back();
            r.emplace_back(kind, token);
        }
        EXPECT_EQ(UCString(d.ErrorMessage()), u"");
        d.m_sourceString = nullptr;
        return r;
    }
};

namespace {

TEST(EntityExpansionTest, ReplacementTextIsReadAsContent) {
    // Markup in the text is markup; the text runs on into the source ("yz").
    EXPECT_EQ(XmlContentProbe::Content(u"a&e;z", {{u"e", u"<b>x&lt;</b>y"}}),
              (Tokens{{tokCharData, u"a"}, {tokStartTag, u"b"}, {tokCharData, u">x"}, {tokCharData, u"<"},
                      {tokEndTag, u"b"}, {tokCharData, u"yz"}, {tokNone, u"\uFFFF"}}));
    EXPECT_EQ(XmlContentProbe::Content(u"&a;", {{u"a", u"&b;"}, {u"b", u"&c;!"}, {u"c", u"deep"}}),
              (Tokens{{tokCharData, u"deep!"}, {tokNone, u"\uFFFF"}}));
    // Predefined entities do not count against the expansion limit.
    UCString text;
    for (int i = 0; i < 200000; ++i)
        text += u"&lt;&amp;";
    EXPECT_EQ(XmlContentProbe::Content(text, {}).back().first, tokNone);
}

}  // namespace
