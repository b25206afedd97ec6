// Call control against the scripted fake AT server, and the call event parsers as pure functions.
#include <cstring>
#include <functional>
#include <string>
#include <tuple>

#include "test_network_support.h"
#include "trace_capture.h"

using namespace atapi_test;

namespace {

constexpr int kOk = AT_CMD_RES_SUCCESS;

// ---- Commands whose reply is only a final result ---------------------------------------------------

TEST(Call, SimpleCommands) {
    const std::pair<const char*, int (*)()> rows[] = {
        {"ATD+15550100;", [] { return AT_D("+15550100"); }},
        {"ATD*#06#;", [] { return AT_D("*#06#"); }},
        {"ATA", [] { return AT_A(); }},
        {"AT+CHUP", [] { return AT_CHUP(); }},
        {"AT+CHLD=23", [] { return AT_CHLD(ATS_OPERATE_TWO_3); }},
        {"AT+CHLD=3", [] { return AT_CHLD(static_cast<ATS_HOLD_OPERATE_VALUE>(3)); }},
        {"AT+CLIP=1", [] { return AT_CLIP(ATS_CALL_ID_ENABLE); }},
        {"AT+CSSN=1,0", [] { ats_supple_notification_info n{1, 0}; return AT_CSSN(&n); }},
        // The data upload leaves its result field alone.
        {"AT^ECLMSD=\"0A1B2C\"", [] { char d[] = "0A1B2C"; st_ecl_msd m{d, AT_CMD_RES_BUSY};
                                        return AT_Ecl_Msd(&m) + (m.at_exe_result == AT_CMD_RES_BUSY ? 0 : 99); }},
        {"AT^ECLMSD=\"\"", [] { st_ecl_msd m{nullptr, AT_CMD_RES_ERR}; return AT_Ecl_Msd(&m); }},
        {"AT^ECLSTOP", [] { return AT_Ecl_Stop(); }},
        {"AT^ECLPUSH", [] { return AT_Ecl_Push(); }},
    };
    const Reply replies[] = {ok(), cme("+CME ERROR: 3"), result(AT_ERROR), result(AT_NO_CARRIER), result(AT_BUSY_R)};
    FakeAtServer ats;
    for (const auto& [line, call] : rows) {
        for (const Reply& reply : replies) {
            SCOPED_TRACE(testing::Message() << line << " answered " << reply.ret_val);
            ats.clear_requests();
            ats.reply(reply);
            EXPECT_EQ(call(), reply.ret_val == AT_CMD_OK ? 0 : -1);
            ASSERT_EQ(ats.count(), 1u);
            expect_wire(ats.last(), {line, "", 30});
        }
    }
}

// Settings whose record has a result field: the return code * 1000 + the field, per reply.
TEST(Call, SettingsWithResultFields) {
    const int busy_kept = -1000 + AT_CMD_RES_BUSY, failed = -1000 + AT_CMD_RES_ERR;
    struct Row {
        const char* line;
        int (*call)();
        int after_ok, after_cme, after_error;
    };
    const Row rows[] = {
        {"AT^ECLCFG=1,0,2", [] { st_ecl_cfg r{1, 0, 2, AT_CMD_RES_BUSY}; return AT_Ecl_Cfg(&r) * 1000 + r.at_exe_result; },
         kOk, busy_kept, busy_kept},
        {"AT^ECLSTART=1,2,\"+15550112\",0", [] { st_ecl_start r{1, 2, 0, "+15550112", AT_CMD_RES_BUSY};
                                                  return AT_Ecl_Start(&r) * 1000 + r.at_exe_result; },
         kOk, busy_kept, busy_kept},
        {"AT+CMIC=12", [] { st_mic_vol r{12, AT_CMD_RES_BUSY}; return AT_CMIC(AT_SET_VALUE, &r) * 1000 + r.at_exe_result; },
         kOk, busy_kept, busy_kept},
        {"AT^NSSWITCH=1", [] { StNsswitchInfo r{1, AT_CMD_RES_BUSY}; return AT_NSSWITCH(1, &r) * 1000 + r.AtExecResult; },
         kOk, AT_CMD_RES_SIM_BUSY, failed},
        {"AT^ECHOEX=1,2,3,4,5", [] { StEchoexInfo r{1, 2, 3, 4, 5, AT_CMD_RES_BUSY}; return AT_ECHOEX(1, &r) * 1000 + r.AtExecResult; },
         kOk, AT_CMD_RES_SIM_BUSY, failed},
        {"AT^PCMFR=\"16000\"", [] { StPcmfrInfo r{"16000", AT_CMD_RES_BUSY}; return AT_PCMFR(1, &r) * 1000 + r.AtExecResult; },
         kOk, AT_CMD_RES_SIM_BUSY, failed},
    };
    FakeAtServer ats;
    for (const Row& row : rows) {
        for (const auto& [reply, want] : {std::pair{ok(), row.after_ok}, {cme("+CME ERROR: 14"), row.after_cme},
                                          {result(AT_ERROR), row.after_error}}) {
            SCOPED_TRACE(testing::Message() << row.line << " answered " << reply.ret_val);
            ats.clear_requests();
            ats.reply(reply);
            EXPECT_EQ(row.call(), want);
            ASSERT_EQ(ats.count(), 1u);
            EXPECT_EQ(ats.last().cmd, row.line);
        }
    }
}

// ---- Read-or-set integers -------------------------------------------------------------------------

TEST(Call, ReadOrSetIntegers) {
    struct Row {
        int (*fn)(AT_OPERATE_VALUE, int*);
        const char *read, *reply_name, *set;
    };
    const Row rows[] = {
        {AT_CMUT, "AT+CMUT?", "+CMUT", "AT+CMUT=1"},
        {AT_SMUT, "AT^SMUT?", "^SMUT", "AT^SMUT=1"},
        {AT_CLVL, "AT+CLVL?", "+CLVL", "AT+CLVL=1"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.read);
        const std::string name = row.reply_name;
        run<int>({row.read, "", 30}, [&](int* v) { return row.fn(AT_CHECK_VALUE, v); }, [](int v) { return fields(v); }, {
            {"value",          ok(name + ": 4"),       0, "4"},
            {"no value kept",  ok(name + ":"),         0, ""},
            {"other name",     ok("+XYZ: 4"),         -1, ""},
            {"CME not mapped", cme("+CME ERROR: 3"),  -1, ""},
        });
        run<int>({row.set, "", 30}, [&](int* v) { *v = 1; return row.fn(AT_SET_VALUE, v); }, [](int v) { return fields(v); }, {
            {"OK",    ok(),                   0, "1"},
            {"error", cme("+CME ERROR: 3"),  -1, "1"},
        });
    }
    run<st_mic_vol>({"AT+CMIC?", "", 30}, [](st_mic_vol* r) { return AT_CMIC(AT_CHECK_VALUE, r); },
                    [](auto& r) { return fields(r.level, r.at_exe_result); }, {
        {"level",       ok("+CMIC: 9"),     0, "9," + std::to_string(kOk)},
        {"plain error", result(AT_ERROR), -1, ""},
        {"unparsable",  ok("9"),          -1, ""},
    });
}

TEST(Call, AutoAnswerRegister) {
    run<int>({"ATS0?", "", 30}, [](int* v) { return AT_S0(AT_CHECK_VALUE, v); }, [](int v) { return fields(v); }, {
        {"plain number",  ok("2"),               0, "2"},
        {"padded",        ok("005"),             0, "5"},
        {"empty reply",   ok(""),               -1, ""},
        {"plain error",   result(AT_ERROR),     -1, ""},
    });
    run<int>({"ATS0=3", "", 30}, [](int* v) { *v = 3; return AT_S0(AT_SET_VALUE, v); }, [](int v) { return fields(v); }, {
        {"OK",    ok(),             0, "3"},
        {"error", result(AT_ERROR), -1, "3"},
    });
}

// ---- Vendor audio settings --------------------------------------------------------------------------

TEST(Call, AudioSettingReads) {
    const std::string err = std::to_string(AT_CMD_RES_ERR), ok_ = std::to_string(kOk);
    run<StNsswitchInfo>({"AT^NSSWITCH?", "^NSSWITCH:", 30}, [](StNsswitchInfo* r) { return AT_NSSWITCH(0, r); },
                        [](auto& r) { return fields(r.switch_mode, r.AtExecResult); }, {
        {"value",            ok("^NSSWITCH: 1"),      0, "1," + ok_},
        {"CME mapped",       cme("+CME ERROR: 10"),   0, "?," + std::to_string(AT_CMD_RES_SIM_FAIL)},
        {"plain error",      result(AT_ERROR),       -1, "?," + err},
        {"OK, unparsable",   ok("1"),                -1, "?," + ok_},
    });
    run<StEchoexInfo>({"AT^ECHOEX?", "^ECHOEX:", 30}, [](StEchoexInfo* r) { return AT_ECHOEX(0, r); },
                      [](auto& r) { return fields(r.echo_enable, r.echo_time, r.echo_single_len, r.echo_single_dec_str,
                                                  r.echo_double_dec_str, r.AtExecResult); }, {
        {"short reply", ok("^ECHOEX: 0,32"),    0, "0,32,?,?,?," + ok_},
        {"CMS mapped",  cms("+CMS ERROR: 311"), 0, "?,?,?,?,?," + std::to_string(AT_CMD_RES_PIN_REQ)},
    });
    run<StPcmfrInfo>({"AT^PCMFR?", "^PCMFR:", 30}, [](StPcmfrInfo* r) { return AT_PCMFR(0, r); },
                     [](auto& r) { return fields(r.pcmfr_info, r.AtExecResult); }, {
        {"text",       ok("^PCMFR: \"8000\""),                        0, "8000," + ok_},
        {"cut to 232", ok("^PCMFR: \"" + std::string(400, '7') + "\""), 0, std::string(232, '7') + "," + ok_},
        {"no carrier", result(AT_NO_CARRIER),                        -1, "?," + err},
    });
}

// ---- Call waiting, forwarding, the call list -------------------------------------------------------

std::string ccwa(const ccwa_config_info& r) {
    return fields(r.ccwa_count, r.check_info[0].ccwa_status, r.check_info[0].ccwa_class, r.check_info[9].ccwa_class, r.ret);
}

TEST(Call, CallWaiting) {
    auto with = [](int mode, int count = 0) {
        return [mode, count](ccwa_config_info* r) {
            r->mode = mode, r->ccwa_class = 1, r->ccwa_report = 0, r->ccwa_count = count;
            return AT_CCWA(r);
        };
    };
    std::string ten;
    for (int c = 1; c <= 12; ++c) ten += "+CCWA: 1," + std::to_string(c) + "\r\n";
    run<ccwa_config_info>({"AT+CCWA=,2,", "+CCWA", 30}, with(2), ccwa, {
        {"one class",            ok("+CCWA: 1,1"),              0, "1,1,1,?,?"},
        {"two classes",          ok("+CCWA: 0,1\r\n+CCWA: 1,2"), 0, "2,0,1,?,?"},
        {"at most ten of twelve", ok(ten),                      0, "10,1,1,10,?"},
        {"OK, unparsable",       ok("none"),                    0, "0,?,?,?,?"},
        {"CME not mapped",       cme("+CME ERROR: 3"),         -1, "0,?,?,?,?"},
    });
    run<ccwa_config_info>({"AT+CCWA=,2,", "+CCWA", 30}, with(2, 3), ccwa, {
        {"counts on from the caller's value", ok("+CCWA: 1,1"), 0, "4,1,1,?,?"},
    });
    const std::tuple<int, const char*> lines[] = {{0, "AT+CCWA=1,0,1"}, {1, "AT+CCWA=1,1,1"}, {3, "AT+CCWA?"}, {4, "AT+CCWA=0"}, {7, ""}};
    for (const auto& [mode, line] : lines)
        run<ccwa_config_info>({line, "", 30}, with(mode), ccwa, {
            {"OK, reply not read", ok("+CCWA: 1,1"),  0, "0,?,?,?,?"},
            {"error",              result(AT_ERROR), -1, "0,?,?,?,?"},
        });
    // The AT server answers an empty line from its memory-full report: OK with or without it.
    FakeAtServer ats;
    ats.reply(ok("^SMMEMFULL: \"SM\""));
    ccwa_config_info r{};
    r.mode = -1;
    clear_traces();
    EXPECT_EQ(AT_CCWA(&r), 0);
    EXPECT_EQ(count_trace("at cmd error \n"), 1u);
    EXPECT_EQ(r.ccwa_count, 0);
}

std::string ccfc(const ccfc_forwarding_info& r) {
    const ccfc_check_info &a = r.check_info[0], &b = r.check_info[1];
    return fields(r.check_count, a.check_status, a.check_class, a.check_number, a.check_type, a.check_time, b.check_status,
                  b.check_number, r.check_info[9].check_class);
}

TEST(Call, CallForwarding) {
    auto with = [](int reason, int mode, int time) {
        return [=](ccfc_forwarding_info* r) {
            r->ccfc_reason = reason, r->ccfc_mode = mode, r->ccfc_type = 145, r->ccfc_class = 1, r->ccfc_time = time;
            r->check_count = 0;
            std::strcpy(r->ccfc_number, "+15550123");
            return AT_CCFC(r);
        };
    };
    std::string twelve;
    for (int c = 1; c <= 12; ++c) twelve += "+CCFC: 1," + std::to_string(c) + ",\"+1555\",145\r\n";
    run<ccfc_forwarding_info>({"AT+CCFC=2,2", "", 30}, with(2, 2, 0), ccfc, {
        {"active with time", ok("+CCFC: 1,1,\"+15550123\",145,,,20"), 0, "1,1,1,+15550123,145,20,?,?,?"},
        {"inactive keeps number, type, time", ok("+CCFC: 0,7,\"+15550123\",145,,,20"), 0, "1,0,7,?,?,?,?,?,?"},
        {"two entries", ok("+CCFC: 0,1\r\n+CCFC: 1,2,\"+15550177\",145"), 0, "2,0,1,?,?,?,1,+15550177,?"},
        {"number cut to 40", ok("+CCFC: 1,1,\"" + std::string(60, '5') + "\",129"), 0,
         "1,1,1," + std::string(40, '5') + ",129,?,?,?,?"},
        {"at most ten", ok(twelve), 0, "10,1,1,+1555,145,?,1,+1555,10"},
        {"OK, unparsable", ok("none"), 0, "0,?,?,?,?,?,?,?,?"},
        {"CME not mapped", cme("+CME ERROR: 30"), -1, "0,?,?,?,?,?,?,?,?"},
    });
    const std::tuple<int, int, int, const char*> sets[] = {
        {0, 3, 0, "AT+CCFC=0,3,\"+15550123\",145,1,,,"},
        {2, 3, 20, "AT+CCFC=2,3,\"+15550123\",145,1,,,20"},
        {4, 4, 0, "AT+CCFC=4,4,\"+15550123\",145,1,,,"},
    };
    for (const auto& [reason, mode, time, line] : sets)
        run<ccfc_forwarding_info>({line, "", 30}, with(reason, mode, time), ccfc, {
            {"OK, reply not read", ok("+CCFC: 1,1,\"+1\",145"),  0, "0,?,?,?,?,?,?,?,?"},
            {"error",              result(AT_ERROR),           -1, "0,?,?,?,?,?,?,?,?"},
        });
}

// The call list lies in front of guard bytes, so that a write past its 21 rows shows.
struct GuardedCalls {
    ats_current_call_info rows[21];
    char guard[64];
};

std::string calls(const GuardedCalls& g) {
    const ats_current_call_info &a = g.rows[0], &b = g.rows[1], &last = g.rows[20];
    return fields(a.call_id, a.call_dir, a.call_stat, a.call_mode, a.call_mpty, a.call_number, a.call_type, b.call_id,
                  b.call_stat, last.call_id, g.guard);
}

TEST(Call, CurrentCalls) {
    std::string many;
    for (int i = 1; i <= 22; ++i) many += "+CLCC: " + std::to_string(i) + ",1,4,0,0,\"+1555\",145\r\n";
    run<GuardedCalls>({"AT+CLCC", "+CLCC", 30}, [](GuardedCalls* g) { return AT_CLCC(g->rows); }, calls, {
        {"two calls", ok("+CLCC: 1,0,0,0,0,\"+15550100\",145\r\n+CLCC: 2,1,5,0,0,\"5550111\",129"), 0,
         "1,0,0,0,0,+15550100,145,2,5,?,?"},
        {"no calls: OK alone", ok(""), 0, ""},
        {"22 calls fill 21", ok(many), 0, "1,1,4,0,0,+1555,145,2,4,21,?"},
        {"short row", ok("+CLCC: 3,1,4"), 0, "3,1,4,?,?,?,?,?,?,?,?"},
        {"number cut to 40", ok("+CLCC: 1,1,4,0,0,\"" + std::string(90, '9') + "\",129"), 0,
         "1,1,4,0,0," + std::string(40, '9') + ",129,?,?,?,?"},
        {"names the list, does not parse", ok("+CLCC"), 0, ""},
        {"CME not mapped", cme("+CME ERROR: 3"), -1, ""},
    });
}

// ---- Refused before sending ---------------------------------------------------------------------------

TEST(Call, RefusedBeforeSending) {
    std::string long_text(700, '1');
    auto unterminated = [](auto& text) { std::memset(text, '5', sizeof text); };
    const std::vector<std::tuple<const char*, std::function<bool()>, const char*>> calls = {
        {"null number", [] { return AT_D(nullptr) == -1; }, ""},
        {"a dial string that chains a command", [] { return AT_D("+15550100;+CFUN=0") == -1; }, ""},
        {"a dial string with a line end", [] { return AT_D("+15550100\rAT+CFUN=0") == -1; }, ""},
        {"an over-long dial string", [&] { return AT_D(long_text.c_str()) == -1; }, ""},
        {"null notifications", [] { return AT_CSSN(nullptr) == -1; }, "AT cssn is NULL\n"},
        {"null eCall records", [] { return AT_Ecl_Cfg(nullptr) + AT_Ecl_Msd(nullptr) + AT_Ecl_Start(nullptr) == -3; }, ""},
        {"over-long data", [&] { st_ecl_msd m{long_text.data(), AT_CMD_RES_ERR}; return AT_Ecl_Msd(&m) == -1; }, ""},
        {"an eCall number that leaves its quotes", [] { st_ecl_start s{1, 1, 0, "112\",1", AT_CMD_RES_ERR};
                                                       return AT_Ecl_Start(&s) == -1 && s.at_exe_result == AT_CMD_RES_ERR; }, ""},
        {"an eCall number without its NUL", [&] { st_ecl_start s{}; unterminated(s.dial_num); return AT_Ecl_Start(&s) == -1; }, ""},
        {"null integers", [] { return AT_CMUT(AT_CHECK_VALUE, nullptr) + AT_SMUT(AT_SET_VALUE, nullptr) +
                                      AT_CLVL(AT_CHECK_VALUE, nullptr) == -3; }, "passing mode error\n"},
        {"unknown operations", [] { int v = 0; st_mic_vol m{};
                                    return AT_CMUT(AT_ENUM_MAX, &v) + AT_CLVL(static_cast<AT_OPERATE_VALUE>(-1), &v) +
                                           AT_CMIC(2, &m) + AT_S0(AT_ENUM_MAX, &v) == -4; }, "operate value error\n"},
        {"null microphone", [] { return AT_CMIC(0, nullptr) == -1; }, " AT_CMIC passing value error\n"},
        {"null register", [] { return AT_S0(AT_CHECK_VALUE, nullptr) == -1; }, "AT_S0 null pointer!\n"},
        {"audio: null and unknown type", [] { StNsswitchInfo n{}; StEchoexInfo e{}; StPcmfrInfo p{};
                                             return AT_NSSWITCH(0, nullptr) + AT_NSSWITCH(2, &n) + AT_ECHOEX(-1, &e) + AT_PCMFR(5, &p) == -4 &&
                                                    n.AtExecResult == AT_CMD_RES_ERR && p.AtExecResult == AT_CMD_RES_ERR; }, ""},
        {"a PCM setting that leaves its quotes", [] { StPcmfrInfo p{"8000\";+CFUN=0", AT_CMD_RES_BUSY};
                                                      return AT_PCMFR(1, &p) == -1 && p.AtExecResult == AT_CMD_RES_ERR; }, ""},
        {"a PCM setting without its NUL", [&] { StPcmfrInfo p{}; unterminated(p.pcmfr_info); return AT_PCMFR(1, &p) == -1; }, ""},
        {"null waiting", [] { return AT_CCWA(nullptr) == -1; }, "param passing is NULL\n"},
        {"null forwarding", [] { return AT_CCFC(nullptr) == -1; }, "param in ccfc is NULL\n"},
        {"a forwarding number that leaves its quotes", [] { ccfc_forwarding_info f{};
                                                           f.ccfc_mode = 3;
                                                           std::strcpy(f.ccfc_number, "+1555\",1,,,1");
                                                           return AT_CCFC(&f) == -1 && f.check_count == 0; }, ""},
        {"a forwarding number without its NUL", [&] { ccfc_forwarding_info f{}; unterminated(f.ccfc_number); return AT_CCFC(&f) == -1; }, ""},
        {"null call list", [] { return AT_CLCC(nullptr) == -1; }, "param passing is NULL\n"},
    };
    FakeAtServer ats;
    ats.respond([](const Request&) { return ok(); });
    for (const auto& [what, call, trace] : calls) {
        clear_traces();
        EXPECT_TRUE(call()) << what;
        EXPECT_EQ(ats.count(), 0u) << what;
        EXPECT_TRUE(!*trace || count_trace(trace) >= 1u) << what;
    }
}

TEST(Call, ServerGone) {
    FakeAtServer ats;
    ats.die();
    EXPECT_TRUE(fails_untouched<GuardedCalls>([](GuardedCalls* g) { return AT_CLCC(g->rows); }));
    EXPECT_EQ(AT_D("+15550100") + AT_A() + AT_CHUP(), -3);
}

// ---- Call event parsers ----------------------------------------------------------------------------------

// "rc: fields" of a sentinel-filled record after the parser ran on a copy of `line`; null
// arguments are refused first.
template <typename Rec, typename Show>
std::function<std::string(const std::string&)> parser(int (*fn)(char*, Rec*), Show show) {
    return [fn, show](const std::string& line) {
        std::string text = line;
        Rec r = sentinel<Rec>();
        if (fn(nullptr, &r) != -1 || fn(text.data(), nullptr) != -1 || !untouched(r)) return std::string("null taken");
        const int rc = fn(text.data(), &r);
        return std::to_string(rc) + ": " + (untouched(r) ? "untouched" : show(r));
    };
}

TEST(CallEvents, ReportTextToRecord) {
    const auto orig = parser(AtsOrigParse, [](auto& r) { return fields(r.ucCmdFrom, r.ucResult, r.ucCallId, r.ucTelType); });
    const auto conf = parser(AtsConfParse, [](auto& r) { return fields(r.ucCmdFrom, r.ucResult, r.ucCallId, r.ucTelType); });
    const auto conn = parser(AtsConnParse, [](auto& r) { return fields(r.ucCmdFrom, r.ucResult, r.ucCallId, r.ucTelType); });
    const auto cend = parser(AtsCendParse, [](auto& r) {
        return fields(r.ucCmdFrom, r.ucResult, r.ucCallId, r.ulDuration, r.ucEndCause, r.ucReserve, r.auCallCtlCause);
    });
    const auto clip = parser(AtsClipParse, [](auto& r) { return fields(r.ucCmdFrom, r.ucResult, r.aucTelNum, r.ucTelType, r.ucCliFlag); });
    const auto ccwa = parser(AtsCcwaParse, [](auto& r) { return fields(r.ucCmdFrom, r.ucResult, r.call_number, r.call_type, r.call_class); });
    const auto ims = parser(AtsCcwaImsParse, [](auto& r) { return fields(r.call_number, r.call_type, r.call_class); });
    const auto xlema = parser(AtsXlemaParse, [](auto& r) {
        return fields(r.index, r.total, r.ecallnum, r.ecalltype, r.simpresent, r.mcc, r.ucCmdFrom, r.ucResult);
    });
    const auto chan = parser(at_cschaninfo_parse, [](auto& r) { return fields(r.ucCmdFrom, r.ucResult, r.status, r.voiceDomain); });
    const auto state = parser(AtsCallStateParse, [](auto& r) { return fields(r.ucCallId, r.ucCallState, r.ucVoice_domain); });
    const std::string n40(40, '5');

    const std::vector<std::tuple<const char*, std::function<std::string(const std::string&)>, std::string, std::string>> rows = {
        {"origin", orig, "^ORIG: 1,0", "0: 1,0,1,0"},
        {"origin, id modulo 256", orig, "^ORIG: 300,2", "0: 1,0,44,2"},
        {"origin as received, with CR LF", orig, "\r\n^ORIG: 3,0\r\n", "0: 1,0,3,0"},
        {"origin, other report", orig, "^CONF: 1", "-1: untouched"},
        {"origin, no colon", orig, "^ORIG", "-1: untouched"},
        {"confirm leaves the type", conf, "^CONF: 4", "0: 1,0,4,?"},
        {"connect", conn, "^CONN: 1,0", "0: 1,0,1,0"},
        {"end", cend, "^CEND: 1,125,104,16", "0: 1,0,1,125,104,?,16"},
        {"end without its cause", cend, "^CEND: 2,0,29", "0: 1,0,2,0,29,?,?"},
        {"end, duration wraps", cend, "^CEND: 1,-1,0,0", "0: 1,0,1,4294967295,0,?,0"},
        {"caller number", clip, "+CLIP: \"+15550100\",145,,,,0", "0: 1,0,+15550100,145,0"},
        {"caller number, 31 of 40", clip, "+CLIP: \"" + n40 + "\",129,,,,1", "0: 1,0," + n40.substr(0, 31) + ",129,1"},
        {"caller number, withheld", clip, "+CLIP: \"\",128,,,,1", "0: 1,0,,128,1"},
        {"waiting call", ccwa, "+CCWA: \"+15550111\",145,1", "0: 1,0,+15550111,145,1"},
        {"waiting call, a query reply", ccwa, "+CCWA: 1,1", "0: 1,0,1,1,?"},
        {"IMS waiting call", ims, "^CCWA: \"+15550122\",145,1", "0: +15550122,145,1"},
        {"IMS parser, standard report", ims, "+CCWA: \"+15550122\",145,1", "-1: untouched"},
        {"emergency number", xlema, "^XLEMA: 1,3,\"112\",31,1,310,0", "0: 1,3,112,31,1,310,1,0"},
        {"emergency number, long", xlema, "^XLEMA: 2,3,\"" + n40 + "\",0,0,1", "0: 2,3," + n40.substr(0, 31) + ",0,0,1,1,0"},
        {"channel info", chan, "^CSCHANNELINFO: 1,2", "0: 1,0,1,2"},
        {"channel info, status 256", chan, "^CSCHANNELINFO: 256", "0: 1,0,0,?"},
        {"call state", state, "^CCALLSTATE: 1,2,1", "0: 1,2,1"},
        {"call state, garbage", state, "CCALLSTATE 1 2", "-1: untouched"},
    };
    for (const auto& [what, parse, line, want] : rows) EXPECT_EQ(parse(line), want) << what;
}

}  // namespace
