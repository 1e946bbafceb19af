// xmlgenerate.cpp - derives a document type definition from the element
// tree: one walk records per element name the kind of content, the longest
// text, the attribute values and the distinct shapes of the child lists; a
// second pass over the definitions turns shapes into content models and
// gives each element with text a fixed "length" attribute.
//
// The walk does a whole sibling chain first and goes down afterwards, which
// fixes the order of the definitions. That is not the order in which a
// parsed tree lies in memory, so the walk takes two steps: the first reads
// the tree in document order and writes down, per sibling chain, what the
// second needs of its nodes; the second goes through these records in the
// order of generation. Neither recurses, so a tree of any depth is safe.
#include <emmintrin.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "dtdgen/xmlchildshapes.h"
#include "xmldocument.h"

// ---- ChildSequenceList ----

namespace {

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

void ChildSequenceList::Prefetch(uint32_t hash) const {
    if (!m_slots.empty())
        __builtin_prefetch(&m_slots[hash & (m_slots.size() - 1)]);
}

void ChildSequenceList::Mark(const uint32_t* places, size_t n) {
    // Every place stands for one of the walk's definitions.
    if (m_placeSeen.size() < m_defs.size())
        m_placeSeen.resize(m_defs.size(), 0);
    unsigned char* seen = m_placeSeen.data();
    for (size_t i = 0; i < n; ++i) {
        m_placeCount += !seen[places[i]];
        seen[places[i]] = 1;
    }
}

void ChildSequenceList::GatherNew(uint32_t place) {
    if (place >= m_placeSeen.size())
        m_placeSeen.resize(m_defs.size(), 0);
    m_placeSeen[place] = 1;
    ++m_placeCount;
    m_runs.push_back(place);
    m_begins.back() = uint32_t(m_runs.size());
}

void ChildSequenceList::Record(const ChildSequence& seq) {
    size_t n = seq.Size();
    const uint32_t* places = seq.m_places.data();
    if (m_settled) {
        for (size_t i = 0; i < n; ++i)
            Gather(places[i]);
        return;
    }
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
    Mark(places, n);
    uint32_t* runs = m_runs.Extend(n);
    for (size_t i = 0; i < n; ++i)
        runs[i] = places[i];
    if (seq.m_repeated) {
        for (size_t i = 0; i < n; ++i) {
            if (seq.m_counts[i] != 1) {
                m_counted.push_back(CountedRun{places[i], seq.m_counts[i], seq.m_counts[i]});
                runs[i] = Counted | uint32_t(m_counted.size() - 1);
            }
        }
    }
    m_begins.push_back(uint32_t(m_runs.size()));
    m_slots[slot] = uint64_t(hash) << 32 | uint32_t(ShapeCount());

    if (ShapeCount() == 1 && n != 0) {
        m_firstPlace = places[0];
        m_lastPlace = places[n - 1];
    } else {
        m_noHead |= n == 0 || places[0] != m_firstPlace;
        m_noTail |= n == 0 || places[n - 1] != m_lastPlace;
    }
    if (m_noHead && m_noTail) {
        // The shape that gathers the names still to come; the table is
        // no longer needed.
        m_settled = true;
        m_begins.push_back(uint32_t(m_runs.size()));
        std::vector<uint64_t>().swap(m_slots);
    } else if (ShapeCount() * 2 > m_slots.size()) {
        Grow();
    }
}

// ---- The walk ----

namespace {

// What the first step of the walk tells of a node, in one byte.
enum NodeFacts : unsigned char {
    HasText = 1,        // some unit of its data is not white space
    HasChild = 2,       // the place of the record of its children follows
    HasAttributes = 4,  // its attribute words follow
    HasNode = 8,        // the attribute words end with a pointer to the node
};

// A pointer stored in 32-bit words.
constexpr size_t PointerWords = (sizeof(void*) + 3) / 4;

// Places in the records and in the work lists are 32-bit: a tree whose
// records would outgrow them, one of more than a billion nodes, is turned
// down as if memory had run out.
inline uint32_t Place32(size_t place) {
    if (place > UINT32_MAX)
        throw std::bad_alloc();
    return uint32_t(place);
}

}  // namespace

// What one generation keeps beside the definitions.
//
// Names are known by keys, one for each name id of each document whose
// nodes are met, given out as they are met, so that a node's key is found
// without reading its name. Attribute names are known by attribute keys,
// one per key and attribute name.
//
// The first step of the walk writes records, one per element with children
// and one for the chain from the root, each telling of the nodes of one
// sibling chain. In 32-bit words:
//   n           the number of nodes
//   n keys      the key of each node
//   n flags     the NodeFacts of each node, one byte each, four to a word
//   then for each node in turn what its flags announce:
//     HasChild       the place of the record of its children
//     HasAttributes  a count of words; for each attribute its attribute key
//                    and the index of its interned value or NoValue; with
//                    HasNode, a pointer to the node
// A record is written when its chain is done, so the records of a node's
// children stand in front of its own.
struct XmlDocument::GenWalk {
    // An attribute value that its attribute key did not intern.
    static constexpr uint32_t NoValue = 0xFFFFFFFFu;
    // Values interned by an attribute key. A key with more distinct values
    // than this has more than ten, and its definition is CDATA by the end;
    // until then, values met after the table filled are looked at in the
    // node.
    static constexpr uint32_t MaxValues = 16;
    // ---- Keys
    std::vector<const UCChar*> keyText;
    // Longest data of the nodes of each key: a measure is the greatest
    // value whatever the order, so it is taken by the first step and stored
    // in the definitions at the end.
    std::vector<int> keyMaxLen;
    // Place + 1 of the definition of each key; 0 until the key is visited.
    std::vector<uint32_t> keyPlace;
    // Set once an instance of the key was found of type MIXED, which is
    // final.
    std::vector<unsigned char> keyMixed;
    // Key + 1 by name id, for each document met; 0 for an id not met yet.
    // Nodes outside any document's slab are all named "", under no
    // document.
    std::unordered_map<const XmlDocument*, std::vector<uint32_t>> docKeys;
    // The document of the slab switched to last, and its keys.
    const XmlDocument* lastDoc = nullptr;
    std::vector<uint32_t>* lastKeys = nullptr;

