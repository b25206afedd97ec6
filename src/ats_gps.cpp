// ats_gps.cpp - the positioning engine's settings (^WP* commands), the start and end of a session,
// and the data contexts the positioning service needs for assisted fixes.
//
// The settable commands share one shape: the result field starts at AT_CMD_RES_ERR, a query
// fills the record from its reply, a set sends the record, and an error reply is mapped into the
// record but still fails the call.
#include <cstring>
#include <optional>
#include <string>

#include "atapi/gps.h"
constexpr char kTraceSource[] = "src/ats_gps";
#include "frame.h"

using atapi::Binding;
using atapi::Field;
using atapi::num;
using atapi::OnError;
using atapi::ParseTree;
using atapi::Request;
using atapi::text;

namespace {

// One settable command and the texts its traces use.
struct Command {
    const char* name;   // "WPDOM": the command, and the function's name after "AT_"
    const char* row;    // handler row
    const char* query;  // the "?" line
    const char* match;  // reply prefix of both lines
    // Traces of AT_WPDIM's kind: "AT_<name>, AtExecResult=%d, error\n" after an error reply and
    // "AT_<name>, <value_name>=%d, error\n" with the set value after any other failed set. The
    // others write "<name>=%d, error\n" with AtExecResult in both cases.
    const char* value_name = nullptr;
    bool traces_null = false;      // "AT_<name>, parameter error \n"
    bool traces_bad_type = false;  // "AT_<name>, type is error \n"
};

constexpr Command kWpdom{"WPDOM", "^WPDOM", "AT^WPDOM?", "^WPDOM:"};
constexpr Command kWpdim{"WPDIM", "^WPDIM", "AT^WPDIM?", "^WPDIM:", "start_type", true};
constexpr Command kWpcap{"WPCAP", "^WPCAP", "AT^WPCAP?", "^WPCAP:", "type", false, true};
constexpr Command kWgnss{"WGNSS", "^WGNSS", "AT^WGNSS?", "^WGNSS:"};
constexpr Command kWpqos{"WPQOS", "^WPQOS", "AT^WPQOS?", "^WPQOS:"};
constexpr Command kWpdst{"WPDST", "^WPDST", "AT^WPDST?", "^WPDST:"};
constexpr Command kWpdfr{"WPDFR", "^WPDFR", "AT^WPDFR?", "^WPDFR:"};
constexpr Command kWpurl{"WPURL", "^WPURL", "AT^WPURL?", "^WPURL:"};
constexpr Command kWpjam{"WPJAM", "^WPJAM", "AT^WPJAM?", "^WPJAM:", "type", true};
constexpr Command kCgdcont{"CGDCONT", "+CGDCONT", "AT+CGDCONT?", "+CGDCONT:"};
constexpr Command kSocketcont{"SOCKETCONT", "^SOCKETCONT", "AT^SOCKETCONT?", "^SOCKETCONT:"};
constexpr Command kAuthdata{"AUTHDATA", "^AUTHDATA", "AT^AUTHDATA?", "^AUTHDATA:"};
constexpr Command kDconnshadow{"DCONNSHADOW", "^DCONNSHADOW", nullptr, "^DCONNSHADOW:"};

// Lines of a context list the reply can hold at most (1499 characters).
constexpr int kMaxLines = 128;

void trace_error_reply(const Command& c, AT_AMSS_RES result) {
    if (c.value_name) ATS_TRACE(ERROR, "AT_%s, AtExecResult=%d, error\n", c.name, static_cast<int>(result));
    else ATS_TRACE(ERROR, "%s=%d, error\n", c.name, static_cast<int>(result));
}

// Stores the fields of the reply row to read: the first row, or with `cid` the first reply line
// whose cid is that number. False when the reply does not parse or has no such line.
bool read_row(Request& req, const char* row, std::optional<int> cid, std::initializer_list<Binding> fields) {
    const std::span<const Binding> bindings(fields.begin(), fields.size());
    if (!cid) {
        ParseTree tree = req.parse(row, AT_FUNCTION_GPS_CFG);
        if (tree) atapi::store_fields(tree.row(), bindings);
        return static_cast<bool>(tree);
    }
    const atapi::Pieces lines(req.report(), row, kMaxLines);
    for (char* line : lines) {
        // A line's own CR LF would otherwise end its last value.
        line[std::strcspn(line, "\r\n")] = '\0';
        ParseTree tree = atapi::parse_text(line, row, AT_FUNCTION_GPS_CFG);
        const Field id = tree ? tree.row().find("cid") : Field{};
        if (id && *id.value() && test_str_num(id.value()) == 0 && id.number() == *cid) {
            atapi::store_fields(tree.row(), bindings);
            return true;
        }
    }
    return false;
}

// The query half: -1 on every failure, an error reply mapped into the record first.
int check(const Command& c, AT_AMSS_RES& result, std::optional<int> cid, std::initializer_list<Binding> fields) {
    Request req{c.query, c.match};
    if (req.exchange()) return -1;
    if (req.is_error_report()) {
        result = Error_str_to_id(req.report());
        trace_error_reply(c, result);
        return -1;
    }
    if (!req.ok() || !read_row(req, c.row, cid, fields)) return -1;
    result = AT_CMD_RES_SUCCESS;
    return 0;
}

// The set half, on a line already formatted: the exchange's own code when it fails.
int set(const Command& c, Request& req, AT_AMSS_RES& result, int value) {
    req.set_match(c.match);
    if (int rc = req.exchange()) return rc;
    if (req.ok()) {
        result = AT_CMD_RES_SUCCESS;
        return 0;
    }
    if (req.is_error_report()) {
        result = Error_str_to_id(req.report());
        trace_error_reply(c, result);
    } else if (c.value_name) {
        ATS_TRACE(ERROR, "AT_%s, %s=%d, error\n", c.name, c.value_name, value);
    } else {
        ATS_TRACE(ERROR, "%s=%d, error\n", c.name, static_cast<int>(result));
    }
    return -1;
}

// A settable command: `query` runs the query half, `format` writes the set line (false refuses
// it, and the record stays as the caller left it), `value` gives the set value that the traces of
// AT_WPDIM's kind show.
template <typename Rec, typename Query, typename Format>
int settable(const Command& c, int cmd_type, Rec* rec, Query query, Format format,
             int (*value)(const Rec&) = nullptr) {
    ATS_TRACE(INFO, "Enter AT_%s", c.name);
    if (!rec) {
        if (c.traces_null) ATS_TRACE(ERROR, "AT_%s, parameter error \n", c.name);
        return -1;
    }
    Request req;
    if (cmd_type == AT_SET_VALUE && !format(req)) return -1;
    rec->AtExecResult = AT_CMD_RES_ERR;
    if (cmd_type == AT_CHECK_VALUE) return query();
    if (cmd_type == AT_SET_VALUE) return set(c, req, rec->AtExecResult, value ? value(*rec) : 0);
    if (c.traces_bad_type) ATS_TRACE(ERROR, "AT_%s, type is error \n", c.name);
    return -1;
}

// A record's text up to its first NUL, never past its width.
template <std::size_t N>
std::string text_of(const char (&field)[N]) {
    return std::string(field, strnlen(field, N));
}

}  // namespace

