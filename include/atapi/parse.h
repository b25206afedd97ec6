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

/* Every allocation of the parser is bounded by this many bytes. */
#define AT_PARSE_MAX_ALLOC 0x800000u

/* Fault injection for the library's own tests, not for applications: the `nth` allocation made
 * through qmx_malloc_internal by the calling thread from now on fails (1 = the next one), and
 * only that one; 0 disarms. atapi_internal_alloc_count() tells how many allocations the calling
 * thread made since the last atapi_internal_fail_nth_alloc call. */
void atapi_internal_fail_nth_alloc(long nth);
long atapi_internal_alloc_count(void);

/* ---------------------------------------------------------------------------------------------
 * Parse routines. Return codes: 0 success, -1 nothing usable or no row, -2 missing argument or
 * structural failure, -3 bad operation type, -4 unknown final result, -5 allocation failed. On
 * failure the result slot is left as it was and nothing built is left behind. The reply text is
 * only read, except where a routine says otherwise.
 * --------------------------------------------------------------------------------------------- */

/* Final-result texts, in match order, null-terminated. */
#define AT_PARSE_FINAL_RESULT_ROWS 12
extern const char* const at_parse_final_result[AT_PARSE_FINAL_RESULT_ROWS];

/* Splits parse_str at commas outside double quotes into at_para_value[0..], each field a heap
 * string trimmed of blanks and then of double quotes; *number receives the count. The array must
 * hold count_separator(parse_str, ",") + 1 entries. On -5 the fields already stored stay in the
 * array for the caller to release. */
int at_const_parse(char** at_para_value, const char* parse_str, char* parse_str_const, int* number);
/* One next-chained row of mode_number nodes; the strings pass to the nodes. Null on failure, in
 * which case the strings of the nodes built so far have been released with them. */
AtCmdParse* GreatLinkList_AT(char** mode_name, char** mode_value, int mode_number);
/* One row from a names list and a values text (at most 128 fields each). */
int parse_field(AtCmdParse** result, char* parse_contrast_str, char* at_value_str, char* separator);
/* parse_field without the 128-field limit. */
int parse_many_field(AtCmdParse** result, char* parse_contrast_str, char* at_value_str,
                     char* separator);
/* The ordinary parser: one row per occurrence of at_name, rows chained through plist. */
int parse_common_at_str(AtCmdParse** result, const char* parse_contrast_str, char* at_value_str,
                        char* at_name);
/* Firmware version: one node named by the template text after its '.', valued by the reply text
 * after its first '.'. */
int parse_soft_str(AtCmdParse** result, const char* parse_contrast_str, char* at_value_str,
                   char* at_name);
/* Appends the unnamed values a, a+1, ..., b of the range "a-b" to the next chain at *result
 * (ranges of more than 1024 values are refused). On failure the whole chain is released and
 * *result nulled. */
int parse_sequence(AtCmdParse** result, char* parse_contrast_str, char* at_value_str);
/* Fall-back for replies that carry only a final result code. */
int parse_final_result(AtCmdParse** result, char* at_value_str);
/* Last occurrence of separator in src_str, or null. */
char* parse_find_final_str(char* src_str, char* separator);

/* List and grouped-value parsers. Group nodes carry a label (or null) and no value; their row
 * hangs on next, and groups are chained through plist, so free_at_cmd releases a whole tree. */
int parse_operator_list(AtCmdParse** result, char* parse_contrast_str, char* at_value_str,
                        char* cops_field_name);
int parse_band_at_str(AtCmdParse** result, const char* parse_contrast_str, char* at_value_str,
                      char* at_name);
int parse_cops_at_str(AtCmdParse** result, const char* parse_contrast_str, char* at_value_str,
                      char* at_name);
int parse_syscfg_at_str(AtCmdParse** result, const char* parse_contrast_str, char* at_value_str,
                        char* at_name);
int parse_syscfgex_at_str(AtCmdParse** result, const char* parse_contrast_str, char* at_value_str,
                          char* at_name);
int parse_sms_media(AtCmdParse** result, const char* parse_contrast_str, char* at_value_str,
                    char* at_name);
int parse_ndisstatqry_at_str(AtCmdParse** result, const char* parse_contrast_str,
                             char* at_value_str, char* at_name);
int parse_lteprofile_at_str(AtCmdParse** result, const char* parse_contrast_str,
                            char* at_value_str, char* at_name);
int parse_sms_index_list_at_str(AtCmdParse** result, const char* parse_contrast_str,
                                char* at_value_str, char* at_name);
int parse_cmgi_list_at_str(AtCmdParse** result, const char* parse_contrast_str, char* at_value_str,
                           char* at_name);
/* Replaces the first CR LF of the reply with ", " for good, so the PDU line becomes the last
 * field. */
int parse_sms_cmgr_at_str(AtCmdParse** result, const char* parse_contrast_str, char* at_value_str,
                          char* at_name);
/* Parses only from the last occurrence of at_name in the reply. */
int parse_eons_at_str(AtCmdParse** result, const char* parse_contrast_str, char* at_value_str,
                      char* at_name);

/* Splits a many-line reply at each occurrence of `iden` (looked for after the first character
 * of the current piece): *number holds the capacity of parray on entry and the number of pieces
 * stored on return. Each piece is a heap string; the last one is kept in a 512-byte block (at
 * most 511 characters). Null arguments do nothing. reslease_substring frees the first `number`
 * pieces. */
void get_substring(char* psource, char** parray, int* number, char* iden);
void reslease_substring(char** parray, int number);

/* ---------------------------------------------------------------------------------------------
 * Text and number helpers. None allocates; all accept null as stated.
 * --------------------------------------------------------------------------------------------- */

/* GSM 03.38 default alphabet and extension table, indexed by a 7-bit code, as Unicode code
 * points; 0xFFFF in the extension table means no character. */
extern const uint32_t arrayGSM_7DefaultTable[128];
extern const uint32_t arrayGSM_7ExtTable[128];

/* Value of one hexadecimal digit; lower-case letters are upper-cased in place. Letters past 'F'
 * are not refused ('G' gives 16). Null: -1. */
int char_to_hex(char* ch);
/* Whole string as hexadecimal (letters past 'F' accepted as by char_to_hex); -1 on any other
 * character or null. */
int get_hex_from_str(char* s);
/* Whole string as hexadecimal 0-9a-fA-F; 0 on any other character or null. */
uint64_t hex_str_to_uinteger(const char* hex);
/* Unpacks GSM 7-bit septets; puszDst must hold iSrcLength * 8 / 7 + 2 bytes. Returns the
 * septets written (a terminating 0 follows them). */
int decode_7bit(const unsigned char* puszSrc, unsigned char* puszDst, int iSrcLength);
/* Removes every leading and trailing `key` in place. */
void split_space(char* start, char key);
/* Occurrences of sep[0] outside double quotes. */
int count_separator(const char* str, const char* sep);
/* First `ch` outside double quotes, or null. */
char* get_next_seperator(char* org_str, const char ch);
/* 0 when every character is a decimal digit (empty included), else -1. */
int test_str_num(const char* s);
/* strcmp that orders null before any string. */
int safe_strcmp(const char* a, const char* b);
int safe_atoi(const char* src);
long safe_atol(const char* src);
/* Case-insensitive compare of up to n characters (at least one); either null compares equal. */
int At_strncasecmp(const char* s1, const char* s2, size_t n);

#ifdef __cplusplus
}
#endif

#endif /* ATAPI_PARSE_H */
