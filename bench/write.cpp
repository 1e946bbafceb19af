// write - throughput of XmlDocument::Write to each kind of target.
//
//   ozmbench write [--size MB] [--repeat N] [--dir PATH]
//
// The document is made by the generator of gendoc.h (MB = 1e6 bytes, default
// 100) and parsed once. It is then written whole (declaration, line breaks,
// escaping, empty elements) to no target at all (the writer's own cost), to
// a UCString and to the UTF-8 std::string (each fresh per run, and reused
// with its storage kept from the run before), to an OzmUCFile of format 1
// and to a stdio FILE (each a new file in PATH, by default a new directory
// under /tmp, opened and closed inside the timed part; the file of the run
// before is removed outside it). Best of N runs (default 3). Rates are MB
// (1e6 bytes) of output per second: for the UCString and for no target two
// bytes a unit, otherwise the bytes written.
#include <cstdio>
#include <memory>
#include <string>

#include "harness.h"

namespace ozmbench {
namespace {

// bytes holds what the last run wrote.
void Print(const char* what, const Timing& t, size_t bytes) {
    std::printf("%-30s %10.1f MB in %7.3f s  %8.1f MB/s\n", what, bytes / 1e6, t.Best(), Rate(bytes, t.Best()));
}

}  // namespace

int WriteCommand(int argc, char** argv) {
    double sizeMB = 100;
    int repeat = 3;
    std::string dir;
    ParseOptions(argc, argv, 1, {Number("--size", sizeMB), Number("--repeat", repeat), Text("--dir", dir)});
    std::unique_ptr<TempDir> temp;
    if (dir.empty()) {
        temp = std::make_unique<TempDir>();
        dir = temp->Path();
    }

    XmlDocument doc;
    {
        const std::string bytes = GenerateDocument(size_t(sizeMB * 1e6));
        const UCString text = Decode(bytes);
        CheckParse(doc, doc.ParseString(text));
        std::printf("document: %.1f MB of UTF-8 source, %zu units\n", bytes.size() / 1e6, text.size());
    }
    auto writeAll = [&](XmlOutputStream& s) { doc.Write(s, false, true, true, 7, true); };

    size_t bytes = 0;
    {
        XmlOutputStream s;
        UCString counted;
        s.SetString(&counted);
        writeAll(s);
        bytes = counted.size() * 2;
        Print("no target (writer alone)", Repeat(repeat, [&] {
                  XmlOutputStream none;
                  writeAll(none);
              }), bytes);
    }
    const Timing fresh = Repeat(repeat, [&] {
        UCString out;
        XmlOutputStream s;
        s.SetString(&out);
        writeAll(s);
        bytes = out.size() * 2;
    });
    Print("UCString, fresh", fresh, bytes);
    // A string that a caller reuses: cleared, its storage kept from the
    // previous run, so that no time goes to growing it and faulting in pages.
    UCString reusedUnits;
    const Timing reused = Repeat(repeat, [&] {
        reusedUnits.clear();
        XmlOutputStream s;
        s.SetString(&reusedUnits);
        writeAll(s);
    });
    Print("UCString, reused", reused, reusedUnits.size() * 2);
    reusedUnits = UCString();
    std::string utf8Copy;
    const Timing freshUtf = Repeat(repeat, [&] {
        std::string out;
        XmlOutputStream s;
        s.SetUTFString(&out);
        writeAll(s);
        utf8Copy.swap(out);
    });
    Print("UTF-8 std::string, fresh", freshUtf, utf8Copy.size());
    std::string reusedBytes;
    const Timing reusedUtf = Repeat(repeat, [&] {
        reusedBytes.clear();
        XmlOutputStream s;
        s.SetUTFString(&reusedBytes);
        writeAll(s);
    });
    Print("UTF-8 std::string, reused", reusedUtf, reusedBytes.size());
    reusedBytes = std::string();

    const std::string ucPath = dir + "/ozmbench_ucfile.xml", stdioPath = dir + "/ozmbench_stdio.xml";
    std::string written;
    const Timing ucFile = Repeat(repeat, [&] {
        XmlOutputStream s;
        if (s.OpenUCFile(Decode(ucPath).c_str(), u"w", 1) < 0)
            Fail("cannot open " + ucPath);
        writeAll(s);
    }, [&] { std::remove(ucPath.c_str()); });
    ReadFile(ucPath, written);
    Print("OzmUCFile (format 1)", ucFile, written.size());
    const Timing stdio = Repeat(repeat, [&] {
        XmlOutputStream s;
        FILE* f = std::fopen(stdioPath.c_str(), "wb");
        if (!f)
            Fail("cannot open " + stdioPath);
        s.SetFilePointer(f, true);
        writeAll(s);
    }, [&] { std::remove(stdioPath.c_str()); });
    ReadFile(stdioPath, written);
    Print("stdio FILE", stdio, written.size());

    // The stdio file and the UTF-8 string follow the same rule byte for byte.
    const bool same = written == utf8Copy;
    std::printf("stdio file %s the UTF-8 string\n", same ? "equals" : "DIFFERS FROM");
    std::remove(ucPath.c_str());
    std::remove(stdioPath.c_str());
    return same ? 0 : 1;
}

}  // namespace ozmbench
