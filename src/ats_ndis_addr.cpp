// ats_ndis_addr.cpp - the PDP context and its authentication before a dial, and what the network
// assigned after it: +CGDCONT, ^AUTHDATA, ^DHCP, ^DHCPV6, ^APRAINFO, ^APLANADDR, the DNS overrides,
// ^IPV6CAP, ^IPFILTER, ^HFEATURESTAT and the ^LTEPROFILE limits.
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "atapi/ndis.h"
constexpr char kTraceSource[] = "src/ats_ndis";
#include "ats_ndis.h"

using atapi::Binding;
using atapi::Field;
using atapi::num;
using atapi::OnError;
using atapi::ParseTree;
using atapi::Query;
using atapi::Request;
using atapi::Row;
using atapi::text;
using atapi::ndis::all_terminated;
using atapi::ndis::send_config;

// ---- Address conversion ------------------------------------------------------------------------

extern "C" int convert_ip_to_string(char* Rource, char* Result, size_t lResult) {
    if (Rource == nullptr || Result == nullptr) return -1;
    const size_t digits = strnlen(Rource, 9);
    if (digits >= 9) return -1;
    memset_s(Result, lResult, 0, lResult);
    char hex[9] = "00000000";
    if (digits > 0) memcpy_s(hex + 8 - digits, digits, Rource, digits);
    for (size_t i = 0; i < 4; ++i) {
        const int byte = char_to_hex(&hex[2 * i]) * 16 + char_to_hex(&hex[2 * i + 1]);
        const size_t have = strnlen(Result, lResult);
        if (have + 1 >= lResult) break;
        ATS_SNPRINTF(Result + have, lResult - have, lResult - have - 1, i == 0 ? "%d" : ".%d", byte);
    }
    return reverse_ip_addr_to_normal(Result, lResult > UINT_MAX ? UINT_MAX : static_cast<unsigned int>(lResult));
}

extern "C" int reverse_ip_addr_to_normal(char* pszip, unsigned int buf_len) {
    if (pszip == nullptr) {
        ATS_TRACE(ERROR, "para error,pszip is null!\n");
        return -1;
    }
    // The numbers are read from a copy of what the buffer holds, as the result overwrites it.
    const std::string dotted(pszip, strnlen(pszip, buf_len));
    int part[4] = {0, 0, 0, 0};
    size_t from = 0;
    for (int i = 0; i < 4 && from <= dotted.size(); ++i) {
        const size_t dot = i < 3 ? dotted.find('.', from) : std::string::npos;
        part[i] = safe_atoi(dotted.substr(from, dot - from).c_str());
        if (dot == std::string::npos) break;
        from = dot + 1;
    }
    if (buf_len > 0) ATS_SNPRINTF(pszip, buf_len, buf_len - 1, "%d.%d.%d.%d", part[3], part[2], part[1], part[0]);
    return 0;
}

extern "C" int parse_begin_end_value(const char* buffer, int* begin_value, int* end_value) {
    if (buffer == nullptr || begin_value == nullptr || end_value == nullptr) return -1;
    char range[10] = {};
    memcpy_s(range, sizeof range, buffer, strnlen(buffer, sizeof range - 1));
    char* dash = std::strchr(range, '-');
    if (dash == nullptr) return -1;
    *dash = '\0';
    *begin_value = safe_atoi(range);
    *end_value = safe_atoi(dash + 1);
    return 0;
}

