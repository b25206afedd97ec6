// at_errcode.cpp - maps "+CME ERROR" and "+CMS ERROR" reply lines onto the application's small
// vocabulary of result codes.
[[maybe_unused]] constexpr char kTraceSource[] = "src/at_errcode";

#include <cstring>

#include "atapi/parse.h"
#include "atapi/result.h"
#include "trace.h"

// Verbose CME texts and their numbers. Compared exactly, letter case and blanks included: the
// blank that ends row 75 means that row can never match a trimmed report, and it stays as the
// modem's documentation has it.
extern "C" const cme_err cme_table[CME_TABLE_ROWS] = {
    {"0",     "phone failure"},
    {"1",     "no connection to phone"},
    {"2",     "phone adaptor link reserved"},
    {"3",     "operation not allowed"},
    {"4",     "operation not supported"},
    {"5",     "PH-SIM PIN required"},
    {"6",     "PH-FSIM PIN required"},
    {"7",     "PH-FSIM PUK required"},
    {"10",    "SIM not inserted"},
    {"11",    "SIM PIN required"},
    {"12",    "SIM PUK required"},
    {"17",    "SIM PIN2 required"},
    {"18",    "SIM PUK2 required"},
    {"13",    "SIM failure"},
    {"14",    "SIM busy"},
    {"15",    "SIM wrong"},
    {"269",   "SIM2 not inserted"},
    {"265",   "SIM2 PIN required"},
    {"266",   "SIM2 PUK required"},
    {"267",   "SIM2 PIN2 required"},
    {"268",   "SIM2 PUK2 required"},
    {"270",   "SIM2 failure"},
    {"271",   "SIM2 busy"},
    {"272",   "SIM2 wrong"},
    {"16",    "incorrect password"},
    {"20",    "memory full"},
    {"21",    "invalid index"},
    {"22",    "not found"},
    {"23",    "memory failure"},
    {"24",    "text string too long"},
    {"25",    "invalid characters in text string"},
    {"26",    "dial string too long"},
    {"27",    "invalid characters in dial string"},
    {"30",    "no network service"},
    {"31",    "network timeout"},
    {"32",    "network not allowed - emergency calls only"},
    {"40",    "network personalization PIN required"},
    {"41",    "network personalization PUK required"},
    {"42",    "network subset personalization PIN required"},
    {"43",    "network subset personalization PUK required"},
    {"44",    "service provider personalization PIN required"},
    {"45",    "service provider personalization PUK required"},
    {"46",    "corporate personalization PIN required"},
    {"47",    "corporate personalization PUK required"},
    {"100",   "unknown"},
    {"103",   "Illegal MESSAGE"},
    {"106",   "Illegal ME"},
    {"107",   "GPRS services not allowed"},
    {"111",   "PLMN not allowed"},
    {"112",   "Location area not allowed"},
    {"113",   "Roaming not allowed in this location area"},
    {"132",   "service option not supported"},
    {"133",   "requested service option not subscribed"},
    {"134",   "service option temporarily out of order"},
    {"148",   "unspecified GPRS error"},
    {"149",   "PDP authentication failure"},
    {"150",   "invalid mobile class"},
    {"257",   "network rejected request"},
    {"258",   "retry operation"},
    {"259",   "invalid deflected to number"},
    {"260",   "deflected to own number"},
    {"261",   "unknown subscriber"},
    {"262",   "service not available"},
    {"263",   "unknown class specified"},
    {"264",   "unknown network message"},
    {"275",   "invalid parameter combination"},
    {"273",   "minimum TFTs per PDP address violated"},
    {"274",   "TFT precedence index not unique"},
    {"65280", "call index error"},
    {"65281", "Call state error"},
    {"65282", "System state error"},
    {"65284", "SPN file wrong"},
    {"65285", "SPN file access denied"},
    {"65286", "SPN file not exist"},
    {"65287", "another SPN query operation still not finished "},
    {"65288", "NV item inactive"},
    {"65535", nullptr},
};

