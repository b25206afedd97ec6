// Allocation failure paths: every allocation a parse makes is failed in turn through the
// library's fault-injection hook. Each failure must come back as the parser's failure code with
// the result slot untouched; the sanitizer build's leak checker then proves that everything built
// before the failure was released, and released once.
#include <gtest/gtest.h>

#include <string>

#include "test_parse_util.h"

using parse_test::Buf;
using parse_test::Tree;

namespace {

struct FaultCase {
    const char* what;
    at_parse_func parser;
    const char* templ;
    const char* name;
    const char* reply;
    int fail_rc;  // the code an allocation failure must produce
};

// A storage list longer than the fixed row arrays: the row is split again on the heap.
const std::string kLongGroup = [] {
    std::string s = "+CPMS: (0";
    for (int i = 1; i < 130; ++i) s += "," + std::to_string(i);
    return s + ")";
}();

const FaultCase kCases[] = {
    {"group past the fixed arrays", parse_sms_media, "+CPMS:(mem1,mem2),...", "+CPMS",
     kLongGroup.c_str(), -2},
    {"common two lines", parse_common_at_str, "+CGACT:cid,state", "+CGACT",
     "+CGACT: 1,1\r\n+CGACT: 2,0\r\n+CGACT: 3,1", -5},
    {"common many fields", parse_common_at_str, "+X:a,b", "+X",
     "+X: 0,1,2,3,4,5,6,7,8,9,0,1,2,3,4,5,6,7,8,9,0,1,2,3,4,5,6,7,8,9,0,1,2,3,4,5,6,7,8,9,0,1,2,3,"
     "4,5,6,7,8,9,0,1,2,3,4,5,6,7,8,9,0,1,2,3,4,5,6,7,8,9,0,1,2,3,4,5,6,7,8,9,0,1,2,3,4,5,6,7,8,9,"
     "0,1,2,3,4,5,6,7,8,9,0,1,2,3,4,5,6,7,8,9,0,1,2,3,4,5,6,7,8,9,0,1,2,3,4,5,6,7,8,9",
     -5},
    {"soft", parse_soft_str, "246.subsoftversion", "+CGMR", "+CGMR: 11.608", -5},
    {"cops", parse_cops_at_str,
     "+COPS:(stat,long_oper,short_oper,numeric_oper,rat),,(mode_0,mode_1,mode_2,mode_3,mode_4),"
     "(format_0,format_1,format_2)",
     "+COPS", "+COPS: (2,\"A\",\"a\",\"1\",7),(1,\"B\",\"b\",\"2\",2),,(0,1,2,3,4),(0,1,2)", -5},
    {"syscfg", parse_syscfg_at_str,
     "^SYSCFG:(modes),(acqorders),((band,band_name)),(roman),(srvdomain)", "^SYSCFG",
     "^SYSCFG:(2,13),(0-3),((80000,\"GSM900\"),(400000,\"WCDMA\")),(0-2),(0-4)", -2},
    {"syscfgex", parse_syscfgex_at_str,
     "^SYSCFGEX:(acqorders),((band,band_name)),(roams),(srvdomains),((lteband,lteband_name))",
     "^SYSCFGEX", "^SYSCFGEX: (\"00\",\"03\"),((1,\"A\"),(2,\"B\")),(0-2),(0-4),((10,\"L\"),(20,\"M\"))",
     -2},
    {"cpms", parse_sms_media, "+CPMS:(mem1,mem2),...", "+CPMS",
     "+CPMS: (\"SM\",\"ME\"),(\"SM\",\"ME\")", -2},
    {"ndisstatqry", parse_ndisstatqry_at_str, "^NDISSTATQRY:(cid)", "^NDISSTATQRY",
     "^NDISSTATQRY: (1,2)", -2},
    {"lteprofile", parse_lteprofile_at_str, "^LTEPROFILE:(mode1,mode2),(indexs)", "^LTEPROFILE",
     "^LTEPROFILE: (0,1),(1-11)", -2},
    {"cmgd", parse_sms_index_list_at_str, "+CMGD:index_0,...indexN", "+CMGD",
     "+CMGD: (1,2,5),(0-4)", -5},
    {"cmgi", parse_cmgi_list_at_str, "^CMGI:index_0,...indexN", "^CMGI", "^CMGI: 3,4", -5},
    {"cmgr", parse_sms_cmgr_at_str, "+CMGR:stat,reserved,length\r\npdu", "+CMGR",
     "+CMGR: 0,,25\r\n0891", -5},
    {"eons", parse_eons_at_str, "^EONS:type,plmn_id", "^EONS", "^EONS: 1,2\r\n^EONS: 3,4", -5},
};

TEST(AllocationFailure, EveryAllocationOfEveryParser) {
    for (const FaultCase& c : kCases) {
        long failures = 0;
        for (long nth = 1;; ++nth) {
            SCOPED_TRACE(std::string(c.what) + ": allocation " + std::to_string(nth));
            Buf reply(c.reply);
            AtCmdParse* const sentinel = reinterpret_cast<AtCmdParse*>(0x8);
            AtCmdParse* slot = sentinel;
            atapi_internal_fail_nth_alloc(nth);
            const int rc = c.parser(&slot, c.templ, reply.get(), const_cast<char*>(c.name));
            const long made = atapi_internal_alloc_count();
            atapi_internal_fail_nth_alloc(0);
            if (made < nth) {
                // Nothing failed this time: the parse ran to its end.
                EXPECT_EQ(rc, 0);
                EXPECT_NE(slot, sentinel);
                if (slot != sentinel) free_at_cmd(slot);
                break;
            }
            ++failures;
            EXPECT_EQ(rc, c.fail_rc);
            EXPECT_EQ(slot, sentinel);
        }
        EXPECT_GE(failures, 3) << c.what;
    }
}

TEST(AllocationFailure, ThroughTheDispatcher) {
    for (long nth = 1;; ++nth) {
        char name[] = "+CREG";
        char reply[] = "+CREG: 2,1,\"2A3B\",\"0C1D2E3F\",7";
        AtCmdParse* slot = nullptr;
        atapi_internal_fail_nth_alloc(nth);
        const int rc = at_cmd_parse(&slot, name, reply, AT_FUNCTION_NETWORK_CFG,
                                    AT_OPERATION_TYPE_READ);
        const long made = atapi_internal_alloc_count();
        atapi_internal_fail_nth_alloc(0);
        if (made < nth) {
            EXPECT_EQ(rc, 0);
            free_at_cmd(slot);
            break;
        }
        EXPECT_EQ(rc, -5) << nth;
        EXPECT_EQ(slot, nullptr);
    }
}

TEST(BoundedAllocator, RefusesZeroAndOversize) {
    struct Case {
        size_t bytes;
        bool refused;
        const char* message;
    } cases[] = {
        {0, true, "error: not host tool, but malloc 4M, return NULL, malloc len=0\n"},
        {0x800001, true, "error: not host tool, but malloc 4M, return NULL, malloc len=8388609\n"},
        {0x800000, false, ""},
        {1, false, ""},
    };
    for (const Case& c : cases) {
        ::testing::internal::CaptureStdout();
        void* p = qmx_malloc_internal(c.bytes, 0x800000, nullptr, nullptr, 0);
        EXPECT_EQ(::testing::internal::GetCapturedStdout(), c.message);
        EXPECT_EQ(p == nullptr, c.refused) << c.bytes;
        free(p);
    }
}

AtCmdParse* node(const char* name, const char* value) {
    auto* n = static_cast<AtCmdParse*>(calloc(1, sizeof(AtCmdParse)));
    n->AtFieldName = name ? strdup(name) : nullptr;
    n->AtFieldValue = value ? strdup(value) : nullptr;
    return n;
}

TEST(Release, WholeTreesAndSingleRows) {
    free_at_cmd(nullptr);
    free_cops_link(nullptr);
    free_at_res_link(nullptr);
    free_node(nullptr);
    free_at_res_tree(nullptr);
    EXPECT_EQ(print_operator(nullptr), 0);

    // Two rows of two fields: every node and string goes (the leak checker holds us to it).
    AtCmdParse* tree = node("a", "1");
    tree->next = node("b", nullptr);
    tree->plist = node(nullptr, "2");
    tree->plist->next = node("d", "4");
    EXPECT_EQ(print_operator(tree), 0);
    free_at_cmd(tree);

    AtCmdParse* ops = node("option", nullptr);
    ops->plist = node("mode", nullptr);
    free_cops_link(ops);

    // The recursive release follows next only; a row without plist goes whole.
    AtCmdParse* row = node("a", "1");
    row->next = node("b", "2");
    row->next->next = node("c", "3");
    free_at_res_tree(row);
}

}  // namespace
