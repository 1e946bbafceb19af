// Element declarations: their tokeniser, the content specification and the
// groups of a content model.
#include "input/xmlcharstream.h"

namespace {

int CountModOf(int kind) {
    switch (kind) {
    case tokStar:
        return countStar;
    case tokQuestion:
        return countOptional;
    case tokPlus:
        return countPlus;
    default:
        return -1;
    }
}

}  // namespace

int XmlDocument::ElementDeclToken(UCString& token) {
    UCChar c = SkipSpace();
    token.assign(1, c);
    SaveErrorPos();
    if (IsNameStart(c) || c == '#') {
        PushBack(ReadName(token));
        if (OzmGlob::wcscmpi(token.c_str(), u"EMPTY") == 0)
            return tokEmpty;
        if (OzmGlob::wcscmpi(token.c_str(), u"ANY") == 0)
            return tokAny;
        if (OzmGlob::wcscmpi(token.c_str(), u"#PCDATA") == 0)
            return tokPcdata;
        return tokName;
    }
    switch (c) {
    case '(':
        return tokOpenParen;
    case ')':
        return tokCloseParen;
    case '*':
        return tokStar;
    case '+':
        return tokPlus;
    case '?':
        return tokQuestion;
    case ',':
        return tokComma;
    case '|':
        return tokBar;
    case '>':
        return tokClose;
    case '%': {
        UCChar d = NextChar();
        if (!IsNameStart(d)) {
            PushBack(d);
            return tokNone;
        }
        token.push_back(d);
        d = ReadName(token);
        if (d == ';')
            return tokParamRef;
        PushBack(d);
        return tokNone;
    }
    default:
        return tokNone;
    }
}

BATCHERR XmlDocument::ParseElementDecl() {
    UCString token;
    int kind = ElementDeclToken(token);
    if (kind != tokName)
        return UxToken(token);
    XmlElementDef* def = m_dtd.AddElement(token.c_str());
    if (!def)
        return SetUpError(errSyntax, u"Error adding element '%s'", token.c_str());
    BATCHERR result;
    // Reads the next token, including any parameter entities in front of it.
    auto next = [&]() -> BATCHERR {
        for (;;) {
            kind = ElementDeclToken(token);
            if (kind != tokParamRef)
                return errNone;
            BATCHERR r = IncludeParamEntity(token, true);
            if (r != errNone)
                return r;
        }
    };
    if ((result = next()) != errNone)
        return result;
    switch (kind) {
    case tokEmpty:
        def->Type(elemEmpty);
        kind = ElementDeclToken(token);
        break;
    case tokAny:
        def->Type(elemAny);
        kind = ElementDeclToken(token);
        break;
    case tokOpenParen:
        if ((result = next()) != errNone)
            return result;
        if (kind == tokPcdata) {
            def->Type(elemMixed);
            kind = ElementDeclToken(token);
            if (kind == tokBar) {
                XmlContentPart list;
                if ((result = ParseContentParts(list)) != errNone)
                    return result;
                if (list.Count() == 0)
                    return SetUpError(errSyntax, u"Must have at least one name");
                if (list.CountMod() != countStar)
                    return SetUpError(errSyntax, u"Trailing '*' expected");
                if (list.Count() > 1 && list.Type() != cpChoice)
                    return SetUpError(errSyntax, u"List must be a 'choice'");
                def->Contents() = std::move(list);
                kind = ElementDeclToken(token);
            } else if (kind == tokCloseParen) {
                kind = ElementDeclToken(token);
                if (kind == tokStar)
                    kind = ElementDeclToken(token);
            }
        } else if (kind == tokName || kind == tokOpenParen) {
            // The group reader starts on the first member.
            PushText(UCString(token));
            def->Type(elemChildren);
            XmlContentPart group;
            if ((result = ParseContentParts(group)) != errNone)
                return result;
            if (group.Count() == 0)
                return SetUpError(errSyntax, u"Must have at least one name");
            def->Contents() = std::move(group);
            kind = ElementDeclToken(token);
        }
        break;
    default:
        return UxToken(token);
    }
    if (kind != tokClose)
        return UxToken(token);
    if (def->Type() == elemNone)
        return SetUpError(errSyntax, u"No type determined for element %s", def->Name());
    return errNone;
}

BATCHERR XmlDocument::ParseContentParts(XmlContentPart& part) {
    if (m_groupNesting >= MaxGroupNesting)
        return SetUpError(errSyntax, u"Content model nested deeper than %d groups", MaxGroupNesting);
    struct Nesting {
        int& depth;
        explicit Nesting(int& d) : depth(d) { ++depth; }
        ~Nesting() { --depth; }
    } nesting(m_groupNesting);

    UCString token;
    int kind = ElementDeclToken(token);
    for (;;) {
        while (kind == tokParamRef) {
            BATCHERR result = IncludeParamEntity(token, true);
            if (result != errNone)
                return result;
            kind = ElementDeclToken(token);
        }
        XmlContentPart member;
        if (kind == tokName) {
            member.Name(token.c_str());
            kind = ElementDeclToken(token);
            int mod = CountModOf(kind);
            if (mod >= 0) {
                member.CountMod(mod);
                kind = ElementDeclToken(token);
            }
        } else if (kind == tokOpenParen) {
            BATCHERR result = ParseContentParts(member);
            if (result != errNone)
                return result;
            if (member.Count() == 0)
                return SetUpError(errSyntax, u"Must have at least one name");
            kind = ElementDeclToken(token);
            if (CountModOf(kind) >= 0)  // a second modifier is dropped
                kind = ElementDeclToken(token);
        } else {
            return UxToken(token);
        }
        // The token behind the member decides what kind of group it wants.
        const bool isChoice = !(kind == tokComma || (kind == tokCloseParen && part.Type() == cpSequence));
        if (!part.AddCP(member, isChoice)) {
            UCString behind = token;
            if (kind == tokComma || kind == tokBar)
                ElementDeclToken(token);  // for the position of the report
            return SetUpError(errSyntax, u"Syntax error near '%S'", behind.c_str());
        }
        if (kind == tokComma || kind == tokBar)
            kind = ElementDeclToken(token);
        if (kind == tokCloseParen)
            break;
    }
    kind = ElementDeclToken(token);
    int mod = CountModOf(kind);
    if (mod >= 0)
        part.CountMod(mod);
    else
        PushText(std::move(token));
    return errNone;
}
