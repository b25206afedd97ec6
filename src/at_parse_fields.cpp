// at_parse_fields.cpp - the field-template parsers: a template's names mapped onto the
// comma-separated values of a reply, one row per reply line.
constexpr char kTraceSource[] = "src/at_parse";

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>

#include "at_parse_internal.h"
#include "trace.h"

extern "C" const char* const at_parse_final_result[AT_PARSE_FINAL_RESULT_ROWS] = {
    "+CME ERROR:err",
    "+CMS ERROR:err",
    "OK",
    "ERROR",
    "COMMAND NOT SUPPORT",
    "TOO MANY PARAMETERS",
    "CONNECT",
    "NO CARRIER",
    "NO DIALTONE",
    "BUSY",
    "NO ANSWER",
    nullptr,
};

namespace atparse {

char** new_pointer_array(size_t count) noexcept {
    const size_t bytes = count * sizeof(char*);
    auto** array =
        static_cast<char**>(qmx_malloc_internal(bytes, AT_PARSE_MAX_ALLOC, nullptr, nullptr, 0));
    if (array != nullptr) {
        for (size_t i = 0; i < count; ++i) array[i] = nullptr;
    }
    return array;
}

int split_fields(std::string_view text, std::span<char*> out, int* number) noexcept {
    *number = 0;
    FieldCursor fields(text);
    size_t stored = 0;
    std::string_view field;
    while (fields.next(&field)) {
        if (stored >= out.size()) return kNothing;
        char* copy = dup_text(field);
        if (copy == nullptr) {
            if (fields.done()) {
                ATS_TRACE(INFO, "[%s, %d] Malloc error: pid = %d\n", kTraceSource, __LINE__,
                          static_cast<int>(getpid()));
            }
            return kNoMemory;
        }
        out[stored++] = copy;
        *number = static_cast<int>(stored);
    }
    return kOk;
}

AtCmdParse* link_row(char** names, char** values, int count) noexcept {
    if (names == nullptr || values == nullptr) {
        ATS_TRACE(ERROR, "the mode_name or mode_value is NULL\n ");
        return nullptr;
    }
    AtCmdParse* head = nullptr;
    AtCmdParse** tail = &head;
    for (int i = 0; i < count; ++i) {
        AtCmdParse* node = new_node();
        if (node == nullptr) {
            free_at_cmd(head);
            ATS_TRACE(INFO, "[%s, %d] GreatLinkList_AT: malloc failed\n", kTraceSource, __LINE__);
            return nullptr;
        }
        node->AtFieldName = names[i];
        node->AtFieldValue = values[i];
        names[i] = nullptr;
        values[i] = nullptr;
        *tail = node;
        tail = &node->next;
    }
    return head;
}

int field_row(AtCmdParse** result, std::string_view names, std::string_view values) noexcept {
    FieldCursor name_fields(names);
    FieldCursor value_fields(values);
    AtCmdParse* head = nullptr;
    AtCmdParse** tail = &head;
    // As many fields as the longer of the two lists has places; the shorter leaves nulls.
    while (!name_fields.done() || !value_fields.done()) {
        std::string_view name, value;
        const bool has_name = name_fields.next(&name);
        const bool has_value = value_fields.next(&value);
        AtCmdParse* node = new_field(has_name ? &name : nullptr, has_value ? &value : nullptr);
        if (node == nullptr) {
            free_at_cmd(head);
            ATS_TRACE(INFO, "[%s, %d] GreatLinkList_AT: malloc failed\n", kTraceSource, __LINE__);
            ATS_TRACE(INFO, "AT_RETURN_MALLOC_ERR\n");
            return kNoMemory;
        }
        *tail = node;
        tail = &node->next;
    }
    *result = head;
    return kOk;
}

int final_result(AtCmdParse** result, std::string_view reply) noexcept {
    AtCmdParse* node = new_node();
    if (node == nullptr) return kNoMemory;
    // The table's first entry has no comma, so every call ends here. The matching below is what
    // a table with a named field would do, and stays ready for one.
    const std::string_view entry = at_parse_final_result[0];
    const int fields = count_outside_quotes(entry, ',') + 1;
    if (fields < 2) {
        free_node(node);
        return kNothing;
    }
    if (reply.find(':') != std::string_view::npos) {
        const int reply_fields = count_outside_quotes(reply, ',') + 1;
        const auto n = static_cast<size_t>(fields > reply_fields ? fields : reply_fields);
        char** entry_slots = new_pointer_array(n);
        char** reply_slots = entry_slots != nullptr ? new_pointer_array(n) : nullptr;
        int stored = 0;
        int rc = reply_slots != nullptr ? split_fields(entry, {entry_slots, n}, &stored) : kNoMemory;
        if (rc == kOk) rc = split_fields(reply, {reply_slots, n}, &stored);
        if (rc == kOk) {
            node->AtFieldName = entry_slots[1];
            node->AtFieldValue = reply_slots[1];
            entry_slots[1] = nullptr;
            reply_slots[1] = nullptr;
        }
        if (entry_slots != nullptr) release_strings({entry_slots, n});
        if (reply_slots != nullptr) release_strings({reply_slots, n});
        std::free(entry_slots);
        std::free(reply_slots);
        if (rc != kOk) {
            free_node(node);
            return rc;
        }
        *result = node;
        return kOk;
    }
    for (const char* const* text = at_parse_final_result; *text != nullptr; ++text) {
        if (reply != *text) continue;
        node->AtFieldName = dup_text(*text);
        node->AtFieldValue = dup_text(*text);
        if (node->AtFieldName == nullptr || node->AtFieldValue == nullptr) {
            free_node(node);
            return kNoMemory;
        }
        *result = node;
        return kOk;
    }
    free_node(node);
    return kUnknownResult;
}

int common_rows(AtCmdParse** result, std::string_view names, std::string_view reply,
                size_t values_start, std::string_view name) noexcept {
    AtCmdParse* head = nullptr;
    AtCmdParse* last_row = nullptr;
    size_t start = values_start;
    while (true) {
        // A row's values run up to the next occurrence of the name, so a line's CR LF stays at
        // the end of its last value.
        const size_t next = reply.find(name, start);
        const size_t end = next == std::string_view::npos ? reply.size() : next;
        AtCmdParse* row = nullptr;
        const int rc = field_row(&row, names, reply.substr(start, end - start));
        if (rc != kOk) {
            free_at_cmd(head);
            return rc;
        }
        if (last_row == nullptr) {
            head = row;
        } else {
            last_row->plist = row;
        }
        last_row = row;
        if (next == std::string_view::npos) break;
        const size_t colon = reply.find(':', next + name.size());
        if (colon == std::string_view::npos) break;
        start = colon + 1;
    }
    *result = head;
    return kOk;
}

}  // namespace atparse

