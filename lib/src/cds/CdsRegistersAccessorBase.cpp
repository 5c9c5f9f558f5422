#include <orv/modbus/cds/CdsRegistersAccessorBase.h>

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

CdsRegistersAccessorBase::CdsRegistersAccessorBase(std::shared_ptr<CdsDataAccessor> accessor)
    : m_pCdsAccessor(checked(accessor.get()))
    , m_pCdsAccessorOwner(std::move(accessor))
    , m_pListener(std::make_shared<Listener>())
{
}

CdsRegistersAccessorBase::CdsRegistersAccessorBase(CdsDataAccessor* accessor)
    : m_pCdsAccessor(checked(accessor))
    , m_pListener(std::make_shared<Listener>())
{
}

CdsRegistersAccessorBase::~CdsRegistersAccessorBase()
{
    stopListening();
}

bool CdsRegistersAccessorBase::isDataAvailable() const
{
    return m_pCdsAccessor->isExistingInCds();
}

void CdsRegistersAccessorBase::setCallback(std::function<void(const std::vector<uint16_t>&)> callback)
{
    std::lock_guard lock(m_pListener->mutex);
    m_callback = std::move(callback);
}

void CdsRegistersAccessorBase::stopListening() noexcept
{
    std::lock_guard lock(m_pListener->mutex);
    m_pListener->onChange = nullptr;
}

CdsDataAccessor& CdsRegistersAccessorBase::cdsAccessor() const
{
    return *m_pCdsAccessor;
}

std::string CdsRegistersAccessorBase::describeWithByteOrder(const char* name) const
{
    return name + to_string(m_byteOrder) + ")";
}

void CdsRegistersAccessorBase::listen(std::function<void(const zu::CValue&)> onChange)
{
    {
        std::lock_guard lock(m_pListener->mutex);
        m_pListener->onChange = std::move(onChange);
    }
    m_pCdsAccessor->setUpdateCallback([listener = m_pListener](const zu::CValue& value) {
        std::lock_guard lock(listener->mutex);
        if (listener->onChange) {
            listener->onChange(value);
        }
    });
}

} // namespace orv::modbus::cds
