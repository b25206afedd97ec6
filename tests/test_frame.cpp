// The command frame on its own: what a request puts on the wire, how it is cut and wiped, and
// how a parse tree is walked and released. How error replies map into a result field is read
// through the query functions that use it (test_network).
#include <functional>
#include <new>
#include <tuple>

#include "test_network_support.h"
#include "trace_capture.h"

constexpr char kTraceSource[] = "tests/test_frame";
#include "frame.h"

using namespace atapi_test;
using atapi::ParseTree;

namespace {

TEST(Frame, HeaderVariants) {
    const std::tuple<const char*, void (*)(atapi::Request&), Wire> cases[] = {
        {"plain command", [](atapi::Request&) {}, {"AT+XYZ?", "+XYZ:", 7}},
        {"explicit no report", [](atapi::Request& r) { r.rep_type(AT_REPORT_REQ_NONE); }, {"AT+XYZ?", "+XYZ:", 7, AT_REQ, -1}},
        {"stored cops report", [](atapi::Request& r) { r.stored_report(AT_REPORT_COPS_REQ); }, {"AT+XYZ?", "+XYZ:", 7, GET_REPORT_REQ, 1}},
        {"every line", [](atapi::Request& r) { r.multi_line(); }, {"AT+XYZ?", "+XYZ:", 7, AT_REQ, 0, AT_RES_MUT}},
    };
    FakeAtServer ats;
    for (const auto& [what, shape, wire] : cases) {
        SCOPED_TRACE(what);
        ats.reply(ok("+XYZ: 1"));
        atapi::Request req{"AT+XYZ?", "+XYZ:", 7};
        shape(req);
        ASSERT_EQ(req.exchange(), 0);
        EXPECT_TRUE(req.ok());
        EXPECT_STREQ(req.report(), "+XYZ: 1");
        expect_wire(ats.last(), wire);
    }
}

TEST(Frame, FixedTextsAreCutToTheirFields) {
    const std::string cmd = "AT+" + std::string(700, 'C'), match = "+" + std::string(100, 'M');
    FakeAtServer ats;
    ats.reply(ok());
    atapi::Request fixed{cmd.c_str(), match.c_str()};
    ASSERT_EQ(fixed.exchange(), 0);
    expect_wire(ats.last(), {cmd.substr(0, 639), match.substr(0, 63), 30});
}

// A formatted line is sent only when it is whole and no caller's text can end it, chain a second
// command or leave its quotes; the refusal never shows the argument.
TEST(Frame, FormattedLinesAreWholeAndSafe) {
    const std::string fits(639 - 3, 'x'), too_long(640 - 3, 'x');
    // what, format result, the line it leaves ("" when refused)
    const std::tuple<const char*, std::function<bool(atapi::Request&)>, std::string> cases[] = {
        {"quoted text",             [](auto& r) { return AT_FORMAT_CMD(r, 639, "AT+X=\"%s\",%d", "internet", 1); }, "AT+X=\"internet\",1"},
        {"semicolon inside quotes", [](auto& r) { return AT_FORMAT_CMD(r, 639, "AT+X=\"%s\"", "a;b"); }, "AT+X=\"a;b\""},
        {"UTF-8 inside quotes",     [](auto& r) { return AT_FORMAT_CMD(r, 639, "AT+X=\"%s\"", "caf\xc3\xa9"); }, "AT+X=\"caf\xc3\xa9\""},
        {"null text is empty",      [](auto& r) { return AT_FORMAT_CMD(r, 639, "AT+X=1,,\"%s\"", static_cast<const char*>(nullptr)); }, "AT+X=1,,\"\""},
        {"quote leaves the quotes", [](auto& r) { return AT_FORMAT_CMD(r, 639, "AT+X=\"%s\"", "a\";+CFUN=0;\""); }, ""},
        {"CR ends the line",        [](auto& r) { return AT_FORMAT_CMD(r, 639, "AT+X=\"%s\"", "a\rAT+CFUN=0"); }, ""},
        {"LF",                      [](auto& r) { return AT_FORMAT_CMD(r, 639, "AT+X=\"%s\"", "a\n"); }, ""},
        {"Ctrl-Z",                  [](auto& r) { return AT_FORMAT_CMD(r, 639, "AT+X=\"%s\"", "a\x1a"); }, ""},
        {"ESC",                     [](auto& r) { return AT_FORMAT_CMD(r, 639, "AT+X=\"%s\"", "\x1b"); }, ""},
        {"bare text",               [](auto& r) { return AT_FORMAT_CMD(r, 639, "AT+X=%s", "1.2.3.4"); }, "AT+X=1.2.3.4"},
        {"bare text chains",        [](auto& r) { return AT_FORMAT_CMD(r, 639, "AT+X=%s", "1;+CFUN=0"); }, ""},
        {"bare text with CR",       [](auto& r) { return AT_FORMAT_CMD(r, 639, "AT+X=%d,%s", 1, "1\r"); }, ""},
        {"control character by %c", [](auto& r) { return AT_FORMAT_CMD(r, 639, "AT+X=%c", '\r'); }, ""},
        {"digit character by %c",   [](auto& r) { return AT_FORMAT_CMD(r, 639, "AT+X=%c", '2'); }, "AT+X=2"},
        {"NUL by %c cuts the line", [](auto& r) { return AT_FORMAT_CMD(r, 639, "AT+X=%c,\"%s\"", '\0', "a"); }, ""},
        {"fits exactly",            [&](auto& r) { return AT_FORMAT_CMD(r, 639, "AT+%s", fits.c_str()); }, "AT+" + fits},
        {"one too long",            [&](auto& r) { return AT_FORMAT_CMD(r, 639, "AT+%s", too_long.c_str()); }, ""},
        {"count below the field",   [](auto& r) { return AT_FORMAT_CMD(r, 5, "AT+X=%d", 100); }, ""},
        {"appended piece",          [](auto& r) { return AT_FORMAT_CMD(r, 639, "AT+X=%d", 1) && AT_APPEND_CMD(r, ",\"%s\"", "m"); }, "AT+X=1,\"m\""},
        {"appended quote",          [](auto& r) { return AT_FORMAT_CMD(r, 639, "AT+X=%d", 1) && AT_APPEND_CMD(r, ",\"%s\"", "\""); }, ""},
        {"body after CR is raw",    [](auto& r) { return AT_FORMAT_CMD_WITH_BODY(r, 639, "AT+X=%d\r%s%c", 3, "0A;\"", 26); }, "AT+X=3\r0A;\"\x1a"},
        {"command part is checked", [](auto& r) { return AT_FORMAT_CMD_WITH_BODY(r, 639, "AT+X=%s\r%s%c", "1;", "0A", 26); }, ""},
    };
    for (const auto& [what, format, line] : cases) {
        SCOPED_TRACE(what);
        clear_traces();
        atapi::Request req;
        EXPECT_EQ(format(req), !line.empty());
        EXPECT_EQ(std::string(req.cmd_field()), line);
        EXPECT_EQ(req.msg().snd_rcv_msg.smsg.len, 0);
        for (const auto& t : traces()) {
            EXPECT_EQ(t.text.find("CFUN"), std::string::npos);
        }
        EXPECT_EQ(has_trace("command line refused, nothing sent"), line.empty());
    }
    // A body that does not fit is cut and the line still goes: the modem refuses the message.
    atapi::Request body;
    EXPECT_TRUE(AT_FORMAT_CMD_WITH_BODY(body, 639, "AT+X=%d\r%s%c", 1, too_long.c_str(), 26));
    EXPECT_EQ(std::string(body.cmd_field()).size(), 639u);
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

// Field walks over trees the parser builds from real replies; a failed parse owns nothing.
TEST(Frame, WalkingAParseTree) {
    constexpr at_operation_type kRead = AT_OPERATION_TYPE_READ;
    // what, handler row, operation, reply; per row, name=value of each field with a value ("-" for no name)
    const std::tuple<const char*, const char*, at_operation_type, const char*, std::vector<std::vector<std::string>>> cases[] = {
        {"extra value has no name", "+CSQ", kRead, "+CSQ: 23,99,5", {{"rssi=23", "ber=99", "-=5"}}},
        {"names without values are passed over", "+CREG", kRead, "+CREG: 0,1", {{"n=0", "stat=1"}}},
        {"empty first value is a value", "+CREG", kRead, "+CREG: ,5", {{"n=", "stat=5"}}},
        {"two rows", "+CREG", kRead, "+CREG: 0,1\r\n+CREG: 2,5,\"AB\"", {{"n=0", "stat=1\r\n"}, {"n=2", "stat=5", "lac=AB"}}},
        {"no such row", "+NOSUCH", kRead, "+NOSUCH: 1", {}},
        {"bad operation", "+CREG", AT_OPERATION_TYPE_NULL, "+CREG: 1", {}},
        {"reply without colon", "+CREG", kRead, "OK", {}},
    };
    FakeAtServer ats;
    for (const auto& [what, name, op, reply, rows] : cases) {
        SCOPED_TRACE(what);
        ats.reply(ok(reply));
        atapi::Request req{"AT", ""};
        ASSERT_EQ(req.exchange(), 0);
        ParseTree tree = req.parse(name, AT_FUNCTION_NETWORK_CFG, op);
        EXPECT_EQ(bool(tree), !rows.empty());
        std::vector<std::vector<std::string>> got;
        for (atapi::Row row : tree.rows()) {
            got.emplace_back();
            for (atapi::Field f : row) got.back().push_back(std::string(f.name() ? f.name() : "-") + "=" + f.value());
        }
        EXPECT_EQ(got, rows);
        EXPECT_FALSE(tree.row().find("act"));  // never carried by these replies
    }
}

TEST(Frame, TreesMoveAndFreeOnce) {
    FakeAtServer ats;
    ats.reply(ok("+CSQ: 1,2")).reply(ok("+CSQ: 3,4"));
    atapi::Request a{"AT+CSQ", "+CSQ"}, b{"AT+CSQ", "+CSQ"};
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
