// at_frame.cpp - the parts of the command frame that are not templates: the checks that keep a
// caller's text from breaking a command line, the common query, and many-line replies.
#include <cstdlib>
#include <cstring>

[[maybe_unused]] constexpr char kTraceSource[] = "src/at_frame";
#include "frame.h"

namespace atapi {
namespace {

bool control(unsigned char c) { return c < 0x20 || c == 0x7f; }

// Why a caller's text may not stand at this place of the line, or null when it may.
const char* unsafe(const char* text, bool quoted) {
    for (const char* p = text; *p; ++p) {
        const auto c = static_cast<unsigned char>(*p);
        if (control(c)) return "an argument holds a control character";
        if (quoted && c == '"') return "a quoted argument holds a double quote";
        if (!quoted && c == ';') return "an argument holds a command separator";
    }
    return nullptr;
}

// Walks the conversions of a printf format and checks each text argument at its place. A
// conversion after the format's first CR belongs to a message body when `body` is set and is the
// caller's own business.
const char* check_arguments(const char* fmt, std::span<const ArgText> args, bool body) {
    std::size_t k = 0;
    bool in_body = false;
    for (const char* p = fmt; *p; ++p) {
        if (*p == '\r' && body) in_body = true;
        if (*p != '%') continue;
        if (p[1] == '%') {
            ++p;
            continue;
        }
        const char* start = p++;
        while (*p && std::strchr("-+ #0", *p)) ++p;
        for (int part = 0; part < 2; ++part) {  // width, then precision
            if (part == 1) {
                if (*p != '.') break;
                ++p;
            }
            if (*p == '*') {
                ++k;  // a width or precision taken from the arguments
                ++p;
            }
            while (*p >= '0' && *p <= '9') ++p;
        }
        while (*p && std::strchr("hlLqjzt", *p)) ++p;
        if (*p == '\0') break;
        if (k >= args.size()) return "the format asks for more arguments than it was given";
        const ArgText& a = args[k++];
        if (*p != 's' || !a.is_text || a.text == nullptr || in_body) continue;
        const bool quoted = start > fmt && start[-1] == '"' && p[1] == '"';
        if (const char* why = unsafe(a.text, quoted)) return why;
    }
    return nullptr;
}

}  // namespace

std::size_t Request::cmd_length() const { return strnlen(req().at_cmd_str, AT_CMD_STR_LEN); }

bool Request::refuse(Site site, const char* why) {
    memset_s(req().at_cmd_str, AT_CMD_STR_LEN, 0, AT_CMD_STR_LEN);
    req().len = 0;
    // Never the arguments themselves: they may be a PIN or a password.
    QMX_TRACE_PrintInfo(site.source, site.line, 0, "atserver", ATS_TRACE_ERROR,
                        "command line refused, nothing sent: %s\n", why);
    return false;
}

bool Request::commit(Site site, const char* fmt, std::span<const ArgText> args, bool body, int formatted) {
    if (const char* why = check_arguments(fmt, args, body)) return refuse(site, why);
    const char* line = req().at_cmd_str;
    const std::size_t length = cmd_length();
    const char* cr = body ? static_cast<const char*>(std::memchr(line, '\r', length)) : nullptr;
    // A cut command is never sent; a cut message body is (the modem refuses the message).
    if (formatted < 0 && cr == nullptr) return refuse(site, "the command line does not fit");
    // A NUL put in by "%c" ends the text early: the line would go out cut where it stands.
    if (formatted > 0 && static_cast<std::size_t>(formatted) > length && cr == nullptr)
        return refuse(site, "the command line holds a control character");
    const std::size_t command = cr ? static_cast<std::size_t>(cr - line) : length;
    for (std::size_t i = 0; i < command; ++i)
        if (control(static_cast<unsigned char>(line[i]))) return refuse(site, "the command line holds a control character");
    return true;
}

bool Request::put_bytes(std::size_t offset, const void* bytes, std::size_t n) {
    if (offset > AT_CMD_STR_LEN || n > AT_CMD_STR_LEN - offset || (n > 0 && bytes == nullptr)) return false;
    if (n > 0) memcpy_s(req().at_cmd_str + offset, AT_CMD_STR_LEN - offset, bytes, n);
    return true;
}

int Request::query(Site site, const Query& q, std::initializer_list<Binding> fields) {
    auto trace = [&](const Trace& t) {
        if (t.text) QMX_TRACE_PrintInfo(site.source, site.line, 0, "atserver", t.level, "%s", t.text);
    };
    if (int rc = exchange()) {
        trace(q.exchange_failed);
        return rc;
    }
    if (!ok()) {
        trace(q.not_ok);
        switch (q.on_error) {
        case OnError::accept:
            return 0;
        case OnError::map:
            return q.result ? map_error(*q.result) : -1;
        case OnError::fail:
            break;
        }
        return -1;
    }
    if (q.result && q.result_before_parse) *q.result = AT_CMD_RES_SUCCESS;
    ParseTree tree = parse(q.name, q.table, q.op);
    if (!tree) {
        trace(q.parse_failed);
        return -1;
    }
    if (q.result) *q.result = AT_CMD_RES_SUCCESS;
    store_fields(tree.row(), std::span<const Binding>(fields.begin(), fields.size()));
    return 0;
}

void store_fields(const Row& row, std::span<const Binding> bindings) {
    for (Field f : row)
        for (const Binding& b : bindings)
            if (f.is(b.name)) {
                b.store(b.dst, b.size, f.value());
                break;
            }
}

void detail::store_text(void* dst, std::size_t size, const char* value) {
    if (value) ATS_strncpy_s(static_cast<char*>(dst), size, value, ATS_strlen_s(value));
}

Pieces::Pieces(char* text, const char* marker, int capacity)
    : items_(static_cast<std::size_t>(capacity > 0 ? capacity : 0), nullptr) {
    count_ = capacity > 0 ? capacity : 0;
    // The splitter reads the marker only.
    get_substring(text, items_.data(), &count_, const_cast<char*>(marker));
    if (capacity <= 0) count_ = 0;
}

void* alloc_zeroed(std::size_t n, std::size_t size) {
    if (n == 0 || size == 0 || n > AT_PARSE_MAX_ALLOC / size) return nullptr;
    void* p = qmx_malloc_internal(n * size, AT_PARSE_MAX_ALLOC, nullptr, nullptr, 0);
    if (p) std::memset(p, 0, n * size);
    return p;
}

}  // namespace atapi
