#include "Platform/Values/Value.h"

#include "Platform/Values/Utf8.h"
#include "Support/Testing.h"

#include <limits>

using namespace tdw;

TEST(Integer, HoldsBothSixtyFourBitRangesApart)
{
    const Value lowest = std::numeric_limits<std::int64_t>::min();
    const Value minusOne = -1;
    const Value highest = std::numeric_limits<std::uint64_t>::max();

    EXPECT_EQ(lowest.asInt64(), std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(minusOne.asUInt64(), std::nullopt);
    EXPECT_EQ(highest.asInt64(), std::nullopt);
    EXPECT_EQ(highest.asUInt64(), std::numeric_limits<std::uint64_t>::max());
    EXPECT_NE(minusOne, highest) << "they share their bits";
    EXPECT_EQ(Value(5U), Value(5)) << "the width of the literal is no part of the value";
    EXPECT_NE(Value(true), Value(1));
}

TEST(Dictionary, KeepsTheOrderOfFirstSettingWhateverItsSize)
{
    for (const int count : { 3, 200 }) {
        Dictionary dictionary;
        for (int i = 0; i < count; ++i)
            dictionary.set("key" + std::to_string(i), i);
        dictionary.set("key1", "replaced");
        EXPECT_TRUE(dictionary.remove("key0"));
        EXPECT_FALSE(dictionary.remove("key0"));

        ASSERT_EQ(dictionary.size(), static_cast<std::size_t>(count - 1));
        EXPECT_EQ(dictionary.begin()->key, "key1");
        EXPECT_EQ(*dictionary.find("key1"), Value("replaced"));
        EXPECT_EQ(*dictionary.find("key2"), Value(2));
        EXPECT_EQ(dictionary.find("key0"), nullptr);
        EXPECT_EQ(dictionary.intAt("key" + std::to_string(count - 1)), count - 1);
    }
}

TEST(Dictionary, IsEqualInAnyOrder)
{
    EXPECT_EQ((Dictionary { { "a", 1 }, { "b", 2 } }), (Dictionary { { "b", 2 }, { "a", 1 } }));
    EXPECT_NE((Dictionary { { "a", 1 }, { "b", 2 } }), (Dictionary { { "a", 1 }, { "c", 2 } }));
}

TEST(Value, DescribesHostileContentOnOneBoundedLine)
{
    Value nested = "end";
    for (int i = 0; i < 100; ++i)
        nested = Array { nested };
    const Value value = Dictionary { { "escape", "\x1b[2J\r\n\u202E" }, { "bad", "a\xff" },
        { "long", std::string(10'000, 'x') }, { "nested", nested }, { "data", Data(1'000) } };

    const std::string text = value.debugDescription();

    EXPECT_LT(text.size(), 1'000U);
    EXPECT_EQ(text.find_first_of("\x1b\r\n"), std::string::npos);
    EXPECT_EQ(text.find("\u202E"), std::string::npos);
    EXPECT_TRUE(isValidUtf8(text));
    EXPECT_NE(text.find(R"("escape": "\u001b[2J\r\n\u202e")"), std::string::npos) << text;
}

TEST(Text, FindsEveryKindOfInvalidUtf8)
{
    for (const std::string_view invalid : { "\xff", "\xc0\xaf", "\xe2\x80", "\xed\xa0\x80",
             "\xf4\x90\x80\x80", "\x80", "\xf8\x88\x80\x80\x80" }) {
        EXPECT_FALSE(isValidUtf8(invalid));
        EXPECT_TRUE(isValidUtf8(withInvalidUtf8Replaced(invalid)));
    }
    EXPECT_EQ(withInvalidUtf8Replaced("a\xe2\x80z"), "a\uFFFD\uFFFDz");
    EXPECT_EQ(withControlCharactersEscaped("\u2019 \U0001F600\u200D\uFE0F \u009b \x7f"),
        "\u2019 \U0001F600\u200D\uFE0F \\u009b \\u007f");
    EXPECT_EQ(withControlCharactersEscaped("a\u200B\u2028\uFEFF\u202E\U000E0041\u00ADz"),
        R"(a\u200b\u2028\ufeff\u202e\u{e0041}\u00adz)");
}
