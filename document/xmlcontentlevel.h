// xmlcontentlevel.h - the state of one level of content while it is parsed,
// shared by the general content loop and its fast path.
#pragma once

#include <algorithm>

#include "platform/units/ozmunits.h"
#include "tree/xmltextstore.h"
#include "xmldocument.h"

struct XmlDocument::ContentLevel {
    XmlElement* element;    // whose content is read
    XmlElement* lastChild;  // its last child so far, or null
    size_t nameIndex;       // its name in the name table
    UCString* data;         // its text so far, but for the spans below
    int depth;              // its content's nesting level

    // Text the fast path has taken and not yet appended to data, as spans
    // of the source: the level's text so far is data followed by these. The
    // fast path appends them before it returns, but for the level's end tag,
    // where ParseContent stores them with data, so that the whitespace
    // between elements is copied once and not through the string.
    struct Span {
        const UCChar* text;
        size_t length;
    };
    static constexpr int MaxSpans = 32;
    Span spans[MaxSpans];  // left uninitialised: only the first spanCount count
    int spanCount = 0;

    ContentLevel(XmlElement* e, XmlElement* last, size_t name, UCString* text, int d)
        : element(e), lastChild(last), nameIndex(name), data(text), depth(d) {}
    ContentLevel(const ContentLevel&) = delete;
    ContentLevel& operator=(const ContentLevel&) = delete;

    void AddSpan(const UCChar* text, size_t length) {
        if (spanCount == MaxSpans)
            AppendSpans();
        spans[spanCount++] = Span{text, length};
    }
    // Appends the spans to data, which the general tokeniser appends to.
    // Several spans grow data once. Long ones are appended, which fills
    // nothing before it copies; short ones are copied inline into room
    // made (and filled) first, which costs less than a call for each.
    OZM_ALWAYS_INLINE void AppendSpans() {
        if (spanCount == 1)
            data->append(spans[0].text, spans[0].length);
        else if (spanCount > 1)
            AppendSeveralSpans();
        spanCount = 0;
    }
    __attribute__((noinline)) void AppendSeveralSpans() {
        const size_t before = data->size(), units = SpanUnits();
        if (before + units > data->capacity())
            data->reserve(std::max(before + units, 2 * data->capacity()));
        if (units > 64 * size_t(spanCount)) {
            for (int i = 0; i < spanCount; ++i)
                data->append(spans[i].text, spans[i].length);
        } else {
            data->resize(before + units);
            CopySpans(data->data() + before);
        }
    }
    size_t SpanUnits() const {
        size_t units = 0;
        for (int i = 0; i < spanCount; ++i)
            units += spans[i].length;
        return units;
    }
    // Copies the spans one behind the other to to.
    void CopySpans(UCChar* to) const {
        for (int i = 0; i < spanCount; ++i) {
            OzmUnits::Copy(to, spans[i].text, spans[i].length);
            to += spans[i].length;
        }
    }
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
