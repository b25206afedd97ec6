/*
 * atapi/datacard.h - the datacard command set (+Z... commands). C11 and C++.
 *
 * Every function returns 0 on success and -1 on any failure (null record, a value refused, a reply
 * other than OK, a reply that does not parse), or the exchange's own code when the exchange
 * failed. An error reply is not turned into a result code: the record is left as it was. A query
 * sets enAtExecResult to AT_CMD_RES_SUCCESS before it reads the fields, so a reply whose value is
 * refused returns -1 with the fields read before it and the success code in the record.
 * Command lines end in their own CR.
 */
#ifndef ATAPI_DATACARD_H
#define ATAPI_DATACARD_H

#include <stdint.h>

#include "atapi/result.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef enum {
    CDMODE_AUTORUN_ENABLE = 0,
    CDMODE_AUTORUN_DISABLE = 1,
    CDMODE_AUTORUN_QUERY = 2,
    CDMODE_DOWNLOAD_ENABLE = 3,
    CDMODE_DOWNLOAD_DISABLE = 4,
    CDMODE_DOWNLOAD_QUERY = 5
} AT_ZTE_CDMODE_CONFIG_TYPE;

typedef enum {
    NETWORK_PREF_AUTO = 0,
    NETWORK_PREF_GSM_ONLY = 1,
    NETWORK_PREF_WCDMA_ONLY = 2
} AT_ZTE_NETWORK_PREF_MODE;

typedef enum {
    NETWORK_SELECT_AUTO = 0,
    NETWORK_SELECT_MANUAL = 1,
    NETWORK_SELECT_LIMITIED = 2 /* spelled so */
} AT_ZTE_NETWORK_SELECT_MODE;

typedef enum {
    NETWORK_ACCESS_AUTO = 0,
    NETWORK_ACCESS_GSM_WCDMA = 1,
    NETWORK_ACCESS_WCDMA_GSM = 2
} AT_ZTE_NETWORK_ACCESS_MODE;

typedef enum {
    POWER_MODE_FTM = 1,
    POWER_MODE_ONLINE = 5,
    POWER_MODE_LOW_POWER = 6
} AT_ZTE_DEVICE_POWER_MODE;

typedef enum {
    SIM_TYPE_SIM = 0,
    SIM_TYPE_USIM = 1
} AT_ZTE_SIM_TYPE;

typedef struct {
    AT_ZTE_CDMODE_CONFIG_TYPE enConfigMode;
    AT_AMSS_RES enAtExecResult;
} AT_ZTE_ZCDRUN_ST;

typedef struct {
    char network_type[32];   /* cut to fit */
    char service_domain[32];
    AT_AMSS_RES enAtExecResult;
} AT_ZTE_ZPAS_ST;

typedef struct {
    uint32_t pin_left_times;
    uint32_t puk_left_times;
    AT_AMSS_RES enAtExecResult;
} AT_ZTE_ZPINPUK_ST;

typedef struct {
    AT_ZTE_NETWORK_PREF_MODE enPrefMode;
    AT_ZTE_NETWORK_SELECT_MODE enSelectMode;
    AT_ZTE_NETWORK_ACCESS_MODE enAccessMode;
    AT_AMSS_RES enAtExecResult;
} AT_ZTE_ZSNT_ST;

typedef struct {
    AT_ZTE_DEVICE_POWER_MODE enPowerMode;
    AT_AMSS_RES enAtExecResult;
} AT_ZTE_ZOPRT_ST;

typedef struct {
    AT_ZTE_SIM_TYPE enSimType;
    AT_AMSS_RES enAtExecResult;
} AT_ZTE_ZUSIM_ST;

/* "AT+ZCDRUN=%c\r": the mode's parameter character; a mode without one sends nothing. */
int AT_ZTE_zcdrun(AT_ZTE_ZCDRUN_ST* pParam);
int AT_ZTE_zpas(AT_ZTE_ZPAS_ST* pParam);
int AT_ZTE_zpinpuk(AT_ZTE_ZPINPUK_ST* pParam);
int AT_ZTE_zsnt_read(AT_ZTE_ZSNT_ST* pParam);
/* Manual selection is refused before anything is sent (use +COPS); the other values go out as
 * they are. */
int AT_ZTE_zsnt_config(AT_ZTE_ZSNT_ST* pParam);
int AT_ZTE_zoprt_read(AT_ZTE_ZOPRT_ST* pParam);
/* The power mode goes out unchecked; the time limit is 3 seconds. */
int AT_ZTE_zoprt_config(AT_ZTE_ZOPRT_ST* pParam);
/* Only 0 (SIM) and 1 (USIM) are accepted from the reply. */
int AT_ZTE_zusim(AT_ZTE_ZUSIM_ST* pParam);

/* The +ZCDRUN parameter of a mode ('4', '8', '9', 'e', 'f', 'g'), or 0 for none. */
char ats_convert_cdmode_type_to_param(AT_ZTE_CDMODE_CONFIG_TYPE mode);
/* Reply values to the enums: 0 or -1 (null argument, or a value outside the set, with the trace
 * "<function>: bad param!\n"); the output is written only on success. */
int ats_convert_zsnt_pref_mode(const char* pMode, AT_ZTE_NETWORK_PREF_MODE* pConvertedMode);
int ats_convert_zsnt_select_mode(const char* pMode, AT_ZTE_NETWORK_SELECT_MODE* pConvertedMode);
int ats_convert_zsnt_access_mode(const char* pMode, AT_ZTE_NETWORK_ACCESS_MODE* pConvertedMode);
int ats_convert_zoprt_power_mode(const char* pMode, AT_ZTE_DEVICE_POWER_MODE* pConvertedMode);

#ifdef __cplusplus
}
#endif

#endif /* ATAPI_DATACARD_H */
