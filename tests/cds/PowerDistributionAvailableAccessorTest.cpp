// Availability of a map behind the power-distribution service, read from the
// real in-process data store. Every status read logs one "status = ..." line
// under getPowerDistributionStatus, which is how these tests count the reads.

#include <orv/modbus/cds/PowerDistributionAvailableAccessor.h>

#include "LogCapture.h"

#include <cdsapi/CdsAccessor.h>
#include <cdsapi/DataStore.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>

#include <unistd.h>

namespace {

using orv::modbus::cds::PowerDistributionAvailableAccessor;
using orv::synchronizer::PowerDistributionsSynchronizer;
using orv::test::LogCapture;
using Seconds = orv::common::time::SecondsDuration;

constexpr std::uint64_t g_serviceDevice = 900;

class PowerDistributionAvailableAccessorTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        store().clear();
        m_config = std::filesystem::temp_directory_path()
                   / ("orv-powerdistribution-" + std::to_string(::getpid()) + "-"
                      + ::testing::UnitTest::GetInstance()->current_test_info()->name() + ".json");
        writeConfig(R"({"database": {"args": {"serviceStorage": {"deviceId": 900}}}})");
        store().createDevice("power-distribution", 0, {}, g_serviceDevice);
    }

    void TearDown() override
    {
        std::filesystem::remove(m_config);
        store().clear();
    }

    static cdsapi::DataStore& store() { return cdsapi::DataStore::instance(); }

    void writeConfig(const std::string& text) const { std::ofstream(m_config) << text; }

    std::uint64_t addStatus(std::uint32_t status) const
    {
        return store().addChannel(g_serviceDevice, PowerDistributionsSynchronizer::g_statusChannel,
                                  zu::CValue(status));
    }

    static std::size_t statusReads(const LogCapture& log)
    {
        const auto lines = log.lines();
        return static_cast<std::size_t>(std::count_if(lines.begin(), lines.end(), [](const std::string& line) {
            return line.starts_with("getPowerDistributionStatus|status = ");
        }));
    }

    std::filesystem::path m_config;
};

TEST_F(PowerDistributionAvailableAccessorTest, InServiceAtTheFirstCallIsAvailableAndNeverAskedAgain)
{
    for (const std::uint32_t inService : {15u, 16u}) {
        SCOPED_TRACE(inService);
        const auto channel = addStatus(inService);
        LogCapture log(LogCapture::g_functionAndMessage);
        PowerDistributionAvailableAccessor accessor(m_config.string());
        EXPECT_TRUE(accessor.isAvailable());
        EXPECT_EQ(statusReads(log), 1u);

        // Neither a stopped service nor a vanished channel is seen again.
        store().setChannelCValue(channel, zu::CValue(std::uint32_t{4}));
        EXPECT_TRUE(accessor.isAvailable());
        store().removeChannel(channel);
        EXPECT_TRUE(accessor.isAvailable());
        EXPECT_EQ(statusReads(log), 1u);
    }
}

TEST_F(PowerDistributionAvailableAccessorTest, AnyOtherStatusIsUnavailableAndAskedAgainAtEachCall)
{
    const auto channel = addStatus(0);
    LogCapture log(LogCapture::g_functionAndMessage);
    PowerDistributionAvailableAccessor accessor(m_config.string());
    for (const std::uint32_t status : {0u, 4u, 5u, 13u, 14u, 17u, 1000u}) {
        store().setChannelCValue(channel, zu::CValue(status));
        const auto before = statusReads(log);
        EXPECT_FALSE(accessor.isAvailable()) << status;
        EXPECT_EQ(statusReads(log), before + 1) << status;
    }
    store().setChannelCValue(channel, zu::CValue(std::uint32_t{15}));
    EXPECT_TRUE(accessor.isAvailable());
}

TEST_F(PowerDistributionAvailableAccessorTest, MessageHasExactlyOneLineBreakAfterTheExclamationMark)
{
    PowerDistributionAvailableAccessor accessor(m_config.string());
    const std::string message = accessor.notAvailableMessage();
    EXPECT_EQ(std::count(message.begin(), message.end(), '\n'), 1);
    EXPECT_EQ(message,
              "UPS map is not yet available on your system!\n"
              "Please make sure that the card is connected to a supported UPS and/or try later.");
}

TEST_F(PowerDistributionAvailableAccessorTest, ChannelCreatedLaterIsFoundThen)
{
    PowerDistributionAvailableAccessor accessor(m_config.string());
    EXPECT_FALSE(accessor.isAvailable());
    addStatus(15);
    EXPECT_TRUE(accessor.isAvailable());
}

TEST_F(PowerDistributionAvailableAccessorTest, StatusOfAnotherKindIsReadAsUnsigned)
{
    store().addChannel(g_serviceDevice, PowerDistributionsSynchronizer::g_statusChannel, zu::CValue("16"));
    PowerDistributionAvailableAccessor accessor(m_config.string());
    EXPECT_TRUE(accessor.isAvailable());
}