    // ---- Definitions, by place: the order in which the walk made them
    std::vector<XmlElementDef*> defs;
    std::vector<int> types;
    std::vector<XmlAttrList*> lists;
    std::unordered_map<const XmlElementDef*, uint32_t> placeOf;
    // Keys already looked for in the mixed content of a place, as
    // place << 32 | key: a name found or added stays there.
    std::unordered_set<uint64_t> members;

    // ---- Attribute keys
    struct AttrKey {
        uint32_t key;  // of the element name
        const UCChar* name;
        size_t nameLength;
        int maxLen;      // longest value, stored at the end like keyMaxLen
        XmlAttDef* def;  // null until the second step reaches an instance
        uint32_t valueCount;
        uint32_t inEnum;  // bit i: value i is known to stand in def's enumeration
        const UCChar* values[MaxValues];
        size_t valueLengths[MaxValues];
        // Of each value its length, first and last unit, which mostly
        // tell values apart without looking at their text.
        uint64_t valueMarks[MaxValues];
        // The index of the value, added if there is room, or NoValue.
        uint32_t Intern(const UCChar* value, size_t length) {
            if (valueCount == MaxValues)
                return NoValue;
            uint64_t mark = length == 0 ? 0 : uint64_t(length) << 32 | uint32_t(value[0]) << 16 | value[length - 1];
            for (uint32_t i = 0; i < valueCount; ++i)
                if (valueMarks[i] == mark && valueLengths[i] == length && SameUnits(values[i], value, length))
                    return i;
            values[valueCount] = value;
            valueLengths[valueCount] = length;
            valueMarks[valueCount] = mark;
            return valueCount++;
        }
    };
    std::vector<AttrKey> attrKeys;
    // Attribute keys by key and name: open addressing over a power-of-two
    // table, the hash in the high half of a slot and the attribute key + 1
    // in the low half; 0 is free.
    std::vector<uint64_t> attrSlots;
    // The attribute keys of each key with the first unit of their names,
    // in order of first appearance, as long as they are few: an element
    // name mostly has a handful of attribute names, which are looked
    // through one by one. A key with more finds them all in attrSlots.
    static constexpr size_t FewNames = 8;
    struct NameStart {
        UCChar first;
        uint32_t attrKey;
    };
    std::vector<std::vector<NameStart>> keyAttrs;

