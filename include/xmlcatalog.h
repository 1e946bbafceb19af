// xmlcatalog.h - XML catalogues: files of entries that map the public and
// system identifiers of external subsets and entities, and URIs, to the files
// that stand for them on this machine (the /etc/xml/catalog of Linux
// distributions and the files it names).
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "ozmutil.h"

// A set of catalogue files, read once by Load and looked up as often as
// wanted without reading anything again.
//
// The files are XML in the namespace urn:oasis:names:tc:entity:xmlns:xml:catalog
// (elements with a prefix of that namespace, or in no namespace at all, are
// taken too; elements of other namespaces are passed over with everything in
// them). They are read with this library's own parser, without their external
// subset. A <catalog> holds these entries, alone or in <group> elements:
//   system         systemId, uri              a system identifier
//   rewriteSystem  systemIdStartString, rewritePrefix
//   systemSuffix   systemIdSuffix, uri
//   delegateSystem systemIdStartString, catalog
//   public         publicId, uri              a public identifier
//   delegatePublic publicIdStartString, catalog
//   uri            name, uri                  a URI
//   rewriteURI     uriStartString, rewritePrefix
//   uriSuffix      uriSuffix, uri
//   delegateURI    uriStartString, catalog
//   nextCatalog    catalog
// Relative URIs resolve against the catalogue file's own location, or against
// an xml:base on the entry, its group or the catalogue. catalog, group and the
// entries take file: URIs or plain paths. prefer="public|system" on a catalog
// or a group says whether its public entries serve an external identifier
// that has a system identifier too; it is "public" where nothing says.
//
// An external identifier is looked up in the catalogues in the order they were
// added; each file in turn: its system entries (the first that matches), its
// rewriteSystem entries (the longest start string), systemSuffix (the longest
// suffix), delegateSystem, then its public entries and delegatePublic, then
// the files its nextCatalog entries name, in their order, before the files
// behind it. Delegation looks in the catalogues of all the delegate entries
// that match, the longest start string first, with the system identifier
// alone (delegateSystem) or the public identifier alone (delegatePublic), and
// what they do not find is not found. URIs go the same way through uri,
// rewriteURI, uriSuffix and delegateURI. Public identifiers compare with their
// white space collapsed; urn:publicid: URNs are unwrapped into public
// identifiers; system identifiers and URIs compare with spaces, controls,
// characters beyond ASCII and "<>\"\\^`{|}" percent-encoded as UTF-8. A file
// named twice, also under another path, is read once, and a file that names
// itself again through nextCatalog or delegation is looked in once.
//
// Lookups are const and read no file: several threads may look up in one
// catalogue at once, as long as none of them calls Load meanwhile. A copy
// holds all that the original read.
class OZM_API XmlCatalog {
public:
    // Catalogue files one object names in all (read, or passed over).
    static constexpr int MaxFiles = 1024;
    // Bytes of one catalogue file.
    static constexpr size_t MaxFileBytes = size_t(16) << 20;
    // Bytes of all the catalogue files one object reads.
    static constexpr uint64_t MaxTotalBytes = uint64_t(64) << 20;

    XmlCatalog();

    // Reads a catalogue file, given as a path (a relative one is taken from
    // the working directory) or a file: URI, and once and for all every file
    // that it names in nextCatalog and delegate entries, and those that they
    // name. Several calls add catalogues, consulted in the order added; a
    // file already read is not read again. Returns errNone, or errOpenUri
    // when the file cannot be opened or is no regular file or is too large,
    // or errSyntax when it is no well-formed catalogue (its root is no
    // <catalog>, an entry lacks an attribute it needs, prefer is neither
    // "public" nor "system") or memory runs out; the message is then in
    // ErrorMessage, and the object is as it was before the call. A file that
    // it names and that cannot be read (also one named by a URI that is no
    // local file) is passed over, as if empty: Load still returns errNone, and
    // ErrorMessage then holds one line for each such file, "Catalogue 'PATH'
    // named in 'CATALOGUE' passed over: REASON" when it cannot be opened, or
    // "Catalogue 'PATH' passed over: REASON" when it is no catalogue.
    BATCHERR Load(const UCChar* file);
    // The message of the last Load; empty when it read every file.
    const UCChar* ErrorMessage() const { return m_errorMessage.c_str(); }

    // The file an external identifier resolves to. publicId may be null or
    // empty; systemId is as written in the document (not made absolute), or
    // null or empty when there is none. True, with path set, when an entry
    // names it: a file: URI as a path, any other URI as it stands. False,
    // with path untouched, when none does (or memory ran out).
    bool Resolve(const UCChar* publicId, const UCChar* systemId, UCString& path) const;
    // The same for a URI, through uri, rewriteURI, uriSuffix and delegateURI
    // entries; a urn:publicid: URN is looked up as the public identifier it
    // wraps.
    bool ResolveUri(const UCChar* uri, UCString& path) const;

    // Number of catalogue files read.
    int FileCount() const { return m_readCount; }

private:
    friend struct XmlCatalogSearch;
    friend struct XmlCatalogReader;

    // Entry kinds; each file keeps its entries by kind, in document order.
    enum Kind : int {
        kindSystem,
        kindRewriteSystem,
        kindSystemSuffix,
        kindDelegateSystem,
        kindPublic,
        kindDelegatePublic,
        kindUri,
        kindRewriteUri,
        kindUriSuffix,
        kindDelegateUri,
        kindNextCatalog,
        kindCount
    };
    struct Entry {
        UCString match;          // normalised identifier, prefix or suffix
        UCString target;         // absolute URI (uri, rewritePrefix)
        int catalog = -1;        // the file of a delegate or nextCatalog entry
        bool preferPublic = true;
    };
    struct File {
        UCString path;
        uint64_t device = 0;
        uint64_t inode = 0;
        uint64_t bytes = 0;
        bool read = false;       // false: not yet read, or passed over
        std::vector<Entry> entries[kindCount];
    };

    std::vector<File> m_files;
    std::vector<int> m_roots;    // the files Load was given, in order
    UCString m_errorMessage;
    uint64_t m_bytes = 0;
    int m_readCount = 0;
};
