#pragma once
// Records what a register or discretes accessor hands to its entry's
// callback, from whichever thread.

#include <cstdint>
#include <functional>
#include <mutex>
#include <vector>

namespace orv::modbus::cds::test {

template <typename Word>
class Published {
public:
    using Words = std::vector<Word>;

    std::function<void(const Words&)> callback()
    {
        return [this](const Words& words) {
            std::lock_guard lock(m_mutex);
            m_calls.push_back(words);
        };
    }

    std::vector<Words> calls() const
    {
        std::lock_guard lock(m_mutex);
        return m_calls;
    }

    std::size_t count() const
    {
        std::lock_guard lock(m_mutex);
        return m_calls.size();
    }

    Words last() const
    {
        std::lock_guard lock(m_mutex);
        return m_calls.empty() ? Words{} : m_calls.back();
    }

private:
    mutable std::mutex m_mutex;
    std::vector<Words> m_calls;
};

using PublishedWords = Published<uint16_t>;
using PublishedBits = Published<uint8_t>;

} // namespace orv::modbus::cds::test