namespace {

// ---- Shared shapes -----------------------------------------------------------------------------

// A value copied as text without what a following reply line leaves on it: a value at the end of a
// line that is not the reply's last keeps the line's CR LF and, when quoted, its closing quote.
template <std::size_t N>
void copy_line_value(char (&dst)[N], const char* value) {
    if (value == nullptr) return;
    std::string_view v(value);
    while (!v.empty() && (v.back() == '\r' || v.back() == '\n')) v.remove_suffix(1);
    if (v.size() < std::strlen(value) && v.ends_with('"')) v.remove_suffix(1);
    atapi::copy_text(dst, std::string(v).c_str());
}

// Overwrites every value of a parse tree when it holds a secret, before the tree is released.
class WipedValues {
public:
    WipedValues(const ParseTree& tree, bool secret) : tree_(tree), secret_(secret) {}
    WipedValues(const WipedValues&) = delete;
    WipedValues& operator=(const WipedValues&) = delete;
    ~WipedValues() {
        if (!secret_) return;
        for (Row row : tree_.rows())
            for (const AtCmdParse* n = row.head(); n; n = n->next)
                if (const size_t len = n->AtFieldValue ? std::strlen(n->AtFieldValue) : 0; len > 0)
                    memset_s(n->AtFieldValue, len, 0, len);
    }

private:
    const ParseTree& tree_;
    bool secret_;
};

// The readers of the context and authentication lists: the first line the modem lists, each field
// the record has no place for traced. `store` takes a field and says whether it had a place.
template <typename Store>
int read_first_entry(Request& req, const char* name, at_function_type table, const char* who, bool secret,
                     AT_AMSS_RES& result, Store store) {
    if (int rc = req.exchange()) {
        ATS_TRACE(INFO, "%s result parse failed!\n", who);
        return rc;
    }
    if (!req.ok()) {
        ATS_TRACE(INFO, "%s is abnormal!Error num is %d\n", who, req.result());
        return -1;
    }
    const ParseTree tree = req.parse(name, table);
    const WipedValues wiped{tree, secret};
    if (!tree) return -1;
    result = AT_CMD_RES_SUCCESS;
    for (Field f : tree.row())
        if (!store(f)) ATS_TRACE(INFO, "%s haven't found!\n", who);
    return 0;
}

// The address reads share their traces, the ^DHCP ones, as log readers know them.
Query address_query(const char* name, at_function_type table, AT_AMSS_RES& result) {
    return {.name = name, .table = table, .result = &result,
            .exchange_failed = {ATS_TRACE_INFO, "AT^DHCP result parse failed!\n"},
            .not_ok = {ATS_TRACE_INFO, "AT^DHCP query error!\n"}};
}

// A ^DHCP address field: hexadecimal in reversed byte order, stored as dotted text. A value the
// conversion refuses leaves the field as it was.
void store_ip(void* dst, std::size_t size, const char* value) {
    // The conversion only reads its source.
    convert_ip_to_string(const_cast<char*>(value), static_cast<char*>(dst), size);
}
Binding ip(const char* name, char (&dst)[16]) { return {name, &store_ip, dst, sizeof dst}; }

}  // namespace

// ---- Context and authentication ----------------------------------------------------------------

extern "C" int AT_cgdcont(PDP_CONT* pdp_cont) {
    if (!pdp_cont) return -1;
    Request req;
    if (!all_terminated(pdp_cont->pdp_type, pdp_cont->apn_name) ||
        !AT_FORMAT_CMD(req, 639, "AT+CGDCONT=%d,\"%s\",\"%s\"", pdp_cont->cid, pdp_cont->pdp_type, pdp_cont->apn_name))
        return -1;
    req.set_match("+CGDCONT");
    return send_config(req, "AT+CGDCONT run failed!\n", "AT+CGDCONT config error!\n", &pdp_cont->AtExeResult);
}

extern "C" int AT_getcgdcont(PDP_CONT* result) {
    if (!result) {
        ATS_TRACE(ERROR, "Param is null!\n");
        return -1;
    }
    Request req{"AT+CGDCONT?", "+CGDCONT"};
    return read_first_entry(req, "+CGDCONT", AT_FUNCTION_CGDCONT_CFG, "AT^CGDCONT?", false, result->AtExeResult,
                            [&](Field f) {
                                if (f.is("cid")) {
                                    result->cid = f.number();
                                    ATS_TRACE(INFO, "cid = %d\n", result->cid);
                                } else if (f.is("PDP_type")) {
                                    copy_line_value(result->pdp_type, f.value());
                                    ATS_TRACE(INFO, "pdp_type = %s\n", result->pdp_type);
                                } else {
                                    return false;
                                }
                                return true;
                            });
}

