// xmldocument.h - the document object: the parsed tree, the name table, the
// error state and the whole parser state.
#pragma once

#include <climits>
#include <cstdint>
#include <map>
#include <memory>
#include <new>
#include <string_view>
#include <vector>

#include "ozmutil.h"
#include "xmldeque.h"
#include "xmldtd.h"
#include "xmlresources.h"
#include "xmltree.h"
#include "xmlvalidate.h"

// Token kinds of the tokenisers. The values have gaps.
enum XmlToken : int {
    tokError = -1,  // the tokeniser has already reported a failure
    tokNone = 0,
    tokName = 1,
    tokPIStart = 2,
    tokPIEnd = 3,
    tokXmlDecl = 4,
    tokEquals = 5,
    tokQuoted = 6,
    tokDoctype = 7,
    tokElementDecl = 8,
    tokAttlistDecl = 9,
    tokEntityDecl = 10,
    tokNotationDecl = 11,
    tokOpenBracket = 12,
    tokCloseBracket = 13,
    tokPercent = 14,
    tokClose = 15,
    tokEndProlog = 16,
    tokParamRef = 17,
    tokComment = 18,
    tokOpenParen = 19,
    tokCloseParen = 20,
    tokBar = 21,
    tokComma = 22,
    tokStar = 23,
    tokQuestion = 24,
    tokPlus = 25,
    tokCdata = 26,
    tokConditional = 27,
    tokStartTag = 30,
    tokEndTag = 31,
    tokCharData = 32,
    tokEmptyClose = 33,
    tokAny = 40,
    tokEmpty = 41,
    tokPcdata = 42,
    tokId = 50,
    tokIdref = 51,
    tokIdrefs = 52,
    tokEntities = 53,
    tokNmtoken = 54,
    tokNmtokens = 55,
    tokNotation = 56,
    tokImplied = 57,
    tokRequired = 58,
    tokFixed = 59,
    tokEntity = 60
};

struct XmlBlockShare;
struct GenMemory;
// An entry of the push-back stack of the character stream, whose
// definition and operations (input/xmlpushstack.h) the library keeps to
// itself.
struct XmlPushEntry;
class XmlPushStack;

// A count as an int, INT_MAX for anything larger.
inline int XmlSaturatedInt(int64_t n) { return n > INT_MAX ? INT_MAX : int(n); }

class OZM_API XmlDocument {
public:
    // Deepest level at which an element may have content.
    static constexpr int MaxDepth = 20;

    XmlDocument();
    // Copies share the element tree; see the notes in xmldocument.cpp on who
    // releases the slabs.
    XmlDocument(const XmlDocument& other);
    XmlDocument& operator=(const XmlDocument& other);
    virtual ~XmlDocument();

    BATCHERR ParseString(const UCString& text, bool validate = false, bool ignoreDtd = false);
    // Reads a file: UTF-16 in either order when it starts with a byte-order
    // mark, else in the encoding its XML declaration names (UTF-8 when it
    // names none; see the README's Encodings).
    BATCHERR ParseFile(const UCChar* path, bool validate = false, bool ignoreDtd = false);
    // Reads the length bytes at data exactly as ParseFile reads a file of
    // those bytes (byte-order mark, UTF-8, UTF-16, the declared encoding),
    // with the same errors, positions and tree; the error file is "bytes".
    // Bare names of external resources are looked for in baseDir when it is
    // given, else in the working directory. The bytes are decoded a block
    // at a time into a buffer the document keeps, never copied whole; they
    // must stay as they are until the call returns.
    BATCHERR ParseBytes(const void* data, size_t length, bool validate = false, bool ignoreDtd = false,
                        const UCChar* baseDir = nullptr);
    // Reads through an I/O module given as "MODULE:RESOURCE?OPTIONS". The
    // notifier, if any, is asked while the module has no character ready.
    BATCHERR ParseDLL(const UCChar* spec, bool validate = false, bool designMode = false,
                      OzmNotifier* notifier = nullptr, bool ignoreDtd = false);
    // Hands the mode to the I/O module while one is open.
    void DesignMode(bool on);
    // Empties the document: no root, an empty definition. The memory kept
    // for the next parse is given up too: the decoding buffers to the
    // allocator, the slabs and text chunks to the process, which keeps them
    // for the next document made (up to what this one held, 256 MiB at most).
    void Clear();

