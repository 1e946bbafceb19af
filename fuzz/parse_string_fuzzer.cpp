// parse_string_fuzzer.cpp - ParseString on any 16-bit text, in one of three
// modes: with the definition read, with attributes validated (the general
// content path), and with the definition skipped. The last byte chooses the
// mode; a byte behind the root element is never read, so the fuzzer can set
// it freely. Then the tree and the error are read.
#include "fuzz_common.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool kModes[3][2] = {{false, false}, {true, false}, {false, true}};
    const bool* mode = kModes[size > 0 ? data[size - 1] % 3 : 0];
    XmlDocument doc;
    const BATCHERR result = doc.ParseString(fuzz::Decode(data, size), mode[0], mode[1]);
    if (fuzz::Touch(doc) == size_t(-1) && result == errNone)
        abort();  // keeps the walk from being optimised away
    return 0;
}
