#pragma once
// Collects the messages logged while it lives, with the library's loggers at
// debug level. Safe while other threads log.

#include <orv/logging/Logger.h>

#include <algorithm>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <spdlog/sinks/base_sink.h>

namespace orv::modbus::cds::test {

class LogLines {
public:
    LogLines()
        : m_previousLevel(orv::logging::getLogger("ModbusServer")->level())
        , m_pSink(std::make_shared<Sink>())
    {
        orv::logging::sinks()->add_sink(m_pSink);
        orv::logging::setLevel(spdlog::level::debug);
    }

    ~LogLines()
    {
        orv::logging::sinks()->remove_sink(m_pSink);
        orv::logging::setLevel(m_previousLevel);
    }

    LogLines(const LogLines&) = delete;
    LogLines& operator=(const LogLines&) = delete;

    bool contains(const std::string& message) const
    {
        const auto all = m_pSink->messages();
        return std::find(all.begin(), all.end(), message) != all.end();
    }

    // Whether a message came from a source file of that name.
    bool containsFrom(const std::string& message, const std::string& file) const
    {
        return m_pSink->containsFrom(message, file);
    }

private:
    class Sink : public spdlog::sinks::base_sink<std::mutex> {
    public:
        std::vector<std::string> messages()
        {
            std::lock_guard lock(mutex_);
            std::vector<std::string> result;
            for (const auto& [message, file] : m_entries) {
                result.push_back(message);
            }
            return result;
        }

        bool containsFrom(const std::string& message, const std::string& file)
        {
            std::lock_guard lock(mutex_);
            return std::any_of(m_entries.begin(), m_entries.end(), [&](const auto& entry) {
                return entry.first == message && entry.second.find(file) != std::string::npos;
            });
        }

    protected:
        void sink_it_(const spdlog::details::log_msg& msg) override
        {
            m_entries.emplace_back(std::string(msg.payload.begin(), msg.payload.end()),
                                   msg.source.filename != nullptr ? msg.source.filename : "");
        }
        void flush_() override {}

    private:
        std::vector<std::pair<std::string, std::string>> m_entries;
    };

    spdlog::level::level_enum m_previousLevel;
    std::shared_ptr<Sink> m_pSink;
};

} // namespace orv::modbus::cds::test
