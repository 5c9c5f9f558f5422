#pragma once

#include <orv/modbus/cds/CdsOneValueAccessorBase.h>

#include <string>

namespace orv::modbus::cds {

// A register accessor over one data-store accessor; see
// CdsOneValueAccessorBase for how it listens and is destroyed.
class CdsRegistersAccessorBase : public CdsOneValueAccessorBase<RegistersDataAccessor> {
protected:
    using CdsOneValueAccessorBase::CdsOneValueAccessorBase;

    // "<name> (<byte order>)", as in "Float (ABCD)".
    std::string describeWithByteOrder(const char* name) const;
};

} // namespace orv::modbus::cds
