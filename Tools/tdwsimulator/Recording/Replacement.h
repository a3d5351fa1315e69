#pragma once

#include "Platform/Values/Value.h"
#include "Recording/AllowedValues.h"
#include "Recording/TextShape.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tdw::simulator {

/// Puts false content in the place of a device's own.
///
///     Replacement replacement;
///     replacement.learnIdentifier(udid);
///     replacement.learn(values);
///     const Value shown = replacement.value(original, Kept::Nothing);
///
/// What is false is random, and nothing but this object's memory leads back. Within one object the
/// same content becomes the same false content. Identifiers (UDIDs, addresses, serial and other
/// numbers) are also found inside longer texts, in other spellings, in data, and in the integer
/// that a UDID ends with; so all of them are learnt before anything is replaced.
///
/// Types and lengths stay, digits become digits, and letters letters of the same case, hexadecimal
/// ones where the whole is hexadecimal. Spaces and the marks that structure addresses, numbers and
/// names of files stay; other marks do not. A true boolean becomes a false one.
class Replacement {
public:
    /// Takes its randomness from the system.
    Replacement();
    explicit Replacement(Random random)
        : m_random(std::move(random))
    {
    }

    /// Learns a text that is an identifier as a whole.
    void learnIdentifier(const std::string& text);

    /// Learns the identifiers in a value that will be replaced.
    void learn(const Value& value);

    std::string text(const std::string& original);
    Value value(const Value& original, Kept kept);

    /// The name of a key that the device chose: that of a system's own variable stays, one that
    /// holds an identifier or looks like anything else does not.
    std::string key(const std::string& original);

    /// A learnt identifier of at least that length that a text holds, if any. In a long text a
    /// short one is there by chance sooner or later.
    std::optional<std::string> identifierIn(
        std::string_view text, std::size_t minimumLength = 0) const;

    std::size_t keptCount() const { return m_keptCount; }
    std::size_t replacedCount() const { return m_replacedCount; }

private:
    struct Form {
        std::string original;
        std::string replacement;
    };

    bool mayStay(const Value& value) const;
    Value replaced(const Value& original, Kept names);
    Integer integer(Integer original);
    double real(double original);
    Data data(const Data& original);
    void addForms(const std::string& original, const std::string& replacement);
    void addForm(std::string original, std::string replacement);
    const Form* formAt(std::string_view text, std::size_t position) const;
    std::string falseIdentifier(const std::string& original);

    Random m_random;
    std::map<std::string, std::string> m_texts;
    std::map<Data, Data> m_data;
    std::map<std::pair<bool, std::uint64_t>, std::uint64_t> m_integers;
    std::map<std::string, std::string> m_identifiers;
    /// By their first bytes.
    std::map<unsigned char, std::vector<Form>> m_forms;
    std::size_t m_keptCount = 0;
    std::size_t m_replacedCount = 0;
};

} // namespace tdw::simulator
