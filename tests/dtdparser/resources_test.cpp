// The policies for external resources against each way a path can escape,
// asserted on the result and, through inotify, on what was opened.
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include "test_util.h"

namespace {

// Opens seen in the watched directories since the last call.
class Opens {
public:
    Opens() : m_fd(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {}
    ~Opens() { close(m_fd); }
    void Watch(const std::string& dir) { inotify_add_watch(m_fd, dir.c_str(), IN_OPEN); }
    int Count() {
        alignas(inotify_event) char buffer[4096];
        int count = 0;
        for (ssize_t n; (n = read(m_fd, buffer, sizeof buffer)) > 0;)
            for (char* p = buffer; p < buffer + n; p += sizeof(inotify_event) + reinterpret_cast<inotify_event*>(p)->len)
                ++count;
        return count;
    }

private:
    int m_fd;
};

TEST(ResourcesTest, EachPolicyAgainstEachWayOut) {
    TempDir root;
    const std::string in = root.Path("in"), out = root.Path("out");
    ASSERT_EQ(mkdir(in.c_str(), 0700) | mkdir(out.c_str(), 0700) | mkdir((in + "/dir").c_str(), 0700), 0);
    root.Write("in/ok.ent", "inside");
    root.Write("out/secret.ent", "secret");
    ASSERT_EQ(symlink((out + "/secret.ent").c_str(), (in + "/out.ent").c_str()) |
                  symlink("/dev/zero", (in + "/zero.ent").c_str()) | mkfifo((in + "/fifo.ent").c_str(), 0600),
              0);
    const UCString doc = root.UPath("in/doc.xml");
    Opens opens;
    opens.Watch(out);
    const XmlResources files, none = XmlResources::None(), confined = XmlResources::Confined(U(in).c_str());
    const std::string refusedNone = "' refused: external resources are not allowed";
    const std::string refusedOut = "' refused: outside the directory '" + in + "'";
    const struct {
        const char* name;
        const XmlResources& policy;
        std::string id;  // the system identifier
        BATCHERR code;
        std::string result;  // the message, or the entity's value
    } cases[] = {
        {"files, beside", files, "ok.ent", errNone, "inside"},
        {"files, outside", files, out + "/secret.ent", errNone, "secret"},
        {"none, beside", none, "ok.ent", errOpenUri, "URI 'ok.ent" + refusedNone},
        {"none, absolute", none, "/etc/hostname", errOpenUri, "URI '/etc/hostname" + refusedNone},
        {"confined, beside", confined, "ok.ent", errNone, "inside"},
        {"confined, absolute inside", confined, in + "/./dir/../ok.ent", errNone, "inside"},
        {"confined, ../", confined, in + "/../out/secret.ent", errOpenUri, "URI '" + in + "/../out/secret.ent" + refusedOut},
        {"confined, absolute outside", confined, "/etc/hostname", errOpenUri, "URI '/etc/hostname" + refusedOut},
        {"confined, relative to the working directory", confined, "x/ok.ent", errOpenUri, "URI 'x/ok.ent" + refusedOut},
        {"confined, link pointing out", confined, "out.ent", errOpenUri, "URI '" + in + "/out.ent" + refusedOut},
        {"confined, link to a device", confined, "zero.ent", errOpenUri, "URI '" + in + "/zero.ent" + refusedOut},
        {"confined, FIFO", confined, "fifo.ent", errOpenUri, "URI '" + in + "/fifo.ent' is a FIFO, not a regular file"},
        {"confined, directory", confined, in + "/dir", errOpenUri,
         "URI '" + in + "/dir' is a directory, not a regular file"},
    };
    XmlDocument d;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        root.Write("in/doc.xml", "<!DOCTYPE a [<!ENTITY e SYSTEM '" + c.id + "'><!ELEMENT a ANY>]><a>&e;</a>");
        opens.Count();
        d.ExternalResources(c.policy);
        EXPECT_EQ(d.ParseFile(doc.c_str()), c.code);
        EXPECT_EQ(c.code == errNone ? Narrow(d.RootElement()->Data()) : Narrow(d.ErrorMessage()), c.result);
        // Only the files policy may open what lies outside.
        EXPECT_EQ(opens.Count(), c.result == "secret" ? 1 : 0);
    }
    // With ignoreDtd the subset is skipped and the entity still refused.
    d.ExternalResources(none);
    EXPECT_EQ(d.ParseString(u"<!DOCTYPE a SYSTEM 'a.dtd'><a/>", false, true), errNone);
    EXPECT_EQ(d.ParseString(u"<!DOCTYPE a [<!ENTITY e SYSTEM 'x.ent'>]><a/>", false, true), errOpenUri);
}

TEST(ResourcesTest, AResolverGetsTheIdentifiersAndAnswers) {
    TempDir dir;
    const std::string file = dir.Write("real.ent", "from a file");
    std::vector<std::string> asked;
    XmlDocument d;
    d.ExternalResources(XmlResources::Resolver(
        [&](const UCChar* publicId, const UCChar* systemId, const UCChar* base, UCString& answer) {
            asked.push_back(Narrow(publicId) + "|" + Narrow(systemId) + "|" + Narrow(base));
            const UCString id = systemId;
            if (id == u"path")
                return answer = U(file), int(resolvePath);
            if (id == u"text")
                return answer = u"<?xml version='1.0'?>given", int(resolveText);
            if (id == u"throws")
                throw 1;
            return int(resolveRefuse);
        }));
    const UCString doc = U(dir.Write("doc.xml", "<!DOCTYPE a [<!ENTITY p PUBLIC '-//P//EN' 'path'><!ENTITY t SYSTEM "
                                                "'text'><!ELEMENT a ANY>]><a>&p;,&t;</a>"));
    ASSERT_EQ(d.ParseFile(doc.c_str()), errNone) << Narrow(d.ErrorMessage());
    EXPECT_EQ(Narrow(d.RootElement()->Data()), "from a file,given");
    EXPECT_EQ(asked, (std::vector<std::string>{"-//P//EN|path|" + dir.Dir() + "/", "|text|" + dir.Dir() + "/"}));
    for (const char* id : {"other", "throws"}) {
        EXPECT_EQ(d.ParseString(u"<!DOCTYPE a SYSTEM '" + U(id) + u"'><a/>"), errOpenUri);
        EXPECT_EQ(Narrow(d.ErrorMessage()), "URI '" + std::string(id) + "' refused by the resolver");
    }
}

TEST(ResourcesTest, ACatalogueFirstThenThePolicyUnderIt) {
    TempDir dir;
    const std::string ent = dir.Write("lat.ent", "<!ENTITY nbsp '&#160;'>");
    const std::string file = dir.Write("catalog.xml", "<catalog xmlns='urn:oasis:names:tc:entity:xmlns:xml:catalog'>"
                                                       "<public publicId='-//X//ENTITIES L//EN' uri='lat.ent'/></catalog>");
    auto catalog = std::make_shared<XmlCatalog>();
    ASSERT_EQ(catalog->Load(U(file).c_str()), errNone);
    XmlDocument d;
    d.ExternalResources(XmlResources::Catalog(catalog, XmlResources::None()));
    EXPECT_EQ(d.ExternalResources().Kind(), resCatalog);
    ASSERT_EQ(d.ParseString(u"<!DOCTYPE a [<!ENTITY % l PUBLIC '-//X//ENTITIES L//EN' 'nowhere.ent'>%l;"
                            u"<!ELEMENT a ANY>]><a>&nbsp;</a>"),
              errNone)
        << Narrow(d.ErrorMessage());
    EXPECT_EQ(Str(d.RootElement()->Data()), u"\u00A0");
    EXPECT_EQ(d.ParseString(u"<!DOCTYPE a [<!ENTITY % l SYSTEM 'lat.ent'>%l;]><a/>"), errOpenUri);
    EXPECT_EQ(Narrow(d.ErrorMessage()), "URI 'lat.ent' refused: external resources are not allowed");

    // XHTML 1.0 Strict through the system's catalogue, with no file beside
    // the document, when the catalogue and the definitions are installed.
    auto system = std::make_shared<XmlCatalog>();
    if (access("/usr/share/xml/w3c-sgml-lib", F_OK) != 0 || system->Load(u"/etc/xml/catalog") != errNone)
        GTEST_SKIP() << "no system catalogue with w3c-sgml-lib";
    d.ExternalResources(XmlResources::Catalog(system, XmlResources::None()));
    ASSERT_EQ(d.ParseString(u"<!DOCTYPE html PUBLIC '-//W3C//DTD XHTML 1.0 Strict//EN' "
                            u"'http://www.w3.org/TR/xhtml1/DTD/xhtml1-strict.dtd'><html><head><title>t</title>"
                            u"</head><body><p>a&nbsp;&eacute;</p></body></html>"),
              errNone)
        << Narrow(d.ErrorMessage());
    EXPECT_EQ(Str(d.RootElement()->Child()->Next()->Child()->Data()), u"a\u00A0\u00E9");
}

}  // namespace
