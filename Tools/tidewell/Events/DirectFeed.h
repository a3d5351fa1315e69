#pragma once

#include "Events/CallbackLoop.h"
#include "Events/DeviceFeed.h"

namespace tdw::cli {

/// The events of a server that this process starts. Its end is the feed's.
class DirectFeed final : public DeviceFeed {
public:
    /// Errors: `ExitStatus::ServerNotRun`
    static Result<std::unique_ptr<DirectFeed>> create();

    int descriptor() const override { return m_loop.descriptor(); }
    Result<std::vector<DeviceEvent>> take() override;
    std::optional<Error> outage() const override { return std::nullopt; }

private:
    struct State;
    DirectFeed(CallbackLoop loop, std::shared_ptr<State> state);

    CallbackLoop m_loop;
    /// Shared with the callbacks, which may come for as long as the process lives.
    std::shared_ptr<State> m_state;
};

} // namespace tdw::cli