// CME numbers the application distinguishes, searched in this order; any other number is
// reported as busy.
extern "C" const at_cme_error_table gs_cme_error[GS_CME_ERROR_ROWS] = {
    {DSAT_CME_SIM_NOT_INSERTED,             AT_CMD_RES_SIM_FAIL},
    {DSAT_CME_SIM_FAILURE,                  AT_CMD_RES_SIM_FAIL},
    {DSAT_CME_SIM_PIN_REQUIRED,             AT_CMD_RES_PIN_REQ},
    {DSAT_CME_SIM_PUK_REQUIRED,             AT_CMD_RES_PUK_REQ},
    {DSAT_CME_INCORRECT_PASSWORD,           AT_CMD_RES_ERR},
    {DSAT_CME_NO_NETWORK_SERVICE,           AT_CMD_RES_GPS_NO_NETWORK_SERVER},
    {DSAT_CME_SIM_BUSY,                     AT_CMD_RES_SIM_BUSY},
    {DSAT_CME_OP_NOT_SUPPORTED,             AT_CMD_RES_OPERATION_NOT_SUPPORTED},
    {DSAT_CME_UNKNOWN,                      AT_CMD_RES_UNKNOWN},
    {DAST_CME_GPS_FUNCTION_DISABLED,        AT_CMD_RES_GPS_DISABLED},
    {DAST_CME_GPS_STANDALONE_DISABLED,      AT_CMD_RES_GPS_STANDALONE_DISABLED},
    {DAST_CME_AGPS_DISABLED,                AT_CMD_RES_AGPS_DISABLED},
    {DAST_CME_GPS_XTRA_DISABLED,            AT_CMD_RES_GPS_XTRA_DISABLED},
    {DAST_CME_CELL_ID_DISABLED,             AT_CMD_RES_CELL_ID_DSIABLED},
    {DAST_CME_INVALID_PARAMETER,            AT_CMD_RES_INVALID_PARAMETER},
    {DAST_CME_UNABLE_TO_DELETE_PARAMETER,   AT_CMD_RES_UNABLE_TO_DELETE_PARAMETER},
    {DAST_CME_GPS_SESSION_ONGOING,          AT_CMD_RES_GPS_SESSION_ONGOING},
    {DAST_CME_GPS_SESSION_OFF_STATUS,       AT_CMD_RES_GPS_SESSION_OFF_STATUS},
    {DAST_CME_TOO_MANY_PARAMETERS,          AT_CMD_RES_TOO_MANY_PARAMETERS},
    {DAST_CME_INVALID_SERVER_ADDRESS,       AT_CMD_RES_INVALID_SERVER_ADDRESS},
    {DAST_CME_GPS_LOCKED,                   AT_CMD_RES_GPS_LOCKED},
    {DAST_CME_GPS_TYPE_NOT_SUPPORTED,       AT_CMD_RES_GPS_TYPE_NOT_SUPPORTED},
    {DAST_CME_MGP_RECEIVER_IS_ONGOING,      AT_CMD_RES_MGP_RECEIVER_IS_ONGOING},
    {DAST_CME_NO_TIME_INFORMATION,          AT_CMD_RES_NO_TIME_INFORMATION},
    {DAST_CME_INCORRECT_DATA_LENGTH,        AT_CMD_RES_INCORRECT_DATA_LENGTH},
    {DAST_CME_INCORRECT_PACKET_INDEX,       AT_CMD_RES_INCORRECT_PACKET_INDEX},
    {DAST_CME_DATA_INJECTION_FAILS,         AT_CMD_RES_DATA_INJECTION_FAILS},
    {DAST_CME_CRC_CHECKING_FAILED,          AT_CMD_RES_CRC_CHECKING_FAILED},
    {DAST_CME_INVALID_TIME_RANGE,           AT_CMD_RES_INVALID_TIME_RANGE},
    {DAST_CME_GPS_ANTENNA_IS_SHORTED,       AT_CMD_RES_GPS_ANTENNA_IS_SHORTED},
};

extern "C" int cme_to_id(char* at_report_str, StAtRes* result) {
    if (at_report_str == nullptr || result == nullptr) return -1;
    result->amss_res = AT_CME_ERROR;
    result->cme_res = DSAT_CME_NO_ERROR;
    if (test_str_num(at_report_str) == 0) {
        result->cme_res = static_cast<dsat_cme_error_e_type>(safe_atoi(at_report_str));
        return 0;
    }
    for (const cme_err& row : cme_table) {
        if (row.err_str == nullptr) break;
        if (safe_strcmp(row.err_str, at_report_str) == 0) {
            result->cme_res = static_cast<dsat_cme_error_e_type>(safe_atoi(row.err_code));
            return 0;
        }
    }
    return -1;
}

extern "C" int cms_to_id(char* at_report_str, StAtRes* result) {
    if (at_report_str == nullptr || result == nullptr) return -1;
    // The CMS decode reports itself under the CME result as well; callers only read cms_res.
    result->amss_res = AT_CME_ERROR;
    result->cms_res = DSAT_CMS_NONE;
    if (test_str_num(at_report_str) != 0) return -1;
    result->cms_res = static_cast<dsati_cms_err_e_type>(safe_atoi(at_report_str));
    return 0;
}

namespace {

AT_AMSS_RES cme_result(dsat_cme_error_e_type cme) {
    for (const at_cme_error_table& row : gs_cme_error) {
        if (row.dsat_cme == cme) return row.app_mass_res;
    }
    // Numbers the application has no word for read as busy, so callers retry later.
    return AT_CMD_RES_BUSY;
}

AT_AMSS_RES cms_result(dsati_cms_err_e_type cms) {
    switch (cms) {
        case DSAT_CMS_SIM_NOT_INSERTED:
        case DSAT_CMS_SIM_FAILURE: return AT_CMD_RES_SIM_FAIL;
        case DSAT_CMS_SIM_PIN_REQ: return AT_CMD_RES_PIN_REQ;
        case DSAT_CMS_SIM_PUK_REQ: return AT_CMD_RES_PUK_REQ;
        case DSAT_CMS_SIM_BUSY: return AT_CMD_RES_SIM_BUSY;
        default: return AT_CMD_RES_BUSY;
    }
}

}  // namespace

extern "C" AT_AMSS_RES Error_str_to_id(char* at_report_str) {
    if (at_report_str == nullptr) return AT_CMD_RES_AMSS_MAX;
    char* colon = std::strchr(at_report_str, ':');
    if (colon == nullptr) return AT_CMD_RES_AMSS_MAX;
    *colon = '\0';
    char* code = colon + 1;
    split_space(code, ' ');

    StAtRes res{};
    if (std::strstr(at_report_str, "+CME") != nullptr) {
        if (cme_to_id(code, &res) != 0) return AT_CMD_RES_AMSS_MAX;
        return cme_result(res.cme_res);
    }
    if (std::strstr(at_report_str, "+CMS") != nullptr) {
        if (cms_to_id(code, &res) != 0) return AT_CMD_RES_AMSS_MAX;
        return cms_result(res.cms_res);
    }
    return AT_CMD_RES_AMSS_MAX;
}
