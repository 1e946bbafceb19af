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

// The child list of one element instance, repeats folded into runs.
typedef std::vector<ChildRun> ChildSequence;

// The distinct shapes of one element name in order of first appearance, with
// the counts of all instances of a shape merged into it. The runs of all
// shapes lie back to back in one array, and a hash table leads from a shape
// to its place, so that recording an instance costs one probe however many
// shapes are known and allocates only when its shape is new.
class ChildSequenceList {
public:
    // A stretch [m_begin, m_end) of Runs().
    struct Shape {
        size_t m_begin;
        size_t m_end;
        size_t Size() const { return m_end - m_begin; }
    };

    // Merges seq into the shape equal to it (the larger maximum and the
    // smaller minimum at each place), or appends it as a new shape.
    void Record(const ChildSequence& seq);

    size_t ShapeCount() const { return m_shapes.size(); }
    std::vector<Shape>& Shapes() { return m_shapes; }
    std::vector<ChildRun>& Runs() { return m_runs; }

private:
    static uint64_t Hash(const ChildSequence& seq);
    bool Same(const Shape& shape, const ChildSequence& seq) const;
    void Grow();

    std::vector<ChildRun> m_runs;
    std::vector<Shape> m_shapes;
    std::vector<uint64_t> m_hashes;  // of each shape
    // Open addressing over a power-of-two table: shape index + 1, 0 free.
    std::vector<uint32_t> m_slots;
};
