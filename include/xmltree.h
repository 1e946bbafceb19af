// xmltree.h - the element tree: nodes, attributes and the slabs nodes live in.
#pragma once

#include <cstdint>
#include <cstring>
#include <new>
#include <string_view>
#include <vector>

#include "ozmutil.h"
#include "xmldeque.h"

class XmlDocument;
class XmlElementBlock;
class XmlOutputStream;

// What XmlElement::GetData collects: the element's own data, the text of the
// whole subtree, or the subtree as markup. Any other value acts as XMLD_Text.
enum XMLD : int { XMLD_Own = 0, XMLD_Text = 1, XMLD_Markup = 2 };

// A name and value pair on an element.
class OZM_API XmlAttribute {
public:
    XmlAttribute() = default;
    XmlAttribute(const UCChar* name, const UCChar* value) : m_name(name ? name : u""), m_value(value ? value : u"") {}
    XmlAttribute(const UCString& name, const UCString& value) : m_name(name), m_value(value) {}
    XmlAttribute(std::u16string_view name, std::u16string_view value) : m_name(name), m_value(value) {}
    XmlAttribute(const XmlAttribute&) = default;
    XmlAttribute& operator=(const XmlAttribute& other) {
        if (this != &other) {
            m_name = other.m_name;
            m_value = other.m_value;
        }
        return *this;
    }

    const UCChar* Name() const { return m_name.c_str(); }
    void Name(const UCChar* name);
    const UCChar* Value() const { return m_value.c_str(); }
    void Value(const UCChar* value);

private:
    UCString m_name;
    UCString m_value;
};

// A node of the document tree. Nodes live in the slabs of their document:
// get one from XmlDocument::NewElement and give it back with Release.
//
// Nodes are not copyable: a copy would carry the links and the slab of its
// original, and giving it back would corrupt that slab's free list. Copy the
// name, data and attributes through the accessors instead.
//
// No operation throws: a setter that cannot get the memory for its new value
// leaves the old one.
class OZM_API XmlElement {
public:
    XmlElement(const XmlElement&) = delete;
    XmlElement& operator=(const XmlElement&) = delete;

    const UCChar* Name() const;
    void Name(const UCChar* name);

    const UCChar* Data() const { return m_data.data(); }
    void Data(const UCChar* text);
    void AddData(const UCChar* text);
    long DataLength() const { return long(m_data.size()); }

    XmlElement* Next() const { return m_next; }
    XmlElement* Child() const { return m_child; }
    XmlElement* Parent() const { return m_parent; }

    // Appends e behind the last sibling of this node's chain.
    void Next(XmlElement* e);
    // Puts e directly behind this node.
    void InsertNext(XmlElement* e);
    // First sibling behind this node named name, or null.
    XmlElement* FindNext(const UCChar* name) const;
    // Last node of the chain behind this node; null when there is no next.
    XmlElement* Last() const;
    // Appends e as the last child.
    void Child(XmlElement* e);
    // Makes e the first child.
    void InsertChild(XmlElement* e);

    int ParentPos() const { return m_parentPos; }
    int Mark() const { return m_mark; }
    int Mark(int value) {
        int old = m_mark;
        m_mark = value;
        return old;
    }

    int AttributeCount() const { return int(m_attrCount & ~kHeapList); }
    void AddAttribute(const UCChar* name, const UCChar* value);
    const UCChar* GetAttributeValue(const UCChar* name) const;
    const UCChar* GetAttributeValue(int i) const;
    const UCChar* GetAttributeName(int i) const;

    // Writes this element and everything below it (output/xmlwriter.cpp);
    // the output ends early only when memory runs out.
    void Write(XmlOutputStream& out, int indent, bool escape, bool lineBreaks, int indentStep, bool writeEmpty) const;
    // Appends the text of this element, and by mode that of its descendants,
    // to out without clearing it; when memory runs out, out keeps what was
    // appended so far.
    void GetData(UCString& out, XMLD mode) const;

