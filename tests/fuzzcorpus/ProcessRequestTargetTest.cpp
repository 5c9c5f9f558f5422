#include "Corpus.h"

#include "ProcessRequestTarget.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace orv::modbus::fuzz::test {
namespace {

using Outcome = ProcessRequestTarget::Outcome;

std::string describe(const std::vector<Outcome>& outcomes)
{
    std::string text;
    for (const auto outcome : outcomes) {
        text += text.empty() ? "" : "+";
        text += outcome == Outcome::Answered ? "answered" : outcome == Outcome::Refused ? "refused" : "dropped";
    }
    return text;
}

TEST(ProcessRequestTargetTest, CorpusFramesHaveTheirOutcomesAndKeepTheTablesSound)
{
    replayCorpus<ProcessRequestTarget>("ProcessRequest", 40, describe);
}

TEST(ProcessRequestTargetTest, AnEmptyInputSendsNothing)
{
    EXPECT_TRUE(ProcessRequestTarget::run(nullptr, 0).empty());
}

} // namespace
} // namespace orv::modbus::fuzz::test
