#include <orv/modbus/cds/CdsOneValueAccessorBase.h>

#include <stdexcept>
#include <utility>

namespace orv::modbus::cds {

namespace {

CdsDataAccessor* checked(CdsDataAccessor* accessor)
{
    if (accessor == nullptr) {
        throw std::invalid_argument("Data accessor cannot be nullptr");
    }
    return accessor;
}

} // namespace

template <class Interface>
CdsOneValueAccessorBase<Interface>::CdsOneValueAccessorBase(std::shared_ptr<CdsDataAccessor> accessor)
    : m_pCdsAccessor(checked(accessor.get()))
    , m_pCdsAccessorOwner(std::move(accessor))
{
}

template <class Interface>
CdsOneValueAccessorBase<Interface>::CdsOneValueAccessorBase(CdsDataAccessor* accessor)
    : m_pCdsAccessor(checked(accessor))
{
}

template <class Interface>
bool CdsOneValueAccessorBase<Interface>::isDataAvailable() const
{
    return m_pCdsAccessor->isExistingInCds();
}

template <class Interface>
CdsDataAccessor& CdsOneValueAccessorBase<Interface>::cdsAccessor() const
{
    return *m_pCdsAccessor;
}

template class CdsOneValueAccessorBase<RegistersDataAccessor>;
template class CdsOneValueAccessorBase<DiscretesDataAccessor>;

} // namespace orv::modbus::cds
