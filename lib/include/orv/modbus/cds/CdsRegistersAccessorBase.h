#pragma once

#include <orv/modbus/RegistersDataAccessor.h>
#include <orv/modbus/cds/CdsDataAccessor.h>

#include <zu/CValue.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace orv::modbus::cds {

// What every register accessor over one data-store accessor shares: the
// data-store accessor (owned through a shared pointer, or borrowed through a
// raw pointer that its creator keeps alive), the entry's update callback,
// the listening to the data store's changes, and availability.
//
// A concrete class calls listenToCds(this) as the last step of each of its
// constructors, so that its callbackCdsEvent(const zu::CValue&) receives
// every new value of the data point from then on, and stopListening() first
// thing in its destructor: a change arriving on the notification thread
// then either finishes before the destruction goes on or finds nobody
// listening, even while a borrowed data-store accessor lives on.
class CdsRegistersAccessorBase : public RegistersDataAccessor {
public:
    ~CdsRegistersAccessorBase() override;

    CdsRegistersAccessorBase(const CdsRegistersAccessorBase&) = delete;
    CdsRegistersAccessorBase& operator=(const CdsRegistersAccessorBase&) = delete;

    // Whether the data point was found in the data store.
    bool isDataAvailable() const override;
    void setCallback(std::function<void(const std::vector<uint16_t>&)> callback) override;

protected:
    // Both throw std::invalid_argument for a null data-store accessor.
    explicit CdsRegistersAccessorBase(std::shared_ptr<CdsDataAccessor> accessor);
    explicit CdsRegistersAccessorBase(CdsDataAccessor* accessor);

    template <typename Self>
    void listenToCds(Self* self)
    {
        listen([self](const zu::CValue& value) { self->callbackCdsEvent(value); });
    }
    void stopListening() noexcept;

    CdsDataAccessor& cdsAccessor() const;

    // getData and getStrValue: read() while the class's own (virtual)
    // isDataAvailable() says the data point can be read, an empty result
    // otherwise.
    template <typename Result, typename Read>
    Result readIfAvailable(Read&& read) const
    {
        if (!isDataAvailable()) {
            return {};
        }
        return read();
    }

    // setData: stores makeValue() in the data point while isDataAvailable();
    // otherwise the write is dropped before anything is converted.
    template <typename MakeValue>
    void writeIfAvailable(MakeValue&& makeValue)
    {
        if (isDataAvailable()) {
            cdsAccessor().setCValue(zu::CValue(makeValue()));
        }
    }

    // Calls the update callback, when one is set, with makeWords(); nothing
    // is converted while nobody listens.
    template <typename MakeWords>
    void publish(MakeWords&& makeWords) const
    {
        if (m_callback) {
            m_callback(makeWords());
        }
    }

    // "<name> (<byte order>)", as in "Float (ABCD)".
    std::string describeWithByteOrder(const char* name) const;

private:
    // Shared with the callback registered at the data-store accessor, which
    // may outlive this object.
    struct Listener {
        std::recursive_mutex mutex;
        std::function<void(const zu::CValue&)> onChange;
    };

    void listen(std::function<void(const zu::CValue&)> onChange);

    CdsDataAccessor* m_pCdsAccessor;
    std::shared_ptr<CdsDataAccessor> m_pCdsAccessorOwner;
    std::function<void(const std::vector<uint16_t>&)> m_callback;
    std::shared_ptr<Listener> m_pListener;
};

} // namespace orv::modbus::cds
