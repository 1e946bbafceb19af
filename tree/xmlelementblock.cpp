// XmlElementBlock: a slab of 1000 nodes handed out through a LIFO free list.
#include <new>

#include "xmldocument.h"

XmlElementBlock::XmlElementBlock(XmlDocument* document) : m_document(document) { Reset(); }

XmlElementBlock::~XmlElementBlock() {
    for (int i = 0; i < m_constructed; ++i)
        m_nodes[i].~XmlElement();
}

void XmlElementBlock::Reset() {
    m_firstFree = nullptr;
    m_unused = 0;
    m_freeCount = Capacity;
}

XmlElement* XmlElementBlock::NewElement() {
    XmlElement* e = m_firstFree;
    if (e) {
        m_firstFree = e->m_next;
        e->Clear();
    } else {
        if (m_unused == Capacity)
            return nullptr;
        e = &m_nodes[m_unused];
        if (m_unused++ == m_constructed) {
            new (e) XmlElement();  // cleared by construction
            ++m_constructed;
        } else {
            e->Clear();
        }
    }
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
