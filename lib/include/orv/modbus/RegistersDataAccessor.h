#pragma once

#include <orv/modbus/ByteOrder.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace orv::modbus {

// Source and sink of one register entry's value, as 16-bit register words.
// The first word always belongs to the lowest address of the entry.
//
// Calling order: the entry calls getSize() once while it is constructed,
// then setCallback() once, then getData() when the map attaches its tables.
// From then on every operation may be called at any time, and the callback
// may be invoked from any thread with the complete new value. The entry's
// destructor calls setCallback() once more, with a callback that does
// nothing, before any part of the entry is destroyed: an accessor calling
// back from another thread makes that call wait for a running callback, so
// that the old one is never called into a dying entry.
class RegistersDataAccessor {
public:
    virtual ~RegistersDataAccessor() = default;

    // Words written by a Modbus client: exactly getSize() of them.
    virtual void setData(const std::vector<uint16_t>& data) = 0;

    virtual std::vector<uint16_t> getData() const = 0;

    // A short word for how the value is encoded, shown in the map export.
    virtual std::string getDataRepresentation() const = 0;

    // Whether the underlying data exists and is valid now. Accessors report
    // unavailability here, never by throwing.
    virtual bool isDataAvailable() const = 0;

    // Called with the new words whenever the underlying value changes.
    virtual void setCallback(std::function<void(const std::vector<uint16_t>&)> callback) = 0;

    virtual std::string getStrValue() const = 0;

    // Number of registers the value occupies. Must stay constant for the
    // accessor's lifetime and be safe to call without synchronisation.
    virtual uint16_t getSize() const = 0;

    virtual void setByteOrder(ByteOrder order);

protected:
    ByteOrder m_byteOrder = ByteOrder::ABCD;
};

} // namespace orv::modbus
