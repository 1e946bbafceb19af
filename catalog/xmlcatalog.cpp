// Catalogues read: each file parsed by the library's own parser (its external
// subset not fetched), its tree walked into entries by kind, and the files
// that it names read in the same Load, each once.
#include "xmlcatalog.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <new>
#include <string>
#include <utility>

#include "catalog/xmlcataloguri.h"
#include "xmldocument.h"

using namespace XmlCatalogText;

namespace {

const UCChar kCatalogNamespace[] = u"urn:oasis:names:tc:entity:xmlns:xml:catalog";

UCString Decimal(uint64_t n) {
    const std::string s = std::to_string(n);
    return UCString(s.begin(), s.end());
}

UCString Quoted(const UCString& s) { return u"'" + s + u"'"; }

// The namespace declarations in scope during the walk, innermost last.
struct Scope {
    std::vector<std::pair<UCString, UCString>> bindings;  // prefix, namespace

    const UCString* Find(const UCString& prefix) const {
        for (size_t i = bindings.size(); i-- > 0;)
            if (bindings[i].first == prefix)
                return &bindings[i].second;
        return nullptr;
    }
};

}  // namespace

// What one Load works with: the files it adds and the reasons of those it
// passes over.
struct XmlCatalogReader {
    XmlCatalog& catalog;
    XmlDocument document;
    std::map<UCString, int> byPath;
    std::map<std::pair<uint64_t, uint64_t>, int> byIdentity;
    std::vector<bool> unopened;  // by index from the first file of this Load
    UCString notes;

    explicit XmlCatalogReader(XmlCatalog& c) : catalog(c) {
        // A catalogue reads nothing beyond itself: not the subset its DOCTYPE
        // names, nor an entity its own subset declares.
        document.ExternalResources(XmlResources::None());
        // A file that an earlier Load passed over is tried again when named.
        for (size_t i = 0; i < c.m_files.size(); ++i) {
            const XmlCatalog::File& f = c.m_files[i];
            if (f.read) {
                byPath.emplace(f.path, int(i));
                byIdentity.emplace(std::make_pair(f.device, f.inode), int(i));
            }
        }
    }

    // The index of the file at path, opened to learn what it is; a new file
    // is added unread. errNone, or the failure with its message; a file that
    // fails is added all the same (unread), so that each failure is told once.
    BATCHERR Name(const UCString& path, int& index, UCString& message) {
        const auto known = byPath.find(path);
        if (known != byPath.end()) {
            index = known->second;
            return errNone;
        }
        if (catalog.m_files.size() >= size_t(XmlCatalog::MaxFiles)) {
            message = u"More than " + Decimal(XmlCatalog::MaxFiles) + u" catalogue files at " + Quoted(path);
            index = -1;
            return errOpenUri;
        }
        XmlCatalog::File file;
        file.path = path;
        BATCHERR result = Open(path, file, message);
        if (result == errNone) {
            const auto same = byIdentity.find(std::make_pair(file.device, file.inode));
            if (same != byIdentity.end()) {
                index = same->second;
                byPath.emplace(path, index);
                return errNone;
            }
            if (catalog.m_bytes + file.bytes > XmlCatalog::MaxTotalBytes) {
                message = u"Catalogue files exceed " + Decimal(XmlCatalog::MaxTotalBytes) + u" bytes in all at " +
                          Quoted(path);
                result = errOpenUri;
            }
        }
        index = int(catalog.m_files.size());
        catalog.m_files.push_back(std::move(file));
        unopened.push_back(result != errNone);
        byPath.emplace(path, index);
        if (result != errNone) {
            index = -1;
            return result;
        }
        const XmlCatalog::File& added = catalog.m_files.back();
        byIdentity.emplace(std::make_pair(added.device, added.inode), index);
        catalog.m_bytes += added.bytes;
        return result;
    }

