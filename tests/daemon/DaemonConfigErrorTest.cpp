// Every way the daemon's files can be wrong ends the daemon before it opens a
// port, with a non-zero status and a message naming the file and the key.

#include "ChildProcess.h"
#include "DaemonFilesTest.h"
#include "FreePort.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace {

using namespace std::chrono_literals;
using orv::test::ChildProcess;

constexpr const char* g_loopbackUnit = R"([{"unitId": 1, "map": "demo", "allowedAddresses": ["^127\\.0\\.0\\.1$"]}])";

class DaemonConfigErrorTest : public orv::test::DaemonFilesTest {
protected:
    // A good configuration, but for the units, plug-in or seed given.
    std::string config(const std::string& tcpUnits = g_loopbackUnit,
                       const std::string& plugin = ORV_DEMO_PLUGIN, const std::string& seed = ORV_DEMO_SEED)
    {
        return R"({"server": {"tcp": {"enabled": true, "port": 1502}},
                   "maps": [{"id": "demo", "plugin": ")"
               + plugin + R"("}],
                   "tcpUnits": )"
               + tcpUnits + R"(,
                   "dataStore": {"seedFile": ")"
               + seed + R"("}})";
    }
};

TEST_F(DaemonConfigErrorTest, GoodConfigurationIsAccepted)
{
    const std::string path = write("good.json", config());
    ChildProcess daemon(ORV_DAEMON_BINARY, {"--config", path, "--tcp-port", std::to_string(m_port)});
    ASSERT_TRUE(daemon.waitForOutput("serving Modbus TCP on port " + std::to_string(m_port), 20s))
        << daemon.standardError();
    EXPECT_TRUE(orv::test::isListening(m_port));
    daemon.signal(SIGINT);
    EXPECT_EQ(daemon.waitForExit(10s), 0);
}

TEST_F(DaemonConfigErrorTest, MissingFileIsNamed)
{
    const std::string path = (m_dir / "absent.json").string();
    const std::string error = runExpectingFailure(path);
    EXPECT_NE(error.find(path), std::string::npos) << error;
    EXPECT_NE(error.find("cannot open"), std::string::npos) << error;
}

TEST_F(DaemonConfigErrorTest, TextThatIsNotJsonIsNamed)
{
    const std::string path = write("broken.json", "{\"server\": ");
    const std::string error = runExpectingFailure(path);
    EXPECT_NE(error.find(path + ": not valid JSON"), std::string::npos) << error;
}

TEST_F(DaemonConfigErrorTest, WrongShapeNamesTheKey)
{
    const std::string path = write("shape.json", R"({"server": 5, "maps": []})");
    const std::string error = runExpectingFailure(path);
    EXPECT_NE(error.find(path + ": /server: expected an object"), std::string::npos) << error;
}

TEST_F(DaemonConfigErrorTest, MissingMapsKeyIsNamed)
{
    const std::string path = write("nomaps.json", R"({"server": {}})");
    const std::string error = runExpectingFailure(path);
    EXPECT_NE(error.find(path + ": /: missing key \"maps\""), std::string::npos) << error;
}

TEST_F(DaemonConfigErrorTest, UnitIdAbove247IsRefused)
{
    const std::string path = write("unit.json", config(R"([{"unitId": 248, "map": "demo", "allowedAddresses": []}])"));
    const std::string error = runExpectingFailure(path);
    EXPECT_NE(error.find(path + ": /tcpUnits/0/unitId: expected an integer from 0 to 247, got 248"),
              std::string::npos)
        << error;
}

TEST_F(DaemonConfigErrorTest, NegativeUnitIdIsRefused)
{
    const std::string path = write("unit.json", config(R"([{"unitId": -1, "map": "demo", "allowedAddresses": []}])"));
    const std::string error = runExpectingFailure(path);
    EXPECT_NE(error.find("/tcpUnits/0/unitId"), std::string::npos) << error;
}

