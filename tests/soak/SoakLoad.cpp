// The load of the soak (scripts/soak.py): 50 Modbus TCP clients on one unit
// of a running daemon for a given time, then one line of counts.
//
//   orv-soak-load PORT UNIT SECONDS ENTRIES_FILE
//
// ENTRIES_FILE has one entry a line: "<table> <address> <count> <writable>",
// table being coil, input, holding or register (input registers that are
// also served by the holding table are listed as both). The clients:
// 30 readers of every entry, 10 writers that write every writable entry back
// with the value they just read (so that the store's values stay valid),
// 8 that connect, read once and disconnect, one garbage sender and one slow
// reader that takes its replies a byte at a time. Every client paces itself
// at one request per 10 ms. Prints
//   "answered=N errors=N garbage=N"
// where errors counts failures of every client but the garbage sender.

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <modbus/modbus.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

struct Entry {
    std::string table;
    int address = 0;
    int count = 0;
    bool writable = false;
};

struct Load {
    int port = 0;
    int unit = 1;
    Clock::time_point end;
    std::vector<Entry> entries;
    std::atomic<long> answered{0};
    std::atomic<long> errors{0};
    std::atomic<long> garbage{0};

    bool running() const { return Clock::now() < end; }
    void count(bool ok) { ++(ok ? answered : errors); }
};

constexpr auto g_pace = 10ms;

modbus_t* connectClient(const Load& load)
{
    modbus_t* context = modbus_new_tcp("127.0.0.1", load.port);
    modbus_set_slave(context, load.unit);
    modbus_set_response_timeout(context, 2, 0);
    if (modbus_connect(context) != 0) {
        modbus_free(context);
        return nullptr;
    }
    return context;
}

void closeClient(modbus_t* context)
{
    modbus_close(context);
    modbus_free(context);
}

// Reads the entry; with `writeBack`, writes the words or bits just read.
bool exercise(modbus_t* context, const Entry& entry, bool writeBack)
{
    std::vector<std::uint16_t> words(static_cast<std::size_t>(entry.count));
    std::vector<std::uint8_t> bits(static_cast<std::size_t>(entry.count));
    if (entry.table == "coil") {
        return modbus_read_bits(context, entry.address, entry.count, bits.data()) == entry.count
               && (!writeBack || modbus_write_bits(context, entry.address, entry.count, bits.data()) == entry.count)
               && modbus_read_input_bits(context, entry.address, entry.count, bits.data()) == entry.count;
    }
    if (entry.table == "holding") {
        return modbus_read_registers(context, entry.address, entry.count, words.data()) == entry.count
               && (!writeBack
                   || modbus_write_registers(context, entry.address, entry.count, words.data()) == entry.count);
    }
    if (entry.table == "register" && writeBack) {
        return modbus_read_registers(context, entry.address, entry.count, words.data()) == entry.count
               && modbus_write_registers(context, entry.address, entry.count, words.data()) == entry.count;
    }
    return modbus_read_input_registers(context, entry.address, entry.count, words.data()) == entry.count;
}

void reader(Load& load, bool writer)
{
    modbus_t* context = connectClient(load);
    if (context == nullptr) {
        load.count(false);
        return;
    }
    for (std::size_t i = 0; load.running(); ++i) {
        const Entry& entry = load.entries[i % load.entries.size()];
        if (!writer || entry.writable) {
            load.count(exercise(context, entry, writer));
        }
        std::this_thread::sleep_for(g_pace);
    }
    closeClient(context);
}

void connector(Load& load)
{
    for (std::size_t i = 0; load.running(); ++i) {
        modbus_t* context = connectClient(load);
        load.count(context != nullptr && exercise(context, load.entries[i % load.entries.size()], false));
        if (context != nullptr) {
            closeClient(context);
        }
        std::this_thread::sleep_for(g_pace);
    }
}

int rawConnect(int port)
{
    const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        ::close(socket);
        return -1;
    }
    timeval timeout{0, 200'000};
    setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
    return socket;
}

