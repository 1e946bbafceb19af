// XmlElement: links, attributes and the name held as an index into the
// document's name table.
#include <algorithm>
#include <cstring>
#include <new>

#include "xmldocument.h"
#include "platform/units/ozmunits.h"

const UCChar* XmlElement::Name() const {
    if (m_nameId == 0 || !m_block)
        return u"";
    return m_block->Document()->GetName(m_nameId - 1);
}

// Throughout, a null text counts as empty, and linking a null node does
// nothing. A setter that cannot get the memory for its new value leaves the
// old one.
void XmlElement::Name(const UCChar* name) {
    const int id = m_block->Document()->AddName(name);
    if (id >= 0)
        m_nameId = id + 1;
}

void XmlAttribute::Name(const UCChar* name) {
    try {
        m_name = name ? name : u"";
    } catch (const std::bad_alloc&) {
    }
}

void XmlAttribute::Value(const UCChar* value) {
    try {
        m_value = value ? value : u"";
    } catch (const std::bad_alloc&) {
    }
}

void XmlElement::Data(const UCChar* text) { m_data.Assign(text, text ? UCString::traits_type::length(text) : 0); }

void XmlElement::AddData(const UCChar* text) { m_data.Append(text, text ? UCString::traits_type::length(text) : 0); }

void XmlElement::AddAttribute(const UCChar* name, const UCChar* value) {
    if (!name)
        name = u"";
    if (!value)
        value = u"";
    const size_t n = UCString::traits_type::length(name);
    const size_t v = UCString::traits_type::length(value);
    UCChar* t = new (std::nothrow) UCChar[n + v + 2];
    if (!t)
        return;
    std::memcpy(t, name, (n + 1) * sizeof(UCChar));
    std::memcpy(t + n + 1, value, (v + 1) * sizeof(UCChar));
    const uint32_t count = m_attrCount & ~kHeapList;
    AttrList* list = m_attrs;
    if (!(m_attrCount & kHeapList) || count == list->capacity) {
        // A new heap list: the first, one out of the slab, or one of twice
        // the capacity.
        const uint32_t capacity = count < 4 ? 4 : 2 * count;
        if (count >= kHeapList / 2 || !(list = static_cast<AttrList*>(::operator new(
                                            sizeof(AttrList) + capacity * sizeof(Attr), std::nothrow)))) {
            delete[] t;
            return;
        }
        list->capacity = capacity;
        list->borrowed = m_attrs ? m_attrs->borrowed : 0;
        if (count)
            std::memcpy(static_cast<void*>(list->Items()), m_attrs->Items(), count * sizeof(Attr));
        if (m_attrCount & kHeapList)
            ::operator delete(m_attrs);
        m_attrs = list;
    }
    list->Items()[count] = Attr{t, t + n + 1};
    m_attrCount = (count + 1) | kHeapList;
}

void XmlElement::AddParsedAttribute(const UCChar* name, size_t nameLength, const UCChar* value, size_t valueLength) {
    const uint32_t count = m_attrCount;
    if (!m_attrs || count == m_attrs->capacity) {
        const uint32_t capacity = count < 4 ? 4 : 2 * count;
        if (count >= kHeapList / 2)
            throw std::bad_alloc();
        AttrList* list = static_cast<AttrList*>(m_block->AlignedRoom(sizeof(AttrList) + capacity * sizeof(Attr)));
        list->capacity = capacity;
        if (count)
            std::memcpy(static_cast<void*>(list->Items()), m_attrs->Items(), count * sizeof(Attr));
        m_attrs = list;
    }
    UCChar* t = m_block->TextRoom(nameLength + 1 + valueLength);
    OzmUnits::Copy(t, name, nameLength);
    t[nameLength] = 0;
    OzmUnits::Copy(t + nameLength + 1, value, valueLength);
    m_attrs->Items()[count] = Attr{t, t + nameLength + 1};
    m_attrs->borrowed = count + 1;
    m_attrCount = count + 1;
}

