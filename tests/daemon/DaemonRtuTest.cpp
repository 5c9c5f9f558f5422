// The built daemon serving the demo map on a serial line without hardware
// (a socat pseudo-terminal pair), read by two masters this team did not
// write: mbpoll and pymodbus's serial client.

#include "ChildProcess.h"
#include "FreePort.h"
#include "SocatPair.h"
#include "WaitUntil.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <fstream>
#include <map>
#include <regex>
#include <string>

namespace {

using namespace std::chrono_literals;
using orv::test::ChildProcess;
using orv::test::SocatPair;
using orv::test::TemporaryDirectory;

// The serial number of the demo map: input registers 17 to 21.
constexpr const char* g_serialNumberRead = "-t 3:hex -r 17 -c 5";

class DaemonRtuTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_port = orv::test::freeTcpPort();
        nlohmann::json config = nlohmann::json::parse(std::ifstream(ORV_DEMO_CONFIG));
        config["server"]["tcp"]["port"] = m_port;
        config["server"]["rtu"] = {{"enabled", true}, {"device", m_pLine->serverEnd()}, {"baudRate", 8},
                                   {"parity", 0},     {"dataBits", 8},                   {"stopBits", 1}};
        config["rtuUnits"] = nlohmann::json::array(
            {{{"unitId", 1}, {"map", "demo"}, {"oneBasedAddresses", false}, {"readOnly", false},
              {"skipReadChecks", false}}});
        config["dataStore"]["simulator"]["enabled"] = false;
        const std::string path = m_directory.path() + "/config.json";
        std::ofstream(path) << config.dump(2);
        m_daemon = std::make_unique<ChildProcess>(ORV_DAEMON_BINARY, std::vector<std::string>{"--config", path});
        ASSERT_TRUE(m_daemon->waitForOutput("serving Modbus RTU on " + m_pLine->serverEnd() + " at 115200 bit/s, 8N1",
                                            30s))
            << m_daemon->standardError();
    }

    // mbpoll's values, by reference, over RTU (or over TCP with `tcp`).
    std::map<int, std::string> mbpoll(const std::string& arguments, bool tcp = false, int* status = nullptr,
                                      const std::string& written = "")
    {
        const std::string link = tcp ? "-m tcp -p " + std::to_string(m_port) + " 127.0.0.1"
                                     : "-m rtu -b 115200 -P none " + m_pLine->masterEnd();
        const std::string command = "mbpoll -a 1 -0 -1 -o 1 " + arguments + " " + link + " " + written;
        int exitStatus = -1;
        const std::string output = orv::test::runAndCapture(command, 10s, &exitStatus);
        if (status != nullptr) {
            *status = exitStatus;
        }
        std::map<int, std::string> values;
        static const std::regex g_line(R"(\[(\d+)\]:\s+(\S+))");
        for (auto it = std::sregex_iterator(output.begin(), output.end(), g_line); it != std::sregex_iterator(); ++it) {
            values[std::stoi((*it)[1])] = (*it)[2];
        }
        return values;
    }

    TemporaryDirectory m_directory;
    std::unique_ptr<SocatPair> m_pLine = std::make_unique<SocatPair>(m_directory.path(), "daemon");
    std::uint16_t m_port = 0;
    std::unique_ptr<ChildProcess> m_daemon;
};

TEST_F(DaemonRtuTest, MbpollReadsOverRtuWhatTcpClientsRead)
{
    const auto overRtu = mbpoll(g_serialNumberRead);
    ASSERT_EQ(overRtu.size(), 5U);
    EXPECT_EQ(overRtu, mbpoll(g_serialNumberRead, true));
}

TEST_F(DaemonRtuTest, MbpollWritesOverRtu)
{
    int status = -1;
    mbpoll("-t 4 -r 0", false, &status, "1234");
    EXPECT_EQ(status, 0);
    EXPECT_EQ(mbpoll("-t 4 -r 0 -c 1", true).at(0), "1234");
}

TEST_F(DaemonRtuTest, PymodbusSerialClientReadsTheSerialNumber)
{
    const std::string script = "from pymodbus.client import ModbusSerialClient\n"
                               "c = ModbusSerialClient(port='" + m_pLine->masterEnd() +
                               "', baudrate=115200, timeout=1)\n"
                               "c.connect()\n"
                               "r = c.read_input_registers(17, 5, slave=1)\n"
                               "print(' '.join('0x%04X' % w for w in r.registers))\n";
    const std::string scriptPath = m_directory.path() + "/read.py";
    std::ofstream(scriptPath) << script;
    int status = -1;
    const std::string output = orv::test::runAndCapture("/usr/bin/python3 " + scriptPath, 15s, &status);
    ASSERT_EQ(status, 0) << output;
    std::string expected;
    for (const auto& [reference, value] : mbpoll(g_serialNumberRead, true)) {
        expected += (expected.empty() ? "" : " ") + value;
    }
    EXPECT_EQ(output, expected + "\n");
}

TEST_F(DaemonRtuTest, UnpluggedLineComesBackWhileTcpIsAnswered)
{
    ASSERT_EQ(mbpoll(g_serialNumberRead).size(), 5U);
    m_pLine.reset();
    EXPECT_EQ(mbpoll(g_serialNumberRead, true).size(), 5U);
    m_pLine = std::make_unique<SocatPair>(m_directory.path(), "daemon");
    EXPECT_TRUE(orv::test::waitUntil([this] { return mbpoll(g_serialNumberRead).size() == 5U; }, 10s));
    EXPECT_EQ(mbpoll(g_serialNumberRead, true).size(), 5U);
    const std::string logs = m_daemon->standardOutput() + m_daemon->standardError();
    EXPECT_NE(logs.find("is back."), std::string::npos) << logs;
}

} // namespace
