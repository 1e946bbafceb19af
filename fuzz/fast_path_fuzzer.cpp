// fast_path_fuzzer.cpp - the content's fast path against the general reader:
// any 16-bit text parsed both ways gives the same result, message, error
// position, tree and recorded lengths. The fast path takes text, tags,
// leaves and references straight from the source buffer and must leave
// everything as the general tokenisers, a unit at a time, would.
#include "fuzz_common.h"

// The switch of the parser that the test suite's differential tests use.
class XmlFastPathProbe {
public:
    static void GeneralOnly(XmlDocument& d) { d.m_generalOnly = true; }
};

namespace {

void Add(UCString& out, const UCChar* s) {
    out += s;
    out.push_back(0xFFFF);  // no parsed text holds it, so fields stay apart
}

void Add(UCString& out, long long n) {
    const std::string digits = std::to_string(n);
    out.append(digits.begin(), digits.end());
    out.push_back(0xFFFF);
}

UCString Outcome(const XmlDocument& doc, BATCHERR result) {
    UCString out;
    Add(out, int(result));
    Add(out, doc.ErrorMessage());
    Add(out, doc.ErrorLine());
    Add(out, doc.ErrorCol());
    XmlWalkTree(doc.RootElement(), [&out](const XmlElement* e, int depth) {
        Add(out, depth);
        Add(out, e->Name());
        Add(out, e->ParentPos());
        Add(out, e->Data());
        Add(out, e->DataLength());
        for (int i = 0; i < e->AttributeCount(); ++i) {
            Add(out, e->GetAttributeName(i));
            Add(out, e->GetAttributeValue(i));
        }
        return true;
    });
    const XmlDtd& dtd = doc.GetDTD();
    for (int i = 0; i < dtd.ElementCount(); ++i) {
        const XmlElementDef* def = dtd.ElementAt(i);
        Add(out, def->MaxLen());
        if (const XmlAttrList* list = dtd.FindAttrList(def->Name()))
            for (int j = 0; j < list->DefCount(); ++j)
                Add(out, list->GetAttDef(j)->MaxLen());
    }
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const UCString text = fuzz::Decode(data, size);
    XmlDocument fast, general;
    XmlFastPathProbe::GeneralOnly(general);
    const BATCHERR fastResult = fast.ParseString(text);
    const BATCHERR generalResult = general.ParseString(text);
    if (Outcome(fast, fastResult) != Outcome(general, generalResult))
        abort();
    return 0;
}
