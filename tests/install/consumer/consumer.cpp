// A plug-in-style program built outside the tree against the installed
// library: it uses the library, every stand-in and libmodbus.
#include <cdsapi/CdsAccessor.h>
#include <orv/logging/Logger.h>
#include <orv/modbus/ByteOrder.h>
#include <orv/modbus/ModbusRtuRequestHandler.h>
#include <zu/CValue.h>

#include <modbus/modbus.h>

#include <cstdint>
#include <iostream>

int main()
{
    const zu::CValue value(1.5f);
    const bool storeWorks = cdsapi::CdsAccessor("consumer", true).getCatchedChannelId(1, "none") == ~0ULL;
    const std::string order = orv::modbus::to_string(orv::modbus::ByteOrder::CDAB);
    const std::uint8_t readHolding[] = {1, MODBUS_FC_READ_HOLDING_REGISTERS, 0, 0, 0, 1, 0, 0};
    const bool rtuLengthWorks = orv::modbus::ModbusRtuRequestHandler::getRequestSize(readHolding, 8) == 8;
    const bool ok = storeWorks && rtuLengthWorks && order == "CDAB" && value.as_string() == "1.5"
                    && modbus_strerror(EMBBADCRC) != nullptr && orv::logging::getLogger("consumer") != nullptr;
    std::cout << (ok ? "consumer ok" : "consumer FAILED") << '\n';
    return ok ? 0 : 1;
}
