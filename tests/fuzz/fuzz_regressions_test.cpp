// Inputs that the fuzz targets found, minimised: each ends with its exact
// result. The same inputs lie in fuzz/regressions, where the CI fuzz step
// runs them under the fuzzers' time and memory limits.
#include "test_util.h"

namespace {

struct Regression {
    const char* what;
    const char16_t* document;
    bool generate;  // read back after GenerateDTD and a whole write
    BATCHERR code;
    const char16_t* message;
};

const Regression kRegressions[] = {
    // Each round gave one unit of text and pushed four units back: two
    // million rounds before the expansion limit, several seconds.
    {"self reference behind one unit", u"<!DOCTYPE a [<!ENTITY e 'b&e;'><!ELEMENT a ANY>]><a>&e;</a>", false, errSyntax,
     u"Entity expansion exceeds 8388608 units at '&e;'"},
    {"the same in front of the text", u"<!DOCTYPE a [<!ENTITY e '&e;b'><!ELEMENT a ANY>]><a>&e;</a>", false, errSyntax,
     u"Entity references nested too deeply at '&e;'"},
    // Known losses of a generated definition: a declaration reads these
    // element names as keywords, and enumeration values must be names.
    {"element named empty", u"<empty/>", true, errSyntax, u"Unexpected token 'empty'"},
    {"element named Any", u"<r><Any/></r>", true, errSyntax, u"Unexpected token 'Any'"},
    {"enumeration value starting with a digit", u"<a b='1'/>", true, errSyntax, u"Unexpected token '1'"},
};

TEST(FuzzRegressionTest, EndsWithTheExpectedResult) {
    for (const Regression& r : kRegressions) {
        SCOPED_TRACE(r.what);
        XmlDocument doc;
        BATCHERR result = doc.ParseString(r.document, false, r.generate);
        if (r.generate) {
            ASSERT_EQ(result, errNone);
            doc.GenerateDTD();
            result = doc.ParseString(Written([&](XmlOutputStream& s) { doc.Write(s, false, false, true, 7, true); }));
        }
        EXPECT_EQ(result, r.code);
        EXPECT_EQ(UCString(doc.ErrorMessage()), r.message);
    }
}

}  // namespace
