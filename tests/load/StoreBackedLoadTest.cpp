// Sustained writes through the real path (libmodbus clients, the TCP
// server, store-backed accessors, the data store and its notification
// thread) keep the notification backlog bounded and the tables current.
//
// The notification thread is made the bottleneck on purpose: another
// subscriber of the same data-store client spends 5 us on every change of
// every written channel, so the changes come in several times faster than
// they can be delivered one by one. The data store merges a client's queued
// channel notifications once 64 of them wait, a bound the writers reach
// within the first milliseconds; without it the queue (and the lag of the
// tables) grows by tens of megabytes per second. So the 3 s that `make test`
// spends here are already far past the point where a longer run would show
// more; ORV_LOAD_SECONDS sets another length (`make test-load` runs 10 s).

#include "FreePort.h"
#include "ModbusTcpClient.h"
#include "WaitUntil.h"

#include <orv/modbus/HoldingRegisters.h>
#include <orv/modbus/ModbusMap.h>
#include <orv/modbus/ModbusMapSettings.h>
#include <orv/modbus/ModbusMapsConfiguration.h>
#include <orv/modbus/ModbusServer.h>
#include <orv/modbus/cds/CdsChannelAccessor.h>
#include <orv/modbus/cds/CdsInBandAccessor.h>
#include <orv/modbus/cds/CdsUint32ToOneRegisterAccessor.h>

#include <cdsapi/DataStore.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <regex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace orv::modbus {
namespace {

using test::ModbusTcpClient;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr unsigned g_registers = 125;
constexpr int g_writtenRegisters = 100;
constexpr int g_writers = 8;
constexpr int g_unit = 1;

std::string channelName(unsigned index)
{
    return "c" + std::to_string(index);
}

// How long the writers write: ORV_LOAD_SECONDS (1 to 600), 3 s by default.
std::chrono::seconds loadDuration()
{
    const char* text = std::getenv("ORV_LOAD_SECONDS");
    const long seconds = text != nullptr ? std::strtol(text, nullptr, 10) : 3;
    return std::chrono::seconds(std::clamp(seconds, 1L, 600L));
}

long residentKilobytes()
{
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("VmRSS:", 0) == 0) {
            return std::stol(line.substr(6));
        }
    }
    return -1;
}

std::shared_ptr<ModbusMap> storeBackedMap(const std::string& device)
{
    std::vector<ModbusMapEntry*> entries;
    for (unsigned i = 0; i < g_registers; ++i) {
        auto channel = std::make_shared<cds::CdsChannelAccessor>(device, channelName(i), cds::DataType::ChannelValue);
        entries.push_back(new HoldingRegisters(static_cast<uint16_t>(i),
                                               new cds::CdsUint32ToOneRegisterAccessor(channel, 1.0f), true,
                                               channelName(i), "", ""));
    }
    return std::make_shared<ModbusMap>("load", std::move(entries), nullptr, ByteOrder::ABCD);
}

std::unique_ptr<ModbusServer> serve(std::shared_ptr<ModbusMap> map, std::uint16_t& port)
{
    ModbusMapsConfiguration maps;
    maps.tcpMaps[g_unit] = std::make_shared<ModbusMapSettings>(std::move(map), false, false, false,
                                                               std::vector<std::regex>{std::regex(".")});
    for (int attempt = 0;; ++attempt) {
        port = orv::test::freeTcpPort();
        try {
            ModbusServerSettings settings;
            settings.tcpEnabled = true;
            settings.tcpPort = port;
            auto server = std::make_unique<ModbusServer>(settings, false);
            server->run(maps);
            return server;
        } catch (const std::runtime_error&) {
            if (attempt == 9) {
                throw;
            }
        }
    }
}

class StoreBackedLoadTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        const auto deviceId = store.createDevice(m_device);
        for (unsigned i = 0; i < g_registers; ++i) {
            m_channels.push_back(store.addChannel(deviceId, channelName(i), zu::CValue(std::uint32_t{0})));
        }
        m_pServer = serve(storeBackedMap(m_device), m_port);
    }

    void TearDown() override
    {
        for (const auto id : m_slowSubscriptions) {
            cds::CdsInBandAccessor::getInstance().unsubscribe(id);
        }
    }

    // A subscriber that works 5 us on every change of the written channels,
    // on the same notification thread as the map's accessors.
    void addSlowSubscriber()
    {
        for (int r = 0; r < g_writtenRegisters; ++r) {
            std::uint64_t id = 0;
            cds::CdsInBandAccessor::getInstance().subscribeChannel(
                m_channels[static_cast<std::size_t>(r)],
                [](std::uint64_t, const zu::CValue&) {
                    const auto until = Clock::now() + 5us;
                    while (Clock::now() < until) {
                    }
                },
                zu::sub::channel_value_update, &id);
            m_slowSubscriptions.push_back(id);
        }
    }

    // What the store holds now, as the registers show it.
    std::vector<uint16_t> storeWords() const
    {
        std::vector<uint16_t> words;
        for (const auto id : m_channels) {
            words.push_back(static_cast<uint16_t>(store.getChannelCValue(id).as_uint32()));
        }
        return words;
    }

    cdsapi::DataStore& store = cdsapi::DataStore::instance();
    const std::string m_device = "load-meter";
    std::vector<std::uint64_t> m_channels;
    std::uint16_t m_port = 0;
    std::unique_ptr<ModbusServer> m_pServer;
    std::vector<std::uint64_t> m_slowSubscriptions;
};

TEST_F(StoreBackedLoadTest, WritesFasterThanNotificationsKeepMemoryBoundedAndTablesCatchUpAtOnce)
{
    addSlowSubscriber();
    const auto load = loadDuration();
    constexpr long g_maxRequestsPerWriter = 2'000'000;
    std::atomic<long> written{0};
    std::atomic<long> failed{0};
    const auto end = Clock::now() + load;
    std::vector<std::thread> writers;
    for (int w = 0; w < g_writers; ++w) {
        writers.emplace_back([&, w] {
            ModbusTcpClient client("127.0.0.1", m_port, g_unit);
            if (!client.connected()) {
                ++failed;
                return;
            }
            std::vector<uint16_t> words(g_writtenRegisters);
            for (long i = 0; i < g_maxRequestsPerWriter && Clock::now() < end; ++i) {
                for (int r = 0; r < g_writtenRegisters; ++r) {
                    words[static_cast<std::size_t>(r)] = static_cast<uint16_t>(w * 7919 + i * 31 + r);
                }
                ++(client.writeHolding(0, words) ? written : failed);
            }
        });
    }
    long peakKilobytes = 0;
    while (Clock::now() < end + 1s && written + failed < g_writers * g_maxRequestsPerWriter) {
        peakKilobytes = std::max(peakKilobytes, residentKilobytes());
        if (Clock::now() >= end) {
            break;
        }
        std::this_thread::sleep_for(50ms);
    }
    for (auto& writer : writers) {
        writer.join();
    }
    peakKilobytes = std::max(peakKilobytes, residentKilobytes());
    const auto stopped = Clock::now();

    ModbusTcpClient reader("127.0.0.1", m_port, g_unit);
    ASSERT_TRUE(reader.connected());
    const bool caughtUp =
        orv::test::waitUntil([&] { return reader.readHolding(0, static_cast<int>(g_registers)) == storeWords(); }, 100ms);
    const auto caughtUpAfter = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - stopped);

    EXPECT_EQ(failed, 0);
    // The load really was sustained: a thousand 100-register writes a second
    // at the least.
    EXPECT_GT(written, 1000 * load.count());
    EXPECT_LT(peakKilobytes, 32 * 1024) << "resident memory peaked at " << peakKilobytes << " kB";
    EXPECT_TRUE(caughtUp) << "tables still behind the store " << caughtUpAfter.count() << " ms after the load";
    RecordProperty("requests", std::to_string(written.load()));
    RecordProperty("peakResidentKilobytes", std::to_string(peakKilobytes));
}

} // namespace
} // namespace orv::modbus
