// The size sweep: every kind of text that a parse reads, stores and writes
// back, at every length around the boundaries of the buffers and chunks it
// passes through, read from a string and from UTF-8 and UTF-16 files, and
// read back exactly, also after writing.
#include <cstring>

#include "platform/ozmutf8.h"
#include "test_util.h"

namespace {

// Lengths (units, or counts where said) at which a buffer or chunk ends.
// Below kDense every length is swept with every kind, and with the texts of
// the text store alone every length up to kStore; around the boundaries
// every length within Near(b), then growing lengths up to kLongest.
const size_t kBoundaries[] = {
    1020, 2044,                      // attributes, names of a model: deque chunks of 4, 8, ... 1,024, then capped
    2040, 4088, 8184, 16376, 32760,  // units of a text store chunk of 4, 8, 16, 32 and 64 KB
    8190,                            // a text of this length takes a chunk of its own
    2048,                            // the definition writer's buffer
    4000,                            // the UTF-8 decoder's block
    4096,                            // OZM_MAX_PATH: paths and identifiers
    8192,                            // the UTF-8 output block
    16384,                           // a deque's largest chunk of small items
    32768, 65536,                    // a file's byte buffer in UTF-16 units and in bytes, and the units it
                                     // decodes at a time; the tree writer's buffer
};
// Ten texts of kLongest units stay below the entity expansion limit.
constexpr size_t kDense = 600, kStore = 8400, kLongest = 800000;
size_t Near(size_t b) { return b <= 8192 ? 40 : 8; }

std::vector<size_t> Lengths() {
    std::vector<size_t> out;
    for (size_t n = 0; n <= kStore; ++n)
        out.push_back(n);
    for (size_t b : kBoundaries)
        for (size_t n = b - Near(b); n <= b + Near(b); ++n)
            out.push_back(n);
    for (size_t n = 100000; n < kLongest; n *= 3)
        out.push_back(n);
    out.push_back(kLongest);
    std::sort(out.begin(), out.end());
    out.erase(std::unique(out.begin(), out.end()), out.end());
    return out;
}

bool NearBoundary(size_t n) {
    for (size_t b : kBoundaries)
        if (n + Near(b) >= b && n <= b + Near(b))
            return true;
    return false;
}

UCString Cycle(const UCString& unit) {
    UCString s;
    while (s.size() < kLongest)
        s += unit;
    return s;
}

// Texts of each kind are the front of a long one, so that making them costs
// a copy. Element data holds what the writer escapes; attribute values no
// double quote (written as is) and no line end (the fast path's); names are
// ASCII or not; the plain texts of entity values, comments and instructions
// hold nothing that markup treats apart.
struct Kinds {
    UCString text = Cycle(u"Text 'a' \"b\" > c\n\t\u00E9\u4E2D 0123456789 xyz ");
    UCString value = Cycle(u"v<&>'\u00E9\u4E2D 1 w\t");
    UCString plain = Cycle(u"plain-text \u00E9\u4E2D\n 42 ");
    UCString name = Cycle(u"n.a-b_c:d0123");
    UCString wide = Cycle(u"\u00E9\u4E2Dx-1\u00FC");
};

// A node as Tree() shows it.
UCString Node(const UCString& name, const UCString& data, const UCString& rest = u"") {
    return name + u"{" + data + u"}" + rest;
}

testing::AssertionResult Same(const UCString& got, const UCString& want) {
    // Compared as memory: unit by unit is slow in an unoptimised build.
    if (got.size() == want.size() && std::memcmp(got.data(), want.data(), got.size() * sizeof(UCChar)) == 0)
        return testing::AssertionSuccess();
    size_t i = 0;
    while (i < got.size() && i < want.size() && got[i] == want[i])
        ++i;
    return testing::AssertionFailure() << "lengths " << got.size() << " and " << want.size() << " part at " << i
                                       << ": " << Narrow(got.substr(i, 40)) << " | " << Narrow(want.substr(i, 40));
}

std::string Utf16Le(const UCString& s) {
    return "\xFF\xFE" + std::string(reinterpret_cast<const char*>(s.data()), s.size() * 2);
}
std::string Utf8(const UCString& s, bool mark) {
    std::string out;
    OzmGlob::WStringToString(s, out, csetUTF8);
    return mark ? "\xEF\xBB\xBF" + out : out;
}

void CheckEntities(const XmlDocument& d, const UCString& value) {
    for (const char16_t* name : {u"i", u"x8", u"x16", u"q", u"c", u"s"})
        EXPECT_TRUE(Same(d.GetDTD().FindEntity(name) ? d.GetDTD().FindEntity(name)->Value() : u"-", value));
}

// Writes the document whole, at once to a 16-bit and a UTF-8 string, a
// stdio file and a UTF-16 file, which must all hold the same text; read back,
// the tree, the entities and the definition's models and lengths must come
// back exactly.
void CheckWriteBack(const XmlDocument& doc, const UCString& tree, const UCString& value, const TempDir& dir) {
    UCString written;
    std::string bytes;
    {
        XmlOutputStream out;
        out.SetString(&written);
        out.SetUTFString(&bytes);
        out.SetFilePointer(std::fopen(dir.Path("w8.xml").c_str(), "wb"), true);
        out.OpenUCFile(dir.UPath("w16.xml").c_str(), u"w", 4);
        doc.Write(out, false, false, true, 7, true);
    }
    EXPECT_TRUE(dir.Read("w8.xml") == bytes);
    EXPECT_TRUE(dir.Read("w16.xml") == Utf16Le(written));
    UCString decoded;
    OzmGlob::DecodeUTF8(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), decoded);
    EXPECT_TRUE(Same(decoded, written));
    XmlDocument back;
    ASSERT_EQ(back.ParseString(written), errNone) << Narrow(back.ErrorMessage());
    EXPECT_TRUE(Same(Tree(back), tree));
    CheckEntities(back, value);
    EXPECT_EQ(DumpDtd(back.GetDTD(), true), DumpDtd(doc.GetDTD(), true));
}