void XmlElement::FreeAttributes() {
    if (m_attrCount & kHeapList) {
        const uint32_t count = m_attrCount & ~kHeapList;
        for (uint32_t i = m_attrs->borrowed; i < count; ++i)
            delete[] m_attrs->Items()[i].name;
        ::operator delete(m_attrs);
    }
    m_attrs = nullptr;
    m_attrCount = 0;
}

// Both may be given a part of the node's own text: the new buffer is filled
// before the old one is freed.
void XmlElement::Text::Assign(const UCChar* p, size_t n) {
    if (n == 0) {
        Clear();
        return;
    }
    UCChar* t = new (std::nothrow) UCChar[n + 1];
    if (!t)
        return;
    std::memcpy(t, p, n * sizeof(UCChar));
    t[n] = 0;
    Free();
    m_p = t;
    m_size = n;
    m_capacity = n + 1;
}

void XmlElement::Text::Append(const UCChar* p, size_t n) {
    if (n == 0)
        return;
    if (m_size + n < m_capacity) {
        // In place: p is outside the units written to, or a part of the
        // text before them.
        UCChar* t = const_cast<UCChar*>(m_p);
        std::memcpy(t + m_size, p, n * sizeof(UCChar));
        m_size += n;
        t[m_size] = 0;
        return;
    }
    const size_t capacity = std::max(m_size + n + 1, 2 * m_capacity);
    UCChar* t = new (std::nothrow) UCChar[capacity];
    if (!t)
        return;
    std::memcpy(t, m_p, m_size * sizeof(UCChar));
    std::memcpy(t + m_size, p, n * sizeof(UCChar));
    t[m_size + n] = 0;
    Free();
    m_p = t;
    m_size += n;
    m_capacity = capacity;
}

void XmlElement::Next(XmlElement* e) {
    if (!e)
        return;
    XmlElement* last = this;
    while (last->m_next)
        last = last->m_next;
    last->m_next = e;
    e->m_parent = m_parent;
}

void XmlElement::InsertNext(XmlElement* e) {
    if (!e)
        return;
    e->m_next = m_next;
    m_next = e;
    e->m_parent = m_parent;
}

XmlElement* XmlElement::FindNext(const UCChar* name) const {
    if (!name)
        name = u"";
    for (XmlElement* e = m_next; e; e = e->m_next) {
        const UCChar* n = e->Name();
        size_t i = 0;
        while (n[i] == name[i] && n[i] != 0)
            ++i;
        if (n[i] == name[i])
            return e;
    }
    return nullptr;
}

XmlElement* XmlElement::Last() const {
    XmlElement* e = m_next;
    if (!e)
        return nullptr;
    while (e->m_next)
        e = e->m_next;
    return e;
}

void XmlElement::Child(XmlElement* e) {
    if (!e)
        return;
    e->m_parentPos = int(m_data.size());
    if (m_child)
        m_child->Next(e);
    else
        m_child = e;
    e->m_parent = this;
}

void XmlElement::InsertChild(XmlElement* e) {
    if (!e)
        return;
    e->m_parentPos = int(m_data.size());
    e->m_next = m_child;
    m_child = e;
    e->m_parent = this;
}

const UCChar* XmlElement::GetAttributeValue(const UCChar* name) const {
    if (!name)
        name = u"";
    const Attr* items = AttrItems();
    for (int k = 0, count = AttributeCount(); k < count; ++k) {
        const UCChar* n = items[k].name;
        size_t i = 0;
        while (n[i] == name[i] && n[i] != 0)
            ++i;
        if (n[i] == name[i])
            return items[k].value;
    }
    return nullptr;
}

const UCChar* XmlElement::GetAttributeValue(int i) const {
    if (i < 0 || i >= AttributeCount())
        return nullptr;
    return m_attrs->Items()[i].value;
}

const UCChar* XmlElement::GetAttributeName(int i) const {
    if (i < 0 || i >= AttributeCount())
        return nullptr;
    return m_attrs->Items()[i].name;
}

void XmlElement::Release() { m_block->FreeElement(this); }
