// XmlElement: links, attributes and the name held as an index into the
// document's name table.
#include <algorithm>
#include <cstring>
#include <new>

#include "xmldocument.h"

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
    try {
        m_attributes.emplace_back(name, value);
    } catch (const std::bad_alloc&) {
    }
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
    for (const XmlAttribute& a : m_attributes) {
        const UCChar* n = a.Name();
        size_t i = 0;
        while (n[i] == name[i] && n[i] != 0)
            ++i;
        if (n[i] == name[i])
            return a.Value();
    }
    return nullptr;
}

const UCChar* XmlElement::GetAttributeValue(int i) const {
    if (i < 0 || i >= AttributeCount())
        return nullptr;
    return m_attributes[size_t(i)].Value();
}

const UCChar* XmlElement::GetAttributeName(int i) const {
    if (i < 0 || i >= AttributeCount())
        return nullptr;
    return m_attributes[size_t(i)].Name();
}

void XmlElement::Clear() {
    m_child = nullptr;
    m_parent = nullptr;
    m_next = nullptr;
    m_attributes.clear();
    m_nameId = 0;
    m_data.Clear();
    m_mark = 0;
}

void XmlElement::Release() { m_block->FreeElement(this); }
