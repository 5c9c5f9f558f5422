#pragma once
// The private side of one data-store client: its subscriptions and the one
// thread on which their callbacks run.
//
// The store queues notifications here (post) while it holds its own lock, so
// the queue keeps the order of the changes; the notification thread delivers
// them with no lock held, so a callback may call the store and this
// connection again (subscribe, unsubscribe, read, write).

#include <cdsapi/DataStore.h>

#include <zu/CAlarmTrigger.h>
#include <zu/CValue.h>

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace cdsapi {

class ClientConnection {
public:
    // What one notification carries to a subscription.
    struct Event {
        std::uint64_t objectId = 0;
        zu::CValue value;
        zu::CAlarmUpdate alarm;
    };
    using Delivery = std::function<void(const Event&)>;

    ClientConnection(DataStore& store, const std::string& clientName);
    ~ClientConnection();
    ClientConnection(const ClientConnection&) = delete;
    ClientConnection& operator=(const ClientConnection&) = delete;

    void subscribe(DataStore::Target target, std::uint32_t type, std::uint64_t objectId, bool recursive,
                   Delivery delivery, std::uint64_t* subscriptionId);
    void unsubscribe(std::uint64_t subscriptionId);

    // Both called by the store under its lock.
    bool holds(std::uint64_t subscriptionId);
    void post(std::uint64_t subscriptionId, const Event& event);

private:
    struct Pending {
        std::uint64_t subscriptionId;
        Event event;
    };

    void run();
    bool onNotificationThread() const;

    DataStore& m_store;
    std::mutex m_mutex;
    std::condition_variable m_wakeup;
    std::condition_variable m_idle;
    std::deque<Pending> m_queue;
    std::map<std::uint64_t, std::shared_ptr<const Delivery>> m_deliveries;
    std::uint64_t m_runningSubscriptionId = 0;
    bool m_stopping = false;
    std::thread m_thread;
};

} // namespace cdsapi
