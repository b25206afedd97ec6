// Data-flow statistics against the scripted fake AT server: 64-bit counters read exactly from
// hexadecimal, the fallback to the bare query, clear, save and the report switch.
#include "test_gps_support.h"

using namespace atapi_test;

namespace {

constexpr int kOk = AT_CMD_RES_SUCCESS;

std::string counters(const StDsflowqryInfo& r) {
    return fields(r.last_ds_time, r.total_ds_time, r.last_tx_flow, r.last_rx_flow, r.total_tx_flow, r.total_rx_flow);
}

TEST(Stats, Query) {
    const std::vector<Case> cases = {
        {"above 2^32 and 2^64-1",
         ok("^DSFLOWQRY: 0000003C,0000000000A1B2C3,00000001FFFFFFFF,0001E240,FFFFFFFFFFFFFFFF,0000000100000000"), 0,
         "60,123456,10597059,8589934591,18446744073709551615,4294967296", kOk},
        {"times keep their low 32 bits", ok("^DSFLOWQRY: 100000005,0,0,FFFFFFFF00000007,0,0"), 0, "5,7,0,0,0,0", kOk},
        {"17 digits wrap",               ok("^DSFLOWQRY: 0,10000000000000001"),               0, "0,?,1,?,?,?", kOk},
        {"short reply keeps the rest",   ok("^DSFLOWQRY: a,b,c"),                            0, "10,?,11,12,?,?", kOk},
        {"not hexadecimal reads 0",      ok("^DSFLOWQRY: 3G,-1,\"ff\",0x10,,"),               0, "0,0,0,255,0,?", kOk},
        {"CME error not mapped",         cme("+CME ERROR: 3"),                               -1, ""},
        {"unparsable",                   ok("nothing"),                                      -1, ""},
    };
    run<StDsflowqryInfo>({"AT^DSFLOWQRY=1", "^DSFLOWQRY", 30}, [](auto* r) { return AT_Dsflowqry(1, r); }, counters, cases);
    run<StDsflowqryInfo>({"AT^DSFLOWQRY", "^DSFLOWQRY", 30}, [](auto* r) { return AT_Dsflowqry(-1, r); }, counters,
                         {cases.front()});
    run<StDsflowqryInfo>({"AT^DSFLOWQRY=-2", "^DSFLOWQRY", 30}, [](auto* r) { return AT_Dsflowqry(-2, r); }, counters,
                         {cases.back()});
}

// at_dataflow: the context form, the bare form when that fails, the record filled from either.
TEST(Stats, DataflowFallsBack) {
    const std::string full = "^DSFLOWQRY: 1E,1,100000000,3C,2,FFFFFFFFFFFFFFFF";
    const struct {
        const char* what;
        std::vector<Reply> replies;
        std::vector<std::string> lines;
        int rc;
        std::string want;
    } rows[] = {
        {"context form",       {ok(full)},                         {"AT^DSFLOWQRY=1"}, 0, "30,1,4294967296,60,2,18446744073709551615,-2"},
        {"bare form after ERROR", {result(AT_ERROR), ok(full)},    {"AT^DSFLOWQRY=1", "AT^DSFLOWQRY"}, 0,
         "30,1,4294967296,60,2,18446744073709551615,-2"},
        {"bare form reads short", {ok("junk"), ok("^DSFLOWQRY: 5")}, {"AT^DSFLOWQRY=1", "AT^DSFLOWQRY"}, 0, "5,0,0,0,0,0,-2"},
        {"both refused",       {result(AT_ERROR), cme("+CME ERROR: 4")}, {"AT^DSFLOWQRY=1", "AT^DSFLOWQRY"}, -1, ""},
    };
    FakeAtServer ats;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        ats.clear_requests();
        for (const Reply& r : row.replies) ats.reply(r);
        dataflow d = sentinel<dataflow>();
        EXPECT_EQ(at_dataflow(&d), row.rc);
        std::vector<std::string> sent;
        for (const Request& q : ats.requests()) sent.push_back(q.cmd);
        EXPECT_EQ(sent, row.lines);
        if (row.want.empty()) EXPECT_TRUE(untouched(d));
        else EXPECT_EQ(fields(d.last_ds_time, d.last_tx_ds_counters, d.last_rx_ds_counters, d.total_ds_time,
                              d.total_tx_ds_counters, d.total_rx_ds_counters, d.AtExeResult), row.want);
    }
}

TEST(Stats, ClearSaveAndReport) {
    const std::vector<Case> cases = {
        {"OK",                   ok(),                  0, "-2", kOk},
        {"CME error not mapped", cme("+CME ERROR: 3"), -1, ""},
        {"plain error",          result(AT_ERROR),     -1, ""},
    };
    clear_traces();
    run<DsflowclrRsp>({"AT^DSFLOWCLR", "", 5}, AT_Dsflowclr, [](auto& r) { return fields(r.AtExeResult); }, cases);
    EXPECT_FALSE(has_trace("AT^DSFLOWCLR"));
    run<DsflowsaveRsp>({"AT^DSFLOWSAVE", "", 5}, AT_Dsflowsave, [](auto& r) { return fields(r.AtExeResult); }, cases);
    EXPECT_EQ(count_trace("AT^DSFLOWSAVE failed or is not supported\n"), 2u);

    FakeAtServer ats;
    for (const auto& [reply, rc] : {std::pair{ok(), 0}, std::pair{result(AT_ERROR), -1}}) {
        clear_traces();
        ats.clear_requests();
        ats.reply(reply);
        EXPECT_EQ(AT_DsflowrptEx(2, 1), rc);
        ASSERT_EQ(ats.count(), 1u);
        expect_wire(ats.last(), {"AT^DSFLOWRPT=1,2", "", 1});
        EXPECT_EQ(count_trace("AT_Dsflowrpt success\n"), rc == 0 ? 1u : 0u);
    }
}

TEST(Stats, RefusedAndServerGone) {
    expect_nothing_sent({
        {"null record", [] { return AT_Dsflowqry(1, nullptr) == -1; }, "Input param is null\n"},
        {"null records", [] { return at_dataflow(nullptr) == -1 && AT_Dsflowclr(nullptr) == -1 && AT_Dsflowsave(nullptr) == -1; }},
        {"the old switch", [] { return AT_Dsflowrpt(1) == -1; }},
    });
    FakeAtServer ats;
    clear_traces();
    ats.die();
    EXPECT_TRUE(fails_untouched<StDsflowqryInfo>([](auto* r) { return AT_Dsflowqry(1, r); }));
    EXPECT_TRUE(fails_untouched<dataflow>(at_dataflow));
    EXPECT_TRUE(fails_untouched<DsflowclrRsp>(AT_Dsflowclr));
    EXPECT_EQ(AT_DsflowrptEx(1, 1), -1);
    EXPECT_EQ(count_trace("AT_Dsflowqry: GetDataFromAtServer fail!\n"), 3u);
    EXPECT_EQ(count_trace("AT_Dsflowrpt: GetDataFromAtServer fail!\n"), 1u);
}

}  // namespace
