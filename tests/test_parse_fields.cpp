// Field-template parsers: the ordinary row parser, the firmware-version parser, ranges and the
// final-result fall-back, checked by the whole tree each builds.
#include <gtest/gtest.h>

#include <string>

#include "test_parse_util.h"

using parse_test::Buf;
using parse_test::Tree;

namespace {

struct CommonCase {
    const char* what;
    const char* templ;
    std::string reply;
    const char* name;
    int rc;
    std::string tree;
};

class CommonParse : public ::testing::TestWithParam<CommonCase> {};

TEST_P(CommonParse, BuildsTree) {
    const CommonCase& c = GetParam();
    Buf reply(c.reply);
    Tree tree;
    EXPECT_EQ(parse_common_at_str(tree.slot(), c.templ, reply.get(), const_cast<char*>(c.name)),
              c.rc);
    EXPECT_EQ(tree.str(), c.tree);
    EXPECT_EQ(reply.text, c.reply) << "the reply must be left as it came";
}

const std::string k129Values = [] {
    std::string s = "+X: 0";
    for (int i = 1; i < 129; ++i) s += "," + std::to_string(i);
    return s;
}();

const std::string k129Tree = [] {
    std::string s = "a=0,b=1";
    for (int i = 2; i < 129; ++i) s += ",~=" + std::to_string(i);
    return s;
}();

INSTANTIATE_TEST_SUITE_P(
    Rows, CommonParse,
    ::testing::Values(
        CommonCase{"csq", "+CSQ:rssi,ber", "+CSQ: 23,99", "+CSQ", 0, "rssi=23,ber=99"},
        CommonCase{"fewer values than names", "+CREG:n,stat,lac,ci,act", "+CREG: 0,1", "+CREG", 0,
                   "n=0,stat=1,lac=~,ci=~,act=~"},
        CommonCase{"more values than names", "+CSQ:rssi,ber", "+CSQ: 23,99,5", "+CSQ", 0,
                   "rssi=23,ber=99,~=5"},
        CommonCase{"quoted comma", "+CGDCONT:cid,type,apn", "+CGDCONT: 1,\"IP\",\"a,b\"",
                   "+CGDCONT", 0, "cid=1,type=IP,apn=a,b"},
        CommonCase{"blanks inside quotes stay", "+X:a", "+X: \" v \"", "+X", 0, "a= v "},
        CommonCase{"empty first value", "+X:a,b", "+X: ,5", "+X", 0, "a=,b=5"},
        CommonCase{"empty last value", "+X:a,b", "+X: 5,", "+X", 0, "a=5,b=~"},
        CommonCase{"two lines", "+CGACT:cid,state", "+CGACT: 1,1\r\n+CGACT: 2,0\r\n", "+CGACT", 0,
                   "cid=1,state=1\r\n | cid=2,state=0\r\n"},
        CommonCase{"name trimmed", "^USSDMODE: mode", "^USSDMODE: 1", "^USSDMODE", 0, "mode=1"},
        CommonCase{"quoted names", "^LCACELL:\"value\",\"value1\"", "^LCACELL: 3,4", "^LCACELL", 0,
                   "value=3,value1=4"},
        CommonCase{"colon in name", "^VERSION:type:content", "^VERSION:BDT:Jan 1", "^VERSION", 0,
                   "type:content=BDT:Jan 1"},
        CommonCase{"empty name", "+X:a,,b", "+X: 1,2,3", "+X", 0, "a=1,=2,b=3"},
        CommonCase{"bytes above 0x7f", "+X:a", "+X: \xc3\xa9\xff", "+X", 0, "a=\xc3\xa9\xff"},
        CommonCase{"line without colon ends rows", "+X:a", "+X: 1\r\n+X 2", "+X", 0, "a=1\r\n"},
        CommonCase{"129 fields make one row", "+X:a,b", k129Values, "+X", 0, k129Tree},
        CommonCase{"no colon in reply", "+CSQ:rssi,ber", "OK", "+CSQ", -2, ""},
        CommonCase{"no colon in template", "rssi", "+CSQ: 1", "+CSQ", -2, ""},
        CommonCase{"null name", "+CSQ:rssi", "+CSQ: 1", nullptr, -2, ""},
        CommonCase{"name absent", "+CSQ:rssi", "+CREG: 1", "+CSQ", -1, ""},
        CommonCase{"null template", nullptr, "+CSQ: 1", "+CSQ", -1, ""}),
    [](const auto& info) {
        std::string n = info.param.what;
        for (char& ch : n) {
            if (!isalnum(static_cast<unsigned char>(ch))) ch = '_';
        }
        return n;
    });

TEST(CommonParse, ManyFieldsOverSeveralLinesBecomeOneRow) {
    std::string reply = "+X: 0";
    for (int i = 1; i < 70; ++i) reply += "," + std::to_string(i);
    reply += "\r\n+X: 70";
    for (int i = 71; i < 140; ++i) reply += "," + std::to_string(i);
    Buf buf(reply);
    Tree tree;
    ASSERT_EQ(parse_common_at_str(tree.slot(), "+X:a", buf.get(), const_cast<char*>("+X")), 0);
    EXPECT_EQ(tree.root->plist, nullptr);
    int count = 0;
    for (AtCmdParse* f = tree.root; f != nullptr; f = f->next) ++count;
    EXPECT_EQ(count, 139);
}

TEST(CommonParse, NullArguments) {
    Buf reply("+CSQ: 1");
    Tree tree;
    EXPECT_EQ(parse_common_at_str(nullptr, "+CSQ:a", reply.get(), reply.get()), -2);
    EXPECT_EQ(parse_common_at_str(tree.slot(), "+CSQ:a", nullptr, reply.get()), -2);
}

TEST(SoftStr, FirmwareVersion) {
    struct Case {
        const char* templ;
        const char* reply;
        const char* name;
        int rc;
        const char* tree;
    } cases[] = {
        {"246.subsoftversion", "+CGMR: 11.608.13.02.00", "+CGMR", 0,
         "subsoftversion=608.13.02.00"},
        {"246.subsoftversion", "+CGMR: 11", "+CGMR", -2, ""},
        {"246", "+CGMR: 11.6", "+CGMR", -2, ""},
        {"246.subsoftversion", "11.608", "+CGMR", -1, ""},
        {nullptr, "11.608", "+CGMR", -1, ""},
    };
    for (const Case& c : cases) {
        Buf reply(c.reply);
        Tree tree;
        EXPECT_EQ(parse_soft_str(tree.slot(), c.templ, reply.get(), const_cast<char*>(c.name)), c.rc)
            << c.reply;
        EXPECT_EQ(tree.str(), c.tree) << c.reply;
    }
    Buf reply("+CGMR: 1.2");
    EXPECT_EQ(parse_soft_str(nullptr, "a.b", reply.get(), reply.get()), -2);
}

TEST(Sequence, ExpandsRanges) {
    struct Case {
        const char* text;
        int rc;
        const char* tree;
    } cases[] = {
        {"1-3", 0, "~=1,~=2,~=3"},
        {" 0 - 2 ", 0, "~=0,~=1,~=2"},
        {"3-1", 0, ""},
        {"5-5", 0, "~=5"},
        {"7", -2, ""},
        {"0-99999999999", -2, ""},
    };
    for (const Case& c : cases) {
        Buf text(c.text);
        Tree tree;
        EXPECT_EQ(parse_sequence(tree.slot(), const_cast<char*>("x"), text.get()), c.rc) << c.text;
        EXPECT_EQ(tree.str(), c.tree) << c.text;
    }
}

TEST(FinalResult, NeverMatchesWithThisTable) {
    for (const char* reply : {"OK", "ERROR", "+CME ERROR: 10", "garbage", ""}) {
        Buf buf(reply);
        AtCmdParse* sentinel = reinterpret_cast<AtCmdParse*>(0x1);
        AtCmdParse* slot = sentinel;
        EXPECT_EQ(parse_final_result(&slot, buf.get()), -1) << reply;
        EXPECT_EQ(slot, sentinel);
    }
    Buf ok("OK");
    EXPECT_EQ(parse_final_result(nullptr, ok.get()), -2);
    AtCmdParse* slot = nullptr;
    EXPECT_EQ(parse_final_result(&slot, nullptr), -2);
    EXPECT_STREQ(at_parse_final_result[0], "+CME ERROR:err");
    EXPECT_EQ(at_parse_final_result[AT_PARSE_FINAL_RESULT_ROWS - 1], nullptr);
}

TEST(ParseField, RowsPastTheFixedLimit) {
    std::string values = "0";
    for (int i = 1; i < 300; ++i) values += "," + std::to_string(i);
    Buf buf(values);
    Tree tree;
    ASSERT_EQ(parse_field(tree.slot(), const_cast<char*>("a"), buf.get(), const_cast<char*>(",")),
              0);
    int count = 0;
    for (AtCmdParse* f = tree.root; f != nullptr; f = f->next) ++count;
    EXPECT_EQ(count, 300);
    EXPECT_EQ(parse_field(tree.slot(), nullptr, buf.get(), const_cast<char*>(",")), -1);
    EXPECT_EQ(parse_many_field(tree.slot(), nullptr, buf.get(), const_cast<char*>(",")), -1);
    EXPECT_EQ(parse_many_field(tree.slot(), buf.get(), nullptr, const_cast<char*>(",")), -2);
    EXPECT_EQ(parse_many_field(nullptr, buf.get(), buf.get(), const_cast<char*>(",")), -2);
}

}  // namespace
