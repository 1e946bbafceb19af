// Attributes: those the parser reads kept in the slabs' text stores, those a
// program adds owned by their node, both on one element.
#include "test_alloc.h"
#include "test_util.h"

namespace {

// Each count of attributes around the growth steps of a list (4, 8, 16, 32;
// 16 the most the fast reader takes), on a root and on children read by
// either reader (a line break in a tag leaves it to the general one), with
// values around the sizes of text chunks; after a text whose length moves
// the list across the end of the first chunk.
TEST(AttributeStoreTest, CountsAndLengthsAroundEveryBoundary) {
    const size_t lengths[] = {0, 1, 7, 8, 9, 2039, 2040, 2041, 8186, 8187, 8190};
    XmlDocument doc;
    for (int count = 0; count <= 34; ++count) {
        for (size_t lead : {size_t(0), 1990 + size_t(count), 2010 + size_t(count)}) {
            const UCString text(lead, u'x');
            UCString in = u"<r><c>" + text + u"</c>", written = u"<r>" + (lead ? u"<c>" + text + u"</c>" : u"<c/>"),
                           reads[2];
            for (int k = 0; k < 2; ++k) {
                UCString attrs;
                for (int i = 0; i < count; ++i) {
                    const UCString name = Num(u"a", i), value(lengths[size_t(i + count) % 11], UCChar(u'a' + i));
                    attrs += (k ? u"\n" : u" ") + name + u"=\"" + value + u"\"";
                    reads[k] += u"[" + name + u"=" + value + u"]";
                }
                in += u"<c" + attrs + u"/>";
                std::replace(attrs.begin(), attrs.end(), u'\n', u' ');
                written += u"<c" + attrs + u"/>";
            }
            ASSERT_EQ(doc.ParseString(in + u"</r>", false, false), errNone) << count;
            const UCString head = u"r{}(c{" + text + u"} c{}";
            ASSERT_EQ(Tree(doc), head + reads[0] + u" c{}" + reads[1] + u")") << count << ", lead " << lead;
            const auto write = [&](XmlOutputStream& s) { doc.RootElement()->Write(s, 0, false, false, 0, true); };
            EXPECT_EQ(Written(write), written + u"</r>");
            // Added by a program to parsed ones; a copy keeps both.
            doc.RootElement()->Child()->Next()->AddAttribute(u"p", u"q");
            XmlDocument copy(doc);
            doc.Clear();
            EXPECT_EQ(Tree(copy), head + reads[0] + u"[p=q] c{}" + reads[1] + u")");
        }
    }
}

// One value of each length around the first chunk's size and the length
// that takes a chunk of its own, by both readers.
TEST(AttributeStoreTest, ValueLengthsAroundChunkSizes) {
    XmlDocument doc;
    for (size_t n = 2020; n < 8200; n = n == 2045 ? 8160 : n + 1) {
        const UCString v(n, u'v'), in = u"<r a='" + v + u"'><c b='" + v + u"'/><c\nc='" + v + u"'/></r>";
        ASSERT_EQ(doc.ParseString(in, false, false), errNone);
        ASSERT_EQ(Tree(doc), u"r{}[a=" + v + u"](c{}[b=" + v + u"] c{}[c=" + v + u"])") << n;
    }
}

// Each allocation of AddAttribute failing in turn leaves the attributes as
// they were, whatever the number parsed before and added so far.
TEST(AttributeStoreTest, AddedAttributesSurviveFailedAllocations) {
    for (int parsed = 0; parsed <= 9; ++parsed) {
        UCString in = u"<r", tree = u"r{}";
        for (int i = 0; i < parsed; ++i) {
            in += u" " + Num(u"n", i) + u"='" + Num(u"v", i) + u"'";
            tree += u"[" + Num(u"n", i) + u"=" + Num(u"v", i) + u"]";
        }
        XmlDocument doc;
        ASSERT_EQ(doc.ParseString(in + u"/>", false, false), errNone);
        XmlElement* r = doc.RootElement();
        for (int added = 0; added <= 17; ++added) {
            const UCString name = Num(u"m", added);
            for (long fail = 1;; ++fail) {
                TestAlloc::FailAt(fail);
                r->AddAttribute(name.c_str(), u"w");
                const bool failed = !TestAlloc::Armed();
                TestAlloc::FailAt(0);
                if (!failed)
                    break;
                ASSERT_EQ(Tree(doc), tree) << parsed << ", " << added << ", " << fail;
            }
            tree += u"[" + Num(u"m", added) + u"=w]";
            ASSERT_EQ(Tree(doc), tree);
        }
    }
}

}  // namespace
