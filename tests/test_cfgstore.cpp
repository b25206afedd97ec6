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
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "atplatform.h"
#include "run_dir.h"
#include "trace_capture.h"

namespace fs = std::filesystem;
using atapi_test::clear_traces;

namespace {

using Keys = std::array<uint32_t, ATP_CFG_KEY_COUNT>;
constexpr Keys kZero{};

struct Slot {
    uint32_t type, num;
    std::string str;
    bool operator==(const Slot&) const = default;
};
void PrintTo(const Slot& s, std::ostream* o) { *o << "{" << s.type << "," << s.num << ",\"" << s.str << "\"}"; }
using Slots = std::vector<Slot>;
Slot N(uint32_t v) { return {ATP_CFG_SLOT_UINT32, v, ""}; }
Slot T(std::string s) { return {ATP_CFG_SLOT_STRING, 0, std::move(s)}; }

// A read: the code and, on success, the slots.
struct Got {
    uint32_t ret;
    Slots slots;
    bool operator==(const Got&) const = default;
};
void PrintTo(const Got& g, std::ostream* o) { *o << "ret " << g.ret << " " << ::testing::PrintToString(g.slots); }

uint32_t put(uint32_t oid, const Keys& keys, const Slots& slots) {
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

Got get(uint32_t oid, const Keys& keys = kZero, uint32_t flags = ATP_CFG_GET_STORED_ONLY) {
    ATP_CFG_OBJ* o = reinterpret_cast<ATP_CFG_OBJ*>(0x1);
    Got g{QMX_DBGetObj(keys.data(), oid, flags, &o), {}};
    if (g.ret != ATP_CFG_OK) {
        EXPECT_EQ(o, nullptr);
        return g;
    }
    for (uint32_t i = 0; i < o->slot_count; ++i) g.slots.push_back({o->slots[i].type, o->slots[i].num, o->slots[i].str});
    EXPECT_EQ(o->oid, oid);
    EXPECT_EQ(Keys(std::to_array(o->keys)), keys);
    QMX_CFM_FreeObj(o);
    return g;
}

bool error_traced() {
    for (const auto& t : atapi_test::traces())
        if (t.level == ATP_TRACE_ERROR && t.source == "platform/cfgstore") return true;
    return false;
}

// The first column of the first row of `sql` on the file, as text.
std::string sql1(const fs::path& p, const char* sql) {
    sqlite3* db = nullptr;
    std::string out;
    if (sqlite3_open(p.c_str(), &db) == SQLITE_OK) {
        auto first = [](void* s, int, char** v, char**) { return *static_cast<std::string*>(s) = v[0] ? v[0] : "", 1; };
        char* err = nullptr;
        int rc = sqlite3_exec(db, sql, first, &out, &err);
        EXPECT_TRUE(rc == SQLITE_OK || rc == SQLITE_ABORT) << (err ? err : "");
        sqlite3_free(err);
    }
    sqlite3_close(db);
    return out;
}

std::string read_file(const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

class CfgStore : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(run_.ok());
        dir_ = run_.path();
        unsetenv("ATAPI_CFG_DB");
        clear_traces();
    }
    fs::path db() const { return fs::path(dir_) / "atapi_cfg.db"; }

    atapi_test::RunDir run_;
    std::string dir_;
};

TEST_F(CfgStore, RoundTripAndAddressing) {
    Slots wide;
    for (uint32_t i = 0; i < ATP_CFG_MAX_SLOTS; ++i) wide.push_back(i % 2 ? T(std::to_string(i)) : N(i * 1000));
    const struct {
        uint32_t oid;
        Keys keys;
        Slots slots;
    } rows[] = {
        {ATP_CFG_OID_SYSINFO, kZero,      {N(2), N(3), N(0), N(1), N(0), N(6), T("LTE"), N(101), T("FDD LTE")}},
        {0x1234, {1, 2, 3, 4, 5, 0xffffffff}, {N(0xffffffff), T(""), N(0)}},
        {0x1235, kZero, {T(std::string(ATP_CFG_STR_LEN - 1, 'x')), T("it's; DROP TABLE cfg_obj; --"), T("日本\t\"q\"")}},
        {0x1236, kZero,                   {}},
        {0x1237, kZero,                   wide},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.oid);
        ASSERT_EQ(put(row.oid, row.keys, row.slots), ATP_CFG_OK);
        EXPECT_EQ(get(row.oid, row.keys), (Got{ATP_CFG_OK, row.slots}));
    }
    // A second write replaces the whole object, slot count included.
    ASSERT_EQ(put(0x1237, kZero, {T("a"), N(7)}), ATP_CFG_OK);
    EXPECT_EQ(get(0x1237), (Got{ATP_CFG_OK, {T("a"), N(7)}}));
    EXPECT_TRUE(fs::exists(db()));
    EXPECT_FALSE(error_traced());