extern "C" int AT_WPDOM(int cmdType, StWpDomInfo* wpdom) {
    return settable(
        kWpdom, cmdType, wpdom,
        [&] { return check(kWpdom, wpdom->AtExecResult, {}, {num("operation_mode", wpdom->oper_mode)}); },
        [&](Request& req) { return AT_FORMAT_CMD(req, 639, "AT^WPDOM=%d", wpdom->oper_mode); });
}

extern "C" int AT_WPDIM(int cmdType, StGpsStartType* wpdim) {
    return settable(
        kWpdim, cmdType, wpdim,
        [&] { return check(kWpdim, wpdim->AtExecResult, {}, {num("mode", wpdim->start_type)}); },
        [&](Request& req) { return AT_FORMAT_CMD(req, 639, "AT^WPDIM=%d", wpdim->start_type); },
        +[](const StGpsStartType& r) { return r.start_type; });
}

extern "C" int AT_WPCAP(int cmdType, StGpsTypes* gps_types) {
    return settable(
        kWpcap, cmdType, gps_types,
        [&] { return check(kWpcap, gps_types->AtExecResult, {}, {num("gps_type", gps_types->type)}); },
        [&](Request& req) { return AT_FORMAT_CMD(req, 639, "AT^WPCAP=%d", gps_types->type); },
        +[](const StGpsTypes& r) { return r.type; });
}

extern "C" int AT_WGNSS(int cmdType, StWGnssInfo* pdsystem) {
    return settable(
        kWgnss, cmdType, pdsystem,
        [&] { return check(kWgnss, pdsystem->AtExecResult, {}, {num("pd_system", pdsystem->pos_sys)}); },
        [&](Request& req) { return AT_FORMAT_CMD(req, 639, "AT^WGNSS=%d", pdsystem->pos_sys); });
}

