// test_operators_e2e.cpp - operator selection, network names, the clock and the radio
// configuration through real modemsim and atserver (the built-in default scenario); a caller
// queued behind a long operator search; and atctl's operators, radio and time subcommands.
#include <gtest/gtest.h>
#include <sys/msg.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "e2e/harness.h"
#include "test_atctl.h"
#include "test_network_support.h"
#include "trace_capture.h"

using atapi_test::fields;
using namespace std::chrono_literals;

namespace {

template <size_t N>
void put(char (&field)[N], const std::string& s) {
    std::memcpy(field, s.c_str(), std::min(s.size() + 1, N));
}

std::string select(const char* mode, const char* format, const char* name, const char* rat = "") {
    NetChooseOperatorParam p{};
    put(p.Mode, mode), put(p.Format, format), put(p.OperatorName, name), put(p.Rat, rat);
    NetChooseOperatorResult r{};
    const int rc = AT_ChoseOperators(1, &p, &r);
    return std::to_string(rc) + "," + std::to_string(r.AtExeResult);
}

std::string cops() {
    NetChooseOperatorParam p{};
    const int rc = AT_Cops(&p);
    return std::to_string(rc) + ":" + fields(p.Mode, p.Format, p.OperatorName, p.Rat);
}

std::string creg_stat() {
    LacCellid r{};
    return AT_Creg(0, &r) == 0 ? std::to_string(r.stat) : "failed";
}

std::string sysmode() {
    SysinfoEx r{};
    return AT_SysinfoexCommand(&r) == 0 ? fields(r.SysMode, r.SysModeName, r.RoamStatus) : "failed";
}

std::string syscfgex() {
    NetConfigurationTypeEx r{};
    const int rc = AT_SysConfigEx(0, &r);
    return std::to_string(rc) + ":" + fields(r.Acqorder, r.Band, r.Roam, r.Srvdomain, r.lteBand);
}

std::string syscfg() {
    NetConfigurationType p{};
    NetConfigurationRes r{};
    const int rc = AT_SysConfig(0, &p, &r);
    return std::to_string(rc) + ":" + fields(r.Mode, r.Acqorder, r.Band, r.Roam, r.Srvdomain);
}

// Seconds between the modem's clock (universal time) and this host's.
long clock_skew() {
    ST_AT_TIME t{};
    if (AT_CCLK_CHECK(&t) != 0) return 1L << 30;
    std::tm tm{};
    tm.tm_year = t.stTimeInfo.tm_year - 1900;  // the library's year and month count as people do
    tm.tm_mon = t.stTimeInfo.tm_mon - 1;
    tm.tm_mday = t.stTimeInfo.tm_mday;
    tm.tm_hour = t.stTimeInfo.tm_hour;
    tm.tm_min = t.stTimeInfo.tm_min;
    tm.tm_sec = t.stTimeInfo.tm_sec;
    return std::labs(static_cast<long>(timegm(&tm) - std::time(nullptr)));
}

// Results joined by blanks, each call made before the next (unlike the operands of a '+').
std::string seq(std::initializer_list<std::string> parts) {
    std::string s;
    for (const std::string& p : parts) s += (s.empty() ? "" : " ") + p;
    return s;
}

struct Row {
    const char* what;
    std::function<std::string()> call;
    std::string want;
};

// One row per function group, in order: later rows see what earlier ones changed.
TEST(OperatorsE2e, DefaultScenario) {
    e2e::Stack stack;
    ASSERT_TRUE(stack.start());
    const std::vector<Row> rows = {
        {"registered operator", cops, "0:0,0,Example Net,7"},
        {"search", [] {
             OperatorList l{};
             NetChooseOperatorResult r{};
             r.TotalOper = &l;
             const int rc = AT_ChoseOperators(2, nullptr, &r);
             std::string s = std::to_string(rc) + "," + std::to_string(r.AtExeResult);
             for (int i = 0; i < l.OperatorNumber; ++i) s += "|" + fields(l.Operator[i].State, l.Operator[i].numeric, l.Operator[i].ShortAlphanumeric, l.Operator[i].Rat);
             return s;
         }, "0,-2|2,00101,EXNET,7|1,00102,SAMPLE,7|3,00103,DEMOTEL,2|1,99901,ROAMPRT,7"},
        {"manual selection by code moves the registration",
         [] { return seq({select("1", "2", "00102", "7"), cops(), creg_stat()}); }, "0,-2 0:1,0,Sample Mobile,7 5"},
        {"a forbidden network is refused", [] { return seq({select("1", "2", "00103"), cops()}); }, "0,-1 0:1,0,Sample Mobile,7"},
        {"a network abroad by long name",
         [] { return seq({select("1", "0", "Roam Partner"), creg_stat(), sysmode()}); }, "0,-2 5 6,LTE,1"},
        {"back to automatic", [] { return seq({select("0", "2", ""), cops(), creg_stat()}); }, "0,-2 0:0,0,Example Net,7 1"},
        {"deregistration", [] { return seq({select("2", "", ""), cops(), select("0", "", "")}); }, "0,-2 0:2,,, 0,-2"},
        {"names", [] {
             NetEonsResult e{}, other{};
             spnresult spn{};
             CpnnRsp cpnn{};
             NetCnwiOperatorParam cnwi{};
             const int rc = AT_Eons(1, nullptr, &e) + AT_Eons(1, "99901", &other) + AT_GetSpn(0, &spn) + AT_Cpnn(0, &cpnn) + AT_Cnwi(&cnwi);
             return std::to_string(rc) + "|" +
                    fields(e.plmn_id, e.plmn_long, e.plmn_short, e.spn_name) + "|" + fields(other.plmn_id, other.plmn_long) + "|" +
                    fields(spn.spn_name, spn.AtExeResult) + "|" + fields(cpnn.fullname, cpnn.shortname) + "|" + fields(cnwi.plmn_id);
         }, "0|00101,Example Net,EXNET,Example Net|99901,Roam Partner|Example Net,-2|Example Net,EXNET|00101"},
        {"the SIM's operator tables", [] {
             OplResList opl{};
             PnnPara all{0, -1}, one{0, 2}, none{0, 9};
             int n_all = 0, n_one = 0, n_none = 7;
             PnnRes *l_all = nullptr, *l_one = nullptr, *l_none = nullptr;
             const int rcs[] = {AT_GetOPList(0, &opl), AT_GetPnnList(&all, &n_all, &l_all), AT_GetPnnList(&one, &n_one, &l_one),
                                AT_GetPnnList(&none, &n_none, &l_none)};
             std::string s = std::to_string(rcs[0]) + ":" + std::to_string(opl.list_num);
             for (int i = 0; i < opl.list_num; ++i) s += "," + fields(opl.opl_list[i].numeric) + "/" + std::to_string(opl.opl_list[i].index_pnn);
             s += " " + std::to_string(rcs[1]) + ":" + std::to_string(n_all);
             for (int i = 0; i < n_all; ++i) s += "," + fields(l_all[i].full_name, l_all[i].short_name);
             s += " " + std::to_string(rcs[2]) + ":" + (n_one == 1 ? fields(l_one[0].full_name) : "none");
             s += " " + std::to_string(rcs[3]) + ":" + std::to_string(n_none);
             std::free(opl.opl_list), std::free(l_all), std::free(l_one);
             return s;
         }, "0:3,00101/1,00101/2,00102/1 0:2,Example Net,EXNET,Example Net Metro,EXNET M 0:Example Net Metro -1:0"},
        {"the clock runs on universal time", [] { ST_AT_TIME t{}; return seq({std::to_string(clock_skew() <= 120), std::to_string(AT_NWTime(&t))}); }, "1 -1"},
        {"radio configuration", [] { return seq({syscfgex(), syscfg()}); }, "0:00,3FFFFFFF,1,2,7FFFFFFFFFFFFFFF 0:2,0,3FFFFFFF,1,2"},
        {"WCDMA only through ^SYSCFGEX changes the system mode", [] {
             NetConfigurationTypeEx e{};
             put(e.Acqorder, "02"), put(e.Band, "400000"), put(e.Roam, "0"), put(e.Srvdomain, "1"), put(e.lteBand, "40000000");
             return seq({std::to_string(AT_SysConfigEx(1, &e)), syscfgex(), syscfg(), sysmode(), cops()});
         }, "0 0:02,400000,0,1,7FFFFFFFFFFFFFFF 0:14,0,400000,0,1 3,WCDMA,0 0:0,0,Example Net,2"},
        {"automatic again through ^SYSCFG, and refused settings", [] {
             NetConfigurationType p{};
             NetConfigurationRes r{};
             put(p.Mode, "2"), put(p.Acqorder, "2"), put(p.Band, "40000000"), put(p.Roam, "1"), put(p.Srvdomain, "4");
             std::string s = seq({std::to_string(AT_SysConfig(1, &p, &r)), syscfgex(), sysmode()});
             put(p.Mode, "7");
             const int rc = AT_SysConfig(1, &p, &r);
             s += " " + std::to_string(rc) + "," + std::to_string(r.AtExeResult);
             NetConfigurationTypeEx e{};
             put(e.Acqorder, "0404"), put(e.Band, "3FFFFFFF"), put(e.Roam, "1"), put(e.Srvdomain, "2"), put(e.lteBand, "1");
             return s + " " + std::to_string(AT_SysConfigEx(1, &e));
         }, "0 0:030201,400000,1,1,7FFFFFFFFFFFFFFF 6,LTE,0 0,-1 -1"},
        {"test forms", [] {
             SYSCFG_INFO a{};
             SYSCFGEX_INFO b{};
             const int rc = AT_Syscfg_test(&a) + AT_Syscfgex_test(&b);
             return std::to_string(rc) + ":" + fields(a.mode_num, a.acqorder_num, a.band_num) +
                    "," + fields(a.band[2].bandname, b.acqorder_num, b.band_num, b.LTEband_num, b.LTEband[5].bandnum);
         }, "0:4,4,5,WCDMA2100,5,1,6,7FFFFFFFFFFFFFFF"},
        {"switches set and read back", [] {
             LTERFInfo rf_in{0, 0};
             LTERFResult rf{};
             HOPARASETInfo ho_in{120, 110, 100, 6, 2, 1, 0};
             HOPARASETResult ho{};
             LTEMEASMODEInfo me_in{2, 0, AT_CMD_RES_SUCCESS};
             LTEMEASMODEResult me{};
             LTELCAInfo ca_in{EN_LTE_CA_MODE_DISABLE, AT_CMD_RES_SUCCESS};
             LTECAResult ca{};
             LMIMOCTRLResult mi{};
             CA_SWITCH_STATE sw = CA_SWITCH_INVALID_VALUE;
             int ims = 9;
             BANDPRIORITYRESULT bp{};
             bp.rat = 6, bp.band_num = 2, bp.band[0] = 3, bp.band[1] = 20;
             const int sets = AT_RFSwitch(1, &rf_in, &rf) + AT_HOPARASET(1, &ho_in, &ho) + AT_LTEMEASMODE(1, &me_in, &me) +
                              AT_LCACTRL(1, &ca_in, &ca) + AT_LMIMOCTRL(1, EN_LMIMOCTRL_DISABLE, &mi) + AT_SetCASwitch(CA_SWITCH_DISABLE) +
                              AT_SetImsswitch(0) + AT_Setbandpriority(&bp) + AT_FASTDORM(1, 5) + AT_SetNetscanctl(1);
             const int reads = AT_RFSwitch(0, nullptr, &rf) + AT_HOPARASET(0, nullptr, &ho) + AT_LTEMEASMODE(0, nullptr, &me) +
                               AT_LCACTRL(0, nullptr, &ca) + AT_LMIMOCTRL(0, EN_LMIMOCTRL_INIT, &mi) + AT_QueryCASwitch(&sw) + AT_QryImsswitch(&ims);
             return std::to_string(sets) + "," + std::to_string(reads) + "|" +
                    fields(rf.rf_state, ho.rsrp_thresh1, ho.sinr_thresh3, me.mode, ca.CA_state, mi.MIMO_state, sw, ims);
         }, "0,0|0,120,1,2,0,0,0,0"},
        {"network scan", [] {
             NETSCAN_RESULT r{};
             const int rc = At_Netscan(0, nullptr, &r);
             std::string s = std::to_string(rc) + ":" + std::to_string(r.cell_num);
             for (int i = 0; i < r.cell_num; ++i) s += "|" + fields(r.CellListInfo[i].cell_mcc, r.CellListInfo[i].cell_mnc, r.CellListInfo[i].cell_lac, r.CellListInfo[i].cell_id);
             std::free(r.CellListInfo);
             return s;
         }, "0:3|001,01,2513,C4E5F01|001,02,3A01,1B2C3D4|999,01,7E01,ABCDEF0"},
    };
    for (const Row& row : rows) EXPECT_EQ(row.call(), row.want) << row.what;
}

// Pending messages on a queue, or -1.
long pending(int qid) {
    msqid_ds ds{};
    return msgctl(qid, IPC_STAT, &ds) == 0 ? static_cast<long>(ds.msg_qnum) : -1;
}

// Whether a thread of this process sleeps in the library's reply wait: after its request went
// out, the wait is the first place where the exchange sleeps.
bool waiting_for_reply(long tid) {
    std::ifstream in("/proc/self/task/" + std::to_string(tid) + "/syscall");
    long nr = -1;
    return (in >> nr) && (nr == 35 /* nanosleep */ || nr == 230 /* clock_nanosleep */);
}

template <typename Pred>
bool eventually(Pred pred, std::chrono::milliseconds limit = 5s) {
    for (const auto end = std::chrono::steady_clock::now() + limit; std::chrono::steady_clock::now() < end;
         std::this_thread::sleep_for(5ms))
        if (pred()) return true;
    return pred();
}

// A search holds the modem for longer than +CSQ's 5 seconds. A +CSQ queued behind it fails
// cleanly when its time runs out; the same thread's next call, and a call of another thread with
// a longer limit, are answered after the search with their own replies; nothing is left over.
TEST(OperatorsE2e, QueuedBehindASearch) {
    e2e::Stack stack;
    stack.sim_options = {"--set", "search_ms=6000"};
    ASSERT_TRUE(stack.start());
    std::atomic<long> search_tid{0};
    std::atomic<int> search_rc{-9}, found{-1};
    std::thread searcher([&] {
        search_tid = static_cast<long>(syscall(SYS_gettid));
        OperatorList l{};
        NetChooseOperatorResult r{};
        r.TotalOper = &l;
        search_rc = AT_ChoseOperators(2, nullptr, &r);
        found = l.OperatorNumber;
    });
    const int request_q = ATS_get_msgQ_id(ATS_QUEUE_ID_RECV), reply_q = ATS_get_msgQ_id(ATS_QUEUE_ID_SEND);
    ASSERT_TRUE(eventually([&] { return search_tid != 0 && waiting_for_reply(search_tid) && pending(request_q) == 0; }));

    std::atomic<int> creg_rc{-9};
    std::thread other([&] { creg_rc = creg_stat() == "1" ? 0 : -1; });
    atapi_test::clear_traces();
    AT_CSQ_ST csq{};
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(AT_Csq(&csq), -1);
    const auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_GE(waited, 4s);  // it waited behind the search, not refused at once
    // Asked during the search still, answered after it.
    csq = {};
    EXPECT_EQ(AT_Csq(&csq), 0);
    EXPECT_EQ(fields(csq.rssi, csq.ber), "23,99");
    searcher.join();
    other.join();
    EXPECT_EQ(search_rc, 0);
    EXPECT_EQ(found, 4);
    EXPECT_EQ(creg_rc, 0);
    EXPECT_EQ(AT_Csq(&csq), 0);
    EXPECT_TRUE(eventually([&] { return pending(reply_q) == 0; })) << pending(reply_q) << " replies left over";
    // How the first call ended: the AT server's AT_CMD_TIMEOUT, or the library's own wait running out.
    RecordProperty("first_csq_ms", static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(waited).count()));
    RecordProperty("first_csq_end", atapi_test::has_trace("There is no Message in the queue!") ? "library wait" : "AT_CMD_TIMEOUT");
}

