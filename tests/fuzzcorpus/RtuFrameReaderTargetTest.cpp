#include "Corpus.h"

#include "RtuFrameReaderTarget.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace orv::modbus::fuzz::test {
namespace {

using FrameOutcome = RtuFrameReaderTarget::Outcome;

std::string describeFrameOutcomes(const std::vector<FrameOutcome>& outcomes)
{
    return joinedNames(outcomes, [](FrameOutcome outcome) {
        return outcome == FrameOutcome::Frame ? "frame" : outcome == FrameOutcome::BadCrc ? "badcrc" : "toolong";
    });
}

TEST(RtuFrameReaderTargetTest, CorpusChunksComeOutWholeAsFramesOrRefusals)
{
    replayCorpus<RtuFrameReaderTarget>("RtuFrameReader", 8, describeFrameOutcomes);
}

TEST(RtuFrameReaderTargetTest, AnEmptyInputReadsNothing)
{
    EXPECT_TRUE(RtuFrameReaderTarget::run(nullptr, 0).empty());
}

} // namespace
} // namespace orv::modbus::fuzz::test
