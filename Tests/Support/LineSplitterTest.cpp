#include "Support/LineSplitter.h"

#include "Support/Testing.h"

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
        // Lines that are not asked for stay.
        if (const auto line = splitter.next())
            lines.emplace_back(*line);
    }
    while (const auto line = splitter.next())
        lines.emplace_back(*line);
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
    const std::pair<std::string, Lines> cases[] = {
        { "", {} },
        { "a\nb\n", { "a", "b" } },
        { "a\nb", { "a", "rest:b" } },
        { "\n\n", { "", "" } },
        { "\n\n\nx\n\n\n", { "", "", "", "x", "", "" } },
        { "x\r\n\r", { "x\r", "rest:\r" } },
        { "\0\n\xff\n"s, { "\0"s, "\xff" } },
        { longLine + "\n" + longLine + "\n\nz", { longLine, longLine, "", "rest:z" } },
    };
    for (const auto& [text, lines] : cases) {
        for (const std::size_t size : { 1, 2, 3, 4096, 200'000 })
            EXPECT_EQ(linesOf(text, size), lines) << size;
    }
}
