// Element slabs of 1000 nodes, their chain in the document, node reuse, the
// name table, and the failure of a slab allocation.
#include <set>

#include "platform/ozmmem.h"
#include "test_util.h"

namespace {

// Makes the slab allocator fail after `count` more allocations while alive.
struct SlabFailure {
    explicit SlabFailure(long count) { OzmMemFailAfter(count); }
    ~SlabFailure() { OzmMemFailAfter(-1); }
};

int ChainLength(const XmlDocument& doc) {
    int n = 0;
    for (XmlElementBlock* b = doc.ElementBlocks(); b; b = b->Next())
        ++n;
    return n;
}

// A root with a thousand children: a node more than a slab holds.
const UCString kFlat = u"<r>" + Repeat(u"<x/>", 1000) + u"</r>";

TEST(ElementBlockTest, BlocksOfAThousandAndNodeReuse) {
    XmlDocument doc;
    std::vector<XmlElement*> nodes;
    for (int i = 0; i < 1000; ++i)
        nodes.push_back(doc.NewElement());
    XmlElementBlock* head = doc.ElementBlocks();
    EXPECT_EQ(std::set<XmlElement*>(nodes.begin(), nodes.end()).size(), 1000u);
    EXPECT_EQ(head->FreeCount(), 0);
    EXPECT_EQ(head->Document(), &doc);
    // Released nodes come back last in first out, emptied.
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
    // The 1001st node opens a second block, the new head; only the head is
    // asked for nodes, even when an older block has room.
    XmlElement* extra = doc.NewElement();
    EXPECT_EQ(doc.ElementBlocks()->Next(), head);
    nodes[0]->Release();
    EXPECT_NE(doc.NewElement(), nodes[0]);
    EXPECT_EQ(doc.ElementBlocks()->FreeCount(), 998);
    extra->Release();
    EXPECT_EQ(ChainLength(doc), 2);
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

// A name added may lie in a name of the table, which moves when the table
// grows: each tail of a known name is a new name, and the table grows at 32,
// 64 and 128 names.
TEST(NameTableTest, NamesTakenFromTheTableSurviveItsGrowth) {
    XmlDocument doc;
    const UCString expected = u"abcdefghijklmnopqrstuvwxyz0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ-._abcdefghijklmnopqrstuvwxyz0123";
    for (const size_t length : {size_t(3), size_t(12)}) {
        int last = doc.AddName(expected.substr(0, length).c_str());
        for (size_t i = 1; i + length <= expected.size(); ++i) {
            const int added = doc.AddName(doc.GetName(last) + 1);
            ASSERT_EQ(Str(doc.GetName(added)), expected.substr(i, length - 1)) << i;
            last = doc.AddName(expected.substr(i, length).c_str());
        }
    }
}

TEST(SlabFailureTest, RefusedBlocksLeaveTheChainAndTheTreeAsTheyWere) {
    XmlDocument doc;
    {
        SlabFailure fail(0);
        EXPECT_EQ(doc.NewElement(), nullptr);
        EXPECT_EQ(doc.ElementBlocks(), nullptr);
    }
    {
        SlabFailure fail(1);  // the first block is granted, the second is not
        EXPECT_EQ(doc.ParseString(kFlat), errSyntax);
    }
    EXPECT_EQ(UCString(doc.ErrorMessage()).rfind(u"Out of memory", 0), 0u) << Narrow(doc.ErrorMessage());
    // The place is that of the last token, the 1000th child's start tag,
    // read just behind its '>' at column 3 + 999 * 4.
    EXPECT_EQ(doc.ErrorLine(), 1);
    EXPECT_EQ(doc.ErrorCol(), 3999);
    int children = 0;
    for (XmlElement* c = doc.RootElement()->Child(); c; c = c->Next())
        ++children;
    EXPECT_EQ(children, 999);
    EXPECT_EQ(ChainLength(doc), 1);
    EXPECT_EQ(doc.ElementBlocks()->FreeCount(), 0);
    ASSERT_EQ(doc.ParseString(kFlat), errNone);
    EXPECT_EQ(ChainLength(doc), 2);
}

}  // namespace
