#include <orv/modbus/cds/CdsFloatAccessor.h>

#include "RegisterWords.h"

#include <fmt/format.h>

#include <utility>

namespace orv::modbus::cds {

CdsFloatAccessor::CdsFloatAccessor(std::shared_ptr<CdsDataAccessor> accessor, float scale, unsigned char decimals)
    : CdsRegistersAccessorBase(std::move(accessor), 2)
    , m_scale(scale)
    , m_decimals(decimals)
{
    listenToCds(this);
}

CdsFloatAccessor::CdsFloatAccessor(CdsDataAccessor* accessor, float scale, unsigned char decimals)
    : CdsRegistersAccessorBase(accessor, 2)
    , m_scale(scale)
    , m_decimals(decimals)
{
    listenToCds(this);
}

CdsFloatAccessor::~CdsFloatAccessor()
{
    stopListening();
}

void CdsFloatAccessor::setData(const std::vector<uint16_t>& data)
{
    writeIfAvailable([&] {
        const float value = RegisterWords::joinFloat(data, m_byteOrder, RegisterWords::setDataMessage);
        return value / m_scale;
    });
}

std::vector<uint16_t> CdsFloatAccessor::getData() const
{
    return readIfAvailable<std::vector<uint16_t>>([&] {
        return buildArrayFromFloat(cdsAccessor().getCValue().as_float() * m_scale);
    });
}

std::string CdsFloatAccessor::getDataRepresentation() const
{
    return describeWithByteOrder("Float (");
}

std::string CdsFloatAccessor::getStrValue() const
{
    return readIfAvailable<std::string>([&] {
        return fmt::format("{:.{}f}", cdsAccessor().getCValue().as_float() * m_scale, m_decimals);
    });
}

std::vector<uint16_t> CdsFloatAccessor::buildArrayFromFloat(float value) const
{
    return RegisterWords::splitFloat(value * m_scale, m_byteOrder, RegisterWords::buildFromFloatMessage);
}

std::vector<uint16_t> CdsFloatAccessor::wordsOf(const zu::CValue& value) const
{
    return buildArrayFromFloat(value.as_float());
}

} // namespace orv::modbus::cds
