// XmlDocument::Validate: the tree checked against a definition (see
// xmlvalidate.h for what is checked).
//
// One walk over the tree, with its own stack of open elements. What the
// definition says of an element name is looked up once per check and kept
// by the number of the name in the document's name table; a content model
// is compiled into an XmlAutomaton when an element first needs it. IDREF
// values are kept until the walk has seen every ID.
#include <algorithm>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

#include "input/xmlcharstream.h"
#include "validate/xmlautomaton.h"
#include "xmldocument.h"

namespace {

using View = std::u16string_view;

// The lookups of XmlDtd keep indexes that they build on first use, so that
// a definition shared by checks on several threads is looked up under this
// lock. Each check asks once per name and keeps the answer.
std::mutex s_dtdLookup;

bool IsSpace(UCChar c) { return c == 0x20 || c == 0x09 || c == 0x0A || c == 0x0D; }
bool NameStart(UCChar c) { return c < 0x80 ? (kOzmAsciiNames.cls[c] & 1) != 0 : XmlIsNameStartRule(c); }
bool NameChar(UCChar c) { return c < 0x80 ? (kOzmAsciiNames.cls[c] & 2) != 0 : XmlIsNameCharRule(c); }

bool IsName(View v) {
    if (v.empty() || !NameStart(v[0]))
        return false;
    for (UCChar c : v.substr(1))
        if (!NameChar(c))
            return false;
    return true;
}
bool IsNmtoken(View v) {
    if (v.empty())
        return false;
    for (UCChar c : v)
        if (!NameChar(c))
            return false;
    return true;
}

uint32_t HashOf(View v) { return OzmHashUnits(v.data(), v.size()); }

// Sorts keys by their upper 32 bits, keeping the order of equal ones: the
// passes of a radix sort, which read and write in sequence (three).
void SortByHigh(std::vector<uint64_t>& keys) {
    // Digits of 11, 11 and 10 bits: tables small enough to clear for every
    // check, however few the keys.
    constexpr int kBits[] = {11, 11, 10};
    std::vector<uint64_t> other(keys.size());
    std::vector<size_t> start;
    int shift = 32;
    for (int bits : kBits) {
        const uint64_t mask = (uint64_t(1) << bits) - 1;
        start.assign(size_t(mask) + 2, 0);
        for (uint64_t k : keys)
            ++start[((k >> shift) & mask) + 1];
        for (size_t d = 1; d < start.size(); ++d)
            start[d] += start[d - 1];
        for (uint64_t k : keys)
            other[start[(k >> shift) & mask]++] = k;
        keys.swap(other);
        shift += bits;
    }
}

// The tokens of a value: runs of anything but white space, or, in a value
// with its references replaced (blanksOnly), of anything but blanks: there
// white space that a character reference gave is part of a token.
template <class Each>
void Tokens(View v, bool blanksOnly, Each&& each) {
    auto space = [blanksOnly](UCChar c) { return blanksOnly ? c == u' ' : IsSpace(c); };
    size_t i = 0;
    while (i < v.size()) {
        while (i < v.size() && space(v[i]))
            ++i;
        size_t j = i;
        while (j < v.size() && !space(v[j]))
            ++j;
        if (j > i)
            each(v.substr(i, j - i));
        i = j;
    }
}

// v with leading and trailing space dropped and each inner run made one
// blank, in out (blanksOnly as for Tokens).
void Collapse(View v, bool blanksOnly, UCString& out) {
    out.clear();
    Tokens(v, blanksOnly, [&](View token) {
        if (!out.empty())
            out += u' ';
        out += token;
    });
}

UCString Quoted(View v) {
    // Long values are shown by their start.
    constexpr size_t kShown = 60;
    UCString out = u"'";
    out += v.substr(0, kShown);
    if (v.size() > kShown)
        out += u"...";
    return out + u"'";
}

const UCChar* ModText(int mod) {
    return mod == countPlus ? u"+" : mod == countStar ? u"*" : mod == countOptional ? u"?" : u"";
}

// A content model as a declaration writes it, shortened when long.
UCString ModelText(const XmlElementDef& def) {
    constexpr size_t kLongest = 160;
    const XmlContentPart& model = def.Contents();
    UCString out;
    if (def.Type() == elemMixed) {
        out = u"(#PCDATA";
        std::vector<UCString> names;
        if (model.Type() != cpNone)
            model.ListOfNames(names);
        for (const UCString& name : names) {
            if (out.size() > kLongest)
                return out + u" | ...)*";
            out += u" | " + name;
        }
        return out + (names.empty() ? u")" : u")*");
    }
    struct Frame {
        const XmlContentPart* part;
        int next;
    };
    std::vector<Frame> stack;
    stack.push_back({&model, -1});
    while (!stack.empty() && out.size() <= kLongest) {
        Frame& f = stack.back();
        const XmlContentPart& part = *f.part;
        if (part.Type() != cpSequence && part.Type() != cpChoice) {
            out += part.Name();
            out += ModText(part.CountMod());
            stack.pop_back();
            continue;
        }
        if (f.next < 0) {
            out += u'(';
            f.next = 0;
        }
        if (f.next < part.Count()) {
            if (f.next > 0)
                out += part.Type() == cpSequence ? u", " : u" | ";
            const XmlContentPart* member = &part[f.next++];
            stack.push_back({member, -1});
            continue;
        }
        out += u')';
        out += ModText(part.CountMod());
        stack.pop_back();
    }
    if (!stack.empty())
        out += u" ...";
    return out;
}

}  // namespace

class XmlValidator {
public:
    XmlValidator(const XmlDocument& doc, const XmlDtd& dtd, std::vector<XmlViolation>& out, size_t most)
        : m_doc(doc), m_dtd(dtd), m_out(out), m_most(most) {
        m_tableSize = int(doc.m_names.size());
    }

