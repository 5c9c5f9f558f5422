#pragma once
// The register kind of FakeAccessor; it also tells the byte order the entry
// or map passed on.

#include "FakeAccessor.h"

#include <orv/modbus/RegistersDataAccessor.h>

namespace orv::test {

class FakeRegistersAccessor : public FakeAccessor<uint16_t, modbus::RegistersDataAccessor> {
public:
    using FakeAccessor::FakeAccessor;

    modbus::ByteOrder byteOrder() const
    {
        return m_byteOrder;
    }
};

} // namespace orv::test
