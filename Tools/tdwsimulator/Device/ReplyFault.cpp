#include "Device/ReplyFault.h"

namespace tdw::simulator {

namespace {

/// A value that is surely not of the same type.
Value otherType(const Value& value)
{
    if (value.asString())
        return Value(42);
    return Value("not what you expect");
}

/// The key that a fault means: the one it names, else the reply's own content.
std::string affectedKey(const Fault& fault, const Dictionary& reply)
{
    if (fault.replyKey)
        return *fault.replyKey;
    if (reply.contains("Value"))
        return "Value";
    for (const auto& [key, value] : reply) {
        if (key != "Request")
            return key;
    }
    return "Request";
}

} // namespace

Value withFault(const Fault& fault, const Value& reply)
{
    if (fault.kind == FaultKind::NotADictionary)
        return fault.value.value_or(Value("not a dictionary"));
    if (!reply.asDictionary())
        return reply;
    Dictionary changed = *reply.asDictionary();
    const std::string key = affectedKey(fault, changed);
    if (fault.kind == FaultKind::WrongType) {
        const Value* value = changed.find(key);
        changed.set(key, fault.value.value_or(value ? otherType(*value) : Value(42)));
    } else if (fault.kind == FaultKind::MissingKey) {
        changed.remove(key);
    }
    return Value(std::move(changed));
}

} // namespace tdw::simulator
