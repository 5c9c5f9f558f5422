#pragma once
// The fixture of the data-store client tests: it starts from an empty store
// with one client whose notifications are recorded.
//
// settle() makes "no other notification came" checkable without sleeping:
// it writes a marker channel watched by the same client and waits for that
// notification; a client delivers in change order, so everything the
// earlier changes caused has been delivered by then.

#include "Recorder.h"
#include "WaitUntil.h"

#include <cdsapi/CdsAccessor.h>
#include <cdsapi/DataStore.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace cdsapi::test {

using namespace std::chrono_literals;

using orv::test::waitUntil;

constexpr std::uint64_t g_allOnes = ~std::uint64_t{0};

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
