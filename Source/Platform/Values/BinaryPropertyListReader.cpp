#include "Platform/Values/PropertyListFormats.h"
#include "Platform/Values/Utf8.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

namespace tdw {

namespace {

constexpr std::size_t kHeaderBytes = 8;
constexpr std::size_t kTrailerBytes = 32;

/// A document may share objects, but a walk over its values meets them at each use: what they
/// come to must stand in some proportion to the bytes.
constexpr std::size_t kFreeObjects = 10'000;
constexpr std::size_t kObjectsPerByte = 16;

/// How much text or data counts as one more object.
constexpr std::size_t kUnitsPerObject = 64;

/// The upper half of an object's marker byte.
enum class Kind : std::uint8_t {
    Constant = 0x0,
    Integer = 0x1,
    Real = 0x2,
    Date = 0x3,
    Data = 0x4,
    Ascii = 0x5,
    Utf16 = 0x6,
    Uid = 0x8,
    Array = 0xA,
    Set = 0xC,
    Dictionary = 0xD,
};

/// Reads each object of a binary property list once. Objects that are referred to several times
/// become values that share their contents.
///
///     | "bplist00" | objects … | offset table | trailer (32 bytes) |
class BinaryReader {
public:
    explicit BinaryReader(std::span<const std::byte> bytes)
        : m_bytes(bytes)
        , m_budget(bytes.size())
        , m_objectLimit(
              std::min(kPropertyListMaximumObjects, kFreeObjects + kObjectsPerByte * bytes.size()))
    {
    }

    Result<Value> run()
    {
        const std::uint64_t root = TDW_TRY(readTrailer());
        const Object* object = TDW_TRY(this->object(root, 0));
        return *object->value;
    }

private:
    /// What has become of an object: nothing yet, being read, or its value.
    struct Object {
        std::optional<Value> value;
        /// How many objects it comes to, shared ones counted at each use, long ones as several.
        std::uint64_t count = 1;
        std::uint16_t height = 0;
        bool isOpen = false;
    };

    /// Where an object's contents begin, and the number in its marker: of units, mostly.
    struct Contents {
        Kind kind;
        std::size_t offset;
        std::uint64_t count;
    };

    /// A big-endian number; the caller has checked that the bytes are there.
    std::uint64_t number(std::size_t offset, std::size_t size) const
    {
        std::uint64_t result = 0;
        for (const std::byte byte : m_bytes.subspan(offset, size))
            result = (result << 8) | std::to_integer<std::uint64_t>(byte);
        return result;
    }

    /// Reads the sizes and places of everything else; gives the root's number.
    Result<std::uint64_t> readTrailer()
    {
        if (m_bytes.size() < kHeaderBytes + kTrailerBytes)
            return corruptPropertyList("it is cut short");
        const std::size_t trailer = m_bytes.size() - kTrailerBytes;
        m_offsetSize = number(trailer + 6, 1);
        m_referenceSize = number(trailer + 7, 1);
        const std::uint64_t objects = number(trailer + 8, 8);
        m_offsetTable = number(trailer + 24, 8);
        if (m_offsetSize < 1 || m_offsetSize > 8 || m_referenceSize < 1 || m_referenceSize > 8)
            return corruptPropertyList("its trailer is wrong");
        if (m_offsetTable < kHeaderBytes || m_offsetTable > trailer
            || objects > (trailer - m_offsetTable) / m_offsetSize)
            return corruptPropertyList("its trailer points outside it");
        TDW_TRY(m_budget.spend(objects, sizeof(Object)));
        m_objects.resize(objects);
        return number(trailer + 16, 8);
    }

    Result<const Object*> object(std::uint64_t index, std::size_t depth)
    {
        if (index >= m_objects.size())
            return corruptPropertyList("a reference points at nothing");
        Object& object = m_objects[index];
        if (object.isOpen)
            return corruptPropertyList("it refers to itself");
        if (depth + object.height > kPropertyListMaximumDepth)
            return corruptPropertyList("it is nested too deeply");
        if (!object.value) {
            object.isOpen = true;
            const auto offset = number(m_offsetTable + index * m_offsetSize, m_offsetSize);
            const Contents contents = TDW_TRY(this->contents(offset));
            object.value = TDW_TRY(value(contents, object, depth));
            object.isOpen = false;
        }
        return &object;
    }