    // ---- The records of one tree, and the work lists of the two steps
    WorkArray<uint32_t> records;
    // What the nodes whose chain is not done will put in the record of
    // their chain: the key of each with its flags in the high half, and the
    // words that follow.
    WorkArray<uint64_t> pendingNodes;
    WorkArray<uint32_t> pendingWords;
    // Elements whose children are being read: the node that follows it, the
    // node itself if its data is still to be looked at for text, its own
    // index in pendingNodes (its children's follow it), where the
    // children's words start, and where the place of their record goes.
    struct Open {
        const XmlElement* next;
        const XmlElement* data;
        uint32_t self;
        uint32_t words;
        uint32_t record;
    };
    WorkArray<Open> open;
    // Records whose nodes are still to be visited, the next on top; and
    // the records of the children of the chain being visited.
    WorkArray<uint32_t> chains;
    WorkArray<uint32_t> childChains;
    // The child sequence of the instance at hand.
    ChildSequence sequence;

    GenWalk() = default;
    GenWalk(const GenWalk&) = delete;
    GenWalk& operator=(const GenWalk&) = delete;
    // Frees whatever shape lists are still hanging on the definitions.
    ~GenWalk() {
        for (XmlElementDef* def : defs)
            delete static_cast<ChildSequenceList*>(def->InfoPointer(nullptr));
    }

    // The key of a node of the slab last switched to whose name id has no
    // key yet.
    uint32_t NewKeyOf(size_t id) {
        uint32_t& key = (*lastKeys)[id];
        key = NewKey(id == 0 ? u"" : lastDoc->m_names[id - 1].c_str());
        return key - 1;
    }
    uint32_t Gather(const XmlElement* first);
    // Makes the document of the slab block the one NewKeyOf names keys of.
    void SwitchBlock(const XmlElementBlock* block);
    uint32_t NewKey(const UCChar* text);
    inline uint32_t AttrKeyOf(uint32_t key, const UCChar* name);
    // The attribute key of name on elements of key, made if there is none;
    // isNew tells that there is none.
    uint32_t FindAttrKey(uint32_t key, const UCChar* name, bool isNew);
};

void XmlDocument::GenWalk::SwitchBlock(const XmlElementBlock* block) {
    lastDoc = block ? block->m_document : nullptr;
    lastKeys = &docKeys[lastDoc];
    if (lastKeys->empty())
        lastKeys->resize(lastDoc ? lastDoc->m_names.size() + 1 : 1, 0);
}

// Key + 1 of a new key.
uint32_t XmlDocument::GenWalk::NewKey(const UCChar* text) {
    keyText.push_back(text);
    keyMaxLen.push_back(0);
    keyPlace.push_back(0);
    keyMixed.push_back(0);
    keyAttrs.emplace_back();
    return uint32_t(keyText.size());
}

namespace {

inline ChildSequenceList* ShapesOf(const XmlElementDef* def) {
    return static_cast<ChildSequenceList*>(def->InfoPointer());
}

// Whether data holds a unit that is not white space, 32 units at a time:
// packed to bytes, a unit above 255 becomes 0 or 255, which are not white
// space either.
__attribute__((noinline)) bool ScanForText(const UCChar* data, size_t length) {
    if (length < 32) {
        for (size_t i = 0; i < length; ++i)
            if (!OzmGlob::IsUCSpace(data[i]))
                return true;
        return false;
    }
    const __m128i sp = _mm_set1_epi8(0x20), lf = _mm_set1_epi8(0x0A);
    const __m128i tab = _mm_set1_epi8(0x09), cr = _mm_set1_epi8(0x0D);
    auto load = [&](size_t i) {
        return _mm_packus_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(data + i)),
                                _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + i + 8)));
    };
    auto spaces = [&](size_t i) {
        const __m128i a = load(i), b = load(i + 16);
        // Indentation is mostly spaces and line feeds alone.
        __m128i sa = _mm_or_si128(_mm_cmpeq_epi8(a, sp), _mm_cmpeq_epi8(a, lf));
        __m128i sb = _mm_or_si128(_mm_cmpeq_epi8(b, sp), _mm_cmpeq_epi8(b, lf));
        if (_mm_movemask_epi8(_mm_and_si128(sa, sb)) == 0xFFFF)
            return true;
        sa = _mm_or_si128(sa, _mm_or_si128(_mm_cmpeq_epi8(a, tab), _mm_cmpeq_epi8(a, cr)));
        sb = _mm_or_si128(sb, _mm_or_si128(_mm_cmpeq_epi8(b, tab), _mm_cmpeq_epi8(b, cr)));
        return _mm_movemask_epi8(_mm_and_si128(sa, sb)) == 0xFFFF;
    };
    for (size_t i = 0; i + 32 <= length; i += 32)
        if (!spaces(i))
            return true;
    // The last 32 units, overlapping what was seen, instead of one by one.
    return !spaces(length - 32);
}

