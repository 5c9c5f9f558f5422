#include "SocatPair.h"

#include "WaitUntil.h"

#include <filesystem>
#include <stdexcept>

#include <csignal>
#include <cstdlib>

namespace orv::test {
namespace {

constexpr std::chrono::seconds g_linkTimeout{5};
constexpr std::chrono::seconds g_exitTimeout{5};

std::string ptyAddress(const std::string& link)
{
    return "pty,raw,echo=0,link=" + link;
}

} // namespace

SocatPair::SocatPair(const std::string& directory, const std::string& name)
    : m_serverEnd(directory + "/" + name + "-server")
    , m_masterEnd(directory + "/" + name + "-master")
{
    // Links left by a socat that could not clean up would point at
    // terminals someone else may have by now.
    std::filesystem::remove(m_serverEnd);
    std::filesystem::remove(m_masterEnd);
    m_pSocat = std::make_unique<ChildProcess>("/usr/bin/socat", std::vector<std::string>{ptyAddress(m_serverEnd),
                                                                                ptyAddress(m_masterEnd)});
    const bool linked = waitUntil(
        [this] { return std::filesystem::exists(m_serverEnd) && std::filesystem::exists(m_masterEnd); },
        g_linkTimeout);
    if (!linked) {
        throw std::runtime_error("socat made no links " + m_serverEnd + " and " + m_masterEnd);
    }
}

SocatPair::~SocatPair()
{
    m_pSocat->signal(SIGTERM);
    m_pSocat->waitForExit(g_exitTimeout);
}

const std::string& SocatPair::serverEnd() const
{
    return m_serverEnd;
}

const std::string& SocatPair::masterEnd() const
{
    return m_masterEnd;
}

TemporaryDirectory::TemporaryDirectory()
{
    std::string pattern = (std::filesystem::temp_directory_path() / "orv-rtu-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("no temporary directory");
    }
    m_path = pattern;
}

TemporaryDirectory::~TemporaryDirectory()
{
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

const std::string& TemporaryDirectory::path() const
{
    return m_path;
}

} // namespace orv::test
