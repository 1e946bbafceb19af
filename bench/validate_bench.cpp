// validate_bench - the cost of XmlDocument::Validate beside the parse of the
// same document, and the inputs of the command-line comparisons.
//
//   validate_bench [--size MB] [--repeat N]
//       the benchmark document of gendtd.h (20 MB by default) behind its
//       internal subset: parse and check timed in turn, medians and their
//       ratio; then a deep and a wide tree (each check's result asserted).
//   validate_bench --emit FILE [--size MB]
//       writes that document, for `ozmxml validate` against
//       `xmllint --noout --valid` (bench/validate_agree.py does not need it).
//   validate_bench --emit-small DIR [--count N]
//       writes N small documents of gendoc.h (default 20,000) into DIR, for
//       `ozmxml check -j 2` against `-j 1`.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "benchutil.h"
#include "gendtd.h"
#include "xmlapi.h"

namespace {

using ozmbench::Clock;
using ozmbench::Seconds;
using ozmbench::Timing;

UCString Decode(const std::string& s) {
    UCString out;
    OzmGlob::DecodeUTF8(reinterpret_cast<const unsigned char*>(s.data()), s.size(), out);
    return out;
}

void Fail(const char* what) {
    std::fprintf(stderr, "validate_bench: %s\n", what);
    std::exit(1);
}

// Times check beside parse on one document: parse (from the string, or
// from the file when one is named), then check the tree, in turn repeat
// times.
void Compare(const char* name, const UCString& text, int repeat, size_t expectViolations,
             const std::string& file = std::string()) {
    Timing parse, check, ratio;
    XmlDocument doc;
    std::vector<XmlViolation> violations;
    const UCString path = Decode(file);
    for (int r = 0; r < repeat; ++r) {
        auto t0 = Clock::now();
        if ((file.empty() ? doc.ParseString(text) : doc.ParseFile(path.c_str())) != errNone)
            Fail("the document does not parse");
        auto t1 = Clock::now();
        doc.Validate(violations, 0);
        auto t2 = Clock::now();
        parse.runs.push_back(Seconds(t0, t1));
        check.runs.push_back(Seconds(t1, t2));
        ratio.runs.push_back(Seconds(t1, t2) / Seconds(t0, t1));
        if (violations.size() != expectViolations) {
            std::fprintf(stderr, "%s: %zu violations, %zu expected\n", name, violations.size(), expectViolations);
            Fail("unexpected result");
        }
    }
    // The ratio of each pair of runs, so that a drift in the machine's
    // speed between runs cancels.
    std::printf("  %-8s %9zu units  parse %8.4f s  check %8.4f s  check/parse %.3f (pairs: best %.3f)\n", name,
                text.size(), parse.Median(), check.Median(), ratio.Median(), ratio.Best());
}

}  // namespace

int main(int argc, char** argv) {
    double sizeMB = 20;
    int repeat = 5;
    size_t count = 20000;
    std::string emit, emitSmall;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string a = argv[i];
        if (a == "--size")
            sizeMB = std::atof(argv[i + 1]);
        else if (a == "--repeat")
            repeat = std::max(1, std::atoi(argv[i + 1]));
        else if (a == "--emit")
            emit = argv[i + 1];
        else if (a == "--emit-small")
            emitSmall = argv[i + 1];
        else if (a == "--count")
            count = size_t(std::atol(argv[i + 1]));
        else {
            std::fprintf(stderr, "usage: validate_bench [--size MB] [--repeat N] [--emit FILE] "
                                 "[--emit-small DIR [--count N]]\n");
            return 2;
        }
    }
    if (!emitSmall.empty()) {
        ::mkdir(emitSmall.c_str(), 0777);
        const std::vector<std::string> docs = ozmbench::GenerateSmallDocuments(count, 500, 3000);
        for (size_t i = 0; i < docs.size(); ++i)
            std::ofstream(emitSmall + "/doc" + std::to_string(100000 + i) + ".xml", std::ios::binary) << docs[i];
        std::printf("%zu documents in %s\n", docs.size(), emitSmall.c_str());
        return 0;
    }
    // The benchmark document uses an attribute and values that its subset
    // does not declare; declared here, it is valid.
    std::string bytes = ozmbench::GenerateDocumentWithDtd(size_t(sizeMB * 1e6), false);
    const std::string status = "status (active | pending | deleted) 'active'";
    const size_t at = bytes.find(status);
    if (at == std::string::npos)
        Fail("the subset has changed");
    bytes.replace(at, status.size(),
                  "status (active | pending | deleted | archived | draft | on-hold) 'active' lang NMTOKEN #IMPLIED");
    if (!emit.empty()) {
        std::ofstream(emit, std::ios::binary) << bytes;
        std::printf("%zu bytes in %s\n", bytes.size(), emit.c_str());
        return 0;
    }
    std::printf("validate_bench: median of %d runs\n", repeat);
    Compare("document", Decode(bytes), repeat, 0);
    // The same parsed from a file, as a program that checks files does.
    char dir[] = "/tmp/ozm-validate-bench.XXXXXX";
    if (!::mkdtemp(dir))
        Fail("no temporary directory");
    const std::string file = std::string(dir) + "/document.xml";
    std::ofstream(file, std::ios::binary) << bytes;
    Compare("file", UCString(), repeat, 0, file);
    std::remove(file.c_str());
    ::rmdir(dir);

    // A chain of 100,000 elements, each declared with a model nested 256
    // groups deep, and one element with a million children.
    const int depth = 100000, groups = 256, wide = 1000000;
    std::string deep = "<!DOCTYPE d [<!ELEMENT d ";
    for (int g = 0; g < groups; ++g)
        deep += "(";
    deep += "d?";
    for (int g = 0; g < groups; ++g)
        deep += ")";
    deep += ">]>";
    for (int i = 0; i < depth; ++i)
        deep += "<d>";
    for (int i = 0; i < depth; ++i)
        deep += "</d>";
    XmlDocument parsed;
    if (parsed.ParseString(Decode(deep)) == errNone)
        Fail("the deep document parsed: the nesting limit is gone");
    // The parser stops at its nesting limit, so the deep tree is built by
    // hand, under the definition read from the same subset.
    XmlDocument chain;
    if (chain.ParseString(Decode(deep.substr(0, deep.find("]>") + 2) + "<d/>")) != errNone)
        Fail("the deep subset does not parse");
    XmlElement* top = chain.RootElement();
    for (int i = 1; i < depth; ++i) {
        XmlElement* e = chain.NewElement();
        e->Name(u"d");
        top->Child(e);
        top = e;
    }
    std::vector<XmlViolation> violations;
    auto t0 = Clock::now();
    chain.Validate(violations, 0);
    std::printf("  %-8s %9d elements, models %d groups deep: %zu violations, %.4f s\n", "deep", depth, groups,
                violations.size(), Seconds(t0, Clock::now()));
    if (!violations.empty())
        Fail("the deep tree is valid");

    std::string many = "<!DOCTYPE w [<!ELEMENT w ((a, b?)+, c)><!ELEMENT a EMPTY><!ELEMENT b EMPTY>"
                       "<!ELEMENT c EMPTY>]><w>";
    for (int i = 0; i < wide / 2; ++i)
        many += "<a/><b/>";
    many += "<c/></w>";
    Compare("wide", Decode(many), std::min(repeat, 5), 0);
    return 0;
}
