// ats_pb.cpp - the phonebook: store selection, entry write and delete, entry read and the store's
// index range and field lengths.
//
// Entry names may be raw UCS-2 bytes holding NULs. A write therefore sets the request's length
// field so that the AT server sends the name whole, and a read whose reply is longer than its text
// is taken apart byte by byte instead of by the reply template.
#include <algorithm>
#include <cstring>
#include <string>

#include "atapi/sms.h"
constexpr char kTraceSource[] = "src/ats_pb";
#include "frame.h"

using atapi::Field;
using atapi::num;
using atapi::OnError;
using atapi::ParseTree;
using atapi::Request;
using atapi::text;

namespace {

constexpr at_function_type kPhonebook = AT_FUNCTION_PHONE_RECORD;
constexpr int kNameMax = 512;

// One entry as the entry decoder takes it from a raw reply.
struct StCPBR {
    int iIndex;
    int phoneType;
    int iCode;
    int nameLength;
    char phonenumber[80];
    char text[kNameMax];
};

// Decodes a reply `index,"number",type,"name",coding` whose name may hold NUL bytes: the first
// three commas are looked for in the text before the first NUL, the last one backwards from the
// end of the `iLength` bytes. Nothing is decoded unless the reply is longer than its text.
void pbat_parse(const char* src, int iLength, StCPBR* StRsp) {
    if (!src || !StRsp) return;
    const auto text_len = static_cast<int>(strnlen(src, AT_REPORT_STR_LEN));
    iLength = std::min(iLength, AT_REPORT_STR_LEN);
    if (iLength <= text_len) return;
    const char* colon = static_cast<const char*>(std::memchr(src, ':', static_cast<std::size_t>(text_len)));
    int comma[3];
    int from = 0;
    for (int& c : comma) {
        const auto rest = static_cast<std::size_t>(text_len - from);
        const char* p = static_cast<const char*>(std::memchr(src + from, ',', rest));
        if (!colon || !p) return;
        c = static_cast<int>(p - src);
        from = c + 1;
    }
    int last = iLength - 1;
    while (last >= 0 && src[last] != ',') --last;
    if (last < 0) return;
    StRsp->iIndex = safe_atoi(colon + 1);
    StRsp->phoneType = safe_atoi(src + comma[1] + 1);
    StRsp->iCode = safe_atoi(src + last + 1);
    // Past the comma and the opening quote, up to the closing quote.
    const int number_len = comma[1] - comma[0] - 3;
    if (number_len < 0) return;
    const int number_kept = std::min(number_len, static_cast<int>(sizeof StRsp->phonenumber) - 1);
    memcpy_s(StRsp->phonenumber, sizeof StRsp->phonenumber, src + comma[0] + 2, static_cast<std::size_t>(number_kept));
    const int name_len = last - comma[2] - 3;
    if (name_len < 0) return;
    StRsp->nameLength = std::min(name_len, kNameMax);
    memcpy_s(StRsp->text, sizeof StRsp->text, src + comma[2] + 2, static_cast<std::size_t>(StRsp->nameLength));
}

int read_entry(StCpbrPara* para, StCpbrRsp* rsp) {
    Request req;
    if (!AT_FORMAT_CMD(req, 639, "AT^CPBR=%d", para->indexBegin)) return -1;
    if (int rc = req.exchange()) return rc;
    // An error goes into the request record, a success into the answer record, on purpose.
    if (!req.ok()) return req.map_error(para->AtExeResult);
    rsp->AtExeResult = AT_CMD_RES_SUCCESS;
    const auto text_len = static_cast<int32_t>(strnlen(req.report(), AT_REPORT_STR_LEN));
    if (req.report_len() > text_len) {
        StCPBR entry{};
        pbat_parse(req.report(), req.report_len(), &entry);
        // The decoder's index and type are not passed on, on purpose: they keep the caller's values.
        rsp->coding = entry.iCode;
        rsp->nameLength = entry.nameLength;
        memcpy_s(rsp->phonenumber, sizeof rsp->phonenumber, entry.phonenumber, sizeof entry.phonenumber);
        memcpy_s(rsp->text, sizeof rsp->text, entry.text, static_cast<std::size_t>(entry.nameLength));
        return 0;
    }
    ParseTree tree = req.parse("^CPBR", kPhonebook, AT_OPERATION_TYPE_EXECUTE);
    if (!tree) return -1;
    for (Field f : tree.row()) {
        if (f.is("index")) {
            rsp->index = f.number();
        } else if (f.is("number")) {
            atapi::copy_text(rsp->phonenumber, f.value());
        } else if (f.is("type")) {
            rsp->phoneType = f.number();
        } else if (f.is("text")) {
            AT_FORMAT_TEXT(rsp->text, f.value());
            rsp->nameLength = static_cast<int>(strnlen(rsp->text, sizeof rsp->text));
        } else if (f.is("coding")) {
            rsp->coding = f.number();
        }
    }
    return 0;
}

int read_ranges(StCpbrPara* para, StCpbrRsp* rsp) {
    Request req{"AT^CPBR=?", "^CPBR:"};
    if (int rc = req.exchange()) return rc;
    if (!req.ok()) return req.map_error(para->AtExeResult);
    rsp->AtExeResult = AT_CMD_RES_SUCCESS;
    ParseTree tree = req.parse("^CPBR", kPhonebook, AT_OPERATION_TYPE_TEST);
    if (!tree) return -1;
    for (Field f : tree.row()) {
        if (f.is("nlength")) {
            rsp->phoneMaxLength = f.number();
        } else if (f.is("tlength")) {
            rsp->nameMaxLength = f.number();
        } else if (f.is("mlength")) {
            rsp->emailMaxLength = f.number();
        } else if (f.is("indexs")) {
            // "(1-250)": the range's ends, in a text of at most 19 characters.
            char range[20] = {};
            AT_FORMAT_TEXT(range, f.value());
            char* begin = range + std::strspn(range, "( ");
            char* dash = std::strchr(begin, '-');
            if (dash) *dash = '\0';
            rsp->indexsBegin = safe_atoi(begin);
            if (dash) rsp->indexsEnd = safe_atoi(dash + 1);
        }
    }
    return 0;
}

}  // namespace