TEST_F(PowerDistributionAvailableAccessorTest, MissingConfigurationFileWarnsOnceAndStaysUnavailable)
{
    addStatus(15);
    std::filesystem::remove(m_config);
    LogCapture log(LogCapture::g_messageOnly);
    PowerDistributionAvailableAccessor accessor(m_config.string());
    for (int call = 0; call < 3; ++call) {
        EXPECT_FALSE(accessor.isAvailable());
    }
    const auto lines = log.lines();
    const auto warnings = std::count_if(lines.begin(), lines.end(), [this](const std::string& line) {
        return line.starts_with("power-distribution configuration " + m_config.string() + ": cannot open the file");
    });
    EXPECT_EQ(warnings, 1);
    EXPECT_TRUE(log.containsMatching(spdlog::level::warn, "power-distribution configuration .*"));
}

TEST_F(PowerDistributionAvailableAccessorTest, ConfigurationWithoutTheDeviceIdWarnsOnceAndStaysUnavailable)
{
    addStatus(15);
    writeConfig(R"({"database": {"args": {"serviceStorage": {}}}})");
    LogCapture log(LogCapture::g_messageOnly);
    PowerDistributionAvailableAccessor accessor(m_config.string());
    EXPECT_FALSE(accessor.isAvailable());
    EXPECT_FALSE(accessor.isAvailable());
    EXPECT_EQ(log.count("power-distribution configuration " + m_config.string()
                        + ": lwjson::deserializer \"deviceId\" member not found; maps that wait for the service "
                          "stay unavailable"),
              1u);
}

TEST_F(PowerDistributionAvailableAccessorTest, DefaultConfigurationPathIsThePowerDistributionServices)
{
    EXPECT_STREQ(PowerDistributionsSynchronizer::g_defaultConfigPath,
                 "/usr/share/orv/pq/powerdistribution/config.json");
    addStatus(15);
    LogCapture log(LogCapture::g_messageOnly);
    PowerDistributionAvailableAccessor accessor;
    EXPECT_EQ(accessor.isAvailable(), std::filesystem::exists(PowerDistributionsSynchronizer::g_defaultConfigPath));
    EXPECT_TRUE(std::filesystem::exists(PowerDistributionsSynchronizer::g_defaultConfigPath)
                || log.containsMatching(spdlog::level::warn,
                                        "power-distribution configuration "
                                        "/usr/share/orv/pq/powerdistribution/config.json: .*"));
}

class PowerDistributionsSynchronizerTest : public PowerDistributionAvailableAccessorTest {
protected:
    cdsapi::CdsAccessor m_client{"synchronizer-test", true};
};

TEST_F(PowerDistributionsSynchronizerTest, StatusOfARemovedChannelIsUnknownAndFoundAgainWhenRecreated)
{
    const auto channel = addStatus(15);
    PowerDistributionsSynchronizer synchronizer(m_client, m_config.string());
    EXPECT_EQ(synchronizer.getPowerDistributionStatus(), orv::common::service::OperatingStatus::Running);
    store().removeChannel(channel);
    EXPECT_EQ(synchronizer.getPowerDistributionStatus(), orv::common::service::OperatingStatus::Unknown);
    addStatus(16);
    EXPECT_EQ(synchronizer.getPowerDistributionStatus(), orv::common::service::OperatingStatus::RunningDegraded);
}

TEST_F(PowerDistributionsSynchronizerTest, ZeroTimeOutReadsOnceWithoutWaiting)
{
    addStatus(4);
    LogCapture log(LogCapture::g_functionAndMessage);
    PowerDistributionsSynchronizer synchronizer(m_client, m_config.string());
    EXPECT_FALSE(synchronizer.waitInService(Seconds{0}));
    EXPECT_TRUE(synchronizer.waitNotInService(Seconds{0}));
    EXPECT_EQ(statusReads(log), 2u);
}

TEST_F(PowerDistributionsSynchronizerTest, WaitInServiceReadsAgainEverySecondUntilTheTimeOut)
{
    addStatus(4);
    LogCapture log(LogCapture::g_functionAndMessage);
    PowerDistributionsSynchronizer synchronizer(m_client, m_config.string());
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(synchronizer.waitInService(Seconds{1}));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
    EXPECT_EQ(statusReads(log), 2u);
    EXPECT_EQ(log.count("waitInService|powerDistributionStatus = Stopped"), 1u);
}

TEST_F(PowerDistributionsSynchronizerTest, WaitNotInServiceReturnsAtOnceWhenTheServiceIsStopped)
{
    const auto channel = addStatus(15);
    PowerDistributionsSynchronizer synchronizer(m_client, m_config.string());
    EXPECT_FALSE(synchronizer.waitNotInService(Seconds{0}));
    store().setChannelCValue(channel, zu::CValue(std::uint32_t{11}));
    EXPECT_TRUE(synchronizer.waitNotInService(Seconds{60}));
}

} // namespace
