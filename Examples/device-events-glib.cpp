// Shows devices as they come and go: a program whose event loop is GLib's, as that of GTK is.

#include <glib.h>
#include <tidewell/CallbackQueue.h>
#include <tidewell/DeviceMonitor.h>

#include <cstdio>
#include <functional>
#include <memory>
#include <utility>

namespace {

using Block = std::function<void()>;

/// Runs a block in the main loop.
void postToMainLoop(Block block)
{
    g_idle_add_full(
        G_PRIORITY_DEFAULT,
        [](gpointer data) { return (*static_cast<Block*>(data))(), G_SOURCE_REMOVE; },
        std::make_unique<Block>(std::move(block)).release(),
        [](gpointer data) { std::default_delete<Block>()(static_cast<Block*>(data)); });
}

void showEvent(const tdw::DeviceEvent& event)
{
    std::printf("%s\n", tdw::deviceEventText(event).c_str());
    std::fflush(stdout);
}

} // namespace

int main()
{
    GMainLoop* const loop = g_main_loop_new(nullptr, FALSE);
    {
        const auto monitor = tdw::DeviceMonitor::start(
            tdw::CallbackQueue(&postToMainLoop), { .event = &showEvent, .outage = {} });
        // Until there is something on standard input, or its end.
        GIOChannel* const input = g_io_channel_unix_new(0);
        g_io_add_watch(
            input, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP),
            [](GIOChannel*, GIOCondition, gpointer data) -> gboolean {
                g_main_loop_quit(static_cast<GMainLoop*>(data));
                return G_SOURCE_REMOVE;
            },
            loop);
        g_io_channel_unref(input);
        g_main_loop_run(loop);
    }
    g_main_loop_unref(loop);
}
