// write_bench - throughput of XmlDocument::Write to each kind of target.
//
//   write_bench [--size MB] [--repeat N] [--dir PATH]
//
// The document is made by the generator of gendoc.h (MB = 1e6 bytes, default
// 100) and parsed once. It is then written whole (declaration, line breaks,
// escaping, empty elements) to no target at all (the writer's own cost), to
// a UCString and to the UTF-8 std::string (each fresh per run, and reused
// with its storage kept from the run before), to an OzmUCFile of format 1
// and to a stdio FILE (each a new file, opened and closed inside the timed
// part; the file of the run before is removed outside it).
// Times are wall-clock (steady_clock), best of N runs (default 3). Rates are
// MB (1e6 bytes) of output per second: for the UCString and for no target
// two bytes a unit, otherwise the bytes written.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>

#include "gendoc.h"
#include "xmlapi.h"

namespace {

using Clock = std::chrono::steady_clock;

struct Result {
    double seconds = 1e30;
    size_t bytes = 0;
};

// prepare runs before each timed run, outside the time.
Result Best(int repeat, const std::function<size_t()>& run, const std::function<void()>& prepare = nullptr) {
    Result best;
    for (int i = 0; i < repeat; ++i) {
        if (prepare)
            prepare();
        Clock::time_point t0 = Clock::now();
        size_t bytes = run();
        double s = std::chrono::duration<double>(Clock::now() - t0).count();
        if (s < best.seconds)
            best.seconds = s;
        best.bytes = bytes;
    }
    return best;
}

void Print(const char* what, const Result& r) {
    std::printf("%-30s %10.1f MB in %7.3f s  %8.1f MB/s\n", what, r.bytes / 1e6, r.seconds, r.bytes / 1e6 / r.seconds);
}

long FileSize(const std::string& path) {
    FILE* f = std::fopen(path.c_str(), "rb");
    if (!f)
        return -1;
    std::fseek(f, 0, SEEK_END);
    long n = std::ftell(f);
    std::fclose(f);
    return n;
}

std::string ReadAll(const std::string& path) {
    std::string out;
    if (FILE* f = std::fopen(path.c_str(), "rb")) {
        char buf[1 << 16];
        for (size_t n; (n = std::fread(buf, 1, sizeof buf, f)) > 0;)
            out.append(buf, n);
        std::fclose(f);
    }
    return out;
}

UCString Wide(const std::string& s) {
    UCString out;
    for (unsigned char c : s)
        out.push_back(c);
    return out;
}

}  // namespace

int main(int argc, char** argv) {
    double sizeMB = 100;
    int repeat = 3;
    std::string dir = "/tmp";
    for (int i = 1; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--size") && i + 1 < argc)
            sizeMB = std::atof(argv[++i]);
        else if (!std::strcmp(argv[i], "--repeat") && i + 1 < argc)
            repeat = std::atoi(argv[++i]);
        else if (!std::strcmp(argv[i], "--dir") && i + 1 < argc)
            dir = argv[++i];
        else {
            std::fprintf(stderr, "usage: write_bench [--size MB] [--repeat N] [--dir PATH]\n");
            return 2;
        }
    }
    if (repeat < 1)
        repeat = 1;

    XmlDocument doc;
    {
        std::string bytes = ozmbench::GenerateDocument(size_t(sizeMB * 1e6));
        UCString text;
        OzmGlob::DecodeUTF8(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), text);
        if (doc.ParseString(text) != errNone) {
            std::fprintf(stderr, "parse failed at %d:%d\n", doc.ErrorLine(), doc.ErrorCol());
            return 1;
        }
        std::printf("document: %.1f MB of UTF-8 source, %zu units\n", bytes.size() / 1e6, text.size());
    }
    auto writeAll = [&](XmlOutputStream& s) { doc.Write(s, false, true, true, 7, true); };

    std::string utf8Copy;
    {
        XmlOutputStream s;
        UCString counted;
        s.SetString(&counted);
        writeAll(s);
        const size_t units = counted.size();
        Print("no target (writer alone)", Best(repeat, [&] {
                  XmlOutputStream none;
                  writeAll(none);
                  return units * 2;
              }));
    }
    Print("UCString, fresh", Best(repeat, [&] {
              UCString out;
              XmlOutputStream s;
              s.SetString(&out);
              writeAll(s);
              return out.size() * 2;
          }));
    // A string that a caller reuses: cleared, its storage kept from the
    // previous run, so that no time goes to growing it and faulting in pages.
    UCString reusedUnits;
    Print("UCString, reused", Best(repeat, [&] {
              reusedUnits.clear();
              XmlOutputStream s;
              s.SetString(&reusedUnits);
              writeAll(s);
              return reusedUnits.size() * 2;
          }));
    reusedUnits = UCString();
    Print("UTF-8 std::string, fresh", Best(repeat, [&] {
              std::string out;
              XmlOutputStream s;
              s.SetUTFString(&out);
              writeAll(s);
              utf8Copy.swap(out);
              return utf8Copy.size();
          }));
    std::string reusedBytes;
    Print("UTF-8 std::string, reused", Best(repeat, [&] {
              reusedBytes.clear();
              XmlOutputStream s;
              s.SetUTFString(&reusedBytes);
              writeAll(s);
              return reusedBytes.size();
          }));
    reusedBytes = std::string();
    const std::string ucPath = dir + "/write_bench_ucfile.xml";
    Print("OzmUCFile (format 1)", Best(repeat, [&] {
              {
                  XmlOutputStream s;
                  if (s.OpenUCFile(Wide(ucPath).c_str(), u"w", 1) < 0) {
                      std::fprintf(stderr, "cannot open %s\n", ucPath.c_str());
                      std::exit(1);
                  }
                  writeAll(s);
              }
              return size_t(FileSize(ucPath));
          },
          [&] { std::remove(ucPath.c_str()); }));
    const std::string stdioPath = dir + "/write_bench_stdio.xml";
    Print("stdio FILE", Best(repeat, [&] {
              {
                  XmlOutputStream s;
                  FILE* f = std::fopen(stdioPath.c_str(), "wb");
                  if (!f) {
                      std::fprintf(stderr, "cannot open %s\n", stdioPath.c_str());
                      std::exit(1);
                  }
                  s.SetFilePointer(f, true);
                  writeAll(s);
              }
              return size_t(FileSize(stdioPath));
          },
          [&] { std::remove(stdioPath.c_str()); }));

    // The stdio file and the UTF-8 string follow the same rule byte for byte.
    bool same = ReadAll(stdioPath) == utf8Copy;
    std::printf("stdio file %s the UTF-8 string\n", same ? "equals" : "DIFFERS FROM");
    std::remove(ucPath.c_str());
    std::remove(stdioPath.c_str());
    return same ? 0 : 1;
}