    double Version() const { return m_version; }
    void Version(double v) { m_version = v; }
    OZM_CSET Encoding() const { return m_encoding; }
    void Encoding(OZM_CSET e) { m_encoding = e; }
    XmlElement* RootElement() const { return m_rootElement; }
    void RootElement(XmlElement* e) { m_rootElement = e; }
    XmlDtd& GetDTD() { return m_dtd; }
    const XmlDtd& GetDTD() const { return m_dtd; }

    // The limits that keep hostile input from exhausting the stack, memory or
    // time. Each ends the parse with errSyntax (errOpenUri for a resource)
    // and a message that names what went too far.
    //
    // General references in content nested inside each other at the start
    // of a replacement text.
    static constexpr int MaxEntityNesting = 64;
    // Units of text pushed back for expansion during one parse: replacement
    // texts of declared entities in content (each reference counting 32
    // units besides its value), parameter entities included in a definition
    // or replaced in a literal, and included conditional sections. Up to
    // MaxEntityExpansion units, or EntityExpansionRatio times the units of
    // the document read so far when that is more, are allowed, and the bytes
    // of the external resources read come on top. Stops entity bombs and
    // quadratic blowup at a small size while documents of any size that use
    // entities as honest documents do pass.
    static constexpr size_t MaxEntityExpansion = size_t(1) << 23;
    static constexpr unsigned EntityExpansionRatio = 100;
    // Pushed texts (entity values, sections, subsets) that are begun and not
    // yet read to their end at one time: stops a parameter entity that
    // includes itself.
    static constexpr size_t MaxPushNesting = 1024;
    // Groups of a content model nested inside each other.
    static constexpr int MaxGroupNesting = 256;
    // '<?' and '<!' openings read inside each other in the prolog.
    static constexpr int MaxMarkupNesting = 256;
    // Bytes of an external subset or entity, which is read whole.
    static constexpr size_t MaxResourceBytes = size_t(16) << 20;
    // Bytes of all external subsets and entities that one parse reads; a
    // resource that is named again counts again, though its text is then
    // copied rather than read. Stops amplification through many
    // declarations of one file.
    static constexpr uint64_t MaxExternalBytes = uint64_t(64) << 20;

    // Reads a stand-alone external subset into the definition, finds its
    // single root element and verifies it. The file named here is read as
    // named; what it refers to follows the policy of ExternalResources.
    BATCHERR ParseExternalDTD(const UCChar* uri);

    // How the following parses find external subsets and entities (see
    // xmlresources.h): files as named unless set.
    void ExternalResources(const XmlResources& resources) { m_resources = resources; }
    const XmlResources& ExternalResources() const { return m_resources; }

    const UCChar* ErrorMessage() const { return m_errorMessage.c_str(); }
    const UCChar* ErrorFile() const { return m_errorFile.c_str(); }
    int ErrorLine() const { return m_errorLine; }
    int ErrorCol() const { return m_errorCol; }

    // Name table: the index of a name, added when new; -1 when memory for a
    // new name cannot be had.
    int AddName(const UCChar* name);
    int AddName(const UCChar* name, size_t length);
    const UCChar* GetName(int index) const {
        return index >= 0 && size_t(index) < m_names.size() ? m_names[size_t(index)].c_str() : u"";
    }
    // A node in use, attached to nothing; null when no slab can be had.
    XmlElement* NewElement();

    // The head of the slab chain (the newest slab), or null.
    XmlElementBlock* ElementBlocks() const { return m_elementBlocks; }

