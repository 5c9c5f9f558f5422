#pragma once
// Counts what the server's handler threads report, for the periodic summary
// line. Counters are atomics: the handler threads bump them while the main
// thread reads them.

#include <orv/modbus/ModbusStatisticHandlers.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <string>

namespace orv::modbusd {

class StatisticCounters : public modbus::ModbusStatisticHandlers {
public:
    enum class Event : std::size_t {
        TcpRequestReceived,
        TcpBadDeviceId,
        TcpRequestAccepted,
        TcpRequestRefused,
        TcpRequestProcessed,
        RtuCrcError,
        RtuReceiveError,
        RtuRequestReceived,
        RtuBadDeviceId,
        RtuRequestAccepted,
        RtuRequestRefused,
        RtuRequestProcessed,
        Count,
    };

    void onTcpRequestReceived() override { bump(Event::TcpRequestReceived); }
    void onTcpBadDeviceId() override { bump(Event::TcpBadDeviceId); }
    void onTcpRequestAccepted() override { bump(Event::TcpRequestAccepted); }
    void onTcpRequestRefused() override { bump(Event::TcpRequestRefused); }
    void onTcpRequestProcessed() override { bump(Event::TcpRequestProcessed); }
    void reserved() override {}
    void onRtuCrcError() override { bump(Event::RtuCrcError); }
    void onRtuReceiveError() override { bump(Event::RtuReceiveError); }
    void onRtuRequestReceived() override { bump(Event::RtuRequestReceived); }
    void onRtuBadDeviceId() override { bump(Event::RtuBadDeviceId); }
    void onRtuRequestAccepted() override { bump(Event::RtuRequestAccepted); }
    void onRtuRequestRefused() override { bump(Event::RtuRequestRefused); }
    void onRtuRequestProcessed() override { bump(Event::RtuRequestProcessed); }

    std::uint64_t count(Event event) const;

    // One line with every counter, e.g. "tcp received=3 bad-unit=0 ...".
    std::string summary() const;

private:
    void bump(Event event);

    std::array<std::atomic<std::uint64_t>, static_cast<std::size_t>(Event::Count)> m_counts{};
};

} // namespace orv::modbusd
