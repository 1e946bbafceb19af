// parse_dtd_fuzzer.cpp - ParseExternalDTD on any bytes, read from a file
// beside the subsets and entities of fuzz/files.
#include "fuzz_common.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const UCString path = fuzz::WriteScratch("ext.dtd", data, size);
    XmlDocument doc;
    const BATCHERR result = doc.ParseExternalDTD(path.c_str());
    if (fuzz::Touch(doc) == size_t(-1) && result == errNone)
        abort();
    return 0;
}
