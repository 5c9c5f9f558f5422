#pragma once

#include "WaitUntil.h"

#include <orv/logging/Logger.h>

#include <algorithm>
#include <memory>
#include <mutex>
#include <regex>
#include <string>
#include <vector>

#include <spdlog/sinks/base_sink.h>

namespace orv::modbus::test {

// Collects the message text and level of every log line while it lives, at
// debug level.
class LogCapture {
public:
    struct Line {
        spdlog::level::level_enum level;
        std::string text;
    };

    LogCapture()
        : m_previousLevel(orv::logging::getLogger("ModbusServer")->level())
        , m_pSink(std::make_shared<Sink>())
    {
        orv::logging::sinks()->add_sink(m_pSink);
        orv::logging::setLevel(spdlog::level::debug);
    }

    ~LogCapture()
    {
        orv::logging::sinks()->remove_sink(m_pSink);
        orv::logging::setLevel(m_previousLevel);
    }

    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<Line> lines() const { return m_pSink->lines(); }

    std::size_t count(const std::string& text) const
    {
        const auto all = lines();
        return static_cast<std::size_t>(
            std::count_if(all.begin(), all.end(), [&text](const Line& line) { return line.text == text; }));
    }

    bool contains(const std::string& text) const { return count(text) > 0; }

    bool containsAt(spdlog::level::level_enum level, const std::string& text) const
    {
        const auto all = lines();
        return std::any_of(all.begin(), all.end(),
                           [&](const Line& line) { return line.level == level && line.text == text; });
    }

    bool containsMatching(spdlog::level::level_enum level, const std::string& pattern) const
    {
        const std::regex expression(pattern);
        const auto all = lines();
        return std::any_of(all.begin(), all.end(), [&](const Line& line) {
            return line.level == level && std::regex_match(line.text, expression);
        });
    }

    // Position of the first line with this text, or -1.
    long indexOf(const std::string& text) const
    {
        const auto all = lines();
        const auto found =
            std::find_if(all.begin(), all.end(), [&text](const Line& line) { return line.text == text; });
        return found == all.end() ? -1 : static_cast<long>(found - all.begin());
    }

    bool waitFor(const std::string& text, std::chrono::milliseconds timeout = std::chrono::seconds(3)) const
    {
        return waitUntil([&] { return contains(text); }, timeout);
    }

    // The server logs a close after the close itself: a test that saw the
    // close waits for the line.
    bool waitForAt(spdlog::level::level_enum level, const std::string& text,
                   std::chrono::milliseconds timeout = std::chrono::seconds(3)) const
    {
        return waitUntil([&] { return containsAt(level, text); }, timeout);
    }

    bool waitForMatching(spdlog::level::level_enum level, const std::string& pattern,
                         std::chrono::milliseconds timeout = std::chrono::seconds(3)) const
    {
        return waitUntil([&] { return containsMatching(level, pattern); }, timeout);
    }

private:
    class Sink : public spdlog::sinks::base_sink<std::mutex> {
    public:
        std::vector<Line> lines()
        {
            std::lock_guard lock(mutex_);
            return m_lines;
        }

    protected:
        void sink_it_(const spdlog::details::log_msg& message) override
        {
            m_lines.push_back({message.level, std::string(message.payload.data(), message.payload.size())});
        }
        void flush_() override {}

    private:
        std::vector<Line> m_lines;
    };

    spdlog::level::level_enum m_previousLevel;
    std::shared_ptr<Sink> m_pSink;
};

} // namespace orv::modbus::test