    // Every key and the identifier address the object.
    const Keys keys{10, 20, 30, 40, 50, 60};
    ASSERT_EQ(put(0x500, keys, {N(1)}), ATP_CFG_OK);
    for (size_t k = 0; k < keys.size(); ++k) {
        Keys other = keys;
        other[k] += 1;
        EXPECT_EQ(get(0x500, other).ret, ATP_CFG_ERR_NOT_FOUND) << "key " << k;
    }
    EXPECT_EQ(get(0x501, keys).ret, ATP_CFG_ERR_NOT_FOUND);
}

// Never written: the system information object reads as its default (nine slots, numbers 0,
// names empty) unless only stored objects are asked for; other identifiers have no default.
TEST_F(CfgStore, NeverWrittenObjects) {
    EXPECT_EQ(get(ATP_CFG_OID_SYSINFO, kZero, 0),
              (Got{ATP_CFG_OK, {N(0), N(0), N(0), N(0), N(0), N(0), T(""), N(0), T("")}}));
    EXPECT_EQ(get(ATP_CFG_OID_SYSINFO).ret, ATP_CFG_ERR_NOT_FOUND);
    EXPECT_EQ(get(0x7777, kZero, 0).ret, ATP_CFG_ERR_NOT_FOUND);
    EXPECT_FALSE(error_traced());
}

