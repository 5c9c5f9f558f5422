#include <orv/modbus/ModbusException.h>

namespace orv::modbus {

ModbusException::ModbusException(unsigned code)
    : m_code(code)
    , m_message("Modbus error code " + std::to_string(code))
{
}

const char* ModbusException::what() const noexcept
{
    return m_message.c_str();
}

unsigned ModbusException::getCode() const noexcept
{
    return m_code;
}

} // namespace orv::modbus
