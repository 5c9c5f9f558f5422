#pragma once

#include <orv/modbus/ModbusStatisticHandlers.h>

#include <atomic>

namespace orv::modbus::test {

// Counts every statistic notification.
class CountingStatistics : public ModbusStatisticHandlers {
public:
    void onTcpRequestReceived() override { ++tcpRequestReceived; }
    void onTcpBadDeviceId() override { ++tcpBadDeviceId; }
    void onTcpRequestAccepted() override { ++tcpRequestAccepted; }
    void onTcpRequestRefused() override { ++tcpRequestRefused; }
    void onTcpRequestProcessed() override { ++tcpRequestProcessed; }
    void reserved() override { ++reservedCalls; }
    void onRtuCrcError() override { count(rtuCrcError); }
    void onRtuReceiveError() override { count(rtuReceiveError); }
    void onRtuRequestReceived() override { count(rtuRequestReceived); }
    void onRtuBadDeviceId() override { count(rtuBadDeviceId); }
    void onRtuRequestAccepted() override { count(rtuRequestAccepted); }
    void onRtuRequestRefused() override { count(rtuRequestRefused); }
    void onRtuRequestProcessed() override { count(rtuRequestProcessed); }

    std::atomic<int> tcpRequestReceived{0};
    std::atomic<int> tcpBadDeviceId{0};
    std::atomic<int> tcpRequestAccepted{0};
    std::atomic<int> tcpRequestRefused{0};
    std::atomic<int> tcpRequestProcessed{0};
    std::atomic<int> reservedCalls{0};
    std::atomic<int> rtuCrcError{0};
    std::atomic<int> rtuReceiveError{0};
    std::atomic<int> rtuRequestReceived{0};
    std::atomic<int> rtuBadDeviceId{0};
    std::atomic<int> rtuRequestAccepted{0};
    std::atomic<int> rtuRequestRefused{0};
    std::atomic<int> rtuRequestProcessed{0};
    // Every serial-line notification together.
    std::atomic<int> rtuCalls{0};

private:
    void count(std::atomic<int>& event)
    {
        ++event;
        ++rtuCalls;
    }
};

} // namespace orv::modbus::test