extern "C" int AT_Cpbs(int cmd_type, StCpbsPara* cpbs_para, StCpbsRsp* cpbs_rsp) {
    return atapi::dispatch(
        cmd_type,
        [&] {
            if (!cpbs_rsp) return -1;
            Request req{"AT+CPBS?", "+CPBS:"};
            return AT_QUERY(req,
                            {.name = "+CPBS", .table = kPhonebook, .on_error = OnError::map,
                             .result = &cpbs_rsp->AtExeResult},
                            {text("storage", cpbs_rsp->storageflag), num("used", cpbs_rsp->usedNum),
                             num("total", cpbs_rsp->totalNum)});
        },
        [&] {
            if (!cpbs_para || !cpbs_rsp) return -1;
            const std::string store = atapi::input_text(cpbs_para->storageflag);
            Request req;
            if (!AT_FORMAT_CMD(req, 639, "AT+CPBS=\"%s\"", store.c_str())) return -1;
            return atapi::set_and_map(req, cpbs_rsp->AtExeResult);
        },
        -1);
}

extern "C" int AT_Cpbw(int, StCpbwPara* cpbw_para, StCpbwRsp* cpbw_rsp) {
    if (!cpbw_para || !cpbw_rsp) return -1;
    Request req;
    if (cpbw_para->cmdType == 2) {
        if (!AT_FORMAT_CMD(req, 639, "AT^CPBW=%d", cpbw_para->index)) return -1;
    } else if (cpbw_para->cmdType == 0 || cpbw_para->cmdType == 1) {
        if (cpbw_para->nameLength < 0 || cpbw_para->nameLength > kNameMax) return -1;
        const auto name_len = static_cast<std::size_t>(cpbw_para->nameLength);
        const std::string number = atapi::input_text(cpbw_para->phonenumber);
        const char coding = cpbw_para->coding == 2 ? '2' : cpbw_para->coding == 1 ? '1' : '0';
        const char tail[3] = {'"', ',', coding};
        if (!AT_FORMAT_CMD(req, 639, "AT^CPBW=%d,\"%s\",%d,\"", cpbw_para->index, number.c_str(),
                           cpbw_para->phoneType))
            return -1;
        // The name is raw bytes, NULs included; the length field tells the AT server where the line ends.
        const std::size_t header = req.cmd_length();
        if (header + name_len + sizeof tail > AT_CMD_STR_LEN - 1 ||
            !req.put_bytes(header, cpbw_para->text, name_len) ||
            !req.put_bytes(header + name_len, tail, sizeof tail))
            return -1;
        req.set_len(static_cast<int32_t>(header + name_len + sizeof tail));
    } else {
        return -1;
    }
    return atapi::set_and_map(req, cpbw_rsp->AtExeResult);
}

extern "C" int AT_Cpbr(int cmd_type, StCpbrPara* cpbr_para, StCpbrRsp* cpbr_rsp) {
    if (!cpbr_para || !cpbr_rsp) return -1;
    if (cmd_type == AT_CHECK_VALUE) return read_entry(cpbr_para, cpbr_rsp);
    if (cmd_type == AT_SET_VALUE || cmd_type == AT_ENUM_MAX) return read_ranges(cpbr_para, cpbr_rsp);
    return -1;
}
