// The fast path of the content loop: while nothing is pushed back, the
// commonest content is recognised straight in the source buffer, without a
// token string and without the unit-by-unit reads of the tokenisers.
#include <cstring>

#include "document/xmlcontentlevel.h"
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

OZM_HOT const UCChar* SkipBlanks(const UCChar* p, const UCChar* end) {
    while (p != end && (*p == ' ' || *p == '\t'))
        ++p;
    return p;
}

// The rest of a start tag behind its name: attributes name="value" or
// name='value' with blanks (spaces and tabs) around, then '>' or "/>".
// Returns the '>' or the '/' of "/>", or null when the tag holds anything
// else (a line end, a name beyond ASCII, too many attributes, a token that
// does not belong) or runs past end.
const UCChar* ScanTagRest(const UCChar* p, const UCChar* end, XmlFastAttr* attrs, int& count) {
    count = 0;
    for (;;) {
        const UCChar* q = SkipBlanks(p, end);
        if (q == end)
            return nullptr;
        if (*q == '>')
            return q;
        if (*q == '/')
            return end - q >= 2 && q[1] == '>' ? q : nullptr;
        if (count == kMaxFastAttrs)
            return nullptr;
        XmlFastAttr& a = attrs[count];
        a.name = q;
        a.nameEnd = XmlScanAsciiName(q, end);
        if (a.nameEnd == q || a.nameEnd == end)
            return nullptr;
        q = SkipBlanks(a.nameEnd, end);
        if (q == end || *q != '=')
            return nullptr;
        q = SkipBlanks(q + 1, end);
        if (q == end || (*q != '"' && *q != '\''))
            return nullptr;
        const UCChar quote = *q;
        a.value = q + 1;
        a.valueEnd = XmlScanQuoted(a.value, end, quote);
        if (a.valueEnd == end || *a.valueEnd != quote)
            return nullptr;
        ++count;
        p = a.valueEnd + 1;
    }
}

}  // namespace

// Takes character data that ends at markup, start tags with their
// attributes, whole leaf elements "<name ...>text</name>" and the end tag of
// the level's element, as long as names are ASCII, tags hold no line end, and
// text and values hold no carriage return, U+2028, 0 or 0xFFFF unit. Lines,
// columns, saved error positions and the push-back stack end up exactly as
// the general tokenisers leave them. At anything else it stops in front of
// the token, for the general tokeniser to read it.
int XmlDocument::FastContent(ContentLevel& level, BATCHERR& result) {
    const UCChar* run;
    const size_t n = PendingRun(run);
    if (n == 0)
        return fastNone;
    const UCChar* p = run;
    const UCChar* const end = run + n;
    int step = fastNone;
    // Set when the '<' at p ended the text before it. The general tokeniser
    // has then read that '<' and pushed it back: its column already counts
    // in the position the next token saves.
    bool ltRead = false;
    // Consumes [from, to), which holds the given line feeds.
    auto consume = [this](const UCChar* from, const UCChar* to, int lines, const UCChar* lastLf) {
        ConsumeLines(size_t(to - from), lines, lines ? size_t(to - lastLf - 1) : 0);
    };
    while (p != end) {
        if (*p != '<') {
            if (*p == '&')
                break;
            int lines = 0;
            const UCChar* lastLf = nullptr;
            const UCChar* stop = XmlScanText(p, end, lines, lastLf);
            if (stop == end || (*stop != '<' && *stop != '&'))
                break;
            SaveErrorPos();
            level.data->append(p, size_t(stop - p));
            consume(p, stop, lines, lastLf);
            p = stop;
            step = fastTook;
            if (*p == '&') {
                ConsumeRun(1);
                PushBack(u'&');
                return step;
            }
            ltRead = true;
        }
        // A tag at p; the position its token saves.
        const int tagCol = m_col + (ltRead ? 1 : 0);
        const UCChar* name = p + 1;
        if (name == end)
            break;
        if (*name == '/') {
            ++name;
            const UCChar* nameEnd = XmlScanAsciiName(name, end);
            if (nameEnd == name || nameEnd == end || *nameEnd != '>')
                break;
            SaveErrorPos(m_line, tagCol);
            ConsumeRun(size_t(nameEnd + 1 - p));
            const UCString& own = m_names[level.nameIndex];
            const size_t length = size_t(nameEnd - name);
            if (own.size() != length || !XmlSameUnits(own.data(), name, length))
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
        int lines = 0;
        const UCChar* lastLf = nullptr;
        if (!isEmpty && level.depth + 1 < MaxDepth) {
            const UCChar* stop = XmlScanText(text, end, lines, lastLf);
            if (size_t(end - stop) > length + 2 && stop[0] == '<' && stop[1] == '/' && stop[length + 2] == '>' &&
                XmlSameUnits(stop + 2, name, length))
                textEnd = stop;
        }
        SaveErrorPos(m_line, tagCol);
        XmlElement* child = NewNode();
        if (!child) {
            result = SetUpError(errSyntax, u"Out of memory for element '%s'", UCString(name, length).c_str());
            return fastTook;
        }
        child->m_nameId = CachedName(name, length) + 1;
        child->m_attributes.reserve(size_t(attrCount));
        for (int i = 0; i < attrCount; ++i)
            child->m_attributes.emplace_back(
                std::u16string_view(attrs[i].name, size_t(attrs[i].nameEnd - attrs[i].name)),
                std::u16string_view(attrs[i].value, size_t(attrs[i].valueEnd - attrs[i].value)));
        TrackedDefs* tracked = nullptr;
        if (m_trackMaxLen) {
            tracked = &Tracked(child->m_nameId);
            for (int i = 0; i < attrCount; ++i)
                TrackAttribute(*tracked, attrs[i].name, size_t(attrs[i].nameEnd - attrs[i].name),
                               size_t(attrs[i].valueEnd - attrs[i].value));
        }
        if (textEnd) {
            if (tracked && tracked->element)
                tracked->element->MaxLen(int(textEnd - text));
            const size_t textLength = size_t(textEnd - text);
            child->m_data.Borrow(child->m_block->StoreText(text, textLength), textLength);
            LinkChild(level, child);
            ConsumeRun(size_t(text - p));
            consume(text, textEnd, lines, lastLf);
            // The end tag's token saves the position of its '<'.
            SaveErrorPos(m_line, m_col + 1);
            ConsumeRun(length + 3);
            p = textEnd + length + 3;
            ltRead = false;
            step = fastTook;
            continue;
        }
        // Content, if any, is read by a level of its own. The position saved
        // last is that of the '>' or of the '/' of "/>".
        ConsumeRun(size_t(afterTag - p));
        SaveErrorPos(m_line, isEmpty ? m_col - 1 : m_col);
        result = AttachChild(level, child, isEmpty);
        return fastTook;
    }
    if (ltRead) {
        ConsumeRun(1);
        PushBack(u'<');
    }
    return step;
}
