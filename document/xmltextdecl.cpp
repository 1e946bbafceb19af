// The XML declaration: version, encoding and standalone, in any order.
#include <clocale>
#include <cstdlib>
#include <locale.h>
#include <string>

#include "xmldocument.h"

namespace {

// wcstod over UCChar text, always in the C locale: reads the longest prefix
// that is a floating-point number, 0 when there is none.
double TextToDouble(const UCString& text) {
    std::string narrow;
    narrow.reserve(text.size());
    for (UCChar c : text)
        narrow.push_back(c < 0x80 && c != 0 ? char(c) : '\x01');
    static const locale_t cLocale = newlocale(LC_ALL_MASK, "C", locale_t(0));
    return strtod_l(narrow.c_str(), nullptr, cLocale);
}

}  // namespace

BATCHERR XmlDocument::ParseTextDecl(OZM_CSET& encoding, double& version, bool& standalone) {
    standalone = true;
    UCString token;
    for (;;) {
        int kind = PrologToken(token, false);
        if (kind == tokPIEnd)
            return errNone;
        if (kind == tokError)
            return errSyntax;  // the tokeniser has set the message
        if (kind != tokName)
            return UxToken(token);
        enum { attVersion, attEncoding, attStandalone } which;
        if (OzmGlob::wcscmpi(token.c_str(), u"version") == 0)
            which = attVersion;
        else if (OzmGlob::wcscmpi(token.c_str(), u"encoding") == 0)
            which = attEncoding;
        else if (OzmGlob::wcscmpi(token.c_str(), u"standalone") == 0)
            which = attStandalone;
        else
            return SetUpError(errSyntax, u"Invalid attribute '%s' in XMLDecl", token.c_str());
        if (PrologToken(token, false) != tokEquals || PrologToken(token, false) != tokQuoted)
            return UxToken(token);
        switch (which) {
        case attVersion:
            version = TextToDouble(token);
            if (version != 1.0)
                return SetUpError(errSyntax, u"Unsupported XML version %.1f", version);
            break;
        case attEncoding:
            // The name is only tested when the text comes from a file.
            if (m_sourceFile) {
                encoding = OzmGlob::EncodingByName(token.c_str());
                if (encoding == csetUnknown)
                    return SetUpError(errSyntax, u"Unsupported encoding '%s'", token.c_str());
                // A declaration too long for the file layer to find its
                // encoding: the text is being read as UTF-8.
                if (m_sourceFile->DeclarationCut() && encoding != m_sourceFile->Encoding() && encoding != csetUTF16 &&
                    encoding != csetUTF16LE && encoding != csetUTF16BE)
                    return SetUpError(errSyntax, u"Encoding '%s' is declared too far into the file to be used",
                                      token.c_str());
            }
            break;
        case attStandalone:
            if (OzmGlob::wcscmpi(token.c_str(), u"yes") == 0)
                standalone = true;
            else if (OzmGlob::wcscmpi(token.c_str(), u"no") == 0)
                standalone = false;
            else
                return SetUpError(errSyntax, u"Standalone attribute must be 'yes' or 'no'");
            break;
        }
    }
}