extern "C" int AT_authdata(AUTH_DATA* auth_data) {
    if (!auth_data) return -1;
    // The request holds the password; it is wiped on every way out.
    Request req;
    if (!all_terminated(auth_data->plmn, auth_data->passwd, auth_data->username) ||
        !AT_FORMAT_CMD(req, 639, "AT^AUTHDATA=%d,%d,\"%s\",\"%s\",\"%s\"", auth_data->cid, auth_data->auth_type,
                       auth_data->plmn, auth_data->passwd, auth_data->username))
        return -1;
    req.set_match("^AUTHDATA");
    return send_config(req, "AT^AUTHDATA run failed!\n", "AT^AUTHDATA config error!\n", &auth_data->AtExeResult);
}

extern "C" int AT_getauthdata(AUTH_DATA* result) {
    if (!result) {
        ATS_TRACE(ERROR, "Param is null!\n");
        return -1;
    }
    Request req{"AT^AUTHDATA?", "^AUTHDATA"};
    return read_first_entry(req, "^AUTHDATA", AT_FUNCTION_AUTHDATA_CFG, "AT^AUTHDATA?", true, result->AtExeResult,
                            [&](Field f) {
                                if (f.is("cid")) result->cid = f.number();
                                else if (f.is("Auth_type")) result->auth_type = f.number();
                                else if (f.is("passwd")) copy_line_value(result->passwd, f.value());
                                else if (f.is("username")) copy_line_value(result->username, f.value());
                                else if (f.is("PLMN")) copy_line_value(result->plmn, f.value());
                                else return false;
                                return true;
                            });
}

// ---- What the network assigned -----------------------------------------------------------------

extern "C" int AT_dhcp(int cid, DhcpInfoRes* result) {
    if (!result) return -1;
    Request req{cid == 1 ? "AT^DHCP?" : nullptr, "^DHCP"};
    if (cid != 1 && !AT_FORMAT_CMD(req, 639, "AT^DHCP=%d", cid)) return -1;
    return AT_QUERY(req, address_query("^DHCP", AT_FUNCTION_DHCP_INFO_CFG, result->AtExeResult),
                    {ip("IPAddr", result->IPAddr), ip("NetMask", result->NetMask), ip("GateWay", result->GateWay),
                     ip("DHCPserver", result->Dhcp), ip("pDNS", result->pDNS), ip("sDNS", result->sDNS),
                     num("max_rx_data", result->MAX_RX_DATA), num("max_tx_data", result->MAX_TX_DATA)});
}

extern "C" int AT_dhcpv6(int cid, Dhcpv6InfoRes* result) {
    if (!result) {
        ATS_TRACE(ERROR, "no param, AT^DHCPV6   cmd not execute!\n");
        return -1;
    }
    Request req{cid == 1 ? "AT^DHCPV6?" : nullptr, "^DHCPV6"};
    if (cid != 1 && !AT_FORMAT_CMD(req, 639, "AT^DHCPV6=%d", cid)) return -1;
    return AT_QUERY(req, address_query("^DHCPV6", AT_FUNCTION_DHCP_INFO_CFG, result->AtExeResult),
                    {text("clip_v6", result->clip_v6), text("netmask_v6", result->netmask_v6),
                     text("gate_v6", result->gate_v6), text("dhcp_v6", result->dhcp_v6),
                     text("pDNS_v6", result->pDNS_v6), text("sDNS_v6", result->sDNS_v6),
                     num("max_rx_data", result->MAX_RX_DATA), num("max_tx_data", result->MAX_TX_DATA)});
}

