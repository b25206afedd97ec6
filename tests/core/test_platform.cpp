// The bounds-checked string functions: never past destMax, cut to fit, NUL-terminated, -1 on a cut.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "atapi.h"
#include "atplatform.h"

namespace {

constexpr char kGuard = '\x5a';

// A destination with guard bytes behind it, to see any write past destMax.
struct Dest {
    char buf[32];
    explicit Dest() { std::memset(buf, kGuard, sizeof buf); }
    bool guard_intact(size_t from) const {
        for (size_t i = from; i < sizeof buf; ++i)
            if (buf[i] != kGuard) return false;
        return true;
    }
};

struct CopyCase {
    const char* name;
    int (*copy)(char*, size_t, const char*, size_t);
    size_t destMax;
    const char* src;
    size_t count;
    int rc;
    const char* out;  // null: nothing written
};

TEST(BoundedString, StrncpyS) {
    const CopyCase cases[] = {
        {"fits", strncpy_s, 8, "abc", 3, 0, "abc"},
        {"count shorter than source", strncpy_s, 8, "abcdef", 2, 0, "ab"},
        {"exactly fills", strncpy_s, 4, "abc", 3, 0, "abc"},
        {"cut to fit", strncpy_s, 4, "abcdef", 6, -1, "abc"},
        {"count beyond source", strncpy_s, 8, "ab", 100, 0, "ab"},
        {"one byte", strncpy_s, 1, "abc", 3, -1, ""},
        // The library's own copy reports a count below the source's length as a cut.
        {"library: fits", ATS_strncpy_s, 8, "+CFUN:", 6, 0, "+CFUN:"},
        {"library: cut to fit", ATS_strncpy_s, 4, "abcdef", 6, -1, "abc"},
        {"library: null source", ATS_strncpy_s, 8, nullptr, 1, -1, nullptr},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Dest d;
        EXPECT_EQ(c.copy(d.buf, c.destMax, c.src, c.count), c.rc);
        if (c.out) {
            EXPECT_STREQ(d.buf, c.out);
        }
        EXPECT_TRUE(d.guard_intact(c.out ? c.destMax : 0));
    }
    EXPECT_EQ(ATS_strncpy_s(nullptr, 8, "a", 1), -1);
    Dest d;  // a count below the source's length cuts the copy, which the formatter reports as -1
    EXPECT_EQ(ATS_strncpy_s(d.buf, 8, "abcdef", 2), -1);
    EXPECT_EQ(std::strncmp(d.buf, "ab", 2), 0);
    EXPECT_EQ(ATS_strlen_s(nullptr), 0u);
    EXPECT_EQ(ATS_strlen_s("abc"), 3u);
}

TEST(BoundedString, StrncatS) {
    const struct {
        const char* name;
        const char* start;
        size_t destMax;
        const char* src;
        size_t count;
        int rc;
        const char* out;
    } cases[] = {
        {"appends", "ab", 8, "cd", 2, 0, "abcd"},
        {"count limits", "ab", 8, "cdef", 1, 0, "abc"},
        {"cut to fit", "ab", 5, "cdef", 4, -1, "abcd"},
        {"full already", "abcd", 5, "x", 1, -1, "abcd"},
    };
    for (const auto& c : cases) {
        Dest d;
        std::memcpy(d.buf, c.start, std::strlen(c.start) + 1);
        EXPECT_EQ(strncat_s(d.buf, c.destMax, c.src, c.count), c.rc) << c.name;
        EXPECT_STREQ(d.buf, c.out) << c.name;
        EXPECT_TRUE(d.guard_intact(c.destMax)) << c.name;
    }
    Dest unterminated;  // no NUL within destMax: refused, emptied, nothing written past it
    EXPECT_EQ(strncat_s(unterminated.buf, 4, "x", 1), -1);
    EXPECT_EQ(unterminated.buf[0], '\0');
    EXPECT_TRUE(unterminated.guard_intact(4));
}

TEST(BoundedString, SnprintfS) {
    Dest d;
    EXPECT_EQ(new_snprintf_s("t", 1, d.buf, 16, 15, "AT+CFUN=%d", 1), 9);
    EXPECT_STREQ(d.buf, "AT+CFUN=1");
    Dest cut_by_count;
    EXPECT_EQ(new_snprintf_s("t", 1, cut_by_count.buf, 16, 4, "%s", "abcdef"), -1);
    EXPECT_STREQ(cut_by_count.buf, "abcd");
    Dest cut_by_dest;
    EXPECT_EQ(new_snprintf_s("t", 1, cut_by_dest.buf, 5, 100, "%s", "abcdef"), -1);
    EXPECT_STREQ(cut_by_dest.buf, "abcd");
    EXPECT_TRUE(cut_by_dest.guard_intact(5));
    EXPECT_EQ(new_snprintf_s("t", 1, nullptr, 5, 4, "x"), -1);
    EXPECT_EQ(new_snprintf_s("t", 1, d.buf, 0, 4, "x"), -1);
}

TEST(BoundedString, MemcpyAndMemset) {
    Dest d;
    EXPECT_EQ(memcpy_s(d.buf, 8, "0123456789", 4), 0);
    EXPECT_EQ(std::string(d.buf, 4), "0123");
    Dest over;
    EXPECT_EQ(memcpy_s(over.buf, 4, "0123456789", 10), -1);
    EXPECT_EQ(std::string(over.buf, 4), "0123");
    EXPECT_TRUE(over.guard_intact(4));
    EXPECT_EQ(memcpy_s(nullptr, 4, "x", 1), -1);

    Dest s;
    EXPECT_EQ(memset_s(s.buf, 6, 0, 10), -1);
    EXPECT_TRUE(s.guard_intact(6));
    EXPECT_EQ(s.buf[5], 0);
}

TEST(BoundedString, SscanfS) {
    int a = 0;
    unsigned short hu = 0;
    char word[8] = {};
    EXPECT_EQ(sscanf_s("12,abc", "%d,%s", &a, word, (unsigned)sizeof word), 2);
    EXPECT_EQ(a, 12);
    EXPECT_STREQ(word, "abc");
    EXPECT_EQ(sscanf_s("161", "%hu", &hu), 1);
    EXPECT_EQ(hu, 161);
    // A string longer than its buffer fails the conversion instead of overflowing it.
    char small[4] = {'x', 'x', 'x', 'x'};
    EXPECT_EQ(sscanf_s("abcdefgh", "%s", small, (unsigned)sizeof small), 0);
    EXPECT_EQ(small[0], '\0');
    char set[8] = {};
    EXPECT_EQ(sscanf_s("\"12:00\",x", "\"%[^\"]\"", set, (unsigned)sizeof set), 1);
    EXPECT_STREQ(set, "12:00");
    EXPECT_EQ(sscanf_s("", "%d", &a), -1);
    EXPECT_EQ(sscanf_s("x", "%d", &a), 0);
    EXPECT_EQ(sscanf_s(nullptr, "%d", &a), -1);
}

}  // namespace

