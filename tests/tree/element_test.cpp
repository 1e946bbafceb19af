// XmlElement and XmlAttribute: links, attributes, data, ParentPos and marks
// on nodes handed out by a document.
#include <type_traits>
#include <gtest/gtest.h>

#include "xmlapi.h"

namespace {

// Text of a getter that must not be null, for comparisons.
UCString Str(const UCChar* p) { return p ? UCString(p) : UCString(u"<null>"); }

// A named node of doc.
XmlElement* Make(XmlDocument& doc, const UCChar* name) {
    XmlElement* e = doc.NewElement();
    EXPECT_NE(e, nullptr);
    if (e)
        e->Name(name);
    return e;
}

// Names along the chain that starts at e, joined by ','.
UCString ChainNames(const XmlElement* e) {
    UCString out;
    for (; e; e = e->Next()) {
        if (!out.empty())
            out += u',';
        out += e->Name();
    }
    return out;
}

TEST(XmlElementTest, FreshNodeIsEmpty) {
    XmlDocument doc;
    XmlElement* e = doc.NewElement();
    ASSERT_NE(e, nullptr);
    ASSERT_NE(e->Name(), nullptr);
    EXPECT_EQ(Str(e->Name()), u"");
    ASSERT_NE(e->Data(), nullptr);
    EXPECT_EQ(Str(e->Data()), u"");
    EXPECT_EQ(e->DataLength(), 0);
    EXPECT_EQ(e->AttributeCount(), 0);
    EXPECT_EQ(e->Mark(), 0);
    EXPECT_EQ(e->Next(), nullptr);
    EXPECT_EQ(e->Child(), nullptr);
    EXPECT_EQ(e->Parent(), nullptr);
    EXPECT_EQ(e->Last(), nullptr);
    EXPECT_EQ(e->GetAttributeName(0), nullptr);
    EXPECT_EQ(e->GetAttributeValue(u"a"), nullptr);
}

TEST(XmlElementTest, NameGoesThroughTheDocumentTable) {
    XmlDocument doc;
    XmlElement* a = Make(doc, u"item");
    XmlElement* b = Make(doc, u"item");
    XmlElement* c = Make(doc, u"Item");
    EXPECT_EQ(Str(a->Name()), u"item");
    EXPECT_EQ(Str(b->Name()), u"item");
    EXPECT_EQ(Str(c->Name()), u"Item");
    // One entry for the repeated name, a second one for the other case.
    EXPECT_EQ(doc.AddName(u"item"), 0);
    EXPECT_EQ(doc.AddName(u"Item"), 1);
    EXPECT_EQ(Str(doc.GetName(2)), u"");
    // Renaming stores a new index; the old name stays in the table.
    a->Name(u"other");
    EXPECT_EQ(Str(a->Name()), u"other");
    EXPECT_EQ(Str(b->Name()), u"item");
    EXPECT_EQ(Str(doc.GetName(2)), u"other");
}

TEST(XmlElementTest, DataSetAppendAndLength) {
    XmlDocument doc;
    XmlElement* e = doc.NewElement();
    e->Data(u"abc");
    EXPECT_EQ(Str(e->Data()), u"abc");
    EXPECT_EQ(e->DataLength(), 3);
    e->AddData(u"de");
    EXPECT_EQ(Str(e->Data()), u"abcde");
    EXPECT_EQ(e->DataLength(), 5);
    e->Data(u"");
    EXPECT_EQ(Str(e->Data()), u"");
    EXPECT_EQ(e->DataLength(), 0);
    // Lengths count 16-bit units, surrogate halves each as one.
    e->Data(u"\xD83D\xDE00x");
    EXPECT_EQ(e->DataLength(), 3);
}

TEST(XmlElementTest, AttributesKeepOrderAndAllowRepeats) {
    XmlDocument doc;
    XmlElement* e = doc.NewElement();
    e->AddAttribute(u"a", u"1");
    e->AddAttribute(u"a", u"2");
    e->AddAttribute(u"empty", u"");
    ASSERT_EQ(e->AttributeCount(), 3);
    // The lookup by name finds the first of two equal names.
    EXPECT_EQ(Str(e->GetAttributeValue(u"a")), u"1");
    EXPECT_EQ(Str(e->GetAttributeValue(1)), u"2");
    EXPECT_EQ(Str(e->GetAttributeName(1)), u"a");
    EXPECT_EQ(Str(e->GetAttributeName(2)), u"empty");
    // An empty value is an empty text, an absent attribute is null.
    ASSERT_NE(e->GetAttributeValue(u"empty"), nullptr);
    EXPECT_EQ(Str(e->GetAttributeValue(u"empty")), u"");
    EXPECT_EQ(e->GetAttributeValue(u"missing"), nullptr);
    // Names compare exactly: no case folding, no prefix match.
    EXPECT_EQ(e->GetAttributeValue(u"A"), nullptr);
    EXPECT_EQ(e->GetAttributeValue(u""), nullptr);
    EXPECT_EQ(e->GetAttributeValue(u"emptyx"), nullptr);
    EXPECT_EQ(e->GetAttributeValue(u"empt"), nullptr);
    // Out-of-range indices give null.
    for (int i : {-1, 3, 100, -100}) {
        SCOPED_TRACE(i);
        EXPECT_EQ(e->GetAttributeName(i), nullptr);
        EXPECT_EQ(e->GetAttributeValue(i), nullptr);
    }
}

TEST(XmlElementTest, MarkReturnsPreviousValue) {
    XmlDocument doc;
    XmlElement* e = doc.NewElement();
    EXPECT_EQ(e->Mark(5), 0);
    EXPECT_EQ(e->Mark(7), 5);
    EXPECT_EQ(e->Mark(), 7);
    EXPECT_EQ(e->Mark(-3), 7);
    EXPECT_EQ(e->Mark(), -3);
}

TEST(XmlElementTest, NextAppendsBehindTheLastSibling) {
    XmlDocument doc;
    XmlElement* p = Make(doc, u"p");
    XmlElement* a = Make(doc, u"a");
    XmlElement* b = Make(doc, u"b");
    XmlElement* c = Make(doc, u"c");
    XmlElement* e = Make(doc, u"e");
    XmlElement* f = Make(doc, u"f");
    p->Child(a);
    a->Next(b);
    a->Next(c);
    EXPECT_EQ(ChainNames(p->Child()), u"a,b,c");
    // Next(e) on the first of three goes behind the third.
    a->Next(e);
    EXPECT_EQ(ChainNames(a), u"a,b,c,e");
    EXPECT_EQ(e->Parent(), p);
    EXPECT_EQ(e->Next(), nullptr);
    // InsertNext on the same node goes directly behind it.
    a->InsertNext(f);
    EXPECT_EQ(ChainNames(a), u"a,f,b,c,e");
    EXPECT_EQ(f->Parent(), p);
    // Last() is the end of the chain, null when there is nothing behind.
    EXPECT_EQ(a->Last(), e);
    EXPECT_EQ(c->Last(), e);
    EXPECT_EQ(e->Last(), nullptr);
    // Next/InsertNext give the parent of this node, not this node.
    XmlElement* g = Make(doc, u"g");
    p->Next(g);
    EXPECT_EQ(p->Next(), g);
    EXPECT_EQ(g->Parent(), nullptr);
}

TEST(XmlElementTest, FindNextSearchesOnlyFollowingSiblings) {
    XmlDocument doc;
    XmlElement* a = Make(doc, u"a");
    XmlElement* b = Make(doc, u"b");
    XmlElement* c = Make(doc, u"c");
    a->Next(b);
    a->Next(c);
    EXPECT_EQ(a->FindNext(u"c"), c);
    EXPECT_EQ(a->FindNext(u"b"), b);
    EXPECT_EQ(a->FindNext(u"a"), nullptr);  // never this node
    EXPECT_EQ(a->FindNext(u"C"), nullptr);
    EXPECT_EQ(a->FindNext(u""), nullptr);
    EXPECT_EQ(b->FindNext(u"b"), nullptr);
    EXPECT_EQ(c->FindNext(u"c"), nullptr);
    // A repeat further on is found from the first one.
    XmlElement* a2 = Make(doc, u"a");
    a->Next(a2);
    EXPECT_EQ(a->FindNext(u"a"), a2);
    EXPECT_EQ(b->FindNext(u"a"), a2);
    // A node without a name matches the empty text.
    XmlElement* unnamed = doc.NewElement();
    a->Next(unnamed);
    EXPECT_EQ(a->FindNext(u""), unnamed);
}

TEST(XmlElementTest, ChildAndInsertChild) {
    XmlDocument doc;
    XmlElement* p = Make(doc, u"p");
    XmlElement* x = Make(doc, u"x");
    XmlElement* y = Make(doc, u"y");
    XmlElement* z = Make(doc, u"z");
    p->Child(x);
    p->Child(y);
    EXPECT_EQ(ChainNames(p->Child()), u"x,y");
    p->InsertChild(z);
    EXPECT_EQ(p->Child(), z);
    EXPECT_EQ(z->Next(), x);
    EXPECT_EQ(ChainNames(p->Child()), u"z,x,y");
    for (XmlElement* e : {x, y, z})
        EXPECT_EQ(e->Parent(), p);
    // InsertChild on a node without children makes the only child.
    XmlElement* q = Make(doc, u"q");
    XmlElement* w = Make(doc, u"w");
    q->InsertChild(w);
    EXPECT_EQ(q->Child(), w);
    EXPECT_EQ(w->Next(), nullptr);
    EXPECT_EQ(w->Parent(), q);
}

TEST(XmlElementTest, ChildBringsTheSiblingChainOfTheNewNode) {
    XmlDocument doc;
    XmlElement* p = Make(doc, u"p");
    XmlElement* x = Make(doc, u"x");
    XmlElement* y = Make(doc, u"y");
    x->Next(y);  // x has no parent, so neither has y
    p->Child(x);
    EXPECT_EQ(ChainNames(p->Child()), u"x,y");
    EXPECT_EQ(x->Parent(), p);
    EXPECT_EQ(y->Parent(), nullptr);  // only the node passed gets the parent
}

TEST(XmlElementTest, ParentPosRecordsDataLengthAtAttachment) {
    XmlDocument doc;
    XmlElement* p = Make(doc, u"p");
    XmlElement* x = Make(doc, u"x");
    XmlElement* y = Make(doc, u"y");
    XmlElement* z = Make(doc, u"z");
    XmlElement* first = Make(doc, u"first");
    p->Data(u"abc");
    p->Child(x);
    p->AddData(u"de");
    p->Child(y);
    p->AddData(u"fghij");
    p->InsertChild(first);
    EXPECT_EQ(x->ParentPos(), 3);
    EXPECT_EQ(y->ParentPos(), 5);
    EXPECT_EQ(first->ParentPos(), 10);
    EXPECT_EQ(Str(p->Data()), u"abcdefghij");
    // Next does not write ParentPos: z keeps what it had.
    XmlElement* q = Make(doc, u"q");
    q->Data(u"1234567");
    q->Child(z);
    ASSERT_EQ(z->ParentPos(), 7);
    z->Clear();  // Clear leaves ParentPos alone
    EXPECT_EQ(z->ParentPos(), 7);
    x->Next(z);
    EXPECT_EQ(z->ParentPos(), 7);
    EXPECT_EQ(ChainNames(p->Child()), u"first,x,y,");
}

TEST(XmlElementTest, ClearEmptiesTheNodeButNotItsNeighbours) {
    XmlDocument doc;
    XmlElement* p = Make(doc, u"p");
    XmlElement* c = Make(doc, u"c");
    XmlElement* s = Make(doc, u"s");
    p->Child(c);
    c->Next(s);
    p->Data(u"text");
    p->AddAttribute(u"k", u"v");
    p->Mark(9);
    p->Clear();
    EXPECT_EQ(Str(p->Name()), u"");
    EXPECT_EQ(Str(p->Data()), u"");
    EXPECT_EQ(p->AttributeCount(), 0);
    EXPECT_EQ(p->Mark(), 0);
    EXPECT_EQ(p->Child(), nullptr);
    // The former child still points at its parent and keeps its sibling.
    EXPECT_EQ(c->Parent(), p);
    EXPECT_EQ(c->Next(), s);
    EXPECT_EQ(Str(c->Name()), u"c");
    c->Clear();
    EXPECT_EQ(c->Next(), nullptr);
    EXPECT_EQ(c->Parent(), nullptr);
    EXPECT_EQ(s->Parent(), p);
}

// A copied node or slab would carry its original's links and free list.
static_assert(!std::is_copy_constructible_v<XmlElement> && !std::is_copy_assignable_v<XmlElement>);
static_assert(!std::is_copy_constructible_v<XmlElementBlock> && !std::is_copy_assignable_v<XmlElementBlock>);

TEST(XmlAttributeTest, ValueSemantics) {
    XmlAttribute empty;
    ASSERT_NE(empty.Name(), nullptr);
    ASSERT_NE(empty.Value(), nullptr);
    EXPECT_EQ(Str(empty.Name()), u"");
    EXPECT_EQ(Str(empty.Value()), u"");

    XmlAttribute a(u"n", u"v");
    XmlAttribute b(a);
    a.Value(u"changed");
    EXPECT_EQ(Str(b.Name()), u"n");
    EXPECT_EQ(Str(b.Value()), u"v");
    b = a;
    EXPECT_EQ(Str(b.Value()), u"changed");
    XmlAttribute& self = b;
    b = self;
    EXPECT_EQ(Str(b.Name()), u"n");
    EXPECT_EQ(Str(b.Value()), u"changed");
    b.Name(u"m");
    EXPECT_EQ(Str(b.Name()), u"m");
    EXPECT_EQ(Str(a.Name()), u"n");
}

}  // namespace
