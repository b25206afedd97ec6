// The dispatcher: which row and which parser a name, function type and operation type reach,
// and the codes it returns when none is reached.
#include <gtest/gtest.h>

#include <string>

#include "test_parse_util.h"

using parse_test::Tree;

namespace {

struct DispatchCase {
    const char* what;
    const char* name;  // null: no name
    const char* reply; // null: no reply
    int func;
    int oper;
    int rc;
    const char* tree;
};

const DispatchCase kCases[] = {
    {"read row",                "+CREG",  "+CREG: 2,1,\"2A3B\",\"0C1D2E3F\",7", 1, 0, 0,  "n=2,stat=1,lac=2A3B,ci=0C1D2E3F,act=7"},
    {"lower-case name",         "+creg",  "+CREG: 2,1",                          1, 0, -1, ""},
    {"name with a blank",       "+CREG ", "+CREG: 2,1",                          1, 0, -1, ""},
    {"null name",               nullptr,  "+CREG: 2,1",                          1, 0, -1, ""},
    {"null reply",              "+CREG",  nullptr,                               1, 0, -2, ""},
    {"vsim has no table",       "+CREG",  "+CREG: 2,1",                          38, 0, -2, ""},
    {"xmlreporting no table",   "+CREG",  "+CREG: 2,1",                          40, 0, -2, ""},
    {"sbb has no table",        "+CREG",  "+CREG: 2,1",                          42, 0, -2, ""},
    {"unknown type",            "+CREG",  "+CREG: 2,1",                          99, 0, -2, ""},
    {"terminator-only table 6", "+CREG",  "+CREG: 2,1",                          6, 0, -1, ""},
    {"terminator-only table 7", "+CREG",  "+CREG: 2,1",                          7, 0, -1, ""},
    {"null operation",          "+CREG",  "+CREG: 2,1",                          1, 4, -3, ""},
    {"null operation, no row",  "+NONE",  "+CREG: 2,1",                          1, 4, -1, ""},
    {"template slot empty",     "+CREG",  "+CREG: 2,1",                          1, 1, -1, ""},
    {"no parser: final result", "+CLCC",  "+CLCC: 1,0,0,0",                      1, 0, -1, ""},
    {"test parser",             "+COPS",  "+COPS: (1,\"A\",\"a\",\"1\",7),,(0,1,2,3,4),(0,1,2)", 1, 2, 0,
     "option=~,stat=1,long_oper=A,short_oper=a,numeric_oper=1,rat=7 | mode=~,mode_0=0,mode_1=1,mode_2=2,mode_3=3,mode_4=4 | format=~,format_0=0,format_1=1,format_2=2"},
};

TEST(Dispatch, ReturnCodesAndRows) {
    for (const DispatchCase& c : kCases) {
        SCOPED_TRACE(c.what);
        std::string name = c.name ? c.name : "";
        std::string reply = c.reply ? c.reply : "";
        Tree tree;
        const int rc = at_cmd_parse(tree.slot(), c.name ? name.data() : nullptr,
                                    c.reply ? reply.data() : nullptr,
                                    static_cast<at_function_type>(c.func),
                                    static_cast<at_operation_type>(c.oper));
        EXPECT_EQ(rc, c.rc);
        EXPECT_EQ(tree.str(), c.tree);
    }
}

TEST(Dispatch, FuncTypeLookup) {
    EXPECT_EQ(parse_func_type(AT_FUNCTION_VSIM_CFG), nullptr);
    EXPECT_EQ(parse_func_type(static_cast<at_function_type>(100)), nullptr);
    // Every listed type finds the table func_list gives it, last entry winning.
    for (const ATS_FUNC_CMD& entry : func_list) {
        const at_parse_handler* last = nullptr;
        for (const ATS_FUNC_CMD& other : func_list) {
            if (other.func_id == entry.func_id) last = other.parse_handler;
        }
        EXPECT_EQ(parse_func_type(entry.func_id), last) << entry.func_id;
    }
}

}  // namespace
