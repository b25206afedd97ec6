// ats_usim.cpp - SIM files and identity: restricted and generic SIM access with the path tables
// of the two card types, the readers of EF AD, GID1 and EF ACL built on them, own numbers,
// ICCID, CDMA identity, the SIM slot and power switches, the home PLMN, and the card mode.
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <span>

#include "atapi/sim.h"
constexpr char kTraceSource[] = "src/ats_usim";
#include "frame.h"

using atapi::copy_text;
using atapi::Field;
using atapi::OnError;
using atapi::ParseTree;
using atapi::Request;
using atapi::Row;
using atapi::text;

namespace {

constexpr StCrsmParaList g_pathid_sim_list[] = {
    {AT_CRSM_FILEID_EFLI,      "3F007F20"},
    {AT_CRSM_FILEID_EFPL,      "3F00"},
    {AT_CRSM_FILEID_APN,       "3F007F20"},
    // The ICCID under the GSM directory rather than the master file alone: intended.
    {AT_CRSM_FILEID_ICCID,     "3F007F20"},
    {AT_CRSM_FILEID_SPN,       "3F007F20"},
    {AT_CRSM_FILEID_MSISDN,    "3F007F20"},
    {AT_CRSM_FILEID_EFAD,      "3F007F20"},
    {AT_CRSM_FILEID_SIM_BRAND, nullptr},
};

constexpr StCrsmParaList g_pathid_usim_list[] = {
    {AT_CRSM_FILEID_EFLI,      "3F007FFF"},
    {AT_CRSM_FILEID_EFPL,      "3F00"},
    {AT_CRSM_FILEID_APN,       "3F007FFF"},
    // The ICCID under the USIM application rather than the master file alone: intended.
    {AT_CRSM_FILEID_ICCID,     "3F007FFF"},
    {AT_CRSM_FILEID_SPN,       "3F007FFF"},
    {AT_CRSM_FILEID_MSISDN,    "3F007FFF"},
    {AT_CRSM_FILEID_EFAD,      "3F007FFF"},
    {AT_CRSM_FILEID_SIM_GID,   "3F007FFF"},
    {AT_CRSM_FILEID_SIM_BRAND, nullptr},
};

// Asked once per process and never again, even if the card is exchanged later: intended.
std::atomic<int> g_card_type{CARD_INEXIST};

const char* GetPathidByFileid(int fileid) {
    int type = g_card_type.load();
    if (type == CARD_INEXIST) {
        ST_AT_CARDMODE mode{};
        if (AT_cardmode(&mode) != 0) {
            ATS_TRACE(ERROR, "[GetPathidByFileid] AT_cardmode failed!\n");
            return nullptr;
        }
        std::memcpy(&type, &mode.AtFieldValue, sizeof type);
        g_card_type.store(type);
    }
    std::span<const StCrsmParaList> table;
    if (type == SIM_CARD) {
        table = g_pathid_sim_list;
    } else if (type == USIM_CARD) {
        table = g_pathid_usim_list;
    } else {
        ATS_TRACE(ERROR, "[GetPathidByFileid] AT_cardmode %d is not supported\n", type);
        return nullptr;
    }
    for (const StCrsmParaList& row : table)
        if (row.id == fileid) return row.pathid;
    ATS_TRACE(ERROR, "[GetPathidByFileid] fileid[%d] get pathid error\n", fileid);
    return nullptr;
}

constexpr int kReadBinary = 176;

// One READ BINARY through AT_Crsm; the response it allocated is released on every way out.
class FileRead {
public:
    FileRead(AT_CRSM_FILEID file, int p3) {
        StCrsmPara para{kReadBinary, file, 0, 0, p3, nullptr, nullptr};
        rc_ = AT_Crsm(&para, &res_);
    }
    ~FileRead() { std::free(res_.response); }
    FileRead(const FileRead&) = delete;
    FileRead& operator=(const FileRead&) = delete;

    bool done() const { return rc_ == 0; }
    // 90 00, or 91 with anything: the card has more to say but the read succeeded.
    bool success() const { return (res_.w1 == 0x90 && res_.w2 == 0) || res_.w1 == 0x91; }
    const char* response() const { return res_.response; }

private:
    StCrsmRes res_{};
    int rc_ = -1;
};

// Byte `index` of a hexadecimal text of `len` characters, or -1 past its end.
int hex_byte(const char* text, std::size_t len, std::size_t index) {
    if (2 * index + 1 >= len) return -1;
    const char pair[3] = {text[2 * index], text[2 * index + 1], '\0'};
    return static_cast<int>(hex_str_to_uinteger(pair));
}

// A switch of the SIM slot: read (0) into `value`, or set (1) from it with the line `format_set` builds.
template <typename T, typename Format>
int read_or_set(int type, const char* query, const char* name, const char* field, T& value, Format format_set) {
    if (type == AT_SET_VALUE) {
        Request req;
        if (!format_set(req)) return -1;
        return atapi::result_only(req);
    }
    if (type != AT_CHECK_VALUE) return -1;
    Request req{query, name};
    return AT_QUERY(req, {.name = name, .table = AT_FUNCTION_SYSTEM_CFG}, {atapi::num(field, value)});
}

}  // namespace