    void Run();

private:
    bool CheckTree(const XmlElement* root);
    // What the definition says of one attribute.
    struct AttInfo {
        const XmlAttDef* def = nullptr;
        View name;
        std::vector<View> enums;
        UCString fixed;     // the #FIXED value as compared
        bool fixedOk = true;  // the fixed value could be worked out
        bool read = false;    // the value is compared with anything: of a type other than CDATA, or #FIXED
        std::unordered_set<View> values;  // of a long enumeration
    };
    // What the definition says of one element name.
    struct ElementInfo {
        const UCChar* name = u"";
        const XmlElementDef* def = nullptr;
        const XmlAttrList* list = nullptr;
        std::vector<AttInfo> atts;  // the first definition of each name
        std::unordered_map<View, int> attIndex;  // when there are many
        std::vector<int> required;
        std::vector<uint64_t> stamps;  // the element that last had each attribute
        std::unique_ptr<XmlAutomaton> automaton;
        bool compiled = false;
        bool nondeterministicReported = false;
        // No attribute required, and content that is mixed, ANY or EMPTY:
        // an element of this name without attributes and children (and,
        // for EMPTY, without text) has nothing to check.
        bool plain = false;
        bool quick = false;  // plain, and compiled: nothing is left to prepare
        bool textless = false;  // EMPTY: the element must have no text as well
        // Whether e, of this name, has nothing to check but its step in its
        // parent's content.
        bool Trivial(const XmlElement* e) const {
            return quick && !e->Child() && !e->AttributeCount() && !(textless && e->DataLength());
        }
        int type = -1;  // of the definition; -1 without one
        std::vector<bool> mixed;  // by key: whether mixed content lists it
    };
    // An open element of the walk, with the match of its children so far.
    struct Open {
        const XmlElement* element;
        ElementInfo* info;
        int state;                   // of the automaton of element content
        const int* row;              // of that state in the automaton's table, or null
        const XmlElement* last;      // the child met last
        bool matching;               // no fault found in its children yet
    };
    // An ID or a reference to one: kept as met and matched after the walk
    // by sorting on a hash, so that a large document's IDs are read in
    // sequence rather than looked up in a table too large for the cache.
    struct Token {
        View text;
        const XmlElement* element;
        uint64_t serial;  // the element's place in document order
        int attribute;
        uint32_t hash;    // of text, worked out while the text is at hand
    };

    // Appends a violation; false once the limit is reached.
    bool Report(int kind, UCString message, const XmlElement* element);
    bool Full() const { return m_stopped; }
    int KeyOf(const XmlElement* e);
    int KeyOfName(const UCChar* name);
    ElementInfo& Info(int key, const XmlElement* e) {
        if (size_t(key) < m_infoOf.size() && m_infoOf[size_t(key)])
            return *m_infoOf[size_t(key)];
        return NewInfo(key, e);
    }
    ElementInfo& NewInfo(int key, const XmlElement* e);
    void Describe(ElementInfo& info);
    const XmlEntityDef* Entity(View name);
    bool CheckDefinition();
    // The checks of e itself: its declaration, attributes and text, and
    // whether it may have children at all.
    bool Visit(const XmlElement* e, ElementInfo& info);
    bool CheckAttributes(const XmlElement* e, ElementInfo& info);
    bool CheckValue(const XmlElement* e, int index, const UCChar* raw, const AttInfo& att);
    // The whole check of a value, for any value and type.
    bool CheckAnyValue(const XmlElement* e, int index, const UCChar* raw, const AttInfo& att);
    bool Prepare(const XmlElement* e, ElementInfo& info);
    // The child of the open element parent with name key: inline for the
    // common case, StepFault for the rest.
    bool Step(Open& parent, const XmlElement* child, int key) {
        ElementInfo& info = *parent.info;
        if (info.type == elemChildren) {
            if (!parent.matching)
                return true;
            XmlAutomaton& automaton = *info.automaton;
            // The row of the state is kept: a known transition is one load.
            const int next = parent.row && uint32_t(key) < automaton.KeyRange() && parent.row[key] >= 0
                                 ? parent.row[key]
                                 : automaton.Next(parent.state, key);
            if (next < 0 || automaton.Undecided())
                return StepFault(parent, child, next);
            parent.state = next;
            parent.row = automaton.Row(next);
            parent.last = child;
            return true;
        }
        if (info.type == elemMixed && !(size_t(key) < info.mixed.size() && info.mixed[size_t(key)]))
            return StepFault(parent, child, 0);
        return true;  // EMPTY reported its children already; ANY takes any
    }
    bool StepFault(Open& parent, const XmlElement* child, int next);
    // Whether the text of e, of element content, is white space only.
    bool CheckText(const XmlElement* e, const ElementInfo& info);
    // The children of open from e on that are childless, have no
    // attributes, are of a name whose content needs no check, and whose step
    // in open's model the automaton's table holds: matched in a loop of
    // their own, most children of most documents. Returns the first child
    // that is not such a one, or null after the last.
    const XmlElement* StepLeaves(Open& open, const XmlElement* e) {
        const ElementInfo& parent = *open.info;
        if (parent.type != elemChildren || !open.matching || parent.automaton->Undecided())
            return e;
        const XmlAutomaton& automaton = *parent.automaton;
        const uint32_t range = automaton.KeyRange();
        ElementInfo* const* infos = m_infoOf.data();
        const size_t known = m_infoOf.size();
        const int* row = open.row;
        int state = open.state;
        const XmlElement* last = open.last;
        while (e && row) {
            __builtin_prefetch(reinterpret_cast<const char*>(e) + 12 * sizeof(XmlElement));
            const XmlDocument* owner;
            const int key = XmlDocument::NameIndexOf(e, owner);
            if (owner != &m_doc || uint32_t(key) >= range || size_t(key) >= known || !infos[key] ||
                !infos[key]->Trivial(e))
                break;
            const int next = row[key];
            if (next < 0)
                break;
            if (next != state) {
                state = next;
                row = automaton.Row(next);
            }
            last = e;
            e = e->Next();
        }
        open.state = state;
        open.row = row;
        open.last = last;
        return e;
    }
    // The end of the children of the open element.
    bool Finish(const Open& open);
    bool ContentFault(const Open& open, const XmlElement* child, int state);
    // The value as XML reads it, references replaced and white space as
    // blanks, in out; false with the fault in fault when a reference
    // cannot be replaced.
    bool Expand(View raw, UCString& out, UCString& fault);
    // IDs met before and references to no ID, in document order.
    bool CheckIds();
    // Visits the tree depth first, the root first, with the open elements
    // (the ancestors of the one visited) on m_open: enter(e) on reaching an
    // element, leave(open) when an element with children is done; stops
    // when either gives false. The element that follows an element in the
    // slab is fetched ahead while the element is checked.
    template <class Enter, class Leave>
    bool Walk(Enter&& enter, Leave&& leave) {
        m_open.clear();
        const XmlElement* e = m_doc.RootElement();
        while (e) {
            __builtin_prefetch(reinterpret_cast<const char*>(e) + 12 * sizeof(XmlElement));
            if (!enter(e))
                return false;
            if (e->Child()) {
                e = e->Child();
                continue;
            }
            for (;;) {
                if (m_open.empty()) {
                    e = nullptr;
                    break;
                }
                if (e->Next()) {
                    e = e->Next();
                    break;
                }
                const Open done = m_open.back();
                m_open.pop_back();
                if (!leave(done))
                    return false;
                e = done.element;
            }
        }
        return true;
    }
    UCString PathOf(const XmlElement* e);
    const UCChar* AttName(const XmlElement* e, int index) const { return e->GetAttributeName(index); }
    UCString Where(const XmlElement* e, int index) const {
        return u"attribute '" + UCString(AttName(e, index)) + u"' of element '" + e->Name() + u"'";
    }

