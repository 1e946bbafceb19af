// dtd_bench - the cost of definitions: a document parsed against its
// internal subset (lengths recorded) beside the same document with the
// subset read and dropped (ignoreDtd), the same with entity references in
// content, a definition of about 1 MB read as an internal subset, and the
// same definition as modules read by ParseExternalDTD.
//
//   dtd_bench [--size MB] [--dtd-size MB] [--repeat N]
//   dtd_bench --once doc|doc-ignore|doc-refs|subset|modules [--size MB] [--dtd-size MB]
//
// --once parses once inside ozm_dtd_region, for callgrind:
//   valgrind --tool=callgrind --collect-atstart=no --toggle-collect=ozm_dtd_region build/bench/dtd_bench --once doc
// (bench/dtd_callgrind.sh runs all five and prints instructions per byte).
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "gendtd.h"
#include "xmlapi.h"

namespace {

struct Input {
    std::string name;
    std::string bytes;     // UTF-8, all files together for the modules
    UCString text;         // decoded, for ParseString
    bool ignoreDtd = false;
    std::string driver;    // for the modules: the path of the driver
};

UCString Wide(const std::string& s) { return UCString(s.begin(), s.end()); }

std::string TempDir() {
    char pattern[] = "/tmp/ozm-dtd-bench.XXXXXX";
    return mkdtemp(pattern) ? pattern : "";
}

Input Make(const std::string& name, double sizeMB, double dtdMB) {
    Input in;
    in.name = name;
    const size_t size = size_t(sizeMB * 1e6), dtdSize = size_t(dtdMB * 1e6);
    if (name == "doc" || name == "doc-ignore")
        in.bytes = ozmbench::GenerateDocumentWithDtd(size, false);
    else if (name == "doc-refs")
        in.bytes = ozmbench::GenerateDocumentWithDtd(size, true);
    else if (name == "subset")
        in.bytes = ozmbench::GenerateDtdDocument(dtdSize, 500);
    else if (name == "modules") {
        std::vector<std::string> files = ozmbench::GenerateDtdModules(dtdSize, 500, 10);
        const std::string dir = TempDir();
        for (size_t i = 0; i < files.size(); ++i) {
            std::ofstream(dir + "/" + (i ? "mod" + std::to_string(i) + ".mod" : "driver.dtd")) << files[i];
            in.bytes += files[i];
        }
        in.driver = dir + "/driver.dtd";
        return in;
    } else {
        std::fprintf(stderr, "dtd_bench: unknown input '%s'\n", name.c_str());
        std::exit(2);
    }
    in.ignoreDtd = name == "doc-ignore";
    OzmGlob::DecodeUTF8(reinterpret_cast<const unsigned char*>(in.bytes.data()), in.bytes.size(), in.text);
    return in;
}

BATCHERR Parse(const Input& in, XmlDocument& doc) {
    if (!in.driver.empty()) {
        // Bare module names resolve against the directory of the last file
        // parsed, which is the driver's.
        doc.ParseFile(Wide(in.driver).c_str(), false, true);
        return doc.ParseExternalDTD(Wide(in.driver).c_str());
    }
    return doc.ParseString(in.text, false, in.ignoreDtd);
}

void Check(const XmlDocument& doc, BATCHERR r, const Input& in) {
    if (r == errNone)
        return;
    std::string msg;
    for (const UCChar* p = doc.ErrorMessage(); *p; ++p)
        msg += char(*p < 0x80 ? *p : '?');
    std::printf("%s: FAILED %d at %d:%d: %s\n", in.name.c_str(), int(r), doc.ErrorLine(), doc.ErrorCol(), msg.c_str());
    std::exit(1);
}

}  // namespace

extern "C" __attribute__((noinline)) BATCHERR ozm_dtd_region(const Input* in, XmlDocument* doc) {
    return Parse(*in, *doc);
}

int main(int argc, char** argv) {
    double sizeMB = 5, dtdMB = 1;
    int repeat = 5;
    std::string once;
    for (int i = 1; i + 1 < argc; i += 2) {
        std::string a = argv[i];
        if (a == "--size")
            sizeMB = std::atof(argv[i + 1]);
        else if (a == "--dtd-size")
            dtdMB = std::atof(argv[i + 1]);
        else if (a == "--repeat")
            repeat = std::max(1, std::atoi(argv[i + 1]));
        else if (a == "--once")
            once = argv[i + 1];
        else {
            std::fprintf(stderr, "usage: dtd_bench [--size MB] [--dtd-size MB] [--repeat N] [--once INPUT]\n");
            return 2;
        }
    }
    if (!once.empty()) {
        Input in = Make(once, sizeMB, dtdMB);
        XmlDocument doc;
        if (!in.driver.empty())
            doc.ParseFile(Wide(in.driver).c_str(), false, true);
        Check(doc, ozm_dtd_region(&in, &doc), in);
        std::printf("utf8 bytes: %zu\nelement definitions: %d\n", in.bytes.size(), doc.GetDTD().ElementCount());
        return 0;
    }
    std::printf("dtd_bench: document %.1f MB, definition %.1f MB, median of %d runs\n", sizeMB, dtdMB, repeat);
    for (const char* name : {"doc", "doc-ignore", "doc-refs", "subset", "modules"}) {
        Input in = Make(name, sizeMB, dtdMB);
        std::vector<double> runs;
        int defs = 0;
        for (int r = 0; r < repeat; ++r) {
            XmlDocument doc;
            auto t0 = std::chrono::steady_clock::now();
            Check(doc, Parse(in, doc), in);
            runs.push_back(std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count());
            defs = doc.GetDTD().ElementCount();
        }
        std::sort(runs.begin(), runs.end());
        const double median = runs[runs.size() / 2];
        std::printf("  %-11s %9zu bytes  %5d element definitions  %8.2f MB/s  (%.4f s)\n", name, in.bytes.size(), defs,
                    double(in.bytes.size()) / 1e6 / median, median);
    }
    return 0;
}