    // Learns the identity of the file and tests its kind and size. The open
    // does not block, so that a FIFO is refused rather than waited for.
    BATCHERR Open(const UCString& path, XmlCatalog::File& file, UCString& message) {
        std::string narrow;
        OzmGlob::WStringToString(path, narrow, csetDefault);
        int fd;
        do {
            fd = ::open(narrow.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
        } while (fd < 0 && errno == EINTR);
        struct stat info;
        const bool known = fd >= 0 && ::fstat(fd, &info) == 0;
        if (fd >= 0)
            ::close(fd);
        if (!known) {
            message = u"Unable to open catalogue " + Quoted(path);
            return errOpenUri;
        }
        if (!S_ISREG(info.st_mode)) {
            message = u"Catalogue " + Quoted(path) + u" is no regular file";
            return errOpenUri;
        }
        if (uint64_t(info.st_size) > XmlCatalog::MaxFileBytes) {
            message = u"Catalogue " + Quoted(path) + u" is larger than " + Decimal(XmlCatalog::MaxFileBytes) +
                      u" bytes";
            return errOpenUri;
        }
        file.bytes = uint64_t(info.st_size);
        file.device = uint64_t(info.st_dev);
        file.inode = uint64_t(info.st_ino);
        return errNone;
    }

    // Parses the file at index and walks its tree into its entries.
    BATCHERR Read(int index, UCString& message) {
        const UCString path = catalog.m_files[size_t(index)].path;
        const BATCHERR parsed = document.ParseFile(path.c_str(), false, true);
        if (parsed != errNone) {
            const UCString text = document.ErrorMessage();
            // The parser turns running out of memory into a result; here it
            // ends the whole Load, rather than pass a catalogue over.
            if (text.compare(0, 13, u"Out of memory") == 0)
                throw std::bad_alloc();
            message = text + u" at line " + Decimal(uint64_t(document.ErrorLine())) + u", column " +
                      Decimal(uint64_t(document.ErrorCol())) + u" of catalogue " + Quoted(path);
            return parsed == errOpenSource ? errOpenUri : parsed;
        }
        const XmlElement* root = document.RootElement();
        Scope scope;
        const size_t mark = Declare(root, scope);
        UCString local;
        if (!root || !InCatalogNamespace(root, scope, local) || local != u"catalog") {
            message = u"Catalogue " + Quoted(path) + u" is no catalogue: its root element is " +
                      Quoted(root ? root->Name() : u"");
            if (local == u"catalog")
                message += u" of another namespace";
            return errSyntax;
        }
        XmlCatalog::File walked;
        BATCHERR result = Walk(root, scope, PathToFileUri(path), true, walked, path, message);
        scope.bindings.resize(mark);
        document.Clear();
        if (result != errNone)
            return result;
        XmlCatalog::File& file = catalog.m_files[size_t(index)];
        for (int k = 0; k < XmlCatalog::kindCount; ++k)
            file.entries[k] = std::move(walked.entries[k]);
        file.read = true;
        ++catalog.m_readCount;
        return errNone;
    }

    // Adds the namespace declarations of e to the scope; returns the size the
    // scope had before.
    static size_t Declare(const XmlElement* e, Scope& scope) {
        const size_t mark = scope.bindings.size();
        for (int i = 0; e && i < e->AttributeCount(); ++i) {
            const UCString name = e->GetAttributeName(i);
            if (name == u"xmlns")
                scope.bindings.emplace_back(UCString(), e->GetAttributeValue(i));
            else if (name.compare(0, 6, u"xmlns:") == 0)
                scope.bindings.emplace_back(name.substr(6), e->GetAttributeValue(i));
        }
        return mark;
    }

    // Whether e is in the catalogue namespace, or in none; its local name.
    static bool InCatalogNamespace(const XmlElement* e, const Scope& scope, UCString& local) {
        const UCString name = e->Name();
        const size_t colon = name.find(u':');
        const UCString prefix = colon == UCString::npos ? UCString() : name.substr(0, colon);
        local = colon == UCString::npos ? name : name.substr(colon + 1);
        const UCString* ns = scope.Find(prefix);
        if (!ns)
            return prefix.empty();
        return ns->empty() || *ns == kCatalogNamespace;
    }

    // Reads the prefer attribute of a catalog or group into preferPublic.
    static BATCHERR Prefer(const XmlElement* e, bool& preferPublic, const UCString& path, UCString& message) {
        const UCChar* prefer = e->GetAttributeValue(u"prefer");
        if (!prefer)
            return errNone;
        const UCString value = NormalizePublic(prefer);
        if (value == u"public" || value == u"system") {
            preferPublic = value == u"public";
            return errNone;
        }
        message = u"Catalogue " + Quoted(path) + u": prefer must be 'public' or 'system', not " + Quoted(prefer);
        return errSyntax;
    }

    // The entries of a catalog or group element, in document order.
    BATCHERR Walk(const XmlElement* parent, Scope& scope, UCString base, bool preferPublic, XmlCatalog::File& file,
                  const UCString& path, UCString& message) {
        if (const UCChar* xmlBase = parent->GetAttributeValue(u"xml:base"))
            base = ResolveReference(base, NormalizeUri(xmlBase));
        BATCHERR result = Prefer(parent, preferPublic, path, message);
        UCString local;
        for (const XmlElement* e = parent->Child(); e && result == errNone; e = e->Next()) {
            const size_t mark = Declare(e, scope);
            if (InCatalogNamespace(e, scope, local)) {
                if (local == u"group")
                    result = Walk(e, scope, base, preferPublic, file, path, message);
                else
                    result = AddEntry(e, local, base, preferPublic, file, path, message);
            }
            scope.bindings.resize(mark);
        }
        return result;
    }

    BATCHERR AddEntry(const XmlElement* e, const UCString& local, UCString base, bool preferPublic,
                      XmlCatalog::File& file, const UCString& path, UCString& message) {
        enum Text { textPublic, textUri, textNone };
        static const struct {
            const char16_t* element;
            XmlCatalog::Kind kind;
            const char16_t* match;   // the attribute compared with what is looked up
            Text matchText;
            const char16_t* target;  // the attribute of the result or the catalogue
        } kEntries[] = {
            {u"system", XmlCatalog::kindSystem, u"systemId", textUri, u"uri"},
            {u"rewriteSystem", XmlCatalog::kindRewriteSystem, u"systemIdStartString", textUri, u"rewritePrefix"},
            {u"systemSuffix", XmlCatalog::kindSystemSuffix, u"systemIdSuffix", textUri, u"uri"},
            {u"delegateSystem", XmlCatalog::kindDelegateSystem, u"systemIdStartString", textUri, u"catalog"},
            {u"public", XmlCatalog::kindPublic, u"publicId", textPublic, u"uri"},
            {u"delegatePublic", XmlCatalog::kindDelegatePublic, u"publicIdStartString", textPublic, u"catalog"},
            {u"uri", XmlCatalog::kindUri, u"name", textUri, u"uri"},
            {u"rewriteURI", XmlCatalog::kindRewriteUri, u"uriStartString", textUri, u"rewritePrefix"},
            {u"uriSuffix", XmlCatalog::kindUriSuffix, u"uriSuffix", textUri, u"uri"},
            {u"delegateURI", XmlCatalog::kindDelegateUri, u"uriStartString", textUri, u"catalog"},
            {u"nextCatalog", XmlCatalog::kindNextCatalog, nullptr, textNone, u"catalog"},
        };
        for (const auto& k : kEntries) {
            if (local != k.element)
                continue;
            XmlCatalog::Entry entry;
            entry.preferPublic = preferPublic;
            if (k.match) {
                const UCChar* match = e->GetAttributeValue(k.match);
                if (!match)
                    return Missing(e, k.match, path, message);
                if (k.matchText == textPublic) {
                    entry.match = NormalizePublic(match);
                    if (IsPublicIdUrn(entry.match))
                        entry.match = UnwrapPublicIdUrn(entry.match);
                } else {
                    entry.match = NormalizeUri(match);
                }
            }
            const UCChar* target = e->GetAttributeValue(k.target);
            if (!target)
                return Missing(e, k.target, path, message);
            if (const UCChar* xmlBase = e->GetAttributeValue(u"xml:base"))
                base = ResolveReference(base, NormalizeUri(xmlBase));
            entry.target = ResolveReference(base, NormalizeUri(target));
            if (UCString(k.target) == u"catalog") {
                UCString catalogPath, reason;
                if (!FileUriToPath(entry.target, catalogPath))
                    reason = u"Catalogue " + Quoted(entry.target) + u" is no local file";
                else
                    Name(catalogPath, entry.catalog, reason);
                if (!reason.empty())
                    notes += u"Catalogue " + Quoted(catalogPath.empty() ? entry.target : catalogPath) +
                             u" named in " + Quoted(path) + u" passed over: " + reason + u"\n";
                entry.target.clear();
            }
            file.entries[k.kind].push_back(std::move(entry));
            return errNone;
        }
        return errNone;  // an element of the namespace that names no entry
    }

    static BATCHERR Missing(const XmlElement* e, const char16_t* attribute, const UCString& path,
                            UCString& message) {
        message = u"Catalogue " + Quoted(path) + u": element " + Quoted(e->Name()) + u" has no attribute " +
                  Quoted(attribute);
        return errSyntax;
    }

};

XmlCatalog::XmlCatalog() = default;

BATCHERR XmlCatalog::Load(const UCChar* file) {
    const size_t oldFiles = m_files.size();
    const size_t oldRoots = m_roots.size();
    const uint64_t oldBytes = m_bytes;
    const int oldCount = m_readCount;
    BATCHERR result = errOpenUri;
    try {
        m_errorMessage.clear();
        const UCString given = file ? file : u"";
        UCString path, message;
        if (given.size() >= 5 && OzmGlob::wcscmpi(given.substr(0, 5).c_str(), u"file:") == 0) {
            if (!FileUriToPath(given, path))
                path.clear();
        } else if (!given.empty() && given[0] != u'/') {
            // A relative path is taken from the working directory, so that
            // the catalogue's own location, the base of its relative
            // references, is absolute.
            std::string cwd(4096, '\0');
            if (::getcwd(&cwd[0], cwd.size())) {
                cwd.resize(cwd.find('\0'));
                OzmGlob::DecodeUTF8(reinterpret_cast<const unsigned char*>(cwd.data()), cwd.size(), path);
                path += (path.size() > 1 ? u"/" : u"") + given;
            }
        } else {
            path = given;
        }
        XmlCatalogReader reader(*this);
        int root = -1;
        if (path.empty())
            message = u"Unable to open catalogue " + Quoted(given);
        else
            result = reader.Name(path, root, message);
        for (size_t next = oldFiles; result == errNone && next < m_files.size(); ++next) {
            if (reader.unopened[next - oldFiles])
                continue;
            const BATCHERR read = reader.Read(int(next), message);
            if (read == errNone)
                continue;
            if (int(next) == root) {
                result = read;
                break;
            }
            reader.notes += u"Catalogue " + Quoted(m_files[next].path) + u" passed over: " + message + u"\n";
            message.clear();
        }
        if (result == errNone) {
            bool known = false;
            for (int r : m_roots)
                known = known || r == root;
            if (!known)
                m_roots.push_back(root);
            m_errorMessage = std::move(reader.notes);
            if (!m_errorMessage.empty())
                m_errorMessage.pop_back();
            return errNone;
        }
        m_errorMessage = std::move(message);
    } catch (const std::bad_alloc&) {
        result = errSyntax;
        m_errorMessage.clear();
        try {
            m_errorMessage = u"Out of memory";
        } catch (const std::bad_alloc&) {
        }
    }
    m_files.erase(m_files.begin() + std::ptrdiff_t(oldFiles), m_files.end());
    m_roots.erase(m_roots.begin() + std::ptrdiff_t(oldRoots), m_roots.end());
    m_bytes = oldBytes;
    m_readCount = oldCount;
    return result;
}
