// Every allocation of a parse and of a write made to fail in turn: each run
// ends with a result instead of an exception, and the same document then
// reads and writes as before.
#include <functional>
#include <set>

#include "test_alloc.h"
#include "test_util.h"

namespace {

TEST(OutOfMemoryTest, EachAllocationOfAParseOrWriteFailsInTurn) {
    TempDir dir;
    const std::string sub = dir.Write("sub.dtd",
                                      "<?xml version='1.0' encoding='UTF-8'?><!ENTITY % m 'c|d'>"
                                      "<!ELEMENT b (%m;)*><!ELEMENT c EMPTY><!ELEMENT d (#PCDATA)>");
    const std::string ent = dir.Write("e.ent", "external text");
    // A text beyond the first chunk of the text store, an external subset and
    // entity, parameter and general entities, lengths tracked.
    const std::string xml = "<!DOCTYPE a SYSTEM '" + sub + "' [<!ELEMENT a (b)+><!ATTLIST a k CDATA #IMPLIED>"
                            "<!ENTITY e SYSTEM '" + ent + "'><!ENTITY g '<c/>'>]>\n<a k='v'><b><c/><d>" +
                            std::string(5000, 'x') + "&e;</d>&g;</b></a>";
    const UCString path = U(dir.Write("doc.xml", xml)), text = U(xml), subPath = U(sub);
    struct Run {
        const char* name;
        std::function<BATCHERR(XmlDocument&, UCString&)> act;
        std::function<UCString(const XmlDocument&)> result;
    };
    auto written = [](XmlDocument& d, UCString& out) {
        XmlOutputStream s;
        s.SetString(&out);
        return d.Write(s, false, true, true, 7, true);
    };
    const Run runs[] = {
        {"ParseFile", [&](XmlDocument& d, UCString&) { return d.ParseFile(path.c_str()); },
         [](const XmlDocument& d) { return Tree(d); }},
        {"ParseString", [&](XmlDocument& d, UCString&) { return d.ParseString(text); },
         [](const XmlDocument& d) { return Tree(d); }},
        {"ParseExternalDTD", [&](XmlDocument& d, UCString&) { return d.ParseExternalDTD(subPath.c_str()); },
         [](const XmlDocument& d) { return U(DumpDtd(d.GetDTD())); }},
        {"Write", written, nullptr},
        {"GenerateDTD", [](XmlDocument& d, UCString&) { return d.GenerateDTD() ? errNone : errSyntax; },
         [](const XmlDocument& d) { return U(DumpDtd(d.GetDTD(), true)); }},
    };
    std::set<std::string> messages;
    for (const Run& run : runs) {
        SCOPED_TRACE(run.name);
        XmlDocument doc;
        UCString expected, out;
        ASSERT_EQ(doc.ParseFile(path.c_str()), errNone) << Narrow(doc.ErrorMessage());
        const uint64_t before = TestAlloc::Count();
        ASSERT_EQ(run.act(doc, expected), errNone);
        const long count = long(TestAlloc::Count() - before);
        if (run.result)
            expected = run.result(doc);
        for (long k = 1; k <= count; ++k) {
            out.clear();
            TestAlloc::FailAt(k);
            const BATCHERR rc = run.act(doc, out);
            TestAlloc::FailAt(0);
            if (rc != errNone) {
                EXPECT_EQ(rc, errSyntax) << k;
                if (std::string(run.name) == "GenerateDTD") {
                    EXPECT_EQ(DumpDtd(doc.GetDTD()), "") << k;
                } else if (run.result) {
                    EXPECT_EQ(doc.RootElement(), nullptr) << k;
                    messages.insert(Narrow(doc.ErrorMessage()));
                }
            } else {
                EXPECT_EQ(run.result ? run.result(doc) : out, expected) << k;
            }
            // The document is whole again.
            out.clear();
            ASSERT_EQ(run.act(doc, out), errNone) << k;
            EXPECT_EQ(run.result ? run.result(doc) : out, expected) << k;
        }
    }
    // What the definition could not take is named; anything else is told as
    // running out of memory.
    EXPECT_EQ(messages, (std::set<std::string>{"Error adding attdef 'k'", "Error adding attrlist 'a'",
                                               "Error adding element 'a'", "Error adding element 'b'",
                                               "Out of memory"}));
}

// The name table grows (past 32 names, and again past 64) or stays as it
// was: a fresh document fails at each allocation of its first parse in
// turn, then parses the same text whole.
TEST(OutOfMemoryTest, NameTableGrowsOrStaysAsItWas) {
    std::string xml = "<element-name-0>";
    for (int i = 1; i < 70; ++i)
        xml += "<element-name-" + std::to_string(i) + "/>";
    xml += "</element-name-0>";
    const UCString text = U(xml);
    XmlDocument probe;
    const uint64_t before = TestAlloc::Count();
    ASSERT_EQ(probe.ParseString(text), errNone);
    const long count = long(TestAlloc::Count() - before);
    const UCString expected = Tree(probe);
    for (long k = 1; k <= count; ++k) {
        XmlDocument doc;
        TestAlloc::FailAt(k);
        const BATCHERR rc = doc.ParseString(text);
        TestAlloc::FailAt(0);
        EXPECT_TRUE(rc == errNone || rc == errSyntax) << k;
        ASSERT_EQ(doc.ParseString(text), errNone) << k;
        EXPECT_EQ(Tree(doc), expected) << k;
        EXPECT_EQ(doc.AddName(u"element-name-69"), doc.AddName(u"element-name-69")) << k;
    }
}

// A setter of the tree that cannot get its memory leaves the old value.
TEST(OutOfMemoryTest, TreeSettersKeepTheOldValue) {
    XmlDocument doc;
    ASSERT_EQ(doc.ParseString(u"<a k='v'>text<b/></a>"), errNone);
    XmlElement* a = doc.RootElement();
    const UCString longText(100, u'x');
    const std::function<void()> setters[] = {
        [&] { a->Data(longText.c_str()); },
        [&] { a->AddData(longText.c_str()); },
        [&] { a->Name(u"a-new-name-not-in-the-table"); },
        [&] { a->AddAttribute(u"n", longText.c_str()); },
    };
    for (const auto& set : setters) {
        TestAlloc::FailAt(1);
        set();
        TestAlloc::FailAt(0);
        EXPECT_EQ(Tree(doc), u"a{text}[k=v](b{})");
    }
    UCString out = u">";
    TestAlloc::FailAt(1);
    a->GetData(out, XMLD_Markup);
    TestAlloc::FailAt(0);
    EXPECT_EQ(out.substr(0, 1), u">");
    TestAlloc::FailAt(1);
    EXPECT_EQ(doc.AddName(u"a-name-longer-than-a-short-string"), -1);
    TestAlloc::FailAt(0);
    EXPECT_EQ(doc.AddName(u"x"), 2);  // behind a and b: no trace of the failures
}

// The definition's operations that cannot get their memory leave it as it
// was and say so by their result (a setter by keeping the old value), for
// each of their allocations in turn; lookups walk where an index can't be had.
TEST(OutOfMemoryTest, TheDefinitionKeepsItsState) {
    const UCString longName(40, u'n');
    const XmlContentPart longPart = Named(longName.c_str());
    // Each returns whether it did its work.
    const std::function<bool(XmlDtd&, XmlContentPart&)> operations[] = {
        [&](XmlDtd& d, XmlContentPart&) { return d.AddElement(longName.c_str()) != nullptr; },
        [&](XmlDtd& d, XmlContentPart&) { return d.AddAttrList(longName.c_str()) != nullptr; },
        [&](XmlDtd& d, XmlContentPart&) { return d.AddEntity(longName.c_str(), longName.c_str()); },
        [&](XmlDtd&, XmlContentPart& g) { return g.AddCP(longPart, false); },
        [&](XmlDtd&, XmlContentPart& g) { return g.InsertCP(longPart, 1); },
        [&](XmlDtd&, XmlContentPart& g) { return g.ReplaceCP(longPart, 1); },
        [&](XmlDtd& d, XmlContentPart&) { return d.ElementAt(3)->Name(longName.c_str()), d.FindElement(longName.c_str()); },
        [&](XmlDtd& d, XmlContentPart&) { return d.FindElement(u"e17") == d.ElementAt(17); },
    };
    for (const auto& operation : operations) {
        for (long k = 1;; ++k) {
            XmlDtd dtd;
            for (int i = 0; i < 20; ++i)
                dtd.AddElement(Num(u"e", i).c_str());
            XmlContentPart group;  // long enough for the children to fill several chunks
            for (int i = 0; i < 40; ++i)
                group.AddCP(Named(Num(u"c", i).c_str()), false);
            const std::string before = DumpDtd(dtd) + "|" + DumpPart(group);
            TestAlloc::FailAt(k);
            const bool done = operation(dtd, group);
            const bool reached = !TestAlloc::Armed();
            TestAlloc::FailAt(0);
            if (!reached) {
                EXPECT_TRUE(done) << k;
                break;
            }
            if (!done) {
                EXPECT_EQ(DumpDtd(dtd) + "|" + DumpPart(group), before) << k;
            }
        }
    }
}

}  // namespace
