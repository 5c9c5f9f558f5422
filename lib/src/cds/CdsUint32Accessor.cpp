#include <orv/modbus/cds/CdsUint32Accessor.h>

#include "RegisterWords.h"

#include <utility>

namespace orv::modbus::cds {

CdsUint32Accessor::CdsUint32Accessor(std::shared_ptr<CdsDataAccessor> accessor)
    : CdsRegistersAccessorBase(std::move(accessor), 2)
{
    listenToCds(this);
}

CdsUint32Accessor::CdsUint32Accessor(CdsDataAccessor* accessor)
    : CdsRegistersAccessorBase(accessor, 2)
{
    listenToCds(this);
}

CdsUint32Accessor::~CdsUint32Accessor()
{
    stopListening();
}

void CdsUint32Accessor::setData(const std::vector<uint16_t>& data)
{
    writeIfAvailable([&] { return RegisterWords::join(data, m_byteOrder, RegisterWords::setDataMessage); });
}

std::string CdsUint32Accessor::getDataRepresentation() const
{
    return describeWithByteOrder("UInt32 (");
}

std::string CdsUint32Accessor::getStrValue() const
{
    return readIfAvailable<std::string>([&] { return std::to_string(cdsAccessor().getCValue().as_uint32()); });
}

// The name is the one the signed class uses; map code calls it so.
std::vector<uint16_t> CdsUint32Accessor::buildArrayFromInt32(unsigned int value) const
{
    return RegisterWords::split(value, m_byteOrder, RegisterWords::buildFromInt32Message);
}

std::vector<uint16_t> CdsUint32Accessor::wordsOf(const zu::CValue& value) const
{
    return buildArrayFromInt32(value.as_uint32());
}

} // namespace orv::modbus::cds
