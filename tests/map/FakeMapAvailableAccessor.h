#pragma once
// A map availability that a test switches on and off.

#include <orv/modbus/MapAvailableAccessor.h>

#include <atomic>
#include <string>
#include <utility>

namespace orv::modbus::test {

class FakeMapAvailableAccessor : public MapAvailableAccessor {
public:
    FakeMapAvailableAccessor(bool available, std::string message)
        : m_available(available)
        , m_message(std::move(message))
    {
    }

    bool isAvailable() override
    {
        return m_available;
    }

    std::string notAvailableMessage() const override
    {
        return m_message;
    }

    void setAvailable(bool available)
    {
        m_available = available;
    }

private:
    std::atomic<bool> m_available;
    std::string m_message;
};

} // namespace orv::modbus::test
