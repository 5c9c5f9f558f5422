#pragma once
// What the data-store accessors (channel, device, alarm) share to reach the
// data store's notifications: the one subscription each kind makes for an
// object, the guard that keeps exceptions out of the notification thread, and
// the destructor's way out of the bookkeeping.

#include <orv/modbus/cds/SubscriberWalks.h>

#include "SubscriptionBook.h"

#include <zu/sub/SubscriptionType.h>

#include <cstdint>
#include <initializer_list>
#include <vector>

namespace orv::modbus::cds {

// A static handler of an accessor class, called with the object's id.
using NotificationHandler = void (*)(std::uint64_t);

// Make the one data-store subscription of a kind for `objectId`, whose
// notifications call `handler` with that id; return its subscription id.
std::uint64_t subscribeChannelTo(std::uint64_t channelId, zu::sub::subscription_type type,
                                 NotificationHandler handler);
std::uint64_t subscribeDeviceTo(std::uint64_t deviceId, zu::sub::subscription_type type,
                                NotificationHandler handler);
std::uint64_t subscribeAlarmsTo(std::uint64_t channelId, NotificationHandler handler);

// The first step of an accessor's destructor: leaves the walks of its class
// (see SubscriberWalks) and every object it watches in `books`, not only
// those its ids name now (a detection may have left it watching an earlier
// device or channel). Returns, book by book in the order given, the
// subscriptions nobody needs any more, for releaseUnused once no lock is
// held.
template <typename Accessor>
std::vector<typename SubscriptionBook<Accessor>::Unused>
leaveBookkeeping(SubscriberWalks<Accessor>& walks, std::initializer_list<SubscriptionBook<Accessor>*> books,
                 Accessor* accessor)
{
    const auto walksLeft = walks.leave(accessor);
    std::vector<typename SubscriptionBook<Accessor>::Unused> unused;
    for (auto* book : books) {
        unused.push_back(book->forget(accessor));
    }
    return unused;
}

template <typename Accessor>
void releaseUnused(const std::vector<typename SubscriptionBook<Accessor>::Unused>& unused) noexcept
{
    for (const auto& book : unused) {
        for (const auto& [objectId, subscriptionId] : book) {
            SubscriptionBook<Accessor>::release(subscriptionId);
        }
    }
}

} // namespace orv::modbus::cds
