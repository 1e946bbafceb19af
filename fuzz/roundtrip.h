// roundtrip.h - writing a parsed document and reading it back, with the
// differences that the written text allows: what lineBreaks adds to the data
// of an element with children, and the elements that writeEmpty false drops.
#pragma once

#include "fuzz_common.h"

namespace fuzz {

struct WriteSwitches {
    bool withExternals;
    bool lineBreaks;
    bool escape;
    int parts;
    bool writeEmpty;
};

inline UCString Written(const XmlDocument& doc, const WriteSwitches& w) {
    UCString text;
    XmlOutputStream out;
    out.SetString(&text);
    doc.Write(out, w.withExternals, w.lineBreaks, w.escape, w.parts, w.writeEmpty);
    return text;
}

// Whether the writer leaves the element out.
inline bool Dropped(const XmlElement* e, const WriteSwitches& w) {
    return !w.writeEmpty && !e->Child() && e->DataLength() == 0;
}

// The data that reading the written element gives back: its own data, cut at
// a zero unit, and with line breaks a line feed and the indentation around
// every written child.
inline UCString DataBack(const XmlElement* e, const WriteSwitches& w, long long indent) {
    UCString data(e->Data());
    if (!w.lineBreaks || !e->Child())
        return data;
    data += u'\n';
    for (const XmlElement* c = e->Child(); c; c = c->Next())
        if (!Dropped(c, w))
            data += UCString(size_t(indent + 4), u' ') + u'\n';
    return data + UCString(size_t(indent), u' ');
}

// Whether back is the tree that writing a with w gives back; iterative, so
// that any depth is fine.
inline bool SameTree(const XmlElement* a, const XmlElement* b, const WriteSwitches& w) {
    struct Pair {
        const XmlElement* a;
        const XmlElement* b;
        long long indent;
    };
    std::vector<Pair> todo{{a, b, 0}};
    while (!todo.empty()) {
        const Pair p = todo.back();
        todo.pop_back();
        if (!p.a || !p.b)
            return p.a == p.b;
        if (UCString(p.a->Name()) != p.b->Name() || DataBack(p.a, w, p.indent) != p.b->Data() ||
            p.a->AttributeCount() != p.b->AttributeCount())
            return false;
        for (int i = 0; i < p.a->AttributeCount(); ++i)
            if (UCString(p.a->GetAttributeName(i)) != p.b->GetAttributeName(i) ||
                UCString(p.a->GetAttributeValue(i)) != p.b->GetAttributeValue(i))
                return false;
        const XmlElement* x = p.a->Child();
        const XmlElement* y = p.b->Child();
        for (;; x = x->Next(), y = y->Next()) {
            while (x && Dropped(x, w))
                x = x->Next();
            if (!x || !y)
                break;
            todo.push_back({x, y, p.indent + 4});
        }
        if (x || y)
            return false;
    }
    return true;
}

inline bool AnyUnitIn(const XmlElement* e, bool inData, bool inValues, const UCChar* units) {
    auto has = [units](const UCChar* s) {
        for (; *s; ++s)
            for (const UCChar* u = units; *u; ++u)
                if (*s == *u)
                    return true;
        return false;
    };
    bool found = false;
    XmlWalkTree(e, [&](const XmlElement* x, int) {
        found = found || (inData && has(x->Data()));
        for (int i = 0; !found && inValues && i < x->AttributeCount(); ++i)
            found = has(x->GetAttributeValue(i));
        return !found;
    });
    return found;
}

// Offset in text of a line and column of an error (lines from 1).
inline size_t Offset(const UCString& text, int line, int col) {
    size_t at = 0;
    for (int l = 1; l < line && at < text.size(); ++l) {
        at = text.find(u'\n', at);
        at = at == UCString::npos ? text.size() : at + 1;
    }
    return at + size_t(col > 0 ? col : 0);
}

// Stops the run with the two texts on standard error.
[[noreturn]] inline void Fail(const char* what, const UCString& source, const UCString& written,
                              const XmlDocument& back) {
    auto narrow = [](const UCString& s) {
        std::string out;
        for (UCChar c : s)
            out += c >= 0x20 && c < 0x7F ? char(c) : c == '\n' ? '\n' : '?';
        return out;
    };
    fprintf(stderr, "%s\n--- source\n%s\n--- written\n%s\n--- read back: %s at %d:%d\n", what,
            narrow(source).c_str(), narrow(written).c_str(), narrow(back.ErrorMessage()).c_str(), back.ErrorLine(),
            back.ErrorCol());
    abort();
}

}  // namespace fuzz
