#pragma once

#include <orv/modbus/cds/CdsConversionAccessorBase.h>
#include <orv/modbus/cds/MissingAccessorPolicy.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

namespace orv::modbus::cds {

// A conversion accessor over several data points at once: it owns their
// data-store accessors, keeps the latest value of each in a cache and is
// available as its MissingAccessorPolicy says.
//
// The cache is written by change notifications and refreshed by every read;
// a value that a notification brings while a read is asking the data store
// is newer than what the read got and stays.
//
// A concrete class calls listenToCds(this) as the last step of its
// constructor, so that its callbackCdsEvent(const zu::CValue&, unsigned int)
// receives every new value of data point i with index i, and
// stopListening() first thing in its destructor.
template <class Interface>
class CdsCompositeAccessorBase : public CdsConversionAccessorBase<Interface> {
public:
    bool isDataAvailable() const override;
    uint16_t getSize() const override;

    // Reads every data point from the data store into the cache, in order,
    // and returns the cache.
    std::vector<zu::CValue> updateCachedValues() const;

protected:
    // Takes the raw data-store accessors into ownership, all of them, before
    // it throws std::invalid_argument for a null one.
    CdsCompositeAccessorBase(uint16_t size, const std::vector<CdsDataAccessor*>& accessors,
                             MissingAccessorPolicy policy);

    template <typename Self>
    void listenToCds(Self* self)
    {
        for (unsigned int index = 0; index < m_accessors.size(); ++index) {
            this->listenTo(*m_accessors[index],
                           [self, index](const zu::CValue& value) { self->callbackCdsEvent(value, index); });
        }
    }

    std::size_t dataPointCount() const;

    // Puts a notified value into the cache and returns the cache.
    std::vector<zu::CValue> storeInCache(const zu::CValue& value, unsigned int index);

    // Writes a valid value to data point `index`, taken with a bounds check
    // (std::out_of_range beyond the last one); an invalid value leaves its
    // data point alone.
    void writeValue(std::size_t index, const zu::CValue& value);

private:
    uint16_t m_size;
    std::vector<std::shared_ptr<CdsDataAccessor>> m_accessors;
    MissingAccessorPolicy m_policy;
    mutable std::mutex m_cacheMutex;
    mutable std::vector<zu::CValue> m_cache;
    // How many notifications each cache slot has taken.
    std::vector<std::uint64_t> m_notified;
};

extern template class CdsCompositeAccessorBase<RegistersDataAccessor>;
extern template class CdsCompositeAccessorBase<DiscretesDataAccessor>;

} // namespace orv::modbus::cds
