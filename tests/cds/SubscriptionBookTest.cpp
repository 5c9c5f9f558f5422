#include "SubscriptionBook.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace orv::modbus::cds {
namespace {

// Stand-in watchers; the book only keeps their addresses.
struct Watcher {};

class SubscriptionBookTest : public ::testing::Test {
protected:
    using Book = SubscriptionBook<Watcher>;

    // A subscription id the shared client never handed out, so that
    // releasing it through the client does nothing.
    static constexpr std::uint64_t g_subscriptionId = 0xABCDEF0123ull;

    auto subscribeCounted()
    {
        return [this] {
            ++m_subscribeCalls;
            return g_subscriptionId;
        };
    }

    Book::SubscriberSets m_subscribers;
    Book::SubscriptionIds m_subscriptionIds;
    Book m_book{m_subscribers, m_subscriptionIds};
    int m_subscribeCalls = 0;
    Watcher m_first;
    Watcher m_second;
};

TEST_F(SubscriptionBookTest, FirstWatcherSubscribesAndLastOneReleases)
{
    EXPECT_TRUE(m_book.add(5, &m_first, subscribeCounted()));
    EXPECT_FALSE(m_book.add(5, &m_second, subscribeCounted()));
    EXPECT_FALSE(m_book.add(5, &m_second, subscribeCounted()));
    EXPECT_EQ(m_subscribeCalls, 1);
    EXPECT_EQ(m_subscribers.at(5), (std::set<Watcher*>{&m_first, &m_second}));
    EXPECT_EQ(m_subscriptionIds.at(5), g_subscriptionId);

    EXPECT_FALSE(m_book.remove(5, &m_first));
    EXPECT_EQ(m_subscriptionIds.at(5), g_subscriptionId);
    EXPECT_TRUE(m_book.remove(5, &m_second));
    EXPECT_TRUE(m_subscribers.empty());
    EXPECT_TRUE(m_subscriptionIds.empty());
    EXPECT_FALSE(m_book.remove(5, &m_second));
}

TEST_F(SubscriptionBookTest, RemovingWhatWasNeverAddedIsIgnored)
{
    m_book.add(5, &m_first, subscribeCounted());
    EXPECT_FALSE(m_book.remove(6, &m_first));
    EXPECT_FALSE(m_book.remove(5, &m_second));
    EXPECT_EQ(m_subscribers.at(5).size(), 1u);
    EXPECT_EQ(m_subscriptionIds.size(), 1u);
}

TEST_F(SubscriptionBookTest, SubscribersOfUnwatchedObjectIsOutOfRange)
{
    EXPECT_THROW(m_book.subscribersOf(5), std::out_of_range);
    m_book.add(5, &m_first, subscribeCounted());
    EXPECT_EQ(m_book.subscribersOf(5), std::set<Watcher*>{&m_first});
}

TEST_F(SubscriptionBookTest, ForgetLeavesEveryObjectAndReturnsWhatNobodyNeeds)
{
    m_book.add(1, &m_first, [] { return std::uint64_t{0xA0000001}; });
    m_book.add(2, &m_first, [] { return std::uint64_t{0xA0000002}; });
    m_book.add(2, &m_second, subscribeCounted());
    const auto unused = m_book.forget(&m_first);
    EXPECT_EQ(unused, (Book::Unused{{1, 0xA0000001}}));
    EXPECT_EQ(m_subscribers.count(1), 0u);
    EXPECT_EQ(m_subscribers.at(2), std::set<Watcher*>{&m_second});
    EXPECT_EQ(m_subscriptionIds.at(2), 0xA0000002u);
}

TEST_F(SubscriptionBookTest, FailedSubscriptionIsRetriedByTheNextWatcher)
{
    EXPECT_THROW(m_book.add(5, &m_first, []() -> std::uint64_t { throw std::runtime_error("refused"); }),
                 std::runtime_error);
    EXPECT_TRUE(m_subscribers.at(5).contains(&m_first));
    EXPECT_FALSE(m_subscriptionIds.contains(5));
    EXPECT_TRUE(m_book.add(5, &m_second, subscribeCounted()));
    EXPECT_EQ(m_subscriptionIds.at(5), g_subscriptionId);
}

TEST_F(SubscriptionBookTest, SubscriptionMadeWhileEveryWatcherLeftIsReleased)
{
    const bool made = m_book.add(5, &m_first, [this] {
        // Another thread joins and everybody leaves while the data store is
        // still making the subscription.
        EXPECT_FALSE(m_book.add(5, &m_second, subscribeCounted()));
        EXPECT_FALSE(m_book.remove(5, &m_first));
        EXPECT_FALSE(m_book.remove(5, &m_second));
        return g_subscriptionId;
    });
    EXPECT_TRUE(made);
    EXPECT_EQ(m_subscribeCalls, 0);
    EXPECT_TRUE(m_subscribers.empty());
    EXPECT_TRUE(m_subscriptionIds.empty());

    // Nothing is left pending: the next watcher subscribes again.
    EXPECT_TRUE(m_book.add(5, &m_first, subscribeCounted()));
    EXPECT_EQ(m_subscribeCalls, 1);
}

TEST_F(SubscriptionBookTest, WatcherJoiningWhileTheSubscriptionIsMadeKeepsIt)
{
    m_book.add(5, &m_first, [this] {
        EXPECT_FALSE(m_book.add(5, &m_second, subscribeCounted()));
        EXPECT_FALSE(m_book.remove(5, &m_first));
        return g_subscriptionId;
    });
    EXPECT_EQ(m_subscribeCalls, 0);
    EXPECT_EQ(m_subscribers.at(5), std::set<Watcher*>{&m_second});
    EXPECT_EQ(m_subscriptionIds.at(5), g_subscriptionId);
}

} // namespace
} // namespace orv::modbus::cds
