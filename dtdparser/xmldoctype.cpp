// The document type declaration: its name and external identifiers, the loop
// over the declarations of a subset, conditional sections, parameter-entity
// inclusion, and stand-alone external subsets.
#include <algorithm>
#include <set>

#include "input/xmlcharstream.h"

bool XmlDocument::CountExpansion(size_t units, const UCChar* format, const UCChar* what) {
    m_entityExpansion += units;
    if (ExpansionAllowed())
        return true;
    SetUpError(errSyntax, format, static_cast<unsigned long long>(m_expansionAllowed), what);
    return false;
}

bool XmlDocument::WidenExpansion() {
    const uint64_t byInput = EntityExpansionRatio * InputUnitsRead();
    m_expansionAllowed = std::max<uint64_t>(MaxEntityExpansion, byInput) + m_externalBytes;
    return m_entityExpansion <= m_expansionAllowed;
}

uint64_t XmlDocument::InputUnitsRead() const {
    if (m_sourceString)
        return uint64_t(m_stringCursor - m_sourceString->data());
    if (m_sourceFile)
        return m_sourceFile->UnitsRead();
    return m_moduleUnits;
}

BATCHERR XmlDocument::IncludeParamEntity(const UCString& ref, bool reportUndefined) {
    const XmlEntityDef* entity = m_dtd.FindEntity(ref.c_str());
    if (!entity)
        return reportUndefined ? SetUpError(errSyntax, u"Unable to resolve entity '%s'", ref.c_str()) : errNone;
    if (PushStack().depth() >= MaxPushNesting)
        return SetUpError(errSyntax, u"Entity references nested too deeply at '%s;'", ref.c_str());
    const size_t length = entity->ValueLength();
    if (!CountExpansion(length + 2, u"Entity expansion exceeds %llu units at '%s;'", ref.c_str()))
        return errSyntax;
    UCString text;
    text.reserve(length + 2);
    text.push_back(u' ');
    text.append(entity->Value(), length);
    text.push_back(u' ');
    PushText(std::move(text));
    return errNone;
}

BATCHERR XmlDocument::ParseDoctypeDecl(bool ignoreDtd) {
    UCString token;
    BATCHERR result = errNone;
    // System identifiers of the external subsets, in the order of their clauses.
    std::vector<UCString> pending, pendingPublic;
    int kind = PrologToken(token, false);
    if (kind != tokName) {
        result = Unexpected(kind, token);
    } else {
        m_dtd.DocType(token);
        kind = PrologToken(token, false);
        while (result == errNone && kind == tokName) {
            const bool isSystem = OzmGlob::wcscmpi(token.c_str(), u"SYSTEM") == 0;
            if (!isSystem && OzmGlob::wcscmpi(token.c_str(), u"PUBLIC") != 0) {
                result = UxToken(token);
                break;
            }
            UCString publicId;
            kind = PrologToken(token, false);
            if (!isSystem && kind == tokQuoted) {
                publicId = token;
                kind = PrologToken(token, false);
            }
            if (kind != tokQuoted) {
                result = Unexpected(kind, token);
                break;
            }
            pending.push_back(token);
            pendingPublic.push_back(publicId);
            m_dtd.ExternalDTD(isSystem ? nullptr : publicId.c_str(), token.c_str());
            kind = PrologToken(token, false);
        }
    }
    if (result == errNone) {
        m_dtd.DoingExterns(false);
        if (kind == tokOpenBracket) {
            result = ParseDoctypeParts(kind, token);
            if (result == errNone && kind == tokCloseBracket)
                kind = PrologToken(token, false);
        }
    }
    if (result == errNone) {
        m_dtd.DoingExterns(true);
        const int64_t savedLine = m_line;
        const int64_t savedCol = m_col;
        const UCString savedName = m_fileName;
        for (size_t next = 0; !ignoreDtd && result == errNone && kind == tokClose && next < pending.size(); ++next) {
            m_line = 1;
            m_col = 0;
            FileName(pending[next].c_str());
            UCString text;
            result = ReadParsedURI(pending[next].c_str(), pendingPublic[next].c_str(), text);
            if (result != errNone)
                break;
            // The subset reads as its text followed by a '>', which ends it.
            PushBack(u'>');
            PushText(std::move(text));
            result = ParseDoctypeParts(kind, token);
        }
        m_line = savedLine;
        m_col = savedCol;
        FileName(savedName.c_str());
        if (result == errNone && kind != tokClose)
            result = Unexpected(kind, token);
        if (result == errNone && !ignoreDtd)
            result = VerifyDTD();
    }
    if (ignoreDtd)
        m_dtd.Clear();
    return result;
}

