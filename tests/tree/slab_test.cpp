// Element slabs of 1000 nodes, their chain in the document, node reuse, the
// name table, and the failure of a slab allocation.
#include <gtest/gtest.h>

#include <set>
#include <vector>

#include "ozmmem.h"
#include "test_util.h"

namespace {


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

TEST(ElementBlockTest, BlocksOfAThousandAndNodeReuse) {
    XmlDocument doc;
    EXPECT_EQ(doc.ElementBlocks(), nullptr);
    std::vector<XmlElement*> nodes;
    for (int i = 0; i < 1000; ++i)
        nodes.push_back(doc.NewElement());
    XmlElementBlock* head = doc.ElementBlocks();
    EXPECT_EQ(std::set<XmlElement*>(nodes.begin(), nodes.end()).size(), 1000u);
    EXPECT_EQ(head->FreeCount(), 0);
    EXPECT_EQ(head->Document(), &doc);
    // A released node comes back next, last in first out, with nothing of
    // its former use left.
    nodes[3]->Name(u"old");
    nodes[3]->Data(u"old data");
    nodes[3]->AddAttribute(u"k", u"v");
    nodes[3]->Release();
    nodes[5]->Release();
    EXPECT_EQ(head->FreeCount(), 2);
    EXPECT_EQ(doc.NewElement(), nodes[5]);
    XmlElement* again = doc.NewElement();
    EXPECT_EQ(again, nodes[3]);
    EXPECT_EQ(Str(again->Name()) + Str(again->Data()), u"");
    EXPECT_EQ(again->AttributeCount(), 0);
    // The 1001st node opens a second block, which becomes the head; only the
    // head is asked for nodes, even when an older block has room.
    XmlElement* extra = doc.NewElement();
    XmlElementBlock* second = doc.ElementBlocks();
    EXPECT_EQ(second->Next(), head);
    EXPECT_EQ(second->FreeCount(), 999);
    nodes[0]->Release();
    XmlElement* other = doc.NewElement();
    EXPECT_NE(other, nodes[0]);
    EXPECT_EQ(head->FreeCount(), 1);
    // A block back at a thousand free stays in the chain.
    extra->Release();
    other->Release();
    EXPECT_EQ(second->FreeCount(), 1000);
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

TEST(NameTableTest, IndicesSurviveClearAndReparse) {
    XmlDocument doc;
    EXPECT_EQ(Str(doc.GetName(0)), u"");
    ASSERT_EQ(doc.ParseString(u"<a k='1'><b/><a/></a>"), errNone);
    doc.Clear();
    ASSERT_EQ(doc.ParseString(u"<b><c/><a/></b>"), errNone);
    // Attribute names are not interned; a failed parse adds the names read.
    EXPECT_EQ(doc.ParseString(u"<d><e></d>"), errSyntax);
    for (const UCChar* name : {u"a", u"b", u"c", u"d", u"e", u"", u"A"})
        EXPECT_EQ(Str(doc.GetName(doc.AddName(name))), name);
    EXPECT_EQ(doc.AddName(u"d"), 3);
    EXPECT_EQ(doc.AddName(u""), 5);
    for (int bad : {-1, 7, 1000000})
        EXPECT_EQ(Str(doc.GetName(bad)), u"");
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
