// at_parse.cpp - the handler dispatcher, the release routines and the parser's allocator.
[[maybe_unused]] constexpr char kTraceSource[] = "src/at_parse";

#include <malloc.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "at_parse_internal.h"
#include "trace.h"

namespace {

// Fault injection for the test build: per thread, so a test arming it cannot make an unrelated
// thread's parse fail.
// Initial-exec TLS keeps the check to one load on the allocation path.
__attribute__((tls_model("initial-exec"))) thread_local long t_fail_at = 0;
__attribute__((tls_model("initial-exec"))) thread_local long t_alloc_count = 0;

bool injected_failure() noexcept {
    ++t_alloc_count;
    return t_fail_at > 0 && t_alloc_count == t_fail_at;
}

}  // namespace

extern "C" void atapi_internal_fail_nth_alloc(long nth) {
    t_fail_at = nth > 0 ? nth : 0;
    t_alloc_count = 0;
}

extern "C" long atapi_internal_alloc_count(void) { return t_alloc_count; }

extern "C" void* qmx_malloc_internal(size_t bytes, size_t max_limit, const char* filename,
                                     const char* funcname, unsigned int line) {
    (void)filename;
    (void)funcname;
    (void)line;
    if (bytes == 0 || bytes > max_limit) {
        // The text says 4M while the limit in use is 8 MiB; log readers grep for it as it is.
        std::printf("error: not host tool, but malloc 4M, return NULL, malloc len=%d\n",
                    static_cast<int>(bytes));
        return nullptr;
    }
    if (injected_failure()) return nullptr;
    return std::malloc(bytes);
}

namespace {

const at_parse_handler* table_of(at_function_type func_type) noexcept {
    // The last entry wins, so the whole list is scanned.
    const at_parse_handler* found = nullptr;
    for (const ATS_FUNC_CMD& entry : func_list) {
        if (entry.func_id == func_type) found = entry.parse_handler;
    }
    return found;
}

// Every reply goes through the dispatcher: the scan above is done once per function type.
constexpr int kFunctionTypes = AT_FUNCTION_ZTE_DATACARD + 1;
struct TableIndex {
    const at_parse_handler* table[kFunctionTypes];
    TableIndex() noexcept {
        for (int t = 0; t < kFunctionTypes; ++t) table[t] = table_of(static_cast<at_function_type>(t));
    }
};

const at_parse_handler* find_table(at_function_type func_type) noexcept {
    if (func_type < 0 || func_type >= kFunctionTypes) return table_of(func_type);
    static const TableIndex index;
    return index.table[func_type];
}

// The row whose name is `name`, exactly; most rows differ from it in their first two bytes.
const at_parse_handler* find_row(const at_parse_handler* row, const char* name) noexcept {
    for (; row->at_name != nullptr; ++row) {
        const char* row_name = row->at_name;
        if (row_name[0] != name[0]) continue;
        if (name[0] != '\0' && row_name[1] != name[1]) continue;
        if (std::strcmp(row_name, name) == 0) return row;
    }
    return nullptr;
}

}  // namespace

extern "C" const at_parse_handler* parse_func_type(at_function_type func_type) { return find_table(func_type); }

extern "C" int at_cmd_parse(AtCmdParse** result, char* AtName, char* AtValue,
                            at_function_type func_type, at_operation_type oper_type) {
    if (AtName == nullptr) return atparse::kNothing;
    if (AtValue == nullptr) return atparse::kBadArgument;
    const at_parse_handler* table = find_table(func_type);
    if (table == nullptr) return atparse::kBadArgument;
    const at_parse_handler* row = find_row(table, AtName);
    if (row == nullptr) return atparse::kNothing;
    at_parse_func parser = nullptr;
    switch (oper_type) {
        case AT_OPERATION_TYPE_READ: parser = row->parse_read_func; break;
        case AT_OPERATION_TYPE_EXECUTE: parser = row->parse_exe_func; break;
        case AT_OPERATION_TYPE_TEST: parser = row->parse_test_func; break;
        case AT_OPERATION_TYPE_OTHER: parser = row->parse_other_func; break;
        default: return atparse::kBadOperation;
    }
    if (parser == nullptr) return parse_final_result(result, AtValue);
    return parser(result, row->parse_contrast[oper_type], AtValue, AtName);
}

