// The text of nodes: parsed text kept in the slabs' text stores, across
// chunks, reparses and copies of the document; text set by a program owned by
// its node, including text taken from the node itself.
#include "test_util.h"

namespace {

// A root with n children whose texts have the lengths of sizes, in turn; each
// text repeats the letter of its child's index.
UCString Document(int n, const std::vector<size_t>& sizes, std::vector<UCString>& texts) {
    UCString doc = u"<r>";
    texts.clear();
    for (int i = 0; i < n; ++i) {
        texts.push_back(UCString(sizes[size_t(i) % sizes.size()], UCChar(u'a' + i % 26)));
        doc += u"<c>" + texts.back() + u"</c>";
    }
    return doc + u"</r>";
}

TEST(TextStoreTest, ParsedTextSurvivesChunksReparsesAndCopies) {
    // Short texts fill the chunks; 9,000 units take a chunk of their own
    // while the current one goes on filling; 3,000 units start a new one.
    const std::vector<size_t> sizes = {1, 7, 8, 100, 9000, 3, 3000, 0};
    XmlDocument doc;
    std::vector<UCString> texts;
    for (int round = 0; round < 3; ++round) {
        const int n = round == 1 ? 2500 : 1200;  // the second round spans three slabs
        ASSERT_EQ(doc.ParseString(Document(n, sizes, texts), false, false), errNone);
        XmlDocument copy(doc);
        if (round == 2)
            doc.Clear();  // the copy keeps the slabs and their text
        const XmlElement* c = copy.RootElement()->Child();
        for (int i = 0; i < n; ++i, c = c->Next()) {
            ASSERT_NE(c, nullptr);
            ASSERT_EQ(Str(c->Data()), texts[size_t(i)]) << "round " << round << ", child " << i;
            ASSERT_EQ(c->DataLength(), long(texts[size_t(i)].size()));
        }
        EXPECT_EQ(c, nullptr);
    }
}

TEST(TextStoreTest, DataSetByAProgram) {
    XmlDocument doc;
    ASSERT_EQ(doc.ParseString(u"<r>parsed text<c/>tail</r>", false, false), errNone);
    XmlElement* r = doc.RootElement();
    EXPECT_EQ(Str(r->Data()), u"parsed texttail");
    struct Step {
        void (*apply)(XmlElement*);
        const char16_t* data;
    };
    const Step steps[] = {
        {[](XmlElement* e) { e->AddData(u"+"); }, u"parsed texttail+"},
        {[](XmlElement* e) { e->AddData(e->Data()); }, u"parsed texttail+parsed texttail+"},
        {[](XmlElement* e) { e->Data(e->Data() + 7); }, u"texttail+parsed texttail+"},
        {[](XmlElement* e) { e->AddData(e->Data() + 20); }, u"texttail+parsed texttail+tail+"},
        {[](XmlElement* e) { e->Data(u"a\0b"); }, u"a"},
        {[](XmlElement* e) { e->Data(u""); }, u""},
        {[](XmlElement* e) { e->AddData(nullptr), e->Data(nullptr); }, u""},
        {[](XmlElement* e) { e->AddData(u"x"); }, u"x"},
        {[](XmlElement* e) { e->AddData(u"y"); }, u"xy"},
        {[](XmlElement* e) { e->AddData(e->Data() + 1); }, u"xyy"},  // in place
    };
    for (const Step& s : steps) {
        s.apply(r);
        EXPECT_EQ(Str(r->Data()), s.data);
        EXPECT_EQ(r->DataLength(), long(UCString(s.data).size()));
    }
    // The first child's text is still the parse's, and the writer sees the
    // program's text.
    EXPECT_EQ(Str(r->Child()->Data()), u"");
    UCString all;
    r->GetData(all, XMLD_Markup);
    EXPECT_EQ(all, u"xyy<c></c>");
}

}  // namespace
