// at_parse.cpp - the handler dispatcher, the release routines and the parser's allocator.
[[maybe_unused]] constexpr char kTraceSource[] = "src/at_parse";

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

extern "C" const at_parse_handler* parse_func_type(at_function_type func_type) {
    // The last entry wins, so the whole list is scanned.
    const at_parse_handler* found = nullptr;
    for (const ATS_FUNC_CMD& entry : func_list) {
        if (entry.func_id == func_type) found = entry.parse_handler;
    }
    return found;
}

extern "C" int at_cmd_parse(AtCmdParse** result, char* AtName, char* AtValue,
                            at_function_type func_type, at_operation_type oper_type) {
    if (AtName == nullptr) return atparse::kNothing;
    if (AtValue == nullptr) return atparse::kBadArgument;
    const at_parse_handler* row = parse_func_type(func_type);
    if (row == nullptr) return atparse::kBadArgument;

    for (; row->at_name != nullptr; ++row) {
        if (std::strcmp(row->at_name, AtName) != 0) continue;
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
    return atparse::kNothing;
}

extern "C" void free_node(AtCmdParse* node) {
    if (node == nullptr) return;
    std::free(node->AtFieldName);
    node->AtFieldName = nullptr;
    std::free(node->AtFieldValue);
    node->AtFieldValue = nullptr;
    std::free(node);
}

extern "C" void free_at_res_link(AtCmdParse* row) {
    while (row != nullptr) {
        AtCmdParse* next = row->next;
        free_node(row);
        row = next;
    }
}

extern "C" void free_at_cmd(AtCmdParse* list) {
    while (list != nullptr) {
        AtCmdParse* next_row = list->plist;
        free_at_res_link(list);
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

char* dup_text(std::string_view text) noexcept {
    auto* copy = static_cast<char*>(
        qmx_malloc_internal(text.size() + 1, AT_PARSE_MAX_ALLOC, nullptr, nullptr, 0));
    if (copy == nullptr) return nullptr;
    if (!text.empty()) memcpy_s(copy, text.size() + 1, text.data(), text.size());
    copy[text.size()] = '\0';
    return copy;
}

AtCmdParse* new_group(const char* label) noexcept {
    AtCmdParse* node = new_node();
    if (node == nullptr || label == nullptr) return node;
    node->AtFieldName = dup_text(label);
    if (node->AtFieldName == nullptr) {
        free_node(node);
        return nullptr;
    }
    return node;
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
