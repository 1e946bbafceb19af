// xmlbuilddtdelement.cpp - the second step of the walk of generation,
// XmlDocument::BuildDTDElement: the records of the first step are visited in
// the order of generation, which makes the element definitions, and what
// each instance shows is recorded: its kind of content, its child shape,
// the members of mixed content and the attribute definitions with their
// enumerations. The content models and length attributes are made at the
// end of generation (xmlgenerate.cpp).
#include <cstdint>
#include <cstring>
#include <new>

#include "dtdgen/xmlgenwalk.h"

namespace {

inline ChildSequenceList* ShapesOf(const XmlElementDef* def) {
    return static_cast<ChildSequenceList*>(def->InfoPointer());
}

}  // namespace

void XmlDocument::BuildDTDElement(const XmlElement* first, GenWalk& walk) {
    uint32_t top = walk.Gather(first);

    // The place of the definition of a key's name, made when the name is
    // first met: type EMPTY and no shape list. The definition was cleared
    // before, so the walk's names know every definition there is.
    auto newPlace = [&](uint32_t key) -> uint32_t {
        const uint32_t name = walk.keyName[key];
        uint32_t place = walk.namePlace[name];
        if (place) {
            --place;
        } else {
            if (walk.places.size() >= GenWalk::MaxPlaces)
                throw std::bad_alloc();
            place = uint32_t(walk.places.size());
            XmlElementDef* def = XmlRequired(m_dtd.AddElement(walk.nameText[name]));
            def->Type(elemEmpty);
            walk.places.push_back(GenWalk::Place{def, nullptr, name, elemEmpty, false, false});
            walk.namePlace[name] = place + 1;
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
        XmlAttrList*& list = walk.places[place].list;
        if (!list)
            list = XmlRequired(m_dtd.AddAttrList(walk.places[place].def->Name()));
        // The node's attributes are in the order of their words; the node
        // is read only for a value that was not interned, and from where
        // the last one was read.
        for (size_t index = 0; at < end; at += 2, ++index) {
            GenWalk::AttrKey& k = walk.attrKeys[at[0]];
            uint32_t id = at[1];
            XmlAttDef* att = k.def;
            if (!att) {
                // Keys of other documents may have made it already.
                att = list->FindModifiableAttDef(k.name);
                if (!att) {
                    att = XmlRequired(list->AddAttDef(k.name));
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
                value = node->GetAttributeValue(int(index));
            }
            if (att->FindEnum(value) < 0) {
                const int before = att->EnumCount();
                att->AddEnum(value);
                XmlRequired(att->EnumCount() > before);
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
        XmlElementDef* def = walk.places[place].def;
        int type = walk.places[place].type;
        if (facts & GenWalk::HasChild && type == elemEmpty)
            type = elemChildren;
        if (facts & GenWalk::HasText && type != elemMixed) {
            type = elemMixed;
            delete ShapesOf(def);
            def->InfoPointer(nullptr);
        }

        // The shape list of element content is made for the first instance
        // with children; one without tells only that the list is settled.
        ChildSequenceList* shapes = ShapesOf(def);
        if (type != elemMixed) {
            if (!(facts & GenWalk::HasChild)) {
                if (shapes)
                    shapes->RecordEmpty();
                else
                    walk.places[place].childless = true;
            } else if (!shapes) {
                shapes = new ChildSequenceList(walk.places[place].childless);
                def->InfoPointer(shapes);
            }
        }
        // A list that is not settled takes the instance's whole sequence.
        bool sequence = shapes && !shapes->Settled() && facts & GenWalk::HasChild;
        if (facts & GenWalk::HasChild) {
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
                plain = plain && keyMixed[keys[i]] &&
                        !(childFlags[i] & (GenWalk::HasChild | GenWalk::HasAttributes));
                return keys[i];
            };
            if (type == elemMixed) {
                // Each name once; an unnamed child never becomes a member,
                // since an empty name is taken to be in any group.
                walk.places[place].starred = true;
                for (size_t i = 0; i < n; ++i) {
                    uint32_t name = walk.keyName[look(i)];
                    uint64_t member = uint64_t(place) << 32 | name;
                    if (walk.members.Insert(member) && walk.nameText[name][0] != 0)
                        walk.memberOrder.push_back(member);
                }
            } else if (sequence) {
                seq.Fold(n, [&](size_t i) { return placeOf(look(i)); });
            } else {
                for (size_t i = 0; i < n; ++i)
                    shapes->Gather(placeOf(look(i)));
            }
            if (!plain)
                walk.childChains.push_back(record);
        }
        // The shape is entered after the attributes, which leaves the
        // memory time to bring its slot in the table.
        if (sequence)
            shapes->Prefetch(seq.m_hash);
        if (type != walk.places[place].type) {
            walk.places[place].type = type;
            def->Type(type);
        }
        if (type == elemMixed)
            keyMixed[key] = 1;
        if (facts & GenWalk::HasAttributes) {
            size_t count = *extra++;
            const uint32_t* end = extra + count;
            const XmlElement* node = nullptr;
            if (facts & GenWalk::HasNode) {
                end -= GenWalk::PointerWords;
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
            while (!(chainFlags[i] & (GenWalk::HasChild | GenWalk::HasAttributes)) && keyMixed[chainKeys[i]])
                if (++i == n)
                    break;
            if (i == n)
                break;
            visit(chainKeys[i], chainFlags[i], extra);
        }
        for (size_t i = walk.childChains.size(); i-- > 0;)
            walk.chains.push_back(walk.childChains[i]);
    }
}
