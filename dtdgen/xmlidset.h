// xmlidset.h - sets of numbers for the working data of generation, whose
// memory follows the number of members, whatever their values.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>

#include "dtdgen/xmlgenmemory.h"

// A set of 64-bit words (any but the largest): open addressing over a
// power-of-two table that is at most half full.
class WordSet {
public:
    // Adds key; true when it was not in the set.
    bool Insert(uint64_t key);
    bool Contains(uint64_t key) const;
    size_t Size() const { return m_count; }
    // Calls f with each member, in no particular order.
    template <class F>
    void ForEach(F&& f) const {
        for (size_t i = 0; i < m_slots.size(); ++i)
            if (m_slots[i])
                f(m_slots[i] - 1);
    }
    void swap(WordSet& other) noexcept {
        m_slots.swap(other.m_slots);
        std::swap(m_count, other.m_count);
    }
    // Empties the set and gives its memory back.
    void Release() {
        m_slots.Release();
        m_count = 0;
    }

private:
    size_t SlotOf(uint64_t key) const;
    void Grow();

    WorkArray<uint64_t> m_slots;  // key + 1; 0 is free
    size_t m_count = 0;
};

// A set of 32-bit numbers, mostly the places of definitions. The members
// below a limit are marked in a map of a byte by number, which is grown only
// as long as it takes no more than eight bytes per member (and a few more):
// a set of nearby numbers is looked up inline at the cost of a byte each.
// The members from the limit on, which a map of that size can't reach, are
// kept in a WordSet.
class IdSet {
public:
    // Adds id; true when it was not in the set.
    bool Insert(uint32_t id) {
        if (id < m_marks.size()) {
            if (m_marks[id])
                return false;
            m_marks[id] = 1;
            ++m_count;
            return true;
        }
        return InsertFar(id);
    }
    bool Contains(uint32_t id) const { return id < m_marks.size() ? m_marks[id] != 0 : m_far.Contains(id); }
    size_t Size() const { return m_count; }

private:
    // Bytes a map may have: a few, and eight per member.
    static constexpr size_t SpareBytes = 64;
    static constexpr size_t BytesPerMember = 8;

    bool InsertFar(uint32_t id);

    WorkArray<unsigned char> m_marks;
    WordSet m_far;  // the members from m_marks.size() on
    size_t m_count = 0;
};
