// Copies of a document share its tree. Whatever order copies are cleared,
// reparsed, assigned or destroyed in, the slabs are freed once, nothing
// touches freed memory (the sanitizer build checks), and survivors still read
// their elements.
#include "test_util.h"

namespace {

std::unique_ptr<XmlDocument> Parsed(const UCChar* text = u"<a k='v'>t<b>u</b></a>", BATCHERR expected = errNone) {
    auto doc = std::make_unique<XmlDocument>();
    EXPECT_EQ(doc->ParseString(text), expected);
    return doc;
}

const UCString kTree = u"a{t}[k=v](b{u})";

TEST(DocumentCopyTest, ReparseOrClearEitherAfterACopy) {
    auto orig = Parsed();
    XmlDocument copy(*orig);
    UCString big = u"<c>";  // more than the shared block holds
    for (int i = 0; i < 1500; ++i)
        big += u"<d>text</d>";
    ASSERT_EQ(orig->ParseString(big + u"</c>"), errNone);
    EXPECT_EQ(Tree(copy), kTree);
    ASSERT_EQ(copy.ParseString(u"<z/>"), errNone);
    int n = 0;
    for (XmlElement* d = orig->RootElement()->Child(); d; d = d->Next())
        n += Str(d->Name()) == u"d" && Str(d->Data()) == u"text";
    EXPECT_EQ(n, 1500);
    orig.reset();
    EXPECT_EQ(Tree(copy), u"z{}");

    orig = Parsed();
    XmlDocument first(*orig), second(*orig);
    first.Clear();
    EXPECT_EQ(Tree(first) + u"|" + Tree(*orig), u"|" + kTree);
    orig->Clear();
    ASSERT_EQ(orig->ParseString(u"<p/>"), errNone);
    ASSERT_EQ(first.ParseString(u"<q/>"), errNone);
    EXPECT_EQ(Tree(*orig) + Tree(first) + Tree(second), u"p{}q{}" + kTree);
}

TEST(DocumentCopyTest, CopyOfACopyInEveryDestructionOrder) {
    int order[] = {0, 1, 2};
    do {
        std::unique_ptr<XmlDocument> docs[3];
        docs[0] = Parsed();
        docs[1] = std::make_unique<XmlDocument>(*docs[0]);
        docs[2] = std::make_unique<XmlDocument>(*docs[1]);
        for (int step = 0; step < 3; ++step) {
            docs[order[step]].reset();
            for (auto& d : docs)
                EXPECT_EQ(d ? Tree(*d) : kTree, kTree) << order[0] << order[1] << order[2];
        }
    } while (std::next_permutation(order, order + 3));
}

TEST(DocumentCopyTest, NewBlocksMadeAfterACopy) {
    for (int mode = 0; mode < 4; ++mode) {
        const bool byCopy = mode & 1, destroyMaker = mode & 2;
        auto orig = Parsed();
        auto copy = std::make_unique<XmlDocument>(*orig);
        std::vector<XmlElement*> made;
        for (int i = 0; i < 2500; ++i) {
            made.push_back((byCopy ? *copy : *orig).NewElement());
            ASSERT_NE(made.back(), nullptr);
            made.back()->Name(i % 2 ? u"odd" : u"even");
        }
        EXPECT_EQ(Tree(*orig) + Tree(*copy), kTree + kTree);
        auto& gone = byCopy == destroyMaker ? copy : orig;
        auto& survivor = byCopy == destroyMaker ? orig : copy;
        gone.reset();
        EXPECT_EQ(Tree(*survivor), kTree) << mode;
        for (size_t i = 0; !destroyMaker && i < made.size(); ++i)
            ASSERT_EQ(Str(made[i]->Name()), i % 2 ? u"odd" : u"even") << i;
        ASSERT_EQ(survivor->ParseString(u"<after/>"), errNone);
    }
    // Documents without blocks yet give distinct new elements.
    XmlDocument empty, copy(empty);
    XmlElement *a = empty.NewElement(), *b = copy.NewElement();
    ASSERT_TRUE(a && b && a != b);
    a->Name(u"a");
    b->Name(u"b");
    EXPECT_EQ(Str(a->Name()) + Str(b->Name()), u"ab");
}

TEST(DocumentCopyTest, AssignmentAndCopyAfterAFailure) {
    auto first = Parsed();
    auto shared = std::make_unique<XmlDocument>(*first);
    auto other = Parsed(u"<o>1</o>");
    *shared = *other;  // leaves first's share, joins other's
    EXPECT_EQ(Tree(*first) + Tree(*shared), kTree + u"o{1}");
    first.reset();
    other.reset();
    XmlDocument& self = *shared;
    *shared = self;  // the last holder keeps its tree
    EXPECT_EQ(Tree(*shared), u"o{1}");

    auto failed = Parsed(u"<a>x<b>y</b><c>", errSyntax);
    XmlDocument copy(*failed);
    EXPECT_EQ(Str(copy.ErrorMessage()), Ux(kEof));
    EXPECT_EQ(copy.ErrorLine() * 1000 + copy.ErrorCol(), failed->ErrorLine() * 1000 + failed->ErrorCol());
    failed.reset();
    EXPECT_EQ(Tree(copy), u"a{}(b{y} c{})");
}

}  // namespace
