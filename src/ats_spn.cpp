// ats_spn.cpp - the service-provider name: "^SPN" read from the SIM, its alpha-field coding (GSM
// 7-bit default alphabet, or UCS2 in the 0x80, 0x81 and 0x82 forms, written by the modem as
// hexadecimal digits or as raw bytes) decoded to 16-bit characters and then to UTF-8.
//
// The data decide counts and lengths here, so every write is held to its buffer: a name that
// fits decodes exactly, one that does not is cut or refused, never written past the end.
#include <cstring>

#include "atapi/sim.h"
constexpr char kTraceSource[] = "src/ats_spn";
#include "frame.h"

namespace {

constexpr int kNameChars = 32;        // decoded characters, the terminator included
constexpr std::size_t kNameBytes = 32;  // bytes of the name after hexadecimal conversion
constexpr unsigned short kBlank = 32;

// UTF-8 of `count` characters into `out`, at most `room` bytes and never part of a character.
// The number of bytes written.
std::size_t encode_utf8(const unsigned short* chars, int count, unsigned char* out, std::size_t room) {
    std::size_t n = 0;
    for (int i = 0; i < count; ++i) {
        const unsigned c = chars[i];
        const std::size_t width = c < 0x80 ? 1 : c <= 0x7FF ? 2 : 3;
        if (n + width > room) break;
        if (width == 1) {
            out[n++] = static_cast<unsigned char>(c);
        } else if (width == 2) {
            out[n++] = static_cast<unsigned char>(0xC0 | (c >> 6));
            out[n++] = static_cast<unsigned char>(0x80 | (c & 0x3F));
        } else {
            out[n++] = static_cast<unsigned char>(0xE0 | (c >> 12));
            out[n++] = static_cast<unsigned char>(0x80 | ((c >> 6) & 0x3F));
            out[n++] = static_cast<unsigned char>(0x80 | (c & 0x3F));
        }
    }
    return n;
}

// One GSM default-alphabet byte of a 0x81 or 0x82 name, through the same table walk as a whole text.
bool gsm_char(unsigned char byte, unsigned short& out) {
    unsigned short one[2] = {0, 0};
    int n = 0;
    if (GSM_7BitToWCHAR(&byte, 1, one, 1, &n) != 0) return false;
    out = one[0];
    return true;
}

// The 0x81 and 0x82 forms: `count` characters from `first` on, each either an offset from `base`
// (top bit set) or a GSM default character. Bytes past the name read as the cleared buffer's
// zeros, as for a count larger than the name; nothing is read past the buffer, and at most 31
// characters are written before the terminator.
int decode_based(const unsigned char (&bytes)[kNameBytes + 1], std::size_t first, int count, unsigned base,
                 unsigned top_bit_offset, unsigned short* dst) {
    int out = 0;
    for (std::size_t i = first; count > 0 && i < kNameBytes && out < kNameChars - 1; ++i, --count) {
        const unsigned char b = bytes[i];
        unsigned short c = 0;
        if (b & 0x80) c = static_cast<unsigned short>((b & top_bit_offset) + base);
        else if (!gsm_char(b, c)) return -1;
        dst[out++] = c;
    }
    dst[out] = 0;
    return 0;
}

}  // namespace

extern "C" int spn_wcslen(unsigned short* src) {
    if (!src) return -1;
    int n = 0;
    while (src[n] != 0) ++n;
    return n;
}

extern "C" int ucs2_to_utf8(unsigned short* pUCS, unsigned char* pUTF8, int MaxLength) {
    if (!pUCS || !pUTF8) return -1;
    const int count = spn_wcslen(pUCS);
    if (count > MaxLength) return -1;
    encode_utf8(pUCS, count, pUTF8, 3 * static_cast<std::size_t>(count));
    return 0;
}

extern "C" int GSM_7BitToWCHAR(const unsigned char* pGSM_7Data, int dwInputLen, unsigned short* pWCHARData,
                               int dwBufLen, int* dwOutputLen) {
    if (!pGSM_7Data || !pWCHARData || !dwOutputLen || dwBufLen < 0) return -1;
    int count = 0;
    for (int i = 0; i < dwInputLen; ++i) {
        const unsigned char b = pGSM_7Data[i];
        // 128 is one past the tables: it reads as no character, as 0x80 and above do.
        if (b >= 128) return -1;
        uint32_t c;
        bool extension = false;
        if (b == 0x1B) {
            if (i + 1 >= dwInputLen) return -1;
            const unsigned char next = pGSM_7Data[++i];
            if (next >= 128) return -1;
            c = arrayGSM_7ExtTable[next];
            if (c == 0xFFFF) return -1;
            extension = true;
        } else {
            c = arrayGSM_7DefaultTable[b];
            if (c > 65534) return -1;
        }
        if (dwBufLen != 0) {
            if (count + 1 > dwBufLen) return -1;
            // Characters the caller's font lacks beyond the euro sign and Omega show as blanks.
            const bool blank = extension ? c > 0x20AC : c > 0x03A9;
            pWCHARData[count] = blank ? kBlank : static_cast<unsigned short>(c);
        }
        ++count;
    }
    *dwOutputLen = count;
    pWCHARData[count] = 0;
    return 0;
}

extern "C" int gsmString2Bytes(const char* pszSrc, unsigned char* puszDst, int iSrcLength) {
    if (!pszSrc || !puszDst || iSrcLength <= 0) return 0;
    auto nibble = [](char ch) {
        const auto c = static_cast<unsigned char>(ch);
        if (c >= '0' && c <= '9') return c - '0';
        return c > 'a' - 1 ? c - 0x57 : c - 0x37;  // no check: any other character gives some value
    };
    const int n = iSrcLength / 2;
    for (int i = 0; i < n; ++i)
        puszDst[i] = static_cast<unsigned char>((nibble(pszSrc[2 * i]) << 4) | nibble(pszSrc[2 * i + 1]));
    return n;
}

