#include <orv/modbus/cds/CdsFloatToRegistersAccessor.h>

#include "RegisterWords.h"
#include "SaturatingCast.h"

#include <utility>

namespace orv::modbus::cds {

CdsFloatToRegistersAccessor::CdsFloatToRegistersAccessor(std::shared_ptr<CdsDataAccessor> accessor)
    : CdsRegistersAccessorBase(std::move(accessor), 2)
{
    listenToCds(this);
}

CdsFloatToRegistersAccessor::CdsFloatToRegistersAccessor(CdsDataAccessor* accessor)
    : CdsRegistersAccessorBase(accessor, 2)
{
    listenToCds(this);
}

CdsFloatToRegistersAccessor::~CdsFloatToRegistersAccessor()
{
    stopListening();
}

void CdsFloatToRegistersAccessor::setData(const std::vector<uint16_t>& data)
{
    writeIfAvailable([&] { return RegisterWords::joinFloat(data, m_byteOrder, RegisterWords::setDataMessage); });
}

std::string CdsFloatToRegistersAccessor::getDataRepresentation() const
{
    return describeWithByteOrder("UInt32 (");
}

std::string CdsFloatToRegistersAccessor::getStrValue() const
{
    return readIfAvailable<std::string>([&] {
        return std::to_string(SaturatingCast::toUint32(cdsAccessor().getCValue().as_float()));
    });
}

std::vector<uint16_t> CdsFloatToRegistersAccessor::buildArrayFromFloat(float value) const
{
    return RegisterWords::split(SaturatingCast::toUint32(value), m_byteOrder, RegisterWords::buildFromFloatMessage);
}

std::vector<uint16_t> CdsFloatToRegistersAccessor::wordsOf(const zu::CValue& value) const
{
    return buildArrayFromFloat(value.as_float());
}

} // namespace orv::modbus::cds