// Whether the name at name is the n units at known.
inline bool SameName(const UCChar* known, size_t n, const UCChar* name) {
    for (size_t i = 0; i < n; ++i)
        if (name[i] != known[i])
            return false;
    return name[n] == 0;
}

// Whether an element's data holds text: mostly its first unit tells.
inline bool DataHasText(const UCChar* data, size_t length) {
    return length != 0 && (data[0] > 0x20 || ScanForText(data, length));
}

}  // namespace

inline uint32_t XmlDocument::GenWalk::AttrKeyOf(uint32_t key, const UCChar* name) {
    std::vector<NameStart>& known = keyAttrs[key];
    if (known.size() < FewNames) {
        for (const NameStart& n : known)
            if (n.first == name[0] && SameName(attrKeys[n.attrKey].name, attrKeys[n.attrKey].nameLength, name))
                return n.attrKey;
        uint32_t k = FindAttrKey(key, name, true);
        known.push_back(NameStart{name[0], k});
        return k;
    }
    return FindAttrKey(key, name, false);
}

uint32_t XmlDocument::GenWalk::FindAttrKey(uint32_t key, const UCChar* name, bool isNew) {
    // The name is measured and hashed in one go.
    uint64_t h = (uint64_t(key) + 1) * 0x9E3779B97F4A7C15ull;
    size_t length = 0;
    for (; name[length]; ++length)
        h = (h ^ name[length]) * 0xFF51AFD7ED558CCDull;
    uint32_t hash = uint32_t(h >> 32);
    if (attrSlots.empty())
        attrSlots.assign(64, 0);
    size_t mask = attrSlots.size() - 1;
    size_t slot = hash & mask;
    for (; attrSlots[slot]; slot = (slot + 1) & mask) {
        if (isNew || uint32_t(attrSlots[slot] >> 32) != hash)
            continue;
        uint32_t k = uint32_t(attrSlots[slot]) - 1;
        const AttrKey& a = attrKeys[k];
        if (a.key == key && a.nameLength == length && SameUnits(a.name, name, length))
            return k;
    }
    uint32_t k = uint32_t(attrKeys.size());
    attrKeys.push_back(AttrKey{key, name, length, 0, nullptr, 0, 0, {}, {}, {}});
    attrSlots[slot] = uint64_t(hash) << 32 | (k + 1);
    if (attrKeys.size() * 2 > attrSlots.size()) {
        std::vector<uint64_t> old(attrSlots.size() * 2, 0);
        old.swap(attrSlots);
        mask = attrSlots.size() - 1;
        for (uint64_t w : old) {
            if (!w)
                continue;
            for (slot = (w >> 32) & mask; attrSlots[slot]; slot = (slot + 1) & mask) {
            }
            attrSlots[slot] = w;
        }
    }
    return k;
}

bool XmlDocument::GenerateDTD() {
    const XmlDocument* self = this;
    return GenerateDTD(std::vector<const XmlDocument*>{self});
}

