// Field-template parsers: the ordinary row parser, the firmware-version parser, ranges and the
// final-result fall-back, checked by the whole tree each builds.
#include <gtest/gtest.h>

#include <string>

#include "test_parse_util.h"

using parse_test::parse;

namespace {

// "0,1,...,n-1", with a line break and a fresh "+X: " before `split` when split > 0.
std::string numbers(int n, int split = 0) {
    std::string s = "0";
    for (int i = 1; i < n; ++i) s += (i == split ? "\r\n+X: " : ",") + std::to_string(i);
    return s;
}

int fields(const AtCmdParse* row) {
    int n = 0;
    for (; row != nullptr; row = row->next) ++n;
    return n;
}

TEST(CommonParse, BuildsTree) {
    std::string many_tree = "a=0,b=1";
    for (int i = 2; i < 129; ++i) many_tree += ",~=" + std::to_string(i);
    struct Case { const char* templ; std::string reply; const char* name; int rc; std::string tree; } cases[] = {
        {"+CSQ:rssi,ber", "+CSQ: 23,99", "+CSQ", 0, "rssi=23,ber=99"},
        {"+CGDCONT:cid,type,apn", "+CGDCONT: 1,\"IP\",\"a,b\"", "+CGDCONT", 0, "cid=1,type=IP,apn=a,b"},
        {"+X:a", "+X: \" v \"", "+X", 0, "a= v "},
        {"+X:a,b", "+X: 5,", "+X", 0, "a=5,b=~"},
        {"^USSDMODE: mode", "^USSDMODE: 1", "^USSDMODE", 0, "mode=1"},
        {"^LCACELL:\"value\",\"value1\"", "^LCACELL: 3,4", "^LCACELL", 0, "value=3,value1=4"},
        {"^VERSION:type:content", "^VERSION:BDT:Jan 1", "^VERSION", 0, "type:content=BDT:Jan 1"},
        {"+X:a,,b", "+X: 1,2,3", "+X", 0, "a=1,=2,b=3"},
        {"+X:a", "+X: \xc3\xa9\xff", "+X", 0, "a=\xc3\xa9\xff"},
        {"+X:a", "+X: 1\r\n+X 2", "+X", 0, "a=1\r\n"},  // a line without colon ends the rows
        {"+X:a,b", "+X: " + numbers(129), "+X", 0, many_tree},
        {"+CSQ:rssi,ber", "OK", "+CSQ", -2, ""},
        {"rssi", "+CSQ: 1", "+CSQ", -2, ""},
        {"+CSQ:rssi", "+CSQ: 1", nullptr, -2, ""},
        {"+CSQ:rssi", "+CREG: 1", "+CSQ", -1, ""},
        {nullptr, "+CSQ: 1", "+CSQ", -1, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.reply.substr(0, 40));
        const auto p = parse(parse_common_at_str, c.templ, c.reply, c.name);
        EXPECT_EQ(p.rc, c.rc);
        EXPECT_EQ(p.tree, c.tree);
        EXPECT_TRUE(p.reply_kept);
    }
    // Fields past the fixed limit over several lines still make one row.
    std::string reply = "+X: " + numbers(140, 70);
    AtCmdParse* tree = nullptr;
    ASSERT_EQ(parse_common_at_str(&tree, "+X:a", reply.data(), const_cast<char*>("+X")), 0);
    EXPECT_EQ(tree->plist, nullptr);
    EXPECT_EQ(fields(tree), 139);
    free_at_cmd(tree);
}

TEST(SoftStr, FirmwareVersion) {
    struct Case { const char* templ; const char* reply; int rc; const char* tree; } cases[] = {
        {"246.subsoftversion", "+CGMR: 11.608.13.02.00", 0, "subsoftversion=608.13.02.00"},
        {"246.subsoftversion", "+CGMR: 11", -2, ""},
        {"246", "+CGMR: 11.6", -2, ""},
        {"246.subsoftversion", "11.608", -1, ""},
        {nullptr, "11.608", -1, ""},
    };
    for (const Case& c : cases) {
        const auto p = parse(parse_soft_str, c.templ, c.reply, "+CGMR");
        EXPECT_EQ(p.rc, c.rc) << c.reply;
        EXPECT_EQ(p.tree, c.tree) << c.reply;
    }
}

TEST(Sequence, ExpandsRanges) {
    struct Case { const char* text; int rc; const char* tree; } cases[] = {
        {"1-3", 0, "~=1,~=2,~=3"}, {" 0 - 2 ", 0, "~=0,~=1,~=2"}, {"3-1", 0, ""},
        {"5-5", 0, "~=5"},         {"7", -2, ""},                  {"0-99999999999", -2, ""},
    };
    for (const Case& c : cases) {
        std::string text = c.text;
        AtCmdParse* tree = nullptr;
        EXPECT_EQ(parse_sequence(&tree, const_cast<char*>("x"), text.data()), c.rc) << c.text;
        EXPECT_EQ(parse_test::shape(tree), c.tree) << c.text;
        free_at_cmd(tree);
    }
}

TEST(FinalResult, NeverMatchesWithThisTable) {
    for (const char* reply : {"OK", "ERROR", "+CME ERROR: 10", "garbage", ""}) {
        std::string buf = reply;
        AtCmdParse* slot = parse_test::kUntouched;
        EXPECT_EQ(parse_final_result(&slot, buf.data()), -1) << reply;
        EXPECT_EQ(slot, parse_test::kUntouched);
    }
    std::string ok = "OK";
    EXPECT_EQ(parse_final_result(nullptr, ok.data()), -2);
    AtCmdParse* slot = nullptr;
    EXPECT_EQ(parse_final_result(&slot, nullptr), -2);
}

TEST(ParseField, RowsPastTheFixedLimit) {
    std::string values = numbers(300);
    AtCmdParse* tree = nullptr;
    char comma[] = ",";
    ASSERT_EQ(parse_field(&tree, const_cast<char*>("a"), values.data(), comma), 0);
    EXPECT_EQ(fields(tree), 300);
    EXPECT_EQ(parse_field(&tree, nullptr, values.data(), comma), -1);
    EXPECT_EQ(parse_many_field(&tree, nullptr, values.data(), comma), -1);
    EXPECT_EQ(parse_many_field(&tree, values.data(), nullptr, comma), -2);
    EXPECT_EQ(parse_many_field(nullptr, values.data(), values.data(), comma), -2);
    free_at_cmd(tree);
}

}  // namespace
