#pragma once
// The baseline of the end-to-end benchmark: libmodbus alone serving a
// modbus_mapping_t over TCP, the way its own multi-client example does (one
// thread, select() over the listening socket and the clients,
// modbus_receive + modbus_reply).

#include <modbus/modbus.h>

#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>

namespace orv::modbus::bench {

class BareModbusServer {
public:
    BareModbusServer(std::uint16_t port, int holdingRegisters)
        : m_pContext(modbus_new_tcp("127.0.0.1", port))
        , m_pMapping(modbus_mapping_new(0, 0, holdingRegisters, 0))
    {
        if (m_pContext == nullptr || m_pMapping == nullptr) {
            throw std::runtime_error("bare server: out of memory");
        }
        m_listener = modbus_tcp_listen(m_pContext, 16);
        if (m_listener < 0) {
            const std::string error = modbus_strerror(errno);
            release();
            throw std::runtime_error("bare server: " + error);
        }
        m_thread = std::thread([this] { serve(); });
    }

    ~BareModbusServer()
    {
        m_stop = true;
        m_thread.join();
        for (const int client : m_clients) {
            ::close(client);
        }
        ::close(m_listener);
        release();
    }

    BareModbusServer(const BareModbusServer&) = delete;
    BareModbusServer& operator=(const BareModbusServer&) = delete;

private:
    void release()
    {
        modbus_mapping_free(m_pMapping);
        modbus_free(m_pContext);
    }

    void serve()
    {
        uint8_t query[MODBUS_TCP_MAX_ADU_LENGTH];
        while (!m_stop) {
            fd_set ready;
            FD_ZERO(&ready);
            FD_SET(m_listener, &ready);
            int highest = m_listener;
            for (const int client : m_clients) {
                FD_SET(client, &ready);
                highest = std::max(highest, client);
            }
            timeval timeout{0, 100'000};
            if (select(highest + 1, &ready, nullptr, nullptr, &timeout) <= 0) {
                continue;
            }
            if (FD_ISSET(m_listener, &ready)) {
                const int client = accept(m_listener, nullptr, nullptr);
                if (client >= 0) {
                    m_clients.insert(client);
                }
            }
            for (auto it = m_clients.begin(); it != m_clients.end();) {
                if (!FD_ISSET(*it, &ready)) {
                    ++it;
                    continue;
                }
                modbus_set_socket(m_pContext, *it);
                const int length = modbus_receive(m_pContext, query);
                if (length > 0) {
                    modbus_reply(m_pContext, query, length, m_pMapping);
                } else if (length == -1) {
                    ::close(*it);
                    it = m_clients.erase(it);
                    continue;
                }
                ++it;
            }
        }
    }

    modbus_t* m_pContext;
    modbus_mapping_t* m_pMapping;
    int m_listener = -1;
    std::set<int> m_clients;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

} // namespace orv::modbus::bench
