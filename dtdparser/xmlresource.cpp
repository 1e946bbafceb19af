// External resources: an identifier of a definition turned into the whole
// text of a file, found beside the document when it is a bare file name.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <limits.h>
#include <linux/openat2.h>
#include <sys/syscall.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <string>

#include "input/xmlcharstream.h"
#include "xmlcatalog.h"

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

// What a file that is no regular file is, for the message that refuses it.
const UCChar* KindOfFile(mode_t mode) {
    if (S_ISDIR(mode))
        return u"a directory";
    if (S_ISFIFO(mode))
        return u"a FIFO";
    if (S_ISCHR(mode))
        return u"a character device";
    if (S_ISBLK(mode))
        return u"a block device";
    if (S_ISSOCK(mode))
        return u"a socket";
    return u"a special file";
}

// Resources are opened for reading only, without blocking on a FIFO and
// without becoming the controlling terminal.
constexpr int kOpenFlags = O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

// Moves a place (line, col), counted as the character stream counts it, over
// text.
void Advance(const UCString& text, int64_t& line, int64_t& col) {
    for (size_t i = 0; i < text.size(); ++i) {
        const UCChar c = text[i];
        if (c == 10 || c == 0x2028 || (c == 13 && (i + 1 == text.size() || text[i + 1] != 10))) {
            ++line;
            col = 0;
        } else if (c != 13) {
            ++col;
        }
    }
}

// A descriptor closed when it goes out of scope, unless handed on.
struct Descriptor {
    int fd = -1;
    ~Descriptor() {
        if (fd >= 0)
            ::close(fd);
    }
    int Release() {
        int f = fd;
        fd = -1;
        return f;
    }
};

}  // namespace

// Opens the resource at path for reading: only a regular file is read. The
// kind of file is tested on the opened descriptor, so that nothing can swap
// the file between the test and the read, and the open does not block, so
// that a FIFO without a writer is refused at once rather than waited for.
// Under a confined policy the path must lie below the directory by its text,
// and is then opened beneath the directory, symbolic links included.
BATCHERR XmlDocument::OpenResource(const UCString& path, bool confined, int& fd, ResourceKey& key) {
    std::string narrow;
    OzmGlob::WStringToString(path, narrow, OZM_CSET(0));
    Descriptor file;
    struct stat info;
    if (confined) {
        const BATCHERR result = OpenConfined(path, narrow, file.fd);
        if (result != errNone)
            return result;
    } else if (!narrow.empty()) {
        do {
            file.fd = ::open(narrow.c_str(), kOpenFlags);
        } while (file.fd < 0 && errno == EINTR);
    }
    if (file.fd < 0 || ::fstat(file.fd, &info) != 0)
        return SetUpError(errOpenUri, u"Unable to open URI '%s'", path.c_str());
    if (!S_ISREG(info.st_mode))
        return SetUpError(errOpenUri, u"URI '%s' is %s, not a regular file", path.c_str(), KindOfFile(info.st_mode));
    if (uint64_t(info.st_size) > MaxResourceBytes)
        return SetUpError(errOpenUri, u"URI '%s' is larger than %u bytes", path.c_str(), unsigned(MaxResourceBytes));
    if (!CountExternal(uint64_t(info.st_size), path))
        return errOpenUri;
    key = ResourceKey{uint64_t(info.st_dev), uint64_t(info.st_ino), int64_t(info.st_size),
                      int64_t(info.st_mtim.tv_sec) * 1000000000 + info.st_mtim.tv_nsec};
    fd = file.Release();
    return errNone;
}

// A path below the confining directory is opened with the kernel's promise
// that its resolution stays beneath the directory; where the kernel cannot
// promise it, the opened file's real path is checked instead.
BATCHERR XmlDocument::OpenConfined(const UCString& path, const std::string& narrow, int& fd) {
    std::string rest, directory;
    const std::string normal = XmlResources::NormalisedPath(narrow);
    auto refuse = [&] {
        return SetUpError(errOpenUri, u"URI '%s' refused: outside the directory '%s'", path.c_str(),
                          m_resources.Directory());
    };
    if (narrow.empty() || !m_resources.Below(normal, rest, directory))
        return refuse();
    Descriptor base;
    base.fd = ::open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (base.fd < 0)
        return SetUpError(errOpenUri, u"Unable to open URI '%s'", path.c_str());
    struct open_how how = {};
    how.flags = kOpenFlags;
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS;
    do {
        fd = int(::syscall(SYS_openat2, base.fd, rest.c_str(), &how, sizeof how));
    } while (fd < 0 && errno == EINTR);
    if (fd >= 0 || (errno != ENOSYS && errno != EPERM))
        return fd < 0 && (errno == EXDEV || errno == ELOOP) ? refuse() : errNone;
    // No openat2 here (kernels before 5.6, emulators): the path is resolved
    // first, so that a link leading out is refused without opening what it
    // names; then opened, and where the opened file really is tested again,
    // since a link may change in between.
    char real[PATH_MAX];
    std::string realRest, realDirectory;
    if (::realpath((directory + "/" + rest).c_str(), real) && !m_resources.Below(real, realRest, realDirectory))
        return refuse();
    do {
        fd = ::openat(base.fd, rest.c_str(), kOpenFlags);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0)
        return errNone;
    char link[64];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    const ssize_t n = ::readlink(link, real, sizeof real - 1);
    if (n > 0) {
        real[n] = 0;
        if (m_resources.Below(real, rest, directory))
            return errNone;
    }
    ::close(fd);
    fd = -1;
    return refuse();
}

