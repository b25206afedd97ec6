// ats_call.cpp - call control: dialling, answering, holding and ending calls, the call settings
// (waiting, forwarding, caller-ID presentation, notifications), the audio controls, the current
// call list and the eCall commands.
//
// Only the vendor audio settings map error replies into their record; every other function here
// turns a final result other than OK into -1, so a caller sees "+CME ERROR" and "NO CARRIER" alike.
#include <cstdlib>
#include <cstring>

#include "atapi/voice.h"
constexpr char kTraceSource[] = "src/ats_call";
#include "frame.h"

using atapi::Binding;
using atapi::Field;
using atapi::num;
using atapi::ParseTree;
using atapi::Request;
using atapi::Row;
using atapi::text;

namespace {

constexpr int kMostWaitingEntries = 10;
constexpr int kMostForwardingEntries = 10;
constexpr int kMostCalls = 21;

// A record's text array holds its NUL: anything else would be read past the record.
template <std::size_t N>
bool terminated(const char (&text)[N]) {
    return std::memchr(text, '\0', N) != nullptr;
}

// One of the read-or-set integers: the trace of a null pointer, the read command, and the voice
// row and field its reply is parsed with.
struct IntSetting {
    const char* null_trace;
    const char* read_cmd;
    const char* name;
    const char* field;
};

// The read parses the setting's field into `value`; the set sends the line `format_set` writes.
// `result`, where the record has one, is set after an OK reply.
template <typename FormatSet>
int read_or_set(const IntSetting& s, int type, int* value, AT_AMSS_RES* result, FormatSet format_set) {
    if (!value) {
        ATS_TRACE(ERROR, "%s", s.null_trace);
        return -1;
    }
    if (type == AT_CHECK_VALUE) {
        Request req{s.read_cmd, nullptr};
        return AT_QUERY(req, {.name = s.name, .table = AT_FUNCTION_VOICE_CALL_CFG, .result = result},
                        {num(s.field, *value)});
    }
    if (type != AT_SET_VALUE) {
        ATS_TRACE(ERROR, "operate value error\n");
        return -1;
    }
    Request req;
    if (!format_set(req, *value)) return -1;
    if (int rc = atapi::result_only(req)) return rc;
    if (result) *result = AT_CMD_RES_SUCCESS;
    return 0;
}

// Parses a reply of one line per entry, each line alone, and hands the first `most` rows that
// parse to `fill` with their index; returns how many it handed. Line by line, a long list never
// becomes the single row the parser makes of a reply with more than 128 fields.
template <typename Fill>
int each_entry(Request& req, const char* name, int most, Fill fill) {
    atapi::Pieces lines(req.report(), name, most);
    int n = 0;
    for (char* line : lines) {
        ParseTree tree = atapi::parse_text(line, name, AT_FUNCTION_VOICE_CALL_CFG);
        if (tree) fill(n++, tree.row());
    }
    return n;
}

// What differs between the vendor audio settings: the name their traces give, the read command,
// the handler row and the reply prefix.
struct AudioSetting {
    const char* tag;
    const char* read_cmd;
    const char* name;
    const char* match;
};

// A vendor audio setting, read (0) into `fields` or set (1) with the line `format_set` writes. The
// result field starts at AT_CMD_RES_ERR; OK makes it AT_CMD_RES_SUCCESS before a read's reply is
// parsed; a CME/CMS error is mapped into it and the call succeeds; anything else fails.
template <typename FormatSet, typename TraceSetError>
int audio_setting(const AudioSetting& s, int cmd_type, AT_AMSS_RES& result, std::span<const Binding> fields,
                  FormatSet format_set, TraceSetError trace_set_error) {
    result = AT_CMD_RES_ERR;
    ATS_TRACE(INFO, "Enter AT_%s", s.tag);
    const bool read = cmd_type == AT_CHECK_VALUE;
    if (!read && cmd_type != AT_SET_VALUE) return -1;
    Request req{read ? s.read_cmd : nullptr, s.match};
    if (!read && !format_set(req)) return -1;
    if (int rc = req.exchange()) return rc;
    if (!req.ok()) {
        if (read) ATS_TRACE(ERROR, "%s=%d, error\n", s.tag, req.result());
        else trace_set_error();
        return req.map_error(result);
    }
    result = AT_CMD_RES_SUCCESS;
    if (!read) return 0;
    ParseTree tree = req.parse(s.name, AT_FUNCTION_VOICE_CALL_CFG);
    if (!tree) return -1;
    atapi::store_fields(tree.row(), fields);
    return 0;
}

}  // namespace

