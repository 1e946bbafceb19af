// XmlDocument: construction, copies, the slab chain and the name table.
//
// Copies share the element tree. While two or more documents share a slab
// chain they are listed in one XmlBlockShare: all of them keep the same head
// in m_elementBlocks, a name added through any of them is added to all their
// name tables (so a node's name id means the same wherever it is read), and
// none of them frees or resets a shared slab. A document that clears,
// reparses, is assigned to or is destroyed leaves the share instead: the
// slabs it made are handed to a remaining member, and the last member left
// owns the chain alone again.
#include <algorithm>
#include <cstring>
#include <new>

#include "input/xmlcharstream.h"
#include "input/xmlpushstack.h"
#include "platform/ozmmem.h"
#include "tree/xmlblockcache.h"

struct XmlBlockShare {
    std::vector<XmlDocument*> members;
};

XmlDocument::XmlDocument() = default;

XmlDocument::XmlDocument(const XmlDocument& other)
    : m_errorMessage(other.m_errorMessage),
      m_errorFile(other.m_errorFile),
      m_errorLine(other.m_errorLine),
      m_errorCol(other.m_errorCol),
      m_line(other.m_line),
      m_col(other.m_col),
      m_fileName(other.m_fileName),
      m_validate(other.m_validate),
      m_rootElement(other.m_rootElement),
      m_elementStack(other.m_elementStack),
      m_version(other.m_version),
      m_encoding(other.m_encoding),
      m_standalone(other.m_standalone),
      m_dtd(other.m_dtd),
      m_trackMaxLen(other.m_trackMaxLen),
      m_pushBack(other.m_pushBack),
      m_pushTop(other.m_pushTop),
      m_hasPushTop(other.m_hasPushTop),
      m_pushPending(other.m_pushPending),
      m_sourceDir(other.m_sourceDir),
      m_token(other.m_token),
      m_refText(other.m_refText),
      m_names(other.m_names),
      m_nameIndex(other.m_nameIndex),
      m_errorFileStale(true),
      m_dataNulls(other.m_dataNulls) {
    for (int i = 0; i < MaxDepth; ++i)
        m_depthData[i] = other.m_depthData[i];
    // The input source belongs to the parse call of the original; a copy is
    // idle, with no source, whenever it is taken.
    JoinBlocks(other);
}

XmlDocument& XmlDocument::operator=(const XmlDocument& other) {
    if (this == &other)
        return *this;
    ReleaseBlocks();
    m_errorMessage = other.m_errorMessage;
    m_errorFile = other.m_errorFile;
    m_errorLine = other.m_errorLine;
    m_errorCol = other.m_errorCol;
    m_line = other.m_line;
    m_col = other.m_col;
    m_fileName = other.m_fileName;
    m_validate = other.m_validate;
    m_rootElement = other.m_rootElement;
    m_elementStack = other.m_elementStack;
    m_version = other.m_version;
    m_encoding = other.m_encoding;
    m_standalone = other.m_standalone;
    m_dtd = other.m_dtd;
    m_trackMaxLen = other.m_trackMaxLen;
    m_pushBack = other.m_pushBack;
    m_pushTop = other.m_pushTop;
    m_hasPushTop = other.m_hasPushTop;
    m_pushPending = other.m_pushPending;
    m_sourceFile = nullptr;
    m_sourceDir = other.m_sourceDir;
    m_sourceString = nullptr;
    m_stringCursor = nullptr;
    m_stringEnd = nullptr;
    m_lwio = nullptr;
    m_notifier = nullptr;
    for (int i = 0; i < MaxDepth; ++i)
        m_depthData[i] = other.m_depthData[i];
    m_token = other.m_token;
    m_refText = other.m_refText;
    m_names = other.m_names;
    m_nameIndex = other.m_nameIndex;
    m_errorFileStale = true;
    m_dataNulls = other.m_dataNulls;
    std::fill(std::begin(m_nameCache), std::end(m_nameCache), 0);
    JoinBlocks(other);
    return *this;
}

