/*
 * atplatform_cfg.h - the configuration store shared by the router's processes.
 *
 * An object is addressed by a 32-bit identifier and a list of six 32-bit keys (objects with a
 * single instance use six zeros). It carries up to ATP_CFG_MAX_SLOTS value slots, numbered from
 * 0; each slot holds an unsigned 32-bit number or a string.
 *
 * Where the data lives
 *   One SQLite database file (WAL journal, busy timeout of a few seconds), created on first use:
 *     - the path in the environment variable ATAPI_CFG_DB, when set and not empty; else
 *     - "<run dir>/atapi_cfg.db", where the run dir is the environment variable ATAPI_RUN_DIR
 *       when set and not empty, else "/var/run".
 *   Both variables are read with secure_getenv on every call (so a set-user-ID program ignores
 *   them). The directory is never created: a missing directory makes every call fail.
 *   A file that cannot be opened, is not a database, holds another program's tables or is
 *   damaged makes the call fail with ATP_CFG_ERR_DB (traced at error level); the store never
 *   deletes or rewrites such a file.
 *
 * Usage
 *     static const uint32_t zero_keys[ATP_CFG_KEY_COUNT] = {0};
 *     ATP_CFG_OBJ* obj = NULL;
 *     if (QMX_DBGetObj(zero_keys, ATP_CFG_OID_SYSINFO, 0, &obj) == 0) {
 *         uint32_t mode = obj->slots[5].num;                  // number slot
 *         const char* name = obj->slots[6].str;               // string slot
 *         obj->slots[0].num = 2;                              // change a number slot in place
 *         QMX_CFM_SetObjStrValue(obj, 6, "LTE");              // change a string slot
 *         QMX_DBSetObj(obj);                                  // write every slot back
 *         QMX_CFM_FreeObj(obj);
 *     }
 *
 * Every call is independent (each opens and closes its own database connection), safe from any
 * thread and across fork. A write is one transaction: a reader in another process sees either
 * the whole previous object or the whole new one, and concurrent writers wait for each other
 * instead of failing. Two processes that read, change and write the same object still race:
 * the last write wins.
 *
 * The header is C11 and C++ compatible.
 */
#ifndef ATPLATFORM_CFG_H
#define ATPLATFORM_CFG_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define ATP_CFG_KEY_COUNT 6      /* keys per object address */
#define ATP_CFG_MAX_SLOTS 32     /* slots per object */
#define ATP_CFG_STR_LEN 256      /* bytes of a string slot, the NUL included */

/* The system information object: one instance (six zero keys), nine slots:
 *   0 service status, 1 service domain, 2 roaming status, 3 SIM state, 4 SIM lock state,
 *   5 system mode, 6 system mode name (string), 7 sub-mode, 8 sub-mode name (string). */
#define ATP_CFG_OID_SYSINFO 0x40030d00u
#define ATP_CFG_SYSINFO_SLOTS 9

/* Slot types. */
enum {
    ATP_CFG_SLOT_NONE = 0,   /* never set */
    ATP_CFG_SLOT_UINT32 = 1, /* `num` holds the value */
    ATP_CFG_SLOT_STRING = 2  /* `str` holds the value, always NUL-terminated */
};

/* Result codes: 0 success, nonzero failure. */
enum {
    ATP_CFG_OK = 0,
    ATP_CFG_ERR_PARAM = 1,     /* null pointer, slot index or slot count out of range */
    ATP_CFG_ERR_NOT_FOUND = 2, /* no such object stored and no default for it */
    ATP_CFG_ERR_DB = 3,        /* database missing, unreadable, damaged or not writable */
    ATP_CFG_ERR_NOMEM = 4,
    ATP_CFG_ERR_TYPE = 5,      /* the slot holds the other type */
    ATP_CFG_ERR_TRUNC = 6      /* the string was cut to fit ATP_CFG_STR_LEN - 1 bytes */
};

/* QMX_DBGetObj flags. */
#define ATP_CFG_GET_STORED_ONLY 0x1u /* no default object: a never-written object is a miss */

typedef struct ATP_CFG_SLOT {
    uint32_t type; /* ATP_CFG_SLOT_* */
    uint32_t num;
    char str[ATP_CFG_STR_LEN];
} ATP_CFG_SLOT;

typedef struct ATP_CFG_OBJ {
    uint32_t oid;
    uint32_t keys[ATP_CFG_KEY_COUNT];
    uint32_t slot_count; /* slots in use, 0..ATP_CFG_MAX_SLOTS; QMX_DBSetObj writes this many */
    ATP_CFG_SLOT slots[ATP_CFG_MAX_SLOTS];
} ATP_CFG_OBJ;

/* Reads the object (keys, oid) into a new object that the caller releases with QMX_CFM_FreeObj.
 * An object never written comes back as its default, with 0 returned: for the system
 * information object nine slots, numbers 0 and strings empty, which its readers take as "nothing
 * stored yet". Identifiers without a default, and any object when flags has
 * ATP_CFG_GET_STORED_ONLY, give ATP_CFG_ERR_NOT_FOUND instead. On failure *obj is set to NULL.
 * Returns ATP_CFG_OK or an ATP_CFG_ERR_* code. */
uint32_t QMX_DBGetObj(const uint32_t keys[ATP_CFG_KEY_COUNT], uint32_t oid, uint32_t flags,
                      ATP_CFG_OBJ** obj);

/* Writes obj (its oid, keys and slots 0..slot_count-1) in one transaction, replacing whatever
 * was stored under the same oid and keys. Returns ATP_CFG_OK or an ATP_CFG_ERR_* code; on
 * failure the stored object is unchanged. */
uint32_t QMX_DBSetObj(const ATP_CFG_OBJ* obj);

/* Makes a new object (keys, oid) with slot_count slots of type ATP_CFG_SLOT_NONE, to be filled
 * and written; release it with QMX_CFM_FreeObj. Returns NULL for a null key list, a slot_count
 * above ATP_CFG_MAX_SLOTS or no memory. */
ATP_CFG_OBJ* QMX_CFM_NewObj(const uint32_t keys[ATP_CFG_KEY_COUNT], uint32_t oid,
                            uint32_t slot_count);

/* Sets string slot `slot` of the object in memory (nothing is written to the database).
 * A slot of type NONE becomes a string slot; a slot beyond slot_count (but below
 * ATP_CFG_MAX_SLOTS) extends slot_count. A number slot is left alone: ATP_CFG_ERR_TYPE.
 * A value longer than ATP_CFG_STR_LEN - 1 bytes is stored cut and ATP_CFG_ERR_TRUNC returned. */
uint32_t QMX_CFM_SetObjStrValue(ATP_CFG_OBJ* obj, uint32_t slot, const char* value);

/* The same for a number slot. */
uint32_t QMX_CFM_SetObjU32Value(ATP_CFG_OBJ* obj, uint32_t slot, uint32_t value);

/* Releases an object from QMX_DBGetObj or QMX_CFM_NewObj. NULL is accepted. */
void QMX_CFM_FreeObj(ATP_CFG_OBJ* obj);

#ifdef __cplusplus
}
#endif

#endif /* ATPLATFORM_CFG_H */
