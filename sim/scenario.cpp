// scenario.cpp - scenario file reader and the rule engine of the simulated modem.
#include "scenario.h"

#include "builtin_scenarios.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <ctime>
#include <fstream>
#include <sstream>

namespace sim {
namespace {

std::string_view trim(std::string_view s) {
    while (!s.empty() && std::isspace(static_cast<unsigned char>(s.front()))) s.remove_prefix(1);
    while (!s.empty() && std::isspace(static_cast<unsigned char>(s.back()))) s.remove_suffix(1);
    return s;
}

// First word and the rest of the line.
std::pair<std::string_view, std::string_view> split_word(std::string_view s) {
    s = trim(s);
    const size_t sp = s.find_first_of(" \t");
    if (sp == std::string_view::npos) return {s, {}};
    return {s.substr(0, sp), trim(s.substr(sp))};
}

// Words separated by blanks; a double-quoted word may hold blanks (the quotes go).
std::vector<std::string> words(std::string_view s) {
    std::vector<std::string> out;
    std::string cur;
    bool quoted = false, any = false;
    for (char c : s) {
        if (c == '"') {
            quoted = !quoted;
            any = true;
        } else if (!quoted && (c == ' ' || c == '\t')) {
            if (any) out.push_back(cur);
            cur.clear();
            any = false;
        } else {
            cur += c;
            any = true;
        }
    }
    if (any) out.push_back(cur);
    return out;
}

std::string unquote(std::string_view s) {
    s = trim(s);
    if (s.size() >= 2 && s.front() == '"' && s.back() == '"') s = s.substr(1, s.size() - 2);
    return std::string(s);
}

std::optional<long> number(std::string_view s) {
    s = trim(s);
    long v = 0;
    const auto [p, ec] = std::from_chars(s.data(), s.data() + s.size(), v);
    if (ec != std::errc() || p != s.data() + s.size() || s.empty()) return std::nullopt;
    return v;
}

std::string utc(const char* fmt) {
    const std::time_t t = std::time(nullptr);
    std::tm tm{};
    gmtime_r(&t, &tm);
    char buf[64];
    std::strftime(buf, sizeof buf, fmt, &tm);
    return buf;
}

}  // namespace

namespace {

std::optional<std::string> read_file(const std::string& path) {
    std::ifstream f(path);
    if (!f) return std::nullopt;
    std::stringstream ss;
    ss << f.rdbuf();
    return ss.str();
}

}  // namespace

std::optional<Scenario> Scenario::builtin(const std::string& name, std::string* error) {
    auto find = [](const std::string& n) -> std::optional<std::string> {
        for (const BuiltinScenario* b = kBuiltinScenarios; b->name; ++b)
            if (n == b->name) return std::string(b->text);
        return std::nullopt;
    };
    const std::optional<std::string> text = find(name);
    if (!text) {
        if (error) *error = "no built-in scenario " + name;
        return std::nullopt;
    }
    return parse(*text, error, find);
}

std::optional<Scenario> Scenario::load(const std::string& path, std::string* error) {
    const std::optional<std::string> text = read_file(path);
    if (!text) {
        if (error) *error = "cannot read " + path;
        return std::nullopt;
    }
    const size_t slash = path.rfind('/');
    const std::string dir = slash == std::string::npos ? std::string(".") : path.substr(0, slash);
    return parse(*text, error, [dir](const std::string& name) { return read_file(dir + "/" + name); });
}

namespace {

// Reads one file's statements into `sc`; `where` names the file in errors ("" for the top one).
bool parse_into(Scenario& sc, std::string_view text, const std::string& where, const SourceLoader& loader,
                int depth, std::string* error) {
    Rule* rule = nullptr;
    int no = 0;
    auto fail = [&](const std::string& why) -> bool {
        if (error) *error = where + (where.empty() ? "" : " ") + "line " + std::to_string(no) + ": " + why;
        return false;
    };
    while (!text.empty()) {
        const size_t nl = text.find('\n');
        std::string_view raw = text.substr(0, nl);
        text = nl == std::string_view::npos ? std::string_view{} : text.substr(nl + 1);
        ++no;
        const std::string_view line = trim(raw);
        if (line.empty() || line.front() == '#') continue;
        const auto [word, rest] = split_word(line);
        const std::string w(word);

        if (w == "include" && !rule) {
            const std::string name(rest);
            if (name.empty()) return fail("\"include FILE\"");
            if (depth >= 8) return fail("includes nested too deep");
            const std::optional<std::string> inner = loader ? loader(name) : std::nullopt;
            if (!inner) return fail("cannot include " + name);
            if (!parse_into(sc, *inner, name, loader, depth + 1, error)) return false;
            continue;
        } else if (w == "mask" && !rule) {
            try {
                sc.masks.emplace_back(std::string(rest), std::regex::ECMAScript | std::regex::icase);
            } catch (const std::regex_error& e) {
                return fail("bad mask: " + std::string(e.what()));
            }
            continue;
        } else if (w == "on") {
            if (rest.empty()) return fail("\"on\" needs a pattern");
            Rule r;
            r.pattern = std::string(rest);
            try {
                r.re = std::regex(r.pattern, std::regex::ECMAScript | std::regex::icase);
            } catch (const std::regex_error& e) {
                return fail("bad pattern: " + std::string(e.what()));
            }
            r.line_no = no;
            sc.rules.push_back(std::move(r));
            rule = &sc.rules.back();
        } else if (w == "var") {
            const auto [name, value] = split_word(rest);
            if (name.empty()) return fail("\"var\" needs a name");
            sc.vars[std::string(name)] = unquote(value);
        } else if (w == "store") {
            const auto args = words(rest);
            if (args.size() != 3 || !number(args[1]) || !number(args[2]) || *number(args[1]) > *number(args[2]))
                return fail("\"store NAME FIRST LAST\"");
            sc.stores[args[0]] = {*number(args[1]), *number(args[2])};
        } else if ((w == "every" || w == "at") && !rule) {
            const auto [ms, l] = split_word(rest);
            if (!number(ms) || *number(ms) < 0 || l.empty()) return fail("\"" + w + " MS LINE\"");
            sc.timed.push_back({static_cast<int>(*number(ms)), w == "every", std::string(l)});
        } else if (w == "default" && !rule) {
            sc.fallback = std::string(rest);
        } else if (w == "put" && !rule) {
            auto args = words(rest);
            if (args.size() < 2 || !sc.stores.count(args[0])) return fail("\"put STORE KEY FIELD=VALUE...\" on a declared store");
            const std::string store = args[0];
            args.erase(args.begin());
            sc.preload.emplace_back(store, std::move(args));
        } else if (!rule) {
            return fail("\"" + w + "\" outside a rule");
        } else if (w == "body") {
            rule->body = true;
            if (!rest.empty()) {
                const auto n = number(rest);
                if (!n || *n <= 0 || *n > 4096) return fail("\"body [BYTES]\"");
                rule->body_bytes = static_cast<int>(*n);
            }
        } else if (w == "if") {
            Guard g;
            const auto [first, more] = split_word(rest);
            if (first == "has" || first == "!has" || first == "free" || first == "!free") {
                g.op = std::string(first);
                const auto args = words(more);
                if (args.empty() || !sc.stores.count(args[0])) return fail("guard on an undeclared store");
                g.left = args[0];
                if (args.size() > 1) g.right = args[1];
                if ((g.op == "has" || g.op == "!has") && g.right.empty()) return fail("\"if has STORE KEY\"");
            } else {
                const auto [op, right] = split_word(more);
                static const char* const kOps[] = {"==", "!=", "<", ">", "<=", ">="};
                if (std::find(std::begin(kOps), std::end(kOps), op) == std::end(kOps)) return fail("unknown comparison");
                g.left = std::string(first);
                g.op = std::string(op);
                g.right = unquote(right);
            }
            rule->guards.push_back(std::move(g));
        } else {
            static const std::pair<const char*, Action::Kind> kKinds[] = {
                {"set", Action::Kind::set},     {"add", Action::Kind::add},     {"put", Action::Kind::put},
                {"del", Action::Kind::del},     {"delif", Action::Kind::delif}, {"delay", Action::Kind::delay},
                {"line", Action::Kind::line},   {"each", Action::Kind::each},   {"after", Action::Kind::after},
                {"final", Action::Kind::final}, {"run", Action::Kind::run},     {"hangup", Action::Kind::hangup},
            };
            const auto it = std::find_if(std::begin(kKinds), std::end(kKinds), [&](const auto& k) { return w == k.first; });
            if (it == std::end(kKinds)) return fail("unknown word \"" + w + "\"");
            Action a{it->second, {}};
            switch (a.kind) {
            case Action::Kind::set: {
                const auto [name, value] = split_word(rest);
                if (name.empty()) return fail("\"set NAME VALUE\"");
                a.args = {std::string(name), unquote(value)};
                break;
            }
            case Action::Kind::add: {
                const auto [name, value] = split_word(rest);
                if (name.empty() || value.empty()) return fail("\"add NAME N\"");
                a.args = {std::string(name), std::string(value)};
                break;
            }
            case Action::Kind::put:
            case Action::Kind::del:
            case Action::Kind::delif:
                a.args = words(rest);
                if (a.args.size() < 2 || !sc.stores.count(a.args[0])) return fail("\"" + w + "\" needs a declared store and a key");
                if (a.kind == Action::Kind::delif && a.args.size() != 3) return fail("\"delif STORE FIELD VALUE\"");
                break;
            case Action::Kind::delay:
            case Action::Kind::hangup:
                if (!number(rest) && rest.find('$') == std::string_view::npos) return fail("\"" + w + " MS\"");
                a.args = {std::string(rest)};
                break;
            case Action::Kind::each: {
                const auto [store, l] = split_word(rest);
                if (!sc.stores.count(std::string(store))) return fail("\"each\" on an undeclared store");
                a.args = {std::string(store), std::string(l)};
                break;
            }
            case Action::Kind::after: {
                const auto [ms, l] = split_word(rest);
                if ((!number(ms) && ms.find('$') == std::string_view::npos) || l.empty()) return fail("\"after MS LINE\"");
                a.args = {std::string(ms), std::string(l)};
                break;
            }
            case Action::Kind::line:
            case Action::Kind::final:
            case Action::Kind::run:
                a.args = {std::string(rest)};
                break;
            }
            rule->actions.push_back(std::move(a));
        }
    }
    return true;
}

}  // namespace

std::optional<Scenario> Scenario::parse(std::string_view text, std::string* error, const SourceLoader& loader) {
    Scenario sc;
    if (!parse_into(sc, text, "", loader, 0, error)) return std::nullopt;
    return sc;
}

Engine::Engine(Scenario s) : sc_(std::move(s)), vars_(sc_.vars) {
    for (const auto& [name, decl] : sc_.stores) stores_[name].decl = decl;
    for (const auto& [store, args] : sc_.preload) {
        Context ctx;
        put_args(store, args, ctx);
    }
}

std::string Engine::var(const std::string& name) const {
    const auto it = vars_.find(name);
    return it == vars_.end() ? std::string{} : it->second;
}

long long Engine::now_ms() const {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - started_).count();
}