BATCHERR XmlDocument::ParseDoctypeParts(int& kind, UCString& token) {
    for (;;) {
        BATCHERR result = errNone;
        kind = PrologToken(token, false);
        switch (kind) {
        case tokElementDecl:
            result = ParseElementDecl();
            break;
        case tokAttlistDecl:
            result = ParseAttrList();
            break;
        case tokEntityDecl:
            result = ParseEntityDecl();
            break;
        case tokNotationDecl: {
            // Skipped whole, unread. The end of the input stops the skip, and
            // the caller reports it as the token that ended the subset.
            UCString skipped;
            int k;
            do {
                k = PrologToken(skipped, false);
            } while (k != tokClose && k != tokError && !(k == tokNone && skipped.size() == 1 && skipped[0] == UCEof));
            if (k == tokError)
                return errSyntax;
            if (k == tokNone) {
                kind = k;
                token = skipped;
                return errNone;
            }
            break;
        }
        case tokParamRef:
            result = IncludeParamEntity(token, true);
            break;
        case tokComment:
            break;
        case tokConditional:
            result = ParseConditional();
            break;
        case tokError:
            return errSyntax;
        default:
            return errNone;
        }
        if (result != errNone)
            return result;
    }
}

BATCHERR XmlDocument::ParseConditional() {
    UCString token;
    int kind = PrologToken(token, false);
    while (kind == tokParamRef) {
        BATCHERR result = IncludeParamEntity(token, true);
        if (result != errNone)
            return result;
        kind = PrologToken(token, false);
    }
    if (kind != tokName)
        return Unexpected(kind, token);
    const bool include = OzmGlob::wcscmpi(token.c_str(), u"INCLUDE") == 0;
    kind = PrologToken(token, false);
    if (kind != tokOpenBracket)
        return Unexpected(kind, token);

    // The section up to its matching "]]>", unit by unit as the stream gives
    // it. A '<' or ']' takes the two units behind it into a look-ahead of
    // three, which is tested for "<![" and "]]>" and then kept.
    UCString text;
    UCChar look[3];
    bool haveLook = false;
    int depth = 1;
    while (depth != 0) {
        if (!haveLook)
            ScanRun(text, '<', ']');
        UCChar c = NextChar();
        if (c == UCEof)
            break;
        if (haveLook) {
            text.append(look, 3);
            haveLook = false;
        }
        if (c != '<' && c != ']') {
            text.push_back(c);
            continue;
        }
        look[0] = c;
        look[1] = NextChar();
        look[2] = NextChar();
        haveLook = true;
        if (c == '<' && look[1] == '!' && look[2] == '[')
            ++depth;
        else if (c == ']' && look[1] == ']' && look[2] == '>')
            --depth;
    }
    if (!include)
        return errNone;
    if (!CountExpansion(text.size(), u"Included sections exceed %llu units at '%s'", u"<![INCLUDE["))
        return errSyntax;
    // Read on by the caller's loop, as part of the subset.
    PushText(std::move(text));
    return errNone;
}

BATCHERR XmlDocument::ParseExternalDTD(const UCChar* uri) {
    if (!uri)
        uri = u"";
    return Guarded([&] { return ReadExternalDTD(uri); });
}

BATCHERR XmlDocument::ReadExternalDTD(const UCChar* uri) {
    m_dtd.Clear();
    m_line = 1;
    m_col = 0;
    FileName(uri);
    UCString text;
    // The file the program names is read as named.
    BATCHERR result;
    {
        struct Policy {
            XmlResources& at;
            XmlResources saved;
            ~Policy() { at = std::move(saved); }
        } policy{m_resources, std::move(m_resources)};
        m_resources = XmlResources();
        result = ReadParsedURI(uri, nullptr, text);
    }
    m_dtd.DoingExterns(true);
    m_dtd.ExternalDTD(nullptr, uri);
    if (result == errNone) {
        PushText(std::move(text));
        int kind;
        UCString token;
        result = ParseDoctypeParts(kind, token);
    }
    m_dtd.DoingExterns(false);
    // A token out of place ends the subset; what lies behind it is not read,
    // and is not left for a later call either.
    PushStack().clear();
    m_hasPushTop = m_pushPending = false;
    if (result != errNone)
        return result;

    // The root: the one element with element content that no other such
    // element's model names.
    std::set<UCString> roots;
    for (int i = 0; i < m_dtd.ElementCount(); ++i)
        if (m_dtd.ElementAt(i)->Type() == elemChildren)
            roots.insert(m_dtd.ElementAt(i)->Name());
    std::vector<UCString> names;
    for (int i = 0; i < m_dtd.ElementCount() && !roots.empty(); ++i) {
        const XmlElementDef* def = m_dtd.ElementAt(i);
        if (def->Type() != elemChildren)
            continue;
        names.clear();
        def->Contents().ListOfNames(names);
        for (const UCString& name : names)
            roots.erase(name);
    }
    if (roots.size() != 1)
        return SetUpError(errSyntax, u"Could not find single root element in external DTD subset");
    m_dtd.DocType(*roots.begin());
    return VerifyDTD();
}
