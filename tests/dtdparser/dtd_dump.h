// A definition as one line of text, for comparing whole models in tables:
//   elements  "a=E" EMPTY, "a=A" ANY, "a=M" mixed, "a=N" no type, "a=C(b,c)+"
//             element content; a mixed list follows its M: "a=M(b|c)*";
//             a length measure follows as "#5"
//   lists     "@a{b:CDATA#IMPLIED,c:(x|y)='x'}", a measure as "#5" behind
//             the attribute's name
//   entities  "&e='v'" and "&%p='v'", the five predefined ones left out
// Items are separated by blanks, in the order of the model's lists.
#pragma once

#include <string>

#include "xmlapi.h"

inline std::string Narrow(const UCString& s) {
    std::string out;
    for (UCChar c : s)
        out += c < 0x80 ? char(c) : '?';
    return out;
}

inline std::string DumpPart(const XmlContentPart& p) {
    std::string out;
    if (p.Type() == cpName) {
        out = Narrow(p.Name());
    } else {
        out = "(";
        for (int i = 0; i < p.Count(); ++i)
            out += (i ? (p.Type() == cpChoice ? "|" : ",") : "") + DumpPart(p[i]);
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
