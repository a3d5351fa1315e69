#include "Platform/Messages/Message.h"

#include "Platform/Messages/MessageFrame.h"
#include "Platform/Values/PropertyList.h"

#include <optional>
#include <utility>

namespace tdw {

namespace {

// A message is { selector, id, arguments } and perhaps { trace }, a reply { reply, values } or {
// reply, error }. All have { protocol }, which those of the first releases lack.
constexpr std::string_view kSelectorKey = "selector";
constexpr std::string_view kIdentifierKey = "id";
constexpr std::string_view kArgumentsKey = "arguments";
constexpr std::string_view kTraceKey = "trace";
constexpr std::string_view kProtocolKey = "protocol";
constexpr std::string_view kReplyKey = "reply";
constexpr std::string_view kValuesKey = "values";
constexpr std::string_view kErrorKey = "error";

constexpr std::string_view kDomainKey = "domain";
constexpr std::string_view kCodeKey = "code";
constexpr std::string_view kReasonKey = "reason";

Result<Data> encode(Dictionary dictionary)
{
    dictionary.set(kProtocolKey, kProtocolVersion);
    return encodeFrame(TDW_TRY(encodeBinaryPropertyList(dictionary)));
}

Error malformed(const std::string& what)
{
    return Error(kCocoaErrorDomain, kMalformedMessageError,
        std::string_view("A message of the connection is malformed: " + what));
}

Result<std::uint64_t> identifierUnder(std::string_view key, const Dictionary& dictionary)
{
    const Value* value = dictionary.find(key);
    const auto identifier = value ? value->asUInt64() : std::nullopt;
    if (!identifier)
        return malformed("\"" + std::string(key) + "\" is no unsigned number");
    return *identifier;
}

Result<Array> arrayUnder(std::string_view key, const Dictionary& dictionary)
{
    const Value* value = dictionary.find(key);
    const Array* array = value ? value->asArray() : nullptr;
    if (!array)
        return malformed("\"" + std::string(key) + "\" is no array");
    return *array;
}

std::optional<Error> errorFrom(const Value& value)
{
    const std::string* domain = value.stringAt(kDomainKey);
    const auto code = value.intAt(kCodeKey);
    const std::string* reason = value.stringAt(kReasonKey);
    if (!domain || !code || !reason)
        return std::nullopt;
    return Error(*domain, *code, std::string_view(*reason));
}

} // namespace

Result<Data> encodeMessage(const Message& message)
{
    Dictionary dictionary { { kSelectorKey, message.selector },
        { kIdentifierKey, message.identifier }, { kArgumentsKey, message.arguments } };
    if (!message.trace.empty())
        dictionary.set(kTraceKey, message.trace);
    return encode(std::move(dictionary));
}

Result<Data> encodeReply(const Reply& reply)
{
    Dictionary dictionary { { kReplyKey, reply.identifier } };
    if (const Error* error = std::get_if<Error>(&reply.content)) {
        dictionary.set(kErrorKey,
            Dictionary { { kDomainKey, error->domain() }, { kCodeKey, error->code() },
                { kReasonKey, error->failureReason() } });
    } else {
        dictionary.set(kValuesKey, std::get<Array>(reply.content));
    }
    return encode(std::move(dictionary));
}

Result<std::variant<Message, Reply>> decodeMessage(std::span<const std::byte> payload)
{
    using Content = std::variant<Message, Reply>;
    const auto content = decodePropertyList(payload);
    const Dictionary* dictionary = content ? content->asDictionary() : nullptr;
    if (!dictionary)
        return malformed("it is no property list with a dictionary");

    if (dictionary->contains(kReplyKey)) {
        Reply reply { TDW_TRY(identifierUnder(kReplyKey, *dictionary)), {} };
        if (const Value* value = dictionary->find(kErrorKey)) {
            auto error = errorFrom(*value);
            if (!error)
                return malformed("\"error\" lacks its domain, code or reason");
            reply.content = *std::move(error);
        } else {
            reply.content = TDW_TRY(arrayUnder(kValuesKey, *dictionary));
        }
        return Content(std::move(reply));
    }
    const Value* selector = dictionary->find(kSelectorKey);
    if (!selector || !selector->asString())
        return malformed("it has no selector");
    const std::uint64_t identifier = TDW_TRY(identifierUnder(kIdentifierKey, *dictionary));
    auto arguments = TDW_TRY(arrayUnder(kArgumentsKey, *dictionary));
    const std::string* trace = dictionary->stringAt(kTraceKey);
    return Content(Message {
        *selector->asString(), identifier, std::move(arguments), trace ? *trace : std::string() });
}

} // namespace tdw