const std::map<long, Engine::Record>* Engine::slots(const std::string& store) const {
    const auto it = stores_.find(store);
    return it == stores_.end() ? nullptr : &it->second.slots;
}

std::optional<long> Engine::put(const std::string& store, long key, const Record& fields) {
    const auto it = stores_.find(store);
    if (it == stores_.end()) return std::nullopt;
    Store& s = it->second;
    if (key == -1) {
        for (long k = s.decl.first; k <= s.decl.last && key == -1; ++k)
            if (!s.slots.count(k)) key = k;
        if (key == -1) return std::nullopt;
    } else if (key < s.decl.first || key > s.decl.last) {
        return std::nullopt;
    }
    Record& rec = s.slots[key];
    for (const auto& [f, v] : fields) rec[f] = v;
    return key;
}

void Engine::erase(const std::string& store, long key) {
    const auto it = stores_.find(store);
    if (it != stores_.end()) it->second.slots.erase(key);
}

std::string Engine::expand(std::string_view text) {
    Context ctx;
    return expand(text, ctx);
}

std::string Engine::masked(std::string_view line) const {
    std::string out(line);
    for (const std::regex& re : sc_.masks) {
        std::smatch m;
        if (!std::regex_search(out, m, re)) continue;
        std::string masked;
        size_t pos = 0;
        for (size_t g = 1; g < m.size(); ++g) {
            if (!m[g].matched) continue;
            const auto at = static_cast<size_t>(m.position(static_cast<int>(g)));
            if (at < pos) continue;
            masked += out.substr(pos, at - pos) + "***";
            pos = at + static_cast<size_t>(m.length(static_cast<int>(g)));
        }
        return masked + out.substr(pos);
    }
    return out;
}