    // parts: 1 the XML declaration, 2 the document type declaration, 4 the
    // element tree (output/xmlwriter.cpp). Returns errNone, whatever the
    // targets of out make of what they are sent; errSyntax only when memory
    // ran out on the way, and the output then ends there.
    BATCHERR Write(XmlOutputStream& out, bool withExternals, bool lineBreaks, bool escape, int parts,
                   bool writeEmpty) const;

    // ---- DTD generation (dtdgen/) ----
    // Replaces the definition with one derived from the element tree:
    // element definitions with inferred content models, attribute lists
    // with the values seen, and a fixed "length" attribute on every element
    // with text. True, also for a document without a root. False when
    // memory ran out (or a tree had more than about a billion nodes): the
    // definition is then empty, as XmlDtd::Clear leaves it, with no
    // document type name, and nothing else has changed. Throws nothing.
    bool GenerateDTD();
    // The same over the trees of several documents (this one among them or
    // not; null entries and documents without a root are passed over): what
    // all of them show goes into one definition here, as if their trees
    // were instances of one document read one after the other. The
    // document type name is the root name of the first document with a
    // root; roots of other names get definitions of their own like any
    // element, and no element is made to contain them. For the single
    // document this one it gives exactly GenerateDTD's result.
    bool GenerateDTD(const std::vector<const XmlDocument*>& documents);
    // Generated definitions always carry length attributes: true.
    bool GenerateLengthAttrs() const { return true; }

    // ---- Validation (validate/, see xmlvalidate.h) ----
    // Checks the tree against the document's own definition, or against dtd
    // (one read with ParseExternalDTD, say, or generated into another
    // document). violations is emptied, then receives what is found: the
    // definition's own faults, then the tree's in document order (text in
    // element content, spread among the children, counts at the element's
    // end, before a child found missing there), then, in
    // document order too, ID values met before and IDREF values that name no
    // ID, which are known only at the end; up to maxViolations of them (0: no
    // limit), where the check stops. True when nothing was found. Changes
    // neither the tree nor any definition, and never throws: running out of
    // memory ends the check with false, and a valOutOfMemory record where
    // one can be had. Each content model
    // is compiled once per check, and each element's children are matched in
    // one pass, so the check is linear in the size of the tree. Checks of
    // several documents against one definition may run on several threads
    // at once, as long as nothing changes the definition meanwhile.
    bool Validate(std::vector<XmlViolation>& violations, size_t maxViolations) const;
    bool Validate(const XmlDtd& dtd, std::vector<XmlViolation>& violations, size_t maxViolations) const;

private:
    friend class XmlValidator;
    // The index of e's name in the name table of owner, the document e
    // belongs to (null for none).
    static int NameIndexOf(const XmlElement* e, const XmlDocument*& owner) {
        owner = e->m_block ? e->m_block->Document() : nullptr;
        return e->m_nameId - 1;
    }
    // e's attributes, read in place.
    static const XmlElement::Attr* AttributesOf(const XmlElement* e) { return e->AttrItems(); }

private:
    friend class XmlElement;
    // Let the test suite reach private parser operations.
    friend class XmlDocumentProbe;
    friend class XmlContentProbe;
    friend class XmlFastPathProbe;

    // Runs the body of a parse entry. Running out of memory ends the parse
    // with errSyntax and "Out of memory", and leaves no tree; the counts and
    // copies of external resources of the parse are given back in any case.
    template <class Body>
    BATCHERR Guarded(Body&& body) noexcept {
        BATCHERR result;
        try {
            result = body();
        } catch (const std::bad_alloc&) {
            result = OutOfMemory();
        }
        ResetLimits();
        return result;
    }
    BATCHERR OutOfMemory() noexcept;
    void WriteParts(XmlOutputStream& out, bool withExternals, bool lineBreaks, bool escape, int parts,
                    bool writeEmpty) const;