extern "C" int AT_cardmode(ST_AT_CARDMODE* result) {
    if (!result) {
        ATS_TRACE(WARNING, "Param is null!\n");
        return -1;
    }
    Request req{"AT^CARDMODE", "^CARDMODE"};
    if (int rc = req.exchange()) {
        ATS_TRACE(WARNING, "AT^CARDMODE result parse failed!\n");
        return rc;
    }
    if (!req.ok()) {
        ATS_TRACE(WARNING, "AT^CARDMODE is abnormal!Error num is %d\n", req.result());
        return -1;
    }
    ParseTree tree = req.parse("^CARDMODE", AT_FUNCTION_PIN_CFG);
    if (!tree) return -1;
    result->AtExeResult = AT_CMD_RES_SUCCESS;
    for (Field f : tree.row()) {
        if (f.is("sim_type")) atapi::store_enum(result->AtFieldValue, f.number());
        else ATS_TRACE(WARNING, "AT^CARDMODE haven't found!\n");
    }
    return 0;
}

extern "C" int AT_Crsm(StCrsmPara* crsmParam, StCrsmRes* crsmResult) {
    if (!crsmParam || !crsmResult) return -1;
    const char* path = GetPathidByFileid(crsmParam->fileid);
    if (!path) ATS_TRACE(ERROR, "[AT_Crsm] get pathid error!\n");
    // The caller reads the path; nothing writes through the pointer into the constant table.
    crsmParam->pathid = const_cast<char*>(path);

    Request req;
    const StCrsmPara& p = *crsmParam;
    // A file without a path is still asked for, with an empty one: the modem may know it.
    const bool formatted =
        p.date ? AT_FORMAT_CMD(req, 639, "AT+CRSM=%d,%d,%d,%d,%d,%s,\"%s\"", p.command, p.fileid, p.p1, p.p2, p.p3,
                               p.date, path)
               : AT_FORMAT_CMD(req, 639, "AT+CRSM=%d,%d,%d,%d,%d,,\"%s\"", p.command, p.fileid, p.p1, p.p2, p.p3, path);
    if (!formatted) return -1;
    req.set_match("+CRSM");
    if (int rc = req.exchange()) return rc;
    if (!req.ok()) return -1;
    ParseTree tree = req.parse("+CRSM", AT_FUNCTION_SYSTEM_CFG);
    if (!tree) return -1;
    crsmResult->AtExeResult = AT_CMD_RES_SUCCESS;
    for (Field f : tree.row()) {
        if (f.is("sw1")) {
            crsmResult->w1 = f.number();
        } else if (f.is("sw2")) {
            crsmResult->w2 = f.number();
        } else if (f.is("response")) {
            const std::size_t n = std::strlen(f.value());
            auto* copy = static_cast<char*>(qmx_malloc_internal(n + 1, AT_PARSE_MAX_ALLOC, nullptr, nullptr, 0));
            if (!copy) {
                ATS_TRACE(ERROR, "crsmResult->response malloc error!\n");
                return -1;
            }
            std::memcpy(copy, f.value(), n + 1);
            crsmResult->response = copy;
        }
    }
    return 0;
}

extern "C" int AT_get_mnc_length(void) {
    FileRead ad{AT_CRSM_FILEID_EFAD, 4};
    if (!ad.done() || !ad.success() || !ad.response()) {
        ATS_TRACE(ERROR, "[AT mnc] response data error!\n");
        return -1;
    }
    if (std::strlen(ad.response()) <= 7) {
        ATS_TRACE(ERROR, "[AT mnc] response data length error!\n");
        return -1;
    }
    // The low digit of the fourth byte.
    const char digit[2] = {ad.response()[7], '\0'};
    return static_cast<int>(hex_str_to_uinteger(digit));
}

