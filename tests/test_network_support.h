// test_network_support.h - table runner shared by the command tests: a sentinel-filled record,
// one scripted reply per row, the request checked on the wire and the record shown as text.
#pragma once

#include <sys/syscall.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <type_traits>
#include <vector>

#include "atapi.h"
#include "fake_ats.h"

namespace atapi_test {

constexpr unsigned char kSB = 0x5A;  // every byte of a field nobody wrote
constexpr int kS = 0x5A5A5A5A;

template <typename T>
T sentinel() {
    T r;
    std::memset(&r, kSB, sizeof r);
    return r;
}

// Every byte still the sentinel's (padding included, so records are never copied in between).
template <typename T>
bool untouched(const T& r) {
    const auto* b = reinterpret_cast<const unsigned char*>(&r);
    for (size_t i = 0; i < sizeof r; ++i)
        if (b[i] != kSB) return false;
    return true;
}

// An enum field's bits, which may be the sentinel's rather than one of the enum's values.
template <typename E>
int as_int(const E& e) {
    static_assert(sizeof(E) == sizeof(int));
    int v;
    std::memcpy(&v, &e, sizeof v);
    return v;
}

// One field as text: "?" when unwritten, a text field no further than its width.
template <typename T>
std::string show(const T& v) {
    if constexpr (std::is_array_v<T>) {
        if (untouched(v)) return "?";
        const char* p = reinterpret_cast<const char*>(v);
        return std::string(p, strnlen(p, sizeof v));
    } else if constexpr (std::is_enum_v<T>) {
        return show(as_int(v));
    } else {
        return untouched(v) ? "?" : std::to_string(v);
    }
}

template <typename... T>
std::string fields(const T&... v) {
    std::string s;
    ((s += show(v) + ","), ...);
    s.pop_back();
    return s;
}

// The header and texts a function must put on the wire.
struct Wire {
    std::string cmd, match;
    int time_out;
    int req_type = AT_REQ;
    int rep_type = 0;
    int at_mutil = AT_RES_ONE;
};

inline void expect_wire(const Request& r, const Wire& w) {
    EXPECT_EQ(r.cmd, w.cmd);
    EXPECT_EQ(r.match, w.match);
    EXPECT_EQ(r.time_out, w.time_out);
    EXPECT_EQ(r.req_type, w.req_type);
    EXPECT_EQ(r.rep_type, w.rep_type);
    EXPECT_EQ(r.at_mutil, w.at_mutil);
    EXPECT_EQ(r.rsp_type, DIRECT_BACK);
    EXPECT_EQ(r.len, 0);
    EXPECT_EQ(r.client_id, static_cast<int32_t>(syscall(SYS_gettid)));
    // The record was zeroed before the line went in: nothing follows its terminator.
    for (size_t i = w.cmd.size(); i < AT_CMD_STR_LEN; ++i) ASSERT_EQ(r.cmd_bytes[i], 0) << "at " << i;
}

// One row: the scripted reply, the expected return, the record's fields as `fields` shows them
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
        std::memset(&rec, kSB, sizeof rec);  // in place: a copy need not keep the padding
        EXPECT_EQ(call(&rec), c.rc);
        ASSERT_EQ(ats.count(), 1u);
        expect_wire(ats.last(), wire);
        if (c.want.empty()) {
            EXPECT_TRUE(untouched(rec));
            continue;
        }
        EXPECT_EQ(shown(rec), c.want);
        if constexpr (requires { rec.AtExeResult; }) {
            EXPECT_EQ(as_int(rec.AtExeResult), c.exe);
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

}  // namespace atapi_test