TEST_F(CfgStore, SettersAndArgumentChecks) {
    const std::string long_text(ATP_CFG_STR_LEN + 10, 'y');
    // Each row starts from three slots: NONE, UINT32, STRING.
    const struct {
        bool str;  // string setter, else number setter (value 42)
        uint32_t slot;
        const char* text;
        uint32_t ret, count_after;
    } rows[] = {
        {true,  0,                     "a",              ATP_CFG_OK,        3},
        {true,  1,                     "a",              ATP_CFG_ERR_TYPE,  3},
        {false, 2,                     nullptr,          ATP_CFG_ERR_TYPE,  3},
        {true,  2,                     "b",              ATP_CFG_OK,        3},
        {false, ATP_CFG_MAX_SLOTS - 1, nullptr,          ATP_CFG_OK,        ATP_CFG_MAX_SLOTS},
        {true,  ATP_CFG_MAX_SLOTS,     "a",              ATP_CFG_ERR_PARAM, 3},
        {true,  0,                     nullptr,          ATP_CFG_ERR_PARAM, 3},
        {true,  2,                     long_text.c_str(), ATP_CFG_ERR_TRUNC, 3},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(::testing::Message() << (row.str ? "string" : "number") << " into slot " << row.slot);
        ATP_CFG_OBJ* o = QMX_CFM_NewObj(kZero.data(), 1, 3);
        ASSERT_NE(o, nullptr);
        o->slots[1].type = ATP_CFG_SLOT_UINT32;
        o->slots[2].type = ATP_CFG_SLOT_STRING;
        uint32_t r = row.str ? QMX_CFM_SetObjStrValue(o, row.slot, row.text) : QMX_CFM_SetObjU32Value(o, row.slot, 42);
        EXPECT_EQ(r, row.ret);
        EXPECT_EQ(o->slot_count, row.count_after);
        if (r == ATP_CFG_OK || r == ATP_CFG_ERR_TRUNC) {
            const ATP_CFG_SLOT& s = o->slots[row.slot];
            EXPECT_EQ((Slot{s.type, s.num, s.str}),
                      row.str ? T(std::string(row.text).substr(0, ATP_CFG_STR_LEN - 1)) : N(42));
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
    EXPECT_EQ(get(2).ret, ATP_CFG_ERR_NOT_FOUND);
    // A string slot that lost its NUL is written cut, never read past.
    o->slots[0].type = ATP_CFG_SLOT_STRING;
    std::memset(o->slots[0].str, 'z', sizeof o->slots[0].str);
    EXPECT_EQ(QMX_DBSetObj(o), ATP_CFG_OK);
    QMX_CFM_FreeObj(o);
    EXPECT_EQ(get(2), (Got{ATP_CFG_OK, {T(std::string(ATP_CFG_STR_LEN - 1, 'z'))}}));
}

// A store call made before fork must leave nothing the child trips over, and the other way round.
TEST_F(CfgStore, OtherProcessesSeeWrites) {
    ASSERT_EQ(put(0x600, kZero, {N(6), T("parent")}), ATP_CFG_OK);
    const pid_t pid = fork();
    if (pid == 0) {
        if (get(0x600) != Got{ATP_CFG_OK, {N(6), T("parent")}}) _exit(1);
        _exit(put(0x600, kZero, {N(5), T("child")}) == ATP_CFG_OK ? 0 : 2);
    }
    int status = -1;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    EXPECT_EQ(get(0x600), (Got{ATP_CFG_OK, {N(5), T("child")}}));
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
            for (uint32_t t = 0; t < kThreads; ++t)
                threads.emplace_back([&, t] {
                    for (uint32_t i = 0; i < kWrites; ++i) {
                        if (put(0x700, {p, t, i, 0, 0, 0}, {N(p * 10000 + t * 100 + i), T("w")}) != ATP_CFG_OK) ++failures;
                        // All of them also fight over one shared object.
                        if (put(0x701, kZero, {N(p)}) != ATP_CFG_OK) ++failures;
                    }
                });
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
            for (uint32_t i = 0; i < kWrites; ++i)
                ASSERT_EQ(get(0x700, {p, t, i, 0, 0, 0}), (Got{ATP_CFG_OK, {N(p * 10000 + t * 100 + i), T("w")}}))
                    << p << "/" << t << "/" << i;
    EXPECT_EQ(sql1(db(), "PRAGMA journal_mode"), "wal");
}

// Files the store cannot use: a read is a miss (even of the object that has a default), a write
// fails, an error is traced, and the file's bytes are left as they were.
TEST_F(CfgStore, UnusableFilesAreMisses) {
    std::string junk;
    for (int i = 0; i < 4096; ++i) junk.push_back(static_cast<char>((i * 7919) & 0xff));
    auto write = [](std::string bytes) { return [bytes](const fs::path& p) { std::ofstream(p, std::ios::binary) << bytes; }; };
    const struct {
        const char* name;
        const char* rel;                            // store file below the row's directory
        std::function<void(const fs::path&)> make;  // prepares it
    } rows[] = {
        {"junk bytes",        "cfg.db",      write(junk)},
        {"damaged database",  "cfg.db",      write(std::string("SQLite format 3", 16) + junk)},
        {"a directory",       "cfg.db",      [](const fs::path& p) { fs::create_directory(p); }},
        {"missing directory", "gone/cfg.db", [](const fs::path&) {}},
        {"foreign tables",    "cfg.db",      [](const fs::path& p) { sql1(p, "CREATE TABLE cfg_obj(x)"); }},
        {"half our tables",   "cfg.db",      [](const fs::path& p) {
             sql1(p, "CREATE TABLE cfg_obj(oid, k0, k1, k2, k3, k4, k5, slot_count)"); }},
    };
    int n = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const fs::path sub = fs::path(dir_) / std::to_string(n++), file = sub / row.rel;
        fs::create_directory(sub);
        setenv("ATAPI_CFG_DB", file.c_str(), 1);
        row.make(file);
        const std::string before = fs::is_regular_file(file) ? read_file(file) : "";
        clear_traces();
        EXPECT_EQ(get(ATP_CFG_OID_SYSINFO, kZero, 0).ret, ATP_CFG_ERR_DB);
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
    const struct {
        const char* sql;
        Got want;
    } rows[] = {
        {"UPDATE cfg_obj SET slot_count = 99",          {ATP_CFG_ERR_DB, {}}},
        {"UPDATE cfg_slot SET slot = 5 WHERE slot = 1", {ATP_CFG_ERR_DB, {}}},
        {"UPDATE cfg_slot SET type = 9 WHERE slot = 0", {ATP_CFG_ERR_DB, {}}},
        // Over-long text is cut to the slot.
        {"UPDATE cfg_slot SET str = printf('%.300c', 'q') WHERE slot = 1",
         {ATP_CFG_OK, {N(1), T(std::string(ATP_CFG_STR_LEN - 1, 'q'))}}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.sql);
        ASSERT_EQ(put(1, kZero, {N(1), T("s")}), ATP_CFG_OK);
        sql1(db(), row.sql);
        clear_traces();
        EXPECT_EQ(get(1), row.want);
        EXPECT_EQ(error_traced(), row.want.ret != ATP_CFG_OK);
    }
}

// The variables are read on every call; an empty one counts as unset.
TEST_F(CfgStore, EnvironmentPicksTheFile) {
    const fs::path custom = fs::path(dir_) / "custom.db";
    setenv("ATAPI_CFG_DB", "", 1);
    ASSERT_EQ(put(0x900, kZero, {N(1)}), ATP_CFG_OK);
    EXPECT_TRUE(fs::exists(db()));
    setenv("ATAPI_CFG_DB", custom.c_str(), 1);
    EXPECT_EQ(get(0x900).ret, ATP_CFG_ERR_NOT_FOUND);
    ASSERT_EQ(put(0x901, kZero, {N(2)}), ATP_CFG_OK);
    EXPECT_TRUE(fs::exists(custom));
    unsetenv("ATAPI_CFG_DB");
    EXPECT_EQ(get(0x900).ret, ATP_CFG_OK);
    EXPECT_EQ(get(0x901).ret, ATP_CFG_ERR_NOT_FOUND);
}

}  // namespace
