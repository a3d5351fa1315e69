#include "Server/ServerEnding.h"

#include "Interfaces/TDWResponse.h"
#include "Support/TDWErrorHelpers.h"

#include <unistd.h>

#include <chrono>

using namespace std::chrono_literals;

namespace tdw {

namespace {

constexpr auto kGoodbyeBound = 1s;

} // namespace

int failCall(const char* api, int code)
{
    TDWSerializeErrorResponse(TDWErrorCreate(api, code));
    return code;
}

BoundedGoodbye::BoundedGoodbye(int status)
    : m_exit([status] { _exit(status); })
{
    serverClockQueue().after(kGoodbyeBound, m_exit);
}

BoundedGoodbye::~BoundedGoodbye()
{
    m_exit.cancel();
}

} // namespace tdw
