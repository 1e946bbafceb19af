// Document parsing: the prolog, the start tags and the content, into the tree.
#include "document/xmlcontentlevel.h"
#include "input/xmlcharstream.h"

BATCHERR XmlDocument::ParseString(const UCString& text, bool validate, bool ignoreDtd) {
    m_sourceFile = nullptr;
    m_lwio = nullptr;
    m_sourceString = &text;
    m_stringCursor = text.data();
    m_stringEnd = text.data() + text.size();
    BATCHERR result = Guarded([&] {
        FileName(u"string");
        const BATCHERR parsed = ParseDocument(validate, ignoreDtd);
        KeepOnlyUsed();
        return parsed;
    });
    m_sourceString = nullptr;
    m_stringCursor = m_stringEnd = nullptr;
    return result;
}

BATCHERR XmlDocument::ParseDocument(bool validate, bool ignoreDtd) {
    // InitParser below empties the tree for the parse.
    m_errorMessage.clear();
    m_errorFile.clear();
    m_errorFileStale = true;
    m_errorLine = m_errorCol = 1;
    m_line = 1;
    m_col = 0;
    m_validate = validate;
    m_trackMaxLen = false;
    m_markupNesting = 0;
    m_groupNesting = 0;
    ++m_parseCount;
    m_entityNesting = 0;
    ResetLimits();
    InitParser();

    UCString token;
    BATCHERR result = errNone;
    // 0: nothing that counts read yet, 1: XML declaration read, 2: DOCTYPE read.
    int state = 0;
    int kind = PrologToken(token, state == 0);
    while (result == errNone && kind != tokNone && kind != tokEndProlog) {
        switch (kind) {
        case tokComment:
            break;
        case tokPIStart:
            // Target and data are dropped. An instruction still open at the
            // end of the input ends the prolog there.
            for (;;) {
                kind = PrologToken(token, false);
                if (kind == tokPIEnd)
                    break;
                if (kind == tokError) {
                    result = errSyntax;
                    break;
                }
                if (kind == tokNone && token.size() == 1 && token[0] == UCEof)
                    break;
            }
            break;
        case tokXmlDecl:
            result = ParseTextDecl(m_encoding, m_version, m_standalone);
            state = 1;
            break;
        case tokError:
            // The tokeniser has set the message already.
            result = errSyntax;
            break;
        case tokDoctype:
            if (state == 2) {
                result = SetUpError(errSyntax, u"Only one DoctypeDecl allowed!");
            } else {
                result = ParseDoctypeDecl(ignoreDtd);
                state = 2;
            }
            break;
        case tokElementDecl:
        case tokEntityDecl:
            UxToken(token);
            result = errDeclInProlog;
            break;
        default:
            result = UxToken(token);
            break;
        }
        if (result == errNone)
            kind = PrologToken(token, state == 0);
    }
    if (result != errNone || kind != tokEndProlog)
        return result;

    m_trackMaxLen = m_dtd.HaveContents();
    m_fastContent = !m_generalOnly && !m_validate;
    std::fill(std::begin(m_referenceCache), std::end(m_referenceCache), nullptr);
    m_scannedText.from = nullptr;
    PushBack(u'<');
    kind = ContentToken(token);
    if (kind != tokStartTag)
        return UxToken(token);
    bool isEmpty = false;
    m_rootElement = ParseElementBegin(token, isEmpty);
    if (!m_rootElement)
        return errSyntax;
    if (!isEmpty) {
        m_elementStack.push_back(m_rootElement);
        result = ParseContent(0);
    }
    return result;
}

XmlElement* XmlDocument::ParseElementBegin(const UCString& name, bool& isEmpty) {
    isEmpty = false;
    XmlElement* element = NewElement();
    if (!element) {
        SetUpError(errSyntax, u"Out of memory for element '%s'", name.c_str());
        return nullptr;
    }
    element->m_nameId = InternName(name.data(), name.size()) + 1;
    return ParseAttributes(element, isEmpty);
}

// Reads the attributes of a start tag whose name has been read, up to its
// '>' or '/>'. On failure the element is released and null returned.
XmlElement* XmlDocument::ParseAttributes(XmlElement* element, bool& isEmpty) {
    isEmpty = false;
    if (m_fastContent && FastTagRest(element, isEmpty))
        return element;
    UCString attrName;
    UCString attrValue;
    int kind;
    while (element) {
        kind = ElementBeginToken(attrName);
        if (kind == tokClose || kind == tokEmptyClose)
            break;
        if (kind != tokName) {
            UxToken(attrName);
            element->Release();
            element = nullptr;
            break;
        }
        if (ElementBeginToken(attrValue) != tokEquals || ElementBeginToken(attrValue) != tokQuoted) {
            UxToken(attrValue);
            element->Release();
            element = nullptr;
            break;
        }
        if (m_validate && !m_dtd.ValidateAttribute(element, attrName.c_str(), attrValue.c_str())) {
            element->Release();
            element = nullptr;
            break;
        }
        element->AddParsedAttribute(attrName.data(), attrName.size(), attrValue.data(), attrValue.size());
        if (m_trackMaxLen)
            TrackAttribute(Tracked(element->m_nameId), attrName.data(), attrName.size(), attrValue.size());
    }
    if (element && kind == tokEmptyClose)
        isEmpty = true;
    return element;
}

