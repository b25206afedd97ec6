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

// Owns the tree a parse leaves in its slot.
struct Tree {
    AtCmdParse* root = nullptr;
    Tree() = default;
    Tree(const Tree&) = delete;
    Tree& operator=(const Tree&) = delete;
    ~Tree() { free_at_cmd(root); }
    AtCmdParse** slot() { return &root; }
    std::string str() const { return shape(root); }
};

// Fills the slot as the caller passed it; a failing parser must leave it as it was.
inline AtCmdParse* const kUntouched = reinterpret_cast<AtCmdParse*>(0x8);

struct Parsed {
    int rc;
    std::string tree;   // "" when the slot was left untouched
    bool reply_kept;    // the reply text came back unchanged
    bool slot_kept;     // the slot still holds kUntouched
};

// One parse of a writable copy of `reply`, as the AT server's record would hold it.
inline Parsed parse(at_parse_func fn, const char* templ, const std::string& reply, const char* name) {
    std::string buf = reply;
    AtCmdParse* slot = kUntouched;
    const int rc = fn(&slot, templ, buf.data(), const_cast<char*>(name));
    const bool kept = slot == kUntouched;
    Parsed p{rc, kept ? "" : shape(slot), buf == reply, kept};
    if (!kept) free_at_cmd(slot);
    return p;
}

}  // namespace parse_test
