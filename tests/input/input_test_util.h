// Helpers shared by the tests of the character stream and the tokenisers.
#pragma once

#include "xmlapi.h"

// A text as a string, "<null>" for a null pointer.
inline UCString Str(const UCChar* p) { return p ? UCString(p) : UCString(u"<null>"); }
// The message of an unexpected token.
inline UCString Ux(const UCString& token) { return u"Unexpected token '" + token + u"'"; }
// The text of a token read at the end of input.
inline const UCString kEof(1, UCEof);
