#include "Support/LineSplitter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

using namespace tdw;

namespace {

using Lines = std::vector<std::string>;

/// What `text` comes to in pieces of a size; the rest at the end of the stream is marked.
Lines linesOf(std::string_view text, std::size_t pieceSize)
{
    Lines lines;
    LineSplitter splitter;
    for (; !text.empty(); text.remove_prefix(std::min(pieceSize, text.size()))) {
        splitter.append(std::as_bytes(std::span(text.substr(0, pieceSize))));
        while (const auto line = splitter.next())
            lines.emplace_back(*line);
    }
    if (const auto line = splitter.rest())
        lines.push_back("rest:" + std::string(*line));
    EXPECT_EQ(splitter.rest(), std::nullopt) << "only once";
    return lines;
}

} // namespace

TEST(LineSplitter, CutsAtNewlinesInWhateverPiecesTheBytesArrive)
{
    using namespace std::string_literals;
    const std::string longLine(70'000, 'x');
    const struct {
        std::string text;
        Lines lines;
    } cases[] = {
        { "", {} },
        { "a\nb\n", { "a", "b" } },
        { "a\nb", { "a", "rest:b" } },
        { "\n\n", { "", "" } },
        { "x\r\n\r", { "x\r", "rest:\r" } },
        { "\0\n\xff\n"s, { "\0"s, "\xff" } },
        { longLine + "\n" + longLine + "\n\nz", { longLine, longLine, "", "rest:z" } },
    };
    for (const auto& row : cases) {
        for (const std::size_t size : { 1, 2, 3, 4096, 200'000 })
            EXPECT_EQ(linesOf(row.text, size), row.lines) << size;
    }
}

TEST(LineSplitter, KeepsWhatWasNotAskedFor)
{
    // More is appended than is asked for, so that delivered bytes have to go while lines remain.
    LineSplitter splitter;
    for (int i = 0; i < 1000; ++i) {
        const std::string pair = std::to_string(2 * i) + "\n" + std::to_string(2 * i + 1) + "\n";
        splitter.append(std::as_bytes(std::span(pair)));
        EXPECT_EQ(splitter.next(), std::to_string(i));
    }
    for (int i = 1000; i < 2000; ++i)
        EXPECT_EQ(splitter.next(), std::to_string(i));
    EXPECT_EQ(splitter.next(), std::nullopt);
}