// Counts bytes (or units of a text a resolver gave) against the bytes that
// the external resources of one parse may have.
bool XmlDocument::CountExternal(uint64_t bytes, const UCString& name) {
    if (m_externalBytes + bytes > MaxExternalBytes) {
        SetUpError(errOpenUri, u"External resources of one parse exceed %u bytes at '%s'", unsigned(MaxExternalBytes),
                   name.c_str());
        return false;
    }
    m_externalBytes += bytes;
    return true;
}

BATCHERR XmlDocument::ReadParsedURI(const UCChar* uri, const UCChar* publicId, UCString& text) {
    text.clear();
    if (!publicId)
        publicId = u"";
    int kind = m_resources.Kind();
    if (kind == resCatalog) {
        UCString path;
        if (m_resources.Catalog() && m_resources.Catalog()->Resolve(publicId, uri, path))
            return ReadResourceFile(path, false, uri, text);  // the catalogue's files are the system's own
        kind = m_resources.m_otherwiseKind;
    }
    if (kind == resNone)
        return SetUpError(errOpenUri, u"URI '%s' refused: external resources are not allowed", uri);
    if (kind == resResolver) {
        UCString answer;
        int said = resolveRefuse;
        if (m_resources.Resolver()) {
            try {
                said = m_resources.Resolver()(publicId, uri, m_sourceDir.c_str(), answer);
            } catch (...) {
                said = resolveRefuse;
            }
        }
        if (said == resolvePath)
            return ReadResourceFile(answer, false, uri, text);
        if (said != resolveText)
            return SetUpError(errOpenUri, u"URI '%s' refused by the resolver", uri);
        if (!CountExternal(answer.size(), UCString(uri)))
            return errOpenUri;
        // A text declaration at its front is taken off, unread.
        if (OzmGlob::wcscmpi(answer.substr(0, 5).c_str(), u"<?XML") == 0) {
            const size_t end = answer.find(u"?>");
            if (end != UCString::npos)
                answer.erase(0, end + 2);
        }
        text = std::move(answer);
        return errNone;
    }

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
    return ReadResourceFile(path, kind == resConfined, uri, text);
}

// The whole text of the regular file at path, behind its text declaration.
BATCHERR XmlDocument::ReadResourceFile(const UCString& path, bool confined, const UCChar* uri, UCString& text) {
    int fd = -1;
    ResourceKey key;
    BATCHERR result = OpenResource(path, confined, fd, key);
    if (result != errNone)
        return result;
    // A file read before in this parse is not read again: its text is copied,
    // and it still counts towards the bytes of external resources.
    const auto known = m_resourceCopies.find(key);
    if (known != m_resourceCopies.end()) {
        ::close(fd);
        text = known->second;
        return errNone;
    }

    unsigned char first[2];
    ssize_t got;
    do {
        got = ::pread(fd, first, 2, 0);
    } while (got < 0 && errno == EINTR);
    OzmUCFile file;
    if (file.OpenDescriptor(fd, ResourceFormat(got > 0 ? first[0] : -1, got > 1 ? first[1] : -1), true) < 0) {
        const int error = errno;
        ::close(fd);
        if (error == ENOMEM)
            throw std::bad_alloc();
        return errOpenUri;
    }
    for (int i = 0; i < 5; ++i) {
        UCChar c = file.Getc();
        if (c == UCEof)
            break;
        text.push_back(c);
    }
    // Bytes that are no text in the resource's encoding end it; the error
    // names the place in the resource where they stand, behind the units of
    // head and text.
    UCString head;
    auto invalid = [&] {
        int64_t line = 1, col = 0;
        Advance(head, line, col);
        Advance(text, line, col);
        const UCString enclosing = m_fileName;
        FileName(uri);
        SaveErrorPos(line, col + 1);
        FileName(enclosing.c_str());
        return SetUpError(errSyntax, u"Invalid byte sequence for encoding '%s'",
                          OzmGlob::EncodingToName(file.Encoding()));
    };
    // Whether the text may be copied for a later read: not when reading its
    // text declaration moved the position of the enclosing text or read
    // beyond what was pushed, which a copy would not do again.
    bool copyable = true;
    if (OzmGlob::wcscmpi(text.c_str(), u"<?XML") == 0) {
        // A text declaration: its rest up to the first '>' is read again by
        // the declaration parser, which tests it; its values are dropped.
        head.swap(text);
        UCChar c;
        do {
            c = file.Getc();
            if (c == UCEof)
                return file.DecodeFailed() ? invalid() : SetUpError(errSyntax, u"Error reading TextDecl");
            text.push_back(c);
        } while (c != '>');
        head += text;
        PushText(std::move(text));
        text.clear();
        const int64_t line = m_line, col = m_col;
        const UCChar* const pending = file.Pending();
        const UCChar* const cursor = m_stringCursor;
        // The declaration reads on from the resource; the source is given
        // back however the declaration ends, an exception included.
        struct Source {
            OzmUCFile*& at;
            OzmUCFile* const saved;
            ~Source() { at = saved; }
        } source{m_sourceFile, m_sourceFile};
        m_sourceFile = &file;
        OZM_CSET encoding = OZM_CSET(1);
        double version = 1.0;
        bool standalone = true;
        result = ParseTextDecl(encoding, version, standalone);
        if (file.DecodeFailed())
            return invalid();
        if (result != errNone)
            return result;
        copyable = m_line == line && m_col == col && file.Pending() == pending && m_stringCursor == cursor;
    }
    // The rest in bulk; a unit 0xFFFF ends the resource as its end does.
    // Counting units bounds a file that grows while it is read.
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
    if (file.DecodeFailed())
        return invalid();
    if (text.size() > maxUnits)
        return SetUpError(errOpenUri, u"URI '%s' is larger than %u bytes", path.c_str(), unsigned(MaxResourceBytes));
    if (copyable)
        m_resourceCopies.emplace(key, text);
    return errNone;
}