    Result<Contents> contents(std::uint64_t offset) const
    {
        if (offset < kHeaderBytes || offset >= m_offsetTable)
            return corruptPropertyList("an object lies outside it");
        const auto marker = number(offset, 1);
        Contents result { static_cast<Kind>(marker >> 4), offset + 1, marker & 0xF };
        const bool hasUnits = unitBytes(result.kind) != 0;
        if (hasUnits && result.count == 0xF) {
            if (result.offset >= m_offsetTable)
                return corruptPropertyList("an object is cut short");
            const auto sizeMarker = number(result.offset, 1);
            const std::size_t size = std::size_t { 1 } << (sizeMarker & 0x3);
            if (sizeMarker >> 4 != 1 || size > m_offsetTable - result.offset - 1)
                return corruptPropertyList("an object has no size");
            result.count = number(result.offset + 1, size);
            result.offset += 1 + size;
        }
        if (hasUnits && result.count > (m_offsetTable - result.offset) / unitBytes(result.kind))
            return corruptPropertyList("an object is larger than the document");
        return result;
    }

    /// How many bytes each unit of such an object takes; 0 for objects of a fixed size.
    std::size_t unitBytes(Kind kind) const
    {
        switch (kind) {
        case Kind::Data:
        case Kind::Ascii:
            return 1;
        case Kind::Utf16:
            return 2;
        case Kind::Array:
        case Kind::Set:
            return m_referenceSize;
        case Kind::Dictionary:
            return 2 * m_referenceSize;
        default:
            return 0;
        }
    }

    Result<Value> value(const Contents& contents, Object& object, std::size_t depth)
    {
        switch (contents.kind) {
        case Kind::Constant:
            if (contents.count == 0x8 || contents.count == 0x9)
                return Value(contents.count == 0x9);
            break;
        case Kind::Integer:
            return integer(contents);
        case Kind::Real:
            return Value(TDW_TRY(real(contents)));
        case Kind::Date:
            return date(contents);
        case Kind::Data:
            object.count += contents.count / kUnitsPerObject;
            TDW_TRY(m_budget.spend(DecodingBudget::kObjectBytes + contents.count));
            return data(contents);
        case Kind::Ascii:
        case Kind::Utf16:
            object.count += contents.count / kUnitsPerObject;
            return text(contents);
        case Kind::Uid:
            // XML has no element for archive references; this is how they are written there.
            return Value(Dictionary {
                { "CF$UID", TDW_TRY(fixedNumber(contents, std::size_t { contents.count } + 1)) } });
        case Kind::Array:
        case Kind::Set:
            return array(contents, object, depth);
        case Kind::Dictionary:
            return dictionary(contents, object, depth);
        }
        return corruptPropertyList("it holds an object of no known type");
    }

    Result<std::uint64_t> fixedNumber(const Contents& contents, std::size_t size) const
    {
        if (size > 8 || size > m_offsetTable - contents.offset)
            return corruptPropertyList("an object is cut short");
        return number(contents.offset, size);
    }

    Result<Value> integer(const Contents& contents) const
    {
        const std::size_t size = std::size_t { 1 } << contents.count;
        if (size <= 4)
            return Value(Integer(TDW_TRY(fixedNumber(contents, size))));
        if (size == 8)
            return Value(Integer(static_cast<std::int64_t>(TDW_TRY(fixedNumber(contents, 8)))));
        if (size != 16 || size > m_offsetTable - contents.offset)
            return corruptPropertyList("an integer has no known size");
        // Sixteen bytes hold the unsigned numbers that eight signed ones cannot.
        const std::uint64_t high = number(contents.offset, 8);
        const std::uint64_t low = number(contents.offset + 8, 8);
        if (high == UINT64_MAX && low > INT64_MAX)
            return Value(Integer(static_cast<std::int64_t>(low)));
        if (high != 0)
            return corruptPropertyList("an integer is out of range");
        return Value(Integer(low));
    }

    Result<double> real(const Contents& contents) const
    {
        if (contents.count == 2)
            return std::bit_cast<float>(
                static_cast<std::uint32_t>(TDW_TRY(fixedNumber(contents, 4))));
        if (contents.count == 3)
            return std::bit_cast<double>(TDW_TRY(fixedNumber(contents, 8)));
        return corruptPropertyList("a real number has no known size");
    }

