// phonebook.cpp - `atctl phonebook`: the entries of a phonebook store; writing and deleting one.
//
// Names in plain ASCII are written as text (coding 0); any other name as raw UCS-2 bytes (coding
// 2), which the library sends whole by the request's length. Names read back as hexadecimal UCS-2
// (coding 1) or raw UCS-2 (coding 2) are shown as text.
#include <algorithm>
#include <cstring>
#include <string>

#include "cli.h"
#include "smscodec.h"

namespace atctl {
namespace {

std::string name_text(const StCpbrRsp& r) {
    const size_t n = static_cast<size_t>(std::clamp(r.nameLength, 0, static_cast<int>(sizeof r.text)));
    const std::string raw(r.text, n);
    if (r.coding == 2) return smscodec::ucs2_decode(raw);
    const std::optional<std::string> bytes = r.coding == 1 ? smscodec::hex_decode(raw) : std::nullopt;
    return bytes ? smscodec::ucs2_decode(*bytes) : raw;
}

int index_arg(const Invocation& inv, size_t i) {
    const std::optional<long> n = number(inv.arg(i));
    if (!n || *n < 0 || *n > 65535) throw UsageError("an entry index is a number");
    return static_cast<int>(*n);
}

void select_store(const Invocation& inv, Report& report) {
    const std::optional<std::string> store = inv.option("--store");
    if (!store) return;
    if (store->empty() || store->size() > 7 || store->find('"') != std::string::npos)
        throw UsageError("--store needs a store name such as SM, ME or ON");
    Section& s = report.section("cpbs_set", "store selected (+CPBS=)", "cpbs");
    if (s.skipped()) return;
    StCpbsPara para{};
    std::memcpy(para.storageflag, store->data(), store->size());
    StCpbsRsp rsp{};
    rsp.AtExeResult = kUnset;
    const int rc = AT_Cpbs(AT_SET_VALUE, &para, &rsp);
    if (s.check(rc, rsp.AtExeResult)) s.field("store", *store, true).json("store", *store);
}

void run_list(Report& report) {
    Section& s = report.section("cpbs", "phonebook store (+CPBS?)", "cpbs");
    if (s.skipped()) return;
    StCpbsRsp store{};
    store.AtExeResult = kUnset;
    const int rc = AT_Cpbs(AT_CHECK_VALUE, nullptr, &store);
    if (!s.check(rc, store.AtExeResult)) return;
    s.field("store", field_text(store.storageflag) + ", " + std::to_string(store.usedNum) + " of " +
                         std::to_string(store.totalNum) + " used", true);
    s.json("store", field_text(store.storageflag)).json("used", long{store.usedNum});
    s.json("total", long{store.totalNum});

    Section& t = report.section("cpbr_test", "entry range and lengths (^CPBR=?)", "cpbr");
    if (t.skipped()) return;
    StCpbrPara para{};
    StCpbrRsp range{};
    range.AtExeResult = kUnset;
    const int trc = AT_Cpbr(1, &para, &range);
    if (!t.check(trc, range.AtExeResult)) return;
    t.field("indexes", std::to_string(range.indexsBegin) + " to " + std::to_string(range.indexsEnd));
    t.field("lengths",
            "number " + std::to_string(range.phoneMaxLength) + ", name " + std::to_string(range.nameMaxLength));
    t.json("first", long{range.indexsBegin}).json("last", long{range.indexsEnd});
    t.json("number_length", long{range.phoneMaxLength}).json("name_length", long{range.nameMaxLength});

    // Empty slots answer an error; the walk ends when every used entry has been found.
    int found = 0;
    for (int i = range.indexsBegin; i <= range.indexsEnd && found < store.usedNum; ++i) {
        StCpbrPara at{};
        at.indexBegin = i;
        at.AtExeResult = kUnset;
        StCpbrRsp e{};
        e.AtExeResult = kUnset;
        const int erc = AT_Cpbr(AT_CHECK_VALUE, &at, &e);
        if (erc == 0 && at.AtExeResult != kUnset) continue;
        Section& es = report.section("entry_" + std::to_string(i), "entry " + std::to_string(i) + " (^CPBR)", "entry");
        if (es.skipped() || !es.check(erc, e.AtExeResult)) return;
        ++found;
        const std::string number = field_text(e.phonenumber), name = name_text(e);
        es.field("number", number, true).field("name", name, true).field("type", std::to_string(e.phoneType));
        es.json("index", long{i}).json("number", number).json("type", long{e.phoneType}).json("name", name);
        es.json("coding", long{e.coding});
    }
}

void write_entry(Report& report, StCpbwPara& w, const std::string& what) {
    Section& s = report.section("cpbw", what + " (^CPBW)", "cpbw");
    if (s.skipped()) return;
    StCpbwRsp rsp{};
    rsp.AtExeResult = kUnset;
    const int rc = AT_Cpbw(AT_SET_VALUE, &w, &rsp);
    if (!s.check(rc, rsp.AtExeResult)) return;
    s.field("done", what + " at " + std::to_string(w.index), true).json("index", long{w.index});
}

void run_phonebook(const Invocation& inv, Report& report) {
    const std::string action = inv.arg(0);
    const size_t n = inv.args.size();
    if (!(action == "list" && n == 1) && !(action == "write" && n == 4) && !(action == "delete" && n == 2))
        throw UsageError("phonebook needs one of: list, write INDEX NUMBER NAME, delete INDEX");
    StCpbwPara w{};
    if (action != "list") w.index = index_arg(inv, 1);
    if (action == "write") {
        const std::string number = inv.arg(2), name = inv.arg(3);
        if (number.empty() || number.size() > 40 ||
            number.find_first_not_of("+0123456789*#") != std::string::npos || number.find('+', 1) != std::string::npos)
            throw UsageError("NUMBER must be up to 40 digits, '*' or '#', with '+' in front for an international one");
        const bool ascii = std::all_of(name.begin(), name.end(), [](char c) { return c >= 0x20 && c < 0x7f; });
        const std::string bytes = ascii ? name : smscodec::ucs2_encode(name);
        if (name.empty() || bytes.size() > sizeof w.text) throw UsageError("NAME must be 1 to 512 bytes as written");
        w.cmdType = 1;
        w.phoneType = number.starts_with('+') ? smscodec::kTypeInternational : smscodec::kTypeNational;
        w.coding = ascii ? 0 : 2;
        w.nameLength = static_cast<int>(bytes.size());
        std::memcpy(w.phonenumber, number.data(), number.size());
        std::memcpy(w.text, bytes.data(), bytes.size());
    } else if (action == "delete") {
        w.cmdType = 2;
    }
    select_store(inv, report);
    if (action == "list") run_list(report);
    else write_entry(report, w, action == "write" ? "written" : "deleted");
}

}  // namespace

ATCTL_SUBCOMMAND({.name = "phonebook",
                  .summary = "phonebook entries: list, write, delete",
                  .usage = "list | write INDEX NUMBER NAME | delete INDEX [--store MEM]",
                  .help = "  list                       the entries of the store (+CPBS?, ^CPBR=?, ^CPBR)\n"
                          "  write INDEX NUMBER NAME    writes an entry (^CPBW); a name that is not plain\n"
                          "                             ASCII goes as UCS-2\n"
                          "  delete INDEX               empties an entry (^CPBW)\n"
                          "  --store MEM                selects the store first (SM, ME, ON)\n"
                          "write, delete and --store change the modem's state.\n",
                  .order = 62,
                  .options = "--store MEM",
                  .min_args = 1,
                  .max_args = 4,
                  .run = run_phonebook});

}  // namespace atctl
