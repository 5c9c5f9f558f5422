// Cost of the register conversion accessors over a data-store value held in
// memory, against the plain conversion of the same words: a bit_cast, a
// shift, a byte copy, into or out of the same std::vector of words that the
// accessors' interface hands around.
#include "RatioReporter.h"
#include "StoredCdsValue.h"

#include <orv/modbus/cds/CdsBooleanToOneRegisterAccessor.h>
#include <orv/modbus/cds/CdsFloatAccessor.h>
#include <orv/modbus/cds/CdsFloatToOneRegisterAccessor.h>
#include <orv/modbus/cds/CdsInt32ToOneRegisterAccessor.h>
#include <orv/modbus/cds/CdsStringAccessor.h>

#include <benchmark/benchmark.h>

#include <bit>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace orv::modbus::bench {
namespace {

using Words = std::vector<uint16_t>;

constexpr unsigned short g_stringRegisters = 16;
const std::string g_text = "UPS 3000 main switchboard, bay 4";

template <class Accessor, class... Arguments>
std::unique_ptr<Accessor> makeAccessor(zu::CValue value, Arguments... arguments)
{
    return std::make_unique<Accessor>(std::make_shared<StoredCdsValue>(std::move(value)), arguments...);
}

// Runs `work` once per iteration, keeping its result alive.
template <class Work>
void measure(benchmark::State& state, Work work)
{
    for (auto _ : state) {
        auto result = work();
        benchmark::DoNotOptimize(result);
        // Makes the next iteration read its input again.
        benchmark::ClobberMemory();
    }
}

template <class Accessor>
void measureGet(benchmark::State& state, const Accessor& accessor)
{
    measure(state, [&accessor] { return accessor.getData(); });
}

template <class Accessor>
void measureSet(benchmark::State& state, Accessor& accessor, const Words& words)
{
    measure(state, [&] {
        accessor.setData(words);
        return words.size();
    });
}

// Baselines: the same words, converted by hand.

Words floatToWords(float value)
{
    const auto bits = std::bit_cast<uint32_t>(value);
    return {static_cast<uint16_t>(bits >> 16), static_cast<uint16_t>(bits & 0xffff)};
}

float wordsToFloat(const Words& words)
{
    return std::bit_cast<float>(static_cast<uint32_t>(words[0]) << 16 | words[1]);
}

Words textToWords(const std::string& text)
{
    Words words((text.size() + 1) / 2, 0);
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<uint16_t>(static_cast<unsigned char>(text[i]));
        words[i / 2] |= static_cast<uint16_t>(i % 2 == 0 ? byte << 8 : byte);
    }
    return words;
}

std::string wordsToText(const Words& words)
{
    std::string text;
    text.reserve(words.size() * 2);
    for (const uint16_t word : words) {
        text.push_back(static_cast<char>(word >> 8));
        text.push_back(static_cast<char>(word & 0xff));
    }
    return text;
}

void registerCases()
{
    // The accessors live as long as the program: the benchmarks registered
    // below refer to them.
    static const auto floatAccessor = makeAccessor<cds::CdsFloatAccessor>(zu::CValue(230.5f), 1.0f, 1);
    static const auto stringAccessor = [] {
        return std::make_unique<cds::CdsStringAccessor>(g_stringRegisters,
                                                        std::make_shared<StoredCdsValue>(zu::CValue(g_text)));
    }();
    static const auto floatToOne = makeAccessor<cds::CdsFloatToOneRegisterAccessor>(
        zu::CValue(230.5f), 10.0f, 0.0f, cds::ValueKind::Unsigned);
    static const auto int32ToOne = makeAccessor<cds::CdsInt32ToOneRegisterAccessor>(zu::CValue(int32_t{4711}), 1.0f);
    static const auto boolToOne = makeAccessor<cds::CdsBooleanToOneRegisterAccessor>(zu::CValue(true));
    static const Words floatWords = floatToWords(230.5f);
    static const Words textWords = textToWords(g_text);
    static const Words oneWord{2305};
    static volatile float g_float = 230.5f;
    static volatile int32_t g_int = 4711;
    static volatile bool g_bool = true;

    const auto add = [](const std::string& name, const std::string& side, auto function) {
        benchmark::RegisterBenchmark((name + "/" + side).c_str(), function);
    };
    const std::string baseline = RatioReporter::g_baseline;
    const std::string orv = RatioReporter::g_orv;

    add("Float_getData", baseline, [](benchmark::State& s) { measure(s, [] { return floatToWords(g_float); }); });
    add("Float_getData", orv, [](benchmark::State& s) { measureGet(s, *floatAccessor); });
    add("Float_setData", baseline, [](benchmark::State& s) { measure(s, [] { return wordsToFloat(floatWords); }); });
    add("Float_setData", orv, [](benchmark::State& s) { measureSet(s, *floatAccessor, floatWords); });

    add("String16_getData", baseline, [](benchmark::State& s) { measure(s, [] { return textToWords(g_text); }); });
    add("String16_getData", orv, [](benchmark::State& s) { measureGet(s, *stringAccessor); });
    add("String16_setData", baseline, [](benchmark::State& s) { measure(s, [] { return wordsToText(textWords); }); });
    add("String16_setData", orv, [](benchmark::State& s) { measureSet(s, *stringAccessor, textWords); });

    add("FloatToOneRegister_getData", baseline,
        [](benchmark::State& s) { measure(s, [] { return Words{static_cast<uint16_t>(g_float * 10.0f)}; }); });
    add("FloatToOneRegister_getData", orv, [](benchmark::State& s) { measureGet(s, *floatToOne); });
    add("FloatToOneRegister_setData", baseline,
        [](benchmark::State& s) { measure(s, [] { return static_cast<float>(oneWord[0]) / 10.0f; }); });
    add("FloatToOneRegister_setData", orv, [](benchmark::State& s) { measureSet(s, *floatToOne, oneWord); });

    add("Int32ToOneRegister_getData", baseline,
        [](benchmark::State& s) { measure(s, [] { return Words{static_cast<uint16_t>(g_int)}; }); });
    add("Int32ToOneRegister_getData", orv, [](benchmark::State& s) { measureGet(s, *int32ToOne); });
    add("Int32ToOneRegister_setData", baseline,
        [](benchmark::State& s) { measure(s, [] { return static_cast<int32_t>(oneWord[0]); }); });
    add("Int32ToOneRegister_setData", orv, [](benchmark::State& s) { measureSet(s, *int32ToOne, oneWord); });

    add("BooleanToOneRegister_getData", baseline,
        [](benchmark::State& s) { measure(s, [] { return Words{static_cast<uint16_t>(g_bool ? 1 : 0)}; }); });
    add("BooleanToOneRegister_getData", orv, [](benchmark::State& s) { measureGet(s, *boolToOne); });
    add("BooleanToOneRegister_setData", baseline,
        [](benchmark::State& s) { measure(s, [] { return oneWord[0] != 0; }); });
    add("BooleanToOneRegister_setData", orv, [](benchmark::State& s) { measureSet(s, *boolToOne, oneWord); });
}

} // namespace
} // namespace orv::modbus::bench

int main(int argc, char** argv)
{
    orv::modbus::bench::registerCases();
    return orv::modbus::bench::runWithRatios(argc, argv);
}
