// radio.cpp - `atctl radio`: the radio configuration (^SYSCFGEX), a change of it, and what the
// modem offers (the test forms of ^SYSCFG and ^SYSCFGEX) in words.
//
// Band masks are the modem's own hexadecimal texts: they are passed through, and the modem's
// names for them come from the test forms. A change reads the configuration first and writes it
// back whole with the asked parts replaced, since the set form takes every value.
#include <algorithm>
#include <array>
#include <string>
#include <string_view>

#include "cli.h"
#include "names.h"

namespace atctl {
namespace {

struct Tech {
    std::string_view code, word, name;
};

// The two-digit codes of an acquisition order, most preferred first.
constexpr std::array kTechs{Tech{"01", "gsm", "GSM"}, Tech{"02", "wcdma", "WCDMA"}, Tech{"03", "lte", "LTE"}};

constexpr std::array kRoam{Name{"0", "not allowed"}, Name{"1", "allowed"}, Name{"2", "no change"}, Name{"3", "no change"}};
constexpr std::array kDomain{Name{"0", "CS only"}, Name{"1", "PS only"}, Name{"2", "CS and PS"}, Name{"3", "any"},
                             Name{"4", "no change"}};
constexpr std::array kSyscfgModes{Name{"2", "automatic"}, Name{"13", "GSM only"}, Name{"14", "WCDMA only"},
                                  Name{"16", "no change"}};
constexpr std::array kSyscfgOrders{Name{"0", "automatic"}, Name{"1", "GSM first"}, Name{"2", "WCDMA first"},
                                   Name{"3", "no change"}};

// "LTE, WCDMA, GSM (030201)", "automatic (00)", or the code alone when it is not one.
std::string order_text(const std::string& acq) {
    if (acq == "00") return "automatic (00)";
    if (acq == "99") return "no change (99)";
    if (acq.empty() || acq.size() % 2) return acq.empty() ? "none" : acq;
    std::string out;
    for (size_t i = 0; i < acq.size(); i += 2) {
        const Tech* t = nullptr;
        for (const Tech& k : kTechs)
            if (acq.compare(i, 2, k.code) == 0) t = &k;
        if (t == nullptr) return acq;
        out += (out.empty() ? "" : ", ") + std::string(t->name);
    }
    return out + " (" + acq + ")";
}

// --mode: "auto", or technologies joined by commas, most preferred first ("lte,wcdma").
std::string order_code(const std::string& mode) {
    if (mode == "auto") return "00";
    std::string code;
    size_t start = 0;
    while (start <= mode.size()) {
        const size_t end = std::min(mode.find(',', start), mode.size());
        const std::string word = mode.substr(start, end - start);
        const Tech* t = nullptr;
        for (const Tech& k : kTechs)
            if (word == k.word) t = &k;
        if (t == nullptr || code.find(t->code) != std::string::npos)
            throw UsageError("--mode takes auto, or lte, wcdma and gsm joined by commas, most preferred first");
        code += t->code;
        start = end + 1;
    }
    return code;
}

// A band mask as the set form carries it: hexadecimal digits that fit the record's field.
std::string mask(const Invocation& inv, std::string_view option) {
    const std::string m = inv.option(option).value_or("");
    if (m.empty() || m.size() > 16 || m.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
        throw UsageError(std::string(option) + " needs a hexadecimal band mask of 1 to 16 digits, such as 3FFFFFFF");
    return m;
}

void read_config(Report& report) {
    Section& s = report.section("syscfgex", "radio configuration (^SYSCFGEX?)", "radio");
    if (s.skipped()) return;
    NetConfigurationTypeEx rec{};
    rec.AtExeResult = kUnset;
    const int rc = AT_SysConfigEx(AT_CHECK_VALUE, &rec);
    if (!s.check(rc, rec.AtExeResult)) return;
    const std::string acq = field_text(rec.Acqorder), band = field_text(rec.Band), lte = field_text(rec.lteBand);
    const std::string roam = field_text(rec.Roam), domain = field_text(rec.Srvdomain);
    s.field("order", order_text(acq), true).field("bands", band, true).field("lte bands", lte);
    s.field("roaming", named(kRoam, roam), true).field("domain", named(kDomain, domain));
    s.json("acqorder", acq).json("acqorder_text", order_text(acq)).json("band", band).json("lteband", lte);
    s.json("roam", roam).json("srvdomain", domain);
}

void set_config(const Invocation& inv, Report& report) {
    if (!inv.has("--mode") && !inv.has("--bands") && !inv.has("--lte-bands") && !inv.has("--roaming"))
        throw UsageError("set needs at least one of --mode, --bands, --lte-bands and --roaming");
    const std::string order = inv.has("--mode") ? order_code(*inv.option("--mode")) : "";
    const std::string bands = inv.has("--bands") ? mask(inv, "--bands") : "";
    const std::string lte = inv.has("--lte-bands") ? mask(inv, "--lte-bands") : "";
    const std::string roaming = inv.option("--roaming").value_or("");
    if (inv.has("--roaming") && roaming != "on" && roaming != "off") throw UsageError("--roaming takes on or off");

    NetConfigurationTypeEx rec{};
    rec.AtExeResult = kUnset;
    if (AT_SysConfigEx(AT_CHECK_VALUE, &rec) != 0 || rec.AtExeResult != AT_CMD_RES_SUCCESS)
        throw Failure("cannot read the radio configuration that the change starts from");
    Section& s = report.section("syscfgex_set", "radio configuration change (^SYSCFGEX=)", "set");
    std::string asked;
    auto replace = [&](char* field, size_t size, const std::string& value, const std::string& what) {
        if (value.empty()) return;
        std::fill(field, field + size, '\0');
        value.copy(field, size - 1);
        asked += (asked.empty() ? "" : ", ") + what;
    };
    replace(rec.Acqorder, sizeof rec.Acqorder, order, "order " + order_text(order));
    replace(rec.Band, sizeof rec.Band, bands, "bands " + bands);
    replace(rec.lteBand, sizeof rec.lteBand, lte, "lte bands " + lte);
    replace(rec.Roam, sizeof rec.Roam, roaming.empty() ? "" : roaming == "on" ? "1" : "0", "roaming " + roaming);
    rec.AtExeResult = kUnset;
    const int rc = AT_SysConfigEx(AT_SET_VALUE, &rec);
    s.field("asked", asked, true);
    s.json("acqorder", field_text(rec.Acqorder)).json("band", field_text(rec.Band)).json("lteband", field_text(rec.lteBand));
    s.json("roam", field_text(rec.Roam)).json("srvdomain", field_text(rec.Srvdomain));
    if (!s.check(rc, rec.AtExeResult)) return;
    read_config(report);
}

// One field per band for people; "<prefix>num_<i>" and "<prefix>name_<i>" for scripts.
void band_fields(Section& s, const BAND_ITEM* bands, int count, const std::string& prefix) {
    s.json(prefix + "_num", static_cast<long>(count));
    for (int i = 0; i < count; ++i) {
        const std::string num = field_text(bands[i].bandnum), name = field_text(bands[i].bandname);
        s.field(num.empty() ? "?" : num, name);
        s.json(prefix + "num_" + std::to_string(i + 1), num).json(prefix + "name_" + std::to_string(i + 1), name);
    }
}

void list_syscfg(Report& report) {
    Section& s = report.section("syscfg_test", "what ^SYSCFG offers (^SYSCFG=?)", "syscfg");
    if (s.skipped()) return;
    SYSCFG_INFO info{};
    if (!s.check(AT_Syscfg_test(&info))) return;
    std::string modes, orders;
    s.json("mode_num", static_cast<long>(info.mode_num));
    for (int i = 0; i < info.mode_num; ++i) {
        modes += (i ? ", " : "") + named(kSyscfgModes, std::to_string(info.mode[i]));
        s.json("mode_" + std::to_string(i + 1), static_cast<long>(info.mode[i]));
    }
    s.json("acqorder_num", static_cast<long>(info.acqorder_num));
    for (int i = 0; i < info.acqorder_num; ++i) {
        orders += (i ? ", " : "") + named(kSyscfgOrders, std::to_string(info.acqorder[i]));
        s.json("acqorder_" + std::to_string(i + 1), static_cast<long>(info.acqorder[i]));
    }
    s.field("modes", modes, true).field("orders", orders);
    band_fields(s, info.band, info.band_num, "band");
}

void list_syscfgex(Report& report) {
    Section& s = report.section("syscfgex_test", "what ^SYSCFGEX offers (^SYSCFGEX=?)", "syscfgex");
    if (s.skipped()) return;
    SYSCFGEX_INFO info{};
    info.AtExeResult = kUnset;
    const int rc = AT_Syscfgex_test(&info);
    if (!s.check(rc, info.AtExeResult)) return;
    std::string orders;
    s.json("acqorder_num", static_cast<long>(info.acqorder_num));
    for (int i = 0; i < info.acqorder_num; ++i) {
        const std::string code = field_text(info.acqorder[i]);
        orders += (i ? ", " : "") + order_text(code);
        s.json("acqorder_" + std::to_string(i + 1), code);
    }
    s.field("orders", orders, true);
    // The library keeps the first band pair of this form only; ^SYSCFG=? lists them all.
    band_fields(s, info.band, info.band_num, "band");
    band_fields(s, info.LTEband, info.LTEband_num, "LTEband");
}

}  // namespace

void run_radio(const Invocation& inv, Report& report) {
    const std::string action = inv.args.empty() ? "get" : inv.arg(0);
    const bool options = inv.has("--mode") || inv.has("--bands") || inv.has("--lte-bands") || inv.has("--roaming");
    if (action != "set" && options) throw UsageError("--mode, --bands, --lte-bands and --roaming go with 'set'");
    if (action == "get") {
        read_config(report);
    } else if (action == "set") {
        set_config(inv, report);
    } else if (action == "bands") {
        list_syscfg(report);
        list_syscfgex(report);
    } else {
        throw UsageError("unknown action '" + action + "': get, set or bands");
    }
}

ATCTL_SUBCOMMAND({.name = "radio",
                  .summary = "network modes, bands and roaming: read, change, what is offered",
                  .usage = "[get | set [--mode M] [--bands MASK] [--lte-bands MASK] [--roaming on|off] | bands]",
                  .help = "  get              the configuration (^SYSCFGEX?); the default\n"
                          "  set              changes the parts given and writes the configuration back,\n"
                          "                   then reads it again; changes the modem's state:\n"
                          "    --mode M         auto, or lte, wcdma and gsm joined by commas, most\n"
                          "                     preferred first (lte,wcdma)\n"
                          "    --bands MASK     GSM/WCDMA band mask, hexadecimal, as the modem codes it\n"
                          "    --lte-bands MASK LTE band mask, hexadecimal\n"
                          "    --roaming on|off\n"
                          "  bands            what the modem offers (^SYSCFG=? and ^SYSCFGEX=?), in words\n",
                  .order = 26,
                  .options = "--mode M --bands MASK --lte-bands MASK --roaming R",
                  .max_args = 1,
                  .run = run_radio});

}  // namespace atctl