TEST_F(DaemonConfigErrorTest, BadRegularExpressionIsNamed)
{
    const std::string path
        = write("regex.json", config(R"([{"unitId": 1, "map": "demo", "allowedAddresses": ["^127", "(["]}])"));
    const std::string error = runExpectingFailure(path);
    EXPECT_NE(error.find(path + ": /tcpUnits/0/allowedAddresses/1: bad regular expression \"([\""),
              std::string::npos)
        << error;
}

TEST_F(DaemonConfigErrorTest, UnknownMapOfAUnitIsNamed)
{
    const std::string path
        = write("map.json", config(R"([{"unitId": 1, "map": "other", "allowedAddresses": ["x"]}])"));
    const std::string error = runExpectingFailure(path);
    EXPECT_NE(error.find(path + ": /tcpUnits/0/map: no map \"other\""), std::string::npos) << error;
}

TEST_F(DaemonConfigErrorTest, PluginThatFailsToLoadGivesTheLoaderMessage)
{
    const std::string plugin = (m_dir / "no-such-plugin.so").string();
    const std::string path = write("plugin.json", config(g_loopbackUnit, plugin));
    const std::string error = runExpectingFailure(path);
    EXPECT_NE(error.find("map \"demo\" from " + plugin + ": Couldn't dlopen library " + plugin), std::string::npos)
        << error;
}

TEST_F(DaemonConfigErrorTest, PluginWithoutFactoryGivesTheSymbolMessage)
{
    const std::string path = write("symbol.json", config(g_loopbackUnit, ORV_TEST_NO_FACTORY_PLUGIN));
    const std::string error = runExpectingFailure(path);
    EXPECT_NE(error.find("Couldn't get createMap symbol from library"), std::string::npos) << error;
}

TEST_F(DaemonConfigErrorTest, MissingSeedFileIsNamed)
{
    const std::string seed = (m_dir / "absent-seed.json").string();
    const std::string path = write("seed.json", config(g_loopbackUnit, ORV_DEMO_PLUGIN, seed));
    const std::string error = runExpectingFailure(path);
    EXPECT_NE(error.find(seed), std::string::npos) << error;
}

TEST_F(DaemonConfigErrorTest, SeedWithBadShapeNamesFileAndPath)
{
    const std::string seed = write("bad-seed.json", R"({"devices": [{"name": "x", "channels": [{"name": "c", "kind": "flaot"}]}]})");
    const std::string path = write("seed.json", config(g_loopbackUnit, ORV_DEMO_PLUGIN, seed));
    const std::string error = runExpectingFailure(path);
    EXPECT_NE(error.find(seed), std::string::npos) << error;
    EXPECT_NE(error.find("/devices/0/channels/0/kind"), std::string::npos) << error;
}

TEST_F(DaemonConfigErrorTest, UnitIdAssignedTwiceIsNamed)
{
    const std::string path = write("twice.json", config(R"([{"unitId": 1, "map": "demo", "allowedAddresses": []},
                                                              {"unitId": 1, "map": "demo", "allowedAddresses": []}])"));
    const std::string error = runExpectingFailure(path);
    EXPECT_NE(error.find(path + ": /tcpUnits/1/unitId: unit id 1 is assigned twice"), std::string::npos) << error;
}

TEST_F(DaemonConfigErrorTest, DuplicateKeyIsNamed)
{
    const std::string path = write("key.json", config(R"([{"unitId": 1, "map": "demo", "unitId": 2, "allowedAddresses": []}])"));
    const std::string error = runExpectingFailure(path);
    EXPECT_NE(error.find(path + ": /tcpUnits/0/unitId: the key appears twice in one object"), std::string::npos)
        << error;
}

TEST_F(DaemonConfigErrorTest, DuplicateTopLevelKeyIsNamed)
{
    const std::string path = write("top.json", R"({"server": {"tcp": {"enabled": true}}, "maps": [],
                                                  "server": {"tcp": {"enabled": false}}})");
    const std::string error = runExpectingFailure(path);
    EXPECT_NE(error.find(path + ": /server: the key appears twice in one object"), std::string::npos) << error;
}

TEST_F(DaemonConfigErrorTest, NothingEnabledIsRefused)
{
    const std::string path = write("none.json", R"({"server": {"tcp": {"enabled": false}}, "maps": []})");
    const std::string error = runExpectingFailure(path);
    EXPECT_NE(error.find(path + ": /server: neither \"tcp\" nor \"rtu\" is enabled: nothing to serve"),
              std::string::npos)
        << error;
}

TEST_F(DaemonConfigErrorTest, TcpWithoutUnitsIsRefused)
{
    const std::string path = write("nounits.json", config("[]"));
    const std::string error = runExpectingFailure(path);
    EXPECT_NE(error.find(path + ": /server: \"tcp\" is enabled but \"tcpUnits\" assigns no unit id"),
              std::string::npos)
        << error;
}

TEST_F(DaemonConfigErrorTest, PortZeroIsRefused)
{
    const std::string path = write("port.json", R"({"server": {"tcp": {"enabled": true, "port": 0}}, "maps": []})");
    const std::string error = runExpectingFailure(path);
    EXPECT_NE(error.find(path + ": /server/tcp/port: expected an integer from 1 to 65535, got 0"), std::string::npos)
        << error;
}

TEST_F(DaemonConfigErrorTest, MissingSerialDeviceFailsBeforeTheTcpPortOpens)
{
    const std::string device = (m_dir / "ttyABSENT").string();
    const std::string path = write("rtu.json", R"({"server": {"tcp": {"enabled": true},
                                                              "rtu": {"enabled": true, "device": ")"
                                                   + device + R"("}},
        "maps": [{"id": "demo", "plugin": ")" ORV_DEMO_PLUGIN R"("}],
        "tcpUnits": [{"unitId": 1, "map": "demo", "allowedAddresses": []}],
        "rtuUnits": [{"unitId": 1, "map": "demo"}]})");
    const std::string error = runExpectingFailure(path);
    EXPECT_NE(error.find(path + ": /server/rtu/device: no serial device \"" + device + "\""), std::string::npos)
        << error;
}