extern "C" int AT_WPQOS(int cmdType, StWPQosInfo* qos) {
    return settable(
        kWpqos, cmdType, qos,
        [&] {
            return check(kWpqos, qos->AtExecResult, {},
                         {num("performance", qos->performance), num("accuracy", qos->accuracy)});
        },
        // The blank after the comma is the modem's documented form; kept as it is.
        [&](Request& req) { return AT_FORMAT_CMD(req, 639, "AT^WPQOS=%d, %d", qos->performance, qos->accuracy); });
}

extern "C" int AT_WPDST(int cmdType, StWpDstSession* ses_type) {
    return settable(
        kWpdst, cmdType, ses_type,
        [&] { return check(kWpdst, ses_type->AtExecResult, {}, {num("session_type", ses_type->type)}); },
        [&](Request& req) { return AT_FORMAT_CMD(req, 639, "AT^WPDST=%d", ses_type->type); });
}

extern "C" int AT_WPDFR(int cmdType, StWpDfr* freq) {
    return settable(
        kWpdfr, cmdType, freq,
        [&] { return check(kWpdfr, freq->AtExecResult, {}, {num("number", freq->number), num("time", freq->time)}); },
        [&](Request& req) { return AT_FORMAT_CMD(req, 639, "AT^WPDFR=%d,%d", freq->number, freq->time); });
}

extern "C" int AT_WPURL(int cmdType, StWPURL* agps_ser) {
    return settable(
        kWpurl, cmdType, agps_ser,
        [&] { return check(kWpurl, agps_ser->AtExecResult, {}, {text("url", agps_ser->curr_address)}); },
        // Unquoted: a URL may not hold ';', which would start a second command.
        [&](Request& req) { return AT_FORMAT_CMD(req, 639, "AT^WPURL=%s", agps_ser->url_address); });
}

extern "C" int AT_WPJAM(int cmdType, StWpJDetection* jammingInfo) {
    return settable(
        kWpjam, cmdType, jammingInfo,
        [&] {
            return check(kWpjam, jammingInfo->AtExecResult, {},
                         {num("status", jammingInfo->status), num("threshold", jammingInfo->threshold)});
        },
        [&](Request& req) {
            return AT_FORMAT_CMD(req, 639, "AT^WPJAM=%d,%d", jammingInfo->status, jammingInfo->threshold);
        },
        +[](const StWpJDetection& r) { return r.status; });
}

// The two context commands differ only in their names and the width of the APN. `format` writes
// the set line from the record's texts.
template <typename Rec, typename Format>
int context(const Command& c, int cmd_type, Rec* ctx, Format format) {
    return settable(
        c, cmd_type, ctx,
        [&] {
            return check(c, ctx->AtExecResult, ctx->cid,
                         {text("pdp_type", ctx->pdp_type), text("apn", ctx->apn), text("ip_address", ctx->pdp_address),
                          num("d_comp", ctx->d_comp), num("h_comp", ctx->h_comp)});
        },
        [&](Request& req) {
            return format(req, text_of(ctx->pdp_type).c_str(), text_of(ctx->apn).c_str(),
                          text_of(ctx->pdp_address).c_str());
        });
}

extern "C" int AT_CGDCONT(int cmdType, StCGDCONT* pdpContext) {
    return context(kCgdcont, cmdType, pdpContext, [&](Request& req, const char* type, const char* apn, const char* addr) {
        return AT_FORMAT_CMD(req, 639, "AT+CGDCONT=%d,\"%s\",\"%s\",\"%s\",%d,%d", pdpContext->cid, type, apn, addr,
                             pdpContext->d_comp, pdpContext->h_comp);
    });
}

extern "C" int AT_SOCKETCONT(int cmdType, StSOCKETCONT* pdpContext) {
    return context(kSocketcont, cmdType, pdpContext, [&](Request& req, const char* type, const char* apn, const char* addr) {
        return AT_FORMAT_CMD(req, 639, "AT^SOCKETCONT=%d,\"%s\",\"%s\",\"%s\",%d,%d", pdpContext->cid, type, apn,
                             addr, pdpContext->d_comp, pdpContext->h_comp);
    });
}

