// External subsets and entities read from files, and stand-alone subsets.
#include <sys/stat.h>

#include "test_util.h"

namespace {

struct ExternalTest : ::testing::Test {
    TempDir dir;
    XmlDocument doc;
    // Writes the document and parses it with ParseFile.
    BATCHERR Parse(const std::string& text, bool ignoreDtd = false) {
        return doc.ParseFile(U(dir.Write("doc.xml", text)).c_str(), false, ignoreDtd);
    }
};

TEST_F(ExternalTest, ErrorsInsideASubsetNameItAndCountItsLines) {
    // A verification error reports the '>' pushed behind the last subset; an
    // attribute list at the very end takes that '>' as its own.
    const struct {
        const char* subset;
        const char16_t* message;
        int line;
    } cases[] = {
        {"<!ELEMENT a EMPTY>\n\n<!ELEMENT b (>", u"No type determined for element b", 3},
        {"<!ELEMENT a (c)>\n", u"Element c is referenced but never defined", 2},
        {"<!ELEMENT a EMPTY>]", u"Unexpected token ']'", 1},
        {"<!ELEMENT a EMPTY><!ATTLIST a b CDATA", u"Unexpected token '<'", 0},
    };
    for (const auto& c : cases) {
        dir.Write("x.dtd", c.subset);
        EXPECT_EQ(Parse("<!DOCTYPE a SYSTEM 'x.dtd'>\n<a/>"), errSyntax);
        EXPECT_EQ(Str(doc.ErrorMessage()), c.message);
        if (c.line) {
            EXPECT_EQ(Str(doc.ErrorFile()) + Num(u":", doc.ErrorLine()), Num(u"x.dtd:", c.line));
        }
    }
}

TEST_F(ExternalTest, ResourcesThatCannotBeRead) {
    const std::string big = dir.Write("big.dtd", "");
    ASSERT_EQ(truncate(big.c_str(), off_t(XmlDocument::MaxResourceBytes) + 1), 0);
    // Eight names of a file of 9 MiB go beyond the bytes of one parse.
    const std::string nine = dir.Write("nine.ent", "");
    ASSERT_EQ(truncate(nine.c_str(), off_t(9) << 20), 0);
    std::string eight;
    for (int i = 0; i < 8; ++i)
        eight += "<!ENTITY e" + std::to_string(i) + " SYSTEM 'nine.ent'>";
    const std::string fifo = dir.Path("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const std::string d = dir.Path("");
    struct Bad {
        std::string doc;
        BATCHERR code;
        std::string message;
    } cases[] = {
        {"<!DOCTYPE a SYSTEM 'missing.dtd'><a/>", errOpenUri, "Unable to open URI '" + d + "missing.dtd'"},
        {"<!DOCTYPE a SYSTEM 'sub/a.dtd'><a/>", errOpenUri, "Unable to open URI 'sub/a.dtd'"},
        {"<!DOCTYPE a SYSTEM '" + d + "'><a/>", errOpenUri, "URI '" + d + "' is a directory, not a regular file"},
        // A FIFO without a writer is refused, not waited for.
        {"<!DOCTYPE a [<!ENTITY e SYSTEM '" + fifo + "'>]><a/>", errOpenUri,
         "URI '" + fifo + "' is a FIFO, not a regular file"},
        {"<!DOCTYPE a SYSTEM '/dev/null'><a/>", errOpenUri, "URI '/dev/null' is a character device, not a regular file"},
        {"<!DOCTYPE a [" + eight + "]><a/>", errOpenUri,
         "External resources of one parse exceed 67108864 bytes at '" + nine + "'"},
        {"<!DOCTYPE a SYSTEM 'big.dtd'><a/>", errOpenUri, "URI '" + big + "' is larger than 16777216 bytes"},
        // A message is held to 511 units.
        {"<!DOCTYPE a SYSTEM '" + std::string(5000, 'x') + "'><a/>", errOpenUri,
         "Unable to open URI '" + std::string(511 - 20, 'x')},
        {"<!DOCTYPE a [<!ENTITY e SYSTEM 'missing.ent' NDATA x>]><a/>", errOpenUri,
         "Unable to open URI '" + d + "missing.ent'"},
        {"<!DOCTYPE a [<!ENTITY e SYSTEM 'doc.xml' NDATA x>]><a/>", errSyntax, "Unexpected token 'NDATA'"},
    };
    for (const Bad& c : cases) {
        SCOPED_TRACE(c.doc.substr(0, 60));
        EXPECT_EQ(Parse(c.doc), c.code);
        EXPECT_EQ(Narrow(doc.ErrorMessage()), c.message);
    }
    // A text declaration that moves the position of the enclosing text is
    // read again for each name of its file, and moves it each time.
    dir.Write("nl.ent", "<?xml version='1.0'\n?>x");
    EXPECT_EQ(Parse("<!DOCTYPE a [<!ENTITY a SYSTEM 'nl.ent'><!ENTITY b SYSTEM 'nl.ent'> ?]><a/>"), errSyntax);
    EXPECT_EQ(doc.ErrorLine(), 3);
    // Nothing is fetched with ignoreDtd.
    EXPECT_EQ(Parse("<!DOCTYPE a SYSTEM 'missing.dtd' [<!ENTITY e SYSTEM 'missing.ent'>]><a/>", true), errOpenUri);
    EXPECT_EQ(Parse("<!DOCTYPE a SYSTEM 'missing.dtd'><a/>", true), errNone);
}

TEST_F(ExternalTest, ExpansionAllowedGrowsWithTheInputAndTheResourcesRead) {
    // 300,000 references from a file, beyond the fixed allowance.
    std::string refs;
    for (int i = 0; i < 300000; ++i)
        refs += "&n;";
    ASSERT_EQ(Parse("<!DOCTYPE a [<!ENTITY n ' '><!ELEMENT a ANY>]><a>" + refs + "</a>"), errNone);
    // One reference to an external entity larger than the fixed allowance.
    dir.Write("large.ent", std::string(9000000, 'x'));
    ASSERT_EQ(Parse("<!DOCTYPE a [<!ENTITY e SYSTEM 'large.ent'><!ELEMENT a ANY>]><a>&e;</a>"), errNone);
    EXPECT_EQ(doc.RootElement()->DataLength(), 9000000);
    // Its second reference is over.
    EXPECT_EQ(Parse("<!DOCTYPE a [<!ENTITY e SYSTEM 'large.ent'><!ELEMENT a ANY>]><a>&e;&e;</a>"), errSyntax);
    EXPECT_EQ(Str(doc.ErrorMessage()), u"Entity expansion exceeds 17388608 units at '&e;'");
}

TEST_F(ExternalTest, EncodingsAndTextDeclarations) {
    struct Form {
        const char* label;
        std::string bytes;
        BATCHERR code;
        const char16_t* message;
    };
    const std::string decl = "<!ELEMENT a EMPTY>";
    std::string le("\xFF\xFE", 2), be("\xFE\xFF", 2), leBare, beBare;
    for (char c : decl) {
        le += std::string{c, '\0'}, leBare += std::string{c, '\0'};
        be += std::string{'\0', c}, beBare += std::string{'\0', c};
    }
    const Form forms[] = {
        {"UTF-8", decl, errNone, u""},
        {"UTF-8 with a mark", "\xEF\xBB\xBF" + decl, errNone, u""},
        {"UTF-16LE with a mark", le, errNone, u""},
        {"UTF-16LE without a mark", leBare, errNone, u""},
        {"UTF-16BE without a mark", beBare, errNone, u""},
        {"text declaration", "<?XML version='1.0' standalone='no'?>" + decl, errNone, u""},
        {"empty file", "", errSyntax, u"Unable to locate root element a in DTD"},
        {"invalid UTF-8 in a comment", "<!-- \xC3\x28\xFF -->" + decl, errNone, u""},
        {"unknown encoding", "<?xml encoding='x-unknown'?>" + decl, errSyntax, u"Unsupported encoding 'x-unknown'"},
        {"declaration without an end", "<?xml version='1.0'", errSyntax, u"Error reading TextDecl"},
        {"a target that starts with xml", "<?xml-model x?>" + decl, errSyntax, u"Unexpected token '-'"},
    };
    for (const Form& f : forms) {
        SCOPED_TRACE(f.label);
        dir.Write("x.dtd", f.bytes);
        EXPECT_EQ(Parse("<!DOCTYPE a SYSTEM 'x.dtd'><a/>"), f.code);
        EXPECT_EQ(Str(doc.ErrorMessage()), f.message);
    }
}

TEST_F(ExternalTest, StandaloneSubsets) {
    struct Subset {
        const char* text;
        BATCHERR code;
        const char16_t* message;
        const char16_t* root;
    } cases[] = {
        {"<!ELEMENT a (b)><!ELEMENT b (c)><!ELEMENT c EMPTY>", errNone, u"", u"a"},
        {"<!ELEMENT a (b)><!ELEMENT b EMPTY> junk <!ELEMENT z (q)>", errNone, u"", u"a"},
        {"<!ELEMENT a (b)><!ELEMENT c (d)><!ELEMENT b EMPTY><!ELEMENT d EMPTY>", errSyntax,
         u"Could not find single root element in external DTD subset", nullptr},
        {"<!ELEMENT a (b)>", errSyntax, u"Element b is referenced but never defined", nullptr},
        {"<!ENTITY % self SYSTEM 'x.dtd'>%self;", errSyntax, u"Entity references nested too deeply at '%self;'",
         nullptr},
        {"<!ENTITY % y SYSTEM 'y.dtd'>%y;", errSyntax, u"Entity references nested too deeply at '%x;'", nullptr},
    };
    dir.Write("y.dtd", "<!ENTITY % x SYSTEM 'x.dtd'>%x;");
    for (const Subset& c : cases) {
        SCOPED_TRACE(c.text);
        dir.Write("x.dtd", c.text);
        doc.ParseFile(U(dir.Path("x.dtd")).c_str());  // leaves the directory for bare names
        const UCString before = doc.ErrorMessage();  // success leaves it alone
        EXPECT_EQ(doc.ParseExternalDTD(U(dir.Path("x.dtd")).c_str()), c.code);
        EXPECT_EQ(Str(doc.ErrorMessage()), c.code == errNone ? before : c.message);
        if (c.root) {
            EXPECT_EQ(Str(doc.GetDTD().DocType().c_str()), c.root);
        }
    }
}

}  // namespace