extern "C" int ByteOrder2WideChar(const unsigned char* puszSrc, unsigned short* pszDst, int iSrcLength) {
    if (!puszSrc || !pszDst) return 0;
    const int n = iSrcLength > 0 ? iSrcLength / 2 : 0;
    for (int i = 0; i < n; ++i) pszDst[i] = static_cast<unsigned short>(puszSrc[2 * i] << 8 | puszSrc[2 * i + 1]);
    pszDst[n] = 0;
    return n;
}

extern "C" int Decode_SPN_to_UCS2(int iCode, const unsigned char* puszText, int iTextLen, unsigned short* puszDst) {
    if (!puszText || !puszDst) return -1;
    unsigned short work[kNameChars] = {0};
    int n = 0;
    if (iCode == 0) {
        if (GSM_7BitToWCHAR(puszText, iTextLen, work, kNameChars - 1, &n) != 0) return -1;
        std::memcpy(puszDst, work, sizeof work);
        return 0;
    }

    // The bytes of the name, from raw bytes or hexadecimal digits, cut to the buffer.
    unsigned char bytes[kNameBytes + 1] = {0};
    const std::size_t text_len = iTextLen > 0 ? static_cast<std::size_t>(iTextLen) : 0;
    std::size_t count;
    if (text_len > 0 && (puszText[0] & 0x80)) {
        count = text_len < kNameBytes ? text_len : kNameBytes;
        std::memcpy(bytes, puszText, count);
    } else {
        const std::size_t digits = text_len < 2 * kNameBytes ? text_len : 2 * kNameBytes;
        count = static_cast<std::size_t>(
            gsmString2Bytes(reinterpret_cast<const char*>(puszText), bytes, static_cast<int>(digits)));
    }

    switch (bytes[0]) {
    case 0x80: {
        // Big-endian pairs after the marker, up to the first FF FF padding.
        std::size_t pairs = count > 0 ? (count - 1) & ~std::size_t{1} : 0;
        for (std::size_t i = 1; i + 1 <= pairs; i += 2)
            if (bytes[i] == 0xFF && bytes[i + 1] == 0xFF) {
                pairs = i - 1;
                break;
            }
        ByteOrder2WideChar(bytes + 1, work, static_cast<int>(pairs));
        std::memcpy(puszDst, work, sizeof work);
        return 0;
    }
    case 0x81:
        return decode_based(bytes, 3, bytes[1], static_cast<unsigned>(bytes[2]) << 7, 0x7F, puszDst);
    case 0x82:
        // The offset keeps the top bit and takes 0x80 off the base instead: the same sum.
        return decode_based(bytes, 4, bytes[1], ((static_cast<unsigned>(bytes[2]) << 8) | bytes[3]) - 0x80, 0xFF,
                            puszDst);
    default:
        break;
    }
    if (bytes[0] & 0x80) return 0;  // a UCS2 form this decoder does not know: nothing written
    if (GSM_7BitToWCHAR(bytes, static_cast<int>(count), work, kNameChars - 1, &n) != 0) return -1;
    std::memcpy(puszDst, work, sizeof work);
    return 0;
}

extern "C" int parse_spn_vf(char* cmd_report, spnresult* Result, char* Atmatch) {
    if (!cmd_report || !Result || !Atmatch) return -1;
    atapi::ParseTree tree = atapi::parse_text(cmd_report, Atmatch, AT_FUNCTION_SPN_CFG);
    if (!tree) return -1;
    for (atapi::Field f : tree.row()) {
        if (f.is("disp_rplmn")) Result->disp_rplmn = f.number();
        else if (f.is("coding")) Result->coding = f.number();
        else if (f.is("spn_name")) atapi::copy_text(Result->spn_name, f.value());
    }
    return 0;
}

extern "C" int handle_spn_name(spnresult* Result) {
    if (!Result) return -1;
    unsigned short chars[kNameChars] = {0};
    const auto* name = reinterpret_cast<const unsigned char*>(Result->spn_name);
    const int len = static_cast<int>(strnlen(Result->spn_name, sizeof Result->spn_name));
    if (Decode_SPN_to_UCS2(Result->coding, name, len, chars) != 0) return -1;
    std::memset(Result->spn_name, 0, sizeof Result->spn_name);
    const int count = spn_wcslen(chars);
    if (count > kNameChars - 1) return -1;
    // 31 characters of three bytes would not fit the field: the name is cut after a whole character.
    encode_utf8(chars, count, reinterpret_cast<unsigned char*>(Result->spn_name), sizeof Result->spn_name - 1);
    return 0;
}

extern "C" int at_spn_get(nvramcontnetres* Result) {
    if (!Result) return -1;
    atapi::Request req{"AT^SPN=1", "^SPN", 1};
    if (int rc = req.exchange()) return rc;
    if (req.is_error_report()) return req.map_error(Result->AtExeResult);
    if (!req.ok()) return -1;
    Result->AtExeResult = AT_CMD_RES_SUCCESS;
    spnresult spn{};
    char match[] = "^SPN";
    // Intended: a reply that does not parse leaves the name empty with success, like one that does not decode.
    parse_spn_vf(req.report(), &spn, match);
    if (handle_spn_name(&spn) == -1) Result->Code[0] = '\0';
    else AT_FORMAT_TEXT(Result->Code, spn.spn_name);
    return 0;
}
