// XmlContentPart: one node of a content model and the groups built from it.
//
// Content models can be nested arbitrarily deep by a caller, so every walk
// over a whole subtree (copy, destruction, Contains, ListOfNames) keeps its
// own list of pending work instead of recursing once per level.
#include <string_view>
#include <utility>
#include <vector>

#include "xmldtd.h"

namespace {

std::u16string_view Key(const UCChar* name) { return std::u16string_view(name ? name : u""); }

}  // namespace

XmlContentPart::XmlContentPart(const XmlContentPart& other) {
    CopyFields(other);
    CopyTree(other);
}

XmlContentPart::XmlContentPart(XmlContentPart&& other) noexcept
    : m_name(std::move(other.m_name)),
      m_parts(std::move(other.m_parts)),
      m_type(other.m_type),
      m_countMod(other.m_countMod),
      m_actualCount(other.m_actualCount) {
    other.m_name.clear();
    other.m_type = cpNone;
    other.m_countMod = countOne;
    other.m_actualCount = 0;
}

void XmlContentPart::operator=(const XmlContentPart& other) {
    if (this == &other)
        return;
    // The copy is complete before anything of this part changes, so other
    // may be one of this part's own descendants.
    XmlContentPart copy(other);
    *this = std::move(copy);
}

void XmlContentPart::operator=(XmlContentPart&& other) noexcept {
    if (this == &other)
        return;
    // Take everything out of other first: other may live in the subtree that
    // is about to be replaced.
    UCString name(std::move(other.m_name));
    XmlDeque<XmlContentPart> parts(std::move(other.Parts()));
    int type = other.m_type;
    int countMod = other.m_countMod;
    int actualCount = other.m_actualCount;
    other.m_name.clear();
    other.m_type = cpNone;
    other.m_countMod = countOne;
    other.m_actualCount = 0;

    Parts() = std::move(parts);
    m_name = std::move(name);
    m_type = type;
    m_countMod = countMod;
    m_actualCount = actualCount;
}

XmlContentPart::~XmlContentPart() {
    // Strip the grandchildren level by level before the children die, so
    // that each destructor below finds no children of its own to recurse
    // into. Nothing is allocated for a group of plain names.
    std::vector<XmlDeque<XmlContentPart>> pending;
    for (XmlContentPart& child : Parts())
        if (!child.Parts().empty())
            pending.push_back(std::move(child.Parts()));
    while (!pending.empty()) {
        XmlDeque<XmlContentPart> level(std::move(pending.back()));
        pending.pop_back();
        for (XmlContentPart& child : level)
            if (!child.Parts().empty())
                pending.push_back(std::move(child.Parts()));
    }
}

void XmlContentPart::CopyFields(const XmlContentPart& other) {
    m_name = other.m_name;
    m_type = other.m_type;
    m_countMod = other.m_countMod;
    m_actualCount = other.m_actualCount;
}

// Copies the subtree below other under this part, which has no children yet.
void XmlContentPart::CopyTree(const XmlContentPart& other) {
    if (other.Parts().empty())
        return;
    std::vector<std::pair<const XmlContentPart*, XmlContentPart*>> pending;
    pending.emplace_back(&other, this);
    while (!pending.empty()) {
        auto [from, to] = pending.back();
        pending.pop_back();
        for (const XmlContentPart& child : from->Parts()) {
            XmlContentPart& copy = to->Parts().emplace_back();
            copy.CopyFields(child);
            if (!child.Parts().empty())
                pending.emplace_back(&child, &copy);
        }
    }
}

void XmlContentPart::Name(const UCChar* name) {
    try {
        m_name = name ? name : u"";
        m_type = cpName;
    } catch (const std::bad_alloc&) {
    }
}

int XmlContentPart::Count() const {
    switch (m_type) {
    case cpNone:
        return 0;
    case cpName:
        return m_name.empty() ? 0 : 1;
    default:
        return int(Parts().size());
    }
}