namespace {

// The parsers keep a node's strings in the node's own block, after the node; GreatLinkList_AT
// and callers hang separate blocks on a node. A separate block can never start inside another
// live block, so a string that lies within the node's usable size is the node's own.
class NodeBlock {
public:
    explicit NodeBlock(AtCmdParse* node) noexcept
        : node_(node), begin_(reinterpret_cast<uintptr_t>(node + 1)) {}
    bool holds(const char* text) noexcept {
        const uintptr_t at = reinterpret_cast<uintptr_t>(text);
        if (at < begin_ || at - begin_ > AT_PARSE_MAX_ALLOC) return false;
        if (end_ == 0) end_ = reinterpret_cast<uintptr_t>(node_) + malloc_usable_size(node_);
        return at < end_;
    }

private:
    AtCmdParse* node_;
    uintptr_t begin_;
    uintptr_t end_ = 0;
};

void release_node(AtCmdParse* node) noexcept {
    NodeBlock block(node);
    if (node->AtFieldName != nullptr && !block.holds(node->AtFieldName)) std::free(node->AtFieldName);
    node->AtFieldName = nullptr;
    if (node->AtFieldValue != nullptr && !block.holds(node->AtFieldValue)) std::free(node->AtFieldValue);
    node->AtFieldValue = nullptr;
    std::free(node);
}

void release_row(AtCmdParse* row) noexcept {
    while (row != nullptr) {
        AtCmdParse* next = row->next;
        release_node(row);
        row = next;
    }
}

}  // namespace

extern "C" void free_node(AtCmdParse* node) {
    if (node != nullptr) release_node(node);
}

extern "C" void free_at_res_link(AtCmdParse* row) { release_row(row); }

extern "C" void free_at_cmd(AtCmdParse* list) {
    while (list != nullptr) {
        AtCmdParse* next_row = list->plist;
        release_row(list);
        list = next_row;
    }
}

extern "C" void free_cops_link(AtCmdParse* list) { free_at_cmd(list); }

// Never reaches plist subtrees; nothing calls it, and it is kept as it has always behaved.
extern "C" void free_at_res_tree(AtCmdParse* tree_head) {
    if (tree_head == nullptr) return;
    if (tree_head->next != nullptr) {
        free_at_res_tree(tree_head->next);
    } else if (tree_head->plist != nullptr) {
        free_at_res_tree(tree_head->next);
    }
    free_node(tree_head);
}

// Debug walker without output, kept for the operator-list code that calls it while debugging.
extern "C" int print_operator(AtCmdParse* result) {
    for (AtCmdParse* row = result; row != nullptr; row = row->plist) {
        for (AtCmdParse* field = row; field != nullptr; field = field->next) {
        }
    }
    return 0;
}

namespace atparse {

AtCmdParse* new_node() noexcept {
    auto* node = static_cast<AtCmdParse*>(
        qmx_malloc_internal(sizeof(AtCmdParse), AT_PARSE_MAX_ALLOC, nullptr, nullptr, 0));
    if (node != nullptr) *node = AtCmdParse{};
    return node;
}

namespace {

// One block: the node, then each present text with its terminator.
AtCmdParse* node_block(size_t extra) noexcept {
    auto* node = static_cast<AtCmdParse*>(
        qmx_malloc_internal(sizeof(AtCmdParse) + extra, AT_PARSE_MAX_ALLOC, nullptr, nullptr, 0));
    if (node != nullptr) *node = AtCmdParse{};
    return node;
}

char* put_text(char* at, std::string_view text) noexcept {
    if (!text.empty()) std::memcpy(at, text.data(), text.size());
    at[text.size()] = '\0';
    return at + text.size() + 1;
}

}  // namespace

AtCmdParse* new_field(const std::string_view* name, const std::string_view* value) noexcept {
    const size_t extra = (name != nullptr ? name->size() + 1 : 0) + (value != nullptr ? value->size() + 1 : 0);
    if (extra > AT_PARSE_MAX_ALLOC) return nullptr;
    AtCmdParse* node = node_block(extra);
    if (node == nullptr) return nullptr;
    char* at = reinterpret_cast<char*>(node + 1);
    if (name != nullptr) {
        node->AtFieldName = at;
        at = put_text(at, *name);
    }
    if (value != nullptr) {
        node->AtFieldValue = at;
        put_text(at, *value);
    }
    return node;
}

AtCmdParse* new_value_node(size_t value_size) noexcept {
    AtCmdParse* node = node_block(value_size);
    if (node == nullptr) return nullptr;
    node->AtFieldValue = reinterpret_cast<char*>(node + 1);
    std::memset(node->AtFieldValue, 0, value_size);
    return node;
}

char* dup_text(std::string_view text) noexcept {
    auto* copy = static_cast<char*>(
        qmx_malloc_internal(text.size() + 1, AT_PARSE_MAX_ALLOC, nullptr, nullptr, 0));
    if (copy == nullptr) return nullptr;
    if (!text.empty()) memcpy_s(copy, text.size() + 1, text.data(), text.size());
    copy[text.size()] = '\0';
    return copy;
}

AtCmdParse* new_group(const char* label) noexcept {
    if (label == nullptr) return new_node();
    const std::string_view name(label);
    return new_field(&name, nullptr);
}

void release_strings(std::span<char*> strings) noexcept {
    for (char*& s : strings) {
        std::free(s);
        s = nullptr;
    }
}

void release(AtCmdParse** tree) noexcept {
    if (tree == nullptr) return;
    free_at_cmd(*tree);
    *tree = nullptr;
}

void append_row(AtCmdParse** head, AtCmdParse* row) noexcept {
    AtCmdParse** slot = head;
    while (*slot != nullptr) slot = &(*slot)->plist;
    *slot = row;
}

}  // namespace atparse
