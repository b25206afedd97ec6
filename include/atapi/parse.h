/*
 * atapi/parse.h - the reply parse tree, the handler tables and the parse routines. C11 and C++.
 */
#ifndef ATAPI_PARSE_H
#define ATAPI_PARSE_H

#include "atapi/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* One node of a parse tree. Every node and every string is a separate heap block owned by the
 * caller of at_cmd_parse and released with free_at_cmd. */
typedef struct AtCmdParseStruct {
    char* AtFieldName;                /* name from the template, or null */
    char* AtFieldValue;               /* value text, trimmed, or null */
    struct AtCmdParseStruct* plist;   /* on a row head: the next row */
    struct AtCmdParseStruct* next;    /* next field of the same row */
} AtCmdParse;

typedef enum {
    AT_FUNCTION_INITIATIVE_REPORT = 0,
    AT_FUNCTION_NETWORK_CFG = 1,
    AT_FUNCTION_PIN_CFG = 2,
    AT_FUNCTION_SMS_CFG = 3,
    AT_FUNCTION_BASIC_INFO_CFG = 4,
    AT_FUNCTION_VOICE_CALL_CFG = 5,
    AT_FUNCTION_ADD_OPERATION = 6,
    AT_FUNCTION_DATA_OPERATION = 7,
    AT_FUNCTION_PHONE_RECORD = 8,
    AT_FUNCTION_STK = 9,
    AT_FUNCTION_TEXT_STK = 10,
    AT_FUNCTION_INPUT_STK = 11,
    AT_FUNCTION_INKEY_STK = 12,
    AT_FUNCTION_REFRESH_STK = 13,
    AT_FUNCTION_BROWSER_STK = 14,
    AT_FUNCTION_SYSTEM_CFG = 15,
    AT_FUNCTION_PROFILE_CFG = 16,
    AT_FUNCTION_IPFILTER_CFG = 17,
    AT_FUNCTION_VIRSERVER_CFG = 18,
    AT_FUNCTION_DMZ_CFG = 19,
    AT_FUNCTION_CONNECT_CFG = 20,
    AT_FUNCTION_SPECAPPLIC_CFG = 21,
    AT_FUNCTION_APROFILE_CFG = 22,
    AT_FUNCTION_ONDEMAND_CFG = 23,
    AT_FUNCTION_SPN_CFG = 24,
    AT_FUNCTION_WEBUSE_CFG = 25,
    AT_FUNCTION_PINVF_CFG = 26,
    AT_FUNCTION_THROUGHPUT_CFG = 27,
    AT_FUNCTION_DATAFLOW_CFG = 28,
    AT_FUNCTION_PWRONTIME_CFG = 29,
    AT_FUNCTION_DHCP_INFO_CFG = 30,
    AT_FUNCTION_DIALMODE_INFO = 31,
    AT_FUNCTION_CSQLVLEXT_INFO = 32,
    AT_FUNCTION_CSQLVL_INFO = 33,
    AT_FUNCTION_USSD_CFG = 34,
    AT_FUNCTION_IPV6_ROUTER_INFO = 35,
    AT_FUNCTION_AUTHDATA_CFG = 36,
    AT_FUNCTION_CGDCONT_CFG = 37,
    AT_FUNCTION_VSIM_CFG = 38,
    AT_FUNCTION_GPS_CFG = 39,
    AT_FUNCTION_XMLREPORTING_CFG = 40,
    AT_FUNCTION_HFEATURESTAT_CFG = 41,
    AT_FUNCTION_SBB_CFG = 42,
    AT_FUNCTION_CHIPTEMP_CFG = 43,
    AT_FUNCTION_ZTE_DATACARD = 101
} at_function_type;

typedef enum {
    AT_OPERATION_TYPE_READ = 0,
    AT_OPERATION_TYPE_EXECUTE = 1,
    AT_OPERATION_TYPE_TEST = 2,
    AT_OPERATION_TYPE_OTHER = 3,
    AT_OPERATION_TYPE_NULL = 4
} at_operation_type;

/* The one signature of every parse routine: 0 on success with the tree in *result. */
typedef int (*at_parse_func)(AtCmdParse** result, const char* parse_contrast_str, char* at_value_str,
                             char* at_name);
typedef void (*at_free_func)(AtCmdParse* list);

/* One row of a handler table. */
typedef struct {
    const char* at_name;             /* reply name; null in the terminating row */
    int func_cmd_type;               /* informative only */
    const char* parse_contrast[4];   /* templates: READ, EXECUTE, TEST, OTHER */
    at_parse_func parse_read_func;
    at_parse_func parse_exe_func;
    at_parse_func parse_test_func;
    at_parse_func parse_other_func;
    at_free_func free_mem;           /* informative only */
} at_parse_handler;

typedef struct {
    at_function_type func_id;
    const at_parse_handler* parse_handler;
} ATS_FUNC_CMD;

#define AT_FUNC_LIST_ROWS 42
extern const ATS_FUNC_CMD func_list[AT_FUNC_LIST_ROWS];

const at_parse_handler* parse_func_type(at_function_type func_type);
int at_cmd_parse(AtCmdParse** result, char* AtName, char* AtValue, at_function_type func_type,
                 at_operation_type oper_type);
void free_at_cmd(AtCmdParse* list);
void free_cops_link(AtCmdParse* list);
void free_at_res_link(AtCmdParse* row);
void free_node(AtCmdParse* node);
void free_at_res_tree(AtCmdParse* tree_head);
int print_operator(AtCmdParse* result);
void* qmx_malloc_internal(size_t bytes, size_t max_limit, const char* filename, const char* funcname,
                          unsigned int line);

/* The parse routines, the list parsers and the text helpers are declared below by the parser
 * implementation. */

#ifdef __cplusplus
}
#endif

#endif /* ATAPI_PARSE_H */
