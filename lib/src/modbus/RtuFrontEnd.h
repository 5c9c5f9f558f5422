#pragma once

#include <orv/modbus/ModbusMapSettings.h>
#include <orv/modbus/ModbusServerSettings.h>

#include "ContextHandle.h"
#include "RtuFrameReader.h"
#include "StatisticsNotifier.h"

#include <stop_token>
#include <string>

namespace orv::modbus {

// The Modbus RTU front end: one serial line in RS-485 mode, its libmodbus
// context (which sends the answers) and its frame reader, and the loop that
// answers every unit id with a map from one thread. A line whose device goes
// away (an unplugged USB adapter) is reopened once a second until it is
// back.
class RtuFrontEnd {
public:
    // Opens the line. Throws std::runtime_error when it cannot.
    RtuFrontEnd(const ModbusServerSettings& settings, bool debug);

    RtuFrontEnd(const RtuFrontEnd&) = delete;
    RtuFrontEnd& operator=(const RtuFrontEnd&) = delete;

    // The handler thread's body: serves until a stop is requested.
    void serve(std::stop_token stopToken, const ModbusMapSettingsTable& maps, const StatisticsNotifier& statistics);

    // Closes the line once the handler has ended.
    void close();

private:
    // Reads the next frame, polling the stop request once a second while
    // the line is quiet; a readable `wakeFd` (see StopWake) ends the wait.
    RtuFrameReader::Outcome awaitFrame(const std::stop_token& stopToken, int wakeFd,
                                       const StatisticsNotifier& statistics);
    void answerFrame(const ModbusMapSettingsTable& maps, const StatisticsNotifier& statistics);
    void process(const ModbusMapSettings& settings, const StatisticsNotifier& statistics);
    // Closes the vanished device and reopens it once a second until it is
    // back or a stop is requested.
    void reopen(const std::stop_token& stopToken, const StatisticsNotifier& statistics);

    ContextHandle m_pContext;
    std::string m_device;
    RtuFrameReader m_reader;
};

} // namespace orv::modbus
