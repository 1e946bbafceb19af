// Catalogues: a tree of files in a temporary directory resolved by the rules
// (order, longest prefix, delegation, prefer, groups, bases, cycles), the
// errors of Load and the files it passes over, the limits, running out of
// memory, lookups on several threads, and the system's own catalogue.
#include <sys/stat.h>

#include <thread>

#include "test_alloc.h"
#include "test_util.h"

namespace {

std::string Catalog(const std::string& body, const std::string& attributes = "") {
    return "<?xml version='1.0'?>\n<!DOCTYPE catalog PUBLIC '-//OASIS//DTD XML Catalogs V1.1//EN'\n"
           "  'http://www.oasis-open.org/committees/entity/release/1.1/catalog.dtd'>\n"
           "<catalog xmlns='urn:oasis:names:tc:entity:xmlns:xml:catalog'" + attributes + ">\n" + body + "</catalog>\n";
}

// What a lookup gives: the path, or "-" when nothing is found.
UCString Found(const XmlCatalog& c, const UCChar* pub, const UCChar* sys) {
    UCString path = u"untouched";
    return c.Resolve(pub, sys, path) ? path : path == u"untouched" ? u"-" : u"changed on a miss";
}
UCString FoundUri(const XmlCatalog& c, const UCChar* uri) {
    UCString path = u"untouched";
    return c.ResolveUri(uri, path) ? path : path == u"untouched" ? u"-" : u"changed on a miss";
}

struct Tree {
    TempDir dir;
    Tree() {
        mkdir(dir.Path("sub").c_str(), 0700);
        dir.Write("root.xml", Catalog(
            "<system systemId='http://x/sys.dtd' uri='sys.dtd'/><system systemId='http://x/sys.dtd' uri='second.dtd'/>"
            "<rewriteSystem systemIdStartString='http://x/r/' rewritePrefix='rw/'/>"
            "<rewriteSystem systemIdStartString='http://x/r/long/' rewritePrefix='file:///abs/long/'/>"
            "<systemSuffix systemIdSuffix='/suffix.dtd' uri='suf.dtd'/>"
            "<system systemId='http://x/%C3%A9%20dir/a.dtd' uri='my%20dir/%C3%A9.dtd'/>"
            "<public publicId=' -//A//DTD \n Pub//EN ' uri='pub.dtd'/>"
            "<public publicId='-//A//DTD Urn::x//EN' uri='urn.dtd'/>"
            "<group prefer='system' xml:base='sub/'><public publicId='-//A//DTD Sys//EN' uri='g.dtd'/>"
            "  <public publicId='-//A//DTD Base//EN' uri='b.dtd' xml:base='../sub/../other/'/></group>"
            "<delegatePublic publicIdStartString='-//D//' catalog='d1.xml'/>"
            "<delegatePublic publicIdStartString='-//D//DTD Long' catalog='sub/d2.xml'/>"
            "<delegateSystem systemIdStartString='http://d/' catalog='d1.xml'/>"
            "<x:system xmlns:x='urn:other' systemId='http://x/foreign' uri='foreign.dtd'/>"
            "<x:group xmlns:x='urn:other'><system systemId='http://x/foreign' uri='foreign.dtd'/></x:group>"
            "<c:system xmlns:c='urn:oasis:names:tc:entity:xmlns:xml:catalog' systemId='http://x/c' uri='c.dtd'/>"
            "<uri name='http://u/a.xsd' uri='a.xsd'/><rewriteURI uriStartString='http://u/r/' rewritePrefix='ur/'/>"
            "<uriSuffix uriSuffix='.rng' uri='any.rng'/><delegateURI uriStartString='http://u/d/' catalog='d1.xml'/>"
            "<nextCatalog catalog='missing.xml'/><nextCatalog catalog='" + dir.Path("next.xml") + "'/>"));
        dir.Write("d1.xml", Catalog("<public publicId='-//D//DTD Long One//EN' uri='d1.dtd'/>"
                                    "<public publicId='-//D//DTD Short//EN' uri='d1short.dtd'/>"
                                    "<system systemId='http://d/x.dtd' uri='dx.dtd'/><uri name='http://u/d/u' uri='du'/>"));
        dir.Write("sub/d2.xml", Catalog("<public publicId='-//D//DTD Long One//EN' uri='d2.dtd'/>"
                                        "<nextCatalog catalog='file://" + dir.Path("root.xml") + "'/>"));
        dir.Write("next.xml", Catalog("<system systemId='http://n/a.dtd' uri='/abs/n.dtd'/>"
                                      "<public publicId='-//A//DTD Sys//EN' uri='next-sys.dtd'/>"
                                      "<public publicId='-//D//DTD Nothing//EN' uri='never.dtd'/>"
                                      "<rewriteSystem systemIdStartString='http://n/' rewritePrefix='http://mirror/'/>"
                                      "<nextCatalog catalog='root.xml'/><nextCatalog catalog='next.xml'/>"));
    }
    std::string P(const std::string& name) const { return dir.Path(name); }
};

TEST(CatalogTest, ResolvesByTheRules) {
    Tree t;
    XmlCatalog c;
    ASSERT_EQ(c.Load(t.dir.UPath("root.xml").c_str()), errNone);
    EXPECT_EQ(Str(c.ErrorMessage()), U("Catalogue '" + t.P("missing.xml") + "' named in '" + t.P("root.xml") +
                                       "' passed over: Unable to open catalogue '" + t.P("missing.xml") + "'"));
    EXPECT_EQ(c.FileCount(), 4);
    const struct {
        const char16_t* pub;
        const char16_t* sys;
        std::string path;  // "-": not found
    } rows[] = {
        {nullptr, u"http://x/sys.dtd", t.P("sys.dtd")},             // the first of two
        {u"-//A//DTD Pub//EN", u"http://x/sys.dtd", t.P("sys.dtd")},  // system entries first
        {nullptr, u"http://x/r/a/b.dtd", t.P("rw/a/b.dtd")},
        {nullptr, u"http://x/r/long/c.dtd", "/abs/long/c.dtd"},      // the longest start string
        {nullptr, u"http://y/z/suffix.dtd", t.P("suf.dtd")},
        {nullptr, u"http://x/\u00e9 dir/a.dtd", t.P("my dir/\xC3\xA9.dtd")},
        {u"-//A//DTD Pub//EN", nullptr, t.P("pub.dtd")},            // white space collapsed
        {u"urn:publicid:-:A:DTD+Pub:EN", nullptr, t.P("pub.dtd")},
        {nullptr, u"urn:publicid:-:A:DTD+Urn;x:EN", t.P("urn.dtd")},
        {u"-//A//DTD Pub//EN", u"urn:publicid:other", t.P("pub.dtd")},  // the URN that differs is dropped
        {u"-//A//DTD Sys//EN", nullptr, t.P("sub/g.dtd")},          // the group's base
        {u"-//A//DTD Sys//EN", u"http://none", t.P("next-sys.dtd")}, // prefer=system: on to the next file
        {u"-//A//DTD Base//EN", nullptr, t.P("other/b.dtd")},
        {u"-//D//DTD Long One//EN", nullptr, t.P("sub/d2.dtd")},    // the longest delegate first
        {u"-//D//DTD Short//EN", nullptr, t.P("d1short.dtd")},
        {u"-//D//DTD Nothing//EN", nullptr, "-"},                   // delegation does not come back
        {nullptr, u"http://d/x.dtd", t.P("dx.dtd")},
        {u"-//D//DTD Short//EN", u"http://d/none", "-"},             // delegateSystem drops the public id
        {nullptr, u"http://x/foreign", "-"},                        // other namespaces
        {nullptr, u"http://x/c", t.P("c.dtd")},
        {nullptr, u"http://n/a.dtd", "/abs/n.dtd"},                  // nextCatalog, after a missing one
        {nullptr, u"http://n/b/c.dtd", "http://mirror/b/c.dtd"},     // a URI that is no file
        {nullptr, u"http://nowhere/x.dtd", "-"},                     // cycles end
        {u"-//Nobody//EN", nullptr, "-"},
        {u"", u"", "-"},
        {nullptr, nullptr, "-"},
    };
    for (const auto& r : rows)
        EXPECT_EQ(Found(c, r.pub, r.sys), r.path == "-" ? u"-" : U(r.path)) << Utf8(r.pub) << " " << Utf8(r.sys);
    const std::pair<const char16_t*, std::string> uris[] = {
        {u"http://u/a.xsd", t.P("a.xsd")}, {u"http://u/r/x/y.xsd", t.P("ur/x/y.xsd")},
        {u"http://v/g.rng", t.P("any.rng")}, {u"http://u/d/u", t.P("du")}, {u"http://u/d/v", "-"},
        {u"http://x/sys.dtd", "-"}, {u"urn:publicid:-:D:DTD+Short:EN", t.P("d1short.dtd")}, {nullptr, "-"},
    };
    for (const auto& u : uris)
        EXPECT_EQ(FoundUri(c, u.first), u.second == "-" ? u"-" : U(u.second)) << Utf8(u.first);

    // Added catalogues come after the first; a file named twice is read once.
    t.dir.Write("extra.xml", Catalog("<system systemId='http://x/sys.dtd' uri='late.dtd'/>"
                                     "<system systemId='http://e/only' uri='only.dtd'/>"
                                     "<nextCatalog catalog='d1.xml'/>", " prefer='system'"));
    ASSERT_EQ(c.Load((u"File://localhost" + t.dir.UPath("extra.xml")).c_str()), errNone);
    EXPECT_EQ(Str(c.ErrorMessage()), u"");
    EXPECT_EQ(c.FileCount(), 5);
    EXPECT_EQ(Found(c, nullptr, u"http://x/sys.dtd"), t.dir.UPath("sys.dtd"));
    EXPECT_EQ(Found(c, nullptr, u"http://e/only"), t.dir.UPath("only.dtd"));
    XmlCatalog copy = c;
    EXPECT_EQ(Found(copy, nullptr, u"http://e/only"), t.dir.UPath("only.dtd"));
}

TEST(CatalogTest, LoadFailsOrPassesOver) {
    TempDir dir;
    const std::string big = Catalog("<!--" + std::string(XmlCatalog::MaxFileBytes, ' ') + "-->");
    const size_t pad = XmlCatalog::MaxFileBytes - (big.size() - XmlCatalog::MaxFileBytes);
    const struct {
        std::string content;  // empty: no file
        BATCHERR code;
        std::string message;  // PATH stands for the file's path
    } rows[] = {
        {"", errOpenUri, "Unable to open catalogue 'PATH'"},
        {"<catalog", errSyntax, "Unexpected token '\xEF\xBF\xBF' at line 1, column 8 of catalogue 'PATH'"},
        {"<other/>", errSyntax, "Catalogue 'PATH' is no catalogue: its root element is 'other'"},
        {"<catalog xmlns='urn:x'/>", errSyntax, "Catalogue 'PATH' is no catalogue: its root element is 'catalog' of another namespace"},
        {Catalog("<system uri='a'/>"), errSyntax, "Catalogue 'PATH': element 'system' has no attribute 'systemId'"},
        {Catalog("<nextCatalog/>"), errSyntax, "Catalogue 'PATH': element 'nextCatalog' has no attribute 'catalog'"},
        {Catalog("<group prefer='both'/>"), errSyntax, "Catalogue 'PATH': prefer must be 'public' or 'system', not 'both'"},
        {Catalog("<!--" + std::string(pad, ' ') + "-->"), errNone, ""},
        {Catalog("<!--" + std::string(pad + 1, ' ') + "-->"), errOpenUri, "Catalogue 'PATH' is larger than 16777216 bytes"},
        {Catalog("<nextCatalog catalog='bad.xml'/><nextCatalog catalog='http://h/c.xml'/><nextCatalog catalog='.'/>"),
         errNone,
         "Catalogue 'http://h/c.xml' named in 'PATH' passed over: Catalogue 'http://h/c.xml' is no local file\n"
         "Catalogue 'DIR/' named in 'PATH' passed over: Catalogue 'DIR/' is no regular file\n"
         "Catalogue 'DIR/bad.xml' passed over: Catalogue 'DIR/bad.xml' is no catalogue: its root element is 'other'"},
    };
    dir.Write("bad.xml", "<other/>");
    dir.Write("good.xml", Catalog("<system systemId='s' uri='good.dtd'/>"));
    int n = 0;
    for (const auto& r : rows) {
        const std::string name = "c" + std::to_string(n++) + ".xml";
        if (!r.content.empty())
            dir.Write(name, r.content);
        XmlCatalog c;
        ASSERT_EQ(c.Load(dir.UPath("good.xml").c_str()), errNone);
        EXPECT_EQ(c.Load(dir.UPath(name).c_str()), r.code) << name;
        std::string expected = r.message;
        for (auto [key, value] : {std::make_pair("PATH", dir.Path(name)), std::make_pair("DIR", dir.Dir())})
            for (size_t at; (at = expected.find(key)) != std::string::npos;)
                expected.replace(at, strlen(key), value);
        EXPECT_EQ(Utf8(c.ErrorMessage()), expected) << name;
        // A failure leaves the object as it was.
        EXPECT_EQ(c.FileCount(), r.code == errNone ? 2 : 1) << name;
        EXPECT_EQ(Found(c, nullptr, u"s"), dir.UPath("good.dtd"));
    }
    XmlCatalog c;
    EXPECT_EQ(c.Load(nullptr), errOpenUri);
    EXPECT_EQ(Str(c.ErrorMessage()), u"Unable to open catalogue ''");
    EXPECT_EQ(c.Load(u"file://host/etc/xml/catalog"), errOpenUri);
    EXPECT_EQ(Str(c.ErrorMessage()), u"Unable to open catalogue 'file://host/etc/xml/catalog'");
    EXPECT_EQ(c.FileCount(), 0);
}

TEST(CatalogTest, PathsAndLimits) {
    TempDir dir;
    // Percent-escapes at the end of a path: each length around the three units
    // of an escape.
    const std::pair<const char*, const char*> ends[] = {{"%", "%"}, {"%4", "%4"}, {"%41", "A"}, {"%41%", "A%"},
                                                        {"%4x", "%4x"}, {"x%41", "xA"}, {"%00", nullptr}};
    for (const auto& e : ends) {
        dir.Write("p.xml", Catalog(std::string("<system systemId='s' uri='file:///d/") + e.first + "'/>"));
        XmlCatalog c;
        ASSERT_EQ(c.Load(dir.UPath("p.xml").c_str()), errNone);
        EXPECT_EQ(Found(c, nullptr, u"s"), e.second ? U(std::string("/d/") + e.second) : U("file:///d/") + U(e.first));
    }
    // A relative path is taken from the working directory.
    char cwd[4096];
    ASSERT_TRUE(getcwd(cwd, sizeof cwd));
    ASSERT_EQ(chdir(dir.Dir().c_str()), 0);
    dir.Write("rel.xml", Catalog("<system systemId='s' uri='r.dtd'/>"));
    XmlCatalog rel;
    const BATCHERR relative = rel.Load(u"rel.xml");
    ASSERT_EQ(chdir(cwd), 0);
    EXPECT_EQ(relative, errNone);
    EXPECT_EQ(Found(rel, nullptr, u"s"), dir.UPath("r.dtd"));
    // The bytes of all files, at the limit and one past it: files that are no
    // catalogues count too.
    const std::string four = Catalog("<nextCatalog catalog='b0'/><nextCatalog catalog='b1'/>"
                                     "<nextCatalog catalog='b2'/><nextCatalog catalog='b3'/>");
    dir.Write("four.xml", four);
    for (int i = 0; i < 3; ++i)
        dir.Write("b" + std::to_string(i), std::string(XmlCatalog::MaxFileBytes, 'x'));
    for (size_t extra : {0, 1}) {
        dir.Write("b3", std::string(XmlCatalog::MaxFileBytes - four.size() + extra, 'x'));
        XmlCatalog c;
        ASSERT_EQ(c.Load(dir.UPath("four.xml").c_str()), errNone);
        EXPECT_EQ(Utf8(c.ErrorMessage()).find("exceed 67108864 bytes in all at '" + dir.Path("b3") + "'") !=
                      std::string::npos, extra == 1);
    }
    // A chain of nextCatalog files up to the number an object names, and one
    // more.
    for (int i = 0; i <= XmlCatalog::MaxFiles; ++i)
        dir.Write("n" + std::to_string(i) + ".xml",
                  Catalog("<nextCatalog catalog='n" + std::to_string(i + 1) + ".xml'/><system systemId='s" +
                          std::to_string(i) + "' uri='x'/>"));
    XmlCatalog chain;
    EXPECT_EQ(chain.Load(dir.UPath("n0.xml").c_str()), errNone);
    EXPECT_EQ(chain.FileCount(), XmlCatalog::MaxFiles);
    EXPECT_EQ(Utf8(chain.ErrorMessage()), "Catalogue '" + dir.Path("n1024.xml") + "' named in '" +
                                              dir.Path("n1023.xml") + "' passed over: More than 1024 catalogue files at '" +
                                              dir.Path("n1024.xml") + "'");
    EXPECT_EQ(Found(chain, nullptr, u"s1023"), dir.UPath("x"));
    EXPECT_EQ(Found(chain, nullptr, u"s1024"), u"-");
    EXPECT_EQ(chain.Load(dir.UPath("rel.xml").c_str()), errOpenUri);
    EXPECT_EQ(Utf8(chain.ErrorMessage()), "More than 1024 catalogue files at '" + dir.Path("rel.xml") + "'");
}

TEST(CatalogTest, RunsOutOfMemoryAndSharesAcrossThreads) {
    Tree t;
    const UCString root = t.dir.UPath("root.xml");
    XmlCatalog expected;
    const uint64_t before = TestAlloc::Count();
    ASSERT_EQ(expected.Load(root.c_str()), errNone);
    const long count = long(TestAlloc::Count() - before);
    const UCChar* const ids[] = {u"-//D//DTD Long One//EN", u"-//A//DTD Sys//EN", u"-//Nobody//EN"};
    for (long k = 1; k <= count; k += 1 + k / 64) {
        XmlCatalog c;
        TestAlloc::FailAt(k);
        const BATCHERR rc = c.Load(root.c_str());
        TestAlloc::FailAt(0);
        ASSERT_TRUE(rc == errNone || (rc == errSyntax && Str(c.ErrorMessage()) == u"Out of memory")) << k;
        EXPECT_EQ(c.FileCount(), rc == errNone ? 4 : 0) << k;
        for (const UCChar* id : ids) {
            EXPECT_EQ(Found(c, id, nullptr), rc == errNone ? Found(expected, id, nullptr) : u"-") << k;
            UCString path(64, u' ');
            path.clear();
            TestAlloc::FailAt(k % 8 + 1);
            const bool hit = c.Resolve(id, nullptr, path);
            TestAlloc::FailAt(0);
            EXPECT_EQ(path, hit ? Found(c, id, nullptr) : u"") << k;  // a miss leaves the path
        }
    }
    std::vector<std::thread> threads;
    std::vector<int> hits(4);
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&, i] {
            for (int n = 0; n < 500; ++n)
                hits[size_t(i)] += Found(expected, ids[n % 3], nullptr) != u"-";
        });
    for (std::thread& th : threads)
        th.join();
    EXPECT_EQ(hits, std::vector<int>(4, 334));
}

TEST(CatalogTest, TheSystemCatalogue) {
    const char* strict = "/usr/share/xml/w3c-sgml-lib/schema/dtd/REC-xhtml1-20020801/xhtml1-strict.dtd";
    struct stat info;
    if (stat("/etc/xml/catalog", &info) != 0 || stat(strict, &info) != 0)
        GTEST_SKIP() << "/etc/xml/catalog or w3c-sgml-lib is not installed";
    XmlCatalog c;
    ASSERT_EQ(c.Load(u"/etc/xml/catalog"), errNone) << Utf8(c.ErrorMessage());
    EXPECT_GT(c.FileCount(), 3);
    for (const auto& [pub, sys] : {std::make_pair(u"-//W3C//DTD XHTML 1.0 Strict//EN", (const char16_t*)nullptr),
                                   std::make_pair((const char16_t*)nullptr,
                                                  u"http://www.w3.org/TR/xhtml1/DTD/xhtml1-strict.dtd")}) {
        UCString path;
        ASSERT_TRUE(c.Resolve(pub, sys, path));
        EXPECT_EQ(Utf8(path.c_str()), strict);
        EXPECT_EQ(stat(Utf8(path.c_str()).c_str(), &info), 0);
    }
}

}  // namespace
