#pragma once

#include "Model/Json.h"
#include "Model/Simulation.h"

#include <chrono>
#include <functional>
#include <variant>

namespace tdw::simulator {

/// What a client waits for.
struct WaitRequest {
    LogFilter filter;
    std::uint64_t count = 1;
    std::chrono::milliseconds bound { 10'000 };
};

/// The requests that change a simulation while it runs. Given JSON, says JSON.
class ControlProtocol {
public:
    /// @param faultsChanged called after faults came or went
    ControlProtocol(Simulation& simulation, std::function<Result<void>()> faultsChanged)
        : m_simulation(simulation)
        , m_faultsChanged(std::move(faultsChanged))
    {
    }

    using Answer = std::variant<Json, WaitRequest>;

    /// Answers one line of text, right or wrong.
    Answer answer(std::string_view line);

    /// `{"ok": true, …}` and `{"ok": false, "error": …}`.
    static Json success(Json content = Json::object());
    static Json failure(const Error& error);

    static Json entryAsJson(const LogEntry& entry);

private:
    Result<Answer> answerRequest(const Json& json);

    Simulation& m_simulation;
    std::function<Result<void>()> m_faultsChanged;
};

} // namespace tdw::simulator
