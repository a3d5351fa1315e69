#include "EndToEnd/Processes.h"
#include "EndToEnd/RunningTool.h"
#include "Platform/Messages/ServiceStart.h"
#include "Platform/System/LocalSocket.h"
#include "Support/Testing.h"

#include <sys/un.h>

using namespace tdw;
using namespace matchers;

// The service as systemd starts it: with the listening socket as its first descriptor, and with a
// socket to report to.

namespace {

namespace fs = std::filesystem;

/// A socket that takes notifications as systemd's does.
class NotificationSocket {
public:
    explicit NotificationSocket(fs::path path)
        : m_path(std::move(path))
        , m_socket(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_un address {};
        address.sun_family = AF_UNIX;
        m_path.string().copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(bind(m_socket.descriptor(), reinterpret_cast<const sockaddr*>(&address),
                      sizeof address),
            0);
    }

    std::string receive() const
    {
        std::array<char, 256> text {};
        pollfd entry { m_socket.descriptor(), POLLIN, 0 };
        const ssize_t length = poll(&entry, 1, 20'000) == 1
            ? recv(m_socket.descriptor(), text.data(), text.size(), 0)
            : 0;
        return { text.data(), static_cast<std::size_t>(std::max<ssize_t>(length, 0)) };
    }

    const fs::path& path() const { return m_path; }

private:
    fs::path m_path;
    FileHandle m_socket;
};

} // namespace

TEST(SocketActivation, ServesOnTheSocketItIsGivenAndReportsReadiness)
{
    const Household devices;
    const NotificationSocket notifications(devices.directory() / "notify");
    FileHandle listening = *listenOnLocalSocket(*serviceSocketPath(tidewellService()));
    LaunchOptions options;
    options.executable = "/bin/sh";
    options.arguments = { "-c", "exec 3<&0 0</dev/null; LISTEN_PID=$$ LISTEN_FDS=1 exec \"$0\"",
        TIDEWELL_BUILD_DIR "/libexec/tidewell/tidewell-service" };
    options.environment = { { "NOTIFY_SOCKET", notifications.path() } };
    options.standardInput = listening.descriptor();
    auto service = Process::launch(options);
    ASSERT_TRUE(service);
    listening.close();

    EXPECT_EQ(notifications.receive(), "READY=1");
    EXPECT_THAT(tidewell({ "list" }).output, HasSubstr(kPhone));
    // The socket is another process's, as systemd's would be.
    EXPECT_THAT(tidewell({ "service", "status", "--json" }).output,
        HasSubstr("\"ProcessID\":" + std::to_string(service->identifier())));

    RunningTool events({ "events" });
    EXPECT_THAT(events.readLine(),
        MatchesRegex("20..-..-.. ..:..:..  attached  (USB    |network)  0000[0-9A-F-]*"));
    // Servers write no core, so that only root may read their environments.
    if (geteuid() == 0) {
        std::vector<std::string> environments;
        for (const pid_t process : processesWith(getenv("XDG_RUNTIME_DIR"))) {
            if (commandOf(process) == "tdw_events")
                environments.push_back(contentsOf(directoryOf(process) / "environ"));
        }
        ASSERT_THAT(environments, Not(IsEmpty()));
        for (const char* name : { "NOTIFY_SOCKET", "LISTEN_FDS", "LISTEN_PID" })
            EXPECT_THAT(environments, Each(Not(HasSubstr(name))));
        EXPECT_THAT(environments, Each(HasSubstr("USBMUXD_SOCKET_ADDRESS")));
    }

    events.process->sendSignal(SIGTERM);
    EXPECT_EQ(events.finish().termination, Termination {});
    EXPECT_EQ(tidewell({ "service", "stop" }).output, "The service has ended.\n");
    EXPECT_EQ(service->waitUntilExit(), Termination {});
}
