// xmlnamechoice.cpp - AppendNameChoice.
//
// XmlContentPart::AddCP looks through the whole choice for the name of each
// part it adds, which makes a choice of n names cost n * n / 2 comparisons.
// The names given here are known to differ, so all but the last go into a
// new group as a sequence, which AddCP appends without looking; Name then
// makes the group a plain part again, keeping its children and leaving its
// name empty as it was, and the last name, added as to a choice, turns it
// into the choice. The one look through the group finds no equal name.
#include "dtdgen/xmlnamechoice.h"

#include "dtdgen/xmlgenmemory.h"

void AppendNameChoice(XmlContentPart& group, const UCChar* const* names, size_t n) {
    if (n == 0)
        return;
    XmlContentPart part;
    if (group.Type() == cpNone && n > 1) {
        for (size_t i = 0; i + 1 < n; ++i) {
            part.Name(names[i]);
            XmlRequired(part.Type() == cpName && group.AddCP(part, false));
        }
        group.Name(u"");
        names += n - 1;
        n = 1;
    }
    for (size_t i = 0; i < n; ++i) {
        part.Name(names[i]);
        XmlRequired(part.Type() == cpName && group.AddCP(part, true));
    }
}
