#include "Corpus.h"

#include "RtuFrameReaderTarget.h"

#include <gtest/gtest.h>

namespace orv::modbus::fuzz::test {
namespace {

using FrameOutcome = RtuFrameReaderTarget::Outcome;

const char* frameWord(FrameOutcome outcome)
{
    return outcome == FrameOutcome::Frame ? "frame" : outcome == FrameOutcome::BadCrc ? "badcrc" : "toolong";
}

TEST(RtuFrameReaderTargetTest, CorpusChunksComeOutWholeAsFramesOrRefusals)
{
    replayCorpus<RtuFrameReaderTarget>("RtuFrameReader", 8, joinedWords(frameWord));
}

TEST(RtuFrameReaderTargetTest, AnEmptyInputReadsNothing)
{
    EXPECT_TRUE(RtuFrameReaderTarget::run(nullptr, 0).empty());
}

} // namespace
} // namespace orv::modbus::fuzz::test
