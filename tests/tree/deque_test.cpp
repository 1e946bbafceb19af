// XmlDeque: appends never move stored elements, an empty queue holds no
// storage, and the queue works as a stack across its chunk borders.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "xmlapi.h"

namespace {

template <class T>
std::vector<T> Contents(const XmlDeque<T>& q) {
    std::vector<T> out;
    for (const T& v : q)
        out.push_back(v);
    return out;
}

template <class T>
std::vector<T> Indexed(const XmlDeque<T>& q) {
    std::vector<T> out;
    for (size_t i = 0; i < q.size(); ++i)
        out.push_back(q[i]);
    return out;
}

TEST(XmlDequeTest, EmptyQueueIsOnePointer) {
    static_assert(sizeof(XmlDeque<int>) == sizeof(void*), "an empty queue must cost one pointer");
    static_assert(sizeof(XmlDeque<std::u16string>) == sizeof(void*), "an empty queue must cost one pointer");
    XmlDeque<int> q;
    EXPECT_TRUE(q.empty());
    EXPECT_EQ(q.size(), 0u);
    EXPECT_TRUE(q.begin() == q.end());
    q.clear();
    EXPECT_TRUE(q.empty());
    XmlDeque<int> copy(q);
    EXPECT_TRUE(copy.empty());
}

TEST(XmlDequeTest, AppendsNeverMoveStoredElements) {
    XmlDeque<int> q;
    std::vector<const int*> where;
    for (int i = 0; i < 10000; ++i) {
        q.push_back(i);
        where.push_back(&q.back());
    }
    ASSERT_EQ(q.size(), 10000u);
    for (int i = 0; i < 10000; ++i) {
        ASSERT_EQ(&q[size_t(i)], where[size_t(i)]) << i;
        ASSERT_EQ(*where[size_t(i)], i) << i;
    }
    EXPECT_EQ(q.front(), 0);
    EXPECT_EQ(q.back(), 9999);
    EXPECT_EQ(&q.front(), where.front());
}

TEST(XmlDequeTest, StringElementsStayPutAndAreDestroyed) {
    XmlDeque<std::u16string> q;
    std::vector<const std::u16string*> where;
    for (int i = 0; i < 3000; ++i) {
        // Long enough to live on the heap, so that a leak or a double free shows.
        q.emplace_back(std::u16string(40, char16_t(u'a' + i % 26)));
        where.push_back(&q.back());
    }
    for (int i = 0; i < 3000; ++i)
        ASSERT_EQ((*where[size_t(i)])[0], char16_t(u'a' + i % 26)) << i;
    for (int i = 0; i < 1500; ++i)
        q.pop_back();
    EXPECT_EQ(q.size(), 1500u);
    for (int i = 0; i < 1500; ++i)
        ASSERT_EQ(&q[size_t(i)], where[size_t(i)]) << i;
    std::u16string last = q.take_back();
    EXPECT_EQ(last, std::u16string(40, char16_t(u'a' + 1499 % 26)));
    EXPECT_EQ(q.size(), 1499u);
}

TEST(XmlDequeTest, StackUseAcrossChunkBorders) {
    XmlDeque<int> q;
    std::vector<int> model;
    // Grow and shrink repeatedly over several chunk borders.
    const int targets[] = {1, 0, 17, 15, 16, 48, 3, 200, 199, 201, 0, 5000, 31, 4000, 0, 64};
    int next = 0;
    for (int target : targets) {
        SCOPED_TRACE(target);
        while (int(model.size()) < target) {
            q.push_back(next);
            model.push_back(next);
            ++next;
        }
        while (int(model.size()) > target) {
            ASSERT_EQ(q.back(), model.back());
            if (model.size() % 2)
                q.pop_back();
            else
                EXPECT_EQ(q.take_back(), model.back());
            model.pop_back();
        }
        ASSERT_EQ(q.size(), model.size());
        EXPECT_EQ(q.empty(), model.empty());
        EXPECT_EQ(Contents(q), model);
        EXPECT_EQ(Indexed(q), model);
        if (!model.empty()) {
            EXPECT_EQ(q.front(), model.front());
            EXPECT_EQ(q.back(), model.back());
        }
    }
}

TEST(XmlDequeTest, CopyAssignAndMove) {
    XmlDeque<std::u16string> q;
    for (int i = 0; i < 100; ++i)
        q.push_back(std::u16string(30, char16_t(u'0' + i % 10)));
    XmlDeque<std::u16string> copy(q);
    ASSERT_EQ(Contents(copy), Contents(q));
    EXPECT_NE(&copy[0], &q[0]);
    copy[0] = u"changed";
    copy.push_back(u"extra");
    EXPECT_EQ(q[0], std::u16string(30, u'0'));
    EXPECT_EQ(q.size(), 100u);

    XmlDeque<std::u16string> assigned;
    assigned.push_back(u"to be replaced");
    assigned = q;
    EXPECT_EQ(Contents(assigned), Contents(q));
    XmlDeque<std::u16string>& self = assigned;
    assigned = self;
    EXPECT_EQ(Contents(assigned), Contents(q));

    XmlDeque<std::u16string> moved(std::move(copy));
    EXPECT_EQ(moved.size(), 101u);
    EXPECT_EQ(moved[0], u"changed");
    EXPECT_EQ(moved.back(), u"extra");
    EXPECT_TRUE(copy.empty());  // the source is left empty
    assigned = std::move(moved);
    EXPECT_EQ(assigned.size(), 101u);
    EXPECT_TRUE(moved.empty());

    // A copy of a queue that was shrunk holds only what is left.
    for (int i = 0; i < 90; ++i)
        q.pop_back();
    XmlDeque<std::u16string> small(q);
    EXPECT_EQ(small.size(), 10u);
    EXPECT_EQ(Contents(small), Contents(q));
}

TEST(XmlDequeTest, ClearFreesAndAllowsReuse) {
    XmlDeque<std::u16string> q;
    for (int round = 0; round < 3; ++round) {
        SCOPED_TRACE(round);
        for (int i = 0; i < 1000; ++i)
            q.push_back(std::u16string(20, u'x') + std::u16string(1, char16_t(u'a' + round)));
        EXPECT_EQ(q.size(), 1000u);
        EXPECT_EQ(q.back().back(), char16_t(u'a' + round));
        q.clear();
        EXPECT_TRUE(q.empty());
        EXPECT_TRUE(q.begin() == q.end());
    }
    // Emptied by pops, then filled again.
    q.push_back(u"one");
    q.pop_back();
    EXPECT_TRUE(q.empty());
    EXPECT_TRUE(q.begin() == q.end());
    q.push_back(u"two");
    EXPECT_EQ(Contents(q), std::vector<std::u16string>{u"two"});
}

TEST(XmlDequeTest, IterationAndSwap) {
    XmlDeque<int> a;
    XmlDeque<int> b;
    for (int i = 0; i < 50; ++i)
        a.push_back(i * i);
    b.push_back(-1);
    std::vector<int> expected;
    for (int i = 0; i < 50; ++i)
        expected.push_back(i * i);
    int n = 0;
    for (auto it = a.begin(); it != a.end(); it++, ++n)
        EXPECT_EQ(*it, expected[size_t(n)]);
    EXPECT_EQ(n, 50);
    // Writing through a mutable iterator changes the element in place.
    for (int& v : a)
        v += 1;
    for (int& v : expected)
        v += 1;
    EXPECT_EQ(Contents(a), expected);
    a.swap(b);
    EXPECT_EQ(Contents(b), expected);
    EXPECT_EQ(Contents(a), std::vector<int>{-1});
}

}  // namespace
