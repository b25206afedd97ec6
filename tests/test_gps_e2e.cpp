// Positioning, the datacard commands and data-flow statistics end to end: the library and atctl
// against modemsim's built-in default scenario, through a real atserver.
#include <gtest/gtest.h>

#include <charconv>
#include <functional>
#include <string>
#include <thread>

#include "e2e/harness.h"
#include "test_atctl.h"

namespace {

using namespace std::chrono_literals;
using atctl_test::CliRun;
using atctl_test::Json;

using e2e::eventually;

// One group of calls, true when every call gave what the group expects.
struct Row {
    const char* what;
    std::function<bool()> holds;
};
void expect_rows(const std::vector<Row>& rows) {
    for (const Row& r : rows) EXPECT_TRUE(r.holds()) << r.what;
}

// atctl's JSON output, or an empty object.
Json atctl_json(const e2e::Stack& stack, std::vector<std::string> args, int want_exit = 0) {
    args.insert(args.begin(), "--json");
    const CliRun r = atctl_test::run_atctl(args, stack.dir());
    EXPECT_EQ(r.exit, want_exit) << r.out << r.err;
    return atctl_test::parse_json(r.out).value_or(Json{});
}

uint64_t u64(const Json& text) {
    uint64_t v = 0;
    std::from_chars(text.text.data(), text.text.data() + text.text.size(), v);
    return v;
}

TEST(GpsE2E, PositioningAndDatacard) {
    e2e::Stack stack;
    stack.sim_options = {"--set", "gps_ttff=300"};
    ASSERT_TRUE(stack.start());
    static char url[] = "h.example.org:7276";
    expect_rows({
        {"settings read, set and read back", [] {
             StWpDomInfo dom{};
             StWPURL u{};
             StGpsTypes type{};
             const bool read = AT_WPDOM(0, &dom) == 0 && dom.oper_mode == 1 && AT_GPSTYPE(&type) == 0 && type.type == 1;
             dom.oper_mode = 3, u.url_address = url;
             return read && AT_WPDOM(1, &dom) == 0 && AT_WPURL(1, &u) == 0 && AT_WPURL(0, &u) == 0 &&
                    std::string(u.curr_address) == url && u.AtExecResult == AT_CMD_RES_SUCCESS;
         }},
        {"a session starts once, holds the settings and ends", [] {
             StGpsStartType dim{2, AT_CMD_RES_SUCCESS};
             return AT_WPDGP() == 0 && AT_WPDGP() == -1 && AT_WPDIM(1, &dim) == -1 &&
                    dim.AtExecResult == AT_CMD_RES_GPS_SESSION_ONGOING && AT_WPEND() == 0 && AT_WPDIM(1, &dim) == 0;
         }},
        {"contexts by cid", [] {
             StCGDCONT pdp{3, "IPV6", "gps.example", "", 0, 0, AT_CMD_RES_ERR}, back{};
             StAUTHDATA auth{2, 1, 101, "user", "pw", AT_CMD_RES_ERR};
             StCONNSTAT conn{};
             back.cid = conn.cid = 1;
             return AT_CGDCONT(1, &pdp) == 0 && AT_AUTHDATA(1, &auth) == 0 && (back.cid = 3, AT_CGDCONT(0, &back)) == 0 &&
                    std::string(back.apn) == "gps.example" && AT_DCONNSTAT(0, &conn) == 0 && conn.ipv4_stat == 0;
         }},
        {"antenna and shadow dial", [] {
             antcfg ant{2, 10, AT_CMD_RES_ERR};
             StDCONNSHADOW shadow{1, 1, 1, AT_CMD_RES_ERR};
             return AT_ANTCFG(1, &ant) == 0 && AT_ANTCFG(3, &ant) == 0 && AT_DCONNSHADOW(1, &shadow) == 0;
         }},
        {"datacard commands", [] {
             AT_ZTE_ZPAS_ST pas{};
             AT_ZTE_ZSNT_ST snt{NETWORK_PREF_WCDMA_ONLY, NETWORK_SELECT_LIMITIED, NETWORK_ACCESS_GSM_WCDMA, AT_CMD_RES_ERR}, back{};
             AT_ZTE_ZOPRT_ST oprt{POWER_MODE_LOW_POWER, AT_CMD_RES_ERR};
             AT_ZTE_ZUSIM_ST usim{};
             AT_ZTE_ZCDRUN_ST cd{CDMODE_DOWNLOAD_QUERY, AT_CMD_RES_ERR};
             return AT_ZTE_zcdrun(&cd) == 0 && AT_ZTE_zpas(&pas) == 0 && std::string(pas.network_type) == "LTE" &&
                    AT_ZTE_zsnt_config(&snt) == 0 && AT_ZTE_zsnt_read(&back) == 0 && back.enAccessMode == NETWORK_ACCESS_GSM_WCDMA &&
                    AT_ZTE_zoprt_config(&oprt) == 0 && AT_ZTE_zoprt_read(&oprt) == 0 && oprt.enPowerMode == POWER_MODE_LOW_POWER &&
                    AT_ZTE_zusim(&usim) == 0 && usim.enSimType == SIM_TYPE_USIM;
         }},
    });

    // atctl gps, one run per subcommand: start, a fix, the settings, stop.
    EXPECT_EQ(atctl_json(stack, {"gps", "start"})["wpdgp"]["session"].show(), "'started'");
    const Json fix = atctl_json(stack, {"gps", "fix", "--wait", "5"})["gpsfix"];
    EXPECT_EQ(fix["state"].show(), "'fix'");
    EXPECT_EQ(fix["time"].kind, Json::String);
    EXPECT_EQ(fix["accuracy_m"].kind, Json::Number);
    EXPECT_NEAR(fix["latitude_e6"].number, -26500000, 13500);  // on the ring of 1500 m round its centre
    std::this_thread::sleep_for(1100ms);  // a fix a second: the status below shows a newer one
    const Json status = atctl_json(stack, {"gps", "status"});
    atctl_test::expect_fields(status, {{"wpdom", "oper_mode", "3"}, {"wpqos", "accuracy", "50"},
                                       {"wpurl", "url", "'h.example.org:7276'"}, {"gpsfix", "state", "'fix'"}});
    // The vehicle moves at 60 km/h: a later fix has a later time and another position.
    const Json& later = status["gpsfix"];
    EXPECT_NE(later["time"].show(), fix["time"].show());
    EXPECT_TRUE(later["latitude_e6"].number != fix["latitude_e6"].number ||
                later["longitude_e6"].number != fix["longitude_e6"].number);
    EXPECT_EQ(atctl_json(stack, {"gps", "stop"})["wpend"]["session"].show(), "'ended'");
}

TEST(GpsE2E, Statistics) {
    e2e::Stack stack;
    // Firmware that knows only the bare query, a sent counter past 2^32, a quick download.
    stack.sim_options = {"--set", "flow_cid_form=0", "--set", "flow_total_tx=5000000000", "--set", "flow_rx_rate=1000000"};
    ASSERT_TRUE(stack.start());
    const auto flow = [] {
        dataflow d{};
        EXPECT_EQ(at_dataflow(&d), 0);
        return d;
    };
    expect_rows({
        {"the bare query answers for context 1", [&] {
             StDsflowqryInfo q{};
             const dataflow d = flow();
             return AT_Dsflowqry(1, &q) == -1 && d.total_tx_ds_counters == 5000000000u && d.total_rx_ds_counters == 0 &&
                    d.AtExeResult == AT_CMD_RES_SUCCESS;
         }},
        {"save and the report switch", [] {
             DsflowsaveRsp save{AT_CMD_RES_ERR};
             return AT_Dsflowsave(&save) == 0 && AT_DsflowrptEx(1, 1) == 0 && AT_Dsflowrpt(1) == -1;
         }},
    });
    ASSERT_EQ(e2e::exchange("AT^NDISDUP=1,1", "^NDISDUP").ret_val, AT_CMD_OK);
    EXPECT_TRUE(eventually([&] { return flow().last_rx_ds_counters > 0; }));

    // atctl stats: the counters past 2^32 and a current rate; then clear.
    const Json a = atctl_json(stack, {"stats", "--interval", "300"});
    EXPECT_GE(u64(a["dataflow"]["total_tx_bytes"]), 5000000000u);
    EXPECT_GT(a["rate"]["rx_bytes_per_s"].number, 0);
    EXPECT_EQ(a["rate"]["interval_ms"].kind, Json::Number);
    EXPECT_EQ(atctl_json(stack, {"stats", "clear"})["dsflowclr"]["cleared"].show(), "true");
    EXPECT_LT(flow().total_tx_ds_counters, 5000000000u);

    // Disconnected, the counters hold still: once the bearer is down, a counting tick later they
    // have not moved (standing still can only be seen over time).
    ASSERT_EQ(e2e::exchange("AT^NDISDUP=1,0", "^NDISDUP").ret_val, AT_CMD_OK);
    EXPECT_TRUE(eventually([] {
        AT_NDIS_STATUS_ST st{};
        return at_ndisstatqry_state(1, &st) == 0 && st.ipv4_status == AT_NDIS_STATUS_DISCONNECTED;
    }));
    const uint64_t held = flow().total_rx_ds_counters;
    std::this_thread::sleep_for(std::chrono::milliseconds(1200));
    EXPECT_EQ(flow().total_rx_ds_counters, held);
}

}  // namespace
