// parse_file_fuzzer.cpp - ParseFile on any bytes, so that byte-order marks,
// UTF-8 decoding and the XML declaration are read from a real file. The
// file lies beside the subsets and entities of fuzz/files, which a DOCTYPE
// reaches by their bare names. The low bit of the last byte chooses the
// validating parse (the general content path) or the plain one (the fast
// path); a byte behind the root element is never read, so the fuzzer can set
// it freely. ParseBytes on the same bytes must give the same outcome.
#include "fuzz_common.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const UCString path = fuzz::WriteScratch("doc.xml", data, size);
    const bool validate = size > 0 && (data[size - 1] & 1) != 0;
    XmlDocument doc;
    const BATCHERR result = doc.ParseFile(path.c_str(), validate, false);
    if (fuzz::Touch(doc) == size_t(-1) && result == errNone)
        abort();
    // The same bytes from memory, with the file's directory for bare names,
    // give the same outcome.
    const UCString dir = path.substr(0, path.rfind(u'/') + 1);
    XmlDocument fromBytes;
    if (fromBytes.ParseBytes(data, size, validate, false, dir.c_str()) != result ||
        UCString(fromBytes.ErrorMessage()) != doc.ErrorMessage() || fromBytes.ErrorLine() != doc.ErrorLine() ||
        fromBytes.ErrorCol() != doc.ErrorCol() ||
        fuzz::Touch(fromBytes) - fuzz::Length(fromBytes.ErrorFile()) != fuzz::Touch(doc) - fuzz::Length(doc.ErrorFile()))
        abort();
    return 0;
}
