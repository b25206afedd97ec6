// ats_ndis.h - what the two data-connection sources share: the set commands' common ending and the
// check that a caller's text ends inside its record field.
#pragma once

#include <cstddef>
#include <cstring>

#include "frame.h"

namespace atapi::ndis {

// A text field of the caller's record that holds its NUL: only such a field may go into a command
// line, since a format would read an unterminated one into the next field.
template <std::size_t N>
bool terminated(const char (&f)[N]) {
    return std::memchr(f, '\0', N) != nullptr;
}
template <std::size_t N>
bool terminated(const unsigned char (&f)[N]) {
    return std::memchr(f, '\0', N) != nullptr;
}
template <typename... F>
bool all_terminated(const F&... f) {
    return (terminated(f) && ...);
}

// The ending of a set command that parses nothing: the exchange's code when it failed, -1 for any
// final result but OK (an error reply is not mapped), else `result` (when given) set to success.
// Each way out writes its own trace line.
int send_config(Request& req, const char* run_failed, const char* config_error, AT_AMSS_RES* result);

}  // namespace atapi::ndis
