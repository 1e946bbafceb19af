// xmlgather.cpp - the first step of the walk of generation,
// XmlDocument::GenWalk::Gather: the tree is read in document order into one
// record per sibling chain (the format is told in xmlgenwalk.h), taking the
// measures of element data and attribute values and interning names and
// values on the way.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>
#include <string>

#include "dtdgen/xmlgenwalk.h"
#include "platform/units/ozmunits.h"

namespace {

// Places in the records and in the work lists are 32-bit: a tree whose
// records would outgrow them, one of more than a billion nodes, is turned
// down as if memory had run out.
inline uint32_t Place32(size_t place) {
    if (place > UINT32_MAX)
        throw std::bad_alloc();
    return uint32_t(place);
}

// Whether data holds a unit that is not white space; out of line, so that
// the test of the first unit stays small where it is inlined.
__attribute__((noinline)) bool ScanForText(const UCChar* data, size_t length) {
    return !OzmUnits::AllSpace(data, length);
}

// Whether an element's data holds text: mostly its first unit tells.
inline bool DataHasText(const UCChar* data, size_t length) {
    return length != 0 && (data[0] > 0x20 || ScanForText(data, length));
}

}  // namespace

// Step one of the walk: the records of the tree from first, in document
// order. Returns the place of the record of the chain from first.
uint32_t XmlDocument::GenWalk::Gather(const XmlElement* first) {
    records.clear();
    // Room for the records of the nodes in the slabs of the root's
    // document, which mostly hold the whole tree: three words a node cover
    // its key and flags, the place of its children's record and a few
    // attributes. Records that need more have the room grown.
    if (const XmlDocument* doc = first->m_block ? first->m_block->m_document : nullptr) {
        size_t count = 0;
        for (const XmlElementBlock* b = doc->m_elementBlocks; b; b = b->m_nextBlock)
            count += size_t(XmlElementBlock::Capacity - b->m_freeCount);
        records.reserve(3 * count);
    }

    WorkArray<uint64_t>& nodes = pendingNodes;
    WorkArray<uint32_t>& pending = pendingWords;

    // Writes the record of the pending nodes from index from on, whose
    // words start at wordsFrom, and drops them. Returns its place.
    auto writeRecord = [&](size_t from, size_t wordsFrom) {
        size_t n = nodes.size() - from;
        size_t flagWords = (n + 3) / 4;
        size_t words = pending.size() - wordsFrom;
        size_t size = 1 + n + flagWords + words;
        Place32(records.size() + size);
        uint32_t place = uint32_t(records.size());
        uint32_t* w = records.Extend(size);
        w[0] = uint32_t(n);
        w[n + flagWords] = 0;  // the padding behind the flags
        unsigned char* bytes = reinterpret_cast<unsigned char*>(w + 1 + n);
        const uint64_t* node = nodes.data() + from;
        for (size_t i = 0; i < n; ++i) {
            w[1 + i] = uint32_t(node[i]);
            bytes[i] = (unsigned char)(node[i] >> 32);
        }
        if (words)
            std::memcpy(w + 1 + n + flagWords, pending.data() + wordsFrom, words * sizeof *w);
        nodes.shrink(from);
        pending.shrink(wordsFrom);
        return place;
    };

    // Interns the attributes of e, whose name has the given key, into
    // pending words; returns the flags they add.
    auto gatherAttributes = [&](const XmlElement* e, uint32_t key) -> unsigned {
        const int attrCount = e->AttributeCount();
        const XmlElement::Attr* attrs = e->AttrItems();
        uint32_t* count = pending.Extend(1 + 2 * size_t(attrCount) + PointerWords);
        uint32_t* w = count + 1;
        bool node = false;
        for (int i = 0; i < attrCount; ++i) {
            uint32_t attrKey = AttrKeyOf(key, attrs[i].name);
            AttrKey& k = attrKeys[attrKey];
            const UCChar* value = attrs[i].value;
            size_t length = std::char_traits<UCChar>::length(value);
            k.maxLen = std::max(k.maxLen, int(length));
            uint32_t id = k.Intern(value, length);
            node |= id == NoValue;
            *w++ = attrKey;
            *w++ = id;
        }
        if (node) {
            w[PointerWords - 1] = 0;
            std::memcpy(w, &e, sizeof e);
            w += PointerWords;
        }
        *count = uint32_t(w - count - 1);
        pending.shrink(size_t(w - pending.data()));
        return node ? HasAttributes | HasNode : HasAttributes;
    };

    // The key of the name of the slab looked at last: neighbours mostly
    // share one.
    const XmlElementBlock* block = first->m_block;
    SwitchBlock(block);
    const uint32_t* blockKeys = lastKeys->data();
    size_t blockIds = lastKeys->size();
    int* maxLen = keyMaxLen.data();
    for (const XmlElement* e = first; e;) {
        // A parsed tree lies in its slabs in document order, and the text
        // of its nodes in the text stores in the same order: both are asked
        // for some way ahead (a prefetch never faults, wherever it points).
        uintptr_t ahead = reinterpret_cast<uintptr_t>(e) + 32 * sizeof *e;
        __builtin_prefetch(reinterpret_cast<const void*>(ahead));
        __builtin_prefetch(reinterpret_cast<const void*>(ahead + sizeof *e - 1));
        __builtin_prefetch(reinterpret_cast<const void*>(reinterpret_cast<uintptr_t>(e->m_data.data()) + 4096));
        if (e->m_block != block) {
            SwitchBlock(e->m_block);
            block = e->m_block;
            blockKeys = lastKeys->data();
            blockIds = lastKeys->size();
        }
        // An id outside the table names "", as XmlElement::Name tells.
        size_t id = size_t(unsigned(e->m_nameId));
        if (id >= blockIds)
            id = 0;
        uint32_t key = blockKeys[id] - 1;
        if (key == uint32_t(-1)) {
            key = NewKeyOf(id);
            maxLen = keyMaxLen.data();
        }
        maxLen[key] = std::max(maxLen[key], int(e->m_data.size()));
        unsigned facts = e->m_child ? HasChild : 0;
        size_t record = pending.size();
        if (e->m_child)
            pending.push_back(0);  // the place of the children's record
        if (e->AttributeCount())
            facts |= gatherAttributes(e, key);
        if (e->m_child) {
            nodes.push_back(uint64_t(facts) << 32 | key);
            // The text of an element lies behind that of its children: it
            // is asked for now and looked at once they are done.
            const XmlElement* data = nullptr;
            if (!e->m_data.empty()) {
                __builtin_prefetch(e->m_data.data());
                data = e;
            }
            open.push_back(
                Open{e->m_next, data, Place32(nodes.size() - 1), Place32(pending.size()), uint32_t(record)});
            e = e->m_child;
            continue;
        }
        if (DataHasText(e->m_data.data(), e->m_data.size()))
            facts |= HasText;
        nodes.push_back(uint64_t(facts) << 32 | key);
        const XmlElement* next = e->m_next;
        while (!next && !open.empty()) {
            Open o = open.back();
            open.pop_back();
            pending[o.record] = writeRecord(o.self + 1, o.words);
            if (o.data && DataHasText(o.data->m_data.data(), o.data->m_data.size()))
                nodes[o.self] |= uint64_t(HasText) << 32;
            next = o.next;
        }
        e = next;
    }
    return writeRecord(0, 0);
}
