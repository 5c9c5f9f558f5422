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
    void onRtuCrcError() override { ++rtuCalls; }
    void onRtuReceiveError() override { ++rtuCalls; }
    void onRtuRequestReceived() override { ++rtuCalls; }
    void onRtuBadDeviceId() override { ++rtuCalls; }
    void onRtuRequestAccepted() override { ++rtuCalls; }
    void onRtuRequestRefused() override { ++rtuCalls; }
    void onRtuRequestProcessed() override { ++rtuCalls; }

    std::atomic<int> tcpRequestReceived{0};
    std::atomic<int> tcpBadDeviceId{0};
    std::atomic<int> tcpRequestAccepted{0};
    std::atomic<int> tcpRequestRefused{0};
    std::atomic<int> tcpRequestProcessed{0};
    std::atomic<int> reservedCalls{0};
    // Every serial-line notification together.
    std::atomic<int> rtuCalls{0};
};

} // namespace orv::modbus::test
