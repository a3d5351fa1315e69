// Encoding and decoding an envelope of about 1 MiB: as one long text, as data, and as many small
// values, which is what a watch with everything it knows comes nearest to.

#include "Interfaces/TDWResponse.h"
#include "Platform/Values/PropertyList.h"

#include <benchmark/benchmark.h>

#include <string>

using namespace tdw;

namespace {

enum Payload { LongText, LongData, ManyValues };

constexpr std::size_t kMebibyte = std::size_t { 1 } << 20;

Value envelope(Payload payload)
{
    if (payload == LongText)
        return Dictionary { { kTDWResponseDataKey, std::string(kMebibyte, 'x') } };
    if (payload == LongData)
        return Dictionary { { kTDWResponseDataKey, Data(kMebibyte) } };
    Dictionary values;
    for (int i = 0; i < 8'000; ++i)
        values.set("Key number " + std::to_string(i), Array { i, true, "a short text \u2019" });
    return Dictionary { { kTDWResponseDataKey, values } };
}

void encode(benchmark::State& state)
{
    const Value value = envelope(static_cast<Payload>(state.range(0)));
    for ([[maybe_unused]] auto iteration : state)
        benchmark::DoNotOptimize(encodeXmlPropertyList(value));
}

void decode(benchmark::State& state)
{
    const auto bytes = encodeXmlPropertyList(envelope(static_cast<Payload>(state.range(0))));
    for ([[maybe_unused]] auto iteration : state)
        benchmark::DoNotOptimize(decodePropertyList(*bytes));
    state.SetBytesProcessed(
        static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(bytes->size()));
}

} // namespace

BENCHMARK(encode)->Arg(LongText)->Arg(LongData)->Arg(ManyValues)->Unit(benchmark::kMillisecond);
BENCHMARK(decode)->Arg(LongText)->Arg(LongData)->Arg(ManyValues)->Unit(benchmark::kMillisecond);