    const XmlDocument& m_doc;
    const XmlDtd& m_dtd;
    std::vector<XmlViolation>& m_out;
    size_t m_most;
    bool m_stopped = false;
    int m_tableSize = 0;
    std::map<UCString, int, std::less<>> m_extraKeys;  // names the document's table lacks
    std::vector<ElementInfo*> m_infoOf;                // by key, null until met
    std::deque<ElementInfo> m_infos;
    uint64_t m_serial = 0;  // the element being visited
    // The walk's open elements, the root first.
    std::vector<Open> m_open;
    // Positions among siblings of one name, per parent, made when a path
    // needs them: child -> (position from 1, count of that name).
    std::unordered_map<const XmlElement*, std::unordered_map<const XmlElement*, std::pair<int, int>>> m_ranks;
    std::unordered_map<UCString, const XmlEntityDef*> m_entities;
    std::vector<Token> m_ids, m_refs;
    // Their sort keys, hash << 32 | place, kept beside them as they come,
    // so that sorting does not read the tokens again.
    std::vector<uint64_t> m_idKeys, m_refKeys;
    static void AddToken(std::vector<Token>& tokens, std::vector<uint64_t>& keys, const Token& token) {
        keys.push_back(uint64_t(token.hash) << 32 | tokens.size());
        tokens.push_back(token);
    }
    std::deque<UCString> m_kept;  // values that IDs and references point into
    UCString m_value, m_scratch;
    uint64_t m_expanded = 0, m_rawUnits = 0;
};

const UCChar* XmlViolation::KindName(int kind) {
    static const UCChar* const kNames[] = {u"",
                                           u"no-definition",
                                           u"root-name",
                                           u"undeclared-element",
                                           u"empty-content",
                                           u"mixed-content",
                                           u"element-content",
                                           u"text-in-content",
                                           u"nondeterministic",
                                           u"undeclared-attribute",
                                           u"duplicate-attribute",
                                           u"missing-attribute",
                                           u"fixed-attribute",
                                           u"enumeration",
                                           u"attribute-syntax",
                                           u"duplicate-id",
                                           u"dangling-idref",
                                           u"entity-attribute",
                                           u"reference",
                                           u"duplicate-element-decl",
                                           u"attribute-decl",
                                           u"out-of-memory"};
    return kind > 0 && size_t(kind) < sizeof kNames / sizeof kNames[0] ? kNames[kind] : u"";
}

bool XmlValidator::Report(int kind, UCString message, const XmlElement* element) {
    if (m_stopped)
        return false;
    UCString path = element ? PathOf(element) : UCString();
    m_out.emplace_back(kind, std::move(message), element, std::move(path));
    if (m_most && m_out.size() >= m_most)
        m_stopped = true;
    return !m_stopped;
}

int XmlValidator::KeyOfName(const UCChar* name) {
    const int known = m_doc.FindName(View(name));
    if (known >= 0)
        return known;
    auto extra = m_extraKeys.find(View(name));
    if (extra != m_extraKeys.end())
        return extra->second;
    const int key = m_tableSize + int(m_extraKeys.size());
    m_extraKeys.emplace(name, key);
    return key;
}

int XmlValidator::KeyOf(const XmlElement* e) {
    const XmlDocument* owner;
    const int index = XmlDocument::NameIndexOf(e, owner);
    if (owner == &m_doc && index >= 0)
        return index;
    return KeyOfName(e->Name());
}

const XmlEntityDef* XmlValidator::Entity(View name) {
    auto it = m_entities.find(UCString(name));
    if (it != m_entities.end())
        return it->second;
    const UCString key(name);
    const XmlEntityDef* found;
    {
        std::lock_guard<std::mutex> lock(s_dtdLookup);
        found = m_doc.GetDTD().FindEntity(key.c_str());
        if (!found && &m_dtd != &m_doc.GetDTD())
            found = m_dtd.FindEntity(key.c_str());
    }
    m_entities.emplace(key, found);
    return found;
}

XmlValidator::ElementInfo& XmlValidator::NewInfo(int key, const XmlElement* e) {
    if (size_t(key) >= m_infoOf.size())
        m_infoOf.resize(std::max(size_t(key) + 1, size_t(m_tableSize)), nullptr);
    m_infos.emplace_back();
    ElementInfo& info = m_infos.back();
    m_infoOf[size_t(key)] = &info;
    info.name = e->Name();
    {
        std::lock_guard<std::mutex> lock(s_dtdLookup);
        info.def = m_dtd.FindElement(info.name);
        info.list = m_dtd.FindAttrList(info.name);
    }
    Describe(info);
    info.plain = info.def &&
                 (info.def->Type() == elemMixed || info.def->Type() == elemAny || info.def->Type() == elemEmpty) &&
                 info.required.empty();
    info.textless = info.def && info.def->Type() == elemEmpty;
    info.type = info.def ? info.def->Type() : -1;
    return info;
}