TEST_F(DaemonConfigErrorTest, RelativePathsAreTakenFromTheConfigurationFolder)
{
    std::filesystem::copy_file(ORV_DEMO_SEED, m_dir / "relative-seed.json");
    const std::string path = write("relative.json", config(g_loopbackUnit, ORV_DEMO_PLUGIN, "relative-seed.json"));
    ChildProcess daemon(ORV_DAEMON_BINARY, {"--config", path, "--tcp-port", std::to_string(m_port)});
    ASSERT_TRUE(daemon.waitForOutput("serving Modbus TCP", 20s)) << daemon.standardError();
    daemon.signal(SIGTERM);
    EXPECT_EQ(daemon.waitForExit(10s), 0);
}

TEST_F(DaemonConfigErrorTest, MistypedKeyIsNamed)
{
    const std::string path = write("typo.json", config(R"([{"unitId": 1, "map": "demo", "readOnly": true,
                                                            "oneBasedAdresses": true, "allowedAddresses": []}])"));
    const std::string error = runExpectingFailure(path);
    EXPECT_NE(error.find(path + ": /tcpUnits/0/oneBasedAdresses: unknown key (known here: unitId, map, "
                                "oneBasedAddresses, readOnly, skipReadChecks, allowedAddresses)"),
              std::string::npos)
        << error;
}

TEST_F(DaemonConfigErrorTest, MistypedServerKeyIsNamed)
{
    const std::string path = write("server.json", R"({"server": {"tcp": {"enable": false}}, "maps": []})");
    const std::string error = runExpectingFailure(path);
    EXPECT_NE(error.find(path + ": /server/tcp/enable: unknown key"), std::string::npos) << error;
}

TEST_F(DaemonConfigErrorTest, AddressPatternsOnAnRtuUnitAreRefused)
{
    const std::string path = write("rtu-patterns.json", R"({"server": {"tcp": {"enabled": true}},
        "maps": [{"id": "demo", "plugin": ")" ORV_DEMO_PLUGIN R"("}],
        "tcpUnits": [{"unitId": 1, "map": "demo", "allowedAddresses": []}],
        "rtuUnits": [{"unitId": 1, "map": "demo", "allowedAddresses": [".*"]}]})");
    const std::string error = runExpectingFailure(path);
    EXPECT_NE(error.find(path + ": /rtuUnits/0/allowedAddresses: client address patterns apply to TCP units only"),
              std::string::npos)
        << error;
}

TEST_F(DaemonConfigErrorTest, SimulatedChannelMissingFromTheSeedIsNamed)
{
    const std::string path = write("simulator.json", R"({"server": {"tcp": {"enabled": true}},
        "maps": [{"id": "demo", "plugin": ")" ORV_DEMO_PLUGIN R"("}],
        "tcpUnits": [{"unitId": 1, "map": "demo", "allowedAddresses": []}],
        "dataStore": {"seedFile": ")" ORV_DEMO_SEED R"(",
                      "simulator": {"enabled": true,
                                    "channels": [{"device": "meter-1", "channel": "Voltgae", "min": 1, "max": 2}]}}})");
    const std::string error = runExpectingFailure(path);
    EXPECT_NE(error.find(path + ": /dataStore/simulator/channels: simulator: no channel \"Voltgae\" on device "
                                "\"meter-1\""),
              std::string::npos)
        << error;
}

TEST_F(DaemonConfigErrorTest, BadCommandLineIsRefusedWithUsage)
{
    ChildProcess daemon(ORV_DAEMON_BINARY, {"--tcp-port", "70000", "--config", "x.json"});
    EXPECT_EQ(daemon.waitForExit(10s), 2);
    EXPECT_NE(daemon.standardError().find("--tcp-port takes a port number from 1 to 65535"), std::string::npos);
    EXPECT_NE(daemon.standardError().find("Usage: orv-gw-modbusd"), std::string::npos);
}

TEST_F(DaemonConfigErrorTest, HelpAndVersionExitZero)
{
    ChildProcess help(ORV_DAEMON_BINARY, {"--help"});
    EXPECT_EQ(help.waitForExit(10s), 0);
    EXPECT_NE(help.standardOutput().find("--tcp-port N"), std::string::npos);
    ChildProcess version(ORV_DAEMON_BINARY, {"--version"});
    EXPECT_EQ(version.waitForExit(10s), 0);
    EXPECT_NE(version.standardOutput().find("orv-gw-modbusd 2.0.0"), std::string::npos);
}

} // namespace
