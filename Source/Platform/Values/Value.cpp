#include "Platform/Values/Value.h"

#include <algorithm>
#include <bit>
#include <functional>

namespace tdw {

namespace {

constexpr std::size_t kIndexFromEntries = 24;

template <typename Content>
Content contentOf(const Value* value, Content (Value::*content)() const)
{
    return value ? (value->*content)() : Content {};
}

} // namespace

Value::Value(Integer value)
    : m_content(value)
{
}

Value::Value(double value)
    : m_content(value)
{
}

Value::Value(std::string value)
    : m_content(std::make_shared<const std::string>(std::move(value)))
{
}

Value::Value(std::string_view value)
    : Value(std::string(value))
{
}

Value::Value(const char* value)
    : Value(std::string(value))
{
}

Value::Value(Data value)
    : m_content(std::make_shared<const Data>(std::move(value)))
{
}

Value::Value(Date value)
    : m_content(value)
{
}

Value::Value(Array value)
    : m_content(std::make_shared<const Array>(std::move(value)))
{
}

Value::Value(Dictionary value)
    : m_content(std::make_shared<const Dictionary>(std::move(value)))
{
}

Value::Value(Error value)
    : m_content(std::move(value))
{
}

Value::Type Value::type() const
{
    // The alternatives stand in the order of the enumerators.
    return static_cast<Type>(m_content.index());
}

std::optional<bool> Value::asBoolean() const
{
    const bool* value = std::get_if<bool>(&m_content);
    return value ? std::optional(*value) : std::nullopt;
}

const Integer* Value::asInteger() const
{
    return std::get_if<Integer>(&m_content);
}

std::optional<std::int64_t> Value::asInt64() const
{
    const Integer* value = asInteger();
    return value ? value->asInt64() : std::nullopt;
}

std::optional<std::uint64_t> Value::asUInt64() const
{
    const Integer* value = asInteger();
    return value ? value->asUInt64() : std::nullopt;
}

std::optional<double> Value::asReal() const
{
    const double* value = std::get_if<double>(&m_content);
    return value ? std::optional(*value) : std::nullopt;
}

std::optional<Date> Value::asDate() const
{
    const Date* value = std::get_if<Date>(&m_content);
    return value ? std::optional(*value) : std::nullopt;
}

const std::string* Value::asString() const
{
    const auto* value = std::get_if<Shared<std::string>>(&m_content);
    return value ? value->get() : nullptr;
}

const Data* Value::asData() const
{
    const auto* value = std::get_if<Shared<Data>>(&m_content);
    return value ? value->get() : nullptr;
}

const Array* Value::asArray() const
{
    const auto* value = std::get_if<Shared<Array>>(&m_content);
    return value ? value->get() : nullptr;
}

const Dictionary* Value::asDictionary() const
{
    const auto* value = std::get_if<Shared<Dictionary>>(&m_content);
    return value ? value->get() : nullptr;
}

const Error* Value::asError() const
{
    return std::get_if<Error>(&m_content);
}

const Value* Value::find(std::string_view key) const
{
    const Dictionary* dictionary = asDictionary();
    return dictionary ? dictionary->find(key) : nullptr;
}

const std::string* Value::stringAt(std::string_view key) const
{
    return contentOf(find(key), &Value::asString);
}

std::optional<std::int64_t> Value::intAt(std::string_view key) const
{
    return contentOf(find(key), &Value::asInt64);
}

std::optional<bool> Value::boolAt(std::string_view key) const
{
    return contentOf(find(key), &Value::asBoolean);
}

std::optional<double> Value::realAt(std::string_view key) const
{
    return contentOf(find(key), &Value::asReal);
}

const Data* Value::dataAt(std::string_view key) const
{
    return contentOf(find(key), &Value::asData);
}

const Array* Value::arrayAt(std::string_view key) const
{
    return contentOf(find(key), &Value::asArray);
}

const Dictionary* Value::dictionaryAt(std::string_view key) const
{
    return contentOf(find(key), &Value::asDictionary);
}

bool Value::operator==(const Value& other) const
{
    if (m_content.index() != other.m_content.index())
        return false;
    return std::visit(
        [&other](const auto& mine) {
            const auto& theirs
                = *std::get_if<std::remove_cvref_t<decltype(mine)>>(&other.m_content);
            if constexpr (requires { *mine; })
                return mine == theirs || *mine == *theirs;
            else
                return mine == theirs;
        },
        m_content);
}

Dictionary::Dictionary(std::initializer_list<std::pair<std::string_view, Value>> entries)
{
    m_entries.reserve(entries.size());
    for (const auto& [key, value] : entries)
        set(key, value);
}

std::size_t Dictionary::slot(std::string_view key) const
{
    const std::size_t mask = m_slots.size() - 1;
    std::size_t slot = std::hash<std::string_view> {}(key)&mask;
    while (m_slots[slot] != 0 && m_entries[m_slots[slot] - 1].key != key)
        slot = (slot + 1) & mask;
    return slot;
}

std::optional<std::size_t> Dictionary::position(std::string_view key) const
{
    if (!m_slots.empty()) {
        const std::size_t place = m_slots[slot(key)];
        return place == 0 ? std::nullopt : std::optional(place - 1);
    }
    const auto found
        = std::find_if(begin(), end(), [key](const Entry& entry) { return entry.key == key; });
    return found == end() ? std::nullopt
                          : std::optional(static_cast<std::size_t>(std::distance(begin(), found)));
}

const Value* Dictionary::find(std::string_view key) const
{
    const auto at = position(key);
    return at ? &m_entries[*at].value : nullptr;
}

const std::string* Dictionary::stringAt(std::string_view key) const
{
    return contentOf(find(key), &Value::asString);
}

std::optional<std::int64_t> Dictionary::intAt(std::string_view key) const
{
    return contentOf(find(key), &Value::asInt64);
}

std::optional<bool> Dictionary::boolAt(std::string_view key) const
{
    return contentOf(find(key), &Value::asBoolean);
}

std::optional<double> Dictionary::realAt(std::string_view key) const
{
    return contentOf(find(key), &Value::asReal);
}

const Data* Dictionary::dataAt(std::string_view key) const
{
    return contentOf(find(key), &Value::asData);
}

const Array* Dictionary::arrayAt(std::string_view key) const
{
    return contentOf(find(key), &Value::asArray);
}

const Dictionary* Dictionary::dictionaryAt(std::string_view key) const
{
    return contentOf(find(key), &Value::asDictionary);
}

void Dictionary::set(std::string_view key, Value value)
{
    if (const auto at = position(key)) {
        m_entries[*at].value = std::move(value);
        return;
    }
    m_entries.push_back({ std::string(key), std::move(value) });
    if (m_entries.size() > kIndexFromEntries && m_entries.size() * 2 > m_slots.size())
        buildIndex();
    else if (!m_slots.empty())
        m_slots[slot(key)] = static_cast<std::uint32_t>(m_entries.size());
}

bool Dictionary::remove(std::string_view key)
{
    const auto at = position(key);
    if (!at)
        return false;
    m_entries.erase(m_entries.begin() + static_cast<std::ptrdiff_t>(*at));
    if (!m_slots.empty())
        buildIndex();
    return true;
}

void Dictionary::buildIndex()
{
    m_slots.assign(std::bit_ceil(m_entries.size() * 4), 0);
    for (std::size_t i = 0; i < m_entries.size(); ++i)
        m_slots[slot(m_entries[i].key)] = static_cast<std::uint32_t>(i + 1);
}

bool Dictionary::operator==(const Dictionary& other) const
{
    return size() == other.size() && std::all_of(begin(), end(), [&other](const Entry& entry) {
        const Value* theirs = other.find(entry.key);
        return theirs && *theirs == entry.value;
    });
}

} // namespace tdw
