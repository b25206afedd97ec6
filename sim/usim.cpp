// usim.cpp - functions of the SIM's scenario rules: the contents of the elementary files that
// +CRSM reads, built from the scenario's variables in the SIM's own codings, and the answers of
// the card to a raw APDU.
#include <charconv>
#include <cstdio>
#include <string>
#include <vector>

#include "scenario.h"

namespace sim {
namespace {

std::string hex_bytes(const std::vector<unsigned char>& bytes) {
    std::string out;
    char buf[3];
    for (unsigned char b : bytes) {
        std::snprintf(buf, sizeof buf, "%02X", b);
        out += buf;
    }
    return out;
}

// The arguments from `first` on, joined by blanks again (a name the rule split into words).
std::string joined(const Call& c, size_t first) {
    std::string s;
    for (size_t i = first; i < c.args.size(); ++i) s += (i > first ? " " : "") + c.args[i];
    return s;
}

// Code points of a UTF-8 text (the basic plane; anything else as '?').
std::vector<unsigned> code_points(const std::string& s) {
    std::vector<unsigned> out;
    for (size_t i = 0; i < s.size();) {
        const auto b = static_cast<unsigned char>(s[i]);
        const size_t n = b < 0x80 ? 1 : (b >> 5) == 6 ? 2 : (b >> 4) == 14 ? 3 : 0;
        if (n == 0 || i + n > s.size()) {
            out.push_back('?');
            ++i;
            continue;
        }
        unsigned cp = n == 1 ? b : b & (n == 2 ? 0x1F : 0x0F);
        for (size_t k = 1; k < n; ++k) cp = cp << 6 | (static_cast<unsigned char>(s[i + k]) & 0x3F);
        out.push_back(cp);
        i += n;
    }
    return out;
}

// The GSM default alphabet's code of a character, for the letters, digits and the common signs
// that it shares with ASCII; others become '?'.
unsigned char gsm_code(unsigned cp) {
    if (cp == '@') return 0x00;
    if (cp == '$') return 0x02;
    if (cp == '_') return 0x11;
    if ((cp >= 'A' && cp <= 'Z') || (cp >= 'a' && cp <= 'z') || (cp >= '0' && cp <= '9')) return static_cast<unsigned char>(cp);
    if (cp >= 0x20 && cp <= 0x3F) return static_cast<unsigned char>(cp);
    return '?';
}

// Numbers in semi-octets, low digit first, padded with F.
std::vector<unsigned char> bcd(const std::string& digits) {
    std::vector<unsigned char> out;
    for (size_t i = 0; i < digits.size(); i += 2) {
        const unsigned lo = static_cast<unsigned>(digits[i] - '0') & 0x0F;
        const unsigned hi = i + 1 < digits.size() ? static_cast<unsigned>(digits[i + 1] - '0') & 0x0F : 0x0F;
        out.push_back(static_cast<unsigned char>(hi << 4 | lo));
    }
    return out;
}

// A count from a rule's argument; 0 for anything else than digits, at most `limit`.
size_t count_arg(const Call& c, size_t i, size_t limit) {
    size_t v = 0;
    if (i >= c.args.size()) return 0;
    const std::string& s = c.args[i];
    const auto [p, ec] = std::from_chars(s.data(), s.data() + s.size(), v);
    if (ec != std::errc() || p != s.data() + s.size()) return 0;
    return v < limit ? v : limit;
}

void pad(std::vector<unsigned char>& v, size_t size) {
    v.resize(size, 0xFF);
}

}  // namespace

// EF ICCID: the identifier's digits swapped in pairs (semi-octets). iccidfile DIGITS
SIM_FUNCTION(iccidfile) { return call.args.empty() ? std::string{} : hex_bytes(bcd(call.args[0])); }

// EF SPN: the display condition and 16 bytes of name, in the GSM default alphabet or in the
// UCS2 form 0x80, padded with FF. spnfile gsm|ucs2 DISPLAY NAME...
SIM_FUNCTION(spnfile) {
    if (call.args.size() < 2) return {};
    std::vector<unsigned char> file{static_cast<unsigned char>(count_arg(call, 1, 0xFF))};
    const std::vector<unsigned> name = code_points(joined(call, 2));
    if (call.args[0] == "ucs2") {
        file.push_back(0x80);
        for (size_t i = 0; i < name.size() && file.size() + 2 <= 17; ++i) {
            file.push_back(static_cast<unsigned char>(name[i] >> 8));
            file.push_back(static_cast<unsigned char>(name[i] & 0xFF));
        }
    } else {
        for (size_t i = 0; i < name.size() && file.size() < 17; ++i) file.push_back(gsm_code(name[i]));
    }
    pad(file, 17);
    return hex_bytes(file);
}

// EF ACL: one access point name as DNS labels under the tag DD. aclfile NAME
SIM_FUNCTION(aclfile) {
    std::vector<unsigned char> labels;
    const std::string name = call.args.empty() ? std::string{} : call.args[0];
    for (size_t start = 0; start <= name.size() && !name.empty();) {
        size_t dot = name.find('.', start);
        if (dot == std::string::npos) dot = name.size();
        labels.push_back(static_cast<unsigned char>(dot - start));
        labels.insert(labels.end(), name.begin() + static_cast<long>(start), name.begin() + static_cast<long>(dot));
        start = dot + 1;
    }
    std::vector<unsigned char> file{static_cast<unsigned char>(labels.empty() ? 0 : 1)};
    if (!labels.empty()) {
        file.push_back(0xDD);
        file.push_back(static_cast<unsigned char>(labels.size()));
        file.insert(file.end(), labels.begin(), labels.end());
    }
    return hex_bytes(file);
}

// A record of EF MSISDN: 14 bytes of name (GSM alphabet, padded FF), the number's length, its
// type (145 international when it starts with '+', else 129) and 10 bytes of BCD digits, then
// no capability and no extension. msisdnrec NUMBER NAME...
SIM_FUNCTION(msisdnrec) {
    if (call.args.empty()) return {};
    std::string number = call.args[0];
    const bool international = !number.empty() && number[0] == '+';
    if (international) number.erase(0, 1);
    std::vector<unsigned char> rec;
    for (unsigned cp : code_points(joined(call, 1)))
        if (rec.size() < 14) rec.push_back(gsm_code(cp));
    pad(rec, 14);
    std::vector<unsigned char> digits = bcd(number.substr(0, 20));
    rec.push_back(static_cast<unsigned char>(digits.size() + 1));
    rec.push_back(international ? 0x91 : 0x81);
    pad(digits, 10);
    rec.insert(rec.end(), digits.begin(), digits.end());
    rec.push_back(0xFF);
    rec.push_back(0xFF);
    return hex_bytes(rec);
}

// A file's bytes as a READ asks for them: cut or padded with FF to P3 bytes (0: the whole
// file). fit HEX P3
SIM_FUNCTION(fit) {
    if (call.args.empty()) return {};
    std::string hex = call.args[0];
    const size_t want = 2 * count_arg(call, 1, 256);
    if (want == 0) return hex;
    hex.resize(want, 'F');
    return hex;
}

// The card's status words to a raw APDU: SELECT and STATUS succeed, anything else is an
// instruction the card does not know. apdu HEX
SIM_FUNCTION(apdu) {
    const std::string& a = call.args.empty() ? std::string{} : call.args[0];
    if (a.size() < 8) return "6700";  // wrong length
    const std::string ins = a.substr(2, 2);
    if (ins == "A4" || ins == "a4" || ins == "F2" || ins == "f2") return "9000";
    return "6D00";
}

}  // namespace sim
