// sms.cpp - `atctl sms`: the message stores, reading, sending and deleting short messages.
//
// The library moves PDUs; turning them into text and back is this tool's business (the codec in
// smscodec/): GSM 7-bit with its extension table or UCS-2, long texts split into concatenated
// parts on send and put back together on read, numbers with their type, time stamps with zone.
#include <algorithm>
#include <cstring>
#include <iostream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "cli.h"
#include "smscodec.h"

namespace atctl {
namespace {

std::string status_text(int state) {
    static const char* const kNames[] = {"unread", "read", "unsent", "sent"};
    return state >= 0 && state <= 3 ? kNames[state] : "status " + std::to_string(state);
}

std::string number_text(const smscodec::Address& a) {
    const char* kind = a.type == smscodec::kTypeInternational ? "international"
                       : a.type == smscodec::kTypeAlphanumeric ? "name"
                       : a.type == smscodec::kTypeNational    ? "national"
                                                                : nullptr;
    return a.text + " (" + (kind ? kind : "type " + std::to_string(a.type)) + ")";
}

std::string two(int v) { return (v < 10 ? "0" : "") + std::to_string(v); }

// "2024-03-29T15:16:59+02:00": local time of the service centre and its offset.
std::string time_text(const smscodec::Timestamp& t) {
    const int minutes = (t.zone < 0 ? -t.zone : t.zone) * 15;
    return std::to_string(t.year) + "-" + two(t.month) + "-" + two(t.day) + "T" + two(t.hour) + ":" + two(t.minute) +
           ":" + two(t.second) + (t.zone < 0 ? "-" : "+") + two(minutes / 60) + ":" + two(minutes % 60);
}

const char* coding_text(smscodec::Coding c) {
    return c == smscodec::Coding::ucs2 ? "ucs2" : c == smscodec::Coding::data8 ? "8bit" : "gsm7";
}

struct Stored {
    int index;
    int state;
    std::string pdu;
    smscodec::Decoded decoded;
};

// Reads one message; a failed read gets its own section.
std::optional<Stored> read_one(Report& report, int index) {
    StPerSms rec{};
    rec.index = index;
    const int rc = AT_Cmgr(&rec);
    if (rc != 0) {
        const std::string at = std::to_string(index);
        Section& s = report.section("sms_" + at, "message " + at + " (+CMGR)", "sms");
        if (!s.skipped()) s.check(rc);
        return std::nullopt;
    }
    int state = 0;  // the modem's number as it is, which need not be one of the enum's
    std::memcpy(&state, &rec.state, sizeof state);
    Stored m{index, state, field_text(rec.pdu), {}};
    m.decoded = smscodec::decode(m.pdu);
    return m;
}

// One section per message, its concatenated parts put back together.
void show_messages(Report& report, const std::vector<Stored>& stored, std::optional<int> only) {
    std::vector<smscodec::Message> messages;
    std::vector<size_t> origin;  // stored entry of each decoded message
    for (size_t i = 0; i < stored.size(); ++i) {
        if (stored[i].decoded.message) {
            messages.push_back(*stored[i].decoded.message);
            origin.push_back(i);
            continue;
        }
        if (only && *only != stored[i].index) continue;
        Section& s = report.section("sms_" + std::to_string(stored[i].index),
                                    "message " + std::to_string(stored[i].index) + " (+CMGR)", "sms");
        s.field("status", status_text(stored[i].state)).field("pdu", stored[i].pdu);
        s.field("undecodable", stored[i].decoded.error);
        s.json("index", long{stored[i].index}).json("status", long{stored[i].state}).json("pdu", stored[i].pdu);
        s.json("decode_error", stored[i].decoded.error);
    }
    for (const smscodec::Assembled& a : smscodec::assemble(messages)) {
        std::vector<const Stored*> parts;
        for (size_t p : a.parts) parts.push_back(&stored[origin[p]]);
        if (parts.empty()) continue;
        const auto is_wanted = [&](const Stored* p) { return p->index == *only; };
        if (only && std::none_of(parts.begin(), parts.end(), is_wanted)) continue;
        const smscodec::Message& m = *parts.front()->decoded.message;
        std::string indexes;
        for (const Stored* p : parts) indexes += (indexes.empty() ? "" : ",") + std::to_string(p->index);
        const int first = parts.front()->index;
        Section& s = report.section("sms_" + std::to_string(first), "message " + indexes + " (+CMGR)", "sms");
        const bool received = m.kind == smscodec::Kind::deliver;
        s.field("status", status_text(parts.front()->state), true);
        s.field(received ? "from" : "to", number_text(m.address), true);
        if (received) s.field("time", time_text(m.time));
        if (m.concat)
            s.field("parts", std::to_string(parts.size()) + " of " + std::to_string(m.concat->total) +
                                 (a.complete ? "" : ", incomplete"));
        s.field("text", a.text, true);
        s.json("index", long{first}).json("indexes", indexes).json("status", long{parts.front()->state});
        s.json("status_text", status_text(parts.front()->state)).json("kind", received ? "received" : "to send");
        s.json("number", m.address.text).json("number_type", long{m.address.type});
        s.json("time", received ? JsonValue{time_text(m.time)} : JsonValue{nullptr});
        s.json("zone", received ? JsonValue{long{m.time.zone}} : JsonValue{nullptr});
        s.json("coding", coding_text(m.coding)).json("parts", long{m.concat ? m.concat->total : 1});
        s.json("complete", a.complete).json("text", a.text).json("smsc", m.smsc.text);
    }
}

// The stored indexes, in their own section; nothing when the list failed.
std::optional<std::vector<int>> list_indexes(Report& report) {
    Section& s = report.section("cmgd", "stored messages (+CMGD=?)", "cmgd");
    if (s.skipped()) return std::nullopt;
    StCmgdRsp rsp{};
    rsp.AtExeResult = kUnset;
    const int rc = AT_Cmgd(AT_CHECK_VALUE, nullptr, &rsp);
    std::vector<int> indexes(rsp.index_list, rsp.index_list + (rc == 0 && rsp.index_list ? rsp.length : 0));
    free(rsp.index_list);
    if (!s.check(rc, rsp.AtExeResult)) return std::nullopt;
    std::string text;
    for (int i : indexes) text += (text.empty() ? "" : ",") + std::to_string(i);
    s.field("indexes", text.empty() ? "none" : text, true);
    s.json("count", static_cast<long>(indexes.size())).json("indexes", text);
    return indexes;
}

void run_list(Report& report) {
    const std::optional<std::vector<int>> indexes = list_indexes(report);
    if (!indexes) return;
    std::vector<Stored> stored;
    for (int i : *indexes)
        if (std::optional<Stored> m = read_one(report, i)) stored.push_back(std::move(*m));
    show_messages(report, stored, std::nullopt);
}

void run_read(Report& report, int index) {
    std::optional<Stored> first = read_one(report, index);
    if (!first) return;
    std::vector<Stored> stored{*first};
    const auto& m = first->decoded.message;
    if (m && m->concat && m->concat->total > 1) {
        // The other parts may be anywhere in the store: read them all.
        Report scratch;
        if (const std::optional<std::vector<int>> indexes = list_indexes(scratch))
            for (int i : *indexes)
                if (i != index)
                    if (std::optional<Stored> other = read_one(scratch, i)) stored.push_back(std::move(*other));
    }
    show_messages(report, stored, index);
}

std::string read_text() {
    std::string text((std::istreambuf_iterator<char>(std::cin)), std::istreambuf_iterator<char>());
    if (text.ends_with("\r\n")) text.resize(text.size() - 2);
    else if (text.ends_with('\n')) text.pop_back();
    return text;
}

void run_send(Report& report, const std::string& number) {
    if (smscodec::address_of(number).type == smscodec::kTypeAlphanumeric)
        throw UsageError("'" + number + "' is no number: digits, with '+' in front for an international one");
    const std::string text = read_text();
    if (text.empty()) throw UsageError("no text on standard input");
    std::random_device rd;
    const std::vector<smscodec::Pdu> pdus =
        smscodec::encode_submit(number, text, {.reference = static_cast<int>(rd() & 0xFF)});
    if (pdus.empty()) throw UsageError("the text needs more than 255 parts");
    for (size_t i = 0; i < pdus.size(); ++i) {
        const std::string part = std::to_string(i + 1) + " of " + std::to_string(pdus.size());
        Section& s = report.section("cmgs_" + std::to_string(i + 1), "part " + part + " sent (+CMGS)", "cmgs");
        if (s.skipped()) return;
        if (pdus.size() > 1) progress("sending part " + part);
        StCmgsInfo in{};
        in.length = static_cast<uint16_t>(pdus[i].length);
        std::memcpy(in.pdu, pdus[i].hex.data(), std::min(pdus[i].hex.size(), sizeof in.pdu - 1));
        StCmssRes res{};
        res.AtExeResult = kUnset;
        const int rc = AT_Cmgs(&in, &res);
        if (!s.check(rc, res.AtExeResult)) return;  // the rest would arrive as a fragment
        s.field("reference", std::to_string(res.mr), true);
        s.json("mr", long{res.mr}).json("part", static_cast<long>(i + 1)).json("parts", static_cast<long>(pdus.size()));
    }
}

void run_delete(Report& report, const std::string& which) {
    StCmgdPara para{};
    if (which == "all") {
        para.delflag = 4;
    } else {
        const std::optional<long> n = number(which);
        if (!n || *n < 0 || *n > 65535) throw UsageError("delete needs an index or 'all'");
        para.index = static_cast<int>(*n);
    }
    Section& s = report.section("cmgd", "deleted (+CMGD)", "cmgd");
    if (s.skipped()) return;
    para.AtExeResult = kUnset;
    const int rc = AT_Cmgd(AT_SET_VALUE, &para, nullptr);
    if (!s.check(rc, para.AtExeResult)) return;
    s.field("deleted", which == "all" ? "every message of the store" : "message " + which, true);
    s.json("index", which == "all" ? JsonValue{nullptr} : JsonValue{long{para.index}}).json("all", which == "all");
}

void run_storage(const Invocation& inv, Report& report) {
    if (const std::optional<std::string> mem = inv.option("--select")) {
        if (mem->empty() || mem->size() > 4) throw UsageError("--select needs a store name such as SM or ME");
        StCpms para{};
        for (char* f : {para.mem1, para.mem2, para.mem3}) std::memcpy(f, mem->data(), mem->size());
        Section& s = report.section("cpms_set", "stores selected (+CPMS=)", "cpms");
        if (s.skipped()) return;
        StCpms res{};
        res.AtExeResult = kUnset;
        const int rc = AT_Cpms(AT_SET_VALUE, &para, &res);
        if (!s.check(rc, res.AtExeResult)) return;
        s.field("selected", *mem, true).json("mem", *mem);
    }
    Section& s = report.section("cpms", "message stores (+CPMS?)", "cpms");
    if (s.skipped()) return;
    StCpms rec{};
    rec.AtExeResult = kUnset;
    const int rc = AT_Cpms(AT_CHECK_VALUE, nullptr, &rec);
    if (!s.check(rc, rec.AtExeResult)) return;
    const struct {
        const char* label;
        const char* key;
        const char (&mem)[5];
        const char (&used)[5];
        const char (&total)[5];
    } stores[] = {{"read", "mem1", rec.mem1, rec.used1, rec.total1},
                  {"write", "mem2", rec.mem2, rec.used2, rec.total2},
                  {"receive", "mem3", rec.mem3, rec.used3, rec.total3}};
    const auto count = [](const char (&f)[5]) {
        const std::optional<long> n = number(field_text(f));
        return n ? JsonValue{*n} : JsonValue{nullptr};
    };
    for (const auto& st : stores) {
        const std::string key = st.key, which = key.substr(3);
        const std::string used = field_text(st.used), total = field_text(st.total);
        s.field(st.label, field_text(st.mem) + ", " + used + " of " + total + " used", true);
        s.json(key, field_text(st.mem)).json("used" + which, count(st.used)).json("total" + which, count(st.total));
    }
    Section& t = report.section("cpms_test", "stores supported (+CPMS=?)", "cpms");
    if (t.skipped()) return;
    StCpmsList list{};
    list.AtExeResult = kUnset;
    const int trc = AT_Cpms_test(&list);
    if (!t.check(trc, list.AtExeResult)) return;
    std::string names;
    for (const StCpmsRecord& r : list.record)
        for (const std::string& n : {field_text(r.mem1), field_text(r.mem2)})
            if (!n.empty() && names.find(n) == std::string::npos) names += (names.empty() ? "" : ",") + n;
    t.field("stores", names, true).json("stores", names);
}

void run_sms(const Invocation& inv, Report& report) {
    const std::string action = inv.arg(0);
    const bool two = inv.args.size() == 2;
    if (inv.has("--select") && action != "storage") throw UsageError("--select goes with 'sms storage' only");
    if (action == "list" && !two) return run_list(report);
    if (action == "storage" && !two) return run_storage(inv, report);
    if (action == "read" && two) {
        const std::optional<long> n = number(inv.arg(1));
        if (!n || *n < 0 || *n > 65535) throw UsageError("read needs a store index");
        return run_read(report, static_cast<int>(*n));
    }
    if (action == "send" && two) return run_send(report, inv.arg(1));
    if (action == "delete" && two) return run_delete(report, inv.arg(1));
    throw UsageError("sms needs one of: list, read N, send NUMBER, delete N|all, storage");
}

}  // namespace

ATCTL_SUBCOMMAND({.name = "sms",
                  .summary = "short messages: list, read, send, delete, stores",
                  .usage = "list | read N | send NUMBER | delete N|all | storage [--select MEM]",
                  .help = "  list            every message of the read store (+CMGD=?, then +CMGR each);\n"
                          "                  the parts of a long message are shown as one\n"
                          "  read N          the message at index N, with its other parts if it has any\n"
                          "  send NUMBER     sends the text on standard input (+CMGS), split into parts\n"
                          "                  when long; 7-bit alphabet when it fits, else UCS-2\n"
                          "  delete N|all    deletes one message or every message of the store (+CMGD)\n"
                          "  storage         the selected stores and how full they are (+CPMS)\n"
                          "  --select MEM    with storage: selects MEM (SM, ME) for reading, writing and\n"
                          "                  receiving first\n"
                          "Reading marks unread messages read, as the modem does. send, delete and\n"
                          "--select change the modem's state.\n",
                  .order = 60,
                  .options = "--select MEM",
                  .min_args = 1,
                  .max_args = 2,
                  .run = run_sms});

}  // namespace atctl
