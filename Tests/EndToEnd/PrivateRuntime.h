#pragma once

#include "Client/ServiceMessages.h"
#include "Platform/Messages/ServiceStart.h"
#include "Platform/System/FileHandle.h"
#include "Support/TemporaryDirectory.h"
#include "Support/Testing.h"

#include <sys/syscall.h>

/// A runtime directory for as long as it lives, with the environment of this process pointing at
/// it. A service that was started there ends with it.
class PrivateRuntime {
public:
    PrivateRuntime() { setenv("XDG_RUNTIME_DIR", path().c_str(), 1); }
    PrivateRuntime(const PrivateRuntime&) = delete;
    PrivateRuntime& operator=(const PrivateRuntime&) = delete;

    ~PrivateRuntime()
    {
        const pid_t service = servicePid();
        const tdw::FileHandle process(service > 0 && service != getpid()
                ? static_cast<int>(syscall(SYS_pidfd_open, service, 0))
                : -1);
        // The service goes when its socket does.
        std::filesystem::remove_all(path());
        unsetenv("XDG_RUNTIME_DIR");
        pollfd end { process.descriptor(), POLLIN, 0 };
        EXPECT_TRUE(!process.isOpen() || poll(&end, 1, 10'000) == 1) << "the service lives on";
    }

    const std::filesystem::path& path() const { return m_directory.path(); }

    /// The process of the service that runs there, or 0; the test itself where it made the socket.
    static pid_t servicePid()
    {
        const auto socket = tdw::connectToService(
            tdw::tidewellService(), tdw::StartPolicy::Fail, [] { return false; });
        ucred peer {};
        socklen_t size = sizeof peer;
        const bool isKnown = socket
            && getsockopt(socket->descriptor(), SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0;
        return isKnown ? peer.pid : 0;
    }

private:
    const TemporaryDirectory m_directory;
};
