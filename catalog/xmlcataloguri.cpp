// Identifier normalisation, urn:publicid: unwrapping, reference resolution
// and file: URIs for the catalogues.
#include "catalog/xmlcataloguri.h"

#include <cstring>
#include <string>

namespace XmlCatalogText {

namespace {

const char kHex[] = "0123456789ABCDEF";

int HexValue(UCChar c) {
    if (c >= u'0' && c <= u'9')
        return c - u'0';
    if (c >= u'A' && c <= u'F')
        return c - u'A' + 10;
    if (c >= u'a' && c <= u'f')
        return c - u'a' + 10;
    return -1;
}

bool IsAsciiLetter(UCChar c) { return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z'); }

UCChar Lower(UCChar c) { return c >= u'A' && c <= u'Z' ? UCChar(c + 32) : c; }

// Whether s begins with the lower-case ASCII prefix, in any letter case.
bool StartsWithNoCase(const UCString& s, const char* prefix) {
    const size_t n = std::strlen(prefix);
    if (s.size() < n)
        return false;
    for (size_t i = 0; i < n; ++i)
        if (Lower(s[i]) != UCChar(prefix[i]))
            return false;
    return true;
}

// Appends the UTF-8 bytes of the character at text[i] as %XX escapes and
// steps i over a surrogate pair.
void AppendEscaped(const UCChar* text, size_t& i, UCString& out) {
    uint32_t c = text[i];
    if (c >= 0xD800 && c < 0xDC00 && text[i + 1] >= 0xDC00 && text[i + 1] < 0xE000) {
        c = 0x10000 + ((c - 0xD800) << 10) + (text[i + 1] - 0xDC00);
        ++i;
    }
    unsigned char bytes[4];
    int n;
    if (c < 0x80) {
        bytes[0] = static_cast<unsigned char>(c);
        n = 1;
    } else if (c < 0x800) {
        bytes[0] = static_cast<unsigned char>(0xC0 | (c >> 6));
        bytes[1] = static_cast<unsigned char>(0x80 | (c & 0x3F));
        n = 2;
    } else if (c < 0x10000) {
        bytes[0] = static_cast<unsigned char>(0xE0 | (c >> 12));
        bytes[1] = static_cast<unsigned char>(0x80 | ((c >> 6) & 0x3F));
        bytes[2] = static_cast<unsigned char>(0x80 | (c & 0x3F));
        n = 3;
    } else {
        bytes[0] = static_cast<unsigned char>(0xF0 | (c >> 18));
        bytes[1] = static_cast<unsigned char>(0x80 | ((c >> 12) & 0x3F));
        bytes[2] = static_cast<unsigned char>(0x80 | ((c >> 6) & 0x3F));
        bytes[3] = static_cast<unsigned char>(0x80 | (c & 0x3F));
        n = 4;
    }
    for (int k = 0; k < n; ++k) {
        out += u'%';
        out += UCChar(kHex[bytes[k] >> 4]);
        out += UCChar(kHex[bytes[k] & 15]);
    }
}

// The parts of a URI reference; a part that is not there is marked so, since
// an empty query differs from none.
struct UriParts {
    UCString scheme, authority, path, query, fragment;
    bool hasScheme = false, hasAuthority = false, hasQuery = false, hasFragment = false;
};

UriParts Split(const UCString& s) {
    UriParts p;
    size_t i = 0;
    // scheme ":" when the text before the first ':' is a scheme name
    size_t colon = s.find(u':');
    if (colon != UCString::npos && colon > 0 && IsAsciiLetter(s[0])) {
        bool scheme = true;
        for (size_t k = 1; k < colon && scheme; ++k) {
            const UCChar c = s[k];
            scheme = IsAsciiLetter(c) || (c >= u'0' && c <= u'9') || c == u'+' || c == u'-' || c == u'.';
        }
        if (scheme) {
            p.hasScheme = true;
            p.scheme = s.substr(0, colon);
            i = colon + 1;
        }
    }
    if (s.compare(i, 2, u"//") == 0) {
        const size_t end = s.find_first_of(u"/?#", i + 2);
        p.hasAuthority = true;
        p.authority = s.substr(i + 2, end == UCString::npos ? UCString::npos : end - i - 2);
        i = end == UCString::npos ? s.size() : end;
    }
    size_t end = s.find_first_of(u"?#", i);
    p.path = s.substr(i, end == UCString::npos ? UCString::npos : end - i);
    i = end == UCString::npos ? s.size() : end;
    if (i < s.size() && s[i] == u'?') {
        end = s.find(u'#', i);
        p.hasQuery = true;
        p.query = s.substr(i + 1, end == UCString::npos ? UCString::npos : end - i - 1);
        i = end == UCString::npos ? s.size() : end;
    }
    if (i < s.size()) {
        p.hasFragment = true;
        p.fragment = s.substr(i + 1);
    }
    return p;
}

// The path with "." and ".." segments taken out.
UCString RemoveDots(const UCString& path) {
    UCString in = path, out;
    while (!in.empty()) {
        if (in.compare(0, 3, u"../") == 0) {
            in.erase(0, 3);
        } else if (in.compare(0, 2, u"./") == 0) {
            in.erase(0, 2);
        } else if (in.compare(0, 3, u"/./") == 0) {
            in.erase(0, 2);
        } else if (in == u"/.") {
            in = u"/";
        } else if (in.compare(0, 4, u"/../") == 0 || in == u"/..") {
            in = in.size() == 3 ? UCString(u"/") : in.substr(3);
            const size_t cut = out.rfind(u'/');
            out.erase(cut == UCString::npos ? 0 : cut);
        } else if (in == u"." || in == u"..") {
            in.clear();
        } else {
            const size_t next = in.find(u'/', 1);
            const size_t n = next == UCString::npos ? in.size() : next;
            out.append(in, 0, n);
            in.erase(0, n);
        }
    }
    return out;
}

UCString Join(const UriParts& p) {
    UCString s;
    if (p.hasScheme)
        s += p.scheme + u":";
    if (p.hasAuthority)
        s += u"//" + p.authority;
    s += p.path;
    if (p.hasQuery)
        s += u"?" + p.query;
    if (p.hasFragment)
        s += u"#" + p.fragment;
    return s;
}

}  // namespace

UCString NormalizePublic(const UCChar* id) {
    UCString out;
    bool blank = false;
    for (; id && *id; ++id) {
        if (OzmGlob::IsUCSpace(*id)) {
            blank = !out.empty();
            continue;
        }
        if (blank)
            out += u' ';
        blank = false;
        out += *id;
    }
    return out;
}

UCString NormalizeUri(const UCChar* id) {
    UCString out;
    for (size_t i = 0; id && id[i]; ++i) {
        const UCChar c = id[i];
        if (c <= 0x20 || c >= 0x7F || std::strchr("<>\"\\^`{|}", int(c)))
            AppendEscaped(id, i, out);
        else
            out += c;
    }
    return out;
}

bool IsPublicIdUrn(const UCString& id) { return StartsWithNoCase(id, "urn:publicid:"); }

UCString UnwrapPublicIdUrn(const UCString& urn) {
    static const struct {
        const char16_t* escape;
        UCChar c;
    } kEscapes[] = {{u"2B", u'+'}, {u"3A", u':'}, {u"2F", u'/'}, {u"3B", u';'},
                    {u"27", u'\''}, {u"3F", u'?'}, {u"23", u'#'}, {u"25", u'%'}};
    UCString out;
    for (size_t i = 13; i < urn.size(); ++i) {
        const UCChar c = urn[i];
        if (c == u'+') {
            out += u' ';
        } else if (c == u':') {
            out += u"//";
        } else if (c == u';') {
            out += u"::";
        } else if (c == u'%' && i + 2 < urn.size()) {
            bool known = false;
            for (const auto& e : kEscapes) {
                if (Lower(urn[i + 1]) == Lower(e.escape[0]) && Lower(urn[i + 2]) == Lower(e.escape[1])) {
                    out += e.c;
                    i += 2;
                    known = true;
                    break;
                }
            }
            if (!known)
                out += c;
        } else {
            out += c;
        }
    }
    return NormalizePublic(out.c_str());
}

UCString ResolveReference(const UCString& base, const UCString& reference) {
    const UriParts r = Split(reference);
    if (r.hasScheme) {
        UriParts t = r;
        t.path = RemoveDots(r.path);
        return Join(t);
    }
    const UriParts b = Split(base);
    UriParts t;
    t.hasScheme = b.hasScheme;
    t.scheme = b.scheme;
    if (r.hasAuthority) {
        t.hasAuthority = true;
        t.authority = r.authority;
        t.path = RemoveDots(r.path);
        t.hasQuery = r.hasQuery;
        t.query = r.query;
    } else {
        t.hasAuthority = b.hasAuthority;
        t.authority = b.authority;
        if (r.path.empty()) {
            t.path = b.path;
            t.hasQuery = r.hasQuery || b.hasQuery;
            t.query = r.hasQuery ? r.query : b.query;
        } else {
            if (r.path[0] == u'/') {
                t.path = RemoveDots(r.path);
            } else if (b.hasAuthority && b.path.empty()) {
                t.path = RemoveDots(u"/" + r.path);
            } else {
                const size_t slash = b.path.rfind(u'/');
                t.path = RemoveDots((slash == UCString::npos ? UCString() : b.path.substr(0, slash + 1)) + r.path);
            }
            t.hasQuery = r.hasQuery;
            t.query = r.query;
        }
    }
    t.hasFragment = r.hasFragment;
    t.fragment = r.fragment;
    return Join(t);
}

UCString PathToFileUri(const UCString& path) {
    std::string bytes;
    OzmGlob::WStringToString(path, bytes, csetUTF8);
    UCString out = u"file://";
    for (unsigned char b : bytes) {
        if (IsAsciiLetter(b) || (b >= '0' && b <= '9') || std::strchr("-._~!$&'()*+,;=:@/", b)) {
            out += UCChar(b);
        } else {
            out += u'%';
            out += UCChar(kHex[b >> 4]);
            out += UCChar(kHex[b & 15]);
        }
    }
    return out;
}

bool FileUriToPath(const UCString& uri, UCString& path) {
    const UriParts p = Split(uri);
    if (!p.hasScheme || p.scheme.size() != 4 || !StartsWithNoCase(p.scheme, "file"))
        return false;
    if (!p.authority.empty() && (p.authority.size() != 9 || !StartsWithNoCase(p.authority, "localhost")))
        return false;
    if (p.path.empty() || p.path[0] != u'/')
        return false;
    std::string utf8, bytes;
    OzmGlob::WStringToString(p.path, utf8, csetUTF8);
    for (size_t i = 0; i < utf8.size(); ++i) {
        int hi, lo;
        if (utf8[i] == '%' && i + 2 < utf8.size() && (hi = HexValue(UCChar(utf8[i + 1]))) >= 0 &&
            (lo = HexValue(UCChar(utf8[i + 2]))) >= 0) {
            if (hi == 0 && lo == 0)
                return false;
            bytes += char(hi * 16 + lo);
            i += 2;
        } else {
            bytes += utf8[i];
        }
    }
    OzmGlob::DecodeUTF8(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), path);
    return true;
}

}  // namespace XmlCatalogText
