#pragma once

#include "Platform/Values/Error.h"

#include <string>

namespace tdw::cli {

/// What the user can do about `error`, or an empty text: the advice that the error or a cause of it
/// brings along, or else what is known about its code.
std::string adviceFor(const Error& error);

} // namespace tdw::cli
