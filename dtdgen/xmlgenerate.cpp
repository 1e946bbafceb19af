// xmlgenerate.cpp - derives a document type definition from the element
// tree: one walk records per element name the kind of content, the longest
// text, the attribute values and the distinct shapes of the child lists; a
// second pass over the definitions turns shapes into content models and
// gives each element with text a fixed "length" attribute.
//
// The walk does a whole sibling chain first and goes down afterwards, which
// fixes the order of the definitions. It keeps its own stack of chains whose
// children are still to be visited, so a tree of any depth is safe.
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "dtdgen/xmlchildshapes.h"
#include "xmldocument.h"

// ---- ChildSequenceList ----

uint64_t ChildSequenceList::Hash(const ChildSequence& seq) {
    uint64_t h = seq.size() * 0x9E3779B97F4A7C15ull;
    for (const ChildRun& run : seq) {
        h ^= uint64_t(reinterpret_cast<uintptr_t>(run.m_def));
        h *= 0xBF58476D1CE4E5B9ull;
        h ^= h >> 31;
    }
    return h ^ (h >> 29);
}

bool ChildSequenceList::Same(const Shape& shape, const ChildSequence& seq) const {
    if (shape.Size() != seq.size())
        return false;
    const ChildRun* runs = m_runs.data() + shape.m_begin;
    for (size_t i = 0; i < seq.size(); ++i)
        if (runs[i].m_def != seq[i].m_def)
            return false;
    return true;
}

// Doubles the table and enters every shape again.
void ChildSequenceList::Grow() {
    size_t size = m_slots.empty() ? 16 : m_slots.size() * 2;
    m_slots.assign(size, 0);
    for (size_t i = 0; i < m_shapes.size(); ++i) {
        size_t slot = size_t(m_hashes[i]) & (size - 1);
        while (m_slots[slot] != 0)
            slot = (slot + 1) & (size - 1);
        m_slots[slot] = uint32_t(i + 1);
    }
}

void ChildSequenceList::Record(const ChildSequence& seq) {
    uint64_t hash = Hash(seq);
    if (m_slots.empty())
        Grow();
    size_t mask = m_slots.size() - 1;
    size_t slot = size_t(hash) & mask;
    // Shapes in the list are distinct, so the one equal shape found here is
    // the first from the front that a walk of the list would find.
    for (; m_slots[slot] != 0; slot = (slot + 1) & mask) {
        size_t index = m_slots[slot] - 1;
        if (m_hashes[index] != hash || !Same(m_shapes[index], seq))
            continue;
        ChildRun* runs = m_runs.data() + m_shapes[index].m_begin;
        for (size_t i = 0; i < seq.size(); ++i) {
            if (seq[i].m_maxCount > runs[i].m_maxCount)
                runs[i].m_maxCount = seq[i].m_maxCount;
            if (seq[i].m_minCount < runs[i].m_minCount)
                runs[i].m_minCount = seq[i].m_minCount;
        }
        return;
    }
    Shape shape{m_runs.size(), m_runs.size() + seq.size()};
    m_runs.insert(m_runs.end(), seq.begin(), seq.end());
    m_shapes.push_back(shape);
    m_hashes.push_back(hash);
    m_slots[slot] = uint32_t(m_shapes.size());
    if (m_shapes.size() * 2 > m_slots.size())
        Grow();
}

// ---- The walk ----

// What one walk keeps beside the definitions.
struct XmlDocument::GenWalk {
    // Every definition the walk made, in the order of the definition list.
    std::vector<XmlElementDef*> defs;
    // Definition and attribute list by name id, for nodes of this document;
    // null until first looked up.
    std::vector<XmlElementDef*> defById;
    std::vector<XmlAttrList*> listById;
    // Chains whose phase two is under way: the next node to look at.
    std::vector<const XmlElement*> pending;
    // The child sequence of the instance at hand.
    ChildSequence sequence;

    explicit GenWalk(size_t names) : defById(names + 1, nullptr), listById(names + 1, nullptr) {}
    GenWalk(const GenWalk&) = delete;
    GenWalk& operator=(const GenWalk&) = delete;
    // Frees whatever shape lists are still hanging on the definitions.
    ~GenWalk() {
        for (XmlElementDef* def : defs)
            delete static_cast<ChildSequenceList*>(def->InfoPointer(nullptr));
    }
};

namespace {

inline ChildSequenceList* ShapesOf(const XmlElementDef* def) {
    return static_cast<ChildSequenceList*>(def->InfoPointer());
}

// Whether data holds a unit that is not white space.
inline bool HasText(const UCChar* data, size_t length) {
    for (size_t i = 0; i < length; ++i)
        if (!OzmGlob::IsUCSpace(data[i]))
            return true;
    return false;
}

}  // namespace

