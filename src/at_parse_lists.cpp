// at_parse_lists.cpp - parsers of test-command replies and index lists: parenthesised groups,
// ranges and operator lists that the plain row parser cannot name.
//
// Every tree here is a plist chain of group nodes (label, no value) whose rows hang on next, so
// free_at_cmd releases it whole. On failure a parser releases all it built and leaves the result
// slot as it was.
constexpr char kTraceSource[] = "src/at_parse";

#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "at_parse_internal.h"
#include "trace.h"

using namespace atparse;

namespace {

constexpr size_t kNpos = std::string_view::npos;

// A template read only as far as the buffer its parser has always copied it into: longer
// templates are cut, never overrun.
template <size_t N>
std::string_view bounded(std::string_view text) noexcept {
    return text.substr(0, text.size() < N - 1 ? text.size() : N - 1);
}

int pid() noexcept { return static_cast<int>(getpid()); }

// One group node per "(...)" in `reply` (at most `max_groups`), each labelled `label` with the
// row of `names`.
int band_list(AtCmdParse** out, std::string_view names_text, std::string_view reply,
              const char* label, size_t max_groups = SIZE_MAX) noexcept {
    const std::string_view names = trim(bounded<128>(names_text), " ()");
    AtCmdParse* head = nullptr;
    AtCmdParse** tail = &head;
    std::string_view group;
    size_t pos = 0;
    for (size_t built = 0; built < max_groups && next_group(reply, pos, &group, &pos); ++built) {
        // The first pair of a "((" list still carries the outer bracket.
        group = trim(group, " (");
        AtCmdParse* node = new_group(label);
        if (node == nullptr) {
            free_at_cmd(head);
            return kNoMemory;
        }
        if (const int rc = field_row(&node->next, names, group); rc != kOk) {
            free_node(node);
            free_at_cmd(head);
            return rc;
        }
        *tail = node;
        tail = &node->plist;
    }
    *out = head;
    return kOk;
}

int operator_list(AtCmdParse** out, std::string_view names_text, std::string_view reply,
                  const char* label) noexcept {
    const int groups = count_outside_quotes(reply, ')');
    if (groups == 0) return kOk;
    const std::string_view names = trim(bounded<50>(names_text), " )(");
    AtCmdParse* head = nullptr;
    AtCmdParse** tail = &head;
    size_t pos = 0;
    for (int i = 0; i < groups; ++i) {
        const size_t close = find_outside_quotes(reply, ')', pos);
        if (close == kNpos) {
            ATS_TRACE(INFO, "point1 is NULL[parse_operator_list].\n");
            free_at_cmd(head);
            return kNothing;
        }
        // Strips the "," and "(" between one group and the next.
        const std::string_view group = trim(reply.substr(pos, close - pos), " ,)(");
        AtCmdParse* node = new_group(label);
        if (node == nullptr) {
            free_at_cmd(head);
            return kNoMemory;
        }
        if (const int rc = field_row(&node->next, names, group); rc != kOk) {
            free_node(node);
            free_at_cmd(head);
            return rc;
        }
        *tail = node;
        tail = &node->plist;
        pos = close + 1;
    }
    *out = head;
    return kOk;
}

// A labelled group node whose row is `names` over `values`.
int named_group(AtCmdParse** out, const char* label, std::string_view names,
                std::string_view values) noexcept {
    AtCmdParse* node = new_group(label);
    if (node == nullptr) return kNoMemory;
    if (const int rc = field_row(&node->next, names, values); rc != kOk) {
        free_node(node);
        return rc;
    }
    *out = node;
    return kOk;
}

// The ",," that ends the operator part: outside quotes and brackets, so empty fields inside an
// operator entry do not end it early.
size_t find_list_end(std::string_view text) noexcept {
    bool quoted = false;
    int depth = 0;
    for (size_t i = 0; i + 1 < text.size(); ++i) {
        const char c = text[i];
        if (c == '"') {
            quoted = !quoted;
        } else if (!quoted && c == '(') {
            ++depth;
        } else if (!quoted && c == ')') {
            --depth;
        } else if (!quoted && depth <= 0 && c == ',' && text[i + 1] == ',') {
            return i;
        }
    }
    return kNpos;
}

// Band list of a ^SYSCFG / ^SYSCFGEX test reply: in the template the text from the "((" to the
// first ')' of its "))", in the reply from the next '(' to the first ')' of the next "))".
bool band_texts(std::string_view templ, size_t templ_from, std::string_view reply,
                size_t reply_from, std::string_view* templ_band, std::string_view* reply_band,
                size_t* templ_end, size_t* reply_end) noexcept {
    const size_t t_open = templ.find("((", templ_from);
    const size_t r_open = reply.find('(', reply_from);
    if (t_open == kNpos || r_open == kNpos) return false;
    const size_t t_close = templ.find("))", t_open);
    const size_t r_close = reply.find("))", r_open);
    if (t_close == kNpos || r_close == kNpos) return false;
    *templ_band = templ.substr(t_open, t_close + 1 - t_open);
    *reply_band = reply.substr(r_open, r_close + 1 - r_open);
    *templ_end = t_close + 2;
    *reply_end = r_close + 2;
    return true;
}

// A NUL-terminated copy of a reply part for the trace lines that show it.
struct TraceText {
    std::array<char, 256> text{};
    explicit TraceText(std::string_view part) noexcept {
        strncpy_s(text.data(), text.size(), part.data(), part.size() < 255 ? part.size() : 255);
    }
};

// Reply text after the name, or an empty view when the name is absent.
bool after_name(std::string_view reply, const char* name, std::string_view* rest) noexcept {
    const size_t at = reply.find(name);
    if (at == kNpos) return false;
    *rest = reply.substr(at + std::string_view(name).size());
    return true;
}

// One row of fields "index_0", "index_1", ... holding the comma-separated values of `list`.
int index_row(AtCmdParse** result, std::string_view list) noexcept {
    FieldCursor values(list);
    AtCmdParse* head = nullptr;
    AtCmdParse** tail = &head;
    for (size_t i = 0; !values.done(); ++i) {
        // Positions of four or more digits keep their first three: the name buffer is 10 bytes.
        std::array<char, 10> name_buf{};
        ATS_SNPRINTF(name_buf.data(), name_buf.size(), name_buf.size() - 1, "index_%zu", i);
        const std::string_view name(name_buf.data());
        std::string_view value;
        const bool has_value = values.next(&value);
        AtCmdParse* node = new_field(&name, has_value ? &value : nullptr);
        if (node == nullptr) {
            free_at_cmd(head);
            return kNoMemory;
        }
        *tail = node;
        tail = &node->next;
    }
    *result = head;
    return kOk;
}

}  // namespace

