// The DTD writer: XmlDtd::Write and its routines for attribute lists and
// content models.
//
// Every routine gathers its small pieces of text into a bounded buffer on the
// stack and hands it to the stream as runs of units
// (XmlOutputStream::Write), so that each target receives exactly what piece
// by piece delivery would give it, with one call per run. Content models are
// walked with an explicit stack: a model built by a caller may be nested
// deeper than any call stack.
#include <cstring>
#include <string>
#include <vector>

#include "xmldtd.h"
#include "xmloutput.h"
#include "output/xmlpieces.h"

namespace {

using Batch = XmlPieces;

constexpr size_t kBatchUnits = 2048;

// Length of a terminated text, which is what a writer sends of a string.
inline size_t TextLength(const UCChar* text) { return std::char_traits<UCChar>::length(text); }

void PutCountMod(Batch& batch, int countMod) {
    switch (countMod) {
    case countPlus:
        batch.Put(u'+');
        break;
    case countStar:
        batch.Put(u'*');
        break;
    case countOptional:
        batch.Put(u'?');
        break;
    default:  // countOne, and values without a text
        break;
    }
}

const UCChar* AttTypeText(int type) {
    switch (type) {
    case attCdata:
        return u"CDATA";
    case attId:
        return u"ID";
    case attIdref:
        return u"IDREF";
    case attIdrefs:
        return u"IDREFS";
    case attEntity:
        return u"ENTITY";
    case attEntities:
        return u"ENTITIES";
    case attNmtoken:
        return u"NMTOKEN";
    case attNmtokens:
        return u"NMTOKENS";
    default:  // attNone, attNotation and unknown values have no text
        return u"Whoops";
    }
}

// The open groups of a content model being written, innermost last. The
// first levels live in the object itself; only deeper models allocate.
template <class Frame>
class FrameStack {
public:
    bool Empty() const { return m_count == 0; }
    Frame& Back() { return m_count <= kLocal ? m_local[m_count - 1] : m_more[m_count - kLocal - 1]; }
    void Push(const Frame& f) {
        if (m_count < kLocal)
            m_local[m_count] = f;
        else
            m_more.push_back(f);
        ++m_count;
    }
    void Pop() {
        if (m_count > kLocal)
            m_more.pop_back();
        --m_count;
    }

private:
    static constexpr size_t kLocal = 32;
    Frame m_local[kLocal];
    std::vector<Frame> m_more;
    size_t m_count = 0;
};

}  // namespace

void XmlDtd::WriteContentPart(XmlOutputStream& out, const XmlContentPart& part, bool closeParen) const {
    UCChar buffer[kBatchUnits];
    Batch batch(out, buffer, kBatchUnits);
    struct Frame {
        const XmlContentPart* part;
        XmlDeque<XmlContentPart>::const_iterator next;  // the next child to write
        bool closeParen;
        bool first;
    };
    FrameStack<Frame> open;
    // What follows a part: its closing parenthesis and its count modifier.
    auto finish = [&batch](const XmlContentPart& p, bool close) {
        if (close)
            batch.Put(u')');
        PutCountMod(batch, p.CountMod());
    };
    // Writes a name or a part without text at once; a group is opened.
    auto begin = [&](const XmlContentPart& p, bool close) {
        switch (p.Type()) {
        case cpName:
            batch.Put(p.Name());
            finish(p, close);
            break;
        case cpSequence:
        case cpChoice:
            open.Push(Frame{&p, p.Parts().begin(), close, true});
            break;
        default:
            batch.Literal(u"Whoops");
            finish(p, close);
            break;
        }
    };
    begin(part, closeParen);
    while (!open.Empty()) {
        Frame& top = open.Back();
        if (top.next == top.part->Parts().end()) {
            const XmlContentPart& done = *top.part;
            const bool close = top.closeParen;
            open.Pop();
            finish(done, close);
            continue;
        }
        const XmlContentPart& child = *top.next;
        ++top.next;
        if (!top.first) {
            if (top.part->Type() == cpSequence)
                batch.Literal(u", ");
            else
                batch.Literal(u" | ");
        }
        top.first = false;
        // A group of one member gets no parentheses of its own.
        const bool paren = child.Count() > 1;
        if (paren)
            batch.Put(u'(');
        begin(child, paren);  // may push: top is not used after this
    }
}

void XmlDtd::WriteAttrList(XmlOutputStream& out, const XmlAttrList* list, bool) const {
    UCChar buffer[kBatchUnits];
    Batch batch(out, buffer, kBatchUnits);
    batch.Literal(u"<!ATTLIST ");
    batch.Put(list->Name());
    for (const XmlAttDef& def : list->m_defs) {
        batch.Put(u'\n');
        batch.Spaces(10);
        const size_t nameLength = TextLength(def.Name());
        batch.Put(def.Name(), nameLength);
        // The types line up for names of up to nine units.
        batch.Spaces(1 + (nameLength < 10 ? 10 - nameLength : 1));
        if (def.m_type == attEnumerated) {
            batch.Put(u'(');
            bool first = true;
            for (const UCString& value : def.m_enums) {
                if (!first)
                    batch.Literal(u" | ");
                first = false;
                batch.Put(value.c_str());
            }
            batch.Put(u')');
        } else {
            batch.Put(AttTypeText(def.m_type));
        }
        batch.Spaces(2);
        // Default values go out as they were stored, whatever escape says,
        // between the quotes they can stand in: a stored value holds '"'
        // only when it was written between apostrophes, which it then lacks.
        const UCChar* value = def.DefVal();
        const UCChar quote = value && std::char_traits<UCChar>::find(value, TextLength(value), u'"') ? u'\'' : u'"';
        switch (def.m_defType) {
        case defRequired:
            batch.Literal(u"#REQUIRED");
            break;
        case defImplied:
            batch.Literal(u"#IMPLIED");
            break;
        case defFixed:
            batch.Literal(u"#FIXED ");
            batch.Put(quote);
            batch.Put(value);
            batch.Put(quote);
            break;
        case defValue:
            batch.Put(quote);
            batch.Put(value);
            batch.Put(quote);
            break;
        default:  // defNone: nothing, the two spaces stand
            break;
        }
    }
    batch.Literal(u">\n");
}

