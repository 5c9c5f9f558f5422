#include "Corpus.h"

#include "ProcessRequestTarget.h"

#include <gtest/gtest.h>

namespace orv::modbus::fuzz::test {
namespace {

using Outcome = ProcessRequestTarget::Outcome;

const char* word(Outcome outcome)
{
    return outcome == Outcome::Answered ? "answered" : outcome == Outcome::Refused ? "refused" : "dropped";
}

TEST(ProcessRequestTargetTest, CorpusFramesHaveTheirOutcomesAndKeepTheTablesSound)
{
    replayCorpus<ProcessRequestTarget>("ProcessRequest", 40, joinedWords(word));
}

TEST(ProcessRequestTargetTest, AnEmptyInputSendsNothing)
{
    EXPECT_TRUE(ProcessRequestTarget::run(nullptr, 0).empty());
}

} // namespace
} // namespace orv::modbus::fuzz::test
