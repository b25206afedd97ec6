// Messaging end to end: the library's functions and atctl against modemsim's built-in default
// through a real atserver. Message stores, reading, sending to the modem's own number and reading
// the message back, the memory-full report, the phonebook with a raw UCS-2 name, USSD sessions.
#include <gtest/gtest.h>

#include <cstring>
#include <thread>

#include "e2e/harness.h"
#include "smscodec.h"
#include "test_atctl.h"

using atctl_test::Json;

namespace {

using namespace std::chrono_literals;

constexpr char kOwn[] = "+15550100123";
constexpr AT_AMSS_RES kOk = AT_CMD_RES_SUCCESS;

template <typename F>
bool eventually(F f, std::chrono::milliseconds limit = 5s) {
    const auto end = std::chrono::steady_clock::now() + limit;
    for (; std::chrono::steady_clock::now() < end; std::this_thread::sleep_for(50ms))
        if (f()) return true;
    return false;
}

std::vector<int> stored_indexes() {
    StCmgdRsp r{};
    if (AT_Cmgd(0, nullptr, &r) != 0) return {};
    std::vector<int> v(r.index_list, r.index_list + r.length);
    free(r.index_list);
    return v;
}

smscodec::Message read_message(int index) {
    StPerSms m{};
    m.index = index;
    EXPECT_EQ(AT_Cmgr(&m), 0) << index;
    const smscodec::Decoded d = smscodec::decode(m.pdu);
    EXPECT_TRUE(d.message) << m.pdu << ": " << d.error;
    return d.message.value_or(smscodec::Message{});
}

// The first PDU of a SUBMIT, as AT_Cmgs and AT_Cmgw take it.
StCmgsInfo submit(const std::string& to, const std::string& text, int state = 2) {
    const std::vector<smscodec::Pdu> pdus = smscodec::encode_submit(to, text);
    StCmgsInfo in{};
    in.length = static_cast<uint16_t>(pdus.at(0).length);
    in.state = state;
    std::memcpy(in.pdu, pdus[0].hex.data(), pdus[0].hex.size());
    return in;
}

std::string cpms(const StCpms& r) {
    return std::string(r.mem1) + "," + r.used1 + "," + r.total1 + "," + r.mem2 + "," + r.used2 + "," + r.mem3 + "," + r.used3;
}

TEST(MessagingE2e, StoresReadingAndDeleting) {
    e2e::Stack stack;
    ASSERT_TRUE(stack.start());
    StCpms res{}, me{};
    ASSERT_EQ(AT_Cpms(0, nullptr, &res), 0);
    EXPECT_EQ(cpms(res), "SM,2,20,SM,2,SM,2");
    std::memcpy(me.mem1, "ME", 3), std::memcpy(me.mem2, "ME", 3), std::memcpy(me.mem3, "SM", 3);
    ASSERT_EQ(AT_Hcpms(1, &me, &res), 0);
    EXPECT_EQ(std::string(res.used1) + "/" + res.total1 + " " + res.used3 + "/" + res.total3, "0/100 2/20");
    EXPECT_EQ(stored_indexes(), std::vector<int>{});
    std::memcpy(me.mem1, "SM", 3), std::memcpy(me.mem2, "SM", 3);
    ASSERT_EQ(AT_Cpms(1, &me, &res), 0);
    StCpmsList list{};
    ASSERT_EQ(AT_Cpms_test(&list), 0);
    EXPECT_EQ(std::string(list.record[0].mem1) + list.record[0].mem2 + list.record[2].mem2, "SMMEME");

    // The stored messages: one read, one unread from an alphanumeric sender.
    EXPECT_EQ(stored_indexes(), (std::vector<int>{0, 1}));
    const smscodec::Message first = read_message(0);
    EXPECT_EQ(first.address.text + ": " + first.text, "+15550100234: hellohello");
    ReadTextEcCmd cmd{1, 1};
    ReadTextEcRsp text{};
    ASSERT_EQ(AT_Hcmgr(&cmd, &text), 0);
    EXPECT_EQ(std::string(text.callerID) + ": " + std::string(text.msg, text.length), "ExampleNet: Your data bundle is active.");
    EXPECT_EQ(std::make_tuple(text.year, text.stat, text.AtExeResult), std::make_tuple(2024, 0, kOk));
    StCmmt marked{};
    ASSERT_EQ(AT_Cmmt(1, 1, &marked), 0);
    StPerSms pdu{};
    pdu.index = 1;
    ASSERT_EQ(AT_Cmgr(&pdu), 0);
    EXPECT_EQ(pdu.state, AT_SMS_STAT_READ);

    // The unread list asks "AT+CGMI", which this modem answers with its maker: nothing listed.
    int unread[4] = {-1, -1, -1, -1}, n = -1;
    EXPECT_EQ(AT_Cmgi_unread_sms(unread, 4, &n), 0);
    EXPECT_EQ(std::make_pair(n, unread[0]), std::make_pair(0, -1));

    StCmgdPara del{0, 0, 0, {}};
    ASSERT_EQ(AT_Cmgd(1, &del, nullptr), 0);
    EXPECT_EQ(stored_indexes(), std::vector<int>{1});
    del = {0, 4, 0, {}};
    ASSERT_EQ(AT_Hcmgd(1, &del, nullptr), 0);
    StCmgdRsp none{};
    ASSERT_EQ(AT_Hcmgd(0, nullptr, &none), 0);
    EXPECT_EQ(std::make_tuple(none.length, none.index_list, del.AtExeResult), std::make_tuple(0, nullptr, kOk));
}

TEST(MessagingE2e, SettingsAndMemoryFull) {
    e2e::Stack stack;
    ASSERT_TRUE(stack.start());
    StSmMode mode{1, {}};
    ASSERT_EQ(AT_smmode(1, &mode), 0);
    mode = {};
    ASSERT_EQ(AT_hsmmode(0, &mode), 0);
    EXPECT_EQ(mode.mode, 1);
    // Text mode: messages as text with their header, and a text sent to the own number.
    EXPECT_EQ(e2e::exchange("AT+CMGL=\"ALL\"", "+CMGL:").report,
              "+CMGL: 0,\"REC READ\",\"+15550100234\",,\"24/03/29,15:16:59+08\"\r\nhellohello\r\n"
              "+CMGL: 1,\"REC UNREAD\",\"ExampleNet\",,\"24/01/02,03:04:05+32\"\r\nYour data bundle is active.");
    EXPECT_EQ(e2e::exchange(std::string("AT+CMGS=\"") + kOwn + "\"\rText mode\x1a", "+CMGS:").report, "+CMGS: 1");
    EXPECT_TRUE(eventually([] { return e2e::exchange("AT+CMGR=2", "+CMGR:").report.ends_with("\r\nText mode"); }));
    mode = {0, {}};
    ASSERT_EQ(AT_hsmmode(1, &mode), 0);
    StSmCnmi cnmi{1, 1, 0, 0, 0, {}};
    ASSERT_EQ(AT_cnmi(1, &cnmi), 0);
    cnmi = {};
    ASSERT_EQ(AT_cnmi(0, &cnmi), 0);
    EXPECT_EQ(std::make_tuple(cnmi.mode, cnmi.mt, cnmi.ds), std::make_tuple(uint8_t{1}, 1, 0));
    StCsca sca{"5550199", 0, {}, 0}, got{};
    ASSERT_EQ(AT_Csca(1, &sca, &got), 0);
    ASSERT_EQ(AT_Csca(0, nullptr, &got), 0);
    EXPECT_EQ(std::string(got.sca) + "/" + std::to_string(got.tosca), "5550199/129");
    StSmCscb cb{0, "0-99", "0-3", {}};
    ASSERT_EQ(AT_cscb(1, &cb), 0);
    cb = {};
    ASSERT_EQ(AT_cscb(0, &cb), 0);
    EXPECT_EQ(std::string(cb.mids) + "/" + cb.dcss, "0-99/0-3");
    StCmsrRes cmsr{};
    ASSERT_EQ(AT_Cmsr(1, 1, &cmsr), 0);
    ASSERT_EQ(AT_Cmsr(0, 0, &cmsr), 0);
    EXPECT_EQ(cmsr.ReadTag, 1);
    StHsmssInfo sss{0, 0, 6, 0, {}};
    StHsmsssRes sssr{};
    StHsmf hsmf{};
    EXPECT_EQ(std::make_tuple(AT_Hsmsss(&sss, &sssr), AT_Hsmf(1, &hsmf), sssr.AtExeResult, hsmf.AtExeResult),
              std::make_tuple(0, 0, kOk, kOk));

    // Filling the SIM store: the write that takes the last slot raises ^SMMEMFULL, the next is refused.
    StSmmemfull full{};
    ASSERT_EQ(AT_smmemfull(&full), 0);
    EXPECT_EQ(full.AtExeResult, 0);  // no report held: nothing written
    StCmgsInfo in = submit("+15550100234", "fill");
    StCmgwRes w{};
    for (int i = 3; i < 20; ++i) ASSERT_EQ(AT_Cmgw(&in, &w), 0) << i;
    EXPECT_EQ(w.index, 19);
    EXPECT_EQ(AT_Cmgw(&in, &w), -1);
    EXPECT_TRUE(eventually([&] { return AT_smmemfull(&full) == 0 && std::string(full.mem_type) == "SM"; }));
    StCmgdPara del{19, 0, 0, {}};
    ASSERT_EQ(AT_Cmgd(1, &del, nullptr), 0);
    full = {};
    ASSERT_EQ(AT_smmemfull(&full), 0);
    EXPECT_EQ(std::string(full.mem_type), "");  // the delete made room: the report is forgotten
}

TEST(MessagingE2e, SendingAndWriting) {
    e2e::Stack stack;
    ASSERT_TRUE(stack.start());
    StCmgsInfo in = submit("+15550100234", "Stored first");
    StCmgwRes w{};
    ASSERT_EQ(AT_Cmgw(&in, &w), 0);
    EXPECT_EQ(std::make_pair(w.index, w.AtExeResult), std::make_pair(2, kOk));
    EXPECT_EQ(read_message(2).text, "Stored first");

    // Sent from the store, then again to the own number, which brings it back as a new message.
    StCmssPara from_store{2, "", -1, 0};
    StCmssRes mr{};
    ASSERT_EQ(AT_Cmss(&from_store, &mr), 0);
    EXPECT_EQ(mr.mr, 1);
    std::memcpy(from_store.da, kOwn, sizeof kOwn);
    ASSERT_EQ(AT_Cmss(&from_store, &mr), 0);
    EXPECT_TRUE(eventually([] { return stored_indexes().size() == 4; }));

    // A text outside the 7-bit alphabet, sent to the own number and read back.
    in = submit(kOwn, "Grüße ✓ 😀");
    ASSERT_EQ(AT_Cmgs(&in, &mr), 0);
    EXPECT_EQ(mr.mr, 3);
    EXPECT_TRUE(eventually([] { return stored_indexes().size() == 5; }));
    const smscodec::Message back = read_message(4);
    EXPECT_EQ(back.address.text + ": " + back.text, std::string(kOwn) + ": Grüße ✓ 😀");
    EXPECT_EQ(back.kind, smscodec::Kind::deliver);
}

// The vendor's text forms carry raw bodies of fixed size after the prompt (162 bytes for a write,
// 256 for a send), NUL bytes included. They reach the modem whole only when the AT server sends
// such a body by its size; otherwise the modem waits for the rest until the command times out.
TEST(MessagingE2e, RawBodiesReachTheModemWhole) {
    e2e::Stack stack;
    ASSERT_TRUE(stack.start());
    // A write with a text and NUL padding, read back in text form.
    WriteHTextMsgCmd hw{};
    hw.tooa = 129, hw.stat = 2, hw.year = 2024, hw.month = 3, hw.day = 29;
    std::memcpy(hw.oa_ad, "5550100", 8);
    std::memcpy(hw.text, "Hello vendor", 12);
    WriteHTextMsgRsp hr{};
    // Without the body by size the modem waits for the rest and takes later commands as body: stop.
    ASSERT_EQ(AT_Hcmgw(&hw, &hr), 0);
    EXPECT_EQ(hr.index, 2);
    ReadTextEcCmd cmd{2, 1};
    ReadTextEcRsp text{};
    EXPECT_EQ(AT_Hcmgr(&cmd, &text), 0);
    EXPECT_EQ(std::string(text.callerID) + ": " + std::string(text.msg, text.length), "5550100: Hello vendor");

    // A UCS-2 send to the own number comes back as a new message.
    StHsmssInfo sss{0, 0, 6, 0, {}};
    StHsmsssRes sssr{};
    ASSERT_EQ(AT_Hsmsss(&sss, &sssr), 0);
    StHcmgsTextInfo t{};
    std::memcpy(t.Number, kOwn, sizeof kOwn);
    t.tooa = 145;
    const std::string body = smscodec::ucs2_encode("Hi ✓");
    std::memcpy(t.Text, body.data(), body.size());
    StHcmgsRes r{};
    ASSERT_EQ(AT_Hcmgs(&t, &r), 0);
    EXPECT_EQ(r.AtExeResult, kOk);
    ASSERT_TRUE(eventually([] { return stored_indexes().size() == 4; }));
    EXPECT_EQ(read_message(3).text, "Hi ✓");
}

TEST(MessagingE2e, PhonebookAndUssd) {
    e2e::Stack stack;
    ASSERT_TRUE(stack.start());
    StCpbsPara store{"ME", "", {}};
    StCpbsRsp st{};
    ASSERT_EQ(AT_Cpbs(1, &store, &st), 0);
    ASSERT_EQ(AT_Cpbs(0, nullptr, &st), 0);
    EXPECT_EQ(std::string(st.storageflag) + "," + std::to_string(st.usedNum) + "," + std::to_string(st.totalNum), "ME,0,100");
    std::memcpy(store.storageflag, "SM", 3);
    ASSERT_EQ(AT_Cpbs(1, &store, &st), 0);
    StCpbrPara at{};
    StCpbrRsp e{};
    ASSERT_EQ(AT_Cpbr(1, &at, &e), 0);
    EXPECT_EQ(std::make_tuple(e.indexsBegin, e.indexsEnd, e.phoneMaxLength, e.nameMaxLength), std::make_tuple(1, 50, 40, 14));
    at.indexBegin = 1;
    ASSERT_EQ(AT_Cpbr(0, &at, &e), 0);
    EXPECT_EQ(std::string(e.phonenumber) + " " + std::string(e.text, e.nameLength), "+15550100234 Alice");

    // A raw UCS-2 name with NULs goes whole by the request's length and comes back as hexadecimal.
    StCpbwPara w{};
    w.cmdType = 1, w.index = 9, w.phoneType = 145, w.coding = 2;
    std::memcpy(w.phonenumber, "+15550100345", 13);
    const std::string name = smscodec::ucs2_encode("Zoë");
    std::memcpy(w.text, name.data(), name.size());
    w.nameLength = static_cast<int>(name.size());
    StCpbwRsp wr{};
    ASSERT_EQ(AT_Cpbw(0, &w, &wr), 0);
    EXPECT_EQ(wr.AtExeResult, kOk);
    at.indexBegin = 9;
    e = {};
    ASSERT_EQ(AT_Cpbr(0, &at, &e), 0);
    EXPECT_EQ(std::string(e.text, e.nameLength) + "/" + std::to_string(e.coding), "005A006F00EB/1");
    w.cmdType = 2;
    ASSERT_EQ(AT_Cpbw(0, &w, &wr), 0);
    at.AtExeResult = kOk;
    ASSERT_EQ(AT_Cpbr(0, &at, &e), 0);
    EXPECT_EQ(at.AtExeResult, AT_CMD_RES_BUSY);  // "+CME ERROR: 22", not found

    // A USSD request; the answer arrives as a report the AT server keeps.
    StCusdInfo cusd{1, "\"*100#\"", 7, 15, {}};
    ASSERT_EQ(AT_Cusd_Msg_Send(1, &cusd), 0);
    EXPECT_EQ(cusd.AtExeResult, kOk);
    EXPECT_TRUE(eventually([] { return e2e::exchange("+CUSD", "+CUSD:").report.find("Balance") != std::string::npos; }));
    cusd.reportType = 2;
    ASSERT_EQ(AT_Cusd_Msg_Send(1, &cusd), 0);
    StUssdMode um{1, {}};
    ASSERT_EQ(AT_UssdMode(1, &um), 0);
    um = {};
    ASSERT_EQ(AT_UssdMode(0, &um), 0);
    EXPECT_EQ(um.mode, 1);
}

// ---- atctl ------------------------------------------------------------------------------------

struct Cli {
    const e2e::Stack& stack;
    Json operator()(std::vector<std::string> args, int want_exit = 0, const std::string& input = {}) const {
        args.insert(args.begin(), "--json");
        const atctl_test::CliRun r = atctl_test::run_atctl(args, stack.dir(), input);
        EXPECT_EQ(r.exit, want_exit) << args[1] << " " << (args.size() > 2 ? args[2] : "") << "\n" << r.out << r.err;
        return atctl_test::parse_json(r.out).value_or(Json{});
    }
};

TEST(MessagingE2e, AtctlSubcommands) {
    e2e::Stack stack;
    ASSERT_TRUE(stack.start());
    const Cli atctl{stack};
    atctl_test::expect_fields(atctl({"sms", "storage"}), {{"cpms", "mem1", "'SM'"}, {"cpms", "used1", "2"},
                                                          {"cpms", "total1", "20"}, {"cpms_test", "stores", "'SM,ME'"}});
    atctl_test::expect_fields(atctl({"sms", "list"}), {{"cmgd", "indexes", "'0,1'"}, {"sms_0", "text", "'hellohello'"},
                                                       {"sms_1", "number", "'ExampleNet'"}, {"sms_1", "status_text", "'unread'"},
                                                       {"sms_1", "time", "'2024-01-02T03:04:05+08:00'"}});

    // A long text outside the 7-bit alphabet: split on send, stored as two parts, joined on read.
    std::string text = "Grüße aus dem Test ✓ 😀 ";
    while (text.size() < 110) text += "und weiter ";  // 111 characters: two UCS-2 parts
    atctl_test::expect_fields(atctl({"sms", "send", kOwn}, 0, text + "\n"),
                              {{"cmgs_1", "parts", "2"}, {"cmgs_2", "mr", "2"}});
    EXPECT_TRUE(eventually([&] { return atctl({"sms", "list"})["sms_2"]["complete"].show() == "true"; }));
    atctl_test::expect_fields(atctl({"sms", "read", "3"}),
                              {{"sms_2", "text", "'" + text + "'"}, {"sms_2", "indexes", "'2,3'"}, {"sms_2", "coding", "'ucs2'"}});
    atctl({"sms", "delete", "0"});
    EXPECT_EQ(atctl({"sms", "list"})["cmgd"]["indexes"].show(), "'1,2,3'");
    atctl({"sms", "delete", "all"});
    EXPECT_EQ(atctl({"sms", "list"})["cmgd"]["count"].show(), "0");
    atctl({"sms", "read", "x"}, 2);
    atctl({"sms", "send", "not-a-number"}, 2, "text");

    atctl_test::expect_fields(atctl({"ussd", "*123#"}), {{"cusd_report", "rsp_type", "1"}});
    atctl_test::expect_fields(atctl({"ussd", "1"}), {{"cusd_report", "text", "'Balance: 12.50 EUR.'"}, {"cusd_report", "rsp_type", "0"}});
    atctl_test::expect_fields(atctl({"ussd", "--cancel"}), {{"cusd", "ok", "true"}});

    atctl({"phonebook", "write", "7", "+15550100345", "Zoë Ünal"});
    atctl_test::expect_fields(atctl({"phonebook", "list"}), {{"cpbs", "used", "3"}, {"entry_7", "name", "'Zoë Ünal'"},
                                                             {"entry_1", "name", "'Alice'"}});
    atctl({"phonebook", "delete", "7"});
    EXPECT_EQ(atctl({"phonebook", "list", "--store", "ON"})["entry_1"]["number"].show(), std::string("'") + kOwn + "'");
}

}  // namespace