extern "C" int parse_band_at_str(AtCmdParse** result, const char* parse_contrast_str,
                                 char* at_value_str, char* at_name) {
    if (result == nullptr || parse_contrast_str == nullptr || at_value_str == nullptr ||
        at_name == nullptr) {
        return kBadArgument;
    }
    return band_list(result, parse_contrast_str, at_value_str, at_name);
}

extern "C" int parse_operator_list(AtCmdParse** result, char* parse_contrast_str,
                                   char* at_value_str, char* cops_field_name) {
    if (result == nullptr || parse_contrast_str == nullptr || at_value_str == nullptr ||
        cops_field_name == nullptr) {
        return kNothing;
    }
    return operator_list(result, parse_contrast_str, at_value_str, cops_field_name);
}

extern "C" int parse_cops_at_str(AtCmdParse** result, const char* parse_contrast_str,
                                 char* at_value_str, char* at_name) {
    if (result == nullptr || at_value_str == nullptr) return kBadArgument;
    if (parse_contrast_str == nullptr) return parse_final_result(result, at_value_str);
    if (at_name == nullptr) return kBadArgument;
    const std::string_view templ = bounded<150>(parse_contrast_str);
    const std::string_view reply(at_value_str);
    if (reply.find(at_name) == kNpos) return parse_final_result(result, at_value_str);

    const size_t t_colon = templ.find(':');
    const size_t r_colon = reply.find(':');
    const size_t t_end = templ.find(",,");
    const size_t r_end = r_colon == kNpos ? kNpos : find_list_end(reply.substr(r_colon));
    if (t_colon == kNpos || r_colon == kNpos || t_end == kNpos || r_end == kNpos ||
        t_end < t_colon) {
        return kUnknownResult;
    }
    const size_t r_split = r_colon + r_end;

    AtCmdParse* head = nullptr;
    const std::string_view operators = trim(reply.substr(r_colon + 1, r_split - r_colon - 1), " ");
    int rc = operator_list(&head, templ.substr(t_colon + 1, t_end - t_colon - 1), operators,
                           "option");
    ATS_TRACE(INFO, "pid = %d, the parse operator list ret = %d \n", pid(), rc);
    if (rc != kOk) return rc;

    std::string_view t_rest = templ.substr(t_end + 2);
    std::string_view r_rest = reply.substr(r_split + 2);
    const size_t t_close = t_rest.find(')');
    const size_t r_close = r_rest.find(')');
    if (t_close == kNpos || r_close == kNpos) {
        free_at_cmd(head);
        return kUnknownResult;
    }
    AtCmdParse* mode = nullptr;
    rc = named_group(&mode, "mode", trim(t_rest.substr(0, t_close), "()"),
                     trim(r_rest.substr(0, r_close), "()"));
    if (rc != kOk) {
        free_at_cmd(head);
        return rc;
    }
    append_row(&head, mode);

    // The format list closes the reply, so its line end goes with the brackets.
    constexpr std::string_view kListEnds = "() \r\n";
    t_rest = t_rest.substr(t_close + 1);
    r_rest = r_rest.substr(r_close + 1);
    if (t_rest.starts_with(',')) t_rest.remove_prefix(1);
    if (r_rest.starts_with(',')) r_rest.remove_prefix(1);
    AtCmdParse* format = nullptr;
    rc = named_group(&format, "format", trim(t_rest, kListEnds), trim(r_rest, kListEnds));
    if (rc != kOk) {
        free_at_cmd(head);
        return rc;
    }
    append_row(&head, format);
    *result = head;
    return kOk;
}

