#include "LogCapture.h"

#include "WaitUntil.h"

#include <orv/logging/Logger.h>

#include <algorithm>
#include <mutex>
#include <regex>

#include <spdlog/sinks/base_sink.h>

namespace orv::test {

class LogCapture::Sink : public spdlog::sinks::base_sink<std::mutex> {
public:
    struct Line {
        spdlog::level::level_enum level;
        std::string text;
        std::string file;
    };

    std::vector<Line> lines()
    {
        std::lock_guard lock(mutex_);
        return m_lines;
    }

protected:
    void sink_it_(const spdlog::details::log_msg& message) override
    {
        spdlog::memory_buf_t formatted;
        formatter_->format(message, formatted);
        std::string text(formatted.data(), formatted.size());
        text.erase(text.find_last_not_of("\r\n") + 1);
        const char* file = message.source.filename != nullptr ? message.source.filename : "";
        m_lines.push_back({message.level, std::move(text), file});
    }
    void flush_() override {}

private:
    std::vector<Line> m_lines;
};

namespace {

template <typename Lines, typename Predicate>
std::size_t countIf(const Lines& lines, Predicate predicate)
{
    return static_cast<std::size_t>(std::count_if(lines.begin(), lines.end(), predicate));
}

} // namespace

LogCapture::LogCapture(const std::string& pattern, Level level)
    : m_pSink(std::make_shared<Sink>())
    , m_levelChanged(level == Level::Debug)
    , m_previousLevel(orv::logging::getLogger("ModbusServer")->level())
{
    m_pSink->set_pattern(pattern);
    orv::logging::sinks()->add_sink(m_pSink);
    if (m_levelChanged) {
        orv::logging::setLevel(spdlog::level::debug);
    }
}

LogCapture::~LogCapture()
{
    orv::logging::sinks()->remove_sink(m_pSink);
    if (m_levelChanged) {
        orv::logging::setLevel(m_previousLevel);
    }
}

std::vector<std::string> LogCapture::lines() const
{
    std::vector<std::string> result;
    for (auto& line : m_pSink->lines()) {
        result.push_back(std::move(line.text));
    }
    return result;
}

std::size_t LogCapture::count(const std::string& line) const
{
    return countIf(m_pSink->lines(), [&](const Sink::Line& logged) { return logged.text == line; });
}

bool LogCapture::contains(const std::string& line) const
{
    return count(line) > 0;
}

bool LogCapture::containsAt(spdlog::level::level_enum level, const std::string& line) const
{
    return countIf(m_pSink->lines(),
                   [&](const Sink::Line& logged) { return logged.level == level && logged.text == line; }) > 0;
}

bool LogCapture::containsMatching(spdlog::level::level_enum level, const std::string& pattern) const
{
    const std::regex expression(pattern);
    return countIf(m_pSink->lines(), [&](const Sink::Line& logged) {
               return logged.level == level && std::regex_match(logged.text, expression);
           }) > 0;
}

bool LogCapture::containsFrom(const std::string& line, const std::string& file) const
{
    return countIf(m_pSink->lines(), [&](const Sink::Line& logged) {
               return logged.text == line && logged.file.find(file) != std::string::npos;
           }) > 0;
}

long LogCapture::indexOf(const std::string& line) const
{
    const auto all = lines();
    const auto found = std::find(all.begin(), all.end(), line);
    return found == all.end() ? -1 : static_cast<long>(found - all.begin());
}

bool LogCapture::waitFor(const std::string& line, std::chrono::milliseconds timeout) const
{
    return waitUntil([&] { return contains(line); }, timeout);
}

bool LogCapture::waitForAt(spdlog::level::level_enum level, const std::string& line,
                           std::chrono::milliseconds timeout) const
{
    return waitUntil([&] { return containsAt(level, line); }, timeout);
}

bool LogCapture::waitForMatching(spdlog::level::level_enum level, const std::string& pattern,
                                 std::chrono::milliseconds timeout) const
{
    return waitUntil([&] { return containsMatching(level, pattern); }, timeout);
}

} // namespace orv::test
