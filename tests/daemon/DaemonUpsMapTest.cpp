// The UPS map on unit 2: silent while the power-distribution service is not
// in service, answered once the simulator has put it in service; the demo
// map on unit 1 answers all along.

#include "ChildProcess.h"
#include "DaemonFilesTest.h"
#include "FreePort.h"
#include "Mbpoll.h"
#include "WaitUntil.h"

#include <gtest/gtest.h>

#include <csignal>
#include <string>

namespace {

using namespace std::chrono_literals;
using orv::test::ChildProcess;

class DaemonUpsMapTest : public orv::test::DaemonFilesTest {
protected:
    std::string writeConfig(int inServiceAfterMs)
    {
        return write("ups.json", R"({"server": {"tcp": {"enabled": true}},
            "maps": [{"id": "demo", "plugin": ")" ORV_DEMO_PLUGIN R"("},
                     {"id": "ups", "plugin": ")" ORV_UPS_PLUGIN R"("}],
            "tcpUnits": [{"unitId": 1, "map": "demo", "allowedAddresses": ["^127\\.0\\.0\\.1$"]},
                         {"unitId": 2, "map": "ups", "allowedAddresses": ["^127\\.0\\.0\\.1$"]}],
            "dataStore": {"seedFile": ")" ORV_DEMO_SEED R"(",
                          "simulator": {"enabled": true, "powerDistribution":
                              {"device": "power-distribution", "inServiceAfterMs": )"
                                           + std::to_string(inServiceAfterMs) + "}}}}");
    }

    void start(int inServiceAfterMs)
    {
        m_daemon = std::make_unique<ChildProcess>(
            ORV_DAEMON_BINARY,
            std::vector<std::string>{"--config", writeConfig(inServiceAfterMs), "--tcp-port", std::to_string(m_port)});
        ASSERT_TRUE(m_daemon->waitForOutput("serving Modbus TCP on port " + std::to_string(m_port), 20s))
            << m_daemon->standardError();
    }

    orv::test::MbpollResult readBatteryCharge() const
    {
        return orv::test::runMbpoll(m_port, 2, "-t 3:float -B -r 0 -c 1 127.0.0.1", 1);
    }

    void TearDown() override
    {
        if (m_daemon) {
            m_daemon->signal(SIGTERM);
            EXPECT_EQ(m_daemon->waitForExit(10s), 0) << m_daemon->standardError();
        }
        DaemonFilesTest::TearDown();
    }

    std::unique_ptr<ChildProcess> m_daemon;
};

TEST_F(DaemonUpsMapTest, UnitTwoIsSilentUntilTheServiceRunsThenAnswersTheSeed)
{
    start(4000);
    const auto silent = readBatteryCharge();
    EXPECT_NE(silent.status, 0) << silent.output;
    EXPECT_NE(silent.output.find("timed out"), std::string::npos) << silent.output;
    EXPECT_TRUE(silent.values.empty()) << silent.output;

    // The other unit is not held up by it.
    const auto demo = orv::test::runMbpoll(m_port, 1, "-t 3:float -B -r 22 -c 1 127.0.0.1");
    EXPECT_EQ(demo.values.count(22), 1u) << demo.output;

    orv::test::MbpollResult answered;
    EXPECT_TRUE(orv::test::waitUntil(
        [&] {
            answered = readBatteryCharge();
            return answered.status == 0;
        },
        20s))
        << answered.output;
    ASSERT_EQ(answered.values.count(0), 1u) << answered.output;
    EXPECT_FLOAT_EQ(std::stof(answered.values.at(0)), 87.5f);
    const auto rest = orv::test::runMbpoll(m_port, 2, "-t 3:int -B -r 4 -c 1 127.0.0.1");
    EXPECT_EQ(rest.values.at(4), "2400") << rest.output;
}

} // namespace
