// xmlcontentlevel.h - the state of one level of content while it is parsed,
// shared by the general content loop and its fast path.
#pragma once

#include "xmldocument.h"

struct XmlDocument::ContentLevel {
    XmlElement* element;    // whose content is read
    XmlElement* lastChild;  // its last child so far, or null
    size_t nameIndex;       // its name in the name table
    UCString* data;         // its text so far
    int depth;              // its content's nesting level
};

// What FastContent did.
enum XmlFastStep : int {
    fastNone = 0,   // nothing: the general tokeniser reads the next token
    fastTook = 1,   // one or more tokens: go on reading
    fastEnded = 2,  // the element's end tag (result tells whether it matched)
};

// Appends child to the children of the level's element. Linking behind the
// last child gives what XmlElement::Child gives, without walking the whole
// chain of siblings for each child.
inline void XmlDocument::LinkChild(ContentLevel& level, XmlElement* child) {
    if (level.lastChild) {
        child->m_parentPos = int(level.element->DataLength());
        level.lastChild->m_next = child;
        child->m_parent = level.element;
    } else {
        level.element->Child(child);
    }
    level.lastChild = child;
}