// The platform's own trace (reached past the test program's capture): quiet unless ATAPI_TRACE
// selects the level, then one line on stderr with source, line, module and level.
#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

std::string platform_trace_output(const char* mask) {
    int out[2];
    if (pipe(out) != 0) return "pipe failed";
    pid_t child = fork();
    if (child == 0) {
        if (mask) setenv("ATAPI_TRACE", mask, 1);
        else unsetenv("ATAPI_TRACE");
        dup2(out[1], STDERR_FILENO);
        using Fn = void (*)(const char*, int, int, const char*, int, const char*, ...);
        auto real = reinterpret_cast<Fn>(dlsym(RTLD_NEXT, "QMX_TRACE_PrintInfo"));
        if (!real) _exit(3);
        real("src/at_lib", 42, 0, "atserver", ATP_TRACE_ERROR, "check_ats_id id = %d\n", -1);
        real("src/at_lib", 43, 0, "atserver", ATP_TRACE_INFO, "info %s\n", "line");
        _exit(0);
    }
    close(out[1]);
    std::string text;
    char buf[512];
    for (ssize_t n; (n = read(out[0], buf, sizeof buf)) > 0;) text.append(buf, static_cast<size_t>(n));
    close(out[0]);
    waitpid(child, nullptr, 0);
    return text;
}

TEST(PlatformTrace, QuietByDefaultAndSelectedByLevel) {
    EXPECT_EQ(platform_trace_output(nullptr), "");
    EXPECT_EQ(platform_trace_output("2"), "src/at_lib:42 [atserver] ERROR: check_ats_id id = -1\n");
    EXPECT_EQ(platform_trace_output("0xa"),
              "src/at_lib:42 [atserver] ERROR: check_ats_id id = -1\n"
              "src/at_lib:43 [atserver] INFO: info line\n");
}

}  // namespace