bool XmlDocument::GenerateDTD() {
    m_dtd.Clear();
    if (!m_rootElement)
        return true;
    m_dtd.DocType(UCString(m_rootElement->Name()));
    GenWalk walk(m_names.size());
    bool result = BuildDTDElement(m_rootElement, walk);

    UCChar number[24];
    for (XmlElementDef* def : walk.defs) {
        switch (def->Type()) {
        case elemChildren:
            if (ShapesOf(def)) {
                BuildCP(def);
            } else {
                // No shapes were recorded: nothing is known of the children
                // but that there are some, which ANY admits.
                def->Type(elemAny);
                result = false;
            }
            break;
        case elemMixed: {
            XmlAttrList* list = m_dtd.FindAttrList(def->Name());
            if (!list)
                list = m_dtd.AddAttrList(def->Name());
            if (!list->FindAttDef(u"length")) {
                XmlAttDef* length = list->AddAttDef(u"length");
                length->Type(attCdata);
                length->DefType(defFixed);
                wsfmt(number, u"%d", def->MaxLen());
                length->DefVal(number);
            }
            break;
        }
        default:
            delete ShapesOf(def);
            def->InfoPointer(nullptr);
            break;
        }
    }
    return result;
}

bool XmlDocument::BuildDTDElement(const XmlElement* first, GenWalk& walk) {
    // The definition of a node's name, made when it is first met: type EMPTY
    // and an empty shape list. Nodes of this document are looked up by name
    // id once per id; any other node by its text.
    auto defOf = [&](const XmlElement* e) -> XmlElementDef* {
        bool own = e->m_block && e->m_block->m_document == this && size_t(e->m_nameId) < walk.defById.size();
        if (own && walk.defById[size_t(e->m_nameId)])
            return walk.defById[size_t(e->m_nameId)];
        const UCChar* name = e->Name();
        XmlElementDef* def = m_dtd.FindElement(name);
        if (!def) {
            def = m_dtd.AddElement(name);
            def->Type(elemEmpty);
            ChildSequenceList* shapes = nullptr;
            if (m_shapeListsLeft != 0) {
                if (m_shapeListsLeft > 0)
                    --m_shapeListsLeft;
                shapes = new (std::nothrow) ChildSequenceList;
            }
            def->InfoPointer(shapes);
            walk.defs.push_back(def);
        }
        if (own)
            walk.defById[size_t(e->m_nameId)] = def;
        return def;
    };
    auto listOf = [&](const XmlElement* e, const XmlElementDef* def) -> XmlAttrList* {
        bool own = e->m_block && e->m_block->m_document == this && size_t(e->m_nameId) < walk.listById.size();
        if (own && walk.listById[size_t(e->m_nameId)])
            return walk.listById[size_t(e->m_nameId)];
        XmlAttrList* list = m_dtd.FindAttrList(def->Name());
        if (!list)
            list = m_dtd.AddAttrList(def->Name());
        if (own)
            walk.listById[size_t(e->m_nameId)] = list;
        return list;
    };

    // Phase one over the chain from head.
    auto phaseOne = [&](const XmlElement* head) {
        for (const XmlElement* e = head; e; e = e->Next()) {
            XmlElementDef* def = defOf(e);
            def->MaxLen(int(e->m_data.size()));

            int type = def->Type();
            if (e->Child() && type == elemEmpty)
                type = elemChildren;
            if (type != elemMixed && HasText(e->m_data.data(), e->m_data.size())) {
                type = elemMixed;
                delete ShapesOf(def);
                def->InfoPointer(nullptr);
            }

            ChildSequence& seq = walk.sequence;
            seq.clear();
            if (type == elemMixed) {
                XmlContentPart& contents = def->Contents();
                for (const XmlElement* c = e->Child(); c; c = c->Next()) {
                    contents.CountMod(countStar);
                    const UCChar* name = c->Name();
                    if (!contents.Contains(name)) {
                        XmlContentPart part;
                        part.Name(name);
                        contents.AddCP(part, true);
                    }
                }
            } else if (type == elemChildren) {
                for (const XmlElement* c = e->Child(); c; c = c->Next()) {
                    XmlElementDef* cdef = defOf(c);
                    if (!seq.empty() && seq.back().m_def == cdef) {
                        ++seq.back().m_maxCount;
                        ++seq.back().m_minCount;
                    } else {
                        seq.push_back(ChildRun{cdef, 1, 1});
                    }
                }
            }
            if (ChildSequenceList* shapes = ShapesOf(def))
                shapes->Record(seq);
            def->Type(type);

            if (e->m_attributes.empty())
                continue;
            XmlAttrList* list = listOf(e, def);
            for (const XmlAttribute& a : e->m_attributes) {
                XmlAttDef* att = list->FindModifiableAttDef(a.Name());
                if (!att) {
                    att = list->AddAttDef(a.Name());
                    att->Type(attEnumerated);
                    att->DefType(defNone);
                }
                const UCChar* value = a.Value();
                if (att->Type() == attEnumerated && att->FindEnum(value) < 0) {
                    att->AddEnum(value);
                    if (att->EnumCount() > 10)
                        att->Type(attCdata);
                }
                att->MaxLen(int(std::char_traits<UCChar>::length(value)));
            }
        }
    };

    // Phase two: the first child of each node of a chain, in order, starts a
    // chain of its own, which is done whole (both phases and everything
    // below it) before the next node of the outer chain is looked at.
    phaseOne(first);
    walk.pending.push_back(first);
    while (!walk.pending.empty()) {
        const XmlElement* e = walk.pending.back();
        while (e && !e->Child())
            e = e->Next();
        if (!e) {
            walk.pending.pop_back();
            continue;
        }
        walk.pending.back() = e->Next();
        phaseOne(e->Child());
        walk.pending.push_back(e->Child());
    }
    return true;
}
