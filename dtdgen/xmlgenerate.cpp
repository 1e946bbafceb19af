// xmlgenerate.cpp - XmlDocument::GenerateDTD: derives a document type
// definition from element trees. One walk records per element name the kind
// of content, the longest text, the attribute values and the distinct shapes
// of the child lists; a second pass over the definitions turns shapes into
// content models and gives each element with text a fixed "length"
// attribute.
//
// The parts of generation, by file:
//   xmlgenerate.cpp          GenerateDTD: the run, its failure, the finished
//                            definitions
//   xmlgenwalk.h, .cpp       GenWalk: the state of the walk, keys, names,
//                            attribute keys
//   xmlgather.cpp            GenWalk::Gather: step one of the walk, the tree
//                            in document order into records
//   xmlbuilddtdelement.cpp   BuildDTDElement: step two, the records in the
//                            order of generation into definitions
//   xmlchildshapes.h, .cpp   ChildSequence, ChildSequenceList: the child
//                            shapes of one element name
//   xmlbuildcp.cpp           BuildCP: a content model from the shapes
//   xmlnamechoice.h, .cpp    AppendNameChoice: a choice group of many names
//   xmlidset.h, .cpp         WordSet, IdSet: sets of numbers
//   xmlgenmemory.h, .cpp     GenMemory, GenAllocator, WorkArray: the working
//                            memory, counted and made to fail by the tests
#include <exception>
#include <memory>

#include "dtdgen/xmlgenwalk.h"
#include "dtdgen/xmlnamechoice.h"

bool XmlDocument::GenerateDTD() {
    const XmlDocument* self = this;
    return GenerateFrom(&self, 1);
}

bool XmlDocument::GenerateDTD(const std::vector<const XmlDocument*>& documents) {
    return GenerateFrom(documents.data(), documents.size());
}

bool XmlDocument::GenerateFrom(const XmlDocument* const* documents, size_t count) {
    GenMemory own;
    GenMemory::Scope scope(m_genMemory ? *m_genMemory : own);
    try {
        m_dtd.Clear();
        // One walk over all the trees: the definitions and shape lists it
        // keeps gather what every document shows.
        GenWalk walk;
        bool named = false;
        for (size_t i = 0; i < count; ++i) {
            const XmlElement* root = documents[i] ? documents[i]->m_rootElement : nullptr;
            if (!root)
                continue;
            if (!named) {
                m_dtd.DocType(UCString(root->Name()));
                XmlRequired(m_dtd.DocType() == root->Name());
                named = true;
            }
            BuildDTDElement(root, walk);
        }
        FinishDefinitions(walk);
        return true;
    } catch (const std::exception&) {
        // Out of memory, or trees too large for the walk's 32-bit places:
        // the walk has freed its working data on the way out, shape lists
        // included, and what was made of the definition goes.
    }
    try {
        m_dtd.Clear();
    } catch (const std::exception&) {
    }
    return false;
}

void XmlDocument::FinishDefinitions(GenWalk& walk) {
    // The records and work lists of the walk are done with.
    walk.records.Release();
    walk.pendingNodes.Release();
    walk.pendingWords.Release();
    walk.open.Release();
    walk.chains.Release();
    walk.childChains.Release();

    // The measures taken on the way.
    for (size_t key = 0; key < walk.keyPlace.size(); ++key)
        if (walk.keyPlace[key])
            walk.places[walk.keyPlace[key] - 1].def->MaxLen(walk.keyMaxLen[key]);
    for (size_t i = 0; i < walk.attrKeys.size(); ++i)
        if (walk.attrKeys[i].def)
            walk.attrKeys[i].def->MaxLen(walk.attrKeys[i].maxLen);

    // The members of mixed content, gathered by place in order of arrival.
    const size_t placeCount = walk.places.size();
    {
        GenVector<uint32_t> start(placeCount + 1, 0);
        for (size_t i = 0; i < walk.memberOrder.size(); ++i)
            ++start[(walk.memberOrder[i] >> 32) + 1];
        for (size_t p = 0; p < placeCount; ++p)
            start[p + 1] += start[p];
        GenVector<const UCChar*> names(walk.memberOrder.size());
        GenVector<uint32_t> next(start.begin(), start.end() - 1);
        for (size_t i = 0; i < walk.memberOrder.size(); ++i) {
            uint64_t member = walk.memberOrder[i];
            names[next[member >> 32]++] = walk.nameText[uint32_t(member)];
        }
        for (size_t p = 0; p < placeCount; ++p) {
            const GenWalk::Place& place = walk.places[p];
            if (place.type != elemMixed)
                continue;
            XmlContentPart& contents = place.def->Contents();
            AppendNameChoice(contents, names.data() + start[p], start[p + 1] - start[p]);
            if (place.starred)
                contents.CountMod(countStar);
        }
    }
    walk.members.Release();
    walk.memberOrder.Release();

    // Content models and length attributes.
    UCChar number[24];
    for (size_t p = 0; p < placeCount; ++p) {
        GenWalk::Place& place = walk.places[p];
        XmlElementDef* def = place.def;
        if (place.type == elemChildren) {
            BuildCP(def, walk);
        } else if (place.type == elemMixed) {
            if (!place.list)
                place.list = XmlRequired(m_dtd.AddAttrList(def->Name()));
            if (!place.list->FindAttDef(u"length")) {
                XmlAttDef* length = XmlRequired(place.list->AddAttDef(u"length"));
                length->Type(attCdata);
                length->DefType(defFixed);
                wsfmt(number, u"%d", def->MaxLen());
                length->DefVal(number);
            }
        }
    }
}