static void DestroyBlock(XmlElementBlock* b);

XmlDocument::~XmlDocument() {
    XmlBlockCache::Release release;
    Clear();
    ReleaseBlocks();
}

void XmlDocument::FreeSpareBlocks() {
    while (m_spareBlocks) {
        XmlElementBlock* next = m_spareBlocks->m_nextBlock;
        DestroyBlock(m_spareBlocks);
        m_spareBlocks = next;
    }
}

// Makes this document a member of other's slab chain.
void XmlDocument::JoinBlocks(const XmlDocument& other) {
    m_elementBlocks = other.m_elementBlocks;
    if (!m_elementBlocks)
        return;
    XmlDocument& owner = const_cast<XmlDocument&>(other);
    if (!owner.m_blockShare) {
        owner.m_blockShare = new XmlBlockShare;
        owner.m_blockShare->members.push_back(&owner);
    }
    m_blockShare = owner.m_blockShare;
    m_blockShare->members.push_back(this);
}

static void DestroyBlock(XmlElementBlock* b) {
    b->~XmlElementBlock();
    if (!XmlBlockCache::Give(b, sizeof(XmlElementBlock)))
        OzmMemFree(b);
}

// Gives up this document's hold on its slab chain: frees it when this
// document owns it alone, otherwise leaves the share.
void XmlDocument::ReleaseBlocks() {
    if (m_blockShare) {
        std::vector<XmlDocument*>& members = m_blockShare->members;
        members.erase(std::remove(members.begin(), members.end(), this), members.end());
        XmlDocument* heir = members.front();
        for (XmlElementBlock* b = m_elementBlocks; b; b = b->m_nextBlock)
            if (b->m_document == this)
                b->m_document = heir;
        if (members.size() == 1) {
            heir->m_blockShare = nullptr;
            delete m_blockShare;
        }
        m_blockShare = nullptr;
    } else {
        while (m_elementBlocks) {
            XmlElementBlock* next = m_elementBlocks->m_nextBlock;
            DestroyBlock(m_elementBlocks);
            m_elementBlocks = next;
        }
    }
    m_elementBlocks = nullptr;
}

void XmlDocument::Clear() {
    XmlBlockCache::Release release;
    ClearTree();
    FreeSpareBlocks();
    m_input.reset();
}

void XmlDocument::ClearTree() {
    m_dtd.Clear();
    m_rootElement = nullptr;
    if (m_blockShare) {
        ReleaseBlocks();
    } else {
        // The slabs in use go in front of the spares, reversed into the
        // order of their allocation.
        while (m_elementBlocks) {
            XmlElementBlock* next = m_elementBlocks->m_nextBlock;
            m_elementBlocks->Reset();
            m_elementBlocks->m_nextBlock = m_spareBlocks;
            m_spareBlocks = m_elementBlocks;
            m_elementBlocks = next;
        }
    }
    m_elementStack.clear();
}

void XmlDocument::KeepOnlyUsed() {
    FreeSpareBlocks();
    for (XmlElementBlock* b = m_elementBlocks; b; b = b->m_nextBlock)
        if (b->m_document == this)
            b->FreeSpareText();
}

void XmlDocument::InitParser() {
    m_encoding = csetUTF8;
    m_version = 1.0;
    m_standalone = true;
    PushStack().clear();
    m_hasPushTop = false;
    m_pushPending = false;
    ClearTree();
}

XmlElement* XmlDocument::NewElement() {
    if (m_elementBlocks && m_elementBlocks->FreeCount() != 0)
        return m_elementBlocks->NewElement();
    XmlElementBlock* block = m_spareBlocks;
    if (block) {
        m_spareBlocks = block->m_nextBlock;
    } else {
        void* mem = XmlBlockCache::Take(sizeof(XmlElementBlock));
        if (!mem)
            mem = OzmMemAlloc(sizeof(XmlElementBlock));
        if (!mem)
            return nullptr;
        block = new (mem) XmlElementBlock(this);
    }
    block->m_nextBlock = m_elementBlocks;
    if (m_blockShare) {
        for (XmlDocument* d : m_blockShare->members)
            d->m_elementBlocks = block;
    } else {
        m_elementBlocks = block;
    }
    return block->NewElement();
}

