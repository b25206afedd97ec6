// test_network_support.h - table runner shared by the command tests: a sentinel-filled record,
// one scripted reply per row, the request checked on the wire and the record shown as text.
#pragma once

#include <sys/syscall.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

#include "atapi.h"
#include "fake_ats.h"
#include "trace_capture.h"

namespace atapi_test {

constexpr unsigned char kSB = 0x5A;  // every byte of a field nobody wrote
constexpr int kS = 0x5A5A5A5A;

// Fill in place where padding matters: a copy need not keep it.
template <typename T>
T sentinel() {
    T r;
    std::memset(&r, kSB, sizeof r);
    return r;
}

template <typename T>
bool untouched(const T& r) {
    const auto* b = reinterpret_cast<const unsigned char*>(&r);
    return std::all_of(b, b + sizeof r, [](unsigned char c) { return c == kSB; });
}

// An enum field's bits, which may be the sentinel's rather than one of the enum's values.
template <typename E>
int as_int(const E& e) {
    static_assert(sizeof(E) == sizeof(int));
    int v;
    std::memcpy(&v, &e, sizeof v);
    return v;
}

// Fields joined by commas: "?" for one never written, a text no further than its width.
template <typename... T>
std::string fields(const T&... v) {
    auto one = [](const auto& f) -> std::string {
        using F = std::remove_cvref_t<decltype(f)>;
        if (untouched(f)) return "?";
        if constexpr (std::is_array_v<F>) {
            const char* p = reinterpret_cast<const char*>(f);
            return std::string(p, strnlen(p, sizeof f));
        }
        else if constexpr (std::is_enum_v<F>) return std::to_string(as_int(f));
        else return std::to_string(f);
    };
    std::string s;
    ((s += one(v) + ","), ...);
    s.pop_back();
    return s;
}

// The header and texts a function must put on the wire.
struct Wire {
    std::string cmd, match;
    int time_out, req_type = AT_REQ, rep_type = 0, at_mutil = AT_RES_ONE;
};

inline void expect_wire(const Request& r, const Wire& w) {
    EXPECT_EQ(std::tie(r.cmd, r.match, r.time_out, r.req_type, r.rep_type, r.at_mutil, r.rsp_type, r.len),
              std::make_tuple(w.cmd, w.match, w.time_out, w.req_type, w.rep_type, w.at_mutil, int(DIRECT_BACK), 0));
    EXPECT_EQ(r.client_id, static_cast<int32_t>(syscall(SYS_gettid)));
    // The record was zeroed before the line went in: nothing follows its terminator.
    for (size_t i = w.cmd.size(); i < AT_CMD_STR_LEN; ++i) ASSERT_EQ(r.cmd_bytes[i], 0) << "at " << i;
}

// One row: the scripted reply, the expected return, the record as its `shown` function puts it
// ("" for a record left alone byte for byte) and its result code (kS: not written).
struct Case {
    const char* what;
    Reply reply;
    int rc;
    std::string want;
    int exe = kS;
};

// Runs every case through `call` on a sentinel-filled record; each sends exactly one request.
template <typename Rec>
void run(const Wire& wire, const std::function<int(Rec*)>& call,
         const std::function<std::string(const Rec&)>& shown, const std::vector<Case>& cases) {
    FakeAtServer ats;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        ats.clear_requests();
        ats.reply(c.reply);
        Rec rec;
        std::memset(&rec, kSB, sizeof rec);
        EXPECT_EQ(call(&rec), c.rc);
        ASSERT_EQ(ats.count(), 1u);
        expect_wire(ats.last(), wire);
        if (c.want.empty()) {
            EXPECT_TRUE(untouched(rec));
        } else {
            EXPECT_EQ(shown(rec), c.want);
            if constexpr (requires { rec.AtExeResult; }) {
                EXPECT_EQ(as_int(rec.AtExeResult), c.exe);
            }
        }
    }
}

// Settings: each command line with a call that gives its return and result code, answered with
// each outcome (reply, return, result code); one request each, with that line and no match text.
using SettingCase = std::pair<std::string, std::function<std::pair<int, int>()>>;
using SettingOutcome = std::tuple<Reply, int, int>;
inline void run_settings(const std::vector<SettingCase>& cases, const std::vector<SettingOutcome>& outcomes) {
    FakeAtServer ats;
    for (const auto& [line, call] : cases) {
        for (const auto& [reply, rc, exe] : outcomes) {
            SCOPED_TRACE(testing::Message() << line << " answered " << reply.ret_val);
            ats.clear_requests();
            ats.reply(reply);
            EXPECT_EQ(call(), std::make_pair(rc, exe));
            ASSERT_EQ(ats.count(), 1u);
            expect_wire(ats.last(), {line, "", 30});
        }
    }
}

// With the AT server gone: -1 and the record left alone.
template <typename Rec, typename F>
bool fails_untouched(F call) {
    Rec r;
    std::memset(&r, kSB, sizeof r);
    return call(&r) == -1 && untouched(r);
}

// With the AT server gone: every call reports its own failure (true), and writes its failure
// trace once where it names one ("" for none).
using GoneCase = std::tuple<const char*, bool (*)(), const char*>;
inline void expect_server_gone(const std::vector<GoneCase>& cases) {
    FakeAtServer ats;
    ats.die();
    for (const auto& [what, call, trace] : cases) {
        clear_traces();
        EXPECT_TRUE(call()) << what;
        if (*trace) {
            EXPECT_EQ(count_trace(trace), 1u) << what;
        }
    }
}

}  // namespace atapi_test
