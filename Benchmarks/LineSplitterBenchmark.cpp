// Cutting a stream into lines, in pieces of what one read brings: one endless line, where searching
// or moving it anew for every piece would take the square of its length, and many short ones.

#include "Support/LineSplitter.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <string>

using namespace tdw;

namespace {

constexpr std::size_t kPiece = 4096;
constexpr std::size_t kMebibyte = std::size_t { 1 } << 20;

void split(benchmark::State& state)
{
    const auto lineLength = static_cast<std::size_t>(state.range(0));
    const auto length = static_cast<std::size_t>(state.range(1)) * kMebibyte;
    std::string text(length, 'x');
    for (std::size_t end = lineLength; end < length; end += lineLength)
        text[end] = '\n';
    const auto bytes = std::as_bytes(std::span(text));
    for ([[maybe_unused]] auto iteration : state) {
        LineSplitter splitter;
        for (std::size_t begin = 0; begin < length; begin += kPiece) {
            splitter.append(bytes.subspan(begin, std::min(kPiece, length - begin)));
            while (auto line = splitter.next())
                benchmark::DoNotOptimize(line);
        }
        benchmark::DoNotOptimize(splitter.rest());
    }
    state.SetBytesProcessed(
        static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(length));
}

constexpr std::int64_t kOneLine = std::int64_t { 1 } << 40;

} // namespace

BENCHMARK(split)
    ->Args({ kOneLine, 25 })
    ->Args({ kOneLine, 50 })
    ->Args({ kOneLine, 100 })
    ->Args({ 44, 100 })
    ->Unit(benchmark::kMillisecond);
