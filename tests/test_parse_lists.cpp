// List and grouped-value parsers: the tree shape each builds from a test-command reply, their
// refusals, and hostile replies thrown at every parser.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "test_parse_util.h"

using parse_test::Buf;
using parse_test::Tree;

namespace {

constexpr const char* kCops =
    "+COPS:(stat,long_oper,short_oper,numeric_oper,rat),,(mode_0,mode_1,mode_2,mode_3,mode_4),"
    "(format_0,format_1,format_2)";
constexpr const char* kSyscfg =
    "^SYSCFG:(modes),(acqorders),((band,band_name)),(roman),(srvdomain)";
constexpr const char* kSyscfgex =
    "^SYSCFGEX:(acqorders),((band,band_name)),(roams),(srvdomains),((lteband,lteband_name))";
constexpr const char* kCpms = "+CPMS:(mem1,mem2),...";
constexpr const char* kNdis = "^NDISSTATQRY:(cid)";
constexpr const char* kLteProfile =
    "^LTEPROFILE:(mode1,mode2),(indexs),maximsiprefixlen,maxapnlen,maxusernamelen,maxuserpwdlen,"
    "(authtypes)";
constexpr const char* kCmgd = "+CMGD:index_0,...indexN";
constexpr const char* kCmgi = "^CMGI:index_0,...indexN";
constexpr const char* kCmgr = "+CMGR:stat,reserved,length\r\npdu";
constexpr const char* kEons = "^EONS:type,plmn_id,plmn_long,plmn_short,spn_cond,spn";

struct ListCase {
    const char* what;
    at_parse_func parser;
    const char* templ;
    const char* name;
    std::string reply;
    int rc;
    std::string tree;
};

class ListParse : public ::testing::TestWithParam<ListCase> {};

TEST_P(ListParse, BuildsTree) {
    const ListCase& c = GetParam();
    Buf reply(c.reply);
    Tree tree;
    EXPECT_EQ(c.parser(tree.slot(), c.templ, reply.get(), const_cast<char*>(c.name)), c.rc);
    EXPECT_EQ(tree.str(), c.tree);
}

const std::string kOp1 = "option=~,stat=2,long_oper=CHINA MOBILE,short_oper=CMCC,numeric_oper=46000,rat=7";
const std::string kOp2 = "option=~,stat=1,long_oper=UNI(COM),short_oper=UNI,numeric_oper=46001,rat=2";
const std::string kModes = "mode=~,mode_0=0,mode_1=1,mode_2=2,mode_3=3,mode_4=4";
const std::string kFormats = "format=~,format_0=0,format_1=1,format_2=2";

std::string five_operators() {
    std::string s = "+COPS: ";
    for (int i = 0; i < 5; ++i) s += "(1,\"Op" + std::to_string(i) + "\",\"O\",\"4600" + std::to_string(i) + "\",7),";
    return s + ",(0,1,2,3,4),(0,1,2)\r\n";
}

std::string five_operator_tree() {
    std::string s;
    for (int i = 0; i < 5; ++i) {
        s += "option=~,stat=1,long_oper=Op" + std::to_string(i) +
             ",short_oper=O,numeric_oper=4600" + std::to_string(i) + ",rat=7 | ";
    }
    return s + kModes + " | " + kFormats;
}

INSTANTIATE_TEST_SUITE_P(
    Shapes, ListParse,
    ::testing::Values(
        ListCase{"cops two operators", parse_cops_at_str, kCops, "+COPS",
                 "+COPS: (2,\"CHINA MOBILE\",\"CMCC\",\"46000\",7),(1,\"UNI(COM)\",\"UNI\",\"46001\",2),,"
                 "(0,1,2,3,4),(0,1,2)",
                 0, kOp1 + " | " + kOp2 + " | " + kModes + " | " + kFormats},
        ListCase{"cops five operators", parse_cops_at_str, kCops, "+COPS", five_operators(), 0,
                 five_operator_tree()},
        ListCase{"cops empty field inside an operator", parse_cops_at_str, kCops, "+COPS",
                 "+COPS: (1,\"A\",,\"46000\",7),,(0,1,2,3,4),(0,1,2)", 0,
                 "option=~,stat=1,long_oper=A,short_oper=,numeric_oper=46000,rat=7 | " + kModes +
                     " | " + kFormats},
        ListCase{"cops no operator", parse_cops_at_str, kCops, "+COPS",
                 "+COPS: ,,(0,1,2,3,4),(0,1,2)", 0, kModes + " | " + kFormats},
        ListCase{"cops without double comma", parse_cops_at_str, kCops, "+COPS",
                 "+COPS: (2,\"A\",\"B\",\"1\",7),(0,1,2,3,4),(0,1,2)", -4, ""},
        ListCase{"cops mode list unclosed", parse_cops_at_str, kCops, "+COPS",
                 "+COPS: (2,\"A\",\"B\",\"1\",7),,(0,1", -4, ""},
        ListCase{"cops name absent", parse_cops_at_str, kCops, "+COPS", "OK", -1, ""},
        ListCase{"syscfg range", parse_syscfg_at_str, kSyscfg, "^SYSCFG",
                 "^SYSCFG:(2,13,14,16),(0-3),((80000,\"GSM900\"),(400000,\"WCDMA2100\")),(0-2),(0-4)",
                 0,
                 "modes=~,modes=2,~=13,~=14,~=16 | acqorders=~,~=0,~=1,~=2,~=3 | "
                 "bandlist=~,band=80000,band_name=GSM900 | bandlist=~,band=400000,band_name=WCDMA2100"},
        ListCase{"syscfg order list", parse_syscfg_at_str, kSyscfg, "^SYSCFG",
                 "^SYSCFG:(2),(0,1),((3fffffff,\"All bands\")),(0-2),(0-4)", 0,
                 "modes=~,modes=2 | acqorders=~,acqorders=0,~=1 | "
                 "bandlist=~,band=3fffffff,band_name=All bands"},
        ListCase{"syscfg no band list", parse_syscfg_at_str, kSyscfg, "^SYSCFG",
                 "^SYSCFG:(2),(0,1),(3fffffff),(0-2),(0-4)", -2, ""},
        ListCase{"syscfg name absent", parse_syscfg_at_str, kSyscfg, "^SYSCFG", "OK", -2, ""},
        ListCase{"syscfgex three bands two lte", parse_syscfgex_at_str, kSyscfgex, "^SYSCFGEX",
                 "^SYSCFGEX: (\"00\",\"03\"),((1,\"A\"),(2,\"B\"),(3,\"C\")),(0-2),(0-4),"
                 "((10,\"L1\"),(20,\"L2\"))",
                 0,
                 "acqorders=~,acqorders=00,~=03 | bandlist=~,band=1,band_name=A | "
                 "LTElist=~,lteband=10,lteband_name=L1 | LTElist=~,lteband=20,lteband_name=L2"},
        ListCase{"syscfgex without lte", parse_syscfgex_at_str, kSyscfgex, "^SYSCFGEX",
                 "^SYSCFGEX: (\"00\"),((1,\"A\"),(2,\"B\")),(0-2),(0-4)", 0,
                 "acqorders=~,acqorders=00 | bandlist=~,band=1,band_name=A"},
        ListCase{"syscfgex lte unclosed", parse_syscfgex_at_str, kSyscfgex, "^SYSCFGEX",
                 "^SYSCFGEX: (\"00\"),((1,\"A\")),(0-2),(0-4),((10,\"L1\")", -2, ""},
        ListCase{"cpms storages", parse_sms_media, kCpms, "+CPMS",
                 "+CPMS: (\"SM\",\"ME\"),(\"SM\",\"ME\"),(\"SM\")", 0,
                 "SmsMediaList=~,mem1=SM,mem2=ME | SmsMediaList=~,mem1=SM,mem2=ME | "
                 "SmsMediaList=~,mem1=SM,mem2=~"},
        ListCase{"cpms no bracket", parse_sms_media, kCpms, "+CPMS", "+CPMS: \"SM\"", -2, ""},
        ListCase{"ndisstatqry range stays one value", parse_ndisstatqry_at_str, kNdis,
                 "^NDISSTATQRY", "^NDISSTATQRY: (1-16)", 0, "cid=~,cid=1-16"},
        ListCase{"ndisstatqry no group", parse_ndisstatqry_at_str, kNdis, "^NDISSTATQRY",
                 "^NDISSTATQRY: 1", -2, ""},
        ListCase{"lteprofile two groups", parse_lteprofile_at_str, kLteProfile, "^LTEPROFILE",
                 "^LTEPROFILE: (0,1),(1-11),15,99,32,32,(0,1,2)", 0,
                 "~=~,mode1=0,mode2=1 | ~=~,indexs=1-11"},
        ListCase{"lteprofile one group", parse_lteprofile_at_str, kLteProfile, "^LTEPROFILE",
                 "^LTEPROFILE: (0,1)", -2, ""},
        ListCase{"cmgd first list", parse_sms_index_list_at_str, kCmgd, "+CMGD",
                 "+CMGD: (1,2,5),(0-4)", 0, "index_0=1,index_1=2,index_2=5"},
        ListCase{"cmgd empty list", parse_sms_index_list_at_str, kCmgd, "+CMGD",
                 "+CMGD: (),(0-4)", 0, "index_0=~"},
        ListCase{"cmgd no second list", parse_sms_index_list_at_str, kCmgd, "+CMGD",
                 "+CMGD: (1,2,5)", -2, ""},
        ListCase{"cmgd name absent", parse_sms_index_list_at_str, kCmgd, "+CMGD", "OK", -1, ""},
        ListCase{"cmgi values", parse_cmgi_list_at_str, kCmgi, "^CMGI", "^CMGI: 3,4,7", 0,
                 "index_0=3,index_1=4,index_2=7"},
        ListCase{"cmgi no colon", parse_cmgi_list_at_str, kCmgi, "^CMGI", "^CMGI 3", -4, ""},
        ListCase{"cmgr pdu line", parse_sms_cmgr_at_str, kCmgr, "+CMGR",
                 "+CMGR: 0,,25\r\n0891683108200105F0040D91", 0,
                 "stat=0,reserved=,length=25,pdu=0891683108200105F0040D91"},
        ListCase{"cmgr template without line break", parse_sms_cmgr_at_str, "+CMGR:stat", "+CMGR",
                 "+CMGR: 0\r\n00", -1, ""},
        ListCase{"cmgr reply without line break", parse_sms_cmgr_at_str, kCmgr, "+CMGR",
                 "+CMGR: 0,,25", -1, ""},
        ListCase{"eons last occurrence", parse_eons_at_str, kEons, "^EONS",
                 "^EONS: 1,46000\r\n^EONS: 2,46001,\"Long\",\"S\",0,\"spn\"", 0,
                 "type=2,plmn_id=46001,plmn_long=Long,plmn_short=S,spn_cond=0,spn=spn"},
        ListCase{"eons name absent", parse_eons_at_str, kEons, "^EONS", "OK", -2, ""}),
    [](const auto& info) {
        std::string n = info.param.what;
        for (char& ch : n) {
            if (!isalnum(static_cast<unsigned char>(ch))) ch = '_';
        }
        return n;
    });

TEST(ListParse, NullArgumentsAreRefused) {
    struct Parser {
        at_parse_func fn;
        int null_result_rc;
    } parsers[] = {
        {parse_cops_at_str, -2},       {parse_syscfg_at_str, -2},
        {parse_syscfgex_at_str, -2},   {parse_sms_media, -2},
        {parse_ndisstatqry_at_str, -2}, {parse_lteprofile_at_str, -2},
        {parse_sms_index_list_at_str, -2}, {parse_cmgi_list_at_str, -2},
        {parse_sms_cmgr_at_str, -2},   {parse_eons_at_str, -2},
        {parse_band_at_str, -2},
    };
    Buf reply("+X: (1)");
    AtCmdParse* tree = nullptr;
    for (const Parser& p : parsers) {
        EXPECT_EQ(p.fn(nullptr, "+X:(a)", reply.get(), const_cast<char*>("+X")), p.null_result_rc);
        EXPECT_EQ(p.fn(&tree, "+X:(a)", nullptr, const_cast<char*>("+X")), -2);
        EXPECT_EQ(tree, nullptr);
    }
    EXPECT_EQ(parse_operator_list(nullptr, reply.get(), reply.get(), reply.get()), -1);
}

TEST(OperatorList, NoGroupLeavesTheSlot) {
    Buf reply("no groups here");
    AtCmdParse* sentinel = reinterpret_cast<AtCmdParse*>(0x1);
    AtCmdParse* slot = sentinel;
    EXPECT_EQ(parse_operator_list(&slot, const_cast<char*>("(a,b)"), reply.get(),
                                  const_cast<char*>("option")),
              0);
    EXPECT_EQ(slot, sentinel);
}

// Replies built to break a parser: cut lines, unbalanced quotes and brackets, missing colons,
// a report field full of commas, over-long fields and bytes above 0x7F. Every parser must return
// a code in range, leave nothing behind on failure and never touch memory it does not own (the
// sanitizer build catches that).
std::vector<std::string> hostile_replies(const std::string& name) {
    std::vector<std::string> r = {
        "",
        name,
        name + ":",
        name + ": ",
        name + ": (",
        name + ": )",
        name + ": ((",
        name + ": ))",
        name + ": \"",
        name + ": (\"a,b),,(1",
        name + ": (1,2),,(",
        name + ": (1,2),,(3),",
        name + ": ,,",
        name + ": ((1,\"x\"),(2",
        name + ": (0-2147483647),((1,2))",
        name + ": (1)\r",
        name + ": 1\r\n" + name,
        name + ": 1\r\n" + name + ":",
        name + ": \xff\xfe\x80,\xc3(\xa9)",
        name + "\r\n",
        "\r\n" + name + ": 1",
        name + ": " + std::string(1500 - name.size() - 2, ','),
        name + ": " + std::string(1490, 'x'),
        name + ": (" + std::string(1400, ',') + ")),(" + std::string(80, ',') + "))",
        name + ": " + std::string(700, '('),
        name + ": " + std::string(700, '"') + ",",
    };
    return r;
}

TEST(HostileReplies, EveryParserSurvives) {
    struct Parser {
        at_parse_func fn;
        const char* templ;
        const char* name;
    } parsers[] = {
        {parse_common_at_str, "+CSQ:rssi,ber", "+CSQ"},
        {parse_soft_str, "246.subsoftversion", "+CGMR"},
        {parse_cops_at_str, kCops, "+COPS"},
        {parse_syscfg_at_str, kSyscfg, "^SYSCFG"},
        {parse_syscfgex_at_str, kSyscfgex, "^SYSCFGEX"},
        {parse_sms_media, kCpms, "+CPMS"},
        {parse_ndisstatqry_at_str, kNdis, "^NDISSTATQRY"},
        {parse_lteprofile_at_str, kLteProfile, "^LTEPROFILE"},
        {parse_sms_index_list_at_str, kCmgd, "+CMGD"},
        {parse_cmgi_list_at_str, kCmgi, "^CMGI"},
        {parse_sms_cmgr_at_str, kCmgr, "+CMGR"},
        {parse_eons_at_str, kEons, "^EONS"},
        {parse_band_at_str, "(band,band_name)", "bandlist"},
    };
    for (const Parser& p : parsers) {
        for (const std::string& text : hostile_replies(p.name)) {
            SCOPED_TRACE(std::string(p.name) + " <" + text.substr(0, 40) + ">");
            Buf reply(text);
            AtCmdParse* sentinel = reinterpret_cast<AtCmdParse*>(0x1);
            AtCmdParse* slot = sentinel;
            const int rc = p.fn(&slot, p.templ, reply.get(), const_cast<char*>(p.name));
            EXPECT_GE(rc, -5);
            EXPECT_LE(rc, 0);
            if (rc == 0) {
                if (slot != sentinel) free_at_cmd(slot);
            } else {
                EXPECT_EQ(slot, sentinel);
            }
            EXPECT_EQ(reply.text.size(), text.size());
        }
    }
}

}  // namespace