    // Empties the node for its next use; links of other nodes are untouched.
    // Inline: a node handed out again is cleared, and one the parser filled
    // owns nothing on the heap.
    void Clear() {
        if ((m_attrCount & kHeapList) || m_data.Owned()) {
            FreeAttributes();
            m_data.Clear();
        }
        m_child = m_parent = m_next = nullptr;
        m_attrs = nullptr;
        m_attrCount = 0;
        m_nameId = 0;
        m_data.Forget();
        m_mark = 0;
    }
    // Gives the node back to its slab.
    void Release();

private:
    friend class XmlElementBlock;
    friend class XmlDocument;
    XmlElement() = default;
    // Write and GetData, letting std::bad_alloc through.
    void WriteSubtree(XmlOutputStream& out, int indent, bool escape, bool lineBreaks, int indentStep,
                      bool writeEmpty) const;
    void CollectData(UCString& out, XMLD mode) const;
    ~XmlElement() { FreeAttributes(); }

    // The text of a node. Text read by the parser is kept in the text store
    // of the node's slab and only pointed to here; text set through Data or
    // AddData is a copy on the heap, owned and freed by the node.
    class Text {
    public:
        Text() = default;
        Text(const Text&) = delete;
        Text& operator=(const Text&) = delete;
        ~Text() { Free(); }

        const UCChar* data() const { return m_p; }
        size_t size() const { return m_size; }
        bool empty() const { return m_size == 0; }
        // Points at n units at p followed by a 0, which outlive the node.
        void Borrow(const UCChar* p, size_t n) {
            Free();
            m_p = p;
            m_size = n;
        }
        void Assign(const UCChar* p, size_t n);
        void Append(const UCChar* p, size_t n);
        void Clear() { Borrow(u"", 0); }
        bool Owned() const { return m_capacity != 0; }
        // Empty, for a text that owns nothing.
        void Forget() {
            m_p = u"";
            m_size = 0;
        }

    private:
        void Free() {
            if (m_capacity)
                delete[] const_cast<UCChar*>(m_p);
            m_capacity = 0;
        }
        const UCChar* m_p = u"";
        size_t m_size = 0;
        size_t m_capacity = 0;  // units of the owned buffer; 0 when borrowed
    };

    // The attributes of a node: a list header followed by its name and
    // value pairs, each pointing at a terminated text. A list the parser
    // makes lives in the text store of the node's slab together with its
    // texts, taken by the bump of a pointer; it is never freed on its own.
    // A program adding an attribute moves the list to the heap (the pairs
    // read so far keep pointing into the slab), and each added pair owns
    // one heap block holding the name, a 0, the value and a 0. Whether the
    // list is on the heap is kept in the node, since a slab that is reset
    // reuses its store under nodes not yet handed out again.
    struct Attr {
        const UCChar* name;
        const UCChar* value;
    };
    struct AttrList {
        uint32_t capacity;
        uint32_t borrowed;  // pairs before this index point into a slab
        Attr* Items() { return reinterpret_cast<Attr*>(this + 1); }
    };
    static constexpr uint32_t kHeapList = 0x80000000u;  // in m_attrCount
    const Attr* AttrItems() const { return m_attrs ? m_attrs->Items() : nullptr; }
    // Parser side: gives the node the count attributes of attrs (fields
    // name, nameEnd, value, valueEnd), stored in its slab's text store in
    // one piece. The node must have none yet.
    template <class A>
    void TakeParsedAttributes(const A* attrs, int count);
    // Parser side: appends one attribute, stored in the slab's text store;
    // the list grows in the store by doubling.
    void AddParsedAttribute(const UCChar* name, size_t nameLength, const UCChar* value, size_t valueLength);
    void FreeAttributes();
    int m_nameId = 0;
    uint32_t m_attrCount = 0;  // the count, with kHeapList when the list is on the heap
    Text m_data;
    AttrList* m_attrs = nullptr;
    XmlElement* m_next = nullptr;
    XmlElement* m_child = nullptr;
    XmlElement* m_parent = nullptr;
    XmlElementBlock* m_block = nullptr;
    int m_mark = 0;
    int m_parentPos = 0;
};

// A slab of exactly 1000 nodes with a free list threaded through m_next, and
// a store for the text the parser reads into its nodes.
// Not copyable: a copy's free list would point into the original.
class OZM_API XmlElementBlock {
public:
    static constexpr int Capacity = 1000;

    explicit XmlElementBlock(XmlDocument* document);
    XmlElementBlock(const XmlElementBlock&) = delete;
    XmlElementBlock& operator=(const XmlElementBlock&) = delete;
    ~XmlElementBlock();

