#include <orv/modbus/cds/CdsFloatToOneRegisterAccessor.h>

#include "SaturatingCast.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace orv::modbus::cds {

CdsFloatToOneRegisterAccessor::CdsFloatToOneRegisterAccessor(std::shared_ptr<CdsDataAccessor> accessor,
                                                             float factor, float offset, ValueKind kind)
    : CdsRegistersAccessorBase(std::move(accessor), 1)
    , m_factor(factor)
    , m_offset(offset)
    , m_kind(kind)
{
    listenToCds(this);
}

CdsFloatToOneRegisterAccessor::CdsFloatToOneRegisterAccessor(CdsDataAccessor* accessor, float factor,
                                                             float offset, ValueKind kind)
    : CdsRegistersAccessorBase(accessor, 1)
    , m_factor(factor)
    , m_offset(offset)
    , m_kind(kind)
{
    listenToCds(this);
}

CdsFloatToOneRegisterAccessor::~CdsFloatToOneRegisterAccessor()
{
    stopListening();
}

void CdsFloatToOneRegisterAccessor::setData(const std::vector<uint16_t>& data)
{
    writeIfAvailable([&] {
        if (data.empty()) {
            return 0.0f;
        }
        const float reciprocal = 1.0f / m_factor;
        const float registerValue =
            isSigned() ? static_cast<float>(static_cast<int16_t>(data.at(0))) : static_cast<float>(data.at(0));
        return registerValue * reciprocal - m_offset;
    });
}

std::string CdsFloatToOneRegisterAccessor::getDataRepresentation() const
{
    return isSigned() ? "Int16" : "UInt16";
}

std::string CdsFloatToOneRegisterAccessor::getStrValue() const
{
    return readIfAvailable<std::string>([&] {
        const uint16_t word = buildArrayFromFloat(cdsAccessor().getCValue().as_float()).front();
        return isSigned() ? std::to_string(static_cast<int16_t>(word)) : std::to_string(word);
    });
}

float CdsFloatToOneRegisterAccessor::multiplyAndOffsetData(float value) const
{
    return (value + m_offset) * m_factor;
}

std::vector<uint16_t> CdsFloatToOneRegisterAccessor::buildArrayFromFloat(float value) const
{
    float scaled = multiplyAndOffsetData(value);
    if (isSigned()) {
        scaled = std::clamp(std::roundf(scaled), -32768.0f, 32767.0f);
    } else {
        scaled = std::min(std::roundf(std::fabs(scaled)), 65535.0f);
    }
    // The saturating unsigned conversion turns every negative result into 0.
    return {static_cast<uint16_t>(SaturatingCast::toUint32(scaled))};
}

std::vector<uint16_t> CdsFloatToOneRegisterAccessor::wordsOf(const zu::CValue& value) const
{
    return buildArrayFromFloat(value.as_float());
}

bool CdsFloatToOneRegisterAccessor::isSigned() const
{
    return m_kind == ValueKind::Signed;
}

} // namespace orv::modbus::cds
