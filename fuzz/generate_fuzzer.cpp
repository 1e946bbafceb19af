// generate_fuzzer.cpp - a document read without its definition gets a
// generated one; written whole and read again, the definition must parse and
// verify, the tree must come back, and the text read back must write the
// same text again. Generation has known losses, which are skipped: an
// attribute without a default before another one in its list, enumeration
// values that are no names, and an element named "empty" or "any" in any
// case, which a declaration reads as the keyword. Attribute values that hold a double
// quote don't read back either, nor data holding a unit 0xFFFF or a carriage
// return (see round_trip_fuzzer.cpp).
#include "input/xmlcharstream.h"
#include "roundtrip.h"

namespace {

// The parser's own rules for names.
bool IsNameStart(UCChar c) { return XmlIsNameStartRule(c); }
bool IsNameUnit(UCChar c) { return XmlIsNameCharRule(c); }

// Whether the generated definition holds one of the known losses.
bool KnownLoss(const XmlDtd& dtd) {
    for (int i = 0; i < dtd.ElementCount(); ++i) {
        UCString name = dtd.ElementAt(i)->Name();
        for (UCChar& c : name)
            c = c >= u'a' && c <= u'z' ? UCChar(c - 32) : c;
        if (name == u"EMPTY" || name == u"ANY")
            return true;
        const XmlAttrList* list = dtd.FindAttrList(dtd.ElementAt(i)->Name());
        for (int j = 0; list && j < list->DefCount(); ++j) {
            const XmlAttDef* def = list->GetAttDef(j);
            if (def->DefType() == defNone && j + 1 < list->DefCount())
                return true;
            for (int k = 0; def->Type() == attEnumerated && k < def->EnumCount(); ++k) {
                const UCChar* v = def->GetEnum(k);
                if (!IsNameStart(*v))
                    return true;
                for (; *v; ++v)
                    if (!IsNameUnit(*v))
                        return true;
            }
        }
    }
    return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const UCString source = fuzz::Decode(data, size);
    XmlDocument doc;
    if (doc.ParseString(source, false, true) != errNone || !doc.RootElement())
        return 0;
    doc.GenerateDTD();
    const UCChar changed[] = {UCEof, u'\r', 0};
    if (KnownLoss(doc.GetDTD()) || fuzz::AnyUnitIn(doc.RootElement(), false, true, u"\"") ||
        fuzz::AnyUnitIn(doc.RootElement(), true, false, changed))
        return 0;
    const fuzz::WriteSwitches w{false, false, true, 7, true};
    const UCString written = fuzz::Written(doc, w);
    XmlDocument back;
    if (back.ParseString(written) != errNone)
        fuzz::Fail("generated definition does not read back", source, written, back);
    if (!fuzz::SameTree(doc.RootElement(), back.RootElement(), w))
        fuzz::Fail("document with a generated definition reads back to another tree", source, written, back);
    if (fuzz::Written(back, w) != written)
        fuzz::Fail("definition read back writes another text", source, written, back);
    return 0;
}
