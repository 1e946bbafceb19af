// Helpers shared by the tests: text conversion, a temporary directory, trees
// and parses in tables, written text, and one-line dumps of definitions for
// comparing whole models in tables.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "xmlapi.h"

// A text as a string, "<null>" for a null pointer.
inline UCString Str(const UCChar* p) { return p ? UCString(p) : UCString(u"<null>"); }
// The message of an unexpected token.
inline UCString Ux(const UCString& token) { return u"Unexpected token '" + token + u"'"; }
// The text of a token read at the end of input.
inline const UCString kEof(1, UCEof);
// UTF-8 bytes decoded, and units encoded.
inline UCString U(const std::string& utf8) {
    UCString out;
    OzmGlob::DecodeUTF8(reinterpret_cast<const unsigned char*>(utf8.data()), utf8.size(), out);
    return out;
}
inline std::string Utf8(const UCChar* s) {
    std::string out;
    OzmGlob::WStringToString(s ? UCString(s) : UCString(), out, csetUTF8);
    return out;
}
// ASCII only, anything else as '?': for messages and dumps.
inline std::string Narrow(const UCString& s) {
    std::string out;
    for (UCChar c : s)
        out += c < 0x80 ? char(c) : '?';
    return out;
}
// stem followed by the decimal digits of i.
inline UCString Num(const char16_t* stem, int i) {
    UCString s(stem);
    for (char c : std::to_string(i))
        s += char16_t(c);
    return s;
}
inline UCString Repeat(const UCString& s, size_t n) {
    UCString out;
    while (n--)
        out += s;
    return out;
}

// The tree from e on as text: name{data}[name=value](children), siblings
// apart by blanks; each child must name its parent.
inline UCString Tree(const XmlElement* e) {
    UCString out;
    for (; e; e = e->Next()) {
        out += (out.empty() ? u"" : u" ") + Str(e->Name()) + u"{" + Str(e->Data()) + u"}";
        for (int i = 0; i < e->AttributeCount(); ++i)
            out += u"[" + Str(e->GetAttributeName(i)) + u"=" + Str(e->GetAttributeValue(i)) + u"]";
        if (e->Child())
            out += u"(" + Tree(e->Child()) + u")";
        for (const XmlElement* c = e->Child(); c; c = c->Next())
            EXPECT_TRUE(c->Parent() == e && c->ParentPos() == 0) << Narrow(Str(c->Name()));
    }
    return out;
}
inline UCString Tree(const XmlDocument& doc) { return Tree(doc.RootElement()); }

// A string parsed: the result, the message, the place of the last token read
// (line -1: not checked) and, on success or when one is given, the tree.
struct ParseRow {
    UCString in;
    BATCHERR code;
    UCString msg;
    int line, col;
    UCString tree;
};
// ParseBytes on bytes gives what ParseFile gives on a file of them: code,
// message, place, tree and definition (defined at the end).
inline void ExpectBytesAsFile(const std::string& bytes, const std::string& path = "");
// A text as a file holds it: UTF-8 when the units are well formed, else
// UTF-16 little-endian behind its byte-order mark, which keeps any unit.
inline std::string AsFileBytes(const UCString& text);

// The rows parsed in turn into one document, so that each parse starts over;
// each row is also parsed as a file and as bytes, which must agree.
inline void CheckParses(const std::vector<ParseRow>& rows) {
    XmlDocument doc;
    for (const ParseRow& r : rows) {
        SCOPED_TRACE(testing::PrintToString(r.in.substr(0, 60)));
        EXPECT_EQ(doc.ParseString(r.in), r.code);
        EXPECT_EQ(Str(doc.ErrorMessage()), r.msg);
        EXPECT_EQ(Str(doc.ErrorFile()), u"string");
        if (r.line >= 0) {
            EXPECT_EQ(std::make_pair(doc.ErrorLine(), doc.ErrorCol()), std::make_pair(r.line, r.col));
        }
        EXPECT_EQ(r.code == errNone || !r.tree.empty() ? Tree(doc) : u"", r.tree);
        ExpectBytesAsFile(AsFileBytes(r.in));
    }
}

// What write puts into a stream that fills a string.
template <class F>
UCString Written(F write) {
    UCString out;
    XmlOutputStream s;
    s.SetString(&out);
    write(s);
    return out;
}

