// test_gps_support.h - what the positioning, datacard and statistics tables share.
#pragma once

#include <functional>
#include <vector>

#include "test_network_support.h"
#include "trace_capture.h"

namespace atapi_test {

// Calls that must fail before anything is sent, each with the trace it must write ("" for none).
struct Refused {
    const char* what;
    std::function<bool()> fails;
    const char* trace = "";
};

inline void expect_nothing_sent(const std::vector<Refused>& rows) {
    FakeAtServer ats;
    for (const Refused& r : rows) {
        clear_traces();
        EXPECT_TRUE(r.fails()) << r.what;
        EXPECT_EQ(ats.count(), 0u) << r.what;
        if (*r.trace) {
            EXPECT_EQ(count_trace(r.trace), 1u) << r.what;
        }
    }
}

}  // namespace atapi_test
