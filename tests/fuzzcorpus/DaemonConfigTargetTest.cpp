#include "Corpus.h"

#include "DaemonConfigTarget.h"

#include <gtest/gtest.h>

namespace orv::modbus::fuzz::test {
namespace {

TEST(DaemonConfigTargetTest, CorpusConfigurationsAreAcceptedOrRefusedNamingTheFile)
{
    replayCorpus<DaemonConfigTarget>("DaemonConfig", 10, [](DaemonConfigTarget::Outcome outcome) {
        return outcome == DaemonConfigTarget::Outcome::Accepted ? "accepted" : "refused";
    });
}

} // namespace
} // namespace orv::modbus::fuzz::test
