#pragma once
// A register accessor that forwards everything to the one it wraps and
// notes when a given value has reached the entry's table: the entry's
// callback writes the table, so the moment it returns is the moment a
// client can read the new value.

#include <orv/modbus/RegistersDataAccessor.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace orv::modbus::bench {

class TableProbe : public RegistersDataAccessor {
public:
    using Clock = std::chrono::steady_clock;

    explicit TableProbe(std::shared_ptr<RegistersDataAccessor> inner)
        : m_pInner(std::move(inner))
    {
    }

    // From now on, notes the time the table first holds `word`.
    void expect(uint16_t word)
    {
        m_seenAt = 0;
        m_expected = word;
    }

    // Nanoseconds on Clock when the expected word reached the table; 0 while
    // it has not.
    std::int64_t seenAt() const { return m_seenAt; }

    void setData(const std::vector<uint16_t>& data) override { m_pInner->setData(data); }
    std::vector<uint16_t> getData() const override { return m_pInner->getData(); }
    std::string getDataRepresentation() const override { return m_pInner->getDataRepresentation(); }
    bool isDataAvailable() const override { return m_pInner->isDataAvailable(); }
    std::string getStrValue() const override { return m_pInner->getStrValue(); }
    uint16_t getSize() const override { return m_pInner->getSize(); }
    void setByteOrder(ByteOrder order) override { m_pInner->setByteOrder(order); }

    void setCallback(std::function<void(const std::vector<uint16_t>&)> callback) override
    {
        m_pInner->setCallback([this, callback = std::move(callback)](const std::vector<uint16_t>& words) {
            callback(words);
            if (!words.empty() && words.front() == m_expected && m_seenAt == 0) {
                m_seenAt = Clock::now().time_since_epoch().count();
            }
        });
    }

private:
    std::shared_ptr<RegistersDataAccessor> m_pInner;
    std::atomic<int> m_expected{-1};
    std::atomic<std::int64_t> m_seenAt{0};
};

} // namespace orv::modbus::bench
