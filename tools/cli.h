// cli.h - how a command family joins atctl: one subcommand registered from the family's own
// source file, which reads (and, where the family says so, changes) the modem's state through the
// library's public functions and puts what it found into the report.
//
//     namespace {
//     void run_sim(const atctl::Invocation& inv, atctl::Report& report) { ... }
//     }
//     ATCTL_SUBCOMMAND({.name = "sim", .order = 40, ..., .run = run_sim});
//
// A run function reports what the library answered in Sections. It throws UsageError for
// arguments it cannot use (exit 2, nothing asked of the modem if thrown before the first call)
// and Failure for an action that must not or could not be done (exit 1, the reason on stderr).
#pragma once

#include <map>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "report.h"

namespace atctl {

// What the person or script asked for.
struct Invocation {
    bool json = false;
    std::vector<std::string> args;               // positional arguments after the subcommand
    std::map<std::string, std::string> options;  // "--apn" -> "internet"; a flag maps to ""

    bool has(std::string_view option) const { return options.count(std::string(option)) > 0; }
    std::optional<std::string> option(std::string_view name) const {
        const auto it = options.find(std::string(name));
        return it == options.end() ? std::nullopt : std::optional<std::string>(it->second);
    }
    // The positional argument at `i`, or empty.
    std::string arg(std::size_t i) const { return i < args.size() ? args[i] : std::string{}; }
};

struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};
struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct Subcommand {
    std::string_view name{};
    std::string_view summary{};   // one line for `atctl --help`
    std::string_view usage{};     // what follows the name in its usage line: "[--zone Q]"
    std::string_view help{};      // the body of `atctl NAME --help`
    int order = 100;              // place in the list of `atctl --help`
    std::string_view options{};   // the options it takes, each followed by its value's name when it
                                  // has one: "--zone Q --force"
    int min_args = 0, max_args = 0;  // positional arguments it takes
    void (*run)(const Invocation&, Report&) = nullptr;
    bool in_status = false;       // part of the `status` summary (run with no arguments)
};

bool register_subcommand(const Subcommand& s);
// Every registered subcommand, in help order.
std::vector<const Subcommand*> subcommands();

#define ATCTL_CONCAT2(a, b) a##b
#define ATCTL_CONCAT(a, b) ATCTL_CONCAT2(a, b)
#define ATCTL_SUBCOMMAND(...)                                                                 \
    [[maybe_unused]] static const bool ATCTL_CONCAT(atctl_registered_, __LINE__) =            \
        ::atctl::register_subcommand(::atctl::Subcommand __VA_ARGS__)

// A secret (PIN, PUK, password) as a person or a script gives it: from the file that
// `file_option` names, else from standard input (with a prompt and no echo on a terminal). Never
// from the command line, where other users see it. The text is wiped when the object goes.
class Secret {
public:
    Secret(const Invocation& inv, std::string_view what, std::string_view file_option);
    ~Secret();
    Secret(const Secret&) = delete;
    Secret& operator=(const Secret&) = delete;
    const char* c_str() const { return value_.c_str(); }
    bool empty() const { return value_.empty(); }
    char* data() { return value_.data(); }

private:
    std::string value_;
};

// A line about an action in progress ("waiting for the bearer...") on standard error, so that it
// never mixes with the output a script reads.
void progress(const std::string& line);

// The integer a text holds entirely, or nothing.
std::optional<long> number(std::string_view text);

}  // namespace atctl
