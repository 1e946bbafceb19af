// XmlDocument::Validate: a table of definitions and documents with the one
// violation each must give, content models matched against a regular
// expression on every short sequence of children, the deep and wide trees,
// and the limits.
#include <deque>
// std::regex of GCC 12 draws a false -Wmaybe-uninitialized at -O1 (the
// sanitizer build): it is the library's own code, not this test's.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <regex>
#include <thread>

#include "test_alloc.h"
#include "test_util.h"

namespace {

struct Found {
    int kind;
    std::string path, message;
};

std::vector<Found> Check(const XmlDocument& doc, size_t most = 0, const XmlDtd* dtd = nullptr) {
    std::vector<XmlViolation> v;
    const bool ok = dtd ? doc.Validate(*dtd, v, most) : doc.Validate(v, most);
    EXPECT_EQ(ok, v.empty());
    std::vector<Found> out;
    for (const XmlViolation& x : v)
        out.push_back({x.Kind(), Utf8(x.Path()), Utf8(x.Message())});
    return out;
}

std::vector<Found> CheckText(const std::string& text) {
    XmlDocument doc;
    EXPECT_EQ(doc.ParseString(U(text)), errNone) << text << ": " << Utf8(doc.ErrorMessage());
    return Check(doc);
}

struct Row {
    const char* subset;  // the internal subset of <!DOCTYPE r [...]>
    const char* body;
    int kind;          // 0: valid
    const char* path;  // of the one violation
    const char* message = nullptr;  // checked when given
};

const char* const kBook =
    "<!ELEMENT r (t, c+)><!ELEMENT t (#PCDATA)><!ELEMENT c (t, p*)><!ELEMENT p (#PCDATA | e)*>"
    "<!ELEMENT e EMPTY><!ATTLIST c id ID #REQUIRED>";

const Row kRows[] = {
    {kBook, "<r><t/><c id='a'><t/></c><c id='b'><t/><p>x<e/>y</p></c></r>", 0, ""},
    {kBook, "<r><t/><c id='a'><t/></c><c id='b'><t/></c><c id='c'><p/></c></r>", valElementContent, "/r/c[3]",
     "Content of 'c' does not match (t, p*): 'p' is not allowed first, expecting 't'"},
    {kBook, "<r><t/><c id='a'><t/><p/><t/></c></r>", valElementContent, "/r/c",
     "Content of 'c' does not match (t, p*): 't' is not allowed after 'p', expecting 'p' or the end"},
    {kBook, "<r><t/></r>", valElementContent, "/r",
     "Content of 'r' does not match (t, c+): it ends after 't', expecting 'c'"},
    {kBook, "<r><t/><c id='a'><t/><p><t/></p></c></r>", valMixedContent, "/r/c/p",
     "Element 't' is not allowed in the content (#PCDATA | e)* of 'p'"},
    {kBook, "<r><t/><c id='a'><t/><p><e>x</e></p></c></r>", valEmptyContent, "/r/c/p/e",
     "Element 'e' is declared EMPTY but has text"},
    {kBook, "<r><t/><c id='a'><t/><p><e><e/></e></p></c></r>", valEmptyContent, "/r/c/p/e",
     "Element 'e' is declared EMPTY but has child 'e'"},
    {kBook, "<r><t/><c id='a'>no<t/></c></r>", valTextInContent, "/r/c",
     "Element 'c' has text 'no' where its content (t, p*) allows only elements"},
    {kBook, "<r>\n <t/>\t<c id='a'>\r\n<t/> </c> </r>", 0, ""},
    {kBook, "<r><t/><c id='a' n='1'><t/></c></r>", valUndeclaredAttribute, "/r/c",
     "Attribute 'n' of element 'c' is not declared"},
    {kBook, "<r><t/><c id='a' id='b'><t/></c></r>", valDuplicateAttribute, "/r/c"},
    {kBook, "<r><t/><c><t/></c></r>", valMissingAttribute, "/r/c", "Required attribute 'id' of element 'c' is missing"},
    {kBook, "<r><t/><c id='a'><t/></c><c id=' a '><t/></c></r>", valDuplicateId, "/r/c[2]",
     "ID 'a' of attribute 'id' of element 'c' is not unique"},
    {kBook, "<r><t/><c id='1a'><t/></c></r>", valAttributeSyntax, "/r/c",
     "Value '1a' of attribute 'id' of element 'c' is not a name"},
    {"<!ELEMENT r EMPTY><!ELEMENT q EMPTY>", "<q/>", valRootName, "/q", "Root element 'q' is not the document type 'r'"},
    // Values compared as XML reads them.
    {"<!ELEMENT r EMPTY><!ATTLIST r f CDATA #FIXED 'a &amp; b' g NMTOKENS #FIXED ' x  y '>",
     "<r f='a &#38; b' g='x&#32; y '/>", 0, ""},
    // A tab from a character reference is no blank to be dropped.
    {"<!ELEMENT r EMPTY><!ATTLIST r g NMTOKENS #IMPLIED>", "<r g='x&#9;y'/>", valAttributeSyntax, "/r"},
    {"<!ELEMENT r EMPTY><!ATTLIST r f CDATA #FIXED 'a  b'>", "<r f='a b'/>", valFixedAttribute, "/r",
     "Value 'a b' of attribute 'f' of element 'r' is not its fixed value 'a  b'"},
    {"<!ENTITY v 'y'><!ELEMENT r EMPTY><!ATTLIST r k (x|y) #IMPLIED>", "<r k=' &v; '/>", 0, ""},
    {"<!ELEMENT r EMPTY><!ATTLIST r k (x|y) #IMPLIED>", "<r k='z'/>", valEnumeration, "/r",
     "Value 'z' of attribute 'k' of element 'r' is not one of (x | y)"},
    {"<!ELEMENT r EMPTY><!ATTLIST r k (x|y) #IMPLIED>", "<r k='&w;'/>", valReference, "/r",
     "Value of attribute 'k' of element 'r' refers to undefined entity 'w'"},
    {"<!ENTITY a '&b;'><!ENTITY b '&a;'><!ELEMENT r EMPTY><!ATTLIST r k NMTOKEN #IMPLIED>", "<r k='&a;'/>",
     valReference, "/r"},
    {"<!ELEMENT r EMPTY><!ATTLIST r k NMTOKEN #IMPLIED>", "<r k='&#0;'/>", valReference, "/r"},
    {"<!ELEMENT r EMPTY><!ATTLIST r k NMTOKENS #IMPLIED>", "<r k='a b,'/>", valAttributeSyntax, "/r"},
    {"<!ELEMENT r EMPTY><!ATTLIST r k IDREFS #IMPLIED i ID #IMPLIED>", "<r i='x' k='x y'/>", valDanglingIdref, "/r",
     "Value 'y' of attribute 'k' of element 'r' names no ID"},
    {"<!ELEMENT r EMPTY><!ATTLIST r k IDREFS #IMPLIED>", "<r k='  '/>", valAttributeSyntax, "/r"},
    {"<!ENTITY e 'v'><!ELEMENT r EMPTY><!ATTLIST r k ENTITY #IMPLIED>", "<r k='e'/>", valEntityAttribute, "/r"},
    {"<!ELEMENT r EMPTY><!ATTLIST r k NOTATION (n) #IMPLIED>", "<r/>", valAttributeDecl, ""},
    {"<!ELEMENT r ANY><!ATTLIST r k ID #IMPLIED j ID #IMPLIED>", "<r/>", valAttributeDecl, "",
     "Element 'r' has more than one ID attribute: 'k' and 'j'"},
    {"<!ELEMENT r ANY><!ATTLIST r k ID 'x'>", "<r/>", valAttributeDecl, ""},
    {"<!ELEMENT r ANY><!ATTLIST r k (a|b|a) #IMPLIED>", "<r/>", valAttributeDecl, ""},
    {"<!ELEMENT r ANY><!ATTLIST r k (a|b) 'c'>", "<r/>", valAttributeDecl, "",
     "Default value 'c' of attribute 'k' of element 'r' does not fit its type"},
    {"<!ELEMENT r ANY><!ELEMENT r EMPTY>", "<r/>", valDuplicateElementDecl, "",
     "Element 'r' is declared more than once"},
    {"<!ELEMENT r ANY><!ELEMENT a EMPTY>", "<r><a/>x<b/></r>", valUndeclaredElement, "/r/b",
     "Element 'b' is not declared"},
    {"<!ELEMENT r (e)*><!ELEMENT e EMPTY>", "<r><e/><e/><e/><e>x</e></r>", valEmptyContent, "/r/e[4]",
     "Element 'e' is declared EMPTY but has text"},
    {"<!ELEMENT r (a*, a)><!ELEMENT a EMPTY>", "<r><a/><a/></r>", valNondeterministic, "/r",
     "Content model of 'r' is not deterministic: (a*, a) lets 'a' match at more than one place"},
};

TEST(Validate, OneViolationEach) {
    for (const Row& row : kRows) {
        const std::string text = std::string("<!DOCTYPE r [") + row.subset + "]>" + row.body;
        SCOPED_TRACE(text);
        const std::vector<Found> found = CheckText(text);
        if (!row.kind) {
            EXPECT_TRUE(found.empty()) << found[0].message;
            continue;
        }
        ASSERT_EQ(found.size(), 1u) << (found.empty() ? "none" : found[0].message)
                                    << (found.size() > 1 ? " / " + found[1].message : "");
        EXPECT_EQ(found[0].kind, row.kind) << found[0].message;
        EXPECT_EQ(found[0].path, row.path);
        if (row.message) {
            EXPECT_EQ(found[0].message, row.message);
        }
    }
}

TEST(Validate, PathsAndOrder) {
    // Positions among siblings of one name, only where there are several;
    // the definition first, the tree in document order (text in element
    // content at the element's end), IDs and references last.
    const std::vector<Found> found = CheckText(
        "<!DOCTYPE r [<!ELEMENT r (a | b)*><!ELEMENT a (#PCDATA)><!ELEMENT b EMPTY><!ELEMENT b EMPTY>"
        "<!ATTLIST a i ID #IMPLIED ref IDREF #IMPLIED>]>"
        "<r>t<a ref='none'/><b/><a i='x'/><a i='x'><z/></a></r>");
    std::vector<std::pair<int, std::string>> got;
    for (const Found& f : found)
        got.emplace_back(f.kind, f.path);
    const std::vector<std::pair<int, std::string>> want = {{valDuplicateElementDecl, ""},
                                                           {valMixedContent, "/r/a[3]"},
                                                           {valUndeclaredElement, "/r/a[3]/z"},
                                                           {valTextInContent, "/r"},
                                                           {valDanglingIdref, "/r/a[1]"},
                                                           {valDuplicateId, "/r/a[3]"}};
    EXPECT_EQ(got, want);
}

TEST(Validate, NoDefinitionLimitAndGivenDefinition) {
    XmlDocument doc;
    ASSERT_EQ(doc.ParseString(u"<r><a/><a/></r>"), errNone);
    std::vector<Found> found = Check(doc);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].kind, valNoDefinition);

    // A definition generated from one document, another checked against it;
    // entities of the document's own definition are used in its values.
    XmlDocument model;
    ASSERT_EQ(model.ParseString(u"<r><a k='x'/><a k='y'/></r>"), errNone);
    model.GenerateDTD();
    ASSERT_EQ(doc.ParseString(u"<!DOCTYPE r [<!ENTITY v 'x'><!ELEMENT r ANY>]><r><a k='&v;'/><a k='z'/><a/><b/></r>"),
              errNone);
    found = Check(doc, 0, &model.GetDTD());
    ASSERT_EQ(found.size(), 3u);
    EXPECT_EQ(found[0].kind, valEnumeration);
    EXPECT_EQ(found[0].path, "/r/a[2]");
    EXPECT_EQ(found[1].kind, valElementContent);
    EXPECT_EQ(found[2].kind, valUndeclaredElement);
    EXPECT_EQ(found[2].path, "/r/b");
    EXPECT_EQ(Check(doc, 1, &model.GetDTD()).size(), 1u);
}

