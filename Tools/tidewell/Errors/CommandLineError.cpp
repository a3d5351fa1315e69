#include "Errors/CommandLineError.h"

#include "Platform/Values/Value.h"
#include "Support/TDWErrorHelpers.h"

namespace tdw::cli {

namespace {

constexpr std::size_t kLongestCauseChain = 8;
constexpr std::string_view kIsAnsweredKey = "IsAnswered";

const Error* causeOf(const Error& error)
{
    const Value* cause = error.userInfo().find(kUnderlyingErrorKey);
    return cause ? cause->asError() : nullptr;
}

} // namespace

const std::string& commandLineErrorDomain()
{
    static const std::string domain = std::string(kTidewellErrorDomain) + ".CommandLine";
    return domain;
}

Error commandLineError(const CommandLineErrorOptions& options)
{
    Dictionary userInfo { { kLocalizedFailureReasonErrorKey, options.reason } };
    if (!options.advice.empty())
        userInfo.set(kAdviceErrorKey, options.advice);
    if (options.cause)
        userInfo.set(kUnderlyingErrorKey, *options.cause);
    if (options.isAnswered)
        userInfo.set(kIsAnsweredKey, true);
    return Error(
        commandLineErrorDomain(), static_cast<std::int64_t>(options.status), std::move(userInfo));
}

bool isAnswered(const Error& error)
{
    return error.userInfo().find(kIsAnsweredKey) != nullptr;
}

Error whileTrying(std::string_view attempt, const Error& cause)
{
    return Error(cause.domain(), cause.code(),
        Dictionary {
            { kLocalizedFailureReasonErrorKey, attempt }, { kUnderlyingErrorKey, cause } });
}

Error withCause(const Error& error, const Error& cause)
{
    Dictionary userInfo = error.userInfo();
    userInfo.set(kUnderlyingErrorKey, cause);
    return Error(error.domain(), error.code(), std::move(userInfo));
}

std::vector<Error> causeChain(const Error& error)
{
    std::vector<Error> chain { error };
    while (chain.size() < kLongestCauseChain) {
        const Error* cause = causeOf(chain.back());
        if (!cause)
            break;
        chain.push_back(Error(*cause));
    }
    return chain;
}

} // namespace tdw::cli
