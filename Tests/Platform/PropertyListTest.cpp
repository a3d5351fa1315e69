#include "Platform/PropertyList.h"

#include "Platform/PropertyListNode.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

using namespace tdw;
using namespace std::chrono_literals;

namespace {

std::span<const std::byte> bytesOf(std::string_view text)
{
    return std::as_bytes(std::span(text));
}

std::string textOf(const Data& data)
{
    return { reinterpret_cast<const char*>(data.data()), data.size() };
}

Value nestedArrays(std::size_t depth)
{
    Value value = "end";
    for (std::size_t i = 0; i < depth; ++i)
        value = Array { value };
    return value;
}

constexpr Date kDate { std::chrono::sys_days { std::chrono::year { 2026 } / 11 / 22 } + 3h + 7s };

/// A binary property list of `objects`, each written as given, with one byte per reference.
std::string binaryPropertyList(const std::vector<std::string>& objects, char root = 0)
{
    std::string result = "bplist00";
    std::string offsets;
    for (const std::string& object : objects) {
        offsets += static_cast<char>(result.size());
        result += object;
    }
    const auto table = static_cast<char>(result.size());
    result += offsets + std::string(6, '\0') + "\x01\x01";
    result += std::string(7, '\0') + static_cast<char>(objects.size());
    result += std::string(7, '\0') + root + std::string(7, '\0') + table;
    return result;
}

} // namespace

