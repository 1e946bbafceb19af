// The texts of catalogues: identifiers brought to the form in which they are
// compared, URI references resolved against a base, and file: URIs turned
// into paths and back.
#pragma once

#include "ozmutil.h"

namespace XmlCatalogText {

// A public identifier with each run of white space made one blank and none at
// either end.
UCString NormalizePublic(const UCChar* id);
// A system identifier or URI with spaces, controls, units beyond ASCII and
// the characters "<>\"\\^`{|}" percent-encoded as UTF-8 (a surrogate pair as
// its character); '%' and everything else stay as they are.
UCString NormalizeUri(const UCChar* id);
// Whether id begins with "urn:publicid:" in any letter case.
bool IsPublicIdUrn(const UCString& id);
// The public identifier that a urn:publicid: URN wraps, normalised.
UCString UnwrapPublicIdUrn(const UCString& urn);

// The reference made absolute against base (an absolute URI), with "." and
// ".." segments taken out of its path.
UCString ResolveReference(const UCString& base, const UCString& reference);
// The file: URI of an absolute path.
UCString PathToFileUri(const UCString& path);
// The path of a file: URI of this machine (no host, or "localhost"),
// percent-escapes decoded as UTF-8 and any query or fragment cut off. False
// for any other URI, and for one whose path would hold a unit 0.
bool FileUriToPath(const UCString& uri, UCString& path);

}  // namespace XmlCatalogText
