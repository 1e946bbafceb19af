// XmlDtd and XmlEntityDef: the container of a document type definition.
#include "xmldtd.h"
#include "dtd/xmlpredefined.h"

void XmlEntityDef::operator=(const XmlEntityDef& other) {
    if (this == &other)
        return;
    m_name = other.m_name;
    m_value = other.m_value;
    m_isExternal = other.m_isExternal;
}

void XmlEntityDef::Name(const UCChar* name) { XmlAssigned(m_name, name ? name : u""); }

void XmlEntityDef::Value(const UCChar* value) { XmlAssigned(m_value, value ? value : u""); }

XmlDtd::XmlDtd() { Clear(); }

XmlDtd::XmlDtd(const XmlDtd& other) { CopyFrom(other); }

XmlDtd& XmlDtd::operator=(const XmlDtd& other) {
    if (this != &other)
        CopyFrom(other);
    return *this;
}

// Copies every field; the copied definitions are tied to this object's
// indexes, never to those of other.
void XmlDtd::CopyFrom(const XmlDtd& other) {
    m_docType = other.m_docType;
    m_publicIds = other.m_publicIds;
    m_systemIds = other.m_systemIds;

    m_entities = other.m_entities;
    m_entityIndex.Reset();

    m_elements = other.m_elements;
    for (XmlElementDef& def : m_elements)
        def.m_indexStale = m_elementIndex.StaleFlag();
    m_elementIndex.Reset();

    m_attrLists = other.m_attrLists;
    for (XmlAttrList& list : m_attrLists)
        list.m_indexStale = m_attrListIndex.StaleFlag();
    m_attrListIndex.Reset();

    m_doingExterns = other.m_doingExterns;
    m_haveContents = other.m_haveContents;
}

void XmlDtd::Clear() {
    // A definition that holds the predefined entities and nothing else is
    // left as it is: a document clears its definition when it is made, at
    // each parse and when it is destroyed, mostly with nothing in it.
    if (!m_haveContents && !m_doingExterns && m_docType.empty() &&
        m_entities.size() == kXmlPredefinedCount)
        return;
    m_docType.clear();
    m_entities.clear();
    m_elements.clear();
    m_attrLists.clear();
    m_entityIndex.Reset();
    m_elementIndex.Reset();
    m_attrListIndex.Reset();
    m_doingExterns = false;
    // The list is empty and the index stale: nothing to look up or record.
    for (const XmlPredefinedEntity& e : kXmlPredefinedEntities) {
        XmlEntityDef& entity = m_entities.emplace_back(false);
        entity.m_name = e.name;
        entity.m_value = e.value;
    }
    m_haveContents = false;
}

// The name is copied before anything is added, so that running out of
// memory leaves the lists as they were.
XmlElementDef* XmlDtd::AddElement(const UCChar* name) {
    try {
        UCString text(name ? name : u"");
        XmlElementDef& def = m_elements.emplace_back(m_doingExterns);
        def.m_name = std::move(text);
        def.m_indexStale = m_elementIndex.StaleFlag();
        m_elementIndex.Added(def);
        m_haveContents = true;
        return &def;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

XmlAttrList* XmlDtd::AddAttrList(const UCChar* name) {
    try {
        UCString text(name ? name : u"");
        XmlAttrList& list = m_attrLists.emplace_back(m_doingExterns);
        list.m_name = std::move(text);
        list.m_indexStale = m_attrListIndex.StaleFlag();
        m_attrListIndex.Added(list);
        m_haveContents = true;
        return &list;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

bool XmlDtd::AddEntity(const UCChar* name, const UCChar* value) {
    try {
        return AddEntity(name, UCString(value ? value : u""));
    } catch (const std::bad_alloc&) {
        return false;
    }
}

bool XmlDtd::AddEntity(const UCChar* name, UCString value) {
    // The first definition of a name counts, the predefined ones included.
    if (m_entityIndex.Find(m_entities, name))
        return true;
    try {
        UCString text(name ? name : u"");
        XmlEntityDef& entity = m_entities.emplace_back(m_doingExterns);
        entity.m_name = std::move(text);
        entity.m_value = std::move(value);
        m_entityIndex.Added(entity);
        m_haveContents = true;
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

const XmlEntityDef* XmlDtd::FindEntity(const UCChar* name) const {
    return FindEntity(std::u16string_view(name ? name : u""));
}

const XmlEntityDef* XmlDtd::FindEntity(std::u16string_view name) const {
    return m_entityIndex.Find(const_cast<XmlDeque<XmlEntityDef>&>(m_entities), name);
}

bool XmlDtd::LookupEntity(const UCChar* name, UCString& value) const {
    const XmlEntityDef* entity = FindEntity(name);
    if (!entity)
        return false;
    value.assign(entity->Value(), entity->ValueLength());
    return true;
}

XmlElementDef* XmlDtd::FindElement(const UCChar* name) { return m_elementIndex.Find(m_elements, name); }

const XmlElementDef* XmlDtd::FindElement(const UCChar* name) const {
    return m_elementIndex.Find(const_cast<XmlDeque<XmlElementDef>&>(m_elements), name);
}

XmlAttrList* XmlDtd::FindAttrList(const UCChar* name) { return m_attrListIndex.Find(m_attrLists, name); }

const XmlAttrList* XmlDtd::FindAttrList(const UCChar* name) const {
    return m_attrListIndex.Find(const_cast<XmlDeque<XmlAttrList>&>(m_attrLists), name);
}

XmlElementDef* XmlDtd::ElementAt(int index) {
    if (index < 0 || size_t(index) >= m_elements.size())
        return nullptr;
    return &m_elements[size_t(index)];
}

const XmlElementDef* XmlDtd::ElementAt(int index) const {
    if (index < 0 || size_t(index) >= m_elements.size())
        return nullptr;
    return &m_elements[size_t(index)];
}

void XmlDtd::ExternalDTD(const UCChar* publicId, const UCChar* systemId) {
    // Texts and room first, so that the two lists cannot end up of
    // different lengths.
    try {
        UCString publicText(publicId ? publicId : u""), systemText(systemId ? systemId : u"");
        m_publicIds.reserve(m_publicIds.size() + 1);
        m_systemIds.reserve(m_systemIds.size() + 1);
        m_publicIds.push_back(std::move(publicText));
        m_systemIds.push_back(std::move(systemText));
    } catch (const std::bad_alloc&) {
    }
}

void XmlDtd::DocType(const UCString& name) { XmlAssigned(m_docType, name); }

bool XmlDtd::ValidateAttribute(const XmlElement*, const UCChar*, const UCChar*) const { return true; }
