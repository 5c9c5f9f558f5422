// The daemon with a factory-defaults file: it fills what the configuration
// leaves out, bounds the serial settings it gives, and a file that cannot be
// used stops the daemon before any port opens.

#include "ChildProcess.h"
#include "DaemonFilesTest.h"
#include "FreePort.h"

#include <gtest/gtest.h>

#include <csignal>
#include <string>

namespace {

using namespace std::chrono_literals;
using orv::test::ChildProcess;

// A factory-defaults file; parity may go up to `parityMax`.
std::string defaults(bool tcpEnabled, bool rtuEnabled, int parityMax = 3)
{
    std::string text = R"({"zu.tk_proto.config.PersistentConfig": {"oobs": [{"data": {"modbus_server_configuration": {
        "tcp": {"enabled": {"value": )";
    text += tcpEnabled ? "true" : "false";
    text += R"(}}, "rtu": {"enabled": {"value": )";
    text += rtuEnabled ? "true" : "false";
    text += R"(}, "parity": {"minValue": 0, "maxValue": )";
    text += std::to_string(parityMax);
    text += R"(, "value": 2},
                "baud": {"minValue": 1, "maxValue": 8, "value": 4},
                "stop_bits": {"minValue": 1, "maxValue": 2, "value": 1}}}}}]}})";
    return text;
}

class DaemonDefaultsTest : public orv::test::DaemonFilesTest {
protected:
    // A configuration serving the demo map on TCP unit 1, with the server
    // section and the top-level extra members given.
    std::string config(const std::string& server, const std::string& extra = "")
    {
        return R"({"server": )" + server + R"(,
                   "maps": [{"id": "demo", "plugin": ")" ORV_DEMO_PLUGIN R"("}],
                   "tcpUnits": [{"unitId": 1, "map": "demo", "allowedAddresses": ["^127\\.0\\.0\\.1$"]}],
                   "dataStore": {"seedFile": ")" ORV_DEMO_SEED R"("})"
               + extra + "}";
    }

    // A configuration with the "rtu" object given, against defaults allowing
    // parity up to `parityMax`, must be refused with `refusal` followed by
    // the defaults file's path.
    void expectRangeRefusal(const std::string& rtu, int parityMax, const std::string& refusal)
    {
        const std::string defaultsPath = write("defaults.json", defaults(true, false, parityMax));
        const std::string path = write("config.json", config(R"({"tcp": {}, "rtu": )" + rtu + "}",
                                                             R"(, "defaultsFile": ")" + defaultsPath + R"(")"));
        const std::string error = runExpectingFailure(path);
        EXPECT_NE(error.find(path + ": " + refusal + defaultsPath), std::string::npos) << error;
    }

    void expectServing(const std::string& configPath, const std::vector<std::string>& extra = {})
    {
        std::vector<std::string> arguments{"--config", configPath, "--tcp-port", std::to_string(m_port)};
        arguments.insert(arguments.end(), extra.begin(), extra.end());
        ChildProcess daemon(ORV_DAEMON_BINARY, arguments);
        ASSERT_TRUE(daemon.waitForOutput("serving Modbus TCP on port " + std::to_string(m_port), 20s))
            << daemon.standardError();
        daemon.signal(SIGTERM);
        EXPECT_EQ(daemon.waitForExit(10s), 0);
    }
};

TEST_F(DaemonDefaultsTest, OmittedTcpEnabledIsTakenFromTheDefaultsFile)
{
    write("defaults.json", defaults(true, false));
    // Without "tcp" in the configuration nothing would be served; the
    // relative name is taken from the configuration's folder.
    const std::string path = write("config.json", config("{}", R"(, "defaultsFile": "defaults.json")"));
    expectServing(path);
}

TEST_F(DaemonDefaultsTest, WithoutDefaultsFileAnOmittedTcpIsOff)
{
    const std::string path = write("config.json", config("{}"));
    const std::string error = runExpectingFailure(path);
    EXPECT_NE(error.find("nothing to serve"), std::string::npos) << error;
}

TEST_F(DaemonDefaultsTest, OmittedRtuEnabledIsTakenFromTheDefaultsFile)
{
    const std::string defaultsPath = write("defaults.json", defaults(true, true));
    const std::string device = (m_dir / "no-such-tty").string();
    const std::string path = write("config.json", config(R"({"tcp": {}, "rtu": {"device": ")" + device + R"("}})",
                                                         R"(, "defaultsFile": ")" + defaultsPath + R"(")"));
    const std::string error = runExpectingFailure(path);
    EXPECT_NE(error.find(path + ": /server/rtu/device: no serial device \"" + device + "\""), std::string::npos)
        << error;
}

TEST_F(DaemonDefaultsTest, BaudRateOutsideTheDefaultsRangeNamesFileKeyValueAndRange)
{
    expectRangeRefusal(R"({"baudRate": 9})", 3, "server.rtu.baudRate: 9 is outside 1..8 allowed by ");
}

TEST_F(DaemonDefaultsTest, ParityIsBoundedByTheDefaultsRangeNotTheLibrarys)
{
    // Odd parity (3) is a parity the library knows; these defaults do not
    // allow it.
    expectRangeRefusal(R"({"parity": 3, "stopBits": 1})", 2, "server.rtu.parity: 3 is outside 0..2 allowed by ");
}

TEST_F(DaemonDefaultsTest, StopBitsOutsideTheDefaultsRangeIsRefused)
{
    const std::string defaultsPath = write("defaults.json", defaults(true, false));
    const std::string path = write("config.json", config(R"({"tcp": {}, "rtu": {"stopBits": 0}})"));
    const std::string error = runExpectingFailure(path, {"--defaults", defaultsPath});
    EXPECT_NE(error.find("server.rtu.stopBits: 0 is outside 1..2 allowed by " + defaultsPath), std::string::npos)
        << error;
}

TEST_F(DaemonDefaultsTest, BrokenDefaultsFileStopsWithTheParseMessage)
{
    const std::string defaultsPath = write("defaults.json", R"({"zu.tk_proto.config.PersistentConfig": {)");
    const std::string path = write("config.json", config(R"({"tcp": {}})"));
    const std::string error = runExpectingFailure(path, {"--defaults", defaultsPath});
    EXPECT_NE(error.find("Impossible to parse file: " + defaultsPath + " "), std::string::npos) << error;
}

TEST_F(DaemonDefaultsTest, MissingDefaultsFileStopsWithTheOpenMessage)
{
    const std::string defaultsPath = (m_dir / "absent.json").string();
    const std::string path = write("config.json", config(R"({"tcp": {}})",
                                                         R"(, "defaultsFile": ")" + defaultsPath + R"(")"));
    const std::string error = runExpectingFailure(path);
    EXPECT_NE(error.find("Impossible to open file: " + defaultsPath), std::string::npos) << error;
}

TEST_F(DaemonDefaultsTest, CommandLineDefaultsWinOverTheConfigurationsFile)
{
    const std::string goodPath = write("good-defaults.json", defaults(true, false));
    write("broken-defaults.json", "not json");
    const std::string path = write("config.json", config("{}", R"(, "defaultsFile": "broken-defaults.json")"));
    expectServing(path, {"--defaults", goodPath});
}

TEST_F(DaemonDefaultsTest, ShippedDefaultsFileIsAccepted)
{
    const std::string path = write("config.json", config(R"({"rtu": {"parity": 2, "baudRate": 5, "stopBits": 1}})"));
    expectServing(path, {"--defaults", ORV_SHIPPED_DEFAULTS});
}

} // namespace
