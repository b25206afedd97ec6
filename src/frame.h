// frame.h - what every command function shares: one request record, one exchange with the AT
// server, one parse tree, the mapping of error replies into a record's result field, and the
// common query shape.
//
// A command function reads as its algorithm. The common query is one call:
//
//     Request req{"AT+CGATT?", "+CGATT:"};
//     return AT_QUERY(req, {.name = "+CGATT", .table = AT_FUNCTION_NETWORK_CFG,
//                           .on_error = OnError::map, .result = &rec->AtExeResult},
//                     {num("state", rec->state)});
//
// and a function with particulars of its own walks the steps itself:
//
//     Request req;
//     if (!AT_FORMAT_CMD(req, 639, "AT+CPIN=\"%s\"", pin)) return -1;
//     if (int rc = req.exchange()) return rc;
//     if (!req.ok()) return req.map_error(rec->AtExeResult);
//     ParseTree tree = req.parse("+CPIN", AT_FUNCTION_PIN_CFG);
//     for (Field f : tree.row()) if (f.is("code")) copy_text(rec->Code, f.value());
//
// Command lines are formatted only through AT_FORMAT_CMD and its relatives, which refuse (and
// never send) a line that would not fit or a caller's text that would end the line or leave its
// quotes. The request record never outlives the call and is wiped on every way out, so no
// command text (a PIN, a password) or reply lingers on the caller's stack.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <span>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <sys/syscall.h>
#include <unistd.h>

#include "atapi/link.h"
#include "atapi/parse.h"
#include "atapi/result.h"
#include "trace.h"

namespace atapi {

inline constexpr int kDefaultTimeout = 30;  // seconds; the rule for commands
inline constexpr int kQuickTimeout = 5;     // seconds; status reads that answer at once

// Where a trace line comes from: the family's source name and the calling line.
struct Site {
    const char* source;
    int line;
};

// One field of a parsed row; empty when a lookup found nothing.
class Field {
public:
    Field() = default;
    explicit Field(const AtCmdParse* node) : node_(node) {}

    explicit operator bool() const { return node_ != nullptr; }
    bool is(const char* name) const { return node_ && safe_strcmp(node_->AtFieldName, name) == 0; }
    const char* name() const { return node_ ? node_->AtFieldName : nullptr; }
    char* value() const { return node_ ? node_->AtFieldValue : nullptr; }
    int number() const { return safe_atoi(value()); }
    const AtCmdParse* node() const { return node_; }

private:
    const AtCmdParse* node_ = nullptr;
};

// The fields of one row that the reply carries, first to last along `next`. A template name
// without a value in the reply (short reply, empty last value) is passed over, so the record
// field it would feed keeps the caller's contents.
class Row {
public:
    class iterator {
    public:
        explicit iterator(const AtCmdParse* n) : n_(carried(n)) {}
        Field operator*() const { return Field{n_}; }
        iterator& operator++() { n_ = carried(n_->next); return *this; }
        bool operator!=(const iterator& o) const { return n_ != o.n_; }

    private:
        static const AtCmdParse* carried(const AtCmdParse* n) {
            while (n && !n->AtFieldValue) n = n->next;
            return n;
        }
        const AtCmdParse* n_;
    };

    explicit Row(const AtCmdParse* head) : head_(head) {}
    iterator begin() const { return iterator{head_}; }
    iterator end() const { return iterator{nullptr}; }
    // The first field of the row with this name.
    Field find(const char* name) const {
        for (Field f : *this)
            if (f.is(name)) return f;
        return Field{};
    }
    const AtCmdParse* head() const { return head_; }

private:
    const AtCmdParse* head_;
};

// The rows of a tree, from row head to row head along `plist`.
class Rows {
public:
    class iterator {
    public:
        explicit iterator(const AtCmdParse* n) : n_(n) {}
        Row operator*() const { return Row{n_}; }
        iterator& operator++() { n_ = n_->plist; return *this; }
        bool operator!=(const iterator& o) const { return n_ != o.n_; }

    private:
        const AtCmdParse* n_;
    };

