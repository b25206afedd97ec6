/*
 * atapi/comm.h - device identity commands. C11 and C++.
 */
#ifndef ATAPI_COMM_H
#define ATAPI_COMM_H

#include "atapi/result.h"

#ifdef __cplusplus
extern "C" {
#endif

/* A command's answer as text (identity reads, the service-provider name, the battery level). */
typedef struct nvramcontnet {
    int CmdType; /* the caller's own marker; not written by the library */
    char Code[128];
    AT_AMSS_RES AtExeResult;
    int Reserve;
} nvramcontnetres;

typedef struct {
    char softFlag;
    char HardFlag;
    char soft[32];
    char hard[32];
} StAmssVersion;

typedef struct IMEIStruct {
    char imeiFlag;
    char imei[16];
    AT_AMSS_RES AtExeResult;
} StIMEI;

/* Kept for the interface only: they send nothing and return -1. */
int AT_imei(StIMEI* pResult);
int AT_CGSN(StIMEI* pResult);
int AT_Cgmr(StAmssVersion* pResult);
int AT_Hwver(StAmssVersion* pResult);

/* Frees memory that a command function allocated for its caller. Null is ignored. */
void ATS_FreeMemory(void* ptr);

#ifdef __cplusplus
}
#endif

#endif /* ATAPI_COMM_H */
