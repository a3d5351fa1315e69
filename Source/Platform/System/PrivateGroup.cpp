#include "Platform/System/PrivateGroup.h"

#include <grp.h>
#include <pwd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <mutex>
#include <optional>
#include <vector>

namespace tdw {

namespace {

/// Calls a function of the user database with a buffer that is large enough for its answer.
template <typename Function>
int withBuffer(Function ask)
{
    constexpr std::size_t kSmallest = 1024;
    constexpr std::size_t kLargest = std::size_t { 1 } << 22;
    int error = ERANGE;
    for (std::size_t size = kSmallest; error == ERANGE && size <= kLargest; size *= 4) {
        std::vector<char> buffer(size);
        error = ask(buffer.data(), buffer.size());
    }
    return error;
}

std::optional<uid_t> userNamed(const char* name)
{
    std::optional<uid_t> user;
    (void)withBuffer([&](char* buffer, std::size_t size) {
        passwd entry {};
        passwd* found = nullptr;
        const int error = ::getpwnam_r(name, &entry, buffer, size, &found);
        if (found)
            user = found->pw_uid;
        return error;
    });
    return user;
}

/// The users that the group's own entry names; a name without an account counts as a user, because
/// it may get one.
std::optional<std::vector<std::optional<uid_t>>> namedMembers(gid_t group)
{
    std::optional<std::vector<std::optional<uid_t>>> members;
    (void)withBuffer([&](char* buffer, std::size_t size) {
        ::group entry {};
        ::group* found = nullptr;
        const int error = ::getgrgid_r(group, &entry, buffer, size, &found);
        if (found) {
            members.emplace();
            for (char** name = found->gr_mem; *name; ++name)
                members->push_back(userNamed(*name));
        }
        return error;
    });
    return members;
}

/// The users whose own group it is; none where the database cannot be read to its end.
std::optional<std::vector<uid_t>> primaryMembers(gid_t group)
{
    // The position in the database belongs to the whole process.
    static std::mutex mutex;
    const std::lock_guard lock(mutex);
    std::vector<uid_t> members;
    int error = 0;
    // NOLINTBEGIN(concurrency-mt-unsafe): the lock keeps our threads apart
    ::setpwent();
    while (error == 0) {
        error = withBuffer([&](char* buffer, std::size_t size) {
            passwd entry {};
            passwd* found = nullptr;
            const int result = ::getpwent_r(&entry, buffer, size, &found);
            if (found && found->pw_gid == group)
                members.push_back(found->pw_uid);
            return result;
        });
    }
    ::endpwent();
    // NOLINTEND(concurrency-mt-unsafe)
    if (error != ENOENT)
        return std::nullopt;
    return members;
}

} // namespace

bool isGroupOfOneUser(gid_t group, uid_t owner)
{
    const auto named = namedMembers(group);
    const auto primary = primaryMembers(group);
    if (!named || !primary || (named->empty() && primary->empty()))
        return false;
    const auto isOwner = [owner](std::optional<uid_t> user) {
        return user == owner;
    };
    return std::ranges::all_of(*named, isOwner) && std::ranges::all_of(*primary, isOwner);
}

} // namespace tdw
