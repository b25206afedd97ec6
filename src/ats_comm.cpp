// ats_comm.cpp - device identity commands.
#include <cstdlib>

#include "atapi/comm.h"

// These names stay in the interface for old callers; the modems they served are gone, so the
// functions answer at once without reaching the AT server.
extern "C" int AT_imei(StIMEI*) { return -1; }
extern "C" int AT_CGSN(StIMEI*) { return -1; }
extern "C" int AT_Cgmr(StAmssVersion*) { return -1; }
extern "C" int AT_Hwver(StAmssVersion*) { return -1; }

// Lists handed to callers come from the library's allocator, which is malloc.
extern "C" void ATS_FreeMemory(void* ptr) { std::free(ptr); }
