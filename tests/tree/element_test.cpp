// XmlElement and XmlAttribute: names through the document's table, data,
// attributes, the links that Next, Child and their Insert forms make,
// ParentPos, Clear, attribute copies that own their strings, and nodes and
// slabs that cannot be copied, and null arguments.
#include <type_traits>

#include "test_util.h"

namespace {

XmlElement* Make(XmlDocument& doc, const UCChar* name) {
    XmlElement* e = doc.NewElement();
    e->Name(name);
    return e;
}

// Names along the chain that starts at e, joined by ','.
UCString ChainNames(const XmlElement* e) {
    UCString out;
    for (; e; e = e->Next())
        out += (out.empty() ? u"" : u",") + Str(e->Name());
    return out;
}

TEST(XmlElementTest, NamesDataAndAttributes) {
    XmlDocument doc;
    XmlElement* e = doc.NewElement();
    EXPECT_EQ(Str(e->Name()) + Str(e->Data()), u"");
    EXPECT_EQ(e->GetAttributeValue(u"a"), nullptr);
    XmlElement* b = Make(doc, u"item");
    e->Name(u"item");
    Make(doc, u"Item");
    EXPECT_EQ(doc.AddName(u"Item"), 1);  // one entry per name, case counts
    e->Name(u"other");
    EXPECT_EQ(Str(b->Name()), u"item");
    EXPECT_EQ(Str(doc.GetName(2)), u"other");

    e->Data(u"abc");
    e->AddData(u"\xD83D\xDE00");
    EXPECT_EQ(Str(e->Data()), u"abc\xD83D\xDE00");
    EXPECT_EQ(e->DataLength(), 5);  // units, surrogate halves each as one

    e->AddAttribute(u"a", u"1");
    e->AddAttribute(u"a", u"2");
    e->AddAttribute(u"empty", u"");
    ASSERT_EQ(e->AttributeCount(), 3);
    EXPECT_EQ(Str(e->GetAttributeValue(u"a")), u"1");  // the first of two
    EXPECT_EQ(Str(e->GetAttributeValue(1)), u"2");
    EXPECT_EQ(Str(e->GetAttributeValue(u"empty")), u"");
    for (const UCChar* name : {u"A", u"", u"emptyx", u"empt"})
        EXPECT_EQ(e->GetAttributeValue(name), nullptr) << Narrow(name);
    for (int i : {-1, 3, -100}) {
        EXPECT_EQ(e->GetAttributeName(i), nullptr);
        EXPECT_EQ(e->GetAttributeValue(i), nullptr);
    }
}

TEST(XmlElementTest, Links) {
    XmlDocument doc;
    XmlElement* p = Make(doc, u"p");
    XmlElement* a = Make(doc, u"a");
    p->Child(a);
    a->Next(Make(doc, u"b"));
    a->Next(Make(doc, u"c"));
    XmlElement* e = Make(doc, u"e");
    a->Next(e);  // behind the last sibling
    a->InsertNext(Make(doc, u"f"));  // directly behind this one
    EXPECT_EQ(ChainNames(p->Child()), u"a,f,b,c,e");
    EXPECT_EQ(e->Parent(), p);
    EXPECT_EQ(a->Last(), e);
    EXPECT_EQ(e->Last(), nullptr);
    XmlElement* a2 = Make(doc, u"a");
    e->Next(a2);
    EXPECT_EQ(a->FindNext(u"a"), a2);  // never this node
    EXPECT_EQ(a2->FindNext(u"a"), nullptr);
    EXPECT_EQ(a->FindNext(u"C"), nullptr);
    XmlElement* z = Make(doc, u"z");
    p->InsertChild(z);
    EXPECT_EQ(ChainNames(p->Child()), u"z,a,f,b,c,e,a");
    EXPECT_EQ(z->Parent(), p);
    XmlElement* q = Make(doc, u"q");
    XmlElement* w = Make(doc, u"w");
    q->InsertChild(w);
    EXPECT_EQ(q->Child(), w);
    EXPECT_EQ(w->Parent(), q);
    // Child brings the chain of the new node; only that node gets the parent.
    XmlElement* x = Make(doc, u"x");
    XmlElement* y = Make(doc, u"y");
    x->Next(y);
    q->Child(x);
    EXPECT_EQ(ChainNames(q->Child()), u"w,x,y");
    EXPECT_EQ(x->Parent(), q);
    EXPECT_EQ(y->Parent(), nullptr);
}

TEST(XmlElementTest, ParentPosRecordsDataLengthAtAttachment) {
    XmlDocument doc;
    XmlElement* p = Make(doc, u"p");
    XmlElement* x = Make(doc, u"x");
    XmlElement* y = Make(doc, u"y");
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
    // Next and Clear do not write ParentPos.
    XmlElement* q = Make(doc, u"q");
    XmlElement* z = Make(doc, u"z");
    q->Data(u"1234567");
    q->Child(z);
    z->Clear();
    x->Next(z);
    EXPECT_EQ(z->ParentPos(), 7);
}

// A copied node or slab would carry its original's links and free list.
static_assert(!std::is_copy_constructible_v<XmlElement> && !std::is_copy_assignable_v<XmlElement>);
static_assert(!std::is_copy_constructible_v<XmlElementBlock> && !std::is_copy_assignable_v<XmlElementBlock>);

// Null texts count as empty and null nodes are not linked: no call of the
// tree's interface crashes on a null argument.
TEST(XmlElementTest, NullArguments) {
    const UCChar* none = nullptr;
    XmlDocument doc;
    XmlElement* e = doc.NewElement();
    XmlElement* f = doc.NewElement();
    e->Name(none);
    e->AddAttribute(none, none);
    EXPECT_EQ(Str(e->Name()) + Str(e->GetAttributeName(0)) + Str(e->GetAttributeValue(none)), u"");
    XmlAttribute a(none, none);
    a.Name(none), a.Value(none);
    EXPECT_EQ(Str(a.Name()) + Str(a.Value()), u"");
    e->Child(nullptr), e->InsertChild(nullptr), e->Next(nullptr), e->InsertNext(nullptr);
    EXPECT_TRUE(!e->Child() && !e->Next());
    e->Next(f);
    EXPECT_EQ(e->FindNext(none), f);  // f has no name: the empty one
    EXPECT_EQ(doc.AddName(none), doc.AddName(u""));
    EXPECT_EQ(doc.ParseFile(none), errOpenSource);
    EXPECT_EQ(Str(doc.ErrorMessage()), u"Unable to open source file ");
    EXPECT_EQ(doc.ParseDLL(none), errOpenSource);
    EXPECT_EQ(Str(doc.ErrorMessage()), u"Unable to parse DLL specification ''");
}

}  // namespace
