// Shows devices as they come and go: a program with an event loop of its own, here around `poll`.
//
// The callbacks of the client come from its threads. A program with a loop gives the client a
// callback queue that only stores them and makes a descriptor readable; the loop waits for that
// descriptor as for every other, and runs them on its own thread.

#include "Client/TidewellServiceClient.h"
#include "Platform/CallbackQueue.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace {

/// Callbacks that wait for the loop, and the descriptor that is readable while there are some.
class LoopQueue {
public:
    LoopQueue() = default;
    LoopQueue(const LoopQueue&) = delete;
    LoopQueue& operator=(const LoopQueue&) = delete;
    ~LoopQueue() { ::close(m_descriptor); }

    int descriptor() const { return m_descriptor; }

    void submit(std::function<void()> block)
    {
        {
            const std::lock_guard lock(m_mutex);
            if (m_isClosed)
                return;
            m_blocks.push_back(std::move(block));
        }
        eventfd_write(m_descriptor, 1);
    }

    /// To be called by the loop when the descriptor is readable.
    void run()
    {
        eventfd_t ignored = 0;
        eventfd_read(m_descriptor, &ignored);
        std::deque<std::function<void()>> blocks;
        {
            const std::lock_guard lock(m_mutex);
            blocks.swap(m_blocks);
        }
        for (const auto& block : blocks)
            block();
    }

    /// To be called when the loop is over. Callbacks hold the client, and the client holds the
    /// queue, so that those that never run would keep both.
    void close()
    {
        std::deque<std::function<void()>> blocks;
        const std::lock_guard lock(m_mutex);
        m_isClosed = true;
        blocks.swap(m_blocks);
    }

private:
    const int m_descriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    std::mutex m_mutex;
    std::deque<std::function<void()>> m_blocks;
    bool m_isClosed = false;
};

} // namespace

int main()
{
    // Shared, because the client may hand over a callback while the program ends.
    const auto queue = std::make_shared<LoopQueue>();
    const auto client = TidewellServiceClient::initWithQueue(tdw::CallbackQueue(
        [queue](std::function<void()> block) { queue->submit(std::move(block)); }));

    bool isDone = false;
    int status = EXIT_SUCCESS;
    client->subscribeToDeviceEventsWithEventHandler(
        [](const std::string& event) {
            std::printf("%s\n", event.c_str());
            std::fflush(stdout);
        },
        [&](const std::optional<tdw::Error>& error) {
            if (!error)
                return;
            std::fprintf(stderr, "device-events: %s\n", error->failureReason().c_str());
            status = EXIT_FAILURE;
            isDone = true;
        });

    // Until there is something on standard input, or its end.
    while (!isDone) {
        pollfd entries[] = { { queue->descriptor(), POLLIN, 0 }, { STDIN_FILENO, POLLIN, 0 } };
        if (poll(entries, 2, -1) < 0)
            continue;
        if (entries[0].revents != 0)
            queue->run();
        isDone = isDone || entries[1].revents != 0;
    }
    client->invalidateTerminatingService(false);
    queue->close();
    return status;
}