// Every kind at length n in one document: an instruction, comments in the
// prolog, both subsets and content, entity values declared inline, through a
// parameter entity and an included section, in the external subset and in
// external files of either encoding, element and attribute names, attribute
// values and data read by the fast path and by the general one, and texts
// stored first, in the middle and last in a slab of nodes and first in the
// next slab. Counts follow n: attributes on an element, text spans between
// its children, nested elements, and names in a model and groups nested in
// another.
void CheckHeavy(size_t n, const Kinds& k, const TempDir& dir) {
    const size_t m = std::max<size_t>(n, 1);
    const UCString t = k.text.substr(0, n), v = k.value.substr(0, n), e = k.plain.substr(0, n);
    const UCString g = n ? u"\u2028" + k.text.substr(0, n - 1) : u"";  // read by the general tokeniser
    const UCString na = k.name.substr(0, m), aa = u"a" + k.name.substr(1, m - 1);
    const UCString nw = k.wide.substr(0, m), aw = u"\u4E2D" + k.wide.substr(1, m - 1);
    const size_t attributes = n <= 2100 ? n : n % 97, children = n % 70, depth = 1 + n % 19, groups = 1 + n % 40;
    UCString names, attrs, values;  // p's: ",a0,a1...", " a0=\"\" a1=\"\"...", "[a0=][a1=]..."
    for (size_t i = 0; i < attributes; ++i)
        names += Num(u",a", int(i)), attrs += Num(u" a", int(i)) + u"=\"\"", values += Num(u"[a", int(i)) + u"=]";
    dir.Write("sub.dtd", Utf8(u"<!ENTITY s \"" + e + u"\"><!--" + e + u"-->", false));
    dir.Write("x8.ent", Utf8(e, n % 2));
    dir.Write("x16.ent", Utf16Le(e));
    UCString doc = u"<?pi " + e + u"?><!--" + e + u"--><!DOCTYPE r SYSTEM \"" + dir.UPath("sub.dtd") +
                   u"\" [<!ENTITY i \"" + e + u"\"><!ENTITY x8 SYSTEM \"" + dir.UPath("x8.ent") +
                   u"\"><!ENTITY x16 SYSTEM \"" + dir.UPath("x16.ent") + u"\"><!ENTITY % p '<!ENTITY q \"" + e +
                   u"\">'>%p;<![INCLUDE[<!ENTITY c \"" + e + u"\">]]><!ENTITY w \"<w>" + e +
                   u"</w>\"><!ELEMENT r ANY><!ELEMENT " + na + u" ANY><!ATTLIST " + na + u" " + aa + u" CDATA \"" + v +
                   u"\"><!ELEMENT p (e" + names + u")><!ELEMENT d " + Repeat(u"(e,", groups) + u"e" +
                   Repeat(u")", groups) + u"><!--" + e + u"-->]><r><t>" + t + u"</t><" + na + u" " + aa + u"=\"" + v +
                   u"\">" + t + u"</" + na + u"><" + nw + u" " + aw + u"=\"" + v + u"\">" + t + u"</" + nw + u"><g>" +
                   g + u"</g><m>&i;&x8;&x16;&q;&c;&s;</m><n>&w;</n><k>" + t + u"<!--" + e + u"-->" + t + u"</k>" +
                   Repeat(u"<d>", depth) + u"x" + Repeat(u"</d>", depth) + u"<p" + attrs + u">" +
                   Repeat(u"s<e/>", children) + u"</p>";
    UCString nest = Node(u"d", u"x");
    for (size_t i = 1; i < depth; ++i)
        nest = Node(u"d", u"", u"(" + nest + u")");
    UCString tree = Node(u"t", t) + u" " + Node(na, t, u"[" + aa + u"=" + v + u"]") + u" " +
                    Node(nw, t, u"[" + aw + u"=" + v + u"]") + u" " + Node(u"g", g) + u" " +
                    Node(u"m", e + e + e + e + e + e) + u" " + Node(u"n", u"", u"(" + Node(u"w", e) + u")") + u" " +
                    Node(u"k", t + t) + u" " + nest + u" " +
                    Node(u"p", UCString(children, u's'),
                         values + (children ? u"(e{}" + Repeat(u" e{}", children - 1) + u")" : u""));
    // Nodes 0 to 9, d's and p's, then empty ones up to node 998: z is the
    // last node of the first slab, y the first of the next.
    const size_t fill = n > kDense || n % 4 == 0 ? 989 - depth - children : 0;
    doc += Repeat(u"<e/>", fill) + u"<z>" + t + u"</z><y>" + t + u"</y>" + t + u"</r>";
    tree += Repeat(u" e{}", fill) + u" " + Node(u"z", t) + u" " + Node(u"y", t);
    tree = Node(u"r", t, u"(" + tree + u")");

    const std::string doc8 = dir.Write("doc8.xml", Utf8(doc, n % 2)), doc16 = dir.Write("doc16.xml", Utf16Le(doc));
    XmlDocument d;
    ASSERT_EQ(d.ParseString(doc), errNone) << Narrow(d.ErrorMessage());
    EXPECT_TRUE(Same(Tree(d), tree));
    EXPECT_TRUE(!fill || (d.ElementBlocks()->Next() && d.ElementBlocks()->FreeCount() == 999));  // y alone
    CheckEntities(d, e);
    CheckWriteBack(d, tree, e, dir);
    // The files into a document that keeps its first slab and that slab's
    // text chunk; UTF-8 at each level of the decoder in turn.
    const int level = OzmUtf8DecodeLevel();
    for (const std::string& path : {doc8, doc16}) {
        SCOPED_TRACE(path);
        OzmUtf8DecodeLevel(int(n % size_t(level + 1)));
        const BATCHERR result = d.ParseFile(U(path).c_str());
        OzmUtf8DecodeLevel(level);
        ASSERT_EQ(result, errNone) << Narrow(d.ErrorMessage());
        EXPECT_TRUE(Same(Tree(d), tree));
        CheckEntities(d, e);
    }
}