using namespace atparse;

extern "C" int at_const_parse(char** at_para_value, const char* parse_str, char* parse_str_const,
                              int* number) {
    if (at_para_value == nullptr || parse_str == nullptr || parse_str_const == nullptr ||
        number == nullptr) {
        return kNothing;
    }
    // The caller sized the array from count_separator, which counts the same commas.
    const std::string_view text(parse_str);
    const auto capacity = static_cast<size_t>(count_outside_quotes(text, ',')) + 1;
    return split_fields(text, {at_para_value, capacity}, number);
}

extern "C" AtCmdParse* GreatLinkList_AT(char** mode_name, char** mode_value, int mode_number) {
    return link_row(mode_name, mode_value, mode_number);
}

extern "C" int parse_field(AtCmdParse** result, char* parse_contrast_str, char* at_value_str,
                           char* separator) {
    if (result == nullptr || parse_contrast_str == nullptr || at_value_str == nullptr ||
        separator == nullptr) {
        return kNothing;
    }
    return field_row(result, parse_contrast_str, at_value_str);
}

extern "C" int parse_many_field(AtCmdParse** result, char* parse_contrast_str, char* at_value_str,
                                char* separator) {
    if (parse_contrast_str == nullptr) return kNothing;
    if (at_value_str == nullptr || separator == nullptr) return kBadArgument;
    if (result == nullptr) {
        ATS_TRACE(ERROR, "THE result is NULL.\n");
        return kBadArgument;
    }
    return field_row(result, parse_contrast_str, at_value_str);
}

extern "C" int parse_final_result(AtCmdParse** result, char* at_value_str) {
    if (result == nullptr || at_value_str == nullptr) return kBadArgument;
    return final_result(result, at_value_str);
}

