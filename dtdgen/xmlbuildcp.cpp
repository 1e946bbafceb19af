// xmlbuildcp.cpp - content-model inference: the recorded shapes of one
// element name become one model of the form
//     head names, then one group (m1 | m2 | ...)*, then tail names
// where the head is what all shapes agree on at their start, the tail what
// they agree on at their end, and the group holds every other name once.
#include <algorithm>
#include <memory>
#include <unordered_set>
#include <vector>

#include "dtdgen/xmlchildshapes.h"
#include "xmldocument.h"

namespace {

// Head and tail together take at most this many runs, whatever the length of
// the shortest shape; beyond it the rest goes to the middle group.
constexpr unsigned ShortestCap = 10000000;

// Merges the counts of run into into: the larger maximum, the smaller minimum.
inline void MergeCounts(ChildRun& into, const ChildRun& run) {
    if (run.m_maxCount > into.m_maxCount)
        into.m_maxCount = run.m_maxCount;
    if (run.m_minCount < into.m_minCount)
        into.m_minCount = run.m_minCount;
}

// A name of head or tail: "+" when any instance repeated it.
XmlContentPart NamePart(const ChildRun& run) {
    XmlContentPart part;
    part.Name(run.m_def->Name());
    part.CountMod(run.m_maxCount > 1 ? countPlus : countOne);
    return part;
}

}  // namespace

void XmlDocument::BuildCP(XmlElementDef* def) {
    std::unique_ptr<ChildSequenceList> list(static_cast<ChildSequenceList*>(def->InfoPointer(nullptr)));
    if (!list || list->ShapeCount() == 0)
        return;
    std::vector<ChildRun>& runs = list->Runs();
    // Each shape is consumed from both ends by narrowing its stretch.
    std::vector<ChildSequenceList::Shape>& seqs = list->Shapes();

    unsigned shortest = ShortestCap;
    for (const ChildSequenceList::Shape& s : seqs)
        if (s.Size() < shortest)
            shortest = unsigned(s.Size());

    // Common head. Every shape has at least `shortest` runs left while it is
    // not 0, so the first and last runs read here exist.
    std::vector<ChildRun> headRuns;
    while (shortest != 0) {
        const XmlElementDef* lead = runs[seqs[0].m_begin].m_def;
        auto differs = [&](const ChildSequenceList::Shape& s) { return runs[s.m_begin].m_def != lead; };
        if (std::any_of(seqs.begin() + 1, seqs.end(), differs))
            break;
        headRuns.push_back(runs[seqs[0].m_begin++]);
        for (size_t i = 1; i < seqs.size(); ++i)
            MergeCounts(headRuns.back(), runs[seqs[i].m_begin++]);
        --shortest;
    }

    // Common tail, gathered back to front.
    std::vector<ChildRun> tailRuns;
    while (shortest != 0) {
        const XmlElementDef* lead = runs[seqs[0].m_end - 1].m_def;
        auto differs = [&](const ChildSequenceList::Shape& s) { return runs[s.m_end - 1].m_def != lead; };
        if (std::any_of(seqs.begin() + 1, seqs.end(), differs))
            break;
        tailRuns.push_back(runs[--seqs[0].m_end]);
        for (size_t i = 1; i < seqs.size(); ++i)
            MergeCounts(tailRuns.back(), runs[--seqs[i].m_end]);
        --shortest;
    }
    std::reverse(tailRuns.begin(), tailRuns.end());

    // Middle: every name left, once, by shape and then by place; only the
    // first run of a name is kept and its counts don't matter.
    std::vector<const XmlElementDef*> middle;
    std::unordered_set<const XmlElementDef*> seen;
    for (const ChildSequenceList::Shape& s : seqs)
        for (size_t k = s.m_begin; k < s.m_end; ++k)
            if (seen.insert(runs[k].m_def).second)
                middle.push_back(runs[k].m_def);

    XmlContentPart result;
    for (const ChildRun& run : headRuns)
        result.AddCP(NamePart(run), false);
    if (!middle.empty()) {
        XmlContentPart group;
        for (const XmlElementDef* d : middle) {
            XmlContentPart part;
            part.Name(d->Name());
            group.AddCP(part, true);
        }
        group.CountMod(countStar);
        result.AddCP(group, false);
    }
    for (const ChildRun& run : tailRuns)
        result.AddCP(NamePart(run), false);
    def->Contents() = std::move(result);
}
