// The fast path of the content loop: while nothing is pushed back, the
// commonest content is recognised straight in the source buffer, without a
// token string and without the unit-by-unit reads of the tokenisers.
#include <climits>
#include <cstring>

#include "document/xmlcontentlevel.h"
#include "dtd/xmlpredefined.h"
#include "input/xmlcharstream.h"

namespace {

// The attributes of a start tag, as spans of the source.
struct XmlFastAttr {
    const UCChar* name;
    const UCChar* nameEnd;
    const UCChar* value;
    const UCChar* valueEnd;
};
// A start tag with more attributes is left to the general reader.
constexpr int kMaxFastAttrs = 16;
// A line that no saved position has: lines count up from 1.
constexpr int64_t kNotSaved = INT64_MIN;

OZM_HOT const UCChar* SkipBlanks(const UCChar* p, const UCChar* end) {
    for (; p != end; ++p)
        if (*p != ' ' && *p != '\t')
            break;
    return p;
}

// The rest of a start tag behind its name: attributes name="value" or
// name='value' with blanks (spaces and tabs) around, then '>' or "/>".
// Returns the '>' or the '/' of "/>", or null when the tag holds anything
// else (a line end, a name beyond ASCII, too many attributes, a token that
// does not belong) or runs past end. Blanks mostly stand before attribute
// names alone: each step tests the unit at hand before it skips any.
OZM_HOT const UCChar* ScanTagRest(const UCChar* p, const UCChar* end, XmlFastAttr* attrs, int& count) {
    count = 0;
    for (;;) {
        if (p == end)
            return nullptr;
        if (*p != '>')
            p = SkipBlanks(p, end);
        if (p == end)
            return nullptr;
        if (*p == '>')
            return p;
        if (*p == '/')
            return end - p >= 2 && p[1] == '>' ? p : nullptr;
        if (count == kMaxFastAttrs)
            return nullptr;
        XmlFastAttr& a = attrs[count];
        a.name = p;
        a.nameEnd = XmlScanAsciiName(p, end);
        if (a.nameEnd == p || a.nameEnd == end)
            return nullptr;
        p = a.nameEnd;
        if (*p != '=') {
            p = SkipBlanks(p, end);
            if (p == end || *p != '=')
                return nullptr;
        }
        if (++p == end)
            return nullptr;
        if (*p != '"' && *p != '\'') {
            p = SkipBlanks(p, end);
            if (p == end || (*p != '"' && *p != '\''))
                return nullptr;
        }
        const UCChar quote = *p;
        a.value = p + 1;
        a.valueEnd = XmlScanQuoted(a.value, end, quote);
        if (a.valueEnd == end || *a.valueEnd != quote)
            return nullptr;
        ++count;
        p = a.valueEnd + 1;
    }
}

}  // namespace

template <class A>
OZM_ALWAYS_INLINE XmlDocument::TrackedDefs* XmlDocument::TakeAttributes(XmlElement* element, const A* attrs,
                                                                        int count) {
    if (count)
        element->TakeParsedAttributes(attrs, count);
    if (!m_trackMaxLen)
        return nullptr;
    TrackedDefs& tracked = Tracked(element->m_nameId);
    for (int i = 0; i < count; ++i)
        TrackAttribute(tracked, attrs[i].name, size_t(attrs[i].nameEnd - attrs[i].name),
                       size_t(attrs[i].valueEnd - attrs[i].value));
    return &tracked;
}

bool XmlDocument::FastTagRest(XmlElement* element, bool& isEmpty) {
    if (!m_hasPushTop || !PushStack().empty() || (m_pushTop != ' ' && m_pushTop != '\t'))
        return false;
    const UCChar* run;
    const size_t n = SourceRun(run);
    if (n == 0)
        return false;
    XmlFastAttr attrs[kMaxFastAttrs];
    int count = 0;
    const UCChar* close = ScanTagRest(run, run + n, attrs, count);
    if (!close)
        return false;
    TakeAttributes(element, attrs, count);
    isEmpty = *close == '/';
    // The blank comes off the stack, where it moved no column; the last
    // token, '>' or "/>", saves the position behind its first unit.
    m_hasPushTop = false;
    m_pushPending = false;
    const int64_t saved = m_col + (close - run) + 1;
    ConsumeRun(size_t(close - run) + (isEmpty ? 2 : 1));
    SaveErrorPos(m_line, saved);
    return true;
}

