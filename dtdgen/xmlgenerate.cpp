// xmlgenerate.cpp - derives a document type definition from the element
// tree: one walk records per element name the kind of content, the longest
// text, the attribute values and the distinct shapes of the child lists; a
// second pass over the definitions turns shapes into content models and
// gives each element with text a fixed "length" attribute.
//
// The walk does a whole sibling chain first and goes down afterwards, which
// fixes the order of the definitions. It keeps its own stack of chains whose
// children are still to be visited, so a tree of any depth is safe. The
// order is not the one in which a parsed tree lies in memory, so the walk
// asks ahead for what it reads of the nodes it is about to reach.
#include <emmintrin.h>

#include <cstdint>
#include <cstring>
#include <new>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "dtdgen/xmlchildshapes.h"
#include "xmldocument.h"

// ---- ChildSequenceList ----

namespace {

uint32_t HashPlaces(const uint32_t* places, size_t n) {
    uint64_t h = n;
    for (size_t i = 0; i < n; ++i)
        h = (h ^ places[i]) * 0x9E3779B97F4A7C15ull;
    // The table is indexed by the low bits, which the products above fill
    // only from the low bits of the places: mix all bits down.
    h ^= h >> 33;
    h *= 0xFF51AFD7ED558CCDull;
    h ^= h >> 33;
    return uint32_t(h);
}

// Whether the n units at a and b are the same, four at a time.
inline bool SameUnits(const UCChar* a, const UCChar* b, size_t n) {
    size_t i = 0;
    for (; i + 4 <= n; i += 4) {
        uint64_t x, y;
        std::memcpy(&x, a + i, sizeof x);
        std::memcpy(&y, b + i, sizeof y);
        if (x != y)
            return false;
    }
    for (; i < n; ++i)
        if (a[i] != b[i])
            return false;
    return true;
}

}  // namespace

bool ChildSequenceList::Same(size_t shape, const uint32_t* places, size_t n) const {
    size_t begin = m_begins[shape];
    if (m_begins[shape + 1] - begin != n)
        return false;
    for (size_t i = 0; i < n; ++i)
        if (Place(begin + i) != places[i])
            return false;
    return true;
}

// Merges the count of an instance's run into stored run k.
void ChildSequenceList::Merge(size_t k, int count) {
    uint32_t& w = m_runs[k];
    if (!(w & Counted)) {
        if (count == 1)
            return;
        m_counted.push_back(CountedRun{w, 1, 1});
        w = Counted | uint32_t(m_counted.size() - 1);
    }
    CountedRun& c = m_counted[w & ~Counted];
    if (count > c.m_maxCount)
        c.m_maxCount = count;
    if (count < c.m_minCount)
        c.m_minCount = count;
}

