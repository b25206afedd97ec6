// scenario.h - the simulated modem's behaviour, read from a scenario file.
//
// A scenario is a list of rules tried from top to bottom against each command line; the first
// rule whose pattern matches the whole line and whose guards hold answers it. Rules read and
// write variables and indexed stores, so that a PIN counter runs down, a written message can be
// read back and a data connection stays up until it is taken down. Events ("@NAME args", from a
// timer, a rule's "after" or the control input) run rules too, so that a call rings, connects and
// ends by itself. Behaviour a rule cannot say (a PDU turned into another, a value that drifts with
// time) is written in C++ as a function that rules call as ${=NAME args} (see functions.h). The
// format is described in docs/atserver.md and in the head of sim/scenarios/default.scn.
#pragma once

#include <chrono>
#include <functional>
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
    enum class Kind { set, add, put, del, delif, delay, line, each, after, final, run, hangup } kind;
    std::vector<std::string> args;
};

struct Rule {
    std::string pattern;
    std::regex re;
    bool body = false;     // takes a message body after the "> " prompt
    int body_bytes = 0;    // a body of exactly this many raw bytes (0: ended by Ctrl-Z, ESC cancels)
    std::vector<Guard> guards;
    std::vector<Action> actions;
    int line_no = 0;
};

struct Timed {
    int ms = 0;
    bool repeat = false;
    std::string line;  // an unsolicited line, or an event when it starts with '@'
};

struct StoreDecl {
    long first = 0, last = 0;
};

// Where `include` finds the text of another scenario file: by the name the file gives.
using SourceLoader = std::function<std::optional<std::string>(const std::string& name)>;

struct Scenario {
    std::map<std::string, std::string> vars;
    std::map<std::string, StoreDecl> stores;
    std::vector<std::pair<std::string, std::vector<std::string>>> preload;  // top-level puts
    std::vector<Rule> rules;
    std::vector<Timed> timed;
    std::vector<std::regex> masks;  // verbose output shows what these capture as "***"
    std::string fallback = "ERROR";

    static std::optional<Scenario> parse(std::string_view text, std::string* error, const SourceLoader& loader = {});
    // A file; its includes are read from its own directory.
    static std::optional<Scenario> load(const std::string& path, std::string* error);
    // One of the scenarios built into modemsim (sim/scenarios/ at build time), by file name.
    static std::optional<Scenario> builtin(const std::string& name, std::string* error);
};

// What the modem says to one command, to the body that followed its prompt, or on an event.
struct Response {
    bool prompt = false;   // send "> " and wait for the body
    int body_bytes = 0;    // the body is this many raw bytes
    int delay_ms = 0;
    std::vector<std::string> lines;
    std::string final = "OK";
    std::vector<std::pair<int, std::string>> after;  // unsolicited lines or events, ms after the answer
    int hangup_ms = -1;    // >= 0: drop the port after the answer and bring it back this much later
};

class Engine;

// A function that rules call as ${=NAME args}: it returns the text that stands in its place and
// may change the engine's state or add to the response being built.
struct Call {
    Engine& engine;
    const std::vector<std::string>& args;
    const std::string& body;  // the message body of the rule, if any
    Response* response;       // null outside a rule (timed lines)
    const std::vector<std::string>& caps;  // the rule's captures, $0 (the whole line) to $9; raw
                                           // bytes that arguments, split at blanks, cannot carry
};
using Function = std::string (*)(Call&);

class Engine {
public:
    using Record = std::map<std::string, std::string>;

    explicit Engine(Scenario s);

    // One command line without its "\r".
    Response command(std::string_view line);
    // The body of the command that asked for it, without the Ctrl-Z; `cancelled` after ESC.
    Response body(std::string_view body, bool cancelled);
    // An event ("@NAME args"): the first rule for it runs; its lines are unsolicited.
    Response event(std::string_view line);

    bool echo() const { return echo_; }
    const Scenario& scenario() const { return sc_; }
    // Text with ${...} and $n references resolved (used for timed lines too).
    std::string expand(std::string_view text);
    // The line as verbose output may show it: what the scenario's masks capture is "***".
    std::string masked(std::string_view line) const;

    // State, for the functions.
    std::string var(const std::string& name) const;
    void set_var(const std::string& name, std::string value) { vars_[name] = std::move(value); }
    // The used slots of a store by key, or null for an undeclared store.
    const std::map<long, Record>* slots(const std::string& store) const;
    // Writes a slot; key -1 takes the lowest free one. The key written, or nothing (full, undeclared).
    std::optional<long> put(const std::string& store, long key, const Record& fields);
    void erase(const std::string& store, long key);
    // Milliseconds since the engine started.
    long long now_ms() const;

private:
    struct Store {
        StoreDecl decl;
        std::map<long, Record> slots;
    };
    struct Context {
        std::vector<std::string> caps;  // $0..$9
        std::string body;
        const Record* item = nullptr;   // inside "each"
        long key = 0;
        Response* response = nullptr;
    };

    std::string expand(std::string_view text, Context& ctx);
    std::string resolve(const std::string& ref, Context& ctx);
    bool holds(const Guard& g, Context& ctx);
    Response run(const Rule& r, Context& ctx);
    void put_args(const std::string& store, const std::vector<std::string>& args, Context& ctx);
    std::optional<size_t> match(std::string_view line, Context& ctx);

    Scenario sc_;
    std::map<std::string, std::string> vars_;
    std::map<std::string, Store> stores_;
    bool echo_ = true;
    std::optional<std::pair<size_t, Context>> waiting_body_;
    std::chrono::steady_clock::time_point started_ = std::chrono::steady_clock::now();
};

// The functions rules may call. Each source file of the simulator may add its own with
//     SIM_FUNCTION(name) { ... return text; }
// (the body sees `Call& call`).
const Function* find_function(const std::string& name);
bool register_function(const char* name, Function f);

#define SIM_FUNCTION(name)                                                             \
    static std::string sim_fn_##name(::sim::Call& call);                               \
    [[maybe_unused]] static const bool sim_fn_registered_##name =                      \
        ::sim::register_function(#name, &sim_fn_##name);                               \
    static std::string sim_fn_##name([[maybe_unused]] ::sim::Call& call)

}  // namespace sim