// The attribute definitions of info's name that count (the first of each
// name), with what the checks of values need.
void XmlValidator::Describe(ElementInfo& info) {
    if (!info.list)
        return;
    const XmlAttrList& list = *info.list;
    // The list's own lookup builds an index on first use, which threads
    // sharing the definition must not do at once: names are kept here.
    std::unordered_set<View> seen;
    for (int i = 0; i < list.DefCount(); ++i) {
        const XmlAttDef* def = list.GetAttDef(i);
        if (!seen.insert(View(def->Name())).second)
            continue;  // a later definition of a name: the first counts
        info.atts.emplace_back();
        AttInfo& att = info.atts.back();
        att.def = def;
        att.name = def->Name();
        att.read = (def->Type() != attCdata && def->Type() != attNone) || def->DefType() == defFixed;
        for (int k = 0; k < def->EnumCount(); ++k)
            att.enums.push_back(View(def->GetEnum(k)));
        if (def->DefType() == defRequired)
            info.required.push_back(int(info.atts.size() - 1));
        if (def->DefType() == defFixed) {
            UCString fault;
            att.fixedOk = Expand(def->DefVal(), att.fixed, fault);
            if (def->Type() != attCdata && def->Type() != attNone) {
                Collapse(att.fixed, true, m_scratch);
                att.fixed = m_scratch;
            }
        }
        if (def->Type() == attEnumerated && def->EnumCount() > 8)
            for (int k = 0; k < def->EnumCount(); ++k)
                att.values.insert(View(def->GetEnum(k)));
    }
    info.stamps.assign(info.atts.size(), 0);
    if (info.atts.size() > 8)
        for (size_t i = 0; i < info.atts.size(); ++i)
            info.attIndex.emplace(View(info.atts[i].def->Name()), int(i));
}

// Expands raw, which a tree or definition holds as written, as XML
// normalises an attribute value; the text of the entities is read from an
// explicit stack, so that nesting costs no call stack.
bool XmlValidator::Expand(View raw, UCString& out, UCString& fault) {
    out.clear();
    struct Frame {
        View text;
        size_t at;
        const XmlEntityDef* entity;
    };
    std::vector<Frame> stack;
    stack.push_back({raw, 0, nullptr});
    m_rawUnits += raw.size();
    while (!stack.empty()) {
        Frame& f = stack.back();
        if (f.at >= f.text.size()) {
            stack.pop_back();
            continue;
        }
        const UCChar c = f.text[f.at];
        if (c != u'&') {
            out += IsSpace(c) ? u' ' : c;
            ++f.at;
            continue;
        }
        const size_t semi = f.text.find(u';', f.at);
        const View ref = f.text.substr(f.at, semi == View::npos ? View::npos : semi + 1 - f.at);
        if (semi == View::npos) {
            fault = u"a reference without ';': " + Quoted(ref);
            return false;
        }
        const View body = f.text.substr(f.at + 1, semi - f.at - 1);
        f.at = semi + 1;
        if (!body.empty() && body[0] == u'#') {
            const bool hex = body.size() > 1 && body[1] == u'x';
            const View digits = body.substr(hex ? 2 : 1);
            uint32_t value = 0;
            bool ok = !digits.empty();
            for (UCChar d : digits) {
                int v = d >= u'0' && d <= u'9' ? d - u'0'
                        : hex && d >= u'a' && d <= u'f' ? d - u'a' + 10
                        : hex && d >= u'A' && d <= u'F' ? d - u'A' + 10
                                                         : -1;
                ok = ok && v >= 0;
                if (!ok)
                    break;
                value = value * (hex ? 16 : 10) + uint32_t(v);
                if (value > 0x10FFFF) {
                    ok = false;
                    break;
                }
            }
            const bool isChar = value == 0x9 || value == 0xA || value == 0xD || (value >= 0x20 && value <= 0xD7FF) ||
                                (value >= 0xE000 && value <= 0xFFFD) || value >= 0x10000;
            if (!ok || !isChar) {
                fault = u"a malformed character reference " + Quoted(ref);
                return false;
            }
            if (value >= 0x10000) {
                out += UCChar(0xD800 + ((value - 0x10000) >> 10));
                out += UCChar(0xDC00 + ((value - 0x10000) & 0x3FF));
            } else {
                out += UCChar(value);
            }
            continue;
        }
        if (!IsName(body)) {
            fault = u"a malformed reference " + Quoted(ref);
            return false;
        }
        const XmlEntityDef* entity = Entity(body);
        if (!entity) {
            fault = u"undefined entity '" + UCString(body) + u"'";
            return false;
        }
        for (const Frame& open : stack)
            if (open.entity == entity) {
                fault = u"entity '" + UCString(body) + u"', which refers to itself";
                return false;
            }
        if (stack.size() > size_t(XmlDocument::MaxEntityNesting)) {
            fault = u"entities nested too deep at '" + UCString(body) + u"'";
            return false;
        }
        // As much expansion as a parse allows (a reference counts 32 units).
        m_expanded += entity->ValueLength() + 32;
        if (m_expanded > XmlDocument::MaxEntityExpansion &&
            m_expanded > uint64_t(XmlDocument::EntityExpansionRatio) * m_rawUnits) {
            fault = u"entity '" + UCString(body) + u"', which expands beyond the limit";
            return false;
        }
        stack.push_back({View(entity->Value(), entity->ValueLength()), 0, entity});
    }
    return true;
}

