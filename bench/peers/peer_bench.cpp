// peer_bench - one parse of one benchmark input by one XML parser, this
// library or one that users would pick instead, timed and checked. run.py
// runs it in a fresh process per parser and round; callgrind.py under
// callgrind.
//
//   peer_bench --generate DIR [--size MB]
//   peer_bench --parser NAME --input KIND --mode memory|file|warm [--dir DIR]
//   peer_bench --callgrind-support     (yes: built with callgrind's requests)
//
// NAME: ozm, pugixml, pugixml-ws, libxml2, expat, tinyxml2. pugixml-ws is
//       pugixml keeping text of white space alone (parse_ws_pcdata), as
//       this library keeps the line ends and indentation between child
//       elements in the parent's data; pugixml drops them by default.
// KIND: records (100 MB of data records), text (50 MB of long paragraphs),
//       dtd (20 MB with an internal subset and entity references),
//       small (2,000 documents of 2 to 10 KB).
// --size MB makes every input of that size instead (small: as many small
// documents as fit, at most 2,000); callgrind.py uses 5.
//
// The inputs live in DIR (default /tmp/ozm-peers), written by --generate
// together with a manifest of their sizes and element counts; a run without
// a manifest in DIR generates the default inputs first.
//
// The timed part is what a user of each parser writes to get a tree:
//   memory: from UTF-8 bytes already in memory (read from DIR before timing);
//   file:   from the file's path;
//   warm:   from memory as above, with one document (parser) re-used for
//           every parse of the process, as a program that parses document
//           after document does: all inputs are parsed once untimed, then
//           again timed (pugixml's in-place buffers are restored between).
// Otherwise a fresh document (parser, for expat) per input document, its
// construction included. Walking the tree to count its elements and
// destroying it are not timed. The element count must equal the generator's, or the run fails.
//
// Output, one line: parser= input= mode= docs= bytes= seconds= mbps= elements= maxrss_kb=
// faults= (minor page faults of the timed parts)
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include <expat.h>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <tinyxml2.h>

#include <pugixml.hpp>

#include "harness.h"
#include "xmlapi.h"

#ifdef OZM_HAVE_CALLGRIND_H
#include <valgrind/callgrind.h>
// Collection is toggled on around each timed parse (valgrind runs with
// --collect-atstart=no), so callgrind counts the parses and nothing else.
#define REGION_TOGGLE()         \
    do {                         \
        if (g_counted)           \
            CALLGRIND_TOGGLE_COLLECT; \
    } while (0)
#else
#define REGION_TOGGLE() ((void)0)
#endif