// A content model as a regular expression over one letter per name.
std::string Regex(const XmlContentPart& p) {
    static const char* const mods[] = {"", "+", "*", "?"};
    if (p.Type() == cpName)
        return std::string(Narrow(p.Name())) + mods[p.CountMod()];
    std::string out = "(";
    for (int i = 0; i < p.Count(); ++i)
        out += (i && p.Type() == cpChoice ? "|" : "") + Regex(p[i]);
    return out + ")" + mods[p.CountMod()];
}

// Every sequence of up to four children from {a, b, c} is judged as the
// regular expression of the model judges it, also where a greedy match goes
// wrong and where the model is not deterministic (which is reported).
TEST(Validate, ContentModelsAgainstRegularExpressions) {
    struct Model {
        const char* text;
        bool deterministic;
    };
    std::vector<Model> models = {{"(a*, a)", false},
                                 {"((a, b)?, a, c)", false},
                                 {"((a, b?)+, c)", true},
                                 {"(a?, (b, a?)+)?", true},
                                 {"((a | b)*, a, (b | c))", false},
                                 {"(((a, b)+, c?)+)", true},
                                 {"((a?, b?)*, c)", true},
                                 {"(a, ((b, c?)* | (c, a)+)?, b?)", false},
                                 {"((a+ | b)?, (c | (a?, b))*)", false},
                                 {"(a | (b, c)+ | c*)+", true}};
    std::mt19937 random(7);
    std::deque<std::string> texts;
    const char* const names = "abc";
    for (int m = 0; m < 40; ++m) {
        // Random models with each name once, which are deterministic.
        std::string pool = names, text;
        std::shuffle(pool.begin(), pool.end(), random);
        const char* mods[] = {"", "?", "*", "+"};
        const char sep = random() % 2 ? ',' : '|';
        text = std::string("((") + pool[0] + mods[random() % 4] + sep + pool[1] + mods[random() % 4] + ")" +
               mods[random() % 4] + (random() % 2 ? ',' : '|') + pool[2] + mods[random() % 4] + ")" + mods[random() % 4];
        texts.push_back(text);
        models.push_back({texts.back().c_str(), true});
    }
    std::vector<std::string> words(1, "");
    for (size_t i = 0; i < words.size() && words[i].size() < 4; ++i)
        for (const char* c = names; *c; ++c)
            words.push_back(words[i] + *c);
    XmlDocument doc;
    for (const Model& model : models) {
        SCOPED_TRACE(model.text);
        const std::string subset =
            std::string("<!DOCTYPE r [<!ELEMENT r ") + model.text +
            "><!ELEMENT a EMPTY><!ELEMENT b EMPTY><!ELEMENT c EMPTY>]>";
        ASSERT_EQ(doc.ParseString(U(subset + "<r/>")), errNone);
        const std::regex re(Regex(doc.GetDTD().FindElement(u"r")->Contents()));
        for (const std::string& word : words) {
            std::string body = "<r>";
            for (char c : word)
                body += std::string("<") + c + "/>";
            ASSERT_EQ(doc.ParseString(U(subset + body + "</r>")), errNone);
            bool nondeterministic = false, mismatch = false;
            for (const Found& f : Check(doc)) {
                nondeterministic = nondeterministic || f.kind == valNondeterministic;
                mismatch = mismatch || f.kind == valElementContent;
            }
            EXPECT_EQ(!mismatch, std::regex_match(word, re)) << word;
            EXPECT_EQ(nondeterministic, !model.deterministic) << word;
        }
    }
}

