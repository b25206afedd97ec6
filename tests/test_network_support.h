// test_network_support.h - table runner shared by the command tests: a sentinel-filled record,
// one scripted reply per row, and the request checked on the wire.
#pragma once

#include <sys/syscall.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "atapi.h"
#include "fake_ats.h"

namespace atapi_test {

constexpr int kS = 0x5A5A5A5A;  // a field nobody wrote
constexpr unsigned kSU = 0x5A5A5A5Au;
constexpr unsigned char kSB = 0x5A;

template <typename Rec>
Rec sentinel() {
    Rec r;
    std::memset(&r, 0x5A, sizeof r);
    return r;
}

// A record's text field, read no further than its width (an unterminated field shows whole).
template <size_t N>
std::string text(const char (&a)[N]) { return std::string(a, strnlen(a, N)); }
template <size_t N>
std::string text(const unsigned char (&a)[N]) {
    return text(reinterpret_cast<const char (&)[N]>(a));
}

// An enum field's bits, which may be the sentinel's rather than one of the enum's values.
template <typename E>
int as_int(const E& e) {
    static_assert(sizeof(E) == sizeof(int));
    int v;
    std::memcpy(&v, &e, sizeof v);
    return v;
}

// Every byte still the sentinel's (padding included, so records are never copied in between).
template <typename Rec>
bool untouched(const Rec& r) {
    const unsigned char* b = reinterpret_cast<const unsigned char*>(&r);
    for (size_t i = 0; i < sizeof r; ++i)
        if (b[i] != kSB) return false;
    return true;
}

template <typename Rec>
void is_untouched(const Rec& r) { EXPECT_TRUE(untouched(r)); }

// The header and texts a function must put on the wire.
struct Wire {
    std::string cmd;
    std::string match;
    int time_out;
    int req_type = AT_REQ;
    int rep_type = 0;
};

inline void expect_wire(const Request& r, const Wire& w) {
    EXPECT_EQ(r.cmd, w.cmd);
    EXPECT_EQ(r.match, w.match);
    EXPECT_EQ(r.time_out, w.time_out);
    EXPECT_EQ(r.req_type, w.req_type);
    EXPECT_EQ(r.rep_type, w.rep_type);
    EXPECT_EQ(r.rsp_type, DIRECT_BACK);
    EXPECT_EQ(r.at_mutil, AT_RES_ONE);
    EXPECT_EQ(r.len, 0);
    EXPECT_EQ(r.client_id, static_cast<int32_t>(syscall(SYS_gettid)));
    // The record was zeroed before the line went in: nothing follows its terminator.
    for (size_t i = w.cmd.size(); i < AT_CMD_STR_LEN; ++i) ASSERT_EQ(r.cmd_bytes[i], 0) << "at " << i;
}

// One row: the scripted reply, the expected return and what the record must then hold.
template <typename Rec>
struct Case {
    const char* what;
    Reply reply;
    int rc;
    std::function<void(const Rec&)> check;
};

// Runs every case through `call` on a sentinel-filled record; each sends exactly one request.
template <typename Rec>
void run(const Wire& wire, const std::function<int(Rec*)>& call, const std::vector<Case<Rec>>& cases) {
    FakeAtServer ats;
    for (const Case<Rec>& c : cases) {
        SCOPED_TRACE(c.what);
        ats.clear_requests();
        ats.reply(c.reply);
        Rec rec;
        std::memset(&rec, kSB, sizeof rec);
        EXPECT_EQ(call(&rec), c.rc);
        ASSERT_EQ(ats.count(), 1u);
        expect_wire(ats.last(), wire);
        c.check(rec);
    }
}

}  // namespace atapi_test
