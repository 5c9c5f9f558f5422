// Cost of the register and discrete conversion accessors over data-store
// values held in memory, against the plain conversion of the same words: a
// bit_cast, a shift, a byte copy, into or out of the same std::vector of
// words or bits that the accessors' interface hands around. The "notify"
// cases push a change through the accessor to its entry's callback.
#include "RatioReporter.h"
#include "StoredCdsValue.h"

#include <orv/modbus/cds/CdsBooleanToOneDiscreteAccessor.h>
#include <orv/modbus/cds/CdsBooleanToOneRegisterAccessor.h>
#include <orv/modbus/cds/CdsDataToDiscretesAccessor.h>
#include <orv/modbus/cds/CdsDataToRegistersAccessor.h>
#include <orv/modbus/cds/CdsFloatAccessor.h>
#include <orv/modbus/cds/CdsFloatToOneRegisterAccessor.h>
#include <orv/modbus/cds/CdsInt32ToOneRegisterAccessor.h>
#include <orv/modbus/cds/CdsStringAccessor.h>

#include <benchmark/benchmark.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace orv::modbus::bench {
namespace {

using Words = std::vector<uint16_t>;
using Bits = std::vector<uint8_t>;
using Values = std::vector<zu::CValue>;

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

Words apparentPower(float voltage, float current)
{
    return {static_cast<uint16_t>(std::lround(voltage * current))};
}

std::vector<bool> eachAsBit(const Values& values)
{
    std::vector<bool> bits;
    bits.reserve(values.size());
    for (const auto& value : values) {
        bits.push_back(value.as_bool());
    }
    return bits;
}

// An accessor with the data points it converts, which a case changes.
template <class Accessor>
struct Fed {
    std::vector<StoredCdsValue*> points;
    std::unique_ptr<Accessor> accessor;
};

template <class Accessor>
std::unique_ptr<Fed<Accessor>> feedBack(std::unique_ptr<Fed<Accessor>> fed)
{
    // The entry's side of a notification: the words land somewhere.
    fed->accessor->setCallback([](const auto& words) { benchmark::DoNotOptimize(words.data()); });
    return fed;
}

std::unique_ptr<Fed<cds::CdsBooleanToOneDiscreteAccessor>> makeBooleanDiscrete()
{
    auto fed = std::make_unique<Fed<cds::CdsBooleanToOneDiscreteAccessor>>();
    auto point = std::make_shared<StoredCdsValue>(zu::CValue(true));
    fed->points = {point.get()};
    fed->accessor = std::make_unique<cds::CdsBooleanToOneDiscreteAccessor>(point, cds::DiscreteModifier::Inverted);
    return feedBack(std::move(fed));
}

std::unique_ptr<Fed<cds::CdsDataToRegistersAccessor>> makeApparentPower()
{
    auto fed = std::make_unique<Fed<cds::CdsDataToRegistersAccessor>>();
    fed->points = {new StoredCdsValue(zu::CValue(230.5f)), new StoredCdsValue(zu::CValue(12.5f))};
    fed->accessor = std::make_unique<cds::CdsDataToRegistersAccessor>(
        1, std::vector<cds::CdsDataAccessor*>(fed->points.begin(), fed->points.end()),
        [](const Values& values) { return apparentPower(values[0].as_float(), values[1].as_float()); }, nullptr,
        nullptr, "", cds::MissingAccessorPolicy::AllExisting);
    return feedBack(std::move(fed));
}

std::unique_ptr<Fed<cds::CdsDataToDiscretesAccessor>> makeThreeBooleans()
{
    auto fed = std::make_unique<Fed<cds::CdsDataToDiscretesAccessor>>();
    fed->points = {new StoredCdsValue(zu::CValue(true)), new StoredCdsValue(zu::CValue(false)),
                   new StoredCdsValue(zu::CValue(true))};
    fed->accessor = std::make_unique<cds::CdsDataToDiscretesAccessor>(
        3, std::vector<cds::CdsDataAccessor*>(fed->points.begin(), fed->points.end()), eachAsBit, nullptr,
        cds::MissingAccessorPolicy::AllExisting);
    return feedBack(std::move(fed));
}

// A change of the first data point, alternating between two values.
template <class Accessor>
void measureNotify(benchmark::State& state, Fed<Accessor>& fed, zu::CValue first, zu::CValue second)
{
    bool flip = false;
    measure(state, [&] {
        flip = !flip;
        fed.points[0]->change(flip ? first : second);
        return flip;
    });
}

void registerDiscretesAndComposites()
{
    static const auto booleanDiscrete = makeBooleanDiscrete();
    static const auto apparent = makeApparentPower();
    static const auto inputs = makeThreeBooleans();
    static volatile bool g_bools[3] = {true, false, true};
    static volatile float g_voltage = 230.5f;
    static volatile float g_current = 12.5f;

    const auto add = [](const std::string& name, const std::string& side, auto function) {
        benchmark::RegisterBenchmark((name + "/" + side).c_str(), function);
    };
    const std::string baseline = RatioReporter::g_baseline;
    const std::string orv = RatioReporter::g_orv;
    const auto oneBit = [] { return Bits{static_cast<uint8_t>(g_bools[0] ? 0 : 1)}; };
    const auto threeBits = [] {
        return Bits{static_cast<uint8_t>(g_bools[0]), static_cast<uint8_t>(g_bools[1]), static_cast<uint8_t>(g_bools[2])};
    };
    const auto product = [] { return apparentPower(g_voltage, g_current); };

    add("BooleanToOneDiscrete_getData", baseline, [=](benchmark::State& s) { measure(s, oneBit); });
    add("BooleanToOneDiscrete_getData", orv, [](benchmark::State& s) { measureGet(s, *booleanDiscrete->accessor); });
    add("BooleanToOneDiscrete_notify", baseline, [=](benchmark::State& s) { measure(s, oneBit); });
    add("BooleanToOneDiscrete_notify", orv, [](benchmark::State& s) {
        measureNotify(s, *booleanDiscrete, zu::CValue(true), zu::CValue(false));
    });

    add("DataToRegisters2_getData", baseline, [=](benchmark::State& s) { measure(s, product); });
    add("DataToRegisters2_getData", orv, [](benchmark::State& s) { measureGet(s, *apparent->accessor); });
    add("DataToRegisters2_notify", baseline, [=](benchmark::State& s) { measure(s, product); });
    add("DataToRegisters2_notify", orv,
        [](benchmark::State& s) { measureNotify(s, *apparent, zu::CValue(230.5f), zu::CValue(231.0f)); });

    add("DataToDiscretes3_getData", baseline, [=](benchmark::State& s) { measure(s, threeBits); });
    add("DataToDiscretes3_getData", orv, [](benchmark::State& s) { measureGet(s, *inputs->accessor); });
    add("DataToDiscretes3_notify", baseline, [=](benchmark::State& s) { measure(s, threeBits); });
    add("DataToDiscretes3_notify", orv,
        [](benchmark::State& s) { measureNotify(s, *inputs, zu::CValue(true), zu::CValue(false)); });
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
    orv::modbus::bench::registerDiscretesAndComposites();
    return orv::modbus::bench::runWithRatios(argc, argv);
}
