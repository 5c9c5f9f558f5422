#pragma once

#include <zu/CValue.h>

#include <functional>

namespace orv::modbus::cds {

// Source and sink of one data-store value (a channel property, a device
// attribute, an alarm state) as a zu::CValue. The conversion accessors turn
// it into Modbus registers or bits.
class CdsDataAccessor {
public:
    // Concrete accessors release their data-store subscriptions here.
    virtual ~CdsDataAccessor() = default;

    // Writes the value to the data store with one synchronous call; does
    // nothing while the bound object is not found. Data-store failures
    // propagate.
    virtual void setCValue(const zu::CValue& value) = 0;

    // Asks the data store now (values are never cached). An empty value
    // while the bound object is not found. Data-store failures propagate.
    virtual zu::CValue getCValue() const = 0;

    // Whether the last detection found the bound object; no data-store call.
    virtual bool isExistingInCds() const = 0;

    // Installs the one change callback, replacing an earlier one. A
    // non-empty callback is called at once with getCValue(), then with every
    // new value (an empty value when the object disappears), from the data
    // store's notification thread.
    virtual void setUpdateCallback(std::function<void(const zu::CValue&)> callback) = 0;
};

} // namespace orv::modbus::cds
