#include "Platform/Values/PropertyList.h"

#include "Server/PropertyListNode.h"
#include "Support/Testing.h"

#include <cstring>
#include <ctime>
#include <limits>

using namespace tdw;
using namespace std::chrono_literals;
using namespace std::string_literals;

namespace {

Value nestedArrays(std::size_t depth)
{
    Value value = "end";
    for (std::size_t i = 0; i < depth; ++i)
        value = Array { value };
    return value;
}

Date day(int year, unsigned month, unsigned day)
{
    return std::chrono::sys_days { std::chrono::year { year } / static_cast<int>(month)
        / static_cast<int>(day) };
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

/// What is decoded, or a text that begins with "refused".
Value decoded(std::span<const std::byte> document)
{
    const auto value = decodePropertyList(document);
    if (value)
        return *value;
    EXPECT_EQ(value.error().code(), 3840);
    return "refused: " + value.error().failureReason();
}

bool isRefused(std::span<const std::byte> document)
{
    const Value value = decoded(document);
    return value.asString() && value.asString()->starts_with("refused: ");
}

} // namespace

TEST(PropertyList, GivesBackEveryKindOfValueInBothFormats)
{
    const Value values[] = { true, false, 0, -1, std::numeric_limits<std::int64_t>::min(),
        std::numeric_limits<std::int64_t>::max(), std::uint64_t { 1 } << 63,
        std::numeric_limits<std::uint64_t>::max(), -0.1, 5e-324, 1e300,
        std::numeric_limits<double>::infinity(), "", "device\u2019s <&> \"name\" ]]> \U0001F600",
        " spaces \n kept ", Data {}, Data(1, std::byte { 0xA5 }), Data(2, std::byte { 0xA5 }),
        Data(100'001, std::byte { 0xA5 }), Array(300, "one text for all"), std::string(70'000, 'x'),
        std::string(20, 'x') + "\u00E9\u20AC\U0001F600", kDate, day(1, 1, 1), day(1601, 1, 1),
        day(2069, 1, 19), day(4001, 1, 1), day(9999, 12, 31), Array {}, Dictionary {},
        Dictionary { { "z", 1 }, { "a <&> \u2019", Array { -5, Dictionary { { "", "empty" } } } } },
        nestedArrays(kPropertyListMaximumDepth) };
    for (const Value& value : values) {
        for (const auto encode : { &encodeXmlPropertyList, &encodeBinaryPropertyList }) {
            const auto encoded = encode(value);
            ASSERT_TRUE(encoded) << value.debugDescription();
            EXPECT_EQ(decoded(*encoded), value) << textOf(*encoded);
            // The library reads the same in what was written.
            const std::string document = textOf(*encoded);
            const auto length = static_cast<std::uint32_t>(document.size());
            PropertyListNode node;
            if (document.starts_with("bplist"))
                plist_from_bin(document.data(), length, out(node));
            else
                plist_from_xml(document.data(), length, out(node));
            ASSERT_TRUE(node) << value.debugDescription();
            const auto read = valueFromNode(node.get());
            ASSERT_TRUE(read) << read.error().failureReason();
            EXPECT_EQ(*read, value) << document;
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
    EXPECT_EQ(decoded(*encodeXmlPropertyList("a\x01\tz")), Value("a\uFFFD\tz"))
        << "XML cannot hold every control character";
}

TEST(PropertyList, RefusesToWriteWhatItCannotHoldAndSaysWhere)
{
    const std::pair<Value, const char*> cases[] = {
        { Dictionary { { "info", Dictionary { { "cause", Error("d", 1, "r") } } } }, "info.cause" },
        { Array { "ok", "bad \xff" }, "\"1\"" },
        { Dictionary { { "nul", std::string("a\0b", 3) } }, "nul" },
        { Array { day(10'000, 1, 1) }, "1 to 9999" },
        { nestedArrays(kPropertyListMaximumDepth + 1), "deep" },
    };
    for (const auto& [value, place] : cases) {
        for (const auto encode : { &encodeXmlPropertyList, &encodeBinaryPropertyList }) {
            const auto encoded = encode(value);
            ASSERT_FALSE(encoded);
            EXPECT_EQ(encoded.error().domain(), "NSCocoaErrorDomain");
            EXPECT_EQ(encoded.error().code(), 3851);
            EXPECT_NE(encoded.error().failureReason().find(place), std::string::npos)
                << encoded.error().failureReason();
        }
    }
}

TEST(PropertyList, RefusesEveryTruncationOfADocument)
{
    const Value value = Dictionary { { "response", Array { 1, "two", Data(40) } } };
    for (const auto encode : { &encodeXmlPropertyList, &encodeBinaryPropertyList }) {
        const auto whole = encode(value);
        ASSERT_TRUE(whole);
        // The last byte of the XML form is the line end after the document.
        for (std::size_t length = 0; length + 1 < whole->size(); ++length)
            ASSERT_TRUE(isRefused(std::span(*whole).first(length)))
                << length << " of " << whole->size() << " bytes";
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
        "<plist><unknown/></plist>", "<plist/>", "<array>text</array>", "<string>a&#0;</string>",
        "<string>&unknown;</string>", "<integer>18446744073709551616</integer>",
        "<integer>-9223372036854775809</integer>", "<integer>1x</integer>", "<integer/>",
        "<real>1,5</real>", "<data>&#36;</data>", "<date>2026-02-30T00:00:00Z</date>",
        "<date>0000-01-01T00:00:00Z</date>", "<date>10000-01-01T00:00:00Z</date>",
        "<dict><string>a</string></dict>", "<dict><key>a</key></dict>", comments, deep, "bplist00",
        "bplist00" + std::string(32, '\xff'),
        // An array of itself, two arrays of each other, a reference out of range, a false size.
        binaryPropertyList({ { '\xA1', 0 } }), binaryPropertyList({ { '\xA1', 1 }, { '\xA1', 0 } }),
        binaryPropertyList({ { '\xA1', 9 } }), binaryPropertyList({ "\xAF\x13\x7f\xff\xff\xff" }),
        // Text with a NUL, dates out of range and no number at all, a key that is no text.
        binaryPropertyList({ std::string("\x52\0a", 3) }),
        binaryPropertyList({ "\x33\x42\x7F\xFF\xFF\xFF\xFF\xFF\xFF" }),
        binaryPropertyList({ "\x33\x7F\xFF\xFF\xFF\xFF\xFF\xFF\xFF" }),
        binaryPropertyList({ "\xD1\1\1", "\x09" }) };
    for (const std::string& document : documents)
        EXPECT_TRUE(isRefused(bytesOf(document))) << document.substr(0, 200);
}

TEST(PropertyList, RefusesABinaryDocumentThatExpandsWithoutEnd)
{
    // Each array holds the next one twice: 2^60 objects in a few hundred bytes.
    std::vector<std::string> objects;
    for (char i = 0; i < 60; ++i)
        objects.push_back({ '\xA2', static_cast<char>(i + 1), static_cast<char>(i + 1) });
    objects.emplace_back("\x09");
    EXPECT_TRUE(isRefused(bytesOf(binaryPropertyList(objects))));

    // The same with long data instead of many objects.
    objects.resize(13);
    objects.back() = "\x4F\x10\x96" + std::string(0x96, 'x');
    EXPECT_TRUE(isRefused(bytesOf(binaryPropertyList(objects))));

    // The same sharing within bounds is an ordinary document.
    EXPECT_EQ(decoded(bytesOf(binaryPropertyList({ { '\xA2', 1, 1 }, { '\xA2', 2, 2 }, "\x09" }))),
        Value(Array { Array { true, true }, Array { true, true } }));
}

TEST(PropertyList, TakesTimeAndMemoryInProportionToTheBytes)
{
    Array numbers;
    for (int i = 0; i < 50'000; ++i)
        numbers.emplace_back(i);
    const Value value = Dictionary { { "numbers", numbers }, { "booleans", Array(50'000, true) } };
    for (const auto encode : { &encodeXmlPropertyList, &encodeBinaryPropertyList }) {
        const auto encoded = encode(value);
        ASSERT_TRUE(encoded);
        const std::clock_t start = std::clock();
        const Value read = decoded(*encoded);
        // Processor time; where each element is looked for from the first one, it is half a minute.
        EXPECT_LT(std::clock() - start, 5 * CLOCKS_PER_SEC);
        EXPECT_EQ(read, value);
    }

    // 3 MiB of one-byte references to one object would be 72 MiB of values; so would empty arrays.
    const std::string references(3 << 20, '\1');
    std::string shared = "bplist00\xAF\x12" + std::string("\x00\x30\x00\x00", 4) + references;
    const std::size_t table = shared.size() + 1;
    shared += "\x09";
    for (const std::size_t offset : { std::size_t { 8 }, table - 1 }) {
        for (const int shift : { 24, 16, 8, 0 })
            shared += static_cast<char>((offset >> shift) & 0xFF);
    }
    shared += std::string(6, '\0') + "\x04\x01" + std::string(7, '\0') + '\2';
    shared += std::string(8, '\0') + std::string(4, '\0');
    for (const int shift : { 24, 16, 8, 0 })
        shared += static_cast<char>((table >> shift) & 0xFF);
    std::string empty = "<plist><array>";
    for (int i = 0; i < 400'000; ++i)
        empty += "<dict/>";
    for (const std::string& document : { shared, empty + "</array></plist>" })
        EXPECT_THAT(*decoded(bytesOf(document)).asString(),
            testing::ContainsRegex("refused: .*proportion"));
}

TEST(PropertyList, ReadsWhatOtherWritersWrite)
{
    const std::pair<std::string_view, Value> rows[] = {
        { "\xEF\xBB\xBF<?xml version='1.0'?><!DOCTYPE plist SYSTEM 'a'><plist><true></true></plist>",
            true },
        { "<!-- a --><array><!-- <array> --><string/><data/><array/><dict/></array><!-- b -->",
            Array { "", Data {}, Array {}, Dictionary {} } },
        { "<string>a&lt;&#65;&#x1F600;<![CDATA[<&amp;]]><!-- no -->&apos;</string>",
            "a<A\U0001F600<&amp;'" },
        { "<array><integer> +7 </integer><integer>-0x10</integer><real>+1e3</real></array>",
            Array { 7, -16, 1000.0 } },
        { "<data> AA\n EC\tAw = = </data>",
            Data { std::byte { 0 }, std::byte { 1 }, std::byte { 2 }, std::byte { 3 } } },
        { "<date>2026-11-22T03:00:07.25Z</date>", kDate + 250ms },
        { "<dict><key>a</key><true/><key>a</key><false/></dict>", Dictionary { { "a", false } } },
        { "<dict><key>a</key><string>b\xff</string></dict>", Dictionary { { "a", "b\uFFFD" } } },
    };
    for (const auto& [document, value] : rows)
        EXPECT_EQ(decoded(bytesOf(document)), value) << document;

    const std::string binary = binaryPropertyList({ std::string("\xA6\1\2\3\4\5\6", 7),
        std::string("\x22\x3F\0\0\0", 5), "\x63\xD8\x3D\xDE\0\xD8\0"s.substr(0, 7), "\x80\x05",
        std::string("\x12\xFF\xFF\xFF\xFF", 5), "\x52\xFFz",
        "\x33\xC2\x2D\x63\x7E\x7E\0\0\0"s.substr(0, 9) });
    const Value read = decoded(bytesOf(binary));
    ASSERT_TRUE(read.asArray()) << read.debugDescription();
    const Array& values = *read.asArray();
    EXPECT_EQ(values[0], Value(0.5));
    EXPECT_EQ(values[1], Value("\U0001F600\uFFFD")) << "half a pair of surrogates stays behind";
    EXPECT_EQ(values[2].intAt("CF$UID"), 5);
    EXPECT_EQ(values[3].asInt64(), 0xFFFFFFFF);
    EXPECT_EQ(values[4], Value("\uFFFDz"));
    EXPECT_EQ(values[5].type(), Value::Type::Date);
}

TEST(PropertyList, ReadsNodesOfTheDeviceLibraries)
{
    std::string document = "<plist version=\"1.0\"><dict><key>list</key><array>";
    for (int i = 0; i < 50'000; ++i)
        document += "<true/>";
    document += "</array><key>name</key><string>a&lt;\xff</string></dict></plist>";
    PropertyListNode node;
    plist_from_xml(document.data(), static_cast<std::uint32_t>(document.size()), out(node));
    ASSERT_TRUE(node);
    const auto value = valueFromNode(node.get());
    ASSERT_TRUE(value) << value.error().failureReason();
    EXPECT_EQ(
        *value, Value(Dictionary { { "list", Array(50'000, true) }, { "name", "a<\uFFFD" } }));
}
