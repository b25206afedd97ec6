// The configuration store: round trips, addressing, defaults, setters, several processes,
// damaged files and the environment that picks the file.
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "atplatform.h"
#include "trace_capture.h"

namespace fs = std::filesystem;
using atapi_test::clear_traces;
using atapi_test::traces;

namespace {

using Keys = std::array<uint32_t, ATP_CFG_KEY_COUNT>;
constexpr Keys kZero{};

struct SlotVal {
    uint32_t type;
    uint32_t num;
    std::string str;
};
SlotVal N(uint32_t v) { return {ATP_CFG_SLOT_UINT32, v, ""}; }
SlotVal T(std::string s) { return {ATP_CFG_SLOT_STRING, 0, std::move(s)}; }

class CfgStore : public ::testing::Test {
protected:
    void SetUp() override {
        char tmpl[] = "/tmp/cfgstore_XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        dir_ = tmpl;
        setenv("ATAPI_RUN_DIR", dir_.c_str(), 1);
        unsetenv("ATAPI_CFG_DB");
        clear_traces();
    }
    void TearDown() override {
        unsetenv("ATAPI_RUN_DIR");
        unsetenv("ATAPI_CFG_DB");
        std::error_code ec;
        fs::remove_all(dir_, ec);
    }
    fs::path db() const { return fs::path(dir_) / "atapi_cfg.db"; }

    static uint32_t put(uint32_t oid, const Keys& keys, const std::vector<SlotVal>& slots) {
        ATP_CFG_OBJ* o = QMX_CFM_NewObj(keys.data(), oid, 0);
        if (o == nullptr) return 99;
        for (uint32_t i = 0; i < slots.size(); ++i) {
            uint32_t r = slots[i].type == ATP_CFG_SLOT_STRING ? QMX_CFM_SetObjStrValue(o, i, slots[i].str.c_str())
                                                                : QMX_CFM_SetObjU32Value(o, i, slots[i].num);
            if (r != ATP_CFG_OK) return 98;
        }
        uint32_t r = QMX_DBSetObj(o);
        QMX_CFM_FreeObj(o);
        return r;
    }
    // Reads the object; returns the code and fills `out` with its slots.
    static uint32_t get(uint32_t oid, const Keys& keys, std::vector<SlotVal>* out, uint32_t flags = ATP_CFG_GET_STORED_ONLY) {
        ATP_CFG_OBJ* o = reinterpret_cast<ATP_CFG_OBJ*>(0x1);
        uint32_t r = QMX_DBGetObj(keys.data(), oid, flags, &o);
        if (r != ATP_CFG_OK) {
            EXPECT_EQ(o, nullptr);
            return r;
        }
        out->clear();
        for (uint32_t i = 0; i < o->slot_count; ++i) out->push_back({o->slots[i].type, o->slots[i].num, o->slots[i].str});
        EXPECT_EQ(o->oid, oid);
        EXPECT_EQ(Keys(std::to_array(o->keys)), keys);
        QMX_CFM_FreeObj(o);
        return r;
    }
    static void expect_slots(const std::vector<SlotVal>& got, const std::vector<SlotVal>& want) {
        ASSERT_EQ(got.size(), want.size());
        for (size_t i = 0; i < want.size(); ++i) {
            EXPECT_EQ(got[i].type, want[i].type) << "slot " << i;
            EXPECT_EQ(got[i].num, want[i].num) << "slot " << i;
            EXPECT_EQ(got[i].str, want[i].str) << "slot " << i;
        }
    }
    static bool error_traced() {
        for (const auto& t : traces())
            if (t.level == ATP_TRACE_ERROR && t.source == "platform/cfgstore") return true;
        return false;
    }

