// xmlpredefined.h - the five predefined entities, the one table that the
// definition model, the reference reader and the writers' escaping share.
#pragma once

#include <cstddef>
#include <string_view>

#include "ozmutil.h"

struct XmlPredefinedEntity {
    const UCChar* name;
    // The value a definition stores: "<" and "&" as character references,
    // since a value is read again after it is pushed back, where a bare one
    // would start markup or a reference.
    const UCChar* value;
    UCChar character;        // what a reference stands for
    const UCChar* reference;  // "&name;", what the writers put for character
    size_t referenceLength;
};

// In the order XmlDtd::Clear adds them, at the front of every definition.
inline constexpr XmlPredefinedEntity kXmlPredefinedEntities[] = {
    {u"lt", u"&#60;", u'<', u"&lt;", 4},        {u"gt", u">", u'>', u"&gt;", 4},
    {u"amp", u"&#38;", u'&', u"&amp;", 5},      {u"apos", u"'", u'\'', u"&apos;", 6},
    {u"quot", u"\"", u'"', u"&quot;", 6},
};
inline constexpr size_t kXmlPredefinedCount = sizeof kXmlPredefinedEntities / sizeof kXmlPredefinedEntities[0];

// The entity that stands for c, or null when c needs none.
inline const XmlPredefinedEntity* XmlPredefinedFor(UCChar c) {
    switch (c) {
    case u'<': return &kXmlPredefinedEntities[0];
    case u'>': return &kXmlPredefinedEntities[1];
    case u'&': return &kXmlPredefinedEntities[2];
    case u'\'': return &kXmlPredefinedEntities[3];
    case u'"': return &kXmlPredefinedEntities[4];
    default: return nullptr;
    }
}

// Whether name is one of the five. A name's length is that of its
// reference less the '&' and the ';', which rules most names out unread.
inline bool XmlIsPredefinedEntity(std::u16string_view name) {
    for (const XmlPredefinedEntity& e : kXmlPredefinedEntities)
        if (name.size() + 2 == e.referenceLength && name.compare(e.name) == 0)
            return true;
    return false;
}
