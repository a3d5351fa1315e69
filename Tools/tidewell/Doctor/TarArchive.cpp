#include "Doctor/TarArchive.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <span>

namespace tdw::cli {

namespace {

constexpr std::size_t kBlock = 512;

/// The header of a file as POSIX.1-1988 has it ("ustar").
struct Header {
    char name[100];
    char mode[8];
    char user[8];
    char group[8];
    char size[12];
    char time[12];
    char checksum[8];
    char type;
    char link[100];
    char magic[6];
    char version[2];
    char rest[247];
};
static_assert(sizeof(Header) == kBlock);

void append(Data& archive, std::span<const std::byte> bytes)
{
    archive.insert(archive.end(), bytes.begin(), bytes.end());
    archive.resize((archive.size() + kBlock - 1) / kBlock * kBlock);
}

Header headerOf(const ArchivedFile& file, std::chrono::system_clock::time_point time)
{
    Header header {};
    file.name.copy(header.name, sizeof header.name);
    const auto seconds = std::chrono::system_clock::to_time_t(time);
    (void)std::snprintf(header.mode, sizeof header.mode, "%07o", 0644U);
    (void)std::snprintf(header.user, sizeof header.user, "%07o", 0U);
    (void)std::snprintf(header.group, sizeof header.group, "%07o", 0U);
    (void)std::snprintf(header.size, sizeof header.size, "%011llo",
        static_cast<unsigned long long>(file.text.size()));
    (void)std::snprintf(header.time, sizeof header.time, "%011llo",
        static_cast<unsigned long long>(std::max<std::time_t>(seconds, 0)) & 077777777777ULL);
    header.type = '0';
    std::memcpy(header.magic, "ustar", sizeof header.magic);
    std::memcpy(header.version, "00", sizeof header.version);
    // Summed up with blanks in its own place.
    std::memset(header.checksum, ' ', sizeof header.checksum);
    unsigned sum = 0;
    for (const std::byte byte : std::as_bytes(std::span(&header, 1)))
        sum += std::to_integer<unsigned>(byte);
    (void)std::snprintf(header.checksum, sizeof header.checksum, "%06o", sum);
    return header;
}

} // namespace

Data tarArchive(const std::vector<ArchivedFile>& files, std::chrono::system_clock::time_point time)
{
    Data archive;
    for (const ArchivedFile& file : files) {
        const Header header = headerOf(file, time);
        append(archive, std::as_bytes(std::span(&header, 1)));
        append(archive, std::as_bytes(std::span(file.text)));
    }
    archive.resize(archive.size() + 2 * kBlock);
    return archive;
}

} // namespace tdw::cli
