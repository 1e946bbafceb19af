// XmlElementBlock: a slab of 1000 nodes handed out through a LIFO free list.
#include "xmldocument.h"

XmlElementBlock::XmlElementBlock(XmlDocument* document) : m_document(document) { Reset(); }

void XmlElementBlock::Reset() {
    for (int i = 0; i < Capacity - 1; ++i)
        m_nodes[i].m_next = &m_nodes[i + 1];
    m_nodes[Capacity - 1].m_next = nullptr;
    m_firstFree = &m_nodes[0];
    m_freeCount = Capacity;
}

XmlElement* XmlElementBlock::NewElement() {
    XmlElement* e = m_firstFree;
    if (!e)
        return nullptr;
    m_firstFree = e->m_next;
    e->Clear();
    e->m_block = this;
    --m_freeCount;
    return e;
}

void XmlElementBlock::FreeElement(XmlElement* e) {
    e->Clear();
    e->m_next = m_firstFree;
    m_firstFree = e;
    ++m_freeCount;
}
