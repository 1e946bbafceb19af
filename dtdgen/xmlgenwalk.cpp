// xmlgenwalk.cpp - XmlDocument::GenWalk: keys, names and attribute keys, and
// the end of a walk. The first step of the walk, GenWalk::Gather, is in
// xmlgather.cpp.
#include "dtdgen/xmlgenwalk.h"

namespace {

// Doubles a table of hash << 32 | index + 1 and enters every slot again.
void GrowSlots(WorkArray<uint64_t>& slots) {
    WorkArray<uint64_t> old;
    old.Assign(slots.empty() ? 64 : 2 * slots.size(), 0);
    old.swap(slots);
    const size_t mask = slots.size() - 1;
    for (size_t i = 0; i < old.size(); ++i) {
        if (!old[i])
            continue;
        size_t slot = (old[i] >> 32) & mask;
        while (slots[slot])
            slot = (slot + 1) & mask;
        slots[slot] = old[i];
    }
}


// Enters index under hash in a table with room for it.
void EnterSlot(WorkArray<uint64_t>& slots, uint32_t hash, uint32_t index) {
    const size_t mask = slots.size() - 1;
    size_t slot = hash & mask;
    while (slots[slot])
        slot = (slot + 1) & mask;
    slots[slot] = uint64_t(hash) << 32 | (index + 1);
}

// The hash of a name's text, and its length, in one go.
std::pair<uint32_t, size_t> HashText(const UCChar* text) {
    uint64_t h = 0x9E3779B97F4A7C15ull;
    size_t length = 0;
    for (; text[length]; ++length)
        h = (h ^ text[length]) * 0xFF51AFD7ED558CCDull;
    return {uint32_t(h >> 32), length};
}

}  // namespace

XmlDocument::GenWalk::~GenWalk() {
    for (size_t i = 0; i < places.size(); ++i)
        delete static_cast<ChildSequenceList*>(places[i].def->InfoPointer(nullptr));
}

void XmlDocument::GenWalk::SwitchBlock(const XmlElementBlock* block) {
    lastDoc = block ? block->m_document : nullptr;
    if (firstSwitch) {
        firstDoc = lastDoc;
        firstSwitch = false;
    }
    lastKeys = &docKeys[lastDoc];
    if (lastKeys->empty())
        lastKeys->resize(lastDoc ? lastDoc->m_names.size() + 1 : 1, 0);
}

uint32_t XmlDocument::GenWalk::NewKey(const UCChar* text, bool unique) {
    uint32_t name = NameOf(text, unique);
    keyName.push_back(name);
    keyMaxLen.push_back(0);
    keyPlace.push_back(0);
    keyMixed.push_back(0);
    keyAttrs.emplace_back();
    return uint32_t(keyName.size());
}

uint32_t XmlDocument::GenWalk::NameOf(const UCChar* text, bool unique) {
    if (nameSlots.empty()) {
        if (unique)
            return NewName(text);
        // The first name from elsewhere: every name made so far goes in.
        while ((nameText.size() + 1) * 2 > nameSlots.size())
            GrowSlots(nameSlots);
        for (uint32_t name = 0; name < nameText.size(); ++name)
            EnterSlot(nameSlots, HashText(nameText[name]).first, name);
    }
    const std::pair<uint32_t, size_t> hashed = HashText(text);
    if ((nameText.size() + 1) * 2 > nameSlots.size())
        GrowSlots(nameSlots);
    const size_t mask = nameSlots.size() - 1;
    for (size_t slot = hashed.first & mask; nameSlots[slot]; slot = (slot + 1) & mask) {
        if (uint32_t(nameSlots[slot] >> 32) != hashed.first)
            continue;
        uint32_t name = uint32_t(nameSlots[slot]) - 1;
        if (OzmSameText(text, hashed.second, nameText[name]))
            return name;
    }
    EnterSlot(nameSlots, hashed.first, uint32_t(nameText.size()));
    return NewName(text);
}

uint32_t XmlDocument::GenWalk::NewName(const UCChar* text) {
    const uint32_t name = uint32_t(nameText.size());
    nameText.push_back(text);
    namePlace.push_back(0);
    return name;
}

uint32_t XmlDocument::GenWalk::FindAttrKey(uint32_t key, const UCChar* name, bool isNew) {
    // The name is measured and hashed in one go.
    uint64_t h = (uint64_t(key) + 1) * 0x9E3779B97F4A7C15ull;
    size_t length = 0;
    for (; name[length]; ++length)
        h = (h ^ name[length]) * 0xFF51AFD7ED558CCDull;
    const uint32_t hash = uint32_t(h >> 32);
    if ((attrKeys.size() + 1) * 2 > attrSlots.size())
        GrowSlots(attrSlots);
    const size_t mask = attrSlots.size() - 1;
    size_t slot = hash & mask;
    for (; attrSlots[slot]; slot = (slot + 1) & mask) {
        if (isNew || uint32_t(attrSlots[slot] >> 32) != hash)
            continue;
        uint32_t k = uint32_t(attrSlots[slot]) - 1;
        const AttrKey& a = attrKeys[k];
        if (a.key == key && a.nameLength == length && OzmUnits::Same(a.name, name, length))
            return k;
    }
    const uint32_t k = uint32_t(attrKeys.size());
    attrKeys.push_back(AttrKey{key, name, length, 0, nullptr, 0, 0, {}, {}, {}});
    attrSlots[slot] = uint64_t(hash) << 32 | (k + 1);
    return k;
}
