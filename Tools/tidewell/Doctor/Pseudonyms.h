#pragma once

#include "Platform/Values/Value.h"

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace tdw::cli {

/// Puts false identifiers in the place of true ones: the same for the same one, as long as this
/// object lives, and of the same form, so that what is told of a device can still be told apart.
///
/// By their form are known: UDIDs, UUIDs, MAC and IP addresses, mail addresses and telephone
/// numbers. Everything else has to be added first.
class Pseudonyms {
public:
    /// A name of a user or a device, wherever it stands.
    void addName(std::string_view name);

    /// A word that is only replaced where it stands alone, such as the name of the user.
    void addWord(std::string_view word, std::string_view kind);

    /// Every text of a device's answer but those that say what kind of device it is.
    void addAnswer(const Value& answer);

    /// The user, the host and the home directory of this process.
    void addSurroundings();

    std::string replaced(std::string_view text);

    /// The same for every text in a value.
    Value replacedIn(const Value& value);

private:
    std::string falseOne(std::string_view kind, std::string_view original);
    std::string replacedWord(std::string_view word);
    std::string withoutNames(std::string_view text) const;

    /// By the true ones; the longest names first where they are replaced.
    std::map<std::string, std::string, std::less<>> m_names;
    std::map<std::string, std::string, std::less<>> m_words;
    std::map<std::string, std::string, std::less<>> m_known;
    std::map<std::string, std::size_t, std::less<>> m_counts;
};

} // namespace tdw::cli
