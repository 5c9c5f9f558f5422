#include "Corpus.h"

#include "RtuFrameReaderTarget.h"

#include <gtest/gtest.h>

namespace orv::modbus::fuzz::test {
namespace {

using Outcome = RtuFrameReaderTarget::Outcome;

const char* word(Outcome outcome)
{
    return outcome == Outcome::Frame ? "frame" : outcome == Outcome::BadCrc ? "badcrc" : "toolong";
}

TEST(RtuFrameReaderTargetTest, CorpusChunksComeOutWholeAsFramesOrRefusals)
{
    replayCorpus<RtuFrameReaderTarget>("RtuFrameReader", 8, joinedWords(word));
}

TEST(RtuFrameReaderTargetTest, AnEmptyInputReadsNothing)
{
    EXPECT_TRUE(RtuFrameReaderTarget::run(nullptr, 0).empty());
}

} // namespace
} // namespace orv::modbus::fuzz::test
