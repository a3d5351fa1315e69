#pragma once

#include "Model/Scenario.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tdw::simulator {

/// The values of one device, by domain and key, with what a device allows whom.
class LockdownValues {
public:
    using Domains = std::map<std::string, Dictionary, std::less<>>;

    /// @param publicKeys the global keys that every host may read; none: the usual ones
    explicit LockdownValues(
        Domains domains, std::optional<std::vector<std::string>> publicKeys = std::nullopt);

    /// A whole domain, or null.
    const Dictionary* domain(std::string_view domain) const;

    /// One value, or null.
    const Value* value(std::string_view domain, std::string_view key) const;

    void set(std::string_view domain, std::string_view key, Value value);

    /// Says whether there was such a value.
    bool remove(std::string_view domain, std::string_view key);

    /// What a host without a session may read of the global domain.
    Dictionary publicValues() const;
    bool isPublic(std::string_view domain, std::string_view key) const;

    /// Whether a trusted host may write this value.
    static bool isWritable(std::string_view domain, std::string_view key);

private:
    Domains m_domains;
    std::vector<std::string> m_publicKeys;
};

} // namespace tdw::simulator
