#include <orv/modbus/cds/CdsDataToDiscretesAccessor.h>

#include <algorithm>
#include <utility>

namespace orv::modbus::cds {

CdsDataToDiscretesAccessor::CdsDataToDiscretesAccessor(uint16_t size, const std::vector<CdsDataAccessor*>& accessors,
                                                       ToBits toBits, FromBits fromBits, MissingAccessorPolicy policy)
    : CdsCompositeAccessorBase(size, accessors, policy)
    , m_toBits(std::move(toBits))
    , m_fromBits(std::move(fromBits))
{
    listenToCds(this);
}

CdsDataToDiscretesAccessor::~CdsDataToDiscretesAccessor()
{
    stopListening();
}

void CdsDataToDiscretesAccessor::setData(const std::vector<uint8_t>& data)
{
    if (!isDataAvailable() || !m_fromBits) {
        return;
    }
    const auto values = m_fromBits(buildArrayFromUint8(data));
    for (std::size_t index = 0; index < values.size(); ++index) {
        writeValue(index, values[index]);
    }
}

std::vector<uint8_t> CdsDataToDiscretesAccessor::getData() const
{
    if (!isDataAvailable() || !m_toBits) {
        return {};
    }
    return buildArrayFromBool(m_toBits(updateCachedValues()));
}

std::string CdsDataToDiscretesAccessor::getDataRepresentation() const
{
    return getData().size() == 1 ? "Boolean" : "See Description";
}

std::string CdsDataToDiscretesAccessor::getStrValue() const
{
    if (!isDataAvailable() || !m_toBits) {
        return {};
    }
    std::string text;
    for (const bool bit : m_toBits(updateCachedValues())) {
        text += bit ? '1' : '0';
    }
    return text;
}

std::vector<uint8_t> CdsDataToDiscretesAccessor::buildArrayFromBool(const std::vector<bool>& bits) const
{
    std::vector<uint8_t> bytes(getSize(), 0);
    std::copy_n(bits.begin(), std::min(bits.size(), bytes.size()), bytes.begin());
    return bytes;
}

std::vector<bool> CdsDataToDiscretesAccessor::buildArrayFromUint8(const std::vector<uint8_t>& bytes) const
{
    std::vector<bool> flags(dataPointCount(), false);
    for (std::size_t index = 0; index < std::min(bytes.size(), flags.size()); ++index) {
        flags[index] = bytes[index] == 1;
    }
    return flags;
}

void CdsDataToDiscretesAccessor::callbackCdsEvent(const zu::CValue& value, unsigned int index)
{
    const auto cache = storeInCache(value, index);
    publish([&] { return buildArrayFromBool(m_toBits(cache)); });
}

} // namespace orv::modbus::cds
