// Lookups in catalogues that have been read: only the object's own memory is
// read, and all state of a lookup is its own, so lookups may run on several
// threads at once.
#include <algorithm>
#include <new>

#include "catalog/xmlcataloguri.h"
#include "xmlcatalog.h"

using namespace XmlCatalogText;

struct XmlCatalogSearch {
    typedef std::vector<XmlCatalog::Entry> Entries;

    // What a lookup is given: both identifiers, one of them, or a URI. A
    // file is looked in once for each, which ends cycles of nextCatalog and
    // delegation: a second look would find what the first did not.
    enum Mode : unsigned char { modeBoth = 1, modeSystem = 2, modePublic = 4, modeUri = 8 };

    const XmlCatalog& catalog;
    std::vector<unsigned char> visited;

    explicit XmlCatalogSearch(const XmlCatalog& c) : catalog(c), visited(c.m_files.size(), 0) {}

    // The first entry that matches id exactly; with a system identifier
    // given too, only one where public identifiers are preferred.
    static const XmlCatalog::Entry* First(const Entries& list, const UCString& id, bool onlyPreferPublic) {
        for (const XmlCatalog::Entry& e : list)
            if (e.match == id && (e.preferPublic || !onlyPreferPublic))
                return &e;
        return nullptr;
    }

    // The entry with the longest start string (or suffix) of id; the first
    // of equal ones.
    static const XmlCatalog::Entry* Longest(const Entries& list, const UCString& id, bool suffix) {
        const XmlCatalog::Entry* best = nullptr;
        for (const XmlCatalog::Entry& e : list) {
            const size_t n = e.match.size();
            if (n > id.size() || (best && n <= best->match.size()))
                continue;
            if (id.compare(suffix ? id.size() - n : 0, n, e.match) == 0)
                best = &e;
        }
        return best;
    }

    // The catalogues of the delegate entries whose start string begins id,
    // as a stack: the longest start string on top.
    static std::vector<int> Delegates(const Entries& list, const UCString& id, bool onlyPreferPublic) {
        std::vector<const XmlCatalog::Entry*> matching;
        for (const XmlCatalog::Entry& e : list)
            if ((e.preferPublic || !onlyPreferPublic) && id.compare(0, e.match.size(), e.match) == 0)
                matching.push_back(&e);
        std::stable_sort(matching.begin(), matching.end(),
                         [](const XmlCatalog::Entry* a, const XmlCatalog::Entry* b) {
                             return a->match.size() > b->match.size();
                         });
        std::vector<int> stack;
        for (size_t i = matching.size(); i-- > 0;)
            stack.push_back(matching[i]->catalog);
        return stack;
    }

    // Takes the next file off the stack that is read and not yet looked in
    // for mode; null when none is left.
    const XmlCatalog::File* Next(std::vector<int>& stack, unsigned char mode) {
        while (!stack.empty()) {
            const int f = stack.back();
            stack.pop_back();
            if (f < 0 || (visited[size_t(f)] & mode))
                continue;
            visited[size_t(f)] |= mode;
            if (catalog.m_files[size_t(f)].read)
                return &catalog.m_files[size_t(f)];
        }
        return nullptr;
    }

    // Puts the nextCatalog files of file on the stack, to be looked in
    // before whatever it holds, in their order.
    static void PushNext(const XmlCatalog::File& file, std::vector<int>& stack) {
        const Entries& next = file.entries[XmlCatalog::kindNextCatalog];
        for (size_t i = next.size(); i-- > 0;)
            stack.push_back(next[i].catalog);
    }

