// Error-code mapping: "+CME ERROR" / "+CMS ERROR" lines, numeric and verbose, onto the
// application's result codes.
#include <gtest/gtest.h>

#include <string>

#include "atapi.h"

namespace {

struct Case {
    const char* line;
    int code;
};

TEST(ErrorStrToId, Lines) {
    const Case cases[] = {
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
    for (const Case& c : cases) {
        std::string line = c.line;
        EXPECT_EQ(Error_str_to_id(line.data()), c.code) << c.line;
    }
    EXPECT_EQ(Error_str_to_id(nullptr), AT_CMD_RES_AMSS_MAX);
}

TEST(ErrorStrToId, CutsTheLineAtItsColon) {
    char line[] = "+CME ERROR: 10";
    Error_str_to_id(line);
    EXPECT_STREQ(line, "+CME ERROR");
}

// Every verbose text of the table maps exactly like its number, except the one row whose text
// ends in a blank that a trimmed report can never carry.
TEST(ErrorStrToId, VerboseAndNumericFormsAgree) {
    int rows = 0;
    for (const cme_err& row : cme_table) {
        if (row.err_str == nullptr) break;
        ++rows;
        std::string numeric = std::string("+CME ERROR: ") + row.err_code;
        std::string verbose = std::string("+CME ERROR: ") + row.err_str;
        const AT_AMSS_RES by_number = Error_str_to_id(numeric.data());
        const AT_AMSS_RES by_text = Error_str_to_id(verbose.data());
        if (std::string(row.err_str).back() == ' ') {
            EXPECT_EQ(by_text, AT_CMD_RES_AMSS_MAX) << row.err_str;
        } else {
            EXPECT_EQ(by_text, by_number) << row.err_str;
        }
    }
    EXPECT_EQ(rows, CME_TABLE_ROWS - 1);
    EXPECT_STREQ(cme_table[CME_TABLE_ROWS - 1].err_code, "65535");
    EXPECT_STREQ(cme_table[74].err_str, "another SPN query operation still not finished ");
}

TEST(ErrorTables, Decoders) {
    StAtRes res{};
    char ten[] = "10";
    EXPECT_EQ(cme_to_id(ten, &res), 0);
    EXPECT_EQ(res.amss_res, AT_CME_ERROR);
    EXPECT_EQ(res.cme_res, DSAT_CME_SIM_NOT_INSERTED);
    char text[] = "SIM PIN2 required";
    EXPECT_EQ(cme_to_id(text, &res), 0);
    EXPECT_EQ(res.cme_res, DSAT_CME_SIM_PIN2_REQUIRED);
    char vendor[] = "Call state error";
    EXPECT_EQ(cme_to_id(vendor, &res), 0);
    EXPECT_EQ(static_cast<int>(res.cme_res), 65281);
    char unknown[] = "no such text";
    EXPECT_EQ(cme_to_id(unknown, &res), -1);
    EXPECT_EQ(res.cme_res, DSAT_CME_NO_ERROR);
    EXPECT_EQ(cme_to_id(nullptr, &res), -1);

    char cms[] = "314";
    EXPECT_EQ(cms_to_id(cms, &res), 0);
    EXPECT_EQ(res.amss_res, AT_CME_ERROR);
    EXPECT_EQ(res.cms_res, DSAT_CMS_SIM_BUSY);
    char cms_text[] = "SIM busy";
    EXPECT_EQ(cms_to_id(cms_text, &res), -1);
    EXPECT_EQ(res.cms_res, DSAT_CMS_NONE);
    EXPECT_EQ(cms_to_id(cms, nullptr), -1);

    // gs_cme_error: nine named rows, then the GPS codes map onto themselves.
    EXPECT_EQ(gs_cme_error[0].dsat_cme, DSAT_CME_SIM_NOT_INSERTED);
    EXPECT_EQ(gs_cme_error[8].app_mass_res, AT_CMD_RES_UNKNOWN);
    for (int i = 9; i < GS_CME_ERROR_ROWS; ++i) {
        EXPECT_EQ(static_cast<int>(gs_cme_error[i].dsat_cme), 276 + i - 9);
        EXPECT_EQ(static_cast<int>(gs_cme_error[i].app_mass_res), 276 + i - 9);
    }
}

}  // namespace
