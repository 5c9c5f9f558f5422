// The example map of docs/writing-a-map.md as the guide's reader builds it
// (tests/guide/check-guide.sh extracts and builds it first): loaded through
// SupportedMaps with dlopen, served on a loopback port and asked by a
// libmodbus client, so that what the guide shows is what the map does.

#include "NamedParameter.h"
#include "TestServer.h"
#include "WaitUntil.h"

#include <cdsapi/DataStore.h>
#include <orv/modbus/SupportedMaps.h>
#include <zu/CValue.h>

#include <gtest/gtest.h>

#include <bit>
#include <chrono>
#include <cstdint>
#include <exception>
#include <memory>
#include <string>
#include <vector>

#include <modbus/modbus.h>

namespace orv::modbus::test {
namespace {

using namespace std::chrono_literals;
using orv::test::PrintTo;
using orv::test::waitUntil;
using Words = std::vector<std::uint16_t>;
using Bits = std::vector<std::uint8_t>;

// One of the guide's two ways of building the map.
struct GuideBuild {
    std::string name;
    std::string plugin;
};

// The words of a float in ABCD order, as a client sees them: the high
// half of its IEEE-754 bits first.
Words abcd(float value)
{
    const auto bits = std::bit_cast<std::uint32_t>(value);
    return {static_cast<std::uint16_t>(bits >> 16), static_cast<std::uint16_t>(bits & 0xffff)};
}

// The channel the example map reads its voltage from, in the meter the
// tests add (and remove) with a seed, so that the device appears with its
// channel in one step.
constexpr std::uint64_t g_voltage = 9001;
constexpr const char* g_meterSeed = R"({"devices": [{"id": 9000, "name": "meter-1", "channels": [
    {"id": 9001, "name": "Voltage", "kind": "float", "value": 230.5}]}]})";

