// Bounds-checked string functions of the host platform library.
//
// One rule for all of them: never write at or past dest + destMax, cut what does not fit, keep
// strings NUL-terminated, and report any cut or invalid argument as -1.
#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>

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
    // volatile so that wiping a record that held a password is not optimised away
    volatile unsigned char* p = static_cast<volatile unsigned char*>(dest);
    for (size_t i = 0; i < n; ++i) p[i] = static_cast<unsigned char>(c);
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
    bool failed = false;
    while (*f && !failed) {
        unsigned char fc = static_cast<unsigned char>(*f);
        if (std::isspace(fc)) {
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
        // One directive: %[*][width][length]conv
        const char* start = f++;
        bool suppress = false;
        if (*f == '*') {
            suppress = true;
            ++f;
        }
        while (std::isdigit(static_cast<unsigned char>(*f))) ++f;
        bool has_width = f > start + 1 + (suppress ? 1 : 0);
        while (*f && std::strchr("hljztL", *f)) ++f;
        char conv = *f;
        if (conv == '\0') break;
        std::string directive(start, static_cast<size_t>(f - start));
        std::string set;
        if (conv == '[') {
            const char* s = f + 1;
            if (*s == '^') ++s;
            if (*s == ']') ++s;
            while (*s && *s != ']') ++s;
            if (*s != ']') break;
            set.assign(f, static_cast<size_t>(s - f + 1));
            f = s + 1;
        } else {
            ++f;
        }
        if (*in == '\0' && conv != 'n') {
            if (!any_conversion_tried) assigned = -1;
            break;
        }
        any_conversion_tried = true;
        int used = 0;
        int got = 0;
        if (conv == 'n') {
            if (!suppress) *va_arg(ap, int*) = static_cast<int>(in - buffer);
            continue;
        }
        bool sized = conv == 's' || conv == 'c' || conv == '[';
        if (suppress) {
            std::string fmt = directive + (conv == '[' ? set : std::string(1, conv)) + "%n";
            got = std::sscanf(in, fmt.c_str(), &used);
            if (used == 0) failed = true;
            in += used;
            continue;
        }
        if (sized) {
            char* dst = va_arg(ap, char*);
            unsigned size = va_arg(ap, unsigned);
            if (dst == nullptr || size == 0) {
                failed = true;
                break;
            }
            // Without a width of its own the conversion may take size - 1 characters for %s/%[
            // (leaving room for the NUL) and 1 for %c. One more is allowed so that an over-long
            // field is seen as such and fails instead of being silently cut.
            size_t width = conv == 'c' ? 1 : size;
            if (has_width) width = std::strtoul(directive.c_str() + 1, nullptr, 10);
            std::string tmp(width + 1, '\0');
            std::string fmt = "%" + std::to_string(width) + (conv == '[' ? set : std::string(1, conv)) + "%n";
            got = std::sscanf(in, fmt.c_str(), tmp.data(), &used);
            if (got != 1) {
                failed = true;
                break;
            }
            size_t need = conv == 'c' ? width : std::strlen(tmp.c_str()) + 1;
            if (need > size) {
                dst[0] = '\0';
                failed = true;
                break;
            }
            std::memcpy(dst, tmp.data(), need);
            in += used;
            ++assigned;
            continue;
        }
        void* dst = va_arg(ap, void*);
        std::string fmt = directive + conv + "%n";
        got = std::sscanf(in, fmt.c_str(), dst, &used);
        if (got != 1) {
            failed = true;
            break;
        }
        in += used;
        ++assigned;
    }
    va_end(ap);
    return assigned;
}
