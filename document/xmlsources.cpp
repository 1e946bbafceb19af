// The ways into a document that bring a source of their own: a text file and
// an I/O module.
#include <cerrno>
#include <memory>
#include <new>

#include "xmldocument.h"

BATCHERR XmlDocument::ParseFile(const UCChar* path, bool validate, bool ignoreDtd) {
    if (!path)
        path = u"";  // and so no file
    m_sourceString = nullptr;
    m_lwio = nullptr;
    BATCHERR result = Guarded([&] {
        FileName(path);
        if (!m_input)
            m_input.reset(new OzmUCFile);
        if (m_input->Open(path, u"r", 1, csetDefault) < 0) {
            if (errno == ENOMEM)
                throw std::bad_alloc();
            m_errorMessage = u"Unable to open source file ";
            m_errorMessage += path;
            return errOpenSource;
        }
        UCChar dir[OZM_MAX_PATH];
        UCChar name[OZM_MAX_PATH];
        UCChar ext[OZM_MAX_PATH];
        size_t n = UCString::traits_type::length(path);
        if (n >= size_t(OZM_MAX_PATH))
            n = OZM_MAX_PATH - 1;
        UCString::traits_type::copy(dir, path, n);
        dir[n] = 0;
        OzmGlob::sepfile(dir, name, ext);
        m_sourceDir = dir;
        return ParseInput(path, validate, ignoreDtd);
    });
    if (m_input)
        m_input->CloseKeepingBuffers();
    m_sourceFile = nullptr;
    return result;
}

BATCHERR XmlDocument::ParseBytes(const void* data, size_t length, bool validate, bool ignoreDtd,
                                 const UCChar* baseDir) {
    m_sourceString = nullptr;
    m_lwio = nullptr;
    BATCHERR result = Guarded([&] {
        FileName(u"bytes");
        if (!m_input)
            m_input.reset(new OzmUCFile);
        if (m_input->OpenMemory(data, length, 1) < 0) {
            m_errorMessage = u"Unable to read the bytes: no data";
            return errOpenSource;
        }
        // A bare name is appended to the directory as it stands.
        m_sourceDir = baseDir ? baseDir : u"";
        if (!m_sourceDir.empty() && m_sourceDir.back() != u'/')
            m_sourceDir += u'/';
        return ParseInput(u"bytes", validate, ignoreDtd);
    });
    if (m_input)
        m_input->CloseKeepingBuffers();
    m_sourceFile = nullptr;
    return result;
}

BATCHERR XmlDocument::ParseInput(const UCChar* name, bool validate, bool ignoreDtd) {
    m_sourceFile = m_input.get();
    // A byte-order mark of either order switches to 16-bit reading; the
    // rewind leaves the mark to the file layer, and the column untouched.
    // Without a mark the two units are given back to the decoded block
    // instead: a small file is not decoded twice, and a pipe, which cannot
    // seek, reads from its start.
    UCChar first = m_sourceFile->Getc();
    UCChar second = m_sourceFile->Getc();
    const bool mark = (first == 0xFF && second == 0xFE) || (first == 0xFE && second == 0xFF);
    if (mark)
        m_sourceFile->Format(4);
    if (mark || second == UCEof || !m_sourceFile->Unread(2))
        m_sourceFile->Seek(0, 0);
    BATCHERR parsed = ParseDocument(validate, ignoreDtd);
    KeepOnlyUsed();
    // Bytes that are no text in the file's encoding end its input where
    // they stand, and the parse there, whatever the parser made of that.
    if (m_sourceFile->DecodeFailed()) {
        FileName(name);
        SaveErrorPos(m_line, m_col + 1);
        parsed = SetUpError(errSyntax, u"Invalid byte sequence for encoding '%s'",
                            OzmGlob::EncodingToName(m_sourceFile->Encoding()));
    }
    return parsed;
}

BATCHERR XmlDocument::ParseDLL(const UCChar* spec, bool validate, bool designMode, OzmNotifier* notifier,
                               bool ignoreDtd) {
    if (!spec)
        spec = u"";  // and so no module
    m_sourceString = nullptr;
    m_sourceFile = nullptr;
    std::unique_ptr<OzmLightweightIO> lwio;
    BATCHERR result = Guarded([&] {
        FileName(spec);
        m_sourceDir.clear();
        OzmWString module, resource, options;
        if (!OzmLightweightIO::ParseDLLName(spec, module, resource, options)) {
            m_errorMessage = u"Unable to parse DLL specification '";
            m_errorMessage += spec;
            m_errorMessage += u"'";
            return errOpenSource;
        }
        lwio.reset(new OzmLightweightIO);
        m_lwio = lwio.get();
        BATCHERR opened = m_lwio->SetModule(module);
        if (opened == errNone)
            opened = m_lwio->Open(resource, options, short(-32768), false);
        if (opened != errNone) {
            m_errorMessage = u"XML API: ";
            m_errorMessage += m_lwio->LastErrorMessage();
            return opened;
        }
        m_lwio->SetDesignMode(designMode);
        m_notifier = notifier;
        BATCHERR parsed = ParseDocument(validate, ignoreDtd);
        KeepOnlyUsed();
        // A module that ends its input with errSyntax found it malformed (the
        // built-in ones: bytes that are no text in its encoding). Columns are
        // not counted for a module: the place is the line.
        if (m_lwio->InputState() == errSyntax) {
            FileName(spec);
            SaveErrorPos(m_line, m_col);
            parsed = SetUpError(errSyntax, u"%s", m_lwio->LastErrorMessage());
        }
        return parsed;
    });
    if (lwio && lwio->IsConnected())
        lwio->Close();
    m_lwio = nullptr;
    m_notifier = nullptr;
    return result;
}

void XmlDocument::DesignMode(bool on) {
    if (m_lwio && m_lwio->IsConnected())
        m_lwio->SetDesignMode(on);
}
