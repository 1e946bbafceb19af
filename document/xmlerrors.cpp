// Error state: the message of the first failure of a parse.
#include "xmldocument.h"

BATCHERR XmlDocument::SetUpError(BATCHERR code, const UCChar* format, ...) {
    UCChar buffer[512];
    va_list args;
    va_start(args, format);
    vwsnfmt(buffer, 512, format, args);
    va_end(args);
    m_errorMessage = buffer;
    return code;
}

BATCHERR XmlDocument::UxToken(const UCString& token) {
    return SetUpError(errSyntax, u"Unexpected token '%s'", token.c_str());
}
