// The built daemon on the demo configuration, driven by mbpoll: a Modbus
// master this team did not write.

#include "ChildProcess.h"
#include "FreePort.h"
#include "Mbpoll.h"
#include "WaitUntil.h"

#include <gtest/gtest.h>

#include <csignal>
#include <map>
#include <regex>
#include <string>

namespace {

using namespace std::chrono_literals;
using orv::test::ChildProcess;

class DaemonEndToEndTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_port = orv::test::freeTcpPort();
        m_daemon = std::make_unique<ChildProcess>(
            ORV_DAEMON_BINARY, std::vector<std::string>{"--config", ORV_DEMO_CONFIG, "--tcp-port", std::to_string(m_port)});
        ASSERT_TRUE(m_daemon->waitForOutput("serving Modbus TCP on port " + std::to_string(m_port), 30s))
            << m_daemon->standardError();
    }

    // Runs mbpoll once against the daemon (0-based references) and returns
    // the values it printed, by reference.
    std::map<int, std::string> mbpoll(const std::string& arguments)
    {
        const auto result = orv::test::runMbpoll(m_port, 1, arguments);
        EXPECT_EQ(result.status, 0) << arguments << "\n" << result.output;
        return result.values;
    }

    // `count` registers from `reference` as text, two characters each.
    std::string readText(int reference, int count)
    {
        const auto words = mbpoll("-t 3:hex -r " + std::to_string(reference) + " -c " + std::to_string(count) +
                                  " 127.0.0.1");
        std::string text;
        for (int i = reference; i < reference + count; ++i) {
            const auto word = static_cast<unsigned>(std::stoul(words.at(i), nullptr, 16));
            text += static_cast<char>(word >> 8);
            text += static_cast<char>(word & 0xFF);
        }
        return text;
    }

    float readFloat(const std::string& arguments) { return std::stof(mbpoll(arguments).at(referenceOf(arguments))); }

    static int referenceOf(const std::string& arguments)
    {
        std::smatch match;
        std::regex_search(arguments, match, std::regex(R"(-r (\d+))"));
        return std::stoi(match[1]);
    }

    std::uint16_t m_port = 0;
    std::unique_ptr<ChildProcess> m_daemon;
};

TEST_F(DaemonEndToEndTest, FloatsInBothWordOrdersMatchTheSeed)
{
    EXPECT_FLOAT_EQ(readFloat("-t 3:float -B -r 22 127.0.0.1"), 229.8f); // ABCD: mbpoll's big-endian words
    EXPECT_FLOAT_EQ(readFloat("-t 3:float -r 2 127.0.0.1"), 50.0f);      // CDAB: mbpoll's default
    EXPECT_FLOAT_EQ(readFloat("-t 4:float -B -r 100 127.0.0.1"), 50.0f); // legacy, holding table
    EXPECT_FLOAT_EQ(readFloat("-t 3:float -B -r 100 127.0.0.1"), 50.0f); // legacy, input table
}

TEST_F(DaemonEndToEndTest, IntegersMatchTheSeed)
{
    EXPECT_EQ(mbpoll("-t 3:int -B -r 8 127.0.0.1").at(8), "-12345");
    EXPECT_EQ(mbpoll("-t 3:int -B -r 6 127.0.0.1").at(6), "1234567");
    const auto oneRegister = mbpoll("-t 3 -r 10 -c 7 127.0.0.1");
    EXPECT_EQ(oneRegister.at(10), "5000");  // 50.0 Hz x 100
    EXPECT_EQ(oneRegister.at(12), "950");   // power factor x 1000
    EXPECT_EQ(oneRegister.at(14), "4");     // status 5 with bit 0 inverted
    EXPECT_EQ(oneRegister.at(16), "17");    // numeric text
}

TEST_F(DaemonEndToEndTest, StringMatchesTheSeed)
{
    EXPECT_EQ(readText(17, 5), "PM3-77-XYZ");
}

TEST_F(DaemonEndToEndTest, DeviceAttributesMatchTheSeed)
{
    EXPECT_EQ(readText(40, 5), std::string("PM3-77") + std::string(4, '\0'));
    EXPECT_EQ(readText(45, 4), std::string("PM-3") + std::string(4, '\0'));
    EXPECT_EQ(mbpoll("-t 3 -r 49 127.0.0.1").at(49), "3");
}

TEST_F(DaemonEndToEndTest, AlarmDiscretesReportOnlyTheSimulatedAlarmsType)
{
    // The simulator raises code 7 with flag 1 (type 4) near the top of the
    // voltage's swing; nothing else ever matches.
    const auto states = mbpoll("-t 1 -r 5 -c 5 127.0.0.1");
    ASSERT_EQ(states.size(), 5u);
    for (int reference = 5; reference < 9; ++reference) {
        EXPECT_EQ(states.at(reference), "0") << "alarm type " << reference - 5;
    }
    EXPECT_TRUE(states.at(9) == "0" || states.at(9) == "1");
}

