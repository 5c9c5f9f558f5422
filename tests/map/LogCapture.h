#pragma once
// Collects the lines logged while it lives, as "function|message", with the
// library's loggers at debug level.

#include <orv/logging/Logger.h>

#include <algorithm>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <spdlog/sinks/ostream_sink.h>

namespace orv::modbus::test {

class LogCapture {
public:
    LogCapture()
        : m_previousLevel(orv::logging::getLogger("ModbusServer")->level())
        , m_pSink(std::make_shared<spdlog::sinks::ostream_sink_mt>(m_stream))
    {
        m_pSink->set_pattern("%!|%v");
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

    std::vector<std::string> lines()
    {
        m_pSink->flush();
        std::vector<std::string> result;
        std::istringstream text(m_stream.str());
        for (std::string line; std::getline(text, line);) {
            result.push_back(line);
        }
        return result;
    }

    bool contains(const std::string& line)
    {
        const auto all = lines();
        return std::find(all.begin(), all.end(), line) != all.end();
    }

private:
    spdlog::level::level_enum m_previousLevel;
    std::ostringstream m_stream;
    std::shared_ptr<spdlog::sinks::ostream_sink_mt> m_pSink;
};

} // namespace orv::modbus::test
