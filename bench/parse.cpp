// parse, reuse - throughput of UTF-8 decoding and of parsing into the
// element tree, the heap the parsed tree takes, and the cost of a parse into
// a re-used document.
//
//   ozmbench parse [--size MB] [--repeat N] [--text] [--plain] [--file PATH] [--write PATH]
//   ozmbench parse --once decode|parse|both [--size MB] [--text] [--plain] [--file PATH]
//   ozmbench reuse [--count N]
//
// Without --file the input is made by the generator of gendoc.h (MB = 1e6
// bytes, default 100): the data-heavy document, or with --text the
// text-heavy one of long multilingual paragraphs. --plain decodes UTF-8 at
// the decoder's plain level (SSE2 and scalar code) even where the CPU has
// AVX2 or AVX-512. Times are best and median of N runs (default 5); every rate is
// counted against the UTF-8 byte count of the input.
//
// --once runs the named work exactly once in the counted region of
// harness.h (bench/callgrind.sh), with operator new not counted, so that the
// instruction count of the run is that of the work alone.
//
// reuse parses N small documents (default 200,000) with a definition into
// one re-used document, each bringing names of its own, and prints the time
// per parse of each quarter: the cost of a parse must not grow with the
// names that the document's table has kept from the parses before.
#include <malloc.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>

#include "../platform/ozmutf8.h"
#include "harness.h"

