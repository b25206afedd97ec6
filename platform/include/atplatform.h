/*
 * atplatform.h - the platform interfaces libatapi is built against.
 *
 * On the router these names come from the router's own platform libraries. On any other Linux
 * host they come from libatplatform.so, built from this directory. libatapi calls nothing of the
 * platform but what is declared here, so either library can be linked in.
 *
 * The header is C11 and C++ compatible.
 */
#ifndef ATPLATFORM_H
#define ATPLATFORM_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---------------------------------------------------------------------------------------------
 * Bounds-checked string functions.
 *
 * None of them ever writes at or past dest + destMax. The overflow rule is the same for all:
 *   - output that does not fit is cut to fit;
 *   - a string result is always NUL-terminated when destMax > 0 (even on error);
 *   - the call returns -1 when anything was cut or an argument was invalid (null pointer,
 *     destMax of 0 or above ATP_STRING_MAX_LEN), and 0 otherwise (new_snprintf_s: the number of
 *     characters written, excluding the NUL).
 * memcpy_s and memset_s write min(count, destMax) bytes and return -1 when count > destMax.
 * --------------------------------------------------------------------------------------------- */
#define ATP_STRING_MAX_LEN 0x7fffffffUL

int memcpy_s(void* dest, size_t destMax, const void* src, size_t count);
int memset_s(void* dest, size_t destMax, int c, size_t count);
/* Copies at most count characters of src, then a NUL. */
int strncpy_s(char* strDest, size_t destMax, const char* strSrc, size_t count);
/* Appends at most count characters of src to the string in dest. A dest that holds no NUL
 * within destMax is invalid: it is emptied and -1 returned. */
int strncat_s(char* strDest, size_t destMax, const char* strSrc, size_t count);
/* sscanf with sizes: every %s, %c and %[ conversion (not suppressed with '*') takes two
 * arguments, the buffer and its size in bytes as an unsigned int. A string that does not fit
 * fails the conversion. Returns the number of fields assigned, or -1 on invalid arguments or
 * when the input ends before the first conversion. */
int sscanf_s(const char* buffer, const char* format, ...);
/* Formats at most `count` characters (the NUL not counted) into dest, and never more than
 * destMax - 1. `source` and `line` name the caller for the trace written when the output is cut.
 * Returns the characters written, or -1 when the output was cut or an argument was invalid. */
int new_snprintf_s(const char* source, int line, char* dest, size_t destMax, size_t count,
                   const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 6, 7)))
#endif
    ;

/* ---------------------------------------------------------------------------------------------
 * Trace and system log.
 *
 * QMX_TRACE_PrintInfo is quiet by default. The environment variable ATAPI_TRACE holds the sum of
 * the levels to print (1 fatal, 2 error, 4 warning, 8 info, 16 debug), in decimal or 0x hex;
 * each selected call prints one line on stderr:
 *     <source>:<line> [<module>] <LEVEL>: <message>
 * A message's own trailing newline is not doubled.
 * --------------------------------------------------------------------------------------------- */
enum {
    ATP_TRACE_FATAL = 1,
    ATP_TRACE_ERROR = 2,
    ATP_TRACE_WARNING = 4,
    ATP_TRACE_INFO = 8,
    ATP_TRACE_DEBUG = 16
};
void QMX_TRACE_PrintInfo(const char* source, int line, int module_id, const char* module,
                         int level, const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 6, 7)))
#endif
    ;
/* Writes one line to syslog under `ident` (openlog with LOG_PID, facility LOG_DAEMON).
 * level: 0 emergency .. 7 debug, as syslog priorities. */
void mlog_print(const char* ident, int level, const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 3, 4)))
#endif
    ;

/* ---------------------------------------------------------------------------------------------
 * Privileges. Up raises the effective user id to root only where the process's saved
 * set-user-ID is root (an installed set-user-ID program); elsewhere it does nothing. Drop returns
 * the effective user id to the real one. Both return 0, or -1 when the system call failed.
 * --------------------------------------------------------------------------------------------- */
int QMX_UTIL_UpRootPrivileges(void);
int QMX_UTIL_DropAndroidRootPrivileges(void);

/* ---------------------------------------------------------------------------------------------
 * Notification client. A host has no notification service: a post is accepted, traced at info
 * level and dropped. Both return 0.
 * --------------------------------------------------------------------------------------------- */
int QMX_NOTIFYCLT_PostSimpleAsynNotify(unsigned int mid, unsigned int event, int param1, int param2);
int QMX_NOTIFYCLT_PostAsynNotify(unsigned int mid, unsigned int event, void* param1,
                                 unsigned int param1_len, void* param2, unsigned int param2_len);

#ifdef __cplusplus
}
#endif

/* The configuration store (QMX_DBGetObj and friends). */
#include "atplatform_cfg.h"

#endif /* ATPLATFORM_H */
