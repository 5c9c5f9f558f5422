#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace orv::modbus {

// Source and sink of one discrete entry's value, as bits held one byte
// (0 or 1) per bit, the first byte belonging to the lowest address. The
// calling order is the one of RegistersDataAccessor.
class DiscretesDataAccessor {
public:
    virtual ~DiscretesDataAccessor() = default;

    // Bits written by a Modbus client: exactly getSize() of them.
    virtual void setData(const std::vector<uint8_t>& data) = 0;

    virtual std::vector<uint8_t> getData() const = 0;

    virtual std::string getDataRepresentation() const = 0;

    virtual bool isDataAvailable() const = 0;

    virtual void setCallback(std::function<void(const std::vector<uint8_t>&)> callback) = 0;

    virtual std::string getStrValue() const = 0;

    // Number of bits; constant for the accessor's lifetime.
    virtual uint16_t getSize() const = 0;
};

} // namespace orv::modbus
