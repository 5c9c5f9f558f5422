#include <orv/modbus/cds/CdsUint32ToOneRegisterAccessor.h>

#include "SaturatingCast.h"

#include <utility>

namespace orv::modbus::cds {

CdsUint32ToOneRegisterAccessor::CdsUint32ToOneRegisterAccessor(std::shared_ptr<CdsDataAccessor> accessor,
                                                               float factor)
    : CdsRegistersAccessorBase(std::move(accessor), 1)
    , m_factor(factor)
{
    listenToCds(this);
}

CdsUint32ToOneRegisterAccessor::CdsUint32ToOneRegisterAccessor(CdsDataAccessor* accessor, float factor)
    : CdsRegistersAccessorBase(accessor, 1)
    , m_factor(factor)
{
    listenToCds(this);
}

CdsUint32ToOneRegisterAccessor::CdsUint32ToOneRegisterAccessor(std::shared_ptr<CdsDataAccessor> accessor,
                                                               BitmaskOp operation, unsigned int mask,
                                                               std::optional<unsigned int> defaultValue)
    : CdsRegistersAccessorBase(std::move(accessor), 1)
    , m_operation(operation)
    , m_mask(mask)
    , m_defaultValue(defaultValue)
{
    listenToCds(this);
}

CdsUint32ToOneRegisterAccessor::CdsUint32ToOneRegisterAccessor(CdsDataAccessor* accessor, BitmaskOp operation,
                                                               unsigned int mask,
                                                               std::optional<unsigned int> defaultValue)
    : CdsRegistersAccessorBase(accessor, 1)
    , m_operation(operation)
    , m_mask(mask)
    , m_defaultValue(defaultValue)
{
    listenToCds(this);
}

CdsUint32ToOneRegisterAccessor::~CdsUint32ToOneRegisterAccessor()
{
    stopListening();
}

void CdsUint32ToOneRegisterAccessor::setData(const std::vector<uint16_t>& data)
{
    writeIfAvailable([&] {
        std::uint32_t value = 0;
        if (!data.empty()) {
            const uint16_t word = data.at(0);
            if (m_operation == BitmaskOp::Xor) {
                value = m_mask;
            } else if (m_factor == 1.0f) {
                value = word;
            } else {
                value = SaturatingCast::toUint32(static_cast<double>(word) * static_cast<double>(1.0f / m_factor));
            }
        }
        return value;
    });
}

std::vector<uint16_t> CdsUint32ToOneRegisterAccessor::getData() const
{
    if (isDataAvailable()) {
        return buildArrayFromUint32(cdsAccessor().getCValue().as_uint32(), true);
    }
    if (m_defaultValue) {
        return buildArrayFromUint32(*m_defaultValue, false);
    }
    return {};
}

std::string CdsUint32ToOneRegisterAccessor::getDataRepresentation() const
{
    return "UInt16";
}

bool CdsUint32ToOneRegisterAccessor::isDataAvailable() const
{
    return CdsRegistersAccessorBase::isDataAvailable() || m_defaultValue.has_value();
}

std::string CdsUint32ToOneRegisterAccessor::getStrValue() const
{
    return readIfAvailable<std::string>([&] {
        const auto words = getData();
        return words.empty() ? std::string() : std::to_string(words.front());
    });
}

std::vector<uint16_t> CdsUint32ToOneRegisterAccessor::buildArrayFromUint32(unsigned int value,
                                                                           bool applyConversion) const
{
    if (applyConversion) {
        if (m_operation == BitmaskOp::Xor) {
            value ^= m_mask;
        }
        if (m_factor != 1.0f) {
            value = SaturatingCast::toUint32(static_cast<float>(value) * m_factor);
        }
    }
    return {static_cast<uint16_t>(value & 0xFFFFu)};
}

std::vector<uint16_t> CdsUint32ToOneRegisterAccessor::wordsOf(const zu::CValue& value) const
{
    return buildArrayFromUint32(value.as_uint32(), true);
}

} // namespace orv::modbus::cds