    explicit Rows(const AtCmdParse* head) : head_(head) {}
    iterator begin() const { return iterator{head_}; }
    iterator end() const { return iterator{nullptr}; }

private:
    const AtCmdParse* head_;
};

// Owns a parse tree and releases it with free_at_cmd. Empty when the reply did not parse.
class ParseTree {
public:
    ParseTree() = default;
    explicit ParseTree(AtCmdParse* head) : head_(head) {}
    ParseTree(ParseTree&& o) noexcept : head_(std::exchange(o.head_, nullptr)) {}
    ParseTree& operator=(ParseTree&& o) noexcept {
        if (this != &o) {
            free_at_cmd(head_);
            head_ = std::exchange(o.head_, nullptr);
        }
        return *this;
    }
    ParseTree(const ParseTree&) = delete;
    ParseTree& operator=(const ParseTree&) = delete;
    ~ParseTree() { free_at_cmd(head_); }

    explicit operator bool() const { return head_ != nullptr; }
    Row row() const { return Row{head_}; }  // the first row
    Rows rows() const { return Rows{head_}; }
    const AtCmdParse* head() const { return head_; }

private:
    AtCmdParse* head_ = nullptr;
};

// Parses a text other than a request's reply (one piece of a many-line reply, a report line).
// Empty on failure.
inline ParseTree parse_text(char* text, const char* name, at_function_type func,
                            at_operation_type op = AT_OPERATION_TYPE_READ) {
    AtCmdParse* head = nullptr;
    // The dispatcher only reads the name.
    if (at_cmd_parse(&head, const_cast<char*>(name), text, func, op) != 0) return ParseTree{};
    return ParseTree{head};
}

// ---- Field bindings ------------------------------------------------------------------------
//
// A binding names a field of the reply's template and the record member it goes into, with its
// conversion. Bindings are matched against the fields of the first row in reply order; a field
// the reply does not carry leaves its member as the caller had it.

struct Binding {
    const char* name;
    void (*store)(void* dst, std::size_t size, const char* value);
    void* dst;
    std::size_t size;
};

namespace detail {
template <typename T>
void store_integer(void* dst, std::size_t, const char* value) {
    if constexpr (std::is_enum_v<T>) {
        // Any number the modem sends, also none of the enum's names: the C caller's field holds it.
        static_assert(sizeof(T) == sizeof(int));
        const int v = safe_atoi(value);
        memcpy_s(dst, sizeof(T), &v, sizeof v);
    } else if constexpr (sizeof(T) > sizeof(int)) {
        *static_cast<T*>(dst) = static_cast<T>(safe_atol(value));
    } else {
        // Stored as it comes, wrapping into a narrow field.
        *static_cast<T*>(dst) = static_cast<T>(safe_atoi(value));
    }
}
template <typename T>
void store_hex(void* dst, std::size_t, const char* value) {
    *static_cast<T*>(dst) = static_cast<T>(hex_str_to_uinteger(value));
}
template <typename T>
void store_real(void* dst, std::size_t, const char* value) {
    *static_cast<T*>(dst) = static_cast<T>(value ? std::atof(value) : 0.0);
}
void store_text(void* dst, std::size_t size, const char* value);
}  // namespace detail

// A decimal number (safe_atoi; wider types safe_atol), or an enum stored as the number it is.
template <typename T>
    requires(std::is_integral_v<T> || std::is_enum_v<T>)
Binding num(const char* name, T& dst) {
    return {name, &detail::store_integer<T>, &dst, sizeof(T)};
}
// A hexadecimal number (hex_str_to_uinteger), narrowed to the member's width.
template <typename T>
    requires std::is_integral_v<T>
Binding hex(const char* name, T& dst) {
    return {name, &detail::store_hex<T>, &dst, sizeof(T)};
}
// A decimal fraction (atof).
template <typename T>
    requires std::is_floating_point_v<T>
Binding real(const char* name, T& dst) {
    return {name, &detail::store_real<T>, &dst, sizeof(T)};
}
// A text, cut to `bound` bytes with its NUL (the member's width unless a smaller bound is stated).
template <std::size_t N>
Binding text(const char* name, char (&dst)[N], std::size_t bound = N) {
    return {name, &detail::store_text, dst, bound < N ? bound : N};
}
template <std::size_t N>
Binding text(const char* name, unsigned char (&dst)[N], std::size_t bound = N) {
    return {name, &detail::store_text, dst, bound < N ? bound : N};
}

// Stores the bound fields of one row. Each field goes to the first binding of its name.
void store_fields(const Row& row, std::span<const Binding> bindings);

// ---- The common query ----------------------------------------------------------------------

// What a query does with a final result other than OK.
enum class OnError {
    fail,    // -1
    map,     // +CME ERROR / +CMS ERROR: the mapped code into the result field, 0; others -1
    accept,  // 0, record untouched
};

// A trace line a function writes on one of the query's ways out.
struct Trace {
    int level = 0;
    const char* text = nullptr;
};

struct Query {
    const char* name = nullptr;                  // handler row (the reply prefix without colon)
    at_function_type table = AT_FUNCTION_INITIATIVE_REPORT;
    at_operation_type op = AT_OPERATION_TYPE_READ;
    OnError on_error = OnError::fail;
    AT_AMSS_RES* result = nullptr;               // set to AT_CMD_RES_SUCCESS when the reply is OK
    bool result_before_parse = false;            // set even when the OK reply then does not parse
    Trace exchange_failed{};                     // the exchange itself failed
    Trace not_ok{};                              // a final result other than OK
    Trace parse_failed{};                        // an OK reply that did not parse
};

// ---- The request ---------------------------------------------------------------------------

// The argument checks of a formatted command line. Every "%s" whose text sits between double
// quotes in the format may hold no double quote; every other "%s" no ';' (which would chain a
// second command). No part of the command line may hold a control character, so a caller's text
// can neither end the line nor start a message body.
struct ArgText {
    bool is_text;
    const char* text;
};

// One request to the AT server and, after exchange(), its reply.
class Request {
public:
    // A command whose line is formatted afterwards with AT_FORMAT_CMD.
    explicit Request(int timeout_s = kDefaultTimeout) {
        memset_s(&msg_, sizeof msg_, 0, sizeof msg_);
        msg_.client_id = static_cast<int32_t>(syscall(SYS_gettid));
        msg_.req_type = AT_REQ;
        msg_.rsp_type = DIRECT_BACK;
        msg_.at_mutil = AT_RES_ONE;
        msg_.time_out = timeout_s;
    }
    // A fixed command line and the wanted reply prefix (null or "" for none).
    Request(const char* cmd, const char* match, int timeout_s = kDefaultTimeout) : Request(timeout_s) {
        if (cmd) ATS_strncpy_s(req().at_cmd_str, AT_CMD_STR_LEN, cmd, ATS_strlen_s(cmd));
        if (match) set_match(match);
    }
    ~Request() { memset_s(&msg_, sizeof msg_, 0, sizeof msg_); }
    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;