bool XmlValidator::CheckDefinition() {
    std::unordered_set<View> declared;
    for (int i = 0; i < m_dtd.ElementCount(); ++i) {
        const XmlElementDef* def = m_dtd.ElementAt(i);
        if (!declared.insert(View(def->Name())).second) {
            if (!Report(valDuplicateElementDecl,
                        u"Element '" + UCString(def->Name()) + u"' is declared more than once", nullptr))
                return false;
            continue;
        }
        const XmlAttrList* list;
        {
            std::lock_guard<std::mutex> lock(s_dtdLookup);
            list = m_dtd.FindAttrList(def->Name());
        }
        if (!list)
            continue;
        const UCString element = def->Name();
        const XmlAttDef* id = nullptr;
        const XmlAttDef* notation = nullptr;
        std::unordered_set<View> seen;
        for (int k = 0; k < list->DefCount(); ++k) {
            const XmlAttDef* att = list->GetAttDef(k);
            if (!seen.insert(View(att->Name())).second)
                continue;
            const UCString where = u"attribute '" + UCString(att->Name()) + u"' of element '" + element + u"'";
            auto fault = [&](const UCString& what) { return Report(valAttributeDecl, what, nullptr); };
            if (att->Type() == attId) {
                if (id && !fault(u"Element '" + element + u"' has more than one ID attribute: '" + id->Name() +
                                 u"' and '" + att->Name() + u"'"))
                    return false;
                id = id ? id : att;
                if ((att->DefType() == defFixed || att->DefType() == defValue) &&
                    !fault(u"ID " + where + u" has a default value; it must be #IMPLIED or #REQUIRED"))
                    return false;
            }
            if (att->Type() == attNotation) {
                if (notation && !fault(u"Element '" + element + u"' has more than one NOTATION attribute"))
                    return false;
                notation = notation ? notation : att;
                if (def->Type() == elemEmpty && !fault(u"NOTATION " + where + u" stands on an EMPTY element"))
                    return false;
            }
            std::unordered_set<View> values;
            for (int v = 0; v < att->EnumCount(); ++v)
                if (!values.insert(View(att->GetEnum(v))).second &&
                    !fault(u"Value '" + UCString(att->GetEnum(v)) + u"' stands twice in the enumeration of " + where))
                    return false;
            if (att->DefType() != defFixed && att->DefType() != defValue)
                continue;
            UCString value, problem;
            if (!Expand(att->DefVal(), value, problem)) {
                if (!fault(u"Default value of " + where + u" refers to " + problem))
                    return false;
                continue;
            }
            if (att->Type() != attCdata && att->Type() != attNone) {
                Collapse(value, true, m_scratch);
                value = m_scratch;
            }
            bool ok = true;
            switch (att->Type()) {
            case attId:
            case attIdref:
            case attEntity:
            case attNotation:
                ok = IsName(value);
                break;
            case attIdrefs:
            case attEntities:
                ok = !value.empty();
                Tokens(value, true, [&](View t) { ok = ok && IsName(t); });
                break;
            case attNmtoken:
                ok = IsNmtoken(value);
                break;
            case attNmtokens:
                ok = !value.empty();
                Tokens(value, true, [&](View t) { ok = ok && IsNmtoken(t); });
                break;
            case attEnumerated:
                ok = att->FindEnum(value.c_str()) >= 0;
                break;
            default:
                break;
            }
            if (!ok && !fault(u"Default value " + Quoted(value) + u" of " + where + u" does not fit its type"))
                return false;
        }
    }
    return true;
}

UCString XmlValidator::PathOf(const XmlElement* e) {
    // The chain from the root: the open elements, then e unless it is the
    // innermost open one itself.
    std::vector<const XmlElement*> chain;
    for (const Open& open : m_open)
        chain.push_back(open.element);
    if (chain.empty() || chain.back() != e)
        chain.push_back(e);
    UCString path;
    for (size_t i = 0; i < chain.size(); ++i) {
        path += u'/';
        path += chain[i]->Name();
        if (i == 0)
            continue;
        const XmlElement* parent = chain[i - 1];
        auto it = m_ranks.find(parent);
        if (it == m_ranks.end()) {
            std::unordered_map<int, int> counts;
            for (const XmlElement* c = parent->Child(); c; c = c->Next())
                ++counts[KeyOf(c)];
            std::unordered_map<int, int> seen;
            auto& ranks = m_ranks[parent];
            for (const XmlElement* c = parent->Child(); c; c = c->Next()) {
                const int key = KeyOf(c);
                ranks[c] = {++seen[key], counts[key]};
            }
            it = m_ranks.find(parent);
        }
        const auto rank = it->second.find(chain[i]);
        if (rank != it->second.end() && rank->second.second > 1) {
            path += u'[';
            for (char d : std::to_string(rank->second.first))
                path += UCChar(d);
            path += u']';
        }
    }
    return path;
}

// The common case inline: a value of ASCII name characters only (no
// reference, no white space, nothing to normalise, a name when the first is
// a name start), of a type that needs no fixed value, is checked in place,
// by one test a unit; anything else, and any fault, goes to the general
// check.
inline bool XmlValidator::CheckValue(const XmlElement* e, int index, const UCChar* raw, const AttInfo& att) {
    const XmlAttDef& def = *att.def;
    const int type = def.Type();
    if (def.DefType() == defFixed)
        return CheckAnyValue(e, index, raw, att);
    const UCChar* end = raw;
    while (*end < 0x80 && (kOzmAsciiNames.cls[*end] & 2))
        ++end;
    if (*end != 0 || end == raw)
        return CheckAnyValue(e, index, raw, att);
    const View v(raw, size_t(end - raw));
    switch (type) {
    case attId:
    case attIdref:
        if (!(kOzmAsciiNames.cls[raw[0]] & 1))
            break;
        if (type == attId)
            AddToken(m_ids, m_idKeys, {v, e, m_serial, index, HashOf(v)});
        else
            AddToken(m_refs, m_refKeys, {v, e, m_serial, index, HashOf(v)});
        return true;
    case attNmtoken:
    case attNmtokens:
        return true;
    case attEnumerated:
        if (!att.values.empty()) {
            if (att.values.count(v))
                return true;
        } else {
            for (const View& value : att.enums)
                if (value.size() == v.size() && OzmUnits::Same(value.data(), v.data(), v.size()))
                    return true;
        }
        break;
    default:
        break;
    }
    return CheckAnyValue(e, index, raw, att);
}

