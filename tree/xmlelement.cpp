// XmlElement: links, attributes and the name held as an index into the
// document's name table.
#include "xmldocument.h"

const UCChar* XmlElement::Name() const {
    if (m_nameId == 0 || !m_block)
        return u"";
    return m_block->Document()->GetName(m_nameId - 1);
}

void XmlElement::Name(const UCChar* name) { m_nameId = m_block->Document()->AddName(name) + 1; }

void XmlAttribute::Name(const UCChar* name) { m_name = name; }

void XmlAttribute::Value(const UCChar* value) { m_value = value; }

void XmlElement::Data(const UCChar* text) { m_data = text; }

void XmlElement::AddData(const UCChar* text) { m_data += text; }

void XmlElement::Next(XmlElement* e) {
    XmlElement* last = this;
    while (last->m_next)
        last = last->m_next;
    last->m_next = e;
    e->m_parent = m_parent;
}

void XmlElement::InsertNext(XmlElement* e) {
    e->m_next = m_next;
    m_next = e;
    e->m_parent = m_parent;
}

XmlElement* XmlElement::FindNext(const UCChar* name) const {
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
    e->m_parentPos = int(m_data.size());
    if (m_child)
        m_child->Next(e);
    else
        m_child = e;
    e->m_parent = this;
}

void XmlElement::InsertChild(XmlElement* e) {
    e->m_parentPos = int(m_data.size());
    e->m_next = m_child;
    m_child = e;
    e->m_parent = this;
}

const UCChar* XmlElement::GetAttributeValue(const UCChar* name) const {
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
    m_data.clear();
    m_mark = 0;
}

void XmlElement::Release() { m_block->FreeElement(this); }
