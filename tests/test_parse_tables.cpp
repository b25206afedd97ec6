// test_parse_tables.cpp - the handler tables and func_list, seen through at_cmd_parse.
//
// Each reply case names the reply, the function type and operation type a caller uses, a
// representative reply text, and the tree that must come out, written as rows separated by " | ";
// a row is its fields "name=value" joined by ';', with '~' standing for a null name or value.
#include <gtest/gtest.h>

#include <iterator>
#include <set>
#include <string>
#include <vector>

#include "atapi.h"
#include "atapi/parse_tables.h"

namespace {

constexpr at_operation_type R = AT_OPERATION_TYPE_READ;
constexpr at_operation_type E = AT_OPERATION_TYPE_EXECUTE;
constexpr at_operation_type T = AT_OPERATION_TYPE_TEST;
constexpr at_operation_type O = AT_OPERATION_TYPE_OTHER;

std::string dump(const AtCmdParse* tree) {
    std::string out;
    for (const AtCmdParse* head = tree; head != nullptr; head = head->plist) {
        if (head != tree) out += " | ";
        for (const AtCmdParse* n = head; n != nullptr; n = n->next) {
            if (n != head) out += ';';
            out += n->AtFieldName ? n->AtFieldName : "~";
            out += '=';
            out += n->AtFieldValue ? n->AtFieldValue : "~";
        }
    }
    return out;
}

struct ReplyCase {
    const char* name;
    int func;
    at_operation_type op;
    const char* reply;
    const char* tree;
};

// clang-format off
const ReplyCase kReplyCases[] = {
    // Unsolicited reports (OTHER).
    {"^RSSI",          0, O, "^RSSI: 17",                         "rssi=17"},
    {"^SRVST",         0, O, "^SRVST: 2",                         "srv_status=2"},
    {"^SMMEMFULL",     0, O, "^SMMEMFULL: \"SM\"",                "mem_type=SM"},
    {"^HCMGSS",        0, O, "^HCMGSS: 12",                       "mr=12"},
    {"^HCMGSF",        0, O, "^HCMGSF: 500",                      "errCode=500"},
    {"+CUSD",          0, O, "+CUSD: 0,\"Balance 5\",15",         "rspType=0;cusdStr=Balance 5;codeType=15"},
    {"^ORIG",          0, O, "^ORIG: 1,0",                        "call_id=1;call_type=0"},
    {"^CONF",          0, O, "^CONF: 1",                          "call_id=1"},
    {"^CONN",          0, O, "^CONN: 1,0",                        "call_id=1;call_type=0"},
    {"^CEND",          0, O, "^CEND: 1,35,104,16",                "call_id=1;duration=35;end_status=104;cc_cause=16"},
    {"+CLIP",          0, O, "+CLIP: \"13800000000\",129,,,,0",   "call_num=13800000000;call_type=129;subaddr=;satype=;alpha=;cli_validity=0"},
    {"+CCWA",          0, O, "+CCWA: \"1390000\",129,1",          "number=1390000;type=129;class=1"},
    {"^CCWA",          0, O, "^CCWA: \"1390000\",145,1",          "number=1390000;type=145;class=1"},
    {"^XLEMA",         0, O, "^XLEMA: 1,3,112,1,1,460,0",         "index=1;total=3;ecc_num=112;category=1;simpresent=1;mcc=460;abnormal_service=0"},
    {"^CSCHANNELINFO", 0, O, "^CSCHANNELINFO: 1,0",               "status=1;voice_domain=0"},
    {"^CCALLSTATE",    0, O, "^CCALLSTATE: 1,2,1",                "call_id=1;state=2;voice_domain=1"},
    {"^ECLSTAT",       0, O, "^ECLSTAT: 3,\"msd sent\"",          "eCall_state=3;description=msd sent"},
    // Network configuration.
    {"+CSQ",           1, R, "+CSQ: 23,99",                       "rssi=23;ber=99"},
    {"^CERSSI",        1, R, "^CERSSI: 0,0,0,0,255,-95,-9,12,1,10,0", "n=0;m=0;rssi=0;rscp=0;ecio=255;rsrp=-95;rsrq=-9;rssnr=12;ri=1;cqi0=10;cqi1=0"},
    {"^LTERSRP",       1, R, "^LTERSRP: -95,-9",                  "rsrp=-95;rsrq=-9"},
    {"^CSNR",          1, R, "^CSNR: -80,-6",                     "rscp=-80;ecio=-6"},
    {"+CREG",          1, R, "+CREG: 2,1,\"25F8\",\"0A2B3C\",7",  "n=2;stat=1;lac=25F8;ci=0A2B3C;act=7"},
    {"+CGREG",         1, R, "+CGREG: 2,5,\"25F8\",\"0A2B3C\",2", "n=2;stat=5;lac=25F8;ci=0A2B3C;act=2"},
    {"+CEREG",         1, R, "+CEREG: 0,1,\"25F8\",\"0A2B3C\"",   "n=0;stat=1;lac=25F8;ci=0A2B3C"},
    {"+CIREG",         1, R, "+CIREG: 1,1,3",                     "n=1;reg_info=1;ext_info=3"},
    {"+CGATT",         1, R, "+CGATT: 1",                         "state=1"},
    {"^CGCATT",        1, R, "^CGCATT: 1,0",                      "psState=1;csState=0"},
    {"^REJINFO",       1, R, "^REJINFO: \"46001\",1,15,2",        "plmnid=46001;srvdomain=1;rejectcause=15;rattype=2"},
    {"^CELLROAM",      1, R, "^CELLROAM: 2,7",                    "cell_roam_state=2;rat=7"},
    {"+CPAS",          1, R, "+CPAS: 0",                          "pactstatus=0"},
    {"^UICCAUTH",      1, R, "^UICCAUTH: 0,\"A1\",\"B2\",\"C3\",\"D4\"", "result=0;res=A1;ck=B2;ik=C3;auts=D4"},
    {"+COPS",          1, R, "+COPS: 0,2,\"46001\",7",            "mode=0;format=2;oper=46001;rat=7"},
    {"+COPS",          1, T, "+COPS: (2,\"Op A\",\"OpA\",\"23401\",7),(1,\"Op B\",\"OpB\",\"23402\",2),,(0,1,2,3,4),(0,1,2)",
        "option=~;stat=2;long_oper=Op A;short_oper=OpA;numeric_oper=23401;rat=7 | "
        "option=~;stat=1;long_oper=Op B;short_oper=OpB;numeric_oper=23402;rat=2 | "
        "mode=~;mode_0=0;mode_1=1;mode_2=2;mode_3=3;mode_4=4 | format=~;format_0=0;format_1=1;format_2=2"},
    {"^EONS",          1, R, "^EONS: 1,\"46000\",\"China Mobile\",\"CMCC\",0,\"CM\"", "type=1;plmn_id=46000;plmn_long=China Mobile;plmn_short=CMCC;spn_cond=0;spn=CM"},
    {"^CNWI",          1, R, "^CNWI: \"46003\",13824,1,\"0\",\"8\"", "plmn_id=46003;sid=13824;nid=1;sub_net_id=0;ltm_off=8"},
    {"+CLCC",          1, E, "+CLCC: 1,0,0,0",                    "idx=1;dir=0;stat=0;mode=0"},
    {"^SYSCFG",        1, R, "^SYSCFG: 2,0,3FFFFFFF,1,2",         "mode=2;acqorder=0;band=3FFFFFFF;roam=1;srvdomain=2"},
    {"^SYSCFG",        1, T, "^SYSCFG: (2,13,14),(0-2),((3fffffff,\"All bands\")),(0-2),(0-4)",
        "modes=~;modes=2;~=13;~=14 | acqorders=~;~=0;~=1;~=2 | bandlist=~;band=3fffffff;band_name=All bands"},
    {"^SYSCFGEX",      1, T, "^SYSCFGEX: (\"00\",\"03\"),((3fffffff,\"All bands\")),(0-2),(0-4),((7fff,\"All LTE\"))",
        "acqorders=~;acqorders=00;~=03 | bandlist=~;band=3fffffff;band_name=All bands | LTElist=~;lteband=7fff;lteband_name=All LTE"},
    {"^LTEMEASMODE",   1, R, "^LTEMEASMODE: 1",                   "mode=1"},
    {"^HOPARASET",     1, R, "^HOPARASET: 1,2,3,4,5,6",           "rsrp_thresh1=1;rsrp_thresh2=2;rsrp_thresh3=3;sinr_thresh1=4;sinr_thresh2=5;sinr_thresh3=6"},
    {"^RFSWITCH",      1, R, "^RFSWITCH: 1",                      "rf_status=1"},
    {"^NETSCAN",       1, R, "^NETSCAN: 10,,,25F8,460,01,,-80,1A2B,3", "arfcn=10;c1=;c2=;lac=25F8;mcc=460;mnc=01;bsic=;rxlev=-80;cid=1A2B;band=3"},
    {"^DNSP",          1, R, "^DNSP: 8.8.8.8",                    "pri_dns=8.8.8.8"},
    {"^DNSS",          1, R, "^DNSS: 8.8.4.4",                    "sec_dns=8.8.4.4"},
    {"^LTEPROFILE",    1, T, "^LTEPROFILE: (0,1),(1-11),6,99,99,99,(0-3)", "~=~;mode1=0;mode2=1 | ~=~;indexs=1-11"},
    // PIN.
    {"+CLCK",          2, E, "+CLCK: 1",                          "status=1"},
    {"^CPIN",          2, R, "^CPIN: READY,,10,3,10,3",           "code=READY;times=;puk_times=10;pin_times=3;puk2_times=10;pin2_times=3"},
    {"+CPIN",          2, R, "+CPIN: SIM PIN",                    "code=SIM PIN"},
    {"^CARDMODE",      2, R, "^CARDMODE: 2",                      "sim_type=2"},
    {"^APHPLMN",       2, R, "^APHPLMN: 46001",                   "plmn=46001"},
    // Messaging.
    {"+CPMS",          3, R, "+CPMS: \"SM\",3,50,\"SM\",3,50,\"ME\",0,100", "mem1=SM;used1=3;total1=50;mem2=SM;used2=3;total2=50;mem3=ME;used3=0;total3=100"},
    {"+CPMS",          3, E, "+CPMS: 3,50,3,50,0,100",            "used1=3;total1=50;used2=3;total2=50;used3=0;total3=100"},
    {"+CPMS",          3, T, "+CPMS: (\"SM\",\"ME\"),(\"SM\",\"ME\")", "SmsMediaList=~;mem1=SM;mem2=ME | SmsMediaList=~;mem1=SM;mem2=ME"},
    {"^HCPMS",         3, R, "^HCPMS: \"SM\",1,50,\"SM\",1,50,\"SM\",1,50", "mem1=SM;used1=1;total1=50;mem2=SM;used2=1;total2=50;mem3=SM;used3=1;total3=50"},
    {"^HCPMS",         3, E, "^HCPMS: 1,50,1,50,1,50",            "used1=1;total1=50;used2=1;total2=50;used3=1;total3=50"},
    {"^HCPMS",         3, T, "^HCPMS: (\"SM\",\"ME\")",           "SmsMediaList=~;mem1=SM;mem2=ME"},
    {"+CMGR",          3, R, "+CMGR: 0,,25\r\n0791448720003023",  "stat=0;reserved=;length=25;pdu=0791448720003023"},
    {"^HCMGR",         3, R, "^HCMGR: 1380000,2024,5,6,7,8,9,0,1,5,0,0,0,1", "callerID=1380000;year=2024;month=5;day=6;hour=7;minute=8;second=9;lang=0;format=1;length=5;prt=0;prv=0;type=0;stat=1"},
    {"+CMGD",          3, R, "+CMGD: (1,2,5),(0-4)",              "index_0=1;index_1=2;index_2=5"},
    {"^HCMGD",         3, R, "^HCMGD: (4,9),(0-4)",               "index_0=4;index_1=9"},
    {"^CMGI",          3, E, "^CMGI: 3,7",                        "index_0=3;index_1=7"},
    {"+CMGF",          3, R, "+CMGF: 0",                          "mode=0"},
    {"^HCMGF",         3, R, "^HCMGF: 1",                         "mode=1"},
    {"+CNMI",          3, R, "+CNMI: 2,1,0,2,0",                  "mode=2;mt=1;bm=0;ds=2;bfr=0"},
    {"+CSCA",          3, R, "+CSCA: \"+8613800100500\",145",     "sca=+8613800100500;tosca=145"},
    {"+CSCB",          3, R, "+CSCB: 0,\"50,4370\",\"0-3\"",      "mode=0;mids=50,4370;dcss=0-3"},
    {"^CMSR",          3, R, "^CMSR: 1",                          "ReadTag=1"},
    {"+CMGS",          3, E, "+CMGS: 42",                         "mr=42"},
    {"+CMGW",          3, E, "+CMGW: 7",                          "index=7"},
    {"+CMSS",          3, E, "+CMSS: 43",                         "mr=43"},
    {"^HCMGW",         3, E, "^HCMGW: 8",                         "index=8"},
    // Basic information.
    {"+CGMR",          4, R, "+CGMR: 21.110.99.04.00",            "subsoftversion=110.99.04.00"},
    {"^HS",            4, R, "^HS: 1,0,0,1,2,3",                  "id=1;protocol=0;IsOffline=0;p_class=1;p_id=2;s_id=3"},
    {"^MEID",          4, R, "^MEID: A0000012345678",             "meid=A0000012345678"},
    {"+ESN",           4, R, "+ESN: 12345678",                    "esn=12345678"},
    {"+CFUN",          4, R, "+CFUN: 1",                          "fun=1"},
    // Voice call settings.
    {"+CMUT",          5, R, "+CMUT: 1",                          "n_value=1"},
    {"^SMUT",          5, R, "^SMUT: 0",                          "n_value=0"},
    {"+CLVL",          5, R, "+CLVL: 4",                          "level=4"},
    {"+CMIC",          5, R, "+CMIC: 6",                          "level=6"},
    {"^NSSWITCH",      5, R, "^NSSWITCH: 1",                      "switch_mode=1"},
    {"^ECHOEX",        5, R, "^ECHOEX: 1,2,3,4,5",                "enable=1;time=2;single_len=3;single_dec=4;double_dec=5"},
    {"^PCMFR",         5, R, "^PCMFR: \"16000\"",                 "pcm_frq=16000"},
    {"+CCWA",          5, R, "+CCWA: 1,1",                        "status=1;class=1"},
    {"+CCFC",          5, R, "+CCFC: 1,1,\"13900\",129,,,20",     "status=1;class=1;number=13900;type=129;reserved1=;reserved2=;time=20"},
    {"+CLCC",          5, R, "+CLCC: 1,0,0,0,0,\"13900\",129",    "idx=1;dir=0;stat=0;mode=0;mpty=0;number=13900;type=129"},
    // Phonebook.
    {"+CPBS",          8, R, "+CPBS: \"SM\",10,250",              "storage=SM;used=10;total=250"},
    {"^CPBR",          8, E, "^CPBR: 3,\"139\",129,\"Ann\",0",    "index=3;number=139;type=129;text=Ann;coding=0"},
    {"^CPBR",          8, T, "^CPBR: (1-250),40,14,0",            "indexs=(1-250);nlength=40;tlength=14;mlength=0"},
    // SIM toolkit.
    {"^STSF",          9, R, "^STSF: 1,\"FFFF\",10",              "Mode=1;Config=FFFF;Timeout=10"},
    {"^STGI",          9, E, "^STGI: 1,3,\"Menu\",0",             "Identifier=1;NbItems=3;MenuName=Menu;HelpInfo=0"},
    {"^STGI",         10, E, "^STGI: \"Hello\",0,1,5",            "TextInfo=Hello;TextFormat=0;ClearMode=1;DurationTime=5"},
    {"^STGI",         11, E, "^STGI: \"PIN?\",0,1,0,1,4,8,0,\"1234\",0", "TextInfo=PIN?;TextCode=0;RspFormat=1;PackMode=0;EchoMode=1;SizeMin=4;SizeMax=8;HelpInfo=0;DefaultTextInfo=1234;DefaultTextCode=0"},
    {"^STGI",         12, E, "^STGI: \"Key?\",0,1,0,30",          "TextInfo=Key?;TextCode=0;RspFormat=1;HelpInfo=0;TimeOut=30"},
    {"^STGI",         13, E, "^STGI: 4",                          "RefreshType=4"},
    {"^STGI",         14, E, "^STGI: \"http://a.b\",2",           "URL=http://a.b;LaunchMode=2"},
    // System configuration.
    {"^VERSION",      15, R, "^VERSION:EXTD:EM1.04.12",           "type:content=EXTD:EM1.04.12"},
    {"^LTESCINFO",    15, R, "^LTESCINFO: 1234,15,2,20",          "ci=1234;dl_sinr=15;num_ant=2;dl_bw=20"},
    {"^RRCVer",       15, R, "^RRCVer: 10",                       "rrcver=10"},
    {"^XOTEMP",       15, R, "^XOTEMP: 38.5",                     "CRYSTALtemp=38.5"},
    {"^ADCREADEX",    15, R, "^ADCREADEX: 1800",                  "adc_value=1800"},
    {"^ANTMODE",      15, R, "^ANTMODE: 1,2",                     "ant_mode=1;nw_mode=2"},
    {"^LOPCNL",       15, R, "^LOPCNL: 1",                        "mode=1"},
    {"^SETMODE",      15, R, "^SETMODE: 3",                       "work_mode=3"},
    {"^SHELL",        15, R, "^SHELL: 2",                         "shell_type=2"},
    {"^HCSQ",         15, R, "^HCSQ: \"LTE\",50,40,120,30",       "sysmode=LTE;value1=50;value2=40;value3=120;value4=30;value5=~"},
    {"^SYSINFO",      15, R, "^SYSINFO: 2,3,0,9,1,,17",           "srv_status=2;srv_domain=3;roam_status=0;sys_mode=9;sim_state=1;lock_state=;sys_submode=17"},
    {"^SYSINFOEX",    15, R, "^SYSINFOEX: 2,3,0,1,,6,\"LTE\",101,\"LTE FDD\"", "srv_status=2;srv_domain=3;roam_status=0;sim_state=1;lock_state=;sysmode=6;sysmode_name=LTE;submode=101;submode_name=LTE FDD"},
    {"^SYSCFGEX",     15, R, "^SYSCFGEX: \"00\",3FFFFFFF,1,2,7FFF", "acqorder=00;band=3FFFFFFF;roam=1;srvdomain=2;lteband=7FFF"},
    {"^OPL",          15, R, "^OPL: 46001,0,1",                   "numeric=46001;reserved=0;index=1"},
    {"^PNN",          15, R, "^PNN: \"Long\",\"Short\",\"\"",     "long_name=Long;short_name=Short;reserved="},
    {"^CPNN",         15, R, "^CPNN: \"Full\",0,1,\"Sh\",0,0",    "full_name=Full;full_name_coding=0;full_name_ci=1;short_name=Sh;short_name_coding=0;shor_name_ci=0"},
    {"+CCLK",         15, R, "+CCLK: \"2030/05/06,07:08:09\"",    "date=2030/05/06,07:08:09"},
    {"+CRSM",         15, R, "+CRSM: 144,0,\"00FF\"",             "sw1=144;sw2=0;response=00FF"},
    {"+CSIM",         15, R, "+CSIM: 4,\"9000\"",                 "length=4;response=9000"},
    {"+CNUM",         15, R, "+CNUM: \"Me\",\"+86139\",145",      "name=Me;num=+86139;type=145"},
    {"^SCID",         15, R, "^SCID: 89860012345678901234",       "scid_num=89860012345678901234"},
    {"^ICCID",        15, R, "^ICCID: 8986001234",                "iccid=8986001234"},
    {"^CURRSID",      15, R, "^CURRSID: 13824,1,\"0\"",           "curr_sid=13824;curr_nid=1;curr_evdo_subnetid=0"},
    {"^SIMSWITCH",    15, R, "^SIMSWITCH: 1",                     "sim_type=1"},
    {"^SIMGPIO",      15, R, "^SIMGPIO: 0",                       "gpio_switch=0"},
    {"^APBATLVL",     15, R, "^APBATLVL: 1,3",                    "chargerState=1;batterylvl=3"},
    {"+CBC",          15, R, "+CBC: 0,80",                        "cbs=0;bcl=80"},
    {"^APCHG",        15, R, "^APCHG: \"full\",1,2,3,4,5,6,7,8,9,0", "ChargerState=full;ChargerTime=1;ChargerVoltage=2;BatteryVoltage=3;ChargerCurrent=4;BatteryTemp=5;BoardTemp=6;SimTemp=7;MsmTemp=8;PaTemp=9;IsOffChg=0"},
    {"^THERMFUN",     15, O, "^THERMFUN: 1",                      "switch=1"},
    {"^SETWDTIME",    15, O, "^SETWDTIME: 30",                    "watchdog_time=30"},
    {"^THERMSTATE",   15, O, "^THERMSTATE: 2",                    "state=2"},
    {"^WAKEUPCFG",    15, O, "^WAKEUPCFG: 1,2,3",                 "switch=1;channel=2;source=3"},
    // Connection, SPN, data flow, addressing.
    {"^APCONNST",     20, R, "^APCONNST: 1,\"IPV4\",0,\"IPV6\"",  "status=1;IPV4=IPV4;status=0;IPV6=IPV6"},
    {"^GLASTERR",     20, R, "^GLASTERR: 1,33",                   "type=1;code=33"},
    {"^CGDNS",        20, R, "^CGDNS: 1,\"8.8.8.8\",\"8.8.4.4\"", "cid=1;PriDns=8.8.8.8;SecDns=8.8.4.4"},
    {"^IPV6CAP",      20, R, "^IPV6CAP: 7",                       "cfg_value=7"},
    {"^NDISSTATQRY",  20, R, "^NDISSTATQRY: 1,0,0,\"IPV4\",0,33,0,\"IPV6\"", "stat=1;err_code=0;wx_state=0;PDP_type=IPV4;stat=0;err_code=33;wx_state=0;PDP_type=IPV6"},
    {"^NDISSTATQRY",  20, T, "^NDISSTATQRY: (1-16)",              "cid=~;cid=1-16"},
    {"^SPN",          24, R, "^SPN: 0,0,\"CMCC\"",                "disp_rplmn=0;coding=0;spn_name=CMCC"},
    {"^DSFLOWQRY",    28, R, "^DSFLOWQRY: 00000010,A1B2C3,0,00000020,D4,E5", "last_ds_time=00000010;last_tx_flow=A1B2C3;last_rx_flow=0;total_ds_time=00000020;total_tx_flow=D4;total_rx_flow=E5"},
    {"^DHCP",         30, R, "^DHCP: 0100A8C0,00FFFFFF,FE00A8C0,FE00A8C0,0200A8C0,0300A8C0,150000000,50000000", "IPAddr=0100A8C0;NetMask=00FFFFFF;GateWay=FE00A8C0;DHCPserver=FE00A8C0;pDNS=0200A8C0;sDNS=0300A8C0;max_rx_data=150000000;max_tx_data=50000000"},
    {"^DHCPV6",       30, R, "^DHCPV6: a::1,ffff::,a::fe,a::fe,b::1,b::2,1000,2000", "clip_v6=a::1;netmask_v6=ffff::;gate_v6=a::fe;dhcp_v6=a::fe;pDNS_v6=b::1;sDNS_v6=b::2;max_rx_data=1000;max_tx_data=2000"},
    {"^USSDMODE",     34, R, "^USSDMODE: 1",                      "mode=1"},
    {"^APRAINFO",     35, R, "^APRAINFO: 1500,\"2001:db8::\",3600,7200", "ipv6_mtu=1500;prefix=2001:db8::;preferred_lifetime=3600;valid_lifetime=7200"},
    {"^APLANADDR",    35, R, "^APLANADDR: \"2001:db8::1\",64",    "addr=2001:db8::1;prefixlen=64"},
    {"^AUTHDATA",     36, R, "^AUTHDATA: 1,2,\"pw\",\"user\",\"\"", "cid=1;Auth_type=2;passwd=pw;username=user;PLMN="},
    {"+CGDCONT",      37, R, "+CGDCONT: 1,\"IP\",\"cmnet\",\"0.0.0.0\",0,0", "cid=1;PDP_type=IP;APN=cmnet;PDP_address=0.0.0.0;d_comp=0;h_comp=0;temp7=~;temp8=~"},
    // Positioning.
    {"+CGDCONT",      39, R, "+CGDCONT: 2,\"IPV6\",\"supl\",\"\",0,0", "cid=2;pdp_type=IPV6;apn=supl;ip_address=;d_comp=0;h_comp=0"},
    {"^WPCAP",        39, R, "^WPCAP: 3",                         "gps_type=3"},
    {"^WPDOM",        39, R, "^WPDOM: 1",                         "operation_mode=1"},
    {"^WPDST",        39, R, "^WPDST: 0",                         "session_type=0"},
    {"^GPSTYPE",      39, R, "^GPSTYPE: 2",                       "gps_type=2"},
    {"^WGNSS",        39, R, "^WGNSS: 5",                         "pd_system=5"},
    {"^WPQOS",        39, R, "^WPQOS: 255,50",                    "performance=255;accuracy=50"},
    {"^WPDFR",        39, R, "^WPDFR: 65535,1",                   "number=65535;time=1"},
    {"^SOCKETCONT",   39, R, "^SOCKETCONT: 3,\"IP\",\"agps\",\"\",0,0", "cid=3;pdp_type=IP;apn=agps;ip_address=;d_comp=0;h_comp=0"},
    {"^AUTHDATA",     39, R, "^AUTHDATA: 3,1,\"pw\",\"u\",46001", "cid=3;auth_type=1;passwd=pw;username=u;plmn=46001"},
    {"^WPURL",        39, R, "^WPURL: supl.example.com:7275",     "url=supl.example.com:7275"},
    {"^DCONNSTAT",    39, R, "^DCONNSTAT: 1,\"cmnet\",1,0,0",     "cid=1;APN=cmnet;ipv4_stat=1;ipv6_stat=0;dconn_type=0"},
    {"^WPDIM",        39, R, "^WPDIM: 2",                         "mode=2"},
    {"^WPJAM",        39, R, "^WPJAM: 1,40",                      "status=1;threshold=40"},
    // Feature state, chip temperature, datacard.
    {"^HFEATURESTAT", 41, R, "^HFEATURESTAT: 9,1,2,3,4,5",        "feature_id=9;value1=1;value2=2;value3=3;value4=4;value5=5"},
    {"^CHIPTEMP",     43, R, "^CHIPTEMP: 1,2,3,4,5,6",            "gpa_temp=1;wpa_temp=2;lpa_temp=3;sim_temp=4;bat_temp=5;tcxo_temp=6"},
    {"+ZPAS",        101, R, "+ZPAS: \"LTE\",\"CS_PS\"",          "network=LTE;srv_domain=CS_PS"},
    {"+ZPINPUK",     101, R, "+ZPINPUK: 3,10",                    "pinnumber=3;puknumber=10"},
    {"+ZSNT",        101, R, "+ZSNT: 0,0,2",                      "cm_mode=0;net_sel_mode=0;pref_acq=2"},
    {"+ZOPRT",       101, R, "+ZOPRT: 5",                         "mode=5"},
    {"+ZUSIM",       101, R, "+ZUSIM: 1",                         "usim_card=1"},
};
// clang-format on

TEST(ParseTables, EveryTemplatedRowParsesItsReply) {
    for (const ReplyCase& c : kReplyCases) {
        SCOPED_TRACE(std::string(c.name) + " type " + std::to_string(c.func) + " op " +
                     std::to_string(c.op) + ": " + c.reply);
        std::string name = c.name;
        std::vector<char> reply(c.reply, c.reply + std::char_traits<char>::length(c.reply) + 1);
        AtCmdParse* tree = nullptr;
        int rc = at_cmd_parse(&tree, name.data(), reply.data(), static_cast<at_function_type>(c.func),
                              c.op);
        EXPECT_EQ(rc, 0);
        EXPECT_EQ(dump(tree), c.tree);
        free_at_cmd(tree);
    }
}

size_t rows_of(const at_parse_handler* table) {
    size_t n = 0;
    while (n < 1000 && table[n].at_name != nullptr) ++n;
    return n + 1;  // the terminator counts
}

// The dispatcher scans func_list in this order of function types; each type has its own table.
TEST(ParseTables, FuncListOrderAndDistinctTables) {
    const int order[AT_FUNC_LIST_ROWS] = {0,  1,  2,  16, 17, 18, 21, 19, 20, 23, 24, 25, 26, 3,
                                          4,  5,  6,  7,  8,  9,  10, 11, 12, 13, 14, 15, 37, 36,
                                          22, 27, 28, 29, 30, 31, 32, 33, 34, 35, 39, 41, 43, 101};
    std::set<const at_parse_handler*> distinct;
    for (size_t i = 0; i < AT_FUNC_LIST_ROWS; ++i) {
        SCOPED_TRACE("func_list[" + std::to_string(i) + "]");
        EXPECT_EQ(func_list[i].func_id, order[i]);
        ASSERT_NE(func_list[i].parse_handler, nullptr);
        EXPECT_EQ(parse_func_type(func_list[i].func_id), func_list[i].parse_handler);
        distinct.insert(func_list[i].parse_handler);
    }
    EXPECT_EQ(distinct.size(), size_t{AT_FUNC_LIST_ROWS});
    for (int absent : {38, 40, 42, 44, 100}) EXPECT_EQ(parse_func_type(static_cast<at_function_type>(absent)), nullptr);
}

// Rows per table, terminator included: exact where every row is known, otherwise the table's
// full size is an upper bound.
TEST(ParseTables, TablesAreTerminatedAndSized) {
    struct Size {
        int type;
        size_t rows;
        bool exact;
    };
    const Size sizes[] = {
        {0, 62, false}, {1, 42, false}, {2, 8, true},   {3, 21, false}, {4, 9, true},
        {5, 11, true},  {6, 1, true},   {7, 1, true},   {8, 4, true},   {9, 3, true},
        {10, 2, true},  {11, 2, true},  {12, 2, true},  {13, 2, true},  {14, 2, true},
        {15, 41, false}, {16, 2, true}, {17, 2, true},  {18, 2, true},  {19, 2, true},
        {20, 6, true},  {21, 2, true},  {22, 2, true},  {23, 2, true},  {24, 2, true},
        {25, 2, true},  {26, 2, true},  {27, 2, true},  {28, 2, true},  {29, 2, true},
        {30, 3, true},  {31, 2, true},  {32, 2, true},  {33, 2, true},  {34, 2, true},
        {35, 3, true},  {36, 2, true},  {37, 2, true},  {39, 15, true}, {41, 2, true},
        {43, 2, true},  {101, 6, true},
    };
    ASSERT_EQ(std::size(sizes), size_t{AT_FUNC_LIST_ROWS});
    for (size_t i = 0; i < AT_FUNC_LIST_ROWS; ++i) {
        const Size& s = sizes[i];
        const at_parse_handler* table = nullptr;
        for (const ATS_FUNC_CMD& e : func_list)
            if (e.func_id == s.type) table = e.parse_handler;
        SCOPED_TRACE("type " + std::to_string(s.type));
        ASSERT_NE(table, nullptr);
        size_t n = rows_of(table);
        if (s.exact) {
            EXPECT_EQ(n, s.rows);
        } else {
            EXPECT_LE(n, s.rows);
        }
        EXPECT_EQ(table[n - 1].at_name, nullptr);
        EXPECT_EQ(table[n - 1].free_mem, nullptr);
    }
}

// Row invariants: a row answers to its name only once per table, carries its table's type (with
// the documented exceptions), and every template it holds has a parser to read it.
TEST(ParseTables, RowsAreConsistent) {
    for (const ATS_FUNC_CMD& e : func_list) {
        const at_parse_handler* table = e.parse_handler;
        size_t n = rows_of(table);
        std::set<std::string> names;
        for (size_t i = 0; i < n; ++i) {
            const at_parse_handler& r = table[i];
            std::string name = r.at_name ? r.at_name : "(end)";
            SCOPED_TRACE("type " + std::to_string(e.func_id) + " row " + name);
            int type = e.func_id;
            if (name == "^REJINFO") type = AT_FUNCTION_INITIATIVE_REPORT;
            if (r.at_name == nullptr && (e.func_id == AT_FUNCTION_THROUGHPUT_CFG ||
                                         e.func_id == AT_FUNCTION_DATAFLOW_CFG ||
                                         e.func_id == AT_FUNCTION_PWRONTIME_CFG))
                type = AT_FUNCTION_ONDEMAND_CFG;
            EXPECT_EQ(r.func_cmd_type, type);
            if (r.at_name == nullptr) continue;
            EXPECT_TRUE(names.insert(name).second) << "duplicate row";
            const at_parse_func parsers[4] = {r.parse_read_func, r.parse_exe_func, r.parse_test_func,
                                              r.parse_other_func};
            for (int op = 0; op < 4; ++op) {
                if (r.parse_contrast[op] != nullptr) {
                    EXPECT_NE(parsers[op], nullptr) << "slot " << op;
                }
            }
            bool no_release = e.func_id == AT_FUNCTION_ZTE_DATACARD ||
                              (e.func_id == AT_FUNCTION_SYSTEM_CFG && i < 7);
            EXPECT_EQ(r.free_mem, no_release ? nullptr : &free_at_cmd);
        }
    }
}

// The parser bound to each operation type where the choice is not the ordinary one.
TEST(ParseTables, RowsUseTheirParsers) {
    const at_parse_func c = parse_common_at_str;
    struct Binding {
        int type;
        const char* name;
        at_parse_func read, exe, test, other;
    };
    const Binding bindings[] = {
        {1, "+CREG", c, c, c, nullptr},
        {1, "^SYSCFG", c, c, parse_syscfg_at_str, nullptr},
        {1, "^SYSCFGEX", c, c, parse_syscfgex_at_str, nullptr},
        {1, "+COPS", c, c, parse_cops_at_str, nullptr},
        {1, "^EONS", parse_eons_at_str, c, c, nullptr},
        {1, "+CLCC", nullptr, c, nullptr, nullptr},
        {1, "^LTEPROFILE", c, c, parse_lteprofile_at_str, nullptr},
        {3, "+CPMS", c, c, parse_sms_media, nullptr},
        {3, "^HCPMS", c, c, parse_sms_media, nullptr},
        {3, "+CMGD", parse_sms_index_list_at_str, c, c, nullptr},
        {3, "^HCMGD", parse_sms_index_list_at_str, c, c, nullptr},
        {3, "^CMGI", c, parse_cmgi_list_at_str, c, nullptr},
        {3, "+CMGR", parse_sms_cmgr_at_str, nullptr, nullptr, nullptr},
        {4, "+CGMR", parse_soft_str, c, c, nullptr},
        {0, "^SRVST", nullptr, nullptr, nullptr, c},
        {0, "^HFREQINFO", c, nullptr, nullptr, c},
        {0, "+CMT", nullptr, nullptr, nullptr, parse_sms_cmgr_at_str},
        {0, "+CDS", nullptr, nullptr, nullptr, parse_sms_cmgr_at_str},
        {0, "+CBM", nullptr, nullptr, nullptr, parse_sms_cmgr_at_str},
        {8, "^CPBW", nullptr, nullptr, nullptr, nullptr},
        {20, "^NDISSTATQRY", c, c, parse_ndisstatqry_at_str, nullptr},
        {28, "^DSFLOWQRY", c, nullptr, nullptr, nullptr},
    };
    for (const Binding& b : bindings) {
        SCOPED_TRACE(std::string(b.name) + " type " + std::to_string(b.type));
        const at_parse_handler* row = nullptr;
        for (const ATS_FUNC_CMD& e : func_list)
            if (e.func_id == b.type)
                for (const at_parse_handler* r = e.parse_handler; r->at_name; ++r)
                    if (std::string(r->at_name) == b.name) row = r;
        ASSERT_NE(row, nullptr);
        EXPECT_EQ(row->parse_read_func, b.read);
        EXPECT_EQ(row->parse_exe_func, b.exe);
        EXPECT_EQ(row->parse_test_func, b.test);
        EXPECT_EQ(row->parse_other_func, b.other);
    }
}

}  // namespace
