#include "Pairing/PendingRequest.h"

#include <exception>
#include <system_error>
#include <thread>
#include <utility>

namespace tdw::cli {

Result<PendingRequest> PendingRequest::send(
    const Requests& requests, std::string_view server, std::vector<std::string> arguments)
{
    Pipe pipe = TDW_TRY(Pipe::create());
    std::promise<Result<Value>> promise;
    auto answer = promise.get_future();
    try {
        // The thread has copies of everything, because it may outlive its sender. The end of the
        // lambda closes the pipe, which is what the sender waits for.
        std::thread([requests, name = std::string(server), arguments = std::move(arguments),
                        promise = std::move(promise), end = std::move(pipe.writer)]() mutable {
            try {
                promise.set_value(requests.send(name, arguments));
            } catch (...) {
                promise.set_exception(std::current_exception());
            }
        }).detach();
    } catch (const std::system_error& error) {
        return Error::posix(error.code().value(), "Cannot start a thread");
    }
    return PendingRequest(std::move(pipe.reader), std::move(answer));
}

PendingRequest::PendingRequest(FileHandle end, std::future<Result<Value>> answer)
    : m_end(std::move(end))
    , m_answer(std::move(answer))
{
}

} // namespace tdw::cli
