// ozmdecode.h - what the decoder of texts (ozmdecode.cpp) and the table of
// character sets (ozmglob.cpp) share.
#pragma once

#include "ozmutil.h"

// The name under which iconv decodes set, or null for a set that the library
// decodes itself and for a value that names no set. stateful, when given,
// tells whether iconv's decoder keeps a state of its own between blocks.
const char* OzmIconvName(OZM_CSET set, bool* stateful = nullptr);

// The name of the 16-bit units of this machine's byte order, for iconv.
inline const char* OzmIconvUnits() {
    return __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__ ? "UTF-16BE" : "UTF-16LE";
}
