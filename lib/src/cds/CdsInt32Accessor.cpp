#include <orv/modbus/cds/CdsInt32Accessor.h>

#include "RegisterWords.h"

#include <utility>

namespace orv::modbus::cds {

CdsInt32Accessor::CdsInt32Accessor(std::shared_ptr<CdsDataAccessor> accessor)
    : CdsRegistersAccessorBase(std::move(accessor), 2)
{
    listenToCds(this);
}

CdsInt32Accessor::CdsInt32Accessor(CdsDataAccessor* accessor)
    : CdsRegistersAccessorBase(accessor, 2)
{
    listenToCds(this);
}

CdsInt32Accessor::~CdsInt32Accessor()
{
    stopListening();
}

void CdsInt32Accessor::setData(const std::vector<uint16_t>& data)
{
    writeIfAvailable([&] {
        const auto value = RegisterWords::join(data, m_byteOrder, RegisterWords::setDataMessage);
        return static_cast<std::int32_t>(value);
    });
}

std::string CdsInt32Accessor::getDataRepresentation() const
{
    return describeWithByteOrder("Int32 (");
}

std::string CdsInt32Accessor::getStrValue() const
{
    return readIfAvailable<std::string>([&] { return std::to_string(cdsAccessor().getCValue().as_int32()); });
}

std::vector<uint16_t> CdsInt32Accessor::buildArrayFromInt32(int value) const
{
    return RegisterWords::split(static_cast<std::uint32_t>(value), m_byteOrder, RegisterWords::buildFromInt32Message);
}

std::vector<uint16_t> CdsInt32Accessor::wordsOf(const zu::CValue& value) const
{
    return buildArrayFromInt32(value.as_int32());
}

} // namespace orv::modbus::cds