TEST(PropertyList, GivesBackEveryKindOfValueInBothFormats)
{
    const Value values[] = {
        true,
        false,
        0,
        -1,
        std::numeric_limits<std::int64_t>::min(),
        std::numeric_limits<std::int64_t>::max(),
        std::uint64_t { 1 } << 63,
        std::numeric_limits<std::uint64_t>::max(),
        0.0,
        -0.1,
        1.0 / 3,
        5e-324,
        1e300,
        std::numeric_limits<double>::infinity(),
        "",
        "device\u2019s <&> \"name\" ]]> \U0001F600",
        " spaces \n kept ",
        Data {},
        Data(100'000, std::byte { 0xA5 }),
        kDate,
        Date { std::chrono::sys_days { std::chrono::year { 1950 } / 1 / 1 } },
        Array {},
        Dictionary {},
        Dictionary { { "z", 1 }, { "a <&> \u2019", Array { -5, Dictionary { { "", "empty" } } } } },
        nestedArrays(kPropertyListMaximumDepth),
    };
    for (const Value& value : values) {
        for (const auto encode : { &encodeXmlPropertyList, &encodeBinaryPropertyList }) {
            const auto encoded = encode(value);
            ASSERT_TRUE(encoded) << value.debugDescription();
            const auto decoded = decodePropertyList(*encoded);
            ASSERT_TRUE(decoded) << decoded.error().failureReason();
            EXPECT_EQ(*decoded, value) << textOf(*encoded);
        }
    }
}

TEST(PropertyList, WritesIntegersAsTheyRead)
{
    const auto encoded = encodeXmlPropertyList(
        Array { -3, std::numeric_limits<std::uint64_t>::max(), Data(), kDate + 900ms });
    ASSERT_TRUE(encoded);
    const std::string text = textOf(*encoded);
    EXPECT_NE(text.find("<integer>-3</integer>"), std::string::npos);
    EXPECT_NE(text.find("<integer>18446744073709551615</integer>"), std::string::npos);
    EXPECT_NE(text.find("<date>2026-11-22T03:00:07Z</date>"), std::string::npos);
    EXPECT_TRUE(text.starts_with("<?xml version=\"1.0\" encoding=\"UTF-8\"?>"));
}

TEST(PropertyList, RefusesToWriteWhatItCannotHoldAndSaysWhere)
{
    const struct {
        Value value;
        const char* place;
    } cases[] = {
        { Dictionary { { "info", Dictionary { { "cause", Error("d", 1, "r") } } } }, "info.cause" },
        { Array { "ok", "bad \xff" }, "\"1\"" },
        { Dictionary { { "nul", std::string("a\0b", 3) } }, "nul" },
        { nestedArrays(kPropertyListMaximumDepth + 1), "deep" },
    };
    for (const auto& row : cases) {
        for (const auto encode : { &encodeXmlPropertyList, &encodeBinaryPropertyList }) {
            const auto encoded = encode(row.value);
            ASSERT_FALSE(encoded);
            EXPECT_EQ(encoded.error().domain(), "NSCocoaErrorDomain");
            EXPECT_EQ(encoded.error().code(), 3851);
            EXPECT_NE(encoded.error().failureReason().find(row.place), std::string::npos)
                << encoded.error().failureReason();
        }
    }
}

TEST(PropertyList, ReplacesControlCharactersThatXmlCannotHold)
{
    const auto encoded = encodeXmlPropertyList("a\x01\tz");
    ASSERT_TRUE(encoded);
    EXPECT_EQ(*decodePropertyList(*encoded), Value("a\uFFFD\tz"));
}

TEST(PropertyList, RefusesEveryTruncationOfADocument)
{
    const Value value = Dictionary { { "response", Array { 1, "two", Data(40) } } };
    for (const auto encode : { &encodeXmlPropertyList, &encodeBinaryPropertyList }) {
        const auto whole = encode(value);
        ASSERT_TRUE(whole);
        // The last byte of the XML form is the line end after the document.
        for (std::size_t length = 0; length + 1 < whole->size(); ++length) {
            const auto decoded = decodePropertyList(std::span(*whole).first(length));
            ASSERT_FALSE(decoded) << length << " of " << whole->size() << " bytes";
            EXPECT_EQ(decoded.error().code(), 3840);
        }
    }
}

TEST(PropertyList, RefusesGarbage)
{
    std::string comments = "<plist><array><!-- </array> -->";
    std::string deep;
    for (int i = 0; i < 100'000; ++i) {
        comments += "<array><!-- </array> -->";
        deep += "<array>";
    }
    const std::string documents[] = { "", "garbage", "\x00\x01\x02", "[ERROR] no such device\n",
        "<plist version=\"1.0\"></plist>", "<plist><string>a</string></plist>junk",
        "junk<plist><string>a</string></plist>", "<plist><dict></array></plist>",
        "<plist><string>a</string></plist><plist><string>b</string></plist>",
        "<!DOCTYPE plist [<!ENTITY a \"b\">]><plist><string>&a;</string></plist>",
        "<plist><unknown/></plist>", comments, deep, "bplist00",
        "bplist00" + std::string(32, '\xff'),
        // An array of itself, two arrays of each other, a reference out of range, a false size.
        binaryPropertyList({ { '\xA1', 0 } }), binaryPropertyList({ { '\xA1', 1 }, { '\xA1', 0 } }),
        binaryPropertyList({ { '\xA1', 9 } }), binaryPropertyList({ "\xAF\x13\x7f\xff\xff\xff" }) };
    for (const std::string& document : documents) {
        const auto decoded = decodePropertyList(bytesOf(document));
        ASSERT_FALSE(decoded) << document.substr(0, 200) << decoded->debugDescription();
        EXPECT_EQ(decoded.error().code(), 3840);
    }
}

TEST(PropertyList, RefusesABinaryDocumentThatExpandsWithoutEnd)
{
    // Each array holds the next one twice: 2^60 objects in a few hundred bytes.
    std::vector<std::string> objects;
    for (char i = 0; i < 60; ++i)
        objects.push_back({ '\xA2', static_cast<char>(i + 1), static_cast<char>(i + 1) });
    objects.emplace_back("\x09");
    EXPECT_FALSE(decodePropertyList(bytesOf(binaryPropertyList(objects))));

    // The same sharing within bounds is an ordinary document.
    const auto shared = decodePropertyList(
        bytesOf(binaryPropertyList({ { '\xA2', 1, 1 }, { '\xA2', 2, 2 }, "\x09" })));
    ASSERT_TRUE(shared);
    EXPECT_EQ(*shared, Value(Array { Array { true, true }, Array { true, true } }));
}

TEST(PropertyList, ReadsTextThatIsNotUtf8WithReplacements)
{
    const auto decoded = decodePropertyList(
        bytesOf("<plist><dict><key>a</key><string>b\xff</string></dict></plist>"));
    ASSERT_TRUE(decoded);
    EXPECT_EQ(*decoded, Value(Dictionary { { "a", "b\uFFFD" } }));
}
