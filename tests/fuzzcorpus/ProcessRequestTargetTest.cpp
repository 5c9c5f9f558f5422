#include "Corpus.h"

#include "ProcessRequestTarget.h"

#include <gtest/gtest.h>

namespace orv::modbus::fuzz::test {
namespace {

using RequestOutcome = ProcessRequestTarget::Outcome;

const char* requestWord(RequestOutcome outcome)
{
    return outcome == RequestOutcome::Answered ? "answered"
           : outcome == RequestOutcome::Refused ? "refused"
                                                : "dropped";
}

TEST(ProcessRequestTargetTest, CorpusFramesHaveTheirOutcomesAndKeepTheTablesSound)
{
    replayCorpus<ProcessRequestTarget>("ProcessRequest", 40, joinedWords(requestWord));
}

TEST(ProcessRequestTargetTest, AnEmptyInputSendsNothing)
{
    EXPECT_TRUE(ProcessRequestTarget::run(nullptr, 0).empty());
}

} // namespace
} // namespace orv::modbus::fuzz::test
