#include "run_dir.h"

#include <cstdlib>

#include "atapi/primitives.h"

namespace atapi {

std::string run_dir() {
    const char* dir = secure_getenv("ATAPI_RUN_DIR");
    return (dir != nullptr && dir[0] != '\0') ? std::string(dir) : std::string("/var/run");
}

}  // namespace atapi

extern "C" const char* ATS_run_dir(void) {
    // A thread-local copy keeps the returned pointer valid while the environment changes.
    thread_local std::string dir;
    dir = atapi::run_dir();
    return dir.c_str();
}