TEST(Validate, DeepAndWideTrees) {
    // A model nested 256 groups deep on every element of a chain of 100,000,
    // built through the tree's operations past the parser's nesting limit.
    std::string subset = "<!DOCTYPE d [<!ELEMENT d " + std::string(256, '(') + "e*, d?";
    for (int i = 0; i < 256; ++i)
        subset += ")";
    subset += "><!ELEMENT e EMPTY>]>";
    XmlDocument deep;
    ASSERT_EQ(deep.ParseString(U(subset + "<d/>")), errNone) << Utf8(deep.ErrorMessage());
    XmlElement* leaf = deep.RootElement();
    for (int i = 1; i < 100000; ++i) {
        XmlElement* e = deep.NewElement();
        e->Name(u"d");
        leaf->Child(e);
        leaf = e;
    }
    EXPECT_TRUE(Check(deep).empty());
    XmlElement* wrong = deep.NewElement();
    wrong->Name(u"d");
    leaf->InsertChild(wrong);
    XmlElement* extra = deep.NewElement();
    extra->Name(u"e");
    leaf->Child(extra);
    std::vector<Found> found = Check(deep);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].kind, valElementContent);
    EXPECT_EQ(found[0].path.size(), 100000u * 2);

    // A million children, the last one out of place.
    std::string wide = "<!DOCTYPE w [<!ELEMENT w ((a, b?)+, c)><!ELEMENT a EMPTY><!ELEMENT b EMPTY>"
                       "<!ELEMENT c EMPTY>]><w>";
    for (int i = 0; i < 500000; ++i)
        wide += "<a/><b/>";
    XmlDocument doc;
    ASSERT_EQ(doc.ParseString(U(wide + "<c/></w>")), errNone);
    EXPECT_TRUE(Check(doc).empty());
    ASSERT_EQ(doc.ParseString(U(wide + "<c/><a/></w>")), errNone);
    found = Check(doc);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].message,
              "Content of 'w' does not match ((a, b?)+, c): 'a' is not allowed after 'c', expecting the end");
}