bool XmlValidator::CheckAnyValue(const XmlElement* e, int index, const UCChar* raw, const AttInfo& att) {
    const XmlAttDef& def = *att.def;
    const int type = def.Type();
    const bool tokenized = type != attCdata && type != attNone;
    const bool fixed = def.DefType() == defFixed;
    // A value that nothing is compared with is not read.
    if (!tokenized && !fixed)
        return true;
    // One pass finds the length, whether a reference stands in it, and
    // whether its white space is anything but single blanks between other
    // characters, which most values' is not: those need no normalising.
    const UCChar* end = raw;
    bool hasRef = false, oddSpace = false, otherSpace = false;
    UCChar prev = u' ';
    for (; *end; ++end) {
        const UCChar c = *end;
        hasRef |= c == u'&';
        if (c == u' ')
            oddSpace |= prev == u' ';
        else if (c == u'\t' || c == u'\n' || c == u'\r')
            otherSpace = true;
        prev = c;
    }
    oddSpace |= otherSpace || (end != raw && prev == u' ');
    View v(raw, size_t(end - raw));
    // stable: v points into the tree, which outlives the check.
    bool stable = true;
    if (hasRef) {
        UCString fault;
        if (!Expand(v, m_value, fault))
            return Report(valReference, u"Value of " + Where(e, index) + u" refers to " + fault, e);
        v = m_value;
        stable = false;
    }
    if (tokenized && (hasRef || oddSpace)) {
        // Trimmed, and collapsed unless it has single blanks only. Once
        // references are replaced, only blanks count: white space that a
        // character reference gave is part of the value.
        auto space = [hasRef](UCChar c) { return hasRef ? c == u' ' : IsSpace(c); };
        size_t b = 0, n = v.size();
        while (b < n && space(v[b]))
            ++b;
        while (n > b && space(v[n - 1]))
            --n;
        v = v.substr(b, n - b);
        bool plain = true;
        for (size_t i = 0; i < v.size() && plain; ++i)
            plain = (v[i] == u' ' || !space(v[i])) && !(v[i] == u' ' && i + 1 < v.size() && v[i + 1] == u' ');
        if (!plain) {
            Collapse(v, hasRef, m_scratch);
            m_value.swap(m_scratch);
            v = m_value;
            stable = false;
        }
    } else if (!tokenized && fixed && !hasRef && otherSpace) {
        m_value.assign(v);
        for (UCChar& c : m_value)
            c = IsSpace(c) ? u' ' : c;
        v = m_value;
        stable = false;
    }
    if (fixed && att.fixedOk && v != View(att.fixed))
        return Report(valFixedAttribute,
                      u"Value " + Quoted(v) + u" of " + Where(e, index) + u" is not its fixed value " + Quoted(att.fixed),
                      e);
    auto keep = [&](View token) -> View {
        if (stable)
            return token;
        m_kept.emplace_back(token);
        return m_kept.back();
    };
    auto syntax = [&](const UCChar* what) {
        return Report(valAttributeSyntax, u"Value " + Quoted(v) + u" of " + Where(e, index) + u" is not " + what, e);
    };
    switch (type) {
    case attId:
        if (!IsName(v))
            return syntax(u"a name");
        AddToken(m_ids, m_idKeys, {keep(v), e, m_serial, index, HashOf(v)});
        return true;
    case attIdref:
        if (!IsName(v))
            return syntax(u"a name");
        AddToken(m_refs, m_refKeys, {keep(v), e, m_serial, index, HashOf(v)});
        return true;
    case attIdrefs: {
        bool ok = !v.empty();
        Tokens(v, true, [&](View t) { ok = ok && IsName(t); });
        if (!ok)
            return syntax(u"a list of names");
        Tokens(v, true, [&](View t) { AddToken(m_refs, m_refKeys, {keep(t), e, m_serial, index, HashOf(t)}); });
        return true;
    }
    case attEntity:
    case attEntities: {
        bool ok = !v.empty();
        Tokens(v, true, [&](View t) { ok = ok && IsName(t); });
        if (!ok)
            return syntax(type == attEntity ? u"a name" : u"a list of names");
        if (type == attEntity && v.find(u' ') != View::npos)
            return syntax(u"a name");
        return Report(valEntityAttribute,
                      u"Value " + Quoted(v) + u" of " + Where(e, index) +
                          u" must name unparsed entities, which this library does not keep",
                      e);
    }
    case attNmtoken:
        return IsNmtoken(v) || syntax(u"a name token");
    case attNmtokens: {
        bool ok = !v.empty();
        Tokens(v, true, [&](View t) { ok = ok && IsNmtoken(t); });
        return ok || syntax(u"a list of name tokens");
    }
    case attNotation:
        return IsName(v) || syntax(u"a name");
    case attEnumerated: {
        bool found = false;
        if (!att.values.empty()) {
            found = att.values.count(v) != 0;
        } else {
            for (size_t k = 0; k < att.enums.size() && !found; ++k)
                found = v == att.enums[k];
        }
        if (found)
            return true;
        UCString list = u"(";
        for (int k = 0; k < def.EnumCount() && list.size() < 160; ++k)
            list += (k ? u" | " : u"") + UCString(def.GetEnum(k));
        list += list.size() < 160 ? u")" : u" ...)";
        return Report(valEnumeration, u"Value " + Quoted(v) + u" of " + Where(e, index) + u" is not one of " + list,
                      e);
    }
    default:
        return true;
    }
}

bool XmlValidator::CheckAttributes(const XmlElement* e, ElementInfo& info) {
    const int count = e->AttributeCount();
    if (count == 0 && info.required.empty())
        return true;
    const uint64_t serial = m_serial;
    const auto* attrs = XmlDocument::AttributesOf(e);
    size_t hint = 0;  // where the search for the next attribute's definition starts
    for (int i = 0; i < count; ++i) {
        const UCChar* name = attrs[i].name;
        int a = -1;
        if (!info.attIndex.empty()) {
            auto it = info.attIndex.find(View(name));
            a = it == info.attIndex.end() ? -1 : it->second;
        } else {
            // Unit by unit against the definitions' names, whose lengths are
            // known: the attribute's name is not measured first. The search
            // starts after the definition the element's previous attribute
            // matched, since documents mostly write attributes in the order
            // declared.
            const size_t size = info.atts.size();
            size_t k = hint < size ? hint : 0;
            for (size_t tried = 0; tried < size; ++tried) {
                const View def = info.atts[k].name;
                size_t n = 0;
                while (n < def.size() && name[n] == def[n])
                    ++n;
                if (n == def.size() && name[n] == 0) {
                    a = int(k);
                    hint = k + 1;
                    break;
                }
                k = k + 1 == size ? 0 : k + 1;
            }
        }
        if (a < 0) {
            if (!Report(valUndeclaredAttribute, u"Attribute '" + UCString(name) + u"' of element '" + e->Name() +
                                                     u"' is not declared",
                        e))
                return false;
            continue;
        }
        if (info.stamps[size_t(a)] == serial) {
            if (!Report(valDuplicateAttribute,
                        u"Attribute '" + UCString(name) + u"' stands twice on element '" + e->Name() + u"'", e))
                return false;
            continue;
        }
        info.stamps[size_t(a)] = serial;
        const AttInfo& att = info.atts[size_t(a)];
        if (att.read && !CheckValue(e, i, attrs[i].value, att))
            return false;
    }
    for (int r : info.required)
        if (info.stamps[size_t(r)] != serial &&
            !Report(valMissingAttribute, u"Required attribute '" + UCString(info.atts[size_t(r)].def->Name()) +
                                             u"' of element '" + e->Name() + u"' is missing",
                    e))
            return false;
    return true;
}

