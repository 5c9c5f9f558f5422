#pragma once
// Collects every line logged through the library's loggers while it lives.
// Safe while other threads log.
//
// Each line is kept as formatted by an spdlog pattern: the message alone by
// default, or e.g. "%!|%v" for "function|message". Unless told otherwise it
// lowers every logger to debug while it lives, so that debug lines are seen.

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include <spdlog/common.h>

namespace orv::test {

class LogCapture {
public:
    enum class Level { Debug, Unchanged };

    static constexpr const char* g_messageOnly = "%v";
    static constexpr const char* g_functionAndMessage = "%!|%v";

    explicit LogCapture(const std::string& pattern = g_messageOnly, Level level = Level::Debug);
    ~LogCapture();

    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    // Every line so far, oldest first.
    std::vector<std::string> lines() const;

    std::size_t count(const std::string& line) const;
    bool contains(const std::string& line) const;
    bool containsAt(spdlog::level::level_enum level, const std::string& line) const;
    // Whether a line of that level matches the regular expression as a whole.
    bool containsMatching(spdlog::level::level_enum level, const std::string& pattern) const;
    // Whether the line came from a source file whose path contains `file`.
    bool containsFrom(const std::string& line, const std::string& file) const;

    // Position of the first such line, or -1.
    long indexOf(const std::string& line) const;

    // Bounded waits for a line that another thread logs (a server logs a
    // close after the close itself).
    bool waitFor(const std::string& line, std::chrono::milliseconds timeout = std::chrono::seconds(3)) const;
    bool waitForAt(spdlog::level::level_enum level, const std::string& line,
                   std::chrono::milliseconds timeout = std::chrono::seconds(3)) const;
    bool waitForMatching(spdlog::level::level_enum level, const std::string& pattern,
                         std::chrono::milliseconds timeout = std::chrono::seconds(3)) const;

private:
    class Sink;

    std::shared_ptr<Sink> m_pSink;
    bool m_levelChanged;
    spdlog::level::level_enum m_previousLevel;
};

} // namespace orv::test
