// Element declarations: their tokeniser, what an element may contain, and the
// groups of a content model.
#include <string_view>
#include <unordered_set>

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

// After a '%' in token: a reference "%name;" leaves "%name" there and gives
// true. Otherwise the unit that broke the form is pushed back, or consumed
// when pushBack is false.
bool XmlDocument::ReadParamRef(UCString& token, bool pushBack) {
    UCChar c = NextChar();
    if (IsNameStart(c)) {
        token.push_back(c);
        c = ReadName(token);
        if (c == ';')
            return true;
    }
    if (pushBack)
        PushBack(c);
    return false;
}

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
    case '%':
        return ReadParamRef(token, true) ? tokParamRef : tokNone;
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

// The names of the members of a choice being read. A short choice is
// walked; a long one keeps a set of views of the names where the group holds
// them (appending moves no member), so that it is not walked for each new
// member.
class XmlDocument::ChoiceNames {
public:
    bool Has(const XmlContentPart& group, const UCString& name) {
        if (group.Parts().size() <= kWalked) {
            for (const XmlContentPart& member : group.Parts())
                if (member.m_name == name)
                    return true;
            return false;
        }
        if (!m_built) {
            for (const XmlContentPart& member : group.Parts())
                if (!member.m_name.empty())
                    m_set.insert(member.m_name);
            m_built = true;
        }
        return m_set.count(name) != 0;
    }
    // After a named member, asked for with Has, was appended to group.
    void Added(const XmlContentPart& group) {
        if (m_built)
            m_set.insert(group.Parts().back().m_name);
    }

private:
    static constexpr size_t kWalked = 8;
    std::unordered_set<std::u16string_view> m_set;
    bool m_built = false;
};

BATCHERR XmlDocument::ParseContentParts(XmlContentPart& part) {
    if (m_groupNesting >= MaxGroupNesting)
        return SetUpError(errSyntax, u"Content model nested deeper than %d groups", MaxGroupNesting);
    struct Nesting {
        int& depth;
        explicit Nesting(int& d) : depth(d) { ++depth; }
        ~Nesting() { --depth; }
    } nesting(m_groupNesting);

    UCString token;
    ChoiceNames choiceNames;
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
        // A choice keeps one member per name, as AddCP does.
        const bool named = isChoice && part.Type() != cpSequence && member.Type() == cpName;
        const bool again = named && choiceNames.Has(part, member.m_name);
        if (!again && !part.AppendCP(std::move(member), isChoice)) {
            UCString behind = token;
            if (kind == tokComma || kind == tokBar)
                ElementDeclToken(token);  // for the position of the report
            return SetUpError(errSyntax, u"Syntax error near '%S'", behind.c_str());
        }
        if (named && !again)
            choiceNames.Added(part);
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
