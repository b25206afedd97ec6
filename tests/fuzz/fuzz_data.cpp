// fuzz_data - libFuzzer target for the data family's conversions of modem text: the reversed
// hexadecimal IPv4 address of ^DHCP, the dotted-address reversal and the range reader of the
// ^LTEPROFILE limits.
//
// Input layout: byte 0 is the size of the result buffer (0..31), the rest the text. Each buffer
// is a heap block of exactly its size, so any access past its end is caught.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "atapi.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    const size_t out_size = data[0] & 0x1F;
    ++data;
    --size;
    auto* text = static_cast<char*>(malloc(size + 1));
    if (size > 0) memcpy(text, data, size);
    text[size] = '\0';
    auto* out = static_cast<char*>(malloc(out_size + 1));

    (void)convert_ip_to_string(text, out, out_size);
    memcpy(out, text, size < out_size ? size : out_size);
    out[out_size] = '\0';
    (void)reverse_ip_addr_to_normal(out, static_cast<unsigned int>(out_size + 1));
    int begin = 0, end = 0;
    (void)parse_begin_end_value(text, &begin, &end);

    free(out);
    free(text);
    return 0;
}