BATCHERR XmlDtd::Write(XmlOutputStream& out, bool withExternals, bool lineBreaks, bool escape) const {
    if (!m_haveContents)
        return errNone;
    // The predefined entities at the front are never written.
    auto entity = m_entities.begin();
    for (size_t skip = 0; skip < kXmlPredefinedCount && entity != m_entities.end(); ++skip)
        ++entity;
    auto element = m_elements.begin();
    auto list = m_attrLists.begin();
    bool haveDecls = entity != m_entities.end() || element != m_elements.end() || list != m_attrLists.end();
    const bool haveIds = withExternals && !m_systemIds.empty();
    if (!haveDecls && !haveIds)
        return errNone;
    if (haveDecls && haveIds) {
        // Only internal definitions are written; they stand first in each
        // list, so the first one of each list decides.
        haveDecls = (entity != m_entities.end() && !entity->IsExternal()) ||
                    (element != m_elements.end() && !element->IsExternal()) ||
                    (list != m_attrLists.end() && !list->IsExternal());
    }

    UCChar buffer[kBatchUnits];
    Batch batch(out, buffer, kBatchUnits);
    batch.Literal(u"<!DOCTYPE ");
    const size_t docTypeLength = TextLength(m_docType.c_str());
    batch.Put(m_docType.c_str(), docTypeLength);
    batch.Put(u' ');
    if (haveIds) {
        for (size_t i = 0; i < m_systemIds.size(); ++i) {
            if (i > 0) {
                // Each further identifier stands below the first.
                batch.Put(u'\n');
                batch.Spaces(docTypeLength + 11);
            }
            if (!m_publicIds[i].empty()) {
                batch.Literal(u"PUBLIC \"");
                batch.Put(m_publicIds[i].c_str());
                batch.Literal(u"\" \"");
                batch.Put(m_systemIds[i].c_str());
                batch.Put(u'"');
                if (lineBreaks)
                    batch.Put(u'\n');
            } else {
                batch.Literal(u"SYSTEM \"");
                batch.Put(m_systemIds[i].c_str());
                batch.Put(u'"');
            }
        }
        if (lineBreaks && haveDecls)
            batch.Put(u'\n');
    }
    if (haveDecls) {
        batch.Put(u'[');
        if (lineBreaks)
            batch.Put(u'\n');
        for (; entity != m_entities.end(); ++entity) {
            if (withExternals && entity->IsExternal())
                break;
            batch.Literal(u"<!ENTITY ");
            const UCChar* name = entity->Name();
            if (name[0] == u'%') {
                batch.Literal(u"% ");
                ++name;
            }
            batch.Put(name);
            batch.Literal(u" \"");
            if (escape)
                batch.Escaped(entity->Value(), size_t(entity->ValueLength()));
            else
                batch.Put(entity->Value());
            batch.Literal(u"\">");
            if (lineBreaks)
                batch.Put(u'\n');
        }
        for (; element != m_elements.end(); ++element) {
            if (withExternals && element->IsExternal())
                break;
            batch.Literal(u"<!ELEMENT ");
            batch.Put(element->Name());
            batch.Put(u' ');
            const XmlContentPart& contents = element->Contents();
            switch (element->Type()) {
            case elemEmpty:
                batch.Literal(u"EMPTY");
                break;
            case elemAny:
                batch.Literal(u"ANY");
                break;
            case elemMixed:
                batch.Literal(u"(#PCDATA");
                if (contents.Count() == 0) {
                    batch.Put(u')');
                } else {
                    batch.Literal(u" | ");
                    batch.Flush();
                    WriteContentPart(out, contents, true);
                }
                break;
            default:
                batch.Put(u'(');
                batch.Flush();
                WriteContentPart(out, contents, true);
                break;
            }
            batch.Put(u'>');
            if (lineBreaks)
                batch.Put(u'\n');
            const XmlAttrList* attrs = FindAttrList(element->Name());
            if (attrs && !(withExternals && attrs->IsExternal())) {
                batch.Flush();
                WriteAttrList(out, attrs, lineBreaks);
            }
        }
        // Lists of names without an element; a second list for a name is
        // never written.
        for (; list != m_attrLists.end(); ++list) {
            if (withExternals && list->IsExternal())
                break;
            if (!FindElement(list->Name())) {
                batch.Flush();
                WriteAttrList(out, &*list, lineBreaks);
            }
        }
        batch.Put(u']');
    }
    batch.Put(u'>');
    if (lineBreaks)
        batch.Put(u'\n');
    return errNone;
}