// ---- Simple commands ---------------------------------------------------------------------------

extern "C" int AT_D(const char* phone_number) {
    if (!phone_number) return -1;
    ATS_TRACE(INFO, "Execute ATD at commond enter\n");
    Request req;
    // The number stands unquoted before ';': the line is refused if it holds a ';' of its own.
    if (!AT_FORMAT_CMD(req, 639, "ATD%s;", phone_number)) return -1;
    if (int rc = atapi::result_only(req)) return rc;
    ATS_TRACE(INFO, "Execute ATD at commond finish\n");
    return 0;
}

extern "C" int AT_A(void) {
    Request req{"ATA", nullptr};
    const int rc = atapi::result_only(req);
    ATS_TRACE(INFO, "Execute ATA at commond finish ret = %d \n", rc);
    return rc;
}

extern "C" int AT_CHUP(void) {
    ATS_TRACE(INFO, "Execute AT+CHUP at commond enter\n");
    Request req{"AT+CHUP", nullptr};
    if (int rc = atapi::result_only(req)) return rc;
    ATS_TRACE(INFO, "Execute AT+CHUP at commond finish\n");
    return 0;
}

extern "C" int AT_CHLD(ATS_HOLD_OPERATE_VALUE chld_operate_info) {
    ATS_TRACE(INFO, "execute AT CHLD enter\n");
    Request req;
    if (!AT_FORMAT_CMD(req, 639, "AT+CHLD=%d", static_cast<int>(chld_operate_info))) return -1;
    if (int rc = atapi::result_only(req)) return rc;
    ATS_TRACE(INFO, "execute AT CHLD finish\n");
    return 0;
}

extern "C" int AT_CLIP(const ATS_CALL_ID_PRESENTATION mode) {
    ATS_TRACE(INFO, "execute AT CLIP enter\n");
    Request req;
    if (!AT_FORMAT_CMD(req, 639, "AT+CLIP=%d", static_cast<int>(mode))) return -1;
    if (int rc = atapi::result_only(req)) return rc;
    ATS_TRACE(INFO, "execute AT CLIP finish\n");
    return 0;
}

extern "C" int AT_CSSN(ats_supple_notification_info* config_info) {
    if (!config_info) {
        ATS_TRACE(ERROR, "AT cssn is NULL\n");
        return -1;
    }
    Request req;
    if (!AT_FORMAT_CMD(req, 639, "AT+CSSN=%d,%d", config_info->supple_cssi, config_info->supple_cssu)) return -1;
    return atapi::result_only(req);
}

// ---- eCall ---------------------------------------------------------------------------------------

extern "C" int AT_Ecl_Cfg(st_ecl_cfg* set_info) {
    if (!set_info) return -1;
    Request req;
    if (!AT_FORMAT_CMD(req, 639, "AT^ECLCFG=%d,%d,%d", set_info->mode, set_info->voc_config, set_info->redial_config))
        return -1;
    if (int rc = atapi::result_only(req)) return rc;
    set_info->at_exe_result = AT_CMD_RES_SUCCESS;
    return 0;
}

extern "C" int AT_Ecl_Msd(st_ecl_msd* msd_buf) {
    if (!msd_buf) return -1;
    const char* msd = msd_buf->msd_info;
    ATS_TRACE(INFO, "config_information == %s == %d\n", msd ? msd : "", static_cast<int>(ATS_strlen_s(msd)));
    Request req;
    if (!AT_FORMAT_CMD(req, 639, "AT^ECLMSD=\"%s\"", msd)) return -1;
    // Intended: unlike the configuration and the start, the data upload leaves its result field alone.
    return atapi::result_only(req);
}

