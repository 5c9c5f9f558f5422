#pragma once
// The private side of one data-store client: its subscriptions and the one
// thread on which their callbacks run.
//
// The store queues notifications here (post) while it holds its own lock, so
// the queue keeps the order of the changes; the notification thread delivers
// them with no lock held, so a callback may call the store and this
// connection again (subscribe, unsubscribe, read, write).
//
// Bounded backlog: while fewer than DataStore::g_exactBacklog notifications wait,
// every one is delivered. Beyond that (subscribers slower than the writers
// for a while), a channel notification supersedes the one of the same
// subscription still waiting: the older one is dropped and the newer one
// goes to the back. What is delivered is then still in the order of the
// changes, and the last change of every channel is always delivered with
// its newest value, which is what a subscriber reading the channel back
// finds anyway; only intermediate values a subscriber could not have kept
// up with are skipped. So the queue never holds more than DataStore::g_exactBacklog
// notifications plus one channel notification per subscription, however
// fast the store is written. Device and alarm notifications name different
// objects or carry their own content, so each of them is delivered.
//
// The notification thread takes the whole queue at once and delivers it
// with the queue's lock released; writers only ever wait for that lock
// while a notification is queued or the queue is taken, never for a
// delivery. Woken by a change to an empty queue, the thread first lets the
// rest of the burst arrive: it pauses for g_gatherPause and, when more
// changes came meanwhile, once more until g_gatherWindow is over. A writer
// changing many channels (a Modbus write of 100 registers) or a steady
// stream of writes thus wakes it twice per window, not once per channel,
// while a single change waits only the short pause. The queue never lags
// further behind the store than one window plus one delivery of at most
// g_exactBacklog notifications plus one per subscription.

#include <cdsapi/DataStore.h>

#include <zu/CAlarmTrigger.h>
#include <zu/CValue.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>

namespace cdsapi {

class ClientConnection {
public:
    // Changes a moment apart belong to one burst; a burst is gathered for
    // g_gatherWindow at the most, which bounds how much later than the
    // store a table shows a change: with the delivery, well within 1 ms.
    static constexpr std::chrono::microseconds g_gatherPause{25};
    static constexpr std::chrono::microseconds g_gatherWindow{400};

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

    // Both called by the store under its lock. A `superseding` event
    // replaces the one of the same subscription still queued.
    bool holds(std::uint64_t subscriptionId);
    void post(std::uint64_t subscriptionId, const Event& event, bool superseding);

private:
    struct Pending {
        std::uint64_t subscriptionId;
        Event event;
    };
    using Queue = std::list<Pending>;

    void run();
    void gatherBurst(std::unique_lock<std::mutex>& lock);
    // Releases the queue for `length`, unless the connection is stopping.
    void pause(std::unique_lock<std::mutex>& lock, std::chrono::microseconds length);
    void deliver(const Pending& pending);
    bool onNotificationThread() const;

    DataStore& m_store;
    // Guards the queue: held by writers posting and by the thread taking it.
    std::mutex m_queueMutex;
    std::condition_variable m_wakeup;
    std::atomic<bool> m_stopping{false};
    Queue m_queue;
    // Where the last superseding event of each subscription waits in
    // m_queue.
    std::unordered_map<std::uint64_t, Queue::iterator> m_queued;
    // Nodes of delivered events, reused so that posting does not allocate.
    Queue m_spare;
    // Guards the subscriptions and which of them is being delivered.
    std::mutex m_deliveryMutex;
    std::condition_variable m_idle;
    std::map<std::uint64_t, std::shared_ptr<const Delivery>> m_deliveries;
    std::uint64_t m_runningSubscriptionId = 0;
    std::thread m_thread;
};

} // namespace cdsapi