const XmlEntityDef* XmlDocument::PlainReference(const UCChar* p, const UCChar* end, const UCChar*& after) {
    const UCChar* name = p + 1;
    const UCChar* nameEnd = XmlScanAsciiName(name, end);
    // The unit behind may not be 0xFFFF: the general tokeniser reads it as
    // the end of the input, which ends a token differently from how it
    // begins one.
    if (nameEnd == name || end - nameEnd < 2 || *nameEnd != ';' || nameEnd[1] == UCEof)
        return nullptr;
    const size_t length = size_t(nameEnd - name);
    const std::u16string_view key(name, length);
    const XmlEntityDef*& cached = m_referenceCache[(length * 7 + name[0]) % std::size(m_referenceCache)];
    const XmlEntityDef* entity = cached;
    if (!entity || !OzmSameText(name, length, entity->Name())) {
        // Only entities of plain text are kept, so that one found there
        // needs no look at its value.
        entity = m_dtd.FindEntity(key);
        if (!entity || entity->ValueLength() == 0)
            return nullptr;
        // Plain text is what the text scan takes whole, with no line feed.
        const UCChar* value = entity->Value();
        const UCChar* valueEnd = value + entity->ValueLength();
        int64_t lines = 0;
        const UCChar* lastLf = nullptr;
        if (XmlScanText(value, valueEnd, lines, lastLf) != valueEnd || lines)
            return nullptr;
        cached = entity;
    }
    if (!XmlIsPredefinedEntity(key)) {
        const uint64_t expansion = m_entityExpansion + entity->ValueLength() + ReferenceCost;
        if (expansion > m_expansionAllowed)
            return nullptr;
        m_entityExpansion = expansion;
    }
    after = nameEnd + 1;
    return entity;
}