std::string Engine::expand(std::string_view text, Context& ctx) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '\\' && i + 1 < text.size() && text[i + 1] == 'n') {
            out += '\n';  // a line break inside "each" and "line" texts
            ++i;
        } else if (c != '$' || i + 1 >= text.size()) {
            out += c;
        } else if (std::isdigit(static_cast<unsigned char>(text[i + 1]))) {
            const size_t n = static_cast<size_t>(text[i + 1] - '0');
            if (n < ctx.caps.size()) out += ctx.caps[n];
            ++i;
        } else if (text.substr(i + 1, 4) == "body") {
            out += ctx.body;
            i += 4;
        } else if (text[i + 1] == '{') {
            size_t depth = 0, j = i + 1;
            for (; j < text.size(); ++j) {
                if (text[j] == '{') ++depth;
                if (text[j] == '}' && --depth == 0) break;
            }
            if (j >= text.size()) {
                out += text.substr(i);
                break;
            }
            out += resolve(expand(text.substr(i + 2, j - i - 2), ctx), ctx);
            i = j;
        } else {
            out += c;
        }
    }
    return out;
}

std::string Engine::resolve(const std::string& ref, Context& ctx) {
    if (!ref.empty() && ref.front() == '=') {  // ${=NAME args}: a function
        const std::vector<std::string> w = words(std::string_view(ref).substr(1));
        if (w.empty()) return {};
        const Function* f = find_function(w[0]);
        if (!f) return {};
        const std::vector<std::string> args(w.begin() + 1, w.end());
        Call call{*this, args, ctx.body, ctx.response, ctx.caps};
        return (*f)(call);
    }
    if (ref == "key") return std::to_string(ctx.key);
    if (!ref.empty() && ref.front() == '.') {
        if (!ctx.item) return {};
        const auto it = ctx.item->find(ref.substr(1));
        return it == ctx.item->end() ? std::string{} : it->second;
    }
    if (ref == "clock") return utc("%Y/%m/%d,%H:%M:%S");
    if (ref == "nwtime") return utc("%y/%m/%d,%H:%M:%S");
    const size_t bracket = ref.find('[');
    const size_t dot = ref.find('.');
    if (bracket != std::string::npos) {  // STORE[KEY].FIELD
        const size_t close = ref.find(']', bracket);
        const auto st = stores_.find(ref.substr(0, bracket));
        if (close == std::string::npos || st == stores_.end()) return {};
        const auto key = number(std::string_view(ref).substr(bracket + 1, close - bracket - 1));
        if (!key) return {};
        const auto slot = st->second.slots.find(*key);
        if (slot == st->second.slots.end() || close + 1 >= ref.size() || ref[close + 1] != '.') return {};
        const auto f = slot->second.find(ref.substr(close + 2));
        return f == slot->second.end() ? std::string{} : f->second;
    }
    if (dot != std::string::npos) {  // STORE.keys, STORE.count, STORE.free
        const auto st = stores_.find(ref.substr(0, dot));
        if (st != stores_.end()) {
            const std::string what = ref.substr(dot + 1);
            const Store& s = st->second;
            if (what == "count") return std::to_string(s.slots.size());
            if (what == "size") return std::to_string(s.decl.last - s.decl.first + 1);
            if (what == "keys") {
                std::string keys;
                for (const auto& [k, rec] : s.slots) keys += (keys.empty() ? "" : ",") + std::to_string(k);
                return keys;
            }
            if (what == "free") {
                for (long k = s.decl.first; k <= s.decl.last; ++k)
                    if (!s.slots.count(k)) return std::to_string(k);
                return {};
            }
        }
    }
    return var(ref);
}

