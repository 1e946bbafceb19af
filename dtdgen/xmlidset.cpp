// xmlidset.cpp - WordSet and IdSet, the sets of generation's working data.
#include "dtdgen/xmlidset.h"

#include <algorithm>

// ---- WordSet

size_t WordSet::SlotOf(uint64_t key) const {
    uint64_t h = key * 0x9E3779B97F4A7C15ull;
    h ^= h >> 29;
    return size_t(h) & (m_slots.size() - 1);
}

bool WordSet::Contains(uint64_t key) const {
    if (m_count == 0)
        return false;
    const size_t mask = m_slots.size() - 1;
    for (size_t slot = SlotOf(key); m_slots[slot]; slot = (slot + 1) & mask)
        if (m_slots[slot] == key + 1)
            return true;
    return false;
}

bool WordSet::Insert(uint64_t key) {
    if ((m_count + 1) * 2 > m_slots.size())
        Grow();
    const size_t mask = m_slots.size() - 1;
    size_t slot = SlotOf(key);
    for (; m_slots[slot]; slot = (slot + 1) & mask)
        if (m_slots[slot] == key + 1)
            return false;
    m_slots[slot] = key + 1;
    ++m_count;
    return true;
}

// Doubles the table and enters every member again.
void WordSet::Grow() {
    WorkArray<uint64_t> old;
    old.Assign(m_slots.empty() ? 8 : 2 * m_slots.size(), 0);
    old.swap(m_slots);
    const size_t mask = m_slots.size() - 1;
    for (size_t i = 0; i < old.size(); ++i) {
        if (!old[i])
            continue;
        size_t slot = SlotOf(old[i] - 1);
        while (m_slots[slot])
            slot = (slot + 1) & mask;
        m_slots[slot] = old[i];
    }
}

// ---- IdSet

bool IdSet::InsertFar(uint32_t id) {
    // A map that reaches id, and has at least twice the bytes it had, so
    // that members move over from the far set only a few times.
    const size_t bytes = std::max(size_t(id) + 1, 2 * m_marks.size());
    if (bytes > SpareBytes + BytesPerMember * m_count) {
        if (!m_far.Insert(id))
            return false;
        ++m_count;
        return true;
    }
    const size_t had = m_marks.size();
    std::fill_n(m_marks.Extend(bytes - had), bytes - had, 0);
    if (m_far.Size() != 0) {
        WordSet far;
        m_far.ForEach([&](uint64_t member) {
            if (member < bytes)
                m_marks[member] = 1;
            else
                far.Insert(member);
        });
        far.swap(m_far);
    }
    return Insert(id);
}
