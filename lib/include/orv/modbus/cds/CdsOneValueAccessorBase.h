#pragma once

#include <orv/modbus/cds/CdsConversionAccessorBase.h>

#include <memory>

namespace orv::modbus::cds {

// A conversion accessor over one data-store accessor (owned through a shared
// pointer, or borrowed through a raw pointer that its creator keeps alive),
// available while that data point is found in the data store.
//
// A concrete class says in wordsOf() what a value of the data point is on
// the wire; getData() and the update callback both serve that. It calls
// listenToCds(this) as the last step of each of its constructors, so that
// callbackCdsEvent(const zu::CValue&) receives every new value of the data
// point from then on, and stopListening() first thing in its destructor.
template <class Interface>
class CdsOneValueAccessorBase : public CdsConversionAccessorBase<Interface> {
public:
    using Words = typename CdsConversionAccessorBase<Interface>::Words;

    // Whether the data point was found in the data store.
    bool isDataAvailable() const override;
    // The entry's length, fixed by the concrete class.
    uint16_t getSize() const override;
    // wordsOf() the data point's value while it is available, else empty.
    Words getData() const override;
    // Tells the update callback wordsOf(value).
    void callbackCdsEvent(const zu::CValue& value);

protected:
    // Both throw std::invalid_argument for a null data-store accessor.
    CdsOneValueAccessorBase(std::shared_ptr<CdsDataAccessor> accessor, uint16_t size);
    CdsOneValueAccessorBase(CdsDataAccessor* accessor, uint16_t size);

    template <typename Self>
    void listenToCds(Self* self)
    {
        this->listenTo(*m_pCdsAccessor, [self](const zu::CValue& value) { self->callbackCdsEvent(value); });
    }

    CdsDataAccessor& cdsAccessor() const;

    // The entry's words for `value` of the data point.
    virtual Words wordsOf(const zu::CValue& value) const = 0;

    // getData and getStrValue: read() while the class's own (virtual)
    // isDataAvailable() says the data point can be read, an empty result
    // otherwise.
    template <typename Result, typename Read>
    Result readIfAvailable(Read&& read) const
    {
        if (!this->isDataAvailable()) {
            return {};
        }
        return read();
    }

    // setData: stores makeValue() in the data point while isDataAvailable();
    // otherwise the write is dropped before anything is converted.
    template <typename MakeValue>
    void writeIfAvailable(MakeValue&& makeValue)
    {
        if (this->isDataAvailable()) {
            cdsAccessor().setCValue(zu::CValue(makeValue()));
        }
    }

private:
    CdsDataAccessor* m_pCdsAccessor;
    std::shared_ptr<CdsDataAccessor> m_pCdsAccessorOwner;
    uint16_t m_size;
};

extern template class CdsOneValueAccessorBase<RegistersDataAccessor>;
extern template class CdsOneValueAccessorBase<DiscretesDataAccessor>;

} // namespace orv::modbus::cds
