// test_parse_tables.cpp - the handler tables and func_list, and the dispatcher that reaches them.
//
// Templates whose replies a command test already reads through its public function are covered
// there; the rows below are those no other test reads, and the dispatcher's refusals.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "atapi/parse_tables.h"
#include "test_parse_util.h"

namespace {

constexpr int R = AT_OPERATION_TYPE_READ;
constexpr int E = AT_OPERATION_TYPE_EXECUTE;
constexpr int T = AT_OPERATION_TYPE_TEST;
constexpr int O = AT_OPERATION_TYPE_OTHER;

struct DispatchCase {
    const char* name;   // null: no name
    int func;
    int op;
    const char* reply;  // null: no reply
    int rc;
    const char* tree;
};

// clang-format off
const DispatchCase kCases[] = {
    {"^SRVST", 0, O, "^SRVST: 2", 0, "srv_status=2"},
    {"^HCMGSS", 0, O, "^HCMGSS: 12", 0, "mr=12"},
    {"^HCMGSF", 0, O, "^HCMGSF: 500", 0, "errCode=500"},
    {"+CUSD", 0, O, "+CUSD: 0,\"Balance 5\",15", 0, "rspType=0,cusdStr=Balance 5,codeType=15"},
    {"^ECLSTAT", 0, O, "^ECLSTAT: 3,\"msd sent\"", 0, "eCall_state=3,description=msd sent"},
    {"+CLCC", 1, E, "+CLCC: 1,0,0,0", 0, "idx=1,dir=0,stat=0,mode=0"},
    {"+CPMS", 3, R, "+CPMS: \"SM\",3,50,\"SM\",3,50,\"ME\",0,100", 0,
     "mem1=SM,used1=3,total1=50,mem2=SM,used2=3,total2=50,mem3=ME,used3=0,total3=100"},
    {"+CPMS", 3, E, "+CPMS: 3,50,3,50,0,100", 0, "used1=3,total1=50,used2=3,total2=50,used3=0,total3=100"},
    {"^HCPMS", 3, R, "^HCPMS: \"SM\",1,50,\"SM\",1,50,\"SM\",1,50", 0,
     "mem1=SM,used1=1,total1=50,mem2=SM,used2=1,total2=50,mem3=SM,used3=1,total3=50"},
    {"^HCPMS", 3, E, "^HCPMS: 1,50,1,50,1,50", 0, "used1=1,total1=50,used2=1,total2=50,used3=1,total3=50"},
    {"^HCPMS", 3, T, "^HCPMS: (\"SM\",\"ME\")", 0, "SmsMediaList=~,mem1=SM,mem2=ME"},
    {"+CMGD", 3, R, "+CMGD: (1,2,5),(0-4)", 0, "index_0=1,index_1=2,index_2=5"},
    {"^HCMGD", 3, R, "^HCMGD: (4,9),(0-4)", 0, "index_0=4,index_1=9"},
    {"+CMGF", 3, R, "+CMGF: 0", 0, "mode=0"},
    {"^HCMGF", 3, R, "^HCMGF: 1", 0, "mode=1"},
    {"+CGMR", 4, R, "+CGMR: 21.110.99.04.00", 0, "subsoftversion=110.99.04.00"},
    {"+CMUT", 5, R, "+CMUT: 1", 0, "n_value=1"},
    {"^SMUT", 5, R, "^SMUT: 0", 0, "n_value=0"},
    {"+CLVL", 5, R, "+CLVL: 4", 0, "level=4"},
    {"^CPBR", 8, E, "^CPBR: 3,\"139\",129,\"Ann\",0", 0, "index=3,number=139,type=129,text=Ann,coding=0"},
    {"^SYSCFGEX", 15, R, "^SYSCFGEX: \"00\",3FFFFFFF,1,2,7FFF", 0,
     "acqorder=00,band=3FFFFFFF,roam=1,srvdomain=2,lteband=7FFF"},
    {"+CGDCONT", 39, R, "+CGDCONT: 2,\"IPV6\",\"supl\",\"\",0,0", 0,
     "cid=2,pdp_type=IPV6,apn=supl,ip_address=,d_comp=0,h_comp=0"},
    {"^SOCKETCONT", 39, R, "^SOCKETCONT: 3,\"IP\",\"agps\",\"\",0,0", 0,
     "cid=3,pdp_type=IP,apn=agps,ip_address=,d_comp=0,h_comp=0"},
    {"+CREG", 1, R, "+CREG: 2,1,\"2A3B\",\"0C1D2E3F\",7", 0, "n=2,stat=1,lac=2A3B,ci=0C1D2E3F,act=7"},
    {"+COPS", 1, T, "+COPS: (1,\"A\",\"a\",\"1\",7),,(0,1,2,3,4),(0,1,2)", 0,
     "option=~,stat=1,long_oper=A,short_oper=a,numeric_oper=1,rat=7 | "
     "mode=~,mode_0=0,mode_1=1,mode_2=2,mode_3=3,mode_4=4 | format=~,format_0=0,format_1=1,format_2=2"},
    // Names match exactly; a missing name, a table without the row, an empty slot: -1.
    {"+creg", 1, R, "+CREG: 2,1", -1, ""},
    {"+CREG ", 1, R, "+CREG: 2,1", -1, ""},
    {nullptr, 1, R, "+CREG: 2,1", -1, ""},
    {"+CREG", 6, R, "+CREG: 2,1", -1, ""},         // a terminator-only table
    {"+CREG", 1, E, "+CREG: 2,1", -1, ""},         // no template for this operation
    {"+CLCC", 1, R, "+CLCC: 1,0,0,0", -1, ""},     // no parser: the final-result fall-back
    {"+NONE", 1, 4, "+CREG: 2,1", -1, ""},
    // No reply, no table for the type (vsim, or unknown): -2; the null operation on a row: -3.
    {"+CREG", 1, R, nullptr, -2, ""},
    {"+CREG", 38, R, "+CREG: 2,1", -2, ""},
    {"+CREG", 99, R, "+CREG: 2,1", -2, ""},
    {"+CREG", 1, 4, "+CREG: 2,1", -3, ""},
};
// clang-format on

TEST(ParseTables, DispatchReachesTheRowAndItsTemplate) {
    for (const DispatchCase& c : kCases) {
        SCOPED_TRACE(testing::Message() << (c.name ? c.name : "null") << " type " << c.func << " op " << c.op
                                        << ": " << (c.reply ? c.reply : "null"));
        std::string name = c.name ? c.name : "", reply = c.reply ? c.reply : "";
        parse_test::Tree tree;
        EXPECT_EQ(at_cmd_parse(tree.slot(), c.name ? name.data() : nullptr, c.reply ? reply.data() : nullptr,
                               static_cast<at_function_type>(c.func), static_cast<at_operation_type>(c.op)),
                  c.rc);
        EXPECT_EQ(tree.str(), c.tree);
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

// Row invariants: the table ends in a terminator, a row answers to its name only once per table, carries its table's type (with
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
            if (r.at_name == nullptr) {  // the terminator owns nothing to release
                EXPECT_EQ(r.free_mem, nullptr);
                continue;
            }
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