extern "C" int parse_common_at_str(AtCmdParse** result, const char* parse_contrast_str,
                                   char* at_value_str, char* at_name) {
    if (result == nullptr || at_value_str == nullptr) return kBadArgument;
    if (parse_contrast_str == nullptr) return parse_final_result(result, at_value_str);
    const std::string_view reply(at_value_str);
    const std::string_view templ(parse_contrast_str);
    const size_t reply_colon = reply.find(':');
    const size_t templ_colon = templ.find(':');
    if (reply_colon == std::string_view::npos || templ_colon == std::string_view::npos ||
        at_name == nullptr) {
        return kBadArgument;
    }
    const std::string_view names = templ.substr(templ_colon + 1);
    if (reply.find(at_name) == std::string_view::npos) {
        ATS_TRACE(INFO, " not find the at name pid = %d\n", static_cast<int>(getpid()));
        return parse_final_result(result, at_value_str);
    }
    // A reply shorter than the limit cannot hold that many separators; skip the count.
    if (reply.size() >= kMaxFields && count_outside_quotes(reply, ',') + 1 > kMaxFields) {
        // Too many values for one line's arrays: the rest of the reply becomes one row.
        ATS_TRACE(INFO, " enter parse_many_field pid = %d\n", static_cast<int>(getpid()));
        return field_row(result, names, reply.substr(reply_colon + 1));
    }
    return common_rows(result, names, reply, reply_colon + 1, at_name);
}

extern "C" int parse_soft_str(AtCmdParse** result, const char* parse_contrast_str,
                              char* at_value_str, char* at_name) {
    if (at_value_str == nullptr) return kBadArgument;
    if (result == nullptr) {
        ATS_TRACE(ERROR, "parse_soft_str:error,result is NULL \n");
        return kBadArgument;
    }
    if (parse_contrast_str == nullptr) return parse_final_result(result, at_value_str);
    const std::string_view reply(at_value_str);
    const std::string_view templ(parse_contrast_str);
    const size_t reply_dot = reply.find('.');
    const size_t templ_dot = templ.find('.');
    if (reply_dot == std::string_view::npos || templ_dot == std::string_view::npos) {
        return kBadArgument;
    }
    if (at_name == nullptr || reply.find(at_name) == std::string_view::npos) {
        return parse_final_result(result, at_value_str);
    }
    const std::string_view name = templ.substr(templ_dot + 1);
    const std::string_view value = reply.substr(reply_dot + 1);
    AtCmdParse* node = new_field(&name, &value);
    if (node == nullptr) return kNoMemory;
    *result = node;
    return kOk;
}

namespace atparse {
namespace {

// atoi's reading of a range end, kept within int so the expansion below cannot overflow.
long long range_end(std::string_view text) noexcept {
    text = trim(text, " ");
    std::array<char, 24> digits{};
    strncpy_s(digits.data(), digits.size(), text.data(), text.size() < 23 ? text.size() : 23);
    return safe_atoi(digits.data());
}

// Band and order ranges are short; a hostile one must not turn into millions of nodes.
constexpr long long kMaxRangeValues = 1024;

}  // namespace

int sequence_row(AtCmdParse** result, std::string_view text) noexcept {
    const size_t dash = text.find('-');
    if (dash == std::string_view::npos) return kBadArgument;
    const long long first = range_end(text.substr(0, dash));
    const long long last = range_end(text.substr(dash + 1));
    if (last - first >= kMaxRangeValues) return kBadArgument;

    AtCmdParse** tail = result;
    while (*tail != nullptr) tail = &(*tail)->next;
    for (long long value = first; value <= last; ++value) {
        // The value's 16 bytes live in the node's block.
        AtCmdParse* node = new_value_node(16);
        if (node == nullptr) {
            free_at_cmd(*result);
            *result = nullptr;
            return kBadArgument;
        }
        ATS_SNPRINTF(node->AtFieldValue, 16, 15, "%lld", value);
        *tail = node;
        tail = &node->next;
    }
    return kOk;
}

}  // namespace atparse

extern "C" int parse_sequence(AtCmdParse** result, char* parse_contrast_str, char* at_value_str) {
    if (result == nullptr || parse_contrast_str == nullptr || at_value_str == nullptr) {
        return kBadArgument;
    }
    return sequence_row(result, at_value_str);
}

extern "C" char* parse_find_final_str(char* src_str, char* separator) {
    if (src_str == nullptr || separator == nullptr || separator[0] == '\0') return nullptr;
    const size_t pos = std::string_view(src_str).rfind(separator);
    return pos == std::string_view::npos ? nullptr : src_str + pos;
}
