#pragma once
// An in-memory data interface for map entries: it holds a value, records
// every setData call, and lets a test fire the entry's callback as a
// data-store notification would. The one fake accessor of the tests, the
// test plug-ins, the fuzz targets and the benchmarks.

#include <orv/modbus/DiscretesDataAccessor.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace orv::test {

template <class Word, class Interface>
class FakeAccessor : public Interface {
public:
    using Values = std::vector<Word>;
    using Callback = std::function<void(const Values&)>;

    // `destroyed`, when given, is set once the accessor is destroyed.
    explicit FakeAccessor(uint16_t size, Values initial = {}, bool* destroyed = nullptr)
        : m_size(size)
        , m_value(std::move(initial))
        , m_pDestroyed(destroyed)
    {
    }

    ~FakeAccessor() override
    {
        if (m_pDestroyed != nullptr) {
            *m_pDestroyed = true;
        }
    }

    void setData(const Values& data) override
    {
        if (m_onSetData) {
            m_onSetData(data);
        }
        if (m_keepWrites) {
            std::lock_guard lock(m_mutex);
            m_written.push_back(data);
        }
    }

    Values getData() const override
    {
        std::lock_guard lock(m_mutex);
        return m_value;
    }

    std::string getDataRepresentation() const override
    {
        return "fake";
    }

    bool isDataAvailable() const override
    {
        return m_available;
    }

    void setCallback(Callback callback) override
    {
        m_callback = std::move(callback);
        ++m_setCallbackCalls;
    }

    std::string getStrValue() const override
    {
        return "fake value";
    }

    uint16_t getSize() const override
    {
        return m_size;
    }

    // As a data-store notification would: the new value reaches the entry.
    void fire(const Values& values)
    {
        {
            std::lock_guard lock(m_mutex);
            m_value = values;
        }
        m_callback(values);
    }

    std::vector<Values> written() const
    {
        std::lock_guard lock(m_mutex);
        return m_written;
    }

    void setAvailable(bool available)
    {
        m_available = available;
    }

    // Runs inside setData, before the call is recorded.
    void onSetData(std::function<void(const Values&)> hook)
    {
        m_onSetData = std::move(hook);
    }

    // Benchmarks keep no record, so that a long run costs no memory.
    void keepWrites(bool keep)
    {
        m_keepWrites = keep;
    }

    int setCallbackCalls() const
    {
        return m_setCallbackCalls;
    }

private:
    const uint16_t m_size;
    mutable std::mutex m_mutex;
    Values m_value;
    std::vector<Values> m_written;
    std::atomic<bool> m_available{true};
    Callback m_callback;
    std::function<void(const Values&)> m_onSetData;
    int m_setCallbackCalls = 0;
    bool m_keepWrites = true;
    bool* m_pDestroyed;
};

using FakeDiscretesAccessor = FakeAccessor<uint8_t, modbus::DiscretesDataAccessor>;

} // namespace orv::test
