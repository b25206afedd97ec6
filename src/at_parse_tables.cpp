// at_parse_tables.cpp - the handler tables of the reply parser and func_list.
//
// A row binds the reply name a caller passes to at_cmd_parse ("+CREG") to four field templates,
// one per operation type (READ, EXECUTE, TEST, OTHER), and the parse routine for each. A null
// template with a parser present, or a null parser, leaves only the final-result parse, so a row
// that names a reply whose fields are unknown still answers to its name. Every table ends in a row
// whose name is null; the dispatcher stops there.
//
// The tables are plain data: each row sits on one line, parsers and release routine first and the
// templates last, so that a row reads against the reply it describes. Templates are kept
// character for character as the modem's replies are documented, odd names included ("roman",
// "shor_name_ci", "ESN:esn"): readers look fields up by these exact names.
#include "atapi/parse_tables.h"

#include <cstddef>

namespace {

constexpr std::nullptr_t none = nullptr;

constexpr at_parse_func common = parse_common_at_str;
constexpr at_parse_func soft = parse_soft_str;
constexpr at_parse_func cops = parse_cops_at_str;
constexpr at_parse_func syscfg = parse_syscfg_at_str;
constexpr at_parse_func syscfgex = parse_syscfgex_at_str;
constexpr at_parse_func media = parse_sms_media;
constexpr at_parse_func ndisstatqry = parse_ndisstatqry_at_str;
constexpr at_parse_func lteprofile = parse_lteprofile_at_str;
constexpr at_parse_func index_list = parse_sms_index_list_at_str;
constexpr at_parse_func cmgi = parse_cmgi_list_at_str;
constexpr at_parse_func cmgr = parse_sms_cmgr_at_str;
constexpr at_parse_func eons = parse_eons_at_str;

// The function type a row carries. The dispatcher never reads it; it says where a row belongs.
constexpr int kReport = AT_FUNCTION_INITIATIVE_REPORT;
constexpr int kNetwork = AT_FUNCTION_NETWORK_CFG;
constexpr int kPin = AT_FUNCTION_PIN_CFG;
constexpr int kSms = AT_FUNCTION_SMS_CFG;
constexpr int kBasic = AT_FUNCTION_BASIC_INFO_CFG;
constexpr int kVoice = AT_FUNCTION_VOICE_CALL_CFG;
constexpr int kAddOperation = AT_FUNCTION_ADD_OPERATION;
constexpr int kDataOperation = AT_FUNCTION_DATA_OPERATION;
constexpr int kPhoneRecord = AT_FUNCTION_PHONE_RECORD;
constexpr int kStkMenu = AT_FUNCTION_STK;
constexpr int kStkText = AT_FUNCTION_TEXT_STK;
constexpr int kStkInput = AT_FUNCTION_INPUT_STK;
constexpr int kStkInkey = AT_FUNCTION_INKEY_STK;
constexpr int kStkRefresh = AT_FUNCTION_REFRESH_STK;
constexpr int kStkBrowser = AT_FUNCTION_BROWSER_STK;
constexpr int kSystem = AT_FUNCTION_SYSTEM_CFG;
constexpr int kProfile = AT_FUNCTION_PROFILE_CFG;
constexpr int kIpFilter = AT_FUNCTION_IPFILTER_CFG;
constexpr int kVirServer = AT_FUNCTION_VIRSERVER_CFG;
constexpr int kDmz = AT_FUNCTION_DMZ_CFG;
constexpr int kConnect = AT_FUNCTION_CONNECT_CFG;
constexpr int kSpecAppli = AT_FUNCTION_SPECAPPLIC_CFG;
constexpr int kAProfile = AT_FUNCTION_APROFILE_CFG;
constexpr int kOnDemand = AT_FUNCTION_ONDEMAND_CFG;
constexpr int kSpn = AT_FUNCTION_SPN_CFG;
constexpr int kWebUse = AT_FUNCTION_WEBUSE_CFG;
constexpr int kPinVf = AT_FUNCTION_PINVF_CFG;
constexpr int kThroughput = AT_FUNCTION_THROUGHPUT_CFG;
constexpr int kDataflow = AT_FUNCTION_DATAFLOW_CFG;
constexpr int kPwrOnTime = AT_FUNCTION_PWRONTIME_CFG;
constexpr int kDhcp = AT_FUNCTION_DHCP_INFO_CFG;
constexpr int kDialMode = AT_FUNCTION_DIALMODE_INFO;
constexpr int kCsqLvlExt = AT_FUNCTION_CSQLVLEXT_INFO;
constexpr int kCsqLvl = AT_FUNCTION_CSQLVL_INFO;
constexpr int kUssd = AT_FUNCTION_USSD_CFG;
constexpr int kIpv6Router = AT_FUNCTION_IPV6_ROUTER_INFO;
constexpr int kAuthData = AT_FUNCTION_AUTHDATA_CFG;
constexpr int kCgdcont = AT_FUNCTION_CGDCONT_CFG;
constexpr int kGps = AT_FUNCTION_GPS_CFG;
constexpr int kHFeatureStat = AT_FUNCTION_HFEATURESTAT_CFG;
constexpr int kChipTemp = AT_FUNCTION_CHIPTEMP_CFG;
constexpr int kZte = AT_FUNCTION_ZTE_DATACARD;

// One row, written in the order that reads best in a table: name, type, the parser of each
// operation type, the release routine, then the template of each operation type.
constexpr at_parse_handler row(const char* name, int type, at_parse_func read, at_parse_func exe,
                               at_parse_func test, at_parse_func other, at_free_func free_mem,
                               const char* read_tmpl, const char* exe_tmpl, const char* test_tmpl,
                               const char* other_tmpl) {
    return at_parse_handler{name,  type, {read_tmpl, exe_tmpl, test_tmpl, other_tmpl},
                            read,  exe,  test, other, free_mem};
}

constexpr at_parse_handler terminator(int type) {
    return row(nullptr, type, none, none, none, none, none, none, none, none, none);
}

}  // namespace

