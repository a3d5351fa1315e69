#pragma once

#include "Devices/Requests.h"
#include "Platform/FileHandle.h"
#include "Platform/Result.h"
#include "Platform/Value.h"

#include <future>
#include <string>
#include <vector>

namespace tdw::cli {

/// A request under way on a thread of its own, so that its sender can give up waiting.
///
/// One that is given up goes on until its server has ended by itself; nobody hears of it.
class PendingRequest {
public:
    /// Errors: `kPosixErrorDomain`
    static Result<PendingRequest> send(
        const Requests& requests, std::string_view server, std::vector<std::string> arguments);

    /// A descriptor, owned by this object, that polls readable once the answer is there.
    int descriptor() const { return m_end.descriptor(); }

    /// The answer; waits for it. To be called once.
    Result<Value> answer() { return m_answer.get(); }

private:
    PendingRequest(FileHandle end, std::future<Result<Value>> answer);

    FileHandle m_end;
    std::future<Result<Value>> m_answer;
};

} // namespace tdw::cli
