// validate - the cost of XmlDocument::Validate beside the parse of the same
// document, and the inputs of the command-line comparisons.
//
//   ozmbench validate [--size MB] [--repeat N]
//       the document of GenerateDocumentWithDtd (20 MB by default) behind
//       its internal subset: parse and check timed in turn, medians and
//       their ratio; then a deep and a wide tree (each check's result
//       asserted).
//   ozmbench validate --entry string|bytes|file [--size MB] [--repeat N]
//       the same for one entry alone, in a fresh process: the rows of a
//       run share one heap, and the later ones walk trees that the earlier
//       parses' memory scattered.
//   ozmbench validate --emit FILE [--size MB]
//       writes that document, for `ozmxml validate` against
//       `xmllint --noout --valid` (bench/validate_agree.py does not need it).
//   ozmbench validate --emit-small DIR [--count N]
//       writes N small documents of gendoc.h (default 20,000) into DIR, for
//       `ozmxml check -j 2` against `-j 1`.
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "harness.h"

namespace ozmbench {
namespace {

// What any check of the tree must read, and nothing more: every node, the
// first unit of each attribute's name and value, and the text of each
// element with children (content of elements must be white space). Its
// time is the floor under the check's, set by the memory of the tree.
long ReadTree(const XmlDocument& doc) {
    long sum = 0;
    std::vector<const XmlElement*> open;
    const XmlElement* e = doc.RootElement();
    while (e) {
        for (int i = 0; i < e->AttributeCount(); ++i)
            sum += e->GetAttributeName(i)[0] + e->GetAttributeValue(i)[0];
        if (e->Child()) {
            const UCChar* data = e->Data();
            for (long i = 0; i < e->DataLength(); ++i)
                sum += data[i];
            open.push_back(e);
            e = e->Child();
            continue;
        }
        while (!e->Next() && !open.empty()) {
            e = open.back();
            open.pop_back();
        }
        e = open.empty() ? nullptr : e->Next();
    }
    return sum;
}

// Times check beside parse on one document: parse (from the string, from
// the file when one is named, or from the bytes when they are given), then
// check the tree, then read what the check must read, in turn repeat
// times.
void Compare(const char* name, const UCString& text, int repeat, size_t expectViolations,
             const std::string& file = std::string(), const std::string* bytes = nullptr) {
    Timing parse, check, ratio, read, readRatio;
    long sum = 0;
    XmlDocument doc;
    std::vector<XmlViolation> violations;
    const UCString path = Decode(file);
    for (int r = 0; r < repeat; ++r) {
        BATCHERR result = errNone;
        parse.Time([&] {
            result = bytes ? doc.ParseBytes(bytes->data(), bytes->size())
                           : file.empty() ? doc.ParseString(text) : doc.ParseFile(path.c_str());
        });
        CheckParse(doc, result, name);
        check.Time([&] { doc.Validate(violations, 0); });
        ratio.runs.push_back(check.runs.back() / parse.runs.back());
        read.Time([&] { sum += ReadTree(doc); });
        readRatio.runs.push_back(read.runs.back() / parse.runs.back());
        if (violations.size() != expectViolations)
            Fail(std::string(name) + ": " + std::to_string(violations.size()) + " violations, " +
                 std::to_string(expectViolations) + " expected");
    }
    // The ratio of each pair of runs, so that a drift in the machine's
    // speed between runs cancels.
    std::printf("  %-8s %9zu units  parse %8.4f s  check %8.4f s  check/parse %.3f (pairs: best %.3f)"
                "  read/parse %.3f\n",
                name, bytes ? bytes->size() : text.size(), parse.Median(), check.Median(), ratio.Median(),
                ratio.Best(), readRatio.Median() + (sum == 42 ? 1e-9 : 0));
}

}  // namespace

int ValidateCommand(int argc, char** argv) {
    double sizeMB = 20;
    int repeat = 5;
    size_t count = 20000;
    std::string emit, emitSmall, entry;
    ParseOptions(argc, argv, 1,
                 {Number("--size", sizeMB), Number("--repeat", repeat), Text("--emit", emit),
                  Text("--emit-small", emitSmall), Number("--count", count), Text("--entry", entry)});
    if (!entry.empty() && entry != "string" && entry != "bytes" && entry != "file")
        Fail("--entry takes string, bytes or file");
    if (!emitSmall.empty()) {
        ::mkdir(emitSmall.c_str(), 0777);
        const std::vector<std::string> docs = GenerateSmallDocuments(count, 500, 3000);
        for (size_t i = 0; i < docs.size(); ++i)
            if (!WriteFile(emitSmall + "/doc" + std::to_string(100000 + i) + ".xml", docs[i]))
                Fail("cannot write into " + emitSmall);
        std::printf("%zu documents in %s\n", docs.size(), emitSmall.c_str());
        return 0;
    }
    // The benchmark document uses an attribute and values that its subset
    // does not declare; declared here, it is valid.
    std::string bytes = GenerateDocumentWithDtd(size_t(sizeMB * 1e6), false);
    const std::string status = "status (active | pending | deleted) 'active'";
    const size_t at = bytes.find(status);
    if (at == std::string::npos)
        Fail("the subset has changed");
    bytes.replace(at, status.size(),
                  "status (active | pending | deleted | archived | draft | on-hold) 'active' lang NMTOKEN #IMPLIED");
    if (!emit.empty()) {
        if (!WriteFile(emit, bytes))
            Fail("cannot write " + emit);
        std::printf("%zu bytes in %s\n", bytes.size(), emit.c_str());
        return 0;
    }
    std::printf("ozmbench validate: median of %d runs\n", repeat);
    // Each entry's rows run after the others' in one process, on a heap that
    // those shaped: --entry runs one alone, in a process of its own.
    if (entry.empty() || entry == "string")
        Compare("document", Decode(bytes), repeat, 0);
    if (entry.empty() || entry == "bytes")
        Compare("bytes", UCString(), repeat, 0, std::string(), &bytes);
    // The same parsed from a file, as a program that checks files does.
    if (entry.empty() || entry == "file") {
        TempDir dir;
        const std::string file = dir.File("document.xml");
        if (!WriteFile(file, bytes))
            Fail("cannot write " + file);
        Compare("file", UCString(), repeat, 0, file);
    }

    // A chain of 100,000 elements, each declared with a model nested 256
    // groups deep, and one element with a million children.
    const int depth = 100000, groups = 256, wide = 1000000;
    std::string deep = "<!DOCTYPE d [<!ELEMENT d " + std::string(groups, '(') + "d?" + std::string(groups, ')') + ">]>";
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
    CheckParse(chain, chain.ParseString(Decode(deep.substr(0, deep.find("]>") + 2) + "<d/>")), "deep subset");
    XmlElement* top = chain.RootElement();
    for (int i = 1; i < depth; ++i) {
        XmlElement* e = chain.NewElement();
        e->Name(u"d");
        top->Child(e);
        top = e;
    }
    std::vector<XmlViolation> violations;
    Timing deepT;
    deepT.Time([&] { chain.Validate(violations, 0); });
    std::printf("  %-8s %9d elements, models %d groups deep: %zu violations, %.4f s\n", "deep", depth, groups,
                violations.size(), deepT.Best());
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

}  // namespace ozmbench