// Doubles the table and enters every shape again.
void ChildSequenceList::Grow() {
    std::vector<uint64_t> old(m_slots.empty() ? 16 : m_slots.size() * 2, 0);
    old.swap(m_slots);
    size_t mask = m_slots.size() - 1;
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

void ChildSequenceList::Prepare(ChildSequence& seq) const {
    seq.m_hash = HashPlaces(seq.m_places.data(), seq.Size());
    if (!m_slots.empty())
        __builtin_prefetch(&m_slots[seq.m_hash & (m_slots.size() - 1)]);
}

void ChildSequenceList::Record(const ChildSequence& seq) {
    size_t n = seq.Size();
    const uint32_t* places = seq.m_places.data();
    uint32_t hash = seq.m_hash;
    if (m_slots.empty())
        Grow();
    size_t mask = m_slots.size() - 1;
    size_t slot = hash & mask;
    // Shapes in the list are distinct, so the one equal shape found here is
    // the first from the front that a walk of the list would find.
    for (; m_slots[slot] != 0; slot = (slot + 1) & mask) {
        uint64_t w = m_slots[slot];
        size_t index = uint32_t(w) - 1;
        if (uint32_t(w >> 32) != hash || !Same(index, places, n))
            continue;
        for (size_t i = 0; i < n; ++i)
            Merge(m_begins[index] + i, seq.m_counts[i]);
        return;
    }
    if (!seq.m_repeated) {
        m_runs.insert(m_runs.end(), places, places + n);
    } else {
        for (size_t i = 0; i < n; ++i) {
            if (seq.m_counts[i] == 1) {
                m_runs.push_back(places[i]);
            } else {
                m_counted.push_back(CountedRun{places[i], seq.m_counts[i], seq.m_counts[i]});
                m_runs.push_back(Counted | uint32_t(m_counted.size() - 1));
            }
        }
    }
    for (size_t i = 0; i < n; ++i) {
        if (places[i] >= m_placeSeen.size())
            m_placeSeen.resize(places[i] + 1, 0);
        if (!m_placeSeen[places[i]]) {
            m_placeSeen[places[i]] = 1;
            ++m_placeCount;
        }
    }
    m_begins.push_back(uint32_t(m_runs.size()));
    m_slots[slot] = uint64_t(hash) << 32 | uint32_t(ShapeCount());
    if (ShapeCount() * 2 > m_slots.size())
        Grow();
}

// ---- The walk ----

// What one walk keeps beside the definitions.
struct XmlDocument::GenWalk {
    // Every definition the walk made, in the order of the definition list;
    // a definition's place here stands for it in the shapes.
    std::vector<XmlElementDef*> defs;
    std::unordered_map<const XmlElementDef*, uint32_t> placeOf;
    // Place + 1 of the definition and the attribute list by name id, for
    // nodes of this document; 0 and null until first looked up.
    std::vector<uint32_t> defById;
    std::vector<XmlAttrList*> listById;
    // By place: the attribute definitions its instances showed, up to
    // MaxAttSlots of them, with the text of their names and, while they are
    // enumerations, of their values. Lists mostly repeat the names of the
    // last one in the same order, so the slot at the same index is tried
    // first.
    struct AttSlot {
        const UCChar* name;
        size_t nameLength;
        XmlAttDef* def;
        uint32_t valueCount;
        const UCChar* values[11];
        size_t valueLengths[11];
        bool Has(const UCChar* value, size_t length) const {
            for (uint32_t i = 0; i < valueCount; ++i)
                if (valueLengths[i] == length && SameUnits(values[i], value, length))
                    return true;
            return false;
        }
    };
    static constexpr size_t MaxAttSlots = 32;
    std::vector<std::vector<AttSlot>> attSlots;
    // Chains whose phase two is under way: the next node to look at.
    std::vector<const XmlElement*> pending;
    // The child sequence of the instance at hand.
    ChildSequence sequence;

    explicit GenWalk(size_t names) : defById(names + 1, 0), listById(names + 1, nullptr) {}
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

// Whether data holds a unit that is not white space, eight units at a time.
bool HasText(const UCChar* data, size_t length) {
    if (length < 8) {
        for (size_t i = 0; i < length; ++i)
            if (!OzmGlob::IsUCSpace(data[i]))
                return true;
        return false;
    }
    const __m128i sp = _mm_set1_epi16(0x20), tab = _mm_set1_epi16(0x09);
    const __m128i lf = _mm_set1_epi16(0x0A), cr = _mm_set1_epi16(0x0D);
    auto spaces = [&](size_t i) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + i));
        __m128i space = _mm_or_si128(_mm_cmpeq_epi16(v, sp), _mm_cmpeq_epi16(v, lf));
        space = _mm_or_si128(space, _mm_or_si128(_mm_cmpeq_epi16(v, tab), _mm_cmpeq_epi16(v, cr)));
        return _mm_movemask_epi8(space) == 0xFFFF;
    };
    for (size_t i = 0; i + 8 <= length; i += 8)
        if (!spaces(i))
            return true;
    // The last eight units, overlapping what was seen, instead of one by one.
    return !spaces(length - 8);
}

}  // namespace

bool XmlDocument::GenerateDTD() {
    const XmlDocument* self = this;
    return GenerateDTD(std::vector<const XmlDocument*>{self});
}

