// at_utils.cpp - text and number helpers of the parsers and the command functions. None of them
// allocates.
[[maybe_unused]] constexpr char kTraceSource[] = "src/at_utils";

#include <cctype>
#include <cstdlib>
#include <cstring>

#include "at_parse_internal.h"
#include "trace.h"

// GSM 03.38 default alphabet as Unicode code points. 0x1B is the escape into the extension
// table and maps onto itself.
extern "C" const uint32_t arrayGSM_7DefaultTable[128] = {
    0x0040, 0x00A3, 0x0024, 0x00A5, 0x00E8, 0x00E9, 0x00F9, 0x00EC,  // 0x00
    0x00F2, 0x00C7, 0x000A, 0x00D8, 0x00F8, 0x000D, 0x00C5, 0x00E5,  // 0x08
    0x0394, 0x005F, 0x03A6, 0x0393, 0x039B, 0x03A9, 0x03A0, 0x03A8,  // 0x10
    0x03A3, 0x0398, 0x039E, 0x001B, 0x00C6, 0x00E6, 0x00DF, 0x00C9,  // 0x18
    0x0020, 0x0021, 0x0022, 0x0023, 0x00A4, 0x0025, 0x0026, 0x0027,  // 0x20
    0x0028, 0x0029, 0x002A, 0x002B, 0x002C, 0x002D, 0x002E, 0x002F,  // 0x28
    0x0030, 0x0031, 0x0032, 0x0033, 0x0034, 0x0035, 0x0036, 0x0037,  // 0x30
    0x0038, 0x0039, 0x003A, 0x003B, 0x003C, 0x003D, 0x003E, 0x003F,  // 0x38
    0x00A1, 0x0041, 0x0042, 0x0043, 0x0044, 0x0045, 0x0046, 0x0047,  // 0x40
    0x0048, 0x0049, 0x004A, 0x004B, 0x004C, 0x004D, 0x004E, 0x004F,  // 0x48
    0x0050, 0x0051, 0x0052, 0x0053, 0x0054, 0x0055, 0x0056, 0x0057,  // 0x50
    0x0058, 0x0059, 0x005A, 0x00C4, 0x00D6, 0x00D1, 0x00DC, 0x00A7,  // 0x58
    0x00BF, 0x0061, 0x0062, 0x0063, 0x0064, 0x0065, 0x0066, 0x0067,  // 0x60
    0x0068, 0x0069, 0x006A, 0x006B, 0x006C, 0x006D, 0x006E, 0x006F,  // 0x68
    0x0070, 0x0071, 0x0072, 0x0073, 0x0074, 0x0075, 0x0076, 0x0077,  // 0x70
    0x0078, 0x0079, 0x007A, 0x00E4, 0x00F6, 0x00F1, 0x00FC, 0x00E0,  // 0x78
};

namespace {

struct ExtMapping {
    unsigned char code;
    uint32_t value;
};

// The modem's extension mappings. 0x0A stays a line feed and 0x1B reads as a blank, where the
// standard has a form feed and a reserved code: SPN texts from the field were written that way.
constexpr ExtMapping kGsm7Ext[] = {
    {0x0A, 0x000A}, {0x14, 0x005E}, {0x1B, 0x0020}, {0x28, 0x007B},
    {0x29, 0x007D}, {0x2F, 0x005C}, {0x3C, 0x005B}, {0x3D, 0x007E},
    {0x3E, 0x005D}, {0x40, 0x007C}, {0x65, 0x20AC},
};

struct Gsm7ExtTable {
    uint32_t entries[128];
};

constexpr Gsm7ExtTable make_ext_table() {
    Gsm7ExtTable table{};
    for (uint32_t& entry : table.entries) entry = 0xFFFF;
    for (const ExtMapping& m : kGsm7Ext) table.entries[m.code] = m.value;
    return table;
}

constexpr Gsm7ExtTable kGsm7ExtTable = make_ext_table();

}  // namespace

extern "C" const uint32_t arrayGSM_7ExtTable[128] = {
#define E(i) kGsm7ExtTable.entries[i]
#define E8(i) E(i), E(i + 1), E(i + 2), E(i + 3), E(i + 4), E(i + 5), E(i + 6), E(i + 7)
    E8(0x00), E8(0x08), E8(0x10), E8(0x18), E8(0x20), E8(0x28), E8(0x30), E8(0x38),
    E8(0x40), E8(0x48), E8(0x50), E8(0x58), E8(0x60), E8(0x68), E8(0x70), E8(0x78),
#undef E8
#undef E
};

namespace atparse {

int count_outside_quotes(std::string_view text, char sep) noexcept {
    int count = 0;
    bool quoted = false;
    for (size_t i = 0; (i = find_sep_or_quote(text, i, sep)) < text.size(); ++i) {
        if (text[i] == '"') {
            quoted = !quoted;
        } else if (!quoted) {
            ++count;
        }
    }
    return count;
}

size_t find_outside_quotes(std::string_view text, char sep, size_t from) noexcept {
    if (sep == '"') return std::string_view::npos;
    bool quoted = false;
    for (size_t i = from; (i = find_sep_or_quote(text, i, sep)) < text.size(); ++i) {
        if (text[i] == '"') {
            quoted = !quoted;
        } else if (!quoted) {
            return i;
        }
    }
    return std::string_view::npos;
}

bool next_group(std::string_view text, size_t from, std::string_view* group, size_t* end) noexcept {
    const size_t open = text.find('(', from);
    if (open == std::string_view::npos) return false;
    const size_t close = text.find(')', open + 1);
    if (close == std::string_view::npos) return false;
    *group = text.substr(open + 1, close - open - 1);
    *end = close + 1;
    return true;
}

}  // namespace atparse

