/*
 * atapi/comm.h - the device itself: identity, firmware versions, the functionality mode, IMS
 * registration, the factory and diagnostic commands, and the battery, power and thermal commands
 * of the hotspot line. C11 and C++.
 *
 * Records are filled field by field; a field the reply does not carry keeps the caller's value,
 * so callers clear a record before the call when they need to tell the two apart. Every number is
 * passed on as the modem printed it (temperatures, voltages and ADC values unscaled).
 */
#ifndef ATAPI_COMM_H
#define ATAPI_COMM_H

#include "atapi/result.h"
#include "atapi/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Identity and state ------------------------------------------------------------------- */

/* A command's answer as text (identity reads, the service-provider name, the battery level). */
typedef struct nvramcontnet {
    int CmdType; /* the caller's own marker; not written by the library */
    char Code[128];
    AT_AMSS_RES AtExeResult;
    int Reserve;
} nvramcontnetres;

/* The firmware version strings. Each holds the whole value of its "^VERSION:" line as the modem
 * sent it, kind included ("EXTD:..."), and the line end when more lines followed. AtExeResult is 0
 * (not AT_CMD_RES_SUCCESS) once a version line was found. */
typedef struct {
    char extd_version[128];
    char exth_version[128];
    int num; /* "^VERSION" lines received */
    int AtExeResult;
} CONTENT_VERSION;

/* The board's physical numbers: one whole "^PHYNUM" line each, unparsed. */
typedef struct {
    char buf_phynum[10][129];
    int num;
    int AtExeResult;
} CONTENT_PHYNUM;

typedef struct {
    char meid[15];
    AT_AMSS_RES AtExeResult;
} StMeid;

typedef struct {
    int esn;
    AT_AMSS_RES AtExeResult;
} StEsn;

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

typedef struct {
    int CmdType; /* the caller's own marker; not written by the library */
    AT_AMSS_RES AtExeResult;
    char PActStatus[5]; /* the +CPAS activity status as text */
    int Reserve;
} PhoneActStatus;

typedef struct _CFUN_STR {
    int cfun;
    AT_AMSS_RES at_exec_result;
} CFUNINFO;

typedef struct _LTESCINFO_STR {
    int ci;
    int dl_sinr;
    int num_ant;
    int dl_bw;
    AT_AMSS_RES at_exec_result;
} SCINFO;

typedef struct _RRCVER_STR {
    int rrc_version;
    AT_AMSS_RES at_exec_result;
} RRCVER_NUM;

typedef struct {
    int BoardId;
    int Action;
} HsCommand;

typedef struct {
    int BoardId;
    int Protocol;
    int IsOffline;
    int ProductClass;
    int ProductId;
    int SoftwareId;
    AT_AMSS_RES AtExeResult;
} HsRsp;

/* The IMS registration (+CIREG): mode is the report setting (n), reg_info 1 when registered. */
typedef struct {
    int mode;
    int reg_info;
    AT_AMSS_RES AtExeResult;
} StCireg;

int at_version(CONTENT_VERSION* version_info);
int at_QryPhynum(CONTENT_PHYNUM* phynum_info);
int AT_imsi(nvramcontnetres* Result);
int AT_cgmm(nvramcontnetres* Result);
int at_cgmi(nvramcontnetres* Result);
int AT_sn(nvramcontnetres* Result);
int AT_Meid(StMeid* pResult);
int AT_Esn(StEsn* pResult);
/* CmdType is not used: the activity status is only read. An error reply is mapped into
 * AtExeResult (0 returned). */
int AT_PhoneActSt(int CmdType, PhoneActStatus* Result);
int AT_Cfun(int sys_value);
int AT_Cfun_Query(int* sys_value);
int AT_Cfun_Read(CFUNINFO* cfun_info);
/* 0 when the SIM is present, -1 otherwise (also when it cannot be told). */
int AT_QryRsim(void);
int AT_LTESCINFO(SCINFO* sc_info);
/* cmd_type AT_CHECK_VALUE reads the release, AT_SET_VALUE sets rrc_version. */
int AT_RRCVer(int cmd_type, RRCVER_NUM* version_result);
int AT_HS(HsCommand* hscommand, HsRsp* hsrsp);
int at_SetCsdflt(void);
int at_SetModemInforbu(void);
int AT_MmiRouter(int mmiflag);
int AT_MmiEcho(void);

