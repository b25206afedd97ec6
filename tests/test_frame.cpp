// The command frame on its own: what a request puts on the wire, how it is cut and wiped, how
// error replies map into a result field, and how a parse tree is walked and released.
#include <sys/syscall.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "atapi.h"
#include "fake_ats.h"
#include "trace_capture.h"

constexpr char kTraceSource[] = "tests/test_frame";
#include "frame.h"

using namespace atapi_test;
using atapi::Field;
using atapi::ParseTree;

namespace {

TEST(Frame, HeaderVariants) {
    struct Case {
        const char* what;
        void (*shape)(atapi::Request&);
        int req_type, rep_type, at_mutil;
    };
    const Case cases[] = {
        {"plain command", [](atapi::Request&) {}, AT_REQ, 0, AT_RES_ONE},
        {"explicit no report", [](atapi::Request& r) { r.rep_type(AT_REPORT_REQ_NONE); }, AT_REQ, -1, AT_RES_ONE},
        {"stored report", [](atapi::Request& r) { r.stored_report(AT_REPORT_SYSINFO_REQ); }, GET_REPORT_REQ, 0, AT_RES_ONE},
        {"stored cops report", [](atapi::Request& r) { r.stored_report(AT_REPORT_COPS_REQ); }, GET_REPORT_REQ, 1, AT_RES_ONE},
        {"every line", [](atapi::Request& r) { r.multi_line(); }, AT_REQ, 0, AT_RES_MUT},
    };
    FakeAtServer ats;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        ats.clear_requests();
        ats.reply(ok("+XYZ: 1"));
        atapi::Request req{"AT+XYZ?", "+XYZ:", 7};
        c.shape(req);
        ASSERT_EQ(req.exchange(), 0);
        EXPECT_TRUE(req.ok());
        EXPECT_STREQ(req.report(), "+XYZ: 1");
        const Request got = ats.last();
        EXPECT_EQ(got.cmd, "AT+XYZ?");
        EXPECT_EQ(got.match, "+XYZ:");
        EXPECT_EQ(got.time_out, 7);
        EXPECT_EQ(got.req_type, c.req_type);
        EXPECT_EQ(got.rep_type, c.rep_type);
        EXPECT_EQ(got.at_mutil, c.at_mutil);
        EXPECT_EQ(got.rsp_type, DIRECT_BACK);
        EXPECT_EQ(got.client_id, static_cast<int32_t>(syscall(SYS_gettid)));
        EXPECT_EQ(got.len, 0);
    }
}

TEST(Frame, TextsAreCutToTheirFields) {
    const std::string long_cmd = "AT+" + std::string(700, 'C');
    const std::string long_match = "+" + std::string(100, 'M');
    struct Case {
        const char* what;
        bool formatted;
        std::string expect_cmd, expect_match;
    };
    const Case cases[] = {
        {"fixed", false, long_cmd.substr(0, 639), long_match.substr(0, 63)},
        {"formatted", true, long_cmd.substr(0, 639), ""},
    };
    FakeAtServer ats;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        ats.clear_requests();
        ats.reply(ok());
        if (c.formatted) {
            atapi::Request req;
            EXPECT_EQ(AT_FORMAT_CMD(req, 639, "%s", long_cmd.c_str()), -1);  // cut is reported
            ASSERT_EQ(req.exchange(), 0);
        } else {
            atapi::Request req{long_cmd.c_str(), long_match.c_str()};
            ASSERT_EQ(req.exchange(), 0);
        }
        const Request got = ats.last();
        EXPECT_EQ(got.cmd, c.expect_cmd);
        EXPECT_EQ(got.match, c.expect_match);
        EXPECT_EQ(got.time_out, 30);
    }
}

// A report that fills its field to the last byte is still read as a terminated text.
TEST(Frame, FullWidthReportIsTerminated) {
    FakeAtServer ats;
    Reply r = ok();
    r.raw = "+CSQ: 1," + std::string(AT_REPORT_STR_LEN - 8, '9');
    ats.reply(r);
    atapi::Request req{"AT+CSQ", "+CSQ"};
    ASSERT_EQ(req.exchange(), 0);
    EXPECT_EQ(std::strlen(req.report()), size_t(AT_REPORT_STR_LEN - 1));
    ParseTree tree = req.parse("+CSQ", AT_FUNCTION_NETWORK_CFG);
    ASSERT_TRUE(tree);
    EXPECT_EQ(tree.row().find("rssi").number(), 1);
}

// Nothing of the command or the reply is left in the record once the request is gone.
TEST(Frame, RecordIsWipedOnTheWayOut) {
    FakeAtServer ats;
    ats.reply(ok("+CPIN: SECRET"));
    alignas(atapi::Request) unsigned char storage[sizeof(atapi::Request)];
    auto* req = new (storage) atapi::Request{"AT+CPIN=\"1234\"", "+CPIN:"};
    ASSERT_EQ(req->exchange(), 0);
    ASSERT_STREQ(req->report(), "+CPIN: SECRET");
    req->~Request();
    for (unsigned char b : storage) ASSERT_EQ(b, 0);
}

