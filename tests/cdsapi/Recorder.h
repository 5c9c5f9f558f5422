#pragma once
// A thread-safe record of the notifications a data-store client delivered,
// with bounded waits for the ones still on their way.

#include <zu/CAlarmTrigger.h>
#include <zu/CValue.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace cdsapi::test {

class Recorder {
public:
    struct Entry {
        std::string text;
        zu::CValue value;
        zu::CAlarmUpdate alarm;
        std::thread::id thread;
    };

    void add(Entry entry)
    {
        {
            const std::lock_guard lock(m_mutex);
            m_entries.push_back(std::move(entry));
        }
        m_changed.notify_all();
    }

    std::vector<Entry> entries() const
    {
        const std::lock_guard lock(m_mutex);
        return m_entries;
    }

    std::vector<std::string> texts() const
    {
        std::vector<std::string> result;
        for (const auto& entry : entries()) {
            result.push_back(entry.text);
        }
        return result;
    }

    bool waitForText(const std::string& text, std::chrono::milliseconds timeout = std::chrono::seconds(5))
    {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, timeout, [&] {
            for (const auto& entry : m_entries) {
                if (entry.text == text) {
                    return true;
                }
            }
            return false;
        });
    }

    bool waitForCount(std::size_t count, std::chrono::milliseconds timeout = std::chrono::seconds(5))
    {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, timeout, [&] { return m_entries.size() >= count; });
    }

    void clear()
    {
        const std::lock_guard lock(m_mutex);
        m_entries.clear();
    }

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<Entry> m_entries;
};

} // namespace cdsapi::test
