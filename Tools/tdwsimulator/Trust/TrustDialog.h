#pragma once

#include "Model/Scenario.h"

#include <cstdint>
#include <optional>
#include <string_view>

namespace tdw::simulator {

/// What a device's user and rules say to a host that wants something: the error's name, or none.
///
/// Knows no connection and no certificate; other refusals come after this one.
class TrustDialog {
public:
    TrustDialog(Trust trust, std::optional<std::uint64_t> acceptAfter)
        : m_trust(trust)
        , m_acceptAfter(acceptAfter)
    {
    }

    Trust trust() const { return m_trust; }

    /// Changes the device's behaviour; a dialog that was answered is forgotten.
    void setTrust(Trust trust);

    /// The user answers the dialog, now or before it is shown.
    enum class Answer { Accept, Deny };
    void answer(Answer answer) { m_answer = answer; }

    /// The device was unplugged: an unanswered or denied dialog is forgotten, a consent is not.
    void forgetAnswer()
    {
        m_isShown = false;
        if (m_answer == Answer::Deny)
            m_answer.reset();
    }

    /// Whether the dialog is on the device's screen.
    bool isShown() const { return m_isShown && !m_answer; }

    std::optional<std::string_view> refusalToPair(ConnectionType connection);
    std::optional<std::string_view> refusalToValidate() const;
    std::optional<std::string_view> refusalToStartSession() const;
    std::optional<std::string_view> refusalToStartService() const;

private:
    std::optional<std::string_view> askUser();

    Trust m_trust;
    std::optional<std::uint64_t> m_acceptAfter;
    std::uint64_t m_requests = 0;
    bool m_isShown = false;
    std::optional<Answer> m_answer;
};

} // namespace tdw::simulator
