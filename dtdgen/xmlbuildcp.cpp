// xmlbuildcp.cpp - content-model inference: the recorded shapes of one
// element name become one model of the form
//     head names, then one group (m1 | m2 | ...)*, then tail names
// where the head is what all shapes agree on at their start, the tail what
// they agree on at their end, and the group holds every other name once.
//
// A settled shape list (xmlchildshapes.h) has shapes that share neither
// their first nor their last run, or an instance without children, so it
// has neither head nor tail.
#include <algorithm>
#include <memory>
#include <utility>

#include "dtdgen/xmlgenwalk.h"
#include "dtdgen/xmlnamechoice.h"

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
XmlContentPart NamePart(const UCChar* name, const ChildRun& run) {
    XmlContentPart part;
    part.Name(name);
    XmlRequired(part.Type() == cpName);
    part.CountMod(run.m_maxCount > 1 ? countPlus : countOne);
    return part;
}

}  // namespace

void XmlDocument::BuildCP(XmlElementDef* def, const GenWalk& walk) {
    std::unique_ptr<ChildSequenceList> list(static_cast<ChildSequenceList*>(def->InfoPointer(nullptr)));
    if (!list || list->ShapeCount() == 0)
        return;
    auto nameOf = [&](const ChildRun& run) { return walk.places[run.m_place].def->Name(); };
    // Each shape is consumed from both ends by narrowing its stretch
    // [first, second) of the list's runs.
    GenVector<std::pair<size_t, size_t>> seqs(list->ShapeCount());
    unsigned shortest = list->Settled() ? 0 : ShortestCap;
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
        XmlRequired(result.AddCP(NamePart(nameOf(headRun), headRun), false));
        --shortest;
    }

    // Common tail, gathered back to front.
    GenVector<ChildRun> tailRuns;
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
    // Once every name of a settled list is in, the rest can add none.
    GenVector<const UCChar*> middle;
    IdSet seen;
    for (const std::pair<size_t, size_t>& s : seqs) {
        if (list->Settled() && middle.size() == list->PlaceCount())
            break;
        for (size_t k = s.first; k < s.second; ++k)
            if (seen.Insert(placeAt(k)))
                middle.push_back(nameOf(list->Run(k)));
    }

    if (!middle.empty()) {
        XmlContentPart group;
        AppendNameChoice(group, middle.data(), middle.size());
        group.CountMod(countStar);
        XmlRequired(result.AddCP(group, false));
    }
    for (const ChildRun& run : tailRuns)
        XmlRequired(result.AddCP(NamePart(nameOf(run), run), false));
    def->Contents() = std::move(result);
}