bool XmlDocument::GenerateDTD(const std::vector<const XmlDocument*>& documents) {
    m_dtd.Clear();
    // One walk over all the trees: the definitions and shape lists it keeps
    // gather what every document shows.
    GenWalk walk;
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

    // The measures taken on the way.
    for (size_t key = 0; key < walk.keyPlace.size(); ++key)
        if (walk.keyPlace[key])
            walk.defs[walk.keyPlace[key] - 1]->MaxLen(walk.keyMaxLen[key]);
    for (const GenWalk::AttrKey& a : walk.attrKeys)
        if (a.def)
            a.def->MaxLen(a.maxLen);

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

// Step one of the walk: the records of the tree from first, in document
// order. Returns the place of the record of the chain from first.
uint32_t XmlDocument::GenWalk::Gather(const XmlElement* first) {
    records.clear();
    // Room for the records of the nodes in the slabs of the root's
    // document, which mostly hold the whole tree: three words a node cover
    // its key and flags, the place of its children's record and a few
    // attributes. Records that need more have the room grown.
    if (const XmlDocument* doc = first->m_block ? first->m_block->m_document : nullptr) {
        size_t count = 0;
        for (const XmlElementBlock* b = doc->m_elementBlocks; b; b = b->m_nextBlock)
            count += size_t(XmlElementBlock::Capacity - b->m_freeCount);
        records.reserve(3 * count);
    }

    WorkArray<uint64_t>& nodes = pendingNodes;
    WorkArray<uint32_t>& pending = pendingWords;

    // Writes the record of the pending nodes from index from on, whose
    // words start at wordsFrom, and drops them. Returns its place.
    auto writeRecord = [&](size_t from, size_t wordsFrom) {
        size_t n = nodes.size() - from;
        size_t flagWords = (n + 3) / 4;
        size_t words = pending.size() - wordsFrom;
        size_t size = 1 + n + flagWords + words;
        Place32(records.size() + size);
        uint32_t place = uint32_t(records.size());
        uint32_t* w = records.Extend(size);
        w[0] = uint32_t(n);
        w[n + flagWords] = 0;  // the padding behind the flags
        unsigned char* bytes = reinterpret_cast<unsigned char*>(w + 1 + n);
        const uint64_t* node = nodes.data() + from;
        for (size_t i = 0; i < n; ++i) {
            w[1 + i] = uint32_t(node[i]);
            bytes[i] = (unsigned char)(node[i] >> 32);
        }
        if (words)
            std::memcpy(w + 1 + n + flagWords, pending.data() + wordsFrom, words * sizeof *w);
        nodes.shrink(from);
        pending.shrink(wordsFrom);
        return place;
    };

    // Interns the attributes of e, whose name has the given key, into
    // pending words; returns the flags they add.
    auto gatherAttributes = [&](const XmlElement* e, uint32_t key) -> unsigned {
        uint32_t* count = pending.Extend(1 + 2 * e->m_attributes.size() + PointerWords);
        uint32_t* w = count + 1;
        bool node = false;
        for (const XmlAttribute& a : e->m_attributes) {
            uint32_t attrKey = AttrKeyOf(key, a.Name());
            AttrKey& k = attrKeys[attrKey];
            const UCChar* value = a.Value();
            size_t length = std::char_traits<UCChar>::length(value);
            k.maxLen = std::max(k.maxLen, int(length));
            uint32_t id = k.Intern(value, length);
            node |= id == NoValue;
            *w++ = attrKey;
            *w++ = id;
        }
        if (node) {
            w[PointerWords - 1] = 0;
            std::memcpy(w, &e, sizeof e);
            w += PointerWords;
        }
        *count = uint32_t(w - count - 1);
        pending.shrink(size_t(w - pending.data()));
        return node ? HasAttributes | HasNode : HasAttributes;
    };

    // The key of the name of the slab looked at last: neighbours mostly
    // share one.
    const XmlElementBlock* block = first->m_block;
    SwitchBlock(block);
    const uint32_t* blockKeys = lastKeys->data();
    size_t blockIds = lastKeys->size();
    int* maxLen = keyMaxLen.data();
    for (const XmlElement* e = first; e;) {
        // A parsed tree lies in its slabs in document order, and the text
        // of its nodes in the text stores in the same order: both are asked
        // for some way ahead (a prefetch never faults, wherever it points).
        uintptr_t ahead = reinterpret_cast<uintptr_t>(e) + 32 * sizeof *e;
        __builtin_prefetch(reinterpret_cast<const void*>(ahead));
        __builtin_prefetch(reinterpret_cast<const void*>(ahead + sizeof *e - 1));
        __builtin_prefetch(reinterpret_cast<const void*>(reinterpret_cast<uintptr_t>(e->m_data.data()) + 4096));
        if (e->m_block != block) {
            SwitchBlock(e->m_block);
            block = e->m_block;
            blockKeys = lastKeys->data();
            blockIds = lastKeys->size();
        }
        // An id outside the table names "", as XmlElement::Name tells.
        size_t id = size_t(unsigned(e->m_nameId));
        if (id >= blockIds)
            id = 0;
        uint32_t key = blockKeys[id] - 1;
        if (key == uint32_t(-1)) {
            key = NewKeyOf(id);
            maxLen = keyMaxLen.data();
        }
        maxLen[key] = std::max(maxLen[key], int(e->m_data.size()));
        unsigned facts = e->m_child ? HasChild : 0;
        size_t record = pending.size();
        if (e->m_child)
            pending.push_back(0);  // the place of the children's record
        if (!e->m_attributes.empty())
            facts |= gatherAttributes(e, key);
        if (e->m_child) {
            nodes.push_back(uint64_t(facts) << 32 | key);
            // The text of an element lies behind that of its children: it
            // is asked for now and looked at once they are done.
            const XmlElement* data = nullptr;
            if (!e->m_data.empty()) {
                __builtin_prefetch(e->m_data.data());
                data = e;
            }
            open.push_back(
                Open{e->m_next, data, Place32(nodes.size() - 1), Place32(pending.size()), uint32_t(record)});
            e = e->m_child;
            continue;
        }
        if (DataHasText(e->m_data.data(), e->m_data.size()))
            facts |= HasText;
        nodes.push_back(uint64_t(facts) << 32 | key);
        const XmlElement* next = e->m_next;
        while (!next && !open.empty()) {
            Open o = open.back();
            open.pop_back();
            pending[o.record] = writeRecord(o.self + 1, o.words);
            if (o.data && DataHasText(o.data->m_data.data(), o.data->m_data.size()))
                nodes[o.self] |= uint64_t(HasText) << 32;
            next = o.next;
        }
        e = next;
    }
    return writeRecord(0, 0);
}

bool XmlDocument::BuildDTDElement(const XmlElement* first, GenWalk& walk) {
    uint32_t top = walk.Gather(first);

    // ---- Step two: the nodes in the order of generation.

    // The place of the definition of a key's name, made when it is first
    // met: type EMPTY and an empty shape list.
    auto newPlace = [&](uint32_t key) -> uint32_t {
        const UCChar* name = walk.keyText[key];
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
            walk.types.push_back(elemEmpty);
            walk.lists.push_back(nullptr);
            walk.placeOf[def] = place;
        }
        walk.keyPlace[key] = place + 1;
        return place;
    };
    auto placeOf = [&](uint32_t key) {
        uint32_t known = walk.keyPlace[key];
        return known ? known - 1 : newPlace(key);
    };

    // Records the attributes whose words are [at, end) of an instance of
    // the definition at place; node is the instance, or null when every
    // value was interned.
    auto attributes = [&](const uint32_t* at, const uint32_t* end, uint32_t place, const XmlElement* node) {
        XmlAttrList*& list = walk.lists[place];
        if (!list) {
            list = m_dtd.FindAttrList(walk.defs[place]->Name());
            if (!list)
                list = m_dtd.AddAttrList(walk.defs[place]->Name());
        }
        for (size_t index = 0; at < end; at += 2, ++index) {
            GenWalk::AttrKey& k = walk.attrKeys[at[0]];
            uint32_t id = at[1];
            XmlAttDef* att = k.def;
            if (!att) {
                att = list->FindModifiableAttDef(k.name);
                if (!att) {
                    att = list->AddAttDef(k.name);
                    att->Type(attEnumerated);
                    att->DefType(defNone);
                }
                k.def = att;
            }
            if (att->Type() != attEnumerated)
                continue;
            const UCChar* value;
            if (id != GenWalk::NoValue) {
                // Once looked for, an interned value is known to stand in
                // the enumeration, which only grows.
                if (k.inEnum >> id & 1)
                    continue;
                k.inEnum |= 1u << id;
                value = k.values[id];
            } else {
                value = node->m_attributes[index].Value();
            }
            if (att->FindEnum(value) < 0) {
                att->AddEnum(value);
                if (att->EnumCount() > 10)
                    att->Type(attCdata);
            }
        }
    };

    const uint32_t* words = walk.records.data();
    ChildSequence& seq = walk.sequence;
    // No key is added from here on.
    unsigned char* keyMixed = walk.keyMixed.data();
    // One node, with the given key and flags, whose words start at extra;
    // moves extra behind them.
    auto visit = [&](uint32_t key, unsigned facts, const uint32_t*& extra) {
        uint32_t place = placeOf(key);
        XmlElementDef* def = walk.defs[place];
        int type = walk.types[place];
        if (facts & HasChild && type == elemEmpty)
            type = elemChildren;
        if (facts & HasText && type != elemMixed) {
            type = elemMixed;
            delete ShapesOf(def);
            def->InfoPointer(nullptr);
        }

        // A list that is not settled takes the instance's whole sequence.
        ChildSequenceList* shapes = ShapesOf(def);
        bool sequence = shapes && !shapes->Settled();
        seq.Clear();
        if (facts & HasChild) {
            uint32_t record = *extra++;
            const uint32_t* children = words + record;
            size_t n = children[0];
            const uint32_t* keys = children + 1;
            // A chain of instances of mixed names with neither children nor
            // attributes adds nothing when visited, and is not: mixed is
            // final.
            const unsigned char* childFlags = reinterpret_cast<const unsigned char*>(keys + n);
            bool plain = true;
            auto look = [&](size_t i) {
                plain = plain && keyMixed[keys[i]] && !(childFlags[i] & (HasChild | HasAttributes));
                return keys[i];
            };
            if (type == elemMixed) {
                XmlContentPart& contents = def->Contents();
                contents.CountMod(countStar);
                for (size_t i = 0; i < n; ++i) {
                    if (!walk.members.insert(uint64_t(place) << 32 | look(i)).second)
                        continue;
                    const UCChar* name = walk.keyText[keys[i]];
                    if (!contents.Contains(name)) {
                        XmlContentPart part;
                        part.Name(name);
                        contents.AddCP(part, true);
                    }
                }
            } else if (sequence) {
                seq.Fold(n, [&](size_t i) { return placeOf(look(i)); });
            } else {
                for (size_t i = 0; i < n; ++i) {
                    uint32_t child = placeOf(look(i));
                    if (shapes)
                        shapes->Gather(child);
                }
            }
            if (!plain)
                walk.childChains.push_back(record);
        }
        // The shape is entered after the attributes, which leaves the
        // memory time to bring its slot in the table.
        if (sequence)
            shapes->Prefetch(seq.m_hash);
        if (type != walk.types[place]) {
            walk.types[place] = type;
            def->Type(type);
        }
        if (type == elemMixed)
            keyMixed[key] = 1;
        if (facts & HasAttributes) {
            size_t count = *extra++;
            const uint32_t* end = extra + count;
            const XmlElement* node = nullptr;
            if (facts & HasNode) {
                end -= PointerWords;
                std::memcpy(&node, end, sizeof node);
            }
            attributes(extra, end, place, node);
            extra += count;
        }
        if (sequence)
            shapes->Record(seq);
    };

    // The nodes of the chain from first; then, taking the records from a
    // stack, those of the children of each node in turn, each chain whole
    // and before the chains below it.
    walk.chains.clear();
    walk.chains.push_back(top);
    while (!walk.chains.empty()) {
        const uint32_t* r = words + walk.chains.back();
        walk.chains.pop_back();
        size_t n = r[0];
        const uint32_t* chainKeys = r + 1;
        const unsigned char* chainFlags = reinterpret_cast<const unsigned char*>(r + 1 + n);
        const uint32_t* extra = r + 1 + n + (n + 3) / 4;
        walk.childChains.clear();
        for (size_t i = 0; i < n; ++i) {
            // An instance of a mixed name with neither children nor
            // attributes adds nothing, and has no words.
            while (!(chainFlags[i] & (HasChild | HasAttributes)) && keyMixed[chainKeys[i]])
                if (++i == n)
                    break;
            if (i == n)
                break;
            visit(chainKeys[i], chainFlags[i], extra);
        }
        for (size_t i = walk.childChains.size(); i-- > 0;)
            walk.chains.push_back(walk.childChains[i]);
    }
    return true;
}
