#include "ResourceMonitor.h"

#include "Platform/System/DescriptorLimit.h"

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <iterator>
#include <memory>

namespace tdw::service {

namespace {

std::size_t openDescriptors()
{
    std::error_code error;
    std::size_t count = 0;
    for (std::filesystem::directory_iterator entry("/proc/self/fd", error), end;
         !error && entry != end; entry.increment(error))
        ++count;
    return count;
}

} // namespace

std::size_t residentBytes()
{
    struct Close {
        void operator()(std::FILE* file) const { (void)std::fclose(file); }
    };
    const std::unique_ptr<std::FILE, Close> file(std::fopen("/proc/self/statm", "re"));
    std::size_t total = 0;
    std::size_t resident = 0;
    // NOLINTNEXTLINE(cert-err34-c): what cannot be read counts as nothing
    if (!file || std::fscanf(file.get(), "%zu %zu", &total, &resident) != 2)
        return 0;
    return resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
}

ResourceMonitor::ResourceMonitor()
{
    // Three quarters, so that there is room left to be told of it.
    m_maximumDescriptors = descriptorLimit() / 4 * 3;
}

std::optional<std::int64_t> ResourceMonitor::uptimeAtLimit()
{
    const auto now = Clock::now();
    if (m_hasReported || (!m_isFull && now - m_lastLook < kInterval))
        return std::nullopt;
    m_lastLook = now;
    m_hasReported = m_isFull || openDescriptors() > m_maximumDescriptors
        || residentBytes() > kMaximumResidentBytes;
    if (!m_hasReported)
        return std::nullopt;
    return uptime().count();
}

} // namespace tdw::service
