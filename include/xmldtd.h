// xmldtd.h - the model of a document type definition: the container XmlDtd
// with its entity, element and attribute-list definitions, and the content
// models of the elements.
//
// Definitions are stored by value in XmlDeque lists, which never move what
// they hold on an append: a pointer handed out by an Add, Find or At
// operation stays valid until the owner is cleared or destroyed.
#pragma once

#include <map>
#include <new>
#include <string_view>
#include <utility>
#include <vector>

#include "ozmutil.h"
#include "xmldeque.h"

class XmlElement;
class XmlOutputStream;

// Content type of an element definition.
enum XmlElementType : int {
    elemNone = 0,      // no type yet
    elemEmpty = 1,     // EMPTY
    elemAny = 2,       // ANY
    elemChildren = 3,  // element content: a sequence or choice group
    elemMixed = 4      // #PCDATA, alone or with a choice of names
};

// Kind of a content part.
enum XmlContentPartType : int {
    cpNone = 0,      // nothing yet
    cpName = 1,      // one element name
    cpSequence = 2,  // group with commas
    cpChoice = 3     // group with bars
};

// Count modifier of a name or a group.
enum XmlCountMod : int {
    countOne = 0,      // nothing written
    countPlus = 1,     // +
    countStar = 2,     // *
    countOptional = 3  // ?
};

// Attribute type.
enum XmlAttType : int {
    attNone = 0,
    attCdata = 1,
    attId = 2,
    attIdref = 3,
    attIdrefs = 4,
    attEntity = 5,
    attEntities = 6,
    attNmtoken = 7,
    attNmtokens = 8,
    attNotation = 9,
    attEnumerated = 10
};

// Kind of an attribute default.
enum XmlDefType : int {
    defNone = 0,      // nothing stated
    defRequired = 1,  // #REQUIRED
    defImplied = 2,   // #IMPLIED
    defFixed = 3,     // #FIXED "value"
    defValue = 4      // "value"
};

