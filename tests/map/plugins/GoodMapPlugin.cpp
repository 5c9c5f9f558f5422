// A well-formed map plug-in: one holding register whose value never changes.

#include <orv/modbus/HoldingRegisters.h>
#include <orv/modbus/ModbusMap.h>

namespace {

using orv::modbus::RegistersDataAccessor;

class ConstantAccessor : public RegistersDataAccessor {
public:
    void setData(const std::vector<uint16_t>& /*data*/) override
    {
    }
    std::vector<uint16_t> getData() const override
    {
        return {0x002a};
    }
    std::string getDataRepresentation() const override
    {
        return "constant";
    }
    bool isDataAvailable() const override
    {
        return true;
    }
    void setCallback(std::function<void(const std::vector<uint16_t>&)> /*callback*/) override
    {
    }
    std::string getStrValue() const override
    {
        return "42";
    }
    uint16_t getSize() const override
    {
        return 1;
    }
};

} // namespace

extern "C" {

// How often the registry called the factory.
int createMapCalls = 0;

orv::modbus::ModbusMap* createMap()
{
    ++createMapCalls;
    return new orv::modbus::ModbusMap(
        "plugin-map",
        {new orv::modbus::HoldingRegisters(0, new ConstantAccessor, false, "answer", "the answer", "")}, nullptr,
        orv::modbus::ByteOrder::ABCD);
}
}