// Links a child whose start tag has been read and reads its content.
BATCHERR XmlDocument::AttachChild(ContentLevel& level, XmlElement* child, bool isEmpty) {
    LinkChild(level, child);
    if (isEmpty)
        return errNone;
    m_elementStack.push_back(child);
    return ParseContent(level.depth + 1);
}

BATCHERR XmlDocument::ParseContent(int depth) {
    if (depth >= MaxDepth)
        return SetUpError(errSyntax, u"Element nesting too deep");
    UCString& data = m_depthData[depth];
    data.clear();
    // Room for a few lines of text from the start, rather than growing
    // through every small size in each new document.
    if (data.capacity() < 120)
        data.reserve(120);
    const uint64_t nullsBefore = m_dataNulls;
    XmlElement* current = m_elementStack.back();
    XmlElement* lastChild = current->m_child ? current->m_child->Last() : nullptr;
    if (current->m_child && !lastChild)
        lastChild = current->m_child;
    // The index, not a reference: the table may grow while children are read.
    ContentLevel level{current, lastChild, size_t(current->m_nameId - 1), &data, depth};
    BATCHERR result = errNone;
    bool ended = false;
    while (result == errNone && !ended) {
        if (m_fastContent && !m_pushPending) {
            int step = FastContent(level, result);
            if (step == fastEnded)
                break;
            if (step == fastTook)
                continue;
        }
        int kind = ContentToken(m_token, &data);
        switch (kind) {
        case tokEndTag:
            if (m_token != m_names[level.nameIndex])
                result = SetUpError(errSyntax, u"Improper element nesting");
            m_elementStack.pop_back();
            ended = true;
            break;
        case tokComment:
            break;
        case tokCharData:
            break;  // the text went straight into data
        case tokError:
            result = errSyntax;  // the tokeniser has set the message
            break;
        case tokStartTag: {
            bool isEmpty = false;
            XmlElement* child = ParseElementBegin(m_token, isEmpty);
            result = child ? AttachChild(level, child, isEmpty) : errSyntax;
            break;
        }
        default:
            result = UxToken(m_token);
            break;
        }
    }
    if (result != errNone)
        return result;
    // The text: data, then the spans the fast path left at the end tag.
    const size_t total = data.size() + level.SpanUnits();
    if (m_trackMaxLen) {
        if (XmlElementDef* def = Tracked(current->m_nameId).element)
            def->MaxLen(XmlSaturatedInt(int64_t(total)));
    }
    // The text ends at a unit of value 0, if one came in; the spans hold
    // none.
    const size_t cut = m_dataNulls == nullsBefore ? data.size() : UCString::traits_type::length(data.c_str());
    const size_t length = cut < data.size() ? cut : total;
    XmlElementBlock& block = *current->m_block;
    if (length == 0) {
        current->m_data.Clear();
    } else if (length <= data.size()) {
        current->m_data.Borrow(block.StoreText(data.data(), length), length);
    } else {
        UCChar* text = block.TextRoom(length);
        OzmUnits::Copy(text, data.data(), data.size());
        level.CopySpans(text + data.size());
        current->m_data.Borrow(text, length);
    }
    return errNone;
}

// The definitions that the lengths of an element name go to. The definition
// is complete once the prolog is over and does not change during the
// content, so each name is looked up once per parse.
XmlDocument::TrackedDefs& XmlDocument::LookUpTracked(int nameId) {
    if (size_t(nameId) >= m_trackedDefs.size())
        m_trackedDefs.resize(size_t(nameId) + 1);
    TrackedDefs& defs = m_trackedDefs[size_t(nameId)];
    const UCChar* name = m_names[size_t(nameId - 1)].c_str();
    defs.element = m_dtd.FindElement(name);
    defs.attributes = m_dtd.FindAttrList(name);
    defs.seen.clear();
    defs.parse = m_parseCount;
    return defs;
}

// The attribute with the name of nameLength units at name and a value of
// length units.
void XmlDocument::TrackAttribute(TrackedDefs& defs, const UCChar* name, size_t nameLength, size_t length) {
    if (!defs.attributes)
        return;
    XmlAttDef* def = nullptr;
    auto known = defs.seen.begin();
    for (; known != defs.seen.end(); ++known) {
        if (known->first.size() == nameLength && OzmUnits::Same(known->first.data(), name, nameLength)) {
            def = known->second;
            break;
        }
    }
    if (known == defs.seen.end()) {
        // Names beyond the first few are looked up in the list's index each
        // time, so that many names on one element cost no walk of them all.
        UCString key(name, nameLength);
        def = defs.attributes->FindModifiableAttDef(key.c_str());
        if (defs.seen.size() < kSeenAttributes)
            defs.seen.emplace_back(std::move(key), def);
    }
    if (def)
        def->MaxLen(XmlSaturatedInt(int64_t(length)));
}