bool XmlDocument::GenerateDTD(const std::vector<const XmlDocument*>& documents) {
    m_dtd.Clear();
    // One walk over all the trees: the definitions and shape lists it keeps
    // gather what every document shows. Nodes of other documents are looked
    // up by their names' text rather than by this document's name ids.
    GenWalk walk(m_names.size());
    bool result = true;
    bool named = false;
    for (const XmlDocument* doc : documents) {
        const XmlElement* root = doc ? doc->m_rootElement : nullptr;
        if (!root)
            continue;
        if (!named) {
            m_dtd.DocType(UCString(root->Name()));
            named = true;
        }
        if (!BuildDTDElement(root, walk))
            result = false;
    }

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
    // Asks for the data and the attribute storage of a node whose own
    // storage is at hand: the walk needs them some time later, and for a
    // large tree the memory is slow to answer.
    auto prefetch = [](const XmlElement* e) {
        __builtin_prefetch(e->m_data.data());
        // The queue of attributes is one pointer to its storage, which is
        // read here without following it.
        static_assert(sizeof(e->m_attributes) == sizeof(void*), "one pointer");
        const void* storage;
        std::memcpy(&storage, static_cast<const void*>(&e->m_attributes), sizeof storage);
        __builtin_prefetch(storage);
    };
    // Whether the slab of a node belongs to this document, for the last
    // slab asked about: neighbours mostly share one.
    const XmlElementBlock* lastBlock = nullptr;
    bool lastOwn = false;
    auto ownSlab = [&](const XmlElementBlock* b) {
        if (b != lastBlock) {
            lastBlock = b;
            lastOwn = b && b->m_document == this;
        }
        return lastOwn;
    };
    // The place of the definition of a node's name, made when it is first
    // met: type EMPTY and an empty shape list. Nodes of this document are
    // looked up by name id once per id; any other node by its text.
    auto placeOf = [&](const XmlElement* e) -> uint32_t {
        bool own = ownSlab(e->m_block) && size_t(e->m_nameId) < walk.defById.size();
        if (own && walk.defById[size_t(e->m_nameId)])
            return walk.defById[size_t(e->m_nameId)] - 1;
        const UCChar* name = e->Name();
        uint32_t place;
        if (XmlElementDef* def = m_dtd.FindElement(name)) {
            place = walk.placeOf[def];
        } else {
            def = m_dtd.AddElement(name);
            def->Type(elemEmpty);
            ChildSequenceList* shapes = nullptr;
            if (m_shapeListsLeft != 0) {
                if (m_shapeListsLeft > 0)
                    --m_shapeListsLeft;
                shapes = new (std::nothrow) ChildSequenceList(walk.defs);
            }
            def->InfoPointer(shapes);
            place = uint32_t(walk.defs.size());
            walk.defs.push_back(def);
            walk.attSlots.emplace_back();
            walk.placeOf[def] = place;
        }
        if (own)
            walk.defById[size_t(e->m_nameId)] = place + 1;
        return place;
    };
    auto listOf = [&](const XmlElement* e, const XmlElementDef* def) -> XmlAttrList* {
        bool own = ownSlab(e->m_block) && size_t(e->m_nameId) < walk.listById.size();
        if (own && walk.listById[size_t(e->m_nameId)])
            return walk.listById[size_t(e->m_nameId)];
        XmlAttrList* list = m_dtd.FindAttrList(def->Name());
        if (!list)
            list = m_dtd.AddAttrList(def->Name());
        if (own)
            walk.listById[size_t(e->m_nameId)] = list;
        return list;
    };

    // Records the attributes of e, an instance of def at place.
    auto attributes = [&](const XmlElement* e, XmlElementDef* def, uint32_t place) {
        XmlAttrList* list = listOf(e, def);
        std::vector<GenWalk::AttSlot>& slots = walk.attSlots[place];
        size_t index = 0;
        for (const XmlAttribute& a : e->m_attributes) {
            const UCChar* name = a.Name();
            size_t nameLength = std::char_traits<UCChar>::length(name);
            auto same = [&](const GenWalk::AttSlot& s) {
                return s.nameLength == nameLength && SameUnits(s.name, name, nameLength);
            };
            GenWalk::AttSlot* slot = nullptr;
            if (index < slots.size() && same(slots[index])) {
                slot = &slots[index];
            } else {
                for (GenWalk::AttSlot& s : slots)
                    if (same(s)) {
                        slot = &s;
                        break;
                    }
            }
            ++index;
            XmlAttDef* att = slot ? slot->def : nullptr;
            if (!att) {
                att = list->FindModifiableAttDef(name);
                if (!att) {
                    att = list->AddAttDef(name);
                    att->Type(attEnumerated);
                    att->DefType(defNone);
                }
                // A definition gets a slot only when it is new, so a
                // slot knows all its values.
                if (slots.size() < GenWalk::MaxAttSlots) {
                    slots.push_back(GenWalk::AttSlot{name, nameLength, att, 0, {}, {}});
                    slot = &slots.back();
                }
            }
            const UCChar* value = a.Value();
            size_t length = std::char_traits<UCChar>::length(value);
            if (att->Type() == attEnumerated && !(slot ? slot->Has(value, length) : att->FindEnum(value) >= 0)) {
                att->AddEnum(value);
                if (slot) {
                    slot->values[slot->valueCount] = att->GetEnum(att->EnumCount() - 1);
                    slot->valueLengths[slot->valueCount++] = length;
                }
                if (att->EnumCount() > 10)
                    att->Type(attCdata);
            }
            att->MaxLen(int(length));
        }
    };

    // Phase one over the chain from head.
    auto phaseOne = [&](const XmlElement* head) {
        for (const XmlElement* e = head; e; e = e->Next()) {
            // The next node was mostly read already (as a child of the
            // parent): ask for its data and attributes, and for the node
            // after it.
            if (const XmlElement* n = e->m_next) {
                prefetch(n);
                if (const XmlElement* m = n->m_next)
                    __builtin_prefetch(m);
            }
            // The attribute storage was asked for with the node: now the
            // values, which are read last.
            if (!e->m_attributes.empty())
                for (const XmlAttribute& a : e->m_attributes)
                    __builtin_prefetch(a.Value());
            uint32_t place = placeOf(e);
            XmlElementDef* def = walk.defs[place];
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
            seq.Clear();
            if (type == elemMixed) {
                XmlContentPart& contents = def->Contents();
                for (const XmlElement* c = e->Child(); c; c = c->Next()) {
                    prefetch(c);
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
                    prefetch(c);
                    seq.Add(placeOf(c));
                }
            }
            // The shape is entered after the attributes, which leaves the
            // memory time to bring its slot in the table.
            ChildSequenceList* shapes = ShapesOf(def);
            if (shapes)
                shapes->Prepare(seq);
            def->Type(type);

            if (!e->m_attributes.empty())
                attributes(e, def, place);
            if (shapes)
                shapes->Record(seq);
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