// Text of every length around the blocks of eight units in which white
// space is scanned, with one unit that is none at every place; quoted values
// around the length at which they are cut.
TEST(Validate, TextAndValuesAtEveryLength) {
    XmlDocument doc;
    const UCString subset = u"<!DOCTYPE r [<!ELEMENT r (a*)><!ELEMENT a EMPTY><!ATTLIST a k (x) #IMPLIED>]>";
    for (size_t n = 0; n <= 34; ++n) {
        for (size_t at = 0; at <= n; ++at) {
            UCString text(n, u' ');
            if (at < n)
                text[at] = u'x';
            ASSERT_EQ(doc.ParseString(subset + u"<r>" + text + u"<a/></r>"), errNone);
            const std::vector<Found> found = Check(doc);
            EXPECT_EQ(found.size(), at < n ? 1u : 0u) << n << " " << at;
        }
        const std::string value(n + 44, 'v');
        ASSERT_EQ(doc.ParseString(subset + u"<r><a k='" + U(value) + u"'/></r>"), errNone);
        const std::vector<Found> found = Check(doc);
        ASSERT_EQ(found.size(), 1u);
        const std::string shown = value.size() > 60 ? value.substr(0, 60) + "..." : value;
        EXPECT_EQ(found[0].message, "Value '" + shown + "' of attribute 'k' of element 'a' is not one of (x)");
    }
}

