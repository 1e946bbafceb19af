// The fast path of the content loop: while nothing is pushed back, the
// commonest content is recognised straight in the source buffer, without a
// token string and without the unit-by-unit reads of the tokenisers.
#include <cstring>

#include "document/xmlcontentlevel.h"
#include "input/xmlcharstream.h"

// Takes character data that ends at markup, start tags ("<name>", "<name/>",
// and "<name " whose attributes the general reader takes on), whole leaf
// elements "<name>text</name>" and the end tag of the level's element, as
// long as names are ASCII and text holds no carriage return, U+2028, 0 or
// 0xFFFF unit. Lines, columns, saved error positions and the push-back stack
// end up exactly as the general tokenisers leave them. At anything else it
// stops in front of the token and returns, for the general tokeniser to read
// it.
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
        ConsumeRun(size_t(to - from));
        if (lines) {
            m_line += lines;
            m_col = int(to - lastLf - 1);
        }
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
            m_token.assign(name, length);
            if (own.size() != length || std::memcmp(own.data(), name, length * sizeof(UCChar)) != 0)
                result = SetUpError(errSyntax, u"Improper element nesting");
            m_elementStack.pop_back();
            return fastEnded;
        }
        const UCChar* nameEnd = XmlScanAsciiName(name, end);
        if (nameEnd == name || nameEnd == end)
            break;
        const size_t length = size_t(nameEnd - name);
        const UCChar t = *nameEnd;
        if (t == '>' && level.depth + 1 < MaxDepth) {
            // A leaf: text without markup, then the element's own end tag.
            const UCChar* text = nameEnd + 1;
            int lines = 0;
            const UCChar* lastLf = nullptr;
            const UCChar* textEnd = XmlScanText(text, end, lines, lastLf);
            if (size_t(end - textEnd) > length + 2 && textEnd[0] == '<' && textEnd[1] == '/' &&
                textEnd[length + 2] == '>' && std::memcmp(textEnd + 2, name, length * sizeof(UCChar)) == 0) {
                SaveErrorPos(m_line, tagCol);
                XmlElement* child = NewElement();
                if (!child) {
                    result = SetUpError(errSyntax, u"Out of memory for element '%s'", UCString(name, length).c_str());
                    return fastTook;
                }
                child->m_nameId = AddName(name, length) + 1;
                child->m_data.assign(text, size_t(textEnd - text));
                LinkChild(level, child);
                ConsumeRun(size_t(text - p));
                consume(text, textEnd, lines, lastLf);
                SaveErrorPos(m_line, m_col + 1);
                ConsumeRun(length + 3);
                p = textEnd + length + 3;
                ltRead = false;
                step = fastTook;
                continue;
            }
        }
        // A start tag whose content, if any, is read by a level of its own.
        bool isEmpty = false;
        size_t taken;
        if (t == '>') {
            taken = size_t(nameEnd + 1 - p);
        } else if (t == '/' && end - nameEnd >= 2 && nameEnd[1] == '>') {
            isEmpty = true;
            taken = size_t(nameEnd + 2 - p);
        } else if (t == ' ' || t == '\t') {
            taken = size_t(nameEnd + 1 - p);
        } else {
            break;
        }
        SaveErrorPos(m_line, tagCol);
        XmlElement* child = NewElement();
        if (!child) {
            result = SetUpError(errSyntax, u"Out of memory for element '%s'", UCString(name, length).c_str());
            return fastTook;
        }
        child->m_nameId = AddName(name, length) + 1;
        ConsumeRun(taken);
        if (t == ' ' || t == '\t') {
            // The attributes: the general reader goes on after the name.
            PushBack(t);
            child = ParseAttributes(child, isEmpty);
            if (!child) {
                result = errSyntax;
                return fastTook;
            }
        } else {
            // The position of the '>' or the '/' of "/>".
            SaveErrorPos(m_line, isEmpty ? m_col - 1 : m_col);
        }
        result = AttachChild(level, child, isEmpty);
        return fastTook;
    }
    if (ltRead) {
        ConsumeRun(1);
        PushBack(u'<');
    }
    return step;
}
