// test_atctl.h - running atctl as a child process, and a small strict JSON reader for its
// --json output, so that the tests look at values and not at spelling.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
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
};

// Whole lines of the output; one ending in '*' is the start of a line.
inline void expect_lines(const CliRun& r, const std::vector<std::string>& want) {
    const std::vector<std::string> got = r.lines();
    for (const std::string& w : want) {
        const bool found = std::any_of(got.begin(), got.end(), [&](const std::string& l) {
            return w.ends_with('*') ? l.starts_with(w.substr(0, w.size() - 1)) : l == w;
        });
        EXPECT_TRUE(found) << "missing \"" << w << "\" in\n" << r.out;
    }
}

inline std::string slurp(const std::string& path) {
    std::ifstream f(path);
    std::stringstream ss;
    ss << f.rdbuf();
    return ss.str();
}

// Runs atctl with `args` in the environment of the test (ATAPI_RUN_DIR included); output goes
// to files in `scratch`, so neither pipe can fill up and block the child; standard input is
// `input` (through a file in `scratch`). A hung atctl is left to the test's own time limit.
inline CliRun run_atctl(std::vector<std::string> args, const std::string& scratch, const std::string& input = {}) {
    const std::string out_path = scratch + "/atctl.out", err_path = scratch + "/atctl.err", in_path = scratch + "/atctl.in";
    std::ofstream(in_path, std::ios::binary | std::ios::trunc) << input;
    args.insert(args.begin(), ATCTL_BIN);
    std::vector<char*> argv;
    for (std::string& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t fa;
    posix_spawn_file_actions_init(&fa);
    posix_spawn_file_actions_addopen(&fa, 0, in_path.c_str(), O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&fa, 1, out_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_addopen(&fa, 2, err_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    pid_t pid = -1;
    int status = 0;
    const bool ran = posix_spawn(&pid, argv[0], &fa, nullptr, argv.data(), environ) == 0 && waitpid(pid, &status, 0) == pid;
    posix_spawn_file_actions_destroy(&fa);
    CliRun r;
    if (ran && WIFEXITED(status)) r.exit = WEXITSTATUS(status);
    r.out = slurp(out_path);
    r.err = slurp(err_path);
    return r;
}

struct Json {
    enum Kind { Missing, Null, Bool, Number, String, Object } kind = Missing;  // atctl prints no arrays
    bool boolean = false;
    double number = 0;
    std::string text;
    std::vector<std::pair<std::string, Json>> members;

    // The member `key`, or a Missing value.
    const Json& operator[](std::string_view key) const {
        static const Json missing;
        for (const auto& [k, v] : members)
            if (k == key) return v;
        return missing;
    }
    // As the tests spell values: 'text', -6.5, true, null, missing.
    std::string show() const {
        char b[32] = "";
        switch (kind) {
            case Missing: return "missing";
            case Null: return "null";
            case Bool: return boolean ? "true" : "false";
            case Number: return std::string(b, std::to_chars(b, b + sizeof b - 1, number).ptr);
            case String: return "'" + text + "'";
            default: return "(object)";
        }
    }
};

// One value the JSON report must hold: doc[section][name].show() == want.
struct Field {
    const char* section;
    const char* name;
    std::string want;
};
inline void expect_fields(const Json& doc, const std::vector<Field>& fields) {
    for (const Field& f : fields) EXPECT_EQ(doc[f.section][f.name].show(), f.want) << f.section << "." << f.name;
}

// Refuses what a lenient reader would let through: raw control characters, unknown escapes,
// lone surrogates, numbers outside the JSON grammar, a key twice, text after the value.
class JsonReader {
public:
    explicit JsonReader(std::string_view s) : s_(s) {}
    std::optional<Json> document() {
        Json v;
        if (!value(v, 0) || (blank(), i_ != s_.size())) return std::nullopt;
        return v;
    }

private:
    void blank() { while (i_ < s_.size() && std::string_view(" \n\r\t").find(s_[i_]) != std::string_view::npos) ++i_; }
    bool take(char c) { return blank(), i_ < s_.size() && s_[i_] == c ? (++i_, true) : false; }
    bool word(std::string_view w) { return s_.substr(i_, w.size()) == w ? (i_ += w.size(), true) : false; }

    bool value(Json& v, int depth) {
        if (depth > 32 || (blank(), i_ >= s_.size())) return false;
        if (take('{')) {
            v.kind = Json::Object;
            if (take('}')) return true;
            do {
                std::string key;
                Json member;
                if (!take('"') || !string(key) || !take(':') || !value(member, depth + 1)) return false;
                for (const auto& m : v.members)
                    if (m.first == key) return false;
                v.members.emplace_back(std::move(key), std::move(member));
            } while (take(','));
            return take('}');
        }
        if (take('"')) return v.kind = Json::String, string(v.text);
        if (word("null")) return v.kind = Json::Null, true;
        if (word("true")) return v.kind = Json::Bool, v.boolean = true, true;
        if (word("false")) return v.kind = Json::Bool, true;
        return number(v);
    }

    // -?(0|[1-9][0-9]*)(.[0-9]+)?([eE][+-]?[0-9]+)?
    bool number(Json& v) {
        const size_t start = i_;
        auto digits = [&] {
            const size_t from = i_;
            while (i_ < s_.size() && s_[i_] >= '0' && s_[i_] <= '9') ++i_;
            return i_ - from;
        };
        word("-");
        const size_t lead = i_, n = digits();
        if (n == 0 || (n > 1 && s_[lead] == '0') || (word(".") && digits() == 0)) return false;
        if (word("e") || word("E")) {
            if (!word("+")) word("-");
            if (digits() == 0) return false;
        }
        v.kind = Json::Number;
        const auto [p, ec] = std::from_chars(s_.data() + start, s_.data() + i_, v.number);
        return ec == std::errc() && p == s_.data() + i_;
    }

    bool hex4(unsigned& cp) {
        const auto [p, ec] = std::from_chars(s_.data() + i_, s_.data() + std::min(i_ + 4, s_.size()), cp, 16);
        return ec == std::errc() && p - s_.data() == static_cast<std::ptrdiff_t>(i_ + 4) ? (i_ += 4, true) : false;
    }

    // After the opening quote.
    bool string(std::string& out) {
        while (i_ < s_.size()) {
            const auto c = static_cast<unsigned char>(s_[i_++]);
            if (c == '"') return true;
            if (c < 0x20) return false;
            if (c != '\\') {
                out += static_cast<char>(c);
                continue;
            }
            if (i_ >= s_.size()) return false;
            const char e = s_[i_++];
            static constexpr std::string_view kFrom = "\"\\/bfnrt", kTo = "\"\\/\b\f\n\r\t";
            if (const size_t k = kFrom.find(e); k != std::string_view::npos) {
                out += kTo[k];
                continue;
            }
            unsigned cp = 0, lo = 0;
            if (e != 'u' || !hex4(cp) || (cp >= 0xDC00 && cp < 0xE000)) return false;
            if (cp >= 0xD800 && cp < 0xDC00) {
                if (!word("\\u") || !hex4(lo) || lo < 0xDC00 || lo > 0xDFFF) return false;
                cp = 0x10000 + ((cp - 0xD800) << 10) + (lo - 0xDC00);
            }
            // UTF-8: the lead byte carries as many high bits as the sequence has bytes.
            const int n = cp < 0x80 ? 1 : cp < 0x800 ? 2 : cp < 0x10000 ? 3 : 4;
            out += static_cast<char>(n == 1 ? cp : ((0xF00u >> n) & 0xFF) | (cp >> (6 * (n - 1))));
            for (int k = n - 2; k >= 0; --k) out += static_cast<char>(0x80 | ((cp >> (6 * k)) & 0x3F));
        }
        return false;
    }

    std::string_view s_;
    size_t i_ = 0;
};

inline std::optional<Json> parse_json(std::string_view text) { return JsonReader(text).document(); }

}  // namespace atctl_test