struct CliRow {
    std::vector<std::string> args;
    int exit;
    std::vector<std::string> lines;             // for people; one ending in '*' is a line's start
    std::vector<atctl_test::Field> json;        // of a second run, with --json
    std::string err;                            // a fragment of standard error
};

TEST(OperatorsE2e, Atctl) {
    e2e::Stack stack;
    ASSERT_TRUE(stack.start());
    std::time_t now = std::time(nullptr);
    std::tm utc{};
    gmtime_r(&now, &utc);
    const std::string year = std::to_string(utc.tm_year + 1900);
    const std::vector<CliRow> rows = {
        {{"operators"}, 0, {"  operator  Example Net", "  rat       E-UTRAN (7)", "  plmn      00101", "  short     EXNET"}, {}, ""},
        {{"operators", "search"}, 0, {"  found     4", "  00103     Demo Telecom (DEMOTEL), forbidden (3), UTRAN (2)"}, {},
         "searching for networks"},
        {{"operators", "select", "00102", "--rat", "7"}, 0, {}, {{"cops", "oper", "'Sample Mobile'"}, {"cops", "mode", "'1'"}},
         "registering on 00102"},
        {{"operators", "select", "00103"}, 1, {"  error     the modem answered an error: *"}, {}, ""},
        {{"operators", "select", "auto"}, 0, {"  mode      automatic (0)", "  operator  Example Net"}, {}, ""},
        {{"operators", "select", "1234"}, 2, {}, {}, "numeric operator code"},
        {{"radio"}, 0, {"  order      automatic (00)", "  roaming    allowed (1)"}, {}, ""},
        {{"radio", "set", "--mode", "gsm", "--bands", "300", "--roaming", "off"}, 0,
         {"  asked     order GSM (01), bands 300, roaming off", "  order      GSM (01)", "  bands      300", "  roaming    not allowed (0)"}, {}, ""},
        {{"radio", "set", "--mode", "lte,wcdma,gsm", "--bands", "3FFFFFFF", "--roaming", "on"}, 0, {},
         {{"syscfgex", "acqorder", "'030201'"}, {"syscfgex", "roam", "'1'"}}, ""},
        {{"radio", "set", "--mode", "5g"}, 2, {}, {}, "--mode takes"},
        {{"radio", "bands"}, 0, {"  400000         WCDMA2100", "  7FFFFFFFFFFFFFFF  All bands", "  orders            automatic (00), GSM (01), *"},
         {{"syscfg_test", "band_num", "5"}, {"syscfgex_test", "LTEband_num", "6"}, {"syscfgex_test", "LTEbandname_1", "'LTE BC1'"}}, ""},
        {{"time", "--zone", "+32"}, 0, {"  zone      GMT+08:00 (32 quarter hours, given)", "  utc       " + year + "/*"},
         {{"cclk", "year", year}, {"cclk", "zone_text", "'GMT+08:00'"}}, ""},
    };
    for (const CliRow& row : rows) {
        SCOPED_TRACE(::testing::PrintToString(row.args));
        for (const bool json : {false, true}) {
            if (json && row.json.empty()) continue;
            std::vector<std::string> args = row.args;
            if (json) args.insert(args.begin(), "--json");
            const atctl_test::CliRun r = atctl_test::run_atctl(args, stack.dir());
            EXPECT_EQ(r.exit, row.exit) << r.out << r.err;
            EXPECT_NE(r.err.find(row.err), std::string::npos) << r.err;
            if (json) atctl_test::expect_fields(atctl_test::parse_json(r.out).value_or(atctl_test::Json{}), row.json);
            else atctl_test::expect_lines(r, row.lines);
        }
    }
}

}  // namespace
