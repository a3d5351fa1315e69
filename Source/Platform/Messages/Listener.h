#pragma once

#include "Platform/Messages/Endpoint.h"
#include "Platform/Queues/Queue.h"
#include "Platform/System/FileHandle.h"
#include "Platform/System/Log.h"

#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <memory>

namespace tdw {

/// Accepts connections of this user's processes on a local socket, as long as it lives.
class Listener {
public:
    /// Runs on the listener's queue for each connection.
    using Handler = std::function<void(FileHandle)>;

    /// Listens at a path, whose name goes with the listener.
    /// @param log told of connections that are refused
    /// Errors: `kPosixErrorDomain`, naming the path.
    static Result<Listener> create(
        const std::filesystem::path& path, const Queue& queue, const Log& log, Handler handler);

    /// Listens at a random name in `directory`, which no other user may enter.
    static Result<Listener> createPrivate(const std::filesystem::path& directory,
        const Queue& queue, const Log& log, Handler handler);

    /// Listens on a socket that another program has set up and named.
    static Result<Listener> adopt(
        FileHandle socket, const Queue& queue, const Log& log, Handler handler);

    Listener(Listener&& other) noexcept;
    Listener& operator=(Listener&& other) noexcept;
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;
    ~Listener();

    /// Where others find it; of an adopted socket, nowhere.
    Endpoint endpoint() const { return Endpoint(m_path.string()); }

    /// Whether the name still leads here: not where it, or its directory, was removed or replaced.
    bool canBeFound() const;

    /// Accepts what waits already, and listens no more. To be called on the queue.
    void stop();

private:
    class Core;
    Listener(std::shared_ptr<Core> core, std::filesystem::path path);
    void removeName();

    std::shared_ptr<Core> m_core;
    std::filesystem::path m_path;
    ino_t m_inode = 0;
};

} // namespace tdw
