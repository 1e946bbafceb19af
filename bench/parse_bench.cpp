// parse_bench - throughput of UTF-8 decoding and of parsing into the element
// tree, and the heap the parsed tree takes.
//
//   parse_bench [--size MB] [--repeat N] [--text] [--plain] [--file PATH] [--write PATH]
//   parse_bench --once decode|parse|both [--size MB] [--text] [--plain] [--file PATH]
//   parse_bench --callgrind-support
//   parse_bench --reuse N
//
// Without --file the input is made by the generator of gendoc.h (MB = 1e6
// bytes, default 100): the data-heavy document, or with --text the
// text-heavy one of long multilingual paragraphs. --plain decodes UTF-8 at
// the decoder's plain level (SSE2 and scalar code) even where the CPU has
// AVX2. Times are wall-clock (steady_clock), best of N runs;
// every rate is counted against the UTF-8 byte count of the input.
//
// --reuse parses N small documents with a definition into one re-used
// document, each bringing names of its own, and prints the time per parse of
// each quarter: the cost of a parse must not grow with the names that the
// document's table has kept from the parses before.
//
// --once runs the named work exactly once between callgrind's start and stop
// instrumentation requests (bench/callgrind.sh), so that the instruction
// count of the run is that of the work alone.
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "../platform/ozmutf8.h"
#include "benchutil.h"
#include "gendoc.h"
#include "xmlapi.h"

#ifdef OZM_HAVE_CALLGRIND_H
#include <valgrind/callgrind.h>
#define OZM_REGION_START() CALLGRIND_START_INSTRUMENTATION
#define OZM_REGION_STOP() CALLGRIND_STOP_INSTRUMENTATION
#else
#define OZM_REGION_START() ((void)0)
#define OZM_REGION_STOP() ((void)0)
#endif

// ---------------------------------------------------------------------------
// Counting replacements of the global allocation functions. They keep the
// live bytes (as malloc_usable_size reports them) and the live block count of
// everything allocated through operator new, in this program and in the
// library alike. The benchmark is single-threaded, so plain counters do.
// --once turns the counting off for the whole run, so that the instruction
// counts are those of a plain operator new.

namespace {
size_t g_newLiveBytes = 0;
size_t g_newLiveBlocks = 0;
bool g_countNew = true;

void* CountedAlloc(size_t size, size_t align) noexcept {
    if (size == 0)
        size = 1;
    void* p = nullptr;
    if (align > __STDCPP_DEFAULT_NEW_ALIGNMENT__) {
        if (posix_memalign(&p, align, size) != 0)
            p = nullptr;
    } else {
        p = std::malloc(size);
    }
    if (p && g_countNew) {
        g_newLiveBytes += malloc_usable_size(p);
        ++g_newLiveBlocks;
    }
    return p;
}

// operator new semantics: call the new-handler until memory comes or there
// is no handler; then throw.
void* NewOrThrow(size_t size, size_t align) {
    for (;;) {
        void* p = CountedAlloc(size, align);
        if (p)
            return p;
        std::new_handler handler = std::get_new_handler();
        if (!handler)
            throw std::bad_alloc();
        handler();
    }
}

void* NewOrNull(size_t size, size_t align) noexcept {
    try {
        return NewOrThrow(size, align);
    } catch (...) {
        return nullptr;
    }
}

void CountedFree(void* p) noexcept {
    if (!p)
        return;
    if (g_countNew) {
        g_newLiveBytes -= malloc_usable_size(p);
        --g_newLiveBlocks;
    }
    std::free(p);
}

constexpr size_t kPlain = __STDCPP_DEFAULT_NEW_ALIGNMENT__;
}  // namespace

void* operator new(size_t n) { return NewOrThrow(n, kPlain); }
void* operator new[](size_t n) { return NewOrThrow(n, kPlain); }
void* operator new(size_t n, const std::nothrow_t&) noexcept { return NewOrNull(n, kPlain); }
void* operator new[](size_t n, const std::nothrow_t&) noexcept { return NewOrNull(n, kPlain); }
void* operator new(size_t n, std::align_val_t a) { return NewOrThrow(n, size_t(a)); }
void* operator new[](size_t n, std::align_val_t a) { return NewOrThrow(n, size_t(a)); }
void* operator new(size_t n, std::align_val_t a, const std::nothrow_t&) noexcept { return NewOrNull(n, size_t(a)); }
void* operator new[](size_t n, std::align_val_t a, const std::nothrow_t&) noexcept { return NewOrNull(n, size_t(a)); }