extern "C" int AT_aprainfo(int cid, RAINFO* result) {
    if (!result) {
        // The ^DHCP text is intended: log readers know this failure by it.
        ATS_TRACE(ERROR, "no param, AT^DHCP   cmd not execute!\n");
        return -1;
    }
    Request req{cid == 1 ? "AT^APRAINFO?" : nullptr, "^APRAINFO"};
    if (cid != 1 && !AT_FORMAT_CMD(req, 639, "AT^APRAINFO=%d", cid)) return -1;
    return AT_QUERY(req, address_query("^APRAINFO", AT_FUNCTION_IPV6_ROUTER_INFO, result->AtExeResult),
                    {num("ipv6_mtu", result->ipv6_mtu), text("prefix", result->prefix),
                     num("preferred_lifetime", result->preferred_lifetime),
                     num("valid_lifetime", result->valid_lifetime)});
}

extern "C" int AT_lan_addr(LANADDR* result) {
    if (!result) {
        ATS_TRACE(ERROR, "no param, AT^APLANADDR   cmd not execute!\n");
        return -1;
    }
    Request req{"AT^APLANADDR?", "^APLANADDR"};
    return AT_QUERY(req, address_query("^APLANADDR", AT_FUNCTION_IPV6_ROUTER_INFO, result->AtExeResult),
                    {text("addr", result->addr), num("prefixlen", result->prefixlen)});
}

// ---- DNS overrides -----------------------------------------------------------------------------

namespace {

// The set half of the DNS commands: an error reply is traced with its result and gives -1.
int dns_set(Request& req, bool formatted, const char* match, const char* who, AT_AMSS_RES& result) {
    if (!formatted) return -1;
    req.set_match(match);
    if (int rc = req.exchange()) return rc;
    if (!req.ok()) {
        ATS_TRACE(INFO, "%s config error=%d\n", who, req.result());
        return -1;
    }
    result = AT_CMD_RES_SUCCESS;
    return 0;
}

// ^DNSP and ^DNSS: one server each, set unquoted from the profile and read back into it.
struct DnsServer {
    const char* name;  // handler row and set match
    const char* query;
    const char* query_match;
    const char* field;  // the template's name of the address
    char (ProfileResult::*address)[16];
    const char* no_param;
    const char* who;  // what its configuration error trace starts with
};

constexpr DnsServer kPrimaryDns{"^DNSP", "AT^DNSP?", "^DNSP:", "pri_dns", &ProfileResult::primary_dns,
                                "[AT_dnsp]no param, AT^DNSP cmd not execute!\n", "[AT_dnsp]AT^DNSP"};
constexpr DnsServer kSecondaryDns{"^DNSS", "AT^DNSS?", "^DNSS:", "sec_dns", &ProfileResult::secondary_dns,
                                  "[AT_dnss]no param, AT^DNSS cmd not execute!\n", "[AT_dnss]AT^DNSS"};

// `format_set` puts the set line for an address into the request.
template <typename FormatSet>
int dns_server(int cmd_type, ProfileResult* profile, const DnsServer& d, FormatSet format_set) {
    if (!profile) {
        ATS_TRACE(ERROR, "%s", d.no_param);
        return -1;
    }
    char (&address)[16] = profile->*d.address;
    if (cmd_type == AT_SET_VALUE) {
        Request req;
        const bool formatted = atapi::ndis::terminated(address) && format_set(req, address);
        return dns_set(req, formatted, d.name, d.who, profile->AtExeResult);
    }
    if (cmd_type != AT_CHECK_VALUE) return -1;
    Request req{d.query, d.query_match};
    return AT_QUERY(req, {.name = d.name, .table = AT_FUNCTION_NETWORK_CFG, .on_error = OnError::map,
                          .result = &profile->AtExeResult},
                    {text(d.field, address)});
}

}  // namespace

extern "C" int AT_dnsp(int iCmdType, ProfileResult* pstProfileResult) {
    return dns_server(iCmdType, pstProfileResult, kPrimaryDns,
                      [](Request& req, const char* dns) { return AT_FORMAT_CMD(req, 639, "AT^DNSP=%s", dns); });
}