TEST_F(DaemonEndToEndTest, WrittenHoldingRegisterReadsBackAsTheStoreAcceptedIt)
{
    mbpoll("-t 4:float -B -r 0 127.0.0.1 -- 19.25");
    EXPECT_TRUE(orv::test::waitUntil([&] { return readFloat("-t 4:float -B -r 0 127.0.0.1") == 19.25f; }, 5s));

    // The relay is a bool channel: the store keeps any non-zero word as true.
    mbpoll("-t 4 -r 14 127.0.0.1 7");
    EXPECT_TRUE(orv::test::waitUntil([&] { return mbpoll("-t 4 -r 14 127.0.0.1").at(14) == "1"; }, 5s));
}

TEST_F(DaemonEndToEndTest, CoilsAndDiscreteInputsMatchTheSeed)
{
    // Relay 1 off, relay 2 on but served inverted, inputs 1 to 3 on, off, on.
    const std::map<int, std::string> expected{{0, "0"}, {1, "0"}, {2, "1"}, {3, "0"}, {4, "1"}};
    EXPECT_EQ(mbpoll("-t 0 -r 0 -c 5 127.0.0.1"), expected);
    EXPECT_EQ(mbpoll("-t 1 -r 0 -c 5 127.0.0.1"), expected);
}

TEST_F(DaemonEndToEndTest, WrittenCoilsReachTheStore)
{
    // The status word packs relay 1 (bit 0), relay 2 (bit 1), meter enabled
    // (bit 2) and tamper (bit 3) as the store holds them.
    EXPECT_EQ(mbpoll("-t 4 -r 15 127.0.0.1").at(15), "6");
    mbpoll("-t 0 -r 0 127.0.0.1 1");
    // Switching the inverted coil on stores false in relay 2.
    mbpoll("-t 0 -r 1 127.0.0.1 1");
    EXPECT_TRUE(orv::test::waitUntil([&] { return mbpoll("-t 4 -r 15 127.0.0.1").at(15) == "5"; }, 5s));
    EXPECT_EQ(mbpoll("-t 4 -r 14 127.0.0.1").at(14), "1");
    EXPECT_EQ(mbpoll("-t 1 -r 0 -c 2 127.0.0.1"), (std::map<int, std::string>{{0, "1"}, {1, "1"}}));
}

TEST_F(DaemonEndToEndTest, StatusWordIsWrittenBitByBitExceptTheReadOnlyBit)
{
    // Relay 2 off, relay 1 on, meter disabled; the tamper bit is not taken.
    mbpoll("-t 4 -r 15 127.0.0.1 9");
    EXPECT_TRUE(orv::test::waitUntil([&] { return mbpoll("-t 4 -r 15 127.0.0.1").at(15) == "1"; }, 5s));
    EXPECT_EQ(mbpoll("-t 4 -r 4 127.0.0.1").at(4), "0");
    EXPECT_EQ(mbpoll("-t 0 -r 0 -c 2 127.0.0.1"), (std::map<int, std::string>{{0, "1"}, {1, "1"}}));
}

TEST_F(DaemonEndToEndTest, ApparentPowerFollowsVoltageAndCurrent)
{
    // Both are simulated, so the product is only known to lie in range.
    const int voltAmperes = std::stoi(mbpoll("-t 3 -r 38 127.0.0.1").at(38));
    EXPECT_GE(voltAmperes, 2250);
    EXPECT_LE(voltAmperes, 3525);
}

TEST_F(DaemonEndToEndTest, SimulatedValueChanges)
{
    const float first = readFloat("-t 3:float -B -r 0 127.0.0.1");
    EXPECT_GE(first, 225.0f);
    EXPECT_LE(first, 235.0f);
    EXPECT_TRUE(orv::test::waitUntil([&] { return readFloat("-t 3:float -B -r 0 127.0.0.1") != first; }, 10s));
}

TEST_F(DaemonEndToEndTest, SigtermStopsCleanlyWithStatusZero)
{
    EXPECT_FLOAT_EQ(readFloat("-t 3:float -B -r 22 127.0.0.1"), 229.8f);
    m_daemon->signal(SIGTERM);
    EXPECT_EQ(m_daemon->waitForExit(5s), 0) << m_daemon->standardError();
    EXPECT_NE(m_daemon->standardError().find("statistics: tcp received="), std::string::npos);
    EXPECT_FALSE(orv::test::isListening(m_port));
    m_daemon.reset();
}

TEST_F(DaemonEndToEndTest, SigintStopsCleanlyWithStatusZero)
{
    m_daemon->signal(SIGINT);
    EXPECT_EQ(m_daemon->waitForExit(5s), 0) << m_daemon->standardError();
    m_daemon.reset();
}

} // namespace