// Paths of n units: an identifier with its directory, a document's path, and
// a document's directory with the bare name of an entity beside it.
void CheckPaths(size_t n, const Kinds& k, const TempDir& dir) {
    const UCString home = U(dir.Dir()), e = k.plain.substr(0, 10);
    const bool fits = n < size_t(OZM_MAX_PATH);
    dir.Write("x8.ent", Utf8(e, false));
    const UCString uri = home + UCString(n - home.size() - 6, u'/') + u"x8.ent";
    XmlDocument d;
    EXPECT_EQ(d.ParseString(u"<!DOCTYPE r [<!ELEMENT r ANY><!ENTITY x SYSTEM \"" + uri + u"\">]><r>&x;</r>"),
              fits ? errNone : errOpenUri);
    EXPECT_TRUE(Same(fits ? Tree(d) : Str(d.ErrorMessage()),
                     fits ? Node(u"r", e) : (u"Unable to open URI '" + uri + u"'").substr(0, 511)));
    const UCString path = home + UCString(n - home.size() - 5, u'/') + u"d.xml";
    dir.Write("d.xml", "<r>x</r>");
    EXPECT_EQ(d.ParseFile(path.c_str()), fits ? errNone : errOpenSource);
    EXPECT_TRUE(Same(fits ? Tree(d) : Str(d.ErrorMessage()), fits ? u"r{x}" : u"Unable to open source file " + path));
    const UCString near = home + UCString(3995 - home.size(), u'/') + u"d.xml", bare = Repeat(u"b", n - 3995);
    dir.Write(Utf8(bare, false), Utf8(e, false));
    dir.Write("d.xml", Utf8(u"<!DOCTYPE r [<!ELEMENT r ANY><!ENTITY x SYSTEM \"" + bare + u"\">]><r>&x;</r>", false));
    EXPECT_EQ(d.ParseFile(near.c_str()), fits ? errNone : errOpenUri);
    const UCString joined = near.substr(0, 3995) + bare;
    EXPECT_TRUE(Same(fits ? Tree(d) : Str(d.ErrorMessage()),
                     fits ? Node(u"r", e) : (u"Unable to open URI '" + joined + u"'").substr(0, 511)));
}