extern "C" int AT_dnss(int iCmdType, ProfileResult* pstProfileResult) {
    return dns_server(iCmdType, pstProfileResult, kSecondaryDns,
                      [](Request& req, const char* dns) { return AT_FORMAT_CMD(req, 639, "AT^DNSS=%s", dns); });
}

extern "C" int AT_Cgdns(int CmdType, int cid, ProfileResult* p_profile) {
    if (!p_profile) {
        ATS_TRACE(ERROR, "no param, AT^CGDNS   cmd not execute!\n");
        return -1;
    }
    if (CmdType == AT_SET_VALUE) {
        Request req;
        // The blank before '=' is intended: the set line keeps that spelling.
        const bool formatted = all_terminated(p_profile->primary_dns, p_profile->secondary_dns) &&
                               AT_FORMAT_CMD(req, 639, "AT^CGDNS =%d,\"%s\",\"%s\"", cid, p_profile->primary_dns,
                                             p_profile->secondary_dns);
        return dns_set(req, formatted, "^CGDNS", "AT^CGDNS", p_profile->AtExeResult);
    }
    if (CmdType != AT_CHECK_VALUE) return -1;
    Request req{"AT^CGDNS?", "^CGDNS:"};
    if (int rc = req.exchange()) return rc;
    if (!req.ok()) return req.map_error(p_profile->AtExeResult);
    const ParseTree tree = req.parse("^CGDNS", AT_FUNCTION_CONNECT_CFG);
    if (!tree) return -1;
    Row chosen = tree.row();
    for (Row row : tree.rows())
        if (Field c = row.find("cid"); c && c.number() == cid) {
            chosen = row;
            break;
        }
    p_profile->AtExeResult = AT_CMD_RES_SUCCESS;
    for (Field f : chosen) {
        if (f.is("PriDns")) copy_line_value(p_profile->primary_dns, f.value());
        else if (f.is("SecDns")) copy_line_value(p_profile->secondary_dns, f.value());
    }
    return 0;
}

// ---- Capabilities, filter, features, profile limits -------------------------------------------

extern "C" int at_ipv6_cap(IPV6_CAP* result) {
    if (!result) return -1;
    Request req{"AT^IPV6CAP?", "^IPV6CAP", atapi::kQuickTimeout};
    return AT_QUERY(req, {.name = "^IPV6CAP", .table = AT_FUNCTION_CONNECT_CFG, .on_error = OnError::map,
                          .result = &result->AtExeResult},
                    {num("cfg_value", result->ipv6_cfg)});
}

extern "C" int AT_ipfilter(at_ipfilter_type* ipfilter_info) {
    if (!ipfilter_info) {
        ATS_TRACE(ERROR, "no param, at^ipfilter cmd not execute!\r\n");
        return -1;
    }
    const bool off = ipfilter_info->ipfilter_status == 0;
    Request req{off ? "AT^IPFILTER=0" : nullptr, nullptr, atapi::kQuickTimeout};
    if (!off && (!atapi::ndis::terminated(ipfilter_info->ip_addr) ||
                 !AT_FORMAT_CMD(req, 639, "%s,\"%s\",\"%s\",%d", "AT^IPFILTER=1", ipfilter_info->socket_type,
                                reinterpret_cast<const char*>(ipfilter_info->ip_addr), ipfilter_info->listen_port)))
        return -1;
    // The command was once named ^IPLISTEN, and its traces still are.
    return send_config(req, "AT^IPLISTEN run failed!\n", "AT^IPLISTEN  run error!\n", nullptr);
}

extern "C" int AT_HFEATURESTAT(int feature_id, MODEM_FEATURE_INFO* result) {
    if (!result) {
        ATS_TRACE(ERROR, "no param, AT^HFEATURESTAT   cmd not execute!");
        return -1;
    }
    Request req;
    if (!AT_FORMAT_CMD(req, 639, "AT^HFEATURESTAT=%d", feature_id)) return -1;
    req.set_match("^HFEATURESTAT");
    return AT_QUERY(req,
                    {.name = "^HFEATURESTAT", .table = AT_FUNCTION_HFEATURESTAT_CFG, .result = &result->AtExeResult,
                     .exchange_failed = {ATS_TRACE_INFO, "AT^HFEATURESTAT result parse failed!"},
                     .not_ok = {ATS_TRACE_INFO, "AT^HFEATURESTAT query error!"}},
                    {num("feature_id", result->feature_id), num("value1", result->value1),
                     num("value2", result->value2), num("value3", result->value3), num("value4", result->value4),
                     num("value5", result->value5)});
}

