#include "Corpus.h"

#include "ProcessRequestTarget.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace orv::modbus::fuzz::test {
namespace {

using RequestOutcome = ProcessRequestTarget::Outcome;

std::string describeRequestOutcomes(const std::vector<RequestOutcome>& outcomes)
{
    return joinedNames(outcomes, [](RequestOutcome outcome) {
        return outcome == RequestOutcome::Answered ? "answered"
               : outcome == RequestOutcome::Refused ? "refused"
                                                    : "dropped";
    });
}

TEST(ProcessRequestTargetTest, CorpusFramesHaveTheirOutcomesAndKeepTheTablesSound)
{
    replayCorpus<ProcessRequestTarget>("ProcessRequest", 40, describeRequestOutcomes);
}

TEST(ProcessRequestTargetTest, AnEmptyInputSendsNothing)
{
    EXPECT_TRUE(ProcessRequestTarget::run(nullptr, 0).empty());
}

} // namespace
} // namespace orv::modbus::fuzz::test
