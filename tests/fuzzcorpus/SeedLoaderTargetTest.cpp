#include "Corpus.h"

#include "SeedLoaderTarget.h"

#include <gtest/gtest.h>

namespace orv::modbus::fuzz::test {
namespace {

TEST(SeedLoaderTargetTest, CorpusSeedsAreAcceptedOrRefusedWhole)
{
    replayCorpus<SeedLoaderTarget>("SeedLoader", 30, [](SeedLoaderTarget::Outcome outcome) {
        return outcome == SeedLoaderTarget::Outcome::Accepted ? "accepted" : "refused";
    });
    cdsapi::DataStore::instance().clear();
}

} // namespace
} // namespace orv::modbus::fuzz::test
