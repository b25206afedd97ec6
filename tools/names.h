// names.h - the meanings of the coded texts a modem answers ("2" is "current"), for the
// subcommands whose records carry codes as texts.
#pragma once

#include <array>
#include <string>
#include <string_view>

namespace atctl {

struct Name {
    std::string_view code;
    std::string_view text;
};

template <size_t N>
std::string_view lookup(const std::array<Name, N>& table, std::string_view code) {
    for (const Name& n : table)
        if (n.code == code) return n.text;
    return {};
}

// "<meaning> (<code>)", the code alone when the table does not know it, or "none".
template <size_t N>
std::string named(const std::array<Name, N>& table, const std::string& code) {
    if (code.empty()) return "none";
    const std::string_view t = lookup(table, code);
    return t.empty() ? code : std::string(t) + " (" + code + ")";
}

}  // namespace atctl
