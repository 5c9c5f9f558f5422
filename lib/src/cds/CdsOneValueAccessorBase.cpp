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
CdsOneValueAccessorBase<Interface>::CdsOneValueAccessorBase(std::shared_ptr<CdsDataAccessor> accessor, uint16_t size)
    : m_pCdsAccessor(checked(accessor.get()))
    , m_pCdsAccessorOwner(std::move(accessor))
    , m_size(size)
{
}

template <class Interface>
CdsOneValueAccessorBase<Interface>::CdsOneValueAccessorBase(CdsDataAccessor* accessor, uint16_t size)
    : m_pCdsAccessor(checked(accessor))
    , m_size(size)
{
}

template <class Interface>
bool CdsOneValueAccessorBase<Interface>::isDataAvailable() const
{
    return m_pCdsAccessor->isExistingInCds();
}

template <class Interface>
uint16_t CdsOneValueAccessorBase<Interface>::getSize() const
{
    return m_size;
}

template <class Interface>
auto CdsOneValueAccessorBase<Interface>::getData() const -> Words
{
    return readIfAvailable<Words>([&] { return wordsOf(cdsAccessor().getCValue()); });
}

template <class Interface>
void CdsOneValueAccessorBase<Interface>::callbackCdsEvent(const zu::CValue& value)
{
    this->publish([&] { return wordsOf(value); });
}

template <class Interface>
CdsDataAccessor& CdsOneValueAccessorBase<Interface>::cdsAccessor() const
{
    return *m_pCdsAccessor;
}

template class CdsOneValueAccessorBase<RegistersDataAccessor>;
template class CdsOneValueAccessorBase<DiscretesDataAccessor>;

} // namespace orv::modbus::cds
