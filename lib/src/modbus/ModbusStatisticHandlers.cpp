#include <orv/modbus/ModbusStatisticHandlers.h>

namespace orv::modbus {

ModbusStatisticHandlers::~ModbusStatisticHandlers() = default;

void ModbusStatisticHandlers::onTcpRequestReceived() {}
void ModbusStatisticHandlers::onTcpBadDeviceId() {}
void ModbusStatisticHandlers::onTcpRequestAccepted() {}
void ModbusStatisticHandlers::onTcpRequestRefused() {}
void ModbusStatisticHandlers::onTcpRequestProcessed() {}
void ModbusStatisticHandlers::reserved() {}
void ModbusStatisticHandlers::onRtuCrcError() {}
void ModbusStatisticHandlers::onRtuReceiveError() {}
void ModbusStatisticHandlers::onRtuRequestReceived() {}
void ModbusStatisticHandlers::onRtuBadDeviceId() {}
void ModbusStatisticHandlers::onRtuRequestAccepted() {}
void ModbusStatisticHandlers::onRtuRequestRefused() {}
void ModbusStatisticHandlers::onRtuRequestProcessed() {}
void ModbusStatisticHandlers::onTcpLoop() {}
void ModbusStatisticHandlers::onRtuLoop() {}

} // namespace orv::modbus