namespace ozmbench {
namespace {

// Everything malloc has handed out and not taken back, chunk overhead
// included: the main heap and the other arenas (uordblks) plus the blocks
// served by mmap (hblkhd).
size_t MallocInUse() {
    struct mallinfo2 mi = mallinfo2();
    return mi.uordblks + mi.hblkhd;
}

// Bytes of the parsed data of an element in its slab's text store: its
// units and a terminating 0.
size_t StoredTextBytes(size_t units) { return units ? (units + 1) * 2 : 0; }
// Bytes of a parsed attribute name or value in the text store: its units
// and a terminating 0, kept even when it is empty.
size_t StoredAttrBytes(size_t units) { return (units + 1) * 2; }

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
            c.textStrings += 2;
            c.textBytes += StoredAttrBytes(Units(e->GetAttributeName(i))) + StoredAttrBytes(Units(e->GetAttributeValue(i)));
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

// One decode, one parse or both, first decoding outside the region when
// only the parse is counted.
int RunOnce(const std::string& mode, const std::string& bytes) {
    const bool decode = mode == "decode" || mode == "both", parse = mode == "parse" || mode == "both";
    if (!decode && !parse)
        Usage("parse");
    UCString text;
    XmlDocument doc;
    if (!decode)
        Decode(bytes, text);
    BATCHERR result = errNone;
    auto work = [&] {
        if (decode)
            Decode(bytes, text);
        if (parse)
            result = doc.ParseString(text, false, false);
    };
    Region(work);
    CheckParse(doc, result);
    std::printf("once: %s\nutf8 bytes: %zu\nutf16 units: %zu\n", mode.c_str(), bytes.size(), text.size());
    if (parse)
        std::printf("elements: %zu\n", WalkTree(doc.RootElement()).elements);
    return 0;
}

// The memory of one parse, against what the tree holds.
void PrintMemory(const std::string& bytes, const TreeCounts& counts, size_t slabs) {
    // The baseline is taken after the input has been decoded and the
    // document object made, so that neither counts.
    UCString t;
    Decode(bytes, t);
    auto doc = std::make_unique<XmlDocument>();
    const size_t malloc0 = MallocInUse();
    const NewCount new0 = LiveNew();
    const BATCHERR result = doc->ParseString(t, false, false);
    const size_t malloc1 = MallocInUse();
    const NewCount new1 = LiveNew();
    CheckParse(*doc, result);
    if (CountSlabs(*doc) != slabs)
        Fail("slab count " + std::to_string(CountSlabs(*doc)) + ", earlier " + std::to_string(slabs));
    const long long mallocDelta = (long long)malloc1 - (long long)malloc0;
    const long long newDelta = (long long)new1.bytes - (long long)new0.bytes;
    const long long newBlocks = (long long)new1.blocks - (long long)new0.blocks;
    // Each operator-new block and each slab also carries malloc's 8-byte
    // chunk header, which mallinfo2 counts and malloc_usable_size does not.
    const long long slabChunk = (long long)((sizeof(XmlElementBlock) + 8 + 15) & ~size_t(15));
    const long long crossCheck = newDelta + 8 * newBlocks + (long long)slabs * slabChunk;

    std::printf("\nMemory of one parsed document (heap in use after the parse minus before it;\n"
                "the decoded input and the document object are in the baseline)\n");
    std::printf("  total (mallinfo2: uordblks + hblkhd)      %12lld bytes  %8.1f per element\n", mallocDelta,
                double(mallocDelta) / double(counts.elements));
    if (NewCounted()) {
        std::printf("  cross-check, operator new (usable size)   %12lld bytes in %lld blocks\n", newDelta, newBlocks);
        char label[64];
        std::snprintf(label, sizeof label, "cross-check, slabs (%zu x %zu)", slabs, sizeof(XmlElementBlock));
        std::printf("  %-41s %12zu bytes\n", label, slabs * sizeof(XmlElementBlock));
        std::printf("  cross-check, both as malloc chunks        %12lld bytes (total differs by %+lld)\n", crossCheck,
                    mallocDelta - crossCheck);
        std::printf("    mallinfo2 counts chunks parked in glibc's per-thread cache as in use, so the two\n"
                    "    may differ by up to a few hundred KB (they agree with GLIBC_TUNABLES=glibc.malloc.tcache_count=0)\n");
    } else {
        std::printf("  cross-check: none, this build does not count operator new\n");
    }
    std::printf("  text outside the nodes                    %12zu bytes in %zu texts\n", counts.textBytes,
                counts.textStrings);
    std::printf("    rule: element data, attribute names and attribute values cost 2n + 2 bytes each in\n"
                "    their slab's text store (element data only when not empty)\n");
    std::printf("  tree bytes per element (total - text) / elements   %.1f\n",
                double(mallocDelta - (long long)counts.textBytes) / double(counts.elements));
    std::printf("  input UTF-8 bytes per element                      %.1f\n",
                double(bytes.size()) / double(counts.elements));
}

}  // namespace

int ParseCommand(int argc, char** argv) {
    double sizeMB = 100;
    int repeat = 5;
    std::string file, writePath, once;
    bool textDoc = false, plain = false;
    ParseOptions(argc, argv, 1,
                 {Number("--size", sizeMB), Number("--repeat", repeat), Flag("--text", textDoc),
                  Flag("--plain", plain), Text("--file", file), Text("--write", writePath), Text("--once", once)});
    if (plain)
        OzmUtf8DecodeLevel(kOzmUtf8Plain);
    if (!once.empty())
        CountNew(false);

    // The input, as UTF-8 bytes in memory.
    std::string bytes;
    GenStats gen;
    const bool generated = file.empty();
    if (!generated && !ReadFile(file, bytes))
        Fail(file + ": cannot read");
    if (generated)
        bytes = textDoc ? GenerateTextDocument(size_t(sizeMB * 1e6), kDefaultSeed, &gen)
                        : GenerateDocument(size_t(sizeMB * 1e6), kDefaultSeed, &gen);
    if (!writePath.empty() && !WriteFile(writePath, bytes))
        Fail(writePath + ": cannot write");
    if (!once.empty())
        return RunOnce(once, bytes);

    const size_t n = bytes.size();
    std::printf("ozmbench parse\n");
    if (generated)
        std::printf("input: generated%s, seed 0x%llx, %zu bytes of UTF-8 (requested %.3f MB)\n",
                    textDoc ? " text-heavy" : "", (unsigned long long)kDefaultSeed, n, sizeMB);
    else
        std::printf("input: %s, %zu bytes of UTF-8\n", file.c_str(), n);
    if (generated && !textDoc)
        std::printf("  generator: %zu elements (%zu groups, %zu records, %zu record children), %zu attributes,\n"
                    "             %zu comments, %zu characters beyond U+FFFF, depth %d\n",
                    gen.elements, gen.groups, gen.records, gen.fields, gen.attributes, gen.comments, gen.emoji,
                    gen.maxDepth);
    else if (generated)
        std::printf("  generator: %zu elements, %zu attributes, %zu characters beyond U+FFFF, depth %d\n",
                    gen.elements, gen.attributes, gen.emoji, gen.maxDepth);
    const int level = OzmUtf8DecodeLevel();
    std::printf("UTF-8 decoder: %s level\n",
                level == kOzmUtf8Avx512 ? "AVX-512" : level == kOzmUtf8Avx2 ? "AVX2" : "plain");
    std::printf("repeats: %d (best and median; MB = 1e6 bytes of UTF-8 input)\n\n", repeat);

    // Correctness first: one parse, checked and counted.
    UCString text = Decode(bytes);
    TreeCounts counts;
    size_t slabs = 0;
    {
        XmlDocument doc;
        CheckParse(doc, doc.ParseString(text, false, false));
        counts = WalkTree(doc.RootElement());
        slabs = CountSlabs(doc);
    }
    if (generated && counts.elements != gen.elements)
        Fail("the tree has " + std::to_string(counts.elements) + " elements, the generator wrote " +
             std::to_string(gen.elements));

    std::printf("Throughput\n");
    // Each run works on a new string and a new document, made and freed
    // outside the time; check also looks at the run before.
    const size_t units = text.size();
    UCString t;
    std::unique_ptr<XmlDocument> doc;
    BATCHERR result = errNone;
    auto check = [&] {
        if (doc)
            CheckParse(*doc, result);
        if (!t.empty() && t.size() != units)
            Fail("decoding gave " + std::to_string(units) + " units, then " + std::to_string(t.size()));
        UCString().swap(t);
        doc.reset();
    };
    auto fresh = [&] {
        check();
        doc = std::make_unique<XmlDocument>();
    };
    // Decoding alone.
    const Timing decodeT = Repeat(repeat, [&] { Decode(bytes, t); }, check);
    check();
    PrintRate("decode UTF-8", decodeT, n);
    // Parsing alone.
    const Timing parseT = Repeat(repeat, [&] { result = doc->ParseString(text, false, false); }, fresh);
    check();
    PrintRate("ParseString", parseT, n);
    UCString().swap(text);
    // Both, as a program reading a UTF-8 document would do them.
    const Timing bothT = Repeat(repeat, [&] {
        Decode(bytes, t);
        result = doc->ParseString(t, false, false);
    }, fresh);
    check();
    PrintRate("decode + ParseString", bothT, n);
    // The bytes parsed as they are, in a fresh document and in a re-used one.
    const Timing bytesT =
        Repeat(repeat, [&] { result = doc->ParseBytes(bytes.data(), bytes.size(), false, false); }, fresh);
    check();
    PrintRate("ParseBytes", bytesT, n);
    doc = std::make_unique<XmlDocument>();
    const Timing reusedT = Repeat(repeat, [&] { result = doc->ParseBytes(bytes.data(), bytes.size(), false, false); },
                                  [&] { CheckParse(*doc, result); });
    check();
    PrintRate("ParseBytes, re-used", reusedT, n);
    doc = std::make_unique<XmlDocument>();
    // The same document read from a file: ParseFile decodes as it goes.
    {
        TempDir dir;
        const std::string path = dir.File("input.xml");
        if (!WriteFile(path, bytes))
            Fail("cannot write the temporary file " + path);
        const UCString widePath = Decode(path);
        const Timing fileT = Repeat(repeat, [&] { result = doc->ParseFile(widePath.c_str(), false, false); }, fresh);
        check();
        PrintRate("ParseFile", fileT, n);
        std::printf("  ParseFile / (decode + ParseString), best runs: %.3f\n",
                    fileT.Best() / (decodeT.Best() + parseT.Best()));
    }

    std::printf("\nTree\n");
    std::printf("  elements               %zu (depth %zu), attributes %zu\n", counts.elements, counts.maxDepth,
                counts.attributes);
    std::printf("  UTF-16 units of input  %zu\n", units);
    std::printf("  slabs                  %zu of %d nodes, sizeof(XmlElementBlock) = %zu, sizeof(XmlElement) = %zu\n",
                slabs, XmlElementBlock::Capacity, sizeof(XmlElementBlock), sizeof(XmlElement));
    PrintMemory(bytes, counts, slabs);
    return 0;
}

int ReuseCommand(int argc, char** argv) {
    int count = 200000;
    ParseOptions(argc, argv, 1, {Number("--count", count)});
    XmlDocument doc;
    UCString text;
    Clock::time_point start = Clock::now();
    const int quarter = std::max(1, count / 4);
    for (int i = 0; i < count; ++i) {
        text = u"<!DOCTYPE r [<!ELEMENT r ANY><!ATTLIST r a CDATA #IMPLIED>]><r a='1'>";
        for (int k = 0; k < 5; ++k) {
            const std::string name = "n" + std::to_string(i) + "_" + std::to_string(k);
            const UCString wide(name.begin(), name.end());
            text += u"<" + wide + u" a='x'>t</" + wide + u">";
        }
        text += u"</r>";
        CheckParse(doc, doc.ParseString(text));
        if ((i + 1) % quarter == 0) {
            const Clock::time_point now = Clock::now();
            std::printf("parses %6d to %6d: %.4f ms a parse\n", i + 2 - quarter, i + 1,
                        Seconds(start, now) * 1e3 / quarter);
            start = now;
        }
    }
    return 0;
}

}  // namespace ozmbench
