// xmlchildshapes.h - the working data of DTD generation: the child lists of
// element instances folded into runs of equal neighbours, and the distinct
// shapes that the instances of one element name have shown.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "xmldtd.h"

// One stretch of equal neighbours among the children of an element. Two runs
// are equal when they have the same definition; the counts don't take part.
struct ChildRun {
    XmlElementDef* m_def;  // the definition of the children's name
    int m_maxCount;        // largest number of immediate repeats seen here
    int m_minCount;        // smallest such number
};

// The child list of one element instance, repeats folded into runs: the
// place of each run's definition in the walk's list of definitions, and its
// count (within one instance a run's largest and smallest count are equal).
struct ChildSequence {
    std::vector<uint32_t> m_places;
    std::vector<int> m_counts;
    bool m_repeated = false;  // some count is above 1
    uint32_t m_hash = 0;      // of the places, set by ChildSequenceList::Prepare
    size_t Size() const { return m_places.size(); }
    void Clear() {
        m_places.clear();
        m_counts.clear();
        m_repeated = false;
    }
    // Appends a child whose definition has the given place.
    void Add(uint32_t place) {
        if (!m_places.empty() && m_places.back() == place) {
            ++m_counts.back();
            m_repeated = true;
        } else {
            m_places.push_back(place);
            m_counts.push_back(1);
        }
    }
};

// The distinct shapes of one element name in order of first appearance, with
// the counts of all instances of a shape merged into it. A large document can
// show a new shape in nearly every instance, so shapes are stored compactly:
// the runs of all shapes lie back to back as one 32-bit word each, the place
// of the definition in the walk's list of definitions; the few runs whose
// counts are not both 1 keep them in a side table. A hash table leads from a
// shape to its place, so that recording an instance costs one probe however
// many shapes are known.
class ChildSequenceList {
public:
    // defs: the definitions of the walk by place; it outlives the list.
    explicit ChildSequenceList(const std::vector<XmlElementDef*>& defs) : m_defs(defs) {}

    // Hashes seq for Record and asks for the slot it will probe first.
    void Prepare(ChildSequence& seq) const;
    // Merges the instance seq, prepared by Prepare, into the shape equal to
    // it (the larger maximum and the smaller minimum at each place), or
    // appends it as a new shape.
    void Record(const ChildSequence& seq);

    size_t ShapeCount() const { return m_begins.size() - 1; }
    // The number of distinct places in all shapes.
    size_t PlaceCount() const { return m_placeCount; }
    // Shape i is the runs [Begin(i), Begin(i + 1)).
    size_t Begin(size_t shape) const { return m_begins[shape]; }
    // The place of the definition of run k.
    uint32_t Place(size_t k) const {
        uint32_t w = m_runs[k];
        return w & Counted ? m_counted[w & ~Counted].m_place : w;
    }
    ChildRun Run(size_t k) const {
        uint32_t w = m_runs[k];
        if (w & Counted) {
            const CountedRun& c = m_counted[w & ~Counted];
            return ChildRun{m_defs[c.m_place], c.m_maxCount, c.m_minCount};
        }
        return ChildRun{m_defs[w], 1, 1};
    }

private:
    static constexpr uint32_t Counted = 0x80000000u;
    struct CountedRun {
        uint32_t m_place;
        int m_maxCount;
        int m_minCount;
    };

    bool Same(size_t shape, const uint32_t* places, size_t n) const;
    void Merge(size_t k, int count);
    void Grow();

    const std::vector<XmlElementDef*>& m_defs;
    std::vector<uint32_t> m_runs;
    std::vector<CountedRun> m_counted;
    std::vector<uint32_t> m_begins{0};
    // Open addressing over a power-of-two table: the hash of a shape in the
    // high half, its index + 1 in the low half; 0 free. With the hash at
    // hand a probe reads the table only, which outgrows the caches.
    std::vector<uint64_t> m_slots;
    // Places that some shape holds: a mark by place, and their number.
    std::vector<unsigned char> m_placeSeen;
    size_t m_placeCount = 0;
};
