// Error-code mapping: "+CME ERROR" / "+CMS ERROR" lines, numeric and verbose, onto the
// application's result codes.
#include <gtest/gtest.h>

#include <string>

#include "atapi.h"

namespace {

TEST(ErrorStrToId, Lines) {
    const std::pair<const char*, int> cases[] = {
        {"+CME ERROR: 10", AT_CMD_RES_SIM_FAIL},
        {"+CME ERROR: SIM not inserted", AT_CMD_RES_SIM_FAIL},
        {"+CME ERROR:  SIM not inserted  ", AT_CMD_RES_SIM_FAIL},
        {"+CME ERROR: 13", AT_CMD_RES_SIM_FAIL},
        {"+CME ERROR: 11", AT_CMD_RES_PIN_REQ},
        {"+CME ERROR: SIM PUK required", AT_CMD_RES_PUK_REQ},
        {"+CME ERROR: incorrect password", AT_CMD_RES_ERR},
        {"+CME ERROR: 30", AT_CMD_RES_GPS_NO_NETWORK_SERVER},
        {"+CME ERROR: SIM busy", AT_CMD_RES_SIM_BUSY},
        {"+CME ERROR: 4", AT_CMD_RES_OPERATION_NOT_SUPPORTED},
        {"+CME ERROR: unknown", AT_CMD_RES_UNKNOWN},
        {"+CME ERROR: 276", AT_CMD_RES_GPS_DISABLED},
        {"+CME ERROR: 280", AT_CMD_RES_CELL_ID_DSIABLED},
        {"+CME ERROR: 296", AT_CMD_RES_GPS_ANTENNA_IS_SHORTED},
        {"+CME ERROR: 3", AT_CMD_RES_BUSY},
        {"+CME ERROR: operation not allowed", AT_CMD_RES_BUSY},
        {"+CME ERROR: 297", AT_CMD_RES_BUSY},
        {"+CME ERROR: NV item inactive", AT_CMD_RES_BUSY},
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
    struct Case { const char* text; int rc; int cme; } cme[] = {
        {"10", 0, DSAT_CME_SIM_NOT_INSERTED},
        {"SIM PIN2 required", 0, DSAT_CME_SIM_PIN2_REQUIRED},
        {"Call state error", 0, 65281},  // a vendor text
        {"no such text", -1, DSAT_CME_NO_ERROR},
    };
    StAtRes res{};
    for (const Case& c : cme) {
        std::string text = c.text;
        EXPECT_EQ(cme_to_id(text.data(), &res), c.rc) << c.text;
        EXPECT_EQ(static_cast<int>(res.cme_res), c.cme) << c.text;
        EXPECT_TRUE(c.rc != 0 || res.amss_res == AT_CME_ERROR);
    }
    EXPECT_EQ(cme_to_id(nullptr, &res), -1);

    char cms[] = "314";
    EXPECT_EQ(cms_to_id(cms, &res), 0);
    EXPECT_EQ(res.amss_res, AT_CME_ERROR);
    EXPECT_EQ(res.cms_res, DSAT_CMS_SIM_BUSY);
    char cms_text[] = "SIM busy";
    EXPECT_EQ(cms_to_id(cms_text, &res), -1);
    EXPECT_EQ(res.cms_res, DSAT_CMS_NONE);
    EXPECT_EQ(cms_to_id(cms, nullptr), -1);
}

}  // namespace
