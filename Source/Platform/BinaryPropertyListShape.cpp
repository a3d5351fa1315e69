#include "Platform/PropertyList.h"
#include "Platform/PropertyListShape.h"

#include <algorithm>
#include <cstdint>
#include <vector>

namespace tdw {

namespace {

constexpr std::size_t kBinaryHeaderBytes = 8;
constexpr std::size_t kBinaryTrailerBytes = 32;

/// The upper half of an object's marker byte.
constexpr std::uint64_t kDataKind = 0x4;
constexpr std::uint64_t kAsciiKind = 0x5;
constexpr std::uint64_t kUtf16Kind = 0x6;
constexpr std::uint64_t kArrayKind = 0xA;
constexpr std::uint64_t kSetKind = 0xC;
constexpr std::uint64_t kDictionaryKind = 0xD;

/// A document may share objects, but what it comes to must stand in some proportion to its bytes:
/// otherwise two kilobytes of references are seconds of work and hundreds of megabytes.
constexpr std::size_t kFreeObjects = 10'000;
constexpr std::size_t kObjectsPerByte = 16;

/// How much text or data counts as one more object.
constexpr std::size_t kUnitsPerObject = 64;

/// Reads the tables of a binary property list and measures each object once.
///
///     | "bplist00" | objects … | offset table | trailer (32 bytes) |
class BinaryMeasure {
public:
    explicit BinaryMeasure(std::span<const std::byte> bytes)
        : m_bytes(bytes)
        , m_limit(
              std::min(kPropertyListMaximumObjects, kFreeObjects + kObjectsPerByte * bytes.size()))
    {
    }

    Result<void> run()
    {
        TDW_TRY(readTrailer());
        m_measured.resize(m_objectCount);
        m_stack.push_back(m_root);
        while (!m_stack.empty())
            TDW_TRY(visit(m_stack.back()));
        return {};
    }

private:
    /// What an object comes to with everything below it, shared children counted at each use.
    struct Measured {
        enum class State : std::uint8_t { Unseen, Entered, Done };
        State state = State::Unseen;
        std::uint32_t depth = 0;
        std::uint64_t objects = 0;
    };

    /// Where an object's contents are, and how many of its own kind of unit they have.
    struct Contents {
        std::uint64_t kind = 0;
        std::size_t offset = 0;
        std::size_t count = 0;
    };

    struct Children {
        std::size_t offset = 0;
        std::size_t count = 0;
    };

    /// A big-endian number; the caller has checked that the bytes are there.
    std::uint64_t number(std::size_t offset, std::size_t size) const
    {
        std::uint64_t result = 0;
        for (const std::byte byte : m_bytes.subspan(offset, size))
            result = (result << 8) | std::to_integer<std::uint64_t>(byte);
        return result;
    }

    Result<void> readTrailer()
    {
        if (m_bytes.size() < kBinaryHeaderBytes + kBinaryTrailerBytes)
            return corruptPropertyList("it is cut short");
        const std::size_t trailer = m_bytes.size() - kBinaryTrailerBytes;
        m_offsetSize = number(trailer + 6, 1);
        m_referenceSize = number(trailer + 7, 1);
        m_objectCount = number(trailer + 8, 8);
        m_root = number(trailer + 16, 8);
        m_offsetTable = number(trailer + 24, 8);
        if (m_offsetSize < 1 || m_offsetSize > 8 || m_referenceSize < 1 || m_referenceSize > 8)
            return corruptPropertyList("its trailer is wrong");
        if (m_offsetTable < kBinaryHeaderBytes || m_offsetTable > trailer
            || m_objectCount > (trailer - m_offsetTable) / m_offsetSize || m_root >= m_objectCount)
            return corruptPropertyList("its trailer points outside it");
        return {};
    }

    /// The contents of data, texts and containers; none for anything of a fixed size.
    Result<Contents> contents(std::uint64_t object) const
    {
        const auto offset = number(m_offsetTable + object * m_offsetSize, m_offsetSize);
        if (offset < kBinaryHeaderBytes || offset >= m_offsetTable)
            return corruptPropertyList("an object lies outside it");
        const auto marker = number(offset, 1);
        Contents result { marker >> 4, offset + 1, marker & 0xF };
        if (unitSize(result.kind) == 0)
            return Contents { result.kind, result.offset, 0 };
        if (result.count == 0xF) {
            if (result.offset >= m_offsetTable)
                return corruptPropertyList("an object is cut short");
            const auto sizeMarker = number(result.offset, 1);
            const std::size_t size = std::size_t { 1 } << (sizeMarker & 0x3);
            if (sizeMarker >> 4 != 1 || size > m_offsetTable - result.offset - 1)
                return corruptPropertyList("an object has no size");
            result.count = number(result.offset + 1, size);
            result.offset += 1 + size;
        }
        if (result.count > (m_offsetTable - result.offset) / unitSize(result.kind))
            return corruptPropertyList("an object is larger than the document");
        return result;
    }

