#pragma once

#include <orv/modbus/RegistersDataAccessor.h>

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace orv::modbus::test {

// A register value held in memory: what a client writes is kept and read
// back, as a data store would echo an accepted write.
class FakeRegistersAccessor : public RegistersDataAccessor {
public:
    explicit FakeRegistersAccessor(std::vector<uint16_t> words)
        : m_words(std::move(words))
    {
    }

    void setData(const std::vector<uint16_t>& data) override
    {
        std::function<void(const std::vector<uint16_t>&)> callback;
        {
            std::lock_guard lock(m_mutex);
            m_words = data;
            ++m_writes;
            callback = m_callback;
        }
        if (callback) {
            callback(data);
        }
    }

    std::vector<uint16_t> getData() const override
    {
        std::lock_guard lock(m_mutex);
        return m_words;
    }

    std::string getDataRepresentation() const override { return "fake"; }
    bool isDataAvailable() const override { return true; }

    void setCallback(std::function<void(const std::vector<uint16_t>&)> callback) override
    {
        std::lock_guard lock(m_mutex);
        m_callback = std::move(callback);
    }

    std::string getStrValue() const override { return "fake"; }
    uint16_t getSize() const override { return static_cast<uint16_t>(m_words.size()); }

    int writes() const
    {
        std::lock_guard lock(m_mutex);
        return m_writes;
    }

private:
    mutable std::mutex m_mutex;
    std::vector<uint16_t> m_words;
    std::function<void(const std::vector<uint16_t>&)> m_callback;
    int m_writes = 0;
};

} // namespace orv::modbus::test