bool Engine::holds(const Guard& g, Context& ctx) {
    if (g.op == "has" || g.op == "!has") {
        const auto st = stores_.find(g.left);
        const auto key = number(expand(g.right, ctx));
        const bool has = st != stores_.end() && key && st->second.slots.count(*key) > 0;
        return (g.op == "has") == has;
    }
    if (g.op == "free" || g.op == "!free") {
        const auto st = stores_.find(g.left);
        const bool free = st != stores_.end() &&
                          static_cast<long>(st->second.slots.size()) < st->second.decl.last - st->second.decl.first + 1;
        return (g.op == "free") == free;
    }
    const std::string l = expand(g.left, ctx), r = expand(g.right, ctx);
    const auto ln = number(l), rn = number(r);
    if (ln && rn) {
        if (g.op == "==") return *ln == *rn;
        if (g.op == "!=") return *ln != *rn;
        if (g.op == "<") return *ln < *rn;
        if (g.op == ">") return *ln > *rn;
        if (g.op == "<=") return *ln <= *rn;
        return *ln >= *rn;
    }
    if (g.op == "==") return l == r;
    if (g.op == "!=") return l != r;
    return false;
}

void Engine::put_args(const std::string& store, const std::vector<std::string>& args, Context& ctx) {
    if (args.empty()) return;
    const std::string k = expand(args[0], ctx);
    long key = 0;
    if (k == "new") {
        key = -1;
    } else if (const auto n = number(k)) {
        key = *n;
    } else {
        return;
    }
    Record fields;
    for (size_t i = 1; i < args.size(); ++i) {
        const size_t eq = args[i].find('=');
        if (eq == std::string::npos) continue;
        fields[args[i].substr(0, eq)] = expand(std::string_view(args[i]).substr(eq + 1), ctx);
    }
    const std::optional<long> written = put(store, key, fields);
    if (written && k == "new") vars_["new"] = std::to_string(*written);
}

