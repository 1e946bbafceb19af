// Error state: the message of the first failure of a parse.
#include "input/xmlpushstack.h"
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

// What a parse holds is given back first, which leaves memory for the
// message; should even that fail, the message stays empty.
BATCHERR XmlDocument::OutOfMemory() noexcept {
    PushStack().clear();
    m_hasPushTop = m_pushPending = false;
    m_resourceCopies.clear();
    m_elementStack.clear();
    for (UCString& data : m_depthData)
        UCString().swap(data);
    UCString().swap(m_token);
    UCString().swap(m_refText);
    try {
        ClearTree();
        FreeSpareBlocks();
    } catch (const std::bad_alloc&) {
        m_rootElement = nullptr;
    }
    try {
        SaveErrorPos();
        return SetUpError(errSyntax, u"Out of memory");
    } catch (const std::bad_alloc&) {
        m_errorMessage.clear();
        return errSyntax;
    }
}