// What the content of e needs before its children come: the automaton of
// element content, compiled at the first element of its name, and the names
// that mixed content lists.
bool XmlValidator::Prepare(const XmlElement* e, ElementInfo& info) {
    info.compiled = true;
    info.quick = info.plain;
    const XmlElementDef& def = *info.def;
    if (def.Type() == elemMixed) {
        std::vector<UCString> names;
        if (def.Contents().Type() != cpNone)
            def.Contents().ListOfNames(names);
        for (const UCString& name : names) {
            const size_t key = size_t(KeyOfName(name.c_str()));
            if (key >= info.mixed.size())
                info.mixed.resize(key + 1, false);
            info.mixed[key] = true;
        }
        return true;
    }
    if (def.Type() != elemChildren)
        return true;
    info.automaton = std::make_unique<XmlAutomaton>();
    info.automaton->Build(
        def.Contents(), [this](const UCChar* name) { return KeyOfName(name); }, m_tableSize + int(m_extraKeys.size()));
    const UCChar* conflict = nullptr;
    if (info.automaton->Deterministic(conflict))
        return true;
    info.nondeterministicReported = true;
    return Report(valNondeterministic,
                  u"Content model of '" + UCString(e->Name()) + u"' is not deterministic: " + ModelText(def) +
                      u" lets '" + conflict + u"' match at more than one place",
                  e);
}

bool XmlValidator::Visit(const XmlElement* e, ElementInfo& info) {
    ++m_serial;
    if (!info.def)
        return Report(valUndeclaredElement, u"Element '" + UCString(e->Name()) + u"' is not declared", e) &&
               CheckAttributes(e, info);
    if (!CheckAttributes(e, info))
        return false;
    if (!info.compiled && !Prepare(e, info))
        return false;
    const XmlElementDef& def = *info.def;
    switch (def.Type()) {
    case elemEmpty:
        if (e->Child())
            return Report(valEmptyContent, u"Element '" + UCString(e->Name()) + u"' is declared EMPTY but has child '" +
                                               e->Child()->Name() + u"'",
                          e);
        if (e->DataLength() > 0)
            return Report(valEmptyContent, u"Element '" + UCString(e->Name()) + u"' is declared EMPTY but has text",
                          e);
        return true;
    case elemChildren: {
        // The text of an element with children is checked when they are
        // done (CheckText from Finish): it is fetched now, and is at hand
        // by then.
        if (!e->Child())
            return CheckText(e, info);
        const UCChar* data = e->Data();
        const size_t n = size_t(e->DataLength());
        for (size_t i = 0; i < n && i < 128; i += 32)
            __builtin_prefetch(data + i);
        return true;
    }
    default:
        return true;
    }
}

bool XmlValidator::ContentFault(const Open& open, const XmlElement* child, int state) {
    const XmlElement* e = open.element;
    const XmlElementDef& def = *open.info->def;
    std::vector<const UCChar*> names;
    bool more;
    open.info->automaton->Expected(state, 6, names, more);
    UCString message = u"Content of '" + UCString(e->Name()) + u"' does not match " + ModelText(def) + u": ";
    if (child)
        message += u"'" + UCString(child->Name()) + u"' is not allowed " +
                   (open.last ? u"after '" + UCString(open.last->Name()) + u"'" : UCString(u"first"));
    else
        message += open.last ? u"it ends after '" + UCString(open.last->Name()) + u"'" : UCString(u"it is empty");
    for (size_t i = 0; i < names.size(); ++i)
        message += (i ? u", '" : u", expecting '") + UCString(names[i]) + u"'";
    if (more)
        message += u", ...";
    else if (names.empty())
        message += u", expecting the end";
    else if (open.info->automaton->Accepting(state))
        message += u" or the end";
    return Report(valElementContent, std::move(message), e);
}

bool XmlValidator::StepFault(Open& parent, const XmlElement* child, int next) {
    ElementInfo& info = *parent.info;
    if (info.type == elemMixed)
        return Report(valMixedContent, u"Element '" + UCString(child->Name()) + u"' is not allowed in the content " +
                                           ModelText(*info.def) + u" of '" + parent.element->Name() + u"'",
                      parent.element);
    if (next == XmlAutomaton::Dead) {
        parent.matching = false;
        return ContentFault(parent, child, parent.state);
    }
    parent.state = next;
    parent.row = info.automaton->Row(next);
    parent.last = child;
    if (!info.nondeterministicReported && info.automaton->Ambiguous(next)) {
        info.nondeterministicReported = true;
        return Report(valNondeterministic,
                      u"Content model of '" + UCString(parent.element->Name()) + u"' is not deterministic: " +
                          ModelText(*info.def) + u" lets '" + child->Name() + u"' match at more than one place",
                      parent.element);
    }
    return true;
}

bool XmlValidator::CheckText(const XmlElement* e, const ElementInfo& info) {
    const size_t n = size_t(e->DataLength());
    const size_t at = OzmUnits::SpaceRun(e->Data(), n);
    if (at < n)
        return Report(valTextInContent, u"Element '" + UCString(e->Name()) + u"' has text " +
                                            Quoted(View(e->Data() + at, n - at)) + u" where its content " +
                                            ModelText(*info.def) + u" allows only elements",
                      e);
    return true;
}

bool XmlValidator::Finish(const Open& open) {
    const ElementInfo& info = *open.info;
    if (!info.def || info.def->Type() != elemChildren)
        return true;
    if (open.element->Child() && open.element->DataLength() && !CheckText(open.element, info))
        return false;
    if (!open.matching || info.automaton->Accepting(open.state))
        return true;
    return ContentFault(open, nullptr, open.state);
}

