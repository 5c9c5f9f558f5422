// --check-config reads everything a start reads and says whether it is good,
// without opening a port.

#include "ChildProcess.h"
#include "DaemonFilesTest.h"
#include "FreePort.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;
using orv::test::ChildProcess;

class CheckConfigTest : public orv::test::DaemonFilesTest {
protected:
    // A copy of `source` with one key's string value replaced.
    std::string rewrite(const std::string& source, const std::string& key, const std::string& value,
                        const std::string& name) const
    {
        std::ifstream stream(source);
        std::ostringstream text;
        text << stream.rdbuf();
        const std::regex pattern("\"" + key + R"(": "[^"]*")");
        return write(name, std::regex_replace(text.str(), pattern, "\"" + key + "\": \"" + value + "\""));
    }

    // Runs --check-config on the file and returns its exit status.
    int check(const std::string& config, const std::vector<std::string>& more = {})
    {
        std::vector<std::string> arguments{"--check-config", "--config", config};
        arguments.insert(arguments.end(), more.begin(), more.end());
        ChildProcess daemon(ORV_DAEMON_BINARY, arguments);
        const auto status = daemon.waitForExit(20s);
        m_out = daemon.standardOutput();
        m_err = daemon.standardError();
        EXPECT_TRUE(status.has_value()) << "--check-config did not end";
        return status.value_or(-1);
    }

    std::string m_out;
    std::string m_err;
};

// A listener the test holds on a free port, so that a daemon that tried to
// listen there would fail.
class HeldPort {
public:
    HeldPort()
        : m_port(orv::test::freeTcpPort())
        , m_socket(socket(AF_INET6, SOCK_STREAM, 0))
    {
        sockaddr_in6 address{};
        address.sin6_family = AF_INET6;
        address.sin6_port = htons(m_port);
        address.sin6_addr = in6addr_any;
        EXPECT_EQ(bind(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
        EXPECT_EQ(listen(m_socket, 1), 0);
    }
    ~HeldPort() { close(m_socket); }

    std::uint16_t port() const { return m_port; }

private:
    std::uint16_t m_port;
    int m_socket;
};

TEST_F(CheckConfigTest, GoodConfigurationPrintsOkWithoutOpeningThePort)
{
    const HeldPort held;
    EXPECT_EQ(check(ORV_DEMO_CONFIG, {"--tcp-port", std::to_string(held.port())}), 0) << m_err;
    EXPECT_EQ(m_out, "configuration OK\n");
    EXPECT_EQ(m_err.find("listen"), std::string::npos) << m_err;
}

TEST_F(CheckConfigTest, BadKeyPrintsTheErrorAndExitsWithOne)
{
    const std::string config = write("bad.json", R"({"server": {"tcp": {"enabled": true, "prot": 502}}, "maps": []})");
    EXPECT_EQ(check(config), 1);
    EXPECT_EQ(m_out.find("configuration OK"), std::string::npos);
    EXPECT_NE(m_err.find("/server/tcp/prot: unknown key"), std::string::npos) << m_err;
}

TEST_F(CheckConfigTest, PluginThatDoesNotLoadFailsTheCheck)
{
    const std::string config = write("noplugin.json", R"({"server": {"tcp": {"enabled": true}},
        "pluginDirectory": "plugins", "maps": [{"id": "site", "plugin": "site-map.so"}],
        "tcpUnits": [{"unitId": 1, "map": "site", "allowedAddresses": ["^127\\.0\\.0\\.1$"]}]})");
    EXPECT_EQ(check(config), 1);
    EXPECT_NE(m_err.find((m_dir / "plugins" / "site-map.so").string()), std::string::npos) << m_err;
}

TEST_F(CheckConfigTest, SeedThatDoesNotLoadFailsTheCheck)
{
    const std::string seed = write("seed.json", "{ not a seed");
    EXPECT_EQ(check(rewrite(ORV_DEMO_CONFIG, "seedFile", seed, "badseed.json")), 1);
    EXPECT_NE(m_err.find("seed.json"), std::string::npos) << m_err;
}

// The packaged file is complete but for the site's plug-in; with one in its
// plug-in folder it passes.
TEST_F(CheckConfigTest, PackagedConfigurationPassesWithASitePlugin)
{
    EXPECT_EQ(check(ORV_PACKAGED_CONFIG), 1);
    EXPECT_NE(m_err.find("site-map.so"), std::string::npos) << m_err;

    std::filesystem::create_symlink(ORV_DEMO_PLUGIN, m_dir / "site-map.so");
    EXPECT_EQ(check(rewrite(ORV_PACKAGED_CONFIG, "pluginDirectory", m_dir.string(), "packaged.json")), 0) << m_err;
    EXPECT_EQ(m_out, "configuration OK\n");
}

} // namespace
