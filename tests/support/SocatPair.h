#pragma once
// Two pseudo-terminals joined by socat: a serial line without hardware.
// One end is the device a server opens, the other the one a master uses.

#include "ChildProcess.h"

#include <memory>
#include <string>

namespace orv::test {

class SocatPair {
public:
    // Starts socat with links `<directory>/<name>-server` and
    // `<directory>/<name>-master`, and waits (bounded) until both exist.
    // Throws std::runtime_error when they do not appear.
    SocatPair(const std::string& directory, const std::string& name);
    // Ends socat, which removes the links: both ends hang up.
    ~SocatPair();

    SocatPair(const SocatPair&) = delete;
    SocatPair& operator=(const SocatPair&) = delete;

    const std::string& serverEnd() const;
    const std::string& masterEnd() const;

private:
    std::string m_serverEnd;
    std::string m_masterEnd;
    std::unique_ptr<ChildProcess> m_pSocat;
};

// A fresh directory under the system's temporary directory for one test's
// links; removed with its contents on destruction.
class TemporaryDirectory {
public:
    TemporaryDirectory();
    ~TemporaryDirectory();

    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::string& path() const;

private:
    std::string m_path;
};

} // namespace orv::test
