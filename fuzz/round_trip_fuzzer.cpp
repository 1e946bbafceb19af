// round_trip_fuzzer.cpp - a document the parser accepted, written with every
// combination of the writer's switches and read again, must give the same
// tree, apart from what the written text allows:
// - with lineBreaks, the line feeds and indentation around children are data;
// - without writeEmpty, elements with neither data nor children are gone (a
//   root of that kind leaves no document);
// - without escape, data holding '<' or '&' is no longer well-formed;
// - an attribute value is written as held between double quotes, so one that
//   holds a double quote does not read back;
// - a unit 0xFFFF in data (from "&#xFFFF;") is written as it is, and reading
//   takes it for the end of the input and drops it; a carriage return (from
//   "&#13;") is written as it is too, and reading makes it a line feed.
// With the definition written too, a definition that does not read back
// (the writer's known losses) must fail inside the DOCTYPE; one where the
// writer had no text for a type ("Whoops", as for NOTATION) need not read
// back at all.
#include "roundtrip.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const UCString source = fuzz::Decode(data, size);
    XmlDocument doc;
    if (doc.ParseString(source) != errNone || !doc.RootElement())
        return 0;
    const XmlElement* root = doc.RootElement();
    const bool quoteInValue = fuzz::AnyUnitIn(root, false, true, u"\"");
    const bool markupInData = fuzz::AnyUnitIn(root, true, false, u"<&");
    const UCChar changed[] = {UCEof, u'\r', 0};
    const bool changedInData = fuzz::AnyUnitIn(root, true, false, changed);
    for (int bits = 0; bits < 32; ++bits) {
        const fuzz::WriteSwitches w{(bits & 1) != 0, (bits & 2) != 0, (bits & 4) != 0, bits & 8 ? 7 : 5,
                                    (bits & 16) != 0};
        if (w.withExternals && w.parts == 5)
            continue;  // no definition, nothing for the switch to do
        const bool lost = quoteInValue || changedInData || (!w.escape && markupInData) || fuzz::Dropped(root, w);
        const UCString written = fuzz::Written(doc, w);
        XmlDocument back;
        const BATCHERR result = back.ParseString(written);
        if (result != errNone) {
            if (lost || (w.parts == 7 && written.find(u"Whoops") != UCString::npos))
                continue;
            if (w.parts == 7) {
                const size_t decl = fuzz::Written(doc, {w.withExternals, w.lineBreaks, w.escape, 3, w.writeEmpty}).size();
                if (fuzz::Offset(written, back.ErrorLine(), back.ErrorCol()) <= decl)
                    continue;
            }
            fuzz::Fail("written document does not read back", source, written, back);
        }
        if (!lost && !fuzz::SameTree(root, back.RootElement(), w))
            fuzz::Fail("written document reads back to another tree", source, written, back);
    }
    return 0;
}
