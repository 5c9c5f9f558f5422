#include <orv/modbus/cds/CdsCompositeAccessorBase.h>

#include <algorithm>
#include <stdexcept>

namespace orv::modbus::cds {

namespace {

std::vector<std::shared_ptr<CdsDataAccessor>> takeOwnership(const std::vector<CdsDataAccessor*>& accessors)
{
    const std::vector<std::shared_ptr<CdsDataAccessor>> owned(accessors.begin(), accessors.end());
    if (std::find(accessors.begin(), accessors.end(), nullptr) != accessors.end()) {
        throw std::invalid_argument("Data accessor cannot be nullptr");
    }
    return owned;
}

} // namespace

template <class Interface>
CdsCompositeAccessorBase<Interface>::CdsCompositeAccessorBase(uint16_t size,
                                                              const std::vector<CdsDataAccessor*>& accessors,
                                                              MissingAccessorPolicy policy)
    : m_size(size)
    , m_accessors(takeOwnership(accessors))
    , m_policy(policy)
    , m_cache(accessors.size())
    , m_notified(accessors.size(), 0)
{
}

template <class Interface>
bool CdsCompositeAccessorBase<Interface>::isDataAvailable() const
{
    const auto existing = std::count_if(m_accessors.begin(), m_accessors.end(),
                                        [](const auto& accessor) { return accessor->isExistingInCds(); });
    switch (m_policy) {
    case MissingAccessorPolicy::AnyExisting:
        return existing > 0;
    case MissingAccessorPolicy::AllExisting:
        return static_cast<std::size_t>(existing) == m_accessors.size();
    }
    return false;
}

template <class Interface>
uint16_t CdsCompositeAccessorBase<Interface>::getSize() const
{
    return m_size;
}

template <class Interface>
std::vector<zu::CValue> CdsCompositeAccessorBase<Interface>::updateCachedValues() const
{
    for (std::size_t index = 0; index < m_accessors.size(); ++index) {
        std::uint64_t notifiedBefore = 0;
        {
            std::lock_guard lock(m_cacheMutex);
            notifiedBefore = m_notified[index];
        }
        // Asked without the lock, so that a notification never waits for
        // the data store.
        zu::CValue value = m_accessors[index]->getCValue();
        std::lock_guard lock(m_cacheMutex);
        if (m_notified[index] == notifiedBefore) {
            m_cache[index] = std::move(value);
        }
    }
    std::lock_guard lock(m_cacheMutex);
    return m_cache;
}

template <class Interface>
std::size_t CdsCompositeAccessorBase<Interface>::dataPointCount() const
{
    return m_accessors.size();
}

template <class Interface>
std::vector<zu::CValue> CdsCompositeAccessorBase<Interface>::storeInCache(const zu::CValue& value,
                                                                          unsigned int index)
{
    std::lock_guard lock(m_cacheMutex);
    m_cache[index] = value;
    ++m_notified[index];
    return m_cache;
}

template <class Interface>
void CdsCompositeAccessorBase<Interface>::writeValue(std::size_t index, const zu::CValue& value)
{
    if (value.is_valid()) {
        m_accessors.at(index)->setCValue(value);
    }
}

template class CdsCompositeAccessorBase<RegistersDataAccessor>;
template class CdsCompositeAccessorBase<DiscretesDataAccessor>;

} // namespace orv::modbus::cds