    std::string dir_;
};

TEST_F(CfgStore, RoundTrip) {
    struct Row {
        const char* name;
        uint32_t oid;
        Keys keys;
        std::vector<SlotVal> slots;
    };
    std::vector<SlotVal> wide;
    for (uint32_t i = 0; i < ATP_CFG_MAX_SLOTS; ++i) wide.push_back(i % 2 ? T(std::to_string(i)) : N(i * 1000));
    const std::vector<Row> rows = {
        {"sysinfo", ATP_CFG_OID_SYSINFO, kZero, {N(2), N(3), N(0), N(1), N(0), N(6), T("LTE"), N(101), T("FDD LTE")}},
        {"keyed", 0x1234, {1, 2, 3, 4, 5, 0xffffffff}, {N(0xffffffff), T(""), N(0)}},
        {"text", 0x1235, kZero, {T(std::string(ATP_CFG_STR_LEN - 1, 'x')), T("it's; DROP TABLE cfg_obj; --"), T("日本\t\"q\"")}},
        {"empty", 0x1236, kZero, {}},
        {"all slots", 0x1237, kZero, wide},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        ASSERT_EQ(put(row.oid, row.keys, row.slots), ATP_CFG_OK);
        std::vector<SlotVal> got;
        ASSERT_EQ(get(row.oid, row.keys, &got), ATP_CFG_OK);
        expect_slots(got, row.slots);
    }
    // A second write replaces the whole object, slot count included.
    ASSERT_EQ(put(0x1237, kZero, {T("a"), N(7)}), ATP_CFG_OK);
    std::vector<SlotVal> got;
    ASSERT_EQ(get(0x1237, kZero, &got), ATP_CFG_OK);
    expect_slots(got, {T("a"), N(7)});
    EXPECT_TRUE(fs::exists(db()));
    EXPECT_FALSE(error_traced());
}

TEST_F(CfgStore, EveryKeyAndTheIdentifierAddressTheObject) {
    const Keys keys{10, 20, 30, 40, 50, 60};
    ASSERT_EQ(put(0x500, keys, {N(1)}), ATP_CFG_OK);
    std::vector<SlotVal> got;
    for (size_t k = 0; k < keys.size(); ++k) {
        Keys other = keys;
        other[k] += 1;
        EXPECT_EQ(get(0x500, other, &got), ATP_CFG_ERR_NOT_FOUND) << "key " << k;
    }
    EXPECT_EQ(get(0x501, keys, &got), ATP_CFG_ERR_NOT_FOUND);
    EXPECT_EQ(get(0x500, keys, &got), ATP_CFG_OK);
}

TEST_F(CfgStore, NeverWrittenObjects) {
    const std::vector<SlotVal> sysinfo_default = {N(0), N(0), N(0), N(0), N(0), N(0), T(""), N(0), T("")};
    struct Row {
        const char* name;
        uint32_t oid;
        uint32_t flags;
        uint32_t ret;
    };
    const Row rows[] = {
        {"sysinfo default", ATP_CFG_OID_SYSINFO, 0, ATP_CFG_OK},
        {"sysinfo stored only", ATP_CFG_OID_SYSINFO, ATP_CFG_GET_STORED_ONLY, ATP_CFG_ERR_NOT_FOUND},
        {"unknown identifier", 0x7777, 0, ATP_CFG_ERR_NOT_FOUND},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        std::vector<SlotVal> got;
        ASSERT_EQ(get(row.oid, kZero, &got, row.flags), row.ret);
        if (row.ret == ATP_CFG_OK) expect_slots(got, sysinfo_default);
    }
    EXPECT_FALSE(error_traced());
}

// The cache's own pattern: read (default), change numbers in place and names by setter, write.
TEST_F(CfgStore, SysinfoReadChangeWrite) {
    ATP_CFG_OBJ* o = nullptr;
    ASSERT_EQ(QMX_DBGetObj(kZero.data(), ATP_CFG_OID_SYSINFO, 0, &o), ATP_CFG_OK);
    o->slots[0].num = 2;
    o->slots[5].num = 6;
    o->slots[7].num = 101;
    EXPECT_EQ(QMX_CFM_SetObjStrValue(o, 6, "LTE"), ATP_CFG_OK);
    EXPECT_EQ(QMX_CFM_SetObjStrValue(o, 8, "FDD"), ATP_CFG_OK);
    ASSERT_EQ(QMX_DBSetObj(o), ATP_CFG_OK);
    QMX_CFM_FreeObj(o);
    // A later writer that only changes numbers keeps the names.
    ASSERT_EQ(QMX_DBGetObj(kZero.data(), ATP_CFG_OID_SYSINFO, 0, &o), ATP_CFG_OK);
    o->slots[5].num = 3;
    ASSERT_EQ(QMX_DBSetObj(o), ATP_CFG_OK);
    QMX_CFM_FreeObj(o);
    std::vector<SlotVal> got;
    ASSERT_EQ(get(ATP_CFG_OID_SYSINFO, kZero, &got, 0), ATP_CFG_OK);
    expect_slots(got, {N(2), N(0), N(0), N(0), N(0), N(3), T("LTE"), N(101), T("FDD")});
}

TEST_F(CfgStore, SettersAndArgumentChecks) {
    struct Row {
        const char* name;
        bool str;               // string setter, else number setter
        uint32_t slot;
        const char* text;       // for the string setter
        uint32_t ret;
        uint32_t count_after;   // slot_count afterwards (starting from 3 slots: NONE, UINT32, STRING)
    };
    const std::string long_text(ATP_CFG_STR_LEN + 10, 'y');
    const Row rows[] = {
        {"string into typeless", true, 0, "a", ATP_CFG_OK, 3},
        {"string into number", true, 1, "a", ATP_CFG_ERR_TYPE, 3},
        {"number into string", false, 2, nullptr, ATP_CFG_ERR_TYPE, 3},
        {"string replaces string", true, 2, "b", ATP_CFG_OK, 3},
        {"number past the end", false, ATP_CFG_MAX_SLOTS - 1, nullptr, ATP_CFG_OK, ATP_CFG_MAX_SLOTS},
        {"slot out of range", true, ATP_CFG_MAX_SLOTS, "a", ATP_CFG_ERR_PARAM, 3},
        {"null text", true, 0, nullptr, ATP_CFG_ERR_PARAM, 3},
        {"text too long", true, 2, long_text.c_str(), ATP_CFG_ERR_TRUNC, 3},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        ATP_CFG_OBJ* o = QMX_CFM_NewObj(kZero.data(), 1, 3);
        ASSERT_NE(o, nullptr);
        o->slots[1].type = ATP_CFG_SLOT_UINT32;
        o->slots[2].type = ATP_CFG_SLOT_STRING;
        uint32_t r = row.str ? QMX_CFM_SetObjStrValue(o, row.slot, row.text) : QMX_CFM_SetObjU32Value(o, row.slot, 42);
        EXPECT_EQ(r, row.ret);
        EXPECT_EQ(o->slot_count, row.count_after);
        if (r == ATP_CFG_OK || r == ATP_CFG_ERR_TRUNC) {
            const ATP_CFG_SLOT& s = o->slots[row.slot];
            EXPECT_EQ(s.type, row.str ? ATP_CFG_SLOT_STRING : ATP_CFG_SLOT_UINT32);
            if (row.str) {
                EXPECT_EQ(std::string(s.str), std::string(row.text).substr(0, ATP_CFG_STR_LEN - 1));
            } else {
                EXPECT_EQ(s.num, 42u);
            }
        }
        QMX_CFM_FreeObj(o);
    }
    EXPECT_EQ(QMX_CFM_SetObjStrValue(nullptr, 0, "a"), ATP_CFG_ERR_PARAM);
    EXPECT_EQ(QMX_CFM_NewObj(nullptr, 1, 0), nullptr);
    EXPECT_EQ(QMX_CFM_NewObj(kZero.data(), 1, ATP_CFG_MAX_SLOTS + 1), nullptr);
    QMX_CFM_FreeObj(nullptr);
    ATP_CFG_OBJ* o = nullptr;
    EXPECT_EQ(QMX_DBGetObj(nullptr, 1, 0, &o), ATP_CFG_ERR_PARAM);
    EXPECT_EQ(QMX_DBGetObj(kZero.data(), 1, 0, nullptr), ATP_CFG_ERR_PARAM);
    EXPECT_EQ(QMX_DBSetObj(nullptr), ATP_CFG_ERR_PARAM);

    // Objects the store refuses to write leave nothing behind.
    o = QMX_CFM_NewObj(kZero.data(), 2, 1);
    o->slot_count = ATP_CFG_MAX_SLOTS + 1;
    EXPECT_EQ(QMX_DBSetObj(o), ATP_CFG_ERR_PARAM);
    o->slot_count = 1;
    o->slots[0].type = 9;
    EXPECT_EQ(QMX_DBSetObj(o), ATP_CFG_ERR_PARAM);
    // A string slot that lost its NUL is written cut, never read past.
    o->slots[0].type = ATP_CFG_SLOT_STRING;
    std::memset(o->slots[0].str, 'z', sizeof o->slots[0].str);
    EXPECT_EQ(QMX_DBSetObj(o), ATP_CFG_OK);
    QMX_CFM_FreeObj(o);
    std::vector<SlotVal> got;
    ASSERT_EQ(get(2, kZero, &got), ATP_CFG_OK);
    expect_slots(got, {T(std::string(ATP_CFG_STR_LEN - 1, 'z'))});
}

// Runs fn in a child process; returns its exit status (0 for success).
template <typename Fn>
int in_child(Fn fn) {
    pid_t pid = fork();
    if (pid == 0) _exit(fn());
    int status = 0;
    if (pid < 0 || waitpid(pid, &status, 0) != pid || !WIFEXITED(status)) return -1;
    return WEXITSTATUS(status);
}

TEST_F(CfgStore, OtherProcessesSeeWrites) {
    std::vector<SlotVal> got;
    ASSERT_EQ(get(0x600, kZero, &got), ATP_CFG_ERR_NOT_FOUND);
    ASSERT_EQ(in_child([] { return put(0x600, kZero, {N(5), T("child")}) == ATP_CFG_OK ? 0 : 1; }), 0);
    ASSERT_EQ(get(0x600, kZero, &got), ATP_CFG_OK);
    expect_slots(got, {N(5), T("child")});
    ASSERT_EQ(put(0x600, kZero, {N(6), T("parent")}), ATP_CFG_OK);
    EXPECT_EQ(in_child([] {
                  std::vector<SlotVal> v;
                  if (get(0x600, kZero, &v) != ATP_CFG_OK || v.size() != 2) return 1;
                  return v[0].num == 6 && v[1].str == "parent" ? 0 : 2;
              }),
              0);
}

// Processes and threads write distinct objects at the same time into a file none of them has
// seen before: every write must succeed and every object be there afterwards.
TEST_F(CfgStore, ConcurrentWritersLoseNothing) {
    constexpr uint32_t kProcs = 4, kThreads = 3, kWrites = 25;
    std::vector<pid_t> kids;
    for (uint32_t p = 0; p < kProcs; ++p) {
        pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            std::atomic<int> failures{0};
            std::vector<std::thread> threads;
            for (uint32_t t = 0; t < kThreads; ++t) {
                threads.emplace_back([&, t] {
                    for (uint32_t i = 0; i < kWrites; ++i) {
                        if (put(0x700, {p, t, i, 0, 0, 0}, {N(p * 10000 + t * 100 + i), T("w")}) != ATP_CFG_OK) ++failures;
                        // All of them also fight over one shared object.
                        if (put(0x701, kZero, {N(p)}) != ATP_CFG_OK) ++failures;
                    }
                });
            }
            for (auto& th : threads) th.join();
            _exit(failures.load() == 0 ? 0 : 1);
        }
        kids.push_back(pid);
    }
    for (pid_t pid : kids) {
        int status = 0;
        ASSERT_EQ(waitpid(pid, &status, 0), pid);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "a writer failed";
    }
    for (uint32_t p = 0; p < kProcs; ++p)
        for (uint32_t t = 0; t < kThreads; ++t)
            for (uint32_t i = 0; i < kWrites; ++i) {
                std::vector<SlotVal> got;
                ASSERT_EQ(get(0x700, {p, t, i, 0, 0, 0}, &got), ATP_CFG_OK) << p << "/" << t << "/" << i;
                expect_slots(got, {N(p * 10000 + t * 100 + i), T("w")});
            }
    sqlite3* conn = nullptr;
    ASSERT_EQ(sqlite3_open(db().c_str(), &conn), SQLITE_OK);
    sqlite3_stmt* st = nullptr;
    ASSERT_EQ(sqlite3_prepare_v2(conn, "PRAGMA journal_mode", -1, &st, nullptr), SQLITE_OK);
    ASSERT_EQ(sqlite3_step(st), SQLITE_ROW);
    EXPECT_STREQ(reinterpret_cast<const char*>(sqlite3_column_text(st, 0)), "wal");
    sqlite3_finalize(st);
    sqlite3_close(conn);
}

