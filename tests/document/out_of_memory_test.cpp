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
                if (run.result) {
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
    EXPECT_EQ(messages, std::set<std::string>{"Out of memory"});
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
    EXPECT_EQ(doc.AddName(u"y"), -1);
    TestAlloc::FailAt(0);
    EXPECT_EQ(doc.AddName(u"x"), 2);  // behind a and b: no trace of the failures
}

}  // namespace
