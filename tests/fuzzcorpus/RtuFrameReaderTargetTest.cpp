#include "Corpus.h"

#include "RtuFrameReaderTarget.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace orv::modbus::fuzz::test {
namespace {

using Outcome = RtuFrameReaderTarget::Outcome;

std::string describe(const std::vector<Outcome>& outcomes)
{
    std::string text;
    for (const auto outcome : outcomes) {
        text += text.empty() ? "" : "+";
        text += outcome == Outcome::Frame ? "frame" : outcome == Outcome::BadCrc ? "badcrc" : "toolong";
    }
    return text;
}

TEST(RtuFrameReaderTargetTest, CorpusChunksComeOutWholeAsFramesOrRefusals)
{
    replayCorpus<RtuFrameReaderTarget>("RtuFrameReader", 8, describe);
}

TEST(RtuFrameReaderTargetTest, AnEmptyInputReadsNothing)
{
    EXPECT_TRUE(RtuFrameReaderTarget::run(nullptr, 0).empty());
}

} // namespace
} // namespace orv::modbus::fuzz::test
