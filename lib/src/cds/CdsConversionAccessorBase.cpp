#include <orv/modbus/cds/CdsConversionAccessorBase.h>

namespace orv::modbus::cds {

template <class Interface>
CdsConversionAccessorBase<Interface>::CdsConversionAccessorBase()
    : m_pListener(std::make_shared<Listener>())
{
}

template <class Interface>
CdsConversionAccessorBase<Interface>::~CdsConversionAccessorBase()
{
    stopListening();
}

template <class Interface>
void CdsConversionAccessorBase<Interface>::setCallback(std::function<void(const Words&)> callback)
{
    std::lock_guard lock(m_pListener->mutex);
    m_callback = std::move(callback);
}

template <class Interface>
void CdsConversionAccessorBase<Interface>::listenTo(CdsDataAccessor& accessor,
                                                    std::function<void(const zu::CValue&)> onChange)
{
    // The data-store accessor copies its callback for every change it
    // reports; one shared pointer keeps that copy free of allocations.
    const auto route = std::make_shared<const Route>(Route{m_pListener, std::move(onChange)});
    accessor.setUpdateCallback([route](const zu::CValue& value) {
        std::lock_guard lock(route->listener->mutex);
        if (route->listener->listening) {
            route->onChange(value);
        }
    });
}

template <class Interface>
void CdsConversionAccessorBase<Interface>::stopListening() noexcept
{
    std::lock_guard lock(m_pListener->mutex);
    m_pListener->listening = false;
}

template class CdsConversionAccessorBase<RegistersDataAccessor>;
template class CdsConversionAccessorBase<DiscretesDataAccessor>;

} // namespace orv::modbus::cds