extern "C" int parse_syscfg_at_str(AtCmdParse** result, const char* parse_contrast_str,
                                   char* at_value_str, char* at_name) {
    if (result == nullptr || parse_contrast_str == nullptr || at_value_str == nullptr ||
        at_name == nullptr) {
        return kBadArgument;
    }
    const std::string_view templ = bounded<150>(parse_contrast_str);
    std::string_view reply;
    if (!after_name(at_value_str, at_name, &reply)) return kBadArgument;

    std::string_view t_group, r_group, t_band, r_band;
    size_t t_pos = 0, r_pos = 0;
    AtCmdParse* modes = nullptr;
    AtCmdParse* orders = nullptr;
    AtCmdParse* bands = nullptr;
    bool ok = next_group(templ, 0, &t_group, &t_pos) && next_group(reply, 0, &r_group, &r_pos) &&
              named_group(&modes, "modes", t_group, r_group) == kOk;
    ok = ok && next_group(templ, t_pos, &t_group, &t_pos) &&
         next_group(reply, r_pos, &r_group, &r_pos);
    if (ok) {
        orders = new_group("acqorders");
        ok = orders != nullptr &&
             (r_group.find('-') != kNpos ? sequence_row(&orders->next, r_group)
                                         : field_row(&orders->next, t_group, r_group)) == kOk;
    }
    ok = ok && band_texts(templ, t_pos, reply, r_pos, &t_band, &r_band, &t_pos, &r_pos) &&
         band_list(&bands, t_band, r_band, "bandlist") == kOk;
    if (!ok) {
        free_at_cmd(modes);
        free_at_cmd(orders);
        return kBadArgument;
    }
    // Roaming and service-domain groups are not read by anyone.
    modes->plist = orders;
    orders->plist = bands;
    *result = modes;
    return kOk;
}

