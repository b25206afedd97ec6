// List and grouped-value parsers: the tree shape each builds from a test-command reply, their
// refusals, and hostile replies thrown at every parser.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "test_parse_util.h"

using parse_test::parse;

namespace {

constexpr const char* kCops =
    "+COPS:(stat,long_oper,short_oper,numeric_oper,rat),,(mode_0,mode_1,mode_2,mode_3,mode_4),"
    "(format_0,format_1,format_2)";
constexpr const char* kSyscfg = "^SYSCFG:(modes),(acqorders),((band,band_name)),(roman),(srvdomain)";
constexpr const char* kSyscfgex =
    "^SYSCFGEX:(acqorders),((band,band_name)),(roams),(srvdomains),((lteband,lteband_name))";
constexpr const char* kCpms = "+CPMS:(mem1,mem2),...";
constexpr const char* kNdis = "^NDISSTATQRY:(cid)";
constexpr const char* kLteProfile =
    "^LTEPROFILE:(mode1,mode2),(indexs),maximsiprefixlen,maxapnlen,maxusernamelen,maxuserpwdlen,(authtypes)";
constexpr const char* kCmgd = "+CMGD:index_0,...indexN";
constexpr const char* kCmgi = "^CMGI:index_0,...indexN";
constexpr const char* kCmgr = "+CMGR:stat,reserved,length\r\npdu";
constexpr const char* kEons = "^EONS:type,plmn_id,plmn_long,plmn_short,spn_cond,spn";

const std::string kTail = " | mode=~,mode_0=0,mode_1=1,mode_2=2,mode_3=3,mode_4=4 | format=~,format_0=0,format_1=1,format_2=2";

TEST(ListParse, BuildsTreesAndRefusesBrokenReplies) {
    std::string five = "+COPS: ", five_tree;  // more operators than the usual two or three
    for (char i = '0'; i < '5'; ++i) {
        five += std::string("(1,\"Op") + i + "\",\"O\",\"4600" + i + "\",7),";
        five_tree += std::string("option=~,stat=1,long_oper=Op") + i + ",short_oper=O,numeric_oper=4600" + i + ",rat=7 | ";
    }
    struct Case {
        at_parse_func fn;
        const char* templ;
        const char* name;
        std::string reply;
        int rc;
        std::string tree;
    } cases[] = {
        {parse_cops_at_str, kCops, "+COPS",
         "+COPS: (2,\"EXAMPLE MOBILE\",\"EXMO\",\"00101\",7),(1,\"TEST(NET)\",\"TST\",\"00102\",2),,(0,1,2,3,4),(0,1,2)", 0,
         "option=~,stat=2,long_oper=EXAMPLE MOBILE,short_oper=EXMO,numeric_oper=00101,rat=7 | "
         "option=~,stat=1,long_oper=TEST(NET),short_oper=TST,numeric_oper=00102,rat=2" + kTail},
        {parse_cops_at_str, kCops, "+COPS", five + ",(0,1,2,3,4),(0,1,2)\r\n", 0, five_tree + kTail.substr(3)},
        {parse_cops_at_str, kCops, "+COPS", "+COPS: (1,\"A\",,\"00101\",7),,(0,1,2,3,4),(0,1,2)", 0,
         "option=~,stat=1,long_oper=A,short_oper=,numeric_oper=00101,rat=7" + kTail},
        {parse_cops_at_str, kCops, "+COPS", "+COPS: ,,(0,1,2,3,4),(0,1,2)", 0, kTail.substr(3)},
        {parse_cops_at_str, kCops, "+COPS", "+COPS: (2,\"A\",\"B\",\"1\",7),(0,1,2,3,4),(0,1,2)", -4, ""},
        {parse_cops_at_str, kCops, "+COPS", "+COPS: (2,\"A\",\"B\",\"1\",7),,(0,1", -4, ""},
        {parse_cops_at_str, kCops, "+COPS", "OK", -1, ""},
        {parse_syscfg_at_str, kSyscfg, "^SYSCFG",
         "^SYSCFG:(2,13,14,16),(0-3),((80000,\"GSM900\"),(400000,\"WCDMA2100\")),(0-2),(0-4)", 0,
         "modes=~,modes=2,~=13,~=14,~=16 | acqorders=~,~=0,~=1,~=2,~=3 | "
         "bandlist=~,band=80000,band_name=GSM900 | bandlist=~,band=400000,band_name=WCDMA2100"},
        {parse_syscfg_at_str, kSyscfg, "^SYSCFG", "^SYSCFG:(2),(0,1),((3fffffff,\"All bands\")),(0-2),(0-4)", 0,
         "modes=~,modes=2 | acqorders=~,acqorders=0,~=1 | bandlist=~,band=3fffffff,band_name=All bands"},
        {parse_syscfg_at_str, kSyscfg, "^SYSCFG", "^SYSCFG:(2),(0,1),(3fffffff),(0-2),(0-4)", -2, ""},
        {parse_syscfg_at_str, kSyscfg, "^SYSCFG", "OK", -2, ""},
        {parse_syscfgex_at_str, kSyscfgex, "^SYSCFGEX",
         "^SYSCFGEX: (\"00\",\"03\"),((1,\"A\"),(2,\"B\"),(3,\"C\")),(0-2),(0-4),((10,\"L1\"),(20,\"L2\"))", 0,
         "acqorders=~,acqorders=00,~=03 | bandlist=~,band=1,band_name=A | "
         "LTElist=~,lteband=10,lteband_name=L1 | LTElist=~,lteband=20,lteband_name=L2"},
        {parse_syscfgex_at_str, kSyscfgex, "^SYSCFGEX", "^SYSCFGEX: (\"00\"),((1,\"A\"),(2,\"B\")),(0-2),(0-4)", 0,
         "acqorders=~,acqorders=00 | bandlist=~,band=1,band_name=A"},
        {parse_syscfgex_at_str, kSyscfgex, "^SYSCFGEX", "^SYSCFGEX: (\"00\"),((1,\"A\")),(0-2),(0-4),((10,\"L1\")", -2, ""},
        {parse_sms_media, kCpms, "+CPMS", "+CPMS: (\"SM\",\"ME\"),(\"SM\",\"ME\"),(\"SM\")", 0,
         "SmsMediaList=~,mem1=SM,mem2=ME | SmsMediaList=~,mem1=SM,mem2=ME | SmsMediaList=~,mem1=SM,mem2=~"},
        {parse_sms_media, kCpms, "+CPMS", "+CPMS: \"SM\"", -2, ""},
        {parse_ndisstatqry_at_str, kNdis, "^NDISSTATQRY", "^NDISSTATQRY: (1-16)", 0, "cid=~,cid=1-16"},  // no expansion
        {parse_ndisstatqry_at_str, kNdis, "^NDISSTATQRY", "^NDISSTATQRY: 1", -2, ""},
        {parse_lteprofile_at_str, kLteProfile, "^LTEPROFILE", "^LTEPROFILE: (0,1),(1-11),15,99,32,32,(0,1,2)", 0,
         "~=~,mode1=0,mode2=1 | ~=~,indexs=1-11"},
        {parse_lteprofile_at_str, kLteProfile, "^LTEPROFILE", "^LTEPROFILE: (0,1)", -2, ""},
        {parse_sms_index_list_at_str, kCmgd, "+CMGD", "+CMGD: (1,2,5),(0-4)", 0, "index_0=1,index_1=2,index_2=5"},
        {parse_sms_index_list_at_str, kCmgd, "+CMGD", "+CMGD: (),(0-4)", 0, "index_0=~"},
        {parse_sms_index_list_at_str, kCmgd, "+CMGD", "+CMGD: (1,2,5)", -2, ""},
        {parse_sms_index_list_at_str, kCmgd, "+CMGD", "OK", -1, ""},
        {parse_cmgi_list_at_str, kCmgi, "^CMGI", "^CMGI: 3,4,7", 0, "index_0=3,index_1=4,index_2=7"},
        {parse_cmgi_list_at_str, kCmgi, "^CMGI", "^CMGI 3", -4, ""},
        {parse_sms_cmgr_at_str, kCmgr, "+CMGR", "+CMGR: 0,,25\r\n0891683108200105F0040D91", 0,
         "stat=0,reserved=,length=25,pdu=0891683108200105F0040D91"},
        {parse_sms_cmgr_at_str, "+CMGR:stat", "+CMGR", "+CMGR: 0\r\n00", -1, ""},
        {parse_sms_cmgr_at_str, kCmgr, "+CMGR", "+CMGR: 0,,25", -1, ""},
        {parse_eons_at_str, kEons, "^EONS", "^EONS: 1,00101\r\n^EONS: 2,00102,\"Long\",\"S\",0,\"spn\"", 0,
         "type=2,plmn_id=00102,plmn_long=Long,plmn_short=S,spn_cond=0,spn=spn"},  // the last occurrence
        {parse_eons_at_str, kEons, "^EONS", "OK", -2, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.reply);
        const auto p = parse(c.fn, c.templ, c.reply, c.name);
        EXPECT_EQ(p.rc, c.rc);
        EXPECT_EQ(p.tree, c.tree);
        EXPECT_TRUE(c.rc == 0 || p.slot_kept);
    }
}

TEST(OperatorList, NoGroupLeavesTheSlot) {
    std::string none = "no groups here";
    EXPECT_EQ(parse_operator_list(nullptr, none.data(), none.data(), none.data()), -1);
    AtCmdParse* slot = parse_test::kUntouched;
    EXPECT_EQ(parse_operator_list(&slot, const_cast<char*>("(a,b)"), none.data(), const_cast<char*>("option")), 0);
    EXPECT_EQ(slot, parse_test::kUntouched);
}

// Replies built to break a parser: cut lines, unbalanced quotes and brackets, missing colons,
// a report field full of commas, over-long fields, bytes above 0x7F, null pointers. Every parser must return
// a code in range, leave the slot alone on failure and never touch memory it does not own (the
// sanitizer build catches that).
TEST(HostileReplies, EveryParserSurvives) {
    struct Parser { at_parse_func fn; const char* templ; std::string name; } parsers[] = {
        {parse_common_at_str, "+CSQ:rssi,ber", "+CSQ"},        {parse_soft_str, "246.subsoftversion", "+CGMR"},
        {parse_cops_at_str, kCops, "+COPS"},                   {parse_syscfg_at_str, kSyscfg, "^SYSCFG"},
        {parse_syscfgex_at_str, kSyscfgex, "^SYSCFGEX"},       {parse_sms_media, kCpms, "+CPMS"},
        {parse_ndisstatqry_at_str, kNdis, "^NDISSTATQRY"},     {parse_lteprofile_at_str, kLteProfile, "^LTEPROFILE"},
        {parse_sms_index_list_at_str, kCmgd, "+CMGD"},         {parse_cmgi_list_at_str, kCmgi, "^CMGI"},
        {parse_sms_cmgr_at_str, kCmgr, "+CMGR"},               {parse_eons_at_str, kEons, "^EONS"},
        {parse_band_at_str, "(band,band_name)", "bandlist"},
    };
    for (const Parser& p : parsers) {
        const std::string& n = p.name;
        const std::vector<std::string> replies = {
            "", n, n + ":", n + ": ", n + ": (", n + ": )", n + ": ((", n + ": ))", n + ": \"",
            n + ": (\"a,b),,(1", n + ": (1,2),,(", n + ": (1,2),,(3),", n + ": ,,", n + ": ((1,\"x\"),(2",
            n + ": (0-2147483647),((1,2))", n + ": (1)\r", n + ": 1\r\n" + n, n + ": 1\r\n" + n + ":",
            n + ": \xff\xfe\x80,\xc3(\xa9)", n + "\r\n", "\r\n" + n + ": 1",
            n + ": " + std::string(1500 - n.size() - 2, ','), n + ": " + std::string(1490, 'x'),
            n + ": (" + std::string(1400, ',') + ")),(" + std::string(80, ',') + "))",
            n + ": " + std::string(700, '('), n + ": " + std::string(700, '"') + ",",
        };
        std::string any = n + ": (1)";
        AtCmdParse* none = nullptr;
        EXPECT_EQ(p.fn(nullptr, p.templ, any.data(), const_cast<char*>(n.c_str())), -2) << n;
        EXPECT_EQ(p.fn(&none, p.templ, nullptr, const_cast<char*>(n.c_str())), -2) << n;
        EXPECT_EQ(none, nullptr);
        for (const std::string& text : replies) {
            SCOPED_TRACE(n + " <" + text.substr(0, 40) + ">");
            const auto r = parse(p.fn, p.templ, text, n.c_str());
            EXPECT_TRUE(r.rc >= -5 && r.rc <= 0) << r.rc;
            EXPECT_TRUE(r.rc == 0 || r.slot_kept);
        }
    }
}

}  // namespace
