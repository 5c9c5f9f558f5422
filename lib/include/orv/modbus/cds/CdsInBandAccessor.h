#pragma once

#include <cdsapi/CdsAccessor.h>

namespace orv::modbus::cds {

// The one data-store client of the process, shared by every accessor. It is
// created on first use (thread-safe) under the client name "modbus" and
// lives until the process exits. Every subscription callback of the library
// therefore runs on this client's single notification thread.
class CdsInBandAccessor {
public:
    static cdsapi::CdsAccessor& getInstance();
};

} // namespace orv::modbus::cds
