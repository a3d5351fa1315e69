#include "Platform/Messages/ConnectionState.h"

#include <utility>

namespace tdw {

std::vector<ConnectionState::Action> ConnectionState::next(Event event)
{
    const bool isMessage = event == Event::Message || event == Event::Notice;
    const bool hasEnded = m_value == Value::Interrupted || m_value == Value::Invalid;
    if (hasEnded && event == Event::Opened)
        return { Action::Close };
    if (hasEnded)
        return isMessage ? std::vector { Action::Refuse } : std::vector<Action>();
    switch (event) {
    case Event::Message:
    case Event::Notice:
        if (m_value == Value::Open)
            return { Action::Send };
        if (m_value != Value::Idle)
            return { Action::Keep };
        m_value = event == Event::Message ? Value::Opening : Value::Looking;
        return { Action::Keep, event == Event::Message ? Action::Open : Action::Look };
    case Event::Opened:
        m_value = Value::Open;
        return { Action::SendKept };
    case Event::NotOpened:
        if (m_value == Value::Looking) {
            m_value = Value::Idle;
            return { Action::FailWaiting };
        }
        return end(Value::Invalid);
    case Event::PeerGone:
        return end(m_origin == Origin::Ours ? Value::Interrupted : Value::Invalid);
    case Event::Invalidated:
        return end(Value::Invalid);
    }
    return {};
}

std::vector<ConnectionState::Action> ConnectionState::end(Value value)
{
    std::vector<Action> actions;
    if (std::exchange(m_value, value) == Value::Open)
        actions.push_back(Action::Close);
    // The report comes first: the handler of a failed message may send the next one at once, and
    // that must not use this connection.
    actions.push_back(
        value == Value::Interrupted ? Action::ReportInterruption : Action::ReportInvalidation);
    actions.push_back(Action::FailWaiting);
    return actions;
}

} // namespace tdw
