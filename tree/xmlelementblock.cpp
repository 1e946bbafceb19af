// XmlElementBlock: a slab of 1000 nodes handed out through a LIFO free list.
#include <algorithm>
#include <new>

#include "tree/xmlblockcache.h"
#include "xmldocument.h"

XmlElementBlock::XmlElementBlock(XmlDocument* document) : m_document(document) { Reset(); }

XmlElementBlock::~XmlElementBlock() {
    for (int i = 0; i < m_constructed; ++i)
        m_nodes[i].~XmlElement();
    FreeTextChunks(m_textChunks);
    FreeTextChunks(m_spareChunks);
}

void XmlElementBlock::Reset() {
    m_firstFree = nullptr;
    m_unused = 0;
    m_freeCount = Capacity;
    // The chunks in use go in front of the spares, reversed into the order
    // of their allocation.
    while (m_textChunks) {
        TextChunk* next = m_textChunks->next;
        m_textChunks->next = m_spareChunks;
        m_spareChunks = m_textChunks;
        m_textChunks = next;
    }
    m_textNext = m_textEnd = nullptr;
    m_fillUnits = 0;
}

void XmlElementBlock::FreeSpareText() {
    FreeTextChunks(m_spareChunks);
    m_spareChunks = nullptr;
}

void XmlElementBlock::FreeTextChunks(TextChunk* from) {
    while (from) {
        TextChunk* next = from->next;
        if (!XmlBlockCache::Give(from, sizeof(TextChunk) + from->units * sizeof(UCChar)))
            ::operator delete(from);
        from = next;
    }
}

// Chunks grow from 4 to 64 KB as a slab fills, each a power of two in all,
// its header included, which allocators serve without waste. A text too long
// for a quarter of the largest chunk gets a chunk of its own, and the one
// being filled goes on being filled.
UCChar* XmlElementBlock::TextRoomInNewChunk(size_t n) {
    constexpr size_t kFirstBytes = 4096, kLargestBytes = 65536;
    constexpr size_t kLargestUnits = (kLargestBytes - sizeof(TextChunk)) / sizeof(UCChar);
    const bool own = n + 1 > kLargestUnits / 4;
    size_t units = n + 1;
    if (!own) {
        // Twice the chunk before, or the first size; then doubled until the
        // text fits, which it does in the largest chunk at the latest.
        size_t bytes = m_fillUnits ? std::min(2 * (sizeof(TextChunk) + m_fillUnits * sizeof(UCChar)), kLargestBytes)
                                   : kFirstBytes;
        // Once most nodes are handed out, the rest need about as much text
        // each as those before: a smaller chunk may hold it all, where a
        // doubled one would stay mostly empty.
        if (m_fillUnits && m_unused > 0) {
            size_t used = 0;
            for (const TextChunk* c = m_textChunks; c; c = c->next)
                used += c->units * sizeof(UCChar);
            const size_t expect = used / size_t(m_unused) * size_t(Capacity - m_unused + 8) + 2 * (n + 1);
            size_t fit = kFirstBytes;
            while (fit < bytes && fit - sizeof(TextChunk) < expect)
                fit *= 2;
            bytes = fit;
        }
        while ((bytes - sizeof(TextChunk)) / sizeof(UCChar) < n + 1)
            bytes *= 2;
        units = (bytes - sizeof(TextChunk)) / sizeof(UCChar);
    }
    // A spare too small for the text is given back rather than passed over,
    // so that the spares keep being taken in their order.
    TextChunk* chunk = nullptr;
    while (m_spareChunks && !chunk) {
        TextChunk* spare = m_spareChunks;
        m_spareChunks = spare->next;
        if (spare->units >= units) {
            chunk = spare;
            units = spare->units;
        } else {
            ::operator delete(spare);
        }
    }
    if (!chunk) {
        const size_t bytes = sizeof(TextChunk) + units * sizeof(UCChar);
        void* kept = XmlBlockCache::Take(bytes);
        chunk = static_cast<TextChunk*>(kept ? kept : ::operator new(bytes));
        chunk->units = units;
    }
    UCChar* t = chunk->Units();
    t[n] = 0;
    // The list holds the chunks newest first, so that Reset can keep them
    // in their order; a text of its own leaves the chunk being filled.
    chunk->next = m_textChunks;
    m_textChunks = chunk;
    if (!own) {
        m_textNext = t + n + 1;
        m_textEnd = t + units;
        m_fillUnits = units;
    }
    return t;
}

void XmlElementBlock::FreeElement(XmlElement* e) {
    e->Clear();
    e->m_next = m_firstFree;
    m_firstFree = e;
    ++m_freeCount;
}
