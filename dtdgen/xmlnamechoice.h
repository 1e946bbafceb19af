// xmlnamechoice.h - a choice group of many names, built in time linear in
// their number.
#pragma once

#include <cstddef>

#include "xmldtd.h"

// Appends a part named after each of the n names to group, which must be
// new (type cpNone) or a choice, and is a choice afterwards: the same group
// as AddCP(part, true) for each name in turn gives. The names must differ
// from each other and from those in the group already.
void AppendNameChoice(XmlContentPart& group, const UCChar* const* names, size_t n);