    // Document parsing.
    void InitParser();
    // The tree emptied for the next parse: the slabs and their text chunks
    // are kept as spares, which the parse takes in the order they were
    // first allocated; KeepOnlyUsed then frees those it did not take, so
    // that what is kept is what the last parse used.
    void ClearTree();
    void KeepOnlyUsed();
    void FreeSpareBlocks();
    // ParseFile and ParseBytes once m_input is open: a byte-order mark, the
    // parse, and the end at undecodable bytes. name is the error file.
    BATCHERR ParseInput(const UCChar* name, bool validate, bool ignoreDtd);
    BATCHERR ParseDocument(bool validate, bool ignoreDtd);
    XmlElement* ParseElementBegin(const UCString& name, bool& isEmpty);
    XmlElement* ParseAttributes(XmlElement* element, bool& isEmpty);
    BATCHERR ParseContent(int depth);
    // The content of one element being read (document/xmlcontentlevel.h).
    struct ContentLevel;
    void LinkChild(ContentLevel& level, XmlElement* child);
    BATCHERR AttachChild(ContentLevel& level, XmlElement* child, bool isEmpty);
    // Reads what it can of the content straight from the source buffer
    // (document/xmlfastcontent.cpp).
    int FastContent(ContentLevel& level, BATCHERR& result);
    // The attributes and the end of a start tag whose name the general
    // tokeniser has read, taken as FastContent takes tags, when the blank
    // behind the name is all that is pushed back and the rest of the tag
    // lies in the source's run. Leaves lines, columns, the saved position
    // and the push-back stack as ParseAttributes leaves them; false, and
    // nothing changed, when the tag is not one of those.
    bool FastTagRest(XmlElement* element, bool& isEmpty);
    // What a reference to a declared entity in content counts against the
    // expansion allowance besides its value, so that a short value that
    // names itself behind some text ("b&e;") cannot take millions of rounds.
    static constexpr uint64_t ReferenceCost = 32;
    // The entity of the reference "&name;" at p, when the fast path may take
    // it as its value's text: the reference and one unit behind it, not
    // 0xFFFF, lie before end, the value is plain text (no markup, reference,
    // line end, 0 or 0xFFFF) and not empty, and it fits the expansion
    // allowance as it stands. Counts the expansion and sets after behind the
    // ';'; otherwise null, and nothing changed.
    const XmlEntityDef* PlainReference(const UCChar* p, const UCChar* end, const UCChar*& after);
    // The entities of plain text PlainReference found last, by length and
    // first unit of their names; emptied when content begins, since the
    // definition does not change while content is read.
    const XmlEntityDef* m_referenceCache[8] = {};
    // The text behind a start tag that FastContent scanned to see whether
    // the element is a leaf, when it was not: the first FastContent of the
    // element's level takes it as found rather than scanning it again. Set
    // just before that level begins; its first FastContent drops it.
    struct ScannedText {
        const UCChar* from = nullptr;  // where the text begins; null: none
        const UCChar* end;             // the end of the run it was scanned in
        const UCChar* stop;            // what XmlScanText returned
        int64_t lines;
        const UCChar* lastLf;
    };
    ScannedText m_scannedText;
    BATCHERR ParseTextDecl(OZM_CSET& encoding, double& version, bool& standalone);
    BATCHERR Rescan(UCString& text, bool expandParams, bool expandCharRefs);