Response Engine::run(const Rule& r, Context& ctx) {
    Response resp;
    ctx.response = &resp;
    auto add_lines = [&](const std::string& text) {
        size_t start = 0;
        for (;;) {
            const size_t nl = text.find('\n', start);
            resp.lines.push_back(text.substr(start, nl - start));
            if (nl == std::string::npos) break;
            start = nl + 1;
        }
    };
    for (const Action& a : r.actions) {
        switch (a.kind) {
        case Action::Kind::set:
            vars_[expand(a.args[0], ctx)] = expand(a.args[1], ctx);
            break;
        case Action::Kind::add: {
            const std::string name = expand(a.args[0], ctx);
            const long cur = number(var(name)).value_or(0);
            vars_[name] = std::to_string(cur + number(expand(a.args[1], ctx)).value_or(0));
            break;
        }
        case Action::Kind::put:
            put_args(a.args[0], {a.args.begin() + 1, a.args.end()}, ctx);
            break;
        case Action::Kind::del: {
            Store& s = stores_[a.args[0]];
            const std::string k = expand(a.args[1], ctx);
            if (k == "all") s.slots.clear();
            else if (const auto n = number(k)) s.slots.erase(*n);
            break;
        }
        case Action::Kind::delif: {
            Store& s = stores_[a.args[0]];
            const std::string want = expand(a.args[2], ctx);
            std::erase_if(s.slots, [&](const auto& kv) {
                const auto f = kv.second.find(a.args[1]);
                return f != kv.second.end() && f->second == want;
            });
            break;
        }
        case Action::Kind::delay:
            resp.delay_ms += static_cast<int>(number(expand(a.args[0], ctx)).value_or(0));
            break;
        case Action::Kind::line:
            add_lines(expand(a.args[0], ctx));
            break;
        case Action::Kind::each: {
            const Store& s = stores_[a.args[0]];
            for (const auto& [k, rec] : s.slots) {
                Context item = ctx;
                item.item = &rec;
                item.key = k;
                add_lines(expand(a.args[1], item));
            }
            break;
        }
        case Action::Kind::after:
            resp.after.emplace_back(static_cast<int>(number(expand(a.args[0], ctx)).value_or(0)), expand(a.args[1], ctx));
            break;
        case Action::Kind::final:
            resp.final = expand(a.args[0], ctx);
            break;
        case Action::Kind::run:
            expand(a.args[0], ctx);
            break;
        case Action::Kind::hangup:
            resp.hangup_ms = static_cast<int>(std::max(0L, number(expand(a.args[0], ctx)).value_or(0)));
            break;
        }
    }
    ctx.response = nullptr;
    return resp;
}

