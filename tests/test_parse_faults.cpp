// Allocation failure paths: every allocation a parse makes is failed in turn through the
// library's fault-injection hook. Each failure must come back as the parser's failure code with
// the result slot untouched; the sanitizer build's leak checker then proves that everything built
// before the failure was released, and released once.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "test_parse_util.h"

namespace {

// Fails allocation 1, 2, ... of `run` until a run needs no more; returns how many failed.
long fail_each_allocation(const std::function<int(AtCmdParse**)>& run, int fail_rc, AtCmdParse* start) {
    for (long nth = 1;; ++nth) {
        SCOPED_TRACE("allocation " + std::to_string(nth));
        AtCmdParse* slot = start;
        atapi_internal_fail_nth_alloc(nth);
        const int rc = run(&slot);
        const long made = atapi_internal_alloc_count();
        atapi_internal_fail_nth_alloc(0);
        if (made < nth) {  // nothing failed this time: the parse ran to its end
            EXPECT_EQ(rc, 0);
            EXPECT_NE(slot, start);
            if (slot != start) free_at_cmd(slot);
            return nth - 1;
        }
        EXPECT_EQ(rc, fail_rc);
        EXPECT_EQ(slot, start);
    }
}

TEST(AllocationFailure, EveryAllocationOfEveryParser) {
    std::string long_group = "+CPMS: (0";  // longer than the fixed row arrays: split again on the heap
    for (int i = 1; i < 130; ++i) long_group += "," + std::to_string(i);
    long_group += ")";
    std::string many = "+X: 0";
    for (int i = 1; i < 140; ++i) many += "," + std::to_string(i % 10);
    struct Case {
        at_parse_func parser;
        const char* templ;
        const char* name;
        std::string reply;
        int fail_rc;
        long allocs;  // one per node built, its name and value in the node's block
    } cases[] = {
        {parse_sms_media, "+CPMS:(mem1,mem2),...", "+CPMS", long_group, -2, 131},
        {parse_common_at_str, "+CGACT:cid,state", "+CGACT", "+CGACT: 1,1\r\n+CGACT: 2,0\r\n+CGACT: 3,1", -5, 6},
        {parse_common_at_str, "+X:a,b", "+X", many, -5, 140},
        {parse_soft_str, "246.subsoftversion", "+CGMR", "+CGMR: 11.608", -5, 1},
        {parse_cops_at_str, "+COPS:(stat,long_oper,short_oper,numeric_oper,rat),,(mode_0,mode_1,mode_2,mode_3,mode_4),"
         "(format_0,format_1,format_2)", "+COPS", "+COPS: (2,\"A\",\"a\",\"1\",7),(1,\"B\",\"b\",\"2\",2),,(0,1,2,3,4),(0,1,2)", -5, 22},
        {parse_syscfg_at_str, "^SYSCFG:(modes),(acqorders),((band,band_name)),(roman),(srvdomain)", "^SYSCFG",
         "^SYSCFG:(2,13),(0-3),((80000,\"GSM900\"),(400000,\"WCDMA\")),(0-2),(0-4)", -2, 14},
        {parse_syscfgex_at_str, "^SYSCFGEX:(acqorders),((band,band_name)),(roams),(srvdomains),((lteband,lteband_name))",
         "^SYSCFGEX", "^SYSCFGEX: (\"00\",\"03\"),((1,\"A\"),(2,\"B\")),(0-2),(0-4),((10,\"L\"),(20,\"M\"))", -2, 12},  // only the first band pair is built
        {parse_ndisstatqry_at_str, "^NDISSTATQRY:(cid)", "^NDISSTATQRY", "^NDISSTATQRY: (1,2)", -2, 3},
        {parse_lteprofile_at_str, "^LTEPROFILE:(mode1,mode2),(indexs)", "^LTEPROFILE", "^LTEPROFILE: (0,1),(1-11)", -2, 5},
        {parse_sms_index_list_at_str, "+CMGD:index_0,...indexN", "+CMGD", "+CMGD: (1,2,5),(0-4)", -5, 3},
        {parse_cmgi_list_at_str, "^CMGI:index_0,...indexN", "^CMGI", "^CMGI: 3,4", -5, 2},
        {parse_sms_cmgr_at_str, "+CMGR:stat,reserved,length\r\npdu", "+CMGR", "+CMGR: 0,,25\r\n0891", -5, 4},
        {parse_eons_at_str, "^EONS:type,plmn_id", "^EONS", "^EONS: 1,2\r\n^EONS: 3,4", -5, 2},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.reply.substr(0, 40));
        const long failed = fail_each_allocation(
            [&](AtCmdParse** slot) {
                std::string reply = c.reply;
                return c.parser(slot, c.templ, reply.data(), const_cast<char*>(c.name));
            },
            c.fail_rc, parse_test::kUntouched);
        EXPECT_EQ(failed, c.allocs);
    }
    // Through the dispatcher, which starts from an empty slot.
    const long creg_allocs = fail_each_allocation(
        [](AtCmdParse** slot) {
            char name[] = "+CREG";
            char reply[] = "+CREG: 2,1,\"2A3B\",\"0C1D2E3F\",7";
            return at_cmd_parse(slot, name, reply, AT_FUNCTION_NETWORK_CFG, AT_OPERATION_TYPE_READ);
        },
        -5, nullptr);
    EXPECT_EQ(creg_allocs, 5);
}

TEST(BoundedAllocator, RefusesZeroAndOversize) {
    struct Case {
        size_t bytes;
        const char* message;  // empty: granted
    } cases[] = {
        {0, "error: not host tool, but malloc 4M, return NULL, malloc len=0\n"},
        {0x800001, "error: not host tool, but malloc 4M, return NULL, malloc len=8388609\n"},
        {0x800000, ""},
        {1, ""},
    };
    for (const Case& c : cases) {
        ::testing::internal::CaptureStdout();
        void* p = qmx_malloc_internal(c.bytes, 0x800000, nullptr, nullptr, 0);
        EXPECT_EQ(::testing::internal::GetCapturedStdout(), c.message);
        EXPECT_EQ(p == nullptr, *c.message != '\0') << c.bytes;
        free(p);
    }
}

AtCmdParse* node(const char* name, const char* value, AtCmdParse* next = nullptr, AtCmdParse* plist = nullptr) {
    auto* n = static_cast<AtCmdParse*>(calloc(1, sizeof(AtCmdParse)));
    n->AtFieldName = name ? strdup(name) : nullptr;
    n->AtFieldValue = value ? strdup(value) : nullptr;
    n->next = next;
    n->plist = plist;
    return n;
}

// The leak checker holds each release to every node and string it owns.
TEST(Release, WholeTreesAndSingleRows) {
    free_at_cmd(nullptr);
    free_cops_link(nullptr);
    free_at_res_link(nullptr);
    free_node(nullptr);
    free_at_res_tree(nullptr);
    EXPECT_EQ(print_operator(nullptr), 0);
    AtCmdParse* tree = node("a", "1", node("b", nullptr), node(nullptr, "2", node("d", "4")));
    EXPECT_EQ(print_operator(tree), 0);
    free_at_cmd(tree);
    free_cops_link(node("option", nullptr, nullptr, node("mode", nullptr)));
    // The recursive release follows next only; a row without plist goes whole.
    free_at_res_tree(node("a", "1", node("b", "2", node("c", "3"))));
}

}  // namespace
