// xmlresources.h - how a document's external subsets and entities are found:
// the policy a program sets with XmlDocument::ExternalResources.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "ozmutil.h"

class XmlCatalog;

// Kinds of policy.
enum XmlResourceKind : int {
    resFiles = 0,     // files, found as named (the default)
    resNone = 1,      // nothing external is opened
    resConfined = 2,  // regular files inside one directory tree only
    resResolver = 3,  // the program's resolver decides
    resCatalog = 4    // a catalogue first, then the policy under it
};

// What a resolver answers.
enum XmlResolution : int {
    resolveRefuse = 0,  // the resource is refused
    resolvePath = 1,    // answer holds the path of a file to read
    resolveText = 2     // answer holds the text of the resource itself
};

// A resolver gets the public identifier (empty when there is none), the
// system identifier as written and the base a relative one would be resolved
// against (the document's directory; empty for a document read from a string
// or a module), fills answer and returns an XmlResolution. It must not throw:
// an exception is taken as a refusal.
using XmlResolver =
    std::function<int(const UCChar* publicId, const UCChar* systemId, const UCChar* base, UCString& answer)>;

// A policy, a small value that documents copy. Whatever the policy, only
// regular files are read, and the limits of XmlDocument apply.
class OZM_API XmlResources {
public:
    // Files as named: a bare file name beside the document, any other path
    // as it stands.
    XmlResources() = default;
    static XmlResources Files() { return XmlResources(); }
    // Nothing: a DOCTYPE that names an external subset and the declaration
    // of an external entity fail with errOpenUri, and the file system is not
    // asked about the named path at all.
    static XmlResources None();
    // Regular files whose real path, symbolic links resolved, lies inside
    // directory; paths are found as with Files and then refused when they
    // lead outside. The opened file is what is checked, so nothing can swap
    // it between a test and the open.
    static XmlResources Confined(const UCChar* directory);
    // The program's resolver for every external identifier.
    static XmlResources Resolver(XmlResolver resolver);
    // Identifiers that the catalogue names are read from the files it gives;
    // all others go to otherwise (Files, None, Confined or a Resolver).
    static XmlResources Catalog(std::shared_ptr<const XmlCatalog> catalog, const XmlResources& otherwise);
    static XmlResources Catalog(std::shared_ptr<const XmlCatalog> catalog) { return Catalog(catalog, Files()); }

    int Kind() const { return m_kind; }
    // The directory of Confined (as given, made absolute), else empty.
    const UCChar* Directory() const { return m_directory.c_str(); }
    const XmlResolver& Resolver() const { return m_resolver; }
    const std::shared_ptr<const XmlCatalog>& Catalog() const { return m_catalog; }
    // The policy under a catalogue; for any other kind, the policy itself.
    XmlResources Otherwise() const;

private:
    friend class XmlDocument;
    static std::string NormalisedPath(const std::string& path);
    // Confined: the part of an absolute, normalised path below the directory
    // (as given or as real), and that directory; false for a path outside.
    bool Below(const std::string& path, std::string& rest, std::string& directory) const;

    int m_kind = resFiles;
    UCString m_directory;      // Confined: absolute, without "." or ".." steps
    UCString m_realDirectory;  // the same with symbolic links resolved
    XmlResolver m_resolver;
    std::shared_ptr<const XmlCatalog> m_catalog;
    int m_otherwiseKind = resFiles;  // under a catalogue, with m_directory or m_resolver
};
