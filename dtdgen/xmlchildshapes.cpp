// xmlchildshapes.cpp - ChildSequenceList: the distinct child shapes of one
// element name, entered by a hash of their places.
#include "dtdgen/xmlchildshapes.h"

ChildSequenceList::ChildSequenceList(bool settled) {
    m_begins.reserve(4);
    m_begins.push_back(0);
    if (settled)
        Settle();
}

bool ChildSequenceList::Same(size_t shape, const uint32_t* places, size_t n) const {
    size_t begin = m_begins[shape];
    if (m_begins[shape + 1] - begin != n)
        return false;
    for (size_t i = 0; i < n; ++i)
        if (Place(begin + i) != places[i])
            return false;
    return true;
}

// Merges the counts of the instance seq into the equal shape.
void ChildSequenceList::MergeShape(size_t shape, const ChildSequence& seq) {
    for (size_t i = 0; i < seq.Size(); ++i)
        Merge(m_begins[shape] + i, seq.m_counts[i]);
}

// Merges the count of an instance's run into stored run k.
void ChildSequenceList::Merge(size_t k, int count) {
    uint32_t& w = m_runs[k];
    if (!(w & Counted)) {
        if (count == 1)
            return;
        m_counted.push_back(ChildRun{w, 1, 1});
        w = Counted | uint32_t(m_counted.size() - 1);
    }
    ChildRun& c = m_counted[w & ~Counted];
    if (count > c.m_maxCount)
        c.m_maxCount = count;
    if (count < c.m_minCount)
        c.m_minCount = count;
}

// Doubles the table and enters every shape again; a list of one shape gets
// its first table.
void ChildSequenceList::Grow() {
    WorkArray<uint64_t> old;
    old.Assign(m_slots.empty() ? 16 : m_slots.size() * 2, 0);
    old.swap(m_slots);
    size_t mask = m_slots.size() - 1;
    if (old.empty()) {
        m_slots[m_firstHash & mask] = uint64_t(m_firstHash) << 32 | 1;
        return;
    }
    // The slots are written all over a table that outgrows the caches: ask
    // for each some entries ahead.
    constexpr size_t Ahead = 16;
    for (size_t i = 0; i < old.size(); ++i) {
        if (i + Ahead < old.size())
            __builtin_prefetch(&m_slots[(old[i + Ahead] >> 32) & mask], 1);
        if (old[i] == 0)
            continue;
        size_t slot = (old[i] >> 32) & mask;
        while (m_slots[slot] != 0)
            slot = (slot + 1) & mask;
        m_slots[slot] = old[i];
    }
}

void ChildSequenceList::Prefetch(uint32_t hash) const {
    if (!m_slots.empty())
        __builtin_prefetch(&m_slots[hash & (m_slots.size() - 1)]);
}

void ChildSequenceList::Settle() {
    // The places known so far, the shape that gathers the names still to
    // come; the table is no longer needed.
    for (size_t k = 0; k < m_runs.size(); ++k)
        m_places.Insert(Place(k));
    m_settled = true;
    m_begins.push_back(uint32_t(m_runs.size()));
    m_slots.Release();
}

void ChildSequenceList::Record(const ChildSequence& seq) {
    size_t n = seq.Size();
    const uint32_t* places = seq.m_places.data();
    if (m_settled) {
        for (size_t i = 0; i < n; ++i)
            Gather(places[i]);
        return;
    }
    if (n == 0) {
        Settle();
        return;
    }
    uint32_t hash = seq.m_hash;
    if (ShapeCount() == 1 && m_slots.empty()) {
        if (Same(0, places, n)) {
            MergeShape(0, seq);
            return;
        }
        Grow();
    }
    size_t slot = 0;
    if (!m_slots.empty()) {
        size_t mask = m_slots.size() - 1;
        // Shapes in the list are distinct, so the one equal shape found
        // here is the first from the front that a walk of the list would
        // find.
        for (slot = hash & mask; m_slots[slot] != 0; slot = (slot + 1) & mask) {
            uint64_t w = m_slots[slot];
            size_t index = uint32_t(w) - 1;
            if (uint32_t(w >> 32) == hash && Same(index, places, n)) {
                MergeShape(index, seq);
                return;
            }
        }
    }
    uint32_t* runs = m_runs.Extend(n);
    for (size_t i = 0; i < n; ++i)
        runs[i] = places[i];
    if (seq.m_repeated) {
        for (size_t i = 0; i < n; ++i) {
            if (seq.m_counts[i] != 1) {
                m_counted.push_back(ChildRun{places[i], seq.m_counts[i], seq.m_counts[i]});
                runs[i] = Counted | uint32_t(m_counted.size() - 1);
            }
        }
    }
    m_begins.push_back(uint32_t(m_runs.size()));

    if (ShapeCount() == 1) {
        m_firstHash = hash;
        m_firstPlace = places[0];
        m_lastPlace = places[n - 1];
        return;
    }
    m_slots[slot] = uint64_t(hash) << 32 | uint32_t(ShapeCount());
    m_noHead |= places[0] != m_firstPlace;
    m_noTail |= places[n - 1] != m_lastPlace;
    if (m_noHead && m_noTail)
        Settle();
    else if (ShapeCount() * 2 > m_slots.size())
        Grow();
}
