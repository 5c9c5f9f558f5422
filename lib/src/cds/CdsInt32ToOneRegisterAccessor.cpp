#include <orv/modbus/cds/CdsInt32ToOneRegisterAccessor.h>

#include "SaturatingCast.h"

#include <utility>

namespace orv::modbus::cds {

CdsInt32ToOneRegisterAccessor::CdsInt32ToOneRegisterAccessor(std::shared_ptr<CdsDataAccessor> accessor,
                                                             float factor)
    : CdsRegistersAccessorBase(std::move(accessor), 1)
    , m_factor(factor)
{
    listenToCds(this);
}

CdsInt32ToOneRegisterAccessor::CdsInt32ToOneRegisterAccessor(CdsDataAccessor* accessor, float factor)
    : CdsRegistersAccessorBase(accessor, 1)
    , m_factor(factor)
{
    listenToCds(this);
}

CdsInt32ToOneRegisterAccessor::~CdsInt32ToOneRegisterAccessor()
{
    stopListening();
}

void CdsInt32ToOneRegisterAccessor::setData(const std::vector<uint16_t>& data)
{
    writeIfAvailable([&] {
        std::int32_t value = 0;
        if (!data.empty()) {
            const uint16_t word = data.at(0);
            value = m_factor == 1.0f
                        ? static_cast<std::int32_t>(word)
                        : SaturatingCast::toInt32(static_cast<double>(word) * static_cast<double>(1.0f / m_factor));
        }
        return value;
    });
}

std::string CdsInt32ToOneRegisterAccessor::getDataRepresentation() const
{
    return "Int16";
}

std::string CdsInt32ToOneRegisterAccessor::getStrValue() const
{
    return readIfAvailable<std::string>([&] {
        return std::to_string(multiplyData(cdsAccessor().getCValue().as_int32()));
    });
}

int CdsInt32ToOneRegisterAccessor::multiplyData(int value) const
{
    return SaturatingCast::toInt32(static_cast<float>(value) * m_factor);
}

std::vector<uint16_t> CdsInt32ToOneRegisterAccessor::buildArrayFromInt32(int value) const
{
    return {static_cast<uint16_t>(static_cast<std::uint32_t>(multiplyData(value)) & 0xFFFFu)};
}

std::vector<uint16_t> CdsInt32ToOneRegisterAccessor::wordsOf(const zu::CValue& value) const
{
    return buildArrayFromInt32(value.as_int32());
}

} // namespace orv::modbus::cds
