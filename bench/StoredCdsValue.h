#pragma once
// A data-store value held in memory: the cheapest possible CdsDataAccessor,
// so that a benchmark of the conversion accessors measures the conversion.

#include <orv/modbus/cds/CdsDataAccessor.h>

#include <functional>
#include <utility>

namespace orv::modbus::bench {

class StoredCdsValue : public cds::CdsDataAccessor {
public:
    explicit StoredCdsValue(zu::CValue value)
        : m_value(std::move(value))
    {
    }

    void setCValue(const zu::CValue& value) override
    {
        m_value = value;
    }

    zu::CValue getCValue() const override
    {
        return m_value;
    }

    bool isExistingInCds() const override
    {
        return true;
    }

    void setUpdateCallback(std::function<void(const zu::CValue&)> callback) override
    {
        m_callback = std::move(callback);
        if (m_callback) {
            m_callback(m_value);
        }
    }

    // A change of the value, delivered as a data-store notification would.
    void change(const zu::CValue& value)
    {
        m_value = value;
        if (m_callback) {
            m_callback(m_value);
        }
    }

private:
    zu::CValue m_value;
    std::function<void(const zu::CValue&)> m_callback;
};

} // namespace orv::modbus::bench