    // Header variants.
    Request& rep_type(at_report_type t) { msg_.rep_type = t; return *this; }
    // Ask for the AT server's stored last report of this kind instead of sending a command.
    Request& stored_report(at_report_type t) { msg_.req_type = GET_REPORT_REQ; msg_.rep_type = t; return *this; }
    Request& multi_line() { msg_.at_mutil = AT_RES_MUT; return *this; }
    Request& client_id(int32_t id) { msg_.client_id = id; return *this; }
    Request& set_match(const char* match) {
        ATS_strncpy_s(req().at_match_ok_str, AT_MATCH_STR_LEN, match, ATS_strlen_s(match));
        return *this;
    }
    // The request's length field: the bytes of the command field the AT server sends, NULs
    // included (for command texts that carry raw bytes).
    Request& set_len(int32_t len) { req().len = len; return *this; }

    // The 640-byte command field.
    char* cmd_field() { return req().at_cmd_str; }
    // Length of the command text up to its first NUL.
    std::size_t cmd_length() const;

    // Formats the command line (use AT_FORMAT_CMD, which passes the trace site and lets the
    // compiler check the format). False, with the field emptied and an error trace that never
    // shows the arguments, when the line does not fit in `count` characters or an argument
    // would break it.
    template <typename... A>
    [[nodiscard]] bool format_line(Site site, std::size_t count, const char* fmt, const A&... args) {
        const ArgText texts[] = {as_text(args)..., {false, nullptr}};
        return commit(site, fmt, std::span<const ArgText>(texts, sizeof...(A)), false,
                      new_snprintf_s(site.source, site.line, cmd_field(), AT_CMD_STR_LEN, count, fmt,
                                     plain(args)...));
    }
    // A command line followed by a CR and a message body (the SMS PDU forms): the arguments of
    // the command part are checked as above; the body is the caller's raw text and, when it does
    // not fit, is cut, as the modem then rejects the message itself.
    template <typename... A>
    [[nodiscard]] bool format_with_body(Site site, std::size_t count, const char* fmt, const A&... args) {
        const ArgText texts[] = {as_text(args)..., {false, nullptr}};
        return commit(site, fmt, std::span<const ArgText>(texts, sizeof...(A)), true,
                      new_snprintf_s(site.source, site.line, cmd_field(), AT_CMD_STR_LEN, count, fmt,
                                     plain(args)...));
    }
    // Appends a formatted piece to the command line, with the same checks as format_line.
    template <typename... A>
    [[nodiscard]] bool append_line(Site site, const char* fmt, const A&... args) {
        const std::size_t have = cmd_length();
        const ArgText texts[] = {as_text(args)..., {false, nullptr}};
        if (have >= AT_CMD_STR_LEN - 1) return refuse(site, "command line too long");
        const int n = new_snprintf_s(site.source, site.line, cmd_field() + have, AT_CMD_STR_LEN - have,
                                     AT_CMD_STR_LEN - 1 - have, fmt, plain(args)...);
        return commit(site, fmt, std::span<const ArgText>(texts, sizeof...(A)), false, n);
    }
    // Appends raw bytes (NULs included) at `offset` of the command field; false when they do not
    // fit. Used where a Part places a caller's raw text into the line by length.
    [[nodiscard]] bool put_bytes(std::size_t offset, const void* bytes, std::size_t n);