extern "C" int AT_Ecl_Start(st_ecl_start* start_info) {
    if (!start_info || !terminated(start_info->dial_num)) return -1;
    Request req;
    if (!AT_FORMAT_CMD(req, 639, "AT^ECLSTART=%d,%d,\"%s\",%d", start_info->activation_type, start_info->type_of_call,
                       start_info->dial_num, start_info->operate_mode))
        return -1;
    if (int rc = atapi::result_only(req)) return rc;
    start_info->at_exe_result = AT_CMD_RES_SUCCESS;
    return 0;
}

extern "C" int AT_Ecl_Stop(void) {
    Request req{"AT^ECLSTOP", nullptr};
    return atapi::result_only(req);
}

extern "C" int AT_Ecl_Push(void) {
    Request req{"AT^ECLPUSH", nullptr};
    const int rc = atapi::result_only(req);
    ATS_TRACE(INFO, "execute AT_Ecl_Push finish ret = [%d]\n", rc);
    return rc;
}

// ---- Read-or-set integers ------------------------------------------------------------------------

extern "C" int AT_CMUT(AT_OPERATE_VALUE type, int* mode) {
    return read_or_set({"passing mode error\n", "AT+CMUT?", "+CMUT", "n_value"}, type, mode, nullptr,
                       [](Request& req, int v) { return AT_FORMAT_CMD(req, 639, "AT+CMUT=%d", v); });
}

extern "C" int AT_SMUT(AT_OPERATE_VALUE type, int* mode) {
    return read_or_set({"passing mode error\n", "AT^SMUT?", "^SMUT", "n_value"}, type, mode, nullptr,
                       [](Request& req, int v) { return AT_FORMAT_CMD(req, 639, "AT^SMUT=%d", v); });
}

extern "C" int AT_CLVL(AT_OPERATE_VALUE type, int* value) {
    return read_or_set({"passing mode error\n", "AT+CLVL?", "+CLVL", "level"}, type, value, nullptr,
                       [](Request& req, int v) { return AT_FORMAT_CMD(req, 639, "AT+CLVL=%d", v); });
}

extern "C" int AT_CMIC(int cmd_type, st_mic_vol* value) {
    return read_or_set({" AT_CMIC passing value error\n", "AT+CMIC?", "+CMIC", "level"}, cmd_type,
                       value ? &value->level : nullptr, value ? &value->at_exe_result : nullptr,
                       [](Request& req, int v) { return AT_FORMAT_CMD(req, 639, "AT+CMIC=%d", v); });
}

extern "C" int AT_S0(AT_OPERATE_VALUE type, int* value) {
    if (!value) {
        ATS_TRACE(ERROR, "AT_S0 null pointer!\n");
        return -1;
    }
    Request req;
    bool formatted = false;
    if (type == AT_CHECK_VALUE) formatted = AT_FORMAT_CMD(req, 639, "%s", "ATS0?");
    else if (type == AT_SET_VALUE) formatted = AT_FORMAT_CMD(req, 639, "ATS0=%d", *value);
    else ATS_TRACE(ERROR, "operate value error\n");
    if (!formatted) return -1;
    // The command line, for the last trace: the reply overwrites it.
    char line[32] = "";
    ATS_strncpy_s(line, sizeof line, req.cmd_field(), req.cmd_length());
    if (int rc = req.exchange()) {
        ATS_TRACE(ERROR, "AT_S0 GetDataFromAtServer fail:%d\n", rc);
        return rc;
    }
    if (!req.ok()) {
        ATS_TRACE(ERROR, "AT_S0 cmd type:%d fail, ret_val:%d\n", static_cast<int>(type), req.result());
        return -1;
    }
    if (type == AT_CHECK_VALUE) {
        // The register's value is the whole reply line, without a name.
        if (req.report()[0] == '\0') {
            ATS_TRACE(ERROR, "query cmd fail!\n");
            return -1;
        }
        *value = safe_atoi(req.report());
    }
    ATS_TRACE(INFO, "execute %s finish\n", line);
    return 0;
}

