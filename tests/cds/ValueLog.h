#pragma once
// Records the values a data-store accessor hands to its update callback,
// from whichever thread.

#include <zu/CValue.h>

#include <functional>
#include <mutex>
#include <vector>

namespace orv::modbus::cds::test {

class ValueLog {
public:
    std::function<void(const zu::CValue&)> callback()
    {
        return [this](const zu::CValue& value) {
            std::lock_guard lock(m_mutex);
            m_values.push_back(value);
        };
    }

    std::vector<zu::CValue> values() const
    {
        std::lock_guard lock(m_mutex);
        return m_values;
    }

    std::size_t count() const
    {
        std::lock_guard lock(m_mutex);
        return m_values.size();
    }

    // The last value received, or an invalid one when none came yet.
    zu::CValue last() const
    {
        std::lock_guard lock(m_mutex);
        return m_values.empty() ? zu::CValue() : m_values.back();
    }

    bool lastIs(const zu::CValue& value) const
    {
        std::lock_guard lock(m_mutex);
        return !m_values.empty() && m_values.back() == value;
    }

private:
    mutable std::mutex m_mutex;
    std::vector<zu::CValue> m_values;
};

} // namespace orv::modbus::cds::test
