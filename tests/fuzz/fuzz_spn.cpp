// fuzz_spn - libFuzzer target for the decoding of the service-provider name.
//
// Input layout: byte 0 picks the coding (its low bit: 0 GSM 7-bit, 1 UCS2) and the display
// condition; the rest is the name as the modem writes it. The name goes through the whole chain
// twice: as the text of a ^SPN reply (parse_spn_vf, handle_spn_name) and directly
// (Decode_SPN_to_UCS2, ucs2_to_utf8), and through the GSM, hexadecimal and byte-order steps
// with buffers of exactly the sizes they promise to stay in. Every buffer is a heap block of
// its exact size, so any access past one is caught.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "atapi.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    const int coding = data[0] & 1;
    const int display = data[0] >> 1;
    const auto* name = data + 1;
    const size_t len = size - 1 > 200 ? 200 : size - 1;

    // A ^SPN reply around the name, parsed and decoded as at_spn_get does.
    std::vector<char> reply(len + 32);
    const int head = std::snprintf(reply.data(), reply.size(), "^SPN: %d,%d,\"", display, coding);
    std::memcpy(reply.data() + head, name, len);
    reply[static_cast<size_t>(head) + len] = '"';
    reply[static_cast<size_t>(head) + len + 1] = '\0';
    auto* spn = static_cast<spnresult*>(malloc(sizeof(spnresult)));
    std::memset(spn, 0, sizeof *spn);
    char match[] = "^SPN";
    if (parse_spn_vf(reply.data(), spn, match) == 0) (void)handle_spn_name(spn);
    free(spn);

    // The decoder on the raw text, then to UTF-8 with the room the contract names.
    auto* text = static_cast<unsigned char*>(malloc(len + 1));
    std::memcpy(text, name, len);
    text[len] = 0;
    // Cleared as handle_spn_name clears its own: an unknown UCS2 form writes nothing.
    auto* chars = static_cast<unsigned short*>(calloc(32, sizeof(unsigned short)));
    if (Decode_SPN_to_UCS2(coding, text, static_cast<int>(len), chars) == 0 && spn_wcslen(chars) < 32) {
        auto* utf8 = static_cast<unsigned char*>(malloc(3 * 31));
        (void)ucs2_to_utf8(chars, utf8, 31);
        free(utf8);
    }
    free(chars);

    // The steps alone: GSM characters into a buffer of dwBufLen + 1, hexadecimal pairs, pairs of
    // bytes into characters.
    const int buf_len = static_cast<int>(len % 40);
    auto* wide = static_cast<unsigned short*>(malloc((static_cast<size_t>(buf_len == 0 ? len : buf_len) + 1) * 2));
    int count = 0;
    (void)GSM_7BitToWCHAR(text, static_cast<int>(len), wide, buf_len, &count);
    free(wide);
    auto* bytes = static_cast<unsigned char*>(malloc(len / 2 + 1));
    (void)gsmString2Bytes(reinterpret_cast<const char*>(text), bytes, static_cast<int>(len));
    free(bytes);
    auto* pairs = static_cast<unsigned short*>(malloc((len / 2 + 1) * 2));
    (void)ByteOrder2WideChar(text, pairs, static_cast<int>(len));
    free(pairs);
    free(text);
    return 0;
}
