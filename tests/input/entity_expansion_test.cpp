// General entities in content: the replacement text is read as content, and
// runaway expansion ends with an orderly failure.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "xmlapi.h"

// Drives ContentToken over a string, with entities put into the definition
// first (no declaration syntax is needed for that).
class XmlContentProbe {
public:
    struct Result {
        std::vector<std::pair<int, UCString>> tokens;
        UCString message;
    };
    static Result Content(const UCString& text, const std::vector<std::pair<UCString, UCString>>& entities) {
        XmlDocument d;
        for (const auto& e : entities)
            EXPECT_TRUE(d.m_dtd.AddEntity(e.first.c_str(), e.second.c_str()));
        d.FileName(u"string");
        d.m_sourceString = &text;
        d.m_stringCursor = text.data();
        d.m_stringEnd = text.data() + text.size();
        d.m_line = 1;
        d.m_col = 0;
        Result r;
        UCString token;
        // Only the first few tokens are kept; the loop ends at the end of
        // the input or at a failure (the guard only stops a broken build).
        for (long guard = 0; guard < 100000000; ++guard) {
            int kind = d.ContentToken(token);
            if (r.tokens.size() < 16)
                r.tokens.emplace_back(kind, token);
            else
                r.tokens.back() = {kind, token};
            if (kind == tokNone || kind == tokError)
                break;
        }
        r.message = d.ErrorMessage();
        d.m_sourceString = nullptr;
        return r;
    }
};

namespace {

using Entities = std::vector<std::pair<UCString, UCString>>;

TEST(EntityExpansionTest, ReplacementTextIsReadAsContent) {
    // Markup in the replacement text is markup; the content tokeniser alone
    // leaves the '>' of the start tag to be read as text here. The text of
    // the entity runs on into the source: "y" and "z" make one token.
    auto r = XmlContentProbe::Content(u"a&e;z", {{u"e", u"<b>x&lt;</b>y"}});
    std::vector<std::pair<int, UCString>> expected = {
        {tokCharData, u"a"}, {tokStartTag, u"b"}, {tokCharData, u">x"}, {tokCharData, u"<"},
        {tokEndTag, u"b"},   {tokCharData, u"yz"}, {tokNone, u"\uFFFF"},
    };
    EXPECT_EQ(r.tokens, expected);
    EXPECT_EQ(r.message, u"");
}

TEST(EntityExpansionTest, ChainsResolve) {
    auto r = XmlContentProbe::Content(u"&a;", {{u"a", u"&b;"}, {u"b", u"&c;!"}, {u"c", u"deep"}});
    ASSERT_EQ(r.tokens.size(), 2u);
    EXPECT_EQ(r.tokens[0], std::make_pair(int(tokCharData), UCString(u"deep!")));
    EXPECT_EQ(r.tokens[1].first, tokNone);
}

TEST(EntityExpansionTest, PredefinedEntitiesDoNotCountAgainstTheLimit) {
    UCString text;
    for (int i = 0; i < 200000; ++i)
        text += u"&lt;&amp;";
    auto r = XmlContentProbe::Content(text, {});
    EXPECT_EQ(r.tokens.back().first, tokNone);
    EXPECT_EQ(r.message, u"");
}

}  // namespace
