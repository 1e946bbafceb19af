// xmltextstore.h - the inline copies of parsed text and attributes into the
// text store of their slab.
#pragma once

#include "platform/units/ozmunits.h"
#include "xmltree.h"

inline const UCChar* XmlElementBlock::StoreText(const UCChar* p, size_t n) {
    UCChar* t = TextRoom(n);
    OzmUnits::Copy(t, p, n);
    return t;
}

// The attributes of a start tag, all in one piece of the text store: the
// list, then each name and value with a 0 behind it.
template <class A>
OZM_ALWAYS_INLINE void XmlElement::TakeParsedAttributes(const A* attrs, int count) {
    size_t units = 0;
    for (int i = 0; i < count; ++i)
        units += size_t(attrs[i].nameEnd - attrs[i].name) + size_t(attrs[i].valueEnd - attrs[i].value) + 2;
    const size_t head = sizeof(AttrList) + size_t(count) * sizeof(Attr);
    char* room = static_cast<char*>(m_block->AlignedRoom(head + units * sizeof(UCChar)));
    AttrList* list = reinterpret_cast<AttrList*>(room);
    list->capacity = uint32_t(count);
    list->borrowed = uint32_t(count);
    Attr* items = list->Items();
    UCChar* t = reinterpret_cast<UCChar*>(room + head);
    for (int i = 0; i < count; ++i) {
        const size_t n = size_t(attrs[i].nameEnd - attrs[i].name);
        OzmUnits::Copy(t, attrs[i].name, n);
        t[n] = 0;
        items[i].name = t;
        t += n + 1;
        const size_t v = size_t(attrs[i].valueEnd - attrs[i].value);
        OzmUnits::Copy(t, attrs[i].value, v);
        t[v] = 0;
        items[i].value = t;
        t += v + 1;
    }
    m_attrs = list;
    m_attrCount = uint32_t(count);
}

