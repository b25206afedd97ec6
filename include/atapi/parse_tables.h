/*
 * atapi/parse_tables.h - the handler tables of the reply parser. C11 and C++.
 *
 * One constant table per function type; each row binds a reply name to four field templates
 * (READ, EXECUTE, TEST, OTHER) and the parse routine of each, and every table ends in a row whose
 * at_name is null. func_list (atapi/parse.h) maps each function type to its table.
 */
#ifndef ATAPI_PARSE_TABLES_H
#define ATAPI_PARSE_TABLES_H

#include "atapi/parse.h"

#ifdef __cplusplus
extern "C" {
#endif

extern const at_parse_handler initivatve_report_handlers[];   /*   0 unsolicited reports */
extern const at_parse_handler network_cfg_handlers[];         /*   1 */
extern const at_parse_handler pin_cfg_handlers[];             /*   2 */
extern const at_parse_handler sms_cfg_handlers[];             /*   3 */
extern const at_parse_handler basic_info_cfg_handlers[];      /*   4 */
extern const at_parse_handler voice_call_cfg_handlers[];      /*   5 */
extern const at_parse_handler add_operation_cfg_handlers[];   /*   6 */
extern const at_parse_handler data_operation_cfg_handlers[];  /*   7 */
extern const at_parse_handler phone_record_cfg_handlers[];    /*   8 */
extern const at_parse_handler stk_menu_cfg_handlers[];        /*   9 */
extern const at_parse_handler stk_text_cfg_handlers[];        /*  10 */
extern const at_parse_handler stk_input_cfg_handlers[];       /*  11 */
extern const at_parse_handler stk_inkey_cfg_handlers[];       /*  12 */
extern const at_parse_handler stk_refresh_cfg_handlers[];     /*  13 */
extern const at_parse_handler stk_browser_cfg_handlers[];     /*  14 */
extern const at_parse_handler sys_cfg_handlers[];             /*  15 */
extern const at_parse_handler profile_cfg_handlers[];         /*  16 */
extern const at_parse_handler ipfilter_cfg_handlers[];        /*  17 */
extern const at_parse_handler virserver_cfg_handlers[];       /*  18 */
extern const at_parse_handler dmz_cfg_handlers[];             /*  19 */
extern const at_parse_handler connect_cfg_handlers[];         /*  20 */
extern const at_parse_handler specappli_cfg_handlers[];       /*  21 */
extern const at_parse_handler aprofile_cfg_handlers[];        /*  22 */
extern const at_parse_handler ondemand_cfg_handlers[];        /*  23 */
extern const at_parse_handler spn_cfg_handlers[];             /*  24 */
extern const at_parse_handler webuse_cfg_handlers[];          /*  25 */
extern const at_parse_handler pinvf_cfg_handlers[];           /*  26 */
extern const at_parse_handler throughput_cfg_handlers[];      /*  27 */
extern const at_parse_handler dataflow_cfg_handlers[];        /*  28 */
extern const at_parse_handler pwrontime_cfg_handlers[];       /*  29 */
extern const at_parse_handler dhcp_cfg_handlers[];            /*  30 */
extern const at_parse_handler dialmode_info_handlers[];       /*  31 */
extern const at_parse_handler csqlvext_info_handlers[];       /*  32 */
extern const at_parse_handler csqlvl_info_handlers[];         /*  33 */
extern const at_parse_handler ussd_cfg_handlers[];            /*  34 */
extern const at_parse_handler ipv6_router_handlers[];         /*  35 */
extern const at_parse_handler authdata_cfg_handlers[];        /*  36 */
extern const at_parse_handler cgdcont_cfg_handlers[];         /*  37 */
extern const at_parse_handler gps_handlers[];                 /*  39 */
extern const at_parse_handler hfeaturestat_cfg_handlers[];    /*  41 */
extern const at_parse_handler chiptemp_handlers[];            /*  43 */
extern const at_parse_handler zte_datacard_handlers[];        /* 101 */

#ifdef __cplusplus
}
#endif

#endif /* ATAPI_PARSE_TABLES_H */
