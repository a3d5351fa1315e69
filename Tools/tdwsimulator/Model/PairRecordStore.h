#pragma once

#include "Platform/Value.h"

#include <map>
#include <string>
#include <string_view>

namespace tdw::simulator {

/// The multiplexer's pair records: bytes under a device's identifier, kept as long as the
/// simulation runs.
class PairRecordStore {
public:
    /// The record, or null.
    const Data* find(std::string_view identifier) const
    {
        const auto found = m_records.find(identifier);
        return found == m_records.end() ? nullptr : &found->second;
    }

    void save(std::string_view identifier, Data record)
    {
        m_records.insert_or_assign(std::string(identifier), std::move(record));
    }

    /// Says whether there was such a record.
    bool remove(std::string_view identifier)
    {
        const auto found = m_records.find(identifier);
        if (found == m_records.end())
            return false;
        m_records.erase(found);
        return true;
    }

private:
    std::map<std::string, Data, std::less<>> m_records;
};

} // namespace tdw::simulator
