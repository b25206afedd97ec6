// sms.cpp - what the simulated modem's message stores and phonebook do beyond what scenario rules
// can say: stores chosen by the selected memory, reading and listing by status in PDU or text
// mode, a message sent to the modem's own number coming back as a new message with its "+CMTI"
// report, a store that fills up raising "^SMMEMFULL", the vendor's text forms with their raw
// bodies, and phonebook names that may be raw UCS-2.
//
// Messages are kept as the PDU the modem would store (service-centre part first), with their
// status and TPDU length, in the stores "sm" and "me" that sms.scn declares. The variables mem1,
// mem2 and mem3 name the memories for reading and deleting, for writing and sending, and for
// received messages.
#include <algorithm>
#include <cstdio>
#include <ctime>
#include <map>
#include <optional>
#include <string>

#include "scenario.h"
#include "smscodec.h"

namespace sim {
namespace {

using Record = Engine::Record;

// A field of a stored record, or `fallback` when the record has none.
std::string field(const Record& rec, const char* name, const char* fallback = "") {
    const auto it = rec.find(name);
    return it == rec.end() ? fallback : it->second;
}

std::string store_of(const std::string& mem) { return mem == "ME" ? "me" : "sm"; }

long number_of(const std::string& s, long fallback = -1) {
    char* end = nullptr;
    const long v = std::strtol(s.c_str(), &end, 10);
    return end != s.c_str() && *end == '\0' ? v : fallback;
}

long arg_number(const Call& c, size_t i, long fallback = -1) {
    return i < c.args.size() ? number_of(c.args[i], fallback) : fallback;
}

long capacity(Engine& e, const std::string& store) { return number_of(e.expand("${" + store + ".size}"), 0); }

long used(Engine& e, const std::string& store) {
    const auto* s = e.slots(store);
    return s ? static_cast<long>(s->size()) : 0;
}

const char* status_text(long stat) {
    static const char* const kNames[] = {"REC UNREAD", "REC READ", "STO UNSENT", "STO SENT"};
    return stat >= 0 && stat <= 3 ? kNames[stat] : "ALL";
}

long status_of(const std::string& s) {
    for (long i = 0; i <= 3; ++i)
        if (s == status_text(i)) return i;
    return s == "ALL" ? 4 : number_of(s);
}

std::string two(int v) {
    char b[8];
    std::snprintf(b, sizeof b, "%02d", v);
    return b;
}

std::string time_text(const smscodec::Timestamp& t) {
    char zone[8];
    std::snprintf(zone, sizeof zone, "%+03d", t.zone);
    return two(t.year % 100) + "/" + two(t.month) + "/" + two(t.day) + "," + two(t.hour) + ":" + two(t.minute) + ":" +
           two(t.second) + zone;
}

// The lines of one stored message as +CMGR or +CMGL show it in the selected mode.
void show(Engine& e, Response& r, const char* name, long key, const Record& rec, bool listing) {
    const std::string stat = field(rec, "stat", "0");
    const std::string pdu = field(rec, "pdu");
    const std::string prefix = std::string(name) + ": " + (listing ? std::to_string(key) + "," : "");
    if (e.var("cmgf") != "1") {
        r.lines.push_back(prefix + stat + ",," + field(rec, "len", "0"));
        r.lines.push_back(pdu);
        return;
    }
    const smscodec::Decoded d = smscodec::decode(pdu);
    const smscodec::Message m = d.message.value_or(smscodec::Message{});
    std::string head = prefix + "\"" + status_text(number_of(stat)) + "\",\"" + m.address.text + "\",";
    if (m.kind == smscodec::Kind::deliver) head += ",\"" + time_text(m.time) + "\"";
    r.lines.push_back(head);
    r.lines.push_back(m.coding == smscodec::Coding::ucs2 ? smscodec::hex_encode(smscodec::ucs2_encode(m.text)) : m.text);
}

void mark_read(Engine& e, const std::string& store, long key, const Record& rec) {
    if (field(rec, "stat") == "0") e.put(store, key, {{"stat", "1"}});
}

// Stores a message in a memory; nothing when it is full. Raises "^SMMEMFULL" when the message
// took the last slot.
std::optional<long> store_message(Engine& e, Response* r, const std::string& mem, const Record& rec, int after_ms) {
    const std::string store = store_of(mem);
    const std::optional<long> key = e.put(store, -1, rec);
    if (r && (!key || used(e, store) >= capacity(e, store)))
        r->after.emplace_back(after_ms, "^SMMEMFULL: \"" + mem + "\"");
    return key;
}

smscodec::Timestamp now_stamp(Engine& e) {
    const int zone = static_cast<int>(number_of(e.var("sms_zone"), 0));
    const std::time_t t = std::time(nullptr) + zone * 15 * 60;
    std::tm tm{};
    gmtime_r(&t, &tm);
    return {tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec, zone};
}

// A SUBMIT to the modem's own number arrives back as a DELIVER in the memory for received
// messages, announced by "+CMTI" (or shown whole by "+CMT", as the indication setting says).
void deliver_if_own(Engine& e, Response* r, const std::string& submit_pdu) {
    const smscodec::Decoded d = smscodec::decode(submit_pdu);
    if (!r || !d.message || d.message->kind != smscodec::Kind::submit) return;
    const std::string own = e.var("own_number");
    if (d.message->address.text != own && "+" + d.message->address.text != own) return;
    smscodec::Message m = *d.message;
    m.kind = smscodec::Kind::deliver;
    m.smsc = smscodec::address_of(e.var("smsc"));
    m.address = smscodec::address_of(own);
    m.time = now_stamp(e);
    m.status_report = false;
    const std::optional<smscodec::Pdu> pdu = smscodec::encode(m);
    if (!pdu) return;
    const int delay = static_cast<int>(number_of(e.var("sms_delivery_ms"), 1000));
    const std::string mt = e.var("cnmi_mt");
    if (mt == "2") {
        r->after.emplace_back(delay, "+CMT: ," + std::to_string(pdu->length) + "\n" + pdu->hex);
        return;
    }
    const std::string mem = e.var("mem3");
    const std::optional<long> key =
        store_message(e, r, mem, {{"stat", "0"}, {"len", std::to_string(pdu->length)}, {"pdu", pdu->hex}}, delay);
    if (key && mt != "0") r->after.emplace_back(delay, "+CMTI: \"" + mem + "\"," + std::to_string(*key));
}

// A message given as text (text mode, or the vendor's text forms) as the PDU the modem keeps.
std::optional<smscodec::Pdu> text_pdu(Engine& e, const std::string& number, const std::string& text, long stat) {
    smscodec::Message m;
    m.kind = stat <= 1 ? smscodec::Kind::deliver : smscodec::Kind::submit;
    m.address = smscodec::address_of(number);
    if (m.kind == smscodec::Kind::deliver) m.smsc = smscodec::address_of(e.var("smsc")), m.time = now_stamp(e);
    m.coding = smscodec::fits_gsm7(text) ? smscodec::Coding::gsm7 : smscodec::Coding::ucs2;
    m.dcs = m.coding == smscodec::Coding::ucs2 ? 8 : 0;
    m.text = text;
    return smscodec::encode(m);
}

// The raw body of a vendor text form: UCS-2 (big-endian, up to a NUL character) or plain bytes
// (up to the first NUL), as UTF-8.
std::string body_text(const std::string& body, bool ucs2) {
    if (!ucs2) return body.substr(0, body.find('\0'));
    size_t n = 0;
    while (n + 1 < body.size() && (body[n] != '\0' || body[n + 1] != '\0')) n += 2;
    return smscodec::ucs2_decode(body.substr(0, n));
}

// Stores a message into the writing memory and answers "NAME: index", or the error a full store
// gives.
void write_stored(Call& call, const char* name, long stat, const std::string& len, const std::string& pdu) {
    const std::optional<long> key = store_message(call.engine, call.response, call.engine.var("mem2"),
                                                  {{"stat", std::to_string(stat)}, {"len", len}, {"pdu", pdu}}, 100);
    if (!key) call.response->final = "+CMS ERROR: 322";
    else call.response->lines.push_back(std::string(name) + ": " + std::to_string(*key));
}

// A text written as a message: a status outside 0..3 is taken as unsent.
void write_text(Call& call, const char* name, const std::string& number, const std::string& text, long stat) {
    if (stat < 0 || stat > 3) stat = 2;
    const std::optional<smscodec::Pdu> pdu = text_pdu(call.engine, number, text, stat);
    if (!pdu) call.response->final = "+CMS ERROR: 304";
    else write_stored(call, name, stat, std::to_string(pdu->length), pdu->hex);
}

// The message at `key` of a store, or nothing with "+CMS ERROR: 321" (invalid index) as the answer.
std::optional<Record> message_at(Call& call, const std::string& store, long key) {
    const auto* slots = call.engine.slots(store);
    if (slots && slots->count(key)) return slots->at(key);
    if (call.response) call.response->final = "+CMS ERROR: 321";
    return std::nullopt;
}

// The next message reference, 0 to 255.
long next_reference(Engine& e) {
    const long mr = (number_of(e.var("mr"), 0) + 1) % 256;
    e.set_var("mr", std::to_string(mr));
    return mr;
}

}  // namespace

// ---- Stores --------------------------------------------------------------------------------------

namespace {

// "SM",used,total for the three selected memories, or only the numbers.
std::string memories(Engine& e, bool counts) {
    std::string out;
    for (const char* v : {"mem1", "mem2", "mem3"}) {
        const std::string mem = e.var(v), store = store_of(mem);
        if (!out.empty()) out += ",";
        if (!counts) out += "\"" + mem + "\",";
        out += std::to_string(used(e, store)) + "," + std::to_string(capacity(e, store));
    }
    return out;
}

}  // namespace

SIM_FUNCTION(sms_cpms) { return memories(call.engine, false); }

// Selects the memories the rule captured ($2 to $4; a name not given keeps its memory) and gives
// their counts.
SIM_FUNCTION(sms_select) {
    const char* vars[] = {"mem1", "mem2", "mem3"};
    for (size_t i = 0; i < 3; ++i)
        if (i + 2 < call.caps.size() && !call.caps[i + 2].empty()) call.engine.set_var(vars[i], call.caps[i + 2]);
    return memories(call.engine, true);
}

// The type of the service centre's address: 145 international, 129 otherwise.
SIM_FUNCTION(sms_toa) { return call.engine.var("smsc").starts_with('+') ? "145" : "129"; }

// The indexes of the reading memory, comma-separated.
SIM_FUNCTION(sms_keys) { return call.engine.expand("${" + store_of(call.engine.var("mem1")) + ".keys}"); }

// ---- Reading, listing, deleting --------------------------------------------------------------

// sms_read INDEX: the message at INDEX of the reading memory, marked read; +CMS ERROR 321 when
// there is none.
SIM_FUNCTION(sms_read) {
    if (!call.response) return {};
    const std::string store = store_of(call.engine.var("mem1"));
    const long key = arg_number(call, 0);
    const std::optional<Record> found = message_at(call, store, key);
    if (!found) return {};
    const Record& rec = *found;
    show(call.engine, *call.response, "+CMGR", key, rec, false);
    mark_read(call.engine, store, key, rec);
    return {};
}

// sms_list: every message of the reading memory with the status the rule captured (a number in
// PDU mode, "REC UNREAD" and so on in text mode; 4 or "ALL" for all; unread when none is given),
// unread ones marked read.
SIM_FUNCTION(sms_list) {
    if (!call.response) return {};
    std::string want = call.caps.size() > 1 ? call.caps[1] : "";
    if (want.size() >= 2 && want.front() == '"') want = want.substr(1, want.size() - 2);
    const long stat = want.empty() ? 0 : status_of(want);
    if (stat < 0 || stat > 4) {
        call.response->final = "+CMS ERROR: 302";
        return {};
    }
    const std::string store = store_of(call.engine.var("mem1"));
    const auto* slots = call.engine.slots(store);
    if (!slots) return {};
    const std::map<long, Record> copy = *slots;
    for (const auto& [key, rec] : copy) {
        if (stat != 4 && number_of(field(rec, "stat")) != stat) continue;
        show(call.engine, *call.response, "+CMGL", key, rec, true);
        mark_read(call.engine, store, key, rec);
    }
    return {};
}

// sms_mark INDEX: marks a message of the reading memory read; +CMS ERROR 321 when there is none.
SIM_FUNCTION(sms_mark) {
    const std::string store = store_of(call.engine.var("mem1"));
    const long key = arg_number(call, 0);
    if (const std::optional<Record> found = message_at(call, store, key)) mark_read(call.engine, store, key, *found);
    return {};
}

// sms_delete INDEX FLAG: flag 0 the one message, 1 all read, 2 read and sent, 3 all but unread,
// 4 all, in the reading memory.
SIM_FUNCTION(sms_delete) {
    const std::string store = store_of(call.engine.var("mem1"));
    const long key = arg_number(call, 0), flag = arg_number(call, 1, 0);
    const auto* slots = call.engine.slots(store);
    if (!slots) return {};
    const std::map<long, Record> copy = *slots;
    for (const auto& [k, rec] : copy) {
        const long stat = number_of(field(rec, "stat"));
        const bool gone =
            flag == 0 ? k == key : flag == 4 || stat == 1 || (flag >= 2 && stat == 3) || (flag == 3 && stat == 2);
        if (gone) call.engine.erase(store, k);
    }
    return {};
}

// ---- Writing and sending -------------------------------------------------------------------------

// sms_write LENGTH STAT: the PDU body into the writing memory; +CMS ERROR 322 when it is full.
SIM_FUNCTION(sms_write) {
    if (!call.response) return {};
    const long stat = call.args.size() > 1 ? number_of(call.args[1], 2) : 2;
    write_stored(call, "+CMGW", stat, call.args.empty() ? "0" : call.args[0], call.body);
    return {};
}

// sms_write_text: a text-mode write of the body text to the number the rule captured ($1), with
// the status it captured ($2, "STO UNSENT" when none).
SIM_FUNCTION(sms_write_text) {
    if (!call.response || call.caps.size() < 3) return {};
    write_text(call, "+CMGW", call.caps[1], call.body, call.caps[2].empty() ? 2 : status_of(call.caps[2]));
    return {};
}

// sms_send: the PDU body goes out with the next message reference; one to the own number
// comes back.
SIM_FUNCTION(sms_send) {
    if (!call.response) return {};
    const long mr = next_reference(call.engine);
    call.response->lines.push_back("+CMGS: " + std::to_string(mr));
    deliver_if_own(call.engine, call.response, call.body);
    return {};
}

// sms_send_text: a text-mode send of the body text to the number the rule captured.
SIM_FUNCTION(sms_send_text) {
    if (!call.response || call.caps.size() < 2) return {};
    const std::optional<smscodec::Pdu> pdu = text_pdu(call.engine, call.caps[1], call.body, 2);
    if (!pdu) {
        call.response->final = "+CMS ERROR: 304";
        return {};
    }
    const long mr = next_reference(call.engine);
    call.response->lines.push_back("+CMGS: " + std::to_string(mr));
    deliver_if_own(call.engine, call.response, pdu->hex);
    return {};
}

// sms_send_stored INDEX [NUMBER]: a message of the writing memory goes out (to NUMBER when given);
// +CMS ERROR 321 when there is none.
SIM_FUNCTION(sms_send_stored) {
    if (!call.response) return {};
    const std::string store = store_of(call.engine.var("mem2"));
    const long key = arg_number(call, 0);
    const std::optional<Record> found = message_at(call, store, key);
    if (!found) return {};
    const Record& rec = *found;
    std::string pdu = field(rec, "pdu");
    if (call.args.size() > 1 && !call.args[1].empty()) {
        // A destination given on the line replaces the stored one.
        const smscodec::Decoded d = smscodec::decode(pdu);
        if (d.message && d.message->kind == smscodec::Kind::submit) {
            smscodec::Message m = *d.message;
            m.address = smscodec::address_of(call.args[1]);
            if (const auto again = smscodec::encode(m)) pdu = again->hex;
        }
    }
    const long mr = next_reference(call.engine);
    if (field(rec, "stat") == "2") call.engine.put(store, key, {{"stat", "3"}});
    call.response->lines.push_back("+CMSS: " + std::to_string(mr));
    deliver_if_own(call.engine, call.response, pdu);
    return {};
}

// ---- The vendor's text forms ---------------------------------------------------------------

// sms_hread INDEX MODE: "^HCMGR" header and the body as text (plain bytes for the 7-bit
// alphabet, format 0) or raw UCS-2 (format 6); MODE 0 marks an unread message read.
SIM_FUNCTION(sms_hread) {
    if (!call.response) return {};
    const std::string store = store_of(call.engine.var("mem1"));
    const long key = arg_number(call, 0);
    const std::optional<Record> found = message_at(call, store, key);
    if (!found) return {};
    const Record& rec = *found;
    const smscodec::Decoded d = smscodec::decode(field(rec, "pdu"));
    const smscodec::Message m = d.message.value_or(smscodec::Message{});
    const bool ascii = std::all_of(m.text.begin(), m.text.end(), [](char c) { return c > 0; });
    const bool ucs2 = m.coding == smscodec::Coding::ucs2 || !ascii;
    const std::string body = ucs2 ? smscodec::ucs2_encode(m.text) : m.text;
    const smscodec::Timestamp& t = m.time;
    char head[160];
    std::snprintf(head, sizeof head, "^HCMGR: \"%s\",%d,%d,%d,%d,%d,%d,0,%d,%zu,0,0,0,%s", m.address.text.c_str(),
                  t.year, t.month, t.day, t.hour, t.minute, t.second, ucs2 ? 6 : 0, body.size(),
                  field(rec, "stat", "0").c_str());
    call.response->lines.push_back(head);
    call.response->lines.push_back(body);
    if (arg_number(call, 1, 0) == 0) mark_read(call.engine, store, key, rec);
    return {};
}

// sms_hwrite: "^HCMGW" (captures: number, tooa, stat, ptr, type, format, ...) with its 162-byte
// body: format 6 is UCS-2, others plain bytes.
SIM_FUNCTION(sms_hwrite) {
    if (!call.response || call.caps.size() < 7) return {};
    write_text(call, "^HCMGW", call.caps[1], body_text(call.body, call.caps[6] == "6"), number_of(call.caps[3], 2));
    return {};
}

// sms_hsend: "^HCMGS" (captures: number) with its 256-byte body, UCS-2 when the sending settings
// say format 6; the outcome follows as "^HCMGSS: mr". The body as received is kept in the
// variable sms_last_body (hexadecimal), for a look at what reached the modem.
SIM_FUNCTION(sms_hsend) {
    if (!call.response || call.caps.size() < 2) return {};
    call.engine.set_var("sms_last_body", smscodec::hex_encode(call.body));
    const std::string text = body_text(call.body, call.engine.var("hsmsss_fmt") == "6");
    const long mr = next_reference(call.engine);
    call.response->after.emplace_back(300, "^HCMGSS: " + std::to_string(mr));
    if (const std::optional<smscodec::Pdu> pdu = text_pdu(call.engine, call.caps[1], text, 2))
        deliver_if_own(call.engine, call.response, pdu->hex);
    return {};
}

// ---- Phonebook -----------------------------------------------------------------------------

// pb_read INDEX: one entry of the selected phonebook, "+CME ERROR: 22" when the slot is empty.
// A name written as raw UCS-2 (coding 2) is answered as hexadecimal UCS-2 (coding 1), so that
// the line carries no NUL.
SIM_FUNCTION(pb_read) {
    if (!call.response) return {};
    const std::string store = "pb_" + call.engine.var("pbs");
    const long key = arg_number(call, 0);
    const auto* slots = call.engine.slots(store);
    if (!slots || !slots->count(key)) {
        call.response->final = "+CME ERROR: 22";
        return {};
    }
    const Record& rec = slots->at(key);
    std::string name = field(rec, "name"), coding = field(rec, "coding", "0");
    if (coding == "2") name = smscodec::hex_encode(name), coding = "1";
    call.response->lines.push_back("^CPBR: " + std::to_string(key) + ",\"" + field(rec, "number") + "\"," + field(rec, "type", "129") +
                                   ",\"" + name + "\"," + coding);
    return {};
}

// pb_write: "^CPBW" (captures: index, number, type, name bytes, coding) into the selected
// phonebook; "+CME ERROR: 21" for an index outside it.
SIM_FUNCTION(pb_write) {
    if (!call.response || call.caps.size() < 6) return {};
    const std::string store = "pb_" + call.engine.var("pbs");
    const Record entry = {{"number", call.caps[2]}, {"type", call.caps[3]}, {"name", call.caps[4]}, {"coding", call.caps[5]}};
    if (!call.engine.put(store, number_of(call.caps[1]), entry))
        call.response->final = "+CME ERROR: 21";
    return {};
}

// pb_delete INDEX: empties a slot of the selected phonebook (an empty one stays empty).
SIM_FUNCTION(pb_delete) {
    call.engine.erase("pb_" + call.engine.var("pbs"), arg_number(call, 0));
    return {};
}

}  // namespace sim
