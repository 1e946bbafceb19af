// The ozmxml tool end to end: exit codes and exact output of the built
// binary on a table of inputs.
#include <sys/stat.h>
#include <sys/wait.h>

#include <cstdlib>

#include "test_util.h"

namespace {

struct Case {
    const char* args;  // shell words after the tool, run in the temporary directory
    int status;
    const char* out;
    const char* err;
};

#define FULL "ozmxml: error writing output: No space left on device\n"

[[maybe_unused]] const Case kCases[] = {  // unused where the tool is not built
    {"check good.xml", 0, "", ""},
    {"check bad.xml", 1, "", "bad.xml:3:4: Improper element nesting\n"},
    {"check ext.xml", 1, "", "sub.dtd:2:0: Unexpected token '#BAD'\n"},
    {"check in/ext.xml", 1, "", "in/sub.dtd:2:0: Unexpected token '#BAD'\n"},
    {"check - < bad.xml", 1, "", "<stdin>:3:0: Improper element nesting\n"},
    // A pipe cannot seek: the file reader must not need to.
    {"check pipe.xml & cat bad.xml > pipe.xml; wait $!", 1, "", "pipe.xml:3:4: Improper element nesting\n"},
    {"check missing.xml", 1, "", "missing.xml: cannot open: No such file or directory\n"},
    {"check --bogus good.xml", 2, "", "ozmxml check: unknown option --bogus (see ozmxml check --help)\n"},
    {"check", 2, "", "ozmxml check: no FILE given (see ozmxml check --help)\n"},
    {"check good.xml bad.xml -", 1, "3 files: 1 parsed, 2 failed\n",
     "bad.xml:3:4: Improper element nesting\n<stdin>: no root element\n"},
    // check wants a root element; the other commands take a document without one.
    {"check empty.xml", 1, "", "empty.xml: no root element\n"},
    {"check prolog.xml", 1, "", "prolog.xml: no root element\n"},
    {"tree prolog.xml", 0, "", ""},
    {"write --no-declaration empty.xml", 0, "", ""},
    // Output that cannot be written fails every command.
    {"check good.xml other.xml >/dev/full", 1, "", FULL},
    {"tree good.xml >/dev/full", 1, "", FULL},
    {"write good.xml >/dev/full", 1, "", FULL},
    {"write --utf16 -o /dev/full good.xml", 1, "", "/dev/full: cannot write: No space left on device\n"},
    {"dtd --generate good.xml >/dev/full", 1, "", FULL},
    {"dtd --dot --external sub2.dtd >/dev/full", 1, "", FULL},
    {"--version >/dev/full", 1, "", FULL},
    // Control characters from documents and file names are shown escaped.
    {"tree esc.xml", 0, "a x=\"\\x1B[31m\\\\\" : \"\\x1B]0;t\\x07\\r\\u009B é\\uDC00\"\n", ""},
    {"check esc2.xml", 1, "", "esc2.xml:1:3: Unexpected token '\\x1B'\n"},
    {"check \"$(printf 'x\\033\\377\\342\\202')\"", 1, "", "x\\x1B\\xFF\\xE2\\x82: cannot open: No such file or directory\n"},
    {"dtd esc3.xml", 0,
     "<!DOCTYPE a [\n<!ELEMENT a EMPTY>\n<!ATTLIST a\n          x          CDATA  \"&#x1B;&#x85;\">\n]>\n", ""},
    {"frob", 2, "", "ozmxml: unknown command frob (see ozmxml --help)\n"},
    // External resources: the attack closed, a confinement, catalogues.
    {"tree attack.xml", 0, "r : \"inside\"\n", ""},
    {"tree --no-external attack.xml", 1, "", "attack.xml:1:48: URI 'in.ent' refused: external resources are not allowed\n"},
    {"tree --confine in attack.xml", 1, "", "attack.xml:1:48: URI 'in.ent' refused: outside the directory '$PWD/in'\n"},
    {"tree --no-external --catalog cat.xml attack.xml", 0, "r : \"from the catalogue\"\n", ""},
    {"XML_CATALOG_FILES='missing.xml cat.xml' ozmxml_ tree --no-external attack.xml", 0,
     "r : \"from the catalogue\"\n", "ozmxml tree: missing.xml: Unable to open catalogue '$PWD/missing.xml'\n"},
    {"tree --catalog missing.xml attack.xml", 2, "", "ozmxml tree: missing.xml: Unable to open catalogue '$PWD/missing.xml'\n"},
    {"check --no-external --confine in good.xml", 2, "", "ozmxml check: --no-external and --confine exclude each other\n"},
    {"tree good.xml", 0, "a k=\"v\"\n  b : \"one\\ntwo &\"\n  c\n", ""},
    {"write --no-indent --no-declaration good.xml", 0, "<a k=\"v\"><b>one\ntwo &amp;</b><c/></a>", ""},
    {"write --no-declaration other.xml", 0, "<a>\n    <d/>\n</a>\n", ""},
    {"write --drop-empty -o out.xml good.xml && cat out.xml", 0,
     "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<a k=\"v\">\n    <b>one\ntwo &amp;</b>\n</a>\n", ""},
    {"dtd --external sub2.dtd", 0, "root: r\n<!DOCTYPE r [\n<!ELEMENT r (s*)>\n<!ELEMENT s EMPTY>\n]>\n", ""},
    {"dtd --generate good.xml other.xml", 0,
     "<!DOCTYPE a [\n<!ELEMENT a ((b | c | d)*)>\n<!ATTLIST a\n          k          (v)  >\n<!ELEMENT b (#PCDATA)>\n"
     "<!ATTLIST b\n          length     CDATA  #FIXED \"9\">\n<!ELEMENT c EMPTY>\n<!ELEMENT d EMPTY>\n]>\n",
     ""},
    {"dtd --dot --external sub2.dtd", 0,
     "digraph dtd {\n  rankdir=LR;\n  ordering=out;\n  node [fontname=\"Helvetica\", fontsize=11];\n"
     "  edge [fontname=\"Helvetica\", fontsize=10];\n  e0 [shape=box, label=\"r\", style=bold];\n"
     "  e1 [shape=box, label=\"s\\nEMPTY\"];\n  g0 [shape=ellipse, label=\"choice\"];\n"
     "  e0 -> g0 [style=dotted];\n  g0 -> e1 [label=\"*\"];\n}\n",
     ""},
    {"dtd good.xml", 1, "", "good.xml: no document type declaration (ozmxml dtd --generate infers one)\n"},
};

TEST(OzmxmlTool, TableOfRuns) {
#ifndef OZM_TOOL_OZMXML
    GTEST_SKIP() << "the tool is not built";
#else
    TempDir dir;
    ASSERT_TRUE(dir.Ok());
    dir.Write("good.xml", "<a k=\"v\"><b>one\ntwo &amp;</b><c/></a>");
    dir.Write("other.xml", "<a>\n  <d/>\n</a>");
    dir.Write("bad.xml", "<a>\n <b/>\n <c></a>");
    dir.Write("ext.xml", "<!DOCTYPE a SYSTEM \"sub.dtd\">\n<a/>");
    dir.Write("sub.dtd", "<!ELEMENT a EMPTY>\n<!ATTLIST a x CDATA #BAD>\n");
    std::filesystem::create_directory(dir.Path("in"));
    dir.Write("in/ext.xml", "<!DOCTYPE a SYSTEM \"sub.dtd\">\n<a/>");
    dir.Write("in/sub.dtd", "<!ELEMENT a EMPTY>\n<!ATTLIST a x CDATA #BAD>\n");
    ASSERT_EQ(::mkfifo(dir.Path("pipe.xml").c_str(), 0600), 0);
    dir.Write("sub2.dtd", "<!ELEMENT r (s*)>\n<!ELEMENT s EMPTY>\n");
    dir.Write("empty.xml", "");
    dir.Write("prolog.xml", "<?xml version=\"1.0\"?>\n<!-- none -->\n");
    dir.Write("esc.xml", "<a x=\"\x1B[31m\\\">\x1B]0;t\x07&#13;\xC2\x9B \xC3\xA9&#xDC00;</a>");
    dir.Write("esc2.xml", "<a\x1B/>");
    dir.Write("attack.xml", "<!DOCTYPE r [<!ELEMENT r ANY><!ENTITY x SYSTEM 'in.ent'>]><r>&x;</r>");
    dir.Write("in.ent", "inside");
    dir.Write("cat.ent", "from the catalogue");
    dir.Write("cat.xml", "<catalog xmlns='urn:oasis:names:tc:entity:xmlns:xml:catalog'><system systemId='in.ent' "
                         "uri='cat.ent'/></catalog>");
    dir.Write("esc3.xml", "<!DOCTYPE a [<!ELEMENT a EMPTY><!ATTLIST a x CDATA \"\x1B\xC2\x85\">]><a/>");
    for (const Case& c : kCases) {
        // "ozmxml_" in args stands for the tool where the words before it
        // (an environment variable) come first; "$PWD" in the expected text
        // for the directory.
        std::string args = c.args;
        const size_t at = args.find("ozmxml_");
        const std::string tool = "'" OZM_TOOL_OZMXML "'";
        args = at == std::string::npos ? tool + " " + args : args.replace(at, 7, tool);
        const std::string command =
            "cd '" + dir.Dir() + "' && { " + args + "; } >stdout.txt 2>stderr.txt </dev/null";
        auto expand = [&](std::string text) {
            for (size_t p; (p = text.find("$PWD")) != std::string::npos;)
                text.replace(p, 4, dir.Dir());
            return text;
        };
        const int status = std::system(command.c_str());
        ASSERT_TRUE(WIFEXITED(status)) << c.args;
        EXPECT_EQ(WEXITSTATUS(status), c.status) << c.args;
        EXPECT_EQ(dir.Read("stdout.txt"), expand(c.out)) << c.args;
        EXPECT_EQ(dir.Read("stderr.txt"), expand(c.err)) << c.args;
    }
#endif
}

// write streams through a file buffer of 65,536 bytes, filled in blocks of
// 4,096: a character of two units is put at every place around the block,
// UTF-16 and buffer boundaries, and each output is compared whole.
TEST(OzmxmlTool, WriteAcrossBufferBoundaries) {
#ifndef OZM_TOOL_OZMXML
    GTEST_SKIP() << "the tool is not built";
#else
    TempDir dir;
    ASSERT_TRUE(dir.Ok());
    for (size_t first : {1355, 32755, 65520})
        for (size_t at = first; at < first + 20; ++at) {
            const std::string doc = "<a>" + std::string(at, 'x') + "\xF0\x9F\x98\x80</a>";
            dir.Write("in.xml", doc);
            std::string utf16 = "\xFF\xFE";
            for (UCChar c : U(doc))
                utf16 += {char(c & 0xFF), char(c >> 8)};
            for (const bool wide : {false, true}) {
                const std::string command = "cd '" + dir.Dir() + "' && '" OZM_TOOL_OZMXML "' write --no-indent " +
                                            (wide ? "--utf16 " : "") + "--no-declaration -o out.xml in.xml";
                ASSERT_EQ(std::system(command.c_str()), 0) << at;
                EXPECT_TRUE(dir.Read("out.xml") == (wide ? utf16 : doc)) << at << (wide ? " UTF-16" : " UTF-8");
            }
        }
#endif
}

}  // namespace
