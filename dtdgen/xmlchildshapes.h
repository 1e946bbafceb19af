// xmlchildshapes.h - the working data of DTD generation: the child lists of
// element instances folded into runs of equal neighbours, and the distinct
// shapes that the instances of one element name have shown.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <type_traits>
#include <vector>

#include "xmldtd.h"

// A growable array of plain values for the working data of generation:
// what is added is not cleared first, and adding stays inline. Growing
// reallocates, which for a large array remaps its pages rather than
// copying them.
template <class T>
class WorkArray {
public:
    WorkArray() = default;
    WorkArray(const WorkArray&) = delete;
    WorkArray& operator=(const WorkArray&) = delete;
    ~WorkArray() { std::free(m_data); }

    T* data() { return m_data; }
    const T* data() const { return m_data; }
    size_t size() const { return m_size; }
    bool empty() const { return m_size == 0; }
    T& operator[](size_t i) { return m_data[i]; }
    const T& operator[](size_t i) const { return m_data[i]; }
    T& back() { return m_data[m_size - 1]; }
    const T& back() const { return m_data[m_size - 1]; }
    void clear() { m_size = 0; }
    // Drops what lies from n on.
    void shrink(size_t n) { m_size = n; }
    void pop_back() { --m_size; }
    void push_back(const T& v) {
        if (m_size == m_capacity)
            reserve(2 * m_capacity + 16);
        m_data[m_size++] = v;
    }
    // Room for n more values, which count from now on.
    T* Extend(size_t n) {
        if (m_capacity - m_size < n)
            reserve(std::max(m_size + n, 2 * m_capacity));
        T* p = m_data + m_size;
        m_size += n;
        return p;
    }
    void reserve(size_t n) {
        if (n <= m_capacity)
            return;
        void* more = n <= SIZE_MAX / sizeof(T) ? std::realloc(m_data, n * sizeof(T)) : nullptr;
        if (!more)
            throw std::bad_alloc();
        m_data = static_cast<T*>(more);
        m_capacity = n;
    }

private:
    static_assert(std::is_trivially_copyable<T>::value, "plain values only");
    T* m_data = nullptr;
    size_t m_size = 0;
    size_t m_capacity = 0;
};

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
// of the definition in the walk's list of definitions; the few runs whose
// counts are not both 1 keep them in a side table. A hash table leads from a
// shape to its place, so that recording an instance costs one probe however
// many shapes are known.
//
// The content model keeps a common head or tail only while every shape
// starts, or ends, with the run the first shape starts or ends with. Once
// shapes that start and end otherwise are known (or an empty one), every
// name goes to the middle group, in order of first appearance, and counts
// no longer matter: the list is then settled, and keeps no further shape
// but one more at its end, which gathers the names that no shape held
// before, as they come. The content model comes out the same.
class ChildSequenceList {
public:
    // defs: the definitions of the walk by place; it outlives the list.
    explicit ChildSequenceList(const std::vector<XmlElementDef*>& defs) : m_defs(defs) { m_begins.push_back(0); }

    // Asks for the slot that Record will probe first for a sequence with
    // this hash.
    void Prefetch(uint32_t hash) const;
    // Merges the instance seq into the shape equal to
    // it (the larger maximum and the smaller minimum at each place), or
    // appends it as a new shape.
    void Record(const ChildSequence& seq);
    // Whether the list is settled: it then needs the places of an
    // instance's children alone, one by one, given to Gather.
    bool Settled() const { return m_settled; }
    void Gather(uint32_t place) {
        if (place >= m_placeSeen.size() || !m_placeSeen[place])
            GatherNew(place);
    }

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
    // Marks the places of n runs as seen.
    void Mark(const uint32_t* places, size_t n);
    // Adds a place not seen yet to the shape that gathers them.
    void GatherNew(uint32_t place);

    const std::vector<XmlElementDef*>& m_defs;
    WorkArray<uint32_t> m_runs;
    std::vector<CountedRun> m_counted;
    WorkArray<uint32_t> m_begins;
    // Open addressing over a power-of-two table: the hash of a shape in the
    // high half, its index + 1 in the low half; 0 free. With the hash at
    // hand a probe reads the table only, which outgrows the caches.
    std::vector<uint64_t> m_slots;
    // Places that some shape holds: a mark by place, and their number.
    std::vector<unsigned char> m_placeSeen;
    size_t m_placeCount = 0;
    // The first and last place of the first shape, and whether a shape that
    // differs there, or an empty one, was seen.
    uint32_t m_firstPlace = 0;
    uint32_t m_lastPlace = 0;
    bool m_noHead = false;
    bool m_noTail = false;
    bool m_settled = false;
};