extern "C" int parse_syscfgex_at_str(AtCmdParse** result, const char* parse_contrast_str,
                                     char* at_value_str, char* at_name) {
    if (result == nullptr || parse_contrast_str == nullptr || at_value_str == nullptr ||
        at_name == nullptr) {
        return kBadArgument;
    }
    const std::string_view templ = bounded<150>(parse_contrast_str);
    std::string_view reply;
    if (!after_name(at_value_str, at_name, &reply)) return kBadArgument;

    std::string_view t_group, r_group, t_band, r_band;
    size_t t_pos = 0, r_pos = 0;
    AtCmdParse* orders = nullptr;
    AtCmdParse* bands = nullptr;
    AtCmdParse* lte = nullptr;
    bool ok = next_group(templ, 0, &t_group, &t_pos) && next_group(reply, 0, &r_group, &r_pos) &&
              named_group(&orders, "acqorders", t_group, r_group) == kOk;
    ok = ok && band_texts(templ, t_pos, reply, r_pos, &t_band, &r_band, &t_pos, &r_pos);
    if (ok) {
        ATS_TRACE(INFO, "parse_syscfgex_at_str bandlist success.(begin_value=%s)\n",
                  TraceText(r_band).text.data());
        // Readers of this tree see one band entry: the first band pair, then the LTE list, so
        // the other pairs are not built.
        ok = band_list(&bands, t_band, r_band, "bandlist", 1) == kOk;
    }
    if (const size_t lte_open = ok ? reply.find("((", r_pos) : kNpos; lte_open != kNpos) {
        // The roaming and service-domain groups before the LTE list are skipped.
        ok = band_texts(templ, t_pos, reply, lte_open, &t_band, &r_band, &t_pos, &r_pos);
        if (ok) {
            ATS_TRACE(INFO, "parse_syscfgex_at_str LTEbandlist success.(begin_value=%s)\n",
                      TraceText(r_band).text.data());
            ok = band_list(&lte, t_band, r_band, "LTElist") == kOk;
        }
    }
    if (!ok) {
        free_at_cmd(orders);
        free_at_cmd(bands);
        return kBadArgument;
    }
    if (bands != nullptr) {
        bands->plist = lte;
        orders->plist = bands;
    } else {
        orders->plist = lte;
    }
    *result = orders;
    return kOk;
}

extern "C" int parse_sms_media(AtCmdParse** result, const char* parse_contrast_str,
                               char* at_value_str, char* at_name) {
    if (result == nullptr || parse_contrast_str == nullptr || at_value_str == nullptr ||
        at_name == nullptr) {
        return kBadArgument;
    }
    const std::string_view templ = bounded<64>(parse_contrast_str);
    std::string_view reply;
    std::string_view names;
    size_t end = 0;
    if (!after_name(at_value_str, at_name, &reply) || !next_group(templ, 0, &names, &end)) {
        return kBadArgument;
    }
    const size_t open = reply.find('(');
    if (open == kNpos) return kBadArgument;
    return band_list(result, names, reply.substr(open), "SmsMediaList") == kOk ? kOk
                                                                               : kBadArgument;
}

extern "C" int parse_ndisstatqry_at_str(AtCmdParse** result, const char* parse_contrast_str,
                                        char* at_value_str, char* at_name) {
    if (result == nullptr || parse_contrast_str == nullptr || at_value_str == nullptr ||
        at_name == nullptr) {
        return kBadArgument;
    }
    std::string_view reply, names, values;
    size_t end = 0;
    if (!after_name(at_value_str, at_name, &reply) ||
        !next_group(parse_contrast_str, 0, &names, &end) || !next_group(reply, 0, &values, &end)) {
        return kBadArgument;
    }
    return named_group(result, "cid", names, values) == kOk ? kOk : kBadArgument;
}

