// frame.h - what every command function shares: one request record, one exchange with the AT
// server, one parse tree, and the mapping of error replies into a record's result field.
//
// A command function reads as its algorithm:
//
//     Request req{"AT+CSQ", "+CSQ", 5};
//     if (int rc = req.exchange()) return rc;
//     if (!req.ok()) return -1;
//     ParseTree tree = req.parse("+CSQ", AT_FUNCTION_NETWORK_CFG);
//     if (!tree) return -1;
//     for (Field f : tree.row()) if (f.is("rssi")) out->rssi = f.number();
//
// The request record never outlives the call and is wiped on every way out, so no command text
// or reply lingers on the caller's stack.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>

#include <sys/syscall.h>
#include <unistd.h>

#include "atapi/link.h"
#include "atapi/parse.h"
#include "atapi/result.h"
#include "trace.h"

namespace atapi {

inline constexpr int kDefaultTimeout = 30;  // seconds; the rule for commands
inline constexpr int kQuickTimeout = 5;     // seconds; status reads that answer at once

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
        if (match) ATS_strncpy_s(req().at_match_ok_str, AT_MATCH_STR_LEN, match, ATS_strlen_s(match));
    }
    ~Request() { memset_s(&msg_, sizeof msg_, 0, sizeof msg_); }
    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;

    // Header variants.
    Request& rep_type(at_report_type t) { msg_.rep_type = t; return *this; }
    // Ask for the AT server's stored last report of this kind instead of sending a command.
    Request& stored_report(at_report_type t) { msg_.req_type = GET_REPORT_REQ; msg_.rep_type = t; return *this; }
    Request& multi_line() { msg_.at_mutil = AT_RES_MUT; return *this; }

    // The 640-byte command field, for AT_FORMAT_CMD.
    char* cmd_field() { return req().at_cmd_str; }

    // 0 when the reply that belongs to this request arrived; the exchange's code otherwise.
    int exchange() {
        int rc = GetDataFromAtServer(&msg_);
        // The server may fill the report to its full width; the parsers need a terminated text.
        rsp().at_report_str[AT_REPORT_STR_LEN - 1] = '\0';
        return rc;
    }

    int result() const { return msg_.snd_rcv_msg.rmsg.ret_val; }
    bool ok() const { return result() == AT_CMD_OK; }
    char* report() { return rsp().at_report_str; }

    // After a reply other than OK: a CME or CMS error is the command's outcome, stored in the
    // record's result field, and the call itself succeeded (0); anything else fails (-1).
    int map_error(AT_AMSS_RES& exe_result) {
        if (result() == AT_CME_ERROR || result() == AT_CMS_ERROR) {
            exe_result = Error_str_to_id(report());
            return 0;
        }
        return -1;
    }

    // Parses the reply text with the handler row `name` of the table `func`. Empty on failure.
    ParseTree parse(const char* name, at_function_type func, at_operation_type op = AT_OPERATION_TYPE_READ) {
        AtCmdParse* head = nullptr;
        // The dispatcher only reads the name.
        if (at_cmd_parse(&head, const_cast<char*>(name), report(), func, op) != 0) return ParseTree{};
        return ParseTree{head};
    }

    const msg_q& msg() const { return msg_; }

private:
    req_msg& req() { return msg_.snd_rcv_msg.smsg; }
    rsp_msg& rsp() { return msg_.snd_rcv_msg.rmsg; }

    msg_q msg_;
};

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

// Stores a number from the modem in an enum field as it is, also when it is none of the enum's
// names: the C caller's field holds any int, which a C++ cast to the enum would not allow.
template <typename E>
inline void store_enum(E& dst, int value) {
    static_assert(sizeof(E) == sizeof(int));
    memcpy_s(&dst, sizeof dst, &value, sizeof value);
}

}  // namespace atapi

// Formats the command line of a Request with this file's trace name and line.
#define AT_FORMAT_CMD(req, count, ...) ATS_SNPRINTF((req).cmd_field(), AT_CMD_STR_LEN, (count), __VA_ARGS__)

// Formats a text with "%s" into a record's character array, never past its end.
#define AT_FORMAT_TEXT(dst, text) \
    ATS_SNPRINTF((dst), ::atapi::array_size(dst), ::atapi::array_size(dst) - 1, "%s", (text))
