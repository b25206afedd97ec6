// at_parse_internal.h - building blocks shared by the reply parsers.
//
// The parsers read the reply through string_views and never depend on temporary terminators,
// so a hostile reply cannot make them walk past its end. A node the parsers build carries its
// name and value in its own block, right after the node, so a field costs one allocation and
// one free; free_node tells those strings from separate ones (GreatLinkList_AT's, a caller's) by
// whether they lie inside the node's block. Every block comes from qmx_malloc_internal, so one
// fault-injection hook there reaches every failure path of the parser.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>

#include "atapi/parse.h"

namespace atparse {

// Limit of the fixed name and value arrays of one row; longer rows go to heap arrays.
inline constexpr int kMaxFields = 128;

inline constexpr int kOk = 0;
inline constexpr int kNothing = -1;
inline constexpr int kBadArgument = -2;
inline constexpr int kBadOperation = -3;
inline constexpr int kUnknownResult = -4;
inline constexpr int kNoMemory = -5;

inline std::string_view view(const char* s) noexcept {
    return s != nullptr ? std::string_view(s) : std::string_view();
}

// Drops every leading and trailing character that is in `chars`. The sets are two to five
// characters long: a plain scan beats the library's search.
inline std::string_view trim(std::string_view text, std::string_view chars) noexcept {
    auto in_set = [chars](char c) {
        for (char k : chars) {
            if (k == c) return true;
        }
        return false;
    };
    size_t first = 0;
    size_t last = text.size();
    while (first < last && in_set(text[first])) ++first;
    while (last > first && in_set(text[last - 1])) --last;
    return text.substr(first, last - first);
}
// Position of the first `sep` or double quote at or after `from`, or the text's size. Replies are
// scanned for these two bytes more than for anything else, so eight bytes are tested at a time.
inline size_t find_sep_or_quote(std::string_view text, size_t from, char sep) noexcept {
    const char* const base = text.data();
    const size_t size = text.size();
    size_t i = from;
    if constexpr (std::endian::native == std::endian::little) {
        constexpr uint64_t kOnes = 0x0101010101010101ULL;
        constexpr uint64_t kHighs = 0x8080808080808080ULL;
        const uint64_t seps = kOnes * static_cast<unsigned char>(sep);
        const uint64_t quotes = kOnes * static_cast<unsigned char>('"');
        for (; i + 8 <= size; i += 8) {
            uint64_t word;
            std::memcpy(&word, base + i, sizeof word);
            const uint64_t s = word ^ seps;
            const uint64_t q = word ^ quotes;
            // A zero byte of s or q is a hit; the lowest one is found exactly.
            const uint64_t hits = ((s - kOnes) & ~s & kHighs) | ((q - kOnes) & ~q & kHighs);
            if (hits != 0) return i + static_cast<size_t>(std::countr_zero(hits) >> 3);
        }
    }
    while (i < size && base[i] != sep && base[i] != '"') ++i;
    return i;
}

// Occurrences of `sep` outside double quotes (a double quote toggles the quoted state).
int count_outside_quotes(std::string_view text, char sep) noexcept;
// Position of the first `sep` outside double quotes, or npos.
size_t find_outside_quotes(std::string_view text, char sep, size_t from = 0) noexcept;
// Text between the first '(' at or after `from` and the next ')'; `end` receives the position
// after the ')'. False when either bracket is missing.
bool next_group(std::string_view text, size_t from, std::string_view* group, size_t* end) noexcept;

// Heap array of `count` null pointers, or null.
char** new_pointer_array(size_t count) noexcept;
// A zeroed node, or null.
AtCmdParse* new_node() noexcept;
// A node holding copies of `name` and `value` in its own block; a null pointer leaves that
// field null. Null when the allocation failed.
AtCmdParse* new_field(const std::string_view* name, const std::string_view* value) noexcept;
// A node whose value is a zeroed buffer of `value_size` bytes in its own block, or null.
AtCmdParse* new_value_node(size_t value_size) noexcept;
// A heap copy of `text` with its terminator, or null.
char* dup_text(std::string_view text) noexcept;
// A node labelled with a copy of `label` (null label: no name), or null.
AtCmdParse* new_group(const char* label) noexcept;
// Frees every non-null string of the array and nulls the slots.
void release_strings(std::span<char*> strings) noexcept;
// Frees a plist chain of rows (free_at_cmd) and nulls the slot.
void release(AtCmdParse** tree) noexcept;
// Appends `row` to the plist chain that starts at *head.
void append_row(AtCmdParse** head, AtCmdParse* row) noexcept;

// Splits `text` at commas outside quotes into `out`, each field trimmed of blanks and then of
// double quotes; an empty last field is not stored. *number receives the fields stored. 0, or
// -5 when an allocation failed (the stored fields stay in `out`), or -1 when `out` is too small.
int split_fields(std::string_view text, std::span<char*> out, int* number) noexcept;
// The row builder behind GreatLinkList_AT. Slots whose strings moved into nodes are nulled, so
// the caller frees exactly what is left in the arrays whatever the outcome.
AtCmdParse* link_row(char** names, char** values, int count) noexcept;
// One row of named values: parse_field without the 128-field limit. Names and values are walked
// together, once, and each field becomes one node.
int field_row(AtCmdParse** result, std::string_view names, std::string_view values) noexcept;

// The fields of a names or values text, one at a time: commas outside double quotes separate
// them (a double quote toggles the quoted state for the rest of the text). A field between two
// commas is there even when empty; the last one only when its text is not empty. Each field is
// trimmed of blanks and then of double quotes.
class FieldCursor {
public:
    explicit FieldCursor(std::string_view text) noexcept : text_(text) {}
    bool done() const noexcept { return done_; }
    // The next field; false when this position has none (past the end, or an empty last field).
    bool next(std::string_view* field) noexcept {
        if (done_) return false;
        const size_t size = text_.size();
        size_t i = pos_;
        while ((i = find_sep_or_quote(text_, i, ',')) < size) {
            if (text_[i] == '"') {
                quoted_ = !quoted_;
            } else if (!quoted_) {
                break;
            }
            ++i;
        }
        const size_t start = pos_;
        if (i == size) {
            done_ = true;
            if (start >= size) return false;
        } else {
            pos_ = i + 1;
        }
        *field = trim(trim(text_.substr(start, i - start), " "), "\"");
        return true;
    }

private:
    std::string_view text_;
    size_t pos_ = 0;
    bool quoted_ = false;
    bool done_ = false;
};
// Appends the unnamed values of the range "a-b" to the next chain at *result. On failure the
// whole chain is released and *result nulled.
int sequence_row(AtCmdParse** result, std::string_view text) noexcept;
// The final-result fall-back.
int final_result(AtCmdParse** result, std::string_view reply) noexcept;
// parse_common_at_str from `values`, the text after the name's colon, to the end of the reply.
int common_rows(AtCmdParse** result, std::string_view names, std::string_view reply,
                size_t values_start, std::string_view name) noexcept;

}  // namespace atparse
