// xmlbuildcp.cpp - content-model inference: the recorded shapes of one
// element name become one model of the form
//     head names, then one group (m1 | m2 | ...)*, then tail names
// where the head is what all shapes agree on at their start, the tail what
// they agree on at their end, and the group holds every other name once.
#include <algorithm>
#include <memory>
#include <utility>
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
    // Each shape is consumed from both ends by narrowing its stretch
    // [first, second) of the list's runs.
    std::vector<std::pair<size_t, size_t>> seqs(list->ShapeCount());
    unsigned shortest = ShortestCap;
    for (size_t i = 0; i < seqs.size(); ++i) {
        seqs[i] = {list->Begin(i), list->Begin(i + 1)};
        if (seqs[i].second - seqs[i].first < shortest)
            shortest = unsigned(seqs[i].second - seqs[i].first);
    }
    auto placeAt = [&](size_t k) { return list->Place(k); };

    // Common head. Every shape has at least `shortest` runs left while it is
    // not 0, so the first and last runs read here exist. A head run is final
    // once the counts of all shapes are merged into it, and goes straight
    // into the result.
    XmlContentPart result;
    while (shortest != 0) {
        uint32_t lead = placeAt(seqs[0].first);
        auto differs = [&](const std::pair<size_t, size_t>& s) { return placeAt(s.first) != lead; };
        if (std::any_of(seqs.begin() + 1, seqs.end(), differs))
            break;
        ChildRun headRun = list->Run(seqs[0].first++);
        for (size_t i = 1; i < seqs.size(); ++i)
            MergeCounts(headRun, list->Run(seqs[i].first++));
        result.AddCP(NamePart(headRun), false);
        --shortest;
    }

    // Common tail, gathered back to front.
    std::vector<ChildRun> tailRuns;
    while (shortest != 0) {
        uint32_t lead = placeAt(seqs[0].second - 1);
        auto differs = [&](const std::pair<size_t, size_t>& s) { return placeAt(s.second - 1) != lead; };
        if (std::any_of(seqs.begin() + 1, seqs.end(), differs))
            break;
        tailRuns.push_back(list->Run(--seqs[0].second));
        for (size_t i = 1; i < seqs.size(); ++i)
            MergeCounts(tailRuns.back(), list->Run(--seqs[i].second));
        --shortest;
    }
    std::reverse(tailRuns.begin(), tailRuns.end());

    // Middle: every name left, once, by shape and then by place; only the
    // first run of a name is kept and its counts don't matter.
    // Once every name of the list is in, the rest can add none.
    std::vector<const XmlElementDef*> middle;
    std::vector<unsigned char> seen;
    for (const std::pair<size_t, size_t>& s : seqs) {
        if (middle.size() == list->PlaceCount())
            break;
        for (size_t k = s.first; k < s.second; ++k) {
            uint32_t place = placeAt(k);
            if (place >= seen.size())
                seen.resize(place + 1);
            if (!seen[place]) {
                seen[place] = true;
                middle.push_back(list->Run(k).m_def);
            }
        }
    }

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
