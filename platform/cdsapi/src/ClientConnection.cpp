#include "ClientConnection.h"

#include <orv/logging/Logger.h>

#include <exception>

#include <pthread.h>

namespace cdsapi {
namespace {

// Linux limits thread names to 15 characters.
std::string threadName(const std::string& clientName)
{
    return ("cds:" + clientName).substr(0, 15);
}

// A subscriber's failure is the subscriber's business; the data store only
// leaves a trace of it at debug level.
void logFailedDelivery(std::uint64_t subscriptionId, const char* reason)
{
    SPDLOG_LOGGER_DEBUG(orv::logging::getLogger("cdsapi"), "Notification of subscription {} failed: {}",
                        subscriptionId, reason);
}

} // namespace

ClientConnection::ClientConnection(DataStore& store, const std::string& clientName)
    : m_store(store)
{
    m_thread = std::thread(&ClientConnection::run, this);
    pthread_setname_np(m_thread.native_handle(), threadName(clientName).c_str());
}

ClientConnection::~ClientConnection()
{
    m_store.removeSubscriptions(*this);
    {
        const std::lock_guard lock(m_queueMutex);
        m_stopping = true;
        m_queue.clear();
        m_queued.clear();
    }
    m_wakeup.notify_all();
    m_thread.join();
}

void ClientConnection::subscribe(DataStore::Target target, std::uint32_t type, std::uint64_t objectId,
                                 bool recursive, Delivery delivery, std::uint64_t* subscriptionId)
{
    const std::uint64_t id = m_store.allocateSubscriptionId();
    // The caller learns the id before any callback of it can run, so a
    // callback may use it to unsubscribe itself.
    if (subscriptionId != nullptr) {
        *subscriptionId = id;
    }
    {
        const std::lock_guard lock(m_deliveryMutex);
        m_deliveries.emplace(id, std::make_shared<const Delivery>(std::move(delivery)));
    }
    m_store.addSubscription(*this, id, target, type, objectId, recursive);
}

void ClientConnection::unsubscribe(std::uint64_t subscriptionId)
{
    // Once the store forgets the subscription nothing new is queued for it;
    // what is queued already is skipped because its delivery is gone.
    m_store.removeSubscription(*this, subscriptionId);
    std::shared_ptr<const Delivery> dropped;
    {
        std::unique_lock lock(m_deliveryMutex);
        const auto found = m_deliveries.find(subscriptionId);
        if (found == m_deliveries.end()) {
            return;
        }
        dropped = std::move(found->second);
        m_deliveries.erase(found);
        if (!onNotificationThread()) {
            m_idle.wait(lock, [&] { return m_runningSubscriptionId != subscriptionId; });
        }
    }
    // The callback object is destroyed here, with no lock held: whatever it
    // captured may call back into the store or this connection.
}

bool ClientConnection::holds(std::uint64_t subscriptionId)
{
    const std::lock_guard lock(m_deliveryMutex);
    return m_deliveries.count(subscriptionId) != 0;
}

void ClientConnection::post(std::uint64_t subscriptionId, const Event& event, bool superseding)
{
    bool wasEmpty = false;
    {
        const std::lock_guard lock(m_queueMutex);
        if (m_stopping) {
            return;
        }
        wasEmpty = m_queue.empty();
        const auto queued = superseding ? m_queued.find(subscriptionId) : m_queued.end();
        if (queued != m_queued.end() && m_queue.size() >= DataStore::g_exactBacklog) {
            m_queue.splice(m_queue.end(), m_queue, queued->second);
            queued->second->event = event;
            return;
        }
        if (m_spare.empty()) {
            m_queue.push_back(Pending{subscriptionId, event});
        } else {
            m_queue.splice(m_queue.end(), m_spare, m_spare.begin());
            m_queue.back() = Pending{subscriptionId, event};
        }
        if (superseding) {
            m_queued.insert_or_assign(subscriptionId, std::prev(m_queue.end()));
        }
    }
    // The thread only sleeps on an empty queue.
    if (wasEmpty) {
        m_wakeup.notify_one();
    }
}

void ClientConnection::run()
{
    // At most this many delivered nodes are kept for reuse.
    constexpr std::size_t g_spareLimit = 1024;
    std::unique_lock lock(m_queueMutex);
    Queue batch;
    for (;;) {
        if (m_queue.empty()) {
            m_wakeup.wait(lock, [this] { return m_stopping || !m_queue.empty(); });
            gatherBurst(lock);
        }
        if (m_stopping) {
            return;
        }
        batch.splice(batch.end(), m_queue);
        m_queued.clear();
        lock.unlock();
        for (const Pending& pending : batch) {
            if (m_stopping) {
                return;
            }
            deliver(pending);
        }
        lock.lock();
        if (m_spare.size() < g_spareLimit) {
            m_spare.splice(m_spare.end(), batch);
        }
        batch.clear();
    }
}

void ClientConnection::gatherBurst(std::unique_lock<std::mutex>& lock)
{
    const std::size_t woken = m_queue.size();
    pause(lock, g_gatherPause);
    // More came meanwhile: a burst or a steady stream, gathered in one more
    // pause rather than in many short ones, each a wake-up.
    if (m_queue.size() > woken) {
        pause(lock, g_gatherWindow - g_gatherPause);
    }
}

void ClientConnection::pause(std::unique_lock<std::mutex>& lock, std::chrono::microseconds length)
{
    if (m_stopping) {
        return;
    }
    lock.unlock();
    std::this_thread::sleep_for(length);
    lock.lock();
}

void ClientConnection::deliver(const Pending& pending)
{
    std::unique_lock lock(m_deliveryMutex);
    const auto found = m_deliveries.find(pending.subscriptionId);
    if (found == m_deliveries.end()) {
        return;
    }
    auto delivery = found->second;
    m_runningSubscriptionId = pending.subscriptionId;
    lock.unlock();
    try {
        (*delivery)(pending.event);
    } catch (const std::exception& error) {
        // A failing subscriber must not stop the notifications of the
        // others.
        logFailedDelivery(pending.subscriptionId, error.what());
    } catch (...) {
        logFailedDelivery(pending.subscriptionId, "unknown error");
    }
    delivery.reset();
    lock.lock();
    m_runningSubscriptionId = 0;
    m_idle.notify_all();
}

bool ClientConnection::onNotificationThread() const
{
    return std::this_thread::get_id() == m_thread.get_id();
}

} // namespace cdsapi