namespace {

// The first and last of a list, or the two ends of one range "a-b"; a single value n is n-n.
void store_pair(std::string_view first, std::string_view last, bool one, int (&pair)[2]) {
    const std::string a(first), b(last);
    if (one && parse_begin_end_value(a.c_str(), &pair[0], &pair[1]) == 0) return;
    pair[0] = safe_atoi(a.c_str());
    pair[1] = safe_atoi(b.c_str());
}

// A group row of the parser's tree as a pair.
void store_row_pair(const Row& row, int (&pair)[2]) {
    const char* first = nullptr;
    const char* last = nullptr;
    int count = 0;
    for (Field f : row) {
        if (!first) first = f.value();
        last = f.value();
        ++count;
    }
    if (count > 0) store_pair(first, last, count == 1, pair);
}

std::string_view trimmed(std::string_view s, std::string_view chars = " \r\n") {
    while (!s.empty() && chars.find(s.front()) != std::string_view::npos) s.remove_prefix(1);
    while (!s.empty() && chars.find(s.back()) != std::string_view::npos) s.remove_suffix(1);
    return s;
}

// What follows the two groups the parser reads: the four maximum lengths, then the group of
// authentication types. Stops at the first field that is missing.
void store_profile_limits(std::string_view reply, StLteProfileTest& rec) {
    size_t pos = reply.find(':');
    for (int group = 0; group < 2 && pos != std::string_view::npos; ++group) pos = reply.find(')', pos + 1);
    if (pos == std::string_view::npos) return;
    std::string_view rest = reply.substr(pos + 1);
    int* const lengths[] = {&rec.MaxImsiPrefixLen, &rec.MaxApnLen, &rec.MaxUserNameLen, &rec.MaxUserPwdLen};
    for (int* length : lengths) {
        if (!rest.starts_with(',')) return;
        rest.remove_prefix(1);
        const size_t comma = rest.find(',');
        *length = safe_atoi(std::string(trimmed(rest.substr(0, comma))).c_str());
        rest = comma == std::string_view::npos ? std::string_view{} : rest.substr(comma);
    }
    if (!rest.starts_with(',')) return;
    const std::string_view types = trimmed(trimmed(rest.substr(1)), "()");
    if (types.empty()) return;
    const size_t first_end = types.find(','), last_start = types.rfind(',');
    store_pair(types.substr(0, first_end), last_start == std::string_view::npos ? types : types.substr(last_start + 1),
               first_end == std::string_view::npos, rec.AuthType);
}

}  // namespace

extern "C" int AT_LteProfile_Test(StLteProfileTest* lteprofile_test) {
    if (!lteprofile_test) return -1;
    Request req{"AT^LTEPROFILE=?", "^LTEPROFILE"};
    if (int rc = req.exchange()) return rc;
    if (!req.ok()) return req.map_error(lteprofile_test->AtExeResult);
    const ParseTree tree = req.parse("^LTEPROFILE", AT_FUNCTION_NETWORK_CFG, AT_OPERATION_TYPE_TEST);
    if (!tree) return -1;
    lteprofile_test->AtExeResult = AT_CMD_RES_SUCCESS;
    int (*const pairs[])[2] = {&lteprofile_test->mode, &lteprofile_test->IndexRange};
    int k = 0;
    for (Row row : tree.rows()) {
        if (k == 2) break;
        store_row_pair(row, *pairs[k++]);
    }
    store_profile_limits(req.report(), *lteprofile_test);
    return 0;
}