    // 0 when the reply that belongs to this request arrived; the exchange's code otherwise.
    int exchange() {
        int rc = GetDataFromAtServer(&msg_);
        // The server may fill the texts to their full width; readers need terminated texts.
        rsp().at_report_str[AT_REPORT_STR_LEN - 1] = '\0';
        rsp().at_match_str[AT_MATCH_STR_LEN - 1] = '\0';
        return rc;
    }

    int result() const { return msg_.snd_rcv_msg.rmsg.ret_val; }
    bool ok() const { return result() == AT_CMD_OK; }
    bool is_error_report() const { return result() == AT_CME_ERROR || result() == AT_CMS_ERROR; }
    char* report() { return rsp().at_report_str; }
    int32_t report_len() const { return msg_.snd_rcv_msg.rmsg.len; }

    // After a reply other than OK: a CME or CMS error is the command's outcome, stored in the
    // record's result field, and the call itself succeeded (0); anything else fails (-1).
    int map_error(AT_AMSS_RES& exe_result) {
        if (is_error_report()) {
            exe_result = Error_str_to_id(report());
            return 0;
        }
        return -1;
    }

    // Parses the reply text with the handler row `name` of the table `func`. Empty on failure.
    ParseTree parse(const char* name, at_function_type func, at_operation_type op = AT_OPERATION_TYPE_READ) {
        return parse_text(report(), name, func, op);
    }

    // The common shape: exchange, final result by the query's error policy, parse with the
    // handler row, result field set, bound fields stored. Use AT_QUERY for the trace site.
    int query(Site site, const Query& q, std::initializer_list<Binding> fields);

