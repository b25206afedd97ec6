// Text and number helpers: one table per helper, each row a case that has broken or could break.
#include <gtest/gtest.h>
#include <climits>

#include <map>
#include <string>
#include <vector>

#include "atapi.h"

namespace {

TEST(Utils, SplitSpace) {
    struct Case { const char* in; char key; const char* out; } cases[] = {
        {"  a b  ", ' ', "a b"}, {"\"\"", '"', ""}, {"   ", ' ', ""}, {"", ' ', ""},
        {"xax", 'x', "a"},       {"a", ' ', "a"},  {"\"a\"b\"", '"', "a\"b"},
    };
    for (const Case& c : cases) {
        std::string s = c.in;
        split_space(s.data(), c.key);
        EXPECT_STREQ(s.c_str(), c.out) << c.in;
    }
    split_space(nullptr, ' ');
}

TEST(Utils, SeparatorsOutsideQuotes) {
    struct Case {
        const char* text;
        const char* sep;
        int count;
        int next;  // position of get_next_seperator(text, sep[0]), -1 for null
    } cases[] = {
        {"a,\"b,c\",d", ",", 2, 1}, {"\"b,c\",d", ",", 1, 5},    {"(1,\"a)\"),(2)", ")", 2, 7},
        {"\"unclosed,", ",", 0, -1}, {"", ",", 0, -1},           {"a\"b", "\"", 0, -1},
    };
    for (const Case& c : cases) {
        std::string s = c.text;
        EXPECT_EQ(count_separator(s.data(), c.sep), c.count) << c.text;
        char* p = get_next_seperator(s.data(), c.sep[0]);
        EXPECT_EQ(p == nullptr ? -1 : static_cast<int>(p - s.data()), c.next) << c.text;
    }
    EXPECT_EQ(count_separator(nullptr, ","), 0);
    EXPECT_EQ(count_separator("a,b", nullptr), 0);
    EXPECT_EQ(get_next_seperator(nullptr, ','), nullptr);
}

TEST(Utils, ManyLineReplySplit) {
    const std::string long_tail = "^P:" + std::string(600, 't');
    struct Case {
        std::string text;
        int capacity;
        std::vector<std::string> pieces;
    } cases[] = {
        {"^P:1\r\n^P:2\r\n^P:3", 8, {"^P:1\r\n", "^P:2\r\n", "^P:3"}},
        {"head ^P:1", 8, {"head ", "^P:1"}},                 // text before the first marker
        {"^P:1^P:2^P:3", 2, {"^P:1", "^P:2"}},               // capacity reached
        {"", 4, {}},
        {"^P:1", 0, {}},
        {long_tail, 4, {long_tail.substr(0, 511)}},          // the last piece keeps 511 characters
        {"^P:" + std::string(600, 'm') + "^P:2", 4, {"^P:" + std::string(600, 'm'), "^P:2"}},
    };
    for (const Case& c : cases) {
        std::vector<char*> out(static_cast<size_t>(c.capacity) + 1, nullptr);
        int n = c.capacity;
        std::string text = c.text;
        get_substring(text.data(), out.data(), &n, const_cast<char*>("^P"));
        std::vector<std::string> got(out.begin(), out.begin() + n);
        EXPECT_EQ(got, c.pieces) << c.text.substr(0, 20);
        reslease_substring(out.data(), n);
    }
    int n = 3;
    get_substring(nullptr, nullptr, &n, const_cast<char*>("^P"));
    EXPECT_EQ(n, 3);
}

TEST(Utils, HexConversions) {
    struct Case {
        const char* text;
        int hex;        // get_hex_from_str
        uint64_t uhex;  // hex_str_to_uinteger
    } cases[] = {
        {"1G", 32, 0}, {"1-", -1, 0}, {"ff", 255, 255}, {"7FFFFFFFFFFFFFFF", -1, 0x7FFFFFFFFFFFFFFFull},
        {"0C1D2E3F", 0x0C1D2E3F, 0x0C1D2E3F}, {"", 0, 0},
    };
    for (const Case& c : cases) {
        std::string a = c.text, b = c.text;
        EXPECT_EQ(get_hex_from_str(a.data()), c.hex) << c.text;
        EXPECT_EQ(hex_str_to_uinteger(b.data()), c.uhex) << c.text;
    }
    EXPECT_EQ(get_hex_from_str(nullptr), -1);
    EXPECT_EQ(hex_str_to_uinteger(nullptr), 0u);
    // char_to_hex upper-cases the digit in place.
    const char* in = "09aFg";
    const char* after = "09AFG";
    const int value[] = {0, 9, 10, 15, 16};
    for (int i = 0; i < 5; ++i) {
        char ch = in[i];
        EXPECT_EQ(char_to_hex(&ch), value[i]) << in[i];
        EXPECT_EQ(ch, after[i]);
    }
    EXPECT_EQ(char_to_hex(nullptr), -1);
}

TEST(Utils, Decode7bit) {
    // "hellohel": eight septets in seven bytes; "hello": five septets in five.
    const unsigned char packed[] = {0xE8, 0x32, 0x9B, 0xFD, 0x46, 0x97, 0xD9};
    const unsigned char hello[] = {0xE8, 0x32, 0x9B, 0xFD, 0x06};
    unsigned char out[16] = {};
    EXPECT_EQ(decode_7bit(packed, out, 7), 8);
    EXPECT_STREQ(reinterpret_cast<char*>(out), "hellohel");
    EXPECT_EQ(decode_7bit(hello, out, 5), 5);
    EXPECT_STREQ(reinterpret_cast<char*>(out), "hello");
    EXPECT_EQ(decode_7bit(nullptr, out, 3), 0);
    EXPECT_EQ(decode_7bit(packed, nullptr, 3), 0);
    EXPECT_EQ(decode_7bit(packed, out, 0), 0);
    EXPECT_EQ(decode_7bit(packed, out, -4), 0);
}

TEST(Utils, NumbersAndComparisons) {
    for (const char* s : {"0123", ""}) EXPECT_EQ(test_str_num(s), 0) << s;
    for (const char* s : {"12a", " 1", static_cast<const char*>(nullptr)}) EXPECT_EQ(test_str_num(s), -1);
    EXPECT_EQ(safe_strcmp(nullptr, nullptr), 0);
    EXPECT_EQ(safe_strcmp(nullptr, ""), -1);
    EXPECT_EQ(safe_strcmp("", nullptr), 1);
    EXPECT_LT(safe_strcmp("a", "b"), 0);
    EXPECT_EQ(safe_atoi(nullptr), 0);
    EXPECT_EQ(safe_atoi(" -12x"), -12);
    EXPECT_EQ(safe_atoi("99\r\n"), 99);
    EXPECT_EQ(safe_atol(nullptr), 0);
    // The whole range of long: 8 bytes on x86_64, 4 on the router.
    EXPECT_EQ(safe_atol(std::to_string(LONG_MIN).c_str()), LONG_MIN);
    struct Case { const char* a; const char* b; size_t n; int sign; } cases[] = {
        {"ABC", "abd", 2, 0}, {"ABC", "abd", 3, -1}, {"abc", "ABC", 10, 0}, {"b", "a", 0, 1},
        {"ab", "ax", 0, 0},   {"", "a", 5, -1},      {nullptr, "x", 3, 0},  {"x", nullptr, 3, 0},
    };
    for (const Case& c : cases) {
        const int r = At_strncasecmp(c.a, c.b, c.n);
        EXPECT_EQ((r > 0) - (r < 0), c.sign) << (c.a ? c.a : "null") << " " << c.n;
    }
}

// The extension table is built from its few mapped codes; every other code must stay unmapped.
TEST(Utils, Gsm7ExtensionTable) {
    const std::map<int, uint32_t> mapped = {
        {0x0A, 0x000A}, {0x14, 0x005E}, {0x1B, 0x0020}, {0x28, 0x007B}, {0x29, 0x007D}, {0x2F, 0x005C},
        {0x3C, 0x005B}, {0x3D, 0x007E}, {0x3E, 0x005D}, {0x40, 0x007C}, {0x65, 0x20AC},
    };
    for (int code = 0; code < 128; ++code) {
        const auto it = mapped.find(code);
        EXPECT_EQ(arrayGSM_7ExtTable[code], it == mapped.end() ? 0xFFFFu : it->second) << code;
    }
    EXPECT_EQ(arrayGSM_7DefaultTable[0x1B], 0x001Bu);  // the escape maps onto itself
}

}  // namespace