bool meterPresent()
{
    try {
        cdsapi::DataStore::instance().getDeviceByName("meter-1");
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

// The registry keeps a map, and its accessors, for the life of the process,
// so every test of this process shares one meter.
void addMeter()
{
    cdsapi::DataStore::instance().loadSeed(g_meterSeed, "guide test");
}

class Client {
public:
    Client(std::uint16_t port, std::chrono::milliseconds responseTimeout)
        : m_pContext(modbus_new_tcp("127.0.0.1", port), &modbus_free)
    {
        modbus_set_slave(m_pContext.get(), 1);
        modbus_set_response_timeout(m_pContext.get(), 0, static_cast<std::uint32_t>(responseTimeout.count() * 1000));
        m_connected = modbus_connect(m_pContext.get()) == 0;
    }
    ~Client() { modbus_close(m_pContext.get()); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    bool connected() const { return m_connected; }

    Words holding(int address, int count) const { return read<std::uint16_t>(modbus_read_registers, address, count); }
    Words input(int address, int count) const
    {
        return read<std::uint16_t>(modbus_read_input_registers, address, count);
    }
    Bits coils(int address, int count) const { return read<std::uint8_t>(modbus_read_bits, address, count); }
    Bits discreteInputs(int address, int count) const
    {
        return read<std::uint8_t>(modbus_read_input_bits, address, count);
    }
    bool writeHolding(int address, const Words& words) const
    {
        return modbus_write_registers(m_pContext.get(), address, static_cast<int>(words.size()), words.data())
               == static_cast<int>(words.size());
    }
    bool writeCoil(int address, bool on) const { return modbus_write_bit(m_pContext.get(), address, on ? 1 : 0) == 1; }

private:
    // The `count` values a libmodbus read function returned, or nothing
    // when it failed.
    template <class Value>
    std::vector<Value> read(int (*function)(modbus_t*, int, int, Value*), int address, int count) const
    {
        std::vector<Value> values(static_cast<std::size_t>(count));
        return function(m_pContext.get(), address, count, values.data()) == count ? values : std::vector<Value>{};
    }

    std::unique_ptr<modbus_t, decltype(&modbus_free)> m_pContext;
    bool m_connected = false;
};

class ExampleMapTest : public ::testing::TestWithParam<GuideBuild> {
protected:
    void SetUp() override
    {
        if (!meterPresent()) {
            addMeter();
        }
        cdsapi::DataStore::instance().setChannelCValue(g_voltage, zu::CValue(230.5f));
        m_pMap = SupportedMaps::getMapping("guide-" + GetParam().name, GetParam().plugin);
        ASSERT_TRUE(waitUntil([&] { return m_pMap->isMapAvailable(); }));
        ModbusMapsConfiguration configuration;
        configuration.tcpMaps[1] = allowing(m_pMap, {"^127\\.0\\.0\\.1$"});
        m_pServer = makeTcpServer(m_port);
        m_pServer->run(configuration);
    }

    void TearDown() override
    {
        if (m_pServer) {
            m_pServer->stop();
        }
    }

    Client client(std::chrono::milliseconds responseTimeout = 2s) const { return Client(m_port, responseTimeout); }

    std::shared_ptr<ModbusMap> m_pMap;
    std::uint16_t m_port = 0;
    std::unique_ptr<ModbusServer> m_pServer;
};

TEST_P(ExampleMapTest, SetPointInRangeIsTakenAndCounted)
{
    const Client modbus = client();
    ASSERT_TRUE(modbus.connected());
    const Words changes = modbus.input(0, 1);
    ASSERT_EQ(changes.size(), 1U);

    ASSERT_TRUE(modbus.writeHolding(0, abcd(19.0f)));
    EXPECT_EQ(modbus.holding(0, 2), abcd(19.0f));
    EXPECT_EQ(modbus.input(0, 1), Words{static_cast<std::uint16_t>(changes[0] + 1)});
}

TEST_P(ExampleMapTest, SetPointOutOfRangeIsPutBackAndNotCounted)
{
    const Client modbus = client();
    ASSERT_TRUE(modbus.connected());
    const Words before = modbus.holding(0, 2);
    const Words changes = modbus.input(0, 1);
    ASSERT_EQ(before.size(), 2U);

    ASSERT_TRUE(modbus.writeHolding(0, abcd(99.0f)));
    EXPECT_EQ(modbus.holding(0, 2), before);
    EXPECT_EQ(modbus.input(0, 1), changes);
}

TEST_P(ExampleMapTest, VoltageComesFromTheDataStoreAndFollowsIt)
{
    const Client modbus = client();
    ASSERT_TRUE(modbus.connected());
    // The value SetUp wrote arrives as a notification.
    EXPECT_TRUE(waitUntil([&] { return modbus.input(2, 2) == abcd(230.5f); }));

    cdsapi::DataStore::instance().setChannelCValue(g_voltage, zu::CValue(231.25f));
    EXPECT_TRUE(waitUntil([&] { return modbus.input(2, 2) == abcd(231.25f); }));
}

TEST_P(ExampleMapTest, PumpWrittenAsCoilIsReadAsCoilAndDiscreteInput)
{
    const Client modbus = client();
    ASSERT_TRUE(modbus.connected());
    ASSERT_TRUE(modbus.writeCoil(0, true));
    EXPECT_EQ(modbus.coils(0, 1), Bits{1});
    EXPECT_EQ(modbus.discreteInputs(0, 1), Bits{1});
    ASSERT_TRUE(modbus.writeCoil(0, false));
    EXPECT_EQ(modbus.discreteInputs(0, 1), Bits{0});
}

TEST_P(ExampleMapTest, WithoutTheMeterTheMapAnswersNothing)
{
    auto& store = cdsapi::DataStore::instance();
    store.removeDevice(store.getDeviceByName("meter-1"));
    ASSERT_TRUE(waitUntil([&] { return !m_pMap->isMapAvailable(); }));

    const Client modbus = client(300ms);
    ASSERT_TRUE(modbus.connected());
    EXPECT_TRUE(modbus.holding(0, 2).empty());
    EXPECT_EQ(m_pMap->getCsv(false), "SEP=;\nThe meter meter-1 is not in the data store.\n");

    // A meter that comes (back) is picked up.
    addMeter();
    EXPECT_TRUE(waitUntil([&] { return m_pMap->isMapAvailable(); }));
    EXPECT_EQ(modbus.holding(0, 2).size(), 2U);
}

INSTANTIATE_TEST_SUITE_P(Guide, ExampleMapTest,
                         ::testing::Values(GuideBuild{"CMake", ORV_GUIDE_CMAKE_MAP},
                                           GuideBuild{"PkgConfig", ORV_GUIDE_PKG_CONFIG_MAP}),
                         orv::test::g_byName);

} // namespace
} // namespace orv::modbus::test
