// fuzz_pdu - libFuzzer target for the SMS codec of atctl and the simulated modem.
//
// Byte 0 picks what the rest is: (even) a PDU in hexadecimal, decoded, and when it decodes,
// encoded again and decoded once more; (odd) a text, split into SMS-SUBMIT parts that must decode
// and join back into the same text whenever the text is well-formed UTF-8. Raw bytes also go
// through the UCS-2 reader.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "smscodec.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    const bool text_mode = data[0] & 1;
    const bool wide = data[0] & 2;
    const std::string rest(reinterpret_cast<const char*>(data + 1), size - 1);
    (void)smscodec::ucs2_decode(rest);
    if (!text_mode) {
        const smscodec::Decoded d = smscodec::decode(rest);
        if (d.message) {
            if (const std::optional<smscodec::Pdu> again = smscodec::encode(*d.message)) {
                if (!smscodec::decode(again->hex).message) std::abort();
            }
        }
        return 0;
    }
    const std::vector<smscodec::Pdu> pdus =
        smscodec::encode_submit("+15550100234", rest, {.reference = data[0], .wide_reference = wide});
    std::vector<smscodec::Message> parts;
    for (const smscodec::Pdu& p : pdus) {
        const smscodec::Decoded d = smscodec::decode(p.hex);
        if (!d.message || p.hex.size() != static_cast<size_t>(p.length) * 2 + 2) std::abort();
        parts.push_back(*d.message);
    }
    const bool well_formed = smscodec::ucs2_decode(smscodec::ucs2_encode(rest)) == rest;
    if (!pdus.empty() && well_formed) {
        const std::vector<smscodec::Assembled> joined = smscodec::assemble(parts);
        if (joined.size() != 1 || !joined[0].complete || joined[0].text != rest) std::abort();
    }
    return 0;
}