extern "C" int AT_get_sim_gid1(char* pstResult, int ilen) {
    if (!pstResult || ilen <= 0) return -1;
    // p3 0 reads the whole file. Intended: the status is not looked at, whatever the card sent is GID1.
    FileRead gid{AT_CRSM_FILEID_SIM_GID, 0};
    if (!gid.done()) {
        ATS_TRACE(ERROR, "[AT_get_sim_gid1] AT_Crsm failed!\n");
        return -1;
    }
    if (!gid.response()) {
        ATS_TRACE(ERROR, "[AT_get_sim_gid1] AT_Crsm NULL == stCrsmResult.response!\n");
        return -1;
    }
    ATS_strncpy_s(pstResult, static_cast<std::size_t>(ilen), gid.response(), ATS_strlen_s(gid.response()));
    return 0;
}

extern "C" int AT_get_sim_apn(char* pszSimApn, unsigned int buf_len) {
    if (!pszSimApn || buf_len == 0) return -1;
    FileRead acl{AT_CRSM_FILEID_APN, 255};
    if (!acl.done() || !acl.success() || !acl.response()) return -1;
    const char* data = acl.response();
    if (std::strlen(data) >= 4 && data[2] == 'F' && data[3] == 'F') return -1;  // no entry
    char apn[33] = {0};
    // The decoder only reads the text.
    if (parse_sim_apn(reinterpret_cast<unsigned char*>(const_cast<char*>(data)), apn) != 0) return -1;
    ATS_TRACE(INFO, "AT_get_sim_apn parse_sim_apn succeed!\n");
    ATS_SNPRINTF(pszSimApn, buf_len, buf_len - 1, "%s", apn);
    return 0;
}

extern "C" int parse_sim_apn(unsigned char* pData, char* apn_name) {
    if (!pData || !apn_name) return -1;
    constexpr std::size_t kMaxName = 32;
    const char* text = reinterpret_cast<const char*>(pData);
    const std::size_t len = std::strlen(text);
    if (hex_byte(text, len, 0) <= 0) return -1;  // no entry
    // The tag must read "DD"; only a tag without any 'D' is refused: intended.
    if (len < 4 || (text[2] != 'D' && text[3] != 'D')) return -1;
    int left = hex_byte(text, len, 2);
    if (left < 1) return -1;
    --left;  // the first label's length byte
    std::size_t at = 3, out = 0;
    while (left >= 1) {
        const int n = hex_byte(text, len, at++);
        if (n <= 0) break;  // 0 ends the name; so does the end of the data
        for (int i = 0; i < n && left > 0; ++i, --left) {
            const int c = hex_byte(text, len, at++);
            if (c < 0) {
                left = 0;
                break;
            }
            if (out < kMaxName) apn_name[out++] = static_cast<char>(c);
        }
        if (left < 1 || hex_byte(text, len, at) < 0) break;  // no further label
        if (out < kMaxName) apn_name[out++] = '.';
        --left;  // the next label's length byte
    }
    apn_name[out] = '\0';
    return 0;
}

extern "C" int AT_Csim(at_sim_cmd_packet* csim_cmd) {
    ATS_TRACE(INFO, "enter AT_Csim\n");
    if (!csim_cmd || !csim_cmd->cmd) {
        ATS_TRACE(ERROR, "AT_Csim input param invalid\n");
        return -1;
    }
    Request req;
    if (!AT_FORMAT_CMD(req, 639, "AT+CSIM=%d,\"%s\"", static_cast<int>(csim_cmd->cmd_length), csim_cmd->cmd))
        return -1;
    req.set_match("+CSIM");
    if (int rc = req.exchange()) {
        ATS_TRACE(ERROR, "AT_Csim get data from ats failed\n");
        return rc;
    }
    if (!req.ok()) {
        ATS_TRACE(ERROR, "AT_Csim return failed\n");
        return -1;
    }
    ParseTree tree = req.parse("+CSIM", AT_FUNCTION_SYSTEM_CFG);
    if (!tree) {
        ATS_TRACE(ERROR, "AT_Csim at cmd parse failed\n");
        return -1;
    }
    const Field response = tree.row().find("response");
    if (!response) {
        ATS_TRACE(ERROR, "AT_Csim no such column\n");
        return -1;
    }
    copy_text(csim_cmd->cmd_response, response.value());
    return 0;
}