// ---- Vendor audio settings -----------------------------------------------------------------------

extern "C" int AT_NSSWITCH(int cmdType, StNsswitchInfo* nsswitch) {
    if (!nsswitch) return -1;
    StNsswitchInfo& n = *nsswitch;
    const Binding fields[] = {num("switch_mode", n.switch_mode)};
    return audio_setting(
        {"NSSWITCH", "AT^NSSWITCH?", "^NSSWITCH", "^NSSWITCH:"}, cmdType, n.AtExecResult, fields,
        [&n](Request& req) { return AT_FORMAT_CMD(req, 639, "AT^NSSWITCH=%d", n.switch_mode); },
        [&n] { ATS_TRACE(ERROR, "NSSWITCH=%d, error\n", n.switch_mode); });
}

extern "C" int AT_ECHOEX(int cmdType, StEchoexInfo* echoex) {
    if (!echoex) return -1;
    StEchoexInfo& e = *echoex;
    const Binding fields[] = {num("enable", e.echo_enable), num("time", e.echo_time),
                              num("single_len", e.echo_single_len), num("single_dec", e.echo_single_dec_str),
                              num("double_dec", e.echo_double_dec_str)};
    return audio_setting(
        {"ECHOEX", "AT^ECHOEX?", "^ECHOEX", "^ECHOEX:"}, cmdType, e.AtExecResult, fields,
        [&e](Request& req) {
            return AT_FORMAT_CMD(req, 639, "AT^ECHOEX=%d,%d,%d,%d,%d", e.echo_enable, e.echo_time, e.echo_single_len,
                                 e.echo_single_dec_str, e.echo_double_dec_str);
        },
        [&e] {
            ATS_TRACE(ERROR, "ECHOEX=%d,%d,%d,%d,%d, error\n", e.echo_enable, e.echo_time, e.echo_single_len,
                      e.echo_single_dec_str, e.echo_double_dec_str);
        });
}

extern "C" int AT_PCMFR(int cmdType, StPcmfrInfo* pcm_frq_rsp) {
    if (!pcm_frq_rsp) return -1;
    StPcmfrInfo& p = *pcm_frq_rsp;
    const Binding fields[] = {text("pcm_frq", p.pcmfr_info)};
    return audio_setting(
        {"PCMFR", "AT^PCMFR?", "^PCMFR", "^PCMFR:"}, cmdType, p.AtExecResult, fields,
        [&p](Request& req) { return terminated(p.pcmfr_info) && AT_FORMAT_CMD(req, 639, "AT^PCMFR=\"%s\"", p.pcmfr_info); },
        [&p] { ATS_TRACE(ERROR, "PCMFR=%s, error\n", p.pcmfr_info); });
}

// ---- Call waiting, forwarding and the call list ------------------------------------------------

extern "C" int AT_CCWA(ccwa_config_info* config_info) {
    if (!config_info) {
        ATS_TRACE(ERROR, "param passing is NULL\n");
        return -1;
    }
    Request req;
    bool formatted = true;
    switch (config_info->mode) {
    case 0:
    case 1:
        // The presentation flag is always sent as 1.
        formatted = AT_FORMAT_CMD(req, 639, "AT+CCWA=1,%d,%d", config_info->mode, config_info->ccwa_class);
        break;
    case 2:
        req.set_match("+CCWA");
        // Intended: an empty first parameter and a trailing comma, exactly as modems have been sent it.
        formatted = AT_FORMAT_CMD(req, 639, "%s", "AT+CCWA=,2,");
        break;
    case 3:
        formatted = AT_FORMAT_CMD(req, 639, "%s", "AT+CCWA?");
        break;
    case 4:
        formatted = AT_FORMAT_CMD(req, 639, "AT+CCWA=%d", config_info->ccwa_report);
        break;
    default:
        // Intended: the request still goes out, with an empty command line.
        ATS_TRACE(ERROR, "at cmd error \n");
        break;
    }
    if (!formatted) return -1;
    if (int rc = req.exchange()) return rc;
    if (!req.ok()) return -1;
    if (config_info->mode == 2) {
        const int found = each_entry(req, "+CCWA", kMostWaitingEntries, [&](int i, const Row& row) {
            ccwa_check_info& entry = config_info->check_info[i];
            const Binding fields[] = {num("status", entry.ccwa_status), num("class", entry.ccwa_class)};
            atapi::store_fields(row, fields);
            ++config_info->ccwa_count;
        });
        if (found == 0) ATS_TRACE(ERROR, "Execute AT+CCWA at commond error \n");
    }
    ATS_TRACE(INFO, "Execute AT+CCWA at commond finish\n");
    return 0;
}

