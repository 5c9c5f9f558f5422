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
        const std::lock_guard lock(m_mutex);
        m_stopping = true;
        m_queue.clear();
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
        const std::lock_guard lock(m_mutex);
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
        std::unique_lock lock(m_mutex);
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
    const std::lock_guard lock(m_mutex);
    return m_deliveries.count(subscriptionId) != 0;
}

void ClientConnection::post(std::uint64_t subscriptionId, const Event& event)
{
    {
        const std::lock_guard lock(m_mutex);
        if (m_stopping) {
            return;
        }
        m_queue.push_back(Pending{subscriptionId, event});
    }
    m_wakeup.notify_one();
}

void ClientConnection::run()
{
    std::unique_lock lock(m_mutex);
    for (;;) {
        m_wakeup.wait(lock, [this] { return m_stopping || !m_queue.empty(); });
        if (m_stopping) {
            return;
        }
        const Pending pending = std::move(m_queue.front());
        m_queue.pop_front();
        const auto found = m_deliveries.find(pending.subscriptionId);
        if (found == m_deliveries.end()) {
            continue;
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
}

bool ClientConnection::onNotificationThread() const
{
    return std::this_thread::get_id() == m_thread.get_id();
}

} // namespace cdsapi
