// scenario.h - the simulated modem's behaviour, read from a scenario file.
//
// A scenario is a list of rules tried from top to bottom against each command line; the first
// rule whose pattern matches the whole line and whose guards hold answers it. Rules read and
// write variables and indexed stores, so that a PIN counter runs down, a written message can be
// read back and a data connection stays up until it is taken down. The format is described in
// docs/atserver.md and in the head of sim/scenarios/default.scn.
#pragma once

#include <map>
#include <optional>
#include <regex>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

struct Guard {
    std::string left, op, right;  // op: == != < > <= >= has !has free !free
};

struct Action {
    enum class Kind { set, add, put, del, delif, delay, line, each, after, final } kind;
    std::vector<std::string> args;
};

struct Rule {
    std::string pattern;
    std::regex re;
    bool body = false;  // takes a message body after the "> " prompt
    size_t body_bytes = 0;  // the body is exactly this many raw bytes; 0: up to Ctrl-Z or ESC
    std::vector<Guard> guards;
    std::vector<Action> actions;
    int line_no = 0;
};

struct Timed {
    int ms = 0;
    bool repeat = false;
    std::string line;
};

struct StoreDecl {
    long first = 0, last = 0;
};

struct Scenario {
    std::map<std::string, std::string> vars;
    std::map<std::string, StoreDecl> stores;
    std::vector<std::pair<std::string, std::vector<std::string>>> preload;  // top-level puts
    std::vector<Rule> rules;
    std::vector<Timed> timed;
    std::string fallback = "ERROR";

    static std::optional<Scenario> parse(std::string_view text, std::string* error);
    static std::optional<Scenario> load(const std::string& path, std::string* error);
};

// What the modem says to one command (or to the body that followed its prompt).
struct Response {
    bool prompt = false;  // send "> " and wait for the body
    size_t body_bytes = 0;  // of exactly this many raw bytes (0: up to Ctrl-Z or ESC)
    int delay_ms = 0;
    std::vector<std::string> lines;
    std::string final = "OK";
    std::vector<std::pair<int, std::string>> after;  // unsolicited lines, ms after the answer
};

class Engine {
public:
    explicit Engine(Scenario s);

    // One command line without its "\r".
    Response command(std::string_view line);
    // The body of the command that asked for it, without the Ctrl-Z; `cancelled` after ESC.
    Response body(std::string_view body, bool cancelled);

    bool echo() const { return echo_; }
    const Scenario& scenario() const { return sc_; }
    // Text with ${...} and $n references resolved (used for timed lines too).
    std::string expand(std::string_view text) const;
    std::string var(const std::string& name) const;

private:
    using Record = std::map<std::string, std::string>;
    struct Store {
        StoreDecl decl;
        std::map<long, Record> slots;
    };
    struct Context {
        std::vector<std::string> caps;  // $0..$9
        std::string body;
        const Record* item = nullptr;   // inside "each"
        long key = 0;
    };

    std::string expand(std::string_view text, const Context& ctx) const;
    std::string resolve(const std::string& ref, const Context& ctx) const;
    bool holds(const Guard& g, const Context& ctx) const;
    Response run(const Rule& r, Context& ctx);
    void put(const std::string& store, const std::vector<std::string>& args, Context& ctx);

    Scenario sc_;
    std::map<std::string, std::string> vars_;
    std::map<std::string, Store> stores_;
    bool echo_ = true;
    std::optional<std::pair<size_t, Context>> waiting_body_;
};

}  // namespace sim
