#pragma once

#include <orv/modbus/cds/CdsInBandAccessor.h>

#include "CaughtFailures.h"

#include <cstdint>
#include <exception>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <stdexcept>
#include <utility>
#include <vector>

namespace orv::modbus::cds {

// Reference-counted bookkeeping of one kind of data-store subscription for
// one accessor class: which accessors watch which data-store object (a
// channel or a device id), and the single data-store subscription held for
// that object. The first watcher of an object makes the subscription, the
// last one to leave removes it, so the data store holds one subscription per
// (object, kind) however many accessors share it.
//
// The two maps belong to the accessor class (static members with the names
// its users know); the book only works on them. Its own lock guards the maps
// and is never held while the data store is called: data-store clients may
// need their notification thread to complete a call, and that thread may be
// running a handler that wants these maps.
template <typename Subscriber>
class SubscriptionBook {
public:
    using SubscriberSets = std::map<std::uint64_t, std::set<Subscriber*>>;
    using SubscriptionIds = std::map<std::uint64_t, std::uint64_t>;
    // (object id, subscription id) of a data-store subscription nobody needs
    // any more.
    using Unused = std::vector<std::pair<std::uint64_t, std::uint64_t>>;

    SubscriptionBook(SubscriberSets& subscribers, SubscriptionIds& subscriptionIds)
        : m_subscribers(subscribers)
        , m_subscriptionIds(subscriptionIds)
    {
    }

    SubscriptionBook(const SubscriptionBook&) = delete;
    SubscriptionBook& operator=(const SubscriptionBook&) = delete;

    // Adds `subscriber` to the watchers of `objectId`. When the object has no
    // data-store subscription yet (and no other thread is making one),
    // `subscribe()` is called to make it and must return its id. Returns
    // whether this call made it. Exceptions of `subscribe` propagate; the
    // subscriber then stays registered, so that removing it stays balanced.
    template <typename Subscribe>
    bool add(std::uint64_t objectId, Subscriber* subscriber, Subscribe&& subscribe)
    {
        {
            std::lock_guard lock(m_mutex);
            m_subscribers[objectId].insert(subscriber);
            if (m_subscriptionIds.contains(objectId) || !m_pending.insert(objectId).second) {
                return false;
            }
        }
        std::uint64_t subscriptionId = 0;
        try {
            subscriptionId = subscribe();
        } catch (...) {
            std::lock_guard lock(m_mutex);
            m_pending.erase(objectId);
            throw;
        }
        if (!record(objectId, subscriptionId)) {
            // Every watcher left while the subscription was being made.
            release(subscriptionId);
        }
        return true;
    }

    // Removes `subscriber` from the watchers of `objectId`; the last one to
    // leave releases the data-store subscription. Returns whether it did.
    // Never throws: an object or subscriber that was never registered is
    // simply ignored.
    bool remove(std::uint64_t objectId, Subscriber* subscriber) noexcept
    {
        std::uint64_t subscriptionId = 0;
        {
            std::lock_guard lock(m_mutex);
            const auto unused = forgetLocked(objectId, subscriber);
            if (!unused) {
                return false;
            }
            subscriptionId = *unused;
        }
        release(subscriptionId);
        return true;
    }

    // Removes `subscriber` from every object it watches, without calling the
    // data store: the caller releases the returned subscriptions once it no
    // longer holds locks a notification could be waiting for.
    Unused forget(Subscriber* subscriber)
    {
        std::lock_guard lock(m_mutex);
        std::vector<std::uint64_t> watched;
        for (const auto& [objectId, subscribers] : m_subscribers) {
            if (subscribers.contains(subscriber)) {
                watched.push_back(objectId);
            }
        }
        Unused unused;
        for (const auto objectId : watched) {
            if (const auto subscriptionId = forgetLocked(objectId, subscriber)) {
                unused.emplace_back(objectId, *subscriptionId);
            }
        }
        return unused;
    }

    // A copy of the watchers of `objectId`, so that handlers can iterate
    // while detections change the book. Throws std::out_of_range when nobody
    // watches the object.
    std::set<Subscriber*> subscribersOf(std::uint64_t objectId) const
    {
        std::lock_guard lock(m_mutex);
        return m_subscribers.at(objectId);
    }

    static void release(std::uint64_t subscriptionId) noexcept
    {
        try {
            CdsInBandAccessor::getInstance().unsubscribe(subscriptionId);
        } catch (const std::exception&) {
            // The subscription is gone either way.
            CaughtFailures::log("Releasing a data-store subscription", ORV_SOURCE_HERE);
        }
    }

private:
    // Returns the subscription id to release when `subscriber` was the last
    // watcher of an object whose subscription is already made.
    std::optional<std::uint64_t> forgetLocked(std::uint64_t objectId, Subscriber* subscriber)
    {
        const auto set = m_subscribers.find(objectId);
        if (set == m_subscribers.end() || set->second.erase(subscriber) == 0 || !set->second.empty()) {
            return std::nullopt;
        }
        m_subscribers.erase(set);
        const auto subscription = m_subscriptionIds.find(objectId);
        if (subscription == m_subscriptionIds.end()) {
            // Still being made: add() releases it when it sees nobody left.
            return std::nullopt;
        }
        const auto subscriptionId = subscription->second;
        m_subscriptionIds.erase(subscription);
        return subscriptionId;
    }

    // Stores the id of a subscription just made; false when nobody watches
    // the object any more.
    bool record(std::uint64_t objectId, std::uint64_t subscriptionId)
    {
        std::lock_guard lock(m_mutex);
        m_pending.erase(objectId);
        if (!m_subscribers.contains(objectId)) {
            return false;
        }
        m_subscriptionIds[objectId] = subscriptionId;
        return true;
    }

    SubscriberSets& m_subscribers;
    SubscriptionIds& m_subscriptionIds;
    mutable std::mutex m_mutex;
    // Objects whose data-store subscription is being made right now.
    std::set<std::uint64_t> m_pending;
};

} // namespace orv::modbus::cds