namespace {

// False during the untimed pass of mode warm, which callgrind does not count.
bool g_counted = true;

using ozmbench::Clock;
using ozmbench::ReadFile;

// The inputs' default sizes.
constexpr double kRecordsMB = 100, kTextMB = 50, kDtdMB = 20;
constexpr size_t kSmallCount = 2000, kSmallMin = 2000, kSmallMax = 10000;

struct Input {
    std::vector<std::string> paths;
    size_t bytes = 0;
    size_t elements = 0;  // what the generator wrote
};

[[noreturn]] void Fail(const std::string& what) {
    std::fprintf(stderr, "peer_bench: %s\n", what.c_str());
    std::exit(1);
}

[[noreturn]] void Usage() {
    std::fprintf(stderr,
                 "usage: peer_bench --generate DIR [--size MB]\n"
                 "       peer_bench --parser ozm|pugixml|pugixml-ws|libxml2|expat|tinyxml2\n"
                 "                  --input records|text|dtd|small\n"
                 "                  --mode memory|file|warm [--dir DIR]\n");
    std::exit(2);
}


void WriteFile(const std::string& path, const std::string& data) {
    std::ofstream o(path, std::ios::binary);
    o.write(data.data(), std::streamsize(data.size()));
    if (!o)
        Fail("cannot write " + path);
}

// Writes the four inputs and DIR/manifest: "KIND FILES BYTES ELEMENTS" a line.
void Generate(const std::string& dir, double sizeMB) {
    ::mkdir(dir.c_str(), 0777);
    ::mkdir((dir + "/small").c_str(), 0777);
    std::string manifest;
    auto one = [&](const char* kind, const std::string& doc, const ozmbench::GenStats& st) {
        WriteFile(dir + "/" + kind + ".xml", doc);
        manifest += std::string(kind) + " 1 " + std::to_string(doc.size()) + " " + std::to_string(st.elements) + "\n";
    };
    ozmbench::GenStats st;
    std::string doc = ozmbench::GenerateDocument(size_t((sizeMB > 0 ? sizeMB : kRecordsMB) * 1e6),
                                                 ozmbench::kDefaultSeed, &st);
    one("records", doc, st);
    doc = ozmbench::GenerateTextDocument(size_t((sizeMB > 0 ? sizeMB : kTextMB) * 1e6), ozmbench::kDefaultSeed, &st);
    one("text", doc, st);
    doc = ozmbench::GenerateDocumentWithDtd(size_t((sizeMB > 0 ? sizeMB : kDtdMB) * 1e6), true, &st);
    one("dtd", doc, st);
    std::string().swap(doc);

    std::vector<ozmbench::GenStats> smallStats;
    const std::vector<std::string> small =
        ozmbench::GenerateSmallDocuments(kSmallCount, kSmallMin, kSmallMax, ozmbench::kDefaultSeed, &smallStats);
    // With --size, the first documents that make up that many bytes.
    size_t n = 0, bytes = 0, elements = 0;
    for (; n < small.size() && (sizeMB <= 0 || double(bytes) < sizeMB * 1e6); ++n) {
        char name[32];
        std::snprintf(name, sizeof name, "/small/%05zu.xml", n);
        WriteFile(dir + name, small[n]);
        bytes += small[n].size();
        elements += smallStats[n].elements;
    }
    manifest += "small " + std::to_string(n) + " " + std::to_string(bytes) + " " + std::to_string(elements) + "\n";
    WriteFile(dir + "/manifest", manifest);
}

Input LoadInput(const std::string& dir, const std::string& kind) {
    std::ifstream m(dir + "/manifest");
    std::string k;
    size_t files = 0, bytes = 0, elements = 0;
    while (m >> k >> files >> bytes >> elements) {
        if (k != kind)
            continue;
        Input in;
        in.bytes = bytes;
        in.elements = elements;
        if (kind == "small") {
            for (size_t i = 0; i < files; ++i) {
                char name[32];
                std::snprintf(name, sizeof name, "/small/%05zu.xml", i);
                in.paths.push_back(dir + name);
            }
        } else {
            in.paths.push_back(dir + "/" + kind + ".xml");
        }
        return in;
    }
    Fail("no input '" + kind + "' in " + dir + "/manifest");
}

// ---------------------------------------------------------------------------
// Element counts, by walking each tree without recursion.

size_t CountOzm(const XmlElement* root) {
    size_t n = 0;
    const XmlElement* e = root;
    while (e) {
        ++n;
        if (e->Child()) {
            e = e->Child();
            continue;
        }
        while (e && e != root && !e->Next())
            e = e->Parent();
        e = (e && e != root) ? e->Next() : nullptr;
    }
    return n;
}

size_t CountPugi(const pugi::xml_node& root) {
    size_t n = 0;
    for (pugi::xml_node e = root.first_child(); e;) {
        if (e.type() == pugi::node_element)
            ++n;
        if (e.first_child()) {
            e = e.first_child();
            continue;
        }
        while (e && !e.next_sibling() && e.parent() != root)
            e = e.parent();
        e = e.next_sibling();
    }
    return n;
}

size_t CountLibxml2(xmlNode* root) {
    size_t n = 0;
    for (xmlNode* e = root; e;) {
        if (e->type == XML_ELEMENT_NODE)
            ++n;
        if (e->type == XML_ELEMENT_NODE && e->children) {
            e = e->children;
            continue;
        }
        while (e && !e->next && e != root)
            e = e->parent;
        e = (e && e != root) ? e->next : nullptr;
    }
    return n;
}

size_t CountTiny(const tinyxml2::XMLElement* root) {
    size_t n = 0;
    for (const tinyxml2::XMLElement* e = root; e;) {
        ++n;
        if (e->FirstChildElement()) {
            e = e->FirstChildElement();
            continue;
        }
        while (e && e != root && !e->NextSiblingElement())
            e = e->Parent() ? e->Parent()->ToElement() : nullptr;
        e = (e && e != root) ? e->NextSiblingElement() : nullptr;
    }
    return n;
}

// ---------------------------------------------------------------------------
// One parse per document, each a function of (document index) that returns
// the seconds of its timed part and adds its element count.

struct Run {
    double seconds = 0;
    size_t elements = 0;
    long faults = 0;  // minor page faults of the timed parts
};

// Mode warm: the document (parser) of the first parse serves every parse.
bool g_reuse = false;

template <class T>
T* Document(std::unique_ptr<T>& fresh) {
    static std::unique_ptr<T> kept;
    if (!g_reuse)
        return (fresh = std::make_unique<T>()).get();
    if (!kept)
        kept = std::make_unique<T>();
    return kept.get();
}

long MinorFaults() {
    struct rusage u;
    ::getrusage(RUSAGE_SELF, &u);
    return u.ru_minflt;
}

double Since(Clock::time_point a) { return std::chrono::duration<double>(Clock::now() - a).count(); }

// This library: ParseBytes from memory, ParseFile from a file.
void ParseOzm(bool file, const std::string& data, const std::string& path, Run& run) {
    UCString widePath(path.begin(), path.end());  // the paths are ASCII
    const long faults = MinorFaults();
    auto a = Clock::now();
    REGION_TOGGLE();
    std::unique_ptr<XmlDocument> fresh;
    XmlDocument* doc = Document(fresh);
    const BATCHERR r =
        file ? doc->ParseFile(widePath.c_str(), false, false) : doc->ParseBytes(data.data(), data.size(), false, false);
    REGION_TOGGLE();
    run.seconds += Since(a);
    run.faults += MinorFaults() - faults;
    if (r != errNone)
        Fail("ozm: " + path + ": error " + std::to_string(int(r)) + " at line " + std::to_string(doc->ErrorLine()));
    run.elements += CountOzm(doc->RootElement());
}

// pugixml: in place in a mutable copy of the bytes (made before timing),
// or load_file; with keepBlanks, text of white space alone is kept.
void ParsePugi(bool file, std::string& data, const std::string& path, Run& run, bool keepBlanks) {
    const unsigned options = pugi::parse_default | (keepBlanks ? pugi::parse_ws_pcdata : 0u);
    const long faults = MinorFaults();
    auto a = Clock::now();
    REGION_TOGGLE();
    std::unique_ptr<pugi::xml_document> fresh;
    pugi::xml_document* doc = Document(fresh);
    pugi::xml_parse_result r =
        file ? doc->load_file(path.c_str(), options) : doc->load_buffer_inplace(&data[0], data.size(), options);
    REGION_TOGGLE();
    run.seconds += Since(a);
    run.faults += MinorFaults() - faults;
    if (!r)
        Fail("pugixml: " + path + ": " + r.description() + " at offset " + std::to_string(r.offset));
    run.elements += CountPugi(*doc);
}

// libxml2: xmlReadMemory or xmlReadFile; entities are substituted, as the
// other tree parsers here hold their text (XML_PARSE_NOENT).
void ParseLibxml2(bool file, const std::string& data, const std::string& path, Run& run) {
    const int options = XML_PARSE_NOENT | XML_PARSE_NONET;
    const long faults = MinorFaults();
    auto a = Clock::now();
    REGION_TOGGLE();
    xmlDoc* doc = file ? xmlReadFile(path.c_str(), nullptr, options)
                       : xmlReadMemory(data.data(), int(data.size()), "memory.xml", nullptr, options);
    REGION_TOGGLE();
    run.seconds += Since(a);
    run.faults += MinorFaults() - faults;
    if (!doc)
        Fail("libxml2: " + path + ": parse failed");
    run.elements += CountLibxml2(xmlDocGetRootElement(doc));
    xmlFreeDoc(doc);
}

// expat: events only, no tree. The handlers count the elements and the bytes
// of text, so that expat does deliver the text as a user's handler needs it.
struct ExpatCounts {
    size_t elements = 0;
    size_t textBytes = 0;
};

void XMLCALL ExpatStart(void* user, const XML_Char*, const XML_Char**) {
    ++static_cast<ExpatCounts*>(user)->elements;
}
void XMLCALL ExpatEnd(void*, const XML_Char*) {}
void XMLCALL ExpatText(void* user, const XML_Char*, int len) {
    static_cast<ExpatCounts*>(user)->textBytes += size_t(len);
}

// From memory, one XML_Parse of the whole buffer; from a file, reads of
// 64 KiB into expat's own buffer (XML_GetBuffer, XML_ParseBuffer).
void ParseExpat(bool file, const std::string& data, const std::string& path, Run& run) {
    ExpatCounts counts;
    bool ok = true;
    const long faults = MinorFaults();
    auto a = Clock::now();
    REGION_TOGGLE();
    XML_Parser p = XML_ParserCreate(nullptr);
    XML_SetUserData(p, &counts);
    XML_SetElementHandler(p, ExpatStart, ExpatEnd);
    XML_SetCharacterDataHandler(p, ExpatText);
    if (file) {
        int fd = ::open(path.c_str(), O_RDONLY);
        ok = fd >= 0;
        for (bool last = false; ok && !last;) {
            const int chunk = 64 * 1024;
            void* buf = XML_GetBuffer(p, chunk);
            ssize_t got = buf ? ::read(fd, buf, chunk) : -1;
            ok = got >= 0;
            last = got == 0;
            ok = ok && XML_ParseBuffer(p, int(got), last) == XML_STATUS_OK;
        }
        if (fd >= 0)
            ::close(fd);
    } else {
        ok = XML_Parse(p, data.data(), int(data.size()), 1) == XML_STATUS_OK;
    }
    REGION_TOGGLE();
    run.seconds += Since(a);
    run.faults += MinorFaults() - faults;
    if (!ok)
        Fail("expat: " + path + ": " + XML_ErrorString(XML_GetErrorCode(p)) + " at line " +
             std::to_string(XML_GetCurrentLineNumber(p)));
    XML_ParserFree(p);
    run.elements += counts.elements;
}

// TinyXML-2: XMLDocument::Parse (which copies the bytes) or LoadFile.
void ParseTiny(bool file, const std::string& data, const std::string& path, Run& run) {
    const long faults = MinorFaults();
    auto a = Clock::now();
    REGION_TOGGLE();
    std::unique_ptr<tinyxml2::XMLDocument> fresh;
    tinyxml2::XMLDocument* doc = Document(fresh);
    tinyxml2::XMLError r = file ? doc->LoadFile(path.c_str()) : doc->Parse(data.data(), data.size());
    REGION_TOGGLE();
    run.seconds += Since(a);
    run.faults += MinorFaults() - faults;
    if (r != tinyxml2::XML_SUCCESS)
        Fail("tinyxml2: " + path + ": " + doc->ErrorStr());
    run.elements += CountTiny(doc->RootElement());
}

// The peak resident set of this program, in KiB: VmHWM of /proc/self/status.
// (getrusage's ru_maxrss keeps the peak of the process before exec, so it
// would report the parent's size when that was larger.)
long MaxRssKb() {
    std::ifstream in("/proc/self/status");
    std::string key;
    long kb = -1;
    while (in >> key) {
        if (key == "VmHWM:") {
            in >> kb;
            break;
        }
        in.ignore(1 << 20, '\n');
    }
    return kb;
}

}  // namespace