extern "C" int AT_Cnum(StSetCunmInfo* Result) {
    if (!Result) return -1;
    Request req{"AT+CNUM", "+CNUM"};
    if (int rc = req.exchange()) return rc;
    if (!req.ok()) return req.map_error(Result->AtExeResult);
    if (req.report()[0] == '\0') {
        // A SIM without own numbers: an empty list, not a failure.
        ATS_TRACE(INFO, "phone number list size equal zero\n");
        Result->pInfos = nullptr;
        Result->num = 0;
        Result->AtExeResult = AT_CMD_RES_SUCCESS;
        return 0;
    }
    ParseTree tree = req.parse("+CNUM", AT_FUNCTION_SYSTEM_CFG);
    if (!tree) {
        ATS_TRACE(ERROR, "at_cmd_parse error!\n");
        return -1;
    }
    int n = 0;
    for ([[maybe_unused]] Row row : tree.rows()) ++n;
    StCnumInfo* list = atapi::alloc_records<StCnumInfo>(n);
    if (!list) {
        ATS_TRACE(ERROR, "phone number malloc list failed\n");
        return -1;
    }
    StCnumInfo* entry = list;
    for (Row row : tree.rows()) {
        for (Field f : row) {
            if (f.is("name")) copy_text(entry->name, f.value());
            else if (f.is("num")) copy_text(entry->num, f.value());
            else if (f.is("type")) entry->type = f.number();
        }
        ++entry;
    }
    Result->pInfos = list;
    Result->num = n;
    Result->AtExeResult = AT_CMD_RES_SUCCESS;
    return 0;
}

extern "C" int AT_SCID(StScid* result) {
    if (!result) return -1;
    Request req{"AT^SCID", "^SCID"};
    return AT_QUERY(req, {.name = "^SCID", .table = AT_FUNCTION_SYSTEM_CFG, .on_error = OnError::map,
                          .result = &result->AtExeResult},
                    {text("scid_num", result->Code)});
}

extern "C" int AT_Iccid(StIccid* pResult) {
    if (!pResult) {
        ATS_TRACE(ERROR, "Input param is null!\n");
        return -1;
    }
    Request req{"AT^ICCID?", "^ICCID"};
    return AT_QUERY(req, {.name = "^ICCID", .table = AT_FUNCTION_SYSTEM_CFG, .on_error = OnError::map,
                          .result = &pResult->AtExeResult,
                          .exchange_failed = {ATS_TRACE_ERROR, "[AT_Iccid] GetDataFromAtServer return error!\n"}},
                    {text("iccid", pResult->iccid)});
}

extern "C" int AT_Currsid(StCurrsid* pResult) {
    if (!pResult) {
        ATS_TRACE(ERROR, "Input param is null!\n");
        return -1;
    }
    Request req{"AT^CURRSID?", "^CURRSID"};
    // The failure trace names AT_Iccid: intended, callers' log filters look for it.
    return AT_QUERY(req, {.name = "^CURRSID", .table = AT_FUNCTION_SYSTEM_CFG, .on_error = OnError::map,
                          .result = &pResult->AtExeResult,
                          .exchange_failed = {ATS_TRACE_ERROR, "[AT_Iccid] GetDataFromAtServer return error!\n"}},
                    {text("curr_sid", pResult->curr_sid), text("curr_nid", pResult->curr_nid),
                     text("curr_evdo_subnetid", pResult->curr_evdo_subnetid)});
}

extern "C" int AT_SimSwitch(int iCmdType, at_simswitch_type* pSimType) {
    ATS_TRACE(INFO, "[AT_SimSwitch] enter!\n");
    if (!pSimType) return -1;
    return read_or_set(iCmdType, "AT^SIMSWITCH?", "^SIMSWITCH", "sim_type", *pSimType, [&](Request& req) {
        return AT_FORMAT_CMD(req, 639, "AT^SIMSWITCH=%d", static_cast<int>(*pSimType));
    });
}

extern "C" int AT_SimGpio(int iCmdType, int* pGpioSwitch) {
    ATS_TRACE(INFO, "[AT_SimGpio] enter!\n");
    if (!pGpioSwitch) return -1;
    return read_or_set(iCmdType, "AT^SIMGPIO?", "^SIMGPIO", "gpio_switch", *pGpioSwitch,
                       [&](Request& req) { return AT_FORMAT_CMD(req, 639, "AT^SIMGPIO=%d", *pGpioSwitch); });
}

extern "C" int AT_aphplmn(int CmdType, APHPLMN* aph_plmn) {
    if (!aph_plmn) {
        ATS_TRACE(ERROR, "no param, cmd not execute!\n");
        return -1;
    }
    if (CmdType != AT_CHECK_VALUE) return -1;
    Request req{"AT^APHPLMN?", "^APHPLMN"};
    if (int rc = req.exchange()) return rc;
    if (!req.ok()) {
        ATS_TRACE(ERROR, "AT^APHPLMN config error=%d\n", req.result());
        return req.map_error(aph_plmn->AtExeResult);
    }
    ParseTree tree = req.parse("^APHPLMN", AT_FUNCTION_PIN_CFG);
    if (!tree) return -1;
    aph_plmn->AtExeResult = AT_CMD_RES_SUCCESS;
    const atapi::Binding plmn[] = {text("plmn", aph_plmn->mcc_mnc)};
    atapi::store_fields(tree.row(), plmn);
    return 0;
}