TEST(Validate, SharedDefinitionOnThreads) {
    XmlDocument definition;
    std::string subset = "<!DOCTYPE r [<!ELEMENT r (i*)>";
    for (int i = 0; i < 40; ++i)
        subset += "<!ELEMENT i" + std::to_string(i) + " EMPTY>";
    ASSERT_EQ(definition.ParseString(U(subset + "<!ELEMENT i EMPTY><!ATTLIST i n NMTOKEN #REQUIRED>]><r/>")), errNone);
    std::vector<std::thread> threads;
    std::vector<size_t> counts(4);
    for (size_t t = 0; t < counts.size(); ++t)
        threads.emplace_back([&, t] {
            XmlDocument doc;
            std::string body = "<r>";
            for (size_t k = 0; k < 200 + t; ++k)
                body += k % 10 ? "<i n='x'/>" : "<i/>";
            for (int r = 0; r < 20; ++r) {
                doc.ParseString(U(body + "</r>"));
                std::vector<XmlViolation> v;
                doc.Validate(definition.GetDTD(), v, 0);
                counts[t] = v.size();
            }
        });
    for (std::thread& t : threads)
        t.join();
    EXPECT_EQ(counts, std::vector<size_t>({20, 21, 21, 21}));
}

TEST(Validate, OutOfMemoryAtEveryAllocation) {
    XmlDocument doc;
    ASSERT_EQ(doc.ParseString(U(std::string("<!DOCTYPE r [") + kBook +
                                "<!ATTLIST t k IDREFS #IMPLIED>]><r><t k='a b'/><c id='a'><t/><p>x<e/></p></c>"
                                "<c id='b'><t/></c></r>")),
              errNone);
    long failures = 0;
    for (long n = 1;; ++n) {
        std::vector<XmlViolation> v;
        TestAlloc::FailAt(n);
        const bool ok = doc.Validate(v, 0);
        TestAlloc::FailAt(0);
        if (ok)
            break;  // no allocation failed any more
        // The document is valid: what a failure leaves is one record at most.
        ASSERT_LE(v.size(), 1u) << n;
        if (!v.empty()) {
            EXPECT_EQ(v[0].Kind(), valOutOfMemory) << n;
        }
        failures = n;
        ASSERT_LT(n, 100000);
    }
    EXPECT_GT(failures, 20);  // the check allocates, and each place was met
}

}  // namespace