    // An external identifier (normalised; empty where not given) looked up
    // from the files of stack on. A delegation replaces the stack and what is
    // looked up, and the lookup never comes back to the files it left.
    bool External(std::vector<int> stack, UCString publicId, UCString systemId, UCString& out) {
        for (;;) {
            const bool hasPublic = !publicId.empty(), hasSystem = !systemId.empty();
            const unsigned char mode = hasPublic && hasSystem ? modeBoth : hasSystem ? modeSystem : modePublic;
            const XmlCatalog::File* file = Next(stack, mode);
            if (!file)
                return false;
            if (hasSystem) {
                if (const XmlCatalog::Entry* e = First(file->entries[XmlCatalog::kindSystem], systemId, false)) {
                    out = e->target;
                    return true;
                }
                if (const XmlCatalog::Entry* e = Longest(file->entries[XmlCatalog::kindRewriteSystem], systemId, false)) {
                    out = e->target + systemId.substr(e->match.size());
                    return true;
                }
                if (const XmlCatalog::Entry* e = Longest(file->entries[XmlCatalog::kindSystemSuffix], systemId, true)) {
                    out = e->target;
                    return true;
                }
                std::vector<int> delegates = Delegates(file->entries[XmlCatalog::kindDelegateSystem], systemId, false);
                if (!delegates.empty()) {
                    stack.swap(delegates);
                    publicId.clear();
                    continue;
                }
            }
            if (hasPublic) {
                if (const XmlCatalog::Entry* e = First(file->entries[XmlCatalog::kindPublic], publicId, hasSystem)) {
                    out = e->target;
                    return true;
                }
                std::vector<int> delegates =
                    Delegates(file->entries[XmlCatalog::kindDelegatePublic], publicId, hasSystem);
                if (!delegates.empty()) {
                    stack.swap(delegates);
                    systemId.clear();
                    continue;
                }
            }
            PushNext(*file, stack);
        }
    }

    // A URI (normalised) looked up from the files of stack on.
    bool Uri(std::vector<int> stack, const UCString& uri, UCString& out) {
        while (const XmlCatalog::File* file = Next(stack, modeUri)) {
            if (const XmlCatalog::Entry* e = First(file->entries[XmlCatalog::kindUri], uri, false)) {
                out = e->target;
                return true;
            }
            if (const XmlCatalog::Entry* e = Longest(file->entries[XmlCatalog::kindRewriteUri], uri, false)) {
                out = e->target + uri.substr(e->match.size());
                return true;
            }
            if (const XmlCatalog::Entry* e = Longest(file->entries[XmlCatalog::kindUriSuffix], uri, true)) {
                out = e->target;
                return true;
            }
            std::vector<int> delegates = Delegates(file->entries[XmlCatalog::kindDelegateUri], uri, false);
            if (!delegates.empty())
                stack.swap(delegates);
            else
                PushNext(*file, stack);
        }
        return false;
    }

    // The files Load was given, as a stack: the first on top.
    std::vector<int> Roots() const { return std::vector<int>(catalog.m_roots.rbegin(), catalog.m_roots.rend()); }
};

namespace {

// A result as the caller gets it: a file: URI as a path, any other as it is.
void Deliver(const UCString& uri, UCString& path) {
    UCString local;
    path = FileUriToPath(uri, local) ? std::move(local) : uri;
}

}  // namespace

bool XmlCatalog::Resolve(const UCChar* publicId, const UCChar* systemId, UCString& path) const {
    try {
        UCString pub = NormalizePublic(publicId);
        if (IsPublicIdUrn(pub))
            pub = UnwrapPublicIdUrn(pub);
        UCString sys = NormalizeUri(systemId);
        // A system identifier that wraps a public identifier stands for it:
        // it is the public identifier when there is none, and is dropped
        // when there is one (also one that differs from it).
        if (IsPublicIdUrn(sys)) {
            if (pub.empty())
                pub = UnwrapPublicIdUrn(sys);
            sys.clear();
        }
        XmlCatalogSearch search(*this);
        UCString found;
        if ((pub.empty() && sys.empty()) || !search.External(search.Roots(), pub, sys, found))
            return false;
        Deliver(found, path);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

bool XmlCatalog::ResolveUri(const UCChar* uri, UCString& path) const {
    try {
        const UCString normal = NormalizeUri(uri);
        XmlCatalogSearch search(*this);
        UCString found;
        if (normal.empty())
            return false;
        const bool hit = IsPublicIdUrn(normal)
                             ? search.External(search.Roots(), UnwrapPublicIdUrn(normal), UCString(), found)
                             : search.Uri(search.Roots(), normal, found);
        if (!hit)
            return false;
        Deliver(found, path);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}
