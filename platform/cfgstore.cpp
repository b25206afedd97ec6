// Configuration store of the host platform library: objects addressed by an identifier and six
// keys, kept in one SQLite file that every process of the router opens for itself.
//
// Layout of the file:
//   cfg_obj(oid, k0..k5, slot_count)          one row per stored object
//   cfg_slot(oid, k0..k5, slot, type, num, str) one row per slot of a stored object
// A stored object with no slots still has its cfg_obj row, so "written empty" and "never
// written" stay apart.
//
// Each call opens its own connection and closes it before returning. That costs an open per
// call, but it keeps the store correct across fork (a connection must never cross one), lets
// the environment decide the file on every call, and leaves no state behind in the caller.
#include <sqlite3.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>
#include <string_view>

#include <unistd.h>

#include "atplatform.h"

namespace {

constexpr char kTraceSource[] = "platform/cfgstore";
constexpr char kModule[] = "cfgstore";

#define CFG_TRACE(level, ...) \
    QMX_TRACE_PrintInfo(kTraceSource, __LINE__, 0, kModule, ATP_TRACE_##level, __VA_ARGS__)

constexpr char kDefaultRunDir[] = "/var/run";
constexpr char kDbFileName[] = "atapi_cfg.db";
constexpr size_t kPathMax = 4096;

// Writers of other processes hold the file only for one short transaction; waiting this long
// for them means a write is lost only when something is really stuck.
constexpr int kBusyTimeoutMs = 5000;
// Switching a fresh file to WAL takes an exclusive lock that the busy handler does not always
// wait for, so the switch itself is retried.
constexpr int kJournalRetries = 100;
constexpr useconds_t kJournalRetryUs = 20000;

// Objects that read back with a default when never written.
struct DefaultObject {
    uint32_t oid;
    uint32_t slot_count;
    std::array<uint8_t, ATP_CFG_MAX_SLOTS> types;
};

constexpr uint8_t U = ATP_CFG_SLOT_UINT32;
constexpr uint8_t S = ATP_CFG_SLOT_STRING;

constexpr std::array kDefaults{
    //            identifier            slots                  0  1  2  3  4  5  6  7  8
    DefaultObject{ATP_CFG_OID_SYSINFO,  ATP_CFG_SYSINFO_SLOTS, {U, U, U, U, U, U, S, U, S}},
};

constexpr const DefaultObject* find_default(uint32_t oid) {
    for (const auto& d : kDefaults) {
        if (d.oid == oid) return &d;
    }
    return nullptr;
}

// One transaction, so that no process ever sees one table without the other.
constexpr char kSchema[] =
    "BEGIN IMMEDIATE;"
    "CREATE TABLE IF NOT EXISTS cfg_obj("
    " oid INTEGER NOT NULL, k0 INTEGER NOT NULL, k1 INTEGER NOT NULL, k2 INTEGER NOT NULL,"
    " k3 INTEGER NOT NULL, k4 INTEGER NOT NULL, k5 INTEGER NOT NULL,"
    " slot_count INTEGER NOT NULL,"
    " PRIMARY KEY(oid, k0, k1, k2, k3, k4, k5)) WITHOUT ROWID;"
    "CREATE TABLE IF NOT EXISTS cfg_slot("
    " oid INTEGER NOT NULL, k0 INTEGER NOT NULL, k1 INTEGER NOT NULL, k2 INTEGER NOT NULL,"
    " k3 INTEGER NOT NULL, k4 INTEGER NOT NULL, k5 INTEGER NOT NULL,"
    " slot INTEGER NOT NULL, type INTEGER NOT NULL, num INTEGER NOT NULL, str TEXT,"
    " PRIMARY KEY(oid, k0, k1, k2, k3, k4, k5, slot)) WITHOUT ROWID;"
    "COMMIT;";

// Both prepare only against the tables this store creates.
constexpr char kCheckObj[] = "SELECT oid, k0, k1, k2, k3, k4, k5, slot_count FROM cfg_obj LIMIT 0";
constexpr char kCheckSlot[] =
    "SELECT oid, k0, k1, k2, k3, k4, k5, slot, type, num, str FROM cfg_slot LIMIT 0";

struct DbClose {
    void operator()(sqlite3* db) const { sqlite3_close_v2(db); }
};
struct StmtFinalize {
    void operator()(sqlite3_stmt* st) const { sqlite3_finalize(st); }
};
using Db = std::unique_ptr<sqlite3, DbClose>;
using Stmt = std::unique_ptr<sqlite3_stmt, StmtFinalize>;

// The file in use: ATAPI_CFG_DB, else <ATAPI_RUN_DIR or /var/run>/atapi_cfg.db.
bool db_path(std::span<char> out) {
    const char* file = secure_getenv("ATAPI_CFG_DB");
    int n = -1;
    if (file != nullptr && file[0] != '\0') {
        n = new_snprintf_s(kTraceSource, __LINE__, out.data(), out.size(), out.size() - 1, "%s", file);
    } else {
        const char* dir = secure_getenv("ATAPI_RUN_DIR");
        if (dir == nullptr || dir[0] == '\0') dir = kDefaultRunDir;
        n = new_snprintf_s(kTraceSource, __LINE__, out.data(), out.size(), out.size() - 1, "%s/%s", dir,
                           kDbFileName);
    }
    if (n <= 0) {
        CFG_TRACE(ERROR, "cfgstore: database path too long\n");
        return false;
    }
    return true;
}

bool is_busy(int rc) {
    return (rc & 0xff) == SQLITE_BUSY || (rc & 0xff) == SQLITE_LOCKED;
}

Stmt prepare(sqlite3* db, const char* sql) {
    sqlite3_stmt* st = nullptr;
    if (sqlite3_prepare_v2(db, sql, -1, &st, nullptr) != SQLITE_OK) {
        sqlite3_finalize(st);
        return Stmt{};
    }
    return Stmt{st};
}

bool exec(sqlite3* db, const char* sql) {
    return sqlite3_exec(db, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

// Opens the store file, creating it and its tables when missing. A failure is traced.
Db open_db() {
    std::array<char, kPathMax> path{};
    if (!db_path(path)) return Db{};

    sqlite3* raw = nullptr;
    int rc = sqlite3_open_v2(path.data(), &raw, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    Db db{raw};
    if (rc != SQLITE_OK) {
        CFG_TRACE(ERROR, "cfgstore: cannot open %s: %s\n", path.data(),
                  raw ? sqlite3_errmsg(raw) : sqlite3_errstr(rc));
        return Db{};
    }
    sqlite3_busy_timeout(db.get(), kBusyTimeoutMs);

    // The first statement is where a file that is no database shows itself. A database that
    // holds other tables than ours belongs to someone else and is left alone.
    int tables = -1;
    {
        Stmt st = prepare(db.get(), "SELECT count(*) FROM sqlite_master");
        if (st && sqlite3_step(st.get()) == SQLITE_ROW) tables = sqlite3_column_int(st.get(), 0);
    }
    if (tables < 0 || (tables > 0 && !(prepare(db.get(), kCheckObj) && prepare(db.get(), kCheckSlot)))) {
        CFG_TRACE(ERROR, "cfgstore: %s unusable: %s\n", path.data(),
                  tables < 0 ? sqlite3_errmsg(db.get()) : "not a configuration store");
        return Db{};
    }

    bool wal = false;
    for (int attempt = 0; attempt < kJournalRetries && !wal; ++attempt) {
        Stmt st = prepare(db.get(), "PRAGMA journal_mode=WAL");
        rc = st ? sqlite3_step(st.get()) : sqlite3_errcode(db.get());
        if (rc == SQLITE_ROW) {
            const auto* mode = reinterpret_cast<const char*>(sqlite3_column_text(st.get(), 0));
            wal = mode != nullptr && std::string_view{mode} == "wal";
            if (!wal) break;  // e.g. a file system without shared memory: go on without WAL
        } else if (is_busy(rc)) {
            usleep(kJournalRetryUs);
        } else {
            break;
        }
    }
    if (!wal) {
        CFG_TRACE(WARNING, "cfgstore: %s not in WAL mode: %s\n", path.data(), sqlite3_errmsg(db.get()));
    }
    if (!exec(db.get(), "PRAGMA synchronous=NORMAL") || (tables == 0 && !exec(db.get(), kSchema))) {
        CFG_TRACE(ERROR, "cfgstore: %s unusable: %s\n", path.data(), sqlite3_errmsg(db.get()));
        if (!sqlite3_get_autocommit(db.get())) exec(db.get(), "ROLLBACK");
        return Db{};
    }
    return db;
}

void bind_address(sqlite3_stmt* st, uint32_t oid, std::span<const uint32_t, ATP_CFG_KEY_COUNT> keys) {
    sqlite3_bind_int64(st, 1, oid);
    for (size_t i = 0; i < keys.size(); ++i) {
        sqlite3_bind_int64(st, static_cast<int>(i) + 2, keys[i]);
    }
}

bool valid_type(int64_t type) {
    return type == ATP_CFG_SLOT_NONE || type == ATP_CFG_SLOT_UINT32 || type == ATP_CFG_SLOT_STRING;
}

ATP_CFG_OBJ* new_obj(std::span<const uint32_t, ATP_CFG_KEY_COUNT> keys, uint32_t oid, uint32_t slot_count) {
    auto* obj = static_cast<ATP_CFG_OBJ*>(std::calloc(1, sizeof(ATP_CFG_OBJ)));
    if (obj == nullptr) return nullptr;
    obj->oid = oid;
    for (size_t i = 0; i < keys.size(); ++i) obj->keys[i] = keys[i];
    obj->slot_count = slot_count;
    return obj;
}

void apply_default(ATP_CFG_OBJ* obj, const DefaultObject& d) {
    for (uint32_t i = 0; i < d.slot_count; ++i) {
        if (obj->slots[i].type == ATP_CFG_SLOT_NONE) obj->slots[i].type = d.types[i];
    }
    if (obj->slot_count < d.slot_count) obj->slot_count = d.slot_count;
}

// Reads the stored object into obj. Returns ATP_CFG_OK, ATP_CFG_ERR_NOT_FOUND or ATP_CFG_ERR_DB.
uint32_t read_obj(sqlite3* db, ATP_CFG_OBJ* obj) {
    std::span<const uint32_t, ATP_CFG_KEY_COUNT> keys{obj->keys};
    if (!exec(db, "BEGIN")) return ATP_CFG_ERR_DB;

    uint32_t ret = ATP_CFG_ERR_DB;
    Stmt head = prepare(db,
                        "SELECT slot_count FROM cfg_obj WHERE oid=?1 AND k0=?2 AND k1=?3 AND k2=?4 AND "
                        "k3=?5 AND k4=?6 AND k5=?7");
    Stmt slots = prepare(db,
                         "SELECT slot, type, num, str FROM cfg_slot WHERE oid=?1 AND k0=?2 AND k1=?3 AND "
                         "k2=?4 AND k3=?5 AND k4=?6 AND k5=?7 ORDER BY slot");
    if (head && slots) {
        bind_address(head.get(), obj->oid, keys);
        int rc = sqlite3_step(head.get());
        if (rc == SQLITE_DONE) {
            ret = ATP_CFG_ERR_NOT_FOUND;
        } else if (rc == SQLITE_ROW) {
            int64_t count = sqlite3_column_int64(head.get(), 0);
            ret = (count >= 0 && count <= ATP_CFG_MAX_SLOTS) ? ATP_CFG_OK : ATP_CFG_ERR_DB;
            if (ret == ATP_CFG_OK) obj->slot_count = static_cast<uint32_t>(count);
            bind_address(slots.get(), obj->oid, keys);
            while (ret == ATP_CFG_OK && (rc = sqlite3_step(slots.get())) == SQLITE_ROW) {
                int64_t index = sqlite3_column_int64(slots.get(), 0);
                int64_t type = sqlite3_column_int64(slots.get(), 1);
                if (index < 0 || index >= count || !valid_type(type)) {
                    ret = ATP_CFG_ERR_DB;
                    break;
                }
                ATP_CFG_SLOT& s = obj->slots[index];
                s.type = static_cast<uint32_t>(type);
                s.num = static_cast<uint32_t>(sqlite3_column_int64(slots.get(), 2));
                const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(slots.get(), 3));
                if (text != nullptr) {
                    // Longer texts come only from other writers of the file; cut them to the slot.
                    (void)strncpy_s(s.str, sizeof s.str, text, sizeof s.str);
                }
            }
            if (ret == ATP_CFG_OK && rc != SQLITE_DONE) ret = ATP_CFG_ERR_DB;
        }
    }
    if (ret == ATP_CFG_ERR_DB) {
        CFG_TRACE(ERROR, "cfgstore: read of object 0x%x failed: %s\n", obj->oid, sqlite3_errmsg(db));
    }
    head.reset();
    slots.reset();
    exec(db, "COMMIT");
    return ret;
}

uint32_t write_obj(sqlite3* db, const ATP_CFG_OBJ* obj) {
    std::span<const uint32_t, ATP_CFG_KEY_COUNT> keys{obj->keys};
    if (!exec(db, "BEGIN IMMEDIATE")) {
        CFG_TRACE(ERROR, "cfgstore: cannot lock for object 0x%x: %s\n", obj->oid, sqlite3_errmsg(db));
        return ATP_CFG_ERR_DB;
    }
    bool ok = false;
    {
        Stmt head = prepare(db,
                            "INSERT OR REPLACE INTO cfg_obj(oid, k0, k1, k2, k3, k4, k5, slot_count) "
                            "VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8)");
        Stmt drop = prepare(db,
                            "DELETE FROM cfg_slot WHERE oid=?1 AND k0=?2 AND k1=?3 AND k2=?4 AND k3=?5 AND "
                            "k4=?6 AND k5=?7");
        Stmt put = prepare(db,
                           "INSERT INTO cfg_slot(oid, k0, k1, k2, k3, k4, k5, slot, type, num, str) "
                           "VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11)");
        ok = head && drop && put;
        if (ok) {
            bind_address(head.get(), obj->oid, keys);
            sqlite3_bind_int64(head.get(), 8, obj->slot_count);
            bind_address(drop.get(), obj->oid, keys);
            ok = sqlite3_step(head.get()) == SQLITE_DONE && sqlite3_step(drop.get()) == SQLITE_DONE;
        }
        for (uint32_t i = 0; ok && i < obj->slot_count; ++i) {
            const ATP_CFG_SLOT& s = obj->slots[i];
            sqlite3_reset(put.get());
            bind_address(put.get(), obj->oid, keys);
            sqlite3_bind_int64(put.get(), 8, i);
            sqlite3_bind_int64(put.get(), 9, s.type);
            sqlite3_bind_int64(put.get(), 10, s.num);
            // A string slot may reach the store without its NUL; never read past the slot.
            sqlite3_bind_text(put.get(), 11, s.str, static_cast<int>(strnlen(s.str, sizeof s.str - 1)),
                              SQLITE_TRANSIENT);
            ok = sqlite3_step(put.get()) == SQLITE_DONE;
        }
    }
    if (ok && exec(db, "COMMIT")) return ATP_CFG_OK;
    CFG_TRACE(ERROR, "cfgstore: write of object 0x%x failed: %s\n", obj->oid, sqlite3_errmsg(db));
    exec(db, "ROLLBACK");
    return ATP_CFG_ERR_DB;
}

}  // namespace

extern "C" uint32_t QMX_DBGetObj(const uint32_t keys[ATP_CFG_KEY_COUNT], uint32_t oid, uint32_t flags,
                                 ATP_CFG_OBJ** obj) {
    if (obj == nullptr) return ATP_CFG_ERR_PARAM;
    *obj = nullptr;
    if (keys == nullptr) return ATP_CFG_ERR_PARAM;

    ATP_CFG_OBJ* fresh = new_obj(std::span<const uint32_t, ATP_CFG_KEY_COUNT>{keys, ATP_CFG_KEY_COUNT}, oid, 0);
    if (fresh == nullptr) return ATP_CFG_ERR_NOMEM;

    uint32_t ret = ATP_CFG_ERR_DB;
    if (Db db = open_db()) ret = read_obj(db.get(), fresh);

    const DefaultObject* dflt = find_default(oid);
    if (ret == ATP_CFG_ERR_NOT_FOUND && dflt != nullptr && (flags & ATP_CFG_GET_STORED_ONLY) == 0) {
        ret = ATP_CFG_OK;
    }
    if (ret != ATP_CFG_OK) {
        std::free(fresh);
        return ret;
    }
    if (dflt != nullptr) apply_default(fresh, *dflt);
    *obj = fresh;
    return ATP_CFG_OK;
}

extern "C" uint32_t QMX_DBSetObj(const ATP_CFG_OBJ* obj) {
    if (obj == nullptr || obj->slot_count > ATP_CFG_MAX_SLOTS) return ATP_CFG_ERR_PARAM;
    for (uint32_t i = 0; i < obj->slot_count; ++i) {
        if (!valid_type(obj->slots[i].type)) return ATP_CFG_ERR_PARAM;
    }
    Db db = open_db();
    if (!db) return ATP_CFG_ERR_DB;
    return write_obj(db.get(), obj);
}

extern "C" ATP_CFG_OBJ* QMX_CFM_NewObj(const uint32_t keys[ATP_CFG_KEY_COUNT], uint32_t oid, uint32_t slot_count) {
    if (keys == nullptr || slot_count > ATP_CFG_MAX_SLOTS) return nullptr;
    return new_obj(std::span<const uint32_t, ATP_CFG_KEY_COUNT>{keys, ATP_CFG_KEY_COUNT}, oid, slot_count);
}

namespace {

// Common checks of the in-memory setters; returns the slot to change or null with *err set.
ATP_CFG_SLOT* slot_for(ATP_CFG_OBJ* obj, uint32_t slot, uint32_t type, uint32_t* err) {
    if (obj == nullptr || slot >= ATP_CFG_MAX_SLOTS || obj->slot_count > ATP_CFG_MAX_SLOTS) {
        *err = ATP_CFG_ERR_PARAM;
        return nullptr;
    }
    ATP_CFG_SLOT& s = obj->slots[slot];
    if (slot < obj->slot_count && s.type != ATP_CFG_SLOT_NONE && s.type != type) {
        *err = ATP_CFG_ERR_TYPE;
        return nullptr;
    }
    if (slot >= obj->slot_count) {
        // Slots between the old end and this one become typeless.
        for (uint32_t i = obj->slot_count; i < slot; ++i) obj->slots[i] = ATP_CFG_SLOT{};
        obj->slot_count = slot + 1;
        s = ATP_CFG_SLOT{};
    }
    s.type = type;
    *err = ATP_CFG_OK;
    return &s;
}

}  // namespace

extern "C" uint32_t QMX_CFM_SetObjStrValue(ATP_CFG_OBJ* obj, uint32_t slot, const char* value) {
    if (value == nullptr) return ATP_CFG_ERR_PARAM;
    uint32_t err = ATP_CFG_OK;
    ATP_CFG_SLOT* s = slot_for(obj, slot, ATP_CFG_SLOT_STRING, &err);
    if (s == nullptr) return err;
    s->num = 0;
    return strncpy_s(s->str, sizeof s->str, value, sizeof s->str) == 0 ? ATP_CFG_OK : ATP_CFG_ERR_TRUNC;
}

extern "C" uint32_t QMX_CFM_SetObjU32Value(ATP_CFG_OBJ* obj, uint32_t slot, uint32_t value) {
    uint32_t err = ATP_CFG_OK;
    ATP_CFG_SLOT* s = slot_for(obj, slot, ATP_CFG_SLOT_UINT32, &err);
    if (s == nullptr) return err;
    s->num = value;
    return ATP_CFG_OK;
}

extern "C" void QMX_CFM_FreeObj(ATP_CFG_OBJ* obj) {
    std::free(obj);
}
