// ozmxml validate, and check and validate over many files (-r, --ext, -j,
// --format json): exit codes and exact output of the built binary.
#include <sys/wait.h>

#include <cstdlib>

#include "test_util.h"

namespace {

struct Case {
    const char* args;
    int status;
    const char* out;
    const char* err;
};

#define BOOK "<!DOCTYPE b [<!ELEMENT b (c+)><!ELEMENT c (#PCDATA)><!ATTLIST c n NMTOKEN #REQUIRED>]>"

[[maybe_unused]] const Case kCases[] = {  // unused where the tool is not built
    {"validate good.xml", 0, "1 file: 1 valid, 0 invalid, 0 failed\n", ""},
    {"validate bad.xml good.xml", 1, "2 files: 1 valid, 1 invalid, 0 failed\n",
     "bad.xml: /b/c[2]: Required attribute 'n' of element 'c' is missing\n"
     "bad.xml: /b/c[3]: Value 'x y' of attribute 'n' of element 'c' is not a name token\n"},
    {"validate --max-errors 1 bad.xml", 1, "1 file: 0 valid, 1 invalid, 0 failed\n",
     "bad.xml: /b/c[2]: Required attribute 'n' of element 'c' is missing\n"
     "bad.xml: stopped after 1 violations (--max-errors)\n"},
    {"validate nodtd.xml broken.xml", 1, "2 files: 0 valid, 1 invalid, 1 failed\n",
     "nodtd.xml: The document has no document type definition\nbroken.xml:1:6: Improper element nesting\n"},
    {"validate --dtd book.dtd nodtd.xml", 1, "1 file: 0 valid, 1 invalid, 0 failed\n",
     "nodtd.xml: /c: Root element 'c' is not the document type 'b'\n"},
    {"validate --dtd sub/notes.dtd notes.xml", 0, "1 file: 1 valid, 0 invalid, 0 failed\n", ""},
    {"validate --dtd missing.dtd good.xml", 1, "", "missing.dtd: cannot open: No such file or directory\n"},
    {"validate --format json bad.xml", 1, "",
     ""},  // the JSON line is checked below
    {"check --format json broken.xml good.xml", 1,
     "{\"name\":\"broken.xml\",\"status\":\"failed\",\"errors\":[{\"line\":1,\"column\":6,\"message\":"
     "\"Improper element nesting\"}]}\n{\"name\":\"good.xml\",\"status\":\"parsed\",\"errors\":[]}\n",
     ""},
    {"check dir", 1, "", "dir: is a directory (use -r)\n"},
    {"check -r -j 3 dir", 1, "6 files: 5 parsed, 1 failed\n", "dir/d/e3.xml:1:3: Improper element nesting\n"},
    {"check -r --ext doc -j 2 dir", 0, "", ""},
    {"validate -r -j 2 dir", 1, "6 files: 1 valid, 4 invalid, 1 failed\n",
     "dir/a1.xml: The document has no document type definition\n"
     "dir/a2.xml: The document has no document type definition\n"
     "dir/b.xml: The document has no document type definition\n"
     "dir/d/e3.xml:1:3: Improper element nesting\n"
     "dir/d/e4.xml: The document has no document type definition\n"},
    {"check -j 0 good.xml", 2, "", "ozmxml check: -j needs a number of jobs from 1 to 1024\n"},
    {"check --format xml good.xml", 2, "", "ozmxml check: --format is text or json\n"},
    {"validate --max-errors x good.xml", 2, "", "ozmxml validate: --max-errors needs a number (0: no limit)\n"},
    {"validate", 2, "", "ozmxml validate: no FILE given (see ozmxml validate --help)\n"},
};

TEST(OzmxmlValidate, TableOfRuns) {
#ifndef OZM_TOOL_OZMXML
    GTEST_SKIP() << "the tool is not built";
#else
    TempDir dir;
    ASSERT_TRUE(dir.Ok());
    dir.Write("good.xml", BOOK "<b><c n='1'/><c n='a.b'>x</c></b>");
    dir.Write("bad.xml", BOOK "<b><c n='1'/><c/><c n='x y'/></b>");
    dir.Write("nodtd.xml", "<c n='1'/>");
    dir.Write("broken.xml", "<b><c></b>");
    dir.Write("book.dtd", "<!ELEMENT b (c+)><!ELEMENT c (#PCDATA)><!ATTLIST c n NMTOKEN #REQUIRED>");
    std::filesystem::create_directories(dir.Path("sub"));
    dir.Write("sub/notes.dtd", "<!ENTITY % n SYSTEM 'note.ent'>%n;<!ELEMENT notes (note*)>");
    dir.Write("sub/note.ent", "<!ELEMENT note (#PCDATA)>");
    dir.Write("notes.xml", "<notes><note/></notes>");
    std::filesystem::create_directories(dir.Path("dir/d"));
    for (const char* f : {"dir/b.xml", "dir/a2.xml", "dir/a1.xml", "dir/d/e4.xml", "dir/skip.txt", "dir/x.doc"})
        dir.Write(f, "<a/>");
    dir.Write("dir/d/e3.xml", "<a></b>");
    // A link to a file is a file; a link to a directory is not entered.
    std::filesystem::create_symlink("../good.xml", dir.Path("dir/c.xml"));
    std::filesystem::create_directory_symlink("..", dir.Path("dir/d/up"));
    for (const Case& c : kCases) {
        const std::string command = "cd '" + dir.Dir() + "' && { '" OZM_TOOL_OZMXML "' " + c.args +
                                    "; } >stdout.txt 2>stderr.txt </dev/null";
        const int status = std::system(command.c_str());
        ASSERT_TRUE(WIFEXITED(status)) << c.args;
        EXPECT_EQ(WEXITSTATUS(status), c.status) << c.args;
        if (std::string(c.args).find("json bad") != std::string::npos) {
            EXPECT_EQ(dir.Read("stdout.txt"),
                      "{\"name\":\"bad.xml\",\"status\":\"invalid\",\"errors\":[{\"kind\":\"missing-attribute\","
                      "\"path\":\"/b/c[2]\",\"message\":\"Required attribute 'n' of element 'c' is missing\"},"
                      "{\"kind\":\"attribute-syntax\",\"path\":\"/b/c[3]\",\"message\":\"Value 'x y' of attribute "
                      "'n' of element 'c' is not a name token\"}]}\n");
        } else {
            EXPECT_EQ(dir.Read("stdout.txt"), c.out) << c.args;
        }
        EXPECT_EQ(dir.Read("stderr.txt"), c.err) << c.args;
    }
#endif
}

// Many files on several threads come out in the order named, whatever the
// order in which they finish: large and small files in turn.
TEST(OzmxmlValidate, OrderOfManyFiles) {
#ifndef OZM_TOOL_OZMXML
    GTEST_SKIP() << "the tool is not built";
#else
    TempDir dir;
    ASSERT_TRUE(dir.Ok());
    std::string names, expected;
    for (int i = 0; i < 60; ++i) {
        const std::string name = "f" + std::to_string(i) + ".xml";
        std::string body = "<!DOCTYPE r [<!ELEMENT r (x*)><!ELEMENT x EMPTY>]><r>";
        for (int k = 0; k < (i % 3 == 0 ? 20000 : 1); ++k)
            body += "<x/>";
        dir.Write(name, body + (i % 2 ? "<y/>" : "") + "</r>");
        names += " " + name;
        if (i % 2)
            expected += name + ": /r: Content of 'r' does not match (x*): 'y' is not allowed after 'x', expecting "
                               "'x' or the end\n" + name + ": /r/y: Element 'y' is not declared\n";
    }
    const std::string command =
        "cd '" + dir.Dir() + "' && '" OZM_TOOL_OZMXML "' validate -j 4" + names + " >stdout.txt 2>stderr.txt";
    const int status = std::system(command.c_str());
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 1);
    EXPECT_EQ(dir.Read("stdout.txt"), "60 files: 30 valid, 30 invalid, 0 failed\n");
    EXPECT_EQ(dir.Read("stderr.txt"), expected);
#endif
}

}  // namespace
