// xmlgenwalk.h - XmlDocument::GenWalk, what one generation keeps beside the
// definitions it builds.
//
// The walk does a whole sibling chain first and goes down afterwards, which
// fixes the order of the definitions. That is not the order in which a
// parsed tree lies in memory, so the walk takes two steps: the first
// (GenWalk::Gather, xmlgather.cpp) reads the tree in document order and
// writes down, per sibling chain, what the second needs of its nodes; the
// second (XmlDocument::BuildDTDElement, xmlbuilddtdelement.cpp) goes through
// these records in the order of generation and records what the instances
// show. Neither recurses, so a tree of any depth is safe.
//
// Everything here is held in GenMemory, in proportion to the trees: per
// node, per distinct name, per name in the table of each document met, per
// distinct pair of an element name with a name of its children or
// attributes. Nothing is sized by the number of names times anything.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <unordered_map>
#include <utility>

#include "dtdgen/xmlchildshapes.h"
#include "dtdgen/xmlgenmemory.h"
#include "dtdgen/xmlidset.h"
#include "platform/units/ozmunits.h"
#include "xmldocument.h"

// Names are known by keys, one for each name id of each document whose
// nodes are met, given out as they are met, so that a node's key is found
// without reading its name. Keys of the same text share a name, which has
// the definition. Attribute names are known by attribute keys, one per key
// and attribute name.
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
    // What the first step tells of a node, in one byte.
    enum NodeFacts : unsigned char {
        HasText = 1,        // some unit of its data is not white space
        HasChild = 2,       // the place of the record of its children follows
        HasAttributes = 4,  // its attribute words follow
        HasNode = 8,        // the attribute words end with a pointer to the node
    };
    // A pointer stored in 32-bit words.
    static constexpr size_t PointerWords = (sizeof(void*) + 3) / 4;
    // An attribute value that its attribute key did not intern.
    static constexpr uint32_t NoValue = 0xFFFFFFFFu;
    // Values interned by an attribute key. A key with more distinct values
    // than this has more than ten, and its definition is CDATA by the end;
    // until then, values met after the table filled are looked at in the
    // node.
    static constexpr uint32_t MaxValues = 16;
    // Places of definitions stay below this: a shape list marks a run with
    // the top bit.
    static constexpr uint32_t MaxPlaces = 0x80000000u;

    // ---- Keys
    GenVector<uint32_t> keyName;  // the name of each key
    // Longest data of the nodes of each key: a measure is the greatest
    // value whatever the order, so it is taken by the first step and stored
    // in the definitions at the end.
    GenVector<int> keyMaxLen;
    // Place + 1 of the definition of each key; 0 until the key is visited.
    GenVector<uint32_t> keyPlace;
    // Set once an instance of the key was found of type MIXED, which is
    // final.
    GenVector<unsigned char> keyMixed;
    // Key + 1 by name id, for each document met; 0 for an id not met yet.
    // Nodes outside any document's slab are all named "", under no
    // document.
    typedef std::pair<const XmlDocument* const, GenVector<uint32_t>> DocKeys;
    std::unordered_map<const XmlDocument*, GenVector<uint32_t>, std::hash<const XmlDocument*>,
                       std::equal_to<const XmlDocument*>, GenAllocator<DocKeys>>
        docKeys;
    // The document of the slab switched to last, and its keys.
    const XmlDocument* lastDoc = nullptr;
    GenVector<uint32_t>* lastKeys = nullptr;
    // The document of the first slab switched to.
    const XmlDocument* firstDoc = nullptr;
    bool firstSwitch = true;

    // ---- Names: the distinct texts of the keys
    GenVector<const UCChar*> nameText;
    // Place + 1 of the definition of each name; 0 until it has one.
    GenVector<uint32_t> namePlace;
    // Names by text: open addressing over a power-of-two table, the hash in
    // the high half of a slot and the name + 1 in the low half; 0 is free.
    // The names of one document's table differ from each other, so the
    // table is made only once a name comes from elsewhere.
    WorkArray<uint64_t> nameSlots;

    // ---- Definitions, by place: the order in which the walk made them
    struct Place {
        XmlElementDef* def;
        XmlAttrList* list;  // of the same name; null until an instance has attributes
        uint32_t name;
        int type;
        // An instance without children came while the definition had no
        // shape list yet.
        bool childless;
        // An instance of mixed content had children: the model is
        // repeated.
        bool starred;
    };
    WorkArray<Place> places;
    // The names of the children of instances of mixed content, once for
    // each place: place << 32 | name, as a set and in order of arrival.
    WordSet members;
    WorkArray<uint64_t> memberOrder;

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
        uint32_t valueLengths[MaxValues];
        // Of each value its first and last unit, which with the length
        // mostly tell values apart without looking at their text.
        uint32_t valueEnds[MaxValues];
        // The index of the value, added if there is room, or NoValue.
        inline uint32_t Intern(const UCChar* value, size_t length);
    };
    WorkArray<AttrKey> attrKeys;
    // Attribute keys by key and name: open addressing over a power-of-two
    // table, the hash in the high half of a slot and the attribute key + 1
    // in the low half; 0 is free.
    WorkArray<uint64_t> attrSlots;
    // The attribute keys of each key with the first unit of their names,
    // in order of first appearance, as long as they are few: an element
    // name mostly has a handful of attribute names, which are looked
    // through one by one. A key with more finds them all in attrSlots.
    static constexpr size_t FewNames = 8;
    struct NameStart {
        UCChar first;
        uint32_t attrKey;
    };
    GenVector<GenVector<NameStart>> keyAttrs;

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
    ~GenWalk();

    // ---- Step one (xmlgather.cpp)
    // Writes the records of the tree from first, in document order, in
    // place of those of the tree before. Returns the place of the record of
    // the chain from first.
    uint32_t Gather(const XmlElement* first);

    // ---- Keys, names and attribute keys (xmlgenwalk.cpp)
    // Makes the document of the slab block the one NewKeyOf names keys of.
    void SwitchBlock(const XmlElementBlock* block);
    // The key of a node of the slab last switched to whose name id has no
    // key yet.
    uint32_t NewKeyOf(size_t id) {
        uint32_t& key = (*lastKeys)[id];
        if (id == 0) {
            key = NewKey(u"", false);
        } else {
            // A name with a unit 0 has a shorter text.
            const UCString& name = lastDoc->m_names[id - 1];
            key = NewKey(name.c_str(), lastDoc == firstDoc && !name.empty() && name.find(u'\0') == name.npos);
        }
        return key - 1;
    }
    // Key + 1 of a new key named text; unique: text is a name of the
    // first document's table, none of the first document's keys has it.
    uint32_t NewKey(const UCChar* text, bool unique);
    // The name of text, made if there is none.
    uint32_t NameOf(const UCChar* text, bool unique);
    uint32_t NewName(const UCChar* text);
    // The attribute key of name on elements of key, made if there is none.
    inline uint32_t AttrKeyOf(uint32_t key, const UCChar* name);
    // The same without the short list of the key; isNew tells that there is
    // none.
    uint32_t FindAttrKey(uint32_t key, const UCChar* name, bool isNew);
};

inline uint32_t XmlDocument::GenWalk::AttrKeyOf(uint32_t key, const UCChar* name) {
    GenVector<NameStart>& known = keyAttrs[key];
    if (known.size() < FewNames) {
        for (const NameStart& n : known)
            if (n.first == name[0] && OzmSameText(attrKeys[n.attrKey].name, attrKeys[n.attrKey].nameLength, name))
                return n.attrKey;
        uint32_t k = FindAttrKey(key, name, true);
        known.push_back(NameStart{name[0], k});
        return k;
    }
    return FindAttrKey(key, name, false);
}

inline uint32_t XmlDocument::GenWalk::AttrKey::Intern(const UCChar* value, size_t length) {
    if (valueCount == MaxValues || length > UINT32_MAX)
        return NoValue;
    uint32_t ends = length == 0 ? 0 : uint32_t(value[0]) << 16 | value[length - 1];
    for (uint32_t i = 0; i < valueCount; ++i)
        if (valueEnds[i] == ends && valueLengths[i] == length && OzmUnits::Same(values[i], value, length))
            return i;
    values[valueCount] = value;
    valueLengths[valueCount] = uint32_t(length);
    valueEnds[valueCount] = ends;
    return valueCount++;
}