    // Definition parsing (dtdparser/).
    BATCHERR ParseDoctypeDecl(bool ignoreDtd);
    BATCHERR ParseDoctypeParts(int& kind, UCString& token);
    BATCHERR ParseConditional();
    BATCHERR ReadExternalDTD(const UCChar* uri);
    // Pushes a blank, the value of the parameter entity ref ("%name") and a
    // blank. An undefined name is an error when reportUndefined is set, and
    // is passed over otherwise.
    BATCHERR IncludeParamEntity(const UCString& ref, bool reportUndefined);
    // Counts units about to be pushed or substituted against the expansion
    // allowed; false (with the message set) when over.
    bool CountExpansion(size_t units, const UCChar* format, const UCChar* what);
    // Whether m_entityExpansion is within what is allowed now; the allowance
    // is worked out again only when the count has passed the last one.
    bool ExpansionAllowed() { return m_entityExpansion <= m_expansionAllowed || WidenExpansion(); }
    bool WidenExpansion();
    // Units of the document's own source read so far.
    uint64_t InputUnitsRead() const;
    BATCHERR ParseElementDecl();
    BATCHERR ParseContentParts(XmlContentPart& part);
    class ChoiceNames;
    int ElementDeclToken(UCString& token);
    bool ReadParamRef(UCString& token, bool pushBack);
    BATCHERR ParseAttrList();
    BATCHERR ParseEnumeration(XmlAttDef* def, bool keep);
    int AttrListToken(UCString& token, bool nameOnly);
    BATCHERR ParseEntityDecl();
    // The text of an external resource named by its system identifier uri
    // and its public identifier (null when there is none), found as the
    // policy in m_resources says (dtdparser/xmlresource.cpp).
    BATCHERR ReadParsedURI(const UCChar* uri, const UCChar* publicId, UCString& text);
    // The resource at path; uri is its name as written, for the place of an
    // error in it.
    BATCHERR ReadResourceFile(const UCString& path, bool confined, const UCChar* uri, UCString& text);
    // A file as the file system knows it: device, inode, size and time of
    // change, which tell whether a text read before is still its text.
    struct ResourceKey {
        uint64_t device = 0, inode = 0;
        int64_t size = 0, changed = 0;
        bool operator<(const ResourceKey& o) const {
            return device != o.device ? device < o.device
                   : inode != o.inode ? inode < o.inode
                   : size != o.size   ? size < o.size
                                      : changed < o.changed;
        }
    };
    BATCHERR OpenResource(const UCString& path, bool confined, int& fd, ResourceKey& key);
    BATCHERR OpenConfined(const UCString& path, const std::string& narrow, int& fd);
    bool CountExternal(uint64_t bytes, const UCString& name);
    // Forgets the counts and resources of the parse before.
    void ResetLimits() {
        m_entityExpansion = 0;
        m_expansionAllowed = MaxEntityExpansion;
        m_moduleUnits = 0;
        m_externalBytes = 0;
        m_resourceCopies.clear();
    }
    BATCHERR VerifyDTD();
    BATCHERR VerifyDTDElements(XmlElementDef* def);
    BATCHERR VerifyDTDContentPart(XmlContentPart& part);
    // UxToken, or errSyntax alone when the tokeniser has reported already.
    BATCHERR Unexpected(int kind, const UCString& token) { return kind == tokError ? errSyntax : UxToken(token); }

    // Error state.
    void SaveErrorPos() { SaveErrorPos(m_line, m_col); }
    // Positions are counted in 64 bits and reported up to INT_MAX, where
    // they stop.
    void SaveErrorPos(int64_t line, int64_t col) {
        m_errorLine = XmlSaturatedInt(line);
        m_errorCol = XmlSaturatedInt(col);
        if (m_errorFileStale) {
            m_errorFile = m_fileName;
            m_errorFileStale = false;
        }
    }
    // Sets the name of the source being read.
    void FileName(const UCChar* name) {
        m_fileName = name;
        m_errorFileStale = true;
    }
    BATCHERR SetUpError(BATCHERR code, const UCChar* format, ...);
    BATCHERR UxToken(const UCString& token);

