// Rescan: character and parameter references replaced inside a finished
// string, in one pass.
#include <gtest/gtest.h>

#include "xmlapi.h"

class XmlDocumentProbe {
public:
    static BATCHERR Rescan(XmlDocument& d, UCString& text, bool params, bool charRefs) {
        return d.Rescan(text, params, charRefs);
    }
};

namespace {

struct RescanCase {
    const char* label;
    UCString text;
    bool params;
    bool charRefs;
    BATCHERR result;
    UCString expected;  // the text after success, or the message after failure
};

class RescanTest : public ::testing::Test {
protected:
    // A parse leaves a known message behind, to see whether a case changes
    // it; it also empties the definition, so the entities come after it.
    void Reset() {
        doc.ParseString(u"<reset/>");
        ASSERT_TRUE(doc.GetDTD().AddEntity(u"%p", u"val"));
        ASSERT_TRUE(doc.GetDTD().AddEntity(u"%ref", u"&#65;%p;"));
        ASSERT_TRUE(doc.GetDTD().AddEntity(u"g", u"general"));
    }
    XmlDocument doc;
};

TEST_F(RescanTest, ExpandsAsAskedAndFailsWithTheTextUnchanged) {
    const RescanCase cases[] = {
        {"decimal", u"a&#65;b", false, true, errNone, u"aAb"},
        {"hexadecimal, either x", u"&#x41;&#X4a;&#x4A;", false, true, errNone, u"AJJ"},
        {"16-bit wrap, decimal", u"&#65601;", false, true, errNone, u"A"},
        {"no digits give 0", u"x&#;y", false, true, errNone, UCString(u"x\0y", 3)},
        {"a produced '%' is not read again", u"&#37;p;", true, true, errNone, u"%p;"},
        {"a produced '&' is not read again", u"&#38;#65;", false, true, errNone, u"&#65;"},
        {"the walk stops at a unit 0", UCString(u"ab\0&#65;", 8), false, true, errNone, u"ab"},
        {"general references stay", u"&g;&lt;", true, true, errNone, u"&g;&lt;"},
        {"'%' without a name stays", u"% p; 5%", true, true, errNone, u"% p; 5%"},
        {"character references off", u"&#65;", true, false, errNone, u"&#65;"},
        {"parameter references off", u"%p;", false, true, errNone, u"%p;"},
        {"parameter reference", u"x%p;y", true, false, errNone, u"xvaly"},
        {"a value is not scanned again", u"%ref;", true, true, errNone, u"&#65;%p;"},
        {"char ref without ';'", u"&#65", false, true, errSyntax, u"Invalid char ref '&#65"},
        {"char ref with a bad digit", u"ab&#6x;", false, true, errSyntax, u"Invalid char ref '&#6x"},
        {"char ref at the end", u"&#", false, true, errSyntax, u"Invalid char ref '&#"},
        {"param ref without ';'", u"%p x", true, false, errSyntax, u"Invalid parameter ref '%p'"},
        {"unknown param ref", u"%q;", true, false, errSyntax, u"Parameter reference '%q' not defined"},
        {"general entity is no parameter entity", u"%g;", true, false, errSyntax,
         u"Parameter reference '%g' not defined"},
    };
    for (const RescanCase& c : cases) {
        SCOPED_TRACE(c.label);
        Reset();
        UCString text = c.text;
        ASSERT_EQ(XmlDocumentProbe::Rescan(doc, text, c.params, c.charRefs), c.result);
        if (c.result == errNone) {
            EXPECT_EQ(text, c.expected);
        } else {
            EXPECT_EQ(UCString(doc.ErrorMessage()), c.expected);
            EXPECT_EQ(text, c.text);
        }
    }
}

}  // namespace
