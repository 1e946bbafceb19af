// Element slabs of 1000 nodes, their chain in the document, node reuse, the
// name table, and the failure of a slab allocation.
#include <gtest/gtest.h>

#include <set>
#include <vector>

#include "ozmmem.h"
#include "xmlapi.h"

namespace {

UCString Str(const UCChar* p) { return p ? UCString(p) : UCString(u"<null>"); }

// Makes the slab allocator fail after `count` more allocations, for the
// lifetime of the guard.
struct SlabFailure {
    explicit SlabFailure(long count) { OzmMemFailAfter(count); }
    ~SlabFailure() { OzmMemFailAfter(-1); }
    SlabFailure(const SlabFailure&) = delete;
    SlabFailure& operator=(const SlabFailure&) = delete;
};

int ChainLength(const XmlDocument& doc) {
    int n = 0;
    for (XmlElementBlock* b = doc.ElementBlocks(); b; b = b->Next())
        ++n;
    return n;
}

XmlElementBlock* Oldest(const XmlDocument& doc) {
    XmlElementBlock* b = doc.ElementBlocks();
    while (b && b->Next())
        b = b->Next();
    return b;
}

// "<r>" followed by `children` empty elements: children + 1 nodes.
UCString FlatDocument(int children) {
    UCString s = u"<r>";
    for (int i = 0; i < children; ++i)
        s += u"<x/>";
    return s + u"</r>";
}

TEST(ElementBlockTest, FreshDocumentHasNoBlock) {
    XmlDocument doc;
    EXPECT_EQ(doc.ElementBlocks(), nullptr);
    doc.Clear();  // nothing to reset
    EXPECT_EQ(doc.ElementBlocks(), nullptr);
    EXPECT_EQ(doc.RootElement(), nullptr);
}

TEST(ElementBlockTest, FirstThousandNodesShareOneBlock) {
    XmlDocument doc;
    XmlElement* first = doc.NewElement();
    ASSERT_NE(first, nullptr);
    XmlElementBlock* head = doc.ElementBlocks();
    ASSERT_NE(head, nullptr);
    EXPECT_EQ(head->FreeCount(), 999);
    EXPECT_EQ(head->Next(), nullptr);
    EXPECT_EQ(head->Document(), &doc);

    std::set<XmlElement*> seen{first};
    for (int i = 2; i <= 1000; ++i)
        ASSERT_TRUE(seen.insert(doc.NewElement()).second) << i;
    EXPECT_EQ(doc.ElementBlocks(), head);
    EXPECT_EQ(head->FreeCount(), 0);
    EXPECT_EQ(ChainLength(doc), 1);

    // The 1001st node opens a second block, which becomes the head.
    XmlElement* extra = doc.NewElement();
    ASSERT_NE(extra, nullptr);
    EXPECT_TRUE(seen.insert(extra).second);
    XmlElementBlock* second = doc.ElementBlocks();
    EXPECT_NE(second, head);
    EXPECT_EQ(second->Next(), head);
    EXPECT_EQ(second->FreeCount(), 999);
    EXPECT_EQ(head->FreeCount(), 0);
    EXPECT_EQ(second->Document(), &doc);
}

TEST(ElementBlockTest, ReleasedNodeIsHandedOutNextLastInFirstOut) {
    XmlDocument doc;
    std::vector<XmlElement*> nodes;
    for (int i = 0; i < 10; ++i)
        nodes.push_back(doc.NewElement());
    XmlElementBlock* head = doc.ElementBlocks();
    ASSERT_EQ(head->FreeCount(), 990);

    nodes[3]->Name(u"old");
    nodes[3]->Data(u"old data");
    nodes[3]->AddAttribute(u"k", u"v");
    nodes[3]->Mark(3);
    nodes[3]->Release();
    EXPECT_EQ(head->FreeCount(), 991);
    XmlElement* again = doc.NewElement();
    EXPECT_EQ(again, nodes[3]);
    EXPECT_EQ(head->FreeCount(), 990);
    // Nothing of its former use is left.
    EXPECT_EQ(Str(again->Name()), u"");
    EXPECT_EQ(Str(again->Data()), u"");
    EXPECT_EQ(again->AttributeCount(), 0);
    EXPECT_EQ(again->Mark(), 0);

    // Two releases come back in reverse order.
    nodes[5]->Release();
    nodes[7]->Release();
    EXPECT_EQ(doc.NewElement(), nodes[7]);
    EXPECT_EQ(doc.NewElement(), nodes[5]);
    EXPECT_EQ(head->FreeCount(), 990);
}

TEST(ElementBlockTest, OnlyTheHeadBlockIsAskedForNodes) {
    XmlDocument doc;
    XmlElement* inOldest = doc.NewElement();
    for (int i = 1; i < 1000; ++i)
        doc.NewElement();
    doc.NewElement();  // second block
    XmlElementBlock* oldest = Oldest(doc);
    XmlElementBlock* head = doc.ElementBlocks();
    ASSERT_EQ(ChainLength(doc), 2);

    inOldest->Release();
    EXPECT_EQ(oldest->FreeCount(), 1);
    XmlElement* next = doc.NewElement();
    EXPECT_NE(next, inOldest);
    EXPECT_EQ(head->FreeCount(), 998);
    EXPECT_EQ(oldest->FreeCount(), 1);

    // Spend the head: a third block is made although the oldest has room.
    while (head->FreeCount() > 0)
        doc.NewElement();
    XmlElement* third = doc.NewElement();
    EXPECT_NE(third, inOldest);
    EXPECT_EQ(ChainLength(doc), 3);
    EXPECT_EQ(doc.ElementBlocks()->Next(), head);
    EXPECT_EQ(oldest->FreeCount(), 1);
}

TEST(ElementBlockTest, ABlockBackAtThousandFreeStaysInTheChain) {
    XmlDocument doc;
    std::vector<XmlElement*> nodes;
    for (int i = 0; i < 1001; ++i)
        nodes.push_back(doc.NewElement());
    XmlElementBlock* head = doc.ElementBlocks();
    nodes.back()->Release();
    EXPECT_EQ(head->FreeCount(), 1000);
    EXPECT_EQ(doc.ElementBlocks(), head);
    EXPECT_EQ(ChainLength(doc), 2);
}

TEST(ElementBlockTest, ClearKeepsTheOldestBlockOnly) {
    XmlDocument doc;
    ASSERT_EQ(doc.ParseString(FlatDocument(2499)), errNone);  // 2500 nodes
    ASSERT_EQ(ChainLength(doc), 3);
    EXPECT_EQ(doc.ElementBlocks()->FreeCount(), 500);
    XmlElementBlock* oldest = Oldest(doc);

    doc.Clear();
    EXPECT_EQ(doc.RootElement(), nullptr);
    EXPECT_EQ(doc.ElementBlocks(), oldest);
    EXPECT_EQ(oldest->FreeCount(), 1000);
    EXPECT_EQ(oldest->Next(), nullptr);

    // The next document fills that block before it makes another.
    ASSERT_EQ(doc.ParseString(FlatDocument(999)), errNone);
    EXPECT_EQ(doc.ElementBlocks(), oldest);
    EXPECT_EQ(oldest->FreeCount(), 0);
    ASSERT_EQ(doc.ParseString(FlatDocument(1000)), errNone);
    EXPECT_EQ(ChainLength(doc), 2);
    EXPECT_EQ(doc.ElementBlocks()->Next(), oldest);
    EXPECT_EQ(doc.ElementBlocks()->FreeCount(), 999);
}

TEST(ElementBlockTest, ResetHandsOutNodesAgainFromTheFirst) {
    XmlDocument doc;
    XmlElement* first = doc.NewElement();
    XmlElement* second = doc.NewElement();
    first->Name(u"former");
    first->Data(u"former text");
    first->AddAttribute(u"a", u"1");
    second->Name(u"second");
    doc.Clear();
    // After a reset the free list runs in index order again.
    XmlElement* again = doc.NewElement();
    EXPECT_EQ(again, first);
    EXPECT_EQ(Str(again->Name()), u"");
    EXPECT_EQ(Str(again->Data()), u"");
    EXPECT_EQ(again->AttributeCount(), 0);
    EXPECT_EQ(doc.NewElement(), second);
    // A reparse works from the same block.
    ASSERT_EQ(doc.ParseString(u"<a><b/></a>"), errNone);
    EXPECT_EQ(doc.RootElement(), first);
    EXPECT_EQ(doc.RootElement()->Child(), second);
}

TEST(ElementBlockTest, ParserUsesOneNodePerElement) {
    XmlDocument doc;
    ASSERT_EQ(doc.ParseString(u"<a><b/><c>t</c><b/></a>"), errNone);
    EXPECT_EQ(doc.ElementBlocks()->FreeCount(), 996);
    // A start tag that fails gives its node back.
    EXPECT_EQ(doc.ParseString(u"<a><b c></a>"), errSyntax);
    EXPECT_EQ(doc.ElementBlocks()->FreeCount(), 999);
    ASSERT_NE(doc.RootElement(), nullptr);
    EXPECT_EQ(doc.RootElement()->Child(), nullptr);
}

TEST(NameTableTest, AddAndGet) {
    XmlDocument doc;
    EXPECT_EQ(doc.AddName(u"a"), 0);
    EXPECT_EQ(doc.AddName(u"b"), 1);
    EXPECT_EQ(doc.AddName(u"a"), 0);
    EXPECT_EQ(doc.AddName(u"A"), 2);
    EXPECT_EQ(doc.AddName(u""), 3);  // the empty text is a name too
    EXPECT_EQ(doc.AddName(u""), 3);
    EXPECT_EQ(doc.AddName(u"a\x0301"), 4);
    EXPECT_EQ(Str(doc.GetName(0)), u"a");
    EXPECT_EQ(Str(doc.GetName(1)), u"b");
    EXPECT_EQ(Str(doc.GetName(2)), u"A");
    EXPECT_EQ(Str(doc.GetName(3)), u"");
    EXPECT_EQ(Str(doc.GetName(4)), u"a\x0301");
    for (int bad : {-1, 5, 6, 1000000, -1000000}) {
        SCOPED_TRACE(bad);
        ASSERT_NE(doc.GetName(bad), nullptr);
        EXPECT_EQ(Str(doc.GetName(bad)), u"");
    }
    EXPECT_EQ(doc.AddName(u"c"), 5);  // the table only grew by new names
}

TEST(NameTableTest, EmptyTableGivesEmptyText) {
    XmlDocument doc;
    ASSERT_NE(doc.GetName(0), nullptr);
    EXPECT_EQ(Str(doc.GetName(0)), u"");
    EXPECT_EQ(Str(doc.GetName(-1)), u"");
}

TEST(NameTableTest, IndicesSurviveClearAndReparse) {
    XmlDocument doc;
    ASSERT_EQ(doc.ParseString(u"<a><b/><a/></a>"), errNone);
    EXPECT_EQ(Str(doc.GetName(0)), u"a");
    EXPECT_EQ(Str(doc.GetName(1)), u"b");
    EXPECT_EQ(Str(doc.GetName(2)), u"");
    doc.Clear();
    EXPECT_EQ(Str(doc.GetName(0)), u"a");
    EXPECT_EQ(Str(doc.GetName(1)), u"b");

    // A second document with the same names, in another order, reuses them.
    ASSERT_EQ(doc.ParseString(u"<b><c/><a/></b>"), errNone);
    EXPECT_EQ(Str(doc.GetName(0)), u"a");
    EXPECT_EQ(Str(doc.GetName(1)), u"b");
    EXPECT_EQ(Str(doc.GetName(2)), u"c");
    EXPECT_EQ(Str(doc.GetName(3)), u"");
    EXPECT_EQ(doc.AddName(u"a"), 0);
    EXPECT_EQ(doc.AddName(u"b"), 1);
    EXPECT_EQ(doc.AddName(u"c"), 2);
    XmlElement* root = doc.RootElement();
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(Str(root->Name()), u"b");
    EXPECT_EQ(Str(root->Child()->Name()), u"c");
    EXPECT_EQ(Str(root->Child()->Next()->Name()), u"a");

    // A failed parse adds the names it has read all the same.
    EXPECT_EQ(doc.ParseString(u"<d><e></d>"), errSyntax);
    EXPECT_EQ(doc.AddName(u"d"), 3);
    EXPECT_EQ(doc.AddName(u"e"), 4);
}

TEST(NameTableTest, AttributeNamesAreNotInterned) {
    XmlDocument doc;
    ASSERT_EQ(doc.ParseString(u"<a k='1' m='2'/>"), errNone);
    EXPECT_EQ(Str(doc.GetName(0)), u"a");
    EXPECT_EQ(Str(doc.GetName(1)), u"");
}

TEST(SlabFailureTest, NewElementGivesNullWhenNoBlockCanBeMade) {
    XmlDocument doc;
    {
        SlabFailure fail(0);
        EXPECT_EQ(doc.NewElement(), nullptr);
        EXPECT_EQ(doc.ElementBlocks(), nullptr);
    }
    XmlElement* e = doc.NewElement();
    ASSERT_NE(e, nullptr);
    EXPECT_EQ(doc.ElementBlocks()->FreeCount(), 999);

    // With the head spent, the failure leaves the chain as it was.
    for (int i = 1; i < 1000; ++i)
        ASSERT_NE(doc.NewElement(), nullptr);
    XmlElementBlock* head = doc.ElementBlocks();
    {
        SlabFailure fail(0);
        EXPECT_EQ(doc.NewElement(), nullptr);
    }
    EXPECT_EQ(doc.ElementBlocks(), head);
    EXPECT_EQ(head->FreeCount(), 0);
    EXPECT_EQ(ChainLength(doc), 1);
    EXPECT_NE(doc.NewElement(), nullptr);
    EXPECT_EQ(ChainLength(doc), 2);
}

TEST(SlabFailureTest, ParseFailsCleanlyWithoutAFirstBlock) {
    XmlDocument doc;
    {
        SlabFailure fail(0);
        EXPECT_EQ(doc.ParseString(u"<a/>"), errSyntax);
    }
    EXPECT_EQ(UCString(doc.ErrorMessage()).rfind(u"Out of memory", 0), 0u) << testing::PrintToString(Str(doc.ErrorMessage()));
    EXPECT_EQ(doc.RootElement(), nullptr);
    // The document works normally afterwards.
    ASSERT_EQ(doc.ParseString(u"<a/>"), errNone);
    ASSERT_NE(doc.RootElement(), nullptr);
    EXPECT_EQ(Str(doc.RootElement()->Name()), u"a");
}

TEST(SlabFailureTest, ParseFailsCleanlyWhenTheSecondBlockIsRefused) {
    XmlDocument doc;
    {
        SlabFailure fail(1);  // the first block is granted, the second is not
        EXPECT_EQ(doc.ParseString(FlatDocument(1000)), errSyntax);
    }
    EXPECT_EQ(UCString(doc.ErrorMessage()).rfind(u"Out of memory", 0), 0u) << testing::PrintToString(Str(doc.ErrorMessage()));
    // The failure falls between tokens: the place is that of the last token,
    // the start tag of the 1000th child, read just behind the '>' at column
    // 3 + 999 * 4.
    EXPECT_EQ(doc.ErrorLine(), 1);
    EXPECT_EQ(doc.ErrorCol(), 3999);
    // The tree built so far stays reachable: the root and 999 children.
    XmlElement* root = doc.RootElement();
    ASSERT_NE(root, nullptr);
    int children = 0;
    for (XmlElement* c = root->Child(); c; c = c->Next())
        ++children;
    EXPECT_EQ(children, 999);
    EXPECT_EQ(ChainLength(doc), 1);
    EXPECT_EQ(doc.ElementBlocks()->FreeCount(), 0);
    ASSERT_EQ(doc.ParseString(FlatDocument(1000)), errNone);
    EXPECT_EQ(ChainLength(doc), 2);
}

}  // namespace