extern "C" int AT_CCFC(ccfc_forwarding_info* config_info) {
    if (!config_info) {
        ATS_TRACE(ERROR, "param in ccfc is NULL\n");
        return -1;
    }
    ATS_TRACE(INFO, "ececute AT CCFC enter\n");
    ccfc_forwarding_info& c = *config_info;
    const bool query = c.ccfc_mode == 2;
    Request req;
    bool formatted = false;
    if (query)
        formatted = AT_FORMAT_CMD(req, 639, "AT+CCFC=%d,%d", c.ccfc_reason, c.ccfc_mode);
    else if (!terminated(c.ccfc_number))
        return -1;
    else if (c.ccfc_time != 0)
        formatted = AT_FORMAT_CMD(req, 639, "AT+CCFC=%d,%d,\"%s\",%d,%d,,,%d", c.ccfc_reason, c.ccfc_mode,
                                  c.ccfc_number, c.ccfc_type, c.ccfc_class, c.ccfc_time);
    else
        formatted = AT_FORMAT_CMD(req, 639, "AT+CCFC=%d,%d,\"%s\",%d,%d,,,", c.ccfc_reason, c.ccfc_mode,
                                  c.ccfc_number, c.ccfc_type, c.ccfc_class);
    if (!formatted) return -1;
    if (int rc = req.exchange()) return rc;
    if (!req.ok()) return -1;
    if (query) {
        each_entry(req, "+CCFC", kMostForwardingEntries, [&c](int i, const Row& row) {
            ccfc_check_info& entry = c.check_info[i];
            for (Field f : row) {
                if (f.is("status")) entry.check_status = f.number();
                else if (f.is("class")) entry.check_class = f.number();
                // Intended: an inactive entry keeps the caller's number, type and time.
                else if (entry.check_status == 0) continue;
                else if (f.is("number")) AT_FORMAT_TEXT(entry.check_number, f.value());
                else if (f.is("type")) entry.check_type = f.number();
                else if (f.is("time")) entry.check_time = f.number();
            }
            ++c.check_count;
        });
    }
    ATS_TRACE(INFO, "ececute AT CCFC finish\n");
    return 0;
}

extern "C" int AT_CLCC(ats_current_call_info* current_list_info) {
    if (!current_list_info) {
        ATS_TRACE(ERROR, "param passing is NULL\n");
        return -1;
    }
    ATS_TRACE(INFO, "execute AT CLCC enter\n");
    Request req{"AT+CLCC", "+CLCC"};
    int rc = atapi::result_only(req);
    // No call: OK alone, and the caller's array stays as it was.
    if (rc == 0 && std::strstr(req.report(), "CLCC")) {
        each_entry(req, "+CLCC", kMostCalls, [current_list_info](int i, const Row& row) {
            ats_current_call_info& call = current_list_info[i];
            const Binding fields[] = {num("idx", call.call_id),     num("dir", call.call_dir),
                                      num("stat", call.call_stat),  num("mode", call.call_mode),
                                      num("mpty", call.call_mpty),  num("type", call.call_type),
                                      text("number", call.call_number)};
            atapi::store_fields(row, fields);
        });
    }
    ATS_TRACE(INFO, "execute AT CLCC finish ret = %d\n", rc);
    return rc;
}
