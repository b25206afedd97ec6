// Bounds-checked string functions of the host platform library.
//
// One rule for all of them: never write at or past dest + destMax, cut what does not fit, keep
// strings NUL-terminated, and report any cut or invalid argument as -1.
#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string_view>

#include "atplatform.h"

namespace {

bool dest_ok(const void* dest, size_t destMax) {
    return dest != nullptr && destMax > 0 && destMax <= ATP_STRING_MAX_LEN;
}

size_t bounded_len(const char* s, size_t max) {
    const void* nul = std::memchr(s, '\0', max);
    return nul ? static_cast<size_t>(static_cast<const char*>(nul) - s) : max;
}

}  // namespace

extern "C" int memcpy_s(void* dest, size_t destMax, const void* src, size_t count) {
    if (!dest_ok(dest, destMax)) return -1;
    if (src == nullptr) {
        std::memset(dest, 0, destMax);
        return -1;
    }
    size_t n = count < destMax ? count : destMax;
    std::memmove(dest, src, n);
    return count > destMax ? -1 : 0;
}

extern "C" int memset_s(void* dest, size_t destMax, int c, size_t count) {
    if (!dest_ok(dest, destMax)) return -1;
    size_t n = count < destMax ? count : destMax;
#if defined(__GNUC__) || defined(__clang__)
    std::memset(dest, c, n);
    // The empty asm claims to read the memory behind dest, so a wipe of a record that held a
    // password just before it dies is not dropped as a dead store, and it still runs at memset's
    // speed (the records wiped are 1600 bytes, on every exchange).
    __asm__ __volatile__("" : : "r"(dest) : "memory");
#else
    volatile unsigned char* p = static_cast<volatile unsigned char*>(dest);
    for (size_t i = 0; i < n; ++i) p[i] = static_cast<unsigned char>(c);
#endif
    return count > destMax ? -1 : 0;
}

extern "C" int strncpy_s(char* strDest, size_t destMax, const char* strSrc, size_t count) {
    if (!dest_ok(strDest, destMax)) return -1;
    if (strSrc == nullptr) {
        strDest[0] = '\0';
        return -1;
    }
    size_t want = bounded_len(strSrc, count);
    size_t n = want < destMax ? want : destMax - 1;
    std::memmove(strDest, strSrc, n);
    strDest[n] = '\0';
    return n < want ? -1 : 0;
}

extern "C" int strncat_s(char* strDest, size_t destMax, const char* strSrc, size_t count) {
    if (!dest_ok(strDest, destMax)) return -1;
    size_t have = bounded_len(strDest, destMax);
    if (have == destMax || strSrc == nullptr) {
        strDest[have == destMax ? 0 : have] = '\0';
        return -1;
    }
    size_t want = bounded_len(strSrc, count);
    size_t room = destMax - 1 - have;
    size_t n = want < room ? want : room;
    std::memmove(strDest + have, strSrc, n);
    strDest[have + n] = '\0';
    return n < want ? -1 : 0;
}

extern "C" int new_snprintf_s(const char* source, int line, char* dest, size_t destMax, size_t count,
                              const char* format, ...) {
    if (!dest_ok(dest, destMax)) return -1;
    if (format == nullptr) {
        dest[0] = '\0';
        return -1;
    }
    size_t limit = count < destMax - 1 ? count : destMax - 1;
    va_list ap;
    va_start(ap, format);
    int full = std::vsnprintf(dest, limit + 1, format, ap);
    va_end(ap);
    if (full < 0) {
        dest[0] = '\0';
        return -1;
    }
    if (static_cast<size_t>(full) > limit) {
        QMX_TRACE_PrintInfo(source ? source : "?", line, 0, "platform", ATP_TRACE_WARNING,
                            "new_snprintf_s: output cut from %d to %zu characters\n", full, limit);
        return -1;
    }
    return full;
}

