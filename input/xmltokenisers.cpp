// The tokenisers of the prolog, of element content and of start tags.
#include "input/xmlcharstream.h"
#include "dtd/xmlpredefined.h"

namespace {
bool EndsWithCommentClose(const UCString& s) {
    size_t n = s.size();
    return n >= 3 && s[n - 3] == '-' && s[n - 2] == '-' && s[n - 1] == '>';
}
}  // namespace

void XmlDocument::PushBack(const UCChar* text) {
    PushText(UCString(text));
}

// Pushes a whole text above everything pending, the single top unit included.
void XmlDocument::PushText(UCString&& text) {
    if (text.empty())
        return;
    if (m_hasPushTop) {
        PushStack().push(m_pushTop);
        m_hasPushTop = false;
    }
    PushStack().push(std::move(text));
    m_pushPending = true;
}

// Appends units to token up to stop1, stop2, a carriage return or a UCEof
// unit, taking them straight from the source while nothing is pushed back.
// Line ends among them are counted as NextChar counts them, and units of
// value 0 are counted in m_dataNulls. The stopping unit is left unread.
// The stops are ASCII units below 0x7F.
void XmlDocument::ScanRun(UCString& token, UCChar stop1, UCChar stop2) {
    const UCChar* run;
    size_t n = PendingRun(run);
    if (n == 0)
        return;
    const UCChar* const end = run + n;
    const UCChar* p = run;
    const UCChar* lineStart = run;
    int64_t lines = 0;
    const OzmUnits::Stops<5, true> interesting(stop1, stop2, 13, 10, 0);
    for (;;) {
        p = OzmUnits::Find(p, end, interesting);
        if (p == end)
            break;
        const UCChar u = *p;
        if (u == stop1 || u == stop2 || u == 13 || u == UCEof)
            break;
        if (u == 10 || u == 0x2028) {
            ++lines;
            lineStart = p + 1;
        } else if (u == 0) {
            ++m_dataNulls;
        }
        ++p;
    }
    if (p == run)
        return;
    token.append(run, size_t(p - run));
    ConsumeLines(size_t(p - run), lines, size_t(p - lineStart));
}

int XmlDocument::ReadQuoted(UCString& token, UCChar quote) {
    token.clear();
    for (;;) {
        ScanRun(token, quote, quote);
        UCChar c = NextChar();
        if (c == quote)
            return tokQuoted;
        if (c == UCEof)
            return tokNone;
        token.push_back(c);
    }
}

// Reads a comment after "<!--": the text up to "-->", which is dropped.
int XmlDocument::ReadComment(UCString& token) {
    token.clear();
    for (;;) {
        // Every '-' and '>' goes through the test for the end.
        ScanRun(token, '-', '>');
        UCChar c = NextChar();
        if (c == UCEof)
            return tokNone;
        token.push_back(c);
        if (c == '>' && EndsWithCommentClose(token)) {
            token.erase(token.size() - 3);
            return tokComment;
        }
    }
}

// The opening that the prolog and start-tag tokenisers share: blanks
// skipped, the first unit taken as the token with its position saved, then a
// name or a quoted string read whole. Returns true with kind set when one of
// those was read; otherwise c is the first unit, for the caller's own cases.
bool XmlDocument::OpenToken(UCString& token, UCChar& c, int& kind) {
    c = SkipSpace();
    token.clear();
    token.push_back(c);
    SaveErrorPos();
    if (IsNameStart(c)) {
        PushBack(ReadName(token));
        kind = tokName;
        return true;
    }
    if (c == '\'' || c == '"') {
        kind = ReadQuoted(token, c);
        return true;
    }
    return false;
}

int XmlDocument::PrologToken(UCString& token, bool allowXmlDecl) {
    UCChar c;
    int kind;
    if (OpenToken(token, c, kind))
        return kind;
    switch (c) {
    case '%': {
        UCChar d = NextChar();
        if (IsNameStart(d)) {
            token.push_back(d);
            return ReadName(token) == ';' ? tokParamRef : tokNone;
        }
        PushBack(d);
        return tokPercent;
    }
    case '<': {
        UCChar d = NextChar();
        if (d == '?' || d == '!') {
            if (m_markupNesting >= MaxMarkupNesting) {
                token.push_back(d);
                return tokNone;
            }
            UCString inner;
            int kind;
            if (d == '?') {
                ++m_markupNesting;
                kind = PrologToken(inner, false);
                --m_markupNesting;
                if (kind == tokName) {
                    token = inner;
                    return allowXmlDecl && OzmGlob::wcscmpi(token.c_str(), u"XML") == 0 ? tokXmlDecl : tokPIStart;
                }
                UxToken(u"<?");
                return tokError;
            }
            UCChar a = NextChar();
            UCChar b = NextChar();
            if (a == '-' && b == '-')
                return ReadComment(token);
            PushBack(b);
            PushBack(a);
            ++m_markupNesting;
            kind = PrologToken(inner, false);
            --m_markupNesting;
            if (kind == tokName) {
                token = u"<!" + inner;
                static const struct {
                    const UCChar* keyword;
                    int kind;
                } keywords[] = {{u"DOCTYPE", tokDoctype},
                                {u"ENTITY", tokEntityDecl},
                                {u"ELEMENT", tokElementDecl},
                                {u"ATTLIST", tokAttlistDecl},
                                {u"NOTATION", tokNotationDecl}};
                for (const auto& k : keywords)
                    if (OzmGlob::wcscmpi(inner.c_str(), k.keyword) == 0)
                        return k.kind;
                return tokNone;
            }
            if (kind == tokOpenBracket) {
                token = u"<![";
                return tokConditional;
            }
            UxToken(u"<!");
            return tokError;
        }
        PushBack(d);
        return tokEndProlog;
    }
    case '=':
        return tokEquals;
    case '>':
        return tokClose;
    case '?': {
        UCChar d = NextChar();
        if (d == '>') {
            token.push_back(d);
            return tokPIEnd;
        }
        PushBack(d);
        return tokNone;
    }
    case '[':
        return tokOpenBracket;
    case ']':
        return tokCloseBracket;
    default:
        return tokNone;
    }
}

