#pragma once

#include <orv/modbus/DiscretesDataAccessor.h>
#include <orv/modbus/RegistersDataAccessor.h>
#include <orv/modbus/cds/CdsDataAccessor.h>

#include <zu/CValue.h>

#include <functional>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace orv::modbus::cds {

// What every conversion accessor shares, whether it serves registers or
// discretes and whether it converts one data point or several: the entry's
// update callback and the listening to the data-store accessors.
//
// A concrete class routes the changes of its data-store accessors to itself
// with listenTo() in its constructors, and calls stopListening() first thing
// in its destructor: a change arriving on the notification thread then
// either finishes before the destruction goes on or finds nobody listening,
// even while a borrowed data-store accessor lives on.
template <class Interface>
class CdsConversionAccessorBase : public Interface {
public:
    // What the entry's table holds: 16-bit registers or one byte per bit.
    using Word = typename decltype(std::declval<const Interface&>().getData())::value_type;
    using Words = std::vector<Word>;

    ~CdsConversionAccessorBase() override;

    CdsConversionAccessorBase(const CdsConversionAccessorBase&) = delete;
    CdsConversionAccessorBase& operator=(const CdsConversionAccessorBase&) = delete;

    void setCallback(std::function<void(const Words&)> callback) override;

protected:
    CdsConversionAccessorBase();

    // Every change of `accessor` reaches onChange from now on, until
    // stopListening(); the data-store accessor calls it once at once.
    void listenTo(CdsDataAccessor& accessor, std::function<void(const zu::CValue&)> onChange);
    void stopListening() noexcept;

    // Calls the update callback, when one is set, with makeWords(); nothing
    // is converted while nobody listens.
    template <typename MakeWords>
    void publish(MakeWords&& makeWords) const
    {
        if (m_callback) {
            m_callback(makeWords());
        }
    }

private:
    // Shared with the callbacks registered at the data-store accessors,
    // which may outlive this object.
    struct Listener {
        std::recursive_mutex mutex;
        bool listening = true;
    };

    // Where the changes of one data-store accessor go.
    struct Route {
        std::shared_ptr<Listener> listener;
        std::function<void(const zu::CValue&)> onChange;
    };

    std::function<void(const Words&)> m_callback;
    std::shared_ptr<Listener> m_pListener;
};

extern template class CdsConversionAccessorBase<RegistersDataAccessor>;
extern template class CdsConversionAccessorBase<DiscretesDataAccessor>;

} // namespace orv::modbus::cds
