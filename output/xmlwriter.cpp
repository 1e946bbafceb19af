// The writers: XmlDocument::Write, XmlElement::Write, WriteEscaped and
// XmlElement::GetData.
//
// Trees built by callers have no depth limit, so the tree is walked by
// XmlWalkTree, which keeps a stack of its own. The writers gather
// the small pieces of markup into a bounded buffer and hand it
// to the stream as runs of units (XmlOutputStream::Write), so that every
// target receives exactly the units it would get piece by piece, with one
// call per run instead of several per element.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "xmldocument.h"
#include "xmloutput.h"
#include "output/xmlpieces.h"

namespace {

// The definition part of XmlDocument::Write, after its line feed: the DTD
// writer's result is not looked at.
void WriteDefinitionPart(const XmlDocument& document, XmlOutputStream& out, bool withExternals, bool lineBreaks,
                         bool escape) {
    document.GetDTD().Write(out, withExternals, lineBreaks, escape);
}

}  // namespace

void WriteEscaped(XmlOutputStream& out, const UCChar* text) {
    if (!text)
        return;
    UCChar buffer[512];
    XmlPieces pieces(out, buffer, sizeof buffer / sizeof buffer[0]);
    pieces.Escaped(text, std::char_traits<UCChar>::length(text));
}

void XmlElement::Write(XmlOutputStream& out, int indent, bool escape, bool lineBreaks, int indentStep,
                       bool writeEmpty) const {
    try {
        WriteSubtree(out, indent, escape, lineBreaks, indentStep, writeEmpty);
    } catch (const std::bad_alloc&) {
        // The output ends where memory ran out.
    }
}

void XmlElement::WriteSubtree(XmlOutputStream& out, int indent, bool escape, bool lineBreaks, int indentStep,
                              bool writeEmpty) const {
    // One buffer per call, large enough that file targets get large writes;
    // a small one on the stack if it can't be had.
    constexpr size_t kLarge = 65536;
    UCChar fallback[256];
    std::unique_ptr<UCChar[]> large(new (std::nothrow) UCChar[kLarge]);
    XmlPieces pieces(out, large ? large.get() : fallback, large ? kLarge : sizeof fallback / sizeof fallback[0]);
    // Each distinct name is looked up and measured once per call. The name
    // table doesn't change during a write, so its texts stay where they are.
    const XmlDocument* nameDocument = m_block ? m_block->Document() : nullptr;
    std::vector<std::pair<const UCChar*, size_t>> names;
    auto putName = [&](const XmlElement* x) {
        const int id = x->m_nameId;
        if (id <= 0 || !x->m_block || x->m_block->Document() != nameDocument) {
            pieces.Put(x->Name());
            return;
        }
        if (size_t(id) >= names.size())
            names.resize(size_t(id) + 1, {nullptr, 0});
        std::pair<const UCChar*, size_t>& n = names[size_t(id)];
        if (!n.first) {
            n.first = x->Name();
            n.second = std::char_traits<UCChar>::length(n.first);
        }
        pieces.Put(n.first, n.second);
    };
    auto endTag = [&](const XmlElement* e) {
        pieces.Put(u"</", 2);
        putName(e);
        pieces.Put(u'>');
        if (lineBreaks)
            pieces.Put(u'\n');
    };
    // Enters an element: writes it whole when it has no child, or its start
    // tag and data, leaving the end tag to its leave call.
    auto enter = [&](const XmlElement* e, int depth) {
        const long long level = indent + (long long)depth * indentStep;
        const bool hasData = !e->m_data.empty();
        // An element with neither data nor child is skipped unless writeEmpty;
        // its attributes don't count.
        if (!writeEmpty && !e->m_child && !hasData)
            return false;
        if (lineBreaks)
            pieces.Spaces(level);
        pieces.Put(u'<');
        putName(e);
        const XmlElement::Attr* attrs = e->AttrItems();
        for (int i = 0, count = e->AttributeCount(); i < count; ++i) {
            pieces.Put(u' ');
            pieces.Put(attrs[i].name);
            pieces.Put(u"=\"", 2);
            pieces.Put(attrs[i].value);
            pieces.Put(u'"');
        }
        if (!e->m_child && !hasData) {
            pieces.Put(u"/>", 2);
            if (lineBreaks)
                pieces.Put(u'\n');
            return false;
        }
        pieces.Put(u'>');
        if (hasData) {
            // A node's text never holds a zero unit: the parser and Data
            // both end it there.
            if (escape)
                pieces.Escaped(e->m_data.data(), e->m_data.size());
            else
                pieces.Put(e->m_data.data(), e->m_data.size());
        }
        if (e->m_child) {
            if (lineBreaks)
                pieces.Put(u'\n');
            return true;
        }
        endTag(e);
        return false;
    };
    // The element Write was called on ends it all; its own siblings are not
    // written.
    XmlWalkTree(this, enter, [&](const XmlElement* e, int depth) {
        if (lineBreaks)
            pieces.Spaces(indent + (long long)depth * indentStep);
        endTag(e);
    });
}

void XmlElement::GetData(UCString& out, XMLD mode) const {
    try {
        CollectData(out, mode);
    } catch (const std::bad_alloc&) {
        // out holds what fitted.
    }
}

void XmlElement::CollectData(UCString& out, XMLD mode) const {
    out.append(m_data.data(), m_data.size());
    if (mode == XMLD_Own)
        return;
    const bool markup = mode == XMLD_Markup;
    auto endTag = [&](const XmlElement* e) {
        out += u"</";
        out += e->Name();
        out += u'>';
    };
    XmlWalkTree(
        this,
        [&](const XmlElement* e, int depth) {
            if (depth == 0)
                return true;  // this element's own data is in already
            if (markup) {
                out += u'<';
                out += e->Name();
                out += u'>';
            }
            out.append(e->m_data.data(), e->m_data.size());
            if (e->m_child)
                return true;
            if (markup)
                endTag(e);
            return false;
        },
        [&](const XmlElement* e, int depth) {
            if (markup && depth > 0)
                endTag(e);
        });
}

BATCHERR XmlDocument::Write(XmlOutputStream& out, bool withExternals, bool lineBreaks, bool escape, int parts,
                            bool writeEmpty) const {
    try {
        WriteParts(out, withExternals, lineBreaks, escape, parts, writeEmpty);
    } catch (const std::bad_alloc&) {
        return errSyntax;  // the output ends where memory ran out
    }
    return errNone;
}

void XmlDocument::WriteParts(XmlOutputStream& out, bool withExternals, bool lineBreaks, bool escape, int parts,
                             bool writeEmpty) const {
    if (parts & 1) {
        // The text goes out as UTF-8 or UTF-16 (or as the units themselves):
        // a document read in any other set is declared UTF-8, so that what
        // is written never names a set its bytes are not in.
        OZM_CSET set = OzmGlob::ISOEncoding(m_encoding);
        if (set != csetUTF16 && set != csetUTF16LE && set != csetUTF16BE)
            set = csetUTF8;
        const UCChar* encoding = OzmGlob::EncodingToName(set);
        out << u"<?xml version=\"";
        out.Format(u"%1.1f", m_version);
        out << u"\" encoding=\"" << encoding << u"\"?>";
        if (lineBreaks)
            out << u'\n';
    }
    if (parts & 2) {
        // Sent even when the definition turns out to have nothing to write.
        if (lineBreaks)
            out << u'\n';
        WriteDefinitionPart(*this, out, withExternals, lineBreaks, escape);
    }
    if ((parts & 4) && m_rootElement)
        m_rootElement->WriteSubtree(out, 0, escape, lineBreaks, 4, writeEmpty);
}