// Takes character data that ends at markup, references to entities of plain
// text, start tags with their attributes, whole leaf elements
// "<name ...>text</name>" and the end tag of the level's element, as long as
// names are ASCII, tags hold no line end, and text and values hold no
// carriage return, U+2028, 0 or 0xFFFF unit. Lines, columns, saved error
// positions and the push-back stack end up exactly as the general
// tokenisers leave them. At anything else it stops in front of the token,
// for the general tokeniser to read it.
int XmlDocument::FastContent(ContentLevel& level, BATCHERR& result) {
    const UCChar* run;
    const size_t n = PendingRun(run);
    if (n == 0)
        return fastNone;
    // The position in the run, the line and column, and the error position
    // saved last are kept here while tokens are taken, and handed to the
    // stream and the error state once, when the fast path stops or an
    // exception leaves it. Nothing is pushed back meanwhile, so every unit
    // taken moves the column.
    struct Cursor {
        XmlDocument& doc;
        const UCChar* const run;
        const UCChar* p;
        int64_t line;
        int64_t col;
        int64_t errLine = kNotSaved;  // no position saved yet
        int64_t errCol = 0;
        bool open = true;
        Cursor(XmlDocument& d, const UCChar* r) : doc(d), run(r), p(r), line(d.m_line), col(d.m_col) {}
        Cursor(const Cursor&) = delete;
        Cursor& operator=(const Cursor&) = delete;
        ~Cursor() {
            if (open)
                Close();
        }
        void Save(int64_t l, int64_t c) {
            errLine = l;
            errCol = c;
        }
        // Takes the units up to to, none of them a line end.
        void Skip(const UCChar* to) {
            col += to - p;
            p = to;
        }
        // Takes the units up to to, which hold lines line feeds, the last of
        // them at lastLf.
        void Take(const UCChar* to, int64_t lines, const UCChar* lastLf) {
            if (lines) {
                line += lines;
                col = to - lastLf - 1;
            } else {
                col += to - p;
            }
            p = to;
        }
        OZM_ALWAYS_INLINE void Close() {
            open = false;
            if (doc.m_sourceString)
                doc.m_stringCursor = p;
            else
                doc.m_sourceFile->Skip(size_t(p - run));
            doc.m_line = line;
            doc.m_col = col;
            if (errLine != kNotSaved)
                doc.SaveErrorPos(errLine, errCol);
        }
    };
    Cursor at(*this, run);
    const UCChar*& p = at.p;
    const UCChar* const end = run + n;
    // Set when the '<' or '&' at p ended the text or the reference before
    // it. The general tokeniser has then read that unit and pushed it back:
    // its column already counts in the position the next token saves.
    bool ltRead = false;
    // Text that ends at a '<' or '&' in front of p, which the general
    // tokeniser reads as one token and which ends with that unit read.
    const auto takeText = [&](const UCChar* stop, int64_t lines, const UCChar* lastLf) __attribute__((always_inline)) {
        at.Save(at.line, at.col);
        level.AddSpan(p, size_t(stop - p));
        at.Take(stop, lines, lastLf);
        ltRead = true;
    };
    if (m_scannedText.from) {
        // The level's first text, scanned already by the leaf check of the
        // level above.
        const ScannedText scanned = m_scannedText;
        m_scannedText.from = nullptr;
        if (scanned.from == run && scanned.end == end && scanned.stop != run && scanned.stop != end &&
            (*scanned.stop == '<' || *scanned.stop == '&'))
            takeText(scanned.stop, scanned.lines, scanned.lastLf);
    }
    while (p != end) {
        if (*p != '<') {
            if (*p == '&') {
                // A reference to an entity of plain text adds the value to the
                // text. The general tokeniser reads such a value as one token
                // with the text behind it, up to and including the next '<' or
                // '&', which it pushes back: the position saved is that behind
                // the ';', and ltRead tells whether the unit at p was read.
                const UCChar* after;
                if (const XmlEntityDef* entity = PlainReference(p, end, after)) {
                    at.Skip(after);
                    at.Save(at.line, at.col);
                    level.AddSpan(entity->Value(), entity->ValueLength());
                    ltRead = *p == '<' || *p == '&';
                    continue;
                }
                if (!ltRead)
                    break;
                // Any other reference is left to the general tokeniser, to
                // which its '&' has been read.
                at.Skip(p + 1);
                PushBack(u'&');
                level.AppendSpans();
                return fastTook;
            }
            int64_t lines = 0;
            const UCChar* lastLf = nullptr;
            const UCChar* stop = XmlScanText(p, end, lines, lastLf);
            if (stop == end || (*stop != '<' && *stop != '&'))
                break;
            takeText(stop, lines, lastLf);
            if (*p == '&')
                continue;
        }
        // A tag at p; the position its token saves.
        const int64_t tagCol = at.col + (ltRead ? 1 : 0);
        const UCChar* name = p + 1;
        if (name == end)
            break;
        if (*name == '/') {
            ++name;
            const UCChar* nameEnd = XmlScanAsciiName(name, end);
            if (nameEnd == name || nameEnd == end || *nameEnd != '>')
                break;
            at.Save(at.line, tagCol);
            at.Skip(nameEnd + 1);
            const UCString& own = m_names[level.nameIndex];
            const size_t length = size_t(nameEnd - name);
            if (own.size() != length || !OzmUnits::Same(own.data(), name, length))
                result = SetUpError(errSyntax, u"Improper element nesting");
            m_elementStack.pop_back();
            return fastEnded;
        }
        const UCChar* nameEnd = XmlScanAsciiName(name, end);
        if (nameEnd == name)
            break;
        const size_t length = size_t(nameEnd - name);
        XmlFastAttr attrs[kMaxFastAttrs];
        int attrCount = 0;
        const UCChar* close = ScanTagRest(nameEnd, end, attrs, attrCount);
        if (!close)
            break;
        const bool isEmpty = *close == '/';
        const UCChar* afterTag = close + (isEmpty ? 2 : 1);
        // A leaf: text without markup, then the element's own end tag.
        const UCChar* text = afterTag;
        const UCChar* textEnd = nullptr;
        const UCChar* stop = nullptr;
        int64_t lines = 0;
        const UCChar* lastLf = nullptr;
        if (!isEmpty && level.depth + 1 < MaxDepth) {
            stop = XmlScanText(text, end, lines, lastLf);
            if (size_t(end - stop) > length + 2 && stop[0] == '<' && stop[1] == '/' && stop[length + 2] == '>' &&
                OzmUnits::Same(stop + 2, name, length))
                textEnd = stop;
        }
        at.Save(at.line, tagCol);
        XmlElement* child = NewNode();
        if (!child) {
            level.AppendSpans();
            result = SetUpError(errSyntax, u"Out of memory for element '%s'", UCString(name, length).c_str());
            return fastTook;
        }
        child->m_nameId = CachedName(name, length) + 1;
        TrackedDefs* tracked = TakeAttributes(child, attrs, attrCount);
        if (textEnd) {
            if (tracked && tracked->element)
                tracked->element->MaxLen(int(textEnd - text));
            const size_t textLength = size_t(textEnd - text);
            child->m_data.Borrow(child->m_block->StoreText(text, textLength), textLength);
            LinkChild(level, child);
            at.Skip(text);
            at.Take(textEnd, lines, lastLf);
            // The end tag's token saves the position of its '<'.
            at.Save(at.line, at.col + 1);
            at.Skip(textEnd + length + 3);
            ltRead = false;
            continue;
        }
        // The position saved last is that of the '>' or of the '/' of "/>".
        at.Skip(afterTag);
        at.Save(at.line, isEmpty ? at.col - 1 : at.col);
        if (isEmpty) {
            LinkChild(level, child);
            ltRead = false;
            continue;
        }
        // Content is read by a level of its own, which may read the source
        // beyond the block the spans point into.
        at.Close();
        level.AppendSpans();
        if (stop)
            m_scannedText = ScannedText{text, end, stop, lines, lastLf};
        result = AttachChild(level, child, false);
        return fastTook;
    }
    if (ltRead) {
        at.Skip(p + 1);
        PushBack(u'<');
    }
    level.AppendSpans();
    // Every token taken moved p.
    return p != run ? fastTook : fastNone;
}