void operator delete(void* p) noexcept { CountedFree(p); }
void operator delete[](void* p) noexcept { CountedFree(p); }
void operator delete(void* p, size_t) noexcept { CountedFree(p); }
void operator delete[](void* p, size_t) noexcept { CountedFree(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { CountedFree(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { CountedFree(p); }
void operator delete(void* p, std::align_val_t) noexcept { CountedFree(p); }
void operator delete[](void* p, std::align_val_t) noexcept { CountedFree(p); }
void operator delete(void* p, size_t, std::align_val_t) noexcept { CountedFree(p); }
void operator delete[](void* p, size_t, std::align_val_t) noexcept { CountedFree(p); }
void operator delete(void* p, std::align_val_t, const std::nothrow_t&) noexcept { CountedFree(p); }
void operator delete[](void* p, std::align_val_t, const std::nothrow_t&) noexcept { CountedFree(p); }

// ---------------------------------------------------------------------------

extern "C" BATCHERR ozm_bench_region(int work, const std::string* bytes, UCString* text, XmlDocument* doc);

namespace {

using ozmbench::Clock;
using ozmbench::ReadFile;
using ozmbench::Seconds;
using ozmbench::Timing;

// Everything malloc has handed out and not taken back, chunk overhead
// included: the main heap and the other arenas (uordblks) plus the blocks
// served by mmap (hblkhd).
size_t MallocInUse() {
    struct mallinfo2 mi = mallinfo2();
    return mi.uordblks + mi.hblkhd;
}

// Heap bytes of an attribute name or value of n units held outside its
// string object, as malloc would round it: (n + 1) units of 2 bytes plus an
// 8-byte header, in 16-byte steps, at least 32. Strings of up to 7 units live
// inside the object.
constexpr size_t kSsoCapacity = 7;
size_t OutOfLineBytes(size_t units) {
    if (units <= kSsoCapacity)
        return 0;
    size_t chunk = (units * 2 + 2 + 8 + 15) & ~size_t(15);
    return chunk < 32 ? 32 : chunk;
}

// Bytes of the parsed data of an element in its slab's text store: its
// units and a terminating 0.
size_t StoredTextBytes(size_t units) { return units ? (units + 1) * 2 : 0; }

std::string Utf8(const UCChar* text) {
    std::string out;
    OzmGlob::WStringToString(UCString(text), out, csetUTF8);
    return out;
}

struct TreeCounts {
    size_t elements = 0;
    size_t attributes = 0;
    size_t maxDepth = 0;
    size_t textStrings = 0;  // texts held outside their objects
    size_t textBytes = 0;    // their estimated heap bytes
};

size_t Units(const UCChar* s) { return std::char_traits<UCChar>::length(s); }

TreeCounts WalkTree(const XmlElement* root) {
    TreeCounts c;
    XmlWalkTree(root, [&c](const XmlElement* e, int depth) {
        ++c.elements;
        c.maxDepth = std::max(c.maxDepth, size_t(depth) + 1);
        size_t bytes = StoredTextBytes(size_t(e->DataLength()));
        int n = e->AttributeCount();
        c.attributes += size_t(n);
        c.textStrings += bytes != 0;
        c.textBytes += bytes;
        for (int i = 0; i < n; ++i) {
            size_t nb = OutOfLineBytes(Units(e->GetAttributeName(i)));
            size_t vb = OutOfLineBytes(Units(e->GetAttributeValue(i)));
            c.textStrings += (nb != 0) + (vb != 0);
            c.textBytes += nb + vb;
        }
        return true;
    });
    return c;
}

size_t CountSlabs(const XmlDocument& doc) {
    size_t n = 0;
    for (const XmlElementBlock* b = doc.ElementBlocks(); b; b = b->Next())
        ++n;
    return n;
}

void Decode(const std::string& bytes, UCString& out) {
    OzmGlob::DecodeUTF8(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), out);
}

// Prints the parse error and ends the program.
[[noreturn]] void ParseFailed(const XmlDocument& doc, BATCHERR result) {
    std::printf("PARSE FAILED: error %d at line %d, column %d: %s\n", int(result), doc.ErrorLine(), doc.ErrorCol(),
                Utf8(doc.ErrorMessage()).c_str());
    std::fflush(stdout);
    std::exit(1);
}

void PrintRate(const char* what, const Timing& t, size_t bytes) {
    double mb = double(bytes) / 1e6;
    std::printf("  %-22s best %9.2f MB/s (%8.4f s)   median %9.2f MB/s (%8.4f s)\n", what, mb / t.Best(), t.Best(),
                mb / t.Median(), t.Median());
}

constexpr int kWorkDecode = 1;
constexpr int kWorkParse = 2;

[[noreturn]] void Usage() {
    std::fprintf(stderr,
                 "usage: parse_bench [--size MB] [--repeat N] [--text] [--plain] [--file PATH] [--write PATH]\n"
                 "       parse_bench --once decode|parse|both [--size MB] [--text] [--plain] [--file PATH]\n"
                 "       parse_bench --callgrind-support\n"
                 "       parse_bench --reuse N\n");
    std::exit(2);
}

// One decode, one parse or both, first decoding outside the region when
// only the parse is counted.
int RunOnce(const std::string& mode, const std::string& bytes) {
    UCString text;
    XmlDocument doc;
    int work = mode == "decode" ? kWorkDecode : mode == "parse" ? kWorkParse : mode == "both" ? kWorkDecode | kWorkParse : 0;
    if (work == 0)
        Usage();
    if (work == kWorkParse)
        Decode(bytes, text);
    BATCHERR result = ozm_bench_region(work, &bytes, &text, &doc);
    if (result != errNone)
        ParseFailed(doc, result);
    std::printf("once: %s\n", mode.c_str());
    std::printf("utf8 bytes: %zu\n", bytes.size());
    std::printf("utf16 units: %zu\n", text.size());
    if (work & kWorkParse)
        std::printf("elements: %zu\n", WalkTree(doc.RootElement()).elements);
    return 0;
}

int RunReuse(int count) {
    XmlDocument doc;
    UCString text;
    auto start = std::chrono::steady_clock::now();
    const int quarter = std::max(1, count / 4);
    for (int i = 0; i < count; ++i) {
        text = u"<!DOCTYPE r [<!ELEMENT r ANY><!ATTLIST r a CDATA #IMPLIED>]><r a='1'>";
        for (int k = 0; k < 5; ++k) {
            const std::string name = "n" + std::to_string(i) + "_" + std::to_string(k);
            const UCString wide(name.begin(), name.end());
            text += u"<" + wide + u" a='x'>t</" + wide + u">";
        }
        text += u"</r>";
        const BATCHERR result = doc.ParseString(text);
        if (result != errNone)
            ParseFailed(doc, result);
        if ((i + 1) % quarter == 0) {
            const auto now = std::chrono::steady_clock::now();
            std::printf("parses %6d to %6d: %.4f ms a parse\n", i + 2 - quarter, i + 1,
                        std::chrono::duration<double, std::milli>(now - start).count() / quarter);
            start = now;
        }
    }
    return 0;
}

}  // namespace

// The counted region of --once: exactly the work asked for, between the
// instrumentation requests; never inlined, so that callgrind can also toggle
// collection on its name.
extern "C" __attribute__((noinline)) BATCHERR ozm_bench_region(int work, const std::string* bytes, UCString* text,
                                                              XmlDocument* doc) {
    BATCHERR result = errNone;
    OZM_REGION_START();
    if (work & kWorkDecode)
        Decode(*bytes, *text);
    if (work & kWorkParse)
        result = doc->ParseString(*text, false, false);
    OZM_REGION_STOP();
    return result;
}

int main(int argc, char** argv) {
    double sizeMB = 100;
    int repeat = 5;
    const char* file = nullptr;
    const char* writePath = nullptr;
    bool textDoc = false;
    std::string once;
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        bool hasValue = i + 1 < argc;
        if (a == "--size" && hasValue) {
            sizeMB = std::atof(argv[++i]);
            if (!(sizeMB > 0))
                Usage();
        } else if (a == "--repeat" && hasValue) {
            repeat = std::atoi(argv[++i]);
            if (repeat < 1)
                Usage();
        } else if (a == "--file" && hasValue) {
            file = argv[++i];
        } else if (a == "--text") {
            textDoc = true;
        } else if (a == "--plain") {
            OzmUtf8DecodeLevel(kOzmUtf8Plain);
        } else if (a == "--write" && hasValue) {
            writePath = argv[++i];
        } else if (a == "--once" && hasValue) {
            once = argv[++i];
            g_countNew = false;
        } else if (a == "--reuse" && hasValue) {
            const int count = std::atoi(argv[++i]);
            if (count < 1)
                Usage();
            return RunReuse(count);
        } else if (a == "--callgrind-support") {
#ifdef OZM_HAVE_CALLGRIND_H
            std::printf("yes\n");
#else
            std::printf("no\n");
#endif
            return 0;
        } else {
            Usage();
        }
    }

    // The input, as UTF-8 bytes in memory.
    std::string bytes;
    ozmbench::GenStats gen;
    bool generated = file == nullptr;
    if (file) {
        if (!ReadFile(file, bytes)) {
            std::fprintf(stderr, "%s: cannot read\n", file);
            return 2;
        }
    } else if (textDoc) {
        bytes = ozmbench::GenerateTextDocument(size_t(sizeMB * 1e6), ozmbench::kDefaultSeed, &gen);
    } else {
        bytes = ozmbench::GenerateDocument(size_t(sizeMB * 1e6), ozmbench::kDefaultSeed, &gen);
    }
    if (writePath) {
        std::ofstream o(writePath, std::ios::binary);
        o.write(bytes.data(), std::streamsize(bytes.size()));
        if (!o) {
            std::fprintf(stderr, "%s: cannot write\n", writePath);
            return 2;
        }
    }
    if (!once.empty())
        return RunOnce(once, bytes);

    const size_t n = bytes.size();
    std::printf("parse_bench\n");
    if (generated)
        std::printf("input: generated%s, seed 0x%llx, %zu bytes of UTF-8 (requested %.3f MB)\n",
                    textDoc ? " text-heavy" : "", (unsigned long long)ozmbench::kDefaultSeed, n, sizeMB);
    else
        std::printf("input: %s, %zu bytes of UTF-8\n", file, n);
    if (generated && !textDoc)
        std::printf("  generator: %zu elements (%zu groups, %zu records, %zu record children), %zu attributes,\n"
                    "             %zu comments, %zu characters beyond U+FFFF, depth %d\n",
                    gen.elements, gen.groups, gen.records, gen.fields, gen.attributes, gen.comments, gen.emoji,
                    gen.maxDepth);
    else if (generated)
        std::printf("  generator: %zu elements, %zu attributes, %zu characters beyond U+FFFF, depth %d\n",
                    gen.elements, gen.attributes, gen.emoji, gen.maxDepth);
    std::printf("UTF-8 decoder: %s level\n", OzmUtf8DecodeLevel() == kOzmUtf8Avx2 ? "AVX2" : "plain");
    std::printf("repeats: %d (best and median; MB = 1e6 bytes of UTF-8 input)\n\n", repeat);

    // Correctness first: one parse, checked and counted.
    UCString text;
    Decode(bytes, text);
    TreeCounts counts;
    size_t slabs = 0;
    {
        XmlDocument doc;
        BATCHERR result = doc.ParseString(text, false, false);
        if (result != errNone)
            ParseFailed(doc, result);
        counts = WalkTree(doc.RootElement());
        slabs = CountSlabs(doc);
    }
    if (generated && counts.elements != gen.elements) {
        std::printf("MISMATCH: the tree has %zu elements, the generator wrote %zu\n", counts.elements,
                    gen.elements);
        return 1;
    }

    std::printf("Throughput\n");
    Timing decodeT, parseT, bothT;
    // Decoding alone, into a new string each time.
    for (int r = 0; r < repeat; ++r) {
        UCString t;
        Clock::time_point a = Clock::now();
        Decode(bytes, t);
        Clock::time_point b = Clock::now();
        decodeT.runs.push_back(Seconds(a, b));
        if (t.size() != text.size()) {
            std::printf("MISMATCH: decoding gave %zu units, then %zu\n", text.size(), t.size());
            return 1;
        }
    }
    PrintRate("decode UTF-8", decodeT, n);

    // Parsing alone, into a new document each time; its destruction is not
    // timed.
    for (int r = 0; r < repeat; ++r) {
        auto doc = std::make_unique<XmlDocument>();
        Clock::time_point a = Clock::now();
        BATCHERR result = doc->ParseString(text, false, false);
        Clock::time_point b = Clock::now();
        if (result != errNone)
            ParseFailed(*doc, result);
        parseT.runs.push_back(Seconds(a, b));
    }
    PrintRate("ParseString", parseT, n);
    const size_t units = text.size();
    UCString().swap(text);

    // Both, as a program reading a UTF-8 document would do them.
    for (int r = 0; r < repeat; ++r) {
        auto doc = std::make_unique<XmlDocument>();
        UCString t;
        Clock::time_point a = Clock::now();
        Decode(bytes, t);
        BATCHERR result = doc->ParseString(t, false, false);
        Clock::time_point b = Clock::now();
        if (result != errNone)
            ParseFailed(*doc, result);
        bothT.runs.push_back(Seconds(a, b));
    }
    PrintRate("decode + ParseString", bothT, n);

    // The same document read from a file: ParseFile decodes as it goes.
    {
        char path[] = "/tmp/ozm-parse-bench-XXXXXX";
        int fd = ::mkstemp(path);
        if (fd < 0 || ::write(fd, bytes.data(), bytes.size()) != ssize_t(bytes.size())) {
            std::printf("cannot write the temporary file %s\n", path);
            return 1;
        }
        ::close(fd);
        UCString widePath;
        for (const char* p = path; *p; ++p)
            widePath.push_back(UCChar(*p));
        Timing fileT;
        for (int r = 0; r < repeat; ++r) {
            auto doc = std::make_unique<XmlDocument>();
            Clock::time_point a = Clock::now();
            BATCHERR result = doc->ParseFile(widePath.c_str(), false, false);
            Clock::time_point b = Clock::now();
            if (result != errNone)
                ParseFailed(*doc, result);
            fileT.runs.push_back(Seconds(a, b));
        }
        ::unlink(path);
        PrintRate("ParseFile", fileT, n);
        std::printf("  ParseFile / (decode + ParseString), best runs: %.3f\n", fileT.Best() / (decodeT.Best() + parseT.Best()));
    }

    // Memory of one parsed document. The baseline is taken after the input
    // has been decoded and the document object made, so that neither counts.
    long long mallocDelta, newDelta, newBlocks;
    {
        UCString t;
        Decode(bytes, t);
        auto doc = std::make_unique<XmlDocument>();
        size_t malloc0 = MallocInUse();
        size_t new0 = g_newLiveBytes;
        size_t blocks0 = g_newLiveBlocks;
        BATCHERR result = doc->ParseString(t, false, false);
        size_t malloc1 = MallocInUse();
        size_t new1 = g_newLiveBytes;
        size_t blocks1 = g_newLiveBlocks;
        if (result != errNone)
            ParseFailed(*doc, result);
        mallocDelta = (long long)malloc1 - (long long)malloc0;
        newDelta = (long long)new1 - (long long)new0;
        newBlocks = (long long)blocks1 - (long long)blocks0;
        if (CountSlabs(*doc) != slabs) {
            std::printf("MISMATCH: slab count %zu, earlier %zu\n", CountSlabs(*doc), slabs);
            return 1;
        }
    }
    const size_t slabBytes = slabs * sizeof(XmlElementBlock);
    // Each operator-new block and each slab also carries malloc's 8-byte
    // chunk header, which mallinfo2 counts and malloc_usable_size does not.
    const long long slabChunk = (long long)((sizeof(XmlElementBlock) + 8 + 15) & ~size_t(15));
    const long long crossCheck = newDelta + 8 * newBlocks + (long long)slabs * slabChunk;
    const double perElement = double(mallocDelta - (long long)counts.textBytes) / double(counts.elements);

    std::printf("\nTree\n");
    std::printf("  elements               %zu (depth %zu), attributes %zu\n", counts.elements, counts.maxDepth,
                counts.attributes);
    std::printf("  UTF-16 units of input  %zu\n", units);
    std::printf("  slabs                  %zu of %d nodes, sizeof(XmlElementBlock) = %zu, sizeof(XmlElement) = %zu\n",
                slabs, XmlElementBlock::Capacity, sizeof(XmlElementBlock), sizeof(XmlElement));

    std::printf("\nMemory of one parsed document (heap in use after the parse minus before it;\n"
                "the decoded input and the document object are in the baseline)\n");
    std::printf("  total (mallinfo2: uordblks + hblkhd)      %12lld bytes  %8.1f per element\n", mallocDelta,
                double(mallocDelta) / double(counts.elements));
    std::printf("  cross-check, operator new (usable size)   %12lld bytes in %lld blocks\n", newDelta, newBlocks);
    char label[64];
    std::snprintf(label, sizeof label, "cross-check, slabs (%zu x %zu)", slabs, sizeof(XmlElementBlock));
    std::printf("  %-41s %12zu bytes\n", label, slabBytes);
    std::printf("  cross-check, both as malloc chunks        %12lld bytes (total differs by %+lld)\n", crossCheck,
                mallocDelta - crossCheck);
    std::printf("    mallinfo2 counts chunks parked in glibc's per-thread cache as in use, so the two\n"
                "    may differ by up to a few hundred KB (they agree with GLIBC_TUNABLES=glibc.malloc.tcache_count=0)\n");
    std::printf("  text outside the nodes                    %12zu bytes in %zu texts\n", counts.textBytes,
                counts.textStrings);
    std::printf("    rule: element data costs 2n + 2 bytes in its slab's text store; attribute names and\n"
                "    values longer than %zu UTF-16 units cost max(32, (2n + 2 + 8 + 15) & ~15) bytes each\n",
                kSsoCapacity);
    std::printf("  tree bytes per element (total - text) / elements   %.1f\n", perElement);
    std::printf("  input UTF-8 bytes per element                      %.1f\n", double(n) / double(counts.elements));
    return 0;
}
