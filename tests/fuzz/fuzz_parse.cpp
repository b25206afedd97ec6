// fuzz_parse - libFuzzer target for the reply parser.
//
// Input layout: byte 0 is the function type (0..127), byte 1 the operation type (0..7, so the
// refused values are reached too), byte 2 picks a row of that type's table (its name is what the
// caller passes), and the rest is the reply text, cut to the size of the AT server's report field.
// Every input also goes through the error-code mapping and the hexadecimal and 7-bit helpers.
// The reply lives in a heap block of exactly its size, so any read past its end is caught.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "atapi.h"

namespace {

char* heap_text(const uint8_t* data, size_t size) {
    auto* text = static_cast<char*>(malloc(size + 1));
    if (size > 0) memcpy(text, data, size);
    text[size] = '\0';
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 3) return 0;
    const auto func = static_cast<at_function_type>(data[0] & 0x7F);
    const auto oper = static_cast<at_operation_type>(data[1] & 0x07);
    const uint8_t row_pick = data[2];
    data += 3;
    size -= 3;
    if (size > AT_REPORT_STR_LEN - 1) size = AT_REPORT_STR_LEN - 1;

    // The name a caller would pass for the picked row, or a name that matches no row.
    std::vector<char> name = {'+', 'N', 'O', 'N', 'E', '\0'};
    if (const at_parse_handler* table = parse_func_type(func); table != nullptr) {
        size_t rows = 0;
        while (table[rows].at_name != nullptr) ++rows;
        if (rows > 0 && row_pick != 0xFF) {
            const char* row_name = table[row_pick % rows].at_name;
            name.assign(row_name, row_name + strlen(row_name) + 1);
        }
    }

    if (row_pick == 0xFE) {
        const auto* colon = static_cast<const uint8_t*>(memchr(data, ':', size < 32 ? size : 32));
        if (colon != nullptr) name.assign(data, colon), name.push_back('\0');
    }

    char* reply = heap_text(data, size);
    AtCmdParse* tree = nullptr;
    if (at_cmd_parse(&tree, name.data(), reply, func, oper) == 0) free_at_cmd(tree);
    free(reply);

    reply = heap_text(data, size);
    (void)Error_str_to_id(reply);
    free(reply);

    reply = heap_text(data, size < 32 ? size : 32);
    (void)hex_str_to_uinteger(reply);
    (void)get_hex_from_str(reply);
    free(reply);

    std::vector<unsigned char> septets(size + size / 7 + 2);
    (void)decode_7bit(data, septets.data(), static_cast<int>(size));
    return 0;
}