// Random bytes, sometimes shaped like a Modbus TCP header; whatever comes
// back is read and dropped. The daemon may close the connection.
void garbageSender(Load& load)
{
    std::mt19937 random(14);
    while (load.running()) {
        const int socket = rawConnect(load.port);
        if (socket == -1) {
            ++load.garbage;
            std::this_thread::sleep_for(g_pace);
            continue;
        }
        for (int frame = 0; frame < 20 && load.running(); ++frame) {
            std::vector<std::uint8_t> bytes(1 + random() % 300);
            for (auto& byte : bytes) {
                byte = static_cast<std::uint8_t>(random());
            }
            if (bytes.size() > 7 && random() % 2 == 0) {
                bytes[2] = bytes[3] = 0;
                bytes[4] = 0;
                bytes[5] = static_cast<std::uint8_t>(bytes.size() - 6);
                bytes[6] = static_cast<std::uint8_t>(load.unit);
            }
            if (::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL) < 0) {
                break;
            }
            std::uint8_t reply[512];
            if (::recv(socket, reply, sizeof reply, 0) <= 0) {
                ++load.garbage;
            }
            std::this_thread::sleep_for(g_pace);
        }
        ::close(socket);
    }
}

// Sends a read of the first entry and takes the reply a byte at a time.
void slowReader(Load& load)
{
    const int socket = rawConnect(load.port);
    if (socket == -1) {
        load.count(false);
        return;
    }
    const Entry& entry = load.entries.front();
    const std::uint8_t function = entry.table == "holding" ? 3 : entry.table == "coil" ? 1 : 4;
    for (std::uint16_t transaction = 1; load.running(); ++transaction) {
        const std::uint8_t request[12]{static_cast<std::uint8_t>(transaction >> 8),
                                       static_cast<std::uint8_t>(transaction), 0, 0, 0, 6,
                                       static_cast<std::uint8_t>(load.unit), function,
                                       static_cast<std::uint8_t>(entry.address >> 8),
                                       static_cast<std::uint8_t>(entry.address), 0,
                                       static_cast<std::uint8_t>(entry.count)};
        if (::send(socket, request, sizeof request, MSG_NOSIGNAL) != sizeof request) {
            load.count(false);
            break;
        }
        std::uint8_t header[9];
        int got = 0;
        for (int attempt = 0; got < 9 && attempt < 50; ++attempt) {
            got += static_cast<int>(std::max<ssize_t>(0, ::recv(socket, header + got, 1, 0)));
            std::this_thread::sleep_for(g_pace);
        }
        const int rest = got == 9 ? (header[4] << 8 | header[5]) - 3 : -1;
        std::uint8_t byte = 0;
        int read = 0;
        for (int attempt = 0; read < rest && attempt < 600; ++attempt) {
            read += static_cast<int>(std::max<ssize_t>(0, ::recv(socket, &byte, 1, 0)));
            std::this_thread::sleep_for(g_pace);
        }
        load.count(rest >= 0 && read == rest && header[7] == function);
    }
    ::close(socket);
}

std::vector<Entry> readEntries(const char* path)
{
    std::vector<Entry> entries;
    std::ifstream file(path);
    Entry entry;
    int writable = 0;
    while (file >> entry.table >> entry.address >> entry.count >> writable) {
        entry.writable = writable != 0;
        entries.push_back(entry);
    }
    return entries;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 5) {
        std::fprintf(stderr, "usage: %s PORT UNIT SECONDS ENTRIES_FILE\n", argv[0]);
        return 2;
    }
    Load load;
    load.port = std::stoi(argv[1]);
    load.unit = std::stoi(argv[2]);
    load.end = Clock::now() + std::chrono::seconds(std::stoi(argv[3]));
    load.entries = readEntries(argv[4]);
    if (load.entries.empty()) {
        std::fprintf(stderr, "no entries in %s\n", argv[4]);
        return 2;
    }
    {
        std::vector<std::jthread> clients;
        for (int i = 0; i < 30; ++i) {
            clients.emplace_back([&] { reader(load, false); });
        }
        for (int i = 0; i < 10; ++i) {
            clients.emplace_back([&] { reader(load, true); });
        }
        for (int i = 0; i < 8; ++i) {
            clients.emplace_back([&] { connector(load); });
        }
        clients.emplace_back([&] { garbageSender(load); });
        clients.emplace_back([&] { slowReader(load); });
    }
    std::printf("answered=%ld errors=%ld garbage=%ld\n", load.answered.load(), load.errors.load(),
                load.garbage.load());
    return 0;
}
