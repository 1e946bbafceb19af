// XmlDeque: appends never move stored elements, an empty queue costs one
// pointer, and the queue works as a stack across its chunk borders against a
// vector; copies and moves own their elements.
#include <gtest/gtest.h>

#include <vector>

#include "xmlapi.h"

namespace {

template <class T>
std::vector<T> Contents(const XmlDeque<T>& q) {
    std::vector<T> out(q.begin(), q.end());
    for (size_t i = 0; i < q.size(); ++i)
        EXPECT_EQ(q[i], out[i]) << "index and iterator disagree at " << i;
    return out;
}

TEST(XmlDequeTest, StackAcrossChunkBordersMatchesAVector) {
    static_assert(sizeof(XmlDeque<std::u16string>) == sizeof(void*), "an empty queue must cost one pointer");
    XmlDeque<std::u16string> q;
    std::vector<std::u16string> model;
    std::vector<const std::u16string*> where;
    int next = 0;
    // Long strings live on the heap, so that a leak or a double free shows.
    for (int target : {1, 0, 17, 15, 16, 48, 3, 200, 199, 201, 0, 5000, 31, 4000, 0, 64}) {
        SCOPED_TRACE(target);
        while (int(model.size()) < target) {
            model.push_back(std::u16string(30, u'a') + char16_t(next++));
            q.push_back(model.back());
            where.push_back(&q.back());
        }
        while (int(model.size()) > target) {
            ASSERT_EQ(q.back(), model.back());
            if (model.size() % 2)
                q.pop_back();
            else
                EXPECT_EQ(q.take_back(), model.back());
            model.pop_back();
            where.pop_back();
        }
        ASSERT_EQ(q.size(), model.size());
        EXPECT_EQ(q.empty(), model.empty());
        EXPECT_EQ(Contents(q), model);
        for (size_t i = 0; i < where.size(); ++i)
            ASSERT_EQ(&q[i], where[i]) << "moved at " << i;
    }
    q.clear();
    EXPECT_TRUE(q.begin() == q.end());
    q.reserve(3);  // a first chunk of three, grown past as usual
    for (const char16_t* s : {u"r1", u"r2", u"r3", u"r4"})
        q.push_back(s);
    EXPECT_EQ(Contents(q), (std::vector<std::u16string>{u"r1", u"r2", u"r3", u"r4"}));
    q.clear();
    q.push_back(u"two");
    EXPECT_EQ(Contents(q), std::vector<std::u16string>{u"two"});
}

TEST(XmlDequeTest, CopyAssignMoveAndSwap) {
    XmlDeque<std::u16string> q;
    for (int i = 0; i < 100; ++i)
        q.push_back(std::u16string(30, char16_t(u'0' + i % 10)));
    XmlDeque<std::u16string> copy(q);
    copy[0] = u"changed";
    copy.push_back(u"extra");
    EXPECT_EQ(q[0], std::u16string(30, u'0'));
    XmlDeque<std::u16string> assigned;
    assigned.push_back(u"to be replaced");
    assigned = q;
    XmlDeque<std::u16string>& self = assigned;
    assigned = self;
    EXPECT_EQ(Contents(assigned), Contents(q));
    XmlDeque<std::u16string> moved(std::move(copy));
    EXPECT_EQ(moved.size(), 101u);
    EXPECT_EQ(moved[0], u"changed");
    EXPECT_TRUE(copy.empty());
    assigned = std::move(moved);
    EXPECT_EQ(assigned.back(), u"extra");
    EXPECT_TRUE(moved.empty());
    for (int i = 0; i < 90; ++i)
        q.pop_back();
    XmlDeque<std::u16string> small(q);
    EXPECT_EQ(Contents(small), Contents(q));
    small.swap(assigned);
    EXPECT_EQ(small.size(), 101u);
    EXPECT_EQ(assigned.size(), 10u);
}

}  // namespace
