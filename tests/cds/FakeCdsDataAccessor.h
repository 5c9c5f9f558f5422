#pragma once
// An in-memory data point for the conversion accessors: it holds a value,
// records every write, and lets a test push a change as a data-store
// notification would.

#include <orv/modbus/cds/CdsDataAccessor.h>

#include <functional>
#include <utility>
#include <vector>

namespace orv::modbus::cds::test {

class FakeCdsDataAccessor : public CdsDataAccessor {
public:
    explicit FakeCdsDataAccessor(zu::CValue value = {}, bool existing = true)
        : m_value(std::move(value))
        , m_existing(existing)
    {
    }

    void setCValue(const zu::CValue& value) override
    {
        m_written.push_back(value);
    }

    zu::CValue getCValue() const override
    {
        return m_existing ? m_value : zu::CValue();
    }

    bool isExistingInCds() const override
    {
        return m_existing;
    }

    void setUpdateCallback(std::function<void(const zu::CValue&)> callback) override
    {
        m_callback = std::move(callback);
        ++m_setUpdateCallbackCalls;
        if (m_callback) {
            m_callback(getCValue());
        }
    }

    // A change of the data point, delivered like a notification.
    void change(const zu::CValue& value)
    {
        m_value = value;
        if (m_callback) {
            m_callback(value);
        }
    }

    // A change of the data point that nobody is told about.
    void changeSilently(const zu::CValue& value)
    {
        m_value = value;
    }

    void setExisting(bool existing)
    {
        m_existing = existing;
    }

    const std::vector<zu::CValue>& written() const
    {
        return m_written;
    }

    bool hasCallback() const
    {
        return static_cast<bool>(m_callback);
    }

    int setUpdateCallbackCalls() const
    {
        return m_setUpdateCallbackCalls;
    }

private:
    zu::CValue m_value;
    bool m_existing;
    std::function<void(const zu::CValue&)> m_callback;
    std::vector<zu::CValue> m_written;
    int m_setUpdateCallbackCalls = 0;
};

} // namespace orv::modbus::cds::test
