// External resources: an identifier of a definition turned into the whole
// text of a file, found beside the document when it is a bare file name.
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <string>

#include "input/xmlcharstream.h"

namespace {

// The flags of OzmUCFile::Open for a resource that starts with the bytes b0
// and b1 (negative: not there).
int ResourceFormat(int b0, int b1) {
    if ((b0 == 0xFF && b1 == 0xFE) || (b0 == 0x3C && b1 == 0x00))
        return 0x6004;
    if ((b0 == 0xFE && b1 == 0xFF) || (b0 == 0x00 && b1 == 0x3C))
        return 0xA004;
    return 8;
}

}  // namespace

BATCHERR XmlDocument::ReadParsedURI(const UCChar* uri, UCString& text) {
    text.clear();
    const size_t uriLength = UCString::traits_type::length(uri);
    // The path is split and joined in buffers of OZM_MAX_PATH units; a path
    // that does not fit is refused rather than cut.
    if (uriLength >= size_t(OZM_MAX_PATH))
        return SetUpError(errOpenUri, u"Unable to open URI '%s'", uri);
    UCChar dir[OZM_MAX_PATH];
    UCChar name[OZM_MAX_PATH];
    UCChar ext[OZM_MAX_PATH];
    UCString::traits_type::copy(dir, uri, uriLength + 1);
    OzmGlob::sepfile(dir, name, ext);
    UCString path;
    if (dir[0] != 0) {
        path = uri;
    } else {
        // A bare file name is looked for beside the source document.
        if (m_sourceDir.size() + uriLength >= size_t(OZM_MAX_PATH))
            return SetUpError(errOpenUri, u"Unable to open URI '%s'", (m_sourceDir + uri).c_str());
        UCString::traits_type::copy(dir, m_sourceDir.c_str(), m_sourceDir.size() + 1);
        OzmGlob::appndnam(dir, name);
        OzmGlob::appndext(dir, ext);
        path = dir;
    }

    std::string narrow;
    OzmGlob::WStringToString(path, narrow, OZM_CSET(0));
    FILE* probe = narrow.empty() ? nullptr : std::fopen(narrow.c_str(), "rb");
    struct stat info;
    if (probe && (fstat(fileno(probe), &info) != 0 || S_ISDIR(info.st_mode))) {
        std::fclose(probe);
        probe = nullptr;
    }
    if (!probe)
        return SetUpError(errOpenUri, u"Unable to open URI '%s'", path.c_str());
    const bool tooLarge = S_ISREG(info.st_mode) && uint64_t(info.st_size) > MaxResourceBytes;
    const int b0 = std::fgetc(probe);
    const int b1 = b0 == EOF ? EOF : std::fgetc(probe);
    std::fclose(probe);
    if (tooLarge)
        return SetUpError(errOpenUri, u"URI '%s' is larger than %u bytes", path.c_str(), unsigned(MaxResourceBytes));

    OzmUCFile file;
    if (file.Open(path.c_str(), u"rb", ResourceFormat(b0, b1), OZM_CSET(0)) < 0)
        return errOpenUri;
    for (int i = 0; i < 5; ++i) {
        UCChar c = file.Getc();
        if (c == UCEof)
            break;
        text.push_back(c);
    }
    if (OzmGlob::wcscmpi(text.c_str(), u"<?XML") == 0) {
        // A text declaration: its rest up to the first '>' is read again by
        // the declaration parser, which tests it; its values are dropped.
        text.clear();
        UCChar c;
        do {
            c = file.Getc();
            if (c == UCEof)
                return SetUpError(errSyntax, u"Error reading TextDecl");
            text.push_back(c);
        } while (c != '>');
        PushText(std::move(text));
        text.clear();
        OzmUCFile* saved = m_sourceFile;
        m_sourceFile = &file;
        OZM_CSET encoding = OZM_CSET(1);
        double version = 1.0;
        bool standalone = true;
        BATCHERR result = ParseTextDecl(encoding, version, standalone);
        m_sourceFile = saved;
        if (result != errNone)
            return result;
    }
    // The rest in bulk; a unit 0xFFFF ends the resource as its end does.
    // Counting units bounds what a device without a size can deliver.
    const size_t maxUnits = MaxResourceBytes;
    for (;;) {
        const UCChar* run = file.Pending();
        const UCChar* end = file.PendingEnd();
        if (run == end) {
            UCChar c = file.Getc();
            if (c == UCEof)
                break;
            text.push_back(c);
            continue;
        }
        const UCChar* stop = std::find(run, end, UCEof);
        text.append(run, size_t(stop - run));
        file.Skip(size_t(stop - run));
        if (stop != end || text.size() > maxUnits)
            break;
    }
    if (text.size() > maxUnits)
        return SetUpError(errOpenUri, u"URI '%s' is larger than %u bytes", path.c_str(), unsigned(MaxResourceBytes));
    return errNone;
}
