// test_atctl.h - running atctl as a child process, and a small strict JSON reader for its
// --json output, so that the tests look at values and not at spelling.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <charconv>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace atctl_test {

struct CliRun {
    int exit = -1;  // exit status; -1 when it did not exit normally
    std::string out, err;
    std::vector<std::string> lines() const {
        std::vector<std::string> v;
        std::istringstream in(out);
        for (std::string l; std::getline(in, l);) v.push_back(l);
        return v;
    }
    bool has_line(std::string_view line) const {
        for (const std::string& l : lines())
            if (l == line) return true;
        return false;
    }
};

inline std::string slurp(const std::string& path) {
    std::ifstream f(path);
    std::stringstream ss;
    ss << f.rdbuf();
    return ss.str();
}

// Runs atctl with `args` in the environment of the test (ATAPI_RUN_DIR included); output goes
// to files in `scratch`, so neither pipe can fill up and block the child.
inline CliRun run_atctl(const std::vector<std::string>& args, const std::string& scratch,
                     std::chrono::seconds limit = std::chrono::seconds(60)) {
    const std::string out_path = scratch + "/atctl.out", err_path = scratch + "/atctl.err";
    std::vector<char*> argv;
    std::string bin = ATCTL_BIN;
    argv.push_back(bin.data());
    std::vector<std::string> copy = args;
    for (std::string& a : copy) argv.push_back(a.data());
    argv.push_back(nullptr);
    CliRun r;
    const pid_t pid = fork();
    if (pid < 0) return r;
    if (pid == 0) {
        const int out = open(out_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        const int err = open(err_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        if (out < 0 || err < 0) _exit(126);
        dup2(out, 1);
        dup2(err, 2);
        execv(argv[0], argv.data());
        _exit(127);
    }
    const auto end = std::chrono::steady_clock::now() + limit;
    int status = 0;
    while (waitpid(pid, &status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > end) {
            kill(pid, SIGKILL);
            waitpid(pid, &status, 0);
            r.err = "atctl killed after the time limit";
            return r;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    if (WIFEXITED(status)) r.exit = WEXITSTATUS(status);
    r.out = slurp(out_path);
    r.err += slurp(err_path);
    return r;
}

// ---- JSON -------------------------------------------------------------------------------------

struct Json {
    enum Kind { Missing, Null, Bool, Number, String, Array, Object } kind = Missing;
    bool boolean = false;
    double number = 0;
    std::string text;
    std::vector<Json> items;
    std::vector<std::pair<std::string, Json>> members;

    // The member `key`, or a Missing value.
    const Json& operator[](std::string_view key) const {
        static const Json missing;
        for (const auto& [k, v] : members)
            if (k == key) return v;
        return missing;
    }
    bool is_null() const { return kind == Null; }
};

class JsonReader {
public:
    explicit JsonReader(std::string_view s) : s_(s) {}

    // The one value of the document; nothing for malformed text or text after the value.
    std::optional<Json> document() {
        Json v;
        if (!value(v, 0)) return std::nullopt;
        blank();
        if (i_ != s_.size()) return std::nullopt;
        return v;
    }

private:
    void blank() {
        while (i_ < s_.size() && (s_[i_] == ' ' || s_[i_] == '\n' || s_[i_] == '\r' || s_[i_] == '\t')) ++i_;
    }
    bool take(char c) {
        blank();
        if (i_ < s_.size() && s_[i_] == c) {
            ++i_;
            return true;
        }
        return false;
    }
    bool word(std::string_view w) {
        if (s_.substr(i_, w.size()) != w) return false;
        i_ += w.size();
        return true;
    }

    bool value(Json& v, int depth) {
        if (depth > 32) return false;
        blank();
        if (i_ >= s_.size()) return false;
        const char c = s_[i_];
        if (c == '{') return object(v, depth);
        if (c == '[') return array(v, depth);
        if (c == '"') {
            v.kind = Json::String;
            return string(v.text);
        }
        if (word("null")) return v.kind = Json::Null, true;
        if (word("true")) return v.kind = Json::Bool, v.boolean = true, true;
        if (word("false")) return v.kind = Json::Bool, v.boolean = false, true;
        return number(v);
    }

    bool object(Json& v, int depth) {
        v.kind = Json::Object;
        ++i_;
        if (take('}')) return true;
        do {
            blank();
            std::string key;
            if (i_ >= s_.size() || s_[i_] != '"' || !string(key) || !take(':')) return false;
            for (const auto& m : v.members)
                if (m.first == key) return false;  // a key twice is no stable key
            Json member;
            if (!value(member, depth + 1)) return false;
            v.members.emplace_back(std::move(key), std::move(member));
        } while (take(','));
        return take('}');
    }

    bool array(Json& v, int depth) {
        v.kind = Json::Array;
        ++i_;
        if (take(']')) return true;
        do {
            Json item;
            if (!value(item, depth + 1)) return false;
            v.items.push_back(std::move(item));
        } while (take(','));
        return take(']');
    }

    static void utf8(std::string& out, unsigned cp) {
        if (cp < 0x80) {
            out += static_cast<char>(cp);
        } else if (cp < 0x800) {
            out += static_cast<char>(0xC0 | (cp >> 6));
            out += static_cast<char>(0x80 | (cp & 0x3F));
        } else if (cp < 0x10000) {
            out += static_cast<char>(0xE0 | (cp >> 12));
            out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (cp & 0x3F));
        } else {
            out += static_cast<char>(0xF0 | (cp >> 18));
            out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
            out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (cp & 0x3F));
        }
    }

    bool hex4(unsigned& cp) {
        if (i_ + 4 > s_.size()) return false;
        const auto [p, ec] = std::from_chars(s_.data() + i_, s_.data() + i_ + 4, cp, 16);
        if (ec != std::errc() || p != s_.data() + i_ + 4) return false;
        i_ += 4;
        return true;
    }

    bool string(std::string& out) {
        ++i_;  // the opening quote
        while (i_ < s_.size()) {
            const auto c = static_cast<unsigned char>(s_[i_++]);
            if (c == '"') return true;
            if (c < 0x20) return false;  // control characters must be escaped
            if (c != '\\') {
                out += static_cast<char>(c);
                continue;
            }
            if (i_ >= s_.size()) return false;
            const char e = s_[i_++];
            switch (e) {
                case '"': out += '"'; break;
                case '\\': out += '\\'; break;
                case '/': out += '/'; break;
                case 'b': out += '\b'; break;
                case 'f': out += '\f'; break;
                case 'n': out += '\n'; break;
                case 'r': out += '\r'; break;
                case 't': out += '\t'; break;
                case 'u': {
                    unsigned cp = 0;
                    if (!hex4(cp)) return false;
                    if (cp >= 0xD800 && cp < 0xDC00) {
                        unsigned lo = 0;
                        if (!word("\\u") || !hex4(lo) || lo < 0xDC00 || lo > 0xDFFF) return false;
                        cp = 0x10000 + ((cp - 0xD800) << 10) + (lo - 0xDC00);
                    } else if (cp >= 0xDC00 && cp < 0xE000) {
                        return false;
                    }
                    utf8(out, cp);
                    break;
                }
                default: return false;
            }
        }
        return false;
    }

    bool number(Json& v) {
        const size_t start = i_;
        if (i_ < s_.size() && s_[i_] == '-') ++i_;
        const size_t int_start = i_;
        while (i_ < s_.size() && s_[i_] >= '0' && s_[i_] <= '9') ++i_;
        if (i_ == int_start || (s_[int_start] == '0' && i_ - int_start > 1)) return false;
        if (i_ < s_.size() && s_[i_] == '.') {
            const size_t frac = ++i_;
            while (i_ < s_.size() && s_[i_] >= '0' && s_[i_] <= '9') ++i_;
            if (i_ == frac) return false;
        }
        if (i_ < s_.size() && (s_[i_] == 'e' || s_[i_] == 'E')) {
            ++i_;
            if (i_ < s_.size() && (s_[i_] == '+' || s_[i_] == '-')) ++i_;
            const size_t exp = i_;
            while (i_ < s_.size() && s_[i_] >= '0' && s_[i_] <= '9') ++i_;
            if (i_ == exp) return false;
        }
        v.kind = Json::Number;
        const auto [p, ec] = std::from_chars(s_.data() + start, s_.data() + i_, v.number);
        return ec == std::errc() && p == s_.data() + i_;
    }

    std::string_view s_;
    size_t i_ = 0;
};

inline std::optional<Json> parse_json(std::string_view text) { return JsonReader(text).document(); }

}  // namespace atctl_test
