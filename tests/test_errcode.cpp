// Error-code mapping: "+CME ERROR" / "+CMS ERROR" lines, numeric and verbose, onto the
// application's result codes.
#include <gtest/gtest.h>

#include <string>

#include "atapi.h"

namespace {

TEST(ErrorStrToId, Lines) {
    const std::pair<const char*, int> cases[] = {
        {"+CME ERROR: 10", AT_CMD_RES_SIM_FAIL},
        {"+CME ERROR:  SIM not inserted  ", AT_CMD_RES_SIM_FAIL},
        {"+CME ERROR: 13", AT_CMD_RES_SIM_FAIL},
        {"+CME ERROR: 11", AT_CMD_RES_PIN_REQ},
        {"+CME ERROR: incorrect password", AT_CMD_RES_ERR},
        {"+CME ERROR: 30", AT_CMD_RES_GPS_NO_NETWORK_SERVER},
        {"+CME ERROR: 4", AT_CMD_RES_OPERATION_NOT_SUPPORTED},
        {"+CME ERROR: unknown", AT_CMD_RES_UNKNOWN},
        {"+CME ERROR: 276", AT_CMD_RES_GPS_DISABLED},
        {"+CME ERROR: 280", AT_CMD_RES_CELL_ID_DSIABLED},
        {"+CME ERROR: 296", AT_CMD_RES_GPS_ANTENNA_IS_SHORTED},
        {"+CME ERROR: 3", AT_CMD_RES_BUSY},
        {"+CME ERROR: 297", AT_CMD_RES_BUSY},  // a number with no word of its own
        {"+CME ERROR: sim not inserted", AT_CMD_RES_AMSS_MAX},
        {"+CME ERROR: another SPN query operation still not finished ", AT_CMD_RES_AMSS_MAX},
        {"+CME ERROR: -1", AT_CMD_RES_AMSS_MAX},
        {"+CME ERROR:", AT_CMD_RES_BUSY},  // an empty code reads as the number 0
        {"+CMS ERROR: 311", AT_CMD_RES_PIN_REQ},
        {"+CMS ERROR: 310", AT_CMD_RES_SIM_FAIL},
        {"+CMS ERROR: 313", AT_CMD_RES_SIM_FAIL},
        {"+CMS ERROR: 316", AT_CMD_RES_PUK_REQ},
        {"+CMS ERROR: 314", AT_CMD_RES_SIM_BUSY},
        {"+CMS ERROR: 500", AT_CMD_RES_BUSY},
        {"+CMS ERROR: SIM busy", AT_CMD_RES_AMSS_MAX},
        {"ERROR", AT_CMD_RES_AMSS_MAX},
        {"+CSQ: 1,2", AT_CMD_RES_AMSS_MAX},
        {"", AT_CMD_RES_AMSS_MAX},
        {"+CME ERROR: 99999999999999999999", AT_CMD_RES_BUSY},
        {"+CMS ERROR: 99999999999999999999", AT_CMD_RES_BUSY},
    };
    for (const auto& [text, code] : cases) {
        std::string line = text;
        EXPECT_EQ(Error_str_to_id(line.data()), code) << text;
    }
    EXPECT_EQ(Error_str_to_id(nullptr), AT_CMD_RES_AMSS_MAX);
    char line[] = "+CME ERROR: 10";  // the line is cut at its colon
    Error_str_to_id(line);
    EXPECT_STREQ(line, "+CME ERROR");
}

// Every verbose text of the table maps exactly like its number, except the one row whose text
// ends in a blank that a trimmed report can never carry.
TEST(ErrorStrToId, VerboseAndNumericFormsAgree) {
    for (const cme_err& row : cme_table) {
        if (row.err_str == nullptr) break;
        std::string numeric = std::string("+CME ERROR: ") + row.err_code;
        std::string verbose = std::string("+CME ERROR: ") + row.err_str;
        const AT_AMSS_RES by_number = Error_str_to_id(numeric.data());
        EXPECT_EQ(Error_str_to_id(verbose.data()),
                  std::string(row.err_str).back() == ' ' ? AT_CMD_RES_AMSS_MAX : by_number) << row.err_str;
    }
}

TEST(ErrorTables, Decoders) {
    struct Case { bool cms; const char* text; int rc; int code; } cases[] = {
        {false, "10", 0, DSAT_CME_SIM_NOT_INSERTED},
        {false, "SIM PIN2 required", 0, DSAT_CME_SIM_PIN2_REQUIRED},
        {false, "Call state error", 0, 65281},  // a vendor text
        {false, "no such text", -1, DSAT_CME_NO_ERROR},
        {true, "314", 0, DSAT_CMS_SIM_BUSY},
        {true, "SIM busy", -1, DSAT_CMS_NONE},  // no verbose form
    };
    for (const Case& c : cases) {
        std::string text = c.text;
        StAtRes res{};  // stale values: a decoder must set every field it owns
        res.amss_res = static_cast<at_cmd_result>(-1);
        res.cme_res = static_cast<dsat_cme_error_e_type>(12345);
        res.cms_res = static_cast<dsati_cms_err_e_type>(12345);
        EXPECT_EQ(c.cms ? cms_to_id(text.data(), &res) : cme_to_id(text.data(), &res), c.rc) << c.text;
        EXPECT_EQ(c.cms ? static_cast<int>(res.cms_res) : static_cast<int>(res.cme_res), c.code) << c.text;
        EXPECT_TRUE(c.rc != 0 || res.amss_res == AT_CME_ERROR) << c.text;
    }
    StAtRes res{};
    char cms[] = "314";
    EXPECT_EQ(cme_to_id(nullptr, &res), -1);
    EXPECT_EQ(cms_to_id(cms, nullptr), -1);
}

}  // namespace
