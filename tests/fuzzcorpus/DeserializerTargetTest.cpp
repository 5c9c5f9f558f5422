#include "Corpus.h"

#include "DeserializerTarget.h"

#include <gtest/gtest.h>

namespace orv::modbus::fuzz::test {
namespace {

TEST(DeserializerTargetTest, CorpusTextsParseOrFailAsDocumented)
{
    replayCorpus<DeserializerTarget>("Deserializer", 20, [](DeserializerTarget::Outcome outcome) {
        return outcome == DeserializerTarget::Outcome::Parsed ? "parsed" : "rejected";
    });
}

TEST(DeserializerTargetTest, AnEmptyInputIsRejected)
{
    EXPECT_EQ(DeserializerTarget::run(nullptr, 0), DeserializerTarget::Outcome::Rejected);
}

} // namespace
} // namespace orv::modbus::fuzz::test
