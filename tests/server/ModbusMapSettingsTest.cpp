#include "LogCapture.h"
#include "ModbusTcpClient.h"
#include "RawTcpClient.h"
#include "SpyMap.h"
#include "TestServer.h"

#include <orv/modbus/ModbusMapSettings.h>
#include <orv/modbus/ModbusMapsConfiguration.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>

namespace orv::modbus::test {
namespace {

using orv::test::LogCapture;

using namespace std::chrono_literals;

TEST(ModbusMapSettingsTest, KeepsMapFlagsAndCopiedExpressions)
{
    auto map = makeSpyMap();
    std::vector<std::regex> expressions{std::regex("^10\\.")};
    const ModbusMapSettings settings(map, true, false, true, expressions);
    expressions.clear();

    EXPECT_EQ(settings.map, map);
    EXPECT_TRUE(settings.addressShift);
    EXPECT_FALSE(settings.readOnly);
    EXPECT_TRUE(settings.skipReadChecks);
    ASSERT_EQ(settings.allowedAddresses.size(), 1u);
    EXPECT_TRUE(settings.allowsAddress("10.0.0.1"));
}

TEST(ModbusMapSettingsTest, MatchingIsASearchNotAFullMatch)
{
    const ModbusMapSettings unanchored(nullptr, false, false, false, {std::regex("192\\.168\\.1\\.")});
    EXPECT_TRUE(unanchored.allowsAddress("192.168.1.20"));
    EXPECT_TRUE(unanchored.allowsAddress("10.192.168.1.5"));
    EXPECT_TRUE(unanchored.allowsAddress("192.168.1.200"));
    EXPECT_FALSE(unanchored.allowsAddress("192.168.2.1"));

    const ModbusMapSettings anchored(nullptr, false, false, false, {std::regex("^192\\.168\\.1\\.[0-9]+$")});
    EXPECT_TRUE(anchored.allowsAddress("192.168.1.20"));
    EXPECT_FALSE(anchored.allowsAddress("10.192.168.1.5"));
}

TEST(ModbusMapSettingsTest, AnyExpressionAdmitsAndNoExpressionAdmitsNobody)
{
    const ModbusMapSettings several(nullptr, false, false, false, {std::regex("^10\\."), std::regex("^::1$")});
    EXPECT_TRUE(several.allowsAddress("10.1.2.3"));
    EXPECT_TRUE(several.allowsAddress("::1"));
    EXPECT_FALSE(several.allowsAddress("127.0.0.1"));

    const ModbusMapSettings none(nullptr, false, false, false, {});
    EXPECT_FALSE(none.allowsAddress("127.0.0.1"));
    EXPECT_FALSE(none.allowsAddress(""));
}

TEST(ModbusMapsConfigurationTest, FreshConfigurationHas248EmptySlotsEach)
{
    const ModbusMapsConfiguration configuration;
    ASSERT_EQ(configuration.rtuMaps.size(), 248u);
    ASSERT_EQ(configuration.tcpMaps.size(), 248u);
    for (std::size_t unit = 0; unit < 248; ++unit) {
        EXPECT_EQ(configuration.rtuMaps[unit], nullptr);
        EXPECT_EQ(configuration.tcpMaps[unit], nullptr);
    }
}

TEST(ModbusMapsConfigurationTest, FreshConfigurationRefusesEveryTcpClient)
{
    LogCapture log;
    std::uint16_t port = 0;
    auto server = makeTcpServer(port);
    server->run(ModbusMapsConfiguration());

    for (const char* host : {"127.0.0.1", "::1"}) {
        RawTcpClient client(host, port);
        ASSERT_TRUE(client.connected()) << host;
        EXPECT_TRUE(client.closedByPeerWithin(2s)) << host;
    }
    EXPECT_TRUE(log.waitForAt(spdlog::level::err,
                               "New Modbus TCP connection from 127.0.0.1 refused! No map accessible for this IP."));
    EXPECT_TRUE(log.waitForAt(spdlog::level::err,
                               "New Modbus TCP connection from ::1 refused! No map accessible for this IP."));
}

// The three flags reach processRequest in reverse order of declaration.
class FlagOrderTest : public ::testing::TestWithParam<std::array<bool, 3>> {};

TEST_P(FlagOrderTest, FlagsReachProcessRequestCrossed)
{
    const auto [addressShift, readOnly, skipReadChecks] = GetParam();
    auto map = makeSpyMap();
    ModbusMapsConfiguration configuration;
    configuration.tcpMaps[1] = std::make_shared<ModbusMapSettings>(map, addressShift, readOnly, skipReadChecks,
                                                                   std::vector<std::regex>{std::regex("127")});
    std::uint16_t port = 0;
    auto server = makeTcpServer(port);
    server->run(configuration);

    ModbusTcpClient client("127.0.0.1", port, 1);
    ASSERT_TRUE(client.connected());
    // Address 1 is a table word whichever way it is counted.
    ASSERT_TRUE(client.readHolding(1, 1).has_value());

    const auto calls = map->calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].skipReadChecks, skipReadChecks);
    EXPECT_EQ(calls[0].readOnly, readOnly);
    EXPECT_EQ(calls[0].addressShift, addressShift);
}

// Names an instance after the one flag it sets.
std::string nameOfTheFlagSet(const ::testing::TestParamInfo<std::array<bool, 3>>& info)
{
    const std::array<const char*, 3> names{"AddressShift", "ReadOnly", "SkipReadChecks"};
    const auto set = std::find(info.param.begin(), info.param.end(), true);
    return names[static_cast<std::size_t>(set - info.param.begin())];
}

INSTANTIATE_TEST_SUITE_P(EachFlagAlone, FlagOrderTest,
                         ::testing::Values(std::array{true, false, false}, std::array{false, true, false},
                                           std::array{false, false, true}),
                         nameOfTheFlagSet);

TEST(ModbusMapsConfigurationTest, OneSettingsMayServeSeveralUnitsAndBothTables)
{
    auto map = makeSpyMap();
    auto settings = allowing(map, {"^127\\.0\\.0\\.1$"});
    ModbusMapsConfiguration configuration;
    configuration.tcpMaps[1] = settings;
    configuration.tcpMaps[5] = settings;
    configuration.rtuMaps[1] = settings;
    std::uint16_t port = 0;
    auto server = makeTcpServer(port);
    server->run(configuration);

    ModbusTcpClient writer("127.0.0.1", port, 1);
    ModbusTcpClient reader("127.0.0.1", port, 5);
    ASSERT_TRUE(writer.connected());
    ASSERT_TRUE(reader.connected());
    ASSERT_TRUE(writer.writeHolding(10, 4242));
    EXPECT_EQ(reader.readHolding(10, 1), std::vector<std::uint16_t>{4242});
    EXPECT_EQ(map->calls().size(), 2u);
}

} // namespace
} // namespace orv::modbus::test