    // Character stream (inline, in input/xmlcharstream.h).
    inline UCChar OneChar();
    // NewElement with the head slab's next node taken inline.
    inline XmlElement* NewNode();
    // AddName with the names met before answered inline from m_nameCache.
    inline int CachedName(const UCChar* name, size_t length);
    int NameSlot(const UCChar* name, size_t length) const;
    // AddName for the parser: running out of memory throws.
    int InternName(const UCChar* name, size_t length);
    inline UCChar NextChar();
    inline UCChar SkipSpace();
    inline void PushBack(UCChar c);
    inline UCChar PopPushed();
    // The operations on m_pushBack (inline, in input/xmlpushstack.h).
    inline XmlPushStack PushStack();
    void PushBack(const UCChar* text);
    void PushText(UCString&& text);
    UCChar ModuleChar();
    static inline bool IsNameStart(UCChar c);
    static inline bool IsNameChar(UCChar c);
    inline UCChar ReadName(UCString& token);
    inline size_t PendingRun(const UCChar*& run);
    inline size_t SourceRun(const UCChar*& run);
    inline void ConsumeRun(size_t count);
    inline void ConsumeLines(size_t count, int64_t lines, size_t tail);
    void ScanRun(UCString& token, UCChar stop1, UCChar stop2);

    // Tokenisers.
    bool OpenToken(UCString& token, UCChar& c, int& kind);
    int PrologToken(UCString& token, bool allowXmlDecl);
    // With charData set, character data is appended there instead of to token.
    int ContentToken(UCString& token, UCString* charData = nullptr);
    int ElementBeginToken(UCString& token);
    int ReadQuoted(UCString& token, UCChar quote);
    int ReadComment(UCString& token);
    int ReadReference(UCString& token, UCString* charData);

    // Slab chain ownership.
    void ReleaseBlocks();
    void JoinBlocks(const XmlDocument& other);

    // ---- DTD generation (dtdgen/) ----
    friend class XmlGenerateProbe;
    // State of one walk over the trees (dtdgen/xmlgenwalk.h).
    struct GenWalk;
    // GenerateDTD over count documents, any of them null.
    bool GenerateFrom(const XmlDocument* const* documents, size_t count);
    // Records what the instances in the chain from first and everything
    // below it show; the walk keeps its own stack, not the call stack.
    void BuildDTDElement(const XmlElement* first, GenWalk& walk);
    // Turns the shapes recorded for def into its content model.
    void BuildCP(XmlElementDef* def, const GenWalk& walk);
    // After the walks: measures, members of mixed content, content models
    // and length attributes.
    void FinishDefinitions(GenWalk& walk);
    // The accounting of generation's working memory while the tests watch
    // it (dtdgen/xmlgenmemory.h); null otherwise. Never copied.
    GenMemory* m_genMemory = nullptr;

    UCString m_errorMessage;
    UCString m_errorFile;
    int m_errorLine = 0;
    int m_errorCol = 0;
    int64_t m_line = 1;
    int64_t m_col = 0;
    UCString m_fileName;
    bool m_validate = true;
    XmlElement* m_rootElement = nullptr;
    XmlDeque<XmlElement*> m_elementStack;
    double m_version = 1.0;
    OZM_CSET m_encoding = csetUTF8;
    bool m_standalone = true;
    XmlDtd m_dtd;
    bool m_trackMaxLen = false;
    // Whether content may be read by FastContent: not while attributes are
    // validated or lengths tracked, which only the general path does.
    bool m_fastContent = false;
    // Keeps every parse of this document on the general path (for tests
    // that compare the two).
    bool m_generalOnly = false;
    std::vector<XmlPushEntry> m_pushBack;
    // The top of the push-back stack lives in m_pushTop while m_hasPushTop is
    // set, so that the one unit of look-ahead that most tokens push costs no
    // stack operation; m_pushBack holds what lies below it. m_pushPending
    // tells whether anything at all is pushed.
    UCChar m_pushTop = 0;
    bool m_hasPushTop = false;
    bool m_pushPending = false;
    OzmUCFile* m_sourceFile = nullptr;
    // The file or memory source of ParseFile and ParseBytes, kept with its
    // buffers for the next parse.
    std::unique_ptr<OzmUCFile> m_input;
    UCString m_sourceDir;
    const UCString* m_sourceString = nullptr;
    const UCChar* m_stringCursor = nullptr;
    const UCChar* m_stringEnd = nullptr;
    OzmLightweightIO* m_lwio = nullptr;
    OzmNotifier* m_notifier = nullptr;
    XmlElementBlock* m_elementBlocks = nullptr;
    XmlElementBlock* m_spareBlocks = nullptr;  // the next to take first
    UCString m_depthData[MaxDepth];
    UCString m_token;
    UCString m_refText;
    std::vector<UCString> m_names;
    // An index over m_names by a hash of each name: index + 1 in a used
    // slot, 0 in a free one; a power of two in size, at most half full.
    std::vector<int> m_nameIndex;
    // The index of name in m_names, or -1; hash is NameHash of the name.
    int FindName(std::u16string_view name) const;
    int FindName(std::u16string_view name, size_t hash) const;
    // Appends name, whose NameHash is hash, to m_names and to the index,
    // which grows first, so that running out of memory changes neither.
    void ListName(std::u16string_view name, size_t hash);
    // Room for one more name: the index doubled when indexFull, else the
    // list's capacity.
    void GrowNames(bool indexFull);

