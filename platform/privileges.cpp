// Privilege helpers of the host platform library.
//
// Only an installed set-user-ID-root program has a saved set-user-ID of root; such a process may
// take root back for the duration of an exchange. Any other process has nothing to raise, so the
// helpers leave it alone.
#include <unistd.h>

#include "atplatform.h"

extern "C" int QMX_UTIL_UpRootPrivileges(void) {
    uid_t ruid = 0, euid = 0, suid = 0;
    if (getresuid(&ruid, &euid, &suid) != 0) return -1;
    if (suid != 0 || euid == 0) return 0;
    return seteuid(0) == 0 ? 0 : -1;
}

extern "C" int QMX_UTIL_DropAndroidRootPrivileges(void) {
    uid_t ruid = 0, euid = 0, suid = 0;
    if (getresuid(&ruid, &euid, &suid) != 0) return -1;
    if (euid == ruid) return 0;
    return seteuid(ruid) == 0 ? 0 : -1;
}
