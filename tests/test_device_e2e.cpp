// The device family end to end: the library and atctl against modemsim's built-in default (the
// fictional EM-LTE-1) through a real atserver. Readings that drift are checked against ranges.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "e2e/harness.h"
#include "test_atctl.h"

namespace {

using namespace std::chrono_literals;
using atctl_test::CliRun;
using atctl_test::Json;

std::string text(int (*fn)(nvramcontnetres*)) {
    nvramcontnetres r{};
    return fn(&r) == 0 ? r.Code : "(failed)";
}

bool within(double v, double lo, double hi) { return v >= lo && v <= hi; }

// The modem dropped its port (the server says so) and came back.
void expect_restart_seen() {
    EXPECT_TRUE(e2e::eventually([] { return e2e::exchange("AT", "", 1).ret_val == AT_DEVICE_DOWN; }, 3s));
    EXPECT_TRUE(e2e::eventually([] { return e2e::exchange("AT", "", 1).ret_val == AT_CMD_OK; }, 10s));
}

TEST(DeviceE2e, LibraryAgainstTheSimulatedModem) {
    e2e::Stack stack;
    ASSERT_TRUE(stack.start());

    // Identity; the names, versions and IMSI atctl device shows below.
    StMeid meid{};
    StEsn esn{};
    EXPECT_EQ(AT_Meid(&meid) + AT_Esn(&esn), 0);
    EXPECT_STREQ(meid.meid, "A1000049E5C27B");
    EXPECT_EQ(esn.esn, 1093671221);
    CONTENT_PHYNUM phy{};
    EXPECT_EQ(at_QryPhynum(&phy), 0);
    EXPECT_EQ(phy.num, 4);
    EXPECT_EQ(AT_QryRsim(), 0);
    PhoneActStatus pas{};
    EXPECT_EQ(AT_PhoneActSt(0, &pas), 0);
    EXPECT_STREQ(pas.PActStatus, "0");

    // State and settings that the modem keeps.
    HsCommand hs_cmd{5, 0};
    HsRsp hs{};
    SCINFO sc{};
    RRCVER_NUM rrc{14, AT_CMD_RES_ERR};
    StCireg ims{2, 0, AT_CMD_RES_ERR};
    EXPECT_EQ(AT_HS(&hs_cmd, &hs) + AT_LTESCINFO(&sc) + AT_RRCVer(1, &rrc) + AT_Cireg(1, &ims), 0);
    EXPECT_EQ(hs.BoardId, 5);
    EXPECT_TRUE(within(sc.dl_sinr, 8, 24)) << sc.dl_sinr;
    rrc = {};
    ims = {};
    EXPECT_EQ(AT_RRCVer(0, &rrc) + AT_Netreg(0, &ims), 0);
    EXPECT_EQ(rrc.rrc_version, 14);
    EXPECT_EQ(ims.mode, 2);
    EXPECT_EQ(ims.reg_info, 1);

    // Radio off: the radio commands report no service until the mode is back.
    for (int mode : {4, 1}) {
        ASSERT_EQ(AT_Cfun(mode), 0);
        CFUNINFO f{};
        AT_CSQ_ST csq{};
        LacCellid reg{};
        StCireg ir{};
        EXPECT_EQ(AT_Cfun_Read(&f) + AT_Csq(&csq) + AT_Creg(0, &reg) + AT_Cireg_Check(&ir), 0);
        EXPECT_EQ(f.cfun, mode);
        EXPECT_EQ(csq.rssi, mode == 4 ? 99u : 23u);
        EXPECT_EQ(reg.stat, mode == 4 ? 0 : 1);
        EXPECT_EQ(ir.reg_info, mode == 4 ? 0 : 1);
    }

    // Factory and diagnostic commands.
    st_ant_mode ant{2, 1, AT_CMD_RES_ERR};
    st_open_channel ch{1, AT_CMD_RES_ERR};
    set_debug_mode dbg{2, AT_CMD_RES_ERR};
    int shell = 1;
    EXPECT_EQ(AT_Simtest(0) + AT_Ethtest(20) + AT_Antmode(1, &ant) + AT_Opencl(1, &ch) + AT_Setmode(1, &dbg) +
                  AT_Shell(1, &shell), 0);
    ant = {};
    ch = {};
    dbg = {};
    shell = 0;
    EXPECT_EQ(AT_Antmode(0, &ant) + AT_Opencl(0, &ch) + AT_Setmode(0, &dbg) + AT_Shell(0, &shell), 0);
    EXPECT_EQ(std::vector<int>({ant.ant_mode, ant.network_mode, ch.mode, dbg.mode, shell}), std::vector<int>({2, 1, 1, 2, 1}));
    // The temperatures atctl device temperature reads below.
    st_read_adcval adc{3, 0, AT_CMD_RES_ERR};
    EXPECT_EQ(AT_Adcreadex(0, &adc), 0);
    EXPECT_TRUE(within(adc.adc_value, 1580, 1660)) << adc.adc_value;
    St_Uicc_Auth ua{};
    ua.auth_type = 1;
    std::memcpy(ua.rand, "0123456789ABCDEF0123456789ABCDEF", 33);
    std::memcpy(ua.auth, "FEDCBA9876543210FEDCBA9876543210", 33);
    EXPECT_EQ(AT_UiccAuth(1, &ua), 0);
    EXPECT_EQ(std::strlen(ua.res) * 100 + std::strlen(ua.ck), 16u * 100 + 32u) << ua.res;

    // Battery, power and thermal; +CBC and ^APCHG through atctl device battery below.
    battery_state lvl{};
    temperature_protection therm{0, AT_CMD_RES_ERR};
    wakeupcfg_stru wake{};
    EXPECT_EQ(at_query_battery_state(&lvl) + at_thermfun(1, &therm) + at_wakeupcfg(AT_WAKEUPCFG_TEST_VALUE, &wake), 0);
    EXPECT_TRUE(within(lvl.battery_level, 2, 3)) << lvl.battery_level;
    EXPECT_EQ(std::vector<unsigned>({wake.wakeup_switch, wake.channel, wake.source}), std::vector<unsigned>({1, 15, 255}));
    therm.thermal_switch = 1;
    watch_dog_time wd{};
    EXPECT_EQ(at_thermfun(0, &therm) + at_setwdtime(0, &wd) + at_factoryreset() + at_SetCsdflt() + at_SetModemInforbu() +
                  AT_MmiRouter(1) + AT_MmiEcho(), 0);
    EXPECT_EQ(therm.thermal_switch, 0);
    EXPECT_EQ(wd.watchdog_time, 30);

    // A restart: the port drops and comes back; the locked SIM then asks for its PIN again.
    ASSERT_EQ(AT_ReBoot(), 0);
    expect_restart_seen();
    int fun = -1;
    EXPECT_EQ(AT_Cfun_Query(&fun), 0);
    EXPECT_EQ(fun, 1);
    EXPECT_EQ(text(AT_imsi), "(failed)");
}

TEST(DeviceE2e, AtctlDevice) {
    e2e::Stack stack;
    ASSERT_TRUE(stack.start());
    auto atctl = [&](std::vector<std::string> args) { return atctl_test::run_atctl(std::move(args), stack.dir()); };
    auto json = [&](std::vector<std::string> args, int exit) {
        args.insert(args.begin(), "--json");
        const CliRun r = atctl(args);
        EXPECT_EQ(r.exit, exit) << r.out << r.err;
        return atctl_test::parse_json(r.out).value_or(Json{});
    };

    CliRun r = atctl({"device"});
    EXPECT_EQ(r.exit, 0) << r.err;
    atctl_test::expect_lines(r, {"manufacturer (+CGMI)", "  manufacturer  Example Modems", "  model     EM-LTE-1",
                                 "  firmware  EM1.04.12-WEBUI.2.1", "  hardware  EM-LTE-1 HW-A", "  serial    EMLTE1A0012345",
                                 "  imsi      001011357924680"});

    atctl_test::expect_fields(json({"device", "mode", "set", "airplane"}, 0), {{"cfun", "cfun", "4"}, {"cfun", "mode", "'airplane'"}});
    atctl_test::expect_fields(json({"device", "mode"}, 0), {{"cfun", "cfun", "4"}});

    const Json temp = json({"device", "temperature"}, 0), bat = json({"device", "battery"}, 0);
    EXPECT_TRUE(within(temp["chiptemp"]["gpa_c"].number, 35, 44)) << temp["chiptemp"]["gpa_c"].show();
    EXPECT_TRUE(within(temp["xotemp"]["crystal_c"].number, 33, 39)) << temp["xotemp"]["crystal_c"].show();
    EXPECT_TRUE(within(bat["cbc"]["battery_percent"].number, 55, 95)) << bat["cbc"]["battery_percent"].show();
    EXPECT_EQ(bat["apchg"]["state"].show(), "'charging'");

    // A restart needs its confirmation.
    r = atctl({"device", "restart"});
    EXPECT_EQ(r.exit, 1);
    EXPECT_NE(r.err.find("--yes"), std::string::npos) << r.err;

    const Json restart = json({"device", "restart", "--yes"}, 0);
    EXPECT_EQ(restart["reboot"]["port_lost"].show(), "true");
    const e2e::Outcome after = e2e::exchange("AT+CFUN?", "+CFUN:");
    EXPECT_EQ(after.report, "+CFUN: 1") << after.rc << " " << after.ret_val;
}

}  // namespace