    // False while m_errorFile is known to equal m_fileName, which spares
    // SaveErrorPos a string copy per token. Whatever changes either of the two
    // sets it.
    bool m_errorFileStale = true;
    // Count of units of value 0 that went into character data; an element's
    // text is cut at such a unit, which needs a scan only when one was seen.
    uint64_t m_dataNulls = 0;
    // Depth of entity references being expanded inside each other, and units
    // of replacement text pushed back in this parse (see the limits above).
    int m_entityNesting = 0;
    uint64_t m_entityExpansion = 0;
    uint64_t m_expansionAllowed = MaxEntityExpansion;
    // Units an I/O module has given in this parse.
    uint64_t m_moduleUnits = 0;
    // Bytes of the external resources of this parse, and the texts of those
    // read so far, by file.
    uint64_t m_externalBytes = 0;
    XmlResources m_resources;
    std::map<ResourceKey, UCString> m_resourceCopies;
    // Direct-mapped cache in front of m_nameIndex: index + 1 of a name by a
    // hash of its text, 0 when empty. Each hit is verified against m_names.
    int m_nameCache[256] = {};

    // Set while the slab chain is shared with copies of this document.
    XmlBlockShare* m_blockShare = nullptr;
    // Depth of '<?' and '<!' openings that PrologToken is reading inside
    // each other; bounded so that a run of them cannot exhaust the stack.
    int m_markupNesting = 0;
    // Depth of ParseContentParts calls.
    int m_groupNesting = 0;
    // Definitions of element names met while lengths are tracked, by name
    // index + 1 (see XmlDocument::TrackedDefs).
    struct TrackedDefs {
        XmlElementDef* element = nullptr;
        XmlAttrList* attributes = nullptr;
        uint64_t parse = 0;  // the parse that looked them up (m_parseCount)
        // The attribute names met on elements of this name, each with its
        // definition or null: a name that comes again is not looked up in
        // the list of definitions.
        std::vector<std::pair<UCString, XmlAttDef*>> seen;
    };
    static constexpr size_t kSeenAttributes = 16;
    // Kept from parse to parse, so that a parse does no work for the names
    // of the table that it does not meet: an entry counts only for the parse
    // that made it.
    std::vector<TrackedDefs> m_trackedDefs;
    uint64_t m_parseCount = 0;
    TrackedDefs& Tracked(int nameId) {
        if (size_t(nameId) < m_trackedDefs.size() && m_trackedDefs[size_t(nameId)].parse == m_parseCount)
            return m_trackedDefs[size_t(nameId)];
        return LookUpTracked(nameId);
    }
    TrackedDefs& LookUpTracked(int nameId);
    void TrackAttribute(TrackedDefs& defs, const UCChar* name, size_t nameLength, size_t length);
    // Gives element the attributes a scan of its start tag found (spans with
    // name, nameEnd, value, valueEnd) and records their lengths; the
    // definitions of its name when lengths are recorded, else null
    // (document/xmlfastcontent.cpp).
    template <class A>
    TrackedDefs* TakeAttributes(XmlElement* element, const A* attrs, int count);
};
