// test_parse_util.h - renders parse trees as text so a test states a whole tree shape in one
// line: rows (row heads reached through plist) are joined by " | ", the fields of a row (through
// next) by ",", each field as name=value with "~" standing for a null name or value.
#pragma once

#include <string>

#include "atapi.h"

namespace parse_test {

inline std::string shape(const AtCmdParse* tree) {
    std::string out;
    for (const AtCmdParse* row = tree; row != nullptr; row = row->plist) {
        if (row != tree) out += " | ";
        for (const AtCmdParse* field = row; field != nullptr; field = field->next) {
            if (field != row) out += ",";
            out += field->AtFieldName != nullptr ? field->AtFieldName : "~";
            out += "=";
            out += field->AtFieldValue != nullptr ? field->AtFieldValue : "~";
        }
    }
    return out;
}

// Owns a tree for the length of a test.
struct Tree {
    AtCmdParse* root = nullptr;
    Tree() = default;
    Tree(const Tree&) = delete;
    Tree& operator=(const Tree&) = delete;
    ~Tree() { free_at_cmd(root); }
    AtCmdParse** slot() { return &root; }
    std::string str() const { return shape(root); }
};

// A writable copy of a reply, as the AT server's record would hold it.
struct Buf {
    std::string text;
    explicit Buf(std::string s) : text(std::move(s)) {}
    char* get() { return text.data(); }
};

}  // namespace parse_test