/* The IMS registration. The read answers "AT+CIREG?" into mode and reg_info; the set sends
 * "AT+CIREG=%d" with mode. Both map a +CME/+CMS error into AtExeResult and return 0. AT_Cireg
 * (cmdType AT_CHECK_VALUE or AT_SET_VALUE) returns -1 when the half did, else 0; any other
 * cmdType sends nothing and returns 0. A null record is -1 for every cmdType. */
int AT_Cireg(int cmdType, StCireg* rec);
int AT_Cireg_Check(StCireg* rec);
int AT_Cireg_Execute(StCireg* rec);
/* The same read as the registration daemons poll it: with the reply prefix "+CIREG:", so that
 * nothing but that line is taken for the answer, and the quick 5-second limit. AT_Netreg has no
 * set half of its own: AT_SET_VALUE runs AT_Cireg_Execute. */
int AT_Netreg(int cmdType, StCireg* rec);
int AT_Netreg_Check(StCireg* rec);
/* AT_Netreg_Check with the process id as the request's client id instead of the thread id, for
 * helper processes that read the registration from one thread (as AT_ReBoot matches its replies):
 * two threads of one process must not call it at the same time. */
int AT_Netreg_cid(StCireg* rec);

/* Kept for the interface only: they send nothing and return -1. */
int AT_imei(StIMEI* pResult);
int AT_CGSN(StIMEI* pResult);
int AT_Cgmr(StAmssVersion* pResult);
int AT_Hwver(StAmssVersion* pResult);

/* Frees memory that a command function allocated for its caller. Null is ignored. */
void ATS_FreeMemory(void* ptr);

/* ---- Factory and diagnostic commands ------------------------------------------------------ */
/*
 * Selectors of the readers below: AT_CHECK_VALUE (0) sends the read form, AT_SET_VALUE (1) the
 * set form with the record's input fields, AT_DIAG_TEST_VALUE (3) the "=?" form where the
 * command has one; any other value sends nothing and returns -1. On an OK reply AtExeResult is
 * AT_CMD_RES_SUCCESS; a read returns 0 only when the reply carried one of its fields. Any other
 * final result is mapped into AtExeResult (65535 for a plain ERROR) and -1 returned.
 */
#define AT_DIAG_TEST_VALUE 3

typedef struct {
    float temp; /* crystal temperature */
    AT_AMSS_RES AtExeResult;
} crystal_temp;

typedef struct {
    int id; /* input: the ADC channel */
    int adc_value;
    AT_AMSS_RES AtExeResult;
} st_read_adcval;

typedef struct {
    int ant_mode;
    int network_mode;
    AT_AMSS_RES AtExeResult;
} st_ant_mode;

typedef struct {
    int mode;
    AT_AMSS_RES AtExeResult;
} st_open_channel;

typedef struct {
    int mode;
    AT_AMSS_RES AtExeResult;
} set_debug_mode;

typedef struct {
    int gpa_Temp;
    int wpa_Temp;
    int lpa_Temp;
    int sim_Temp;
    int bat_Temp;
    int tcxo_Temp;
    AT_AMSS_RES AtExecResult;
} StChiptemp;

/* rand and auth go on the command line as they are (hexadecimal digits, unquoted); a text that
 * fills its field without a terminator, holds a ';' or a control character, or makes the line
 * longer than 639 characters is refused before anything is sent. */
typedef struct {
    int auth_type;
    char rand[512];
    char auth[512];
    int result;
    char res[512];
    char ck[512];
    char ik[512];
    char auts[512];
    AT_AMSS_RES AtExeResult;
} St_Uicc_Auth;

/* The datacard's download mode: mode is the "+ZCDRUN" parameter character, a letter or a digit;
 * '\0' sends the default "AT+ZCDRUN=G". Any other character is refused before sending (-1). */
typedef struct {
    char mode;
    AT_AMSS_RES AtExeResult;
} ZTEWorkMode;

/* Board test results 0 to 20; any other value is refused before sending. */
int AT_Simtest(const int result);
int AT_Keytest(const int result);
int AT_Usbtest(const int result);
int AT_Ethtest(const int result);
/* cmd_type 0 reads the temperature; 3 sends "AT^XOTEMP=?", whose answer is looked up under a
 * column the reply template does not have, so that form always ends in -1. */