bool XmlValidator::CheckIds() {
    std::vector<uint64_t> ids, refs;
    ids.swap(m_idKeys);
    refs.swap(m_refKeys);
    SortByHigh(ids);
    SortByHigh(refs);
    // The faults, as (token, is a reference), in document order below.
    std::vector<std::pair<const Token*, bool>> faults;
    // Runs of one hash: the distinct texts in each, and the IDs after the
    // first of a text.
    std::vector<View> distinct;
    size_t r = 0;
    for (size_t i = 0; i < ids.size();) {
        const uint64_t hash = ids[i] >> 32;
        size_t end = i + 1;
        while (end < ids.size() && ids[end] >> 32 == hash)
            ++end;
        // A token is read only when its hash is shared: most are not, and
        // they lie all over the memory of the tree.
        for (; r < refs.size() && refs[r] >> 32 < hash; ++r)
            faults.emplace_back(&m_refs[uint32_t(refs[r])], true);
        const bool referenced = r < refs.size() && refs[r] >> 32 == hash;
        distinct.clear();
        if (end - i > 1 || referenced)
            for (size_t k = i; k < end; ++k) {
                const Token& id = m_ids[uint32_t(ids[k])];
                if (std::find(distinct.begin(), distinct.end(), id.text) != distinct.end())
                    faults.emplace_back(&id, false);
                else
                    distinct.push_back(id.text);
            }
        for (; r < refs.size() && refs[r] >> 32 == hash; ++r) {
            const Token& ref = m_refs[uint32_t(refs[r])];
            if (std::find(distinct.begin(), distinct.end(), ref.text) == distinct.end())
                faults.emplace_back(&ref, true);
        }
        i = end;
    }
    for (; r < refs.size(); ++r)
        faults.emplace_back(&m_refs[uint32_t(refs[r])], true);
    if (faults.empty())
        return true;
    std::stable_sort(faults.begin(), faults.end(),
                     [](const auto& a, const auto& b) { return a.first->serial < b.first->serial; });
    // The paths need the walk's open elements: walk again for them.
    std::unordered_map<const XmlElement*, UCString> paths;
    for (const auto& f : faults)
        paths.emplace(f.first->element, UCString());
    Walk(
        [&](const XmlElement* e) {
            auto it = paths.find(e);
            if (it != paths.end())
                it->second = PathOf(e);
            if (e->Child())
                m_open.push_back({e, nullptr, 0, nullptr, nullptr, false});
            return true;
        },
        [](const Open&) { return true; });
    for (const auto& f : faults) {
        if (m_stopped)
            return false;
        const Token& t = *f.first;
        if (f.second)
            m_out.emplace_back(valDanglingIdref,
                               u"Value " + Quoted(t.text) + u" of " + Where(t.element, t.attribute) + u" names no ID",
                               t.element, paths[t.element]);
        else
            m_out.emplace_back(valDuplicateId,
                               u"ID " + Quoted(t.text) + u" of " + Where(t.element, t.attribute) + u" is not unique",
                               t.element, paths[t.element]);
        if (m_most && m_out.size() >= m_most)
            m_stopped = true;
    }
    return !m_stopped;
}

// The walk of the check: the children of each open element in turn, the
// innermost open element at hand, so that a child that needs nothing but
// its step in the parent's content (ElementInfo::Trivial) costs a few
// loads. The same order as Walk.
bool XmlValidator::CheckTree(const XmlElement* root) {
    m_open.clear();
    const XmlElement* e = root;
    Open* top = nullptr;  // the innermost open element, the back of m_open
    for (;;) {
        if (e && top && top->row && !e->Child())
            e = StepLeaves(*top, e);
        if (!e) {
            // The children of top are done.
            const Open done = *top;
            m_open.pop_back();
            if (!Finish(done))
                return false;
            if (m_open.empty())
                return true;
            top = &m_open.back();
            e = done.element->Next();
            continue;
        }
        __builtin_prefetch(reinterpret_cast<const char*>(e) + 12 * sizeof(XmlElement));
        const int key = KeyOf(e);
        ElementInfo& info = Info(key, e);
        if (top) {
            if (!Step(*top, e, key))
                return false;
            if (info.Trivial(e)) {
                e = e->Next();
                continue;
            }
        }
        if (!Visit(e, info))
            return false;
        const Open open{e, &info, XmlAutomaton::Start,
                        info.automaton ? info.automaton->Row(XmlAutomaton::Start) : nullptr, nullptr, true};
        if (e->Child()) {
            m_open.push_back(open);
            top = &m_open.back();
            e = e->Child();
            continue;
        }
        if (!Finish(open))
            return false;
        if (!top)
            return true;  // the root alone
        e = e->Next();
    }
}

void XmlValidator::Run() {
    const XmlDtd& own = m_doc.GetDTD();
    const bool none = &m_dtd == &own ? !own.HaveContents() && own.DocType().empty()
                                     : m_dtd.ElementCount() == 0 && m_dtd.DocType().empty();
    if (none) {
        Report(valNoDefinition, u"The document has no document type definition", nullptr);
        return;
    }
    if (!CheckDefinition())
        return;
    const XmlElement* root = m_doc.RootElement();
    if (!root) {
        Report(valRootName, u"The document has no root element", nullptr);
        return;
    }
    const UCString& docType = m_dtd.DocType();
    if (!docType.empty() && docType != root->Name() &&
        !Report(valRootName,
                u"Root element '" + UCString(root->Name()) + u"' is not the document type '" + docType + u"'", root))
        return;
    const bool done = CheckTree(root);
    if (!done)
        return;
    m_open.clear();
    CheckIds();
}

bool XmlDocument::Validate(std::vector<XmlViolation>& violations, size_t maxViolations) const {
    return Validate(m_dtd, violations, maxViolations);
}

bool XmlDocument::Validate(const XmlDtd& dtd, std::vector<XmlViolation>& violations, size_t maxViolations) const {
    violations.clear();
    try {
        XmlValidator(*this, dtd, violations, maxViolations).Run();
    } catch (const std::bad_alloc&) {
        try {
            violations.emplace_back(valOutOfMemory, u"Out of memory", nullptr, UCString());
        } catch (const std::bad_alloc&) {
        }
        return false;
    }
    return violations.empty();
}