extern "C" int parse_lteprofile_at_str(AtCmdParse** result, const char* parse_contrast_str,
                                       char* at_value_str, char* at_name) {
    if (result == nullptr || parse_contrast_str == nullptr || at_value_str == nullptr ||
        at_name == nullptr) {
        return kBadArgument;
    }
    const std::string_view templ(parse_contrast_str);
    std::string_view reply, t_group, r_group;
    size_t t_pos = 0, r_pos = 0;
    if (!after_name(at_value_str, at_name, &reply)) return kBadArgument;
    AtCmdParse* first = nullptr;
    AtCmdParse* second = nullptr;
    bool ok = next_group(templ, 0, &t_group, &t_pos) && next_group(reply, 0, &r_group, &r_pos) &&
              named_group(&first, nullptr, t_group, r_group) == kOk;
    ok = ok && next_group(templ, t_pos, &t_group, &t_pos) &&
         next_group(reply, r_pos, &r_group, &r_pos) &&
         named_group(&second, nullptr, t_group, r_group) == kOk;
    if (!ok) {
        free_at_cmd(first);
        return kBadArgument;
    }
    first->plist = second;
    *result = first;
    return kOk;
}

extern "C" int parse_sms_index_list_at_str(AtCmdParse** result, const char* parse_contrast_str,
                                           char* at_value_str, char* at_name) {
    if (result == nullptr || at_value_str == nullptr || at_name == nullptr) return kBadArgument;
    if (parse_contrast_str == nullptr) return parse_final_result(result, at_value_str);
    const std::string_view reply(at_value_str);
    if (reply.find(at_name) == kNpos) return parse_final_result(result, at_value_str);
    const size_t colon = reply.find(':');
    if (colon == kNpos) return kBadArgument;
    const size_t close = reply.find("),", colon + 1);
    if (close == kNpos) return kBadArgument;
    return index_row(result, trim(reply.substr(colon + 1, close - colon - 1), " )("));
}

extern "C" int parse_cmgi_list_at_str(AtCmdParse** result, const char* parse_contrast_str,
                                      char* at_value_str, char* at_name) {
    if (result == nullptr || at_value_str == nullptr || at_name == nullptr) return kBadArgument;
    if (parse_contrast_str == nullptr) return parse_final_result(result, at_value_str);
    const std::string_view reply(at_value_str);
    if (reply.find(at_name) == kNpos) return parse_final_result(result, at_value_str);
    const size_t colon = reply.find(':');
    if (colon == kNpos) return kUnknownResult;
    return index_row(result, trim(reply.substr(colon + 1), " "));
}

extern "C" int parse_sms_cmgr_at_str(AtCmdParse** result, const char* parse_contrast_str,
                                     char* at_value_str, char* at_name) {
    if (result == nullptr || parse_contrast_str == nullptr || at_value_str == nullptr ||
        at_name == nullptr) {
        return kBadArgument;
    }
    std::array<char, 50> templ{};
    strncpy_s(templ.data(), templ.size(), parse_contrast_str, templ.size() - 1);
    char* templ_break = std::strstr(templ.data(), "\r\n");
    if (templ_break == nullptr) return kNothing;
    char* reply_break = std::strstr(at_value_str, "\r\n");
    if (reply_break == nullptr) return parse_final_result(result, at_value_str);
    // The PDU line joins the header as its last field; the reply keeps this change.
    templ_break[0] = ',';
    templ_break[1] = ' ';
    reply_break[0] = ',';
    reply_break[1] = ' ';
    return parse_common_at_str(result, templ.data(), at_value_str, at_name);
}

extern "C" int parse_eons_at_str(AtCmdParse** result, const char* parse_contrast_str,
                                 char* at_value_str, char* at_name) {
    if (result == nullptr || at_value_str == nullptr || at_name == nullptr) return kBadArgument;
    if (parse_contrast_str == nullptr) return parse_final_result(result, at_value_str);
    ATS_TRACE(INFO, "eons response = %s\n", at_value_str);
    char* last = parse_find_final_str(at_value_str, at_name);
    if (last == nullptr) {
        ATS_TRACE(INFO, " not find the at name pid = %d\n", pid());
        return kBadArgument;
    }
    ATS_TRACE(INFO, "eons response after filter = %s\n", last);
    return parse_common_at_str(result, parse_contrast_str, last, at_name);
}
