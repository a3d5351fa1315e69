#pragma once

#include "Platform/Values/Value.h"

#include <filesystem>
#include <optional>
#include <string_view>

namespace tdw::simulator {

/// The multiplexer's pair records: one XML property list for each device in a directory, as the
/// daemon keeps them in /var/lib/lockdown. The simulator's own multiplexer and the real daemon use
/// the same directory.
class PairRecordStore {
public:
    explicit PairRecordStore(std::filesystem::path directory)
        : m_directory(std::move(directory))
    {
    }

    /// The record's bytes, or none.
    std::optional<Data> find(std::string_view identifier) const;

    /// Says whether the record could be written.
    bool save(std::string_view identifier, const Dictionary& record);

    /// Says whether there was such a record.
    bool remove(std::string_view identifier);

    /// Writes the identifier of this host where the daemon looks for it.
    bool saveSystemBuid(const std::string& buid);

private:
    std::filesystem::path pathOf(std::string_view identifier) const;
    bool write(const std::filesystem::path& path, const Dictionary& content);

    std::filesystem::path m_directory;
};

} // namespace tdw::simulator
