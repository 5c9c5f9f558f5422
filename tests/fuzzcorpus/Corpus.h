#pragma once
// Replays the committed corpus of one fuzz target (tests/fuzz/corpus/<target>/)
// through the same entry the libFuzzer program uses. Each input's name
// starts with the outcome it must have, up to the first '-'
// ("refused-tcp-fc23-read-write" must be refused); a broken invariant or an
// unexpected exception fails the test too, naming the input. What `make fuzz`
// found and kept (corpus/<target>/found/) has no promised outcome: it is
// replayed for the invariants alone.

#include "FuzzFailure.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace orv::modbus::fuzz::test {

struct CorpusInput {
    std::string name;
    std::vector<uint8_t> bytes;
    // The outcome the name promises; empty for an input fuzzing found.
    std::string expected;
};

inline void addInputs(const std::filesystem::path& folder, bool named, std::vector<CorpusInput>& inputs)
{
    if (!std::filesystem::is_directory(folder)) {
        return;
    }
    for (const auto& file : std::filesystem::directory_iterator(folder)) {
        if (!file.is_regular_file()) {
            continue;
        }
        std::ifstream stream(file.path(), std::ios::binary);
        const std::string name = file.path().filename().string();
        inputs.push_back({named ? name : "found/" + name,
                          {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()},
                          named ? name.substr(0, name.find('-')) : ""});
    }
}

inline std::vector<CorpusInput> loadCorpus(const std::string& target)
{
    const auto folder = (std::filesystem::path(ORV_TEST_SOURCE_DIR) / ".." / "fuzz" / "corpus" / target)
                            .lexically_normal();
    std::vector<CorpusInput> inputs;
    addInputs(folder, true, inputs);
    addInputs(folder / "found", false, inputs);
    std::sort(inputs.begin(), inputs.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
    return inputs;
}

// The outcome text of a target that reads several frames or chunks from one
// input: each one's name, joined by '+'.
template <class Outcome, class Name>
std::string joinedNames(const std::vector<Outcome>& outcomes, Name name)
{
    std::string text;
    for (const auto outcome : outcomes) {
        text += text.empty() ? "" : "+";
        text += name(outcome);
    }
    return text;
}

// Runs every input of `target` through Target::run; `describe` turns what
// run returns into the outcome text of the file names.
template <class Target, class Describe>
void replayCorpus(const std::string& target, std::size_t minimumInputs, Describe describe)
{
    const auto inputs = loadCorpus(target);
    ASSERT_GE(inputs.size(), minimumInputs) << "the corpus of " << target << " is missing inputs";
    for (const auto& input : inputs) {
        SCOPED_TRACE(target + "/" + input.name);
        try {
            const auto outcome = describe(Target::run(input.bytes.data(), input.bytes.size()));
            if (!input.expected.empty()) {
                EXPECT_EQ(outcome, input.expected);
            }
        } catch (const FuzzFailure& failure) {
            ADD_FAILURE() << "broken invariant: " << failure.what();
        }
    }
}

} // namespace orv::modbus::fuzz::test