    /// How many bytes each unit of such an object takes; 0 for objects of a fixed size.
    std::size_t unitSize(std::uint64_t kind) const
    {
        switch (kind) {
        case kDataKind:
        case kAsciiKind:
            return 1;
        case kUtf16Kind:
            return 2;
        case kArrayKind:
        case kSetKind:
            return m_referenceSize;
        case kDictionaryKind:
            return 2 * m_referenceSize;
        default:
            return 0;
        }
    }

    static Children childrenOf(const Contents& contents)
    {
        switch (contents.kind) {
        case kArrayKind:
        case kSetKind:
            return { contents.offset, contents.count };
        case kDictionaryKind:
            return { contents.offset, contents.count * 2 };
        default:
            return {};
        }
    }

    /// The decoder hands texts out as C strings and ends the process over a NUL inside one.
    Result<void> checkText(const Contents& contents) const
    {
        const std::size_t unit = contents.kind == kUtf16Kind ? 2 : 1;
        if (contents.kind != kAsciiKind && contents.kind != kUtf16Kind)
            return {};
        for (std::size_t i = 0; i < contents.count; ++i) {
            if (number(contents.offset + i * unit, unit) == 0)
                return corruptPropertyList("a text holds a NUL");
        }
        return {};
    }

    /// Enters an object, or, once all its children are measured, sums them up and leaves it.
    Result<void> visit(std::uint64_t object)
    {
        Measured& measured = m_measured[object];
        const Contents contents = TDW_TRY(this->contents(object));
        const Children below = childrenOf(contents);
        if (measured.state == Measured::State::Unseen) {
            measured.state = Measured::State::Entered;
            TDW_TRY(spend(weightOf(contents)));
            TDW_TRY(checkText(contents));
            const std::size_t before = m_stack.size();
            for (std::size_t i = 0; i < below.count; ++i)
                TDW_TRY(push(number(below.offset + i * m_referenceSize, m_referenceSize)));
            if (m_stack.size() > before)
                return {};
        }
        if (measured.state == Measured::State::Entered)
            TDW_TRY(sumUp(measured, contents, below));
        m_stack.pop_back();
        return {};
    }

    Result<void> push(std::uint64_t child)
    {
        if (child >= m_objectCount)
            return corruptPropertyList("a reference points at nothing");
        TDW_TRY(spend(1));
        if (m_measured[child].state == Measured::State::Entered)
            return corruptPropertyList("it refers to itself");
        if (m_measured[child].state == Measured::State::Unseen && m_stack.back() != child)
            m_stack.push_back(child);
        return {};
    }

    /// What an object costs to build, in objects: a long text or data counts as several.
    static std::uint64_t weightOf(const Contents& contents)
    {
        return 1 + contents.count / kUnitsPerObject;
    }

    /// Objects may overlap, so that walking them all can cost far more than the bytes.
    Result<void> spend(std::uint64_t amount)
    {
        m_spent += amount;
        if (m_spent > m_limit)
            return corruptPropertyList("it holds too many objects");
        return {};
    }

    Result<void> sumUp(Measured& measured, const Contents& contents, const Children& below)
    {
        measured.objects = weightOf(contents);
        for (std::size_t i = 0; i < below.count; ++i) {
            const Measured& child
                = m_measured[number(below.offset + i * m_referenceSize, m_referenceSize)];
            if (child.state != Measured::State::Done)
                return corruptPropertyList("it refers to itself");
            measured.depth = std::max(measured.depth, child.depth + 1);
            measured.objects += child.objects;
        }
        if (measured.objects > m_limit)
            return corruptPropertyList("it holds too many objects");
        if (measured.depth > kPropertyListMaximumDepth)
            return corruptPropertyList("it is nested too deeply");
        measured.state = Measured::State::Done;
        return {};
    }

    std::span<const std::byte> m_bytes;
    std::size_t m_limit;
    std::size_t m_offsetSize = 0;
    std::size_t m_referenceSize = 0;
    std::uint64_t m_objectCount = 0;
    std::uint64_t m_root = 0;
    std::uint64_t m_offsetTable = 0;
    std::uint64_t m_spent = 0;
    std::vector<Measured> m_measured;
    std::vector<std::uint64_t> m_stack;
};

} // namespace

Result<void> checkBinaryPropertyListShape(std::span<const std::byte> bytes)
{
    return BinaryMeasure(bytes).run();
}

} // namespace tdw
