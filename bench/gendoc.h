// gendoc.h - deterministic generator of a large, data-heavy XML document for
// the benchmarks.
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

}  // namespace ozmbench