    // Puts all nodes on the free list, in index order. The text chunks are
    // kept as spares for the text stored next, taken in the order they were
    // allocated; FreeSpareText gives back the spares not taken.
    void Reset();
    void FreeSpareText();
    // A node off the free list, cleared; null when the list is spent.
    XmlElement* NewElement();
    void FreeElement(XmlElement* e);
    int FreeCount() const { return m_freeCount; }
    XmlElementBlock* Next() const { return m_nextBlock; }
    void Next(XmlElementBlock* b) { m_nextBlock = b; }
    XmlDocument* Document() const { return m_document; }

private:
    friend class XmlDocument;
    friend class XmlElement;
    // Room for n units and a 0 behind them in the slab's text store, for
    // the caller to fill: the room lives as long as the slab, and is given
    // up only when the slab is reset or destroyed. Text is stored by the
    // bump of a pointer, with a new chunk now and then.
    UCChar* TextRoom(size_t n) {
        if (size_t(m_textEnd - m_textNext) <= n)
            return TextRoomInNewChunk(n);
        UCChar* t = m_textNext;
        t[n] = 0;
        m_textNext = t + n + 1;
        return t;
    }
    // Room for bytes bytes at an address aligned for pointers, from the
    // text store, as TextRoom gives it.
    void* AlignedRoom(size_t bytes) {
        const uintptr_t next = (reinterpret_cast<uintptr_t>(m_textNext) + 7) & ~uintptr_t(7);
        const size_t units = (bytes + 1) / sizeof(UCChar);
        if (next >= reinterpret_cast<uintptr_t>(m_textEnd) ||
            (reinterpret_cast<uintptr_t>(m_textEnd) - next) / sizeof(UCChar) <= units)
            return TextRoomInNewChunk(units - 1);  // chunks start aligned
        m_textNext = reinterpret_cast<UCChar*>(next) + units;
        return reinterpret_cast<void*>(next);
    }
    // Copies n units at p, and a 0 behind them, into the text store
    // (inline, in tree/xmltextstore.h).
    inline const UCChar* StoreText(const UCChar* p, size_t n);
    struct TextChunk {
        TextChunk* next;
        size_t units;
        UCChar* Units() { return reinterpret_cast<UCChar*>(this + 1); }
    };
    UCChar* TextRoomInNewChunk(size_t n);
    void FreeTextChunks(TextChunk* from);
    // Nodes are constructed when first handed out, and only those are
    // destroyed: a small document does not pay for the whole slab. The free
    // list is the nodes given back (LIFO) followed by the nodes from m_unused
    // on, in index order.
    union {
        XmlElement m_nodes[Capacity];
    };
    XmlElement* m_firstFree = nullptr;
    int m_unused = 0;       // nodes from here on have not been handed out since Reset
    int m_constructed = 0;  // nodes below this index are constructed
    XmlElementBlock* m_nextBlock = nullptr;
    int m_freeCount = Capacity;
    XmlDocument* m_document = nullptr;
    TextChunk* m_textChunks = nullptr;  // newest first
    size_t m_fillUnits = 0;  // units of the chunk being filled; 0 before the first
    TextChunk* m_spareChunks = nullptr;  // kept by Reset, the oldest first
    UCChar* m_textNext = nullptr;
    UCChar* m_textEnd = nullptr;
};

// Inline: the parser takes a node for every element it reads.
inline XmlElement* XmlElementBlock::NewElement() {
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

// Visits the subtree of root in document order without recursion, since a
// tree built by a program may be deeper than any call stack. It follows
// Child and Next only, with its own stack of open elements, and does not
// visit the siblings of root. enter(element, depth) is called on reaching an
// element (root at depth 0) and returns whether to visit its children;
// leave(element, depth) is called after the children of an element whose
// children were visited. Element is XmlElement or const XmlElement.
template <class Element, class Enter, class Leave>
void XmlWalkTree(Element* root, Enter&& enter, Leave&& leave) {
    std::vector<Element*> open;
    Element* e = root;
    while (e) {
        if (enter(e, int(open.size())) && e->Child()) {
            open.push_back(e);
            e = e->Child();
            continue;
        }
        for (;;) {
            if (open.empty())
                return;
            if (e->Next()) {
                e = e->Next();
                break;
            }
            e = open.back();
            open.pop_back();
            leave(e, int(open.size()));
        }
    }
}

// The same without a call on leaving.
template <class Element, class Enter>
void XmlWalkTree(Element* root, Enter&& enter) {
    XmlWalkTree(root, enter, [](Element*, int) {});
}