void write_file(const fs::path& p, const std::string& bytes) {
    std::ofstream(p, std::ios::binary) << bytes;
}

void run_sql(const fs::path& p, const char* sql) {
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(p.c_str(), &db), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(db, sql, nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(db);
    sqlite3_close(db);
}

std::string read_file(const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

// Files the store cannot use: a read is a miss (even of the object that has a default), a write
// fails, an error is traced, and the file's bytes are left as they were.
TEST_F(CfgStore, UnusableFilesAreMisses) {
    std::string junk;
    for (int i = 0; i < 4096; ++i) junk.push_back(static_cast<char>((i * 7919) & 0xff));
    struct Row {
        const char* name;
        const char* rel;                              // store file below the row's directory
        std::function<void(const fs::path&)> make;    // prepares it
    };
    const Row rows[] = {
        {"junk bytes",        "cfg.db",      [&](const fs::path& p) { write_file(p, junk); }},
        {"damaged database",  "cfg.db",      [&](const fs::path& p) { write_file(p, std::string("SQLite format 3", 16) + junk); }},
        {"a directory",       "cfg.db",      [](const fs::path& p) { fs::create_directory(p); }},
        {"missing directory", "gone/cfg.db", [](const fs::path&) {}},
        {"foreign tables",    "cfg.db",      [](const fs::path& p) { run_sql(p, "CREATE TABLE cfg_obj(x)"); }},
        {"half our tables",   "cfg.db",      [](const fs::path& p) {
             run_sql(p, "CREATE TABLE cfg_obj(oid, k0, k1, k2, k3, k4, k5, slot_count)"); }},
    };
    int n = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const fs::path sub = fs::path(dir_) / std::to_string(n++);
        const fs::path file = sub / row.rel;
        fs::create_directory(sub);
        setenv("ATAPI_CFG_DB", file.c_str(), 1);
        row.make(file);
        const std::string before = fs::is_regular_file(file) ? read_file(file) : "";
        clear_traces();
        std::vector<SlotVal> got;
        EXPECT_EQ(get(ATP_CFG_OID_SYSINFO, kZero, &got, 0), ATP_CFG_ERR_DB);
        EXPECT_EQ(put(ATP_CFG_OID_SYSINFO, kZero, {N(1)}), ATP_CFG_ERR_DB);
        EXPECT_TRUE(error_traced());
        if (fs::is_regular_file(file)) {
            EXPECT_TRUE(read_file(file) == before) << "the file was changed";
        }
        EXPECT_FALSE(fs::exists(sub / "gone"));
    }
}

// Contents no writer of this store produces: reads fail rather than hand out a bad object.
TEST_F(CfgStore, DamagedContents) {
    struct Row {
        const char* name;
        const char* sql;
        uint32_t ret;
        std::vector<SlotVal> want;
    };
    const Row rows[] = {
        {"slot count out of range", "UPDATE cfg_obj SET slot_count = 99",             ATP_CFG_ERR_DB, {}},
        {"slot beyond the count",   "UPDATE cfg_slot SET slot = 5 WHERE slot = 1",    ATP_CFG_ERR_DB, {}},
        {"bad slot type",           "UPDATE cfg_slot SET type = 9 WHERE slot = 0",    ATP_CFG_ERR_DB, {}},
        {"over-long text is cut",   "UPDATE cfg_slot SET str = printf('%.300c', 'q') WHERE slot = 1",
                                    ATP_CFG_OK, {N(1), T(std::string(ATP_CFG_STR_LEN - 1, 'q'))}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        ASSERT_EQ(put(1, kZero, {N(1), T("s")}), ATP_CFG_OK);
        run_sql(db(), row.sql);
        clear_traces();
        std::vector<SlotVal> got;
        ASSERT_EQ(get(1, kZero, &got), row.ret);
        if (row.ret == ATP_CFG_OK) expect_slots(got, row.want);
        EXPECT_EQ(error_traced(), row.ret != ATP_CFG_OK);
    }
}

TEST_F(CfgStore, EnvironmentPicksTheFile) {
    const fs::path custom = fs::path(dir_) / "custom.db";
    struct Row {
        const char* name;
        const char* cfg_db;  // nullptr: unset
        fs::path expect;
    };
    const Row rows[] = {
        {"run dir", nullptr, db()},
        {"empty file variable", "", db()},
        {"file variable", custom.c_str(), custom},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        std::error_code ec;
        for (const fs::path& p : {db(), custom}) {
            fs::remove(p, ec);
            fs::remove(p.string() + "-wal", ec);
            fs::remove(p.string() + "-shm", ec);
        }
        if (row.cfg_db) {
            setenv("ATAPI_CFG_DB", row.cfg_db, 1);
        } else {
            unsetenv("ATAPI_CFG_DB");
        }
        ASSERT_EQ(put(0x900, kZero, {N(1)}), ATP_CFG_OK);
        EXPECT_TRUE(fs::exists(row.expect));
        EXPECT_EQ(fs::exists(db()) + fs::exists(custom), 1);
    }
    // The variables are read on every call: each file keeps its own objects.
    unsetenv("ATAPI_CFG_DB");
    std::vector<SlotVal> got;
    EXPECT_EQ(get(0x900, kZero, &got), ATP_CFG_ERR_NOT_FOUND);
    setenv("ATAPI_CFG_DB", custom.c_str(), 1);
    EXPECT_EQ(get(0x900, kZero, &got), ATP_CFG_OK);
}

}  // namespace