// A temporary directory, removed with everything in it at the end.
class TempDir {
public:
    TempDir() {
        std::string pattern = (std::filesystem::temp_directory_path() / "ozmtest.XXXXXX").string();
        if (mkdtemp(pattern.data()))
            m_dir = pattern;
    }
    ~TempDir() {
        std::error_code ec;
        if (!m_dir.empty())
            std::filesystem::remove_all(m_dir, ec);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    bool Ok() const { return !m_dir.empty(); }
    const std::string& Dir() const { return m_dir; }
    std::string Path(const std::string& name) const { return m_dir + "/" + name; }
    UCString UPath(const std::string& name) const { return U(Path(name)); }
    // Writes bytes to the named file and returns its path.
    std::string Write(const std::string& name, const std::string& bytes) const {
        std::ofstream(Path(name), std::ios::binary) << bytes;
        return Path(name);
    }
    std::string Read(const std::string& name) const {
        std::ifstream in(Path(name), std::ios::binary);
        std::stringstream ss;
        ss << in.rdbuf();
        return ss.str();
    }

private:
    std::string m_dir;
};

// Content parts built in place.
inline XmlContentPart Named(const UCChar* name, int countMod = countOne) {
    XmlContentPart p;
    p.Name(name);
    p.CountMod(countMod);
    return p;
}
inline XmlContentPart Group(std::vector<XmlContentPart> parts, bool isChoice, int countMod = countOne) {
    XmlContentPart g;
    for (const XmlContentPart& p : parts)
        g.AddCP(p, isChoice);
    g.CountMod(countMod);
    return g;
}

// A definition as one line of text:
//   elements  "a=E" EMPTY, "a=A" ANY, "a=M" mixed, "a=N" no type, "a=C(b,c)+"
//             element content; a mixed list follows its M: "a=M(b|c)*";
//             a length measure follows as "#5"
//   lists     "@a{b:CDATA#IMPLIED,c:(x|y)='x'}", a measure as "#5" behind
//             the attribute's name
// With explicit kinds, groups show as S(..) sequence and C(..) choice.
inline std::string DumpPart(const XmlContentPart& p, bool kinds = false) {
    std::string out;
    if (p.Type() == cpName) {
        out = Narrow(p.Name());
    } else if (p.Type() != cpNone || !kinds) {
        out = kinds ? (p.Type() == cpChoice ? "C(" : "S(") : "(";
        for (int i = 0; i < p.Count(); ++i)
            out += (i ? (p.Type() == cpChoice && !kinds ? "|" : ",") : "") + DumpPart(p[i], kinds);
        out += ")";
    }
    static const char* const mods[] = {"", "+", "*", "?"};
    return out + mods[p.CountMod() & 3];
}

inline std::string DumpDtd(const XmlDtd& dtd, bool withLengths = false) {
    std::string out;
    auto sep = [&out]() -> std::string& { return out.empty() ? out : out += " "; };
    for (int i = 0; i < dtd.ElementCount(); ++i) {
        const XmlElementDef* e = dtd.ElementAt(i);
        static const char* const types = "NEACM";
        sep() += Narrow(e->Name()) + "=" + types[e->Type() % 5];
        if (e->Contents().Type() != cpNone)
            out += DumpPart(e->Contents());
        if (withLengths)
            out += "#" + std::to_string(e->MaxLen());
        if (const XmlAttrList* l = dtd.FindAttrList(e->Name()); l && withLengths)
            for (int j = 0; j < l->DefCount(); ++j)
                out += " @" + Narrow(l->GetAttDef(j)->Name()) + "#" + std::to_string(l->GetAttDef(j)->MaxLen());
    }
    return out;
}

inline std::string DumpAttrList(const XmlAttrList& l) {
    static const char* const types[] = {"NONE", "CDATA", "ID", "IDREF", "IDREFS", "ENTITY",
                                        "ENTITIES", "NMTOKEN", "NMTOKENS", "NOTATION", ""};
    static const char* const defs[] = {"", "#REQUIRED", "#IMPLIED", "#FIXED", ""};
    std::string out = "@" + Narrow(l.Name()) + "{";
    for (int j = 0; j < l.DefCount(); ++j) {
        const XmlAttDef* d = l.GetAttDef(j);
        out += (j ? "," : "") + Narrow(d->Name()) + ":" + types[d->Type() % 11];
        if (d->Type() == attEnumerated) {
            out += "(";
            for (int k = 0; k < d->EnumCount(); ++k)
                out += (k ? "|" : "") + Narrow(d->GetEnum(k));
            out += ")";
        }
        out += defs[d->DefType() % 5];
        if (d->DefType() >= defFixed)
            out += "'" + Narrow(d->DefVal()) + "'";
    }
    return out + "}";
}

inline std::string AsFileBytes(const UCString& text) {
    bool wellFormed = true;
    for (size_t i = 0; i < text.size() && wellFormed; ++i) {
        const UCChar c = text[i];
        if (c >= 0xD800 && c <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF)
            ++i;
        else
            wellFormed = !(c >= 0xD800 && c <= 0xDFFF);
    }
    if (wellFormed)
        return Utf8(text.c_str());
    std::string bytes = "\xFF\xFE";
    for (UCChar c : text) {
        bytes += char(c & 0xFF);
        bytes += char(c >> 8);
    }
    return bytes;
}

// path names a file that holds the bytes already; without one they are
// written to a scratch file.
inline void ExpectBytesAsFile(const std::string& bytes, const std::string& existing) {
    static TempDir scratch;
    const std::string path = existing.empty() ? scratch.Write("bytes.xml", bytes) : existing;
    const UCString upath = U(path);
    const UCString base = U(path.substr(0, path.rfind('/') + 1));
    XmlDocument fromFile, fromBytes;
    const BATCHERR fileCode = fromFile.ParseFile(upath.c_str());
    const BATCHERR bytesCode = fromBytes.ParseBytes(bytes.data(), bytes.size(), false, false, base.c_str());
    SCOPED_TRACE(testing::PrintToString(bytes.substr(0, 60)));
    EXPECT_EQ(bytesCode, fileCode);
    EXPECT_EQ(Str(fromBytes.ErrorMessage()), Str(fromFile.ErrorMessage()));
    EXPECT_EQ(Str(fromBytes.ErrorFile()), Str(fromFile.ErrorFile()) == upath ? u"bytes" : Str(fromFile.ErrorFile()));
    EXPECT_EQ(std::make_pair(fromBytes.ErrorLine(), fromBytes.ErrorCol()),
              std::make_pair(fromFile.ErrorLine(), fromFile.ErrorCol()));
    EXPECT_EQ(Tree(fromBytes), Tree(fromFile));
    EXPECT_EQ(DumpDtd(fromBytes.GetDTD(), true), DumpDtd(fromFile.GetDTD(), true));
    EXPECT_EQ(fromBytes.Encoding(), fromFile.Encoding());
}
