#include "Platform/Messages/Connection.h"

#include <utility>

namespace tdw {

namespace {

Error unanswered()
{
    return Error(kCocoaErrorDomain, kReplyInvalidError,
        std::string_view("The other end of the connection gave the message up."));
}

} // namespace

class MessageReply::State {
public:
    explicit State(Sender sender)
        : m_sender(std::move(sender))
    {
    }
    State(const State&) = delete;
    State& operator=(const State&) = delete;
    ~State() { answer(unanswered()); }

    void answer(Result<Array> content)
    {
        if (m_sender && !m_isAnswered.exchange(true))
            m_sender(std::move(content));
    }

private:
    const Sender m_sender;
    std::atomic<bool> m_isAnswered = false;
};

MessageReply::MessageReply(Sender sender)
    : m_state(std::make_shared<State>(std::move(sender)))
{
}

void MessageReply::succeed(Array values) const
{
    m_state->answer(std::move(values));
}

void MessageReply::fail(Error error) const
{
    m_state->answer(std::move(error));
}

} // namespace tdw
