#pragma once
// The book of the device-creation watches of each detecting accessor class,
// which CdsDetectionBase makes and releases for them. Each class defines
// its specialisation in its own source file, over the book it keeps there
// beside its other books (at namespace scope: a book must outlive the
// data-store client, whose notification thread may still use it).

#include "SubscriptionBook.h"

namespace orv::modbus::cds {

class CdsAlarmToOneDiscreteAccessor;
class CdsChannelAccessor;
class CdsDeviceAccessor;

template <typename Accessor>
SubscriptionBook<Accessor>& deviceCreationBook();

template <>
SubscriptionBook<CdsAlarmToOneDiscreteAccessor>& deviceCreationBook<CdsAlarmToOneDiscreteAccessor>();
template <>
SubscriptionBook<CdsChannelAccessor>& deviceCreationBook<CdsChannelAccessor>();
template <>
SubscriptionBook<CdsDeviceAccessor>& deviceCreationBook<CdsDeviceAccessor>();

} // namespace orv::modbus::cds
