// Copies of a document share its tree. Whatever order the copies are
// cleared, reparsed, assigned or destroyed in, the slabs are freed once, no
// object touches freed memory (the sanitizer build checks this), and the
// survivors still read the names of their elements.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "test_util.h"

namespace {


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
    XmlDocument& self = *shared;
    *shared = self;  // the last holder keeps its tree
    ASSERT_NE(shared->RootElement(), nullptr);
    EXPECT_EQ(Str(shared->RootElement()->Name()), u"o");
    EXPECT_EQ(Str(shared->RootElement()->Data()), u"1");
}

TEST(DocumentCopyTest, CopiesOfDocumentsWithoutBlocks) {
    XmlDocument empty;
    XmlDocument copy(empty);
    XmlElement* a = empty.NewElement();
    XmlElement* b = copy.NewElement();
    ASSERT_TRUE(a && b && a != b);
    a->Name(u"a");
    b->Name(u"b");
    EXPECT_EQ(Str(a->Name()) + Str(b->Name()), u"ab");
}

TEST(DocumentCopyTest, CopyAfterAFailedParse) {
    auto orig = Parsed(u"<a>x<b>y</b><c>", errSyntax);
    XmlDocument copy(*orig);
    EXPECT_EQ(Str(copy.ErrorMessage()), Ux(kEof));
    EXPECT_EQ(copy.ErrorLine(), orig->ErrorLine());
    EXPECT_EQ(copy.ErrorCol(), orig->ErrorCol());
    orig.reset();
    XmlElement* a = copy.RootElement();
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(Str(a->Name()), u"a");
    EXPECT_EQ(Str(a->Child()->Data()), u"y");
    EXPECT_EQ(Str(a->Child()->Next()->Name()), u"c");
    ASSERT_EQ(copy.ParseString(u"<d/>"), errNone);
}

}  // namespace