int XmlDocument::AddName(const UCChar* name) {
    return name ? AddName(name, UCString::traits_type::length(name)) : AddName(u"", 0);
}

int XmlDocument::AddName(const UCChar* name, size_t length) {
    try {
        return InternName(name, length);
    } catch (const std::bad_alloc&) {
        return -1;
    }
}

namespace {

// The slot of a name in an index of mask + 1 slots: the hash's bits spread
// by a multiplication, whose high half is taken.
size_t NameHash(std::u16string_view name) {
    return size_t((uint64_t(OzmHashUnits(name.data(), name.size())) * 0x9E3779B97F4A7C15ull) >> 32);
}

}  // namespace

int XmlDocument::FindName(std::u16string_view name) const { return FindName(name, NameHash(name)); }

int XmlDocument::FindName(std::u16string_view name, size_t hash) const {
    if (m_nameIndex.empty())
        return -1;
    const size_t mask = m_nameIndex.size() - 1;
    for (size_t slot = hash & mask;; slot = (slot + 1) & mask) {
        const int entry = m_nameIndex[slot];
        if (entry == 0)
            return -1;
        const UCString& known = m_names[size_t(entry - 1)];
        if (known.size() == name.size() && OzmUnits::Same(known.data(), name.data(), name.size()))
            return entry - 1;
    }
}

void XmlDocument::ListName(std::u16string_view name, size_t hash) {
    const bool indexFull = (m_names.size() + 1) * 2 > m_nameIndex.size();
    if (indexFull || m_names.size() == m_names.capacity()) {
        // Growing moves the names, in one of which name may lie: the name is
        // copied first, and the copy listed once there is room.
        const UCString copy(name);
        GrowNames(indexFull);
        ListName(copy, hash);
        return;
    }
    // The room is there: nothing below allocates but the name's own copy,
    // which is made before the list changes.
    m_names.emplace_back(name);
    const size_t mask = m_nameIndex.size() - 1;
    size_t slot = hash & mask;
    while (m_nameIndex[slot])
        slot = (slot + 1) & mask;
    m_nameIndex[slot] = int(m_names.size());
}

void XmlDocument::GrowNames(bool indexFull) {
    if (indexFull) {
        // Twice the room (64 slots at first), the names placed again.
        std::vector<int> index(std::max<size_t>(64, m_nameIndex.size() * 2), 0);
        const size_t mask = index.size() - 1;
        for (size_t i = 0; i < m_names.size(); ++i) {
            size_t slot = NameHash(m_names[i]) & mask;
            while (index[slot])
                slot = (slot + 1) & mask;
            index[slot] = int(i + 1);
        }
        m_names.reserve(std::max<size_t>(32, m_names.size() + 1));
        m_nameIndex.swap(index);
    } else {
        m_names.reserve(m_names.size() * 2);
    }
}

int XmlDocument::InternName(const UCChar* name, size_t length) {
    int& slot = m_nameCache[NameSlot(name, length)];
    if (slot > 0 && size_t(slot) <= m_names.size()) {
        const UCString& known = m_names[size_t(slot - 1)];
        if (known.size() == length && OzmUnits::Same(known.data(), name, length))
            return slot - 1;
    }
    const std::u16string_view view(name, length);
    const size_t hash = NameHash(view);
    const int found = FindName(view, hash);
    if (found >= 0) {
        slot = found + 1;
        return found;
    }
    const int index = int(m_names.size());
    if (m_blockShare) {
        for (XmlDocument* d : m_blockShare->members)
            d->ListName(view, hash);
    } else {
        ListName(view, hash);
    }
    slot = index + 1;
    return index;
}