TEST(SizeSweepTest, EveryKindAtEveryLengthAroundEveryBoundary) {
    TempDir dir;
    ASSERT_TRUE(dir.Ok());
    const Kinds k;
    for (size_t n : Lengths()) {
        SCOPED_TRACE("length " + std::to_string(n));
        // Texts first, in the middle and last in the store of a new slab,
        // which has no chunk yet; then the last one added to.
        const UCString t = k.text.substr(0, n), e = k.plain.substr(0, n);
        XmlDocument d;
        ASSERT_EQ(d.ParseString(u"<r><a>" + t + u"</a><b>" + t + u"</b><c>" + t + u"</c>" + t + u"</r>"), errNone);
        d.RootElement()->AddData(t.c_str());
        d.RootElement()->AddData(d.RootElement()->Data());
        EXPECT_TRUE(Same(Tree(d), Node(u"r", t + t + t + t, u"(" + Node(u"a", t) + u" " + Node(u"b", t) + u" " +
                                                                 Node(u"c", t) + u")")));
        // A token in a message, which is cut to its buffer.
        EXPECT_EQ(d.ParseString(u"'" + e + u"'<a/>"), errSyntax);
        EXPECT_TRUE(Same(Str(d.ErrorMessage()), Ux(e).substr(0, 511)));
        if (n <= kDense || n > kStore || NearBoundary(n))
            CheckHeavy(n, k, dir);
        if (n + Near(OZM_MAX_PATH) >= size_t(OZM_MAX_PATH) && n <= size_t(OZM_MAX_PATH) + Near(OZM_MAX_PATH))
            CheckPaths(n, k, dir);
        if (HasFailure())
            return;
    }
}

// Every length up to kEvery: one text, the first stored in a new slab, from
// one string whose end tag is moved along (the parse reads nothing behind
// the root), with the text compared where it is stored.
TEST(SizeSweepTest, EveryLengthOfAFirstText) {
    constexpr size_t kEvery = 70000;
    const Kinds k;
    UCString doc = u"<r>" + k.text.substr(0, kEvery) + u"</r>";
    for (size_t n = 0; n <= kEvery; ++n) {
        XmlDocument d;
        UCChar saved[4];
        std::memcpy(saved, &doc[3 + n], sizeof saved);
        std::memcpy(&doc[3 + n], u"</r>", sizeof saved);
        const BATCHERR result = d.ParseString(doc);
        std::memcpy(&doc[3 + n], saved, sizeof saved);
        ASSERT_EQ(result, errNone) << n;
        const XmlElement* r = d.RootElement();
        ASSERT_TRUE(size_t(r->DataLength()) == n && std::memcmp(r->Data(), &doc[3], n * sizeof(UCChar)) == 0 &&
                    r->Data()[n] == 0)
            << n;
    }
}

}  // namespace
