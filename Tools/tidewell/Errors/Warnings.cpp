#include "Errors/Warnings.h"

#include "Interfaces/TDWResponse.h"
#include "Support/TDWErrorHelpers.h"

namespace tdw::cli {

std::vector<Error> warningsIn(const Value& payload)
{
    std::vector<Error> warnings;
    const Dictionary* fields = payload.asDictionary();
    const Value* value = fields ? fields->find(kTDWResponseWarningsKey) : nullptr;
    if (const Array* array = value ? value->asArray() : nullptr) {
        for (const Value& warning : *array)
            warnings.push_back(TDWErrorParse(warning));
    }
    return warnings;
}

} // namespace tdw::cli