    Result<Value> date(const Contents& contents) const
    {
        using namespace std::chrono;
        const double sinceEpoch = TDW_TRY(real(contents));
        const double whole = std::floor(sinceEpoch);
        // A bound that every date in range keeps, so that the conversion below is defined.
        if (!(std::abs(whole) < 1e12))
            return corruptPropertyList("a date is out of range");
        const Date date = kPropertyListEpoch + seconds(static_cast<std::int64_t>(whole))
            + microseconds(std::llround((sinceEpoch - whole) * 1e6));
        if (date < kFirstPropertyListDate || date > kLastPropertyListDate)
            return corruptPropertyList("a date is out of range");
        return Value(date);
    }

    Value data(const Contents& contents) const
    {
        const auto bytes = m_bytes.subspan(contents.offset, contents.count);
        return Data(bytes.begin(), bytes.end());
    }

    Result<Value> text(const Contents& contents)
    {
        // In UTF-8 two bytes can become three.
        TDW_TRY(m_budget.spend(DecodingBudget::kObjectBytes + contents.count * 3));
        std::string text;
        if (contents.kind == Kind::Ascii) {
            const auto bytes = m_bytes.subspan(contents.offset, contents.count);
            text = withInvalidUtf8Replaced(
                { reinterpret_cast<const char*>(bytes.data()), bytes.size() });
        } else {
            text = textOfUtf16(contents);
        }
        if (text.find('\0') != std::string::npos)
            return corruptPropertyList("a text holds a NUL");
        return Value(std::move(text));
    }

    std::string textOfUtf16(const Contents& contents) const
    {
        std::string text;
        for (std::size_t i = 0; i < contents.count; ++i) {
            auto codePoint = static_cast<std::uint32_t>(number(contents.offset + i * 2, 2));
            if (codePoint >= 0xD800 && codePoint < 0xDC00 && i + 1 < contents.count) {
                const auto low = static_cast<std::uint32_t>(number(contents.offset + i * 2 + 2, 2));
                if (low >= 0xDC00 && low < 0xE000) {
                    codePoint = 0x10000 + ((codePoint - 0xD800) << 10) + (low - 0xDC00);
                    ++i;
                }
            }
            appendUtf8(text, codePoint);
        }
        return text;
    }

    Result<Value> array(const Contents& contents, Object& object, std::size_t depth)
    {
        TDW_TRY(m_budget.spend(DecodingBudget::kObjectBytes));
        TDW_TRY(m_budget.spend(contents.count, sizeof(Value)));
        Array array;
        array.reserve(contents.count);
        for (std::size_t i = 0; i < contents.count; ++i)
            array.push_back(TDW_TRY(child(contents, i, object, depth)));
        return Value(std::move(array));
    }

    Result<Value> dictionary(const Contents& contents, Object& object, std::size_t depth)
    {
        TDW_TRY(m_budget.spend(DecodingBudget::kObjectBytes));
        TDW_TRY(m_budget.spend(contents.count, DecodingBudget::kEntryBytes));
        Dictionary dictionary;
        dictionary.reserve(contents.count);
        for (std::size_t i = 0; i < contents.count; ++i) {
            const Value key = TDW_TRY(child(contents, i, object, depth));
            if (!key.asString())
                return corruptPropertyList("a key is no text");
            TDW_TRY(m_budget.spend(key.asString()->size()));
            dictionary.set(
                *key.asString(), TDW_TRY(child(contents, contents.count + i, object, depth)));
        }
        return Value(std::move(dictionary));
    }

    /// The value that the reference at `place` of a container names, added to what `parent` comes
    /// to.
    Result<Value> child(
        const Contents& contents, std::size_t place, Object& parent, std::size_t depth)
    {
        const auto index = number(contents.offset + place * m_referenceSize, m_referenceSize);
        const Object* child = TDW_TRY(object(index, depth + 1));
        parent.height = std::max(parent.height, static_cast<std::uint16_t>(child->height + 1));
        parent.count += child->count;
        if (parent.count > m_objectLimit)
            return corruptPropertyList("it holds too many objects");
        return *child->value;
    }

    std::span<const std::byte> m_bytes;
    DecodingBudget m_budget;
    std::size_t m_objectLimit;
    std::size_t m_offsetSize = 0;
    std::size_t m_referenceSize = 0;
    std::size_t m_offsetTable = 0;
    std::vector<Object> m_objects;
};

} // namespace

Result<Value> readBinaryPropertyList(std::span<const std::byte> bytes)
{
    return BinaryReader(bytes).run();
}

} // namespace tdw
