#include "Platform/Value.h"

#include <algorithm>

namespace tdw {

namespace {

constexpr std::size_t kIndexFromEntries = 24;

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

std::optional<std::size_t> Dictionary::position(std::string_view key) const
{
    if (!m_index.empty()) {
        const auto found = m_index.find(key);
        return found == m_index.end() ? std::nullopt : std::optional(found->second);
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

void Dictionary::set(std::string_view key, Value value)
{
    if (const auto at = position(key)) {
        m_entries[*at].value = std::move(value);
        return;
    }
    m_entries.push_back({ std::string(key), std::move(value) });
    if (!m_index.empty())
        m_index.emplace(key, m_entries.size() - 1);
    else if (m_entries.size() > kIndexFromEntries)
        buildIndex();
}

bool Dictionary::remove(std::string_view key)
{
    const auto at = position(key);
    if (!at)
        return false;
    m_entries.erase(m_entries.begin() + static_cast<std::ptrdiff_t>(*at));
    if (!m_index.empty())
        buildIndex();
    return true;
}

void Dictionary::buildIndex()
{
    m_index.clear();
    for (std::size_t i = 0; i < m_entries.size(); ++i)
        m_index.emplace(m_entries[i].key, i);
}

bool Dictionary::operator==(const Dictionary& other) const
{
    return size() == other.size() && std::all_of(begin(), end(), [&other](const Entry& entry) {
        const Value* theirs = other.find(entry.key);
        return theirs && *theirs == entry.value;
    });
}

} // namespace tdw
