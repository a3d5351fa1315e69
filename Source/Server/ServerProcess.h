#pragma once

#include "Platform/Queues/Queue.h"

namespace tdw {

/// From now on the process survives broken pipes and writes no core, and an exception that nothing
/// catches ends it with an error envelope, on whatever thread it is thrown. Part of
/// `TDWServerInitialize`.
void prepareServerProcess();

/// The queue that a server's clock runs on; created on first use and kept for the life of the
/// process.
const Queue& serverClockQueue();

} // namespace tdw
