#pragma once

#include <exception>
#include <string>

namespace orv::modbus {

// A Modbus protocol refusal. Request processing throws it while it checks a
// request and turns it into an exception reply carrying getCode(); it never
// leaves request processing.
class ModbusException : public std::exception {
public:
    // Modbus exception codes the library replies with.
    static constexpr unsigned g_illegalFunction = 1;
    static constexpr unsigned g_illegalDataAddress = 2;

    explicit ModbusException(unsigned code);

    // "Modbus error code " followed by the code in decimal.
    const char* what() const noexcept override;

    unsigned getCode() const noexcept;

private:
    unsigned m_code;
    std::string m_message;
};

} // namespace orv::modbus
