#include "LogCapture.h"

#include <orv/logging/Logger.h>

#include <cstdlib>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <spdlog/sinks/ringbuffer_sink.h>

namespace {

using orv::test::LogCapture;

// Puts the level of all loggers back as it was.
class LevelRestorer {
public:
    LevelRestorer()
        : m_level(orv::logging::getLogger("LoggerTest")->level())
    {
    }
    ~LevelRestorer() { orv::logging::setLevel(m_level); }
    LevelRestorer(const LevelRestorer&) = delete;
    LevelRestorer& operator=(const LevelRestorer&) = delete;

private:
    spdlog::level::level_enum m_level;
};

// Sets an environment variable while it lives.
class ScopedEnvironment {
public:
    ScopedEnvironment(const char* name, const char* value)
        : m_name(name)
    {
        if (const char* previous = std::getenv(name)) {
            m_previous = previous;
        }
        ::setenv(name, value, 1);
    }
    ~ScopedEnvironment()
    {
        if (m_previous) {
            ::setenv(m_name.c_str(), m_previous->c_str(), 1);
        } else {
            ::unsetenv(m_name.c_str());
        }
    }
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

private:
    std::string m_name;
    std::optional<std::string> m_previous;
};

TEST(LoggerTest, SameNameGivesTheSameSharedLogger)
{
    const auto first = orv::logging::getLogger("LoggerTest.shared");
    const auto second = orv::logging::getLogger("LoggerTest.shared");
    const auto other = orv::logging::getLogger("LoggerTest.other");
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first, second);
    EXPECT_NE(first, other);
    EXPECT_EQ(first->name(), "LoggerTest.shared");
    EXPECT_EQ(spdlog::get("LoggerTest.shared"), first) << "registered for everybody who asks by name";
}

TEST(LoggerTest, ConcurrentCallsForOneNameGiveOneLogger)
{
    constexpr int threadCount = 4;
    std::vector<std::shared_ptr<spdlog::logger>> found(threadCount);
    std::vector<std::thread> threads;
    for (int i = 0; i < threadCount; ++i) {
        threads.emplace_back([&found, i] {
            for (int call = 0; call < 50; ++call) {
                found[i] = orv::logging::getLogger("LoggerTest.concurrent");
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    const std::set<std::shared_ptr<spdlog::logger>> distinct(found.begin(), found.end());
    EXPECT_EQ(distinct.size(), 1u);
}

TEST(LoggerTest, CapturedLineCarriesFileLineAndFunction)
{
    LevelRestorer restorer;
    orv::logging::setLevel(spdlog::level::debug);
    const LogCapture captured("%s|%#|%!|%l|%v");
    auto logger = orv::logging::getLogger("LoggerTest");

    const int line = __LINE__ + 1;
    SPDLOG_LOGGER_DEBUG(logger, "text {} and {}", 42, "more");

    const auto lines = captured.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines.front(), "LoggerTest.cpp|" + std::to_string(line) + "|TestBody|debug|text 42 and more");
}

TEST(LoggerTest, RemovedSinkCapturesNothingMore)
{
    auto logger = orv::logging::getLogger("LoggerTest");
    auto sink = std::make_shared<spdlog::sinks::ringbuffer_sink_mt>(8);
    orv::logging::sinks()->add_sink(sink);
    SPDLOG_LOGGER_ERROR(logger, "while added");
    orv::logging::sinks()->remove_sink(sink);
    SPDLOG_LOGGER_ERROR(logger, "after removal");
    EXPECT_EQ(sink->last_formatted().size(), 1u);
}

TEST(LoggerTest, SetLevelGovernsExistingAndNewLoggers)
{
    LevelRestorer restorer;
    orv::logging::setLevel(spdlog::level::info);
    auto existing = orv::logging::getLogger("LoggerTest.existing");
    const LogCapture captured(LogCapture::g_messageOnly, LogCapture::Level::Unchanged);

    SPDLOG_LOGGER_DEBUG(existing, "hidden at info");
    SPDLOG_LOGGER_ERROR(existing, "error at info");
    EXPECT_FALSE(captured.contains("hidden at info"));
    EXPECT_TRUE(captured.contains("error at info"));

    orv::logging::setLevel(spdlog::level::debug);
    SPDLOG_LOGGER_DEBUG(existing, "existing at debug");
    auto created = orv::logging::getLogger("LoggerTest.createdAfterDebug");
    EXPECT_EQ(created->level(), spdlog::level::debug);
    SPDLOG_LOGGER_DEBUG(created, "new at debug");
    EXPECT_TRUE(captured.contains("existing at debug"));
    EXPECT_TRUE(captured.contains("new at debug"));

    orv::logging::setLevel(spdlog::level::info);
    SPDLOG_LOGGER_DEBUG(existing, "existing hidden again");
    SPDLOG_LOGGER_DEBUG(created, "new hidden again");
    EXPECT_FALSE(captured.contains("existing hidden again"));
    EXPECT_FALSE(captured.contains("new hidden again"));
}

TEST(LoggerTest, LevelFromNameKnowsEveryLevel)
{
    using spdlog::level::level_enum;
    EXPECT_EQ(orv::logging::levelFromName("trace"), level_enum::trace);
    EXPECT_EQ(orv::logging::levelFromName("debug"), level_enum::debug);
    EXPECT_EQ(orv::logging::levelFromName("info"), level_enum::info);
    EXPECT_EQ(orv::logging::levelFromName("warning"), level_enum::warn);
    EXPECT_EQ(orv::logging::levelFromName("warn"), level_enum::warn);
    EXPECT_EQ(orv::logging::levelFromName("error"), level_enum::err);
    EXPECT_EQ(orv::logging::levelFromName("err"), level_enum::err);
    EXPECT_EQ(orv::logging::levelFromName("critical"), level_enum::critical);
    EXPECT_EQ(orv::logging::levelFromName("off"), level_enum::off);
    EXPECT_EQ(orv::logging::levelFromName("DEBUG"), level_enum::debug);
    EXPECT_EQ(orv::logging::levelFromName("Off"), level_enum::off);
}

TEST(LoggerTest, LevelFromNameRefusesUnknownNames)
{
    EXPECT_EQ(orv::logging::levelFromName("loud"), std::nullopt);
    EXPECT_EQ(orv::logging::levelFromName(""), std::nullopt);
    EXPECT_EQ(orv::logging::levelFromName(" debug"), std::nullopt);
}

// The environment is read once per process, so each case runs in a fresh
// copy of this program (a re-executed death-test child) and reports the
// level of its first logger as its exit code.
void expectInitialLevel(const char* environmentValue, spdlog::level::level_enum expected)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const ScopedEnvironment environment("ORV_LOG_LEVEL", environmentValue);
    EXPECT_EXIT(std::exit(static_cast<int>(orv::logging::getLogger("LoggerTest.environment")->level())),
                testing::ExitedWithCode(static_cast<int>(expected)), "")
        << "ORV_LOG_LEVEL=" << environmentValue;
}

TEST(LoggerTest, InitialLevelComesFromTheEnvironment)
{
    expectInitialLevel("debug", spdlog::level::debug);
    expectInitialLevel("ERROR", spdlog::level::err);
}

TEST(LoggerTest, UnknownEnvironmentLevelGivesInfo)
{
    expectInitialLevel("loud", spdlog::level::info);
}

} // namespace
