// Attribute-list declarations and their tokeniser, which drops comments and
// includes parameter entities by itself.
#include "input/xmlcharstream.h"

int XmlDocument::AttrListToken(UCString& token, bool nameOnly) {
    for (;;) {
        UCChar c = SkipSpace();
        token.assign(1, c);
        SaveErrorPos();
        if (IsNameStart(c) || c == '#') {
            PushBack(ReadName(token));
            if (nameOnly)
                return tokName;
            static const struct {
                const UCChar* keyword;
                int kind;
            } keywords[] = {{u"CDATA", tokCdata},       {u"ID", tokId},           {u"IDREF", tokIdref},
                            {u"IDREFS", tokIdrefs},     {u"ENTITY", tokEntity},   {u"ENTITIES", tokEntities},
                            {u"NMTOKEN", tokNmtoken},   {u"NMTOKENS", tokNmtokens}, {u"#IMPLIED", tokImplied},
                            {u"#REQUIRED", tokRequired}, {u"#FIXED", tokFixed},   {u"NOTATION", tokNotation}};
            for (const auto& k : keywords)
                if (token == k.keyword)
                    return k.kind;
            return tokName;
        }
        switch (c) {
        case '\'':
        case '"':
            return ReadQuoted(token, c);
        case '(':
            return tokOpenParen;
        case ')':
            return tokCloseParen;
        case '|':
            return tokBar;
        case '>':
            return tokClose;
        case '%': {
            UCChar d = NextChar();
            if (!IsNameStart(d))
                return tokNone;
            token.push_back(d);
            if (ReadName(token) != ';')
                return tokNone;
            // An undefined entity vanishes.
            BATCHERR result = IncludeParamEntity(token, false);
            if (result != errNone)
                return tokError;
            continue;
        }
        case '<': {
            UCChar d = NextChar();
            if (d != '!')
                return tokNone;
            token.push_back(d);
            d = NextChar();
            if (d != '-')
                return tokNone;
            token.push_back(d);
            d = NextChar();
            if (d != '-')
                return tokNone;
            if (ReadComment(token) != tokComment) {
                token.assign(1, UCEof);
                return tokNone;
            }
            continue;
        }
        default:
            return tokNone;
        }
    }
}

// The names of an enumeration or notation type, after its '('; kept as the
// definition's values when keep is set.
BATCHERR XmlDocument::ParseEnumeration(XmlAttDef* def, bool keep) {
    UCString token;
    int kind = AttrListToken(token, true);
    while (kind == tokName) {
        if (keep)
            def->AddEnum(token.c_str());
        kind = AttrListToken(token, false);
        if (kind == tokCloseParen)
            break;
        if (kind != tokBar)
            return Unexpected(kind, token);
        kind = AttrListToken(token, true);
    }
    return kind == tokCloseParen ? errNone : Unexpected(kind, token);
}

BATCHERR XmlDocument::ParseAttrList() {
    UCString token;
    int kind = PrologToken(token, false);
    if (kind != tokName)
        return Unexpected(kind, token);
    XmlAttrList* list = m_dtd.AddAttrList(token.c_str());
    if (!list)
        return SetUpError(errSyntax, u"Error adding attrlist '%s'", token.c_str());
    kind = AttrListToken(token, true);
    while (kind != tokClose) {
        if (kind != tokName)
            return Unexpected(kind, token);
        XmlAttDef* def = list->AddAttDef(token.c_str());
        if (!def)
            return SetUpError(errSyntax, u"Error adding attdef '%s'", token.c_str());
        kind = AttrListToken(token, false);
        BATCHERR result = errNone;
        switch (kind) {
        case tokCdata:
            def->Type(attCdata);
            break;
        case tokId:
            def->Type(attId);
            break;
        case tokIdref:
            def->Type(attIdref);
            break;
        case tokIdrefs:
            def->Type(attIdrefs);
            break;
        case tokEntity:
            def->Type(attEntity);
            break;
        case tokEntities:
            def->Type(attEntities);
            break;
        case tokNmtoken:
            def->Type(attNmtoken);
            break;
        case tokNmtokens:
            def->Type(attNmtokens);
            break;
        case tokOpenParen:
            def->Type(attEnumerated);
            result = ParseEnumeration(def, true);
            break;
        case tokNotation:
            def->Type(attNotation);
            kind = AttrListToken(token, false);
            result = kind == tokOpenParen ? ParseEnumeration(def, false) : Unexpected(kind, token);
            break;
        default:
            return Unexpected(kind, token);
        }
        if (result != errNone)
            return result;
        kind = AttrListToken(token, false);
        switch (kind) {
        case tokQuoted:
            def->DefType(defValue);
            def->DefVal(token.c_str());
            break;
        case tokImplied:
            def->DefType(defImplied);
            break;
        case tokRequired:
            def->DefType(defRequired);
            break;
        case tokFixed:
            def->DefType(defFixed);
            kind = AttrListToken(token, false);
            if (kind != tokQuoted)
                return Unexpected(kind, token);
            def->DefVal(token.c_str());
            break;
        case tokClose:
            continue;
        default:
            return Unexpected(kind, token);
        }
        kind = AttrListToken(token, true);
    }
    return errNone;
}
