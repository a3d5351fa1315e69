#include "Support/Testing.h"
#include "Terminal/TerminalGraphics.h"
#include "Terminal/TerminalPicture.h"

namespace tdw::cli {

namespace {

using namespace matchers;

/// Red everywhere but in one blue corner, higher than one band of six lines.
IndexedPicture flag()
{
    IndexedPicture picture { { 5, 7 }, { 255, 0, 0, 0, 0, 128 }, std::vector<std::uint8_t>(35) };
    picture.pixels.front() = 1;
    return picture;
}

TEST(SixelPicture, PaintsEachColourOverEachBandOfSixLines)
{
    EXPECT_EQ(sixelPicture(flag()),
        "\x1bP0;1;0q\"1;1;5;7#0;2;100;0;0#1;2;0;0;50"
        "#0}!4~$#1@!4?$-" // all six lines but the corner; the corner
        "#0!5@$-\x1b\\\n");
}

TEST(ShrunkInto, KeepsTheProportionsAndNeverEnlarges)
{
    const auto same = shrunkInto({ 100, 100 }, flag());
    EXPECT_EQ(same.pixels, flag().pixels);
    const auto half = shrunkInto({ 100, 3 }, flag());
    EXPECT_EQ(half.size.width, 2U);
    EXPECT_THAT(half.pixels, ElementsAre(1, 0, 0, 0, 0, 0));
    EXPECT_EQ(shrunkInto({ 1, 1 }, flag()).pixels.size(), 1U);
}

TEST(KittyPicture, ComesInChunksThatFitAndIsMadeToFitTheTerminal)
{
    const std::vector<std::byte> png(4000);
    const auto text = kittyPicture(png, { 800, 100 }, { 80, 20, { 400, 400 } });
    EXPECT_TRUE(text.starts_with("\x1b_Ga=T,f=100,q=2,c=80,m=1;AAAA"));
    EXPECT_THAT(text, HasSubstr("\x1b\\\x1b_Gm=0;AAAA"));
    EXPECT_THAT(kittyPicture(png, { 100, 800 }, { 80, 20, { 400, 400 } }), HasSubstr(",r=20,"));
    EXPECT_THAT(kittyPicture(png, { 9, 9 }, { 80, 20, { 400, 400 } }), HasSubstr("q=2,m=1;"));
}

TEST(TerminalGraphics, AreReadFromTheWholeAnswerOfATerminal)
{
    const std::string kitty = "\x1b_Gi=31;OK\x1b\\";
    EXPECT_EQ(graphicsIn(kitty), std::nullopt);
    EXPECT_EQ(graphicsIn("\x1b[?62;4"), std::nullopt);
    EXPECT_EQ(graphicsIn("typed\x1b[A\x1b[?4;62cmore"), TerminalGraphics::Sixel);
    EXPECT_EQ(graphicsIn("\x1b[?64;22;44c"), TerminalGraphics::None);
    EXPECT_EQ(graphicsIn(kitty + "\x1b[?62;4c"), TerminalGraphics::Kitty);
    EXPECT_EQ(graphicsIn("\x1b_Gi=31;ENOTSUP\x1b\\\x1b[?62c"), TerminalGraphics::None);
}

} // namespace

} // namespace tdw::cli
