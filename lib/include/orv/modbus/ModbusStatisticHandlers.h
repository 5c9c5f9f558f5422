#pragma once

namespace orv::modbus {

// Traffic counters the daemon implements. The server calls these from its
// handler threads, without holding any lock; an exception thrown by one of
// them is dropped and never disturbs serving. Every operation does nothing
// by default, so an implementation overrides only what it counts.
//
// The order of the virtual operations is part of the binary interface:
// never reorder them, and keep `reserved`.
class ModbusStatisticHandlers {
public:
    virtual ~ModbusStatisticHandlers();

    // A TCP client sent data that libmodbus accepted as one request.
    virtual void onTcpRequestReceived();
    // The request's unit id has no map or is not open to this client; its
    // connection is closed next.
    virtual void onTcpBadDeviceId();
    // The request is about to be handed to its map.
    virtual void onTcpRequestAccepted();
    // The map sent an exception reply, or nothing because it is unavailable.
    virtual void onTcpRequestRefused();
    // The map sent a normal reply.
    virtual void onTcpRequestProcessed();
    // Never called.
    virtual void reserved();
    // A serial frame failed its checksum or its length does not fit its
    // function code.
    virtual void onRtuCrcError();
    // Any other failure to receive a serial frame.
    virtual void onRtuReceiveError();
    virtual void onRtuRequestReceived();
    // The frame's unit id has no map.
    virtual void onRtuBadDeviceId();
    virtual void onRtuRequestAccepted();
    virtual void onRtuRequestRefused();
    virtual void onRtuRequestProcessed();
    // One turn of the TCP handler's loop: at least once a second while it
    // runs, for a watchdog that notices a stuck loop.
    virtual void onTcpLoop();
    // One turn of the RTU handler's loop, likewise.
    virtual void onRtuLoop();
};

} // namespace orv::modbus