    const msg_q& msg() const { return msg_; }

private:
    req_msg& req() { return msg_.snd_rcv_msg.smsg; }
    const req_msg& req() const { return msg_.snd_rcv_msg.smsg; }
    rsp_msg& rsp() { return msg_.snd_rcv_msg.rmsg; }

    template <typename T>
    static ArgText as_text(const T& v) {
        if constexpr (std::is_convertible_v<const T&, const char*>) return {true, static_cast<const char*>(v)};
        else return {false, nullptr};
    }
    // A null text is formatted as an empty one.
    template <typename T>
    static auto plain(const T& v) {
        if constexpr (std::is_convertible_v<const T&, const char*>) {
            const char* s = v;
            return s ? s : "";
        } else {
            return v;
        }
    }
    bool commit(Site site, const char* fmt, std::span<const ArgText> args, bool body, int formatted);
    bool refuse(Site site, const char* why);

    msg_q msg_;
};

// ---- Dispatchers and many-line replies -----------------------------------------------------

// The read/set dispatcher of the split shape: AT_CHECK_VALUE runs `check`, AT_SET_VALUE runs
// `execute`; any other type returns `unknown` without an exchange. The result is -1 only when the
// half returned -1, so a half's other failure codes are folded into 0.
template <typename Check, typename Execute>
int dispatch(int cmd_type, Check check, Execute execute, int unknown = 0) {
    int rc;
    if (cmd_type == AT_CHECK_VALUE) rc = check();
    else if (cmd_type == AT_SET_VALUE) rc = execute();
    else return unknown;
    return rc == -1 ? -1 : 0;
}

// The pieces of a many-line reply, split at each occurrence of a marker (get_substring), and
// released on every way out.
class Pieces {
public:
    Pieces(char* text, const char* marker, int capacity);
    ~Pieces() { reslease_substring(items_.data(), count_); }
    Pieces(const Pieces&) = delete;
    Pieces& operator=(const Pieces&) = delete;

