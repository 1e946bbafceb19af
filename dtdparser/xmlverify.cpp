// Verification of a definition: the root element and every element that its
// element content reaches, directly or not, must be declared.
//
// The walk is depth first in the order of writing and ends at the first
// name without a definition. It keeps its own stack of open groups, so that
// long chains of elements and deeply nested groups cost memory, not call
// stack.
#include "xmldocument.h"

namespace {
struct XmlVerifyFrame {
    XmlContentPart* group;
    int next;  // the member to walk next
};
}  // namespace

BATCHERR XmlDocument::VerifyDTD() {
    XmlElementDef* root = m_dtd.FindElement(m_dtd.DocType().c_str());
    if (!root)
        return SetUpError(errSyntax, u"Unable to locate root element %s in DTD", m_dtd.DocType().c_str());
    for (int i = 0; i < m_dtd.ElementCount(); ++i)
        m_dtd.ElementAt(i)->Verified(false);
    return VerifyDTDElements(root);
}

// Walks the model of def, unless it has no element content or has been
// entered already.
BATCHERR XmlDocument::VerifyDTDElements(XmlElementDef* def) {
    if (def->Type() != elemChildren || def->Verified())
        return errNone;
    def->Verified(true);
    return VerifyDTDContentPart(def->Contents());
}

BATCHERR XmlDocument::VerifyDTDContentPart(XmlContentPart& part) {
    std::vector<XmlVerifyFrame> stack;
    stack.push_back({&part, 0});
    while (!stack.empty()) {
        XmlVerifyFrame& top = stack.back();
        if (top.next >= top.group->Count()) {
            stack.pop_back();
            continue;
        }
        XmlContentPart& member = (*top.group)[top.next++];
        if (member.Type() != cpName) {
            stack.push_back({&member, 0});
            continue;
        }
        XmlElementDef* def = m_dtd.FindElement(member.Name());
        if (!def)
            return SetUpError(errSyntax, u"Element %s is referenced but never defined", member.Name());
        if (def->Type() == elemChildren && !def->Verified()) {
            def->Verified(true);
            stack.push_back({&def->Contents(), 0});
        }
    }
    return errNone;
}