int XmlDocument::ContentToken(UCString& token, UCString* charData) {
    token.clear();
    SaveErrorPos();
    UCChar c = NextChar();
    token.push_back(c);
    if (c == UCEof)
        return tokNone;
    if (c == '&')
        return ReadReference(token, charData);
    if (c != '<') {
        UCString& text = charData ? *charData : token;
        if (charData)
            text.push_back(c);
        for (;;) {
            if (c == 0)
                ++m_dataNulls;
            ScanRun(text, '<', '&');
            c = NextChar();
            if (c == '<' || c == '&') {
                PushBack(c);
                return tokCharData;
            }
            if (c == UCEof)
                return tokCharData;
            text.push_back(c);
        }
    }
    c = NextChar();
    if (IsNameStart(c)) {
        token.clear();
        token.push_back(c);
        PushBack(ReadName(token));
        return tokStartTag;
    }
    if (c == '/') {
        c = NextChar();
        if (!IsNameStart(c))
            return tokNone;
        token.clear();
        token.push_back(c);
        return ReadName(token) == '>' ? tokEndTag : tokNone;
    }
    if (c == '!') {
        UCChar a = NextChar();
        UCChar b = NextChar();
        if (a == '-' && b == '-')
            return ReadComment(token);
    }
    return tokNone;
}

// A reference in content, after its '&'. A character reference resolves
// to its unit; an entity's replacement text is pushed back and read as
// content, markup included, by the next call.
int XmlDocument::ReadReference(UCString& token, UCString* charData) {
    UCChar c = NextChar();
    if (c == '#') {
        m_refText = u"&#";
        do {
            c = NextChar();
            if (c == UCEof)
                break;
            m_refText.push_back(c);
        } while (c != ';');
        if (c == ';' && Rescan(m_refText, false, true) == errNone) {
            token = m_refText;
            if (charData)
                *charData += m_refText;
            if (m_refText.size() == 1 && m_refText[0] == 0)
                ++m_dataNulls;
            return tokCharData;
        }
        PushBack(m_refText.c_str() + 1);
        return tokNone;
    }
    if (!IsNameStart(c)) {
        PushBack(c);
        return tokNone;
    }
    // The name runs to the ';', taken a run at a time from the source.
    m_refText.assign(1, c);
    for (;;) {
        ScanRun(m_refText, ';', ';');
        c = NextChar();
        if (c == ';' || c == UCEof)
            break;
        m_refText.push_back(c);
    }
    const XmlEntityDef* entity = c == ';' ? m_dtd.FindEntity(m_refText.c_str()) : nullptr;
    if (entity) {
        // The five predefined entities are short and final; everything else
        // counts against the limits.
        if (!XmlIsPredefinedEntity(m_refText)) {
            m_entityExpansion += entity->ValueLength() + ReferenceCost;
            if (!ExpansionAllowed()) {
                SetUpError(errSyntax, u"Entity expansion exceeds %llu units at '&%s;'",
                           static_cast<unsigned long long>(m_expansionAllowed), m_refText.c_str());
                return tokError;
            }
        }
        if (m_entityNesting >= MaxEntityNesting) {
            SetUpError(errSyntax, u"Entity references nested too deeply at '&%s;'", m_refText.c_str());
            return tokError;
        }
        // The replacement text is read from the definition, which does not
        // change while the content is read.
        PushBack(entity->Value());
        ++m_entityNesting;
        int kind = ContentToken(token, charData);
        --m_entityNesting;
        return kind;
    }
    token = u"&" + m_refText;
    token.push_back(c);
    return tokNone;
}

int XmlDocument::ElementBeginToken(UCString& token) {
    UCChar c;
    int kind;
    if (OpenToken(token, c, kind))
        return kind;
    switch (c) {
    case '/': {
        UCChar d = NextChar();
        if (d == '>') {
            token.push_back(d);
            return tokEmptyClose;
        }
        PushBack(d);
        return tokNone;
    }
    case '=':
        return tokEquals;
    case '>':
        return tokClose;
    default:
        return tokNone;
    }
}
