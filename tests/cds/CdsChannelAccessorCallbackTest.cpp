// What the callbacks of channel accessors may do to their siblings: fail, or
// destroy them (or a whole map) on the notification thread. The handlers walk
// the accessors of an object in ascending address order, so the tests put the
// accessor that misbehaves first and check every one walked after it. The
// sanitizer build turns a call of a destroyed accessor into a failure.

#include "CdsStoreTest.h"
#include "ValueLog.h"

#include <orv/modbus/HoldingRegisters.h>
#include <orv/modbus/ModbusMap.h>
#include <orv/modbus/cds/CdsStringToOneRegisterAccessor.h>
#include <orv/modbus/cds/CdsUint32ToOneRegisterAccessor.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace orv::modbus::cds::test {
namespace {

constexpr int g_siblings = 8;

// `count` accessors made by `make`, in the order the handlers walk them.
template <typename Pointer>
std::vector<Pointer> inWalkOrder(int count, const std::function<Pointer()>& make)
{
    std::vector<Pointer> accessors;
    for (int index = 0; index < count; ++index) {
        accessors.push_back(make());
    }
    std::sort(accessors.begin(), accessors.end(),
              [](const Pointer& left, const Pointer& right) { return left.get() < right.get(); });
    return accessors;
}

class CdsChannelAccessorCallbackTest : public CdsStoreTest {
protected:
    // A device with one channel "value" holding 1.
    void SetUp() override
    {
        CdsStoreTest::SetUp();
        m_device = store().createDevice("meter");
        m_channel = store().addChannel(m_device, "value", zu::CValue(std::uint32_t{1}));
    }

    std::function<std::unique_ptr<Accessor>()> makeOn(DataType type)
    {
        return [this, type] { return std::make_unique<Accessor>(m_device, "value", type); };
    }

    // Hands every accessor but the first to `siblings`, each logging what
    // its callback receives; returns the first.
    std::unique_ptr<Accessor> splitFirst(std::vector<std::unique_ptr<Accessor>> accessors)
    {
        auto first = std::move(accessors.front());
        accessors.erase(accessors.begin());
        m_logs = std::vector<ValueLog>(accessors.size());
        for (std::size_t index = 0; index < accessors.size(); ++index) {
            accessors[index]->setUpdateCallback(m_logs[index].callback());
        }
        m_siblings = std::move(accessors);
        return first;
    }