std::optional<size_t> Engine::match(std::string_view line, Context& ctx) {
    const std::string text(line);
    for (size_t i = 0; i < sc_.rules.size(); ++i) {
        const Rule& r = sc_.rules[i];
        std::smatch m;
        if (!std::regex_match(text, m, r.re)) continue;
        ctx = Context{};
        for (size_t k = 0; k < m.size() && k < 10; ++k) ctx.caps.push_back(m[k].matched ? m[k].str() : std::string{});
        if (std::all_of(r.guards.begin(), r.guards.end(), [&](const Guard& g) { return holds(g, ctx); })) return i;
    }
    return std::nullopt;
}

Response Engine::command(std::string_view line) {
    waiting_body_.reset();
    const std::string cmd(trim(line));
    // Echo is the one setting every modem has; it is not left to the scenario.
    if (cmd.size() == 4 && (cmd[0] == 'A' || cmd[0] == 'a') && (cmd[1] == 'T' || cmd[1] == 't') &&
        (cmd[2] == 'E' || cmd[2] == 'e') && (cmd[3] == '0' || cmd[3] == '1')) {
        echo_ = cmd[3] == '1';
        return {};
    }
    if (!cmd.empty() && cmd.front() == '@') {  // events come from timers and the control input only
        Response none;
        none.final = sc_.fallback;
        return none;
    }
    Context ctx;
    const std::optional<size_t> i = match(cmd, ctx);
    if (!i) {
        Response none;
        none.final = sc_.fallback;
        return none;
    }
    const Rule& r = sc_.rules[*i];
    if (r.body) {
        waiting_body_.emplace(*i, std::move(ctx));
        Response p;
        p.prompt = true;
        p.body_bytes = r.body_bytes;
        return p;
    }
    return run(r, ctx);
}

Response Engine::body(std::string_view text, bool cancelled) {
    if (!waiting_body_) {
        Response none;
        none.final = "ERROR";
        return none;
    }
    auto [index, ctx] = std::move(*waiting_body_);
    waiting_body_.reset();
    if (cancelled) return {};  // ESC: nothing is sent or stored
    ctx.body = std::string(text);
    return run(sc_.rules[index], ctx);
}

Response Engine::event(std::string_view line) {
    Context ctx;
    const std::optional<size_t> i = match(trim(line), ctx);
    if (!i) return {};
    return run(sc_.rules[*i], ctx);
}

namespace {

std::map<std::string, Function>& functions() {
    static std::map<std::string, Function> table;
    return table;
}

}  // namespace

const Function* find_function(const std::string& name) {
    const auto it = functions().find(name);
    return it == functions().end() ? nullptr : &it->second;
}

bool register_function(const char* name, Function f) {
    functions()[name] = f;
    return true;
}

}  // namespace sim
