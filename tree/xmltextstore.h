// xmltextstore.h - the inline copy of a parsed text into the text store of
// its slab.
#pragma once

#include "platform/units/ozmunits.h"
#include "xmltree.h"

inline const UCChar* XmlElementBlock::StoreText(const UCChar* p, size_t n) {
    UCChar* t = TextRoom(n);
    OzmUnits::Copy(t, p, n);
    return t;
}