    std::uint64_t m_device = 0;
    std::uint64_t m_channel = 0;
    std::vector<std::unique_ptr<Accessor>> m_siblings;
    std::vector<ValueLog> m_logs;
};

TEST_F(CdsChannelAccessorCallbackTest, OneFailingDetectionLeavesTheOtherAccessorsFound)
{
    const auto text = store().addChannel(m_device, "text", zu::CValue(std::string("12")));
    auto accessors = inWalkOrder<std::shared_ptr<Accessor>>(g_siblings + 1, [this] {
        return std::make_shared<Accessor>(m_device, "text", DataType::ChannelValue);
    });
    // The text is not a number for a while: its conversion throws in every
    // callback and in every detection.
    CdsStringToOneRegisterAccessor number(accessors.front());
    number.setCallback([](const std::vector<uint16_t>&) {});
    std::vector<ValueLog> logs(g_siblings);
    for (int index = 0; index < g_siblings; ++index) {
        accessors[index + 1]->setUpdateCallback(logs[index].callback());
    }

    store().setChannelCValue(text, zu::CValue(std::string("abc")));
    flush();
    store().setChannelCValue(text, zu::CValue(std::string("34")));
    flush();
    for (int index = 0; index < g_siblings; ++index) {
        EXPECT_TRUE(accessors[index + 1]->isExistingInCds()) << "accessor " << index;
        EXPECT_EQ(logs[index].last(), zu::CValue(std::string("34"))) << "accessor " << index;
        EXPECT_EQ(accessors[index + 1]->getCValue(), zu::CValue(std::string("34"))) << "accessor " << index;
    }
    EXPECT_TRUE(accessors.front()->isExistingInCds());
}

TEST_F(CdsChannelAccessorCallbackTest, OneFailingDetectionOnDeviceSettingsLeavesTheOthersTheirTurn)
{
    auto first = splitFirst(inWalkOrder(g_siblings + 1, makeOn(DataType::ChannelValue)));
    std::atomic<bool> armed{false};
    first->setUpdateCallback([&armed](const zu::CValue&) {
        if (armed) {
            throw std::runtime_error("refused");
        }
    });
    std::vector<std::size_t> before;
    for (const auto& log : m_logs) {
        before.push_back(log.count());
    }

    armed = true;
    // Every accessor of the device detects its channel again and reports it.
    store().setDeviceAttribute(m_device, cdsapi::DeviceAttribute::Description, "changed");
    flush();
    for (std::size_t index = 0; index < m_logs.size(); ++index) {
        EXPECT_EQ(m_logs[index].count(), before[index] + 1) << "accessor " << index;
    }
    first.reset();
    m_siblings.clear();
}

TEST_F(CdsChannelAccessorCallbackTest, OneFailingDetectionOnDeviceCreationLeavesTheOthersFound)
{
    auto accessors = inWalkOrder<std::unique_ptr<Accessor>>(g_siblings + 1, [] {
        return std::make_unique<Accessor>("later", "value", DataType::ChannelValue);
    });
    std::atomic<bool> armed{false};
    accessors.front()->setUpdateCallback([&armed](const zu::CValue&) {
        if (armed) {
            throw std::runtime_error("refused");
        }
    });
    armed = true;
    const auto device = store().createDevice("later");
    store().addChannel(device, "value", zu::CValue(std::uint32_t{5}));
    flush();
    for (std::size_t index = 1; index < accessors.size(); ++index) {
        EXPECT_TRUE(accessors[index]->isExistingInCds()) << "accessor " << index;
        EXPECT_EQ(accessors[index]->getCValue(), zu::CValue(std::uint32_t{5})) << "accessor " << index;
    }
}

// A change of the channel property `type` watches, and what makes the
// handler of that kind of notification call the accessors.
struct Notification {
    const char* name;
    DataType type;
    std::function<void(cdsapi::DataStore&, std::uint64_t device, std::uint64_t channel)> change;
};

class SiblingsDestroyedByACallback : public CdsChannelAccessorCallbackTest,
                                     public ::testing::WithParamInterface<Notification> {};

TEST_P(SiblingsDestroyedByACallback, AreSkippedByTheRestOfTheHandler)
{
    auto first = splitFirst(inWalkOrder(g_siblings + 1, makeOn(GetParam().type)));
    // A second detection makes state watches follow the channel's own id.
    store().setDeviceAttribute(m_device, cdsapi::DeviceAttribute::Description, "prepared");
    flush();
    ASSERT_TRUE(first->isExistingInCds());

    std::atomic<bool> armed{true};
    ValueLog firstLog;
    first->setUpdateCallback([this, &armed, &firstLog](const zu::CValue& value) {
        // The value delivered by setUpdateCallback itself comes first.
        firstLog.callback()(value);
        if (firstLog.count() > 1 && armed.exchange(false)) {
            m_siblings.clear();
        }
    });
    GetParam().change(store(), m_device, m_channel);
    flush();
    EXPECT_TRUE(m_siblings.empty());
    EXPECT_FALSE(armed);

    // The accessor that destroyed them goes on as before.
    const auto seen = firstLog.count();
    GetParam().change(store(), m_device, m_channel);
    flush();
    EXPECT_GT(firstLog.count(), seen);
    first.reset();
}

INSTANTIATE_TEST_SUITE_P(
    Handlers, SiblingsDestroyedByACallback,
    ::testing::Values(
        Notification{"ValueUpdate", DataType::ChannelValue,
                     [](cdsapi::DataStore& store, std::uint64_t, std::uint64_t channel) {
                         const auto next = store.getChannelCValue(channel).as_uint32() + 1;
                         store.setChannelCValue(channel, zu::CValue(next));
                     }},
        Notification{"StateChange", DataType::AlarmEnabled,
                     [](cdsapi::DataStore& store, std::uint64_t, std::uint64_t channel) {
                         store.setChannelAlarmEnabled(channel, !store.getChannelAlarmEnabled(channel));
                     }},
        Notification{"SettingsChange", DataType::AlarmHysteresis,
                     [](cdsapi::DataStore& store, std::uint64_t, std::uint64_t channel) {
                         store.setChannelAlarmHysteresis(channel, store.getChannelAlarmHysteresis(channel) + 1.0f);
                     }},
        Notification{"DeviceSettings", DataType::ChannelValue,
                     [](cdsapi::DataStore& store, std::uint64_t device, std::uint64_t) {
                         store.setDeviceAttribute(device, cdsapi::DeviceAttribute::Model, "other");
                     }}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(CdsChannelAccessorCallbackTest, AccessorMayDestroyItselfAndItsSiblingsWhenItsChannelVanishes)
{
    auto first = splitFirst(inWalkOrder(g_siblings + 1, makeOn(DataType::ChannelValue)));
    std::atomic<bool> destroyed{false};
    first->setUpdateCallback([this, &first, &destroyed](const zu::CValue& value) {
        if (!value.is_valid()) {
            m_siblings.clear();
            first.reset();
            destroyed = true;
        }
    });
    // The failed read re-detects every accessor of the channel.
    store().removeChannel(m_channel);
    flush();
    EXPECT_TRUE(destroyed);
    EXPECT_TRUE(m_siblings.empty());
}

TEST_F(CdsChannelAccessorCallbackTest, CallbackMayDestroyTheWholeMapOfItsSiblings)
{
    auto accessors = inWalkOrder<std::shared_ptr<Accessor>>(g_siblings + 1, [this] {
        return std::make_shared<Accessor>(m_device, "value", DataType::ChannelValue);
    });
    auto hook = std::move(accessors.front());
    std::vector<ModbusMapEntry*> entries;
    for (int index = 1; index <= g_siblings; ++index) {
        entries.push_back(new HoldingRegisters(static_cast<uint16_t>(index),
                                               new CdsUint32ToOneRegisterAccessor(accessors[index], 1.0f), true,
                                               "value", "", ""));
    }
    accessors.clear();
    auto map = std::make_shared<ModbusMap>("doomed", entries, nullptr, ByteOrder::ABCD);
    std::atomic<bool> destroyed{false};
    hook->setUpdateCallback([&map, &destroyed](const zu::CValue& value) {
        if (value == zu::CValue(std::uint32_t{2})) {
            map.reset();
            destroyed = true;
        }
    });
    store().setChannelCValue(m_channel, zu::CValue(std::uint32_t{2}));
    flush();
    EXPECT_TRUE(destroyed);
    hook.reset();
}

} // namespace
} // namespace orv::modbus::cds::test
