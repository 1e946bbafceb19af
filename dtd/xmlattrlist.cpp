// XmlAttrList and XmlAttDef: the attribute definitions of one element name.
#include <string_view>

#include "xmldtd.h"

XmlAttDef::XmlAttDef(const XmlAttDef& other)
    : m_name(other.m_name),
      m_type(other.m_type),
      m_enums(other.m_enums),
      m_maxLen(other.m_maxLen),
      m_defType(other.m_defType),
      m_defVal(other.m_defVal) {}

void XmlAttDef::operator=(const XmlAttDef& other) {
    if (this == &other)
        return;
    bool renamed = m_name != other.m_name;
    m_name = other.m_name;
    m_type = other.m_type;
    m_enums = other.m_enums;
    m_maxLen = other.m_maxLen;
    m_defType = other.m_defType;
    m_defVal = other.m_defVal;
    if (renamed && m_indexStale)
        *m_indexStale = true;
}

void XmlAttDef::Name(const UCChar* name) {
    std::u16string_view text(name ? name : u"");
    if (text == m_name || !XmlAssigned(m_name, text))
        return;
    if (m_indexStale)
        *m_indexStale = true;
}

void XmlAttDef::DefVal(const UCChar* value) { XmlAssigned(m_defVal, value ? value : u""); }

void XmlAttDef::AddEnum(const UCChar* value) {
    try {
        m_enums.emplace_back(value ? value : u"");
    } catch (const std::bad_alloc&) {
    }
}

int XmlAttDef::FindEnum(const UCChar* value) const {
    std::u16string_view key(value ? value : u"");
    int index = 0;
    for (const UCString& entry : m_enums) {
        if (key == entry)
            return index;
        ++index;
    }
    return -1;
}

const UCChar* XmlAttDef::GetEnum(int index) const {
    if (index < 0 || size_t(index) >= m_enums.size())
        return nullptr;
    return m_enums[size_t(index)].c_str();
}

XmlAttrList::XmlAttrList(const XmlAttrList& other)
    : m_name(other.m_name), m_isExternal(other.m_isExternal) {
    CopyDefs(other);
}

void XmlAttrList::operator=(const XmlAttrList& other) {
    if (this == &other)
        return;
    bool renamed = m_name != other.m_name;
    m_name = other.m_name;
    m_isExternal = other.m_isExternal;
    CopyDefs(other);
    if (renamed && m_indexStale)
        *m_indexStale = true;
}

// Replaces the definitions with copies of those of other, which become this
// list's own: renaming one of them marks this list's index.
void XmlAttrList::CopyDefs(const XmlAttrList& other) {
    XmlDeque<XmlAttDef> defs(other.m_defs);
    m_defs.swap(defs);
    for (XmlAttDef& def : m_defs)
        def.m_indexStale = m_defIndex.StaleFlag();
    m_defIndex.Reset();
}

void XmlAttrList::Name(const UCChar* name) {
    std::u16string_view text(name ? name : u"");
    if (text == m_name || !XmlAssigned(m_name, text))
        return;
    if (m_indexStale)
        *m_indexStale = true;
}

XmlAttDef* XmlAttrList::AddAttDef(const UCChar* name) {
    try {
        UCString text(name ? name : u"");
        XmlAttDef& def = m_defs.emplace_back();
        def.m_name = std::move(text);
        def.m_indexStale = m_defIndex.StaleFlag();
        m_defIndex.Added(def);
        return &def;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

const XmlAttDef* XmlAttrList::GetAttDef(int index) const {
    if (index < 0 || size_t(index) >= m_defs.size())
        return nullptr;
    return &m_defs[size_t(index)];
}

const XmlAttDef* XmlAttrList::FindAttDef(const UCChar* name) const {
    // The index hands out non-const pointers; this one is given back as const.
    return m_defIndex.Find(const_cast<XmlDeque<XmlAttDef>&>(m_defs), name);
}

XmlAttDef* XmlAttrList::FindModifiableAttDef(const UCChar* name) { return m_defIndex.Find(m_defs, name); }
