// xmlchildshapes.h - the working data of DTD generation: the child lists of
// element instances folded into runs of equal neighbours, and the distinct
// shapes that the instances of one element name have shown.
//
// Definitions are known here by their places: the order in which the walk
// made them (XmlDocument::GenWalk holds the definitions by place).
#pragma once

#include <cstddef>
#include <cstdint>

#include "dtdgen/xmlgenmemory.h"
#include "dtdgen/xmlidset.h"

// One stretch of equal neighbours among the children of an element. Two runs
// are equal when they have the same definition; the counts don't take part.
struct ChildRun {
    uint32_t m_place;  // of the definition of the children's name
    int m_maxCount;    // largest number of immediate repeats seen here
    int m_minCount;    // smallest such number
};

// The child list of one element instance, repeats folded into runs: the
// place of each run's definition in the walk's list of definitions, and its
// count (within one instance a run's largest and smallest count are equal).
struct ChildSequence {
    WorkArray<uint32_t> m_places;
    WorkArray<int> m_counts;
    bool m_repeated = false;  // some count is above 1
    uint32_t m_hash = Hash(0, 0);  // of the places
    size_t Size() const { return m_places.size(); }
    void Clear() {
        m_places.clear();
        m_counts.clear();
        m_repeated = false;
        m_hash = Hash(0, 0);
    }
    // The runs of the children whose definitions have the n places that
    // placeOf(i) gives for i = 0 .. n - 1, in place of what was there.
    template <class PlaceOf>
    void Fold(size_t n, PlaceOf&& placeOf) {
        Clear();
        uint32_t* places = m_places.Extend(n);
        int* counts = m_counts.Extend(n);
        size_t runs = 0;
        uint64_t h = 0;
        for (size_t i = 0; i < n; ++i) {
            uint32_t place = placeOf(i);
            if (runs && places[runs - 1] == place) {
                ++counts[runs - 1];
                m_repeated = true;
            } else {
                places[runs] = place;
                counts[runs++] = 1;
                h = (h ^ place) * 0x9E3779B97F4A7C15ull;
            }
        }
        m_places.shrink(runs);
        m_counts.shrink(runs);
        m_hash = Hash(h, runs);
    }

private:
    // The hash of runs places folded into h. The table of shapes is
    // indexed by the low bits, which the products fill only from the low
    // bits of the places: all bits are mixed down.
    static uint32_t Hash(uint64_t h, size_t runs) {
        h = (h ^ runs) * 0xFF51AFD7ED558CCDull;
        h ^= h >> 33;
        h *= 0xC4CEB9FE1A85EC53ull;
        h ^= h >> 33;
        return uint32_t(h);
    }
};

// The distinct shapes of one element name in order of first appearance, with
// the counts of all instances of a shape merged into it. A large document can
// show a new shape in nearly every instance, so shapes are stored compactly:
// the runs of all shapes lie back to back as one 32-bit word each, the place
// of the definition; the few runs whose counts are not both 1 keep them in a
// side table. A hash table leads from a shape to its place, so that
// recording an instance costs one probe however many shapes are known; it
// is made for the second shape, since many names show only one.
//
// The content model keeps a common head or tail only while every shape
// starts, or ends, with the run the first shape starts or ends with. Once
// shapes that start and end otherwise are known, or an instance without
// children, every name goes to the middle group, in order of first
// appearance, and counts no longer matter: the list is then settled, and
// keeps no further shape but one more at its end, which gathers the names
// that no shape held before, as they come. The content model comes out the
// same. An instance without children is not kept as a shape: it holds no
// name, and all it tells is that the list is settled.
class ChildSequenceList {
public:
    // settled: instances without children came before the first one with.
    explicit ChildSequenceList(bool settled);
    ChildSequenceList(const ChildSequenceList&) = delete;
    ChildSequenceList& operator=(const ChildSequenceList&) = delete;
    // Lists are working data of generation.
    static void* operator new(size_t size) { return GenMemory::Allocate(size); }
    static void operator delete(void* p, size_t size) noexcept { GenMemory::Free(p, size); }

    // Asks for the slot that Record will probe first for a sequence with
    // this hash.
    void Prefetch(uint32_t hash) const;
    // Merges the instance seq, which has children, into the shape equal to
    // it (the larger maximum and the smaller minimum at each place), or
    // appends it as a new shape.
    void Record(const ChildSequence& seq);
    // An instance without children.
    void RecordEmpty() {
        if (!m_settled)
            Settle();
    }
    // Whether the list is settled: it then needs the places of an
    // instance's children alone, one by one, given to Gather.
    bool Settled() const { return m_settled; }
    void Gather(uint32_t place) {
        if (m_places.Insert(place)) {
            m_runs.push_back(place);
            m_begins.back() = uint32_t(m_runs.size());
        }
    }

    size_t ShapeCount() const { return m_begins.size() - 1; }
    // The number of distinct places in all shapes of a settled list.
    size_t PlaceCount() const { return m_places.Size(); }
    // Shape i is the runs [Begin(i), Begin(i + 1)).
    size_t Begin(size_t shape) const { return m_begins[shape]; }
    // The place of the definition of run k.
    uint32_t Place(size_t k) const {
        uint32_t w = m_runs[k];
        return w & Counted ? m_counted[w & ~Counted].m_place : w;
    }
    ChildRun Run(size_t k) const {
        uint32_t w = m_runs[k];
        return w & Counted ? m_counted[w & ~Counted] : ChildRun{w, 1, 1};
    }

private:
    static constexpr uint32_t Counted = 0x80000000u;

    bool Same(size_t shape, const uint32_t* places, size_t n) const;
    void MergeShape(size_t shape, const ChildSequence& seq);
    void Merge(size_t k, int count);
    void Grow();
    // Stops keeping shapes: from here on the last shape gathers new names.
    void Settle();

    WorkArray<uint32_t> m_runs;
    WorkArray<ChildRun> m_counted;
    WorkArray<uint32_t> m_begins;
    // Open addressing over a power-of-two table: the hash of a shape in the
    // high half, its index + 1 in the low half; 0 free. With the hash at
    // hand a probe reads the table only, which outgrows the caches.
    WorkArray<uint64_t> m_slots;
    // The places that some shape holds, once the list is settled.
    IdSet m_places;
    // The hash of the first shape, its first and last place, and whether a
    // shape that differs there was seen.
    uint32_t m_firstHash = 0;
    uint32_t m_firstPlace = 0;
    uint32_t m_lastPlace = 0;
    bool m_noHead = false;
    bool m_noTail = false;
    bool m_settled = false;
};
