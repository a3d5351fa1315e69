#include "Model/PairRecordStore.h"

#include "Model/Json.h"
#include "Platform/System/FileHandle.h"
#include "Platform/Values/PropertyList.h"

#include <fcntl.h>

namespace tdw::simulator {

std::filesystem::path PairRecordStore::pathOf(std::string_view identifier) const
{
    return m_directory / (std::string(identifier) + ".plist");
}

std::optional<Data> PairRecordStore::find(std::string_view identifier) const
{
    const auto text = readTextFile(pathOf(identifier));
    if (!text)
        return std::nullopt;
    const auto bytes = std::as_bytes(std::span(*text));
    return Data(bytes.begin(), bytes.end());
}

bool PairRecordStore::save(std::string_view identifier, const Dictionary& record)
{
    return write(pathOf(identifier), record);
}

bool PairRecordStore::remove(std::string_view identifier)
{
    std::error_code error;
    return std::filesystem::remove(pathOf(identifier), error);
}

bool PairRecordStore::saveSystemBuid(const std::string& buid)
{
    return write(m_directory / "SystemConfiguration.plist", { { "SystemBUID", buid } });
}

bool PairRecordStore::write(const std::filesystem::path& path, const Dictionary& content)
{
    std::error_code error;
    std::filesystem::create_directories(m_directory, error);
    // The daemon removes what was there before it writes, too.
    std::filesystem::remove(path, error);
    const auto bytes = encodeXmlPropertyList(content);
    FileHandle file(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
    return bytes && file.isOpen() && file.write(*bytes).hasValue();
}

} // namespace tdw::simulator