// sscanf_s runs each conversion of the format on its own through sscanf, so that the sized
// conversions (%s, %c, %[) can be bounded by the size argument the caller passes after the buffer.
extern "C" int sscanf_s(const char* buffer, const char* format, ...) {
    if (buffer == nullptr || format == nullptr) return -1;
    va_list ap;
    va_start(ap, format);
    const char* in = buffer;
    const char* f = format;
    int assigned = 0;
    bool any_conversion_tried = false;
    while (*f) {
        if (std::isspace(static_cast<unsigned char>(*f))) {
            while (std::isspace(static_cast<unsigned char>(*in))) ++in;
            ++f;
            continue;
        }
        if (*f != '%' || f[1] == '%') {
            if (*f == '%') ++f;  // "%%" matches one '%'
            if (*in != *f) break;
            ++in;
            ++f;
            continue;
        }
        // One directive: %[*][width][length]conv, with conv's [set] when it is '['.
        const char* start = f++;
        const bool suppress = *f == '*';
        if (suppress) ++f;
        const char* width_at = f;
        while (std::isdigit(static_cast<unsigned char>(*f))) ++f;
        const bool has_width = f > width_at;
        const size_t width_given = has_width ? std::strtoul(width_at, nullptr, 10) : 0;
        const char* length_at = f;
        while (*f && std::strchr("hljztL", *f)) ++f;
        const std::string_view length(length_at, static_cast<size_t>(f - length_at));
        const char conv = *f;
        if (conv == '\0') break;
        const char* conv_end = f + 1;
        if (conv == '[') {
            const char* e = f + 1;
            if (*e == '^') ++e;
            if (*e == ']') ++e;
            while (*e && *e != ']') ++e;
            if (*e != ']') break;
            conv_end = e + 1;
        }
        const std::string_view conversion(f, static_cast<size_t>(conv_end - f));  // "d", "s", "[^\"]"
        f = conv_end;
        if (conv == 'n') {
            if (!suppress) *va_arg(ap, int*) = static_cast<int>(in - buffer);
            continue;
        }
        if (*in == '\0') {
            if (!any_conversion_tried) assigned = -1;
            break;
        }
        any_conversion_tried = true;

        char fmt[96];
        int used = 0;
        if (suppress) {
            const int n = std::snprintf(fmt, sizeof fmt, "%.*s%%n", static_cast<int>(conv_end - start), start);
            if (n < 0 || static_cast<size_t>(n) >= sizeof fmt) break;
            std::sscanf(in, fmt, &used);
            if (used == 0) break;
            in += used;
            continue;
        }
        if (conv == 's' || conv == 'c' || conv == '[') {
            char* dst = va_arg(ap, char*);
            const unsigned size = va_arg(ap, unsigned);
            if (dst == nullptr || size == 0) break;
            // Without a width of its own the conversion may take `size` characters for %s/%[, one
            // more than fits with the NUL, so that an over-long field is seen and fails instead of
            // being cut silently; %c takes one.
            const size_t width = has_width ? width_given : (conv == 'c' ? 1 : size);
            std::unique_ptr<char[]> tmp(new char[width + 1]());
            const int n = std::snprintf(fmt, sizeof fmt, "%%%zu%.*s%%n", width, static_cast<int>(conversion.size()),
                                        conversion.data());
            if (n < 0 || static_cast<size_t>(n) >= sizeof fmt) break;
            if (std::sscanf(in, fmt, tmp.get(), &used) != 1) break;
            const size_t need = conv == 'c' ? width : std::strlen(tmp.get()) + 1;
            if (need > size) {
                dst[0] = '\0';
                break;
            }
            std::memcpy(dst, tmp.get(), need);
        } else {
            void* dst = va_arg(ap, void*);
            const int n = std::snprintf(fmt, sizeof fmt, "%%%.*s%.*s%%n",
                                        static_cast<int>(length_at - start - 1), start + 1,
                                        static_cast<int>(length.size() + conversion.size()), length.data());
            if (n < 0 || static_cast<size_t>(n) >= sizeof fmt) break;
            if (std::sscanf(in, fmt, dst, &used) != 1) break;
        }
        in += used;
        ++assigned;
    }
    va_end(ap);
    return assigned;
}
