// ats_voice.cpp - the parsers of call event reports (^ORIG, ^CONF, ^CONN, ^CEND, +CLIP, +CCWA,
// ^CCWA, ^XLEMA, ^CSCHANNELINFO, ^CCALLSTATE).
//
// The voice service receives these lines by its own path and hands each to its parser, which
// fills the small call-service message the service passes on. No command is sent. The parsers
// take the report rows of the unsolicited-report table, so a line parses exactly as the service's
// other reports do.
#include <array>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "atapi/voice.h"
constexpr char kTraceSource[] = "src/ats_voice";
#include "frame.h"

using atapi::Binding;
using atapi::num;
using atapi::ParseTree;
using atapi::text;

static_assert(sizeof(CS_MSG_CEND_S) == 12 && offsetof(CS_MSG_CEND_S, ulDuration) == 4);
static_assert(offsetof(CS_MSG_XLEMA_S, ucCmdFrom) == 20 && offsetof(CS_MSG_XLEMA_S, ecallnum) == 22);

namespace {

struct FreeText {
    void operator()(char* p) const { std::free(p); }
};

// Parses `line` with the report row `name` and stores the fields `bind` names for the record;
// then the message header. The line is parsed in a copy of its own: the caller's text may be
// read-only or read by another thread meanwhile.
template <typename Rec, typename Bind>
int parse_report(const char* line, Rec* out, const char* name, const char* failure, Bind bind) {
    if (!line || !out) {
        ATS_TRACE(ERROR, "Input param is null!");
        return -1;
    }
    const std::size_t n = std::strlen(line);
    std::unique_ptr<char, FreeText> copy(static_cast<char*>(std::malloc(n + 1)));
    ParseTree tree;
    if (copy) {
        std::memcpy(copy.get(), line, n + 1);
        tree = atapi::parse_text(copy.get(), name, AT_FUNCTION_INITIATIVE_REPORT, AT_OPERATION_TYPE_OTHER);
    }
    if (!tree) {
        ATS_TRACE(ERROR, "%s", failure);
        return -1;
    }
    const auto fields = bind(*out);
    atapi::store_fields(tree.row(), fields);
    out->ucResult = 0;
    out->ucCmdFrom = 1;
    return 0;
}

// The id and type of the call-progress reports.
template <typename Rec>
std::array<Binding, 2> id_and_type(Rec& r) {
    return {num("call_id", r.ucCallId), num("call_type", r.ucTelType)};
}

std::array<Binding, 3> waiting_call(CS_MSG_CCWA_S& r) {
    return {text("number", r.call_number), num("type", r.call_type), num("class", r.call_class)};
}

}  // namespace

extern "C" int AtsOrigParse(char* pcRcvBuf, CS_MSG_ORIG_S* out) {
    return parse_report(pcRcvBuf, out, "^ORIG", "at_cmd_parse ORIG fail!", id_and_type<CS_MSG_ORIG_S>);
}

extern "C" int AtsConfParse(char* pcRcvBuf, CS_MSG_CONF_S* out) {
    return parse_report(pcRcvBuf, out, "^CONF", "at_cmd_parse CONF fail!",
                        [](CS_MSG_CONF_S& r) { return std::array<Binding, 1>{num("call_id", r.ucCallId)}; });
}

extern "C" int AtsConnParse(char* pcRcvBuf, CS_MSG_CONN_S* out) {
    const int rc = parse_report(pcRcvBuf, out, "^CONN", "at_cmd_parse CONN fail!", id_and_type<CS_MSG_CONN_S>);
    if (rc == 0) ATS_TRACE(INFO, "\n AtsConnParse=ucCallId=[%d]= \n", out->ucCallId);
    return rc;
}

extern "C" int AtsCendParse(char* pcRcvBuf, CS_MSG_CEND_S* out) {
    return parse_report(pcRcvBuf, out, "^CEND", "at_cmd_parse CEND fail!", [](CS_MSG_CEND_S& r) {
        return std::array<Binding, 4>{num("call_id", r.ucCallId), num("duration", r.ulDuration),
                                      num("end_status", r.ucEndCause), num("cc_cause", r.auCallCtlCause)};
    });
}

extern "C" int AtsClipParse(char* pcRcvBuf, CS_MSG_CLIP_S* out) {
    // The subaddress and alpha fields are parsed but not kept.
    return parse_report(pcRcvBuf, out, "+CLIP", "at_cmd_parse CLIP fail!", [](CS_MSG_CLIP_S& r) {
        return std::array<Binding, 3>{text("call_num", r.aucTelNum), num("call_type", r.ucTelType),
                                      num("cli_validity", r.ucCliFlag)};
    });
}

extern "C" int AtsCcwaParse(char* pcRcvBuf, CS_MSG_CCWA_S* out) {
    return parse_report(pcRcvBuf, out, "+CCWA", "at_cmd_parse CCWA fail!", waiting_call);
}

extern "C" int AtsCcwaImsParse(char* pcRcvBuf, CS_MSG_CCWA_S* out) {
    return parse_report(pcRcvBuf, out, "^CCWA", "at_cmd_parse CCWA fail!", waiting_call);
}

extern "C" int AtsXlemaParse(char* pcRcvBuf, CS_MSG_XLEMA_S* out) {
    // abnormal_service is not kept.
    return parse_report(pcRcvBuf, out, "^XLEMA", "at_cmd_parse XLEMA fail!", [](CS_MSG_XLEMA_S& r) {
        return std::array<Binding, 6>{num("index", r.index),          num("total", r.total),
                                      text("ecc_num", r.ecallnum),    num("category", r.ecalltype),
                                      num("simpresent", r.simpresent), num("mcc", r.mcc)};
    });
}

extern "C" int at_cschaninfo_parse(char* pcRcvBuf, CS_MSG_CSCHANINFO_S* out) {
    return parse_report(pcRcvBuf, out, "^CSCHANNELINFO", "at_cmd_parse CSCHANNELINFO fail!",
                        [](CS_MSG_CSCHANINFO_S& r) {
                            return std::array<Binding, 2>{num("status", r.status), num("voice_domain", r.voiceDomain)};
                        });
}

extern "C" int AtsCallStateParse(char* pcRcvBuf, CS_MSG_CALLSTATE_S* out) {
    return parse_report(pcRcvBuf, out, "^CCALLSTATE", "at_cmd_parse CCALLSTATE fail!", [](CS_MSG_CALLSTATE_S& r) {
        return std::array<Binding, 3>{num("call_id", r.ucCallId), num("state", r.ucCallState),
                                      num("voice_domain", r.ucVoice_domain)};
    });
}