TEST(Frame, ErrorRepliesMapIntoTheResultField) {
    struct Case {
        const char* what;
        Reply reply;
        int rc;
        int exe;  // the field afterwards
    };
    constexpr int kUntouched = 0x5A5A5A5A;
    const Case cases[] = {
        {"CME by number", cme("+CME ERROR: 10"), 0, AT_CMD_RES_SIM_FAIL},
        {"CME by text", cme("+CME ERROR: SIM PUK required"), 0, AT_CMD_RES_PUK_REQ},
        {"CME not in the table", cme("+CME ERROR: 3"), 0, AT_CMD_RES_BUSY},
        {"CMS", cms("+CMS ERROR: 311"), 0, AT_CMD_RES_PIN_REQ},
        {"CME without a colon", cme("+CME ERROR"), 0, AT_CMD_RES_AMSS_MAX},
        {"plain ERROR", result(AT_ERROR, "ERROR"), -1, kUntouched},
        {"timeout", result(AT_CMD_TIMEOUT), -1, kUntouched},
        {"device down", result(AT_DEVICE_DOWN), -1, kUntouched},
        {"no carrier", result(AT_NO_CARRIER), -1, kUntouched},
    };
    FakeAtServer ats;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        ats.reply(c.reply);
        atapi::Request req{"AT+XYZ", ""};
        ASSERT_EQ(req.exchange(), 0);
        EXPECT_FALSE(req.ok());
        AT_AMSS_RES exe;
        std::memcpy(&exe, &kUntouched, sizeof exe);  // no enum value: written or left, never read
        EXPECT_EQ(req.map_error(exe), c.rc);
        int got;
        std::memcpy(&got, &exe, sizeof got);
        EXPECT_EQ(got, c.exe);
    }
}

TEST(Frame, ServerGoneIsAFailedExchange) {
    FakeAtServer ats;
    ats.die();
    atapi::Request req{"AT+CSQ", "+CSQ", 5};
    EXPECT_EQ(req.exchange(), -1);
    EXPECT_EQ(ats.count(), 0u);
}

// Field walks over trees the parser builds from real replies.
TEST(Frame, WalkingAParseTree) {
    struct Case {
        const char* what;
        const char* name;
        const char* reply;
        // Per row, the names (or "-" for a field without a name) of the fields with a value.
        std::vector<std::vector<std::string>> rows;
    };
    const Case cases[] = {
        {"one row", "+CSQ", "+CSQ: 23,99", {{"rssi=23", "ber=99"}}},
        {"extra value has no name", "+CSQ", "+CSQ: 23,99,5", {{"rssi=23", "ber=99", "-=5"}}},
        {"names without values are passed over", "+CREG", "+CREG: 0,1", {{"n=0", "stat=1"}}},
        {"empty first value is a value", "+CREG", "+CREG: ,5", {{"n=", "stat=5"}}},
        {"two rows", "+CREG", "+CREG: 0,1\r\n+CREG: 2,5,\"AB\"", {{"n=0", "stat=1\r\n"}, {"n=2", "stat=5", "lac=AB"}}},
    };
    FakeAtServer ats;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        ats.reply(ok(c.reply));
        atapi::Request req{"AT", ""};
        ASSERT_EQ(req.exchange(), 0);
        ParseTree tree = req.parse(c.name, AT_FUNCTION_NETWORK_CFG);
        ASSERT_TRUE(tree);
        std::vector<std::vector<std::string>> got;
        for (atapi::Row row : tree.rows()) {
            got.emplace_back();
            for (Field f : row) got.back().push_back(std::string(f.name() ? f.name() : "-") + "=" + f.value());
        }
        EXPECT_EQ(got, c.rows);
        EXPECT_FALSE(tree.row().find("act"));  // never carried by these replies
    }
}

TEST(Frame, FailedParsesOwnNothing) {
    struct Case {
        const char* what;
        const char* name;
        at_function_type func;
        at_operation_type op;
        const char* reply;
    };
    const Case cases[] = {
        {"no such row", "+NOSUCH", AT_FUNCTION_NETWORK_CFG, AT_OPERATION_TYPE_READ, "+NOSUCH: 1"},
        {"bad operation", "+CREG", AT_FUNCTION_NETWORK_CFG, AT_OPERATION_TYPE_NULL, "+CREG: 1"},
        {"reply without colon", "+CREG", AT_FUNCTION_NETWORK_CFG, AT_OPERATION_TYPE_READ, "OK"},
    };
    FakeAtServer ats;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        ats.reply(ok(c.reply));
        atapi::Request req{"AT", ""};
        ASSERT_EQ(req.exchange(), 0);
        ParseTree tree = req.parse(c.name, c.func, c.op);
        EXPECT_FALSE(tree);
        EXPECT_EQ(tree.head(), nullptr);
        EXPECT_EQ(tree.rows().begin() != tree.rows().end(), false);
    }
}

TEST(Frame, TreesMoveAndFreeOnce) {
    FakeAtServer ats;
    ats.reply(ok("+CSQ: 1,2"));
    ats.reply(ok("+CSQ: 3,4"));
    atapi::Request a{"AT+CSQ", "+CSQ"};
    atapi::Request b{"AT+CSQ", "+CSQ"};
    ASSERT_EQ(a.exchange(), 0);
    ASSERT_EQ(b.exchange(), 0);
    ParseTree first = a.parse("+CSQ", AT_FUNCTION_NETWORK_CFG);
    ParseTree second = b.parse("+CSQ", AT_FUNCTION_NETWORK_CFG);
    ParseTree moved = std::move(first);
    EXPECT_FALSE(first);
    ASSERT_TRUE(moved);
    EXPECT_EQ(moved.row().find("rssi").number(), 1);
    moved = std::move(second);  // the first tree is released here
    EXPECT_FALSE(second);
    EXPECT_EQ(moved.row().find("rssi").number(), 3);
}

}  // namespace
