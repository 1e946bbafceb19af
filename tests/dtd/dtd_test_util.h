// Helpers shared by the tests of the DTD model.
#pragma once

#include <string>
#include <vector>

#include "xmlapi.h"

// stem followed by the decimal digits of i.
inline UCString Num(const char16_t* stem, int i) {
    UCString s(stem);
    for (char c : std::to_string(i))
        s += char16_t(c);
    return s;
}

inline XmlContentPart Named(const UCChar* name, int countMod = countOne) {
    XmlContentPart p;
    p.Name(name);
    p.CountMod(countMod);
    return p;
}

// A sequence or a choice of names.
inline XmlContentPart Group(std::vector<const UCChar*> names, bool isChoice) {
    XmlContentPart g;
    for (const UCChar* n : names)
        g.AddCP(Named(n), isChoice);
    return g;
}

// Names of the direct children of a group, in order.
inline std::vector<UCString> Children(const XmlContentPart& g) {
    std::vector<UCString> out;
    for (int i = 0; i < g.Count(); ++i)
        out.push_back(g[i].Name());
    return out;
}