int main(int argc, char** argv) {
    std::string parser, kind, mode, dir = "/tmp/ozm-peers", generateDir;
    double sizeMB = 0;
    if (argc == 2 && std::strcmp(argv[1], "--callgrind-support") == 0) {
#ifdef OZM_HAVE_CALLGRIND_H
        std::printf("yes\n");
#else
        std::printf("no\n");
#endif
        return 0;
    }
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        if (i + 1 >= argc)
            Usage();
        const char* v = argv[++i];
        if (a == "--parser")
            parser = v;
        else if (a == "--input")
            kind = v;
        else if (a == "--mode")
            mode = v;
        else if (a == "--dir")
            dir = v;
        else if (a == "--generate")
            generateDir = v;
        else if (a == "--size")
            sizeMB = std::atof(v);
        else
            Usage();
    }
    if (!generateDir.empty()) {
        Generate(generateDir, sizeMB);
        return 0;
    }
    if (parser.empty() || kind.empty() || (mode != "memory" && mode != "file" && mode != "warm"))
        Usage();
    g_reuse = mode == "warm";
    if (::access((dir + "/manifest").c_str(), R_OK) != 0)
        Generate(dir, 0);

    void (*parse)(bool, std::string&, const std::string&, Run&) = nullptr;
    if (parser == "ozm")
        parse = [](bool f, std::string& d, const std::string& p, Run& r) { ParseOzm(f, d, p, r); };
    else if (parser == "pugixml")
        parse = [](bool f, std::string& d, const std::string& p, Run& r) { ParsePugi(f, d, p, r, false); };
    else if (parser == "pugixml-ws")
        parse = [](bool f, std::string& d, const std::string& p, Run& r) { ParsePugi(f, d, p, r, true); };
    else if (parser == "libxml2")
        parse = [](bool f, std::string& d, const std::string& p, Run& r) { ParseLibxml2(f, d, p, r); };
    else if (parser == "expat")
        parse = [](bool f, std::string& d, const std::string& p, Run& r) { ParseExpat(f, d, p, r); };
    else if (parser == "tinyxml2")
        parse = [](bool f, std::string& d, const std::string& p, Run& r) { ParseTiny(f, d, p, r); };
    else
        Usage();
    if (parser == "libxml2")
        xmlInitParser();

    const Input in = LoadInput(dir, kind);
    const bool file = mode == "file";
    // From memory: all bytes are read before anything is timed.
    std::vector<std::string> data(in.paths.size());
    size_t bytes = 0;
    for (size_t i = 0; i < in.paths.size(); ++i) {
        if (!file && !ReadFile(in.paths[i], data[i]))
            Fail("cannot read " + in.paths[i]);
        bytes += data[i].size();
    }
    if (!file && bytes != in.bytes)
        Fail("the inputs in " + dir + " have " + std::to_string(bytes) + " bytes, the manifest says " +
             std::to_string(in.bytes));

    Run run;
    if (g_reuse) {
        // The untimed pass; pugixml parses in place, so it gets copies.
        Run first;
        g_counted = false;
        const bool inPlace = parser == "pugixml" || parser == "pugixml-ws";
        for (size_t i = 0; i < in.paths.size(); ++i) {
            std::string copy = data[i];
            parse(false, inPlace ? copy : data[i], in.paths[i], first);
        }
        g_counted = true;
    }
    for (size_t i = 0; i < in.paths.size(); ++i) {
        parse(file, data[i], in.paths[i], run);
        std::string().swap(data[i]);
    }
    if (run.elements != in.elements)
        Fail(parser + " " + kind + " " + mode + ": " + std::to_string(run.elements) + " elements, the generator wrote " +
             std::to_string(in.elements));
    std::printf(
        "parser=%s input=%s mode=%s docs=%zu bytes=%zu seconds=%.6f mbps=%.2f elements=%zu maxrss_kb=%ld faults=%ld\n",
        parser.c_str(), kind.c_str(), mode.c_str(), in.paths.size(), in.bytes, run.seconds,
        double(in.bytes) / 1e6 / run.seconds, run.elements, MaxRssKb(), run.faults);
    return 0;
}
