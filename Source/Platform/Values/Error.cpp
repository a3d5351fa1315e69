#include "Platform/Values/Error.h"

#include "Platform/Values/Value.h"

#include <array>
#include <cstring>

namespace tdw {

struct Error::State {
    std::string domain;
    std::int64_t code;
    Dictionary userInfo;
};

namespace {

/// The system's own text for an errno; `strerror` would not be safe on two threads at once.
std::string systemMessage(int errnoValue)
{
    std::array<char, 256> buffer {};
    return strerror_r(errnoValue, buffer.data(), buffer.size());
}

} // namespace

Error::Error(std::string_view domain, std::int64_t code, Dictionary userInfo)
    : m_state(
        std::make_shared<const State>(State { std::string(domain), code, std::move(userInfo) }))
{
}

Error::Error(std::string_view domain, std::int64_t code, std::string_view failureReason)
    : Error(domain, code, Dictionary { { kLocalizedFailureReasonErrorKey, failureReason } })
{
}

Error Error::posix(int errnoValue, std::string_view context)
{
    return Error(
        kPosixErrorDomain, errnoValue, std::string(context) + ": " + systemMessage(errnoValue));
}

const std::string& Error::domain() const
{
    return m_state->domain;
}

std::int64_t Error::code() const
{
    return m_state->code;
}

const Dictionary& Error::userInfo() const
{
    return m_state->userInfo;
}

std::string Error::failureReason() const
{
    const std::string* text = userInfo().stringAt(kLocalizedFailureReasonErrorKey);
    return text ? *text : std::string();
}

std::string Error::debugDescription() const
{
    return "Error Domain=" + domain() + " Code=" + std::to_string(code())
        + " UserInfo=" + Value(userInfo()).debugDescription();
}

bool Error::operator==(const Error& other) const
{
    return m_state == other.m_state
        || (domain() == other.domain() && code() == other.code() && userInfo() == other.userInfo());
}

} // namespace tdw