extern "C" int AT_AUTHDATA(int cmdType, StAUTHDATA* authInfo) {
    return settable(
        kAuthdata, cmdType, authInfo,
        [&] {
            return check(kAuthdata, authInfo->AtExecResult, authInfo->cid,
                         {num("auth_type", authInfo->auth_type), text("passwd", authInfo->passwd),
                          text("username", authInfo->username), num("plmn", authInfo->PLMN)});
        },
        [&](Request& req) {
            const std::string passwd = text_of(authInfo->passwd), user = text_of(authInfo->username);
            return AT_FORMAT_CMD(req, 639, "AT^AUTHDATA=%d,%d,\"%d\",\"%s\",\"%s\"", authInfo->cid,
                                 authInfo->auth_type, authInfo->PLMN, passwd.c_str(), user.c_str());
        });
}

extern "C" int AT_DCONNSHADOW(int cmdType, StDCONNSHADOW* pDconnValue) {
    return settable(
        kDconnshadow, cmdType, pDconnValue, [] { return -1; },  // there is no query form
        [&](Request& req) {
            return AT_FORMAT_CMD(req, 639, "AT^DCONNSHADOW=%d,%d,%d", pDconnValue->dialType, pDconnValue->cid,
                                 pDconnValue->enable);
        });
}

extern "C" int AT_GPSTYPE(StGpsTypes* gps_types) {
    if (!gps_types) return -1;
    // Not one of the settable kind: an error reply is the record's answer and the call succeeds.
    Request req{"AT^GPSTYPE?", "^GPSTYPE:"};
    return AT_QUERY(req, {.name = "^GPSTYPE", .table = AT_FUNCTION_GPS_CFG, .on_error = OnError::map,
                          .result = &gps_types->AtExecResult},
                    {num("gps_type", gps_types->type)});
}

namespace {

// Starts or ends a session; the error trace shows the final result, or the failed exchange's code.
int session(const char* cmd, const char* match, const char* name) {
    Request req{cmd, match};
    const int rc = req.exchange();
    if (rc != 0 || !req.ok()) {
        ATS_TRACE(ERROR, "%s error= %d \n", name, rc != 0 ? rc : req.result());
        return rc != 0 ? rc : -1;
    }
    ATS_TRACE(INFO, "%s  Success\n", name);
    return 0;
}

}  // namespace

extern "C" int AT_WPDGP(void) { return session("AT^WPDGP", "^WPDGP:", "WPDGP"); }

extern "C" int AT_WPEND(void) { return session("AT^WPEND", "^WPEND:", "WPEND"); }

extern "C" int AT_DCONNSTAT(int cmdType, StCONNSTAT* pout) {
    if (!pout || cmdType != AT_CHECK_VALUE) return -1;
    Request req{"AT^DCONNSTAT?", "^DCONNSTAT:"};
    if (int rc = req.exchange()) return rc;
    if (!req.ok()) {
        if (req.map_error(pout->AtExecResult) != 0) return -1;
        ATS_TRACE(ERROR, "ierrornum = <%d>\r\n", static_cast<int>(pout->AtExecResult));
        return 0;
    }
    if (!read_row(req, "^DCONNSTAT", pout->cid,
                  {num("ipv4_stat", pout->ipv4_stat), num("ipv6_stat", pout->ipv6_stat),
                   num("dconn_type", pout->dconn_type)}))
        return -1;
    pout->AtExecResult = AT_CMD_RES_SUCCESS;
    return 0;
}

extern "C" int AT_ANTCFG(int cmdType, antcfg* antcfg_info) {
    if (!antcfg_info) return -1;
    Request req{cmdType == 3 ? "AT^ANTCFG" : nullptr, nullptr};
    bool formatted = cmdType == 3;
    if (cmdType == AT_SET_VALUE && antcfg_info->interval == 0)
        formatted = AT_FORMAT_CMD(req, 639, "AT^ANTCFG=%d", antcfg_info->mode);
    else if (cmdType == AT_SET_VALUE)
        formatted = AT_FORMAT_CMD(req, 639, "AT^ANTCFG=%d,%d", antcfg_info->mode, antcfg_info->interval);
    antcfg_info->AtExecResult = AT_CMD_RES_BUSY;
    if (!formatted) return -1;
    if (req.exchange()) {
        ATS_TRACE(ERROR, "send cmd fail\n");
        return -1;
    }
    if (!req.ok()) {
        ATS_TRACE(ERROR, "ANTCFG error\n");
        return -1;
    }
    antcfg_info->AtExecResult = AT_CMD_RES_SUCCESS;
    return 0;
}