    int count() const { return count_; }
    char* operator[](int i) const { return items_[static_cast<std::size_t>(i)]; }
    char* const* begin() const { return items_.data(); }
    char* const* end() const { return items_.data() + count_; }

private:
    std::vector<char*> items_;
    int count_ = 0;
};

// `n` zero-filled records from the library's allocator, for lists the caller frees with free();
// null when `n` is not positive or the allocation fails.
void* alloc_zeroed(std::size_t n, std::size_t size);
template <typename T>
T* alloc_records(int n) {
    static_assert(std::is_trivially_copyable_v<T>);
    return n > 0 ? static_cast<T*>(alloc_zeroed(static_cast<std::size_t>(n), sizeof(T))) : nullptr;
}

// How parse_pieces ended.
enum class PiecesParsed { ok, no_memory, bad_piece };

// One record per piece of a many-line reply, each piece parsed alone with the handler row `name`
// of `table` so that a tree never holds more than one line; `store(record, row)` keeps what it
// needs of the piece. `list` receives the array (zero-filled, the caller's to free()), or null
// when it could not be allocated or a piece did not parse, in which case it is already freed.
template <typename T, typename Store>
PiecesParsed parse_pieces(const Pieces& pieces, const char* name, at_function_type table, T*& list, Store store) {
    list = alloc_records<T>(pieces.count());
    if (list == nullptr) return PiecesParsed::no_memory;
    for (int i = 0; i < pieces.count(); ++i) {
        ParseTree tree = parse_text(pieces[i], name, table);
        if (!tree) {
            std::free(list);
            list = nullptr;
            return PiecesParsed::bad_piece;
        }
        store(list[i], tree.row());
    }
    return PiecesParsed::ok;
}

// ---- Small helpers -------------------------------------------------------------------------

// The size of a character array; refuses a pointer at compile time.
template <typename T, std::size_t N>
constexpr std::size_t array_size(T (&)[N]) { return N; }

// A field value copied as text into a record's character array, cut to fit. A missing value
// leaves the array as it was.
template <std::size_t N>
inline void copy_text(char (&dst)[N], const char* value) {
    if (value) ATS_strncpy_s(dst, N, value, ATS_strlen_s(value));
}
template <std::size_t N>
inline void copy_text(unsigned char (&dst)[N], const char* value) {
    if (value) ATS_strncpy_s(reinterpret_cast<char*>(dst), N, value, ATS_strlen_s(value));
}

// A text field of a caller's record, read no further than its width: an unterminated field is
// taken whole and never read past.
template <std::size_t N>
inline std::string input_text(const char (&field)[N]) {
    return std::string(field, strnlen(field, N));
}

// True when each of a caller's fixed-size text fields ends within its width. Formatting one that
// does not would read past it into the fields that follow.
template <std::size_t... N>
inline bool terminated(const char (&... text)[N]) {
    return (... && (std::memchr(text, '\0', N) != nullptr));
}

// A command answered by its final result only: the exchange's code when it failed, -1 for a
// final result other than OK, else 0.
inline int result_only(Request& req) {
    if (int rc = req.exchange()) return rc;
    return req.ok() ? 0 : -1;
}

// A setting of a record that has a result field: OK stores AT_CMD_RES_SUCCESS; a +CME or +CMS
// error is the command's outcome, mapped into the field (0); anything else is -1.
inline int set_and_map(Request& req, AT_AMSS_RES& result) {
    if (int rc = req.exchange()) return rc;
    if (!req.ok()) return req.map_error(result);
    result = AT_CMD_RES_SUCCESS;
    return 0;
}

// A setting whose error reports fail like any other final result: OK stores AT_CMD_RES_SUCCESS
// (0); anything else is -1 and leaves the field alone.
inline int set_or_fail(Request& req, AT_AMSS_RES& result) {
    if (int rc = req.exchange()) return rc;
    if (!req.ok()) return -1;
    result = AT_CMD_RES_SUCCESS;
    return 0;
}

// Stores a number from the modem in an enum field as it is, also when it is none of the enum's
// names: the C caller's field holds any int, which a C++ cast to the enum would not allow.
template <typename E>
inline void store_enum(E& dst, int value) {
    static_assert(sizeof(E) == sizeof(int));
    memcpy_s(&dst, sizeof dst, &value, sizeof value);
}

// Never defined: lets the compiler check a format against its arguments without evaluating them.
int check_format(const char* fmt, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 1, 2)))
#endif
    ;

}  // namespace atapi

// Formats the command line of a Request: true when it is complete and safe to send; false (and
// nothing may be sent) otherwise. `count` is the most characters the line may have.
#define AT_FORMAT_CMD(req, count, fmt, ...)                                                          \
    ((void)sizeof(::atapi::check_format(fmt __VA_OPT__(, ) __VA_ARGS__)),                         \
     (req).format_line(::atapi::Site{kTraceSource, __LINE__}, (count), fmt __VA_OPT__(, ) __VA_ARGS__))

// The same for a command line followed by a CR and a message body.
#define AT_FORMAT_CMD_WITH_BODY(req, count, fmt, ...)                                                \
    ((void)sizeof(::atapi::check_format(fmt __VA_OPT__(, ) __VA_ARGS__)),                         \
     (req).format_with_body(::atapi::Site{kTraceSource, __LINE__}, (count), fmt __VA_OPT__(, ) __VA_ARGS__))

// Appends a formatted piece to the command line.
#define AT_APPEND_CMD(req, fmt, ...)                                                                 \
    ((void)sizeof(::atapi::check_format(fmt __VA_OPT__(, ) __VA_ARGS__)),                         \
     (req).append_line(::atapi::Site{kTraceSource, __LINE__}, fmt __VA_OPT__(, ) __VA_ARGS__))

// The common query (Request::query) with this file's trace name and line.
#define AT_QUERY(req, ...) (req).query(::atapi::Site{kTraceSource, __LINE__}, __VA_ARGS__)

// Formats a text with "%s" into a record's character array, never past its end.
#define AT_FORMAT_TEXT(dst, text) \
    ATS_SNPRINTF((dst), ::atapi::array_size(dst), ::atapi::array_size(dst) - 1, "%s", (text))
