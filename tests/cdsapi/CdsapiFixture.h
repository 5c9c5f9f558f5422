#pragma once
// Shared helpers of the data-store client tests: bounded waiting, a
// thread-safe recorder of notifications, and a fixture that starts from an
// empty store with one client whose notifications are recorded.
//
// settle() makes "no other notification came" checkable without sleeping:
// it writes a marker channel watched by the same client and waits for that
// notification; a client delivers in change order, so everything the
// earlier changes caused has been delivered by then.

#include <cdsapi/CdsAccessor.h>
#include <cdsapi/DataStore.h>

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace cdsapi::test {

using namespace std::chrono_literals;

constexpr std::uint64_t g_allOnes = ~std::uint64_t{0};

template <typename Predicate>
bool waitUntil(Predicate predicate, std::chrono::milliseconds timeout = 5s)
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!predicate()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return predicate();
        }
        std::this_thread::sleep_for(1ms);
    }
    return true;
}

class Recorder {
public:
    struct Entry {
        std::string text;
        zu::CValue value;
        zu::CAlarmUpdate alarm;
        std::thread::id thread;
    };

    void add(Entry entry)
    {
        {
            const std::lock_guard lock(m_mutex);
            m_entries.push_back(std::move(entry));
        }
        m_changed.notify_all();
    }

    std::vector<Entry> entries() const
    {
        const std::lock_guard lock(m_mutex);
        return m_entries;
    }

    std::vector<std::string> texts() const
    {
        std::vector<std::string> result;
        for (const auto& entry : entries()) {
            result.push_back(entry.text);
        }
        return result;
    }

    bool waitForText(const std::string& text, std::chrono::milliseconds timeout = 5s)
    {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, timeout, [&] {
            for (const auto& entry : m_entries) {
                if (entry.text == text) {
                    return true;
                }
            }
            return false;
        });
    }

    bool waitForCount(std::size_t count, std::chrono::milliseconds timeout = 5s)
    {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, timeout, [&] { return m_entries.size() >= count; });
    }

    void clear()
    {
        const std::lock_guard lock(m_mutex);
        m_entries.clear();
    }

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<Entry> m_entries;
};

class CdsapiFixture : public ::testing::Test {
protected:
    void SetUp() override
    {
        store.clear();
        client = std::make_unique<CdsAccessor>("test", true);
        const auto markerDevice = store.createDevice("marker");
        markerChannel = store.addChannel(markerDevice, "tick", zu::CValue(std::uint32_t{0}));
        std::uint64_t subscriptionId = 0;
        client->subscribeChannel(
            markerChannel,
            [this](std::uint64_t, const zu::CValue& value) {
                recorder.add({"marker:" + value.as_string(), value, {}, std::this_thread::get_id()});
            },
            zu::sub::channel_value_update, &subscriptionId);
    }

    void TearDown() override
    {
        client.reset();
        store.clear();
    }

    static std::string text(std::uint32_t type, std::uint64_t id)
    {
        return std::to_string(type) + ":" + std::to_string(id);
    }

    static std::string alarmText(std::uint64_t channelId) { return "alarm:" + std::to_string(channelId); }

    std::uint64_t watchChannel(std::uint64_t channelId, zu::sub::subscription_type type)
    {
        std::uint64_t subscriptionId = 0;
        client->subscribeChannel(
            channelId,
            [this, type](std::uint64_t id, const zu::CValue& value) {
                recorder.add({text(type, id), value, {}, std::this_thread::get_id()});
            },
            type, &subscriptionId);
        return subscriptionId;
    }

    std::uint64_t watchDevice(std::uint64_t deviceId, zu::sub::subscription_type type, bool recursive = false)
    {
        std::uint64_t subscriptionId = 0;
        client->subscribeDevice(
            deviceId,
            [this, type](std::uint64_t id) { recorder.add({text(type, id), {}, {}, std::this_thread::get_id()}); },
            type, recursive, &subscriptionId);
        return subscriptionId;
    }

    std::uint64_t watchAlarms(std::uint64_t channelId)
    {
        std::uint64_t subscriptionId = 0;
        client->subscribeDeviceAlarms(
            channelId,
            [this](std::uint64_t id, const zu::CAlarmUpdate& update) {
                recorder.add({alarmText(id), {}, update, std::this_thread::get_id()});
            },
            &subscriptionId);
        return subscriptionId;
    }

    // Every notification recorded since the last settle, markers left out.
    std::vector<Recorder::Entry> settleEntries()
    {
        const std::string marker = std::to_string(++m_markerCount);
        store.setChannelCValue(markerChannel, zu::CValue(m_markerCount));
        EXPECT_TRUE(recorder.waitForText("marker:" + marker));
        std::vector<Recorder::Entry> result;
        for (const auto& entry : recorder.entries()) {
            if (entry.text.rfind("marker:", 0) != 0) {
                result.push_back(entry);
            }
        }
        recorder.clear();
        return result;
    }

    std::vector<std::string> settle()
    {
        std::vector<std::string> result;
        for (const auto& entry : settleEntries()) {
            result.push_back(entry.text);
        }
        return result;
    }

    DataStore& store = DataStore::instance();
    Recorder recorder;
    std::unique_ptr<CdsAccessor> client;
    std::uint64_t markerChannel = 0;

private:
    std::uint32_t m_markerCount = 0;
};

} // namespace cdsapi::test