extern "C" int char_to_hex(char* ch) {
    if (ch == nullptr) return -1;
    if (*ch > 'a' - 1) *ch = static_cast<char>(*ch - 32);
    if (*ch >= '0' && *ch <= '9') return *ch - '0';
    return *ch - 'A' + 10;
}

extern "C" int get_hex_from_str(char* s) {
    if (s == nullptr) return -1;
    // Wraps rather than overflows on over-long input; callers pass a few digits.
    unsigned int value = 0;
    for (char* p = s; *p != '\0'; ++p) {
        const bool digit = *p >= '0' && *p <= '9';
        const bool upper = *p >= 'A' && *p <= 'Z';
        const bool lower = *p >= 'a' && *p <= 'z';
        if (!digit && !upper && !lower) return -1;
        value = value * 16u + static_cast<unsigned int>(char_to_hex(p));
    }
    return static_cast<int>(value);
}

extern "C" uint64_t hex_str_to_uinteger(const char* hex) {
    if (hex == nullptr) return 0;
    uint64_t value = 0;
    for (const char* p = hex; *p != '\0'; ++p) {
        unsigned digit = 0;
        if (*p >= '0' && *p <= '9') {
            digit = static_cast<unsigned>(*p - '0');
        } else if (*p >= 'a' && *p <= 'f') {
            digit = static_cast<unsigned>(*p - 'a' + 10);
        } else if (*p >= 'A' && *p <= 'F') {
            digit = static_cast<unsigned>(*p - 'A' + 10);
        } else {
            return 0;
        }
        value = value * 16u + digit;
    }
    return value;
}

extern "C" int decode_7bit(const unsigned char* puszSrc, unsigned char* puszDst, int iSrcLength) {
    if (puszSrc == nullptr || puszDst == nullptr || iSrcLength <= 0) return 0;
    int written = 0;
    unsigned int carry = 0;
    for (int i = 0; i < iSrcLength; ++i) {
        const int shift = i % 7;
        const unsigned int byte = puszSrc[i];
        puszDst[written++] = static_cast<unsigned char>(((byte << shift) & 0x7Fu) | carry);
        carry = byte >> (7 - shift);
        if (shift == 6) {
            // Seven bytes hold eight septets: the eighth is the whole left-over.
            puszDst[written++] = static_cast<unsigned char>(carry);
            carry = 0;
        }
    }
    puszDst[written] = 0;
    return written;
}

extern "C" void split_space(char* start, char key) {
    if (start == nullptr) return;
    const char keys[2] = {key, '\0'};
    const std::string_view text(start);
    const std::string_view kept = atparse::trim(text, std::string_view(keys, 1));
    const size_t offset = static_cast<size_t>(kept.data() - text.data());
    if (offset > 0 && !kept.empty()) memmove(start, kept.data(), kept.size());
    start[kept.size()] = '\0';
}

extern "C" int count_separator(const char* str, const char* sep) {
    if (str == nullptr || sep == nullptr || sep[0] == '\0' || sep[0] == '"') return 0;
    return atparse::count_outside_quotes(str, sep[0]);
}

extern "C" char* get_next_seperator(char* org_str, const char ch) {
    if (org_str == nullptr) return nullptr;
    const size_t pos = atparse::find_outside_quotes(org_str, ch);
    return pos == std::string_view::npos ? nullptr : org_str + pos;
}

extern "C" int test_str_num(const char* s) {
    if (s == nullptr) return -1;
    for (const char* p = s; *p != '\0'; ++p) {
        if (*p < '0' || *p > '9') return -1;
    }
    return 0;
}

extern "C" int safe_strcmp(const char* a, const char* b) {
    if (a == nullptr) return b == nullptr ? 0 : -1;
    if (b == nullptr) return 1;
    return std::strcmp(a, b);
}

// strtol, as atoi does, but with its result narrowed the well-defined way.
extern "C" int safe_atoi(const char* src) {
    return src == nullptr ? 0 : static_cast<int>(std::strtol(src, nullptr, 10));
}

extern "C" long safe_atol(const char* src) {
    return src == nullptr ? 0 : std::strtol(src, nullptr, 10);
}

extern "C" int At_strncasecmp(const char* s1, const char* s2, size_t n) {
    if (s1 == nullptr || s2 == nullptr) return 0;
    int c1 = 0;
    int c2 = 0;
    size_t i = 0;
    do {
        c1 = std::tolower(static_cast<unsigned char>(s1[i]));
        c2 = std::tolower(static_cast<unsigned char>(s2[i]));
        ++i;
    } while (c1 == c2 && c1 != 0 && i < n);
    return c1 - c2;
}
