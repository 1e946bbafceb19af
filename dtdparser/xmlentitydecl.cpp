// Entity declarations, general and parameter, internal and external.
#include "input/xmlcharstream.h"

BATCHERR XmlDocument::ParseEntityDecl() {
    UCString token;
    int kind = PrologToken(token, false);
    const bool isParam = kind == tokPercent;
    if (isParam)
        kind = PrologToken(token, false);
    if (kind != tokName)
        return Unexpected(kind, token);
    UCString name = token;
    UCString value;
    BATCHERR result;
    kind = PrologToken(token, false);
    if (kind == tokQuoted) {
        value = token;
        if ((result = Rescan(value, true, true)) != errNone)
            return result;
    } else if (kind == tokName) {
        // An external identifier. A name that is neither keyword leaves the
        // URI empty, which then fails to open.
        UCString uri, publicId;
        const bool isPublic = OzmGlob::wcscmpi(token.c_str(), u"PUBLIC") == 0;
        if (isPublic || OzmGlob::wcscmpi(token.c_str(), u"SYSTEM") == 0) {
            kind = PrologToken(token, false);
            if (isPublic && kind == tokQuoted) {  // for a resolver; the model keeps no public identifier
                publicId = token;
                kind = PrologToken(token, false);
            }
            if (kind != tokQuoted)
                return Unexpected(kind, token);
            uri = token;
        }
        if ((result = ReadParsedURI(uri.c_str(), publicId.c_str(), value)) != errNone)
            return result;
        if ((result = Rescan(value, false, false)) != errNone)
            return result;
    } else {
        return Unexpected(kind, token);
    }
    if (isParam)
        name.insert(name.begin(), u'%');
    // The value is a text with a terminator: a unit 0 that a character
    // reference gave ends it.
    value.resize(UCString::traits_type::length(value.c_str()));
    if (!m_dtd.AddEntity(name.c_str(), std::move(value)))
        return SetUpError(errSyntax, u"Error adding entity decl for '%s'", name.c_str());
    kind = PrologToken(token, false);
    return kind == tokClose ? errNone : Unexpected(kind, token);
}
