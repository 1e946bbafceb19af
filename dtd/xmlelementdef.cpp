// XmlElementDef: the definition of one element name.
#include <string_view>

#include "xmldtd.h"

XmlElementDef::XmlElementDef(const XmlElementDef& other)
    : m_name(other.m_name),
      m_type(other.m_type),
      m_contents(other.m_contents),
      m_isExternal(other.m_isExternal),
      m_maxLen(other.m_maxLen) {}

void XmlElementDef::operator=(const XmlElementDef& other) {
    if (this == &other)
        return;
    bool renamed = m_name != other.m_name;
    m_name = other.m_name;
    m_type = other.m_type;
    m_contents = other.m_contents;
    m_isExternal = other.m_isExternal;
    m_maxLen = other.m_maxLen;
    // m_infoPointer and m_verified belong to this stored definition.
    if (renamed && m_indexStale)
        *m_indexStale = true;
}

void XmlElementDef::Name(const UCChar* name) {
    std::u16string_view text(name ? name : u"");
    if (text == m_name || !XmlAssigned(m_name, text))
        return;
    if (m_indexStale)
        *m_indexStale = true;
}

bool XmlElementDef::Contains(const UCChar* name) const {
    std::u16string_view key(name ? name : u"");
    if (key == m_contents.m_name)
        return true;
    for (const XmlContentPart& child : m_contents.Parts())
        if (key == child.m_name)
            return true;
    return false;
}
