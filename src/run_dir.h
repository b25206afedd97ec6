// run_dir.h - where the AT server's queues and pid file live on this host.
#pragma once

#include <string>

namespace atapi {

// "/var/run", or $ATAPI_RUN_DIR for a process that is not set-user-ID (secure_getenv).
std::string run_dir();

}  // namespace atapi
