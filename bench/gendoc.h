// gendoc.h - deterministic generators of the benchmarks' inputs: a large,
// data-heavy XML document, a text-heavy one, many small ones, the data-heavy
// one behind an internal subset, and definitions in modules.
//
// The output depends only on the requested size and the seed: the random
// numbers come from a fixed 64-bit generator (splitmix64) and every choice is
// made with plain integer arithmetic, so the same bytes come out on every
// machine and standard library.
//
// Shape of the document: a root element holding groups, groups holding
// records and further groups (elements nest up to 8 levels deep), every
// record with 2 to 4 attributes and 5 to 10 short text children, text mixing
// ASCII, Latin-1 letters, Greek, Cyrillic, CJK and now and then an emoji
// (4-byte UTF-8), pretty-printed with line breaks and two-space indentation,
// with an occasional comment. It uses no entity or character references, no
// CDATA sections, no processing instructions, no XML declaration and no
// document type declaration; attribute values are in double quotes, and
// neither text nor attribute values contain '<', '&', '>' or '"'.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace ozmbench {

constexpr uint64_t kDefaultSeed = 0x6F7A6D62656E6368ull;

// What the generator wrote, for cross-checking the parsed tree.
struct GenStats {
    size_t elements = 0;   // all elements, the root included
    size_t records = 0;
    size_t groups = 0;     // group elements, the root not included
    size_t fields = 0;     // children of records
    size_t attributes = 0;
    size_t comments = 0;
    size_t emoji = 0;      // characters outside the BMP
    int maxDepth = 0;      // deepest element, the root at depth 1
};

// Returns a well-formed UTF-8 document of about targetBytes bytes (within
// about a kilobyte; never less than one group holding one record).
std::string GenerateDocument(size_t targetBytes, uint64_t seed = kDefaultSeed, GenStats* stats = nullptr);

// A text-heavy document of about targetBytes: a root "library" of books, each
// a title and chapters of a heading and long paragraphs (300 to 4,000 bytes
// of the same multilingual words, wrapped into lines of about 90 columns),
// with little markup: now and then an inline <em>, <b> or <ref id=".."/> in a
// paragraph, title or heading. Books, chapters and paragraphs below the root,
// the inline elements one level deeper; no references, CDATA sections or
// comments. stats counts elements, attributes and emoji, and the depth.
std::string GenerateTextDocument(size_t targetBytes, uint64_t seed = kDefaultSeed, GenStats* stats = nullptr);

// count small documents of the GenerateDocument shape, each of minBytes to
// maxBytes and with a seed of its own drawn from seed; stats, if given,
// receives the counts of each.
std::vector<std::string> GenerateSmallDocuments(size_t count, size_t minBytes, size_t maxBytes,
                                                uint64_t seed = kDefaultSeed, std::vector<GenStats>* stats = nullptr);

// The document of GenerateDocument behind an internal subset that declares
// all its elements and attributes. With references set, the subset also
// declares entities and the content uses them (a name and a Latin-1 letter
// become references). stats, if given, receives the counts of the body.
std::string GenerateDocumentWithDtd(size_t targetBytes, bool references, GenStats* stats = nullptr);

// A definition of about targetBytes: `elements` element declarations in
// modules, each module behind a conditional section switched by a parameter
// entity, content models and attribute lists built from parameter entities,
// commentary as real definitions carry it. The root is "e0". Each string of
// the result is one module; the first is the driver, which declares the
// switches and includes the others as "modN.mod" through parameter entities.
std::vector<std::string> GenerateDtdModules(size_t targetBytes, int elements, int modules);

// The same definition as one internal subset of a document "<e0/>".
std::string GenerateDtdDocument(size_t targetBytes, int elements);

}  // namespace ozmbench