bool XmlContentPart::AddCP(const XmlContentPart& part, bool isChoice) {
    if (m_type == cpSequence && isChoice)
        return false;
    if (m_type == cpChoice && !isChoice)
        return false;
    // A choice holds each name once; the first one keeps its modifier.
    if (isChoice && !part.m_name.empty()) {
        for (const XmlContentPart& child : Parts())
            if (child.m_name == part.m_name) {
                m_type = cpChoice;
                return true;
            }
    }
    try {
        // Copied before the append, since part may be this part or lie below it.
        XmlContentPart copy(part);
        Parts().push_back(std::move(copy));
    } catch (const std::bad_alloc&) {
        return false;
    }
    m_type = isChoice ? cpChoice : cpSequence;
    return true;
}

bool XmlContentPart::AppendCP(XmlContentPart&& part, bool isChoice) {
    if (m_type == (isChoice ? cpSequence : cpChoice))
        return false;
    m_type = isChoice ? cpChoice : cpSequence;
    Parts().push_back(std::move(part));
    return true;
}

bool XmlContentPart::InsertCP(const XmlContentPart& part, int index) {
    if (m_type != cpSequence)
        return false;
    size_t count = Parts().size();
    if (static_cast<unsigned>(index) > count)
        return false;
    try {
        XmlContentPart copy(part);
        if (size_t(index) == count) {
            Parts().push_back(std::move(copy));
            return true;
        }
        // The queue has no insertion, so the children are moved into a new
        // one, which has room for all of them before the first moves: moving
        // a child carries its own children along without copying them, and
        // cannot fail.
        XmlDeque<XmlContentPart> rebuilt;
        rebuilt.reserve(count + 1);
        Rebuild(rebuilt, std::move(copy), size_t(index));
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

void XmlContentPart::Rebuild(XmlDeque<XmlContentPart>& rebuilt, XmlContentPart&& copy, size_t index) {
    size_t i = 0;
    for (XmlContentPart& child : Parts()) {
        if (i++ == index)
            rebuilt.push_back(std::move(copy));
        rebuilt.push_back(std::move(child));
    }
    Parts().swap(rebuilt);
}

bool XmlContentPart::ReplaceCP(const XmlContentPart& part, int index) {
    if (index < 0 || size_t(index) >= Parts().size())
        return false;
    try {
        Parts()[size_t(index)] = part;  // the copy is made before the child changes
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

XmlContentPart& XmlContentPart::operator[](int index) {
    if (Parts().empty()) {
        // Nothing to hand out: a harmless stand-in that is emptied each time.
        static thread_local XmlContentPart s_none;
        s_none.Clear();
        return s_none;
    }
    if (index < 0 || size_t(index) >= Parts().size())
        index = 0;
    return Parts()[size_t(index)];
}

const XmlContentPart& XmlContentPart::operator[](int index) const {
    if (Parts().empty()) {
        static const XmlContentPart s_none;
        return s_none;
    }
    if (index < 0 || size_t(index) >= Parts().size())
        index = 0;
    return Parts()[size_t(index)];
}

bool XmlContentPart::Contains(const UCChar* name) const {
    std::u16string_view key = Key(name);
    if (key == m_name)
        return true;
    std::vector<const XmlDeque<XmlContentPart>*> pending;
    const XmlDeque<XmlContentPart>* level = &Parts();
    for (;;) {
        for (const XmlContentPart& child : *level) {
            if (key == child.m_name)
                return true;
            if (!child.Parts().empty())
                pending.push_back(&child.Parts());
        }
        if (pending.empty())
            return false;
        level = pending.back();
        pending.pop_back();
    }
}

void XmlContentPart::ListOfNames(std::vector<UCString>& list) const {
    typedef XmlDeque<XmlContentPart>::const_iterator Iter;
    // Where to go on in each group that was left to descend into a child.
    std::vector<Iter> resume;
    Iter it = Parts().begin();
    for (;;) {
        if (it == Iter()) {
            if (resume.empty())
                return;
            it = resume.back();
            resume.pop_back();
            continue;
        }
        const XmlContentPart& child = *it;
        ++it;
        if (child.m_type == cpName) {
            list.push_back(child.m_name);
        } else if (!child.Parts().empty()) {
            resume.push_back(it);
            it = child.Parts().begin();
        }
    }
}

void XmlContentPart::Clear() {
    m_name.clear();
    XmlDeque<XmlContentPart> old(std::move(Parts()));
    m_type = cpNone;
    m_countMod = countOne;
    m_actualCount = 0;
}
