// Copies of a document share its tree. Whatever order the copies are
// cleared, reparsed, assigned or destroyed in, the slabs are freed once, no
// object touches freed memory (the sanitizer build checks this), and the
// survivors still read the names of their elements.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "xmlapi.h"

namespace {

UCString Str(const UCChar* p) { return p ? UCString(p) : UCString(u"<null>"); }

const UCChar* const kSource = u"<a k='v'>t<b>u</b></a>";

std::unique_ptr<XmlDocument> Parsed(const UCChar* text = kSource, BATCHERR expected = errNone) {
    auto doc = std::make_unique<XmlDocument>();
    EXPECT_EQ(doc->ParseString(text), expected);
    return doc;
}

// The tree of kSource, read through doc.
void ExpectSourceTree(const XmlDocument& doc) {
    XmlElement* a = doc.RootElement();
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(Str(a->Name()), u"a");
    EXPECT_EQ(Str(a->Data()), u"t");
    EXPECT_EQ(Str(a->GetAttributeValue(u"k")), u"v");
    XmlElement* b = a->Child();
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(Str(b->Name()), u"b");
    EXPECT_EQ(Str(b->Data()), u"u");
    EXPECT_EQ(b->Parent(), a);
}

TEST(DocumentCopyTest, CopySharesTheTreeAndCopiesTheRest) {
    auto orig = Parsed();
    XmlDocument copy(*orig);
    EXPECT_EQ(copy.RootElement(), orig->RootElement());
    EXPECT_EQ(copy.ElementBlocks(), orig->ElementBlocks());
    EXPECT_EQ(Str(copy.GetName(0)), u"a");
    EXPECT_EQ(Str(copy.GetName(1)), u"b");
    EXPECT_EQ(copy.AddName(u"b"), 1);
    EXPECT_EQ(Str(copy.ErrorFile()), u"string");
    EXPECT_EQ(copy.ErrorLine(), orig->ErrorLine());
    EXPECT_EQ(copy.ErrorCol(), orig->ErrorCol());
    ExpectSourceTree(copy);
}

TEST(DocumentCopyTest, DestroyTheOriginalFirst) {
    auto orig = Parsed();
    XmlDocument copy(*orig);
    orig.reset();
    ExpectSourceTree(copy);
    // The survivor goes on working normally.
    ASSERT_EQ(copy.ParseString(u"<n><m/></n>"), errNone);
    EXPECT_EQ(Str(copy.RootElement()->Child()->Name()), u"m");
}

TEST(DocumentCopyTest, DestroyTheCopyFirst) {
    auto orig = Parsed();
    {
        XmlDocument copy(*orig);
        ExpectSourceTree(copy);
    }
    ExpectSourceTree(*orig);
    ASSERT_EQ(orig->ParseString(u"<n/>"), errNone);
    EXPECT_EQ(Str(orig->RootElement()->Name()), u"n");
}

TEST(DocumentCopyTest, Assignment) {
    auto orig = Parsed();
    XmlDocument target;
    ASSERT_EQ(target.ParseString(u"<x><y/><y/></x>"), errNone);
    XmlElement* oldRoot = target.RootElement();
    target = *orig;
    EXPECT_EQ(target.RootElement(), orig->RootElement());
    EXPECT_NE(target.RootElement(), oldRoot);
    orig.reset();
    ExpectSourceTree(target);

    // Self-assignment changes nothing.
    XmlDocument& self = target;
    target = self;
    ExpectSourceTree(target);
}

TEST(DocumentCopyTest, ReparseEitherAfterACopy) {
    auto orig = Parsed();
    XmlDocument copy(*orig);
    // The original reads a bigger document than the shared block holds.
    UCString big = u"<c>";
    for (int i = 0; i < 1500; ++i)
        big += u"<d>text</d>";
    big += u"</c>";
    ASSERT_EQ(orig->ParseString(big), errNone);
    ExpectSourceTree(copy);
    EXPECT_EQ(Str(orig->RootElement()->Name()), u"c");
    EXPECT_EQ(Str(orig->RootElement()->Child()->Data()), u"text");

    // And the copy reads another one; the original's tree stays.
    ASSERT_EQ(copy.ParseString(u"<z/>"), errNone);
    EXPECT_EQ(Str(copy.RootElement()->Name()), u"z");
    int n = 0;
    for (XmlElement* d = orig->RootElement()->Child(); d; d = d->Next()) {
        ASSERT_EQ(Str(d->Name()), u"d");
        ++n;
    }
    EXPECT_EQ(n, 1500);
    orig.reset();
    EXPECT_EQ(Str(copy.RootElement()->Name()), u"z");
}

TEST(DocumentCopyTest, ClearEitherAfterACopy) {
    auto orig = Parsed();
    XmlDocument copy(*orig);
    copy.Clear();
    EXPECT_EQ(copy.RootElement(), nullptr);
    ExpectSourceTree(*orig);
    XmlDocument second(*orig);
    orig->Clear();
    EXPECT_EQ(orig->RootElement(), nullptr);
    ExpectSourceTree(second);
    ASSERT_EQ(orig->ParseString(u"<p/>"), errNone);
    ASSERT_EQ(copy.ParseString(u"<q/>"), errNone);
    ExpectSourceTree(second);
    EXPECT_EQ(Str(orig->RootElement()->Name()), u"p");
    EXPECT_EQ(Str(copy.RootElement()->Name()), u"q");
}

TEST(DocumentCopyTest, CopyOfACopyInEveryDestructionOrder) {
    int order[] = {0, 1, 2};
    do {
        SCOPED_TRACE(testing::Message() << order[0] << order[1] << order[2]);
        std::unique_ptr<XmlDocument> docs[3];
        docs[0] = Parsed();
        docs[1] = std::make_unique<XmlDocument>(*docs[0]);
        docs[2] = std::make_unique<XmlDocument>(*docs[1]);
        for (int step = 0; step < 3; ++step) {
            docs[order[step]].reset();
            for (auto& d : docs)
                if (d)
                    ExpectSourceTree(*d);
        }
    } while (std::next_permutation(order, order + 3));
}

TEST(DocumentCopyTest, NewElementOnEitherAfterACopy) {
    for (bool destroyOriginal : {true, false}) {
        SCOPED_TRACE(destroyOriginal);
        auto orig = Parsed();
        auto copy = std::make_unique<XmlDocument>(*orig);
        XmlElement* e = copy->NewElement();
        XmlElement* f = orig->NewElement();
        ASSERT_NE(e, nullptr);
        ASSERT_NE(f, nullptr);
        EXPECT_NE(e, f);
        e->Name(u"fromCopy");
        f->Name(u"fromOrig");
        EXPECT_EQ(Str(e->Name()), u"fromCopy");
        EXPECT_EQ(Str(f->Name()), u"fromOrig");
        XmlElement* root = orig->RootElement();
        root->Child(e);
        root->Child(f);
        std::unique_ptr<XmlDocument>& survivor = destroyOriginal ? copy : orig;
        (destroyOriginal ? orig : copy).reset();
        ExpectSourceTree(*survivor);
        XmlElement* b = survivor->RootElement()->Child();
        ASSERT_NE(b->Next(), nullptr);
        EXPECT_EQ(Str(b->Next()->Name()), u"fromCopy");
        ASSERT_NE(b->Next()->Next(), nullptr);
        EXPECT_EQ(Str(b->Next()->Next()->Name()), u"fromOrig");
    }
}

TEST(DocumentCopyTest, NewBlocksMadeAfterACopy) {
    for (bool byCopy : {true, false}) {
        for (bool destroyMaker : {true, false}) {
            SCOPED_TRACE(testing::Message() << byCopy << destroyMaker);
            auto orig = Parsed();
            auto copy = std::make_unique<XmlDocument>(*orig);
            XmlDocument& maker = byCopy ? *copy : *orig;
            std::vector<XmlElement*> made;
            for (int i = 0; i < 2500; ++i) {
                XmlElement* e = maker.NewElement();
                ASSERT_NE(e, nullptr);
                e->Name(i % 2 ? u"odd" : u"even");
                e->Data(u"d");
                made.push_back(e);
            }
            ExpectSourceTree(*orig);
            ExpectSourceTree(*copy);
            std::unique_ptr<XmlDocument>& gone = (byCopy == destroyMaker) ? copy : orig;
            std::unique_ptr<XmlDocument>& survivor = (byCopy == destroyMaker) ? orig : copy;
            gone.reset();
            ExpectSourceTree(*survivor);
            if (!destroyMaker) {
                // The maker survives: its own nodes are still in use.
                for (size_t i = 0; i < made.size(); ++i)
                    ASSERT_EQ(Str(made[i]->Name()), i % 2 ? u"odd" : u"even") << i;
            }
            ASSERT_EQ(survivor->ParseString(u"<after/>"), errNone);
            EXPECT_EQ(Str(survivor->RootElement()->Name()), u"after");
        }
    }
}

TEST(DocumentCopyTest, AssignmentIntoASharedDocument) {
    auto first = Parsed();
    auto shared = std::make_unique<XmlDocument>(*first);
    auto other = Parsed(u"<o>1</o>");
    *shared = *other;  // leaves first's share, joins other's
    ExpectSourceTree(*first);
    EXPECT_EQ(Str(shared->RootElement()->Name()), u"o");
    first.reset();
    other.reset();
    ASSERT_NE(shared->RootElement(), nullptr);
    EXPECT_EQ(Str(shared->RootElement()->Name()), u"o");
    EXPECT_EQ(Str(shared->RootElement()->Data()), u"1");
}

TEST(DocumentCopyTest, CopiesOfDocumentsWithoutBlocks) {
    XmlDocument empty;
    XmlDocument copy(empty);
    EXPECT_EQ(copy.ElementBlocks(), nullptr);
    XmlElement* a = empty.NewElement();
    XmlElement* b = copy.NewElement();
    ASSERT_NE(a, nullptr);
    ASSERT_NE(b, nullptr);
    EXPECT_NE(a, b);
    a->Name(u"a");
    b->Name(u"b");
    EXPECT_EQ(Str(a->Name()), u"a");
    EXPECT_EQ(Str(b->Name()), u"b");
    XmlDocument assigned;
    assigned = empty;
    EXPECT_EQ(Str(a->Name()), u"a");
}

TEST(DocumentCopyTest, CopyAfterAFailedParse) {
    auto orig = Parsed(u"<a>x<b>y</b><c>", errSyntax);
    XmlDocument copy(*orig);
    EXPECT_EQ(UCString(copy.ErrorMessage()), UCString(orig->ErrorMessage()));
    EXPECT_NE(UCString(copy.ErrorMessage()), u"");
    orig.reset();
    XmlElement* a = copy.RootElement();
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(Str(a->Name()), u"a");
    EXPECT_EQ(Str(a->Child()->Data()), u"y");
    EXPECT_EQ(Str(a->Child()->Next()->Name()), u"c");
    ASSERT_EQ(copy.ParseString(u"<d/>"), errNone);
}

}  // namespace
