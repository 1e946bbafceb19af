// Character and parameter references replaced inside a finished string, in
// one pass; a failure leaves the text unchanged.
#include <gtest/gtest.h>

#include "xmlapi.h"

class XmlDocumentProbe {
public:
    static BATCHERR Rescan(XmlDocument& d, UCString& text, bool params, bool charRefs) {
        return d.Rescan(text, params, charRefs);
    }
};

namespace {

TEST(RescanTest, ExpandsAsAskedAndFailsWithTheTextUnchanged) {
    const struct {
        UCString text;
        bool params, charRefs;
        BATCHERR result;
        UCString expected;  // the text after success, or the message after failure
    } cases[] = {
        {u"a&#65;b&#x41;&#X4a;&#x4A;", false, true, errNone, u"aAbAJJ"},
        {u"&#65601;", false, true, errNone, u"A"},  // 16-bit wrap
        {u"x&#;y", false, true, errNone, UCString(u"x\0y", 3)},
        {u"&#37;p;&#38;#65;", true, true, errNone, u"%p;&#65;"},  // produced units are not read again
        {UCString(u"ab\0&#65;", 8), false, true, errNone, u"ab"},  // the walk stops at a unit 0
        {u"&g;&lt;% p; 5%", true, true, errNone, u"&g;&lt;% p; 5%"},
        {u"&#65;", true, false, errNone, u"&#65;"},
        {u"%p;", false, true, errNone, u"%p;"},
        {u"x%p;y", true, false, errNone, u"xvaly"},
        {u"%ref;", true, true, errNone, u"&#65;%p;"},  // a value is not scanned again
        {u"&#65", false, true, errSyntax, u"Invalid char ref '&#65"},
        {u"ab&#6x;", false, true, errSyntax, u"Invalid char ref '&#6x"},
        {u"&#", false, true, errSyntax, u"Invalid char ref '&#"},
        {u"%p x", true, false, errSyntax, u"Invalid parameter ref '%p'"},
        {u"%q;", true, false, errSyntax, u"Parameter reference '%q' not defined"},
        {u"%g;", true, false, errSyntax, u"Parameter reference '%g' not defined"},
    };
    XmlDocument doc;
    for (const auto& c : cases) {
        doc.ParseString(u"<reset/>");  // leaves an empty message and definition
        ASSERT_TRUE(doc.GetDTD().AddEntity(u"%p", u"val") && doc.GetDTD().AddEntity(u"%ref", u"&#65;%p;") &&
                    doc.GetDTD().AddEntity(u"g", u"general"));
        UCString text = c.text;
        ASSERT_EQ(XmlDocumentProbe::Rescan(doc, text, c.params, c.charRefs), c.result);
        EXPECT_EQ(c.result == errNone ? text : UCString(doc.ErrorMessage()) + u"|" + text,
                  c.result == errNone ? c.expected : c.expected + u"|" + c.text);
    }
}

}  // namespace