// Assigns text to s; false, with s as it was, when memory runs out.
inline bool XmlAssigned(UCString& s, std::u16string_view text) noexcept {
    try {
        s.assign(text);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

// Index from a name to the first entry of that name in a list kept by the
// owner. Lists shorter than LinearLimit are simply walked, and so is a
// longer one while memory for its map cannot be had. For longer ones a map
// is built on the first lookup and extended by every append; the
// owner marks it stale when a stored entry may have been renamed, and the
// next lookup builds it anew. Lookups therefore give exactly what a walk
// from the front gives. A copy starts empty and indexes its own list.
template <class T>
class XmlNameIndex {
public:
    static constexpr size_t LinearLimit = 12;

    XmlNameIndex() = default;
    XmlNameIndex(const XmlNameIndex&) {}
    XmlNameIndex& operator=(const XmlNameIndex&) {
        Reset();
        return *this;
    }

    // Forgets everything; the next lookup of a long list rebuilds.
    void Reset() {
        m_map.clear();
        m_stale = true;
    }
    // The flag that stored entries set when their name changes.
    bool* StaleFlag() { return &m_stale; }

    // Records an entry just appended to the list. Without memory for it the
    // index is dropped and built anew by the next lookup.
    void Added(T& item) noexcept {
        if (m_stale)
            return;
        try {
            m_map.emplace(item.Name(), &item);  // keeps an earlier entry
        } catch (const std::bad_alloc&) {
            Reset();
        }
    }

    template <class List>
    T* Find(List& list, const UCChar* name) {
        return Find(list, std::u16string_view(name ? name : u""));
    }
    template <class List>
    T* Find(List& list, std::u16string_view key) {
        if (list.size() < LinearLimit || !Built(list))
            return Walk(list, key);
        auto it = m_map.find(key);
        return it == m_map.end() ? nullptr : it->second;
    }

private:
    // Builds the map when it is stale; false, and the map dropped, when
    // memory runs out: lookups then walk the list.
    template <class List>
    bool Built(List& list) noexcept {
        if (!m_stale)
            return true;
        try {
            m_map.clear();
            for (T& item : list)
                m_map.emplace(item.Name(), &item);
            m_stale = false;
            return true;
        } catch (const std::bad_alloc&) {
            m_map.clear();
            return false;
        }
    }
    // Compared unit by unit up to the key's length, so that no entry is
    // measured; the first unit tells most names apart.
    template <class List>
    static T* Walk(List& list, std::u16string_view key) {
        const size_t n = key.size();
        const UCChar first = n ? key[0] : u'\0';
        for (T& item : list) {
            const UCChar* itemName = item.Name();
            if (itemName[0] != first)
                continue;
            size_t i = 0;
            while (i < n && itemName[i] == key[i] && itemName[i] != 0)
                ++i;
            if (i == n && itemName[n] == 0)
                return &item;
        }
        return nullptr;
    }

    std::map<UCString, T*, std::less<>> m_map;
    bool m_stale = true;
};

// One node of a content model: an element name, or a group of further nodes
// that it owns. Copies are deep. Copying, destroying and the deep searches
// work without recursion, so a model nested to any depth is safe.
class OZM_API XmlContentPart {
public:
    XmlContentPart() = default;
    XmlContentPart(const XmlContentPart& other);
    XmlContentPart(XmlContentPart&& other) noexcept;
    // Assignment from a part inside this one's own subtree is safe.
    void operator=(const XmlContentPart& other);
    void operator=(XmlContentPart&& other) noexcept;
    ~XmlContentPart();

    int Type() const { return m_type; }
    const UCChar* Name() const { return m_name.c_str(); }
    // Sets the name (null counts as empty) and makes the part a cpName;
    // the children are kept.
    void Name(const UCChar* name);
    int CountMod() const { return m_countMod; }
    void CountMod(int mod) { m_countMod = mod; }
    int ActualCount() const { return m_actualCount; }
    void ActualCount(int count) { m_actualCount = count; }

    // cpNone: 0; cpName: 1 for a non-empty name, else 0; a group: its
    // number of children.
    int Count() const;

    // Appends a copy of part to a group; the first call decides whether the
    // group is a choice or a sequence, and a call of the other kind is
    // refused. A choice keeps one child per name: a named part whose name is
    // there already is not added (the result is still true).
    bool AddCP(const XmlContentPart& part, bool isChoice);
    // Inserts a copy of part into a sequence before the child at index, or
    // appends it when index is the number of children; false for any other
    // part or index. Inserting before the end moves the children to new
    // places: pointers to them die, pointers to their own children don't.
    // Appending moves nothing.
    bool InsertCP(const XmlContentPart& part, int index);
    // Assigns part to the existing child at index; false if there is none.
    // The child stays where it was, its former subtree is gone.
    bool ReplaceCP(const XmlContentPart& part, int index);

    // The child at index; an index out of range gives the first child. A
    // part without children gives an empty cpNone part that belongs to no
    // model (one per thread, emptied again on every such call).
    XmlContentPart& operator[](int index);
    const XmlContentPart& operator[](int index) const;

    // Deep test: this part's own name or that of any part below it equals
    // name (null counts as empty, which every group matches).
    bool Contains(const UCChar* name) const;
    // Appends to list, depth first and left to right, the names of the named
    // children; a child of any other type adds its own list instead.
    void ListOfNames(std::vector<UCString>& list) const;

    // Back to the initial state: no name, no children, all numbers 0.
    void Clear();

private:
    friend class XmlElementDef;
    friend class XmlDtd;
    friend class XmlDocument;

    // AddCP for a part that the caller gives up and whose name the caller
    // knows to be new in a choice: moved in, without a walk of the group.
    bool AppendCP(XmlContentPart&& part, bool isChoice);
    XmlDeque<XmlContentPart>& Parts() { return m_parts; }
    const XmlDeque<XmlContentPart>& Parts() const { return m_parts; }
    void CopyFields(const XmlContentPart& other);
    void CopyTree(const XmlContentPart& other);
    void Rebuild(XmlDeque<XmlContentPart>& rebuilt, XmlContentPart&& copy, size_t index);

    UCString m_name;
    XmlDeque<XmlContentPart> m_parts;  // the children
    int m_type = cpNone;
    int m_countMod = countOne;
    int m_actualCount = 0;
};

// The definition of one element name.
class OZM_API XmlElementDef {
public:
    explicit XmlElementDef(bool isExternal = false) : m_isExternal(isExternal) {}
    // Carries name, type, contents, IsExternal and MaxLen; the copy has a
    // null InfoPointer and Verified false.
    XmlElementDef(const XmlElementDef& other);
    // Carries name, type, contents, IsExternal and MaxLen; the target keeps
    // its own InfoPointer and Verified.
    void operator=(const XmlElementDef& other);
    ~XmlElementDef() = default;

    bool IsExternal() const { return m_isExternal; }
    int Type() const { return m_type; }
    void Type(int type) { m_type = type; }
    const UCChar* Name() const { return m_name.c_str(); }
    // Null counts as empty.
    void Name(const UCChar* name);
    XmlContentPart& Contents() { return m_contents; }
    const XmlContentPart& Contents() const { return m_contents; }
    void Contents(const XmlContentPart& contents) { m_contents = contents; }
    int MaxLen() const { return m_maxLen; }
    // Stores len only when it is greater than the stored value.
    void MaxLen(int len) {
        if (len > m_maxLen)
            m_maxLen = len;
    }
    void* InfoPointer() const { return m_infoPointer; }
    // Stores p and returns the former value.
    void* InfoPointer(void* p) {
        void* old = m_infoPointer;
        m_infoPointer = p;
        return old;
    }
    bool Verified() const { return m_verified; }
    void Verified(bool verified) { m_verified = verified; }

    // Shallow test: name equals the name of the contents or of one of
    // their direct children (null counts as empty).
    bool Contains(const UCChar* name) const;

private:
    friend class XmlDtd;

    UCString m_name;
    int m_type = elemNone;
    XmlContentPart m_contents;
    bool m_isExternal = false;
    int m_maxLen = 0;
    void* m_infoPointer = nullptr;
    bool m_verified = false;
    // Stale flag of the name index of the XmlDtd that stores this
    // definition; null for a definition stored nowhere.
    bool* m_indexStale = nullptr;
};

// One attribute definition.
class OZM_API XmlAttDef {
public:
    XmlAttDef() = default;
    // Copies all six fields.
    XmlAttDef(const XmlAttDef& other);
    void operator=(const XmlAttDef& other);
    ~XmlAttDef() = default;

    const UCChar* Name() const { return m_name.c_str(); }
    // Null counts as empty.
    void Name(const UCChar* name);
    int Type() const { return m_type; }
    void Type(int type) { m_type = type; }
    int MaxLen() const { return m_maxLen; }
    // Stores len only when it is greater than the stored value.
    void MaxLen(int len) {
        if (len > m_maxLen)
            m_maxLen = len;
    }
    int DefType() const { return m_defType; }
    void DefType(int defType) { m_defType = defType; }
    const UCChar* DefVal() const { return m_defVal.c_str(); }
    // Null counts as empty.
    void DefVal(const UCChar* value);

    int EnumCount() const { return int(m_enums.size()); }
    // Appends a value (null counts as empty); duplicates are kept.
    void AddEnum(const UCChar* value);
    // Index of the first entry equal to value, or -1.
    int FindEnum(const UCChar* value) const;
    // Entry at index, or null when index is out of range.
    const UCChar* GetEnum(int index) const;

private:
    friend class XmlAttrList;
    friend class XmlDtd;

    UCString m_name;
    int m_type = attNone;
    XmlDeque<UCString> m_enums;
    int m_maxLen = 0;
    int m_defType = defNone;
    UCString m_defVal;
    // Stale flag of the name index of the list that stores this definition.
    bool* m_indexStale = nullptr;
};

// The attribute definitions of one element name, in order of arrival.
class OZM_API XmlAttrList {
public:
    explicit XmlAttrList(bool isExternal = false) : m_isExternal(isExternal) {}
    // A copy carries the name, IsExternal and a copy of every definition.
    XmlAttrList(const XmlAttrList& other);
    void operator=(const XmlAttrList& other);
    ~XmlAttrList() = default;

    const UCChar* Name() const { return m_name.c_str(); }
    // Null counts as empty.
    void Name(const UCChar* name);
    bool IsExternal() const { return m_isExternal; }

    int DefCount() const { return int(m_defs.size()); }
    // Appends a definition with this name and nothing else set; a name
    // already present is not looked for. The result stays valid through
    // later additions.
    XmlAttDef* AddAttDef(const UCChar* name);
    // Definition at index, or null when index is out of range.
    const XmlAttDef* GetAttDef(int index) const;
    // First definition of that name, or null.
    const XmlAttDef* FindAttDef(const UCChar* name) const;
    XmlAttDef* FindModifiableAttDef(const UCChar* name);

private:
    friend class XmlDtd;

    void CopyDefs(const XmlAttrList& other);

    UCString m_name;
    XmlDeque<XmlAttDef> m_defs;
    bool m_isExternal = false;
    mutable XmlNameIndex<XmlAttDef> m_defIndex;
    // Stale flag of the name index of the XmlDtd that stores this list.
    bool* m_indexStale = nullptr;
};

// One entity: a name ("%" in front for a parameter entity) and its
// replacement text.
class OZM_API XmlEntityDef {
public:
    explicit XmlEntityDef(bool isExternal = false) : m_isExternal(isExternal) {}
    XmlEntityDef(const XmlEntityDef& other) = default;
    void operator=(const XmlEntityDef& other);
    ~XmlEntityDef() = default;

    const UCChar* Name() const { return m_name.c_str(); }
    // Null counts as empty.
    void Name(const UCChar* name);
    const UCChar* Value() const { return m_value.c_str(); }
    size_t ValueLength() const { return m_value.size(); }
    // Null counts as empty.
    void Value(const UCChar* value);
    bool IsExternal() const { return m_isExternal; }

private:
    friend class XmlDtd;

    UCString m_name;
    UCString m_value;
    bool m_isExternal = false;
};

// A whole document type definition. Copies are deep and complete; the
// definitions of a copy are its own.
class OZM_API XmlDtd {
public:
    XmlDtd();
    XmlDtd(const XmlDtd& other);
    XmlDtd& operator=(const XmlDtd& other);
    ~XmlDtd() = default;

    // Empties the document type name and all definitions, turns DoingExterns
    // off and adds the five predefined entities; HaveContents is false
    // afterwards. The external identifiers are kept.
    void Clear();

    // Append a definition named name (null counts as empty) that takes
    // DoingExterns as its IsExternal; no lookup is made. The result stays
    // valid until Clear or the end of the object.
    XmlElementDef* AddElement(const UCChar* name);
    XmlAttrList* AddAttrList(const UCChar* name);
    // Adds an entity unless one of that name exists, in which case the
    // first definition stays. Always true.
    bool AddEntity(const UCChar* name, const UCChar* value);
    // The same with a value taken whole, units of value 0 included.
    bool AddEntity(const UCChar* name, UCString value);
    // First entity of that name, or null.
    const XmlEntityDef* FindEntity(const UCChar* name) const;
    // On a defined name, assigns its value to value and gives true; else
    // false, and value is left alone.
    bool LookupEntity(const UCChar* name, UCString& value) const;

    // First definition of that name, or null; names compare exactly.
    XmlElementDef* FindElement(const UCChar* name);
    const XmlElementDef* FindElement(const UCChar* name) const;
    XmlAttrList* FindAttrList(const UCChar* name);
    const XmlAttrList* FindAttrList(const UCChar* name) const;
    // Definition at index in order of arrival, or null out of range.
    XmlElementDef* ElementAt(int index);
    const XmlElementDef* ElementAt(int index) const;
    int ElementCount() const { return int(m_elements.size()); }

    // True once something was added since the last Clear.
    bool HaveContents() const { return m_haveContents; }
    // Records the identifiers of one external subset; null counts as empty.
    void ExternalDTD(const UCChar* publicId, const UCChar* systemId);
    void DocType(const UCString& name);
    const UCString& DocType() const { return m_docType; }
    void DoingExterns(bool on) { m_doingExterns = on; }
    bool DoingExterns() const { return m_doingExterns; }

    // Attributes are not checked against their definitions: always true.
    bool ValidateAttribute(const XmlElement* element, const UCChar* name, const UCChar* value) const;

    // Writes the definition as a document type declaration: the entities
    // (the predefined five left out), then each element with its attribute
    // list, then the lists of names without an element. withExternals writes
    // the external identifiers and leaves out every definition that came
    // from an external subset; otherwise all definitions are written and no
    // identifier. lineBreaks puts a line feed behind each declaration (an
    // attribute list always has its own), escape sends entity values through
    // WriteEscaped. Nothing is written before anything was added. Changes
    // nothing in the model; always errNone (output/xmldtdwriter.cpp).
    BATCHERR Write(XmlOutputStream& out, bool withExternals, bool lineBreaks, bool escape) const;

private:
    friend class XmlDocument;
    // FindEntity for a name that is a span of the parser's input.
    const XmlEntityDef* FindEntity(std::u16string_view name) const;
    // One <!ATTLIST with a line per definition, whatever lineBreaks says.
    void WriteAttrList(XmlOutputStream& out, const XmlAttrList* list, bool lineBreaks) const;
    // The text of a content part and everything below it, with a closing
    // parenthesis when closeParen, then its count modifier. Works without
    // recursion, so a model nested to any depth can be written.
    void WriteContentPart(XmlOutputStream& out, const XmlContentPart& part, bool closeParen) const;
    void CopyFrom(const XmlDtd& other);

    UCString m_docType;
    std::vector<UCString> m_publicIds;
    std::vector<UCString> m_systemIds;
    XmlDeque<XmlEntityDef> m_entities;
    XmlDeque<XmlElementDef> m_elements;
    XmlDeque<XmlAttrList> m_attrLists;
    bool m_doingExterns = false;
    bool m_haveContents = false;

    mutable XmlNameIndex<XmlEntityDef> m_entityIndex;
    mutable XmlNameIndex<XmlElementDef> m_elementIndex;
    mutable XmlNameIndex<XmlAttrList> m_attrListIndex;
};
