#include "Errors/Warnings.h"

#include "Interfaces/TDWResponse.h"
#include "Support/TDWErrorHelpers.h"

namespace tdw::cli {

std::vector<Error> warningsIn(const Value& payload)
{
    std::vector<Error> warnings;
    if (const Array* array = payload.arrayAt(kTDWResponseWarningsKey)) {
        for (const Value& warning : *array)
            warnings.push_back(TDWErrorParse(warning));
    }
    return warnings;
}

} // namespace tdw::cli