extern "C" {

// Unsolicited reports: each parses under OTHER; the messaging reports carry their PDU on a second line.
constinit const at_parse_handler initivatve_report_handlers[] = {
    //  name              type     READ    EXECUTE TEST  OTHER   free_mem     templates: READ, EXECUTE, TEST, OTHER
    row("^RSSI",          kReport, none,   none,   none, common, free_at_cmd, none, none, none, "^RSSI:rssi"),
    row("^SRVST",         kReport, none,   none,   none, common, free_at_cmd, none, none, none, "^SRVST:srv_status"),
    row("^HFREQINFO",     kReport, common, none,   none, common, free_at_cmd, none, none, none, none),
    row("+CMT",           kReport, none,   none,   none, cmgr,   free_at_cmd, none, none, none, none),
    row("+CDS",           kReport, none,   none,   none, cmgr,   free_at_cmd, none, none, none, none),
    row("+CBM",           kReport, none,   none,   none, cmgr,   free_at_cmd, none, none, none, none),
    row("^SMMEMFULL",     kReport, none,   none,   none, common, free_at_cmd, none, none, none, "^SMMEMFULL:mem_type"),
    row("^HCMGSS",        kReport, none,   none,   none, common, free_at_cmd, none, none, none, "^HCMGSS:mr"),
    row("^HCMGSF",        kReport, none,   none,   none, common, free_at_cmd, none, none, none, "^HCMGSF:errCode"),
    row("+CUSD",          kReport, none,   none,   none, common, free_at_cmd, none, none, none, "+CUSD:rspType,cusdStr,codeType"),
    row("^ORIG",          kReport, none,   none,   none, common, free_at_cmd, none, none, none, "^ORIG:call_id,call_type"),
    row("^CONF",          kReport, none,   none,   none, common, free_at_cmd, none, none, none, "^CONF:call_id"),
    row("^CONN",          kReport, none,   none,   none, common, free_at_cmd, none, none, none, "^CONN:call_id,call_type"),
    row("^CEND",          kReport, none,   none,   none, common, free_at_cmd, none, none, none, "^CEND:call_id,duration,end_status,cc_cause"),
    row("+CLIP",          kReport, none,   none,   none, common, free_at_cmd, none, none, none, "+CLIP:call_num,call_type,subaddr,satype,alpha,cli_validity"),
    row("+CCWA",          kReport, none,   none,   none, common, free_at_cmd, none, none, none, "+CCWA:number,type,class"),
    row("^CCWA",          kReport, none,   none,   none, common, free_at_cmd, none, none, none, "^CCWA:number,type,class"),
    row("^XLEMA",         kReport, none,   none,   none, common, free_at_cmd, none, none, none, "^XLEMA:index,total,ecc_num,category,simpresent,mcc,abnormal_service"),
    row("^CSCHANNELINFO", kReport, none,   none,   none, common, free_at_cmd, none, none, none, "^CSCHANNELINFO:status,voice_domain"),
    row("^CCALLSTATE",    kReport, none,   none,   none, common, free_at_cmd, none, none, none, "^CCALLSTATE:call_id,state,voice_domain"),
    row("RING",           kReport, none,   none,   none, common, free_at_cmd, none, none, none, none),
    row("^ECLSTAT",       kReport, none,   none,   none, common, free_at_cmd, none, none, none, "^ECLSTAT:eCall_state,description"),
    terminator(kReport),
};

// Signal, registration, operator selection, system configuration, radio controls.
constinit const at_parse_handler network_cfg_handlers[] = {
    //  name            type      READ    EXECUTE TEST        OTHER free_mem     templates: READ, EXECUTE, TEST, OTHER
    row("+CSQ",         kNetwork, common, common, common,     none, free_at_cmd, "+CSQ:rssi,ber", none, none, none),
    row("^CERSSI",      kNetwork, common, common, common,     none, free_at_cmd, "^CERSSI:n,m,rssi,rscp,ecio,rsrp,rsrq,rssnr,ri,cqi0,cqi1", none, none, none),
    row("^LTERSRP",     kNetwork, common, common, common,     none, free_at_cmd, "^LTERSRP:rsrp,rsrq", none, none, none),
    row("^CSNR",        kNetwork, common, common, common,     none, free_at_cmd, "^CSNR:rscp,ecio", none, none, none),
    row("+CREG",        kNetwork, common, common, common,     none, free_at_cmd, "+CREG:n,stat,lac,ci,act", none, none, none),
    row("+CGREG",       kNetwork, common, common, common,     none, free_at_cmd, "+CGREG:n,stat,lac,ci,act", none, none, none),
    row("+CEREG",       kNetwork, common, common, common,     none, free_at_cmd, "+CEREG:n,stat,lac,ci", none, none, none),
    row("+CIREG",       kNetwork, common, common, common,     none, free_at_cmd, "+CIREG:n,reg_info,ext_info", none, none, none),
    row("+CGATT",       kNetwork, common, common, common,     none, free_at_cmd, "+CGATT:state", none, none, none),
    row("^CGCATT",      kNetwork, common, common, common,     none, free_at_cmd, "^CGCATT:psState,csState", none, none, none),
    row("^REJINFO",     kReport,  common, common, common,     none, free_at_cmd, "^REJINFO:plmnid,srvdomain,rejectcause,rattype", none, none, none),
    row("^CELLROAM",    kNetwork, common, common, common,     none, free_at_cmd, "^CELLROAM:cell_roam_state,rat", none, none, none),
    row("+CPAS",        kNetwork, common, common, common,     none, free_at_cmd, "+CPAS:pactstatus", none, none, none),
    row("^UICCAUTH",    kNetwork, common, common, common,     none, free_at_cmd, "^UICCAUTH:result,\"res\",\"ck\",\"ik\",\"auts\"", none, none, none),
    row("+COPS",        kNetwork, common, common, cops,       none, free_at_cmd, "+COPS:mode,format,oper,rat", none, "+COPS:(stat,long_oper,short_oper,numeric_oper,rat),,(mode_0,mode_1,mode_2,mode_3,mode_4),(format_0,format_1,format_2)", none),
    row("^EONS",        kNetwork, eons,   common, common,     none, free_at_cmd, "^EONS:type,plmn_id,plmn_long,plmn_short,spn_cond,spn", none, none, none),
    row("^CNWI",        kNetwork, common, common, common,     none, free_at_cmd, "^CNWI:plmn_id,sid,nid,sub_net_id,ltm_off", none, none, none),
    row("+CLCC",        kNetwork, none,   common, none,       none, free_at_cmd, none, "+CLCC:idx,dir,stat,mode", none, none),
    row("^SYSCFG",      kNetwork, common, common, syscfg,     none, free_at_cmd, "^SYSCFG:mode,acqorder,band,roam,srvdomain", none, "^SYSCFG:(modes),(acqorders),((band,band_name)),(roman),(srvdomain)", none),
    row("^SYSCFGEX",    kNetwork, common, common, syscfgex,   none, free_at_cmd, none, none, "^SYSCFGEX:(acqorders),((band,band_name)),(roams),(srvdomains),((lteband,lteband_name))", none),
    row("^LTEMEASMODE", kNetwork, common, common, common,     none, free_at_cmd, "^LTEMEASMODE:mode", none, none, none),
    row("^HOPARASET",   kNetwork, common, common, common,     none, free_at_cmd, "^HOPARASET:rsrp_thresh1,rsrp_thresh2,rsrp_thresh3,sinr_thresh1,sinr_thresh2,sinr_thresh3", none, none, none),
    row("^RFSWITCH",    kNetwork, common, common, common,     none, free_at_cmd, "^RFSWITCH:rf_status", none, none, none),
    row("^NETSCAN",     kNetwork, common, common, common,     none, free_at_cmd, "^NETSCAN:arfcn,c1,c2,lac,mcc,mnc,bsic,rxlev,cid,band", none, none, none),
    row("^LCACTRL",     kNetwork, common, common, common,     none, free_at_cmd, "^LCACTRL:CaMode", none, none, none),
    row("^LMIMOCTRL",   kNetwork, common, common, common,     none, free_at_cmd, "^LMIMOCTRL:MimoMode", none, none, none),
    row("^CASWITCHSBB", kNetwork, common, common, common,     none, free_at_cmd, "^CASWITCHSBB:CASwitch", none, none, none),
    row("^DNSP",        kNetwork, common, common, common,     none, free_at_cmd, "^DNSP:pri_dns", none, none, none),
    row("^DNSS",        kNetwork, common, common, common,     none, free_at_cmd, "^DNSS:sec_dns", none, none, none),
    row("^LTEPROFILE",  kNetwork, common, common, lteprofile, none, free_at_cmd, none, none, "^LTEPROFILE:(mode1,mode2),(indexs),maximsiprefixlen,maxapnlen,maxusernamelen,maxuserpwdlen,(authtypes)", none),
    terminator(kNetwork),
};

// PIN state, facility locks, card mode and home PLMN.
constinit const at_parse_handler pin_cfg_handlers[] = {
    //  name         type  READ    EXECUTE TEST    OTHER free_mem     templates: READ, EXECUTE, TEST, OTHER
    row("+CPWD",     kPin, common, common, common, none, free_at_cmd, none, none, none, none),
    row("+CLCK",     kPin, common, common, common, none, free_at_cmd, none, "+CLCK:status", none, none),
    row("^CPIN",     kPin, common, common, common, none, free_at_cmd, "^CPIN:code,times,puk_times,pin_times,puk2_times,pin2_times", none, none, none),
    row("+CPIN",     kPin, common, common, common, none, free_at_cmd, "+CPIN:code", none, none, none),
    row("^APPINVF",  kPin, common, common, common, none, free_at_cmd, none, none, none, none),
    row("^CARDMODE", kPin, common, common, common, none, free_at_cmd, "^CARDMODE:sim_type", none, none, none),
    row("^APHPLMN",  kPin, common, common, common, none, free_at_cmd, "^APHPLMN:plmn", none, none, none),
    terminator(kPin),
};

// Messaging; the vendor commands are twins of the standard ones.
constinit const at_parse_handler sms_cfg_handlers[] = {
    //  name      type  READ        EXECUTE TEST    OTHER free_mem     templates: READ, EXECUTE, TEST, OTHER
    row("+CPMS",  kSms, common,     common, media,  none, free_at_cmd, "+CPMS:mem1,used1,total1,mem2,used2,total2,mem3,used3,total3", "+CPMS:used1,total1,used2,total2,used3,total3", "+CPMS:(mem1,mem2),...", none),
    row("^HCPMS", kSms, common,     common, media,  none, free_at_cmd, "^HCPMS:mem1,used1,total1,mem2,used2,total2,mem3,used3,total3", "^HCPMS:used1,total1,used2,total2,used3,total3", "^HCPMS:(mem1,mem2),...", none),
    row("+CMGR",  kSms, cmgr,       none,   none,   none, free_at_cmd, "+CMGR:stat,reserved,length\r\npdu", none, none, none),
    row("^HCMGR", kSms, common,     common, common, none, free_at_cmd, "^HCMGR:callerID,year,month,day,hour,minute,second,lang,format,length,prt,prv,type,stat", none, none, none),
    row("+CMGD",  kSms, index_list, common, common, none, free_at_cmd, "+CMGD:index_0,...indexN", none, none, none),
    row("^HCMGD", kSms, index_list, common, common, none, free_at_cmd, "^HCMGD:index_0,...indexN", none, none, none),
    row("^CMGI",  kSms, common,     cmgi,   common, none, free_at_cmd, none, "^CMGI:index_0,...indexN", none, none),
    row("+CMGF",  kSms, common,     common, common, none, free_at_cmd, "+CMGF:mode", none, none, none),
    row("^HCMGF", kSms, common,     common, common, none, free_at_cmd, "^HCMGF:mode", none, none, none),
    row("+CNMI",  kSms, common,     common, common, none, free_at_cmd, "+CNMI:mode,mt,bm,ds,bfr", none, none, none),
    row("+CSCA",  kSms, common,     common, common, none, free_at_cmd, "+CSCA:sca,tosca", none, none, none),
    row("+CSCB",  kSms, common,     common, common, none, free_at_cmd, "+CSCB:mode,mids,dcss", none, none, none),
    row("^CMSR",  kSms, common,     common, common, none, free_at_cmd, "^CMSR:ReadTag", none, none, none),
    row("+CMGS",  kSms, common,     common, common, none, free_at_cmd, none, "+CMGS:mr", none, none),
    row("+CMGW",  kSms, common,     common, common, none, free_at_cmd, none, "+CMGW:index", none, none),
    row("+CMSS",  kSms, common,     common, common, none, free_at_cmd, none, "+CMSS:mr", none, none),
    row("^HCMGW", kSms, common,     common, common, none, free_at_cmd, none, "^HCMGW:index", none, none),
    terminator(kSms),
};

// Identity, firmware version and functionality mode.
constinit const at_parse_handler basic_info_cfg_handlers[] = {
    //  name       type    READ    EXECUTE TEST    OTHER free_mem     templates: READ, EXECUTE, TEST, OTHER
    row("+CGMR",   kBasic, soft,   common, common, none, free_at_cmd, "246.subsoftversion", none, none, none),
    row("^HWVER",  kBasic, common, common, common, none, free_at_cmd, none, none, none, none),
    row("^HS",     kBasic, common, common, common, none, free_at_cmd, "^HS:id,protocol,IsOffline,p_class,p_id,s_id", none, none, none),
    row("^U2DIAG", kBasic, common, common, common, none, free_at_cmd, none, none, none, none),
    row("^MEID",   kBasic, common, common, common, none, free_at_cmd, "^MEID:meid", none, none, none),
    row("+ESN",    kBasic, common, common, common, none, free_at_cmd, "ESN:esn", none, none, none),
    row("^PRLVER", kBasic, common, common, common, none, free_at_cmd, none, none, none, none),
    row("+CFUN",   kBasic, common, common, common, none, free_at_cmd, "+CFUN:fun", none, none, none),
    terminator(kBasic),
};

// Call settings, audio controls and call lists.
constinit const at_parse_handler voice_call_cfg_handlers[] = {
    //  name         type    READ    EXECUTE TEST    OTHER free_mem     templates: READ, EXECUTE, TEST, OTHER
    row("+CMUT",     kVoice, common, common, common, none, free_at_cmd, "+CMUT:n_value", none, none, none),
    row("^SMUT",     kVoice, common, common, common, none, free_at_cmd, "^SMUT:n_value", none, none, none),
    row("+CLVL",     kVoice, common, common, common, none, free_at_cmd, "+CLVL:level", none, none, none),
    row("+CMIC",     kVoice, common, common, common, none, free_at_cmd, "+CMIC:level", none, none, none),
    row("^NSSWITCH", kVoice, common, common, common, none, free_at_cmd, "^NSSWITCH:switch_mode", none, none, none),
    row("^ECHOEX",   kVoice, common, common, common, none, free_at_cmd, "^ECHOEX:enable,time,single_len,single_dec,double_dec", none, none, none),
    row("^PCMFR",    kVoice, common, common, common, none, free_at_cmd, "^PCMFR:pcm_frq", none, none, none),
    row("+CCWA",     kVoice, common, common, common, none, free_at_cmd, "+CCWA:status,class", none, none, none),
    row("+CCFC",     kVoice, common, common, common, none, free_at_cmd, "+CCFC:status,class,number,type,reserved1,reserved2,time", none, none, none),
    row("+CLCC",     kVoice, common, common, common, none, free_at_cmd, "+CLCC:idx,dir,stat,mode,mpty,number,type", none, none, none),
    terminator(kVoice),
};

constinit const at_parse_handler add_operation_cfg_handlers[] = {
    terminator(kAddOperation),
};

constinit const at_parse_handler data_operation_cfg_handlers[] = {
    terminator(kDataOperation),
};

// Phonebook store, entry write and entry read.
constinit const at_parse_handler phone_record_cfg_handlers[] = {
    //  name     type          READ    EXECUTE TEST    OTHER free_mem     templates: READ, EXECUTE, TEST, OTHER
    row("+CPBS", kPhoneRecord, common, common, common, none, free_at_cmd, "+CPBS:storage,used,total", none, none, none),
    row("^CPBW", kPhoneRecord, none,   none,   none,   none, free_at_cmd, none, none, none, none),
    row("^CPBR", kPhoneRecord, common, common, common, none, free_at_cmd, none, "^CPBR:index,number,type,text,coding", "^CPBR:indexs,nlength,tlength,mlength", none),
    terminator(kPhoneRecord),
};

// SIM toolkit: one table per kind of proactive command, the ^STGI data under EXECUTE.
constinit const at_parse_handler stk_menu_cfg_handlers[] = {
    //  name     type      READ    EXECUTE TEST    OTHER free_mem     templates: READ, EXECUTE, TEST, OTHER
    row("^STSF", kStkMenu, common, common, common, none, free_at_cmd, "^STSF:Mode,Config,Timeout", none, none, none),
    row("^STGI", kStkMenu, common, common, common, none, free_at_cmd, none, "^STGI:Identifier,NbItems,MenuName,HelpInfo", none, none),
    terminator(kStkMenu),
};

constinit const at_parse_handler stk_text_cfg_handlers[] = {
    //  name     type      READ    EXECUTE TEST    OTHER free_mem     templates: READ, EXECUTE, TEST, OTHER
    row("^STGI", kStkText, common, common, common, none, free_at_cmd, none, "^STGI:TextInfo,TextFormat,ClearMode,DurationTime", none, none),
    terminator(kStkText),
};

constinit const at_parse_handler stk_input_cfg_handlers[] = {
    //  name     type       READ    EXECUTE TEST    OTHER free_mem     templates: READ, EXECUTE, TEST, OTHER
    row("^STGI", kStkInput, common, common, common, none, free_at_cmd, none, "^STGI:TextInfo,TextCode,RspFormat,PackMode,EchoMode,SizeMin,SizeMax,HelpInfo,DefaultTextInfo,DefaultTextCode", none, none),
    terminator(kStkInput),
};

constinit const at_parse_handler stk_inkey_cfg_handlers[] = {
    //  name     type       READ    EXECUTE TEST    OTHER free_mem     templates: READ, EXECUTE, TEST, OTHER
    row("^STGI", kStkInkey, common, common, common, none, free_at_cmd, none, "^STGI:TextInfo,TextCode,RspFormat,HelpInfo,TimeOut", none, none),
    terminator(kStkInkey),
};

constinit const at_parse_handler stk_refresh_cfg_handlers[] = {
    //  name     type         READ    EXECUTE TEST    OTHER free_mem     templates: READ, EXECUTE, TEST, OTHER
    row("^STGI", kStkRefresh, common, common, common, none, free_at_cmd, none, "^STGI:RefreshType", none, none),
    terminator(kStkRefresh),
};

constinit const at_parse_handler stk_browser_cfg_handlers[] = {
    //  name     type         READ    EXECUTE TEST    OTHER free_mem     templates: READ, EXECUTE, TEST, OTHER
    row("^STGI", kStkBrowser, common, common, common, none, free_at_cmd, none, "^STGI:URL,LaunchMode", none, none),
    terminator(kStkBrowser),
};

// System information, SIM files, factory and diagnostic reads, charger and thermal state.
constinit const at_parse_handler sys_cfg_handlers[] = {
    //  name           type     READ    EXECUTE TEST    OTHER   free_mem     templates: READ, EXECUTE, TEST, OTHER
    row("^VERSION",    kSystem, common, common, common, none,   none,        "^VERSION:type:content", none, none, none),
    row("^LTESCINFO",  kSystem, common, common, common, none,   none,        "^LTESCINFO:ci,dl_sinr,num_ant,dl_bw", none, none, none),
    row("^RRCVer",     kSystem, common, common, common, none,   none,        "^RRCVer:rrcver", none, none, none),
    row("^XOTEMP",     kSystem, common, common, common, none,   none,        "^XOTEMP:CRYSTALtemp", none, none, none),
    row("^ADCREADEX",  kSystem, common, common, common, none,   none,        "^ADCREADEX:adc_value", none, none, none),
    row("^ANTMODE",    kSystem, common, common, common, none,   none,        "ANTMODE:ant_mode,nw_mode", none, none, none),
    row("^LOPCNL",     kSystem, common, common, common, none,   none,        "^LOPCNL:mode", none, none, none),
    row("^SETMODE",    kSystem, common, common, common, none,   free_at_cmd, "^SETMODE:work_mode", none, none, none),
    row("^SHELL",      kSystem, common, common, common, none,   free_at_cmd, "^SHELL:shell_type", none, none, none),
    row("^HCSQ",       kSystem, common, common, common, none,   free_at_cmd, "^HCSQ:sysmode,value1,value2,value3,value4,value5", none, none, none),
    row("^SYSINFO",    kSystem, common, common, common, none,   free_at_cmd, "^SYSINFO:srv_status,srv_domain,roam_status,sys_mode,sim_state,lock_state,sys_submode", none, none, none),
    row("^SYSINFOEX",  kSystem, common, common, common, none,   free_at_cmd, "^SYSINFOEX:srv_status,srv_domain,roam_status,sim_state,lock_state,sysmode,sysmode_name,submode,submode_name", none, none, none),
    row("^SYSCFGEX",   kSystem, common, common, common, none,   free_at_cmd, "^SYSCFGEX:acqorder,band,roam,srvdomain,lteband", none, none, none),
    row("^OPL",        kSystem, common, common, common, none,   free_at_cmd, "^OPL:numeric,reserved,index", none, none, none),
    row("^PNN",        kSystem, common, common, common, none,   free_at_cmd, "^PNN:long_name,short_name,reserved", none, none, none),
    row("^CPNN",       kSystem, common, common, common, none,   free_at_cmd, "^CPNN:full_name,full_name_coding,full_name_ci,short_name,short_name_coding,shor_name_ci", none, none, none),
    row("+CCLK",       kSystem, common, common, common, none,   free_at_cmd, "+CCLK:date", none, none, none),
    row("+CRSM",       kSystem, common, common, common, none,   free_at_cmd, "+CRSM: sw1,sw2,response", none, none, none),
    row("+CSIM",       kSystem, common, common, common, none,   free_at_cmd, "+CSIM:length,response", none, none, none),
    row("+CNUM",       kSystem, common, common, common, none,   free_at_cmd, "+CNUM:name,num,type", none, none, none),
    row("^SCID",       kSystem, common, common, common, none,   free_at_cmd, "^SCID:scid_num", none, none, none),
    row("^ICCID",      kSystem, common, common, common, none,   free_at_cmd, "^ICCID: iccid", none, none, none),
    row("^CURRSID",    kSystem, common, common, common, none,   free_at_cmd, "^CURRSID: curr_sid,curr_nid,curr_evdo_subnetid", none, none, none),
    row("^SIMSWITCH",  kSystem, common, common, common, none,   free_at_cmd, "^SIMSWITCH:sim_type", none, none, none),
    row("^SIMGPIO",    kSystem, common, common, common, none,   free_at_cmd, "^SIMGPIO:gpio_switch", none, none, none),
    row("^APBATLVL",   kSystem, common, common, common, none,   free_at_cmd, "^APBATLVL:chargerState,batterylvl", none, none, none),
    row("+CBC",        kSystem, common, common, common, none,   free_at_cmd, "+CBC:cbs,bcl", none, none, none),
    row("^APCHG",      kSystem, common, common, common, none,   free_at_cmd, "^APCHG:ChargerState,ChargerTime,ChargerVoltage,BatteryVoltage,ChargerCurrent,BatteryTemp,BoardTemp,SimTemp,MsmTemp,PaTemp,IsOffChg", none, none, none),
    row("^THERMFUN",   kSystem, none,   none,   none,   common, free_at_cmd, none, none, none, "^THERMFUN:switch"),
    row("^SETWDTIME",  kSystem, none,   none,   none,   common, free_at_cmd, none, none, none, "^SETWDTIME:watchdog_time"),
    row("^THERMSTATE", kSystem, none,   none,   none,   common, free_at_cmd, none, none, none, "^THERMSTATE:state"),
    row("^WAKEUPCFG",  kSystem, none,   none,   none,   common, free_at_cmd, none, none, none, "^WAKEUPCFG:switch,channel,source"),
    terminator(kSystem),
};

constinit const at_parse_handler profile_cfg_handlers[] = {
    //  name          type      READ    EXECUTE TEST    OTHER free_mem     templates: READ, EXECUTE, TEST, OTHER
    row("^APPROFALL", kProfile, common, common, common, none, free_at_cmd, none, none, none, none),
    terminator(kProfile),
};

constinit const at_parse_handler ipfilter_cfg_handlers[] = {
    //  name          type       READ    EXECUTE TEST    OTHER free_mem     templates: READ, EXECUTE, TEST, OTHER
    row("^APIPRDALL", kIpFilter, common, common, common, none, free_at_cmd, none, none, none, none),
    terminator(kIpFilter),
};

constinit const at_parse_handler virserver_cfg_handlers[] = {
    //  name         type        READ    EXECUTE TEST    OTHER free_mem     templates: READ, EXECUTE, TEST, OTHER
    row("^APPFRALL", kVirServer, common, common, common, none, free_at_cmd, none, none, none, none),
    terminator(kVirServer),
};

constinit const at_parse_handler dmz_cfg_handlers[] = {
    //  name      type  READ    EXECUTE TEST    OTHER free_mem     templates: READ, EXECUTE, TEST, OTHER
    row("^APDMZ", kDmz, common, common, common, none, free_at_cmd, none, none, none, none),
    terminator(kDmz),
};

// Data connection state, last dial error, DNS and IPv6 capability.
constinit const at_parse_handler connect_cfg_handlers[] = {
    //  name            type      READ    EXECUTE TEST         OTHER free_mem     templates: READ, EXECUTE, TEST, OTHER
    row("^APCONNST",    kConnect, common, common, common,      none, free_at_cmd, "^APCONNST:status,IPV4,status,IPV6", none, none, none),
    row("^GLASTERR",    kConnect, common, common, common,      none, free_at_cmd, "^GLASTERR:type,code", none, none, none),
    row("^CGDNS",       kConnect, common, common, common,      none, free_at_cmd, "CGDNS: cid,PriDns,SecDns", none, none, none),
    row("^IPV6CAP",     kConnect, common, common, common,      none, free_at_cmd, "IPV6CAP: cfg_value", none, none, none),
    row("^NDISSTATQRY", kConnect, common, common, ndisstatqry, none, free_at_cmd, "NDISSTATQRY:stat,err_code,wx_state,PDP_type,stat,err_code,wx_state,PDP_type", none, "^NDISSTATQRY:(cid)", none),
    terminator(kConnect),
};

constinit const at_parse_handler specappli_cfg_handlers[] = {
    //  name         type        READ    EXECUTE TEST    OTHER free_mem     templates: READ, EXECUTE, TEST, OTHER
    row("^APPTRALL", kSpecAppli, common, common, common, none, free_at_cmd, none, none, none, none),
    terminator(kSpecAppli),
};

constinit const at_parse_handler aprofile_cfg_handlers[] = {
    //  name         type       READ    EXECUTE TEST    OTHER free_mem     templates: READ, EXECUTE, TEST, OTHER
    row("^APPROFRD", kAProfile, common, common, common, none, free_at_cmd, none, none, none, none),
    terminator(kAProfile),
};

constinit const at_parse_handler ondemand_cfg_handlers[] = {
    //  name           type       READ    EXECUTE TEST    OTHER free_mem     templates: READ, EXECUTE, TEST, OTHER
    row("^APNEEDDIAL", kOnDemand, common, common, common, none, free_at_cmd, none, none, none, none),
    terminator(kOnDemand),
};

constinit const at_parse_handler spn_cfg_handlers[] = {
    //  name    type  READ    EXECUTE TEST    OTHER free_mem     templates: READ, EXECUTE, TEST, OTHER
    row("^SPN", kSpn, common, common, common, none, free_at_cmd, "^SPN:disp_rplmn,coding,spn_name", none, none, none),
    terminator(kSpn),
};

constinit const at_parse_handler webuse_cfg_handlers[] = {
    //  name           type     READ    EXECUTE TEST    OTHER free_mem     templates: READ, EXECUTE, TEST, OTHER
    row("^APWEBUSERD", kWebUse, common, common, common, none, free_at_cmd, none, none, none, none),
    terminator(kWebUse),
};

constinit const at_parse_handler pinvf_cfg_handlers[] = {
    //  name        type    READ    EXECUTE TEST    OTHER free_mem     templates: READ, EXECUTE, TEST, OTHER
    row("^APPINVF", kPinVf, common, common, common, none, free_at_cmd, none, none, none, none),
    terminator(kPinVf),
};

constinit const at_parse_handler throughput_cfg_handlers[] = {
    //  name             type         READ    EXECUTE TEST    OTHER free_mem     templates: READ, EXECUTE, TEST, OTHER
    row("^APTHROUGHPUT", kThroughput, common, common, common, none, free_at_cmd, none, none, none, none),
    terminator(kOnDemand),
};

constinit const at_parse_handler dataflow_cfg_handlers[] = {
    //  name          type       READ    EXECUTE TEST  OTHER free_mem     templates: READ, EXECUTE, TEST, OTHER
    row("^DSFLOWQRY", kDataflow, common, none,   none, none, free_at_cmd, "^DSFLOWQRY:last_ds_time,last_tx_flow,last_rx_flow,total_ds_time,total_tx_flow,total_rx_flow", none, none, none),
    terminator(kOnDemand),
};

constinit const at_parse_handler pwrontime_cfg_handlers[] = {
    //  name            type        READ    EXECUTE TEST    OTHER free_mem     templates: READ, EXECUTE, TEST, OTHER
    row("^APPWRONTIME", kPwrOnTime, common, common, common, none, free_at_cmd, none, none, none, none),
    terminator(kOnDemand),
};

constinit const at_parse_handler dhcp_cfg_handlers[] = {
    //  name       type   READ    EXECUTE TEST    OTHER free_mem     templates: READ, EXECUTE, TEST, OTHER
    row("^DHCP",   kDhcp, common, common, common, none, free_at_cmd, "^DHCP:IPAddr,NetMask,GateWay,DHCPserver,pDNS,sDNS,max_rx_data,max_tx_data", none, none, none),
    row("^DHCPV6", kDhcp, common, common, common, none, free_at_cmd, "^DHCPV6:clip_v6,netmask_v6,gate_v6,dhcp_v6,pDNS_v6,sDNS_v6,max_rx_data,max_tx_data", none, none, none),
    terminator(kDhcp),
};

constinit const at_parse_handler dialmode_info_handlers[] = {
    //  name           type       READ    EXECUTE TEST    OTHER free_mem     templates: READ, EXECUTE, TEST, OTHER
    row("^APDIALMODE", kDialMode, common, common, common, none, free_at_cmd, none, none, none, none),
    terminator(kDialMode),
};

constinit const at_parse_handler csqlvext_info_handlers[] = {
    //  name          type        READ    EXECUTE TEST    OTHER free_mem     templates: READ, EXECUTE, TEST, OTHER
    row("^CSQLVLEXT", kCsqLvlExt, common, common, common, none, free_at_cmd, none, none, none, none),
    terminator(kCsqLvlExt),
};

constinit const at_parse_handler csqlvl_info_handlers[] = {
    //  name       type     READ    EXECUTE TEST    OTHER free_mem     templates: READ, EXECUTE, TEST, OTHER
    row("+CSQLVL", kCsqLvl, common, common, common, none, free_at_cmd, none, none, none, none),
    terminator(kCsqLvl),
};

constinit const at_parse_handler ussd_cfg_handlers[] = {
    //  name         type   READ    EXECUTE TEST    OTHER free_mem     templates: READ, EXECUTE, TEST, OTHER
    row("^USSDMODE", kUssd, common, common, common, none, free_at_cmd, "^USSDMODE: mode", none, none, none),
    terminator(kUssd),
};

constinit const at_parse_handler ipv6_router_handlers[] = {
    //  name          type         READ    EXECUTE TEST    OTHER free_mem     templates: READ, EXECUTE, TEST, OTHER
    row("^APRAINFO",  kIpv6Router, common, common, common, none, free_at_cmd, "^APRAINFO:ipv6_mtu,prefix,preferred_lifetime,valid_lifetime", none, none, none),
    row("^APLANADDR", kIpv6Router, common, common, common, none, free_at_cmd, "^APLANADDR:addr,prefixlen", none, none, none),
    terminator(kIpv6Router),
};

constinit const at_parse_handler authdata_cfg_handlers[] = {
    //  name         type       READ    EXECUTE TEST    OTHER free_mem     templates: READ, EXECUTE, TEST, OTHER
    row("^AUTHDATA", kAuthData, common, common, common, none, free_at_cmd, "^AUTHDATA:cid,Auth_type,passwd,username,PLMN", none, none, none),
    terminator(kAuthData),
};

constinit const at_parse_handler cgdcont_cfg_handlers[] = {
    //  name        type      READ    EXECUTE TEST    OTHER free_mem     templates: READ, EXECUTE, TEST, OTHER
    row("+CGDCONT", kCgdcont, common, common, common, none, free_at_cmd, "+CGDCONT:cid,PDP_type,APN,PDP_address,d_comp,h_comp,temp7,temp8", none, none, none),
    terminator(kCgdcont),
};

// Positioning and the data contexts of assisted positioning.
constinit const at_parse_handler gps_handlers[] = {
    //  name           type  READ    EXECUTE TEST    OTHER free_mem     templates: READ, EXECUTE, TEST, OTHER
    row("+CGDCONT",    kGps, common, common, common, none, free_at_cmd, "+CGDCONT:cid,pdp_type,apn,ip_address,d_comp,h_comp", none, none, none),
    row("^WPCAP",      kGps, common, common, common, none, free_at_cmd, "^WPCAP:gps_type", none, none, none),
    row("^WPDOM",      kGps, common, common, common, none, free_at_cmd, "^WPDOM:operation_mode", none, none, none),
    row("^WPDST",      kGps, common, common, common, none, free_at_cmd, "^WPDST:session_type", none, none, none),
    row("^GPSTYPE",    kGps, common, common, common, none, free_at_cmd, "^GPSTYPE:gps_type", none, none, none),
    row("^WGNSS",      kGps, common, common, common, none, free_at_cmd, "^WGNSS:pd_system", none, none, none),
    row("^WPQOS",      kGps, common, common, common, none, free_at_cmd, "^WPQOS:performance,accuracy", none, none, none),
    row("^WPDFR",      kGps, common, common, common, none, free_at_cmd, "^WPDFR:number,time", none, none, none),
    row("^SOCKETCONT", kGps, common, common, common, none, free_at_cmd, "^SOCKETCONT:cid,pdp_type,apn,ip_address,d_comp,h_comp", none, none, none),
    row("^AUTHDATA",   kGps, common, common, common, none, free_at_cmd, "^AUTHDATA:cid,auth_type,passwd,username,plmn", none, none, none),
    row("^WPURL",      kGps, common, common, common, none, free_at_cmd, "^WPURL:url", none, none, none),
    row("^DCONNSTAT",  kGps, common, common, common, none, free_at_cmd, "^DCONNSTAT: cid,APN,ipv4_stat,ipv6_stat,dconn_type", none, none, none),
    row("^WPDIM",      kGps, common, common, common, none, free_at_cmd, "^WPDIM: mode", none, none, none),
    row("^WPJAM",      kGps, common, common, common, none, free_at_cmd, "^WPJAM: status,threshold", none, none, none),
    terminator(kGps),
};

constinit const at_parse_handler hfeaturestat_cfg_handlers[] = {
    //  name             type           READ    EXECUTE TEST    OTHER free_mem     templates: READ, EXECUTE, TEST, OTHER
    row("^HFEATURESTAT", kHFeatureStat, common, common, common, none, free_at_cmd, "^HFEATURESTAT:feature_id,value1,value2,value3,value4,value5", none, none, none),
    terminator(kHFeatureStat),
};

constinit const at_parse_handler chiptemp_handlers[] = {
    //  name         type       READ    EXECUTE TEST    OTHER free_mem     templates: READ, EXECUTE, TEST, OTHER
    row("^CHIPTEMP", kChipTemp, common, common, common, none, free_at_cmd, "^CHIPTEMP:gpa_temp,wpa_temp,lpa_temp,sim_temp,bat_temp,tcxo_temp", none, none, none),
    terminator(kChipTemp),
};

// The datacard command set's replies; these rows carry no release routine.
constinit const at_parse_handler zte_datacard_handlers[] = {
    //  name        type  READ    EXECUTE TEST    OTHER free_mem templates: READ, EXECUTE, TEST, OTHER
    row("+ZPAS",    kZte, common, common, common, none, none,    "+ZPAS:network,srv_domain", none, none, none),
    row("+ZPINPUK", kZte, common, common, common, none, none,    "+ZPINPUK:pinnumber,puknumber", none, none, none),
    row("+ZSNT",    kZte, common, common, common, none, none,    "+ZSNT:cm_mode,net_sel_mode,pref_acq", none, none, none),
    row("+ZOPRT",   kZte, common, common, common, none, none,    "+ZOPRT:mode", none, none, none),
    row("+ZUSIM",   kZte, common, common, common, none, none,    "+ZUSIM:usim_card", none, none, none),
    terminator(kZte),
};
// Function type to table, in the order the dispatcher scans. VSIM (38), XMLREPORTING (40) and
// SBB (42) have no table.
constinit const ATS_FUNC_CMD func_list[AT_FUNC_LIST_ROWS] = {
    {AT_FUNCTION_INITIATIVE_REPORT, initivatve_report_handlers},
    {AT_FUNCTION_NETWORK_CFG, network_cfg_handlers},
    {AT_FUNCTION_PIN_CFG, pin_cfg_handlers},
    {AT_FUNCTION_PROFILE_CFG, profile_cfg_handlers},
    {AT_FUNCTION_IPFILTER_CFG, ipfilter_cfg_handlers},
    {AT_FUNCTION_VIRSERVER_CFG, virserver_cfg_handlers},
    {AT_FUNCTION_SPECAPPLIC_CFG, specappli_cfg_handlers},
    {AT_FUNCTION_DMZ_CFG, dmz_cfg_handlers},
    {AT_FUNCTION_CONNECT_CFG, connect_cfg_handlers},
    {AT_FUNCTION_ONDEMAND_CFG, ondemand_cfg_handlers},
    {AT_FUNCTION_SPN_CFG, spn_cfg_handlers},
    {AT_FUNCTION_WEBUSE_CFG, webuse_cfg_handlers},
    {AT_FUNCTION_PINVF_CFG, pinvf_cfg_handlers},
    {AT_FUNCTION_SMS_CFG, sms_cfg_handlers},
    {AT_FUNCTION_BASIC_INFO_CFG, basic_info_cfg_handlers},
    {AT_FUNCTION_VOICE_CALL_CFG, voice_call_cfg_handlers},
    {AT_FUNCTION_ADD_OPERATION, add_operation_cfg_handlers},
    {AT_FUNCTION_DATA_OPERATION, data_operation_cfg_handlers},
    {AT_FUNCTION_PHONE_RECORD, phone_record_cfg_handlers},
    {AT_FUNCTION_STK, stk_menu_cfg_handlers},
    {AT_FUNCTION_TEXT_STK, stk_text_cfg_handlers},
    {AT_FUNCTION_INPUT_STK, stk_input_cfg_handlers},
    {AT_FUNCTION_INKEY_STK, stk_inkey_cfg_handlers},
    {AT_FUNCTION_REFRESH_STK, stk_refresh_cfg_handlers},
    {AT_FUNCTION_BROWSER_STK, stk_browser_cfg_handlers},
    {AT_FUNCTION_SYSTEM_CFG, sys_cfg_handlers},
    {AT_FUNCTION_CGDCONT_CFG, cgdcont_cfg_handlers},
    {AT_FUNCTION_AUTHDATA_CFG, authdata_cfg_handlers},
    {AT_FUNCTION_APROFILE_CFG, aprofile_cfg_handlers},
    {AT_FUNCTION_THROUGHPUT_CFG, throughput_cfg_handlers},
    {AT_FUNCTION_DATAFLOW_CFG, dataflow_cfg_handlers},
    {AT_FUNCTION_PWRONTIME_CFG, pwrontime_cfg_handlers},
    {AT_FUNCTION_DHCP_INFO_CFG, dhcp_cfg_handlers},
    {AT_FUNCTION_DIALMODE_INFO, dialmode_info_handlers},
    {AT_FUNCTION_CSQLVLEXT_INFO, csqlvext_info_handlers},
    {AT_FUNCTION_CSQLVL_INFO, csqlvl_info_handlers},
    {AT_FUNCTION_USSD_CFG, ussd_cfg_handlers},
    {AT_FUNCTION_IPV6_ROUTER_INFO, ipv6_router_handlers},
    {AT_FUNCTION_GPS_CFG, gps_handlers},
    {AT_FUNCTION_HFEATURESTAT_CFG, hfeaturestat_cfg_handlers},
    {AT_FUNCTION_CHIPTEMP_CFG, chiptemp_handlers},
    {AT_FUNCTION_ZTE_DATACARD, zte_datacard_handlers},
};

}  // extern "C"