int AT_Xotemp(int cmd_type, crystal_temp* xotemp);
/* cmd_type 0 reads channel id; 3 asks whether the modem has the command (fields untouched). */
int AT_Adcreadex(int cmd_type, st_read_adcval* value);
/* 0 reads; 1 sets ant_mode and network_mode. */
int AT_Antmode(int cmd_type, st_ant_mode* mode);
/* 0 reads; 1 sets mode. */
int AT_Opencl(int cmd_type, st_open_channel* opencl_data);
/* 0 reads; 1 sets mode. */
int AT_Setmode(int cmd_type, set_debug_mode* stmode);
/* 0 reads (the only form). */
int AT_Chiptemp(int cmdType, StChiptemp* chipTemp);
/* 0 reads the shell type into *shellPara; 1 sets it from *shellPara. No result field: an error
 * reply is -1. */
int AT_Shell(int cmdType, int* shellPara);
/* 1 runs the challenge (the only form) and fills result, res, ck, ik and auts. */
int AT_UiccAuth(int cmd_type, St_Uicc_Auth* uicc_auth);
/* OK sets AtExeResult; +CME/+CMS errors are mapped into it (0 returned); others -1. */
int AT_ZteDownload(ZTEWorkMode* Para);

/* ---- Battery, power and thermal (hotspot line) -------------------------------------------- */

typedef struct {
    int charge_state;
    int battery_level;
    AT_AMSS_RES AtExeResult;
} battery_state;

typedef struct {
    int charge_state;    /* +CBC <bcs> */
    int battery_percent; /* +CBC <bcl> */
    AT_AMSS_RES AtExeResult;
} battery_state_std;

typedef struct {
    char chgState[32];
    int chgTime;
    int chgVoltage;
    int batteryVol;
    int chgCurrent;
    int batteryTemp;
    int boardTemp;
    int simTemp;
    int msmTemp;
    int paTemp;
    int isOffChg;
    AT_AMSS_RES AtExeResult;
} StChargeinfo;

/* The thermal, watchdog and wake-up functions: type AT_CHECK_VALUE reads, AT_SET_VALUE sets from
 * the record (at_wakeupcfg: AT_SET_VALUE sets, AT_WAKEUPCFG_TEST_VALUE asks "=?"); any other type
 * sends nothing and returns -1. OK sets AtExeResult to AT_CMD_RES_SUCCESS; a +CME/+CMS error is
 * mapped into it and 0 returned; other results and replies that do not parse are -1. */
#define AT_WAKEUPCFG_TEST_VALUE 2

typedef struct {
    int thermal_switch; /* 1 thermal protection on, 0 off */
    AT_AMSS_RES AtExeResult;
} temperature_protection;

typedef struct {
    int watchdog_time;
    AT_AMSS_RES AtExeResult;
} watch_dog_time;

typedef struct {
    int state; /* the modem's thermal state; read only */
    AT_AMSS_RES AtExeResult;
} thermal_state;

/* The set form sends the three values. The test form's answer gives each parameter's range,
 * "(lo-hi)"; each field then holds the upper end (the largest value the modem takes), and a
 * parameter given as a single number holds that number. */
typedef struct {
    unsigned int wakeup_switch;
    unsigned int channel;
    unsigned int source;
    AT_AMSS_RES AtExeResult;
} wakeupcfg_stru;

/* Restarts the modem: "AT+CFUN=4", then "AT+CFUN=6", both matched by the process id, so two
 * threads of one process must not restart at the same time. */
int AT_ReBoot(void);
int at_factoryreset(void);
/* A +CME/+CMS error is mapped into AtExeResult and -1 returned; an OK reply that does not parse
 * still returns 0 with AtExeResult AT_CMD_RES_SUCCESS and the numbers untouched. */
int at_query_battery_state(battery_state* result);
/* The whole reply text into Code. An error reply is mapped into AtExeResult (0 returned). */
int at_battery_get(nvramcontnetres* Result);
/* These two map an error reply into AtExeResult (0 returned). */
int at_query_battery_state_std(battery_state_std* result);
int AT_ChargerInfo(StChargeinfo* result);
int at_thermfun(int type, temperature_protection* temp_pro_info);
int at_setwdtime(int type, watch_dog_time* time_info);
/* Only AT_CHECK_VALUE. */
int at_thermstate(int type, thermal_state* state_info);
int at_wakeupcfg(int type, wakeupcfg_stru* wakeupcfg_info);

#ifdef __cplusplus
}
#endif

#endif /* ATAPI_COMM_H */
